/*
 * copy.cpp
 *    COPY of a table under a policy.  Stock COPY has no hook points, so the
 *    layer runs such a COPY itself, out of PostgreSQL's own COPY pieces,
 *    and calls the module's callbacks (HostCopyCallbacks, host.h) where
 *    the labels come in.
 *
 *   COPY TO    runs as COPY (SELECT <columns> FROM ONLY <table>) TO through
 *              DoCopy.  The query passes the planner hook like any other,
 *              so the label filter keeps exactly the rows the session may
 *              read: read_mediation of every enabled policy, row by row,
 *              which is what a per-row check of COPY TO would ask.  Only
 *              the rows written are counted.  The `columns` callback may
 *              leave columns out, the `output` callback says how each
 *              column is printed; the output columns keep the
 *              table's column names, for HEADER.
 *   COPY FROM  reads lines with BeginCopyFrom and NextCopyFromRawFields and
 *              converts fields as NextCopyFrom does (text and CSV), with
 *              the `fields_read` callback capping the number of fields
 *              and the `field` callback converting a field before the
 *              column's input function.  Defaults fill the columns not
 *              read, the COPY's WHERE condition filters, and
 *              the `row` callback checks what is left, as the label
 *              check of INSERT ... SELECT ... WHERE would.  Rows are then
 *              inserted as CopyFrom inserts them, in batches where it
 *              would batch them: BEFORE and AFTER row and statement
 *              triggers (transition tables too), generated columns,
 *              constraints, indexes.  Errors name the input line through
 *              CopyFromErrorCallback, as stock COPY's do.
 *
 * Binary format, and FREEZE in COPY FROM, are refused for such tables.
 */
#include "host/host.h"

namespace {

/* ---------------------------------------------------------------------
 * Options and columns
 * --------------------------------------------------------------------- */

/* Binary format, and FREEZE in COPY FROM (COPY TO ignores it). */
void
refuse_unsupported_options(ParseState *pstate, const CopyStmt *stmt)
{
    CopyFormatOptions opts = {};

    ProcessCopyOptions(pstate, &opts, stmt->is_from, stmt->options);
    if (opts.binary)
        ereport(ERROR,
                (errcode(ERRCODE_FEATURE_NOT_SUPPORTED),
                 errmsg("COPY in binary format is not supported on table \"%s\", which is under a lavrel policy",
                        stmt->relation->relname),
                 errhint("Use the text or CSV format.")));
    if (opts.freeze && stmt->is_from)
        ereport(ERROR,
                (errcode(ERRCODE_FEATURE_NOT_SUPPORTED),
                 errmsg("COPY FREEZE is not supported on table \"%s\", which is under a lavrel policy",
                        stmt->relation->relname)));
}

/* The columns the COPY names (all when it names none), less those the callbacks leave out. */
List *
copy_attnums(Relation rel, const CopyStmt *stmt, const HostCopyCallbacks *cb)
{
    List       *attnums = CopyGetAttnums(RelationGetDescr(rel), rel, stmt->attlist);

    if (cb != NULL)
        attnums = cb->columns(cb->arg, attnums);
    return attnums;
}

char *
column_name(Relation rel, AttrNumber attnum)
{
    return pstrdup(NameStr(TupleDescAttr(RelationGetDescr(rel), attnum - 1)->attname));
}

/* ---------------------------------------------------------------------
 * COPY TO
 * --------------------------------------------------------------------- */

/*
 * One output column: the column as the callbacks print it, under its own name.
 * It is placed at the table's name in the COPY's text, a named column and
 * not a star (whose columns a hidden policy column leaves).
 */
ResTarget *
output_column(Relation rel, AttrNumber attnum, int location, const HostCopyCallbacks *cb)
{
    ColumnRef  *column = makeNode(ColumnRef);
    ResTarget  *target = makeNode(ResTarget);

    target->name = column_name(rel, attnum);
    column->fields = list_make1(makeString(target->name));
    column->location = location;
    target->val = (Node *) column;
    if (cb != NULL)
        target->val = cb->output(cb->arg, attnum, target->val);
    target->location = -1;
    return target;
}

/* SELECT <columns> FROM ONLY <schema>.<table>: COPY TO reads no child tables. */
SelectStmt *
copy_to_query(Relation rel, List *attnums, int location, const HostCopyCallbacks *cb)
{
    SelectStmt *select = makeNode(SelectStmt);
    RangeVar   *from = makeRangeVar(get_namespace_name(RelationGetNamespace(rel)),
                                    pstrdup(RelationGetRelationName(rel)), -1);
    ListCell   *lc;

    from->inh = false;
    foreach(lc, attnums)
        select->targetList = lappend(select->targetList,
                                     output_column(rel, (AttrNumber) lfirst_int(lc), location, cb));
    select->fromClause = list_make1(from);
    return select;
}

void
copy_to(ParseState *pstate, const CopyStmt *stmt, int stmt_location, int stmt_len,
        uint64 *processed, const HostCopyCallbacks *cb)
{
    Relation    rel = table_openrv(stmt->relation, AccessShareLock);
    CopyStmt    query_copy = *stmt;

    query_copy.relation = NULL;
    query_copy.attlist = NIL;
    query_copy.query = (Node *) copy_to_query(rel, copy_attnums(rel, stmt, cb),
                                               stmt->relation->location, cb);
    /* The lock stays until the query opens the table again. */
    table_close(rel, NoLock);
    DoCopy(pstate, &query_copy, stmt_location, stmt_len, processed);
}

/* ---------------------------------------------------------------------
 * COPY FROM: the checks DoCopy makes before it reads
 * --------------------------------------------------------------------- */

void
check_server_file_access(const CopyStmt *stmt)
{
    if (stmt->filename == NULL)
        return;
    if (stmt->is_program && !has_privs_of_role(GetUserId(), ROLE_PG_EXECUTE_SERVER_PROGRAM))
        ereport(ERROR,
                (errcode(ERRCODE_INSUFFICIENT_PRIVILEGE),
                 errmsg("must be superuser or have privileges of the pg_execute_server_program role to COPY to or from an external program"),
                 errhint("Anyone can COPY to stdout or from stdin. "
                         "psql's \\copy command also works for anyone.")));
    if (!stmt->is_program && !has_privs_of_role(GetUserId(), ROLE_PG_READ_SERVER_FILES))
        ereport(ERROR,
                (errcode(ERRCODE_INSUFFICIENT_PRIVILEGE),
                 errmsg("must be superuser or have privileges of the pg_read_server_files role to COPY from a file"),
                 errhint("Anyone can COPY to stdout or from stdin. "
                         "psql's \\copy command also works for anyone.")));
}

/* Stored generated columns are computed after the WHERE condition runs. */
void
refuse_generated_columns(Relation rel, Node *where)
{
    TupleDesc   tupdesc = RelationGetDescr(rel);
    Bitmapset  *attrs = NULL;
    bool        whole_row;

    pull_varattnos(where, 1, &attrs);
    whole_row = bms_is_member(0 - FirstLowInvalidHeapAttributeNumber, attrs);
    for (int i = 0; i < tupdesc->natts; i++)
    {
        Form_pg_attribute att = TupleDescAttr(tupdesc, i);

        if (att->attgenerated &&
            (whole_row || bms_is_member(att->attnum - FirstLowInvalidHeapAttributeNumber, attrs)))
            ereport(ERROR,
                    (errcode(ERRCODE_INVALID_COLUMN_REFERENCE),
                     errmsg("generated columns are not supported in COPY FROM WHERE conditions"),
                     errdetail("Column \"%s\" is a generated column.", NameStr(att->attname))));
    }
}

/* The WHERE condition, analysed and simplified into an implicit-AND list. */
Node *
copy_where_clause(ParseState *pstate, Relation rel, ParseNamespaceItem *nsitem, Node *raw)
{
    Node       *where;

    addNSItemToQuery(pstate, nsitem, false, true, true);
    where = transformExpr(pstate, raw, EXPR_KIND_COPY_WHERE);
    where = coerce_to_boolean(pstate, where, "WHERE");
    assign_expr_collations(pstate, where);
    refuse_generated_columns(rel, where);
    where = eval_const_expressions(NULL, where);
    where = (Node *) canonicalize_qual((Expr *) where, false);
    return (Node *) make_ands_implicit((Expr *) where);
}

/*
 * INSERT privilege on the columns read; no COPY FROM under row-level
 * security, other than the guards of a protected table.
 */
void
check_insert_permissions(ParseState *pstate, Relation rel, RangeTblEntry *rte, List *attnums)
{
    ListCell   *lc;

    rte->requiredPerms = ACL_INSERT;
    foreach(lc, attnums)
        rte->insertedCols = bms_add_member(rte->insertedCols,
                                           lfirst_int(lc) - FirstLowInvalidHeapAttributeNumber);
    ExecCheckRTPerms(pstate->p_rtable, true);
    if (check_enable_rls(rte->relid, InvalidOid, false) == RLS_ENABLED && !host_only_guards(rel))
        ereport(ERROR,
                (errcode(ERRCODE_FEATURE_NOT_SUPPORTED),
                 errmsg("COPY FROM not supported with row-level security"),
                 errhint("Use INSERT statements instead.")));
}

/*
 * The column list for BeginCopyFrom.  An empty one would mean every
 * column, so a COPY FROM that the hook left without columns is refused.
 */
List *
column_names(Relation rel, List *attnums)
{
    List       *names = NIL;
    ListCell   *lc;

    if (attnums == NIL)
        ereport(ERROR,
                (errcode(ERRCODE_FEATURE_NOT_SUPPORTED),
                 errmsg("COPY FROM table \"%s\" without any of its columns is not supported",
                        RelationGetRelationName(rel))));
    foreach(lc, attnums)
        names = lappend(names, makeString(column_name(rel, (AttrNumber) lfirst_int(lc))));
    return names;
}

/* ---------------------------------------------------------------------
 * COPY FROM: reading a row
 * --------------------------------------------------------------------- */

/* A CSV field after FORCE_NOT_NULL and FORCE_NULL, as NextCopyFrom applies them. */
char *
csv_forced_field(CopyFromState cstate, int m, char *field)
{
    if (field == NULL && cstate->opts.force_notnull_flags[m])
        return cstate->opts.null_print;
    if (field != NULL && cstate->opts.force_null_flags[m] &&
        strcmp(field, cstate->opts.null_print) == 0)
        return NULL;
    return field;
}

/* Converts one field of column `att`: the callbacks first, else the column's input function. */
void
convert_field(CopyFromState cstate, Form_pg_attribute att, char *field, TupleTableSlot *slot,
              const HostCopyCallbacks *cb)
{
    int         m = att->attnum - 1;

    if (cstate->opts.csv_mode)
        field = csv_forced_field(cstate, m, field);
    cstate->cur_attname = NameStr(att->attname);
    cstate->cur_attval = field;
    if (cb == NULL || !cb->field(cb->arg, att->attnum, field, &slot->tts_values[m]))
        slot->tts_values[m] = InputFunctionCall(&cstate->in_functions[m], field,
                                                cstate->typioparams[m], att->atttypmod);
    slot->tts_isnull[m] = (field == NULL);
    cstate->cur_attname = NULL;
    cstate->cur_attval = NULL;
}

/*
 * Reads the next line into `slot`, with the defaults of the columns not
 * read; false at the end of the input.  Runs in the per-row context.
 */
bool
read_row(CopyFromState cstate, ExprContext *econtext, TupleTableSlot *slot,
         const HostCopyCallbacks *cb)
{
    TupleDesc   tupdesc = RelationGetDescr(cstate->rel);
    int         expected = list_length(cstate->attnumlist);
    char      **fields;
    int         nfields;
    int         fieldno = 0;
    ListCell   *lc;

    ExecClearTuple(slot);
    if (!NextCopyFromRawFields(cstate, &fields, &nfields))
        return false;
    if (cb != NULL)
        cb->fields_read(cb->arg, expected, &nfields);
    if (nfields > expected)
        ereport(ERROR,
                (errcode(ERRCODE_BAD_COPY_FILE_FORMAT),
                 errmsg("extra data after last expected column")));

    memset(slot->tts_values, 0, tupdesc->natts * sizeof(Datum));
    memset(slot->tts_isnull, true, tupdesc->natts * sizeof(bool));
    foreach(lc, cstate->attnumlist)
    {
        Form_pg_attribute att = TupleDescAttr(tupdesc, lfirst_int(lc) - 1);

        if (fieldno >= nfields)
            ereport(ERROR,
                    (errcode(ERRCODE_BAD_COPY_FILE_FORMAT),
                     errmsg("missing data for column \"%s\"", NameStr(att->attname))));
        convert_field(cstate, att, fields[fieldno++], slot, cb);
    }
    for (int i = 0; i < cstate->num_defaults; i++)
        slot->tts_values[cstate->defmap[i]] =
            ExecEvalExpr(cstate->defexprs[i], econtext, &slot->tts_isnull[cstate->defmap[i]]);
    ExecStoreVirtualTuple(slot);
    slot->tts_tableOid = RelationGetRelid(cstate->rel);
    return true;
}

/* ---------------------------------------------------------------------
 * COPY FROM: inserting rows
 * --------------------------------------------------------------------- */

/*
 * Rows go to the table in batches, as CopyFrom sends them, unless a BEFORE
 * ROW trigger, a volatile default or a volatile WHERE condition could look
 * at the table while the COPY fills it.
 */
constexpr int COPY_BATCH_ROWS = 1000;
constexpr int COPY_BATCH_BYTES = 65535;

/* The executor state of the inserts, set up as CopyFrom sets it up. */
struct CopyInsert
{
    CopyFromState cstate;
    EState     *estate;
    ResultRelInfo *rri;
    ExprState  *where;
    TransitionCaptureState *transition_capture;
    BulkInsertState bistate;
    CommandId   cid;
    bool        batched;
    int         nrows;          /* rows waiting in slots[] */
    int         nbytes;         /* and the length of their lines */
    TupleTableSlot *slots[COPY_BATCH_ROWS];     /* slots[0] alone when not batched */
    uint64      linenos[COPY_BATCH_ROWS];
};

void
begin_insert(CopyInsert *ins, CopyFromState cstate)
{
    ins->cstate = cstate;
    ins->estate = CreateExecutorState();
    ExecInitRangeTable(ins->estate, cstate->range_table);
    ins->rri = makeNode(ResultRelInfo);
    ExecInitResultRelation(ins->estate, ins->rri, 1);
    CheckValidResultRel(ins->rri, CMD_INSERT);
    ExecOpenIndices(ins->rri, false);
    ins->where = cstate->whereClause != NULL
        ? ExecPrepareQual((List *) cstate->whereClause, ins->estate) : NULL;
    ins->bistate = GetBulkInsertState();
    ins->cid = GetCurrentCommandId(true);
    ins->batched = !(ins->rri->ri_TrigDesc && ins->rri->ri_TrigDesc->trig_insert_before_row) &&
        !cstate->volatile_defexprs && !contain_volatile_functions(cstate->whereClause);
    ins->nrows = 0;
    ins->nbytes = 0;
    memset(ins->slots, 0, sizeof(ins->slots));

    AfterTriggerBeginQuery();
    ins->transition_capture = MakeTransitionCaptureState(cstate->rel->trigdesc,
                                                         RelationGetRelid(cstate->rel),
                                                         CMD_INSERT);
    ExecBSInsertTriggers(ins->estate, ins->rri);
}

void
end_insert(CopyInsert *ins)
{
    FreeBulkInsertState(ins->bistate);
    ExecASInsertTriggers(ins->estate, ins->rri, ins->transition_capture);
    AfterTriggerEndQuery(ins->estate);
    ExecResetTupleTable(ins->estate->es_tupleTable, false);
    ExecCloseResultRelations(ins->estate);
    ExecCloseRangeTableRelations(ins->estate);
    FreeExecutorState(ins->estate);
}

/* The slot the next row is read into. */
TupleTableSlot *
next_slot(CopyInsert *ins)
{
    TupleTableSlot **slot = &ins->slots[ins->batched ? ins->nrows : 0];

    if (*slot == NULL)
        *slot = table_slot_create(ins->cstate->rel, &ins->estate->es_tupleTable);
    return *slot;
}

/*
 * What comes before a row is stored: BEFORE ROW triggers, generated
 * columns, constraints.  False when a trigger skipped the row.
 */
bool
prepare_row(CopyInsert *ins, TupleTableSlot *slot)
{
    ResultRelInfo *rri = ins->rri;
    Relation    rel = rri->ri_RelationDesc;

    if (rri->ri_TrigDesc && rri->ri_TrigDesc->trig_insert_before_row &&
        !ExecBRInsertTriggers(ins->estate, rri, slot))
        return false;
    if (rel->rd_att->constr && rel->rd_att->constr->has_generated_stored)
        ExecComputeStoredGenerated(rri, ins->estate, slot, CMD_INSERT);
    if (rel->rd_att->constr)
        ExecConstraints(rri, slot, ins->estate);
    /* A protected table may have been attached as a partition. */
    if (rel->rd_rel->relispartition)
        ExecPartitionCheck(rri, slot, ins->estate, true);
    return true;
}

/* What comes after a row is stored: its index entries and AFTER ROW triggers. */
void
finish_row(CopyInsert *ins, TupleTableSlot *slot)
{
    List       *recheck = NIL;

    if (ins->rri->ri_NumIndices > 0)
        recheck = ExecInsertIndexTuples(ins->rri, slot, ins->estate, false, false, NULL, NIL);
    ExecARInsertTriggers(ins->estate, ins->rri, slot, recheck, ins->transition_capture);
    list_free(recheck);
}

/*
 * Stores the waiting rows together.  An error in their index entries or
 * triggers names the row's line, but no longer has its text.
 */
void
flush_rows(CopyInsert *ins)
{
    CopyFromState cstate = ins->cstate;
    uint64      lineno = cstate->cur_lineno;
    bool        line_buf_valid = cstate->line_buf_valid;
    MemoryContext caller;

    if (ins->nrows == 0)
        return;
    /* table_multi_insert may leak into the current context. */
    caller = MemoryContextSwitchTo(GetPerTupleMemoryContext(ins->estate));
    table_multi_insert(cstate->rel, ins->slots, ins->nrows, ins->cid, 0, ins->bistate);
    MemoryContextSwitchTo(caller);

    cstate->line_buf_valid = false;
    for (int i = 0; i < ins->nrows; i++)
    {
        cstate->cur_lineno = ins->linenos[i];
        finish_row(ins, ins->slots[i]);
        ExecClearTuple(ins->slots[i]);
    }
    cstate->cur_lineno = lineno;
    cstate->line_buf_valid = line_buf_valid;
    ins->nrows = 0;
    ins->nbytes = 0;
}

/* Stores the row, or puts it with the waiting rows. */
void
store_row(CopyInsert *ins, TupleTableSlot *slot)
{
    if (!ins->batched)
    {
        table_tuple_insert(ins->cstate->rel, slot, ins->cid, 0, ins->bistate);
        finish_row(ins, slot);
        return;
    }
    /* The row outlives the per-row context it was read into. */
    ExecMaterializeSlot(slot);
    ins->linenos[ins->nrows++] = ins->cstate->cur_lineno;
    ins->nbytes += ins->cstate->line_buf.len;
    if (ins->nrows == COPY_BATCH_ROWS || ins->nbytes >= COPY_BATCH_BYTES)
        flush_rows(ins);
}

/*
 * Reads, checks and inserts every row; returns the number inserted.
 * Each row is read, filtered and checked in the per-row context, which is
 * reset for the next one; triggers run in the caller's context.  The
 * counts go to pg_stat_progress_copy as the server's COPY reports them.
 */
uint64
copy_rows(CopyFromState cstate, const HostCopyCallbacks *cb)
{
    CopyInsert *ins = (CopyInsert *) palloc(sizeof(CopyInsert));
    ErrorContextCallback errcallback;
    MemoryContext caller = CurrentMemoryContext;
    ExprContext *econtext;
    uint64      processed = 0;
    uint64      excluded = 0;

    begin_insert(ins, cstate);
    econtext = GetPerTupleExprContext(ins->estate);
    errcallback.callback = CopyFromErrorCallback;
    errcallback.arg = cstate;
    errcallback.previous = error_context_stack;
    error_context_stack = &errcallback;

    for (;;)
    {
        TupleTableSlot *slot = next_slot(ins);

        CHECK_FOR_INTERRUPTS();
        ResetPerTupleExprContext(ins->estate);
        MemoryContextSwitchTo(GetPerTupleMemoryContext(ins->estate));
        if (!read_row(cstate, econtext, slot, cb))
            break;
        econtext->ecxt_scantuple = slot;
        if (ins->where != NULL && !ExecQual(ins->where, econtext))
        {
            pgstat_progress_update_param(PROGRESS_COPY_TUPLES_EXCLUDED, ++excluded);
            continue;
        }
        if (cb != NULL)
            cb->row(cb->arg, slot->tts_values, slot->tts_isnull);
        MemoryContextSwitchTo(caller);
        if (!prepare_row(ins, slot))
            continue;
        store_row(ins, slot);
        pgstat_progress_update_param(PROGRESS_COPY_TUPLES_PROCESSED, ++processed);
    }
    MemoryContextSwitchTo(caller);
    flush_rows(ins);

    error_context_stack = errcallback.previous;
    end_insert(ins);
    pfree(ins);
    return processed;
}

void
copy_from(ParseState *pstate, const CopyStmt *stmt, uint64 *processed, const HostCopyCallbacks *cb)
{
    Relation    rel;
    ParseNamespaceItem *nsitem;
    Node       *where = NULL;
    List       *attnums;
    CopyFromState cstate;

    check_server_file_access(stmt);
    rel = table_openrv(stmt->relation, RowExclusiveLock);
    nsitem = addRangeTableEntryForRelation(pstate, rel, RowExclusiveLock, NULL, false, false);
    if (stmt->whereClause)
        where = copy_where_clause(pstate, rel, nsitem, stmt->whereClause);
    attnums = copy_attnums(rel, stmt, cb);
    check_insert_permissions(pstate, rel, nsitem->p_rte, attnums);
    if (XactReadOnly && !rel->rd_islocaltemp)
        PreventCommandIfReadOnly("COPY FROM");

    cstate = BeginCopyFrom(pstate, rel, where, stmt->filename, stmt->is_program, NULL,
                           column_names(rel, attnums), stmt->options);
    *processed = copy_rows(cstate, cb);
    EndCopyFrom(cstate);
    table_close(rel, NoLock);
}

} // namespace

void
host_do_copy(ParseState *pstate, const CopyStmt *stmt, int stmt_location, int stmt_len,
             uint64 *processed, const HostCopyCallbacks *callbacks)
{
    refuse_unsupported_options(pstate, stmt);
    if (stmt->is_from)
        copy_from(pstate, stmt, processed, callbacks);
    else
        copy_to(pstate, stmt, stmt_location, stmt_len, processed, callbacks);
}

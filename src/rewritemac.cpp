/*
 * rewritemac.cpp
 *    The label filter: rewrites every query over a table under an enabled
 *    policy so that it reads only the rows the session may read, changes
 *    only the rows it may write, and stores only labels it may give.
 *
 * MAC_Rewrite runs on the query tree after PostgreSQL's rewriter (views,
 * rules and the defaults of omitted INSERT columns are expanded), before
 * the planner.  For each protected table:
 *   - every reference to the table, the target of UPDATE and DELETE
 *     included, gets the read filter as a security qual: for each policy
 *     whose labels the session may not all read (it lacks READ and FULL),
 *     the policy column must be one of the session's readable label ids,
 *     an array computed once per execution.  Rows the session may not
 *     read are invisible to the statement, and a non-leakproof function
 *     the user wrote never sees them;
 *   - among the rows UPDATE and DELETE select, each must be writable:
 *     write_mediation runs in the statement's target list, which the
 *     executor evaluates only for rows that passed every qual and join,
 *     whatever the plan;
 *   - a policy column stored by INSERT or UPDATE passes through
 *     label_insert or label_update.
 * INSERT ... ON CONFLICT DO UPDATE refuses to change an existing row the
 * session may not both read and write.  The cascading actions of foreign
 * keys must be allowed to write every row they change.
 * MERGE on a protected table is refused.  SQL functions whose body reads a
 * protected table are kept from being inlined by the planner (which would
 * happen after this rewrite), so their queries are planned and filtered on
 * their own.
 */
#include "lavrel.h"

#include <algorithm>



namespace {

/* ---------------------------------------------------------------------
 * Building the filter expressions
 * --------------------------------------------------------------------- */

Const *
policy_const(Oid policy_id)
{
    return makeConst(OIDOID, -1, InvalidOid, sizeof(Oid),
                     ObjectIdGetDatum(policy_id), false, true);
}

FuncExpr *
mediation_call(Oid funcid, Oid rettype, List *args)
{
    return makeFuncExpr(funcid, rettype, args, InvalidOid, InvalidOid,
                        COERCE_EXPLICIT_CALL);
}

/* The policy's column of `relid` as a variable of range-table entry `varno`. */
Var *
policy_column_var(const MacTablePolicy *policy, Oid relid, int varno)
{
    return makeVar(varno, mac_policy_column_attnum(relid, policy), INT4OID, -1, InvalidOid, 0);
}

} // namespace

/*
 * The read filter of one policy, for a session that may not read every
 * label:
 *   lavrel.label_in(P, c, (SELECT lavrel.readable_labels(P)))
 * The sub-select becomes an initplan, evaluated once per execution: a
 * cached plan serves whatever labels the session holds when it runs, and
 * parallel workers receive the leader's array as a parameter.  label_in
 * answers a row with a binary search of the array; its support function
 * turns it into "c = ANY (array)" for an index on the policy column, and
 * estimates its selectivity.
 */
static Expr *
readable_label_filter(const MacTablePolicy *policy, Var *column)
{
    Query      *select = makeNode(Query);
    SubLink    *readable = makeNode(SubLink);
    Expr       *ids = (Expr *) mediation_call(ReadableLabelsProc, INT4ARRAYOID,
                                              list_make1(policy_const(policy->policy_id)));

    select->commandType = CMD_SELECT;
    select->querySource = QSRC_ORIGINAL;
    select->canSetTag = true;
    select->jointree = makeFromExpr(NIL, NULL);
    select->targetList = list_make1(makeTargetEntry(ids, 1, pstrdup("readable_labels"), false));

    readable->subLinkType = EXPR_SUBLINK;
    readable->subselect = (Node *) select;
    readable->location = -1;

    return (Expr *) mediation_call(LabelInProc, BOOLOID,
                                   list_make3(policy_const(policy->policy_id), column, readable));
}

/* ---------------------------------------------------------------------
 * label_in: the filter's test of one row
 * --------------------------------------------------------------------- */

namespace {

/*
 * What label_in keeps for its call site.  The ids are kept sorted only
 * when the array is an executor parameter (the filter's initplan), whose
 * value stays the same for the whole execution; any other array is
 * searched as it is.
 */
struct ReadableIds
{
    bool        from_param;
    Datum       array;          /* the array the ids were sorted from */
    int         count;
    int32      *ids;
};

/* The ids of an int4 array without nulls (the array's own storage). */
int32 *
array_ids(ArrayType *array, int *count)
{
    if (ARR_NDIM(array) > 1 || ARR_HASNULL(array) || ARR_ELEMTYPE(array) != INT4OID)
        ereport(ERROR,
                (errcode(ERRCODE_INVALID_PARAMETER_VALUE),
                 errmsg("label ids must be a one-dimensional integer array without nulls")));
    *count = ArrayGetNItems(ARR_NDIM(array), ARR_DIMS(array));
    return (int32 *) ARR_DATA_PTR(array);
}

bool
array_arg_is_param(FunctionCallInfo fcinfo)
{
    Node       *expr = fcinfo->flinfo->fn_expr;
    Node       *arg;

    if (expr == NULL || !IsA(expr, FuncExpr) || list_length(((FuncExpr *) expr)->args) != 3)
        return false;
    arg = (Node *) lthird(((FuncExpr *) expr)->args);
    return IsA(arg, Param) && ((Param *) arg)->paramkind == PARAM_EXEC;
}

ReadableIds *
call_site_state(FunctionCallInfo fcinfo)
{
    ReadableIds *state = (ReadableIds *) fcinfo->flinfo->fn_extra;

    if (state == NULL)
    {
        state = (ReadableIds *) MemoryContextAllocZero(fcinfo->flinfo->fn_mcxt,
                                                       sizeof(ReadableIds));
        state->from_param = array_arg_is_param(fcinfo);
        fcinfo->flinfo->fn_extra = state;
    }
    return state;
}

/* The ids of the parameter array, sorted once per value of the parameter. */
const ReadableIds *
sorted_readable_ids(FunctionCallInfo fcinfo, ReadableIds *state)
{
    Datum       array = PG_GETARG_DATUM(2);
    int32      *ids;

    if (state->ids != NULL && state->array == array)
        return state;
    if (state->ids != NULL)
        pfree(state->ids);
    ids = array_ids(DatumGetArrayTypeP(array), &state->count);
    state->ids = (int32 *) MemoryContextAlloc(fcinfo->flinfo->fn_mcxt,
                                              (state->count + 1) * sizeof(int32));
    memcpy(state->ids, ids, state->count * sizeof(int32));
    std::sort(state->ids, state->ids + state->count);
    state->array = array;
    return state;
}

} // namespace

/*
 * label_in(policy oid, label int4, ids int4[]) RETURNS bool: whether the
 * label is one of the ids.  The policy is for the planner's estimate.
 */
MAC_SQL_FUNCTION(LabelIn)
{
    int32       label = PG_GETARG_INT32(1);
    ReadableIds *state = call_site_state(fcinfo);
    const int32 *ids;
    int         count;

    if (state->from_param)
    {
        const ReadableIds *readable = sorted_readable_ids(fcinfo, state);

        PG_RETURN_BOOL(std::binary_search(readable->ids, readable->ids + readable->count, label));
    }
    ids = array_ids(PG_GETARG_ARRAYTYPE_P(2), &count);
    PG_RETURN_BOOL(std::find(ids, ids + count, label) != ids + count);
}

/*
 * The planner's support of label_in: the share of rows it keeps is taken
 * as the share of the labels the session sees that it reads (the table's
 * statistics are not consulted: they describe rows the session may not
 * read), and against a btree index on the label column it becomes the
 * index condition "label = ANY (ids)", which needs no recheck.
 */
MAC_SQL_FUNCTION(LabelInSupport)
{
    Node       *request = (Node *) PG_GETARG_POINTER(0);

    if (IsA(request, SupportRequestSelectivity))
    {
        SupportRequestSelectivity *req = (SupportRequestSelectivity *) request;
        Node       *policy = (Node *) linitial(req->args);

        if (req->is_join || !IsA(policy, Const))
            PG_RETURN_POINTER(NULL);
        req->selectivity = mac_session_readable_share(DatumGetObjectId(((Const *) policy)->constvalue));
        PG_RETURN_POINTER(req);
    }
    if (IsA(request, SupportRequestIndexCondition))
    {
        SupportRequestIndexCondition *req = (SupportRequestIndexCondition *) request;
        FuncExpr   *call = (FuncExpr *) req->node;
        ScalarArrayOpExpr *cond;

        if (req->indexarg != 1 || req->opfamily != INTEGER_BTREE_FAM_OID ||
            !IsA(call, FuncExpr) || list_length(call->args) != 3 ||
            contain_var_clause((Node *) lthird(call->args)))
            PG_RETURN_POINTER(NULL);
        cond = makeNode(ScalarArrayOpExpr);
        cond->opno = Int4EqualOperator;
        cond->opfuncid = F_INT4EQ;
        cond->useOr = true;
        cond->inputcollid = InvalidOid;
        cond->args = list_make2(copyObjectImpl(lsecond(call->args)), copyObjectImpl(lthird(call->args)));
        cond->location = -1;
        req->lossy = false;
        PG_RETURN_POINTER(list_make1(cond));
    }
    PG_RETURN_POINTER(NULL);
}

namespace {

/* Whether the table has an enabled policy. */
bool
has_enabled_policy(const MacProtectedTable *table)
{
    for (int i = 0; i < table->npolicies; i++)
    {
        if (table->policies[i].enabled)
            return true;
    }
    return false;
}

/* A mediation function of the policy column, as a qual. */
Expr *
mediation_qual(Oid funcid, const MacTablePolicy *policy, Oid relid, int varno)
{
    return (Expr *) mediation_call(funcid, BOOLOID,
                                   list_make2(policy_const(policy->policy_id),
                                              policy_column_var(policy, relid, varno)));
}

/*
 * The read filter of a table: one for every enabled policy on it whose
 * labels the session may not all read; NULL when there is none.  Variables
 * refer to `varno`.  Every enabled policy's column is looked up, so that a
 * table whose policy column is gone fails for every session, the one that
 * reads all labels too.  Whether the session reads all labels of a policy
 * shapes the plan: when that changes, the session's cached plans are made
 * again (see policy_session.cpp).
 */
Expr *
label_filter(Oid relid, int varno)
{
    const MacProtectedTable *table = mac_protected_table(relid);
    List       *quals = NIL;

    for (int i = 0; i < table->npolicies; i++)
    {
        const MacTablePolicy *policy = &table->policies[i];

        Var        *column;

        if (!policy->enabled)
            continue;
        column = policy_column_var(policy, relid, varno);
        if (!mac_session_reads_all(policy->policy_id))
            quals = lappend(quals, readable_label_filter(policy, column));
    }
    return quals != NIL ? make_ands_explicit(quals) : NULL;
}

/*
 * The row's label of the policy when the mediation function `funcid`
 * accepts it, else null.  write_mediation never answers false (it refuses
 * the whole statement), so with it this is the label once checked.
 */
Expr *
label_if(Oid funcid, const MacTablePolicy *policy, Oid relid, int varno)
{
    CaseWhen   *when = makeNode(CaseWhen);
    CaseExpr   *expr = makeNode(CaseExpr);

    when->expr = mediation_qual(funcid, policy, relid, varno);
    when->result = (Expr *) policy_column_var(policy, relid, varno);
    when->location = -1;
    expr->casetype = INT4OID;
    expr->casecollid = InvalidOid;
    expr->args = list_make1(when);
    expr->defresult = (Expr *) makeNullConst(INT4OID, -1, InvalidOid);
    expr->location = -1;
    return (Expr *) expr;
}

/*
 * Refuses a row unless the session may both read and write it: a row it
 * may not read goes to write_mediation as a null label, which only FULL
 * may write, and FULL reads every row.  NULL when no enabled policy
 * applies.
 */
Expr *
read_write_check(Oid relid, int varno)
{
    const MacProtectedTable *table = mac_protected_table(relid);
    List       *checks = NIL;

    for (int i = 0; i < table->npolicies; i++)
    {
        const MacTablePolicy *policy = &table->policies[i];
        Expr       *readable;

        if (!policy->enabled)
            continue;
        readable = label_if(ReadMediationProc, policy, relid, varno);
        checks = lappend(checks, mediation_call(WriteMediationProc, BOOLOID,
                                                list_make2(policy_const(policy->policy_id),
                                                           readable)));
    }
    return checks != NIL ? make_ands_explicit(checks) : NULL;
}

} // namespace

/*
 * Adds the read filter for the relation entry `rte` at index `rti` as a
 * security qual, as row-level security does: the planner evaluates it
 * before any condition of the user that is not leakproof, and keeps every
 * plan node above it (joins, FOR UPDATE, WHERE CURRENT OF) working on the
 * filtered rows.  INSERT has nothing to filter: its labels are checked by
 * the target-list rule.
 */
static void
MAC_Apply_Access_Rule(Query *query, RangeTblEntry *rte, int rti)
{
    bool        is_result = (rti == query->resultRelation);
    Expr       *filter;

    if (query->commandType == CMD_INSERT || !has_enabled_policy(mac_protected_table(rte->relid)))
        return;

    /*
     * The filter's shape depends on the session's privileges, so the query
     * is marked as row-level security marks its queries: its cached plan is
     * then made again when another role runs it.
     */
    query->hasRowSecurity = true;
    if (is_result && query->setOperations != NULL)
        ereport(ERROR,
                (errcode(ERRCODE_FEATURE_NOT_SUPPORTED),
                 errmsg("conditional UNION/INTERSECT/EXCEPT statements are not implemented")));
    filter = label_filter(rte->relid, rti);
    if (filter == NULL)
        return;
    query->hasSubLinks = true;
    rte->securityQuals = lcons(filter, rte->securityQuals);
}

namespace {

/* ---------------------------------------------------------------------
 * Labels stored by INSERT and UPDATE
 * --------------------------------------------------------------------- */

/*
 * Wraps every policy column of `tlist` (columns of the result relation)
 * in label_insert, or in label_update with the row's current label once
 * write_mediation accepted it.  Returns the policies whose columns it
 * wrapped.
 */
List *
check_stored_labels(Query *query, List *tlist, bool update)
{
    RangeTblEntry *target = rt_fetch(query->resultRelation, query->rtable);
    List       *checked = NIL;
    ListCell   *lc;

    foreach(lc, tlist)
    {
        TargetEntry *tle = (TargetEntry *) lfirst(lc);
        const MacTablePolicy *policy;
        List       *args;

        if (tle->resjunk)
            continue;
        policy = mac_table_column_policy(target->relid, tle->resno);
        if (policy == NULL || !policy->enabled)
            continue;

        args = list_make2(policy_const(policy->policy_id), tle->expr);
        if (update)
            args = list_insert_nth(args, 1, label_if(WriteMediationProc, policy, target->relid,
                                                     query->resultRelation));
        tle->expr = (Expr *) mediation_call(update ? LabelUpdateProc : LabelInsertProc,
                                            INT4OID, args);
        checked = lappend_oid(checked, policy->policy_id);
    }
    return checked;
}

/*
 * Every row an UPDATE or DELETE changes must be writable.  The check is a
 * junk column of the statement's target list: the executor computes it only
 * for rows that passed every qual and join condition, so the statement's
 * own conditions decide which rows are checked, on every plan.  Policies
 * whose column the UPDATE sets are already checked by label_update.
 */
void
check_written_rows(Query *query, List *checked)
{
    RangeTblEntry *target = rt_fetch(query->resultRelation, query->rtable);
    const MacProtectedTable *table = mac_protected_table(target->relid);

    for (int i = 0; i < table->npolicies; i++)
    {
        const MacTablePolicy *policy = &table->policies[i];
        Expr       *check;

        if (!policy->enabled || list_member_oid(checked, policy->policy_id))
            continue;
        check = mediation_qual(WriteMediationProc, policy, target->relid,
                               query->resultRelation);
        query->targetList = lappend(query->targetList,
                                    makeTargetEntry(check, list_length(query->targetList) + 1,
                                                    pstrdup("lavrel_write_check"), true));
        query->hasRowSecurity = true;
    }
}

/* The labels an UPDATE or DELETE stores, and the rows it changes. */
void
mediate_written_rows(Query *query)
{
    List       *checked = NIL;

    if (query->commandType == CMD_UPDATE)
        checked = check_stored_labels(query, query->targetList, true);
    check_written_rows(query, checked);
}

/*
 * INSERT ... ON CONFLICT DO UPDATE changes an existing row: it must be one
 * the session may read and write, checked before the statement's own
 * ON CONFLICT ... WHERE condition sees it, and a new label must pass the
 * update check.
 */
void
mediate_on_conflict_update(Query *query)
{
    OnConflictExpr *conflict = query->onConflict;
    RangeTblEntry *target = rt_fetch(query->resultRelation, query->rtable);
    Expr       *check;

    if (conflict == NULL || conflict->action != ONCONFLICT_UPDATE)
        return;
    check_stored_labels(query, conflict->onConflictSet, true);
    check = read_write_check(target->relid, query->resultRelation);
    if (check == NULL)
        return;
    conflict->onConflictWhere = make_and_qual((Node *) check, conflict->onConflictWhere);
    query->hasRowSecurity = true;
}

void
refuse_protected_merge(Query *query)
{
    ListCell   *lc;

    foreach(lc, query->rtable)
    {
        RangeTblEntry *rte = (RangeTblEntry *) lfirst(lc);

        if (rte->rtekind == RTE_RELATION && has_enabled_policy(mac_protected_table(rte->relid)))
            ereport(ERROR,
                    (errcode(ERRCODE_FEATURE_NOT_SUPPORTED),
                     errmsg("MERGE is not supported on table \"%s\", which is under a lavrel policy",
                            get_rel_name(rte->relid)),
                     errhint("Use INSERT, UPDATE and DELETE instead.")));
    }
}

} // namespace

/* ---------------------------------------------------------------------
 * The finished plan
 * --------------------------------------------------------------------- */

namespace {

/* Whether two expressions are the same column of the same scan, or the same parameter. */
bool
same_operand(const Node *a, const Node *b)
{
    if (IsA(a, Var) && IsA(b, Var))
        return ((const Var *) a)->varno == ((const Var *) b)->varno &&
            ((const Var *) a)->varattno == ((const Var *) b)->varattno;
    if (IsA(a, Param) && IsA(b, Param))
        return ((const Param *) a)->paramkind == ((const Param *) b)->paramkind &&
            ((const Param *) a)->paramid == ((const Param *) b)->paramid;
    return false;
}

/* Whether `qual` is "label = ANY (ids)" for label_in's label and ids. */
bool
is_index_form_of(const Node *qual, const FuncExpr *label_in)
{
    const ScalarArrayOpExpr *saop = (const ScalarArrayOpExpr *) qual;

    return IsA(qual, ScalarArrayOpExpr) && saop->opno == Int4EqualOperator && saop->useOr &&
        same_operand((Node *) linitial(saop->args), (Node *) lsecond(label_in->args)) &&
        same_operand((Node *) lsecond(saop->args), (Node *) lthird(label_in->args));
}

/*
 * The index conditions every row of a bitmap satisfies: those of its index
 * scan, or of the index scans an AND of bitmaps combines (not those under
 * an OR, whose other side may bring rows without them).
 */
List *
exact_bitmap_conditions(Plan *bitmap)
{
    List       *conds = NIL;
    ListCell   *lc;

    if (IsA(bitmap, BitmapIndexScan))
        return list_copy(((BitmapIndexScan *) bitmap)->indexqualorig);
    if (IsA(bitmap, BitmapAnd))
    {
        foreach(lc, ((BitmapAnd *) bitmap)->bitmapplans)
            conds = list_concat(conds, exact_bitmap_conditions((Plan *) lfirst(lc)));
    }
    return conds;
}

bool
implied_by_any(const Node *qual, List *conds)
{
    ListCell   *lc;

    if (!IsA(qual, FuncExpr) || ((const FuncExpr *) qual)->funcid != LabelInProc)
        return false;
    foreach(lc, conds)
    {
        if (is_index_form_of((Node *) lfirst(lc), (const FuncExpr *) qual))
            return true;
    }
    return false;
}

/*
 * A label_in filter of a bitmap heap scan whose bitmap an index condition
 * "label = ANY (ids)" built is tested again on every row, though only the
 * rows of lossy pages can fail it: it moves to the recheck condition,
 * which the scan tests on those rows alone.
 */
void
move_redundant_label_filters(BitmapHeapScan *scan)
{
    List       *conds = exact_bitmap_conditions(outerPlan(scan));
    List       *kept = NIL;
    ListCell   *lc;

    foreach(lc, scan->scan.plan.qual)
    {
        Node       *qual = (Node *) lfirst(lc);

        if (implied_by_any(qual, conds))
            scan->bitmapqualorig = lappend(scan->bitmapqualorig, qual);
        else
            kept = lappend(kept, qual);
    }
    scan->scan.plan.qual = kept;
    list_free(conds);
}

void
finish_plan_tree(Plan *plan)
{
    List       *children = NIL;
    ListCell   *lc;

    if (plan == NULL)
        return;
    if (IsA(plan, BitmapHeapScan))
        move_redundant_label_filters((BitmapHeapScan *) plan);
    else if (IsA(plan, Append))
        children = ((Append *) plan)->appendplans;
    else if (IsA(plan, MergeAppend))
        children = ((MergeAppend *) plan)->mergeplans;
    else if (IsA(plan, SubqueryScan))
        children = list_make1(((SubqueryScan *) plan)->subplan);
    else if (IsA(plan, CustomScan))
        children = ((CustomScan *) plan)->custom_plans;
    foreach(lc, children)
        finish_plan_tree((Plan *) lfirst(lc));
    finish_plan_tree(outerPlan(plan));
    finish_plan_tree(innerPlan(plan));
}

} // namespace

/* Every plan tree of a planned statement: the main one and its subplans. */
void
MacPlanFinished(PlannedStmt *plan)
{
    ListCell   *lc;

    finish_plan_tree(plan->planTree);
    foreach(lc, plan->subplans)
        finish_plan_tree((Plan *) lfirst(lc));
}

namespace {

/* ---------------------------------------------------------------------
 * The tree rewriter
 * --------------------------------------------------------------------- */

void rewrite_query(Query *query);

/*
 * Reaches the queries of sub-links and common table expressions; a filtered
 * one marks its `parent` as filtered too.
 */
bool
rewrite_nested_queries(Node *node, Query *parent)
{
    if (node == NULL)
        return false;
    if (IsA(node, Query))
    {
        rewrite_query((Query *) node);
        parent->hasRowSecurity |= ((Query *) node)->hasRowSecurity;
        return false;
    }
    return expression_tree_walker(node, MAC_WALKER(rewrite_nested_queries), parent);
}

void
rewrite_query(Query *query)
{
    ListCell   *lc;
    int         rti = 0;

    if (query->commandType == CMD_UTILITY)
        return;

    SyncMacSession();
    if (query->commandType == CMD_MERGE)
        refuse_protected_merge(query);

    foreach(lc, query->rtable)
    {
        RangeTblEntry *rte = (RangeTblEntry *) lfirst(lc);

        rti++;
        if (rte->rtekind == RTE_SUBQUERY)
        {
            rewrite_query(rte->subquery);
            query->hasRowSecurity |= rte->subquery->hasRowSecurity;
        }
        else if (rte->rtekind == RTE_RELATION)
            MAC_Apply_Access_Rule(query, rte, rti);
    }

    if (query->commandType == CMD_INSERT)
    {
        check_stored_labels(query, query->targetList, false);
        mediate_on_conflict_update(query);
    }
    else if (query->commandType == CMD_UPDATE || query->commandType == CMD_DELETE)
        mediate_written_rows(query);

    /* Queries nested in expressions sit in sub-links, which the query flags. */
    if (query->hasSubLinks || query->cteList != NIL)
        query_tree_walker(query, MAC_WALKER(rewrite_nested_queries), query,
                          QTW_IGNORE_RT_SUBQUERIES);
}

/* ---------------------------------------------------------------------
 * SQL functions the planner would inline
 * --------------------------------------------------------------------- */

bool reads_protected_table(Node *node, Oid *view);

/* Whether a relation is protected, or is a view whose query reads one. */
bool
reaches_protected_table(Oid relid)
{
    Relation    view;
    bool        reaches;

    if (mac_table_is_protected(relid))
        return true;
    if (get_rel_relkind(relid) != RELKIND_VIEW)
        return false;
    view = relation_open(relid, AccessShareLock);
    reaches = reads_protected_table((Node *) get_view_query(view), &relid);
    relation_close(view, AccessShareLock);
    return reaches;
}

/*
 * Whether an analysed query reads a protected table, through views too.
 * `view` is the view whose query this is, if any: its query names the
 * view itself (as OLD and NEW), which is not read.
 */
bool
reads_protected_table(Node *node, Oid *view)
{
    if (node == NULL)
        return false;
    if (IsA(node, Query))
        return query_tree_walker((Query *) node, MAC_WALKER(reads_protected_table),
                                 view, QTW_EXAMINE_RTES_BEFORE);
    if (IsA(node, RangeTblEntry))
    {
        RangeTblEntry *rte = (RangeTblEntry *) node;

        return rte->rtekind == RTE_RELATION && (view == NULL || rte->relid != *view) &&
            reaches_protected_table(rte->relid);
    }
    return expression_tree_walker(node, MAC_WALKER(reads_protected_table), view);
}

/*
 * Whether a raw parse tree names a relation that reaches a protected
 * table.  A name is resolved as the body would resolve it now; a name that
 * resolves to nothing (a CTE, say) reads no table, and a CTE that happens
 * to share a protected table's name only keeps the function out of line.
 */
bool
names_protected_table(Node *node, void *context)
{
    if (node == NULL)
        return false;
    if (IsA(node, RangeVar))
    {
        Oid         relid = RangeVarGetRelid((RangeVar *) node, NoLock, true);

        return OidIsValid(relid) && reaches_protected_table(relid);
    }
    return raw_expression_tree_walker(node, MAC_WALKER(names_protected_table), context);
}

/*
 * Whether the planner may inline the function (a SQL set-returning
 * function without SET, SECURITY DEFINER or volatility), which is the
 * only way a function's body joins the calling query's plan.
 */
bool
inlinable_sql_function(Form_pg_proc proc, HeapTuple tuple)
{
    return proc->prolang == SQLlanguageId && proc->proretset &&
        !proc->prosecdef && proc->provolatile != PROVOLATILE_VOLATILE &&
        heap_attisnull(tuple, Anum_pg_proc_proconfig, NULL);
}

/*
 * Whether the function's body can reach a protected table.  A body written
 * as a string is only parsed, not analysed: the relations it names do not
 * depend on its argument types, which a polymorphic function only learns
 * at the call.
 */
bool
body_reads_protected_table(HeapTuple tuple)
{
    bool        isnull;
    Datum       body = SysCacheGetAttr(PROCOID, tuple, Anum_pg_proc_prosqlbody, &isnull);
    ListCell   *lc;

    if (!isnull)
        return reads_protected_table((Node *) stringToNode(TextDatumGetCString(body)), NULL);

    body = SysCacheGetAttr(PROCOID, tuple, Anum_pg_proc_prosrc, &isnull);
    foreach(lc, pg_parse_query(TextDatumGetCString(body)))
    {
        if (names_protected_table(lfirst_node(RawStmt, lc)->stmt, NULL))
            return true;
    }
    return false;
}

/* Per-backend answers for inlinable functions, dropped on any invalidation. */
HTAB       *inline_decisions = NULL;
bool        inline_decisions_valid = false;

struct InlineDecision
{
    Oid         funcid;
    bool        keep_out_of_line;
};

void
forget_inline_decisions(Datum arg, int cacheid, uint32 hashvalue)
{
    (void) arg;
    (void) cacheid;
    (void) hashvalue;
    inline_decisions_valid = false;
}

void
forget_inline_decisions_rel(Datum arg, Oid relid)
{
    (void) arg;
    (void) relid;
    inline_decisions_valid = false;
}

HTAB *
inline_decision_table(void)
{
    if (inline_decisions == NULL)
    {
        CacheRegisterSyscacheCallback(PROCOID, forget_inline_decisions, (Datum) 0);
        CacheRegisterRelcacheCallback(forget_inline_decisions_rel, (Datum) 0);
    }
    else if (!inline_decisions_valid)
        hash_destroy(inline_decisions);
    else
        return inline_decisions;

    inline_decisions = mac_oid_hash_table("lavrel inline decisions", sizeof(InlineDecision),
                                          CacheMemoryContext);
    inline_decisions_valid = true;
    return inline_decisions;
}

} // namespace

/*
 * Whether the planner must keep the function (its pg_proc row) out of line:
 * an inlinable SQL function whose body reads a protected table.  Everything
 * else is answered from the row alone.
 */
bool
MacFunctionNotInlinable(HeapTuple proctup)
{
    Form_pg_proc proc = (Form_pg_proc) GETSTRUCT(proctup);
    Oid         funcid = proc->oid;
    bool        found;
    bool        answer;
    InlineDecision *decision;

    if (!inlinable_sql_function(proc, proctup) || !MAC_isenable())
        return false;

    decision = (InlineDecision *) hash_search(inline_decision_table(), &funcid, HASH_FIND, &found);
    if (found)
        return decision->keep_out_of_line;
    answer = body_reads_protected_table(proctup);
    if (inline_decisions_valid)
    {
        decision = (InlineDecision *) hash_search(inline_decisions, &funcid, HASH_ENTER, &found);
        decision->keep_out_of_line = answer;
    }
    return answer;
}

Query *
MAC_Rewrite(Query *query)
{
    if (!MAC_isenable())
        return query;
    rewrite_query(query);
    return query;
}

/*
 * The queries a foreign key's ON DELETE and ON UPDATE actions run on the
 * referencing table.  They see every row, as the key's checks do, but each
 * row they change or delete must be one the session may write: an action
 * neither skips such a row silently nor changes it.
 */
Query *
MacForeignKeyAction(Query *query)
{
    if ((query->commandType == CMD_UPDATE || query->commandType == CMD_DELETE) &&
        MAC_isenable())
        mediate_written_rows(query);
    return query;
}

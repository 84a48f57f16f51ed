/*
 * policy_utility_stmt_hooking.cpp
 *    lavrel's guards on what utility statements do to the objects access
 *    control depends on, and its place in the utility-statement path.
 *
 * While access control is in force:
 *   - no statement drops a table under a policy, its policy column, a role
 *     authorized under a policy, or lavrel's own catalogs (MacObjectDrop,
 *     asked by PostgreSQL for every object it drops), and DROP EXTENSION
 *     lavrel is refused while policies apply;
 *   - TRUNCATE empties a table under a policy only for a session with FULL
 *     under each of its policies (MacRelationTruncate);
 *   - a table under a policy takes part in no inheritance, partitions
 *     included (MacInheritanceLink);
 *   - a COPY of a protected table is run under the labels.
 *
 * policy_process_utility_hook sees every utility statement while access
 * control is in force, checks or runs it, and otherwise hands it on to the
 * hook that was installed before it.
 */
#include "lavrel.h"

/* ---------------------------------------------------------------------
 * DROP guards
 * --------------------------------------------------------------------- */

static pg_attribute_noreturn() void
object_in_use(const char *message)
{
    ereport(ERROR,
            (errcode(ERRCODE_OBJECT_IN_USE),
             errmsg_internal("%s", message)));
}

/*
 * lavrel itself may be dropped only with no table under a policy, no user
 * authorized, and access control switched off.
 */
static void
Policy_Check_Drop_Extension(DropStmt *stmt)
{
    ListCell   *lc;

    if (stmt->removeType != OBJECT_EXTENSION)
        return;
    foreach(lc, stmt->objects)
    {
        const char *name = strVal(lfirst(lc));
        const char *enabled;

        if (pg_strcasecmp(name, "lavrel") != 0)
            continue;
        (void) get_extension_oid(name, false);
        if (ObjectIsExistById(MacPolicyEnforcementRelationId, InvalidAttrNumber, InvalidOid))
            object_in_use("extension lavrel cannot be dropped, because mac policy has applied");
        if (ObjectIsExistById(MacPolicyUserRelationId, InvalidAttrNumber, InvalidOid))
            object_in_use("current user cannot be dropped, because mac policy has applied");
        enabled = GetConfigOption("lavrel.enable_mac", true, false);
        if (enabled != NULL && pg_strcasecmp(enabled, "on") == 0)
            ereport(ERROR,
                    (errcode(ERRCODE_OBJECT_IN_USE),
                     errmsg("set %s to off before drop extension", "lavrel.enable_mac")));
    }
}

/*
 * lavrel's own catalogs: every relation in the extension's schema, its
 * columns included.  DROP EXTENSION lavrel is refused above while access
 * control is on, so no drop of them is legitimate while the guards apply.
 */
static void
check_drop_catalog(Oid relid, int attnum)
{
    ObjectAddress address;

    if (get_rel_namespace(relid) != get_rel_namespace(MacPolicyRelationId))
        return;
    ObjectAddressSubSet(address, RelationRelationId, relid, attnum);
    ereport(ERROR,
            (errcode(ERRCODE_OBJECT_IN_USE),
             errmsg("cannot drop %s, because lavrel's access control depends on it",
                    getObjectDescription(&address, false)),
             errhint("lavrel's catalogs go only with DROP EXTENSION lavrel, once access control is off.")));
}

/* A table under a policy, or its policy column. */
static void
check_drop_relation(Oid relid, int attnum)
{
    char       *colname;

    check_drop_catalog(relid, attnum);
    if (attnum == 0)
    {
        if (ObjectIsExistById(MacPolicyEnforcementRelationId, mac_col::enf_relation_oid, relid))
            object_in_use("current table cannot be dropped, because mac policy has applied");
        return;
    }
    colname = get_attname(relid, (AttrNumber) attnum, true);
    if (colname != NULL)
        MacPolicyColumnChangeCheck(relid, colname);
}

/*
 * A role authorized under any policy.  PostgreSQL has made its own checks
 * on the role (CREATEROLE, special names, existence, the current and the
 * session user, superusers) before it asks.
 */
static void
check_drop_role(Oid roleid)
{
    if (ObjectIsExistById(MacPolicyUserRelationId, mac_col::user_oid, roleid))
        object_in_use("current user cannot be dropped, because mac policy has applied");
}

/*
 * Every object PostgreSQL drops, by whatever statement: a DROP of its own,
 * DROP ... CASCADE, DROP OWNED or ALTER TABLE ... DROP COLUMN.  A column
 * comes as its table's oid with the column number in subId.
 */
void
MacObjectDrop(Oid classId, Oid objectId, int subId)
{
    if (!MAC_isenable())
        return;
    switch (classId)
    {
        case RelationRelationId:
            check_drop_relation(objectId, subId);
            break;
        case AuthIdRelationId:
            check_drop_role(objectId);
            break;
        default:
            break;
    }
}

/* ---------------------------------------------------------------------
 * TRUNCATE
 * --------------------------------------------------------------------- */

/*
 * TRUNCATE removes every row, whatever its label: it is left only to a
 * session holding FULL under every policy applied to the table, disabled
 * ones included.  PostgreSQL asks for each table it is about to empty,
 * those reached through inheritance or CASCADE too.
 */
void
MacRelationTruncate(Oid relid)
{
    List       *policy_ids;
    ListCell   *lc;
    AclResult   acl;

    if (!MAC_isenable())
        return;
    policy_ids = get_policyids_on_rel(relid);
    if (policy_ids == NIL)
        return;
    /* PostgreSQL asks before it checks the privilege: its refusal comes first. */
    acl = pg_class_aclcheck(relid, GetUserId(), ACL_TRUNCATE);
    if (acl != ACLCHECK_OK)
        aclcheck_error(acl, OBJECT_TABLE, get_rel_name(relid));
    SyncMacSession(false);
    foreach(lc, policy_ids)
    {
        MacSessionLabel *session = mac_SessionLabelHTLookup(lfirst_oid(lc));

        if (session == NULL || (session->privs & MAC_PRIV_FULL) == 0)
            ereport(ERROR,
                    (errcode(ERRCODE_INSUFFICIENT_PRIVILEGE),
                     errmsg("permission denied to truncate table \"%s\"", get_rel_name(relid)),
                     errdetail("The table is under policy \"%s\", and the session does not hold "
                               "the FULL privilege under it.", get_policy_name(lfirst_oid(lc))),
                     errhint("TRUNCATE of a table under a policy needs FULL under each of its "
                             "policies; DELETE removes the rows the session may write.")));
    }
}

/* ---------------------------------------------------------------------
 * Inheritance
 * --------------------------------------------------------------------- */

static void
check_inheritance_member(Oid relid)
{
    if (MAC_IsPolicyProtectedRel(relid))
        ereport(ERROR,
                (errcode(ERRCODE_FEATURE_NOT_SUPPORTED),
                 errmsg("table \"%s\" is under a lavrel policy and cannot take part in inheritance",
                        get_rel_name(relid)),
                 errdetail("A child read on its own is not filtered by its parent's policy, "
                           "and a parent's scan does not filter its children by theirs.")));
}

/*
 * A new link between a parent and a child or partition, either of which
 * is under a policy.  PostgreSQL asks once it has made its own checks and
 * holds its locks on both tables, before the statement ends.
 */
void
MacInheritanceLink(Oid child, Oid parent)
{
    if (!MAC_isenable())
        return;
    check_inheritance_member(parent);
    check_inheritance_member(child);
}

/* ---------------------------------------------------------------------
 * COPY under the labels
 *
 * A COPY of a table with a policy runs through the layer's COPY
 * (host_do_copy) with the hooks below filled for its duration:
 *   COPY FROM  reads a label string in each policy column and stores its
 *              label id; every row, defaults included, then passes
 *              label_insert as a row of INSERT would;
 *   COPY TO    writes only the rows the session may read (the label
 *              filter does that), and with "label" prints label strings
 *              in the policy columns.
 * With "nolabel" the policy columns are left out: COPY TO does not write
 * them, COPY FROM does not read them (they get their default) and ignores
 * the trailing fields of a file written with them.
 * --------------------------------------------------------------------- */

enum class CopyLabelOption : int32
{
    none = 0,
    label = 1,                  /* "label": label strings in COPY TO */
    nolabel = 2                 /* "nolabel": no policy columns */
};

/* A label string already converted in this COPY, and its label id as text. */
struct LabelCacheEntry
{
    const char *text;           /* the key */
    char        label_id[12];
};

/*
 * The COPY being run.  A COPY run by one of its triggers saves this and
 * puts it back when it ends.
 */
struct MacCopyState
{
    CopyLabelOption label_option;
    MemoryContext context;      /* the statement's: lives as long as the COPY */
    Oid         relid;          /* the table the lists below describe, once filled */
    List       *policies;       /* enabled policies of the table */
    List       *columns;        /* their policy columns, in the same order */
    List       *label_caches;   /* per policy: label string -> LabelCacheEntry */
    FmgrInfo    label_insert;
};

static MacCopyState mac_copy;

static uint32
label_text_hash(const void *key, Size keysize)
{
    const char *text = *(const char *const *) key;

    (void) keysize;
    return hash_bytes((const unsigned char *) text, (int) strlen(text));
}

static int
label_text_match(const void *key1, const void *key2, Size keysize)
{
    (void) keysize;
    return strcmp(*(const char *const *) key1, *(const char *const *) key2);
}

static HTAB *
new_label_cache(void)
{
    HASHCTL     ctl;

    ctl.keysize = sizeof(const char *);
    ctl.entrysize = sizeof(LabelCacheEntry);
    ctl.hash = label_text_hash;
    ctl.match = label_text_match;
    ctl.hcxt = mac_copy.context;
    return hash_create("lavrel COPY labels", 64, &ctl,
                       HASH_ELEM | HASH_FUNCTION | HASH_COMPARE | HASH_CONTEXT);
}

/* Fills the lists for `relid` the first time a hook asks about it. */
static void
fill_policy_columns(Oid relid)
{
    MemoryContext caller;
    ListCell   *lc;

    if (mac_copy.relid == relid)
        return;
    caller = MemoryContextSwitchTo(mac_copy.context);
    mac_copy.policies = mac_copy.columns = mac_copy.label_caches = NIL;
    ExtractRelPolicies(relid, &mac_copy.policies, &mac_copy.columns, false);
    foreach(lc, mac_copy.columns)
    {
        if (lfirst_int(lc) == InvalidAttrNumber)
            ereport(ERROR,
                    (errcode(ERRCODE_UNDEFINED_COLUMN),
                     errmsg("policy column \"%s\" of relation \"%s\" doesnot exist",
                            get_policy_colname(list_nth_oid(mac_copy.policies,
                                                            foreach_current_index(lc))),
                            get_rel_name(relid))));
        mac_copy.label_caches = lappend(mac_copy.label_caches, new_label_cache());
    }
    fmgr_info(LabelInsertProc, &mac_copy.label_insert);
    mac_copy.relid = relid;
    MemoryContextSwitchTo(caller);
}

/* The place of `attnum` among the table's policy columns; -1 when it is none. */
static int
policy_column_index(Oid relid, AttrNumber attnum)
{
    ListCell   *lc;

    fill_policy_columns(relid);
    foreach(lc, mac_copy.columns)
    {
        if (lfirst_int(lc) == attnum)
            return foreach_current_index(lc);
    }
    return -1;
}

/*
 * The label id, as text, of a label string read for the policy column at
 * `index`.  Each distinct string goes to char_to_label once per COPY.  The
 * answer cannot go stale within it: char_to_label's shared lock on the
 * policy, held to the end of the transaction, keeps out every change to
 * the policy's levels, compartments and labels except alter_label and
 * drop_label by label string, which take only that shared lock themselves;
 * this COPY sees such a change as if it had come after it.
 */
static char *
ConvertCharToLabel(int index, const char *text)
{
    HTAB       *cache = (HTAB *) list_nth(mac_copy.label_caches, index);
    LabelCacheEntry *entry;

    if (text == NULL)
        RaiseNullArgException("label id");
    entry = (LabelCacheEntry *) hash_search(cache, &text, HASH_FIND, NULL);
    if (entry == NULL)
    {
        Oid         policy_id = list_nth_oid(mac_copy.policies, index);
        Datum       label_id = OidFunctionCall2(CharToLabelProc,
                                                CStringGetTextDatum(get_policy_name(policy_id)),
                                                CStringGetTextDatum(text));

        text = MemoryContextStrdup(mac_copy.context, text);
        entry = (LabelCacheEntry *) hash_search(cache, &text, HASH_ENTER, NULL);
        pg_ltoa(DatumGetInt32(label_id), entry->label_id);
    }
    return entry->label_id;
}

/* COPY FROM: a policy column's field is a label string; it becomes the label id. */
static void
MacCopyLabelField(Oid relid, AttrNumber attnum, char **field)
{
    int         index = policy_column_index(relid, attnum);

    if (index >= 0)
        *field = ConvertCharToLabel(index, *field);
}

/* COPY FROM: each policy column of the row, read or defaulted, through label_insert. */
static void
MacCopyCheckRow(Oid relid, Datum *values, bool *nulls)
{
    ListCell   *policy;
    ListCell   *column;

    fill_policy_columns(relid);
    forboth(policy, mac_copy.policies, column, mac_copy.columns)
    {
        int         m = lfirst_int(column) - 1;
        LOCAL_FCINFO(fcinfo, 2);

        InitFunctionCallInfoData(*fcinfo, &mac_copy.label_insert, 2, InvalidOid, NULL, NULL);
        fcinfo->args[0].value = ObjectIdGetDatum(lfirst_oid(policy));
        fcinfo->args[0].isnull = false;
        fcinfo->args[1].value = values[m];
        fcinfo->args[1].isnull = nulls[m];
        values[m] = FunctionCallInvoke(fcinfo);
        nulls[m] = fcinfo->isnull;
    }
}

/* With "nolabel", the policy columns leave the COPY's column list. */
static List *
MacCopyDeleteLabelColumns(Oid relid, List *attnums)
{
    ListCell   *lc;

    if (mac_copy.label_option != CopyLabelOption::nolabel)
        return attnums;
    fill_policy_columns(relid);
    foreach(lc, attnums)
    {
        if (list_member_int(mac_copy.columns, lfirst_int(lc)))
            attnums = foreach_delete_current(attnums, lc);
    }
    return attnums;
}

/* With "nolabel", fields beyond the expected ones (a file's labels) are ignored. */
static void
MacCopyIgnoreLabelFields(int16 expected, int *fields)
{
    if (mac_copy.label_option == CopyLabelOption::nolabel && expected > 0 && *fields > expected)
        *fields = expected;
}

/*
 * COPY TO with "label": a policy column is printed as
 * CASE WHEN column IS NOT NULL THEN label_to_char(column) END,
 * so that a row without a label keeps its null.
 */
static Node *
MacCopyLabelText(Oid relid, AttrNumber attnum, Node *column)
{
    List       *funcname;
    NullTest   *present;
    CaseWhen   *when;
    CaseExpr   *result;

    if (mac_copy.label_option != CopyLabelOption::label || policy_column_index(relid, attnum) < 0)
        return column;
    funcname = list_make2(makeString(get_namespace_name(get_func_namespace(LabelToCharProc))),
                          makeString(get_func_name(LabelToCharProc)));
    present = makeNode(NullTest);
    present->arg = (Expr *) copyObjectImpl(column);
    present->nulltesttype = IS_NOT_NULL;
    present->location = -1;
    when = makeNode(CaseWhen);
    when->expr = (Expr *) present;
    when->result = (Expr *) makeFuncCall(funcname, list_make1(column), COERCE_EXPLICIT_CALL, -1);
    when->location = -1;
    result = makeNode(CaseExpr);
    result->args = list_make1(when);
    result->location = -1;
    return (Node *) result;
}

static void
set_copy_hooks(bool on)
{
    MacProcessForNextCopyFrom_hook = on ? MacCopyLabelField : NULL;
    MacProcessForCopyFrom_hook = on ? MacCopyCheckRow : NULL;
    MacProcessDeleteMacColumn_hook = on ? MacCopyDeleteLabelColumns : NULL;
    MacProcessCheckTupleForCopyTo_hook = on ? MacCopyLabelText : NULL;
    MacProcessIgnoreMacField_hook = on ? MacCopyIgnoreLabelFields : NULL;
}

static bool
is_label_option(const DefElem *def)
{
    return pg_strcasecmp(def->defname, "label") == 0 || pg_strcasecmp(def->defname, "nolabel") == 0;
}

/* What the option found says; a value given with it is read as a boolean. */
static CopyLabelOption
label_option(DefElem *def)
{
    if (def == NULL || !defGetBoolean(def))
        return CopyLabelOption::none;
    return pg_strcasecmp(def->defname, "label") == 0 ? CopyLabelOption::label
                                                      : CopyLabelOption::nolabel;
}

/*
 * Whether the statement copies a table that has a policy.  If it does,
 * its "label" or "nolabel" option, which the server's COPY would refuse,
 * is taken out of the statement and kept for the run.
 */
static bool
is_policy_related_copy(CopyStmt *stmt)
{
    DefElem    *found = NULL;
    ListCell   *lc;
    Oid         relid;

    if (stmt->relation == NULL)
        return false;
    mac_copy = MacCopyState();
    relid = RangeVarGetRelid(stmt->relation, stmt->is_from ? RowExclusiveLock : AccessShareLock,
                             false);
    if (get_policyids_on_rel(relid) == NIL)
        return false;

    foreach(lc, stmt->options)
    {
        DefElem    *def = lfirst_node(DefElem, lc);

        if (!is_label_option(def))
            continue;
        if (found != NULL)
            ereport(ERROR,
                    (errcode(ERRCODE_SYNTAX_ERROR),
                     errmsg("conflicting or redundant options")));
        found = def;
    }
    mac_copy.label_option = label_option(found);
    stmt->options = list_delete_ptr(stmt->options, found);
    return true;
}

/*
 * Runs the COPY through the layer with the hooks filled.  The session's
 * labels are brought up to date first, as they are before any statement
 * is executed.  A COPY run by a trigger of another leaves the hooks
 * filled for the outer one.  MacNeedToCheckPermisition stays set: the
 * layer's COPY needs no guard lifted, and a trigger of the COPY must not
 * alter a policy column any more than its user may.
 */
static void
MacCopyRun(ParseState *pstate, const CopyStmt *stmt, int stmt_location, int stmt_len,
           uint64 *processed)
{
    bool        nested = MacProcessForCopyFrom_hook != NULL;

    mac_copy.context = CurrentMemoryContext;
    SyncMacSession(false);
    set_copy_hooks(true);
    PG_TRY();
    {
        host_do_copy(pstate, stmt, stmt_location, stmt_len, processed);
    }
    PG_FINALLY();
    {
        set_copy_hooks(nested);
    }
    PG_END_TRY();
}

/*
 * Runs the COPY under the labels if it copies a protected table, and then
 * reports "COPY n"; false when it does not, and the COPY is left to the
 * server.  The statement is copied first, as its options may change.
 */
static bool
policy_process_copy(PlannedStmt *pstmt, const char *queryString, QueryEnvironment *queryEnv,
                    QueryCompletion *qc)
{
    CopyStmt   *stmt = (CopyStmt *) copyObjectImpl(pstmt->utilityStmt);
    MacCopyState outer = mac_copy;
    ParseState *pstate = make_parsestate(NULL);
    uint64      processed = 0;
    bool        related = false;

    pstate->p_sourcetext = queryString;
    pstate->p_queryEnv = queryEnv;
    PG_TRY();
    {
        related = is_policy_related_copy(stmt);
        if (related)
            MacCopyRun(pstate, stmt, pstmt->stmt_location, pstmt->stmt_len, &processed);
    }
    PG_FINALLY();
    {
        mac_copy = outer;
    }
    PG_END_TRY();
    free_parsestate(pstate);
    if (related && qc != NULL)
        SetQueryCompletion(qc, CMDTAG_COPY, processed);
    return related;
}

/* ---------------------------------------------------------------------
 * The utility hook
 * --------------------------------------------------------------------- */

static void
call_next_utility(PlannedStmt *pstmt, const char *queryString, bool readOnlyTree,
                  ProcessUtilityContext context, ParamListInfo params,
                  QueryEnvironment *queryEnv, DestReceiver *dest, QueryCompletion *qc)
{
    if (policy_process_utility_hook_next)
        policy_process_utility_hook_next(pstmt, queryString, readOnlyTree, context,
                                         params, queryEnv, dest, qc);
    else
        standard_ProcessUtility(pstmt, queryString, readOnlyTree, context,
                                params, queryEnv, dest, qc);
}

void
policy_process_utility_hook(PlannedStmt *pstmt, const char *queryString, bool readOnlyTree,
                            ProcessUtilityContext context, ParamListInfo params,
                            QueryEnvironment *queryEnv, DestReceiver *dest, QueryCompletion *qc)
{
    Node       *stmt = pstmt->utilityStmt;

    if (MAC_isenable())
    {
        if (IsA(stmt, CopyStmt) && policy_process_copy(pstmt, queryString, queryEnv, qc))
            return;
        if (IsA(stmt, DropStmt))
            Policy_Check_Drop_Extension((DropStmt *) stmt);
    }
    call_next_utility(pstmt, queryString, readOnlyTree, context, params, queryEnv, dest, qc);
    if (IsA(stmt, DiscardStmt) && ((DiscardStmt *) stmt)->target == DISCARD_ALL)
        DiscardSessionLabels();
}

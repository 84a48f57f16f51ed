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
 * The layer asks policy_process_utility_hook about every utility statement
 * before PostgreSQL runs it; while access control is in force it checks
 * the statement, or runs a COPY itself through the layer's COPY with the
 * callbacks below.
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
        if (mac_table_is_protected(relid))
            object_in_use("current table cannot be dropped, because mac policy has applied");
        return;
    }
    colname = get_attname(relid, (AttrNumber) attnum, true);
    if (colname != NULL)
        mac_policy_column_change_check(relid, colname);
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
    const MacProtectedTable *table;
    AclResult   acl;

    if (!MAC_isenable() || !mac_table_is_protected(relid))
        return;
    /* PostgreSQL asks before it checks the privilege: its refusal comes first. */
    acl = pg_class_aclcheck(relid, GetUserId(), ACL_TRUNCATE);
    if (acl != ACLCHECK_OK)
        aclcheck_error(acl, OBJECT_TABLE, get_rel_name(relid));
    SyncMacSession();
    table = mac_protected_table(relid);
    for (int i = 0; i < table->npolicies; i++)
    {
        Oid         policy_id = table->policies[i].policy_id;
        MacSessionLabel *session = mac_SessionLabelHTLookup(policy_id);

        if (session == NULL || (session->privs & MAC_PRIV_FULL) == 0)
            ereport(ERROR,
                    (errcode(ERRCODE_INSUFFICIENT_PRIVILEGE),
                     errmsg("permission denied to truncate table \"%s\"", get_rel_name(relid)),
                     errdetail("The table is under policy \"%s\", and the session does not hold "
                               "the FULL privilege under it.", get_policy_name(policy_id)),
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
    if (mac_table_is_protected(relid))
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
 * (host_do_copy) with the callbacks below:
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

/* A label string already looked up in this COPY, and its label id. */
struct LabelCacheEntry
{
    const char *text;           /* the key */
    int32       label_id;
};

/* An enabled policy of the table, and what this COPY learnt of it. */
struct CopyPolicy
{
    Oid         policy_id;
    AttrNumber  attnum;         /* its policy column */
    bool        locked;         /* share-locked for the labels looked up */
    HTAB       *labels;         /* label string -> LabelCacheEntry */
};

/* One COPY being run; a COPY run by one of its triggers has its own. */
struct MacCopyState
{
    CopyLabelOption label_option;
    MemoryContext context;      /* the statement's: lives as long as the COPY */
    Oid         relid;
    int         npolicies;
    CopyPolicy *policies;
    FmgrInfo    label_insert;
};

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
new_label_cache(MemoryContext context)
{
    HASHCTL     ctl;

    ctl.keysize = sizeof(const char *);
    ctl.entrysize = sizeof(LabelCacheEntry);
    ctl.hash = label_text_hash;
    ctl.match = label_text_match;
    ctl.hcxt = context;
    return hash_create("lavrel COPY labels", 64, &ctl,
                       HASH_ELEM | HASH_FUNCTION | HASH_COMPARE | HASH_CONTEXT);
}

static const MacProtectedTable no_policies = {InvalidOid, 0, NULL};

/* The enabled policies of the table and their columns, the first time they are asked for. */
static void
fill_copy_policies(MacCopyState *copy)
{
    const MacProtectedTable *table;

    if (copy->policies != NULL)
        return;
    table = mac_protected_table(copy->relid);
    /* Only an ordinary table has policy columns to read or print. */
    if (get_rel_relkind(copy->relid) != RELKIND_RELATION)
        table = &no_policies;
    copy->policies = (CopyPolicy *) MemoryContextAllocZero(copy->context,
                                                           (table->npolicies + 1) * sizeof(CopyPolicy));
    copy->npolicies = 0;
    for (int i = 0; i < table->npolicies; i++)
    {
        const MacTablePolicy *policy = &table->policies[i];
        CopyPolicy *p;

        if (!policy->enabled)
            continue;
        p = &copy->policies[copy->npolicies++];
        p->policy_id = policy->policy_id;
        p->attnum = mac_policy_column_attnum(copy->relid, policy);
    }
    for (int i = 0; i < copy->npolicies; i++)
        copy->policies[i].labels = new_label_cache(copy->context);
    fmgr_info(LabelInsertProc, &copy->label_insert);
}

/* The enabled policy whose column is `attnum`; NULL when it is none. */
static CopyPolicy *
copy_policy_of_column(MacCopyState *copy, AttrNumber attnum)
{
    fill_copy_policies(copy);
    for (int i = 0; i < copy->npolicies; i++)
    {
        if (copy->policies[i].attnum == attnum)
            return &copy->policies[i];
    }
    return NULL;
}

/*
 * While a field is read as a label string: a field of digits, which no
 * label string is, is a label id, as COPY TO without "label" writes them,
 * and its error says how to write a file that COPY FROM can read.
 */
static void
label_id_field_hint(void *arg)
{
    const char *field = (const char *) arg;

    if (strspn(field, "0123456789") == strlen(field))
        errhint("The policy column takes label strings, not label ids: write the file "
                "with COPY ... TO ... (label).");
}

/*
 * The label id of a label string read for the policy's column.  Each
 * distinct string is looked up once per COPY.  The answer cannot go stale
 * within it: the shared lock on the policy, taken at its first lookup and
 * held to the end of the transaction, keeps out every change to the
 * policy's levels, compartments and labels except alter_label and
 * drop_label by label string, which take only that shared lock themselves;
 * this COPY sees such a change as if it had come after it.
 */
static int32
copy_label_id(MacCopyState *copy, CopyPolicy *policy, const char *text)
{
    LabelCacheEntry *entry;

    if (text == NULL)
        RaiseNullArgException("label id");
    entry = (LabelCacheEntry *) hash_search(policy->labels, &text, HASH_FIND, NULL);
    if (entry == NULL)
    {
        char       *str = mac_label_string_check(pstrdup(text));
        ErrorContextCallback hint = {error_context_stack, label_id_field_hint, str};

        if (!policy->locked)
            mac_lock_policy_id(policy->policy_id, AccessShareLock);
        policy->locked = true;
        error_context_stack = &hint;
        int32       label_id = mac_label_id_of_string(policy->policy_id, str);

        error_context_stack = hint.previous;
        text = MemoryContextStrdup(copy->context, text);
        entry = (LabelCacheEntry *) hash_search(policy->labels, &text, HASH_ENTER, NULL);
        entry->label_id = label_id;
    }
    return entry->label_id;
}

/* COPY FROM: a policy column's field is a label string; its label id is stored. */
static bool
copy_label_field(void *arg, AttrNumber attnum, char *field, Datum *value)
{
    MacCopyState *copy = (MacCopyState *) arg;
    CopyPolicy *policy = copy_policy_of_column(copy, attnum);

    if (policy == NULL)
        return false;
    *value = Int32GetDatum(copy_label_id(copy, policy, field));
    return true;
}

/* COPY FROM: each policy column of the row, read or defaulted, through label_insert. */
static void
copy_check_row(void *arg, Datum *values, bool *nulls)
{
    MacCopyState *copy = (MacCopyState *) arg;

    fill_copy_policies(copy);
    for (int i = 0; i < copy->npolicies; i++)
    {
        int         m = copy->policies[i].attnum - 1;
        LOCAL_FCINFO(fcinfo, 2);

        InitFunctionCallInfoData(*fcinfo, &copy->label_insert, 2, InvalidOid, NULL, NULL);
        fcinfo->args[0].value = ObjectIdGetDatum(copy->policies[i].policy_id);
        fcinfo->args[0].isnull = false;
        fcinfo->args[1].value = values[m];
        fcinfo->args[1].isnull = nulls[m];
        values[m] = FunctionCallInvoke(fcinfo);
        nulls[m] = fcinfo->isnull;
    }
}

/* With "nolabel", the policy columns leave the COPY's column list. */
static List *
copy_columns(void *arg, List *attnums)
{
    MacCopyState *copy = (MacCopyState *) arg;
    ListCell   *lc;

    if (copy->label_option != CopyLabelOption::nolabel)
        return attnums;
    foreach(lc, attnums)
    {
        if (copy_policy_of_column(copy, lfirst_int(lc)) != NULL)
            attnums = foreach_delete_current(attnums, lc);
    }
    return attnums;
}

/* With "nolabel", fields beyond the expected ones (a file's labels) are ignored. */
static void
copy_fields_read(void *arg, int expected, int *fields)
{
    MacCopyState *copy = (MacCopyState *) arg;

    if (copy->label_option == CopyLabelOption::nolabel && expected > 0 && *fields > expected)
        *fields = expected;
}

/*
 * COPY TO with "label": a policy column is printed as
 * CASE WHEN column IS NOT NULL THEN label_to_char(column) END,
 * so that a row without a label keeps its null.
 */
static Node *
copy_output(void *arg, AttrNumber attnum, Node *column)
{
    MacCopyState *copy = (MacCopyState *) arg;
    List       *funcname;
    NullTest   *present;
    CaseWhen   *when;
    CaseExpr   *result;

    if (copy->label_option != CopyLabelOption::label || copy_policy_of_column(copy, attnum) == NULL)
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
is_policy_related_copy(CopyStmt *stmt, MacCopyState *copy)
{
    DefElem    *found = NULL;
    ListCell   *lc;

    if (stmt->relation == NULL)
        return false;
    copy->relid = RangeVarGetRelid(stmt->relation,
                                   stmt->is_from ? RowExclusiveLock : AccessShareLock, false);
    if (!mac_table_is_protected(copy->relid))
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
    copy->label_option = label_option(found);
    stmt->options = list_delete_ptr(stmt->options, found);
    return true;
}

/*
 * Runs the COPY under the labels if it copies a protected table, and then
 * reports "COPY n"; false when it does not, and the COPY is left to the
 * server.  The statement is copied first, as its options may change.  The
 * session's labels are brought up to date first, as they are before any
 * statement is executed.  MacNeedToCheckPermisition stays set: the
 * layer's COPY needs no guard lifted, and a trigger of the COPY must not
 * alter a policy column any more than its user may.
 */
static bool
policy_process_copy(PlannedStmt *pstmt, const char *queryString, QueryEnvironment *queryEnv,
                    QueryCompletion *qc)
{
    CopyStmt   *stmt = (CopyStmt *) copyObjectImpl(pstmt->utilityStmt);
    MacCopyState copy = {};
    HostCopyCallbacks callbacks = {&copy, copy_columns, copy_output, copy_fields_read,
                                   copy_label_field, copy_check_row};
    ParseState *pstate;
    uint64      processed = 0;

    copy.context = CurrentMemoryContext;
    if (!is_policy_related_copy(stmt, &copy))
        return false;
    pstate = make_parsestate(NULL);
    pstate->p_sourcetext = queryString;
    pstate->p_queryEnv = queryEnv;
    SyncMacSession();
    host_do_copy(pstate, stmt, pstmt->stmt_location, pstmt->stmt_len, &processed, &callbacks);
    free_parsestate(pstate);
    if (qc != NULL)
        SetQueryCompletion(qc, CMDTAG_COPY, processed);
    return true;
}

/* ---------------------------------------------------------------------
 * The utility hook
 * --------------------------------------------------------------------- */

/*
 * Every utility statement, before PostgreSQL runs it: a COPY of a
 * protected table is run here under the labels (true: it is done), and
 * DROP EXTENSION lavrel is refused while policies apply.
 */
bool
policy_process_utility_hook(PlannedStmt *pstmt, const char *queryString,
                            QueryEnvironment *queryEnv, QueryCompletion *qc)
{
    Node       *stmt = pstmt->utilityStmt;

    /*
     * Only these two ask whether access control is on, so that a database
     * whose lavrel objects are older than the library (MAC_isenable raises)
     * can still be brought up to date with ALTER EXTENSION lavrel UPDATE.
     */
    if (!IsA(stmt, CopyStmt) && !IsA(stmt, DropStmt))
        return false;
    if (!MAC_isenable())
        return false;
    if (IsA(stmt, CopyStmt))
        return policy_process_copy(pstmt, queryString, queryEnv, qc);
    if (IsA(stmt, DropStmt))
        Policy_Check_Drop_Extension((DropStmt *) stmt);
    return false;
}

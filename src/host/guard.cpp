/*
 * guard.cpp
 *    Keeps protected tables closed on a server that runs without lavrel.
 *
 * Stock PostgreSQL knows nothing of lavrel's policies: started without the
 * library (taken out of shared_preload_libraries, or its file missing), it
 * would serve every row of a protected table to everyone.  So each table
 * under a lavrel policy also gets PostgreSQL's own row-level security,
 * enabled and forced, with one guard policy per lavrel policy:
 *
 *     CREATE POLICY lavrel_<policy> ON t USING (lavrel.table_guard(c))
 *                                  WITH CHECK (lavrel.table_guard(c))
 *
 * where c is the policy column.  Without the library every statement that
 * reads or writes the table must call lavrel.table_guard, whose library
 * refuses to load, or, loaded late, refuses to run; the statement fails
 * before it reads a row.  The guard also makes the policy column a
 * dependency of the table's row security, and the table's statistics and
 * the values in its constraint errors are hidden from its users, as
 * PostgreSQL hides them for every table under row-level security.
 *
 * With the library loaded, the guards are taken out of every query before
 * it is planned (the module's own filter does the work), so they cost
 * nothing per row.  Policies of row-level security that the table's owner
 * defined keep their meaning: a permissive guard is dropped from the OR of
 * the permissive policies, restrictive ones stay.
 */
#include "host/host.h"

static const char *const guard_schema = "lavrel";
static const char *const guard_function = "table_guard";

/*
 * The guard's own body.  Where the library is not preloaded it never runs:
 * loading the library fails first.  Where it is, the guards are taken out
 * of every query before it is planned; reaching one means a query escaped
 * that, and it is refused.
 */
extern "C" {
PG_FUNCTION_INFO_V1(lavrel_table_guard);
PGDLLEXPORT Datum lavrel_table_guard(PG_FUNCTION_ARGS);
}

Datum
lavrel_table_guard(PG_FUNCTION_ARGS)
{
    ereport(ERROR,
            (errcode(ERRCODE_INSUFFICIENT_PRIVILEGE),
             errmsg("a table under a lavrel policy was reached without lavrel's filter")));
    PG_RETURN_BOOL(false);
}

/*
 * The guard function's oid, InvalidOid where lavrel is not installed.  It
 * is looked up once and kept until pg_proc changes (CREATE or DROP
 * EXTENSION among others): every query under row-level security asks.
 */
static bool guard_known = false;
static Oid  guard_oid = InvalidOid;

static void
forget_guard_proc(Datum arg, int cacheid, uint32 hashvalue)
{
    guard_known = false;
}

static Oid
guard_proc(void)
{
    Oid         argtypes[1] = {INT4OID};

    if (guard_known)
        return guard_oid;
    guard_oid = InvalidOid;
    if (OidIsValid(get_namespace_oid(guard_schema, true)))
        guard_oid = LookupFuncName(list_make2(makeString(pstrdup(guard_schema)),
                                              makeString(pstrdup(guard_function))),
                                   1, argtypes, true);
    guard_known = true;
    return guard_oid;
}

void
host_watch_table_guard(void)
{
    CacheRegisterSyscacheCallback(PROCOID, forget_guard_proc, (Datum) 0);
}

static bool
is_guard_call(Node *node, Oid guard)
{
    return node != NULL && IsA(node, FuncExpr) && ((FuncExpr *) node)->funcid == guard;
}

/*
 * A qual of row-level security without the guards: NULL when nothing is
 * left.  The permissive policies of a table come as one OR; a guard alone
 * is the whole qual.
 */
static Node *
qual_without_guards(Node *qual, Oid guard)
{
    List       *kept = NIL;
    ListCell   *lc;

    if (is_guard_call(qual, guard))
        return NULL;
    if (!is_orclause(qual))
        return qual;
    foreach(lc, ((BoolExpr *) qual)->args)
        if (!is_guard_call((Node *) lfirst(lc), guard))
            kept = lappend(kept, lfirst(lc));
    if (kept == NIL)
        return NULL;
    return list_length(kept) == 1 ? (Node *) linitial(kept) : (Node *) make_orclause(kept);
}

static List *
quals_without_guards(List *quals, Oid guard)
{
    List       *kept = NIL;
    ListCell   *lc;

    foreach(lc, quals)
    {
        Node       *qual = qual_without_guards((Node *) lfirst(lc), guard);

        if (qual != NULL)
            kept = lappend(kept, qual);
    }
    return kept;
}

static List *
checks_without_guards(List *checks, Oid guard)
{
    List       *kept = NIL;
    ListCell   *lc;

    foreach(lc, checks)
    {
        WithCheckOption *wco = lfirst_node(WithCheckOption, lc);

        wco->qual = qual_without_guards(wco->qual, guard);
        if (wco->qual != NULL)
            kept = lappend(kept, wco);
    }
    return kept;
}

static bool strip_guards_walker(Node *node, void *context);

/* Takes the guards out of one query level and every query below it. */
static void
strip_guards_in_query(Query *query, Oid guard)
{
    ListCell   *lc;

    foreach(lc, query->rtable)
    {
        RangeTblEntry *rte = (RangeTblEntry *) lfirst(lc);

        if (rte->rtekind == RTE_RELATION && rte->securityQuals != NIL)
            rte->securityQuals = quals_without_guards(rte->securityQuals, guard);
    }
    query->withCheckOptions = checks_without_guards(query->withCheckOptions, guard);
    query_tree_walker(query, MAC_WALKER(strip_guards_walker), &guard, 0);
}

static bool
strip_guards_walker(Node *node, void *context)
{
    if (node == NULL)
        return false;
    if (IsA(node, Query))
    {
        strip_guards_in_query((Query *) node, *(Oid *) context);
        return false;
    }
    return expression_tree_walker(node, MAC_WALKER(strip_guards_walker), context);
}

void
host_strip_table_guards(Query *query)
{
    Oid         guard;

    /* The rewriter marks every query that row-level security reached. */
    if (!query->hasRowSecurity)
        return;
    guard = guard_proc();
    if (OidIsValid(guard))
        strip_guards_in_query(query, guard);
}

bool
host_only_guards(Relation rel)
{
    Oid         guard;
    ListCell   *lc;

    if (!rel->rd_rel->relrowsecurity || rel->rd_rsdesc == NULL ||
        rel->rd_rsdesc->policies == NIL)
        return false;
    guard = guard_proc();
    foreach(lc, rel->rd_rsdesc->policies)
    {
        RowSecurityPolicy *policy = (RowSecurityPolicy *) lfirst(lc);

        if (!is_guard_call((Node *) policy->qual, guard))
            return false;
    }
    return true;
}

/* ---------------------------------------------------------------------
 * Keeping the guards in place
 * --------------------------------------------------------------------- */

/* The policy of row-level security a DROP, ALTER or RENAME POLICY names. */
static void
named_policy(Node *stmt, RangeVar **table, const char **name)
{
    if (IsA(stmt, DropStmt) && ((DropStmt *) stmt)->removeType == OBJECT_POLICY)
    {
        List       *object = (List *) linitial(((DropStmt *) stmt)->objects);

        *table = makeRangeVarFromNameList(list_truncate(list_copy(object),
                                                        list_length(object) - 1));
        *name = strVal(llast(object));
    }
    else if (IsA(stmt, AlterPolicyStmt))
    {
        *table = ((AlterPolicyStmt *) stmt)->table;
        *name = ((AlterPolicyStmt *) stmt)->policy_name;
    }
    else if (IsA(stmt, RenameStmt) && ((RenameStmt *) stmt)->renameType == OBJECT_POLICY)
    {
        *table = ((RenameStmt *) stmt)->relation;
        *name = ((RenameStmt *) stmt)->subname;
    }
}

/* Whether `match` holds for a policy of row-level security of table `relid`. */
template <typename Match>
static bool
any_policy_of(Oid relid, Match match)
{
    return host_any_catalog_row(PolicyRelationId, PolicyPolrelidPolnameIndexId,
                                Anum_pg_policy_polrelid, relid, NULL, match);
}

/*
 * Whether a guard is among the policies of row-level security of table
 * `relid`; only the policy named `name` is looked at when a name is given.
 */
static bool
has_guard(Oid relid, const char *name)
{
    Oid         guard = guard_proc();

    return any_policy_of(relid, [=](HeapTuple tuple, TupleDesc desc) {
        bool        isnull;
        Datum       qual = heap_getattr(tuple, Anum_pg_policy_polqual, desc, &isnull);

        return (name == NULL || namestrcmp(&((Form_pg_policy) GETSTRUCT(tuple))->polname, name) == 0) &&
            !isnull && is_guard_call((Node *) stringToNode(TextDatumGetCString(qual)), guard);
    });
}

/* An ALTER TABLE that switches row-level security off, or unforces it. */
static bool
releases_row_security(Node *stmt)
{
    ListCell   *lc;

    if (!IsA(stmt, AlterTableStmt))
        return false;
    foreach(lc, ((AlterTableStmt *) stmt)->cmds)
    {
        AlterTableType subtype = lfirst_node(AlterTableCmd, lc)->subtype;

        if (subtype == AT_DisableRowSecurity || subtype == AT_NoForceRowSecurity)
            return true;
    }
    return false;
}

/*
 * The guards, and the row-level security they work through, stay as they
 * are while the table is under a lavrel policy: for everyone, whether
 * access control is on or off.  The module takes them away with the policy.
 */
void
host_check_guard_change(Node *stmt)
{
    RangeVar   *table = NULL;
    const char *name = NULL;
    Oid         relid;

    if (releases_row_security(stmt))
    {
        relid = RangeVarGetRelid(((AlterTableStmt *) stmt)->relation, NoLock, true);
        if (OidIsValid(relid) && has_guard(relid, NULL))
            ereport(ERROR,
                    (errcode(ERRCODE_INSUFFICIENT_PRIVILEGE),
                     errmsg("row-level security of table \"%s\" is kept on while a lavrel policy applies",
                            get_rel_name(relid)),
                     errhint("Remove the table's policies with lavrel.remove_table_policy first.")));
        return;
    }
    named_policy(stmt, &table, &name);
    if (table == NULL)
        return;
    relid = RangeVarGetRelid(table, NoLock, true);
    if (OidIsValid(relid) && has_guard(relid, name))
        ereport(ERROR,
                (errcode(ERRCODE_INSUFFICIENT_PRIVILEGE),
                 errmsg("policy \"%s\" of table \"%s\" guards a table under a lavrel policy",
                        name, get_rel_name(relid)),
                 errhint("Remove the table's policies with lavrel.remove_table_policy.")));
}

/* ---------------------------------------------------------------------
 * Placing and taking away the guards
 * --------------------------------------------------------------------- */

/* The guard policy of lavrel policy `policy_name`, cut as a name is. */
static char *
guard_name(const char *policy_name)
{
    char       *name = psprintf("lavrel_%s", policy_name);

    truncate_identifier(name, strlen(name), false);
    return name;
}

static void
set_row_security(Oid relid, AlterTableType enable, AlterTableType force)
{
    AlterTableCmd *on = makeNode(AlterTableCmd);
    AlterTableCmd *forced = makeNode(AlterTableCmd);

    on->subtype = enable;
    forced->subtype = force;
    AlterTableInternal(relid, list_make2(on, forced), false);
}

/* lavrel.table_guard(column), as a raw expression. */
static Node *
guard_call(const char *column)
{
    ColumnRef  *ref = makeNode(ColumnRef);

    ref->fields = list_make1(makeString(pstrdup(column)));
    ref->location = -1;
    return (Node *) makeFuncCall(list_make2(makeString(pstrdup(guard_schema)),
                                            makeString(pstrdup(guard_function))),
                                 list_make1(ref), COERCE_EXPLICIT_CALL, -1);
}

void
host_add_table_guard(Oid relid, const char *policy_name, const char *column)
{
    CreatePolicyStmt *stmt = makeNode(CreatePolicyStmt);
    RoleSpec   *everyone = makeNode(RoleSpec);

    everyone->roletype = ROLESPEC_PUBLIC;
    everyone->location = -1;
    stmt->policy_name = guard_name(policy_name);
    stmt->table = makeRangeVar(get_namespace_name(get_rel_namespace(relid)),
                               get_rel_name(relid), -1);
    stmt->cmd_name = pstrdup("all");
    stmt->permissive = true;
    stmt->roles = list_make1(everyone);
    stmt->qual = guard_call(column);
    stmt->with_check = guard_call(column);
    CreatePolicy(stmt);
    set_row_security(relid, AT_EnableRowSecurity, AT_ForceRowSecurity);
    CommandCounterIncrement();
}

/*
 * Takes the guard away; row-level security goes off with the last policy
 * of the table, unless the owner defined policies of their own.
 */
void
host_remove_table_guard(Oid relid, const char *policy_name)
{
    ObjectAddress guard;

    ObjectAddressSet(guard, PolicyRelationId,
                     get_relation_policy_oid(relid, guard_name(policy_name), true));
    if (OidIsValid(guard.objectId))
    {
        performDeletion(&guard, DROP_RESTRICT, PERFORM_DELETION_INTERNAL);
        CommandCounterIncrement();
    }
    if (!any_policy_of(relid, [](HeapTuple, TupleDesc) { return true; }))
        set_row_security(relid, AT_DisableRowSecurity, AT_NoForceRowSecurity);
    CommandCounterIncrement();
}

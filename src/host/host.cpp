/*
 * host.cpp
 *    Connects the host hooks lavrel is written against to the hook points
 *    of stock PostgreSQL 15.  This file owns every stock hook the module
 *    uses; the module itself only fills the host hooks declared in host.h.
 *
 *   host hook                         stock PostgreSQL 15
 *   SyncMacSession_hook               ExecutorStart_hook: every statement
 *                                     refreshes the session before it runs
 *   MAC_Rewrite_hook                  planner_hook, after PostgreSQL's
 *                                     rewriter: every planned query (views,
 *                                     SQL and PL/pgSQL functions, prepared
 *                                     statements, cursors, CREATE TABLE AS,
 *                                     COPY (query), EXPLAIN); not the queries
 *                                     of foreign keys
 *   MacPlanFinished_hook              planner_hook: the finished plan of each
 *                                     query MAC_Rewrite_hook saw
 *   MacForeignKeyAction_hook          planner_hook, for the queries of
 *                                     foreign keys (checks and actions)
 *   MacFunctionNotInlinable_hook      needs_fmgr_hook: the planner does not
 *                                     inline a function the hook claims
 *   ObjMediation_hook                 ExecutorCheckPerms_hook for every view
 *                                     a statement uses (nested ones too),
 *                                     needs_fmgr_hook for every function and
 *                                     procedure looked up for a call
 *   MacRelationWritten_hook           ExecutorCheckPerms_hook for every table
 *                                     a statement may write (INSERT, UPDATE,
 *                                     DELETE, MERGE, COPY FROM)
 *   MacProcessUtility_hook            ProcessUtility_hook: every utility
 *                                     statement, before anything else
 *   MacSessionDiscarded_hook          ProcessUtility_hook, after DISCARD ALL
 *   MacCheckAlterTable_hook           ProcessUtility_hook: each subcommand of
 *   MacCheckRenameColumn_hook         ALTER TABLE, and RENAME COLUMN, unless
 *                                     MacNeedCheckPermisition_hook says no
 *   MacCreateExtensionProcess_hook    ProcessUtility_hook, around CREATE
 *                                     EXTENSION and ALTER EXTENSION UPDATE
 *   MacHiddenPolicyColumn_hook        post_parse_analyze_hook: star-expanded
 *                                     columns it calls hidden are taken out
 *                                     of the analysed query (star_columns.cpp)
 *   MacObjectDrop_hook                object_access_hook, OAT_DROP: every
 *                                     object and column dropped, by DROP of
 *                                     its own or through dependencies (DROP
 *                                     ... CASCADE, DROP OWNED, ALTER TABLE
 *                                     DROP COLUMN), and every role of DROP
 *                                     ROLE after PostgreSQL's own checks on
 *                                     it; unless MacNeedCheckPermisition_hook
 *                                     says no
 *   MacRelationTruncate_hook          object_access_hook, OAT_TRUNCATE: every
 *                                     table TRUNCATE empties (named, reached
 *                                     through inheritance or CASCADE)
 *   MacInheritanceLink_hook           object_access_hook, OAT_POST_ALTER of
 *                                     pg_inherits: every new parent-child
 *                                     link (CREATE TABLE ... INHERITS or
 *                                     PARTITION OF, ALTER TABLE ... INHERIT
 *                                     or ATTACH PARTITION), once PostgreSQL
 *                                     holds the locks and stored the link
 */
#include "host/host.h"

extern "C" {
MacNeedCheckPermisition_hook_type MacNeedCheckPermisition_hook = NULL;
MacCreateExtensionProcess_hook_type MacCreateExtensionProcess_hook = NULL;
SyncMacSession_hook_type SyncMacSession_hook = NULL;
MAC_Rewrite_hook_type MAC_Rewrite_hook = NULL;
MacPlanFinished_hook_type MacPlanFinished_hook = NULL;
MacForeignKeyAction_hook_type MacForeignKeyAction_hook = NULL;
MacFunctionNotInlinable_hook_type MacFunctionNotInlinable_hook = NULL;
MacProcessUtility_hook_type MacProcessUtility_hook = NULL;
MacSessionDiscarded_hook_type MacSessionDiscarded_hook = NULL;
MacCheckAlterTable_hook_type MacCheckAlterTable_hook = NULL;
MacCheckRenameColumn_hook_type MacCheckRenameColumn_hook = NULL;
ObjMediation_hook_type ObjMediation_hook = NULL;
MacRelationWritten_hook_type MacRelationWritten_hook = NULL;
MacObjectDrop_hook_type MacObjectDrop_hook = NULL;
MacRelationTruncate_hook_type MacRelationTruncate_hook = NULL;
MacInheritanceLink_hook_type MacInheritanceLink_hook = NULL;
}

static planner_hook_type prev_planner = NULL;
static needs_fmgr_hook_type prev_needs_fmgr = NULL;
static ExecutorStart_hook_type prev_executor_start = NULL;
static ExecutorCheckPerms_hook_type prev_check_perms = NULL;
static ProcessUtility_hook_type prev_process_utility = NULL;
static object_access_hook_type prev_object_access = NULL;

void
host_require_preload(void)
{
    if (!process_shared_preload_libraries_in_progress)
        ereport(ERROR,
                (errcode(ERRCODE_OBJECT_NOT_IN_PREREQUISITE_STATE),
                 errmsg("lavrel must be loaded via shared_preload_libraries"),
                 errhint("Add lavrel to shared_preload_libraries in postgresql.conf "
                         "and restart the server.")));
}

/* ---------------------------------------------------------------------
 * Planning: the label filter
 * --------------------------------------------------------------------- */

static PlannedStmt *
host_planner(Query *parse, const char *query_string, int cursorOptions,
             ParamListInfo boundParams)
{
    PlannedStmt *result;

    /* The guards of protected tables are for servers without lavrel. */
    host_strip_table_guards(parse);

    /*
     * Foreign keys run their own queries, which must see every row (as
     * under row-level security), or labels would let a referenced row be
     * deleted or a dangling reference be created.
     */
    bool        foreign_key_action = InNoForceRLSOperation();

    if (!foreign_key_action && MAC_Rewrite_hook)
        parse = MAC_Rewrite_hook(parse);
    else if (foreign_key_action && MacForeignKeyAction_hook)
        parse = MacForeignKeyAction_hook(parse);

    if (prev_planner)
        result = prev_planner(parse, query_string, cursorOptions, boundParams);
    else
        result = standard_planner(parse, query_string, cursorOptions, boundParams);
    if (!foreign_key_action && MacPlanFinished_hook)
        MacPlanFinished_hook(result);

    /*
     * A query the filter marked as under row-level security has a plan
     * shaped for the current role: the plan cache must not hand it to
     * another role.
     */
    if (parse->hasRowSecurity)
        result->dependsOnRole = true;
    return result;
}

/*
 * Consulted whenever a function is looked up for a call (executor set-up,
 * CALL), and by the planner before it inlines a SQL function.  The use of
 * the function or procedure is mediated: an error raised here stops the
 * call or the inlining.  True keeps the function out of line.  One catalog
 * cache probe serves both hooks.
 */
static bool
host_needs_fmgr(Oid funcid)
{
    HeapTuple   tuple;
    Form_pg_proc proc;
    bool        out_of_line = false;

    if (prev_needs_fmgr && prev_needs_fmgr(funcid))
        return true;
    if (ObjMediation_hook == NULL && MacFunctionNotInlinable_hook == NULL)
        return false;
    tuple = SearchSysCache1(PROCOID, ObjectIdGetDatum(funcid));
    if (!HeapTupleIsValid(tuple))
        return false;
    proc = (Form_pg_proc) GETSTRUCT(tuple);
    if (ObjMediation_hook)
        ObjMediation_hook(proc->prokind == PROKIND_PROCEDURE ? "procedure" : "function",
                          proc->pronamespace, funcid);
    if (MacFunctionNotInlinable_hook)
        out_of_line = MacFunctionNotInlinable_hook(tuple);
    ReleaseSysCache(tuple);
    return out_of_line;
}

/*
 * Mediates every view of the statement, nested views included, and tells
 * of every table it may write.  PostgreSQL checks the permissions of every
 * execution here, cached plans and COPY FROM included.
 */
static bool
host_check_perms(List *rangeTable, bool ereport_on_violation)
{
    constexpr AclMode writes = ACL_INSERT | ACL_UPDATE | ACL_DELETE;
    ListCell   *lc;

    if (prev_check_perms && !prev_check_perms(rangeTable, ereport_on_violation))
        return false;
    foreach(lc, rangeTable)
    {
        RangeTblEntry *rte = (RangeTblEntry *) lfirst(lc);

        if (rte->rtekind != RTE_RELATION)
            continue;
        if (rte->relkind == RELKIND_VIEW && ObjMediation_hook)
            ObjMediation_hook("view", get_rel_namespace(rte->relid), rte->relid);
        else if ((rte->requiredPerms & writes) && MacRelationWritten_hook)
            MacRelationWritten_hook(rte->relid);
    }
    return true;
}

/* ---------------------------------------------------------------------
 * Executor start: refresh the session before a statement runs
 * --------------------------------------------------------------------- */

static void
host_executor_start(QueryDesc *queryDesc, int eflags)
{
    /*
     * A cached plan may run after the administrator changed the user's
     * authorization; it must be mediated with the new one.  EXPLAIN without
     * ANALYZE executes nothing and needs no refresh.
     */
    if (SyncMacSession_hook && !(eflags & EXEC_FLAG_EXPLAIN_ONLY))
        SyncMacSession_hook();

    if (prev_executor_start)
        prev_executor_start(queryDesc, eflags);
    else
        standard_ExecutorStart(queryDesc, eflags);
}

/* ---------------------------------------------------------------------
 * Parse analysis: hidden policy columns (star_columns.cpp)
 * --------------------------------------------------------------------- */

static post_parse_analyze_hook_type prev_post_parse_analyze = NULL;

/*
 * Whether the statement's own text (a source string may hold many) may
 * hold a star: `*`, or the TABLE command that means one.
 */
static bool
may_hold_star(const char *text, const Query *query)
{
    const char *p = text + Max(query->stmt_location, 0);
    size_t      len = query->stmt_len > 0 ? query->stmt_len : strlen(p);

    for (size_t i = 0; i < len; i++)
        if (p[i] == '*' || (len - i >= 5 && pg_strncasecmp(p + i, "table", 5) == 0))
            return true;
    return false;
}

/*
 * Every analysed statement.  EXPLAIN is not looked into here: it calls this
 * hook itself with the query it explains.
 */
static void
host_post_parse_analyze(ParseState *pstate, Query *query, JumbleState *jstate)
{
    if (prev_post_parse_analyze)
        prev_post_parse_analyze(pstate, query, jstate);
    if (MacHiddenPolicyColumn_hook == NULL || pstate->p_sourcetext == NULL ||
        !may_hold_star(pstate->p_sourcetext, query) || pstate->p_post_columnref_hook != NULL)
        return;
    host_hide_star_columns(query, pstate->p_sourcetext);
}

/* ---------------------------------------------------------------------
 * Utility statements
 * --------------------------------------------------------------------- */

/* The extension a CREATE EXTENSION or ALTER EXTENSION ... UPDATE installs. */
static const char *
extension_being_installed(Node *stmt)
{
    if (IsA(stmt, CreateExtensionStmt))
        return ((CreateExtensionStmt *) stmt)->extname;
    if (IsA(stmt, AlterExtensionStmt))
        return ((AlterExtensionStmt *) stmt)->extname;
    return NULL;
}

/* ---------------------------------------------------------------------
 * ALTER TABLE guard, and the guards of row-level security (guard.cpp)
 * --------------------------------------------------------------------- */

static bool
host_guards_apply(void)
{
    return MacNeedCheckPermisition_hook == NULL || MacNeedCheckPermisition_hook();
}

/* Runs `check` on the relation an ALTER TABLE or RENAME names, if it exists. */
template <typename Check>
static void
host_check_relation(RangeVar *relation, Check check)
{
    Oid         relid = RangeVarGetRelid(relation, NoLock, true);
    Relation    rel;

    if (!OidIsValid(relid))
        return;
    rel = relation_open(relid, NoLock);
    check(rel);
    relation_close(rel, NoLock);
}

static void
host_check_alteration(Node *stmt)
{
    if (!host_guards_apply())
        return;
    host_check_guard_change(stmt);
    /*
     * Whatever object type the statement names: PostgreSQL renames a
     * table's columns also through ALTER VIEW and ALTER FOREIGN TABLE.
     */
    if (IsA(stmt, AlterTableStmt) && MacCheckAlterTable_hook)
    {
        List       *cmds = ((AlterTableStmt *) stmt)->cmds;

        host_check_relation(((AlterTableStmt *) stmt)->relation, [cmds](Relation rel) {
            ListCell   *lc;

            foreach(lc, cmds)
                MacCheckAlterTable_hook(rel, (AlterTableCmd *) lfirst(lc));
        });
    }
    else if (IsA(stmt, RenameStmt) && MacCheckRenameColumn_hook &&
             ((RenameStmt *) stmt)->renameType == OBJECT_COLUMN)
    {
        const char *colname = ((RenameStmt *) stmt)->subname;

        host_check_relation(((RenameStmt *) stmt)->relation, [colname](Relation rel) {
            MacCheckRenameColumn_hook(rel, colname);
        });
    }
}

/*
 * Stock COPY FROM refuses a table under row-level security, and the guards
 * of a protected table are row-level security.  Such a COPY that the
 * module left to PostgreSQL (access control off) is run by the layer,
 * which refuses only policies the table's owner defined.  False when the
 * COPY is none of these.
 */
static bool
host_copy_into_guarded_table(PlannedStmt *pstmt, const char *queryString,
                             QueryEnvironment *queryEnv, QueryCompletion *qc)
{
    CopyStmt   *stmt = (CopyStmt *) pstmt->utilityStmt;
    Relation    rel;
    bool        guarded;
    ParseState *pstate;
    uint64      processed;

    if (!IsA(stmt, CopyStmt) || !stmt->is_from || stmt->relation == NULL)
        return false;
    rel = relation_openrv(stmt->relation, RowExclusiveLock);
    guarded = host_only_guards(rel);
    relation_close(rel, NoLock);
    if (!guarded)
        return false;

    pstate = make_parsestate(NULL);
    pstate->p_sourcetext = queryString;
    pstate->p_queryEnv = queryEnv;
    host_do_copy(pstate, stmt, pstmt->stmt_location, pstmt->stmt_len, &processed, NULL);
    free_parsestate(pstate);
    if (qc != NULL)
        SetQueryCompletion(qc, CMDTAG_COPY, processed);
    return true;
}

/* Runs the statement, telling the module while an extension script runs, failure included. */
static void
host_run_utility(PlannedStmt *pstmt, const char *queryString,
                 bool readOnlyTree, ProcessUtilityContext context,
                 ParamListInfo params, QueryEnvironment *queryEnv,
                 DestReceiver *dest, QueryCompletion *qc)
{
    const char *extname = extension_being_installed(pstmt->utilityStmt);
    bool        tell = extname != NULL && MacCreateExtensionProcess_hook != NULL;

    if (tell)
        MacCreateExtensionProcess_hook(extname, true);
    PG_TRY();
    {
        if (prev_process_utility)
            prev_process_utility(pstmt, queryString, readOnlyTree, context,
                                 params, queryEnv, dest, qc);
        else
            standard_ProcessUtility(pstmt, queryString, readOnlyTree, context,
                                    params, queryEnv, dest, qc);
    }
    PG_FINALLY();
    {
        if (tell && MacCreateExtensionProcess_hook)
            MacCreateExtensionProcess_hook(extname, false);
    }
    PG_END_TRY();
}

static void
host_process_utility(PlannedStmt *pstmt, const char *queryString,
                     bool readOnlyTree, ProcessUtilityContext context,
                     ParamListInfo params, QueryEnvironment *queryEnv,
                     DestReceiver *dest, QueryCompletion *qc)
{
    Node       *stmt = pstmt->utilityStmt;

    if (MacProcessUtility_hook && MacProcessUtility_hook(pstmt, queryString, queryEnv, qc))
        return;
    /* CALL looks the procedure up, and mediates it, without an executor. */
    if (IsA(stmt, CallStmt) && SyncMacSession_hook)
        SyncMacSession_hook();
    host_check_alteration(stmt);
    if (host_copy_into_guarded_table(pstmt, queryString, queryEnv, qc))
        return;
    host_run_utility(pstmt, queryString, readOnlyTree, context, params, queryEnv, dest, qc);
    if (IsA(stmt, DiscardStmt) && ((DiscardStmt *) stmt)->target == DISCARD_ALL &&
        MacSessionDiscarded_hook)
        MacSessionDiscarded_hook();
}

/* ---------------------------------------------------------------------
 * Object access: drops, TRUNCATE and inheritance links
 * --------------------------------------------------------------------- */

/*
 * Whether pg_inherits, as the current command has left it so far, links
 * `child` to `parent`.  PostgreSQL announces a link it stores and one it
 * removes in the same way; only the stored one is still there.
 */
static bool
host_inheritance_stored(Oid child, Oid parent)
{
    return host_any_catalog_row(InheritsRelationId, InheritsRelidSeqnoIndexId,
                                Anum_pg_inherits_inhrelid, child, SnapshotSelf,
                                [parent](HeapTuple tuple, TupleDesc) {
                                    return ((Form_pg_inherits) GETSTRUCT(tuple))->inhparent == parent;
                                });
}

/*
 * PostgreSQL calls this for every object it drops, every table TRUNCATE
 * empties and every inheritance link it stores or removes (the parent in
 * the auxiliary id), besides events the module does not look at.
 */
static void
host_object_access(ObjectAccessType access, Oid classId, Oid objectId, int subId, void *arg)
{
    if (prev_object_access)
        prev_object_access(access, classId, objectId, subId, arg);
    if (access == OAT_DROP && MacObjectDrop_hook && host_guards_apply())
        MacObjectDrop_hook(classId, objectId, subId);
    else if (access == OAT_TRUNCATE && MacRelationTruncate_hook)
        MacRelationTruncate_hook(objectId);
    else if (access == OAT_POST_ALTER && classId == InheritsRelationId && MacInheritanceLink_hook)
    {
        Oid         parent = ((ObjectAccessPostAlter *) arg)->auxiliary_id;

        if (host_inheritance_stored(objectId, parent))
            MacInheritanceLink_hook(objectId, parent);
    }
}

void
host_install_hooks(void)
{
    prev_planner = planner_hook;
    planner_hook = host_planner;
    prev_needs_fmgr = needs_fmgr_hook;
    needs_fmgr_hook = host_needs_fmgr;
    prev_check_perms = ExecutorCheckPerms_hook;
    ExecutorCheckPerms_hook = host_check_perms;
    prev_executor_start = ExecutorStart_hook;
    ExecutorStart_hook = host_executor_start;
    prev_process_utility = ProcessUtility_hook;
    ProcessUtility_hook = host_process_utility;
    prev_post_parse_analyze = post_parse_analyze_hook;
    post_parse_analyze_hook = host_post_parse_analyze;
    prev_object_access = object_access_hook;
    object_access_hook = host_object_access;
    host_watch_table_guard();
}

/*
 * host.h
 *    The host interface lavrel is written against, mapped onto stock
 *    PostgreSQL 15.
 *
 * The module talks to "its host" through a handful of hooks and constants
 * (who the administrator is, when to synchronise the session, when an
 * extension script is running).  Stock PostgreSQL has none of these under
 * those names, so this layer declares them and wires them to the hook
 * points PostgreSQL really offers (ExecutorStart_hook, ProcessUtility_hook,
 * object_access_hook, ...).
 * Everything that depends on the PostgreSQL version lives here.
 */
#ifndef LAVREL_HOST_H
#define LAVREL_HOST_H

#include "host/pg.h"

/*
 * The role that administers lavrel: the bootstrap superuser, i.e. the role
 * that ran initdb.  Other superusers are deliberately not administrators.
 */
constexpr Oid MacAdminRoleId = BOOTSTRAP_SUPERUSERID;

extern "C" {

/* Asked by the layer whether its access-control guards apply right now. */
typedef bool (*MacNeedCheckPermisition_hook_type)(void);

/* Told when an extension's CREATE/ALTER EXTENSION starts (true) and ends. */
typedef void (*MacCreateExtensionProcess_hook_type)(const char *extname,
                                                    bool starting);

/* Brings the session's label state up to date with the catalogs. */
typedef void (*SyncMacSession_hook_type)(void);

/* Rewrites a query tree (after PostgreSQL's rewriter) before it is planned. */
typedef Query *(*MAC_Rewrite_hook_type)(Query *query);

/* Adjusts a finished plan of a query MAC_Rewrite_hook rewrote. */
typedef void (*MacPlanFinished_hook_type)(PlannedStmt *plan);

/* Rewrites a query a foreign key's referential action runs, before it is planned. */
typedef Query *(*MacForeignKeyAction_hook_type)(Query *query);

/* Whether the planner must not inline a function (its body is filtered); its pg_proc row. */
typedef bool (*MacFunctionNotInlinable_hook_type)(HeapTuple proctup);

/* 1 when a star-expanded column reference names a hidden policy column. */
typedef int (*MacHiddenPolicyColumn_hook_type)(ParseState *pstate, RangeTblEntry *rte,
                                               Var *var);

/*
 * A utility statement about to run: may refuse it, or run it itself and
 * answer true (with the completion tag filled), and it then goes no further.
 */
typedef bool (*MacProcessUtility_hook_type)(PlannedStmt *pstmt, const char *queryString,
                                            QueryEnvironment *queryEnv, QueryCompletion *qc);

/* Told when DISCARD ALL has reset the session. */
typedef void (*MacSessionDiscarded_hook_type)(void);

/* Raise an error to refuse one ALTER TABLE subcommand, or a column rename. */
typedef void (*MacCheckAlterTable_hook_type)(Relation rel, AlterTableCmd *cmd);
typedef void (*MacCheckRenameColumn_hook_type)(Relation rel, const char *colname);

/* Raise an error to refuse the use of a view, function or procedure. */
typedef void (*ObjMediation_hook_type)(const char *kind, Oid namespace_id, Oid objoid);

/* Told of each table a statement is about to write (DML, COPY FROM). */
typedef void (*MacRelationWritten_hook_type)(Oid relid);

/*
 * Raise an error to refuse the drop of one object, whatever statement drops
 * it: its catalog (pg_class, pg_authid, ...), its oid, and for a column of
 * a table the column's number (0 for the object as a whole).
 */
typedef void (*MacObjectDrop_hook_type)(Oid classId, Oid objectId, int subId);

/* Raise an error to refuse emptying a table with TRUNCATE. */
typedef void (*MacRelationTruncate_hook_type)(Oid relid);

/* Raise an error to refuse a new inheritance link (partitions included). */
typedef void (*MacInheritanceLink_hook_type)(Oid child, Oid parent);

extern PGDLLEXPORT MacNeedCheckPermisition_hook_type MacNeedCheckPermisition_hook;
extern PGDLLEXPORT MacCreateExtensionProcess_hook_type MacCreateExtensionProcess_hook;
extern PGDLLEXPORT SyncMacSession_hook_type SyncMacSession_hook;
extern PGDLLEXPORT MAC_Rewrite_hook_type MAC_Rewrite_hook;
extern PGDLLEXPORT MacPlanFinished_hook_type MacPlanFinished_hook;
extern PGDLLEXPORT MacForeignKeyAction_hook_type MacForeignKeyAction_hook;
extern PGDLLEXPORT MacFunctionNotInlinable_hook_type MacFunctionNotInlinable_hook;
extern PGDLLEXPORT MacHiddenPolicyColumn_hook_type MacHiddenPolicyColumn_hook;
extern PGDLLEXPORT MacProcessUtility_hook_type MacProcessUtility_hook;
extern PGDLLEXPORT MacSessionDiscarded_hook_type MacSessionDiscarded_hook;
extern PGDLLEXPORT MacCheckAlterTable_hook_type MacCheckAlterTable_hook;
extern PGDLLEXPORT MacCheckRenameColumn_hook_type MacCheckRenameColumn_hook;
extern PGDLLEXPORT ObjMediation_hook_type ObjMediation_hook;
extern PGDLLEXPORT MacRelationWritten_hook_type MacRelationWritten_hook;
extern PGDLLEXPORT MacObjectDrop_hook_type MacObjectDrop_hook;
extern PGDLLEXPORT MacRelationTruncate_hook_type MacRelationTruncate_hook;
extern PGDLLEXPORT MacInheritanceLink_hook_type MacInheritanceLink_hook;

/*
 * COPY of a table under a policy.  Stock COPY has no hook points, so the
 * module hands such a COPY to the layer (host_do_copy, host/copy.cpp) with
 * these callbacks, each given `arg`; all five are filled.
 */
typedef struct HostCopyCallbacks
{
    void       *arg;
    /* COPY FROM and TO: the COPY's list of attribute numbers, with some deleted. */
    List       *(*columns) (void *arg, List *attnums);
    /* COPY TO: the expression (a raw parse tree) printed for column `attnum`. */
    Node       *(*output) (void *arg, AttrNumber attnum, Node *column);
    /* COPY FROM: may lower the number of fields read on a line to the number expected. */
    void        (*fields_read) (void *arg, int expected, int *fields);
    /*
     * COPY FROM: a field read for column `attnum`.  True when it set *value
     * itself; false leaves the field to the column's input function.
     */
    bool        (*field) (void *arg, AttrNumber attnum, char *field, Datum *value);
    /* COPY FROM: a row about to be inserted, by attribute; may change its values. */
    void        (*row) (void *arg, Datum *values, bool *nulls);
} HostCopyCallbacks;

/* Runs a COPY of a table, as DoCopy does, calling the callbacks (when given). */
void host_do_copy(ParseState *pstate, const CopyStmt *stmt, int stmt_location,
                  int stmt_len, uint64 *processed, const HostCopyCallbacks *callbacks);

/*
 * Row-level security guards of protected tables (guard.cpp), which keep
 * them closed on a server that runs without lavrel.  The module places a
 * guard when it applies a policy to a table and takes it away with the
 * policy; the layer takes the guards out of every query it plans.
 */
void host_add_table_guard(Oid relid, const char *policy_name, const char *column);
void host_remove_table_guard(Oid relid, const char *policy_name);
void host_strip_table_guards(Query *query);
/* Keeps the guards' function oid up to date; once, at load. */
void host_watch_table_guard(void);
/* Refuses DROP, ALTER and RENAME POLICY of a guard. */
void host_check_guard_change(Node *stmt);
/* Whether the table's row-level security is on, with guards and nothing else. */
bool host_only_guards(Relation rel);

/* Connects the hooks above to PostgreSQL's own hook points; once, at load. */
void host_install_hooks(void);

/*
 * Refuses to load the library anywhere but from shared_preload_libraries:
 * hooks installed later than backend start would leave earlier backends
 * unprotected, so protection must never depend on who loaded it first.
 */
void host_require_preload(void);

} /* extern "C" */

/*
 * Within the layer: whether `match(tuple, descriptor)` holds for a row of
 * catalog `catalog` whose oid column `attno` equals `key`, found through
 * index `index` under `snapshot` (NULL: the catalog snapshot).
 */
template <typename Match>
bool
host_any_catalog_row(Oid catalog, Oid index, AttrNumber attno, Oid key, Snapshot snapshot,
                     Match match)
{
    Relation    rel = table_open(catalog, AccessShareLock);
    ScanKeyData scankey;
    SysScanDesc scan;
    HeapTuple   tuple;
    bool        found = false;

    ScanKeyInit(&scankey, attno, BTEqualStrategyNumber, F_OIDEQ, ObjectIdGetDatum(key));
    scan = systable_beginscan(rel, index, true, snapshot, 1, &scankey);
    while (!found && HeapTupleIsValid(tuple = systable_getnext(scan)))
        found = match(tuple, RelationGetDescr(rel));
    systable_endscan(scan);
    table_close(rel, AccessShareLock);
    return found;
}

/*
 * The SQL identifier at the front of p (ident.cpp), read as PostgreSQL's
 * scanner reads one: unquoted, a letter, "_" or non-ASCII character, then
 * also digits and "$"; or quoted, "" standing for one quote.  Characters
 * are taken whole (pg_mblen).  On Read, the name as written (neither
 * folded nor truncated) is in out when out is given (room for strlen(p) + 1
 * bytes), and *end is behind the identifier.  None: no identifier starts
 * at p, or its closing quote is missing.  Truncated: the string ends
 * inside a character.
 */
enum class HostIdentifier
{
    Read,
    None,
    Truncated
};
HostIdentifier host_read_identifier(const char *p, char *out, const char **end);

/* Within the layer: star_columns.cpp, called on every analysed statement. */
void host_hide_star_columns(Query *query, const char *sourcetext);

#endif /* LAVREL_HOST_H */

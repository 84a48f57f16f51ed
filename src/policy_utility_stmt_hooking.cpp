/*
 * policy_utility_stmt_hooking.cpp
 *    lavrel's place in the utility-statement path: DROP TABLE, DROP
 *    EXTENSION and DROP ROLE are refused while access control still depends
 *    on what they would destroy, and a COPY of a protected table is run
 *    under the labels.
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

/* A protected table may not be dropped, whichever place it has in the list. */
static void
Policy_Check_Drop_Table(DropStmt *stmt)
{
    ListCell   *lc;

    if (stmt->removeType != OBJECT_TABLE)
        return;
    foreach(lc, stmt->objects)
    {
        RangeVar   *relation = makeRangeVarFromNameList((List *) lfirst(lc));
        Oid         relid;

        AcceptInvalidationMessages();
        relid = RangeVarGetRelid(relation, AccessShareLock, true);
        if (OidIsValid(relid) &&
            ObjectIsExistById(MacPolicyEnforcementRelationId, mac_col::enf_relation_oid, relid))
            object_in_use("current table cannot be dropped, because mac policy has applied");
    }
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

/* One role of DROP ROLE: the server's own checks, then the authorization. */
static void
check_drop_one_role(DropRoleStmt *stmt, RoleSpec *spec)
{
    HeapTuple   tuple;
    Form_pg_authid role;

    if (spec->roletype != ROLESPEC_CSTRING)
        ereport(ERROR,
                (errcode(ERRCODE_INVALID_PARAMETER_VALUE),
                 errmsg("cannot use special role specifier in DROP ROLE")));
    tuple = SearchSysCache1(AUTHNAME, PointerGetDatum(spec->rolename));
    if (!HeapTupleIsValid(tuple))
    {
        if (!stmt->missing_ok)
            ereport(ERROR,
                    (errcode(ERRCODE_UNDEFINED_OBJECT),
                     errmsg("role \"%s\" does not exist", spec->rolename)));
        ereport(NOTICE,
                (errmsg("role \"%s\" does not exist, skipping", spec->rolename)));
        return;
    }
    role = (Form_pg_authid) GETSTRUCT(tuple);
    if (role->rolsuper && !superuser())
        ereport(ERROR,
                (errcode(ERRCODE_INSUFFICIENT_PRIVILEGE),
                 errmsg("must be superuser to drop superusers")));
    if (ObjectIsExistById(MacPolicyUserRelationId, mac_col::user_oid, role->oid))
        object_in_use("current user cannot be dropped, because mac policy has applied");
    ReleaseSysCache(tuple);
}

/*
 * A role authorized under any policy may not be dropped.  The server's own
 * DROP ROLE checks are repeated first, so that their errors keep coming in
 * the server's order and words.
 */
static void
Policy_Check_Drop_Role(DropRoleStmt *stmt)
{
    Relation    authid;
    ListCell   *lc;

    if (!has_createrole_privilege(GetUserId()))
        ereport(ERROR,
                (errcode(ERRCODE_INSUFFICIENT_PRIVILEGE),
                 errmsg("permission denied to drop role")));
    authid = table_open(AuthIdRelationId, AccessShareLock);
    foreach(lc, stmt->roles)
        check_drop_one_role(stmt, (RoleSpec *) lfirst(lc));
    table_close(authid, AccessShareLock);
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
        if (IsA(stmt, DropStmt))
        {
            Policy_Check_Drop_Table((DropStmt *) stmt);
            Policy_Check_Drop_Extension((DropStmt *) stmt);
        }
        else if (IsA(stmt, DropRoleStmt))
            Policy_Check_Drop_Role((DropRoleStmt *) stmt);
    }
    call_next_utility(pstmt, queryString, readOnlyTree, context, params, queryEnv, dest, qc);
}

/*
 * lavrel.cpp
 *    The module's entry point and the bodies of the host hooks that belong
 *    to no other file: _PG_init fills every host hook of host.h; star
 *    expansion asks here whether a column is a hidden policy column, the
 *    ALTER TABLE guard whether a subcommand may change a column, and every
 *    use of a view, function or procedure is mediated here by its labels.
 *
 * This file is the top of the module: it calls into the others, and none
 * of them calls into it.
 */
#include "lavrel.h"

extern "C" {
PG_MODULE_MAGIC;
}

/* ---------------------------------------------------------------------
 * Hidden policy columns
 * --------------------------------------------------------------------- */

/*
 * Whether a column reference (as star expansion makes them) names a policy
 * column whose policy hides it, following join alias columns down to the
 * table they come from.
 */
int
MacHiddenPolicyColumn(ParseState *pstate, RangeTblEntry *rte, Var *var)
{
    if (!MAC_isenable())
        return 0;
    while (rte->rtekind == RTE_JOIN)
    {
        if (var->varattno == InvalidAttrNumber)
            return 0;
        Node       *alias = (Node *) list_nth(rte->joinaliasvars, var->varattno - 1);

        if (!IsA(alias, Var) || ((Var *) alias)->varattno == InvalidAttrNumber)
            return 0;
        var = (Var *) alias;
        rte = GetRTEByRangeTablePosn(pstate, var->varno, 0);
    }
    if (rte->rtekind != RTE_RELATION)
        return 0;
    return mac_table_column_hidden(rte->relid, var->varattno);
}

/* ---------------------------------------------------------------------
 * ALTER TABLE on policy columns
 * --------------------------------------------------------------------- */

/*
 * The subcommands that change one column, named by the command.  DROP
 * COLUMN is refused here, before PostgreSQL looks at what depends on the
 * column; the drop guard (MacObjectDrop) refuses the drops of a policy
 * column that no ALTER TABLE of its table names, as ALTER TYPE ... DROP
 * ATTRIBUTE ... CASCADE of a typed table's type.
 */
static bool
is_column_subcommand(AlterTableType subtype)
{
    switch (subtype)
    {
        case AT_ColumnDefault:
        case AT_CookedColumnDefault:
        case AT_DropNotNull:
        case AT_SetNotNull:
        case AT_DropExpression:
        case AT_CheckNotNull:
        case AT_SetStatistics:
        case AT_SetOptions:
        case AT_ResetOptions:
        case AT_SetStorage:
        case AT_SetCompression:
        case AT_DropColumn:
        case AT_DropColumnRecurse:
        case AT_AlterColumnType:
        case AT_AlterColumnGenericOptions:
        case AT_AddIdentity:
        case AT_SetIdentity:
        case AT_DropIdentity:
            return true;
        default:
            return false;
    }
}

void
MacCheckAlterTable(Relation rel, AlterTableCmd *cmd)
{
    if (OidIsValid(MacPolicyEnforcementRelationId) && is_column_subcommand(cmd->subtype))
        mac_policy_column_change_check(RelationGetRelid(rel), cmd->name);
}

void
MacCheckRenameColumn(Relation rel, const char *colname)
{
    if (OidIsValid(MacPolicyEnforcementRelationId))
        mac_policy_column_change_check(RelationGetRelid(rel), colname);
}

/* ---------------------------------------------------------------------
 * Labelled views, functions and procedures
 * --------------------------------------------------------------------- */

/*
 * The labels of every labelled object by its oid, so that the far more
 * common unlabelled ones are answered with one probe.  Read again after the
 * catalogs changed.
 */
struct LabelledObject
{
    Oid         object_id;      /* key */
    List       *labels;         /* its MacObjectLabel rows */
};

static MemoryContext labelled_context = NULL;
static HTAB *labelled_objects = NULL;
static uint64 labelled_objects_version = 0;

static void
load_labelled_objects(void)
{
    uint64      version = mac_catalog_version;
    List       *labels = get_object_labels();
    MemoryContext caller;
    ListCell   *lc;

    labelled_objects_version = 0;
    mac_empty_cache_context(&labelled_context, "lavrel labelled objects");
    labelled_objects = mac_oid_hash_table("lavrel labelled objects", sizeof(LabelledObject),
                                          labelled_context);
    caller = MemoryContextSwitchTo(labelled_context);
    foreach(lc, labels)
    {
        const MacObjectLabel *label = (const MacObjectLabel *) lfirst(lc);
        bool        found;
        LabelledObject *object = (LabelledObject *) hash_search(labelled_objects, &label->object_id,
                                                                HASH_ENTER, &found);

        MacObjectLabel *copy = (MacObjectLabel *) palloc(sizeof(MacObjectLabel));

        *copy = *label;
        if (!found)
            object->labels = NIL;
        object->labels = lappend(object->labels, copy);
    }
    MemoryContextSwitchTo(caller);
    labelled_objects_version = version;
}

/* The labels of the object; NIL when it has none. */
static List *
object_labels(Oid objoid)
{
    LabelledObject *object;

    if (labelled_objects_version != mac_catalog_version)
        load_labelled_objects();
    object = (LabelledObject *) hash_search(labelled_objects, &objoid, HASH_FIND, NULL);
    return object != NULL ? object->labels : NIL;
}

/*
 * Refuses the use of a labelled view, function or procedure whose label
 * the session may not read, under any of the policies that label it.
 */
void
ObjMediation(const char *kind, Oid namespace_id, Oid objoid)
{
    ListCell   *lc;

    if (!MAC_isenable() || !IsUnderPostmaster)
        return;
    foreach(lc, object_labels(objoid))
    {
        const MacObjectLabel *label = (const MacObjectLabel *) lfirst(lc);

        if (label->namespace_id != namespace_id ||
            (LookupLabelAccessResults(label->policy_id, false, label->label_id) & MAC_MED_READ))
            continue;
        if (pg_strcasecmp(kind, "view") == 0)
            elog(ERROR, "unauthorized read access for policy %s", get_policy_name(label->policy_id));
        elog(ERROR, "unauthorized execute access for policy %s", get_policy_name(label->policy_id));
    }
}

/* ---------------------------------------------------------------------
 * Loading
 * --------------------------------------------------------------------- */

void
_PG_init(void)
{
    host_require_preload();
    mac_base_init();
    mac_session_init();
    host_install_hooks();
    MacNeedCheckPermisition_hook = MacNeedCheckPermisition;
    MacCreateExtensionProcess_hook = MacCreateExtensionProcess;
    SyncMacSession_hook = SyncMacSession;
    MAC_Rewrite_hook = MAC_Rewrite;
    MacPlanFinished_hook = MacPlanFinished;
    MacForeignKeyAction_hook = MacForeignKeyAction;
    MacFunctionNotInlinable_hook = MacFunctionNotInlinable;
    MacHiddenPolicyColumn_hook = MacHiddenPolicyColumn;
    MacProcessUtility_hook = policy_process_utility_hook;
    MacSessionDiscarded_hook = MacSessionDiscarded;
    MacCheckAlterTable_hook = MacCheckAlterTable;
    MacCheckRenameColumn_hook = MacCheckRenameColumn;
    ObjMediation_hook = ObjMediation;
    MacRelationWritten_hook = MacRelationWritten;
    MacObjectDrop_hook = MacObjectDrop;
    MacRelationTruncate_hook = MacRelationTruncate;
    MacInheritanceLink_hook = MacInheritanceLink;
}

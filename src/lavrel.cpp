/*
 * lavrel.cpp
 *    The spine of the module: loading and unloading, the lavrel.enable_mac
 *    setting, the hooks the module fills, and MAC_isenable, the one test
 *    every hook and SQL function asks before it acts.
 *
 * The first time MAC_isenable answers true in a backend it resolves the
 * oids of the seven catalog tables and the nine SQL functions the module
 * calls or recognises, and keeps them in the exported globals below for
 * the life of the process (until lavrel.enable_mac is turned off).
 */
#include "lavrel.h"

extern "C" {
PG_MODULE_MAGIC;

bool        Enable_mac = false;
bool        MacNeedToCheckPermisition = true;
bool        MacCreateLavrelExtension = false;
ProcessUtility_hook_type policy_process_utility_hook_next = NULL;

Oid         MacPolicyRelationId = InvalidOid;
Oid         MacLevelRelationId = InvalidOid;
Oid         MacCompartmentRelationId = InvalidOid;
Oid         MacLabelRelationId = InvalidOid;
Oid         MacPolicyEnforcementRelationId = InvalidOid;
Oid         MacPolicyUserRelationId = InvalidOid;
Oid         MacObjRelationId = InvalidOid;

Oid         GenDefLabelProc = InvalidOid;
Oid         ReadMediationProc = InvalidOid;
Oid         WriteMediationProc = InvalidOid;
Oid         LabelInsertProc = InvalidOid;
Oid         LabelUpdateProc = InvalidOid;
Oid         LabelToCharProc = InvalidOid;
Oid         CharToLabelProc = InvalidOid;
Oid         PolicyMaxLabelIdProc = InvalidOid;
Oid         PolicyMinLabelIdProc = InvalidOid;
}

/* Whether the sixteen ids below have been resolved in this process. */
static bool MacObjectIdsInited = false;

namespace {

struct NamedId
{
    const char *name;
    Oid        *id;
};

/* Resolved in this order; resolution stops at the first one missing. */
const NamedId mac_relations[] = {
    {"lavrel_policy", &MacPolicyRelationId},
    {"lavrel_level", &MacLevelRelationId},
    {"lavrel_compartment", &MacCompartmentRelationId},
    {"lavrel_label", &MacLabelRelationId},
    {"lavrel_policy_enforcement", &MacPolicyEnforcementRelationId},
    {"lavrel_user", &MacPolicyUserRelationId},
    {"lavrel_obj", &MacObjRelationId},
};

const NamedId mac_functions[] = {
    {"generate_default_label_value", &GenDefLabelProc},
    {"read_mediation", &ReadMediationProc},
    {"write_mediation", &WriteMediationProc},
    {"label_insert", &LabelInsertProc},
    {"label_update", &LabelUpdateProc},
    {"label_to_char", &LabelToCharProc},
    {"char_to_label", &CharToLabelProc},
    {"policy_read_max_label_id", &PolicyMaxLabelIdProc},
    {"policy_read_min_label_id", &PolicyMinLabelIdProc},
};

template <size_t N, typename Resolve>
bool
resolve_all(const NamedId (&ids)[N], Resolve resolve)
{
    for (const NamedId &entry : ids)
    {
        *entry.id = resolve(entry.name);
        if (!OidIsValid(*entry.id))
            return false;
    }
    return true;
}

template <size_t N>
void
clear_all(const NamedId (&ids)[N])
{
    for (const NamedId &entry : ids)
        *entry.id = InvalidOid;
}

} // namespace

/* ---------------------------------------------------------------------
 * Invalidation
 *
 * Every backend keeps what it read from the catalogs (the session state,
 * the labelled objects, label texts, the policies of each table) and must
 * drop it when the catalogs change.  The module's catalog writers, and any
 * statement that writes a catalog table directly, send a relcache
 * invalidation of that table: the writing backend processes it at its next
 * command-counter increment (and again at abort), every other backend when
 * it next takes in invalidations.  One callback turns those into counters
 * that the caches compare with the values they were built at.
 * --------------------------------------------------------------------- */

extern "C" {
uint64      mac_catalog_version = 1;    /* 0: a cache that was never built */
}

/* Bumped by every relcache invalidation, whatever the relation. */
static uint64 relcache_generation = 1;

static bool
is_mac_catalog(Oid relid)
{
    for (const NamedId &entry : mac_relations)
    {
        if (*entry.id == relid)
            return true;
    }
    return false;
}

static void
mac_relcache_invalidated(Datum arg, Oid relid)
{
    (void) arg;
    relcache_generation++;
    if (!OidIsValid(relid) || is_mac_catalog(relid))
        mac_catalog_version++;
}

void
MacRelationWritten(Oid relid)
{
    if (is_mac_catalog(relid))
        CacheInvalidateRelcacheByRelid(relid);
}

/* ---------------------------------------------------------------------
 * Resolving the module's object ids
 * --------------------------------------------------------------------- */

/*
 * The first function of that name in `namespaceId`, whatever its argument
 * types: the module's schema holds one function of each name it resolves.
 */
Oid
LookupMacFunctionOid(Oid namespaceId, const char *name)
{
    CatCList   *list = SearchSysCacheList1(PROCNAMEARGSNSP, CStringGetDatum(name));
    Oid         result = InvalidOid;

    for (int i = 0; i < list->n_members; i++)
    {
        Form_pg_proc proc = (Form_pg_proc) GETSTRUCT(&list->members[i]->tuple);

        if (OidIsValid(namespaceId) && proc->pronamespace == namespaceId)
        {
            result = proc->oid;
            break;
        }
    }
    ReleaseCatCacheList(list);
    return result;
}

static bool
InitMacObjectIds(void)
{
    Oid         nsp = LookupExplicitNamespace("lavrel", false);

    if (!OidIsValid(nsp))
        return false;
    return resolve_all(mac_relations,
                       [nsp](const char *name) { return get_relname_relid(name, nsp); }) &&
           resolve_all(mac_functions,
                       [nsp](const char *name) { return LookupMacFunctionOid(nsp, name); });
}

static void
ResetMacObjectIds(void)
{
    clear_all(mac_relations);
    clear_all(mac_functions);
    MacObjectIdsInited = false;
    /* What was read through the old ids may be gone. */
    mac_catalog_version++;
}

/* ---------------------------------------------------------------------
 * The gate
 * --------------------------------------------------------------------- */

/*
 * Whether the extension exists in this database.  The answer is kept until
 * the next relcache invalidation: CREATE EXTENSION lavrel creates tables,
 * and DROP EXTENSION drops them, and either sends invalidations of them to
 * every backend (also when the statement is rolled back).
 */
static bool
lavrel_extension_exists(void)
{
    static uint64 checked_at = 0;
    static bool exists = false;

    if (checked_at != relcache_generation)
    {
        uint64      now = relcache_generation;

        exists = OidIsValid(get_extension_oid("lavrel", true));
        checked_at = now;
    }
    return exists;
}

bool
MAC_isenable(void)
{
    if (MacCreateLavrelExtension)
        return false;           /* our own install script is running */
    if (!IsUnderPostmaster)
        return false;           /* single-user mode, bootstrap */
    if (!Enable_mac)
        return false;
    if (!IsTransactionState())
        return false;
    if (!lavrel_extension_exists())
        return false;
    if (MacObjectIdsInited)
        return true;
    if (!InitMacObjectIds())
        elog(ERROR, "Init Mac Object ids error");
    MacObjectIdsInited = true;
    return true;
}

bool
MacNeedCheckPermisition(void)
{
    return MacNeedToCheckPermisition;
}

static void
assign_enable_mac(bool newval, void *extra)
{
    (void) extra;
    Enable_mac = newval;
    /* The extension may be dropped and re-created while switched off. */
    if (!newval)
        ResetMacObjectIds();
}

void
MacCreateExtensionProcess(const char *extname, bool starting)
{
    if (!starting)
        MacCreateLavrelExtension = false;
    else if (extname != NULL && pg_strcasecmp(extname, "lavrel") == 0)
        MacCreateLavrelExtension = true;
}

/* ---------------------------------------------------------------------
 * What the catalogs say about each table
 * --------------------------------------------------------------------- */

/*
 * Per table, the policies applied to it, and which of its columns are
 * hidden policy columns as far as asked: every planned statement asks for
 * the policies of each of its tables, star expansion asks about every
 * column, and each answer takes catalog reads.  Any relcache invalidation
 * drops it all (a policy may have been applied, a column renamed), which is
 * rare next to the statements that ask.
 */
struct RelationInfo
{
    Oid         relid;          /* key */
    List       *policy_ids;     /* as get_policyids_on_rel reads them */
    Bitmapset  *asked;          /* columns answered, less FirstLowInvalidHeapAttributeNumber */
    Bitmapset  *hidden;         /* those of them that are hidden */
};

static MemoryContext relation_info_context = NULL;
static HTAB *relation_infos = NULL;
static uint64 relation_infos_generation = 0;
/* The entry asked for last: star expansion asks about one table column after column. */
static RelationInfo *last_relation_info = NULL;

/* The table of RelationInfo, emptied after a relcache invalidation. */
static HTAB *
relation_info_table(void)
{
    HASHCTL     ctl;

    if (relation_infos_generation == relcache_generation)
        return relation_infos;
    last_relation_info = NULL;
    if (relation_info_context == NULL)
        relation_info_context = AllocSetContextCreate(CacheMemoryContext, "lavrel relations",
                                                      ALLOCSET_SMALL_SIZES);
    else
        MemoryContextReset(relation_info_context);
    ctl.keysize = sizeof(Oid);
    ctl.entrysize = sizeof(RelationInfo);
    ctl.hcxt = relation_info_context;
    relation_infos = hash_create("lavrel relations", 64, &ctl,
                                 HASH_ELEM | HASH_BLOBS | HASH_CONTEXT);
    relation_infos_generation = relcache_generation;
    return relation_infos;
}

/* The table's entry. */
static RelationInfo *
relation_info(Oid relid)
{
    HTAB       *table = relation_info_table();
    RelationInfo *info;
    List       *policy_ids;
    MemoryContext caller;

    if (last_relation_info != NULL && last_relation_info->relid == relid)
        return last_relation_info;
    info = (RelationInfo *) hash_search(table, &relid, HASH_FIND, NULL);
    if (info != NULL)
        return last_relation_info = info;
    /* Read first: an error leaves no entry behind. */
    policy_ids = get_policyids_on_rel(relid);
    caller = MemoryContextSwitchTo(relation_info_context);
    info = (RelationInfo *) hash_search(table, &relid, HASH_ENTER, NULL);
    info->policy_ids = list_copy(policy_ids);
    info->asked = info->hidden = NULL;
    MemoryContextSwitchTo(caller);
    return last_relation_info = info;
}

List *
mac_rel_policy_ids(Oid relid)
{
    return list_copy(relation_info(relid)->policy_ids);
}

/* Whether column attno of the table is a policy column its policy hides. */
static bool
read_column_hidden(Oid relid, AttrNumber attno)
{
    char       *colname = get_attname(relid, attno, false);
    bool        hidden = IsPolicyColumn(relid, colname) && get_policy_colhidden(colname);

    pfree(colname);
    return hidden;
}

static bool
column_hidden(Oid relid, AttrNumber attno)
{
    int         member = attno - FirstLowInvalidHeapAttributeNumber;
    RelationInfo *info = relation_info(relid);
    uint64      generation = relcache_generation;

    if (!bms_is_member(member, info->asked))
    {
        bool        hidden = read_column_hidden(relid, attno);
        MemoryContext caller;

        /* Not kept when the reads took in an invalidation. */
        if (generation != relcache_generation)
            return hidden;
        caller = MemoryContextSwitchTo(relation_info_context);
        info->asked = bms_add_member(info->asked, member);
        if (hidden)
            info->hidden = bms_add_member(info->hidden, member);
        MemoryContextSwitchTo(caller);
    }
    return bms_is_member(member, info->hidden);
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
    return column_hidden(rte->relid, var->varattno);
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

/* Only the administrator may change, rename or drop a policy column. */
void
MacPolicyColumnChangeCheck(Oid relid, const char *colname)
{
    if (colname == NULL || GetUserId() == MacAdminRoleId)
        return;
    if (IsPolicyColumn(relid, colname))
        ereport(ERROR,
                (errcode(ERRCODE_INSUFFICIENT_PRIVILEGE),
                 errmsg("permission denied to alter label column")));
}

void
MacCheckAlterTable(Relation rel, AlterTableCmd *cmd)
{
    if (OidIsValid(MacPolicyEnforcementRelationId) && is_column_subcommand(cmd->subtype))
        MacPolicyColumnChangeCheck(RelationGetRelid(rel), cmd->name);
}

void
MacCheckRenameColumn(Relation rel, const char *colname)
{
    if (OidIsValid(MacPolicyEnforcementRelationId))
        MacPolicyColumnChangeCheck(RelationGetRelid(rel), colname);
}

/* ---------------------------------------------------------------------
 * Labelled views, functions and procedures
 * --------------------------------------------------------------------- */

/*
 * The oids of every labelled object, so that the far more common
 * unlabelled ones are answered without a catalog scan.  Read again after
 * the catalogs changed.
 */
static HTAB *labelled_objects = NULL;
static uint64 labelled_objects_version = 0;

static void
load_labelled_objects(void)
{
    uint64      version = mac_catalog_version;
    HASHCTL     ctl;
    MacCatalogScan scan;
    HeapTuple   tuple;

    if (labelled_objects != NULL)
        hash_destroy(labelled_objects);
    labelled_objects_version = 0;
    ctl.keysize = sizeof(Oid);
    ctl.entrysize = sizeof(Oid);
    ctl.hcxt = CacheMemoryContext;
    labelled_objects = hash_create("lavrel labelled objects", 64, &ctl,
                                   HASH_ELEM | HASH_BLOBS | HASH_CONTEXT);
    mac_scan_begin(&scan, MacObjRelationId, AccessShareLock, 0, NULL);
    while ((tuple = mac_scan_next(&scan)) != NULL)
    {
        Oid         objoid = DatumGetObjectId(mac_scan_getattr(&scan, tuple, mac_col::obj_oid, NULL));

        hash_search(labelled_objects, &objoid, HASH_ENTER, NULL);
    }
    mac_scan_end(&scan);
    labelled_objects_version = version;
}

static bool
object_is_labelled(Oid objoid)
{
    if (labelled_objects_version != mac_catalog_version)
        load_labelled_objects();
    return hash_search(labelled_objects, &objoid, HASH_FIND, NULL) != NULL;
}

/*
 * Refuses the use of a labelled view, function or procedure whose label
 * the session may not read, under any of the policies that label it.
 */
void
ObjMediation(const char *kind, Oid namespace_id, Oid objoid)
{
    ScanKeyData keys[2];
    MacCatalogScan scan;
    HeapTuple   tuple;

    if (!MAC_isenable() || !IsUnderPostmaster || !object_is_labelled(objoid))
        return;

    mac_key_oid(&keys[0], mac_col::obj_namespace, namespace_id);
    mac_key_oid(&keys[1], mac_col::obj_oid, objoid);
    mac_scan_begin(&scan, MacObjRelationId, AccessShareLock, 2, keys);
    while ((tuple = mac_scan_next(&scan)) != NULL)
    {
        bool        isnull;
        Datum       policy = mac_scan_getattr(&scan, tuple, mac_col::obj_policy_oid, &isnull);
        Oid         policy_id = isnull ? InvalidOid : DatumGetObjectId(policy);
        Datum       label = mac_scan_getattr(&scan, tuple, mac_col::obj_label_id, &isnull);
        int32       label_id = isnull ? 0 : DatumGetInt32(label);

        if (LookupLabelAccessResults(policy_id, false, label_id) & MAC_MED_READ)
            continue;
        if (pg_strcasecmp(kind, "view") == 0)
            elog(ERROR, "unauthorized read access for policy %s", get_policy_name(policy_id));
        elog(ERROR, "unauthorized execute access for policy %s", get_policy_name(policy_id));
    }
    mac_scan_end(&scan);
}

/* ---------------------------------------------------------------------
 * Loading and unloading
 * --------------------------------------------------------------------- */

void
_PG_init(void)
{
    host_require_preload();

    DefineCustomBoolVariable("lavrel.enable_mac",
                             "Enable manditory access control.",
                             NULL,
                             &Enable_mac,
                             false,
                             PGC_SIGHUP,
                             0,
                             NULL,
                             assign_enable_mac,
                             NULL);
    EmitWarningsOnPlaceholders("lavrel");
    CacheRegisterRelcacheCallback(mac_relcache_invalidated, (Datum) 0);

    host_install_hooks();
    MacNeedCheckPermisition_hook = MacNeedCheckPermisition;
    MAC_Rewrite_hook = MAC_Rewrite;
    MacForeignKeyAction_hook = MacRewriteForeignKeyAction;
    MacFunctionNotInlinable_hook = MacFunctionNotInlinable;
    MacHiddenPolicyColumn_hook = MacHiddenPolicyColumn;
    policy_process_utility_hook_next = ProcessUtility_hook;
    ProcessUtility_hook = policy_process_utility_hook;
    MacCreateExtensionProcess_hook = MacCreateExtensionProcess;
    MacCheckAlterTable_hook = MacCheckAlterTable;
    MacCheckRenameColumn_hook = MacCheckRenameColumn;
    ObjMediation_hook = ObjMediation;
    MacRelationWritten_hook = MacRelationWritten;
    MacObjectDrop_hook = MacObjectDrop;
    MacRelationTruncate_hook = MacRelationTruncate;
    MacInheritanceLink_hook = MacInheritanceLink;
    SyncMacSession_hook = SyncMacSession;
}

/*
 * PostgreSQL 15 never unloads a library, so this runs only when called
 * explicitly.  The session hook is deliberately left in place, and the
 * resolved ids themselves are kept (only the flag is cleared).
 */
void
_PG_fini(void)
{
    MacNeedCheckPermisition_hook = NULL;
    MacObjectIdsInited = false;
    MAC_Rewrite_hook = NULL;
    MacForeignKeyAction_hook = NULL;
    MacFunctionNotInlinable_hook = NULL;
    MacHiddenPolicyColumn_hook = NULL;
    ProcessUtility_hook = policy_process_utility_hook_next;
    policy_process_utility_hook_next = NULL;
    MacCreateExtensionProcess_hook = NULL;
    MacCheckAlterTable_hook = NULL;
    MacCheckRenameColumn_hook = NULL;
    ObjMediation_hook = NULL;
    MacRelationWritten_hook = NULL;
    MacObjectDrop_hook = NULL;
    MacRelationTruncate_hook = NULL;
    MacInheritanceLink_hook = NULL;
}

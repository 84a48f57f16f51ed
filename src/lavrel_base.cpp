/*
 * lavrel_base.cpp
 *    The base every other file of the module stands on: the
 *    lavrel.enable_mac setting, MAC_isenable (the one test every hook and
 *    SQL function asks before it acts), the oids of the module's catalog
 *    tables and SQL functions, and the counters that tell the caches when
 *    the catalogs changed.
 *
 * The first time MAC_isenable answers true in a backend it resolves the
 * oids of the eight catalog tables and the nine SQL functions the module
 * calls or recognises, and keeps them in the exported globals below for
 * the life of the process (until lavrel.enable_mac is turned off).
 */
#include "lavrel.h"

extern "C" {
bool        Enable_mac = false;
bool        MacNeedToCheckPermisition = true;
bool        MacCreateLavrelExtension = false;

Oid         MacPolicyRelationId = InvalidOid;
Oid         MacLevelRelationId = InvalidOid;
Oid         MacCompartmentRelationId = InvalidOid;
Oid         MacLabelRelationId = InvalidOid;
Oid         MacPolicyEnforcementRelationId = InvalidOid;
Oid         MacPolicyUserRelationId = InvalidOid;
Oid         MacObjRelationId = InvalidOid;
Oid         MacObjectNamesRelationId = InvalidOid;

Oid         GenDefLabelProc = InvalidOid;
Oid         ReadMediationProc = InvalidOid;
Oid         WriteMediationProc = InvalidOid;
Oid         LabelInsertProc = InvalidOid;
Oid         LabelUpdateProc = InvalidOid;
Oid         LabelToCharProc = InvalidOid;
Oid         CharToLabelProc = InvalidOid;
Oid         ReadableLabelsProc = InvalidOid;
Oid         LabelInProc = InvalidOid;
}

/* Whether the seventeen ids below have been resolved in this process. */
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
    {"lavrel_object_names", &MacObjectNamesRelationId},
};

const NamedId mac_functions[] = {
    {"generate_default_label_value", &GenDefLabelProc},
    {"read_mediation", &ReadMediationProc},
    {"write_mediation", &WriteMediationProc},
    {"label_insert", &LabelInsertProc},
    {"label_update", &LabelUpdateProc},
    {"label_to_char", &LabelToCharProc},
    {"char_to_label", &CharToLabelProc},
    {"readable_labels", &ReadableLabelsProc},
    {"label_in", &LabelInProc},
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
uint64      mac_relcache_generation = 1;

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
    mac_relcache_generation++;
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

    if (checked_at != mac_relcache_generation)
    {
        uint64      now = mac_relcache_generation;

        exists = OidIsValid(get_extension_oid("lavrel", true));
        checked_at = now;
    }
    return exists;
}

/* The version of the extension's SQL objects this library works with. */
static const char *const lavrel_sql_version = "1.1";

/* The version of the extension installed in this database, or NULL. */
static char *
installed_version(void)
{
    Relation    rel = table_open(ExtensionRelationId, AccessShareLock);
    ScanKeyData key;
    SysScanDesc scan;
    HeapTuple   tuple;
    char       *version = NULL;

    ScanKeyInit(&key, Anum_pg_extension_extname, BTEqualStrategyNumber, F_NAMEEQ,
                CStringGetDatum("lavrel"));
    scan = systable_beginscan(rel, ExtensionNameIndexId, true, NULL, 1, &key);
    tuple = systable_getnext(scan);
    if (HeapTupleIsValid(tuple))
    {
        bool        isnull;
        Datum       value = heap_getattr(tuple, Anum_pg_extension_extversion,
                                         RelationGetDescr(rel), &isnull);

        if (!isnull)
            version = text_to_cstring(DatumGetTextPP(value));
    }
    systable_endscan(scan);
    table_close(rel, AccessShareLock);
    return version;
}

/*
 * The module's objects could not all be found.  In a database whose
 * extension is of another version (the library was upgraded, the
 * database not yet), that is what the error says; otherwise the
 * installation is damaged.
 */
static void
refuse_missing_object_ids(void)
{
    char       *version = installed_version();

    if (version != NULL && strcmp(version, lavrel_sql_version) != 0)
        ereport(ERROR,
                (errcode(ERRCODE_OBJECT_NOT_IN_PREREQUISITE_STATE),
                 errmsg("the extension lavrel in this database is older than its library"),
                 errdetail("The database has version %s, the library needs version %s.",
                           version, lavrel_sql_version),
                 errhint("Run ALTER EXTENSION lavrel UPDATE.")));
    elog(ERROR, "Init Mac Object ids error");
}

/*
 * Whether access control is in force.  The first time it is in this
 * process, the module's object ids are resolved; one that is missing (a
 * damaged installation) raises an error rather than answering false, so
 * that nothing runs unprotected.
 */
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
        refuse_missing_object_ids();
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

/* The lavrel.enable_mac setting and the invalidation callback; once, at load. */
void
mac_base_init(void)
{
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
}

void
MacCreateExtensionProcess(const char *extname, bool starting)
{
    if (!starting)
        MacCreateLavrelExtension = false;
    else if (extname != NULL && pg_strcasecmp(extname, "lavrel") == 0)
        MacCreateLavrelExtension = true;
}

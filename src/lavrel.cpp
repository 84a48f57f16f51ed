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
}

/* ---------------------------------------------------------------------
 * The gate
 * --------------------------------------------------------------------- */

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
    if (!OidIsValid(get_extension_oid("lavrel", true)))
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

    host_install_hooks();
    MacNeedCheckPermisition_hook = MacNeedCheckPermisition;
    MAC_Rewrite_hook = MAC_Rewrite;
    MacFunctionNotInlinable_hook = MacFunctionNotInlinable;
    MacCreateExtensionProcess_hook = MacCreateExtensionProcess;
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
    MacFunctionNotInlinable_hook = NULL;
    MacCreateExtensionProcess_hook = NULL;
}

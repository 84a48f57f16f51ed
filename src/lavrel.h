/*
 * lavrel.h
 *    The internal API of lavrel: every type, constant, global and function
 *    that one source file of the module calls in another.  What only the
 *    test module reaches is declared in lavrel_testing.h.
 *
 * The files, from the bottom up; each calls only files above it in this
 * list, never one below, and the host layer (host/) only through the hooks
 * of host.h:
 *   host/                    the mapping onto stock PostgreSQL 15: owns
 *                            every stock hook and calls the module through
 *                            the hooks of host.h
 *   label_record.cpp         the label record and its arithmetic
 *   parse_ident.cpp          the names users pass, as identifiers
 *   lavrel_base.cpp          lavrel.enable_mac, MAC_isenable, the module's
 *                            object ids, the catalog version
 *   policy_misc.cpp          permission check, argument checks, int2vector,
 *                            cache and listing helpers
 *   policy_syscat.cpp        every read of the lavrel catalog tables, and
 *                            the scans the writers use
 *   protected_tables.cpp     one cached record per table: its policies
 *   policy_label.cpp         label strings, label ids and texts, label
 *                            administration
 *   policy_cmds.cpp          policies, levels, compartments, table and
 *                            object policies, catalog listings
 *   policy_user.cpp          user authorizations and privileges
 *   policy_refusal.cpp       the DETAIL and HINT of a refused write
 *   policy_session.cpp       the session's labels, its mediation caches and
 *                            the four row checks
 *   rewritemac.cpp           the label filter
 *   policy_utility_stmt_hooking.cpp
 *                            utility statements: the drop, TRUNCATE and
 *                            inheritance guards, COPY under the labels
 *   lavrel.cpp               _PG_init, and the hooks no other file owns
 *
 * Names: those of the SQL interface and of the long-standing internal API
 * (MAC_isenable, get_policy_name, ...) are kept as they are; a function
 * that fills a host hook is named after it (MacObjectDrop fills
 * MacObjectDrop_hook); a catalog lookup of policy_syscat.cpp is
 * get_<what it returns>; every other internal function is mac_lower_case.
 *
 * Everything is declared extern "C": the install script binds SQL functions
 * to these symbols, and the host layer and other modules call them by name.
 */
#ifndef LAVREL_H
#define LAVREL_H

#include "host/host.h"

/* ---------------------------------------------------------------------
 * Bounds and sizes
 * --------------------------------------------------------------------- */

constexpr int MAC_MIN_LEVEL_ID = 1;
constexpr int MAC_MAX_LEVEL_ID = 9999;
constexpr int MAC_MIN_COMP_ID = 1;
constexpr int MAC_MAX_COMP_ID = 9999;
constexpr int32 MAC_MIN_LABEL_ID = 1;
constexpr int32 MAC_MAX_LABEL_ID = 99999999;
constexpr int MAC_MAX_STRING_CHARS = 4000;

inline bool mac_valid_level_id(int id) { return id >= MAC_MIN_LEVEL_ID && id <= MAC_MAX_LEVEL_ID; }
inline bool mac_valid_comp_id(int id) { return id >= MAC_MIN_COMP_ID && id <= MAC_MAX_COMP_ID; }
inline bool mac_valid_label_id(int32 id) { return id >= MAC_MIN_LABEL_ID && id <= MAC_MAX_LABEL_ID; }

/* ---------------------------------------------------------------------
 * Catalog tables: column numbers (the install script fixes the order)
 * --------------------------------------------------------------------- */

namespace mac_col {
/* lavrel_policy */
constexpr AttrNumber policy_oid = 1, policy_name = 2, policy_col_name = 3,
                     policy_col_hidden = 4, policy_enable = 5, policy_natts = 5;
/* lavrel_level and lavrel_compartment share one shape */
constexpr AttrNumber level_policy_oid = 1, level_id = 2, level_name = 3,
                     level_name_copy = 4, level_natts = 4;
constexpr AttrNumber comp_policy_oid = 1, comp_id = 2, comp_name = 3,
                     comp_name_copy = 4, comp_natts = 4;
/* lavrel_label */
constexpr AttrNumber label_id = 1, label_policy_oid = 2, label_level_id = 3,
                     label_compartments = 4, label_reserved = 5, label_natts = 5;
/* lavrel_policy_enforcement */
constexpr AttrNumber enf_policy_oid = 1, enf_relation_oid = 2, enf_natts = 2;
/* lavrel_user */
constexpr AttrNumber user_oid = 1, user_policy_oid = 2, user_privs = 3,
                     user_max_level = 4, user_min_write_level = 5,
                     user_def_level = 6, user_row_level = 7,
                     user_max_read_comps = 8, user_max_write_comps = 9,
                     user_def_comps = 10, user_row_comps = 11,
                     user_min_write_comps = 12, user_natts = 12;
/* lavrel_obj */
constexpr AttrNumber obj_policy_oid = 1, obj_policy_name = 2, obj_type = 3,
                     obj_namespace = 4, obj_oid = 5, obj_label_id = 6,
                     obj_natts = 6;
} // namespace mac_col

extern "C" {

/* ---------------------------------------------------------------------
 * label_record.cpp: the label record and dominance
 * --------------------------------------------------------------------- */

typedef struct MacLabel
{
    int16       level;          /* level id; 0 in a label built empty */
    Bitmapset  *compartments;   /* owned by the label; NULL is empty */
} MacLabel;

typedef enum MacLabelOrder
{
    LABEL_NONCOMPARABLE = 0,
    LABEL_EQUAL = 1,
    LABEL_DOMINATES = 2,
    LABEL_DOMINATED = 3
} MacLabelOrder;

constexpr uint32 MERGE_MAX_LEVEL = 0x01;
constexpr uint32 MERGE_MIN_LEVEL = 0x02;
constexpr uint32 MERGE_UNION = 0x04;
constexpr uint32 MERGE_INTERSECT = 0x08;
constexpr uint32 MERGE_DIFFERENCE = 0x10;
/* The greatest lower bound of two labels: the only merge the system uses. */
constexpr uint32 MERGE_GLB = MERGE_MIN_LEVEL | MERGE_INTERSECT;

PGDLLEXPORT MacLabel *make_mac_label(int16 level, const Bitmapset *compartments);
PGDLLEXPORT MacLabel *copy_mac_label(const MacLabel *label);
PGDLLEXPORT void free_mac_label(MacLabel *label);
PGDLLEXPORT MacLabelOrder compare_mac_label(const MacLabel *a, const MacLabel *b);
PGDLLEXPORT bool strictly_dominates(const MacLabel *a, const MacLabel *b);
PGDLLEXPORT bool dominates(const MacLabel *a, const MacLabel *b);
PGDLLEXPORT MacLabel *merge_label(const MacLabel *a, const MacLabel *b, uint32 options);

/* ---------------------------------------------------------------------
 * parse_ident.cpp
 * --------------------------------------------------------------------- */

PGDLLEXPORT void SplitOneIdentifierString(char *rawstring, char **endp,
                                          char **ident, bool warn);

/* ---------------------------------------------------------------------
 * lavrel_base.cpp: the module's base
 * --------------------------------------------------------------------- */

extern PGDLLEXPORT bool Enable_mac;
extern PGDLLEXPORT bool MacNeedToCheckPermisition;
extern PGDLLEXPORT bool MacCreateLavrelExtension;

extern PGDLLEXPORT Oid MacPolicyRelationId;
extern PGDLLEXPORT Oid MacLevelRelationId;
extern PGDLLEXPORT Oid MacCompartmentRelationId;
extern PGDLLEXPORT Oid MacLabelRelationId;
extern PGDLLEXPORT Oid MacPolicyEnforcementRelationId;
extern PGDLLEXPORT Oid MacPolicyUserRelationId;
extern PGDLLEXPORT Oid MacObjRelationId;
extern PGDLLEXPORT Oid MacObjectNamesRelationId;

extern PGDLLEXPORT Oid GenDefLabelProc;
extern PGDLLEXPORT Oid ReadMediationProc;
extern PGDLLEXPORT Oid WriteMediationProc;
extern PGDLLEXPORT Oid LabelInsertProc;
extern PGDLLEXPORT Oid LabelUpdateProc;
extern PGDLLEXPORT Oid LabelToCharProc;
extern PGDLLEXPORT Oid CharToLabelProc;
extern PGDLLEXPORT Oid ReadableLabelsProc;
extern PGDLLEXPORT Oid LabelInProc;

/* Defines lavrel.enable_mac and watches the catalogs; once, at load. */
void mac_base_init(void);
/*
 * Whether access control is in force in this backend now.  The first time
 * it is, the module's object ids are resolved, and a missing one raises an
 * error.
 */
PGDLLEXPORT bool MAC_isenable(void);
PGDLLEXPORT bool MacNeedCheckPermisition(void);
PGDLLEXPORT void MacCreateExtensionProcess(const char *extname, bool starting);
PGDLLEXPORT void MacRelationWritten(Oid relid);
Oid LookupMacFunctionOid(Oid namespaceId, const char *name);

/*
 * Changes whenever a lavrel catalog changes (in this backend at its next
 * command-counter increment, in others once they take in invalidations)
 * and when the catalog ids are reset.  A cache of catalog contents is
 * current while this still has the value it was built at; it is never 0.
 */
extern uint64 mac_catalog_version;
/* Changes with every relcache invalidation, whatever the relation. */
extern uint64 mac_relcache_generation;

/* ---------------------------------------------------------------------
 * policy_misc.cpp: permission check and argument checks
 * --------------------------------------------------------------------- */

/* Refuses with "enable_mac must be true" while access control is off. */
PGDLLEXPORT void mac_enabled_check(void);
PGDLLEXPORT void MacPermissionCheck(const char *action);
/* MacPermissionCheck, with a hint for those it refuses (NULL: none). */
void mac_permission_check_hint(const char *action, const char *hint);
/*
 * The prologue of every function that changes the catalogs: the permission
 * check, then the refusal in a read-only transaction, then the wait for
 * the turn among the transactions that change the catalogs.
 */
void mac_catalog_change_check(FunctionCallInfo fcinfo, const char *action);
PGDLLEXPORT pg_attribute_noreturn() void RaiseNullArgException(const char *what);
/* A string as a datum of SQL type name, for the columns of listings. */
Datum mac_name_datum(const char *str);
/* A label string as given: refused when empty or over the length limit. */
char *mac_label_string_check(char *str);

/* Each takes one SQL argument as the function manager delivers it. */
PGDLLEXPORT char *CheckPolicyNameArg(bool isnull, Datum value);
PGDLLEXPORT char *CheckPolicyColNameArg(bool isnull, Datum value);
PGDLLEXPORT bool CheckPolicyColumnHideArg(bool isnull, Datum value);
PGDLLEXPORT bool CheckDropColumnArg(bool isnull, Datum value);
PGDLLEXPORT char *CheckLevelNameArg(bool isnull, Datum value);
PGDLLEXPORT int16 CheckLevelIdArg(bool isnull, Datum value);
PGDLLEXPORT char *CheckSetLevelArg(bool isnull, Datum value);
PGDLLEXPORT char *CheckCompartmentNameArg(bool isnull, Datum value);
PGDLLEXPORT int16 CheckCompIdArg(bool isnull, Datum value);
PGDLLEXPORT char *CheckSetCompartmentsArg(bool isnull, Datum value);
PGDLLEXPORT char *CheckLabelStrArg(bool isnull, Datum value);
PGDLLEXPORT int32 CheckLabelIdArg(bool isnull, Datum value);
PGDLLEXPORT char *CheckUserNameArg(bool isnull, Datum value);
PGDLLEXPORT char *CheckPolicyPrivsStrArg(bool isnull, Datum value);
PGDLLEXPORT char *CheckSchemaNameArg(bool isnull, Datum value);
PGDLLEXPORT char *CheckRelNameArg(bool isnull, Datum value);

/* Argument n of the current call, as a (isnull, value) pair for Check*Arg. */
#define MAC_ARG(n) PG_ARGISNULL(n), PG_GETARG_DATUM(n)

PGDLLEXPORT void MacCanProtected(Oid policy_id, Oid relid);

/*
 * Puts a set-returning call in materialize mode with its declared result
 * descriptor, refusing a declaration of other than `ncolumns` columns.
 */
ReturnSetInfo *mac_begin_listing(FunctionCallInfo fcinfo, int ncolumns);
/*
 * The cache context in *context, created under CacheMemoryContext or
 * emptied; `name` is a string constant.
 */
MemoryContext mac_empty_cache_context(MemoryContext *context, const char *name);
/* A hash table keyed by an oid (the first field of its entries), in `context`. */
HTAB *mac_oid_hash_table(const char *name, Size entrysize, MemoryContext context);

PGDLLEXPORT int2vector *bms_to_int2vector(const Bitmapset *set);
PGDLLEXPORT Bitmapset *int2vector_to_bms(const int2vector *vector);

/* ---------------------------------------------------------------------
 * policy_syscat.cpp: catalog scans and lookups
 * --------------------------------------------------------------------- */

/* One user's authorization under one policy (lavrel_user columns 4..12). */
typedef struct UserPolicyAccess
{
    int16       max_level;
    int16       min_write_level;
    int16       def_level;
    int16       row_level;
    Bitmapset  *max_read_comps;
    Bitmapset  *max_write_comps;
    Bitmapset  *def_comps;
    Bitmapset  *row_comps;
    Bitmapset  *min_write_comps;
} UserPolicyAccess;

/* What a row of lavrel_policy says of the policy's column. */
typedef struct MacPolicyRow
{
    char       *column_name;
    bool        column_hidden;
    bool        enabled;
} MacPolicyRow;

/* A label of a view, function or procedure (a row of lavrel_obj). */
typedef struct MacObjectLabel
{
    Oid         object_id;
    Oid         namespace_id;
    Oid         policy_id;
    int32       label_id;
} MacObjectLabel;

/*
 * A scan of one catalog table, through the index of its keys when there is
 * one, returning the tuples a registered snapshot sees.  Every reader and
 * writer of the catalogs goes through it.
 */
constexpr int MAC_MAX_SCAN_KEYS = 3;

typedef struct MacCatalogScan
{
    Relation        rel;
    LOCKMODE        lockmode;
    Snapshot        snapshot;
    SysScanDesc     index_scan;     /* one of the two is set */
    TableScanDesc   table_scan;
    ScanKeyData     keys[MAC_MAX_SCAN_KEYS];
} MacCatalogScan;

/* Scan keys: equality with the comparison procedure of the column's type. */
void mac_key_oid(ScanKey key, AttrNumber attno, Oid value);
void mac_key_int2(ScanKey key, AttrNumber attno, int16 value);
void mac_key_int4(ScanKey key, AttrNumber attno, int32 value);
/* `buf` holds the comparison value and must outlive the scan. */
void mac_key_name(ScanKey key, AttrNumber attno, NameData *buf, const char *value);
/* The two keys of a level's or compartment's row: its policy and its id. */
void mac_element_keys(ScanKey keys, Oid policy_id, int16 id);

void mac_scan_begin(MacCatalogScan *s, Oid relid, LOCKMODE lockmode,
                    int nkeys, ScanKey keys);
HeapTuple mac_scan_next(MacCatalogScan *s);
void mac_scan_end(MacCatalogScan *s);
/* Column of a tuple of the scan; *isnull set when given. */
Datum mac_scan_getattr(MacCatalogScan *s, HeapTuple tuple, AttrNumber attno, bool *isnull);

/*
 * Writers.  Each sends a relcache invalidation of the catalog table, which
 * the caches of this backend take in at its next command-counter increment;
 * mac_catalog_insert makes that increment itself, so that the row it adds
 * is seen by the lookups that follow.
 */
void mac_catalog_insert(Oid relid, Datum *values, bool *nulls);
void mac_catalog_update(MacCatalogScan *s, HeapTuple tuple, Datum *values,
                        bool *nulls, bool *replace);
void mac_catalog_delete(MacCatalogScan *s, HeapTuple tuple);

/* lavrel_policy, lavrel_level, lavrel_compartment */
PGDLLEXPORT char *get_policy_name(Oid policy_id);
PGDLLEXPORT Oid get_policy_id(const char *name);
PGDLLEXPORT Oid get_policy_id_checked(const char *name);
PGDLLEXPORT void policy_object_checked(Oid policy_id);
PGDLLEXPORT char *get_policy_colname(Oid policy_id);
PGDLLEXPORT bool get_policyenabled(Oid policy_id);
PGDLLEXPORT Oid get_policyid_by_colname(const char *colname);
PGDLLEXPORT bool get_policy_colhidden(const char *colname);
/* The policy's row; a policy that does not exist raises an error. */
void get_policy_row(Oid policy_id, MacPolicyRow *row);
PGDLLEXPORT char *get_level_name(Oid policy_id, int16 level_id);
PGDLLEXPORT int16 get_level_id(Oid policy_id, const char *name);
PGDLLEXPORT int16 get_min_level_id(Oid policy_id);
PGDLLEXPORT bool level_id_exists(Oid policy_id, int16 level_id);
PGDLLEXPORT char *get_compartment_name(Oid policy_id, int16 comp_id);
PGDLLEXPORT int16 get_compartment_id(Oid policy_id, const char *name);
PGDLLEXPORT bool compartment_id_exists(Oid policy_id, int16 comp_id);

/* lavrel_label, lavrel_policy_enforcement, lavrel_user */
PGDLLEXPORT Oid get_label_policy_id(int32 label_id);
PGDLLEXPORT int32 get_label_id(Oid policy_id, const MacLabel *label);
/* The label with this id, or NULL; its policy in *policy_id (when given). */
PGDLLEXPORT MacLabel *get_label_and_policy_by_id(int32 label_id, Oid *policy_id);
PGDLLEXPORT bool label_id_exists(int32 label_id);
/* Every label of the policy, read in one scan; their ids, in the same order, in *label_ids. */
PGDLLEXPORT List *get_policy_labels(Oid policy_id, List **label_ids);
PGDLLEXPORT List *get_policyids_on_rel(Oid relid);
PGDLLEXPORT List *get_relids_by_policy(Oid policy_id);
PGDLLEXPORT bool has_policy_applied_to_rel(Oid policy_id, Oid relid);
PGDLLEXPORT uint16 get_user_policy_privilege(Oid policy_id, Oid user_id);
PGDLLEXPORT List *get_all_user_accesses(Oid user_id);
PGDLLEXPORT bool get_user_policy_access(Oid policy_id, Oid user_id, UserPolicyAccess *out);

/* lavrel_obj: every label of every object (MacObjectLabel). */
List *get_object_labels(void);

/*
 * lavrel_object_names: whether a row was written by another database (a
 * dump's or pg_upgrade's source), whose oids the catalogs still hold
 * until lavrel.sync_object_names() has run.
 */
bool object_names_from_elsewhere(void);

/* Every row of catalog `relid`, in physical order, into the store. */
void get_catalog_rows(Oid relid, Tuplestorestate *store, TupleDesc desc);
/* Fills the columns of one listing row from a catalog tuple; nulls are preset to false. */
typedef void (*MacListingRow) (MacCatalogScan *scan, HeapTuple tuple, Datum *values, bool *nulls);
/* Every row of catalog `relid`, made into a row of `desc` by `fill`, into `store`. */
void get_catalog_rows_as(Oid relid, Tuplestorestate *store, TupleDesc desc, MacListingRow fill);

/* Whether any row of a catalog table has `id` in column `attno` (any row at all when either is 0). */
PGDLLEXPORT bool ObjectIsExistById(Oid relid, AttrNumber attno, Oid id);

/*
 * Lock a policy as a database object and re-check that it still exists:
 * the prologue of every administrative function.  mac_lock_policy finds
 * the policy by name and returns its id.
 */
void mac_lock_policy_id(Oid policy_id, LOCKMODE lockmode);
Oid mac_lock_policy(const char *policy_name, LOCKMODE lockmode);

/* ---------------------------------------------------------------------
 * protected_tables.cpp: one record per table
 * --------------------------------------------------------------------- */

/* A policy applied to the table. */
typedef struct MacTablePolicy
{
    Oid         policy_id;
    bool        enabled;
    bool        hidden;         /* its policy column is hidden */
    AttrNumber  attnum;         /* its policy column; 0 if the table has none */
} MacTablePolicy;

typedef struct MacProtectedTable
{
    Oid         relid;          /* key */
    int         npolicies;      /* 0: the table is not protected */
    MacTablePolicy *policies;   /* in catalog order */
} MacProtectedTable;

/*
 * The table's record, read from the catalogs the first time it is asked
 * for after an invalidation.  Valid until the next call.
 */
const MacProtectedTable *mac_protected_table(Oid relid);
bool mac_table_is_protected(Oid relid);
/* The policy whose column is column `attnum` of the table; NULL when it is none. */
const MacTablePolicy *mac_table_column_policy(Oid relid, AttrNumber attnum);
bool mac_table_column_hidden(Oid relid, AttrNumber attnum);
/* The policy's column number in the table; a column that is gone raises an error. */
AttrNumber mac_policy_column_attnum(Oid relid, const MacTablePolicy *policy);

/* ---------------------------------------------------------------------
 * policy_label.cpp: label strings and label ids
 * --------------------------------------------------------------------- */

PGDLLEXPORT MacLabel *CStringToMACLabel(Oid policy_id, char *str);
PGDLLEXPORT int16 CStringToMACLevel(Oid policy_id, char *str);
PGDLLEXPORT Bitmapset *CStringToMACComp(Oid policy_id, char *str);
PGDLLEXPORT char *MacLabelToCString(Oid policy_id, const MacLabel *label);
PGDLLEXPORT int32 char_to_label(const char *policy_name, char *str);
/* The id of the label `str` names in the policy, which the caller holds locked. */
int32 mac_label_id_of_string(Oid policy_id, char *str);
/*
 * get_label_and_policy_by_id, remembered until the catalogs change: the
 * label (not to be freed or changed) or NULL, its policy in *policy_id.
 */
PGDLLEXPORT const MacLabel *mac_label_by_id(int32 label_id, Oid *policy_id);

/* ---------------------------------------------------------------------
 * policy_cmds.cpp: policies, levels, compartments, table policies
 * --------------------------------------------------------------------- */

/*
 * Discards the cached plans of every table under the policy: their shape
 * depends on the policy and on the privileges of its users.
 */
void mac_invalidate_policy_plans(Oid policy_id);

/*
 * A listing for the administrator: after the permission check for
 * `action`, one result row of `ncolumns` per row of catalog `relid`.
 */
Datum mac_list_catalog_rows(FunctionCallInfo fcinfo, const char *action, Oid relid,
                            int ncolumns, MacListingRow fill);

PGDLLEXPORT bool IsPolicyColumn(Oid relid, const char *colname);
/* Refuses a change to a policy column of the table by anyone but the administrator. */
void mac_policy_column_change_check(Oid relid, const char *colname);

/* ---------------------------------------------------------------------
 * policy_user.cpp: privileges
 * --------------------------------------------------------------------- */

constexpr uint16 MAC_PRIV_READ = 0x01;
constexpr uint16 MAC_PRIV_FULL = 0x02;
constexpr uint16 MAC_PRIV_WRITEUP = 0x04;
constexpr uint16 MAC_PRIV_WRITEDOWN = 0x08;
constexpr uint16 MAC_PRIV_WRITEACROSS = 0x10;
constexpr uint16 MAC_PRIV_ALL = 0x1F;

PGDLLEXPORT char *MacPrivsToCstringPrivs(uint16 privs);

/* ---------------------------------------------------------------------
 * policy_refusal.cpp: what a refused write tells the user
 * --------------------------------------------------------------------- */

struct MacSessionLabel;         /* policy_session.cpp, below */

/* The DETAIL and HINT of a refusal; either may be NULL. */
typedef struct MacRefusal
{
    const char *detail;
    const char *hint;
} MacRefusal;

/* Inside ereport(): adds the refusal's DETAIL and HINT to the error. */
int mac_errrefusal(const MacRefusal *why);
/*
 * The refusals of the row checks.  `s` is the session's record for the
 * policy, NULL when the user holds no authorization under it; a row label
 * is named only when `readable` says the session may read it, and
 * `new_writable` is what the insert check answers for the new label.
 */
MacRefusal mac_write_refusal(Oid policy_id, const MacSessionLabel *s, bool isnull,
                             int32 label_id, bool readable);
MacRefusal mac_insert_refusal(Oid policy_id, const MacSessionLabel *s, bool isnull,
                              int32 label_id);
MacRefusal mac_update_refusal(Oid policy_id, const MacSessionLabel *s,
                              bool old_isnull, int32 old_label_id, bool old_readable,
                              bool new_isnull, int32 new_label_id, bool new_writable);
/* Why a new row gets no default label under the policy. */
MacRefusal mac_default_label_refusal(Oid policy_id, const MacSessionLabel *s);

/* ---------------------------------------------------------------------
 * policy_session.cpp: session label state, caches and row checks
 * --------------------------------------------------------------------- */

constexpr uint32 MAC_MED_READ = 0x01;
constexpr uint32 MAC_MED_READ_BY_PRIV = 0x02;
constexpr uint32 MAC_MED_WRITE = 0x04;
constexpr uint32 MAC_MED_WRITE_BY_PRIV = 0x08;
constexpr uint32 MAC_MED_INSERT = 0x10;
constexpr uint32 MAC_MED_INSERT_BY_PRIV = 0x20;
constexpr uint32 MAC_MED_PRIV_READ = 0x40;
constexpr uint32 MAC_MED_PRIV_FULL = 0x80;
constexpr uint32 MAC_MED_UPD_LEVEL = 0x100;
constexpr uint32 MAC_MED_UPD_LEVEL_BY_PRIV = 0x200;
constexpr uint32 MAC_MED_UPD_COMPS = 0x400;
constexpr uint32 MAC_MED_UPD_COMPS_BY_PRIV = 0x800;
constexpr uint32 MAC_MED_UPD_WRITEUP = 0x1000;
constexpr uint32 MAC_MED_UPD_WRITEDOWN = 0x2000;
constexpr uint32 MAC_MED_UPD_WRITEACROSS = 0x4000;

/* What a privilege alone grants when no label test did. */
constexpr uint32 MAC_MED_BY_READ = MAC_MED_READ | MAC_MED_READ_BY_PRIV | MAC_MED_PRIV_READ;  /* 0x43 */
constexpr uint32 MAC_MED_BY_FULL_READ = MAC_MED_READ | MAC_MED_READ_BY_PRIV | MAC_MED_PRIV_FULL; /* 0x83 */
constexpr uint32 MAC_MED_BY_FULL_WRITE = MAC_MED_WRITE | MAC_MED_WRITE_BY_PRIV | MAC_MED_PRIV_FULL; /* 0x8C */
constexpr uint32 MAC_MED_BY_FULL_INSERT = MAC_MED_INSERT | MAC_MED_INSERT_BY_PRIV | MAC_MED_PRIV_FULL; /* 0xB0 */
constexpr uint32 MAC_MED_BY_FULL = 0xBF;     /* every access bit, through FULL */
constexpr uint32 MAC_MED_UPD_SAME = MAC_MED_UPD_LEVEL | MAC_MED_UPD_COMPS;   /* 0x500 */
constexpr uint32 MAC_MED_UPD_BY_FULL = 0xF80;

/* Element of the three session hash tables: the key and its record. */
typedef struct MacHashEntry
{
    uint32      key;
    void       *record;
} MacHashEntry;

typedef struct MacSessionLabel
{
    MacHashEntry *entry;        /* back-link; NULL once removed */
    Oid         user_id;
    MacLabel   *max_read_label;
    MacLabel   *max_write_label;
    MacLabel   *min_write_label;
    MacLabel   *read_label;
    MacLabel   *write_label;
    MacLabel   *row_label;
    uint16      privs;
} MacSessionLabel;

typedef struct MacLabelMediation
{
    MacHashEntry *entry;
    uint32      policy_id;
    uint32      information_mask;
} MacLabelMediation;

typedef struct MacLabelLookupInfo
{
    MacHashEntry *entry;
    int32       default_row_label_id;
    int32       max_label_id;
    int32       min_label_id;
    int32       label_count;
    ArrayType  *readable;       /* ids of the labels the session reads, ascending */
} MacLabelLookupInfo;

/*
 * Brings the session's label state up to date with the catalogs and the
 * session user; a no-op while it is current.
 */
PGDLLEXPORT void SyncMacSession(void);
/* The setting through which parallel workers get the leader's labels. */
void        mac_session_init(void);
/* DISCARD ALL: the session's own labels go. */
PGDLLEXPORT void MacSessionDiscarded(void);
PGDLLEXPORT bool mac_session_reads_all(Oid policy_id);
double      mac_session_readable_share(Oid policy_id);
PGDLLEXPORT uint32 LookupLabelAccessResults(Oid policy_id, bool isnull, int32 label_id);
MacSessionLabel *mac_SessionLabelHTLookup(Oid policy_id);

/* ---------------------------------------------------------------------
 * rewritemac.cpp: the label filter
 * --------------------------------------------------------------------- */

PGDLLEXPORT Query *MAC_Rewrite(Query *query);
PGDLLEXPORT void MacPlanFinished(PlannedStmt *plan);
PGDLLEXPORT Query *MacForeignKeyAction(Query *query);
PGDLLEXPORT bool MacFunctionNotInlinable(HeapTuple proctup);

/* ---------------------------------------------------------------------
 * policy_utility_stmt_hooking.cpp: utility statements
 * --------------------------------------------------------------------- */

PGDLLEXPORT bool policy_process_utility_hook(PlannedStmt *pstmt, const char *queryString,
                                             QueryEnvironment *queryEnv, QueryCompletion *qc);
PGDLLEXPORT void MacObjectDrop(Oid classId, Oid objectId, int subId);
PGDLLEXPORT void MacRelationTruncate(Oid relid);
PGDLLEXPORT void MacInheritanceLink(Oid child, Oid parent);

/* ---------------------------------------------------------------------
 * lavrel.cpp: the module's entry point and hook bodies
 * --------------------------------------------------------------------- */

PGDLLEXPORT void _PG_init(void);
PGDLLEXPORT int MacHiddenPolicyColumn(ParseState *pstate, RangeTblEntry *rte, Var *var);
PGDLLEXPORT void MacCheckAlterTable(Relation rel, AlterTableCmd *cmd);
PGDLLEXPORT void MacCheckRenameColumn(Relation rel, const char *colname);
PGDLLEXPORT void ObjMediation(const char *kind, Oid namespace_id, Oid objoid);

} /* extern "C" */

/*
 * Declares a SQL-callable function with its information function, both with
 * C linkage so that the install script can bind them by name.
 */
#define MAC_SQL_FUNCTION(name) \
    extern "C" { PG_FUNCTION_INFO_V1(name); } \
    extern "C" Datum name(PG_FUNCTION_ARGS)

#endif /* LAVREL_H */

/*
 * policy_syscat.cpp
 *    Every read of the lavrel catalog tables, and the scan helpers that
 *    the writers elsewhere in the module use too.
 *
 * The catalogs are small, ordinary tables; the writers' catalog-tuple calls
 * keep their unique indexes.  Each lookup is a scan with equality scan
 * keys, through the index of its key when there is one, under the latest
 * snapshot (the catalog snapshot in parallel mode), so it sees everything
 * committed so far and the caller's own earlier changes once a
 * command-counter increment has made them visible.  Nothing is cached
 * here: the caches sit above these functions, and every writer below tells
 * them of its change with a relcache invalidation of the catalog table.
 *
 * A lookup that needs a row raises its error with the scan still open; the
 * transaction abort releases the scan, the snapshot and the lock.
 */
#include "lavrel_testing.h"

/* ---------------------------------------------------------------------
 * Scan keys and scans
 * --------------------------------------------------------------------- */

static void
mac_key(ScanKey key, AttrNumber attno, RegProcedure proc, Datum value)
{
    ScanKeyInit(key, attno, BTEqualStrategyNumber, proc, value);
}

void
mac_key_oid(ScanKey key, AttrNumber attno, Oid value)
{
    mac_key(key, attno, F_OIDEQ, ObjectIdGetDatum(value));
}

void
mac_key_int2(ScanKey key, AttrNumber attno, int16 value)
{
    mac_key(key, attno, F_INT2EQ, Int16GetDatum(value));
}

void
mac_key_int4(ScanKey key, AttrNumber attno, int32 value)
{
    mac_key(key, attno, F_INT4EQ, Int32GetDatum(value));
}

void
mac_key_name(ScanKey key, AttrNumber attno, NameData *buf, const char *value)
{
    namestrcpy(buf, value);
    mac_key(key, attno, F_NAMEEQ, NameGetDatum(buf));
}

/*
 * The snapshot catalog reads see: the latest one, except in parallel mode
 * (a parallel worker, or the leader while workers run), where no new
 * snapshot may be taken and the catalog snapshot serves.
 */
static Snapshot
mac_read_snapshot(Oid relid)
{
    return IsInParallelMode() ? GetCatalogSnapshot(relid) : GetLatestSnapshot();
}

/*
 * An index of the catalog that serves the keys: one that holds every keyed
 * column and whose leading column is keyed.  InvalidOid when none does,
 * and the table is read in full.
 */
static Oid
mac_scan_index(Relation rel, int nkeys, const ScanKeyData *keys)
{
    List       *indexes;
    Oid         found = InvalidOid;
    ListCell   *lc;

    if (nkeys == 0)
        return InvalidOid;
    indexes = RelationGetIndexList(rel);
    foreach(lc, indexes)
    {
        /* The table's lock keeps its indexes; their columns come from the cache. */
        HeapTuple   tuple = SearchSysCache1(INDEXRELID, ObjectIdGetDatum(lfirst_oid(lc)));
        const int2vector *columns;
        bool        leading = false;
        int         covered = 0;

        if (!HeapTupleIsValid(tuple))
            elog(ERROR, "cache lookup failed for index %u", lfirst_oid(lc));
        columns = &((Form_pg_index) GETSTRUCT(tuple))->indkey;
        for (int i = 0; i < nkeys; i++)
        {
            leading |= keys[i].sk_attno == columns->values[0];
            for (int j = 0; j < columns->dim1; j++)
                covered += columns->values[j] == keys[i].sk_attno;
        }
        if (leading && covered == nkeys)
            found = lfirst_oid(lc);
        ReleaseSysCache(tuple);
        if (OidIsValid(found))
            break;
    }
    list_free(indexes);
    return found;
}

/*
 * The catalogs are configuration, read by every statement: a serializable
 * transaction must not take predicate locks on them, or every statement
 * would conflict with every change an administrator makes.  The table is
 * therefore scanned under SnapshotAny, which takes no predicate locks, and
 * each tuple is tested against the MVCC snapshot by hand.  A lookup by a
 * unique key goes through its index; any other reads the table straight,
 * without the slot an index scan needs.
 */
void
mac_scan_begin(MacCatalogScan *s, Oid relid, LOCKMODE lockmode,
               int nkeys, ScanKey keys)
{
    Oid         index;

    Assert(nkeys <= MAC_MAX_SCAN_KEYS);
    s->rel = table_open(relid, lockmode);
    s->lockmode = lockmode;
    s->snapshot = RegisterSnapshot(mac_read_snapshot(relid));
    /* An index scan renumbers the keys' columns for the index: it gets a copy. */
    memcpy(s->keys, keys, nkeys * sizeof(ScanKeyData));
    index = mac_scan_index(s->rel, nkeys, keys);
    s->index_scan = NULL;
    s->table_scan = NULL;
    if (OidIsValid(index))
        s->index_scan = systable_beginscan(s->rel, index, true, SnapshotAny, nkeys, s->keys);
    else
        s->table_scan = table_beginscan(s->rel, SnapshotAny, nkeys, s->keys);
}

/* The next tuple of the scan, visible or not, and the buffer that holds it. */
static HeapTuple
mac_scan_next_any(MacCatalogScan *s, Buffer *buffer)
{
    HeapTuple   tuple;

    if (s->table_scan != NULL)
    {
        tuple = heap_getnext(s->table_scan, ForwardScanDirection);
        *buffer = ((HeapScanDesc) s->table_scan)->rs_cbuf;
        return tuple;
    }
    tuple = systable_getnext(s->index_scan);
    *buffer = ((BufferHeapTupleTableSlot *) s->index_scan->slot)->buffer;
    return tuple;
}

HeapTuple
mac_scan_next(MacCatalogScan *s)
{
    HeapTuple   tuple;
    Buffer      buffer;

    while ((tuple = mac_scan_next_any(s, &buffer)) != NULL)
    {
        bool        visible;

        LockBuffer(buffer, BUFFER_LOCK_SHARE);
        visible = HeapTupleSatisfiesVisibility(tuple, s->snapshot, buffer);
        LockBuffer(buffer, BUFFER_LOCK_UNLOCK);
        if (visible)
            return tuple;
    }
    return NULL;
}

void
mac_scan_end(MacCatalogScan *s)
{
    if (s->table_scan != NULL)
        table_endscan(s->table_scan);
    else
        systable_endscan(s->index_scan);
    UnregisterSnapshot(s->snapshot);
    table_close(s->rel, s->lockmode);
}

Datum
mac_scan_getattr(MacCatalogScan *s, HeapTuple tuple, AttrNumber attno, bool *isnull)
{
    bool        dummy;

    return heap_getattr(tuple, attno, RelationGetDescr(s->rel),
                        isnull ? isnull : &dummy);
}

/* ---------------------------------------------------------------------
 * Writers
 * --------------------------------------------------------------------- */

void
mac_catalog_insert(Oid relid, Datum *values, bool *nulls)
{
    Relation    rel = table_open(relid, RowExclusiveLock);
    HeapTuple   tuple = heap_form_tuple(RelationGetDescr(rel), values, nulls);

    CatalogTupleInsert(rel, tuple);
    CacheInvalidateRelcache(rel);
    heap_freetuple(tuple);
    table_close(rel, RowExclusiveLock);
    CommandCounterIncrement();
}

void
mac_catalog_update(MacCatalogScan *s, HeapTuple tuple, Datum *values,
                   bool *nulls, bool *replace)
{
    HeapTuple   newtuple = heap_modify_tuple(tuple, RelationGetDescr(s->rel),
                                             values, nulls, replace);

    CatalogTupleUpdate(s->rel, &tuple->t_self, newtuple);
    CacheInvalidateRelcache(s->rel);
    heap_freetuple(newtuple);
}

void
mac_catalog_delete(MacCatalogScan *s, HeapTuple tuple)
{
    CatalogTupleDelete(s->rel, &tuple->t_self);
    CacheInvalidateRelcache(s->rel);
}

/* ---------------------------------------------------------------------
 * Generic first-row lookups
 * --------------------------------------------------------------------- */

/*
 * Scans `relid` with the given keys and hands the first matching row to
 * `take`, which copies out what it needs.  Returns whether a row matched;
 * with `missing` given, no row raises that message instead (scan left open).
 */
template <typename Take>
static bool
mac_lookup_first(Oid relid, int nkeys, ScanKey keys, Take take,
                 const char *missing = nullptr, int missing_arg = 0)
{
    MacCatalogScan s;
    HeapTuple   tuple;

    mac_scan_begin(&s, relid, AccessShareLock, nkeys, keys);
    tuple = mac_scan_next(&s);
    if (!HeapTupleIsValid(tuple))
    {
        if (missing)
            ereport(ERROR,
                    (errcode(ERRCODE_SYNTAX_ERROR),
                     errmsg_internal(missing, missing_arg)));
        mac_scan_end(&s);
        return false;
    }
    take(&s, tuple);
    mac_scan_end(&s);
    return true;
}

/* Calls `visit` for every matching row, in scan order. */
template <typename Visit>
static void
mac_lookup_all(Oid relid, int nkeys, ScanKey keys, Visit visit)
{
    MacCatalogScan s;
    HeapTuple   tuple;

    mac_scan_begin(&s, relid, AccessShareLock, nkeys, keys);
    while (HeapTupleIsValid(tuple = mac_scan_next(&s)))
        visit(&s, tuple);
    mac_scan_end(&s);
}

static bool
mac_row_exists(Oid relid, int nkeys, ScanKey keys)
{
    return mac_lookup_first(relid, nkeys, keys, [](MacCatalogScan *, HeapTuple) {});
}

/* A copy of a name column, in the caller's memory context. */
static char *
mac_copy_name(MacCatalogScan *s, HeapTuple tuple, AttrNumber attno)
{
    return pstrdup(NameStr(*DatumGetName(mac_scan_getattr(s, tuple, attno, nullptr))));
}

/* ---------------------------------------------------------------------
 * lavrel_policy
 * --------------------------------------------------------------------- */

static void
mac_policy_key(ScanKey key, Oid policy_id)
{
    mac_key_oid(key, mac_col::policy_oid, policy_id);
}

static const char *const policy_missing = "policy %d does not exist";

/* A name column of the policy's row, copied; no row raises policy_missing. */
static char *
policy_name_column(Oid policy_id, AttrNumber attno)
{
    ScanKeyData key;
    char       *name = nullptr;

    mac_policy_key(&key, policy_id);
    mac_lookup_first(MacPolicyRelationId, 1, &key,
                     [&](MacCatalogScan *s, HeapTuple t) {
                         name = mac_copy_name(s, t, attno);
                     },
                     policy_missing, (int) policy_id);
    return name;
}

/* The id of the policy whose name column `attno` equals `name`, or 0. */
static Oid
policy_id_by_name_column(AttrNumber attno, const char *name)
{
    ScanKeyData key;
    NameData    buf;
    Oid         id = InvalidOid;

    mac_key_name(&key, attno, &buf, name);
    mac_lookup_first(MacPolicyRelationId, 1, &key,
                     [&](MacCatalogScan *s, HeapTuple t) {
                         id = DatumGetObjectId(mac_scan_getattr(s, t, mac_col::policy_oid, nullptr));
                     });
    return id;
}

char *
get_policy_name(Oid policy_id)
{
    return policy_name_column(policy_id, mac_col::policy_name);
}

Oid
get_policy_id(const char *name)
{
    return policy_id_by_name_column(mac_col::policy_name, name);
}

Oid
get_policy_id_checked(const char *name)
{
    Oid         id = get_policy_id(name);

    if (!OidIsValid(id))
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("policy \"%s\" does not exist", name)));
    return id;
}

void
policy_object_checked(Oid policy_id)
{
    ScanKeyData key;

    mac_policy_key(&key, policy_id);
    mac_lookup_first(MacPolicyRelationId, 1, &key,
                     [](MacCatalogScan *, HeapTuple) {},
                     policy_missing, (int) policy_id);
}

void
mac_lock_policy_id(Oid policy_id, LOCKMODE lockmode)
{
    LockDatabaseObject(MacPolicyRelationId, policy_id, 0, lockmode);
    policy_object_checked(policy_id);
}

Oid
mac_lock_policy(const char *policy_name, LOCKMODE lockmode)
{
    Oid         policy_id = get_policy_id_checked(policy_name);

    mac_lock_policy_id(policy_id, lockmode);
    return policy_id;
}

char *
get_policy_colname(Oid policy_id)
{
    return policy_name_column(policy_id, mac_col::policy_col_name);
}

bool
get_policyenabled(Oid policy_id)
{
    ScanKeyData key;
    bool        enabled = false;

    mac_policy_key(&key, policy_id);
    mac_lookup_first(MacPolicyRelationId, 1, &key,
                     [&](MacCatalogScan *s, HeapTuple t) {
                         enabled = DatumGetBool(mac_scan_getattr(s, t, mac_col::policy_enable, nullptr));
                     },
                     policy_missing, (int) policy_id);
    return enabled;
}

Oid
get_policyid_by_colname(const char *colname)
{
    return policy_id_by_name_column(mac_col::policy_col_name, colname);
}

bool
get_policy_colhidden(const char *colname)
{
    ScanKeyData key;
    NameData    buf;
    bool        hidden = false;
    bool        found;

    mac_key_name(&key, mac_col::policy_col_name, &buf, colname);
    found = mac_lookup_first(MacPolicyRelationId, 1, &key,
                             [&](MacCatalogScan *s, HeapTuple t) {
                                 hidden = DatumGetBool(mac_scan_getattr(s, t, mac_col::policy_col_hidden, nullptr));
                             });
    if (!found)
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("no policy correspond to policy column %s", colname)));
    return hidden;
}

void
get_policy_row(Oid policy_id, MacPolicyRow *row)
{
    ScanKeyData key;

    mac_policy_key(&key, policy_id);
    mac_lookup_first(MacPolicyRelationId, 1, &key,
                     [&](MacCatalogScan *s, HeapTuple t) {
                         row->column_name = mac_copy_name(s, t, mac_col::policy_col_name);
                         row->column_hidden = DatumGetBool(mac_scan_getattr(s, t, mac_col::policy_col_hidden, nullptr));
                         row->enabled = DatumGetBool(mac_scan_getattr(s, t, mac_col::policy_enable, nullptr));
                     },
                     policy_missing, (int) policy_id);
}

/* ---------------------------------------------------------------------
 * lavrel_level and lavrel_compartment (same shape: policy, id, name)
 * --------------------------------------------------------------------- */

void
mac_element_keys(ScanKey keys, Oid policy_id, int16 id)
{
    mac_key_oid(&keys[0], mac_col::level_policy_oid, policy_id);
    mac_key_int2(&keys[1], mac_col::level_id, id);
}

static char *
mac_element_name(Oid relid, Oid policy_id, int16 id, const char *missing)
{
    ScanKeyData keys[2];
    char       *name = nullptr;

    mac_element_keys(keys, policy_id, id);
    mac_lookup_first(relid, 2, keys,
                     [&](MacCatalogScan *s, HeapTuple t) {
                         name = mac_copy_name(s, t, mac_col::level_name);
                     },
                     missing, id);
    return name;
}

static int16
mac_element_id(Oid relid, Oid policy_id, const char *name)
{
    ScanKeyData keys[2];
    NameData    buf;
    int16       id = 0;

    mac_key_oid(&keys[0], mac_col::level_policy_oid, policy_id);
    mac_key_name(&keys[1], mac_col::level_name, &buf, name);
    mac_lookup_first(relid, 2, keys,
                     [&](MacCatalogScan *s, HeapTuple t) {
                         id = DatumGetInt16(mac_scan_getattr(s, t, mac_col::level_id, nullptr));
                     });
    return id;
}

static bool
mac_element_exists(Oid relid, Oid policy_id, int16 id)
{
    ScanKeyData keys[2];

    mac_element_keys(keys, policy_id, id);
    return mac_row_exists(relid, 2, keys);
}

char *
get_level_name(Oid policy_id, int16 level_id)
{
    return mac_element_name(MacLevelRelationId, policy_id, level_id, "level %d does not exist");
}

int16
get_level_id(Oid policy_id, const char *name)
{
    return mac_element_id(MacLevelRelationId, policy_id, name);
}

bool
level_id_exists(Oid policy_id, int16 level_id)
{
    return mac_element_exists(MacLevelRelationId, policy_id, level_id);
}

char *
get_compartment_name(Oid policy_id, int16 comp_id)
{
    return mac_element_name(MacCompartmentRelationId, policy_id, comp_id,
                            "compartment %d does not exist");
}

int16
get_compartment_id(Oid policy_id, const char *name)
{
    return mac_element_id(MacCompartmentRelationId, policy_id, name);
}

bool
compartment_id_exists(Oid policy_id, int16 comp_id)
{
    return mac_element_exists(MacCompartmentRelationId, policy_id, comp_id);
}

int16
get_min_level_id(Oid policy_id)
{
    ScanKeyData key;
    int16       min = 0;

    mac_key_oid(&key, mac_col::level_policy_oid, policy_id);
    mac_lookup_all(MacLevelRelationId, 1, &key,
                   [&](MacCatalogScan *s, HeapTuple t) {
                       int16 id = DatumGetInt16(mac_scan_getattr(s, t, mac_col::level_id, nullptr));

                       if (!mac_valid_level_id(min) || min > id)
                           min = id;
                   });
    if (!mac_valid_level_id(min))
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("level does not exist")));
    return min;
}

/* ---------------------------------------------------------------------
 * lavrel_label
 * --------------------------------------------------------------------- */

Oid
get_label_policy_id(int32 label_id)
{
    ScanKeyData key;
    Oid         policy_id = InvalidOid;

    mac_key_int4(&key, mac_col::label_id, label_id);
    mac_lookup_first(MacLabelRelationId, 1, &key,
                     [&](MacCatalogScan *s, HeapTuple t) {
                         policy_id = DatumGetObjectId(mac_scan_getattr(s, t, mac_col::label_policy_oid, nullptr));
                     },
                     "label %d does not exist", label_id);
    return policy_id;
}

/* Whether a stored compartment vector holds exactly the members of `set`. */
static bool
mac_vector_equals_set(const int2vector *vec, const Bitmapset *set)
{
    if (vec->dim1 != bms_num_members(set))
        return false;
    for (int i = 0; i < vec->dim1; i++)
        if (!bms_is_member(vec->values[i], set))
            return false;
    return true;
}

int32
get_label_id(Oid policy_id, const MacLabel *label)
{
    ScanKeyData key;
    MacCatalogScan s;
    HeapTuple   tuple;
    int32       label_id = 0;

    mac_key_oid(&key, mac_col::label_policy_oid, policy_id);
    mac_scan_begin(&s, MacLabelRelationId, AccessShareLock, 1, &key);
    while (HeapTupleIsValid(tuple = mac_scan_next(&s)))
    {
        int16       level = DatumGetInt16(mac_scan_getattr(&s, tuple, mac_col::label_level_id, nullptr));
        const int2vector *vec;

        if (level != label->level)
            continue;
        vec = (const int2vector *) DatumGetPointer(
            mac_scan_getattr(&s, tuple, mac_col::label_compartments, nullptr));
        if (mac_vector_equals_set(vec, label->compartments))
        {
            label_id = DatumGetInt32(mac_scan_getattr(&s, tuple, mac_col::label_id, nullptr));
            break;
        }
    }
    mac_scan_end(&s);
    return label_id;
}

/* The label a row of lavrel_label holds. */
static MacLabel *
mac_label_from_row(MacCatalogScan *s, HeapTuple t)
{
    bool        isnull;
    MacLabel   *label = make_mac_label(0, nullptr);
    Datum       comps;

    label->level = DatumGetInt16(mac_scan_getattr(s, t, mac_col::label_level_id, nullptr));
    comps = mac_scan_getattr(s, t, mac_col::label_compartments, &isnull);
    if (isnull)
        return label;

    const int2vector *vec = (const int2vector *) DatumGetPointer(comps);

    for (int i = 0; i < vec->dim1; i++)
        label->compartments = bms_add_member(label->compartments, vec->values[i]);
    return label;
}

MacLabel *
get_label_and_policy_by_id(int32 label_id, Oid *policy_id)
{
    ScanKeyData key;
    MacLabel   *label = nullptr;

    mac_key_int4(&key, mac_col::label_id, label_id);
    mac_lookup_first(MacLabelRelationId, 1, &key,
                     [&](MacCatalogScan *s, HeapTuple t) {
                         label = mac_label_from_row(s, t);
                         if (policy_id)
                             *policy_id = DatumGetObjectId(mac_scan_getattr(s, t, mac_col::label_policy_oid, nullptr));
                     });
    return label;
}

MacLabel *
get_label_by_id(int32 label_id)
{
    return get_label_and_policy_by_id(label_id, nullptr);
}

bool
label_id_exists(int32 label_id)
{
    ScanKeyData key;

    mac_key_int4(&key, mac_col::label_id, label_id);
    return mac_row_exists(MacLabelRelationId, 1, &key);
}

List *
get_policy_labels(Oid policy_id, List **label_ids)
{
    ScanKeyData key;
    List       *labels = NIL;

    *label_ids = NIL;
    mac_key_oid(&key, mac_col::label_policy_oid, policy_id);
    mac_lookup_all(MacLabelRelationId, 1, &key,
                   [&](MacCatalogScan *s, HeapTuple t) {
                       *label_ids = lappend_int(*label_ids, DatumGetInt32(mac_scan_getattr(s, t, mac_col::label_id, nullptr)));
                       labels = lappend(labels, mac_label_from_row(s, t));
                   });
    return labels;
}

/* ---------------------------------------------------------------------
 * lavrel_policy_enforcement
 * --------------------------------------------------------------------- */

/* Every value of column `want` in rows whose column `by` equals `id`. */
static List *
mac_enforcement_oids(AttrNumber by, Oid id, AttrNumber want)
{
    ScanKeyData key;
    List       *oids = NIL;

    mac_key_oid(&key, by, id);
    mac_lookup_all(MacPolicyEnforcementRelationId, 1, &key,
                   [&](MacCatalogScan *s, HeapTuple t) {
                       oids = lappend_oid(oids, DatumGetObjectId(mac_scan_getattr(s, t, want, nullptr)));
                   });
    return oids;
}

List *
get_policyids_on_rel(Oid relid)
{
    return mac_enforcement_oids(mac_col::enf_relation_oid, relid, mac_col::enf_policy_oid);
}

List *
get_relids_by_policy(Oid policy_id)
{
    return mac_enforcement_oids(mac_col::enf_policy_oid, policy_id, mac_col::enf_relation_oid);
}

bool
has_policy_applied_to_rel(Oid policy_id, Oid relid)
{
    ScanKeyData keys[2];

    mac_key_oid(&keys[0], mac_col::enf_policy_oid, policy_id);
    mac_key_oid(&keys[1], mac_col::enf_relation_oid, relid);
    return mac_row_exists(MacPolicyEnforcementRelationId, 2, keys);
}

/* ---------------------------------------------------------------------
 * lavrel_user
 * --------------------------------------------------------------------- */

static void
mac_user_keys(ScanKey keys, Oid policy_id, Oid user_id)
{
    mac_key_oid(&keys[0], mac_col::user_oid, user_id);
    mac_key_oid(&keys[1], mac_col::user_policy_oid, policy_id);
}

uint16
get_user_policy_privilege(Oid policy_id, Oid user_id)
{
    ScanKeyData keys[2];
    uint16      privs = 0;

    mac_user_keys(keys, policy_id, user_id);
    mac_lookup_first(MacPolicyUserRelationId, 2, keys,
                     [&](MacCatalogScan *s, HeapTuple t) {
                         privs = (uint16) DatumGetInt16(mac_scan_getattr(s, t, mac_col::user_privs, nullptr));
                     });
    return privs;
}

List *
get_all_user_accesses(Oid user_id)
{
    ScanKeyData key;
    List       *policies = NIL;

    mac_key_oid(&key, mac_col::user_oid, user_id);
    mac_lookup_all(MacPolicyUserRelationId, 1, &key,
                   [&](MacCatalogScan *s, HeapTuple t) {
                       policies = lappend_oid(policies,
                                              DatumGetObjectId(mac_scan_getattr(s, t, mac_col::user_policy_oid, nullptr)));
                   });
    return policies;
}

static Bitmapset *
mac_user_comps(MacCatalogScan *s, HeapTuple t, AttrNumber attno)
{
    return int2vector_to_bms((const int2vector *) DatumGetPointer(mac_scan_getattr(s, t, attno, nullptr)));
}

static int16
mac_user_level(MacCatalogScan *s, HeapTuple t, AttrNumber attno)
{
    return DatumGetInt16(mac_scan_getattr(s, t, attno, nullptr));
}

bool
get_user_policy_access(Oid policy_id, Oid user_id, UserPolicyAccess *out)
{
    ScanKeyData keys[2];

    mac_user_keys(keys, policy_id, user_id);
    return mac_lookup_first(MacPolicyUserRelationId, 2, keys,
                            [&](MacCatalogScan *s, HeapTuple t) {
                                if (!out)
                                    return;
                                out->max_level = mac_user_level(s, t, mac_col::user_max_level);
                                out->min_write_level = mac_user_level(s, t, mac_col::user_min_write_level);
                                out->def_level = mac_user_level(s, t, mac_col::user_def_level);
                                out->row_level = mac_user_level(s, t, mac_col::user_row_level);
                                out->max_read_comps = mac_user_comps(s, t, mac_col::user_max_read_comps);
                                out->max_write_comps = mac_user_comps(s, t, mac_col::user_max_write_comps);
                                out->def_comps = mac_user_comps(s, t, mac_col::user_def_comps);
                                out->row_comps = mac_user_comps(s, t, mac_col::user_row_comps);
                                out->min_write_comps = mac_user_comps(s, t, mac_col::user_min_write_comps);
                            });
}

/* ---------------------------------------------------------------------
 * lavrel_obj
 * --------------------------------------------------------------------- */

List *
get_object_labels(void)
{
    List       *labels = NIL;

    mac_lookup_all(MacObjRelationId, 0, nullptr,
                   [&](MacCatalogScan *s, HeapTuple t) {
                       MacObjectLabel *label = (MacObjectLabel *) palloc(sizeof(MacObjectLabel));
                       bool        isnull;
                       Datum       policy = mac_scan_getattr(s, t, mac_col::obj_policy_oid, &isnull);

                       label->policy_id = isnull ? InvalidOid : DatumGetObjectId(policy);
                       Datum       id = mac_scan_getattr(s, t, mac_col::obj_label_id, &isnull);

                       label->label_id = isnull ? 0 : DatumGetInt32(id);
                       label->object_id = DatumGetObjectId(mac_scan_getattr(s, t, mac_col::obj_oid, nullptr));
                       label->namespace_id = DatumGetObjectId(mac_scan_getattr(s, t, mac_col::obj_namespace, nullptr));
                       labels = lappend(labels, label);
                   });
    return labels;
}

bool
object_names_from_elsewhere(void)
{
    /* As sync_object_names() writes it: system identifier/extension oid. */
    char       *here = psprintf(INT64_FORMAT "/%u", (int64) GetSystemIdentifier(),
                                get_extension_oid("lavrel", false));
    bool        elsewhere = false;

    mac_lookup_all(MacObjectNamesRelationId, 0, nullptr,
                   [&](MacCatalogScan *s, HeapTuple t) {
                       Datum       origin = mac_scan_getattr(s, t, 1, nullptr);

                       elsewhere |= strcmp(TextDatumGetCString(origin), here) != 0;
                   });
    pfree(here);
    return elsewhere;
}

bool
ObjectIsExistById(Oid relid, AttrNumber attno, Oid id)
{
    ScanKeyData key;
    MacCatalogScan scan;
    bool        keyed = attno != InvalidAttrNumber && OidIsValid(id);

    if (keyed)
        mac_key_oid(&key, attno, id);
    mac_scan_begin(&scan, relid, RowExclusiveLock, keyed ? 1 : 0, keyed ? &key : NULL);
    bool        found = mac_scan_next(&scan) != NULL;

    mac_scan_end(&scan);
    return found;
}

/* ---------------------------------------------------------------------
 * Whole catalogs
 * --------------------------------------------------------------------- */

void
get_catalog_rows_as(Oid relid, Tuplestorestate *store, TupleDesc desc, MacListingRow fill)
{
    MacCatalogScan scan;
    HeapTuple   tuple;
    Datum      *values = (Datum *) palloc(desc->natts * sizeof(Datum));
    bool       *nulls = (bool *) palloc(desc->natts * sizeof(bool));

    mac_scan_begin(&scan, relid, AccessShareLock, 0, NULL);
    while ((tuple = mac_scan_next(&scan)) != NULL)
    {
        memset(nulls, 0, desc->natts * sizeof(bool));
        fill(&scan, tuple, values, nulls);
        tuplestore_putvalues(store, desc, values, nulls);
    }
    mac_scan_end(&scan);
}

void
get_catalog_rows(Oid relid, Tuplestorestate *store, TupleDesc desc)
{
    MacCatalogScan scan;
    HeapTuple   tuple;

    mac_scan_begin(&scan, relid, AccessShareLock, 0, NULL);

    TupleDesc   catdesc = RelationGetDescr(scan.rel);
    Datum      *values = (Datum *) palloc(catdesc->natts * sizeof(Datum));
    bool       *nulls = (bool *) palloc(catdesc->natts * sizeof(bool));

    while ((tuple = mac_scan_next(&scan)) != NULL)
    {
        heap_deform_tuple(tuple, catdesc, values, nulls);
        tuplestore_putvalues(store, desc, values, nulls);
    }
    mac_scan_end(&scan);
}

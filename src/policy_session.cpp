/*
 * policy_session.cpp
 *    The per-backend session label state of lavrel and its caches.
 *
 * For every policy the session user is authorized for, the backend keeps
 * the session's labels and privileges ("User Session Label"), a mediation
 * mask for every label of that policy the session may see ("Label
 * Mediation") and a per-policy summary: the default row label and the range
 * of readable label ids ("Label Lookup Info").  SyncMacSession rebuilds them
 * from the catalogs; the row checks then answer with one or two hash probes.
 *
 * All of it lives in the "MAC Session" memory context, which lasts as long
 * as the backend.  Catalog lookups run in the caller's (per-query) context;
 * only what the caches keep is allocated in the session context, so that a
 * synchronisation on every query leaves nothing behind.
 *
 * This file also holds the SQL functions through which a session changes
 * and inspects its labels, and those that the policy column's default and
 * the query rewrite call for per-policy values.
 */
#include "lavrel_testing.h"

HTAB *MacSessionLabelHT = NULL;
HTAB *MacLabelLookupInfoHT = NULL;
HTAB *MacLabelMediationHT = NULL;

namespace {

MemoryContext MacSessionContext = NULL;

/*
 * The session state stands for the catalogs as of mac_catalog_version and
 * for one session user; 0 while it is being built or must be built again.
 */
uint64      session_state_version = 0;
Oid         session_state_user = InvalidOid;

/* Label changes that a privilege allows; see LookupLabelUpdateResults. */
constexpr uint32 MAC_MED_UPD_BY_WRITEUP =
    MAC_MED_UPD_WRITEUP | MAC_MED_UPD_COMPS | MAC_MED_UPD_LEVEL_BY_PRIV | MAC_MED_UPD_LEVEL;
constexpr uint32 MAC_MED_UPD_BY_WRITEDOWN =
    MAC_MED_UPD_WRITEDOWN | MAC_MED_UPD_COMPS | MAC_MED_UPD_LEVEL_BY_PRIV | MAC_MED_UPD_LEVEL;
constexpr uint32 MAC_MED_UPD_BY_WRITEACROSS =
    MAC_MED_UPD_WRITEACROSS | MAC_MED_UPD_COMPS_BY_PRIV | MAC_MED_UPD_COMPS;
static_assert(MAC_MED_UPD_BY_WRITEUP == 0x1700, "write-up mask");
static_assert(MAC_MED_UPD_BY_WRITEDOWN == 0x2700, "write-down mask");
static_assert(MAC_MED_UPD_BY_WRITEACROSS == 0x4C00, "write-across mask");

} // namespace

/* ---------------------------------------------------------------------
 * Memory context and hash tables
 * --------------------------------------------------------------------- */

void
InitMacSessionMemoryContext(void)
{
    if (MacSessionContext != NULL)
        elog(FATAL, "mac memory context initialize multi-times");
    MacSessionContext = AllocSetContextCreate(TopMemoryContext, "MAC Session",
                                              ALLOCSET_DEFAULT_SIZES);
}

namespace {

HTAB *
create_session_table(const char *name, long nelem)
{
    HASHCTL     ctl;

    ctl.keysize = sizeof(uint32);
    ctl.entrysize = sizeof(MacHashEntry);
    ctl.hash = uint32_hash;
    ctl.hcxt = MacSessionContext;
    return hash_create(name, nelem, &ctl, HASH_FUNCTION | HASH_ELEM | HASH_CONTEXT);
}

/* Creates the context and the three tables the first time it is called. */
void
InitMacSessionState(void)
{
    if (MacSessionContext != NULL)
        return;
    InitMacSessionMemoryContext();
    MacSessionLabelHT = create_session_table("User Session Label", 8);
    MacLabelLookupInfoHT = create_session_table("Label Lookup Info", 8);
    MacLabelMediationHT = create_session_table("Label Mediation", 128);
}

/* The record stored under key, or NULL (also when the table is missing). */
void *
mac_ht_find(HTAB *ht, uint32 key)
{
    MacHashEntry *entry;

    if (ht == NULL)
        return NULL;
    entry = (MacHashEntry *) hash_search(ht, &key, HASH_FIND, NULL);
    return entry != NULL ? entry->record : NULL;
}

/* Counts the changes of the session tables; never 0. */
uint64      session_table_changes = 1;

/*
 * A remembered lookup: the row checks ask for the same policy row after row,
 * and for the few labels of a table again and again.  An answer stands
 * until a session table changes.
 */
struct LastFound
{
    uint64      changes;        /* session_table_changes then; 0: none */
    uint32      key;
    void       *record;
};

LastFound last_session_label;
LastFound last_lookup_info;

/* Recent mediation lookups, by the low bits of the label id. */
constexpr uint32 RECENT_MEDIATIONS = 1024;
static_assert((RECENT_MEDIATIONS & (RECENT_MEDIATIONS - 1)) == 0, "a power of two");
LastFound   recent_mediations[RECENT_MEDIATIONS];

pg_noinline void *
mac_ht_find_and_remember(HTAB *ht, uint32 key, LastFound *last)
{
    *last = {session_table_changes, key, mac_ht_find(ht, key)};
    return last->record;
}

inline void *
mac_ht_find_again(HTAB *ht, uint32 key, LastFound *last)
{
    if (likely(last->changes == session_table_changes && last->key == key))
        return last->record;
    return mac_ht_find_and_remember(ht, key, last);
}

/*
 * The lookups of the row checks, which run once per row: the exported
 * primitives below are these, but calls within this file stay direct.
 */
inline MacSessionLabel *
find_session_label(Oid policy_id)
{
    return (MacSessionLabel *) mac_ht_find_again(MacSessionLabelHT, policy_id,
                                                 &last_session_label);
}

inline MacLabelMediation *
find_mediation(int32 label_id)
{
    uint32      key = (uint32) label_id;

    return (MacLabelMediation *) mac_ht_find_again(MacLabelMediationHT, key,
                                                   &recent_mediations[key & (RECENT_MEDIATIONS - 1)]);
}

inline MacLabelLookupInfo *
find_lookup_info(Oid policy_id)
{
    if (MacLabelLookupInfoHT == NULL)
        elog(ERROR, "may not load lavrel module");
    return (MacLabelLookupInfo *) mac_ht_find_again(MacLabelLookupInfoHT, policy_id,
                                                    &last_lookup_info);
}

/*
 * Links rec under key, both ways.  Returns whether the key was present; a
 * record it displaces loses its back-link so that it cannot remove the
 * element that now belongs to rec.
 */
template <typename Record>
bool
mac_ht_enter(HTAB *ht, uint32 key, Record *rec)
{
    bool        found;
    MacHashEntry *entry = (MacHashEntry *) hash_search(ht, &key, HASH_ENTER, &found);

    session_table_changes++;
    if (found && entry->record != rec)
        static_cast<Record *>(entry->record)->entry = NULL;
    entry->record = rec;
    rec->entry = entry;
    return found;
}

/*
 * Removes the element rec is linked to and clears the back-link.  Returns
 * false only when a linked element could not be found.
 */
template <typename Record>
bool
mac_ht_remove(HTAB *ht, Record *rec)
{
    uint32      key;
    bool        removed;

    if (rec->entry == NULL)
        return true;
    session_table_changes++;
    key = rec->entry->key;
    removed = hash_search(ht, &key, HASH_REMOVE, NULL) != NULL;
    rec->entry = NULL;
    return removed;
}

/*
 * Every element of a table, in scan order.  The scan runs to its end here,
 * so callers may raise errors or change the table while walking the list.
 */
List *
mac_ht_entries(HTAB *ht)
{
    HASH_SEQ_STATUS status;
    MacHashEntry *entry;
    List       *entries = NIL;

    if (ht == NULL)
        return NIL;
    hash_seq_init(&status, ht);
    while ((entry = (MacHashEntry *) hash_seq_search(&status)) != NULL)
        entries = lappend(entries, entry);
    return entries;
}

/* Removes and frees every record of a cache table. */
template <typename Record>
void
empty_session_table(HTAB *ht, void (*remove)(Record *))
{
    List       *entries = mac_ht_entries(ht);
    ListCell   *lc;

    foreach(lc, entries)
    {
        Record     *rec = static_cast<Record *>(((MacHashEntry *) lfirst(lc))->record);

        remove(rec);
        pfree(rec);
    }
    list_free(entries);
}

/* ---------------------------------------------------------------------
 * Records in the session context
 * --------------------------------------------------------------------- */

template <typename Record>
Record *
session_new(void)
{
    return static_cast<Record *>(MemoryContextAllocZero(MacSessionContext, sizeof(Record)));
}

MacLabel *
session_make_label(int16 level, const Bitmapset *compartments)
{
    MemoryContext old = MemoryContextSwitchTo(MacSessionContext);
    MacLabel   *label = make_mac_label(level, compartments);

    MemoryContextSwitchTo(old);
    return label;
}

MacLabel *
session_copy_label(const MacLabel *label)
{
    MemoryContext old = MemoryContextSwitchTo(MacSessionContext);
    MacLabel   *copy = copy_mac_label(label);

    MemoryContextSwitchTo(old);
    return copy;
}

/* The greatest lower bound of a and b, kept in the session context. */
MacLabel *
session_glb(const MacLabel *a, const MacLabel *b)
{
    MemoryContext old = MemoryContextSwitchTo(MacSessionContext);
    MacLabel   *glb = merge_label(a, b, MERGE_GLB);

    MemoryContextSwitchTo(old);
    return glb;
}

/* Replaces the label in *slot by value, which the slot then owns. */
void
replace_label(MacLabel **slot, MacLabel *value)
{
    free_mac_label(*slot);
    *slot = value;
}

/* Moves the label of *from into *to, freeing what *to held. */
void
move_label(MacLabel **to, MacLabel **from)
{
    replace_label(to, *from);
    *from = NULL;
}

void
free_session_label(MacSessionLabel *rec)
{
    free_mac_label(rec->max_read_label);
    free_mac_label(rec->max_write_label);
    free_mac_label(rec->min_write_label);
    free_mac_label(rec->read_label);
    free_mac_label(rec->write_label);
    free_mac_label(rec->row_label);
    pfree(rec);
}

void
remove_session_label(MacSessionLabel *rec)
{
    mac_SessionLabelHTDelete(rec);
    free_session_label(rec);
}

void
lock_policy(Oid policy_id)
{
    LockDatabaseObject(MacPolicyRelationId, policy_id, 0, AccessShareLock);
}

void
unlock_policy(Oid policy_id)
{
    UnlockDatabaseObject(MacPolicyRelationId, policy_id, 0, AccessShareLock);
}

/* ---------------------------------------------------------------------
 * Session labels
 * --------------------------------------------------------------------- */

/* The session labels that the user's authorization under a policy gives. */
MacSessionLabel *
BuildSessionLabel(Oid policy_id, Oid user_id)
{
    UserPolicyAccess access;
    MacSessionLabel *rec;
    MacLabel   *def_label;

    if (!get_user_policy_access(policy_id, user_id, &access))
        return NULL;

    rec = session_new<MacSessionLabel>();
    rec->user_id = user_id;
    rec->max_read_label = session_make_label(access.max_level, access.max_read_comps);
    rec->max_write_label = session_make_label(access.max_level, access.max_write_comps);
    rec->min_write_label = session_make_label(access.min_write_level, access.min_write_comps);
    rec->write_label = session_make_label(access.max_level, access.max_write_comps);
    rec->row_label = session_make_label(access.row_level, access.row_comps);

    def_label = make_mac_label(access.def_level, access.def_comps);
    rec->read_label = session_glb(def_label, rec->min_write_label);
    free_mac_label(def_label);

    rec->privs = get_user_policy_privilege(policy_id, user_id);
    return rec;
}

/*
 * Whether the session's own labels must be dropped for a fresh record of
 * the same user: only when the administrator narrowed the authorization.
 */
bool
must_replace_session_label(const MacSessionLabel *cur, const MacSessionLabel *fresh)
{
    return strictly_dominates(cur->max_read_label, fresh->max_read_label) ||
        strictly_dominates(cur->max_write_label, fresh->max_write_label) ||
        strictly_dominates(fresh->min_write_label, cur->min_write_label);
}

/*
 * Takes the bounds and privileges of fresh into cur, keeping the session's
 * read, write and row labels; the read label stays below the min write
 * label.  fresh is freed.
 */
void
widen_session_label(MacSessionLabel *cur, MacSessionLabel *fresh)
{
    move_label(&cur->max_read_label, &fresh->max_read_label);
    move_label(&cur->max_write_label, &fresh->max_write_label);
    move_label(&cur->min_write_label, &fresh->min_write_label);
    replace_label(&cur->read_label, session_glb(cur->read_label, cur->min_write_label));
    cur->privs = fresh->privs;
    free_session_label(fresh);
}

void
refresh_policy_session_label(Oid policy_id, Oid user_id)
{
    MacSessionLabel *fresh;
    MacSessionLabel *cur;

    lock_policy(policy_id);
    fresh = BuildSessionLabel(policy_id, user_id);
    if (fresh != NULL)
    {
        cur = mac_SessionLabelHTLookup(policy_id);
        if (cur != NULL && !must_replace_session_label(cur, fresh))
            widen_session_label(cur, fresh);
        else
        {
            if (cur != NULL)
                remove_session_label(cur);
            mac_SessionLabelHTInsert(policy_id, fresh);
        }
    }
    unlock_policy(policy_id);
}

/*
 * Drops the session labels of policies the user is no longer authorized
 * for, and every label of another user: a new session user (SET SESSION
 * AUTHORIZATION, RESET, DISCARD ALL) starts from its own authorization, as
 * a new connection of that user would.
 */
void
remove_unauthorized_session_labels(Oid user_id, List *policy_ids)
{
    List       *entries = mac_ht_entries(MacSessionLabelHT);
    ListCell   *lc;

    foreach(lc, entries)
    {
        MacHashEntry *entry = (MacHashEntry *) lfirst(lc);
        MacSessionLabel *rec = (MacSessionLabel *) entry->record;

        if (rec->user_id != user_id || !list_member_oid(policy_ids, entry->key))
            remove_session_label(rec);
    }
    list_free(entries);
}

/* READ and FULL read every row of the policy's tables. */
bool
reads_every_label(const MacSessionLabel *s)
{
    return (s->privs & (MAC_PRIV_READ | MAC_PRIV_FULL)) != 0;
}

/* The policies of which the session reads every label, in oid order. */
List *
policies_read_in_full(void)
{
    List       *entries = mac_ht_entries(MacSessionLabelHT);
    List       *policy_ids = NIL;
    ListCell   *lc;

    foreach(lc, entries)
    {
        const MacSessionLabel *s = (const MacSessionLabel *) ((MacHashEntry *) lfirst(lc))->record;

        if (reads_every_label(s))
            policy_ids = lappend_oid(policy_ids, ((MacHashEntry *) lfirst(lc))->key);
    }
    list_free(entries);
    list_sort(policy_ids, list_oid_cmp);
    return policy_ids;
}

/*
 * Cached plans are shaped by the session user's privileges (a policy whose
 * labels the session reads in full gets no filter) and by the objects the
 * user may call (only they are inlined).  The session user changes under
 * SET SESSION AUTHORIZATION while the current role, all the plan cache
 * knows of, may stay the same (in a SECURITY DEFINER function, say), and
 * the privileges change with the user's authorization.  When either
 * changed, the session's plans are made again; otherwise they stay, as the
 * filter reads the session's labels when it runs.
 */
void
forget_plans_of_another_shape(Oid user_id)
{
    static Oid  planned_for = InvalidOid;
    static List *planned_reading_all = NIL;
    List       *reading_all = policies_read_in_full();

    if ((OidIsValid(planned_for) && planned_for != user_id) ||
        !equal(reading_all, planned_reading_all))
        ResetPlanCache();
    planned_for = user_id;
    list_free(planned_reading_all);
    MemoryContext old = MemoryContextSwitchTo(MacSessionContext);

    planned_reading_all = list_copy(reading_all);
    MemoryContextSwitchTo(old);
    list_free(reading_all);
}

void
RefreshSessionLabels(void)
{
    Oid         user_id = GetSessionUserId();
    List       *policy_ids = get_all_user_accesses(user_id);
    ListCell   *lc;

    remove_unauthorized_session_labels(user_id, policy_ids);
    foreach(lc, policy_ids)
        refresh_policy_session_label(lfirst_oid(lc), user_id);
    list_free(policy_ids);
    forget_plans_of_another_shape(user_id);
}

/* ---------------------------------------------------------------------
 * Label mediation
 * --------------------------------------------------------------------- */

/* What the session may do with rows of a label its max read label dominates. */
uint32
mediation_mask(const MacSessionLabel *s, const MacLabel *label)
{
    bool        full = (s->privs & MAC_PRIV_FULL) != 0;
    bool        writable = dominates(s->write_label, label) &&
        dominates(label, s->min_write_label);
    uint32      mask = 0;

    if (dominates(s->read_label, label))
        mask = MAC_MED_READ;
    else
    {
        if (s->privs & MAC_PRIV_READ)
            mask |= MAC_MED_BY_READ;
        if (full)
            mask |= MAC_MED_BY_FULL_READ;
    }

    if (writable)
        mask |= MAC_MED_WRITE | MAC_MED_INSERT;
    else if (full)
        mask |= MAC_MED_BY_FULL_WRITE | MAC_MED_BY_FULL_INSERT;
    return mask;
}

/* Whether candidate strictly dominates every other label of the list. */
bool
dominates_other_candidates(const MacLabel *candidate, List *candidates)
{
    ListCell   *lc;

    foreach(lc, candidates)
    {
        const MacLabel *other = (const MacLabel *) lfirst(lc);

        if (other != candidate && !strictly_dominates(candidate, other))
            return false;
    }
    return true;
}

/*
 * The id of the candidate for new rows' label that strictly dominates every
 * other candidate, 0 when none does.  Only one can, and a pass that keeps
 * the candidate strictly dominating all seen so far ends on it.
 */
int32
choose_default_row_label(Oid policy_id, List *candidates)
{
    const MacLabel *greatest = NULL;
    ListCell   *lc;

    foreach(lc, candidates)
    {
        const MacLabel *candidate = (const MacLabel *) lfirst(lc);

        if (greatest == NULL || strictly_dominates(candidate, greatest))
            greatest = candidate;
    }
    if (greatest == NULL || !dominates_other_candidates(greatest, candidates))
        return 0;
    return get_label_id(policy_id, greatest);
}

void
count_mediated_label(MacLabelLookupInfo *summary, int32 label_id)
{
    if (summary->label_count == 0 || label_id < summary->min_label_id)
        summary->min_label_id = label_id;
    if (summary->label_count == 0 || label_id > summary->max_label_id)
        summary->max_label_id = label_id;
    summary->label_count++;
}

/*
 * Records the mediation mask of one label, and its id in `readable` when
 * the session reads its rows.  Returns whether the label may become the
 * default row label (the session may insert it and its row label dominates
 * it).
 */
bool
mediate_label(Oid policy_id, const MacSessionLabel *s, int32 label_id,
              const MacLabel *label, MacLabelLookupInfo *summary, List **readable)
{
    MacLabelMediation *rec;

    if (!dominates(s->max_read_label, label))
        return false;

    rec = session_new<MacLabelMediation>();
    rec->policy_id = policy_id;
    rec->information_mask = mediation_mask(s, label);
    mac_LabelMediationHTInsert(label_id, rec);
    count_mediated_label(summary, label_id);
    if (rec->information_mask & MAC_MED_READ)
        *readable = lappend_int(*readable, label_id);
    return (rec->information_mask & MAC_MED_INSERT) && dominates(s->row_label, label);
}

/* An int4 array of `ids` in ascending order, in the session context. */
ArrayType *
session_id_array(List *ids)
{
    MemoryContext old = MemoryContextSwitchTo(MacSessionContext);
    int         n = list_length(ids);
    Datum      *elems = (Datum *) palloc(Max(n, 1) * sizeof(Datum));
    ArrayType  *array;
    int         i = 0;
    ListCell   *lc;

    list_sort(ids, list_int_cmp);
    foreach(lc, ids)
        elems[i++] = Int32GetDatum(lfirst_int(lc));
    array = construct_array(elems, n, INT4OID, sizeof(int32), true, TYPALIGN_INT);
    pfree(elems);
    MemoryContextSwitchTo(old);
    return array;
}

void
free_labels(List *labels)
{
    ListCell   *lc;

    foreach(lc, labels)
        free_mac_label((MacLabel *) lfirst(lc));
    list_free(labels);
}

void
BuildLabelMediation(Oid policy_id, const MacSessionLabel *s)
{
    MacLabelLookupInfo summary = {};
    MacLabelLookupInfo *info;
    List       *label_ids;
    List       *labels;
    List       *candidates = NIL;
    List       *readable = NIL;
    ListCell   *id;
    ListCell   *label;

    lock_policy(policy_id);
    labels = get_policy_labels(policy_id, &label_ids);
    forboth(id, label_ids, label, labels)
    {
        if (mediate_label(policy_id, s, lfirst_int(id), (const MacLabel *) lfirst(label),
                          &summary, &readable))
            candidates = lappend(candidates, lfirst(label));
    }
    summary.default_row_label_id = choose_default_row_label(policy_id, candidates);
    summary.readable = session_id_array(readable);
    list_free(candidates);
    list_free(readable);
    free_labels(labels);
    list_free(label_ids);

    info = session_new<MacLabelLookupInfo>();
    *info = summary;
    mac_LabelLookupInfoHTInsert(policy_id, info);
    unlock_policy(policy_id);
}

/* ---------------------------------------------------------------------
 * Synchronisation
 * --------------------------------------------------------------------- */

/*
 * Session labels exist only in user backends with access control on, and
 * in the parallel workers of such backends: a worker derives the state
 * from the catalogs for the leader's user, as the leader did, so that the
 * views and functions its part of a plan uses are mediated as in the
 * leader.
 */
bool
session_sync_applies(void)
{
    Oid         user_id;
    bool        security_definer;

    if (!IsUnderPostmaster || Mode == BootstrapProcessing)
        return false;
    if (IsAutoVacuumLauncherProcess() || IsAutoVacuumWorkerProcess())
        return false;
    if ((IsBackgroundWorker && !IsParallelWorker()) || am_walsender || IsLogicalLauncher())
        return false;
    GetUserIdAndContext(&user_id, &security_definer);
    if (!OidIsValid(user_id))
        return false;
    /*
     * Take in what other backends committed, as a read of the catalogs
     * would see it: their changes must reach the session state (and the
     * answer about the extension) before this statement runs.
     */
    if (IsTransactionState())
        AcceptInvalidationMessages();
    return MAC_isenable();
}

void
build_all_mediations(void)
{
    List       *entries = mac_ht_entries(MacSessionLabelHT);
    ListCell   *lc;

    foreach(lc, entries)
    {
        MacHashEntry *entry = (MacHashEntry *) lfirst(lc);

        BuildLabelMediation(entry->key, (const MacSessionLabel *) entry->record);
    }
    list_free(entries);
}

/* ---------------------------------------------------------------------
 * Row lookups
 * --------------------------------------------------------------------- */

/* What the privileges alone allow on a row. */
uint32
access_by_privileges(uint16 privs)
{
    uint32      mask = 0;

    if (privs & MAC_PRIV_READ)
        mask |= MAC_MED_BY_READ;
    if (privs & MAC_PRIV_FULL)
        mask |= MAC_MED_BY_FULL;
    return mask;
}

/* What the privileges alone allow on a label change. */
uint32
update_by_privileges(uint16 privs)
{
    return (privs & MAC_PRIV_FULL) ? MAC_MED_UPD_BY_FULL : 0;
}

uint32
level_change_mask(int16 old_level, int16 new_level, uint16 privs)
{
    bool        raise = new_level > old_level;
    uint16      needed = raise ? MAC_PRIV_WRITEUP : MAC_PRIV_WRITEDOWN;
    uint32      mask;

    if (new_level == old_level)
        return MAC_MED_UPD_SAME;
    if (privs & needed)
        mask = raise ? MAC_MED_UPD_BY_WRITEUP : MAC_MED_UPD_BY_WRITEDOWN;
    else
        mask = MAC_MED_UPD_COMPS;
    return mask | update_by_privileges(privs);
}

/* The update mask for a change between two labels of one policy. */
uint32
label_change_mask(const MacSessionLabel *s, const MacLabel *old_label,
                  const MacLabel *new_label)
{
    uint32      mask = level_change_mask(old_label->level, new_label->level, s->privs);

    if (!bms_equal(old_label->compartments, new_label->compartments))
    {
        mask &= ~MAC_MED_UPD_COMPS;
        if (s->privs & MAC_PRIV_WRITEACROSS)
            mask |= MAC_MED_UPD_BY_WRITEACROSS;
        mask |= update_by_privileges(s->privs);
    }
    if (s->privs & MAC_PRIV_FULL)
        return mask;
    if (dominates(s->max_write_label, new_label) && dominates(new_label, s->min_write_label))
        return mask;
    return 0;
}

/* ---------------------------------------------------------------------
 * SQL functions
 * --------------------------------------------------------------------- */

/* A session label change requested by SetLabel or SetRowLabel. */
struct SessionLabelChange
{
    Oid         policy_id;
    char       *policy_name;
    char       *label_str;
    MacLabel   *label;
    MacSessionLabel *session;
};

/* What the session functions tell a user they refuse. */
const char *const set_labels_hint =
    "A user's session works with the labels of his authorization, which lavrel.my_labels() shows.";
const char *const show_labels_hint =
    "Any user sees the labels of his own session with lavrel.my_labels().";

void
begin_session_label_change(FunctionCallInfo fcinfo, const char *action,
                           SessionLabelChange *change)
{
    Oid         policy_id;

    mac_permission_check_hint(action, set_labels_hint);
    change->policy_name = CheckPolicyNameArg(MAC_ARG(0));
    change->label_str = CheckLabelStrArg(MAC_ARG(1));
    policy_id = mac_lock_policy(change->policy_name, AccessShareLock);
    change->policy_id = policy_id;
    change->label = CStringToMACLabel(policy_id, change->label_str);
    change->session = mac_SessionLabelHTLookup(policy_id);
    if (change->session == NULL)
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("session label for policy \"%s\" can not be set",
                        change->policy_name)));
}

/* Brings the caches in line with the changed label and frees the request. */
void
end_session_label_change(SessionLabelChange *change)
{
    session_state_version = 0;
    SyncMacSession();
    free_mac_label(change->label);
    pfree(change->label_str);
    pfree(change->policy_name);
}

Oid
policy_id_arg(FunctionCallInfo fcinfo)
{
    if (PG_ARGISNULL(0) || PG_GETARG_OID(0) == InvalidOid)
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("policy id is invalid")));
    return PG_GETARG_OID(0);
}

/* Fills the columns of one result row from a table element. */
typedef void (*RowBuilder) (const MacHashEntry *entry, Datum *values);

/* A set-returning view of one session table. */
struct SessionTableView
{
    const char *action;         /* permission phrase */
    HTAB       *table;
    int         ncolumns;
    RowBuilder  build;
};

constexpr int MAX_VIEW_COLUMNS = 9;

Datum
label_text(Oid policy_id, const MacLabel *label)
{
    return CStringGetTextDatum(MacLabelToCString(policy_id, label));
}

void
session_label_row(const MacHashEntry *entry, Datum *values)
{
    const MacSessionLabel *s = (const MacSessionLabel *) entry->record;
    Oid         policy_id = entry->key;

    values[0] = ObjectIdGetDatum(policy_id);
    values[1] = ObjectIdGetDatum(GetSessionUserId());
    values[2] = CStringGetTextDatum(MacPrivsToCstringPrivs(s->privs));
    values[3] = label_text(policy_id, s->max_read_label);
    values[4] = label_text(policy_id, s->max_write_label);
    values[5] = label_text(policy_id, s->min_write_label);
    values[6] = label_text(policy_id, s->read_label);
    values[7] = label_text(policy_id, s->write_label);
    values[8] = label_text(policy_id, s->row_label);
}

void
lookup_info_row(const MacHashEntry *entry, Datum *values)
{
    const MacLabelLookupInfo *info = (const MacLabelLookupInfo *) entry->record;

    values[0] = ObjectIdGetDatum(entry->key);
    values[1] = Int32GetDatum(info->default_row_label_id);
    values[2] = Int32GetDatum(info->max_label_id);
    values[3] = Int32GetDatum(info->min_label_id);
    values[4] = Int32GetDatum(info->label_count);
}

void
mediation_row(const MacHashEntry *entry, Datum *values)
{
    const MacLabelMediation *med = (const MacLabelMediation *) entry->record;

    values[0] = Int32GetDatum((int32) entry->key);
    values[1] = ObjectIdGetDatum(med->policy_id);
    values[2] = Int32GetDatum((int32) med->information_mask);
}

/*
 * Lists every element of the view's table, in the table's scan order.  All
 * rows are formed at once, so no hash table scan stays open while the
 * caller reads them: a caller that stops early (LIMIT) or a
 * synchronisation meanwhile does no harm.
 */
Datum
show_session_table(FunctionCallInfo fcinfo, const SessionTableView &view)
{
    mac_permission_check_hint(view.action, show_labels_hint);

    ReturnSetInfo *rsinfo = mac_begin_listing(fcinfo, view.ncolumns);
    List       *entries = mac_ht_entries(view.table);
    Datum       values[MAX_VIEW_COLUMNS];
    bool        nulls[MAX_VIEW_COLUMNS] = {};
    ListCell   *lc;

    foreach(lc, entries)
    {
        view.build((const MacHashEntry *) lfirst(lc), values);
        tuplestore_putvalues(rsinfo->setResult, rsinfo->setDesc, values, nulls);
    }
    list_free(entries);
    return (Datum) 0;
}

} // namespace

/* ---------------------------------------------------------------------
 * Table primitives
 * --------------------------------------------------------------------- */

MacSessionLabel *
mac_SessionLabelHTLookup(Oid policy_id)
{
    return find_session_label(policy_id);
}

MacLabelLookupInfo *
mac_LabelLookupInfoHTLookup(Oid policy_id)
{
    return find_lookup_info(policy_id);
}

MacLabelMediation *
mac_LabelMediationHTLookup(int32 label_id)
{
    return find_mediation(label_id);
}

void
mac_SessionLabelHTInsert(Oid policy_id, MacSessionLabel *rec)
{
    if (mac_ht_enter(MacSessionLabelHT, policy_id, rec))
        elog(WARNING, "trying to insert a session label that already exists");
}

void
mac_LabelLookupInfoHTInsert(Oid policy_id, MacLabelLookupInfo *rec)
{
    if (mac_ht_enter(MacLabelLookupInfoHT, policy_id, rec))
        elog(WARNING, "trying to insert a label into lookup information that already exists");
}

void
mac_LabelMediationHTInsert(int32 label_id, MacLabelMediation *rec)
{
    if (mac_ht_enter(MacLabelMediationHT, (uint32) label_id, rec))
        elog(WARNING, "trying to insert a label mediation that already exists");
}

void
mac_SessionLabelHTDelete(MacSessionLabel *rec)
{
    if (!mac_ht_remove(MacSessionLabelHT, rec))
        elog(WARNING, "trying to delete session label that does not exist");
}

void
mac_LabelLookupInfoHTDelete(MacLabelLookupInfo *rec)
{
    if (!mac_ht_remove(MacLabelLookupInfoHT, rec))
        elog(WARNING, "trying to delete label from lookup information that does not exist");
}

/* Removes a lookup summary from its table; the caller frees the record. */
static void
remove_lookup_info(MacLabelLookupInfo *rec)
{
    mac_LabelLookupInfoHTDelete(rec);
    pfree(rec->readable);
}

void
mac_LabelMediationHTDelete(MacLabelMediation *rec)
{
    if (!mac_ht_remove(MacLabelMediationHT, rec))
        elog(WARNING, "trying to delete label mediation that does not exist");
}

/* ---------------------------------------------------------------------
 * Parallel workers
 *
 * A parallel worker filters and mediates with exactly the leader's session
 * labels, which may differ from what the catalogs give (the session may
 * have set its own), so the worker cannot derive them itself.  The leader
 * keeps them as text in the setting lavrel.parallel_session_labels, which
 * PostgreSQL copies into every worker it starts, and the worker builds its
 * mediation caches from them and the catalogs as the leader does.  Only a
 * superuser may set the setting, and no configuration file, so a user
 * cannot hand workers labels of his choosing; a worker that finds no
 * labels there has none, and reads nothing protected.
 *
 * The text: one record per policy, separated by ';', each
 *   policy user privileges label label label label label label
 * with the six labels in MacSessionLabel's order, each "level:c,c,...".
 * --------------------------------------------------------------------- */

static char *parallel_session_labels = NULL;

/* What this backend last put there, and the session tables it came from. */
static char *shipped_labels = NULL;
static uint64 shipped_at_changes = 0;

static MacLabel *MacSessionLabel::*const session_label_fields[] = {
    &MacSessionLabel::max_read_label, &MacSessionLabel::max_write_label,
    &MacSessionLabel::min_write_label, &MacSessionLabel::read_label,
    &MacSessionLabel::write_label, &MacSessionLabel::row_label,
};

static void
append_label_text(StringInfo buf, const MacLabel *label)
{
    int         c = -1;
    char        separator = ':';

    appendStringInfo(buf, " %d", label->level);
    while ((c = bms_next_member(label->compartments, c)) >= 0)
    {
        appendStringInfo(buf, "%c%d", separator, c);
        separator = ',';
    }
    if (separator == ':')
        appendStringInfoChar(buf, ':');
}

static char *
session_labels_text(void)
{
    List       *entries = mac_ht_entries(MacSessionLabelHT);
    StringInfoData buf;
    ListCell   *lc;

    initStringInfo(&buf);
    foreach(lc, entries)
    {
        MacHashEntry *entry = (MacHashEntry *) lfirst(lc);
        const MacSessionLabel *rec = (const MacSessionLabel *) entry->record;

        appendStringInfo(&buf, "%s%u %u %u", buf.len > 0 ? ";" : "", entry->key,
                         rec->user_id, (unsigned) rec->privs);
        for (MacLabel *MacSessionLabel::*field : session_label_fields)
            append_label_text(&buf, rec->*field);
    }
    list_free(entries);
    return buf.data;
}

/*
 * Puts the session's labels where parallel workers find them, when they
 * changed or the setting lost them (a transaction or function that set it
 * was undone).  Not possible, and not needed, in parallel mode: the
 * session's labels cannot change during a parallel operation.
 */
static void
ship_session_labels(void)
{
    char       *text;

    if (IsParallelWorker() || IsInParallelMode())
        return;
    if (shipped_at_changes == session_table_changes && shipped_labels != NULL &&
        parallel_session_labels != NULL && strcmp(parallel_session_labels, shipped_labels) == 0)
        return;
    text = session_labels_text();
    (void) set_config_option("lavrel.parallel_session_labels", text, PGC_SUSET, PGC_S_SESSION,
                             GUC_ACTION_SET, true, 0, false);
    if (shipped_labels != NULL)
        pfree(shipped_labels);
    shipped_labels = MemoryContextStrdup(MacSessionContext, text);
    shipped_at_changes = session_table_changes;
    pfree(text);
}

static void
malformed_session_labels(void)
{
    elog(ERROR, "malformed lavrel.parallel_session_labels");
}

static long
read_number(char **cursor)
{
    char       *end;
    long        value = strtol(*cursor, &end, 10);

    if (end == *cursor)
        malformed_session_labels();
    *cursor = end;
    return value;
}

static MacLabel *
read_label_text(char **cursor)
{
    int16       level = (int16) read_number(cursor);
    Bitmapset  *compartments = NULL;
    MacLabel   *label;

    if (**cursor != ':')
        malformed_session_labels();
    while (**cursor == ':' || **cursor == ',')
    {
        (*cursor)++;
        if (isdigit((unsigned char) **cursor))
            compartments = bms_add_member(compartments, (int) read_number(cursor));
    }
    label = session_make_label(level, compartments);
    bms_free(compartments);
    return label;
}

/* A parallel worker's session labels: the leader's, as it shipped them. */
static void
restore_leader_session_labels(void)
{
    char       *cursor = parallel_session_labels;

    remove_unauthorized_session_labels(InvalidOid, NIL);
    while (cursor != NULL && *cursor != '\0')
    {
        MacSessionLabel *rec = session_new<MacSessionLabel>();
        Oid         policy_id = (Oid) read_number(&cursor);

        rec->user_id = (Oid) read_number(&cursor);
        rec->privs = (uint16) read_number(&cursor);
        for (MacLabel *MacSessionLabel::*field : session_label_fields)
            rec->*field = read_label_text(&cursor);
        mac_SessionLabelHTInsert(policy_id, rec);
        if (*cursor == ';')
            cursor++;
        else if (*cursor != '\0')
            malformed_session_labels();
    }
}

/* The setting the leader ships its labels in; once, at load. */
void
mac_session_init(void)
{
    DefineCustomStringVariable("lavrel.parallel_session_labels",
                               "The session labels of the leader, for its parallel workers.",
                               NULL,
                               &parallel_session_labels,
                               "",
                               PGC_SUSET,
                               GUC_NO_SHOW_ALL | GUC_NOT_IN_SAMPLE | GUC_DISALLOW_IN_FILE |
                               GUC_NO_RESET_ALL | GUC_SUPERUSER_ONLY,
                               NULL, NULL, NULL);
}

/* ---------------------------------------------------------------------
 * Synchronisation and accessors
 * --------------------------------------------------------------------- */

static bool
session_state_current(void)
{
    return session_state_version == mac_catalog_version &&
        session_state_user == GetSessionUserId();
}

/*
 * After a restore or pg_upgrade, until sync_object_names() has run, the
 * catalogs name roles, tables, views, functions and schemas by the oids
 * they had in the source: they may name other objects now, or none, and a
 * labelled function with a new oid would run unmediated.  Nothing is
 * mediated on such catalogs; every statement is refused instead.
 */
static void
refuse_catalogs_from_elsewhere(void)
{
    if (object_names_from_elsewhere())
        ereport(ERROR,
                (errcode(ERRCODE_OBJECT_NOT_IN_PREREQUISITE_STATE),
                 errmsg("lavrel's catalogs in this database still refer to objects by their oids in another database"),
                 errdetail("The database was restored from a dump or moved by pg_upgrade, and lavrel.sync_object_names() has not run since."),
                 errhint("Set lavrel.enable_mac to off, run SELECT lavrel.sync_object_names() as the administrator, and set it on again.")));
}

/*
 * Rebuilds the session state from the catalogs.  The mediation caches are
 * emptied first, so an error half-way leaves fewer records, which only
 * denies access, and a state that is built again next time.
 */
static void
rebuild_session_state(void)
{
    uint64      version = mac_catalog_version;

    session_state_version = 0;
    refuse_catalogs_from_elsewhere();
    empty_session_table(MacLabelLookupInfoHT, remove_lookup_info);
    empty_session_table(MacLabelMediationHT, mac_LabelMediationHTDelete);
    if (IsParallelWorker())
        restore_leader_session_labels();
    else
        RefreshSessionLabels();
    build_all_mediations();
    session_state_version = version;
    session_state_user = GetSessionUserId();
}

/*
 * Brings the session state up to date with the catalogs.  It is rebuilt
 * only when something it was built from has changed since: a catalog (any
 * backend's change reaches this one as an invalidation), the session user,
 * or the session's own labels (SetLabel, SetRowLabel).  A state left
 * standing is the one a rebuild would make.
 */
void
SyncMacSession(void)
{
    if (!session_sync_applies())
        return;

    InitMacSessionState();
    if (!session_state_current())
        rebuild_session_state();
    ship_session_labels();
}

/*
 * DISCARD ALL: the session's own labels go, and the next statement starts
 * from the user's authorization, as a new connection does.
 */
void
MacSessionDiscarded(void)
{
    if (MacSessionLabelHT == NULL)
        return;
    remove_unauthorized_session_labels(InvalidOid, NIL);
    session_state_version = 0;
}

/* A field of the policy's lookup summary, 0 when the policy has none. */
static int32
lookup_info_field(Oid policy_id, int32 MacLabelLookupInfo::*field)
{
    MacLabelLookupInfo *info = find_lookup_info(policy_id);

    return info != NULL ? info->*field : 0;
}

/*
 * The share of the labels the session sees (those its max read label
 * dominates) whose rows it reads: the planner's estimate of the rows the
 * label filter keeps.
 */
double
mac_session_readable_share(Oid policy_id)
{
    MacLabelLookupInfo *info = find_lookup_info(policy_id);

    if (info == NULL || info->label_count == 0)
        return 0.0;
    return (double) ArrayGetNItems(ARR_NDIM(info->readable), ARR_DIMS(info->readable)) /
        info->label_count;
}

/* Sessions with READ or FULL read every row of the policy's tables. */
bool
mac_session_reads_all(Oid policy_id)
{
    MacSessionLabel *s = find_session_label(policy_id);

    return s != NULL && reads_every_label(s);
}

/* ---------------------------------------------------------------------
 * Row lookups: one probe per table, no allocation on the read path
 * --------------------------------------------------------------------- */

uint32
LookupLabelAccessResults(Oid policy_id, bool isnull, int32 label_id)
{
    const MacSessionLabel *s = find_session_label(policy_id);

    if (s == NULL)
        return 0;
    if (!isnull && mac_valid_label_id(label_id))
    {
        const MacLabelMediation *med = find_mediation(label_id);

        if (med != NULL && med->policy_id == policy_id)
            return med->information_mask;
    }
    return access_by_privileges(s->privs);
}

static uint32
LookupLabelInsertResults(Oid policy_id, bool isnull, int32 label_id)
{
    return LookupLabelAccessResults(policy_id, isnull, label_id);
}

static uint32
LookupLabelUpdateResults(Oid policy_id, bool old_isnull, int32 old_label,
                         bool new_isnull, int32 new_label)
{
    const MacSessionLabel *s = find_session_label(policy_id);
    Oid         old_policy;
    Oid         new_policy;
    const MacLabel *old_rec;
    const MacLabel *new_rec;

    if (s == NULL)
        return 0;
    if (old_isnull || new_isnull)
        return update_by_privileges(s->privs);
    if (old_label == new_label)
        return MAC_MED_UPD_SAME;
    if (!mac_valid_label_id(old_label) || !mac_valid_label_id(new_label))
        return update_by_privileges(s->privs);

    old_rec = mac_label_by_id(old_label, &old_policy);
    new_rec = mac_label_by_id(new_label, &new_policy);
    if (old_rec == NULL || new_rec == NULL || old_policy != new_policy)
        return update_by_privileges(s->privs);
    return label_change_mask(s, old_rec, new_rec);
}

/* ---------------------------------------------------------------------
 * Row mediation
 *
 * The rewritten queries call these once per row.  Each answer is a probe
 * of the session's mediation caches; none of these functions is strict,
 * so each decides about null arguments itself.  Argument 0 is the policy
 * id (SQL oid), the others are label ids (int4).
 * --------------------------------------------------------------------- */

static bool
policy_arg_valid(FunctionCallInfo fcinfo)
{
    return !PG_ARGISNULL(0) && PG_GETARG_OID(0) != InvalidOid;
}

/* The policy of a write, insert or update check; null or 0 is refused. */
static Oid
write_policy_arg(FunctionCallInfo fcinfo)
{
    if (!policy_arg_valid(fcinfo))
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("write access failed due to invaild policy id")));
    return PG_GETARG_OID(0);
}

/* Label argument n; 0 stands in for null, which callers pass separately. */
static int32
label_arg(FunctionCallInfo fcinfo, int n)
{
    return PG_ARGISNULL(n) ? 0 : PG_GETARG_INT32(n);
}

/* Returns label argument n unchanged, null included. */
static Datum
return_label_arg(FunctionCallInfo fcinfo, int n)
{
    if (PG_ARGISNULL(n))
        PG_RETURN_NULL();
    PG_RETURN_DATUM(PG_GETARG_DATUM(n));
}

/* read_mediation(policy oid, label int4) RETURNS bool: may the row be read */
MAC_SQL_FUNCTION(ReadMediation)
{
    if (!policy_arg_valid(fcinfo))
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("read access failed due to invaild policy id")));

    uint32      mask = LookupLabelAccessResults(PG_GETARG_OID(0), PG_ARGISNULL(1),
                                                label_arg(fcinfo, 1));

    PG_RETURN_BOOL((mask & MAC_MED_READ) != 0);
}

/*
 * write_mediation(policy oid, label int4) RETURNS bool
 *
 * Never answers false: a statement that reaches a row it may not write
 * fails as a whole.
 */
MAC_SQL_FUNCTION(WriteMediation)
{
    Oid         policy_id = write_policy_arg(fcinfo);
    uint32      mask = LookupLabelAccessResults(policy_id, PG_ARGISNULL(1),
                                                label_arg(fcinfo, 1));

    if ((mask & MAC_MED_WRITE) == 0)
    {
        char       *policy_name = get_policy_name(policy_id);
        MacRefusal  why = mac_write_refusal(policy_id, find_session_label(policy_id),
                                            PG_ARGISNULL(1), label_arg(fcinfo, 1),
                                            (mask & MAC_MED_READ) != 0);

        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("unauthorized write access for policy %s", policy_name),
                 mac_errrefusal(&why)));
    }
    PG_RETURN_BOOL(true);
}

/* label_insert(policy oid, label int4) RETURNS int4: the label, if allowed */
MAC_SQL_FUNCTION(LabelInsertCheck)
{
    Oid         policy_id = write_policy_arg(fcinfo);
    uint32      mask = LookupLabelInsertResults(policy_id, PG_ARGISNULL(1),
                                                label_arg(fcinfo, 1));

    if ((mask & MAC_MED_INSERT) == 0)
    {
        MacRefusal  why = mac_insert_refusal(policy_id, find_session_label(policy_id),
                                             PG_ARGISNULL(1), label_arg(fcinfo, 1));

        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("label insert check failed due to invalid new label"),
                 mac_errrefusal(&why)));
    }
    return return_label_arg(fcinfo, 1);
}

/*
 * label_update(policy oid, old_label int4, new_label int4) RETURNS int4:
 * the new label, if the change from the old one is allowed
 */
MAC_SQL_FUNCTION(LabelUpdateCheck)
{
    Oid         policy_id = write_policy_arg(fcinfo);
    uint32      mask = LookupLabelUpdateResults(policy_id,
                                                PG_ARGISNULL(1), label_arg(fcinfo, 1),
                                                PG_ARGISNULL(2), label_arg(fcinfo, 2));

    if ((mask & MAC_MED_UPD_SAME) != MAC_MED_UPD_SAME)
    {
        bool        old_readable = (LookupLabelAccessResults(policy_id, PG_ARGISNULL(1),
                                                             label_arg(fcinfo, 1)) & MAC_MED_READ) != 0;
        bool        new_writable = (LookupLabelInsertResults(policy_id, PG_ARGISNULL(2),
                                                             label_arg(fcinfo, 2)) & MAC_MED_INSERT) != 0;
        MacRefusal  why = mac_update_refusal(policy_id, find_session_label(policy_id),
                                             PG_ARGISNULL(1), label_arg(fcinfo, 1), old_readable,
                                             PG_ARGISNULL(2), label_arg(fcinfo, 2), new_writable);

        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("label update check failed"),
                 mac_errrefusal(&why)));
    }
    return return_label_arg(fcinfo, 2);
}

/* ---------------------------------------------------------------------
 * Session label functions
 * --------------------------------------------------------------------- */

/* Refuses the change unless `upper` dominates `lower`; `message` names the new label. */
static void
require_dominance(const MacLabel *upper, const MacLabel *lower, const char *message,
                  const char *label_str)
{
    if (!dominates(upper, lower))
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg_internal(message, label_str)));
}

/*
 * Tells the session that its new read label is below the label it asked
 * for: the read label never rises above the min write label.
 */
static void
notice_read_label_held(Oid policy_id, const MacSessionLabel *s, const MacLabel *asked)
{
    if (compare_mac_label(s->read_label, asked) == LABEL_EQUAL)
        return;
    ereport(NOTICE,
            (errmsg("session read label under policy \"%s\" is \"%s\", not \"%s\"",
                    get_policy_name(policy_id), MacLabelToCString(policy_id, s->read_label),
                    MacLabelToCString(policy_id, asked)),
             errdetail("The read label is the greatest lower bound of the label asked for "
                       "and the min write label \"%s\".",
                       MacLabelToCString(policy_id, s->min_write_label)),
             errhint("A min write label that dominates the label asked for, set with "
                     "lavrel.set_user_labels(), lets the session read up to it.")));
}

/* Sets the session's read label below its row label. */
MAC_SQL_FUNCTION(SetLabel)
{
    SessionLabelChange change;
    MacSessionLabel *s;

    begin_session_label_change(fcinfo, "set label", &change);
    s = change.session;
    require_dominance(s->row_label, change.label,
                      "cur row label must dominates new label \"%s\"", change.label_str);
    replace_label(&s->read_label, session_glb(change.label, s->min_write_label));
    notice_read_label_held(change.policy_id, s, change.label);
    end_session_label_change(&change);
    PG_RETURN_VOID();
}

/* Sets the session's row label between its min write and write labels. */
MAC_SQL_FUNCTION(SetRowLabel)
{
    SessionLabelChange change;
    MacSessionLabel *s;

    begin_session_label_change(fcinfo, "set row label", &change);
    s = change.session;
    require_dominance(s->write_label, change.label,
                      "cur write label must dominates new row label %s", change.label_str);
    require_dominance(change.label, s->min_write_label,
                      "min write must be dominated by new row label %s", change.label_str);
    replace_label(&s->row_label, session_copy_label(change.label));
    end_session_label_change(&change);
    PG_RETURN_VOID();
}

MAC_SQL_FUNCTION(ShowLabel)
{
    return show_session_table(fcinfo, {"show label", MacSessionLabelHT, 9, session_label_row});
}

MAC_SQL_FUNCTION(ShowLabelLookup)
{
    return show_session_table(fcinfo, {"show label lookup", MacLabelLookupInfoHT, 5, lookup_info_row});
}

MAC_SQL_FUNCTION(ShowLabelMediation)
{
    return show_session_table(fcinfo, {"show lable mediation", MacLabelMediationHT, 3, mediation_row});
}

/* The label string of a label id, null for 0 (no label). */
static Datum
label_id_text(int32 label_id, bool *isnull)
{
    Oid         policy_id;
    const MacLabel *label = label_id != 0 ? mac_label_by_id(label_id, &policy_id) : NULL;

    *isnull = label == NULL;
    return label != NULL ? label_text(policy_id, label) : (Datum) 0;
}

/* The columns of my_labels(), in order. */
enum MyLabelsColumn
{
    MY_POLICY, MY_READ, MY_MIN_WRITE, MY_WRITE, MY_ROW, MY_DEFAULT_ROW, MY_PRIVILEGES,
    MY_NCOLUMNS
};

/*
 * my_labels(): for every policy the session user is authorized under, the
 * session's labels as label strings and its privileges by name.  Any user
 * may call it; with access control off it returns no rows.
 */
MAC_SQL_FUNCTION(MyLabels)
{
    ReturnSetInfo *rsinfo = mac_begin_listing(fcinfo, MY_NCOLUMNS);
    List       *entries;
    ListCell   *lc;

    if (!MAC_isenable())
        return (Datum) 0;
    entries = mac_ht_entries(MacSessionLabelHT);
    foreach(lc, entries)
    {
        const MacHashEntry *entry = (const MacHashEntry *) lfirst(lc);
        const MacSessionLabel *s = (const MacSessionLabel *) entry->record;
        Oid         policy_id = entry->key;
        Datum       values[MY_NCOLUMNS];
        bool        nulls[MY_NCOLUMNS] = {};

        values[MY_POLICY] = mac_name_datum(get_policy_name(policy_id));
        values[MY_READ] = label_text(policy_id, s->read_label);
        values[MY_MIN_WRITE] = label_text(policy_id, s->min_write_label);
        values[MY_WRITE] = label_text(policy_id, s->write_label);
        values[MY_ROW] = label_text(policy_id, s->row_label);
        values[MY_DEFAULT_ROW] = label_id_text(lookup_info_field(policy_id,
                                                                 &MacLabelLookupInfo::default_row_label_id),
                                               &nulls[MY_DEFAULT_ROW]);
        values[MY_PRIVILEGES] = CStringGetTextDatum(MacPrivsToCstringPrivs(s->privs));
        tuplestore_putvalues(rsinfo->setResult, rsinfo->setDesc, values, nulls);
    }
    list_free(entries);
    return (Datum) 0;
}

/* The policy column's default: the session's default row label id. */
MAC_SQL_FUNCTION(GenDefaultLabelValue)
{
    int32       label_id = lookup_info_field(policy_id_arg(fcinfo),
                                         &MacLabelLookupInfo::default_row_label_id);

    if (label_id == 0)
    {
        Oid         policy_id = PG_GETARG_OID(0);
        MacRefusal  why = mac_default_label_refusal(policy_id, find_session_label(policy_id));

        ereport(WARNING,
                (errmsg_internal("can not compute a valid default label using session row label"),
                 mac_errrefusal(&why)));
    }
    PG_RETURN_INT32(label_id);
}

MAC_SQL_FUNCTION(GetPolicyReadMaxLabelId)
{
    PG_RETURN_INT32(lookup_info_field(policy_id_arg(fcinfo), &MacLabelLookupInfo::max_label_id));
}

MAC_SQL_FUNCTION(GetPolicyReadMINLabelId)
{
    PG_RETURN_INT32(lookup_info_field(policy_id_arg(fcinfo), &MacLabelLookupInfo::min_label_id));
}

/*
 * readable_labels(policy oid) RETURNS int4[]: the ids of the labels whose
 * rows the session reads, ascending; empty without an authorization.  The
 * label filter evaluates it once per execution of a statement, so that a
 * cached plan follows the session's labels and parallel workers receive
 * the leader's answer.  The result is a copy: the session state may be
 * rebuilt while the statement still holds it.
 */
MAC_SQL_FUNCTION(ReadableLabels)
{
    MacLabelLookupInfo *info = find_lookup_info(policy_id_arg(fcinfo));

    if (info == NULL)
        PG_RETURN_ARRAYTYPE_P(construct_empty_array(INT4OID));
    PG_RETURN_ARRAYTYPE_P(DatumGetArrayTypePCopy(PointerGetDatum(info->readable)));
}

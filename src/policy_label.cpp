/*
 * policy_label.cpp
 *    Labels of a policy: the textual form of labels ("level:comp1,comp2"),
 *    label ids and their texts, remembered until the catalogs change, and
 *    the administrative functions that create, alter and drop labels in
 *    lavrel_label.
 *
 * Rows of protected tables carry only a label id; lavrel_label maps the
 * id to its policy, level and compartments.
 */
#include "lavrel_testing.h"

/* ---------------------------------------------------------------------
 * Label strings
 *
 * label       = level-name [ ":" [ comp-name { "," comp-name } [ "," ] ] ]
 *
 * Names are identifiers (unquoted ones folded to lower case); no blank is
 * allowed anywhere outside double quotes.  A label prints as its level
 * name, a colon, and its compartment names in ascending id order.
 * --------------------------------------------------------------------- */

/*
 * Reads the level name at the start of `str` and returns its id in the
 * policy; *end (when given) is set just behind the name.
 */
static int16
parse_label_level(Oid policy_id, char *str, char **end)
{
    char       *stop;
    char       *name;

    SplitOneIdentifierString(str, &stop, &name, true);
    if (*stop != ':' && *stop != '\0')
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("label format is invalid near or at the level name")));

    int16       level = get_level_id(policy_id, name);

    if (!mac_valid_level_id(level))
    {
        char       *policy_name = get_policy_name(policy_id);

        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("level \"%s\" does not exist in policy \"%s\"",
                        name, policy_name)));
    }
    pfree(name);

    if (end != NULL)
        *end = stop;
    return level;
}

/*
 * Reads a comma-separated list of compartment names (possibly empty, with
 * an optional trailing comma) and returns the set of their ids; *end (when
 * given) is set where reading stopped.
 */
static Bitmapset *
parse_label_comps(Oid policy_id, char *str, char **end)
{
    Bitmapset  *comps = NULL;
    char       *pos = str;

    while (*pos != '\0')
    {
        char       *name;

        SplitOneIdentifierString(pos, &pos, &name, true);
        if (*pos != ',' && *pos != '\0')
            ereport(ERROR,
                    (errcode(ERRCODE_SYNTAX_ERROR),
                     errmsg("label format is invalid near or at the compartment name")));

        int16       comp = get_compartment_id(policy_id, name);

        if (!mac_valid_comp_id(comp))
        {
            char       *policy_name = get_policy_name(policy_id);

            ereport(ERROR,
                    (errcode(ERRCODE_SYNTAX_ERROR),
                     errmsg("compartment \"%s\" does not exist in policy \"%s\"",
                            name, policy_name)));
        }
        /* by id, so two spellings that fold to one name are duplicates */
        if (bms_is_member(comp, comps))
            ereport(ERROR,
                    (errcode(ERRCODE_SYNTAX_ERROR),
                     errmsg("compartment \"%s\" already exists in label", name)));
        comps = bms_add_member(comps, comp);
        pfree(name);

        if (*pos == ',')
            pos++;
    }

    if (end != NULL)
        *end = pos;
    return comps;
}

/* Parses a whole label string of the policy. */
MacLabel *
CStringToMACLabel(Oid policy_id, char *str)
{
    char       *pos;
    int16       level = parse_label_level(policy_id, str, &pos);
    Bitmapset  *comps = NULL;

    if (*pos == ':')
        comps = parse_label_comps(policy_id, pos + 1, &pos);
    if (*pos != '\0')
        ereport(ERROR,
                (errcode(ERRCODE_INVALID_NAME),
                 errmsg("invalid label string \"%s\"", str)));

    MacLabel   *label = make_mac_label(level, comps);

    bms_free(comps);
    return label;
}

/* Parses a level name alone; unlike a label string, no ":" may follow. */
int16
CStringToMACLevel(Oid policy_id, char *str)
{
    char       *pos;
    int16       level = parse_label_level(policy_id, str, &pos);

    if (*pos != '\0')
        ereport(ERROR,
                (errcode(ERRCODE_INVALID_NAME),
                 errmsg("invalid level string \"%s\"", str)));
    return level;
}

/* Parses a compartment list alone; an empty list gives the empty set. */
Bitmapset *
CStringToMACComp(Oid policy_id, char *str)
{
    char       *pos;
    Bitmapset  *comps = parse_label_comps(policy_id, str, &pos);

    if (*pos != '\0')
        ereport(ERROR,
                (errcode(ERRCODE_INVALID_NAME),
                 errmsg("invalid compartments string \"%s\"", str)));
    return comps;
}

/* Prints a label with the names the policy's catalogs store. */
char *
MacLabelToCString(Oid policy_id, const MacLabel *label)
{
    StringInfoData buf;
    char       *name = get_level_name(policy_id, label->level);

    initStringInfo(&buf);
    appendStringInfoString(&buf, name);
    appendStringInfoChar(&buf, ':');
    pfree(name);

    bool        first = true;

    for (int comp = bms_next_member(label->compartments, -1); comp >= 0;
         comp = bms_next_member(label->compartments, comp))
    {
        if (!first)
            appendStringInfoChar(&buf, ',');
        first = false;
        name = get_compartment_name(policy_id, (int16) comp);
        appendStringInfoString(&buf, name);
        pfree(name);
    }
    return buf.data;
}

/* ---------------------------------------------------------------------
 * Label caches
 *
 * COPY converts one label per row: TO prints label ids, FROM reads label
 * strings.  Both directions are answered from caches of what the catalogs
 * hold, emptied whenever the catalogs have changed.
 * --------------------------------------------------------------------- */

/* A label of a policy by value; its compartments live in the cache. */
struct LabelValueKey
{
    Oid         policy_id;
    int16       level;
    const Bitmapset *compartments;
};

struct LabelIdEntry
{
    LabelValueKey key;
    int32       label_id;
};

struct LabelTextEntry
{
    int32       label_id;       /* key */
    char       *text;
};

struct LabelEntry
{
    int32       label_id;       /* key */
    bool        exists;
    Oid         policy_id;
    MacLabel    label;          /* its compartments live in the cache */
};

static MemoryContext label_cache_context = NULL;
static uint64 label_cache_version = 0;
static HTAB *labels_by_id = NULL;       /* label id -> LabelEntry */
static HTAB *label_texts = NULL;        /* label id -> printed label */
static HTAB *label_ids = NULL;          /* LabelValueKey -> label id */
static List *label_ids_policies = NIL;  /* policies whose labels label_ids holds */

static uint32
label_value_hash(const void *key, Size keysize)
{
    const LabelValueKey *k = (const LabelValueKey *) key;

    (void) keysize;
    return hash_combine(hash_combine(murmurhash32(k->policy_id), murmurhash32((uint32) k->level)),
                        bms_hash_value(k->compartments));
}

static int
label_value_match(const void *key1, const void *key2, Size keysize)
{
    const LabelValueKey *a = (const LabelValueKey *) key1;
    const LabelValueKey *b = (const LabelValueKey *) key2;

    (void) keysize;
    return (a->policy_id == b->policy_id && a->level == b->level &&
            bms_equal(a->compartments, b->compartments)) ? 0 : 1;
}

/* Empties the caches when the catalogs have changed since they were filled. */
static void
refresh_label_caches(void)
{
    HASHCTL     ctl;

    if (label_cache_version == mac_catalog_version)
        return;
    mac_empty_cache_context(&label_cache_context, "lavrel labels");
    ctl.hcxt = label_cache_context;
    ctl.keysize = sizeof(int32);
    ctl.entrysize = sizeof(LabelEntry);
    labels_by_id = hash_create("lavrel labels", 64, &ctl, HASH_ELEM | HASH_BLOBS | HASH_CONTEXT);
    ctl.entrysize = sizeof(LabelTextEntry);
    label_texts = hash_create("lavrel label texts", 64, &ctl,
                              HASH_ELEM | HASH_BLOBS | HASH_CONTEXT);
    ctl.keysize = sizeof(LabelValueKey);
    ctl.entrysize = sizeof(LabelIdEntry);
    ctl.hash = label_value_hash;
    ctl.match = label_value_match;
    label_ids = hash_create("lavrel label ids", 64, &ctl,
                            HASH_ELEM | HASH_FUNCTION | HASH_COMPARE | HASH_CONTEXT);
    label_ids_policies = NIL;
    label_cache_version = mac_catalog_version;
}

/*
 * Enters every label of the policy into label_ids, the first of equal ones
 * as get_label_id finds it.  False, and nothing entered, when the read took
 * in a change of the catalogs.
 */
static bool
load_label_ids(Oid policy_id)
{
    uint64      version = label_cache_version;
    List       *ids;
    List       *policy_labels = get_policy_labels(policy_id, &ids);
    ListCell   *id;
    ListCell   *label;
    MemoryContext caller;

    if (mac_catalog_version != version)
        return false;
    caller = MemoryContextSwitchTo(label_cache_context);
    forboth(id, ids, label, policy_labels)
    {
        const MacLabel *l = (const MacLabel *) lfirst(label);
        LabelValueKey key = {policy_id, l->level, bms_copy(l->compartments)};
        bool        found;
        LabelIdEntry *entry = (LabelIdEntry *) hash_search(label_ids, &key, HASH_ENTER, &found);

        if (!found)
            entry->label_id = lfirst_int(id);
    }
    label_ids_policies = lappend_oid(label_ids_policies, policy_id);
    MemoryContextSwitchTo(caller);
    return true;
}

/* get_label_id(policy_id, label), from the cache. */
static int32
cached_label_id(Oid policy_id, const MacLabel *label)
{
    LabelValueKey key = {policy_id, label->level, label->compartments};
    LabelIdEntry *entry;

    refresh_label_caches();
    if (!list_member_oid(label_ids_policies, policy_id) && !load_label_ids(policy_id))
        return get_label_id(policy_id, label);
    entry = (LabelIdEntry *) hash_search(label_ids, &key, HASH_FIND, NULL);
    return entry != NULL ? entry->label_id : 0;
}

/*
 * The label with this id and its policy.  A label read while the catalogs
 * changed is not kept: it is then the caller's, in its memory context.
 */
const MacLabel *
mac_label_by_id(int32 label_id, Oid *policy_id)
{
    LabelEntry *entry;
    MacLabel   *label;
    Oid         policy = InvalidOid;
    MemoryContext caller;

    refresh_label_caches();
    entry = (LabelEntry *) hash_search(labels_by_id, &label_id, HASH_FIND, NULL);
    if (entry == NULL)
    {
        label = get_label_and_policy_by_id(label_id, &policy);
        if (label_cache_version != mac_catalog_version)
        {
            *policy_id = policy;
            return label;
        }
        caller = MemoryContextSwitchTo(label_cache_context);
        entry = (LabelEntry *) hash_search(labels_by_id, &label_id, HASH_ENTER, NULL);
        entry->exists = label != NULL;
        entry->policy_id = policy;
        if (label != NULL)
            entry->label = {label->level, bms_copy(label->compartments)};
        MemoryContextSwitchTo(caller);
        free_mac_label(label);
    }
    *policy_id = entry->policy_id;
    return entry->exists ? &entry->label : NULL;
}

/*
 * The id of the label that `str` names in the policy.  The caller holds a
 * lock on the policy, so that it cannot be dropped under the lookup.
 */
int32
mac_label_id_of_string(Oid policy_id, char *str)
{
    MacLabel   *label = CStringToMACLabel(policy_id, str);
    int32       label_id = cached_label_id(policy_id, label);

    if (!mac_valid_label_id(label_id))
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("label \"%s\" does not exist", str)));
    free_mac_label(label);
    return label_id;
}

/*
 * The id of the label that `str` names in the policy.  Holds a shared lock
 * on the policy to the end of the transaction, so that the policy cannot be
 * dropped under the lookup.
 */
int32
char_to_label(const char *policy_name, char *str)
{
    return mac_label_id_of_string(mac_lock_policy(policy_name, AccessShareLock), str);
}

/* The printed form of the label with this id, read from the catalogs. */
static char *
read_label_text(int32 label_id)
{
    Oid         policy_id;
    const MacLabel *label = mac_label_by_id(label_id, &policy_id);

    if (label == NULL)
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("label id %d does not exist", label_id)));
    return MacLabelToCString(policy_id, label);
}

/* The printed form of the label with this id, a new string. */
static char *
label_to_char(int32 label_id)
{
    LabelTextEntry *known;
    char       *str;

    refresh_label_caches();
    known = (LabelTextEntry *) hash_search(label_texts, &label_id, HASH_FIND, NULL);
    if (known != NULL)
        return pstrdup(known->text);
    str = read_label_text(label_id);
    /* Kept unless the reads took in a change of the catalogs. */
    if (label_cache_version == mac_catalog_version)
    {
        known = (LabelTextEntry *) hash_search(label_texts, &label_id, HASH_ENTER, NULL);
        known->text = MemoryContextStrdup(label_cache_context, str);
    }
    return str;
}

/* label_to_char(label_id int4) RETURNS varchar */
MAC_SQL_FUNCTION(LabelToChar)
{
    /* No administrator needed, but the catalog ids must be resolved. */
    mac_enabled_check();
    int32       label_id = CheckLabelIdArg(MAC_ARG(0));
    char       *str = label_to_char(label_id);
    Datum       result = DirectFunctionCall3(varcharin, CStringGetDatum(str),
                                             ObjectIdGetDatum(InvalidOid),
                                             Int32GetDatum(-1));

    pfree(str);
    PG_RETURN_DATUM(result);
}

/*
 * label(label_id int4) RETURNS text, strict: the label string of a label
 * id, as label_to_char prints it, and null for an id that names no label,
 * so that it can show the policy column of any row a query returns.
 */
MAC_SQL_FUNCTION(LabelText)
{
    int32       label_id = PG_GETARG_INT32(0);
    Oid         policy_id;

    mac_enabled_check();
    if (!mac_valid_label_id(label_id) || mac_label_by_id(label_id, &policy_id) == NULL)
        PG_RETURN_NULL();
    PG_RETURN_TEXT_P(cstring_to_text(label_to_char(label_id)));
}

/* char_to_label(policy_name text, label text) RETURNS int4 */
MAC_SQL_FUNCTION(CharToLabel)
{
    mac_enabled_check();
    char       *policy_name = CheckPolicyNameArg(MAC_ARG(0));
    char       *str = CheckLabelStrArg(MAC_ARG(1));
    int32       label_id = char_to_label(policy_name, str);

    pfree(policy_name);
    pfree(str);
    PG_RETURN_INT32(label_id);
}

/* ---------------------------------------------------------------------
 * Label administration
 *
 * A label id is unique over all policies; within a policy no two labels
 * have the same level and compartments.  Rows and user authorizations
 * refer to labels by id only, so altering a label relabels every row that
 * carries the id, and dropping one leaves such ids dangling.
 * --------------------------------------------------------------------- */

static void
InsertLabelTuple(int32 label_id, Oid policy_id, int16 level,
                 const Bitmapset *compartments)
{
    Datum       values[mac_col::label_natts] = {};
    bool        nulls[mac_col::label_natts] = {};

    values[mac_col::label_id - 1] = Int32GetDatum(label_id);
    values[mac_col::label_policy_oid - 1] = ObjectIdGetDatum(policy_id);
    values[mac_col::label_level_id - 1] = Int16GetDatum(level);
    values[mac_col::label_compartments - 1] =
        PointerGetDatum(bms_to_int2vector(compartments));
    nulls[mac_col::label_reserved - 1] = true;

    mac_catalog_insert(MacLabelRelationId, values, nulls);
}

/*
 * Starts a row-exclusive scan of lavrel_label for the label id and returns
 * its row, or NULL.  `key` must live as long as the scan.
 */
static HeapTuple
begin_label_row_scan(MacCatalogScan *scan, ScanKey key, int32 label_id)
{
    mac_key_int4(key, mac_col::label_id, label_id);
    mac_scan_begin(scan, MacLabelRelationId, RowExclusiveLock, 1, key);
    return mac_scan_next(scan);
}

/* Gives the label a new level and compartments; its other columns stay. */
static void
AlterLabelTuple(int32 label_id, int16 level, const Bitmapset *compartments)
{
    Datum       values[mac_col::label_natts] = {};
    bool        nulls[mac_col::label_natts] = {};
    bool        replace[mac_col::label_natts] = {};
    MacCatalogScan scan;
    ScanKeyData key;

    values[mac_col::label_level_id - 1] = Int16GetDatum(level);
    replace[mac_col::label_level_id - 1] = true;
    values[mac_col::label_compartments - 1] =
        PointerGetDatum(bms_to_int2vector(compartments));
    replace[mac_col::label_compartments - 1] = true;

    HeapTuple   tuple = begin_label_row_scan(&scan, &key, label_id);

    if (!HeapTupleIsValid(tuple))
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("label id %d does not exist", label_id)));
    mac_catalog_update(&scan, tuple, values, nulls, replace);
    mac_scan_end(&scan);
    CommandCounterIncrement();
}

void
RemoveLabelById(int32 label_id)
{
    MacCatalogScan scan;
    ScanKeyData key;
    HeapTuple   tuple = begin_label_row_scan(&scan, &key, label_id);

    if (!HeapTupleIsValid(tuple))
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("label id %d does not exist", label_id)));
    mac_catalog_delete(&scan, tuple);
    mac_scan_end(&scan);
    CommandCounterIncrement();
}

/*
 * Parses a label string for a new or altered label, refusing a level and
 * compartment set that the policy already has a label for.
 */
static MacLabel *
parse_unused_label(Oid policy_id, char *str)
{
    MacLabel   *label = CStringToMACLabel(policy_id, str);

    if (get_label_id(policy_id, label) != 0)
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("label \"%s\" already exists", str)));
    return label;
}

/* Gives an existing label the level and compartments of a new string. */
static void
alter_label(Oid policy_id, int32 label_id, char *new_str)
{
    MacLabel   *label = parse_unused_label(policy_id, new_str);

    AlterLabelTuple(label_id, label->level, label->compartments);
    free_mac_label(label);
}

/* create_label(policy_name text, label text, label_id int4) */
MAC_SQL_FUNCTION(CreateLabel)
{
    mac_catalog_change_check(fcinfo, "create label");
    char       *policy_name = CheckPolicyNameArg(MAC_ARG(0));
    char       *str = CheckLabelStrArg(MAC_ARG(1));
    int32       label_id = CheckLabelIdArg(MAC_ARG(2));
    Oid         policy_id = mac_lock_policy(policy_name, AccessExclusiveLock);

    /* label ids are unique over all policies */
    if (label_id_exists(label_id))
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("label id %d has already been used", label_id)));

    MacLabel   *label = parse_unused_label(policy_id, str);

    InsertLabelTuple(label_id, policy_id, label->level, label->compartments);
    free_mac_label(label);
    pfree(str);
    pfree(policy_name);
    PG_RETURN_VOID();
}

/* alter_label(policy_name text, label_id int4, new_label text) */
MAC_SQL_FUNCTION(AlterLabelById)
{
    mac_catalog_change_check(fcinfo, "alter label");
    char       *policy_name = CheckPolicyNameArg(MAC_ARG(0));
    int32       label_id = CheckLabelIdArg(MAC_ARG(1));
    char       *new_str = CheckLabelStrArg(MAC_ARG(2));
    Oid         policy_id = mac_lock_policy(policy_name, AccessExclusiveLock);

    if (!label_id_exists(label_id))
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("label id %d does not exist", label_id)));
    /* the trailing blank is part of this message */
    if (get_label_policy_id(label_id) != policy_id)
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("label id %d does not exist in policy \"%s\" ",
                        label_id, policy_name)));

    alter_label(policy_id, label_id, new_str);
    pfree(new_str);
    pfree(policy_name);
    PG_RETURN_VOID();
}

/*
 * alter_label(policy_name text, label text, new_label text)
 *
 * Only the shared policy lock of char_to_label is taken here, unlike the
 * by-id path.
 */
MAC_SQL_FUNCTION(AlterLabelByName)
{
    mac_catalog_change_check(fcinfo, "alter label");
    char       *policy_name = CheckPolicyNameArg(MAC_ARG(0));
    char       *str = CheckLabelStrArg(MAC_ARG(1));
    char       *new_str = CheckLabelStrArg(MAC_ARG(2));
    int32       label_id = char_to_label(policy_name, str);

    alter_label(get_policy_id_checked(policy_name), label_id, new_str);
    pfree(new_str);
    pfree(str);
    pfree(policy_name);
    PG_RETURN_VOID();
}

/* drop_label(policy_name text, label_id int4) */
MAC_SQL_FUNCTION(DropLabelById)
{
    mac_catalog_change_check(fcinfo, "drop label");
    char       *policy_name = CheckPolicyNameArg(MAC_ARG(0));
    int32       label_id = CheckLabelIdArg(MAC_ARG(1));
    Oid         policy_id = mac_lock_policy(policy_name, AccessExclusiveLock);

    /* an unknown id fails inside get_label_policy_id */
    if (get_label_policy_id(label_id) != policy_id)
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("label id %d does not exist in policy \"%s\"",
                        label_id, policy_name)));

    RemoveLabelById(label_id);
    PG_RETURN_VOID();
}

/*
 * drop_label(policy_name text, label text)
 *
 * Like the by-name alter, only char_to_label's shared lock is held.
 */
MAC_SQL_FUNCTION(DropLabelByName)
{
    mac_catalog_change_check(fcinfo, "drop label");
    char       *policy_name = CheckPolicyNameArg(MAC_ARG(0));
    char       *str = CheckLabelStrArg(MAC_ARG(1));

    RemoveLabelById(char_to_label(policy_name, str));
    PG_RETURN_VOID();
}

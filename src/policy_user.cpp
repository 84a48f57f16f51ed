/*
 * policy_user.cpp
 *    Users' authorizations under lavrel policies, and their privileges.
 *
 * An authorization is one lavrel_user row per (user, policy): the user's
 * max read, max write, min write, default and row labels, stored as four
 * levels and five compartment sets, plus a privilege mask.  The SQL
 * functions here create, change and remove authorizations; before anything
 * is stored the labels must dominate one another in the expected order.
 * The privilege mask is written as a comma-separated list of privilege
 * names, converted here in both directions.  Every change of an
 * authorization discards the cached plans of the policy's tables, whose
 * filters depend on the privileges of the session's user.
 */
#include "lavrel.h"

namespace {

/* ---------------------------------------------------------------------
 * The lavrel_user row
 * --------------------------------------------------------------------- */

struct LevelColumn
{
    AttrNumber  attno;
    int16 UserPolicyAccess::*field;
};

struct CompColumn
{
    AttrNumber  attno;
    Bitmapset *UserPolicyAccess::*field;
};

constexpr LevelColumn level_columns[] = {
    {mac_col::user_max_level, &UserPolicyAccess::max_level},
    {mac_col::user_min_write_level, &UserPolicyAccess::min_write_level},
    {mac_col::user_def_level, &UserPolicyAccess::def_level},
    {mac_col::user_row_level, &UserPolicyAccess::row_level},
};

constexpr CompColumn comp_columns[] = {
    {mac_col::user_max_read_comps, &UserPolicyAccess::max_read_comps},
    {mac_col::user_max_write_comps, &UserPolicyAccess::max_write_comps},
    {mac_col::user_def_comps, &UserPolicyAccess::def_comps},
    {mac_col::user_row_comps, &UserPolicyAccess::row_comps},
    {mac_col::user_min_write_comps, &UserPolicyAccess::min_write_comps},
};

/*
 * Sets the level and compartment columns of rec that differ from old (all
 * of them when old is NULL) and marks them in set.
 */
void
fill_access_columns(const UserPolicyAccess *old, const UserPolicyAccess *rec,
                    Datum *values, bool *set)
{
    for (const LevelColumn &col : level_columns)
    {
        if (old != NULL && old->*col.field == rec->*col.field)
            continue;
        values[col.attno - 1] = Int16GetDatum(rec->*col.field);
        set[col.attno - 1] = true;
    }
    for (const CompColumn &col : comp_columns)
    {
        if (old != NULL && bms_equal(old->*col.field, rec->*col.field))
            continue;
        values[col.attno - 1] = PointerGetDatum(bms_to_int2vector(rec->*col.field));
        set[col.attno - 1] = true;
    }
}

/* Frees the int2vectors that fill_access_columns made. */
void
free_comp_columns(Datum *values, const bool *set)
{
    for (const CompColumn &col : comp_columns)
    {
        if (set[col.attno - 1])
            pfree(DatumGetPointer(values[col.attno - 1]));
    }
}

/* Starts a scan for the (user, policy) row; returns it, or NULL. */
HeapTuple
begin_user_access_scan(MacCatalogScan *scan, ScanKeyData *keys,
                       Oid policy_id, Oid user_id)
{
    mac_key_oid(&keys[0], mac_col::user_oid, user_id);
    mac_key_oid(&keys[1], mac_col::user_policy_oid, policy_id);
    mac_scan_begin(scan, MacPolicyUserRelationId, RowExclusiveLock, 2, keys);
    return mac_scan_next(scan);
}

void
InsertUserAccess(Oid policy_id, Oid user_id, uint16 privs, const UserPolicyAccess *rec)
{
    Datum       values[mac_col::user_natts] = {};
    bool        nulls[mac_col::user_natts] = {};
    bool        set[mac_col::user_natts] = {};

    values[mac_col::user_oid - 1] = ObjectIdGetDatum(user_id);
    values[mac_col::user_policy_oid - 1] = ObjectIdGetDatum(policy_id);
    values[mac_col::user_privs - 1] = Int16GetDatum((int16) privs);
    fill_access_columns(NULL, rec, values, set);
    mac_catalog_insert(MacPolicyUserRelationId, values, nulls);
    free_comp_columns(values, set);
    mac_invalidate_policy_plans(policy_id);
}

/*
 * Rewrites the columns that changed from old to rec, and the privileges
 * when privs is given.  The callers have checked that the row exists.
 */
void
UpdateUserAccess(Oid policy_id, Oid user_id, const uint16 *privs,
                 const UserPolicyAccess *old, const UserPolicyAccess *rec)
{
    Datum       values[mac_col::user_natts] = {};
    bool        nulls[mac_col::user_natts] = {};
    bool        replace[mac_col::user_natts] = {};
    MacCatalogScan scan;
    ScanKeyData keys[2];
    HeapTuple   tuple;

    if (privs != NULL)
    {
        values[mac_col::user_privs - 1] = Int16GetDatum((int16) *privs);
        replace[mac_col::user_privs - 1] = true;
    }
    fill_access_columns(old, rec, values, replace);

    tuple = begin_user_access_scan(&scan, keys, policy_id, user_id);
    if (tuple == NULL)
        elog(ERROR, "authorization of user %u under policy %u disappeared", user_id, policy_id);
    mac_catalog_update(&scan, tuple, values, nulls, replace);
    mac_scan_end(&scan);
    free_comp_columns(values, replace);
    CommandCounterIncrement();
    mac_invalidate_policy_plans(policy_id);
}

template <typename T>
T
given_or(const T *given, T fallback)
{
    return given != NULL ? *given : fallback;
}

/*
 * Fills out: each field from the value given (non-NULL pointer), else from
 * existing, else zero or the empty set.
 */
void
BuildUserPolicyAccess(const UserPolicyAccess *existing, UserPolicyAccess *out,
                      const int16 *max_level, const int16 *min_write_level,
                      const int16 *def_level, const int16 *row_level,
                      Bitmapset *const *max_read_comps, Bitmapset *const *max_write_comps,
                      Bitmapset *const *def_comps, Bitmapset *const *row_comps,
                      Bitmapset *const *min_write_comps)
{
    UserPolicyAccess base = existing != NULL ? *existing : UserPolicyAccess{};

    out->max_level = given_or(max_level, base.max_level);
    out->min_write_level = given_or(min_write_level, base.min_write_level);
    out->def_level = given_or(def_level, base.def_level);
    out->row_level = given_or(row_level, base.row_level);
    out->max_read_comps = given_or(max_read_comps, base.max_read_comps);
    out->max_write_comps = given_or(max_write_comps, base.max_write_comps);
    out->def_comps = given_or(def_comps, base.def_comps);
    out->row_comps = given_or(row_comps, base.row_comps);
    out->min_write_comps = given_or(min_write_comps, base.min_write_comps);
}

/* Stores rec: an update of existing when there is one, else a new row. */
void
store_user_access(Oid policy_id, Oid user_id, const UserPolicyAccess *existing,
                  const UserPolicyAccess *rec)
{
    if (existing != NULL)
        UpdateUserAccess(policy_id, user_id, NULL, existing, rec);
    else
        InsertUserAccess(policy_id, user_id, 0, rec);
}

/* ---------------------------------------------------------------------
 * Domination rules
 * --------------------------------------------------------------------- */

void
require(bool holds, const char *message)
{
    if (!holds)
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("%s", message)));
}

/* The five labels of an authorization. */
struct UserLabels
{
    MacLabel   *max_read;
    MacLabel   *max_write;
    MacLabel   *min_write;
    MacLabel   *def;
    MacLabel   *row;
};

void
build_user_labels(const UserPolicyAccess *rec, UserLabels *labels)
{
    labels->max_read = make_mac_label(rec->max_level, rec->max_read_comps);
    labels->max_write = make_mac_label(rec->max_level, rec->max_write_comps);
    labels->min_write = make_mac_label(rec->min_write_level, rec->min_write_comps);
    labels->def = make_mac_label(rec->def_level, rec->def_comps);
    labels->row = make_mac_label(rec->row_level, rec->row_comps);
}

void
free_user_labels(UserLabels *labels)
{
    free_mac_label(labels->max_read);
    free_mac_label(labels->max_write);
    free_mac_label(labels->min_write);
    free_mac_label(labels->def);
    free_mac_label(labels->row);
}

void
CheckUserLabelDomination(const UserPolicyAccess *rec)
{
    UserLabels  l;

    build_user_labels(rec, &l);
    require(dominates(l.max_read, l.max_write), "max read label must dominates max write label");
    /* Both come from the one max level; kept as a guard of that invariant. */
    require(l.max_read->level == l.max_write->level, "max read level must equal to max write level");
    require(dominates(l.max_write, l.min_write), "max write label must dominates min write label");
    require(dominates(l.max_read, l.def), "max read label must dominates def label");
    require(dominates(l.max_write, l.row), "max write label must dominates row label");
    require(dominates(l.max_write, l.def), "max write label must dominates def label");
    require(dominates(l.row, l.def), "row label must dominates def label");
    require(dominates(l.row, l.min_write), "row label must dominates min write label");
    free_user_labels(&l);
}

void
CheckUserLevelDomination(const UserPolicyAccess *rec)
{
    require(rec->max_level >= rec->row_level, "max read level must dominates row level");
    require(rec->row_level >= rec->def_level, "row level must dominates def read level");
    require(rec->row_level >= rec->min_write_level, "row level must dominates min level");
}

void
CheckUserCompartmentDomination(const UserPolicyAccess *rec)
{
    require(bms_is_subset(rec->max_write_comps, rec->max_read_comps),
            "read compartments must dominates max write compartments");
    require(bms_is_subset(rec->row_comps, rec->max_write_comps),
            "max write compartments must dominates row compartments");
    require(bms_is_subset(rec->def_comps, rec->row_comps),
            "row compartments must dominates def compartments");
    require(bms_is_subset(rec->min_write_comps, rec->row_comps),
            "row compartments must dominates min write compartments");
}

/* ---------------------------------------------------------------------
 * Arguments
 * --------------------------------------------------------------------- */

/* The (policy, user) pair that arguments 0 and 1 name. */
struct UserTarget
{
    char       *policy_name;
    char       *user_name;
    Oid         policy_id;
    Oid         user_id;
};

/*
 * The prologue of every function here: permission and the turn among
 * catalog writers, the policy (checked, resolved, locked and re-checked),
 * then the user.
 */
void
resolve_user_target(FunctionCallInfo fcinfo, const char *action, UserTarget *t)
{
    mac_catalog_change_check(fcinfo, action);
    t->policy_name = CheckPolicyNameArg(MAC_ARG(0));
    t->policy_id = mac_lock_policy(t->policy_name, AccessShareLock);
    t->user_name = CheckUserNameArg(MAC_ARG(1));
    t->user_id = get_role_oid(t->user_name, false);
}

/* Reads the user's authorization; an error when there is none. */
void
require_user_access(const UserTarget *t, UserPolicyAccess *out)
{
    if (!get_user_policy_access(t->policy_id, t->user_id, out))
        ereport(ERROR,
                (errcode(ERRCODE_INSUFFICIENT_PRIVILEGE),
                 errmsg("user %s has not been authorized policy \"%s\"",
                        quote_identifier(t->user_name), quote_identifier(t->policy_name))));
}

typedef char *(*StringArgCheck) (bool isnull, Datum value);

/* Argument n checked as a string, or fallback checked alike when it is null. */
char *
string_arg_or(FunctionCallInfo fcinfo, int n, StringArgCheck check, const char *fallback)
{
    if (PG_ARGISNULL(n))
        return check(false, CStringGetTextDatum(fallback));
    return check(false, PG_GETARG_DATUM(n));
}

/*
 * Argument n, defaulting to the name of the policy's lowest level, quoted
 * so that it reads back as the same name.
 */
char *
lowest_level_arg(FunctionCallInfo fcinfo, int n, StringArgCheck check, Oid policy_id)
{
    const char *lowest = NULL;

    if (PG_ARGISNULL(n))
        lowest = quote_identifier(get_level_name(policy_id, get_min_level_id(policy_id)));
    return string_arg_or(fcinfo, n, check, lowest);
}

/* ---------------------------------------------------------------------
 * Privilege strings
 * --------------------------------------------------------------------- */

struct PrivilegeName
{
    const char *name;
    uint16      bit;
};

constexpr PrivilegeName privilege_names[] = {
    {"READ", MAC_PRIV_READ},
    {"FULL", MAC_PRIV_FULL},
    {"WRITEUP", MAC_PRIV_WRITEUP},
    {"WRITEDOWN", MAC_PRIV_WRITEDOWN},
    {"WRITEACROSS", MAC_PRIV_WRITEACROSS},
};

pg_attribute_noreturn() void
invalid_privilege_string(const char *rest)
{
    ereport(ERROR,
            (errcode(ERRCODE_SYNTAX_ERROR),
             errmsg("invalid privilege string near or at: %s", rest)));
}

/* The privilege whose name the text at p starts with (any case). */
const PrivilegeName &
match_privilege(const char *p)
{
    for (const PrivilegeName &priv : privilege_names)
    {
        if (pg_strncasecmp(p, priv.name, strlen(priv.name)) == 0)
            return priv;
    }
    invalid_privilege_string(p);
}

/* Replaces the default or the row label of an existing authorization. */
Datum
set_user_label(FunctionCallInfo fcinfo, const char *action,
               int16 UserPolicyAccess::*level, Bitmapset *UserPolicyAccess::*comps)
{
    UserTarget  t;
    UserPolicyAccess existing;
    UserPolicyAccess updated;
    MacLabel   *label;

    resolve_user_target(fcinfo, action, &t);
    require_user_access(&t, &existing);
    label = CStringToMACLabel(t.policy_id, CheckLabelStrArg(MAC_ARG(2)));

    updated = existing;
    updated.*level = label->level;
    updated.*comps = label->compartments;
    CheckUserLabelDomination(&updated);
    UpdateUserAccess(t.policy_id, t.user_id, NULL, &existing, &updated);
    PG_RETURN_VOID();
}

} // namespace

/* ---------------------------------------------------------------------
 * Authorizations
 * --------------------------------------------------------------------- */

/*
 * Creates or replaces a whole authorization from five label strings; only
 * the max read label is required.
 */
MAC_SQL_FUNCTION(SetUserLabels)
{
    UserTarget  t;
    char       *max_read_str;
    char       *max_write_str;
    char       *min_write_str;
    char       *row_str;
    char       *def_str;
    MacLabel   *max_read;
    MacLabel   *max_write;
    MacLabel   *min_write;
    MacLabel   *def;
    MacLabel   *row;
    UserPolicyAccess existing;
    UserPolicyAccess rec;
    bool        exists;

    resolve_user_target(fcinfo, "set user labels", &t);
    max_read_str = CheckLabelStrArg(MAC_ARG(2));
    max_write_str = string_arg_or(fcinfo, 3, CheckLabelStrArg, max_read_str);
    min_write_str = lowest_level_arg(fcinfo, 4, CheckLabelStrArg, t.policy_id);
    row_str = string_arg_or(fcinfo, 6, CheckLabelStrArg, max_write_str);
    def_str = string_arg_or(fcinfo, 5, CheckLabelStrArg, row_str);

    max_read = CStringToMACLabel(t.policy_id, max_read_str);
    max_write = CStringToMACLabel(t.policy_id, max_write_str);
    min_write = CStringToMACLabel(t.policy_id, min_write_str);
    def = CStringToMACLabel(t.policy_id, def_str);
    row = CStringToMACLabel(t.policy_id, row_str);
    if (PG_ARGISNULL(6))
        row = merge_label(row, max_write, MERGE_GLB);

    exists = get_user_policy_access(t.policy_id, t.user_id, &existing);
    if (max_read->level != max_write->level)
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("level in max read label must equal to level in max write label")));

    BuildUserPolicyAccess(exists ? &existing : NULL, &rec,
                          &max_read->level, &min_write->level, &def->level, &row->level,
                          &max_read->compartments, &max_write->compartments,
                          &def->compartments, &row->compartments, &min_write->compartments);
    CheckUserLabelDomination(&rec);
    store_user_access(t.policy_id, t.user_id, exists ? &existing : NULL, &rec);
    PG_RETURN_VOID();
}

/*
 * Creates an authorization from four levels (without compartments), or
 * replaces the levels of an existing one.
 */
MAC_SQL_FUNCTION(SetLevels)
{
    UserTarget  t;
    char       *max_str;
    char       *min_write_str;
    char       *row_str;
    char       *def_str;
    int16       max_level;
    int16       min_write_level;
    int16       def_level;
    int16       row_level;
    UserPolicyAccess existing;
    UserPolicyAccess rec;
    bool        exists;

    resolve_user_target(fcinfo, "set levels", &t);
    max_str = CheckSetLevelArg(MAC_ARG(2));
    min_write_str = lowest_level_arg(fcinfo, 3, CheckSetLevelArg, t.policy_id);
    row_str = string_arg_or(fcinfo, 5, CheckSetLevelArg, max_str);
    def_str = string_arg_or(fcinfo, 4, CheckSetLevelArg, row_str);

    max_level = CStringToMACLevel(t.policy_id, max_str);
    min_write_level = CStringToMACLevel(t.policy_id, min_write_str);
    def_level = CStringToMACLevel(t.policy_id, def_str);
    row_level = CStringToMACLevel(t.policy_id, row_str);

    exists = get_user_policy_access(t.policy_id, t.user_id, &existing);
    BuildUserPolicyAccess(exists ? &existing : NULL, &rec,
                          &max_level, &min_write_level, &def_level, &row_level,
                          NULL, NULL, NULL, NULL, NULL);
    CheckUserLevelDomination(&rec);
    CheckUserLabelDomination(&rec);
    store_user_access(t.policy_id, t.user_id, exists ? &existing : NULL, &rec);
    PG_RETURN_VOID();
}

/*
 * Replaces the five compartment sets of an authorization whose levels have
 * been set.  Min write compartments not given mean none.
 */
MAC_SQL_FUNCTION(SetCompartments)
{
    UserTarget  t;
    UserPolicyAccess existing;
    UserPolicyAccess rec;
    char       *read_str;
    char       *write_str;
    char       *row_str;
    char       *def_str;
    char       *min_write_str = NULL;
    Bitmapset  *read_comps;
    Bitmapset  *write_comps;
    Bitmapset  *def_comps;
    Bitmapset  *row_comps;
    Bitmapset  *min_write_comps = NULL;

    resolve_user_target(fcinfo, "set compartments", &t);
    if (!get_user_policy_access(t.policy_id, t.user_id, &existing))
        ereport(ERROR,
                (errcode(ERRCODE_INSUFFICIENT_PRIVILEGE),
                 errmsg("no user levels found for user %s and policy %s",
                        quote_identifier(t.user_name), quote_identifier(t.policy_name))));

    read_str = CheckSetCompartmentsArg(MAC_ARG(2));
    write_str = string_arg_or(fcinfo, 3, CheckSetCompartmentsArg, read_str);
    row_str = string_arg_or(fcinfo, 5, CheckSetCompartmentsArg, write_str);
    def_str = string_arg_or(fcinfo, 4, CheckSetCompartmentsArg, row_str);
    if (!PG_ARGISNULL(6))
        min_write_str = CheckSetCompartmentsArg(MAC_ARG(6));

    read_comps = CStringToMACComp(t.policy_id, read_str);
    write_comps = CStringToMACComp(t.policy_id, write_str);
    def_comps = CStringToMACComp(t.policy_id, def_str);
    row_comps = CStringToMACComp(t.policy_id, row_str);
    if (min_write_str != NULL)
        min_write_comps = CStringToMACComp(t.policy_id, min_write_str);

    BuildUserPolicyAccess(&existing, &rec, NULL, NULL, NULL, NULL,
                          &read_comps, &write_comps, &def_comps, &row_comps, &min_write_comps);
    CheckUserCompartmentDomination(&rec);
    CheckUserLabelDomination(&rec);
    UpdateUserAccess(t.policy_id, t.user_id, NULL, &existing, &rec);
    PG_RETURN_VOID();
}

MAC_SQL_FUNCTION(SetDefaultLabel)
{
    return set_user_label(fcinfo, "set default label",
                          &UserPolicyAccess::def_level, &UserPolicyAccess::def_comps);
}

MAC_SQL_FUNCTION(SetDefRowLabel)
{
    return set_user_label(fcinfo, "set row label",
                          &UserPolicyAccess::row_level, &UserPolicyAccess::row_comps);
}

static void
RemoveMacUserAccess(Oid policy_id, Oid user_id)
{
    MacCatalogScan scan;
    ScanKeyData keys[2];
    HeapTuple   tuple = begin_user_access_scan(&scan, keys, policy_id, user_id);

    if (tuple != NULL)
        mac_catalog_delete(&scan, tuple);
    mac_scan_end(&scan);
    mac_invalidate_policy_plans(policy_id);
}

/* Both names are checked before either is looked up. */
MAC_SQL_FUNCTION(DropUserAccess)
{
    char       *policy_name;
    char       *user_name;
    Oid         policy_id;
    Oid         user_id;

    mac_catalog_change_check(fcinfo, "drop user access");
    policy_name = CheckPolicyNameArg(MAC_ARG(0));
    user_name = CheckUserNameArg(MAC_ARG(1));
    policy_id = mac_lock_policy(policy_name, AccessShareLock);
    user_id = get_role_oid(user_name, false);

    if (!get_user_policy_access(policy_id, user_id, NULL))
        ereport(ERROR,
                (errcode(ERRCODE_INSUFFICIENT_PRIVILEGE),
                 errmsg("user %s has not been authorized to access policy \"%s\"",
                        quote_identifier(user_name), quote_identifier(policy_name))));
    RemoveMacUserAccess(policy_id, user_id);
    PG_RETURN_VOID();
}


/* ---------------------------------------------------------------------
 * Privileges
 * --------------------------------------------------------------------- */

/*
 * Parses a comma-separated list of privilege names, in any case, without
 * blanks; one trailing comma is accepted.
 */
static uint16
MacPrivsCstringToPrivs(const char *str)
{
    const char *p = str;
    uint16      privs = 0;

    if (str == NULL || *str == '\0')
        return 0;
    for (;;)
    {
        const PrivilegeName &priv = match_privilege(p);

        privs |= priv.bit;
        p += strlen(priv.name);
        if (*p == '\0')
            break;
        if (*p != ',')
            invalid_privilege_string(p);
        p++;
        if (*p == '\0')
            break;
    }
    return privs;
}

/* Stores the privileges of an existing authorization; null clears them. */
MAC_SQL_FUNCTION(SetUserPrivs)
{
    UserTarget  t;
    UserPolicyAccess existing;
    char       *privs_str;
    uint16      privs;

    resolve_user_target(fcinfo, "set user privileges", &t);
    require_user_access(&t, &existing);
    privs_str = CheckPolicyPrivsStrArg(MAC_ARG(2));
    privs = MacPrivsCstringToPrivs(privs_str);
    UpdateUserAccess(t.policy_id, t.user_id, &privs, &existing, &existing);

    if (privs_str != NULL)
        pfree(privs_str);
    pfree(t.user_name);
    pfree(t.policy_name);
    PG_RETURN_VOID();
}

/* The privilege string of a mask, upper case; bits above WRITEACROSS ignored. */
char *
MacPrivsToCstringPrivs(uint16 privs)
{
    StringInfoData buf;

    if ((privs & MAC_PRIV_ALL) == 0)
        return pstrdup("");
    initStringInfo(&buf);
    for (const PrivilegeName &priv : privilege_names)
    {
        if (privs & priv.bit)
            appendStringInfo(&buf, "%s,", priv.name);
    }
    buf.data[buf.len - 1] = '\0';   /* the final comma */
    return buf.data;
}

MAC_SQL_FUNCTION(PrivsToChar)
{
    char       *str;
    Datum       result;

    if (PG_ARGISNULL(0))
        PG_RETURN_NULL();
    str = MacPrivsToCstringPrivs((uint16) PG_GETARG_INT32(0));
    result = DirectFunctionCall3(varcharin, CStringGetDatum(str),
                                 ObjectIdGetDatum(InvalidOid), Int32GetDatum(-1));
    pfree(str);
    PG_RETURN_DATUM(result);
}

/* ---------------------------------------------------------------------
 * Listing
 * --------------------------------------------------------------------- */

/* The columns of authorizations(), in order. */
enum AuthorizationColumn
{
    AUTH_POLICY, AUTH_USER, AUTH_MAX_READ, AUTH_MAX_WRITE, AUTH_MIN_WRITE, AUTH_DEFAULT,
    AUTH_ROW, AUTH_PRIVILEGES, AUTH_NCOLUMNS
};

/* The label string of one level and compartment set of an authorization. */
static Datum
access_label_text(Oid policy_id, int16 level, Bitmapset *compartments)
{
    MacLabel    label = {level, compartments};

    return CStringGetTextDatum(MacLabelToCString(policy_id, &label));
}

/* The level and compartment columns of a lavrel_user row. */
static void
read_access_columns(MacCatalogScan *scan, HeapTuple tuple, UserPolicyAccess *rec)
{
    for (const LevelColumn &col : level_columns)
        rec->*col.field = DatumGetInt16(mac_scan_getattr(scan, tuple, col.attno, NULL));
    for (const CompColumn &col : comp_columns)
        rec->*col.field = int2vector_to_bms((const int2vector *)
                                            DatumGetPointer(mac_scan_getattr(scan, tuple, col.attno, NULL)));
}

/* A row of authorizations(): see the columns above. */
static void
authorization_listing_row(MacCatalogScan *scan, HeapTuple tuple, Datum *values, bool *nulls)
{
    Oid         policy_id = DatumGetObjectId(mac_scan_getattr(scan, tuple, mac_col::user_policy_oid, NULL));
    Oid         user_id = DatumGetObjectId(mac_scan_getattr(scan, tuple, mac_col::user_oid, NULL));
    uint16      privs = (uint16) DatumGetInt16(mac_scan_getattr(scan, tuple, mac_col::user_privs, NULL));
    char       *user_name = GetUserNameFromId(user_id, true);
    UserPolicyAccess a;

    read_access_columns(scan, tuple, &a);
    values[AUTH_POLICY] = mac_name_datum(get_policy_name(policy_id));
    values[AUTH_USER] = user_name != NULL ? mac_name_datum(user_name) : (Datum) 0;
    nulls[AUTH_USER] = user_name == NULL;
    values[AUTH_MAX_READ] = access_label_text(policy_id, a.max_level, a.max_read_comps);
    values[AUTH_MAX_WRITE] = access_label_text(policy_id, a.max_level, a.max_write_comps);
    values[AUTH_MIN_WRITE] = access_label_text(policy_id, a.min_write_level, a.min_write_comps);
    values[AUTH_DEFAULT] = access_label_text(policy_id, a.def_level, a.def_comps);
    values[AUTH_ROW] = access_label_text(policy_id, a.row_level, a.row_comps);
    values[AUTH_PRIVILEGES] = CStringGetTextDatum(MacPrivsToCstringPrivs(privs));
}

/*
 * authorizations(): every user's authorization under every policy, with
 * its five labels as label strings and its privileges by name.  The
 * administrator's.
 */
MAC_SQL_FUNCTION(ListAuthorizations)
{
    return mac_list_catalog_rows(fcinfo, "list authorizations", MacPolicyUserRelationId,
                                 AUTH_NCOLUMNS, authorization_listing_row);
}

/*
 * policy_misc.cpp
 *    The frame every SQL-callable function of lavrel opens with: the
 *    administrator check (and, before a change of the catalogs, the
 *    read-only refusal and the wait for the other writers) and the checks
 *    that turn each SQL argument into a plain value.  Also the test that a
 *    table may be protected, and the conversion of compartment sets to and
 *    from their catalog form.
 *
 * Argument checks take the null flag and the value exactly as the function
 * manager delivers them (MAC_ARG(n)), refuse nulls with "%s can not be
 * null" and return a checked value; nothing is changed before they run.
 */
#include "lavrel.h"

/* ---------------------------------------------------------------------
 * Permission check
 * --------------------------------------------------------------------- */

void
mac_enabled_check(void)
{
    if (!MAC_isenable())
        ereport(ERROR,
                (errcode(ERRCODE_INSUFFICIENT_PRIVILEGE),
                 errmsg("enable_mac must be true")));
}

void
mac_permission_check_hint(const char *action, const char *hint)
{
    mac_enabled_check();
    /* Only the bootstrap superuser administers; other superusers do not. */
    if (GetUserId() != MacAdminRoleId)
        ereport(ERROR,
                (errcode(ERRCODE_INSUFFICIENT_PRIVILEGE),
                 errmsg("permission denied to %s", action),
                 hint != NULL ? errhint("%s", hint) : 0));
}

void
MacPermissionCheck(const char *action)
{
    mac_permission_check_hint(action, NULL);
}

/*
 * In a read-only transaction (and so on a hot standby) the change is
 * refused as PostgreSQL refuses every write there, naming the SQL function.
 * Otherwise the caller waits until no other transaction is changing the
 * catalogs: SHARE ROW EXCLUSIVE conflicts with itself and not with the
 * ACCESS SHARE of readers, so writers take turns, each to the end of its
 * transaction, and queries go on.  A writer that waited then reads, under
 * the latest snapshot, what the one before it committed.
 */
void
mac_catalog_change_check(FunctionCallInfo fcinfo, const char *action)
{
    MacPermissionCheck(action);
    PreventCommandIfReadOnly(psprintf("%s()", get_func_name(fcinfo->flinfo->fn_oid)));
    LockRelationOid(MacPolicyRelationId, ShareRowExclusiveLock);
}

Datum
mac_name_datum(const char *str)
{
    return DirectFunctionCall1(namein, CStringGetDatum(str));
}

void
RaiseNullArgException(const char *what)
{
    ereport(ERROR,
            (errcode(ERRCODE_SYNTAX_ERROR),
             errmsg("%s can not be null", what)));
}

/* ---------------------------------------------------------------------
 * String arguments
 * --------------------------------------------------------------------- */

static char *
GetIdentifierFromArg(char *str, const char *what)
{
    char       *ident;
    char       *end;

    SplitOneIdentifierString(str, &end, &ident, true);
    if (*end != '\0')
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("%s error at or near \"%s\"", what, end)));
    if (*ident == '\0')
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("zero-length delimited identifier")));
    return ident;
}

/* The string, refused when longer than the free-text limit. */
static char *
bounded_string(char *str, const char *too_long)
{
    if (pg_mbstrlen(str) > MAC_MAX_STRING_CHARS)
        ereport(ERROR,
                (errcode(ERRCODE_NAME_TOO_LONG),
                 errmsg_internal(too_long, MAC_MAX_STRING_CHARS)));
    return str;
}

/* The text as a C string, refused when longer than the free-text limit. */
static char *
bounded_text(Datum value, const char *too_long)
{
    return bounded_string(TextDatumGetCString(value), too_long);
}

char *
mac_label_string_check(char *str)
{
    bounded_string(str, "characters of label string must be less than \"%u\"");
    if (*str == '\0')
        ereport(ERROR,
                (errcode(ERRCODE_INVALID_NAME),
                 errmsg("label string can not be empty")));
    return str;
}

static char *
GetLabelFromArg(Datum value)
{
    return mac_label_string_check(TextDatumGetCString(value));
}

static char *
GetCompartmentsFromArg(Datum value)
{
    return bounded_text(value, "characters of compartment string must be less than \"%u\"");
}

static char *
GetPrivilegesFromArg(Datum value)
{
    return bounded_text(value, "characters of privileges must be less than \"%u\"");
}

/* ---------------------------------------------------------------------
 * Argument checks
 * --------------------------------------------------------------------- */

static void
require_arg(bool isnull, const char *what)
{
    if (isnull)
        RaiseNullArgException(what);
}

/* A non-null text argument read as one identifier. */
static char *
identifier_arg(bool isnull, Datum value, const char *what)
{
    require_arg(isnull, what);
    return GetIdentifierFromArg(TextDatumGetCString(value), what);
}

/* A non-null integer whose low 16 bits must hold a level or compartment id. */
static int16
small_id_arg(bool isnull, Datum value, const char *null_word, const char *range_msg)
{
    require_arg(isnull, null_word);
    uint16      id = (uint16) DatumGetInt32(value);

    if (!mac_valid_level_id(id))
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg_internal(range_msg, MAC_MIN_LEVEL_ID, MAC_MAX_LEVEL_ID)));
    return (int16) id;
}

static bool
bool_arg(bool isnull, Datum value, const char *what)
{
    require_arg(isnull, what);
    return DatumGetBool(value);
}

char *
CheckPolicyNameArg(bool isnull, Datum value)
{
    return identifier_arg(isnull, value, _("policy name"));
}

char *
CheckPolicyColNameArg(bool isnull, Datum value)
{
    return identifier_arg(isnull, value, "policy column name");
}

bool
CheckPolicyColumnHideArg(bool isnull, Datum value)
{
    return bool_arg(isnull, value, "policy column hide option");
}

bool
CheckDropColumnArg(bool isnull, Datum value)
{
    return bool_arg(isnull, value, "drop policy column option");
}

char *
CheckLevelNameArg(bool isnull, Datum value)
{
    return identifier_arg(isnull, value, "level name");
}

int16
CheckLevelIdArg(bool isnull, Datum value)
{
    return small_id_arg(isnull, value, "level id", "level id must in [%d,%d]");
}

char *
CheckSetLevelArg(bool isnull, Datum value)
{
    require_arg(isnull, "level string");
    char       *str = TextDatumGetCString(value);

    if (*str == '\0')
        ereport(ERROR,
                (errcode(ERRCODE_INVALID_NAME),
                 errmsg("level string can not be empty")));
    return str;
}

char *
CheckCompartmentNameArg(bool isnull, Datum value)
{
    return identifier_arg(isnull, value, "compartment name");
}

int16
CheckCompIdArg(bool isnull, Datum value)
{
    /* The null message says "compartment name": kept as users know it. */
    return small_id_arg(isnull, value, "compartment name", "compartment id must in [%d,%d]");
}

char *
CheckSetCompartmentsArg(bool isnull, Datum value)
{
    require_arg(isnull, "compartment string");
    return GetCompartmentsFromArg(value);
}

char *
CheckLabelStrArg(bool isnull, Datum value)
{
    require_arg(isnull, "label");
    return GetLabelFromArg(value);
}

int32
CheckLabelIdArg(bool isnull, Datum value)
{
    require_arg(isnull, "label id");
    int32       id = DatumGetInt32(value);

    /* One unsigned comparison covers both ends of 1..99999999. */
    if ((uint32) id - 1 > (uint32) (MAC_MAX_LABEL_ID - 1))
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("label id must in [%d,%d]", MAC_MIN_LABEL_ID, MAC_MAX_LABEL_ID)));
    return id;
}

char *
CheckUserNameArg(bool isnull, Datum value)
{
    return identifier_arg(isnull, value, "user name");
}

char *
CheckPolicyPrivsStrArg(bool isnull, Datum value)
{
    return isnull ? nullptr : GetPrivilegesFromArg(value);
}

char *
CheckSchemaNameArg(bool isnull, Datum value)
{
    return identifier_arg(isnull, value, "schema name");
}

char *
CheckRelNameArg(bool isnull, Datum value)
{
    return identifier_arg(isnull, value, _("table name"));
}

/* ---------------------------------------------------------------------
 * Protectable tables
 * --------------------------------------------------------------------- */

/*
 * Whether a plain table inherits from another table or has children of its
 * own.  relhassubclass (has_subclass) stays set after the last child is
 * dropped, so the children are looked up: find_inheritance_children reads
 * pg_inherits only when has_subclass says there may be any.
 */
static bool
takes_part_in_inheritance(Relation rel)
{
    Oid         relid = RelationGetRelid(rel);

    if (rel->rd_rel->relkind != RELKIND_RELATION)
        return false;
    return has_superclass(relid) || find_inheritance_children(relid, NoLock) != NIL;
}

void
MacCanProtected(Oid policy_id, Oid relid)
{
    Relation    rel = relation_open(relid, NoLock);

    (void) policy_id;
    if (IsCatalogNamespace(RelationGetNamespace(rel)))
        ereport(ERROR,
                (errcode(ERRCODE_FEATURE_NOT_SUPPORTED),
                 errmsg("policy can not be applied to system table")));
    if (takes_part_in_inheritance(rel))
        ereport(ERROR,
                (errcode(ERRCODE_FEATURE_NOT_SUPPORTED),
                 errmsg("policy can not be applied to an inherited relation")));
    relation_close(rel, NoLock);
}

/* ---------------------------------------------------------------------
 * Compartment sets in the catalogs
 * --------------------------------------------------------------------- */

int2vector *
bms_to_int2vector(const Bitmapset *set)
{
    Bitmapset  *copy = bms_copy(set);
    int         n = bms_num_members(copy);
    int2vector *vec = buildint2vector(NULL, n);
    int         member;

    for (int i = 0; (member = bms_first_member(copy)) >= 0; i++)
        vec->values[i] = (int16) member;
    bms_free(copy);
    return vec;
}

Bitmapset *
int2vector_to_bms(const int2vector *vector)
{
    Bitmapset  *set = nullptr;

    for (int i = 0; i < vector->dim1; i++)
        set = bms_add_member(set, vector->values[i]);
    return set;
}

/* ---------------------------------------------------------------------
 * Caches
 * --------------------------------------------------------------------- */

MemoryContext
mac_empty_cache_context(MemoryContext *context, const char *name)
{
    if (*context == NULL)
        *context = AllocSetContextCreateInternal(CacheMemoryContext, name, ALLOCSET_SMALL_SIZES);
    else
        MemoryContextReset(*context);
    return *context;
}

HTAB *
mac_oid_hash_table(const char *name, Size entrysize, MemoryContext context)
{
    HASHCTL     ctl;

    ctl.keysize = sizeof(Oid);
    ctl.entrysize = entrysize;
    ctl.hcxt = context;
    return hash_create(name, 64, &ctl, HASH_ELEM | HASH_BLOBS | HASH_CONTEXT);
}

/* ---------------------------------------------------------------------
 * Listings
 * --------------------------------------------------------------------- */

/*
 * Puts the call in materialize mode: an empty tuple store and the
 * function's declared result descriptor, both living as long as the query.
 * Rows are formed from arrays of `ncolumns` values, so a declaration with
 * another number of columns is refused.
 */
ReturnSetInfo *
mac_begin_listing(FunctionCallInfo fcinfo, int ncolumns)
{
    InitMaterializedSRF(fcinfo, 0);

    ReturnSetInfo *rsinfo = (ReturnSetInfo *) fcinfo->resultinfo;

    if (rsinfo->setDesc->natts != ncolumns)
        ereport(ERROR,
                (errcode(ERRCODE_DATATYPE_MISMATCH),
                 errmsg("function result must have %d columns", ncolumns)));
    return rsinfo;
}

/*
 * policy_cmds.cpp
 *    Policy administration: creating, enabling, disabling and dropping
 *    policies; defining and dropping their levels and compartments; placing
 *    tables under a policy and releasing them; the questions the rest of the
 *    module asks about protected tables and policy columns; and the two
 *    listings of the policy catalogs.
 *
 * Every administrative entry point opens the same way: the permission
 * check, the refusal in a read-only transaction and the wait for the other
 * transactions changing the catalogs (mac_catalog_change_check), the argument
 * checks in argument order, then the policy locked as a database object and
 * re-checked (mac_lock_policy).  Catalog rows are read and written only
 * through the scan helpers of policy_syscat.cpp.
 */
#include "lavrel_testing.h"

/* ---------------------------------------------------------------------
 * Shared helpers
 * --------------------------------------------------------------------- */

/* A `name` datum holding `str`, truncated as the type requires. */
static Datum
name_datum(const char *str)
{
    Name        name = (Name) palloc0(NAMEDATALEN);

    namestrcpy(name, str);
    return NameGetDatum(name);
}

/* Deletes the first row of `relid` that matches `keys`; false if none does. */
static bool
delete_first_match(Oid relid, int nkeys, ScanKey keys)
{
    MacCatalogScan scan;

    mac_scan_begin(&scan, relid, RowExclusiveLock, nkeys, keys);
    HeapTuple   tuple = mac_scan_next(&scan);
    bool        found = tuple != NULL;

    if (found)
        mac_catalog_delete(&scan, tuple);
    mac_scan_end(&scan);
    return found;
}

/* Narrows a deletion to rows whose compartment vector holds one id. */
struct CompartmentFilter
{
    AttrNumber  vec_attno;
    int16       comp_id;
};

static bool
row_has_compartment(MacCatalogScan *scan, HeapTuple tuple,
                    const CompartmentFilter &filter)
{
    bool        isnull;
    Datum       value = mac_scan_getattr(scan, tuple, filter.vec_attno, &isnull);

    if (isnull)
        return false;

    const int2vector *vec = (const int2vector *) DatumGetPointer(value);

    for (int i = 0; i < vec->dim1; i++)
    {
        if (vec->values[i] == filter.comp_id)
            return true;
    }
    return false;
}

/*
 * Deletes every row of `relid` that matches `keys` (and, given a filter,
 * holds its compartment), then makes the deletions visible.
 */
static void
delete_rows(Oid relid, int nkeys, ScanKey keys,
            const CompartmentFilter *filter = nullptr)
{
    MacCatalogScan scan;
    HeapTuple   tuple;

    mac_scan_begin(&scan, relid, RowExclusiveLock, nkeys, keys);
    while ((tuple = mac_scan_next(&scan)) != NULL)
    {
        if (filter == nullptr || row_has_compartment(&scan, tuple, *filter))
            mac_catalog_delete(&scan, tuple);
    }
    mac_scan_end(&scan);
    CommandCounterIncrement();
}

/*
 * Whether and how a table's rows are mediated is fixed when a query over it
 * is planned, so every change of the table's policies must discard the
 * plans cached for it: here at the next command, elsewhere at commit.  A
 * table dropped while access control was off has nothing left to discard.
 */
static void
invalidate_table_plans(Oid relid)
{
    if (SearchSysCacheExists1(RELOID, ObjectIdGetDatum(relid)))
        CacheInvalidateRelcacheByRelid(relid);
}

static void
invalidate_tables_plans(List *relids)
{
    ListCell   *lc;

    foreach(lc, relids)
        invalidate_table_plans(lfirst_oid(lc));
}

void
mac_invalidate_policy_plans(Oid policy_id)
{
    invalidate_tables_plans(get_relids_by_policy(policy_id));
}

/* Locks a table against every other use until the end of the transaction. */
static void
lock_table_exclusive(Oid relid)
{
    Relation    rel = table_open(relid, AccessExclusiveLock);

    table_close(rel, NoLock);
}

/*
 * Runs `work`, which alters user tables itself, with the module's own
 * access-control guards off, so that they do not refuse the module's ALTER
 * TABLE; the guards are back on however `work` ends.
 */
template <typename Work>
static void
run_without_permission_checks(const Work &work)
{
    MacNeedToCheckPermisition = false;
    PG_TRY();
    {
        work();
    }
    PG_FINALLY();
    {
        MacNeedToCheckPermisition = true;
    }
    PG_END_TRY();
}

/* ---------------------------------------------------------------------
 * The policy column of a table
 * --------------------------------------------------------------------- */

static AlterTableCmd *
make_alter_cmd(AlterTableType subtype)
{
    AlterTableCmd *cmd = makeNode(AlterTableCmd);

    cmd->subtype = subtype;
    return cmd;
}

/*
 * The attribute number of an existing column named like the policy column,
 * which is then adopted with its values; 0 when the table has none.
 */
static AttrNumber
ChoosePolicyColumn(Oid policy_id, Oid relid)
{
    AttrNumber  attnum = get_attnum(relid, get_policy_colname(policy_id));

    if (attnum == InvalidAttrNumber)
        return InvalidAttrNumber;
    if (get_atttype(relid, attnum) != INT4OID)
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("policy column already exists in relation with different type")));
    return attnum;
}

/* Adds the policy column, a local int4 column with no default. */
static AttrNumber
AddPolicyColumn(Oid policy_id, Oid relid)
{
    char       *colname = get_policy_colname(policy_id);
    AlterTableCmd *cmd = make_alter_cmd(AT_AddColumn);

    cmd->def = (Node *) makeColumnDef(colname, INT4OID, -1, InvalidOid);
    AlterTableInternal(relid, list_make1(cmd), true);
    return get_attnum(relid, colname);
}

/*
 * Drops the default of the policy column (attribute `attnum`) and, when
 * `expr` is given, stores `expr` as the new one.  The drop goes by column
 * name, as ALTER COLUMN ... DROP DEFAULT does, and so refuses identity and
 * generated columns as PostgreSQL would; the new default is an analysed
 * expression, which only the pre-cooked default subcommand accepts.
 */
static void
SetPolicyColumnDefault(Oid policy_id, Oid relid, AttrNumber attnum, Node *expr)
{
    AlterTableCmd *drop = make_alter_cmd(AT_ColumnDefault);

    drop->name = get_policy_colname(policy_id);
    List       *cmds = list_make1(drop);

    if (expr != NULL)
    {
        AlterTableCmd *set = make_alter_cmd(AT_CookedColumnDefault);

        set->num = attnum;
        set->def = expr;
        cmds = lappend(cmds, set);
    }
    AlterTableInternal(relid, cmds, true);
}

static void
DropPolicyColumn(Oid policy_id, Oid relid)
{
    AlterTableCmd *cmd = make_alter_cmd(AT_DropColumn);

    cmd->name = get_policy_colname(policy_id);
    cmd->behavior = DROP_CASCADE;
    cmd->missing_ok = false;
    AlterTableInternal(relid, list_make1(cmd), true);
}

/* generate_default_label_value(policy id): the policy column's default. */
static Node *
default_label_expr(Oid policy_id)
{
    Const      *arg = makeConst(OIDOID, -1, InvalidOid, sizeof(Oid),
                                ObjectIdGetDatum(policy_id), false, true);

    return (Node *) makeFuncExpr(GenDefLabelProc, INT4OID, list_make1(arg),
                                 InvalidOid, InvalidOid, COERCE_EXPLICIT_CALL);
}

/*
 * Adopts or adds the policy column, gives it the label default, and places
 * the row-level security guard that keeps the table closed on a server
 * without lavrel.
 */
static void
attach_policy_column(Oid policy_id, Oid relid)
{
    AttrNumber  attnum = ChoosePolicyColumn(policy_id, relid);

    if (attnum == InvalidAttrNumber)
        attnum = AddPolicyColumn(policy_id, relid);
    SetPolicyColumnDefault(policy_id, relid, attnum, default_label_expr(policy_id));
    host_add_table_guard(relid, get_policy_name(policy_id), get_policy_colname(policy_id));
}

/*
 * Releases the policy column of a table, its guard first: drops the column
 * with its values, or leaves it as an ordinary column without default.
 */
static void
detach_policy_column(Oid policy_id, Oid relid, bool drop_column)
{
    host_remove_table_guard(relid, get_policy_name(policy_id));
    if (drop_column)
    {
        DropPolicyColumn(policy_id, relid);
        return;
    }

    AttrNumber  attnum = get_attnum(relid, get_policy_colname(policy_id));

    SetPolicyColumnDefault(policy_id, relid, attnum, NULL);
    CommandCounterIncrement();
}

/* ---------------------------------------------------------------------
 * Policies
 * --------------------------------------------------------------------- */

/* Inserts a policy under a new id from lavrel.lavrel_policy_oid_seq. */
static void
InsertPolicyTuple(const char *name, const char *colname, bool hidden, bool enabled)
{
    Datum       seqname = CStringGetTextDatum("lavrel.lavrel_policy_oid_seq");
    Oid         policy_id = (Oid) DatumGetInt64(DirectFunctionCall1(nextval, seqname));
    Datum       values[mac_col::policy_natts];
    bool        nulls[mac_col::policy_natts] = {};

    values[mac_col::policy_oid - 1] = ObjectIdGetDatum(policy_id);
    values[mac_col::policy_name - 1] = name_datum(name);
    values[mac_col::policy_col_name - 1] = name_datum(colname);
    values[mac_col::policy_col_hidden - 1] = BoolGetDatum(hidden);
    values[mac_col::policy_enable - 1] = BoolGetDatum(enabled);
    mac_catalog_insert(MacPolicyRelationId, values, nulls);
}

/* Sets the enabled flag of a policy. */
void
AlterPolicyTuple(Oid policy_id, bool enabled)
{
    ScanKeyData key;
    MacCatalogScan scan;

    mac_key_oid(&key, mac_col::policy_oid, policy_id);
    mac_scan_begin(&scan, MacPolicyRelationId, RowExclusiveLock, 1, &key);

    HeapTuple   tuple = mac_scan_next(&scan);

    if (tuple == NULL)
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("policy \"%s\" does not exist", get_policy_name(policy_id))));

    Datum       values[mac_col::policy_natts] = {};
    bool        nulls[mac_col::policy_natts] = {};
    bool        replace[mac_col::policy_natts] = {};

    values[mac_col::policy_enable - 1] = BoolGetDatum(enabled);
    replace[mac_col::policy_enable - 1] = true;
    mac_catalog_update(&scan, tuple, values, nulls, replace);
    mac_scan_end(&scan);
    CommandCounterIncrement();
}

MAC_SQL_FUNCTION(CreatePolicyMac)
{
    mac_catalog_change_check(fcinfo, "create policy");
    char       *name = CheckPolicyNameArg(MAC_ARG(0));
    char       *colname = CheckPolicyColNameArg(MAC_ARG(1));
    bool        hidden = CheckPolicyColumnHideArg(MAC_ARG(2));

    if (get_policy_id(name) != InvalidOid)
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("policy \"%s\" already exists", name)));
    if (get_policyid_by_colname(colname) != InvalidOid)
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("policy column \"%s\" has already been used", colname)));

    InsertPolicyTuple(name, colname, hidden, true);
    pfree(name);
    pfree(colname);
    PG_RETURN_VOID();
}

/* Enables or disables the policy named by the first argument. */
static void
set_policy_enabled(FunctionCallInfo fcinfo, const char *action, bool enabled)
{
    mac_catalog_change_check(fcinfo, action);
    char       *name = CheckPolicyNameArg(MAC_ARG(0));
    Oid         policy_id = mac_lock_policy(name, AccessExclusiveLock);

    if (get_policyenabled(policy_id) == enabled)
        return;
    AlterPolicyTuple(policy_id, enabled);
    mac_invalidate_policy_plans(policy_id);
}

MAC_SQL_FUNCTION(EnablePolicy)
{
    set_policy_enabled(fcinfo, "enable policy", true);
    PG_RETURN_VOID();
}

MAC_SQL_FUNCTION(DisablePolicy)
{
    set_policy_enabled(fcinfo, "disable policy", false);
    PG_RETURN_VOID();
}

/* A catalog table and one of its columns. */
struct CatalogColumn
{
    const Oid  *relid;          /* resolved once the module is enabled */
    AttrNumber  attno;
};

/* Every row that belongs to a policy, deleted in this order on its drop. */
static const CatalogColumn policy_rows[] = {
    {&MacPolicyRelationId, mac_col::policy_oid},
    {&MacLevelRelationId, mac_col::level_policy_oid},
    {&MacCompartmentRelationId, mac_col::comp_policy_oid},
    {&MacLabelRelationId, mac_col::label_policy_oid},
    {&MacPolicyEnforcementRelationId, mac_col::enf_policy_oid},
    {&MacPolicyUserRelationId, mac_col::user_policy_oid},
};

/*
 * Locks every table of the list that still exists, before the first of
 * them is altered, and returns those.  A table dropped while access control
 * was off (or with its schema) has left only its enforcement row, which
 * goes with the policy's other rows.
 */
static List *
lock_existing_tables(List *relids)
{
    List       *existing = NIL;
    ListCell   *lc;

    foreach(lc, relids)
    {
        Oid         relid = lfirst_oid(lc);

        LockRelationOid(relid, AccessExclusiveLock);
        if (SearchSysCacheExists1(RELOID, ObjectIdGetDatum(relid)))
            existing = lappend_oid(existing, relid);
        else
            UnlockRelationOid(relid, AccessExclusiveLock);
    }
    return existing;
}

static void
DropObjectById(Oid relid, AttrNumber attno, Oid id)
{
    ScanKeyData key;

    mac_key_oid(&key, attno, id);
    delete_rows(relid, 1, &key);
}

static void
DropObjectBy2Id(Oid relid, AttrNumber attno1, Oid id, AttrNumber attno2, int16 small_id)
{
    ScanKeyData keys[2];

    mac_key_oid(&keys[0], attno1, id);
    mac_key_int2(&keys[1], attno2, small_id);
    delete_rows(relid, 2, keys);
}

static void
DropObjectByCompId(Oid relid, AttrNumber attno, Oid id, AttrNumber vec_attno, int16 comp_id)
{
    ScanKeyData key;
    const CompartmentFilter filter = {vec_attno, comp_id};

    mac_key_oid(&key, attno, id);
    delete_rows(relid, 1, &key, &filter);
}

MAC_SQL_FUNCTION(DropPolicy)
{
    mac_catalog_change_check(fcinfo, "drop policy");
    char       *name = CheckPolicyNameArg(MAC_ARG(0));
    bool        drop_column = CheckDropColumnArg(MAC_ARG(1));
    Oid         policy_id = mac_lock_policy(name, AccessExclusiveLock);
    List       *relids = lock_existing_tables(get_relids_by_policy(policy_id));

    run_without_permission_checks([&] {
        ListCell   *cell;

        foreach(cell, relids)
            detach_policy_column(policy_id, lfirst_oid(cell), drop_column);
    });
    invalidate_tables_plans(relids);

    for (const CatalogColumn &rows : policy_rows)
        DropObjectById(*rows.relid, rows.attno, policy_id);
    PG_RETURN_VOID();
}

void
RemovePolicyByIdMac(Oid policy_id)
{
    ScanKeyData key;

    mac_key_oid(&key, mac_col::policy_oid, policy_id);
    if (!delete_first_match(MacPolicyRelationId, 1, &key))
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("policy Oid \"%d\" does not exist", (int) policy_id)));
    CommandCounterIncrement();
}

/* ---------------------------------------------------------------------
 * Levels and compartments
 *
 * Both are (policy, id, name) rows of tables of one shape and are created
 * and dropped alike; an ElementKind holds what differs between them.
 * --------------------------------------------------------------------- */

static_assert(mac_col::level_policy_oid == mac_col::comp_policy_oid &&
              mac_col::level_id == mac_col::comp_id &&
              mac_col::level_name == mac_col::comp_name &&
              mac_col::level_name_copy == mac_col::comp_name_copy &&
              mac_col::level_natts == mac_col::comp_natts,
              "lavrel_level and lavrel_compartment must have one shape");

/* Inserts a level or compartment row; the name goes into both name columns. */
static void
insert_element_tuple(Oid relid, Oid policy_id, int16 id, const char *name)
{
    Datum       values[mac_col::level_natts];
    bool        nulls[mac_col::level_natts] = {};
    Datum       name_value = name_datum(name);

    values[mac_col::level_policy_oid - 1] = ObjectIdGetDatum(policy_id);
    values[mac_col::level_id - 1] = Int16GetDatum(id);
    values[mac_col::level_name - 1] = name_value;
    values[mac_col::level_name_copy - 1] = name_value;
    mac_catalog_insert(relid, values, nulls);
}

static bool
delete_element_tuple(Oid relid, Oid policy_id, int16 id)
{
    ScanKeyData keys[2];

    mac_element_keys(keys, policy_id, id);
    return delete_first_match(relid, 2, keys);
}

static void
InsertLevelTuple(Oid policy_id, int16 level_id, const char *name)
{
    insert_element_tuple(MacLevelRelationId, policy_id, level_id, name);
}

static void
InsertCompartmentTuple(Oid policy_id, int16 comp_id, const char *name)
{
    insert_element_tuple(MacCompartmentRelationId, policy_id, comp_id, name);
}

void
RemoveLevelById(Oid policy_id, int16 level_id)
{
    if (!delete_element_tuple(MacLevelRelationId, policy_id, level_id))
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("level %d does not exist in policy %d ",
                        level_id, (int) policy_id)));
    CommandCounterIncrement();
}

/* The deletions of the labels and users that follow make this one visible. */
void
RemoveCompById(Oid policy_id, int16 comp_id)
{
    if (!delete_element_tuple(MacCompartmentRelationId, policy_id, comp_id))
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("compartment %d does not exist in policy %d",
                        comp_id, (int) policy_id)));
}

/* A catalog column that names a level or compartment of a policy. */
struct ElementReference
{
    const Oid  *relid;          /* resolved once the module is enabled */
    AttrNumber  policy_attno;   /* the row's policy */
    AttrNumber  attno;          /* the level id, or the compartment set */
};

/* Rows using a level, deleted in this order when it is dropped. */
static const ElementReference level_references[] = {
    {&MacLabelRelationId, mac_col::label_policy_oid, mac_col::label_level_id},
    {&MacPolicyUserRelationId, mac_col::user_policy_oid, mac_col::user_max_level},
    {&MacPolicyUserRelationId, mac_col::user_policy_oid, mac_col::user_min_write_level},
    {&MacPolicyUserRelationId, mac_col::user_policy_oid, mac_col::user_def_level},
    {&MacPolicyUserRelationId, mac_col::user_policy_oid, mac_col::user_row_level},
};

/* Rows using a compartment, deleted in this order when it is dropped. */
static const ElementReference comp_references[] = {
    {&MacLabelRelationId, mac_col::label_policy_oid, mac_col::label_compartments},
    {&MacPolicyUserRelationId, mac_col::user_policy_oid, mac_col::user_max_read_comps},
    {&MacPolicyUserRelationId, mac_col::user_policy_oid, mac_col::user_max_write_comps},
    {&MacPolicyUserRelationId, mac_col::user_policy_oid, mac_col::user_def_comps},
    {&MacPolicyUserRelationId, mac_col::user_policy_oid, mac_col::user_row_comps},
    {&MacPolicyUserRelationId, mac_col::user_policy_oid, mac_col::user_min_write_comps},
};

/* What differs between levels and compartments. */
struct ElementKind
{
    const char *create_action;
    const char *drop_action;
    char       *(*check_name)(bool isnull, Datum value);
    int16       (*check_id)(bool isnull, Datum value);
    bool        (*valid_id)(int id);
    bool        (*id_exists)(Oid policy_id, int16 id);
    int16       (*get_id)(Oid policy_id, const char *name);
    void        (*insert)(Oid policy_id, int16 id, const char *name);
    void        (*remove)(Oid policy_id, int16 id);
    /* deletes the rows of one reference that use the element */
    void        (*drop_referencing)(Oid relid, AttrNumber policy_attno, Oid policy_id,
                              AttrNumber attno, int16 id);
    const ElementReference *references;
    int         nreferences;
    const char *id_used_msg;        /* id, policy name */
    const char *name_used_msg;      /* name, policy name */
    const char *unknown_id_msg;     /* id */
    const char *unknown_name_msg;   /* name */
};

static const ElementKind level_kind = {
    "create level",
    "drop level",
    CheckLevelNameArg,
    CheckLevelIdArg,
    mac_valid_level_id,
    level_id_exists,
    get_level_id,
    InsertLevelTuple,
    RemoveLevelById,
    DropObjectBy2Id,
    level_references,
    lengthof(level_references),
    "level %d of the policy \"%s\"has already been used",
    "level \"%s\" of the policy \"%s\" has already been used",
    "level %d does not exist",
    "level \"%s\" does not exist",
};

static const ElementKind comp_kind = {
    "create compartment",
    "drop compartment",
    CheckCompartmentNameArg,
    CheckCompIdArg,
    mac_valid_comp_id,
    compartment_id_exists,
    get_compartment_id,
    InsertCompartmentTuple,
    RemoveCompById,
    DropObjectByCompId,
    comp_references,
    lengthof(comp_references),
    "compartment %d of the policy \"%s\" has already been used",
    "compartment \"%s\" of the policy \"%s\" has already been used",
    "compartment \"%d\" does not exist",
    "compartment \"%s\" does not exist",
};

/* Arguments: policy name, element name, element id. */
static void
create_element(const ElementKind &kind, FunctionCallInfo fcinfo)
{
    mac_catalog_change_check(fcinfo, kind.create_action);
    char       *policy_name = CheckPolicyNameArg(MAC_ARG(0));
    char       *name = kind.check_name(MAC_ARG(1));
    int16       id = kind.check_id(MAC_ARG(2));
    Oid         policy_id = mac_lock_policy(policy_name, AccessExclusiveLock);

    if (kind.id_exists(policy_id, id))
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg(kind.id_used_msg, id, policy_name)));
    if (kind.get_id(policy_id, name) != 0)
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg(kind.name_used_msg, name, policy_name)));
    kind.insert(policy_id, id, name);
}

/* Deletes the element and every label and user authorization using it. */
static void
drop_element(const ElementKind &kind, Oid policy_id, int16 id)
{
    kind.remove(policy_id, id);
    for (int i = 0; i < kind.nreferences; i++)
    {
        const ElementReference &ref = kind.references[i];

        kind.drop_referencing(*ref.relid, ref.policy_attno, policy_id, ref.attno, id);
    }
}

/* Arguments: policy name, element id. */
static void
drop_element_by_id(const ElementKind &kind, FunctionCallInfo fcinfo)
{
    mac_catalog_change_check(fcinfo, kind.drop_action);
    char       *policy_name = CheckPolicyNameArg(MAC_ARG(0));
    int16       id = kind.check_id(MAC_ARG(1));
    Oid         policy_id = mac_lock_policy(policy_name, AccessExclusiveLock);

    if (!kind.id_exists(policy_id, id))
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg(kind.unknown_id_msg, id)));
    drop_element(kind, policy_id, id);
}

/* Arguments: policy name, element name. */
static void
drop_element_by_name(const ElementKind &kind, FunctionCallInfo fcinfo)
{
    mac_catalog_change_check(fcinfo, kind.drop_action);
    char       *policy_name = CheckPolicyNameArg(MAC_ARG(0));
    char       *name = kind.check_name(MAC_ARG(1));
    Oid         policy_id = mac_lock_policy(policy_name, AccessExclusiveLock);
    int16       id = kind.get_id(policy_id, name);

    if (!kind.valid_id(id))
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg(kind.unknown_name_msg, name)));
    drop_element(kind, policy_id, id);
}

MAC_SQL_FUNCTION(CreateLevel)
{
    create_element(level_kind, fcinfo);
    PG_RETURN_VOID();
}

MAC_SQL_FUNCTION(DropLevelById)
{
    drop_element_by_id(level_kind, fcinfo);
    PG_RETURN_VOID();
}

MAC_SQL_FUNCTION(DropLevelByName)
{
    drop_element_by_name(level_kind, fcinfo);
    PG_RETURN_VOID();
}

MAC_SQL_FUNCTION(CreateCompartment)
{
    create_element(comp_kind, fcinfo);
    PG_RETURN_VOID();
}

MAC_SQL_FUNCTION(DropCompartmentById)
{
    drop_element_by_id(comp_kind, fcinfo);
    PG_RETURN_VOID();
}

MAC_SQL_FUNCTION(DropCompartmentByName)
{
    drop_element_by_name(comp_kind, fcinfo);
    PG_RETURN_VOID();
}

/* ---------------------------------------------------------------------
 * Tables under policies
 * --------------------------------------------------------------------- */

/* The table `table` of schema `schema`. */
static Oid
lookup_table(const char *schema, const char *table)
{
    Oid         relid = get_relname_relid(table, LookupExplicitNamespace(schema, false));

    if (!OidIsValid(relid))
        ereport(ERROR,
                (errcode(ERRCODE_UNDEFINED_TABLE),
                 errmsg("relation \"%s\".\"%s\" does not exist", schema, table)));
    return relid;
}

/* Only ordinary tables that are not partitions can be protected. */
static void
check_plain_table(Oid relid, const char *table)
{
    if (get_rel_relkind(relid) != RELKIND_RELATION)
        ereport(ERROR,
                (errcode(ERRCODE_UNDEFINED_TABLE),
                 errmsg("relation \"%s\" is not a normal table", table)));
    if (get_rel_relispartition(relid))
        ereport(ERROR,
                (errcode(ERRCODE_UNDEFINED_TABLE),
                 errmsg("Mac do not support partition table")));
}

static void
AddNewTableEnforceTuple(Oid policy_id, Oid relid)
{
    if (has_policy_applied_to_rel(policy_id, relid))
        ereport(ERROR,
                (errcode(ERRCODE_INVALID_SCHEMA_NAME),
                 errmsg("table \"%s\" has already been applied policy",
                        get_rel_name(relid))));

    Datum       values[mac_col::enf_natts];
    bool        nulls[mac_col::enf_natts] = {};

    values[mac_col::enf_policy_oid - 1] = ObjectIdGetDatum(policy_id);
    values[mac_col::enf_relation_oid - 1] = ObjectIdGetDatum(relid);
    mac_catalog_insert(MacPolicyEnforcementRelationId, values, nulls);
    invalidate_table_plans(relid);
}

static void
RemoveTablePolicyTuple(Oid policy_id, Oid relid)
{
    ScanKeyData keys[2];

    mac_key_oid(&keys[0], mac_col::enf_policy_oid, policy_id);
    mac_key_oid(&keys[1], mac_col::enf_relation_oid, relid);
    if (!delete_first_match(MacPolicyEnforcementRelationId, 2, keys))
        ereport(ERROR,
                (errcode(ERRCODE_INVALID_SCHEMA_NAME),
                 errmsg("table \"%s\" has not been applyed policy \"%s\"",
                        get_rel_name(relid), get_policy_name(policy_id))));
    invalidate_table_plans(relid);
}

MAC_SQL_FUNCTION(ApplyPolicy)
{
    mac_catalog_change_check(fcinfo, "apply policy");
    char       *policy_name = CheckPolicyNameArg(MAC_ARG(0));
    char       *schema = CheckSchemaNameArg(MAC_ARG(1));
    char       *table = CheckRelNameArg(MAC_ARG(2));
    Oid         relid = lookup_table(schema, table);

    check_plain_table(relid, table);
    Oid         policy_id = mac_lock_policy(policy_name, AccessShareLock);

    lock_table_exclusive(relid);
    MacCanProtected(policy_id, relid);
    /* Applying twice fails here, before the table is changed. */
    AddNewTableEnforceTuple(policy_id, relid);
    run_without_permission_checks([&] { attach_policy_column(policy_id, relid); });
    PG_RETURN_VOID();
}

MAC_SQL_FUNCTION(RemovePolicy)
{
    mac_catalog_change_check(fcinfo, "remove policy");
    char       *policy_name = CheckPolicyNameArg(MAC_ARG(0));
    char       *schema = CheckSchemaNameArg(MAC_ARG(1));
    char       *table = CheckRelNameArg(MAC_ARG(2));
    bool        drop_column = CheckDropColumnArg(MAC_ARG(3));
    Oid         relid = lookup_table(schema, table);
    Oid         policy_id = mac_lock_policy(policy_name, AccessExclusiveLock);

    if (!has_policy_applied_to_rel(policy_id, relid))
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("policy \"%s\" is not applied to table \"%s\"",
                        policy_name, table)));

    lock_table_exclusive(relid);
    run_without_permission_checks([&] { detach_policy_column(policy_id, relid, drop_column); });
    RemoveTablePolicyTuple(policy_id, relid);
    PG_RETURN_VOID();
}

bool
IsPolicyColumn(Oid relid, const char *colname)
{
    return mac_table_column_policy(relid, get_attnum(relid, colname)) != NULL;
}

void
MAC_PolicyColPermCheck(Oid relid, const char *colname)
{
    if (IsPolicyColumn(relid, colname))
        elog(ERROR, "can not modify policy column \"%s\" of table \"%s\"",
             colname, get_rel_name(relid));
}

/* Only the administrator may change, rename or drop a policy column. */
void
mac_policy_column_change_check(Oid relid, const char *colname)
{
    if (colname == NULL || GetUserId() == MacAdminRoleId)
        return;
    if (IsPolicyColumn(relid, colname))
        ereport(ERROR,
                (errcode(ERRCODE_INSUFFICIENT_PRIVILEGE),
                 errmsg("permission denied to alter label column")));
}

/* ---------------------------------------------------------------------
 * Object policies: labelled views, functions and procedures
 * --------------------------------------------------------------------- */

/* The object a labelling call names, and the words it names it with. */
struct LabelledObject
{
    char       *kind;
    char       *name;
    Oid         namespace_id;
    Oid         object_id;
};

static bool
is_view_kind(const char *kind)
{
    return pg_strcasecmp(kind, "view") == 0;
}

/* Reads the kind, schema and object name arguments (1 to 3). */
static void
read_object_args(FunctionCallInfo fcinfo, LabelledObject *obj, char **schema)
{
    if (PG_ARGISNULL(1))
        elog(ERROR, "obj type can not be null");
    obj->kind = TextDatumGetCString(PG_GETARG_DATUM(1));
    if (!is_view_kind(obj->kind) && pg_strcasecmp(obj->kind, "function") != 0 &&
        pg_strcasecmp(obj->kind, "procedure") != 0)
        elog(ERROR, "obj type must be view\u3001function or procedure");
    *schema = CheckSchemaNameArg(MAC_ARG(2));
    if (PG_ARGISNULL(3))
        elog(ERROR, "%s can not be null", obj->kind);
    obj->name = TextDatumGetCString(PG_GETARG_DATUM(3));
}

/*
 * Finds the object in its schema: a view by name, a function or procedure
 * as the first of that name in the schema, whatever its arguments.
 */
static void
find_labelled_object(LabelledObject *obj, const char *schema)
{
    obj->namespace_id = LookupExplicitNamespace(schema, false);
    if (!is_view_kind(obj->kind))
    {
        obj->object_id = LookupMacFunctionOid(obj->namespace_id, obj->name);
        if (!OidIsValid(obj->object_id))
            elog(ERROR, "%s : %s do not exist", obj->kind, obj->name);
        return;
    }
    obj->object_id = get_relname_relid(obj->name, obj->namespace_id);
    if (!OidIsValid(obj->object_id))
        ereport(ERROR,
                (errcode(ERRCODE_UNDEFINED_TABLE),
                 errmsg("view \"%s\".\"%s\" does not exist", schema, obj->name)));
    if (get_rel_relkind(obj->object_id) != RELKIND_VIEW)
        ereport(ERROR,
                (errcode(ERRCODE_UNDEFINED_TABLE),
                 errmsg("view \"%s\" is not a view", obj->name)));
}

MAC_SQL_FUNCTION(ApplyObjPolicy)
{
    LabelledObject obj;
    char       *schema;

    mac_catalog_change_check(fcinfo, _("apply obj policy"));
    char       *policy_name = CheckPolicyNameArg(MAC_ARG(0));

    read_object_args(fcinfo, &obj, &schema);
    char       *label = CheckLabelStrArg(MAC_ARG(4));

    find_labelled_object(&obj, schema);
    Oid         policy_id = mac_lock_policy(policy_name, AccessShareLock);
    int32       label_id = char_to_label(policy_name, label);

    Datum       values[mac_col::obj_natts] = {};
    bool        nulls[mac_col::obj_natts] = {};

    values[mac_col::obj_policy_oid - 1] = ObjectIdGetDatum(policy_id);
    values[mac_col::obj_policy_name - 1] = name_datum(policy_name);
    values[mac_col::obj_type - 1] = name_datum(obj.kind);
    values[mac_col::obj_namespace - 1] = ObjectIdGetDatum(obj.namespace_id);
    values[mac_col::obj_oid - 1] = ObjectIdGetDatum(obj.object_id);
    values[mac_col::obj_label_id - 1] = Int32GetDatum(label_id);
    mac_catalog_insert(MacObjRelationId, values, nulls);
    PG_RETURN_VOID();
}

/* Removes one label row of the object under the policy. */
MAC_SQL_FUNCTION(DropObjPolicy)
{
    LabelledObject obj;
    char       *schema;
    ScanKeyData keys[3];

    mac_catalog_change_check(fcinfo, _("drop obj policy"));
    char       *policy_name = CheckPolicyNameArg(MAC_ARG(0));

    read_object_args(fcinfo, &obj, &schema);
    find_labelled_object(&obj, schema);
    Oid         policy_id = mac_lock_policy(policy_name, AccessShareLock);

    mac_key_oid(&keys[0], mac_col::obj_policy_oid, policy_id);
    mac_key_oid(&keys[1], mac_col::obj_namespace, obj.namespace_id);
    mac_key_oid(&keys[2], mac_col::obj_oid, obj.object_id);
    if (!delete_first_match(MacObjRelationId, 3, keys))
        elog(ERROR, "%s : %s label do not exist", obj.kind, obj.name);
    PG_RETURN_VOID();
}

/* ---------------------------------------------------------------------
 * Catalog listings
 * --------------------------------------------------------------------- */

/*
 * Lists catalog `relid`, a table of `ncolumns` columns.  Until the module
 * has resolved its catalogs in this process (relid 0), the listing is empty.
 */
static Datum
list_catalog(FunctionCallInfo fcinfo, Oid relid, int ncolumns)
{
    ReturnSetInfo *rsinfo = mac_begin_listing(fcinfo, ncolumns);

    if (OidIsValid(relid))
        get_catalog_rows(relid, rsinfo->setResult, rsinfo->setDesc);
    PG_RETURN_NULL();
}

MAC_SQL_FUNCTION(GetLavrelPolicy)
{
    return list_catalog(fcinfo, MacPolicyRelationId, mac_col::policy_natts);
}

MAC_SQL_FUNCTION(GetLavrelPolicyEnforcement)
{
    return list_catalog(fcinfo, MacPolicyEnforcementRelationId, mac_col::enf_natts);
}

Datum
mac_list_catalog_rows(FunctionCallInfo fcinfo, const char *action, Oid relid,
                      int ncolumns, MacListingRow fill)
{
    MacPermissionCheck(action);

    ReturnSetInfo *rsinfo = mac_begin_listing(fcinfo, ncolumns);

    get_catalog_rows_as(relid, rsinfo->setResult, rsinfo->setDesc, fill);
    return (Datum) 0;
}

/* A row of labels(): the policy's name, the label id, the label string. */
static void
label_listing_row(MacCatalogScan *scan, HeapTuple tuple, Datum *values, bool *nulls)
{
    Oid         policy_id = DatumGetObjectId(mac_scan_getattr(scan, tuple, mac_col::label_policy_oid, NULL));
    const int2vector *comps = (const int2vector *)
        DatumGetPointer(mac_scan_getattr(scan, tuple, mac_col::label_compartments, NULL));
    MacLabel    label = {DatumGetInt16(mac_scan_getattr(scan, tuple, mac_col::label_level_id, NULL)),
                         int2vector_to_bms(comps)};

    (void) nulls;
    values[0] = mac_name_datum(get_policy_name(policy_id));
    values[1] = mac_scan_getattr(scan, tuple, mac_col::label_id, NULL);
    values[2] = CStringGetTextDatum(MacLabelToCString(policy_id, &label));
}

/* labels(): every label of every policy, as a string.  The administrator's. */
MAC_SQL_FUNCTION(ListLabels)
{
    return mac_list_catalog_rows(fcinfo, "list labels", MacLabelRelationId, 3, label_listing_row);
}

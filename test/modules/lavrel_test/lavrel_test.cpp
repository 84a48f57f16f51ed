/*
 * lavrel_test.cpp
 *    SQL wrappers around internal functions of lavrel that no SQL function
 *    of the product reaches directly: the identifier reader, the label
 *    record and its dominance order, the catalog lookups, the module frame,
 *    the policy administration internals, the primitives of the session
 *    tables and the label filter.  The regression tests call them to check
 *    those functions one by one, also in states that SQL cannot produce.
 *
 * A label crosses the SQL boundary as a level (an integer in the range of
 * int2) and an int2[] of compartment ids, a null array being the empty
 * set, and comes back as text such as "3{1,2}".
 */
#include "lavrel_testing.h"

extern "C" {
#include "utils/array.h"

PG_MODULE_MAGIC;
}

namespace {

/* ---------------------------------------------------------------------
 * Arguments and results
 * --------------------------------------------------------------------- */

void
require_arg(FunctionCallInfo fcinfo, int n)
{
    if (PG_ARGISNULL(n))
        ereport(ERROR,
                (errcode(ERRCODE_NULL_VALUE_NOT_ALLOWED),
                 errmsg("argument %d must not be null", n + 1)));
}

char *
text_arg(FunctionCallInfo fcinfo, int n)
{
    return text_to_cstring(PG_GETARG_TEXT_PP(n));
}

Bitmapset *
set_from_array(ArrayType *array)
{
    Datum      *elems;
    bool       *nulls;
    int         count;
    Bitmapset  *set = NULL;

    deconstruct_array(array, INT2OID, sizeof(int16), true, TYPALIGN_SHORT,
                      &elems, &nulls, &count);
    for (int i = 0; i < count; i++)
    {
        if (nulls[i])
            ereport(ERROR,
                    (errcode(ERRCODE_NULL_VALUE_NOT_ALLOWED),
                     errmsg("compartment ids must not be null")));
        set = bms_add_member(set, DatumGetInt16(elems[i]));
    }
    return set;
}

/* Integer argument n, which must lie in the range of int2. */
int16
int16_arg(FunctionCallInfo fcinfo, int n)
{
    require_arg(fcinfo, n);
    int32       value = PG_GETARG_INT32(n);

    if (value < PG_INT16_MIN || value > PG_INT16_MAX)
        ereport(ERROR,
                (errcode(ERRCODE_NUMERIC_VALUE_OUT_OF_RANGE),
                 errmsg("%d is out of range for type smallint", value)));
    return (int16) value;
}

/* The label of arguments n (level) and n + 1 (compartments). */
MacLabel *
label_arg(FunctionCallInfo fcinfo, int n)
{
    int16       level = int16_arg(fcinfo, n);
    Bitmapset  *set = PG_ARGISNULL(n + 1) ? NULL : set_from_array(PG_GETARG_ARRAYTYPE_P(n + 1));
    MacLabel   *label = make_mac_label(level, set);

    bms_free(set);
    return label;
}

/* Label a from arguments 1-2; b from 3-4, or a itself when b's level is null. */
void
label_pair(FunctionCallInfo fcinfo, MacLabel **a, MacLabel **b)
{
    *a = label_arg(fcinfo, 0);
    *b = PG_ARGISNULL(2) ? *a : label_arg(fcinfo, 2);
}

/* "level{c1,c2,...}", compartments ascending. */
char *
label_text(const MacLabel *label)
{
    StringInfoData buf;
    const char *sep = "";

    initStringInfo(&buf);
    appendStringInfo(&buf, "%d{", label->level);
    for (int m = -1; (m = bms_next_member(label->compartments, m)) >= 0; sep = ",")
        appendStringInfo(&buf, "%s%d", sep, m);
    appendStringInfoChar(&buf, '}');
    return buf.data;
}

Datum
label_datum(const MacLabel *label)
{
    return CStringGetTextDatum(label_text(label));
}

Datum
order_datum(MacLabelOrder order)
{
    switch (order)
    {
        case LABEL_NONCOMPARABLE:
            return CStringGetTextDatum("LABEL_NONCOMPARABLE");
        case LABEL_EQUAL:
            return CStringGetTextDatum("LABEL_EQUAL");
        case LABEL_DOMINATES:
            return CStringGetTextDatum("LABEL_DOMINATES");
        case LABEL_DOMINATED:
            return CStringGetTextDatum("LABEL_DOMINATED");
    }
    return CStringGetTextDatum(psprintf("unknown order %d", (int) order));
}

/* Appends one row to the result of a set-returning function. */
void
put_row(FunctionCallInfo fcinfo, Datum *values, bool *nulls)
{
    ReturnSetInfo *rsinfo = (ReturnSetInfo *) fcinfo->resultinfo;

    tuplestore_putvalues(rsinfo->setResult, rsinfo->setDesc, values, nulls);
}

Datum
text_datum(const char *str)
{
    return CStringGetTextDatum(str);
}

/* The bytes of argument n, which must hold no zero byte, NUL-terminated. */
char *
bytes_arg(FunctionCallInfo fcinfo, int n)
{
    bytea      *raw = PG_GETARG_BYTEA_PP(n);
    int         len = VARSIZE_ANY_EXHDR(raw);

    if (memchr(VARDATA_ANY(raw), '\0', len) != NULL)
        ereport(ERROR,
                (errcode(ERRCODE_INVALID_PARAMETER_VALUE),
                 errmsg("argument %d must not contain a zero byte", n + 1)));
    return pnstrdup(VARDATA_ANY(raw), len);
}

/* A bytea of the bytes of str (text and bytea share one representation). */
Datum
bytes_datum(const char *str)
{
    return PointerGetDatum(cstring_to_text(str));
}

/*
 * The identifier at the front of raw and the text behind it, one row, each
 * converted by to_datum; argument 2 is the reader's warn flag.
 */
Datum
split_identifier(FunctionCallInfo fcinfo, char *raw, Datum (*to_datum)(const char *))
{
    char       *unchanged = pstrdup(raw);
    char       *ident;
    char       *end;

    SplitOneIdentifierString(raw, &end, &ident, PG_GETARG_BOOL(1));
    if (strcmp(raw, unchanged) != 0)
        elog(ERROR, "the identifier reader changed its input");

    Datum       values[2] = {to_datum(ident), to_datum(end)};
    bool        nulls[2] = {false, false};

    InitMaterializedSRF(fcinfo, 0);
    put_row(fcinfo, values, nulls);
    return (Datum) 0;
}

template <bool (*Predicate)(const MacLabel *, const MacLabel *)>
Datum
label_predicate(FunctionCallInfo fcinfo)
{
    MacLabel   *a;
    MacLabel   *b;

    label_pair(fcinfo, &a, &b);
    PG_RETURN_BOOL(Predicate(a, b));
}

/* Bytes of `context` in use: its blocks minus their free space. */
Size
context_used(MemoryContext context)
{
    MemoryContextCounters counters = {};

    context->methods->stats(context, NULL, NULL, &counters, false);
    return counters.totalspace - counters.freespace;
}

char *
access_text(const UserPolicyAccess *access)
{
    const MacLabel read = {access->max_level, access->max_read_comps};
    const MacLabel write = {access->max_level, access->max_write_comps};
    const MacLabel min_write = {access->min_write_level, access->min_write_comps};
    const MacLabel def = {access->def_level, access->def_comps};
    const MacLabel row = {access->row_level, access->row_comps};

    return psprintf("read=%s write=%s min_write=%s def=%s row=%s",
                    label_text(&read), label_text(&write), label_text(&min_write),
                    label_text(&def), label_text(&row));
}

/* The resolved ids, in the order the module resolves them. */
struct NamedId
{
    const char *name;
    const Oid  *id;
};

const NamedId object_ids[] = {
    {"MacPolicyRelationId", &MacPolicyRelationId},
    {"MacLevelRelationId", &MacLevelRelationId},
    {"MacCompartmentRelationId", &MacCompartmentRelationId},
    {"MacLabelRelationId", &MacLabelRelationId},
    {"MacPolicyEnforcementRelationId", &MacPolicyEnforcementRelationId},
    {"MacPolicyUserRelationId", &MacPolicyUserRelationId},
    {"MacObjRelationId", &MacObjRelationId},
    {"GenDefLabelProc", &GenDefLabelProc},
    {"ReadMediationProc", &ReadMediationProc},
    {"WriteMediationProc", &WriteMediationProc},
    {"LabelInsertProc", &LabelInsertProc},
    {"LabelUpdateProc", &LabelUpdateProc},
    {"LabelToCharProc", &LabelToCharProc},
    {"CharToLabelProc", &CharToLabelProc},
    {"ReadableLabelsProc", &ReadableLabelsProc},
    {"LabelInProc", &LabelInProc},
};

/*
 * Hook values of every type, compared and stored as one function pointer
 * type (a round trip through another function pointer type keeps the
 * value).
 */
using AnyFunction = void (*)(void);

template <typename Fn>
AnyFunction
any_function(Fn fn)
{
    return reinterpret_cast<AnyFunction>(fn);
}

/*
 * Calls visit(hook name, address of the hook, the lavrel function that
 * lavrel's load entry point puts there, that function's name) for every
 * hook lavrel fills.
 */
template <typename Visit>
void
for_each_hook(Visit visit)
{
    visit("MacNeedCheckPermisition_hook", &MacNeedCheckPermisition_hook,
          &MacNeedCheckPermisition, "MacNeedCheckPermisition");
    visit("MAC_Rewrite_hook", &MAC_Rewrite_hook, &MAC_Rewrite, "MAC_Rewrite");
    visit("MacFunctionNotInlinable_hook", &MacFunctionNotInlinable_hook,
          &MacFunctionNotInlinable, "MacFunctionNotInlinable");
    visit("MacHiddenPolicyColumn_hook", &MacHiddenPolicyColumn_hook,
          &MacHiddenPolicyColumn, "MacHiddenPolicyColumn");
    visit("MacProcessUtility_hook", &MacProcessUtility_hook,
          &policy_process_utility_hook, "policy_process_utility_hook");
    visit("MacSessionDiscarded_hook", &MacSessionDiscarded_hook,
          &MacSessionDiscarded, "MacSessionDiscarded");
    visit("MacForeignKeyAction_hook", &MacForeignKeyAction_hook,
          &MacForeignKeyAction, "MacForeignKeyAction");
    visit("MacRelationWritten_hook", &MacRelationWritten_hook,
          &MacRelationWritten, "MacRelationWritten");
    visit("MacCreateExtensionProcess_hook", &MacCreateExtensionProcess_hook,
          &MacCreateExtensionProcess, "MacCreateExtensionProcess");
    visit("MacCheckAlterTable_hook", &MacCheckAlterTable_hook,
          &MacCheckAlterTable, "MacCheckAlterTable");
    visit("MacCheckRenameColumn_hook", &MacCheckRenameColumn_hook,
          &MacCheckRenameColumn, "MacCheckRenameColumn");
    visit("ObjMediation_hook", &ObjMediation_hook, &ObjMediation, "ObjMediation");
    visit("MacObjectDrop_hook", &MacObjectDrop_hook, &MacObjectDrop, "MacObjectDrop");
    visit("MacRelationTruncate_hook", &MacRelationTruncate_hook,
          &MacRelationTruncate, "MacRelationTruncate");
    visit("MacInheritanceLink_hook", &MacInheritanceLink_hook,
          &MacInheritanceLink, "MacInheritanceLink");
    visit("SyncMacSession_hook", &SyncMacSession_hook, &SyncMacSession, "SyncMacSession");
}

/* What a hook holds: nothing, the lavrel function of that hook, or another function. */
Datum
hook_target(AnyFunction value, AnyFunction lavrel_fn, const char *lavrel_fn_name)
{
    if (value == NULL)
        return CStringGetTextDatum("null");
    if (value == lavrel_fn)
        return CStringGetTextDatum(lavrel_fn_name);
    return CStringGetTextDatum("another function");
}

} // namespace

/* ---------------------------------------------------------------------
 * The identifier reader
 * --------------------------------------------------------------------- */

MAC_SQL_FUNCTION(TestSplitIdentifier)
{
    return split_identifier(fcinfo, text_arg(fcinfo, 0), text_datum);
}

/* The same on raw bytes, which need not be valid in the database encoding. */
MAC_SQL_FUNCTION(TestSplitIdentifierBytes)
{
    return split_identifier(fcinfo, bytes_arg(fcinfo, 0), bytes_datum);
}

/* ---------------------------------------------------------------------
 * The label record and dominance
 * --------------------------------------------------------------------- */

MAC_SQL_FUNCTION(TestCompareLabels)
{
    MacLabel   *a;
    MacLabel   *b;

    label_pair(fcinfo, &a, &b);
    return order_datum(compare_mac_label(a, b));
}

MAC_SQL_FUNCTION(TestStrictlyDominates)
{
    return label_predicate<strictly_dominates>(fcinfo);
}

MAC_SQL_FUNCTION(TestDominates)
{
    return label_predicate<dominates>(fcinfo);
}

MAC_SQL_FUNCTION(TestDominatedBy)
{
    return label_predicate<dominated_by>(fcinfo);
}

MAC_SQL_FUNCTION(TestStrictlyDominatedBy)
{
    return label_predicate<strictly_dominated_by>(fcinfo);
}

/*
 * Compares label a, after removing every member of its set one by one (so
 * that the set stays allocated with no members), with label b.
 */
MAC_SQL_FUNCTION(TestCompareEmptiedLabel)
{
    MacLabel   *a = label_arg(fcinfo, 0);
    MacLabel   *b = label_arg(fcinfo, 2);

    for (int m = -1; (m = bms_next_member(a->compartments, m)) >= 0;)
        a->compartments = bms_del_member(a->compartments, m);
    if (a->compartments == NULL)
        ereport(ERROR,
                (errcode(ERRCODE_INVALID_PARAMETER_VALUE),
                 errmsg("the label to empty needs at least one compartment")));
    return order_datum(compare_mac_label(a, b));
}

MAC_SQL_FUNCTION(TestMergeLabels)
{
    MacLabel   *a = label_arg(fcinfo, 0);
    MacLabel   *b = label_arg(fcinfo, 2);
    char       *a_before = label_text(a);
    char       *b_before = label_text(b);

    require_arg(fcinfo, 4);
    MacLabel   *merged = merge_label(a, b, (uint32) PG_GETARG_INT32(4));

    if (strcmp(a_before, label_text(a)) != 0 || strcmp(b_before, label_text(b)) != 0)
        elog(ERROR, "merge_label changed its arguments");
    return label_datum(merged);
}

/*
 * Copies a label, then changes the source's level and set and frees it:
 * a copy that shared memory with its source would show the change.
 */
MAC_SQL_FUNCTION(TestCopyLabel)
{
    MacLabel   *source = label_arg(fcinfo, 0);
    MacLabel   *copy = copy_mac_label(source);

    source->level++;
    source->compartments = bms_add_member(source->compartments, 0);
    free_mac_label(source);
    return label_datum(copy);
}

MAC_SQL_FUNCTION(TestCopyNullLabel)
{
    free_mac_label(NULL);
    PG_RETURN_BOOL(copy_mac_label(NULL) == NULL);
}

/* ---------------------------------------------------------------------
 * Catalog lookups
 * --------------------------------------------------------------------- */

MAC_SQL_FUNCTION(TestGetPolicyId)
{
    PG_RETURN_OID(get_policy_id(text_arg(fcinfo, 0)));
}

MAC_SQL_FUNCTION(TestGetPolicyIdChecked)
{
    PG_RETURN_OID(get_policy_id_checked(text_arg(fcinfo, 0)));
}

MAC_SQL_FUNCTION(TestGetMinLevelId)
{
    PG_RETURN_INT16(get_min_level_id(PG_GETARG_OID(0)));
}

MAC_SQL_FUNCTION(TestGetLevelId)
{
    PG_RETURN_INT16(get_level_id(PG_GETARG_OID(0), text_arg(fcinfo, 1)));
}

MAC_SQL_FUNCTION(TestGetPolicyColhidden)
{
    PG_RETURN_BOOL(get_policy_colhidden(text_arg(fcinfo, 0)));
}

MAC_SQL_FUNCTION(TestGetPolicyidByColname)
{
    PG_RETURN_OID(get_policyid_by_colname(text_arg(fcinfo, 0)));
}

MAC_SQL_FUNCTION(TestGetLabelId)
{
    require_arg(fcinfo, 0);
    PG_RETURN_INT32(get_label_id(PG_GETARG_OID(0), label_arg(fcinfo, 1)));
}

MAC_SQL_FUNCTION(TestGetLabelById)
{
    MacLabel   *label = get_label_by_id(PG_GETARG_INT32(0));

    if (label == NULL)
        PG_RETURN_NULL();
    return label_datum(label);
}

MAC_SQL_FUNCTION(TestGetLabelPolicyId)
{
    PG_RETURN_OID(get_label_policy_id(PG_GETARG_INT32(0)));
}

/*
 * Reads a user's authorization into a record, or with a null record only
 * tests that it exists, and reports how many bytes the lookup left
 * allocated in the memory context it ran in.
 */
MAC_SQL_FUNCTION(TestGetUserPolicyAccess)
{
    bool        with_record = PG_GETARG_BOOL(2);
    UserPolicyAccess access;
    MemoryContext probe = AllocSetContextCreate(CurrentMemoryContext, "lavrel_test probe",
                                                ALLOCSET_DEFAULT_SIZES);
    MemoryContext caller = MemoryContextSwitchTo(probe);
    Size        before = context_used(probe);
    bool        found = get_user_policy_access(PG_GETARG_OID(0), PG_GETARG_OID(1),
                                               with_record ? &access : NULL);
    Size        left = context_used(probe) - before;

    MemoryContextSwitchTo(caller);

    Datum       values[3] = {BoolGetDatum(found), Int64GetDatum((int64) left), (Datum) 0};
    bool        nulls[3] = {false, false, !(found && with_record)};

    if (!nulls[2])
        values[2] = CStringGetTextDatum(access_text(&access));
    InitMaterializedSRF(fcinfo, 0);
    put_row(fcinfo, values, nulls);
    MemoryContextDelete(probe);
    return (Datum) 0;
}

MAC_SQL_FUNCTION(TestGetUserPolicyPrivilege)
{
    PG_RETURN_INT32(get_user_policy_privilege(PG_GETARG_OID(0), PG_GETARG_OID(1)));
}

MAC_SQL_FUNCTION(TestGetPolicyidsOnRel)
{
    List       *ids = get_policyids_on_rel(PG_GETARG_OID(0));
    int         count = list_length(ids);
    Datum      *elems = (Datum *) palloc(sizeof(Datum) * (count + 1));

    for (int i = 0; i < count; i++)
        elems[i] = ObjectIdGetDatum(list_nth_oid(ids, i));
    PG_RETURN_ARRAYTYPE_P(construct_array(elems, count, OIDOID, sizeof(Oid), true, TYPALIGN_INT));
}

MAC_SQL_FUNCTION(TestGetPolicyName)
{
    PG_RETURN_TEXT_P(cstring_to_text(get_policy_name(PG_GETARG_OID(0))));
}

MAC_SQL_FUNCTION(TestGetPolicyColname)
{
    PG_RETURN_TEXT_P(cstring_to_text(get_policy_colname(PG_GETARG_OID(0))));
}

MAC_SQL_FUNCTION(TestGetPolicyenabled)
{
    PG_RETURN_BOOL(get_policyenabled(PG_GETARG_OID(0)));
}

MAC_SQL_FUNCTION(TestPolicyObjectChecked)
{
    policy_object_checked(PG_GETARG_OID(0));
    PG_RETURN_VOID();
}

MAC_SQL_FUNCTION(TestGetLevelName)
{
    PG_RETURN_TEXT_P(cstring_to_text(get_level_name(PG_GETARG_OID(0), int16_arg(fcinfo, 1))));
}

MAC_SQL_FUNCTION(TestGetCompartmentName)
{
    PG_RETURN_TEXT_P(cstring_to_text(get_compartment_name(PG_GETARG_OID(0), int16_arg(fcinfo, 1))));
}

/* ---------------------------------------------------------------------
 * The module frame
 * --------------------------------------------------------------------- */

MAC_SQL_FUNCTION(TestMacIsenable)
{
    PG_RETURN_BOOL(MAC_isenable());
}

MAC_SQL_FUNCTION(TestMacObjectIds)
{
    InitMaterializedSRF(fcinfo, 0);
    for (const NamedId &entry : object_ids)
    {
        Datum       values[2] = {CStringGetTextDatum(entry.name), ObjectIdGetDatum(*entry.id)};
        bool        nulls[2] = {false, false};

        put_row(fcinfo, values, nulls);
    }
    return (Datum) 0;
}

/* Tells the module an extension script starts or ends; returns its flag. */
MAC_SQL_FUNCTION(TestCreateExtensionProcess)
{
    require_arg(fcinfo, 1);
    MacCreateExtensionProcess(PG_ARGISNULL(0) ? NULL : text_arg(fcinfo, 0), PG_GETARG_BOOL(1));
    PG_RETURN_BOOL(MacCreateLavrelExtension);
}

/* The module's "lavrel extension script is running" flag, left as it is. */
MAC_SQL_FUNCTION(TestCreatingLavrelExtension)
{
    PG_RETURN_BOOL(MacCreateLavrelExtension);
}

/* Every hook lavrel fills at load, and what it holds now. */
MAC_SQL_FUNCTION(TestHooks)
{
    InitMaterializedSRF(fcinfo, 0);
    for_each_hook([&](const char *hook, auto *slot, auto lavrel_fn, const char *lavrel_fn_name) {
        Datum       values[2] = {CStringGetTextDatum(hook),
                                 hook_target(any_function(*slot), any_function(lavrel_fn),
                                             lavrel_fn_name)};
        bool        nulls[2] = {false, false};

        put_row(fcinfo, values, nulls);
    });
    return (Datum) 0;
}

/*
 * Re-reads the configuration files in this backend now, as a reload signal
 * would at its next idle moment, so that a test sees a changed
 * lavrel.enable_mac within one session; returns the variable's new value.
 */
MAC_SQL_FUNCTION(TestReloadEnableMac)
{
    ProcessConfigFile(PGC_SIGHUP);
    PG_RETURN_TEXT_P(cstring_to_text(GetConfigOption("lavrel.enable_mac", false, false)));
}

/* ---------------------------------------------------------------------
 * Policy administration internals
 * --------------------------------------------------------------------- */

MAC_SQL_FUNCTION(TestIsPolicyColumn)
{
    PG_RETURN_BOOL(IsPolicyColumn(PG_GETARG_OID(0), text_arg(fcinfo, 1)));
}

MAC_SQL_FUNCTION(TestPolicyColPermCheck)
{
    MAC_PolicyColPermCheck(PG_GETARG_OID(0), text_arg(fcinfo, 1));
    PG_RETURN_VOID();
}

MAC_SQL_FUNCTION(TestIsPolicyProtectedRel)
{
    PG_RETURN_BOOL(mac_table_is_protected(PG_GETARG_OID(0)));
}

/* The record of every relation given: one row per policy, in record order. */
MAC_SQL_FUNCTION(TestProtectedTable)
{
    ArrayType  *rels = PG_GETARG_ARRAYTYPE_P(0);
    Datum      *elems;
    bool       *elem_nulls;
    int         count;

    deconstruct_array(rels, ARR_ELEMTYPE(rels), sizeof(Oid), true, TYPALIGN_INT,
                      &elems, &elem_nulls, &count);
    InitMaterializedSRF(fcinfo, 0);
    for (int i = 0; i < count; i++)
    {
        const MacProtectedTable *table = mac_protected_table(DatumGetObjectId(elems[i]));

        for (int k = 0; k < table->npolicies; k++)
        {
            const MacTablePolicy *policy = &table->policies[k];
            Datum       values[5] = {elems[i], ObjectIdGetDatum(policy->policy_id),
                                     BoolGetDatum(policy->enabled), BoolGetDatum(policy->hidden),
                                     Int32GetDatum(policy->attnum)};
            bool        nulls[5] = {false, false, false, false, false};

            put_row(fcinfo, values, nulls);
        }
    }
    return (Datum) 0;
}

MAC_SQL_FUNCTION(TestRemovePolicyById)
{
    RemovePolicyByIdMac(PG_GETARG_OID(0));
    PG_RETURN_VOID();
}

MAC_SQL_FUNCTION(TestAlterPolicyTuple)
{
    AlterPolicyTuple(PG_GETARG_OID(0), PG_GETARG_BOOL(1));
    PG_RETURN_VOID();
}

namespace {

/*
 * Removes a level or compartment row by (policy, id) and tells whether a
 * lookup in the same command still sees it, i.e. whether the removal made
 * itself visible with a command counter increment.
 */
template <void (*Remove)(Oid, int16), bool (*Exists)(Oid, int16)>
Datum
remove_element(FunctionCallInfo fcinfo)
{
    Oid         policy_id = PG_GETARG_OID(0);
    int16       id = int16_arg(fcinfo, 1);

    Remove(policy_id, id);
    PG_RETURN_BOOL(Exists(policy_id, id));
}

} // namespace

MAC_SQL_FUNCTION(TestRemoveLevelById)
{
    return remove_element<RemoveLevelById, level_id_exists>(fcinfo);
}

MAC_SQL_FUNCTION(TestRemoveCompById)
{
    return remove_element<RemoveCompById, compartment_id_exists>(fcinfo);
}

/* Removes a label row; tells whether the same command still sees it. */
MAC_SQL_FUNCTION(TestRemoveLabelById)
{
    int32       label_id = PG_GETARG_INT32(0);

    RemoveLabelById(label_id);
    PG_RETURN_BOOL(label_id_exists(label_id));
}

/* ---------------------------------------------------------------------
 * The session tables' primitives
 *
 * The wrappers link records of their own under a key that no policy or
 * label uses, and unlink them again before they return, so that a later
 * synchronisation never meets them.
 * --------------------------------------------------------------------- */

namespace {

/* One session table with its lookup, insert and delete primitives. */
template <typename Record, typename Key>
struct SessionTable
{
    HTAB      **table;
    Record   *(*lookup)(Key key);
    void        (*insert)(Key key, Record *rec);
    void        (*remove)(Record *rec);
};

const SessionTable<MacSessionLabel, Oid> session_label_table = {
    &MacSessionLabelHT, mac_SessionLabelHTLookup, mac_SessionLabelHTInsert,
    mac_SessionLabelHTDelete};
const SessionTable<MacLabelLookupInfo, Oid> lookup_info_table = {
    &MacLabelLookupInfoHT, mac_LabelLookupInfoHTLookup, mac_LabelLookupInfoHTInsert,
    mac_LabelLookupInfoHTDelete};
const SessionTable<MacLabelMediation, int32> mediation_table = {
    &MacLabelMediationHT, mac_LabelMediationHTLookup, mac_LabelMediationHTInsert,
    mac_LabelMediationHTDelete};

/* Refuses to work on a missing table or on a key that is in use. */
template <typename Record, typename Key>
void
require_free_key(const SessionTable<Record, Key> &t, Key key)
{
    if (*t.table == NULL)
        ereport(ERROR,
                (errcode(ERRCODE_OBJECT_NOT_IN_PREREQUISITE_STATE),
                 errmsg("the session tables do not exist in this backend")));
    if (t.lookup(key) != NULL)
        ereport(ERROR,
                (errcode(ERRCODE_INVALID_PARAMETER_VALUE),
                 errmsg("key %u is in use", (uint32) key)));
}

/* Which of two records rec is: "first", "second" or "none". */
template <typename Record>
Datum
which_record(const Record *rec, const Record *first, const Record *second)
{
    if (rec == NULL)
        return CStringGetTextDatum("none");
    if (rec == first)
        return CStringGetTextDatum("first");
    return CStringGetTextDatum(rec == second ? "second" : "another");
}

/*
 * Inserts two records under one key, then deletes the second and the
 * first.  Reports what a lookup finds after the second insertion, whether
 * the first record is still linked then, and what a lookup finds at the end.
 */
template <typename Record, typename Key>
Datum
insert_twice(FunctionCallInfo fcinfo, const SessionTable<Record, Key> &t, Key key)
{
    Record     *first = (Record *) palloc0(sizeof(Record));
    Record     *second = (Record *) palloc0(sizeof(Record));

    require_free_key(t, key);
    t.insert(key, first);
    t.insert(key, second);

    Datum       found = which_record(t.lookup(key), first, second);
    bool        first_linked = first->entry != NULL;

    t.remove(second);
    t.remove(first);

    Datum       values[3] = {found, BoolGetDatum(first_linked),
                             which_record(t.lookup(key), first, second)};
    bool        nulls[3] = {false, false, false};

    InitMaterializedSRF(fcinfo, 0);
    put_row(fcinfo, values, nulls);
    return (Datum) 0;
}

/*
 * Deletes, twice, a record whose back-link names an element that the table
 * does not hold.  Reports whether the first deletion cleared the back-link
 * and whether the key is in the table afterwards.
 */
template <typename Record, typename Key>
Datum
delete_stray(FunctionCallInfo fcinfo, const SessionTable<Record, Key> &t, Key key)
{
    Record     *rec = (Record *) palloc0(sizeof(Record));
    MacHashEntry stray = {(uint32) key, rec};

    require_free_key(t, key);
    rec->entry = &stray;
    t.remove(rec);

    bool        cleared = rec->entry == NULL;

    t.remove(rec);

    Datum       values[2] = {BoolGetDatum(cleared), BoolGetDatum(t.lookup(key) != NULL)};
    bool        nulls[2] = {false, false};

    InitMaterializedSRF(fcinfo, 0);
    put_row(fcinfo, values, nulls);
    return (Datum) 0;
}

/* Runs op on the table named by argument 1 with the key of argument 2. */
template <typename Op>
Datum
with_session_table(FunctionCallInfo fcinfo, Op op)
{
    const char *name = text_arg(fcinfo, 0);
    uint32      key = PG_GETARG_OID(1);

    if (strcmp(name, "User Session Label") == 0)
        return op(session_label_table, (Oid) key);
    if (strcmp(name, "Label Lookup Info") == 0)
        return op(lookup_info_table, (Oid) key);
    if (strcmp(name, "Label Mediation") == 0)
        return op(mediation_table, (int32) key);
    ereport(ERROR,
            (errcode(ERRCODE_INVALID_PARAMETER_VALUE),
             errmsg("no session table is named \"%s\"", name)));
}

} // namespace

MAC_SQL_FUNCTION(TestSessionInsertTwice)
{
    return with_session_table(fcinfo, [fcinfo](const auto &t, auto key) {
        return insert_twice(fcinfo, t, key);
    });
}

MAC_SQL_FUNCTION(TestSessionDeleteStray)
{
    return with_session_table(fcinfo, [fcinfo](const auto &t, auto key) {
        return delete_stray(fcinfo, t, key);
    });
}

/* Initialises the session memory context, which may exist already. */
MAC_SQL_FUNCTION(TestInitMacSessionMemoryContext)
{
    InitMacSessionMemoryContext();
    PG_RETURN_VOID();
}

/* ---------------------------------------------------------------------
 * The label filter
 * --------------------------------------------------------------------- */

/*
 * Analyses one UPDATE or DELETE statement, gives it a set operation when
 * argument 2 asks for one (no UPDATE or DELETE written in SQL has any),
 * runs the label filter on it and returns how many security quals its
 * result relation then carries.
 */
MAC_SQL_FUNCTION(TestRewriteWriteStatement)
{
    char       *sql = text_arg(fcinfo, 0);
    List       *stmts = pg_parse_query(sql);
    Query      *query;

    if (list_length(stmts) != 1)
        ereport(ERROR,
                (errcode(ERRCODE_INVALID_PARAMETER_VALUE),
                 errmsg("exactly one statement expected")));
    query = linitial_node(Query, pg_analyze_and_rewrite_fixedparams(linitial_node(RawStmt, stmts),
                                                                    sql, NULL, 0, NULL));
    if (query->commandType != CMD_UPDATE && query->commandType != CMD_DELETE)
        ereport(ERROR,
                (errcode(ERRCODE_INVALID_PARAMETER_VALUE),
                 errmsg("an UPDATE or DELETE statement expected")));
    if (PG_GETARG_BOOL(1))
        query->setOperations = (Node *) makeNode(SetOperationStmt);
    query = MAC_Rewrite(query);
    PG_RETURN_INT32(list_length(rt_fetch(query->resultRelation, query->rtable)->securityQuals));
}

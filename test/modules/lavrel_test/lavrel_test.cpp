/*
 * lavrel_test.cpp
 *    SQL wrappers around internal functions of lavrel that no SQL function
 *    of the product reaches directly: the identifier reader, the label
 *    record and its dominance order, the catalog lookups and the module
 *    frame.  The regression tests call them to check those functions one
 *    by one.
 *
 * A label crosses the SQL boundary as a level (an integer in the range of
 * int2) and an int2[] of compartment ids, a null array being the empty
 * set, and comes back as text such as "3{1,2}".
 */
#include "lavrel.h"

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

/* The label of arguments n (level) and n + 1 (compartments). */
MacLabel *
label_arg(FunctionCallInfo fcinfo, int n)
{
    require_arg(fcinfo, n);
    int32       level = PG_GETARG_INT32(n);

    if (level < PG_INT16_MIN || level > PG_INT16_MAX)
        ereport(ERROR,
                (errcode(ERRCODE_NUMERIC_VALUE_OUT_OF_RANGE),
                 errmsg("level %d is out of range for type smallint", level)));

    Bitmapset  *set = PG_ARGISNULL(n + 1) ? NULL : set_from_array(PG_GETARG_ARRAYTYPE_P(n + 1));
    MacLabel   *label = make_mac_label((int16) level, set);

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
    {"PolicyMaxLabelIdProc", &PolicyMaxLabelIdProc},
    {"PolicyMinLabelIdProc", &PolicyMinLabelIdProc},
};

/* What a hook points to: nothing, the given lavrel function, or another. */
template <typename Hook>
Datum
hook_target(Hook hook, Hook lavrel_fn, const char *lavrel_fn_name)
{
    if (hook == NULL)
        return CStringGetTextDatum("null");
    return CStringGetTextDatum(hook == lavrel_fn ? lavrel_fn_name : "another function");
}

template <typename Hook>
void
put_hook_row(FunctionCallInfo fcinfo, const char *hook_name, Hook before, Hook after,
             Hook lavrel_fn, const char *lavrel_fn_name)
{
    Datum       values[3] = {CStringGetTextDatum(hook_name),
                             hook_target(before, lavrel_fn, lavrel_fn_name),
                             hook_target(after, lavrel_fn, lavrel_fn_name)};
    bool        nulls[3] = {false, false, false};

    put_row(fcinfo, values, nulls);
}

} // namespace

/* ---------------------------------------------------------------------
 * The identifier reader
 * --------------------------------------------------------------------- */

MAC_SQL_FUNCTION(TestSplitIdentifier)
{
    char       *raw = text_arg(fcinfo, 0);
    char       *unchanged = pstrdup(raw);
    char       *ident;
    char       *end;

    SplitOneIdentifierString(raw, &end, &ident, PG_GETARG_BOOL(1));
    if (strcmp(raw, unchanged) != 0)
        elog(ERROR, "the identifier reader changed its input to \"%s\"", raw);

    Datum       values[2] = {CStringGetTextDatum(ident), CStringGetTextDatum(end)};
    bool        nulls[2] = {false, false};

    InitMaterializedSRF(fcinfo, 0);
    put_row(fcinfo, values, nulls);
    return (Datum) 0;
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

/*
 * Runs the module's unload entry point and reports each hook before and
 * after it; then puts the hooks back, so that this backend goes on working.
 */
MAC_SQL_FUNCTION(TestPgFini)
{
    MacNeedCheckPermisition_hook_type need_check = MacNeedCheckPermisition_hook;
    MacCreateExtensionProcess_hook_type create_extension = MacCreateExtensionProcess_hook;
    SyncMacSession_hook_type sync_session = SyncMacSession_hook;

    _PG_fini();

    MacNeedCheckPermisition_hook_type need_check_after = MacNeedCheckPermisition_hook;
    MacCreateExtensionProcess_hook_type create_extension_after = MacCreateExtensionProcess_hook;
    SyncMacSession_hook_type sync_session_after = SyncMacSession_hook;

    MacNeedCheckPermisition_hook = need_check;
    MacCreateExtensionProcess_hook = create_extension;
    SyncMacSession_hook = sync_session;

    InitMaterializedSRF(fcinfo, 0);
    put_hook_row(fcinfo, "MacNeedCheckPermisition_hook", need_check, need_check_after,
                 &MacNeedCheckPermisition, "MacNeedCheckPermisition");
    put_hook_row(fcinfo, "MacCreateExtensionProcess_hook", create_extension,
                 create_extension_after, &MacCreateExtensionProcess,
                 "MacCreateExtensionProcess");
    put_hook_row(fcinfo, "SyncMacSession_hook", sync_session, sync_session_after,
                 &SyncMacSession, "SyncMacSession");
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

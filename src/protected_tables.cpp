/*
 * protected_tables.cpp
 *    One record per table, kept from one statement to the next: the
 *    policies applied to the table, whether each is enabled, the number
 *    of its policy column in the table and whether the policy hides it.
 *    The label filter, COPY, star expansion and the guards on drops,
 *    TRUNCATE, inheritance and ALTER TABLE all read the table through it.
 *
 * Any relcache invalidation drops every record: a policy may have been
 * applied, removed, enabled or disabled (each a write to a lavrel catalog,
 * which sends a relcache invalidation of it), or a column renamed.  That
 * is rare next to the statements that ask.  A record is read from the
 * catalogs in full before it is entered, so an error leaves none behind.
 */
#include "lavrel.h"

namespace {

MemoryContext records_context = NULL;
HTAB       *records = NULL;
uint64      records_generation = 0;
/* The record asked for last: star expansion asks about one table column after column. */
MacProtectedTable *last_record = NULL;

/* The table of records, emptied after a relcache invalidation. */
HTAB *
record_table(void)
{
    if (records_generation == mac_relcache_generation)
        return records;
    last_record = NULL;
    mac_empty_cache_context(&records_context, "lavrel protected tables");
    records = mac_oid_hash_table("lavrel protected tables", sizeof(MacProtectedTable),
                                 records_context);
    records_generation = mac_relcache_generation;
    return records;
}

/* The policies of the table as the catalogs have them, in the caller's context. */
MacTablePolicy *
read_table_policies(Oid relid, int *count)
{
    List       *policy_ids = get_policyids_on_rel(relid);
    MacTablePolicy *policies;
    ListCell   *lc;

    *count = list_length(policy_ids);
    if (*count == 0)
        return NULL;
    policies = (MacTablePolicy *) palloc(*count * sizeof(MacTablePolicy));
    foreach(lc, policy_ids)
    {
        MacPolicyRow row;
        MacTablePolicy *p = &policies[foreach_current_index(lc)];

        get_policy_row(lfirst_oid(lc), &row);
        p->policy_id = lfirst_oid(lc);
        p->enabled = row.enabled;
        p->hidden = row.column_hidden;
        p->attnum = get_attnum(relid, row.column_name);
    }
    return policies;
}

} // namespace

const MacProtectedTable *
mac_protected_table(Oid relid)
{
    HTAB       *table = record_table();
    MacProtectedTable *record;
    MacTablePolicy *policies;
    int         count;

    if (last_record != NULL && last_record->relid == relid)
        return last_record;
    record = (MacProtectedTable *) hash_search(table, &relid, HASH_FIND, NULL);
    if (record != NULL)
        return last_record = record;
    policies = read_table_policies(relid, &count);
    /* Not kept when the reads took in an invalidation: the caller's, then. */
    if (records_generation != mac_relcache_generation)
    {
        record = (MacProtectedTable *) palloc(sizeof(MacProtectedTable));
        record->relid = relid;
        record->npolicies = count;
        record->policies = policies;
        return record;
    }
    record = (MacProtectedTable *) hash_search(table, &relid, HASH_ENTER, NULL);
    record->npolicies = count;
    record->policies = count == 0 ? NULL
        : (MacTablePolicy *) MemoryContextAlloc(records_context, count * sizeof(MacTablePolicy));
    if (count > 0)
        memcpy(record->policies, policies, count * sizeof(MacTablePolicy));
    return last_record = record;
}

bool
mac_table_is_protected(Oid relid)
{
    return mac_protected_table(relid)->npolicies > 0;
}

const MacTablePolicy *
mac_table_column_policy(Oid relid, AttrNumber attnum)
{
    const MacProtectedTable *record = mac_protected_table(relid);

    for (int i = 0; i < record->npolicies; i++)
    {
        if (attnum != InvalidAttrNumber && record->policies[i].attnum == attnum)
            return &record->policies[i];
    }
    return NULL;
}

bool
mac_table_column_hidden(Oid relid, AttrNumber attnum)
{
    const MacTablePolicy *policy = mac_table_column_policy(relid, attnum);

    return policy != NULL && policy->hidden;
}

AttrNumber
mac_policy_column_attnum(Oid relid, const MacTablePolicy *policy)
{
    if (policy->attnum == InvalidAttrNumber)
        ereport(ERROR,
                (errcode(ERRCODE_UNDEFINED_COLUMN),
                 errmsg("policy column \"%s\" of relation \"%s\" doesnot exist",
                        get_policy_colname(policy->policy_id), get_rel_name(relid))));
    return policy->attnum;
}

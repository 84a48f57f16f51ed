/*
 * policy_refusal.cpp
 *    What a refused write tells the user besides its message: a DETAIL
 *    that names the label concerned and the session's write range, and a
 *    HINT that says what would allow the write, or that the user holds no
 *    authorization under the policy at all.
 *
 * The row checks of policy_session.cpp call these only once they refuse,
 * so nothing here runs on the per-row path.  A label is named only when
 * the session may read it: the new label of an INSERT or UPDATE is the
 * user's own, and the row an UPDATE or DELETE reaches has passed the read
 * filter; a row label handed to a check directly is named only if the
 * session reads it.
 */
#include "lavrel.h"

namespace {

const char *const outside_range_hint =
    "The administrator can allow it with an authorization whose write range "
    "includes the label, or with the FULL privilege.";
const char *const not_a_label_hint =
    "Only the FULL privilege allows a label that is null or names no label of the policy.";
const char *const change_privileges_hint =
    "Changing a row's label needs WRITEUP to raise its level, WRITEDOWN to lower it and "
    "WRITEACROSS to change its compartments, or FULL.";

/*
 * A copy of the label with this id when it is one of the policy's, else
 * NULL.  A copy, because the label cache may be emptied by the catalog
 * reads that naming labels makes.
 */
const MacLabel *
policy_label(Oid policy_id, bool isnull, int32 label_id)
{
    Oid         owner = InvalidOid;
    const MacLabel *label;

    if (isnull || !mac_valid_label_id(label_id))
        return NULL;
    label = mac_label_by_id(label_id, &owner);
    return label != NULL && owner == policy_id ? copy_mac_label(label) : NULL;
}

char *
quoted(Oid policy_id, const MacLabel *label)
{
    return psprintf("\"%s\"", MacLabelToCString(policy_id, label));
}

char *
write_range(Oid policy_id, const MacSessionLabel *s)
{
    return psprintf("the session's write range, from %s up to %s",
                    quoted(policy_id, s->min_write_label), quoted(policy_id, s->write_label));
}

/* "<subject> <label> is outside the session's write range, from ... up to ...." */
char *
outside_range(const char *subject, Oid policy_id, const MacSessionLabel *s,
              const MacLabel *label)
{
    return psprintf("%s %s is outside %s.", subject, quoted(policy_id, label),
                    write_range(policy_id, s));
}

/* The sentence on a label that is not one of the policy's. */
char *
not_a_label(const char *subject, Oid policy_id, bool isnull, int32 label_id)
{
    if (isnull)
        return psprintf("%s is null.", subject);
    return psprintf("%s, id %d, names no label of policy \"%s\".",
                    subject, label_id, get_policy_name(policy_id));
}

/* The hint for a session without an authorization under the policy. */
char *
no_authorization(Oid policy_id)
{
    return psprintf("User \"%s\" has no authorization under policy \"%s\"; the administrator "
                    "grants one with lavrel.set_user_labels().",
                    GetUserNameFromId(GetSessionUserId(), false), get_policy_name(policy_id));
}

/*
 * What a refusal says about a label the session may not write: that it is
 * not one of the policy's, or that it lies outside the write range.
 * `subject` is "The new label" or "The row's label".
 */
MacRefusal
label_refusal(const char *subject, Oid policy_id, const MacSessionLabel *s, bool isnull,
              int32 label_id)
{
    const MacLabel *label = policy_label(policy_id, isnull, label_id);

    if (label == NULL)
        return {not_a_label(subject, policy_id, isnull, label_id), not_a_label_hint};
    return {outside_range(subject, policy_id, s, label), outside_range_hint};
}

/*
 * "the WRITEUP privilege", "the WRITEUP and WRITEACROSS privileges": what
 * the change needs that the session lacks; NULL when it lacks nothing.
 */
char *
missing_change_privileges(const MacLabel *old_label, const MacLabel *new_label, uint16 privs)
{
    StringInfoData buf;
    const char *needed[2];
    int         n = 0;

    if (new_label->level > old_label->level && !(privs & MAC_PRIV_WRITEUP))
        needed[n++] = "WRITEUP";
    if (new_label->level < old_label->level && !(privs & MAC_PRIV_WRITEDOWN))
        needed[n++] = "WRITEDOWN";
    if (!bms_equal(old_label->compartments, new_label->compartments) &&
        !(privs & MAC_PRIV_WRITEACROSS))
        needed[n++] = "WRITEACROSS";
    if (n == 0)
        return NULL;
    initStringInfo(&buf);
    appendStringInfoString(&buf, "the ");
    for (int i = 0; i < n; i++)
        appendStringInfo(&buf, "%s%s", i == 0 ? "" : " and ", needed[i]);
    appendStringInfoString(&buf, n == 1 ? " privilege" : " privileges");
    return buf.data;
}

/* What a change between two labels of the policy does to the row's label. */
char *
change_kind(const MacLabel *old_label, const MacLabel *new_label)
{
    const char *level = new_label->level > old_label->level ? "raises its level"
        : new_label->level < old_label->level ? "lowers its level" : NULL;
    const char *comps = bms_equal(old_label->compartments, new_label->compartments)
        ? NULL : "changes its compartments";

    if (level != NULL && comps != NULL)
        return psprintf("%s and %s", level, comps);
    if (level == NULL && comps == NULL)
        return pstrdup("keeps its level and compartments");
    return pstrdup(level != NULL ? level : comps);
}

/*
 * A refusal says nothing more while access control is off (there are no
 * session labels then) or for a policy that does not exist: a check called
 * directly then fails with its message alone.
 */
bool
policy_exists(Oid policy_id)
{
    return MAC_isenable() &&
        ObjectIsExistById(MacPolicyRelationId, mac_col::policy_oid, policy_id);
}

const MacRefusal no_refusal_text = {NULL, NULL};

} // namespace

int
mac_errrefusal(const MacRefusal *why)
{
    if (why->detail != NULL)
        errdetail("%s", why->detail);
    if (why->hint != NULL)
        errhint("%s", why->hint);
    return 0;
}

MacRefusal
mac_write_refusal(Oid policy_id, const MacSessionLabel *s, bool isnull, int32 label_id,
                  bool readable)
{
    if (!policy_exists(policy_id))
        return no_refusal_text;
    if (s == NULL)
        return {NULL, no_authorization(policy_id)};
    if (!readable)
        return {psprintf("The row's label is outside %s.", write_range(policy_id, s)),
                outside_range_hint};
    return label_refusal("The row's label", policy_id, s, isnull, label_id);
}

MacRefusal
mac_insert_refusal(Oid policy_id, const MacSessionLabel *s, bool isnull, int32 label_id)
{
    if (!policy_exists(policy_id))
        return no_refusal_text;
    if (s == NULL)
    {
        const MacLabel *label = policy_label(policy_id, isnull, label_id);
        char       *detail = label != NULL
            ? psprintf("The new label is %s.", quoted(policy_id, label))
            : not_a_label("The new label", policy_id, isnull, label_id);

        return {detail, no_authorization(policy_id)};
    }
    return label_refusal("The new label", policy_id, s, isnull, label_id);
}

MacRefusal
mac_update_refusal(Oid policy_id, const MacSessionLabel *s,
                   bool old_isnull, int32 old_label_id, bool old_readable,
                   bool new_isnull, int32 new_label_id, bool new_writable)
{
    const MacLabel *new_label;
    const MacLabel *old_label;
    char       *missing;

    if (!policy_exists(policy_id))
        return no_refusal_text;
    if (s == NULL)
        return {NULL, no_authorization(policy_id)};
    new_label = policy_label(policy_id, new_isnull, new_label_id);
    if (new_label == NULL || !new_writable)
        return label_refusal("The new label", policy_id, s, new_isnull, new_label_id);
    if (!old_readable)
        return {NULL, change_privileges_hint};
    old_label = policy_label(policy_id, old_isnull, old_label_id);
    if (old_label == NULL)
        return {not_a_label("The row's label", policy_id, old_isnull, old_label_id),
                not_a_label_hint};
    missing = missing_change_privileges(old_label, new_label, s->privs);
    return {psprintf("Changing the row's label from %s to %s %s.", quoted(policy_id, old_label),
                     quoted(policy_id, new_label), change_kind(old_label, new_label)),
            missing != NULL ? psprintf("The change needs %s, or FULL.", missing)
                            : change_privileges_hint};
}

MacRefusal
mac_default_label_refusal(Oid policy_id, const MacSessionLabel *s)
{
    if (!policy_exists(policy_id))
        return no_refusal_text;
    if (s == NULL)
        return {NULL, no_authorization(policy_id)};
    return {psprintf("No single greatest label of policy \"%s\" lies within %s, and below "
                     "the session's row label %s.",
                     get_policy_name(policy_id), write_range(policy_id, s),
                     quoted(policy_id, s->row_label)),
            "Give the new row its label explicitly, or ask the administrator for a row label "
            "that dominates a label the session may write."};
}

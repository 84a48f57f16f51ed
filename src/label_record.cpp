/*
 * label_record.cpp
 *    The label record and its arithmetic: building, copying and freeing
 *    labels, the dominance order between two labels, and merging two
 *    labels into a new one.  Nothing here reads a catalog or knows a
 *    policy; every other file that handles labels builds on this one.
 *
 * A label is a level plus a set of compartments.  Label a dominates label b
 * when a's level is not lower than b's and a's compartments include all of
 * b's.
 */
#include "lavrel_testing.h"

/* Builds a label that takes ownership of `compartments`. */
static MacLabel *
new_mac_label(int16 level, Bitmapset *compartments)
{
    MacLabel   *label = (MacLabel *) palloc(sizeof(MacLabel));

    label->level = level;
    label->compartments = compartments;
    return label;
}

/* A new label; the caller keeps its own `compartments`. */
MacLabel *
make_mac_label(int16 level, const Bitmapset *compartments)
{
    return new_mac_label(level, bms_copy(compartments));
}

MacLabel *
copy_mac_label(const MacLabel *label)
{
    if (label == NULL)
        return NULL;
    return make_mac_label(label->level, label->compartments);
}

void
free_mac_label(MacLabel *label)
{
    if (label == NULL)
        return;
    bms_free(label->compartments);
    pfree(label);
}

/*
 * Four-way comparison of two labels.  An empty compartment set, allocated
 * or not, is a subset of every set.
 */
MacLabelOrder
compare_mac_label(const MacLabel *a, const MacLabel *b)
{
    if (a == b)
        return LABEL_EQUAL;

    BMS_Comparison comps = bms_subset_compare(a->compartments, b->compartments);

    if (a->level < b->level)
        return (comps == BMS_EQUAL || comps == BMS_SUBSET1) ? LABEL_DOMINATED
                                                           : LABEL_NONCOMPARABLE;
    if (a->level > b->level)
        return (comps == BMS_EQUAL || comps == BMS_SUBSET2) ? LABEL_DOMINATES
                                                           : LABEL_NONCOMPARABLE;
    switch (comps)
    {
        case BMS_EQUAL:
            return LABEL_EQUAL;
        case BMS_SUBSET1:
            return LABEL_DOMINATED;
        case BMS_SUBSET2:
            return LABEL_DOMINATES;
        case BMS_DIFFERENT:
            break;
    }
    return LABEL_NONCOMPARABLE;
}

bool
strictly_dominates(const MacLabel *a, const MacLabel *b)
{
    return compare_mac_label(a, b) == LABEL_DOMINATES;
}

bool
dominates(const MacLabel *a, const MacLabel *b)
{
    MacLabelOrder order = compare_mac_label(a, b);

    return order == LABEL_EQUAL || order == LABEL_DOMINATES;
}

bool
dominated_by(const MacLabel *a, const MacLabel *b)
{
    return dominates(b, a);
}

bool
strictly_dominated_by(const MacLabel *a, const MacLabel *b)
{
    return strictly_dominates(b, a);
}

/*
 * A new label derived from a and b.  The level is the higher of the two
 * with MERGE_MAX_LEVEL, else the lower; the compartments are taken by the
 * first of MERGE_UNION, MERGE_INTERSECT, MERGE_DIFFERENCE that is set, and
 * are empty when none is.
 */
MacLabel *
merge_label(const MacLabel *a, const MacLabel *b, uint32 options)
{
    if (options == 0)
        ereport(ERROR,
                (errcode(ERRCODE_SYNTAX_ERROR),
                 errmsg("invalid merge label option: %d", (int) options)));

    int16       level = (options & MERGE_MAX_LEVEL) ? Max(a->level, b->level)
                                                    : Min(a->level, b->level);
    Bitmapset  *comps = NULL;

    if (options & MERGE_UNION)
        comps = bms_union(a->compartments, b->compartments);
    else if (options & MERGE_INTERSECT)
        comps = bms_intersect(a->compartments, b->compartments);
    else if (options & MERGE_DIFFERENCE)
        comps = bms_difference(a->compartments, b->compartments);

    return new_mac_label(level, comps);
}

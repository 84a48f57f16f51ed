/*
 * star_columns.cpp
 *    Hidden policy columns: takes them out of star expansions after parse
 *    analysis (called from the layer's post_parse_analyze hook).
 *
 * A hidden policy column is left out of `*` and `t.*` wherever a user sees
 * their expansion: select lists and RETURNING lists, subqueries in FROM,
 * WITH queries, and the queries behind CREATE VIEW, CREATE TABLE AS and
 * DECLARE CURSOR.  Named explicitly, it stays visible.
 *
 * PostgreSQL expands stars during analysis, so the columns are taken out of
 * the analysed query.  A column made by a star is a Var whose location
 * points at the star reference in the source text; a column the user named
 * points at its own name.  Taking an output column out of a subquery or
 * WITH query shifts the columns of every entry that reads it, so each query
 * level is done bottom-up: its WITH queries and FROM items first, then its
 * own output, then its Vars (and the sublinks within it) are renumbered.
 * A reference to a column that is gone fails as it would had the star never
 * produced it: the column does not exist.
 *
 * Output that is read by position is left as it is: the source of an
 * INSERT (and the FROM items of other data-changing statements), the
 * branches of a set operation, subqueries compared or assigned as rows
 * (every sublink but EXISTS), the WITH queries these read, WITH RECURSIVE,
 * and the queries of function bodies (matched against the declared result
 * type; they are analysed with column-reference hooks).
 */
#include "host/host.h"

extern "C" {
MacHiddenPolicyColumn_hook_type MacHiddenPolicyColumn_hook = NULL;
}

/* One query level being trimmed, linked to the level that contains it. */
struct HideLevel
{
    Query      *query;
    HideLevel  *parent;
    ParseState *pstate;         /* this level's range table, the source text */
    bool        keep;           /* its output is read by position */
    Bitmapset **dropped;        /* by range-table index: columns taken out */
    Bitmapset **cte_dropped;    /* by position in the WITH list: the same */
    bool        any_dropped;
};

static Bitmapset *hide_in_query(Query *query, HideLevel *parent, bool keep,
                                const char *sourcetext);

static const char *
skip_spaces(const char *p)
{
    while (scanner_isspace(*p))
        p++;
    return p;
}

/*
 * Whether the source text at location is `*` or a name ending in `.*`.
 * `TABLE t` is `SELECT * FROM t` whose star has no place in the text: its
 * columns have no location.
 */
static bool
is_star_reference(const char *text, int location)
{
    const char *p;

    if (text == NULL)
        return false;
    if (location < 0)
        return true;
    for (p = text + location;; p++)
    {
        p = skip_spaces(p);
        if (*p == '*')
            return true;
        if (host_read_identifier(p, NULL, &p) != HostIdentifier::Read)
            return false;
        p = skip_spaces(p);
        if (*p != '.')
            return false;
    }
}

static HideLevel *
level_up(HideLevel *lv, Index levelsup)
{
    for (; lv != NULL && levelsup > 0; levelsup--)
        lv = lv->parent;
    return lv;
}

/* The columns taken out of range-table entry varno of a level. */
static Bitmapset *
entry_dropped(const HideLevel *lv, int varno)
{
    if (lv == NULL || varno < 1 || varno > list_length(lv->query->rtable))
        return NULL;
    return lv->dropped[varno];
}

static bool
is_dropped(AttrNumber attno, const Bitmapset *dropped)
{
    return attno > 0 && bms_is_member(attno, dropped);
}

/* The number of a column once the dropped columns before it are gone. */
static AttrNumber
shifted_attno(AttrNumber attno, const Bitmapset *dropped)
{
    int         k = -1;
    AttrNumber  result = attno;

    while ((k = bms_next_member(dropped, k)) >= 0 && k < attno)
        result--;
    return result;
}

/* A copy of the list without the elements at the given 1-based positions. */
static List *
drop_positions(List *list, const Bitmapset *positions)
{
    int         k = -1;

    list = list_copy(list);
    while ((k = bms_prev_member(positions, k)) >= 0)
        if (k <= list_length(list))
            list = list_delete_nth_cell(list, k - 1);
    return list;
}

static bool
drops_in_scope(const HideLevel *lv)
{
    for (; lv != NULL; lv = lv->parent)
        if (lv->any_dropped)
            return true;
    return false;
}

/* The list whose columns a query shows: its select list or RETURNING list. */
static List **
output_list(Query *query)
{
    switch (query->commandType)
    {
        case CMD_SELECT:
            return &query->targetList;
        case CMD_INSERT:
        case CMD_UPDATE:
        case CMD_DELETE:
            return &query->returningList;
        default:
            return NULL;
    }
}

/* ---- Which WITH queries keep their output ---- */

static bool read_by_position(Query *query, const char *ctename, Index depth,
                             bool positional, const char *sourcetext);

/* Looks for sublinks reading a WITH query into output read by position. */
struct WithReaders
{
    const char *ctename;
    Index       depth;          /* query levels below the WITH list's owner */
    const char *sourcetext;
};

/* Whether the FROM items of a query feed output read by position. */
static bool
from_items_positional(const Query *query, bool positional)
{
    return positional || query->setOperations != NULL ||
        query->commandType != CMD_SELECT;
}

/* Whether a query's output has a column made by a star over entry rtindex. */
static bool
shows_star_of(Query *query, int rtindex, const char *sourcetext)
{
    List      **output = output_list(query);
    ListCell   *lc;

    if (output == NULL)
        return false;
    foreach(lc, *output)
    {
        TargetEntry *tle = lfirst_node(TargetEntry, lc);
        Var        *var = (Var *) tle->expr;

        if (!tle->resjunk && IsA(var, Var) && var->varlevelsup == 0 &&
            var->varno == rtindex && is_star_reference(sourcetext, var->location))
            return true;
    }
    return false;
}

static bool
with_readers_walker(Node *node, WithReaders *readers)
{
    if (node == NULL)
        return false;
    if (IsA(node, SubLink))
    {
        SubLink    *sublink = (SubLink *) node;

        return read_by_position(castNode(Query, sublink->subselect), readers->ctename,
                                readers->depth + 1, sublink->subLinkType != EXISTS_SUBLINK,
                                readers->sourcetext) ||
            with_readers_walker(sublink->testexpr, readers);
    }
    return expression_tree_walker(node, MAC_WALKER(with_readers_walker), readers);
}

/*
 * The same, in a query's own clauses and FROM items: a level whose output
 * is read by position expands the WITH query with a star.
 */
static bool
read_by_position_in_body(Query *query, const char *ctename, Index depth,
                         bool positional, const char *sourcetext)
{
    WithReaders readers = {ctename, depth, sourcetext};
    ListCell   *lc;

    foreach(lc, query->rtable)
    {
        RangeTblEntry *rte = lfirst_node(RangeTblEntry, lc);

        if (rte->rtekind == RTE_CTE && positional && rte->ctelevelsup == depth &&
            strcmp(rte->ctename, ctename) == 0 &&
            shows_star_of(query, foreach_current_index(lc) + 1, sourcetext))
            return true;
        if (rte->rtekind == RTE_SUBQUERY &&
            read_by_position(rte->subquery, ctename, depth + 1,
                             from_items_positional(query, positional), sourcetext))
            return true;
    }
    return query_tree_walker(query, MAC_WALKER(with_readers_walker), &readers,
                             QTW_IGNORE_RT_SUBQUERIES | QTW_IGNORE_CTE_SUBQUERIES);
}

/*
 * Whether a query level below the owner of WITH query `ctename` reads it
 * into output read by position.  The level's own WITH queries are taken to
 * be read by position when the level is (or is recursive); should that
 * guess miss, the renumbering reports the conflict as an error.
 */
static bool
read_by_position(Query *query, const char *ctename, Index depth, bool positional,
                 const char *sourcetext)
{
    ListCell   *lc;

    foreach(lc, query->cteList)
        if (read_by_position(castNode(Query, lfirst_node(CommonTableExpr, lc)->ctequery),
                             ctename, depth + 1, positional || query->hasRecursive,
                             sourcetext))
            return true;
    return read_by_position_in_body(query, ctename, depth, positional, sourcetext);
}

/*
 * Whether WITH query i of a level must keep its output; keep[] already
 * holds the answer for the later WITH queries, which may read this one.
 */
static bool
with_query_keeps_output(const HideLevel *lv, int i, const bool *keep)
{
    List       *ctes = lv->query->cteList;
    const char *name = list_nth_node(CommonTableExpr, ctes, i)->ctename;

    if (lv->keep || lv->query->hasRecursive)
        return true;
    for (int j = i + 1; j < list_length(ctes); j++)
        if (read_by_position(castNode(Query, list_nth_node(CommonTableExpr, ctes, j)->ctequery),
                             name, 1, keep[j], lv->pstate->p_sourcetext))
            return true;
    return read_by_position_in_body(lv->query, name, 0, false, lv->pstate->p_sourcetext);
}

/* ---- Trimming a level ---- */

static void
drop_cte_columns(CommonTableExpr *cte, const Bitmapset *dropped)
{
    cte->aliascolnames = drop_positions(cte->aliascolnames, dropped);
    cte->ctecolnames = drop_positions(cte->ctecolnames, dropped);
    cte->ctecoltypes = drop_positions(cte->ctecoltypes, dropped);
    cte->ctecoltypmods = drop_positions(cte->ctecoltypmods, dropped);
    cte->ctecolcollations = drop_positions(cte->ctecolcollations, dropped);
}

static void
hide_in_with_queries(HideLevel *lv)
{
    List       *ctes = lv->query->cteList;
    bool       *keep = (bool *) palloc0((list_length(ctes) + 1) * sizeof(bool));

    for (int i = list_length(ctes) - 1; i >= 0; i--)
        keep[i] = with_query_keeps_output(lv, i, keep);
    for (int i = 0; i < list_length(ctes); i++)
    {
        CommonTableExpr *cte = list_nth_node(CommonTableExpr, ctes, i);
        Bitmapset  *dropped = hide_in_query(castNode(Query, cte->ctequery), lv, keep[i],
                                            lv->pstate->p_sourcetext);

        if (dropped == NULL)
            continue;
        drop_cte_columns(cte, dropped);
        lv->cte_dropped[i] = dropped;
        lv->any_dropped = true;
    }
    pfree(keep);
}

/* The columns taken out of the WITH query a CTE entry reads. */
static Bitmapset *
cte_entry_dropped(HideLevel *lv, const RangeTblEntry *rte)
{
    HideLevel  *owner = level_up(lv, rte->ctelevelsup);
    ListCell   *lc;

    if (owner == NULL)
        return NULL;
    foreach(lc, owner->query->cteList)
        if (strcmp(lfirst_node(CommonTableExpr, lc)->ctename, rte->ctename) == 0)
            return owner->cte_dropped[foreach_current_index(lc)];
    return NULL;
}

/* The columns of a join that stand for columns taken out of its inputs. */
static Bitmapset *
join_entry_dropped(const HideLevel *lv, const RangeTblEntry *rte)
{
    Bitmapset  *dropped = NULL;
    ListCell   *lc;

    foreach(lc, rte->joinaliasvars)
    {
        Var        *var = (Var *) lfirst(lc);

        if (var != NULL && IsA(var, Var) && var->varlevelsup == 0 &&
            is_dropped(var->varattno, entry_dropped(lv, var->varno)))
            dropped = bms_add_member(dropped, foreach_current_index(lc) + 1);
    }
    return dropped;
}

/* Trims the subqueries in FROM; notes what every entry loses by that. */
static void
hide_in_from_items(HideLevel *lv)
{
    bool        keep = from_items_positional(lv->query, lv->keep);
    ListCell   *lc;

    /* Inputs come before the joins over them, so one pass suffices. */
    foreach(lc, lv->query->rtable)
    {
        RangeTblEntry *rte = lfirst_node(RangeTblEntry, lc);
        Bitmapset  *dropped = NULL;

        if (rte->rtekind == RTE_SUBQUERY)
            dropped = hide_in_query(rte->subquery, lv, keep, lv->pstate->p_sourcetext);
        else if (rte->rtekind == RTE_CTE)
            dropped = cte_entry_dropped(lv, rte);
        else if (rte->rtekind == RTE_JOIN)
            dropped = join_entry_dropped(lv, rte);
        lv->dropped[foreach_current_index(lc) + 1] = dropped;
        if (dropped != NULL)
            lv->any_dropped = true;
    }
}

enum class StarColumn
{
    Shown,
    Dropped,
    Junk                        /* still sorted or grouped by, not shown */
};

static StarColumn
star_column_fate(HideLevel *lv, const TargetEntry *tle)
{
    Var        *var = (Var *) tle->expr;
    HideLevel  *owner;

    if (tle->resjunk || !IsA(var, Var) || var->varattno <= 0 ||
        !is_star_reference(lv->pstate->p_sourcetext, var->location))
        return StarColumn::Shown;
    owner = level_up(lv, var->varlevelsup);
    if (owner == NULL)
        return StarColumn::Shown;

    /*
     * Gone from the subquery or WITH query it reads: it goes too.  Should
     * ORDER BY or GROUP BY use it, the renumbering reports the missing column.
     */
    if (is_dropped(var->varattno, entry_dropped(owner, var->varno)))
        return tle->ressortgroupref ? StarColumn::Shown : StarColumn::Dropped;
    if (!MacHiddenPolicyColumn_hook(owner->pstate,
                                    rt_fetch(var->varno, owner->query->rtable), var))
        return StarColumn::Shown;
    return tle->ressortgroupref ? StarColumn::Junk : StarColumn::Dropped;
}

/* Takes hidden star columns out of an output list; returns their positions. */
static Bitmapset *
trim_output(HideLevel *lv, List **tlist)
{
    List       *shown = NIL;
    List       *junk = NIL;
    Bitmapset  *removed = NULL;
    AttrNumber  resno = 0;
    ListCell   *lc;

    foreach(lc, *tlist)
    {
        TargetEntry *tle = lfirst_node(TargetEntry, lc);
        StarColumn  fate = star_column_fate(lv, tle);

        if (fate == StarColumn::Shown)
        {
            shown = lappend(shown, tle);
            continue;
        }
        removed = bms_add_member(removed, tle->resno);
        if (fate == StarColumn::Junk)
        {
            tle->resjunk = true;
            junk = lappend(junk, tle);
        }
    }
    if (removed == NULL)
        return NULL;
    *tlist = list_concat(shown, junk);
    foreach(lc, *tlist)
        lfirst_node(TargetEntry, lc)->resno = ++resno;
    return removed;
}

/* ---- Renumbering ---- */

static void
renumber_var(HideLevel *lv, Var *var)
{
    HideLevel  *owner = level_up(lv, var->varlevelsup);
    Bitmapset  *dropped = entry_dropped(owner, var->varno);

    if (is_dropped(var->varattno, dropped))
        ereport(ERROR,
                (errcode(ERRCODE_UNDEFINED_COLUMN),
                 errmsg("column \"%s\" does not exist",
                        get_rte_attribute_name(rt_fetch(var->varno, owner->query->rtable),
                                               var->varattno)),
                 parser_errposition(lv->pstate, var->location)));
    var->varattno = shifted_attno(var->varattno, dropped);
    if (var->varnosyn > 0)
        var->varattnosyn = shifted_attno(var->varattnosyn,
                                         entry_dropped(owner, var->varnosyn));
}

static bool
renumber_walker(Node *node, HideLevel *lv)
{
    if (node == NULL)
        return false;
    if (IsA(node, Var))
    {
        renumber_var(lv, (Var *) node);
        return false;
    }
    if (IsA(node, SubLink))
    {
        SubLink    *sublink = (SubLink *) node;

        hide_in_query(castNode(Query, sublink->subselect), lv,
                      sublink->subLinkType != EXISTS_SUBLINK, lv->pstate->p_sourcetext);
        return renumber_walker(sublink->testexpr, lv);
    }
    return expression_tree_walker(node, MAC_WALKER(renumber_walker), lv);
}

/* The join whose range-table index is rtindex, within a join tree. */
static JoinExpr *
find_join(Node *jtnode, int rtindex)
{
    ListCell   *lc;

    if (IsA(jtnode, FromExpr))
    {
        foreach(lc, ((FromExpr *) jtnode)->fromlist)
        {
            JoinExpr   *join = find_join((Node *) lfirst(lc), rtindex);

            if (join != NULL)
                return join;
        }
        return NULL;
    }
    if (!IsA(jtnode, JoinExpr))
        return NULL;
    if (((JoinExpr *) jtnode)->rtindex == rtindex)
        return (JoinExpr *) jtnode;
    JoinExpr   *join = find_join(((JoinExpr *) jtnode)->larg, rtindex);

    return join != NULL ? join : find_join(((JoinExpr *) jtnode)->rarg, rtindex);
}

static int
jointree_rtindex(Node *jtnode)
{
    if (IsA(jtnode, RangeTblRef))
        return ((RangeTblRef *) jtnode)->rtindex;
    return castNode(JoinExpr, jtnode)->rtindex;
}

/*
 * One side's input column numbers of a join, without the join columns
 * dropped and renumbered for the input's dropped columns.  Merged columns
 * are the first join columns; the side's others start at `first_output`.
 */
static List *
drop_join_side(List *colnos, int merged, int first_output, const Bitmapset *dropped,
               const Bitmapset *input_dropped)
{
    List       *result = NIL;
    ListCell   *lc;

    foreach(lc, colnos)
    {
        int         i = foreach_current_index(lc);
        int         output = i < merged ? i + 1 : first_output + i - merged;

        if (!bms_is_member(output, dropped))
            result = lappend_int(result, shifted_attno(lfirst_int(lc), input_dropped));
    }
    return result;
}

/* Takes the dropped columns out of the joins' expansions and input lists. */
static void
drop_join_columns(HideLevel *lv)
{
    ListCell   *lc;

    foreach(lc, lv->query->rtable)
    {
        RangeTblEntry *rte = lfirst_node(RangeTblEntry, lc);
        int         rtindex = foreach_current_index(lc) + 1;
        Bitmapset  *dropped = lv->dropped[rtindex];

        if (rte->rtekind != RTE_JOIN || dropped == NULL)
            continue;
        JoinExpr   *join = find_join((Node *) lv->query->jointree, rtindex);
        int         nleft = list_length(rte->joinleftcols);

        rte->joinaliasvars = drop_positions(rte->joinaliasvars, dropped);
        rte->joinleftcols = drop_join_side(rte->joinleftcols, rte->joinmergedcols,
                                           rte->joinmergedcols + 1, dropped,
                                           entry_dropped(lv, jointree_rtindex(join->larg)));
        rte->joinrightcols = drop_join_side(rte->joinrightcols, rte->joinmergedcols,
                                            nleft + 1, dropped,
                                            entry_dropped(lv, jointree_rtindex(join->rarg)));
    }
}

/* Takes the dropped columns out of the entries' column names (and types). */
static void
drop_entry_names(HideLevel *lv)
{
    ListCell   *lc;

    foreach(lc, lv->query->rtable)
    {
        RangeTblEntry *rte = lfirst_node(RangeTblEntry, lc);
        Bitmapset  *dropped = lv->dropped[foreach_current_index(lc) + 1];

        if (dropped == NULL)
            continue;
        rte->eref->colnames = drop_positions(rte->eref->colnames, dropped);
        if (rte->alias != NULL)
            rte->alias->colnames = drop_positions(rte->alias->colnames, dropped);
        if (rte->rtekind == RTE_CTE)
        {
            rte->coltypes = drop_positions(rte->coltypes, dropped);
            rte->coltypmods = drop_positions(rte->coltypmods, dropped);
            rte->colcollations = drop_positions(rte->colcollations, dropped);
        }
    }
}

/*
 * Takes the hidden star columns out of one query level and those below it;
 * returns the positions its output lost (none when `keep`).
 */
static Bitmapset *
hide_in_query(Query *query, HideLevel *parent, bool keep, const char *sourcetext)
{
    HideLevel   lv;
    List      **output = output_list(query);
    Bitmapset  *removed = NULL;

    lv.query = query;
    lv.parent = parent;
    lv.pstate = make_parsestate(NULL);
    lv.pstate->p_sourcetext = sourcetext;
    lv.pstate->p_rtable = query->rtable;
    lv.keep = keep || query->setOperations != NULL;
    lv.dropped = (Bitmapset **) palloc0((list_length(query->rtable) + 1) * sizeof(Bitmapset *));
    lv.cte_dropped = (Bitmapset **) palloc0((list_length(query->cteList) + 1) *
                                            sizeof(Bitmapset *));
    lv.any_dropped = false;

    hide_in_with_queries(&lv);
    hide_in_from_items(&lv);
    if (!lv.keep && output != NULL)
        removed = trim_output(&lv, output);
    if (drops_in_scope(&lv))
    {
        drop_join_columns(&lv);
        query_tree_walker(query, MAC_WALKER(renumber_walker), &lv,
                          QTW_IGNORE_RT_SUBQUERIES | QTW_IGNORE_CTE_SUBQUERIES);
        drop_entry_names(&lv);
    }
    return removed;
}

/* Trims a statement's query, looking into those that utility statements carry. */
void
host_hide_star_columns(Query *query, const char *sourcetext)
{
    Node       *stmt = query->utilityStmt;

    if (query->commandType != CMD_UTILITY)
        hide_in_query(query, NULL, false, sourcetext);
    else if (IsA(stmt, CreateTableAsStmt))
    {
        CreateTableAsStmt *ctas = (CreateTableAsStmt *) stmt;

        host_hide_star_columns(castNode(Query, ctas->query), sourcetext);
        /* A materialized view keeps a copy for its rule. */
        if (ctas->into->viewQuery != NULL)
            host_hide_star_columns(castNode(Query, ctas->into->viewQuery), sourcetext);
    }
    else if (IsA(stmt, DeclareCursorStmt))
        host_hide_star_columns(castNode(Query, ((DeclareCursorStmt *) stmt)->query), sourcetext);
}


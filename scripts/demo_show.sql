-- scripts/demo_show.sql: prints side by side what each user's session saw.
-- Run by the administrator, with the lines of scripts/demo_user.sql of
-- every user, each prefixed with "user|", on standard input.
\set ON_ERROR_STOP on
\pset footer off
SET client_min_messages = warning;
CREATE TEMP TABLE seen (who name, kind text, item text, mark text);
\copy seen FROM pstdin (DELIMITER '|')

-- The text of a user's label from its level and compartments, as
-- lavrel.label_to_char writes a label.
CREATE FUNCTION pg_temp.label_text(policy oid, level smallint, comps int2vector)
RETURNS text LANGUAGE sql AS $$
    SELECT l.level_name || ':' ||
           coalesce((SELECT string_agg(c.compartment_name, ',' ORDER BY c.compartment_id)
                       FROM lavrel.lavrel_compartment c
                      WHERE c.policy_oid = policy AND c.compartment_id = ANY (comps::smallint[])), '')
      FROM lavrel.lavrel_level l
     WHERE l.policy_oid = policy AND l.level_id = level
$$;

\echo
\echo '== The policies and the tables they protect'
SELECT p.policy_name AS policy,
       p.policy_col_name || CASE WHEN p.policy_col_hidden THEN ' (hidden)' ELSE '' END AS column,
       (SELECT string_agg(level_name, ' < ' ORDER BY level_id)
          FROM lavrel.lavrel_level l WHERE l.policy_oid = p.policy_oid) AS levels,
       (SELECT string_agg(compartment_name, ', ' ORDER BY compartment_id)
          FROM lavrel.lavrel_compartment c WHERE c.policy_oid = p.policy_oid) AS compartments,
       (SELECT string_agg(relation_oid::regclass::text, ', ')
          FROM lavrel.lavrel_policy_enforcement e WHERE e.policy_oid = p.policy_oid) AS tables
  FROM lavrel.lavrel_policy p
 ORDER BY 1;

\echo '== The users'' authorizations, as the administrator set them'
SELECT p.policy_name AS policy, r.rolname AS "user",
       pg_temp.label_text(u.policy_oid, u.max_level, u.max_read_comps) AS "max label",
       pg_temp.label_text(u.policy_oid, u.min_write_level, u.min_write_comps) AS "min write label",
       pg_temp.label_text(u.policy_oid, u.def_level, u.def_comps) AS "default label",
       lavrel.privs_to_char(u.user_privs) AS privileges
  FROM lavrel.lavrel_user u
  JOIN lavrel.lavrel_policy p USING (policy_oid)
  JOIN pg_roles r ON r.oid = u.user_oid
 WHERE r.rolname IN (SELECT who FROM seen)
 ORDER BY 1, 2;
\echo 'A session reads the labels that its read label dominates (the greatest lower bound of'
\echo 'its default and min write labels) and writes those between its min write and max labels.'
\echo 'READ reads every label; FULL reads and writes every label.'
\echo

\echo '== Each session and the labels of "company": r = reads its rows, w = may write them'
SELECT lavrel.label_to_char(item::integer) AS label, who, mark
  FROM seen WHERE kind = 'label'
 ORDER BY item::integer, who
\crosstabview

-- For a row of a table: each user, and x when that user's SELECT returned it.
CREATE FUNCTION pg_temp.returned(of_kind text, of_item text, OUT who name, OUT mark text)
RETURNS SETOF record LANGUAGE sql AS $$
    SELECT u.who, CASE WHEN EXISTS (SELECT FROM pg_temp.seen s
                                     WHERE (s.who, s.kind, s.item) = (u.who, of_kind, of_item))
                       THEN 'x' ELSE '' END
      FROM (SELECT DISTINCT who FROM pg_temp.seen) u
$$;

-- One line per row of the table (the administrator, with FULL, reads them
-- all), one column per user.
\echo '== SELECT * FROM documents, run by each user: x = the row was returned'
SELECT format('%s %s [%s]', d.id, d.title, lavrel.label_to_char(d.clearance)) AS "id title [clearance]",
       r.who, r.mark
  FROM documents d, pg_temp.returned('documents', d.id::text) r
 ORDER BY d.id, r.who
\crosstabview
\echo 'erin wrote row 7 without naming a label: it got secret:sales, her default row label,'
\echo 'which she may write but not read.'
\echo

\echo '== SELECT * FROM salaries, run by each user: x = the row was returned'
SELECT format('%s %s [%s]', t.employee, t.amount, lavrel.label_to_char(t.grade)) AS "employee amount [grade]",
       r.who, r.mark
  FROM salaries t, pg_temp.returned('salaries', t.employee) r
 ORDER BY t.amount DESC, r.who
\crosstabview

\echo '== What alice gets from SELECT * FROM salaries: the hidden column grade is left out'
\c - alice
SELECT * FROM salaries ORDER BY amount DESC;

-- scripts/demo_show.sql: prints side by side what each user's session saw.
-- Run by the administrator, with the lines of scripts/demo_user.sql of
-- every user, each prefixed with "user|", on standard input.
\set ON_ERROR_STOP on
\pset footer off
SET client_min_messages = warning;
CREATE TEMP TABLE seen (who name, kind text, item text, mark text);
\copy seen FROM pstdin (DELIMITER '|')

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

\echo '== The labels, from lavrel.labels()'
SELECT policy_name AS policy, string_agg(label, '  ' ORDER BY label_id) AS labels
  FROM lavrel.labels()
 GROUP BY 1 ORDER BY 1;

\echo '== The users'' authorizations, from lavrel.authorizations()'
SELECT policy_name AS policy, user_name AS "user", max_read_label AS "max label",
       min_write_label AS "min write label", def_label AS "default label",
       row_label AS "row label", privileges
  FROM lavrel.authorizations()
 WHERE user_name IN (SELECT who FROM seen)
 ORDER BY 1, 2;
\echo 'A session reads the labels that its read label dominates (the greatest lower bound of'
\echo 'its default and min write labels) and writes those between its min write and max labels.'
\echo 'A new row without a label gets its default row label: the greatest label it may write'
\echo 'that its row label dominates.  READ reads every label; FULL reads and writes every label.'
\echo

\echo '== Each user''s session, as lavrel.my_labels() shows it to him'
SELECT u.who AS "user", coalesce(s.item, '(no authorization)') AS policy,
       split_part(s.mark, ';', 1) AS "read label",
       split_part(s.mark, ';', 2) AS "write range",
       split_part(s.mark, ';', 3) AS "default row label",
       split_part(s.mark, ';', 4) AS privileges
  FROM (SELECT DISTINCT who FROM seen) u
  LEFT JOIN seen s ON (s.who, s.kind) = (u.who, 'session')
 ORDER BY 1, 2;

\echo '== Each session and the labels of "company": r = reads its rows, w = may write them'
SELECT lavrel.label(item::integer) AS label, who, mark
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
SELECT format('%s %s [%s]', d.id, d.title, lavrel.label(d.clearance)) AS "id title [clearance]",
       r.who, r.mark
  FROM documents d, pg_temp.returned('documents', d.id::text) r
 ORDER BY d.id, r.who
\crosstabview
\echo 'erin wrote row 7 without naming a label: it got secret:sales, her default row label,'
\echo 'which she may write but not read.'
\echo

\echo '== SELECT * FROM salaries, run by each user: x = the row was returned'
SELECT format('%s %s [%s]', t.employee, t.amount, lavrel.label(t.grade)) AS "employee amount [grade]",
       r.who, r.mark
  FROM salaries t, pg_temp.returned('salaries', t.employee) r
 ORDER BY t.amount DESC, r.who
\crosstabview

\echo '== What alice gets from SELECT * FROM salaries: the hidden column grade is left out;'
\echo '   lavrel.label(grade) shows her the label of each row'
\c - alice
SELECT * FROM salaries ORDER BY amount DESC;
SELECT employee, lavrel.label(grade) AS grade FROM salaries ORDER BY amount DESC;

\echo '== What a refusal tells: bob may read the canteen menu but not write it,'
\echo '   and frank holds no authorization'
\set ON_ERROR_STOP off
\c - bob
UPDATE documents SET title = 'Canteen menu' WHERE id = 1;
\c - frank
INSERT INTO documents (title) VALUES ('hello');

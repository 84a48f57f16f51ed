--
-- The database of nolibrary_setup on the server restarted with lavrel
-- preloaded again, after the nolibrary case: every user reads what he read
-- before, and writes as before.
--
\set phase after
\set each sql/include/nolibrary_seen.sql
\i sql/include/nolibrary_each_user.sql
\c - postgres
SELECT phase, count(*) FROM seen GROUP BY phase ORDER BY phase;
SELECT who, s, what, b.ids AS before, a.ids AS after
  FROM (SELECT * FROM seen WHERE phase = 'before') AS b
  FULL JOIN (SELECT * FROM seen WHERE phase = 'after') AS a USING (who, s, what)
 WHERE b.ids IS DISTINCT FROM a.ids;
SELECT * FROM changed_rows;

-- Writes are mediated as before.
\c - regress_nolib_narrow
INSERT INTO labelled.documents (id, title) VALUES (5, 'sales memo');
UPDATE labelled.documents SET title = 'sales memo, v2' WHERE id = 5 RETURNING *;
INSERT INTO labelled.documents VALUES (6, 'sales leak', 100);
DELETE FROM labelled.documents WHERE id = 1;
INSERT INTO hidden.documents (id, title) VALUES (4, 'porter');
SELECT * FROM hidden.documents ORDER BY id;
\c - regress_nolib_owner
UPDATE labelled.documents SET title = 'org chart, v2' WHERE id = 2 RETURNING id, title;
DELETE FROM labelled.documents WHERE id = 1;
\c - regress_nolib_none
INSERT INTO labelled.documents VALUES (7, 'nobody''s', 100);
SELECT count(*) FROM labelled.documents;
\c - regress_nolib_full
DELETE FROM labelled.documents WHERE id = 4 RETURNING id, title;
\c - postgres
SELECT * FROM changed_rows ORDER BY s, id, change;

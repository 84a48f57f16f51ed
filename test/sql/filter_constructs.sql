--
-- Protected tables read through the constructs of SQL: subqueries, CTEs,
-- set operations, views, SQL and PL/pgSQL functions, prepared statements
-- and cursors.  Wherever a protected table is read, a user sees only the
-- rows his labels allow, as if the others were not there.
--
CREATE EXTENSION lavrel;
\i sql/include/try_stmt.sql

-- p1: levels low < mid < high, compartments a, b, c, labels 5 low:c,
-- 10 low, 11 low:a, 20 mid, 21 mid:a, 22 mid:b, 30 high, 31 high:a,
-- 33 high:a,b, 35 high:c, 99 high:a,b,c.
\i sql/include/policies_p1_p2.sql

-- docs and notes are protected, owners is not.
CREATE TABLE docs (id int PRIMARY KEY, body text);
SELECT lavrel.apply_table_policy('p1', 'public', 'docs');
CREATE TABLE notes (id int PRIMARY KEY, doc_id int, note text);
SELECT lavrel.apply_table_policy('p1', 'public', 'notes');
CREATE TABLE owners (doc_id int, name text);
GRANT SELECT, UPDATE ON docs, notes, owners TO PUBLIC;

SELECT lavrel.set_user_labels('p1', 'postgres', 'high:a,b,c');
SELECT lavrel.set_user_privs('p1', 'postgres', 'FULL');
INSERT INTO docs VALUES
    (1, 'low:c', 5), (2, 'low', 10), (3, 'low:a', 11), (4, 'mid', 20), (5, 'mid:a', 21),
    (6, 'mid:b', 22), (7, 'high', 30), (8, 'high:a', 31), (9, 'high:a,b', 33),
    (10, 'high:a,b,c', 99), (11, 'no label', NULL);
INSERT INTO notes VALUES (1, 2, 'on low', 10), (2, 5, 'on mid:a', 21), (3, 9, 'on high:a,b', 33),
    (4, 4, 'on mid, at mid:b', 22), (5, 11, 'no label', NULL);
INSERT INTO owners VALUES (1, 'olga'), (2, 'pete'), (5, 'quinn'), (9, 'rita'), (11, 'sam'),
    (12, 'tom');

-- Views, view over view, a view joining both protected tables; all owned
-- by the administrator, who holds FULL: a view reads with the labels of
-- the session, not of its owner.
CREATE VIEW docs_v AS SELECT id, body, p1_label FROM docs;
CREATE VIEW docs_vv AS SELECT id, body FROM docs_v WHERE id > 2;
CREATE VIEW doc_notes AS
    SELECT d.id, d.body, n.note FROM docs d JOIN notes n ON n.doc_id = d.id;
GRANT SELECT, UPDATE ON docs_v, docs_vv, doc_notes TO PUBLIC;

-- SQL functions: a scalar one, a set-returning one the planner would
-- inline, one with a SQL-standard body, and one that runs with its
-- owner's rights (not with his labels).
CREATE FUNCTION doc_count() RETURNS bigint LANGUAGE sql STABLE
    AS $$SELECT count(*) FROM docs$$;
CREATE FUNCTION docs_from(lbl int) RETURNS SETOF docs LANGUAGE sql STABLE
    AS $$SELECT * FROM docs WHERE p1_label >= lbl$$;
CREATE FUNCTION doc_ids() RETURNS SETOF int LANGUAGE sql STABLE
BEGIN ATOMIC
    SELECT id FROM docs ORDER BY id;
END;
CREATE FUNCTION doc_count_definer() RETURNS bigint LANGUAGE sql SECURITY DEFINER
    AS $$SELECT count(*) FROM docs$$;
-- PL/pgSQL: a loop, RETURN QUERY and dynamic SQL.
CREATE FUNCTION doc_bodies() RETURNS text LANGUAGE plpgsql AS $$
DECLARE
    r record;
    s text := '';
BEGIN
    FOR r IN SELECT body FROM docs ORDER BY id LOOP
        s := s || r.body || '; ';
    END LOOP;
    RETURN s;
END
$$;
CREATE FUNCTION docs_between(lo int, hi int) RETURNS TABLE (id int, body text)
LANGUAGE plpgsql AS $$
BEGIN
    RETURN QUERY SELECT d.id, d.body FROM docs d WHERE d.id BETWEEN lo AND hi ORDER BY d.id;
END
$$;
CREATE FUNCTION note_count() RETURNS bigint LANGUAGE plpgsql AS $$
DECLARE
    n bigint;
BEGIN
    EXECUTE 'SELECT count(*) FROM notes' INTO n;
    RETURN n;
END
$$;

-- The constructs again, each as a query of one integer column, and
-- ids_of(query): the sorted values that query returns.
CREATE TABLE constructs (ord int, name text, query text);
INSERT INTO constructs VALUES
    (1, 'from', 'SELECT id FROM (SELECT id FROM docs WHERE id > 2) s'),
    (2, 'exists', 'SELECT doc_id FROM owners o WHERE EXISTS (SELECT 1 FROM docs d WHERE d.id = o.doc_id)'),
    (3, 'in', 'SELECT doc_id FROM owners WHERE doc_id IN (SELECT id FROM docs)'),
    (4, 'scalar', 'SELECT (SELECT count(*)::int FROM docs) UNION ALL SELECT (SELECT count(*)::int FROM notes)'),
    (5, 'cte', 'WITH v AS (SELECT id FROM docs) SELECT id FROM v'),
    (6, 'recursive cte', 'WITH RECURSIVE chain(id) AS (SELECT min(id) FROM docs UNION ALL '
                         'SELECT d.id FROM chain c JOIN docs d ON d.id = c.id + 1) SELECT id FROM chain'),
    (7, 'union', 'SELECT id FROM docs UNION SELECT doc_id FROM notes'),
    (8, 'intersect', 'SELECT p1_label FROM docs INTERSECT SELECT p1_label FROM notes'),
    (9, 'except', 'SELECT id FROM docs EXCEPT SELECT doc_id FROM notes'),
    (10, 'view', 'SELECT id FROM docs_v'),
    (11, 'view over view', 'SELECT id FROM docs_vv'),
    (12, 'join view', 'SELECT id FROM doc_notes'),
    (13, 'sql function', 'SELECT id FROM docs_from(11)'),
    (14, 'sql body', 'SELECT * FROM doc_ids()'),
    (15, 'plpgsql function', 'SELECT id FROM docs_between(1, 100)');
CREATE FUNCTION ids_of(query text) RETURNS int[] LANGUAGE plpgsql AS $$
DECLARE
    ids int[];
BEGIN
    EXECUTE 'SELECT array_agg(x ORDER BY x) FROM (' || query || ') AS q(x)' INTO ids;
    RETURN ids;
END
$$;
GRANT SELECT ON constructs TO PUBLIC;

CREATE ROLE regress_fc_alice LOGIN;
CREATE ROLE regress_fc_bob LOGIN;
CREATE ROLE regress_fc_carol LOGIN;
-- alice reads low, low:a, mid and mid:a: docs 2 to 5, notes 1 and 2.  She
-- writes mid:a and high:a.
SELECT lavrel.set_user_labels('p1', 'regress_fc_alice', 'high:a,b', 'high:a', 'mid:a', 'mid:a',
                              'mid:a');
-- bob reads every label high:a,b dominates: docs 2 to 9, notes 1 to 4.
SELECT lavrel.set_user_labels('p1', 'regress_fc_bob', 'high:a,b', 'high:a,b', 'high:a,b',
                              'high:a,b', 'high:a,b');
-- carol holds READ: every row.
SELECT lavrel.set_user_labels('p1', 'regress_fc_carol', 'high:a,b');
SELECT lavrel.set_user_privs('p1', 'regress_fc_carol', 'READ');

-- ---------------------------------------------------------------------
-- alice
-- ---------------------------------------------------------------------
\c - regress_fc_alice
-- Subqueries in FROM, LATERAL included.
SELECT s.id, s.body FROM (SELECT id, body FROM docs WHERE id > 2) s ORDER BY s.id;
SELECT * FROM (SELECT p1_label, count(*) FROM docs GROUP BY p1_label) s ORDER BY 1;
SELECT o.name, l.notes
  FROM owners o, LATERAL (SELECT count(*) AS notes FROM notes n WHERE n.doc_id = o.doc_id) l
 ORDER BY o.doc_id;
-- EXISTS, NOT EXISTS and IN: a hidden row counts as absent.
SELECT name FROM owners o WHERE EXISTS (SELECT 1 FROM docs d WHERE d.id = o.doc_id) ORDER BY 1;
SELECT name FROM owners o WHERE NOT EXISTS (SELECT 1 FROM docs d WHERE d.id = o.doc_id)
 ORDER BY 1;
SELECT name FROM owners WHERE doc_id IN (SELECT id FROM docs) ORDER BY 1;
SELECT id, body FROM docs WHERE id IN (SELECT doc_id FROM notes) ORDER BY id;
-- Scalar subqueries, correlated or not.
SELECT (SELECT count(*) FROM docs) AS docs, (SELECT max(id) FROM docs) AS top,
       (SELECT count(*) FROM notes) AS notes;
SELECT o.name, (SELECT d.body FROM docs d WHERE d.id = o.doc_id) AS body
  FROM owners o ORDER BY o.doc_id;
-- CTEs: plain, materialized, used twice, recursive (the chain of ids
-- stops at the first hidden one).
WITH v AS (SELECT id, body FROM docs) SELECT * FROM v ORDER BY id;
WITH v AS MATERIALIZED (SELECT id FROM docs) SELECT count(*) FROM v;
WITH v AS (SELECT id FROM docs)
SELECT a.id, b.id AS next FROM v a JOIN v b ON b.id = a.id + 1 ORDER BY a.id;
WITH RECURSIVE chain(id) AS (
    SELECT min(id) FROM docs
    UNION ALL
    SELECT d.id FROM chain c JOIN docs d ON d.id = c.id + 1)
SELECT * FROM chain;
-- Set operations over the two protected tables, and over one.
SELECT 'doc' AS kind, id FROM docs UNION ALL SELECT 'note', id FROM notes ORDER BY 1, 2;
SELECT p1_label FROM docs INTERSECT SELECT p1_label FROM notes ORDER BY 1;
SELECT id FROM docs EXCEPT SELECT doc_id FROM notes ORDER BY 1;
SELECT id FROM docs WHERE id < 3 UNION SELECT id FROM docs WHERE id > 4 ORDER BY 1;
-- Views, a view over a view, a view of a join.
SELECT * FROM docs_v ORDER BY id;
SELECT * FROM docs_vv ORDER BY id;
SELECT * FROM doc_notes ORDER BY id;
-- An UPDATE through a view is the UPDATE of the table: rows she may not
-- write are refused.  The row is named by its key, an index condition.
SET enable_seqscan = off;
UPDATE docs_v SET body = 'mid:a, via view' WHERE id = 5 RETURNING *;
SELECT try_stmt($$UPDATE docs_v SET body = 'refused' WHERE id = 2$$);
RESET enable_seqscan;
-- SQL functions.  The set-returning one is not inlined, so that its own
-- query is filtered when it is planned.
SELECT doc_count();
SELECT * FROM docs_from(11) ORDER BY id;
EXPLAIN (COSTS OFF) SELECT * FROM docs_from(11);
SELECT * FROM doc_ids();
SELECT doc_count_definer();
-- PL/pgSQL functions.
SELECT doc_bodies();
SELECT * FROM docs_between(1, 6);
SELECT note_count();
-- Prepared statements, with custom and with generic plans.
PREPARE docs_upto(int) AS SELECT id, body FROM docs WHERE id <= $1 ORDER BY id;
SET plan_cache_mode = force_custom_plan;
EXECUTE docs_upto(4);
SET plan_cache_mode = force_generic_plan;
EXECUTE docs_upto(4);
EXECUTE docs_upto(100);
RESET plan_cache_mode;
DEALLOCATE docs_upto;
-- Cursors, and FOR UPDATE.
BEGIN;
DECLARE c CURSOR FOR SELECT id, body FROM docs ORDER BY id;
FETCH 2 FROM c;
FETCH ALL FROM c;
CLOSE c;
DECLARE n SCROLL CURSOR FOR
    SELECT n.id, n.note, d.body FROM notes n JOIN docs d ON d.id = n.doc_id ORDER BY n.id;
FETCH LAST FROM n;
FETCH PRIOR FROM n;
FETCH PRIOR FROM n;
SELECT id FROM docs ORDER BY id FOR UPDATE;
COMMIT;

-- ---------------------------------------------------------------------
-- bob and carol: the same constructs, one line each
-- ---------------------------------------------------------------------
\c - regress_fc_bob
-- docs 2 to 9, notes 1 to 4 (on docs 2, 5, 9 and 4).
SELECT name, ids_of(query) FROM constructs ORDER BY ord;
SELECT doc_count(), doc_count_definer(), note_count();
BEGIN;
DECLARE c CURSOR FOR SELECT id FROM docs ORDER BY id;
FETCH 3 FROM c;
FETCH ALL FROM c;
COMMIT;

\c - regress_fc_carol
-- Every row: docs 1 to 11, notes 1 to 5.
SELECT name, ids_of(query) FROM constructs ORDER BY ord;
SELECT doc_count(), doc_count_definer(), note_count();

\c - postgres
SELECT lavrel.drop_policy('p1');
SELECT lavrel.drop_policy('p2');
DROP VIEW doc_notes, docs_vv, docs_v;
DROP FUNCTION doc_count(), docs_from(int), doc_ids(), doc_count_definer(), doc_bodies(),
              docs_between(int, int), note_count(), ids_of(text), try_stmt(text);
DROP TABLE docs, notes, owners, constructs;
DROP ROLE regress_fc_alice, regress_fc_bob, regress_fc_carol;
\i sql/include/drop_lavrel.sql

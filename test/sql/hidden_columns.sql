--
-- Hidden policy columns.  A policy created with hide_column true leaves its
-- column out of *, t.* and TABLE wherever a user sees their expansion: select and
-- RETURNING lists, subqueries in FROM, WITH queries, views, CREATE TABLE
-- AS, cursors and prepared statements.  Named explicitly, the column is
-- there.  Output that is read by position (INSERT ... SELECT, set
-- operations, function bodies) keeps every column.
--
CREATE EXTENSION lavrel;
\i sql/include/try_stmt.sql

-- h hides its column h_label, v shows v_label.  Both have the levels
-- low < high; h's labels are 10 and 20, v's 30 and 40.
SELECT lavrel.create_policy('h', 'h_label', true);
SELECT lavrel.create_policy('v', 'v_label');
SELECT lavrel.create_level(p, 'low', 1), lavrel.create_level(p, 'high', 2),
       lavrel.create_label(p, 'low', low), lavrel.create_label(p, 'high', high)
  FROM (VALUES ('h', 10, 20), ('v', 30, 40)) AS v(p, low, high);
SELECT policy_name, policy_col_name, policy_col_hidden FROM lavrel.policies() ORDER BY 1;

-- docs and hs."Notes" under h, memo under v, owners unprotected.
CREATE TABLE docs (id int PRIMARY KEY, body text);
SELECT lavrel.apply_table_policy('h', 'public', 'docs');
CREATE SCHEMA hs;
CREATE TABLE hs."Notes" (id int, note text);
SELECT lavrel.apply_table_policy('h', 'hs', '"Notes"');
CREATE TABLE memo (id int, body text);
SELECT lavrel.apply_table_policy('v', 'public', 'memo');
CREATE TABLE owners (doc_id int, name text);
GRANT USAGE ON SCHEMA hs TO PUBLIC;
GRANT ALL ON docs, hs."Notes", memo, owners TO PUBLIC;

-- The administrator loads rows of both labels with FULL.
SELECT lavrel.set_user_labels(p, 'postgres', 'high'), lavrel.set_user_privs(p, 'postgres', 'FULL')
  FROM unnest(ARRAY['h', 'v']) AS p;
INSERT INTO docs VALUES (1, 'low doc', 10), (2, 'high doc', 20);
INSERT INTO hs."Notes" VALUES (1, 'low note', 10), (2, 'high note', 20);
INSERT INTO memo VALUES (1, 'low memo', 30), (2, 'high memo', 40);
INSERT INTO owners VALUES (1, 'olga'), (2, 'pete');

-- The column is in the table, and a visible policy column shows.
\d docs
SELECT * FROM memo ORDER BY id;

-- ---------------------------------------------------------------------
-- Star expansions in the select list
-- ---------------------------------------------------------------------
SELECT * FROM docs ORDER BY id;
SELECT docs.* FROM docs ORDER BY id;
SELECT d.*, d.id AS again FROM docs d ORDER BY id;
SELECT public.docs.* FROM docs ORDER BY id;
SELECT * FROM hs."Notes" ORDER BY id;
SELECT "Notes".* FROM hs."Notes" ORDER BY id;
SELECT hs."Notes".* FROM hs."Notes" ORDER BY id;
SELECT "Notes" . * FROM hs."Notes" ORDER BY id;
-- TABLE t means SELECT * FROM t.
TABLE docs ORDER BY id;
SELECT * FROM (TABLE hs."Notes") s ORDER BY id;
EXPLAIN (VERBOSE, COSTS OFF) TABLE docs;
-- Whole-row references are values of the table's row type, which has
-- every column: the hidden one too.
SELECT docs FROM docs ORDER BY id;
SELECT row_to_json(d) FROM docs d ORDER BY id;
-- Named explicitly, alone, beside a star or qualified: visible.
SELECT id, h_label FROM docs ORDER BY id;
SELECT *, h_label FROM docs ORDER BY id;
SELECT d.h_label, d.* FROM docs d ORDER BY id;
SELECT "Notes".h_label AS label, "Notes".* FROM hs."Notes" ORDER BY id;
-- Sorting and grouping by the hidden column still work; it is not shown.
SELECT * FROM docs ORDER BY h_label DESC;
SELECT * FROM docs GROUP BY id, h_label ORDER BY id;
SELECT DISTINCT ON (h_label) * FROM docs ORDER BY h_label, id;

-- ---------------------------------------------------------------------
-- Joins
-- ---------------------------------------------------------------------
-- The hidden column of the left side, of the right side, of both.
SELECT * FROM docs d JOIN owners o ON o.doc_id = d.id ORDER BY d.id;
SELECT * FROM owners o JOIN docs d ON o.doc_id = d.id ORDER BY d.id;
SELECT * FROM docs d JOIN hs."Notes" n ON n.id = d.id ORDER BY d.id;
-- With USING: h_label hidden, memo's v_label shown.
SELECT * FROM docs JOIN memo USING (id) ORDER BY id;
-- Through the alias of a join, merged on the hidden column too.
SELECT j.* FROM (docs JOIN memo USING (id)) AS j ORDER BY id;
SELECT j.* FROM (docs JOIN hs."Notes" USING (id, h_label)) AS j ORDER BY id;
SELECT j.h_label, j.* FROM (docs JOIN hs."Notes" USING (id, h_label)) AS j ORDER BY id;
-- A FULL JOIN merges the two columns into an expression, which shows.
SELECT * FROM docs FULL JOIN hs."Notes" USING (id, h_label) ORDER BY id;

-- ---------------------------------------------------------------------
-- Subqueries in FROM and WITH queries
-- ---------------------------------------------------------------------
SELECT * FROM (SELECT * FROM docs) s ORDER BY id;
-- The hidden column in the middle: the columns after it follow it.
SELECT * FROM (SELECT d.*, o.name FROM docs d JOIN owners o ON o.doc_id = d.id) s ORDER BY id;
SELECT name, body, s.id FROM (SELECT d.*, o.name FROM docs d JOIN owners o ON o.doc_id = d.id) s
 ORDER BY 1;
-- ... in joins over the subquery, LATERAL references and sublinks too.
SELECT j.* FROM ((SELECT d.*, o.name FROM docs d JOIN owners o ON o.doc_id = d.id) s
                 JOIN memo m USING (id)) j ORDER BY id;
SELECT s.name, l.len
  FROM (SELECT d.*, o.name FROM docs d JOIN owners o ON o.doc_id = d.id) s,
       LATERAL (SELECT length(s.name) AS len) l ORDER BY 1;
SELECT s.id FROM (SELECT d.*, o.name FROM docs d JOIN owners o ON o.doc_id = d.id) s
 WHERE EXISTS (SELECT 1 FROM owners WHERE name = s.name AND s.name > 'p');
-- Column aliases of the subquery go with its columns.
SELECT * FROM (SELECT * FROM docs) s(a, b) ORDER BY a;
-- The hidden column is not a column of the subquery: naming it outside
-- fails, whether in the select list, in ORDER BY or in USING.
SELECT try_stmt('SELECT h_label FROM (SELECT * FROM docs) s');
SELECT try_stmt('SELECT s.h_label FROM (SELECT * FROM docs) s');
SELECT try_stmt('SELECT * FROM (SELECT * FROM docs) s ORDER BY h_label');
SELECT try_stmt('SELECT * FROM (SELECT * FROM docs) s JOIN hs."Notes" USING (h_label)');
-- Named inside, it is a column of the subquery.
SELECT * FROM (SELECT id, h_label FROM docs) s ORDER BY id;
SELECT * FROM (SELECT *, h_label FROM docs) s ORDER BY id;
-- A WITH query read twice; one reading another; column aliases.
WITH c AS (SELECT * FROM docs)
SELECT * FROM c a JOIN c b ON b.id = a.id + 1;
WITH c AS (SELECT * FROM docs), e AS (SELECT * FROM c WHERE id > 1)
SELECT * FROM e;
WITH c(a, b) AS (SELECT * FROM docs) SELECT * FROM c ORDER BY a;
SELECT try_stmt('WITH c AS (SELECT * FROM docs) SELECT h_label FROM c');
WITH c AS (SELECT id, h_label FROM docs) SELECT * FROM c ORDER BY id;
-- The column after the hidden one, read at the WITH query's own level and
-- from a sublink below it.
WITH c AS (SELECT d.*, 'doc ' || d.id AS tag FROM docs d)
SELECT * FROM c WHERE EXISTS (SELECT * FROM c c2 WHERE c2.tag > c.tag) ORDER BY id;
-- NATURAL JOIN matched the columns by name before they were hidden: it
-- would join on the hidden column, which is gone, so it fails.
SELECT try_stmt('SELECT * FROM (SELECT * FROM docs) a NATURAL JOIN (SELECT * FROM docs) b');

-- ---------------------------------------------------------------------
-- RETURNING
-- ---------------------------------------------------------------------
INSERT INTO docs VALUES (3, 'third', 10) RETURNING *;
UPDATE docs SET body = 'third, updated' WHERE id = 3 RETURNING *;
UPDATE docs d SET body = o.name FROM owners o WHERE d.id = 3 AND o.doc_id = 1 RETURNING *;
UPDATE docs SET body = 'third' WHERE id = 3 RETURNING docs.*, h_label;
DELETE FROM docs WHERE id = 3 RETURNING *;
WITH gone AS (DELETE FROM hs."Notes" WHERE id = 2 RETURNING *) SELECT * FROM gone;
INSERT INTO hs."Notes" VALUES (2, 'high note', 20) RETURNING id, h_label;

-- ---------------------------------------------------------------------
-- Views, CREATE TABLE AS, cursors, prepared statements, EXPLAIN
-- ---------------------------------------------------------------------
CREATE VIEW docs_v AS SELECT * FROM docs;
GRANT SELECT ON docs_v TO PUBLIC;
\d+ docs_v
SELECT * FROM docs_v ORDER BY id;
-- The view over a subquery and a join alias reads back as it was made.
CREATE VIEW docs_owner_v AS
SELECT j.* FROM ((SELECT d.*, o.name FROM docs d JOIN owners o ON o.doc_id = d.id) s
                 JOIN hs."Notes" n USING (id)) j;
\d+ docs_owner_v
SELECT * FROM docs_owner_v ORDER BY id;
SELECT format('CREATE VIEW docs_owner_again AS %s', pg_get_viewdef('docs_owner_v')) \gexec
SELECT pg_get_viewdef('docs_owner_again') = pg_get_viewdef('docs_owner_v') AS same_definition;
-- Named in the view, the column is the view's.
CREATE VIEW docs_named_v AS SELECT id, h_label FROM docs;
SELECT * FROM docs_named_v ORDER BY id;
CREATE TABLE docs_ctas AS SELECT * FROM docs;
\d docs_ctas
SELECT * INTO docs_into FROM docs d;
\d docs_into
CREATE TABLE docs_table_ctas AS TABLE docs;
\d docs_table_ctas
CREATE TABLE docs_named_ctas AS SELECT *, h_label FROM docs;
SELECT * FROM docs_named_ctas ORDER BY id;
CREATE MATERIALIZED VIEW docs_mv AS SELECT * FROM docs;
REFRESH MATERIALIZED VIEW docs_mv;
\d+ docs_mv
BEGIN;
DECLARE cur CURSOR FOR SELECT * FROM docs ORDER BY id;
FETCH ALL FROM cur;
COMMIT;
PREPARE doc(int) AS SELECT * FROM docs WHERE id = $1;
EXECUTE doc(2);
DEALLOCATE doc;
EXPLAIN (VERBOSE, COSTS OFF) SELECT * FROM docs;

-- ---------------------------------------------------------------------
-- Output read by position keeps the column
-- ---------------------------------------------------------------------
-- INSERT ... SELECT * copies the labels.  PostgreSQL counts the columns of
-- the source while it analyses the statement, before lavrel sees it: into
-- a table with fewer columns it fails, and the columns must be named.
CREATE TABLE docs_copy (id int, body text, h_label int);
INSERT INTO docs_copy SELECT * FROM docs;
CREATE TABLE docs_two (id int, body text);
INSERT INTO docs_two SELECT * FROM docs;
INSERT INTO docs_two SELECT id, body FROM docs;
INSERT INTO docs_two TABLE docs;
WITH c AS (SELECT * FROM docs) INSERT INTO docs_copy SELECT * FROM c;
INSERT INTO docs VALUES (3, 'archived', 20);
WITH gone AS (DELETE FROM docs WHERE id = 3 RETURNING *) INSERT INTO docs_copy SELECT * FROM gone;
SELECT * FROM docs_copy ORDER BY id, h_label;
-- Both sides of a set operation, and a WITH query they read.
SELECT * FROM docs UNION ALL SELECT * FROM hs."Notes" ORDER BY 1, 2;
WITH c AS (SELECT * FROM docs) SELECT * FROM c UNION ALL SELECT * FROM c ORDER BY 1;
-- A sublink compared as a row.
SELECT id FROM docs WHERE (id, body, h_label) IN (SELECT * FROM docs WHERE id = 1);
-- Function bodies are matched against their declared result types.
CREATE FUNCTION all_docs() RETURNS SETOF docs LANGUAGE sql AS 'SELECT * FROM docs';
SELECT id, body, h_label FROM all_docs() ORDER BY id;
CREATE FUNCTION all_docs_pl() RETURNS SETOF docs LANGUAGE plpgsql
AS $$ BEGIN RETURN QUERY SELECT * FROM docs; END $$;
SELECT id, body, h_label FROM all_docs_pl() ORDER BY id;

-- ---------------------------------------------------------------------
-- A user: his rows only, the column hidden all the same
-- ---------------------------------------------------------------------
CREATE ROLE regress_hc_user LOGIN;
SELECT lavrel.set_user_labels('h', 'regress_hc_user', 'low');
\c - regress_hc_user
SELECT * FROM docs ORDER BY id;
SELECT id, h_label FROM docs ORDER BY id;
SELECT * FROM (SELECT * FROM docs) s;
TABLE docs;
SELECT * FROM docs_v;
INSERT INTO docs VALUES (4, 'user doc') RETURNING *;
SELECT id, h_label FROM docs ORDER BY id;
DELETE FROM docs WHERE id = 4 RETURNING *;

-- ---------------------------------------------------------------------
-- A disabled policy still hides; with lavrel.enable_mac off nothing does
-- ---------------------------------------------------------------------
\c - postgres
SELECT lavrel.disable_policy('h');
SELECT * FROM docs ORDER BY id;
SELECT lavrel.enable_policy('h');
ALTER SYSTEM SET lavrel.enable_mac = off;
SELECT pg_reload_conf();
\c - postgres
SELECT * FROM docs ORDER BY id;
SELECT * FROM (SELECT * FROM docs) s ORDER BY id;
ALTER SYSTEM RESET lavrel.enable_mac;
SELECT pg_reload_conf();
\c - postgres
SELECT * FROM docs ORDER BY id;

DROP FUNCTION all_docs(), all_docs_pl();
DROP VIEW docs_v, docs_owner_v, docs_owner_again, docs_named_v;
DROP MATERIALIZED VIEW docs_mv;
SELECT lavrel.drop_policy('h');
SELECT lavrel.drop_policy('v');
DROP TABLE docs, hs."Notes", memo, owners, docs_ctas, docs_into, docs_named_ctas, docs_copy, docs_two, docs_table_ctas;
DROP SCHEMA hs;
DROP ROLE regress_hc_user;
DROP FUNCTION try_stmt(text);
\i sql/include/drop_lavrel.sql

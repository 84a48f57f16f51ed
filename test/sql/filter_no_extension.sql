--
-- lavrel is preloaded and switched on in every database of the cluster,
-- but filters only where the extension is installed.  In a database
-- without it, the same table, user and queries run unchanged.
--
\i sql/include/policy_p.sql
CREATE TABLE docs (id int, title text);
SELECT lavrel.apply_table_policy('p', 'public', 'docs');
INSERT INTO docs VALUES (1, 'low', 10), (2, 'mid', 20), (3, 'high', 30);
GRANT SELECT ON docs TO regress_mid_user;
-- Here the user reads the low and mid rows only.
SET SESSION AUTHORIZATION regress_mid_user;
SELECT * FROM docs ORDER BY id;
RESET SESSION AUTHORIZATION;

\set regress_db :DBNAME
CREATE DATABASE regress_noext;
\c regress_noext
SELECT current_setting('shared_preload_libraries') AS preloaded,
       current_setting('lavrel.enable_mac') AS enable_mac;
SELECT count(*) AS lavrel_installed FROM pg_extension WHERE extname = 'lavrel';

-- A table of the same shape, with a column named like the policy column.
CREATE TABLE docs (id int PRIMARY KEY, title text, p_label int);
INSERT INTO docs VALUES (1, 'low', 10), (2, 'mid', 20), (3, 'high', 30);
CREATE TABLE src (id int, title text);
INSERT INTO src VALUES (3, 'high, merged'), (4, 'new');
GRANT SELECT, INSERT, UPDATE, DELETE ON docs, src TO regress_mid_user;
\i sql/include/leak_function.sql
CREATE FUNCTION all_docs() RETURNS SETOF docs LANGUAGE sql STABLE AS $$ SELECT * FROM docs $$;

SET SESSION AUTHORIZATION regress_mid_user;
-- Every row, plain plans, the user's function called first, the SQL
-- function inlined, MERGE allowed, every row written.
SELECT * FROM docs ORDER BY id;
EXPLAIN (COSTS OFF) SELECT id FROM docs WHERE title <> 'low' AND leak(id, p_label);
SELECT id FROM docs WHERE title <> 'low' AND leak(id, p_label) ORDER BY id;
EXPLAIN (COSTS OFF) SELECT * FROM all_docs();
EXPLAIN (COSTS OFF) UPDATE docs SET title = upper(title);
UPDATE docs SET title = upper(title);
EXPLAIN (VERBOSE, COSTS OFF) INSERT INTO docs VALUES (5, 'five', 99);
MERGE INTO docs d USING src s ON d.id = s.id
    WHEN MATCHED THEN UPDATE SET title = s.title
    WHEN NOT MATCHED THEN INSERT VALUES (s.id, s.title, 30);
SELECT * FROM docs ORDER BY id;
RESET SESSION AUTHORIZATION;

\c :regress_db
DROP DATABASE regress_noext;
\i sql/include/drop_policy_p.sql
DROP TABLE docs;
DROP ROLE regress_mid_user;
\i sql/include/drop_lavrel.sql

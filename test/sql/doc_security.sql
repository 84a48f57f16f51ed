--
-- The examples of doc/security.md: which statements are mediated and how,
-- which are refused, what superusers can still do, and the channels that
-- remain.  test/doc_examples.sh checks that the page shows this output.
--
-- The setup: policy company with levels public < internal < secret,
-- compartments sales and hr, six labels and a table documents with one row
-- of each.  regress_sec_bob reads public, internal and internal:sales and
-- writes internal:sales; regress_sec_dave reads public and internal and
-- writes from internal up to secret:sales,hr.
CREATE EXTENSION lavrel;
SELECT lavrel.create_policy('company', 'clearance');
SELECT lavrel.create_level('company', 'public', 10),
       lavrel.create_level('company', 'internal', 20),
       lavrel.create_level('company', 'secret', 30),
       lavrel.create_compartment('company', 'sales', 1),
       lavrel.create_compartment('company', 'hr', 2);
SELECT lavrel.create_label('company', label, id)
  FROM (VALUES ('public', 100), ('internal', 200), ('internal:sales', 210),
               ('internal:hr', 220), ('secret:sales', 310),
               ('secret:sales,hr', 320)) AS v(label, id);
CREATE TABLE documents (id int PRIMARY KEY, title text);
SELECT lavrel.apply_table_policy('company', 'public', 'documents');
SELECT lavrel.set_user_labels('company', 'postgres', 'secret:sales,hr');
SELECT lavrel.set_user_privs('company', 'postgres', 'FULL');
INSERT INTO documents VALUES
    (1, 'canteen menu', 100), (2, 'org chart', 200), (3, 'sales forecast', 210),
    (4, 'salary bands', 220), (5, 'merger plan', 310), (6, 'layoff list', 320);
CREATE ROLE regress_sec_bob LOGIN;
CREATE ROLE regress_sec_dave LOGIN;
GRANT SELECT, INSERT, UPDATE, DELETE ON documents TO regress_sec_bob, regress_sec_dave;
SELECT lavrel.set_user_labels('company', 'regress_sec_bob', 'internal:sales',
                              min_write_label => 'internal:sales',
                              def_label => 'internal:sales');
SELECT lavrel.set_user_labels('company', 'regress_sec_dave', 'secret:sales,hr',
                              min_write_label => 'internal', def_label => 'internal',
                              row_label => 'internal');

-- Reading
\c - regress_sec_bob
SELECT * FROM documents ORDER BY id;
WITH t AS (SELECT * FROM documents) SELECT count(*) FROM t;
SELECT count(*) FROM (SELECT id FROM documents UNION ALL SELECT id FROM documents) AS u;
PREPARE titles AS SELECT title FROM documents ORDER BY id;
EXECUTE titles;
CREATE TEMP TABLE my_copy AS SELECT * FROM documents;
SELECT count(*) FROM my_copy;
CREATE FUNCTION pg_temp.peek(id int, title text) RETURNS boolean
LANGUAGE plpgsql COST 0.0000001 AS $$
BEGIN
    RAISE NOTICE 'peek saw %: %', id, title;
    RETURN true;
END
$$;
SELECT id FROM documents WHERE pg_temp.peek(id, title) ORDER BY id;

-- Session user
\c - postgres
SET ROLE regress_sec_bob;
SELECT current_user, count(*) FROM documents;
RESET ROLE;
CREATE FUNCTION count_documents() RETURNS bigint SECURITY DEFINER
LANGUAGE sql AS $$ SELECT count(*) FROM documents $$;
SELECT count_documents();
\c - regress_sec_bob
SELECT current_user, count_documents();

-- Writing
INSERT INTO documents (id, title) VALUES (7, 'sales memo');
INSERT INTO documents VALUES (8, 'leak', 100);
UPDATE documents SET title = 'sales memo, v2' WHERE id = 7 RETURNING *;
DELETE FROM documents WHERE id = 1;
INSERT INTO documents VALUES (7, 'sales memo, v3', 210)
    ON CONFLICT (id) DO UPDATE SET title = excluded.title RETURNING *;
MERGE INTO documents d USING (VALUES (7, 'sales memo, v4')) AS v(id, title)
   ON d.id = v.id WHEN MATCHED THEN UPDATE SET title = v.title;

-- The conditions decide, whatever the plan
\c - postgres
CREATE TABLE notes (id int, body text);
SELECT lavrel.apply_table_policy('company', 'public', 'notes');
INSERT INTO notes VALUES (1, 'public note', 100), (2, 'sales note', 210);
GRANT SELECT, UPDATE ON notes TO regress_sec_bob;
\c - regress_sec_bob
SELECT * FROM notes;
UPDATE notes SET body = 'sales note, v2' WHERE id = 2 RETURNING *;
UPDATE notes SET body = body || ' (checked)';
SELECT * FROM notes;
EXPLAIN (VERBOSE, COSTS OFF) UPDATE notes SET body = 'sales note, v3' WHERE id = 2;

-- COPY
COPY documents TO STDOUT;
COPY documents TO STDOUT WITH (FORMAT csv, HEADER, label);
COPY documents TO STDOUT WITH (nolabel);
COPY documents FROM STDIN WITH (FORMAT csv);
9,sales plan,internal:sales
\.
SELECT id, title, lavrel.label_to_char(clearance) AS label FROM documents WHERE id = 9;
COPY documents FROM STDIN WITH (FORMAT csv);
10,sales leak,public:
\.
COPY documents TO STDOUT WITH (FORMAT binary);

-- Hidden policy columns
\c - postgres
SELECT lavrel.create_policy('projects', 'project_label', hide_column => true);
SELECT lavrel.create_level('projects', 'open', 1), lavrel.create_label('projects', 'open', 1000);
SELECT lavrel.set_user_labels('projects', u, 'open')
  FROM unnest(ARRAY['postgres', 'regress_sec_bob']) AS u;
CREATE TABLE tasks (id int, task text);
SELECT lavrel.apply_table_policy('projects', 'public', 'tasks');
GRANT SELECT, INSERT ON tasks TO regress_sec_bob;
\c - regress_sec_bob
INSERT INTO tasks VALUES (1, 'write the plan');
SELECT * FROM tasks;
SELECT id, task, project_label FROM tasks;

-- Foreign keys
\c - postgres
CREATE TABLE comments (doc_id int REFERENCES documents, body text);
GRANT SELECT, INSERT ON comments TO regress_sec_bob;
\c - regress_sec_bob
INSERT INTO comments VALUES (5, 'about the merger');
INSERT INTO comments VALUES (99, 'about nothing');
\c - postgres
CREATE TABLE attachments (doc_id int REFERENCES documents ON DELETE CASCADE, name text);
SELECT lavrel.apply_table_policy('company', 'public', 'attachments');
INSERT INTO documents VALUES (14, 'price list', 200);
INSERT INTO attachments VALUES (14, 'prices', 200), (14, 'prices, flyer', 100),
                               (14, 'prices, margins', 310);
\c - regress_sec_dave
DELETE FROM documents WHERE id = 14;
\c - postgres
DELETE FROM attachments WHERE name = 'prices, flyer';
\c - regress_sec_dave
DELETE FROM documents WHERE id = 14;
\c - postgres
SELECT count(*) FROM attachments;

-- Refused statements.  psql works from the repository's root, where the
-- page's reader runs it too.
\c - postgres
\getenv abs_srcdir PG_ABS_SRCDIR
\cd :abs_srcdir/..
\i test/sql/include/try_stmt.sql
SELECT stmt, try_stmt(stmt) AS outcome FROM (VALUES
    ($$DROP TABLE notes$$),
    ($$DROP ROLE regress_sec_bob$$),
    ($$DROP EXTENSION lavrel$$),
    ($$CREATE TABLE more_documents () INHERITS (documents)$$)) AS v(stmt);
CREATE ROLE regress_sec_super SUPERUSER LOGIN;
SET ROLE regress_sec_super;
SELECT try_stmt($$ALTER TABLE documents ALTER COLUMN clearance DROP DEFAULT$$),
       try_stmt($$ALTER TABLE documents RENAME COLUMN clearance TO c$$);
RESET ROLE;
-- Refused drops, whatever statement, and TRUNCATE without FULL
CREATE SCHEMA archive;
CREATE ROLE regress_sec_owner;
CREATE TABLE archive.old_documents (id int);
ALTER TABLE archive.old_documents OWNER TO regress_sec_owner;
SELECT lavrel.apply_table_policy('company', 'archive', 'old_documents');
DROP SCHEMA archive CASCADE;
DROP OWNED BY regress_sec_owner;
GRANT TRUNCATE ON notes TO regress_sec_bob;
\c - regress_sec_bob
TRUNCATE notes;
\c - postgres
SELECT count(*) FROM notes;

-- What superusers can do
\c - regress_sec_super
SELECT count(*) FROM documents;
SELECT lavrel.set_user_privs('company', 'regress_sec_super', 'READ');
UPDATE lavrel.lavrel_user SET user_privs = 1
 WHERE user_oid = 'regress_sec_bob'::regrole;
SET SESSION AUTHORIZATION regress_sec_bob;
SELECT count(*) FROM documents;
RESET SESSION AUTHORIZATION;
UPDATE lavrel.lavrel_user SET user_privs = 0
 WHERE user_oid = 'regress_sec_bob'::regrole;

-- Channels: existence through keys
\c - regress_sec_bob
\set QUIET off
SELECT * FROM documents WHERE id = 5;
INSERT INTO documents VALUES (5, 'mine', 210);
INSERT INTO documents VALUES (5, 'mine', 210) ON CONFLICT DO NOTHING;
INSERT INTO documents VALUES (5, 'mine', 210)
    ON CONFLICT (id) DO UPDATE SET title = excluded.title;
UPDATE documents SET title = 'mine' WHERE id = 5;
UPDATE documents SET title = 'mine' WHERE id = 55;
\set QUIET on

-- Channels: writing up, and row counts
\c - regress_sec_dave
\set QUIET off
SELECT id, title FROM documents ORDER BY id;
UPDATE documents SET title = title || ' (checked)' WHERE id IN (2, 3, 5) RETURNING id;
DELETE FROM documents WHERE id = 6;
INSERT INTO documents VALUES (8, 'merger memo', 310);
SELECT id, title FROM documents WHERE id = 8;
DELETE FROM documents WHERE id = 8;
\set QUIET on
\c - postgres
SELECT id, title FROM documents WHERE id >= 3 ORDER BY id;

-- Channels: statistics
ANALYZE documents;
\c - regress_sec_bob
SELECT histogram_bounds FROM pg_stats
 WHERE tablename = 'documents' AND attname = 'title';
SELECT reltuples FROM pg_class WHERE relname = 'documents';
EXPLAIN (COSTS OFF, ANALYZE, TIMING OFF, SUMMARY OFF) SELECT * FROM documents;

-- Channels: row locks
CREATE FUNCTION pg_temp.is_three(id int) RETURNS boolean
LANGUAGE plpgsql AS $$ BEGIN RETURN id = 3; END $$;
BEGIN;
SELECT id FROM documents WHERE pg_temp.is_three(id) FOR UPDATE;
SELECT id, xmax::text = txid_current()::text AS locked FROM documents ORDER BY id;
ROLLBACK;

-- Owners: triggers
\c - postgres
CREATE FUNCTION raise_label() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
    NEW.clearance := 320;
    RETURN NEW;
END
$$;
CREATE TRIGGER raise_label BEFORE INSERT ON documents
    FOR EACH ROW EXECUTE FUNCTION raise_label();
\c - regress_sec_bob
INSERT INTO documents (id, title) VALUES (11, 'sales memo, raised');
SELECT count(*) FROM documents WHERE id = 11;
\c - postgres
SELECT id, title, clearance FROM documents WHERE id = 11;
DROP TRIGGER raise_label ON documents;

-- Clean up.
SELECT lavrel.drop_policy('company'), lavrel.drop_policy('projects');
DROP SCHEMA archive CASCADE;
DROP TABLE attachments, comments, documents, notes, tasks;
DROP FUNCTION count_documents(), raise_label(), try_stmt(text);
DROP ROLE regress_sec_bob, regress_sec_dave, regress_sec_super, regress_sec_owner;
\i test/sql/include/drop_lavrel.sql

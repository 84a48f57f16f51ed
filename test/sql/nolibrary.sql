--
-- The database of nolibrary_setup on a server restarted without lavrel in
-- shared_preload_libraries.  Every protected table is under row-level
-- security, forced, with a guard policy that calls lavrel.table_guard, and
-- the library refuses to load: every statement that reads or writes a
-- protected table fails, for every user who is no superuser, its owner
-- included, before it serves or changes a row.  What stays open comes at
-- the end: the owner may switch row-level security off, and superusers,
-- roles with BYPASSRLS and the views of a superuser bypass it.
--
-- The same statement on the unprotected and on a protected table:
\c - regress_nolib_narrow
SELECT * FROM plain.documents ORDER BY id;
SELECT * FROM labelled.documents ORDER BY id;

-- Every statement of nolibrary_statements.sql works on the unprotected
-- table, and changes it; so does dropping a column.
\c - regress_nolib_owner
\set s plain
\set l 100
\i sql/include/nolibrary_statements.sql
SELECT * FROM documents ORDER BY id;
ALTER TABLE documents DROP COLUMN clearance;
RESET search_path;

-- On the protected tables each of them fails, for each user, and their
-- statistics are hidden.
\set each sql/include/nolibrary_user.sql
\i sql/include/nolibrary_each_user.sql

-- Nor can the owner drop a policy column.  But he may switch the table's
-- row-level security off, which lavrel refuses only while it is loaded.
\c - regress_nolib_owner
ALTER TABLE labelled.documents DROP COLUMN clearance;
ALTER TABLE hidden.documents DROP COLUMN grade;
BEGIN;
ALTER TABLE labelled.documents NO FORCE ROW LEVEL SECURITY;
SELECT count(*) FROM labelled.documents;
ROLLBACK;

-- Superusers and roles with BYPASSRLS bypass row-level security, and so
-- does a view that a superuser owns: they read every row.
\c - postgres
SELECT * FROM labelled.documents ORDER BY id;
CREATE ROLE regress_nolib_bypass BYPASSRLS;
GRANT USAGE ON SCHEMA labelled TO regress_nolib_bypass;
SET SESSION AUTHORIZATION regress_nolib_bypass;
SELECT count(*) FROM labelled.documents;
RESET SESSION AUTHORIZATION;
CREATE VIEW labelled_titles AS SELECT id, title FROM labelled.documents;
GRANT SELECT ON labelled_titles TO regress_nolib_none;
SET SESSION AUTHORIZATION regress_nolib_none;
SELECT count(*) FROM labelled_titles;
RESET SESSION AUTHORIZATION;
DROP VIEW labelled_titles;
DROP OWNED BY regress_nolib_bypass;
DROP ROLE regress_nolib_bypass;

-- No row has changed, and the statistics hidden above are there.
SELECT * FROM changed_rows;
SELECT count(*) FROM stored_rows();
SELECT schemaname, count(*) FROM pg_stats WHERE tablename = 'documents'
 GROUP BY schemaname ORDER BY schemaname;
SELECT schemaname, statistics_name FROM pg_stats_ext WHERE tablename = 'documents'
 ORDER BY schemaname;

--
-- A database for the nolibrary suite, made while lavrel is preloaded: the
-- suite then restarts the server without lavrel (nolibrary) and with it
-- again (nolibrary_restored).
--
-- Policy company (column clearance) with labels public: (100), internal:
-- (200), internal:sales (210) and secret:sales (310); policy payroll with a
-- hidden column grade and labels staff: (1010) and board: (1020).  Three
-- schemas, owned by regress_nolib_owner, who is no superuser, each hold a
-- table documents with a view and two functions over it: in labelled under
-- company, in hidden under payroll, in plain unprotected.  The users:
--   regress_nolib_owner   company: reads public and internal, writes internal
--   regress_nolib_full    company: FULL; payroll: board
--   regress_nolib_narrow  company: reads up to internal:sales, writes it;
--                         payroll: staff
--   regress_nolib_none    no authorization
--
CREATE EXTENSION lavrel;
SELECT lavrel.create_policy('company', 'clearance');
SELECT lavrel.create_level('company', 'public', 10),
       lavrel.create_level('company', 'internal', 20),
       lavrel.create_level('company', 'secret', 30),
       lavrel.create_compartment('company', 'sales', 1);
SELECT lavrel.create_label('company', label, id)
  FROM (VALUES ('public', 100), ('internal', 200), ('internal:sales', 210),
               ('secret:sales', 310)) AS v(label, id);
SELECT lavrel.create_policy('payroll', 'grade', true);
SELECT lavrel.create_level('payroll', 'staff', 10),
       lavrel.create_level('payroll', 'board', 20);
SELECT lavrel.create_label('payroll', label, id)
  FROM (VALUES ('staff', 1010), ('board', 1020)) AS v(label, id);
SELECT lavrel.set_user_labels(p, 'postgres', max), lavrel.set_user_privs(p, 'postgres', 'FULL')
  FROM (VALUES ('company', 'secret:sales'), ('payroll', 'board')) AS v(p, max);

CREATE ROLE regress_nolib_owner LOGIN;
CREATE ROLE regress_nolib_full LOGIN;
CREATE ROLE regress_nolib_narrow LOGIN;
CREATE ROLE regress_nolib_none LOGIN;
SELECT lavrel.set_user_labels('company', 'regress_nolib_owner', 'internal',
                              min_write_label => 'internal', def_label => 'internal');
SELECT lavrel.set_user_labels('company', 'regress_nolib_full', 'secret:sales'),
       lavrel.set_user_privs('company', 'regress_nolib_full', 'FULL'),
       lavrel.set_user_labels('payroll', 'regress_nolib_full', 'board', min_write_label => 'board');
SELECT lavrel.set_user_labels('company', 'regress_nolib_narrow', 'internal:sales',
                              min_write_label => 'internal:sales',
                              def_label => 'internal:sales'),
       lavrel.set_user_labels('payroll', 'regress_nolib_narrow', 'staff');

CREATE TABLE projects (doc_id int, name text);
INSERT INTO projects VALUES (1, 'alpha'), (3, 'gamma');
GRANT SELECT, INSERT, UPDATE, DELETE ON projects TO PUBLIC;
\set s labelled
\set c clearance
\set policy company
\set protect true
\i sql/include/nolibrary_objects.sql
\set s hidden
\set c grade
\set policy payroll
\i sql/include/nolibrary_objects.sql
\set s plain
\set c clearance
\set protect false
\i sql/include/nolibrary_objects.sql
INSERT INTO labelled.documents VALUES
    (1, 'canteen menu', 100), (2, 'org chart', 200), (3, 'sales forecast', 210),
    (4, 'merger plan', 310);
INSERT INTO hidden.documents (id, title, grade) VALUES
    (1, 'clerk', 1010), (2, 'driver', 1010), (3, 'director', 1020);
INSERT INTO plain.documents SELECT * FROM labelled.documents;
ANALYZE;

-- The rows as stored, kept for the later phases to compare with (the
-- function's body, unlike a view, does not hold on to the policy columns).
CREATE FUNCTION stored_rows() RETURNS TABLE (s text, id int, title text, label int)
LANGUAGE sql AS $$
SELECT 'labelled', id, title, clearance FROM labelled.documents
UNION ALL
SELECT 'hidden', id, title, grade FROM hidden.documents
$$;
CREATE TABLE rows_before AS SELECT * FROM stored_rows();
CREATE VIEW changed_rows AS
SELECT 'gone' AS change, * FROM (TABLE rows_before EXCEPT ALL SELECT * FROM stored_rows()) AS g
UNION ALL
SELECT 'new', * FROM (SELECT * FROM stored_rows() EXCEPT ALL TABLE rows_before) AS n;
SELECT * FROM rows_before ORDER BY s, id;

-- What each user reads.
CREATE TABLE seen (phase text, who name, s text, what text, ids int[]);
GRANT INSERT ON seen TO PUBLIC;
\set phase before
\set each sql/include/nolibrary_seen.sql
\i sql/include/nolibrary_each_user.sql
\c - postgres
SELECT who, s, what, ids FROM seen ORDER BY who, s DESC, what;

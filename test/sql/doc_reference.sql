--
-- The examples of doc/reference.md, in the order the page shows them:
-- every SQL function of lavrel with its arguments, its defaults, who may
-- call it and its errors.  test/doc_examples.sh checks that the page shows
-- this output.
--
CREATE EXTENSION lavrel;
CREATE ROLE regress_ref_user LOGIN;
CREATE ROLE regress_ref_other;

-- Who may call what.  psql works from the repository's root, where the
-- page's reader runs it too.
\getenv abs_srcdir PG_ABS_SRCDIR
\cd :abs_srcdir/..
\i test/sql/include/try_stmt.sql
\c - regress_ref_user
SELECT call, try_stmt('SELECT lavrel.' || call) AS outcome FROM (VALUES
    ($$create_policy('p', 'c')$$), ($$drop_policy('p')$$),
    ($$enable_policy('p')$$), ($$disable_policy('p')$$),
    ($$create_level('p', 'l', 1)$$), ($$drop_level('p', 1)$$),
    ($$create_compartment('p', 'c', 1)$$), ($$drop_compartment('p', 1)$$),
    ($$create_label('p', 'l', 1)$$), ($$alter_label('p', 1, 'l')$$),
    ($$drop_label('p', 1)$$),
    ($$apply_table_policy('p', 's', 't')$$),
    ($$remove_table_policy('p', 's', 't')$$),
    ($$apply_object_policy('p', 'view', 's', 'v', 'l')$$),
    ($$drop_object_policy('p', 'view', 's', 'v')$$),
    ($$set_user_labels('p', 'u', 'l')$$), ($$set_levels('p', 'u', 'l')$$),
    ($$set_compartments('p', 'u', 'c')$$), ($$set_default_label('p', 'u', 'l')$$),
    ($$set_row_label('p', 'u', 'l')$$), ($$drop_user_access('p', 'u')$$),
    ($$set_user_privs('p', 'u', 'READ')$$),
    ($$set_session_label('p', 'l')$$), ($$set_session_row_label('p', 'l')$$),
    ($$show_session_labels()$$), ($$show_label_lookup()$$),
    ($$show_label_mediation()$$), ($$labels()$$), ($$authorizations()$$),
    ($$sync_object_names()$$)) AS v(call);
\c - postgres
CREATE ROLE regress_ref_super SUPERUSER;
SET ROLE regress_ref_super;
SELECT lavrel.create_policy('company', 'clearance');
RESET ROLE;

-- create_policy
SELECT lavrel.create_policy('company', 'clearance');
SELECT lavrel.create_policy('"Projects"', 'project_label', hide_column => true);
SELECT lavrel.create_level('"Projects"', 'open', 1);
SELECT lavrel.create_policy('company', 'other_label');
SELECT lavrel.create_policy('other', 'clearance');
SELECT lavrel.create_policy('other', 'my label');
SELECT lavrel.create_policy(NULL, 'other_label');

-- create_level
SELECT lavrel.create_level('company', 'public', 10),
       lavrel.create_level('company', 'internal', 20),
       lavrel.create_level('company', 'secret', 30);
SELECT lavrel.create_level('company', 'confidential', 20);
SELECT lavrel.create_level('company', 'secret', 40);
SELECT lavrel.create_level('company', 'top', 10000);
SELECT lavrel.create_level('nosuch', 'top', 40);
BEGIN;
SELECT lavrel.create_level('company', 'top', 40);
ROLLBACK;
SELECT count(*) FROM lavrel.lavrel_level WHERE level_name = 'top';

-- create_compartment
SELECT lavrel.create_compartment('company', 'sales', 1),
       lavrel.create_compartment('company', 'hr', 2);
SELECT lavrel.create_compartment('company', 'legal', 2);

-- create_label
SELECT lavrel.create_label('company', label, id)
  FROM (VALUES ('public', 100), ('internal', 200), ('internal:sales', 210),
               ('internal:hr', 220), ('secret:sales', 310),
               ('secret:sales,hr', 320)) AS v(label, id);
SELECT lavrel.create_label('company', 'secret', 200);
SELECT lavrel.create_label('company', 'INTERNAL:Sales', 230);
SELECT lavrel.create_label('company', 'top', 400);
SELECT lavrel.create_label('company', 'secret', 0);

-- apply_table_policy
CREATE TABLE documents (id int PRIMARY KEY, title text);
SELECT lavrel.apply_table_policy('company', 'public', 'documents');
SELECT lavrel.apply_table_policy('company', 'public', 'documents');
SELECT lavrel.apply_table_policy('company', 'public', 'nosuch');
CREATE VIEW document_titles AS SELECT id, title FROM documents;
SELECT lavrel.apply_table_policy('company', 'public', 'document_titles');
CREATE TABLE ledger (id int, clearance text);
SELECT lavrel.apply_table_policy('company', 'public', 'ledger');
SELECT lavrel.apply_table_policy('company', 'pg_catalog', 'pg_class');
CREATE TABLE events (id int);
CREATE TABLE old_events () INHERITS (events);
SELECT lavrel.apply_table_policy('company', 'public', 'events');
DROP TABLE old_events, events, ledger;

-- set_user_labels
SELECT lavrel.set_user_labels('company', 'postgres', 'secret:sales,hr');
SELECT lavrel.set_user_privs('company', 'postgres', 'FULL');
INSERT INTO documents VALUES
    (1, 'canteen menu', 100), (2, 'org chart', 200), (3, 'sales forecast', 210),
    (4, 'salary bands', 220), (5, 'merger plan', 310), (6, 'layoff list', 320);
GRANT SELECT, INSERT, UPDATE, DELETE ON documents TO regress_ref_user;
GRANT SELECT ON document_titles TO regress_ref_user;
CREATE VIEW authorizations AS
SELECT user_oid::regrole AS "user", max_level, min_write_level AS min_level,
       def_level, row_level, max_read_comps AS read_comps,
       max_write_comps AS write_comps, def_comps, row_comps, min_write_comps,
       lavrel.privs_to_char(user_privs) AS privs
  FROM lavrel.lavrel_user;
SELECT lavrel.set_user_labels('company', 'regress_ref_user', 'secret:sales,hr',
                              max_write_label => 'secret:sales',
                              min_write_label => 'internal',
                              def_label => 'internal',
                              row_label => 'internal:sales');
SELECT * FROM authorizations WHERE "user" = 'regress_ref_user'::regrole;
SELECT lavrel.set_user_labels('company', 'regress_ref_other', 'secret:sales',
                              'internal:sales');
SELECT lavrel.set_user_labels('company', 'regress_ref_other', 'internal',
                              def_label => 'internal:sales');
SELECT lavrel.set_user_labels('company', 'regress_ref_other', 'internal',
                              min_write_label => 'secret');
SELECT lavrel.set_user_labels('company', 'regress_nosuch', 'internal');

-- set_levels
SELECT lavrel.set_levels('company', 'regress_ref_other', 'secret', 'internal');
SELECT * FROM authorizations WHERE "user" = 'regress_ref_other'::regrole;
SELECT lavrel.set_levels('company', 'regress_ref_other', 'internal', 'secret');

-- set_compartments
SELECT lavrel.set_compartments('company', 'regress_ref_other', 'sales,hr', 'sales');
SELECT * FROM authorizations WHERE "user" = 'regress_ref_other'::regrole;
SELECT lavrel.set_compartments('company', 'regress_ref_other', 'sales', 'sales,hr');
SELECT lavrel.set_compartments('company', 'postgres', 'sales', 'legal');

-- set_default_label, set_row_label
SELECT lavrel.set_row_label('company', 'regress_ref_other', 'secret:sales');
SELECT lavrel.set_default_label('company', 'regress_ref_other', 'internal:sales');
SELECT * FROM authorizations WHERE "user" = 'regress_ref_other'::regrole;
SELECT lavrel.set_default_label('company', 'regress_ref_other', 'secret:sales,hr');

-- drop_user_access
SELECT lavrel.drop_user_access('company', 'regress_ref_other');
SELECT lavrel.drop_user_access('company', 'regress_ref_other');
SELECT lavrel.set_default_label('company', 'regress_ref_other', 'internal');

-- set_user_privs
SELECT lavrel.set_user_privs('company', 'regress_ref_user', 'read,writeup,WRITEACROSS');
SELECT privs FROM authorizations WHERE "user" = 'regress_ref_user'::regrole;
SELECT lavrel.set_user_privs('company', 'regress_ref_user', 'READ, FULL');
SELECT lavrel.set_user_privs('company', 'regress_ref_user', 'ALL');
\c - regress_ref_user
SELECT id, title, lavrel.label_to_char(clearance) AS label FROM documents WHERE id = 2;
UPDATE documents SET clearance = 210 WHERE id = 2;
UPDATE documents SET clearance = 310 WHERE id = 2;
UPDATE documents SET clearance = 210 WHERE id = 2;
SELECT id, title, lavrel.label_to_char(clearance) AS label FROM documents WHERE id = 2;
\c - postgres
SELECT lavrel.set_user_privs('company', 'regress_ref_user', 'READ,WRITEDOWN');
\c - regress_ref_user
UPDATE documents SET clearance = 210 WHERE id = 2;
UPDATE documents SET clearance = 200 WHERE id = 2;
\c - postgres
INSERT INTO documents VALUES (7, 'no label', NULL), (8, 'no such label', 999);
SELECT lavrel.set_user_privs('company', 'regress_ref_user', 'READ');
\c - regress_ref_user
SELECT id, title, clearance FROM documents ORDER BY id;
\c - postgres
DELETE FROM documents WHERE id IN (7, 8);
SELECT lavrel.set_user_privs('company', 'regress_ref_user', NULL);

-- authorizations
SELECT * FROM lavrel.authorizations() ORDER BY policy_name, user_name;

-- set_session_label, set_session_row_label
SELECT lavrel.set_user_labels('company', 'postgres', 'secret:sales,hr',
                              min_write_label => 'internal',
                              row_label => 'secret:sales');
\c
SELECT lavrel.set_session_label('company', 'internal:sales');
SELECT lavrel.set_session_label('company', 'secret:sales,hr');
SELECT lavrel.set_session_row_label('company', 'internal');
SELECT lavrel.set_session_row_label('company', 'public');
SELECT lavrel.set_session_label('"Projects"', 'open');

-- show_session_labels, show_label_lookup, show_label_mediation
SELECT * FROM lavrel.show_session_labels();
SELECT * FROM lavrel.show_label_lookup();
SELECT * FROM lavrel.show_label_mediation() ORDER BY label_id;

-- my_labels
SELECT * FROM lavrel.my_labels();
\c - regress_ref_user
SELECT * FROM lavrel.my_labels();
SELECT * FROM lavrel.show_session_labels();
\c - postgres
SELECT lavrel.set_user_privs('company', 'postgres', 'FULL');
\c

-- alter_label
SELECT lavrel.alter_label('company', 220, 'internal:hr,sales');
SELECT id, lavrel.label_to_char(clearance) AS label FROM documents WHERE id = 4;
SELECT lavrel.alter_label('company', 'internal:sales,hr', 'internal:hr');
SELECT lavrel.alter_label('company', 220, 'secret:sales');
SELECT lavrel.alter_label('company', 999, 'secret');

-- drop_label
SELECT lavrel.create_label('company', 'secret', 300);
UPDATE documents SET clearance = 300 WHERE id = 5;
SELECT lavrel.drop_label('company', 300);
SELECT lavrel.drop_label('company', 'secret');
SELECT id, title, clearance FROM documents WHERE id = 5;
SELECT lavrel.label_to_char(300);
UPDATE documents SET clearance = 310 WHERE id = 5;

-- labels
SELECT * FROM lavrel.labels() ORDER BY label_id;

-- drop_level, drop_compartment
SELECT lavrel.create_level('company', 'top', 40),
       lavrel.create_compartment('company', 'legal', 3);
SELECT lavrel.create_label('company', 'top', 400),
       lavrel.create_label('company', 'internal:legal', 230);
SELECT lavrel.set_user_labels('company', 'regress_ref_other', 'top');
SELECT lavrel.drop_level('company', 'top');
SELECT lavrel.drop_compartment('company', 3);
SELECT label_id, lavrel.label_to_char(label_id) AS label FROM lavrel.lavrel_label
 ORDER BY label_id;
SELECT count(*) FROM authorizations WHERE "user" = 'regress_ref_other'::regrole;
SELECT lavrel.drop_level('company', 40);
SELECT lavrel.drop_compartment('company', 'legal');

-- apply_object_policy, drop_object_policy
CREATE FUNCTION merger_code() RETURNS text LANGUAGE sql AS $$ SELECT 'M&A-7' $$;
SELECT lavrel.apply_object_policy('company', 'view', 'public', 'document_titles',
                                  'internal'),
       lavrel.apply_object_policy('company', 'function', 'public', 'merger_code',
                                  'secret:sales');
SELECT policy_name, obj_type, obj_namespace::regnamespace AS schema,
       CASE obj_type WHEN 'view' THEN obj_oid::regclass::text
                     ELSE obj_oid::regproc::text END AS object,
       lavrel.label_to_char(label_id) AS label
  FROM lavrel.lavrel_obj;
\c - regress_ref_user
SELECT count(*) FROM document_titles;
SELECT merger_code();
\c - postgres
SELECT lavrel.drop_object_policy('company', 'function', 'public', 'merger_code');
SELECT lavrel.drop_object_policy('company', 'function', 'public', 'merger_code');
SELECT lavrel.apply_object_policy('company', 'table', 'public', 'documents', 'internal');
SELECT lavrel.apply_object_policy('company', 'view', 'public', 'documents', 'internal');
SELECT lavrel.apply_object_policy('company', 'function', 'public', 'nosuch', 'internal');

-- Conversions
SELECT lavrel.label_to_char(310), lavrel.char_to_label('company', 'secret:sales');
SELECT lavrel.label_to_char(999);
SELECT lavrel.label_to_char(0);
SELECT lavrel.char_to_label('company', 'secret:sales,');
SELECT lavrel.char_to_label('company', 'secret :sales');
SELECT lavrel.char_to_label('company', 'secret:sales,sales');
SELECT lavrel.privs_to_char(3), lavrel.privs_to_char(28), lavrel.privs_to_char(0);

-- label
INSERT INTO documents VALUES (7, 'no label', NULL), (8, 'no such label', 999);
SELECT id, title, lavrel.label(clearance) FROM documents ORDER BY id;
DELETE FROM documents WHERE id IN (7, 8);

-- Listings
SELECT * FROM lavrel.policies();
SELECT policy_oid, relation_oid::regclass FROM lavrel.policy_enforcements();

-- Row mediation functions
\c - regress_ref_user
SELECT label_id, lavrel.read_mediation(1, label_id) AS read
  FROM unnest(ARRAY[100, 200, 210, 320, 999]) AS label_id;
SELECT lavrel.read_mediation(1, NULL);
SELECT lavrel.read_mediation(0, 100);
SELECT lavrel.write_mediation(1, 200);
SELECT lavrel.write_mediation(1, 100);
SELECT lavrel.label_insert(1, 310);
SELECT lavrel.label_insert(1, 100);
SELECT lavrel.label_update(1, 200, 200);
SELECT lavrel.label_update(1, 200, 210);
SELECT lavrel.generate_default_label_value(1);
SELECT lavrel.policy_read_min_label_id(1), lavrel.policy_read_max_label_id(1);
SELECT lavrel.readable_labels(1), lavrel.readable_labels(2);
SELECT label_id, lavrel.label_in(1, label_id, lavrel.readable_labels(1)) AS read
  FROM unnest(ARRAY[100, 210, NULL]) AS label_id;
SELECT lavrel.generate_default_label_value(2);
SELECT lavrel.policy_read_max_label_id(0);
SELECT lavrel.table_guard(100);
\c - postgres
SELECT polname, polpermissive, polroles::regrole[], polcmd,
       pg_get_expr(polqual, polrelid) AS using, pg_get_expr(polwithcheck, polrelid) AS with_check
  FROM pg_policy WHERE polrelid = 'documents'::regclass;
SELECT relrowsecurity, relforcerowsecurity FROM pg_class WHERE relname = 'documents';

-- enable_policy, disable_policy
\c - regress_ref_user
SELECT count(*) FROM documents;
\c - postgres
SELECT lavrel.disable_policy('company');
\c - regress_ref_user
SELECT count(*) FROM documents;
\c - postgres
SELECT lavrel.enable_policy('company');
SELECT lavrel.enable_policy('company');

-- remove_table_policy
CREATE TABLE drafts (id int);
INSERT INTO drafts VALUES (0);
GRANT SELECT ON drafts TO regress_ref_user;
SELECT lavrel.apply_table_policy('company', 'public', 'drafts');
INSERT INTO drafts VALUES (1, 320);
SELECT * FROM drafts;
\c - regress_ref_user
SELECT count(*) FROM drafts;
\c - postgres
SELECT lavrel.remove_table_policy('company', 'public', 'drafts');
SELECT * FROM drafts;
SELECT lavrel.remove_table_policy('company', 'public', 'drafts');
SELECT lavrel.apply_table_policy('company', 'public', 'drafts');
SELECT lavrel.remove_table_policy('company', 'public', 'drafts', drop_column => true);
SELECT * FROM drafts;
DROP TABLE drafts;

-- sync_object_names
SELECT lavrel.sync_object_names();

-- Error codes
SELECT stmt, try_stmt(stmt) AS outcome FROM (VALUES
    ($$SELECT lavrel.create_level('company', 'top', 0)$$),
    ($$SELECT lavrel.create_label('company', '', 900)$$),
    ($$SELECT lavrel.create_label('company', repeat('x', 4001), 900)$$),
    ($$SELECT lavrel.set_compartments('company', 'regress_ref_other', 'sales')$$),
    ($$SELECT lavrel.set_user_labels('company', 'regress_nosuch', 'internal')$$),
    ($$SELECT lavrel.apply_table_policy('company', 'public', 'nosuch')$$),
    ($$SELECT lavrel.apply_table_policy('company', 'public', 'documents')$$),
    ($$SELECT lavrel.apply_table_policy('company', 'pg_catalog', 'pg_class')$$),
    ($$SELECT lavrel.apply_object_policy('company', 'table', 'public', 'x', 'y')$$))
    AS v(stmt);

-- drop_policy
SELECT lavrel.drop_policy('"Projects"');
SELECT lavrel.drop_policy('company');
SELECT column_name, column_default FROM information_schema.columns
 WHERE table_name = 'documents' ORDER BY ordinal_position;
SELECT policy_name, obj_type, label_id FROM lavrel.lavrel_obj;
SELECT count(*) FROM document_titles;
SELECT lavrel.drop_policy('company');

-- Clean up.
DROP VIEW authorizations, document_titles;
DROP TABLE documents;
DROP FUNCTION merger_code(), try_stmt(text);
DROP ROLE regress_ref_user, regress_ref_other, regress_ref_super;
\i test/sql/include/drop_lavrel.sql

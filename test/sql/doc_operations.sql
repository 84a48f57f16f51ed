--
-- The examples of doc/operations.md: the server settings lavrel needs,
-- switching access control off and on, upgrades, what to look at while it
-- runs, EXPLAIN of mediated queries, administration beside other sessions
-- and in read-only transactions, and removing lavrel.
-- test/doc_examples.sh checks that the page shows this output.
--
-- The setup: policy company with three labels, table documents with one
-- row of each, user regress_ops_user reading up to internal, and
-- regress_ops_reader with the READ privilege.
CREATE EXTENSION lavrel;
SELECT lavrel.create_policy('company', 'clearance');
SELECT lavrel.create_level('company', name, id), lavrel.create_label('company', name, id * 10)
  FROM (VALUES ('public', 10), ('internal', 20), ('secret', 30)) AS v(name, id);
CREATE TABLE documents (id int PRIMARY KEY, title text);
SELECT lavrel.apply_table_policy('company', 'public', 'documents');
SELECT lavrel.set_user_labels('company', 'postgres', 'secret');
SELECT lavrel.set_user_privs('company', 'postgres', 'FULL');
INSERT INTO documents VALUES (1, 'canteen menu', 100), (2, 'org chart', 200),
                             (3, 'merger plan', 300);
CREATE ROLE regress_ops_user LOGIN;
CREATE ROLE regress_ops_reader LOGIN;
GRANT SELECT, INSERT, UPDATE, DELETE ON documents TO regress_ops_user, regress_ops_reader;
SELECT lavrel.set_user_labels('company', u, 'internal', 'internal', 'internal', 'internal')
  FROM unnest(ARRAY['regress_ops_user', 'regress_ops_reader']) AS u;
SELECT lavrel.set_user_privs('company', 'regress_ops_reader', 'READ');

-- Server settings
SHOW shared_preload_libraries;
SELECT name, setting, context FROM pg_settings WHERE name = 'lavrel.enable_mac';

-- Switching access control off and on
\c - regress_ops_user
SELECT count(*) FROM documents;
SET lavrel.enable_mac = off;
\c - postgres
ALTER SYSTEM SET lavrel.enable_mac = off;
SELECT pg_reload_conf();
\c - regress_ops_user
SHOW lavrel.enable_mac;
SELECT count(*) FROM documents;
SELECT * FROM lavrel.policies();
\c - postgres
SELECT lavrel.create_level('company', 'top', 40);
ALTER SYSTEM RESET lavrel.enable_mac;
SELECT pg_reload_conf();
\c - regress_ops_user
SELECT count(*) FROM documents;

-- Upgrades
\c - postgres
SELECT extversion FROM pg_extension WHERE extname = 'lavrel';
ALTER EXTENSION lavrel UPDATE;

-- Monitoring
SELECT p.policy_name, p.policy_col_name, p.policy_col_hidden, p.policy_enable,
       e.relation_oid::regclass AS protected_table
  FROM lavrel.policies() p
  LEFT JOIN lavrel.policy_enforcements() e ON e.policy_oid = p.oid;
SELECT user_name, max_read_label, min_write_label, def_label, row_label, privileges
  FROM lavrel.authorizations() ORDER BY user_name;
SELECT * FROM lavrel.labels() ORDER BY label_id;
SELECT privs, read_label, write_label, row_label FROM lavrel.show_session_labels();
\c - regress_ops_user
SELECT * FROM lavrel.my_labels();
SELECT label_id, lavrel.label(label_id) AS label,
       lavrel.read_mediation(1, label_id) AS reads
  FROM unnest(ARRAY[100, 200, 300]) AS label_id;
SELECT lavrel.generate_default_label_value(1) AS new_rows,
       lavrel.policy_read_min_label_id(1) AS lowest,
       lavrel.policy_read_max_label_id(1) AS highest;
-- A refusal, and what the server log holds of it: the test cluster logs
-- to server.log in the directory of its socket, each line after a prefix
-- of time and process id.
SELECT pg_backend_pid() AS user_pid \gset
UPDATE documents SET title = 'menu' WHERE id = 1;
\c - postgres
SELECT substr(line, strpos(line, ']') + 2) AS logged
  FROM regexp_split_to_table(pg_read_file(current_setting('unix_socket_directories')
                                          || '/server.log'), E'\n') AS line
 WHERE line LIKE '% [' || :user_pid || '] %';
\c - regress_ops_user

-- EXPLAIN
EXPLAIN (COSTS OFF) SELECT title FROM documents WHERE id = 2;
EXPLAIN (VERBOSE, COSTS OFF) UPDATE documents SET title = 'chart' WHERE id = 2;
EXPLAIN (VERBOSE, COSTS OFF) UPDATE documents SET clearance = 100 WHERE id = 2;
EXPLAIN (VERBOSE, COSTS OFF) INSERT INTO documents (id, title) VALUES (4, 'memo');
EXPLAIN (COSTS OFF, ANALYZE, TIMING OFF, SUMMARY OFF) SELECT title FROM documents;
\c - postgres
CREATE INDEX ON documents (clearance);
\c - regress_ops_user
SET enable_seqscan = off;
EXPLAIN (COSTS OFF) SELECT title FROM documents;
\c - regress_ops_reader
SET enable_seqscan = off;
EXPLAIN (COSTS OFF) SELECT title FROM documents;

-- Administration beside other sessions, read-only transactions
\c - postgres
BEGIN;
SELECT lavrel.set_user_privs('company', 'regress_ops_user', 'READ');
SELECT relation::regclass, mode, granted FROM pg_locks
 WHERE relation = 'lavrel.lavrel_policy'::regclass AND pid = pg_backend_pid();
ROLLBACK;
BEGIN TRANSACTION READ ONLY;
SELECT lavrel.set_user_privs('company', 'regress_ops_user', 'READ');
ROLLBACK;
BEGIN TRANSACTION READ ONLY;
SELECT lavrel.set_session_row_label('company', 'internal');
SELECT row_label FROM lavrel.show_session_labels();
ROLLBACK;

-- Removing lavrel
\c - postgres
DROP EXTENSION lavrel;
SELECT lavrel.drop_policy('company');
DROP EXTENSION lavrel;
ALTER SYSTEM SET lavrel.enable_mac = off;
SELECT pg_reload_conf();
\c
DROP EXTENSION lavrel;
DROP SCHEMA lavrel;
ALTER SYSTEM RESET lavrel.enable_mac;
SELECT pg_reload_conf();
\c
DROP TABLE documents;
DROP ROLE regress_ops_user, regress_ops_reader;

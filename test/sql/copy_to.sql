--
-- COPY TO of protected tables.  A COPY writes only the rows the session
-- may read and counts only those; "label" prints label strings in the
-- policy columns, "nolabel" leaves them out.  Text and CSV, HEADER, column
-- lists, STDOUT and server files all work as usual.  ROW_COUNT after a
-- COPY to a server file shows the count of its "COPY n" (psql keeps no
-- count for COPY TO STDOUT).
--
CREATE EXTENSION lavrel;
\i sql/include/try_stmt.sql
-- p1: levels low < mid < high, compartments a, b, c, labels 5 low:c,
-- 10 low, 11 low:a, 20 mid, 21 mid:a, 22 mid:b, 30 high, 31 high:a,
-- 33 high:a,b, 35 high:c, 99 high:a,b,c.  p2: level x, label 90.
\i sql/include/policies_p1_p2.sql
SELECT current_setting('port') AS port \gset
\set outfile '/tmp/lavrel_copy_to_' :port '.txt'
\set rmout 'rm -f ' :outfile

-- docs: a row at some labels of p1 and one without a label; the column
-- "Body Text" needs quoting.  dual: under p1 and p2.  stale: a row whose
-- label id names no label.  plain: no policy.
CREATE TABLE docs (id int PRIMARY KEY, "Body Text" text);
SELECT lavrel.apply_table_policy('p1', 'public', 'docs');
CREATE TABLE dual (id int, body text);
SELECT lavrel.apply_table_policy('p1', 'public', 'dual');
SELECT lavrel.apply_table_policy('p2', 'public', 'dual');
CREATE TABLE stale (id int);
SELECT lavrel.apply_table_policy('p1', 'public', 'stale');
CREATE TABLE plain (id int, label int);
GRANT SELECT ON docs, dual, stale, plain TO PUBLIC;

SELECT lavrel.set_user_labels('p1', 'postgres', 'high:a,b,c');
SELECT lavrel.set_user_privs('p1', 'postgres', 'FULL');
SELECT lavrel.set_user_labels('p2', 'postgres', 'x');
SELECT lavrel.set_user_privs('p2', 'postgres', 'FULL');
INSERT INTO docs VALUES
    (1, 'low:c', 5), (2, 'low', 10), (3, 'low:a', 11), (4, 'mid', 20), (5, 'mid:a', 21),
    (6, 'mid:b', 22), (7, 'high', 30), (8, 'high:a,b,c', 99), (9, 'no label', NULL);
INSERT INTO dual VALUES (1, 'low x', 10, 90), (2, 'high x', 30, 90), (3, 'low, no p2 label', 10, NULL);
INSERT INTO stale VALUES (1, 10), (2, 12345);
INSERT INTO plain VALUES (1, 10), (2, 30);

-- alice reads low, low:a, mid and mid:a (and x under p2); carol has her
-- labels and READ, dave her labels and FULL; erin has no authorization.
-- All may write server files.
CREATE ROLE regress_ct_alice;
CREATE ROLE regress_ct_carol;
CREATE ROLE regress_ct_dave;
CREATE ROLE regress_ct_erin;
SELECT lavrel.set_user_labels('p1', u, 'high:a,b', 'high:a', 'mid:a', 'mid:a', 'mid:a')
  FROM unnest(ARRAY['regress_ct_alice', 'regress_ct_carol', 'regress_ct_dave']) AS u;
SELECT lavrel.set_user_privs('p1', 'regress_ct_carol', 'READ');
SELECT lavrel.set_user_privs('p1', 'regress_ct_dave', 'FULL');
SELECT lavrel.set_user_labels('p2', 'regress_ct_alice', 'x');
GRANT pg_write_server_files TO regress_ct_alice, regress_ct_carol, regress_ct_dave,
    regress_ct_erin;

-- ---------------------------------------------------------------------
-- alice: no privileges
-- ---------------------------------------------------------------------
SET SESSION AUTHORIZATION regress_ct_alice;
-- Rows 2 to 5 only, with label ids; four rows counted.
COPY docs TO STDOUT;
COPY docs TO :'outfile';
\echo :ROW_COUNT
-- Label strings; the policy column keeps its name in the header.
COPY docs TO STDOUT WITH (label);
COPY docs TO STDOUT WITH (FORMAT csv, HEADER, label);
-- Without the policy column.
COPY docs TO STDOUT WITH (nolabel);
COPY docs TO STDOUT WITH (FORMAT csv, HEADER true, nolabel);
-- A column list, the policy column first; with "nolabel" a named policy
-- column is left out too.
COPY docs (p1_label, id) TO STDOUT WITH (label);
COPY docs (p1_label, id) TO STDOUT WITH (nolabel);
COPY docs ("Body Text") TO STDOUT WITH (FORMAT csv, FORCE_QUOTE *);
-- A column list without the policy column still reads only her rows.
COPY docs (id) TO :'outfile';
\echo :ROW_COUNT
-- The options are case-insensitive and take a Boolean value.
COPY docs (id, p1_label) TO STDOUT WITH ("LABEL");
COPY docs (id, p1_label) TO STDOUT WITH (label true);
COPY docs (id, p1_label) TO STDOUT WITH (label false);
COPY docs TO STDOUT WITH (nolabel off);
-- dual: low or below under p1 and x under p2: row 1 only.
COPY dual TO STDOUT WITH (label);
COPY dual TO :'outfile';
\echo :ROW_COUNT
-- A COPY of a query goes through the label filter as any query does.
COPY (SELECT id, p1_label FROM docs WHERE id > 2 ORDER BY id) TO STDOUT;
RESET SESSION AUTHORIZATION;

-- ---------------------------------------------------------------------
-- carol: READ
-- ---------------------------------------------------------------------
SET SESSION AUTHORIZATION regress_ct_carol;
-- Every row, the one without a label too; with "label" its null stays null.
COPY docs TO :'outfile';
\echo :ROW_COUNT
COPY docs TO STDOUT WITH (label);
COPY docs TO STDOUT WITH (FORMAT csv, label, FORCE_QUOTE (p1_label));
-- A label id that names no label has no string to print.
COPY stale TO STDOUT;
COPY stale TO STDOUT WITH (label);
-- No authorization under p2: nothing of dual.
COPY dual TO :'outfile';
\echo :ROW_COUNT
RESET SESSION AUTHORIZATION;

-- ---------------------------------------------------------------------
-- dave: FULL; erin: no authorization
-- ---------------------------------------------------------------------
SET SESSION AUTHORIZATION regress_ct_dave;
COPY docs TO STDOUT WITH (label);
COPY docs TO :'outfile' WITH (nolabel);
\echo :ROW_COUNT
RESET SESSION AUTHORIZATION;
SET SESSION AUTHORIZATION regress_ct_erin;
COPY docs TO STDOUT;
COPY docs TO :'outfile' WITH (label);
\echo :ROW_COUNT
-- A COPY to a server file still needs the right to write one.
RESET SESSION AUTHORIZATION;
REVOKE pg_write_server_files FROM regress_ct_erin;
SET SESSION AUTHORIZATION regress_ct_erin;
COPY docs TO :'outfile';
RESET SESSION AUTHORIZATION;

-- ---------------------------------------------------------------------
-- Options
-- ---------------------------------------------------------------------
-- "label" and "nolabel" may be given once, and not both.
COPY docs TO STDOUT WITH (label, label);
COPY docs TO STDOUT WITH (nolabel, nolabel);
COPY docs TO STDOUT WITH (label, nolabel);
COPY docs TO STDOUT WITH (nolabel, header, label);
COPY docs TO STDOUT WITH (label false, label);
COPY docs TO STDOUT WITH (label 'maybe');
-- Their SQLSTATE.
SELECT try_stmt(format('COPY docs TO %L WITH (label, nolabel)', :'outfile'));
SELECT try_stmt(format('COPY docs TO %L WITH (nolabel, nolabel)', :'outfile'));
-- Binary format is refused for a protected table (its label ids could not
-- be read back as labels).
COPY docs TO STDOUT WITH (FORMAT binary);
SELECT try_stmt(format('COPY docs TO %L WITH (FORMAT binary)', :'outfile'));
-- FREEZE means nothing to COPY TO, as for any table.
COPY docs (id) TO STDOUT WITH (FREEZE);
-- Other options are checked as usual.
COPY docs TO STDOUT WITH (FORMAT xml);
COPY docs TO STDOUT WITH (FORCE_NOT_NULL (id));
COPY docs (nosuch) TO STDOUT;
COPY nosuch TO STDOUT;

-- ---------------------------------------------------------------------
-- A hidden policy column
-- ---------------------------------------------------------------------
-- SELECT * leaves it out; COPY writes every column, as it always does,
-- unless "nolabel" says otherwise.
SELECT lavrel.create_policy('h', 'h_label', true);
SELECT lavrel.create_level('h', 'open', 1);
SELECT lavrel.create_label('h', 'open', 7);
SELECT lavrel.set_user_labels('h', 'postgres', 'open');
CREATE TABLE hidden (id int);
SELECT lavrel.apply_table_policy('h', 'public', 'hidden');
INSERT INTO hidden VALUES (1, 7);
SELECT * FROM hidden;
COPY hidden TO STDOUT WITH (FORMAT csv, HEADER, label);
COPY hidden TO STDOUT WITH (FORMAT csv, HEADER, nolabel);
SELECT lavrel.drop_policy('h');
DROP TABLE hidden;

-- ---------------------------------------------------------------------
-- Tables without a policy, and a disabled policy
-- ---------------------------------------------------------------------
-- plain goes the usual way: every row, and "label" is an unknown option.
SET SESSION AUTHORIZATION regress_ct_erin;
COPY plain TO STDOUT;
COPY plain TO STDOUT WITH (label);
COPY plain TO STDOUT WITH (FORMAT binary, nolabel);
RESET SESSION AUTHORIZATION;
-- A disabled policy filters nothing and prints no labels; "label" is
-- still accepted for the table.
SELECT lavrel.disable_policy('p2');
SET SESSION AUTHORIZATION regress_ct_carol;
COPY dual TO STDOUT WITH (label);
RESET SESSION AUTHORIZATION;
SELECT lavrel.enable_policy('p2');

-- ---------------------------------------------------------------------
-- With lavrel.enable_mac off COPY is PostgreSQL's own
-- ---------------------------------------------------------------------
ALTER SYSTEM SET lavrel.enable_mac = off;
SELECT pg_reload_conf();
\c
SET SESSION AUTHORIZATION regress_ct_erin;
COPY docs TO STDOUT;
COPY docs TO STDOUT WITH (label);
RESET SESSION AUTHORIZATION;
ALTER SYSTEM RESET lavrel.enable_mac;
SELECT pg_reload_conf();
\c
SET SESSION AUTHORIZATION regress_ct_erin;
COPY docs TO STDOUT;
RESET SESSION AUTHORIZATION;

COPY (SELECT) TO PROGRAM :'rmout';
SELECT lavrel.drop_policy('p1');
SELECT lavrel.drop_policy('p2');
DROP TABLE docs, dual, stale, plain;
DROP ROLE regress_ct_alice, regress_ct_carol, regress_ct_dave, regress_ct_erin;
DROP FUNCTION try_stmt(text);
\i sql/include/drop_lavrel.sql

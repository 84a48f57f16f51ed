-- bench/setup.sql: the data of the benchmark database, loaded by the
-- administrator.  psql variables: rows (size of the main table), batch
-- (rows of the INSERT and UPDATE tables), dir (where the COPY FROM input
-- files are written).
--
--   policy "bench": levels l1 < l2 < l3, compartments c1 .. c10, 1,000 labels
--   protected       :rows rows spread over the labels, index on the label
--   plain           the same rows, unprotected (baseline: a plain predicate)
--   rls             the same rows under row-level security, each role reading
--                   the labels listed for it in rls_access (outsider: the
--                   readable ones)
--   rls_fast        the same again, under the fastest policy a user can
--                   write: the role's label ids as an array, computed once
--                   per statement (an initplan)
--   accounts_plain, accounts_protected
--                   pgbench_accounts' rows, unprotected and protected (every
--                   row at the reader's own label), for prepared statements
--   plain_readable  an unprotected copy of the rows the reader may read
--   readable        the label ids the reader may read
--   own_*           :batch rows at the reader's own label (UPDATE)
--   ins_*           empty tables for the INSERT scenario
--   copy_*          empty tables for the COPY FROM scenario
--
-- The user "reader" reads up to l3:c1..c9, that is every label without c10
-- (about half of them), and holds no privilege.  "outsider" is authorized
-- for no policy: the baselines run as him, so that they pay nothing for
-- lavrel but the finding that he has no authorization.  Parallel query and
-- JIT compilation are off in this database (the parallel scenario turns
-- workers on in its own scripts): the other scenarios compare the work of
-- one process, and JIT's compile time differs between two queries.
\set ON_ERROR_STOP on
SET client_min_messages = warning;
\o /dev/null
\ir label_text.sql
ALTER DATABASE :"DBNAME" SET max_parallel_workers_per_gather = 0;
ALTER DATABASE :"DBNAME" SET jit = off;
CREATE EXTENSION lavrel;
SELECT lavrel.create_policy('bench', 'label');
SELECT lavrel.create_level('bench', 'l' || i, i) FROM generate_series(1, 3) i;
SELECT lavrel.create_compartment('bench', 'c' || i, i) FROM generate_series(1, 10) i;

-- Label i: level 1 + i % 3, compartments from the bits of (i * 7919) % 1024,
-- which spreads c10 over about half of the labels; combinations already
-- taken are skipped.
CREATE TEMP TABLE labels AS
SELECT row_number() OVER (ORDER BY i)::int AS id, level, bits
  FROM (SELECT DISTINCT ON (level, bits) i, level, bits
          FROM (SELECT i, 1 + i % 3 AS level, (i * 7919) % 1024 AS bits
                  FROM generate_series(1, 1100) i) candidates
         ORDER BY level, bits, i) distinct_labels
 ORDER BY i LIMIT 1000;
SELECT lavrel.create_label('bench', label_text(level, bits), id) FROM labels;
CREATE TABLE label_names AS SELECT id, label_text(level, bits) AS name FROM labels;
CREATE TABLE readable AS SELECT id FROM labels WHERE bits & 512 = 0;

CREATE ROLE reader LOGIN;
CREATE ROLE outsider LOGIN;
-- The clerk's authorization is what the administrator changes under load.
CREATE ROLE clerk LOGIN;
SELECT lavrel.set_user_labels('bench', 'clerk', 'l1:c1');
SELECT lavrel.set_user_labels('bench', 'postgres', 'l3:c1,c2,c3,c4,c5,c6,c7,c8,c9,c10');
SELECT lavrel.set_user_privs('bench', 'postgres', 'FULL');
SELECT lavrel.set_user_labels('bench', 'reader', 'l3:c1,c2,c3,c4,c5,c6,c7,c8,c9',
                              min_write_label => 'l3:c1,c2,c3,c4,c5,c6,c7,c8,c9',
                              def_label => 'l3:c1,c2,c3,c4,c5,c6,c7,c8,c9');
SELECT lavrel.char_to_label('bench', 'l3:c1,c2,c3,c4,c5,c6,c7,c8,c9') AS own \gset

-- The main table, three times.
CREATE TABLE plain (id int PRIMARY KEY, payload text, label int);
INSERT INTO plain SELECT g, md5(g::text), 1 + g % 1000 FROM generate_series(1, :rows) g;
CREATE INDEX ON plain (label);

CREATE TABLE protected (id int PRIMARY KEY, payload text);
SELECT lavrel.apply_table_policy('bench', 'public', 'protected');
INSERT INTO protected SELECT * FROM plain;
CREATE INDEX ON protected (label);

CREATE TABLE rls_access (role name, label int);
INSERT INTO rls_access SELECT 'outsider', id FROM readable;
CREATE TABLE rls (LIKE plain INCLUDING INDEXES);
INSERT INTO rls SELECT * FROM plain;
CREATE POLICY readable ON rls FOR SELECT
    USING (label IN (SELECT a.label FROM rls_access a WHERE a.role = current_user));
ALTER TABLE rls ENABLE ROW LEVEL SECURITY;

-- The fastest policy: an array of the role's label ids, computed once per
-- statement; the planner may use the label index for it.
CREATE FUNCTION my_readable_labels() RETURNS int[] LANGUAGE sql STABLE
    AS $$ SELECT array_agg(label) FROM rls_access WHERE role = current_user $$;
CREATE TABLE rls_fast (LIKE plain INCLUDING INDEXES);
INSERT INTO rls_fast SELECT * FROM plain;
CREATE POLICY readable ON rls_fast FOR SELECT
    USING (label = ANY ((SELECT my_readable_labels())::int[]));
ALTER TABLE rls_fast ENABLE ROW LEVEL SECURITY;

-- pgbench_accounts' rows, for prepared statements by the reader: every row
-- at his own label in the protected copy.
CREATE TABLE accounts_plain (aid int PRIMARY KEY, bid int, abalance int, filler char(84))
    WITH (fillfactor = 90);
INSERT INTO accounts_plain SELECT aid, bid, abalance, filler FROM pgbench_accounts;
CREATE TABLE accounts_protected (aid int PRIMARY KEY, bid int, abalance int, filler char(84))
    WITH (fillfactor = 90);
SELECT lavrel.apply_table_policy('bench', 'public', 'accounts_protected');
INSERT INTO accounts_protected SELECT aid, bid, abalance, filler, :own FROM pgbench_accounts;

CREATE TABLE plain_readable AS SELECT * FROM plain WHERE label IN (SELECT id FROM readable);

-- Rows at the reader's own label, which he may read and write.  Half-empty
-- pages give each UPDATE room on the rows' own pages, so repeated runs
-- hardly grow the tables.
CREATE TABLE own_plain (id int PRIMARY KEY, payload text, label int) WITH (fillfactor = 50);
INSERT INTO own_plain SELECT g, md5(g::text), :own FROM generate_series(1, :batch) g;
CREATE TABLE own_protected (id int PRIMARY KEY, payload text) WITH (fillfactor = 50);
SELECT lavrel.apply_table_policy('bench', 'public', 'own_protected');
INSERT INTO own_protected SELECT * FROM own_plain;

-- Without a label, the unprotected table stores the reader's own label id,
-- as the policy's default does for the protected one.
CREATE TABLE ins_plain (id int, payload text, label int DEFAULT :own);
CREATE TABLE ins_protected (id int, payload text);
SELECT lavrel.apply_table_policy('bench', 'public', 'ins_protected');

-- COPY FROM input: the rows of plain, with label ids and with label strings.
CREATE TABLE copy_plain (id int, payload text, label int);
CREATE TABLE copy_protected (id int, payload text);
SELECT lavrel.apply_table_policy('bench', 'public', 'copy_protected');
\set ids_file :dir '/rows_ids.txt'
\set labels_file :dir '/rows_labels.txt'
COPY (SELECT * FROM plain ORDER BY id) TO :'ids_file';
COPY (SELECT p.id, p.payload, n.name FROM plain p JOIN label_names n ON n.id = p.label ORDER BY p.id)
  TO :'labels_file';

-- Table privileges are not what the benchmark measures: both roles get them
-- all, and server files for COPY.
GRANT SELECT, INSERT, UPDATE, DELETE, TRUNCATE ON ALL TABLES IN SCHEMA public TO reader, outsider;
GRANT pg_read_server_files, pg_write_server_files TO reader, outsider;
VACUUM ANALYZE;

--
-- Reading protected tables.  Every user queries in a connection of his own
-- and must see exactly the rows whose labels his session may read: under
-- every enabled policy of the table, and whatever the query joins them to.
--
CREATE EXTENSION lavrel;

-- p1: levels low < mid < high, compartments a, b, c, labels 5 low:c,
-- 10 low, 11 low:a, 20 mid, 21 mid:a, 22 mid:b, 30 high, 31 high:a,
-- 33 high:a,b, 35 high:c, 99 high:a,b,c.  p2: level x with label 90; a
-- second level y above it, with label 91, is added here.
\i sql/include/policies_p1_p2.sql
SELECT lavrel.create_level('p2', 'y', 2);
SELECT lavrel.create_label('p2', 'y', 91);

-- docs: one row at every label of p1, one without a label and one with an
-- id that names no label.  An index on the policy column.
CREATE TABLE docs (id int PRIMARY KEY, body text);
SELECT lavrel.apply_table_policy('p1', 'public', 'docs');
CREATE INDEX docs_p1_label_idx ON docs (p1_label);
-- owners: not protected; refers to some of the docs and to one that is not
-- there.
CREATE TABLE owners (doc_id int, name text);
-- memo: under p2 only.  dual: under p1 and p2.
CREATE TABLE memo (id int, body text);
SELECT lavrel.apply_table_policy('p2', 'public', 'memo');
CREATE TABLE dual (id int, body text);
SELECT lavrel.apply_table_policy('p1', 'public', 'dual');
SELECT lavrel.apply_table_policy('p2', 'public', 'dual');
GRANT SELECT ON docs, owners, memo, dual TO PUBLIC;

-- The administrator loads the rows with FULL under both policies.
SELECT lavrel.set_user_labels('p1', 'postgres', 'high:a,b,c');
SELECT lavrel.set_user_privs('p1', 'postgres', 'FULL');
SELECT lavrel.set_user_labels('p2', 'postgres', 'y');
SELECT lavrel.set_user_privs('p2', 'postgres', 'FULL');
INSERT INTO docs VALUES
    (1, 'low:c', 5), (2, 'low', 10), (3, 'low:a', 11), (4, 'mid', 20), (5, 'mid:a', 21),
    (6, 'mid:b', 22), (7, 'high', 30), (8, 'high:a', 31), (9, 'high:a,b', 33),
    (10, 'high:c', 35), (11, 'high:a,b,c', 99), (12, 'no label', NULL), (13, 'unknown id', 12345);
INSERT INTO owners VALUES (1, 'olga'), (2, 'pete'), (5, 'quinn'), (9, 'rita'), (12, 'sam'),
    (14, 'tom');
INSERT INTO memo VALUES (1, 'x', 90), (2, 'y', 91), (3, 'no label', NULL);
INSERT INTO dual VALUES (1, 'low x', 10, 90), (2, 'low y', 10, 91), (3, 'mid:a x', 21, 90),
    (4, 'high:a,b x', 33, 90), (5, 'high:a,b y', 33, 91), (6, 'low, no p2 label', 10, NULL),
    (7, 'high:c x', 35, 90);

CREATE ROLE regress_fs_alice LOGIN;
CREATE ROLE regress_fs_bob LOGIN;
CREATE ROLE regress_fs_carol LOGIN;
CREATE ROLE regress_fs_dave LOGIN;
CREATE ROLE regress_fs_erin LOGIN;
-- alice: max read high:a,b, max write high:a, min write, default and row
-- label mid:a.  Her read label is mid:a: she reads low, low:a, mid and
-- mid:a.  carol has her labels and READ, dave her labels and FULL.
SELECT lavrel.set_user_labels('p1', u, 'high:a,b', 'high:a', 'mid:a', 'mid:a', 'mid:a')
  FROM unnest(ARRAY['regress_fs_alice', 'regress_fs_carol', 'regress_fs_dave']) AS u;
SELECT lavrel.set_user_privs('p1', 'regress_fs_carol', 'READ');
SELECT lavrel.set_user_privs('p1', 'regress_fs_dave', 'FULL');
-- bob: all five labels of his authorization are high:a,b, so he reads
-- every label high:a,b dominates: low, low:a, mid, mid:a, mid:b, high,
-- high:a, high:a,b.
SELECT lavrel.set_user_labels('p1', 'regress_fs_bob', 'high:a,b', 'high:a,b', 'high:a,b',
                              'high:a,b', 'high:a,b');
-- Under p2 alice and dave read x, carol reads x and y; bob and erin have
-- no authorization under p2, erin none under p1 either.
SELECT lavrel.set_user_labels('p2', u, 'x', 'x', 'x', 'x', 'x')
  FROM unnest(ARRAY['regress_fs_alice', 'regress_fs_dave']) AS u;
SELECT lavrel.set_user_labels('p2', 'regress_fs_carol', 'y', 'y', 'y', 'y', 'y');

-- ---------------------------------------------------------------------
-- alice: no privileges
-- ---------------------------------------------------------------------
\c - regress_fs_alice
-- Rows 2 to 5 (low, low:a, mid, mid:a), nothing else: not low:c or
-- mid:b (compartments she lacks), not the higher levels, not the row
-- without a label nor the one with an unknown label id.
SELECT * FROM docs ORDER BY id;
SELECT count(*), min(p1_label), max(p1_label) FROM docs;
-- A condition on hidden rows finds nothing.
SELECT id FROM docs WHERE p1_label IN (5, 22, 30, 99, 12345) OR p1_label IS NULL;
-- Joined to the unprotected owners: docs 2 and 5 have owners she may see.
SELECT d.id, d.body, o.name FROM docs d JOIN owners o ON o.doc_id = d.id ORDER BY d.id;
-- Every owner stays; only docs she reads fill the right side.
SELECT o.doc_id, o.name, d.body
  FROM owners o LEFT JOIN docs d ON d.id = o.doc_id ORDER BY o.doc_id;
-- Joined to itself and to dual (both protected).
SELECT a.id, b.id AS next FROM docs a JOIN docs b ON b.id = a.id + 1 ORDER BY a.id;
SELECT d.id, d.body, u.body AS dual_body
  FROM docs d JOIN dual u ON u.p1_label = d.p1_label ORDER BY d.id, u.id;
-- The filter lets the index on p1_label narrow the scan.  A table
-- this small may well be scanned whole instead, depending on its
-- statistics; enable_seqscan off keeps the plans below stable.
SET enable_seqscan = off;
-- docs is read by its own scan, filtered there as a security qual (as
-- under row-level security); the scan returns only the columns the query
-- uses, body and id.
EXPLAIN (VERBOSE, COSTS OFF)
SELECT d.body, upper(d.body), o.name FROM docs d, owners o WHERE o.doc_id = d.id;
-- In a JOIN clause too the scan returns only the columns used; the policy
-- column is read by the filter alone.
EXPLAIN (VERBOSE, COSTS OFF)
SELECT d.body, o.name FROM docs d JOIN owners o ON o.doc_id = d.id;
-- Without READ or FULL the filter compares the label with the readable
-- label ids, which the label index serves.
EXPLAIN (COSTS OFF) SELECT id, body FROM docs;
SELECT id, body FROM docs ORDER BY id;
RESET enable_seqscan;
-- memo, under p2: x only.  dual: mid:a or below under p1 and x under p2
-- (rows 1 and 3); both policies bring their filter.
SELECT * FROM memo ORDER BY id;
SELECT * FROM dual ORDER BY id;
EXPLAIN (COSTS OFF) SELECT * FROM dual;

-- ---------------------------------------------------------------------
-- bob: no privileges, no authorization under p2
-- ---------------------------------------------------------------------
\c - regress_fs_bob
-- Rows 2 to 9: every label high:a,b dominates.
SELECT * FROM docs ORDER BY id;
SELECT o.doc_id, o.name, d.body
  FROM owners o LEFT JOIN docs d ON d.id = o.doc_id ORDER BY o.doc_id;
-- Without an authorization under p2 he reads nothing of memo, and nothing
-- of dual whatever its p1 labels.
SELECT count(*) FROM memo;
SELECT count(*) FROM dual;

-- ---------------------------------------------------------------------
-- carol: READ
-- ---------------------------------------------------------------------
\c - regress_fs_carol
-- Every row, those without a label or with an unknown label id included.
SELECT * FROM docs ORDER BY id;
-- READ brings no filter.
EXPLAIN (COSTS OFF) SELECT * FROM docs;
-- memo: x and y, but not the row without a label (no privilege under p2).
SELECT * FROM memo ORDER BY id;
-- dual: every p1 label, and x or y under p2: all but row 6.  The range
-- clauses stand only for p2.
SELECT * FROM dual ORDER BY id;
EXPLAIN (COSTS OFF) SELECT * FROM dual;

-- ---------------------------------------------------------------------
-- dave: FULL
-- ---------------------------------------------------------------------
\c - regress_fs_dave
SELECT * FROM docs ORDER BY id;
EXPLAIN (COSTS OFF) SELECT * FROM docs;
-- FULL under p1 only: dual's rows at x under p2 (1, 3, 4 and 7).
SELECT * FROM dual ORDER BY id;

-- ---------------------------------------------------------------------
-- erin: no authorization at all
-- ---------------------------------------------------------------------
\c - regress_fs_erin
SELECT count(*) FROM docs;
SELECT o.doc_id, o.name, d.body
  FROM owners o LEFT JOIN docs d ON d.id = o.doc_id ORDER BY o.doc_id;
-- No session record: the filter is added, and reads no label.
EXPLAIN (COSTS OFF) SELECT * FROM memo;

-- ---------------------------------------------------------------------
-- A disabled policy filters nothing
-- ---------------------------------------------------------------------
\c - postgres
SELECT lavrel.disable_policy('p2');
\c - regress_fs_bob
-- memo is read as it is; dual only through p1: every row but 7 (high:c).
SELECT * FROM memo ORDER BY id;
EXPLAIN (COSTS OFF) SELECT * FROM memo;
SELECT * FROM dual ORDER BY id;
\c - postgres
SELECT lavrel.enable_policy('p2');
\c - regress_fs_bob
SELECT count(*) FROM memo;

-- ---------------------------------------------------------------------
-- With lavrel.enable_mac off nothing is filtered
-- ---------------------------------------------------------------------
\c - postgres
ALTER SYSTEM SET lavrel.enable_mac = off;
SELECT pg_reload_conf();
\c - regress_fs_erin
SELECT * FROM docs ORDER BY id;
SELECT * FROM dual ORDER BY id;
EXPLAIN (COSTS OFF) SELECT * FROM docs;
\c - postgres
ALTER SYSTEM RESET lavrel.enable_mac;
SELECT pg_reload_conf();
\c - regress_fs_erin
SELECT count(*) FROM docs;

\c - postgres
SELECT lavrel.drop_policy('p1');
SELECT lavrel.drop_policy('p2');
DROP TABLE docs, owners, memo, dual;
DROP ROLE regress_fs_alice, regress_fs_bob, regress_fs_carol, regress_fs_dave, regress_fs_erin;
\i sql/include/drop_lavrel.sql

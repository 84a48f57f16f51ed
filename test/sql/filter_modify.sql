--
-- Changing protected tables.  INSERT may store only labels the session may
-- give (the policy column's default included).  UPDATE and DELETE see only
-- rows the session may read; among those, every row their conditions
-- select must be writable (one that is not fails the whole statement).  A
-- label may change only as the session's privileges allow.  Every user
-- works in a connection of his own.
--
CREATE EXTENSION lavrel;
\i sql/include/try_stmt.sql

-- p1: levels low < mid < high, compartments a, b, c, labels 5 low:c,
-- 10 low, 11 low:a, 20 mid, 21 mid:a, 22 mid:b, 30 high, 31 high:a,
-- 33 high:a,b, 35 high:c, 99 high:a,b,c.  p2: level x with label 90; a
-- second level y above it, with label 91, is added here.
\i sql/include/policies_p1_p2.sql
SELECT lavrel.create_level('p2', 'y', 2);
SELECT lavrel.create_label('p2', 'y', 91);

-- acct: rows at many labels of p1.  moves: the rows whose labels the users
-- change, a few for each.  dual: under p1 and p2.  archive: not protected.
CREATE TABLE acct (id int PRIMARY KEY, body text);
SELECT lavrel.apply_table_policy('p1', 'public', 'acct');
CREATE TABLE moves (id int PRIMARY KEY, owner text);
SELECT lavrel.apply_table_policy('p1', 'public', 'moves');
CREATE TABLE dual (id int PRIMARY KEY, body text);
SELECT lavrel.apply_table_policy('p1', 'public', 'dual');
SELECT lavrel.apply_table_policy('p2', 'public', 'dual');
CREATE TABLE archive (id int, body text, p1_label int);
GRANT SELECT, INSERT, UPDATE, DELETE ON acct, moves, dual, archive TO PUBLIC;

SELECT lavrel.set_user_labels('p1', 'postgres', 'high:a,b,c');
SELECT lavrel.set_user_privs('p1', 'postgres', 'FULL');
SELECT lavrel.set_user_labels('p2', 'postgres', 'y');
SELECT lavrel.set_user_privs('p2', 'postgres', 'FULL');
INSERT INTO acct VALUES
    (1, 'low', 10), (2, 'low:a', 11), (3, 'mid', 20), (4, 'mid:a', 21), (5, 'mid:a', 21),
    (6, 'mid:a', 21), (7, 'mid:b', 22), (8, 'high', 30), (9, 'high:a', 31),
    (10, 'high:a,b', 33), (11, 'high:a,b,c', 99), (12, 'no label', NULL);
INSERT INTO moves VALUES
    (1, 'kate', 20), (2, 'kate', 21),
    (11, 'frank', 20), (12, 'frank', 21), (13, 'frank', 30),
    (21, 'gina', 30), (22, 'gina', 31), (23, 'gina', 20),
    (31, 'hank', 21), (32, 'hank', 20), (33, 'hank', 33),
    (41, 'ivan', 21), (42, 'ivan', 10), (43, 'ivan', 99), (44, 'ivan', NULL),
    (51, 'jill', 21);
INSERT INTO dual VALUES (1, 'mid:a x', 21, 90), (2, 'mid:a y', 21, 91), (3, 'low x', 10, 90);

CREATE ROLE regress_fm_alice LOGIN;
CREATE ROLE regress_fm_kate LOGIN;
CREATE ROLE regress_fm_frank LOGIN;
CREATE ROLE regress_fm_gina LOGIN;
CREATE ROLE regress_fm_hank LOGIN;
CREATE ROLE regress_fm_ivan LOGIN;
CREATE ROLE regress_fm_jill LOGIN;
CREATE ROLE regress_fm_erin LOGIN;
-- alice: max read high:a,b, max write high:a, min write, default and row
-- label mid:a.  She reads low, low:a, mid and mid:a, writes and gives
-- mid:a and high:a, and new rows get mid:a.  jill has her labels and
-- READ, ivan her labels and FULL.  alice reads and writes x under p2.
SELECT lavrel.set_user_labels('p1', u, 'high:a,b', 'high:a', 'mid:a', 'mid:a', 'mid:a')
  FROM unnest(ARRAY['regress_fm_alice', 'regress_fm_jill', 'regress_fm_ivan']) AS u;
SELECT lavrel.set_user_privs('p1', 'regress_fm_jill', 'READ');
SELECT lavrel.set_user_privs('p1', 'regress_fm_ivan', 'FULL');
SELECT lavrel.set_user_labels('p2', 'regress_fm_alice', 'x', 'x', 'x', 'x', 'x');
-- kate, frank, gina and hank: max read and write high:a,b, min write,
-- default and row label mid.  They write and give mid, mid:a, mid:b, high,
-- high:a and high:a,b, and READ lets them read every row they change.
-- frank holds WRITEUP too, gina WRITEDOWN, hank WRITEACROSS.  erin has no
-- authorization.
SELECT lavrel.set_user_labels('p1', u, 'high:a,b', 'high:a,b', 'mid', 'mid', 'mid')
  FROM unnest(ARRAY['regress_fm_kate', 'regress_fm_frank', 'regress_fm_gina',
                    'regress_fm_hank']) AS u;
SELECT lavrel.set_user_privs('p1', 'regress_fm_kate', 'READ');
SELECT lavrel.set_user_privs('p1', 'regress_fm_frank', 'READ,WRITEUP');
SELECT lavrel.set_user_privs('p1', 'regress_fm_gina', 'READ,WRITEDOWN');
SELECT lavrel.set_user_privs('p1', 'regress_fm_hank', 'READ,WRITEACROSS');

-- ---------------------------------------------------------------------
-- alice: no privileges
-- ---------------------------------------------------------------------
\c - regress_fm_alice

-- INSERT without the policy column: the default is her row label, mid:a,
-- and it still passes the insert check.
INSERT INTO acct (id, body) VALUES (20, 'alice, default') RETURNING *;
EXPLAIN (VERBOSE, COSTS OFF) INSERT INTO acct (id, body) VALUES (99, 'never stored');
-- Explicit labels in her write range: mid:a and high:a.
INSERT INTO acct VALUES (21, 'alice, mid:a', 21), (22, 'alice, high:a', 31) RETURNING id, p1_label;
-- Labels outside it are refused: low (which she reads), high:a,b, no label
-- at all, an id that names no label; and one such row fails the whole
-- statement.
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$INSERT INTO acct VALUES (23, 'refused', 10)$$),
    ($$INSERT INTO acct VALUES (23, 'refused', 33)$$),
    ($$INSERT INTO acct VALUES (23, 'refused', NULL)$$),
    ($$INSERT INTO acct VALUES (23, 'refused', 12345)$$),
    ($$INSERT INTO acct VALUES (23, 'refused', 21), (24, 'refused', 10)$$),
    ($$INSERT INTO acct (id, body, p1_label) SELECT 23, 'refused', 11$$)) AS v(stmt);

-- UPDATE of a row at mid:a, with RETURNING.
UPDATE acct SET body = 'mid:a, by alice' WHERE id = 4 RETURNING *;
-- A row at high:a she may write but not read is invisible: UPDATE 0.
UPDATE acct SET body = 'high:a, by alice' WHERE id = 9;
-- Rows she reads but may not write are refused (low, mid, and the whole
-- table, which holds them); rows she may not read (high:a,b,c, no label)
-- are not there for her: nothing happens.
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$UPDATE acct SET body = 'refused' WHERE id = 1$$),
    ($$UPDATE acct SET body = 'refused' WHERE id = 3$$),
    ($$UPDATE acct SET body = 'refused' WHERE id = 11$$),
    ($$UPDATE acct SET body = 'refused' WHERE id = 12$$),
    ($$UPDATE acct SET body = 'refused'$$)) AS v(stmt);
-- The read filter, the readable label ids, filters the rows the index
-- finds; the write check comes last, in the target list; an UPDATE of the
-- policy column checks the new label against the row's current one, once
-- the write check accepted that.
EXPLAIN (VERBOSE, COSTS OFF) UPDATE acct SET body = 'x' WHERE id = 4;
EXPLAIN (VERBOSE, COSTS OFF) UPDATE acct SET p1_label = 31 WHERE id = 4;
-- Keeping the label passes; raising mid:a to high:a needs WRITEUP, though
-- both lie in her write range.
UPDATE acct SET p1_label = p1_label WHERE id = 4 RETURNING id, p1_label;
SELECT try_stmt($$UPDATE acct SET p1_label = 31 WHERE id = 4$$);

-- DELETE of a row at mid:a, with RETURNING; of rows she reads but may not
-- write (one of them fails the statement, row 6 stays); of a row she may
-- not read (nothing happens).
DELETE FROM acct WHERE id = 5 RETURNING *;
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$DELETE FROM acct WHERE id = 1$$),
    ($$DELETE FROM acct WHERE id IN (6, 3)$$),
    ($$DELETE FROM acct$$),
    ($$DELETE FROM acct WHERE id = 10$$)) AS v(stmt);

-- Data-modifying CTEs: the same checks.
WITH d AS (DELETE FROM acct WHERE id = 6 RETURNING *)
INSERT INTO archive SELECT * FROM d RETURNING *;
WITH u AS (UPDATE acct SET body = 'alice, again' WHERE id = 20 RETURNING id, body, p1_label)
SELECT * FROM u;
WITH i AS (INSERT INTO acct (id, body) VALUES (25, 'alice, cte') RETURNING *)
SELECT * FROM i;
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$WITH d AS (DELETE FROM acct WHERE id = 3 RETURNING *) SELECT count(*) FROM d$$),
    ($$WITH i AS (INSERT INTO acct VALUES (23, 'refused', 33) RETURNING *) SELECT * FROM i$$)
    ) AS v(stmt);

-- INSERT ... SELECT reads the protected table through its filter: into
-- the unprotected archive only the rows she reads; into acct with the
-- default label; refused when a label read is not one she may give.
INSERT INTO archive SELECT * FROM acct RETURNING *;
INSERT INTO acct (id, body) SELECT id + 100, body FROM acct WHERE p1_label = 20 RETURNING *;
SELECT try_stmt($$INSERT INTO acct SELECT id + 200, body, p1_label FROM acct$$);
-- From a set operation over two protected tables: acct's row at low:a, and
-- dual's rows at low or mid:a under p1 and x under p2 (1 and 3).
INSERT INTO archive
SELECT * FROM acct WHERE p1_label = 11 UNION ALL SELECT id, body, p1_label FROM dual
RETURNING *;

-- What she now reads of acct.
SELECT * FROM acct ORDER BY id;

-- dual: each policy checks its own column.  Her defaults are mid:a and x.
-- Row 2 (y under p2) she may not read, row 3 (low) not write.
INSERT INTO dual (id, body) VALUES (4, 'alice, default') RETURNING *;
UPDATE dual SET body = 'mid:a x, by alice' WHERE id = 1 RETURNING *;
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$UPDATE dual SET body = 'refused' WHERE id = 2$$),
    ($$UPDATE dual SET body = 'refused' WHERE id = 3$$),
    ($$INSERT INTO dual VALUES (5, 'refused', 21, 91)$$),
    ($$INSERT INTO dual (id, body, p1_label) VALUES (5, 'refused', 10)$$)) AS v(stmt);

-- Everything as it is now, row by row.
\c - postgres
SELECT * FROM acct ORDER BY id;
SELECT * FROM archive ORDER BY id, body;
SELECT * FROM dual ORDER BY id;

-- ---------------------------------------------------------------------
-- Label changes
-- ---------------------------------------------------------------------
-- kate: READ, no privilege that changes labels.  Only an unchanged label
-- passes.
\c - regress_fm_kate
UPDATE moves SET p1_label = 20 WHERE id = 1;
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$UPDATE moves SET p1_label = 30 WHERE id = 1$$),
    ($$UPDATE moves SET p1_label = 21 WHERE id = 1$$),
    ($$UPDATE moves SET p1_label = 20 WHERE id = 2$$)) AS v(stmt);

-- frank: WRITEUP raises the level when the compartments stay.
\c - regress_fm_frank
UPDATE moves SET p1_label = 30 WHERE id = 11;
UPDATE moves SET p1_label = 31 WHERE id = 12;
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$UPDATE moves SET p1_label = 20 WHERE id = 13$$),
    ($$UPDATE moves SET p1_label = 33 WHERE id = 12$$)) AS v(stmt);

-- gina: WRITEDOWN lowers the level when the compartments stay, but not
-- below her min write label.
\c - regress_fm_gina
UPDATE moves SET p1_label = 20 WHERE id = 21;
UPDATE moves SET p1_label = 21 WHERE id = 22;
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$UPDATE moves SET p1_label = 30 WHERE id = 23$$),
    ($$UPDATE moves SET p1_label = 10 WHERE id = 23$$),
    ($$UPDATE moves SET p1_label = 22 WHERE id = 22$$)) AS v(stmt);

-- hank: WRITEACROSS changes the compartments when the level stays.
\c - regress_fm_hank
UPDATE moves SET p1_label = 22 WHERE id = 31;
UPDATE moves SET p1_label = 21 WHERE id = 32;
UPDATE moves SET p1_label = 31 WHERE id = 33;
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$UPDATE moves SET p1_label = 30 WHERE id = 32$$),
    ($$UPDATE moves SET p1_label = 35 WHERE id = 33$$)) AS v(stmt);

-- ivan: FULL writes every row and gives any label, or none at all.
\c - regress_fm_ivan
UPDATE moves SET p1_label = 99 WHERE id = 41;
UPDATE moves SET p1_label = NULL WHERE id = 42;
UPDATE moves SET p1_label = 5 WHERE id = 43;
UPDATE moves SET p1_label = 21 WHERE id = 44;
INSERT INTO moves VALUES (45, 'ivan', 35), (46, 'ivan', NULL) RETURNING *;
-- FULL reads every label: no read filter.
EXPLAIN (COSTS OFF) DELETE FROM moves WHERE owner = 'ivan';
DELETE FROM moves WHERE owner = 'ivan' AND (p1_label IS NULL OR p1_label = 35) RETURNING *;

-- jill: READ lets her read every row, but writes and labels stay within
-- her write range.
\c - regress_fm_jill
SELECT * FROM moves ORDER BY id;
UPDATE moves SET owner = 'jill, again' WHERE id = 51 RETURNING *;
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$UPDATE moves SET owner = 'refused' WHERE id = 1$$),
    ($$DELETE FROM moves WHERE id = 41$$),
    ($$UPDATE moves SET p1_label = 31 WHERE id = 51$$),
    ($$INSERT INTO moves VALUES (52, 'refused', NULL)$$)) AS v(stmt);

-- erin: no authorization.  The default label cannot be computed (0, with a
-- warning), and the insert check refuses it; she reads no row, so UPDATE
-- and DELETE find nothing: she writes nothing.
\c - regress_fm_erin
SELECT try_stmt($$INSERT INTO moves (id, owner) VALUES (61, 'refused')$$);
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$UPDATE moves SET owner = 'refused'$$),
    ($$DELETE FROM moves$$)) AS v(stmt);

\c - postgres
SELECT * FROM moves ORDER BY id;

-- ---------------------------------------------------------------------
-- With lavrel.enable_mac off nothing is checked
-- ---------------------------------------------------------------------
ALTER SYSTEM SET lavrel.enable_mac = off;
SELECT pg_reload_conf();
\c - regress_fm_erin
INSERT INTO acct VALUES (30, 'erin, unchecked', 99) RETURNING *;
UPDATE acct SET body = 'low, by erin', p1_label = 5 WHERE id = 1 RETURNING *;
DELETE FROM acct WHERE id = 11 RETURNING *;
SELECT count(*) FROM acct;
\c - postgres
ALTER SYSTEM RESET lavrel.enable_mac;
SELECT pg_reload_conf();
\c - regress_fm_erin
SELECT count(*) FROM acct;
SELECT try_stmt($$DELETE FROM acct WHERE id = 30$$);
\c - postgres
SELECT * FROM acct WHERE id IN (1, 11, 30) ORDER BY id;

SELECT lavrel.drop_policy('p1');
SELECT lavrel.drop_policy('p2');
DROP TABLE acct, moves, dual, archive;
DROP ROLE regress_fm_alice, regress_fm_kate, regress_fm_frank, regress_fm_gina,
          regress_fm_hank, regress_fm_ivan, regress_fm_jill, regress_fm_erin;
DROP FUNCTION try_stmt(text);
\i sql/include/drop_lavrel.sql

--
-- A function the user writes and calls in WHERE runs after the label
-- filter, however cheap it is and although it is not leakproof: under
-- SELECT it sees only rows the session may read, under UPDATE and DELETE
-- only rows it may write.
--
\i sql/include/policy_p.sql

-- Stored in this order: the mid rows, which the user may read and write,
-- then a low row, which he may only read, then a high row, which he may
-- not even read.
CREATE TABLE docs (id int PRIMARY KEY, title text);
SELECT lavrel.apply_table_policy('p', 'public', 'docs');
GRANT SELECT, UPDATE, DELETE ON docs TO regress_mid_user;
INSERT INTO docs VALUES (1, 'mid one', 20), (2, 'mid two', 20), (3, 'low one', 10),
                        (4, 'high one', 30), (5, 'low two', 10), (6, 'high two', 30);

\i sql/include/leak_function.sql
SELECT proleakproof, procost < 0.001 AS cheap FROM pg_proc WHERE oid = 'leak'::regproc;

SET SESSION AUTHORIZATION regress_mid_user;

-- ---------------------------------------------------------------------
-- SELECT: leak sees rows 1, 2, 3 and 5 and never a high row.
-- ---------------------------------------------------------------------
SELECT id, title FROM docs WHERE leak(id, p_label) ORDER BY id;
-- Asked for a high row by key, it sees nothing at all.
SELECT id FROM docs WHERE id = 4 AND leak(id, p_label);
SELECT count(*) FROM docs WHERE id IN (3, 4) AND leak(id, p_label);
-- The same inside a subquery, a join and a sub-link.
SELECT * FROM (SELECT id FROM docs WHERE leak(id, p_label)) s WHERE id > 4;
SELECT v.n FROM (VALUES (4), (5)) AS v(n) JOIN docs d ON d.id = v.n WHERE leak(d.id, d.p_label);
SELECT EXISTS (SELECT 1 FROM docs WHERE leak(id, p_label) AND title = 'high two') AS found;
-- The filter runs before leak: a security qual of the table's scan.
EXPLAIN (COSTS OFF) SELECT id FROM docs WHERE leak(id, p_label);

-- ---------------------------------------------------------------------
-- UPDATE and DELETE: the read filter runs before leak, the write check
-- after it.  leak sees the mid rows and the low row 3, all readable, and
-- never a high row; row 3, selected by leak but not writable by the user,
-- then fails the statement.
-- ---------------------------------------------------------------------
EXPLAIN (COSTS OFF) UPDATE docs SET title = title || '!' WHERE leak(id, p_label);
UPDATE docs SET title = title || '!' WHERE leak(id, p_label);
DELETE FROM docs WHERE leak(id, p_label);

-- Narrowed to one mid row, by the primary key or by a plain condition, on
-- any plan: the row is changed, and leak sees only the rows the scan
-- reads through the filter.
SET enable_seqscan = off;
EXPLAIN (COSTS OFF) UPDATE docs SET title = 'mid two!' WHERE id = 2 AND leak(id, p_label);
UPDATE docs SET title = 'mid two!' WHERE id = 2 AND leak(id, p_label) RETURNING id, title;
DELETE FROM docs WHERE id = 1 AND leak(id, p_label) RETURNING id;
-- The low row reached by its key is refused after leak saw it; the high
-- row is not there for the user: leak never sees it and nothing happens,
-- as for a key without a row.
UPDATE docs SET title = 'x' WHERE id = 3 AND leak(id, p_label);
DELETE FROM docs WHERE id = 4 AND leak(id, p_label);
UPDATE docs SET title = 'x' WHERE id = 99 AND leak(id, p_label);
RESET enable_seqscan;

RESET SESSION AUTHORIZATION;
-- Only row 2 changed and only row 1 is gone.
SELECT id, title, p_label FROM docs ORDER BY id;

\i sql/include/drop_policy_p.sql
DROP TABLE docs;
DROP FUNCTION leak(int, int);
DROP ROLE regress_mid_user;
\i sql/include/drop_lavrel.sql

--
-- Referential integrity.  PostgreSQL checks foreign keys, and carries out
-- their ON DELETE actions, with queries of its own; the label filter leaves
-- those alone, as row-level security does, so they see every row whatever
-- the session's labels.  A user can therefore neither create a dangling
-- reference nor remove a referenced row, even where the rows involved are
-- hidden from him.
--
\i sql/include/pg15_policy.sql
CREATE TABLE parents (id int PRIMARY KEY, name text);
SELECT lavrel.apply_table_policy('p', 'public', 'parents');
CREATE TABLE children (id int PRIMARY KEY, parent_id int REFERENCES parents, note text);
SELECT lavrel.apply_table_policy('p', 'public', 'children');
CREATE TABLE dependants (id int PRIMARY KEY,
                         parent_id int REFERENCES parents ON DELETE CASCADE, note text);
SELECT lavrel.apply_table_policy('p', 'public', 'dependants');
GRANT SELECT, INSERT, UPDATE, DELETE ON parents, children, dependants TO regress_pg15_user;
INSERT INTO parents VALUES (1, 'low', 10), (2, 'mid', 20), (3, 'high', 30), (4, 'mid two', 20),
                           (5, 'mid three', 20);
-- Parent 4 has a child the user may not read.
INSERT INTO children VALUES (40, 4, 'high child of mid parent', 30);
-- Parents 1 and 5 have dependants of every label.
INSERT INTO dependants VALUES (10, 1, 'low', 10), (11, 1, 'mid', 20), (12, 1, 'high', 30),
                              (50, 5, 'low', 10), (51, 5, 'mid', 20), (52, 5, 'high', 30);

SET SESSION AUTHORIZATION regress_pg15_user;
-- The parents table has rows the user may write (mid), only read (low) or
-- not even read (high); narrow writes by key.
SET enable_seqscan = off;
SELECT * FROM parents ORDER BY id;
SELECT * FROM children ORDER BY id;

-- A child of the hidden parent 3: the key check finds it.
INSERT INTO children VALUES (30, 3, 'child of high parent');
-- A child of no parent at all: refused, as always.
SELECT try_stmt($$INSERT INTO children VALUES (99, 99, 'orphan')$$);
SELECT try_stmt($$UPDATE children SET parent_id = 98 WHERE id = 30$$);
SELECT * FROM children ORDER BY id;

-- The user may not delete the hidden parent 3 (the write filter) ...
SELECT try_stmt($$DELETE FROM parents WHERE id = 3$$);
-- ... and may not delete parent 4, which he may write, while a child he
-- cannot see refers to it.
SELECT try_stmt($$DELETE FROM parents WHERE id = 4$$);
SELECT try_stmt($$UPDATE parents SET id = 44 WHERE id = 4$$);

RESET SESSION AUTHORIZATION;
-- The administrator may not delete parent 3 either: the user's child
-- refers to it.
SELECT try_stmt($$DELETE FROM parents WHERE id = 3$$);

-- ON DELETE CASCADE removes the dependants of every label: those of
-- parent 1 when the administrator deletes it, and, as under row-level
-- security, those of parent 5 when the user deletes that mid parent, the
-- dependants he may not read or write included.
DELETE FROM parents WHERE id = 1;
SET SESSION AUTHORIZATION regress_pg15_user;
SELECT * FROM dependants ORDER BY id;
DELETE FROM parents WHERE id = 5;
RESET SESSION AUTHORIZATION;
SELECT * FROM parents ORDER BY id;
SELECT * FROM children ORDER BY id;
SELECT * FROM dependants ORDER BY id;
RESET enable_seqscan;

\i sql/include/pg15_drop_policy.sql
DROP TABLE dependants, children, parents;
DROP ROLE regress_pg15_user;
\i sql/include/drop_lavrel.sql

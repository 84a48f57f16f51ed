--
-- Referential integrity.  PostgreSQL checks foreign keys, and carries out
-- their ON DELETE and ON UPDATE actions, with queries of its own, which see
-- every row whatever the session's labels, as under row-level security.  A
-- user can therefore neither create a dangling reference nor remove a
-- referenced row, even where the rows involved are hidden from him.  The
-- actions change rows on his behalf, though: every row an action would
-- change or delete must be one he may write, read or not, or his statement
-- fails as a whole; no action skips a row silently.
--
\i sql/include/policy_p.sql
CREATE TABLE parents (id int PRIMARY KEY, name text);
SELECT lavrel.apply_table_policy('p', 'public', 'parents');
CREATE TABLE children (id int PRIMARY KEY, parent_id int REFERENCES parents, note text);
SELECT lavrel.apply_table_policy('p', 'public', 'children');
CREATE TABLE dependants (id int PRIMARY KEY,
                         parent_id int REFERENCES parents ON DELETE CASCADE, note text);
SELECT lavrel.apply_table_policy('p', 'public', 'dependants');
CREATE TABLE followers (id int PRIMARY KEY,
                        parent_id int REFERENCES parents ON UPDATE CASCADE ON DELETE SET NULL,
                        note text);
SELECT lavrel.apply_table_policy('p', 'public', 'followers');
GRANT SELECT, INSERT, UPDATE, DELETE ON parents, children, dependants, followers
   TO regress_mid_user;
INSERT INTO parents VALUES (1, 'low', 10), (2, 'mid', 20), (3, 'high', 30), (4, 'mid two', 20),
                           (5, 'mid three', 20), (6, 'mid four', 20), (7, 'mid five', 20),
                           (8, 'mid six', 20);
-- Parent 4 has a child the user may not read.
INSERT INTO children VALUES (40, 4, 'high child of mid parent', 30);
-- Parents 1 and 5 have dependants of every label.
INSERT INTO dependants VALUES (10, 1, 'low', 10), (11, 1, 'mid', 20), (12, 1, 'high', 30),
                              (50, 5, 'low', 10), (51, 5, 'mid', 20), (52, 5, 'high', 30);
-- Parent 6 has a mid dependant and a mid follower, parent 7 a mid and a
-- high follower, parent 8 a mid follower.
INSERT INTO dependants VALUES (60, 6, 'mid', 20);
INSERT INTO followers VALUES (61, 6, 'mid', 20), (70, 7, 'mid', 20), (71, 7, 'high', 30),
                             (80, 8, 'mid', 20);

SET SESSION AUTHORIZATION regress_mid_user;
-- The parents table has rows the user may write (mid), only read (low) or
-- not even read (high).
SELECT * FROM parents ORDER BY id;
SELECT * FROM children ORDER BY id;

-- A child of the hidden parent 3: the key check finds it.
INSERT INTO children VALUES (30, 3, 'child of high parent');
-- A child of no parent at all: refused, as always.
SELECT try_stmt($$INSERT INTO children VALUES (99, 99, 'orphan')$$);
SELECT try_stmt($$UPDATE children SET parent_id = 98 WHERE id = 30$$);
SELECT * FROM children ORDER BY id;

-- The hidden parent 3 is not there for the user's DELETE ...
SELECT try_stmt($$DELETE FROM parents WHERE id = 3$$);
-- ... and may not delete parent 4, which he may write, while a child he
-- cannot see refers to it.
SELECT try_stmt($$DELETE FROM parents WHERE id = 4$$);
SELECT try_stmt($$UPDATE parents SET id = 44 WHERE id = 4$$);

RESET SESSION AUTHORIZATION;
-- The administrator may not delete parent 3 either: the user's child
-- refers to it.
SELECT try_stmt($$DELETE FROM parents WHERE id = 3$$);

-- ON DELETE CASCADE removes the dependants of every label when the
-- administrator, who holds FULL, deletes parent 1.
DELETE FROM parents WHERE id = 1;
SET SESSION AUTHORIZATION regress_mid_user;
SELECT * FROM dependants ORDER BY id;
-- The user's DELETE of the mid parent 5 would delete dependants he may not
-- write (low, which he reads, and high, which he does not): it fails, and
-- nothing is deleted.
SELECT try_stmt($$DELETE FROM parents WHERE id = 5$$);
-- Parent 6: the cascade deletes the mid dependant and sets the mid
-- follower's reference to null.
DELETE FROM parents WHERE id = 6;
-- Parent 7: its high follower would be changed by ON UPDATE CASCADE and by
-- ON DELETE SET NULL; both statements fail.
SELECT try_stmt($$UPDATE parents SET id = 77 WHERE id = 7$$);
SELECT try_stmt($$DELETE FROM parents WHERE id = 7$$);
-- Parent 8: ON UPDATE CASCADE changes the mid follower.
UPDATE parents SET id = 88 WHERE id = 8;
RESET SESSION AUTHORIZATION;
SELECT * FROM parents ORDER BY id;
SELECT * FROM children ORDER BY id;
SELECT * FROM dependants ORDER BY id;
SELECT * FROM followers ORDER BY id;

\i sql/include/drop_policy_p.sql
DROP TABLE followers, dependants, children, parents;
DROP ROLE regress_mid_user;
\i sql/include/drop_lavrel.sql

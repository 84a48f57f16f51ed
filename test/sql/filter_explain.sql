--
-- EXPLAIN shows the label filter in the plan: where a protected table is
-- read by a session without READ or FULL, its policy column is compared
-- with the session's readable label ids (an initplan calling
-- readable_labels); write_mediation on the rows UPDATE and DELETE change,
-- label_insert and label_update on the labels they store.
--
\i sql/include/policy_p.sql
CREATE ROLE regress_mid_reader;
SELECT lavrel.set_user_labels('p', 'regress_mid_reader', 'mid', 'mid', 'mid', 'mid');
SELECT lavrel.set_user_privs('p', 'regress_mid_reader', 'READ');

CREATE TABLE notes (id int, body text);
SELECT lavrel.apply_table_policy('p', 'public', 'notes');
CREATE TABLE tags (id int, tag text);
GRANT SELECT, INSERT, UPDATE, DELETE ON notes, tags TO regress_mid_user, regress_mid_reader;

SET SESSION AUTHORIZATION regress_mid_user;
EXPLAIN (COSTS OFF) SELECT body FROM notes WHERE id = 1;
EXPLAIN (COSTS OFF) SELECT n.body, t.tag FROM notes n JOIN tags t USING (id);
EXPLAIN (COSTS OFF) UPDATE notes SET body = 'new' WHERE id = 1;
EXPLAIN (COSTS OFF) DELETE FROM notes WHERE id = 1;
-- UPDATE ... FROM: the target gets the write filter, the other protected
-- reference the read filter.
EXPLAIN (COSTS OFF) UPDATE notes SET body = o.body FROM notes o WHERE o.id = notes.id + 1;
-- The stored labels, in the target lists.
EXPLAIN (VERBOSE, COSTS OFF) INSERT INTO notes VALUES (1, 'x', 20);
EXPLAIN (VERBOSE, COSTS OFF) UPDATE notes SET p_label = 20 WHERE id = 1;
-- An unprotected table is left alone.
EXPLAIN (COSTS OFF) UPDATE tags SET tag = 'x' WHERE id = 1;

-- With READ, no read filter: only the write checks remain.
SET SESSION AUTHORIZATION regress_mid_reader;
EXPLAIN (COSTS OFF) SELECT body FROM notes WHERE id = 1;
EXPLAIN (COSTS OFF) UPDATE notes SET body = 'new' WHERE id = 1;
EXPLAIN (COSTS OFF) DELETE FROM notes WHERE id = 1;

\i sql/include/drop_policy_p.sql
DROP TABLE notes, tags;
DROP ROLE regress_mid_user, regress_mid_reader;
\i sql/include/drop_lavrel.sql

--
-- Whether and how a table is filtered is fixed when a query is planned, so
-- applying, removing, enabling, disabling or dropping a policy discards the
-- plans cached for its tables.  A stale plan would keep filtering (or not)
-- as before: the prepared statement below shows which plan ran.
--
CREATE EXTENSION lavrel;
SELECT lavrel.create_policy('p', 'p_label');
SELECT lavrel.create_level('p', 'low', 10);
SELECT lavrel.create_level('p', 'high', 20);
SELECT lavrel.create_label('p', 'low', 10);
SELECT lavrel.create_label('p', 'high', 20);
SELECT lavrel.create_level('p', 'top', 30);
SELECT lavrel.create_label('p', 'top', 30);
CREATE TABLE t (id int);
SELECT lavrel.apply_table_policy('p', 'public', 't');

-- The administrator loads rows with FULL, then drops to reading low rows
-- only.  His max read label is high: the top row lies outside the range of
-- label ids his session reads, so only a privilege reaches it.
SELECT lavrel.set_user_labels('p', 'postgres', 'high');
SELECT lavrel.set_user_privs('p', 'postgres', 'FULL');
INSERT INTO t VALUES (1, 10), (2, 20), (3, 30);
SELECT lavrel.set_user_privs('p', 'postgres', NULL);

SET plan_cache_mode = force_generic_plan;
PREPARE q AS SELECT id FROM t ORDER BY id;
EXECUTE q;

SELECT lavrel.disable_policy('p');
EXECUTE q;
SELECT lavrel.enable_policy('p');
EXECUTE q;

-- Removing keeps the column and its values as an ordinary column; applying
-- again adopts it.
SELECT lavrel.remove_table_policy('p', 'public', 't');
EXECUTE q;
SELECT lavrel.apply_table_policy('p', 'public', 't');
EXECUTE q;

-- A change of privileges changes the filter's shape: READ drops the
-- filter and reads every label, the top row included, which a stale plan
-- with the filter would still hide.
SELECT lavrel.set_user_privs('p', 'postgres', 'READ');
EXECUTE q;
SELECT lavrel.set_user_privs('p', 'postgres', NULL);
EXECUTE q;

SELECT lavrel.drop_policy('p');
EXECUTE q;

DEALLOCATE q;
DROP TABLE t;
\i sql/include/drop_lavrel.sql

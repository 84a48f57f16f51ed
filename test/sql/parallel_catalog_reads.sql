--
-- lavrel reads its catalogs from hooks that also run in parallel workers
-- (every function a worker looks up, every view it checks, every statement
-- it starts) and from every statement of a SERIALIZABLE transaction.  Those
-- reads must be legal in parallel mode, and must take no predicate locks:
-- a database with the extension runs parallel plans and serializable
-- transactions as a stock one does.
--
CREATE EXTENSION lavrel;
CREATE TABLE nums (n int);
INSERT INTO nums SELECT generate_series(1, 20000);
ANALYZE nums;
CREATE FUNCTION plus_one(i int) RETURNS int
LANGUAGE plpgsql IMMUTABLE PARALLEL SAFE AS 'BEGIN RETURN i + 1; END';
-- A PL/pgSQL function that runs a statement of its own in the worker.
CREATE FUNCTION count_small(i int) RETURNS bigint
LANGUAGE plpgsql STABLE PARALLEL SAFE AS 'BEGIN RETURN (SELECT count(*) FROM nums WHERE n < i); END';

SET parallel_setup_cost = 0;
SET parallel_tuple_cost = 0;
SET min_parallel_table_scan_size = 0;
SET max_parallel_workers_per_gather = 2;

-- ---------------------------------------------------------------------
-- No policy at all: JIT-compiled and ordinary parallel plans
-- ---------------------------------------------------------------------
EXPLAIN (COSTS OFF) SELECT count(*) FROM nums;
SET jit_above_cost = 0;
SELECT count(*) FROM nums;
SELECT sum(plus_one(n)) FROM nums;
RESET jit_above_cost;
SELECT sum(plus_one(n)) FROM nums;
EXPLAIN (COSTS OFF) SELECT sum(count_small(n % 3)) FROM nums WHERE n < 100;
SELECT sum(count_small(n % 3)) FROM nums WHERE n < 100;

-- ---------------------------------------------------------------------
-- Forced parallel plans over labelled views and functions
-- ---------------------------------------------------------------------
SELECT lavrel.create_policy('p', 'p_label');
SELECT lavrel.create_level('p', name, id), lavrel.create_label('p', name, id)
  FROM (VALUES ('low', 10), ('mid', 20), ('high', 30)) AS v(name, id);
-- The administrator reads high, the user low.
SELECT lavrel.set_user_labels('p', 'postgres', 'high', 'high', 'high', 'high');
CREATE ROLE regress_pc_user;
SELECT lavrel.set_user_labels('p', 'regress_pc_user', 'low', 'low', 'low', 'low');
CREATE VIEW low_nums AS SELECT n FROM nums WHERE n % 2 = 0;
CREATE VIEW high_nums AS SELECT n FROM nums WHERE n % 2 = 1;
SELECT lavrel.apply_object_policy('p', 'view', 'public', 'low_nums', 'low');
SELECT lavrel.apply_object_policy('p', 'view', 'public', 'high_nums', 'high');
SELECT lavrel.apply_object_policy('p', 'function', 'public', 'plus_one', 'high');
GRANT SELECT ON nums, low_nums, high_nums TO regress_pc_user;

-- Workers mediate as the leader does: the user reads the low view, and is
-- refused the high view and the high function, serial or parallel.
SET force_parallel_mode = on;
SET SESSION AUTHORIZATION regress_pc_user;
EXPLAIN (COSTS OFF) SELECT count(*) FROM low_nums;
SELECT count(*) FROM low_nums;
SELECT count(*) FROM high_nums;
SELECT sum(plus_one(n)) FROM nums;
SELECT sum(count_small(n % 3)) FROM nums WHERE n < 100;
SET max_parallel_workers_per_gather = 0;
SELECT count(*) FROM low_nums;
SELECT count(*) FROM high_nums;
SELECT sum(plus_one(n)) FROM nums;
SET max_parallel_workers_per_gather = 2;
RESET SESSION AUTHORIZATION;
-- The administrator reads the high view and calls the high function, in
-- workers as in the leader.
SELECT count(*) FROM high_nums;
SELECT sum(plus_one(n)) FROM nums;
RESET force_parallel_mode;

-- ---------------------------------------------------------------------
-- SERIALIZABLE: no predicate locks on lavrel's catalogs
-- ---------------------------------------------------------------------
-- A new session, so that the transaction reads the catalogs itself.
\c
BEGIN ISOLATION LEVEL SERIALIZABLE;
SELECT count(*) FROM low_nums;
SELECT sum(plus_one(n)) FROM nums WHERE n < 10;
SELECT c.relname FROM pg_locks l JOIN pg_class c ON c.oid = l.relation
 WHERE l.mode = 'SIReadLock' AND l.pid = pg_backend_pid() ORDER BY 1;
COMMIT;

SET SESSION AUTHORIZATION regress_pc_user;
BEGIN ISOLATION LEVEL SERIALIZABLE;
SELECT count(*) FROM low_nums;
SELECT c.relname FROM pg_locks l JOIN pg_class c ON c.oid = l.relation
 WHERE l.mode = 'SIReadLock' AND l.pid = pg_backend_pid() ORDER BY 1;
COMMIT;
RESET SESSION AUTHORIZATION;

SELECT lavrel.drop_object_policy('p', 'view', 'public', 'low_nums');
SELECT lavrel.drop_object_policy('p', 'view', 'public', 'high_nums');
SELECT lavrel.drop_object_policy('p', 'function', 'public', 'plus_one');
SELECT lavrel.drop_policy('p');
DROP VIEW low_nums, high_nums;
DROP FUNCTION plus_one(int), count_small(int);
DROP TABLE nums;
DROP ROLE regress_pc_user;
\i sql/include/drop_lavrel.sql

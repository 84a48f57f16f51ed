--
-- Parallel query.  The read filter compares the policy column with the
-- session's readable label ids, which the leader computes once (an
-- initplan) and hands to the workers as a parameter, so protected tables
-- are scanned in parallel like any other.  A worker that plans a query of
-- its own (inside a function) filters it with the leader's session
-- labels, which PostgreSQL copies into the worker.  With parallel plans
-- forced, every result equals the serial one.
--
\i sql/include/policy_p.sql

SELECT proname, proparallel FROM pg_proc
 WHERE pronamespace = 'lavrel'::regnamespace
   AND proname IN ('readable_labels', 'label_in', 'read_mediation', 'write_mediation',
                   'label_insert', 'label_update',
                   'policy_read_min_label_id', 'policy_read_max_label_id')
 ORDER BY proname;

-- 3000 rows, a third of them of each label: row g has label 10 when g is a
-- multiple of 3, 20 when g % 3 = 1 and 30 when g % 3 = 2.  The user reads
-- the 2000 rows labelled 10 or 20.
CREATE TABLE items (id int, grp int);
SELECT lavrel.apply_table_policy('p', 'public', 'items');
INSERT INTO items SELECT g, g % 5, 10 + 10 * (g % 3) FROM generate_series(1, 3000) AS g;
CREATE TABLE groups (grp int, name text);
INSERT INTO groups SELECT g, 'group ' || g FROM generate_series(0, 4) AS g;
GRANT SELECT ON items, groups TO regress_mid_user;
ANALYZE items, groups;

SET SESSION AUTHORIZATION regress_mid_user;

-- ---------------------------------------------------------------------
-- Serial plans
-- ---------------------------------------------------------------------
SET max_parallel_workers_per_gather = 0;
SELECT p_label, count(*), sum(id), min(id), max(id) FROM items GROUP BY p_label ORDER BY 1;
SELECT g.name, count(*), sum(i.id) FROM items i JOIN groups g USING (grp) GROUP BY g.name ORDER BY 1;
SELECT count(*), sum(a.id) FROM items a JOIN items b ON a.id = b.id + 1;
SELECT id, p_label FROM items WHERE id % 500 = 0 ORDER BY id;

-- ---------------------------------------------------------------------
-- Parallel plans forced: the same results
-- ---------------------------------------------------------------------
SET force_parallel_mode = on;
SET parallel_setup_cost = 0;
SET parallel_tuple_cost = 0;
SET min_parallel_table_scan_size = 0;
SET max_parallel_workers_per_gather = 2;

-- An unprotected table alone runs entirely in workers.
EXPLAIN (COSTS OFF) SELECT count(*) FROM groups;
SELECT count(*) FROM groups;

EXPLAIN (COSTS OFF)
SELECT p_label, count(*), sum(id), min(id), max(id) FROM items GROUP BY p_label ORDER BY 1;
SELECT p_label, count(*), sum(id), min(id), max(id) FROM items GROUP BY p_label ORDER BY 1;

-- Both sides of a join go to workers, the protected one with the
-- leader's readable label ids.
EXPLAIN (COSTS OFF)
SELECT g.name, count(*), sum(i.id) FROM items i JOIN groups g USING (grp) GROUP BY g.name ORDER BY 1;
SELECT g.name, count(*), sum(i.id) FROM items i JOIN groups g USING (grp) GROUP BY g.name ORDER BY 1;

EXPLAIN (COSTS OFF) SELECT count(*), sum(a.id) FROM items a JOIN items b ON a.id = b.id + 1;
SELECT count(*), sum(a.id) FROM items a JOIN items b ON a.id = b.id + 1;

EXPLAIN (COSTS OFF) SELECT id, p_label FROM items WHERE id % 500 = 0 ORDER BY id;
SELECT id, p_label FROM items WHERE id % 500 = 0 ORDER BY id;

-- A worker runs the queries of the functions it calls with the leader's
-- session labels, also those the session chose itself: the administrator
-- (here without FULL, reading up to high) lowers his read label to low,
-- and the leader and the worker then read only the 1000 rows labelled 10.
RESET SESSION AUTHORIZATION;
CREATE FUNCTION items_read() RETURNS bigint LANGUAGE sql STABLE PARALLEL SAFE
    AS $$ SELECT count(*) FROM items $$;
SELECT lavrel.set_user_privs('p', 'postgres', NULL);
SELECT lavrel.set_user_labels('p', 'postgres', 'high', 'high', 'high', 'high');
SELECT items_read();
SELECT lavrel.set_session_label('p', 'low');
EXPLAIN (COSTS OFF) SELECT items_read();
SELECT items_read();
SELECT count(*) FROM items;
SELECT lavrel.set_user_labels('p', 'postgres', 'high');
SELECT lavrel.set_user_privs('p', 'postgres', 'FULL');
SET SESSION AUTHORIZATION regress_mid_user;

-- The labels reach workers through a setting only a superuser may set.
SET lavrel.parallel_session_labels = '';
SHOW lavrel.parallel_session_labels;

RESET force_parallel_mode;
RESET parallel_setup_cost;
RESET parallel_tuple_cost;
RESET min_parallel_table_scan_size;
RESET max_parallel_workers_per_gather;

RESET SESSION AUTHORIZATION;
DROP FUNCTION items_read();
\i sql/include/drop_policy_p.sql
DROP TABLE items, groups;
DROP ROLE regress_mid_user;
\i sql/include/drop_lavrel.sql

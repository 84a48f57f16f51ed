--
-- What the statistics and the errors of a protected table show its users.
-- Its row-level security (the guard lavrel places) makes PostgreSQL treat
-- it as it treats every table under row-level security:
--   - pg_stats and pg_stats_ext show its columns to superusers only;
--   - a unique, exclusion, check or not-null violation shows no value of
--     the row, neither the hidden one the key meets nor the new one;
--   - the planner estimates with a function that is not leakproof only
--     without the statistics' values.
-- The guard itself cannot be dropped or altered, and the owner's own
-- policies keep their meaning.  "twin" is the same table without a policy,
-- where PostgreSQL shows all of it: the checks below fail if the
-- protection goes.
--
\i sql/include/policy_p.sql
SET client_min_messages = warning;
CREATE TABLE ledger (id int PRIMARY KEY, amount int NOT NULL CHECK (amount >= 0),
                     span int4range, EXCLUDE USING gist (span WITH &&));
CREATE TABLE twin (LIKE ledger INCLUDING ALL, p_label int);
SELECT lavrel.apply_table_policy('p', 'public', 'ledger');
RESET client_min_messages;
-- Rows at every level; the user reads low and mid, not the high rows 101
-- to 200.
INSERT INTO ledger SELECT i, i * 10, int4range(i * 10, i * 10 + 5),
       CASE WHEN i <= 100 THEN 10 + (i % 2) * 10 ELSE 30 END
  FROM generate_series(1, 200) AS i;
INSERT INTO twin SELECT * FROM ledger;
CREATE STATISTICS ledger_stats (mcv) ON id, amount FROM ledger;
CREATE STATISTICS twin_stats (mcv) ON id, amount FROM twin;
ANALYZE ledger, twin;
-- The user owns both tables: pg_stats_ext shows a table's statistics
-- objects to its owner only.
ALTER TABLE ledger OWNER TO regress_mid_user;
ALTER TABLE twin OWNER TO regress_mid_user;

-- ---------------------------------------------------------------------
-- Statistics
-- ---------------------------------------------------------------------
SET SESSION AUTHORIZATION regress_mid_user;
SELECT tablename, count(*) FROM pg_stats WHERE tablename IN ('ledger', 'twin')
 GROUP BY 1 ORDER BY 1;
SELECT tablename, count(*) FROM pg_stats_ext WHERE tablename IN ('ledger', 'twin')
 GROUP BY 1 ORDER BY 1;
-- With row_security off (as pg_dump sets it), a query on the protected
-- table fails instead of returning what the labels allow.
SET row_security = off;
SELECT count(*) FROM ledger;
SELECT count(*) FROM twin;
RESET row_security;
-- Nor can the owner switch the table's row-level security off.
ALTER TABLE ledger DISABLE ROW LEVEL SECURITY;
ALTER TABLE ledger NO FORCE ROW LEVEL SECURITY;
ALTER TABLE twin ENABLE ROW LEVEL SECURITY, DISABLE ROW LEVEL SECURITY;
-- Nor drop, alter or rename the guard.
DROP POLICY lavrel_p ON ledger;
ALTER POLICY lavrel_p ON ledger TO regress_mid_user;
ALTER POLICY lavrel_p ON public.ledger USING (true);
ALTER POLICY lavrel_p ON ledger RENAME TO mine;
-- A policy of the owner's own is his to change.
CREATE POLICY mine ON ledger USING (true);
ALTER POLICY mine ON ledger RENAME TO still_mine;
DROP POLICY still_mine ON ledger;
DROP POLICY IF EXISTS nosuch ON ledger;
-- The owner's own policies keep their meaning beside the guard: a
-- restrictive one narrows what the labels let through.
SELECT count(*) FROM ledger;
CREATE POLICY small ON ledger AS RESTRICTIVE USING (id <= 50);
SELECT count(*) FROM ledger;
DROP POLICY small ON ledger;
RESET SESSION AUTHORIZATION;
-- The administrator, a superuser, sees them.
SELECT tablename, count(*) FROM pg_stats WHERE tablename IN ('ledger', 'twin')
 GROUP BY 1 ORDER BY 1;
SELECT tablename, count(*) FROM pg_stats_ext WHERE tablename IN ('ledger', 'twin')
 GROUP BY 1 ORDER BY 1;

-- ---------------------------------------------------------------------
-- Errors
-- ---------------------------------------------------------------------
SET SESSION AUTHORIZATION regress_mid_user;
-- Row 150 is high: the user cannot read it, and the error tells only that
-- the key is taken.
INSERT INTO ledger VALUES (150, 1, NULL, 20);
INSERT INTO twin VALUES (150, 1, NULL, 20);
INSERT INTO ledger VALUES (999, 1, int4range(1502, 1503), 20);
INSERT INTO twin VALUES (999, 1, int4range(1502, 1503), 20);
INSERT INTO ledger VALUES (999, -1, NULL, 20);
INSERT INTO twin VALUES (999, -1, NULL, 20);
INSERT INTO ledger VALUES (999, NULL, NULL, 20);
INSERT INTO twin VALUES (999, NULL, NULL, 20);
RESET SESSION AUTHORIZATION;

-- ---------------------------------------------------------------------
-- Planner estimates
-- ---------------------------------------------------------------------
-- <<< compares like <, estimates with the statistics of its left column
-- (histogram and most common values) as < does, and keeps the largest
-- value it was given in the setting regress.largest_seen.
CREATE FUNCTION leaky_lt(a int, b int) RETURNS boolean LANGUAGE plpgsql AS $$
BEGIN
    PERFORM set_config('regress.largest_seen',
        greatest(a, nullif(current_setting('regress.largest_seen'), '')::int)::text, false);
    RETURN a < b;
END
$$;
CREATE OPERATOR <<< (FUNCTION = leaky_lt, LEFTARG = int, RIGHTARG = int,
                     RESTRICT = scalarltsel);
SET SESSION AUTHORIZATION regress_mid_user;
-- Planning over the protected table gives the function no value at all.
SELECT set_config('regress.largest_seen', '', false);
EXPLAIN (COSTS OFF) SELECT id FROM ledger WHERE amount <<< 15;
SELECT current_setting('regress.largest_seen') AS largest_seen;
-- Over twin it is given the values of the statistics, up to the largest.
EXPLAIN (COSTS OFF) SELECT id FROM twin WHERE amount <<< 15;
SELECT current_setting('regress.largest_seen') AS largest_seen;
-- Run, the function sees only the rows the filter keeps (up to 1000).
SELECT set_config('regress.largest_seen', '', false);
SELECT count(*) FROM ledger WHERE amount <<< 15;
SELECT current_setting('regress.largest_seen') AS largest_seen;
RESET SESSION AUTHORIZATION;

-- With access control off the guard stays all the same.
ALTER SYSTEM SET lavrel.enable_mac = off;
SELECT pg_reload_conf();
\c
SET SESSION AUTHORIZATION regress_mid_user;
ALTER TABLE ledger DISABLE ROW LEVEL SECURITY;
ALTER TABLE ledger NO FORCE ROW LEVEL SECURITY;
DROP POLICY lavrel_p ON ledger;
RESET SESSION AUTHORIZATION;
ALTER SYSTEM RESET lavrel.enable_mac;
SELECT pg_reload_conf();
\c

\i sql/include/drop_policy_p.sql
DROP TABLE ledger, twin;
DROP OPERATOR <<< (int, int);
DROP FUNCTION leaky_lt(int, int);
DROP ROLE regress_mid_user;
\i sql/include/drop_lavrel.sql

--
-- The label filter and the policy's default use pg_catalog's operators,
-- never one found through the user's search_path.  A user who puts his
-- own "<=" (int4, int4), which lets every row through and reports each
-- call, ahead of pg_catalog gets the same rows and the same plan.
--
\i sql/include/policy_p.sql
CREATE TABLE memos (id int PRIMARY KEY, body text);
SELECT lavrel.apply_table_policy('p', 'public', 'memos');
GRANT SELECT, UPDATE ON memos TO regress_mid_user;
INSERT INTO memos VALUES (1, 'low', 10), (2, 'mid', 20), (3, 'high', 30);
CREATE INDEX ON memos (p_label);
GRANT CREATE ON DATABASE :"DBNAME" TO regress_mid_user;

SET SESSION AUTHORIZATION regress_mid_user;
SELECT id, body, p_label FROM memos ORDER BY id;

CREATE SCHEMA regress_user_ops;
CREATE FUNCTION regress_user_ops.le_always(a int, b int) RETURNS boolean
LANGUAGE plpgsql AS $$
BEGIN
    RAISE NOTICE 'user''s <= called with % and %', a, b;
    RETURN true;
END
$$;
CREATE OPERATOR regress_user_ops.<= (LEFTARG = int, RIGHTARG = int,
                                     FUNCTION = regress_user_ops.le_always);
SET search_path = regress_user_ops, pg_catalog, public;

-- The user's own comparisons now use his operator (on the rows he may
-- read: it is not leakproof) ...
SELECT id FROM memos WHERE id <= 0 ORDER BY id;
-- ... but the filter does not: the same two rows, no call of his operator,
-- and pg_catalog's operator in the plan, qualified because the search_path
-- would find another one.
SELECT id, body, p_label FROM memos ORDER BY id;
EXPLAIN (VERBOSE, COSTS OFF) SELECT id, body, p_label FROM memos ORDER BY id;
-- Through the index on the policy column, the filter is an index
-- condition: the index's own operator, which is pg_catalog's.
SET enable_seqscan = off;
EXPLAIN (VERBOSE, COSTS OFF) SELECT id, body, p_label FROM memos ORDER BY id;
SELECT id, body, p_label FROM memos ORDER BY id;
-- The write filter, reached through the primary key.
EXPLAIN (VERBOSE, COSTS OFF) UPDATE memos SET body = 'mid!' WHERE id = 2;
UPDATE memos SET body = 'mid!' WHERE id = 2;
RESET enable_seqscan;
RESET search_path;

DROP SCHEMA regress_user_ops CASCADE;
RESET SESSION AUTHORIZATION;
SELECT id, body, p_label FROM memos ORDER BY id;
REVOKE CREATE ON DATABASE :"DBNAME" FROM regress_mid_user;

\i sql/include/drop_policy_p.sql
DROP TABLE memos;
DROP ROLE regress_mid_user;
\i sql/include/drop_lavrel.sql

--
-- A cached plan serves only the role it was made for.  Its shape depends
-- on the session's privileges (READ and FULL get no read filter), so a
-- plan made for one user is made again when it runs after SET SESSION
-- AUTHORIZATION to another, as PostgreSQL does for row-level security.
-- Row 4 has a null label, which only READ or FULL may read or write; a
-- plan with the filter never reaches it.
--
\i sql/include/policy_p.sql
CREATE TABLE accounts (id int PRIMARY KEY, owner text);
SELECT lavrel.apply_table_policy('p', 'public', 'accounts');
INSERT INTO accounts VALUES (1, 'low', 10), (2, 'mid', 20), (3, 'high', 30), (4, 'unlabelled', NULL);
GRANT SELECT, UPDATE ON accounts TO regress_mid_user;
CREATE FUNCTION account_ids() RETURNS SETOF int LANGUAGE plpgsql STABLE AS $$
BEGIN
    RETURN QUERY SELECT id FROM accounts ORDER BY id;
END
$$;
SET plan_cache_mode = force_generic_plan;
-- The plans below read the table through its primary key.
SET enable_seqscan = off;

-- Made and run for the user: rows 1 and 2.
SET SESSION AUTHORIZATION regress_mid_user;
PREPARE q AS SELECT id FROM accounts ORDER BY id;
PREPARE upd(int) AS UPDATE accounts SET owner = owner || '!' WHERE id = $1 RETURNING id, owner;
-- The table read in a CTE and in a sub-link only.
PREPARE q_cte AS WITH a AS MATERIALIZED (SELECT id FROM accounts) SELECT array_agg(id ORDER BY id) FROM a;
PREPARE q_sublink AS SELECT (SELECT array_agg(id ORDER BY id) FROM accounts);
EXECUTE q;
EXECUTE q_cte;
EXECUTE q_sublink;
SELECT array_agg(i ORDER BY i) AS account_ids FROM account_ids() AS i;
EXECUTE upd(2);

-- Run for the administrator: every row, and an update of row 4.
RESET SESSION AUTHORIZATION;
EXECUTE q;
EXPLAIN (COSTS OFF) EXECUTE q;
EXECUTE q_cte;
EXECUTE q_sublink;
SELECT array_agg(i ORDER BY i) AS account_ids FROM account_ids() AS i;
EXECUTE upd(4);

-- And for the user again: the filter is back, and row 4, which he
-- may not read, is not there for the update.
SET SESSION AUTHORIZATION regress_mid_user;
EXECUTE q;
EXPLAIN (COSTS OFF) EXECUTE q;
SELECT array_agg(i ORDER BY i) AS account_ids FROM account_ids() AS i;
EXECUTE upd(4);
DEALLOCATE ALL;
RESET SESSION AUTHORIZATION;
RESET enable_seqscan;
RESET plan_cache_mode;

-- A SECURITY DEFINER function plans its queries as its owner whoever the
-- session user is, but the session user's labels and privileges mediate
-- them: a plan made while the user called it must not serve the
-- administrator, who reads every row.
CREATE FUNCTION definer_account_ids() RETURNS SETOF int
LANGUAGE plpgsql STABLE SECURITY DEFINER AS $$
BEGIN
    RETURN QUERY SELECT id FROM accounts ORDER BY id;
END
$$;
SET SESSION AUTHORIZATION regress_mid_user;
SELECT array_agg(i ORDER BY i) AS account_ids FROM definer_account_ids() AS i;
RESET SESSION AUTHORIZATION;
SELECT array_agg(i ORDER BY i) AS account_ids FROM definer_account_ids() AS i;

SELECT * FROM accounts ORDER BY id;

\i sql/include/drop_policy_p.sql
DROP FUNCTION account_ids(), definer_account_ids();
DROP TABLE accounts;
DROP ROLE regress_mid_user;
\i sql/include/drop_lavrel.sql

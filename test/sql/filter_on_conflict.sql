--
-- INSERT ... ON CONFLICT.  DO UPDATE changes an existing row, so the row it
-- meets must pass the write filter, which runs before the user's own
-- condition; a label it sets must pass the update check, and a new row's
-- label the insert check.  DO NOTHING needs neither.
--
\i sql/include/policy_p.sql
CREATE TABLE accounts (id int PRIMARY KEY, owner text);
SELECT lavrel.apply_table_policy('p', 'public', 'accounts');
GRANT SELECT, INSERT, UPDATE ON accounts TO regress_mid_user;
INSERT INTO accounts VALUES (1, 'low', 10), (2, 'mid', 20), (3, 'high', 30);

\i sql/include/leak_function.sql

SET SESSION AUTHORIZATION regress_mid_user;

-- A conflict with the mid row, which the user may write: updated.
INSERT INTO accounts VALUES (2, 'mid, again', 20)
    ON CONFLICT (id) DO UPDATE SET owner = excluded.owner RETURNING *;
-- His own condition sees the row once the write filter has passed it.
INSERT INTO accounts VALUES (2, 'mid, third', 20)
    ON CONFLICT (id) DO UPDATE SET owner = excluded.owner
    WHERE leak(accounts.id, accounts.p_label) RETURNING *;

-- The low row may be read but not written, the high row neither: both
-- fail, and leak sees neither.
SELECT try_stmt($$INSERT INTO accounts VALUES (1, 'x', 20)
                  ON CONFLICT (id) DO UPDATE SET owner = 'x'$$);
SELECT try_stmt($$INSERT INTO accounts VALUES (1, 'x', 20)
                  ON CONFLICT (id) DO UPDATE SET owner = 'x'
                  WHERE leak(accounts.id, accounts.p_label)$$);
SELECT try_stmt($$INSERT INTO accounts VALUES (3, 'x', 20)
                  ON CONFLICT (id) DO UPDATE SET owner = 'x'
                  WHERE leak(accounts.id, accounts.p_label)$$);

-- A label the user may not give: raising or lowering the mid row's label
-- fails the update check, a new row's label the insert check.
SELECT try_stmt($$INSERT INTO accounts VALUES (2, 'x', 20)
                  ON CONFLICT (id) DO UPDATE SET p_label = 30$$);
SELECT try_stmt($$INSERT INTO accounts VALUES (2, 'x', 20)
                  ON CONFLICT (id) DO UPDATE SET p_label = 10$$);
SELECT try_stmt($$INSERT INTO accounts VALUES (4, 'x', 30)
                  ON CONFLICT (id) DO UPDATE SET owner = 'x'$$);
SELECT try_stmt($$INSERT INTO accounts VALUES (4, 'x', 30) ON CONFLICT DO NOTHING$$);
-- Keeping the label passes.
INSERT INTO accounts VALUES (2, 'x', 20)
    ON CONFLICT (id) DO UPDATE SET p_label = 20, owner = 'mid, kept' RETURNING *;
EXPLAIN (COSTS OFF) INSERT INTO accounts VALUES (2, 'x', 20)
    ON CONFLICT (id) DO UPDATE SET owner = 'x' WHERE accounts.owner <> 'y';

-- DO NOTHING inserts a new row and skips conflicting ones, of any label.
INSERT INTO accounts VALUES (5, 'mid, new', 20) ON CONFLICT DO NOTHING RETURNING *;
INSERT INTO accounts VALUES (1, 'x', 20), (2, 'x', 20), (3, 'x', 20)
    ON CONFLICT DO NOTHING RETURNING *;

-- The unique key channel: a unique index sees every row, whatever its
-- label, so a key taken by a row the user may not read still conflicts.
-- DO NOTHING skips the insert, a plain INSERT fails on the duplicate key,
-- and DO UPDATE fails the write filter: each of them tells the user that a
-- row with key 3 exists, which SELECT does not show him.
SELECT * FROM accounts WHERE id = 3;
INSERT INTO accounts VALUES (3, 'x', 20) ON CONFLICT DO NOTHING RETURNING *;
SELECT try_stmt($$INSERT INTO accounts VALUES (3, 'x', 20)$$);

RESET SESSION AUTHORIZATION;
SELECT * FROM accounts ORDER BY id;

\i sql/include/drop_policy_p.sql
DROP TABLE accounts;
DROP FUNCTION leak(int, int);
DROP ROLE regress_mid_user;
\i sql/include/drop_lavrel.sql

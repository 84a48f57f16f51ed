--
-- The two errors of the label filter itself: a protected table without its
-- policy column, and a write filter for a statement with set operations.
--
\i sql/include/policy_p.sql
CREATE EXTENSION lavrel_test;
CREATE TABLE ledger (id int, amount int);
SELECT lavrel.apply_table_policy('p', 'public', 'ledger');
CREATE TABLE plain_ledger (id int, amount int);
GRANT SELECT, INSERT, UPDATE, DELETE ON ledger, plain_ledger TO regress_mid_user;
INSERT INTO ledger VALUES (1, 100, 20), (2, 200, 30);

-- ---------------------------------------------------------------------
-- A protected table that has lost its policy column, which ALTER TABLE
-- lets the administrator drop: every query that would filter the table
-- fails rather than run unfiltered, for the administrator too.  The
-- column's guard of row-level security depends on it, so the drop needs
-- CASCADE, and the table's row-level security stays on without a policy.
-- ---------------------------------------------------------------------
ALTER TABLE ledger DROP COLUMN p_label;
ALTER TABLE ledger DROP COLUMN p_label CASCADE;
SELECT try_stmt($$SELECT * FROM ledger$$);
SET SESSION AUTHORIZATION regress_mid_user;
SELECT try_stmt($$SELECT * FROM ledger$$);
SELECT try_stmt($$SELECT count(*) FROM plain_ledger JOIN ledger USING (id)$$);
SELECT try_stmt($$UPDATE ledger SET amount = 0$$);
SELECT try_stmt($$DELETE FROM ledger$$);
SELECT try_stmt($$UPDATE plain_ledger SET amount = 0 WHERE id IN (SELECT id FROM ledger)$$);
SELECT * FROM ledger;
RESET SESSION AUTHORIZATION;
-- A new column of that name is filtered on again: its labels are all null,
-- which only the administrator's FULL privilege may read.  The user reads
-- nothing in any case: row-level security without a policy denies all.
ALTER TABLE ledger ADD COLUMN p_label int;
SELECT * FROM ledger ORDER BY id;
SET SESSION AUTHORIZATION regress_mid_user;
SELECT * FROM ledger ORDER BY id;
RESET SESSION AUTHORIZATION;

-- ---------------------------------------------------------------------
-- The write filter of a statement with set operations.  No UPDATE or
-- DELETE written in SQL has any, so a test function gives one to an
-- analysed statement before the label filter runs.
-- ---------------------------------------------------------------------
-- Without: no error.  The administrator reads every label (FULL), so
-- the target gets no read filter: no security qual.
SELECT lavrel_test.rewrite_write_statement('UPDATE ledger SET amount = 0', false);
SELECT lavrel_test.rewrite_write_statement('DELETE FROM ledger WHERE id = 1', false);
-- With: refused.
SELECT try_stmt($$SELECT lavrel_test.rewrite_write_statement('UPDATE ledger SET amount = 0', true)$$);
SELECT try_stmt($$SELECT lavrel_test.rewrite_write_statement('DELETE FROM ledger WHERE id = 1', true)$$);
-- An unprotected target, or one whose policy is disabled, gets no write
-- filter and so no error.
SELECT lavrel_test.rewrite_write_statement('UPDATE plain_ledger SET amount = 0', true);
SELECT lavrel.disable_policy('p');
SELECT lavrel_test.rewrite_write_statement('UPDATE ledger SET amount = 0', true);
SELECT lavrel.enable_policy('p');

DROP EXTENSION lavrel_test;
\i sql/include/drop_policy_p.sql
DROP TABLE ledger, plain_ledger;
DROP ROLE regress_mid_user;
\i sql/include/drop_lavrel.sql

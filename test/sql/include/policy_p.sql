-- policy_p.sql: the extension, try_stmt, and policy p (column p_label)
-- with levels low < mid < high and one label per level, ids 10, 20 and 30.
-- The administrator holds FULL, so that he can load rows of every label.
-- regress_mid_user has max, min write and default label mid: he reads low
-- and mid rows and writes mid rows only.  Sets :p to the policy id.
CREATE EXTENSION lavrel;
\i sql/include/try_stmt.sql
SELECT lavrel.create_policy('p', 'p_label');
SELECT lavrel.create_level('p', name, id), lavrel.create_label('p', name, id)
  FROM (VALUES ('low', 10), ('mid', 20), ('high', 30)) AS v(name, id);
SELECT lavrel.set_user_labels('p', 'postgres', 'high');
SELECT lavrel.set_user_privs('p', 'postgres', 'FULL');
CREATE ROLE regress_mid_user;
SELECT lavrel.set_user_labels('p', 'regress_mid_user', 'mid', 'mid', 'mid', 'mid');
SELECT oid AS p FROM lavrel.policies() WHERE policy_name = 'p' \gset

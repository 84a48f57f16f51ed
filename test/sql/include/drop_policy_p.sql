-- drop_policy_p.sql: drops policy p and try_stmt of policy_p.sql.
-- The policy goes before its tables, and the authorizations with it, so
-- that the test can then drop its tables and regress_mid_user.
RESET SESSION AUTHORIZATION;
SELECT lavrel.drop_policy('p');
DROP FUNCTION try_stmt(text);

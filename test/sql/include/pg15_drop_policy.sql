-- pg15_drop_policy.sql: drops policy p and try_stmt of pg15_policy.sql.
-- The policy goes before its tables, and the authorizations with it, so
-- that the test can then drop its tables and regress_pg15_user.
RESET SESSION AUTHORIZATION;
SELECT lavrel.drop_policy('p');
DROP FUNCTION try_stmt(text);

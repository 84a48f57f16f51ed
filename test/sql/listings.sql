--
-- The listings of lavrel_policy and lavrel_policy_enforcement: every row,
-- in the tables' physical order, for any caller, but only once the backend
-- has resolved the catalogs.
--
CREATE EXTENSION lavrel;

SELECT lavrel.create_policy('p1', 'p1_col');
SELECT lavrel.create_policy('p2', 'p2_col', true);
SELECT lavrel.create_policy('p3', 'p3_col');
CREATE TABLE regress_t1 (id int);
CREATE TABLE regress_t2 (id int);
SELECT lavrel.apply_table_policy('p1', 'public', 'regress_t1');
SELECT lavrel.apply_table_policy('p2', 'public', 'regress_t2');
SELECT lavrel.apply_table_policy('p1', 'public', 'regress_t2');

-- The first column of the policy listing is called "oid".
SELECT * FROM lavrel.policies();
SELECT policy_oid, relation_oid::regclass FROM lavrel.policy_enforcements();

-- Rows come in physical order, not sorted: a changed row moves behind
-- the others, as a plain scan of the catalog shows too.
SELECT lavrel.disable_policy('p1');
SELECT lavrel.remove_table_policy('p1', 'public', 'regress_t1');
SELECT lavrel.apply_table_policy('p1', 'public', 'regress_t1');
SELECT * FROM lavrel.policies();
SELECT policy_oid, policy_name FROM lavrel.lavrel_policy;
SELECT policy_oid, relation_oid::regclass FROM lavrel.policy_enforcements();
SELECT policy_oid, relation_oid::regclass FROM lavrel.lavrel_policy_enforcement;

-- The listings take their columns from their declaration; one declared
-- with another number of columns than the catalog is refused.
CREATE FUNCTION regress_policies_short() RETURNS TABLE(oid oid, policy_name name)
AS '$libdir/lavrel', 'GetLavrelPolicy' LANGUAGE C;
CREATE FUNCTION regress_enforcements_long() RETURNS TABLE(a oid, b oid, c oid)
AS '$libdir/lavrel', 'GetLavrelPolicyEnforcement' LANGUAGE C;
SELECT * FROM regress_policies_short();
SELECT * FROM regress_enforcements_long();
DROP FUNCTION regress_policies_short(), regress_enforcements_long();

-- Anyone may list, even a role that may not read the catalogs.
CREATE ROLE regress_lavrel_reader LOGIN;
\c - regress_lavrel_reader
SELECT count(*) FROM lavrel.lavrel_policy;
SELECT * FROM lavrel.policies();
SELECT policy_oid, relation_oid::regclass FROM lavrel.policy_enforcements();
\c - postgres

-- A new backend with access control off never resolves the catalogs, so
-- both listings are empty although the catalogs hold rows.
ALTER SYSTEM SET lavrel.enable_mac = off;
SELECT pg_reload_conf();
\c
SHOW lavrel.enable_mac;
SELECT count(*) AS policies_in_catalog FROM lavrel.lavrel_policy;
SELECT count(*) AS enforcements_in_catalog FROM lavrel.lavrel_policy_enforcement;
SELECT * FROM lavrel.policies();
SELECT * FROM lavrel.policy_enforcements();
ALTER SYSTEM RESET lavrel.enable_mac;
SELECT pg_reload_conf();
\c
SHOW lavrel.enable_mac;
SELECT count(*) AS policies_listed FROM lavrel.policies();
SELECT count(*) AS enforcements_listed FROM lavrel.policy_enforcements();

-- ---------------------------------------------------------------------
-- Clean up.  lavrel can be dropped only while access control is off.
-- ---------------------------------------------------------------------
SELECT lavrel.drop_policy(p) FROM (VALUES ('p1'), ('p2'), ('p3')) AS v(p);
DROP TABLE regress_t1, regress_t2;
DROP ROLE regress_lavrel_reader;
\i sql/include/drop_lavrel.sql

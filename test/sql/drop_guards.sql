--
-- The DROP guards: a table under a policy, a role authorized under any
-- policy, and lavrel itself while policies apply or access control is on,
-- cannot be dropped.  Missing objects are left to PostgreSQL, and with
-- lavrel.enable_mac off every utility statement passes.
--
CREATE EXTENSION lavrel;
\i sql/include/try_stmt.sql

SELECT lavrel.create_policy('p', 'p_label'), lavrel.create_policy('q', 'q_label');
SELECT lavrel.create_level('p', 'low', 10), lavrel.create_label('p', 'low', 10);
SELECT lavrel.create_level('q', 'x', 1), lavrel.create_label('q', 'x', 90);
-- The administrator writes and reads the rows of the tables below.
SELECT lavrel.set_user_labels('p', 'postgres', 'low');
SELECT lavrel.set_user_privs('p', 'postgres', 'FULL');

-- regress_dg_owner owns the tables: a under p, c under q, b under none.
CREATE ROLE regress_dg_owner;
GRANT CREATE ON SCHEMA public TO regress_dg_owner;
SET SESSION AUTHORIZATION regress_dg_owner;
CREATE TABLE regress_dg_a (id int);
CREATE TABLE regress_dg_b (id int);
CREATE TABLE regress_dg_c (id int);
RESET SESSION AUTHORIZATION;
SELECT lavrel.apply_table_policy('p', 'public', 'regress_dg_a');
SELECT lavrel.apply_table_policy('q', 'public', 'regress_dg_c');
INSERT INTO regress_dg_a VALUES (1);

CREATE VIEW regress_dg_tables AS
SELECT relname FROM pg_class WHERE relname LIKE 'regress_dg_%' AND relkind = 'r';

-- ---------------------------------------------------------------------
-- DROP TABLE
-- ---------------------------------------------------------------------
SELECT stmt, try_stmt(stmt) AS outcome FROM (VALUES
    ($$DROP TABLE regress_dg_a$$),
    ($$DROP TABLE public.regress_dg_c CASCADE$$),
    -- named after others, in one statement
    ($$DROP TABLE regress_dg_b, regress_dg_a$$),
    ($$DROP TABLE IF EXISTS regress_dg_missing, regress_dg_b, regress_dg_c$$),
    -- missing tables are PostgreSQL's business
    ($$DROP TABLE regress_dg_missing$$),
    ($$DROP TABLE regress_dg_missing, regress_dg_a$$)
) AS t(stmt);
SELECT * FROM regress_dg_tables ORDER BY relname;
SELECT * FROM regress_dg_a;
-- The table's owner is refused too.
SET SESSION AUTHORIZATION regress_dg_owner;
SELECT try_stmt($$DROP TABLE regress_dg_a$$);
RESET SESSION AUTHORIZATION;
-- IF EXISTS of a missing table: PostgreSQL's notice, and the next table.
DROP TABLE IF EXISTS regress_dg_missing, regress_nosuch_schema.regress_dg_missing, regress_dg_b;
SELECT * FROM regress_dg_tables ORDER BY relname;
-- Released from its policy, the table may go.
SELECT lavrel.remove_table_policy('q', 'public', 'regress_dg_c', true);
DROP TABLE regress_dg_c;

-- ---------------------------------------------------------------------
-- DROP ROLE
-- ---------------------------------------------------------------------
-- pu is authorized under p, qu under q only; plain1 to plain3 under none.
CREATE ROLE regress_dg_pu;
CREATE ROLE regress_dg_qu;
CREATE ROLE regress_dg_plain1;
CREATE ROLE regress_dg_plain2;
CREATE ROLE regress_dg_plain3;
CREATE ROLE regress_dg_creator CREATEROLE;
CREATE ROLE regress_dg_super SUPERUSER;
SELECT lavrel.set_user_labels('p', 'regress_dg_pu', 'low');
SELECT lavrel.set_user_labels('q', 'regress_dg_qu', 'x');

CREATE VIEW regress_dg_roles AS
SELECT rolname FROM pg_roles WHERE rolname LIKE 'regress_dg_%';

SELECT stmt, try_stmt(stmt) AS outcome FROM (VALUES
    ($$DROP ROLE regress_dg_pu$$),
    ($$DROP ROLE regress_dg_qu$$),
    ($$DROP ROLE regress_dg_plain1, regress_dg_qu$$),
    ($$DROP ROLE IF EXISTS regress_dg_missing, regress_dg_pu$$),
    ($$DROP ROLE regress_dg_missing, regress_dg_pu$$),
    ($$DROP ROLE regress_dg_pu, regress_dg_missing$$),
    ($$DROP ROLE regress_dg_plain1, CURRENT_USER$$)
) AS t(stmt);
-- Without CREATEROLE nothing may be dropped; with it, no superuser.
SET SESSION AUTHORIZATION regress_dg_plain3;
SELECT try_stmt($$DROP ROLE regress_dg_plain1$$);
SET SESSION AUTHORIZATION regress_dg_creator;
SELECT try_stmt($$DROP ROLE regress_dg_super$$);
SELECT try_stmt($$DROP ROLE regress_dg_pu$$);
RESET SESSION AUTHORIZATION;
SELECT * FROM regress_dg_roles ORDER BY rolname;

-- IF EXISTS of a missing role: PostgreSQL's notice, once, and the next
-- role is dropped.
DROP ROLE IF EXISTS regress_dg_missing, regress_dg_plain1;
DROP ROLE regress_dg_plain2;
SELECT * FROM regress_dg_roles ORDER BY rolname;
-- Without its authorization, the role may go.
SELECT lavrel.drop_user_access('p', 'regress_dg_pu');
DROP ROLE regress_dg_pu;

-- ---------------------------------------------------------------------
-- DROP EXTENSION lavrel: refused while a policy applies to a table, while
-- a user is authorized, and while access control is on.
-- ---------------------------------------------------------------------
SELECT try_stmt($$DROP EXTENSION lavrel$$);
SELECT try_stmt($$DROP EXTENSION IF EXISTS LAVREL CASCADE$$);
SELECT lavrel.remove_table_policy('p', 'public', 'regress_dg_a');
SELECT try_stmt($$DROP EXTENSION lavrel$$);
SELECT lavrel.drop_user_access('p', 'postgres');
SELECT lavrel.drop_user_access('q', 'regress_dg_qu');
SELECT try_stmt($$DROP EXTENSION lavrel$$);
SELECT try_stmt($$DROP EXTENSION lavrel CASCADE$$);
SELECT extname FROM pg_extension WHERE extname = 'lavrel';

-- ---------------------------------------------------------------------
-- With lavrel.enable_mac off, none of the guards acts.  Put a table and
-- two roles under policies again first.
-- ---------------------------------------------------------------------
SELECT lavrel.apply_table_policy('p', 'public', 'regress_dg_a');
SELECT lavrel.set_user_labels('q', 'regress_dg_qu', 'x');
SELECT lavrel.set_user_labels('p', 'regress_dg_plain3', 'low');
ALTER SYSTEM SET lavrel.enable_mac = off;
SELECT pg_reload_conf();
\c
SHOW lavrel.enable_mac;
SET SESSION AUTHORIZATION regress_dg_owner;
ALTER TABLE regress_dg_a ALTER COLUMN p_label SET STATISTICS 10;
RESET SESSION AUTHORIZATION;
DROP TABLE regress_dg_a;
DROP ROLE regress_dg_qu, regress_dg_plain3;
BEGIN;
DROP EXTENSION lavrel;
SELECT count(*) AS lavrel_extensions FROM pg_extension WHERE extname = 'lavrel';
ROLLBACK;
ALTER SYSTEM RESET lavrel.enable_mac;
SELECT pg_reload_conf();
\c
SHOW lavrel.enable_mac;
SELECT * FROM regress_dg_tables ORDER BY relname;
SELECT * FROM regress_dg_roles ORDER BY rolname;

-- ---------------------------------------------------------------------
-- Clean up: dropping the policies removes the rows of the dropped table and
-- roles too.
-- ---------------------------------------------------------------------
SELECT lavrel.drop_policy('p'), lavrel.drop_policy('q');
SELECT (SELECT count(*) FROM lavrel.lavrel_policy_enforcement) AS enforcements,
       (SELECT count(*) FROM lavrel.lavrel_user) AS authorizations;
DROP VIEW regress_dg_tables, regress_dg_roles;
REVOKE CREATE ON SCHEMA public FROM regress_dg_owner;
DROP ROLE regress_dg_owner, regress_dg_creator, regress_dg_super;
DROP FUNCTION try_stmt(text);
\i sql/include/drop_lavrel.sql

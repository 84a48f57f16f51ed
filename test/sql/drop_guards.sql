--
-- The DROP guards: a table under a policy, a role authorized under any
-- policy, lavrel's own catalogs, and lavrel itself while policies apply or
-- access control is on, cannot be dropped, whatever statement drops them.
-- PostgreSQL's own checks (missing objects, ownership, dependent objects)
-- come first, and with lavrel.enable_mac off every utility statement
-- passes.
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
    -- missing tables are PostgreSQL's business, which it reports first
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
-- Drops that reach a protected table or its policy column through
-- dependencies: DROP SCHEMA ... CASCADE, DROP OWNED, DROP TYPE ... CASCADE
-- of a typed table's type, ALTER TYPE ... DROP ATTRIBUTE ... CASCADE.
-- ---------------------------------------------------------------------
-- Schema s belongs to regress_dg_owner, and so does everything in it: t
-- and the typed table typed under p, a view over t, a table u that t
-- refers to, and a plain table.  regress_dg_other owns one more table.
CREATE ROLE regress_dg_other;
CREATE SCHEMA regress_dg_s AUTHORIZATION regress_dg_owner;
GRANT CREATE ON SCHEMA regress_dg_s TO regress_dg_other;
SET SESSION AUTHORIZATION regress_dg_owner;
CREATE TABLE regress_dg_s.u (id int PRIMARY KEY);
CREATE TABLE regress_dg_s.t (id int REFERENCES regress_dg_s.u);
CREATE VIEW regress_dg_s.v AS SELECT id FROM regress_dg_s.t;
CREATE TYPE regress_dg_s.row_type AS (id int, p_label int);
CREATE TABLE regress_dg_s.typed OF regress_dg_s.row_type;
CREATE TABLE regress_dg_s.plain (id int);
SET SESSION AUTHORIZATION regress_dg_other;
CREATE TABLE regress_dg_s.others (id int);
RESET SESSION AUTHORIZATION;
SELECT lavrel.apply_table_policy('p', 'regress_dg_s', 't');
SELECT lavrel.apply_table_policy('p', 'regress_dg_s', 'typed');
INSERT INTO regress_dg_s.u VALUES (1);
INSERT INTO regress_dg_s.t VALUES (1);
INSERT INTO regress_dg_s.typed VALUES (2);

CREATE VIEW regress_dg_s_objects AS
SELECT relname FROM pg_class
 WHERE relnamespace = 'regress_dg_s'::regnamespace AND relkind IN ('r', 'v');
CREATE VIEW regress_dg_s_rows AS
SELECT 't' AS tab, * FROM regress_dg_s.t UNION ALL SELECT 'typed', * FROM regress_dg_s.typed;

-- Refused to the owner of the schema and the tables, and to the
-- administrator; a DROP OWNED before the DROP ROLE of the owner too.
\set VERBOSITY terse
SET SESSION AUTHORIZATION regress_dg_owner;
SELECT stmt, try_stmt(stmt) AS outcome FROM (VALUES
    ($$DROP SCHEMA regress_dg_s CASCADE$$),
    ($$DROP OWNED BY regress_dg_owner CASCADE$$),
    ($$DROP TYPE regress_dg_s.row_type CASCADE$$),
    -- the policy column of the typed table, through its type
    ($$ALTER TYPE regress_dg_s.row_type DROP ATTRIBUTE p_label CASCADE$$)
) AS t(stmt);
RESET SESSION AUTHORIZATION;
SELECT stmt, try_stmt(stmt) AS outcome FROM (VALUES
    -- PostgreSQL's own refusals first
    ($$DROP SCHEMA regress_dg_s, regress_dg_missing CASCADE$$),
    ($$DROP OWNED BY regress_dg_owner$$),
    ($$DROP SCHEMA IF EXISTS regress_dg_s CASCADE$$),
    ($$DROP OWNED BY regress_dg_other, regress_dg_owner CASCADE$$),
    ($$DROP TYPE regress_dg_s.row_type CASCADE$$),
    ($$DROP TABLE regress_dg_s.u, regress_dg_s.t CASCADE$$),
    ($$DROP OWNED BY regress_dg_owner CASCADE; DROP ROLE regress_dg_owner$$)
) AS t(stmt);
\set VERBOSITY default
SELECT * FROM regress_dg_s_objects ORDER BY relname;
SELECT * FROM regress_dg_s_rows ORDER BY tab;

-- What reaches no protected table goes as usual, from the same schema.
SET SESSION AUTHORIZATION regress_dg_owner;
DROP VIEW regress_dg_s.v;
DROP TABLE regress_dg_s.u CASCADE;
DROP TABLE regress_dg_s.plain;
RESET SESSION AUTHORIZATION;
DROP OWNED BY regress_dg_other;
SELECT * FROM regress_dg_s_objects ORDER BY relname;
SELECT conname FROM pg_constraint WHERE conrelid = 'regress_dg_s.t'::regclass;
SELECT * FROM regress_dg_s_rows ORDER BY tab;
-- Released from their policy, the tables go with their schema.
SELECT lavrel.remove_table_policy('p', 'regress_dg_s', 't'),
       lavrel.remove_table_policy('p', 'regress_dg_s', 'typed');
DROP VIEW regress_dg_s_rows, regress_dg_s_objects;
DROP SCHEMA regress_dg_s CASCADE;
DROP ROLE regress_dg_other;

-- ---------------------------------------------------------------------
-- lavrel's own catalogs: neither through the extension's schema nor once
-- taken out of the extension, nor one of their columns, by the bootstrap
-- superuser either.
-- ---------------------------------------------------------------------
\set VERBOSITY terse
SELECT stmt, try_stmt(stmt) AS outcome FROM (VALUES
    ($$DROP SCHEMA lavrel CASCADE$$),
    ($$ALTER TABLE lavrel.lavrel_obj DROP COLUMN label_id$$),
    ($$ALTER TABLE lavrel.lavrel_user DROP CONSTRAINT lavrel_user_pkey$$)
) AS t(stmt);
BEGIN;
ALTER EXTENSION lavrel DROP TABLE lavrel.lavrel_user;
ALTER EXTENSION lavrel DROP SEQUENCE lavrel.lavrel_policy_oid_seq;
SELECT stmt, try_stmt(stmt) AS outcome FROM (VALUES
    ($$DROP TABLE lavrel.lavrel_user$$),
    ($$DROP SEQUENCE lavrel.lavrel_policy_oid_seq$$)
) AS t(stmt);
ROLLBACK;
\set VERBOSITY default
SELECT to_regclass('lavrel.lavrel_user') AS user_catalog,
       to_regclass('lavrel.lavrel_policy_oid_seq') AS sequence,
       to_regclass('lavrel.lavrel_user_pkey') AS index,
       (SELECT attname FROM pg_attribute
         WHERE attrelid = 'lavrel.lavrel_obj'::regclass AND attname = 'label_id') AS column;

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

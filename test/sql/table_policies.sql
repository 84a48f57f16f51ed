--
-- Placing tables under policies and releasing them: the policy column, its
-- default, the enforcement rows, and the relations that cannot be
-- protected.
--
CREATE EXTENSION lavrel;
\i sql/include/try_stmt.sql

SELECT lavrel.create_policy('p', 'p_col');
SELECT lavrel.create_policy('q', 'q_col');

-- The user columns of the tables of this test, with their defaults.
CREATE VIEW regress_columns AS
SELECT a.attrelid::regclass AS rel, a.attnum, a.attname, format_type(a.atttypid, a.atttypmod) AS type,
       pg_get_expr(d.adbin, d.adrelid) AS default
  FROM pg_attribute a
  LEFT JOIN pg_attrdef d ON d.adrelid = a.attrelid AND d.adnum = a.attnum
 WHERE a.attrelid::regclass::text LIKE '%regress_t%' AND a.attnum > 0 AND NOT a.attisdropped;

-- ---------------------------------------------------------------------
-- Applying adds an int4 policy column whose default computes the label,
-- and records the pair; each policy brings its own column.
-- ---------------------------------------------------------------------
CREATE TABLE regress_t1 (id int);
SELECT lavrel.apply_table_policy('p', 'public', 'regress_t1');
SELECT lavrel.apply_table_policy('q', 'public', 'regress_t1');
SELECT * FROM regress_columns ORDER BY rel::text, attnum;
SELECT policy_oid, relation_oid::regclass FROM lavrel.lavrel_policy_enforcement ORDER BY 1, 2;

-- An existing int4 column of that name is adopted, values and all; one of
-- another type is refused and left alone.
CREATE TABLE regress_t2 (id int, p_col int);
INSERT INTO regress_t2 VALUES (1, 10), (2, 20);
SELECT lavrel.apply_table_policy('p', 'public', 'regress_t2');
CREATE TABLE regress_t3 (id int, p_col text);
SELECT try_stmt($$SELECT lavrel.apply_table_policy('p', 'public', 'regress_t3')$$);
SELECT * FROM regress_columns WHERE rel::text IN ('regress_t2', 'regress_t3') ORDER BY rel::text, attnum;

-- Schema and table names are identifiers: folded unless quoted.
CREATE SCHEMA "Regress_S";
CREATE TABLE "Regress_S"."Regress_T4" (id int);
SELECT lavrel.apply_table_policy('p', '"Regress_S"', '"Regress_T4"');
SELECT try_stmt($$SELECT lavrel.apply_table_policy('q', 'Regress_S', 'Regress_T4')$$);
SELECT policy_oid, relation_oid::regclass FROM lavrel.lavrel_policy_enforcement ORDER BY 1, 2;

-- ---------------------------------------------------------------------
-- What cannot be protected, and applying twice.
-- ---------------------------------------------------------------------
CREATE VIEW regress_v AS SELECT 1 AS one;
CREATE MATERIALIZED VIEW regress_mv AS SELECT 1 AS one;
CREATE TABLE regress_parted (a int) PARTITION BY RANGE (a);
CREATE TABLE regress_part1 PARTITION OF regress_parted FOR VALUES FROM (0) TO (10);
CREATE FOREIGN DATA WRAPPER regress_dummy;
CREATE SERVER regress_server FOREIGN DATA WRAPPER regress_dummy;
CREATE FOREIGN TABLE regress_ft (a int) SERVER regress_server;
SELECT stmt, try_stmt(stmt) AS outcome FROM (VALUES
    ($$SELECT lavrel.apply_table_policy('p', 'public', 'nosuch')$$),
    ($$SELECT lavrel.apply_table_policy('p', 'nosuch', 'regress_t1')$$),
    ($$SELECT lavrel.apply_table_policy('p', 'public', 'regress_v')$$),
    ($$SELECT lavrel.apply_table_policy('p', 'public', 'regress_mv')$$),
    ($$SELECT lavrel.apply_table_policy('p', 'public', 'regress_parted')$$),
    ($$SELECT lavrel.apply_table_policy('p', 'public', 'regress_part1')$$),
    ($$SELECT lavrel.apply_table_policy('p', 'public', 'regress_ft')$$),
    ($$SELECT lavrel.apply_table_policy('nosuch', 'public', 'regress_t1')$$),
    ($$SELECT lavrel.apply_table_policy('p', 'public', 'regress_t1')$$)
) AS t(stmt);
SELECT count(*) AS enforcements FROM lavrel.lavrel_policy_enforcement;

-- The enforcement row is checked only after the column work, which the
-- refusal then undoes.  Here the row is written directly, before the
-- table has a policy column.
CREATE TABLE regress_t5 (id int);
INSERT INTO lavrel.lavrel_policy_enforcement
SELECT policy_oid, 'regress_t5'::regclass FROM lavrel.lavrel_policy WHERE policy_name = 'p';
SELECT try_stmt($$SELECT lavrel.apply_table_policy('p', 'public', 'regress_t5')$$);
SELECT * FROM regress_columns WHERE rel::text = 'regress_t5' ORDER BY attnum;
DELETE FROM lavrel.lavrel_policy_enforcement WHERE relation_oid = 'regress_t5'::regclass;

-- ---------------------------------------------------------------------
-- Removing a policy from a table.  Without the drop-column flag the column
-- stays, values and all, without default, and a new application adopts it.
-- ---------------------------------------------------------------------
SELECT stmt, try_stmt(stmt) AS outcome FROM (VALUES
    ($$SELECT lavrel.remove_table_policy('p', 'public', 'nosuch')$$),
    ($$SELECT lavrel.remove_table_policy('p', 'nosuch', 'regress_t1')$$),
    ($$SELECT lavrel.remove_table_policy('nosuch', 'public', 'regress_t1')$$),
    ($$SELECT lavrel.remove_table_policy('q', 'public', 'regress_t2')$$),
    -- no check of the relation's kind here
    ($$SELECT lavrel.remove_table_policy('p', 'public', 'regress_v')$$)
) AS t(stmt);
SELECT lavrel.remove_table_policy('p', 'public', 'regress_t2');
SELECT * FROM regress_columns WHERE rel::text = 'regress_t2' ORDER BY attnum;
SELECT * FROM regress_t2 ORDER BY id;
SELECT lavrel.apply_table_policy('p', 'public', 'regress_t2');
SELECT * FROM regress_columns WHERE rel::text = 'regress_t2' ORDER BY attnum;
SELECT lavrel.remove_table_policy('p', 'public', 'regress_t2', false);
SELECT try_stmt($$SELECT lavrel.remove_table_policy('p', 'public', 'regress_t2')$$);
-- With the flag the column goes.
SELECT lavrel.remove_table_policy('q', 'public', 'regress_t1', true);
SELECT * FROM regress_columns WHERE rel::text = 'regress_t1' ORDER BY attnum;
SELECT policy_oid, relation_oid::regclass FROM lavrel.lavrel_policy_enforcement ORDER BY 1, 2;

-- ---------------------------------------------------------------------
-- Clean up.  lavrel can be dropped only while access control is off.
-- ---------------------------------------------------------------------
SELECT lavrel.drop_policy('p');
SELECT lavrel.drop_policy('q');
DROP VIEW regress_columns, regress_v;
DROP MATERIALIZED VIEW regress_mv;
DROP TABLE regress_t1, regress_t2, regress_t3, regress_t5, regress_parted;
DROP SCHEMA "Regress_S" CASCADE;
DROP FOREIGN TABLE regress_ft;
DROP SERVER regress_server;
DROP FOREIGN DATA WRAPPER regress_dummy;
DROP FUNCTION try_stmt(text);
\i sql/include/drop_lavrel.sql

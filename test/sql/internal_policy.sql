--
-- Policy administration from the inside: what the module answers about
-- protected tables and policy columns, and the catalog writers and lookups
-- called directly, also with ids that have no row (as when a row vanishes
-- between a check and the write).
--
CREATE EXTENSION lavrel;
CREATE EXTENSION lavrel_test;
\i sql/include/try_stmt.sql

SELECT lavrel.create_policy('p1', 'p1_col');
SELECT lavrel.create_policy('p2', 'p2_col');
SELECT lavrel.create_policy('p3', 'p3_col');
SELECT policy_oid, policy_name, policy_col_name FROM lavrel.lavrel_policy ORDER BY 1;

-- regress_t1 is under p1 and p2.  regress_t2 is under p2 only and has an
-- ordinary column named like p1's policy column; regress_t3 is under no
-- policy and has columns named like those of p1 and p3.
CREATE TABLE regress_t1 (id int);
SELECT lavrel.apply_table_policy('p1', 'public', 'regress_t1');
SELECT lavrel.apply_table_policy('p2', 'public', 'regress_t1');
CREATE TABLE regress_t2 (id int, note text, p1_col int);
SELECT lavrel.apply_table_policy('p2', 'public', 'regress_t2');
CREATE TABLE regress_t3 (id int, p1_col int, p3_col int);
CREATE VIEW regress_v AS SELECT id FROM regress_t1;
SELECT attrelid::regclass AS rel, attnum, attname FROM pg_attribute
 WHERE attrelid IN ('regress_t1'::regclass, 'regress_t2'::regclass, 'regress_t3'::regclass)
   AND attnum > 0 ORDER BY 1, 2;

-- ---------------------------------------------------------------------
-- A policy column is a column of the table named like the column of one
-- of the table's own policies; names are compared exactly.
-- ---------------------------------------------------------------------
SELECT rel, col, lavrel_test.is_policy_column(rel, col)
  FROM (VALUES ('regress_t1'::regclass, 'p1_col'), ('regress_t1', 'p2_col'),
               ('regress_t1', 'id'), ('regress_t1', 'p3_col'), ('regress_t1', 'nosuch'),
               ('regress_t1', 'P1_COL'), ('regress_t2', 'p1_col'), ('regress_t2', 'p2_col'),
               ('regress_t3', 'p1_col'), ('regress_t3', 'p3_col')) AS v(rel, col);

-- Changing a policy column is refused (an internal error); any other
-- column passes.
SELECT lavrel_test.policy_col_perm_check('regress_t1', 'id');
SELECT lavrel_test.policy_col_perm_check('regress_t2', 'p1_col');
SELECT lavrel_test.policy_col_perm_check('regress_t3', 'p3_col');
SELECT lavrel_test.policy_col_perm_check('regress_t1', 'p2_col');
\set VERBOSITY sqlstate
SELECT lavrel_test.policy_col_perm_check('regress_t1', 'p2_col');
\set VERBOSITY default

-- A protected table has at least one policy applied.
SELECT rel, lavrel_test.is_policy_protected_rel(rel)
  FROM unnest('{regress_t1,regress_t2,regress_t3}'::regclass[]) AS rel;

-- ---------------------------------------------------------------------
-- The record of a table: its policies in the order of the enforcement
-- rows, whether each is enabled, whether it hides its column, and the
-- column's number.  A disabled policy stays in it.
-- ---------------------------------------------------------------------
SELECT lavrel.disable_policy('p2');
SELECT * FROM lavrel_test.protected_table('regress_t1');
SELECT * FROM lavrel_test.protected_table('regress_t1', 'regress_t3', 'regress_t2');
-- The record follows the catalogs: a view with an enforcement row
-- (written directly) is protected, with no policy column.
INSERT INTO lavrel.lavrel_policy_enforcement VALUES (3, 'regress_v'::regclass);
SELECT lavrel_test.get_policyids_on_rel('regress_v') AS enforced,
       lavrel_test.is_policy_protected_rel('regress_v') AS protected;
SELECT * FROM lavrel_test.protected_table('regress_v');
DELETE FROM lavrel.lavrel_policy_enforcement WHERE relation_oid = 'regress_v'::regclass;
SELECT * FROM lavrel_test.protected_table('regress_v');
-- Reading the record locks no policy, whereas a level created in the same
-- transaction keeps its policy locked until the end.
CREATE VIEW policy_locks AS
SELECT objid AS policy, mode FROM pg_locks
 WHERE locktype = 'object' AND classid = 'lavrel.lavrel_policy'::regclass
   AND pid = pg_backend_pid();
BEGIN;
SELECT count(*) AS policies FROM lavrel_test.protected_table('regress_t1');
SELECT * FROM policy_locks;
SELECT lavrel.create_level('p1', 'low', 10);
SELECT * FROM policy_locks;
COMMIT;
DROP VIEW policy_locks;

-- ---------------------------------------------------------------------
-- Lookups of a policy by id raise for an id without a row.
-- ---------------------------------------------------------------------
SELECT lavrel_test.get_policy_name(1) AS name, lavrel_test.get_policy_colname(1) AS colname,
       lavrel_test.get_policyenabled(1) AS p1_enabled, lavrel_test.get_policyenabled(2) AS p2_enabled;
SELECT lavrel_test.policy_object_checked(1);
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT lavrel_test.get_policy_name(999)$$),
    ($$SELECT lavrel_test.get_policy_colname(999)$$),
    ($$SELECT lavrel_test.get_policyenabled(999)$$),
    ($$SELECT lavrel_test.policy_object_checked(999)$$)) AS v(stmt);

-- Names of levels and compartments by id, within their own policy.
SELECT lavrel.create_level('p1', 'high', 30);
SELECT lavrel.create_compartment('p1', 'a', 1);
SELECT lavrel.create_compartment('p1', 'b', 2);
SELECT lavrel_test.get_level_name(1, 30) AS level_30, lavrel_test.get_compartment_name(1, 2) AS comp_2;
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT lavrel_test.get_level_name(1, 20)$$),
    ($$SELECT lavrel_test.get_level_name(2, 30)$$),
    ($$SELECT lavrel_test.get_compartment_name(1, 3)$$),
    ($$SELECT lavrel_test.get_compartment_name(2, 1)$$)) AS v(stmt);

-- ---------------------------------------------------------------------
-- The enabled flag is written as given, also when it does not change (the
-- row gets a new version).  For a policy without a row the message would
-- need the policy's name, and looking that up fails first.
-- ---------------------------------------------------------------------
SELECT ctid AS row_version FROM lavrel.lavrel_policy WHERE policy_oid = 3 \gset
SELECT lavrel_test.alter_policy_tuple(3, false);
SELECT policy_enable, ctid = :'row_version' AS same_row_version
  FROM lavrel.lavrel_policy WHERE policy_oid = 3;
SELECT ctid AS row_version FROM lavrel.lavrel_policy WHERE policy_oid = 3 \gset
SELECT lavrel_test.alter_policy_tuple(3, false);
SELECT policy_enable, ctid = :'row_version' AS same_row_version
  FROM lavrel.lavrel_policy WHERE policy_oid = 3;
SELECT try_stmt($$SELECT lavrel_test.alter_policy_tuple(999, true)$$);
SELECT policy_name, policy_enable FROM lavrel.lavrel_policy ORDER BY policy_oid;

-- ---------------------------------------------------------------------
-- Removing a policy by id deletes its lavrel_policy row and nothing else.
-- ---------------------------------------------------------------------
SELECT lavrel.create_level('p3', 'l', 1);
SELECT lavrel_test.remove_policy_by_id(3);
SELECT policy_oid, policy_name FROM lavrel.lavrel_policy ORDER BY 1;
SELECT policy_oid, level_id, level_name FROM lavrel.lavrel_level WHERE policy_oid = 3;
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT lavrel_test.remove_policy_by_id(3)$$),
    ($$SELECT lavrel_test.remove_policy_by_id(999)$$)) AS v(stmt);

-- ---------------------------------------------------------------------
-- Removing one level, compartment or label row.  Without a row each
-- fails; the level message ends in a blank (quoted here to show it).
-- ---------------------------------------------------------------------
SELECT stmt, quote_literal(try_stmt(stmt)) FROM (VALUES
    ($$SELECT lavrel_test.remove_level_by_id(1, 20)$$),
    ($$SELECT lavrel_test.remove_level_by_id(999, 10)$$),
    ($$SELECT lavrel_test.remove_comp_by_id(1, 3)$$),
    ($$SELECT lavrel_test.remove_comp_by_id(999, 1)$$),
    ($$SELECT lavrel_test.remove_label_by_id(999)$$)) AS v(stmt);
-- With a row, only that row goes: labels using the level or compartment
-- stay, and can no longer be printed.  The removal of a level is visible
-- at once in the same command; that of a compartment only from the next
-- command on.
SELECT lavrel.create_label('p1', 'low:a', 100);
SELECT lavrel.create_label('p1', 'high:a', 101);
SELECT lavrel.create_label('p1', 'low:b', 102);
SELECT lavrel_test.remove_level_by_id(1, 30) AS level_still_seen;
SELECT lavrel_test.remove_comp_by_id(1, 2) AS compartment_still_seen;
SELECT level_id, level_name FROM lavrel.lavrel_level WHERE policy_oid = 1 ORDER BY 1;
SELECT compartment_id, compartment_name FROM lavrel.lavrel_compartment WHERE policy_oid = 1 ORDER BY 1;
SELECT label_id, level_id, compartments FROM lavrel.lavrel_label ORDER BY 1;
SELECT id, try_stmt(format('SELECT lavrel.label_to_char(%s)', id))
  FROM unnest(ARRAY[100, 101, 102]) AS id;
SELECT lavrel_test.remove_label_by_id(101) AS label_still_seen;
SELECT label_id FROM lavrel.lavrel_label ORDER BY 1;
SELECT try_stmt($$SELECT lavrel_test.remove_label_by_id(101)$$);

-- ---------------------------------------------------------------------
-- Clean up.  lavrel can be dropped only while access control is off.
-- ---------------------------------------------------------------------
SELECT lavrel.drop_policy('p1');
SELECT lavrel.drop_policy('p2');
-- the level of the policy whose row alone was removed
DELETE FROM lavrel.lavrel_level WHERE policy_oid = 3;
DROP VIEW regress_v;
DROP TABLE regress_t1, regress_t2, regress_t3;
DROP FUNCTION try_stmt(text);
DROP EXTENSION lavrel_test;
\i sql/include/drop_lavrel.sql

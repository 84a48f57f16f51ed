--
-- What the administrative functions store in the catalog tables of schema
-- lavrel, read back as the administrator.
--
CREATE EXTENSION lavrel;
CREATE EXTENSION lavrel_test;
\i sql/include/try_stmt.sql

-- ---------------------------------------------------------------------
-- lavrel_policy: ids come from lavrel.lavrel_policy_oid_seq, a new policy
-- is enabled, the hide flag is kept as given.
-- ---------------------------------------------------------------------
SELECT lavrel.create_policy('p1', 'p1_col');
SELECT lavrel.create_policy('p2', 'p2_col', true);
SELECT * FROM lavrel.lavrel_policy ORDER BY policy_oid;
SELECT last_value FROM lavrel.lavrel_policy_oid_seq;

-- ---------------------------------------------------------------------
-- lavrel_level and lavrel_compartment: the name is written into both name
-- columns, quoted names keep their case.
-- ---------------------------------------------------------------------
SELECT lavrel.create_level('p1', 'x', 1);
SELECT lavrel.create_level('p1', '"Y"', 2);
SELECT lavrel.create_compartment('p1', 'c5', 5);
SELECT lavrel.create_compartment('p1', 'c1', 1);
SELECT lavrel.create_compartment('p1', '"C3"', 3);
SELECT * FROM lavrel.lavrel_level ORDER BY level_id;
SELECT * FROM lavrel.lavrel_compartment ORDER BY compartment_id;

-- ---------------------------------------------------------------------
-- lavrel_label: the compartment set is an int2vector of ascending ids,
-- empty (not null) for no compartments; label_reserved is null.
-- ---------------------------------------------------------------------
SELECT lavrel.create_label('p1', 'x:c5,c1,"C3"', 10);
SELECT lavrel.create_label('p1', 'x', 11);
SELECT label_id, policy_oid, level_id, compartments, pg_typeof(compartments),
       compartments IS NULL AS comps_null, label_reserved IS NULL AS reserved_null
  FROM lavrel.lavrel_label ORDER BY label_id;
-- Label ids are unique over all policies; within a policy, so is the pair
-- of level and compartment set, whatever the text that names it.
SELECT lavrel.create_level('p2', 'x', 1);
SELECT stmt, try_stmt(stmt) AS outcome FROM (VALUES
    ($$SELECT lavrel.create_label('p2', 'x', 10)$$),
    ($$SELECT lavrel.create_label('p1', 'x:"C3",c1,c5,', 12)$$),
    ($$SELECT lavrel.create_label('p1', 'X:', 12)$$)
) AS t(stmt);
-- Altering a label replaces its level and compartments only.
SELECT lavrel.alter_label('p1', 10, '"Y":"C3"');
SELECT label_id, policy_oid, level_id, compartments, label_reserved IS NULL AS reserved_null
  FROM lavrel.lavrel_label ORDER BY label_id;
UPDATE lavrel.lavrel_label SET label_reserved = 'kept' WHERE label_id = 10;
SELECT lavrel.alter_label('p1', 10, '"Y":c1,c5');
SELECT label_id, policy_oid, level_id, compartments, label_reserved
  FROM lavrel.lavrel_label ORDER BY label_id;

-- ---------------------------------------------------------------------
-- lavrel_user: every column is written, compartment sets as int2vector;
-- a label without compartments is stored as an empty vector, not null,
-- and reads back as the empty set.
-- ---------------------------------------------------------------------
CREATE ROLE regress_lavrel_u1;
SELECT lavrel.set_user_labels('p1', 'regress_lavrel_u1', '"Y":c1,"C3"', NULL, NULL, 'x');
SELECT user_oid::regrole, policy_oid, user_privs, max_level, min_write_level,
       def_level, row_level, max_read_comps, max_write_comps, def_comps,
       row_comps, min_write_comps
  FROM lavrel.lavrel_user;
SELECT def_comps IS NULL AS def_null, array_length(def_comps::int2[], 1) AS def_length,
       min_write_comps IS NULL AS min_write_null
  FROM lavrel.lavrel_user;
SELECT found, access
  FROM lavrel_test.get_user_policy_access(1, 'regress_lavrel_u1', true);

-- ---------------------------------------------------------------------
-- lavrel_policy_enforcement: one row per protected table and policy; a
-- second application is refused with its own SQLSTATE.
-- ---------------------------------------------------------------------
CREATE TABLE regress_t (a int);
SELECT lavrel.apply_table_policy('p1', 'public', 'regress_t');
SELECT policy_oid, relation_oid::regclass FROM lavrel.lavrel_policy_enforcement;
SELECT try_stmt($$SELECT lavrel.apply_table_policy('p1', 'public', 'regress_t')$$);
SELECT policy_oid, relation_oid::regclass FROM lavrel.lavrel_policy_enforcement;

-- ---------------------------------------------------------------------
-- Every key has a unique index, which refuses a duplicate that reaches
-- the table past the functions' checks.  lavrel_obj has none: an object
-- may carry several labels.
-- ---------------------------------------------------------------------
SELECT indisprimary AS primary, pg_get_indexdef(indexrelid) AS index
  FROM pg_index
 WHERE indrelid IN (SELECT oid FROM pg_class WHERE relnamespace = 'lavrel'::regnamespace)
 ORDER BY indrelid, indexrelid::regclass::text;
SELECT stmt, try_stmt(stmt) AS outcome FROM (VALUES
    ($$INSERT INTO lavrel.lavrel_policy SELECT 1, 'p3', 'p3_col', false, true$$),
    ($$INSERT INTO lavrel.lavrel_policy SELECT 3, 'p1', 'p3_col', false, true$$),
    ($$INSERT INTO lavrel.lavrel_policy SELECT 3, 'p3', 'p1_col', false, true$$),
    ($$INSERT INTO lavrel.lavrel_level SELECT 1, 1, 'z', 'z'$$),
    ($$INSERT INTO lavrel.lavrel_level SELECT 1, 9, 'x', 'x'$$),
    ($$INSERT INTO lavrel.lavrel_compartment SELECT 1, 1, 'z', 'z'$$),
    ($$INSERT INTO lavrel.lavrel_compartment SELECT 1, 9, 'c1', 'c1'$$),
    ($$INSERT INTO lavrel.lavrel_label SELECT 10, 2, 1, '', NULL$$),
    ($$INSERT INTO lavrel.lavrel_policy_enforcement SELECT 1, 'regress_t'::regclass$$),
    ($$INSERT INTO lavrel.lavrel_user SELECT * FROM lavrel.lavrel_user$$)
) AS t(stmt);

-- ---------------------------------------------------------------------
-- Clean up.  lavrel can be dropped only while access control is off.
-- ---------------------------------------------------------------------
SELECT lavrel.drop_policy('p1', true);
SELECT lavrel.drop_policy('p2');
DROP TABLE regress_t;
DROP ROLE regress_lavrel_u1;
DROP FUNCTION try_stmt(text);
DROP EXTENSION lavrel_test;
\i sql/include/drop_lavrel.sql

--
-- Policies: creating, enabling, disabling and dropping them, and what a
-- drop does to the catalogs and to the tables the policy protects.
--
CREATE EXTENSION lavrel;
\i sql/include/try_stmt.sql

-- Every catalog row, by policy.
CREATE VIEW catalog_rows AS
          SELECT 'lavrel_policy' AS catalog, policy_oid FROM lavrel.lavrel_policy
UNION ALL SELECT 'lavrel_level', policy_oid FROM lavrel.lavrel_level
UNION ALL SELECT 'lavrel_compartment', policy_oid FROM lavrel.lavrel_compartment
UNION ALL SELECT 'lavrel_label', policy_oid FROM lavrel.lavrel_label
UNION ALL SELECT 'lavrel_policy_enforcement', policy_oid FROM lavrel.lavrel_policy_enforcement
UNION ALL SELECT 'lavrel_user', policy_oid FROM lavrel.lavrel_user
UNION ALL SELECT 'lavrel_obj', policy_oid FROM lavrel.lavrel_obj;

-- ---------------------------------------------------------------------
-- Creation: names and policy column names are unique over all policies,
-- compared after folding.
-- ---------------------------------------------------------------------
SELECT lavrel.create_policy('p1', 'p1_col');
SELECT lavrel.create_policy('p2', 'p2_col', true);
SELECT lavrel.create_policy('"P1"', '"P1_col"');
SELECT stmt, try_stmt(stmt) AS outcome FROM (VALUES
    ($$SELECT lavrel.create_policy('p1', 'other_col')$$),
    ($$SELECT lavrel.create_policy('P1', 'other_col')$$),
    ($$SELECT lavrel.create_policy('p3', 'p1_col')$$),
    ($$SELECT lavrel.create_policy('p3', 'P2_COL', true)$$),
    ($$SELECT lavrel.enable_policy('nosuch')$$),
    ($$SELECT lavrel.disable_policy('nosuch')$$),
    ($$SELECT lavrel.drop_policy('nosuch')$$),
    ($$SELECT lavrel.drop_policy('"p1"x')$$)
) AS t(stmt);
SELECT * FROM lavrel.lavrel_policy ORDER BY policy_oid;

-- ---------------------------------------------------------------------
-- Enabling and disabling: only a change of the flag writes the row.
-- ---------------------------------------------------------------------
SELECT ctid AS row_version FROM lavrel.lavrel_policy WHERE policy_name = 'p1' \gset
SELECT lavrel.enable_policy('p1');
SELECT policy_enable, ctid = :'row_version' AS same_row_version
  FROM lavrel.lavrel_policy WHERE policy_name = 'p1';
SELECT lavrel.disable_policy('p1');
SELECT policy_enable, ctid = :'row_version' AS same_row_version
  FROM lavrel.lavrel_policy WHERE policy_name = 'p1';
SELECT ctid AS row_version FROM lavrel.lavrel_policy WHERE policy_name = 'p1' \gset
SELECT lavrel.disable_policy('p1');
SELECT policy_enable, ctid = :'row_version' AS same_row_version
  FROM lavrel.lavrel_policy WHERE policy_name = 'p1';
SELECT lavrel.enable_policy('p1');
SELECT policy_name, policy_enable FROM lavrel.lavrel_policy ORDER BY policy_oid;

-- ---------------------------------------------------------------------
-- Dropping a policy that protects no table deletes its rows from every
-- catalog but lavrel_obj, and nothing of the other policies.
-- ---------------------------------------------------------------------
SELECT lavrel.create_policy('p3', 'p3_col');
CREATE ROLE regress_lavrel_user;
SELECT lavrel.create_level(p, 'low', 1) FROM (VALUES ('p2'), ('p3')) AS v(p);
SELECT lavrel.create_compartment(p, 'c', 1) FROM (VALUES ('p2'), ('p3')) AS v(p);
SELECT lavrel.create_label('p2', 'low:c', 21);
SELECT lavrel.create_label('p3', 'low:c', 31);
SELECT lavrel.set_user_labels(p, 'regress_lavrel_user', 'low:c') FROM (VALUES ('p2'), ('p3')) AS v(p);
-- An object labelled under p3 (written directly into the catalog).
CREATE VIEW regress_labelled_v AS SELECT 1 AS one;
INSERT INTO lavrel.lavrel_obj
SELECT policy_oid, policy_name, 'view', 'public'::regnamespace, 'regress_labelled_v'::regclass, 31
  FROM lavrel.lavrel_policy WHERE policy_name = 'p3';
SELECT policy_oid, catalog, count(*) FROM catalog_rows GROUP BY 1, 2 ORDER BY 1, 2;
SELECT lavrel.drop_policy('p3');
SELECT policy_oid, catalog, count(*) FROM catalog_rows GROUP BY 1, 2 ORDER BY 1, 2;
SELECT policy_name, obj_type, obj_oid::regclass, label_id FROM lavrel.lavrel_obj;

-- ---------------------------------------------------------------------
-- Dropping a policy that protects tables.  Without the drop-column flag
-- each policy column stays, values and all, but loses its default.
-- ---------------------------------------------------------------------
CREATE TABLE regress_keep1 (id int, p1_col int);
INSERT INTO regress_keep1 VALUES (1, 100), (2, 200);
CREATE TABLE regress_keep2 (id int);
SELECT lavrel.apply_table_policy('p1', 'public', 'regress_keep1');
SELECT lavrel.apply_table_policy('p1', 'public', 'regress_keep2');
-- With the flag the column is dropped, with what depends on it.
CREATE TABLE regress_drop (id int);
SELECT lavrel.apply_table_policy('p2', 'public', 'regress_drop');
CREATE VIEW regress_drop_v AS SELECT id, p2_col FROM regress_drop;
SELECT a.attrelid::regclass AS rel, a.attname, pg_get_expr(d.adbin, d.adrelid) AS default
  FROM pg_attribute a LEFT JOIN pg_attrdef d ON d.adrelid = a.attrelid AND d.adnum = a.attnum
 WHERE a.attrelid IN ('regress_keep1'::regclass, 'regress_keep2'::regclass, 'regress_drop'::regclass)
   AND a.attnum > 0 AND NOT a.attisdropped
 ORDER BY 1, a.attnum;
SELECT policy_oid, relation_oid::regclass FROM lavrel.lavrel_policy_enforcement ORDER BY 1, 2;
SELECT lavrel.drop_policy('p1', false);
SELECT lavrel.drop_policy('p2', true);
SELECT a.attrelid::regclass AS rel, a.attname, pg_get_expr(d.adbin, d.adrelid) AS default
  FROM pg_attribute a LEFT JOIN pg_attrdef d ON d.adrelid = a.attrelid AND d.adnum = a.attnum
 WHERE a.attrelid IN ('regress_keep1'::regclass, 'regress_keep2'::regclass, 'regress_drop'::regclass)
   AND a.attnum > 0 AND NOT a.attisdropped
 ORDER BY 1, a.attnum;
SELECT * FROM regress_keep1 ORDER BY id;
SELECT count(*) AS views_left FROM pg_class WHERE relname = 'regress_drop_v';
SELECT policy_oid, catalog, count(*) FROM catalog_rows GROUP BY 1, 2 ORDER BY 1, 2;

-- ---------------------------------------------------------------------
-- Clean up.  lavrel can be dropped only while access control is off.
-- ---------------------------------------------------------------------
SELECT lavrel.drop_policy('"P1"');
DELETE FROM lavrel.lavrel_obj;
DROP VIEW catalog_rows, regress_labelled_v;
DROP TABLE regress_keep1, regress_keep2, regress_drop;
DROP ROLE regress_lavrel_user;
DROP FUNCTION try_stmt(text);
\i sql/include/drop_lavrel.sql

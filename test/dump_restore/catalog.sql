-- test/dump_restore/catalog.sql: lavrel's catalogs and the protected
-- tables as the administrator sees them, every oid shown by name; run
-- against the dumped database and against each restored copy.
\pset footer off
SELECT oid, policy_name, policy_col_name, policy_col_hidden, policy_enable
  FROM lavrel.policies() ORDER BY oid;
SELECT last_value FROM lavrel.lavrel_policy_oid_seq;
SELECT policy_oid, level_id, level_name, level_name_copy FROM lavrel.lavrel_level ORDER BY 1, 2;
SELECT policy_oid, compartment_id, compartment_name, compartment_name_copy
  FROM lavrel.lavrel_compartment ORDER BY 1, 2;
SELECT label_id, policy_oid, level_id, compartments, label_reserved, lavrel.label_to_char(label_id)
  FROM lavrel.lavrel_label ORDER BY 1;
SELECT user_oid::regrole AS "user", policy_oid, lavrel.privs_to_char(user_privs), max_level,
       min_write_level, def_level, row_level, max_read_comps, max_write_comps, def_comps,
       row_comps, min_write_comps
  FROM lavrel.lavrel_user ORDER BY user_oid::regrole::text, policy_oid;
SELECT policy_oid, relation_oid::regclass FROM lavrel.lavrel_policy_enforcement
 ORDER BY policy_oid, relation_oid::regclass::text;
SELECT policy_oid, policy_name, obj_type, obj_namespace::regnamespace,
       CASE WHEN obj_type ILIKE 'view' THEN obj_oid::regclass::text
            ELSE obj_oid::regprocedure::text END AS object, label_id
  FROM lavrel.lavrel_obj ORDER BY 1, 5;
-- The policy columns and their defaults.
SELECT a.attrelid::regclass, a.attname, pg_get_expr(d.adbin, d.adrelid)
  FROM pg_attribute a JOIN pg_attrdef d ON (d.adrelid, d.adnum) = (a.attrelid, a.attnum)
 WHERE a.attname IN ('clearance', 'grade') ORDER BY a.attrelid::regclass::text, a.attname;
-- The row-level security guards of the protected tables.
SELECT c.oid::regclass, c.relrowsecurity, c.relforcerowsecurity, p.polname,
       pg_get_expr(p.polqual, p.polrelid), pg_get_expr(p.polwithcheck, p.polrelid)
  FROM pg_class c LEFT JOIN pg_policy p ON p.polrelid = c.oid
 WHERE c.relrowsecurity OR p.polname IS NOT NULL
 ORDER BY c.oid::regclass::text, p.polname;
-- Every row, with every policy column (the administrator holds FULL).
SELECT id, title, clearance FROM documents ORDER BY id;
SELECT employee, amount, grade FROM salaries ORDER BY employee;
SELECT id, body, clearance, grade FROM notes ORDER BY id;
SELECT * FROM plain ORDER BY id;

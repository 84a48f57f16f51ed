--
-- What CREATE EXTENSION lavrel installs: the schema, seven catalog tables
-- with their exact columns, the policy id sequence, the SQL functions with
-- their properties, dump registration and privileges.
--
CREATE EXTENSION lavrel;

SELECT pg_describe_object(classid, objid, objsubid) AS object
  FROM pg_depend
 WHERE refclassid = 'pg_extension'::regclass
   AND refobjid = (SELECT oid FROM pg_extension WHERE extname = 'lavrel')
   AND deptype = 'e'
 ORDER BY 1;

-- Columns, in order, with their types and nullability.
SELECT c.relname, a.attnum, a.attname, format_type(a.atttypid, a.atttypmod) AS type,
       a.attnotnull
  FROM pg_attribute a JOIN pg_class c ON c.oid = a.attrelid
 WHERE c.relnamespace = 'lavrel'::regnamespace AND c.relkind = 'r'
   AND a.attnum > 0 AND NOT a.attisdropped
 ORDER BY c.relname, a.attnum;

-- The sequence never yields 0 and stays below 2^32.
SELECT seqstart, seqmin, seqmax, seqcycle
  FROM pg_sequence WHERE seqrelid = 'lavrel.lavrel_policy_oid_seq'::regclass;

-- Every catalog table and the sequence are dumped with the extension.
SELECT unnest(extconfig)::regclass::text AS dumped
  FROM pg_extension WHERE extname = 'lavrel' ORDER BY 1;

-- Mediation functions: policy as oid, not strict, never immutable, never in
-- a parallel worker; the range functions are stable (usable as index bounds).
SELECT p.oid::regprocedure::text AS function, p.proisstrict, p.provolatile, p.proparallel
  FROM pg_proc p
 WHERE p.pronamespace = 'lavrel'::regnamespace
   AND p.proname IN ('read_mediation', 'write_mediation', 'label_insert', 'label_update',
                     'generate_default_label_value', 'policy_read_max_label_id',
                     'policy_read_min_label_id')
 ORDER BY 1;

-- Argument names and defaults of the administration functions.
SELECT p.oid::regprocedure::text AS function, pg_get_function_arguments(p.oid) AS arguments
  FROM pg_proc p
 WHERE p.pronamespace = 'lavrel'::regnamespace
   AND p.proname IN ('create_policy', 'drop_policy', 'remove_table_policy',
                     'set_user_labels', 'set_levels', 'set_compartments')
 ORDER BY 1;

-- Every function, catalog table and the sequence has a description, which
-- \df+ and \dt+ show: the first query lists those without one, the second
-- how many have one.
SELECT pg_describe_object(classid, objid, 0) AS undescribed
  FROM pg_depend
 WHERE refclassid = 'pg_extension'::regclass
   AND refobjid = (SELECT oid FROM pg_extension WHERE extname = 'lavrel')
   AND deptype = 'e'
   AND obj_description(objid, classid::regclass::name) IS NULL
 ORDER BY 1;
SELECT classid::regclass AS catalog, count(*) AS described
  FROM pg_depend
 WHERE refclassid = 'pg_extension'::regclass
   AND refobjid = (SELECT oid FROM pg_extension WHERE extname = 'lavrel')
   AND deptype = 'e'
   AND obj_description(objid, classid::regclass::name) IS NOT NULL
 GROUP BY 1 ORDER BY 1;
\df+ lavrel.my_labels
\dt+ lavrel.lavrel_user

-- Ordinary users may call the mediation functions but never touch the catalogs.
CREATE ROLE install_user LOGIN;
\c - install_user
SELECT lavrel.read_mediation(1, 1), lavrel.policy_read_max_label_id(1),
       lavrel.policy_read_min_label_id(1), lavrel.generate_default_label_value(1);
SELECT * FROM lavrel.my_labels();
SELECT lavrel.label(1);
SELECT * FROM lavrel.lavrel_policy;
INSERT INTO lavrel.lavrel_label VALUES (1, 1, 1, '', NULL);
SELECT nextval('lavrel.lavrel_policy_oid_seq');
\c - postgres
DROP ROLE install_user;

-- Dropping the extension (which lavrel allows only with access control
-- switched off) removes every object; the schema it was created in stays,
-- empty, as with any extension whose control file names a schema.
ALTER SYSTEM SET lavrel.enable_mac = off;
SELECT pg_reload_conf();
\c
DROP EXTENSION lavrel;
SELECT (SELECT count(*) FROM pg_class WHERE relnamespace = 'lavrel'::regnamespace) AS relations,
       (SELECT count(*) FROM pg_proc WHERE pronamespace = 'lavrel'::regnamespace) AS functions;
DROP SCHEMA lavrel;
ALTER SYSTEM RESET lavrel.enable_mac;
SELECT pg_reload_conf();
\c

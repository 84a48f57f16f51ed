--
-- The module frame: when access control is in force, how the ids of the
-- catalog tables and mediation functions are resolved, the flag that marks
-- lavrel's own extension script, and the hooks the module fills at load.
--
CREATE EXTENSION lavrel;
CREATE EXTENSION lavrel_test;
\set regress_db :DBNAME

-- In force here: the first call resolves every id.
SHOW lavrel.enable_mac;
SELECT lavrel_test.mac_isenable();
SELECT name, CASE WHEN name LIKE '%RelationId' THEN id::regclass::text
                  ELSE id::regprocedure::text END AS resolved
  FROM lavrel_test.mac_object_ids();

-- Not in force in a database without the extension, though the variable
-- is on there too; nothing is resolved.
CREATE DATABASE regress_lavrel_nolavrel;
\c regress_lavrel_nolavrel
CREATE EXTENSION lavrel_test;
SHOW lavrel.enable_mac;
SELECT lavrel_test.mac_isenable();
SELECT count(*) AS resolved FROM lavrel_test.mac_object_ids() WHERE id <> 0;
\c :regress_db

-- Turning the variable off clears the resolved ids of this backend ...
SELECT id AS old_read_mediation
  FROM lavrel_test.mac_object_ids() WHERE name = 'ReadMediationProc' \gset
ALTER SYSTEM SET lavrel.enable_mac = off;
SELECT lavrel_test.reload_enable_mac();
SELECT lavrel_test.mac_isenable();
SELECT count(*) AS resolved FROM lavrel_test.mac_object_ids() WHERE id <> 0;
-- ... so that, on again, it resolves them anew: here those of an extension
-- re-created in between.
DROP EXTENSION lavrel;
CREATE EXTENSION lavrel;
ALTER SYSTEM RESET lavrel.enable_mac;
SELECT lavrel_test.reload_enable_mac();
SELECT lavrel_test.mac_isenable();
SELECT count(*) AS resolved FROM lavrel_test.mac_object_ids() WHERE id <> 0;
SELECT id::regprocedure AS read_mediation, id <> :old_read_mediation AS changed
  FROM lavrel_test.mac_object_ids() WHERE name = 'ReadMediationProc';

-- Two functions named read_mediation in the schema: the first member of
-- the catalog cache list is taken, whatever its arguments.  The list is in
-- the order of the index on (name, argument types, schema), where a shorter
-- argument list sorts first.
CREATE FUNCTION lavrel.read_mediation(text) RETURNS boolean
    LANGUAGE sql AS 'SELECT true';
\c
SELECT lavrel_test.mac_isenable();
SELECT id::regprocedure AS read_mediation
  FROM lavrel_test.mac_object_ids() WHERE name = 'ReadMediationProc';
SELECT oid::regprocedure AS first_in_index_order
  FROM pg_proc WHERE proname = 'read_mediation'
 ORDER BY proargtypes, pronamespace LIMIT 1;
DROP FUNCTION lavrel.read_mediation(text);
\c
SELECT id::regprocedure AS read_mediation
  FROM lavrel_test.mac_object_ids() WHERE name = 'ReadMediationProc';

-- A mediation function missing from the schema: the first resolution in a
-- new backend fails, and so does every later attempt.
ALTER EXTENSION lavrel DROP FUNCTION lavrel.label_update(oid, integer, integer);
DROP FUNCTION lavrel.label_update(oid, integer, integer);
\c
SELECT lavrel.create_policy('p', 'p_label');
SELECT lavrel_test.mac_isenable();
-- Nothing runs in that database any more; switch access control off from
-- another one, then re-create the extension.
\c regress_lavrel_nolavrel
ALTER SYSTEM SET lavrel.enable_mac = off;
SELECT pg_reload_conf();
\c :regress_db
SHOW lavrel.enable_mac;
DROP EXTENSION lavrel;
CREATE EXTENSION lavrel;
ALTER SYSTEM RESET lavrel.enable_mac;
SELECT pg_reload_conf();
SELECT lavrel_test.reload_enable_mac();
SELECT lavrel_test.mac_isenable();
SELECT lavrel.create_policy('p', 'p_label');
SELECT lavrel.drop_policy('p');

-- The flag of lavrel's own extension script: set when an extension named
-- lavrel in any case starts, left alone by other extensions starting,
-- cleared when any extension script ends.  While it is set, access control
-- is not in force.
SELECT lavrel_test.create_extension_process('LAVREL', true);
SELECT lavrel_test.mac_isenable();
SELECT lavrel_test.create_extension_process('plpgsql', true);
SELECT lavrel_test.create_extension_process(NULL, true);
SELECT lavrel_test.create_extension_process('plpgsql', false);
SELECT lavrel_test.mac_isenable();
SELECT lavrel_test.create_extension_process('plpgsql', true);
SELECT lavrel_test.create_extension_process(NULL, true);
SELECT lavrel_test.create_extension_process('Lavrel', true);
SELECT lavrel_test.create_extension_process(NULL, false);

-- Loading filled every hook the module uses with its own function; there
-- is no unloading (PostgreSQL never unloads a library).
SELECT * FROM lavrel_test.hooks();
SELECT lavrel_test.mac_isenable();
SELECT lavrel.create_policy('p', 'p_label');
SELECT lavrel.drop_policy('p');

DROP DATABASE regress_lavrel_nolavrel;

DROP EXTENSION lavrel_test;
\i sql/include/drop_lavrel.sql

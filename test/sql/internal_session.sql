--
-- The session state from the inside: the memory context and hash tables
-- it lives in, and the primitives that link records into those tables and
-- unlink them, with the warnings they give when a table is not as they
-- expect, and what a second initialisation of the memory context does.
--
CREATE EXTENSION lavrel;
CREATE EXTENSION lavrel_test;

-- The administrator is authorized under policy 1, which has label 10.
SELECT lavrel.create_policy('p', 'p_col');
SELECT lavrel.create_level('p', 'low', 10);
SELECT lavrel.create_label('p', 'low', 10);
SELECT lavrel.set_user_labels('p', 'postgres', 'low');
CREATE VIEW session_state AS
          SELECT 'User Session Label' AS session_table, policy_id AS key
            FROM lavrel.show_session_labels()
UNION ALL SELECT 'Label Lookup Info', policy_id FROM lavrel.show_label_lookup()
UNION ALL SELECT 'Label Mediation', label_id FROM lavrel.show_label_mediation();
SELECT * FROM session_state;

-- The state lives in the memory context "MAC Session", a child of the top
-- memory context, which holds the three tables.
SELECT name, parent, level FROM pg_backend_memory_contexts
 WHERE name = 'MAC Session' OR parent = 'MAC Session'
 ORDER BY level, name;

-- ---------------------------------------------------------------------
-- A second record inserted under a key that has one draws a warning and
-- is linked all the same; the first loses its link, so deleting it
-- afterwards leaves the table alone.
-- ---------------------------------------------------------------------
SELECT * FROM lavrel_test.session_insert_twice('User Session Label', 99999999);
SELECT * FROM lavrel_test.session_insert_twice('Label Lookup Info', 99999999);
SELECT * FROM lavrel_test.session_insert_twice('Label Mediation', 99999999);

-- ---------------------------------------------------------------------
-- Deleting a record whose element the table does not hold draws a warning
-- and clears the record's link; deleting it once more is silent.
-- ---------------------------------------------------------------------
SELECT * FROM lavrel_test.session_delete_stray('User Session Label', 99999999);
SELECT * FROM lavrel_test.session_delete_stray('Label Lookup Info', 99999999);
SELECT * FROM lavrel_test.session_delete_stray('Label Mediation', 99999999);

-- The records of the session are as they were, and the next
-- synchronisations rebuild the tables as usual.
SELECT * FROM session_state;
SELECT lavrel.drop_label('p', 10);
SELECT lavrel.create_label('p', 'low', 12);
SELECT * FROM session_state;

-- ---------------------------------------------------------------------
-- The session memory context is created once per backend, by the first
-- synchronisation.  Initialising it again ends the backend.  That backend
-- is a psql of its own, whose first statement synchronises its session
-- before it calls the initialisation, so that this one survives.
-- ---------------------------------------------------------------------
\setenv PGDATABASE :DBNAME
\! psql -X -q -c 'SELECT lavrel_test.init_mac_session_memory_context()'
\setenv PGDATABASE
-- The server carries on.
SELECT * FROM session_state;

-- ---------------------------------------------------------------------
-- Clean up.  lavrel can be dropped only while access control is off.
-- ---------------------------------------------------------------------
DROP VIEW session_state;
SELECT lavrel.drop_user_access('p', 'postgres');
SELECT lavrel.drop_policy('p');
DROP EXTENSION lavrel_test;
\i sql/include/drop_lavrel.sql

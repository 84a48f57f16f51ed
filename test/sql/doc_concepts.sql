--
-- The examples of doc/concepts.md, in the order the page shows them: a
-- policy with its levels, compartments and labels, label strings, a
-- protected table, the five labels of an authorization, privileges,
-- reading and writing as three users, session labels and the mediation
-- masks.  test/doc_examples.sh checks that the page shows this output.
--
CREATE EXTENSION lavrel;

-- Policies, levels and compartments
SELECT lavrel.create_policy('company', 'clearance');
SELECT lavrel.create_level('company', 'public', 10),
       lavrel.create_level('company', 'internal', 20),
       lavrel.create_level('company', 'secret', 30);
SELECT lavrel.create_compartment('company', 'sales', 1),
       lavrel.create_compartment('company', 'hr', 2);

-- Labels
SELECT lavrel.create_label('company', label, id)
  FROM (VALUES ('public', 100), ('internal', 200), ('internal:sales', 210),
               ('internal:hr', 220), ('secret:sales', 310),
               ('secret:sales,hr', 320)) AS v(label, id);
SELECT lavrel.char_to_label('company', 'secret:sales,hr') AS exact,
       lavrel.char_to_label('company', 'SECRET:HR,SALES') AS folded,
       lavrel.char_to_label('company', 'secret:hr,sales,') AS trailing_comma;
SELECT lavrel.label_to_char(320) AS with_compartments,
       lavrel.label_to_char(200) AS without;
SELECT lavrel.char_to_label('company', 'secret:hr');
SELECT lavrel.char_to_label('company', 'secret:finance');

-- Protected tables
CREATE TABLE documents (id int PRIMARY KEY, title text);
SELECT lavrel.apply_table_policy('company', 'public', 'documents');
SELECT column_name, data_type, column_default
  FROM information_schema.columns
 WHERE table_name = 'documents' ORDER BY ordinal_position;
SELECT oid, policy_name, policy_col_name, policy_enable FROM lavrel.policies();

-- The five labels of an authorization
SELECT lavrel.set_user_labels('company', 'postgres', 'secret:sales,hr');
\c
SELECT max_read_label, max_write_label, min_write_level, read_label,
       write_label, row_label
  FROM lavrel.show_session_labels();
SELECT lavrel.set_user_labels('company', 'postgres', 'secret:sales,hr',
                              min_write_label => 'internal:sales,hr',
                              def_label => 'secret:sales');
\c
SELECT min_write_level, read_label, row_label FROM lavrel.show_session_labels();
SELECT lavrel.set_user_labels('company', 'postgres', 'secret:sales',
                              def_label => 'secret:sales,hr');
SELECT lavrel.set_user_labels('company', 'postgres', 'secret:sales,hr',
                              'internal:sales');

-- Privileges
SELECT lavrel.set_user_privs('company', 'postgres', 'FULL');
INSERT INTO documents VALUES
    (1, 'canteen menu', 100), (2, 'org chart', 200), (3, 'sales forecast', 210),
    (4, 'salary bands', 220), (5, 'merger plan', 310), (6, 'layoff list', 320);

-- Reading
CREATE ROLE regress_alice LOGIN;
CREATE ROLE regress_bob LOGIN;
CREATE ROLE regress_carol LOGIN;
GRANT SELECT, INSERT, UPDATE, DELETE ON documents
   TO regress_alice, regress_bob, regress_carol;
SELECT lavrel.set_user_labels('company', 'regress_alice', 'secret:sales,hr',
                              min_write_label => 'secret:sales,hr',
                              def_label => 'secret:sales,hr');
SELECT lavrel.set_user_labels('company', 'regress_bob', 'internal:sales',
                              min_write_label => 'internal:sales',
                              def_label => 'internal:sales');
SELECT lavrel.set_user_labels('company', 'regress_carol', 'secret:sales,hr');
\c - regress_bob
SELECT id AS label_id, lavrel.label_to_char(id) AS label,
       lavrel.read_mediation(1, id) AS bob_reads
  FROM unnest(ARRAY[100, 200, 210, 220, 310, 320]) AS id;
SELECT id, title, lavrel.label(clearance) FROM documents ORDER BY id;
\c - regress_carol
SELECT id, title, lavrel.label(clearance) FROM documents ORDER BY id;
\c - regress_alice
SELECT count(*) FROM documents;

-- Writing
\c - regress_bob
INSERT INTO documents (id, title) VALUES (7, 'bob''s notes');
SELECT id, title, lavrel.label(clearance) FROM documents
 WHERE id = 7;
INSERT INTO documents VALUES (8, 'public notice', 100);
UPDATE documents SET title = 'menu' WHERE id = 1;

-- Label changes
\c - postgres
SELECT lavrel.set_user_labels('company', 'regress_bob', 'secret:sales',
                              min_write_label => 'internal:sales',
                              def_label => 'internal:sales',
                              row_label => 'internal:sales');
\c - regress_bob
UPDATE documents SET clearance = 310 WHERE id = 7;
\c - postgres
SELECT lavrel.set_user_privs('company', 'regress_bob', 'WRITEUP');
\c - regress_bob
UPDATE documents SET clearance = 310 WHERE id = 7;
SELECT id, title FROM documents ORDER BY id;

-- Session labels
\c - postgres
SELECT lavrel.set_user_labels('company', 'postgres', 'secret:sales,hr',
                              min_write_label => 'internal:sales');
SELECT lavrel.set_user_privs('company', 'postgres', NULL);
\c
SELECT read_label, write_label, min_write_level, row_label
  FROM lavrel.show_session_labels();
SELECT deault_row_label_id FROM lavrel.show_label_lookup();
SELECT lavrel.set_session_row_label('company', 'internal:sales');
SELECT lavrel.set_session_label('company', 'internal');
SELECT read_label, row_label FROM lavrel.show_session_labels();
SELECT deault_row_label_id FROM lavrel.show_label_lookup();
SELECT id, title FROM documents ORDER BY id;
SELECT lavrel.set_session_label('company', 'secret:sales');
SELECT lavrel.set_user_labels('company', 'postgres', 'secret:sales',
                              min_write_label => 'internal:sales');
SELECT read_label, row_label FROM lavrel.show_session_labels();
BEGIN;
SELECT lavrel.set_session_label('company', 'public');
ROLLBACK;
SELECT lavrel.set_user_labels('company', 'postgres', 'secret:sales',
                              min_write_label => 'internal');
SELECT read_label, min_write_level FROM lavrel.show_session_labels();
\c
SELECT read_label, min_write_level FROM lavrel.show_session_labels();
\c - regress_bob
SELECT lavrel.set_session_label('company', 'public');
SELECT * FROM lavrel.my_labels();

-- Mediation masks
\c - postgres
SELECT label_id, lavrel.label_to_char(label_id) AS label, information_mask AS mask,
       information_mask & 1 <> 0 AS read, information_mask & 4 <> 0 AS write,
       information_mask & 16 <> 0 AS insert
  FROM lavrel.show_label_mediation() ORDER BY label_id;
SELECT lavrel.set_user_privs('company', 'postgres', 'FULL');
SELECT label_id, information_mask AS mask, to_hex(information_mask) AS hex
  FROM lavrel.show_label_mediation() ORDER BY label_id;
SELECT lavrel.read_mediation(1, 320) AS reads_320;

-- Clean up: the policy first (it takes the authorizations with it), then
-- the table, the roles and the extension.
SELECT lavrel.drop_policy('company');
DROP TABLE documents;
DROP ROLE regress_alice, regress_bob, regress_carol;
\i sql/include/drop_lavrel.sql

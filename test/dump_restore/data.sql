-- test/dump_restore/data.sql: the policies, labels, authorizations,
-- protected tables, labelled objects and rows of the dumped database,
-- loaded by the administrator once the roles and the extension exist.
-- test/upgrade.sh loads it over lavrel 1.0 and over 1.1 alike.
\set ON_ERROR_STOP on
SET client_min_messages = warning;
\o /dev/null
-- The policies, labels and authorizations of the worked example.  erin
-- may also write up under payroll; dave has no authorization there.
\ir ../../scripts/demo_policies.sql
SELECT lavrel.set_user_privs('payroll', 'erin', 'WRITEUP');

-- A policy that protects nothing, disabled.
SELECT lavrel.create_policy('archive', 'shelf');
SELECT lavrel.create_level('archive', 'open', 1);
SELECT lavrel.create_label('archive', 'open', 5000);
SELECT lavrel.disable_policy('archive');

CREATE SCHEMA hr;
CREATE TABLE salaries (employee text PRIMARY KEY, amount numeric NOT NULL);
CREATE TABLE notes (id integer PRIMARY KEY, body text);
CREATE TABLE documents (id serial PRIMARY KEY, title text NOT NULL);
CREATE TABLE plain (id integer PRIMARY KEY, body text);
SELECT lavrel.apply_table_policy('payroll', 'public', 'salaries');
SELECT lavrel.apply_table_policy('company', 'public', 'notes');
SELECT lavrel.apply_table_policy('payroll', 'public', 'notes');
SELECT lavrel.apply_table_policy('company', 'public', 'documents');
GRANT SELECT, INSERT, UPDATE, DELETE ON salaries, notes, documents, plain TO PUBLIC;
GRANT USAGE ON SEQUENCE documents_id_seq TO PUBLIC;

-- Labelled objects: a view, and a function in another schema.
CREATE VIEW sales_secrets AS SELECT id, title FROM documents;
CREATE FUNCTION hr.bonus(amount numeric) RETURNS numeric LANGUAGE sql AS 'SELECT amount / 10';
GRANT USAGE ON SCHEMA hr TO PUBLIC;
GRANT SELECT ON sales_secrets TO PUBLIC;
SELECT lavrel.apply_object_policy('company', 'view', 'public', 'sales_secrets', 'secret:sales');
SELECT lavrel.apply_object_policy('payroll', 'function', 'hr', 'bonus', 'board');

INSERT INTO documents (title, clearance) VALUES
    ('canteen menu', 100), ('org chart', 200), ('sales forecast', 210),
    ('salary bands', 220), ('merger plan', 310), ('layoff list', 320),
    ('unlabelled draft', NULL);
INSERT INTO salaries (employee, amount, grade) VALUES
    ('alice', 9500, 1020), ('bob', 4200, 1010), ('erin', 5100, 1010);
INSERT INTO notes (id, body, clearance, grade) VALUES
    (1, 'public staff note', 100, 1010), (2, 'sales board note', 210, 1020),
    (3, 'hr staff note', 220, 1010), (4, 'secret board note', 320, 1020);
INSERT INTO plain VALUES (1, 'not protected');

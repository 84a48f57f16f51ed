-- scripts/demo.sql: the worked example of the README, loaded by the
-- administrator (the bootstrap superuser) into a fresh database.
\set ON_ERROR_STOP on
SET client_min_messages = warning;
\o /dev/null

CREATE EXTENSION lavrel;

CREATE ROLE alice LOGIN;
CREATE ROLE bob LOGIN;
CREATE ROLE carol LOGIN;
CREATE ROLE dave LOGIN;
CREATE ROLE erin LOGIN;
CREATE ROLE frank LOGIN;    -- joined today: no authorization yet

-- Policies company and payroll, their labels, and what each user and the
-- administrator may read and write.
\ir demo_policies.sql
-- dave reads staff under payroll too.
SELECT lavrel.set_user_labels('payroll', 'dave', 'staff');

-- Protected tables: applying a policy adds its column.
CREATE TABLE documents (id serial PRIMARY KEY, title text NOT NULL);
SELECT lavrel.apply_table_policy('company', 'public', 'documents');
CREATE TABLE salaries (employee text PRIMARY KEY, amount numeric NOT NULL);
SELECT lavrel.apply_table_policy('payroll', 'public', 'salaries');
GRANT SELECT, INSERT, UPDATE, DELETE ON documents, salaries TO PUBLIC;
GRANT USAGE ON SEQUENCE documents_id_seq TO PUBLIC;

-- The administrator loads the rows, with FULL under both policies; a
-- policy column holds label ids, which char_to_label finds by label string.
INSERT INTO documents (title, clearance)
SELECT title, lavrel.char_to_label('company', label) FROM (VALUES
    ('canteen menu', 'public'), ('org chart', 'internal'),
    ('sales forecast', 'internal:sales'), ('salary bands', 'internal:hr'),
    ('merger plan', 'secret:sales'), ('layoff list', 'secret:sales,hr')) AS v(title, label);
INSERT INTO salaries (employee, amount, grade)
SELECT employee, amount, lavrel.char_to_label('payroll', label) FROM (VALUES
    ('alice', 9500, 'board'), ('bob', 4200, 'staff'), ('erin', 5100, 'staff'))
    AS v(employee, amount, label);

-- erin adds a document without naming a label: it gets her default row
-- label, the highest she may write, secret:sales, which she cannot read.
\c - erin
INSERT INTO documents (title) VALUES ('pipeline review');

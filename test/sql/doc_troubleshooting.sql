--
-- The worked example of scripts/demo.sql as each of its users meets it:
-- what lavrel.my_labels() shows him, his rows with their labels as
-- strings, and what every refusal he can meet tells him (a row he reads
-- but may not write, a label he may not store, a label change that needs a
-- privilege, a policy he holds no authorization under, COPY FROM of label
-- ids), then what the administrator meets.  These are the examples of
-- doc/troubleshooting.md (test/doc_examples.sh checks that the page shows
-- this output).
--
-- psql works from the repository's root, as the demo's user does.
\getenv abs_srcdir PG_ABS_SRCDIR
\cd :abs_srcdir/..
\i scripts/demo.sql
-- demo.sql stops at the first error and sends query output nowhere.
\set ON_ERROR_STOP off
\o

-- alice: company up to secret:sales,hr, which is also her min write label.
\c - alice
SELECT * FROM lavrel.my_labels() ORDER BY policy_name;
SELECT id, title, lavrel.label(clearance) FROM documents ORDER BY id;
UPDATE documents SET title = 'Canteen menu' WHERE id = 1;
INSERT INTO documents (title, clearance)
VALUES ('sales plan', lavrel.char_to_label('company', 'secret:sales'));

-- bob: company internal:sales, payroll staff.
\c - bob
SELECT * FROM lavrel.my_labels() ORDER BY policy_name;
SELECT id, title, lavrel.label(clearance) FROM documents ORDER BY id;
INSERT INTO documents (title) VALUES ('leads');
SELECT id, title, lavrel.label(clearance) FROM documents WHERE title = 'leads';
UPDATE documents SET title = 'Canteen menu' WHERE id = 1;
INSERT INTO documents (title, clearance)
VALUES ('notice', lavrel.char_to_label('company', 'public'));
SELECT lavrel.set_session_label('company', 'public');
SELECT * FROM lavrel.show_session_labels();

-- COPY TO writes label ids, which COPY FROM does not read; with (label)
-- it writes the label strings that COPY FROM reads.
COPY documents (title, clearance) TO STDOUT;
COPY documents (title, clearance) FROM STDIN;
leads	210
\.
COPY documents (title, clearance) TO STDOUT (label);
COPY documents (title, clearance) FROM STDIN;
leads	internal:sales
\.
SELECT id, title, lavrel.label(clearance) FROM documents WHERE title = 'leads';

-- carol: company public with READ; no authorization under payroll.
\c - carol
SELECT * FROM lavrel.my_labels() ORDER BY policy_name;
SELECT id, title, lavrel.label(clearance) FROM documents WHERE id <= 3 ORDER BY id;
UPDATE documents SET title = 'Org chart' WHERE id = 2;
SELECT * FROM salaries;
INSERT INTO salaries (employee, amount) VALUES ('carol', 4000);

-- dave: FULL under company; payroll staff.
\c - dave
SELECT * FROM lavrel.my_labels() ORDER BY policy_name;
UPDATE documents SET title = 'Layoff list (draft)' WHERE id = 6;
SELECT employee, lavrel.label(grade) FROM salaries ORDER BY employee;
UPDATE salaries SET grade = lavrel.char_to_label('payroll', 'board')
 WHERE employee = 'bob';

-- erin: writes internal:sales up to secret:sales, reads up to internal:sales.
\c - erin
SELECT * FROM lavrel.my_labels() ORDER BY policy_name;
SELECT id, title, lavrel.label(clearance) FROM documents ORDER BY id;
UPDATE documents SET clearance = lavrel.char_to_label('company', 'secret:sales')
 WHERE id = 3;
UPDATE documents SET clearance = lavrel.char_to_label('company', 'internal:')
 WHERE id = 3;

-- frank: no authorization at all.
\c - frank
SELECT * FROM lavrel.my_labels();
SELECT count(*) FROM documents;
INSERT INTO documents (title) VALUES ('hello');

-- The administrator.
\c - postgres
SELECT * FROM lavrel.authorizations() ORDER BY policy_name, user_name;
SELECT lavrel.set_session_label('company', 'internal');
SELECT read_label FROM lavrel.my_labels() WHERE policy_name = 'company';

-- Clean up: the policies first (they take the authorizations with them),
-- then the tables, the roles and the extension.
SELECT lavrel.drop_policy('company'), lavrel.drop_policy('payroll');
DROP TABLE documents, salaries;
DROP ROLE alice, bob, carol, dave, erin, frank;
\i test/sql/include/drop_lavrel.sql

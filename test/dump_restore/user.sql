-- test/dump_restore/user.sql: what one user's session answers, run as
-- that user against the dumped database and against each restored copy.
\set VERBOSITY terse
\pset footer off
SELECT * FROM lavrel.my_labels() ORDER BY policy_name;
SELECT p.policy_name,
       array(SELECT l FROM unnest('{100, 200, 210, 220, 310, 320, 1010, 1020, 5000}'::integer[]) l
              WHERE lavrel.read_mediation(p.oid, l)) AS readable
  FROM lavrel.policies() p ORDER BY 1;
SELECT lavrel.label_to_char(lavrel.generate_default_label_value(oid)) AS new_documents
  FROM lavrel.policies() WHERE policy_name = 'company';
SELECT * FROM documents ORDER BY id;
SELECT * FROM salaries ORDER BY employee;
SELECT employee, grade FROM salaries ORDER BY employee;
SELECT * FROM notes ORDER BY id;
SELECT * FROM plain ORDER BY id;
SELECT * FROM sales_secrets ORDER BY id;
SELECT hr.bonus(1000);
BEGIN;
UPDATE documents SET title = upper(title);
ROLLBACK;
BEGIN;
INSERT INTO documents (title) VALUES ('new') RETURNING title, clearance;
ROLLBACK;
BEGIN;
UPDATE salaries SET grade = 1020 WHERE employee = current_user;
ROLLBACK;

--
-- COPY FROM into protected tables: a policy column is read as a label
-- string and stored as its label id, and every row, its defaults included,
-- passes the insert check as a row of INSERT does.  The first row refused
-- ends the COPY, and nothing of it is left.  "nolabel" reads no policy
-- column (it gets its default) and ignores trailing fields.
--
CREATE EXTENSION lavrel;
\i sql/include/try_stmt.sql
-- p1: levels low < mid < high, compartments a, b, c, labels 5 low:c,
-- 10 low, 11 low:a, 20 mid, 21 mid:a, 22 mid:b, 30 high, 31 high:a,
-- 33 high:a,b, 35 high:c, 99 high:a,b,c.  p2: level x, label 90.
\i sql/include/policies_p1_p2.sql

CREATE TABLE docs (id int PRIMARY KEY, body text);
SELECT lavrel.apply_table_policy('p1', 'public', 'docs');
CREATE TABLE dual (id int, body text);
SELECT lavrel.apply_table_policy('p1', 'public', 'dual');
SELECT lavrel.apply_table_policy('p2', 'public', 'dual');
GRANT SELECT, INSERT ON docs, dual TO PUBLIC;

-- The administrator loads rows of any label with FULL.
SELECT lavrel.set_user_labels('p1', 'postgres', 'high:a,b,c');
SELECT lavrel.set_user_privs('p1', 'postgres', 'FULL');
SELECT lavrel.set_user_labels('p2', 'postgres', 'x');
SELECT lavrel.set_user_privs('p2', 'postgres', 'FULL');
-- alice may insert the labels mid:a and high:a; her default label is
-- mid:a.  dave has the same labels and FULL.  erin has no authorization.
CREATE ROLE regress_cf_alice;
CREATE ROLE regress_cf_dave;
CREATE ROLE regress_cf_erin;
SELECT lavrel.set_user_labels('p1', u, 'high:a,b', 'high:a', 'mid:a', 'mid:a', 'mid:a')
  FROM unnest(ARRAY['regress_cf_alice', 'regress_cf_dave']) AS u;
SELECT lavrel.set_user_privs('p1', 'regress_cf_dave', 'FULL');
SELECT lavrel.set_user_labels('p2', 'regress_cf_alice', 'x');

-- ---------------------------------------------------------------------
-- Label strings
-- ---------------------------------------------------------------------
-- Text format.  Names are case-insensitive; each label string is stored
-- as its label id.
COPY docs FROM STDIN;
1	low	low
2	low with colon	low:
3	mid a	mid:a
4	mid a folded	MID:A
5	all	high:a,b,c
6	all reordered	high:c,b,a
\.
\echo :ROW_COUNT
SELECT * FROM docs ORDER BY id;
-- CSV with a header, a column list in another order, and a quoted label.
COPY docs (p1_label, body, id) FROM STDIN WITH (FORMAT csv, HEADER);
p1_label,body,id
"high:a,b",a and b,7
mid:b,"b, quoted",8
\.
SELECT * FROM docs WHERE id > 6 ORDER BY id;
-- HEADER MATCH checks the names against the column list.
COPY docs (id, body, p1_label) FROM STDIN WITH (FORMAT csv, HEADER match);
id,body,p1_label
9,matched,high:c
\.
COPY docs (id, body, p1_label) FROM STDIN WITH (FORMAT csv, HEADER match);
id,body,label
10,not matched,high:c
\.
-- dual: each policy column is read under its own policy.
COPY dual FROM STDIN;
1	low x	low	x
2	high x	HIGH	X
\.
SELECT * FROM dual ORDER BY id;

-- ---------------------------------------------------------------------
-- Fields that are not labels
-- ---------------------------------------------------------------------
-- Each error names the line and the column, and nothing of the COPY stays.
COPY docs FROM STDIN;
20	fine	low
21	unknown level	top
\.
COPY docs FROM STDIN;
20	unknown compartment	mid:z
\.
COPY docs FROM STDIN;
20	label of p2	x
\.
COPY docs FROM STDIN;
20	level and compartments	low:a
21	with a blank	low : a
\.
COPY docs FROM STDIN;
20	a label id	21
\.
COPY dual FROM STDIN;
20	p1 label for p2	low	low
\.
-- A null label: "label id can not be null", whatever the privileges.
COPY docs FROM STDIN;
20	fine	low
21	null	\N
\.
COPY docs FROM STDIN WITH (NULL 'none');
20	null marker	none
\.
COPY docs FROM STDIN WITH (FORMAT csv);
20,empty,
\.
-- FORCE_NULL makes a quoted empty label null; FORCE_NOT_NULL makes an
-- empty one the empty string, which names no label.
COPY docs FROM STDIN WITH (FORMAT csv, FORCE_NULL (p1_label));
20,quoted empty,""
\.
COPY docs FROM STDIN WITH (FORMAT csv, FORCE_NOT_NULL (p1_label));
20,empty,
\.
-- Other columns fail as in any COPY.
COPY docs FROM STDIN;
twenty	not a number	low
\.
COPY docs FROM STDIN;
20	too many fields	low	extra
\.
COPY docs FROM STDIN;
20	too few fields
\.
-- Their SQLSTATEs.
SELECT try_stmt($$COPY docs FROM PROGRAM 'printf "20\tnull\t\\\\N\n"'$$);
SELECT try_stmt($$COPY docs FROM PROGRAM 'printf "20\tunknown\ttop\n"'$$);
SELECT count(*) FROM docs;

-- ---------------------------------------------------------------------
-- The insert check
-- ---------------------------------------------------------------------
SET SESSION AUTHORIZATION regress_cf_alice;
-- Labels she may insert.
COPY docs FROM STDIN;
30	alice mid:a	mid:a
31	alice high:a	high:a
\.
\echo :ROW_COUNT
-- A label she may not insert on line 3: the COPY ends there and leaves
-- nothing behind.
COPY docs FROM STDIN;
32	alice mid:a	mid:a
33	alice high:a	high:a
34	alice mid	mid
35	alice mid:a	mid:a
\.
COPY docs FROM STDIN WITH (FORMAT csv);
32,alice low:c,low:c
\.
-- The same from a program: first without the right to run one, then with
-- it, for the SQLSTATE of the insert check.
SELECT try_stmt($$COPY docs FROM PROGRAM 'printf "32\tlow\tlow\n"'$$);
RESET SESSION AUTHORIZATION;
GRANT pg_execute_server_program TO regress_cf_alice;
SET SESSION AUTHORIZATION regress_cf_alice;
SELECT try_stmt($$COPY docs FROM PROGRAM 'printf "32\tlow\tlow\n"'$$);
-- Without the policy column the row gets her default label, mid:a.
COPY docs (id, body) FROM STDIN;
36	alice default
\.
-- "nolabel": no policy column is read, and fields beyond the expected
-- ones, such as the labels of a file written with them, are ignored.
COPY docs FROM STDIN WITH (nolabel);
37	alice nolabel	high:c
38	alice nolabel, two more	low	more
39	alice nolabel, no label
\.
\echo :ROW_COUNT
-- A named policy column leaves the list too.
COPY docs (id, p1_label, body) FROM STDIN WITH (nolabel, FORMAT csv);
40,alice nolabel named,high:c
\.
-- Still too few fields.
COPY docs FROM STDIN WITH (nolabel);
41
\.
-- dual: both policies check the row.
COPY dual FROM STDIN;
10	alice mid:a x	mid:a	x
\.
COPY dual (id, body, p1_label) FROM STDIN;
11	alice mid:a, default x	mid:a
\.
SELECT * FROM docs ORDER BY id;
SELECT * FROM dual ORDER BY id;
RESET SESSION AUTHORIZATION;
SELECT * FROM docs WHERE id >= 30 ORDER BY id;

-- dave may insert any label, but not a null one.
SET SESSION AUTHORIZATION regress_cf_dave;
COPY docs FROM STDIN;
50	dave low	low
51	dave high:a,b,c	high:a,b,c
\.
COPY docs FROM STDIN;
52	dave null	\N
\.
RESET SESSION AUTHORIZATION;

-- erin has no authorization: no label she could insert, and no default.
SET SESSION AUTHORIZATION regress_cf_erin;
COPY docs FROM STDIN;
60	erin low	low
\.
COPY docs (id, body) FROM STDIN;
61	erin default
\.
RESET SESSION AUTHORIZATION;
SELECT id, body, p1_label FROM docs WHERE id >= 50 ORDER BY id;

-- ---------------------------------------------------------------------
-- Options
-- ---------------------------------------------------------------------
COPY docs FROM STDIN WITH (label, nolabel);
70	x	low
\.
COPY docs FROM STDIN WITH (nolabel, nolabel);
70	x	low
\.
-- "label" changes nothing in COPY FROM.
COPY docs FROM STDIN WITH (label);
70	with label option	low
\.
-- Binary format and FREEZE are refused for a protected table.
COPY docs FROM STDIN WITH (FORMAT binary);
\.
SELECT try_stmt($$COPY docs FROM PROGRAM 'true' WITH (FORMAT binary)$$);
BEGIN;
TRUNCATE docs;
SELECT try_stmt($$COPY docs FROM PROGRAM 'true' WITH (FREEZE)$$);
ROLLBACK;
SELECT count(*) FROM docs;
-- A table whose only column is its policy column has nothing left to read
-- with "nolabel".
CREATE TABLE only_label ();
SELECT lavrel.apply_table_policy('p1', 'public', 'only_label');
COPY only_label FROM STDIN WITH (nolabel);
\.
COPY only_label FROM STDIN;
low
\.
COPY only_label TO STDOUT WITH (label);

-- ---------------------------------------------------------------------
-- Tables without an enabled policy
-- ---------------------------------------------------------------------
-- A disabled policy's column is an ordinary int4 column.
SELECT lavrel.disable_policy('p2');
SET SESSION AUTHORIZATION regress_cf_alice;
COPY dual FROM STDIN;
80	alice, p2 disabled	mid:a	12345
\.
COPY dual FROM STDIN;
81	label string for disabled p2	mid:a	x
\.
RESET SESSION AUTHORIZATION;
SELECT lavrel.enable_policy('p2');
SELECT * FROM dual WHERE id >= 80 ORDER BY id;
-- With lavrel.enable_mac off COPY is PostgreSQL's own.
ALTER SYSTEM SET lavrel.enable_mac = off;
SELECT pg_reload_conf();
\c
SET SESSION AUTHORIZATION regress_cf_erin;
COPY docs FROM STDIN;
90	erin, enable_mac off	12345
\.
COPY docs FROM STDIN WITH (nolabel);
91	x
\.
RESET SESSION AUTHORIZATION;
ALTER SYSTEM RESET lavrel.enable_mac;
SELECT pg_reload_conf();
\c
SELECT id, body, p1_label FROM docs WHERE id >= 90 ORDER BY id;

SELECT lavrel.drop_policy('p1');
SELECT lavrel.drop_policy('p2');
DROP TABLE docs, dual, only_label;
DROP ROLE regress_cf_alice, regress_cf_dave, regress_cf_erin;
DROP FUNCTION try_stmt(text);
\i sql/include/drop_lavrel.sql

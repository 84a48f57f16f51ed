--
-- A table under a policy takes part in no inheritance: it can be neither
-- the parent nor the child of another table, nor a partition, however the
-- link would be made (CREATE TABLE or CREATE FOREIGN TABLE with INHERITS
-- or PARTITION OF, ALTER TABLE ... INHERIT, ALTER TABLE ... ATTACH
-- PARTITION).  PostgreSQL's own checks come first; links between tables
-- under no policy are made as usual, and a link made while access control
-- was off can still be removed.
--
\i sql/include/policy_p.sql

-- regress_ig_owner owns pt, under p, a plain table and a partitioned table
-- with the columns of pt; regress_ig_other owns a table of its own.
CREATE ROLE regress_ig_owner;
CREATE ROLE regress_ig_other;
GRANT CREATE ON SCHEMA public TO regress_ig_owner, regress_ig_other;
SET SESSION AUTHORIZATION regress_ig_owner;
CREATE TABLE regress_ig_pt (id int);
CREATE TABLE regress_ig_plain (id int, p_label int);
CREATE TABLE regress_ig_parted (id int, p_label int) PARTITION BY RANGE (id);
SET SESSION AUTHORIZATION regress_ig_other;
CREATE TABLE regress_ig_others (id int, p_label int);
RESET SESSION AUTHORIZATION;
SELECT lavrel.apply_table_policy('p', 'public', 'regress_ig_pt');
INSERT INTO regress_ig_pt VALUES (1);
CREATE FOREIGN DATA WRAPPER regress_ig_fdw;
CREATE SERVER regress_ig_server FOREIGN DATA WRAPPER regress_ig_fdw;

CREATE VIEW regress_ig_links AS
SELECT inhrelid::regclass AS child, inhparent::regclass AS parent FROM pg_inherits
 WHERE inhrelid::regclass::text LIKE 'regress_ig_%';
CREATE VIEW regress_ig_tables AS
SELECT relname FROM pg_class WHERE relname LIKE 'regress_ig_%' AND relkind IN ('r', 'p', 'f');

-- Every way of linking, by the owner of the tables and by the
-- administrator.
CREATE TABLE regress_ig_stmts (n int, stmt text);
INSERT INTO regress_ig_stmts VALUES
    (1, 'CREATE TABLE regress_ig_child () INHERITS (regress_ig_pt)'),
    (2, 'CREATE TABLE regress_ig_child () INHERITS (regress_ig_plain, regress_ig_pt)'),
    (3, 'CREATE TEMP TABLE regress_ig_child () INHERITS (public.regress_ig_pt)'),
    (4, 'CREATE TABLE regress_ig_child PARTITION OF regress_ig_pt FOR VALUES FROM (0) TO (10)'),
    (5, 'ALTER TABLE regress_ig_plain INHERIT regress_ig_pt'),
    (6, 'ALTER TABLE regress_ig_pt INHERIT regress_ig_plain'),
    (7, 'ALTER TABLE regress_ig_parted ATTACH PARTITION regress_ig_pt FOR VALUES FROM (0) TO (10)'),
    (8, 'ALTER TABLE regress_ig_parted ATTACH PARTITION regress_ig_pt DEFAULT'),
    (9, 'ALTER TABLE regress_ig_pt ATTACH PARTITION regress_ig_plain FOR VALUES FROM (0) TO (10)'),
    (10, 'CREATE SCHEMA regress_ig_s CREATE TABLE regress_ig_child () INHERITS (public.regress_ig_pt)');
GRANT SELECT ON regress_ig_stmts TO PUBLIC;
GRANT CREATE ON DATABASE :"DBNAME" TO regress_ig_owner;
SET SESSION AUTHORIZATION regress_ig_owner;
SELECT n, try_stmt(stmt) AS outcome FROM regress_ig_stmts ORDER BY n;
RESET SESSION AUTHORIZATION;
SELECT n, try_stmt(stmt) AS outcome FROM regress_ig_stmts ORDER BY n;
-- Foreign tables too.
SELECT stmt, try_stmt(stmt) AS outcome FROM (VALUES
    ($$CREATE FOREIGN TABLE regress_ig_child () INHERITS (regress_ig_pt) SERVER regress_ig_server$$),
    ($$CREATE FOREIGN TABLE regress_ig_child PARTITION OF regress_ig_pt
         FOR VALUES FROM (0) TO (10) SERVER regress_ig_server$$)
) AS t(stmt);
BEGIN;
CREATE FOREIGN TABLE regress_ig_foreign (id int, p_label int) SERVER regress_ig_server;
SELECT try_stmt($$ALTER FOREIGN TABLE regress_ig_foreign INHERIT regress_ig_pt$$);
ROLLBACK;
-- The refusal in full.
ALTER TABLE regress_ig_plain INHERIT regress_ig_pt;
-- Nothing was created or linked; the rows are where they were.
SELECT * FROM regress_ig_links;
SELECT * FROM regress_ig_tables ORDER BY relname;
SELECT * FROM regress_ig_pt;

-- PostgreSQL's own checks first: a role that owns neither table gets
-- PostgreSQL's refusal.
SET SESSION AUTHORIZATION regress_ig_other;
SELECT stmt, try_stmt(stmt) AS outcome FROM (VALUES
    ($$CREATE TABLE regress_ig_child () INHERITS (regress_ig_pt)$$),
    ($$ALTER TABLE regress_ig_others INHERIT regress_ig_pt$$),
    ($$ALTER TABLE regress_ig_pt INHERIT regress_ig_others$$)
) AS t(stmt);
RESET SESSION AUTHORIZATION;

-- Tables under no policy are linked as usual.
SET SESSION AUTHORIZATION regress_ig_owner;
CREATE TABLE regress_ig_child () INHERITS (regress_ig_plain);
CREATE TABLE regress_ig_part PARTITION OF regress_ig_parted FOR VALUES FROM (0) TO (10);
RESET SESSION AUTHORIZATION;
ALTER TABLE regress_ig_others INHERIT regress_ig_plain;
SELECT * FROM regress_ig_links ORDER BY child::text;
ALTER TABLE regress_ig_others NO INHERIT regress_ig_plain;
DROP TABLE regress_ig_child, regress_ig_part;

-- Links made while access control was off can still be removed once it is
-- on again, and the tables in them dropped.
ALTER SYSTEM SET lavrel.enable_mac = off;
SELECT pg_reload_conf();
\c
CREATE TABLE regress_ig_child () INHERITS (regress_ig_pt);
ALTER TABLE regress_ig_pt INHERIT regress_ig_plain;
ALTER SYSTEM RESET lavrel.enable_mac;
SELECT pg_reload_conf();
\c
SHOW lavrel.enable_mac;
SELECT * FROM regress_ig_links ORDER BY child::text;
ALTER TABLE regress_ig_pt NO INHERIT regress_ig_plain;
DROP TABLE regress_ig_child;
SELECT * FROM regress_ig_links;

-- Released from its policy, the table may be linked.
SELECT lavrel.remove_table_policy('p', 'public', 'regress_ig_pt', true);
ALTER TABLE regress_ig_pt ADD COLUMN p_label int;
ALTER TABLE regress_ig_parted ATTACH PARTITION regress_ig_pt FOR VALUES FROM (0) TO (10);
SELECT * FROM regress_ig_links;

-- Clean up.
\i sql/include/drop_policy_p.sql
DROP VIEW regress_ig_links, regress_ig_tables;
DROP TABLE regress_ig_parted, regress_ig_plain, regress_ig_others, regress_ig_stmts;
DROP SERVER regress_ig_server;
DROP FOREIGN DATA WRAPPER regress_ig_fdw;
REVOKE CREATE ON SCHEMA public FROM regress_ig_owner, regress_ig_other;
REVOKE CREATE ON DATABASE :"DBNAME" FROM regress_ig_owner;
DROP ROLE regress_ig_owner, regress_ig_other, regress_mid_user;
\i sql/include/drop_lavrel.sql

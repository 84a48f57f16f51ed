--
-- The unload entry point: it empties every hook lavrel filled but the
-- session hook, and gives the utility hook back to the one lavrel found at
-- load.  The test wrapper puts the hooks back afterwards, so that the
-- guards, the label filter and object mediation go on working here.
--
CREATE EXTENSION lavrel;
CREATE EXTENSION lavrel_test;
\i sql/include/try_stmt.sql

SELECT lavrel.create_policy('p', 'p_label');
SELECT lavrel.create_level('p', 'low', 10), lavrel.create_label('p', 'low', 10);
SELECT lavrel.set_user_labels('p', 'postgres', 'low');
SELECT lavrel.set_user_privs('p', 'postgres', 'FULL');
CREATE ROLE regress_uh_owner;
CREATE ROLE regress_uh_nobody;
GRANT CREATE ON SCHEMA public TO regress_uh_owner;
SET SESSION AUTHORIZATION regress_uh_owner;
CREATE TABLE regress_uh_t (id int);
GRANT SELECT ON regress_uh_t TO regress_uh_nobody;
RESET SESSION AUTHORIZATION;
SELECT lavrel.apply_table_policy('p', 'public', 'regress_uh_t');
INSERT INTO regress_uh_t VALUES (1);
CREATE VIEW regress_uh_v AS SELECT 'labelled view' AS what;
GRANT SELECT ON regress_uh_v TO regress_uh_nobody;
SELECT lavrel.apply_object_policy('p', 'view', 'public', 'regress_uh_v', 'low');

-- Each hook before and after the unload entry point.
SELECT * FROM lavrel_test.pg_fini();
-- Put back, they are what they were: a second call sees the same.
SELECT * FROM lavrel_test.pg_fini();

-- Everything lavrel does still happens in this backend: the utility
-- guards, the ALTER TABLE guard, the label filter and object mediation.
SELECT try_stmt($$DROP TABLE regress_uh_t$$);
SET SESSION AUTHORIZATION regress_uh_owner;
SELECT try_stmt($$ALTER TABLE regress_uh_t DROP COLUMN p_label$$);
SET SESSION AUTHORIZATION regress_uh_nobody;
SELECT * FROM regress_uh_t;
SELECT try_stmt($$SELECT * FROM regress_uh_v$$);
RESET SESSION AUTHORIZATION;
SELECT * FROM regress_uh_t;
SELECT * FROM regress_uh_v;

SELECT lavrel.drop_policy('p');
DELETE FROM lavrel.lavrel_obj;
DROP VIEW regress_uh_v;
DROP TABLE regress_uh_t;
REVOKE CREATE ON SCHEMA public FROM regress_uh_owner;
DROP ROLE regress_uh_owner, regress_uh_nobody;
DROP FUNCTION try_stmt(text);
DROP EXTENSION lavrel_test;
\i sql/include/drop_lavrel.sql

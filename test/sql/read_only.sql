--
-- In a read-only transaction every function that changes the catalogs is
-- refused as PostgreSQL refuses any write there (25006), right after the
-- permission check and before its arguments or the catalogs are looked
-- at.  The session label functions, the listings and the conversions write
-- no catalog and keep working.
--
CREATE EXTENSION lavrel;
\i sql/include/try_stmt.sql

SELECT lavrel.create_policy('p', 'p_col');
SELECT lavrel.create_level('p', 'low', 10);
SELECT lavrel.create_level('p', 'high', 30);
SELECT lavrel.create_compartment('p', 'a', 1);
SELECT lavrel.create_label('p', 'low', 10);
SELECT lavrel.create_label('p', 'high', 30);
SELECT lavrel.set_user_labels('p', 'postgres', 'high');
CREATE ROLE regress_ro_user;
SELECT lavrel.set_user_labels('p', 'regress_ro_user', 'low');
CREATE TABLE regress_ro_t (id int);
SELECT lavrel.apply_table_policy('p', 'public', 'regress_ro_t');
CREATE VIEW regress_ro_v AS SELECT 1 AS one;
SELECT lavrel.apply_object_policy('p', 'view', 'public', 'regress_ro_v', 'low');
CREATE TABLE regress_ro_other (id int);

-- Calls that would succeed in a read-write transaction.
CREATE TABLE calls (n int, call text);
INSERT INTO calls VALUES
    (1, $$create_policy('q', 'q_col')$$), (2, $$disable_policy('p')$$),
    (3, $$enable_policy('p')$$), (4, $$create_level('p', 'mid', 20)$$),
    (5, $$drop_level('p', 30)$$), (6, $$drop_level('p', 'high')$$),
    (7, $$create_compartment('p', 'b', 2)$$), (8, $$drop_compartment('p', 1)$$),
    (9, $$drop_compartment('p', 'a')$$), (10, $$create_label('p', 'low:a', 11)$$),
    (11, $$alter_label('p', 30, 'high:a')$$), (12, $$alter_label('p', 'high', 'high:a')$$),
    (13, $$drop_label('p', 30)$$), (14, $$drop_label('p', 'high')$$),
    (15, $$apply_table_policy('p', 'public', 'regress_ro_other')$$),
    (16, $$remove_table_policy('p', 'public', 'regress_ro_t')$$),
    (17, $$apply_object_policy('p', 'view', 'public', 'regress_ro_v', 'high')$$),
    (18, $$drop_object_policy('p', 'view', 'public', 'regress_ro_v')$$),
    (19, $$set_user_labels('p', 'regress_ro_user', 'high')$$),
    (20, $$set_levels('p', 'regress_ro_user', 'high')$$),
    (21, $$set_compartments('p', 'regress_ro_user', 'a')$$),
    (22, $$set_default_label('p', 'regress_ro_user', 'low')$$),
    (23, $$set_row_label('p', 'regress_ro_user', 'low')$$),
    (24, $$set_user_privs('p', 'regress_ro_user', 'READ')$$),
    (25, $$drop_user_access('p', 'regress_ro_user')$$),
    (26, $$drop_policy('p')$$), (27, $$sync_object_names()$$);
CREATE VIEW catalog_rows AS
SELECT (SELECT count(*) FROM lavrel.lavrel_policy) AS policies,
       (SELECT count(*) FROM lavrel.lavrel_level) AS levels,
       (SELECT count(*) FROM lavrel.lavrel_compartment) AS compartments,
       (SELECT string_agg(label_id || ' ' || lavrel.label_to_char(label_id), ', '
                          ORDER BY label_id) FROM lavrel.lavrel_label) AS labels,
       (SELECT count(*) FROM lavrel.lavrel_policy_enforcement) AS tables,
       (SELECT count(*) FROM lavrel.lavrel_obj) AS objects,
       (SELECT string_agg(format('%s(%s)', user_oid::regrole, lavrel.privs_to_char(user_privs)), ', '
                          ORDER BY user_oid::regrole::text) FROM lavrel.lavrel_user) AS users;
SELECT * FROM catalog_rows;

BEGIN TRANSACTION READ ONLY;
SELECT call, try_stmt('SELECT lavrel.' || call) AS outcome FROM calls ORDER BY n;
-- Null arguments are not looked at before the refusal either.
SELECT try_stmt($$SELECT lavrel.create_level(NULL, NULL, NULL)$$);
-- What writes no catalog still works.
SELECT lavrel.set_session_label('p', 'low');
SELECT lavrel.set_session_row_label('p', 'low');
SELECT read_label, row_label FROM lavrel.show_session_labels();
SELECT lavrel.char_to_label('p', 'high'), lavrel.label_to_char(30);
SELECT policy_name FROM lavrel.policies();
SELECT relation_oid::regclass FROM lavrel.policy_enforcements();
SELECT * FROM regress_ro_t;
COMMIT;
SELECT * FROM catalog_rows;

-- default_transaction_read_only makes every transaction read-only.
SET default_transaction_read_only = on;
SELECT lavrel.set_user_privs('p', 'regress_ro_user', 'READ');
RESET default_transaction_read_only;
-- Anyone but the administrator is refused for the permission first.
SET ROLE regress_ro_user;
BEGIN TRANSACTION READ ONLY;
SELECT lavrel.create_level('p', 'mid', 20);
ROLLBACK;
RESET ROLE;
-- In a read-write transaction the same calls go through.
SELECT call, try_stmt('SELECT lavrel.' || call) AS outcome FROM calls
 WHERE n IN (4, 10, 24) ORDER BY n;
SELECT * FROM catalog_rows;

-- ---------------------------------------------------------------------
-- Clean up.  lavrel can be dropped only while access control is off.
-- ---------------------------------------------------------------------
DROP TABLE calls;
DROP VIEW catalog_rows;
SELECT lavrel.drop_object_policy('p', 'view', 'public', 'regress_ro_v');
SELECT lavrel.drop_policy('p', true);
DROP TABLE regress_ro_t, regress_ro_other;
DROP VIEW regress_ro_v;
DROP ROLE regress_ro_user;
DROP FUNCTION try_stmt(text);
\i sql/include/drop_lavrel.sql

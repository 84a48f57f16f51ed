--
-- The frame of every administrative function: who may call it, when, and
-- how each argument is checked before anything else is looked at.
--
CREATE EXTENSION lavrel;
\i sql/include/try_stmt.sql

-- Every function that only the administrator may call, each with null
-- arguments: the permission check comes before any argument check.
CREATE TABLE admin_calls (ord int, call text);
INSERT INTO admin_calls VALUES
    (1, 'lavrel.create_policy(NULL, NULL, NULL)'),
    (2, 'lavrel.drop_policy(NULL, NULL)'),
    (3, 'lavrel.enable_policy(NULL)'),
    (4, 'lavrel.disable_policy(NULL)'),
    (5, 'lavrel.apply_table_policy(NULL, NULL, NULL)'),
    (6, 'lavrel.remove_table_policy(NULL, NULL, NULL, NULL)'),
    (7, 'lavrel.create_level(NULL, NULL, NULL)'),
    (8, 'lavrel.drop_level(NULL, NULL::integer)'),
    (9, 'lavrel.drop_level(NULL, NULL::text)'),
    (10, 'lavrel.create_compartment(NULL, NULL, NULL)'),
    (11, 'lavrel.drop_compartment(NULL, NULL::integer)'),
    (12, 'lavrel.drop_compartment(NULL, NULL::text)'),
    (15, 'lavrel.create_label(NULL, NULL, NULL)'),
    (16, 'lavrel.drop_label(NULL, NULL::integer)'),
    (17, 'lavrel.drop_label(NULL, NULL::text)'),
    (18, 'lavrel.alter_label(NULL, NULL::integer, NULL)'),
    (19, 'lavrel.alter_label(NULL, NULL::text, NULL)'),
    (20, 'lavrel.show_session_labels()'),
    (21, 'lavrel.set_session_label(NULL, NULL)'),
    (22, 'lavrel.set_session_row_label(NULL, NULL)'),
    (23, 'lavrel.show_label_lookup()'),
    (24, 'lavrel.show_label_mediation()'),
    (25, 'lavrel.set_user_labels(NULL, NULL, NULL)'),
    (26, 'lavrel.set_levels(NULL, NULL, NULL)'),
    (27, 'lavrel.set_compartments(NULL, NULL, NULL)'),
    (28, 'lavrel.set_default_label(NULL, NULL, NULL)'),
    (29, 'lavrel.set_row_label(NULL, NULL, NULL)'),
    (30, 'lavrel.drop_user_access(NULL, NULL)'),
    (31, 'lavrel.set_user_privs(NULL, NULL, NULL)');

-- ---------------------------------------------------------------------
-- Only the bootstrap superuser administers: another superuser is refused,
-- naming the action it attempted, and so is an ordinary role.
-- ---------------------------------------------------------------------
CREATE ROLE regress_lavrel_super SUPERUSER LOGIN;
CREATE ROLE regress_lavrel_plain LOGIN;
\c - regress_lavrel_super
SELECT rolsuper FROM pg_roles WHERE rolname = current_user;
SELECT try_stmt($$SELECT lavrel.create_policy('p', 'p_col')$$);
SELECT call, try_stmt('SELECT ' || call) AS outcome FROM admin_calls ORDER BY ord;
\c - regress_lavrel_plain
SELECT try_stmt($$SELECT lavrel.create_policy('p', 'p_col')$$);
\c - postgres
-- Nothing was created by the refused calls.
SELECT count(*) FROM lavrel.lavrel_policy;

-- ---------------------------------------------------------------------
-- With access control off, every administrative function refuses before
-- its arguments are looked at, whoever calls it.  A new backend reads the
-- reloaded setting.
-- ---------------------------------------------------------------------
ALTER SYSTEM SET lavrel.enable_mac = off;
SELECT pg_reload_conf();
\c
SHOW lavrel.enable_mac;
SELECT call, try_stmt('SELECT ' || call) AS outcome FROM admin_calls ORDER BY ord;
\c - regress_lavrel_super
SELECT try_stmt($$SELECT lavrel.create_policy('p', 'p_col')$$);
\c - postgres
ALTER SYSTEM RESET lavrel.enable_mac;
SELECT pg_reload_conf();
\c
SHOW lavrel.enable_mac;

-- ---------------------------------------------------------------------
-- Null arguments, with the word each check uses.  No policy "nosuch"
-- exists: the checks run before any catalog lookup.
-- ---------------------------------------------------------------------
SELECT lavrel.create_policy('p', 'p_col');
SELECT lavrel.create_level('p', 'low', 10);
SELECT lavrel.create_level('p', 'high', 20);
SELECT lavrel.create_compartment('p', 'c', 1);
CREATE ROLE regress_lavrel_user;
SELECT lavrel.set_levels('p', 'regress_lavrel_user', 'high');

SELECT stmt, try_stmt(stmt) AS outcome FROM (VALUES
    ($$SELECT lavrel.create_policy(NULL, 'x_col')$$),
    ($$SELECT lavrel.create_policy('nosuch', NULL)$$),
    ($$SELECT lavrel.create_policy('nosuch', 'x_col', NULL)$$),
    ($$SELECT lavrel.drop_policy('nosuch', NULL)$$),
    ($$SELECT lavrel.create_level('nosuch', NULL, 1)$$),
    ($$SELECT lavrel.create_level('nosuch', 'l', NULL)$$),
    ($$SELECT lavrel.create_compartment('nosuch', NULL, 1)$$),
    -- a null compartment id is reported with the word "compartment name"
    ($$SELECT lavrel.create_compartment('nosuch', 'c', NULL)$$),
    ($$SELECT lavrel.create_label('nosuch', NULL, 1)$$),
    ($$SELECT lavrel.create_label('nosuch', 'low', NULL)$$),
    ($$SELECT lavrel.apply_table_policy('nosuch', NULL, 't')$$),
    ($$SELECT lavrel.apply_table_policy('nosuch', 'public', NULL)$$),
    ($$SELECT lavrel.remove_table_policy('nosuch', 'public', 't', NULL)$$),
    -- the user and the level and compartment strings are read after the
    -- policy and the user have been found
    ($$SELECT lavrel.set_levels('p', NULL, 'high')$$),
    ($$SELECT lavrel.set_levels('p', 'regress_lavrel_user', NULL)$$),
    ($$SELECT lavrel.set_compartments('p', 'regress_lavrel_user', NULL)$$)
) AS t(stmt);

-- A null privilege string is no error: it clears the privileges.
SELECT lavrel.set_user_privs('p', 'regress_lavrel_user', 'READ,FULL');
SELECT user_privs FROM lavrel.lavrel_user;
SELECT lavrel.set_user_privs('p', 'regress_lavrel_user', NULL);
SELECT user_privs FROM lavrel.lavrel_user;

-- ---------------------------------------------------------------------
-- Identifier arguments: folded unless quoted, nothing may follow them.
-- ---------------------------------------------------------------------
SELECT lavrel.create_policy('MyPolicy', 'my_col');
SELECT lavrel.create_policy('"MyPolicy"', '"My_Col"');
SELECT policy_name, policy_col_name FROM lavrel.lavrel_policy ORDER BY policy_oid;
SELECT stmt, try_stmt(stmt) AS outcome FROM (VALUES
    ($$SELECT lavrel.create_policy('abc def', 'x_col')$$),
    ($$SELECT lavrel.create_policy('abc.def', 'x_col')$$),
    ($$SELECT lavrel.create_policy(' abc', 'x_col')$$),
    ($$SELECT lavrel.create_policy('""', 'x_col')$$),
    ($$SELECT lavrel.create_policy('', 'x_col')$$),
    -- each argument names itself in the message
    ($$SELECT lavrel.create_policy('x', 'x col')$$),
    ($$SELECT lavrel.create_level('p', 'x y', 1)$$),
    ($$SELECT lavrel.create_compartment('p', 'x y', 1)$$),
    ($$SELECT lavrel.set_levels('p', 'x y', 'high')$$),
    ($$SELECT lavrel.apply_table_policy('p', 'x y', 't')$$),
    ($$SELECT lavrel.apply_table_policy('p', 'public', 'x y')$$)
) AS t(stmt);

-- In a database of a single-byte encoding, a name may hold any non-ASCII
-- character, as it may in SQL, whatever the locale calls a letter: here
-- LATIN1 with the C locale, where no non-ASCII character is a letter.
\set regress_db :DBNAME
CREATE DATABASE regress_latin1 ENCODING 'LATIN1' LC_COLLATE 'C' LC_CTYPE 'C'
    TEMPLATE template0;
\c regress_latin1
SET client_encoding = 'UTF8';
CREATE EXTENSION lavrel;
CREATE TABLE "tÉ×" (id int);
CREATE ROLE regress_é LOGIN;
SELECT lavrel.create_policy('pé', 'pé_col');
SELECT lavrel.create_policy('×p', '"É_col"');
SELECT lavrel.create_level('pé', 'bas', 1), lavrel.create_label('pé', 'bas', 10);
SELECT lavrel.apply_table_policy('pé', 'public', '"tÉ×"');
SELECT lavrel.set_user_labels('pé', 'regress_é', 'bas');
SELECT policy_name, policy_col_name FROM lavrel.policies() ORDER BY oid;
SELECT relation_oid::regclass FROM lavrel.policy_enforcements();
SELECT user_oid::regrole FROM lavrel.lavrel_user;
-- Roles belong to the cluster: this one goes while its name reads the same.
SELECT lavrel.drop_user_access('pé', 'regress_é');
DROP ROLE regress_é;
\c :regress_db
DROP DATABASE regress_latin1;

-- ---------------------------------------------------------------------
-- Level and compartment ids: only the low 16 bits count, and they must
-- lie in 1..9999.
-- ---------------------------------------------------------------------
SELECT stmt, try_stmt(stmt) AS outcome FROM (VALUES
    ($$SELECT lavrel.create_level('p', 'l0', 0)$$),
    ($$SELECT lavrel.create_level('p', 'l10000', 10000)$$),
    ($$SELECT lavrel.create_level('p', 'l65536', 65536)$$),
    ($$SELECT lavrel.create_level('p', 'lminus', -1)$$),
    ($$SELECT lavrel.drop_level('p', 0)$$),
    ($$SELECT lavrel.create_compartment('p', 'c0', 0)$$),
    ($$SELECT lavrel.create_compartment('p', 'c10000', 10000)$$),
    ($$SELECT lavrel.drop_compartment('p', 65536)$$)
) AS t(stmt);
SELECT lavrel.create_level('p', 'top', 9999);
SELECT lavrel.create_level('p', 'one', 65537);
SELECT level_id, level_name FROM lavrel.lavrel_level WHERE policy_oid = 1 ORDER BY level_id;
SELECT try_stmt($$SELECT lavrel.create_level('p', 'other', 1)$$);
SELECT lavrel.create_compartment('p', 'ctop', 9999);
SELECT lavrel.create_compartment('p', 'cone', 65538);
SELECT compartment_id, compartment_name FROM lavrel.lavrel_compartment
 WHERE policy_oid = 1 ORDER BY compartment_id;

-- ---------------------------------------------------------------------
-- Label ids: 1..99999999.
-- ---------------------------------------------------------------------
SELECT stmt, try_stmt(stmt) AS outcome FROM (VALUES
    ($$SELECT lavrel.create_label('p', 'low', 0)$$),
    ($$SELECT lavrel.create_label('p', 'low', -1)$$),
    ($$SELECT lavrel.create_label('p', 'low', 100000000)$$),
    ($$SELECT lavrel.drop_label('p', 100000000)$$)
) AS t(stmt);
SELECT lavrel.create_label('p', 'low', 99999999);
SELECT lavrel.create_label('p', 'high', 1);
SELECT label_id, level_id FROM lavrel.lavrel_label ORDER BY label_id;

-- ---------------------------------------------------------------------
-- Free-text arguments.  A label string may hold up to 4000 characters,
-- counted as characters, not bytes: this one, of 4000 characters, lists
-- 125 compartments with two-byte names.
-- ---------------------------------------------------------------------
SELECT count(*) AS created FROM (
    SELECT lavrel.create_compartment('p', repeat('é', 27) || lpad(i::text, 4, '0'), 100 + i)
      FROM generate_series(1, 124) AS i) AS s;
SELECT lavrel.create_compartment('p', repeat('é', 25) || '125', 225);
SELECT 'low:' || string_agg(repeat('é', 27) || lpad(i::text, 4, '0'), ',' ORDER BY i)
       || ',' || repeat('é', 25) || '125' AS long_label
  FROM generate_series(1, 124) AS i \gset
SELECT length(:'long_label') AS characters, octet_length(:'long_label') AS bytes;
SELECT lavrel.create_label('p', :'long_label', 500);
SELECT label_id, level_id, array_length(compartments::int2[], 1) AS compartments
  FROM lavrel.lavrel_label WHERE label_id = 500;
SELECT try_stmt(format('SELECT lavrel.create_label(%L, %L, 501)', 'p', :'long_label' || ','));
SELECT try_stmt(format('SELECT lavrel.create_label(%L, %L, 501)', 'p', repeat('x', 4001)));
SELECT try_stmt(format('SELECT lavrel.set_compartments(%L, %L, %L)',
                       'p', 'regress_lavrel_user', repeat('x', 4001)));
SELECT try_stmt(format('SELECT lavrel.set_user_privs(%L, %L, %L)',
                       'p', 'regress_lavrel_user', repeat('x', 4001)));
SELECT stmt, try_stmt(stmt) AS outcome FROM (VALUES
    ($$SELECT lavrel.create_label('p', '', 501)$$),
    ($$SELECT lavrel.set_levels('p', 'regress_lavrel_user', '')$$)
) AS t(stmt);
-- An empty compartment string means no compartments.
SELECT lavrel.set_compartments('p', 'regress_lavrel_user', 'c');
SELECT max_read_comps, max_write_comps, def_comps, row_comps, min_write_comps
  FROM lavrel.lavrel_user;
SELECT lavrel.set_compartments('p', 'regress_lavrel_user', '');
SELECT max_read_comps, max_write_comps, def_comps, row_comps, min_write_comps
  FROM lavrel.lavrel_user;

-- ---------------------------------------------------------------------
-- Tables that can never be protected: system catalogs and tables that
-- take part in inheritance, as parent or as child.
-- ---------------------------------------------------------------------
SELECT try_stmt($$SELECT lavrel.apply_table_policy('p', 'pg_catalog', 'pg_description')$$);
CREATE TABLE regress_parent (a int);
CREATE TABLE regress_child (b int) INHERITS (regress_parent);
SELECT stmt, try_stmt(stmt) AS outcome FROM (VALUES
    ($$SELECT lavrel.apply_table_policy('p', 'public', 'regress_parent')$$),
    ($$SELECT lavrel.apply_table_policy('p', 'public', 'regress_child')$$)
) AS t(stmt);
-- Nothing was changed by the refusals.
SELECT count(*) AS policy_columns FROM pg_attribute
 WHERE attname = 'p_col'
   AND attrelid IN ('pg_description'::regclass, 'regress_parent'::regclass,
                    'regress_child'::regclass);
SELECT count(*) AS enforcements FROM lavrel.lavrel_policy_enforcement;
-- Without its child, the parent is an ordinary table again, although
-- pg_class still says it has children until it is next analysed.
DROP TABLE regress_child;
SELECT relhassubclass FROM pg_class WHERE oid = 'regress_parent'::regclass;
SELECT lavrel.apply_table_policy('p', 'public', 'regress_parent');
SELECT relation_oid::regclass FROM lavrel.lavrel_policy_enforcement;

-- ---------------------------------------------------------------------
-- Clean up.  lavrel can be dropped only while access control is off.
-- ---------------------------------------------------------------------
SELECT lavrel.drop_policy('p');
SELECT lavrel.drop_policy('mypolicy');
SELECT lavrel.drop_policy('"MyPolicy"');
DROP TABLE regress_parent, admin_calls;
DROP FUNCTION try_stmt(text);
DROP ROLE regress_lavrel_super, regress_lavrel_plain, regress_lavrel_user;
\i sql/include/drop_lavrel.sql

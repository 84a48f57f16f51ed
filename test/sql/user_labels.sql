--
-- User authorizations: set_user_labels, set_levels, set_compartments,
-- set_default_label, set_row_label and drop_user_access, their defaults,
-- the rules by which a user's labels must dominate one another, and what
-- they store in lavrel.lavrel_user.
--
CREATE EXTENSION lavrel;
CREATE EXTENSION lavrel_test;
SET search_path = public, lavrel;

\i sql/include/try_stmt.sql

-- The authorizations as the administrator reads them: privileges, the
-- max, min write, default and row levels, and the max read, max write,
-- default, row and min write compartments.
CREATE VIEW user_rows AS
    SELECT r.rolname, p.policy_name AS pol, u.user_privs AS privs,
           u.max_level AS max, u.min_write_level AS min_w, u.def_level AS def,
           u.row_level AS row, u.max_read_comps AS read_c,
           u.max_write_comps AS write_c, u.def_comps AS def_c,
           u.row_comps AS row_c, u.min_write_comps AS min_w_c
      FROM lavrel.lavrel_user u
      JOIN pg_roles r ON r.oid = u.user_oid
      JOIN lavrel.lavrel_policy p USING (policy_oid);

-- Policy p: levels low 10, mid 20 and high 30 (created out of order),
-- compartments a 1, b 2 and c 3.  Policy r's lowest level has a name that
-- needs quoting; policy e has no levels.
SELECT create_policy('p', 'p_label');
SELECT create_level('p', 'high', 30), create_level('p', 'low', 10),
       create_level('p', 'mid', 20), create_compartment('p', 'a', 1),
       create_compartment('p', 'b', 2), create_compartment('p', 'c', 3);
SELECT create_policy('r', 'r_label');
SELECT create_level('r', 'top', 9), create_level('r', '"Bottom"', 2);
SELECT create_policy('e', 'e_label');
CREATE ROLE regress_lavrel_u1;
CREATE ROLE regress_lavrel_u2;
CREATE ROLE regress_lavrel_u3;
CREATE ROLE regress_lavrel_u4;
CREATE ROLE regress_lavrel_u5;
CREATE ROLE regress_lavrel_u6;
CREATE ROLE "regress_lavrel_Mixed";

--
-- set_user_labels
--
-- Only the max read label given: max write, row and default are the same
-- label; min write is the lowest level without compartments.  A new
-- authorization has no privileges.
SELECT set_user_labels('p', 'regress_lavrel_u1', 'high:a,b');
-- Max write given: row and default follow it.
SELECT set_user_labels('p', 'regress_lavrel_u2', 'high:a,b,c', 'high:a');
-- All five (max read, max write, min write, default, row).
SELECT set_user_labels('p', 'regress_lavrel_u3', 'high:a,b', 'high:a,b', 'mid:a',
                       'low', 'mid:b,a');
-- The default label follows a given row label.
SELECT set_user_labels('p', 'regress_lavrel_u4', 'high:a,b', row_label => 'mid:a');
-- The lowest level of r is written back so that it reads as its own name.
SELECT set_user_labels('r', 'REGRESS_LAVREL_U4', 'top');
SELECT * FROM user_rows ORDER BY rolname, pol;

-- Replacing an authorization keeps its privileges.
SELECT set_user_privs('p', 'regress_lavrel_u1', 'READ');
SELECT set_user_labels('p', 'regress_lavrel_u1', 'mid:c', min_write_label => 'low:c');
SELECT * FROM user_rows WHERE rolname = 'regress_lavrel_u1';

-- Max read and max write of different levels are refused before any
-- dominance rule is tried (max read does not dominate max write here).
SELECT try_stmt($$SELECT set_user_labels('p', 'regress_lavrel_u1', 'mid:a', 'high:a')$$);
-- The dominance rules, in the order in which they are checked.
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT set_user_labels('p', 'regress_lavrel_u1', 'high:a', 'high:a,b')$$),
    ($$SELECT set_user_labels('p', 'regress_lavrel_u1', 'high:a,b', 'high:a', 'low:b')$$),
    ($$SELECT set_user_labels('p', 'regress_lavrel_u1', 'high:a', 'high:a', 'low', 'high:b', 'high:a')$$),
    ($$SELECT set_user_labels('p', 'regress_lavrel_u1', 'high:a,b', 'high:a', 'low', 'high:a', 'high:b')$$),
    ($$SELECT set_user_labels('p', 'regress_lavrel_u1', 'high:a,b', 'high:a', 'low', 'high:b', 'high:a')$$),
    ($$SELECT set_user_labels('p', 'regress_lavrel_u1', 'high:a,b', 'high:a,b', 'low', 'mid:a', 'mid:b')$$),
    ($$SELECT set_user_labels('p', 'regress_lavrel_u1', 'high:a,b', 'high:a,b', 'mid:a', 'low', 'low:a')$$)) AS v(stmt);
-- Label strings and arguments.
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT set_user_labels('p', 'regress_lavrel_u1', NULL)$$),
    ($$SELECT set_user_labels('p', 'regress_lavrel_u1', '')$$),
    ($$SELECT set_user_labels('p', 'regress_lavrel_u1', 'high', '')$$),
    ($$SELECT set_user_labels('p', 'regress_lavrel_u1', 'high:x')$$),
    ($$SELECT set_user_labels('p', 'regress_lavrel_u1', 'high', 'high', 'top')$$),
    ($$SELECT set_user_labels('p', NULL, 'high')$$),
    ($$SELECT set_user_labels('p', 'regress_lavrel_nosuch', 'high')$$),
    ($$SELECT set_user_labels('p', 'regress_lavrel_u1 x', 'high')$$),
    ($$SELECT set_user_labels(NULL, 'regress_lavrel_u1', 'high')$$),
    ($$SELECT set_user_labels('nopol', 'regress_lavrel_u1', 'high')$$)) AS v(stmt);
-- Without a min write label the policy needs a lowest level.
SELECT try_stmt($$SELECT set_user_labels('e', 'regress_lavrel_u1', 'high')$$);
-- Nothing of the refused calls was stored.
SELECT * FROM user_rows WHERE rolname = 'regress_lavrel_u1';

--
-- set_levels (max, min write, default, row)
--
-- A new authorization: no compartments, no privileges; min write is the
-- lowest level, row the max level, default the row level.
SELECT set_levels('p', 'regress_lavrel_u5', 'high');
SELECT * FROM user_rows WHERE rolname = 'regress_lavrel_u5';
SELECT set_levels('p', 'regress_lavrel_u5', 'high', 'mid', 'low', 'mid');
SELECT * FROM user_rows WHERE rolname = 'regress_lavrel_u5';
SELECT set_levels('p', 'regress_lavrel_u5', 'high', row_level => 'mid');
SELECT * FROM user_rows WHERE rolname = 'regress_lavrel_u5';
-- An existing authorization keeps its compartments and privileges.
SELECT set_user_privs('p', 'regress_lavrel_u3', 'FULL');
SELECT set_levels('p', 'regress_lavrel_u3', 'high', 'low', 'low', 'high');
SELECT * FROM user_rows WHERE rolname = 'regress_lavrel_u3';
-- The level rules.
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT set_levels('p', 'regress_lavrel_u5', 'mid', NULL, NULL, 'high')$$),
    ($$SELECT set_levels('p', 'regress_lavrel_u5', 'high', 'low', 'high', 'mid')$$),
    ($$SELECT set_levels('p', 'regress_lavrel_u5', 'high', 'high', 'low', 'mid')$$)) AS v(stmt);
-- Level strings.
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT set_levels('p', 'regress_lavrel_u5', NULL)$$),
    ($$SELECT set_levels('p', 'regress_lavrel_u5', '')$$),
    ($$SELECT set_levels('p', 'regress_lavrel_u5', 'high', '')$$),
    ($$SELECT set_levels('p', 'regress_lavrel_u5', 'high', 'nosuch')$$),
    ($$SELECT set_levels('p', 'regress_lavrel_u5', 'high:a')$$),
    ($$SELECT set_levels('nopol', NULL, 'high')$$)) AS v(stmt);
SELECT * FROM user_rows WHERE rolname = 'regress_lavrel_u5';

--
-- set_compartments (read, write, default, row, min write)
--
-- Only after levels or labels: refused before the compartment arguments
-- are looked at, with the names quoted as identifiers.
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT set_compartments('p', 'regress_lavrel_u6', NULL)$$),
    ($$SELECT set_compartments('p', '"regress_lavrel_Mixed"', 'a')$$)) AS v(stmt);
-- Write follows read, row follows write, default follows row; min write
-- is empty, not a copy of the row compartments.  Levels and privileges
-- stay.
SELECT set_user_privs('p', 'regress_lavrel_u5', 'WRITEUP');
SELECT set_levels('p', 'regress_lavrel_u5', 'high');
SELECT set_compartments('p', 'regress_lavrel_u5', 'a,b');
SELECT * FROM user_rows WHERE rolname = 'regress_lavrel_u5';
SELECT set_compartments('p', 'regress_lavrel_u5', 'a,b,c', 'b,a', NULL, 'a');
SELECT * FROM user_rows WHERE rolname = 'regress_lavrel_u5';
SELECT set_compartments('p', 'regress_lavrel_u5', 'c,b,a,', 'a,b', 'a', 'a,b', 'b');
SELECT * FROM user_rows WHERE rolname = 'regress_lavrel_u5';
-- An empty string is the empty set.
SELECT set_compartments('p', 'regress_lavrel_u5', '');
SELECT * FROM user_rows WHERE rolname = 'regress_lavrel_u5';
-- The compartment rules.
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT set_compartments('p', 'regress_lavrel_u5', 'a', 'a,b')$$),
    ($$SELECT set_compartments('p', 'regress_lavrel_u5', 'a,b', 'a', NULL, 'b')$$),
    ($$SELECT set_compartments('p', 'regress_lavrel_u5', 'a,b', 'a,b', 'b', 'a')$$),
    ($$SELECT set_compartments('p', 'regress_lavrel_u5', 'a,b', 'a,b', 'a', 'a', 'b')$$)) AS v(stmt);
-- Compartment strings.
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT set_compartments('p', 'regress_lavrel_u5', NULL)$$),
    ($$SELECT set_compartments('p', 'regress_lavrel_u5', 'x')$$),
    ($$SELECT set_compartments('p', 'regress_lavrel_u5', 'a,A')$$),
    ($$SELECT set_compartments('p', 'regress_lavrel_u5', 'a b')$$),
    ($$SELECT set_compartments('p', 'regress_lavrel_u5', 'high:a')$$),
    ($$SELECT set_compartments('p', 'regress_lavrel_u5', 'a,,b')$$)) AS v(stmt);
-- 4000 characters pass the length check (and fail on the repeated
-- compartment); 4001 do not.
SELECT length('a' || repeat(',a', 1999) || ',') AS chars;
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT set_compartments('p', 'regress_lavrel_u5', 'a' || repeat(',a', 1999) || ',')$$),
    ($$SELECT set_compartments('p', 'regress_lavrel_u5', 'a' || repeat(',a', 1999) || ',x')$$)) AS v(stmt);
SELECT * FROM user_rows WHERE rolname = 'regress_lavrel_u5';

--
-- set_default_label and set_row_label
--
-- Only for an authorized user, refused before the label is looked at.
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT set_default_label('p', 'regress_lavrel_u6', NULL)$$),
    ($$SELECT set_row_label('p', 'regress_lavrel_u6', NULL)$$),
    ($$SELECT set_default_label('p', '"regress_lavrel_Mixed"', 'low')$$)) AS v(stmt);
SELECT set_user_labels('p', 'regress_lavrel_u6', 'high:a,b', NULL, NULL, 'low', 'mid:a');
SELECT set_user_privs('p', 'regress_lavrel_u6', 'READ,FULL');
SELECT * FROM user_rows WHERE rolname = 'regress_lavrel_u6';
-- Each replaces its own label only.
SELECT set_default_label('p', 'regress_lavrel_u6', 'mid:a');
SELECT * FROM user_rows WHERE rolname = 'regress_lavrel_u6';
SELECT set_row_label('p', 'regress_lavrel_u6', 'high:b,a');
SELECT * FROM user_rows WHERE rolname = 'regress_lavrel_u6';
-- A default above the row label, or beside the max read label; a row
-- label beside the max write label, or below the default.
SELECT set_row_label('p', 'regress_lavrel_u6', 'mid:a');
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT set_default_label('p', 'regress_lavrel_u6', 'high')$$),
    ($$SELECT set_default_label('p', 'regress_lavrel_u6', 'high:c')$$),
    ($$SELECT set_row_label('p', 'regress_lavrel_u6', 'high:c')$$),
    ($$SELECT set_row_label('p', 'regress_lavrel_u6', 'low')$$),
    ($$SELECT set_default_label('p', 'regress_lavrel_u6', '')$$),
    ($$SELECT set_row_label('p', 'regress_lavrel_u6', 'mid:x')$$)) AS v(stmt);
SELECT * FROM user_rows WHERE rolname = 'regress_lavrel_u6';

--
-- drop_user_access
--
SELECT drop_user_access('p', 'regress_lavrel_u2');
SELECT count(*) FROM user_rows WHERE rolname = 'regress_lavrel_u2';
SELECT try_stmt($$SELECT drop_user_access('p', 'regress_lavrel_u2')$$);
-- The user of another policy only.
SELECT try_stmt($$SELECT drop_user_access('r', 'regress_lavrel_u1')$$);
-- Both names are read before the policy is looked up.
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT drop_user_access('nopol', NULL)$$),
    ($$SELECT drop_user_access('nopol', 'regress_lavrel_u1')$$),
    ($$SELECT drop_user_access('p', 'regress_lavrel_nosuch')$$)) AS v(stmt);

--
-- Only the administrator, and only with access control on.
--
CREATE ROLE regress_lavrel_su SUPERUSER;
SET ROLE regress_lavrel_su;
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT set_user_labels(NULL, NULL, NULL)$$),
    ($$SELECT set_levels(NULL, NULL, NULL)$$),
    ($$SELECT set_compartments(NULL, NULL, NULL)$$),
    ($$SELECT set_default_label(NULL, NULL, NULL)$$),
    ($$SELECT set_row_label(NULL, NULL, NULL)$$),
    ($$SELECT drop_user_access(NULL, NULL)$$)) AS v(stmt);
RESET ROLE;
ALTER SYSTEM SET lavrel.enable_mac = off;
SELECT lavrel_test.reload_enable_mac();
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT set_user_labels(NULL, NULL, NULL)$$),
    ($$SELECT set_levels(NULL, NULL, NULL)$$),
    ($$SELECT set_compartments(NULL, NULL, NULL)$$),
    ($$SELECT set_default_label(NULL, NULL, NULL)$$),
    ($$SELECT set_row_label(NULL, NULL, NULL)$$),
    ($$SELECT drop_user_access(NULL, NULL)$$)) AS v(stmt);
ALTER SYSTEM RESET lavrel.enable_mac;
SELECT lavrel_test.reload_enable_mac();
SELECT * FROM user_rows ORDER BY rolname, pol;

-- Clean up: dropping the policies removes the authorizations.
SELECT drop_policy('p'), drop_policy('r'), drop_policy('e');
DROP ROLE regress_lavrel_u1, regress_lavrel_u2, regress_lavrel_u3,
          regress_lavrel_u4, regress_lavrel_u5, regress_lavrel_u6,
          "regress_lavrel_Mixed", regress_lavrel_su;
DROP VIEW user_rows;
DROP FUNCTION try_stmt(text);
DROP EXTENSION lavrel_test;
\i sql/include/drop_lavrel.sql

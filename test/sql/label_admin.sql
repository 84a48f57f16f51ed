--
-- Label administration: create_label, alter_label and drop_label, by label
-- id and by label text, and what they leave in lavrel.lavrel_label.
--
CREATE EXTENSION lavrel;
CREATE EXTENSION lavrel_test;
SET search_path = public, lavrel;

\i sql/include/try_stmt.sql

-- The label catalog as the administrator reads it.
CREATE VIEW label_rows AS
    SELECT l.label_id, p.policy_name, l.level_id, l.compartments,
           l.label_reserved IS NULL AS reserved_is_null
      FROM lavrel.lavrel_label l JOIN lavrel.lavrel_policy p USING (policy_oid);

-- Policies p and q both have a level named low with id 10.
SELECT create_policy('p', 'p_label'), create_policy('q', 'q_label');
SELECT create_level('p', 'low', 10), create_level('p', 'high', 30),
       create_compartment('p', 'a', 1), create_compartment('p', 'b', 2),
       create_compartment('p', 'c', 3),
       create_level('q', 'low', 10), create_compartment('q', 'qa', 1);

-- New labels: the compartments are stored in ascending order whatever the
-- text, label_reserved is null, and a label id is the administrator's own.
SELECT create_label('p', 'low', 1), create_label('p', 'high:c,a', 2),
       create_label('p', 'HIGH:B', 3), create_label('p', 'high:a,', 4),
       create_label('P', 'high:', 5), create_label('q', 'low:qa', 10);
-- The same level and compartments in another policy are another label.
SELECT create_label('q', 'low', 11);
SELECT * FROM label_rows ORDER BY label_id;

-- A label id is unique over all policies: 10 belongs to q.
SELECT try_stmt($$SELECT create_label('p', 'low:a', 10)$$);
-- The id is checked before the text is read.
SELECT try_stmt($$SELECT create_label('p', 'nosuch', 1)$$);
-- Within a policy a level and compartment set has one label, however the
-- text spells it.
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT create_label('p', 'high:a', 20)$$),
    ($$SELECT create_label('p', 'HIGH:A', 20)$$),
    ($$SELECT create_label('p', 'high:a,c', 20)$$),
    ($$SELECT create_label('p', 'high', 20)$$)) AS v(stmt);
-- Errors of the label text pass through.
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT create_label('p', 'nosuch:a', 20)$$),
    ($$SELECT create_label('p', 'high:a,a', 20)$$),
    ($$SELECT create_label('p', 'high :a', 20)$$),
    ($$SELECT create_label('p', 'high:qa', 20)$$)) AS v(stmt);
-- The arguments.
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT create_label('nopol', 'high', 20)$$),
    ($$SELECT create_label(NULL, 'high', 20)$$),
    ($$SELECT create_label('p', NULL, 20)$$),
    ($$SELECT create_label('p', '', 20)$$),
    ($$SELECT create_label('p', 'low:b', NULL)$$),
    ($$SELECT create_label('p', 'low:b', 0)$$),
    ($$SELECT create_label('p', 'low:b', 100000000)$$)) AS v(stmt);
-- The highest label id is accepted.
SELECT create_label('p', 'low:b', 99999999);
SELECT * FROM label_rows WHERE label_id = 99999999;

-- alter_label by id keeps the id and label_reserved and replaces the
-- level and compartments.
SELECT alter_label('p', 3, 'low:c,b');
SELECT * FROM label_rows WHERE label_id = 3;
-- An unknown id is reported before the label's policy or the new text is
-- looked at.
SELECT try_stmt($$SELECT alter_label('p', 555, 'nosuch')$$);
-- An id of another policy: this message ends in a blank (quoted here to
-- show it).
SELECT quote_literal(try_stmt($$SELECT alter_label('p', 10, 'low:a')$$));
-- The new text may not name a label the policy has, itself included.
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT alter_label('p', 1, 'low')$$),
    ($$SELECT alter_label('p', 1, 'HIGH:A')$$),
    ($$SELECT alter_label('p', 1, 'low:q')$$),
    ($$SELECT alter_label('p', NULL::int, 'low:a')$$),
    ($$SELECT alter_label('p', 0, 'low:a')$$),
    ($$SELECT alter_label('p', 1, NULL)$$),
    ($$SELECT alter_label('p', 1, '')$$),
    ($$SELECT alter_label('nopol', 1, 'low:a')$$)) AS v(stmt);

-- alter_label by text: the label found by its current text gets the new
-- one and keeps its id.
SELECT alter_label('p', 'low:b,c', 'high:b,c');
SELECT * FROM label_rows WHERE label_id = 3;
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT alter_label('p', 'low:a', 'high:b')$$),
    ($$SELECT alter_label('p', 'high:c,b', 'high:a,c')$$),
    ($$SELECT alter_label('p', 'high:b,c', 'HIGH:C,B')$$),
    ($$SELECT alter_label('p', 'high:x', 'high:b')$$),
    ($$SELECT alter_label('p', 'high:b,c', 'high:x')$$),
    ($$SELECT alter_label('q', 'high:b,c', 'low')$$),
    ($$SELECT alter_label('p', NULL::text, 'low:a')$$),
    ($$SELECT alter_label('p', 'high:b,c', NULL)$$),
    ($$SELECT alter_label('p', '', 'low:a')$$),
    ($$SELECT alter_label('nopol', 'high:b,c', 'low:a')$$)) AS v(stmt);
-- Nothing of the failed calls remains.
SELECT * FROM label_rows ORDER BY label_id;

-- drop_label by id.  An id of another policy: the same words as the
-- alter_label message, without the blank at the end.
SELECT quote_literal(try_stmt($$SELECT drop_label('p', 10)$$));
-- An unknown id fails where its policy is looked up.
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT drop_label('p', 555)$$),
    ($$SELECT drop_label('p', NULL::int)$$),
    ($$SELECT drop_label('p', 100000000)$$),
    ($$SELECT drop_label('nopol', 1)$$)) AS v(stmt);
SELECT drop_label('p', 99999999);
SELECT count(*) FROM label_rows WHERE label_id = 99999999;

-- drop_label by text.
SELECT drop_label('p', 'HIGH:');
SELECT count(*) FROM label_rows WHERE label_id = 5;
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT drop_label('p', 'high:')$$),
    ($$SELECT drop_label('p', 'low:qa')$$),
    ($$SELECT drop_label('p', NULL::text)$$),
    ($$SELECT drop_label('nopol', 'low')$$)) AS v(stmt);

-- Labels in use.  Rows of a protected table carry label ids (written here
-- with access control off, so that nothing mediates them), and a user is
-- authorized at the level and compartments of label 2.
CREATE TABLE t (x int);
SELECT apply_table_policy('p', 'public', 't');
CREATE ROLE regress_lavrel_user;
SELECT set_user_labels('p', 'regress_lavrel_user', 'high:a,c');
ALTER SYSTEM SET lavrel.enable_mac = off;
SELECT lavrel_test.reload_enable_mac();
INSERT INTO t VALUES (1, 1), (2, 2), (3, 3);
ALTER SYSTEM RESET lavrel.enable_mac;
SELECT lavrel_test.reload_enable_mac();
-- Altering label 1 changes what its id stands for; dropping label 2, in
-- use by rows and by the user's labels, succeeds and touches neither.
SELECT alter_label('p', 1, 'high:b');
SELECT drop_label('p', 2);
SELECT label_to_char(1);
SELECT try_stmt($$SELECT label_to_char(2)$$);
SELECT max_level, max_read_comps, max_write_comps FROM lavrel.lavrel_user;
ALTER SYSTEM SET lavrel.enable_mac = off;
SELECT lavrel_test.reload_enable_mac();
SELECT * FROM t ORDER BY x;
ALTER SYSTEM RESET lavrel.enable_mac;
SELECT lavrel_test.reload_enable_mac();

-- Only the administrator may change labels: another superuser is refused
-- before any argument is looked at ...
CREATE ROLE regress_lavrel_su SUPERUSER;
SET ROLE regress_lavrel_su;
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT create_label(NULL, NULL, NULL)$$),
    ($$SELECT alter_label(NULL, NULL::int, NULL)$$),
    ($$SELECT alter_label(NULL, NULL::text, NULL)$$),
    ($$SELECT drop_label(NULL, NULL::int)$$),
    ($$SELECT drop_label(NULL, NULL::text)$$)) AS v(stmt);
RESET ROLE;
-- ... and so is everyone while access control is off.
ALTER SYSTEM SET lavrel.enable_mac = off;
SELECT lavrel_test.reload_enable_mac();
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT create_label(NULL, NULL, NULL)$$),
    ($$SELECT alter_label(NULL, NULL::int, NULL)$$),
    ($$SELECT alter_label(NULL, NULL::text, NULL)$$),
    ($$SELECT drop_label(NULL, NULL::int)$$),
    ($$SELECT drop_label(NULL, NULL::text)$$)) AS v(stmt);
ALTER SYSTEM RESET lavrel.enable_mac;
SELECT lavrel_test.reload_enable_mac();
SELECT * FROM label_rows ORDER BY label_id;

-- Clean up.
SELECT drop_user_access('p', 'regress_lavrel_user');
SELECT remove_table_policy('p', 'public', 't');
SELECT drop_policy('p'), drop_policy('q');
DROP TABLE t;
DROP ROLE regress_lavrel_user, regress_lavrel_su;
DROP VIEW label_rows;
DROP FUNCTION try_stmt(text);
DROP EXTENSION lavrel_test;
\i sql/include/drop_lavrel.sql

--
-- Labelling views, functions and procedures: apply_object_policy and
-- drop_object_policy, their argument checks and errors, and the rows they
-- leave in lavrel.lavrel_obj.  Whether a labelled object may then be used
-- is the subject of object_mediation.
--
CREATE EXTENSION lavrel;
\i sql/include/try_stmt.sql

\i sql/include/policies_p_q.sql

CREATE SCHEMA regress_op_s;
CREATE VIEW regress_op_v AS SELECT 1 AS one;
CREATE VIEW regress_op_s.regress_op_v2 AS SELECT 2 AS two;
CREATE TABLE regress_op_t (id int);
CREATE FUNCTION regress_op_f() RETURNS int LANGUAGE sql AS 'SELECT 1';
CREATE PROCEDURE regress_op_proc() LANGUAGE sql AS 'SELECT 1';
-- Two overloads, the one with a text argument created first.
CREATE FUNCTION regress_op_over(text) RETURNS int LANGUAGE sql AS 'SELECT 1';
CREATE FUNCTION regress_op_over(int) RETURNS int LANGUAGE sql AS 'SELECT 2';
-- A function of the same name in another schema.
CREATE FUNCTION regress_op_s.regress_op_f() RETURNS int LANGUAGE sql AS 'SELECT 3';

-- The labels as lavrel.lavrel_obj holds them.
CREATE VIEW regress_op_rows AS
SELECT policy_name, obj_type, obj_namespace::regnamespace AS schema,
       CASE WHEN obj_type ILIKE 'view' THEN obj_oid::regclass::text
            ELSE obj_oid::regprocedure::text END AS object,
       label_id,
       policy_oid = (SELECT policy_oid FROM lavrel.lavrel_policy p
                      WHERE p.policy_name = o.policy_name) AS policy_oid_matches
  FROM lavrel.lavrel_obj o;

-- ---------------------------------------------------------------------
-- Labelling.  The kind word is accepted in any case and stored as given;
-- a view is found by name in its schema, a function or procedure as the
-- first of that name in the schema, and either word finds either.
-- ---------------------------------------------------------------------
SELECT lavrel.apply_object_policy('p', 'view', 'public', 'regress_op_v', 'low');
SELECT lavrel.apply_object_policy('p', 'VIEW', 'regress_op_s', 'regress_op_v2', 'mid');
SELECT lavrel.apply_object_policy('p', 'Function', 'public', 'regress_op_f', 'high');
SELECT lavrel.apply_object_policy('p', 'pRoCeDuRe', 'public', 'regress_op_proc', 'mid');
SELECT lavrel.apply_object_policy('q', 'procedure', 'regress_op_s', 'regress_op_f', 'x');
SELECT lavrel.apply_object_policy('q', 'function', 'public', 'regress_op_proc', 'x');
-- Policy and schema names are identifiers, folded unless quoted; the object
-- name is taken as it stands.
CREATE VIEW "Regress_Op_Mixed" AS SELECT 3 AS three;
SELECT lavrel.apply_object_policy('"p"', 'view', 'PUBLIC', 'Regress_Op_Mixed', 'low');
SELECT try_stmt($$SELECT lavrel.apply_object_policy('p', 'view', 'public', 'REGRESS_OP_V', 'low')$$);
SELECT try_stmt($$SELECT lavrel.apply_object_policy('p', 'view', 'public', '"Regress_Op_Mixed"', 'low')$$);
SELECT * FROM regress_op_rows ORDER BY policy_name, schema, object, label_id;

-- An overloaded name labels the first overload of the catalog's list of
-- functions by name, which is ordered by argument types: the one taking
-- integer (type oid 23) comes before the one taking text (25), though it
-- was created later.
SELECT lavrel.apply_object_policy('p', 'function', 'public', 'regress_op_over', 'high');
SELECT object FROM regress_op_rows WHERE object LIKE 'regress_op_over%';
SELECT oid::regprocedure AS first_by_argument_types
  FROM pg_proc WHERE proname = 'regress_op_over' ORDER BY proargtypes LIMIT 1;

-- Labelling again adds a row each time, with the same or another label.
SELECT lavrel.apply_object_policy('p', 'view', 'public', 'regress_op_v', 'high');
SELECT object, label_id FROM regress_op_rows
 WHERE object = 'regress_op_v' ORDER BY label_id;

-- ---------------------------------------------------------------------
-- Argument checks, in argument order, and the objects that cannot be
-- found.  Internal reports carry SQLSTATE XX000.
-- ---------------------------------------------------------------------
SELECT stmt, try_stmt(stmt) AS outcome FROM (VALUES
    ($$SELECT lavrel.apply_object_policy(NULL, NULL, NULL, NULL, NULL)$$),
    ($$SELECT lavrel.apply_object_policy('p', NULL, NULL, NULL, NULL)$$),
    ($$SELECT lavrel.apply_object_policy('p', 'table', NULL, NULL, NULL)$$),
    ($$SELECT lavrel.apply_object_policy('p', '', 'public', 'regress_op_t', 'low')$$),
    ($$SELECT lavrel.apply_object_policy('p', 'views', 'public', 'regress_op_v', 'low')$$),
    ($$SELECT lavrel.apply_object_policy('p', 'view', NULL, NULL, NULL)$$),
    ($$SELECT lavrel.apply_object_policy('p', 'view', 'public', NULL, NULL)$$),
    ($$SELECT lavrel.apply_object_policy('p', 'Function', 'public', NULL, 'low')$$),
    ($$SELECT lavrel.apply_object_policy('p', 'view', 'public', 'regress_op_v', NULL)$$),
    ($$SELECT lavrel.apply_object_policy('p', 'view', 'public', 'regress_op_v', '')$$),
    ($$SELECT lavrel.apply_object_policy('p', 'view', 'regress_nosuch', 'regress_op_v', 'low')$$),
    ($$SELECT lavrel.apply_object_policy('p', 'view', 'public', 'regress_nosuch', 'low')$$),
    ($$SELECT lavrel.apply_object_policy('p', 'view', 'regress_op_s', 'regress_op_v', 'low')$$),
    ($$SELECT lavrel.apply_object_policy('p', 'view', 'public', 'regress_op_t', 'low')$$),
    ($$SELECT lavrel.apply_object_policy('p', 'View', 'public', 'regress_op_f', 'low')$$),
    ($$SELECT lavrel.apply_object_policy('p', 'function', 'public', 'regress_nosuch', 'low')$$),
    ($$SELECT lavrel.apply_object_policy('p', 'PROCEDURE', 'regress_op_s', 'regress_op_proc', 'low')$$),
    ($$SELECT lavrel.apply_object_policy('p', 'function', 'public', 'regress_op_v', 'low')$$),
    -- the object is looked for before the policy
    ($$SELECT lavrel.apply_object_policy('regress_nosuch', 'view', 'public', 'regress_nosuch', 'low')$$),
    ($$SELECT lavrel.apply_object_policy('regress_nosuch', 'view', 'public', 'regress_op_v', 'low')$$),
    -- labels of another policy, and no label at all
    ($$SELECT lavrel.apply_object_policy('p', 'view', 'public', 'regress_op_v', 'x')$$),
    ($$SELECT lavrel.apply_object_policy('q', 'view', 'public', 'regress_op_v', 'low')$$),
    ($$SELECT lavrel.apply_object_policy('p', 'view', 'public', 'regress_op_v', 'low:nosuch')$$)
) AS t(stmt);

SELECT stmt, try_stmt(stmt) AS outcome FROM (VALUES
    ($$SELECT lavrel.drop_object_policy(NULL, NULL, NULL, NULL)$$),
    ($$SELECT lavrel.drop_object_policy('p', NULL, NULL, NULL)$$),
    ($$SELECT lavrel.drop_object_policy('p', 'index', NULL, NULL)$$),
    ($$SELECT lavrel.drop_object_policy('p', 'view', NULL, NULL)$$),
    ($$SELECT lavrel.drop_object_policy('p', 'VIEW', 'public', NULL)$$),
    ($$SELECT lavrel.drop_object_policy('p', 'view', 'regress_nosuch', 'regress_op_v')$$),
    ($$SELECT lavrel.drop_object_policy('p', 'view', 'public', 'regress_nosuch')$$),
    ($$SELECT lavrel.drop_object_policy('p', 'view', 'public', 'regress_op_t')$$),
    ($$SELECT lavrel.drop_object_policy('p', 'procedure', 'public', 'regress_nosuch')$$),
    ($$SELECT lavrel.drop_object_policy('regress_nosuch', 'view', 'public', 'regress_op_v')$$),
    -- nothing labelled under that policy
    ($$SELECT lavrel.drop_object_policy('q', 'View', 'public', 'regress_op_v')$$),
    ($$SELECT lavrel.drop_object_policy('p', 'Procedure', 'regress_op_s', 'regress_op_f')$$)
) AS t(stmt);
-- None of the failed calls left a row.
SELECT count(*) AS label_rows FROM lavrel.lavrel_obj;

-- Only the administrator labels objects; another superuser is refused too.
CREATE ROLE regress_op_user;
CREATE ROLE regress_op_super SUPERUSER;
SET SESSION AUTHORIZATION regress_op_user;
SELECT try_stmt($$SELECT lavrel.apply_object_policy('p', 'view', 'public', 'regress_op_v', 'low')$$);
SELECT try_stmt($$SELECT lavrel.drop_object_policy('p', 'view', 'public', 'regress_op_v')$$);
SET SESSION AUTHORIZATION regress_op_super;
SELECT try_stmt($$SELECT lavrel.apply_object_policy('p', 'view', 'public', 'regress_op_v', 'low')$$);
SELECT try_stmt($$SELECT lavrel.drop_object_policy('p', 'view', 'public', 'regress_op_v')$$);
RESET SESSION AUTHORIZATION;
SELECT count(*) AS label_rows FROM lavrel.lavrel_obj;

-- ---------------------------------------------------------------------
-- Dropping a label removes one row of the object under the policy per
-- call, whatever its label; the kind word may differ from the stored one.
-- ---------------------------------------------------------------------
SELECT object, label_id FROM regress_op_rows
 WHERE object = 'regress_op_v' ORDER BY label_id;
SELECT lavrel.drop_object_policy('p', 'view', 'public', 'regress_op_v');
SELECT object, label_id FROM regress_op_rows WHERE object = 'regress_op_v';
SELECT lavrel.drop_object_policy('P', 'View', 'PUBLIC', 'regress_op_v');
SELECT object, label_id FROM regress_op_rows WHERE object = 'regress_op_v';
SELECT try_stmt($$SELECT lavrel.drop_object_policy('p', 'view', 'public', 'regress_op_v')$$);
-- Only rows of the named policy go: regress_op_proc keeps its label of q.
SELECT lavrel.drop_object_policy('p', 'procedure', 'public', 'regress_op_proc');
SELECT try_stmt($$SELECT lavrel.drop_object_policy('p', 'procedure', 'public', 'regress_op_proc')$$);
SELECT * FROM regress_op_rows ORDER BY policy_name, schema, object, label_id;

-- ---------------------------------------------------------------------
-- Dropping a policy leaves its labels in lavrel_obj, and drop_object_policy
-- can no longer reach them through the policy's name.
-- ---------------------------------------------------------------------
SELECT lavrel.drop_policy('q');
SELECT * FROM regress_op_rows ORDER BY policy_name, schema, object, label_id;
SELECT try_stmt($$SELECT lavrel.drop_object_policy('q', 'procedure', 'public', 'regress_op_proc')$$);

-- ---------------------------------------------------------------------
-- Clean up.
-- ---------------------------------------------------------------------
SELECT lavrel.drop_policy('p');
DELETE FROM lavrel.lavrel_obj;
DROP VIEW regress_op_rows, regress_op_v, "Regress_Op_Mixed";
DROP TABLE regress_op_t;
DROP FUNCTION regress_op_f(), regress_op_over(text), regress_op_over(int);
DROP PROCEDURE regress_op_proc();
DROP SCHEMA regress_op_s CASCADE;
DROP ROLE regress_op_user, regress_op_super;
DROP FUNCTION try_stmt(text);
\i sql/include/drop_lavrel.sql

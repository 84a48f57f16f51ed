--
-- The use of labelled views, functions and procedures: a session may use
-- one only if it may read the object's label under every policy that
-- labels it.  Views are checked wherever a statement reads them, nested
-- views too; functions and procedures wherever they are called, also from
-- a view, from a SQL function the planner inlines, and by CALL.
--
CREATE EXTENSION lavrel;
\i sql/include/try_stmt.sql

\i sql/include/policies_p_q.sql

-- low reads low; high reads low to high; reader reads low and holds READ;
-- both reads high under p and x under q; qonly is authorized under q only;
-- nobody has no authorization at all.  The administrator reads what both
-- reads.
CREATE ROLE regress_om_low LOGIN;
CREATE ROLE regress_om_high LOGIN;
CREATE ROLE regress_om_reader;
CREATE ROLE regress_om_both;
CREATE ROLE regress_om_qonly;
CREATE ROLE regress_om_nobody;
SELECT lavrel.set_user_labels('p', u, 'low', 'low', 'low', 'low')
  FROM unnest(ARRAY['regress_om_low', 'regress_om_reader']) AS u;
SELECT lavrel.set_user_privs('p', 'regress_om_reader', 'READ');
SELECT lavrel.set_user_labels('p', u, 'high', 'high', 'high', 'high')
  FROM unnest(ARRAY['regress_om_high', 'regress_om_both', 'postgres']) AS u;
SELECT lavrel.set_user_labels('q', u, 'x')
  FROM unnest(ARRAY['regress_om_both', 'regress_om_qonly', 'postgres']) AS u;

-- Views: one per label, one unlabelled, and an unlabelled view over a
-- labelled one.
CREATE VIEW regress_om_v_low AS SELECT 'low view' AS what;
CREATE VIEW regress_om_v_high AS SELECT 'high view' AS what;
CREATE VIEW regress_om_v_plain AS SELECT 'plain view' AS what;
CREATE VIEW regress_om_v_inner AS SELECT 'inner view' AS what;
CREATE VIEW regress_om_v_outer AS SELECT what || ' through outer view' AS what
  FROM regress_om_v_inner;
SELECT lavrel.apply_object_policy('p', 'view', 'public', v, l)
  FROM (VALUES ('regress_om_v_low', 'low'), ('regress_om_v_high', 'high'),
               ('regress_om_v_inner', 'high')) AS t(v, l);

-- Functions and a procedure labelled high.  f_high cannot be inlined; the
-- view and the SQL function wrap_f use it; f_sql is a SQL function the
-- planner would inline into the calling query.
CREATE FUNCTION regress_om_f_high() RETURNS text LANGUAGE plpgsql
AS $$BEGIN RETURN 'f_high ran'; END$$;
CREATE VIEW regress_om_v_calls_f AS SELECT regress_om_f_high() AS what;
CREATE FUNCTION regress_om_wrap_f() RETURNS text LANGUAGE sql
AS 'SELECT regress_om_f_high()';
CREATE FUNCTION regress_om_f_sql(int) RETURNS int LANGUAGE sql IMMUTABLE
AS 'SELECT $1 + 1';
CREATE PROCEDURE regress_om_proc_high() LANGUAGE plpgsql
AS $$BEGIN RAISE NOTICE 'proc_high ran'; END$$;
-- Labelled under both policies.
CREATE FUNCTION regress_om_f_two() RETURNS text LANGUAGE plpgsql
AS $$BEGIN RETURN 'f_two ran'; END$$;
-- Two overloads; labelling by name labels the one taking integer, the
-- first of the catalog's list (see object_policies).
CREATE FUNCTION regress_om_over(text) RETURNS text LANGUAGE plpgsql
AS $$BEGIN RETURN 'over(text) ran'; END$$;
CREATE FUNCTION regress_om_over(int) RETURNS text LANGUAGE plpgsql
AS $$BEGIN RETURN 'over(int) ran'; END$$;
SELECT lavrel.apply_object_policy('p', k, 'public', o, 'high')
  FROM (VALUES ('function', 'regress_om_f_high'), ('function', 'regress_om_f_sql'),
               ('procedure', 'regress_om_proc_high'), ('function', 'regress_om_f_two'),
               ('function', 'regress_om_over')) AS t(k, o);
SELECT lavrel.apply_object_policy('q', 'function', 'public', 'regress_om_f_two', 'x');
GRANT SELECT ON regress_om_v_low, regress_om_v_high, regress_om_v_plain, regress_om_v_inner,
                regress_om_v_outer, regress_om_v_calls_f TO PUBLIC;

-- Every use, run by the session user of the moment.
CREATE VIEW regress_om_uses(use, stmt) AS VALUES
    ('labelled low view', $$SELECT * FROM regress_om_v_low$$),
    ('labelled high view', $$SELECT * FROM regress_om_v_high$$),
    ('unlabelled view', $$SELECT * FROM regress_om_v_plain$$),
    ('view over a labelled view', $$SELECT * FROM regress_om_v_outer$$),
    ('labelled view in a subquery', $$SELECT (SELECT what FROM regress_om_v_high)$$),
    ('function called directly', $$SELECT regress_om_f_high()$$),
    ('function in a view', $$SELECT * FROM regress_om_v_calls_f$$),
    ('function in an inlined SQL function', $$SELECT regress_om_wrap_f()$$),
    ('inlinable SQL function', $$SELECT regress_om_f_sql(1)$$),
    ('procedure by CALL', $$CALL regress_om_proc_high()$$),
    ('function under two policies', $$SELECT regress_om_f_two()$$),
    ('overload taking text', $$SELECT regress_om_over('a'::text)$$),
    ('overload taking integer', $$SELECT regress_om_over(1)$$);
GRANT SELECT ON regress_om_uses TO PUBLIC;

-- ---------------------------------------------------------------------
-- What each session may use.  Refusals are internal reports (XX000):
-- "read" for views, "execute" for functions and procedures, naming the
-- policy whose label the session may not read.
-- ---------------------------------------------------------------------
-- The administrator reads high under p and x under q: everything.
SELECT use, try_stmt(stmt) AS outcome FROM regress_om_uses;
-- The planner did inline the two SQL functions.
EXPLAIN (VERBOSE, COSTS OFF) SELECT regress_om_wrap_f(), regress_om_f_sql(1);
SET SESSION AUTHORIZATION regress_om_high;
SELECT use, try_stmt(stmt) AS outcome FROM regress_om_uses;
SET SESSION AUTHORIZATION regress_om_low;
SELECT use, try_stmt(stmt) AS outcome FROM regress_om_uses;
-- READ lets a session use objects of every label of the policy.
SET SESSION AUTHORIZATION regress_om_reader;
SELECT use, try_stmt(stmt) AS outcome FROM regress_om_uses;
-- No labels under p: only unlabelled objects and the q label.
SET SESSION AUTHORIZATION regress_om_qonly;
SELECT use, try_stmt(stmt) AS outcome FROM regress_om_uses;
SET SESSION AUTHORIZATION regress_om_nobody;
SELECT use, try_stmt(stmt) AS outcome FROM regress_om_uses;
-- A function labelled under two policies needs both labels.
SET SESSION AUTHORIZATION regress_om_both;
SELECT try_stmt($$SELECT regress_om_f_two()$$);
SET SESSION AUTHORIZATION regress_om_high;
SELECT try_stmt($$SELECT regress_om_f_two()$$);
SET SESSION AUTHORIZATION regress_om_qonly;
SELECT try_stmt($$SELECT regress_om_f_two()$$);
RESET SESSION AUTHORIZATION;

-- The refusal comes before the view or function does anything, also when
-- the statement is only planned.
SET SESSION AUTHORIZATION regress_om_low;
SELECT try_stmt($$EXPLAIN SELECT regress_om_f_sql(1)$$);
SELECT * FROM regress_om_v_outer;
RESET SESSION AUTHORIZATION;

-- ---------------------------------------------------------------------
-- Labels applied or dropped are seen at the next statement, also by a
-- backend that has used the object before.
-- ---------------------------------------------------------------------
SET SESSION AUTHORIZATION regress_om_low;
SELECT * FROM regress_om_v_plain;
RESET SESSION AUTHORIZATION;
SELECT lavrel.apply_object_policy('p', 'view', 'public', 'regress_om_v_plain', 'mid');
SET SESSION AUTHORIZATION regress_om_low;
SELECT try_stmt($$SELECT * FROM regress_om_v_plain$$);
RESET SESSION AUTHORIZATION;
SELECT lavrel.drop_object_policy('p', 'view', 'public', 'regress_om_v_plain');
SELECT lavrel.drop_object_policy('p', 'view', 'public', 'regress_om_v_inner');
SET SESSION AUTHORIZATION regress_om_low;
SELECT * FROM regress_om_v_plain;
SELECT * FROM regress_om_v_outer;
RESET SESSION AUTHORIZATION;

-- ---------------------------------------------------------------------
-- CALL is a statement of its own: it is mediated with the labels of the
-- session user of the moment, also as the first statement of a session
-- and right after SET SESSION AUTHORIZATION.
-- ---------------------------------------------------------------------
\c - regress_om_high
CALL regress_om_proc_high();
\c - regress_om_low
CALL regress_om_proc_high();
\c - postgres
SELECT try_stmt($$CALL regress_om_proc_high()$$);
SET SESSION AUTHORIZATION regress_om_low;
CALL regress_om_proc_high();
RESET SESSION AUTHORIZATION;

-- ---------------------------------------------------------------------
-- Clean up.
-- ---------------------------------------------------------------------
SELECT lavrel.drop_policy('p'), lavrel.drop_policy('q');
DELETE FROM lavrel.lavrel_obj;
DROP VIEW regress_om_uses, regress_om_v_low, regress_om_v_high, regress_om_v_plain,
          regress_om_v_outer, regress_om_v_inner, regress_om_v_calls_f;
DROP FUNCTION regress_om_f_high(), regress_om_wrap_f(), regress_om_f_sql(int),
              regress_om_f_two(), regress_om_over(text), regress_om_over(int);
DROP PROCEDURE regress_om_proc_high();
DROP ROLE regress_om_low, regress_om_high, regress_om_reader, regress_om_both,
          regress_om_qonly, regress_om_nobody;
DROP FUNCTION try_stmt(text);
\i sql/include/drop_lavrel.sql

--
-- SQL functions the planner would inline.  PostgreSQL inlines a STABLE SQL
-- set-returning function into the calling query after the label filter has
-- rewritten that query, so a protected table read in the function's body
-- would escape the filter.  Such functions are kept out of line (a Function
-- Scan in the plan): their bodies are planned, and filtered, on their own.
-- Functions over unprotected tables are still inlined.
--
\i sql/include/policy_p.sql
CREATE TABLE secrets (id int, info text);
SELECT lavrel.apply_table_policy('p', 'public', 'secrets');
INSERT INTO secrets VALUES (1, 'low', 10), (2, 'mid', 20), (3, 'high', 30), (4, 'low two', 10);
CREATE TABLE open_notes (id int, info text);
INSERT INTO open_notes VALUES (1, 'one'), (2, 'two'), (3, 'three');
CREATE VIEW secrets_view AS SELECT id, info FROM secrets;
GRANT SELECT ON secrets, open_notes, secrets_view TO regress_mid_user;

CREATE FUNCTION all_secrets() RETURNS SETOF secrets
LANGUAGE sql STABLE AS $$ SELECT * FROM secrets $$;
CREATE FUNCTION all_open_notes() RETURNS SETOF open_notes
LANGUAGE sql STABLE AS $$ SELECT * FROM open_notes $$;
CREATE FUNCTION secrets_from(lo int) RETURNS TABLE (id int, info text)
LANGUAGE sql STABLE AS $$ SELECT id, info FROM secrets WHERE id >= lo $$;
CREATE FUNCTION open_notes_from(lo int) RETURNS TABLE (id int, info text)
LANGUAGE sql STABLE AS $$ SELECT id, info FROM open_notes WHERE id >= lo $$;
-- A body in the SQL-standard form, stored parsed.
CREATE FUNCTION secret_ids() RETURNS SETOF int
LANGUAGE sql STABLE BEGIN ATOMIC SELECT id FROM secrets; END;
-- A body that reads the protected table through a view.
CREATE FUNCTION secrets_by_view() RETURNS SETOF secrets_view
LANGUAGE sql STABLE AS $$ SELECT * FROM secrets_view $$;
-- A body that reads only another function: inlined itself, it brings in a
-- call of all_secrets, which stays out of line.
CREATE FUNCTION secrets_again() RETURNS SETOF secrets
LANGUAGE sql STABLE AS $$ SELECT * FROM all_secrets() $$;
-- Polymorphic bodies, judged by the relations they name: one reads no
-- table at all, one reads the protected table.
CREATE FUNCTION elements(anyarray) RETURNS SETOF anyelement
LANGUAGE sql STABLE AS $$ SELECT $1[i] FROM generate_subscripts($1, 1) AS i $$;
CREATE FUNCTION secrets_like(anyelement) RETURNS SETOF secrets
LANGUAGE sql STABLE AS $$ SELECT * FROM secrets WHERE id::text = $1::text $$;
-- A view over a function.
CREATE VIEW secrets_function_view AS SELECT id, info FROM all_secrets();
GRANT SELECT ON secrets_function_view TO regress_mid_user;

SET SESSION AUTHORIZATION regress_mid_user;

-- ---------------------------------------------------------------------
-- Not inlined, and filtered: rows 1, 2 and 4, never the high row 3
-- ---------------------------------------------------------------------
EXPLAIN (COSTS OFF) SELECT * FROM all_secrets();
SELECT * FROM all_secrets() ORDER BY id;
EXPLAIN (COSTS OFF) SELECT * FROM secrets_from(2);
SELECT * FROM secrets_from(2) ORDER BY id;
-- LATERAL
EXPLAIN (COSTS OFF)
SELECT g, s.id FROM generate_series(1, 3) AS g, LATERAL secrets_from(g) AS s;
SELECT g, s.id FROM generate_series(1, 3) AS g, LATERAL secrets_from(g) AS s ORDER BY 1, 2;
-- Inside a view
EXPLAIN (COSTS OFF) SELECT * FROM secrets_function_view;
SELECT * FROM secrets_function_view ORDER BY id;
-- Inside a CTE
WITH s AS (SELECT * FROM all_secrets()) SELECT id, info FROM s ORDER BY id;
WITH s AS MATERIALIZED (SELECT * FROM secrets_from(3)) SELECT id, info FROM s ORDER BY id;
-- In CREATE TABLE AS
CREATE TEMP TABLE secrets_copy AS SELECT * FROM all_secrets();
SELECT * FROM secrets_copy ORDER BY id;
DROP TABLE secrets_copy;
-- In COPY (query)
COPY (SELECT id, info FROM all_secrets() ORDER BY id) TO STDOUT;
COPY (SELECT * FROM secrets_from(3)) TO STDOUT;
-- The other bodies
EXPLAIN (COSTS OFF) SELECT * FROM secret_ids();
SELECT * FROM secret_ids() ORDER BY 1;
EXPLAIN (COSTS OFF) SELECT * FROM secrets_by_view();
SELECT * FROM secrets_by_view() ORDER BY id;
EXPLAIN (COSTS OFF) SELECT * FROM secrets_again();
SELECT * FROM secrets_again() ORDER BY id;

-- ---------------------------------------------------------------------
-- Over an unprotected table: inlined (a plain scan of the table)
-- ---------------------------------------------------------------------
EXPLAIN (COSTS OFF) SELECT * FROM all_open_notes();
SELECT * FROM all_open_notes() ORDER BY id;
EXPLAIN (COSTS OFF)
SELECT g, s.id FROM generate_series(1, 3) AS g, LATERAL open_notes_from(g) AS s;
-- A polymorphic body over no table: inlined as well.
EXPLAIN (COSTS OFF) SELECT * FROM elements(ARRAY['one', 'two']);
SELECT * FROM elements(ARRAY['one', 'two']);
-- One over the protected table: out of line, and filtered.
EXPLAIN (COSTS OFF) SELECT * FROM secrets_like(3);
SELECT id, info FROM secrets_like(3);
SELECT id, info FROM secrets_like(4);

-- ---------------------------------------------------------------------
-- Protecting a table changes the answer for functions already planned
-- ---------------------------------------------------------------------
RESET SESSION AUTHORIZATION;
SELECT lavrel.apply_table_policy('p', 'public', 'open_notes');
UPDATE open_notes SET p_label = 10 + 10 * (id - 1);
SET SESSION AUTHORIZATION regress_mid_user;
EXPLAIN (COSTS OFF) SELECT * FROM all_open_notes();
SELECT * FROM all_open_notes() ORDER BY id;
SELECT g, s.id FROM generate_series(1, 3) AS g, LATERAL open_notes_from(g) AS s ORDER BY 1, 2;

\i sql/include/drop_policy_p.sql
DROP VIEW secrets_function_view;
DROP FUNCTION all_secrets(), all_open_notes(), secrets_from(int), open_notes_from(int),
              secret_ids(), secrets_by_view(), secrets_again(), elements(anyarray),
              secrets_like(anyelement);
DROP VIEW secrets_view;
DROP TABLE secrets, open_notes;
DROP ROLE regress_mid_user;
\i sql/include/drop_lavrel.sql

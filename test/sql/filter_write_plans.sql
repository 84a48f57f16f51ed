--
-- UPDATE and DELETE are decided by their own conditions, whatever the plan.
-- Rows the session may not read are invisible to them: never changed,
-- counted, returned or shown to a condition of the user.  Among the rows it
-- reads, every row the conditions select must be writable, or the statement
-- fails as a whole.  The same statements give the same outcome on
-- sequential, index, bitmap and TID scans, in generic and custom plans, in
-- CTEs, functions, cursors, prepared statements and through views.
--
\i sql/include/policy_p.sql
\i sql/include/leak_function.sql
-- regress_wp_up writes mid and high rows but reads low and mid only.
CREATE ROLE regress_wp_up;
SELECT lavrel.set_user_labels('p', 'regress_wp_up', 'high', 'high', 'mid', 'mid', 'high');

CREATE TABLE docs (id int PRIMARY KEY, title text);
SELECT lavrel.apply_table_policy('p', 'public', 'docs');
CREATE INDEX docs_title ON docs (title);
INSERT INTO docs VALUES (1, 'low one', 10), (2, 'mid one', 20), (3, 'mid two', 20),
                        (4, 'high one', 30), (5, 'low two', 10), (6, 'high two', 30);
GRANT SELECT, INSERT, UPDATE, DELETE ON docs TO regress_mid_user, regress_wp_up;
-- The current address of the high row 4, which the user cannot read.
SELECT ctid AS high_ctid FROM docs WHERE id = 4 \gset

-- outcome(statement): the number of rows the statement processed, or its
-- error.  plan_of(statement): the scan nodes of its plan.
CREATE FUNCTION outcome(statement text) RETURNS text
LANGUAGE plpgsql AS $$
DECLARE
    n bigint;
BEGIN
    EXECUTE statement;
    GET DIAGNOSTICS n = ROW_COUNT;
    RETURN n || ' row(s)';
EXCEPTION WHEN OTHERS THEN
    RETURN SQLSTATE || ': ' || SQLERRM;
END
$$;
CREATE FUNCTION plan_of(statement text) RETURNS text
LANGUAGE plpgsql AS $$
DECLARE
    line text;
    nodes text := '';
BEGIN
    FOR line IN EXECUTE 'EXPLAIN (COSTS OFF) ' || statement LOOP
        IF line ~ '(Scan|Join|Loop)' AND line !~ '(Filter|Cond):' THEN
            nodes := nodes || CASE WHEN nodes = '' THEN '' ELSE ', ' END
                           || regexp_replace(line, '^[ ->]*', '');
        END IF;
    END LOOP;
    RETURN nodes;
END
$$;
-- An expensive condition, which the planner would evaluate last, and a
-- cheap leakproof one, which it may evaluate before the security quals.
CREATE FUNCTION costly_is(id int, wanted int) RETURNS boolean
LANGUAGE sql COST 1000000 AS 'SELECT id = wanted';
CREATE FUNCTION leakproof_is(id int, wanted int) RETURNS boolean
LANGUAGE internal IMMUTABLE LEAKPROOF AS 'int4eq';
CREATE VIEW docs_view AS SELECT * FROM docs;
CREATE VIEW docs_barrier WITH (security_barrier) AS SELECT * FROM docs WHERE id > 0;
GRANT SELECT, UPDATE, DELETE ON docs_view, docs_barrier TO regress_mid_user;

SET SESSION AUTHORIZATION regress_mid_user;
-- The user reads rows 1, 2, 3 and 5, and writes rows 2 and 3.
SELECT * FROM docs ORDER BY id;

CREATE TEMP TABLE statements (n int, stmt text);
INSERT INTO statements VALUES
    (1, $$UPDATE docs SET title = title WHERE id = 2$$),
    (2, $$UPDATE docs SET title = title WHERE id = 1$$),
    (3, $$UPDATE docs SET title = title WHERE id = 4$$),
    (4, $$UPDATE docs SET title = title WHERE id IN (2, 3, 4, 6)$$),
    (5, $$UPDATE docs SET title = title WHERE title = 'mid two'$$),
    (6, $$DELETE FROM docs WHERE id = 4$$),
    (7, $$DELETE FROM docs WHERE id = 1$$),
    (8, $$DELETE FROM docs WHERE title = 'high two'$$);

-- ---------------------------------------------------------------------
-- The same statements on every kind of scan
-- ---------------------------------------------------------------------
SET enable_indexscan = off;
SET enable_bitmapscan = off;
SELECT n, plan_of(stmt), outcome(stmt) FROM statements ORDER BY n;
RESET enable_bitmapscan;
SET enable_seqscan = off;
SELECT n, plan_of(stmt), outcome(stmt) FROM statements ORDER BY n;
RESET enable_indexscan;
SET enable_bitmapscan = off;
SELECT n, plan_of(stmt), outcome(stmt) FROM statements ORDER BY n;
RESET enable_seqscan;
RESET enable_bitmapscan;
-- TID scans: the user's own row by its address, and the high row by the
-- address the administrator read.
SELECT plan_of($$UPDATE docs SET title = title WHERE ctid = '(0,1)'$$);
SELECT outcome(format('UPDATE docs SET title = title WHERE ctid = %L', (SELECT ctid FROM docs WHERE id = 3)));
SELECT outcome(format('UPDATE docs SET title = title WHERE ctid = %L', :'high_ctid'));
SELECT outcome(format('DELETE FROM docs WHERE ctid = %L', :'high_ctid'));

-- ---------------------------------------------------------------------
-- The user's conditions: they see only readable rows, and decide alone
-- which rows must be writable
-- ---------------------------------------------------------------------
SET enable_indexscan = off;
SET enable_bitmapscan = off;
-- leak sees rows 1, 2, 3 and 5 (never 4 or 6), and the condition after it
-- selects row 2 only.
SELECT outcome($$UPDATE docs SET title = title WHERE leak(id, p_label) AND title || '' = 'mid one'$$);
SELECT outcome($$DELETE FROM docs WHERE leak(id, p_label) AND id = 99$$);
SELECT outcome($$UPDATE docs SET title = title WHERE costly_is(id, 2)$$);
SELECT outcome($$UPDATE docs SET title = title WHERE costly_is(id, 1)$$);
SELECT outcome($$UPDATE docs SET title = title WHERE leakproof_is(id, 3)$$);
SELECT outcome($$UPDATE docs SET title = title WHERE leakproof_is(id, 4)$$);
-- A join decides too: the scan of docs reads every readable row, the join
-- keeps row 2.
SELECT plan_of($$UPDATE docs d SET title = d.title FROM (VALUES (2), (4)) v(id) WHERE d.id = v.id$$);
SELECT outcome($$UPDATE docs d SET title = d.title FROM (VALUES (2), (4)) v(id) WHERE d.id = v.id$$);
SELECT outcome($$UPDATE docs d SET title = d.title FROM (VALUES (1), (2)) v(id) WHERE d.id = v.id$$);
-- With RETURNING: only the row the conditions chose comes back.
UPDATE docs SET title = title WHERE id IN (2, 4) RETURNING id, title;
RESET enable_indexscan;
RESET enable_bitmapscan;

-- ---------------------------------------------------------------------
-- CTEs, functions, cursors, prepared statements and views
-- ---------------------------------------------------------------------
SELECT outcome($$WITH w AS (UPDATE docs SET title = title WHERE id = 3 RETURNING id) SELECT * FROM w$$);
SELECT outcome($$WITH w AS (UPDATE docs SET title = title WHERE id = 4 RETURNING id) SELECT * FROM w$$);
SELECT outcome($$WITH w AS (DELETE FROM docs WHERE id = 1 RETURNING id) SELECT * FROM w$$);

RESET SESSION AUTHORIZATION;
CREATE FUNCTION touch_sql(int) RETURNS int LANGUAGE sql AS
    'WITH w AS (UPDATE docs SET title = title WHERE id = $1 RETURNING 1) SELECT count(*)::int FROM w';
CREATE FUNCTION touch_plpgsql(wanted int) RETURNS int LANGUAGE plpgsql AS $$
DECLARE
    n int;
BEGIN
    UPDATE docs SET title = title WHERE id = wanted;
    GET DIAGNOSTICS n = ROW_COUNT;
    RETURN n;
END
$$;
SET SESSION AUTHORIZATION regress_mid_user;
SELECT touch_sql(2), touch_sql(4), touch_plpgsql(3), touch_plpgsql(6);
SELECT try_stmt($$SELECT touch_sql(1)$$), try_stmt($$SELECT touch_plpgsql(5)$$);

-- WHERE CURRENT OF changes the row the cursor stands on: row 1 is refused,
-- row 2 changed.
BEGIN;
DECLARE c CURSOR FOR SELECT id FROM docs ORDER BY id FOR UPDATE;
FETCH c;
SELECT try_stmt($$UPDATE docs SET title = title WHERE CURRENT OF c$$);
ROLLBACK;
BEGIN;
DECLARE c CURSOR FOR SELECT id FROM docs ORDER BY id FOR UPDATE;
FETCH 2 FROM c;
UPDATE docs SET title = title WHERE CURRENT OF c RETURNING id;
COMMIT;

PREPARE upd(int) AS UPDATE docs SET title = title WHERE id = $1 RETURNING id;
SET plan_cache_mode = force_generic_plan;
EXECUTE upd(2);
EXECUTE upd(4);
SELECT try_stmt('EXECUTE upd(1)');
SET plan_cache_mode = force_custom_plan;
EXECUTE upd(2);
EXECUTE upd(4);
SELECT try_stmt('EXECUTE upd(1)');
RESET plan_cache_mode;
DEALLOCATE upd;

SELECT outcome($$UPDATE docs_view SET title = title WHERE id = 2$$),
       outcome($$UPDATE docs_view SET title = title WHERE id = 1$$),
       outcome($$DELETE FROM docs_view WHERE id = 4$$);
SELECT outcome($$UPDATE docs_barrier SET title = title WHERE id = 3$$),
       outcome($$DELETE FROM docs_barrier WHERE id = 5$$),
       outcome($$UPDATE docs_barrier SET title = title WHERE id = 6$$);

-- ---------------------------------------------------------------------
-- INSERT ... ON CONFLICT DO UPDATE
-- ---------------------------------------------------------------------
-- The user's own row is updated; a row he reads but may not write, and a
-- row he may not read, fail the statement before his ON CONFLICT WHERE
-- condition (leak) sees them.
INSERT INTO docs VALUES (2, 'again', 20)
    ON CONFLICT (id) DO UPDATE SET title = docs.title WHERE leak(docs.id, docs.p_label)
    RETURNING id, title;
SELECT try_stmt($$INSERT INTO docs VALUES (1, 'again', 20)
    ON CONFLICT (id) DO UPDATE SET title = 'changed' WHERE leak(docs.id, docs.p_label)$$);
SELECT try_stmt($$INSERT INTO docs VALUES (4, 'again', 20)
    ON CONFLICT (id) DO UPDATE SET title = 'changed' WHERE leak(docs.id, docs.p_label)$$);
-- DO NOTHING inserts nothing, as for any key that exists.
INSERT INTO docs VALUES (4, 'again', 20) ON CONFLICT DO NOTHING RETURNING id;

-- ---------------------------------------------------------------------
-- Writing up: regress_wp_up may write the high rows but not read them, so
-- UPDATE and DELETE do not find them, and ON CONFLICT DO UPDATE that meets
-- one fails.
-- ---------------------------------------------------------------------
SET SESSION AUTHORIZATION regress_wp_up;
SELECT outcome($$UPDATE docs SET title = 'changed' WHERE id = 4$$),
       outcome($$DELETE FROM docs WHERE id = 6$$),
       outcome($$UPDATE docs SET title = title WHERE id IN (3, 4, 6)$$);
UPDATE docs SET title = title WHERE p_label = 30 RETURNING id;
SELECT try_stmt($$INSERT INTO docs (id, title) VALUES (4, 'again')
    ON CONFLICT (id) DO UPDATE SET title = 'changed'$$);

RESET SESSION AUTHORIZATION;
-- Nothing the users could not read was changed or deleted.
SELECT * FROM docs ORDER BY id;

DROP TABLE statements;
DROP VIEW docs_view, docs_barrier;
DROP FUNCTION outcome(text), plan_of(text), costly_is(int, int), leakproof_is(int, int),
              touch_sql(int), touch_plpgsql(int), leak(int, int);
\i sql/include/drop_policy_p.sql
DROP TABLE docs;
DROP ROLE regress_mid_user, regress_wp_up;
\i sql/include/drop_lavrel.sql

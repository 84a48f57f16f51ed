--
-- MERGE (new in PostgreSQL 15).  A MERGE whose target or source is a
-- protected table is refused (SQLSTATE 0A000) rather than run without
-- mediation.  A protected table read inside a subquery, a view, a CTE or a
-- sub-link of a MERGE is filtered like any other read, and MERGE between
-- unprotected tables is untouched.
--
\i sql/include/policy_p.sql
CREATE TABLE secrets (id int, info text);
SELECT lavrel.apply_table_policy('p', 'public', 'secrets');
INSERT INTO secrets VALUES (1, 'low', 10), (2, 'mid', 20), (3, 'high', 30);
CREATE VIEW secrets_view AS SELECT id, info FROM secrets;
CREATE TABLE copies (id int, info text);
CREATE TABLE src (id int, info text);
INSERT INTO src VALUES (1, 'one'), (3, 'three'), (4, 'four');
GRANT SELECT, INSERT, UPDATE, DELETE ON secrets, secrets_view, copies, src TO regress_mid_user;

SET SESSION AUTHORIZATION regress_mid_user;

-- Into or from a protected table: refused.
SELECT try_stmt($$MERGE INTO secrets s USING src ON s.id = src.id
                  WHEN MATCHED THEN UPDATE SET info = src.info
                  WHEN NOT MATCHED THEN INSERT VALUES (src.id, src.info, 20)$$);
SELECT try_stmt($$MERGE INTO copies c USING secrets s ON c.id = s.id
                  WHEN NOT MATCHED THEN INSERT VALUES (s.id, s.info)$$);
-- With its hint.
MERGE INTO copies c USING secrets s ON c.id = s.id
    WHEN NOT MATCHED THEN INSERT VALUES (s.id, s.info);
-- EXPLAIN plans it, and is refused the same way.
SELECT try_stmt($$EXPLAIN MERGE INTO secrets s USING src ON s.id = src.id
                  WHEN MATCHED THEN DELETE$$);

-- Between unprotected tables: as usual.
MERGE INTO copies c USING src ON c.id = src.id
    WHEN MATCHED THEN UPDATE SET info = src.info
    WHEN NOT MATCHED THEN INSERT VALUES (src.id, src.info);
SELECT * FROM copies ORDER BY id;
DELETE FROM copies;

-- A protected table in a subquery, a view or a CTE as the source: read
-- through the label filter, so only the low and mid rows reach the MERGE.
MERGE INTO copies c USING (SELECT id, info FROM secrets) s ON c.id = s.id
    WHEN NOT MATCHED THEN INSERT VALUES (s.id, s.info);
SELECT * FROM copies ORDER BY id;
EXPLAIN (COSTS OFF) MERGE INTO copies c USING (SELECT id, info FROM secrets) s ON c.id = s.id
    WHEN NOT MATCHED THEN INSERT VALUES (s.id, s.info);
MERGE INTO copies c USING secrets_view s ON c.id = s.id
    WHEN MATCHED THEN UPDATE SET info = s.info || ' (view)';
SELECT * FROM copies ORDER BY id;
WITH s AS (SELECT id, info FROM secrets)
MERGE INTO copies c USING s ON c.id = s.id
    WHEN MATCHED THEN UPDATE SET info = s.info || ' (cte)';
SELECT * FROM copies ORDER BY id;

-- A protected table in a sub-link of a WHEN condition: the high row 3 is
-- not found, so copy 3 stays while copy 1 goes.
INSERT INTO copies VALUES (3, 'copy of three');
MERGE INTO copies c USING src ON c.id = src.id
    WHEN MATCHED AND EXISTS (SELECT 1 FROM secrets s WHERE s.id = src.id) THEN DELETE;
SELECT * FROM copies ORDER BY id;

RESET SESSION AUTHORIZATION;
-- The administrator is refused as well.
SELECT try_stmt($$MERGE INTO secrets s USING src ON s.id = src.id
                  WHEN MATCHED THEN DELETE$$);
SELECT * FROM secrets ORDER BY id;

\i sql/include/drop_policy_p.sql
DROP VIEW secrets_view;
DROP TABLE secrets, copies, src;
DROP ROLE regress_mid_user;
\i sql/include/drop_lavrel.sql

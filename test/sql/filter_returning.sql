--
-- A session may write labels above those it reads, but UPDATE and DELETE
-- see only the rows it may read, with or without RETURNING: a row above its
-- read label is never changed, counted or returned.  INSERT ... ON CONFLICT
-- DO UPDATE that meets such a row fails with the write refusal.
--
CREATE EXTENSION lavrel;
\i sql/include/policies_p1_p2.sql

CREATE TABLE t (id int PRIMARY KEY, body text);
SELECT lavrel.apply_table_policy('p1', 'public', 't');
GRANT ALL ON t TO PUBLIC;
SELECT lavrel.set_user_labels('p1', 'postgres', 'high:a,b');
SELECT lavrel.set_user_privs('p1', 'postgres', 'FULL');
INSERT INTO t VALUES (21, 'mid:a row', 21), (31, 'high:a row', 31);

-- Reads up to mid:a; writes from mid:a up to high:a.
CREATE ROLE regress_ret_user LOGIN;
SELECT lavrel.set_user_labels('p1', 'regress_ret_user', 'high:a,b', 'high:a',
                              'mid:a', 'mid:a', 'high:a');

\c - regress_ret_user
SELECT * FROM t ORDER BY id;
UPDATE t SET body = body || ' updated' WHERE id = 31 RETURNING *;
UPDATE t SET body = body || ' blind' WHERE id = 31;
UPDATE t SET body = body || ' seen' RETURNING id, body;
INSERT INTO t VALUES (31, 'again', 31)
    ON CONFLICT (id) DO UPDATE SET body = t.body || ' upserted' RETURNING *;
INSERT INTO t VALUES (21, 'again', 21)
    ON CONFLICT (id) DO UPDATE SET body = t.body || ' upserted' RETURNING *;
DELETE FROM t RETURNING id;
EXPLAIN (COSTS OFF) DELETE FROM t RETURNING id;

\c - postgres
-- The high:a row was never changed.
SELECT * FROM t ORDER BY id;

SELECT lavrel.drop_policy('p1'), lavrel.drop_policy('p2');
DROP TABLE t;
DROP ROLE regress_ret_user;
\i sql/include/drop_lavrel.sql

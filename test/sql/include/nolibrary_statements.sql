-- nolibrary_statements.sql: as the current user, every kind of statement
-- that reads or writes table documents of schema :s: queries, joins and
-- subqueries with the unprotected projects, a WITH query, the view and the
-- two functions over the table, a cursor, a prepared statement, COPY to and
-- from, INSERT, UPDATE, DELETE, ON CONFLICT, MERGE and EXPLAIN ANALYZE.
-- The rows written get label :l, the one copied from data/nolibrary_copy.csv
-- none.  The nolibrary case runs it on the unprotected table first, where
-- every statement works.
SET search_path = :s, public;
SELECT * FROM documents ORDER BY id;
TABLE documents;
SELECT count(*) FROM documents;
SELECT d.id, p.name FROM documents d JOIN projects p ON p.doc_id = d.id ORDER BY d.id;
SELECT name FROM projects WHERE doc_id IN (SELECT id FROM documents) ORDER BY name;
SELECT name, (SELECT title FROM documents WHERE id = doc_id) FROM projects ORDER BY name;
WITH d AS (SELECT id FROM documents) SELECT count(*) FROM d;
SELECT * FROM documents_v ORDER BY id;
SELECT count_documents();
SELECT document_ids();
BEGIN;
DECLARE c CURSOR FOR SELECT id FROM documents ORDER BY id;
FETCH ALL FROM c;
COMMIT;
PREPARE q AS SELECT id FROM documents ORDER BY id;
EXECUTE q;
DEALLOCATE q;
COPY documents TO STDOUT;
COPY (SELECT id FROM documents ORDER BY id) TO STDOUT;
\copy documents FROM 'data/nolibrary_copy.csv' WITH (FORMAT csv, HEADER)
INSERT INTO documents VALUES (12, 'inserted', :l);
INSERT INTO documents SELECT doc_id + 20, name, :l FROM projects;
UPDATE documents SET title = title || ' (updated)';
DELETE FROM documents WHERE id = 1;
INSERT INTO documents VALUES (2, 'upserted', :l)
    ON CONFLICT (id) DO UPDATE SET title = excluded.title;
INSERT INTO documents VALUES (2, 'not inserted', :l) ON CONFLICT DO NOTHING;
MERGE INTO documents d USING projects p ON d.id = p.doc_id
    WHEN MATCHED THEN UPDATE SET title = p.name;
WITH gone AS (DELETE FROM documents WHERE id = 4 RETURNING id) SELECT * FROM gone;
EXPLAIN (ANALYZE, COSTS OFF, TIMING OFF, SUMMARY OFF) SELECT id FROM documents;

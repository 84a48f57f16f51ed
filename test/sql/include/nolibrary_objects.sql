-- nolibrary_objects.sql: schema :s, owned by regress_nolib_owner, with a
-- table documents (id, title and the integer column :c), a view over it
-- and the unprotected projects, a SQL and a PL/pgSQL function that read it,
-- and extended statistics on it.  With :protect true the table is put under
-- policy :policy before the view and functions are made.  Every user may
-- read and write them all.
CREATE SCHEMA :s AUTHORIZATION regress_nolib_owner;
SET SESSION AUTHORIZATION regress_nolib_owner;
SET search_path = :s, public;
CREATE TABLE documents (id int PRIMARY KEY, title text, :c int);
CREATE STATISTICS documents_stats ON id, title FROM documents;
RESET SESSION AUTHORIZATION;
\if :protect
SELECT lavrel.apply_table_policy(:'policy', :'s', 'documents');
\endif
SET SESSION AUTHORIZATION regress_nolib_owner;
CREATE VIEW documents_v AS
SELECT d.id, d.title, p.name AS project
  FROM documents d LEFT JOIN projects p ON p.doc_id = d.id;
CREATE FUNCTION count_documents() RETURNS bigint
LANGUAGE sql SET search_path FROM CURRENT AS $$ SELECT count(*) FROM documents $$;
CREATE FUNCTION document_ids() RETURNS int[]
LANGUAGE plpgsql SET search_path FROM CURRENT AS $$
BEGIN
    RETURN ARRAY(SELECT id FROM documents ORDER BY id);
END
$$;
GRANT USAGE ON SCHEMA :s TO PUBLIC;
GRANT SELECT, INSERT, UPDATE, DELETE ON documents, documents_v TO PUBLIC;
RESET SESSION AUTHORIZATION;
RESET search_path;

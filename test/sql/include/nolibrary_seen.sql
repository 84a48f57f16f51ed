-- nolibrary_seen.sql: records in table seen, as phase :phase, what the
-- current user reads of each protected table: the ids that the table, its
-- view and its PL/pgSQL function return, and the count of its SQL function.
INSERT INTO seen
SELECT :'phase', current_user, s, what, ids
  FROM (VALUES
      ('labelled', 'table', ARRAY(SELECT id FROM labelled.documents ORDER BY id)),
      ('labelled', 'view', ARRAY(SELECT id FROM labelled.documents_v ORDER BY id)),
      ('labelled', 'sql function', ARRAY[labelled.count_documents()::int]),
      ('labelled', 'plpgsql function', labelled.document_ids()),
      ('hidden', 'table', ARRAY(SELECT id FROM hidden.documents ORDER BY id)),
      ('hidden', 'view', ARRAY(SELECT id FROM hidden.documents_v ORDER BY id)),
      ('hidden', 'sql function', ARRAY[hidden.count_documents()::int]),
      ('hidden', 'plpgsql function', hidden.document_ids())) AS v(s, what, ids);

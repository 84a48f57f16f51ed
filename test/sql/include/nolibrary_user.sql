-- nolibrary_user.sql: as the current user, the statements of
-- nolibrary_statements.sql on both protected tables, and the rows that
-- pg_stats and pg_stats_ext show of the three tables documents.
\set s labelled
\set l 210
\i sql/include/nolibrary_statements.sql
\set s hidden
\set l 1010
\i sql/include/nolibrary_statements.sql
SELECT n.nspname,
       (SELECT count(*) FROM pg_stats s
         WHERE s.schemaname = n.nspname AND s.tablename = 'documents') AS pg_stats,
       (SELECT count(*) FROM pg_stats_ext s
         WHERE s.schemaname = n.nspname AND s.tablename = 'documents') AS pg_stats_ext
  FROM pg_namespace n WHERE n.nspname IN ('plain', 'labelled', 'hidden') ORDER BY 1;
RESET search_path;

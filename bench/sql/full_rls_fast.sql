SELECT count(*), max(id) FROM rls_fast;

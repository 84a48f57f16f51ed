SELECT count(*), max(id) FROM rls_fast WHERE label BETWEEN 401 AND 420;

SELECT count(*), max(id) FROM rls;

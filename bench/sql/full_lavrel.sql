SELECT count(*), max(id) FROM protected;

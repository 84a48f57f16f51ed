SELECT count(*), max(id) FROM protected WHERE label BETWEEN 401 AND 420;

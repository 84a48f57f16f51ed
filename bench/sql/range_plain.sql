SELECT count(*), max(id) FROM plain WHERE label BETWEEN 401 AND 420 AND label = ANY (:readable::int[]);

SELECT count(*), max(id) FROM plain WHERE label = ANY (:readable::int[]);

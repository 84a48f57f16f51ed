COPY (SELECT * FROM plain WHERE label = ANY (:readable::int[])) TO '/dev/null';

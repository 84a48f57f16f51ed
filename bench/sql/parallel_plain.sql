-- Parallel query, up to two workers.
SET max_parallel_workers_per_gather = 2;
SELECT count(*), max(id) FROM plain WHERE label = ANY (:readable::int[]);

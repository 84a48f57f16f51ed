--
-- COPY through server files.  A table written with "label" and read back
-- is the same table, in text and in CSV; a file of label ids is not a file
-- of labels; "nolabel" loads a file written with labels under the loader's
-- default label.  A load of 100,000 rows by a user who may insert some of
-- their labels fails as a whole at the first row he may not, and leaves
-- nothing behind.  The files live in /tmp, named after the server's port,
-- and are removed at the end.
--
CREATE EXTENSION lavrel;
-- p1: levels low < mid < high, compartments a, b, c, labels 5 low:c,
-- 10 low, 11 low:a, 20 mid, 21 mid:a, 22 mid:b, 30 high, 31 high:a,
-- 33 high:a,b, 35 high:c, 99 high:a,b,c.
\i sql/include/policies_p1_p2.sql
SELECT current_setting('port') AS port \gset
\set textfile '/tmp/lavrel_copy_files_' :port '.txt'
\set csvfile '/tmp/lavrel_copy_files_' :port '.csv'
\set bigfile '/tmp/lavrel_copy_files_' :port '_big.txt'
\set rmfiles 'rm -f ' :textfile ' ' :csvfile ' ' :bigfile

SELECT lavrel.set_user_labels('p1', 'postgres', 'high:a,b,c');
SELECT lavrel.set_user_privs('p1', 'postgres', 'FULL');
-- alice may insert mid:a and high:a; her default label is mid:a.
CREATE ROLE regress_cfi_alice;
SELECT lavrel.set_user_labels('p1', 'regress_cfi_alice', 'high:a,b', 'high:a', 'mid:a', 'mid:a',
                              'mid:a');
GRANT pg_read_server_files TO regress_cfi_alice;

-- 1,000 rows over every label, with tabs, commas, quotes, backslashes,
-- empty strings, nulls and arrays in the other columns.
CREATE TABLE docs (id int PRIMARY KEY, body text, tags text[]);
SELECT lavrel.apply_table_policy('p1', 'public', 'docs');
INSERT INTO docs
SELECT g,
       CASE g % 5 WHEN 0 THEN NULL WHEN 1 THEN '' ELSE
           'body ' || g || E'\twith a tab, a comma, "quotes", a \\ and\na new line' END,
       ARRAY['t' || g % 3, NULL],
       (ARRAY[5, 10, 11, 20, 21, 22, 30, 31, 33, 35, 99])[1 + g % 11]
  FROM generate_series(1, 1000) g;
CREATE TABLE saved AS SELECT * FROM docs;
CREATE TABLE docs_copy (id int PRIMARY KEY, body text, tags text[]);
SELECT lavrel.apply_table_policy('p1', 'public', 'docs_copy');
GRANT SELECT, INSERT ON docs_copy TO regress_cfi_alice;

-- ---------------------------------------------------------------------
-- Round trips
-- ---------------------------------------------------------------------
-- Text: written with labels, the table truncated, read back.
COPY docs TO :'textfile' WITH (label);
\echo :ROW_COUNT
TRUNCATE docs;
COPY docs FROM :'textfile';
\echo :ROW_COUNT
SELECT (SELECT count(*) FROM (TABLE docs EXCEPT ALL TABLE saved) d) AS not_saved,
       (SELECT count(*) FROM (TABLE saved EXCEPT ALL TABLE docs) d) AS lost;
SELECT p1_label, count(*) FROM docs GROUP BY p1_label ORDER BY p1_label;
-- CSV with a header, into another table under the policy.
COPY docs TO :'csvfile' WITH (FORMAT csv, HEADER, label);
COPY docs_copy FROM :'csvfile' WITH (FORMAT csv, HEADER);
\echo :ROW_COUNT
SELECT (SELECT count(*) FROM (TABLE docs_copy EXCEPT ALL TABLE saved) d) AS not_saved,
       (SELECT count(*) FROM (TABLE saved EXCEPT ALL TABLE docs_copy) d) AS lost;
-- A column list on both sides.
TRUNCATE docs_copy;
COPY docs (p1_label, id, body) TO :'csvfile' WITH (FORMAT csv, label);
COPY docs_copy (p1_label, id, body) FROM :'csvfile' WITH (FORMAT csv);
SELECT count(*) FROM docs_copy d JOIN saved s USING (id)
 WHERE d.body IS NOT DISTINCT FROM s.body AND d.p1_label = s.p1_label AND d.tags IS NULL;

-- Label ids are not labels: such a file is refused at its first line.
TRUNCATE docs_copy;
COPY docs TO :'textfile';
COPY docs_copy FROM :'textfile';
-- A file written with labels, loaded with "nolabel": the labels are
-- ignored and every row gets the loader's default label.
COPY docs TO :'csvfile' WITH (FORMAT csv, label);
SET SESSION AUTHORIZATION regress_cfi_alice;
COPY docs_copy FROM :'csvfile' WITH (FORMAT csv, nolabel);
\echo :ROW_COUNT
RESET SESSION AUTHORIZATION;
SELECT p1_label, count(*) FROM docs_copy GROUP BY p1_label;

-- ---------------------------------------------------------------------
-- 100,000 rows
-- ---------------------------------------------------------------------
-- Rows alternate between mid:a and high:a, which alice may insert; from
-- line 77,777 on, every seventh is low, which she may not.
COPY (SELECT g, 'row ' || g,
             CASE WHEN g >= 77777 AND g % 7 = 0 THEN 'low'
                  WHEN g % 2 = 0 THEN 'mid:a' ELSE 'high:a' END
        FROM generate_series(1, 100000) g) TO :'bigfile';
\echo :ROW_COUNT
CREATE TABLE big (id int PRIMARY KEY, body text);
SELECT lavrel.apply_table_policy('p1', 'public', 'big');
GRANT SELECT, INSERT ON big TO regress_cfi_alice;
SET SESSION AUTHORIZATION regress_cfi_alice;
-- The whole COPY fails at line 77,777, and none of its rows stay.
COPY big FROM :'bigfile';
SELECT count(*) FROM big;
-- Rows that the WHERE condition drops are neither inserted nor checked.
COPY big FROM :'bigfile' WHERE id < 77777;
\echo :ROW_COUNT
RESET SESSION AUTHORIZATION;
SELECT p1_label, count(*), min(id), max(id) FROM big GROUP BY p1_label ORDER BY p1_label;
-- The administrator, with FULL, loads all of it.
TRUNCATE big;
COPY big FROM :'bigfile';
\echo :ROW_COUNT
SELECT p1_label, count(*) FROM big GROUP BY p1_label ORDER BY p1_label;

COPY (SELECT) TO PROGRAM :'rmfiles';
SELECT lavrel.drop_policy('p1');
SELECT lavrel.drop_policy('p2');
DROP TABLE docs, docs_copy, saved, big;
DROP ROLE regress_cfi_alice;
\i sql/include/drop_lavrel.sql

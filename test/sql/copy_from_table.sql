--
-- COPY FROM into a protected table keeps everything else the table does:
-- defaults, generated columns, CHECK and NOT NULL constraints, unique
-- indexes, foreign keys, BEFORE and AFTER triggers of rows and statements,
-- the COPY's WHERE condition, privileges and row-level security.  Errors
-- name the input line as they do in any COPY; "twin" is the same table
-- without a policy, for the server's own COPY to compare with.
--
\i sql/include/policy_p.sql
SET client_min_messages = warning;

CREATE TABLE parents (id int PRIMARY KEY, name text);
SELECT lavrel.apply_table_policy('p', 'public', 'parents');
CREATE TABLE items (id int PRIMARY KEY,
                    parent_id int REFERENCES parents,
                    name text NOT NULL CHECK (name <> 'forbidden'),
                    created text DEFAULT 'by default',
                    twice int GENERATED ALWAYS AS (id * 2) STORED);
SELECT lavrel.apply_table_policy('p', 'public', 'items');
CREATE TABLE twin (id int PRIMARY KEY,
                   parent_id int REFERENCES parents,
                   name text NOT NULL CHECK (name <> 'forbidden'),
                   created text DEFAULT 'by default',
                   twice int GENERATED ALWAYS AS (id * 2) STORED,
                   p_label int);
GRANT SELECT, INSERT ON parents, items, twin TO regress_mid_user;
INSERT INTO parents VALUES (1, 'low parent', 10), (2, 'mid parent', 20), (3, 'high parent', 30);
RESET client_min_messages;

-- ---------------------------------------------------------------------
-- Defaults, generated columns, WHERE
-- ---------------------------------------------------------------------
SET SESSION AUTHORIZATION regress_mid_user;
-- "created" and the label take their defaults; "twice" is computed.
COPY items (id, name) FROM STDIN;
1	defaults
\.
COPY items (id, name, p_label, created) FROM STDIN WITH (FORMAT csv);
2,explicit,mid,on line 1
\.
-- The parent may be one the user cannot read: the key check sees it.
COPY items (id, parent_id, name, p_label) FROM STDIN;
3	3	child of a high parent	mid
\.
SELECT * FROM items ORDER BY id;
-- WHERE sees the label id: the rows it drops are not inserted, and so not
-- checked either (line 2, high, would be refused).
COPY items (id, name, p_label) FROM STDIN WHERE p_label = 20;
4	kept	mid
5	dropped, not checked	high
6	kept too	mid
\.
\echo :ROW_COUNT
-- A row it keeps is checked.
COPY items (id, name, p_label) FROM STDIN WHERE id > 6;
7	kept and checked	low
\.
COPY items (id, name) FROM STDIN WHERE twice > 0;
8	generated column in WHERE
\.
COPY items (id, name) FROM STDIN WHERE nosuch > 0;
8	unknown column in WHERE
\.
COPY items (id, name, twice) FROM STDIN;
8	generated column named	16
\.
SELECT id, name, p_label FROM items WHERE id > 3 ORDER BY id;

-- ---------------------------------------------------------------------
-- Constraints name the line
-- ---------------------------------------------------------------------
-- CHECK on line 2, NOT NULL on line 2, the unique key on line 3, each
-- with the server's own wording, as in the unprotected twin.  Both insert
-- rows in batches here, and name the line of a key error without its text.
COPY items (id, name, p_label) FROM STDIN;
10	fine	mid
11	forbidden	mid
\.
COPY twin (id, name, p_label) FROM STDIN;
10	fine	20
11	forbidden	20
\.
COPY items (id, name, p_label) FROM STDIN;
10	fine	mid
11	\N	mid
\.
COPY twin (id, name, p_label) FROM STDIN;
10	fine	20
11	\N	20
\.
COPY items (id, name, p_label) FROM STDIN;
10	fine	mid
11	fine	mid
10	again	mid
\.
COPY twin (id, name, p_label) FROM STDIN;
10	fine	20
11	fine	20
10	again	20
\.
-- A key that exists already, though in a row the user cannot read.
RESET SESSION AUTHORIZATION;
INSERT INTO items (id, name, p_label) VALUES (12, 'high row', 30);
SET SESSION AUTHORIZATION regress_mid_user;
COPY items (id, name, p_label) FROM STDIN;
12	hidden duplicate	mid
\.
-- A parent that does not exist: the key check runs when the rows are in,
-- as in the server's COPY, and the error names no line.
COPY items (id, parent_id, name, p_label) FROM STDIN;
13	9	orphan	mid
\.
COPY twin (id, parent_id, name, p_label) FROM STDIN;
13	9	orphan	20
\.
-- Nothing of the failed COPYs stayed.
SELECT id, name, p_label FROM items WHERE id >= 10 ORDER BY id;
RESET SESSION AUTHORIZATION;
SELECT id, name, p_label FROM items WHERE id >= 10 ORDER BY id;

-- ---------------------------------------------------------------------
-- Triggers
-- ---------------------------------------------------------------------
CREATE TABLE audit (n int GENERATED ALWAYS AS IDENTITY, what text, id int, label int);
GRANT INSERT, SELECT ON audit TO regress_mid_user;
CREATE FUNCTION items_statement() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
    INSERT INTO audit (what) VALUES (TG_WHEN || ' statement');
    RETURN NULL;
END
$$;
-- BEFORE ROW: upper-cases the name and skips rows named 'skip'.
CREATE FUNCTION items_before_row() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
    IF NEW.name = 'skip' THEN
        RETURN NULL;
    END IF;
    NEW.name := upper(NEW.name);
    INSERT INTO audit (what, id, label) VALUES ('before row', NEW.id, NEW.p_label);
    RETURN NEW;
END
$$;
CREATE FUNCTION items_after_row() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
    INSERT INTO audit (what, id, label) VALUES ('after row ' || NEW.name, NEW.id, NEW.p_label);
    RETURN NULL;
END
$$;
-- AFTER STATEMENT with a transition table: how many rows came in.
CREATE FUNCTION items_new_rows() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
    INSERT INTO audit (what, id, label) SELECT 'new rows', count(*), sum(p_label) FROM new_rows;
    RETURN NULL;
END
$$;
CREATE TRIGGER items_bs BEFORE INSERT ON items FOR EACH STATEMENT EXECUTE FUNCTION items_statement();
CREATE TRIGGER items_br BEFORE INSERT ON items FOR EACH ROW EXECUTE FUNCTION items_before_row();
CREATE TRIGGER items_ar AFTER INSERT ON items FOR EACH ROW EXECUTE FUNCTION items_after_row();
CREATE TRIGGER items_as AFTER INSERT ON items FOR EACH STATEMENT EXECUTE FUNCTION items_statement();
CREATE TRIGGER items_nr AFTER INSERT ON items REFERENCING NEW TABLE AS new_rows
    FOR EACH STATEMENT EXECUTE FUNCTION items_new_rows();

SET SESSION AUTHORIZATION regress_mid_user;
-- Three rows in, one skipped: "COPY 2".
COPY items (id, name, p_label) FROM STDIN;
20	first	mid
21	skip	mid
22	third	mid
\.
\echo :ROW_COUNT
SELECT id, name, p_label FROM items WHERE id >= 20 ORDER BY id;
SELECT what, id, label FROM audit ORDER BY n;
RESET SESSION AUTHORIZATION;
TRUNCATE audit;
SET SESSION AUTHORIZATION regress_mid_user;
-- A refused label ends the COPY before the row's triggers run, and the
-- triggers' work goes with it.
COPY items (id, name, p_label) FROM STDIN;
23	fine	mid
24	refused	high
\.
SELECT what, id, label FROM audit ORDER BY n;
-- With a BEFORE ROW trigger rows are inserted one at a time, and a key
-- error quotes its line.
COPY items (id, name, p_label) FROM STDIN;
25	fine	mid
20	duplicate	mid
\.
RESET SESSION AUTHORIZATION;
-- Without it they go in batches; the AFTER triggers see every row.
DROP TRIGGER items_br ON items;
TRUNCATE audit;
SET SESSION AUTHORIZATION regress_mid_user;
COPY items (id, name, p_label) FROM STDIN;
26	batched	mid
27	batched too	mid
\.
\echo :ROW_COUNT
SELECT what, id, label FROM audit ORDER BY n;
RESET SESSION AUTHORIZATION;
DROP TRIGGER items_bs ON items;
DROP TRIGGER items_ar ON items;
DROP TRIGGER items_as ON items;
DROP TRIGGER items_nr ON items;

-- ---------------------------------------------------------------------
-- Privileges, row-level security, read-only transactions
-- ---------------------------------------------------------------------
-- INSERT privilege on the columns read; with "nolabel" the label column
-- is not read, and needs none.
REVOKE INSERT ON items FROM regress_mid_user;
GRANT INSERT (id, name) ON items TO regress_mid_user;
SET SESSION AUTHORIZATION regress_mid_user;
COPY items FROM STDIN;
30	all columns	\N	\N	mid
\.
COPY items (id, name) FROM STDIN WITH (nolabel);
30	two columns and a label	mid
\.
COPY items (id, name, p_label) FROM STDIN;
31	label column named	mid
\.
-- A server file needs the right to read one.
COPY items (id, name) FROM '/nonexistent/file';
RESET SESSION AUTHORIZATION;
REVOKE INSERT (id, name) ON items FROM regress_mid_user;
GRANT INSERT ON items TO regress_mid_user;
-- Under row-level security of the owner's own COPY FROM is refused, as for
-- any table.  (The table's row-level security is on under its policy.)
CREATE POLICY items_all ON items USING (true) WITH CHECK (true);
SET SESSION AUTHORIZATION regress_mid_user;
COPY items (id, name) FROM STDIN;
32	under row-level security
\.
RESET SESSION AUTHORIZATION;
DROP POLICY items_all ON items;
-- A read-only transaction refuses it.
BEGIN READ ONLY;
COPY items (id, name) FROM STDIN;
33	read-only
\.
ROLLBACK;
SELECT id, name, p_label FROM items WHERE id >= 30 ORDER BY id;

-- ---------------------------------------------------------------------
-- A COPY run by a trigger of another COPY
-- ---------------------------------------------------------------------
-- Each row of outer_rows starts a COPY of items, with labels, from a
-- program.  The outer COPY keeps its own options and checks: with
-- "nolabel" it goes on ignoring the trailing field of line 2; without it,
-- it goes on reading labels and checking them, and counting fields.
CREATE TABLE outer_rows (id int, note text);
SELECT lavrel.apply_table_policy('p', 'public', 'outer_rows');
GRANT SELECT, INSERT ON outer_rows TO regress_mid_user;
GRANT pg_execute_server_program TO regress_mid_user;
CREATE FUNCTION copy_more_items() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
    EXECUTE format($c$COPY items (id, name, p_label) FROM PROGRAM 'printf "%s\tnested\tmid\n"'$c$,
                   NEW.id + 100);
    RETURN NEW;
END
$$;
CREATE TRIGGER outer_rows_br BEFORE INSERT ON outer_rows FOR EACH ROW EXECUTE FUNCTION copy_more_items();
SET SESSION AUTHORIZATION regress_mid_user;
COPY outer_rows FROM STDIN WITH (nolabel);
40	outer one
41	outer two	high
\.
COPY outer_rows FROM STDIN;
42	outer three	mid
43	outer four	high
\.
COPY outer_rows FROM STDIN;
44	outer five	mid
45	outer six	mid	extra
\.
RESET SESSION AUTHORIZATION;
SELECT * FROM outer_rows ORDER BY id;
SELECT id, name, p_label FROM items WHERE id > 100 ORDER BY id;

-- ---------------------------------------------------------------------
-- The ALTER TABLE guard holds during a COPY
-- ---------------------------------------------------------------------
-- The user owns a protected table; a trigger run by his COPY may not
-- change its label column any more than he may.
CREATE TABLE owned (id int);
ALTER TABLE owned OWNER TO regress_mid_user;
SELECT lavrel.apply_table_policy('p', 'public', 'owned');
CREATE FUNCTION alter_owned() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
    ALTER TABLE owned ALTER COLUMN p_label DROP DEFAULT;
    RETURN NEW;
END
$$;
CREATE TRIGGER owned_br BEFORE INSERT ON owned FOR EACH ROW EXECUTE FUNCTION alter_owned();
SET SESSION AUTHORIZATION regress_mid_user;
ALTER TABLE owned ALTER COLUMN p_label DROP DEFAULT;
COPY owned FROM STDIN;
1	mid
\.
RESET SESSION AUTHORIZATION;
SELECT pg_get_expr(adbin, adrelid) FROM pg_attrdef
 WHERE adrelid = 'owned'::regclass;

\i sql/include/drop_policy_p.sql
DROP TABLE owned, outer_rows, audit, items, twin, parents;
DROP FUNCTION items_statement(), items_before_row(), items_after_row(), items_new_rows(),
    copy_more_items(), alter_owned();
DROP ROLE regress_mid_user;
\i sql/include/drop_lavrel.sql

--
-- TRUNCATE of a table under a policy removes rows of every label, so it is
-- left to sessions that hold the FULL privilege under every policy applied
-- to the table, disabled ones included: named in the statement, reached
-- through TRUNCATE ... CASCADE, or run in a function.  Tables under no
-- policy are truncated as usual, and PostgreSQL's own checks come first.
--
CREATE EXTENSION lavrel;
\i sql/include/try_stmt.sql

SELECT lavrel.create_policy('p', 'p_label'), lavrel.create_policy('q', 'q_label');
SELECT lavrel.create_level('p', 'low', 10), lavrel.create_label('p', 'low', 10);
SELECT lavrel.create_level('q', 'x', 1), lavrel.create_label('q', 'x', 90);

-- regress_tg_fullp holds FULL under p, regress_tg_full under p and q,
-- regress_tg_read READ under p and q, regress_tg_label the labels alone;
-- regress_tg_none has no authorization.  The administrator starts with
-- FULL under both.
CREATE ROLE regress_tg_fullp;
CREATE ROLE regress_tg_full;
CREATE ROLE regress_tg_read;
CREATE ROLE regress_tg_label;
CREATE ROLE regress_tg_none;
SELECT lavrel.set_user_labels(pol, usr, lab), lavrel.set_user_privs(pol, usr, privs)
  FROM (VALUES ('p', 'postgres', 'low', 'FULL'), ('q', 'postgres', 'x', 'FULL'),
               ('p', 'regress_tg_fullp', 'low', 'FULL'), ('q', 'regress_tg_fullp', 'x', ''),
               ('p', 'regress_tg_full', 'low', 'FULL'), ('q', 'regress_tg_full', 'x', 'FULL'),
               ('p', 'regress_tg_read', 'low', 'READ'), ('q', 'regress_tg_read', 'x', 'READ'),
               ('p', 'regress_tg_label', 'low', ''), ('q', 'regress_tg_label', 'x', ''))
       AS v(pol, usr, lab, privs);

-- tp is under p, tpq under p and q; plain is under none, and tp refers to
-- it, so that TRUNCATE plain CASCADE reaches tp.
CREATE TABLE regress_tg_plain (id int PRIMARY KEY);
CREATE TABLE regress_tg_tp (id int REFERENCES regress_tg_plain);
CREATE TABLE regress_tg_tpq (id int);
CREATE TABLE regress_tg_other (id int);
SELECT lavrel.apply_table_policy('p', 'public', 'regress_tg_tp');
SELECT lavrel.apply_table_policy('p', 'public', 'regress_tg_tpq'),
       lavrel.apply_table_policy('q', 'public', 'regress_tg_tpq');
GRANT SELECT, TRUNCATE ON regress_tg_plain, regress_tg_tp, regress_tg_tpq, regress_tg_other
   TO PUBLIC;

-- Fills every table again: one row each.
CREATE FUNCTION regress_tg_fill() RETURNS void LANGUAGE sql AS $$
    TRUNCATE regress_tg_plain, regress_tg_tp, regress_tg_tpq, regress_tg_other;
    INSERT INTO regress_tg_plain VALUES (1);
    INSERT INTO regress_tg_tp VALUES (1);
    INSERT INTO regress_tg_tpq VALUES (1);
    INSERT INTO regress_tg_other VALUES (1);
$$;
CREATE VIEW regress_tg_rows AS
SELECT (SELECT count(*) FROM regress_tg_plain) AS plain, (SELECT count(*) FROM regress_tg_tp) AS tp,
       (SELECT count(*) FROM regress_tg_tpq) AS tpq, (SELECT count(*) FROM regress_tg_other) AS other;
SELECT regress_tg_fill();
SELECT * FROM regress_tg_rows;

-- The statements each user runs; after each, the administrator counts the
-- rows and fills the tables again.
CREATE TABLE regress_tg_stmts (n int, stmt text);
INSERT INTO regress_tg_stmts VALUES
    (1, 'TRUNCATE regress_tg_tp'),
    (2, 'TRUNCATE regress_tg_tpq'),
    (3, 'TRUNCATE regress_tg_other, regress_tg_tp'),
    (4, 'TRUNCATE regress_tg_plain CASCADE'),
    (5, 'TRUNCATE regress_tg_other');
CREATE TABLE regress_tg_outcomes (usr text, n int, outcome text, plain bigint, tp bigint,
                                  tpq bigint, other bigint);
CREATE FUNCTION regress_tg_try(usr text) RETURNS void LANGUAGE plpgsql AS $$
DECLARE
    s record;
    outcome text;
BEGIN
    FOR s IN SELECT * FROM regress_tg_stmts ORDER BY n LOOP
        EXECUTE format('SET SESSION AUTHORIZATION %I', usr);
        outcome := try_stmt(s.stmt);
        RESET SESSION AUTHORIZATION;
        INSERT INTO regress_tg_outcomes SELECT usr, s.n, outcome, * FROM regress_tg_rows;
        PERFORM regress_tg_fill();
    END LOOP;
END
$$;
SELECT regress_tg_try(usr)
  FROM unnest(ARRAY['regress_tg_fullp', 'regress_tg_full', 'regress_tg_read',
                    'regress_tg_label', 'regress_tg_none']) AS usr;
SELECT o.usr, s.stmt, o.outcome, o.plain, o.tp, o.tpq, o.other
  FROM regress_tg_outcomes o JOIN regress_tg_stmts s USING (n)
 ORDER BY o.usr, o.n;

-- The refusal in full.
SET SESSION AUTHORIZATION regress_tg_fullp;
TRUNCATE regress_tg_tpq;
RESET SESSION AUTHORIZATION;

-- PostgreSQL's own checks come first: the TRUNCATE privilege, "TRUNCATE
-- plain" while a protected table refers to it.
REVOKE TRUNCATE ON regress_tg_tp FROM PUBLIC;
SET SESSION AUTHORIZATION regress_tg_none;
SELECT stmt, try_stmt(stmt) AS outcome FROM (VALUES
    ($$TRUNCATE regress_tg_tp$$),
    ($$TRUNCATE regress_tg_plain$$)
) AS t(stmt);
RESET SESSION AUTHORIZATION;
SELECT * FROM regress_tg_rows;

-- The administrator is mediated too: without FULL he is refused; a
-- disabled policy still counts.
SELECT lavrel.set_user_privs('q', 'postgres', 'READ');
SELECT try_stmt($$TRUNCATE regress_tg_tpq$$);
SELECT lavrel.disable_policy('q');
SELECT try_stmt($$TRUNCATE regress_tg_tpq$$);
SELECT lavrel.set_user_privs('q', 'postgres', 'FULL');
SELECT try_stmt($$TRUNCATE regress_tg_tpq$$);
SELECT lavrel.enable_policy('q');
SELECT * FROM regress_tg_rows;

-- A role whose FULL is taken away is refused at once.
SELECT regress_tg_fill();
SELECT lavrel.set_user_privs('p', 'regress_tg_full', '');
SET SESSION AUTHORIZATION regress_tg_full;
SELECT try_stmt($$TRUNCATE regress_tg_tp$$);
RESET SESSION AUTHORIZATION;
SELECT * FROM regress_tg_rows;

-- Released from its policies, the table is truncated as any other.
SELECT lavrel.remove_table_policy('p', 'public', 'regress_tg_tpq'),
       lavrel.remove_table_policy('q', 'public', 'regress_tg_tpq');
SET SESSION AUTHORIZATION regress_tg_none;
TRUNCATE regress_tg_tpq;
RESET SESSION AUTHORIZATION;
SELECT * FROM regress_tg_rows;

-- With lavrel.enable_mac off, TRUNCATE is PostgreSQL's alone.
ALTER SYSTEM SET lavrel.enable_mac = off;
SELECT pg_reload_conf();
\c
GRANT TRUNCATE ON regress_tg_tp TO regress_tg_none;
SET SESSION AUTHORIZATION regress_tg_none;
TRUNCATE regress_tg_tp;
RESET SESSION AUTHORIZATION;
SELECT count(*) AS tp_rows FROM regress_tg_tp;
ALTER SYSTEM RESET lavrel.enable_mac;
SELECT pg_reload_conf();
\c

-- Clean up.
SELECT lavrel.drop_policy('p'), lavrel.drop_policy('q');
DROP VIEW regress_tg_rows;
DROP FUNCTION regress_tg_fill(), regress_tg_try(text), try_stmt(text);
DROP TABLE regress_tg_tp, regress_tg_tpq, regress_tg_plain, regress_tg_other,
           regress_tg_stmts, regress_tg_outcomes;
DROP ROLE regress_tg_fullp, regress_tg_full, regress_tg_read, regress_tg_label,
          regress_tg_none;
\i sql/include/drop_lavrel.sql

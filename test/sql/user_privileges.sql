--
-- User privileges: set_user_privs, which stores a user's privilege mask
-- under a policy from a comma-separated list of privilege names, and
-- privs_to_char, which prints a mask.  READ 1, FULL 2, WRITEUP 4,
-- WRITEDOWN 8, WRITEACROSS 16.
--
CREATE EXTENSION lavrel;
CREATE EXTENSION lavrel_test;
SET search_path = public, lavrel;

\i sql/include/try_stmt.sql

SELECT create_policy('p', 'p_label');
SELECT create_level('p', 'low', 10), create_level('p', 'high', 30),
       create_compartment('p', 'a', 1);
CREATE ROLE regress_lavrel_u1;
CREATE ROLE regress_lavrel_u2;
CREATE ROLE "regress_lavrel_Mixed";
SELECT set_user_labels('p', 'regress_lavrel_u1', 'high:a', NULL, NULL, 'low');

-- Printing a mask: names in a fixed order, upper case, no bit implying
-- another; bits above 16 are ignored, only the low 16 bits of the
-- argument count, and null stays null.
SELECT m, privs_to_char(m), privs_to_char(m) IS NULL AS is_null,
       pg_typeof(privs_to_char(m))
  FROM (VALUES (0), (1), (2), (4), (8), (16), (12), (19), (31), (32), (33),
               (65536 + 3), (-1), (NULL)) AS v(m);

-- Storing: the mask goes to lavrel_user.user_privs; the labels stay.
SELECT set_user_privs('p', 'regress_lavrel_u1', 'writeup,writedown');
SELECT user_privs, privs_to_char(user_privs), max_level, min_write_level,
       def_level, row_level, max_read_comps, max_write_comps, def_comps,
       row_comps, min_write_comps
  FROM lavrel.lavrel_user;

-- Names in any case, repeated or not, with one trailing comma at most;
-- each string as it is stored.
DO $$
DECLARE
    str text;
    stored int;
BEGIN
    FOREACH str IN ARRAY ARRAY['READ', 'read,READ', 'READ,', 'Full,Read,WriteAcross',
                               'WRITEACROSS,WRITEDOWN,WRITEUP,FULL,READ', 'writeup',
                               'WriteDown,', '']
    LOOP
        PERFORM lavrel.set_user_privs('p', 'regress_lavrel_u1', str);
        SELECT user_privs INTO stored FROM lavrel.lavrel_user;
        RAISE NOTICE '% is stored as %', quote_literal(str), stored;
    END LOOP;
END
$$;
-- Null clears the mask as the empty string does.
SELECT set_user_privs('p', 'regress_lavrel_u1', 'FULL');
SELECT user_privs FROM lavrel.lavrel_user;
SELECT set_user_privs('p', 'regress_lavrel_u1', NULL);
SELECT user_privs FROM lavrel.lavrel_user;

-- Every mask printed and read back is the same mask.
DO $$
DECLARE
    stored int;
    mismatches int := 0;
BEGIN
    FOR m IN 0..31 LOOP
        PERFORM lavrel.set_user_privs('p', 'regress_lavrel_u1', lavrel.privs_to_char(m));
        SELECT user_privs INTO stored FROM lavrel.lavrel_user;
        IF stored <> m THEN
            RAISE NOTICE 'mask % came back as %', m, stored;
            mismatches := mismatches + 1;
        END IF;
    END LOOP;
    RAISE NOTICE 'masks that did not read back: %', mismatches;
END
$$;

-- Malformed strings: the message shows the rest of the string from where
-- reading stopped (quoted here, so that blanks show).  No blank is skipped.
SELECT set_user_privs('p', 'regress_lavrel_u1', 'WRITEUP');
SELECT stmt, quote_literal(try_stmt(stmt)) FROM (VALUES
    ($$SELECT set_user_privs('p', 'regress_lavrel_u1', 'READ,,FULL')$$),
    ($$SELECT set_user_privs('p', 'regress_lavrel_u1', 'READ FULL')$$),
    ($$SELECT set_user_privs('p', 'regress_lavrel_u1', 'READ, FULL')$$),
    ($$SELECT set_user_privs('p', 'regress_lavrel_u1', ' READ')$$),
    ($$SELECT set_user_privs('p', 'regress_lavrel_u1', 'READ ')$$),
    ($$SELECT set_user_privs('p', 'regress_lavrel_u1', 'READX')$$),
    ($$SELECT set_user_privs('p', 'regress_lavrel_u1', ',READ')$$),
    ($$SELECT set_user_privs('p', 'regress_lavrel_u1', 'READ,,')$$),
    ($$SELECT set_user_privs('p', 'regress_lavrel_u1', ',')$$),
    ($$SELECT set_user_privs('p', 'regress_lavrel_u1', 'WRITE')$$),
    ($$SELECT set_user_privs('p', 'regress_lavrel_u1', 'FULL;READ')$$),
    ($$SELECT set_user_privs('p', 'regress_lavrel_u1', 'READ,WRITEUPS')$$),
    ($$SELECT set_user_privs('p', 'regress_lavrel_u1', 'readfull')$$)) AS v(stmt);
-- The mask is unchanged by the refused calls.
SELECT user_privs FROM lavrel.lavrel_user;
-- 4000 characters pass the length check; 4001 do not.
SELECT length(repeat('READ,', 799) || 'FULL,') AS chars;
SELECT set_user_privs('p', 'regress_lavrel_u1', repeat('READ,', 799) || 'FULL,');
SELECT user_privs FROM lavrel.lavrel_user;
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT set_user_privs('p', 'regress_lavrel_u1', repeat('READ,', 799) || 'FULLX')$$),
    ($$SELECT set_user_privs('p', 'regress_lavrel_u1', repeat('READ,', 799) || 'FULL,X')$$)) AS v(stmt);
SELECT user_privs FROM lavrel.lavrel_user;

-- Only an authorized user has privileges; the authorization is looked up
-- before the privilege string.
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT set_user_privs('p', 'regress_lavrel_u2', 'READ')$$),
    ($$SELECT set_user_privs('p', 'regress_lavrel_u2', 'nonsense')$$),
    ($$SELECT set_user_privs('p', '"regress_lavrel_Mixed"', NULL)$$)) AS v(stmt);
-- The other arguments.
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT set_user_privs(NULL, 'regress_lavrel_u1', 'READ')$$),
    ($$SELECT set_user_privs('nopol', 'regress_lavrel_u1', 'READ')$$),
    ($$SELECT set_user_privs('nopol', NULL, 'READ')$$),
    ($$SELECT set_user_privs('p', NULL, 'READ')$$),
    ($$SELECT set_user_privs('p', 'regress_lavrel_nosuch', 'READ')$$)) AS v(stmt);

-- Only the administrator, and only with access control on; privs_to_char
-- is open to everyone.
CREATE ROLE regress_lavrel_su SUPERUSER;
SET ROLE regress_lavrel_su;
SELECT try_stmt($$SELECT set_user_privs(NULL, NULL, NULL)$$);
RESET ROLE;
SET ROLE regress_lavrel_u2;
SELECT privs_to_char(5);
RESET ROLE;
ALTER SYSTEM SET lavrel.enable_mac = off;
SELECT lavrel_test.reload_enable_mac();
SELECT try_stmt($$SELECT set_user_privs(NULL, NULL, NULL)$$);
SELECT privs_to_char(24);
ALTER SYSTEM RESET lavrel.enable_mac;
SELECT lavrel_test.reload_enable_mac();
SELECT user_privs FROM lavrel.lavrel_user;

-- Clean up.
SELECT drop_policy('p');
DROP ROLE regress_lavrel_u1, regress_lavrel_u2, "regress_lavrel_Mixed",
          regress_lavrel_su;
DROP FUNCTION try_stmt(text);
DROP EXTENSION lavrel_test;
\i sql/include/drop_lavrel.sql

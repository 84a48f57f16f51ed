--
-- Label strings: reading a label text into a label id (char_to_label),
-- printing a label id (label_to_char), and reading a level alone
-- (set_levels).  The grammar is  level [ ":" [ comp { "," comp } [ "," ] ] ]
-- with names read as SQL identifiers and no blank allowed outside quotes.
--
CREATE EXTENSION lavrel;
CREATE EXTENSION lavrel_test;
SET search_path = public, lavrel;

\i sql/include/try_stmt.sql

-- Policy p has the levels low, high and "HIGH" (a different name: quoted,
-- case kept) and four compartments whose ids do not follow their names.
-- Policy q has names of its own.
SELECT create_policy('p', 'p_label');
SELECT create_level('p', 'low', 10), create_level('p', 'high', 30),
       create_level('p', '"HIGH"', 40);
SELECT create_compartment('p', 'zeta', 2), create_compartment('p', '"Mixed"', 3),
       create_compartment('p', 'mid', 5), create_compartment('p', 'alpha', 7);
SELECT create_policy('q', 'q_label');
SELECT create_level('q', 'other', 10), create_compartment('q', 'qcomp', 1);

SELECT create_label('p', 'low', 100), create_label('p', 'high', 101),
       create_label('p', 'high:zeta', 102), create_label('p', 'high:zeta,mid', 103),
       create_label('p', 'high:alpha,zeta,mid', 104),
       create_label('p', '"HIGH":"Mixed"', 105), create_label('p', '"HIGH"', 106),
       create_label('q', 'other:qcomp', 200);

-- Well-formed texts.  Unquoted names fold to lower case, so HIGH:ZETA,MID
-- is high:zeta,mid; the order of the compartments does not matter; a
-- trailing comma and a lone colon are accepted; "HIGH" is another level.
SELECT txt, char_to_label('p', txt)
  FROM (VALUES ('high:zeta,mid'), ('HIGH:ZETA,MID'), ('high:mid,zeta'),
               ('high:zeta,mid,'), ('High:Zeta,"mid"'), ('high'), ('high:'),
               ('"high":'), ('HIGH'), ('"HIGH"'), ('"HIGH":'),
               ('"HIGH":"Mixed"'), ('"HIGH":"Mixed",'), ('high:zeta,'))
       AS v(txt);
-- The policy name is an identifier too; q's label in q.
SELECT char_to_label('P', 'high'), char_to_label('"p"', 'high'),
       char_to_label('q', 'OTHER:QCOMP');

-- Blanks and misplaced separators.
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT char_to_label('p', 'high :zeta')$$),
    ($$SELECT char_to_label('p', 'high,zeta')$$),
    ($$SELECT char_to_label('p', 'high:zeta mid')$$),
    ($$SELECT char_to_label('p', 'high:zeta:mid')$$)) AS v(stmt);
-- Failures of the identifier reader: an empty name between commas, a
-- leading colon or blank, a leading digit, empty and unclosed quotes.
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT char_to_label('p', 'high:zeta,,mid')$$),
    ($$SELECT char_to_label('p', ':zeta')$$),
    ($$SELECT char_to_label('p', ' high')$$),
    ($$SELECT char_to_label('p', '1high')$$),
    ($$SELECT char_to_label('p', '""')$$),
    ($$SELECT char_to_label('p', 'high:""')$$),
    ($$SELECT char_to_label('p', '"high')$$),
    ($$SELECT char_to_label('p', 'high:"zeta')$$)) AS v(stmt);
-- A compartment named twice, also in forms that fold to the same name.
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT char_to_label('p', 'high:zeta,zeta')$$),
    ($$SELECT char_to_label('p', 'high:zeta,mid,ZETA')$$),
    ($$SELECT char_to_label('p', 'high:zeta,"zeta"')$$)) AS v(stmt);
-- Names the policy does not have, including names of policy q and names
-- that differ only by case from a quoted one.
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT char_to_label('p', 'nosuch:zeta')$$),
    ($$SELECT char_to_label('p', 'other')$$),
    ($$SELECT char_to_label('p', '"High"')$$),
    ($$SELECT char_to_label('p', 'high:nosuch')$$),
    ($$SELECT char_to_label('p', 'high:qcomp')$$),
    ($$SELECT char_to_label('p', '"HIGH":Mixed')$$)) AS v(stmt);
-- Well formed, but the policy has no such label; the message repeats the
-- text as given.
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT char_to_label('p', 'low:zeta')$$),
    ($$SELECT char_to_label('p', 'LOW:Zeta,')$$),
    ($$SELECT char_to_label('q', 'other')$$)) AS v(stmt);
-- A name longer than an identifier may be is cut, with a notice.
SELECT try_stmt($$SELECT char_to_label('p', repeat('x', 70))$$);

-- The arguments: null, empty, too long, an unknown or malformed policy.
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT char_to_label(NULL, 'high')$$),
    ($$SELECT char_to_label('p', NULL)$$),
    ($$SELECT char_to_label('p', '')$$),
    ($$SELECT char_to_label('nopol', 'high')$$),
    ($$SELECT char_to_label('p q', 'high')$$)) AS v(stmt);
-- 4000 characters pass the length check (and fail on the repeated
-- compartment); 4001 do not.
SELECT length('high:zeta' || repeat(',zeta', 798) || ',') AS chars;
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT char_to_label('p', 'high:zeta' || repeat(',zeta', 798) || ',')$$),
    ($$SELECT char_to_label('p', 'high:zeta' || repeat(',zeta', 798) || ',x')$$)) AS v(stmt);

-- Printing: the level name, always a colon, then the compartments in
-- ascending id order with the names as stored (never quoted), whatever
-- the text that created the label.
SELECT label_id, label_to_char(label_id), pg_typeof(label_to_char(label_id))
  FROM lavrel.lavrel_label ORDER BY label_id;
-- Printed forms of names that need no quoting read back to the same id.
SELECT label_id, char_to_label('p', label_to_char(label_id)) AS read_back
  FROM lavrel.lavrel_label WHERE label_id BETWEEN 100 AND 104 ORDER BY label_id;
-- Names are printed unquoted, so "HIGH": prints as HIGH:, which reads
-- back as the level high.
SELECT label_to_char(106), char_to_label('p', label_to_char(106));

-- Unknown ids, and ids outside 1..99999999, which are refused before any
-- lookup.
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT label_to_char(999)$$),
    ($$SELECT label_to_char(99999999)$$),
    ($$SELECT label_to_char(0)$$),
    ($$SELECT label_to_char(100000000)$$),
    ($$SELECT label_to_char(-1)$$),
    ($$SELECT label_to_char(NULL)$$)) AS v(stmt);

-- A level alone (set_levels): "high" and "HIGH" are the level high, but a
-- trailing colon, accepted in a label, is refused here.
CREATE ROLE regress_lavrel_reader;
SELECT set_levels('p', 'regress_lavrel_reader', 'HIGH', 'low');
SELECT max_level, min_write_level, def_level, row_level FROM lavrel.lavrel_user;
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT set_levels('p', 'regress_lavrel_reader', 'high:')$$),
    ($$SELECT set_levels('p', 'regress_lavrel_reader', 'high', 'low:')$$),
    ($$SELECT set_levels('p', 'regress_lavrel_reader', 'high:zeta')$$),
    ($$SELECT set_levels('p', 'regress_lavrel_reader', 'high ')$$),
    ($$SELECT set_levels('p', 'regress_lavrel_reader', 'nosuch')$$)) AS v(stmt);

-- The two conversions need no administrator: any role may call them.
SET ROLE regress_lavrel_reader;
SELECT char_to_label('p', 'high:mid,zeta'), label_to_char(104);
RESET ROLE;

-- With access control off the conversions refuse to run, as the
-- administrative functions do.
ALTER SYSTEM SET lavrel.enable_mac = off;
SELECT lavrel_test.reload_enable_mac();
SELECT stmt, try_stmt(stmt) FROM (VALUES
    ($$SELECT char_to_label('p', 'high')$$),
    ($$SELECT label_to_char(101)$$)) AS v(stmt);
ALTER SYSTEM RESET lavrel.enable_mac;
SELECT lavrel_test.reload_enable_mac();

-- Clean up.
SELECT drop_user_access('p', 'regress_lavrel_reader');
DROP ROLE regress_lavrel_reader;
SELECT drop_policy('p'), drop_policy('q');
DROP FUNCTION try_stmt(text);
DROP EXTENSION lavrel_test;
\i sql/include/drop_lavrel.sql

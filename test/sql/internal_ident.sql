--
-- The identifier reader, called directly: the identifier it reads from the
-- front of a string and the text it leaves behind.
--
CREATE EXTENSION lavrel;
CREATE EXTENSION lavrel_test;

-- Unquoted identifiers are folded to lower case and may hold digits, "_"
-- and "$" after the first character.
SELECT * FROM lavrel_test.split_identifier('Abc_1$x', true);
SELECT * FROM lavrel_test.split_identifier('_X9', true);

-- Quoted identifiers keep their case; a doubled quote stands for one.
SELECT * FROM lavrel_test.split_identifier('"Abc"', true);
SELECT * FROM lavrel_test.split_identifier('"a""b"', true);
SELECT * FROM lavrel_test.split_identifier('"A b.c"', true);

-- Reading stops behind the identifier; the caller sees the rest.
SELECT * FROM lavrel_test.split_identifier('abc.def', true);
SELECT * FROM lavrel_test.split_identifier('abc def', true);
SELECT * FROM lavrel_test.split_identifier('"Ab"cd', true);
SELECT * FROM lavrel_test.split_identifier('a:b,c', true);

-- Multibyte characters are taken whole and never case-folded, also as the
-- first character.
SELECT * FROM lavrel_test.split_identifier('ÄbÖ', true);
SELECT * FROM lavrel_test.split_identifier('aÉB-c', true);

-- Empty identifiers.
SELECT * FROM lavrel_test.split_identifier('""', true);
SELECT * FROM lavrel_test.split_identifier('', true);
SELECT * FROM lavrel_test.split_identifier('""abc', true);

-- An unterminated quote, a leading digit, a leading blank and a leading
-- "$" are not identifiers.
SELECT * FROM lavrel_test.split_identifier('"abc', true);
SELECT * FROM lavrel_test.split_identifier('"ab""', true);
SELECT * FROM lavrel_test.split_identifier('1abc', true);
SELECT * FROM lavrel_test.split_identifier(' abc', true);
SELECT * FROM lavrel_test.split_identifier('$abc', true);

-- Errors carry SQLSTATE 42601.
\set VERBOSITY sqlstate
SELECT * FROM lavrel_test.split_identifier('""', true);
SELECT * FROM lavrel_test.split_identifier('"abc', true);
\set VERBOSITY default

-- An identifier longer than NAMEDATALEN - 1 bytes is cut to 63 bytes, with a
-- notice only when asked for.
SELECT ident, length(ident), rest
  FROM lavrel_test.split_identifier(repeat('Ab', 35) || '.x', true);
SELECT ident, length(ident), rest
  FROM lavrel_test.split_identifier(repeat('Ab', 35) || '.x', false);
SELECT ident, length(ident), rest
  FROM lavrel_test.split_identifier('"' || repeat('Ab', 35) || '"', true);

DROP EXTENSION lavrel_test;
\i sql/include/drop_lavrel.sql

--
-- Edges of the module frame: lavrel.enable_mac as PostgreSQL reports its
-- definition, and the identifier reader on bytes that are not valid in the
-- database encoding (UTF8 here), which no SQL text can carry.
--
CREATE EXTENSION lavrel;
CREATE EXTENSION lavrel_test;

-- A boolean, off unless configured, re-read at reload.
SELECT name, setting, vartype, context, boot_val, short_desc, extra_desc
  FROM pg_settings WHERE name = 'lavrel.enable_mac';

-- A character whose first byte announces more bytes than the string holds
-- is refused, first or later in an identifier, quoted or not.
SELECT * FROM lavrel_test.split_identifier_bytes('\xc3', true);
SELECT * FROM lavrel_test.split_identifier_bytes('\x6162c3', true);
SELECT * FROM lavrel_test.split_identifier_bytes('\x22c3', true);
SELECT * FROM lavrel_test.split_identifier_bytes('\x61f09f98', true);
\set VERBOSITY sqlstate
SELECT * FROM lavrel_test.split_identifier_bytes('\x6162c3', true);
\set VERBOSITY default
-- Complete characters pass; reading stops before a truncated one that
-- follows the identifier, which is left to the caller.
SELECT * FROM lavrel_test.split_identifier_bytes('\x61c3a4', true);
SELECT * FROM lavrel_test.split_identifier_bytes('\x61622ec3', true);

DROP EXTENSION lavrel_test;
\i sql/include/drop_lavrel.sql

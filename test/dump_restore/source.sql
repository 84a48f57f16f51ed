-- test/dump_restore/source.sql: the database that test/dump_restore.sh
-- dumps, loaded by the administrator.  Roles, tables and schemas are
-- created in the reverse of the order in which a restore creates them, so
-- that the restored objects get other oids, some of them swapped.
\set ON_ERROR_STOP on
SET client_min_messages = warning;
\o /dev/null

\ir roles.sql

CREATE EXTENSION lavrel;

\ir data.sql

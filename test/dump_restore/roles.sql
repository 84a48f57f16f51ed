-- test/dump_restore/roles.sql: the roles of the dumped database, created
-- by the administrator once per cluster, before the extension; in the
-- reverse of the order in which a restore creates them.
\set ON_ERROR_STOP on
SET client_min_messages = warning;
CREATE ROLE zoe LOGIN;       -- never authorized
CREATE ROLE erin LOGIN;
CREATE ROLE dave LOGIN;
CREATE ROLE carol LOGIN;
CREATE ROLE bob LOGIN;
CREATE ROLE alice LOGIN;

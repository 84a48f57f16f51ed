-- drop_lavrel.sql: drops the extension the way an administrator must, with
-- access control switched off for the dropping backend (lavrel refuses
-- DROP EXTENSION while it is on), and switches it on again.  A new backend
-- reads the reloaded setting.
ALTER SYSTEM SET lavrel.enable_mac = off;
SELECT pg_reload_conf();
\c
DROP EXTENSION lavrel;
DROP SCHEMA lavrel;
ALTER SYSTEM RESET lavrel.enable_mac;
SELECT pg_reload_conf();
\c

--
-- DISCARD ALL resets a session to the state of a new connection: session
-- labels set with set_session_label go, for the same user too.
--
\i sql/include/policy_p.sql
CREATE TABLE ledger (id int, note text);
SELECT lavrel.apply_table_policy('p', 'public', 'ledger');
INSERT INTO ledger VALUES (1, 'low', 10), (2, 'mid', 20), (3, 'high', 30);
-- The administrator now reads every level, without privileges.
SELECT lavrel.set_user_labels('p', 'postgres', 'high', 'high', 'high', 'high', 'high');
SELECT lavrel.set_user_privs('p', 'postgres', '');
CREATE VIEW session_label AS
SELECT s.user_id::regrole AS labels_of, s.read_label
  FROM lavrel.show_session_labels() s;
SELECT * FROM session_label;
SELECT lavrel.set_session_label('p', 'low');
SELECT * FROM session_label;
SELECT count(*) FROM ledger;
DISCARD ALL;
SELECT * FROM session_label;
SELECT count(*) FROM ledger;
-- Inside a transaction block DISCARD ALL is refused and nothing changes.
SELECT lavrel.set_session_label('p', 'low');
BEGIN;
DISCARD ALL;
ROLLBACK;
SELECT * FROM session_label;
SELECT count(*) FROM ledger;
-- After the user switched, DISCARD ALL goes back to the session user who
-- connected, with his authorization's labels.
CREATE ROLE regress_da_user;
SELECT lavrel.set_user_labels('p', 'regress_da_user', 'low');
GRANT SELECT ON ledger TO regress_da_user;
SET SESSION AUTHORIZATION regress_da_user;
SELECT session_user, count(*) FROM ledger;
DISCARD ALL;
SELECT session_user, count(*) FROM ledger;
SELECT * FROM session_label;

\i sql/include/drop_policy_p.sql
DROP TABLE ledger;
DROP VIEW session_label;
DROP ROLE regress_da_user, regress_mid_user;
\i sql/include/drop_lavrel.sql

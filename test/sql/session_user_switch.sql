--
-- Switching users in one connection, as connection poolers and application
-- servers do: after every change of session user (SET SESSION
-- AUTHORIZATION, RESET SESSION AUTHORIZATION, DISCARD ALL) the session's
-- labels are exactly those a new connection of that user gets, whatever
-- the previous user held or set.  SET ROLE changes the current role but not
-- the session user: the session user's labels stay.
--
\i sql/include/policy_p.sql
-- wide reads every level; narrow reads low only.
CREATE ROLE regress_su_wide;
CREATE ROLE regress_su_narrow;
SELECT lavrel.set_user_labels('p', 'regress_su_wide', 'high', 'high', 'high', 'high', 'high');
SELECT lavrel.set_user_labels('p', 'regress_su_narrow', 'low');
GRANT regress_su_narrow TO regress_su_wide;
CREATE TABLE ledger (id int, note text);
SELECT lavrel.apply_table_policy('p', 'public', 'ledger');
INSERT INTO ledger VALUES (1, 'low', 10), (2, 'mid', 20), (3, 'high', 30);
GRANT SELECT ON ledger TO PUBLIC;
-- The administrator, who loaded the rows with FULL, now reads every level
-- without privileges, as wide does.
SELECT lavrel.set_user_labels('p', 'postgres', 'high', 'high', 'high', 'high', 'high');
SELECT lavrel.set_user_privs('p', 'postgres', '');
-- The ids the session reads.
CREATE FUNCTION seen() RETURNS text LANGUAGE sql AS
$$ SELECT coalesce(string_agg(id::text, ',' ORDER BY id), 'none') FROM ledger $$;
-- The administrator's session labels (only he may look at them).
CREATE VIEW session_label AS
SELECT s.user_id::regrole AS labels_of, s.read_label
  FROM lavrel.show_session_labels() s;

-- The wide user first, then the narrow one: the narrow one reads row 1
-- only, as in a connection of its own, and back again.
SET SESSION AUTHORIZATION regress_su_wide;
SELECT session_user, seen();
SET SESSION AUTHORIZATION regress_su_narrow;
SELECT session_user, seen();
SET SESSION AUTHORIZATION regress_su_wide;
SELECT session_user, seen();
-- A prepared statement planned for one user runs with the next one's labels.
PREPARE seen_ids AS SELECT string_agg(id::text, ',' ORDER BY id) FROM ledger;
EXECUTE seen_ids;
SET SESSION AUTHORIZATION regress_su_narrow;
EXECUTE seen_ids;
DEALLOCATE seen_ids;

-- The administrator lowers his own session label; the label stays with
-- him only until the session user changes: the next user does not get it,
-- and back after another user, he starts from his authorization again.
RESET SESSION AUTHORIZATION;
SELECT * FROM session_label;
SELECT lavrel.set_session_label('p', 'low');
SELECT * FROM session_label;
SELECT seen();
SET SESSION AUTHORIZATION regress_su_wide;
SELECT session_user, seen();
RESET SESSION AUTHORIZATION;
SELECT * FROM session_label;
SELECT seen();
-- SET ROLE keeps the session user's labels: the wide user acting as the
-- narrow role still reads what it reads, and a narrow session that may
-- not SET ROLE to the wide one gains nothing.
SET SESSION AUTHORIZATION regress_su_wide;
SET ROLE regress_su_narrow;
SELECT current_user, session_user, seen();
RESET ROLE;
SET SESSION AUTHORIZATION regress_su_narrow;
SELECT try_stmt($$SET ROLE regress_su_wide$$);
SELECT current_user, session_user, seen();
RESET SESSION AUTHORIZATION;
-- As the administrator with SET ROLE: the administrator's labels, so a
-- pooler must switch users with SET SESSION AUTHORIZATION, not SET ROLE.
SET ROLE regress_su_narrow;
SELECT current_user, session_user, seen();
RESET ROLE;

\i sql/include/drop_policy_p.sql
DROP TABLE ledger;
DROP FUNCTION seen();
DROP VIEW session_label;
DROP ROLE regress_su_wide, regress_su_narrow, regress_mid_user;
\i sql/include/drop_lavrel.sql

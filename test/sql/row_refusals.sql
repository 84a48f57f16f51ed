--
-- What the row checks say when they refuse: a DETAIL that names the label
-- concerned, only when the session reads it, and the session's write
-- range, and a HINT that says what would allow it, or that the user holds
-- no authorization under the policy.  Each check is called directly, as
-- the filter calls it, for every kind of refusal.
--
CREATE EXTENSION lavrel;
-- p1: levels low < mid < high, compartments a, b, c, labels 5 low:c,
-- 10 low, 11 low:a, 20 mid, 21 mid:a, 22 mid:b, 30 high, 31 high:a,
-- 33 high:a,b, 35 high:c, 99 high:a,b,c; p2: label 90.
\i sql/include/policies_p1_p2.sql

-- Both users write from mid:a up to high:a and read up to mid:a (max read
-- label high:a,b); regress_rr_reader holds READ.  regress_rr_none holds no
-- authorization.
CREATE ROLE regress_rr_user LOGIN;
CREATE ROLE regress_rr_reader LOGIN;
CREATE ROLE regress_rr_none LOGIN;
SELECT lavrel.set_user_labels('p1', u, 'high:a,b', 'high:a', 'mid:a', 'mid:a', 'high:a')
  FROM unnest(ARRAY['regress_rr_user', 'regress_rr_reader']) AS u;
SELECT lavrel.set_user_privs('p1', 'regress_rr_reader', 'READ');

\c - regress_rr_user
SELECT * FROM lavrel.my_labels();
-- A row it reads but may not write: its label is named.
SELECT lavrel.write_mediation(:p1, 10);
-- Rows it does not read: their labels are not named.
SELECT lavrel.write_mediation(:p1, 33);
SELECT lavrel.write_mediation(:p1, 99);
SELECT lavrel.write_mediation(:p1, NULL);
-- New labels: outside the write range, null, no label of the policy.
SELECT lavrel.label_insert(:p1, 20);
SELECT lavrel.label_insert(:p1, NULL);
SELECT lavrel.label_insert(:p1, 999);
SELECT lavrel.label_insert(:p1, 90);
-- Label changes: to a label outside the write range or none, a raise
-- without WRITEUP, and from labels it does not read (not named).
SELECT lavrel.label_update(:p1, 21, 20);
SELECT lavrel.label_update(:p1, 21, NULL);
SELECT lavrel.label_update(:p1, 21, 31);
SELECT lavrel.label_update(:p1, 33, 31);
SELECT lavrel.label_update(:p1, NULL, 21);

\c - regress_rr_reader
-- READ reads every row, so every row label is named.
SELECT lavrel.write_mediation(:p1, 99);
SELECT lavrel.write_mediation(:p1, NULL);
SELECT lavrel.write_mediation(:p1, 999);
SELECT lavrel.label_update(:p1, NULL, 21);
SELECT lavrel.label_update(:p1, 999, 21);
-- The privileges a change lacks: both, one of them, a lowering.
SELECT lavrel.label_update(:p1, 10, 31);
\c - postgres
SELECT lavrel.set_user_privs('p1', 'regress_rr_reader', 'READ,WRITEUP');
\c - regress_rr_reader
SELECT lavrel.label_update(:p1, 10, 31);
SELECT lavrel.label_update(:p1, 31, 21);

\c - regress_rr_none
SELECT * FROM lavrel.my_labels();
SELECT lavrel.write_mediation(:p1, 10);
SELECT lavrel.label_insert(:p1, 10);
SELECT lavrel.label_insert(:p1, 0);
SELECT lavrel.label_update(:p1, 10, 20);
SELECT lavrel.generate_default_label_value(:p1);
-- A policy that does not exist: the message alone.
SELECT lavrel.label_insert(12345, 10);
SELECT lavrel.label_update(12345, 10, 20);

\c - postgres
SELECT lavrel.drop_policy('p1'), lavrel.drop_policy('p2');
DROP ROLE regress_rr_user, regress_rr_reader, regress_rr_none;
\i sql/include/drop_lavrel.sql

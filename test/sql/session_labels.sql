--
-- The session label state of a backend and its caches, as the administrator
-- sees them in his own session: the session labels built from his
-- authorization, the mediation mask of every label, the per-policy summary
-- with the default row label, and how a later change of the authorization
-- reaches a session that has set labels of its own.  Every statement
-- refreshes the session before it runs.
--
CREATE EXTENSION lavrel;

-- Levels low < mid < high, compartments a, b, c.  Labels 5 (low:c),
-- 35 (high:c) and 99 (high:a,b,c) carry compartment c, which the
-- administrator's max read label (high:a,b) never includes.
\i sql/include/policies_p1_p2.sql

-- The three session tables, with policy names for policy ids and masks
-- also in hexadecimal.
CREATE VIEW session_labels AS
SELECT p.policy_name, s.user_id::regrole AS user_id, s.privs, s.max_read_label,
       s.max_write_label, s.min_write_level, s.read_label, s.write_label, s.row_label
  FROM lavrel.show_session_labels() s JOIN lavrel.policies() p ON p.oid = s.policy_id;
CREATE VIEW label_lookup AS
SELECT p.policy_name, l.deault_row_label_id, l.max_label_id, l.min_label_id, l.label_count
  FROM lavrel.show_label_lookup() l JOIN lavrel.policies() p ON p.oid = l.policy_id;
CREATE VIEW label_mediation AS
SELECT m.label_id, lavrel.label_to_char(m.label_id) AS label, p.policy_name,
       m.information_mask AS mask, to_hex(m.information_mask) AS hex
  FROM lavrel.show_label_mediation() m JOIN lavrel.policies() p ON p.oid = m.policy_id;

-- The administrator holds no authorization yet: all three tables are empty
-- and the policy has no lookup record.
SELECT * FROM session_labels;
SELECT * FROM label_lookup;
SELECT * FROM label_mediation;
SELECT lavrel.generate_default_label_value(:p1),
       lavrel.policy_read_max_label_id(:p1), lavrel.policy_read_min_label_id(:p1);

-- Authorized with max read high:a,b, max write high:a, min write mid:a,
-- default mid:a and row label high:a.  The read label is the greatest lower
-- bound of the default and the min write label: mid:a.
SELECT lavrel.set_user_labels('p1', 'postgres', 'high:a,b', 'high:a', 'mid:a', 'mid:a', 'high:a');
SELECT lavrel.set_user_labels('p2', 'postgres', 'x');
SELECT * FROM session_labels ORDER BY policy_name;
-- Labels above the max read label (5, 35, 99) have no mediation record and
-- count nowhere: eight records, ids 10 to 33.  Read (0x01) where mid:a
-- dominates the label; write and insert (0x14) from mid:a to high:a.
-- Without privileges nothing else is granted.
SELECT * FROM label_mediation ORDER BY label_id;
-- The labels that may be inserted and lie below the row label high:a are
-- mid:a and high:a; high:a strictly dominates the other.
SELECT * FROM label_lookup ORDER BY policy_name;
SELECT lavrel.generate_default_label_value(:p1),
       lavrel.policy_read_max_label_id(:p1), lavrel.policy_read_min_label_id(:p1);

-- READ: a label that the read label does not dominate gets 0x43, without
-- any write or insert bit; labels above the max read label stay absent.
SELECT lavrel.set_user_privs('p1', 'postgres', 'READ');
SELECT * FROM label_mediation WHERE policy_name = 'p1' ORDER BY label_id;
SELECT * FROM label_lookup WHERE policy_name = 'p1';

-- FULL: 0x83 for reading where the read label does not suffice, 0x8C and
-- 0xB0 where the write range does not; now every record may be inserted,
-- and high:a remains the greatest candidate below the row label.
SELECT lavrel.set_user_privs('p1', 'postgres', 'FULL');
SELECT * FROM label_mediation WHERE policy_name = 'p1' ORDER BY label_id;
SELECT * FROM label_lookup WHERE policy_name = 'p1';

-- READ and FULL together: 0xC3 for reading through privileges.
SELECT lavrel.set_user_privs('p1', 'postgres', 'READ,FULL');
SELECT * FROM label_mediation WHERE policy_name = 'p1' ORDER BY label_id;

-- The privileges that change labels play no part in the masks.
SELECT lavrel.set_user_privs('p1', 'postgres', 'WRITEUP,WRITEDOWN,WRITEACROSS');
SELECT privs FROM session_labels WHERE policy_name = 'p1';
SELECT * FROM label_mediation WHERE policy_name = 'p1' ORDER BY label_id;
SELECT lavrel.set_user_privs('p1', 'postgres', NULL);

-- Synchronising twice in a row gives the same tables.
CREATE TEMP TABLE first_sync AS
SELECT (SELECT array_agg(m ORDER BY label_id) FROM label_mediation m) AS mediation,
       (SELECT array_agg(l ORDER BY policy_name) FROM label_lookup l) AS lookup,
       (SELECT array_agg(s ORDER BY policy_name) FROM session_labels s) AS labels;
SELECT f.mediation = (SELECT array_agg(m ORDER BY label_id) FROM label_mediation m) AS same_mediation,
       f.lookup = (SELECT array_agg(l ORDER BY policy_name) FROM label_lookup l) AS same_lookup,
       f.labels = (SELECT array_agg(s ORDER BY policy_name) FROM session_labels s) AS same_labels,
       cardinality(f.mediation) AS mediation_records
  FROM first_sync f;
DROP TABLE first_sync;

-- The session sets its read label to mid: (below the row label high:a).
-- The masks follow: low:a and mid:a are no longer readable.
SELECT lavrel.set_session_label('p1', 'mid');
SELECT read_label FROM session_labels WHERE policy_name = 'p1';
SELECT * FROM label_mediation WHERE policy_name = 'p1' ORDER BY label_id;

-- Widening the authorization (max write high:a becomes high:a,b) replaces
-- only the bounds: the session keeps its read label mid:, its write label
-- high:a and its row label high:a.
SELECT lavrel.set_user_labels('p1', 'postgres', 'high:a,b', 'high:a,b', 'mid:a', 'mid:a', 'high:a');
SELECT * FROM session_labels WHERE policy_name = 'p1';
SELECT * FROM label_mediation WHERE policy_name = 'p1' ORDER BY label_id;

-- Narrowing it (max read high:a,b becomes high:a) replaces the record: the
-- read label is mid:a again, and high:a,b and mid:b lose their records.
SELECT lavrel.set_user_labels('p1', 'postgres', 'high:a', 'high:a', 'mid:a', 'mid:a', 'high:a');
SELECT * FROM session_labels WHERE policy_name = 'p1';
SELECT * FROM label_mediation WHERE policy_name = 'p1' ORDER BY label_id;
SELECT * FROM label_lookup WHERE policy_name = 'p1';

-- A narrower min write label (mid:a raised to high:a) replaces the record
-- as well: the read label becomes mid:a merged with high:a, still mid:a,
-- after the session had lowered it to low:.
SELECT lavrel.set_session_label('p1', 'low');
SELECT read_label FROM session_labels WHERE policy_name = 'p1';
SELECT lavrel.set_user_labels('p1', 'postgres', 'high:a', 'high:a', 'high:a', 'mid:a', 'high:a');
SELECT * FROM session_labels WHERE policy_name = 'p1';

-- Without an authorization for p1 its records disappear at the next
-- statement; those of p2 remain.
SELECT lavrel.drop_user_access('p1', 'postgres');
SELECT * FROM session_labels;
SELECT * FROM label_lookup;
SELECT * FROM label_mediation;
SELECT lavrel.generate_default_label_value(:p1),
       lavrel.policy_read_max_label_id(:p1), lavrel.policy_read_min_label_id(:p1);

-- A fresh authorization with min write low and row label mid:a,b: every
-- label from low up to high:a,b may be inserted, and below mid:a,b the
-- greatest are mid:a and mid:b, which do not dominate each other.  So there
-- is no default row label.
SELECT lavrel.set_user_labels('p1', 'postgres', 'high:a,b', 'high:a,b', 'low', 'low', 'mid:a,b');
SELECT * FROM session_labels WHERE policy_name = 'p1';
SELECT * FROM label_mediation WHERE policy_name = 'p1' ORDER BY label_id;
SELECT * FROM label_lookup WHERE policy_name = 'p1';
SELECT lavrel.generate_default_label_value(:p1);

-- Without any authorization all three tables are empty.
SELECT lavrel.drop_user_access('p1', 'postgres');
SELECT lavrel.drop_user_access('p2', 'postgres');
SELECT (SELECT count(*) FROM lavrel.show_session_labels()) AS session_labels,
       (SELECT count(*) FROM lavrel.show_label_lookup()) AS lookup,
       (SELECT count(*) FROM lavrel.show_label_mediation()) AS mediation;

DROP VIEW session_labels, label_lookup, label_mediation;
SELECT lavrel.drop_policy('p1');
SELECT lavrel.drop_policy('p2');
\i sql/include/drop_lavrel.sql

--
-- The session label functions: setting the session's read and row labels,
-- showing the session tables, and the per-policy values that the policy
-- column's default and the label filter ask for.
--
CREATE EXTENSION lavrel;

-- Levels low < mid < high, compartments a, b, c.  Labels 5 (low:c),
-- 35 (high:c) and 99 (high:a,b,c) carry compartment c, which no
-- authorization below includes.  Policy p2 is not used here.
\i sql/include/policies_p1_p2.sql
CREATE ROLE regress_sf_user LOGIN;

CREATE VIEW session_labels AS
SELECT s.privs, s.max_read_label, s.max_write_label, s.min_write_level,
       s.read_label, s.write_label, s.row_label
  FROM lavrel.show_session_labels() s WHERE s.policy_id = :p1;
CREATE VIEW label_lookup AS
SELECT l.deault_row_label_id, l.max_label_id, l.min_label_id, l.label_count
  FROM lavrel.show_label_lookup() l WHERE l.policy_id = :p1;

-- Before the administrator is authorized there is no session label to set,
-- and the policy has no lookup record.
SELECT * FROM session_labels;
SELECT lavrel.set_session_label('p1', 'low');
SELECT lavrel.set_session_row_label('p1', 'low');
\set VERBOSITY sqlstate
SELECT lavrel.set_session_label('p1', 'low');
SELECT lavrel.set_session_row_label('p1', 'low');
\set VERBOSITY default
SELECT lavrel.generate_default_label_value(:p1);
SELECT lavrel.policy_read_max_label_id(:p1), lavrel.policy_read_min_label_id(:p1);

-- Errors of the argument checks, the policy lookup and the label parser
-- come first.
SELECT lavrel.set_session_label(NULL, 'low');
SELECT lavrel.set_session_label('p1', NULL);
SELECT lavrel.set_session_label('p1', '');
SELECT lavrel.set_session_label('nosuch', 'low');
SELECT lavrel.set_session_row_label('p1', 'top');
SELECT lavrel.set_session_row_label('p1', 'mid:d');

-- Authorized with max read high:a,b, max write high:a, min write mid:a,
-- default mid:a and row label high:a: the read label is mid:a.
SELECT lavrel.set_user_labels('p1', 'postgres', 'high:a,b', 'high:a', 'mid:a', 'mid:a', 'high:a');
SELECT * FROM session_labels;
SELECT * FROM label_lookup;
SELECT lavrel.read_mediation(:p1, 11) AS low_a, lavrel.read_mediation(:p1, 31) AS high_a;

-- The read label must lie below the row label high:a: high:a,b does not,
-- although the max read label allows it.  A failed check changes nothing.
SELECT lavrel.set_session_label('p1', 'high:a,b');
\set VERBOSITY sqlstate
SELECT lavrel.set_session_label('p1', 'high:a,b');
\set VERBOSITY default
SELECT * FROM session_labels;
-- The row label itself is accepted; the read label becomes its greatest
-- lower bound with the min write label mid:a.
SELECT lavrel.set_session_label('p1', 'high:a');
SELECT read_label FROM session_labels;
-- mid: merged with mid:a is mid:, and the reads follow: low:a is no longer
-- readable, mid: is.
SELECT lavrel.set_session_label('p1', 'mid');
SELECT read_label FROM session_labels;
SELECT lavrel.read_mediation(:p1, 10) AS low, lavrel.read_mediation(:p1, 11) AS low_a,
       lavrel.read_mediation(:p1, 20) AS mid, lavrel.read_mediation(:p1, 21) AS mid_a;

-- The session label belongs to the backend: a transaction that set it and
-- then aborts does not undo it.
BEGIN;
SELECT lavrel.set_session_label('p1', 'low:a');
SELECT 1 / 0;
ROLLBACK;
SELECT read_label FROM session_labels;

-- The row label must lie between the min write label mid:a and the write
-- label high:a.
SELECT lavrel.set_session_row_label('p1', 'high:a,b');
SELECT lavrel.set_session_row_label('p1', 'low');
SELECT lavrel.set_session_row_label('p1', 'high');
\set VERBOSITY sqlstate
SELECT lavrel.set_session_row_label('p1', 'high:a,b');
SELECT lavrel.set_session_row_label('p1', 'low');
\set VERBOSITY default
SELECT * FROM session_labels;
-- With row label mid:a the only label that may be inserted below it is
-- mid:a itself.
SELECT lavrel.set_session_row_label('p1', 'mid:a');
SELECT row_label FROM session_labels;
SELECT * FROM label_lookup;
SELECT lavrel.generate_default_label_value(:p1);
-- The read label must now lie below mid:a.
SELECT lavrel.set_session_label('p1', 'high:a');
SELECT lavrel.set_session_label('p1', 'mid:a');
SELECT read_label, row_label FROM session_labels;
SELECT lavrel.set_session_row_label('p1', 'high:a');
SELECT deault_row_label_id FROM label_lookup;

-- A fresh authorization with min write label low and write label high:a,b.
SELECT lavrel.drop_user_access('p1', 'postgres');
SELECT * FROM session_labels;
SELECT lavrel.set_user_labels('p1', 'postgres', 'high:a,b', 'high:a,b', 'low', 'low', 'high:a,b');
SELECT * FROM session_labels;
SELECT * FROM label_lookup;
-- Below row label mid:a,b the greatest insertable labels are mid:a and
-- mid:b, neither of which dominates the other: no default row label.
SELECT lavrel.set_session_row_label('p1', 'mid:a,b');
SELECT * FROM label_lookup;
SELECT lavrel.generate_default_label_value(:p1);
SELECT lavrel.set_session_row_label('p1', 'low');
SELECT deault_row_label_id FROM label_lookup;
SELECT lavrel.set_session_row_label('p1', 'mid:b');
SELECT deault_row_label_id FROM label_lookup;
SELECT lavrel.generate_default_label_value(:p1);

-- The per-policy values refuse a null or 0 policy id; a policy without a
-- lookup record answers 0.
SELECT lavrel.generate_default_label_value(0);
SELECT lavrel.generate_default_label_value(NULL);
SELECT lavrel.policy_read_max_label_id(0);
SELECT lavrel.policy_read_max_label_id(NULL);
SELECT lavrel.policy_read_min_label_id(0);
SELECT lavrel.policy_read_min_label_id(NULL);
\set VERBOSITY sqlstate
SELECT lavrel.generate_default_label_value(0);
SELECT lavrel.policy_read_max_label_id(0);
SELECT lavrel.policy_read_min_label_id(0);
\set VERBOSITY default
SELECT lavrel.generate_default_label_value(:p1 + 1000);
SELECT lavrel.policy_read_max_label_id(:p1 + 1000), lavrel.policy_read_min_label_id(:p1 + 1000);

-- Only the administrator may set or show session labels; anyone may ask
-- for the per-policy values.
\c - regress_sf_user
SELECT lavrel.set_session_label('p1', 'low');
SELECT lavrel.set_session_row_label('p1', 'low');
SELECT * FROM lavrel.show_session_labels();
SELECT * FROM lavrel.show_label_lookup();
SELECT * FROM lavrel.show_label_mediation();
SELECT lavrel.generate_default_label_value(:p1);
SELECT lavrel.policy_read_max_label_id(:p1), lavrel.policy_read_min_label_id(:p1);
\c - postgres

-- The session tables are shown with the columns their function declares;
-- a declaration with another number of columns is refused, once the
-- permission check has passed.
CREATE FUNCTION regress_lookup_short() RETURNS TABLE(policy_id oid, label_count integer)
AS '$libdir/lavrel', 'ShowLabelLookup' LANGUAGE C;
\set VERBOSITY sqlstate
SELECT * FROM regress_lookup_short();
\set VERBOSITY default
SELECT * FROM regress_lookup_short();
\c - regress_sf_user
SELECT * FROM regress_lookup_short();
\c - postgres
DROP FUNCTION regress_lookup_short();

-- A backend in which access control was never on has never synchronised,
-- so it has no session tables: the lookup-info accessors fail, the row
-- checks answer "no access" and the session functions are refused.
SELECT lavrel.read_mediation(:p1, 10);
ALTER SYSTEM SET lavrel.enable_mac = off;
SELECT pg_reload_conf();
\c
SHOW lavrel.enable_mac;
SELECT lavrel.policy_read_max_label_id(:p1);
SELECT lavrel.policy_read_min_label_id(:p1);
SELECT lavrel.generate_default_label_value(:p1);
\set VERBOSITY sqlstate
SELECT lavrel.policy_read_max_label_id(:p1);
\set VERBOSITY default
SELECT lavrel.policy_read_max_label_id(0);
SELECT lavrel.read_mediation(:p1, 10);
SELECT lavrel.label_insert(:p1, 10);
SELECT lavrel.label_update(:p1, 10, 10);
SELECT lavrel.set_session_label('p1', 'low');
SELECT * FROM lavrel.show_session_labels();
ALTER SYSTEM RESET lavrel.enable_mac;
SELECT pg_reload_conf();
\c
SHOW lavrel.enable_mac;
SELECT lavrel.policy_read_max_label_id(:p1), lavrel.policy_read_min_label_id(:p1);

DROP VIEW session_labels, label_lookup;
SELECT lavrel.drop_policy('p1');
SELECT lavrel.drop_policy('p2');
DROP ROLE regress_sf_user;
\i sql/include/drop_lavrel.sql

--
-- A label id keeps its identity when the label is altered or dropped:
-- rows and sessions refer to the id, so the session judges the id by the
-- label's new level and compartments from its next statement on, and a
-- dropped label's id is no longer readable without privileges.
--
CREATE EXTENSION lavrel;
SELECT lavrel.create_policy('p', 'p_label');
SELECT lavrel.create_level('p', 'low', 10);
SELECT lavrel.create_level('p', 'mid', 20);
SELECT lavrel.create_level('p', 'high', 30);
SELECT lavrel.create_compartment('p', 'a', 1);
SELECT lavrel.create_label('p', 'low', 10);
SELECT lavrel.create_label('p', 'mid', 20);
SELECT lavrel.create_label('p', 'high', 30);
SELECT lavrel.create_label('p', 'mid:a', 21);
CREATE ROLE regress_alter_user LOGIN;
-- Reads up to mid without compartments, writes only at mid.
SELECT lavrel.set_user_labels('p', 'regress_alter_user', 'mid',
                              min_write_label => 'mid', def_label => 'mid');
SELECT oid AS policy FROM lavrel.policies() WHERE policy_name = 'p' \gset

\c - regress_alter_user
SELECT id, lavrel.read_mediation(:policy, id) AS may_read
  FROM unnest(ARRAY[10, 20, 21, 30]) AS id;

\c - postgres
-- low is dropped, high becomes low, mid:a becomes high:a ...
SELECT lavrel.drop_label('p', 10);
SELECT lavrel.alter_label('p', 30, 'low:');
SELECT lavrel.alter_label('p', 'mid:a', 'high:a');

\c - regress_alter_user
-- ... so id 30 is readable now, id 10 (dropped) and id 21 (now high:a) not.
SELECT id, lavrel.read_mediation(:policy, id) AS may_read
  FROM unnest(ARRAY[10, 20, 21, 30]) AS id;

\c - postgres
SELECT lavrel.drop_policy('p');
DROP ROLE regress_alter_user;
\i sql/include/drop_lavrel.sql

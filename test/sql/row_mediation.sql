--
-- The row checks that rewritten queries call for every row: may a row be
-- read, may it be written, may a new row carry a label, may an update
-- change a row's label.  Each user asks in a connection of his own, so each
-- answer comes from that user's own session.
--
CREATE EXTENSION lavrel;

-- 'SQLSTATE: message' of the error that stmt raises, with $1 bound to the
-- policy id; 'no error' when stmt succeeds.
CREATE FUNCTION error_of(policy oid, stmt text) RETURNS text
LANGUAGE plpgsql AS $$
BEGIN
    EXECUTE stmt USING policy;
    RETURN 'no error';
EXCEPTION WHEN OTHERS THEN
    RETURN SQLSTATE || ': ' || SQLERRM;
END
$$;

-- Levels low < mid < high, compartments a, b, c.
\i sql/include/policies_p1_p2.sql

-- Every label id the checks are asked about: those of p1 and p2, ids
-- without a label, and ids out of range.
CREATE TABLE label_ids (id integer);
INSERT INTO label_ids
VALUES (NULL), (-1), (0), (5), (10), (11), (20), (21), (22), (30), (31), (33), (35), (99),
       (90), (12345), (100000000);
GRANT SELECT ON label_ids TO PUBLIC;

CREATE ROLE regress_rm_alice LOGIN;
CREATE ROLE regress_rm_dave LOGIN;
CREATE ROLE regress_rm_erin LOGIN;
CREATE ROLE regress_rm_gina LOGIN;
CREATE ROLE regress_rm_frank LOGIN;
CREATE ROLE regress_rm_bob LOGIN;
CREATE ROLE regress_rm_carol LOGIN;
CREATE ROLE regress_rm_henry LOGIN;

-- alice, dave and erin: max read high:a,b, max write high:a, min write
-- mid:a, default mid:a, row label high:a.  They read from low up to mid:a
-- and write from mid:a up to high:a; dave holds READ, erin FULL.  alice and
-- erin are also authorized under p2.
SELECT lavrel.set_user_labels('p1', u, 'high:a,b', 'high:a', 'mid:a', 'mid:a', 'high:a')
  FROM unnest(ARRAY['regress_rm_alice', 'regress_rm_dave', 'regress_rm_erin']) AS u;
SELECT lavrel.set_user_privs('p1', 'regress_rm_dave', 'READ');
SELECT lavrel.set_user_privs('p1', 'regress_rm_erin', 'FULL');
SELECT lavrel.set_user_labels('p2', u, 'x')
  FROM unnest(ARRAY['regress_rm_alice', 'regress_rm_erin']) AS u;
-- gina: max read high:a and nothing else, so her min write label is low and
-- her default label high:a; she reads only low.
SELECT lavrel.set_user_labels('p1', 'regress_rm_gina', 'high:a');
-- frank, bob and carol: max read and max write high:a,b, min write and
-- default mid, row label high:a,b; bob holds WRITEUP, carol WRITEDOWN and
-- WRITEACROSS.
SELECT lavrel.set_user_labels('p1', u, 'high:a,b', 'high:a,b', 'mid', 'mid', 'high:a,b')
  FROM unnest(ARRAY['regress_rm_frank', 'regress_rm_bob', 'regress_rm_carol']) AS u;
SELECT lavrel.set_user_privs('p1', 'regress_rm_bob', 'WRITEUP');
SELECT lavrel.set_user_privs('p1', 'regress_rm_carol', 'WRITEDOWN,WRITEACROSS');
-- henry has no authorization.
-- alice may act as gina, and henry as alice.
GRANT regress_rm_gina TO regress_rm_alice;
GRANT regress_rm_alice TO regress_rm_henry;

-- ---------------------------------------------------------------------
-- alice: no privileges
-- ---------------------------------------------------------------------
\c - regress_rm_alice
-- Readable: the labels mid:a dominates.  Labels above the max read label,
-- unknown and out-of-range ids, null, and p2's label 90 asked under p1 are
-- left to the privileges, and alice has none.
SELECT id, lavrel.read_mediation(:p1, id) FROM label_ids ORDER BY id NULLS FIRST;
SELECT lavrel.read_mediation(:p2, 90) AS p2_x;
SELECT lavrel.policy_read_min_label_id(:p1) AS min, lavrel.policy_read_max_label_id(:p1) AS max,
       lavrel.generate_default_label_value(:p1) AS default_label;

-- Writable and insertable: mid:a and high:a.
SELECT lavrel.write_mediation(:p1, 21) AS mid_a, lavrel.write_mediation(:p1, 31) AS high_a,
       lavrel.write_mediation(:p2, 90) AS p2_x;
SELECT lavrel.label_insert(:p1, 21) AS mid_a, lavrel.label_insert(:p1, 31) AS high_a,
       lavrel.label_insert(:p2, 90) AS p2_x;
SELECT stmt, error_of(:p1, stmt)
  FROM (VALUES ('SELECT lavrel.write_mediation($1, 10)'),
               ('SELECT lavrel.write_mediation($1, 33)'),
               ('SELECT lavrel.write_mediation($1, 99)'),
               ('SELECT lavrel.write_mediation($1, NULL)'),
               ('SELECT lavrel.write_mediation($1, 90)'),
               ('SELECT lavrel.label_insert($1, 10)'),
               ('SELECT lavrel.label_insert($1, 99)'),
               ('SELECT lavrel.label_insert($1, NULL)'),
               ('SELECT lavrel.label_insert($1, 90)'),
               ('SELECT lavrel.label_insert($1, 12345)')) AS v(stmt);

-- A null or 0 policy id is refused by every check.
SELECT p AS policy, stmt, error_of(p, stmt)
  FROM (VALUES (0::oid), (NULL)) AS p(p),
       (VALUES ('SELECT lavrel.read_mediation($1, 10)'),
               ('SELECT lavrel.write_mediation($1, 21)'),
               ('SELECT lavrel.label_insert($1, 21)'),
               ('SELECT lavrel.label_update($1, 21, 21)')) AS v(stmt);

-- An update that keeps the label passes without any further test, even
-- outside the write range or the valid ids.
SELECT lavrel.label_update(:p1, 21, 21) AS mid_a, lavrel.label_update(:p1, 10, 10) AS low,
       lavrel.label_update(:p1, 99, 99) AS above_max_read,
       lavrel.label_update(:p1, 100000000, 100000000) AS out_of_range;
-- Every real change needs a privilege here: raising, lowering, a null
-- label, a label of another policy or an unknown one.
SELECT stmt, error_of(:p1, stmt)
  FROM (VALUES ('SELECT lavrel.label_update($1, 21, 31)'),
               ('SELECT lavrel.label_update($1, 31, 21)'),
               ('SELECT lavrel.label_update($1, NULL, 21)'),
               ('SELECT lavrel.label_update($1, 21, NULL)'),
               ('SELECT lavrel.label_update($1, NULL, NULL)'),
               ('SELECT lavrel.label_update($1, 21, 90)'),
               ('SELECT lavrel.label_update($1, 21, 12345)')) AS v(stmt);

-- The session belongs to the session user: acting as gina, who reads only
-- low and may insert it, alice still reads mid:a and may not insert low.
SET ROLE regress_rm_gina;
SELECT current_user, lavrel.read_mediation(:p1, 21) AS mid_a;
SELECT error_of(:p1, 'SELECT lavrel.label_insert($1, 10)');
RESET ROLE;

-- ---------------------------------------------------------------------
-- dave: READ
-- ---------------------------------------------------------------------
\c - regress_rm_dave
-- READ lets him read every row, whatever its label, null included.
SELECT id, lavrel.read_mediation(:p1, id) FROM label_ids ORDER BY id NULLS FIRST;
SELECT lavrel.policy_read_min_label_id(:p1) AS min, lavrel.policy_read_max_label_id(:p1) AS max;
-- It does not widen writing or inserting, nor allow label changes.
SELECT lavrel.write_mediation(:p1, 21) AS mid_a, lavrel.label_insert(:p1, 31) AS high_a;
SELECT stmt, error_of(:p1, stmt)
  FROM (VALUES ('SELECT lavrel.write_mediation($1, 22)'),
               ('SELECT lavrel.write_mediation($1, NULL)'),
               ('SELECT lavrel.label_insert($1, 22)'),
               ('SELECT lavrel.label_insert($1, NULL)'),
               ('SELECT lavrel.label_update($1, NULL, 21)'),
               ('SELECT lavrel.label_update($1, 21, 31)')) AS v(stmt);

-- ---------------------------------------------------------------------
-- erin: FULL
-- ---------------------------------------------------------------------
\c - regress_rm_erin
-- FULL reads, writes and inserts every label, null and unknown ids too,
-- and p2's label asked under p1.
SELECT id, lavrel.read_mediation(:p1, id) AS read, lavrel.write_mediation(:p1, id) AS write,
       lavrel.label_insert(:p1, id) AS inserted
  FROM label_ids ORDER BY id NULLS FIRST;
SELECT lavrel.policy_read_min_label_id(:p1) AS min, lavrel.policy_read_max_label_id(:p1) AS max;
-- Every label change passes, whatever the write range: to and from null,
-- raising to a label above the max read label, lowering across
-- compartments, to a label of another policy or an unknown one.
SELECT lavrel.label_update(:p1, NULL, 21) AS from_null,
       lavrel.label_update(:p1, 21, NULL) IS NULL AS to_null,
       lavrel.label_update(:p1, 10, 99) AS low_to_high_abc,
       lavrel.label_update(:p1, 33, 10) AS high_ab_to_low,
       lavrel.label_update(:p1, 21, 90) AS to_p2,
       lavrel.label_update(:p1, 21, 12345) AS to_unknown;
-- The policy id is still checked.
SELECT stmt, error_of(0, stmt)
  FROM (VALUES ('SELECT lavrel.read_mediation($1, 10)'),
               ('SELECT lavrel.label_update($1, 21, 31)')) AS v(stmt);

-- ---------------------------------------------------------------------
-- gina: only a max read label given
-- ---------------------------------------------------------------------
\c - regress_rm_gina
-- Her read label is low (high:a merged with the min write label low), so
-- she reads only low, though she may write from low up to high:a.
SELECT id, lavrel.read_mediation(:p1, id) FROM label_ids WHERE id IN (10, 11, 20, 21, 31) ORDER BY id;
SELECT lavrel.write_mediation(:p1, 20) AS mid, lavrel.label_insert(:p1, 10) AS low,
       lavrel.label_insert(:p1, 11) AS low_a, lavrel.label_insert(:p1, 31) AS high_a;
SELECT stmt, error_of(:p1, stmt)
  FROM (VALUES ('SELECT lavrel.label_insert($1, 22)'),
               ('SELECT lavrel.write_mediation($1, 33)')) AS v(stmt);
SELECT lavrel.policy_read_min_label_id(:p1) AS min, lavrel.policy_read_max_label_id(:p1) AS max,
       lavrel.generate_default_label_value(:p1) AS default_label;

-- ---------------------------------------------------------------------
-- Label changes within the write range mid .. high:a,b
-- ---------------------------------------------------------------------
\c - regress_rm_frank
-- Without privileges a change of level or of compartments fails.
SELECT lavrel.label_insert(:p1, 33) AS high_ab, lavrel.label_update(:p1, 20, 20) AS mid;
SELECT stmt, error_of(:p1, stmt)
  FROM (VALUES ('SELECT lavrel.label_insert($1, 10)'),
               ('SELECT lavrel.label_update($1, 20, 30)'),
               ('SELECT lavrel.label_update($1, 21, 31)'),
               ('SELECT lavrel.label_update($1, 31, 21)'),
               ('SELECT lavrel.label_update($1, 21, 22)')) AS v(stmt);

\c - regress_rm_bob
-- WRITEUP raises the level with the compartments kept, when the new label
-- lies in the write range (the old one need not).
SELECT lavrel.label_update(:p1, 20, 30) AS mid_to_high,
       lavrel.label_update(:p1, 21, 31) AS mid_a_to_high_a,
       lavrel.label_update(:p1, 10, 20) AS low_to_mid;
SELECT stmt, error_of(:p1, stmt)
  FROM (VALUES ('SELECT lavrel.label_update($1, 31, 21)'),
               ('SELECT lavrel.label_update($1, 20, 31)'),
               ('SELECT lavrel.label_update($1, 5, 35)')) AS v(stmt);

\c - regress_rm_carol
-- WRITEDOWN lowers the level, WRITEACROSS changes the compartments; both
-- only to a label in the write range.
SELECT lavrel.label_update(:p1, 31, 21) AS high_a_to_mid_a,
       lavrel.label_update(:p1, 21, 22) AS mid_a_to_mid_b,
       lavrel.label_update(:p1, 31, 22) AS high_a_to_mid_b,
       lavrel.label_update(:p1, 33, 21) AS high_ab_to_mid_a;
SELECT stmt, error_of(:p1, stmt)
  FROM (VALUES ('SELECT lavrel.label_update($1, 20, 10)'),
               ('SELECT lavrel.label_update($1, 21, 31)'),
               ('SELECT lavrel.label_update($1, 21, 11)')) AS v(stmt);

-- ---------------------------------------------------------------------
-- henry: no authorization, so no session record for p1
-- ---------------------------------------------------------------------
\c - regress_rm_henry
SELECT id, lavrel.read_mediation(:p1, id) FROM label_ids WHERE id IS NULL OR id IN (10, 21) ORDER BY id NULLS FIRST;
SELECT stmt, error_of(:p1, stmt)
  FROM (VALUES ('SELECT lavrel.write_mediation($1, 10)'),
               ('SELECT lavrel.label_insert($1, 10)'),
               ('SELECT lavrel.label_insert($1, NULL)'),
               ('SELECT lavrel.label_update($1, 10, 10)'),
               ('SELECT lavrel.label_update($1, NULL, NULL)')) AS v(stmt);
SELECT lavrel.policy_read_min_label_id(:p1) AS min, lavrel.policy_read_max_label_id(:p1) AS max,
       lavrel.generate_default_label_value(:p1) AS default_label;
-- Acting as alice does not lend him her session labels.
SET ROLE regress_rm_alice;
SELECT current_user, lavrel.read_mediation(:p1, 21) AS mid_a;
SELECT error_of(:p1, 'SELECT lavrel.label_insert($1, 21)');
RESET ROLE;

\c - postgres
DROP TABLE label_ids;
DROP FUNCTION error_of(oid, text);
SELECT lavrel.drop_policy('p1');
SELECT lavrel.drop_policy('p2');
DROP ROLE regress_rm_alice, regress_rm_dave, regress_rm_erin, regress_rm_gina,
          regress_rm_frank, regress_rm_bob, regress_rm_carol, regress_rm_henry;
\i sql/include/drop_lavrel.sql

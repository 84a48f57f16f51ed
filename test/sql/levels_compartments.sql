--
-- Levels and compartments of a policy: creating them, and what dropping one
-- does to the labels and user authorizations that use it.
--
CREATE EXTENSION lavrel;
\i sql/include/try_stmt.sql

SELECT lavrel.create_policy('p', 'p_col');
SELECT lavrel.create_policy('q', 'q_col');

-- ---------------------------------------------------------------------
-- Ids and names are unique within a policy, not across policies.
-- ---------------------------------------------------------------------
SELECT lavrel.create_level(policy, name, id)
  FROM (VALUES ('p', 'low', 1), ('p', 'mid', 2), ('p', 'high', 3), ('p', 'ponly', 7),
               ('q', 'low', 1), ('q', 'mid', 2), ('q', 'high', 3)) AS v(policy, name, id);
SELECT lavrel.create_compartment(policy, name, id)
  FROM (VALUES ('p', 'a', 1), ('p', 'b', 2), ('p', 'c', 3),
               ('q', 'a', 1)) AS v(policy, name, id);
SELECT * FROM lavrel.lavrel_level ORDER BY policy_oid, level_id;
SELECT * FROM lavrel.lavrel_compartment ORDER BY policy_oid, compartment_id;
SELECT stmt, try_stmt(stmt) AS outcome FROM (VALUES
    ($$SELECT lavrel.create_level('p', 'other', 2)$$),
    ($$SELECT lavrel.create_level('p', 'MID', 9)$$),
    -- the id is looked at first
    ($$SELECT lavrel.create_level('p', 'mid', 2)$$),
    ($$SELECT lavrel.create_compartment('p', 'z', 1)$$),
    ($$SELECT lavrel.create_compartment('p', 'A', 9)$$),
    ($$SELECT lavrel.create_compartment('p', 'a', 1)$$),
    ($$SELECT lavrel.create_level('nosuch', 'low', 1)$$),
    ($$SELECT lavrel.create_compartment('nosuch', 'a', 1)$$),
    -- an unknown id is reported by number, an unknown name by name
    ($$SELECT lavrel.drop_level('p', 9)$$),
    ($$SELECT lavrel.drop_level('p', 'nosuch')$$),
    ($$SELECT lavrel.drop_level('q', 'ponly')$$),
    ($$SELECT lavrel.drop_compartment('p', 9)$$),
    ($$SELECT lavrel.drop_compartment('p', 'nosuch')$$),
    ($$SELECT lavrel.drop_compartment('nosuch', 'a')$$),
    ($$SELECT lavrel.drop_level('nosuch', 1)$$)
) AS t(stmt);
SELECT count(*) AS levels FROM lavrel.lavrel_level;
SELECT count(*) AS compartments FROM lavrel.lavrel_compartment;

-- ---------------------------------------------------------------------
-- Dropping a level deletes every label of the policy with that level and
-- every user authorization of the policy whose maximum, minimum write,
-- default or row level it is.
-- ---------------------------------------------------------------------
SELECT lavrel.create_label(policy, label, id)
  FROM (VALUES ('p', 'low', 11), ('p', 'low:a', 12), ('p', 'mid', 21), ('p', 'mid:a,b', 22),
               ('p', 'high', 31), ('p', 'high:c', 32), ('q', 'mid', 121)) AS v(policy, label, id);
CREATE ROLE regress_lavrel_umax;
CREATE ROLE regress_lavrel_umin;
CREATE ROLE regress_lavrel_udef;
CREATE ROLE regress_lavrel_urow;
CREATE ROLE regress_lavrel_ukeep;
-- set_levels takes the maximum, minimum write, default and row level.
SELECT lavrel.set_levels(policy, member, max, min, def, row)
  FROM (VALUES ('p', 'regress_lavrel_umax', 'mid', 'low', 'low', 'low'),
               ('p', 'regress_lavrel_umin', 'high', 'mid', 'high', 'high'),
               ('p', 'regress_lavrel_udef', 'high', 'low', 'mid', 'high'),
               ('p', 'regress_lavrel_urow', 'high', 'low', 'low', 'mid'),
               ('p', 'regress_lavrel_ukeep', 'high', 'low', 'low', 'high'),
               ('q', 'regress_lavrel_ukeep', 'mid', 'mid', 'mid', 'mid'))
       AS v(policy, member, max, min, def, row);
SELECT p.policy_name, u.user_oid::regrole, u.max_level, u.min_write_level, u.def_level, u.row_level
  FROM lavrel.lavrel_user u JOIN lavrel.lavrel_policy p USING (policy_oid)
 ORDER BY p.policy_name, u.user_oid::regrole::text;
SELECT lavrel.drop_level('p', 'mid');
SELECT p.policy_name, l.label_id, l.level_id, l.compartments
  FROM lavrel.lavrel_label l JOIN lavrel.lavrel_policy p USING (policy_oid)
 ORDER BY 1, 2;
SELECT p.policy_name, u.user_oid::regrole, u.max_level, u.min_write_level, u.def_level, u.row_level
  FROM lavrel.lavrel_user u JOIN lavrel.lavrel_policy p USING (policy_oid)
 ORDER BY p.policy_name, u.user_oid::regrole::text;
SELECT policy_oid, level_id, level_name FROM lavrel.lavrel_level ORDER BY 1, 2;
-- The same by id.
SELECT lavrel.drop_level('p', 3);
SELECT p.policy_name, l.label_id, l.level_id, l.compartments
  FROM lavrel.lavrel_label l JOIN lavrel.lavrel_policy p USING (policy_oid)
 ORDER BY 1, 2;
SELECT p.policy_name, u.user_oid::regrole
  FROM lavrel.lavrel_user u JOIN lavrel.lavrel_policy p USING (policy_oid)
 ORDER BY p.policy_name, u.user_oid::regrole::text;

-- ---------------------------------------------------------------------
-- Dropping a compartment deletes the labels that contain it and the user
-- authorizations that name it in any compartment set; labels without it,
-- or without any compartment, stay.
-- ---------------------------------------------------------------------
SELECT lavrel.create_label('p', 'low:b', 13);
SELECT lavrel.create_label('p', 'low:a,b', 14);
SELECT lavrel.set_levels('p', 'regress_lavrel_umax', 'low');
SELECT lavrel.set_compartments('p', 'regress_lavrel_umax', 'a,b', 'b');
SELECT lavrel.set_levels('p', 'regress_lavrel_ukeep', 'low');
SELECT lavrel.set_compartments('p', 'regress_lavrel_ukeep', 'b');
SELECT p.policy_name, u.user_oid::regrole, u.max_read_comps, u.max_write_comps,
       u.def_comps, u.row_comps, u.min_write_comps
  FROM lavrel.lavrel_user u JOIN lavrel.lavrel_policy p USING (policy_oid)
 ORDER BY p.policy_name, u.user_oid::regrole::text;
SELECT lavrel.drop_compartment('p', 'a');
SELECT p.policy_name, l.label_id, l.level_id, l.compartments
  FROM lavrel.lavrel_label l JOIN lavrel.lavrel_policy p USING (policy_oid)
 ORDER BY 1, 2;
SELECT p.policy_name, u.user_oid::regrole, u.max_read_comps
  FROM lavrel.lavrel_user u JOIN lavrel.lavrel_policy p USING (policy_oid)
 ORDER BY p.policy_name, u.user_oid::regrole::text;
-- The same by id.
SELECT lavrel.drop_compartment('p', 2);
SELECT p.policy_name, l.label_id, l.level_id, l.compartments
  FROM lavrel.lavrel_label l JOIN lavrel.lavrel_policy p USING (policy_oid)
 ORDER BY 1, 2;
SELECT p.policy_name, u.user_oid::regrole
  FROM lavrel.lavrel_user u JOIN lavrel.lavrel_policy p USING (policy_oid)
 ORDER BY p.policy_name, u.user_oid::regrole::text;
SELECT policy_oid, compartment_id, compartment_name FROM lavrel.lavrel_compartment ORDER BY 1, 2;

-- ---------------------------------------------------------------------
-- Clean up.  lavrel can be dropped only while access control is off.
-- ---------------------------------------------------------------------
SELECT lavrel.drop_policy('p');
SELECT lavrel.drop_policy('q');
DROP ROLE regress_lavrel_umax, regress_lavrel_umin, regress_lavrel_udef,
          regress_lavrel_urow, regress_lavrel_ukeep;
DROP FUNCTION try_stmt(text);
\i sql/include/drop_lavrel.sql

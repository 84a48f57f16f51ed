--
-- The catalog lookups, called directly: which of them answer "absent" with
-- a neutral value and which raise, and how labels, user authorizations and
-- table enforcements are found.
--
CREATE EXTENSION lavrel;
CREATE EXTENSION lavrel_test;

SELECT lavrel.create_policy('p1', 'p1_label');
SELECT lavrel.create_policy('p2', 'p2_label', true);
SELECT lavrel.create_policy('p3', 'p3_label');
SELECT policy_name, policy_oid FROM lavrel.lavrel_policy ORDER BY 1;

-- Policies by name: an unknown name is 0 to get_policy_id and an error to
-- get_policy_id_checked.  Names are compared exactly as given.
SELECT lavrel_test.get_policy_id('p1') AS p1,
       lavrel_test.get_policy_id('p2') AS p2,
       lavrel_test.get_policy_id('nosuch') AS nosuch,
       lavrel_test.get_policy_id('P1') AS upper_p1;
SELECT lavrel_test.get_policy_id_checked('p2');
SELECT lavrel_test.get_policy_id_checked('nosuch');
\set VERBOSITY sqlstate
SELECT lavrel_test.get_policy_id_checked('nosuch');
\set VERBOSITY default

-- The lowest level does not depend on the order of creation; a policy
-- without levels has none.
SELECT lavrel.create_level('p1', 'high', 30);
SELECT lavrel.create_level('p1', 'low', 10);
SELECT lavrel.create_level('p1', 'mid', 20);
SELECT lavrel_test.get_min_level_id(1);
SELECT lavrel_test.get_min_level_id(3);
\set VERBOSITY sqlstate
SELECT lavrel_test.get_min_level_id(3);
\set VERBOSITY default

-- Level names belong to one policy.
SELECT lavrel.create_level('p2', 'top', 5);
SELECT lavrel.create_level('p2', 'base', 10);
SELECT lavrel_test.get_level_id(1, 'high') AS p1_high,
       lavrel_test.get_level_id(2, 'high') AS p2_high,
       lavrel_test.get_level_id(2, 'top') AS p2_top,
       lavrel_test.get_level_id(1, 'top') AS p1_top;
SELECT lavrel_test.get_min_level_id(2);

-- Policy columns: an unknown column is an error to get_policy_colhidden and
-- 0 to get_policyid_by_colname.
SELECT lavrel_test.get_policy_colhidden('p1_label') AS p1_hidden,
       lavrel_test.get_policy_colhidden('p2_label') AS p2_hidden,
       lavrel_test.get_policyid_by_colname('p2_label') AS p2_label_policy,
       lavrel_test.get_policyid_by_colname('nosuch_col') AS nosuch_col_policy;
SELECT lavrel_test.get_policy_colhidden('nosuch_col');
\set VERBOSITY sqlstate
SELECT lavrel_test.get_policy_colhidden('nosuch_col');
\set VERBOSITY default

-- Labels by level and compartments: set equality within one policy.
SELECT lavrel.create_compartment('p1', 'a', 1);
SELECT lavrel.create_compartment('p1', 'b', 2);
SELECT lavrel.create_compartment('p1', 'c', 3);
SELECT lavrel.create_compartment('p1', 'd', 4);
SELECT lavrel.create_label('p1', 'low:a,b,c', 101);
SELECT lavrel.create_label('p1', 'low:a', 102);
SELECT lavrel.create_label('p2', 'base', 202);
-- 10{1,2} is neither 10{1,2,3} nor 10{1}.
SELECT lavrel_test.get_label_id(1, 10, '{1,2}');
SELECT lavrel.create_label('p1', 'low:b,a', 103);
SELECT label_id, policy_oid, level_id, compartments
  FROM lavrel.lavrel_label ORDER BY label_id;
SELECT lavrel_test.get_label_id(1, 10, '{1,2}') AS l12,
       lavrel_test.get_label_id(1, 10, '{2,1}') AS l21,
       lavrel_test.get_label_id(1, 10, '{3,2,1}') AS l321,
       lavrel_test.get_label_id(1, 10, '{1}') AS l1,
       lavrel_test.get_label_id(1, 20, '{1,2}') AS mid12,
       lavrel_test.get_label_id(1, 10, '{1,2,4}') AS l124;
-- 10{} exists only in p2 until p1 gets it too.
SELECT lavrel_test.get_label_id(1, 10, NULL) AS p1_low,
       lavrel_test.get_label_id(2, 10, NULL) AS p2_base;
SELECT lavrel.create_label('p1', 'low', 104);
SELECT lavrel_test.get_label_id(1, 10, NULL) AS p1_low,
       lavrel_test.get_label_id(2, 10, NULL) AS p2_base,
       lavrel_test.get_label_id(3, 10, NULL) AS p3_low;

-- Labels by id: an unknown id is null to get_label_by_id and an error to
-- get_label_policy_id.
SELECT lavrel_test.get_label_by_id(101) AS l101,
       lavrel_test.get_label_by_id(103) AS l103,
       lavrel_test.get_label_by_id(104) AS l104,
       lavrel_test.get_label_by_id(202) AS l202,
       lavrel_test.get_label_by_id(999) IS NULL AS l999_is_null;
SELECT lavrel_test.get_label_policy_id(103) AS l103,
       lavrel_test.get_label_policy_id(202) AS l202;
SELECT lavrel_test.get_label_policy_id(999);
\set VERBOSITY sqlstate
SELECT lavrel_test.get_label_policy_id(999);
\set VERBOSITY default

-- User authorizations: five labels that differ in every level and set.
CREATE ROLE regress_lavrel_user1;
CREATE ROLE regress_lavrel_user2;
SELECT lavrel.create_level('p1', 'top', 40);
SELECT lavrel.set_user_labels('p1', 'regress_lavrel_user1', 'top:a,b,c,d',
                              'top:a,b,c', 'low:b', 'mid:a', 'high:a,b');
-- With a record, the lookup fills it (and allocates its sets); without one
-- it only answers whether the user is authorized and leaves nothing
-- allocated.
SELECT found, bytes_left > 0 AS allocated, access
  FROM lavrel_test.get_user_policy_access(1, 'regress_lavrel_user1', true);
SELECT * FROM lavrel_test.get_user_policy_access(1, 'regress_lavrel_user1', false);
SELECT * FROM lavrel_test.get_user_policy_access(1, 'regress_lavrel_user2', true);
SELECT * FROM lavrel_test.get_user_policy_access(2, 'regress_lavrel_user1', false);

-- Privileges: 0 for anyone not authorized under the policy.
SELECT lavrel_test.get_user_policy_privilege(1, 'regress_lavrel_user1') AS new_user;
SELECT lavrel.set_user_privs('p1', 'regress_lavrel_user1', 'READ,WRITEDOWN');
SELECT lavrel_test.get_user_policy_privilege(1, 'regress_lavrel_user1') AS user1_p1,
       lavrel_test.get_user_policy_privilege(1, 'regress_lavrel_user2') AS user2_p1,
       lavrel_test.get_user_policy_privilege(2, 'regress_lavrel_user1') AS user1_p2;

-- The policies applied to a table.
CREATE TABLE regress_lavrel_t0 (x int);
CREATE TABLE regress_lavrel_t1 (x int);
CREATE TABLE regress_lavrel_t2 (x int);
SELECT lavrel.apply_table_policy('p1', 'public', 'regress_lavrel_t2');
SELECT lavrel.apply_table_policy('p2', 'public', 'regress_lavrel_t2');
SELECT lavrel.apply_table_policy('p2', 'public', 'regress_lavrel_t1');
SELECT rel, cardinality(ids), ARRAY(SELECT unnest(ids) ORDER BY 1) AS policies
  FROM (SELECT rel, lavrel_test.get_policyids_on_rel(rel) AS ids
          FROM unnest('{regress_lavrel_t0,regress_lavrel_t1,regress_lavrel_t2}'::regclass[])
               AS rel) AS s;

SELECT lavrel.drop_policy('p1', true);
SELECT lavrel.drop_policy('p2', true);
SELECT lavrel.drop_policy('p3');
DROP TABLE regress_lavrel_t0, regress_lavrel_t1, regress_lavrel_t2;
DROP ROLE regress_lavrel_user1, regress_lavrel_user2;

DROP EXTENSION lavrel_test;
\i sql/include/drop_lavrel.sql

-- policies_p1_p2.sql: policy p1 with levels low < mid < high, compartments
-- a, b, c and eleven labels (5 low:c, 10 low, 11 low:a, 20 mid, 21 mid:a,
-- 22 mid:b, 30 high, 31 high:a, 33 high:a,b, 35 high:c, 99 high:a,b,c), and
-- policy p2 with a single level x and label 90.  Sets :p1 and :p2 to their ids.
SELECT lavrel.create_policy('p1', 'p1_label');
SELECT lavrel.create_level('p1', 'low', 10);
SELECT lavrel.create_level('p1', 'mid', 20);
SELECT lavrel.create_level('p1', 'high', 30);
SELECT lavrel.create_compartment('p1', 'a', 1);
SELECT lavrel.create_compartment('p1', 'b', 2);
SELECT lavrel.create_compartment('p1', 'c', 3);
SELECT lavrel.create_label('p1', label, id)
  FROM (VALUES ('low:c', 5), ('low', 10), ('low:a', 11), ('mid', 20), ('mid:a', 21),
               ('mid:b', 22), ('high', 30), ('high:a', 31), ('high:a,b', 33),
               ('high:c', 35), ('high:a,b,c', 99)) AS v(label, id);
SELECT lavrel.create_policy('p2', 'p2_label');
SELECT lavrel.create_level('p2', 'x', 1);
SELECT lavrel.create_label('p2', 'x', 90);
SELECT oid AS p1 FROM lavrel.policies() WHERE policy_name = 'p1' \gset
SELECT oid AS p2 FROM lavrel.policies() WHERE policy_name = 'p2' \gset

--
-- The label record: the four-way comparison, the dominance predicates,
-- merging, copying and freeing.  A label is written level{compartments}.
--
CREATE EXTENSION lavrel;
CREATE EXTENSION lavrel_test;

-- A label against itself (the same record) and the four predicates.
SELECT lavrel_test.compare_labels(3, '{1,2}', NULL, NULL) AS self_order,
       lavrel_test.strictly_dominates(3, '{1,2}', NULL, NULL),
       lavrel_test.dominates(3, '{1,2}', NULL, NULL),
       lavrel_test.dominated_by(3, '{1,2}', NULL, NULL),
       lavrel_test.strictly_dominated_by(3, '{1,2}', NULL, NULL);

-- 3{1,2} against 2{1}, 2{1,3} and an equal label in another record.
SELECT lavrel_test.compare_labels(3, '{1,2}', 2, '{1}');
SELECT lavrel_test.compare_labels(3, '{1,2}', 2, '{1,3}');
SELECT lavrel_test.compare_labels(3, '{1,2}', 3, '{2,1}');

-- 2{} against 2{5}.
SELECT lavrel_test.compare_labels(2, NULL, 2, '{5}'),
       lavrel_test.strictly_dominates(2, NULL, 2, '{5}'),
       lavrel_test.dominates(2, NULL, 2, '{5}'),
       lavrel_test.dominated_by(2, NULL, 2, '{5}'),
       lavrel_test.strictly_dominated_by(2, NULL, 2, '{5}');

-- Every cell of the outcome table: the level of a against b's (2) by the
-- relation of a's compartments to b's.
SELECT a_level, a_comps, b_comps,
       lavrel_test.compare_labels(a_level, a_comps, 2, b_comps) AS a_to_b,
       lavrel_test.compare_labels(2, b_comps, a_level, a_comps) AS b_to_a,
       lavrel_test.strictly_dominates(a_level, a_comps, 2, b_comps) AS sd,
       lavrel_test.dominates(a_level, a_comps, 2, b_comps) AS d,
       lavrel_test.dominated_by(a_level, a_comps, 2, b_comps) AS dby,
       lavrel_test.strictly_dominated_by(a_level, a_comps, 2, b_comps) AS sdby
  FROM (VALUES (1::int2, '{1}'::int2[], '{1}'::int2[]),
               (1, '{1}', '{1,2}'),
               (1, '{1,2}', '{1}'),
               (1, '{1}', '{2}'),
               (2, '{1}', '{1}'),
               (2, '{1}', '{1,2}'),
               (2, '{1,2}', '{1}'),
               (2, '{1}', '{2}'),
               (3, '{1}', '{1}'),
               (3, '{1}', '{1,2}'),
               (3, '{1,2}', '{1}'),
               (3, '{1}', '{2}')) AS v(a_level, a_comps, b_comps);

-- The empty set is a subset of every set: a label without compartments is
-- dominated at its own or a higher level, and dominates only labels
-- without compartments.
SELECT lavrel_test.compare_labels(2, NULL, 3, NULL) AS lower,
       lavrel_test.compare_labels(3, NULL, 2, NULL) AS higher,
       lavrel_test.compare_labels(3, NULL, 2, '{1}') AS higher_vs_comps,
       lavrel_test.compare_labels(2, '{}', 2, NULL) AS empty_array_vs_null;

-- Levels compare as signed numbers.
SELECT lavrel_test.compare_labels(-1, NULL, 1, NULL);

-- A set emptied member by member (still allocated) equals a null set.
SELECT lavrel_test.compare_emptied_label(2, '{1,2}', 2, NULL) AS vs_null,
       lavrel_test.compare_emptied_label(2, '{1,2}', 2, '{5}') AS vs_5,
       lavrel_test.compare_emptied_label(2, '{7}', 1, NULL) AS vs_lower;

-- Merging 5{1,2,3} with 3{2,3,4}: 10 (lower level, intersection) is the
-- greatest lower bound; 5 is the higher level and the union; 0x11 the
-- higher level and the difference; 0x20 sets no known bit for the set.
SELECT options, lavrel_test.merge_labels(5, '{1,2,3}', 3, '{2,3,4}', options)
  FROM (VALUES (10), (5), (x'11'::int), (x'20'::int)) AS v(options);

-- The first set operation present wins; without 0x01 the level is the
-- lower one, whatever else is set; unknown bits are ignored.
SELECT options, lavrel_test.merge_labels(5, '{1,2,3}', 3, '{2,3,4}', options)
  FROM (VALUES (x'0c'::int), (x'18'::int), (x'1c'::int), (1), (2), (x'100'::int))
       AS v(options);
SELECT lavrel_test.merge_labels(-1, NULL, 1, '{1}', 1) AS signed_max,
       lavrel_test.merge_labels(-1, NULL, 1, '{1}', 2) AS signed_min;

-- Option word 0 is refused (SQLSTATE 42601).
SELECT lavrel_test.merge_labels(5, '{1,2,3}', 3, '{2,3,4}', 0);
\set VERBOSITY sqlstate
SELECT lavrel_test.merge_labels(5, '{1,2,3}', 3, '{2,3,4}', 0);
\set VERBOSITY default

-- A copy shares nothing with its source: changing and freeing the source
-- afterwards leaves the copy as it was.
SELECT lavrel_test.copy_label(3, '{1,2}'), lavrel_test.copy_label(4, NULL);

-- Copying a null label gives null; freeing one does nothing.
SELECT lavrel_test.copy_null_label();

DROP EXTENSION lavrel_test;
\i sql/include/drop_lavrel.sql

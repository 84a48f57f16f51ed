-- policies_p_q.sql: policy p (column p_label) with levels low < mid < high
-- and one label per level, ids 10, 20 and 30, and policy q (column
-- q_label) with a single level x and label 90.
SELECT lavrel.create_policy('p', 'p_label'), lavrel.create_policy('q', 'q_label');
SELECT lavrel.create_level('p', name, id), lavrel.create_label('p', name, id)
  FROM (VALUES ('low', 10), ('mid', 20), ('high', 30)) AS v(name, id);
SELECT lavrel.create_level('q', 'x', 1), lavrel.create_label('q', 'x', 90);

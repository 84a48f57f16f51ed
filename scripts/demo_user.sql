-- scripts/demo_user.sql: what one user's session answers under policy
-- "company": which labels it may read, the range of label ids it reads, the
-- label its new rows get, and the rows of "documents" it sees.  Run as that
-- user.
\pset footer off
\echo
\echo == Session of :"USER"
SELECT p.oid AS policy FROM lavrel.policies() p WHERE p.policy_name = 'company' \gset
SELECT lavrel.label_to_char(lavrel.generate_default_label_value(:policy)) AS "label of new rows",
       lavrel.policy_read_min_label_id(:policy) AS "lowest readable id",
       lavrel.policy_read_max_label_id(:policy) AS "highest readable id";
SELECT id AS label_id, lavrel.label_to_char(id) AS label,
       lavrel.read_mediation(:policy, id) AS may_read
  FROM unnest(ARRAY[100, 200, 210, 220, 310, 320]) AS id;
SELECT id, title, lavrel.label_to_char(clearance) AS label
  FROM documents ORDER BY id;

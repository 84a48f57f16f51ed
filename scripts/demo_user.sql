-- scripts/demo_user.sql: what one user's session sees in the worked
-- example, one line per fact ("kind|item|mark", psql -At -F'|'):
--   session|<policy>|<read label>;<min write label> .. <write label>;
--        <default row label>;<privileges>, as lavrel.my_labels() shows them
--   label|<label id of company>|r, w, rw or nothing: whether the session
--        reads rows of that label and may write rows of it
--   documents|<id>|x     a row that SELECT * FROM documents returns
--   salaries|<employee>|x   a row that SELECT * FROM salaries returns
-- Run as that user; scripts/demo_show.sql prints the lines of all users.
\set ON_ERROR_STOP on
SELECT oid AS company FROM lavrel.policies() WHERE policy_name = 'company' \gset

-- label_insert is the check that INSERT and UPDATE make on every label
-- they store; lavrel refuses a label with SQLSTATE 42601 (syntax_error).
CREATE FUNCTION pg_temp.may_write(policy oid, label integer) RETURNS boolean
LANGUAGE plpgsql AS $$
BEGIN
    PERFORM lavrel.label_insert(policy, label);
    RETURN true;
EXCEPTION WHEN syntax_error THEN
    RETURN false;
END
$$;

SELECT 'session', policy_name,
       concat_ws(';', read_label, min_write_label || ' .. ' || write_label,
                 coalesce(default_row_label, 'none'), privileges)
  FROM lavrel.my_labels();
SELECT 'label', id,
       concat(CASE WHEN lavrel.read_mediation(:company, id) THEN 'r' END,
              CASE WHEN pg_temp.may_write(:company, id) THEN 'w' END)
  FROM unnest('{100, 200, 210, 220, 310, 320}'::integer[]) AS id;
SELECT 'documents', id, 'x' FROM documents;
SELECT 'salaries', employee, 'x' FROM salaries;

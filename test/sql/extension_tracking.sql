--
-- While a CREATE EXTENSION (or ALTER EXTENSION ... UPDATE) of lavrel runs,
-- in whatever case the name is written, lavrel knows that its own script
-- is running and access control is not in force.  The statement's end
-- clears that, also when the statement fails.
--
CREATE EXTENSION lavrel_test;
\i sql/include/try_stmt.sql

-- Reports, when an extension statement or a CREATE SEQUENCE (the first
-- statement of lavrel's script) starts, whether lavrel's script is marked
-- as running and whether access control is in force.  A warning, as an
-- extension script runs with client_min_messages at warning at least.
CREATE FUNCTION regress_et_report() RETURNS event_trigger LANGUAGE plpgsql AS $$
BEGIN
    RAISE WARNING '% starts: lavrel script running %, access control in force %',
        tg_tag, lavrel_test.creating_lavrel_extension(), lavrel_test.mac_isenable();
END
$$;
CREATE EVENT TRIGGER regress_et_start ON ddl_command_start
    WHEN TAG IN ('CREATE EXTENSION', 'ALTER EXTENSION', 'CREATE SEQUENCE')
    EXECUTE FUNCTION regress_et_report();

-- No lavrel yet.
SELECT lavrel_test.creating_lavrel_extension(), lavrel_test.mac_isenable();

-- lavrel's script fails on an object already in its schema; the mark is
-- gone at once, within the same transaction.
CREATE SCHEMA lavrel;
CREATE SEQUENCE lavrel.lavrel_policy_oid_seq;
BEGIN;
SELECT try_stmt($$CREATE EXTENSION lavrel$$);
SELECT lavrel_test.creating_lavrel_extension();
COMMIT;
DROP SEQUENCE lavrel.lavrel_policy_oid_seq;

-- The statement as it should be: marked while the script runs, in force
-- afterwards.
CREATE EXTENSION lavrel;
SELECT lavrel_test.creating_lavrel_extension(), lavrel_test.mac_isenable();

-- Any case of the name marks it; other extensions do not.  Each statement
-- fails or does nothing, and access control is in force again right
-- after it in the same transaction.
BEGIN;
SELECT try_stmt($$CREATE EXTENSION "LAVREL"$$);
SELECT lavrel_test.creating_lavrel_extension(), lavrel_test.mac_isenable();
SELECT try_stmt($$CREATE EXTENSION "LaVrEl"$$);
SELECT lavrel_test.creating_lavrel_extension(), lavrel_test.mac_isenable();
SELECT try_stmt($$CREATE EXTENSION IF NOT EXISTS LAVREL$$);
SELECT try_stmt($$CREATE EXTENSION lavrel$$);
SELECT lavrel_test.creating_lavrel_extension(), lavrel_test.mac_isenable();
SELECT try_stmt($$CREATE EXTENSION IF NOT EXISTS plpgsql$$);
SELECT try_stmt($$ALTER EXTENSION lavrel UPDATE$$);
SELECT try_stmt($$ALTER EXTENSION lavrel UPDATE TO '99.0'$$);
SELECT lavrel_test.creating_lavrel_extension(), lavrel_test.mac_isenable();
COMMIT;

-- The end of any extension statement clears the mark, whoever set it.
SELECT lavrel_test.create_extension_process('lavrel', true);
CREATE EXTENSION IF NOT EXISTS plpgsql;
SELECT lavrel_test.creating_lavrel_extension(), lavrel_test.mac_isenable();

-- Access control works as usual in this backend.
SELECT lavrel.create_policy('p', 'p_label');
SELECT policy_name FROM lavrel.policies();
SELECT lavrel.drop_policy('p');

DROP EVENT TRIGGER regress_et_start;
DROP FUNCTION regress_et_report();
DROP FUNCTION try_stmt(text);
DROP EXTENSION lavrel_test;
\i sql/include/drop_lavrel.sql

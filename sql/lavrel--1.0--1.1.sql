/* lavrel--1.0--1.1.sql: brings an installed lavrel 1.0 to 1.1 */

\echo Use "ALTER EXTENSION lavrel UPDATE TO '1.1'" to load this file. \quit

-- ---------------------------------------------------------------------
-- Unique indexes on the catalogs' keys.  1.0 checked the keys in its
-- writers only; should two rows share a key all the same, building the
-- index fails with PostgreSQL's "could not create unique index", naming
-- the duplicated key, and the extension stays at 1.0 with its rows as
-- they were.
-- ---------------------------------------------------------------------

ALTER TABLE lavrel.lavrel_policy
    ADD PRIMARY KEY (policy_oid),
    ADD UNIQUE (policy_name),
    ADD UNIQUE (policy_col_name);
ALTER TABLE lavrel.lavrel_level
    ADD PRIMARY KEY (policy_oid, level_id),
    ADD UNIQUE (policy_oid, level_name);
ALTER TABLE lavrel.lavrel_compartment
    ADD PRIMARY KEY (policy_oid, compartment_id),
    ADD UNIQUE (policy_oid, compartment_name);
ALTER TABLE lavrel.lavrel_label ADD PRIMARY KEY (label_id);
ALTER TABLE lavrel.lavrel_policy_enforcement ADD PRIMARY KEY (policy_oid, relation_oid);
ALTER TABLE lavrel.lavrel_user ADD PRIMARY KEY (user_oid, policy_oid);

-- ---------------------------------------------------------------------
-- New functions
-- ---------------------------------------------------------------------

-- The calling session's own labels, as label strings (anyone).
CREATE FUNCTION lavrel.my_labels()
RETURNS TABLE(policy_name name, read_label text, min_write_label text, write_label text,
              row_label text, default_row_label text, privileges text)
AS 'MODULE_PATHNAME', 'MyLabels' LANGUAGE C STABLE PARALLEL RESTRICTED;

CREATE FUNCTION lavrel.labels()
RETURNS TABLE(policy_name name, label_id integer, label text)
AS 'MODULE_PATHNAME', 'ListLabels' LANGUAGE C STABLE;

CREATE FUNCTION lavrel.authorizations()
RETURNS TABLE(policy_name name, user_name name, max_read_label text, max_write_label text,
              min_write_label text, def_label text, row_label text, privileges text)
AS 'MODULE_PATHNAME', 'ListAuthorizations' LANGUAGE C STABLE;

-- A row's label as its string, for SELECT lists: null for null and for an
-- id that names no label.
CREATE FUNCTION lavrel.label(label_id integer)
RETURNS text AS 'MODULE_PATHNAME', 'LabelText'
LANGUAGE C STABLE STRICT PARALLEL RESTRICTED;

-- The row-level security guard of a protected table: no query on a server
-- where lavrel works ever calls it, and on one without lavrel it cannot run.
CREATE FUNCTION lavrel.table_guard(label integer)
RETURNS boolean AS 'MODULE_PATHNAME', 'lavrel_table_guard'
LANGUAGE C VOLATILE PARALLEL SAFE;

-- The label filter: the ids of the labels whose rows the session reads,
-- evaluated once per execution of a statement (parallel workers have the
-- leader's labels), and the test of a row's label against them, which
-- depends on its arguments alone.
CREATE FUNCTION lavrel.readable_labels(policy oid)
RETURNS integer[] AS 'MODULE_PATHNAME', 'ReadableLabels'
LANGUAGE C STABLE STRICT PARALLEL SAFE;

CREATE FUNCTION lavrel.label_in_support(internal)
RETURNS internal AS 'MODULE_PATHNAME', 'LabelInSupport'
LANGUAGE C STRICT;

CREATE FUNCTION lavrel.label_in(policy oid, label integer, ids integer[])
RETURNS boolean AS 'MODULE_PATHNAME', 'LabelIn'
LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE SUPPORT lavrel.label_in_support;

-- read_mediation answers in parallel workers too, from the leader's labels.
ALTER FUNCTION lavrel.read_mediation(oid, integer) PARALLEL SAFE;

-- ---------------------------------------------------------------------
-- The row-level security guard of every table already under a policy,
-- as apply_table_policy places it: a permissive policy lavrel_<policy>
-- calling lavrel.table_guard on the policy column, with row-level
-- security enabled and forced.
-- ---------------------------------------------------------------------

DO $$
DECLARE
    t record;
BEGIN
    FOR t IN SELECT e.relation_oid::regclass AS tab,
                    ('lavrel_' || p.policy_name)::name AS guard, p.policy_col_name AS col
               FROM lavrel.lavrel_policy_enforcement e
               JOIN lavrel.lavrel_policy p USING (policy_oid)
              ORDER BY e.relation_oid, p.policy_oid
    LOOP
        EXECUTE format('CREATE POLICY %I ON %s USING (lavrel.table_guard(%I)) WITH CHECK (lavrel.table_guard(%I))',
                       t.guard, t.tab, t.col, t.col);
        EXECUTE format('ALTER TABLE %s ENABLE ROW LEVEL SECURITY, FORCE ROW LEVEL SECURITY', t.tab);
    END LOOP;
END
$$;

-- ---------------------------------------------------------------------
-- sync_object_names(), rewritten: it reads every old oid before it writes
-- a new one, and takes its turn with the module's catalog writers
-- ---------------------------------------------------------------------

CREATE OR REPLACE FUNCTION lavrel.sync_object_names()
RETURNS integer LANGUAGE plpgsql SET search_path = pg_catalog AS $$
DECLARE
    here     text := (SELECT s.system_identifier || '/' || e.oid
                        FROM pg_control_system() s, pg_extension e
                       WHERE e.extname = 'lavrel');
    mac_on   boolean := current_setting('lavrel.enable_mac')::boolean;
    users    lavrel.lavrel_user[];
    tables   lavrel.lavrel_policy_enforcement[];
    objects  lavrel.lavrel_obj[];
    moved    integer := 0;
    culprit  record;
BEGIN
    IF (SELECT oid FROM pg_roles WHERE rolname = current_user) <> 10 THEN
        RAISE EXCEPTION 'permission denied to sync object names' USING ERRCODE = '42501';
    END IF;
    -- Refused where every write is (a hot standby included), and in turn
    -- with the module's own writers of the catalogs, which take this lock.
    IF current_setting('transaction_read_only')::boolean THEN
        RAISE EXCEPTION 'cannot execute sync_object_names() in a read-only transaction'
            USING ERRCODE = '25006';
    END IF;
    LOCK TABLE lavrel.lavrel_policy IN SHARE ROW EXCLUSIVE MODE;

    IF EXISTS (SELECT FROM lavrel.lavrel_object_names WHERE origin <> here) THEN
        -- Access control is off here: the library refuses every statement
        -- while it is on and the catalogs hold another database's oids.
        -- The rows with their objects' new oids are all put together
        -- before any old row goes: changed one row at a time, two rows
        -- whose oids the restore swapped would collide in the unique
        -- indexes.
        WITH resolved AS (
            SELECT classid, objid AS old_oid,
                   (pg_get_object_address(object_type, object_names, object_args)).objid AS new_oid
              FROM lavrel.lavrel_object_names WHERE origin <> here
        )
        SELECT array(SELECT jsonb_populate_record(c, jsonb_build_object('user_oid', r.new_oid))
                       FROM lavrel.lavrel_user c JOIN resolved r
                         ON r.classid = 'pg_authid'::regclass AND r.old_oid = c.user_oid
                      ORDER BY c.ctid),
               array(SELECT jsonb_populate_record(c, jsonb_build_object('relation_oid', r.new_oid))
                       FROM lavrel.lavrel_policy_enforcement c JOIN resolved r
                         ON r.classid = 'pg_class'::regclass AND r.old_oid = c.relation_oid
                      ORDER BY c.ctid),
               array(SELECT jsonb_populate_record(c, jsonb_build_object('obj_namespace', n.new_oid,
                                                                        'obj_oid', r.new_oid))
                       FROM lavrel.lavrel_obj c
                       JOIN resolved n
                         ON n.classid = 'pg_namespace'::regclass AND n.old_oid = c.obj_namespace
                       JOIN resolved r
                         ON r.classid = CASE WHEN c.obj_type ILIKE 'view' THEN 'pg_class'::regclass
                                             ELSE 'pg_proc'::regclass END
                        AND r.old_oid = c.obj_oid
                      ORDER BY c.ctid),
               (SELECT count(*) FROM resolved
                 WHERE old_oid <> new_oid AND classid <> 'pg_extension'::regclass)
          INTO users, tables, objects, moved;
        IF cardinality(users) + cardinality(tables) + cardinality(objects) <>
           (SELECT count(*) FROM lavrel.lavrel_user) +
           (SELECT count(*) FROM lavrel.lavrel_policy_enforcement) +
           (SELECT count(*) FROM lavrel.lavrel_obj) THEN
            RAISE EXCEPTION 'the dump holds no name for some objects that lavrel refers to'
                USING ERRCODE = '55000',
                      HINT = 'Run lavrel.sync_object_names() in the dumped database right before pg_dump.';
        END IF;
        DELETE FROM lavrel.lavrel_user;
        INSERT INTO lavrel.lavrel_user SELECT * FROM unnest(users);
        DELETE FROM lavrel.lavrel_policy_enforcement;
        INSERT INTO lavrel.lavrel_policy_enforcement SELECT * FROM unnest(tables);
        DELETE FROM lavrel.lavrel_obj;
        INSERT INTO lavrel.lavrel_obj SELECT * FROM unnest(objects);
    ELSIF mac_on THEN
        -- pg_dump reads a protected table through the administrator's labels.
        SELECT p.policy_name INTO culprit FROM lavrel.lavrel_policy p
         WHERE p.policy_enable
           AND EXISTS (SELECT FROM lavrel.lavrel_policy_enforcement e
                        WHERE e.policy_oid = p.policy_oid)
           AND NOT EXISTS (SELECT FROM lavrel.lavrel_user u
                            WHERE u.policy_oid = p.policy_oid AND u.user_oid = 10
                              AND u.user_privs & 3 <> 0)
         LIMIT 1;
        IF FOUND THEN
            RAISE EXCEPTION 'pg_dump would copy only the rows of policy "%" that the administrator may read',
                            culprit.policy_name
                USING ERRCODE = '42501',
                      HINT = 'Give the administrator the READ privilege under that policy.';
        END IF;
    END IF;

    DELETE FROM lavrel.lavrel_object_names;
    INSERT INTO lavrel.lavrel_object_names
    SELECT here, r.classid, r.objid, a.type, a.object_names, a.object_args
      FROM (SELECT 'pg_extension'::regclass, oid FROM pg_extension WHERE extname = 'lavrel'
            UNION SELECT 'pg_authid', user_oid FROM lavrel.lavrel_user
            UNION SELECT 'pg_class', relation_oid FROM lavrel.lavrel_policy_enforcement
            UNION SELECT 'pg_namespace', obj_namespace FROM lavrel.lavrel_obj
            UNION SELECT CASE WHEN obj_type ILIKE 'view' THEN 'pg_class'::regclass
                              ELSE 'pg_proc'::regclass END, obj_oid
                    FROM lavrel.lavrel_obj) r(classid, objid),
           pg_identify_object_as_address(r.classid, r.objid, 0) a;
    SELECT object_type, objid INTO culprit
      FROM lavrel.lavrel_object_names WHERE object_names IS NULL LIMIT 1;
    IF FOUND THEN
        RAISE EXCEPTION 'lavrel refers to % %, which does not exist', culprit.object_type, culprit.objid
            USING ERRCODE = '42704',
                  HINT = 'Delete the rows of lavrel.lavrel_user, lavrel.lavrel_policy_enforcement or lavrel.lavrel_obj that hold this oid.';
    END IF;
    RETURN moved;
END
$$;

-- ---------------------------------------------------------------------
-- Descriptions, as \df+ and \dt+ show them
-- ---------------------------------------------------------------------

COMMENT ON SEQUENCE lavrel.lavrel_policy_oid_seq IS 'Ids of new policies';
COMMENT ON TABLE lavrel.lavrel_policy IS 'Policies: name, policy column, whether the column is hidden, whether the policy is enabled';
COMMENT ON TABLE lavrel.lavrel_level IS 'Levels of each policy: id (a higher id dominates a lower one) and name';
COMMENT ON TABLE lavrel.lavrel_compartment IS 'Compartments of each policy: id and name';
COMMENT ON TABLE lavrel.lavrel_label IS 'Labels: label id, policy, level and compartment ids; lavrel.labels() shows them as strings';
COMMENT ON TABLE lavrel.lavrel_policy_enforcement IS 'Tables under each policy';
COMMENT ON TABLE lavrel.lavrel_user IS 'User authorizations: levels, compartment ids and privilege mask per user and policy; lavrel.authorizations() shows them as strings';
COMMENT ON TABLE lavrel.lavrel_obj IS 'Labels of views, functions and procedures';
COMMENT ON TABLE lavrel.lavrel_object_names IS 'Names of the objects the catalogs refer to by oid, written by lavrel.sync_object_names() for pg_dump';

COMMENT ON FUNCTION lavrel.create_policy(text, text, boolean) IS 'Create a policy and name its policy column (administrator)';
COMMENT ON FUNCTION lavrel.drop_policy(text, boolean) IS 'Drop a policy, its labels and authorizations, and release its tables (administrator)';
COMMENT ON FUNCTION lavrel.enable_policy(text) IS 'Mediate the tables of a policy again (administrator)';
COMMENT ON FUNCTION lavrel.disable_policy(text) IS 'Stop mediating the tables of a policy (administrator)';
COMMENT ON FUNCTION lavrel.create_level(text, text, integer) IS 'Create a level of a policy (administrator)';
COMMENT ON FUNCTION lavrel.drop_level(text, integer) IS 'Drop a level of a policy by id (administrator)';
COMMENT ON FUNCTION lavrel.drop_level(text, text) IS 'Drop a level of a policy by name (administrator)';
COMMENT ON FUNCTION lavrel.create_compartment(text, text, integer) IS 'Create a compartment of a policy (administrator)';
COMMENT ON FUNCTION lavrel.drop_compartment(text, integer) IS 'Drop a compartment of a policy by id (administrator)';
COMMENT ON FUNCTION lavrel.drop_compartment(text, text) IS 'Drop a compartment of a policy by name (administrator)';
COMMENT ON FUNCTION lavrel.create_label(text, text, integer) IS 'Create a label of a policy with a label id (administrator)';
COMMENT ON FUNCTION lavrel.alter_label(text, integer, text) IS 'Change the level and compartments of a label given by id (administrator)';
COMMENT ON FUNCTION lavrel.alter_label(text, text, text) IS 'Change the level and compartments of a label given by string (administrator)';
COMMENT ON FUNCTION lavrel.drop_label(text, integer) IS 'Drop a label by id (administrator)';
COMMENT ON FUNCTION lavrel.drop_label(text, text) IS 'Drop a label by string (administrator)';
COMMENT ON FUNCTION lavrel.apply_table_policy(text, text, text) IS 'Put a table under a policy, adding its policy column (administrator)';
COMMENT ON FUNCTION lavrel.remove_table_policy(text, text, text, boolean) IS 'Release a table from a policy (administrator)';
COMMENT ON FUNCTION lavrel.apply_object_policy(text, text, text, text, text) IS 'Label a view, function or procedure (administrator)';
COMMENT ON FUNCTION lavrel.drop_object_policy(text, text, text, text) IS 'Remove the label of a view, function or procedure (administrator)';
COMMENT ON FUNCTION lavrel.set_user_labels(text, text, text, text, text, text, text) IS 'Authorize a user under a policy with his five labels (administrator)';
COMMENT ON FUNCTION lavrel.set_levels(text, text, text, text, text, text) IS 'Authorize a user, or change his authorization, by levels (administrator)';
COMMENT ON FUNCTION lavrel.set_compartments(text, text, text, text, text, text, text) IS 'Change the compartments of a user''s authorization (administrator)';
COMMENT ON FUNCTION lavrel.set_default_label(text, text, text) IS 'Change the default label of a user''s authorization (administrator)';
COMMENT ON FUNCTION lavrel.set_row_label(text, text, text) IS 'Change the row label of a user''s authorization (administrator)';
COMMENT ON FUNCTION lavrel.drop_user_access(text, text) IS 'Remove a user''s authorization under a policy (administrator)';
COMMENT ON FUNCTION lavrel.set_user_privs(text, text, text) IS 'Set a user''s privileges under a policy: READ, FULL, WRITEUP, WRITEDOWN, WRITEACROSS (administrator)';
COMMENT ON FUNCTION lavrel.set_session_label(text, text) IS 'Set the read label of the administrator''s own session';
COMMENT ON FUNCTION lavrel.set_session_row_label(text, text) IS 'Set the row label of the administrator''s own session';
COMMENT ON FUNCTION lavrel.show_session_labels() IS 'The labels of the administrator''s own session, per policy';
COMMENT ON FUNCTION lavrel.show_label_lookup() IS 'The default row label id and readable label id range of the administrator''s own session';
COMMENT ON FUNCTION lavrel.show_label_mediation() IS 'The mediation mask of every label the administrator''s own session may see';
COMMENT ON FUNCTION lavrel.my_labels() IS 'The labels and privileges of the calling session, per policy, as strings (anyone)';
COMMENT ON FUNCTION lavrel.labels() IS 'Every label of every policy, as a string (administrator)';
COMMENT ON FUNCTION lavrel.authorizations() IS 'Every user''s authorization, with labels as strings and privileges by name (administrator)';
COMMENT ON FUNCTION lavrel.label_to_char(integer) IS 'The label string of a label id';
COMMENT ON FUNCTION lavrel.char_to_label(text, text) IS 'The label id of a label string of a policy';
COMMENT ON FUNCTION lavrel.label(integer) IS 'A row''s label as its string, null when the id names no label (anyone)';
COMMENT ON FUNCTION lavrel.privs_to_char(integer) IS 'The privilege names of a privilege mask';
COMMENT ON FUNCTION lavrel.policies() IS 'Every policy and its policy column';
COMMENT ON FUNCTION lavrel.policy_enforcements() IS 'Every table under every policy';
COMMENT ON FUNCTION lavrel.readable_labels(oid) IS 'The ids of the labels whose rows the session reads, ascending (the label filter)';
COMMENT ON FUNCTION lavrel.label_in(oid, integer, integer[]) IS 'Whether a label is one of the ids (the label filter''s test of a row)';
COMMENT ON FUNCTION lavrel.label_in_support(internal) IS 'The planner''s estimate and index condition for label_in';
COMMENT ON FUNCTION lavrel.read_mediation(oid, integer) IS 'Whether the session reads rows of a label';
COMMENT ON FUNCTION lavrel.write_mediation(oid, integer) IS 'True if the session writes rows of a label, else an error (UPDATE and DELETE)';
COMMENT ON FUNCTION lavrel.label_insert(oid, integer) IS 'The label if the session may store it, else an error (INSERT, UPDATE, COPY FROM)';
COMMENT ON FUNCTION lavrel.label_update(oid, integer, integer) IS 'The new label if the session may change a row''s label to it, else an error (UPDATE)';
COMMENT ON FUNCTION lavrel.table_guard(integer) IS 'Row-level security guard of a protected table: fails wherever it runs';
COMMENT ON FUNCTION lavrel.generate_default_label_value(oid) IS 'The label id of a new row without a label (the policy column''s default)';
COMMENT ON FUNCTION lavrel.policy_read_max_label_id(oid) IS 'The highest label id the session may see';
COMMENT ON FUNCTION lavrel.policy_read_min_label_id(oid) IS 'The lowest label id the session may see';
COMMENT ON FUNCTION lavrel.sync_object_names() IS 'Record the names of the objects the catalogs refer to, or point the catalogs at them after a restore (administrator)';

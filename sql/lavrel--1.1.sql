/* lavrel--1.1.sql: the catalogs and SQL functions of lavrel */

\echo Use "CREATE EXTENSION lavrel" to load this file. \quit

-- ---------------------------------------------------------------------
-- Catalog tables.  The module addresses columns by position: keep the
-- order.  The module's writers check each key before they write, one
-- transaction at a time; the unique indexes of the keys stand behind them.
-- lavrel_obj has no key (an object may carry several labels), and the
-- level and compartments of a label, unique within its policy, have no
-- index (int2vector has no btree operator class).
-- ---------------------------------------------------------------------

CREATE SEQUENCE lavrel.lavrel_policy_oid_seq
    AS bigint MINVALUE 1 MAXVALUE 4294967295 START 1 NO CYCLE;

CREATE TABLE lavrel.lavrel_policy (
    policy_oid        oid     NOT NULL,
    policy_name       name    NOT NULL,
    policy_col_name   name    NOT NULL,
    policy_col_hidden boolean NOT NULL,
    policy_enable     boolean NOT NULL,
    PRIMARY KEY (policy_oid),
    UNIQUE (policy_name),
    UNIQUE (policy_col_name)
);

CREATE TABLE lavrel.lavrel_level (
    policy_oid      oid      NOT NULL,
    level_id        smallint NOT NULL,
    level_name      name     NOT NULL,
    level_name_copy name     NOT NULL,
    PRIMARY KEY (policy_oid, level_id),
    UNIQUE (policy_oid, level_name)
);

CREATE TABLE lavrel.lavrel_compartment (
    policy_oid            oid      NOT NULL,
    compartment_id        smallint NOT NULL,
    compartment_name      name     NOT NULL,
    compartment_name_copy name     NOT NULL,
    PRIMARY KEY (policy_oid, compartment_id),
    UNIQUE (policy_oid, compartment_name)
);

CREATE TABLE lavrel.lavrel_label (
    label_id       integer    NOT NULL,
    policy_oid     oid        NOT NULL,
    level_id       smallint   NOT NULL,
    compartments   int2vector NOT NULL,
    label_reserved text,
    PRIMARY KEY (label_id)          -- over all policies
);

CREATE TABLE lavrel.lavrel_policy_enforcement (
    policy_oid   oid NOT NULL,
    relation_oid oid NOT NULL,
    PRIMARY KEY (policy_oid, relation_oid)
);

CREATE TABLE lavrel.lavrel_user (
    user_oid        oid        NOT NULL,
    policy_oid      oid        NOT NULL,
    user_privs      smallint   NOT NULL,
    max_level       smallint   NOT NULL,
    min_write_level smallint   NOT NULL,
    def_level       smallint   NOT NULL,
    row_level       smallint   NOT NULL,
    max_read_comps  int2vector NOT NULL,
    max_write_comps int2vector NOT NULL,
    def_comps       int2vector NOT NULL,
    row_comps       int2vector NOT NULL,
    min_write_comps int2vector NOT NULL,
    PRIMARY KEY (user_oid, policy_oid)
);

CREATE TABLE lavrel.lavrel_obj (
    policy_oid    oid     NOT NULL,
    policy_name   name    NOT NULL,
    obj_type      name    NOT NULL,
    obj_namespace oid     NOT NULL,
    obj_oid       oid     NOT NULL,
    label_id      integer NOT NULL
);

-- pg_dump keeps the contents of the catalogs and the sequence.
SELECT pg_catalog.pg_extension_config_dump('lavrel.lavrel_policy_oid_seq', '');
SELECT pg_catalog.pg_extension_config_dump('lavrel.lavrel_policy', '');
SELECT pg_catalog.pg_extension_config_dump('lavrel.lavrel_level', '');
SELECT pg_catalog.pg_extension_config_dump('lavrel.lavrel_compartment', '');
SELECT pg_catalog.pg_extension_config_dump('lavrel.lavrel_label', '');
SELECT pg_catalog.pg_extension_config_dump('lavrel.lavrel_policy_enforcement', '');
SELECT pg_catalog.pg_extension_config_dump('lavrel.lavrel_user', '');
SELECT pg_catalog.pg_extension_config_dump('lavrel.lavrel_obj', '');

-- Names of the objects that lavrel_user, lavrel_policy_enforcement and
-- lavrel_obj refer to by oid, as pg_identify_object_as_address gives them,
-- written by lavrel.sync_object_names() so that a dump carries them.  A
-- row's origin is the database that wrote it: its cluster's system
-- identifier and the oid of its lavrel extension.
CREATE TABLE lavrel.lavrel_object_names (
    origin       text   NOT NULL,
    classid      oid    NOT NULL,
    objid        oid    NOT NULL,
    object_type  text   NOT NULL,
    object_names text[],            -- null for an object that no longer exists
    object_args  text[]
);

-- The extension's own row: even a dump taken before any call of
-- sync_object_names() tells the database it came from.
INSERT INTO lavrel.lavrel_object_names
SELECT s.system_identifier || '/' || e.oid, 'pg_catalog.pg_extension'::regclass, e.oid,
       'extension', '{lavrel}', '{}'
  FROM pg_catalog.pg_control_system() s, pg_catalog.pg_extension e
 WHERE e.extname = 'lavrel';

SELECT pg_catalog.pg_extension_config_dump('lavrel.lavrel_object_names', '');

-- ---------------------------------------------------------------------
-- Policies, levels, compartments (administrator only)
-- ---------------------------------------------------------------------

CREATE FUNCTION lavrel.create_policy(policy_name text, column_name text,
                                     hide_column boolean DEFAULT false)
RETURNS void AS 'MODULE_PATHNAME', 'CreatePolicyMac' LANGUAGE C;

CREATE FUNCTION lavrel.drop_policy(policy_name text, drop_column boolean DEFAULT false)
RETURNS void AS 'MODULE_PATHNAME', 'DropPolicy' LANGUAGE C;

CREATE FUNCTION lavrel.enable_policy(policy_name text)
RETURNS void AS 'MODULE_PATHNAME', 'EnablePolicy' LANGUAGE C;

CREATE FUNCTION lavrel.disable_policy(policy_name text)
RETURNS void AS 'MODULE_PATHNAME', 'DisablePolicy' LANGUAGE C;

CREATE FUNCTION lavrel.create_level(policy_name text, level_name text, level_id integer)
RETURNS void AS 'MODULE_PATHNAME', 'CreateLevel' LANGUAGE C;

CREATE FUNCTION lavrel.drop_level(policy_name text, level_id integer)
RETURNS void AS 'MODULE_PATHNAME', 'DropLevelById' LANGUAGE C;

CREATE FUNCTION lavrel.drop_level(policy_name text, level_name text)
RETURNS void AS 'MODULE_PATHNAME', 'DropLevelByName' LANGUAGE C;

CREATE FUNCTION lavrel.create_compartment(policy_name text, compartment_name text,
                                          compartment_id integer)
RETURNS void AS 'MODULE_PATHNAME', 'CreateCompartment' LANGUAGE C;

CREATE FUNCTION lavrel.drop_compartment(policy_name text, compartment_id integer)
RETURNS void AS 'MODULE_PATHNAME', 'DropCompartmentById' LANGUAGE C;

CREATE FUNCTION lavrel.drop_compartment(policy_name text, compartment_name text)
RETURNS void AS 'MODULE_PATHNAME', 'DropCompartmentByName' LANGUAGE C;

-- ---------------------------------------------------------------------
-- Labels (administrator only)
-- ---------------------------------------------------------------------

CREATE FUNCTION lavrel.create_label(policy_name text, label text, label_id integer)
RETURNS void AS 'MODULE_PATHNAME', 'CreateLabel' LANGUAGE C;

CREATE FUNCTION lavrel.alter_label(policy_name text, label_id integer, new_label text)
RETURNS void AS 'MODULE_PATHNAME', 'AlterLabelById' LANGUAGE C;

CREATE FUNCTION lavrel.alter_label(policy_name text, label text, new_label text)
RETURNS void AS 'MODULE_PATHNAME', 'AlterLabelByName' LANGUAGE C;

CREATE FUNCTION lavrel.drop_label(policy_name text, label_id integer)
RETURNS void AS 'MODULE_PATHNAME', 'DropLabelById' LANGUAGE C;

CREATE FUNCTION lavrel.drop_label(policy_name text, label text)
RETURNS void AS 'MODULE_PATHNAME', 'DropLabelByName' LANGUAGE C;

-- ---------------------------------------------------------------------
-- Tables under policies (administrator only)
-- ---------------------------------------------------------------------

CREATE FUNCTION lavrel.apply_table_policy(policy_name text, schema_name text, table_name text)
RETURNS void AS 'MODULE_PATHNAME', 'ApplyPolicy' LANGUAGE C;

CREATE FUNCTION lavrel.remove_table_policy(policy_name text, schema_name text, table_name text,
                                           drop_column boolean DEFAULT false)
RETURNS void AS 'MODULE_PATHNAME', 'RemovePolicy' LANGUAGE C;

-- ---------------------------------------------------------------------
-- Labelled views, functions and procedures (administrator only)
-- ---------------------------------------------------------------------

CREATE FUNCTION lavrel.apply_object_policy(policy_name text, object_type text, schema_name text,
                                           object_name text, label text)
RETURNS void AS 'MODULE_PATHNAME', 'ApplyObjPolicy' LANGUAGE C;

CREATE FUNCTION lavrel.drop_object_policy(policy_name text, object_type text, schema_name text,
                                          object_name text)
RETURNS void AS 'MODULE_PATHNAME', 'DropObjPolicy' LANGUAGE C;

-- ---------------------------------------------------------------------
-- User authorizations and privileges (administrator only)
-- ---------------------------------------------------------------------

CREATE FUNCTION lavrel.set_user_labels(policy_name text, user_name text, max_read_label text,
                                       max_write_label text DEFAULT NULL,
                                       min_write_label text DEFAULT NULL,
                                       def_label text DEFAULT NULL,
                                       row_label text DEFAULT NULL)
RETURNS void AS 'MODULE_PATHNAME', 'SetUserLabels' LANGUAGE C;

CREATE FUNCTION lavrel.set_levels(policy_name text, user_name text, max_level text,
                                  min_level text DEFAULT NULL,
                                  def_level text DEFAULT NULL,
                                  row_level text DEFAULT NULL)
RETURNS void AS 'MODULE_PATHNAME', 'SetLevels' LANGUAGE C;

CREATE FUNCTION lavrel.set_compartments(policy_name text, user_name text, read_comps text,
                                        write_comps text DEFAULT NULL,
                                        def_comps text DEFAULT NULL,
                                        row_comps text DEFAULT NULL,
                                        min_write_comps text DEFAULT NULL)
RETURNS void AS 'MODULE_PATHNAME', 'SetCompartments' LANGUAGE C;

CREATE FUNCTION lavrel.set_default_label(policy_name text, user_name text, label text)
RETURNS void AS 'MODULE_PATHNAME', 'SetDefaultLabel' LANGUAGE C;

CREATE FUNCTION lavrel.set_row_label(policy_name text, user_name text, label text)
RETURNS void AS 'MODULE_PATHNAME', 'SetDefRowLabel' LANGUAGE C;

CREATE FUNCTION lavrel.drop_user_access(policy_name text, user_name text)
RETURNS void AS 'MODULE_PATHNAME', 'DropUserAccess' LANGUAGE C;

CREATE FUNCTION lavrel.set_user_privs(policy_name text, user_name text, privileges text)
RETURNS void AS 'MODULE_PATHNAME', 'SetUserPrivs' LANGUAGE C;

-- ---------------------------------------------------------------------
-- Session labels (administrator only)
-- ---------------------------------------------------------------------

CREATE FUNCTION lavrel.set_session_label(policy_name text, label text)
RETURNS void AS 'MODULE_PATHNAME', 'SetLabel' LANGUAGE C;

CREATE FUNCTION lavrel.set_session_row_label(policy_name text, label text)
RETURNS void AS 'MODULE_PATHNAME', 'SetRowLabel' LANGUAGE C;

CREATE FUNCTION lavrel.show_session_labels()
RETURNS TABLE(policy_id oid, user_id oid, privs text, max_read_label text,
              max_write_label text, min_write_level text, read_label text,
              write_label text, row_label text)
AS 'MODULE_PATHNAME', 'ShowLabel' LANGUAGE C;

CREATE FUNCTION lavrel.show_label_lookup()
RETURNS TABLE(policy_id oid, deault_row_label_id integer, max_label_id integer,
              min_label_id integer, label_count integer)
AS 'MODULE_PATHNAME', 'ShowLabelLookup' LANGUAGE C;

CREATE FUNCTION lavrel.show_label_mediation()
RETURNS TABLE(label_id integer, policy_id oid, information_mask integer)
AS 'MODULE_PATHNAME', 'ShowLabelMediation' LANGUAGE C;

-- The calling session's own labels, as label strings (anyone).
CREATE FUNCTION lavrel.my_labels()
RETURNS TABLE(policy_name name, read_label text, min_write_label text, write_label text,
              row_label text, default_row_label text, privileges text)
AS 'MODULE_PATHNAME', 'MyLabels' LANGUAGE C STABLE PARALLEL RESTRICTED;

-- ---------------------------------------------------------------------
-- Listings with labels as strings (administrator only)
-- ---------------------------------------------------------------------

CREATE FUNCTION lavrel.labels()
RETURNS TABLE(policy_name name, label_id integer, label text)
AS 'MODULE_PATHNAME', 'ListLabels' LANGUAGE C STABLE;

CREATE FUNCTION lavrel.authorizations()
RETURNS TABLE(policy_name name, user_name name, max_read_label text, max_write_label text,
              min_write_label text, def_label text, row_label text, privileges text)
AS 'MODULE_PATHNAME', 'ListAuthorizations' LANGUAGE C STABLE;

-- ---------------------------------------------------------------------
-- Conversions and listings (anyone)
-- ---------------------------------------------------------------------

CREATE FUNCTION lavrel.label_to_char(label_id integer)
RETURNS varchar AS 'MODULE_PATHNAME', 'LabelToChar' LANGUAGE C;

CREATE FUNCTION lavrel.char_to_label(policy_name text, label text)
RETURNS integer AS 'MODULE_PATHNAME', 'CharToLabel' LANGUAGE C;

-- A row's label as its string, for SELECT lists: null for null and for an
-- id that names no label.
CREATE FUNCTION lavrel.label(label_id integer)
RETURNS text AS 'MODULE_PATHNAME', 'LabelText'
LANGUAGE C STABLE STRICT PARALLEL RESTRICTED;

CREATE FUNCTION lavrel.privs_to_char(privs integer)
RETURNS varchar AS 'MODULE_PATHNAME', 'PrivsToChar' LANGUAGE C;

CREATE FUNCTION lavrel.policies()
RETURNS TABLE(oid oid, policy_name name, policy_col_name name,
              policy_col_hidden boolean, policy_enable boolean)
AS 'MODULE_PATHNAME', 'GetLavrelPolicy' LANGUAGE C;

CREATE FUNCTION lavrel.policy_enforcements()
RETURNS TABLE(policy_oid oid, relation_oid oid)
AS 'MODULE_PATHNAME', 'GetLavrelPolicyEnforcement' LANGUAGE C;

-- ---------------------------------------------------------------------
-- Row mediation.  Called from rewritten queries and the policy column's
-- default, so by every user.  Their answers come from the backend's
-- session state: never IMMUTABLE (a cached plan would keep a folded
-- answer).
-- ---------------------------------------------------------------------

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

CREATE FUNCTION lavrel.read_mediation(policy oid, label integer)
RETURNS boolean AS 'MODULE_PATHNAME', 'ReadMediation'
LANGUAGE C STABLE PARALLEL SAFE;

CREATE FUNCTION lavrel.write_mediation(policy oid, label integer)
RETURNS boolean AS 'MODULE_PATHNAME', 'WriteMediation'
LANGUAGE C STABLE PARALLEL RESTRICTED;

CREATE FUNCTION lavrel.label_insert(policy oid, label integer)
RETURNS integer AS 'MODULE_PATHNAME', 'LabelInsertCheck'
LANGUAGE C VOLATILE PARALLEL RESTRICTED;

CREATE FUNCTION lavrel.label_update(policy oid, old_label integer, new_label integer)
RETURNS integer AS 'MODULE_PATHNAME', 'LabelUpdateCheck'
LANGUAGE C VOLATILE PARALLEL RESTRICTED;

-- The row-level security guard of a protected table: no query on a server
-- where lavrel works ever calls it, and on one without lavrel it cannot run.
CREATE FUNCTION lavrel.table_guard(label integer)
RETURNS boolean AS 'MODULE_PATHNAME', 'lavrel_table_guard'
LANGUAGE C VOLATILE PARALLEL SAFE;

CREATE FUNCTION lavrel.generate_default_label_value(policy oid)
RETURNS integer AS 'MODULE_PATHNAME', 'GenDefaultLabelValue'
LANGUAGE C VOLATILE PARALLEL RESTRICTED;

CREATE FUNCTION lavrel.policy_read_max_label_id(policy oid)
RETURNS integer AS 'MODULE_PATHNAME', 'GetPolicyReadMaxLabelId'
LANGUAGE C STABLE PARALLEL RESTRICTED;

CREATE FUNCTION lavrel.policy_read_min_label_id(policy oid)
RETURNS integer AS 'MODULE_PATHNAME', 'GetPolicyReadMINLabelId'
LANGUAGE C STABLE PARALLEL RESTRICTED;

-- ---------------------------------------------------------------------
-- Dump and restore (administrator only).  Oids do not survive pg_dump: a
-- restored database gives roles, tables, views, functions and schemas new
-- ones.  Run before pg_dump, sync_object_names() records the names of the
-- objects that the catalogs refer to in lavrel_object_names.  Run in a
-- database restored from that dump (its rows then come from another
-- database), it first points the catalogs at the objects of those names,
-- reading every old oid before it writes a new one, so that oids swapped
-- between objects stay apart.
-- Returns the number of objects whose oid changed.
-- ---------------------------------------------------------------------

CREATE FUNCTION lavrel.sync_object_names()
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

-- ---------------------------------------------------------------------
-- Privileges.  The catalogs are written only by the module's functions
-- (which check the caller themselves); nobody else may touch them.
-- Everyone may call the functions: ordinary users' queries call the
-- mediation functions and the policy column's default.
-- ---------------------------------------------------------------------

REVOKE ALL ON ALL TABLES IN SCHEMA lavrel FROM PUBLIC;
REVOKE ALL ON SEQUENCE lavrel.lavrel_policy_oid_seq FROM PUBLIC;
GRANT USAGE ON SCHEMA lavrel TO PUBLIC;

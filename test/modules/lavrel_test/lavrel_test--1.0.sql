/* lavrel_test--1.0.sql: SQL wrappers around internal functions of lavrel */

\echo Use "CREATE EXTENSION lavrel_test" to load this file. \quit

-- A label is passed as a level (in the range of int2) and an int2[] of
-- compartment ids (null: no compartments) and printed as "level{c1,...}".

-- ---------------------------------------------------------------------
-- The identifier reader: the identifier at the front of raw and the text
-- behind it.  warn asks for a notice when the identifier is truncated.
-- ---------------------------------------------------------------------

CREATE FUNCTION lavrel_test.split_identifier(raw text, warn boolean)
RETURNS TABLE(ident text, rest text)
AS 'MODULE_PATHNAME', 'TestSplitIdentifier' LANGUAGE C STRICT;

-- The same on raw bytes, which need not be valid in the database encoding.
CREATE FUNCTION lavrel_test.split_identifier_bytes(raw bytea, warn boolean)
RETURNS TABLE(ident bytea, rest bytea)
AS 'MODULE_PATHNAME', 'TestSplitIdentifierBytes' LANGUAGE C STRICT;

-- ---------------------------------------------------------------------
-- The label record.  Where b_level is null, b is the very same record as
-- a (not an equal copy).
-- ---------------------------------------------------------------------

CREATE FUNCTION lavrel_test.compare_labels(a_level integer, a_comps int2[],
                                           b_level integer, b_comps int2[])
RETURNS text AS 'MODULE_PATHNAME', 'TestCompareLabels' LANGUAGE C;

CREATE FUNCTION lavrel_test.strictly_dominates(a_level integer, a_comps int2[],
                                               b_level integer, b_comps int2[])
RETURNS boolean AS 'MODULE_PATHNAME', 'TestStrictlyDominates' LANGUAGE C;

CREATE FUNCTION lavrel_test.dominates(a_level integer, a_comps int2[],
                                      b_level integer, b_comps int2[])
RETURNS boolean AS 'MODULE_PATHNAME', 'TestDominates' LANGUAGE C;

CREATE FUNCTION lavrel_test.dominated_by(a_level integer, a_comps int2[],
                                         b_level integer, b_comps int2[])
RETURNS boolean AS 'MODULE_PATHNAME', 'TestDominatedBy' LANGUAGE C;

CREATE FUNCTION lavrel_test.strictly_dominated_by(a_level integer, a_comps int2[],
                                                  b_level integer, b_comps int2[])
RETURNS boolean AS 'MODULE_PATHNAME', 'TestStrictlyDominatedBy' LANGUAGE C;

-- a's compartments are removed one by one before the comparison, leaving an
-- allocated set without members.
CREATE FUNCTION lavrel_test.compare_emptied_label(a_level integer, a_comps int2[],
                                                  b_level integer, b_comps int2[])
RETURNS text AS 'MODULE_PATHNAME', 'TestCompareEmptiedLabel' LANGUAGE C;

CREATE FUNCTION lavrel_test.merge_labels(a_level integer, a_comps int2[],
                                         b_level integer, b_comps int2[],
                                         options integer)
RETURNS text AS 'MODULE_PATHNAME', 'TestMergeLabels' LANGUAGE C;

-- The copy of a label whose source was changed and freed after copying.
CREATE FUNCTION lavrel_test.copy_label(level integer, comps int2[])
RETURNS text AS 'MODULE_PATHNAME', 'TestCopyLabel' LANGUAGE C;

-- Frees a null label and tells whether copying a null label gives null.
CREATE FUNCTION lavrel_test.copy_null_label()
RETURNS boolean AS 'MODULE_PATHNAME', 'TestCopyNullLabel' LANGUAGE C;

-- ---------------------------------------------------------------------
-- Catalog lookups
-- ---------------------------------------------------------------------

CREATE FUNCTION lavrel_test.get_policy_id(policy_name text)
RETURNS oid AS 'MODULE_PATHNAME', 'TestGetPolicyId' LANGUAGE C STRICT;

CREATE FUNCTION lavrel_test.get_policy_id_checked(policy_name text)
RETURNS oid AS 'MODULE_PATHNAME', 'TestGetPolicyIdChecked' LANGUAGE C STRICT;

CREATE FUNCTION lavrel_test.get_min_level_id(policy oid)
RETURNS int2 AS 'MODULE_PATHNAME', 'TestGetMinLevelId' LANGUAGE C STRICT;

CREATE FUNCTION lavrel_test.get_level_id(policy oid, level_name text)
RETURNS int2 AS 'MODULE_PATHNAME', 'TestGetLevelId' LANGUAGE C STRICT;

CREATE FUNCTION lavrel_test.get_policy_colhidden(column_name text)
RETURNS boolean AS 'MODULE_PATHNAME', 'TestGetPolicyColhidden' LANGUAGE C STRICT;

CREATE FUNCTION lavrel_test.get_policyid_by_colname(column_name text)
RETURNS oid AS 'MODULE_PATHNAME', 'TestGetPolicyidByColname' LANGUAGE C STRICT;

CREATE FUNCTION lavrel_test.get_label_id(policy oid, level integer, comps int2[])
RETURNS integer AS 'MODULE_PATHNAME', 'TestGetLabelId' LANGUAGE C;

CREATE FUNCTION lavrel_test.get_label_by_id(label_id integer)
RETURNS text AS 'MODULE_PATHNAME', 'TestGetLabelById' LANGUAGE C STRICT;

CREATE FUNCTION lavrel_test.get_label_policy_id(label_id integer)
RETURNS oid AS 'MODULE_PATHNAME', 'TestGetLabelPolicyId' LANGUAGE C STRICT;

-- found: whether the user is authorized; bytes_left: memory the lookup left
-- allocated; access: the record read (null without with_record).
CREATE FUNCTION lavrel_test.get_user_policy_access(policy oid, member regrole,
                                                   with_record boolean)
RETURNS TABLE(found boolean, bytes_left bigint, access text)
AS 'MODULE_PATHNAME', 'TestGetUserPolicyAccess' LANGUAGE C STRICT;

CREATE FUNCTION lavrel_test.get_user_policy_privilege(policy oid, member regrole)
RETURNS integer AS 'MODULE_PATHNAME', 'TestGetUserPolicyPrivilege' LANGUAGE C STRICT;

CREATE FUNCTION lavrel_test.get_policyids_on_rel(rel regclass)
RETURNS oid[] AS 'MODULE_PATHNAME', 'TestGetPolicyidsOnRel' LANGUAGE C STRICT;

CREATE FUNCTION lavrel_test.get_policy_name(policy oid)
RETURNS text AS 'MODULE_PATHNAME', 'TestGetPolicyName' LANGUAGE C STRICT;

CREATE FUNCTION lavrel_test.get_policy_colname(policy oid)
RETURNS text AS 'MODULE_PATHNAME', 'TestGetPolicyColname' LANGUAGE C STRICT;

CREATE FUNCTION lavrel_test.get_policyenabled(policy oid)
RETURNS boolean AS 'MODULE_PATHNAME', 'TestGetPolicyenabled' LANGUAGE C STRICT;

CREATE FUNCTION lavrel_test.policy_object_checked(policy oid)
RETURNS void AS 'MODULE_PATHNAME', 'TestPolicyObjectChecked' LANGUAGE C STRICT;

CREATE FUNCTION lavrel_test.get_level_name(policy oid, level_id integer)
RETURNS text AS 'MODULE_PATHNAME', 'TestGetLevelName' LANGUAGE C STRICT;

CREATE FUNCTION lavrel_test.get_compartment_name(policy oid, compartment_id integer)
RETURNS text AS 'MODULE_PATHNAME', 'TestGetCompartmentName' LANGUAGE C STRICT;

-- ---------------------------------------------------------------------
-- The module frame
-- ---------------------------------------------------------------------

CREATE FUNCTION lavrel_test.mac_isenable()
RETURNS boolean AS 'MODULE_PATHNAME', 'TestMacIsenable' LANGUAGE C;

-- The catalog and function ids the module has resolved in this backend.
CREATE FUNCTION lavrel_test.mac_object_ids()
RETURNS TABLE(name text, id oid)
AS 'MODULE_PATHNAME', 'TestMacObjectIds' LANGUAGE C;

-- Returns the module's "lavrel extension script is running" flag afterwards.
CREATE FUNCTION lavrel_test.create_extension_process(extname text, starting boolean)
RETURNS boolean AS 'MODULE_PATHNAME', 'TestCreateExtensionProcess' LANGUAGE C;

-- The same flag, only read.
CREATE FUNCTION lavrel_test.creating_lavrel_extension()
RETURNS boolean AS 'MODULE_PATHNAME', 'TestCreatingLavrelExtension' LANGUAGE C;

-- Each hook lavrel fills at load, and what it holds now: null, the lavrel
-- function of that hook, or "another function".
CREATE FUNCTION lavrel_test.hooks()
RETURNS TABLE(hook text, holds text)
AS 'MODULE_PATHNAME', 'TestHooks' LANGUAGE C;

-- Applies the configuration files to this backend now and returns the
-- value of lavrel.enable_mac they gave it.
CREATE FUNCTION lavrel_test.reload_enable_mac()
RETURNS text AS 'MODULE_PATHNAME', 'TestReloadEnableMac' LANGUAGE C;

-- ---------------------------------------------------------------------
-- Policy administration internals
-- ---------------------------------------------------------------------

CREATE FUNCTION lavrel_test.is_policy_column(rel regclass, column_name text)
RETURNS boolean AS 'MODULE_PATHNAME', 'TestIsPolicyColumn' LANGUAGE C STRICT;

CREATE FUNCTION lavrel_test.policy_col_perm_check(rel regclass, column_name text)
RETURNS void AS 'MODULE_PATHNAME', 'TestPolicyColPermCheck' LANGUAGE C STRICT;

CREATE FUNCTION lavrel_test.is_policy_protected_rel(rel regclass)
RETURNS boolean AS 'MODULE_PATHNAME', 'TestIsPolicyProtectedRel' LANGUAGE C STRICT;

-- The cached record of every relation given: its policies, in catalog
-- order, whether each is enabled, hides its column, and the column's number.
CREATE FUNCTION lavrel_test.protected_table(VARIADIC rels regclass[])
RETURNS TABLE(rel regclass, policy oid, enabled boolean, hidden boolean, attnum integer)
AS 'MODULE_PATHNAME', 'TestProtectedTable' LANGUAGE C STRICT;

CREATE FUNCTION lavrel_test.remove_policy_by_id(policy oid)
RETURNS void AS 'MODULE_PATHNAME', 'TestRemovePolicyById' LANGUAGE C STRICT;

CREATE FUNCTION lavrel_test.alter_policy_tuple(policy oid, enabled boolean)
RETURNS void AS 'MODULE_PATHNAME', 'TestAlterPolicyTuple' LANGUAGE C STRICT;

-- Each removes one catalog row and returns whether a lookup in the same
-- command still sees it.
CREATE FUNCTION lavrel_test.remove_level_by_id(policy oid, level_id integer)
RETURNS boolean AS 'MODULE_PATHNAME', 'TestRemoveLevelById' LANGUAGE C STRICT;

CREATE FUNCTION lavrel_test.remove_comp_by_id(policy oid, compartment_id integer)
RETURNS boolean AS 'MODULE_PATHNAME', 'TestRemoveCompById' LANGUAGE C STRICT;

CREATE FUNCTION lavrel_test.remove_label_by_id(label_id integer)
RETURNS boolean AS 'MODULE_PATHNAME', 'TestRemoveLabelById' LANGUAGE C STRICT;

-- ---------------------------------------------------------------------
-- The session tables' primitives, on one of "User Session Label", "Label
-- Lookup Info" and "Label Mediation", with records of the wrapper's own
-- under a key that must be free; they are unlinked before the call ends.
-- ---------------------------------------------------------------------

-- Inserts two records under the key, then deletes the second and the
-- first: which record a lookup finds after the second insertion and at the
-- end, and whether the first record was still linked.
CREATE FUNCTION lavrel_test.session_insert_twice(session_table text, key oid)
RETURNS TABLE(found_after_second_insert text, first_still_linked boolean,
              found_after_deletes text)
AS 'MODULE_PATHNAME', 'TestSessionInsertTwice' LANGUAGE C STRICT;

-- Deletes, twice, a record whose back-link names an element (with the key)
-- that the table does not hold: whether the first deletion cleared the
-- back-link, and whether the key is in the table afterwards.
CREATE FUNCTION lavrel_test.session_delete_stray(session_table text, key oid)
RETURNS TABLE(back_link_cleared boolean, key_in_table boolean)
AS 'MODULE_PATHNAME', 'TestSessionDeleteStray' LANGUAGE C STRICT;

-- Initialises the session memory context again.  Any backend that has run
-- a statement while access control was in force has it already, so there
-- the call ends the backend.
CREATE FUNCTION lavrel_test.init_mac_session_memory_context()
RETURNS void AS 'MODULE_PATHNAME', 'TestInitMacSessionMemoryContext' LANGUAGE C;

-- ---------------------------------------------------------------------
-- The label filter
-- ---------------------------------------------------------------------

-- Runs the label filter on one UPDATE or DELETE statement, analysed as
-- usual and, with with_set_operation, given a set operation first (SQL
-- cannot write one); returns how many security quals its result relation
-- then carries.
CREATE FUNCTION lavrel_test.rewrite_write_statement(statement text, with_set_operation boolean)
RETURNS integer AS 'MODULE_PATHNAME', 'TestRewriteWriteStatement' LANGUAGE C STRICT;

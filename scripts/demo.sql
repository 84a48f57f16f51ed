-- scripts/demo.sql: the worked example of the README, run by the
-- administrator (the bootstrap superuser) in a fresh database.
\set ON_ERROR_STOP on
\pset footer off
SET client_min_messages = warning;
\o /dev/null

CREATE EXTENSION lavrel;

-- A policy: its labels live in a column "clearance" of protected tables.
SELECT lavrel.create_policy('company', 'clearance');

-- Three levels (a higher id dominates a lower one) and two compartments.
SELECT lavrel.create_level('company', 'public', 10);
SELECT lavrel.create_level('company', 'internal', 20);
SELECT lavrel.create_level('company', 'secret', 30);
SELECT lavrel.create_compartment('company', 'sales', 1);
SELECT lavrel.create_compartment('company', 'hr', 2);

-- Labels: a level and a set of compartments, numbered by the administrator.
SELECT lavrel.create_label('company', 'public', 100);
SELECT lavrel.create_label('company', 'internal', 200);
SELECT lavrel.create_label('company', 'internal:sales', 210);
SELECT lavrel.create_label('company', 'internal:hr', 220);
SELECT lavrel.create_label('company', 'secret:sales', 310);
SELECT lavrel.create_label('company', 'secret:sales,hr', 320);

-- A protected table: applying the policy adds the "clearance" column.
CREATE TABLE documents (id serial, title text);
SELECT lavrel.apply_table_policy('company', 'public', 'documents');
GRANT SELECT, INSERT, UPDATE, DELETE ON documents TO PUBLIC;
GRANT USAGE ON SEQUENCE documents_id_seq TO PUBLIC;

CREATE ROLE alice LOGIN;
CREATE ROLE bob LOGIN;
CREATE ROLE carol LOGIN;

-- A session reads rows whose label its read label dominates, and the read
-- label is the greatest lower bound of the user's default label and min
-- write label.  With only a max label given, the min write label defaults
-- to the lowest level, so the user would read public rows only.  Each user
-- here gets a default and min write label equal to the max label: they
-- read everything up to it, and write rows of exactly that label.
SELECT lavrel.set_user_labels('company', 'alice', 'secret:sales,hr',
                              min_write_label => 'secret:sales,hr',
                              def_label => 'secret:sales,hr');
SELECT lavrel.set_user_labels('company', 'bob', 'internal:sales',
                              min_write_label => 'internal:sales',
                              def_label => 'internal:sales');
-- carol has alice's max label but the defaults: she reads public rows only.
SELECT lavrel.set_user_labels('company', 'carol', 'secret:sales,hr');

-- The administrator is mediated too: to load rows of every label he takes
-- the FULL privilege, which lets him read and write any label.
SELECT lavrel.set_user_labels('company', 'postgres', 'secret:sales,hr');
SELECT lavrel.set_user_privs('company', 'postgres', 'FULL');
INSERT INTO documents (title, clearance) VALUES
    ('canteen menu', 100), ('org chart', 200), ('sales forecast', 210),
    ('salary bands', 220), ('merger plan', 310), ('layoff list', 320);

\o
\echo
\echo == Authorizations, as the administrator sees them in lavrel.lavrel_user
SELECT u.rolname AS "user", lavrel.privs_to_char(a.user_privs) AS privs,
       a.max_level, a.min_write_level, a.def_level, a.row_level,
       a.max_read_comps, a.min_write_comps
  FROM lavrel.lavrel_user a JOIN pg_roles u ON u.oid = a.user_oid
 ORDER BY 1;

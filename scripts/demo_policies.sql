-- scripts/demo_policies.sql: the policies, labels and user authorizations
-- of the worked example, run by the administrator once the extension and
-- the roles alice, bob, carol, dave and erin exist.  scripts/demo.sql
-- builds the demo on it, and test/dump_restore/source.sql the database
-- that the dump and restore test copies.

-- Policy "company": the label of each row lives in a column "clearance".
-- A higher level dominates a lower one; a label with more compartments
-- dominates one with fewer.
SELECT lavrel.create_policy('company', 'clearance');
SELECT lavrel.create_level('company', 'public', 10);
SELECT lavrel.create_level('company', 'internal', 20);
SELECT lavrel.create_level('company', 'secret', 30);
SELECT lavrel.create_compartment('company', 'sales', 1);
SELECT lavrel.create_compartment('company', 'hr', 2);
SELECT lavrel.create_label('company', 'public', 100);
SELECT lavrel.create_label('company', 'internal', 200);
SELECT lavrel.create_label('company', 'internal:sales', 210);
SELECT lavrel.create_label('company', 'internal:hr', 220);
SELECT lavrel.create_label('company', 'secret:sales', 310);
SELECT lavrel.create_label('company', 'secret:sales,hr', 320);

-- Policy "payroll" hides its column "grade": SELECT * leaves it out.
SELECT lavrel.create_policy('payroll', 'grade', hide_column => true);
SELECT lavrel.create_level('payroll', 'staff', 10);
SELECT lavrel.create_level('payroll', 'board', 20);
SELECT lavrel.create_label('payroll', 'staff', 1010);
SELECT lavrel.create_label('payroll', 'board', 1020);

-- A session reads the labels that its read label dominates: the greatest
-- lower bound of the user's default label and min write label.  It writes
-- the labels between its min write label and its max label.  READ lets it
-- read every label, FULL read and write every label.

-- alice, the manager: reads and writes up to secret:sales,hr.
SELECT lavrel.set_user_labels('company', 'alice', 'secret:sales,hr',
                              min_write_label => 'secret:sales,hr',
                              def_label => 'secret:sales,hr');
-- bob, in sales: reads up to internal:sales, writes internal:sales.
SELECT lavrel.set_user_labels('company', 'bob', 'internal:sales',
                              min_write_label => 'internal:sales',
                              def_label => 'internal:sales');
-- carol, the auditor: labels public (with only a max label given, min
-- write and default labels are the lowest level), READ reads the rest.
SELECT lavrel.set_user_labels('company', 'carol', 'public');
SELECT lavrel.set_user_privs('company', 'carol', 'READ');
-- dave, the archivist: FULL, whatever his labels.
SELECT lavrel.set_user_labels('company', 'dave', 'internal');
SELECT lavrel.set_user_privs('company', 'dave', 'FULL');
-- erin, who leads sales: writes internal:sales up to secret:sales, but
-- reads only up to internal:sales, her default and min write label.
SELECT lavrel.set_user_labels('company', 'erin', 'secret:sales',
                              min_write_label => 'internal:sales',
                              def_label => 'internal:sales');

-- Under payroll, alice reads both grades, bob and erin staff only; carol
-- has no authorization there and so reads nothing.
SELECT lavrel.set_user_labels('payroll', 'alice', 'board',
                              min_write_label => 'board', def_label => 'board');
SELECT lavrel.set_user_labels('payroll', 'bob', 'staff');
SELECT lavrel.set_user_labels('payroll', 'erin', 'staff');

-- The administrator is mediated like everyone: with FULL he may load rows
-- of every label.
SELECT lavrel.set_user_labels('company', 'postgres', 'secret:sales,hr');
SELECT lavrel.set_user_privs('company', 'postgres', 'FULL');
SELECT lavrel.set_user_labels('payroll', 'postgres', 'board');
SELECT lavrel.set_user_privs('payroll', 'postgres', 'FULL');

-- bench/sync_setup.sql: a database whose policy "sync" has :labels labels
-- (psql variable), for the session synchronisation scenario.  The
-- administrator is authorized for all of them; "outsider" for none.
--
-- Label i has level l(1 + (i - 1) % 10) and the compartments given by the
-- bits of (i - 1) / 10: up to 10,239 labels are all distinct and leave
-- l10 with all ten compartments free, for the scenario to add and drop.
\set ON_ERROR_STOP on
SET client_min_messages = warning;
\o /dev/null
\ir label_text.sql
CREATE EXTENSION lavrel;
SELECT lavrel.create_policy('sync', 'label');
SELECT lavrel.create_level('sync', 'l' || i, i) FROM generate_series(1, 10) i;
SELECT lavrel.create_compartment('sync', 'c' || i, i) FROM generate_series(1, 10) i;
SELECT lavrel.create_label('sync', label_text(1 + (i - 1) % 10, (i - 1) / 10), i)
  FROM generate_series(1, :labels) i;
SELECT lavrel.set_user_labels('sync', 'postgres', 'l10:c1,c2,c3,c4,c5,c6,c7,c8,c9,c10');

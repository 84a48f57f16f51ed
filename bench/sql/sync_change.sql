-- The administrator adds a label to the policy, with the next free id, and
-- drops it again: every session authorized for the policy must then
-- synchronise its labels anew, which the next statement does.
SELECT lavrel.create_label('sync', 'l10:c1,c2,c3,c4,c5,c6,c7,c8,c9,c10',
                           (SELECT max(label_id) + 1 FROM lavrel.lavrel_label));
SELECT lavrel.drop_label('sync', 'l10:c1,c2,c3,c4,c5,c6,c7,c8,c9,c10');
SELECT 1;

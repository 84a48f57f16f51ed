-- nolibrary_each_user.sql: runs the script named by :each as each user of
-- nolibrary_setup in turn, the tables' owner first.
\c - regress_nolib_owner
\i :each
\c - regress_nolib_full
\i :each
\c - regress_nolib_narrow
\i :each
\c - regress_nolib_none
\i :each

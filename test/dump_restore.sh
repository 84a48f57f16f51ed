#!/usr/bin/env bash
# test/dump_restore.sh: dumps a database with lavrel policies, labels, user
# authorizations, labelled objects and protected tables with pg_dumpall
# --globals-only and pg_dump, restores it into a new cluster with
# pg_restore and with psql as doc/dump_restore.md says, and checks that the
# administrator and every user then see exactly what they saw before.  Then
# moves a cluster holding the same database into a new cluster with
# pg_upgrade, as doc/operations.md says, and checks the same.
#
# Prints one "ok N - ..." or "not ok N - ..." line per check (with what
# went wrong as "#" lines) and exits non-zero when a check failed.  Run by
# test/run.sh, which builds and installs lavrel first; needs root.
set -euo pipefail
. "$(dirname "$0")/../scripts/lib.sh"

FIXTURES=$LAVREL_ROOT/test/dump_restore
USERS="alice bob carol dave erin zoe"
WORK=$(mktemp -d /tmp/lavrel-dump.XXXXXX)
trap 'lavrel_cluster_stop; rm -rf "$WORK"' EXIT

# record_views DB NAME: what the administrator and each user see in DB,
# into $WORK/NAME.catalog and $WORK/NAME.<user>.
record_views() {
    lavrel_record_views "$1" "$WORK/$2" $USERS
}

# same_view VIEW NAME: the restored database NAME shows VIEW as the source did.
same_view() {
    diff -u "$WORK/source.$1" "$WORK/$2.$1"
}

# dumped_documents N: a data-only pg_dump of the source holds N rows of
# documents.
dumped_documents() {
    local rows
    rows=$(pg_dump -a -t documents source | sed -n '/^COPY public.documents /,/^\\\./p' |
           grep -vc '^COPY \|^\\\.$')
    [ "$rows" = "$1" ] || { echo "expected $1 rows, got $rows"; return 1; }
}

# In the source, alice reads the secret rows, bob does not, zoe reads none.
source_views_differ() {
    grep -q 'layoff list' "$WORK/source.alice" && ! grep -q 'layoff list' "$WORK/source.bob" &&
        ! grep -q 'canteen menu' "$WORK/source.zoe"
}

# The users come back; only the bootstrap superuser, which the new cluster
# has already, fails.
restore_globals() {
    local output
    output=$(psql -X -q -f "$WORK/globals.sql" 2>&1)
    ! grep ERROR <<<"$output" | grep -vF 'ERROR:  role "postgres" already exists' &&
        lavrel_sql_is postgres "${USERS// /,}" \
            "SELECT string_agg(rolname, ',' ORDER BY rolname) FROM pg_roles
              WHERE rolname = ANY (string_to_array('${USERS// /,}', ','))"
}

# restore_custom DB DUMP: a new database DB restored from a custom-format dump.
restore_custom() {
    createdb "$1"
    pg_restore --exit-on-error -d "$1" "$2"
}

# restore_plain DB: a new database DB restored by psql from the plain-format dump.
restore_plain() {
    createdb "$1"
    psql -X -q -v ON_ERROR_STOP=1 -d "$1" -f "$WORK/source.sql" >/dev/null
}

# --- The source: a cluster where the database is made and dumped --------

lavrel_cluster_start yes
createdb source
psql -X -q -d source -f "$FIXTURES/source.sql"

psql -X -q -d source -c "SELECT lavrel.set_user_privs('company', 'postgres', '')" >/dev/null
lavrel_check "without READ or FULL, the administrator's pg_dump copies 1 of the 7 documents" \
    dumped_documents 1
lavrel_check "so sync_object_names() refuses to prepare a dump" \
    lavrel_sql_fails source 'pg_dump would copy only the rows of policy "company" that the administrator may read' \
    "SELECT lavrel.sync_object_names()"
psql -X -q -d source -c "SELECT lavrel.set_user_privs('company', 'postgres', 'FULL')" >/dev/null
lavrel_check "with FULL, sync_object_names() records the names and moves no oid" \
    lavrel_sql_is source 0 "SELECT lavrel.sync_object_names()"

record_views source source
lavrel_check "in the source, alice reads the secret rows, bob does not, zoe reads none" \
    source_views_differ

pg_dumpall --globals-only -f "$WORK/globals.sql"
pg_dump -Fc -f "$WORK/source.dump" source
pg_dump -f "$WORK/source.sql" source
# A change after the last sync_object_names() leaves a dump without its name.
psql -X -q -d source -c "CREATE ROLE latecomer" \
    -c "SELECT lavrel.set_user_labels('company', 'latecomer', 'public')" >/dev/null
pg_dump -Fc -f "$WORK/unsynced.dump" source
lavrel_cluster_stop

# --- The target: a new cluster, restored with access control off ---------

lavrel_cluster_start yes
lavrel_set_enable_mac off
lavrel_check "pg_dumpall --globals-only restores the roles" restore_globals
lavrel_check "pg_restore restores the custom-format dump" restore_custom restored "$WORK/source.dump"
lavrel_check "sync_object_names() moves the catalogs to the restored objects' new oids" \
    lavrel_sql_is restored t "SELECT lavrel.sync_object_names() > 0"
lavrel_check "psql restores the plain-format dump" restore_plain from_psql
lavrel_check "sync_object_names() moves its catalogs too" \
    lavrel_sql_is from_psql t "SELECT lavrel.sync_object_names() > 0"

lavrel_check "pg_restore restores the dump taken after a change without sync_object_names()" \
    restore_custom unsynced "$WORK/unsynced.dump"
lavrel_check "sync_object_names() refuses to sync that restore" \
    lavrel_sql_fails unsynced 'the dump holds no name for some objects that lavrel refers to' \
    "SELECT lavrel.sync_object_names()"

psql -X -q -c "ALTER ROLE erin RENAME TO erin_renamed" >/dev/null
restore_custom missing_role "$WORK/source.dump"
lavrel_check "sync_object_names() refuses a database whose roles were not all restored" \
    lavrel_sql_fails missing_role 'role "erin" does not exist' "SELECT lavrel.sync_object_names()"
psql -X -q -c "ALTER ROLE erin_renamed RENAME TO erin" >/dev/null

lavrel_set_enable_mac on
lavrel_check "with access control on, a restored database not yet synced refuses sync_object_names()" \
    lavrel_sql_fails unsynced "lavrel's catalogs in this database still refer to objects by their oids in another database" \
    "SELECT lavrel.sync_object_names()"
lavrel_check "and every other statement, the administrator's too" \
    lavrel_sql_fails unsynced "lavrel's catalogs in this database still refer to objects by their oids in another database" "SELECT 1"
lavrel_check "and every user's" \
    lavrel_as_user alice lavrel_sql_fails unsynced "lavrel's catalogs in this database still refer to objects by their oids in another database" "SELECT count(*) FROM plain"

for db in restored from_psql; do
    record_views "$db" "$db"
    lavrel_check "$db: the administrator sees the same policies, labels, authorizations, labelled objects and rows" \
        same_view catalog "$db"
    for user in $USERS; do
        lavrel_check "$db: $user sees the same rows and gets the same answers" same_view "$user" "$db"
    done
done

# A labelled function dropped while its label stays: its oid may come back
# as another object's, so no dump is prepared.
psql -X -q -d restored -c "DROP FUNCTION hr.bonus(numeric)"
lavrel_check "sync_object_names() refuses a label of an object that no longer exists" \
    lavrel_sql_fails restored 'lavrel refers to routine' "SELECT lavrel.sync_object_names()"
psql -X -q -c "CREATE ROLE second_superuser SUPERUSER LOGIN"
lavrel_check "sync_object_names() refuses any superuser but the bootstrap superuser" \
    lavrel_sql_fails restored 'permission denied to sync object names' \
    "SET ROLE second_superuser; SELECT lavrel.sync_object_names()"
lavrel_cluster_stop

# --- pg_upgrade: a cluster holding the source into a new cluster ----------

# upgrade_fails SAYS LINE...: upgrade LINE... fails, and pg_upgrade's
# output or the files it left say SAYS.
upgrade_fails() {
    local says=$1
    shift
    if lavrel_pg_upgrade "$@"; then
        echo "pg_upgrade succeeded"
        return 1
    fi
    grep -rqF "$says" "$LAVREL_CLUSTER_DIR/upgrade.log" "$LAVREL_CLUSTER_DIR/new/pg_upgrade_output.d" ||
        { tail -n 20 "$LAVREL_CLUSTER_DIR/upgrade.log"; return 1; }
}

# The old cluster: the source, with its names recorded right before.
lavrel_cluster_start yes
createdb source
psql -X -q -d source -f "$FIXTURES/source.sql"
psql -X -q -d source -c "SELECT lavrel.sync_object_names()" >/dev/null
lavrel_cluster_stop_server

lavrel_check "pg_upgrade refuses a new cluster that does not preload lavrel" \
    upgrade_fails 'lavrel must be loaded via shared_preload_libraries'
lavrel_check "pg_upgrade fails while access control is on in the new cluster" \
    upgrade_fails 'Init Mac Object ids error' \
    "shared_preload_libraries = 'lavrel'" "lavrel.enable_mac = on"
lavrel_check "pg_upgrade succeeds into a new cluster that preloads lavrel, access control off" \
    lavrel_pg_upgrade "shared_preload_libraries = 'lavrel'"

lavrel_cluster_take_upgraded

lavrel_check "pg_upgrade keeps the oids of roles: every authorization names its user" \
    lavrel_sql_is source 0 "SELECT count(*) FROM lavrel.lavrel_user u
                             WHERE NOT EXISTS (SELECT FROM pg_roles r WHERE r.oid = u.user_oid)"
lavrel_set_enable_mac on
lavrel_check "with access control on before sync_object_names(), hr.bonus is refused to everyone" \
    lavrel_as_user erin lavrel_sql_fails source "lavrel's catalogs in this database still refer to objects by their oids in another database" "SELECT hr.bonus(1000)"
lavrel_check "and so are the protected tables" \
    lavrel_as_user alice lavrel_sql_fails source "lavrel's catalogs in this database still refer to objects by their oids in another database" "SELECT count(*) FROM documents"
lavrel_set_enable_mac off
lavrel_check "pg_upgrade does not keep the oid of a labelled function" \
    lavrel_sql_is source t "SELECT obj_oid <> 'hr.bonus(numeric)'::regprocedure FROM lavrel.lavrel_obj
                      WHERE obj_type ILIKE 'function'"
lavrel_check "sync_object_names() moves the catalogs to the upgraded objects' oids" \
    lavrel_sql_is source t "SELECT lavrel.sync_object_names() > 0"
lavrel_set_enable_mac on
record_views source upgraded
lavrel_check "upgraded: the administrator sees the same policies, labels, authorizations, labelled objects and rows" \
    same_view catalog upgraded
for user in $USERS; do
    lavrel_check "upgraded: $user sees the same rows and gets the same answers" same_view "$user" upgraded
done
exit "$LAVREL_CHECK_FAILED"

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

# sql_is DB EXPECTED QUERY: the query's only value is EXPECTED.
sql_is() {
    local got
    got=$(psql -X -At -v ON_ERROR_STOP=1 -d "$1" -c "$3")
    [ "$got" = "$2" ] || { echo "expected \"$2\", got \"$got\""; return 1; }
}

# sql_fails DB MESSAGE QUERY: the query fails with an error that says MESSAGE.
sql_fails() {
    local output
    if output=$(psql -X -q -v ON_ERROR_STOP=1 -d "$1" -c "$3" 2>&1); then
        echo "the query did not fail: $output"
        return 1
    fi
    grep -qF "$2" <<<"$output" || { echo "$output"; return 1; }
}

# set_enable_mac on|off: sets lavrel.enable_mac for the cluster and waits
# until new sessions see it.
set_enable_mac() {
    local tries=0
    psql -X -q -c "ALTER SYSTEM SET lavrel.enable_mac = $1" -c "SELECT pg_reload_conf()" >/dev/null
    until [ "$(psql -X -At -c 'SHOW lavrel.enable_mac')" = "$1" ]; do
        tries=$((tries + 1))
        [ "$tries" -lt 100 ] || { echo "lavrel.enable_mac did not become $1" >&2; return 1; }
        sleep 0.1
    done
}

# record_views DB NAME: what the administrator and each user see in DB,
# into $WORK/NAME.catalog and $WORK/NAME.<user>.
record_views() {
    local user
    psql -X -d "$1" -f "$FIXTURES/catalog.sql" >"$WORK/$2.catalog" 2>&1
    for user in $USERS; do
        psql -X -d "$1" -U "$user" -f "$FIXTURES/user.sql" >"$WORK/$2.$user" 2>&1
    done
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
        sql_is postgres "${USERS// /,}" \
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
    sql_fails source 'pg_dump would copy only the rows of policy "company" that the administrator may read' \
    "SELECT lavrel.sync_object_names()"
psql -X -q -d source -c "SELECT lavrel.set_user_privs('company', 'postgres', 'FULL')" >/dev/null
lavrel_check "with FULL, sync_object_names() records the names and moves no oid" \
    sql_is source 0 "SELECT lavrel.sync_object_names()"

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
set_enable_mac off
lavrel_check "pg_dumpall --globals-only restores the roles" restore_globals
lavrel_check "pg_restore restores the custom-format dump" restore_custom restored "$WORK/source.dump"
lavrel_check "sync_object_names() moves the catalogs to the restored objects' new oids" \
    sql_is restored t "SELECT lavrel.sync_object_names() > 0"
lavrel_check "psql restores the plain-format dump" restore_plain from_psql
lavrel_check "sync_object_names() moves its catalogs too" \
    sql_is from_psql t "SELECT lavrel.sync_object_names() > 0"

lavrel_check "pg_restore restores the dump taken after a change without sync_object_names()" \
    restore_custom unsynced "$WORK/unsynced.dump"
lavrel_check "sync_object_names() refuses to sync that restore" \
    sql_fails unsynced 'the dump holds no name for some objects that lavrel refers to' \
    "SELECT lavrel.sync_object_names()"

psql -X -q -c "ALTER ROLE erin RENAME TO erin_renamed" >/dev/null
restore_custom missing_role "$WORK/source.dump"
lavrel_check "sync_object_names() refuses a database whose roles were not all restored" \
    sql_fails missing_role 'role "erin" does not exist' "SELECT lavrel.sync_object_names()"
psql -X -q -c "ALTER ROLE erin_renamed RENAME TO erin" >/dev/null

set_enable_mac on
lavrel_check "sync_object_names() refuses a restored database while access control is on" \
    sql_fails unsynced 'set lavrel.enable_mac to off before syncing a restored database' \
    "SELECT lavrel.sync_object_names()"

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
    sql_fails restored 'lavrel refers to routine' "SELECT lavrel.sync_object_names()"
psql -X -q -c "CREATE ROLE second_superuser SUPERUSER LOGIN"
lavrel_check "sync_object_names() refuses any superuser but the bootstrap superuser" \
    sql_fails restored 'permission denied to sync object names' \
    "SET ROLE second_superuser; SELECT lavrel.sync_object_names()"
lavrel_cluster_stop

# --- pg_upgrade: a cluster holding the source into a new cluster ----------

UPGRADE=$WORK/upgrade
mkdir "$UPGRADE"
chown postgres: "$UPGRADE"
chmod 755 "$WORK"

# upgrade LINE...: pg_upgrade of the stopped cluster $OLD_DATA into a new
# cluster $UPGRADE/new, made afresh, whose postgresql.conf gets the lines
# given.  pg_upgrade's output goes to $UPGRADE/upgrade.log, and what its
# failed checks found to files under $UPGRADE/new.
upgrade() {
    rm -rf "$UPGRADE/new"
    runuser -u postgres -- "$PG_BIN/initdb" -D "$UPGRADE/new" -U postgres --auth=trust \
        --no-sync -E UTF8 --locale=C >/dev/null
    [ $# -eq 0 ] || printf '%s\n' "$@" >>"$UPGRADE/new/postgresql.conf"
    (cd "$UPGRADE" && runuser -u postgres -- "$PG_BIN/pg_upgrade" -b "$PG_BIN" -B "$PG_BIN" \
        -d "$OLD_DATA" -D "$UPGRADE/new" -p "$(lavrel_free_port)" -P "$(lavrel_free_port)" \
        -s "$UPGRADE") >"$UPGRADE/upgrade.log" 2>&1
}

# upgrade_fails SAYS LINE...: upgrade LINE... fails, and pg_upgrade's
# output or the files it left say SAYS.
upgrade_fails() {
    local says=$1
    shift
    if upgrade "$@"; then
        echo "pg_upgrade succeeded"
        return 1
    fi
    grep -rqF "$says" "$UPGRADE/upgrade.log" "$UPGRADE/new/pg_upgrade_output.d" ||
        { tail -n 20 "$UPGRADE/upgrade.log"; return 1; }
}

# The old cluster: the source, with its names recorded right before.
lavrel_cluster_start yes
createdb source
psql -X -q -d source -f "$FIXTURES/source.sql"
psql -X -q -d source -c "SELECT lavrel.sync_object_names()" >/dev/null
OLD_DATA=$LAVREL_CLUSTER_DIR/data
runuser -u postgres -- "$PG_BIN/pg_ctl" -D "$OLD_DATA" -m fast -w stop >/dev/null

lavrel_check "pg_upgrade refuses a new cluster that does not preload lavrel" \
    upgrade_fails 'lavrel must be loaded via shared_preload_libraries'
lavrel_check "pg_upgrade fails while access control is on in the new cluster" \
    upgrade_fails 'Init Mac Object ids error' \
    "shared_preload_libraries = 'lavrel'" "lavrel.enable_mac = on"
lavrel_check "pg_upgrade succeeds into a new cluster that preloads lavrel, access control off" \
    upgrade "shared_preload_libraries = 'lavrel'"

# The new cluster takes the old one's place (its directory, socket and port).
rm -rf "$OLD_DATA"
mv "$UPGRADE/new" "$OLD_DATA"
{
    echo "listen_addresses = 'localhost'"
    echo "port = $PGPORT"
    echo "unix_socket_directories = '$LAVREL_CLUSTER_DIR'"
} >>"$OLD_DATA/postgresql.conf"
runuser -u postgres -- "$PG_BIN/pg_ctl" -D "$OLD_DATA" -l "$LAVREL_CLUSTER_DIR/server.log" \
    -w -t 60 start >/dev/null

lavrel_check "pg_upgrade does not keep the oid of a labelled function" \
    sql_is source t "SELECT obj_oid <> 'hr.bonus(numeric)'::regprocedure FROM lavrel.lavrel_obj
                      WHERE obj_type ILIKE 'function'"
lavrel_check "sync_object_names() moves the catalogs to the upgraded objects' oids" \
    sql_is source t "SELECT lavrel.sync_object_names() > 0"
set_enable_mac on
record_views source upgraded
lavrel_check "upgraded: the administrator sees the same policies, labels, authorizations, labelled objects and rows" \
    same_view catalog upgraded
for user in $USERS; do
    lavrel_check "upgraded: $user sees the same rows and gets the same answers" same_view "$user" upgraded
done
exit "$LAVREL_CHECK_FAILED"

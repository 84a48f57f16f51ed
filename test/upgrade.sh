#!/usr/bin/env bash
# test/upgrade.sh: runs lavrel as an older release installed it, moves to
# the current library, brings the extension up to the current version with
# ALTER EXTENSION lavrel UPDATE, and checks that the result is the same as
# a fresh install holding the same data: the same extension objects (every
# function with its whole definition, tables with their columns, keys,
# indexes, grants and descriptions, generically, by name), the same
# catalog contents and guards, and the same answers and refusals for every
# user.  Then moves a cluster with the older release into a new cluster
# with pg_upgrade, updates it there and checks the same.
#
# Each older release is built from the commit that released it (the test
# needs the repository's history, and says so when it is missing) and
# installed into a private copy of PostgreSQL under a temporary directory,
# so that its cluster runs its own library and SQL, as after a `make
# install` of that release.  A release that changes the SQL adds its
# upgrade script under sql/ and its version and commit to VERSIONS.
#
# Prints one "ok N - ..." or "not ok N - ..." line per check and exits
# non-zero when a check failed.  Run by test/run.sh, which builds and
# installs lavrel first; needs root.
set -euo pipefail
. "$(dirname "$0")/../scripts/lib.sh"

# Each older version, and the commit that released it.
VERSIONS="1.0:57463e1"
FIXTURES=$LAVREL_ROOT/test/dump_restore
USERS="alice bob carol dave erin zoe"
WORK=$(mktemp -d /tmp/lavrel-upgrade.XXXXXX)
chmod 755 "$WORK"
trap 'lavrel_cluster_stop; rm -rf "$WORK"' EXIT
CURRENT=$(sed -n "s/^default_version = '\(.*\)'/\1/p" "$LAVREL_ROOT/lavrel.control")

# The database that holds VERSION.
db() {
    echo "v${1//./_}"
}

# The PostgreSQL programs that run VERSION's library.
old_bin() {
    echo "$WORK/pg-$1${PG_BIN}"
}

# install_release VERSION COMMIT: builds the release from its commit and
# installs it into a copy of PostgreSQL of its own.
install_release() {
    local version=$1 commit=$2 src=$WORK/src-$1 root=$WORK/pg-$1 sharedir libdir
    git -C "$LAVREL_ROOT" cat-file -e "$commit" 2>/dev/null ||
        { echo "commit $commit is not in this clone: the test needs the full history"; return 1; }
    mkdir -p "$src"
    git -C "$LAVREL_ROOT" archive "$commit" | tar -x -C "$src"
    make -s -C "$src" PG_CONFIG="$PG_BIN/pg_config" >/dev/null
    sharedir=$("$PG_BIN/pg_config" --sharedir)
    libdir=$("$PG_BIN/pg_config" --pkglibdir)
    mkdir -p "$root$(dirname "$PG_BIN")" "$root$(dirname "$sharedir")"
    cp -a "$(dirname "$PG_BIN")/." "$root$(dirname "$PG_BIN")"
    cp -a "$sharedir" "$root$(dirname "$sharedir")"
    rm -f "$root$sharedir"/extension/lavrel*
    cp "$src/lavrel.so" "$root$libdir/lavrel.so"
    cp "$src/lavrel.control" "$src/sql/lavrel--$version.sql" "$root$sharedir/extension/"
    [ "$("$(old_bin "$version")/pg_config" --sharedir)" = "$root$sharedir" ] ||
        { echo "the copy of PostgreSQL does not find its own files"; return 1; }
}

# load_old VERSION: in the cluster running VERSION's library, the roles
# and a database with the extension at VERSION and the test's data.
load_old() {
    psql -X -q -f "$FIXTURES/roles.sql" &&
        createdb "$(db "$1")" &&
        psql -X -q -d "$(db "$1")" -c "CREATE EXTENSION lavrel" -f "$FIXTURES/data.sql" &&
        lavrel_sql_is "$(db "$1")" "$1" "SELECT extversion FROM pg_extension WHERE extname = 'lavrel'"
}

# record DB NAME: the extension's objects, the catalogs as the
# administrator sees them and each user's answers, into $WORK/NAME.*;
# the names of the objects the catalogs refer to are recorded first, as
# before a dump.
record() {
    psql -X -q -d "$1" -c "SELECT lavrel.sync_object_names()" >/dev/null
    psql -X -d "$1" -f "$LAVREL_ROOT/test/upgrade/objects.sql" >"$WORK/$2.objects" 2>&1
    lavrel_record_views "$1" "$WORK/$2" $USERS
}

# same VIEW NAME: NAME shows VIEW as the fresh install does.
same() {
    diff -u "$WORK/fresh.$1" "$WORK/$2.$1"
}

# The recorded views of the fresh install show what they should: the
# guards, rows of several labels, refusals.
fresh_views_hold() {
    grep -q 'lavrel_company' "$WORK/fresh.catalog" && grep -q 'lavrel.table_guard' "$WORK/fresh.objects" &&
        grep -q 'layoff list' "$WORK/fresh.alice" && ! grep -q 'layoff list' "$WORK/fresh.bob" &&
        grep -q 'unauthorized' "$WORK/fresh.bob"
}

# update DB: ALTER EXTENSION lavrel UPDATE reaches the current version.
update() {
    psql -X -q -v ON_ERROR_STOP=1 -d "$1" -c "ALTER EXTENSION lavrel UPDATE" &&
        lavrel_sql_is "$1" "$CURRENT" "SELECT extversion FROM pg_extension WHERE extname = 'lavrel'"
}

# same_as_fresh DB NAME WHAT: records DB as NAME and checks that it shows
# what the fresh install shows, WHAT saying how DB came about.
same_as_fresh() {
    local user
    record "$1" "$2"
    lavrel_check "$3: the same extension objects as a fresh install" same objects "$2"
    lavrel_check "$3: the same catalogs, guards and rows" same catalog "$2"
    for user in $USERS; do
        lavrel_check "$3: $user sees the same rows and gets the same answers" same "$user" "$2"
    done
}

# noticed DB STATEMENT: the comparison of objects tells a database that
# differs from DB by STATEMENT (what a forgotten line of an upgrade script
# leaves) from the fresh install.
noticed() {
    psql -X -q -v ON_ERROR_STOP=1 -d "$1" -c BEGIN -c "$2" \
        -f "$LAVREL_ROOT/test/upgrade/objects.sql" -c ROLLBACK >"$WORK/changed.objects" 2>&1
    if same objects changed >/dev/null; then
        echo "no difference found"
        return 1
    fi
}

# The comparison notices what a forgotten line of an upgrade script leaves.
comparison_notices() {
    lavrel_check "the comparison notices a missing function" \
        noticed "$1" "ALTER EXTENSION lavrel DROP FUNCTION lavrel.label(integer); DROP FUNCTION lavrel.label(integer)"
    lavrel_check "the comparison notices a changed parallel marking" \
        noticed "$1" "ALTER FUNCTION lavrel.read_mediation(oid, integer) PARALLEL SAFE"
    lavrel_check "the comparison notices a changed setting of a function" \
        noticed "$1" "ALTER FUNCTION lavrel.sync_object_names() SET work_mem = '1MB'"
    lavrel_check "the comparison notices a missing description" \
        noticed "$1" "COMMENT ON FUNCTION lavrel.labels() IS NULL"
    lavrel_check "the comparison notices a missing key" \
        noticed "$1" "ALTER TABLE lavrel.lavrel_user DROP CONSTRAINT lavrel_user_pkey"
    lavrel_check "the comparison notices a grant" \
        noticed "$1" "GRANT SELECT ON lavrel.lavrel_policy TO PUBLIC"
}

# --- The fresh install, the reference ------------------------------------

lavrel_cluster_start yes
psql -X -q -f "$FIXTURES/roles.sql"
createdb fresh
psql -X -q -d fresh -c "CREATE EXTENSION lavrel" -f "$FIXTURES/data.sql"
record fresh fresh
lavrel_check "the fresh install of $CURRENT shows guards, rows of several labels and refusals" \
    fresh_views_hold
lavrel_cluster_stop

for entry in $VERSIONS; do
    old=${entry%%:*}
    lavrel_check "release $old builds from ${entry#*:} and installs beside PostgreSQL" \
        install_release "$old" "${entry#*:}"

    # --- The new library, then ALTER EXTENSION lavrel UPDATE -------------

    lavrel_cluster_start yes "" "$(old_bin "$old")"
    lavrel_check "lavrel $old loads the test's data" load_old "$old"
    lavrel_cluster_stop_server
    lavrel_cluster_start_server "$PG_BIN"
    lavrel_check "with the new library, $old's protected tables stay closed to zoe" \
        lavrel_as_user zoe lavrel_sql_fails "$(db "$old")" \
        'the extension lavrel in this database is older than its library' "SELECT count(*) FROM documents"
    lavrel_check "with the new library, apply_table_policy asks for the update first" \
        lavrel_sql_fails "$(db "$old")" 'the extension lavrel in this database is older than its library' \
        "CREATE TABLE t (x int); SELECT lavrel.apply_table_policy('company', 'public', 't')"
    psql -X -q -c "CREATE DATABASE duplicated TEMPLATE $(db "$old")"
    lavrel_check "ALTER EXTENSION lavrel UPDATE brings $old to $CURRENT" update "$(db "$old")"
    same_as_fresh "$(db "$old")" updated "updated from $old"
    comparison_notices "$(db "$old")"

    # A duplicated key in the older catalogs stops the update, which
    # leaves the database as it was.  Access control is off for this part:
    # with it on, the new library refuses every statement in a database
    # still at the older version but ALTER EXTENSION.
    lavrel_set_enable_mac off
    psql -X -q -d duplicated -c "INSERT INTO lavrel.lavrel_level
                                 SELECT * FROM lavrel.lavrel_level WHERE level_name = 'staff'"
    lavrel_check "the update of catalogs holding a key twice fails, naming the key" \
        lavrel_sql_fails duplicated 'could not create unique index "lavrel_level_pkey"' \
        "ALTER EXTENSION lavrel UPDATE"
    lavrel_check "and leaves the extension at $old" \
        lavrel_sql_is duplicated "$old" "SELECT extversion FROM pg_extension WHERE extname = 'lavrel'"
    psql -X -q -d duplicated -c "DELETE FROM lavrel.lavrel_level
                                  WHERE ctid = (SELECT max(ctid) FROM lavrel.lavrel_level)"
    lavrel_check "without the duplicate the update succeeds" update duplicated
    lavrel_set_enable_mac on
    lavrel_cluster_stop

    # --- pg_upgrade from the older release, then the update --------------

    lavrel_cluster_start yes "" "$(old_bin "$old")"
    load_old "$old"
    # As operations.md says: the names recorded right before the upgrade.
    psql -X -q -d "$(db "$old")" -c "SELECT lavrel.sync_object_names()" >/dev/null
    lavrel_cluster_stop_server
    lavrel_check "pg_upgrade from $old succeeds into a new cluster that preloads lavrel, access control off" \
        lavrel_pg_upgrade "shared_preload_libraries = 'lavrel'"
    lavrel_cluster_take_upgraded
    lavrel_check "pg_upgrade keeps the extension at $old" \
        lavrel_sql_is "$(db "$old")" "$old" "SELECT extversion FROM pg_extension WHERE extname = 'lavrel'"
    lavrel_check "pg_upgrade keeps the oids of the authorized roles" \
        lavrel_sql_is "$(db "$old")" 0 "SELECT count(*) FROM lavrel.lavrel_user u
                                         WHERE NOT EXISTS (SELECT FROM pg_roles r WHERE r.oid = u.user_oid)"
    lavrel_check "sync_object_names() moves the catalogs to the upgraded objects' oids" \
        lavrel_sql_is "$(db "$old")" t "SELECT lavrel.sync_object_names() > 0"
    lavrel_check "ALTER EXTENSION lavrel UPDATE brings the upgraded $old to $CURRENT" update "$(db "$old")"
    lavrel_set_enable_mac on
    same_as_fresh "$(db "$old")" upgraded "upgraded from $old and updated"
    lavrel_cluster_stop
done
exit "$LAVREL_CHECK_FAILED"

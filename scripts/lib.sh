# scripts/lib.sh: shared shell functions for building lavrel and running a
# throwaway PostgreSQL 15 cluster.  Sourced by test/run.sh, scripts/demo.sh
# and the benchmarks; never run on its own.
#
# The cluster runs as the `postgres` OS user (PostgreSQL refuses root), in
# a temporary directory, on a free localhost port; lavrel_cluster_stop (set
# as an EXIT trap by the callers) stops it and removes the directory.

PG_BIN=/usr/lib/postgresql/15/bin
PGXS_DIR=/usr/lib/postgresql/15/lib/pgxs
LAVREL_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# Debian packages the build and the tests need, and those named as
# arguments; installed when missing.
lavrel_install_packages() {
    local pkgs="postgresql-15 postgresql-server-dev-15 make g++ $*"
    local missing=""
    for p in $pkgs; do
        dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
    done
    [ -z "$missing" ] && return 0
    echo "installing:$missing"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
    apt-get install -y -qq $missing >/dev/null
}

# Build one PGXS module directory and install it unless the installed copy
# is already identical.  Each file is staged beside its destination and
# renamed into place, so a running server never sees a missing or half
# written library; a lock keeps concurrent test runs from building the same
# tree at once.
lavrel_build_install_dir() {
    local dir=$1 lib=$2
    (
        flock 9
        make -s -C "$dir" >/dev/null
        if lavrel_install_differs "$dir" "$lib"; then
            lavrel_install_staged "$dir"
        fi
    ) 9>/tmp/lavrel-build.lock
}

lavrel_install_staged() {
    local dir=$1 stage f dest
    stage=$(mktemp -d)
    make -s -C "$dir" install DESTDIR="$stage" >/dev/null
    (cd "$stage" && find . -type f) | while read -r f; do
        dest=/${f#./}
        mkdir -p "$(dirname "$dest")"
        cp "$stage/$f" "$dest.new"
        mv -f "$dest.new" "$dest"
    done
    rm -rf "$stage"
}

# Whether the built library, control file or install scripts of a module
# differ from the installed ones.
lavrel_install_differs() {
    local dir=$1 lib=$2 ext f
    ext=$("$PG_BIN/pg_config" --sharedir)/extension
    cmp -s "$dir/$lib.so" "$("$PG_BIN/pg_config" --pkglibdir)/$lib.so" || return 0
    for f in "$dir"/*.control "$dir"/*--*.sql "$dir"/sql/*--*.sql; do
        [ -e "$f" ] || continue
        cmp -s "$f" "$ext/$(basename "$f")" || return 0
    done
    return 1
}

# Build and install lavrel (and, with "test", the test-only module).  With
# LAVREL_INSTALLED=1 in the environment lavrel is taken as installed (from
# its Debian package, say) and left as it is.
lavrel_build_install() {
    [ "${LAVREL_INSTALLED:-}" = 1 ] || lavrel_build_install_dir "$LAVREL_ROOT" lavrel
    if [ "${1:-}" = test ]; then
        lavrel_build_install_dir "$LAVREL_ROOT/test/modules/lavrel_test" lavrel_test
    fi
}

# A localhost TCP port nobody listens on, found with bash alone.
lavrel_free_port() {
    local port
    while :; do
        port=$((20000 + RANDOM % 30000))
        if ! (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; then
            echo "$port"
            return
        fi
    done
}

# lavrel_cluster_start [preload] [dir] [bin]: initdb and start a cluster in
# DIR (by default a new temporary directory) with the PostgreSQL programs
# of directory BIN (by default $PG_BIN); exports PGHOST (the socket
# directory), PGPORT and PGUSER for clients.
# With preload "no", lavrel is not in shared_preload_libraries.
lavrel_cluster_start() {
    local preload=${1:-yes}
    LAVREL_CLUSTER_DIR=${2:-$(mktemp -d /tmp/lavrel-cluster.XXXXXX)}
    LAVREL_CLUSTER_BIN=${3:-$PG_BIN}
    mkdir -p "$LAVREL_CLUSTER_DIR"
    chmod 755 "$LAVREL_CLUSTER_DIR"
    chown postgres: "$LAVREL_CLUSTER_DIR"
    local data=$LAVREL_CLUSTER_DIR/data
    runuser -u postgres -- "$LAVREL_CLUSTER_BIN/initdb" -D "$data" -U postgres --auth=trust \
        --no-sync -E UTF8 --locale=C >"$LAVREL_CLUSTER_DIR/initdb.log" 2>&1
    PGPORT=$(lavrel_free_port)
    {
        echo "listen_addresses = 'localhost'"
        echo "port = $PGPORT"
        echo "unix_socket_directories = '$LAVREL_CLUSTER_DIR'"
        echo "fsync = off"
        echo "max_prepared_transactions = 10"
        if [ "$preload" = yes ]; then
            echo "shared_preload_libraries = 'lavrel'"
            echo "lavrel.enable_mac = on"
        fi
    } >>"$data/postgresql.conf"
    runuser -u postgres -- "$LAVREL_CLUSTER_BIN/pg_ctl" -D "$data" -l "$LAVREL_CLUSTER_DIR/server.log" \
        -w -t 60 start >/dev/null
    export PGHOST=$LAVREL_CLUSTER_DIR PGPORT PGUSER=postgres
}

# Restarts the cluster with lavrel no longer preloaded.
lavrel_cluster_restart_without_preload() {
    sed -i '/^shared_preload_libraries/d' "$LAVREL_CLUSTER_DIR/data/postgresql.conf"
    lavrel_cluster_restart
}

# Restarts the cluster with lavrel preloaded again.
lavrel_cluster_restart_with_preload() {
    echo "shared_preload_libraries = 'lavrel'" >>"$LAVREL_CLUSTER_DIR/data/postgresql.conf"
    lavrel_cluster_restart
}

lavrel_cluster_restart() {
    runuser -u postgres -- "$LAVREL_CLUSTER_BIN/pg_ctl" -D "$LAVREL_CLUSTER_DIR/data" \
        -l "$LAVREL_CLUSTER_DIR/server.log" -m fast -w -t 60 restart >/dev/null
}

# Stops the cluster's server and keeps its directory.
lavrel_cluster_stop_server() {
    runuser -u postgres -- "$LAVREL_CLUSTER_BIN/pg_ctl" -D "$LAVREL_CLUSTER_DIR/data" -m fast -w stop >/dev/null
}

# lavrel_pg_upgrade LINE...: pg_upgrade of the cluster, stopped, into a new
# cluster of the programs of $PG_BIN in $LAVREL_CLUSTER_DIR/new, made
# afresh, whose postgresql.conf gets the lines given.  pg_upgrade's output goes to
# $LAVREL_CLUSTER_DIR/upgrade.log, and what its failed checks found to
# files under the new cluster.
lavrel_pg_upgrade() {
    local new=$LAVREL_CLUSTER_DIR/new
    rm -rf "$new"
    runuser -u postgres -- "$PG_BIN/initdb" -D "$new" -U postgres --auth=trust \
        --no-sync -E UTF8 --locale=C >/dev/null
    [ $# -eq 0 ] || printf '%s\n' "$@" >>"$new/postgresql.conf"
    (cd "$LAVREL_CLUSTER_DIR" && runuser -u postgres -- "$PG_BIN/pg_upgrade" -b "$LAVREL_CLUSTER_BIN" -B "$PG_BIN" \
        -d "$LAVREL_CLUSTER_DIR/data" -D "$new" -p "$(lavrel_free_port)" -P "$(lavrel_free_port)" \
        -s "$LAVREL_CLUSTER_DIR") >"$LAVREL_CLUSTER_DIR/upgrade.log" 2>&1
}

# The cluster made by lavrel_pg_upgrade takes the old one's place (its
# directory, socket and port) and starts.
lavrel_cluster_take_upgraded() {
    rm -rf "$LAVREL_CLUSTER_DIR/data"
    mv "$LAVREL_CLUSTER_DIR/new" "$LAVREL_CLUSTER_DIR/data"
    {
        echo "listen_addresses = 'localhost'"
        echo "port = $PGPORT"
        echo "unix_socket_directories = '$LAVREL_CLUSTER_DIR'"
    } >>"$LAVREL_CLUSTER_DIR/data/postgresql.conf"
    lavrel_cluster_start_server "$PG_BIN"
}

# lavrel_cluster_start_server BIN: starts the cluster, stopped, with the
# PostgreSQL programs (and so the lavrel library) of directory BIN.
lavrel_cluster_start_server() {
    LAVREL_CLUSTER_BIN=$1
    runuser -u postgres -- "$LAVREL_CLUSTER_BIN/pg_ctl" -D "$LAVREL_CLUSTER_DIR/data" \
        -l "$LAVREL_CLUSTER_DIR/server.log" -w -t 60 start >/dev/null
}

lavrel_cluster_stop() {
    [ -n "${LAVREL_CLUSTER_DIR:-}" ] || return 0
    runuser -u postgres -- "$LAVREL_CLUSTER_BIN/pg_ctl" -D "$LAVREL_CLUSTER_DIR/data" -m fast -w stop >/dev/null 2>&1 || true
    rm -rf "$LAVREL_CLUSTER_DIR"
    LAVREL_CLUSTER_DIR=
}

# lavrel_check DESCRIPTION COMMAND...: for the suites that print TAP lines
# (test/dump_restore.sh, test/hot_standby.sh): runs the command and prints
# "ok N - DESCRIPTION", or "not ok N - DESCRIPTION" and what the command
# printed as "#" lines, and then sets LAVREL_CHECK_FAILED to 1.
LAVREL_CHECKS=0
LAVREL_CHECK_FAILED=0
lavrel_check() {
    local description=$1 output
    shift
    LAVREL_CHECKS=$((LAVREL_CHECKS + 1))
    if output=$("$@" 2>&1); then
        echo "ok $LAVREL_CHECKS - $description"
    else
        echo "not ok $LAVREL_CHECKS - $description"
        printf '%s\n' "$output" | sed 's/^/# /'
        LAVREL_CHECK_FAILED=1
    fi
}

# Helpers of the suites that check a running cluster with psql.

# lavrel_sql_is DB EXPECTED QUERY: the query's only value is EXPECTED.
lavrel_sql_is() {
    local got
    got=$(psql -X -At -v ON_ERROR_STOP=1 -d "$1" -c "$3")
    [ "$got" = "$2" ] || { echo "expected \"$2\", got \"$got\""; return 1; }
}

# lavrel_sql_fails DB MESSAGE QUERY: the query fails with an error that says MESSAGE.
lavrel_sql_fails() {
    local output
    if output=$(psql -X -q -v ON_ERROR_STOP=1 -d "$1" -c "$3" 2>&1); then
        echo "the query did not fail: $output"
        return 1
    fi
    grep -qF "$2" <<<"$output" || { echo "$output"; return 1; }
}

# lavrel_set_enable_mac on|off: sets lavrel.enable_mac for the cluster and waits
# until new sessions see it.
lavrel_set_enable_mac() {
    local tries=0
    psql -X -q -c "ALTER SYSTEM SET lavrel.enable_mac = $1" -c "SELECT pg_reload_conf()" >/dev/null
    until [ "$(psql -X -At -c 'SHOW lavrel.enable_mac')" = "$1" ]; do
        tries=$((tries + 1))
        [ "$tries" -lt 100 ] || { echo "lavrel.enable_mac did not become $1" >&2; return 1; }
        sleep 0.1
    done
}

# lavrel_as_user USER COMMAND...: runs the command with psql connecting as USER.
lavrel_as_user() {
    local user=$1
    shift
    PGUSER=$user "$@"
}

# lavrel_record_views DB OUT USER...: what the administrator and each user
# see in DB through the queries of test/dump_restore (catalog.sql and
# user.sql), into OUT.catalog and OUT.<user>.
lavrel_record_views() {
    local db=$1 out=$2 user
    shift 2
    psql -X -d "$db" -f "$LAVREL_ROOT/test/dump_restore/catalog.sql" >"$out.catalog" 2>&1
    for user in "$@"; do
        psql -X -d "$db" -U "$user" -f "$LAVREL_ROOT/test/dump_restore/user.sql" >"$out.$user" 2>&1
    done
}

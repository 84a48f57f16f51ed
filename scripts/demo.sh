#!/usr/bin/env bash
# scripts/demo.sh: the worked example of lavrel on this machine, as root.
#
#   scripts/demo.sh        installs the Debian packages it needs, builds and
#                          installs lavrel, starts PostgreSQL 15 with lavrel
#                          preloaded and enabled (data in /var/tmp/lavrel-demo),
#                          loads scripts/demo.sql into database "demo", shows
#                          what each user sees, and leaves the server running
#   scripts/demo.sh stop   stops that server and removes its directory
set -euo pipefail
. "$(dirname "$0")/lib.sh"

DEMO_DIR=/var/tmp/lavrel-demo
DEMO_USERS="alice bob carol dave erin frank"

demo_port() {
    sed -n 's/^port = //p' "$DEMO_DIR/data/postgresql.conf"
}

demo_running() {
    runuser -u postgres -- "$PG_BIN/pg_ctl" -D "$DEMO_DIR/data" status >/dev/null 2>&1
}

demo_explore() {
    echo "Explore it:  psql -h localhost -p $(demo_port) -U alice demo"
    echo "             (users ${DEMO_USERS// /, }; postgres is the administrator)"
    echo "Remove it:   scripts/demo.sh stop"
}

# Every user's facts from scripts/demo_user.sql, printed side by side.
demo_show() {
    local user
    for user in $DEMO_USERS; do
        psql -X -q -At -F'|' -d demo -U "$user" -f "$LAVREL_ROOT/scripts/demo_user.sql" |
            sed "s/^/$user|/"
    done | psql -X -q -d demo -f "$LAVREL_ROOT/scripts/demo_show.sql"
}

demo_start() {
    if [ -d "$DEMO_DIR" ]; then
        if demo_running; then
            echo "The lavrel demo is already running on localhost:$(demo_port) (data in $DEMO_DIR)."
        else
            runuser -u postgres -- "$PG_BIN/pg_ctl" -D "$DEMO_DIR/data" \
                -l "$DEMO_DIR/server.log" -w -t 60 start >/dev/null
            echo "Started the lavrel demo again on localhost:$(demo_port) (data in $DEMO_DIR)."
        fi
        demo_explore
        return
    fi
    lavrel_install_packages
    lavrel_build_install
    # A demo that fails half way is removed, so that the next run starts afresh.
    trap lavrel_cluster_stop EXIT
    lavrel_cluster_start yes "$DEMO_DIR"
    createdb demo
    psql -X -q -d demo -f "$LAVREL_ROOT/scripts/demo.sql"
    echo "PostgreSQL 15 runs on localhost:$PGPORT with lavrel preloaded and lavrel.enable_mac = on"
    echo "(data in $DEMO_DIR); database \"demo\" holds the worked example, scripts/demo.sql."
    demo_show
    trap - EXIT
    demo_explore
}

demo_stop() {
    if [ ! -d "$DEMO_DIR" ]; then
        echo "No lavrel demo to stop (no $DEMO_DIR)."
        return
    fi
    LAVREL_CLUSTER_DIR=$DEMO_DIR
    lavrel_cluster_stop
    echo "Stopped the lavrel demo and removed $DEMO_DIR."
}

if [ "$(id -u)" -ne 0 ]; then
    echo "scripts/demo.sh: run it as root: it installs packages and runs PostgreSQL as user postgres" >&2
    exit 1
fi
case "${1:-start}" in
    start) demo_start ;;
    stop) demo_stop ;;
    *) echo "usage: scripts/demo.sh [start | stop]" >&2; exit 2 ;;
esac

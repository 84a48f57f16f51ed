#!/usr/bin/env bash
# test/hot_standby.sh: starts a primary with lavrel, a hot standby of it
# (pg_basebackup -R), and checks that on the standby every administrative
# function is refused up front as a write in a read-only transaction
# (25006), while queries, label conversions and session labels work as on
# the primary, and that a session open on the standby works with an
# authorization changed on the primary from its next statement on.  Then
# recovers a base backup of the primary to a point in time between two
# changes of an authorization, from the primary's WAL archive, and checks
# that the recovered server mediates with the authorization of that point.
#
# Prints one "ok N - ..." or "not ok N - ..." line per check (with what
# went wrong as "#" lines) and exits non-zero when a check failed.  Run by
# test/run.sh, which builds and installs lavrel first; needs root.
set -euo pipefail
. "$(dirname "$0")/../scripts/lib.sh"
cd "$LAVREL_ROOT/test"


# server_stop DIR: stops the server of data directory DIR, if any.
server_stop() {
    [ -n "${1:-}" ] || return 0
    runuser -u postgres -- "$PG_BIN/pg_ctl" -D "$1" -m fast -w stop >/dev/null 2>&1 || true
}
trap 'server_stop "${STANDBY_DIR:-}"; server_stop "${PITR_DIR:-}"; lavrel_cluster_stop' EXIT

# on PORT [psql options...]: psql on the server at PORT, unaligned, no headers.
on() {
    local port=$1
    shift
    psql -X -At -v ON_ERROR_STOP=1 -p "$port" -d standby_test "$@"
}

# same_answer QUERY [psql options...]: the query answers alike on both servers.
same_answer() {
    local query=$1 primary standby
    shift
    primary=$(on "$PGPORT" "$@" -c "$query")
    standby=$(on "$STANDBY_PORT" "$@" -c "$query")
    [ "$primary" = "$standby" ] || { echo "primary: $primary"; echo "standby: $standby"; return 1; }
    [ -n "$primary" ] || { echo "no answer"; return 1; }
}

# no_rows PORT QUERY: the query returns nothing; what it returns is shown.
no_rows() {
    local got
    got=$(on "$1" -c "$2")
    [ -z "$got" ] || { echo "$got"; return 1; }
}

lavrel_cluster_start yes
# The primary archives its WAL, for the point-in-time recovery.
ARCHIVE=$LAVREL_CLUSTER_DIR/archive
mkdir "$ARCHIVE"
chown postgres: "$ARCHIVE"
psql -X -q -d postgres -c "ALTER SYSTEM SET archive_mode = on" \
    -c "ALTER SYSTEM SET archive_command = 'cp %p $ARCHIVE/%f'" >/dev/null
lavrel_cluster_restart
createdb standby_test
on "$PGPORT" -q <<'EOF' >/dev/null
\i sql/include/try_stmt.sql
CREATE EXTENSION lavrel;
SELECT lavrel.create_policy('p', 'p_col');
SELECT lavrel.create_level('p', name, id), lavrel.create_label('p', name, id)
  FROM (VALUES ('low', 10), ('high', 30)) AS v(name, id);
SELECT lavrel.set_user_labels('p', 'postgres', 'high');
SELECT lavrel.set_user_privs('p', 'postgres', 'FULL');
CREATE ROLE regress_standby_user LOGIN;
SELECT lavrel.set_user_labels('p', 'regress_standby_user', 'low');
CREATE TABLE docs (id int, title text);
SELECT lavrel.apply_table_policy('p', 'public', 'docs');
INSERT INTO docs VALUES (1, 'low', 10), (2, 'high', 30);
GRANT SELECT ON docs TO regress_standby_user;
CREATE TABLE calls (call text);
INSERT INTO calls VALUES
    ($$create_policy('q', 'q_col')$$), ($$drop_policy('p')$$),
    ($$enable_policy('p')$$), ($$disable_policy('p')$$),
    ($$create_level('p', 'mid', 20)$$), ($$drop_level('p', 30)$$),
    ($$drop_level('p', 'high')$$), ($$create_compartment('p', 'a', 1)$$),
    ($$drop_compartment('p', 1)$$), ($$drop_compartment('p', 'a')$$),
    ($$create_label('p', 'low:', 11)$$), ($$alter_label('p', 30, 'low')$$),
    ($$alter_label('p', 'high', 'low')$$), ($$drop_label('p', 30)$$),
    ($$drop_label('p', 'high')$$),
    ($$apply_table_policy('p', 'public', 'calls')$$),
    ($$remove_table_policy('p', 'public', 'docs')$$),
    ($$apply_object_policy('p', 'view', 'public', 'v', 'low')$$),
    ($$drop_object_policy('p', 'view', 'public', 'v')$$),
    ($$set_user_labels('p', 'regress_standby_user', 'high')$$),
    ($$set_levels('p', 'regress_standby_user', 'high')$$),
    ($$set_compartments('p', 'regress_standby_user', 'a')$$),
    ($$set_default_label('p', 'regress_standby_user', 'low')$$),
    ($$set_row_label('p', 'regress_standby_user', 'low')$$),
    ($$set_user_privs('p', 'regress_standby_user', 'READ')$$),
    ($$drop_user_access('p', 'regress_standby_user')$$),
    ($$sync_object_names()$$);
EOF

# The standby: a base backup of the primary, beside it, on a port of its own.
STANDBY_DIR=$LAVREL_CLUSTER_DIR/standby
STANDBY_PORT=$(lavrel_free_port)
runuser -u postgres -- "$PG_BIN/pg_basebackup" -h "$PGHOST" -p "$PGPORT" -U postgres \
    -D "$STANDBY_DIR" -R -X stream -c fast
echo "port = $STANDBY_PORT" >>"$STANDBY_DIR/postgresql.conf"
# A base backup for the point-in-time recovery, taken at the same point.
PITR_BACKUP=$LAVREL_CLUSTER_DIR/pitr_backup
runuser -u postgres -- "$PG_BIN/pg_basebackup" -h "$PGHOST" -p "$PGPORT" -U postgres \
    -D "$PITR_BACKUP" -X stream -c fast
runuser -u postgres -- "$PG_BIN/pg_ctl" -D "$STANDBY_DIR" -l "$LAVREL_CLUSTER_DIR/standby.log" \
    -w -t 60 start >/dev/null

lavrel_check "the standby is in recovery, and its transactions are read-only" \
    no_rows "$STANDBY_PORT" "SELECT 'not in recovery' WHERE NOT pg_is_in_recovery()
                             UNION ALL SELECT 'read-write' WHERE NOT current_setting('transaction_read_only')::boolean"

# A call whose outcome is not the read-only refusal naming its function is
# shown.
lavrel_check "every administrative function is refused with 25006, naming itself" \
    no_rows "$STANDBY_PORT" "
        SELECT call, outcome FROM (SELECT call, try_stmt('SELECT lavrel.' || call) FROM calls) c(call, outcome)
         WHERE outcome IS DISTINCT FROM
               format('25006: cannot execute %s() in a read-only transaction', split_part(call, '(', 1))
        UNION ALL
        SELECT 'only ' || count(*) || ' calls', '' FROM calls HAVING count(*) <> 27"

lavrel_check "a user reads the same rows of a protected table as on the primary" \
    same_answer "SELECT id, title, p_col FROM docs ORDER BY id" -U regress_standby_user
lavrel_check "the administrator, with FULL, reads every row as on the primary" \
    same_answer "SELECT id, title, p_col FROM docs ORDER BY id"
lavrel_check "label conversions answer as on the primary" \
    same_answer "SELECT lavrel.char_to_label('p', 'high'), lavrel.label_to_char(10)"
lavrel_check "the session label functions work on the standby" \
    same_answer "SELECT lavrel.set_session_label('p', 'low');
                 SELECT read_label FROM lavrel.show_session_labels();
                 SELECT id FROM docs ORDER BY id"
lavrel_check "a user's my_labels() answers as on the primary" \
    same_answer "SELECT * FROM lavrel.my_labels()" -U regress_standby_user

# A session of the user on the standby that stays open while the primary
# changes his authorization.
# Bash closes a coprocess's own descriptors in subshells, which run the
# checks: the session is reached through copies of them, 7 and 8.
coproc STANDBY_SESSION {
    stdbuf -oL psql -X -At -q -p "$STANDBY_PORT" -d standby_test -U regress_standby_user 2>&1
}
exec 7>&"${STANDBY_SESSION[1]}" 8<&"${STANDBY_SESSION[0]}"

# in_session STATEMENT: runs the statement in that session and prints what
# it printed.
in_session() {
    local line
    printf '%s;\n\\echo __end__\n' "$1" >&7
    while IFS= read -r line <&8; do
        [ "$line" = __end__ ] && return 0
        printf '%s\n' "$line"
    done
    return 1
}

# Waits until the standby has replayed all the primary has written so far
# (at most a minute: a standby that falls that far behind fails the check).
wait_for_replay() {
    local lsn tries=0
    lsn=$(on "$PGPORT" -c "SELECT pg_current_wal_lsn()")
    until [ "$(on "$STANDBY_PORT" -c "SELECT pg_last_wal_replay_lsn() >= '$lsn'")" = t ]; do
        tries=$((tries + 1))
        [ "$tries" -lt 600 ] || { echo "the standby did not replay up to $lsn"; return 1; }
        sleep 0.1
    done
}

# change_and_read STATEMENT: runs the administrative statement on the
# primary, waits for the standby to replay it, and prints what the open
# session then reads: its backend's pid and the ids of the rows.
change_and_read() {
    on "$PGPORT" -q -c "$1" >/dev/null
    wait_for_replay || return 1
    in_session "SELECT pg_backend_pid() || ':' || coalesce(string_agg(id::text, ',' ORDER BY id), '') FROM docs"
}

# The open session reads row 1 (low); once the user reads high it reads
# rows 1 and 2 at its next statement, and nothing once his authorization is
# gone, all in the same backend.
authorization_change_reaches_open_session() {
    local before widened dropped
    before=$(in_session "SELECT pg_backend_pid() || ':' || string_agg(id::text, ',' ORDER BY id) FROM docs")
    widened=$(change_and_read "SELECT lavrel.set_user_labels('p', 'regress_standby_user', 'high',
                                                             min_write_label => 'high',
                                                             def_label => 'high')")
    dropped=$(change_and_read "SELECT lavrel.drop_user_access('p', 'regress_standby_user')")
    [ "${before#*:}" = 1 ] && [ "${widened#*:}" = 1,2 ] && [ "${dropped#*:}" = "" ] &&
        [ "${before%%:*}" = "${widened%%:*}" ] && [ "${before%%:*}" = "${dropped%%:*}" ] ||
        { echo "before: $before"; echo "widened: $widened"; echo "dropped: $dropped"; return 1; }
}
lavrel_check "a session open on the standby reads with an authorization changed on the primary at its next statement" \
    authorization_change_reaches_open_session

# --- Point-in-time recovery ------------------------------------------------

# wait_for TRIES PORT QUERY: QUERY answers t on the server at PORT within
# TRIES tenths of a second.
wait_for() {
    local tries=0
    until [ "$(psql -X -At -p "$2" -d standby_test -c "$3" 2>/dev/null)" = t ]; do
        tries=$((tries + 1))
        [ "$tries" -lt "$1" ] || { echo "no answer t to: $3"; return 1; }
        sleep 0.1
    done
}

# The user reads both rows, a restore point is made, his authorization is
# dropped, and the WAL is archived up to there.
on "$PGPORT" -q >/dev/null <<'EOF'
SELECT lavrel.set_user_labels('p', 'regress_standby_user', 'high',
                              min_write_label => 'high', def_label => 'high');
SELECT pg_create_restore_point('reads_high');
SELECT lavrel.drop_user_access('p', 'regress_standby_user');
SELECT pg_switch_wal();
EOF
ARCHIVED=$(on "$PGPORT" -c "SELECT pg_walfile_name(pg_current_wal_lsn() - 1)")

# The base backup, recovered from the archive to the restore point, then
# promoted; it archives nothing itself.  (Set here: the checks run in
# subshells, and the exit trap stops the server of $PITR_DIR.)
PITR_DIR=$PITR_BACKUP
PITR_PORT=$(lavrel_free_port)
recover_to_restore_point() {
    wait_for 600 "$PGPORT" "SELECT last_archived_wal >= '$ARCHIVED' FROM pg_stat_archiver" || return 1
    sed -i '/^archive_/d' "$PITR_DIR/postgresql.auto.conf"
    {
        echo "port = $PITR_PORT"
        echo "restore_command = 'cp $ARCHIVE/%f %p'"
        echo "recovery_target_name = 'reads_high'"
        echo "recovery_target_action = 'promote'"
    } >>"$PITR_DIR/postgresql.conf"
    runuser -u postgres -- touch "$PITR_DIR/recovery.signal"
    runuser -u postgres -- "$PG_BIN/pg_ctl" -D "$PITR_DIR" -l "$LAVREL_CLUSTER_DIR/pitr.log" \
        -w -t 60 start >/dev/null
    wait_for 600 "$PITR_PORT" "SELECT NOT pg_is_in_recovery()"
}
lavrel_check "a base backup recovers from the WAL archive to a restore point" recover_to_restore_point

# reads PORT ROWS: the user reads ROWS (ids, comma-separated) on the server at PORT.
reads() {
    local got
    got=$(on "$1" -U regress_standby_user -c "SELECT string_agg(id::text, ',' ORDER BY id) FROM docs")
    [ "$got" = "$2" ] || { echo "expected \"$2\", got \"$got\""; return 1; }
}
lavrel_check "the recovered server mediates with the authorization of the restore point" \
    reads "$PITR_PORT" 1,2
lavrel_check "while the primary mediates with the authorization dropped after it" \
    reads "$PGPORT" ""
exit "$LAVREL_CHECK_FAILED"

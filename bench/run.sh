#!/usr/bin/env bash
# bench/run.sh: the lavrel benchmark.
#
# Sets up a throwaway PostgreSQL 15 cluster with lavrel preloaded and
# enabled (bench/setup.sql, bench/sync_setup.sql and pgbench's tables) and
# one without lavrel (pgbench's tables), runs every scenario against its
# baseline side by side, and prints one table:
# scenario, baseline, lavrel, ratio (lavrel / baseline), target, pass or
# fail.  The table is also written to bench/results/latest.txt, and a chart
# of the ratios to bench/results/latest.png.
#
#   bench/run.sh            the full benchmark
#   bench/run.sh --quick    a table of 100,000 rows and short runs, results
#                           in /tmp/lavrel-bench-quick (for development)
#
# Each SQL scenario is a pair of pgbench scripts in bench/sql; the statement
# timed is the last SQL statement of a script (those before it prepare its
# table).  A figure is the median, over $ROUNDS rounds in which the sides
# take turns, of that statement's mean latency in one pgbench run of
# $RUN_SECONDS seconds.
set -euo pipefail
. "$(dirname "$0")/../scripts/lib.sh"
BENCH=$LAVREL_ROOT/bench

case "${1:-}" in
    "")
        ROWS=1000000 BATCH=100000 PGBENCH_SCALE=10
        ROUNDS=9 RUN_SECONDS=3 TPS_SECONDS=5
        RESULTS=$BENCH/results ;;
    --quick)
        ROWS=100000 BATCH=10000 PGBENCH_SCALE=1
        ROUNDS=3 RUN_SECONDS=1 TPS_SECONDS=2
        RESULTS=/tmp/lavrel-bench-quick ;;
    *)
        echo "usage: $0 [--quick]" >&2
        exit 2 ;;
esac
SYNC_LABELS="100 1000 10000"

declare -A LATENCY=()
PGBENCH_VARS=()
ROWS_FILE=""
BUILD=""
PLAIN_HOST=""
PLAIN_PORT=""

# What is measured: the checkout, and the checksum of the installed library
# that lavrel's cluster preloaded when it started (and keeps until it stops).
build_id() {
    echo "$(git -C "$LAVREL_ROOT" describe --always --dirty 2>/dev/null || echo "not a git checkout")," \
         "library md5 $(md5sum "$("$PG_BIN/pg_config" --pkglibdir)/lavrel.so" | cut -c 1-12)"
}

install_gnuplot() {
    command -v gnuplot >/dev/null && return 0
    echo "installing: gnuplot-nox"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
    apt-get install -y -qq gnuplot-nox >/dev/null
}

bench_psql() {
    psql -X -q -v ON_ERROR_STOP=1 "$@"
}

# Each run starts from a checkpoint (checkpoint_before), so that no run pays
# for the writes of the one before it (the checkpointer's, and full-page
# images after it); max_wal_size is large enough that no checkpoint starts
# within a run.
tune_cluster() {
    bench_psql -At -d postgres -c "ALTER SYSTEM SET max_wal_size = '4GB'" \
               -c "SELECT pg_reload_conf()" >/dev/null
}

checkpoint_before() {
    bench_psql -d "$1" -c CHECKPOINT
}

# lavrel's cluster, and beside it one that does not load lavrel, for
# pgbench's baseline; PLAIN_HOST and PLAIN_PORT name the latter.
start_clusters() {
    lavrel_cluster_start no
    tune_cluster
    PLAIN_HOST=$LAVREL_CLUSTER_DIR PLAIN_PORT=$PGPORT
    lavrel_cluster_start yes
    tune_cluster
}

stop_clusters() {
    lavrel_cluster_stop
    LAVREL_CLUSTER_DIR=$PLAIN_HOST
    lavrel_cluster_stop
}

# pgbench's tables, in the database "bench" of the cluster PGHOST names.
load_pgbench_tables() {
    createdb bench
    "$PG_BIN/pgbench" -i -q -s "$PGBENCH_SCALE" bench 2>/dev/null
}

load_plain_cluster() {
    load_pgbench_tables
    bench_psql -d bench -c "CREATE ROLE reader LOGIN" \
               -c "GRANT SELECT, INSERT, UPDATE ON ALL TABLES IN SCHEMA public TO reader"
}

# lavrel's cluster: pgbench's tables and bench/setup.sql in the database
# "bench", and one database per size of the synchronisation scenario.
load_lavrel_cluster() {
    local dir=$LAVREL_CLUSTER_DIR n readable
    load_pgbench_tables
    bench_psql -d bench -v rows="$ROWS" -v batch="$BATCH" -v dir="$dir" -f "$BENCH/setup.sql"
    for n in $SYNC_LABELS; do
        createdb "sync_$n"
        bench_psql -d "sync_$n" -v labels="$n" -f "$BENCH/sync_setup.sql"
    done
    readable=$(bench_psql -At -d bench -c "SELECT string_agg(id::text, ',' ORDER BY id) FROM readable")
    PGBENCH_VARS=(readable="'{$readable}'" batch="$BATCH" accounts=$((PGBENCH_SCALE * 100000))
                  ids_file="'$dir/rows_ids.txt'" labels_file="'$dir/rows_labels.txt'")
}

# run_pgbench <arguments>: pgbench's report; when pgbench fails, the report
# goes to stderr and the benchmark stops.
run_pgbench() {
    local out
    if ! out=$("$PG_BIN/pgbench" "$@" 2>&1); then
        echo "$out" >&2
        return 1
    fi
    echo "$out"
}

# script_run <db> <user> <script> <pgbench options>...: the report of one
# pgbench run of bench/sql/<script>.sql for $RUN_SECONDS seconds.
script_run() {
    local db=$1 user=$2 script=$3 vars=() v
    shift 3
    for v in "${PGBENCH_VARS[@]}"; do
        vars+=(-D "$v")
    done
    checkpoint_before "$db"
    run_pgbench -n -T "$RUN_SECONDS" -U "$user" "${vars[@]}" "$@" -f "$BENCH/sql/$script.sql" "$db"
}

# statement_latency <db> <user> <script>: mean latency (ms) of the last
# statement of the script.
statement_latency() {
    script_run "$@" -r | awk '/^statement latencies/ { on = 1; next } on { last = $1 } END { print last }'
}

# transaction_latency <db> <user> <script>: mean latency (ms) of the whole
# script, from the rate of transactions, which pgbench prints with more
# digits than latencies (one microsecond is 7% of a SELECT 1).
transaction_latency() {
    script_run "$@" | awk '/^tps = / { print 1000 / $3 }'
}

median() {
    printf '%s\n' "$@" | sort -g |
        awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}

# measure <statement_latency|transaction_latency> <db> <user:script>...:
# the median latency of each side over $ROUNDS rounds, the sides taking
# turns; kept in LATENCY[<user:script>].
measure() {
    local how=$1 db=$2 side r
    shift 2
    local -A runs=()
    for ((r = 0; r < ROUNDS; r++)); do
        for side in "$@"; do
            runs[$side]+=" $("$how" "$db" "${side%%:*}" "${side#*:}")"
        done
    done
    for side in "$@"; do
        # shellcheck disable=SC2086
        LATENCY[$side]=$(median ${runs[$side]})
    done
}

# same_answer <db> <user:script>...: stops the benchmark unless every side
# prints the same (results and command tags), run once through psql.
same_answer() {
    local db=$1 side first="" out vars=() v
    shift
    for v in "${PGBENCH_VARS[@]}"; do
        vars+=(-v "$v")
    done
    for side in "$@"; do
        out=$(psql -X -At -v ON_ERROR_STOP=1 "${vars[@]}" -U "${side%%:*}" -d "$db" \
                   -f "$BENCH/sql/${side#*:}.sql" 2>&1)
        if [ -z "$first" ]; then
            first=$out
        elif [ "$out" != "$first" ]; then
            printf 'different answers in %s:\n%s\n---\n%s\n' "$*" "$first" "$out" >&2
            return 1
        fi
    done
}

# add_row <scenario> <unit> <baseline> <lavrel> <target> <condition>: one
# line of the table; <condition> is an awk expression of b (baseline), l
# (lavrel) and r (ratio) that holds when the target is met.
add_row() {
    awk -v name="$1" -v unit="$2" -v b="$3" -v l="$4" -v target="$5" '
        function fmt(v) { return v >= 100 ? sprintf("%.0f", v) : v >= 1 ? sprintf("%.2f", v) : sprintf("%.3g", v) }
        BEGIN { r = l / b
                printf "%s\t%s %s\t%s %s\t%s\t%s\t%s\n", name, fmt(b), unit, fmt(l), unit, fmt(r), target,
                       ('"$6"') ? "pass" : "fail" }' >>"$ROWS_FILE"
    tail -n 1 "$ROWS_FILE" | cut -f 1,4,6 | tr '\t' ' ' | sed 's/^/  /'
}

# compare <scenario> <user:script> <user:script> <target> <condition>: a
# baseline and lavrel's side in the bench database, checked for the same
# answer, then timed.
compare() {
    local name=$1 baseline=$2 lavrel=$3
    same_answer bench "$baseline" "$lavrel"
    measure statement_latency bench "$baseline" "$lavrel"
    add_row "$name" ms "${LATENCY[$baseline]}" "${LATENCY[$lavrel]}" "$4" "$5"
}

# Whether the reader's query over the label range reads the label index.
range_uses_index() {
    local plan
    plan=$(psql -X -At -v ON_ERROR_STOP=1 -U reader -d bench -c "EXPLAIN $(cat "$BENCH/sql/range_lavrel.sql")")
    if grep -q 'Index.* on protected_label_idx' <<<"$plan"; then
        echo 1
    else
        echo 0
    fi
}

# The full scan against three baselines: the plain predicate, a simple
# row-level security policy, and the fastest one (rls_fast); then the same
# scans with up to two parallel workers (turned on for those connections
# alone): lavrel's speed-up (serial / parallel latency) against the plain
# predicate's.
scan_scenarios() {
    local index plain lavrel
    same_answer bench outsider:full_plain reader:full_lavrel outsider:full_rls outsider:full_rls_fast
    measure statement_latency bench outsider:full_plain reader:full_lavrel outsider:full_rls \
            outsider:full_rls_fast
    add_row "full scan vs plain predicate" ms "${LATENCY[outsider:full_plain]}" \
            "${LATENCY[reader:full_lavrel]}" "<= 1.05" 'r <= 1.05'
    add_row "full scan vs row-level security" ms "${LATENCY[outsider:full_rls]}" \
            "${LATENCY[reader:full_lavrel]}" "< 1.00" 'r < 1'
    add_row "full scan vs fastest row-level security" ms "${LATENCY[outsider:full_rls_fast]}" \
            "${LATENCY[reader:full_lavrel]}" "<= 1.00" 'r <= 1'
    plain=${LATENCY[outsider:full_plain]} lavrel=${LATENCY[reader:full_lavrel]}
    PGOPTIONS="-c max_parallel_workers_per_gather=2" \
        measure statement_latency bench outsider:full_plain reader:full_lavrel
    add_row "parallel speed-up, 2 workers, vs plain" x \
            "$(speedup "$plain" "${LATENCY[outsider:full_plain]}")" \
            "$(speedup "$lavrel" "${LATENCY[reader:full_lavrel]}")" ">= 0.90" 'r >= 0.9'
    index=$(range_uses_index)
    same_answer bench outsider:range_plain reader:range_lavrel outsider:range_rls_fast
    measure statement_latency bench outsider:range_plain reader:range_lavrel outsider:range_rls_fast
    add_row "label range, index, vs plain predicate" ms "${LATENCY[outsider:range_plain]}" \
            "${LATENCY[reader:range_lavrel]}" "index used; <= 2.00" "r <= 2 && $index"
    add_row "label range, index, vs fastest policy" ms "${LATENCY[outsider:range_rls_fast]}" \
            "${LATENCY[reader:range_lavrel]}" "index used; <= 1.10" "r <= 1.1 && $index"
}

# speedup <serial latency> <parallel latency>: how many times faster the
# parallel run was.
speedup() {
    awk -v s="$1" -v p="$2" 'BEGIN { print s / p }'
}

write_scenarios() {
    compare "INSERT $BATCH rows, default label" outsider:insert_plain reader:insert_lavrel \
            "<= 1.30" 'r <= 1.3'
    compare "UPDATE $BATCH rows" outsider:update_plain reader:update_lavrel "<= 1.50" 'r <= 1.5'
    compare "COPY TO, readable rows" outsider:copy_to_plain reader:copy_to_lavrel "<= 1.10" 'r <= 1.1'
    # Rows of every label: the administrator loads them, with FULL.
    compare "COPY FROM $ROWS rows, label strings" outsider:copy_from_plain postgres:copy_from_lavrel \
            "<= 2.00" 'r <= 2'
}

# SELECT 1 by the administrator, authorized for every label of the policy,
# right after he changed the policy's labels, then with nothing changed;
# the baseline is SELECT 1 by outsider, who is authorized for nothing.
#
# The cost of a synchronisation is the difference of the two latencies.
# Growing at most linearly, ten times the labels cost at most ten times as
# much; the check allows 25% more for noise and cache effects (a quadratic
# cost grows a hundredfold).
#
# With nothing changed, SELECT 1 is timed over whole runs
# (transaction_latency), so the first statement of each run, which
# synchronises a new session, counts too: one synchronisation in
# $RUN_SECONDS seconds of statements.
sync_scenarios() {
    local n b l target condition previous_n="" previous_cost=""
    for n in $SYNC_LABELS; do
        measure statement_latency "sync_$n" outsider:select_one postgres:sync_change
        b=${LATENCY[outsider:select_one]} l=${LATENCY[postgres:sync_change]}
        target="lavrel - baseline <= 50 ms" condition='l - b <= 50'
        if [ -n "$previous_n" ]; then
            target+=", <= 12.5 x that at $previous_n"
            condition+=" && l - b <= 12.5 * $previous_cost"
        fi
        add_row "sync after a change, $n labels" ms "$b" "$l" "$target" "$condition"
        previous_n=$n
        previous_cost=$(awk -v b="$b" -v l="$l" 'BEGIN { print l - b }')
    done
    measure transaction_latency "sync_$n" outsider:select_one postgres:select_one
    add_row "statement, nothing changed, $n labels" ms "${LATENCY[outsider:select_one]}" \
            "${LATENCY[postgres:select_one]}" "<= 1.05" 'r <= 1.05'
    measure connection_latency "sync_$n" outsider:select_one postgres:select_one
    add_row "first statement of a connection, $n labels" ms "${LATENCY[outsider:select_one]}" \
            "${LATENCY[postgres:select_one]}" "lavrel - baseline <= 1.5 ms" 'l - b <= 1.5'
}

# connection_latency <db> <user> <script>: mean latency (ms) of a new
# connection running the script once.
connection_latency() {
    script_run "$@" -C | awk '/^tps = / { print 1000 / $3 }'
}

tps() {
    checkpoint_before bench
    run_pgbench -n -b "$1" -c 2 -j 2 -T "$TPS_SECONDS" -U reader bench |
        awk '/^tps = / { print $3 }'
}

# script_tps <script> [pgbench options]: transactions per second of two
# clients of the reader running bench/sql/<script>.sql as prepared
# statements.
script_tps() {
    local script=$1 vars=() v
    shift
    for v in "${PGBENCH_VARS[@]}"; do
        vars+=(-D "$v")
    done
    checkpoint_before bench
    run_pgbench -n -M prepared -c 2 -j 2 -T "$TPS_SECONDS" -U reader "${vars[@]}" "$@" \
                -f "$BENCH/sql/$script.sql" bench | awk '/^tps = / { print $3 }'
}

# churned_tps <script>: script_tps while the administrator changes an
# authorization every 50 ms, from a connection of his own.
churned_tps() {
    local churn tps
    "$PG_BIN/pgbench" -n -c 1 -T $((TPS_SECONDS + 2)) -f "$BENCH/sql/churn.sql" bench >/dev/null 2>&1 &
    churn=$!
    sleep 1
    tps=$(script_tps "$1")
    wait "$churn"
    echo "$tps"
}

# Prepared statements on pgbench_accounts' rows, unprotected and
# protected (the reader reads and writes every row), and the protected
# select again while the administrator works.
prepared_scenarios() {
    local r kind
    local -A runs=()
    for ((r = 0; r < ROUNDS; r++)); do
        for kind in select update; do
            runs[$kind:plain]+=" $(script_tps "${kind}_accounts_plain")"
            runs[$kind:lavrel]+=" $(script_tps "${kind}_accounts_protected")"
        done
        runs[churn]+=" $(churned_tps select_accounts_protected)"
    done
    for kind in select update; do
        # shellcheck disable=SC2086
        add_row "prepared $kind by key, 2 clients" tps "$(median ${runs[$kind:plain]})" \
                "$(median ${runs[$kind:lavrel]})" ">= 0.90" 'r >= 0.9'
    done
    # shellcheck disable=SC2086
    add_row "prepared select, authorization changed every 50 ms" tps \
            "$(median ${runs[select:lavrel]})" "$(median ${runs[churn]})" ">= 0.90" 'r >= 0.9'
}

# pgbench's own tables, unprotected, in the cluster without lavrel and in
# lavrel's, where the reader is authorized for the bench policy.
pgbench_scenarios() {
    local r mode
    local -A runs=()
    for ((r = 0; r < ROUNDS; r++)); do
        for mode in select-only tpcb-like; do
            runs[$mode:plain]+=" $(PGHOST=$PLAIN_HOST PGPORT=$PLAIN_PORT tps "$mode")"
            runs[$mode:lavrel]+=" $(tps "$mode")"
        done
    done
    for mode in select-only tpcb-like; do
        # shellcheck disable=SC2086
        add_row "pgbench $mode" tps "$(median ${runs[$mode:plain]})" "$(median ${runs[$mode:lavrel]})" \
                ">= 0.95" 'r >= 0.95'
    done
}

machine() {
    echo "machine: $(nproc) CPUs, $(awk '/^MemTotal/ { printf "%.1f GiB", $2 / 1048576 }' /proc/meminfo)," \
         "$(awk -F': ' '/^model name/ { print $2; exit }' /proc/cpuinfo)"
    echo "server: $(psql -X -At -d bench -c 'SELECT version()')"
    echo "lavrel: $BUILD"
}

print_table() {
    {
        echo "lavrel benchmark, $(date -u '+%Y-%m-%d %H:%M UTC'), $ROWS rows"
        machine
        echo
        { printf 'scenario\tbaseline\tlavrel\tratio\ttarget\tresult\n'; cat "$ROWS_FILE"; } |
            awk -F'\t' '{ for (i = 1; i <= NF; i++) { cell[NR, i] = $i; if (length($i) > w[i]) w[i] = length($i) } }
                        END { for (n = 1; n <= NR; n++) {
                                  line = ""
                                  for (i = 1; i <= 6; i++) line = line sprintf("%-*s  ", w[i], cell[n, i])
                                  sub(/ +$/, "", line); print line } }'
    } | tee "$RESULTS/latest.txt"
}

# Bars of the ratios on a log scale, green where the target is met; the
# dashed line is 1, as fast as the baseline.
draw_chart() {
    gnuplot <<EOF
set terminal pngcairo size 1000,700 font ",9"
set output "$RESULTS/latest.png"
set datafile separator "\t"
set title "lavrel / baseline (log scale)"
set logscale y
set style fill solid 0.8
set boxwidth 0.7
set grid ytics
set xtics rotate by -40 left
set bmargin 15
set rmargin 14
plot "$ROWS_FILE" using 0:(strcol(6) eq "pass" ? \$4 : NaN):xtic(1) with boxes lc rgb "#3a9a3a" title "pass", \
     "" using 0:(strcol(6) eq "fail" ? \$4 : NaN) with boxes lc rgb "#c83232" title "fail", \
     "" using 0:4:4 with labels offset 0,0.7 notitle, \
     1 with lines lc rgb "black" dt 2 notitle
EOF
}

main() {
    trap stop_clusters EXIT
    install_gnuplot
    lavrel_install_packages
    lavrel_build_install
    start_clusters
    BUILD=$(build_id)
    echo "loading: $ROWS rows, pgbench scale $PGBENCH_SCALE, policies of $SYNC_LABELS labels"
    PGHOST=$PLAIN_HOST PGPORT=$PLAIN_PORT load_plain_cluster
    load_lavrel_cluster
    ROWS_FILE=$LAVREL_CLUSTER_DIR/rows.tsv
    scan_scenarios
    write_scenarios
    sync_scenarios
    prepared_scenarios
    pgbench_scenarios
    mkdir -p "$RESULTS"
    echo
    print_table
    draw_chart
    echo "written: $RESULTS/latest.txt $RESULTS/latest.png"
}

main

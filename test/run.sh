#!/usr/bin/env bash
# test/run.sh: runs every test suite of lavrel and ends with the line
# "N passed, N failed".
#
#   regress     pg_regress cases (test/sql, test/expected), schedule test/schedule
#   isolation   pg_isolation_regress specs (test/isolation), schedule test/isolation/schedule
#   nopreload   a server restarted without lavrel in shared_preload_libraries
#   nolibrary   protected tables on such a server, and after a restart with
#               lavrel again (nolibrary_setup, nolibrary, nolibrary_restored)
#   docs        the examples of doc/*.md against test/expected (doc_examples.sh)
#   dump_restore  pg_dump and pg_restore, and pg_upgrade, into a new cluster
#               (dump_restore.sh)
#   hot_standby   a hot standby: mediation as on the primary, administration
#               refused; a point-in-time recovery (hot_standby.sh)
#   upgrade     ALTER EXTENSION lavrel UPDATE from each older release, and
#               pg_upgrade from it, against a fresh install (upgrade.sh)
#   package     the Debian package: built, installed, the pg_regress cases
#               run against it, purged (package.sh)
#   pg_suites     PostgreSQL's own suites, stock against lavrel (pg_suites.sh)
#
# With test names as arguments (test/run.sh label_strings users), only those
# pg_regress cases run: the quick loop while writing a test.
# With LAVREL_INSTALLED=1 in the environment, lavrel is not built and
# installed from the tree: the suites run against the lavrel installed.
# Installs the Debian packages it needs, builds and installs lavrel and the
# test-only module, and runs each suite against a throwaway cluster.
set -euo pipefail
. "$(dirname "$0")/../scripts/lib.sh"
cd "$LAVREL_ROOT/test"

trap lavrel_cluster_stop EXIT
mkdir -p results
lavrel_install_packages
lavrel_build_install test

passed=0
failed=0
diffs=""

# Adds the results of one pg_regress-style run (its output in $1).
count_results() {
    local out=$1 ok bad
    ok=$(grep -cE '\.\.\. ok|^ok ' "$out" || true)
    bad=$(grep -cE '\.\.\. FAILED|\.\.\. failed|^not ok ' "$out" || true)
    passed=$((passed + ok))
    failed=$((failed + bad))
}

# run_suite NAME COMMAND...: runs one suite, keeps its output and diffs.
run_suite() {
    local name=$1 out
    shift
    out=$(mktemp)
    echo "== $name"
    "$@" >"$out" 2>&1 || true
    grep -E '^(test |     |ok |not ok |# )' "$out" | grep -vE '^# (using|diff)' || true
    if ! grep -qE '\.\.\. (ok|FAILED|failed)|^(ok|not ok) ' "$out"; then
        echo "suite $name did not run:"; cat "$out"
        failed=$((failed + 1))
    fi
    count_results "$out"
    rm -f "$out"
}

lavrel_cluster_start yes
if [ $# -gt 0 ]; then
    # Named after the first test, so that runs of other tests in parallel
    # keep their own results.
    run_suite regress "$PGXS_DIR/src/test/regress/pg_regress" \
        --bindir="$PG_BIN" --inputdir=. --outputdir="results/$1" \
        --dbname=lavrel_regress "$@"
    [ -s "results/$1/regression.diffs" ] && echo "differences in: $LAVREL_ROOT/test/results/$1/regression.diffs"
    echo "$passed passed, $failed failed"
    [ "$failed" -eq 0 ]
    exit
fi
run_suite regress "$PGXS_DIR/src/test/regress/pg_regress" \
    --bindir="$PG_BIN" --inputdir=. --outputdir=results/regress \
    --dbname=lavrel_regress --schedule=schedule
run_suite isolation "$PGXS_DIR/src/test/isolation/pg_isolation_regress" \
    --bindir="$PG_BIN" --inputdir=isolation --outputdir=results/isolation \
    --dbname=lavrel_isolation --schedule=isolation/schedule
lavrel_cluster_stop

# run_existing CASE DATABASE: runs one pg_regress case, outside the
# schedule, in a database that an earlier step has set up.
run_existing() {
    run_suite "$1" "$PGXS_DIR/src/test/regress/pg_regress" \
        --bindir="$PG_BIN" --inputdir=. --outputdir="results/$1" \
        --use-existing --dbname="$2" "$1"
}

# The cases run outside the schedule, in the order they run.
unscheduled="nolibrary_setup nopreload nolibrary nolibrary_restored"

# The databases are set up while lavrel is preloaded; the server is then
# restarted without it, and at last with it again.
lavrel_cluster_start yes
createdb lavrel_nopreload
psql -X -q -d lavrel_nopreload -c "CREATE EXTENSION lavrel"
createdb lavrel_nolibrary
run_existing nolibrary_setup lavrel_nolibrary
lavrel_cluster_restart_without_preload
run_existing nopreload lavrel_nopreload
run_existing nolibrary lavrel_nolibrary
lavrel_cluster_restart_with_preload
run_existing nolibrary_restored lavrel_nolibrary
lavrel_cluster_stop

# Examples of the docs come from the unscheduled cases too.
run_suite docs ./doc_examples.sh $unscheduled

run_suite dump_restore ./dump_restore.sh

run_suite hot_standby ./hot_standby.sh

run_suite upgrade ./upgrade.sh

# The package installs into the system PostgreSQL, the one it is built for.
if [ "$PG_BIN" = /usr/lib/postgresql/15/bin ]; then
    run_suite package ./package.sh
else
    echo "== package: not run, PG_BIN is not the system PostgreSQL 15"
fi

# PostgreSQL's own regression and isolation suites on a stock and a lavrel
# cluster: each of their tests that gives the same output on both counts.
run_pg_suites() {
    local out line rest
    out=$(mktemp)
    echo "== pg_suites"
    ./pg_suites.sh >"$out" 2>&1 || true
    grep -E '^(differs|== )' "$out" || true
    line=$(grep -E '^[0-9]+ passed, [0-9]+ failed$' "$out" | tail -n 1)
    if [ -z "$line" ]; then
        echo "suite pg_suites did not run:"; tail -n 20 "$out"
        failed=$((failed + 1))
    else
        rest=${line#*, }
        passed=$((passed + ${line%% passed*}))
        failed=$((failed + ${rest%% failed}))
    fi
    rm -f "$out"
}
run_pg_suites

for d in regress isolation $unscheduled; do
    [ -s "results/$d/regression.diffs" ] && diffs="$diffs $LAVREL_ROOT/test/results/$d/regression.diffs"
done
[ -n "$diffs" ] && echo "differences in:$diffs"
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]

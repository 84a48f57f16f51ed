#!/usr/bin/env bash
# test/pg_suites.sh: PostgreSQL 15's own regression suites, the core suite
# (src/test/regress, parallel schedule) and the isolation suite
# (src/test/isolation), run unchanged against a stock cluster and against a
# cluster with lavrel preloaded, enabled and created in every test database.
# Reports every test whose result differs between the two runs.
#
# The two runs are compared with each other, never with the expected files,
# so a minor-version difference between the test sources and the server
# does not matter.  A test differs when its pass/fail status or its output
# (results/<test>.out) is not the same in both runs; the suites are then run
# a second time on both clusters and only the tests that differ again are
# reported, so that a test that is timing-dependent in PostgreSQL itself
# does not count by chance.
#
# Gets the PostgreSQL 15 sources with apt-get source (adding a deb-src entry
# for the Debian archive when apt has none) into /var/tmp/lavrel-pg-src,
# where they stay for the next run, and builds the suites' C modules there
# with PGXS.  Builds and installs lavrel.  Needs root.
#
# Writes each run's output to test/results/pg_suites/<round>/<cluster>/
# and a unified diff of each differing test's two outputs to
# test/results/pg_suites/diffs/<suite>/<test>.diff; ends with the line
# "N passed, N failed" (N passed: tests with the same result on both
# clusters, N failed: tests that differ) and exits non-zero if a test
# differs.
set -euo pipefail
. "$(dirname "$0")/../scripts/lib.sh"

SRC_CACHE=/var/tmp/lavrel-pg-src
OUT=$LAVREL_ROOT/test/results/pg_suites
SUITES="regress isolation"
PG_SRC=""
MODULES_DIR=""

trap lavrel_cluster_stop EXIT

# Adds a deb-src entry for the Debian archive unless apt already has one.
add_deb_src() {
    local codename
    apt-get indextargets --format '$(CREATED_BY)' | grep -qx Sources && return 0
    codename=$(. /etc/os-release && echo "$VERSION_CODENAME")
    cat >/etc/apt/sources.list.d/lavrel-deb-src.sources <<EOF
Types: deb-src
URIs: http://deb.debian.org/debian
Suites: $codename $codename-updates
Components: main
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg
EOF
    apt-get update -qq
}

# The newest extracted PostgreSQL 15 sources in the cache, if any.
cached_sources() {
    find "$SRC_CACHE" -maxdepth 1 -type d -name 'postgresql-15-*' | sort -V | tail -n 1
}

# Sets PG_SRC to the extracted PostgreSQL 15 sources in the cache,
# downloading them on the first run.
fetch_sources() {
    mkdir -p "$SRC_CACHE"
    PG_SRC=$(cached_sources)
    if [ -z "$PG_SRC" ]; then
        add_deb_src
        echo "downloading the PostgreSQL 15 sources into $SRC_CACHE"
        (cd "$SRC_CACHE" && apt-get source -qq postgresql-15 >/dev/null)
        PG_SRC=$(cached_sources)
    fi
    [ -d "$PG_SRC/src/test/regress" ] || { echo "no PostgreSQL sources in $SRC_CACHE" >&2; exit 1; }
}

# Builds the C modules the core suite loads (regress, and autoinc and refint
# from contrib/spi) with PGXS; sets MODULES_DIR, the directory that holds
# them.
build_test_modules() {
    MODULES_DIR=$SRC_CACHE/modules-$(basename "$PG_SRC")
    mkdir -p "$MODULES_DIR"
    cp -p "$PG_SRC/src/test/regress/regress.c" "$PG_SRC/contrib/spi/autoinc.c" \
        "$PG_SRC/contrib/spi/refint.c" "$MODULES_DIR/"
    cat >"$MODULES_DIR/Makefile" <<EOF
MODULES = regress autoinc refint
PG_CONFIG = $PG_BIN/pg_config
override with_llvm = no
PGXS := \$(shell \$(PG_CONFIG) --pgxs)
include \$(PGXS)
EOF
    make -s -C "$MODULES_DIR" >/dev/null
}

# run_as_postgres DIR COMMAND...: runs the command as the postgres OS user
# in DIR, which it owns (the server writes files there during the tests),
# with its output in DIR/run.log.
run_as_postgres() {
    local dir=$1
    shift
    mkdir -p "$dir"
    chown postgres: "$dir"
    (cd "$dir" && runuser -u postgres -- "$@") >"$dir/run.log" 2>&1 || true
}

# run_suite SUITE DIR [OPTION...]: one suite against the running cluster,
# with pg_regress's output in DIR/run.log and the tests' outputs in
# DIR/results.
run_suite() {
    local suite=$1 dir=$2
    shift 2
    case $suite in
        regress)
            run_as_postgres "$dir" "$PGXS_DIR/src/test/regress/pg_regress" "$@" \
                --bindir="$PG_BIN" --inputdir="$PG_SRC/src/test/regress" --outputdir="$dir" \
                --dlpath="$MODULES_DIR" --max-concurrent-tests=20 \
                --schedule="$PG_SRC/src/test/regress/parallel_schedule" ;;
        isolation)
            run_as_postgres "$dir" "$PGXS_DIR/src/test/isolation/pg_isolation_regress" "$@" \
                --bindir="$PG_BIN" --inputdir="$PG_SRC/src/test/isolation" --outputdir="$dir" \
                --schedule="$PG_SRC/src/test/isolation/isolation_schedule" ;;
    esac
}

# run_cluster ROUND NAME PRELOAD SUITES [OPTION...]: starts a cluster, runs
# the suites against it and keeps their outputs in $OUT/ROUND/NAME.  Both
# clusters run in the same directory, $OUT/run, so that paths the tests
# print are the same in both outputs.
run_cluster() {
    local round=$1 name=$2 preload=$3 suites=$4 suite
    shift 4
    echo "== run $round: $suites on the $name cluster"
    lavrel_cluster_start "$preload"
    for suite in $suites; do
        run_suite "$suite" "$OUT/run/$suite" "$@"
    done
    lavrel_cluster_stop
    mkdir -p "$OUT/$round"
    mv "$OUT/run" "$OUT/$round/$name"
}

# run_round ROUND SUITES: the suites on a stock cluster and on a lavrel
# cluster.
run_round() {
    run_cluster "$1" stock no "$2"
    run_cluster "$1" lavrel yes "$2" --load-extension=lavrel
}

# test_status DIR: "name status" for each test pg_regress ran.
test_status() {
    sed -nE 's/^(test +| +)([^ ]+) +\.\.\. (ok|FAILED|failed \(ignored\)).*/\2 \3/p' "$1/run.log" |
        sed 's/ failed (ignored)/ ignored/'
}

# status_of DIR TEST: the test's status in the run in DIR ("missing" if it
# did not run).
status_of() {
    test_status "$1" | awk -v t="$2" '$1 == t { s = $2 } END { print (s == "" ? "missing" : s) }'
}

# test_names ROUND SUITE: the tests of SUITE that either cluster ran in
# ROUND.
test_names() {
    cat <(test_status "$OUT/$1/stock/$2") <(test_status "$OUT/$1/lavrel/$2") | cut -d' ' -f1 | sort -u
}

# differing_tests ROUND SUITE: the tests of SUITE whose status or output
# differs between the two clusters in ROUND, as "SUITE TEST" lines.
differing_tests() {
    local a=$OUT/$1/stock/$2 b=$OUT/$1/lavrel/$2 t
    for t in $(test_names "$1" "$2"); do
        if [ "$(status_of "$a" "$t")" != "$(status_of "$b" "$t")" ] ||
            ! cmp -s "$a/results/$t.out" "$b/results/$t.out"; then
            echo "$2 $t"
        fi
    done
}

# differences ROUND SUITES: the differing tests of each suite in ROUND,
# sorted.
differences() {
    local suite
    for suite in $2; do
        differing_tests "$1" "$suite"
    done | sort
}

# suite_ran ROUND SUITE: both clusters ran tests of SUITE in ROUND.
suite_ran() {
    local name
    for name in stock lavrel; do
        if [ -z "$(test_status "$OUT/$1/$name/$2")" ]; then
            echo "$2 ran no test on the $name cluster: see $OUT/$1/$name/$2/run.log"
            return 1
        fi
    done
}

# report_difference SUITE TEST: one line for a confirmed difference, with a
# unified diff of the two outputs of the first run saved beside it.
report_difference() {
    local a=$OUT/1/stock/$1 b=$OUT/1/lavrel/$1 diff=$OUT/diffs/$1/$2.diff
    mkdir -p "$OUT/diffs/$1"
    diff -u "$a/results/$2.out" "$b/results/$2.out" >"$diff" || true
    echo "differs: $1/$2 (stock $(status_of "$a" "$2"), lavrel $(status_of "$b" "$2")): $diff"
}

lavrel_install_packages dpkg-dev
lavrel_build_install
fetch_sources
build_test_modules
rm -rf "$OUT"
mkdir -p "$OUT"

run_round 1 "$SUITES"
total=0
not_run=0
for suite in $SUITES; do
    suite_ran 1 "$suite" || not_run=$((not_run + 1))
    total=$((total + $(test_names 1 "$suite" | wc -l)))
done
first=$(differences 1 "$SUITES")
confirmed=""
if [ -n "$first" ]; then
    # A test counts only if it differs again in a second run of its suite.
    suites=$(cut -d' ' -f1 <<<"$first" | sort -u | xargs)
    run_round 2 "$suites"
    confirmed=$(comm -12 <(echo "$first") <(differences 2 "$suites"))
fi
differing=0
while read -r suite t; do
    [ -n "$t" ] || continue
    report_difference "$suite" "$t"
    differing=$((differing + 1))
done <<<"$confirmed"
comm -23 <(echo "$first") <(echo "$confirmed") | while read -r suite t; do
    if [ -n "$t" ]; then
        echo "differed in the first run only: $suite/$t"
    fi
done
echo "$((total - differing)) passed, $((differing + not_run)) failed"
[ $((differing + not_run)) -eq 0 ]

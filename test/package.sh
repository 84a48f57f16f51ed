#!/usr/bin/env bash
# test/package.sh: builds the Debian package postgresql-15-lavrel with
# dpkg-buildpackage from a copy of the source tree, installs it with
# apt-get into the system PostgreSQL in place of the `make install` of the
# tree, runs the pg_regress cases of test/schedule against the installed
# files, and then purges the package and installs the tree again.
#
# Prints one "ok N - ..." or "not ok N - ..." line per check, and the
# pg_regress lines of the cases; exits non-zero when anything failed.  Run
# by test/run.sh; needs root and the system PostgreSQL 15 (PG_BIN).
set -euo pipefail
. "$(dirname "$0")/../scripts/lib.sh"

PACKAGE=postgresql-15-lavrel
WORK=$(mktemp -d /tmp/lavrel-package.XXXXXX)
LIBDIR=$("$PG_BIN/pg_config" --pkglibdir)
EXTDIR=$("$PG_BIN/pg_config" --sharedir)/extension

# Whatever happens, the package goes and the tree's build is back.
restore() {
    if dpkg-query -W -f='${Status}' "$PACKAGE" 2>/dev/null | grep -q "installed"; then
        apt-get purge -y -qq "$PACKAGE" >/dev/null
    fi
    lavrel_build_install
    rm -rf "$WORK"
}
trap restore EXIT

lavrel_install_packages postgresql-server-dev-all debhelper dpkg-dev fakeroot

# The tree's files, tracked or new, as a source package would hold them.
build() {
    mkdir "$WORK/lavrel"
    (cd "$LAVREL_ROOT" && git ls-files -co --exclude-standard | tar -cf - -T -) |
        tar -xf - -C "$WORK/lavrel"
    (cd "$WORK/lavrel" && dpkg-buildpackage -us -uc -b) >"$WORK/build.log" 2>&1 ||
        { tail -n 30 "$WORK/build.log"; return 1; }
    ls "$WORK"/"$PACKAGE"_*_*.deb >/dev/null
}

# The source tree is as it was before the build.
tree_untouched() {
    diff -u <(echo "$1") <(git -C "$LAVREL_ROOT" status --porcelain --ignored)
}

# No file of lavrel is installed.
absent() {
    local found
    found=$(ls "$LIBDIR"/lavrel.so "$EXTDIR"/lavrel.control "$EXTDIR"/lavrel--*.sql 2>/dev/null || true)
    [ -z "$found" ] || { echo "still installed: $found"; return 1; }
}

# The library, control file and scripts in place are the package's.
from_package() {
    local f
    for f in "$LIBDIR/lavrel.so" "$EXTDIR/lavrel.control" "$EXTDIR/lavrel--1.1.sql" \
             "$EXTDIR/lavrel--1.0--1.1.sql"; do
        dpkg-query -S "$f" | grep -q "^$PACKAGE: " || { echo "$f is not the package's"; return 1; }
    done
}

before=$(git -C "$LAVREL_ROOT" status --porcelain --ignored)
lavrel_check "dpkg-buildpackage -us -uc -b builds $PACKAGE from a copy of the tree" build
lavrel_check "the build leaves the source tree as it was" tree_untouched "$before"
make -s -C "$LAVREL_ROOT" uninstall PG_CONFIG="$PG_BIN/pg_config" >/dev/null
lavrel_check "after make uninstall, lavrel is not installed" absent
lavrel_check "apt-get install ./${PACKAGE}_*.deb installs it" \
    apt-get install -y -qq "$(ls "$WORK"/"$PACKAGE"_*_*.deb)"
lavrel_check "the installed library, control file and scripts are the package's" from_package

# The pg_regress cases run against the installed files; only the test
# module comes from the tree.
LAVREL_INSTALLED=1 "$LAVREL_ROOT/test/run.sh" $(sed -n 's/^test: //p' "$LAVREL_ROOT/test/schedule") ||
    LAVREL_CHECK_FAILED=1

lavrel_check "apt-get purge removes the package" apt-get purge -y -qq "$PACKAGE"
lavrel_check "and every file of lavrel with it" absent
exit "$LAVREL_CHECK_FAILED"

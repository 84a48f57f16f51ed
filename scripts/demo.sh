#!/usr/bin/env bash
# scripts/demo.sh: sets up lavrel on this machine and runs the worked
# example.  Installs the Debian packages it needs, builds and installs
# lavrel, starts a throwaway PostgreSQL 15 with lavrel preloaded and
# enabled, loads scripts/demo.sql as the administrator, shows what three
# users' sessions answer, and stops the server again.
set -euo pipefail
. "$(dirname "$0")/lib.sh"

trap lavrel_cluster_stop EXIT
lavrel_install_packages
lavrel_build_install
lavrel_cluster_start yes
echo "PostgreSQL 15 with lavrel on port $PGPORT"

createdb demo
psql -X -q -d demo -f "$LAVREL_ROOT/scripts/demo.sql"
for user in alice bob carol; do
    psql -X -q -d demo -U "$user" -f "$LAVREL_ROOT/scripts/demo_user.sql"
done

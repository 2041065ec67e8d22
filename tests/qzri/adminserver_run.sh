#!/usr/bin/env bash
# Runs a test executable against the test administration server (adminserver.py) over TLS: makes the
# test CA, starts the server on a free port with a folder of its own, and hands the test the port, the
# folder and the two CA files in the environment (as Windows paths under Wine).
#   tests/qzri/adminserver_run.sh [--wine] TEST_EXE
set -euo pipefail
wine=
if [ "${1:-}" = --wine ]; then wine=1; shift; fi
exe=$1
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
work=$(mktemp -d)
server=
trap '[ -n "$server" ] && kill "$server" 2>/dev/null; rm -rf "$work"' EXIT
bash "$root/tests/transport/make_test_ca.sh" "$work/ca"
mkdir "$work/server"
python3 "$here/adminserver.py" "$work/server" "$work/ca/server.pem" "$work/ca/server.key" >"$work/port" &
server=$!
for _ in $(seq 100); do [ -s "$work/port" ] && break; sleep 0.1; done
[ -s "$work/port" ] || { echo "the administration server did not start" >&2; exit 1; }
os_path() { if [ -n "$wine" ]; then printf 'Z:%s' "${1//\//\\}"; else printf '%s' "$1"; fi; }
export QZ_TEST_ADMIN_PORT=$(head -n 1 "$work/port")
export QZ_TEST_ADMIN_DIR=$(os_path "$work/server/")
export QZ_TEST_CA=$(os_path "$work/ca/ca.pem") QZ_TEST_OTHER_CA=$(os_path "$work/ca/other-ca.pem")
if [ -n "$wine" ]; then
  QZ_EXPECT_TEST_REPORT=1 "$root/scripts/wine-run.sh" "$exe"
else
  "$exe"
fi

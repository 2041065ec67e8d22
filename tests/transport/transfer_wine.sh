#!/usr/bin/env bash
# Runs the Windows transfer test under Wine against a TLS server on this machine: makes the test CA,
# starts tests/transport/httppeer.py over TLS on a free port with a file of random bytes, and hands the
# test its url, the file's SHA-256 and the two CA files (as Windows paths) in the environment.
#   tests/transport/transfer_wine.sh TEST_EXE
set -euo pipefail
exe=$1
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
work=$(mktemp -d)
peer=
trap '[ -n "$peer" ] && kill "$peer" 2>/dev/null; rm -rf "$work"' EXIT
bash "$here/make_test_ca.sh" "$work/ca"
mkdir "$work/served"
head -c 3000000 /dev/urandom >"$work/served/pkg.zip"
python3 "$here/httppeer.py" "$work/served" "$work/ca/server.pem" "$work/ca/server.key" >"$work/port" &
peer=$!
for _ in $(seq 100); do [ -s "$work/port" ] && break; sleep 0.1; done
win_path() { local p=$1; printf 'Z:%s' "${p//\//\\}"; }
export QZ_TEST_URL="https://localhost:$(head -n 1 "$work/port")"
export QZ_TEST_SHA256=$(sha256sum "$work/served/pkg.zip" | cut -d' ' -f1)
export QZ_TEST_CA=$(win_path "$work/ca/ca.pem") QZ_TEST_OTHER_CA=$(win_path "$work/ca/other-ca.pem")
export QZ_EXPECT_TEST_REPORT=1
"$root/scripts/wine-run.sh" "$exe"

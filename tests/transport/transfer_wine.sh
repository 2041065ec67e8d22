#!/usr/bin/env bash
# Runs the Windows transfer test under Wine against a TLS server on this machine: makes the test CA,
# starts tests/transport/httppeer.py over TLS on a free port with a file of random bytes and squid as a
# proxy that wants Basic authentication (user "agent"), and hands the test the url, the file's SHA-256,
# the two CA files (as Windows paths), the proxy and its password in the environment.
#   tests/transport/transfer_wine.sh TEST_EXE
set -euo pipefail
exe=$1
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
work=$(mktemp -d)
peer=
squid_pid=
trap '[ -n "$peer" ] && kill "$peer" 2>/dev/null; [ -n "$squid_pid" ] && kill -9 "$squid_pid" 2>/dev/null; rm -rf "$work"' EXIT
bash "$here/make_test_ca.sh" "$work/ca"
mkdir "$work/served"
head -c 3000000 /dev/urandom >"$work/served/pkg.zip"
python3 "$here/httppeer.py" "$work/served" "$work/ca/server.pem" "$work/ca/server.key" >"$work/port" &
peer=$!
for _ in $(seq 100); do [ -s "$work/port" ] && break; sleep 0.1; done
# squid drops to its own user, which must reach its folder.
chmod 755 "$work"
mkdir -m 777 "$work/squid"
proxy_password=Canary-wine-px
printf 'agent:%s\n' "$(openssl passwd -apr1 "$proxy_password")" >"$work/squid/passwd"
proxy_port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
cat >"$work/squid/squid.conf" <<CONF
http_port 127.0.0.1:$proxy_port
pid_filename $work/squid/squid.pid
cache_log $work/squid/cache.log
access_log $work/squid/access.log
coredump_dir $work/squid
cache deny all
pinger_enable off
shutdown_lifetime 0 seconds
auth_param basic program /usr/lib/squid/basic_ncsa_auth $work/squid/passwd
auth_param basic realm qz
acl authed proxy_auth REQUIRED
http_access allow authed
http_access deny all
CONF
squid -N -f "$work/squid/squid.conf" &
squid_pid=$!
for _ in $(seq 100); do (exec 3<>"/dev/tcp/127.0.0.1/$proxy_port") 2>/dev/null && break; sleep 0.1; done
export QZ_TEST_PROXY=127.0.0.1:$proxy_port QZ_TEST_PROXY_PASSWORD=$proxy_password
win_path() { local p=$1; printf 'Z:%s' "${p//\//\\}"; }
export QZ_TEST_URL="https://localhost:$(head -n 1 "$work/port")"
export QZ_TEST_SHA256=$(sha256sum "$work/served/pkg.zip" | cut -d' ' -f1)
export QZ_TEST_CA=$(win_path "$work/ca/ca.pem") QZ_TEST_OTHER_CA=$(win_path "$work/ca/other-ca.pem")
export QZ_EXPECT_TEST_REPORT=1
"$root/scripts/wine-run.sh" "$exe"

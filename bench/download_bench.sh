#!/usr/bin/env bash
# The package download against curl: a file of SIZE_MIB from a local nginx, fetched and verified by
# "qzpkg fetch" (the agent's download step: transfer, SHA-256 beside it, a no-op extraction), against
# "curl -o" of the same file alone and against "curl -o" followed by sha256sum.
#   bench/download_bench.sh [LINUX_RELEASE_BUILD_DIR [SIZE_MIB [RUNS]]]   defaults: build/linux-release, 1024, 3
# The three kinds of run alternate; the medians of their wall-clock times, the ratios and the peak
# resident memory of qzpkg are printed. Exits non-zero when qzpkg takes more than 1.1 times "curl -o"
# or more than 32 MiB of memory. Everything happens in a temporary folder, removed at the end with nginx.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build_dir=${1:-$root/build/linux-release}
size_mib=${2:-1024}
runs=${3:-3}
die() { printf 'download_bench: %s\n' "$*" >&2; exit 1; }
qzpkg=$build_dir/tools/qzpkg/qzpkg
[ -x "$qzpkg" ] || die "qzpkg is not built: $qzpkg (cmake --build --preset linux-release)"
command -v nginx >/dev/null || die "nginx is missing (apt-get install nginx-light)"

work=$(mktemp -d)
nginx_pid=
cleanup() { [ -n "$nginx_pid" ] && kill "$nginx_pid" 2>/dev/null; rm -rf "$work"; }
trap cleanup EXIT
mkdir -p "$work/www" "$work/nginx" "$work/pkg"
chmod 755 "$work" "$work/www"  # nginx's workers run as another user
head -c $((size_mib * 1024 * 1024)) /dev/urandom >"$work/www/pkg.bin"
hash=$(sha256sum "$work/www/pkg.bin" | cut -d' ' -f1)
port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
cat >"$work/nginx/nginx.conf" <<CONF
daemon off;
pid $work/nginx/nginx.pid;
error_log $work/nginx/error.log;
events {}
http {
  access_log off;
  client_body_temp_path $work/nginx;
  server { listen 127.0.0.1:$port; root $work/www; sendfile on; }
}
CONF
nginx -c "$work/nginx/nginx.conf" -p "$work/nginx" &
nginx_pid=$!
for _ in $(seq 50); do curl -s -o /dev/null "http://127.0.0.1:$port/" && break; sleep 0.1; done
url=http://127.0.0.1:$port/pkg.bin

printf '[source]\nurl=%s\nsha256=%s\nextract_cmd=true\n' "$url" "$hash" >"$work/pkg/qzpkgsrc.ini"
seconds() { local t0 t1; t0=$(date +%s.%N); "$@" >"$work/last.log" 2>&1; t1=$(date +%s.%N); echo "$t1 - $t0" | bc -l; }
run_qzpkg() {
  printf '[qzpkgsrc]\nshould_download=1\n' >"$work/pkg/qzriwrap.cfg"
  QZ_LOCAL_SS_PATH=$work/none.xml /usr/bin/time -f %M -o "$work/rss" "$qzpkg" fetch "$work/pkg"
}
run_curl() { curl -s -o "$work/curl.bin" "$url"; }
run_curl_sha() { curl -s -o "$work/curl.bin" "$url" && sha256sum "$work/curl.bin"; }

declare -a t_qz t_curl t_sha rss
for i in $(seq "$runs"); do
  t_qz+=("$(seconds run_qzpkg)"); rss+=("$(cat "$work/rss")")
  grep -q should_download=0 "$work/pkg/qzriwrap.cfg" || die "qzpkg fetch did not finish: $(cat "$work/last.log")"
  t_curl+=("$(seconds run_curl)")
  t_sha+=("$(seconds run_curl_sha)")
done
median() { printf '%s\n' "$@" | sort -g | awk '{a[NR]=$1} END {print a[int((NR+1)/2)]}'; }
m_qz=$(median "${t_qz[@]}"); m_curl=$(median "${t_curl[@]}"); m_sha=$(median "${t_sha[@]}")
m_rss=$(median "${rss[@]}")
ratio=$(echo "$m_qz / $m_curl" | bc -l)
printf 'download of %d MiB, median of %d runs:\n' "$size_mib" "$runs"
printf '  qzpkg fetch (download + SHA-256)  %6.2f s   peak memory %d KiB\n' "$m_qz" "$m_rss"
printf '  curl -o                           %6.2f s\n' "$m_curl"
printf '  curl -o && sha256sum              %6.2f s\n' "$m_sha"
printf '  qzpkg / curl -o = %.2f (target <= 1.10); qzpkg / (curl + sha256sum) = %.2f\n' "$ratio" \
  "$(echo "$m_qz / $m_sha" | bc -l)"
status=0
[ "$(echo "$ratio <= 1.10" | bc -l)" = 1 ] || { echo "  MISSED: more than 1.1 times curl -o"; status=1; }
[ "$m_rss" -le 32768 ] || { echo "  MISSED: more than 32 MiB of memory"; status=1; }
exit $status

#!/usr/bin/env bash
# The agent's overhead under Wine: a whole silent agent run (qzriwrap.exe /s) on a package whose setup
# does nothing against that setup started directly, both under wine64 with one warm wineserver.
#   bench/wine_overhead.sh [WIN64_BUILD_DIR [RUNS]]     defaults: build/win64, 10
# The two kinds of run alternate, so a slow moment of the machine falls on both; the medians of the
# wall-clock times and their difference are printed, and the script exits non-zero when the agent
# takes more than 150 ms longer than its setup alone.
#
# Everything happens in a temporary folder: a private WINEPREFIX (a copy of the template prefix kept in
# $QZ_CACHE_DIR/wine-template, or one scripts/wine-run.sh makes when there is no template yet), the
# package folder, the trace folder (QZCSAK_SYSTEMP_PATH) and the management agent's storage
# (QZ_LOCAL_SS_PATH, a file that does not exist). The wineserver is killed and the folder removed at
# the end, however the script ends.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build_dir=${1:-$root/build/win64}
runs=${2:-10}
limit_ms=150
warm_up_runs=2

die() { printf 'wine_overhead: %s\n' "$*" >&2; exit 1; }

[[ "$runs" =~ ^[1-9][0-9]*$ ]] || die "the number of runs must be a positive integer: $runs"
[ -d "$build_dir" ] || die "no such build folder: $build_dir"
build_dir=$(cd "$build_dir" && pwd)
agent_exe=$build_dir/qzri/riwrap/qzriwrap.exe
setup_exe=$build_dir/examples/qz_example_setup.exe
[ -f "$agent_exe" ] || die "the agent is not built: $agent_exe"
[ -f "$setup_exe" ] || die "the example setup is not built: $setup_exe"

cache_dir=${QZ_CACHE_DIR:-$HOME/.cache/qzriwrap}
wine_dir=${QZ_WINE_DIR:-/usr/lib/wine}
wine=$wine_dir/wine64
wineserver=$wine_dir/wineserver
[ -x "$wine" ] || wine=$(command -v wine64) || die "wine64 is not installed"
[ -x "$wineserver" ] || wineserver=$(command -v wineserver) || die "wineserver is not installed"

export WINEDEBUG=-all
export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-mscoree,mshtml=}

work=$(mktemp -d "${TMPDIR:-/tmp}/qz-wine-overhead.XXXXXX")
export WINEPREFIX=$work/prefix
server_started=0
cleanup() {
  if [ "$server_started" = 1 ]; then
    "$wineserver" -k >/dev/null 2>&1 || true
  fi
  rm -rf "$work"
}
trap cleanup EXIT

# The agent sees Windows paths: the Linux root is drive Z:.
os_path() { printf 'Z:%s' "${1//\//\\}"; }

direct=$work/direct
pkg=$work/pkg
mkdir -p "$direct" "$pkg" "$work/trace"
cp "$setup_exe" "$direct/setup.exe"
cp "$setup_exe" "$pkg/setup.exe"
cp "$agent_exe" "$pkg/qzriwrap.exe"
printf '[Setup]\r\nExecutable=setup.exe\r\n' >"$pkg/package.qpd"
QZCSAK_SYSTEMP_PATH=$(os_path "$work/trace")
QZ_LOCAL_SS_PATH=$(os_path "$work/local_ss.xml")
export QZCSAK_SYSTEMP_PATH QZ_LOCAL_SS_PATH

if [ -f "$cache_dir/wine-template/system.reg" ]; then
  cp -a "$cache_dir/wine-template" "$WINEPREFIX"
else
  # scripts/wine-run.sh makes the prefix (and keeps a template of it for the next time) before it
  # runs the program: the setup copy, so nothing lands in the build folder.
  echo "wine_overhead: no template prefix in $cache_dir; making one (this takes a while)"
  QZ_CACHE_DIR=$cache_dir "$root/scripts/wine-run.sh" "$direct/setup.exe" >/dev/null ||
    die "could not make a Wine prefix"
  # Its wineserver ends a few seconds after that run; the persistent one starts after it.
  "$wineserver" -w
fi

"$wineserver" -p
server_started=1

# Runs one program under wine64 in its folder; prints the wall-clock microseconds. A run that does not
# exit with 0 measures nothing: the script stops. A run that hangs (a setup whose job never empties
# waits up to the agent's four hours) is cut off after run_limit_s.
run_limit_s=300
timed_run() {
  local folder=$1 start end rc=0
  shift
  start=$(date +%s%N)
  (cd "$folder" && timeout "$run_limit_s" "$wine" "$@") >/dev/null 2>&1 || rc=$?
  end=$(date +%s%N)
  if [ "$rc" != 0 ]; then
    echo "wine_overhead: '$*' in $folder exited with $rc" >&2
    [ -f "$work/trace/\$qzriwrp.txt" ] && tail -n 20 "$work/trace/\$qzriwrp.txt" >&2
    return 1
  fi
  echo $(((end - start) / 1000))
}

# The first starts of a prefix load and register much that later starts find ready.
for ((i = 0; i < warm_up_runs; i++)); do
  timed_run "$direct" setup.exe >/dev/null || die "the direct setup failed during the warm-up"
  timed_run "$pkg" qzriwrap.exe /s >/dev/null || die "the agent failed during the warm-up"
done

direct_us=()
agent_us=()
for ((i = 0; i < runs; i++)); do
  t=$(timed_run "$direct" setup.exe) || die "the direct setup failed"
  direct_us+=("$t")
  t=$(timed_run "$pkg" qzriwrap.exe /s) || die "the agent failed"
  agent_us+=("$t")
done
[ -f "$pkg/setup-ran.txt" ] || die "the agent did not run the setup (no setup-ran.txt)"

# Median of microsecond figures, in microseconds.
median_us() {
  printf '%s\n' "$@" | sort -n | awk '{ v[NR] = $1 } END {
    if (NR % 2) print v[(NR + 1) / 2]; else print int((v[NR / 2] + v[NR / 2 + 1]) / 2) }'
}
ms() { awk -v us="$1" 'BEGIN { printf "%.1f", us / 1000 }'; }

direct_median=$(median_us "${direct_us[@]}")
agent_median=$(median_us "${agent_us[@]}")
diff_us=$((agent_median - direct_median))
if [ "$diff_us" -le $((limit_ms * 1000)) ]; then verdict=meets; else verdict=MISSES; fi

echo "Agent overhead under $("$wine" --version 2>/dev/null || echo wine64), warm wineserver," \
  "$runs interleaved runs each (wall-clock medians):"
printf '  %-32s %8s ms   (min %s, max %s)\n' "wine64 setup.exe" "$(ms "$direct_median")" \
  "$(ms "$(printf '%s\n' "${direct_us[@]}" | sort -n | head -n 1)")" \
  "$(ms "$(printf '%s\n' "${direct_us[@]}" | sort -n | tail -n 1)")"
printf '  %-32s %8s ms   (min %s, max %s)\n' "wine64 qzriwrap.exe /s" "$(ms "$agent_median")" \
  "$(ms "$(printf '%s\n' "${agent_us[@]}" | sort -n | head -n 1)")" \
  "$(ms "$(printf '%s\n' "${agent_us[@]}" | sort -n | tail -n 1)")"
printf '  %-32s %+8.1f ms   %s target <= +%d ms\n' "agent minus direct" "$(ms "$diff_us")" "$verdict" \
  "$limit_ms"
[ "$verdict" = meets ]

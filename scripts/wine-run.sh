#!/usr/bin/env bash
# Runs a Windows executable under Wine for CTest (it is the cross-compiling emulator of the Windows
# presets). It picks the 32- or 64-bit loader from the PE header, uses a private WINEPREFIX inside the
# build tree (created once, from a template copy kept in the cache when there is one), and, for test
# executables (QZ_EXPECT_TEST_REPORT=1), fails unless the executable reported that its tests ran:
# a 32-bit exe under a 64-bit-only Wine exits 0 without running anything.
set -uo pipefail

die() { printf 'wine-run: %s\n' "$*" >&2; exit 1; }

[ $# -ge 1 ] || die "usage: wine-run.sh EXE [ARGS...]"
exe=$1
shift
[ -f "$exe" ] || die "no such executable: $exe"

cache_dir=${QZ_CACHE_DIR:-$HOME/.cache/qzriwrap}
wine_dir=${QZ_WINE_DIR:-/usr/lib/wine}

# Machine field of the PE header: 014c = i386, 8664 = x86-64.
pe_machine() {
  local off
  off=$(od -An -tu4 -j60 -N4 "$1" | tr -d ' ')
  [ -n "$off" ] || return 1
  [ "$(od -An -c -j"$off" -N2 "$1" | tr -d ' ')" = "PE" ] || return 1
  od -An -tx2 -j$((off + 4)) -N2 "$1" | tr -d ' '
}

case "$(pe_machine "$exe")" in
  8664) loader=$wine_dir/wine64 ;;
  014c)
    loader=$wine_dir/wine
    [ -x "$loader" ] || die "32-bit Wine (wine32:i386) is not installed: cannot run the 32-bit $exe"
    ;;
  *) die "not a PE executable: $exe" ;;
esac
[ -x "$loader" ] || die "Wine loader missing: $loader (install wine64)"

# The build tree is the nearest folder above the exe that holds a CMakeCache.txt.
build_root() {
  local d
  d=$(cd "$(dirname "$1")" && pwd)
  while [ "$d" != / ] && [ ! -f "$d/CMakeCache.txt" ]; do d=$(dirname "$d"); done
  [ "$d" != / ] && printf '%s\n' "$d"
}

export WINEDEBUG=${WINEDEBUG:--all}
export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-mscoree,mshtml=}
if [ -z "${WINEPREFIX:-}" ]; then
  root=$(build_root "$exe") || die "cannot find the build tree of $exe"
  export WINEPREFIX=$root/wineprefix
fi

# Creates the prefix once; concurrent tests wait on the lock instead of racing.
ensure_prefix() {
  local template=$cache_dir/wine-template
  mkdir -p "$(dirname "$WINEPREFIX")"
  exec 9>"$WINEPREFIX.lock"
  flock 9
  if [ ! -f "$WINEPREFIX/system.reg" ]; then
    rm -rf "$WINEPREFIX"
    if [ -f "$template/system.reg" ]; then
      cp -a "$template" "$WINEPREFIX"
    else
      "$wine_dir/wine64" wineboot --init >/dev/null 2>&1 || die "wineboot failed for $WINEPREFIX"
      "$wine_dir/wineserver" -w
      mkdir -p "$cache_dir"
      rm -rf "$template.tmp" && cp -a "$WINEPREFIX" "$template.tmp" && mv -T "$template.tmp" "$template" ||
        rm -rf "$template.tmp"
    fi
  fi
  flock -u 9
  exec 9>&-
}
ensure_prefix

if [ "${QZ_EXPECT_TEST_REPORT:-0}" != 1 ]; then
  exec "$loader" "$exe" "$@"
fi

report=$(mktemp "${TMPDIR:-/tmp}/qz-ran.XXXXXX")
trap 'rm -f "$report"' EXIT
: >"$report"
rm -f "$report"
export QZ_TEST_RAN_FILE="Z:${report//\//\\}"
"$loader" "$exe" "$@"
rc=$?
# Wine cuts exit codes to 8 bits; the report carries the real outcome.
if [ ! -s "$report" ]; then
  die "$(basename "$exe") exited with $rc without running its tests"
fi
line=$(cat "$report")
echo "wine-run: $line"
case "$line" in
  *"ran=0 "*) die "$(basename "$exe") ran no test" ;;
esac
[ "$rc" -eq 0 ] && [[ "$line" == *"failed=0 rc=0"* ]] || exit 1
exit 0

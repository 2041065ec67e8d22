#!/usr/bin/env bash
# The whole test suite: installs what is missing (as root on a fresh Debian machine), builds the
# Windows dependency cache if needed, builds every preset and runs the native, sanitizer, fuzz-smoke
# and Wine tests. Ends non-zero on any failure; every step still runs so one report shows them all.
set -uo pipefail
cd "$(dirname "$0")/.."

export QZ_CACHE_DIR=${QZ_CACHE_DIR:-$HOME/.cache/qzriwrap}
export CCACHE_DIR=${CCACHE_DIR:-$QZ_CACHE_DIR/ccache}
export CCACHE_MAXSIZE=${CCACHE_MAXSIZE:-4G}
export CTEST_OUTPUT_ON_FAILURE=1
mkdir -p "$QZ_CACHE_DIR"

failed=()
timings=()
t_all=$SECONDS

step() {
  local name=$1 t=$SECONDS
  shift
  printf '\n=== %s\n' "$name"
  if "$@"; then
    timings+=("$(printf '%-28s %4ds ok' "$name" $((SECONDS - t)))")
  else
    timings+=("$(printf '%-28s %4ds FAILED' "$name" $((SECONDS - t)))")
    failed+=("$name")
    return 1
  fi
}

build_preset() {
  local log=build/$1.configure.log
  mkdir -p build
  cmake --preset "$1" >"$log" 2>&1 || { cat "$log"; return 1; }
  cmake --build --preset "$1"
}
test_preset() { ctest --preset "$1"; }

# Every Windows executable must be a PE32 (not PE32+) image of the intended subsystem:
# the agent itself is a GUI program without a window, tools and tests are console programs.
check_win32_images() {
  local exe desc want bad=0 n=0
  while IFS= read -r exe; do
    desc=$(file -b "$exe")
    case "$(basename "$exe")" in qzriwrap.exe | qzrbtagt.exe) want="(GUI)" ;; *) want="(console)" ;; esac
    n=$((n + 1))
    if [[ "$desc" != "PE32 executable $want Intel 80386"* ]]; then
      echo "unexpected image: $exe: $desc (want PE32 $want)"
      bad=1
    fi
  done < <(find build/win32 -name '*.exe' -not -path '*/CMakeFiles/*' -not -path '*/googletest/*' | sort)
  echo "checked $n win32 executables"
  [ "$n" -gt 0 ] && [ "$bad" -eq 0 ]
}

win32_tests() {
  local why
  if why=$(scripts/probe-wine32.sh); then
    test_preset win32
  else
    check_win32_images || return 1
    echo "NOTE: the 32-bit tests were NOT run: $why"
    echo "NOTE: build/win32 was built and its executables checked as PE32 images instead."
  fi
}

win_deps() { scripts/build-win-deps.sh "$1" >/dev/null; }
fuzz_smoke() { build_preset fuzz && scripts/fuzz-smoke.sh build/fuzz 15; }
bench_smoke() { build_preset linux-release && build/linux-release/bench/qz_bench --benchmark_min_time=0.001 \
                  --benchmark_filter='/10$' >/dev/null; }

step "install packages" scripts/install-packages.sh || { echo "cannot go on without packages"; exit 1; }
step "windows deps x86_64" win_deps x86_64-w64-mingw32
step "windows deps i686" win_deps i686-w64-mingw32
step "linux build" build_preset linux && step "linux tests" test_preset linux
step "linux-asan build" build_preset linux-asan && step "linux-asan tests" test_preset linux-asan
step "fuzz smoke" fuzz_smoke
step "bench smoke" bench_smoke
step "win64 build" build_preset win64 && step "win64 tests (wine64)" test_preset win64
step "win32 build" build_preset win32 && step "win32 tests" win32_tests

printf '\n=== summary (%ds in all)\n' $((SECONDS - t_all))
printf '%s\n' "${timings[@]}"
if [ "${#failed[@]}" -gt 0 ]; then
  printf 'FAILED: %s\n' "${failed[*]}"
fi
echo "steps: $((${#timings[@]} - ${#failed[@]})) passed, ${#failed[@]} failed"
[ "${#failed[@]}" -eq 0 ]

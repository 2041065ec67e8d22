#!/usr/bin/env bash
# Short libFuzzer run of every fuzz target: fuzz-smoke.sh BUILD_DIR SECONDS_PER_TARGET.
# Seeds come from the build's fuzz_seeds program; the corpus grows in the cache between runs so that
# each smoke run starts where the last one stopped. A crash leaves its input in the cache and fails.
set -uo pipefail
build=${1:?usage: fuzz-smoke.sh BUILD_DIR SECONDS}
secs=${2:-15}
cache_dir=${QZ_CACHE_DIR:-$HOME/.cache/qzriwrap}/fuzz
mkdir -p "$cache_dir"

seeds=$(mktemp -d)
trap 'rm -rf "$seeds"' EXIT
"$build/fuzz/fuzz_seeds" "$seeds" || { echo "fuzz-smoke: seed generator failed"; exit 1; }

rc=0
for fuzzer in "$build"/fuzz/fuzz_*; do
  name=$(basename "$fuzzer")
  [ "$name" = fuzz_seeds ] && continue
  [ -x "$fuzzer" ] || continue
  corpus=$cache_dir/$name
  mkdir -p "$corpus" "$cache_dir/crashes"
  [ -d "$seeds/$name" ] && cp -n "$seeds/$name"/* "$corpus"/ 2>/dev/null
  echo "fuzz-smoke: $name for ${secs}s (corpus $(ls "$corpus" | wc -l) files)"
  if ! "$fuzzer" -max_total_time="$secs" -timeout=10 -rss_limit_mb=2048 -print_final_stats=0 \
      -artifact_prefix="$cache_dir/crashes/$name-" "$corpus" >"$cache_dir/$name.log" 2>&1; then
    echo "fuzz-smoke: $name FAILED"
    tail -n 40 "$cache_dir/$name.log"
    rc=1
  else
    grep -E '^#[0-9]+.*DONE' "$cache_dir/$name.log" | tail -n 1
  fi
done
exit $rc

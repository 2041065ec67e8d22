#!/usr/bin/env bash
# Builds the Release benchmarks and prints our code's speed-up over the baselines measured in the
# same run: scripts/bench.sh [extra qz_bench arguments]. Exits non-zero when a target is missed.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake --preset linux-release >/dev/null
cmake --build --preset linux-release
out=build/linux-release/bench-results.json
build/linux-release/bench/qz_bench --benchmark_format=json --benchmark_repetitions=3 \
  --benchmark_report_aggregates_only=false "$@" >"$out"
python3 bench/ratios.py "$out"

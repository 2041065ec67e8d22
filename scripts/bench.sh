#!/usr/bin/env bash
# Builds the Release benchmarks and prints our code's speed-up over the baselines measured in the
# same run: scripts/bench.sh [extra qz_bench arguments]. The repetitions of all benchmarks are
# interleaved at random, so that a measurement and its baseline share the machine's noisy moments.
# Then, when the win64 build is there, the agent's overhead under Wine (bench/wine_overhead.sh).
# Exits non-zero when a target is missed.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake --preset linux-release >/dev/null
cmake --build --preset linux-release
out=build/linux-release/bench-results.json
build/linux-release/bench/qz_bench --benchmark_format=json --benchmark_repetitions=3 \
  --benchmark_report_aggregates_only=false --benchmark_enable_random_interleaving=true "$@" >"$out"
status=0
python3 bench/ratios.py "$out" || status=1

win_agent=build/win64/qzri/riwrap/qzriwrap.exe
echo
if [ -f "$win_agent" ]; then
  bench/wine_overhead.sh build/win64 || status=1
else
  echo "Agent overhead under Wine: skipped ($win_agent is not built; cmake --build --preset win64)"
fi
echo
if command -v nginx >/dev/null; then
  bench/download_bench.sh build/linux-release || status=1
else
  echo "Package download: skipped (nginx is not installed)"
fi
exit $status

#!/usr/bin/env python3
"""Reads qz_bench --benchmark_format=json output and prints each measurement of our code beside its
baseline from the same run, as a speed-up (baseline time / our time: above 1 means ours is faster),
with the allocations per operation and the targets that apply. For the agent's overhead the figure that
counts is a difference of times: a whole agent run minus its setup started directly."""
import json
import statistics
import sys

# (ours, baseline, target speed-up or None)
PAIRS = [
    ("BM_ParamsLookupHit/{n}", "BM_JsonLookupHit/{n}", {1000: 1.0}),
    ("BM_ParamsLookupMiss/{n}", "BM_JsonLookupMiss/{n}", {1000: 1.0}),
    ("BM_ParamsBuild/{n}", "BM_JsonBuild/{n}", {}),
    ("BM_ParamsClone/{n}", "BM_JsonClone/{n}", {}),
]
SINGLE = [
    ("BM_ValueCreateReleasePooled", "BM_ValueCreateReleaseNewDelete", 2.0),
    ("BM_StringValueCreateReleasePooled", "BM_StringValueCreateReleaseNewDelete", 2.0),
    ("BM_ValueCreateReleasePooled", "BM_JsonValueCreateRelease", None),
    ("BM_IniParse", "BM_IniParseWregex", 50.0),
    ("BM_IniParse", "BM_IniParseInih", None),
    ("BM_IniParseUtf8", "BM_IniParseInih", None),
    ("BM_IniParseTree", "BM_IniParseInih", 0.5),
    ("BM_IniParseTree", "BM_IniParseWregex", None),
]
# (ours, baseline, the most ours may take longer, in milliseconds of real time)
OVERHEAD = [
    ("BM_AgentRun", "BM_SetupDirect", 15.0),
]
MS_PER_UNIT = {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}


def main(path):
    with open(path) as f:
        data = json.load(f)
    iterations = [b for b in data["benchmarks"] if b.get("run_type", "iteration") == "iteration"]
    runs = {b["name"]: b for b in iterations}
    rows, failed = [], []

    def row(ours, base, target, zero_allocs):
        if ours not in runs or base not in runs:
            return
        a, b = runs[ours], runs[base]
        ratio = b["real_time"] / a["real_time"]
        allocs = a.get("allocs_per_op", float("nan"))
        verdict = ""
        if target is not None:
            ok = ratio >= target and (not zero_allocs or allocs == 0)
            verdict = ("meets" if ok else "MISSES") + f" target >= {target:g}x" + (", 0 allocs" if zero_allocs else "")
            if not ok:
                failed.append(ours)
        rows.append((ours, base, a["real_time"], b["real_time"], a["time_unit"], ratio, allocs,
                     b.get("allocs_per_op", float("nan")), verdict))

    for ours, base, targets in PAIRS:
        for n in (10, 1000, 100000):
            zero = "Lookup" in ours
            row(ours.format(n=n), base.format(n=n), targets.get(n), zero and n in targets)
    for ours, base, target in SINGLE:
        row(ours, base, target, False)

    # The median over the repetitions, which the benchmarks interleave: real time in milliseconds. The
    # name without what Google Benchmark appends ("/iterations:20/repeats:10/real_time").
    def family(name):
        return [b for b in iterations if b["name"].split("/")[0] == name]

    def median_ms(name):
        times = [b["real_time"] * MS_PER_UNIT[b["time_unit"]] for b in family(name) if not b.get("error_occurred")]
        return statistics.median(times) if times else None

    for ours, base, limit in OVERHEAD:
        if not family(ours) or not family(base):
            continue
        ta, tb = median_ms(ours), median_ms(base)
        if ta is None or tb is None:
            failed.append(ours)
            errors = [b.get("error_message", "") for b in family(ours) + family(base) if b.get("error_occurred")]
            rows.append((ours, base, float("nan"), float("nan"), "ms", float("nan"), float("nan"), float("nan"),
                         "MISSES: " + (errors[0] if errors else "no result")))
            continue
        diff = ta - tb
        ok = diff <= limit
        if not ok:
            failed.append(ours)
        verdict = f"{diff:+.2f} ms (ours - base, median): " + ("meets" if ok else "MISSES") + f" target <= +{limit:g} ms"
        rows.append((ours, base, ta, tb, "ms", tb / ta, float("nan"), float("nan"), verdict))

    print(f"{'ours':36} {'baseline':38} {'ours':>10} {'base':>10} {'speed-up':>8} {'allocs/op':>9} {'base a/op':>9}")
    for ours, base, ta, tb, unit, ratio, aa, ab, verdict in rows:
        print(f"{ours:36} {base:38} {ta:8.1f}{unit:2} {tb:8.1f}{unit:2} {ratio:7.2f}x {aa:9.2f} {ab:9.2f}  {verdict}")
    if failed:
        print("targets missed:", ", ".join(failed))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))

"""Medians of a Google Benchmark JSON report, and ratios between them, as the bench scripts print them."""
import json
import statistics


def medians(path, name=lambda run_name: run_name.split("/")[0]):
    """{benchmark: median real time} over the report's repetitions, printed as it goes."""
    runs = {}
    for b in json.load(open(path))["benchmarks"]:
        if b.get("run_type") == "iteration":
            runs.setdefault(name(b["run_name"]), []).append(b["real_time"])
    med = {k: statistics.median(v) for k, v in runs.items()}
    for k, v in med.items():
        print(f"{k:12s} {v:9.1f} ms (median of {len(runs[k])})")
    return med


def ratio(label, ours, theirs, target=None):
    print(f"{label} = {ours / theirs:.2f}" + (f"  (target <= {target})" if target is not None else ""))

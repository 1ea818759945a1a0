#!/usr/bin/env python3
"""Prints the ratios of one interleaved benchmark run and writes them as charts.

bench_report.py [--kernels] REPORT_HTML RESULT...
                    RESULT: name of a Google Benchmark JSON file in results/ beside the report

Benchmarks are named family/operation/implementation/size; ours is the implementation `nqcore`. A ratio is the peer's
median time divided by ours: above 1 we are faster. int/bench/budgets.txt may state the ratio that is aimed at.

--kernels: every implementation is ours, a row of a kernel table. A ratio is the median time of the row `scalar` divided
by that of another one: above 1 the other one is worth having.
"""
import argparse
import collections
import html
import json
import pathlib
import statistics
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUDGETS = ROOT / "int/bench/budgets.txt"
OURS = "nqcore"
SCALAR = "scalar"
TO_NS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


def read_medians(files):
    """{(family, operation, size): {implementation: median nanoseconds}}, in the order of the files and, in each, of the
    source: interleaved runs are written in an order that differs every time."""
    times = collections.OrderedDict()
    for file in files:
        runs = json.loads(file.read_text())["benchmarks"]
        for run in sorted(runs, key=lambda run: (run["family_index"], run["per_family_instance_index"])):
            if run["run_type"] != "iteration" or run.get("error_occurred"):
                continue
            family, operation, implementation, *size = run["run_name"].split("/")
            row = times.setdefault((family, operation, "/".join(size)), collections.OrderedDict())
            row.setdefault(implementation, []).append(run["real_time"] * TO_NS[run["time_unit"]])
    return {key: {name: statistics.median(values) for name, values in row.items()} for key, row in times.items()}


def read_budgets():
    """{"family/operation/peer/size": ratio}"""
    if not BUDGETS.exists():
        return {}
    lines = (line.split("#")[0].split() for line in BUDGETS.read_text().splitlines())
    return {words[0]: float(words[1]) for words in lines if len(words) == 2}


def budget_name(key, peer):
    family, operation, size = key
    return "/".join(filter(None, (family, operation, peer, size)))


def ratios(medians, budgets):
    """Rows (key, peer, peer's ns, our ns, ratio, budget or None)."""
    for key, row in medians.items():
        for peer, time in row.items():
            if peer != OURS and OURS in row:
                yield key, peer, time, row[OURS], time / row[OURS], budgets.get(budget_name(key, peer))


def unmeasured(rows, budgets):
    """The budgets of the measured families that no benchmark answers to."""
    measured = {budget_name(key, peer) for key, peer, *_ in rows}
    families = {key[0] for key, *_ in rows}
    return [name for name in budgets if name.split("/")[0] in families and name not in measured]


def kernel_ratios(medians):
    """Rows (key, kernel, scalar row's ns, kernel's ns, ratio)."""
    for key, row in medians.items():
        for kernel, time in row.items():
            if kernel != SCALAR and SCALAR in row:
                yield key, kernel, row[SCALAR], time, row[SCALAR] / time


def without_scalar(medians):
    return ["/".join(filter(None, key)) for key, row in medians.items() if SCALAR not in row]


def print_kernel_table(rows):
    print(f"{'benchmark':<44}{'kernel':<12}{'scalar ns':>14}{'kernel ns':>14}{'ratio':>8}")
    for key, kernel, scalar_ns, kernel_ns, ratio in rows:
        print(f"{'/'.join(filter(None, key)):<44}{kernel:<12}{scalar_ns:>14.1f}{kernel_ns:>14.1f}{ratio:>8.2f}")


def print_table(rows):
    print(f"{'benchmark':<44}{'peer':<20}{'peer ns':>12}{'ours ns':>12}{'ratio':>8}{'budget':>8}")
    for key, peer, peer_ns, our_ns, ratio, budget in rows:
        verdict = "" if budget is None else f"{budget:>8.2f}" + ("" if ratio >= budget else "  BELOW")
        print(f"{'/'.join(filter(None, key)):<44}{peer:<20}{peer_ns:>12.1f}{our_ns:>12.1f}{ratio:>8.2f}{verdict}")


def chart(key, row, is_ours, remark=lambda name: ""):
    """One bar for each implementation; its length is its time. `remark(name)` follows the time."""
    longest = max(row.values())
    bars = []
    for index, (name, time) in enumerate(row.items()):
        y, width = 22 * index, 420 * time / longest
        colour = "#2b6cb0" if is_ours(name) else "#a0aec0"
        bars.append(f'<text x="150" y="{y + 14}" text-anchor="end">{html.escape(name)}</text>'
                    f'<rect x="158" y="{y + 2}" width="{width:.1f}" height="16" fill="{colour}"/>'
                    f'<text x="{164 + width:.1f}" y="{y + 14}">{time:,.1f} ns{remark(name)}</text>')
    title = html.escape("/".join(filter(None, key)))
    return f'<h2>{title}</h2><svg width="760" height="{22 * len(row) + 4}">{"".join(bars)}</svg>'


def kernel_chart(key, row):
    def gain(name):
        return f", ratio {row[SCALAR] / row[name]:.2f}" if name != SCALAR and SCALAR in row else ""

    return chart(key, row, lambda name: name != SCALAR, gain)


def write_report(file, title, explanation, charts):
    style = "body{font:14px sans-serif;margin:2em}h2{font-size:15px;margin:1.2em 0 .3em}text{font-size:12px}"
    body = "\n".join(charts)
    file.write_text(f"<!doctype html><meta charset=utf-8><title>{title}</title><style>{style}</style>\n"
                    f"<h1>{title}</h1><p>Median time of one interleaved run; shorter is better.{explanation}</p>\n"
                    f"{body}\n")


def report_kernels(report, medians):
    rows = list(kernel_ratios(medians))
    print_kernel_table(rows)
    for name in without_scalar(medians):
        print(f"no scalar row for {name}")
    print(f"{len(rows)} ratios")
    write_report(report, "nqcore kernels",
                 " A ratio is the time of the scalar row divided by that of the kernel: above 1 the kernel is faster.",
                 [kernel_chart(key, row) for key, row in medians.items()])
    return 1 if without_scalar(medians) or not rows else 0


def report_peers(report, medians):
    budgets = read_budgets()
    rows = list(ratios(medians, budgets))
    print_table(rows)
    for name in unmeasured(rows, budgets):
        print(f"no benchmark for the budget of {name}")
    below = sum(budget is not None and ratio < budget for *_, ratio, budget in rows)
    print(f"{len(rows)} ratios, {below} below their budget")
    write_report(report, "nqcore benchmarks", "",
                 [chart(key, row, lambda name: name.startswith(OURS)) for key, row in medians.items()])
    return 1 if unmeasured(rows, budgets) else 0


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--kernels", action="store_true")
    parser.add_argument("report", metavar="REPORT_HTML", type=pathlib.Path)
    parser.add_argument("results", metavar="RESULT", nargs="+")
    options = parser.parse_args()
    medians = read_medians([options.report.parent / "results" / name for name in options.results])
    return (report_kernels if options.kernels else report_peers)(options.report, medians)


if __name__ == "__main__":
    sys.exit(main())

"""The figures of the last benchmark run, as a table for the performance page."""
import html
import json
import sys


def measured(root, files):
    """The table of the run whose results are in `files`."""
    sys.path.insert(0, str(root / "scripts"))
    import bench_report    # noqa: PLC0415  its folder is only known here
    context = json.loads(files[0].read_text())["context"]
    rows = bench_report.ratios(bench_report.read_medians(files), bench_report.read_budgets())
    cells = []
    for key, peer, peer_ns, our_ns, ratio, budget in rows:
        values = ["/".join(filter(None, key)), peer, f"{peer_ns:,.1f}", f"{our_ns:,.1f}", f"{ratio:.2f}",
                  "" if budget is None else f"{budget:g}"]
        labels = ["work", "peer", "peer, ns", "nqcore, ns", "ratio", "budget"]
        missed = ' class="missed"' if budget is not None and ratio < budget else ""
        cells.append(f"<tr{missed}>" + "".join(f'<td data-label="{label}">{html.escape(value)}</td>'
                                               for label, value in zip(labels, values)) + "</tr>")
    head = "".join(f"<th>{label}</th>" for label in ("work", "peer", "peer, ns", "nqcore, ns", "ratio", "budget"))
    return (f"<p>Run of {html.escape(context['date'][:10])}, {context['num_cpus']} processors.</p>"
            f'<table class="stacked"><thead><tr>{head}</tr></thead><tbody>{"".join(cells)}</tbody></table>')


def add_to(site, root):
    """Adds the table to the page; nothing where no benchmark was run."""
    files = sorted((root / "build/bench/results").glob("*.json"))
    if not files:
        return
    title, body = site.pages["guide/performance.html"]
    body += '<h2 id="last-run">The last run in this tree</h2>' + measured(root, files)
    site.pages["guide/performance.html"] = (title, body)

#!/usr/bin/python3
"""Opens every page of the site in a browser, as wide as a phone and as a desk: none may be wider than its window, and
the search has to find things. Pictures of some pages are left in FOLDER/../pictures.

check_pages.py FOLDER
"""
import html
import json
import pathlib
import re
import subprocess
import sys
import tempfile

WIDTHS = [390, 1280]
PICTURES = ["index.html", "guide/errors.html", "guide/error-codes.html", "guide/performance.html", "guide/nq.html",
            "reference/index.html", "reference/nqcore-uuid.html", "reference/nqcore-ucsutil.html"]
SEARCHES = [("from_string", "AbsoluteTime"), ("invalidUtcString", "error.nqcore"), ("card numbers", "mask_credit_card")]
# One page after the other in a frame of the wanted width. What sticks out of the window without a scroll bar of its own
# is named with it.
HARNESS = """<!doctype html><meta charset="utf-8"><style>body{margin:0}iframe{border:0}</style><body><script>
const pages = PAGES, widths = WIDTHS, searches = SEARCHES, root = ROOT;
const faults = [];
function open(path, width) {
    return new Promise(resolve => {
        const frame = document.createElement("iframe");
        frame.style.cssText = `width:${width}px;height:800px`;
        frame.onload = () => resolve(frame);
        frame.src = root + path;
        document.body.appendChild(frame);
    });
}
function widest(view) {
    const inner = view.document.querySelectorAll("main *");
    const sticksOut = node => !node.closest("pre") && node.getBoundingClientRect().right > view.innerWidth + 1;
    const out = [...inner].filter(sticksOut);
    return out.slice(0, 3).map(node => node.tagName + " " + node.textContent.slice(0, 40)).join(" | ");
}
(async () => {
    let count = 0;
    for (const width of widths) {
        for (const path of pages) {
            const frame = await open(path, width);
            const view = frame.contentWindow, page = view.document.documentElement;
            count += 1;
            if (page.scrollWidth > width || widest(view)) {
                faults.push(`${path}: ${page.scrollWidth} px wide in a window of ${width}: ${widest(view)}`);
            }
            frame.remove();
        }
    }
    const frame = await open("index.html", 390), view = frame.contentWindow;
    for (const [words, wanted] of searches) {
        const input = view.document.getElementById("search");
        input.value = words;
        input.dispatchEvent(new view.Event("input"));
        const found = view.document.getElementById("results").textContent;
        if (!found.includes(wanted)) faults.push(`"${words}" does not find ${wanted}: ${found.slice(0, 200)}`);
    }
    return {count, faults};
})().catch(error => ({count: 0, faults: [String(error)]}))
    .then(answer => { document.body.textContent = "RESULT" + JSON.stringify(answer) + "END"; });
</script>"""


def chromium(profile, *arguments):
    return subprocess.run(["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--hide-scrollbars",
                           "--allow-file-access-from-files", f"--user-data-dir={profile}", *arguments],
                          capture_output=True, text=True, timeout=300, check=False)


def check(folder, profile):
    pages = sorted(str(path.relative_to(folder)) for path in folder.rglob("*.html"))
    text = HARNESS
    for name, value in (("PAGES", pages), ("WIDTHS", WIDTHS), ("SEARCHES", SEARCHES), ("ROOT", folder.as_uri() + "/")):
        text = text.replace(f"= {name}", f"= {json.dumps(value)}", 1)
    harness = pathlib.Path(profile) / "harness.html"
    harness.write_text(text)
    run = chromium(profile, "--virtual-time-budget=600000", "--window-size=1400,900", "--dump-dom", harness.as_uri())
    result = re.search(r"RESULT(.*)END", run.stdout)
    if not result:
        sys.exit(f"the browser gave no answer:\n{run.stdout[-2000:]}\n{run.stderr[-2000:]}")
    answer = json.loads(html.unescape(result[1]))
    if answer["count"] != len(pages) * len(WIDTHS):
        answer["faults"].append(f"only {answer['count']} of {len(pages) * len(WIDTHS)} views were looked at")
    return answer


def take_pictures(folder, profile):
    pictures = folder.parent / "pictures"
    pictures.mkdir(exist_ok=True)
    for path in PICTURES:
        for width in WIDTHS:
            # In a frame: windows cannot be as narrow as a phone.
            frame = pathlib.Path(profile) / "frame.html"
            frame.write_text(f'<style>body{{margin:0}}</style><iframe src="{(folder / path).as_uri()}" '
                             f'style="border:0;width:{width}px;height:1600px"></iframe>')
            name = path.removesuffix(".html").replace("/", "-")
            chromium(profile, f"--window-size={max(width, 500)},1600", "--virtual-time-budget=5000",
                     f"--screenshot={pictures / f'{name}-{width}.png'}", frame.as_uri())


def main():
    folder = pathlib.Path(sys.argv[1]).resolve()
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as profile:
        answer = check(folder, profile)
        take_pictures(folder, profile)
    print(*answer["faults"], sep="\n")
    print(f"{answer['count']} views, {len(answer['faults'])} faults; pictures in {folder.parent / 'pictures'}")
    return 1 if answer["faults"] else 0


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/python3
"""Names links of the site that lead nowhere: no such page, no such anchor. Also identities that a page has twice.

check_links.py FOLDER
"""
import collections
import html.parser
import pathlib
import re
import sys
import urllib.parse


class Page(html.parser.HTMLParser):
    def __init__(self, path):
        super().__init__()
        self.links, self.identities = [], collections.Counter()
        self.feed(path.read_text())

    def handle_starttag(self, tag, attributes):
        for name, value in attributes:
            if name in ("href", "src") and value:
                self.links.append(value)
            if name == "id":
                self.identities[value] += 1


def main():
    folder = pathlib.Path(sys.argv[1]).resolve()
    pages = {path: Page(path) for path in folder.rglob("*.html")}
    faults, links = [], 0
    for path, page in sorted(pages.items()):
        name = path.relative_to(folder)
        faults += [f"{name}: id {identity!r} stands {count} times"
                   for identity, count in page.identities.items() if count > 1]
        for link in page.links:
            if re.match(r"(https?|mailto):", link):
                continue
            links += 1
            target, _, fragment = link.partition("#")
            file = (path.parent / urllib.parse.unquote(target)).resolve() if target else path
            if not file.is_file() or folder not in file.parents:
                faults.append(f"{name}: {link}: no such page")
            elif fragment and urllib.parse.unquote(fragment) not in pages[file].identities:
                faults.append(f"{name}: {link}: no such place in it")
    index = (folder / "assets/search-index.js").read_text()
    for target in set(re.findall(r'",\"((?:reference|guide|source|index)[^"]*\.html(?:#[^"]*)?)"', index)):
        links += 1
        target, _, fragment = target.partition("#")
        if folder / target not in pages or fragment and fragment not in pages[folder / target].identities:
            faults.append(f"search: {target}#{fragment}: nothing there")
    print(*faults, sep="\n")
    print(f"{len(pages)} pages, {links} links, {len(faults)} faults")
    return 1 if faults or not links else 0


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/python3
"""Writes build/docs/site: the reference from Doxygen's XML in build/docs/xml, the guide from doc/ and examples/guide.

build.py MANUAL_PAGE    MANUAL_PAGE: nq.1, as the target `manual` makes it
"""
import collections
import json
import pathlib
import re
import shutil
import sys

import api
import error_codes
import guide
import performance
import reference
from page import Site, relative

ROOT = pathlib.Path(__file__).resolve().parents[2]
ASSETS = ROOT / "scripts/docs/assets"


def version():
    return re.search(r"project\(nqcore VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text())[1]


def resolver(the_api, codes):
    """Where a piece of text that names something is described; None when it names nothing."""
    code_texts = {code.text for code in codes.values()}

    def resolve(text):
        name = re.sub(r"\(.*\)$|(&lt;|<).*(&gt;|>)$", "", text)
        if name in the_api.targets:
            return the_api.targets[name]
        if text in the_api.families:
            return the_api.families[text].page
        if text in code_texts:
            return f"{error_codes.PAGE}#{error_codes.anchor(text)}"
        if re.fullmatch(r"doc/\w+\.md", text) and (ROOT / text).exists():
            return f"guide/{text[4:-3]}.html"
        return None
    return resolve


def described_by(the_api, codes):
    """{code: [(name, target)]} of the members whose comments mention the code."""
    found = collections.defaultdict(dict)
    for family in the_api.families.values():
        for scope in family.scopes:
            items = [(scope.name, scope.anchor, scope.doc)]
            items += [(f"{scope.name}::{item.name}".removeprefix("::"), item.anchor, item.doc) for item in scope.items()
                      if isinstance(item, api.Member)]
            for name, anchor, doc in items:
                for text in re.findall(r"error(?:\.\w+)+", doc):
                    if name:
                        found[text].setdefault(name, relative(f"{family.page}#{anchor}", error_codes.PAGE))
    return {text: list(places.items()) for text, places in found.items()}


def main():
    site = Site(ROOT / "build/docs/site", version())
    shutil.rmtree(site.folder, ignore_errors=True)
    the_api, codes = api.load(ROOT), error_codes.read(ROOT)
    targets = resolver(the_api, codes)
    pages = guide.Guide(ROOT, site, targets)
    pages.build(pathlib.Path(sys.argv[1]))
    performance.add_to(site, ROOT)
    parts = reference.Reference(the_api, site, targets)
    site.section("Reference", [("reference/index.html", "Overview"), ("reference/names.html", "All names")])
    error_codes.build(ROOT, site, parts.writer, described_by(the_api, codes))
    parts.build()
    site.write()
    shutil.copytree(ASSETS, site.folder / "assets")
    index = json.dumps(site.entries, ensure_ascii=False, separators=(",", ":")).replace("</", "<\\/")
    (site.folder / "assets/search-index.js").write_text(f"const searchIndex={index};\n")
    print(f"{len(site.pages)} pages, {len(site.entries)} names to search")


if __name__ == "__main__":
    main()

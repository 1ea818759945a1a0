"""The frame of every page: title, search, navigation."""
import html
import posixpath
import re

TEMPLATE = """<!doctype html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="color-scheme" content="light dark">
<title>{title}</title>
<link rel="stylesheet" href="{root}assets/style.css">
</head>
<body data-root="{root}">
<a class="skip" href="#content">To the content</a>
<header>
<a class="home" href="{root}index.html">nqcore <span>{version}</span></a>
<div class="search" role="search">
<input type="search" id="search" placeholder="Search" aria-label="Search" autocomplete="off">
<ol id="results" hidden></ol></div>
</header>
<div class="columns">
<nav aria-label="Pages"><details id="menu"><summary>Pages</summary>
{navigation}
</details></nav>
<main id="content">
{body}
</main>
</div>
<script src="{root}assets/search-index.js"></script>
<script src="{root}assets/search.js"></script>
</body>
</html>
"""


class Site:
    """Collects the pages and what the search finds, then writes them."""

    def __init__(self, folder, version):
        self.folder, self.version = folder, version
        self.pages, self.sections, self.entries = {}, [], []

    def add(self, path, title, body):
        self.pages[path] = (title, body)

    def section(self, title, rows):
        """A part of the navigation: rows of (path, title)."""
        self.sections.append((title, rows))

    def searchable(self, name, kind, path, summary=""):
        self.entries.append([name, kind, path, summary])

    def _navigation(self, page, root):
        out = []
        for title, rows in self.sections:
            links = "".join(f'<li><a href="{root}{path}"{" aria-current=page" if path == page else ""}>'
                            f"{html.escape(name)}</a></li>" for path, name in rows)
            out.append(f"<h2>{html.escape(title)}</h2><ul>{links}</ul>")
        return "\n".join(out)

    def write(self):
        for path, (title, body) in self.pages.items():
            root = "../" * path.count("/")
            full = title if title == "nqcore" else f"{title} · nqcore"
            file = self.folder / path
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(TEMPLATE.format(title=html.escape(full), root=root, version=self.version, body=body,
                                            navigation=self._navigation(path, root)))


def relative(target, page):
    """A link from `page` to `target`, both from the root of the site."""
    if re.match(r"[a-z]+:|#", target):
        return target
    path, mark, fragment = target.partition("#")
    if path == page and mark:
        return mark + fragment
    return posixpath.relpath(path, posixpath.dirname(page) or ".") + mark + fragment

"""The guide: the pages of doc/ as HTML, with the example programs where a paragraph is a link to one."""
import html
import pathlib
import posixpath
import re
import subprocess

import markdown

import highlight
from page import relative

# (file in doc/, title in the navigation), in reading order.
PAGES = [("errors", "Errors"), ("async", "Asynchronous results"), ("time", "Time"), ("clocks", "Clocks"),
         ("text", "Text"), ("identifiers", "Identifiers"), ("processor", "Processor"),
         ("scheduling", "Priorities and affinity"), ("diagnostics", "Diagnostics"), ("process", "Process"),
         ("lifetime", "Start and stop"), ("integration", "With other tools"), ("formats", "Text formats"),
         ("porting", "Porting"), ("performance", "Performance"), ("architecture", "Architecture"),
         ("packages", "Packages"), ("versions", "Versions")]
GENERATED = [("guide/error-codes.html", "Error codes"), ("guide/nq.html", "The tool nq"),
             ("guide/changes.html", "Changes")]
EXTENSIONS = ["tables", "fenced_code", "toc", "codehilite", "sane_lists"]
SETTINGS = {"codehilite": {"guess_lang": False, "css_class": "code"}}
EXAMPLE = re.compile(r'<p><a href="\.\./(examples/guide/\w+\.cpp)">[^<]*</a></p>')

# A name in code that is not part of a link or of a block of code.
NAME = re.compile(r"<a\b.*?</a>|<pre.*?</pre>|<h1.*?</h1>|<code>([^<]+)</code>", re.S)


class Guide:
    def __init__(self, root, site, targets):
        self.root, self.site, self.targets = root, site, targets
        self.sources = set()    # files of the tree that pages link to

    def build(self, manual_page):
        self.site.section("Guide", [(f"guide/{name}.html", title) for name, title in PAGES] + GENERATED)
        for name, title in PAGES:
            self._page(f"guide/{name}.html", title, self.root / f"doc/{name}.md")
        self._page("guide/changes.html", "Changes", self.root / "CHANGELOG.md")
        self._page("index.html", "nqcore", self.root / "README.md", self._start())
        self._tool(manual_page)
        for path in sorted(self.sources):
            text = (self.root / path).read_text()
            language = highlight.LANGUAGES.get(pathlib.Path(path).suffix[1:], "text")
            self.site.add(f"source/{path}.html", path, f"<h1><code>{path}</code></h1>{highlight.block(text, language)}")

    def _start(self):
        links = "".join(f'<li><a href="guide/{name}.html">{title}</a></li>' for name, title in PAGES)
        more = "".join(f'<li><a href="{path}">{title}</a></li>' for path, title in GENERATED)
        return (f'<h2 id="guide">Guide</h2><ul class="contents">{links}{more}</ul>'
                '<p><a href="reference/index.html">Reference</a>: every public header, and '
                '<a href="reference/names.html">all names</a>.</p>')

    def _page(self, page, title, file, more=""):
        body = markdown.markdown(file.read_text(), extensions=EXTENSIONS, extension_configs=SETTINGS)
        body = EXAMPLE.sub(lambda match: self._example(match[1]), body)
        body = re.sub(r'href="([^"]+)"', lambda match: f'href="{self._link(match[1], file, page)}"', body)
        body = NAME.sub(lambda match: self._name(match[1], page) if match[1] else match[0], body)
        body = re.sub(r"<table>.*?</table>", lambda match: stacked(match[0]), body, flags=re.S)
        body = body.replace("<pre>", '<pre tabindex="0">')
        self.site.add(page, title, body + more)
        self.site.searchable(title, "guide", page)
        for identity, heading in re.findall(r'<h[23] id="([^"]+)">(.*?)</h[23]>', body):
            self.site.searchable(f"{title}: {plain(heading)}", "guide", f"{page}#{identity}")

    def _name(self, text, page):
        target = self.targets(text)
        code = f"<code>{text}</code>"
        return f'<a href="{relative(target, page)}">{code}</a>' if target else code

    def _example(self, path):
        program, output = self.root / path, (self.root / path).with_suffix(".txt")
        return (highlight.block(program.read_text().rstrip("\n"), "cpp") + '<p class="output">It prints</p>'
                + highlight.block(output.read_text().rstrip("\n")))

    def _link(self, target, file, page):
        if re.match(r"[a-z]+:|#", target):
            return target
        path, mark, fragment = target.partition("#")
        path = posixpath.normpath(posixpath.join(str(file.parent.relative_to(self.root)), path))
        if re.fullmatch(r"doc/\w+\.md", path):
            return relative(f"guide/{path[4:-3]}.html{mark}{fragment}", page)
        self.sources.add(path)
        return relative(f"source/{path}.html", page)

    def _tool(self, manual_page):
        converted = subprocess.run(["mandoc", "-T", "html", "-O", "fragment", str(manual_page)], check=True,
                                   capture_output=True, text=True).stdout
        body = re.sub(r'<table class="(head|foot)">.*?</table>', "", converted, flags=re.S)
        body = body.replace("<h1 ", "<h2 ").replace("</h1>", "</h2>").replace("<pre>", '<pre tabindex="0">')
        self.site.add("guide/nq.html", "The tool nq", f'<h1>nq</h1><div class="manual">{body}</div>')
        self.site.searchable("nq: the tool", "guide", "guide/nq.html")
        for identity, heading in re.findall(r'<h2 class="Sh" id="([^"]+)"><a[^>]*>(.*?)</a></h2>', body):
            self.site.searchable(f"nq: {html.unescape(heading).lower()}", "guide", f"guide/nq.html#{identity}")


def plain(text):
    return html.unescape(re.sub("<[^>]+>", "", text))


def stacked(table):
    """A table whose rows become blocks on a narrow screen: each cell knows its column's heading."""
    headings = [html.escape(plain(text)) for text in re.findall(r"<th[^>]*>(.*?)</th>", table, re.S)]

    def row(match):
        cells = iter(headings)
        return re.sub(r"<td[^>]*>", lambda _: f'<td data-label="{next(cells, "")}">', match[0])
    return re.sub(r"<tr>.*?</tr>", row, table, flags=re.S).replace("<table>", '<table class="stacked">')

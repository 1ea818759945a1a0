"""The reference: a page for each public header, grouped by subject, and an index of all names."""
import fnmatch
import html
import re
import sys

import api
import comment
from page import relative

# Each public header is under exactly one subject; patterns of fnmatch.
SUBJECTS = [
    ("Errors", "error_code error_params error_composer error_builder error_info error_exception error_or safe_cast "
               "error_code_catalogue fault_report"),
    ("Asynchronous results", "result future result_control async_result result_callback result_inner "
                             "result_auto_signal future_await barrier task after_signal result_errors result_value"),
    ("Time", "abs_rel_time simple_date_time utc_text duration_text monotonic_time scheduler time_chrono ace_timeout"),
    ("Text", "ucsutil string_to string_util transforms streamers string_stream_buf"),
    ("Identifiers", "uuid object_key random murmur_hash"),
    ("Processor and threads", "cpu cpu_info cpu_flags cpuid_source cpuid_dump cpu_option_flag affinity priority "
                              "thread_sync thread_id"),
    ("Diagnostics", "stack_trace assertion main_intercept"),
    ("Process", "process_info"),
    ("Foundations", "refcounted refcount_guard weak_ref_ptr interface_ptr atomic_op transfer_source source_string "
                    "source_location string_range string_trace_data static_instance lifetime windows_types config "
                    "thin_vector ace_storage nqcore nqmoduleregistry/*"),
    ("For tests, debuggers and other libraries", "testing/* format_*"),
]


def subject_of(header):
    name = header.removeprefix("nqcore/").removesuffix(".h")
    found = [title for title, patterns in SUBJECTS
             if any(fnmatch.fnmatch(name, pattern) for pattern in patterns.split())]
    if len(found) != 1:
        sys.exit(f"{header}: is under {len(found)} subjects of scripts/docs/reference.py, not one")
    return found[0]


class Reference:
    def __init__(self, the_api, site, targets):
        self.api, self.site, self.targets = the_api, site, targets

    def writer(self, page):
        def resolve(text):
            target = self.targets(text)
            return relative(target, page) if target else None
        return comment.Writer(resolve)

    def build(self):
        by_subject = {title: [] for title, _ in SUBJECTS}
        for header, family in self.api.families.items():
            by_subject[subject_of(header)].append(family)
            self.site.add(family.page, header, self._page(family))
            self.site.searchable(header, "header", family.page, comment.summary(family.intro))
        rank = {name: number for _, names in SUBJECTS for number, name in enumerate(names.split())}
        for families in by_subject.values():
            families.sort(key=lambda family: (rank.get(family.name.removeprefix("nqcore/"), 99), family.name))
        for title, families in by_subject.items():
            if families:
                rows = [(family.page, family.name.split("/")[-1]) for family in families]
                self.site.section(f"Reference: {title}", rows)
        self._overview(by_subject)
        self._index()

    def _overview(self, by_subject):
        page, out = "reference/index.html", ["<h1>Reference</h1>", '<p><a href="names.html">All names</a></p>']
        writer = self.writer(page)
        for title, families in by_subject.items():
            if families:
                rows = "".join(f'<div><dt><a href="{relative(family.page, page)}"><code>{family.header}</code></a></dt>'
                               f"<dd>{writer.inline(comment.summary(family.intro))}</dd></div>" for family in families)
                out.append(f'<h2>{title}</h2><dl class="wide">{rows}</dl>')
        self.site.add(page, "Reference", "\n".join(out))

    def _index(self):
        names = sorted(((name, kind, path) for name, kind, path, _ in self.site.entries if kind != "header"),
                       key=lambda row: (initial(row[0]), row[0].split("::")[-1].lower(), row[0]))
        out, letter = ["<h1>All names</h1>"], None
        for name, kind, path in names:
            first = initial(name)
            if first != letter:
                identity = first if first != "#" else "signs"
                out.append(("</ul>" if letter else "") + f'<h2 id="{identity}">{first}</h2><ul class="names">')
                letter = first
            inner, last = name.rpartition("::")[::2]
            out.append(f'<li><a href="{relative(path, "reference/names.html")}"><code>{html.escape(last)}</code></a>'
                       + (f" <small>{html.escape(inner)}</small>" if inner else f" <small>{kind}</small>") + "</li>")
        self.site.add("reference/names.html", "All names", "\n".join(out) + "</ul>")

    def _page(self, family):
        writer = self.writer(family.page)
        out = [f'<h1><code>{family.header}</code></h1>', writer.blocks(family.intro)]
        contents = [f'<li><a href="#{scope.anchor}">{html.escape(title_of(scope))}</a></li>' for scope in family.scopes]
        if len(contents) > 1:
            out.append(f'<ul class="contents">{"".join(contents)}</ul>')
        for scope in family.scopes:
            out.append(self._scope(family, scope, writer))
        if family.specialisations:
            names = ", ".join(f"<code>{html.escape(name.replace('< ', '<').replace(' >', '>'))}</code>"
                              for name in sorted(family.specialisations))
            out.append(f"<p>Specialised here: {names}.</p>")
        if not family.scopes:
            out.append("<p>Nothing in it is for users to name.</p>")
        return "\n".join(out)

    def _scope(self, family, scope, writer):
        out = [f'<section><h2 id="{scope.anchor}">{html.escape(title_of(scope))}</h2>']
        if scope.declaration:
            out.append(self._declaration([(scope.declaration, "")], family.page))
            self.site.searchable(scope.name, scope.kind, f"{family.page}#{scope.anchor}", comment.summary(scope.doc))
        out.append(writer.blocks(scope.doc))
        self._entries(scope, scope.items(), writer, family.page, out)
        if scope.inherited:
            out.append("<h3>From its bases</h3>")
            self._entries(scope, scope.inherited, writer, family.page, out)
        return "\n".join(out) + "</section>"

    def _entries(self, scope, items, writer, page, out):
        for group in grouped(items):
            if isinstance(group, api.Note):
                out.append(f'<div class="note">{writer.blocks(group.text)}</div>')
                continue
            out.append('<div class="entry">')
            out.append(self._declaration([(member.declaration, member.anchor) for member in group], page))
            out.append(writer.blocks(group[0].doc))
            out.append(values_of(group[0], writer))
            out.append("</div>")
            for member in group:
                if member.name.startswith("~"):
                    continue
                full = f"{scope.name}::{member.name}" if scope.name else member.name
                kind = {"define": "macro", "friend": "function"}.get(member.kind, member.kind)
                self.site.searchable(full, kind, f"{page}#{member.anchor}", comment.summary(group[0].doc))

    def _declaration(self, rows, page):
        out = []
        for text, anchor in rows:
            code = html.escape(text, quote=False)
            code = re.sub(r"\b[A-Z]\w+(?:::\w+)*\b", lambda match: self._linked(match[0], page), code)
            out.append(f'<span class="row"{f" id={chr(34)}{anchor}{chr(34)}" if anchor else ""}>{code}</span>')
        return f'<pre class="decl" tabindex="0"><code>{"".join(out)}</code></pre>'

    def _linked(self, name, page):
        target = self.api.targets.get(name)
        return f'<a href="{relative(target, page)}">{name}</a>' if target else name


def initial(name):
    letter = name.split("::")[-1][:1].upper()
    return letter if letter.isalpha() else "#"


def title_of(scope):
    if scope.kind == "file":
        return "Macros"
    if scope.kind == "namespace":
        return f"Functions and types in {scope.name}" if scope.name else "Functions and types"
    return f"{scope.kind} {scope.name}"


def grouped(items):
    """Notes, and lists of members that share the first one's comment."""
    group = []
    for item in items:
        is_member = isinstance(item, api.Member)
        shares = is_member and group and not item.doc and (
            item.name == group[-1].name or (not group[0].doc and item.kind == group[-1].kind)) and not item.values
        if shares:
            group.append(item)
            continue
        if group:
            yield group
        group = [item] if is_member else []
        if not is_member:
            yield item
    if group:
        yield group


def values_of(member, writer):
    if not member.values:
        return ""
    rows = "".join(f"<div><dt><code>{html.escape(name)}</code> <small>{html.escape(value)}</small></dt>"
                   f"<dd>{writer.inline(' '.join(doc.split()))}</dd></div>" for name, value, doc in member.values)
    return f'<dl class="values">{rows}</dl>'

"""Doc comments as HTML: paragraphs, labelled lines as a definition list, indented text as code."""
import html
import re

import highlight

LABELS = "In Out Returns Units Range Errors Threads Lifetime Cost Source Example".split()
LABEL = re.compile(r"(%s)\s+(.*)" % "|".join(LABELS))
TERM = re.compile(r"([A-Z][A-Z0-9_]{4,})\s{2,}(.*)")    # a macro or variable, explained
CODE_MARGIN = "    "


class Writer:
    """Writes comments of the page `page`; `resolve(text)` gives the target of a name, a header or a guide page."""

    def __init__(self, resolve):
        self.resolve = resolve

    def inline(self, text):
        """One paragraph: `code`, links to what is named."""
        parts = re.split(r"(`[^`]+`)", text)
        return "".join(self.code(part[1:-1]) if part.startswith("`") else self._plain(part) for part in parts)

    def code(self, text):
        target = self.resolve(text)
        code = f"<code>{html.escape(text, quote=False)}</code>"
        return f'<a href="{target}">{code}</a>' if target else code

    def _plain(self, text):
        def linked(match):
            target = self.resolve(match[0])
            return f'<a href="{target}">{match[0]}</a>' if target else match[0]
        return re.sub(r"error(?:\.[A-Za-z][\w]*)+|nqcore/\w+\.h|doc/\w+\.md|NQCORE_\w+", linked,
                      html.escape(text, quote=False))

    def blocks(self, text):
        """The whole of a comment."""
        out, terms = [], []
        for kind, content in parse(text):
            if terms and kind != "label":
                out.append(definition_list(terms))
                terms = []
            if kind == "label":
                terms.append((content[0], self.inline(content[1])))
            elif kind == "code":
                out.append(highlight.block(content, "cpp" if looks_like_code(content) else "text"))
            elif kind == "heading":
                out.append(f"<h3>{self.inline(content[:1].upper() + content[1:])}</h3>")
            elif kind == "list":
                out.append("<ul>" + "".join(f"<li>{self.inline(item)}</li>" for item in content) + "</ul>")
            else:
                out.append(f"<p>{self.inline(content)}</p>")
        if terms:
            out.append(definition_list(terms))
        return "\n".join(out)


def definition_list(terms):
    rows = "".join(f'<div><dt>{html.escape(term)}</dt><dd>{text}</dd></div>' for term, text in terms)
    return f'<dl class="facts">{rows}</dl>'


def looks_like_code(text):
    return re.search(r"[;{}]\s*(//.*)?$", text, re.M) is not None and "--" not in text.replace("--;", "")


def parse(text):
    """(kind, content) of each block: paragraph, label (term and text), code, list, heading."""
    lines, at = text.split("\n"), 0
    while at < len(lines):
        line = lines[at]
        label = LABEL.match(line) or TERM.match(line)
        if not line.strip():
            at += 1
        elif line.startswith("## "):
            yield "heading", line[3:]
            at += 1
        elif line.startswith(CODE_MARGIN):
            end = at
            while end < len(lines) and (lines[end].startswith(CODE_MARGIN) or not lines[end].strip()):
                end += 1
            rows = [row[len(CODE_MARGIN):] for row in lines[at:end]]
            yield "code", "\n".join(rows).strip("\n")
            at = end
        elif label:
            margin, words = label.start(2), [label[2]]
            at += 1
            while at < len(lines) and lines[at].startswith(" " * min(margin, 9)) and lines[at].strip():
                words.append(lines[at].strip())
                at += 1
            yield "label", (label[1], " ".join(words))
        elif re.match(r" *- ", line):
            items = []
            while at < len(lines) and re.match(r" *- | {2,}\S", lines[at]):
                if re.match(r" *- ", lines[at]):
                    items.append(lines[at].strip()[2:])
                else:
                    items[-1] += " " + lines[at].strip()
                at += 1
            yield "list", items
        else:
            words = []
            while at < len(lines) and lines[at].strip() and not lines[at].startswith(CODE_MARGIN) and \
                    not LABEL.match(lines[at]) and not re.match(r"  ?- ", lines[at]):
                words.append(lines[at].strip())
                at += 1
            yield "paragraph", " ".join(words)


def summary(text):
    """The first sentence, plain, for lists and the search."""
    for kind, content in parse(text):
        if kind == "paragraph":
            sentence = re.split(r"(?<=[.;])\s", content + " ")[0]
            return sentence.replace("`", "").rstrip(":;. ")
    return ""

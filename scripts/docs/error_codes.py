"""Every error code with its messages, parameters and raisers, as the sources have them.

A raising site is a mention of the code's constant. Its message and its place stand in the same piece of code, or come
as arguments: then those of the function's callers in the same file count.
"""
import collections
import dataclasses
import html
import re
import sys

import comment

TEXT = re.compile(r'"(?:[^"\\]|\\.)*"')
TEXTS = r'"(?:[^"\\]|\\.)*"(?:\s*"(?:[^"\\]|\\.)*")*'
# The ways to declare a message: type, name, text, names of parameters. What is [[maybe_unused]] is not raised.
DECLARATIONS = [re.compile(pattern % {"texts": TEXTS}) for pattern in (
    r"(?<!\]\] )constexpr (ErrorTemplate|\w*Message) (s_\w+)\s*[{(]\s*(%(texts)s)((?:\s*,\s*%(texts)s)*)",
    r"(?<!\]\] )constexpr (\w*Message) (s_\w+) =\s*\w+\(\s*(%(texts)s)()",
    r"constexpr (auto) (s_\w+) =\s*ErrorTemplate<\d+>::unchecked\((%(texts)s)((?:\s*,\s*%(texts)s)*)",
    r"constexpr (char|const char\*) (s_\w+)(?:\[\])? =\s*(%(texts)s)()")]
FUNCTION_NAME = re.compile(r"nqcore::[\w:~<>]+\(\)$")
CODE = re.compile(r"\berror::((?:nqcore|exception)\w*)\b")
FUNCTION = re.compile(r"([\w~:]+)\s*\([^;]*\)[^;(){}]*(?:: .*)?$", re.S)
RAISER = re.compile(r"error|raise|throw|deliver|fail|check|set_or_throw")    # what is called with messages and places
KEYWORDS = {"if", "for", "while", "switch", "catch"}
# Where messages are not written but passed on.
PASSED_ON = {"error_from_exception.cpp": ("nqcore::ErrorInfo::from_exception()", "{what() of the exception}")}


@dataclasses.dataclass
class Code:
    constant: str
    text: str
    group: str
    messages: dict = dataclasses.field(default_factory=dict)    # message -> names of parameters
    raisers: dict = dataclasses.field(default_factory=dict)     # function -> source file
    files: set = dataclasses.field(default_factory=set)


@dataclasses.dataclass
class Piece:
    """Code between two of ; { }, and the function around it."""
    text: str
    function: str
    header: str


def joined(texts):
    return "".join(part[1:-1] for part in TEXT.findall(texts)).replace('\\"', '"').replace("\\n", "\n")


def without_comments(source):
    """Characters go too: there are quotes and braces among them."""
    token = re.compile(r'("(?:[^"\\\n]|\\.)*")|\'(?:[^\'\\\n]|\\.)\'|//[^\n]*|/\*.*?\*/', re.S)
    return token.sub(lambda match: match[1] or ("0" if match[0].startswith("'") else ""), source)


def pieces_of(source):
    masked = TEXT.sub(lambda match: '"' + "x" * (len(match[0]) - 2) + '"', source)
    stack, begin, parentheses = [], 0, 0
    for at, character in enumerate(masked):
        parentheses += {"(": 1, ")": -1}.get(character, 0)
        if character not in ";{}" or parentheses > 0:
            continue
        text = source[begin:at]
        yield Piece(text, *next((entry for entry in reversed(stack) if entry[0]), ("", "")))
        if character == "{":
            match = FUNCTION.search(masked[begin:at])
            name = match[1].split("::")[-1] if match else ""
            stack.append(("" if name in KEYWORDS else name, text))
        elif character == "}" and stack:
            stack.pop()
        begin = at + 1


class Source:
    def __init__(self, path):
        self.path = path
        text = without_comments(path.read_text())
        self.templates, self.types = {}, collections.defaultdict(list)
        for declaration in DECLARATIONS:
            for kind, name, message, names in declaration.findall(text):
                self.templates[name] = (joined(message), [joined(part) for part in TEXT.findall(names)])
                self.types[kind].append(name)
        self.pieces = list(pieces_of(text))

    def messages(self, piece):
        """{message: names of parameters} in a piece of code."""
        text = piece.text
        named = [name for name in self.templates if re.search(rf"\b{name}\b", text)]
        # A message that was handed in may be any of its type.
        for variable in re.findall(r"(\w+)\.compose\(", text):
            for kind in re.findall(rf"(\w+Message)& {variable}\b", piece.header):
                named += self.types[kind]
        found = {message: names for message, names in (self.templates[name] for name in named)
                 if not FUNCTION_NAME.match(message)}
        if found:
            params = re.findall(r'\.param\("(\w+)"', text)
            return {message: names or params or re.findall(r"{@(\w+)}", message) for message, names in found.items()}
        rest = re.sub(r'\.param\("\w+"', "", text)
        literals = [joined(match[0]) for match in re.finditer(TEXTS, rest)]
        return {text: re.findall(r"{@(\w+)}", text) for text in literals
                if len(text) > 3 and not FUNCTION_NAME.match(text)}

    def places(self, piece):
        literals = [joined(text) for text in TEXT.findall(piece.text)]
        named = [message for name, (message, _) in self.templates.items() if re.search(rf"\b{name}\b", piece.text)]
        return {text: [] for text in literals + named if FUNCTION_NAME.match(text)}


def lookup(sources, source, piece, find, seen=frozenset()):
    """What `find` finds in the piece, else with the callers of its function: those in its file, or in any."""
    found = find(source, piece)
    if found or len(seen) > 2 or piece.function in seen or not RAISER.search(piece.function):
        return found
    call = re.compile(rf"\b{re.escape(piece.function)}\(")
    for candidates in ([source], [other for other in sources if other is not source]):
        callers = [(other, caller) for other in candidates for caller in other.pieces
                   if caller.function and caller.function != piece.function and call.search(caller.text)]
        for other, caller in callers:
            found = {**found, **lookup(sources, other, caller, find, seen | {piece.function})}
        if callers:
            break
    return found


def read(root):
    """Codes by constant, in the order of the catalogue."""
    catalogue = (root / "pub/inc/core/nqcore/error_code_catalogue.h").read_text()
    codes, group = {}, ""
    for match in re.finditer(r'#define NQCORE_ERROR_CATALOGUE_(\w+)|ROW\((\w+), "([^"]+)"\)', catalogue):
        group = match[1] or group
        if match[2] and group:
            codes[match[2]] = Code(match[2], match[3], group)
    files = sorted((root / "int/src/nqcore").rglob("*.cpp")) + sorted((root / "pub/inc/core/nqcore").glob("*.h"))
    skipped = ("error_errno.cpp", "error_code.cpp", "error_code_catalogue.h")
    sources = [Source(path) for path in files if path.name not in skipped]
    for source in sources:
        read_source(source, sources, codes)
    return codes


def read_source(source, sources, codes):
    name = source.path.name
    for piece in source.pieces:
        for constant in CODE.findall(re.sub(r"matches\([^)]*\)", "", piece.text)):
            if constant not in codes:
                continue
            code = codes[constant]
            code.files.add(name)
            function, message = PASSED_ON.get(name, ("", ""))
            code.messages.update(lookup(sources, source, piece, Source.messages) or ({message: []} if message else {}))
            for place in lookup(sources, source, piece, Source.places) or ([function] if function else []):
                code.raisers[place] = name


def errno_rows(root):
    """(number on win32, number on linux, constant, message)."""
    text = (root / "int/src/nqcore/error_errno.cpp").read_text()
    row = re.compile(r'\{(\w+), (?:ErrnoRow::)?(\w+), &error::(\w+), (%s)\}' % TEXTS)
    return [(win32, linux, constant, joined(message)) for win32, linux, constant, message in row.findall(text)]


NUMBERED = {"error.errno": "ErrorInfo::from_errno", "error.os.windows": "ErrorInfo::from_winerror_nomap"}
GROUPS = [("OWN", "The library's own"), ("EXCEPTIONS", "Exceptions"), ("ROOTS", "Families of the systems")]
PAGE = "guide/error-codes.html"


def anchor(code):
    return code.removeprefix("error.") if code != "error" else code


def build(root, site, writer_for, described_by):
    """Writes the page. `described_by`: {code text: [(name, target)]} of the doc comments that mention it."""
    codes = read(root)
    silent = [code.text for code in codes.values() if code.files and not code.messages]
    if silent:
        sys.exit(f"scripts/docs/error_codes.py finds no message of what is raised: {', '.join(silent)}")
    writer = writer_for(PAGE)
    families = {code.text.rpartition(".")[0] for code in codes.values()}
    out = ["<h1>Error codes</h1>",
           "<p>Made from the sources: what each code means is what its messages say. A code stands for all below it "
           'when it is matched: <code>matches("error.nqcore.string")</code> is true for all that begin with it, '
           'segment by segment (<a href="errors.html">errors</a>).</p>',
           '<ul class="contents">'
           + "".join(f'<li><a href="#{group.lower()}">{title}</a></li>' for group, title in GROUPS)
           + '<li><a href="#numbers">Numbers of the C runtime</a></li></ul>']
    for group, title in GROUPS:
        out.append(f'<h2 id="{group.lower()}">{title}</h2>')
        for code in (code for code in codes.values() if code.group == group):
            out.append(_entry(code, code.text in families, writer, described_by.get(code.text, [])))
            site.searchable(code.text, "error code", f"{PAGE}#{anchor(code.text)}", "; ".join(list(code.messages)[:1]))
    out.append(_numbers(root, codes, site))
    site.add(PAGE, "Error codes", "\n".join(out))
    return codes


def _entry(code, is_family, writer, described):
    rows = [("Constant", f"<code>nqcore::error::{code.constant}</code>")]
    if code.messages:
        shown = "".join(f"<li>{html.escape(text, quote=False)}</li>" for text in code.messages)
        rows.append(("Message", f'<ul class="plain">{shown}</ul>'))
    parameters = list(collections.OrderedDict.fromkeys(name for names in code.messages.values() for name in names))
    if parameters:
        rows.append(("Parameters", ", ".join(f"<code>{name}</code>" for name in parameters)))
    if code.raisers or code.files:
        names = [writer.code(name) for name in code.raisers] or [f"<code>{file}</code>" for file in sorted(code.files)]
        rows.append(("Raised by", ", ".join(names)))
    elif code.text in NUMBERED:
        rows.append(("Raised by", f"{writer.code(NUMBERED[code.text])}, with the number or its name behind it"))
    else:
        why = ": a family, to match those below it" if is_family else ""
        rows.append(("Raised by", "nothing in the library" + why))
    if described:
        rows.append(("Described at", ", ".join(f'<a href="{target}"><code>{html.escape(name)}</code></a>'
                                               for name, target in described)))
    return (f'<section class="entry"><h3 id="{anchor(code.text)}"><code>{code.text}</code></h3>'
            f"{comment.definition_list(rows)}</section>")


COLUMNS = ("code", "win32", "linux", "message")


def _numbers(root, codes, site):
    rows, listed = [], set()

    def add(code, *cells):
        identity = "" if code in listed else f' id="{anchor(code)}"'
        if code not in listed:
            site.searchable(code, "error code", f"{PAGE}#{anchor(code)}", cells[-1])
        listed.add(code)
        shown = [f"<code>{code}</code>"] + [html.escape(cell.strip()) for cell in cells]
        rows.append(f"<tr{identity}>" + "".join(f'<td data-label="{label}">{cell}</td>'
                                                for label, cell in zip(COLUMNS, shown)) + "</tr>")

    for win32, linux, constant, message in errno_rows(root):
        numbers = ["" if number in ("none", "wouldBlockNumber") else number for number in (win32, linux)]
        add(codes[constant].text, *numbers, message)
    for code in codes.values():
        if code.group == "ERRNO" and code.text not in listed:
            add(code.text, "", "", "has no number here")
    head = "".join(f"<th>{label}</th>" for label in COLUMNS)
    return ('<h2 id="numbers">Numbers of the C runtime</h2><p>What <code>ErrorInfo::from_errno</code> makes of one. '
            "The socket numbers from 10035 on are known on linux too, for records that travelled.</p>"
            f'<table class="stacked"><thead><tr>{head}</tr></thead><tbody>{"".join(rows)}</tbody></table>')

"""What the public headers offer, read from Doxygen's XML; declarations and section comments come from the headers."""
import copy
import dataclasses
import pathlib
import re
import xml.etree.ElementTree as ElementTree

KINDS = {"function", "variable", "typedef", "enum", "define", "friend"}
HIDDEN_NAMESPACE = re.compile(r"(^|::)(impl|std)(::|$)")
HIDDEN_MACRO = re.compile(r"NQCORE_(IMPL_|DECLARE_|DEFINE_)|_ACCESSOR$")
# Says how the library is built, not how it is used.
NOISE = re.compile(r"\b(NQCORE_API|NQCORE_TEMPLATE_API|NQCORE_COLD)\b ?|\[\[nodiscard\]\] ?|^inline |(?<=[ >])inline ")


@dataclasses.dataclass
class Member:
    kind: str
    name: str
    line: int
    doc: str
    declaration: str
    is_shown: bool
    values: list = dataclasses.field(default_factory=list)  # of an enum: (name, value, doc)
    anchor: str = ""


@dataclasses.dataclass
class Note:
    """A plain comment that heads the members behind it."""
    line: int
    text: str


@dataclasses.dataclass
class Scope:
    """A class, or a namespace's share of one header."""
    name: str
    kind: str
    line: int
    doc: str
    declaration: str
    members: list
    last_line: int = 0
    notes: list = dataclasses.field(default_factory=list)
    inherited: list = dataclasses.field(default_factory=list)    # members of bases that have no page
    anchor: str = ""

    def items(self):
        """Notes and shown members in the order of the header; a note counts when the member behind it does."""
        everything = sorted(self.members + self.notes, key=lambda item: item.line)
        for item, behind in zip(everything, everything[1:] + [None]):
            if isinstance(item, Member) and item.is_shown:
                yield item
            elif isinstance(item, Note) and isinstance(behind, Member) and behind.is_shown:
                yield item


@dataclasses.dataclass
class Family:
    """One public header."""
    header: str    # nqcore/uuid.h
    intro: str
    scopes: list
    specialisations: list

    @property
    def name(self):
        return self.header.removesuffix(".h")

    @property
    def page(self):
        return "reference/" + self.name.replace("/", "-") + ".html"


class Header:
    """A header's text: comments and declarations by their lines."""

    def __init__(self, path):
        self.lines = path.read_text().split("\n")

    def intro(self):
        comment = []
        for line in self.lines:
            if not line.startswith("//"):
                break
            comment.append(line[2:])
        return strip_margin(comment)

    def declaration(self, line):
        """The declaration whose name stands in `line`, as it is written there, without its body."""
        first, constraint = line - 1, ""
        if self.lines[first - 1].strip() == "}":    # of a requires-expression, which says more than a reader wants
            start = next((row for row in range(first - 2, max(first - 12, 0), -1)
                          if re.match(r"\s*requires requires", self.lines[row])), 0)
            constraint = self.lines[start - 1].strip() + "    // constrained\n" if start else ""
        while first > 0 and self._goes_on(self.lines[first - 1]):
            first -= 1
        text, depth = "", 0
        for character in "\n".join(self.lines[first:first + 30]):
            if depth == 0 and (character == ";" or character == "{"):
                break
            depth += {"(": 1, ")": -1, "[": 1, "]": -1}.get(character, 0)
            text += character
        text = re.sub(r"///<.*|(?<=[;,\s])//.*", "", text)
        margin = len(text) - len(text.lstrip())
        text = "\n".join(row[margin:] if not row[:margin].strip() else row for row in text.split("\n"))
        # What a constructor does with its members is its own affair.
        text = re.sub(r"\n\s+: .*|(?<=[)t]) : \w+\(.*", "", text, flags=re.S)
        return constraint + NOISE.sub("", text).rstrip()

    @staticmethod
    def _goes_on(line):
        """Whether a declaration that stands behind `line` began there."""
        text = line.split("//")[0].rstrip()
        return bool(text) and not text.endswith((";", "{", "}", ":", "\\")) and not text.lstrip().startswith("#") or \
            bool(re.match(r"\s*\{ .* \} -> .*;$|\s*requires .*;$|\s*requires requires.*\{$", text))

    def macro(self, line):
        return re.sub(r"#\s*define\s+", "#define ", self.lines[line - 1].strip()).removesuffix("\\").strip()

    def notes(self, bodies):
        """The plain comments that are not inside of one of the line ranges `bodies`, as Notes."""
        found, block, first = [], [], 0
        for number, line in enumerate(self.lines + [""], 1):
            match = re.match(r" *//(?!/)(.*)", line)
            if match:
                first = first if block else number
                block.append(re.sub(r"^ -{10,} (.*)$", r"## \1", match[1]))
            elif block:
                if first > 1 and not any(low < first <= high for low, high in bodies):
                    found.append(Note(first, strip_margin(block)))
                block = []
        return found


def strip_margin(lines):
    return "\n".join(line[1:] if line.startswith(" ") else line for line in lines).strip("\n")


def doc_of(element):
    text = "".join(node.text or "" for node in element.findall("detaileddescription/para/verbatim"))
    text = text.rstrip()
    first, *others = text.split("\n")
    return strip_margin([" " + first.strip()] + [re.sub(r"^\s*///", "", row) for row in others])


def read_member(element, header, scope=""):
    location, kind, name = element.find("location"), element.get("kind"), element.findtext("name")
    line = int(location.get("declline") or location.get("line"))
    is_friend_class = kind == "friend" and "class" in (element.findtext("type") or "")
    is_named = not name.startswith("@") and name != "public"
    is_shown = element.get("prot") != "private" and not is_friend_class and is_named
    values = [(value.findtext("name"), (value.findtext("initializer") or "").lstrip("= "), doc_of(value))
              for value in element.findall("enumvalue")]
    declaration = header.macro(line) if kind == "define" else header.declaration(line)
    if name in ("explicit", "requires", "noexcept"):    # what Doxygen makes of conditional specifiers
        name = re.sub(r"<.*|.*::", "", scope)
    if kind == "variable" and name.startswith("m_") and element.get("static") != "yes":
        is_shown = False    # in a private union
    if kind == "define":
        is_shown = not HIDDEN_MACRO.search(name)
    return Member(kind, name, line, doc_of(element), declaration, is_shown, values), location


def read_scope(compound, header):
    name = compound.findtext("compoundname")
    location = compound.find("location")
    members, bodies = {}, []
    for element in compound.iter("memberdef"):
        if element.get("kind") not in KINDS or element.find("location").get("file") != location.get("file"):
            continue
        member, where = read_member(element, header, name)
        members[(member.line, member.name)] = member
        if element.get("kind") in ("function", "friend") and int(where.get("bodyend") or -1) > 0:
            bodies.append((int(where.get("bodystart")), int(where.get("bodyend"))))
    line = int(location.get("line"))
    scope = Scope(re.sub(r"^nqcore::", "", name).replace("< ", "<").replace(" >", ">"), compound.get("kind"), line,
                  doc_of(compound), header.declaration(line), list(members.values()),
                  int(location.get("bodyend") or line))
    return scope, bodies


class Api:
    """All families, and where each name is described."""

    def __init__(self, xml_folder, include_folder):
        self.headers, self.families, self.targets = {}, {}, {}
        for path in sorted(include_folder.rglob("*.h")):
            relative = str(path.relative_to(include_folder))
            header = self.headers[relative] = Header(path)
            self.families[relative] = Family(relative, header.intro(), [], [])
        bodies = {relative: [] for relative in self.headers}
        classes = {relative: [] for relative in self.headers}
        for file in sorted(xml_folder.glob("*.xml")):
            for compound in ElementTree.parse(file).getroot().findall("compounddef"):
                self._add(compound, include_folder.name, bodies, classes)
        hidden = {re.sub("^nqcore::", "", name): scope for found in classes.values() for scope, name in found}
        for relative, family in self.families.items():
            self._place_notes(family, self.headers[relative], bodies[relative], classes[relative])
            family.scopes.sort(key=lambda scope: (scope.line, scope.name))
            for scope in family.scopes:
                scope.inherited = inherited(scope, hidden)
        self._name_anchors()

    def _add(self, compound, folder, bodies, classes):
        kind, name = compound.get("kind"), compound.findtext("compoundname")
        if kind in ("class", "struct", "union"):
            relative = compound.find("location").get("file").split(f"/{folder}/")[1]
            scope, inner = read_scope(compound, self.headers[relative])
            bodies[relative] += inner
            classes[relative].append((scope, name))
            if name.startswith("std::"):
                self.families[relative].specialisations.append(name)
            elif not HIDDEN_NAMESPACE.search(name) and compound.get("prot") == "public":
                self.families[relative].scopes.append(scope)
        elif kind == "namespace" or kind == "file":
            self._add_free(compound, name, kind, folder, bodies, classes)

    def _add_free(self, compound, name, kind, folder, bodies, classes):
        """The free functions, types and macros of one namespace or file, as a scope in each header that has some."""
        hidden = HIDDEN_NAMESPACE.search(name) is not None
        for element in compound.iter("memberdef"):
            location = element.find("location")
            if element.get("kind") not in KINDS or f"/{folder}/" not in location.get("file"):
                continue
            if (kind == "file") != (element.get("kind") == "define"):
                continue
            relative = (location.get("declfile") or location.get("file")).split(f"/{folder}/")[1]
            member, where = read_member(element, self.headers[relative])
            member.is_shown = member.is_shown and not hidden
            if int(where.get("bodyend") or -1) > 0 and element.get("kind") == "function":
                bodies[relative].append((int(where.get("bodystart")), int(where.get("bodyend"))))
            title = "" if kind == "file" else re.sub(r"^nqcore(::|$)", "", name)
            scope = next((scope for scope, _ in classes[relative] if scope.kind == kind and scope.name == title), None)
            if scope is None:
                scope = Scope(title, kind, member.line, "", "", [])
                classes[relative].append((scope, name))
                if not hidden:
                    self.families[relative].scopes.append(scope)
            scope.line = min(scope.line, member.line)
            scope.members.append(member)

    @staticmethod
    def _place_notes(family, header, bodies, classes):
        """Each note goes to the innermost class around it, or to the free members."""
        types = [scope for scope, _ in classes if scope.kind not in ("namespace", "file")]
        free = [scope for scope in family.scopes if scope.kind == "namespace"]
        for note in header.notes(bodies):
            around = [scope for scope in types if scope.line < note.line <= scope.last_line]
            if around:
                max(around, key=lambda scope: scope.line).notes.append(note)
                continue
            # What stands between the note and the next member hides it from that member.
            for scope in free:
                behind = min((member.line for member in scope.members if member.line > note.line), default=None)
                others = [other.line for other, _ in classes if other.kind not in ("namespace", "file")]
                others += [member.line for other, _ in classes if other is not scope and other.kind == "namespace"
                           for member in other.members]
                if behind and not any(note.line < line < behind for line in others):
                    scope.notes.append(note)

    def _name_anchors(self):
        for family in self.families.values():
            family.scopes = [scope for scope in family.scopes if scope.kind not in ("namespace", "file") or
                             any(member.is_shown for member in scope.members)]
            used = set()
            for scope in family.scopes:
                scope.anchor = anchor(scope.name or ("macros" if scope.kind == "file" else "functions"), used)
                if scope.kind not in ("namespace", "file"):
                    self._add_target(scope.name, f"{family.page}#{scope.anchor}")
                for member in sorted(scope.members, key=lambda member: member.line) + scope.inherited:
                    if not member.is_shown:
                        continue
                    full = f"{scope.name}::{member.name}" if scope.name else member.name
                    member.anchor = anchor(full, used)
                    self._add_target(full, f"{family.page}#{member.anchor}")
                    for value, _, _ in member.values:
                        full = f"{scope.name}::{value}" if scope.name else value
                        self._add_target(full, f"{family.page}#{member.anchor}")
        # A name without its namespaces and classes, where that is one place.
        ends = {}
        for name, target in self.targets.items():
            for end in {name.split("::", 1)[-1], name.split("::")[-1]}:
                ends.setdefault(end, set()).add(target)
        for end, targets in ends.items():
            if len(targets) == 1 and end not in self.targets:
                self.targets[end] = targets.pop()

    def _add_target(self, name, target):
        self.targets.setdefault(name, target)
        self.targets.setdefault(f"nqcore::{name}", target)


def inherited(scope, hidden):
    """Copies of the members that come from bases in `impl`, which have no page of their own."""
    found = []
    for base in re.findall(r"public (impl::\w+)", scope.declaration):
        if base in hidden:
            own = [member for member in hidden[base].items() if isinstance(member, Member)]
            found += inherited(hidden[base], hidden) + \
                [copy.copy(member) for member in own if member.name.strip("~") != base.split("::")[-1]]
    names = {member.name for member in scope.members}
    return [member for member in found if member.name not in names]


def anchor(name, used):
    for sign, word in (("<=>", "-order"), ("==", "-equal"), ("<<", "-write")):
        name = name.replace(f"operator{sign}", f"operator{word}")
    plain = re.sub(r"[^\w~:]+", "-", name).replace("::", ".").strip("-")
    candidate, number = plain, 1
    while candidate in used:
        number += 1
        candidate = f"{plain}-{number}"
    used.add(candidate)
    return candidate


def load(root):
    return Api(root / "build/docs/xml", root / "pub/inc/core")

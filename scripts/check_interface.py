#!/usr/bin/env python3
"""check_interface.py [--update] linux|win32...: the exported names of the libraries against doc/interface/TARGET.txt.

A name that went or changed breaks programs that were linked before; a new one is a promise for later. So each change is
made on purpose: `--update` writes the file, and a person reads the difference.
"""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
LIBRARIES = {
    "linux": ["lib/libnqcore.so", "lib/libnqmoduleregistry.so"],
    "win32": ["bin/nqcore.dll", "bin/nqmoduleregistry.dll"],
}


def output_of(*command: str, text: str | None = None) -> str:
    return subprocess.run(command, input=text, stdout=subprocess.PIPE, check=True, encoding="utf-8").stdout


def exported_of_so(library: pathlib.Path) -> list[str]:
    """NAME or NAME [SIZE] of the objects, whose size programs may have copied into themselves."""
    names = []
    for line in output_of("readelf", "--dyn-syms", "--wide", str(library)).splitlines():
        fields = line.split()
        if len(fields) < 8 or not fields[0].rstrip(":").isdigit() or fields[6] in ("UND", "ABS"):
            continue
        _, _, size, kind, binding, visibility, _, name = fields[:8]
        if binding in ("GLOBAL", "WEAK", "UNIQUE") and visibility in ("DEFAULT", "PROTECTED"):
            names.append(name + (f" [{int(size, 0)}]" if kind == "OBJECT" else ""))
    return names


def exported_of_dll(library: pathlib.Path) -> list[str]:
    dump = output_of("i686-w64-mingw32-objdump", "-p", str(library))
    table = dump.split("[Ordinal/Name Pointer] Table", 1)[1]
    return re.findall(r"^\s*\[\s*\d+\]\s+(?:\+base\[\s*\d+\]\s+)?(?:[0-9a-f]+\s+)?(\S+)$", table, re.MULTILINE)


def interface_of(target: str) -> str:
    text = ""
    for path in LIBRARIES[target]:
        library = ROOT / "build" / target / path
        names = exported_of_so(library) if target == "linux" else exported_of_dll(library)
        if not names:
            sys.exit(f"{library.name} exports nothing: is it the library?")
        demangled = output_of("c++filt", text="\n".join(names)).splitlines()
        text += f"# {library.name}\n" + "".join(sorted(name + "\n" for name in demangled))
    return text


def difference(old: str, new: str) -> list[str]:
    before, after = set(old.splitlines()), set(new.splitlines())
    return [f"- {name}" for name in sorted(before - after)] + [f"+ {name}" for name in sorted(after - before)]


def main() -> int:
    arguments = sys.argv[1:]
    update = "--update" in arguments
    targets = [argument for argument in arguments if argument != "--update"]
    if not targets or any(target not in LIBRARIES for target in targets):
        print(__doc__, file=sys.stderr)
        return 2
    changed = False
    for target in targets:
        path = ROOT / "doc" / "interface" / f"{target}.txt"
        old = path.read_text(encoding="utf-8") if path.exists() else ""
        new = interface_of(target)
        changes = difference(old, new)
        if update:
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(new, encoding="utf-8")
            print(f"{target}: {len(new.splitlines())} names, {len(changes)} changes written")
        elif changes:
            changed = True
            print(f"{target}: the interface changed; if that is meant, run scripts/check_interface.py --update {target}")
            print("\n".join(changes))
        else:
            print(f"{target}: {len(new.splitlines())} names, none changed")
    return 1 if changed else 0


if __name__ == "__main__":
    sys.exit(main())

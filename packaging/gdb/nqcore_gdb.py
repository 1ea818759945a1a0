"""Pretty-printers for gdb: values of nqcore as the text that the library itself writes.

gdb loads this file by itself with the installed library; by hand: `source nqcore_gdb.py`. Nothing is called in the
program that is looked at, so core files and threads in any state will do. An object that is not there yet, or no more,
prints as <not readable: ...>.

Error records and their parameters are read by their layout: their members are described in the library's own debug
information only, which need not be installed. Futures, results and object keys do need it.
"""
import datetime
import re
import struct

import gdb
import gdb.printing

TEXT_LIMIT = 16384      # bytes that are read of one text
COUNT_LIMIT = 1000      # elements, and causes of an error
UNMEASURED = 0x7FFFFFFF


# ------------------------------------------------------------------------------------------------------------- memory

def pointer_size():
    return gdb.lookup_type("void").pointer().sizeof


def read_bytes(address, count):
    return bytes(gdb.selected_inferior().read_memory(address, count)) if count else b""


def read_number(address, code):
    return struct.unpack("<" + code, read_bytes(address, struct.calcsize("<" + code)))[0]


def read_pointer(address):
    return read_number(address, "Q" if pointer_size() == 8 else "I")


def read_measured(address):
    """The bytes up to the NUL. Pages are read one by one: the text may be the last of its mapping."""
    text = b""
    while len(text) < TEXT_LIMIT:
        at = address + len(text)
        part = read_bytes(at, 4096 - at % 4096)
        if b"\0" in part:
            return text + part[: part.index(b"\0")]
        text += part
    return text


def limited(address, length):
    if length <= TEXT_LIMIT:
        return read_bytes(address, length)
    return read_bytes(address, TEXT_LIMIT) + b"[...](%d omitted)" % (length - TEXT_LIMIT)


def shown(text):
    return text.decode("utf-8", "backslashreplace")


def guarded(read, *arguments):
    """What `read` gives, or why it cannot be had."""
    try:
        return read(*arguments)
    except (gdb.error, RuntimeError, ValueError, OverflowError, struct.error) as problem:
        reason = str(problem) or type(problem).__name__
        if "no member" in reason:
            reason = "the debug information of the library is missing"
        return f"<not readable: {reason}>"


# -------------------------------------------------------------------------------------------------------------- texts

def source_string_bytes(address):
    """Of a SourceString: a pointer and a word, which is the length, negative for shared text."""
    text, word = read_pointer(address), read_number(address + pointer_size(), "i")
    return read_measured(text) if word == UNMEASURED else limited(text, abs(word))


def std_string_bytes(address):
    return limited(read_pointer(address), read_pointer(address + pointer_size()))


def cut(text, limit):
    """At most `limit` bytes, no character split."""
    if len(text) <= limit:
        return text
    while limit > 0 and text[limit] & 0xC0 == 0x80:
        limit -= 1
    return text[:limit]


def cut_and_marked(text, limit):
    return text if len(text) <= limit else cut(text, limit) + b"..."


# -------------------------------------------------------------------------------------------------------------- times

INFINITE = 2**63 - 1
INFINITE_TEXT = "##INFINITE##"


def fraction(billionths):
    return f"{billionths:09d}".rstrip("0") or "0"


def utc_text(ns):
    if ns == INFINITE:
        return INFINITE_TEXT
    seconds, billionths = divmod(ns, 10**9)
    moment = datetime.datetime(1970, 1, 1) + datetime.timedelta(seconds=seconds)
    return f"{moment:%Y-%m-%d %H:%M:%S}.{fraction(billionths)}"


def duration_text(ns):
    """A larger unit begins above its first multiple: "60.0s", "1m 01.0s"."""
    if ns == INFINITE:
        return INFINITE_TEXT
    sign, (seconds, rest) = "-" * (ns < 0), divmod(abs(ns), 10**9)
    if seconds == 0:
        if rest <= 1000:
            return f"{sign}{rest}ns"
        if rest <= 10**6:
            return f"{sign}{rest // 1000}.{fraction(rest % 1000 * 10**6)}us"
        return f"{sign}{rest // 10**6}.{fraction(rest % 10**6 * 1000)}ms"
    if seconds > 3600:
        days = f"{seconds // 86400}d " if seconds > 86400 else ""
        if days:
            seconds %= 86400
        return f"{sign}{days}{seconds // 3600}h {seconds // 60 % 60}m {seconds % 60}.{fraction(rest)}s"
    if seconds > 60:
        return f"{sign}{seconds // 60}m {seconds % 60:02d}.{fraction(rest)}s"
    return f"{sign}{seconds}.{fraction(rest)}s"


def zoned_text(ns, minutes):
    text = utc_text(ns)
    if minutes:
        return text + f"{'-' if minutes < 0 else '+'}{abs(minutes) // 60:02d}:{abs(minutes) % 60:02d}"
    return text if ns == INFINITE else text + "Z"


# ------------------------------------------------------------------------------------------------------------- errors

def parameters_of(block):
    """[(name, value)] of the block behind an ErrorParams: count, capacity and a flag, then entries of a SourceString
    and a std::string each."""
    if block == 0:
        return []
    pointer = pointer_size()
    count, capacity = read_number(block, "I"), read_number(block + 4, "I")
    if count > capacity or count > COUNT_LIMIT:
        raise ValueError(f"{count} parameters where there is room for {capacity}")
    first, name_size, value_size = (16, 16, 32) if pointer == 8 else (12, 8, 24)
    entries = range(block + first, block + first + count * (name_size + value_size), name_size + value_size)
    return [(source_string_bytes(entry), std_string_bytes(entry + name_size)) for entry in entries]


def parameters_text(parameters):
    return ", ".join(f"'{shown(cut_and_marked(name, 128))}' => \"{shown(cut_and_marked(value, 256))}\""
                     for name, value in parameters)


def expanded(template, parameters, limit):
    values = dict(parameters)

    def replacement(match):
        value = values.get(match[1])
        return match[0] if value is None else cut_and_marked(value, limit)
    return re.sub(rb"\{@([^}]*)\}", replacement, template)


def depot_path(file_id):
    """From the first "/" up to the last character that is neither a blank nor "$"; all of it when nothing is left."""
    start = max(file_id.find(b"/"), 0)
    return file_id[start:].rstrip(b" $") or file_id


class ErrorRecord:
    """An ErrorInfo by its address: virtual table, count, then the members one after the other."""

    def __init__(self, address):
        pointer = pointer_size()
        text = 16 if pointer == 8 else 8
        self.code_at = 16 if pointer == 8 else 8
        self.message_at = self.code_at + text
        self.params_at = self.message_at + text
        self.function_at = self.params_at + pointer
        self.file_at = self.function_at + text
        self.line_at = self.file_at + text
        self.nested_at = self.line_at + pointer
        self.hostname_at = self.nested_at + pointer
        self.address = address

    def text(self, offset):
        return source_string_bytes(self.address + offset)

    def parameters(self):
        return parameters_of(read_pointer(self.address + self.params_at))

    def message(self):
        try:
            parameters = self.parameters()
        except (gdb.error, ValueError):
            parameters = []
        return expanded(self.text(self.message_at), parameters, TEXT_LIMIT)

    def nested(self):
        return read_pointer(self.address + self.nested_at)

    def summary(self):
        code, message = guarded(lambda: shown(self.text(self.code_at))), guarded(lambda: shown(self.message()))
        return f"{code}: {message}" if message else code

    def trace(self, depth):
        """The text form of the record alone."""
        margin = "\n" + "  " * depth
        line = guarded(read_number, self.address + self.line_at, "I")
        parts = [
            "ErrorCode:   " + guarded(lambda: shown(self.text(self.code_at))),
            "Description: " + guarded(lambda: self.description(margin)),
            "Hostname:    " + guarded(lambda: shown(self.text(self.hostname_at))),
            "Function:    " + guarded(lambda: shown(self.text(self.function_at))),
            "File(Line):  " + guarded(lambda: shown(depot_path(self.text(self.file_at)))) + f"({line})",
            "Parameters:  " + guarded(lambda: self.parameter_lines(margin)),
        ]
        return "".join(margin + part for part in parts)

    def description(self, margin):
        message = shown(self.message())
        return message if "\n" not in message else "".join(f"{margin}    {line}" for line in message.split("\n"))

    def parameter_lines(self, margin):
        parameters = self.parameters()
        if len(parameters) == 1 and b"\n" not in parameters[0][1]:
            return f"'{shown(parameters[0][0])}' => \"{shown(parameters[0][1])}\""
        text = ""
        for name, value in parameters:
            text += f"{margin}    '{shown(name)}' => "
            part = cut(value, 512)
            if b"\n" in part:
                text += "".join(f'{margin}        "{shown(line)}"' for line in part.split(b"\n"))
            else:
                text += f'"{shown(value)}"'
            if len(value) > len(part):
                text += f"[...]({len(value) - len(part)} omitted)"
        return text


def error_chain(address):
    """The record at `address` and its causes, outermost first. A chain that bites its tail ends there."""
    seen = set()
    while address != 0 and address not in seen and len(seen) < COUNT_LIMIT:
        seen.add(address)
        record = ErrorRecord(address)
        yield record
        try:
            address = record.nested()
        except gdb.error:
            return


def error_trace(address):
    """The library's text of a record: `ErrorInfo::write_trace`."""
    return "".join(("\n" + "  " * (depth - 1) + "Nested: " if depth else "") + record.trace(depth)
                   for depth, record in enumerate(error_chain(address)))


def error_summary(address):
    """One line: code and message of the record and of its causes."""
    return ", caused by ".join(record.summary() for record in error_chain(address)) if address else "null"


# ----------------------------------------------------------------------------------------------------------- printers

def address_of(value):
    if value.address is None:
        raise ValueError("the value has no address")
    return int(value.address)


def character_bytes(array, count):
    """The first `count` of an array of characters."""
    low, high = array.type.range()
    if not low <= count <= high + 1:
        raise ValueError(f"{count} characters in a buffer of {high + 1}")
    return bytes(int(array[i]) & 0xFF for i in range(count))


class TextPrinter:
    """A value that is one text."""

    def __init__(self, text, value):
        self.text, self.value = text, value

    def to_string(self):
        return guarded(self.text, self.value)


class StringPrinter:
    """Text in quotes, as gdb writes strings."""

    def __init__(self, value):
        self.value = value

    def display_hint(self):
        return "string"

    def to_string(self):
        return guarded(self.lazy)

    def lazy(self):
        word, text = int(self.value["m_length"]), self.value["m_text"]
        if word != UNMEASURED and abs(word) > 2**31 - 1:
            raise ValueError(f"length word {word}")
        return text.lazy_string("UTF-8", length=-1 if word == UNMEASURED else abs(word))


class PartsPrinter:
    """A title, and parts that gdb prints by their own printers. `parts` gives (title or None, [(name, value)])."""

    hint = None

    def __init__(self, value):
        self.value = value

    def display_hint(self):
        return self.hint

    def to_string(self):
        result = guarded(self.parts)
        return result if isinstance(result, str) else result[0]

    def children(self):
        result = guarded(self.parts)
        return iter([]) if isinstance(result, str) else iter(result[1])


def code_text(value):
    return shown(source_string_of(value["m_value"]))


def source_string_of(value):
    """As `source_string_bytes`, of a value that may lie in registers."""
    text, word = int(value["m_text"]), int(value["m_length"])
    return read_measured(text) if word == UNMEASURED else limited(text, abs(word))


def params_text(value):
    return parameters_text(parameters_of(int(value["m_block"]))) or "no parameters"


def location_text(value):
    return (f"{shown(source_string_of(value['m_function']))} "
            f"{shown(depot_path(source_string_of(value['m_fileId'])))}({int(value['m_line'])})")


def range_text(value):
    first, length = ("npos" if int(value[name]) == 2**32 - 1 else int(value[name]) for name in ("m_first", "m_length"))
    return f"({first}, {length})"


def components_text(value):
    part = {name: int(value["m_" + name]) for name in
            ("year", "month", "day", "hour", "minute", "second", "nanosecond")}
    return ("{year:04d}-{month:02d}-{day:02d} {hour:02d}:{minute:02d}:{second:02d}.".format(**part) +
            fraction(part["nanosecond"]))


def hex_bytes(array):
    return bytes(int(array[i]) for i in range(array.type.range()[1] + 1))


def uuid_text(value):
    raw = hex_bytes(value["m_bytes"])
    fields = raw[3::-1], raw[5:3:-1], raw[7:5:-1], raw[8:10], raw[10:]
    return "-".join(field.hex() for field in fields)


def buffer_text(value):
    return shown(character_bytes(value["m_text"], int(value["m_length"])))


def exception_text(value):
    error = read_pointer(address_of(value) + pointer_size())
    return error_trace(error) if error else "no error record"


SIGNALS = dict(enumerate(
    "HUP INT QUIT ILL TRAP ABRT BUS FPE KILL USR1 SEGV USR2 PIPE ALRM TERM STKFLT CHLD CONT STOP TSTP TTIN TTOU URG "
    "XCPU XFSZ VTALRM PROF WINCH IO PWR SYS".split(), 1))


def exit_code_text(value):
    try:
        status = int(value["m_status"]["value"])
    except gdb.error:
        status = 0      # where children have no such status
    low = status & 0x7F
    if status == 0xFFFF:
        return "[running]"
    if low == 0x7F:
        verb, number = "stopped", status >> 8 & 0xFF
    else:
        verb, number = "signal", low
    if number == 0:
        return f"[exit code: {int(value['m_exitCode'])}]"
    name = "SIG" + SIGNALS[number] if number in SIGNALS else "unknown"
    return f"[{verb}: {number} {name}{', core dumped' if verb == 'signal' and status & 0x80 else ''}]"


def is_error_record(type_):
    return str(type_.strip_typedefs().unqualified()) == "nqcore::ErrorInfo"


class RefCountPtrPrinter(PartsPrinter):
    def parts(self):
        pointer = self.value["m_object"]
        if int(pointer) == 0:
            return "null", []
        if is_error_record(pointer.type.target()):
            return error_summary(int(pointer)), []
        count = guarded(lambda: int(pointer["m_refs"]["m_count"]))
        return f"{count} reference{'s' * (count != 1)}" if isinstance(count, int) else None, [("get()", pointer)]


def strong_block(value):
    """(pointer to the object, strong count) of a block, or None for none."""
    block = value["m_block"]
    if int(block) == 0:
        return None
    target = value.type.strip_typedefs().template_argument(0)
    return block["storage"].address.cast(target.pointer()), int(block["refs"]["m_strong"])


class StrongRefPtrPrinter(PartsPrinter):
    def parts(self):
        held = strong_block(self.value)
        if held is None:
            return "null", []
        return f"{held[1]} strong reference{'s' * (held[1] != 1)}", [("get()", held[0])]


class WeakRefPtrPrinter(PartsPrinter):
    def parts(self):
        held = strong_block(self.value)
        if held is None or held[1] == 0:
            return "expired", []
        return f"weak, {held[1]} strong reference{'s' * (held[1] != 1)}", [("object", held[0])]


class InterfacePtrPrinter(PartsPrinter):
    def parts(self):
        pointer = self.value["m_interface"]
        return ("null", []) if int(pointer) == 0 else (None, [("get()", pointer), ("owner", self.value["m_owner"])])


class ErrorOrPrinter(PartsPrinter):
    def parts(self):
        if str(self.value.type.strip_typedefs().template_argument(0)) == "void":
            error = self.value["m_error"]
            return ("success", []) if int(error["m_object"]) == 0 else ("failure", [("error", error)])
        if self.value["m_hasValue"]:
            return "success", [("value", self.value["m_value"])]
        return "failure", [("error", self.value["m_error"])]


def future_parts(future):
    state = future["m_impl"]["m_object"]
    if int(state) == 0:
        return "null", []
    state = state.dereference()
    if not state["m_ready"]:
        observers = state["m_observers"]
        count = int(observers["m_end"] - observers["m_begin"])
        return "not ready" + (f", {count} observer{'s' * (count != 1)}" if count else ""), []
    if int(state["m_error"]["m_object"]) != 0:
        return "failure", [("error", state["m_error"])]
    if str(future.type.strip_typedefs().template_argument(0)) == "void":
        return "success", []
    return "success", [("value", state["m_value"])]


class FuturePrinter(PartsPrinter):
    def parts(self):
        return future_parts(self.value)


class ResultPrinter(PartsPrinter):
    def parts(self):
        shared = self.value["m_impl"]["m_object"]
        if int(shared) == 0:
            return "null", []
        shared = shared.cast(shared.dynamic_type).dereference()
        kind = str(shared.type.unqualified())
        if kind.startswith("nqcore::impl::FutureResultImpl<"):
            return future_parts(shared["m_future"])
        if kind.startswith("nqcore::impl::ErrorResultImpl<"):
            return "failure", [("error", shared["m_error"])]
        if kind == "nqcore::impl::ValueResultImpl<void>":
            return "success", []
        if kind.startswith("nqcore::impl::ValueResultImpl<"):
            return "success", [("value", shared["m_value"])]
        if kind == "nqcore::impl::ResultImplBase":
            raise ValueError(f"no result at {int(shared.address):#x}, or one of a type that gdb does not know")
        return f"result of type {kind}", []


def key_text(value):
    token = value["m_token"]["m_object"]
    token = token.cast(token.dynamic_type).dereference()
    number = int(token["m_keyValue"])
    if number == 0:
        return "<null>"
    kind = str(token.type.unqualified())
    if kind.endswith("::StringKeyToken"):
        return shown(limited(int(token["m_text"]), int(token["m_length"])))
    if kind.endswith("::UuidKeyToken"):
        return uuid_text(token["m_uuid"])
    if kind.endswith("::LabelledToken"):
        return shown(std_string_bytes(address_of(token["m_text"])))
    if kind.endswith("::UniqueToken"):
        if token["m_isTextMade"]:
            return shown(character_bytes(token["m_text"], 16))
        return f"<unique key {number:#x}, not written yet>"
    return f"{number:0{2 * pointer_size()}x}"


class ThinVectorPrinter(PartsPrinter):
    hint = "array"

    def parts(self):
        begin, end, limit = (self.value[name] for name in ("m_begin", "m_end", "m_limit"))
        size = begin.type.target().sizeof
        length, capacity = (int(to) - int(begin) for to in (end, limit))
        if not 0 <= length <= capacity or length % size or capacity % size:
            raise ValueError(f"begin {int(begin):#x}, end {int(end):#x}, limit {int(limit):#x}")
        length //= size
        return (f"length {length}, capacity {capacity // size}",
                [(f"[{i}]", (begin + i).dereference()) for i in range(min(length, COUNT_LIMIT))])


class StackTracePrinter(PartsPrinter):
    hint = "array"

    def parts(self):
        frames, size = self.value["m_frames"], int(self.value["m_size"])
        if size > frames.type.range()[1] + 1:
            raise ValueError(f"{size} frames")
        code = gdb.lookup_type("void").pointer()
        return (f"{size} frame{'s' * (size != 1)}",
                [(f"[{i}]", frames[i]["instructionPointer"].cast(code)) for i in range(size)])


TEXTS = {
    "AbsoluteTime": lambda value: utc_text(int(value["m_value"])),
    "AbsoluteTime::Components": components_text,
    "CpuAffinityMask": lambda value: f"0x{int(value['m_mask']):08x}",
    "DurationText": buffer_text,
    "ErrorCode": code_text,
    "ErrorException": exception_text,
    "ErrorInfo": lambda value: error_trace(address_of(value)),
    "ErrorParams": params_text,
    "ExitCode": exit_code_text,
    "MonotonicTime": lambda value: duration_text(int(value["m_value"])),
    "MonotonicTimeBase": lambda value: duration_text(int(value["m_value"])),
    "ObjectKey": key_text,
    "RelativeTime": lambda value: duration_text(int(value["m_value"])),
    "SimpleDateTime": lambda value: zoned_text(int(value["m_utcBase"]["m_value"]), int(value["m_timezoneOffset"])),
    "SourceLocation": location_text,
    "StringKey": key_text,
    "StringRange": range_text,
    "UtcText": buffer_text,
    "Uuid": uuid_text,
    "Uuid::NodeAddress": lambda value: hex_bytes(value["m_bytes"]).hex(),
    "UuidKey": key_text,
    "UuidText": buffer_text,
    "WeakRefPromoteException": exception_text,
}
PARTS = {
    "ErrorOr": ErrorOrPrinter,
    "Future": FuturePrinter,
    "InterfacePtr": InterfacePtrPrinter,
    "RefCountPtr": RefCountPtrPrinter,
    "Result": ResultPrinter,
    "SourceString": StringPrinter,
    "StackTrace": StackTracePrinter,
    "StrongRefPtr": StrongRefPtrPrinter,
    "WeakRefPtr": WeakRefPtrPrinter,
    "impl::ThinVector": ThinVectorPrinter,
}


def text_printer(text):
    return lambda value: TextPrinter(text, value)


def make_printers():
    printers = gdb.printing.RegexpCollectionPrettyPrinter("nqcore")
    for name, text in TEXTS.items():
        printers.add_printer(name, f"^nqcore::{name}$", text_printer(text))
    for name, printer in PARTS.items():
        printers.add_printer(name, f"^nqcore::{name}(<.*>)?$", printer)
    printers.add_printer("UuidBytes", "^nqcore::impl::UuidBytes<.*>$", text_printer(TEXTS["Uuid::NodeAddress"]))
    return printers


gdb.printing.register_pretty_printer(gdb.current_objfile(), make_printers(), replace=True)

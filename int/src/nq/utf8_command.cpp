// `nq utf8`: the group of commands about Unicode text.
#include "command.h"

namespace nq {

namespace {

constexpr const Command* s_children[] = {&s_utf8CheckCommand, &s_utf8RepairCommand, &s_toUtf16Command,
                                         &s_fromUtf16Command};

}  // namespace

constinit const Command s_utf8Command{
    .name = "utf8",
    .summary = "Check and repair UTF-8, convert to and from UTF-16",
    .details =
        "The library's rules hold: surrogates and U+FEFF (a byte-order mark) are not valid, forms of five and six\n"
        "bytes are; the conversions also refuse U+FFFE and U+FFFF, and what UTF-16 cannot hold.\n",
    .children = s_children,
};

}  // namespace nq

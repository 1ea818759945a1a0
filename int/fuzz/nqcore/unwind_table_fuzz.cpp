// Unwind tables that may say anything: only the table is read (the sanitizers watch its end), and what comes out is a
// rule that a walk can follow. That good tables are read rightly is tested against the compiler's runtime.
#include "fuzz_support.h"
#include "platform/posix/unwind_table.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

namespace {

using nqcore::platform::read_unwind_rule;
using nqcore::platform::UnwindRule;

bool is_sound(const UnwindRule& rule) {
    const bool hasEnd = rule.kind == UnwindRule::Offset || rule.kind == UnwindRule::Indirect;
    const bool isSaved = rule.saved == UnwindRule::BelowEnd || rule.saved == UnwindRule::AtFramePointer;
    return rule.kind <= UnwindRule::Outermost && rule.saved <= UnwindRule::Lost &&
           (hasEnd || (rule.endOffset == 0 && !rule.isFromFramePointer)) && (isSaved || rule.savedOffset == 0);
}

}  // namespace

// The table begins with the input; the addresses asked for are in it and behind it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // On a word, as the loader maps it, and of the exact size.
    const std::size_t words = (size + 7) / 8;
    const auto memory = std::make_unique<std::uint64_t[]>(words);
    auto* const table = reinterpret_cast<std::uint8_t*>(memory.get()) + (8 * words - size);
    std::memcpy(table, data, size);
    dl_find_object module = {};
    module.dlfo_map_start = table;
    module.dlfo_map_end = table + size;
    module.dlfo_eh_frame = table;
    for (std::uintptr_t offset = 0; offset < 512; offset += 5) {
        const std::uintptr_t address = reinterpret_cast<std::uintptr_t>(table) + offset;
        const UnwindRule rule = read_unwind_rule(module, address);
        if (!is_sound(rule)) {
            fail("unwind_table", {reinterpret_cast<const char*>(data), size});
        }
    }
    return 0;
}

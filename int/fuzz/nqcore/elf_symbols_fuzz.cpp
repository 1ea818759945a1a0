// ELF files that may be damaged: functions found through the index against a slow search of the same table.
#include "fuzz_support.h"
#include "platform/posix/elf_symbols.h"
#include "platform/readable_name.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace nqcore::platform;
using std::string_view;

class SpanSource final : public ByteSource {
public:
    explicit SpanSource(std::span<const std::byte> bytes) noexcept : m_bytes(bytes) {}
    [[nodiscard]] bool read(std::uint64_t offset, std::span<std::byte> to) const noexcept override {
        if (offset > m_bytes.size() || to.size() > m_bytes.size() - offset) {
            return false;
        }
        std::copy_n(m_bytes.begin() + static_cast<std::ptrdiff_t>(offset), to.size(), to.begin());
        return true;
    }

private:
    std::span<const std::byte> m_bytes;
};

struct SlowFunction {
    std::uint64_t address;
    std::uint64_t size;
    std::string name;
};

// All functions with their names, read one by one.
std::vector<SlowFunction> read_slowly(string_view bytes, const SymbolTable& table) {
    std::vector<SlowFunction> functions;
    for (std::uint64_t i = 0; i < table.count; ++i) {
        Elf64_Sym symbol = {};
        const std::uint64_t at = table.symbols + i * sizeof symbol;
        if (at > bytes.size() || bytes.size() - at < sizeof symbol) {
            break;
        }
        std::memcpy(&symbol, bytes.data() + at, sizeof symbol);
        const int type = symbol.st_info & 15;
        if ((type == STT_FUNC || type == STT_GNU_IFUNC) && symbol.st_shndx != 0 && symbol.st_name != 0 &&
            symbol.st_name < table.stringsSize) {
            const std::uint64_t name = table.strings + symbol.st_name;
            const string_view text = name < bytes.size() ? bytes.substr(static_cast<std::size_t>(name)) : "";
            functions.push_back({symbol.st_value, symbol.st_size, std::string(text.substr(0, text.find('\0')))});
        }
    }
    return functions;
}

void check_table(string_view bytes, const ByteSource& source, const SymbolTable& table) {
    constexpr std::size_t maxChecked = 64;
    FunctionIndex index;
    const std::vector<SlowFunction> functions = read_slowly(bytes, table);
    for (std::size_t i = 0; i < std::min(functions.size(), maxChecked); ++i) {
        for (const std::uint64_t address : {functions[i].address, functions[i].address + functions[i].size / 2}) {
            const FunctionIndex::Function found = index.find(source, table, address);
            if (found.name.empty()) {
                continue;  // its name may be damaged, or too many others may be nearer
            }
            const bool isThere = std::ranges::any_of(functions, [&](const SlowFunction& function) {
                return function.address == found.address && function.name.starts_with(found.name) &&
                       function.address <= address &&
                       (function.size == 0 || address - function.address < function.size);
            });
            if (!isThere) {
                fail("found what is not there", found.name);
            }
        }
        const FunctionIndex::Function found = index.find(source, table, functions[i].address);
        const bool isNamed = !functions[i].name.empty() && functions[i].name[0] != '@';  // more than a version
        if (functions.size() <= 16 && functions[i].size != 0 && isNamed && functions[i].name.size() < 1000 &&
            found.name.empty()) {
            fail("did not find", functions[i].name);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const string_view text(reinterpret_cast<const char*>(data), size);
    const SpanSource source(std::as_bytes(std::span(data, size)));
    if (const std::optional<ElfFile> file = read_elf_file(source)) {
        check_table(text, source, file->all);
        check_table(text, source, file->exported);
        for (const Elf64_Phdr& segment : file->segments) {
            if (segment.p_type == PT_DYNAMIC) {
                check_table(text, source, find_loaded_symbols(source, segment.p_vaddr, 0));
            }
        }
    }
    const string_view name = name_in_declaration(text);
    if (text.find(name) == string_view::npos ||
        (name.empty() && !text.empty() && text.find(' ') == string_view::npos)) {
        fail("not a part of the declaration", text);
    }
    return 0;
}

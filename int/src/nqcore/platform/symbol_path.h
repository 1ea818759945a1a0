// Where the debug-help library looks for symbols, and with which options: the rules, apart from the system.
#pragma once

#include <algorithm>
#include <cstddef>
#include <span>
#include <string_view>

namespace nqcore::platform {

inline constexpr std::size_t symbolPathSize = 4096;

/// Puts together a list of folders, with a ';' between them, in a buffer of fixed size.
///
/// In       `read(name, to, room)`: a reader of environment variables. It returns 0 for one that is unset or empty;
///          otherwise its length when that is below `room`, with value and terminator stored, else any number from
///          `room` up.
template <class Read>
class SymbolPathWriter {
public:
    SymbolPathWriter(std::span<wchar_t> buffer, Read read) : m_buffer(buffer), m_read(read) {}

    /// What does not fit is cut off.
    void add_text(std::wstring_view text) {
        const std::size_t fitting = std::min(text.size(), m_buffer.size() - m_size);
        std::copy_n(text.data(), fitting, m_buffer.data() + m_size);
        m_size += fitting;
    }

    /// Adds the value with `suffix` behind it, or nothing at all when there is no value or no room for it.
    ///
    /// Returns  whether there is a value.
    bool add_variable(const wchar_t* name, std::wstring_view suffix = {}) {
        const std::size_t before = m_size;
        if (before != 0) {
            add_text(L";");
        }
        const std::size_t room = m_buffer.size() - m_size;
        const std::size_t length = m_read(name, m_buffer.data() + m_size, room);
        if (length == 0 || length >= room) {
            m_size = before;
            return length != 0;
        }
        m_size += length;
        add_text(suffix);
        return true;
    }

    /// Returns  the path, terminated; when the buffer is full, its last character made room for the terminator.
    std::wstring_view finish() {
        m_size = std::min(m_size, m_buffer.size() - 1);
        m_buffer[m_size] = L'\0';
        return {m_buffer.data(), m_size};
    }

private:
    const std::span<wchar_t> m_buffer;
    Read m_read;
    std::size_t m_size = 0;
};

/// In       `buffer`: at least one character.
/// In       `program`: the path of the program's file.
/// Returns  the search path, in `buffer`.
template <class Read>
std::wstring_view write_symbol_path(std::span<wchar_t> buffer, std::wstring_view program, Read read) {
    SymbolPathWriter<Read> path(buffer, read);
    const std::size_t backslash = program.rfind(L'\\');
    path.add_text(program.substr(0, backslash == std::wstring_view::npos ? 0 : backslash));
    path.add_variable(L"SYSTEMROOT");
    path.add_variable(L"SYSTEMROOT", L"\\System32");
    path.add_variable(L"PATH");
    path.add_variable(L"_NT_SYMBOL_PATH");
    if (!path.add_variable(L"_NT_ALT_SYMBOL_PATH")) {
        path.add_variable(L"_NT_ALTERNATE_SYMBOL_PATH");
    }
    return path.finish();
}

/// The library's option bits from those that it has.
///
/// In       `visibleDesktop`: whether anybody could see a question that the library asks.
constexpr unsigned long symbol_options(unsigned long current, bool visibleDesktop) noexcept {
    constexpr unsigned long undecoratedNames = 0x2;
    constexpr unsigned long deferredLoads = 0x4;
    constexpr unsigned long loadLines = 0x10;
    constexpr unsigned long exactSymbols = 0x400;
    constexpr unsigned long noPrompts = 0x80000;
    const unsigned long added = deferredLoads | loadLines | exactSymbols | (visibleDesktop ? 0 : noPrompts);
    return (current | added) & ~undecoratedNames;
}

}  // namespace nqcore::platform

// The one allocation behind an ErrorParams, and mostly behind its error record too.
#pragma once

#include "nqcore/error_info.h"
#include "nqcore/source_string.h"

#include <cstddef>
#include <new>
#include <string>
#include <string_view>
#include <utility>

namespace nqcore::impl {

struct ErrorParamEntry {
    SourceString name;
    std::string value;
};

/// `SourceString::create_copy` or `create_reference`.
using NameMaker = SourceString (*)(std::string_view);

/// The middle of one allocation; the entries are sorted by name:
///
///     room for an ErrorInfo | this header | entries
///
/// A set of parameters nearly always ends up in a record. The record is then made in the room that the set brings
/// along, which saves an allocation for each record: a fifth of what making one costs.
class alignas(ErrorParamEntry) ErrorParamBlock {
public:
    [[nodiscard]] static ErrorParamBlock* allocate(unsigned capacity) {
        std::size_t size = 0;  // 32 bits may not be enough for it
        if (__builtin_mul_overflow(capacity, sizeof(ErrorParamEntry), &size) ||
            __builtin_add_overflow(size, s_roomSize + sizeof(ErrorParamBlock), &size)) {
            throw std::bad_alloc();
        }
        auto* const start = static_cast<char*>(::operator new(size));
        return ::new (static_cast<void*>(start + s_roomSize)) ErrorParamBlock(capacity);
    }

    /// Destroys the entries, and frees the memory when it does not belong to a record.
    void destroy() noexcept {
        for (unsigned i = 0; i < m_count; ++i) {
            entries()[i].~ErrorParamEntry();
        }
        if (!m_inRecord) {
            ::operator delete(room());
        }
    }

    /// The memory for a record, which owns the whole allocation from now on.
    [[nodiscard]] void* give_to_record() noexcept {
        m_inRecord = true;
        return room();
    }
    [[nodiscard]] bool in_record() const noexcept { return m_inRecord; }

    [[nodiscard]] ErrorParamEntry* entries() noexcept { return reinterpret_cast<ErrorParamEntry*>(this + 1); }
    [[nodiscard]] unsigned count() const noexcept { return m_count; }
    [[nodiscard]] unsigned capacity() const noexcept { return m_capacity; }

    // Both add an entry behind the others; there must be room.
    std::string& append(const SourceString& name, const std::string& value) {
        return counted(::new (next()) ErrorParamEntry{name, value});
    }
    std::string& append(SourceString&& name, std::string&& value) noexcept {
        return counted(::new (next()) ErrorParamEntry{std::move(name), std::move(value)});
    }
    // Made in place: moving a short string costs more than making it.
    std::string& append(NameMaker makeName, std::string_view name, std::string_view value) {
        return counted(::new (next()) ErrorParamEntry{makeName(name), std::string(value)});
    }

private:
    static constexpr std::size_t s_roomSize =
        (sizeof(ErrorInfo) + alignof(ErrorParamEntry) - 1) / alignof(ErrorParamEntry) * alignof(ErrorParamEntry);
    static_assert(alignof(ErrorInfo) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);
    static_assert(alignof(ErrorParamEntry) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);

    explicit ErrorParamBlock(unsigned capacity) noexcept : m_capacity(capacity) {}

    void* room() noexcept { return reinterpret_cast<char*>(this) - s_roomSize; }
    void* next() noexcept { return entries() + m_count; }
    std::string& counted(ErrorParamEntry* entry) noexcept {
        ++m_count;
        return entry->value;
    }

    unsigned m_count = 0;
    unsigned m_capacity;
    bool m_inRecord = false;
};

}  // namespace nqcore::impl

// The block behind a SourceString that owns its text: count, trace data, and the characters after it.
#pragma once

#include "nqcore/refcounted.h"
#include "nqcore/string_trace_data.h"

#include <cstdint>
#include <string_view>

namespace nqcore::impl {

/// The count and, in what would be padding, the length; keeps the holder within its 32 bytes.
class CountedLength : public RefCounted<AtomicRefCount> {
protected:
    explicit CountedLength(unsigned length) noexcept : m_textLength(length) {}

    std::uint32_t m_textLength;
};

/// One allocation: this object in the first 32 bytes, then the characters and a NUL.
///
/// What only few strings need (file offsets of trace sinks, a kept trace-data object) lies in an extension that is
/// made on first use.
class DynamicSourceStringHolder final : public CountedLength, public StringTraceData {
public:
    static constexpr unsigned size = 32;

    /// A holder with count 0 and room for `length` characters, which the caller fills; the NUL is there already.
    ///
    /// Errors   `std::bad_alloc`.
    static DynamicSourceStringHolder* allocate(unsigned length);

    DynamicSourceStringHolder(const DynamicSourceStringHolder&) = delete;
    DynamicSourceStringHolder& operator=(const DynamicSourceStringHolder&) = delete;

    [[nodiscard]] char* characters() const noexcept {
        return const_cast<char*>(reinterpret_cast<const char*>(this)) + size;
    }

    /// Keeps `data` alive and asks it for file offsets from now on. Called before the holder is shared.
    ///
    /// Errors   `std::bad_alloc`.
    void keep(const StringTraceData::Ptr& data);

    [[nodiscard]] std::string_view trace_text() const noexcept override { return {characters(), m_textLength}; }
    bool query_trace_file_offset(unsigned sink, unsigned fileNumber, std::uint64_t* offset) const noexcept override;
    void set_trace_file_offset(unsigned sink, unsigned fileNumber, std::uint64_t offset) const noexcept override;

protected:
    void destroy() override;

private:
    struct Extension;

    explicit DynamicSourceStringHolder(unsigned length) noexcept : CountedLength(length) {}
    ~DynamicSourceStringHolder() override;

    Extension* extension() const noexcept;

    mutable Extension* m_extension = nullptr;
};

static_assert(sizeof(DynamicSourceStringHolder) <= DynamicSourceStringHolder::size);

}  // namespace nqcore::impl

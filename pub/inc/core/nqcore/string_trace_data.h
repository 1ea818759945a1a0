// StringTraceData: lets a trace sink remember where in its file it has already written a text.
//
//     auto data = name.query_trace_data();
//     std::uint64_t offset;
//     if (data && data->query_trace_file_offset(sink, fileNumber, &offset)) { /* write a back reference */ }
//
// Strings that are written many times (object keys, dynamic source strings) offer one. The library knows no trace
// sink itself: a sink installs two handlers, and streams that belong to it accept the data.
#pragma once

#include "nqcore/config.h"
#include "nqcore/interface_ptr.h"
#include "nqcore/refcounted.h"

#include <cstdint>
#include <iosfwd>
#include <string_view>

namespace nqcore {

/// A text with one remembered file offset for each trace sink.
///
/// Threads  any; offsets are single atomic words.
class NQCORE_API StringTraceData {
public:
    using Ptr = InterfacePtr<const StringTraceData, RefCountPtr<const RefCounted<AtomicRefCount>>>;

    /// Sinks for which an offset is kept: 4. Sinks are numbered from 0.
    [[nodiscard]] static unsigned max_trace_sink_count() noexcept;

    /// The text itself; lives as long as this object.
    [[nodiscard]] virtual std::string_view trace_text() const noexcept = 0;

    /// Where sink `sink` has written the text.
    ///
    /// In       `fileNumber`: counts the sink's files, so that an offset in an older file is not taken for one in
    ///          the present file; its low 16 bits are kept.
    /// Out      `offset`: bytes from the start of the file; untouched when the answer is false.
    /// Returns  false when nothing is remembered for this sink and file, or `sink` is out of range.
    virtual bool query_trace_file_offset(unsigned sink, unsigned fileNumber, std::uint64_t* offset) const noexcept = 0;

    /// Remembers where sink `sink` has written the text; the last call for a sink counts.
    ///
    /// In       `offset`: below 2^48 - 1; a larger one, or a sink out of range, is not remembered. Nor is anything
    ///          when memory is exhausted: a sink writes the text again then.
    virtual void set_trace_file_offset(unsigned sink, unsigned fileNumber, std::uint64_t offset) const noexcept = 0;

    /// True when `stream` belongs to a sink that accepts trace data; false while no handlers are installed.
    [[nodiscard]] static bool supported_by_stream(std::ostream& stream);

    /// Writes `data` to a stream that supports it; does nothing while no handlers are installed.
    static void write_to_stream(std::ostream& stream, const Ptr& data);

protected:
    StringTraceData() noexcept = default;
    StringTraceData(const StringTraceData&) noexcept = default;
    StringTraceData& operator=(const StringTraceData&) noexcept = default;
    virtual ~StringTraceData();
};

/// Installs the two handlers that `StringTraceData` delegates to, for the whole process; null ones remove them.
///
/// Threads  any; calls already under way may still use the old handlers.
NQCORE_API void set_string_trace_handlers(bool (*supported)(std::ostream& stream),
                                          void (*write)(std::ostream& stream, StringTraceData::Ptr data)) noexcept;

namespace impl {

/// The offsets of one text, one word for each sink; what implementations of `StringTraceData` keep.
class NQCORE_API TraceFileOffsets {
public:
    bool query(unsigned sink, unsigned fileNumber, std::uint64_t* offset) const noexcept;
    void set(unsigned sink, unsigned fileNumber, std::uint64_t offset) noexcept;

private:
    // File number in the top 16 bits, offset + 1 below; 0 while nothing is remembered.
    alignas(8) unsigned long long m_words[4] = {};
};

}  // namespace impl

}  // namespace nqcore

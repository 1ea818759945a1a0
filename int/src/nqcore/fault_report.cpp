#include "nqcore/fault_report.h"

#include "dump_file.h"
#include "error_reserve.h"
#include "fault_report_trace.h"
#include "nqcore/error_exception.h"
#include "nqcore/error_info.h"
#include "nqcore/source_location.h"
#include "source_id.h"

#include <ace/Log_Msg.h>

#include <atomic>
#include <exception>
#include <new>
#include <sstream>
#include <string>

namespace nqcore {
namespace {

constexpr SourceId s_source("$Id: //nqcore/int/src/nqcore/fault_report.cpp#1 $");

const impl::ErrorReserve s_outOfMemory([] {
    return ErrorInfo::from_exception(std::bad_alloc(), s_source.here("nqcore::impl::error_in_flight()"));
});

// A dump takes seconds and much of a disk, and the first exception tells most.
void write_first_dump() {
    static constinit std::atomic<bool> s_hasDump = false;
    if (!impl::is_dump_folder_configured() || s_hasDump.exchange(true, std::memory_order_relaxed)) {
        return;
    }
    const std::string path = impl::write_dump_file();
    impl::trace_lines(path.empty() ? "nqcore: creation of dump failed" : "nqcore: dump saved to " + path);
}

}  // namespace

namespace impl {

// The log cuts long entries short, so each line is an entry of its own.
void trace_lines(const std::string& text) {
    for (std::size_t begin = 0; begin < text.size();) {
        std::size_t end = text.find('\n', begin);
        if (end == std::string::npos) {
            end = text.size();
        }
        const std::string line = text.substr(begin, end - begin);
        // Not through ACE's macros: their inline functions would be exported from here, and ACE itself would bind to them
        // and so keep this library from being unloaded.
        ACE_Log_Msg::instance()->log(LM_ERROR, ACE_TEXT("%C\n"), line.c_str());
        begin = end + 1;
    }
}

ErrorInfo::Ptr error_in_flight(const SourceLocation& location) noexcept {
    if (!std::current_exception()) {
        return {};
    }
    try {
        try {
            throw;
        } catch (const std::exception& exception) {
            return ErrorInfo::from_exception(exception, location);
        } catch (...) {
            return ErrorInfo::from_anonymous_exception(location);
        }
    } catch (...) {
        return s_outOfMemory.get();
    }
}

}  // namespace impl

void create_dump_and_trace_anonymous_exception(const SourceLocation& location) noexcept {
    try {
        std::ostringstream text;
        text << "nqcore: unexpected exception caught by " << location.function().view() << " (" << location.file_path()
             << ':' << location.line() << ')';
        if (const ErrorInfo::Ptr error = impl::error_in_flight(location)) {
            text << ErrorInfo::Trace{*error, 1};
        } else {
            text << ": no exception in flight";
        }
        impl::trace_lines(text.str());
        write_first_dump();
    } catch (...) {
        // Memory is exhausted, most likely; there is nobody left to tell.
    }
}

}  // namespace nqcore

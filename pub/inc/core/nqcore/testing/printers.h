// How GoogleTest prints the library's values in failures. Types that have `<<` and are missing here print as that writes
// them.
//
//     EXPECT_EQ(range, StringRange(4, 3));    // Which is: (4, 3)
#pragma once

#include "nqcore/abs_rel_time.h"
#include "nqcore/duration_text.h"
#include "nqcore/error_exception.h"
#include "nqcore/error_info.h"
#include "nqcore/error_or.h"
#include "nqcore/error_params.h"
#include "nqcore/future.h"
#include "nqcore/interface_ptr.h"
#include "nqcore/monotonic_time.h"
#include "nqcore/refcounted.h"
#include "nqcore/result.h"
#include "nqcore/source_location.h"
#include "nqcore/source_string.h"
#include "nqcore/string_range.h"
#include "nqcore/thin_vector.h"
#include "nqcore/utc_text.h"
#include "nqcore/uuid.h"
#include "nqcore/weak_ref_ptr.h"

#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>

namespace nqcore {
namespace impl {

/// The address and what lies there, when that has a text; GoogleTest would dump the bytes of anything else.
template <class T>
void print_pointee(const T* object, std::ostream* stream) {
    if (object == nullptr) {
        *stream << "null";
        return;
    }
    *stream << static_cast<const void*>(object);
    if constexpr (requires { *stream << *object; }) {
        *stream << " -> " << ::testing::PrintToString(*object);
    }
}

// ------------------------------------------------------------------------------------------------------------- outcomes

inline void print_failure(const RefCountPtr<const ErrorInfo>& error, std::ostream* stream) {
    *stream << "a failure";
    if (!error.is_null()) {
        *stream << ErrorInfo::Trace{*error, 1};
    }
}

/// A future or a result.
template <class Outcome>
void print_outcome(const Outcome& outcome, std::ostream* stream) {
    if (!outcome.is_ready()) {
        *stream << "not ready";
    } else if (outcome.has_error()) {
        print_failure(outcome.error_info(), stream);
    } else if constexpr (std::is_void_v<typename Outcome::value_type>) {
        *stream << "a success";
    } else {
        *stream << "the value " << ::testing::PrintToString(outcome.get());
    }
}

}  // namespace impl

// --------------------------------------------------------------------------------------------------------------- errors

inline void PrintTo(const ErrorInfo& record, std::ostream* stream) { *stream << ErrorInfo::Trace{record, 1}; }
inline void PrintTo(const RefCountPtr<const ErrorInfo>& record, std::ostream* stream) {
    if (record.is_null()) {
        *stream << "no error";
    } else {
        PrintTo(*record, stream);
    }
}
inline void PrintTo(const ErrorException& exception, std::ostream* stream) { PrintTo(exception.error(), stream); }
inline void PrintTo(const ErrorCode& code, std::ostream* stream) { *stream << '"' << code << '"'; }
inline void PrintTo(const ErrorParams& params, std::ostream* stream) {
    *stream << '{';
    params.write_trace(*stream, ", ");
    *stream << '}';
}
template <class T>
void PrintTo(const ErrorOr<T>& outcome, std::ostream* stream) {
    if (!outcome.ok()) {
        impl::print_failure(outcome.error(), stream);
    } else if constexpr (std::is_void_v<T>) {
        *stream << "a success";
    } else {
        *stream << "the value " << ::testing::PrintToString(*outcome);
    }
}
template <class T>
void PrintTo(const Future<T>& future, std::ostream* stream) {
    if (future.is_null()) {
        *stream << "null";
    } else {
        impl::print_outcome(future, stream);
    }
}
template <class T>
void PrintTo(const Result<T>& result, std::ostream* stream) {
    impl::print_outcome(result, stream);
}

// ----------------------------------------------------------------------------------------------------------------- text

inline void PrintTo(const SourceString& text, std::ostream* stream) {
    *stream << ::testing::PrintToString(text.as_string());
}
inline void PrintTo(const SourceLocation& location, std::ostream* stream) {
    *stream << location.function() << ' ' << impl::depot_path_of(location.file_id()) << '(' << location.line() << ')';
}
inline void PrintTo(const StringRange& range, std::ostream* stream) {
    const auto position = [](unsigned number) {
        return StringRange::is_npos(number) ? std::string("npos") : std::to_string(number);
    };
    *stream << '(' << position(range.first()) << ", " << position(range.length()) << ')';
}
inline void PrintTo(const UtcText& text, std::ostream* stream) { *stream << '"' << text.view() << '"'; }
inline void PrintTo(const DurationText& text, std::ostream* stream) { *stream << '"' << text.view() << '"'; }
inline void PrintTo(const UuidText& text, std::ostream* stream) { *stream << '"' << text.view() << '"'; }

// ---------------------------------------------------------------------------------------------------------------- times

inline void PrintTo(const MonotonicTime& time, std::ostream* stream) { *stream << time.as_string() << " since boot"; }
inline void PrintTo(const AbsoluteTime::Components& components, std::ostream* stream) {
    *stream << components.year() << '-' << components.month() << '-' << components.day() << ' ' << components.hour()
            << ':' << components.minute() << ':' << components.second() << " + " << components.nanosecond() << "ns";
}

// ------------------------------------------------------------------------------------------------------------- pointers

template <class T>
void PrintTo(const RefCountPtr<T>& pointer, std::ostream* stream) {
    impl::print_pointee(pointer.get(), stream);
}
template <class T>
void PrintTo(const StrongRefPtr<T>& pointer, std::ostream* stream) {
    impl::print_pointee(pointer.get(), stream);
}
template <class T>
void PrintTo(const WeakRefPtr<T>& pointer, std::ostream* stream) {
    const StrongRefPtr<T> held = pointer.try_lock();
    if (held.is_null()) {
        *stream << "expired";
    } else {
        impl::print_pointee(held.get(), stream);
    }
}
template <class Interface, class Owner>
void PrintTo(const InterfacePtr<Interface, Owner>& pointer, std::ostream* stream) {
    impl::print_pointee(pointer.get(), stream);
}

}  // namespace nqcore

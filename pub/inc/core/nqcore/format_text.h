// What nqcore/format_fmt.h and nqcore/format_std.h share: which types have a formatter, and what it writes.
//
// The text is the one that the library itself writes: that of `<<` or of `as_string`.
#pragma once

#include "nqcore/abs_rel_time.h"
#include "nqcore/affinity.h"
#include "nqcore/duration_text.h"
#include "nqcore/error_code.h"
#include "nqcore/error_exception.h"
#include "nqcore/error_info.h"
#include "nqcore/error_params.h"
#include "nqcore/monotonic_time.h"
#include "nqcore/object_key.h"
#include "nqcore/process_info.h"
#include "nqcore/refcounted.h"
#include "nqcore/simple_date_time.h"
#include "nqcore/source_string.h"
#include "nqcore/stack_trace.h"
#include "nqcore/utc_text.h"
#include "nqcore/uuid.h"

#include <sstream>
#include <string>
#include <string_view>

/// One row for each type. A formatter is a full specialization, so that it goes before the ones that a formatting library
/// has for ranges and exceptions.
#define NQCORE_FORMATTED_TYPES(TYPE) \
    TYPE(AbsoluteTime)               \
    TYPE(CpuAffinityMask)            \
    TYPE(DurationText)               \
    TYPE(ErrorCode)                  \
    TYPE(ErrorException)             \
    TYPE(ErrorInfo)                  \
    TYPE(ErrorInfo::Ptr)             \
    TYPE(ErrorParams)                \
    TYPE(ExitCode)                   \
    TYPE(MonotonicTime)              \
    TYPE(ObjectKey)                  \
    TYPE(RelativeTime)               \
    TYPE(SimpleDateTime)             \
    TYPE(SourceString)               \
    TYPE(StackTrace)                 \
    TYPE(StringKey)                  \
    TYPE(UtcText)                    \
    TYPE(Uuid)                       \
    TYPE(UuidKey)                    \
    TYPE(UuidText)                   \
    TYPE(WeakRefPromoteException)

namespace nqcore::impl {

/// How a type says its text. The first rule that fits it counts: times and identifiers need no allocation.
template <class T>
[[nodiscard]] auto text_to_format(const T& value) {
    if constexpr (requires { UtcText::plain(value); }) {
        return UtcText::plain(value);
    } else if constexpr (requires { DurationText::plain(value); }) {
        return DurationText::plain(value);
    } else if constexpr (requires { UuidText(value); }) {
        return UuidText(value);
    } else if constexpr (requires { value.view(); }) {
        return value.view();
    } else if constexpr (requires { value.text(); }) {
        return value.text();
    } else if constexpr (requires { value.as_string(); }) {
        return value.as_string();
    } else if constexpr (requires { value.what(); }) {
        return std::string_view(value.what());
    } else {
        std::ostringstream stream;
        stream << value;
        return stream.str();
    }
}
[[nodiscard]] inline std::string_view text_to_format(const ErrorCode& code) noexcept { return code.value().view(); }
[[nodiscard]] inline std::string text_to_format(const ErrorParams& params) {
    std::ostringstream stream;
    params.write_trace(stream, ", ");
    return stream.str();
}
[[nodiscard]] inline std::string text_to_format(const ErrorInfo& record) {
    std::ostringstream stream;
    record.write_trace(stream, 0);
    return stream.str();
}
[[nodiscard]] inline std::string text_to_format(const ErrorInfo::Ptr& record) {
    return record.is_null() ? "no error" : text_to_format(*record);
}

[[nodiscard]] inline std::string_view view_of_text(std::string_view text) noexcept { return text; }
template <class Text>
    requires(requires(const Text& text) { text.view(); })
[[nodiscard]] std::string_view view_of_text(const Text& text) noexcept {
    return text.view();
}

/// A formatter for `Value` from that for text, whose width, fill, alignment and precision it takes.
template <class TextFormatter, class Value>
struct ValueFormatter : TextFormatter {
    template <class Context>
    auto format(const Value& value, Context& context) const {
        const auto text = text_to_format(value);
        return TextFormatter::format(view_of_text(text), context);
    }
};

}  // namespace nqcore::impl

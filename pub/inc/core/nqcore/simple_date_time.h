// SimpleDateTime: a point in time that remembers the offset from UTC that it was given with.
//
//     const SimpleDateTime sent = SimpleDateTime::from_string("2020-01-01T12:00:00+02:00");
//     sent.as_utc_time();    // 2020-01-01 12:00: the time that is written is UTC, and the offset comes on top of it
//     sent.as_local_time();  // 2020-01-01 14:00
//
// Beware: other formats write local time before the offset, and would call the instant above 10:00 UTC.
#pragma once

#include "nqcore/abs_rel_time.h"
#include "nqcore/config.h"
#include "nqcore/refcounted.h"

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string_view>

namespace nqcore {

class ErrorInfo;

/// A UTC base and a whole number of minutes east of UTC.
///
/// Values with the same local time are equal, whatever their offsets.
/// Range    offsets of -720 to 720 minutes; what lies beyond moves into the base by whole days, which leaves the local
///          time as it is, for offsets of up to 24855 days. An infinite base has the offset 0.
/// Errors   "error.nqcore.simpleDateTime.timezoneOffset" for an infinite offset, or any offset of an infinite base; an
///          object that was to be set is as it was. Arithmetic wraps round, as that of `AbsoluteTime`.
/// Threads  a plain value.
class NQCORE_API SimpleDateTime {
public:
    /// Reads UTC text as `AbsoluteTime::from_string` does, and behind it "Z", an offset ("+02:00", "-0530", "+02") or
    /// nothing.
    ///
    /// In       `length`: bytes of `text`; `AbsoluteTime::npos` measures. Null counts as empty.
    /// Errors   "error.nqcore.simpleDateTime.invalidString", with the whole text as "dateTime"; the cause is nested
    ///          where the UTC text is wrong.
    [[nodiscard]] static SimpleDateTime from_string(std::string_view text);
    [[nodiscard]] static SimpleDateTime from_string(const char* text, unsigned length = AbsoluteTime::npos);
    /// Out      `out`: left alone on failure; a pointer may be null.
    /// Returns  null, or the error.
    [[nodiscard]] static RefCountPtr<const ErrorInfo> from_string_nothrow(std::string_view text, SimpleDateTime& out);
    [[nodiscard]] static RefCountPtr<const ErrorInfo> from_string_nothrow(const char* text, unsigned length,
                                                                          SimpleDateTime* out);

    /// 1970-01-01 00:00:00 UTC.
    constexpr SimpleDateTime() noexcept = default;
    constexpr explicit SimpleDateTime(AbsoluteTime utcBase) noexcept : m_utcBase(utcBase) {}
    /// In       `timezoneOffset`: truncated to whole minutes.
    SimpleDateTime(AbsoluteTime utcBase, RelativeTime timezoneOffset) { set(utcBase, timezoneOffset); }
    SimpleDateTime(AbsoluteTime utcBase, int timezoneOffsetMinutes) { set(utcBase, timezoneOffsetMinutes); }

    // As the constructors of the same arguments.
    constexpr void set(AbsoluteTime utcBase) noexcept { *this = SimpleDateTime(utcBase); }
    void set(AbsoluteTime utcBase, RelativeTime timezoneOffset);
    void set(AbsoluteTime utcBase, int timezoneOffsetMinutes);

    [[nodiscard]] constexpr AbsoluteTime as_utc_time() const noexcept { return m_utcBase; }
    /// The base and the offset; an infinite base stays infinite.
    [[nodiscard]] constexpr AbsoluteTime as_local_time() const noexcept {
        return m_utcBase + timezone_offset_as_relative_time();
    }
    /// Minutes east of UTC.
    [[nodiscard]] constexpr int timezone_offset() const noexcept { return m_timezoneOffset; }
    [[nodiscard]] constexpr RelativeTime timezone_offset_as_relative_time() const noexcept {
        return RelativeTime::minutes(m_timezoneOffset);
    }

    /// The base, and its offset: "2020-01-01 12:00:00.0+02:00", "2020-01-01 12:00:00.0Z", "##INFINITE##".
    [[nodiscard]] std::string as_string() const;

    /// That of the local time.
    [[nodiscard]] constexpr std::uint32_t hash() const noexcept { return as_local_time().hash(); }

    // By local time.
    friend constexpr bool operator==(const SimpleDateTime& a, const SimpleDateTime& b) noexcept {
        return a.as_local_time() == b.as_local_time();
    }
    friend constexpr std::weak_ordering operator<=>(const SimpleDateTime& a, const SimpleDateTime& b) noexcept {
        return a.as_local_time() <=> b.as_local_time();
    }

    /// Writes `as_string`.
    friend NQCORE_API std::ostream& operator<<(std::ostream& stream, const SimpleDateTime& time);

private:
    AbsoluteTime m_utcBase;
    std::int32_t m_timezoneOffset = 0;
};

static_assert(sizeof(SimpleDateTime) == 16);

}  // namespace nqcore

template <>
struct std::hash<nqcore::SimpleDateTime> {
    std::size_t operator()(const nqcore::SimpleDateTime& time) const noexcept { return time.hash(); }
};

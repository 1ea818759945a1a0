// Finding a UTC time stamp at the start of a line.
//
// What counts as one, from the first byte of the line:
//
//   1. a date: dddd-dd-dd or dddddddd (digits, whatever their values);
//   2. a blank, "T" or "t";
//   3. two digits, and then no letter but "Z" or "z": "2026-11-01 12th" is no stamp;
//   4. what else belongs to the time: digits, letters, "_" and bytes above 0x7F, and each ":" "." "," "+" "-" that a
//      digit follows. So "12:34:56, done" ends before the comma, and "12:34:56+0100" includes its offset. A comma that
//      cannot be a decimal one ends it too: behind a fraction, or before digits and another comma (a column);
//   5. a word that states another zone: a blank and "+01:00", "-0500", "+01", or one of the usual abbreviations ("CET").
//
// All of it goes through AbsoluteTime::from_string. What that refuses looks like a stamp but cannot be read: a month of
// 13, an hour of 25, an offset. "INF" and "##INFINITE##" are words here.
#pragma once

#include <string_view>

namespace nq {

/// The time stamp that a line begins with; empty when it begins with none.
///
/// In       `line`: without its line ending, or with more lines behind it: a stamp never includes a line feed.
[[nodiscard]] std::string_view leading_time_stamp(std::string_view line) noexcept;

}  // namespace nq

// How a source of the library names itself in the locations of its errors.
//
//     constexpr SourceId s_source("$Id: //nqcore/int/src/nqcore/uuid.cpp#1 $");
//     throw_error(error::nqcore_uuid_parse, "...", s_source.here("nqcore::Uuid::from_string()"));
//     throw_error(error::nqcore_uuid_parse, "...", s_source.at("nqcore::Uuid::from_string()", s_parseErrorLine));
//
// The name in the identifier is the family's fixed one, also where the code lies in a file of another name.
#pragma once

#include "nqcore/source_location.h"

#include <string_view>

namespace nqcore {

/// The control-keyword line of one source file.
class SourceId {
public:
    consteval explicit SourceId(const char* keywordLine) : m_text(keywordLine) {
        const std::string_view text(keywordLine);
        if (!text.starts_with("$Id: //nqcore/int/src/") || !text.ends_with(".cpp#1 $")) {
            throw "a file identifier is $Id: //nqcore/int/src/<folder>/<name>.cpp#1 $";
        }
    }

    /// The line that the call is written on.
    ///
    /// In       `function`: a literal, "nqcore::Class::function()".
    [[nodiscard]] constexpr SourceLocation here(const char* function, unsigned line = __builtin_LINE()) const noexcept {
        return SourceLocation(function, m_text, line);
    }

    /// A line that is fixed whatever the code around it does.
    [[nodiscard]] constexpr SourceLocation at(const char* function, unsigned fixedLine) const noexcept {
        return SourceLocation(function, m_text, fixedLine);
    }

    [[nodiscard]] constexpr const char* text() const noexcept { return m_text; }

private:
    const char* m_text;
};

}  // namespace nqcore

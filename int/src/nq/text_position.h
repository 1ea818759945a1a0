// Where in a text something is, for people and for programs.
#pragma once

#include "chunk_reader.h"

#include "nqcore/error_info.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace nq {

struct TextPosition {
    std::uint64_t offset = 0;  ///< bytes of the input before it
    std::uint64_t line = 1;
    std::uint64_t column = 1;  ///< in characters

    /// Moves past `text`, valid UTF-8. The offset moves by `inputBytes`, what the text takes in the input.
    void advance(std::string_view text, std::uint64_t inputBytes) noexcept;
    void advance(std::string_view text) noexcept { advance(text, text.size()); }
};

/// A record that says where in an input the fault is that `cause` describes.
///
/// In       `what`: a literal: what the input should be.
[[nodiscard]] nqcore::ErrorInfo::Ptr bad_text_error(const char* what, const std::string& inputName,
                                                    const TextPosition& position, const nqcore::ErrorInfo::Ptr& cause);

/// The bytes from the bad sequence at `offset` of a chunk on, at most six: with them the library finds the same fault as
/// with the whole input. Reads on, and uses the chunk up, when they do not all lie in it.
[[nodiscard]] std::string bytes_at_fault(Chunk& chunk, std::size_t offset, ChunkReader& reader);

}  // namespace nq

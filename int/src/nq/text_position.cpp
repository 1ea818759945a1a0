#include "text_position.h"

#include "errors.h"
#include "nqcore/error_composer.h"

#include <algorithm>

namespace nq {

namespace {

constexpr SourceFile s_source("$Id: //nqcore/int/src/nq/text_position.cpp#1 $");

constexpr nqcore::ErrorTemplate s_badText(
    "invalid {@encoding} in {@input} at offset {@offset} (line {@line}, column {@column})", "encoding", "input",
    "offset", "line", "column");

std::uint64_t count_characters(std::string_view text) noexcept {
    return static_cast<std::uint64_t>(std::count_if(
        text.begin(), text.end(), [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0u) != 0x80; }));
}

}  // namespace

void TextPosition::advance(std::string_view text, std::uint64_t inputBytes) noexcept {
    offset += inputBytes;
    const std::size_t lastLineFeed = text.rfind('\n');
    if (lastLineFeed != text.npos) {
        line += static_cast<std::uint64_t>(std::count(text.begin(), text.end(), '\n'));
        column = 1;
        text.remove_prefix(lastLineFeed + 1);
    }
    column += count_characters(text);
}

nqcore::ErrorInfo::Ptr bad_text_error(const char* what, const std::string& inputName, const TextPosition& position,
                                      const nqcore::ErrorInfo::Ptr& cause) {
    return s_badText.compose(what, std::string_view(inputName), position.offset, position.line, position.column)
        .create(error::text, s_source.here("nq::bad_text_error()"), cause);
}

std::string bytes_at_fault(Chunk& chunk, std::size_t offset, ChunkReader& reader) {
    constexpr std::size_t longestSequence = 6;
    std::string bytes(chunk.view().substr(offset, longestSequence));
    while (bytes.size() < longestSequence && reader.next(chunk)) {
        bytes += chunk.view().substr(0, longestSequence - bytes.size());
    }
    return bytes;
}

}  // namespace nq

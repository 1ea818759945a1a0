// Decoding against a second, slow reading of the rules, whole and in pieces; and bytes there and back.
// The first byte chooses the codec and the options, the second where the text is cut.
#include "nqcore/error_info.h"
#include "nqcore/transforms.h"

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

namespace {

using nqcore::DecodeOptions;
using nqcore::Transform;
using Error = nqcore::RefCountPtr<const nqcore::ErrorInfo>;

void require(bool truth) {
    if (!truth) {
        std::abort();
    }
}

struct Verdict {
    const char* fault = nullptr;
    std::size_t position = 0;
    std::string bytes;
};

// A character's digits as a text of bits: "0101"; empty for none.
std::string bits_of(Transform transform, char c, bool bothCases) {
    std::string_view digits = "0123456789abcdef";
    unsigned count = 4;
    if (transform == Transform::base64) {
        digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        count = 6;
        c = c == '-' ? '+' : c == '_' ? '/' : c;
    } else if (transform == Transform::base32) {
        digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567";
        count = 5;
        c = bothCases && c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    } else if (c >= 'A' && c <= 'F') {
        c = static_cast<char>(c - 'A' + 'a');
    }
    const std::size_t value = digits.find(c);
    std::string bits;
    for (unsigned i = count; value != digits.npos && i-- > 0;) {
        bits += (value >> i & 1) != 0 ? '1' : '0';
    }
    return bits;
}

Verdict read_slowly(Transform transform, std::string_view text, DecodeOptions options) {
    std::string bits;
    std::size_t digits = 0;
    std::size_t paddings = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        const std::string more = bits_of(transform, c, options.allowLowerCase);
        if (options.allowLineBreaks && (c == '\r' || c == '\n')) {
            continue;
        }
        if (c == '=' && transform != Transform::hex) {
            ++paddings;
        } else if (paddings != 0) {
            return {"padding", at, {}};
        } else if (more.empty()) {
            return {"invalid", at, {}};
        } else {
            bits += more;
            ++digits;
        }
    }
    // By the number of digits in the last group: the paddings that are due, -1 when no number of bytes ends so.
    static constexpr int due64[] = {0, -1, 2, 1};
    static constexpr int due32[] = {0, -1, 6, -1, 4, 3, -1, 1};
    const int due = transform == Transform::hex      ? (digits % 2 == 0 ? 0 : -1)
                    : transform == Transform::base64 ? due64[digits % 4]
                                                     : due32[digits % 8];
    const bool isLeftOut = paddings == 0 && options.allowMissingPadding;
    if (due < 0 || (!isLeftOut && paddings != static_cast<std::size_t>(due))) {
        return {"truncated", text.size(), {}};
    }
    Verdict verdict;
    for (std::size_t at = 0; at + 8 <= bits.size(); at += 8) {
        verdict.bytes += static_cast<char>(std::strtoul(bits.substr(at, 8).c_str(), nullptr, 2));
    }
    return verdict;
}

void require_error(const Error& error, Transform transform, const Verdict& verdict) {
    static constexpr const char* names[] = {"hex", "base64", "base32"};
    const std::string code = std::string("error.nqcore.transforms.") + names[static_cast<unsigned>(transform)] + '.';
    require(error->code().value().view() == code + verdict.fault);
    require(error->params().get_value("stringPos") == std::to_string(verdict.position));
    require(!error->expanded_message().empty());
}

void check_whole(Transform transform, std::string_view text, DecodeOptions options, const Verdict& verdict) {
    const std::size_t room = nqcore::impl::decoded_size(transform, text, options);
    require(room <= nqcore::impl::max_decoded_size(transform, text.size()));
    const auto bytes = std::make_unique<char[]>(room);
    std::size_t outBytes = 77;
    const Error error = nqcore::impl::decode_nothrow(transform, text, bytes.get(), &outBytes, options);
    require(error.is_null() == (verdict.fault == nullptr));
    require(std::string_view(bytes.get(), outBytes) == verdict.bytes);
    if (error.is_null()) {
        require(outBytes == room);
    } else {
        require_error(error, transform, verdict);
    }
}

void check_pieces(Transform transform, std::string_view text, DecodeOptions options, std::size_t cut,
                  const Verdict& verdict) {
    nqcore::TransformDecoder decoder(transform, options);
    std::string bytes;
    Error error;
    for (std::size_t at = 0; at < text.size() && error.is_null(); at += cut) {
        const std::string_view piece = text.substr(at, cut);
        const std::size_t room = decoder.max_update_size(piece.size());
        const auto out = std::make_unique<char[]>(room);
        std::size_t written = 0;
        error = decoder.update_nothrow(piece, out.get(), written);
        require(written <= room);
        bytes.append(out.get(), written);
    }
    if (error.is_null()) {
        char last[nqcore::TransformDecoder::max_finish_size];
        std::size_t written = 0;
        error = decoder.finish_nothrow(last, written);
        bytes.append(last, written);
    }
    require(error.is_null() == (verdict.fault == nullptr));
    if (error.is_null()) {
        require(bytes == verdict.bytes);
    } else {
        require_error(error, transform, verdict);
    }
}

void check_round_trip(Transform transform, std::string_view bytes, bool padding, std::size_t cut) {
    std::string text;
    nqcore::impl::append_encoded(transform, text, bytes, {.padding = padding});
    require(text.size() == nqcore::impl::encoded_size(transform, bytes.size(), padding && transform != Transform::hex));
    const Verdict verdict = read_slowly(transform, text, {.allowMissingPadding = !padding});
    require(verdict.fault == nullptr && verdict.bytes == bytes);
    nqcore::TransformEncoder encoder(transform, {.padding = padding});
    std::string pieces;
    for (std::size_t at = 0; at < bytes.size(); at += cut) {
        encoder.update(bytes.substr(at, cut), pieces);
    }
    encoder.finish(pieces);
    require(pieces == text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) {
        return 0;
    }
    const auto transform = static_cast<Transform>(data[0] % 3);
    const unsigned choice = data[0] / 3;
    const DecodeOptions options{(choice & 1) != 0, (choice & 2) != 0, (choice & 4) != 0};
    const std::size_t cut = data[1] + std::size_t{1};
    // A copy of the exact size, so that the sanitizers see a read past the end.
    const std::string_view given(reinterpret_cast<const char*>(data) + 2, size - 2);
    const auto copy = std::make_unique<char[]>(given.size());
    given.copy(copy.get(), given.size());
    const std::string_view text(copy.get(), given.size());
    const Verdict verdict = read_slowly(transform, text, options);
    check_whole(transform, text, options, verdict);
    check_pieces(transform, text, options, cut, verdict);
    check_round_trip(transform, text, (choice & 2) == 0, cut);
    return 0;
}

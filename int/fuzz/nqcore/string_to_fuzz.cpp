// Text to numbers against slow and obvious readers. The first byte chooses what is read.
#include "nqcore/error_info.h"
#include "nqcore/string_to.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

using Error = nqcore::RefCountPtr<const nqcore::ErrorInfo>;

void require(bool truth) {
    if (!truth) {
        std::abort();
    }
}

// A failure is the family's, and its text can be written.
void require_failure(const Error& error) {
    require(!error.is_null() && error->code() == nqcore::error::nqcore_string_extraction);
    require(!error->expanded_message().empty());
}

struct Wanted {
    bool good = false;
    std::uint64_t magnitude = 0;
    bool negative = false;
};

int digit_value(char c) {
    return c >= '0' && c <= '9'   ? c - '0'
           : c >= 'a' && c <= 'z' ? c - 'a' + 10
           : c >= 'A' && c <= 'Z' ? c - 'A' + 10
                                  : 99;
}

// One digit after the other, each bound tested before it could be passed.
Wanted read_slowly(std::string_view text, unsigned radix, bool isSigned, std::uint64_t max,
                   std::uint64_t minMagnitude) {
    Wanted wanted;
    if (isSigned && !text.empty() && (text[0] == '-' || text[0] == '+')) {
        wanted.negative = text[0] == '-';
        text.remove_prefix(1);
    }
    if (radix == 0) {
        radix = 10;
        if (text.size() >= 2 && text[0] == '0') {
            const unsigned prefixed = text[1] == 'x' || text[1] == 'X'   ? 16
                                      : text[1] == 'o' || text[1] == 'O' ? 8
                                      : text[1] == 'b' || text[1] == 'B' ? 2
                                                                         : 0;
            radix = prefixed == 0 ? 10 : prefixed;
            text.remove_prefix(prefixed == 0 ? 0 : 2);
        }
    }
    const std::uint64_t limit = wanted.negative ? minMagnitude : max;
    if (text.empty() || radix < 2 || radix > 36) {
        return wanted;
    }
    for (const char c : text) {
        const auto digit = static_cast<unsigned>(digit_value(c));
        if (digit >= radix || digit > limit || wanted.magnitude > (limit - digit) / radix) {
            return wanted;
        }
        wanted.magnitude = wanted.magnitude * radix + digit;
    }
    wanted.good = true;
    return wanted;
}

template <class T>
void check_integer(std::string_view text, unsigned radix) {
    constexpr auto& limits = nqcore::impl::s_integerType<T>;
    const Wanted wanted = read_slowly(text, radix, limits.isSigned, limits.max, limits.minMagnitude);
    const auto expected = static_cast<T>(wanted.negative ? 0 - wanted.magnitude : wanted.magnitude);
    Error error;
    const T got = nqcore::base_n_string_to<T>(text, radix, &error);
    Error wideError;
    const T wideGot = nqcore::base_n_string_to<T>(std::wstring(text.begin(), text.end()), radix, &wideError);
    require(error.is_null() == wanted.good && wideError.is_null() == wanted.good);
    if (!wanted.good) {
        require_failure(error);
        require_failure(wideError);
    }
    require(got == (wanted.good ? expected : T(0)) && wideGot == got);
}

void check_double(std::string_view text) {
    const std::string terminated(text);
    char* stop = nullptr;
    const double expected = std::strtod(terminated.c_str(), &stop);
    // What may stand in the brackets differs between C libraries.
    const bool named = terminated.find("an(") != terminated.npos || terminated.find("AN(") != terminated.npos ||
                       terminated.find("aN(") != terminated.npos || terminated.find("An(") != terminated.npos;
    const bool good = text.size() < 128 && stop == terminated.data() + terminated.size();
    Error error;
    const double got = nqcore::string_to<double>(text, &error);
    require(error.is_null() == good || named);
    if (!error.is_null()) {
        require_failure(error);
        require(std::isnan(got));
    } else if (std::isnan(expected)) {
        require(std::isnan(got));
    } else {
        require(std::bit_cast<std::uint64_t>(got) == std::bit_cast<std::uint64_t>(expected));
    }
    Error floatError;
    const float narrow = nqcore::string_to<float>(text, &floatError);
    const bool fits = !error.is_null() || std::isnan(got) || std::fabs(got) <= 3.4028234663852886e38;
    require(floatError.is_null() == (error.is_null() && fits));
    require(std::isnan(narrow) == std::isnan(got) && (std::isnan(got) || narrow == static_cast<float>(got)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
    const unsigned choice = data[0];
    const unsigned radix = choice / 5 % 40;
    switch (choice % 5) {
        case 0:
            check_integer<int>(text, radix);
            break;
        case 1:
            check_integer<std::int64_t>(text, radix);
            break;
        case 2:
            check_integer<std::uint64_t>(text, radix);
            break;
        case 3:
            check_integer<unsigned char>(text, radix);
            break;
        default:
            check_double(text);
            break;
    }
    return 0;
}

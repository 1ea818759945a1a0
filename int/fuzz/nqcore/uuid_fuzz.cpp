// UUID text against a second, slow reading of its rules, and values there and back through every format.
#include "fuzz_support.h"
#include "nqcore/error_info.h"
#include "nqcore/uuid.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

namespace {

using namespace nqcore;
using std::string_view;

// The 16 bytes in text order; false when the rules refuse the text.
bool slow_read(string_view text, unsigned char (&bytes)[16]) {
    constexpr string_view shapes[] = {"xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx", "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx",
                                      "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}"};
    for (const string_view shape : shapes) {
        if (shape.size() != text.size()) {
            continue;
        }
        std::string digits;
        for (std::size_t i = 0; i < shape.size(); ++i) {
            if (shape[i] != 'x' && shape[i] != text[i]) {
                return false;
            }
            if (shape[i] == 'x') {
                digits += text[i];
            }
        }
        if (digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
            return false;
        }
        for (std::size_t i = 0; i < 16; ++i) {
            bytes[i] = static_cast<unsigned char>(std::stoi(digits.substr(2 * i, 2), nullptr, 16));
        }
        return true;
    }
    return false;
}

void check_text(string_view text) {
    unsigned char inTextOrder[16] = {};
    const bool isGood = slow_read(text, inTextOrder);
    Uuid uuid;
    const RefCountPtr<const ErrorInfo> error = Uuid::from_string_nothrow(text, &uuid);
    if (error.is_null() != isGood) {
        fail(isGood ? "refused what the rules read" : "read what the rules refuse", text);
    }
    if (!isGood) {
        if (!uuid.is_null()) {
            fail("something was written", text);
        }
        return;
    }
    constexpr unsigned places[16] = {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};
    for (unsigned i = 0; i < 16; ++i) {
        if (uuid.get_binary_data()[places[i]] != inTextOrder[i]) {
            fail("another value", text);
        }
    }
}

void check_value(const Uuid& uuid) {
    for (const Uuid::EFormat format : {Uuid::format_hyphenated, Uuid::format_plain, Uuid::format_braced}) {
        const UuidText text(uuid, format);
        check_text(text.view());
        Uuid back;
        if (!Uuid::from_string_nothrow(text.view(), &back).is_null() || back != uuid ||
            uuid.as_string(format) != text.view()) {
            fail("does not come back", text.view());
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    check_text(string_view(reinterpret_cast<const char*>(data), size));
    unsigned char bytes[16] = {};
    std::copy_n(data, std::min(size, sizeof bytes), bytes);
    Uuid uuid;
    static_cast<void>(Uuid::read_binary(bytes, uuid));
    check_value(uuid);
    return 0;
}

// Expanded references against a reading that takes the text apart at its percent signs first, with another look-up.
#include "nqcore/error_exception.h"
#include "nqcore/process_info.h"

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace {

void check(bool holds) {
    if (!holds) {
        std::abort();
    }
}

constexpr const char* s_variables[][2] = {{"A", "1"}, {"AB", "%A%"}, {"B", "\xFF"}, {"a b", ""}, {"\xC3", "%"}};

std::vector<std::string> parts_of(std::string_view text) {
    std::vector<std::string> parts(1);
    for (const char character : text) {
        if (character == '%') {
            parts.emplace_back();
        } else {
            parts.back() += character;
        }
    }
    return parts;
}

// Parts with odd numbers are names, but for the last one, which has no sign behind it.
std::string expected_of(std::string_view text) {
    const std::vector<std::string> parts = parts_of(text);
    std::string expected;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const bool isName = i % 2 == 1 && i + 1 < parts.size();
        const bool canBeName = isName && !parts[i].empty() && parts[i].find('=') == std::string::npos;
        const char* const value = canBeName ? std::getenv(parts[i].c_str()) : nullptr;
        if (value != nullptr) {
            expected += value;
        } else {
            expected += i % 2 == 1 ? "%" + parts[i] + (isName ? "%" : "") : parts[i];
        }
    }
    return expected;
}

bool set_variables() {
    for (const auto& [name, value] : s_variables) {
        check(setenv(name, value, 1) == 0);
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool isSet = set_variables();
    check(isSet);
    const std::string text(reinterpret_cast<const char*>(data), size);
    try {
        check(nqcore::expand_environment_variables(text) == expected_of(text));
        check(text.find('\0') == text.npos);
    } catch (const nqcore::ErrorException& exception) {
        check(exception.matches("error.nqcore.string.embeddedNul") && text.find('\0') != text.npos);
    }
    return 0;
}

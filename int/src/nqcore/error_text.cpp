#include "error_text.h"

#include "nqcore/error_params.h"
#include "nqcore/source_string.h"

#include <cxxabi.h>
#include <charconv>
#include <cstdlib>
#include <memory>

namespace nqcore::impl {

void append_cut(std::string& out, std::string_view text, std::size_t limit) {
    out.append(text, 0, cut_length(text, limit));
    if (text.size() > limit) {
        out.append("...");
    }
}

void append_expanded(std::string& out, std::string_view messageTemplate, const ErrorParams& params, std::size_t limit) {
    std::size_t copied = 0;
    std::size_t open = messageTemplate.find("{@");
    while (open != messageTemplate.npos) {
        const std::size_t close = messageTemplate.find('}', open + 2);
        if (close == messageTemplate.npos) {
            break;
        }
        if (const std::string* value = params.find(messageTemplate.substr(open + 2, close - open - 2))) {
            out.append(messageTemplate, copied, open - copied);
            append_cut(out, *value, limit);
            copied = close + 1;
        }
        open = messageTemplate.find("{@", close + 1);
    }
    out.append(messageTemplate, copied, messageTemplate.npos);
}

void throw_text_length_error() {
    // Refused before the text is looked at.
    static_cast<void>(SourceString(SourceString::sm_emptyStrData, 0x80000000u, true));
    __builtin_unreachable();
}

std::string type_name(const char* mangled) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> name(abi::__cxa_demangle(mangled, nullptr, nullptr, &status),
                                                           &std::free);
    return status == 0 && name != nullptr ? name.get() : mangled;
}

DecimalText::DecimalText(long long number) noexcept
    : m_size(static_cast<std::size_t>(std::to_chars(m_digits, m_digits + sizeof m_digits, number).ptr - m_digits)) {}

DecimalText::DecimalText(unsigned long long number) noexcept
    : m_size(static_cast<std::size_t>(std::to_chars(m_digits, m_digits + sizeof m_digits, number).ptr - m_digits)) {}

}  // namespace nqcore::impl

#include "nqcore/error_info.h"

#include "embedded_nul.h"
#include "error_param_block.h"
#include "error_text.h"
#include "host_name.h"

#include <cerrno>
#include <cstdlib>
#include <new>
#include <string>
#include <utility>

namespace nqcore {
namespace {

SourceString literal(const char* message) { return SourceString(message, true); }

ErrorInfo::Ptr errno_cause(const SourceLocation& location, int errnoValue) {
    return errnoValue == 0 ? ErrorInfo::Ptr() : ErrorInfo::from_errno(location, errnoValue);
}

// This record or the first of its causes whose code matches; null when none does.
const ErrorInfo* first_in_chain(const ErrorInfo* record, const char* code, unsigned length) noexcept {
    while (record != nullptr && !record->code().matches(code, length)) {
        record = record->nested().get();
    }
    return record;
}

int compare_without_causes(const ErrorInfo& a, const ErrorInfo& b) noexcept {
    int order = a.code().compare(b.code());
    order = order != 0 ? order : a.message().compare(b.message());
    order = order != 0 ? order : a.params().compare(b.params());
    order = order != 0 ? order : a.location().compare(b.location());
    return order != 0 ? order : a.hostname().compare(b.hostname());
}

std::uint32_t hash_record(const ErrorInfo& record, std::uint32_t nestedHash) noexcept {
    const auto of = [](const SourceString& text) { return impl::text_hash(text.view()); };
    const SourceLocation& location = record.location();
    std::uint32_t seed = 0;
    for (const std::uint32_t value :
         {of(record.code().value()), of(record.message()), record.params().hash(),
          of(location.file_id()) ^ of(location.function()) ^ location.line(), of(record.hostname()), nestedHash}) {
        seed = impl::fold_hash(seed, value);
    }
    return seed;
}

// The innermost record is hashed first. Halving the chain keeps a long one off the stack.
std::uint32_t hash_chain(const ErrorInfo* first, std::size_t count, std::uint32_t innerHash) noexcept {
    if (count == 1) {
        return hash_record(*first, innerHash);
    }
    const ErrorInfo* middle = first;
    for (std::size_t i = 0; i < count / 2; ++i) {
        middle = middle->nested().get();
    }
    return hash_chain(first, count / 2, hash_chain(middle, count - count / 2, innerHash));
}

}  // namespace

ErrorInfo::ErrorInfo(const ErrorCode& code, const SourceString& message, ErrorParams&& params,
                     const SourceLocation& location, Ptr&& nested) noexcept
    : m_code(code),
      m_message(message),
      m_params(std::move(params)),
      m_location(location),
      m_nested(std::move(nested)),
      m_hostname(impl::host_name()) {}

void ErrorInfo::destroy() {
    if (m_params.m_block == nullptr || !m_params.m_block->in_record()) {
        delete this;
        return;
    }
    this->~ErrorInfo();
    ::operator delete(static_cast<void*>(this));
}

ErrorInfo::~ErrorInfo() {
    // A long chain of causes is taken apart link by link: released as it is, each record would destroy the next one
    // on its own stack frame.
    Ptr cause = std::move(m_nested);
    while (!cause.is_null() && cause->has_unique_ref()) {
        Ptr next = std::move(const_cast<ErrorInfo*>(cause.get())->m_nested);
        cause = std::move(next);
    }
}

ErrorInfo::Ptr ErrorInfo::create(const ErrorCode& code, const char* message, const SourceLocation& location) {
    return Ptr(new ErrorInfo(code, literal(message), ErrorParams(), location, Ptr()));
}

ErrorInfo::Ptr ErrorInfo::create(const ErrorCode& code, const SourceString& message, const SourceLocation& location) {
    return Ptr(new ErrorInfo(code, message, ErrorParams(), location, Ptr()));
}

ErrorInfo::Ptr ErrorInfo::create(const ErrorCode& code, const char* message, const SourceLocation& location,
                                 Ptr nested) {
    return Ptr(new ErrorInfo(code, literal(message), ErrorParams(), location, std::move(nested)));
}

ErrorInfo::Ptr ErrorInfo::create(const ErrorCode& code, const SourceString& message, const SourceLocation& location,
                                 Ptr nested) {
    return Ptr(new ErrorInfo(code, message, ErrorParams(), location, std::move(nested)));
}

ErrorInfo::Ptr ErrorInfo::create(const ErrorCode& code, const char* message, ErrorParams params,
                                 const SourceLocation& location) {
    return create(code, literal(message), std::move(params), location, Ptr());
}

ErrorInfo::Ptr ErrorInfo::create(const ErrorCode& code, const SourceString& message, ErrorParams params,
                                 const SourceLocation& location) {
    return create(code, message, std::move(params), location, Ptr());
}

ErrorInfo::Ptr ErrorInfo::create(const ErrorCode& code, const char* message, ErrorParams params,
                                 const SourceLocation& location, Ptr nested) {
    return create(code, literal(message), std::move(params), location, std::move(nested));
}

ErrorInfo::Ptr ErrorInfo::create(const ErrorCode& code, const SourceString& message, ErrorParams params,
                                 const SourceLocation& location, Ptr nested) {
    if (params.m_block != nullptr) {
        void* const room = params.m_block->give_to_record();
        return Ptr(::new (room) ErrorInfo(code, message, std::move(params), location, std::move(nested)));
    }
    return Ptr(new ErrorInfo(code, message, std::move(params), location, std::move(nested)));
}

ErrorInfo::Ptr ErrorInfo::create_with_nested_errno(const ErrorCode& code, const SourceString& message,
                                                   const SourceLocation& location, int errnoValue) {
    return create(code, message, ErrorParams(), location, errno_cause(location, errnoValue));
}

ErrorInfo::Ptr ErrorInfo::create_with_nested_errno(const ErrorCode& code, const char* message,
                                                   const SourceLocation& location, int errnoValue) {
    return create(code, literal(message), ErrorParams(), location, errno_cause(location, errnoValue));
}

ErrorInfo::Ptr ErrorInfo::create_with_nested_errno(const ErrorCode& code, const SourceString& message,
                                                   ErrorParams params, const SourceLocation& location, int errnoValue) {
    return create(code, message, std::move(params), location, errno_cause(location, errnoValue));
}

ErrorInfo::Ptr ErrorInfo::create_with_nested_errno(const ErrorCode& code, const char* message, ErrorParams params,
                                                   const SourceLocation& location, int errnoValue) {
    return create(code, literal(message), std::move(params), location, errno_cause(location, errnoValue));
}

SourceString ErrorInfo::expanded_message() const { return m_params.expanded_message(m_message); }

SourceString ErrorInfo::expanded_message(unsigned limit) const {
    return m_params.expanded_message_with_limit(m_message, limit);
}

long ErrorInfo::native_code() const {
    for (const char* const name : {"nativeCode", "errno", "winErrorCode"}) {
        const std::string* const value = m_params.find(name);
        if (value == nullptr) {
            continue;
        }
        if (value->find('\0') != value->npos) {
            raise_embedded_nul_error();
        }
        const int savedErrno = errno;
        char* end = nullptr;
        const long number = std::strtol(value->c_str(), &end, 0);
        errno = savedErrno;
        return !value->empty() && end == value->c_str() + value->size() ? number : 0;
    }
    return 0;
}

bool ErrorInfo::matches(const ErrorCode& code) const noexcept { return m_code.matches(code); }

bool ErrorInfo::matches(const SourceString& code) const noexcept { return m_code.matches(code.data(), code.size()); }

bool ErrorInfo::matches(const char* code) const noexcept { return m_code.matches(code); }

bool ErrorInfo::matches(const char* code, unsigned length) const noexcept { return m_code.matches(code, length); }

bool ErrorInfo::any_matches(const ErrorCode& code) const noexcept { return any_matches(code.value()); }

bool ErrorInfo::any_matches(const SourceString& code) const noexcept { return any_matches(code.data(), code.size()); }

bool ErrorInfo::any_matches(const char* code) const noexcept { return any_matches(code, ErrorCode::npos); }

bool ErrorInfo::any_matches(const char* code, unsigned length) const noexcept {
    return first_in_chain(this, code, length) != nullptr;
}

ErrorInfo::Ptr ErrorInfo::first_matching(const ErrorCode& code) const noexcept { return first_matching(code.value()); }

ErrorInfo::Ptr ErrorInfo::first_matching(const SourceString& code) const noexcept {
    return first_matching(code.data(), code.size());
}

ErrorInfo::Ptr ErrorInfo::first_matching(const char* code) const noexcept {
    return first_matching(code, ErrorCode::npos);
}

ErrorInfo::Ptr ErrorInfo::first_matching(const char* code, unsigned length) const noexcept {
    return Ptr(first_in_chain(this, code, length));
}

int ErrorInfo::compare(const ErrorInfo& other) const noexcept {
    const ErrorInfo* mine = this;
    const ErrorInfo* theirs = &other;
    // Two causes may be one shared record, which ends the walk.
    while (mine != theirs) {
        if (mine == nullptr || theirs == nullptr) {
            return mine == nullptr ? -1 : 1;
        }
        if (const int order = compare_without_causes(*mine, *theirs); order != 0) {
            return order;
        }
        mine = mine->m_nested.get();
        theirs = theirs->m_nested.get();
    }
    return 0;
}

std::uint32_t ErrorInfo::hash() const noexcept {
    std::size_t count = 0;
    for (const ErrorInfo* record = this; record != nullptr; record = record->m_nested.get()) {
        ++count;
    }
    return hash_chain(this, count, 0);
}

}  // namespace nqcore

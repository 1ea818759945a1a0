// Records for exceptions that are not the library's own.
#include "nqcore/error_exception.h"

#include "error_text.h"

#include <new>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <utility>

namespace nqcore {
namespace {

struct ExceptionRow {
    bool (*is)(const std::exception&) noexcept;
    const ErrorCode* code;
};

template <class Exception>
bool is(const std::exception& exception) noexcept {
    return dynamic_cast<const Exception*>(&exception) != nullptr;
}

// The first row that fits decides, so each class comes after the ones derived from it.
constexpr ExceptionRow s_exceptions[] = {
    {is<std::bad_alloc>, &error::exception_badAlloc},
    {is<std::bad_cast>, &error::exception_badCast},
    {is<std::domain_error>, &error::exception_logicError_domainError},
    {is<std::invalid_argument>, &error::exception_logicError_invalidArgument},
    {is<std::length_error>, &error::exception_logicError_lengthError},
    {is<std::out_of_range>, &error::exception_logicError_outOfRange},
    {is<std::logic_error>, &error::exception_logicError},
    {is<std::range_error>, &error::exception_runtimeError_rangeError},
    {is<std::overflow_error>, &error::exception_runtimeError_overflowError},
    {is<std::underflow_error>, &error::exception_runtimeError_underflowError},
    {is<std::runtime_error>, &error::exception_runtimeError},
};

}  // namespace

ErrorInfo::Ptr ErrorInfo::from_exception(const std::exception& exception, const SourceLocation& location) {
    if (const auto* const own = dynamic_cast<const ErrorException*>(&exception)) {
        return own->error();
    }
    if (const auto* const cast = dynamic_cast<const BadLexicalCast*>(&exception)) {
        ErrorParams params;
        params.add_literal_name("sourceType", impl::type_name(cast->source_type().name()));
        params.add_literal_name("targetType", impl::type_name(cast->target_type().name()));
        return create(error::exception_badCast_badLexicalCast,
                      "Bad lexical cast: Unable to convert value of type '{@sourceType}' to '{@targetType}'",
                      std::move(params), location);
    }
    const SourceString message(exception.what(), false);
    for (const ExceptionRow& row : s_exceptions) {
        if (row.is(exception)) {
            return create(*row.code, message, location);
        }
    }
    ErrorParams params;
    params.add_literal_name("classname", impl::type_name(typeid(exception).name()));
    return create(error::exception, message, std::move(params), location);
}

ErrorInfo::Ptr ErrorInfo::from_anonymous_exception(const SourceLocation& location) {
    return create(error::exception_unknown, "Unknown exception", location);
}

}  // namespace nqcore

#include "nqcore/error_exception.h"

#include "nqcore/refcount_guard.h"
#include "nqcore/testing/error_matchers.h"
#include "nqcore/weak_ref_ptr.h"

#include <gtest/gtest.h>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <ios>
#include <memory>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace nqcore {
namespace {

using matchers::HasCause;
using matchers::HasCode;
using matchers::HasMessage;
using matchers::HasParam;
using matchers::ThrowsError;
using ::testing::AllOf;

constexpr SourceLocation s_location("app::f()", "$Id: //app/f.cpp#1 $", 7);

ErrorInfo::Ptr record(const char* code = "error.a") { return ErrorInfo::create(code, "message", s_location); }

TEST(ErrorException, CarriesItsRecord) {
    const ErrorInfo::Ptr error = record("error.a.b");
    const ErrorException exception(error);
    const ErrorException copy(exception);
    EXPECT_EQ(copy.error(), error);
    EXPECT_TRUE(exception.matches("error.a"));
    EXPECT_TRUE(exception.any_matches(ErrorCode("error.a.b")));
    EXPECT_EQ(exception.first_matching(SourceString("error", true)), error);
    EXPECT_FALSE(exception.matches("error.b.c", 7));
}

// The destructor's two slots, what(), rethrow().
TEST(ErrorException, SlotOrder) {
    void (ErrorException::*const function)() const = &ErrorException::rethrow;
    std::size_t word = 0;  // a pointer to a virtual function: its offset in the table, plus 1
    std::memcpy(&word, &function, sizeof word);
    EXPECT_EQ(word, 3 * sizeof(void*) + 1);
}

TEST(ErrorException, NeverCarriesNull) {
    const ErrorInfo::Ptr error = ErrorException(ErrorInfo::Ptr()).error();
    EXPECT_THAT(error, AllOf(HasCode("error.nqcore"), HasMessage("Unknown error (NULL ErrorInfo pointer)")));
    EXPECT_EQ(error->location().function().view(), "nqcore::ErrorException::ErrorException()");
    EXPECT_EQ(error->location().file_path(), "//nqcore/int/src/nqcore/error_exception.cpp");
    EXPECT_EQ(error->location().line(), 43u);
}

TEST(ErrorException, WhatIsTheTextForm) {
    const ErrorInfo::Ptr error = record();
    std::ostringstream expected;
    expected << ErrorInfo::Trace{*error, 0};
    ErrorException exception(error);
    const char* const text = exception.what();
    EXPECT_EQ(text, expected.str());
    EXPECT_EQ(exception.what(), text) << "built once";
    std::ostringstream stream;
    stream << exception;
    EXPECT_EQ(stream.str(), expected.str());

    const ErrorException other(record("error.other"));
    exception = other;
    EXPECT_NE(std::string(exception.what()).find("error.other"), std::string::npos) << "the text follows the record";
    EXPECT_NE(exception.what(), other.what());
}

class Unprintable : public ErrorException {
public:
    using ErrorException::ErrorException;

protected:
    std::string build_what_text() const override { throw std::bad_alloc(); }
};

TEST(ErrorException, WhatFallsBackToTheName) { EXPECT_STREQ(Unprintable(record()).what(), "nqcore::ErrorException"); }

TEST(ErrorException, WhatMayBeAskedByManyThreads) {
    for (int round = 0; round < 50; ++round) {
        const ErrorException exception(record());
        std::vector<const char*> texts(4);
        std::vector<std::thread> threads;
        for (const char*& text : texts) {
            threads.emplace_back([&] { text = exception.what(); });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(texts, std::vector<const char*>(4, exception.what()));
    }
}

TEST(ErrorException, RethrowKeepsTheTrueType) {
    const ErrorInfo::Ptr error = record();
    const ErrorException exception(error);
    try {
        exception.rethrow();
    } catch (const ErrorException& caught) {
        EXPECT_EQ(caught.error(), error);
        EXPECT_NE(&caught, &exception);
    }
    const WeakRefPromoteException weak;
    const ErrorException& base = weak;
    EXPECT_THROW(base.rethrow(), WeakRefPromoteException);
}

TEST(ThrowError, CreatesAndThrows) {
    const ErrorInfo::Ptr cause = record("error.cause");
    ErrorParams params;
    params.add("a", "1");
    const SourceString dynamic("{@a}", 4);
    const ErrorCode code("error.a");
    EXPECT_THAT([&] { throw_error(cause); }, ThrowsError(HasCode("error.cause")));
    EXPECT_THAT([&] { throw_error(code, "m", s_location); }, ThrowsError(HasMessage("m")));
    EXPECT_THAT([&] { throw_error(code, dynamic, s_location); }, ThrowsError(HasMessage("{@a}")));
    EXPECT_THAT([&] { throw_error(code, "m", s_location, cause); }, ThrowsError(HasCause(HasCode("error.cause"))));
    EXPECT_THAT([&] { throw_error(code, dynamic, s_location, cause); }, ThrowsError(HasCause(HasCode("error.cause"))));
    EXPECT_THAT([&] { throw_error(code, "<{@a}>", params, s_location); }, ThrowsError(HasMessage("<1>")));
    EXPECT_THAT([&] { throw_error(code, dynamic, params, s_location); }, ThrowsError(HasMessage("1")));
    EXPECT_THAT([&] { throw_error(code, "<{@a}>", params, s_location, cause); },
                ThrowsError(AllOf(HasMessage("<1>"), HasCause(HasCode("error.cause")))));
    EXPECT_THAT([&] { throw_error(code, dynamic, params, s_location, cause); },
                ThrowsError(AllOf(HasMessage("1"), HasCause(HasCode("error.cause")))));
    EXPECT_THAT([&] { ErrorException::throw_if_error(cause); }, ThrowsError(HasCode("error.cause")));
    EXPECT_NO_THROW(ErrorException::throw_if_error(ErrorInfo::Ptr()));
}

struct Guard : RefCountPtrGuardBase {
    [[noreturn]] static void overflow() { throw_too_many_readers_error(); }
};

TEST(ThrowError, RaisersThatLowerFamiliesDeclare) {
    try {
        Guard::overflow();
    } catch (const ErrorException& exception) {
        EXPECT_THAT(exception, AllOf(HasCode(error::exception_runtimeError_overflowError),
                                     HasMessage("Too many concurrent readers")));
        EXPECT_EQ(exception.error()->location().line(), 34u);
        EXPECT_EQ(exception.error()->location().file_path(), "//nqcore/int/src/nqcore/refcounted.cpp");
    }
    EXPECT_THROW(static_cast<void>(WeakRefPtr<int>().lock()), WeakRefPromoteException);
    EXPECT_THAT([] { static_cast<void>(WeakRefPtr<int>().lock()); },
                ThrowsError(HasCode(error::exception_weakRefPromoteException)));
}

class Custom : public std::exception {
public:
    const char* what() const noexcept override { return nullptr; }
};
class CustomRange : public std::out_of_range {
public:
    using std::out_of_range::out_of_range;
};

TEST(FromException, KnowsTheStandardClasses) {
    struct Row {
        std::shared_ptr<std::exception> exception;
        const char* code;
    };
    const auto made = []<class T>(T exception) { return std::make_shared<T>(std::move(exception)); };
    const Row rows[] = {
        {made(std::bad_alloc()), "error.exception.bad_alloc"},
        {made(std::bad_array_new_length()), "error.exception.bad_alloc"},
        {made(std::bad_cast()), "error.exception.bad_cast"},
        {made(std::domain_error("m")), "error.exception.logic_error.domain_error"},
        {made(std::invalid_argument("m")), "error.exception.logic_error.invalid_argument"},
        {made(std::length_error("m")), "error.exception.logic_error.length_error"},
        {made(std::out_of_range("m")), "error.exception.logic_error.out_of_range"},
        {made(CustomRange("m")), "error.exception.logic_error.out_of_range"},
        {made(std::logic_error("m")), "error.exception.logic_error"},
        {made(std::range_error("m")), "error.exception.runtime_error.range_error"},
        {made(std::overflow_error("m")), "error.exception.runtime_error.overflow_error"},
        {made(std::underflow_error("m")), "error.exception.runtime_error.underflow_error"},
        {made(std::runtime_error("m {@x}")), "error.exception.runtime_error"},
        {made(std::ios_base::failure("m")), "error.exception.runtime_error"},
        {made(std::bad_typeid()), "error.exception"},
    };
    for (const Row& row : rows) {
        const ErrorInfo::Ptr error = ErrorInfo::from_exception(*row.exception, s_location);
        EXPECT_THAT(error, AllOf(HasCode(row.code), HasMessage(row.exception->what())));
        EXPECT_FALSE(error->message().is_reference()) << "a copy";
        EXPECT_EQ(error->location(), s_location);
    }
    EXPECT_THAT(ErrorInfo::from_exception(std::bad_typeid(), s_location), HasParam("classname", "std::bad_typeid"));
    EXPECT_THAT(ErrorInfo::from_exception(Custom(), s_location),
                AllOf(HasCode("error.exception"), HasMessage(""),
                      HasParam("classname", "nqcore::(anonymous namespace)::Custom")));
}

TEST(FromException, KnowsTheLibrarysOwn) {
    const ErrorInfo::Ptr error = record();
    EXPECT_EQ(ErrorInfo::from_exception(ErrorException(error), SourceLocation()), error);
    EXPECT_THAT(ErrorInfo::from_exception(WeakRefPromoteException(), s_location),
                HasCode(error::exception_weakRefPromoteException));
    EXPECT_THAT(ErrorInfo::from_exception(BadLexicalCast(typeid(int), typeid(unsigned char)), s_location),
                AllOf(HasCode(error::exception_badCast_badLexicalCast), HasParam("sourceType", "int"),
                      HasParam("targetType", "unsigned char"),
                      HasMessage("Bad lexical cast: Unable to convert value of type 'int' to 'unsigned char'")));
    EXPECT_THAT(ErrorInfo::from_anonymous_exception(s_location), HasCode(error::exception_unknown));
}

struct ErrnoCase {
    int number;
    const ErrorCode& code;
    const char* message;
};

// The numbers as this target's runtime has them, and the socket numbers that every target knows.
const ErrnoCase s_errnoCases[] = {
    {EPERM, error::errno_EPERM,
     "Operation not permitted (an attempt was made to perform an operation limited to processes with appropriate "
     "privileges or to the owner of a resource)"},
    {ENOENT, error::errno_ENOENT, "No such file, directory, or resource"},
    {EAGAIN, error::errno_EAGAIN,
     "Resource temporarily unavailable or a non-blocking operation could not be completed immediately"},
    {ENOMEM, error::errno_ENOMEM, "Not enough space"},
    {EBUSY, error::errno_EBUSY, "Device or resource busy "},
    {EINVAL, error::errno_EINVAL, "Invalid argument"},
    {EDOM, error::errno_EDOM, "Math argument out of domain of func"},
    {ERANGE, error::errno_ERANGE, "Math result not representable (out of range)"},
    {ETIME, error::errno_ETIME, "The request was not completed in the allotted time; a timeout occurred"},
    {10054, error::errno_ECONNRESET, "An existing connection was forcibly closed by the remote host"},
    {10061, error::errno_ECONNREFUSED, "No connection could be made because the target machine actively refused it"},
    {10062, error::errno_ELOOP, "Cannot translate name"},
    {10067, error::errno_EPROCLIM, "Exceeded maximum number of applications using device concurrently"},
    {10068, error::errno_EUSERS, "Ran out of quota"},
    {EDEADLK, error::errno_EDEADLK, nullptr},
    {ENAMETOOLONG, error::errno_ENAMETOOLONG, nullptr},
    {ENOLCK, error::errno_ENOLCK, nullptr},
    {ENOSYS, error::errno_ENOSYS, nullptr},
    {ENOTEMPTY, error::errno_ENOTEMPTY, nullptr},
    {EILSEQ, error::errno_EILSEQ, nullptr},
    {EXDEV, error::errno_EXDEV, nullptr},
    {EPIPE, error::errno_EPIPE, nullptr},
    {10036, error::errno_EINPROGRESS, nullptr},
    {10071, error::errno_EREMOTE, nullptr},
};

TEST(FromErrno, NamesAndDescribesNumbers) {
    for (const ErrnoCase& row : s_errnoCases) {
        SCOPED_TRACE(row.number);
        const ErrorInfo::Ptr error = ErrorInfo::from_errno(s_location, row.number);
        EXPECT_THAT(error, AllOf(HasCode(row.code), HasParam("errno", std::to_string(row.number))));
        EXPECT_EQ(error->native_code(), row.number);
        EXPECT_EQ(error->location(), s_location);
        EXPECT_EQ(errno_message(row.number), error->message());
        EXPECT_FALSE(error->message().empty());
        if (row.message != nullptr) {
            EXPECT_EQ(error->message().view(), row.message);
        }
    }
}

TEST(FromErrno, OddNumbers) {
    EXPECT_THAT(ErrorInfo::from_errno(s_location, 10035), AllOf(HasCode(error::errno_EAGAIN), HasParam("errno", "11")));
    EXPECT_EQ(errno_message(10035).view(), errno_message(11).view());
    const ErrorInfo::Ptr none = ErrorInfo::from_errno(s_location, 0);
    EXPECT_THAT(none, AllOf(HasCode(""), HasMessage("No Error"), HasParam("errno", "0")));
    const ErrorInfo::Ptr nested = record();
    EXPECT_EQ(ErrorInfo::from_errno(s_location, nested, ENOENT)->nested(), nested);

    // No system has a text for this one, under any numbering.
    EXPECT_THAT(
        ErrorInfo::from_errno(s_location, 987654),
        AllOf(HasCode("error.errno.987654"), HasMessage("Unknown error (errno=987654)"), HasParam("errno", "987654")));
    EXPECT_EQ(ErrorInfo::from_errno(s_location, 987654)->message().view(), "Unknown error (errno={@errno})");
    EXPECT_EQ(errno_message(987654).view(), "Unknown error (errno=987654)");
    EXPECT_THAT(ErrorInfo::from_errno(s_location, -5), HasCode("error.errno.-5"));
}

TEST(FromWinerror, KeepsTheNumber) {
    const ErrorInfo::Ptr nested = record();
    const ErrorInfo::Ptr error = ErrorInfo::from_winerror_nomap(s_location, nested, 5);
    EXPECT_THAT(error, AllOf(HasCode("error.os.windows.5"), HasParam("winErrorCode", "5")));
    EXPECT_TRUE(error->matches(error::os_windows));
    EXPECT_EQ(error->native_code(), 5);
    EXPECT_EQ(error->nested(), nested);
    const std::string message = error->message().as_string();
    EXPECT_EQ(message.find_last_not_of(" \r\n\t") + 1, message.size()) << "trimmed";
    EXPECT_THAT(ErrorInfo::from_winerror_nomap(s_location, nullptr, 4294967295ul),
                HasCode("error.os.windows.4294967295"));
}

TEST(FromWinerror, MapsToTheRuntimesNumbers) {
    const ErrorInfo::Ptr nested = record();
    const ErrorInfo::Ptr mapped = ErrorInfo::from_winerror(s_location, nested, 145, true);
    EXPECT_THAT(mapped, AllOf(HasCode(error::errno_ENOTEMPTY), HasParam("errno", std::to_string(ENOTEMPTY)),
                              HasCause(HasCode("error.os.windows.145"))));
    EXPECT_EQ(mapped->nested()->nested(), nested);
    EXPECT_THAT(ErrorInfo::from_winerror(s_location, 145, false), HasCode("error.os.windows.145"));
    const ErrorInfo::Ptr unmapped = ErrorInfo::from_winerror(s_location, nested, 9999, true);
    EXPECT_THAT(unmapped, HasCode("error.os.windows.9999"));
    EXPECT_EQ(unmapped->nested(), nested);
}

TEST(Errno, FromWindowsNumbers) {
    struct Row {
        unsigned long winError;
        int number;
    };
    const Row rows[] = {
        {0, 0},       {1, EINVAL},    {2, ENOENT},    {5, EACCES},  {6, EBADF},    {14, 0},        {18, ENOENT},
        {19, EACCES}, {36, EACCES},   {37, 0},        {33, EACCES}, {80, EEXIST},  {112, ENOSPC},  {145, ENOTEMPTY},
        {187, 0},     {188, ENOEXEC}, {202, ENOEXEC}, {203, 0},     {206, ENOENT}, {1816, ENOMEM}, {4294967295ul, 0},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(errno_from_winerror(row.winError), row.number) << row.winError;
        EXPECT_EQ(set_errno_from_winerror(row.winError), row.number == 0 ? 22 : row.number) << row.winError;
        EXPECT_EQ(errno, row.number == 0 ? 22 : row.number) << row.winError;
    }
}

TEST(Errno, SetStoresWouldBlockAsAgain) {
    EXPECT_EQ(set_errno(10035), 11);
    EXPECT_EQ(errno, 11);
    EXPECT_EQ(set_errno(10036), 10036);
    EXPECT_EQ(set_errno(0), 0);
    EXPECT_EQ(errno, 0);
}

}  // namespace
}  // namespace nqcore

#include "nqcore/error_exception.h"

#include "error_test_support.h"
#include "nqcore/weak_ref_ptr.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <cerrno>
#include <ios>
#include <memory>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace nqcore {
namespace {

TEST(ErrorException, CarriesAndRethrowsItsRecord) {
    const ErrorInfo::Ptr error = record("error.a.b");
    const ErrorException exception(error);
    EXPECT_TRUE(exception.matches("error.a.c", 7));
    EXPECT_TRUE(exception.any_matches(ErrorCode("error.a.b")));
    EXPECT_EQ(exception.first_matching(SourceString("error", true)), error);
    try {
        exception.rethrow();
    } catch (const ErrorException& caught) {
        EXPECT_EQ(caught.error(), error);
    }
    const WeakRefPromoteException weak;
    const ErrorException& base = weak;
    EXPECT_THROW(base.rethrow(), WeakRefPromoteException) << "the true type";
    EXPECT_EQ(virtual_slot(&ErrorException::rethrow), 3u) << "behind the destructor's two and what()";
}

TEST(ErrorException, NeverCarriesNull) {
    const ErrorInfo::Ptr error = ErrorException(ErrorInfo::Ptr()).error();
    EXPECT_THAT(error, AllOf(HasCode("error.nqcore"), HasMessage("Unknown error (NULL ErrorInfo pointer)")));
    EXPECT_EQ(error->location(), SourceLocation("nqcore::ErrorException::ErrorException()",
                                                "$Id: //nqcore/int/src/nqcore/error_exception.cpp#1 $", 43));
}

TEST(ErrorException, WhatIsTheTextForm) {
    const ErrorInfo::Ptr error = record();
    std::ostringstream expected;
    expected << ErrorInfo::Trace{*error, 0};
    ErrorException exception(error);
    std::ostringstream stream;
    stream << exception;
    EXPECT_EQ(stream.str(), expected.str());
    EXPECT_EQ(exception.what(), expected.str());

    const ErrorException other(record("error.other"));
    exception = other;
    EXPECT_STREQ(exception.what(), other.what()) << "the text follows the record";
}

TEST(ErrorException, WhatMayBeAskedByManyThreads) {
    for (int round = 0; round < 50; ++round) {
        const ErrorException exception(record("error.a", "{@a}", ErrorParams().add("a", "1"), record("error.b")));
        std::vector<const char*> texts(4);
        run_on_threads(texts, [&](const char*& text) {
            text = exception.what();
            const ErrorInfo::Ptr mine = exception.error();
            EXPECT_TRUE(mine->any_matches("error.b") && mine->hash() == exception.error()->hash());
        });
        EXPECT_EQ(texts, std::vector<const char*>(4, exception.what()));
    }
}

TEST(ThrowError, CreatesAndThrows) {
    const ErrorInfo::Ptr cause = record("error.cause");
    const ErrorCode code("error.a");
    const ErrorParams params = ErrorParams().add("a", "1");
    const auto every_form = [&](const auto& message) {
        const auto caused = HasCause(HasCode("error.cause"));
        EXPECT_THAT([&] { throw_error(code, message, s_location); }, ThrowsError(HasMessage("{@a}")));
        EXPECT_THAT([&] { throw_error(code, message, s_location, cause); }, ThrowsError(caused));
        EXPECT_THAT([&] { throw_error(code, message, params, s_location); }, ThrowsError(HasMessage("1")));
        EXPECT_THAT([&] { throw_error(code, message, params, s_location, cause); },
                    ThrowsError(AllOf(HasMessage("1"), caused)));
    };
    every_form("{@a}");
    every_form(SourceString("{@a}", 4));
    EXPECT_THAT([&] { throw_error(cause); }, ThrowsError(HasCode("error.cause")));
    EXPECT_THAT([&] { ErrorException::throw_if_error(cause); }, ThrowsError(HasCode("error.cause")));
    EXPECT_NO_THROW(ErrorException::throw_if_error(ErrorInfo::Ptr()));
}

struct Custom : std::exception {
    const char* what() const noexcept override { return nullptr; }
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

// The numbers as this target's runtime has them, and the socket numbers that every target knows.
const struct {
    int number;
    const char* name;
    const char* message;  // null: the system's own
} s_errnoCases[] = {
    {EAGAIN, "EAGAIN",
     "Resource temporarily unavailable or a non-blocking operation could not be completed immediately"},
    {EBUSY, "EBUSY", "Device or resource busy "},
    {EINVAL, "EINVAL", "Invalid argument"},
    {EDOM, "EDOM", "Math argument out of domain of func"},
    {ETIME, "ETIME", "The request was not completed in the allotted time; a timeout occurred"},
    {10062, "ELOOP", "Cannot translate name"},
    {10067, "EPROCLIM", "Exceeded maximum number of applications using device concurrently"},
    {10068, "EUSERS", "Ran out of quota"},
};

TEST(FromErrno, NamesAndDescribesNumbers) {
    for (const auto& row : s_errnoCases) {
        const ErrorInfo::Ptr error = ErrorInfo::from_errno(s_location, row.number);
        EXPECT_EQ(error->code().value().as_string(), std::string("error.errno.") + row.name);
        EXPECT_EQ(error->native_code(), row.number);
        EXPECT_EQ(error->message(), errno_message(row.number));
        EXPECT_TRUE(row.message == nullptr ? !error->message().empty() : error->message().view() == row.message);
    }
}

TEST(FromErrno, NumbersAreTheRuntimes) {
#define NUMBERED(name) \
    { name, #name }
    constexpr std::pair<int, const char*> rows[] = {
        NUMBERED(EPERM),  NUMBERED(ENOENT), NUMBERED(ESRCH),        NUMBERED(EINTR),    NUMBERED(EIO),
        NUMBERED(ENXIO),  NUMBERED(E2BIG),  NUMBERED(ENOEXEC),      NUMBERED(EBADF),    NUMBERED(ECHILD),
        NUMBERED(ENOMEM), NUMBERED(EACCES), NUMBERED(EFAULT),       NUMBERED(EEXIST),   NUMBERED(EXDEV),
        NUMBERED(ENODEV), NUMBERED(EROFS),  NUMBERED(ENOTDIR),      NUMBERED(EISDIR),   NUMBERED(ENFILE),
        NUMBERED(EMFILE), NUMBERED(ENOTTY), NUMBERED(EFBIG),        NUMBERED(ENOSPC),   NUMBERED(ESPIPE),
        NUMBERED(EMLINK), NUMBERED(EPIPE),  NUMBERED(ERANGE),       NUMBERED(ENOSYS),   NUMBERED(EDEADLK),
        NUMBERED(EILSEQ), NUMBERED(ENOLCK), NUMBERED(ENAMETOOLONG), NUMBERED(ENOTEMPTY)};
#undef NUMBERED
    for (const auto& [number, name] : rows) {
        EXPECT_EQ(ErrorCode::from_errno(number).value().view(), std::string("error.errno.") + name);
    }
}

// Every target knows these, as from 10036.
TEST(FromErrno, SocketNumbers) {
    constexpr const char* names[] = {
        "EINPROGRESS", "EALREADY",        "ENOTSOCK",        "EDESTADDRREQ", "EMSGSIZE",     "EPROTOTYPE",
        "ENOPROTOOPT", "EPROTONOSUPPORT", "ESOCKTNOSUPPORT", "EOPNOTSUPP",   "EPFNOSUPPORT", "EAFNOSUPPORT",
        "EADDRINUSE",  "EADDRNOTAVAIL",   "ENETDOWN",        "ENETUNREACH",  "ENETRESET",    "ECONNABORTED",
        "ECONNRESET",  "ENOBUFS",         "EISCONN",         "ENOTCONN",     "ESHUTDOWN",    "ETOOMANYREFS",
        "ETIMEDOUT",   "ECONNREFUSED",    "ELOOP",           "10063",        "EHOSTDOWN",    "EHOSTUNREACH",
        "10066",       "EPROCLIM",        "EUSERS",          "EDQUOT",       "ESTALE",       "EREMOTE",
        "10072"};
    int number = 10036;
    for (const char* const name : names) {
        EXPECT_EQ(ErrorCode::from_errno(number++).value().view(), std::string("error.errno.") + name);
    }
}

TEST(FromErrno, OddNumbers) {
    EXPECT_THAT(ErrorInfo::from_errno(s_location, 10035), AllOf(HasCode(error::errno_EAGAIN), HasParam("errno", "11")));
    EXPECT_THAT(ErrorInfo::from_errno(s_location, 0),
                AllOf(HasCode(""), HasMessage("No Error"), HasParam("errno", "0")));
    EXPECT_THAT(ErrorInfo::from_errno(s_location, record(), ENOENT), HasCause(HasCode("error.a")));

    // No system has a text for this one, under any numbering.
    const ErrorInfo::Ptr unknown = ErrorInfo::from_errno(s_location, 987654);
    EXPECT_THAT(unknown, AllOf(HasCode("error.errno.987654"), HasMessage("Unknown error (errno=987654)")));
    EXPECT_EQ(unknown->message().view(), "Unknown error (errno={@errno})");
    EXPECT_EQ(errno_message(987654).view(), "Unknown error (errno=987654)");
    EXPECT_THAT(ErrorInfo::from_errno(s_location, -5), HasCode("error.errno.-5"));
}

TEST(FromWinerror, KeepsTheNumberOrMapsToTheRuntimes) {
    const auto caused = HasCause(HasCode("error.a"));
    const ErrorInfo::Ptr error = ErrorInfo::from_winerror_nomap(s_location, record(), 5);
    EXPECT_THAT(error, AllOf(HasCode("error.os.windows.5"), HasParam("winErrorCode", "5"), caused));
    const std::string message = error->message().as_string();
    EXPECT_EQ(message.find_last_not_of(" \r\n\t") + 1, message.size()) << "trimmed";
    EXPECT_THAT(ErrorInfo::from_winerror_nomap(s_location, nullptr, 4294967295ul),
                HasCode("error.os.windows.4294967295"));
    EXPECT_THAT(ErrorInfo::from_winerror(s_location, record(), 145, true),
                AllOf(HasCode(error::errno_ENOTEMPTY), HasParam("errno", std::to_string(ENOTEMPTY)),
                      HasCause(AllOf(HasCode("error.os.windows.145"), caused))));
    EXPECT_THAT(ErrorInfo::from_winerror(s_location, 145, false), HasCode("error.os.windows.145"));
    EXPECT_THAT(ErrorInfo::from_winerror(s_location, record(), 9999, true),
                AllOf(HasCode("error.os.windows.9999"), caused));
}

TEST(Errno, FromWindowsNumbers) {
    struct Row {
        int number;
        std::vector<std::pair<unsigned long, unsigned long>> winErrors;
    };
    const Row rows[] = {
        {EINVAL, {{1, 1}, {12, 13}, {87, 87}, {131, 131}}},
        {ENOENT, {{2, 3}, {15, 15}, {18, 18}, {53, 53}, {67, 67}, {161, 161}, {206, 206}}},
        {EACCES, {{5, 5}, {16, 16}, {19, 36}, {65, 65}, {82, 83}, {108, 108}, {132, 132}, {158, 158}, {167, 167}}},
        {EBADF, {{6, 6}, {114, 114}, {130, 130}}},
        {EAGAIN, {{89, 89}, {164, 164}, {215, 215}}},
        {ENOMEM, {{7, 9}, {1816, 1816}}},
        {ENOEXEC, {{11, 11}, {188, 202}}},
        {EEXIST, {{80, 80}, {183, 183}}},
        {EMFILE, {{4, 4}}},
        {E2BIG, {{10, 10}}},
        {EXDEV, {{17, 17}}},
        {EPIPE, {{109, 109}}},
        {ENOSPC, {{112, 112}}},
        {ECHILD, {{128, 129}}},
        {ENOTEMPTY, {{145, 145}}},
        {EILSEQ, {{1113, 1113}}},
    };
    std::vector<int> numbers(2000);
    for (const Row& row : rows) {
        for (const auto& [first, last] : row.winErrors) {
            std::fill(numbers.begin() + static_cast<long>(first), numbers.begin() + static_cast<long>(last) + 1,
                      row.number);
        }
    }
    for (unsigned long winError = 0; winError < numbers.size(); ++winError) {
        const int number = numbers[winError];
        EXPECT_EQ(errno_from_winerror(winError), number) << winError;
        EXPECT_EQ(set_errno_from_winerror(winError), number == 0 ? 22 : number) << winError;
        EXPECT_EQ(errno, number == 0 ? 22 : number) << winError;
    }
    EXPECT_EQ(errno_from_winerror(4294967295ul), 0);
    EXPECT_EQ(set_errno(0), 0);
    EXPECT_EQ(errno, 0);
}

}  // namespace
}  // namespace nqcore

#include "nqcore/error_exception.h"

#include "error_test_support.h"
#include "nqcore/weak_ref_ptr.h"

#include <algorithm>
#include <cerrno>
#include <ios>
#include <memory>
#include <new>
#include <sstream>
#include <stdexcept>

namespace nqcore {
namespace {

TEST(ErrorException, CarriesAndRethrowsItsRecord) {
    const ErrorInfo::Ptr error = record("error.a.b");
    const ErrorException exception(error);
    EXPECT_TRUE(exception.matches("error.a.c", 7) && exception.any_matches(ErrorCode("error.a.b")));
    EXPECT_EQ(exception.first_matching(SourceString("error", true)), error);
    EXPECT_THAT([&] { exception.rethrow(); },
                testing::Throws<ErrorException>(testing::Property(&ErrorException::error, error)));
    const WeakRefPromoteException weak;
    EXPECT_THROW(static_cast<const ErrorException&>(weak).rethrow(), WeakRefPromoteException) << "the true type";
    EXPECT_EQ(virtual_slot(&ErrorException::rethrow), 3u) << "behind the destructor's two and what()";
}

TEST(ErrorException, NeverCarriesNull) {
    EXPECT_EQ(*ErrorException(ErrorInfo::Ptr()).error(),
              *ErrorInfo::create("error.nqcore", "Unknown error (NULL ErrorInfo pointer)",
                                 SourceLocation("nqcore::ErrorException::ErrorException()",
                                                "$Id: //nqcore/int/src/nqcore/error_exception.cpp#1 $", 43)));
}

TEST(ErrorException, WhatIsTheTextForm) {
    ErrorException exception(record());
    std::ostringstream expected, stream;
    expected << ErrorInfo::Trace{*exception.error(), 0};
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
    const ErrorParams params = ErrorParams().add("a", "1");
    const auto caused = HasCause(HasCode("error.cause"));
    const auto every_form = [&](const auto& message) {
        const auto thrown = [&](const auto&... rest) { throw_error(ErrorCode("error.a"), message, rest...); };
        EXPECT_THAT([&] { thrown(s_location); }, ThrowsError(HasMessage("{@a}")));
        EXPECT_THAT([&] { thrown(s_location, cause); }, ThrowsError(caused));
        EXPECT_THAT([&] { thrown(params, s_location); }, ThrowsError(HasMessage("1")));
        EXPECT_THAT([&] { thrown(params, s_location, cause); }, ThrowsError(AllOf(HasMessage("1"), caused)));
    };
    every_form("{@a}");
    every_form(SourceString("{@a}", 4));
    EXPECT_THAT([&] { ErrorException::throw_if_error(cause); }, ThrowsError(HasCode("error.cause")));
    EXPECT_NO_THROW(ErrorException::throw_if_error(ErrorInfo::Ptr()));
    EXPECT_THAT([] { throw_errno(s_location, 2); }, ThrowsError(HasCode("error.errno.ENOENT")));
    EXPECT_THAT([] { throw WeakRefPromoteException(record("error.a")); }, ThrowsError(HasCode("error.a")));
}

struct Custom : std::exception {
    const char* what() const noexcept override { return nullptr; }
};

TEST(FromException, KnowsTheStandardClasses) {
    const auto made = []<class T>(T exception) { return std::make_shared<T>(std::move(exception)); };
    const std::pair<std::shared_ptr<std::exception>, const char*> rows[] = {
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
    for (const auto& [exception, code] : rows) {
        const ErrorInfo::Ptr error = ErrorInfo::from_exception(*exception, s_location);
        EXPECT_THAT(error, AllOf(HasCode(code), HasMessage(exception->what())));
        EXPECT_TRUE(!error->message().is_reference() && error->location() == s_location);
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
    EXPECT_STREQ(BadLexicalCast(typeid(int), typeid(char)).what(), "nqcore::BadLexicalCast");
    EXPECT_THAT(ErrorInfo::from_anonymous_exception(s_location), HasCode(error::exception_unknown));
}

TEST(FromErrno, NamesAndDescribesNumbers) {
    constexpr const char* again =
        "Resource temporarily unavailable or a non-blocking operation could not be completed immediately";
    constexpr std::tuple<int, const char*, const char*> rows[] = {
        {EAGAIN, "EAGAIN", again},
        {EBUSY, "EBUSY", "Device or resource busy "},
        {EINVAL, "EINVAL", "Invalid argument"},
        {EDOM, "EDOM", "Math argument out of domain of func"},
        {ETIME, "ETIME", "The request was not completed in the allotted time; a timeout occurred"},
        {10062, "ELOOP", "Cannot translate name"},
        {10067, "EPROCLIM", "Exceeded maximum number of applications using device concurrently"},
        {10068, "EUSERS", "Ran out of quota"},
        // No system has a text for this one, under any numbering.
        {987654, "987654", "Unknown error (errno=987654)"},
    };
    for (const auto& [number, name, message] : rows) {
        EXPECT_THAT(ErrorInfo::from_errno(s_location, number),
                    AllOf(HasCode((std::string("error.errno.") + name).c_str()), HasMessage(message),
                          HasParam("errno", std::to_string(number))));
        EXPECT_EQ(errno_message(number).view(), message);
    }
    EXPECT_EQ(ErrorInfo::from_errno(s_location, 987654)->message().view(), "Unknown error (errno={@errno})");
    EXPECT_THAT(ErrorInfo::from_errno(s_location, 10035), AllOf(HasCode(error::errno_EAGAIN), HasParam("errno", "11")));
    EXPECT_THAT(ErrorInfo::from_errno(s_location, 0),
                AllOf(HasCode(""), HasMessage("No Error"), HasParam("errno", "0")));
    EXPECT_THAT(ErrorInfo::from_errno(s_location, record(), ENOENT), HasCause(HasCode("error.a")));
}

// The first numbers are alike in all runtimes; as from 10036 every target knows the socket numbers.
TEST(FromErrno, NumbersHaveTheirNames) {
    const auto expect_names = [](int number, const char* names) {
        std::istringstream list(names);
        for (std::string name; list >> name; ++number) {
            EXPECT_EQ(ErrorCode::from_errno(number).value().view(), "error.errno." + name);
        }
    };
    expect_names(1,
                 "EPERM ENOENT ESRCH EINTR EIO ENXIO E2BIG ENOEXEC EBADF ECHILD EAGAIN ENOMEM EACCES EFAULT 15 EBUSY "
                 "EEXIST EXDEV ENODEV ENOTDIR EISDIR EINVAL ENFILE EMFILE ENOTTY 26 EFBIG ENOSPC ESPIPE EROFS EMLINK "
                 "EPIPE EDOM ERANGE");
    expect_names(10034,
                 "10034 EAGAIN EINPROGRESS EALREADY ENOTSOCK EDESTADDRREQ EMSGSIZE EPROTOTYPE ENOPROTOOPT "
                 "EPROTONOSUPPORT ESOCKTNOSUPPORT EOPNOTSUPP EPFNOSUPPORT EAFNOSUPPORT EADDRINUSE EADDRNOTAVAIL "
                 "ENETDOWN ENETUNREACH ENETRESET ECONNABORTED ECONNRESET ENOBUFS EISCONN ENOTCONN ESHUTDOWN "
                 "ETOOMANYREFS ETIMEDOUT ECONNREFUSED ELOOP 10063 EHOSTDOWN EHOSTUNREACH 10066 EPROCLIM EUSERS "
                 "EDQUOT ESTALE EREMOTE 10072");
    constexpr std::pair<int, const char*> rows[] = {
        {EILSEQ, "EILSEQ"}, {EDEADLK, "EDEADLK"},     {ENOLCK, "ENOLCK"}, {ENAMETOOLONG, "ENAMETOOLONG"},
        {ENOSYS, "ENOSYS"}, {ENOTEMPTY, "ENOTEMPTY"}, {-5, "-5"},         {2147483646, "2147483646"}};
    for (const auto& [number, name] : rows) {
        expect_names(number, name);
    }
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
    constexpr struct {
        int number, first, last;
    } rows[] = {
        {EINVAL, 1, 1},     {EINVAL, 12, 13},   {EINVAL, 87, 87},     {EINVAL, 131, 131},    {ENOENT, 2, 3},
        {ENOENT, 15, 15},   {ENOENT, 18, 18},   {ENOENT, 53, 53},     {ENOENT, 67, 67},      {ENOENT, 161, 161},
        {ENOENT, 206, 206}, {EACCES, 5, 5},     {EACCES, 16, 16},     {EACCES, 19, 36},      {EACCES, 65, 65},
        {EACCES, 82, 83},   {EACCES, 108, 108}, {EACCES, 132, 132},   {EACCES, 158, 158},    {EACCES, 167, 167},
        {EBADF, 6, 6},      {EBADF, 114, 114},  {EBADF, 130, 130},    {EAGAIN, 89, 89},      {EAGAIN, 164, 164},
        {EAGAIN, 215, 215}, {ENOMEM, 7, 9},     {ENOMEM, 1816, 1816}, {ENOEXEC, 11, 11},     {ENOEXEC, 188, 202},
        {EEXIST, 80, 80},   {EEXIST, 183, 183}, {EMFILE, 4, 4},       {E2BIG, 10, 10},       {EXDEV, 17, 17},
        {EPIPE, 109, 109},  {ENOSPC, 112, 112}, {ECHILD, 128, 129},   {ENOTEMPTY, 145, 145}, {EILSEQ, 1113, 1113}};
    std::vector<int> numbers(2000);
    for (const auto& [number, first, last] : rows) {
        std::fill(numbers.begin() + first, numbers.begin() + last + 1, number);
    }
    for (unsigned long winError = 0; winError < numbers.size(); ++winError) {
        const int number = numbers[winError];
        EXPECT_EQ(errno_from_winerror(winError), number) << winError;
        EXPECT_EQ(set_errno_from_winerror(winError), number == 0 ? 22 : number) << winError;
        EXPECT_EQ(errno, number == 0 ? 22 : number) << winError;
    }
    EXPECT_EQ(errno_from_winerror(4294967295ul), 0);
    EXPECT_TRUE(set_errno(0) == 0 && errno == 0);
}

}  // namespace
}  // namespace nqcore

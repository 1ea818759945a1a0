#include "nqcore/safe_cast.h"

#include "error_test_support.h"

#include <limits>
#include <utility>

namespace nqcore {
namespace {

// A cast that keeps the value is a constant expression; one that would not is none.
static_assert(safe_cast<unsigned char>(255) == 255);
static_assert(safe_cast<long long>(4294967295u) == 4294967295ll);
static_assert(safe_cast<bool>(1));
template <class To, class From>
concept Casts = requires(From value) { safe_cast<To>(value); };
static_assert(Casts<char, long long> && !Casts<double, int> && !Casts<int, double>);

template <class To, class From>
auto cast_of(From value) {
    return [value] { static_cast<void>(safe_cast<To>(value)); };
}

TEST(SafeCast, SaysWhatDoesNotFit) {
    EXPECT_THAT(cast_of<unsigned>(-1),
                ThrowsError(AllOf(HasParam("srcValue", "-1"), HasParam("destType", "unsigned int"),
                                  HasMessage("Attempt to cast negative value into unsigned type.  SrcValue: -1, "
                                             "DestType: unsigned int"))));
    EXPECT_THAT(cast_of<int>(4000000000u),
                ThrowsError(HasMessage("Unsigned source value of cast does not fit into signed destination type "
                                       "(sign reversal).  SrcValue: 4000000000, DestType: int")));
    EXPECT_THAT(cast_of<short>(-32769),
                ThrowsError(HasMessage("Source value of cast does not fit into destination type.  SrcValue: -32769, "
                                       "DestType: short")));
    EXPECT_THAT(cast_of<unsigned>(18446744073709551615ull), ThrowsError(HasParam("srcValue", "18446744073709551615")));
    EXPECT_THAT(cast_of<bool>(2), ThrowsError(HasParam("destType", "bool")));
    const std::pair<std::function<void()>, const char*> raisers[] = {
        {cast_of<unsigned>(-1), "negative_to_unsigned"},
        {cast_of<int>(4000000000u), "sign_reversal"},
        {cast_of<short>(-32769), "value_truncated"},
    };
    for (const auto& [raise, function] : raisers) {
        try {
            raise();
        } catch (const ErrorException& exception) {
            const SourceLocation& location = exception.error()->location();
            EXPECT_EQ(location.function().view(), std::string("nqcore::impl::safe_cast_throw_") + function + "()");
            EXPECT_EQ(location.file_path(), "//nqcore/int/src/nqcore/safe_cast.cpp");
        }
    }
}

// Every pair of types at every value near a limit of either, decided by the standard's mixed comparisons.
template <class To, class From>
void check_value(From value) {
    const char* expected = nullptr;
    if (std::cmp_less(value, 0) && !std::is_signed_v<To>) {
        expected = "error.nqcore.cast.negativeToUnsigned";
    } else if (!std::in_range<To>(value)) {
        expected = std::is_signed_v<To> && !std::is_signed_v<From> ? "error.nqcore.cast.valueTooBig.signReversal"
                                                                   : "error.nqcore.cast.valueTooBig";
    }
    if (expected == nullptr) {
        EXPECT_TRUE(std::cmp_equal(safe_cast<To>(value), value));
    } else {
        EXPECT_THAT((cast_of<To>(value)), ThrowsError(HasCode(expected)));
    }
}

template <class To, class From>
void check_pair() {
    // Limits that `From` does not have wrap round to others that it has.
    for (const auto limit :
         {static_cast<From>(std::numeric_limits<To>::min()), static_cast<From>(std::numeric_limits<To>::max()),
          std::numeric_limits<From>::min(), std::numeric_limits<From>::max(), From{0}}) {
        for (const unsigned long long step : {~0ull, 0ull, 1ull}) {
            check_value<To>(static_cast<From>(static_cast<unsigned long long>(limit) + step));
        }
    }
}

template <class... To>
void check_all_pairs_of() {
    const auto check_from = [](auto from) { (check_pair<To, decltype(from)>(), ...); };
    (check_from(To()), ...);
}

TEST(SafeCast, EveryPairAtEveryLimit) {
    check_all_pairs_of<std::int8_t, std::uint8_t, std::int16_t, std::uint16_t, std::int32_t, std::uint32_t,
                       std::int64_t, std::uint64_t>();
}

}  // namespace
}  // namespace nqcore

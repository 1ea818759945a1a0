// The state of sequential UUIDs over a clock and random numbers of the test's, and the rows of the text kernel.
#include "uuid_sequence.h"

#include "kernel_test_support.h"
#include "kernels/uuid_hex.h"
#include "nqcore/transforms.h"

#include <algorithm>
#include <random>
#include <set>

namespace nqcore::impl {
namespace {

// Draws 0x11111111, 0x22222222 and so on.
std::uint32_t s_drawn = 0;
std::uint32_t draw() { return 0x11111111u * ++s_drawn; }

class Sequence : public testing::Test {
protected:
    Sequence() { s_drawn = 0; }

    UuidSequence::Place at(std::int64_t now) { return m_sequence.next(now, draw); }

    UuidSequence m_sequence;
};

TEST_F(Sequence, FollowsTheClock) {
    // Time without its lowest byte, seed, tail and counter after each reading of the clock.
    const struct {
        const char* what;
        std::int64_t now;
        std::uint32_t seed, tail;
        std::uint16_t counter;
    } rows[] = {
        {"first", 0x1000, 0x11111111, 0x22222222, 1},
        {"stands still", 0x1000, 0x11111111, 0x22222222, 2},
        {"moves below what is kept", 0x10FF, 0x11111111, 0x22222222, 3},
        {"goes back below what is kept", 0x1001, 0x11111111, 0x22222222, 4},
        {"moves on", 0x1100, 0x11111111, 0x22222222, 1},
        {"goes back", 0x10FF, 0x33333333, 0x44444444, 1},
        {"moves on again", 0x1100, 0x33333333, 0x44444444, 1},
        {"before 1970", -1, 0x55555555, 0x66666666, 1},
    };
    for (const auto& row : rows) {
        const UuidSequence::Place place = at(row.now);
        EXPECT_TRUE(place.time == row.now && place.counter == row.counter) << row.what;
        EXPECT_TRUE(place.seed == row.seed && place.tail == row.tail) << row.what;
    }
}

TEST_F(Sequence, CarriesTheCounterIntoTheTail) {
    for (unsigned count = 1; count < 0x10000; ++count) {
        ASSERT_EQ(at(0x1000).counter, count);
    }
    const UuidSequence::Place wrapped = at(0x1000);
    EXPECT_EQ(wrapped.counter, 0);
    EXPECT_EQ(wrapped.tail, 0x22222223u);
    EXPECT_EQ(at(0x1000).counter, 1);
    EXPECT_EQ(at(0x2000).tail, 0x22222223u);  // stays
}

TEST_F(Sequence, BuildsTheBytes) {
    const UuidSequence::Place place{0x0123'4567'89AB'CDEF, 0xAABBCCDD, 0x01020304, 0x0506};
    EXPECT_EQ(UuidSequence::uuid_at(place).as_string(), "67452301-ab89-d0cd-8dcc-010203040506");
    // The tail's bytes are those of the drawn word in memory, and grow from the last one.
    EXPECT_EQ(m_sequence.next(0x1000, [] { return std::uint32_t{0x04030201}; }).tail, 0x01020304u);
}

TEST_F(Sequence, DrawsAgainAfterAFork) {
    static_cast<void>(at(0x1000));
    m_sequence.forget();
    const UuidSequence::Place place = at(0x1000);
    EXPECT_TRUE(place.seed == 0x33333333 && place.tail == 0x44444444 && place.counter == 2);
}

TEST_F(Sequence, FailedDrawChangesNothing) {
    static_cast<void>(at(0x2000));
    EXPECT_THROW(static_cast<void>(m_sequence.next(0x1000, []() -> std::uint32_t { throw 1; })), int);
    EXPECT_EQ(at(0x2000).counter, 2);
}

TEST(UuidTextKernels, WriteWhatTheTemplatesSay) {
    kernels::for_each_usable(kernels::uuid_text_kernels(), [](const kernels::UuidTextKernel& kernel) {
        std::mt19937 random(6);
        for (int i = 0; i < 2000; ++i) {
            unsigned char bytes[16];
            std::string expected;
            std::ranges::generate(bytes, [&random] { return static_cast<unsigned char>(random()); });
            // The first three numbers are kept with their lowest byte first.
            for (const int at : {3, 2, 1, 0, -1, 5, 4, -1, 7, 6, -1, 8, 9, -1, 10, 11, 12, 13, 14, 15}) {
                expected += at < 0 ? "-" : Hex::encode({bytes + at, 1});
            }
            kernels::Exact<char> text(36);
            kernel.write_hyphenated(bytes, text.begin());
            ASSERT_EQ(std::string_view(text.begin(), 36), expected);
        }
    });
}

}  // namespace
}  // namespace nqcore::impl

// `nq uuid show` against uuidparse: the same kinds, and the same times to the second.
#include "shell.h"

#include "nqcore/abs_rel_time.h"
#include "nqcore/uuid.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>

namespace {

using nqcore::Uuid;

// Version 1 at a time after 1970, where uuidparse can count, and before 2100; every fourth one is a random one.
std::string some_uuids() {
    constexpr std::uint64_t s_span = 130ull * 365 * 86'400 * 1'000'000'000;
    std::mt19937_64 random(7);
    std::string all;
    for (int i = 0; i < 60; ++i) {
        const auto time = nqcore::AbsoluteTime::from_nsec(static_cast<std::int64_t>(random() % s_span));
        const auto sequence = static_cast<unsigned short>(random() % 0x4000);
        const Uuid timeBased(Uuid::version_time_based, sequence, Uuid::NodeAddress::create_random(),
                             Uuid::timestamp_at(time));
        all += ' ' + (i % 4 == 0 ? Uuid::create_random() : timeBased).as_string();
    }
    return all;
}

TEST(UuidPeers, ShowTheSame) {
    const std::string uuids = some_uuids();
    // Of both the kind, the date and the time: theirs has fewer digits of the fraction.
    const std::string ours = answer_of(NQ_PROGRAM " uuid show --json" + uuids + R"x( | sed -E '
        s/.*"kind":"([^"]*)".*"time":"(.*)T([^.]*).*/\1 \2 \3/
        s/.*"kind":"([^"]*)".*/\1/')x");
    EXPECT_EQ(ours,
              answer_of("uuidparse -n -r -o TYPE,TIME" + uuids + R"( | sed -E 's/[\]x20/ /; s/[.,].*//; s/ *$//')"));
    EXPECT_EQ(std::count(ours.begin(), ours.end(), '\n'), 60);
    EXPECT_EQ(std::count(ours.begin(), ours.end(), ':'), 2 * 45) << "so many have a time";
}

}  // namespace

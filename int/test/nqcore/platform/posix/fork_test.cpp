// A forked child has numbers of its own, and is not stopped by a lock that a thread held when it was forked.
#include "nqcore/random.h"
#include "nqcore/uuid.h"

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace nqcore {
namespace {

using Drawn = std::array<Uuid, 128>;  // random ones, then sequential ones

Drawn draw() {
    Drawn drawn;
    std::generate_n(drawn.begin(), 64, [] { return Uuid::create_random(); });
    std::generate_n(drawn.begin() + 64, 64, Uuid::create_sequential);
    return drawn;
}

// What a child draws; false when it did not end well.
bool draw_in_child(Drawn& drawn) {
    int ends[2];
    if (pipe(ends) != 0) {
        return false;
    }
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        const Drawn mine = draw();
        const bool done = write(ends[1], &mine, sizeof mine) == static_cast<ssize_t>(sizeof mine);
        _exit(done ? 0 : 1);
    }
    close(ends[1]);
    const bool complete = child > 0 && read(ends[0], &drawn, sizeof drawn) == static_cast<ssize_t>(sizeof drawn);
    close(ends[0]);
    int status = -1;
    return waitpid(child, &status, 0) == child && complete && status == 0;
}

// Of a sequential UUID what does not come from the clock and the counter.
std::string tail_of(const Drawn& drawn) { return drawn.back().as_string(Uuid::format_plain).substr(16, 12); }

TEST(Fork, ChildrenHaveNumbersOfTheirOwn) {
    std::vector<Drawn> all{draw()};
    for (int child = 0; child < 4; ++child) {
        ASSERT_TRUE(draw_in_child(all.emplace_back()));
    }
    all.push_back(draw());
    std::set<Uuid> values;
    std::set<std::string> tails;
    for (const Drawn& drawn : all) {
        values.insert(drawn.begin(), drawn.end());
        tails.insert(tail_of(drawn));
    }
    EXPECT_EQ(values.size(), all.size() * Drawn().size());
    EXPECT_EQ(tails.size(), 5u);
    EXPECT_EQ(tail_of(all.front()), tail_of(all.back())) << "the parent keeps its own";
}

TEST(Fork, BusyThreadsDoNotStopAChild) {
    const auto draw_all_the_time = [](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            static_cast<void>(Uuid::create_sequential());
            static_cast<void>(random_int());
        }
    };
    const std::jthread threads[] = {std::jthread(draw_all_the_time), std::jthread(draw_all_the_time)};
    for (int i = 0; i < 50; ++i) {
        Drawn drawn;
        EXPECT_TRUE(draw_in_child(drawn));
    }
}

}  // namespace
}  // namespace nqcore

#include "nqcore/barrier.h"
#include "error_test_support.h"
#include "nqcore/result_control.h"

#include <string>
#include <thread>

namespace nqcore {
namespace {

using testing::ThrowsMessage;

enum State { pending, good, bad };

Future<int> future_in(State state) {
    return state == pending ? Future<int>() : state == good ? ready_future(1) : failed_future<int>(record("error.bad"));
}

const struct {
    std::vector<State> states;
    // any_ready, all_ready, any_failed, all_failed, any_successful, all_successful
    const char* answers;
} s_cases[] = {
    {{}, "110000"},          {{pending}, "000000"},       {{good}, "110011"},         {{bad}, "111100"},
    {{good, bad}, "111010"}, {{pending, good}, "100010"}, {{bad, pending}, "101000"},
};

template <class Barrier>
std::string answers(const Barrier& barrier) {
    std::string text;
    for (const bool answer : {barrier.any_ready(), barrier.all_ready(), barrier.any_failed(), barrier.all_failed(),
                              barrier.any_successful(), barrier.all_successful()}) {
        text += answer ? '1' : '0';
    }
    EXPECT_EQ(barrier.wait(RelativeTime::milliseconds(2)), barrier.all_ready());
    EXPECT_EQ(barrier.wait(AbsoluteTime::min_time), barrier.all_ready());
    return text;
}

TEST(Barrier, Predicates) {
    for (const auto& row : s_cases) {
        AnyFutureBarrier futures;
        AnyResultBarrier results;
        for (const State state : row.states) {
            futures.push_back(future_in(state));
            results.push_back(future_result(future_in(state)));
        }
        EXPECT_EQ(answers(futures), row.answers) << &row - s_cases;
        EXPECT_EQ(answers(results), row.answers) << &row - s_cases;
    }
}

TEST(Barrier, SignalsWhatIsPendingAndKeepsOrder) {
    AnyFutureBarrier barrier;
    const Future<void> first;
    const Future<std::string> second;
    barrier.push_back(first);
    barrier.push_back(future_in(good));
    barrier.push_back(second);
    AnyFutureBarrier copy(barrier);
    barrier.remove_all_ready();
    ASSERT_EQ(barrier.size(), 2u);
    EXPECT_EQ(barrier.begin()[0].get_future<void>(), first);
    EXPECT_EQ(barrier.begin()[1].get_future<std::string>(), second);
    EXPECT_THAT([&] { (void)barrier.begin()->get_future<int>(); },
                ThrowsMessage<std::exception>("AnyFutureBarrier : bad future cast"));
    EXPECT_EQ(copy.set_error_if_not_ready(record("error.late")), 2u);
    EXPECT_THAT(second.error_info(), HasCode("error.late"));
    EXPECT_EQ(barrier.erase(barrier.begin()), barrier.begin());
    barrier.swap(copy);
    EXPECT_TRUE(barrier.size() == 3 && copy.size() == 1);
    barrier.clear();
    EXPECT_TRUE(barrier.empty());
}

TEST(Barrier, CancelsAndCastsResults) {
    AnyResultBarrier barrier;
    Future<int> future;
    barrier.push_back(future_result(future));
    barrier.push_back(ready_result(2L));
    EXPECT_EQ(barrier.begin()[1].get_result<long>().get(), 2);
    EXPECT_THAT([&] { (void)barrier.begin()->get_result<long>(); },
                ThrowsMessage<std::exception>("AnyResultBarrier : bad result cast"));
    std::thread canceller([&] { barrier.cancel(record("error.why")); });
    barrier.wait();
    canceller.join();
    EXPECT_THAT(future.error_info(), HasCause(HasCode("error.why")));
    EXPECT_THAT([&] { barrier.push_back(Result<void>()); }, ThrowsError(HasCode("error.nqcore.result.notWaitable")));
}

}  // namespace
}  // namespace nqcore

// A schedule of races over futures, handlers and barriers, the same for every seed. NQCORE_STRESS_RACES says how many
// races there are, NQCORE_STRESS_SEED which ones.
#include "nqcore/barrier.h"
#include "nqcore/result_control.h"
#include "nqcore/thread_sync.h"

#include "error_test_support.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <mutex>
#include <optional>

namespace nqcore {
namespace {

constexpr unsigned s_threads = 3;
constexpr unsigned s_batch = 64;
constexpr int s_nobody = -1;

std::uint64_t number_from(const char* variable, std::uint64_t otherwise) {
    const char* const text = std::getenv(variable);
    return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

// A well mixed number for each place of the schedule.
std::uint64_t mixed(std::uint64_t place) {
    place += 0x9E3779B97F4A7C15;
    place = (place ^ place >> 30) * 0xBF58476D1CE4E5B9;
    place = (place ^ place >> 27) * 0x94D049BB133111EB;
    return place ^ place >> 31;
}

template <class T>
struct CountsTheLiving {
    CountsTheLiving() { ++s_live; }
    CountsTheLiving(const CountsTheLiving&) { ++s_live; }
    ~CountsTheLiving() { --s_live; }
    static inline std::atomic<int> s_live{0};
};

/// The value of a race: who signalled it.
struct Value : CountsTheLiving<Value> {
    explicit Value(int signaller) : by(signaller) {}
    int by;
};

/// An outcome, as anybody sees it: by whom, and how.
struct Outcome {
    enum How { value, error, cancelled, dropped };
    int by = s_nobody;
    How how = dropped;
    friend bool operator==(const Outcome&, const Outcome&) = default;
};

const ErrorInfo::Ptr s_errors[s_threads] = {record(), record(), record()};  // of each thread

Outcome outcome_of(const ErrorInfo::Ptr& error) {
    const bool isCancelled = impl::result_was_cancelled(error);
    const auto found = std::ranges::find(s_errors, isCancelled ? error->nested() : error);
    const int by = found == std::end(s_errors) ? s_nobody : static_cast<int>(found - s_errors);
    return {by, isCancelled ? Outcome::cancelled : by == s_nobody ? Outcome::dropped : Outcome::error};
}

Outcome outcome_of(const Future<Value>& future) {
    return future.has_value() ? Outcome{future.get().by, Outcome::value} : outcome_of(future.error_info());
}

/// Not atomic: what an observer notes must be visible to whoever sees the future ready.
struct Observer : IFutureObserver<Value>, RefCounted<AtomicRefCount>, CountsTheLiving<Observer> {
    void on_future_error(const ErrorInfo::Ptr& error) override { hear(outcome_of(error)); }
    void on_future_value(const Value& value) override { hear({value.by, Outcome::value}); }
    void hear(Outcome outcome) {
        told = outcome;
        ++times;
    }
    Outcome told;
    int times = 0;
};

/// What one thread did in one race, and saw. Read by others when the batch is over.
struct Part {
    RefCountPtr<AsyncResult<Value>> handler;
    RefCountPtr<Observer> observer{new Observer};
    bool added = false;
    bool removed = false;
    Outcome::How how = Outcome::dropped;
    std::optional<bool> won;  // as the library says
    bool refused = false;
    std::optional<Outcome> seen;

    void claim(Outcome::How signalled, bool decided) {
        how = signalled;
        won = decided;
    }

    // Through the handler, which does not say whether the signal decided, but refuses one that comes second.
    template <class Signal>
    void through_handler(Outcome::How signalled, Signal signal) {
        how = signalled;
        try {
            signal(*handler);
        } catch (const ErrorException& exception) {
            EXPECT_TRUE(exception.matches("error.nqcore.result.redundantSignal"));
            refused = true;
            won = false;
        }
    }

    void signal(Future<Value> future, int self, std::uint64_t action) {
        const ErrorInfo::Ptr& why = s_errors[self];
        AnyFutureBarrier barrier;
        switch (action) {
            case 0:
                return claim(Outcome::value, future.set_value(Value(self)));
            case 1:
                return claim(Outcome::error, future.set(why));
            case 2:
                return claim(Outcome::cancelled, future.cancel(why));
            case 3:
                barrier.push_back(future);
                barrier.push_back(future);
                return claim(Outcome::error, barrier.set_error_if_not_ready(why) != 0);
            case 4:
                return through_handler(Outcome::value, [&](auto& it) { it.on_async_result_success(Value(self)); });
            case 5:
                return through_handler(Outcome::error, [&](auto& it) { it.on_async_result_error(why); });
            case 6:
                return through_handler(Outcome::cancelled, [&](auto& it) { it.cancel(true, why); });
            default:;
        }
    }

    void check(bool mine, const Outcome& outcome) const {
        EXPECT_TRUE(mine ? how == outcome.how && won != false : won != true);
        EXPECT_TRUE(!refused || outcome.how != Outcome::cancelled) << "late, not redundant";
        EXPECT_TRUE(mine || won.has_value() || how >= Outcome::cancelled || outcome.how == Outcome::cancelled)
            << "lost in silence";
        EXPECT_EQ(seen.value_or(outcome), outcome);
        EXPECT_EQ(observer->times, added && !removed ? 1 : 0);
        EXPECT_TRUE(observer->times == 0 || observer->told == outcome);
        EXPECT_TRUE(observer->has_unique_ref());
    }
};

struct Race {
    Race() {
        const RefCountPtr<AsyncResult<Value>> handler = result_future(future).create_async_handler();
        for (Part& part : parts) {
            part.handler = handler;
        }
    }

    // In the end the handler goes: whatever else happens, the last one to leave has the future signalled.
    void run(unsigned thread, std::uint64_t dice) {
        meet();
        Part& part = parts[thread];
        IFutureObserver<Value>* const observer = part.observer.get();
        part.added = dice % 2 == 0 &&
                     Future<Value>(future).add_observer(observer, impl::FutureObserverOwner(part.observer.get()));
        part.signal(future, static_cast<int>(thread), dice / 2 % 8);
        part.removed = dice / 16 % 2 == 0 && future.remove_observer(observer);
        if (future.wait(RelativeTime::microseconds(static_cast<std::int64_t>(dice / 32 % 4) * 20))) {
            EXPECT_EQ(part.observer->times, part.added && !part.removed ? 1 : 0) << "told before it is ready";
            part.seen = outcome_of(future);
        }
        part.handler.clear();
        EXPECT_TRUE(dice / 128 % 8 != 0 || future.wait(RelativeTime::seconds(60)));
    }

    // So that they race at all: one thread is rarely alone in a race that another comes to, and never waits long.
    void meet() {
        ++arrived;
        const auto patience = std::chrono::steady_clock::now() + std::chrono::microseconds(20);
        while (arrived < 2 && std::chrono::steady_clock::now() < patience) {
        }
    }

    void check() const {
        ASSERT_TRUE(future.is_ready());
        const Outcome outcome = outcome_of(future);
        for (const Part& part : parts) {
            part.check(outcome.by == &part - parts, outcome);
            EXPECT_TRUE(outcome.by != s_nobody || part.how == Outcome::dropped);
        }
        EXPECT_TRUE(future.shared()->has_unique_ref());
    }

    const Future<Value> future;
    Part parts[s_threads];
    std::atomic<unsigned> arrived{0};
};

/// Where all threads wait for each other, again and again; the last one to come does some work meanwhile. Not
/// std::barrier, whose wait can miss its wake-up with the compiler's Windows runtime.
class Meeting {
public:
    template <class Work>
    void arrive_and_wait(Work work) {
        const std::lock_guard lock(m_mutex);
        const unsigned round = m_round;
        if (++m_arrived == s_threads) {
            work();
            m_arrived = 0;
            ++m_round;
            m_condition.broadcast();
        }
        while (round == m_round) {
            m_condition.wait();
        }
    }

private:
    ThreadMutex m_mutex;
    ThreadCondition m_condition{m_mutex};
    unsigned m_arrived = 0;
    unsigned m_round = 0;
};

TEST(AsyncStress, EveryRaceHasOneOutcome) {
    const std::uint64_t races = number_from("NQCORE_STRESS_RACES", 20'000);
    const std::uint64_t seed = number_from("NQCORE_STRESS_SEED", 1);
    std::uint64_t first = 0;
    std::vector<Race> batch(s_batch);
    Meeting batchEnd;
    const auto check_batch = [&] {
        for (const Race& race : batch) {
            SCOPED_TRACE(testing::Message() << "seed " << seed << ", race " << first + (&race - batch.data()));
            race.check();
        }
        first += s_batch;
        batch = std::vector<Race>(s_batch);
    };
    std::vector<unsigned> threads{0, 1, 2};
    run_on_threads(threads, [&](unsigned thread) {
        while (first < races && !HasFailure()) {
            for (unsigned i = 0; i < s_batch; ++i) {
                batch[i].run(thread, mixed(seed + (first + i) * s_threads + thread));
            }
            batchEnd.arrive_and_wait(check_batch);
        }
    });
    batch.clear();
    EXPECT_EQ(Value::s_live, 0);
    EXPECT_EQ(Observer::s_live, 0);
}

}  // namespace
}  // namespace nqcore

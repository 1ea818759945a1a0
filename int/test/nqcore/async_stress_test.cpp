// A schedule of races over futures, handlers and barriers, the same for every seed. NQCORE_STRESS_RACES says how many
// races there are, NQCORE_STRESS_SEED which ones.
#include "nqcore/barrier.h"
#include "nqcore/result_control.h"
#include "nqcore/task.h"
#include "nqcore/thread_sync.h"

#include "error_test_support.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <string>

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

/// The value of a race: who signalled it. Counts the values in being.
struct Value {
    explicit Value(int signaller) : by(signaller) { ++s_live; }
    Value(const Value& other) : by(other.by) { ++s_live; }
    Value& operator=(const Value&) = default;
    ~Value() { --s_live; }
    int by;
    static inline std::atomic<int> s_live{0};
};

/// An outcome, as anybody sees it: by whom, and how.
struct Outcome {
    enum How { value, error, cancelled, dropped };
    int by = s_nobody;
    How how = dropped;
    friend bool operator==(const Outcome&, const Outcome&) = default;
};

/// The errors of each thread, which name it.
struct Errors {
    [[nodiscard]] Outcome outcome(const ErrorInfo::Ptr& error) const {
        const bool isCancelled = impl::result_was_cancelled(error);
        const auto found = std::ranges::find(of, isCancelled ? error->nested() : error);
        const int by = found == std::end(of) ? s_nobody : static_cast<int>(found - of);
        return {by, isCancelled ? Outcome::cancelled : by == s_nobody ? Outcome::dropped : Outcome::error};
    }
    const ErrorInfo::Ptr of[s_threads] = {record(), record(), record()};
};

/// Not atomic: what an observer notes must be visible to whoever sees the future ready.
struct Observer : IFutureObserver<Value>, RefCounted<AtomicRefCount> {
    explicit Observer(const Errors& known) : errors(known) { ++s_live; }
    ~Observer() override { --s_live; }
    void on_future_error(const ErrorInfo::Ptr& error) override {
        told = errors.outcome(error);
        ++times;
    }
    void on_future_value(const Value& value) override {
        told = {value.by, Outcome::value};
        ++times;
    }
    const Errors& errors;
    Outcome told;
    int times = 0;
    static inline std::atomic<int> s_live{0};
};

/// What one thread did in one race, and saw. Read by others when the batch is over.
struct Part {
    RefCountPtr<AsyncResult<Value>> handler;
    RefCountPtr<Observer> observer;
    bool added = false;
    bool removed = false;
    std::optional<Outcome::How> won;    // the library said that this signal decided
    std::optional<Outcome::How> maybe;  // signalled through the handler, which does not say
    bool refused = false;               // and threw
    std::optional<Outcome> seen;
    std::string wrong;
};

struct Race {
    Race() {
        const RefCountPtr<AsyncResult<Value>> handler = result_future(future).create_async_handler();
        for (Part& part : parts) {
            part.handler = handler;
        }
    }
    const Future<Value> future;
    Part parts[s_threads];
    std::atomic<unsigned> arrived{0};
};

/// Where all threads wait for each other, again and again; the last one to come does some work meanwhile.
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

class Schedule {
public:
    void run() {
        std::uint64_t first = 0;
        const auto check_batch = [&] {
            for (unsigned i = 0; i < s_batch; ++i) {
                SCOPED_TRACE(testing::Message() << "seed " << m_seed << ", race " << first + i);
                check(m_batch[i]);
            }
            first += s_batch;
            m_batch = std::vector<Race>(s_batch);
        };
        Meeting batchEnd;
        std::vector<unsigned> threads{0, 1, 2};
        run_on_threads(threads, [&](unsigned thread) {
            while (first < m_races && !testing::Test::HasFailure()) {
                for (unsigned i = 0; i < s_batch; ++i) {
                    take_part(m_batch[i], thread, mixed(m_seed + (first + i) * s_threads + thread));
                }
                batchEnd.arrive_and_wait(check_batch);
            }
        });
        m_batch.clear();
        EXPECT_EQ(Value::s_live, 0);
        EXPECT_EQ(Observer::s_live, 0);
    }

private:
    // So that they race at all: one thread is rarely alone in a race that another comes to, and never waits long.
    static void meet(Race& race) {
        ++race.arrived;
        const auto patience = std::chrono::steady_clock::now() + std::chrono::microseconds(20);
        while (race.arrived < 2 && std::chrono::steady_clock::now() < patience) {
        }
    }

    // Up to three actions, then the handler goes: whatever else happens, the last one to leave has the future signalled.
    void take_part(Race& race, unsigned thread, std::uint64_t dice) const {
        meet(race);
        Part& part = race.parts[thread];
        for (int actions = static_cast<int>(dice % 4); actions > 0; --actions) {
            dice /= 4;
            act(race.future, part, thread, dice % 16);
            dice /= 16;
        }
        part.handler.clear();
        if (dice % 8 == 0) {
            const bool ready = race.future.wait(RelativeTime::seconds(60));
            part.wrong += ready ? "" : "never signalled ";
            look(race.future, part, ready);
        }
    }

    void act(Future<Value> future, Part& part, unsigned thread, std::uint64_t action) const {
        const int self = static_cast<int>(thread);
        const ErrorInfo::Ptr& error = m_errors.of[thread];
        const auto claim = [&part](bool won, Outcome::How how) {
            if (won) {
                part.wrong += part.won ? "won twice " : "";
                part.won = how;
            }
        };
        const auto through_handler = [&part](Outcome::How how, auto signal) {
            if (part.maybe || part.won) {
                return;  // one thing at a time that leaves open whose it was
            }
            part.maybe = how;
            try {
                signal(*part.handler);
            } catch (const ErrorException& exception) {
                part.refused = true;
                part.wrong += exception.matches("error.nqcore.result.redundantSignal") ? "" : "refused otherwise ";
            }
        };
        switch (action) {
            case 0:
                return claim(future.set_value(Value(self)), Outcome::value);
            case 1:
                return claim(future.set(error), Outcome::error);
            case 2:
                return claim(future.cancel(error), Outcome::cancelled);
            case 3:
                return through_handler(Outcome::value, [&](auto& it) { it.on_async_result_success(Value(self)); });
            case 4:
                return through_handler(Outcome::error, [&](auto& it) { it.on_async_result_error(error); });
            case 5:
                return through_handler(Outcome::cancelled, [&](auto& it) { it.cancel(true, error); });
            case 6:
                return through_handler(Outcome::cancelled,
                                       [&](auto& it) { AsyncOpHandle(it.get_result()).cancel(true, error); });
            case 7: {
                AnyFutureBarrier barrier;
                barrier.push_back(future);
                barrier.push_back(future);
                claim(barrier.set_error_if_not_ready(error) != 0, Outcome::error);
                return look(future, part, barrier.all_ready() && barrier.wait(RelativeTime::zero));
            }
            case 8: {
                AnyResultBarrier barrier;
                barrier.push_back(part.handler->get_result());
                barrier.push_back(ready_result(1));
                return look(future, part, barrier.wait(RelativeTime::microseconds(20)));
            }
            case 9:
                return look(future, part, future.wait(RelativeTime::zero));
            case 10:
                return look(future, part, future.wait(AbsoluteTime::min_time));
            case 11:
                return look(future, part, future.wait(AbsoluteTime(RelativeTime::microseconds(50))));
            case 12:
                return look(future, part, future.has_value() || future.has_error());
            case 13:
                return part.added ? remove_observer(future, part) : void();
            default:
                return part.observer.is_null() ? add_observer(future, part) : void();
        }
    }

    void add_observer(Future<Value>& future, Part& part) const {
        part.observer = RefCountPtr<Observer>(new Observer(m_errors));
        part.added = future.add_observer(part.observer.get(), impl::FutureObserverOwner(part.observer.get()));
    }

    static void remove_observer(Future<Value>& future, Part& part) {
        part.removed |= future.remove_observer(part.observer.get());
        part.wrong += part.removed == (part.observer->times == 0) ? "" : "removed or told ";
    }

    // What a thread sees of a future that was `ready` once, it sees from then on.
    void look(const Future<Value>& future, Part& part, bool ready) const {
        if (!ready) {
            part.wrong += part.seen ? "not ready any more " : "";
            return;
        }
        const int told = part.added ? part.observer->times : 0;  // before the future's mutex is taken
        const Outcome outcome = outcome_of(future);
        part.wrong += part.seen && *part.seen != outcome ? "another outcome " : "";
        part.seen = outcome;
        if (part.added && !part.removed) {
            part.wrong += told == 1 && part.observer->told == outcome ? "" : "not told first ";
        }
    }

    [[nodiscard]] Outcome outcome_of(const Future<Value>& future) const {
        return future.has_value() ? Outcome{future.get().by, Outcome::value} : m_errors.outcome(future.error_info());
    }

    void check(const Race& race) const {
        ASSERT_TRUE(race.future.is_ready());
        const Outcome outcome = outcome_of(race.future);
        int winners = outcome.by == s_nobody ? 1 : 0;
        for (unsigned thread = 0; thread < s_threads; ++thread) {
            const Part& part = race.parts[thread];
            const bool mine = outcome.by == static_cast<int>(thread);
            winners += part.won ? 1 : 0;
            winners += mine && !part.won && part.maybe == outcome.how && !part.refused ? 1 : 0;
            EXPECT_TRUE(!part.won || (mine && *part.won == outcome.how));
            EXPECT_TRUE(!part.refused || outcome.how != Outcome::cancelled) << "late, not redundant";
            EXPECT_TRUE(!part.maybe || part.refused || mine || outcome.how == Outcome::cancelled ||
                        *part.maybe == Outcome::cancelled)
                << "lost in silence";
            EXPECT_TRUE(!part.seen || *part.seen == outcome);
            EXPECT_EQ(part.wrong, "");
            if (!part.observer.is_null()) {
                EXPECT_EQ(part.observer->times, part.added && !part.removed ? 1 : 0);
                EXPECT_TRUE(part.observer->times == 0 || part.observer->told == outcome);
                EXPECT_TRUE(part.observer->has_unique_ref());
            }
        }
        EXPECT_EQ(winners, 1);
        EXPECT_TRUE(race.future.shared()->has_unique_ref());
    }

    const std::uint64_t m_races = number_from("NQCORE_STRESS_RACES", 20'000);
    const std::uint64_t m_seed = number_from("NQCORE_STRESS_SEED", 1);
    const Errors m_errors;
    std::vector<Race> m_batch = std::vector<Race>(s_batch);
};

TEST(AsyncStress, EveryRaceHasOneOutcome) { Schedule().run(); }

}  // namespace
}  // namespace nqcore

// The states of a future: a model of its steps in every order of three threads, and the class itself through every short
// sequence of operations. Models that are broken on purpose show that the search would find the fault.
#include "nqcore/future.h"

#include "error_test_support.h"
#include "interleavings.h"
#include "nqcore/abs_rel_time.h"

#include <compare>
#include <string>

namespace nqcore {
namespace {

// What each thread does; the steps between locking and unlocking are taken with the mutex.
enum class Role { signaller, waiter, remover };

// Ways to break it.
enum class Broken { no, setsReadyFirst, makesEventUnasked, signalsUnlocked, tellsAfterUnlock };

struct FutureModel {
    enum { begin, locked, store, tell, setReady, wake, unlock, tellLate, madeEvent, block, read, removed };
    Broken broken = Broken::no;
    std::array<Role, 3> roles{};
    std::array<int, 3> at{};
    int owner = s_done;  // of the mutex
    int outcome = 0;     // 1 + the signaller whose it is
    int winners = 0;
    bool ready = false;
    bool eventMade = false;
    bool eventSet = false;
    bool registered = true;  // the observer
    bool observerGone = false;
    int told = 0;
    const char* fault = nullptr;

    auto operator<=>(const FutureModel&) const = default;

    bool lock(std::size_t thread) {
        if (owner != s_done) {
            return false;
        }
        owner = static_cast<int>(thread);
        return true;
    }
    void go(std::size_t thread, int where) { at[thread] = where; }
    bool leave(std::size_t thread) {
        owner = s_done;
        at[thread] = s_done;
        return true;
    }
    void require(bool holds, const char* what) { fault = holds || fault != nullptr ? fault : what; }

    bool step(std::size_t thread) {
        switch (roles[thread]) {
            case Role::signaller:
                return signal(thread);
            case Role::waiter:
                return wait(thread);
            default:
                return remove(thread);
        }
    }

    // become_ready(): with a value, an error or a cancellation alike.
    bool signal(std::size_t thread) {
        const bool readyFirst = broken == Broken::setsReadyFirst;
        switch (at[thread]) {
            case begin:
                if (broken != Broken::signalsUnlocked && !lock(thread)) {
                    return false;
                }
                go(thread, locked);
                break;
            case locked:
                if (ready) {
                    return leave(thread);
                }
                go(thread, readyFirst ? setReady : store);
                break;
            case store:
                outcome = 1 + static_cast<int>(thread);
                go(thread, broken == Broken::tellsAfterUnlock ? setReady : tell);
                break;
            case tell:
                told += std::exchange(registered, false);
                go(thread, readyFirst ? wake : setReady);
                break;
            case setReady:
                ready = true;
                require(++winners == 1, "ready twice");
                go(thread, readyFirst ? store : wake);
                break;
            case wake:
                eventSet = eventSet || eventMade;
                go(thread, unlock);
                break;
            case unlock:
                if (broken != Broken::tellsAfterUnlock) {
                    return leave(thread);
                }
                owner = s_done;
                go(thread, registered ? tellLate : s_done);
                break;
            default:
                require(!observerGone, "an observer is told that was taken back");
                ++told;
                go(thread, s_done);
        }
        return true;
    }

    // wait(), then the outcome read without the mutex.
    bool wait(std::size_t thread) {
        switch (at[thread]) {
            case begin:
                go(thread, ready ? read : locked);
                break;
            case locked:
                if (!lock(thread)) {
                    return false;
                }
                go(thread, madeEvent);
                break;
            case madeEvent:
                if (ready && broken != Broken::makesEventUnasked) {
                    go(thread, read);
                } else {
                    eventMade = true;
                    go(thread, block);
                }
                owner = s_done;
                break;
            case block:
                if (!eventSet) {
                    return false;
                }
                go(thread, read);
                break;
            default:
                require(ready && outcome != 0, "an outcome is read that is not there");
                go(thread, s_done);
        }
        return true;
    }

    // remove_observer(); when it answers that the observer will not be called, the observer goes.
    bool remove(std::size_t thread) {
        if (at[thread] == begin) {
            if (!lock(thread)) {
                return false;
            }
            go(thread, removed);
            return true;
        }
        observerGone = std::exchange(registered, false);
        return leave(thread);
    }

    [[nodiscard]] const char* fault_at_end() const {
        return winners == 1 && told + observerGone == 1 ? nullptr : "an observer is forgotten or told twice";
    }
};

std::string fault_with(Broken broken) {
    constexpr std::array<Role, 3> casts[] = {{Role::signaller, Role::signaller, Role::waiter},
                                             {Role::signaller, Role::waiter, Role::waiter},
                                             {Role::signaller, Role::signaller, Role::remover},
                                             {Role::signaller, Role::waiter, Role::remover}};
    for (const std::array<Role, 3>& roles : casts) {
        FutureModel model;
        model.broken = broken;
        model.roles = roles;
        if (std::string fault = first_fault(model, 25); fault != "") {
            return fault;
        }
    }
    return "";
}

TEST(FutureModel, NoOrderOfStepsGoesWrong) { EXPECT_EQ(fault_with(Broken::no), ""); }

TEST(FutureModel, FindsWhatIsBroken) {
    EXPECT_EQ(fault_with(Broken::setsReadyFirst), "an outcome is read that is not there");
    EXPECT_EQ(fault_with(Broken::makesEventUnasked), "stuck");
    EXPECT_EQ(fault_with(Broken::signalsUnlocked), "ready twice");
    EXPECT_EQ(fault_with(Broken::tellsAfterUnlock), "an observer is told that was taken back");
}

struct Observer : IFutureObserver<int>, RefCounted<AtomicRefCount> {
    explicit Observer(char itsName, std::string* sharedLog) : name(itsName), log(sharedLog) {}
    void on_future_error(const ErrorInfo::Ptr& error) override {
        note(error->matches("error.nqcore.result.cancelled") ? "cancelled" : "error");
    }
    void on_future_value(const int& value) override { note("value " + std::to_string(value)); }
    void note(const std::string& outcome) { *log += name + (": " + outcome + "; "); }
    char name;
    std::string* log;
};

TEST(FutureModel, EverySequenceOfOperations) {
    const ErrorInfo::Ptr error = record("error.first");
    for_each_sequence<5>(7, [&](const std::array<int, 5>& operations) {
        Future<int> future;
        std::string log;
        const RefCountPtr<Observer> observers[] = {RefCountPtr<Observer>(new Observer('a', &log)),
                                                   RefCountPtr<Observer>(new Observer('b', &log))};
        std::string outcome;     // as observers call it
        std::string registered;  // their names in order
        std::string expected;    // of the log
        const auto signalled = [&](bool changed, const char* what) {
            ASSERT_EQ(changed, outcome.empty());
            if (changed) {
                outcome = what;
                for (const char name : std::exchange(registered, "")) {
                    expected += name + (": " + outcome + "; ");
                }
            }
        };
        for (const int operation : operations) {
            const std::size_t which = operation < 5 ? 0 : 1;
            Observer* const observer = observers[which].get();
            const std::size_t place = registered.find(observer->name);
            switch (operation) {
                case 0:
                    signalled(future.set_value(7), "value 7");
                    break;
                case 1:
                    signalled(future.set(error), "error");
                    break;
                case 2:
                    signalled(future.cancel(error), "cancelled");
                    break;
                case 3:
                case 5:
                    ASSERT_EQ(future.add_observer(observer, impl::FutureObserverOwner(observer)), outcome.empty());
                    registered += outcome.empty() ? std::string(1, observer->name) : "";
                    break;
                default:
                    ASSERT_EQ(future.remove_observer(observer), place != std::string::npos);
                    if (place != std::string::npos) {
                        registered.erase(place, 1);
                    }
            }
            ASSERT_EQ(log, expected);
            ASSERT_EQ(future.wait(RelativeTime::zero), !outcome.empty());
            ASSERT_EQ(state_of(future), outcome.empty() ? "" : outcome == "value 7" ? "ready value" : "ready error");
            ASSERT_EQ(future.error_info() == error, outcome == "error");
            for (const RefCountPtr<Observer>& each : observers) {
                ASSERT_EQ(each->has_unique_ref(), registered.find(each->name) == std::string::npos);
            }
        }
    });
}

}  // namespace
}  // namespace nqcore

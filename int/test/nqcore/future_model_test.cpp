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

enum class Broken { no, setsReadyFirst, makesEventUnasked, signalsUnlocked, tellsAfterUnlock };

// Signallers, waiters and one that takes its observer back; what they do with the mutex is one step, but for what is
// also read without it.
struct FutureModel {
    enum { begin, lock, signal, store, setReady, wake, tellLate, makeEvent, block, read, remove, leave };
    Broken broken = Broken::no;
    std::array<int, 3> roles{};  // the step behind `lock`: signal, makeEvent or remove
    std::array<int, 3> at{};
    bool locked = false;
    bool ready = false;
    bool eventMade = false;
    bool eventSet = false;
    bool registered = true;  // the observer
    bool observerGone = false;
    int outcomes = 0;
    int winners = 0;
    int told = 0;
    const char* fault = nullptr;

    auto operator<=>(const FutureModel&) const = default;
    void require(bool holds, const char* what) { fault = holds ? fault : what; }

    bool step(std::size_t thread) {
        const bool readyFirst = broken == Broken::setsReadyFirst;
        int& here = at[thread];
        switch (here) {
            case begin:
                here = roles[thread] == makeEvent && ready ? read : lock;
                break;
            case lock:
                if (locked && (broken != Broken::signalsUnlocked || roles[thread] != signal)) {
                    return false;
                }
                locked = true;
                here = roles[thread];
                break;
            case signal:
                here = ready ? leave : readyFirst ? setReady : store;
                break;
            case store:
                ++outcomes;
                told += broken != Broken::tellsAfterUnlock && std::exchange(registered, false) ? 1 : 0;
                here = readyFirst ? wake : setReady;
                break;
            case setReady:
                require(++winners == 1, "ready twice");
                ready = true;
                here = readyFirst ? store : wake;
                break;
            case wake:
                eventSet = eventMade;
                locked = false;
                here = broken == Broken::tellsAfterUnlock && registered ? tellLate : s_done;
                break;
            case tellLate:
                require(!observerGone, "an observer is told that was taken back");
                ++told;
                here = s_done;
                break;
            case makeEvent:
                eventMade = !ready || broken == Broken::makesEventUnasked;
                locked = false;
                here = eventMade ? block : read;
                break;
            case block:
                here = eventSet ? read : block;
                return eventSet;
            case read:
                require(ready && outcomes != 0, "an outcome is read that is not there");
                here = s_done;
                break;
            case remove:
                observerGone = std::exchange(registered, false);
                here = leave;
                break;
            default:
                locked = false;
                here = s_done;
        }
        return true;
    }
    [[nodiscard]] const char* fault_at_end() const {
        return winners == 1 && told + observerGone == 1 ? nullptr : "an observer is forgotten or told twice";
    }
};

std::string fault_with(Broken broken) {
    constexpr int s_signal = FutureModel::signal;
    constexpr int s_wait = FutureModel::makeEvent;
    for (const int second : {s_signal, s_wait}) {
        for (const int third : {s_wait, static_cast<int>(FutureModel::remove)}) {
            if (std::string fault = first_fault(FutureModel{broken, {s_signal, second, third}}, 50); fault != "") {
                return fault;
            }
        }
    }
    return "";
}

TEST(FutureModel, OnlyTheBrokenFutureGoesWrong) {
    EXPECT_EQ(fault_with(Broken::no), "");
    EXPECT_EQ(fault_with(Broken::setsReadyFirst), "an outcome is read that is not there");
    EXPECT_EQ(fault_with(Broken::makesEventUnasked), "stuck");
    EXPECT_EQ(fault_with(Broken::signalsUnlocked), "ready twice");
    EXPECT_EQ(fault_with(Broken::tellsAfterUnlock), "an observer is told that was taken back");
}

struct Observer : IFutureObserver<int>, RefCounted<AtomicRefCount> {
    Observer(char itsName, std::string& sharedLog) : name(itsName), log(sharedLog) {}
    void on_future_error(const ErrorInfo::Ptr& error) override { note(std::string(error->message().view())); }
    void on_future_value(const int& value) override { note(std::to_string(value)); }
    void note(const std::string& outcome) { log += name + outcome + ' '; }
    char name;
    std::string& log;
};

struct Observed {
    Future<int> future;
    const ErrorInfo::Ptr error = record("error.first", "error");
    std::string log;
    const RefCountPtr<Observer> observers[2] = {RefCountPtr<Observer>(new Observer('a', log)),
                                                RefCountPtr<Observer>(new Observer('b', log))};
    std::string outcome;     // as observers call it
    std::string registered;  // their names in order
    std::string expected;    // of the log

    void signalled(bool changed, const char* what) {
        ASSERT_EQ(changed, outcome.empty());
        if (changed) {
            outcome = what;
            for (const char name : std::exchange(registered, "")) {
                expected += name + outcome + ' ';
            }
        }
    }
    void add(Observer* observer) {
        ASSERT_EQ(future.add_observer(observer, impl::FutureObserverOwner(observer)), outcome.empty());
        registered += outcome.empty() ? std::string(1, observer->name) : "";
    }
    void remove(Observer* observer) {
        const std::size_t place = registered.find(observer->name);
        ASSERT_EQ(future.remove_observer(observer), place != std::string::npos);
        registered.erase(std::min(place, registered.size()), 1);
    }
    void check() const {
        ASSERT_EQ(log, expected);
        ASSERT_EQ(future.wait(RelativeTime::zero), !outcome.empty());
        ASSERT_EQ(state_of(future), outcome.empty() ? "" : outcome == "7" ? "ready value" : "ready error");
        ASSERT_EQ(future.error_info() == error, outcome == "error");
        for (const RefCountPtr<Observer>& each : observers) {
            ASSERT_EQ(each->has_unique_ref(), registered.find(each->name) == std::string::npos);
        }
    }
};

TEST(FutureModel, EverySequenceOfOperations) {
    static constexpr void (*s_operations[])(Observed&) = {
        [](Observed& it) { it.signalled(it.future.set_value(7), "7"); },
        [](Observed& it) { it.signalled(it.future.set(it.error), "error"); },
        [](Observed& it) { it.signalled(it.future.cancel(it.error), "Operation cancelled"); },
        [](Observed& it) { it.add(it.observers[0].get()); },
        [](Observed& it) { it.remove(it.observers[0].get()); },
        [](Observed& it) { it.add(it.observers[1].get()); },
        [](Observed& it) { it.remove(it.observers[1].get()); },
    };
    for_each_sequence<5>(s_operations);
}

}  // namespace
}  // namespace nqcore

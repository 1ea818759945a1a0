// The lock-free guard as a model of its atomic steps in every order of three threads, and the pointers themselves
// through every short sequence of operations. Models that are broken on purpose show that the search finds the fault.
#include "nqcore/refcount_guard.h"
#include "nqcore/weak_ref_ptr.h"

#include "interleavings.h"

#include <gtest/gtest.h>
#include <compare>
#include <optional>
#include <utility>

namespace nqcore {
namespace {

enum class Broken { no, readerReleasesNothing, readersAreForgotten, entersWithoutComparing };

// A guard with room for two readers; the third thread takes the object out, puts it back and takes it out again.
struct GuardModel {
    enum { look, enter, use, lookAgain, leave, release, takeOut, giveBack, putIn };
    static constexpr int s_stored = 3;
    Broken broken = Broken::no;
    std::array<int, 3> at{look, look, takeOut};
    std::array<int, 3> seen{};
    int count = s_stored + 1;  // the writer's own
    bool stored = true;
    int readers = 0;
    int rounds = 2;
    const char* fault = nullptr;

    auto operator<=>(const GuardModel&) const = default;
    void require(bool holds, const char* what) { fault = holds ? fault : what; }

    // The word, as one number, which a compare-exchange compares.
    [[nodiscard]] int word() const { return stored ? 1 + readers : 0; }

    bool step(std::size_t thread) {
        int& here = at[thread];
        int& noted = seen[thread];
        switch (here) {
            case look:
                noted = word();
                here = noted == 0 ? s_done : enter;
                break;
            case enter:
                here = noted == word() || broken == Broken::entersWithoutComparing ? ++readers, use : look;
                break;
            case use:
                require(count > 0, "used after it was destroyed");
                here = lookAgain;
                break;
            case lookAgain:
                noted = word();
                here = noted > 1 ? leave : broken == Broken::readerReleasesNothing ? s_done : release;
                break;
            case leave:
                here = noted == word() ? --readers, s_done : lookAgain;
                break;
            case release:
                require(--count >= 0, "released too often");
                here = s_done;
                break;
            case takeOut:
                noted = std::exchange(readers, 0);
                stored = false;
                here = giveBack;
                break;
            case giveBack:
                count -= broken == Broken::readersAreForgotten ? s_stored : s_stored - noted;
                here = --rounds > 0 ? putIn : release;
                break;
            default:
                count += s_stored;
                stored = true;
                here = takeOut;
        }
        return true;
    }
    [[nodiscard]] const char* fault_at_end() const { return count == 0 ? nullptr : "leaked"; }
};

TEST(RefCountModel, OnlyTheBrokenGuardGoesWrong) {
    EXPECT_EQ(first_fault(GuardModel{}, 200), "");
    EXPECT_EQ(first_fault(GuardModel{Broken::readerReleasesNothing}), "leaked");
    EXPECT_NE(first_fault(GuardModel{Broken::readersAreForgotten}), "");
    EXPECT_NE(first_fault(GuardModel{Broken::entersWithoutComparing}), "");
}

// Objects are known by their numbers; 0 is none. They live as long as a place that counts holds them.
struct Tracked : RefCounted<AtomicRefCount> {
    Tracked() { ++s_alive; }
    Tracked(const Tracked&) = delete;
    ~Tracked() override { --s_alive; }
    int number = ++s_made;
    static inline int s_alive = 0;
    static inline int s_made = 0;
};

template <class Ptr>
int number_of(const Ptr& pointer) {
    return pointer ? pointer.get()->number : 0;
}

// How many places of a model hold the object.
template <std::size_t places>
auto count_of(const std::array<int, places>& model, int number) {
    return std::count(model.begin(), model.end(), number);
}

template <std::size_t places>
int alive_in(const std::array<int, places>& model) {
    std::set<int> numbers(model.begin(), model.end());
    return static_cast<int>(numbers.size() - numbers.count(0));
}

struct Guarded {
    using Guard = RefCountPtrGuard<Tracked>;
    RefCountPtr<Tracked> p, q;
    Guard guard;
    std::optional<Guard::Reader> readers[2];
    std::array<int, 5> model{};  // p, q, the guard, the readers

    void toggle(std::size_t reader) {
        const bool enters = !readers[reader];
        enters ? static_cast<void>(readers[reader].emplace(guard)) : readers[reader].reset();
        model[3 + reader] = enters ? model[2] : 0;
    }
    void check() const {
        ASSERT_EQ(Tracked::s_alive, alive_in(model));
        ASSERT_EQ((std::array{number_of(p), number_of(q)}), (std::array{model[0], model[1]}));
        ASSERT_TRUE(!p || p->has_unique_ref() == (count_of(model, model[0]) == 1));
        ASSERT_TRUE(!q || q->has_unique_ref() == (count_of(model, model[1]) == 1));
        for (std::size_t i : {0, 1}) {
            ASSERT_EQ(readers[i] ? number_of(*readers[i]) : 0, model[3 + i]);
        }
    }
};

TEST(RefCountModel, EverySequenceOfPointersAndGuard) {
    static constexpr void (*s_operations[])(Guarded&) = {
        [](Guarded& it) { it.p = new Tracked, it.model[0] = Tracked::s_made; },
        [](Guarded& it) { it.p.clear(), it.model[0] = 0; },
        [](Guarded& it) { it.q = it.p, it.model[1] = it.model[0]; },
        [](Guarded& it) { it.p = std::move(it.q), it.model[0] = std::exchange(it.model[1], 0); },
        [](Guarded& it) { it.q.swap(it.p), std::swap(it.model[1], it.model[0]); },
        [](Guarded& it) { it.guard.set(it.p), it.model[2] = it.model[0]; },
        [](Guarded& it) { it.q = it.guard.get(), it.model[1] = it.model[2]; },
        [](Guarded& it) { it.toggle(0); },
        [](Guarded& it) { it.toggle(1); },
    };
    for_each_sequence<6>(s_operations);
    EXPECT_EQ(Tracked::s_alive, 0);
}

struct StrongAndWeak {
    StrongRefPtr<Tracked> p, q;
    WeakRefPtr<Tracked> weakP, weakQ;
    std::array<int, 2> model{};
    std::array<int, 2> weakModel{};

    void check() const {
        ASSERT_EQ(Tracked::s_alive, alive_in(model));
        ASSERT_EQ((std::array{number_of(p), number_of(q)}), model);
        ASSERT_EQ(weakP.expired(), weakModel[0] == 0 || count_of(model, weakModel[0]) == 0);
        ASSERT_EQ(weakQ.expired(), weakModel[1] == 0 || count_of(model, weakModel[1]) == 0);
    }
};

TEST(RefCountModel, EverySequenceOfStrongAndWeak) {
    using World = StrongAndWeak;
    static constexpr void (*s_operations[])(World&) = {
        [](World& it) { it.p = make_strong<Tracked>(), it.model[0] = Tracked::s_made; },
        [](World& it) { it.p = nullptr, it.model[0] = 0; },
        [](World& it) { it.q = it.p, it.model[1] = it.model[0]; },
        [](World& it) { it.p = std::move(it.q), it.model[0] = std::exchange(it.model[1], 0); },
        [](World& it) { it.weakP = it.p, it.weakModel[0] = it.model[0]; },
        [](World& it) { it.weakQ = it.weakP, it.weakModel[1] = it.weakModel[0]; },
        [](World& it) { it.weakP = std::move(it.weakQ), it.weakModel[0] = std::exchange(it.weakModel[1], 0); },
        [](World& it) { it.weakP = {}, it.weakModel[0] = 0; },
        [](World& it) {
            it.q = it.weakP.try_lock();
            it.model[1] = count_of(it.model, it.weakModel[0]) != 0 ? it.weakModel[0] : 0;
        },
    };
    for_each_sequence<5>(s_operations);
    EXPECT_EQ(Tracked::s_alive, 0);
}

}  // namespace
}  // namespace nqcore

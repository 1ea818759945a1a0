// The reference counts: a model of their atomic steps in every order of three threads, and the classes themselves through
// every short sequence of operations. A model that is broken on purpose shows that the search would find the fault.
#include "nqcore/refcount_guard.h"
#include "nqcore/weak_ref_ptr.h"

#include "interleavings.h"

#include <gtest/gtest.h>
#include <compare>
#include <optional>
#include <string>
#include <utility>

namespace nqcore {
namespace {

struct Model {
    int broken = 0;
    std::array<int, 3> at{};
    std::array<int, 3> seen{};
    const char* fault = nullptr;

    auto operator<=>(const Model&) const = default;
    void require(bool holds, const char* what) { fault = holds || fault != nullptr ? fault : what; }
};

// A count that starts at 1 or more, and threads that take references from a table which holds none itself.
struct TableModel : Model {
    enum { look, take, use, release, destroy };
    int count = 1;
    int destroyed = 0;

    explicit TableModel(int variant) : Model{variant, {use, look, look}, {}, nullptr} {}
    auto operator<=>(const TableModel&) const = default;

    bool step(std::size_t thread) {
        int& here = at[thread];
        switch (here) {
            case look:
                seen[thread] = count;
                here = seen[thread] != 0 ? take : s_done;
                break;
            case take:
                if (count == seen[thread] || broken == 1) {
                    ++count;
                    here = use;
                } else {
                    here = look;
                }
                break;
            case use:
                require(destroyed == 0, "used after it was destroyed");
                here = release;
                break;
            case release:
                here = --count == 0 ? destroy : s_done;
                break;
            default:
                require(++destroyed == 1, "destroyed twice");
                here = s_done;
        }
        return true;
    }
    [[nodiscard]] const char* fault_at_end() const { return count == 0 && destroyed == 1 ? nullptr : "not destroyed"; }
};

// One strong reference, which goes, and two weak ones that try to become strong meanwhile.
struct WeakModel : Model {
    enum { look, promote, use, releaseStrong, destroyObject, releaseBlock, releaseWeak, freeBlock, freeAndGo };
    int strong = 1;
    int weak;
    bool objectGone = false;
    bool blockGone = false;

    explicit WeakModel(int variant)
        : Model{variant, {use, look, look}, {}, nullptr},
          weak(variant == 2 ? 2 : 3) {}  // 2: strong ones hold no weak one
    auto operator<=>(const WeakModel&) const = default;

    bool step(std::size_t thread) {
        int& here = at[thread];
        const int afterStrong = thread == 0 ? s_done : releaseWeak;
        require(!blockGone, "the counts are used after they are gone");
        switch (here) {
            case look:
                seen[thread] = strong;
                here = strong != 0 ? promote : releaseWeak;
                break;
            case promote:
                here = strong == seen[thread] || broken == 1 ? ++strong, use : look;
                break;
            case use:
                require(!objectGone, "used after it was destroyed");
                here = releaseStrong;
                break;
            case releaseStrong:
                here = --strong == 0 ? destroyObject : afterStrong;
                break;
            case destroyObject:
                require(!objectGone, "destroyed twice");
                objectGone = true;
                here = broken == 2 ? afterStrong : releaseBlock;
                break;
            case releaseBlock:
                here = --weak == 0 ? freeBlock : afterStrong;
                break;
            case releaseWeak:
                here = --weak == 0 ? freeAndGo : s_done;
                break;
            case freeBlock:
            case freeAndGo:
                require(objectGone, "the memory goes before the object");
                blockGone = true;
                here = here == freeBlock ? afterStrong : s_done;
                break;
            default:
                break;
        }
        return true;
    }
    [[nodiscard]] const char* fault_at_end() const { return objectGone && blockGone ? nullptr : "leaked"; }
};

// A guard with room for two readers; the third thread takes the object out, puts it back and takes it out again.
struct GuardModel : Model {
    enum { look, enter, use, lookAgain, leave, release, takeOut, giveBack, putIn };
    static constexpr int s_stored = 3;
    int count = s_stored + 1;  // the writer's own
    bool stored = true;
    int readers = 0;
    int rounds = 2;

    explicit GuardModel(int variant) : Model{variant, {look, look, takeOut}, {}, nullptr} {}
    auto operator<=>(const GuardModel&) const = default;

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
                here = noted == word() ? ++readers, use : look;
                break;
            case use:
                require(count > 0, "used after it was destroyed");
                here = lookAgain;
                break;
            case lookAgain:
                noted = word();
                here = noted > 1 ? leave : broken == 1 ? s_done : release;
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
                count -= broken == 2 ? s_stored : s_stored - noted;
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

TEST(RefCountModel, NoOrderOfStepsGoesWrong) {
    EXPECT_EQ(first_fault(TableModel(0), 60), "");
    EXPECT_EQ(first_fault(WeakModel(0), 200), "");
    EXPECT_EQ(first_fault(GuardModel(0), 200), "");
}

TEST(RefCountModel, FindsWhatIsBroken) {
    EXPECT_EQ(first_fault(TableModel(1)), "destroyed twice") << "added without comparing";
    EXPECT_NE(first_fault(WeakModel(1)), "") << "promoted without comparing";
    EXPECT_EQ(first_fault(WeakModel(2)), "the memory goes before the object") << "strong ones hold no weak one";
    EXPECT_EQ(first_fault(GuardModel(1)), "leaked") << "a reader that no longer finds its object releases nothing";
    EXPECT_NE(first_fault(GuardModel(2)), "") << "the references of readers are taken back";
}

// Which object each place holds, by its number; 0 for none. Objects live as long as a place that counts holds them.
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

template <std::size_t places>
int count_of(const std::array<int, places>& model, int number) {
    return static_cast<int>(std::count(model.begin(), model.end(), number));
}

template <std::size_t places>
int distinct(std::array<int, places> model) {
    std::sort(model.begin(), model.end());
    return static_cast<int>(std::unique(model.begin(), model.end()) - model.begin()) - (model[0] == 0 ? 1 : 0);
}

TEST(RefCountModel, EverySequenceOfPointersAndGuard) {
    using Ptr = RefCountPtr<Tracked>;
    enum { p, q, guarded, first, second };  // two pointers, the guard, two readers
    for_each_sequence<6>(9, [](const std::array<int, 6>& operations) {
        Ptr pointers[2];
        RefCountPtrGuard<Tracked> guard;
        std::optional<RefCountPtrGuard<Tracked>::Reader> readers[2];
        std::array<int, 5> model{};
        for (const int operation : operations) {
            switch (operation) {
                case 0:
                    pointers[p] = new Tracked;
                    model[p] = Tracked::s_made;
                    break;
                case 1:
                    pointers[p].clear();
                    model[p] = 0;
                    break;
                case 2:
                    pointers[q] = pointers[p];
                    model[q] = model[p];
                    break;
                case 3:
                    pointers[p] = std::move(pointers[q]);
                    model[p] = std::exchange(model[q], 0);
                    break;
                case 4:
                    pointers[q].swap(pointers[p]);
                    std::swap(model[q], model[p]);
                    break;
                case 5:
                    guard.set(pointers[p]);
                    model[guarded] = model[p];
                    break;
                case 6:
                    pointers[q] = guard.get();
                    model[q] = model[guarded];
                    break;
                default: {
                    const int reader = operation - 7;
                    if (readers[reader]) {
                        readers[reader].reset();
                        model[static_cast<std::size_t>(first + reader)] = 0;
                    } else {
                        readers[reader].emplace(guard);
                        model[static_cast<std::size_t>(first + reader)] = model[guarded];
                    }
                }
            }
            ASSERT_EQ(Tracked::s_alive, distinct(model));
            for (const int place : {p, q}) {
                const int number = model[static_cast<std::size_t>(place)];
                ASSERT_EQ(number_of(pointers[place]), number);
                const bool unique = count_of(model, number) == 1;
                ASSERT_TRUE(number == 0 || pointers[place]->has_unique_ref() == unique);
            }
            for (const int reader : {0, 1}) {
                ASSERT_EQ(readers[reader] ? number_of(*readers[reader]) : 0,
                          model[static_cast<std::size_t>(first + reader)]);
            }
        }
    });
    EXPECT_EQ(Tracked::s_alive, 0);
}

TEST(RefCountModel, EverySequenceOfStrongAndWeak) {
    enum { a, b };
    for_each_sequence<5>(9, [](const std::array<int, 5>& operations) {
        StrongRefPtr<Tracked> strong[2];
        WeakRefPtr<Tracked> weak[2];
        std::array<int, 2> strongModel{};
        std::array<int, 2> weakModel{};
        for (const int operation : operations) {
            switch (operation) {
                case 0:
                    strong[a] = make_strong<Tracked>();
                    strongModel[a] = Tracked::s_made;
                    break;
                case 1:
                    strong[a] = nullptr;
                    strongModel[a] = 0;
                    break;
                case 2:
                    strong[b] = strong[a];
                    strongModel[b] = strongModel[a];
                    break;
                case 3:
                    strong[a] = std::move(strong[b]);
                    strongModel[a] = std::exchange(strongModel[b], 0);
                    break;
                case 4:
                    weak[a] = strong[a];
                    weakModel[a] = strongModel[a];
                    break;
                case 5:
                    weak[b] = weak[a];
                    weakModel[b] = weakModel[a];
                    break;
                case 6:
                    weak[a] = std::move(weak[b]);
                    weakModel[a] = std::exchange(weakModel[b], 0);
                    break;
                case 7:
                    weak[a] = {};
                    weakModel[a] = 0;
                    break;
                default:
                    strong[b] = weak[a].try_lock();
                    strongModel[b] = count_of(strongModel, weakModel[a]) != 0 ? weakModel[a] : 0;
            }
            ASSERT_EQ(Tracked::s_alive, distinct(strongModel));
            for (const std::size_t place : {a, b}) {
                ASSERT_EQ(number_of(strong[place]), strongModel[place]);
                ASSERT_EQ(weak[place].expired(), weakModel[place] == 0 || count_of(strongModel, weakModel[place]) == 0);
            }
        }
    });
    EXPECT_EQ(Tracked::s_alive, 0);
}

}  // namespace
}  // namespace nqcore

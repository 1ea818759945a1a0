#include "nqcore/refcounted.h"

#include "error_test_support.h"
#include "nqcore/interface_ptr.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <typeinfo>
#include <utility>

namespace nqcore {
namespace {

// Counts its living instances and keeps a reference to another object.
template <class Policy>
struct Node : RefCounted<Policy> {
    explicit Node(int* alive) : m_alive(alive) { ++*m_alive; }
    Node(const Node& other) : RefCounted<Policy>(other), m_alive(other.m_alive) { ++*m_alive; }
    ~Node() override { --*m_alive; }

    int* m_alive;
    RefCountPtr<Node> next;
};

struct Plain : RefCounted<AtomicRefCount> {};
struct Derived : Plain {};
struct Recycled : RefCounted<AtomicRefCount> {
    void destroy() override { ++destroyed; }
    int destroyed = 0;
};

static_assert(sizeof(AtomicRefCount) == 4 && sizeof(NonAtomicRefCount) == 4 && sizeof(AtomicStrongWeakRefCount) == 8);
static_assert(sizeof(RefCounted<AtomicRefCount>) == 2 * sizeof(void*) && sizeof(RefCountPtr<Plain>) == sizeof(void*));
static_assert(sizeof(InterfacePtr<int, RefCountPtr<Plain>>) == 2 * sizeof(void*));
static_assert(std::is_base_of_v<std::bad_cast, impl::BadCastNullRef>);
static_assert(!std::is_constructible_v<RefCountPtr<Plain>, RefCountPtr<const Plain>>, "const must not get lost");
static_assert(!std::is_convertible_v<RefCountPtr<Plain>, RefCountPtr<Derived>>);

template <class Policy>
struct RefCounting : testing::Test {
    using Tracked = Node<Policy>;
    int alive = 0;
};
using Policies = testing::Types<AtomicRefCount, NonAtomicRefCount>;
TYPED_TEST_SUITE(RefCounting, Policies);

TYPED_TEST(RefCounting, EveryWayInAndOutKeepsTheCount) {
    TypeParam count(1);
    EXPECT_TRUE(count.increment_unless_zero() && !count.subtract(1) && count.subtract(1));
    EXPECT_FALSE(count.increment_unless_zero() || count.has_refs()) << "what is gone stays gone";
    using Object = typename TestFixture::Tracked;
    using Ptr = RefCountPtr<Object>;
    auto* const raw = new Object(&this->alive);
    EXPECT_FALSE(raw->has_unique_ref()) << "it starts at 0";
    Ptr a(raw);
    EXPECT_TRUE(raw->has_unique_ref());
    { EXPECT_FALSE(Object(*a).has_unique_ref()) << "a copy starts at 0 again"; }
    Ptr moved(std::move(a));
    EXPECT_TRUE(a.is_null() && raw->has_unique_ref());
    Ptr taken(moved.transfer());
    EXPECT_TRUE(!moved && raw->has_unique_ref());
    EXPECT_TRUE(taken.detach() == raw && taken.is_null() && raw->has_unique_ref());
    taken.attach(raw);
    EXPECT_TRUE(raw->has_unique_ref()) << "attach takes the reference over";
    Ptr noAdd(taken.detach(), false);
    EXPECT_TRUE(raw->has_unique_ref());
    taken = noAdd.get();
    EXPECT_FALSE(raw->has_unique_ref()) << "assignment from a raw pointer adds one";
    const RefCountPtr<const Object>& view = taken.as_const_ptr();
    noAdd.clear();
    EXPECT_TRUE(view.get() == raw && raw->has_unique_ref()) << "the const view holds no reference of its own";
    { auto dropped = taken.transfer(); }
    EXPECT_EQ(this->alive, 0) << "a token that nobody takes releases";
}

TYPED_TEST(RefCounting, AssignmentFromInsideTheOldObjectIsSafe) {
    using Object = typename TestFixture::Tracked;
    using Ptr = RefCountPtr<Object>;
    Ptr list(new Object(&this->alive));
    list->next = new Object(&this->alive);
    list = *&list;
    EXPECT_EQ(this->alive, 2) << "self-assignment";
    list = list->next;
    EXPECT_EQ(this->alive, 1);
    EXPECT_TRUE(list->has_unique_ref());
    list = std::move(list->next);
    EXPECT_EQ(this->alive, 0);
}

TEST(RefCounted, DestroyIsCalledOnceOnTheLastRelease) {
    Recycled object;
    { const RefCountPtr<Recycled> again{RefCountPtr<Recycled>(&object)}; }
    EXPECT_EQ(object.destroyed, 1);
    Recycled misused;
    { const RefCountPtr<Recycled> stolen(&misused, false); }
    EXPECT_EQ(misused.destroyed, 0) << "the count went to -1, not to 0";
    EXPECT_EQ(virtual_slot(&Recycled::destroy), 0u);
}

TEST(RefCounted, CastsDownOrSaysWhyNot) {
    using testing::ThrowsMessage;
    const RefCountPtr<const Plain> base = RefCountPtr<Derived>(new Derived);
    EXPECT_EQ(dynamic_reference_cast<const Derived>(base).get(), base.get());
    const auto cast_of = [](Plain* source) {
        return [source = RefCountPtr<Plain>(source)] { static_cast<void>(dynamic_reference_cast<Derived>(source)); };
    };
    EXPECT_THAT(cast_of(nullptr),
                ThrowsMessage<impl::BadCastNullRef>("Bad nqcore::dynamic_reference_cast<> (NULL source)"));
    EXPECT_THAT(cast_of(new Plain),
                ThrowsMessage<impl::BadDynamicRefCast>("Bad nqcore::dynamic_reference_cast<> (cast failed)"));
}

}  // namespace
}  // namespace nqcore

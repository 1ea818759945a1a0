// The cache itself: growth, colliding hashes, removal, threads, and the end of the object manager.
#include "object_key_cache.h"

#include "nqcore/object_key.h"

#include <gmock/gmock.h>

#include <atomic>
#include <stdexcept>
#include <thread>
#include <unordered_set>

namespace nqcore {
namespace {

using impl::g_stringKeys;
using impl::ObjectKeyCache;

std::string name_of(int number) { return "key number " + std::to_string(number); }
StringKey key_of(int number) { return StringKey::from_string(name_of(number)); }

// Calls `work` with 0 and with 1, as nearly at once as can be.
template <class Work>
void run_on_two_threads(Work work) {
    std::atomic<int> arrived{0};
    const auto start = [&](int thread) {
        ++arrived;
        while (arrived < 2) {
            std::this_thread::yield();
        }
        work(thread);
    };
    std::thread other(start, 1);
    start(0);
    other.join();
}

// The null key has no cache, so a first one opens it.
struct KeyCache : testing::Test {
    KeyCache() { static_cast<void>(StringKey::from_string("open")); }
    ~KeyCache() override { EXPECT_EQ(g_stringKeys.census().tokens, 0u) << "the last key takes the text along"; }
};

TEST_F(KeyCache, GrowsAndShrinksWithItsKeys) {
    constexpr std::size_t count = 300'000;  // enough for some texts to have the same hash
    std::unordered_set<std::uint32_t> hashes;
    std::vector<StringKey> keys;
    for (int i = 0; keys.size() < count; ++i) {
        hashes.insert(impl::string_key_hash(name_of(i)));
        keys.push_back(key_of(i));
    }
    EXPECT_LT(hashes.size(), count) << "no collision: the walk past one is not tested";
    EXPECT_EQ(std::unordered_set<StringKey>(keys.begin(), keys.end()).size(), count);
    EXPECT_EQ(g_stringKeys.census().tokens, count);
    const std::size_t chains = g_stringKeys.census().chains;
    EXPECT_GE(chains, count / 2);
    for (std::size_t i = 0; i < count; i += 7) {
        ASSERT_EQ(key_of(static_cast<int>(i)), keys[i]) << "found again, also behind another with its hash";
    }
    // In another order than they came.
    for (std::size_t i = 0; i < count; i += 2) {
        keys[i].clear();
    }
    for (std::size_t i = 0; i < count; i += 13) {
        ASSERT_EQ(key_of(static_cast<int>(i)) == keys[i], i % 2 == 1);
    }
    keys.clear();
    EXPECT_LT(g_stringKeys.census().chains, chains / 64);
}

// Spread over two threads so that searches, insertions and removals of the same keys meet in every order.
TEST_F(KeyCache, TwoThreadsInternAndDropTheSameKeys) {
    std::atomic<int> faults{0};
    run_on_two_threads([&](int start) {
        const std::string texts[] = {name_of(0), name_of(1), name_of(2)};
        for (int i = start; i < 1'000'000; ++i) {
            const std::string& text = texts[i % 3];
            const StringKey key = StringKey::from_string(text);
            faults += key == StringKey::from_string(text) && key.value() == text ? 0 : 1;
        }
    });
    EXPECT_EQ(faults, 0);
}

TEST_F(KeyCache, ThreadsFillItTogether) {
    std::vector<StringKey> keys[2];
    run_on_two_threads([&](int thread) {
        for (int i = 0; i < 20'000; ++i) {
            keys[thread].push_back(key_of(i));
        }
    });
    EXPECT_EQ(g_stringKeys.census().tokens, 20'000u);
    EXPECT_EQ(keys[0], keys[1]);
}

TEST_F(KeyCache, ThreadsMakeOneTextOfAUniqueKey) {
    for (int round = 0; round < 300; ++round) {
        const ObjectKey key = ObjectKey::create_unique();
        std::string texts[2];
        run_on_two_threads([&](int thread) { texts[thread] = key.text(); });
        ASSERT_EQ(texts[0], texts[1]);
        ASSERT_EQ(texts[0], key.text());
    }
}

TEST_F(KeyCache, KeysOutliveIt) {
    StringKey early = StringKey::from_string("early");
    StringKey copy = early;
    g_stringKeys.close();
    g_stringKeys.close();
    EXPECT_EQ(g_stringKeys.census().tokens, 0u);
    const auto refused =
        testing::ThrowsMessage<std::logic_error>("nqcore::impl::ObjectKeyCache not constructed or already destroyed");
    EXPECT_THAT([] { static_cast<void>(StringKey::from_string("early")); }, refused);
    EXPECT_TRUE(StringKey::from_string("").is_null()) << "asks no cache";
    early.clear();
    EXPECT_EQ(copy.value(), "early");
    copy.clear();  // the sanitizer sees whether this was freed, and once

    ObjectKeyCache never;
    EXPECT_THAT([&] { static_cast<void>(never.intern<impl::StringKeyToken>(std::string_view("x"), 1)); }, refused);
    g_stringKeys.open();
}

}  // namespace
}  // namespace nqcore

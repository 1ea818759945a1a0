#include "nqcore/object_key.h"

#include "nqcore/source_string.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <cstdint>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace nqcore {
namespace {

static_assert(sizeof(ObjectKey) == sizeof(void*) && sizeof(StringKey) == sizeof(void*));
static_assert(sizeof(ObjectKeyToken) == (sizeof(void*) == 4 ? 12 : 24));

// Made before ObjectKey's own source may have run anything.
const ObjectKey s_early = ObjectKey::null;

template <class Key>
std::string traced(const Key& key) {
    std::ostringstream stream;
    stream << key;
    return stream.str();
}

bool is_base32(std::string_view text) {
    return text.size() == 16 && text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ234567") == text.npos;
}

TEST(ObjectKey, NullKeysOfAllKinds) {
    struct Object : RefCounted<AtomicRefCount> {};
    const ObjectKey keys[] = {
        s_early,
        ObjectKey::null,
        ObjectKey(),
        ObjectKey(RefCountPtr<ObjectKeyToken>()),
        ObjectKey::from_pointer(nullptr),
        ObjectKey::from_pointer(RefCountPtr<Object>()),
        StringKey().as_object_key(),
        StringKey::from_string("").as_object_key(),
        UuidKey().as_object_key(),
    };
    for (const ObjectKey& key : keys) {
        EXPECT_TRUE(key.is_null());
        EXPECT_EQ(key.hash(), 0u);
        EXPECT_EQ(key, ObjectKey::null);
        EXPECT_EQ(traced(key), "<null>");
        EXPECT_EQ(key.query_trace_data()->trace_text(), "<null>");
    }
    EXPECT_EQ(StringKey().value(), "");
    EXPECT_TRUE(UuidKey().uuid().is_null());
    EXPECT_EQ(ObjectKey().token(), ObjectKeyToken::default_token());
}

TEST(ObjectKey, UniqueKeysHaveOneTextEach) {
    std::set<std::string> texts;
    std::unordered_set<ObjectKey> keys;
    for (int i = 0; i < 100; ++i) {
        const ObjectKey key = ObjectKey::create_unique();
        EXPECT_EQ(key.key_value(), key.token().get());
        EXPECT_TRUE(is_base32(key.text())) << key.text();
        EXPECT_EQ(traced(key), ObjectKey(key).text());
        texts.emplace(key.text());
        keys.insert(key);
    }
    EXPECT_EQ(texts.size(), 100u);
    EXPECT_EQ(keys.size(), 100u);
}

TEST(ObjectKey, LabelsStandInQuotes) {
    struct {
        ObjectKey key;
        std::string_view start;
    } const rows[] = {
        {ObjectKey::create_unique_with_label("job", 2), "\"jo\"_"},
        {ObjectKey::create_unique_with_label("job", 0xFFFFFFFFu), "\"job\"_"},
        {ObjectKey::create_unique_with_label(nullptr, 5), "\"\"_"},
        {ObjectKey::create_unique_with_label(std::string_view("a\"\0b", 4)), std::string_view("\"a\"\0b\"_", 7)},
    };
    for (const auto& row : rows) {
        const std::string_view text = row.key.text();
        EXPECT_TRUE(text.starts_with(row.start)) << text;
        EXPECT_TRUE(is_base32(text.substr(row.start.size()))) << text;
        EXPECT_EQ(row.key.key_value(), row.key.token().get());
    }
    EXPECT_THROW(static_cast<void>(ObjectKey::create_unique_with_label("", 0x7FFFFFFFu)), std::length_error);
}

struct Counted : RefCounted<AtomicRefCount> {
    explicit Counted(bool& alive) : m_alive(alive) { m_alive = true; }
    ~Counted() override { m_alive = false; }
    bool& m_alive;
};

TEST(ObjectKey, PointerKeysAreThePointer) {
    const auto* const address = reinterpret_cast<const void*>(std::uintptr_t{0x00C0FFEE});
    const ObjectKey key = ObjectKey::from_pointer(address);
    EXPECT_EQ(key.key_value(), address);
    EXPECT_EQ(key.hash(), 0xC0FFEEu);
    EXPECT_EQ(key, ObjectKey::from_pointer(address));
    EXPECT_EQ(key.text(), sizeof(void*) == 4 ? "00c0ffee" : "0000000000c0ffee");
    EXPECT_EQ(key.text().data(), key.text().data()) << "made once";

    bool alive = false;
    RefCountPtr<Counted> object(new Counted(alive));
    ObjectKey keeping = ObjectKey::from_pointer(object);
    EXPECT_EQ(keeping.key_value(), object.get());
    object.clear();
    EXPECT_TRUE(alive);
    keeping.clear();
    EXPECT_FALSE(alive);
}

TEST(StringKey, EqualTextsAreOneKey) {
    const std::string long_text(1000, 'x');
    const std::string_view texts[] = {"a",        "b",         std::string_view("a\0c", 3), "1234567", "12345678",
                                      "12345679", "123456789", "0123456789abcdef",          long_text};
    std::unordered_map<StringKey, std::string_view> map;
    for (const std::string_view text : texts) {
        SCOPED_TRACE(text);
        const StringKey key = StringKey::from_string(text);
        const StringKey again = StringKey::from_string(std::string(text).c_str(), static_cast<unsigned>(text.size()));
        EXPECT_EQ(key.key_value(), again.key_value());
        EXPECT_EQ(again.value(), text);
        EXPECT_EQ(traced(key), text);
        EXPECT_EQ(key.value().data()[text.size()], '\0');
        EXPECT_EQ(key.as_object_key(), key);
        EXPECT_TRUE(map.emplace(key, text).second) << "no other text has this key";
    }
    for (const auto& [key, text] : map) {
        EXPECT_EQ(StringKey::from_string(text), key);
    }
    EXPECT_EQ(StringKey::from_string("abcd", 3), StringKey::from_string("abc"));
    EXPECT_EQ(StringKey::from_string("abc", 0xFFFFFFFFu), StringKey::from_string("abc"));
    EXPECT_THROW(static_cast<void>(StringKey::from_string("", 0x80000000u)), std::length_error);
}

TEST(UuidKey, EqualUuidsAreOneKey) {
    const Uuid uuid = Uuid::from_string("6ba7b810-9dad-11d1-80b4-00c04fd430c8");
    const UuidKey key = UuidKey::from_uuid(uuid);
    EXPECT_EQ(key.uuid(), uuid);
    EXPECT_EQ(key.text(), "6ba7b810-9dad-11d1-80b4-00c04fd430c8");
    EXPECT_EQ(key.as_object_key(), key);
    // The words of these two have the same exclusive-or, which is their hash.
    const UuidKey one = UuidKey::from_uuid(Uuid::from_string("00000001-0000-0000-0000-000000000000"));
    const UuidKey other = UuidKey::from_uuid(Uuid::from_string("00000000-0001-0000-0000-000000000000"));
    ASSERT_EQ(one.uuid().hash(), other.uuid().hash());
    EXPECT_NE(one, other);
    for (const UuidKey& again : {key, one, other}) {
        EXPECT_EQ(again, UuidKey::from_uuid(again.uuid()));
    }
    EXPECT_FALSE(UuidKey::from_uuid(Uuid()).is_null()) << "the nil UUID has a key like any other";
}

TEST(ObjectKey, MovesLeaveTheNullKey) {
    const StringKey original = StringKey::from_string("moved about");
    StringKey a = original;
    StringKey b = std::move(a);
    EXPECT_TRUE(a.is_null());  // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(b, original);
    a = std::move(b);
    EXPECT_TRUE(b.is_null());  // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(a.value(), "moved about");
    StringKey& same = a;
    a = same;
    a = std::move(same);
    EXPECT_EQ(a, original);
    b.swap(a);
    EXPECT_EQ(b, original);
    EXPECT_TRUE(a.is_null());
    EXPECT_TRUE((a <=> original) == std::strong_ordering::less) << "the null key is the smallest";
}

TEST(StringKey, GivesItsTextToSourceStrings) {
    StringKey key = StringKey::from_string("a shared name");
    SourceString name(key);
    EXPECT_EQ(name.view(), "a shared name");
    EXPECT_FALSE(name.is_reference());
    key.query_trace_data()->set_trace_file_offset(1, 2, 345);
    std::uint64_t offset = 0;
    EXPECT_TRUE(name.query_trace_data()->query_trace_file_offset(1, 2, &offset));
    EXPECT_EQ(offset, 345u);
    const void* const value = key.key_value();
    key.clear();
    EXPECT_EQ(StringKey::from_string("a shared name").key_value(), value) << "the string keeps the key interned";

    name = StringKey::from_string("other");
    EXPECT_EQ(name.view(), "other");
    name.assign(StringKey());
    EXPECT_TRUE(name.empty() && name.is_reference());
}

TEST(ObjectKey, OffersTraceDataToStreamsThatTakeIt) {
    static std::string s_written;
    set_string_trace_handlers([](std::ostream&) { return true; },
                              [](std::ostream&, StringTraceData::Ptr data) { s_written += data->trace_text(); });
    std::ostringstream stream;
    stream << StringKey::from_string("traced") << ObjectKey::null;
    set_string_trace_handlers(nullptr, nullptr);
    EXPECT_EQ(s_written, "traced<null>");
    EXPECT_EQ(stream.str(), "");
    stream << StringKey::from_string("traced");
    EXPECT_EQ(stream.str(), "traced");
}

// A kind of key that the library does not know: its text changes nothing, its trace data is none.
class NumberToken final : public ObjectKeyToken {
public:
    explicit NumberToken(const void* value) : ObjectKeyToken(value) {}

private:
    void query_text(const char** text, unsigned int* length) const override {
        *text = "number";
        *length = 3;
    }
};

TEST(ObjectKey, TakesTokensOfOtherKinds) {
    const int number = 0;
    const ObjectKey key(RefCountPtr<ObjectKeyToken>(new NumberToken(&number)));
    EXPECT_EQ(key, ObjectKey::from_pointer(&number)) << "keys are their values, whatever made them";
    EXPECT_EQ(traced(key), "num");
    EXPECT_FALSE(key.query_trace_data());
}

}  // namespace
}  // namespace nqcore

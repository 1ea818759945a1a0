#include "nqcore/object_key.h"

#include "nqcore/source_string.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <stdexcept>
#include <unordered_map>

namespace nqcore {
namespace {

using namespace std::string_view_literals;

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

struct Object : RefCounted<AtomicRefCount> {};

TEST(ObjectKey, NullKeysOfAllKinds) {
    const ObjectKey keys[] = {
        s_early,
        ObjectKey(),
        ObjectKey(RefCountPtr<ObjectKeyToken>()),
        ObjectKey::from_pointer(nullptr),
        ObjectKey::from_pointer(RefCountPtr<Object>()),
        StringKey().as_object_key(),
        StringKey::from_string("").as_object_key(),
        UuidKey().as_object_key(),
    };
    for (const ObjectKey& key : keys) {
        EXPECT_TRUE(key.is_null() && key == ObjectKey::null && key.hash() == 0);
        EXPECT_EQ(traced(key), "<null>");
        EXPECT_EQ(key.query_trace_data()->trace_text(), "<null>");
    }
    EXPECT_EQ(StringKey().value(), "");
    EXPECT_TRUE(UuidKey().uuid().is_null());
    EXPECT_EQ(ObjectKey().token(), ObjectKeyToken::default_token());
}

TEST(ObjectKey, UniqueKeysHaveOneTextEach) {
    std::set<std::string_view> texts;
    std::vector<ObjectKey> keys(100);
    for (ObjectKey& key : keys) {
        key = ObjectKey::create_unique();
        EXPECT_EQ(key.key_value(), key.token().get());
        EXPECT_TRUE(is_base32(key.text())) << key.text();
        EXPECT_EQ(traced(key), ObjectKey(key).text());
        EXPECT_TRUE(texts.insert(key.text()).second);
    }
}

TEST(ObjectKey, LabelsStandInQuotes) {
    const std::pair<ObjectKey, std::string_view> rows[] = {
        {ObjectKey::create_unique_with_label("job", 2), "\"jo\"_"},
        {ObjectKey::create_unique_with_label("job", 0xFFFFFFFFu), "\"job\"_"},
        {ObjectKey::create_unique_with_label(nullptr, 5), "\"\"_"},
        {ObjectKey::create_unique_with_label("a\"\0b"sv), "\"a\"\0b\"_"sv},
    };
    for (const auto& [key, start] : rows) {
        EXPECT_TRUE(key.text().starts_with(start) && is_base32(key.text().substr(start.size()))) << key.text();
        EXPECT_EQ(key.key_value(), key.token().get());
    }
    EXPECT_THROW(static_cast<void>(ObjectKey::create_unique_with_label("", 0x7FFFFFFFu)), std::length_error);
}

TEST(ObjectKey, PointerKeysAreThePointer) {
    const auto* const address = reinterpret_cast<const void*>(std::uintptr_t{0x00C0FFEE});
    const ObjectKey key = ObjectKey::from_pointer(address);
    EXPECT_TRUE(key.key_value() == address && key.hash() == 0xC0FFEE && key == ObjectKey::from_pointer(address));
    EXPECT_EQ(key.text(), sizeof(void*) == 4 ? "00c0ffee" : "0000000000c0ffee");
    EXPECT_EQ(key.text().data(), key.text().data()) << "made once";

    const RefCountPtr<Object> object(new Object);
    ObjectKey keeping = ObjectKey::from_pointer(object);
    EXPECT_EQ(keeping.key_value(), object.get());
    EXPECT_FALSE(object->has_unique_ref());
    keeping.clear();
    EXPECT_TRUE(object->has_unique_ref());
}

TEST(StringKey, EqualTextsAreOneKey) {
    const std::string longText(1000, 'x');
    std::unordered_map<StringKey, std::string_view> map;
    for (const std::string_view text :
         {"a"sv, "b"sv, "a\0c"sv, "1234567"sv, "12345678"sv, "123456789"sv, std::string_view(longText)}) {
        SCOPED_TRACE(text);
        const StringKey key = StringKey::from_string(text);
        const StringKey again = StringKey::from_string(std::string(text).c_str(), static_cast<unsigned>(text.size()));
        EXPECT_TRUE(key.key_value() == again.key_value() && key.as_object_key() == key);
        EXPECT_EQ(again.value(), text);
        EXPECT_EQ(traced(key), text);
        EXPECT_EQ(key.value().data()[text.size()], '\0');
        EXPECT_TRUE(map.emplace(key, text).second) << "no other text has this key";
    }
    EXPECT_EQ(StringKey::from_string("abcd", 3), StringKey::from_string("abc", 0xFFFFFFFFu));
    EXPECT_THROW(static_cast<void>(StringKey::from_string("", 0x80000000u)), std::length_error);
}

TEST(UuidKey, EqualUuidsAreOneKey) {
    const Uuid uuid = Uuid::from_string("6ba7b810-9dad-11d1-80b4-00c04fd430c8");
    const UuidKey key = UuidKey::from_uuid(uuid);
    EXPECT_TRUE(key.uuid() == uuid && key == UuidKey::from_uuid(uuid) && key.as_object_key() == key);
    EXPECT_EQ(key.text(), "6ba7b810-9dad-11d1-80b4-00c04fd430c8");
    // The words of these two have the same exclusive-or, which is their hash.
    const UuidKey one = UuidKey::from_uuid(Uuid::from_string("00000001-0000-0000-0000-000000000000"));
    const UuidKey other = UuidKey::from_uuid(Uuid::from_string("00000000-0001-0000-0000-000000000000"));
    ASSERT_EQ(one.uuid().hash(), other.uuid().hash());
    EXPECT_NE(one, other);
    EXPECT_TRUE(one == UuidKey::from_uuid(one.uuid()) && other == UuidKey::from_uuid(other.uuid()));
    EXPECT_FALSE(UuidKey::from_uuid(Uuid()).is_null()) << "the nil UUID has a key like any other";
}

TEST(ObjectKey, MovesLeaveTheNullKey) {
    const StringKey original = StringKey::from_string("moved about");
    StringKey a = original;
    StringKey b = std::move(a);
    EXPECT_TRUE(a.is_null() && b == original);  // NOLINT(bugprone-use-after-move)
    a = std::move(b);
    EXPECT_TRUE(b.is_null() && a == original);  // NOLINT(bugprone-use-after-move)
    StringKey& same = a;
    a = same;
    a = std::move(same);
    EXPECT_EQ(a, original);
    b.swap(a);
    EXPECT_TRUE(a.is_null() && b == original);
    EXPECT_TRUE((a <=> original) == std::strong_ordering::less) << "the null key is the smallest";
}

TEST(StringKey, GivesItsTextToSourceStrings) {
    StringKey key = StringKey::from_string("a shared name");
    SourceString name(key);
    EXPECT_TRUE(name.view() == "a shared name" && !name.is_reference());
    key.query_trace_data()->set_trace_file_offset(1, 2, 345);
    std::uint64_t offset = 0;
    EXPECT_TRUE(name.query_trace_data()->query_trace_file_offset(1, 2, &offset) && offset == 345);
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
    stream << StringKey::from_string("written");
    EXPECT_EQ(stream.str(), "written");
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

#include "nqcore/uuid.h"

#include "error_test_support.h"
#include "nqcore/abs_rel_time.h"
#include "nqcore/random.h"
#include "nqcore/windows_types.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

namespace nqcore {
namespace {

using namespace std::string_view_literals;

constexpr std::string_view s_hyphenated = "6ba7b810-9dad-11d1-80b4-00c04fd430c8";
Uuid uuid_of(const std::vector<unsigned char>& bytes) {
    Uuid uuid;
    EXPECT_EQ(Uuid::read_binary(bytes.data(), uuid), bytes.size());
    return uuid;
}

// s_hyphenated, byte by byte.
const Uuid s_uuid =
    uuid_of({0x10, 0xB8, 0xA7, 0x6B, 0xAD, 0x9D, 0xD1, 0x11, 0x80, 0xB4, 0, 0xC0, 0x4F, 0xD4, 0x30, 0xC8});

std::vector<unsigned char> bytes_of(const Uuid& uuid) {
    std::vector<unsigned char> bytes(16);
    EXPECT_EQ(uuid.write_binary(bytes.data()), 16u);
    return bytes;
}

std::vector<unsigned char> random_bytes(std::mt19937& random) {
    std::vector<unsigned char> bytes(16);
    std::ranges::generate(bytes, [&random] { return static_cast<unsigned char>(random()); });
    return bytes;
}

// The time that a UUID holds; without one, what was there stays.
std::optional<AbsoluteTime> time_of(const Uuid& uuid) {
    AbsoluteTime time(77);
    const bool hasTime = uuid.get_time(time);
    EXPECT_TRUE(hasTime || time == AbsoluteTime(77));
    return hasTime ? std::optional(time) : std::nullopt;
}

// From a heap copy of the exact size, so that the sanitizers see a read past the end. A failure writes nothing.
bool reads(std::string_view text, Uuid& out) {
    const auto copy = std::make_unique<char[]>(text.size());
    text.copy(copy.get(), text.size());
    const auto length = static_cast<unsigned>(text.size());
    const Uuid before = uuid_of({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16});
    out = before;
    const ErrorInfo::Ptr error = Uuid::from_string_nothrow(copy.get(), length, &out);
    if (!error.is_null()) {
        EXPECT_EQ(out, before) << text;
        EXPECT_THAT(*error, AllOf(HasCode("error.nqcore.uuid.parse"), HasMessage("Failed to parse UUID from string"),
                                  HasCause(AllOf(HasCode("error.errno.EINVAL"), HasParam("errno", "22")))));
        EXPECT_EQ(error->params().size(), 0u);
        EXPECT_EQ(error->location().function().view(), "nqcore::Uuid::from_string_nothrow()");
    }
    return error.is_null();
}

// ---------------------------------------------------------------------------------------------------- text

TEST(UuidText, ReadsTheThreeForms) {
    const struct {
        std::string_view text;
        Uuid uuid;
    } rows[] = {
        {s_hyphenated, s_uuid},
        {"6BA7B8109DAD11D180B400C04FD430C8", s_uuid},
        {"{6ba7B810-9dAd-11d1-80B4-00c04Fd430C8}", s_uuid},
        {"{00000000-0000-0000-0000-000000000000}", Uuid()},
    };
    for (const auto& row : rows) {
        Uuid read;
        EXPECT_TRUE(reads(row.text, read)) << row.text;
        EXPECT_EQ(read, row.uuid) << row.text;
        EXPECT_EQ(Uuid::from_string(std::string(row.text).c_str()), row.uuid);
    }
}

TEST(UuidText, RefusesEverythingElse) {
    Uuid out;
    for (const std::string_view row :
         {"", "00000000-0000-0000-0000-0000000000000", "{00000000-0000-0000-0000-000000000000)",
          "{0000000000000000000000000000000000}", "00000000 0000-0000-0000-000000000000",
          "0x000000-0000-0000-0000-000000000000"}) {
        EXPECT_FALSE(reads(row, out)) << row;
    }
    const auto parse = [](auto... arguments) { return [=] { static_cast<void>(Uuid::from_string(arguments...)); }; };
    const auto error = ThrowsError(AllOf(HasCode("error.nqcore.uuid.parse"), HasCause(HasParam("errno", "22"))));
    EXPECT_THAT(parse("x"), error);
    EXPECT_THAT(parse(static_cast<const char*>(nullptr)), error);
    EXPECT_THAT(parse(static_cast<const char*>(nullptr), 36u), error);
    EXPECT_THAT(parse(s_hyphenated.data(), 0xFFFFFFFFu), error);
    EXPECT_THAT(parse(std::string_view()), error);
    EXPECT_FALSE(Uuid::from_string_nothrow(nullptr, nullptr).is_null());
}

TEST(UuidText, Formats) {
    const std::pair<unsigned, std::string_view> rows[] = {
        {0, s_hyphenated},
        {1, "6ba7b8109dad11d180b400c04fd430c8"},
        {2, "{6ba7b810-9dad-11d1-80b4-00c04fd430c8}"},
        {3, ""},
        {0xFFFFFFFF, ""},
    };
    for (const auto& [number, text] : rows) {
        const auto format = static_cast<Uuid::EFormat>(number);
        EXPECT_EQ(s_uuid.as_string(format), text);
        EXPECT_EQ(UuidText(s_uuid, format).c_str(), text);
        std::ostringstream stream;
        stream << Uuid::Trace{s_uuid, format};
        EXPECT_EQ(stream.str(), text);
    }
    std::ostringstream stream;
    stream << s_uuid << Uuid();
    EXPECT_EQ(stream.str(), std::string(s_hyphenated) + "00000000-0000-0000-0000-000000000000");
}

// ---------------------------------------------------------------------------------------------------- layout

TEST(Uuid, HasTheLayoutOfTheSystemsGuid) {
    const GUID guid = s_uuid.as_windows_guid();
    EXPECT_EQ(guid.Data1, 0x6BA7B810u);
    EXPECT_EQ(guid.Data2, 0x9DAD);
    EXPECT_EQ(guid.Data3, 0x11D1);
    EXPECT_EQ(guid.Data4[0], 0x80);
    EXPECT_EQ(guid.Data4[7], 0xC8);
    EXPECT_EQ(std::memcmp(&s_uuid, &guid, sizeof guid), 0);
    EXPECT_EQ(std::memcmp(s_uuid.get_binary_data().data(), &guid, sizeof guid), 0);
    EXPECT_EQ(Uuid::from_windows_guid(guid), s_uuid);
    EXPECT_EQ(s_uuid.write_binary(nullptr), 16u);
    Uuid kept = s_uuid;
    EXPECT_EQ(Uuid::read_binary(nullptr, kept), 16u);
    EXPECT_EQ(kept, s_uuid);
    Uuid other;
    other.swap(kept);
    EXPECT_TRUE(kept.is_null() && other == s_uuid);
    other.clear();
    EXPECT_TRUE(other.is_null());
}

TEST(Uuid, BinaryDataTakesVersionAndVariant) {
    Uuid::BinaryData ones;
    std::fill_n(ones.data(), 16, static_cast<unsigned char>(0xFF));
    EXPECT_EQ(Uuid(ones, Uuid::version_random).as_string(), "ffffffff-ffff-4fff-bfff-ffffffffffff");
    EXPECT_EQ(Uuid(Uuid::BinaryData(), static_cast<Uuid::EVersion>(15)).as_string(),
              "00000000-0000-f000-8000-000000000000");
}

TEST(Uuid, IsMadeFromParts) {
    Uuid::NodeAddress node;
    for (unsigned i = 0; i < 6; ++i) {
        node[i] = static_cast<unsigned char>(0xA0 + i);
    }
    constexpr unsigned long long timestamp = 0xFEDC'BA98'7654'3210;
    const Uuid plain(Uuid::version_time_based, 0xFFFF, node, timestamp);
    EXPECT_EQ(plain.as_string(), "76543210-ba98-1edc-bfff-a0a1a2a3a4a5");
    EXPECT_EQ(plain.version(), Uuid::version_time_based);
    EXPECT_EQ(plain.timestamp(), timestamp & 0x0FFF'FFFF'FFFF'FFFF);
    EXPECT_EQ(plain.sequence(), 0x3FFF);
    Uuid::NodeAddress read;
    plain.get_node_address(read);
    EXPECT_EQ(read, node);

    const Uuid flagged(static_cast<Uuid::EVersion>(2), 0x1234, node, timestamp, 0xE7);
    EXPECT_EQ(flagged.as_string(), "76543210-ba98-2e7c-9234-a0a1a2a3a4a5");
    EXPECT_EQ(flagged.custom_flags(), 0xE7);
    EXPECT_EQ(flagged.sequence(), 0x1234);
    EXPECT_EQ(flagged.timestamp(), 0x0E7C'BA98'7654'3210u);  // the flags are read with the time
    static_assert(Uuid(Uuid::version_time_based, 1, Uuid::NodeAddress(), 2).sequence() == 1);
}

// ---------------------------------------------------------------------------------------------------- times

TEST(Uuid, TellsTheTimeItHolds) {
    // 2022-02-22 19:22:22 in the versions that hold times, as RFC 9562 shows them.
    const AbsoluteTime moment = AbsoluteTime::from_string("2022-02-22T19:22:22Z");
    for (const char* const text : {"C232AB00-9414-11EC-B3C8-9F6BDECED846", "1EC9414C-232A-6B00-B3C8-9F6BDECED846",
                                   "017F22E2-79B0-7CC3-98C4-DC0C0C07398F"}) {
        EXPECT_EQ(time_of(Uuid::from_string(text)), moment) << text;
    }
    for (const char* const text : {"00000000-0000-0000-0000-000000000000", "919108f7-52d1-4320-9bac-f847db4148a8",
                                   "ffffffff-ffff-1fff-8000-000000000000", "ffffffff-ffff-7fff-8000-000000000000",
                                   "c232ab00-9414-11ec-03c8-9f6bdeced846"}) {
        EXPECT_EQ(time_of(Uuid::from_string(text)), std::nullopt) << text;
    }
}

TEST(Uuid, IsMadeForAGivenTimeWithoutANetworkAddress) {
    const Uuid::NodeAddress node = Uuid::NodeAddress::create_random();
    EXPECT_EQ(node[0] & 1, 1);
    EXPECT_NE(node, Uuid::NodeAddress::create_random());
    for (const char* const text :
         {"1677-09-21 00:12:43.1452242", "1969-12-31 23:59:59.9999999", "2262-04-11 23:47:16.8547758"}) {
        const AbsoluteTime time = AbsoluteTime::from_string(text);
        EXPECT_EQ(time_of(Uuid(Uuid::version_time_based, 7, node, Uuid::timestamp_at(time))), time) << text;
    }
    EXPECT_EQ(Uuid::timestamp_at(AbsoluteTime()), 0x01B2'1DD2'1381'4000u);
    EXPECT_EQ(Uuid::timestamp_at(AbsoluteTime::from_nsec(-1)), 0x01B2'1DD2'1381'3FFFu);
}

// Bytes 0 to 3 lose their highest four bits and the lowest byte is the version's: a timestamp that is no time.
TEST(Uuid, SequentialTimestampIsMaskedLikeTheOthers) {
    const Uuid uuid = Uuid::from_string("98badcfe-5476-d032-8000-000000000001");
    EXPECT_EQ(uuid.version(), Uuid::version_sequential);
    EXPECT_EQ(uuid.timestamp(), 0x0EDC'BA98'7654'32D0u);
    EXPECT_EQ(time_of(uuid), AbsoluteTime::from_nsec(static_cast<std::int64_t>(0xFEDC'BA98'7654'3200)));
}

// ---------------------------------------------------------------------------------------------------- creation

TEST(Uuid, RandomKeepsVersionVariantAndFlags) {
    std::unordered_set<Uuid> seen;
    std::vector<unsigned char> anyBit(16);
    for (unsigned flags = 0; flags < 256; ++flags) {
        const Uuid flagged = Uuid::create_random(static_cast<unsigned char>(flags));
        const Uuid plain = Uuid::create_random();
        EXPECT_EQ(flagged.custom_flags(), flags);
        for (const Uuid& uuid : {flagged, plain}) {
            EXPECT_EQ(uuid.version(), Uuid::version_random);
            EXPECT_EQ(bytes_of(uuid)[8] & 0xC0, 0x80);
            EXPECT_TRUE(seen.insert(uuid).second);
        }
        std::ranges::transform(anyBit, bytes_of(plain), anyBit.begin(), std::bit_or<unsigned char>());
    }
    anyBit[7] |= 0xF0;  // the version and the variant
    anyBit[8] |= 0x40;
    EXPECT_EQ(anyBit, std::vector<unsigned char>(16, 0xFF));
}

TEST(Uuid, SequentialValuesAreDistinctAndTellTheTime) {
    constexpr std::size_t perThread = 100'000;
    const AbsoluteTime before = AbsoluteTime::now();
    std::vector<std::vector<Uuid>> made(4);
    run_on_threads(made, [](std::vector<Uuid>& mine) {
        mine.reserve(perThread);
        while (mine.size() < perThread) {
            mine.push_back(Uuid::create_sequential());
        }
    });
    const AbsoluteTime after = AbsoluteTime::now();
    std::unordered_set<std::string> all;
    for (const std::vector<Uuid>& mine : made) {
        for (const Uuid& uuid : mine) {
            const std::vector<unsigned char> bytes = bytes_of(uuid);
            all.emplace(bytes.begin(), bytes.end());
            ASSERT_EQ(bytes[7], 0xD0);
            ASSERT_EQ(bytes[8] & 0xF0, 0x80);
            const AbsoluteTime time = time_of(uuid).value();
            EXPECT_GE(time + RelativeTime::nanoseconds(256), before);
            EXPECT_LE(time, after);
        }
    }
    EXPECT_EQ(all.size(), made.size() * perThread);
}

TEST(Uuid, CarriesLegacyInteractionIds) {
    const std::pair<unsigned, unsigned char> rows[] = {{0, 0}, {12, 0}, {9, 255}, {1234567890, 1}, {4294967295, 7}};
    for (const auto& [id, flags] : rows) {
        const Uuid resolved = Uuid::create_legacy_interaction_id(id, flags);
        const Uuid unresolved = Uuid::create_unresolved_legacy_interaction_id(id, flags);
        for (const Uuid& uuid : {resolved, unresolved}) {
            EXPECT_EQ(uuid.version(), Uuid::version_legacy_interaction_id);
            EXPECT_EQ(uuid.legacy_interaction_id(), id);
            EXPECT_EQ(uuid.legacy_interaction_id_flags(), flags);
        }
        EXPECT_FALSE(resolved.is_unresolved_legacy_interaction_id());
        EXPECT_TRUE(unresolved.is_unresolved_legacy_interaction_id());
        EXPECT_NE(resolved, Uuid::create_legacy_interaction_id(id, flags));
    }
    EXPECT_EQ(Uuid::create_unresolved_legacy_interaction_id(4294967295, 7).as_string(),
              "00000000-0000-c000-8000-074294967295");
    EXPECT_EQ(Uuid::create_legacy_interaction_id(5).legacy_interaction_id_flags(), 0);
    // No other version has them, and digits above 9 count.
    EXPECT_EQ(Uuid::from_string("00000000-0000-4000-8000-074294967295").legacy_interaction_id(), 0u);
    EXPECT_EQ(Uuid::from_string("00000000-0000-4000-8000-074294967295").legacy_interaction_id_flags(), 0u);
    EXPECT_EQ(Uuid::from_string("00000000-0000-c000-8000-00000000001f").legacy_interaction_id(), 25u);
    // Every other bit in front makes it resolved.
    const std::vector<unsigned char> good = bytes_of(Uuid::create_unresolved_legacy_interaction_id(12));
    for (unsigned bit = 0; bit < 80; ++bit) {
        std::vector<unsigned char> changed = good;
        changed[bit / 8] = static_cast<unsigned char>(changed[bit / 8] ^ 1 << bit % 8);
        const bool isVariant = bit / 8 == 8 && bit % 8 >= 6;
        EXPECT_EQ(uuid_of(changed).is_unresolved_legacy_interaction_id(), isVariant) << bit;
    }
}

// ---------------------------------------------------------------------------------------------------- orders

TEST(Uuid, HasAnOrderOfBytesAndOneOfText) {
    std::mt19937 random(3);
    for (int i = 0; i < 5000; ++i) {
        const std::vector<unsigned char> bytesA = random_bytes(random);
        std::vector<unsigned char> bytesB = bytesA;
        // Differs in few places, so that every byte decides now and then.
        for (auto changes = random() % 3; changes > 0; --changes) {
            bytesB[random() % 16] = static_cast<unsigned char>(random());
        }
        const Uuid a = uuid_of(bytesA);
        const Uuid b = uuid_of(bytesB);
        ASSERT_EQ(a < b, bytesA < bytesB);
        ASSERT_EQ(a == b, bytesA == bytesB);
        ASSERT_EQ(Uuid::StringLess()(a, b), a.as_string() < b.as_string()) << a << ' ' << b;
    }
}

TEST(Uuid, HashesItsWords) {
    EXPECT_EQ(s_uuid.hash(), 0x6BA7B810u ^ 0x11D19DADu ^ 0xC000B480u ^ 0xC830D44Fu);
    EXPECT_EQ(std::hash<Uuid>()(s_uuid), s_uuid.hash());
    static_assert(Uuid().hash() == 0 && Uuid() == Uuid() && !(Uuid() < Uuid()));
}

}  // namespace
}  // namespace nqcore

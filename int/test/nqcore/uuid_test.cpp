#include "nqcore/uuid.h"

#include "error_test_support.h"
#include "kernel_test_support.h"
#include "nqcore/abs_rel_time.h"
#include "nqcore/windows_types.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <optional>
#include <random>
#include <sstream>
#include <unordered_set>

namespace nqcore {
namespace {

using namespace std::string_view_literals;

constexpr std::string_view s_hyphenated = "6ba7b810-9dad-11d1-80b4-00c04fd430c8";
using Bytes = std::vector<unsigned char>;

Uuid uuid_of(const Bytes& bytes) {
    Uuid uuid;
    EXPECT_EQ(Uuid::read_binary(bytes.data(), uuid), bytes.size());
    return uuid;
}

Bytes bytes_of(const Uuid& uuid) {
    Bytes bytes(16);
    EXPECT_EQ(uuid.write_binary(bytes.data()), 16u);
    return bytes;
}

// s_hyphenated, byte by byte.
const Uuid s_uuid =
    uuid_of({0x10, 0xB8, 0xA7, 0x6B, 0xAD, 0x9D, 0xD1, 0x11, 0x80, 0xB4, 0, 0xC0, 0x4F, 0xD4, 0x30, 0xC8});

// The time that a UUID holds; without one, what was there stays.
std::optional<AbsoluteTime> time_of(const Uuid& uuid) {
    AbsoluteTime time(77);
    const bool hasTime = uuid.get_time(time);
    EXPECT_TRUE(hasTime || time == AbsoluteTime(77));
    return hasTime ? std::optional(time) : std::nullopt;
}

// Every form and fault, byte by byte, is the fuzz target's.
TEST(UuidText, ReadsOrExplains) {
    const auto read = [](std::string_view text, Uuid& out) {
        const auto length = static_cast<unsigned>(text.size());
        return Uuid::from_string_nothrow(kernels::exact(text).begin(), length, &out);
    };
    for (const std::string_view text :
         {s_hyphenated, "6BA7B8109DAD11D180B400C04FD430C8"sv, "{6ba7B810-9dAd-11d1-80B4-00c04Fd430C8}"sv}) {
        Uuid uuid;
        EXPECT_TRUE(read(text, uuid).is_null() && uuid == s_uuid) << text;
        EXPECT_EQ(Uuid::from_string(std::string(text).c_str()), s_uuid);
    }
    const auto isRefusal = AllOf(HasCode("error.nqcore.uuid.parse"), HasMessage("Failed to parse UUID from string"),
                                 HasCause(AllOf(HasCode("error.errno.EINVAL"), HasParam("errno", "22"))));
    for (const std::string_view text :
         {"", "00000000 0000-0000-0000-000000000000", "00000000-0000 0000-0000-000000000000",
          "00000000-0000-0000 0000-000000000000", "00000000-0000-0000-0000 000000000000",
          "{00000000-0000-0000-0000-000000000000)", "(00000000-0000-0000-0000-000000000000}",
          "{0000000000000000000000000000000000}"}) {
        Uuid kept = s_uuid;
        const ErrorInfo::Ptr error = read(text, kept);
        EXPECT_THAT(error, isRefusal) << text;
        EXPECT_TRUE(error->params().empty());
        EXPECT_EQ(error->location().function().view(), "nqcore::Uuid::from_string_nothrow()");
        EXPECT_EQ(kept, s_uuid);
    }
    const auto parse = [](auto... arguments) { return [=] { static_cast<void>(Uuid::from_string(arguments...)); }; };
    EXPECT_THAT(parse(static_cast<const char*>(nullptr)), ThrowsError(isRefusal));
    EXPECT_THAT(parse(static_cast<const char*>(nullptr), 36u), ThrowsError(isRefusal));
    EXPECT_THAT(parse(s_hyphenated.data(), 0xFFFFFFFFu), ThrowsError(isRefusal));
    EXPECT_THAT(parse(std::string_view()), ThrowsError(isRefusal));
    EXPECT_THAT(Uuid::from_string_nothrow(nullptr, nullptr), isRefusal);
}

TEST(UuidText, Formats) {
    const std::string_view texts[] = {s_hyphenated, "6ba7b8109dad11d180b400c04fd430c8",
                                      "{6ba7b810-9dad-11d1-80b4-00c04fd430c8}", ""};
    for (const unsigned number : {0u, 1u, 2u, 3u, 0xFFFFFFFFu}) {
        const std::string_view text = texts[std::min(number, 3u)];
        const auto format = static_cast<Uuid::EFormat>(number);
        EXPECT_EQ(s_uuid.as_string(format), text);
        EXPECT_EQ(UuidText(s_uuid, format).c_str(), text) << "terminated";
        std::ostringstream stream;
        stream << Uuid::Trace{s_uuid, format};
        EXPECT_EQ(stream.str(), text);
    }
}

TEST(Uuid, HasTheLayoutOfTheSystemsGuid) {
    const GUID guid = s_uuid.as_windows_guid();
    EXPECT_TRUE(guid.Data1 == 0x6BA7B810u && guid.Data2 == 0x9DAD && guid.Data3 == 0x11D1 && guid.Data4[7] == 0xC8);
    EXPECT_EQ(Uuid::from_windows_guid(guid), s_uuid);
    EXPECT_EQ(s_uuid.write_binary(nullptr), 16u);
    Uuid kept = s_uuid;
    EXPECT_EQ(Uuid::read_binary(nullptr, kept), 16u);
    EXPECT_EQ(kept, s_uuid);
    Uuid other;
    other.swap(kept);
    EXPECT_TRUE(kept.is_null() && other == s_uuid);
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
    std::iota(node.data(), node.data() + 6, static_cast<unsigned char>(0xA0));
    constexpr unsigned long long timestamp = 0xFEDC'BA98'7654'3210;
    const Uuid plain(Uuid::version_time_based, 0xFFFF, node, timestamp);
    EXPECT_EQ(plain.as_string(), "76543210-ba98-1edc-bfff-a0a1a2a3a4a5");
    EXPECT_TRUE(plain.timestamp() == 0x0EDC'BA98'7654'3210 && plain.sequence() == 0x3FFF);
    Uuid::NodeAddress read;
    plain.get_node_address(read);
    EXPECT_EQ(read, node);
    const Uuid flagged(static_cast<Uuid::EVersion>(2), 0x1234, node, timestamp, 0xE7);
    EXPECT_EQ(flagged.as_string(), "76543210-ba98-2e7c-9234-a0a1a2a3a4a5");
    EXPECT_TRUE(flagged.custom_flags() == 0xE7 && flagged.sequence() == 0x1234);
    EXPECT_EQ(flagged.timestamp(), 0x0E7C'BA98'7654'3210u);  // the flags are read with the time
}

TEST(Uuid, TellsTheTimeItHolds) {
    // 2022-02-22 19:22:22 in the versions that hold times, as RFC 9562 shows them.
    const std::optional moment = AbsoluteTime::from_string("2022-02-22T19:22:22Z");
    const std::pair<const char*, std::optional<AbsoluteTime>> rows[] = {
        {"C232AB00-9414-11EC-B3C8-9F6BDECED846", moment},       {"1EC9414C-232A-6B00-B3C8-9F6BDECED846", moment},
        {"017F22E2-79B0-7CC3-98C4-DC0C0C07398F", moment},       {"919108f7-52d1-4320-9bac-f847db4148a8", std::nullopt},
        {"ffffffff-ffff-1fff-8000-000000000000", std::nullopt}, {"ffffffff-ffff-7fff-8000-000000000000", std::nullopt},
        {"c232ab00-9414-11ec-03c8-9f6bdeced846", std::nullopt},
    };
    for (const auto& [text, time] : rows) {
        EXPECT_EQ(time_of(Uuid::from_string(text)), time) << text;
    }
    // Masked like the others: bytes 0 to 3 lose their highest four bits and the lowest byte is the version's.
    const Uuid sequential = Uuid::from_string("98badcfe-5476-d032-8000-000000000001");
    EXPECT_EQ(sequential.timestamp(), 0x0EDC'BA98'7654'32D0u);
    EXPECT_EQ(time_of(sequential), AbsoluteTime::from_nsec(static_cast<std::int64_t>(0xFEDC'BA98'7654'3200)));
}

TEST(Uuid, IsMadeForAGivenTimeWithoutANetworkAddress) {
    const Uuid::NodeAddress node = Uuid::NodeAddress::create_random();
    EXPECT_EQ(node[0] & 1, 1);
    EXPECT_NE(node, Uuid::NodeAddress::create_random());
    for (const char* const text : {"1677-09-21 00:12:43.1452242", "2262-04-11 23:47:16.8547758"}) {
        const AbsoluteTime time = AbsoluteTime::from_string(text);
        EXPECT_EQ(time_of(Uuid(Uuid::version_time_based, 7, node, Uuid::timestamp_at(time))), time) << text;
    }
    EXPECT_EQ(Uuid::timestamp_at(AbsoluteTime()), 0x01B2'1DD2'1381'4000u);
    EXPECT_EQ(Uuid::timestamp_at(AbsoluteTime::from_nsec(-1)), 0x01B2'1DD2'1381'3FFFu);
}

TEST(Uuid, RandomKeepsVersionVariantAndFlags) {
    std::unordered_set<Uuid> seen;
    Bytes anyBit(16);
    for (unsigned flags = 0; flags < 256; ++flags) {
        const Uuid flagged = Uuid::create_random(static_cast<unsigned char>(flags));
        EXPECT_EQ(flagged.custom_flags(), flags);
        const Uuid plain = Uuid::create_random();
        for (const Uuid& uuid : {flagged, plain}) {
            EXPECT_TRUE(uuid.version() == Uuid::version_random && (bytes_of(uuid)[8] & 0xC0) == 0x80) << uuid;
            EXPECT_TRUE(seen.insert(uuid).second);
        }
        std::ranges::transform(anyBit, bytes_of(plain), anyBit.begin(), std::bit_or<unsigned char>());
    }
    anyBit[7] |= 0xF0;  // the version and the variant
    anyBit[8] |= 0x40;
    EXPECT_EQ(anyBit, Bytes(16, 0xFF));
}

TEST(Uuid, SequentialValuesAreDistinctAndTellTheTime) {
    constexpr std::size_t perThread = 100'000;
    const AbsoluteTime before = AbsoluteTime::now();
    std::vector<std::vector<Uuid>> made(4, std::vector<Uuid>(perThread));
    run_on_threads(made, [](std::vector<Uuid>& mine) { std::ranges::generate(mine, Uuid::create_sequential); });
    const AbsoluteTime after = AbsoluteTime::now();
    std::unordered_set<Uuid> all;
    for (const std::vector<Uuid>& mine : made) {
        all.insert(mine.begin(), mine.end());
        for (const Uuid& uuid : mine) {
            const AbsoluteTime time = time_of(uuid).value();
            ASSERT_TRUE(time + RelativeTime::nanoseconds(256) >= before && time <= after) << uuid;
        }
    }
    EXPECT_EQ(all.size(), made.size() * perThread);
}

TEST(Uuid, CarriesLegacyInteractionIds) {
    for (const auto& [id, flags] : {std::pair<unsigned, unsigned char>(0, 0), {1234567890, 255}}) {
        const Uuid resolved = Uuid::create_legacy_interaction_id(id, flags);
        const Uuid unresolved = Uuid::create_unresolved_legacy_interaction_id(id, flags);
        for (const Uuid& uuid : {resolved, unresolved}) {
            EXPECT_TRUE(uuid.legacy_interaction_id() == id && uuid.legacy_interaction_id_flags() == flags) << uuid;
        }
        EXPECT_TRUE(unresolved.is_unresolved_legacy_interaction_id() &&
                    !resolved.is_unresolved_legacy_interaction_id());
        EXPECT_NE(resolved, Uuid::create_legacy_interaction_id(id, flags));
    }
    EXPECT_EQ(Uuid::create_unresolved_legacy_interaction_id(4294967295, 7).as_string(),
              "00000000-0000-c000-8000-074294967295");
    EXPECT_EQ(Uuid::create_legacy_interaction_id(5).legacy_interaction_id_flags(), 0);
    // No other version has them, and digits above 9 count.
    const Uuid other = Uuid::from_string("00000000-0000-4000-8000-074294967295");
    EXPECT_TRUE(other.legacy_interaction_id() == 0 && other.legacy_interaction_id_flags() == 0);
    EXPECT_EQ(Uuid::from_string("00000000-0000-c000-8000-00000000001f").legacy_interaction_id(), 25u);
    // Every other bit in front makes it resolved.
    for (unsigned bit = 0; bit < 80; ++bit) {
        Bytes changed = bytes_of(Uuid::create_unresolved_legacy_interaction_id(12));
        changed[bit / 8] = static_cast<unsigned char>(changed[bit / 8] ^ 1 << bit % 8);
        const bool isVariant = bit / 8 == 8 && bit % 8 >= 6;
        EXPECT_EQ(uuid_of(changed).is_unresolved_legacy_interaction_id(), isVariant) << bit;
    }
}

TEST(Uuid, HasAnOrderOfBytesAndOneOfText) {
    std::mt19937 random(3);
    for (int i = 0; i < 5000; ++i) {
        Bytes bytesA(16);
        std::ranges::generate(bytesA, [&random] { return static_cast<unsigned char>(random()); });
        Bytes bytesB = bytesA;
        // Differs in few places, so that every byte decides now and then.
        for (auto changes = random() % 3; changes > 0; --changes) {
            bytesB[random() % 16] = static_cast<unsigned char>(random());
        }
        const Uuid a = uuid_of(bytesA);
        const Uuid b = uuid_of(bytesB);
        ASSERT_EQ(a <=> b, bytesA <=> bytesB);
        ASSERT_EQ(Uuid::StringLess()(a, b), a.as_string() < b.as_string()) << a << ' ' << b;
    }
    EXPECT_EQ(std::hash<Uuid>()(s_uuid), 0x6BA7B810u ^ 0x11D19DADu ^ 0xC000B480u ^ 0xC830D44Fu);
}

}  // namespace
}  // namespace nqcore

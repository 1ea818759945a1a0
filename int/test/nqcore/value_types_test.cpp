// What every value type promises to containers: equality, order and hash that agree.
#include "nqcore/affinity.h"
#include "nqcore/duration_text.h"
#include "nqcore/error_or.h"
#include "nqcore/future.h"
#include "nqcore/object_key.h"
#include "nqcore/simple_date_time.h"
#include "nqcore/string_range.h"
#include "nqcore/utc_text.h"
#include "nqcore/weak_ref_ptr.h"

#include "error_test_support.h"

#include <unordered_set>

namespace nqcore {
namespace {

/// `values` are all different and ascend; `again` makes an equal copy from scratch where that is not a plain copy.
template <class T, class Again = std::identity>
void expect_values(const std::vector<T>& values, Again again = {}) {
    const std::hash<T> hash;
    std::unordered_set<T> seen;
    std::unordered_set<std::size_t> hashes;
    for (std::size_t i = 0; i < values.size(); ++i) {
        const T copy = again(values[i]);
        EXPECT_EQ(copy, values[i]);
        EXPECT_EQ(hash(copy), hash(values[i])) << ::testing::PrintToString(copy);
        EXPECT_TRUE(seen.insert(values[i]).second) << ::testing::PrintToString(copy);
        EXPECT_TRUE(hashes.insert(hash(copy)).second) << "so few values must not collide";
        if constexpr (std::three_way_comparable<T>) {
            for (std::size_t j = 0; j < values.size(); ++j) {
                EXPECT_EQ(values[i] <=> values[j], i <=> j) << i << ' ' << j;
            }
        }
    }
}

TEST(ValueTypes, TextsAndPlacesAgree) {
    const auto copied = [](const SourceString& text) { return SourceString::create_copy(text.view()); };
    expect_values<SourceString>({SourceString(), SourceString("a", true), SourceString("b", true)}, copied);
    EXPECT_EQ(std::hash<SourceString>()(SourceString("text", true)), std::hash<std::string_view>()("text"));
    expect_values<ErrorCode>({ErrorCode(), ErrorCode("error.a"), ErrorCode("error.b")},
                             [&](const ErrorCode& code) { return ErrorCode(copied(code.value())); });
    expect_values<SourceLocation>({{}, {"f", "a", 1}, {"f", "b", 1}, {"g", "a", 1}, {"f", "a", 2}});
    expect_values<StringRange>({{}, {0, 3}, {3, 0}, {4, 3}, {StringRange::npos, 0}});
}

TEST(ValueTypes, ErrorsAgree) {
    expect_values<ErrorParams>({ErrorParams(), ErrorParams().add("a", 1), ErrorParams().add("a", 2)});
    const auto hash = [](const char* code) { return std::hash<ErrorInfo>()(*record(code)); };
    EXPECT_TRUE(hash("error.a") == hash("error.a") && hash("error.a") != hash("error.b"));

    const ErrorOr<int> value(5);
    const ErrorOr<int> failed(record());
    EXPECT_TRUE(value == 5 && value != ErrorOr<int>(6) && value != failed);
    EXPECT_EQ(failed, ErrorOr<int>(record())) << "another record that says the same";
    EXPECT_NE(failed, ErrorOr<int>(record("error.b")));
    EXPECT_TRUE(ErrorOr<void>() == ErrorOr<void>() && ErrorOr<void>() != ErrorOr<void>(record()));
}

TEST(ValueTypes, TimesAndIdentifiersAgree) {
    using Components = AbsoluteTime::Components;
    const auto at = [](std::uint16_t day, std::uint16_t hour, std::uint16_t minute, std::uint16_t second) {
        return Components(1970, 1, day, hour, minute, second, 5);
    };
    expect_values<Components>({Components(-5, 1, 1, 0, 0, 0, 0), Components(), at(1, 0, 0, 0), at(1, 0, 0, 1),
                               at(1, 0, 1, 0), at(1, 1, 0, 0), at(2, 0, 0, 0), Components(1970, 2, 1, 0, 0, 0, 0)});
    expect_values<UtcText>({UtcText::plain(AbsoluteTime()), UtcText::plain(AbsoluteTime(1))});
    expect_values<DurationText>({DurationText::plain(RelativeTime(1)), DurationText::plain(RelativeTime(2))});
    const Uuid uuid = Uuid::from_string("6ba7b810-9dad-11d1-80b4-00c04fd430c8");
    expect_values<UuidText>({UuidText(Uuid()), UuidText(uuid), UuidText(uuid, Uuid::format_plain)});
    Uuid::NodeAddress node;
    uuid.get_node_address(node);
    expect_values<Uuid::NodeAddress>({Uuid::NodeAddress(), node});
    expect_values<Uuid::BinaryData>({Uuid::BinaryData(), uuid.get_binary_data()});
    CpuAffinityMask mask;
    mask.set_cpu(5);
    expect_values<CpuAffinityMask>({CpuAffinityMask(), mask});
}

struct Counted : RefCounted<AtomicRefCount> {};

TEST(ValueTypes, HandlesAreWhatTheyPointAt) {
    const RefCountPtr<Counted> counted(new Counted);
    expect_values<RefCountPtr<Counted>>({nullptr, counted});
    const auto strong = make_strong<int>(1);
    expect_values<StrongRefPtr<int>>({nullptr, strong});
    const Future<int> future;
    EXPECT_TRUE((std::unordered_set<Future<int>>{future, Future<int>(), future}.size() == 2));

    auto observed = make_strong<int>(2);
    const WeakRefPtr<int> observer(observed);
    std::unordered_set<WeakRefPtr<int>> observers{observer, WeakRefPtr<int>(strong)};
    observed = nullptr;
    EXPECT_TRUE(observers.contains(observer)) << "keeps its place though its object is gone";
    EXPECT_TRUE(observer != WeakRefPtr<int>() && observer <=> observer == std::strong_ordering::equal);
}

}  // namespace
}  // namespace nqcore

#include "nqcore/string_range.h"

#include "nqcore/source_string.h"

#include <gtest/gtest.h>
#include <string>

namespace nqcore {

void PrintTo(const StringRange& range, std::ostream* stream) {
    *stream << '(' << range.first() << ", " << range.length() << ')';
}

namespace {

constexpr unsigned npos = StringRange::npos;

struct PairCase {
    StringRange a, b, intersection, subrange;
};

constexpr PairCase s_pairCases[] = {
    {{2, 5}, {4, npos}, {4, 3}, {6, 1}},    {{0, 2}, {5, 1}, {0, 0}, {2, 0}},
    {{3, 10}, {4, 100}, {4, 9}, {7, 6}},    {{3, npos}, {4, 2}, {4, 2}, {7, 2}},
    {{npos, 5}, {0, 5}, {0, 0}, {npos, 0}}, {{0, npos}, {npos, 5}, {0, 0}, {npos, 0}},
    {{5, 0}, {5, 3}, {5, 0}, {5, 0}},       {{npos - 2, 9}, {npos - 3, 2}, {npos - 2, 1}, {npos, 0}},
};

TEST(StringRange, IntersectsAndNests) {
    for (const PairCase& row : s_pairCases) {
        SCOPED_TRACE(testing::PrintToString(row.a) + " with " + testing::PrintToString(row.b));
        EXPECT_EQ(row.a.intersection(row.b), row.intersection);
        EXPECT_EQ(row.b.intersection(row.a), row.intersection);
        EXPECT_EQ(row.a.subrange(row.b), row.subrange);
    }
}

TEST(StringRange, EndFollowsStartAndLength) {
    const auto moved_end = [](StringRange range, unsigned last) {
        range.last(last);
        return range;
    };
    EXPECT_EQ(moved_end({3, 0}, 10), StringRange(3, 7));
    EXPECT_EQ(moved_end({3, 4}, 2), StringRange(3, 0));
    EXPECT_EQ(moved_end({3, 4}, npos), StringRange(3, npos));
    EXPECT_EQ(moved_end({npos, 1}, npos), StringRange(npos, 0));
    EXPECT_EQ(StringRange(npos, 1).last(), npos) << "the sum wraps round";
    EXPECT_TRUE(StringRange().empty() && StringRange(npos, 5).empty() && !StringRange(3, 1).empty());
    EXPECT_TRUE(StringRange(3, npos).unbounded());
    StringRange range(1, 2);
    range.first(9);
    EXPECT_EQ(range, StringRange(9, 2)) << "setting the start keeps the length";
}

template <class P>
void expect_slices(P handle) {
    using Traits = StringSliceTraits<P>;
    using Text = std::basic_string<typename Traits::CharType>;
    const StringRange range(1, 3);
    EXPECT_EQ(Traits::string_size(handle), 5u);
    EXPECT_EQ(Text(Traits::string_begin(handle, range), Traits::string_end(handle, range)), Text({'b', 'c', 'd'}));
    EXPECT_EQ(Text(Traits::string_rbegin(handle, range), Traits::string_rend(handle, range)), Text({'d', 'c', 'b'}));
    EXPECT_TRUE(Traits::is_null_pointer(nullptr) && !Traits::is_null_pointer(handle));
    EXPECT_TRUE(Traits::equal_pointers(handle, handle));
    EXPECT_EQ(Traits::string_size(Traits::empty_string_pointer()), 0u);
}

TEST(StringSliceTraits, SlicesEveryKindOfHandle) {
    const std::string narrow = "abcde";
    const std::wstring wide = L"abcde";
    const SourceString source("abcde", true);
    expect_slices(narrow.c_str());
    expect_slices(wide.c_str());
    expect_slices(&narrow);
    expect_slices(&wide);
    expect_slices(&source);
}

}  // namespace
}  // namespace nqcore

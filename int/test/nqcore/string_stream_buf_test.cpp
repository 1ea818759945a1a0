#include "nqcore/string_stream_buf.h"

#include <gtest/gtest.h>
#include <istream>
#include <string>

namespace nqcore::impl {
namespace {

constexpr char s_text[] = "12 ab 34";

TEST(StringToStreamBuf, FeedsExtractionFromASlice) {
    StringToStreamBuf buffer(s_text + 6, 2);
    std::istream stream(&buffer);
    int number = 0;
    EXPECT_TRUE(stream >> number);
    EXPECT_EQ(number, 34);

    StringToStreamBufW wideBuffer(L"7.5", 0xFFFFFFFFu);
    double value = 0;
    EXPECT_TRUE(std::wistream(&wideBuffer) >> value);
    EXPECT_EQ(value, 7.5);

    for (StringToStreamBuf empty : {StringToStreamBuf(nullptr, 0xFFFFFFFFu), StringToStreamBuf(s_text, 0)}) {
        EXPECT_EQ(empty.sgetc(), std::char_traits<char>::eof());
        EXPECT_EQ(empty.in_avail(), -1);
        EXPECT_EQ(empty.pubseekoff(0, std::ios_base::end), 0);
    }
}

struct SeekCase {
    int offset;
    std::ios_base::seekdir direction;
    int position;  // -1: refused
};

TEST(StringToStreamBuf, SeeksWithinTheText) {
    constexpr auto limitless = std::numeric_limits<int>::max();
    constexpr auto beg = std::ios_base::beg;
    constexpr auto cur = std::ios_base::cur;
    constexpr auto end = std::ios_base::end;
    const SeekCase cases[] = {{8, beg, 8},   {9, beg, -1}, {-1, beg, -1},        {-3, cur, 0},
                              {-4, cur, -1}, {6, cur, -1}, {0, end, 8},          {1, end, -1},
                              {-9, end, -1}, {2, cur, 5},  {limitless, cur, -1}, {-limitless, end, -1}};
    for (const SeekCase& row : cases) {
        SCOPED_TRACE(testing::Message() << row.offset << " from " << row.direction);
        StringToStreamBuf buffer(s_text, 8);
        buffer.pubseekpos(3);
        EXPECT_EQ(buffer.pubseekoff(row.offset, row.direction), row.position);
        EXPECT_EQ(buffer.pubseekoff(0, cur), row.position < 0 ? 3 : row.position) << "a refusal moves nothing";
        EXPECT_EQ(buffer.pubseekoff(0, cur, std::ios_base::out), -1);
    }
}

TEST(StringToStreamBuf, CopiesReadOnFromTheSamePlaceAndNothingIsWritten) {
    StringToStreamBuf original(s_text, 8);
    original.pubseekpos(3);
    StringToStreamBuf copy(original);
    EXPECT_EQ(copy.sbumpc(), 'a');
    EXPECT_EQ(original.sgetc(), 'a');
    EXPECT_EQ(copy.sputbackc('a'), 'a');
    EXPECT_EQ(copy.sputbackc('?'), std::char_traits<char>::eof());
    EXPECT_EQ(copy.sputc('x'), std::char_traits<char>::eof());
    char rest[16] = {};
    EXPECT_EQ(copy.sgetn(rest, sizeof(rest)), 5);
    EXPECT_STREQ(rest, "ab 34");
}

}  // namespace
}  // namespace nqcore::impl

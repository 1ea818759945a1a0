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
    EXPECT_TRUE(stream.eof());

    const std::wstring wide = L"7.5 x";
    StringToStreamBufW wideBuffer(wide.c_str(), 0xFFFFFFFFu);
    std::wistream wideStream(&wideBuffer);
    double value = 0;
    std::wstring word;
    EXPECT_TRUE(wideStream >> value >> word);
    EXPECT_EQ(value, 7.5);
    EXPECT_EQ(word, L"x");

    for (StringToStreamBuf empty : {StringToStreamBuf(nullptr, 0xFFFFFFFFu), StringToStreamBuf(s_text, 0)}) {
        EXPECT_EQ(empty.sgetc(), std::char_traits<char>::eof());
        EXPECT_EQ(empty.in_avail(), -1);
        EXPECT_EQ(empty.pubseekoff(0, std::ios_base::end), 0);
    }
}

struct SeekCase {
    int offset;
    std::ios_base::seekdir direction;
    std::ios_base::openmode which;
    int position;  // -1: refused
};

TEST(StringToStreamBuf, SeeksWithinTheText) {
    constexpr auto in = std::ios_base::in;
    constexpr auto out = std::ios_base::out;
    constexpr auto limitless = std::numeric_limits<int>::max();
    const SeekCase cases[] = {
        {0, std::ios_base::beg, in, 0},           {8, std::ios_base::beg, in | out, 8},
        {9, std::ios_base::beg, in, -1},          {-1, std::ios_base::beg, in, -1},
        {2, std::ios_base::cur, in, 5},           {-3, std::ios_base::cur, in, 0},
        {-4, std::ios_base::cur, in, -1},         {6, std::ios_base::cur, in, -1},
        {0, std::ios_base::end, in, 8},           {-8, std::ios_base::end, in, 0},
        {1, std::ios_base::end, in, -1},          {-9, std::ios_base::end, in, -1},
        {0, std::ios_base::cur, out, -1},         {limitless, std::ios_base::cur, in, -1},
        {-limitless, std::ios_base::end, in, -1},
    };
    for (const SeekCase& row : cases) {
        SCOPED_TRACE(testing::Message() << row.offset << " from " << row.direction);
        StringToStreamBuf buffer(s_text, 8);
        buffer.pubseekpos(3);
        EXPECT_EQ(buffer.pubseekoff(row.offset, row.direction, row.which), row.position);
        // A refusal moves nothing.
        EXPECT_EQ(buffer.pubseekoff(0, std::ios_base::cur), row.position < 0 ? 3 : row.position);
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
    copy = StringToStreamBuf(s_text, 2);
    EXPECT_EQ(copy.sgetc(), '1');
}

}  // namespace
}  // namespace nqcore::impl

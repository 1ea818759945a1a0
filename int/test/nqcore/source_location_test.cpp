#include "nqcore/source_location.h"

#include "error_test_support.h"

#include <gtest/gtest.h>
#include <string>
#include <utility>

namespace nqcore {
namespace {

static_assert(sizeof(void*) != 4 || sizeof(SourceLocation) == 20);

struct PathCase {
    const char *fileId, *path, *depotPath;
};

constexpr PathCase s_pathCases[] = {
    {"$Id: //core/rel/int/src/lib/name.cpp#1 $", "//core/rel/int/src/lib/name.cpp",
     "//core/rel/int/src/lib/name.cpp#1"},
    {"name.cpp", "name.cpp", "name.cpp"},
    {"$Id: name.cpp#3 $", "$Id: name.cpp", "$Id: name.cpp#3"},
    {"//a#b/c#2$", "//a#b/c", "//a#b/c#2"},
    {"#7 /x", "#7 /x", "/x"},
    {"//a $$ ", "//a $$ ", "//a"},
    {"#", "#", "#"},
    {"", "", ""},
};

TEST(SourceLocation, FindsThePathInAFileIdentifier) {
    for (const PathCase& row : s_pathCases) {
        SCOPED_TRACE(row.fileId);
        const SourceLocation location("f()", row.fileId, 1);
        EXPECT_EQ(location.file_path(), row.path);
        EXPECT_EQ(location.file_depot_path(), row.depotPath);
        EXPECT_EQ(SourceLocation::file_path_from_file_id(row.fileId, SourceString::npos), row.path);
        const std::string longer = std::string(row.fileId) + "tail/tail#tail";
        const auto length = static_cast<unsigned>(std::string_view(row.fileId).size());
        EXPECT_EQ(SourceLocation::depot_path_from_file_id(longer.c_str(), length), row.depotPath);
    }
    EXPECT_EQ(SourceLocation::file_path_from_file_id(nullptr, 0), "");
}

TEST(SourceLocation, OrdersByLineThenFunctionThenFile) {
    const SourceLocation ordered[] = {
        SourceLocation(), {"b", "b", 10}, {"b", "c", 10}, {"c", "a", 10}, {"a", "a", 20},
    };
    expect_ascending(ordered);
}

TEST(SourceLocation, MovesAndClears) {
    SourceLocation location = NQCORE_HERE;
    EXPECT_EQ(location.function().view(), "TestBody");
    EXPECT_NE(location.file_id().view().find("source_location_test"), std::string_view::npos);
    EXPECT_GT(location.line(), 0u);
    SourceLocation moved(std::move(location));
    EXPECT_TRUE(location.empty());
    const SourceLocation taken(moved.transfer());
    EXPECT_TRUE(moved.empty() && !taken.empty());
}

}  // namespace
}  // namespace nqcore

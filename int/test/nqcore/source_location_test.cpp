#include "nqcore/source_location.h"

#include "error_test_support.h"

namespace nqcore {
namespace {

static_assert(sizeof(void*) != 4 || sizeof(SourceLocation) == 20);

TEST(SourceLocation, FindsThePathInAFileIdentifier) {
    const std::tuple<std::string, const char*, const char*> cases[] = {
        {"$Id: //a/name.cpp#1 $", "//a/name.cpp", "//a/name.cpp#1"},
        {"name.cpp", "name.cpp", "name.cpp"},
        {"$Id: name.cpp#3 $", "$Id: name.cpp", "$Id: name.cpp#3"},
        {"//a#b/c#2$", "//a#b/c", "//a#b/c#2"},
        {"#7 /x", "#7 /x", "/x"},
        {"//a $$ ", "//a $$ ", "//a"},
        {"#", "#", "#"},
        {"", "", ""}};
    for (const auto& [fileId, path, depotPath] : cases) {
        SCOPED_TRACE(fileId);
        const SourceLocation location("f()", fileId.c_str(), 1);
        EXPECT_EQ(location.file_path(), path);
        EXPECT_EQ(location.file_depot_path(), depotPath);
        EXPECT_EQ(SourceLocation::file_path_from_file_id(fileId.c_str(), SourceString::npos), path);
        const auto length = static_cast<unsigned>(fileId.size());
        EXPECT_EQ(SourceLocation::depot_path_from_file_id((fileId + "tail/tail#tail").c_str(), length), depotPath);
    }
    EXPECT_EQ(SourceLocation::file_path_from_file_id(nullptr, 0), "");
}

TEST(SourceLocation, OrdersByLineThenFunctionThenFile) {
    const SourceLocation ordered[] = {
        SourceLocation(), {"b", "b", 10}, {"b", "c", 10}, {"c", "a", 10}, {"a", "a", 20},
    };
    expect_ascending(ordered);
}

TEST(SourceLocation, SwapsMovesAndClears) {
    SourceLocation location = NQCORE_HERE;
    EXPECT_TRUE(location.function().view() == "TestBody" && location.line() > 0);
    EXPECT_THAT(location.file_path(), testing::HasSubstr("source_location_test"));
    SourceLocation other = s_location;
    other.swap(location);
    EXPECT_EQ(location, s_location);
    SourceLocation moved(std::move(location));
    const SourceLocation taken(moved.transfer());
    EXPECT_TRUE(location.empty() && moved.empty() && taken == s_location && other.function().view() == "TestBody");
}

}  // namespace
}  // namespace nqcore

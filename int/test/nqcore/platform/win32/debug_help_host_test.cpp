// The library brings the debug-help library along, takes it away again, and does without where there is none: that is
// told by NQ_TEST_DEBUG_HELP.
#include "platform/test_module.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <cstdlib>

namespace nqcore::test {
namespace {

TEST(DebugHelp, ComesAndGoesWithTheLibrary) {
    const bool missing = std::getenv("NQ_TEST_DEBUG_HELP") != nullptr;
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(GetModuleHandleA("dbghelp.dll"), nullptr);
        void* const library = load_module(NQ_LIBRARY);
        ASSERT_NE(library, nullptr);
        EXPECT_EQ(GetModuleHandleA("dbghelp.dll") == nullptr, missing);
        unload_module(library);
        ASSERT_FALSE(is_module_loaded(NQ_LIBRARY));
    }
    EXPECT_EQ(GetModuleHandleA("dbghelp.dll"), nullptr);
}

}  // namespace
}  // namespace nqcore::test

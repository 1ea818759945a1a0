#include "nqmoduleregistry/module_registry.h"

#include <gtest/gtest.h>
#include <string>

namespace nqmoduleregistry {
namespace {

TEST(ModuleRegistry, ANameIsRegisteredOnce) {
    ModuleInfo info;
    EXPECT_FALSE(query_module_info("testmodule", &info));
    std::string xml = "<ModuleInfo name=\"testmodule\"/>";
    EXPECT_TRUE(add_module_info("testmodule", xml.c_str()));
    xml = "changed";
    EXPECT_FALSE(add_module_info("testmodule", "<Other/>"));
    EXPECT_TRUE(query_module_info("testmodule", &info));
    EXPECT_STREQ(info.name(), "testmodule");
    EXPECT_STREQ(info.xml(), "<ModuleInfo name=\"testmodule\"/>") << "the first one stays, as a copy";
    EXPECT_TRUE(remove_module_info("testmodule"));
    EXPECT_FALSE(remove_module_info("testmodule"));
    EXPECT_FALSE(query_module_info("testmodule", &info));
    EXPECT_STREQ(info.name(), "testmodule") << "a failed query leaves the answer alone";
}

TEST(ModuleRegistry, NullsAreRefused) {
    EXPECT_FALSE(add_module_info(nullptr, "x"));
    EXPECT_FALSE(add_module_info("x", nullptr));
    EXPECT_FALSE(query_module_info("x", nullptr));
    EXPECT_FALSE(remove_module_info(nullptr));
}

}  // namespace
}  // namespace nqmoduleregistry

// A host that is not linked with the library but loads and unloads it.
#include "nqmoduleregistry/module_registry.h"
#include "platform/test_module.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <string_view>
#include <utility>

namespace nqcore::test {
namespace {

constexpr const char* s_marker = "***KAVO*MODULE*INFO*F70397B5E6FEBE4447157E5A1C9D5E64***";
constexpr const char* s_variable = "KAVO_MODULEREGISTRY_DONT_FAIL_ON_DUPLICATES";

struct Library {
    Library() : module(load_module(NQ_LIBRARY)) {
        if (module != nullptr) {
            init = function_of<int()>(module, "nqcore_managed_init");
            fini = function_of<int()>(module, "nqcore_managed_fini");
            // StaticInstanceBase::register_cleanup_aux, as the compiler of both targets spells it.
            register_cleanup = function_of<void(void (*)(void*), void*)>(
                module, "_ZN6nqcore4impl18StaticInstanceBase20register_cleanup_auxEPFvPvES2_");
        }
    }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
    ~Library() {
        if (module != nullptr) {
            unload_module(module);
        }
    }

    void* module;
    int (*init)() = nullptr;
    int (*fini)() = nullptr;
    void (*register_cleanup)(void (*)(void*), void*) = nullptr;
};

std::string registered_xml() {
    nqmoduleregistry::ModuleInfo info;
    return nqmoduleregistry::query_module_info("nqcore", &info) ? info.xml() : "";
}

std::string s_cleaned;
void clean_up(void* name) { s_cleaned += static_cast<const char*>(name); }

TEST(ExplicitHost, LoadsStartsStopsAndUnloadsAgainAndAgain) {
    for (const bool starts : {true, false, true}) {
        ASSERT_FALSE(is_module_loaded(NQ_LIBRARY));
        ASSERT_EQ(registered_xml(), "");
        const Library library;
        ASSERT_TRUE(library.init != nullptr && library.fini != nullptr && library.register_cleanup != nullptr);
        EXPECT_NE(registered_xml(), "");
        if (starts) {
            EXPECT_GE(library.init(), 0);
            EXPECT_EQ(library.init(), 2);
            s_cleaned.clear();
            for (const char* name : {"A", "B", "C"}) {
                library.register_cleanup(&clean_up, const_cast<char*>(name));
            }
            EXPECT_EQ(library.fini(), 2);
            EXPECT_EQ(s_cleaned, "");
            EXPECT_EQ(library.fini(), 0);
            EXPECT_EQ(s_cleaned, "CBA");
        }
    }
    EXPECT_FALSE(is_module_loaded(NQ_LIBRARY));
}

// A child that unloads the library while cleanups wait, and ends; 0 when the library was still there for them.
[[noreturn]] void leave_with_cleanups_waiting() {
    {
        const Library library;
        library.register_cleanup(&clean_up, const_cast<char*>("A"));
    }
    std::exit(is_module_loaded(NQ_LIBRARY) ? 0 : 3);
}

TEST(ExplicitHostDeathTest, TheLibraryStaysWhileCleanupsWait) {
    EXPECT_EXIT(leave_with_cleanups_waiting(), testing::ExitedWithCode(0), "");
}

TEST(ModuleInfoBlock, IsFoundInTheFileByItsMarker) {
    std::ifstream file(NQ_LIBRARY, std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    const std::size_t block = content.find(s_marker);
    ASSERT_NE(block, content.npos);
    EXPECT_EQ(content.find(s_marker, block + 1), content.npos) << "found twice";

    const std::string text = content.c_str() + block;
    const std::size_t xml = text.find('\n') + 1;
    ASSERT_EQ(text.substr(0, xml), std::string(s_marker) + '\n');
    {
        const Library library;
        EXPECT_EQ(registered_xml(), text.substr(xml));
    }

    constexpr const char* s_any = "[^<>\"]+";
    constexpr std::pair<const char*, const char*> s_items[] = {
        {"CompanyName", s_any},
        {"FileVersion", s_any},
        {"InternalName", "nqcore"},
        {"OriginalFilename", s_any},
        {"LegalCopyright", s_any},
        {"KAVOBuildMachine", s_any},
        {"KAVOBuildName", s_any},
        {"KAVOBuildChangelist", s_any},
        {"KAVOBuildNum", s_any},
        {"KAVOBuildTimestamp", "\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d"},
        {"KAVOGCCBuildId", "[0-9a-f]{32}"},
    };
    std::string document =
        "<ModuleInfo name=\"nqcore\" type=\"dll\" tool=\"vc\" build=\"release\" arch=\"x86\">\n  <FileInfo>\n";
    for (const auto& [name, value] : s_items) {
        document += std::string("    <Item name=\"") + name + "\">" + value + "</Item>\n";
    }
    document += "  </FileInfo>\n</ModuleInfo>\n";
    EXPECT_TRUE(std::regex_match(text.substr(xml), std::regex(document))) << text;
}

// A child in which another module has the name already; 0 when loading went on.
[[noreturn]] void load_a_duplicate(const char* variable) {
    set_variable(s_variable, variable);
    nqmoduleregistry::add_module_info("nqcore", "<First/>");
    {
        const Library library;
        if (library.module == nullptr) {
            std::exit(s_notLoaded);
        }
    }
    std::exit(registered_xml() == "<First/>" ? 0 : 3);  // unloading leaves another module's registration alone
}

MATCHER(IsTheReport, "the report of a duplicate, from its first to its last line") {
    std::string text = arg;
    std::erase(text, '\r');
    const std::string_view head =
        "ModuleRegistry: Module nqcore is already loaded into this process!\n"
        "This is typically caused by a version or debug/release mismatch between libraries referenced by this "
        "process.\n"
        "Data of module that was already registered:\n<First/>\n"
        "Data of new module that conflicts:\n<ModuleInfo name=\"nqcore\" ";
    const std::string_view tail = "  </FileInfo>\n</ModuleInfo>\n\n\nAborting...\n";
    return text.starts_with(head) && text.ends_with(tail);
}

TEST(DuplicateModuleDeathTest, IsReportedAndToleratedOrStopsInTheDebugger) {
    EXPECT_EXIT(load_a_duplicate("1"), testing::ExitedWithCode(0), IsTheReport());
    EXPECT_EXIT(load_a_duplicate(nullptr), met_break, IsTheReport());
}

}  // namespace
}  // namespace nqcore::test

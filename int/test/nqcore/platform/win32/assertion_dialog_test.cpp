// The message box of a failed assertion, on a display: scripts/win32/gui-run presses the buttons that each test asks for.
#include "nqcore/assertion.h"
#include "nqcore/error_exception.h"
#include "nqcore/error_info.h"
#include "nqcore/process_info.h"
#include "nqcore/source_string.h"

#include <windows.h>

#include <gtest/gtest.h>
#include <cstdlib>
#include <fstream>
#include <initializer_list>
#include <string>
#include <string_view>
#include <thread>

namespace {

// Before boxes are shown: what to press in each, "BUTTON MODIFIER". The name makes the request whole at once.
void ask_for(std::initializer_list<std::string_view> buttons) {
    const std::string folder = std::getenv("NQ_GUI_FOLDER");
    {
        std::ofstream file(folder + "/request.new");
        for (const std::string_view button : buttons) {
            file << button << " Meridel Core Library\n";
        }
    }
    MoveFileExA((folder + "/request.new").c_str(), (folder + "/request").c_str(), MOVEFILE_REPLACE_EXISTING);
}

bool fail_at(unsigned line) {
    return nqcore::report_failed_debug_assert("dir/dialog.cpp", line, "app::run()", "count > 0",
                                              "count is -1 \xCE\xB1");
}

// What becomes of an assertion: true, false, or an exception's code.
std::string outcome(unsigned line) {
    try {
        return fail_at(line) ? "goes on" : "debugger";
    } catch (const nqcore::ErrorException& failure) {
        return failure.error()->code().value().as_string();
    }
}

class AssertionDialog : public testing::Test {
protected:
    void SetUp() override {
        if (std::getenv("NQ_GUI_FOLDER") == nullptr) {
            GTEST_SKIP() << "nobody presses the buttons: scripts/win32/gui-run does";
        }
        GTEST_FLAG_SET(death_test_style, "threadsafe");
    }
};

struct ButtonRow {
    const char* button;
    const char* outcome;
    bool isAskedAgain;
};

TEST_F(AssertionDialog, EachButton) {
    constexpr ButtonRow rows[] = {
        {"retry -", "debugger", true},
        {"retry shift", "error.exception.assert", true},
        {"retry ctrl", "error.exception.assert", true},
        {"ignore -", "goes on", true},
        {"ignore shift", "goes on", false},
        {"ignore ctrl", "goes on", false},
    };
    unsigned line = 100;
    for (const ButtonRow& row : rows) {
        SCOPED_TRACE(row.button);
        ++line;
        ask_for({row.button});
        EXPECT_EQ(outcome(line), row.outcome);
        if (row.isAskedAgain) {
            ask_for({"retry -"});
            EXPECT_EQ(outcome(line), "debugger");
        } else {
            EXPECT_EQ(outcome(line), "goes on");  // nobody presses a button
        }
    }
}

TEST_F(AssertionDialog, OtherThreadsWaitForTheirTurn) {
    ask_for({"ignore shift"});
    std::string other;
    std::thread thread([&other] { other = outcome(200); });
    EXPECT_EQ(outcome(200), "goes on");  // one box, and one answer for both
    thread.join();
    EXPECT_EQ(other, "goes on");
}

TEST_F(AssertionDialog, EnvironmentThatSaysSomethingElse) {
    nqcore::set_environment_variable("KAVO_ASSERT_THROW_ALWAYS", 24, "on", 2);
    ask_for({"ignore -"});
    EXPECT_EQ(outcome(300), "goes on");
    nqcore::set_environment_variable("KAVO_ASSERT_THROW_ALWAYS", 24, "YES", 3);
    EXPECT_EQ(outcome(300), "error.exception.assert");
    nqcore::set_environment_variable("KAVO_ASSERT_THROW_ALWAYS", 24, "", 0);
}

TEST_F(AssertionDialog, Abort) { EXPECT_EXIT((ask_for({"abort -"}), fail_at(400)), testing::ExitedWithCode(3), ""); }

void abort_with_dump(const char* folder) {
    nqcore::set_environment_variable("KAVO_TRACE_ROOT", 15, folder, 0xFFFFFFFF);
    ask_for({"abort shift", "ok -"});  // the second box says what became of the dump
    fail_at(500);
}

// Every file of a folder that ends in ".dmp" is removed; the answer is how many had a dump in them.
int take_dumps(const std::string& folder) {
    int count = 0;
    WIN32_FIND_DATAA found;
    const HANDLE search = FindFirstFileA((folder + "\\*.dmp").c_str(), &found);
    for (bool more = search != INVALID_HANDLE_VALUE; more; more = FindNextFileA(search, &found) != 0) {
        const std::string path = folder + '\\' + found.cFileName;
        char signature[4] = {};
        std::ifstream(path, std::ios::binary).read(signature, 4);
        count += std::string(signature, 4) == "MDMP" && found.nFileSizeLow > 1'000'000 &&
                         std::string(found.cFileName).starts_with("assertion_dialog_test_20")
                     ? 1
                     : 0;
        DeleteFileA(path.c_str());
    }
    FindClose(search);
    return count;
}

TEST_F(AssertionDialog, AbortWithDump) {
    const std::string folder = std::getenv("NQ_GUI_FOLDER");
    take_dumps(folder);
    EXPECT_EXIT(abort_with_dump(folder.c_str()), testing::ExitedWithCode(3), "");
    EXPECT_EQ(take_dumps(folder), 1);
    EXPECT_EXIT(abort_with_dump("Z:\\no\\such\\folder"), testing::ExitedWithCode(3), "");
}

TEST_F(AssertionDialog, InvisibleDesktop) {
    EXPECT_EXIT(
        {
            ask_for({"ignore -"});
            SetProcessWindowStation(CreateWindowStationW(nullptr, 0, WINSTA_ALL_ACCESS, nullptr));
            std::_Exit(outcome(600) == "goes on" ? 7 : 8);
        },
        testing::ExitedWithCode(7), "");
}

}  // namespace

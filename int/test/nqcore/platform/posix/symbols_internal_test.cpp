// Modules, names, lines and parameters behind addresses: of this program, of libraries that come and go, and of what
// has become of their files.
#include "platform/symbols.h"

#include "functions.h"
#include "platform/posix/debug_library.h"
#include "platform/posix/symbol_lock.h"
#include "platform/posix/symbols_state.h"

#include <dlfcn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace nqcore::platform {
namespace {

using std::string;
using testing::HasSubstr;

// "module!function" of an address, and "FILE:LINE" when there is a line.
string describe(const void* place) {
    const SymbolScope symbols;
    const StackFrame frame{0, 0, reinterpret_cast<std::uintptr_t>(place), 0};
    const SourceLine line = source_line(frame);
    string text = module_name(frame.lookup_address()) + "!" + function_name(frame).name;
    return line.file.empty()
               ? text
               : text + " " + line.file.substr(line.file.rfind('/') + 1) + ":" + std::to_string(line.line);
}

// Parameters as the tests compare them: "name kind.code/size = bytes", or the state instead.
class ListSink final : public ParameterSink {
public:
    void parameter(const Parameter& parameter) override {
        static constexpr const char* s_states[] = {"", " bad stack", " unknown type", " unavailable", " symbol error"};
        std::ostringstream text;
        text << parameter.name << " "
             << "BPSO"[static_cast<int>(parameter.kind)] << parameter.code << "/" << parameter.size
             << (parameter.typeName.empty() ? "" : " ") << parameter.typeName
             << s_states[static_cast<int>(parameter.state)];
        long value = 0;
        std::memcpy(&value, parameter.value, sizeof value);
        if (parameter.kind == ValueKind::Pointer) {
            text << (parameter.targetIsPointer ? "->" : ">") << parameter.targetSize;
        } else if (parameter.state == ValueState::Known) {
            text << " = " << value;
        }
        m_list.push_back(text.str());
    }
    std::vector<string> m_list;
};

// The frames of the last probe, from its caller on: the name of each and its parameters.
std::vector<std::vector<string>> s_seen;

void expect_frame(std::size_t index, const std::vector<string>& nameAndParameters) {
    ASSERT_LT(index, s_seen.size());
    EXPECT_EQ(s_seen[index], nameAndParameters);
}

}  // namespace
}  // namespace nqcore::platform

[[gnu::noinline]] void nqcore::test::probe() {
    using namespace nqcore::platform;
    std::array<StackFrame, 4> frames;
    Registers registers;
    capture_registers(registers);
    const std::size_t count = walk_stack(registers, frames);
    const SymbolScope symbols;
    s_seen.clear();
    for (std::size_t i = 1; i < count; ++i) {
        ListSink sink;
        sink.m_list = {function_name(frames[i]).name};
        if (!enumerate_parameters(std::span(frames).first(count), i, sink, &registers)) {
            sink.m_list.push_back("not described");
        }
        s_seen.push_back(sink.m_list);
    }
}

namespace nqcore::platform {
namespace {

TEST(SymbolValues, KindsOfParametersOnTheStack) {
    const test::Functions& functions = test::plain_functions();
    const string scope = "nqcore::test::plain::";
    functions.numbers(-1, 200, -300, 4'000'000'000, -5, 6, -7);
    expect_frame(0, {scope + "numbers", "tiny B2/1 = 255", "byte B7/1 = 200", "small B6/2 = 65236",
                     "count B7/4 = 4000000000", "big B13/8 = -5", "size B14/8 = 6", "huge B6/8 = -7"});
    functions.characters('a', L'\x20AC', u8'b', u'\x20AC', U'\x1F600');
    expect_frame(0, {scope + "characters", "plain B2/1 = 97", "wide B3/4 = 8364", "one B2/1 = 98", "two B32/2 = 8364",
                     "four B33/4 = 128512"});
    functions.others(true, 1.5F, 2.5, 0, 7);
    expect_frame(0, {scope + "others", "flag B10/1 = 1", "single B8/4 = 1069547520", "real B8/8 = 4612811918334230528",
                     "extended B8/16 = 0", "wideNumber B6/16 = 7"});
    int number = 1;
    int* pointer = &number;
    functions.pointers(&number, number, &pointer, nullptr, nullptr, nullptr);
    expect_frame(0, {scope + "pointers", "pointer P0/8>4", "reference P0/8>4", "indirect P0/8->8", "null P0/8>0",
                     "function P0/8>0", "anything P0/8>0"});
    functions.structures();
    EXPECT_THAT(s_seen.at(0), testing::ElementsAre(scope + "structure_arguments",
                                                   "point S0/8 nqcore::test::plain::Point = 17179869187",
                                                   "box S0/4 nqcore::test::plain::Box<int> = 5",
                                                   testing::StartsWith("empty S0/1 nqcore::test::plain::Empty = "),
                                                   "either S0/8 nqcore::test::plain::Either = 6",
                                                   "hidden S0/8 nqcore::test::plain::(anonymous namespace)::Hidden = 7",
                                                   "colour O12/2 = 2", "length B7/4 = 8", "member O14/8 = 4"));
    functions.scopes();
    expect_frame(0, {scope + "scopes()::Local::run", "this P0/8>4", "argument B6/4 = 12"});
    expect_frame(1, {scope + "scopes"});
}

// What optimised code has forgotten is said to be so; what a callee has saved, or the caller passed, is found.
TEST(SymbolValues, OptimisedCode) {
    const test::Functions& functions = test::optimised_functions();
    const string scope = "nqcore::test::optimised::";
    functions.unused(1, 2);
    expect_frame(0, {scope + "unused", " B6/4 unavailable", "forgotten B6/4 unavailable"});
    functions.passedOn(14, 15);
    expect_frame(0, {scope + "told", "number B6/4 = 21", "twice B13/8 = 43"});
    expect_frame(1, {scope + "passed_on", "number B6/4 = 14", "other B13/8 = 15"});
    functions.kept(13, "text");
    expect_frame(0, {scope + "next"});
    EXPECT_THAT(s_seen.at(1), testing::Contains("text P0/8>1"));
}

// A frame in an unreadable place, or in no function, has parameters without values, or none.
TEST(SymbolValues, FramesThatCannotBe) {
    void* const start = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    const auto nowhere = reinterpret_cast<std::uintptr_t>(start) + 256;
    const auto function = reinterpret_cast<std::uintptr_t>(test::plain_functions().passedOn) + 20;
    const SymbolScope symbols;
    for (const std::uintptr_t framePointer : {nowhere, std::uintptr_t{8}, ~std::uintptr_t{0} - 7}) {
        const StackFrame frame{framePointer, framePointer - 64, function, 0};
        ListSink sink;
        EXPECT_TRUE(enumerate_parameters({&frame, 1}, 0, sink));
        EXPECT_EQ(sink.m_list, (std::vector<string>{"number B6/4 bad stack", "other B13/8 bad stack"}));
    }
    ListSink sink;
    const StackFrame frame{nowhere, nowhere, nowhere, 0};
    EXPECT_FALSE(enumerate_parameters({&frame, 1}, 0, sink));
    EXPECT_EQ(module_name(nowhere) + function_name(frame).name, "");
    EXPECT_EQ(function_name(frame).displacement, nowhere);
    munmap(start, 4096);
}

TEST(Symbols, TheSystemsOwnCode) {
    void* const vdso = dlopen("linux-vdso.so.1", RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(vdso, nullptr);
    EXPECT_EQ(describe(dlsym(vdso, "__vdso_clock_gettime")), "linux-vdso!clock_gettime");
    dlclose(vdso);
    EXPECT_THAT(describe(dlsym(RTLD_DEFAULT, "malloc_usable_size")), HasSubstr("!malloc_usable_size"));
    EXPECT_THAT(describe(reinterpret_cast<const void*>(&test::probe)), testing::StartsWith("symbols_internal_test!"));
}

// A library in a folder of its own, whose file tests change while it is loaded.
class SymbolModules : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(std::filesystem::create_directory(m_folder)); }
    void TearDown() override {
        close();
        std::filesystem::remove_all(m_folder);
    }

    // By renaming: the file that is loaded stays what it was.
    void put(const char* from) {
        std::filesystem::copy_file(from, m_folder / "new", std::filesystem::copy_options::overwrite_existing);
        std::filesystem::rename(m_folder / "new", m_file);
    }
    void run(const string& command) {
        ASSERT_EQ(std::system(("cd '" + m_folder.string() + "' && " + command).c_str()), 0) << command;
    }
    void open() {
        m_module = dlopen(m_file.c_str(), RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(m_module, nullptr) << dlerror();
        const void* const* const places = static_cast<const void* const*>(dlsym(m_module, "places"));
        ASSERT_NE(places, nullptr);
        m_shown = places[0];
        m_hidden = places[1];
    }
    void close() {
        if (void* const module = std::exchange(m_module, nullptr)) {
            dlclose(module);
        }
    }

    const std::filesystem::path m_folder =
        std::filesystem::temp_directory_path() / ("symbols_internal_test." + std::to_string(getpid()));
    const std::filesystem::path m_file = m_folder / "module.so";
    void* m_module = nullptr;
    const void* m_shown = nullptr;
    const void* m_hidden = nullptr;
};

TEST_F(SymbolModules, ComeAndGo) {
    put(NQ_FIRST_MODULE);
    open();
    EXPECT_EQ(describe(m_shown), "module!first_shown module.cpp:18");
    EXPECT_EQ(describe(m_hidden), "module!(anonymous namespace)::first_hidden module.cpp:8");
    close();
    EXPECT_EQ(describe(m_shown), "!");
    // Another library, which is likely to get the same place.
    put(NQ_SECOND_MODULE);
    open();
    EXPECT_EQ(describe(m_shown), "module!second_shown module.cpp:18");
    EXPECT_EQ(describe(m_hidden), "module!(anonymous namespace)::second_hidden module.cpp:8");
}

// A file that is not what was loaded is not believed; what the library exports is still in memory.
TEST_F(SymbolModules, FilesThatAreNotTheirsAnyMore) {
    constexpr const char* commands[] = {"true",
                                        "echo no library at all > module.so",
                                        "mkfifo module.so",
                                        "mkdir module.so",
                                        "cp '" NQ_SECOND_MODULE "' module.so",
                                        "head -c 4000 '" NQ_FIRST_MODULE "' > module.so"};
    for (const bool knownBefore : {false, true}) {
        for (const char* const command : commands) {
            SCOPED_TRACE(testing::Message() << command << ", known before: " << knownBefore);
            put(NQ_FIRST_MODULE);
            open();
            if (knownBefore) {
                EXPECT_EQ(describe(static_cast<const char*>(m_shown) + 1), "module!first_shown module.cpp:18");
            }
            std::filesystem::remove(m_file);
            run(command);
            EXPECT_THAT(describe(static_cast<const char*>(m_shown) + 2), testing::StartsWith("module!first_shown"));
            EXPECT_THAT(describe(m_hidden), testing::Not(HasSubstr("second")));
            close();
            std::filesystem::remove_all(m_file);
        }
    }
}

TEST_F(SymbolModules, StrippedFilesAndSeparateDebugInformation) {
    put(NQ_FIRST_MODULE);
    run("objcopy --only-keep-debug module.so module.debug && strip --strip-all module.so");
    std::filesystem::copy_file(m_file, m_folder / "stripped");
    open();
    EXPECT_EQ(describe(m_shown), "module!first_shown");
    EXPECT_EQ(describe(m_hidden), "module!");
    close();
    const std::pair<const char*, bool> cases[] = {
        {"objcopy --add-gnu-debuglink=module.debug stripped module.so", true},
        {"mkdir -p .debug && mv module.debug .debug", true},
        {"objcopy --compress-debug-sections .debug/module.debug", true},
        // Of another build, although it is called the same.
        {"objcopy --only-keep-debug " NQ_SECOND_MODULE " .debug/module.debug", false},
        {"echo nonsense > .debug/module.debug", false},
    };
    for (const auto& [command, isFound] : cases) {
        SCOPED_TRACE(command);
        run(command);
        open();
        EXPECT_EQ(describe(m_shown), isFound ? "module!first_shown module.cpp:18" : "module!first_shown");
        EXPECT_EQ(describe(m_hidden), isFound ? "module!(anonymous namespace)::first_hidden module.cpp:8" : "module!");
        close();
        reset_symbols();
    }
}

TEST_F(SymbolModules, WithoutTheDebugLibraryThereAreNamesOnly) {
    put(NQ_FIRST_MODULE);
    open();
    for (const char* const library : {"libnqcore-none.so", "libc.so.6"}) {  // missing; another one
        reset_symbols();
        choose_debug_library(library);
        EXPECT_EQ(describe(m_hidden), "module!(anonymous namespace)::first_hidden");
        const StackFrame frames[] = {{0, 0, reinterpret_cast<std::uintptr_t>(m_shown), 0}};
        const SymbolScope symbols;
        ListSink sink;
        EXPECT_FALSE(enumerate_parameters(frames, 0, sink));
    }
    reset_symbols();
    EXPECT_EQ(describe(m_shown), "module!first_shown module.cpp:18");
}

TEST(Symbols, TheLockIsCountedAndForksFindItFree) {
    std::atomic<bool> other = false;
    std::thread thread;
    {
        const SymbolScope outer;
        {
            const SymbolScope inner;
            EXPECT_EQ(SymbolLock::depth(), 2u);
            thread = std::thread([&other] {
                const SymbolScope scope;
                other = true;
            });
        }
        EXPECT_FALSE(other);
        EXPECT_TRUE(SymbolLock::is_mine());
    }
    thread.join();
    // Children of a thread that has the symbols, and of one that has not while others are busy with them.
    const void* const own = reinterpret_cast<const void*>(&describe);
    const auto look = [own](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            static_cast<void>(describe(own));
        }
    };
    const std::jthread busy[] = {std::jthread(look), std::jthread(look)};
    for (int i = 0; i < 40; ++i) {
        const std::unique_ptr<SymbolScope> held(i % 2 == 0 ? new SymbolScope : nullptr);
        const pid_t child = fork();
        if (child == 0) {
            alarm(20);
            _exit(describe(own).empty() ? 1 : 0);
        }
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
}

TEST_F(SymbolModules, ThreadsLookUpWhileModulesComeAndGo) {
    put(NQ_FIRST_MODULE);
    std::atomic<int> wrong = 0;
    {
        const void* const own = reinterpret_cast<const void*>(test::plain_functions().passedOn);
        const auto look = [&](const std::stop_token& stop) {
            while (!stop.stop_requested()) {
                wrong += describe(own).find("passed_on functions.cpp:") == string::npos;
            }
        };
        const std::jthread busy[] = {std::jthread(look), std::jthread(look)};
        for (int i = 0; i < 30; ++i) {
            open();
            EXPECT_EQ(describe(m_shown), "module!first_shown module.cpp:18");
            close();
        }
    }
    EXPECT_EQ(wrong, 0);
}

// Without its limit the cache of names would grow with every address.
TEST(Symbols, CachesAreBounded) {
    const auto* const code = reinterpret_cast<const char*>(&describe);
    std::size_t most = 0;
    for (std::uintptr_t i = 0; i < 40'000; ++i) {
        const SymbolScope symbols;
        static_cast<void>(function_name({0, 0, reinterpret_cast<std::uintptr_t>(code) + i, 0}));
        most = std::max(most, symbol_cache_bytes().addresses);
    }
    EXPECT_GT(most, SymbolCacheBytes::maxAddresses / 2);
    EXPECT_LT(most, SymbolCacheBytes::maxAddresses + 8192);
}

}  // namespace
}  // namespace nqcore::platform

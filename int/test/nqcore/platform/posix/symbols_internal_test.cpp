// Modules, names, lines and parameters behind addresses: of this program, of libraries that come and go, and of what has
// become of their files.
#include "platform/symbols.h"

#include "functions.h"
#include "platform/posix/debug_library.h"
#include "platform/posix/symbol_lock.h"
#include "platform/posix/symbols_state.h"

#include <dlfcn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
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
        static constexpr const char* s_states[] = {"", "bad stack", "unknown type", "unavailable", "symbol error"};
        std::ostringstream text;
        text << parameter.name << " "
             << "BPSO"[static_cast<int>(parameter.kind)] << parameter.code << "/" << parameter.size;
        if (parameter.kind == ValueKind::Structure) {
            text << " " << parameter.typeName;
        }
        if (parameter.kind == ValueKind::Pointer) {
            text << (parameter.targetIsPointer ? "->" : ">") << parameter.targetSize;
        }
        long value = 0;
        std::memcpy(&value, parameter.value, sizeof value);
        if (parameter.state != ValueState::Known) {
            text << " " << s_states[static_cast<int>(parameter.state)];
        } else if (parameter.kind != ValueKind::Pointer) {
            text << " = " << value;
        }
        m_list.push_back(text.str());
    }
    std::vector<string> m_list;
};

struct Seen {
    string name;
    bool described = false;
    std::vector<string> parameters;
};
std::vector<Seen> s_seen;  // the frames of the last probe, from its caller on

[[gnu::noinline]] void probe() {
    std::array<StackFrame, 4> frames;
    Registers registers;
    capture_registers(registers);
    const std::size_t count = walk_stack(registers, frames);
    const SymbolScope symbols;
    s_seen.clear();
    for (std::size_t i = 1; i < count; ++i) {
        ListSink sink;
        const bool described = enumerate_parameters(std::span(frames).first(count), i, sink, &registers);
        s_seen.push_back({function_name(frames[i]).name, described, sink.m_list});
    }
}

class SymbolValues : public testing::Test {
protected:
    void SetUp() override {
        test::s_probe = probe;
        s_seen.clear();
    }
};

void expect_frame(std::size_t index, const string& name, const std::vector<string>& parameters) {
    ASSERT_LT(index, s_seen.size());
    EXPECT_EQ(s_seen[index].name, name);
    EXPECT_TRUE(s_seen[index].described);
    EXPECT_EQ(s_seen[index].parameters, parameters);
}

TEST_F(SymbolValues, KindsOfParametersOnTheStack) {
    const test::Functions& functions = test::plain_functions();
    const string scope = "nqcore::test::plain::";
    functions.numbers(-1, 200, -300, 4'000'000'000, -5, 6, -7);
    expect_frame(0, scope + "numbers",
                 {"tiny B2/1 = 255", "byte B7/1 = 200", "small B6/2 = 65236", "count B7/4 = 4000000000",
                  "big B13/8 = -5", "size B14/8 = 6", "huge B6/8 = -7"});
    functions.characters('a', L'\x20AC', u8'b', u'\x20AC', U'\x1F600');
    expect_frame(0, scope + "characters",
                 {"plain B2/1 = 97", "wide B3/4 = 8364", "one B2/1 = 98", "two B32/2 = 8364", "four B33/4 = 128512"});
    functions.others(true, 1.5F, 2.5, 0, 7);
    expect_frame(0, scope + "others",
                 {"flag B10/1 = 1", "single B8/4 = 1069547520", "real B8/8 = 4612811918334230528", "extended B8/16 = 0",
                  "wideNumber B6/16 = 7"});
    int number = 1;
    int* pointer = &number;
    functions.pointers(&number, number, &pointer, nullptr, nullptr, nullptr);
    expect_frame(0, scope + "pointers",
                 {"pointer P0/8>4", "reference P0/8>4", "indirect P0/8->8", "null P0/8>0", "function P0/8>0",
                  "anything P0/8>0"});
    functions.structures();
    ASSERT_FALSE(s_seen.empty());
    ASSERT_EQ(s_seen[0].parameters.size(), 10u);
    const std::vector<string> structures(s_seen[0].parameters.begin(), s_seen[0].parameters.end() - 5);
    EXPECT_EQ(structures, (std::vector<string>{"point S0/8 nqcore::test::plain::Point = 17179869187",
                                               "box S0/4 nqcore::test::plain::Box<int> = 5",
                                               structures[2],  // its byte says nothing
                                               "either S0/8 nqcore::test::plain::Either = 6",
                                               "hidden S0/8 nqcore::test::plain::(anonymous namespace)::Hidden = 7"}));
    EXPECT_THAT(structures[2], testing::StartsWith("empty S0/1 nqcore::test::plain::Empty = "));
    EXPECT_EQ(s_seen[0].parameters[6], "colour O12/2 = 2");
    EXPECT_EQ(s_seen[0].parameters[7], "length B7/4 = 8");
    EXPECT_EQ(s_seen[0].parameters[8], "member O14/8 = 4");
    functions.members();
    expect_frame(0, scope + "Box<long>::look", {"this P0/8>8", "times B6/4 = 10"});
    functions.scopes();
    expect_frame(0, scope + "scopes()::Local::run", {"this P0/8>4", "argument B6/4 = 12"});
    expect_frame(1, scope + "scopes", {});
}

// What optimised code has forgotten is said to be so; what a callee has saved, or the caller passed, is found.
TEST_F(SymbolValues, OptimisedCode) {
    const test::Functions& functions = test::optimised_functions();
    const string scope = "nqcore::test::optimised::";
    functions.unused(1, 2);
    expect_frame(0, scope + "unused", {" B6/4 unavailable", "forgotten B6/4 unavailable"});
    functions.passedOn(14, 15);
    expect_frame(0, scope + "told", {"number B6/4 = 21", "twice B13/8 = 43"});
    expect_frame(1, scope + "passed_on", {"number B6/4 = 14", "other B13/8 = 15"});
    functions.kept(13, "text");
    expect_frame(0, scope + "next", {});
    ASSERT_GT(s_seen.size(), 1u);
    EXPECT_THAT(s_seen[1].parameters, testing::Contains("text P0/8>1"));
}

// A frame in an unreadable place, or in no function, has parameters without values, or none.
TEST_F(SymbolValues, FramesThatCannotBe) {
    void* const start = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    const auto nowhere = reinterpret_cast<std::uintptr_t>(start) + 256;
    const auto function = reinterpret_cast<std::uintptr_t>(test::plain_functions().passedOn) + 20;
    const SymbolScope symbols;
    for (const std::uintptr_t framePointer : {nowhere, std::uintptr_t{8}, ~std::uintptr_t{0} - 7}) {
        const StackFrame frames[] = {{framePointer, framePointer - 64, function, 0}};
        ListSink sink;
        EXPECT_TRUE(enumerate_parameters(frames, 0, sink));
        EXPECT_EQ(sink.m_list, (std::vector<string>{"number B6/4 bad stack", "other B13/8 bad stack"}));
    }
    ListSink sink;
    const StackFrame frames[] = {{nowhere, nowhere, nowhere, 0}};
    EXPECT_FALSE(enumerate_parameters(frames, 0, sink));
    EXPECT_EQ(module_name(nowhere), "");
    EXPECT_EQ(function_name(frames[0]).name, "");
    EXPECT_EQ(function_name(frames[0]).displacement, nowhere);
    munmap(start, 4096);
}

TEST(Symbols, TheSystemsOwnCode) {
    void* const vdso = dlopen("linux-vdso.so.1", RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(vdso, nullptr);
    EXPECT_EQ(describe(dlsym(vdso, "__vdso_clock_gettime")), "linux-vdso!clock_gettime");
    dlclose(vdso);
    EXPECT_THAT(describe(dlsym(RTLD_DEFAULT, "malloc_usable_size")), HasSubstr("!malloc_usable_size"));
    EXPECT_THAT(describe(reinterpret_cast<const void*>(&probe)), testing::StartsWith("symbols_internal_test!"));
}

// A library in a folder of its own, whose file tests change while it is loaded.
class SymbolModules : public testing::Test {
protected:
    void SetUp() override {
        string pattern = (std::filesystem::temp_directory_path() / "nqcore.XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        m_folder = pattern;
        m_file = m_folder / "module.so";
    }
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
        if (m_module != nullptr) {
            dlclose(m_module);
            m_module = nullptr;
        }
    }

    std::filesystem::path m_folder;
    std::filesystem::path m_file;
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
    const auto nothing = [](const std::filesystem::path&) {};
    const auto text = [](const std::filesystem::path& file) { std::ofstream(file) << "no library at all"; };
    const auto pipe = [](const std::filesystem::path& file) { ASSERT_EQ(mkfifo(file.c_str(), 0600), 0); };
    const auto folder = [](const std::filesystem::path& file) { std::filesystem::create_directory(file); };
    const auto other = [](const std::filesystem::path& file) { std::filesystem::copy_file(NQ_SECOND_MODULE, file); };
    const auto cut = [](const std::filesystem::path& file) {
        std::filesystem::copy_file(NQ_FIRST_MODULE, file);
        std::filesystem::resize_file(file, std::filesystem::file_size(file) / 2);
    };
    const std::pair<const char*, void (*)(const std::filesystem::path&)> cases[] = {
        {"deleted", nothing}, {"text", text}, {"pipe", pipe}, {"folder", folder}, {"other", other}, {"cut", cut}};
    for (const bool knownBefore : {false, true}) {
        for (const auto& [name, replace] : cases) {
            SCOPED_TRACE(testing::Message() << name << ", known before: " << knownBefore);
            put(NQ_FIRST_MODULE);
            open();
            if (knownBefore) {
                EXPECT_EQ(describe(static_cast<const char*>(m_shown) + 1), "module!first_shown module.cpp:18");
            }
            std::filesystem::remove(m_file);
            replace(m_file);
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
    {
        const SymbolScope outer;
        std::thread thread;
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
        thread.detach();
    }
    while (!other) {
        std::this_thread::yield();
    }
    // Children of a thread that has the symbols, and of one that has not while others are busy with them.
    std::atomic<bool> stop = false;
    std::vector<std::thread> busy;
    for (int i = 0; i < 2; ++i) {
        busy.emplace_back([&stop] {
            while (!stop) {
                static_cast<void>(describe(reinterpret_cast<const void*>(&describe)));
            }
        });
    }
    for (int i = 0; i < 40; ++i) {
        const std::unique_ptr<SymbolScope> held(i % 2 == 0 ? new SymbolScope : nullptr);
        const pid_t child = fork();
        if (child == 0) {
            alarm(20);
            _exit(describe(reinterpret_cast<const void*>(&describe)).empty() ? 1 : 0);
        }
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    stop = true;
    for (std::thread& thread : busy) {
        thread.join();
    }
}

TEST_F(SymbolModules, ThreadsLookUpWhileModulesComeAndGo) {
    put(NQ_FIRST_MODULE);
    std::atomic<bool> stop = false;
    std::atomic<int> wrong = 0;
    const void* const own = reinterpret_cast<const void*>(test::plain_functions().passedOn);
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            while (!stop) {
                wrong += describe(own).find("passed_on functions.cpp:") == string::npos;
            }
        });
    }
    for (int i = 0; i < 30; ++i) {
        open();
        EXPECT_EQ(describe(m_shown), "module!first_shown module.cpp:18");
        close();
    }
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
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

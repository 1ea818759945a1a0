// Core files, read back.
#include "platform/dump.h"

#include <elf.h>
#include <sys/procfs.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace nqcore::platform {
namespace {

class Core {
public:
    explicit Core(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        m_bytes.assign(std::istreambuf_iterator<char>(file), {});
    }

    [[nodiscard]] std::vector<Elf64_Phdr> segments(unsigned type) const {
        const auto header = at<Elf64_Ehdr>(0);
        std::vector<Elf64_Phdr> found;
        for (unsigned i = 0; i < header.e_phnum; ++i) {
            const auto segment = at<Elf64_Phdr>(header.e_phoff + i * sizeof(Elf64_Phdr));
            if (segment.p_type == type) {
                found.push_back(segment);
            }
        }
        return found;
    }
    /// Memory of the process; empty when it is not in the file.
    [[nodiscard]] std::string_view memory(const void* address, std::size_t size) const {
        for (const Elf64_Phdr& segment : segments(PT_LOAD)) {
            const std::uintptr_t place = reinterpret_cast<std::uintptr_t>(address) - segment.p_vaddr;
            if (place < segment.p_filesz && size <= segment.p_filesz - place) {
                return std::string_view(m_bytes).substr(segment.p_offset + place, size);
            }
        }
        return {};
    }
    /// The threads, by their stack pointers.
    [[nodiscard]] std::vector<std::uintptr_t> stack_pointers() const {
        std::vector<std::uintptr_t> found;
        const Elf64_Phdr notes = segments(PT_NOTE).at(0);
        for (std::size_t place = notes.p_offset; place < notes.p_offset + notes.p_filesz;) {
            const auto note = at<Elf64_Nhdr>(place);
            place += sizeof note + 8;
            if (note.n_type == NT_PRSTATUS) {
                found.push_back(at<user_regs_struct>(place + offsetof(elf_prstatus, pr_reg)).rsp);
            }
            place += (note.n_descsz + 3) / 4 * 4;
        }
        return found;
    }

private:
    template <class T>
    [[nodiscard]] T at(std::size_t place) const {
        T value;
        std::memcpy(&value, m_bytes.substr(place, sizeof value).data(), sizeof value);
        return value;
    }

    std::string m_bytes;
};

const std::string s_path = "dump_internal_test." + std::to_string(::getpid()) + ".core";
char s_static[] = "static data of the test";

// In       `frame`: of a function; its variables may be elsewhere, where sanitizers keep them.
bool is_near(std::uintptr_t stackPointer, const void* frame) noexcept {
    return reinterpret_cast<std::uintptr_t>(frame) - stackPointer < 64 * 1024;
}

TEST(Dump, HoldsMemoryAndAllThreads) {
    std::atomic<const char*> other = nullptr;
    const void* otherFrame = nullptr;
    std::atomic<bool> isOver = false;
    std::thread thread([&] {
        const char local[] = "on the stack of another thread";
        otherFrame = __builtin_frame_address(0);
        other = local;
        other.notify_one();
        isOver.wait(false);
    });
    other.wait(nullptr);
    const std::string heap(100'000, 'h');
    EXPECT_EQ(write_dump(s_path), DumpResult::Written);
    EXPECT_EQ(write_dump(s_path), DumpResult::NameTaken);
    EXPECT_EQ(write_dump("/no/such/folder/x.core"), DumpResult::Failed);
    const Core core(s_path);
    EXPECT_EQ(core.memory(s_static, sizeof s_static), std::string_view(s_static, sizeof s_static));
    EXPECT_EQ(core.memory(heap.data(), heap.size()), heap);
    EXPECT_EQ(core.memory(other, 12), "on the stack");
    isOver = true;
    isOver.notify_one();
    thread.join();
    const std::vector<std::uintptr_t> stacks = core.stack_pointers();
    ASSERT_GE(stacks.size(), 2u);  // a sanitizer may have a thread of its own
    EXPECT_TRUE(is_near(stacks[0], __builtin_frame_address(0))) << "the thread that asked is the first";
    EXPECT_TRUE(std::any_of(stacks.begin() + 1, stacks.end(),
                            [=](std::uintptr_t pointer) { return is_near(pointer, otherFrame); }));
    ::unlink(s_path.c_str());
}

// A process that is being debugged cannot be stopped by another one: it dumps a copy of itself, with one thread.
TEST(Dump, OfAProcessThatIsDebugged) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "did not end within minutes: the thread sanitizer's memory is very large, and its own thread is "
                    "not in a copy";
#endif
    const pid_t child = ::fork();
    if (child == 0) {
        ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        ::_exit(write_dump(s_path) == DumpResult::Written ? 7 : 8);
    }
    int status = 0;
    while (::waitpid(child, &status, 0) == child && WIFSTOPPED(status)) {
        ::ptrace(PTRACE_CONT, child, nullptr, WSTOPSIG(status) == SIGTRAP ? 0 : WSTOPSIG(status));
    }
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 7) << status;
    const Core core(s_path);
    EXPECT_EQ(core.memory(s_static, sizeof s_static), std::string_view(s_static, sizeof s_static));
    ASSERT_EQ(core.stack_pointers().size(), 1u);
    EXPECT_TRUE(is_near(core.stack_pointers()[0], __builtin_frame_address(0)));
    ::unlink(s_path.c_str());
}

}  // namespace
}  // namespace nqcore::platform

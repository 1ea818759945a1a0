#include "platform/child.h"

#include "nqcore/error_exception.h"
#include "nqcore/string_util.h"
#include "platform/win32/command_line.h"
#include "platform/win32/wide_text.h"

#include <windows.h>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <string_view>

namespace nq::platform {

namespace {

using Clock = std::chrono::steady_clock;

class Handle {
public:
    explicit Handle(HANDLE handle) noexcept : m_handle(handle) {}
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() {
        if (m_handle != nullptr) {
            CloseHandle(m_handle);
        }
    }
    [[nodiscard]] HANDLE get() const noexcept { return m_handle; }

private:
    HANDLE m_handle;
};

int errno_of(DWORD error) noexcept {
    const int number = nqcore::errno_from_winerror(error);
    return number != 0 ? number : EINVAL;
}

// Where the program is; empty when nowhere.
std::wstring find_program(const std::wstring& name) {
    std::wstring path(MAX_PATH, L'\0');
    DWORD units = SearchPathW(nullptr, name.c_str(), L".exe", static_cast<DWORD>(path.size()), path.data(), nullptr);
    if (units >= path.size()) {
        path.resize(units);
        units = SearchPathW(nullptr, name.c_str(), L".exe", static_cast<DWORD>(path.size()), path.data(), nullptr);
    }
    path.resize(std::min<std::size_t>(units, path.size()));
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? std::wstring()
                                                                                                 : path;
}

// The system hands these to the command processor, which takes arguments apart by rules of its own: what is passed as
// data could be run.
bool is_batch_file(std::wstring path) {
    path.erase(path.find_last_not_of(L" .") + 1);
    const std::string ending =
        utf8_text(std::wstring_view(path).substr(path.size() - std::min<std::size_t>(path.size(), 4)));
    return nqcore::string_equal_nocase_ascii(ending, ".bat") || nqcore::string_equal_nocase_ascii(ending, ".cmd");
}

int make_command_line(const std::vector<std::string>& words, std::wstring& path, std::wstring& line) {
    constexpr std::size_t longest = 32767;  // with the terminator
    std::vector<std::wstring> wideWords;
    for (const std::string& word : words) {
        wideWords.push_back(wide_path(word));
        if (wideWords.back().empty() && !word.empty()) {
            return EILSEQ;
        }
    }
    path = find_program(wideWords.front());
    if (path.empty() || wideWords.front().find(L'"') != std::wstring::npos) {
        return ENOENT;
    }
    line = command_line_of(wideWords);
    return is_batch_file(path) ? ENOEXEC : line.size() >= longest ? E2BIG : 0;
}

// The console tells all of its programs of a key to interrupt; this one waits for what the other makes of it.
BOOL WINAPI ignore_console_event(DWORD event) { return event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT; }

class IgnoredConsoleEvents {
public:
    IgnoredConsoleEvents() noexcept { SetConsoleCtrlHandler(&ignore_console_event, TRUE); }
    IgnoredConsoleEvents(const IgnoredConsoleEvents&) = delete;
    IgnoredConsoleEvents& operator=(const IgnoredConsoleEvents&) = delete;
    ~IgnoredConsoleEvents() { SetConsoleCtrlHandler(&ignore_console_event, FALSE); }
};

/// Returns  false when the time is over and it has not ended.
bool wait_for(HANDLE process, std::int64_t limitNs) {
    constexpr std::int64_t atOnceMs = 24 * 3600 * 1000;  // the system counts in 32 bits
    const Clock::time_point begin = Clock::now();
    for (;;) {
        const std::int64_t left = limitNs - std::chrono::nanoseconds(Clock::now() - begin).count();
        const std::int64_t leftMs = left <= 0 ? 0 : std::min((left - 1) / 1'000'000 + 1, atOnceMs);
        if (WaitForSingleObject(process, static_cast<DWORD>(leftMs)) != WAIT_TIMEOUT) {
            return true;
        }
        if (left <= 0 && limitNs != ChildPlan::unlimited) {
            return false;
        }
    }
}

constexpr UINT s_endedExitCode = 1;

}  // namespace

int run_child(const ChildPlan& plan, ChildEnd& end) {
    std::wstring path;
    std::wstring line;
    if (const int error = make_command_line(plan.words, path, line)) {
        return error;
    }
    const IgnoredConsoleEvents ignored;
    // Without one, where jobs cannot be nested, the program alone is ended.
    const Handle job(plan.limitNs == ChildPlan::unlimited ? nullptr : CreateJobObjectW(nullptr, nullptr));
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION information = {};
    if (CreateProcessW(path.c_str(), line.data(), nullptr, nullptr, TRUE, CREATE_SUSPENDED, nullptr, nullptr, &startup,
                       &information) == 0) {
        return errno_of(GetLastError());
    }
    const Handle process(information.hProcess);
    const Handle thread(information.hThread);
    const bool isInJob = job.get() != nullptr && AssignProcessToJobObject(job.get(), process.get()) != 0;
    ResumeThread(thread.get());
    if (!wait_for(process.get(), plan.limitNs)) {
        end.isOverLimit = true;
        if (isInJob) {
            TerminateJobObject(job.get(), s_endedExitCode);
        } else {
            TerminateProcess(process.get(), s_endedExitCode);
        }
        WaitForSingleObject(process.get(), INFINITE);
    }
    DWORD exitCode = nqcore::ExitCode::sm_invalidExitCode;
    GetExitCodeProcess(process.get(), &exitCode);
    end.exitCode = nqcore::ExitCode(exitCode);
    return 0;
}

}  // namespace nq::platform

// main() of the test programs on win32: GoogleTest's, and a wait at the end.
//
// On Windows GoogleTest keeps a thread that watches over its thread-local values. A program that ends while that thread
// is still on its way up dies of a segmentation fault under Wine, though every test has passed: a hundredth of the runs
// of a short program on a busy machine. So main() waits until every thread of the process has arrived.
#include <gmock/gmock.h>
#include <windows.h>

#include <tlhelp32.h>
#include <atomic>

namespace {

// Threads that have begun to run and have not ended. The main thread is not announced.
constinit std::atomic<int> s_arrived{1};

void NTAPI note_thread(void*, DWORD reason, void*) {
    if (reason == DLL_THREAD_ATTACH) {
        ++s_arrived;
    } else if (reason == DLL_THREAD_DETACH) {
        --s_arrived;
    }
}

// The loader calls what it finds in this section, on each thread, before the thread's own function.
[[gnu::section(".CRT$XLF"), gnu::used]] const PIMAGE_TLS_CALLBACK s_threadCallback = note_thread;

int count_threads() {
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 thread{};
    thread.dwSize = sizeof thread;
    int count = 0;
    for (BOOL more = Thread32First(snapshot, &thread); more != FALSE; more = Thread32Next(snapshot, &thread)) {
        count += thread.th32OwnerProcessID == GetCurrentProcessId() ? 1 : 0;
    }
    CloseHandle(snapshot);
    return count;
}

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    const int status = RUN_ALL_TESTS();
    for (int attempt = 0; attempt < 1000 && s_arrived < count_threads(); ++attempt) {
        Sleep(1);
    }
    return status;
}

// Loading the debug-help library, and the lock that everything asked of it is under: it is not made for threads.
//
//     not loaded --start--> loaded --acquire--> initialised: one thread inside, any number of times
//                                  <--release--              (the library stays initialised)
//
// The debug-help library knows the modules that were there when it was initialised. One that came later is made known when
// an address in it is asked about. The loader's notifications tell when one has gone: another may lie at its place now, so
// the next acquisition initialises anew.
#include "symbols_debug_help.h"

#include "../symbol_path.h"
#include "../symbols.h"
#include "../ui.h"

#include <atomic>

namespace nqcore::platform {
namespace {

template <class Function>
bool look_up(HMODULE module, const char* name, Function& function) noexcept {
    function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
    return function != nullptr;
}

bool look_up_all(HMODULE module, DebugHelp& help) noexcept {
    look_up(module, "SymInitializeW", help.initialize_wide);
    return look_up(module, "SymInitialize", help.initialize) && look_up(module, "SymCleanup", help.clean_up) &&
           look_up(module, "SymGetOptions", help.get_options) && look_up(module, "SymSetOptions", help.set_options) &&
           look_up(module, "SymGetModuleInfoW", help.module_info) &&
           look_up(module, "SymGetModuleBase64", help.module_base) &&
           look_up(module, "SymLoadModuleExW", help.load_module) &&
           look_up(module, "SymGetSymFromAddr64", help.symbol_of_address) &&
           look_up(module, "SymFromAddr", help.description_of_address) &&
           look_up(module, "SymGetLineFromAddr64", help.line_of_address) &&
           look_up(module, "SymSetContext", help.set_context) &&
           look_up(module, "SymEnumSymbols", help.enumerate_symbols) &&
           look_up(module, "SymGetTypeInfo", help.type_info) &&
           look_up(module, "SymFunctionTableAccess64", help.function_table) &&
           look_up(module, "StackWalk64", help.walk_stack) && look_up(module, "UnDecorateSymbolName", help.undecorate);
}

// The loader's notifications, which no header declares.
constexpr ULONG s_moduleUnloaded = 2;
using ModuleNotification = void(CALLBACK*)(ULONG reason, const void* data, void* context);
using RegisterNotification = LONG(NTAPI*)(ULONG flags, ModuleNotification notification, void* context, void** cookie);
using UnregisterNotification = LONG(NTAPI*)(void* cookie);

constinit std::atomic<bool> s_modulesWent = false;
constinit std::atomic<DWORD> s_threadInside = 0;

// The debug-help library loads and unloads modules of its own: they are no reason to begin again.
void CALLBACK note_module(ULONG reason, const void*, void*) {
    if (reason == s_moduleUnloaded && s_threadInside.load(std::memory_order_relaxed) != GetCurrentThreadId()) {
        s_modulesWent.store(true, std::memory_order_release);
    }
}

DWORD image_size(HMODULE module) noexcept {
    const auto* const begin = reinterpret_cast<const char*>(module);
    const auto* const header = begin + reinterpret_cast<const IMAGE_DOS_HEADER*>(begin)->e_lfanew;
    return reinterpret_cast<const IMAGE_NT_HEADERS*>(header)->OptionalHeader.SizeOfImage;
}

class SymbolHandler {
public:
    // Nothing here has a destructor: when the process ends, the system takes everything, and the other threads, which it
    // has ended already, may have died inside.
    void load() noexcept {
        m_module = LoadLibraryW(L"dbghelp.dll");
        if (m_module == nullptr) {
            return;
        }
        if (!look_up_all(m_module, m_help)) {
            FreeLibrary(m_module);
            return;
        }
        const HMODULE loader = GetModuleHandleW(L"ntdll.dll");
        RegisterNotification watch = nullptr;
        if (!look_up(loader, "LdrRegisterDllNotification", watch) || watch(0, note_module, nullptr, &m_watch) != 0) {
            m_watch = nullptr;
        }
        InitializeCriticalSection(&m_section);
        m_loaded = true;
    }

    void unload() noexcept {
        if (!m_loaded) {
            return;
        }
        m_loaded = false;
        UnregisterNotification unwatch = nullptr;
        if (m_watch != nullptr && look_up(GetModuleHandleW(L"ntdll.dll"), "LdrUnregisterDllNotification", unwatch)) {
            unwatch(m_watch);
        }
        clean_up();
        if (m_process != nullptr) {
            CloseHandle(m_process);
        }
        FreeLibrary(m_module);
        DeleteCriticalSection(&m_section);
    }

    bool acquire() noexcept {
        if (!m_loaded) {
            return false;
        }
        EnterCriticalSection(&m_section);
        if (++m_count != 1) {
            return true;
        }
        s_threadInside.store(GetCurrentThreadId(), std::memory_order_relaxed);
        const bool ready = get_ready();
        if (!ready) {
            release();
        }
        return ready;
    }

    void release() noexcept {
        if (--m_count == 0) {
            s_threadInside.store(0, std::memory_order_relaxed);
        }
        LeaveCriticalSection(&m_section);
    }

    // The library takes milliseconds to find out that there is no module.
    std::uintptr_t know_module(std::uintptr_t address) noexcept {
        MEMORY_BASIC_INFORMATION region{};
        if (VirtualQuery(reinterpret_cast<const void*>(address), &region, sizeof region) == 0 ||
            region.Type != MEM_IMAGE) {
            return 0;
        }
        const DWORD64 known = m_help.module_base(m_process, address);
        return static_cast<std::uintptr_t>(known != 0 ? known
                                                      : load_module(static_cast<HMODULE>(region.AllocationBase)));
    }

    [[nodiscard]] const DebugHelp& help() const noexcept { return m_help; }
    [[nodiscard]] HANDLE process() const noexcept { return m_process; }
    [[nodiscard]] std::uint64_t generation() const noexcept { return m_generation; }

private:
    bool get_ready() noexcept {
        if (s_modulesWent.exchange(false, std::memory_order_acquire)) {
            clean_up();
        }
        if (!m_initialised) {
            m_initialised = initialise();
            ++m_generation;
        }
        return m_initialised;
    }

    bool initialise() noexcept {
        if (m_path[0] == L'\0') {
            build_path();
        }
        m_help.set_options(symbol_options(m_help.get_options(), visible_desktop()));
        // A handle of our own: the library keeps apart what it knows by different handles, and the program may use it too.
        const HANDLE self = GetCurrentProcess();
        if (m_process == nullptr &&
            DuplicateHandle(self, self, self, &m_process, 0, FALSE, DUPLICATE_SAME_ACCESS) == 0) {
            m_process = nullptr;
            return false;
        }
        if (m_help.initialize_wide != nullptr) {
            return m_help.initialize_wide(m_process, m_path, TRUE) != 0;
        }
        return initialise_narrow();
    }

    void clean_up() noexcept {
        if (m_initialised) {
            m_initialised = false;
            m_help.clean_up(m_process);
        }
    }

    // Apart, like the two below, so that an acquisition that finds all of it done takes no more stack than it needs.
    [[gnu::noinline]] void build_path() noexcept {
        wchar_t program[symbolPathSize];
        const DWORD length = GetModuleFileNameW(nullptr, program, symbolPathSize);
        write_symbol_path(m_path, {program, length}, [](const wchar_t* name, wchar_t* to, std::size_t room) {
            return std::size_t{GetEnvironmentVariableW(name, to, static_cast<DWORD>(room))};
        });
    }

    [[gnu::noinline]] bool initialise_narrow() noexcept {
        char path[symbolPathSize * 2];
        return WideCharToMultiByte(CP_ACP, 0, m_path, -1, path, sizeof path, nullptr, nullptr) != 0 &&
               m_help.initialize(m_process, path, TRUE) != 0;
    }

    [[gnu::noinline]] DWORD64 load_module(HMODULE module) noexcept {
        wchar_t path[1024];
        const DWORD length = GetModuleFileNameW(module, path, std::size(path));
        if (length == 0 || length == std::size(path)) {
            return 0;
        }
        ++m_generation;
        return m_help.load_module(m_process, nullptr, path, nullptr, reinterpret_cast<std::uintptr_t>(module),
                                  image_size(module), nullptr, 0);
    }

    CRITICAL_SECTION m_section = {};
    HMODULE m_module = nullptr;
    void* m_watch = nullptr;
    DebugHelp m_help = {};
    bool m_loaded = false;
    // Under the lock.
    unsigned m_count = 0;
    bool m_initialised = false;
    std::uint64_t m_generation = 0;
    HANDLE m_process = nullptr;
    wchar_t m_path[symbolPathSize] = {};
};
constinit SymbolHandler s_handler;

struct Load {
    Load() noexcept { s_handler.load(); }
};
const Load s_load;

}  // namespace

bool acquire_symbols() noexcept { return s_handler.acquire(); }

void release_symbols() noexcept { s_handler.release(); }

std::uint64_t symbols_generation() noexcept { return s_handler.generation(); }

const DebugHelp& debug_help() noexcept { return s_handler.help(); }

std::uintptr_t know_module(std::uintptr_t address) noexcept { return s_handler.know_module(address); }

HANDLE symbol_process() noexcept { return s_handler.process(); }

void unload_debug_help() noexcept { s_handler.unload(); }

}  // namespace nqcore::platform

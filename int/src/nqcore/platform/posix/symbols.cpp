#include "platform/symbols.h"

#include "debug_library.h"
#include "platform/readable_name.h"
#include "symbol_lock.h"
#include "symbols_dwarf.h"
#include "symbols_locations.h"
#include "symbols_modules.h"
#include "symbols_state.h"
#include "symbols_values.h"

#include <algorithm>
#include <memory>
#include <new>
#include <unordered_map>
#include <utility>
#include <vector>

namespace nqcore::platform {
namespace {

using std::string;

// A module and, from the first question on, its debug information.
struct KnownModule {
    explicit KnownModule(Module::Loaded loaded) : module(std::move(loaded)) {}

    Module module;
    bool hasLooked = false;
    std::unique_ptr<DebugInfo> debug;
};

// What is known of an address; each part from the first question on.
struct KnownAddress {
    FunctionName function;
    SourceLine line;
    bool hasFunction = false;
    bool hasLine = false;
};

class Symbols final : public DebugInfoFinder {
public:
    void update();
    void make_room() noexcept;
    void drop_debug_info() noexcept;

    [[nodiscard]] KnownModule* find_module(std::uintptr_t address) noexcept;
    [[nodiscard]] DebugInfo* find_debug_info(std::uintptr_t address) override;
    [[nodiscard]] const FunctionName& function_name(std::uintptr_t address);
    [[nodiscard]] const SourceLine& source_line(std::uintptr_t address);

    [[nodiscard]] SymbolCacheBytes cache_bytes() const noexcept;

private:
    [[nodiscard]] FunctionName look_up_function(std::uintptr_t address);

    std::uint64_t m_changes = 0;
    std::vector<std::unique_ptr<KnownModule>> m_modules;  // by address
    std::unordered_map<std::uintptr_t, KnownAddress> m_addresses;
    std::size_t m_addressBytes = 0;
    bool m_hasGrown = false;
};

// Under the lock.
constinit Symbols* s_symbols = nullptr;
constinit std::uint64_t s_generation = 0;

void Symbols::update() {
    if (count_module_changes() == m_changes) {
        return;
    }
    ModuleList list = list_modules();
    std::vector<std::unique_ptr<KnownModule>> modules;
    modules.reserve(list.modules.size());
    for (Module::Loaded& loaded : list.modules) {
        KnownModule* const known = find_module(loaded.begin);
        const bool isSame = known != nullptr && known->module.serves(loaded);
        modules.push_back(isSame ? nullptr : std::make_unique<KnownModule>(std::move(loaded)));
    }
    // Nothing fails from here on.
    for (std::size_t i = 0; i < modules.size(); ++i) {
        if (modules[i] == nullptr) {
            const auto known = std::ranges::find_if(m_modules, [begin = list.modules[i].begin](const auto& module) {
                return module != nullptr && module->module.begin() == begin;
            });
            modules[i] = std::move(*known);
        }
    }
    m_modules = std::move(modules);
    m_addresses.clear();
    m_addressBytes = 0;
    m_changes = list.changes;
    ++s_generation;
}

// Only between uses: references into the caches are about otherwise.
void Symbols::make_room() noexcept {
    if (!std::exchange(m_hasGrown, false)) {
        return;
    }
    const SymbolCacheBytes bytes = cache_bytes();
    if (bytes.addresses > SymbolCacheBytes::maxAddresses) {
        m_addresses.clear();
        m_addressBytes = 0;
    }
    if (bytes.indexes > SymbolCacheBytes::maxIndexes) {
        for (const auto& known : m_modules) {
            known->module.drop_index();
        }
    }
    if (bytes.debugInfo > SymbolCacheBytes::maxDebugInfo) {
        drop_debug_info();
    }
}

void Symbols::drop_debug_info() noexcept {
    for (const auto& known : m_modules) {
        known->debug.reset();
        known->hasLooked = false;
    }
}

SymbolCacheBytes Symbols::cache_bytes() const noexcept {
    SymbolCacheBytes bytes;
    bytes.addresses = m_addressBytes;
    for (const auto& known : m_modules) {
        bytes.indexes += known->module.index_bytes();
        bytes.debugInfo += known->debug != nullptr ? known->debug->bytes() : 0;
    }
    return bytes;
}

KnownModule* Symbols::find_module(std::uintptr_t address) noexcept {
    const auto next =
        std::ranges::upper_bound(m_modules, address, {}, [](const auto& known) { return known->module.begin(); });
    return next != m_modules.begin() && address < next[-1]->module.end() ? next[-1].get() : nullptr;
}

DebugInfo* Symbols::find_debug_info(std::uintptr_t address) {
    m_hasGrown = true;
    KnownModule* const known = find_module(address);
    if (known == nullptr) {
        return nullptr;
    }
    if (!known->hasLooked) {
        if (const DebugLibrary* const library = debug_library(); library != nullptr) {
            known->debug = std::make_unique<DebugInfo>(*library, known->module);
        }
        known->hasLooked = true;
    }
    return known->debug.get();
}

FunctionName Symbols::look_up_function(std::uintptr_t address) {
    KnownModule* const known = find_module(address);
    if (known == nullptr) {
        return {{}, address};
    }
    const FunctionIndex::Function function = known->module.find_function(address);
    if (function.name.empty()) {
        return {{}, address - known->module.begin()};
    }
    return {readable_name(function.name), address - function.address};
}

const FunctionName& Symbols::function_name(std::uintptr_t address) {
    KnownAddress& known = m_addresses[address];
    if (!known.hasFunction) {
        m_hasGrown = true;
        known.function = look_up_function(address);
        known.hasFunction = true;
        m_addressBytes += sizeof known + 64 + known.function.name.capacity();
    }
    return known.function;
}

const SourceLine& Symbols::source_line(std::uintptr_t address) {
    KnownAddress& known = m_addresses[address];
    if (!known.hasLine) {
        DebugInfo* const info = find_debug_info(address);
        known.line = info != nullptr ? info->source_line(address) : SourceLine{};
        known.hasLine = true;
        m_addressBytes += sizeof known + 64 + known.line.file.capacity();
    }
    return known.line;
}

// When the library is unloaded or the program ends. Another thread that is writing a trace at that moment keeps it all.
[[gnu::destructor]] void forget_symbols() noexcept {
    if (SymbolLock::try_acquire()) {
        reset_symbols();
        SymbolLock::release();
    }
}

// The debug library is left in the middle of its work when it runs out of memory; it is not asked again.
template <class Work>
auto guard_debug_info(Work work) {
    try {
        return work();
    } catch (const std::bad_alloc&) {
        s_symbols->drop_debug_info();
        throw;
    }
}

}  // namespace

void reset_symbols() noexcept {
    delete std::exchange(s_symbols, nullptr);
    choose_debug_library(nullptr);
}

SymbolCacheBytes symbol_cache_bytes() noexcept { return s_symbols->cache_bytes(); }

bool acquire_symbols() noexcept {
    if (SymbolLock::is_mine()) {
        SymbolLock::acquire();
        return true;
    }
    try {
        // Before the lock: a constructor that the dynamic linker is running on another thread may be waiting for that.
        static_cast<void>(debug_library());
    } catch (const std::bad_alloc&) {
        return false;
    }
    SymbolLock::acquire();
    try {
        if (s_symbols == nullptr) {
            s_symbols = new Symbols;
        }
        // Not before the lock: a fork at that moment would leave the child with a lock of the dynamic linker.
        s_symbols->update();
        return true;
    } catch (const std::bad_alloc&) {
        SymbolLock::release();
        return false;
    }
}

void release_symbols() noexcept {
    if (SymbolLock::depth() == 1) {
        s_symbols->make_room();
    }
    SymbolLock::release();
}

std::uint64_t symbols_generation() noexcept { return s_generation; }

string module_name(std::uintptr_t address) {
    const KnownModule* const known = s_symbols->find_module(address);
    return known != nullptr ? known->module.name() : string();
}

FunctionName function_name(const StackFrame& frame) { return s_symbols->function_name(frame.lookup_address()); }

SourceLine source_line(const StackFrame& frame) {
    return guard_debug_info([&frame] { return s_symbols->source_line(frame.lookup_address()); });
}

bool enumerate_parameters(std::span<const StackFrame> frames, std::size_t index, ParameterSink& sink,
                          const Registers* innermost) {
    return guard_debug_info([&] {
        const std::uintptr_t address = frames[index].lookup_address();
        DebugInfo* const info = s_symbols->find_debug_info(address);
        std::optional<DebugInfo::Function> function = info != nullptr ? info->find_function(address) : std::nullopt;
        if (function) {
            FrameRegisters registers(frames, innermost, *s_symbols);
            FunctionFrame frame{registers, index, *info, *function};
            hand_over_parameters(frame, sink);
        }
        return function.has_value();
    });
}

}  // namespace nqcore::platform

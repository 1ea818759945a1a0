// The process-wide registry of loaded modules: each module of the family registers itself once, by name.
//
//     if (!nqmoduleregistry::add_module_info("mymodule", xml)) { /* a second copy of the module is being loaded */ }
//
// A library of its own, so that all modules of a process share one registry whatever versions they are of.
#pragma once

#if defined(_WIN32)
#    if defined(NQMODULEREGISTRY_BUILD)
#        define NQMODULEREGISTRY_API __declspec(dllexport)
#    else
#        define NQMODULEREGISTRY_API __declspec(dllimport)
#    endif
#else
#    define NQMODULEREGISTRY_API __attribute__((visibility("default")))
#endif

namespace nqmoduleregistry {

/// What is registered of one module; a copy that outlives the registration.
class NQMODULEREGISTRY_API ModuleInfo {
public:
    ModuleInfo() noexcept = default;
    ModuleInfo(const ModuleInfo&) = delete;
    ModuleInfo& operator=(const ModuleInfo&) = delete;
    ~ModuleInfo();

    /// Empty until `query_module_info` has filled it in.
    [[nodiscard]] const char* name() const noexcept { return m_name != nullptr ? m_name : ""; }
    /// The module's `ModuleInfo` document.
    [[nodiscard]] const char* xml() const noexcept { return m_xml != nullptr ? m_xml : ""; }

private:
    friend NQMODULEREGISTRY_API bool query_module_info(const char* name, ModuleInfo* info) noexcept;

    char* m_name = nullptr;
    char* m_xml = nullptr;
};

/// Registers a module.
///
/// In       both texts are copied; null is refused.
/// Returns  false when a module of that name is registered already, or memory is exhausted.
/// Threads  any.
NQMODULEREGISTRY_API bool add_module_info(const char* name, const char* xml) noexcept;

/// Fills in what is registered under `name`.
///
/// Returns  false, and leaves `info` as it was, when nothing is, or memory is exhausted.
/// Threads  any.
NQMODULEREGISTRY_API bool query_module_info(const char* name, ModuleInfo* info) noexcept;

/// Takes a module's registration back.
///
/// Returns  false when nothing is registered under `name`.
/// Threads  any.
NQMODULEREGISTRY_API bool remove_module_info(const char* name) noexcept;

}  // namespace nqmoduleregistry

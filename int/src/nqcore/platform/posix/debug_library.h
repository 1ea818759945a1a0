// The library that reads debug information, libdw, found when the program runs: without it, texts do without.
#pragma once

#include <elfutils/libdw.h>

namespace nqcore::platform {

// Every function that is called of it, each listed once: the entry, its type and its name cannot differ.
// clang-format off
#define NQCORE_DEBUG_FUNCTIONS(X) \
    X(elf_version) X(elf_memory) X(elf_end) X(dwarf_begin_elf) X(dwarf_end) X(dwarf_new_oom_handler) \
    X(dwarf_addrdie) X(dwarf_get_units) X(dwarf_cu_info) X(dwarf_diecu) X(dwarf_dieoffset) X(dwarf_haspc) \
    X(dwarf_child) X(dwarf_siblingof) X(dwarf_tag) X(dwarf_diename) X(dwarf_attr) X(dwarf_attr_integrate) \
    X(dwarf_formref_die) X(dwarf_formstring) X(dwarf_formudata) \
    X(dwarf_formsdata) X(dwarf_formaddr) X(dwarf_formblock) \
    X(dwarf_peel_type) X(dwarf_aggregate_size) X(dwarf_getsrclines) X(dwarf_getsrc_die) X(dwarf_linesrc) \
    X(dwarf_lineno) X(dwarf_getlocation) X(dwarf_getlocation_addr) X(dwarf_getlocation_attr) \
    X(dwarf_getlocation_implicit_value) X(dwarf_getcfi_elf) X(dwarf_cfi_end) \
    X(dwarf_cfi_addrframe) X(dwarf_frame_cfa) X(dwarf_frame_register)
// clang-format on

struct DebugLibrary {
    void* handle = nullptr;
#define NQCORE_DEBUG_FUNCTION(name) decltype(&::name) name = nullptr;
    NQCORE_DEBUG_FUNCTIONS(NQCORE_DEBUG_FUNCTION)
#undef NQCORE_DEBUG_FUNCTION
};

/// Opens the library on the first call. Waits for the dynamic linker, so it must be called with no lock held that a
/// constructor of a library could want.
///
/// Returns  null when it cannot be had.
/// Errors   `std::bad_alloc`.
[[nodiscard]] const DebugLibrary* debug_library();

/// Has the next call of `debug_library` open a library of this name. Nothing of the last one may be in use.
///
/// In       `name`: null for the one that it should be.
void choose_debug_library(const char* name) noexcept;

}  // namespace nqcore::platform

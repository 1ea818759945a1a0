// What the library says about itself: to tools that look into the file, and to the registry of loaded modules.
#pragma once

namespace nqcore::impl {

/// A marker line, by which tools find the block inside the library's file, and the `ModuleInfo` document.
extern const char s_moduleInfoBlock[];

/// The document alone.
[[nodiscard]] const char* module_info_xml() noexcept;

}  // namespace nqcore::impl

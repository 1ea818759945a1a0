#include "lifetime_module_info.h"

#include "module_info_values.h"

#include <cstring>

namespace nqcore::impl {

// NQCORE_FILE_INFO is the list of items, written by the build's configuration.
[[gnu::used]] constexpr char s_moduleInfoBlock[] =
    "***KAVO*MODULE*INFO*F70397B5E6FEBE4447157E5A1C9D5E64***\n"
    "<ModuleInfo name=\"nqcore\" type=\"dll\" tool=\"vc\" build=\"release\" arch=\"x86\">\n"
    "  <FileInfo>\n" NQCORE_FILE_INFO
    "  </FileInfo>\n"
    "</ModuleInfo>\n";

const char* module_info_xml() noexcept { return std::strchr(s_moduleInfoBlock, '<'); }

}  // namespace nqcore::impl

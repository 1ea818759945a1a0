// What fuzz targets of texts share.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string_view>

/// Ends the run: the library and the oracle do not agree about `text`.
[[noreturn]] inline void fail(const char* what, std::string_view text) {
    std::fprintf(stderr, "%s: '%.*s'\n", what, static_cast<int>(text.size()), text.data());
    std::abort();
}

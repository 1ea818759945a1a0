#include "embedded_nul.h"

#include "nqcore/error_exception.h"
#include "source_id.h"

namespace nqcore {
namespace {

constexpr SourceId s_source("$Id: //nqcore/int/src/nqcore/string_util.cpp#1 $");

}  // namespace

void raise_embedded_nul_error() {
    throw_error(error::nqcore_string_embeddedNul,
                "String contains embedded NUL character and cannot be converted to a 'C'-string",
                s_source.here("nqcore::raise_embedded_nul_error()"));
}

}  // namespace nqcore

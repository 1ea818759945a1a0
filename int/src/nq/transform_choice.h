// What `nq encode` and `nq decode` have in common: which transform the command line names.
#pragma once

#include "command.h"

#include "nqcore/transforms.h"

namespace nq {

inline constexpr Option s_base64Option{.name = "--base64", .help = "Base-64"};
inline constexpr Option s_base32Option{.name = "--base32", .help = "Base-32"};
inline constexpr Option s_hexOption{.name = "--hex", .help = "Hexadecimal"};

struct TransformChoice {
    nqcore::Transform transform;
    const char* name;  ///< for people
};

/// Errors   "error.nq.usage" unless exactly one is named.
[[nodiscard]] TransformChoice chosen_transform(const Arguments& arguments);

}  // namespace nq

#include "transform_choice.h"

#include "errors.h"

namespace nq {

namespace {

struct Row {
    const char* option;
    TransformChoice choice;
};

constexpr Row s_rows[] = {
    {"base64", {nqcore::Transform::base64, "base-64"}},
    {"base32", {nqcore::Transform::base32, "base-32"}},
    {"hex", {nqcore::Transform::hex, "hex"}},
};

}  // namespace

TransformChoice chosen_transform(const Arguments& arguments) {
    const Row* chosen = nullptr;
    for (const Row& row : s_rows) {
        if (!arguments.has(row.option)) {
            continue;
        }
        if (chosen != nullptr) {
            throw_usage(std::string("--") + chosen->option + " and --" + row.option + " exclude each other");
        }
        chosen = &row;
    }
    if (chosen == nullptr) {
        throw_usage("one of --base64, --base32 and --hex is required");
    }
    return chosen->choice;
}

}  // namespace nq

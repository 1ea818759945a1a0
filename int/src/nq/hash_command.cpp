// `nq hash`: Murmur hashes of files, standard input and arguments.
#include "command.h"
#include "errors.h"
#include "input.h"
#include "json.h"
#include "streams.h"

#include "nqcore/murmur_hash.h"
#include "nqcore/string_to.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace nq {

namespace {

constexpr Option s_options[] = {
    {.name = "FILE",
     .value = "FILE",
     .help = "Files to read, or texts with --text; none or - for standard input",
     .isList = true},
    {.name = "--text", .help = "The arguments are texts to hash, not files"},
    {.name = "--seed", .value = "N", .help = "The number that the hash begins with", .fallback = "0"},
    s_jsonOption,
};

struct Hash {
    std::uint32_t value;
    std::uint64_t bytes;
};

Hash hash_of_file(const std::string& path, std::uint32_t seed) {
    Input input(path);
    nqcore::MurmurHashContext context(seed);
    std::vector<char> buffer(64 * 1024);
    std::uint64_t bytes = 0;
    while (const std::size_t count = input.read(buffer.data(), buffer.size())) {
        context.update(buffer.data(), static_cast<unsigned>(count));
        bytes += count;
    }
    return {context.calculate_digest(), bytes};
}

std::string hex_text(std::uint32_t number) {
    std::string text;
    for (int shift = 28; shift >= 0; shift -= 4) {
        text += "0123456789abcdef"[number >> shift & 15];
    }
    return text;
}

std::uint32_t seed_of(const Arguments& arguments) {
    try {
        return nqcore::string_to<std::uint32_t>(arguments.value("seed"));
    } catch (const nqcore::ErrorException& failure) {
        throw_usage("--seed takes a number of 32 bits", failure.error());
    }
}

int run_hash(Context& context) {
    const Arguments& arguments = context.arguments;
    const std::uint32_t seed = seed_of(arguments);
    const bool isText = arguments.has("text");
    if (isText && !arguments.has("FILE")) {
        throw_usage("--text without a text");
    }
    for (const std::string& name : input_paths(arguments)) {
        const Hash hash = isText ? Hash{nqcore::murmur_hash_seeded(name, seed), name.size()} : hash_of_file(name, seed);
        if (arguments.has("json")) {
            JsonObject object;
            object.add(isText ? "text" : "input", name).add("hash", hex_text(hash.value));
            context.out.write(object.add("seed", seed).add("bytes", hash.bytes).line());
        } else {
            context.out.write(hex_text(hash.value) + "  " + name + '\n');
        }
    }
    return s_exitDone;
}

}  // namespace

constinit const Command s_hashCommand{
    .name = "hash",
    .summary = "Write the MurmurHash3 (x86, 32 bits) of files or texts",
    .details = "Fast, and not cryptographic: it finds accidents, not attacks.\n",
    .options = s_options,
    .run = run_hash,
};

}  // namespace nq

// Runs a fuzz target over every file named on the command line, or found below a folder named there, and over the
// neighbours of each short one: its prefixes, and itself with any one byte changed.
// Stands in for libFuzzer where the compiler has none; takes and ignores its options.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <span>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> inputs_of(const fs::path& place) {
    if (!fs::is_directory(place)) {
        return {place};
    }
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(place)) {
        if (entry.is_regular_file()) {
            files.push_back(entry.path());
        }
    }
    std::ranges::sort(files);
    return files;
}

// A copy of the exact size on the heap, so that the address sanitizer sees a read past the end.
void run(std::span<const std::uint8_t> bytes) {
    const auto copy = std::make_unique<std::uint8_t[]>(bytes.size());
    std::ranges::copy(bytes, copy.get());
    LLVMFuzzerTestOneInput(copy.get(), bytes.size());
}

void run_neighbours(std::vector<std::uint8_t> bytes) {
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        run(std::span(bytes).first(at));
        const std::uint8_t kept = bytes[at];
        for (unsigned value = 0; value < 256; ++value) {
            bytes[at] = static_cast<std::uint8_t>(value);
            run(bytes);
        }
        bytes[at] = kept;
    }
}

constexpr std::size_t s_longestWithNeighbours = 64;  // of longer ones there are too many to be quick

bool replay(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        std::fprintf(stderr, "cannot read %s\n", file.string().c_str());
        return false;
    }
    const std::vector<char> content{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    const std::vector<std::uint8_t> bytes(content.begin(), content.end());
    run(bytes);
    if (bytes.size() <= s_longestWithNeighbours) {
        run_neighbours(bytes);
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    std::size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument.starts_with('-')) {
            continue;
        }
        if (!fs::exists(argument)) {
            std::fprintf(stderr, "no such file or folder: %s\n", argument.c_str());
            return 1;
        }
        for (const fs::path& file : inputs_of(argument)) {
            if (!replay(file)) {
                return 1;
            }
            ++count;
        }
    }
    std::printf("%zu inputs replayed\n", count);
    if (count == 0) {
        std::fprintf(stderr, "an empty corpus proves nothing\n");
        return 1;
    }
    return 0;
}

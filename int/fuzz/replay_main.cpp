// Runs a fuzz target once over every file named on the command line, or found below a folder named there.
// Stands in for libFuzzer where the compiler has none; takes and ignores its options.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
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

bool replay(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        std::fprintf(stderr, "cannot read %s\n", file.string().c_str());
        return false;
    }
    const std::vector<char> content{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    // A copy of the exact size on the heap, so that the address sanitizer sees a read past the end.
    const std::vector<std::uint8_t> bytes(content.begin(), content.end());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
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

#include "dump_file.h"

#include "nqcore/abs_rel_time.h"
#include "nqcore/utc_text.h"
#include "platform/dump.h"
#include "platform/environment.h"
#include "platform/module.h"
#include "platform/process.h"

#include <cstdint>
#include <exception>
#include <string_view>

namespace nqcore::impl {
namespace {

constexpr unsigned s_maxAttempts = 100;

std::string trace_root() {
    std::string folder;
    bool found = false;
    static_cast<void>(platform::read_variable("KAVO_TRACE_ROOT", folder, found));
    return folder;
}

std::string write_new_file() {
    std::string folder = trace_root();
    if (folder.empty()) {
        folder = platform::temporary_folder();
    }
    const std::string time(UtcText::iso8601(AbsoluteTime::now()).view());
    const std::string name = dump_name(platform::program_path(), time, platform::process_id());
    for (unsigned attempt = 1; attempt <= s_maxAttempts; ++attempt) {
        const std::string number = attempt == 1 ? std::string() : '_' + std::to_string(attempt);
        const std::string path = platform::joined_path(folder, name + number + std::string(platform::dump_extension()));
        switch (platform::write_dump(path)) {
            case platform::DumpResult::Written:
                return path;
            case platform::DumpResult::NameTaken:
                break;
            case platform::DumpResult::Failed:
                return {};
        }
    }
    return {};
}

}  // namespace

std::string dump_name(const std::string& programPath, const std::string& utcTime, unsigned long process) {
    std::string_view program = programPath;
    program.remove_prefix(program.find_last_of("/\\") + 1);
    if (program.ends_with(".exe") || program.ends_with(".EXE")) {
        program.remove_suffix(4);
    }
    std::string name(program.empty() ? "program" : program);
    name += '_';
    for (const char character : std::string_view(utcTime)) {
        if (character != '-' && character != ':') {  // not in the names of files
            name += character;
        }
    }
    return name + '_' + std::to_string(process);
}

bool is_dump_folder_configured() noexcept {
    try {
        return !trace_root().empty();
    } catch (const std::exception&) {
        return false;
    }
}

std::string write_dump_file() noexcept {
    try {
        return write_new_file();
    } catch (const std::exception&) {
        return {};
    }
}

}  // namespace nqcore::impl

#include "output.h"

#include "errors.h"
#include "nqcore/error_composer.h"

namespace nq {

namespace {

constexpr SourceFile s_source("$Id: //nqcore/int/src/nq/output.cpp#1 $");

constexpr nqcore::ErrorTemplate s_cannotCreate("cannot create '{@output}'", "output");
constexpr nqcore::ErrorTemplate s_cannotWrite("cannot write to {@output}; the output is not complete", "output");

}  // namespace

Output::Output(const std::string& path) : m_name("'" + path + "'"), m_isOwn(true) {
    if (const int errorNumber = platform::open_for_writing(path, m_file)) {
        const auto location = s_source.here("nq::Output::Output()");
        s_cannotCreate.compose(std::string_view(path)).throw_with_nested_errno(error::output, location, errorNumber);
    }
}

Output::~Output() {
    if (m_isOwn) {
        static_cast<void>(platform::close_file(m_file));
    }
}

void Output::write(std::string_view bytes) {
    if (m_buffer.size() + bytes.size() > s_bufferSize) {
        flush();
    }
    if (bytes.size() >= s_bufferSize) {
        write_through(bytes);
    } else {
        m_buffer.append(bytes);
    }
}

void Output::flush() {
    write_through(m_buffer);
    m_buffer.clear();
}

void Output::close() {
    flush();
    if (m_isOwn) {
        m_isOwn = false;
        if (const int errorNumber = platform::close_file(m_file)) {
            fail(errorNumber);
        }
    }
}

void Output::write_through(std::string_view bytes) {
    if (m_hasFailed || bytes.empty()) {
        return;
    }
    if (const int errorNumber = platform::write_file(m_file, bytes.data(), bytes.size())) {
        fail(errorNumber);
    }
}

void Output::fail(int errorNumber) {
    m_hasFailed = true;
    const auto location = s_source.here("nq::Output::write()");
    s_cannotWrite.compose(std::string_view(m_name)).throw_with_nested_errno(error::output, location, errorNumber);
}

}  // namespace nq

// A failed assertion as an exception, and where an error was thrown.
#include <nqcore/process_info.h>

#define NQCORE_ASSERTIONS 1
#include <nqcore/assertion.h>
#include <nqcore/error_exception.h>
#include <nqcore/stack_trace.h>
#include <nqcore/string_to.h>

#include <iostream>
#include <string>

namespace {

char item(const std::string& items, std::size_t index) {
    NQCORE_ASSERT_DETAILS(index < items.size(), "the list ends before that");
    return items[index];
}

}  // namespace

int main() {
    // Servers without anybody to ask want exceptions.
    nqcore::set_environment_variable("KAVO_ASSERT_THROW_ALWAYS", "yes");
    try {
        std::cout << item("abc", 4) << '\n';
    } catch (const nqcore::ErrorException& e) {
        const nqcore::ErrorParams& params = e.error()->params();
        std::cout << e.error()->code() << '\n';
        std::cout << params.get_value("expression") << ": " << params.get_value("details") << '\n';
        std::cout << "with a stack trace: " << !params.get_value("stackTrace").empty() << '\n';
    }

    nqcore::keep_error_traces(true);
    try {
        std::cout << nqcore::string_to<int>("x") << '\n';
    } catch (const nqcore::ErrorException& e) {
        std::cout << "frames kept by the exception: " << (e.stack_trace()->size() > 0) << '\n';
    }
    std::cout << "frames here: " << (nqcore::StackTrace::capture().size() > 0) << '\n';
}

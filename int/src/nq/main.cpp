// `nq`: the library's families on the command line.
#include "platform/process.h"
#include "tool.h"

int main(int count, char** arguments) {
    std::vector<std::string> words = nq::platform::start(count, arguments);
    nq::Output out(nq::platform::s_standardOutput, "standard output");
    nq::Output err(nq::platform::s_standardError, "standard error");
    return nq::run_tool(std::move(words), out, err);
}

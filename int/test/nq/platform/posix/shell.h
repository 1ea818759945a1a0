// Running a shell's command line in a test.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

/// What the command writes to standard output. It has to succeed.
inline std::string answer_of(const std::string& command) {
    std::string answer;
    std::FILE* const pipe = popen(command.c_str(), "r");
    char buffer[4096];
    for (std::size_t count = 0; (count = std::fread(buffer, 1, sizeof buffer, pipe)) != 0;) {
        answer.append(buffer, count);
    }
    EXPECT_EQ(pclose(pipe), 0) << command;
    return answer;
}

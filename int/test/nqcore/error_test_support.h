// What the tests of errors share.
#pragma once

#include "nqcore/testing/error_matchers.h"

#include <gtest/gtest.h>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace nqcore {

using matchers::HasCause;
using matchers::HasCode;
using matchers::HasMessage;
using matchers::HasParam;
using matchers::ThrowsError;
using ::testing::AllOf;

inline constexpr SourceLocation s_location("app::f()", "$Id: //app/f.cpp#1 $", 7);

inline ErrorInfo::Ptr record(const char* code = "error.a", const char* message = "message", ErrorParams params = {},
                             ErrorInfo::Ptr nested = {}) {
    return ErrorInfo::create(code, message, std::move(params), s_location, std::move(nested));
}

/// The place of a virtual function in the table of its class, from 0.
template <class Function>
std::size_t virtual_slot(Function function) {
    std::size_t word = 0;  // a pointer to a virtual function begins with its offset in the table, plus 1
    std::memcpy(&word, &function, sizeof word);
    return (word - 1) / sizeof(void*);
}

/// Each of `items`, seen through `value`, equals itself and is less than those behind it.
template <class T, std::size_t Count, class Value = std::identity>
void expect_ascending(const T (&items)[Count], Value value = {}) {
    for (std::size_t i = 0; i < Count; ++i) {
        for (std::size_t j = 0; j < Count; ++j) {
            EXPECT_EQ(value(items[i]) < value(items[j]), i < j) << i << ' ' << j;
            EXPECT_EQ(value(items[i]) == value(items[j]), i == j) << i << ' ' << j;
        }
    }
}

/// What a future or a result says of itself.
template <class Outcome>
std::string state_of(const Outcome& outcome) {
    return std::string(outcome.is_ready() ? "ready" : "") + (outcome.has_value() ? " value" : "") +
           (outcome.has_error() ? " error" : "");
}

/// Calls `work` with each of `slots`, every call on a thread of its own, and waits for them all.
template <class Slot, class Work>
void run_on_threads(std::vector<Slot>& slots, Work work) {
    std::vector<std::thread> threads;
    for (Slot& slot : slots) {
        threads.emplace_back([&work, &slot] { work(slot); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace nqcore

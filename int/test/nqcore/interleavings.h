// Every order in which a few threads can take their steps, tried on a model.
#pragma once

#include <gtest/gtest.h>
#include <algorithm>
#include <array>
#include <cstddef>
#include <set>
#include <string>
#include <vector>

namespace nqcore {

inline constexpr int s_done = -1;

/// Walks all states that can be reached from `initial`.
///
/// In       `State`: ordered, with `at` (where each thread stands, `s_done` when it is through), `step(thread)`, which
///          takes the next atomic step of a thread or returns false while it has to wait, `fault` (null, or what has gone
///          wrong) and `fault_at_end()`.
/// Returns  the first fault, "stuck" when threads wait for each other, or "" when no order goes wrong.
template <class State>
std::string first_fault(const State& initial, std::size_t fewestStates = 0) {
    std::set<State> seen{initial};
    std::vector<State> open{initial};
    while (!open.empty()) {
        const State state = open.back();
        open.pop_back();
        bool moved = false;
        for (std::size_t thread = 0; thread < state.at.size(); ++thread) {
            State next = state;
            if (state.at[thread] == s_done || !next.step(thread)) {
                continue;
            }
            moved = true;
            if (next.fault != nullptr) {
                return next.fault;
            }
            if (seen.insert(next).second) {
                open.push_back(next);
            }
        }
        if (!moved && std::count(state.at.begin(), state.at.end(), s_done) != std::ssize(state.at)) {
            return "stuck";
        }
        if (const char* const fault = moved ? nullptr : state.fault_at_end(); fault != nullptr) {
            return fault;
        }
    }
    return seen.size() < fewestStates ? "too few states: " + std::to_string(seen.size()) : "";
}

/// Does every sequence of `length` operations in a `World` of its own, which checks itself after each.
template <std::size_t length, class World, std::size_t choices>
void for_each_sequence(void (*const (&operations)[choices])(World&)) {
    std::array<std::size_t, length> sequence{};
    for (std::size_t place = 0; place != length && !testing::Test::HasFatalFailure();) {
        World world;
        for (const std::size_t operation : sequence) {
            operations[operation](world);
            world.check();
        }
        for (place = 0; place < length && ++sequence[place] == choices; ++place) {
            sequence[place] = 0;
        }
    }
}

}  // namespace nqcore

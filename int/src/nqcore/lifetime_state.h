// How far the library's start and stop have come.
#pragma once

#include <cstdint>

namespace nqcore::impl {

enum class StopState : std::int32_t { Running = 0, Stopping = 1, Stopped = 2 };

/// Users that have started the library and not yet stopped it.
[[nodiscard]] std::int32_t init_count() noexcept;
[[nodiscard]] StopState stop_state() noexcept;
/// True on the thread that performs or has performed the stop.
[[nodiscard]] bool is_stop_thread() noexcept;

}  // namespace nqcore::impl

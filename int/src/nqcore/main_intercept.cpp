#include "nqcore/main_intercept.h"

#include "platform/main_exit.h"

#include <atomic>

namespace nqcore {
namespace {

constinit std::atomic<bool> s_hasExited = false;

// The last chance to notice. The system's watch begins as early as the library can have it.
struct Backstop {
    Backstop() noexcept { platform::watch_main_thread(); }
    ~Backstop() { s_hasExited.store(true, std::memory_order_relaxed); }
};
const Backstop s_backstop;

}  // namespace

bool has_main_exited() noexcept {
    return s_hasExited.load(std::memory_order_relaxed) || platform::has_main_thread_ended();
}

// A scope that is entered after another has ended is that of a host which runs several programs in one process.
MainScope::MainScope() noexcept { s_hasExited.store(false, std::memory_order_relaxed); }

MainScope::~MainScope() { s_hasExited.store(true, std::memory_order_relaxed); }

}  // namespace nqcore

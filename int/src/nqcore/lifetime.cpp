#include "nqcore/lifetime.h"

#include "lifetime_state.h"
#include "static_instance_cleanup.h"

#include <ace/Init_ACE.h>
#include <ace/OS_NS_Thread.h>

#include <atomic>

namespace nqcore::impl {
namespace {

constinit std::int32_t s_initCount = 0;
constinit std::atomic<StopState> s_stopState = StopState::Running;
constinit ACE_thread_t s_stopThread = {};  // written before the state leaves Running

void set_stop_state(StopState state) noexcept { s_stopState.store(state, std::memory_order_release); }

int stop() {
    __atomic_store_n(&s_stopThread, ACE_OS::thr_self(), __ATOMIC_RELAXED);
    set_stop_state(StopState::Stopping);
    int result = 0;
    do {
        result = ACE::fini();
    } while (result == 1);
    StaticInstanceCleanup::let_library_go();
    set_stop_state(StopState::Stopped);
    return result;
}

}  // namespace

std::int32_t init_count() noexcept { return __atomic_load_n(&s_initCount, __ATOMIC_ACQUIRE); }

StopState stop_state() noexcept { return s_stopState.load(std::memory_order_acquire); }

bool is_stop_thread() noexcept {
    return stop_state() != StopState::Running &&
           ACE_OS::thr_equal(__atomic_load_n(&s_stopThread, __ATOMIC_RELAXED), ACE_OS::thr_self()) != 0;
}

}  // namespace nqcore::impl

int nqcore_managed_init() {
    const std::int32_t users = __atomic_add_fetch(&nqcore::impl::s_initCount, 1, __ATOMIC_ACQ_REL);
    return users == 1 ? ACE::init() : users;
}

int nqcore_managed_fini() {
    const std::int32_t users = __atomic_fetch_sub(&nqcore::impl::s_initCount, 1, __ATOMIC_ACQ_REL);
    return users == 1 ? nqcore::impl::stop() : users;
}

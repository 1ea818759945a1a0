#include "nqcore/static_instance.h"

#include "nqcore/error_exception.h"
#include "source_id.h"
#include "static_instance_cleanup.h"

#include <ace/OS_NS_Thread.h>
#include <ace/OS_NS_unistd.h>
#include <ace/Time_Value.h>

#include <atomic>

namespace nqcore::impl {
namespace {

constexpr SourceId s_source("$Id: //nqcore/int/src/nqcore/static_instance.cpp#1 $");
constexpr unsigned s_destroyedLine = 231;

// Not by waiting on the atomic: with the compiler's Windows runtime such a wait can miss its wake-up and last for ever.
void pause(unsigned looks) noexcept {
    if (looks < 50) {
        ACE_OS::thr_yield();
    } else {
        ACE_OS::sleep(ACE_Time_Value(0, 1'000));
    }
}

std::uintptr_t this_thread() noexcept { return static_cast<std::uintptr_t>(ACE_OS::thr_self()); }

}  // namespace

void StaticInstanceBase::register_cleanup_aux(void (*cleanup)(void*), void* argument) {
    StaticInstanceCleanup::instance().register_for_cleanup(cleanup, argument);
}

void StaticInstanceBase::throw_destroyed_error() {
    throw_error(error::nqcore_objectManager_closed,
                "Attempt to access static that has already been destroyed through object manager.  If this error is "
                "raised during application startup, it may be due to an initialization order issue (static object is "
                "being accessed before it has been constructed).",
                s_source.at("nqcore::impl::StaticInstanceBase::throw_destroyed_error()", s_destroyedLine));
}

bool StaticInstanceCore::change_phase(int from, int to) noexcept {
    return std::atomic_ref(m_phase).compare_exchange_strong(from, to, std::memory_order_acq_rel);
}

void StaticInstanceCore::mark_destroyed() noexcept {
    std::atomic_ref(m_phase).store(s_destroyed, std::memory_order_release);
}

// Waits while another thread builds. True: the caller builds now; false: the object is ready.
bool StaticInstanceCore::begin() {
    std::atomic_ref phase(m_phase);
    std::atomic_ref builder(m_builder);
    for (unsigned looks = 0;; ++looks) {
        int seen = s_unbuilt;
        if (phase.compare_exchange_strong(seen, s_building, std::memory_order_acquire)) {
            builder.store(this_thread(), std::memory_order_relaxed);
            return true;
        }
        if (seen == s_ready) {
            return false;
        }
        if (seen == s_destroyed) {
            throw_destroyed_error();
        }
        // Another thread's number, or none, whatever moment it is read at; this thread's own only if it builds.
        if (builder.load(std::memory_order_relaxed) == this_thread()) {
            throw_error(error::nqcore_objectManager, "The constructor of a static instance asked for its own instance",
                        s_source.here("nqcore::impl::StaticInstanceCore::begin()"));
        }
        pause(looks);
    }
}

// Registered after it is complete: what the constructor uses was registered earlier and is destroyed later.
void StaticInstanceCore::build(void* holder, Work construct, Work destroy, Work cleanup) {
    if (!begin()) {
        return;
    }
    std::atomic_ref builder(m_builder);
    bool constructed = false;
    try {
        construct(holder);
        constructed = true;
        register_cleanup_aux(cleanup, holder);
    } catch (...) {
        if (constructed) {
            destroy(holder);
        }
        builder.store(0, std::memory_order_relaxed);
        static_cast<void>(change_phase(s_building, s_unbuilt));
        throw;
    }
    builder.store(0, std::memory_order_relaxed);
    if (!change_phase(s_building, s_ready)) {
        throw_destroyed_error();  // the object manager closed in between, and the cleanup has run
    }
}

}  // namespace nqcore::impl

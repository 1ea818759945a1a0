#include "static_instance_cleanup.h"

#include "nqcore/error_exception.h"
#include "nqcore/error_info.h"
#include "platform/module.h"
#include "source_id.h"

#include <ace/Guard_T.h>
#include <ace/Object_Manager.h>

#include <cerrno>
#include <iostream>
#include <new>

namespace nqcore::impl {
namespace {

constexpr SourceId s_source("$Id: //nqcore/int/src/nqcore/static_instance.cpp#1 $");
constexpr unsigned s_atExitLine = 65;
constexpr unsigned s_registerLine = 96;

using Guard = ACE_Guard<ACE_Thread_Mutex>;

constinit void* s_heldLibrary = nullptr;

// The hook outlives an unloading of the library, unless the library stays until the hook has run.
int at_exit_of_object_manager(void* object, void (*hook)(void*, void*)) {
    const int result = ACE_Object_Manager::at_exit(object, hook, nullptr);
    if (result != -1) {
        __atomic_store_n(&s_heldLibrary, platform::hold_own_module(), __ATOMIC_RELEASE);
    }
    return result;
}

void empty_queue(void* queue, void*) { static_cast<StaticInstanceCleanup*>(queue)->empty(); }

/// The process's queue. At the end of the process the object manager may close after the library's static objects have
/// gone, so only a closed queue is destroyed with them, which is what a library that is unloaded has.
struct ProcessQueue {
    constexpr ProcessQueue() noexcept = default;
    ~ProcessQueue() {
        if (queue != nullptr && queue->is_closed()) {
            queue->~StaticInstanceCleanup();
        }
    }

    alignas(StaticInstanceCleanup) unsigned char storage[sizeof(StaticInstanceCleanup)] = {};
    StaticInstanceCleanup* queue = nullptr;
};
constinit ProcessQueue s_process;

}  // namespace

StaticInstanceCleanup& StaticInstanceCleanup::instance() {
    static StaticInstanceCleanup& s_queue =
        *(s_process.queue = ::new (s_process.storage) StaticInstanceCleanup(&at_exit_of_object_manager));
    return s_queue;
}

StaticInstanceCleanup::StaticInstanceCleanup(AtExit atExit) {
    if (atExit(this, &empty_queue) == -1) {
        const int failure = errno;
        const ErrorInfo::Ptr error = ErrorInfo::from_errno(
            s_source.at("nqcore::impl::StaticInstanceCleanup::StaticInstanceCleanup()", s_atExitLine), failure);
        std::cerr << "nqcore: Error registering with ACE Object Manager for cleanup: " << ErrorInfo::Trace{*error}
                  << std::endl;
    }
}

void StaticInstanceCleanup::register_for_cleanup(Cleanup cleanup, void* argument) {
    const Guard guard(m_mutex);
    if (m_closed) {
        throw_error(error::nqcore_objectManager_closed,
                    "Cannot register objects for cleanup after object manager has already been closed",
                    s_source.at("nqcore::impl::StaticInstanceCleanup::register_for_cleanup()", s_registerLine));
    }
    m_entries.emplace_back(cleanup, argument);
}

void StaticInstanceCleanup::empty() noexcept {
    Guard guard(m_mutex);
    while (!m_entries.empty()) {
        const auto [cleanup, argument] = m_entries.back();
        m_entries.pop_back();
        guard.release();
        try {
            cleanup(argument);
        } catch (...) {
            // Deliberate: one cleanup that fails does not keep the others from running.
        }
        guard.acquire();
    }
    m_closed = true;
}

bool StaticInstanceCleanup::is_closed() noexcept {
    const Guard guard(m_mutex);
    return m_closed;
}

void StaticInstanceCleanup::let_library_go() noexcept {
    if (void* const held = __atomic_exchange_n(&s_heldLibrary, nullptr, __ATOMIC_ACQ_REL)) {
        platform::release_module(held);
    }
}

}  // namespace nqcore::impl

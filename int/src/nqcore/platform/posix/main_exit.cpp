#include "../main_exit.h"

#include <semaphore.h>
#include <sys/mman.h>
#include <unistd.h>
#include <atomic>

// The C library's registration of destructors of thread-local objects.
extern "C" int __cxa_thread_atexit_impl(void (*destructor)(void*), void* object, void* module) noexcept;

namespace nqcore::platform {
namespace {

constinit std::atomic<sem_t*> s_ended = nullptr;

}  // namespace

// The first thing that happens when the main thread ends is the destruction of its thread-local objects, before all
// static destructors. An object of this library would keep the library from being unloaded for as long as the thread
// lives. So what is registered belongs to the C library, code and all: posting a semaphore, which outlives this library, and
// is therefore not on the heap, where it would be taken for a leak.
void watch_main_thread() noexcept {
    if (::gettid() != ::getpid()) {
        return;
    }
    void* const place = ::mmap(nullptr, sizeof(sem_t), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (place == MAP_FAILED) {
        return;
    }
    auto* const ended = static_cast<sem_t*>(place);
    if (::sem_init(ended, 0, 0) != 0) {
        return;
    }
    // By way of a type that any function may be converted to; what it returns is not looked at.
    const auto post = reinterpret_cast<void (*)(void*)>(reinterpret_cast<void (*)()>(&::sem_post));
    if (__cxa_thread_atexit_impl(post, ended, reinterpret_cast<void*>(&::sem_post)) == 0) {
        s_ended.store(ended, std::memory_order_release);
    }
}

bool has_main_thread_ended() noexcept {
    sem_t* const ended = s_ended.load(std::memory_order_acquire);
    int posts = 0;
    return ended != nullptr && ::sem_getvalue(ended, &posts) == 0 && posts > 0;
}

}  // namespace nqcore::platform

#include "platform/thread_slot.h"

#include <windows.h>

namespace nqcore::platform {
namespace {

// Not `thread_local`: this compiler's runtime keeps such memory in a table of its own, with a destructor that threads
// would still call after the library has been unloaded.
class Slot {
public:
    Slot() noexcept : m_index(TlsAlloc()) {}
    Slot(const Slot&) = delete;
    Slot& operator=(const Slot&) = delete;
    ~Slot() {
        if (m_index != TLS_OUT_OF_INDEXES) {
            TlsFree(m_index);
            m_index = TLS_OUT_OF_INDEXES;
        }
    }

    // Reading clears the thread's last error, which the caller may still want to see.
    [[nodiscard]] void* get() const noexcept {
        const DWORD lastError = GetLastError();
        void* const pointer = TlsGetValue(m_index);
        SetLastError(lastError);
        return pointer;
    }
    void set(void* pointer) const noexcept { TlsSetValue(m_index, pointer); }

private:
    DWORD m_index;
};

const Slot& slot() noexcept {
    static Slot s_slot;
    return s_slot;
}

}  // namespace

void* thread_slot() noexcept { return slot().get(); }

void set_thread_slot(void* pointer) noexcept { slot().set(pointer); }

}  // namespace nqcore::platform

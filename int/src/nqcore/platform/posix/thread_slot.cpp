#include "platform/thread_slot.h"

namespace nqcore::platform {
namespace {

constinit thread_local void* t_slot = nullptr;

}  // namespace

void* thread_slot() noexcept { return t_slot; }

void set_thread_slot(void* pointer) noexcept { t_slot = pointer; }

}  // namespace nqcore::platform

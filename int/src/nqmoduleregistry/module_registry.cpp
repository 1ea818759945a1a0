#include "nqmoduleregistry/module_registry.h"

#include <atomic>
#include <cstring>
#include <mutex>
#include <new>
#include <thread>

namespace nqmoduleregistry {
namespace {

char* copy_text(const char* text) noexcept {
    const std::size_t bytes = std::strlen(text) + 1;
    char* const copy = new (std::nothrow) char[bytes];
    if (copy != nullptr) {
        std::memcpy(copy, text, bytes);
    }
    return copy;
}

struct Entry {
    char* name;
    char* xml;
    Entry* next;
};

/// A lock that needs no construction. Nobody holds it for longer than a short list takes to search.
class SpinLock {
public:
    void lock() noexcept {
        while (m_taken.test_and_set(std::memory_order_acquire)) {
            std::this_thread::yield();
        }
    }
    void unlock() noexcept { m_taken.clear(std::memory_order_release); }

private:
    std::atomic_flag m_taken;
};

// Modules register while they are loaded and leave while they are unloaded, in any order with this library's own
// static objects: lock and list are constant-initialised and never destroyed.
constinit SpinLock s_lock;
constinit Entry* s_first = nullptr;

// The link that points at the entry called `name`, or at the end of the list.
Entry** find(const char* name) noexcept {
    Entry** link = &s_first;
    while (*link != nullptr && std::strcmp((*link)->name, name) != 0) {
        link = &(*link)->next;
    }
    return link;
}

void free_entry(Entry* entry) noexcept {
    delete[] entry->name;
    delete[] entry->xml;
    delete entry;
}

}  // namespace

ModuleInfo::~ModuleInfo() {
    delete[] m_name;
    delete[] m_xml;
}

bool add_module_info(const char* name, const char* xml) noexcept {
    if (name == nullptr || xml == nullptr) {
        return false;
    }
    const std::lock_guard lock(s_lock);
    Entry** const link = find(name);
    if (*link != nullptr) {
        return false;
    }
    auto* const entry = new (std::nothrow) Entry{nullptr, nullptr, nullptr};
    if (entry == nullptr) {
        return false;
    }
    entry->name = copy_text(name);
    entry->xml = copy_text(xml);
    if (entry->name == nullptr || entry->xml == nullptr) {
        free_entry(entry);
        return false;
    }
    *link = entry;
    return true;
}

bool query_module_info(const char* name, ModuleInfo* info) noexcept {
    if (name == nullptr || info == nullptr) {
        return false;
    }
    const std::lock_guard lock(s_lock);
    const Entry* const entry = *find(name);
    if (entry == nullptr) {
        return false;
    }
    char* const nameCopy = copy_text(entry->name);
    char* const xmlCopy = copy_text(entry->xml);
    if (nameCopy == nullptr || xmlCopy == nullptr) {
        delete[] nameCopy;
        delete[] xmlCopy;
        return false;
    }
    delete[] info->m_name;
    delete[] info->m_xml;
    info->m_name = nameCopy;
    info->m_xml = xmlCopy;
    return true;
}

bool remove_module_info(const char* name) noexcept {
    if (name == nullptr) {
        return false;
    }
    const std::lock_guard lock(s_lock);
    Entry** const link = find(name);
    Entry* const entry = *link;
    if (entry == nullptr) {
        return false;
    }
    *link = entry->next;
    free_entry(entry);
    return true;
}

}  // namespace nqmoduleregistry

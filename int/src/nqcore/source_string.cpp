#include "nqcore/source_string.h"

#include "dynamic_source_string_holder.h"

#include <cstring>
#include <limits>
#include <new>
#include <ostream>
#include <stdexcept>
#include <string>

namespace nqcore {
namespace impl {

struct DynamicSourceStringHolder::Extension {
    StringTraceData::Ptr kept;
    TraceFileOffsets offsets;
};

DynamicSourceStringHolder* DynamicSourceStringHolder::allocate(unsigned length) {
    const std::size_t bytes = std::size_t{size} + length + 1;
    if (bytes <= length) {
        throw std::bad_alloc();  // 32-bit address space
    }
    auto* const holder = ::new (::operator new(bytes)) DynamicSourceStringHolder(length);
    holder->characters()[length] = '\0';
    return holder;
}

void DynamicSourceStringHolder::destroy() {
    this->~DynamicSourceStringHolder();
    ::operator delete(static_cast<void*>(this));
}

DynamicSourceStringHolder::~DynamicSourceStringHolder() { delete m_extension; }

void DynamicSourceStringHolder::keep(const StringTraceData::Ptr& data) { m_extension = new Extension{data, {}}; }

DynamicSourceStringHolder::Extension* DynamicSourceStringHolder::extension() const noexcept {
    return __atomic_load_n(&m_extension, __ATOMIC_ACQUIRE);
}

bool DynamicSourceStringHolder::query_trace_file_offset(unsigned sink, unsigned fileNumber,
                                                        std::uint64_t* offset) const noexcept {
    const Extension* const known = extension();
    if (known == nullptr) {
        return false;
    }
    return known->kept ? known->kept->query_trace_file_offset(sink, fileNumber, offset)
                       : known->offsets.query(sink, fileNumber, offset);
}

void DynamicSourceStringHolder::set_trace_file_offset(unsigned sink, unsigned fileNumber,
                                                      std::uint64_t offset) const noexcept {
    Extension* known = extension();
    if (known == nullptr) {
        auto* const made = new (std::nothrow) Extension;
        if (made == nullptr) {
            return;
        }
        if (__atomic_compare_exchange_n(&m_extension, &known, made, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE)) {
            known = made;
        } else {
            delete made;
        }
    }
    if (known->kept) {
        known->kept->set_trace_file_offset(sink, fileNumber, offset);
    } else {
        known->offsets.set(sink, fileNumber, offset);
    }
}

}  // namespace impl

namespace {

using impl::DynamicSourceStringHolder;

// A length that SourceString can take; longer ones are clamped to one that it refuses.
unsigned narrow(std::size_t length) noexcept {
    constexpr std::size_t refused = 0x80000000u;
    return static_cast<unsigned>(length < refused ? length : refused);
}

}  // namespace

constexpr unsigned SourceString::npos;
constexpr char SourceString::sm_emptyStrData[1];

SourceString::SourceString(const StringTraceData::Ptr& data) {
    if (!data) {
        return;
    }
    const std::string_view text = data->trace_text();
    if (const auto* const shared = dynamic_cast<const DynamicSourceStringHolder*>(data.get()); shared != nullptr) {
        m_text = text.data();
        m_length = -static_cast<std::int32_t>(text.size());
        clone_dynamic();
        return;
    }
    SourceString copy(text.data(), narrow(text.size()));
    if (is_dynamic(copy.m_length)) {
        static_cast<DynamicSourceStringHolder*>(const_cast<RefCounted<AtomicRefCount>*>(copy.holder()))->keep(data);
    }
    swap(copy);
}

SourceString SourceString::create_reference(std::string_view text) { return {text.data(), narrow(text.size()), true}; }

SourceString SourceString::create_copy(std::string_view text) { return {text.data(), narrow(text.size())}; }

void SourceString::copy_text(const char* text, unsigned length) {
    if (text == nullptr) {
        return;
    }
    const unsigned bytes = length >= npos - 1 ? narrow(std::strlen(text)) : length;
    if (bytes > s_longest) {
        length_error();
    }
    if (bytes == 0) {
        return;
    }
    Holder made(DynamicSourceStringHolder::allocate(bytes));
    m_text = static_cast<const DynamicSourceStringHolder*>(made.detach())->characters();
    std::memcpy(const_cast<char*>(m_text), text, bytes);
    m_length = -static_cast<std::int32_t>(bytes);
}

unsigned SourceString::measure() const noexcept {
    // One below the marker at most: a text too long to be measured is cut, not measured for ever.
    const std::size_t length = std::strlen(m_text);
    const auto word = static_cast<std::int32_t>(length < s_longest ? length : s_longest - 1);
    __atomic_store_n(&m_length, word, __ATOMIC_RELAXED);
    return static_cast<unsigned>(word);
}

std::string SourceString::as_string() const { return std::string(view()); }

SourceString::operator std::string() const { return as_string(); }

StringTraceData::Ptr SourceString::query_trace_data() const noexcept {
    if (is_reference()) {
        return {};
    }
    return {static_cast<const DynamicSourceStringHolder*>(holder()), Holder(holder())};
}

int SourceString::compare(const char* text, unsigned length) const noexcept {
    if (text == m_text) {
        return 0;
    }
    const std::string_view other = text == nullptr      ? std::string_view()
                                   : length >= npos - 1 ? std::string_view(text)
                                                        : std::string_view(text, length);
    return view().compare(other);
}

void SourceString::length_error() { throw std::length_error("nqcore::SourceString : excessive string length"); }

std::ostream& operator<<(std::ostream& stream, const SourceString& text) { return stream << text.view(); }

}  // namespace nqcore

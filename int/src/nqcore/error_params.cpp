#include "nqcore/error_params.h"

#include "error_param_block.h"
#include "error_text.h"
#include "never_destroyed.h"

#include <cstring>
#include <ostream>
#include <string>
#include <utility>

namespace nqcore {
namespace {

using impl::ErrorParamBlock;
using impl::ErrorParamEntry;
using impl::NeverDestroyed;

// Most errors have one to three parameters.
constexpr unsigned s_firstCapacity = 3;

std::string_view text_of(const char* text, unsigned length) {
    if (text == nullptr) {
        return {};
    }
    return {text, length >= ErrorParams::npos - 1 ? std::strlen(text) : length};
}

struct Place {
    unsigned index;  // of the name, or of the entry before which it belongs
    bool found;
};

// Names are often added in order, so the last entry is looked at first.
Place find_place(ErrorParamBlock* block, std::string_view name) noexcept {
    const unsigned count = block == nullptr ? 0 : block->count();
    unsigned low = 0;
    unsigned high = count;
    unsigned probe = count == 0 ? 0 : count - 1;
    while (low < high) {
        const int order = block->entries()[probe].name.view().compare(name);
        if (order == 0) {
            return {probe, true};
        }
        if (order < 0) {
            low = probe + 1;
        } else {
            high = probe;
        }
        probe = low + (high - low) / 2;
    }
    return {low, false};
}

// Strong guarantee.
ErrorParamBlock* with_capacity(ErrorParamBlock* old, unsigned capacity) {
    ErrorParamBlock* const block = ErrorParamBlock::allocate(capacity);
    if (old != nullptr) {
        for (unsigned i = 0; i < old->count(); ++i) {
            ErrorParamEntry& entry = old->entries()[i];
            block->append(std::move(entry.name), std::move(entry.value));
        }
        old->destroy();
    }
    return block;
}

// Strong guarantee.
std::string& insert_at(ErrorParamBlock*& block, unsigned index, SourceString&& name, std::string&& value) {
    if (block == nullptr || block->count() == block->capacity()) {
        block = with_capacity(block, block == nullptr ? s_firstCapacity : block->capacity() * 2);
    }
    if (index == block->count()) {
        return block->append(std::move(name), std::move(value));
    }
    ErrorParamEntry* const entries = block->entries();
    ErrorParamEntry& last = entries[block->count() - 1];
    block->append(std::move(last.name), std::move(last.value));
    for (unsigned i = block->count() - 2; i > index; --i) {
        entries[i] = std::move(entries[i - 1]);
    }
    entries[index].name = std::move(name);
    entries[index].value = std::move(value);
    return entries[index].value;
}

// Strong guarantee.
void set_value(ErrorParamBlock*& block, impl::NameMaker makeName, std::string_view name, std::string_view value) {
    impl::check_text_length(name.size());
    impl::check_text_length(value.size());
    const Place place = find_place(block, name);
    if (block == nullptr) {
        block = ErrorParamBlock::allocate(s_firstCapacity);
    }
    if (!place.found && place.index == block->count() && block->count() < block->capacity()) {
        block->append(makeName, name, value);
        return;
    }
    // The value may be a view into the set, so it is made before anything moves.
    std::string text(value);
    if (place.found) {
        block->entries()[place.index].value = std::move(text);
    } else {
        insert_at(block, place.index, makeName(name), std::move(text));
    }
}

const std::string& empty_value() noexcept {
    static const NeverDestroyed<std::string> s_empty;
    return s_empty.value;
}

}  // namespace

constexpr unsigned ErrorParams::npos;

ErrorParams::ErrorParams(const ErrorParams& other) {
    if (other.empty()) {
        return;
    }
    ErrorParams copy;
    copy.reserve(other.size());
    for (unsigned i = 0; i < other.size(); ++i) {
        copy.m_block->append(other.name_at(i), other.value_at(i));
    }
    swap(copy);
}

ErrorParams ErrorParams::from_literals(const std::string_view* names, const std::string_view* values, unsigned count) {
    ErrorParams params;
    if (count != 0) {
        params.m_block = ErrorParamBlock::allocate(count);
        for (unsigned i = 0; i < count; ++i) {
            impl::check_text_length(values[i].size());
            params.m_block->append(&SourceString::create_reference, names[i], values[i]);
        }
    }
    return params;
}

ErrorParams& ErrorParams::operator=(const ErrorParams& other) {
    ErrorParams copy(other);
    swap(copy);
    return *this;
}

ErrorParams& ErrorParams::operator=(ErrorParams&& other) noexcept {
    ErrorParams taken(std::move(other));
    swap(taken);
    return *this;
}

void ErrorParams::swap(ErrorParams& other) noexcept { std::swap(m_block, other.m_block); }

void ErrorParams::clear() noexcept { *this = ErrorParams(); }

void ErrorParams::destroy_block() noexcept { m_block->destroy(); }

void ErrorParams::reserve(unsigned count) {
    if (count > (m_block == nullptr ? 0 : m_block->capacity())) {
        m_block = with_capacity(m_block, count);
    }
}

ErrorParams& ErrorParams::add(const char* name, unsigned nameLength, const char* value, unsigned valueLength) {
    return add(text_of(name, nameLength), text_of(value, valueLength));
}

ErrorParams& ErrorParams::add_string(const char* name, unsigned nameLength, const char* value, unsigned valueLength) {
    return add(name, nameLength, value, valueLength);
}

ErrorParams& ErrorParams::add(std::string_view name, std::string_view value) {
    set_value(m_block, &SourceString::create_copy, name, value);
    return *this;
}

ErrorParams& ErrorParams::add_literal_name(std::string_view name, std::string_view value) {
    set_value(m_block, &SourceString::create_reference, name, value);
    return *this;
}

ErrorParams& ErrorParams::add(std::string_view name, const char* value) { return add(name, text_of(value, npos)); }

ErrorParams& ErrorParams::add_signed(std::string_view name, long long value) {
    return add(name, impl::DecimalText(value).view());
}

ErrorParams& ErrorParams::add_unsigned(std::string_view name, unsigned long long value) {
    return add(name, impl::DecimalText(value).view());
}

ErrorParams& ErrorParams::add(const ErrorParams& other) {
    if (empty()) {
        return *this = other;
    }
    ErrorParams merged(*this);
    for (unsigned i = 0; i < other.size(); ++i) {
        merged.insert_ref(other.name_at(i)) = other.value_at(i);
    }
    swap(merged);
    return *this;
}

std::string& ErrorParams::insert_ref(const SourceString& name) {
    const Place place = find_place(m_block, name.view());
    return place.found ? m_block->entries()[place.index].value
                       : insert_at(m_block, place.index, SourceString(name), std::string());
}

std::string& ErrorParams::insert_ref(const char* name, unsigned length) {
    const Place place = find_place(m_block, text_of(name, length));
    return place.found ? m_block->entries()[place.index].value
                       : insert_at(m_block, place.index, SourceString::create_copy(name, length), std::string());
}

std::string ErrorParams::make_assign_value(const char* value) { return std::string(text_of(value, npos)); }

unsigned ErrorParams::count(const char* name, unsigned length) const noexcept {
    return find(text_of(name, length)) == nullptr ? 0 : 1;
}

bool ErrorParams::query_value(const char* name, unsigned length, std::string* out) const {
    const std::string* const value = find(text_of(name, length));
    if (value == nullptr) {
        return false;
    }
    *out = *value;
    return true;
}

const std::string& ErrorParams::get_value(const char* name, unsigned length) const noexcept {
    return get_value(text_of(name, length));
}

const std::string& ErrorParams::get_value(std::string_view name) const noexcept {
    const std::string* const value = find(name);
    return value == nullptr ? empty_value() : *value;
}

const std::string* ErrorParams::find(std::string_view name) const noexcept {
    if (name.size() > impl::longest_text) {
        return nullptr;  // nor is it read: no entry has such a name
    }
    const Place place = find_place(m_block, name);
    return place.found ? &m_block->entries()[place.index].value : nullptr;
}

unsigned ErrorParams::size() const noexcept { return m_block == nullptr ? 0 : m_block->count(); }

const SourceString& ErrorParams::name_at(unsigned index) const noexcept { return m_block->entries()[index].name; }

const std::string& ErrorParams::value_at(unsigned index) const noexcept { return m_block->entries()[index].value; }

int ErrorParams::compare(const ErrorParams& other) const noexcept {
    const unsigned common = size() < other.size() ? size() : other.size();
    for (unsigned i = 0; i < common; ++i) {
        if (const int order = name_at(i).compare(other.name_at(i)); order != 0) {
            return order;
        }
        if (const int order = value_at(i).compare(other.value_at(i)); order != 0) {
            return order;
        }
    }
    return size() == other.size() ? 0 : size() < other.size() ? -1 : 1;
}

std::uint32_t ErrorParams::hash() const noexcept {
    std::uint32_t seed = 0;
    for (unsigned i = 0; i < size(); ++i) {
        seed = impl::fold_hash(seed, impl::text_hash(name_at(i).view()));
        seed = impl::fold_hash(seed, impl::text_hash(value_at(i)));
    }
    return seed;
}

void ErrorParams::write_trace(std::ostream& stream, const char* separator) const {
    constexpr std::size_t nameLimit = 128;
    constexpr std::size_t valueLimit = 256;
    std::string text;
    for (unsigned i = 0; i < size(); ++i) {
        text.append(i == 0 ? std::string_view() : text_of(separator, npos));
        text += '\'';
        impl::append_cut(text, name_at(i).view(), nameLimit);
        text.append("' => \"");
        impl::append_cut(text, value_at(i), valueLimit);
        text += '"';
    }
    stream.write(text.data(), static_cast<std::streamsize>(text.size()));
}

SourceString ErrorParams::expanded_message(const SourceString& messageTemplate) const {
    return expanded_message_with_limit(messageTemplate, npos);
}

SourceString ErrorParams::expanded_message(const char* messageTemplate, unsigned length) const {
    return expanded_message_with_limit(messageTemplate, length, npos);
}

SourceString ErrorParams::expanded_message_with_limit(const SourceString& messageTemplate, unsigned limit) const {
    if (messageTemplate.view().find("{@") == std::string_view::npos) {
        return messageTemplate;
    }
    std::string text;
    impl::append_expanded(text, messageTemplate.view(), *this, limit);
    return SourceString::create_copy(text);
}

SourceString ErrorParams::expanded_message_with_limit(const char* messageTemplate, unsigned length,
                                                      unsigned limit) const {
    const std::string_view text = text_of(messageTemplate, length);
    impl::check_text_length(text.size());
    if (text.find("{@") == text.npos) {
        return SourceString::create_copy(text);
    }
    return expanded_message_with_limit(SourceString::create_reference(text), limit);
}

}  // namespace nqcore

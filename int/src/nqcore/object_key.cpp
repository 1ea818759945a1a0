#include "nqcore/object_key.h"

#include "never_destroyed.h"
#include "nqcore/error_exception.h"
#include "nqcore/random.h"
#include "nqcore/source_string.h"
#include "nqcore/static_instance.h"
#include "nqcore/string_util.h"
#include "nqcore/transforms.h"
#include "object_key_cache.h"

#include <ace/Guard_T.h>
#include <ace/Thread_Mutex.h>

#include <bit>
#include <cstring>
#include <new>
#include <ostream>
#include <stdexcept>
#include <string>

namespace nqcore {
namespace {

constexpr std::string_view s_nullText = "<null>";
constexpr std::size_t s_longestText = 0x7FFFFFFF;
constexpr unsigned s_randomBytes = 10;
constexpr unsigned s_randomTextLength = 16;

using impl::NeverDestroyed;
using impl::TracedKeyToken;

// The mutex under which texts are made on first request.
ACE_Thread_Mutex& text_mutex() {
    static NeverDestroyed<ACE_Thread_Mutex> s_mutex;
    return s_mutex.value;
}

// Calls `make` once for each flag, however many threads come.
template <class Make>
void make_once(bool& isMade, Make make) {
    const ACE_Guard<ACE_Thread_Mutex> guard(text_mutex());
    if (!__atomic_load_n(&isMade, __ATOMIC_RELAXED)) {
        make();
        __atomic_store_n(&isMade, true, __ATOMIC_RELEASE);
    }
}

bool is_made(const bool& isMade) noexcept { return __atomic_load_n(&isMade, __ATOMIC_ACQUIRE); }

void write_random_text(const unsigned char (&bytes)[s_randomBytes], char* out) {
    Base32::encode(ByteView(bytes, s_randomBytes), out, {.padding = false});
}

void check_length(std::size_t length, std::size_t longest) {
    if (length > longest) [[unlikely]] {
        throw std::length_error("nqcore::ObjectKey : excessive text length");
    }
}

class NullToken final : public TracedKeyToken {
public:
    constexpr NullToken() noexcept : TracedKeyToken(nullptr) {}
    ~NullToken() override = default;

protected:
    void destroy() override {}  // constants refer to it

private:
    void query_text(const char** text, unsigned int* length) const override {
        *text = s_nullText.data();
        *length = static_cast<unsigned>(s_nullText.size());
    }
};

class UniqueToken final : public TracedKeyToken {
private:
    void query_text(const char** text, unsigned int* length) const override {
        if (!is_made(m_isTextMade)) {
            // Drawn outside of the lock; whoever comes second drew them for nothing.
            unsigned char bytes[s_randomBytes];
            random_fill(bytes, s_randomBytes);
            make_once(m_isTextMade, [&] { write_random_text(bytes, m_text); });
        }
        *text = m_text;
        *length = s_randomTextLength;
    }

    mutable bool m_isTextMade = false;
    mutable char m_text[s_randomTextLength];
};

class LabelledToken final : public TracedKeyToken {
public:
    explicit LabelledToken(std::string_view label) {
        unsigned char bytes[s_randomBytes];
        random_fill(bytes, s_randomBytes);
        char random[s_randomTextLength];
        write_random_text(bytes, random);
        m_text.reserve(label.size() + 3 + s_randomTextLength);
        m_text.append(1, '"').append(label).append("\"_").append(random, s_randomTextLength);
    }

private:
    void query_text(const char** text, unsigned int* length) const override {
        *text = m_text.data();
        *length = static_cast<unsigned>(m_text.size());
    }

    std::string m_text;
};

class PlainPointerToken final : public impl::ObjectKeyTokenForPointerBase {
public:
    explicit PlainPointerToken(const void* pointer) noexcept : ObjectKeyTokenForPointerBase(pointer) {}
};

// Constants refer to the null tokens: these are there before any code runs.
constinit NeverDestroyed<NullToken> s_nullToken;

// The text hash starts here, so that nobody outside can foresee which texts collide.
constinit std::uint64_t s_hashSeed = 0;

// The caches are open as long as this lives.
class OpenCaches {
public:
    OpenCaches() {
        s_hashSeed = random_int64();
        impl::g_stringKeys.open();
        impl::g_uuidKeys.open();
    }
    ~OpenCaches() {
        impl::g_uuidKeys.close();
        impl::g_stringKeys.close();
    }
};

constinit StaticInstance<OpenCaches> s_caches;

// When the object manager has closed, nothing is opened any more, and the cache says so itself.
NQCORE_COLD void open_caches() {
    try {
        s_caches.get();
    } catch (const ErrorException& failure) {
        if (!failure.error()->matches(error::nqcore_objectManager_closed)) {
            throw;
        }
    }
}

template <class Token, class Key>
RefCountPtr<Token> interned(impl::ObjectKeyCache& cache, const Key& key, std::uint32_t (*hash)(Key)) {
    if (!cache.is_open()) [[unlikely]] {
        open_caches();
    }
    return cache.intern<Token>(key, hash(key));
}

template <class Word>
std::uint64_t load(const char* text) noexcept {
    Word word;
    std::memcpy(&word, text, sizeof word);
    return word;
}

// Up to eight bytes as a word. Loads that overlap take any number without a loop.
std::uint64_t load_few(const char* text, std::size_t size) noexcept {
    if (size >= 4) {
        return load<std::uint32_t>(text) | load<std::uint32_t>(text + size - 4) << 32;
    }
    if (size == 0) {
        return 0;
    }
    return load<unsigned char>(text) | load<unsigned char>(text + size / 2) << 8 |
           load<unsigned char>(text + size - 1) << 16;
}

}  // namespace

// ------------------------------------------------------------------------------------------------------------ tokens

constinit const RefCountPtr<ObjectKeyToken> ObjectKeyToken::sm_pDefaultToken(&s_nullToken.value, false);

const RefCountPtr<ObjectKeyToken>& ObjectKeyToken::default_token() noexcept { return sm_pDefaultToken; }

void ObjectKeyToken::write_trace(std::ostream& stream) const {
    if (StringTraceData::supported_by_stream(stream)) {
        if (const StringTraceData::Ptr data = query_trace_data()) {
            StringTraceData::write_to_stream(stream, data);
            return;
        }
    }
    stream << text();
}

std::string_view ObjectKeyToken::text() const {
    const char* text = nullptr;
    unsigned int length = 0;
    query_text(&text, &length);
    return {text, length};
}

StringTraceData::Ptr ObjectKeyToken::query_trace_data() const { return {}; }

namespace impl {

TracedKeyToken::~TracedKeyToken() { delete m_offsets; }

StringTraceData::Ptr TracedKeyToken::query_trace_data() const {
    static_cast<void>(text());
    return {this, RefCountPtr<const RefCounted<AtomicRefCount>>(this)};
}

bool TracedKeyToken::query_trace_file_offset(unsigned sink, unsigned fileNumber, std::uint64_t* offset) const noexcept {
    const TraceFileOffsets* const known = __atomic_load_n(&m_offsets, __ATOMIC_ACQUIRE);
    return known != nullptr && known->query(sink, fileNumber, offset);
}

void TracedKeyToken::set_trace_file_offset(unsigned sink, unsigned fileNumber, std::uint64_t offset) const noexcept {
    TraceFileOffsets* known = __atomic_load_n(&m_offsets, __ATOMIC_ACQUIRE);
    if (known == nullptr) {
        auto* const made = new (std::nothrow) TraceFileOffsets;
        if (made == nullptr) {
            return;
        }
        if (__atomic_compare_exchange_n(&m_offsets, &known, made, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE)) {
            known = made;
        } else {
            delete made;
        }
    }
    known->set(sink, fileNumber, offset);
}

ObjectKeyTokenForPointerBase::~ObjectKeyTokenForPointerBase() = default;

void ObjectKeyTokenForPointerBase::query_text(const char** text, unsigned int* length) const {
    if (!is_made(m_isTextMade)) {
        make_once(m_isTextMade, [this] {
            // Highest byte first, as pointers are written everywhere.
            unsigned char bytes[sizeof(void*)];
            auto rest = reinterpret_cast<std::uintptr_t>(key_value());
            for (unsigned i = sizeof bytes; i > 0; --i) {
                bytes[i - 1] = static_cast<unsigned char>(rest);
                rest >>= 8;
            }
            Hex::encode(ByteView(bytes, sizeof bytes), m_text);
        });
    }
    *text = m_text;
    *length = sizeof m_text;
}

CachedKeyToken::~CachedKeyToken() = default;

// The null token of the kind.
struct StringKeyToken::Default {
    StringKeyToken token{};
    RefCountPtr<StringKeyToken> pointer{&token, false};
    static NeverDestroyed<Default> s_instance;
};

constinit NeverDestroyed<StringKeyToken::Default> StringKeyToken::Default::s_instance;

const RefCountPtr<StringKeyToken>& StringKeyToken::default_token() noexcept {
    return Default::s_instance.value.pointer;
}

StringKeyToken::StringKeyToken(std::uint32_t hash, char* text, std::string_view value) noexcept
    : CachedKeyToken(hash), m_length(static_cast<unsigned>(value.size())), m_text(text) {
    std::memcpy(text, value.data(), value.size());
    text[value.size()] = '\0';
}

StringKeyToken::~StringKeyToken() = default;

StringKeyToken* StringKeyToken::create(std::string_view text, std::uint32_t hash) {
    void* const memory = ::operator new(sizeof(StringKeyToken) + text.size() + 1);
    return ::new (memory) StringKeyToken(hash, static_cast<char*>(memory) + sizeof(StringKeyToken), text);
}

void StringKeyToken::destroy() {
    if (key_value() == nullptr) {
        return;  // the default token
    }
    g_stringKeys.remove(*this);
    this->~StringKeyToken();
    ::operator delete(static_cast<void*>(this));
}

void StringKeyToken::query_text(const char** text, unsigned int* length) const {
    const std::string_view shown = key_value() == nullptr ? s_nullText : value();
    *text = shown.data();
    *length = static_cast<unsigned>(shown.size());
}

// The null token of the kind.
struct UuidKeyToken::Default {
    UuidKeyToken token{};
    RefCountPtr<UuidKeyToken> pointer{&token, false};
    static NeverDestroyed<Default> s_instance;
};

constinit NeverDestroyed<UuidKeyToken::Default> UuidKeyToken::Default::s_instance;

const RefCountPtr<UuidKeyToken>& UuidKeyToken::default_token() noexcept { return Default::s_instance.value.pointer; }

UuidKeyToken::UuidKeyToken(std::uint32_t hash, const Uuid& uuid) noexcept : CachedKeyToken(hash), m_uuid(uuid) {
    const UuidText text(uuid);
    static_cast<void>(text.view().copy(m_text, s_textLength));
}

UuidKeyToken::~UuidKeyToken() = default;

UuidKeyToken* UuidKeyToken::create(const Uuid& uuid, std::uint32_t hash) { return new UuidKeyToken(hash, uuid); }

void UuidKeyToken::destroy() {
    if (key_value() == nullptr) {
        return;  // the default token
    }
    g_uuidKeys.remove(*this);
    delete this;
}

void UuidKeyToken::query_text(const char** text, unsigned int* length) const {
    const std::string_view shown = key_value() == nullptr ? s_nullText : std::string_view(m_text, s_textLength);
    *text = shown.data();
    *length = static_cast<unsigned>(shown.size());
}

// Words of eight bytes, each multiplied into the rest; the last two may overlap.
std::uint32_t string_key_hash(std::string_view text) noexcept {
    constexpr std::uint64_t factor = 0x9E3779B97F4A7C15;
    const char* next = text.data();
    std::size_t size = text.size();
    std::uint64_t hash = s_hashSeed + size * factor;
    const auto mix = [&hash](std::uint64_t word) {
        hash = (hash ^ word) * factor;
        hash ^= hash >> 32;
    };
    for (; size > 8; size -= 8, next += 8) {
        mix(load<std::uint64_t>(next));
    }
    mix(text.size() >= 8 ? load<std::uint64_t>(next + size - 8) : load_few(next, size));
    return static_cast<std::uint32_t>(hash * factor >> 32);
}

}  // namespace impl

// -------------------------------------------------------------------------------------------------------------- keys

constinit const ObjectKey ObjectKey::null(&s_nullToken.value, false);

ObjectKey ObjectKey::create_unique() { return ObjectKey(RefCountPtr<ObjectKeyToken>(new UniqueToken)); }

ObjectKey ObjectKey::create_unique_with_label(const char* label, unsigned int length) {
    return create_unique_with_label(impl::measured_text(label, length));
}

ObjectKey ObjectKey::create_unique_with_label(std::string_view label) {
    check_length(label.size(), s_longestText - 3 - s_randomTextLength);
    return ObjectKey(RefCountPtr<ObjectKeyToken>(new LabelledToken(label)));
}

ObjectKey ObjectKey::from_pointer(const void* pointer) {
    return pointer == nullptr ? ObjectKey() : ObjectKey(RefCountPtr<ObjectKeyToken>(new PlainPointerToken(pointer)));
}

StringKey StringKey::from_string(const char* text) { return from_string(impl::measured_text(text, 0xFFFFFFFFu)); }

StringKey StringKey::from_string(const char* text, unsigned int length) {
    return from_string(impl::measured_text(text, length));
}

StringKey StringKey::from_string(std::string_view text) {
    check_length(text.size(), s_longestText);
    return StringKey(token_from_string(text.data(), static_cast<unsigned>(text.size())));
}

RefCountPtr<impl::StringKeyToken> StringKey::token_from_string(const char* text, unsigned int length) {
    if (length == 0) {
        return impl::StringKeyToken::default_token();
    }
    return interned<impl::StringKeyToken, std::string_view>(impl::g_stringKeys, {text, length}, impl::string_key_hash);
}

UuidKey UuidKey::from_uuid(const Uuid& uuid) {
    return UuidKey(interned<impl::UuidKeyToken, Uuid>(impl::g_uuidKeys, uuid, [](Uuid key) { return key.hash(); }));
}

SourceString::SourceString(const StringKey& key) {
    if (!key.is_null()) {
        SourceString text(key.query_trace_data());
        swap(text);
    }
}

}  // namespace nqcore

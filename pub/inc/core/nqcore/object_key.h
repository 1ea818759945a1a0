// Object keys: cheap handles that identify something and are compared and hashed by one machine word.
//
//     const auto job = nqcore::ObjectKey::create_unique_with_label("job", 3);   // "job"_MFZWIZTHNBVGWMJS in traces
//     const auto host = nqcore::StringKey::from_string("db-1.example");         // equal texts give equal keys
//     std::unordered_map<nqcore::StringKey, Connection> connections;            // no text is hashed or compared here
//
// A key is one pointer to a shared token, and the token holds the key value. Equal strings and equal UUIDs are interned:
// while any key of a text lives, every key made from that text shares its token. When the last one goes, the cache
// forgets the text.
#pragma once

#include "nqcore/config.h"
#include "nqcore/refcounted.h"
#include "nqcore/string_trace_data.h"
#include "nqcore/transfer_source.h"
#include "nqcore/uuid.h"

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string_view>

namespace nqcore {

class StringKey;
class UuidKey;

/// What the copies of a key share: the key value and the text for traces.
///
/// Threads  any; everything is fixed when it is made but for the text, which may be made on first request.
class NQCORE_API ObjectKeyToken : public RefCounted<AtomicRefCount> {
public:
    /// The null token: key value 0, text "<null>".
    [[nodiscard]] static const RefCountPtr<ObjectKeyToken>& default_token() noexcept;

    [[nodiscard]] const void* key_value() const noexcept { return m_keyValue; }

    /// Writes the text, or hands the trace data to a stream that supports it.
    virtual void write_trace(std::ostream& stream) const;

    /// The text; lives as long as the token.
    ///
    /// Errors   of a unique token, on first request: as `random_fill`.
    [[nodiscard]] std::string_view text() const;

protected:
    /// The key value is the token's own address: the key equals no other.
    constexpr ObjectKeyToken() noexcept : m_keyValue(this) {}
    constexpr explicit ObjectKeyToken(const void* keyValue) noexcept : m_keyValue(keyValue) {}

private:
    /// Out      `text`: lives as long as the token; the same for every call.
    virtual void query_text(const char** text, unsigned int* length) const = 0;

public:
    /// The text as trace sinks remember it; empty for tokens that offer none.
    ///
    /// Errors   as `text`.
    [[nodiscard]] virtual StringTraceData::Ptr query_trace_data() const;

private:
    static const RefCountPtr<ObjectKeyToken> sm_pDefaultToken;

    const void* m_keyValue;
};

namespace impl {

class ObjectKeyCache;

/// A token that is the trace data of its text, as all of the library's own are.
class NQCORE_API TracedKeyToken : public ObjectKeyToken, public StringTraceData {
public:
    [[nodiscard]] StringTraceData::Ptr query_trace_data() const override;

    // Asked for through what `query_trace_data` gives, which has made the text.
    [[nodiscard]] std::string_view trace_text() const noexcept override { return text(); }
    bool query_trace_file_offset(unsigned sink, unsigned fileNumber, std::uint64_t* offset) const noexcept override;
    void set_trace_file_offset(unsigned sink, unsigned fileNumber, std::uint64_t offset) const noexcept override;

protected:
    constexpr TracedKeyToken() noexcept = default;
    constexpr explicit TracedKeyToken(const void* keyValue) noexcept : ObjectKeyToken(keyValue) {}
    ~TracedKeyToken() override;

private:
    // Made by the first sink that sets one: most keys are never written by a sink.
    mutable TraceFileOffsets* m_offsets = nullptr;
};

/// A token whose key value is a given pointer. Text: its digits in lower-case hex, two for each byte.
class NQCORE_API ObjectKeyTokenForPointerBase : public TracedKeyToken {
protected:
    explicit ObjectKeyTokenForPointerBase(const void* pointer) noexcept : TracedKeyToken(pointer) {}
    ~ObjectKeyTokenForPointerBase() override;

private:
    void query_text(const char** text, unsigned int* length) const override;

    mutable bool m_isTextMade = false;
    mutable char m_text[2 * sizeof(void*)];
};

/// The same, holding what keeps the object at that address alive, so that nothing else gets its key.
template <class Owner>
class ObjectKeyTokenForPointer final : public ObjectKeyTokenForPointerBase {
public:
    explicit ObjectKeyTokenForPointer(const Owner& owner) : ObjectKeyTokenForPointerBase(owner.get()), m_owner(owner) {}

private:
    Owner m_owner;
};

/// A token that is an item of a cache too. Its address is its key value.
class NQCORE_API CachedKeyToken : public TracedKeyToken {
protected:
    /// In       `keyValue`: null for the default token, which is in no cache.
    constexpr explicit CachedKeyToken(std::nullptr_t) noexcept : TracedKeyToken(nullptr) {}
    explicit CachedKeyToken(std::uint32_t hash) noexcept : m_hash(hash) {}
    ~CachedKeyToken() override;

private:
    friend class ObjectKeyCache;

    // The cache's, changed under the mutex of its stripe. A token that is in no chain points at itself.
    CachedKeyToken* m_next = this;
    std::uint32_t m_hash = 0;
};

/// The token of a text, which follows it in the same block.
class NQCORE_API StringKeyToken final : public CachedKeyToken {
public:
    /// The token of the empty text: a null token.
    [[nodiscard]] static const RefCountPtr<StringKeyToken>& default_token() noexcept;

    [[nodiscard]] std::string_view value() const noexcept { return {m_text, m_length}; }

protected:
    void destroy() override;

private:
    friend class ObjectKeyCache;
    struct Default;

    constexpr StringKeyToken() noexcept : CachedKeyToken(nullptr) {}
    StringKeyToken(std::uint32_t hash, char* text, std::string_view value) noexcept;
    ~StringKeyToken() override;

    [[nodiscard]] static StringKeyToken* create(std::string_view text, std::uint32_t hash);
    [[nodiscard]] bool matches(std::string_view text) const noexcept { return value() == text; }
    void query_text(const char** text, unsigned int* length) const override;

    unsigned int m_length = 0;
    const char* m_text = "";
};

/// The token of a UUID.
class NQCORE_API UuidKeyToken final : public CachedKeyToken {
public:
    /// A null token with the nil UUID.
    [[nodiscard]] static const RefCountPtr<UuidKeyToken>& default_token() noexcept;

    [[nodiscard]] const Uuid& uuid() const noexcept { return m_uuid; }

protected:
    void destroy() override;

private:
    friend class ObjectKeyCache;
    struct Default;

    constexpr UuidKeyToken() noexcept : CachedKeyToken(nullptr) {}
    UuidKeyToken(std::uint32_t hash, const Uuid& uuid) noexcept;
    ~UuidKeyToken() override;

    [[nodiscard]] static UuidKeyToken* create(const Uuid& uuid, std::uint32_t hash);
    [[nodiscard]] bool matches(const Uuid& uuid) const noexcept { return m_uuid == uuid; }
    void query_text(const char** text, unsigned int* length) const override;

    static constexpr unsigned s_textLength = 36;

    Uuid m_uuid;
    char m_text[s_textLength] = {};
};

}  // namespace impl

/// What all keys have in common: one pointer to a token, never null. A default key holds the null token of its kind.
///
/// Two keys are the same key when they have the same key value, of whatever kinds they are.
///
/// Threads  as for any value: keys that share a token may live on different threads.
/// Cost     copy and drop: one locked instruction each.
template <class Token>
class ObjectKeyBase {
public:
    ObjectKeyBase() noexcept : m_token(Token::default_token()) {}
    /// Null gives the null key.
    explicit ObjectKeyBase(RefCountPtr<Token> token) noexcept
        : m_token(token.is_null() ? Token::default_token() : static_cast<RefCountPtr<Token>&&>(token)) {}
    ObjectKeyBase(const ObjectKeyBase& other) noexcept = default;
    /// Leaves the null key behind.
    ObjectKeyBase(ObjectKeyBase&& other) noexcept : ObjectKeyBase() { swap(other); }
    ObjectKeyBase(TransferSource<ObjectKeyBase> source) noexcept : ObjectKeyBase(source.take()) {}
    ObjectKeyBase& operator=(const ObjectKeyBase& other) noexcept = default;
    ObjectKeyBase& operator=(ObjectKeyBase&& other) noexcept {
        ObjectKeyBase taken(static_cast<ObjectKeyBase&&>(other));
        swap(taken);
        return *this;
    }

    void swap(ObjectKeyBase& other) noexcept { m_token.swap(other.m_token); }
    void clear() noexcept { m_token = Token::default_token(); }

    /// True when the key value is 0.
    [[nodiscard]] bool is_null() const noexcept { return key_value() == nullptr; }
    [[nodiscard]] const void* key_value() const noexcept { return m_token->key_value(); }
    /// The key value itself, its lower 32 bits where it has more.
    [[nodiscard]] unsigned int hash() const noexcept {
        return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(key_value()));
    }
    [[nodiscard]] const RefCountPtr<Token>& token() const noexcept { return m_token; }

    /// The text of the key; lives as long as any of its copies.
    ///
    /// Errors   as `ObjectKeyToken::text`.
    [[nodiscard]] std::string_view text() const { return m_token->text(); }
    void write_trace(std::ostream& stream) const { m_token->write_trace(stream); }
    [[nodiscard]] StringTraceData::Ptr query_trace_data() const { return m_token->query_trace_data(); }

protected:
    /// Takes over a reference, for constants.
    constexpr ObjectKeyBase(Token* token, bool addRef) noexcept : m_token(token, addRef) {}

private:
    RefCountPtr<Token> m_token;
};

template <class A, class B>
[[nodiscard]] bool operator==(const ObjectKeyBase<A>& a, const ObjectKeyBase<B>& b) noexcept {
    return a.key_value() == b.key_value();
}
template <class A, class B>
[[nodiscard]] std::strong_ordering operator<=>(const ObjectKeyBase<A>& a, const ObjectKeyBase<B>& b) noexcept {
    return std::compare_three_way()(a.key_value(), b.key_value());
}

/// Writes the text of the key.
template <class Token>
std::ostream& operator<<(std::ostream& stream, const ObjectKeyBase<Token>& key) {
    key.write_trace(stream);
    return stream;
}

/// A key of any kind.
class NQCORE_API ObjectKey : public ObjectKeyBase<ObjectKeyToken> {
public:
    /// The null key. Constant-initialised: it is there before any code runs.
    static const ObjectKey null;

    ObjectKey() noexcept = default;
    using ObjectKeyBase::ObjectKeyBase;

    /// A key that equals no other. Its text is 16 random characters, made when somebody asks for it.
    ///
    /// Errors   `std::bad_alloc`.
    [[nodiscard]] static ObjectKey create_unique();

    /// The same with a text that begins with the label in double quotes and "_".
    ///
    /// In       `length`: 0xFFFFFFFF measures up to the NUL. A null `label` counts as empty.
    /// Errors   as `random_fill`; `std::bad_alloc`; `std::length_error` for a label near 2^31 bytes.
    [[nodiscard]] static ObjectKey create_unique_with_label(const char* label, unsigned int length);
    [[nodiscard]] static ObjectKey create_unique_with_label(std::string_view label);

    /// The key of whatever lies at an address; null gives the null key. The object is not kept alive.
    ///
    /// Errors   `std::bad_alloc`.
    [[nodiscard]] static ObjectKey from_pointer(const void* pointer);
    /// The same, and the object lives as long as the key, so that its address stays its own.
    template <class T>
    [[nodiscard]] static ObjectKey from_pointer(const RefCountPtr<T>& object) {
        if (object.is_null()) {
            return ObjectKey();
        }
        return ObjectKey(RefCountPtr<ObjectKeyToken>(new impl::ObjectKeyTokenForPointer<RefCountPtr<T>>(object)));
    }

private:
    constexpr ObjectKey(ObjectKeyToken* token, bool addRef) noexcept : ObjectKeyBase(token, addRef) {}
};

/// The key of a text.
class NQCORE_API StringKey : public ObjectKeyBase<impl::StringKeyToken> {
public:
    StringKey() noexcept = default;

    /// The empty text gives the default key, which is null.
    ///
    /// In       `text`: any bytes; null counts as empty. `length`: 0xFFFFFFFF measures up to the NUL.
    /// Errors   `std::bad_alloc`; `std::length_error` for 2147483648 bytes and more; `std::logic_error` when the object
    ///          manager has closed.
    /// Cost     of a text that is interned already: one mutex, one locked instruction, no allocation.
    [[nodiscard]] static StringKey from_string(const char* text);
    [[nodiscard]] static StringKey from_string(const char* text, unsigned int length);
    [[nodiscard]] static StringKey from_string(std::string_view text);

    /// The string; a NUL follows it. Lives as long as any key of it. Empty for the null key.
    [[nodiscard]] std::string_view value() const noexcept { return token()->value(); }

    /// The same key; shares the token.
    [[nodiscard]] ObjectKey as_object_key() const noexcept { return ObjectKey(RefCountPtr<ObjectKeyToken>(token())); }

private:
    using ObjectKeyBase::ObjectKeyBase;

    static RefCountPtr<impl::StringKeyToken> token_from_string(const char* text, unsigned int length);
};

/// The key of a UUID. The default key is null; its UUID is nil, but it is not the key of the nil UUID.
class NQCORE_API UuidKey : public ObjectKeyBase<impl::UuidKeyToken> {
public:
    UuidKey() noexcept = default;

    /// Errors   `std::bad_alloc`; `std::logic_error` when the object manager has closed.
    [[nodiscard]] static UuidKey from_uuid(const Uuid& uuid);

    /// Lives as long as any key of it.
    [[nodiscard]] const Uuid& uuid() const noexcept { return token()->uuid(); }

    /// The same key; shares the token.
    [[nodiscard]] ObjectKey as_object_key() const noexcept { return ObjectKey(RefCountPtr<ObjectKeyToken>(token())); }

private:
    using ObjectKeyBase::ObjectKeyBase;
};

namespace impl {

// Whole words, where `hash` of the key itself has 32 bits.
template <class Key>
struct HashOfKey {
    std::size_t operator()(const Key& key) const noexcept { return reinterpret_cast<std::uintptr_t>(key.key_value()); }
};

}  // namespace impl
}  // namespace nqcore

template <>
struct std::hash<nqcore::ObjectKey> : nqcore::impl::HashOfKey<nqcore::ObjectKey> {};
template <>
struct std::hash<nqcore::StringKey> : nqcore::impl::HashOfKey<nqcore::StringKey> {};
template <>
struct std::hash<nqcore::UuidKey> : nqcore::impl::HashOfKey<nqcore::UuidKey> {};

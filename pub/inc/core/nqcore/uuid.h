// Uuid: a 128-bit identifier, 16 bytes in the layout of the system's GUID.
//
//     const nqcore::Uuid id = nqcore::Uuid::create_sequential();        // sorts by its time
//     log.write(nqcore::UuidText(id).view());                           // no allocation
//     const nqcore::Uuid read = nqcore::Uuid::from_string("{6ba7b810-9dad-11d1-80b4-00c04fd430c8}");
//
//     bytes   field
//     0-3     Data1, little-endian
//     4-5     Data2, little-endian
//     6-7     Data3, little-endian; the high half of byte 7 is the version
//     8-9     clock sequence, big-endian; the top two bits are the variant, binary 10
//     10-15   node
//
// The text shows Data1 to Data3 as numbers and the rest byte by byte. So there are two orders: `<` goes by the bytes in
// memory, `Uuid::StringLess` by the text.
#pragma once

#include "nqcore/config.h"
#include "nqcore/refcounted.h"

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string_view>
#include <type_traits>

struct _GUID;
typedef struct _GUID GUID;

namespace nqcore {

class AbsoluteTime;
class ErrorInfo;

namespace impl {

/// A fixed number of bytes, zero at first.
template <unsigned count>
class UuidBytes {
public:
    [[nodiscard]] static constexpr unsigned size() noexcept { return count; }
    [[nodiscard]] constexpr unsigned char* data() noexcept { return m_bytes; }
    [[nodiscard]] constexpr const unsigned char* data() const noexcept { return m_bytes; }
    [[nodiscard]] constexpr unsigned char& operator[](unsigned index) noexcept { return m_bytes[index]; }
    [[nodiscard]] constexpr unsigned char operator[](unsigned index) const noexcept { return m_bytes[index]; }

    friend constexpr bool operator==(const UuidBytes&, const UuidBytes&) noexcept = default;
    friend constexpr std::strong_ordering operator<=>(const UuidBytes&, const UuidBytes&) noexcept = default;

private:
    unsigned char m_bytes[count] = {};
};

}  // namespace impl

/// A plain value of 16 bytes; the default is nil, all zero.
///
/// Threads  any; the creators that draw random numbers or the next of a sequence take a lock each.
class NQCORE_API Uuid {
public:
    /// Four bits. Any value may be given; these are the ones in use.
    enum EVersion : unsigned {
        version_time_based = 1,
        version_random = 4,
        version_legacy_interaction_id = 12,
        version_sequential = 13,
    };

    enum EFormat : unsigned {
        format_hyphenated = 0,  ///< "6ba7b810-9dad-11d1-80b4-00c04fd430c8"
        format_plain = 1,       ///< "6ba7b8109dad11d180b400c04fd430c8"
        format_braced = 2,      ///< "{6ba7b810-9dad-11d1-80b4-00c04fd430c8}"
    };

    /// The 16 bytes in memory order.
    using BinaryData = impl::UuidBytes<16>;

    /// The 6 bytes that tell where a time-based UUID was made.
    class NodeAddress : public impl::UuidBytes<6> {
    public:
        /// A random address that no network card has: its multicast bit is set. Does not tell who made the UUID.
        ///
        /// Errors   as `random_fill`.
        [[nodiscard]] NQCORE_API static NodeAddress create_random();
    };

    /// Order of the canonical text. For containers.
    struct StringLess {
        [[nodiscard]] constexpr bool operator()(const Uuid& a, const Uuid& b) const noexcept {
            const Halves left = a.halves();
            const Halves right = b.halves();
            const std::uint64_t leftFields = left.fields();
            const std::uint64_t rightFields = right.fields();
            return leftFields != rightFields ? leftFields < rightFields
                                             : big_endian(left.second) < big_endian(right.second);
        }
    };

    /// A UUID to be written to a stream in a chosen format.
    struct Trace;

    /// Version 4: 122 random bits.
    ///
    /// Errors   as `random_fill`.
    [[nodiscard]] static Uuid create_random();
    /// Version 4 with eight bits of the caller's, which `custom_flags` reads back, and 114 random ones.
    [[nodiscard]] static Uuid create_random(unsigned char flags);

    /// Version 13: begins with the system time, so that values made later sort behind those made before, by bytes.
    ///
    /// No two calls in one process give the same value, however fine or coarse the clock is, and whether it stands still
    /// or goes back. Beside the time there are 44 random bits and a counter; they keep processes and machines apart.
    ///
    /// Units    of the time: 256 ns.
    /// Errors   "error.nqcore.objectManager.closed" when the object manager has closed.
    /// Cost     one lock and one reading of the clock.
    [[nodiscard]] static Uuid create_sequential();

    /// Version 12: random bytes, the flags and the number in decimal digits.
    ///
    /// Errors   as `random_fill`.
    [[nodiscard]] static Uuid create_legacy_interaction_id(unsigned int id) {
        return create_legacy_interaction_id(id, 0);
    }
    [[nodiscard]] static Uuid create_legacy_interaction_id(unsigned int id, unsigned char flags);
    /// The same with zeros for the random bytes: equal arguments give equal values.
    [[nodiscard]] static Uuid create_unresolved_legacy_interaction_id(unsigned int id) noexcept {
        return create_unresolved_legacy_interaction_id(id, 0);
    }
    [[nodiscard]] static Uuid create_unresolved_legacy_interaction_id(unsigned int id, unsigned char flags) noexcept;

    /// Reads a text in one of the three formats; digits may be of either case. Nothing else is accepted: no blanks, no
    /// other length.
    ///
    /// In       null counts as empty; without a length the text goes up to its NUL.
    /// Errors   "error.nqcore.uuid.parse", with EINVAL nested.
    [[nodiscard]] static Uuid from_string(const char* text);
    [[nodiscard]] static Uuid from_string(const char* text, unsigned int length);
    [[nodiscard]] static Uuid from_string(std::string_view text);
    /// Out      `out`: left alone on failure; null only checks the text.
    /// Returns  null, or the error.
    [[nodiscard]] static RefCountPtr<const ErrorInfo> from_string_nothrow(const char* text, Uuid* out);
    [[nodiscard]] static RefCountPtr<const ErrorInfo> from_string_nothrow(const char* text, unsigned int length,
                                                                          Uuid* out);
    [[nodiscard]] static RefCountPtr<const ErrorInfo> from_string_nothrow(std::string_view text, Uuid* out);

    /// (Include nqcore/windows_types.h to use it.)
    [[nodiscard]] static Uuid from_windows_guid(const _GUID& guid) noexcept;

    /// Copies 16 bytes in memory order to `uuid`; null copies nothing.
    ///
    /// Returns  16.
    static unsigned int read_binary(const unsigned char* source, Uuid& uuid) noexcept;

    constexpr Uuid() noexcept = default;

    /// The bytes of `data` with their version and variant replaced.
    constexpr Uuid(const BinaryData& data, EVersion version) noexcept {
        for (unsigned i = 0; i < BinaryData::size(); ++i) {
            m_bytes[i] = data[i];
        }
        set_version(version);
        set_variant();
    }

    /// A UUID for a given time, as RFC 4122 lays it out when `version` is `version_time_based`.
    ///
    /// In       `clock_sequence`: 14 bits. `timestamp`: 60 bits; see `timestamp_at`. What is above is dropped.
    constexpr Uuid(EVersion version, unsigned short clock_sequence, const NodeAddress& node,
                   unsigned long long timestamp) noexcept
        : Uuid(static_cast<std::uint32_t>(version) << 28 | (static_cast<std::uint32_t>(timestamp >> 32) & 0x0FFFFFFF),
               clock_sequence, node, timestamp) {}
    /// The same with eight bits of the caller's, which `custom_flags` reads back, in the place of the time's highest.
    ///
    /// In       `timestamp`: 52 bits.
    constexpr Uuid(EVersion version, unsigned short clock_sequence, const NodeAddress& node,
                   unsigned long long timestamp, unsigned char flags) noexcept
        : Uuid((static_cast<std::uint32_t>(version) << 8 | flags) << 20 |
                   (static_cast<std::uint32_t>(timestamp >> 32) & 0x000FFFFF),
               clock_sequence, node, timestamp) {}

    /// The timestamp that RFC 4122 gives a time: steps of 100 ns since 1582-10-15. Infinite counts as the number it is.
    [[nodiscard]] static std::uint64_t timestamp_at(const AbsoluteTime& time) noexcept;

    [[nodiscard]] constexpr EVersion version() const noexcept { return static_cast<EVersion>(m_bytes[7] >> 4); }
    /// The timestamp of a UUID made from parts. Of version 13 the time's lower 60 bits, with 0xD0 for the lowest eight;
    /// `get_time` gives the whole.
    [[nodiscard]] std::uint64_t timestamp() const noexcept;
    /// The clock sequence, 14 bits.
    [[nodiscard]] constexpr std::uint16_t sequence() const noexcept {
        return static_cast<std::uint16_t>((m_bytes[8] & 0x3F) << 8 | m_bytes[9]);
    }
    [[nodiscard]] constexpr unsigned char custom_flags() const noexcept {
        return static_cast<unsigned char>((m_bytes[7] & 0x0F) << 4 | m_bytes[6] >> 4);
    }
    /// The time that a UUID holds: versions 1, 6 and 7 as the RFCs define them, and 13.
    ///
    /// Out      `time`: left alone when there is none.
    /// Returns  false for other versions, and for times outside of the range of `AbsoluteTime`.
    [[nodiscard]] bool get_time(AbsoluteTime& time) const noexcept;

    /// 0 unless the version is 12. Digits above 9 are not refused: each counts as the number it is, modulo 2^32.
    [[nodiscard]] unsigned int legacy_interaction_id() const noexcept;
    /// 0 unless the version is 12.
    [[nodiscard]] constexpr unsigned char legacy_interaction_id_flags() const noexcept {
        return version() == version_legacy_interaction_id ? m_bytes[10] : static_cast<unsigned char>(0);
    }
    [[nodiscard]] bool is_unresolved_legacy_interaction_id() const noexcept;

    [[nodiscard]] constexpr bool is_null() const noexcept { return *this == Uuid(); }
    /// The four 32-bit words XORed.
    [[nodiscard]] constexpr std::uint32_t hash() const noexcept {
        const Halves both = halves();
        const std::uint64_t mixed = both.first ^ both.second;
        return static_cast<std::uint32_t>(mixed >> 32) ^ static_cast<std::uint32_t>(mixed);
    }

    constexpr void get_node_address(NodeAddress& node) const noexcept {
        for (unsigned i = 0; i < NodeAddress::size(); ++i) {
            node[i] = m_bytes[10 + i];
        }
    }
    constexpr void get_binary_data(BinaryData& data) const noexcept {
        for (unsigned i = 0; i < BinaryData::size(); ++i) {
            data[i] = m_bytes[i];
        }
    }
    [[nodiscard]] constexpr BinaryData get_binary_data() const noexcept {
        BinaryData data;
        get_binary_data(data);
        return data;
    }
    /// Copies the 16 bytes in memory order; null copies nothing.
    ///
    /// Returns  16.
    unsigned int write_binary(unsigned char* destination) const noexcept;
    /// (Include nqcore/windows_types.h to use it.)
    [[nodiscard]] GUID as_windows_guid() const noexcept;

    /// Lower-case text; empty for an unknown format. `UuidText` does the same without an allocation.
    [[nodiscard]] std::string as_string(EFormat format = format_hyphenated) const;

    constexpr void clear() noexcept { *this = Uuid(); }
    constexpr void swap(Uuid& other) noexcept {
        const Uuid old = *this;
        *this = other;
        other = old;
    }

    friend constexpr bool operator==(const Uuid& a, const Uuid& b) noexcept {
        const Halves left = a.halves();
        const Halves right = b.halves();
        return ((left.first ^ right.first) | (left.second ^ right.second)) == 0;
    }
    /// By the bytes in memory order.
    friend constexpr std::strong_ordering operator<=>(const Uuid& a, const Uuid& b) noexcept {
        const Halves left = a.halves();
        const Halves right = b.halves();
        return left.first != right.first ? big_endian(left.first) <=> big_endian(right.first)
                                         : big_endian(left.second) <=> big_endian(right.second);
    }

    /// Writes the hyphenated text.
    friend NQCORE_API std::ostream& operator<<(std::ostream& stream, const Uuid& uuid);
    friend NQCORE_API std::ostream& operator<<(std::ostream& stream, const Trace& trace);

private:
    // The bytes as two little-endian numbers.
    struct Halves {
        std::uint64_t first;
        std::uint64_t second;

        // Data1, Data2 and Data3 as the text shows them, one number.
        [[nodiscard]] constexpr std::uint64_t fields() const noexcept {
            return first << 32 | (first >> 16 & 0xFFFF0000) | first >> 48;
        }
    };

    // What both constructors from parts share. In `versionWord`: bytes 4 to 7.
    constexpr Uuid(std::uint32_t versionWord, unsigned short clockSequence, const NodeAddress& node,
                   unsigned long long timestamp) noexcept {
        for (unsigned i = 0; i < 4; ++i) {
            m_bytes[i] = static_cast<unsigned char>(timestamp >> (8 * i));
            m_bytes[4 + i] = static_cast<unsigned char>(versionWord >> (8 * i));
        }
        m_bytes[8] = static_cast<unsigned char>(clockSequence >> 8);
        m_bytes[9] = static_cast<unsigned char>(clockSequence);
        set_variant();
        for (unsigned i = 0; i < NodeAddress::size(); ++i) {
            m_bytes[10 + i] = node[i];
        }
    }

    constexpr void set_version(EVersion version) noexcept {
        m_bytes[7] = static_cast<unsigned char>((m_bytes[7] & 0x0F) | (version & 0x0F) << 4);
    }
    constexpr void set_variant() noexcept { m_bytes[8] = static_cast<unsigned char>((m_bytes[8] & 0x3F) | 0x80); }
    void set_legacy_interaction_id(unsigned int id, unsigned char flags) noexcept;

    [[nodiscard]] constexpr Halves halves() const noexcept { return __builtin_bit_cast(Halves, *this); }
    [[nodiscard]] static constexpr std::uint64_t big_endian(std::uint64_t bytes) noexcept {
        return __builtin_bswap64(bytes);
    }

    alignas(4) unsigned char m_bytes[16] = {};
};

struct Uuid::Trace {
    Uuid uuid;
    EFormat format = format_hyphenated;
};

static_assert(sizeof(Uuid) == 16 && alignof(Uuid) == 4 && std::is_trivially_copyable_v<Uuid> &&
              std::is_standard_layout_v<Uuid>);
static_assert(sizeof(Uuid::BinaryData) == 16 && sizeof(Uuid::NodeAddress) == 6);

/// A UUID as text in a fixed buffer, for logs and traces that must not allocate. 40 bytes.
///
/// Threads  a plain value.
class NQCORE_API UuidText {
public:
    /// The braced form.
    static const unsigned max_length = 38;

    /// As `Uuid::as_string`: empty for an unknown format.
    explicit UuidText(const Uuid& uuid, Uuid::EFormat format = Uuid::format_hyphenated) noexcept;

    [[nodiscard]] std::string_view view() const noexcept { return {m_text, m_length}; }
    /// Ends in a NUL.
    [[nodiscard]] const char* c_str() const noexcept { return m_text; }
    /// In bytes, without the NUL.
    [[nodiscard]] unsigned length() const noexcept { return m_length; }

    friend bool operator==(const UuidText& a, const UuidText& b) noexcept { return a.view() == b.view(); }
    friend std::strong_ordering operator<=>(const UuidText& a, const UuidText& b) noexcept {
        return a.view() <=> b.view();
    }

private:
    char m_text[max_length + 1];
    unsigned char m_length;
};

}  // namespace nqcore

template <>
struct std::hash<nqcore::Uuid> {
    std::size_t operator()(const nqcore::Uuid& uuid) const noexcept { return uuid.hash(); }
};

template <unsigned byteCount>
struct std::hash<nqcore::impl::UuidBytes<byteCount>> {
    std::size_t operator()(const nqcore::impl::UuidBytes<byteCount>& bytes) const noexcept {
        return std::hash<std::string_view>()({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    }
};
template <>
struct std::hash<nqcore::Uuid::NodeAddress> : std::hash<nqcore::impl::UuidBytes<6>> {};

template <>
struct std::hash<nqcore::UuidText> {
    std::size_t operator()(const nqcore::UuidText& text) const noexcept {
        return std::hash<std::string_view>()(text.view());
    }
};

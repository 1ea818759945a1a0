#include "nqcore/uuid.h"

#include "fork_safe.h"
#include "nqcore/abs_rel_time.h"
#include "nqcore/random.h"
#include "nqcore/windows_types.h"
#include "platform/clock.h"
#include "uuid_sequence.h"

#include <bit>
#include <cstring>

namespace nqcore {
namespace {

// The bytes lie in memory as the numbers that they are: the first is the lowest.
static_assert(std::endian::native == std::endian::little);

constinit StaticInstance<impl::ForkSafe<impl::UuidSequence>> s_sequence;

// 1582-10-15 to 1970-01-01 in 100 ns.
constexpr std::int64_t s_gregorianOffset = 0x01B2'1DD2'1381'4000;
constexpr std::int64_t s_nsPerTick = 100;

constexpr unsigned s_legacyDigitsAt = 11;

}  // namespace

// ---------------------------------------------------------------------------------------------------- random

Uuid::NodeAddress Uuid::NodeAddress::create_random() {
    constexpr unsigned char multicast = 1;
    NodeAddress node;
    random_fill(node.data(), size());
    node[0] |= multicast;
    return node;
}

Uuid Uuid::create_random() {
    Uuid uuid;
    random_fill(uuid.m_bytes, sizeof uuid.m_bytes);
    uuid.set_version(version_random);
    uuid.set_variant();
    return uuid;
}

Uuid Uuid::create_random(unsigned char flags) {
    Uuid uuid = create_random();
    uuid.m_bytes[6] = static_cast<unsigned char>((uuid.m_bytes[6] & 0x0F) | (flags & 0x0F) << 4);
    uuid.m_bytes[7] = static_cast<unsigned char>(version_random << 4 | flags >> 4);
    return uuid;
}

// ---------------------------------------------------------------------------------------------------- sequential

namespace impl {

UuidSequence::Place UuidSequence::next(std::int64_t now, Draw draw) {
    const std::int64_t time = now >> 8;
    const std::int64_t lastTime = m_lastTime >> 8;
    std::uint32_t seed = m_seed;
    std::uint32_t tail = m_tail;
    if (seed == 0 || time < lastTime) {
        seed = draw();
        tail = __builtin_bswap32(draw());
    }
    const auto counter = static_cast<std::uint16_t>((time == lastTime ? m_counter : 0) + 1);
    if (counter == 0) {
        ++tail;
    }
    m_lastTime = now;
    m_seed = seed;
    m_tail = tail;
    m_counter = counter;
    return {now, seed, tail, counter};
}

Uuid UuidSequence::uuid_at(const Place& place) noexcept {
    const std::uint64_t time = __builtin_bswap64(static_cast<std::uint64_t>(place.time));
    const std::uint32_t tail = __builtin_bswap32(place.tail);
    Uuid::BinaryData bytes;
    std::memcpy(bytes.data(), &time, sizeof time);
    bytes[7] = 0;
    bytes[8] = static_cast<unsigned char>(place.seed & 0x0F);
    bytes[9] = static_cast<unsigned char>(place.seed >> 8);
    std::memcpy(bytes.data() + 10, &tail, sizeof tail);
    bytes[14] = static_cast<unsigned char>(place.counter >> 8);
    bytes[15] = static_cast<unsigned char>(place.counter);
    return Uuid(bytes, Uuid::version_sequential);
}

}  // namespace impl

Uuid Uuid::create_sequential() {
    return impl::UuidSequence::uuid_at(impl::with_state<s_sequence>(
        [](impl::UuidSequence& sequence) { return sequence.next(platform::system_time_ns(), random_int); }));
}

// ---------------------------------------------------------------------------------------------------- legacy

// Everything but the bytes in front, which the caller has filled.
void Uuid::set_legacy_interaction_id(unsigned int id, unsigned char flags) noexcept {
    m_bytes[10] = flags;
    for (unsigned i = sizeof m_bytes; i-- > s_legacyDigitsAt; id /= 100) {
        m_bytes[i] = static_cast<unsigned char>(id / 10 % 10 << 4 | id % 10);
    }
    set_version(version_legacy_interaction_id);
    set_variant();
}

Uuid Uuid::create_legacy_interaction_id(unsigned int id, unsigned char flags) {
    Uuid uuid;
    // Zeros would make it look unresolved.
    while (uuid.halves().first == 0) {
        random_fill(uuid.m_bytes, 10);
    }
    uuid.set_legacy_interaction_id(id, flags);
    return uuid;
}

Uuid Uuid::create_unresolved_legacy_interaction_id(unsigned int id, unsigned char flags) noexcept {
    Uuid uuid;
    uuid.set_legacy_interaction_id(id, flags);
    return uuid;
}

unsigned int Uuid::legacy_interaction_id() const noexcept {
    if (version() != version_legacy_interaction_id) {
        return 0;
    }
    unsigned int id = 0;
    for (unsigned i = s_legacyDigitsAt; i < sizeof m_bytes; ++i) {
        id = id * 100 + (m_bytes[i] >> 4) * 10u + (m_bytes[i] & 0x0Fu);
    }
    return id;
}

bool Uuid::is_unresolved_legacy_interaction_id() const noexcept {
    constexpr std::uint64_t versionHalf = 0xF000'0000'0000'0000;
    return version() == version_legacy_interaction_id && (halves().first & ~versionHalf) == 0 && sequence() == 0;
}

// ---------------------------------------------------------------------------------------------------- time

std::uint64_t Uuid::timestamp_at(const AbsoluteTime& time) noexcept {
    const std::int64_t ns = time.as_nsec();
    const std::int64_t ticks = ns / s_nsPerTick - (ns % s_nsPerTick < 0 ? 1 : 0);
    return static_cast<std::uint64_t>(ticks + s_gregorianOffset);
}

std::uint64_t Uuid::timestamp() const noexcept {
    constexpr std::uint64_t most = 0x0FFF'FFFF'FFFF'FFFF;
    const std::uint64_t bytes = halves().first;
    return (version() == version_sequential ? big_endian(bytes) : bytes) & most;
}

bool Uuid::get_time(AbsoluteTime& time) const noexcept {
    constexpr unsigned timeFirst = 6;  // version 1 with its parts in the order of their weight
    constexpr unsigned unixMilliseconds = 7;
    constexpr std::int64_t nsPerMillisecond = AbsoluteTime::NANOSECONDS_IN_ONE_MILLISECOND;
    const std::uint64_t fields = halves().fields();
    std::int64_t count = 0;
    std::int64_t unit = s_nsPerTick;
    switch (static_cast<unsigned>(version())) {
        case version_time_based:
            count = static_cast<std::int64_t>(timestamp()) - s_gregorianOffset;
            break;
        case timeFirst:
            count = static_cast<std::int64_t>((fields >> 16) << 12 | (fields & 0x0FFF)) - s_gregorianOffset;
            break;
        case unixMilliseconds:
            count = static_cast<std::int64_t>(fields >> 16);
            unit = nsPerMillisecond;
            break;
        case version_sequential:
            count = static_cast<std::int64_t>(big_endian(halves().first) & ~std::uint64_t{0xFF});
            unit = 1;
            break;
        default:
            return false;
    }
    std::int64_t ns = 0;
    if ((m_bytes[8] & 0xC0) != 0x80 || __builtin_mul_overflow(count, unit, &ns)) {
        return false;
    }
    time.set_nsec(ns);
    return true;
}

// ---------------------------------------------------------------------------------------------------- binary forms

unsigned int Uuid::read_binary(const unsigned char* source, Uuid& uuid) noexcept {
    if (source != nullptr) {
        std::memcpy(uuid.m_bytes, source, sizeof uuid.m_bytes);
    }
    return sizeof uuid.m_bytes;
}

unsigned int Uuid::write_binary(unsigned char* destination) const noexcept {
    if (destination != nullptr) {
        std::memcpy(destination, m_bytes, sizeof m_bytes);
    }
    return sizeof m_bytes;
}

Uuid Uuid::from_windows_guid(const _GUID& guid) noexcept { return std::bit_cast<Uuid>(guid); }

GUID Uuid::as_windows_guid() const noexcept { return std::bit_cast<GUID>(*this); }

}  // namespace nqcore

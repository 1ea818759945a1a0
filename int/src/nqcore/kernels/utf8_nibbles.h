// Tables for judging pairs of neighbouring UTF-8 bytes by nibbles. A pair is judged by its first byte's two nibbles and
// its second byte's high nibble: the faults that all three rows share are the pair's.
#pragma once

namespace nqcore::kernels {

struct Utf8NibbleTables {
    alignas(16) unsigned char firstHigh[16];
    alignas(16) unsigned char firstLow[16];
    alignas(16) unsigned char secondHigh[16];
};

/// The bit of "both are continuation bytes": no fault where a third or fourth byte is due, and a fault elsewhere.
inline constexpr unsigned char s_twoContinuations = 0x80;

constexpr Utf8NibbleTables make_utf8_nibble_tables() noexcept {
    enum : unsigned char {
        too_short = 1,      // a lead without a continuation byte
        too_long = 2,       // ASCII with one
        overlong_2 = 4,     // C0, C1
        overlong_3 = 8,     // E0 with 80 to 9F
        surrogate = 16,     // ED with A0 to BF
        overlong_4 = 32,    // F0 with 80 to 8F; also F5 to FF with these
        above_10ffff = 64,  // F4 with 90 to BF, F5 to FF with these
        two_continuations = s_twoContinuations,
    };
    constexpr unsigned char always = too_short | too_long | two_continuations;  // what the low nibble does not change
    Utf8NibbleTables tables{};
    for (unsigned nibble = 0; nibble < 16; ++nibble) {
        unsigned low = always;
        low |= nibble <= 1 ? overlong_2 : 0;
        low |= nibble == 0x0 ? overlong_3 | overlong_4 : 0;
        low |= nibble == 0xD ? surrogate : 0;
        low |= nibble >= 4 ? above_10ffff : 0;
        low |= nibble >= 5 ? overlong_4 : 0;
        tables.firstLow[nibble] = static_cast<unsigned char>(low);
        tables.firstHigh[nibble] = nibble < 0x8 ? too_long : nibble < 0xC ? two_continuations : too_short;
        tables.secondHigh[nibble] = too_short;
    }
    tables.firstHigh[0xC] |= overlong_2;
    tables.firstHigh[0xE] |= overlong_3 | surrogate;
    tables.firstHigh[0xF] |= overlong_4 | above_10ffff;
    constexpr unsigned char continuation = too_long | two_continuations | overlong_2;
    tables.secondHigh[0x8] = continuation | overlong_3 | overlong_4;
    tables.secondHigh[0x9] = continuation | overlong_3 | above_10ffff;
    tables.secondHigh[0xA] = continuation | surrogate | above_10ffff;
    tables.secondHigh[0xB] = continuation | surrogate | above_10ffff;
    return tables;
}

inline constexpr Utf8NibbleTables s_utf8Nibbles = make_utf8_nibble_tables();

}  // namespace nqcore::kernels

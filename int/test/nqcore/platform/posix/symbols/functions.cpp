// NQ_TEST_TABLE and NQ_TEST_NAMESPACE: what this compilation is called.
#include "functions.h"

#include <cstdint>

namespace nqcore::test {
namespace NQ_TEST_NAMESPACE {

// Optimised code keeps a value for as long as it needs it.
template <class... Values>
[[gnu::noinline]] void use(const Values&... values) {
    (..., [](const void* value) { asm volatile("" : : "r"(value) : "memory"); }(&values));
}

[[gnu::noinline]] void numbers(signed char tiny, unsigned char byte, short small, unsigned count, long big,
                               unsigned long size, long long huge) {
    probe();
    use(tiny, byte, small, count, big, size, huge);
}

[[gnu::noinline]] void characters(char plain, wchar_t wide, char8_t one, char16_t two, char32_t four) {
    probe();
    use(plain, wide, one, two, four);
}

[[gnu::noinline]] void others(bool flag, float single, double real, long double extended, WideNumber wideNumber) {
    probe();
    use(flag, single, real, extended, wideNumber);
}

[[gnu::noinline]] void pointers(const int* pointer, int& reference, int** indirect, decltype(nullptr) null,
                                void (*function)(int), const volatile void* anything) {
    probe();
    use(pointer, reference, indirect, null, function, anything);
}

using Length = const unsigned;
enum class Colour : std::uint16_t { Red = 1, Green = 2 };
struct Point {
    int x, y;
};
struct Empty {};
union Either {
    int number;
    char bytes[8];
};
template <class T>
struct Box {
    T content;
    Box(T value) : content(value) {}
    Box(const Box& other) : content(other.content) {}
    ~Box() {}
};
namespace {
struct Hidden {
    long value;
};
}  // namespace

[[gnu::noinline]] void structure_arguments(Point point, Box<int> box, Empty empty, Either either, Hidden hidden,
                                           Colour colour, Length length, int Point::*member) {
    probe();
    use(point, box, empty, either, hidden, colour, length, member);
}

[[gnu::noinline]] void structures() {
    structure_arguments({3, 4}, Box<int>(5), {}, {6}, {7}, Colour::Green, 8, &Point::y);
}

[[gnu::noinline]] void scopes() {
    struct Local {
        int value;
        [[gnu::noinline]] void run(int argument) const {
            probe();
            use(argument, *this);
        }
    };
    Local{11}.run(12);
}

// Nothing needs the parameters after the call.
[[gnu::noinline]] void unused(int, int forgotten) {
    use(forgotten);
    probe();
    use();
}

// What has to be remembered over a call is in a register that the next function saves.
[[gnu::noinline]] void next() {
    int local = 1;
    use(local);
    probe();
    use(local);
}

[[gnu::noinline]] void kept(int number, const char* text) {
    next();
    use(number);
    next();
    asm volatile("" : : "r"(number), "r"(text));
}

// What is forgotten can still be known from the caller.
[[gnu::noinline]] void told(int number, long twice) {
    asm volatile("" : : "r"(number), "r"(twice));
    probe();
    asm volatile("" : : : "memory");
}

[[gnu::noinline]] void passed_on(int number, long other) {
    told(number, 2 * other);
    asm volatile("" : : "r"(number), "r"(other));
    told(21, 43);
    asm volatile("" : : "r"(number), "r"(other));
}

}  // namespace NQ_TEST_NAMESPACE

const Functions& NQ_TEST_TABLE() {
    using namespace NQ_TEST_NAMESPACE;
    static constexpr Functions table{numbers, characters, others, pointers, structures,
                                     scopes,  unused,     kept,   passed_on};
    return table;
}

}  // namespace nqcore::test

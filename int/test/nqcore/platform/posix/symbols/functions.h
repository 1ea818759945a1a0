// Functions whose frames tests look into. Compiled twice: with every value on the stack, and optimised.
#pragma once

namespace nqcore::test {

__extension__ typedef __int128 WideNumber;

struct Functions {
    void (*numbers)(signed char, unsigned char, short, unsigned, long, unsigned long, long long);
    void (*characters)(char, wchar_t, char8_t, char16_t, char32_t);
    void (*others)(bool, float, double, long double, WideNumber);
    void (*pointers)(const int*, int&, int**, decltype(nullptr), void (*)(int), const volatile void*);
    void (*structures)();
    void (*scopes)();
    void (*unused)(int, int);
    void (*kept)(int, const char*);
    void (*passedOn)(int, long);
};

/// Is called by each of them.
void probe();

/// The table of one compilation.
[[nodiscard]] const Functions& plain_functions();
[[nodiscard]] const Functions& optimised_functions();

}  // namespace nqcore::test

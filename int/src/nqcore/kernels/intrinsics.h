// The processor's intrinsics, without false alarms: GCC takes the undefined sources of some 512-bit intrinsics for
// uses of uninitialised variables.
#pragma once

#if !defined(__clang__)
#    pragma GCC diagnostic push
#    pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>
#if !defined(__clang__)
#    pragma GCC diagnostic pop
#endif

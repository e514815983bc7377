#pragma once

// The headers are C++20 (defaulted comparisons, among others): say so plainly rather than
// fail somewhere inside them.
#if __cplusplus < 202002L
#error "the Zorva SDK's headers need C++20 or later: compile with -std=c++20 (or newer)"
#endif

// libzorva exports its public API only: the classes and functions marked ZORVA_EXPORT; everything
// else in the library is hidden from the dynamic linker. A class nested in an exported one takes
// its visibility, so the library's own nested parts (the formats' `Impl`) are marked ZORVA_HIDDEN.
#define ZORVA_EXPORT __attribute__((visibility("default")))
#define ZORVA_HIDDEN __attribute__((visibility("hidden")))

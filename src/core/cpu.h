// The instruction-set level the kernels dispatch on. Every kernel has a baseline SSE2 body; a
// family may add faster bodies in sibling files (name_ssse3.cpp, name_avx.cpp, name_avx2.cpp, name_avx512.cpp,
// compiled with that level's flags only) that give bit-identical results. The level is read from
// CPUID once, when the library loads, and only ever lowered by the internal tests that compare
// each faster body with the baseline.
#pragma once

namespace velmora::cpu {

enum class Level { Sse2 = 0, Ssse3 = 1, Avx = 2, Avx2 = 3, Avx512 = 4 };

// The highest level this processor and operating system support.
Level Detected();

// The level kernels use now: Detected() unless a test capped it.
Level Active();

// Caps the active level (never raises it above Detected()). For tests only: not thread-safe
// with kernels running, and not reachable from outside the library's objects.
void CapLevel(Level level);

inline bool Has(Level level) { return static_cast<int>(Active()) >= static_cast<int>(level); }

}  // namespace velmora::cpu

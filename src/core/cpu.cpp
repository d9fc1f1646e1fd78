// Processor-feature queries. The exported queries ask CPUID afresh at every call; the dispatch
// level of the kernels is read once, when the library loads.
#include "core/cpu.h"

#include <cpuid.h>

#include <atomic>

#include "velmora/imaging.h"

namespace {

// Returns the leaf-1 feature words, or false when the processor has no leaf 1.
bool Leaf1(unsigned& ecx, unsigned& edx) {
    unsigned eax = 0, ebx = 0;
    __cpuid(0, eax, ebx, ecx, edx);
    if (eax < 1) return false;
    __cpuid(1, eax, ebx, ecx, edx);
    return true;
}

// The two EDX queries report bits 1 and 2 (the virtual-8086 extensions and debugging
// extensions flags), not the architectural SSE/SSE2 bits 25 and 26. Hosts have always received
// exactly these bits, so they are kept bit for bit.
bool EdxBit(unsigned bit) {
    unsigned ecx = 0, edx = 0;
    return Leaf1(ecx, edx) && ((edx >> bit) & 1u) != 0;
}

}  // namespace

extern "C" VELMORA_API bool VELMORA_CALL VerifySSESupport(void) { return EdxBit(1); }

extern "C" VELMORA_API bool VELMORA_CALL VerifySSE2Support(void) { return EdxBit(2); }

extern "C" VELMORA_API bool VELMORA_CALL VerifySSE4Support(void) {
    unsigned ecx = 0, edx = 0;
    return Leaf1(ecx, edx) && ((ecx >> 19) & 1u) != 0;  // SSE4.1
}

namespace velmora::cpu {

namespace {

unsigned Xcr0() {
    unsigned lo, hi;
    __asm__("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
    return lo;
}

// AVX needs the processor's flag and the operating system saving the upper register halves
// (OSXSAVE, and XCR0 bits 1 and 2).
bool OsSavesAvxState(unsigned ecx) {
    if (!(ecx & bit_OSXSAVE)) return false;
    return (Xcr0() & 6u) == 6u;
}

Level Probe() {
    unsigned eax, ebx, ecx, edx;
    if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx)) return Level::Sse2;
    if (!(ecx & bit_SSSE3)) return Level::Sse2;
    if (!(ecx & bit_AVX) || !OsSavesAvxState(ecx)) return Level::Ssse3;
    unsigned eax7, ebx7, ecx7, edx7;
    if (!__get_cpuid_count(7, 0, &eax7, &ebx7, &ecx7, &edx7) || !(ebx7 & bit_AVX2)) return Level::Avx;
    // AVX-512 also needs the system saving the mask registers and the upper 16 vector registers
    // (XCR0 bits 5 to 7).
    if ((ebx7 & bit_AVX512F) && (Xcr0() & 0xE0u) == 0xE0u) return Level::Avx512;
    return Level::Avx2;
}

const Level kDetected = Probe();
std::atomic<Level> active{kDetected};

}  // namespace

Level Detected() { return kDetected; }
Level Active() { return active.load(std::memory_order_relaxed); }
void CapLevel(Level level) {
    active.store(static_cast<int>(level) < static_cast<int>(kDetected) ? level : kDetected, std::memory_order_relaxed);
}

}  // namespace velmora::cpu

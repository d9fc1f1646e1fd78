// Processor-feature queries. Each call asks CPUID afresh; nothing is cached, so a host that
// migrates between machines (or a test that mocks nothing) always sees the current answer.
#include <cpuid.h>

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

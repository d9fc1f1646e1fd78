#include "core/thread_rand.h"

#include <cstdint>
#include <cstdlib>

namespace velmora {

#if defined(_WIN32)
int ThreadRand() { return std::rand(); }
void ThreadRandFill(int* out, int n) {
    for (int i = 0; i < n; ++i) out[i] = std::rand();
}
#else
namespace {
thread_local uint32_t state = 1;
constexpr uint32_t kA = 214013u, kC = 2531011u;
// Two steps at once, s -> a^2 s + (a + 1) c: the even and odd draws run as two independent chains,
// so the multiply latency is paid once per pair.
constexpr uint32_t kA2 = kA * kA, kC2 = (kA + 1u) * kC;
int Draw(uint32_t s) { return static_cast<int>((s >> 16) & 0x7fffu); }
}  // namespace
void ThreadRandFill(int* out, int n) {
    uint32_t even = state, odd = state * kA + kC;
    int i = 0;
    for (; i + 1 < n; i += 2) {
        even = even * kA2 + kC2;  // draw i + 1 (state after i + 1 steps)
        out[i] = Draw(odd);
        out[i + 1] = Draw(even);
        odd = odd * kA2 + kC2;
    }
    if (i < n) {
        out[i] = Draw(odd);
        even = odd;
    }
    state = even;
}
int ThreadRand() {
    int r;
    ThreadRandFill(&r, 1);
    return r;
}
#endif

}  // namespace velmora

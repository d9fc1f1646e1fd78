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
}
void ThreadRandFill(int* out, int n) {
    uint32_t s = state;
    for (int i = 0; i < n; ++i) {
        s = s * 214013u + 2531011u;
        out[i] = static_cast<int>((s >> 16) & 0x7fffu);
    }
    state = s;
}
int ThreadRand() {
    int r;
    ThreadRandFill(&r, 1);
    return r;
}
#endif

}  // namespace velmora

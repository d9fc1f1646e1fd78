#include "core/thread_rand.h"

#include <cstdint>
#include <cstdlib>

namespace velmora {

#if defined(_WIN32)
int ThreadRand() { return std::rand(); }
#else
int ThreadRand() {
    thread_local uint32_t state = 1;
    state = state * 214013u + 2531011u;
    return static_cast<int>((state >> 16) & 0x7fffu);
}
#endif

}  // namespace velmora

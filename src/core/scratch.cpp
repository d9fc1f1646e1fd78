// Scratch blocks. Small ones come from the C heap and are cleared here; large ones are mapped
// directly from the system, which hands them out already zeroed, so they are never cleared a
// second time. On Linux the mapping is aligned to 2 MiB and advised for transparent huge pages
// (the kernel's default mode only grants them on request); on Windows large pages are tried and,
// where the account lacks the privilege, ordinary committed pages are used.
#include "core/scratch.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#if defined(_WIN32)
#include <windows.h>
#else
#include <sys/mman.h>
#endif

namespace velmora::scratch {
namespace {

constexpr size_t kHuge = size_t{2} << 20;

size_t RoundUp(size_t n, size_t g) { return (n + g - 1) / g * g; }

#if defined(_WIN32)
void* MapLarge(size_t bytes) {
    const size_t large = GetLargePageMinimum();
    if (large != 0) {
        void* p = VirtualAlloc(nullptr, RoundUp(bytes, large), MEM_RESERVE | MEM_COMMIT | MEM_LARGE_PAGES,
                               PAGE_READWRITE);
        if (p) return p;
    }
    return VirtualAlloc(nullptr, bytes, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
}
void UnmapLarge(void* p, size_t) { VirtualFree(p, 0, MEM_RELEASE); }
#else
void* MapLarge(size_t bytes) {
    // Over-map by one huge page, then trim both ends so the block starts on a 2 MiB boundary:
    // only whole, aligned 2 MiB ranges can become huge pages.
    const size_t length = RoundUp(bytes, kHuge);
    const size_t span = length + kHuge;
    void* m = mmap(nullptr, span, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (m == MAP_FAILED) return nullptr;
    const uintptr_t start = reinterpret_cast<uintptr_t>(m);
    const uintptr_t aligned = RoundUp(start, kHuge);
    if (aligned > start) munmap(m, aligned - start);
    const uintptr_t tail = start + span - (aligned + length);
    if (tail > 0) munmap(reinterpret_cast<void*>(aligned + length), tail);
    void* p = reinterpret_cast<void*>(aligned);
#if defined(MADV_HUGEPAGE)
    madvise(p, length, MADV_HUGEPAGE);  // advice only: without it the block is still valid
#endif
    return p;
}
void UnmapLarge(void* p, size_t bytes) { munmap(p, RoundUp(bytes, kHuge)); }
#endif

}  // namespace

void* Allocate(size_t bytes) {
    if (bytes >= kLargeBytes) return MapLarge(bytes);
    const size_t rounded = RoundUp(bytes > 0 ? bytes : 16, 16);
#if defined(_WIN32)
    void* p = _aligned_malloc(rounded, 16);
#else
    void* p = std::aligned_alloc(16, rounded);
#endif
    if (p) std::memset(p, 0, rounded);
    return p;
}

void Free(void* block, size_t bytes) {
    if (!block) return;
    if (bytes >= kLargeBytes) return UnmapLarge(block, bytes);
#if defined(_WIN32)
    _aligned_free(block);
#else
    std::free(block);
#endif
}

}  // namespace velmora::scratch

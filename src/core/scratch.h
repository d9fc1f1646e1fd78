// Zero-filled scratch memory for the duration of one call. Large blocks are placed so the
// operating system can back them with 2 MiB pages: a 4000 x 3000 float image is 192 MB, and
// first touch of that many 4 KiB pages costs far more than the filter that uses them. Nothing
// is pooled: every block goes back to the system when the call that made it returns.
#pragma once

#include <cstddef>

namespace velmora::scratch {

// Blocks at least this large take the large-page path.
inline constexpr size_t kLargeBytes = size_t{2} << 20;

// At least `bytes` of zeroed memory, 16-byte aligned (2 MiB aligned on the large-page path), or
// nullptr when the system refuses. Release with Free and the same size.
void* Allocate(size_t bytes);
void Free(void* block, size_t bytes);

}  // namespace velmora::scratch

// When kernels write their destination with streaming (non-temporal) stores. Such stores skip
// reading each destination line into the cache before overwriting it, which saves a third of the
// memory traffic on large images, but leave nothing cached for whatever reads the result next.
// So only destinations too large to stay in a desktop processor's last-level cache anyway
// stream, and never in place: there every line was just read into the cache, and streaming
// would only evict it. Streaming stores are weakly ordered; a kernel that used them issues
// _mm_sfence() before it returns.
#pragma once

#include <cstdint>

namespace velmora::stream {

inline constexpr int64_t kMinBytes = int64_t{16} << 20;

inline bool Worthwhile(const void* src, const void* dst, int64_t dst_bytes) {
    return src != dst && dst_bytes >= kMinBytes;
}

// Worthwhile, for a kernel that streams four floats at a time from each row's start: only where
// every row of the destination starts 16-byte aligned, which callers are not asked for.
inline bool WorthwhileRows(const void* src, const void* dst, int32_t dst_step, int64_t dst_bytes) {
    const bool aligned = ((reinterpret_cast<uintptr_t>(dst) | static_cast<uint32_t>(dst_step)) & 15u) == 0;
    return aligned && Worthwhile(src, dst, dst_bytes);
}

}  // namespace velmora::stream

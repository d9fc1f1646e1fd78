#include "retouch/min_filter.h"

#include <algorithm>
#include <cstring>

#include "core/frame.h"
#include "core/scratch.h"
#include "core/vec4.h"

namespace velmora::retouch {
namespace {

struct Bytes {
    using T = uint8_t;
    using V = __m128i;
    static constexpr int kLanes = 16;
    static V Load(const T* p) { return v4::LoadI(p); }
    static void Store(T* p, V v) { v4::StoreI(p, v); }
    static V Min(V a, V b) { return _mm_min_epu8(a, b); }
    static V Identity() { return _mm_set1_epi8(-1); }
    static T IdentityValue() { return 255; }
};

struct Floats {
    using T = float;
    using V = __m128;
    static constexpr int kLanes = 4;
    static V Load(const T* p) { return v4::Load(p); }
    static void Store(T* p, V v) { v4::Store(p, v); }
    static V Min(V a, V b) { return _mm_min_ps(a, b); }
    static V Identity() { return v4::Set1(__builtin_inff()); }
    static T IdentityValue() { return __builtin_inff(); }
};

// Minimum across one row (n elements, already the minima down) of windows of k = 2r+1 clipped to
// the row, into out[0 .. n). `span` holds the row between r identity elements on each side plus
// slack, and is overwritten: after the doubling steps span[x] is the minimum of P elements from x.
template <class E>
void MinAcross(typename E::T* span, size_t length, int32_t k, int32_t n, typename E::T* out) {
    using T = typename E::T;
    constexpr int L = E::kLanes;
    int32_t p = 1;
    for (; 2 * p <= k; p *= 2)  // ascending, so span[x + p] is still the previous level's
        for (size_t x = 0; x + p < length; x += L) E::Store(span + x, E::Min(E::Load(span + x), E::Load(span + x + p)));
    int32_t x = 0;
    for (; x + L <= n; x += L) E::Store(out + x, E::Min(E::Load(span + x), E::Load(span + x + k - p)));
    if (x < n) {
        alignas(16) T lanes[L];
        E::Store(lanes, E::Min(E::Load(span + x), E::Load(span + x + k - p)));
        std::memcpy(out + x, lanes, sizeof(T) * (n - x));
    }
}

template <class E>
void Minimum2D(int32_t w, int32_t h, int32_t r, RowSource<typename E::T> row, void* context, typename E::T* dst,
               int32_t dst_step) {
    using T = typename E::T;
    using V = typename E::V;
    constexpr int L = E::kLanes;
    if (w <= 0 || h <= 0) return;
    const int32_t k = 2 * r + 1;
    const size_t stride = static_cast<size_t>((w + L - 1) / L * L);  // elements a buffered row
    // The across span: r identities, the row, r identities, then slack for the doubling reads.
    const size_t span_length = static_cast<size_t>(w) + 2 * static_cast<size_t>(r);
    const size_t span_size = (span_length + 2 * static_cast<size_t>(k) + 2 * L) / L * L;
    const size_t bytes = sizeof(T) * (stride * 2 * static_cast<size_t>(k) + span_size);
    auto* buffers = static_cast<T*>(scratch::Allocate(bytes));
    T* suffix = buffers;               // block b: suffix[j] = min of rows j .. block end
    T* prefix = buffers + stride * k;  // block b+1: prefix[j] = min of rows block start .. j
    T* span = buffers + stride * 2 * k;
    // Rows in padded coordinates p = y + r: p outside r .. r+h-1 is the identity.
    // The source rows are read exactly to w: a last partial vector goes through a copy.
    const size_t whole = static_cast<size_t>(w) / L * L;
    auto combine = [&](T* out, const T* prev, int32_t p) {
        const int32_t y = p - r;
        const T* in = y >= 0 && y < h ? row(context, y) : nullptr;
        for (size_t i = 0; i < stride; i += L) {
            V v = E::Identity();
            if (in && i < whole) {
                v = E::Load(in + i);
            } else if (in) {
                alignas(16) T tail[L];
                E::Store(tail, E::Identity());
                std::memcpy(tail, in + i, sizeof(T) * (w - i));
                v = E::Load(tail);
            }
            if (prev) v = E::Min(v, E::Load(prev + i));
            E::Store(out + i, v);
        }
    };
    auto emit = [&](int32_t y, const T* a, const T* b) {  // row y down = min(a, b) (b may be null)
        std::fill(span, span + r, E::IdentityValue());
        T* mid = span + r;
        for (size_t i = 0; i < stride; i += L) {
            const V v = E::Load(a + i);
            E::Store(mid + i, b ? E::Min(v, E::Load(b + i)) : v);
        }
        std::fill(mid + w, span + span_size, E::IdentityValue());  // the row's padding past w
        MinAcross<E>(span, span_length, k, w, frame::Row(dst, dst_step, y));
    };
    for (int32_t b0 = 0; b0 < h; b0 += k) {  // block b covers padded rows b0 .. b0+k-1
        for (int32_t j = k - 1; j >= 0; --j)
            combine(suffix + stride * j, j == k - 1 ? nullptr : suffix + stride * (j + 1), b0 + j);
        const int32_t last = std::min(b0 + k, h) - 1;  // the block's last output row
        // Output y (padded window y .. y+2r) joins suffix[y] to prefix[y+2r] of the next block;
        // the block's first output is its whole block.
        emit(b0, suffix, nullptr);
        for (int32_t j = 0; b0 + k + j <= last + 2 * r; ++j)
            combine(prefix + stride * j, j == 0 ? nullptr : prefix + stride * (j - 1), b0 + k + j);
        for (int32_t y = b0 + 1; y <= last; ++y)
            emit(y, suffix + stride * (y - b0), prefix + stride * (y + 2 * r - b0 - k));
    }
    scratch::Free(buffers, bytes);
}

}  // namespace

void ClippedMinimum(int32_t w, int32_t h, int32_t r, RowSource<uint8_t> row, void* context, uint8_t* dst,
                    int32_t dst_step) {
    Minimum2D<Bytes>(w, h, r, row, context, dst, dst_step);
}

void ClippedMinimum(int32_t w, int32_t h, int32_t r, RowSource<float> row, void* context, float* dst,
                    int32_t dst_step) {
    Minimum2D<Floats>(w, h, r, row, context, dst, dst_step);
}

}  // namespace velmora::retouch

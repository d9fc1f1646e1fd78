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
    // 16 x 16 bytes: row i of the input becomes column i of the output.
    static void Transpose(V (&m)[16]) {
        for (int stage = 0; stage < 4; ++stage) {
            V t[16];
            for (int i = 0; i < 8; ++i) {
                t[2 * i] = _mm_unpacklo_epi8(m[i], m[i + 8]);
                t[2 * i + 1] = _mm_unpackhi_epi8(m[i], m[i + 8]);
            }
            for (int i = 0; i < 16; ++i) m[i] = t[i];
        }
    }
};

struct Floats {
    using T = float;
    using V = __m128;
    static constexpr int kLanes = 4;
    static V Load(const T* p) { return v4::Load(p); }
    static void Store(T* p, V v) { v4::Store(p, v); }
    static V Min(V a, V b) { return _mm_min_ps(a, b); }
    static V Identity() { return v4::Set1(__builtin_inff()); }
    static void Transpose(V (&m)[4]) { v4::Transpose4(m[0], m[1], m[2], m[3]); }
};

template <class E>
void MinDown(int32_t w, int32_t h, int32_t r, RowSource<typename E::T> row, void* context, typename E::T* dst,
             int32_t dst_step) {
    using T = typename E::T;
    using V = typename E::V;
    constexpr int L = E::kLanes;
    if (w <= 0 || h <= 0) return;
    const int32_t k = 2 * r + 1;
    const size_t stride = static_cast<size_t>((w + L - 1) / L * L);  // elements a buffered row
    const size_t bytes = sizeof(T) * stride * (2 * static_cast<size_t>(k) + L);
    auto* buffers = static_cast<T*>(scratch::Allocate(bytes));
    T* suffix = buffers;                   // block b: suffix[j] = min of rows j .. block end
    T* prefix = buffers + stride * k;      // block b+1: prefix[j] = min of rows block start .. j
    T* staged = buffers + stride * 2 * k;  // L output rows waiting to be written transposed
    // Rows in padded coordinates p = y + r: p outside r .. r+h-1 is the identity.
    auto combine = [&](T* out, const T* prev, int32_t p) {
        const int32_t y = p - r;
        const T* in = y >= 0 && y < h ? row(context, y) : nullptr;
        for (size_t i = 0; i < stride; i += L) {
            V v = in ? E::Load(in + i) : E::Identity();
            if (prev) v = E::Min(v, E::Load(prev + i));
            E::Store(out + i, v);
        }
    };
    auto flush = [&](int32_t y0, int32_t n) {  // staged rows y0 .. y0+n-1 -> dst columns
        for (size_t x = 0; x < static_cast<size_t>(w); x += L) {
            V m[L];
            for (int i = 0; i < L; ++i) m[i] = E::Load(staged + stride * std::min(i, n - 1) + x);
            E::Transpose(m);
            for (int j = 0; j < L && x + j < static_cast<size_t>(w); ++j) {
                T* d = frame::Row(dst, dst_step, static_cast<int32_t>(x + j)) + y0;
                if (n == L) {
                    E::Store(d, m[j]);
                } else {
                    alignas(16) T lanes[L];
                    E::Store(lanes, m[j]);
                    std::memcpy(d, lanes, sizeof(T) * n);
                }
            }
        }
    };
    int32_t staged_from = 0, staged_n = 0;
    auto emit = [&](int32_t y, const T* a, const T* b) {  // output row y = min(a, b) (b may be null)
        T* out = staged + stride * staged_n;
        for (size_t i = 0; i < stride; i += L) {
            const V v = E::Load(a + i);
            E::Store(out + i, b ? E::Min(v, E::Load(b + i)) : v);
        }
        if (staged_n == 0) staged_from = y;
        if (++staged_n == L) flush(staged_from, staged_n), staged_n = 0;
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
    if (staged_n > 0) flush(staged_from, staged_n);
    scratch::Free(buffers, bytes);
}

}  // namespace

void MinDownTransposed(int32_t w, int32_t h, int32_t r, RowSource<uint8_t> row, void* context, uint8_t* dst,
                       int32_t dst_step) {
    MinDown<Bytes>(w, h, r, row, context, dst, dst_step);
}

void MinDownTransposed(int32_t w, int32_t h, int32_t r, RowSource<float> row, void* context, float* dst,
                       int32_t dst_step) {
    MinDown<Floats>(w, h, r, row, context, dst, dst_step);
}

}  // namespace velmora::retouch

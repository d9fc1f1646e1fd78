// Haze removal by the dark-channel prior, as kernels the host chains: dark channel (8-bit gray or
// float RGBA), airlight estimate, rough transmission (three formats), radiance recovery.
//
// Every kernel offsets its planes to the region (x, y) itself, reads and writes exactly the
// region (the dark channels clip their windows to it), accepts any alignment and returns
// StatusOk; a height below 1 returns at once. One deliberate exception: the 8u32f transmission
// reads its source as one packed block of width x height bytes from the unmoved pointer.
// Airlight is used as one grey value, the mean of its three components, everywhere but in its
// own estimate.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <type_traits>

#include "core/frame.h"
#include "core/scratch.h"
#include "core/vec4.h"
#include "retouch/min_filter.h"

namespace velmora::retouch {
namespace {

constexpr float kInv255 = v4::kInv255;

template <class T>
T* At(T* base, int32_t step, int32_t x, int32_t y, int32_t pixel_bytes) {
    using Byte = std::conditional_t<std::is_const_v<T>, const uint8_t, uint8_t>;
    return reinterpret_cast<T*>(reinterpret_cast<Byte*>(frame::Row(base, step, y)) + int64_t{x} * pixel_bytes);
}

float GreyAirlight(float a0, float a1, float a2) { return (a1 + a0 + a2) * 0.33333334f; }

// A scratch plane of `rows` rows of `count` elements, rows padded to 16 bytes.
template <class T>
struct Plane {
    int32_t step;
    size_t bytes;
    T* data;
    Plane(int32_t count, int32_t rows)
        : step((count * static_cast<int32_t>(sizeof(T)) + 15) / 16 * 16),
          bytes(static_cast<size_t>(step) * std::max(rows, 1) + 16),
          data(static_cast<T*>(scratch::Allocate(bytes))) {}
    ~Plane() { scratch::Free(data, bytes); }
    T* Row(int32_t y) const { return frame::Row(data, step, y); }
};

// The window scan as defined, for planes holding NaN or negative zero, whose result depends on the
// order pixels are met: per lane, the running value is kept where it is strictly less than the
// pixel's, else the pixel's is taken (_mm_min_ps(running, pixel)), starting at 1.0; then
// min(B, G) is met with R the same way.
void DarkChannelScan(const float* src, int32_t src_step, float* dst, int32_t dst_step, int32_t w, int32_t h, int32_t r) {
    for (int32_t i = 0; i < h; ++i)
        for (int32_t j = 0; j < w; ++j) {
            __m128 m = v4::Set1(1.0f);
            for (int32_t yy = i - std::min(r, i); yy <= i + std::min(r, h - 1 - i); ++yy) {
                const float* row = frame::Row(src, src_step, yy);
                for (int32_t xx = j - std::min(r, j); xx <= j + std::min(r, w - 1 - j); ++xx)
                    m = _mm_min_ps(m, v4::Load(row + 4 * xx));
            }
            const __m128 bg = _mm_min_ss(v4::Broadcast<2>(m), v4::Broadcast<1>(m));
            frame::Row(dst, dst_step, i)[j] = _mm_cvtss_f32(_mm_min_ss(bg, m));
        }
}

// Rows of 16 pixels or more whose destination does not overlap the source take blocks of 16 with
// the approximate reciprocal refined by one Newton step; the rest of such rows, and the other
// rows, multiply by the exact reciprocal. The two may differ in the last bits.
template <class Dark>
void TransmissionRow(const Dark* dark, float* dst, int32_t w, float omega, float abar) {
    const auto* d0 = reinterpret_cast<const uint8_t*>(dark);
    const auto* o0 = reinterpret_cast<const uint8_t*>(dst);
    const bool overlap = d0 < o0 + 4 * int64_t{w} && o0 < d0 + sizeof(Dark) * w;
    auto load4 = [&](int32_t x) {
        if constexpr (sizeof(Dark) == 1) return v4::BytesToFloat(v4::Load32(dark + x));
        else return v4::Load(dark + x);
    };
    const __m128 one = v4::Set1(1.0f), om = v4::Set1(omega);
    int32_t x = 0;
    if (w >= 16 && !overlap) {
        const __m128 a = v4::Set1(abar);
        const __m128 r = _mm_rcp_ps(a);
        const __m128 refined = _mm_sub_ps(_mm_add_ps(r, r), _mm_mul_ps(_mm_mul_ps(r, r), a));
        for (; x + 16 <= w; x += 16)
            for (int k = 0; k < 16; k += 4)
                v4::Store(dst + x + k, _mm_sub_ps(one, _mm_mul_ps(_mm_mul_ps(load4(x + k), om), refined)));
    }
    const __m128 inv = v4::Set1(1.0f / abar);
    for (; x + 4 <= w; x += 4) v4::Store(dst + x, _mm_sub_ps(one, _mm_mul_ps(_mm_mul_ps(load4(x), om), inv)));
    for (; x < w; ++x) dst[x] = 1.0f - static_cast<float>(dark[x]) * omega * (1.0f / abar);
}

}  // namespace
}  // namespace velmora::retouch

namespace frame = velmora::frame;
namespace retouch = velmora::retouch;
namespace v4 = velmora::v4;
using retouch::At;

extern "C" VELMORA_API StatusCode VELMORA_CALL DarkChannel_8u_C1R(const uint8_t* src, int32_t srcStep, uint8_t* dst,
                                                                  int32_t dstStep, int32_t x, int32_t y, int32_t width,
                                                                  int32_t height, int32_t radius) {
    if (height < 1 || width < 1) return StatusOk;
    src = At(src, srcStep, x, y, 1);
    dst = At(dst, dstStep, x, y, 1);
    struct Source {
        const uint8_t* base;
        int32_t step;
    } source{src, srcStep};
    retouch::ClippedMinimum(
        width, height, radius,
        [](void* c, int32_t row) { return frame::Row(static_cast<Source*>(c)->base, static_cast<Source*>(c)->step, row); },
        &source, dst, dstStep);
    return StatusOk;
}

extern "C" VELMORA_API StatusCode VELMORA_CALL DarkChannel_32f_AC4C1R(const float* src, int32_t srcStep, float* dst,
                                                                      int32_t dstStep, int32_t x, int32_t y,
                                                                      int32_t width, int32_t height, int32_t radius) {
    if (height < 1 || width < 1) return StatusOk;
    src = At(src, srcStep, x, y, 16);
    dst = At(dst, dstStep, x, y, 4);
    // The minimum over window and channels in either order, capped at 1.0, is the scan's result
    // while no NaN or negative zero is met; those send the call to the scan itself. The channel
    // minima go to a plane first, four pixels a step.
    retouch::Plane<float> mins(width, height);
    __m128i special = _mm_setzero_si128();
    const __m128 one = v4::Set1(1.0f);
    for (int32_t i = 0; i < height; ++i) {
        const float* s = frame::Row(src, srcStep, i);
        float* m = mins.Row(i);
        for (int32_t j = 0; j < width; j += 4) {
            const int32_t n = std::min(4, width - j);
            __m128 px[4];
            for (int k = 0; k < 4; ++k) px[k] = v4::Load(s + 4 * (j + std::min(k, n - 1)));
            v4::Transpose4(px[0], px[1], px[2], px[3]);  // px[c]: channel c of the four pixels
            for (int c = 0; c < 3; ++c) {
                special = _mm_or_si128(special, _mm_castps_si128(_mm_cmpunord_ps(px[c], px[c])));
                special = _mm_or_si128(special, _mm_cmpeq_epi32(_mm_castps_si128(px[c]), _mm_set1_epi32(INT32_MIN)));
            }
            const __m128 v = _mm_min_ps(_mm_min_ps(_mm_min_ps(px[2], px[1]), px[0]), one);
            if (n == 4) {
                v4::Store(m + j, v);
            } else {
                alignas(16) float lanes[4];
                v4::StoreAligned(lanes, v);
                std::memcpy(m + j, lanes, sizeof(float) * n);
            }
        }
    }
    if (_mm_movemask_epi8(special) != 0) {
        retouch::DarkChannelScan(src, srcStep, dst, dstStep, width, height, radius);
        return StatusOk;
    }
    retouch::ClippedMinimum(
        width, height, radius,
        [](void* c, int32_t row) -> const float* { return static_cast<retouch::Plane<float>*>(c)->Row(row); }, &mins,
        dst, dstStep);
    return StatusOk;
}

extern "C" VELMORA_API StatusCode VELMORA_CALL EstimateAtmosphericLight_8u_C3C1R(const uint8_t* src, int32_t srcStep,
                                                                                 const uint8_t* dark, int32_t darkStep,
                                                                                 int32_t x, int32_t y, int32_t width,
                                                                                 int32_t height, uint8_t* light) {
    if (height < 1) return StatusOk;
    src = At(src, srcStep, x, y, 3);
    dark = At(dark, darkStep, x, y, 1);
    // The candidates are the brightest tenth of the dark channel, by its histogram.
    uint32_t hist[256] = {};
    for (int32_t i = 0; i < height; ++i)
        for (int32_t j = 0; j < width; ++j) ++hist[frame::Row(dark, darkStep, i)[j]];
    int64_t remaining = static_cast<int64_t>(std::ceil(static_cast<float>(width * height) * 0.1f));
    int32_t threshold = remaining == 0 ? 255 : -1;
    for (int32_t b = 255; b >= 0 && threshold < 0 && remaining > 0; --b) {
        if (hist[b] >= remaining) threshold = b;
        else remaining -= hist[b];
    }
    // The brightest candidate by luma, the first met on ties.
    float best = 0.0f;
    for (int32_t i = 0; i < height; ++i) {
        const uint8_t* d = frame::Row(dark, darkStep, i);
        const uint8_t* p = frame::Row(src, srcStep, i);
        for (int32_t j = 0; j < width; ++j, p += 3) {
            if (d[j] < threshold) continue;
            const float luma = static_cast<float>(p[0]) * 0.299f + static_cast<float>(p[1]) * 0.587f +
                               static_cast<float>(p[2]) * 0.114f;
            if (luma > best) best = luma, std::memcpy(light, p, 3);
        }
    }
    return StatusOk;
}

extern "C" VELMORA_API StatusCode VELMORA_CALL RoughtTransmissionMap_8u_C1R(const uint8_t* dark, int32_t darkStep,
                                                                            uint8_t* dst, int32_t dstStep, int32_t x,
                                                                            int32_t y, int32_t width, int32_t height,
                                                                            float atmosphericLight, float omega) {
    if (height < 1) return StatusOk;
    dark = At(dark, darkStep, x, y, 1);
    dst = At(dst, dstStep, x, y, 1);
    uint8_t table[256];
    const float k = omega / atmosphericLight;
    for (int i = 0; i < 256; ++i) {
        const float v = std::max(1.0f - static_cast<float>(i) * retouch::kInv255 * k, 0.0f);
        table[i] = static_cast<uint8_t>(static_cast<int32_t>(v * 255.0f + 0.5f));
    }
    for (int32_t i = 0; i < height; ++i) {
        const uint8_t* d = frame::Row(dark, darkStep, i);
        uint8_t* o = frame::Row(dst, dstStep, i);
        for (int32_t j = 0; j < width; ++j) o[j] = table[d[j]];
    }
    return StatusOk;
}

extern "C" VELMORA_API StatusCode VELMORA_CALL RoughtTransmissionMap_32f_C1R(const float* dark, int32_t darkStep,
                                                                             float* dst, int32_t dstStep, int32_t x,
                                                                             int32_t y, int32_t width, int32_t height,
                                                                             const float* light, float omega) {
    if (height < 1 || width < 1) return StatusOk;
    dark = At(dark, darkStep, x, y, 4);
    dst = At(dst, dstStep, x, y, 4);
    const float abar = retouch::GreyAirlight(light[0], light[1], light[2]);
    for (int32_t i = 0; i < height; ++i)
        retouch::TransmissionRow(frame::Row(dark, darkStep, i), frame::Row(dst, dstStep, i), width, omega, abar);
    return StatusOk;
}

extern "C" VELMORA_API StatusCode VELMORA_CALL RoughtTransmissionMap_8u32f_C1R(const uint8_t* dark, int32_t,
                                                                               float* dst, int32_t dstStep, int32_t x,
                                                                               int32_t y, int32_t width,
                                                                               int32_t height, const uint8_t* light) {
    if (height < 1 || width < 1) return StatusOk;
    dst = At(dst, dstStep, x, y, 4);
    const float abar = retouch::GreyAirlight(light[0], light[1], light[2]);
    // The source is one packed block from the unmoved pointer: row i starts i x width bytes in.
    for (int32_t i = 0; i < height; ++i)
        retouch::TransmissionRow(dark + int64_t{i} * width, frame::Row(dst, dstStep, i), width, 0.95f, abar);
    return StatusOk;
}

extern "C" VELMORA_API StatusCode VELMORA_CALL Dehaze_32f_AC4R(const float* src, int32_t srcStep,
                                                               const uint8_t* transmission, int32_t transmissionStep,
                                                               float* dst, int32_t dstStep, int32_t x, int32_t y,
                                                               int32_t width, int32_t height, const float* light,
                                                               float t0) {
    if (height < 1) return StatusOk;
    src = At(src, srcStep, x, y, 16);
    transmission = At(transmission, transmissionStep, x, y, 1);
    dst = At(dst, dstStep, x, y, 16);
    const __m128 abar = v4::Set1(retouch::GreyAirlight(light[0], light[1], light[2]));
    const __m128 floor = _mm_set_ss(t0);
    // Every lane, alpha included, goes through (I - A) / t + A.
    for (int32_t i = 0; i < height; ++i) {
        const float* s = frame::Row(src, srcStep, i);
        const uint8_t* t = frame::Row(transmission, transmissionStep, i);
        float* d = frame::Row(dst, dstStep, i);
        for (int32_t j = 0; j < width; ++j) {
            const __m128 tt = _mm_max_ss(_mm_set_ss(static_cast<float>(t[j]) * retouch::kInv255), floor);
            const __m128 scale = v4::Broadcast<0>(_mm_div_ss(_mm_set_ss(1.0f), tt));
            v4::Store(d + 4 * j, _mm_add_ps(_mm_mul_ps(_mm_sub_ps(v4::Load(s + 4 * j), abar), scale), abar));
        }
    }
    return StatusOk;
}

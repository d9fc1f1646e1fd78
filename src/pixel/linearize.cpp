// Linearizing loaders: encoded 8- and 16-bit pixels go through the caller's transfer table (with
// linear interpolation) and the caller's 3 x 3 colour matrix into linear RGBA, in one pass.
//
// What is touched: every loader works in whole blocks of its suffix (_X2, _X4, _X16), so a width
// that is not a block multiple reads the source row and writes the destination row up to the next
// block multiple; those extra pixels are computed from whatever bytes follow the row. The table is
// read only at entries 0 .. n-1 and the matrix at its nine floats. The in-place 16-bit member
// touches exactly its region.
#include <emmintrin.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "core/frame.h"
#include "core/vec4.h"

namespace velmora::pixel {
namespace {

using v4::kInv255;
using v4::kInv65535;

// Taken off the table size so that the top code lands strictly inside the last interval.
constexpr float kMargin = 1.0001f;

// The transfer table read with linear interpolation: position p = code x s with
// s = (n - 1.0001) x (1/255 or 1/65535) in single precision, k = trunc(p), and
// v = T[k] + (T[k+1] - T[k]) x (p - k). In single precision the margin does not always survive:
// for many n the top code's p rounds to exactly n - 1 (with n = 65536 and 16-bit codes s is 1.0,
// so every code lands on its own entry), where the upper neighbour T[n] does not exist but
// carries weight 0. Its index is bounded to n - 1 instead: such a code gets exactly T[n - 1], the
// formula's value, and T[n] is never read. (Were p ever to round past n - 1, the missing
// neighbour would carry weight; T[n - 1] stands in for it.)
class Curve {
public:
    Curve(const float* table, int32_t n, float code_scale)
        : table_(table),
          scale_(_mm_set1_ps((static_cast<float>(n) - kMargin) * code_scale)),
          last_pair_(_mm_set1_epi32(n - 2)) {}

    // Four integer codes (int32 lanes) to four linear values.
    __m128 operator()(__m128i codes) const {
        const __m128 p = _mm_mul_ps(_mm_cvtepi32_ps(codes), scale_);
        const __m128i k = _mm_cvttps_epi32(p);
        const __m128 frac = _mm_sub_ps(p, _mm_cvtepi32_ps(k));
        // One 8-byte load fetches both neighbours T[j], T[j+1] of a lane, j = min(k, n - 2);
        // where k is n - 1 both neighbours are then T[n - 1], the pair's upper entry.
        const __m128i past = _mm_cmpgt_epi32(k, last_pair_);
        const __m128i j = v4::Select(k, last_pair_, past);
        alignas(16) int32_t at[4];
        _mm_store_si128(reinterpret_cast<__m128i*>(at), j);
        const __m128 n01 = _mm_loadh_pi(Pair(at[0]), reinterpret_cast<const __m64*>(table_ + at[1]));
        const __m128 n23 = _mm_loadh_pi(Pair(at[2]), reinterpret_cast<const __m64*>(table_ + at[3]));
        const __m128 hi = _mm_shuffle_ps(n01, n23, _MM_SHUFFLE(3, 1, 3, 1));
        const __m128 lo = v4::Select(_mm_shuffle_ps(n01, n23, _MM_SHUFFLE(2, 0, 2, 0)), hi, _mm_castsi128_ps(past));
        return _mm_add_ps(lo, _mm_mul_ps(_mm_sub_ps(hi, lo), frac));
    }

private:
    __m128 Pair(int32_t k) const { return _mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(table_ + k)); }

    const float* table_;
    __m128 scale_;
    __m128i last_pair_;
};

// For 8-bit codes the linear value depends on the code alone, so the 256 values are interpolated
// once per call, with the same arithmetic as 16-bit codes, and each pixel then costs plain loads.
class ByteCurve {
public:
    ByteCurve(const float* table, int32_t n) {
        const Curve curve(table, n, kInv255);
        for (int32_t c = 0; c < 256; c += 4) v4::Store(value_ + c, curve(_mm_setr_epi32(c, c + 1, c + 2, c + 3)));
    }
    float operator[](uint8_t code) const { return value_[code]; }

private:
    alignas(16) float value_[256];
};

struct WordCurve : Curve {
    WordCurve(const float* table, int32_t n) : Curve(table, n, kInv65535) {}
};

// Four pixels in channel planes: the linear colour of each pixel, then its output alpha.
struct Quad {
    __m128 r, g, b, a;
};

// The matrix as a row vector times three rows: R' = m0 r + m3 g + m6 b, G' = m1 r + m4 g + m7 b,
// B' = m2 r + m5 g + m8 b, summed left to right; broadcast coefficients live for the whole call.
class Matrix {
public:
    explicit Matrix(const float* m) {
        for (int i = 0; i < 9; ++i) m_[i] = _mm_set1_ps(m[i]);
    }
    void Apply(Quad& q) const {
        const __m128 r = Row(q, 0), g = Row(q, 1), b = Row(q, 2);
        q.r = r, q.g = g, q.b = b;
    }

private:
    __m128 Row(const Quad& q, int i) const {
        return _mm_add_ps(_mm_add_ps(_mm_mul_ps(m_[i], q.r), _mm_mul_ps(m_[i + 3], q.g)), _mm_mul_ps(m_[i + 6], q.b));
    }
    __m128 m_[9];
};

// How a source's alpha becomes the output alpha.
enum class Alpha {
    Opaque,   // no alpha in the source: exactly 1.0
    Scaled,   // code x the float nearest 1/255 (or 1/65535)
    Divided,  // code / 255, correctly rounded (the second premultiplied generation)
};

// 8-bit sources: pixel size, byte offsets of R, G, B and alpha (-1: none), alpha rule.
template <int kBytes, int kR, int kG, int kB, int kA, Alpha kAlpha>
struct Bytes8 {
    using Lookup = ByteCurve;
    static constexpr int kBlock = 4, kPixelBytes = kBytes;

    template <int kCount>
    static Quad Load(const uint8_t* px, const ByteCurve& lin) {
        static_assert(kCount == 4, "8-bit sources run whole blocks of four");
        Quad q{Channel<kR>(px, lin), Channel<kG>(px, lin), Channel<kB>(px, lin), _mm_set1_ps(1.f)};
        if constexpr (kAlpha != Alpha::Opaque) {
            // The four alpha bytes are the top bytes of the block's four 32-bit pixels.
            static_assert(kBytes == 4 && kA == 3, "alpha rides in the fourth byte of a 4-byte pixel");
            const __m128 a = _mm_cvtepi32_ps(_mm_srli_epi32(v4::LoadI(px), 24));
            q.a = kAlpha == Alpha::Scaled ? _mm_mul_ps(a, _mm_set1_ps(kInv255)) : _mm_div_ps(a, _mm_set1_ps(255.f));
        }
        return q;
    }

    template <int kOffset>
    static __m128 Channel(const uint8_t* px, const ByteCurve& lin) {
        return _mm_setr_ps(lin[px[kOffset]], lin[px[kBytes + kOffset]], lin[px[2 * kBytes + kOffset]],
                           lin[px[3 * kBytes + kOffset]]);
    }
};

using Bgr24 = Bytes8<3, 2, 1, 0, -1, Alpha::Opaque>;
using Rgb24 = Bytes8<3, 0, 1, 2, -1, Alpha::Opaque>;
using Bgra32 = Bytes8<4, 2, 1, 0, 3, Alpha::Scaled>;
using Pbgra32Divided = Bytes8<4, 2, 1, 0, 3, Alpha::Divided>;

// Grey: each code is looked up once and stands for R, G and B alike, so the matrix sees (v, v, v)
// and a grey pixel loads exactly as the same pixel from a colour source would.
struct Gray8 {
    using Lookup = ByteCurve;
    static constexpr int kBlock = 16, kPixelBytes = 1;

    template <int kCount>
    static Quad Load(const uint8_t* px, const ByteCurve& lin) {
        const __m128 v = _mm_setr_ps(lin[px[0]], lin[px[1]], lin[px[2]], lin[px[3]]);
        return {v, v, v, _mm_set1_ps(1.f)};
    }
};

// 16-bit sources: the codes are gathered into channel planes and interpolated four at a time.
struct Rgb48 {
    using Lookup = WordCurve;
    static constexpr int kBlock = 4, kPixelBytes = 6;

    template <int kCount>
    static Quad Load(const uint8_t* px, const WordCurve& curve) {
        static_assert(kCount == 4, "Rgb48 runs whole blocks of four");
        // 24 bytes: r0 g0 b0 r1 g1 b1 r2 g2 | b2 r3 g3 b3, read without touching byte 24.
        const __m128i lo = v4::LoadI(px), hi = v4::Load64(px + 16);
        __m128 p0 = _mm_castsi128_ps(v4::WidenLo16(lo));
        __m128 p1 = _mm_castsi128_ps(v4::WidenLo16(_mm_srli_si128(lo, 6)));
        __m128 p2 = _mm_castsi128_ps(v4::WidenLo16(_mm_or_si128(_mm_srli_si128(lo, 12), _mm_slli_si128(hi, 4))));
        __m128 p3 = _mm_castsi128_ps(v4::WidenLo16(_mm_srli_si128(hi, 2)));
        v4::Transpose4(p0, p1, p2, p3);
        return {curve(_mm_castps_si128(p0)), curve(_mm_castps_si128(p1)), curve(_mm_castps_si128(p2)),
                _mm_set1_ps(1.f)};
    }
};

struct Rgba64 {
    using Lookup = WordCurve;
    static constexpr int kBlock = 2, kPixelBytes = 8;

    // kCount 2 reads only the first two pixels (16 bytes); the other lanes are zero codes.
    template <int kCount>
    static Quad Load(const uint8_t* px, const WordCurve& curve) {
        const __m128i lo = v4::LoadI(px), hi = kCount == 4 ? v4::LoadI(px + 16) : _mm_setzero_si128();
        __m128 p0 = _mm_castsi128_ps(v4::WidenLo16(lo)), p1 = _mm_castsi128_ps(v4::WidenHi16(lo));
        __m128 p2 = _mm_castsi128_ps(v4::WidenLo16(hi)), p3 = _mm_castsi128_ps(v4::WidenHi16(hi));
        v4::Transpose4(p0, p1, p2, p3);
        return {curve(_mm_castps_si128(p0)), curve(_mm_castps_si128(p1)), curve(_mm_castps_si128(p2)),
                _mm_mul_ps(_mm_cvtepi32_ps(_mm_castps_si128(p3)), _mm_set1_ps(kInv65535))};
    }
};

// Float destinations keep the matrix output as it is: no clamp, negatives and values above 1 stay.
struct ToRgba128F {
    static constexpr int kBytes = 16;
    template <int kCount>
    static void Store(uint8_t* out, Quad q) {
        v4::Transpose4(q.r, q.g, q.b, q.a);
        float* f = reinterpret_cast<float*>(out);
        v4::Store(f, q.r);
        v4::Store(f + 4, q.g);
        if constexpr (kCount == 4) {
            v4::Store(f + 8, q.b);
            v4::Store(f + 12, q.a);
        }
    }
};

// 16-bit destinations clamp to [0, 1] (NaN to 0), scale by 65535 and round half to even.
struct ToRgba64 {
    static constexpr int kBytes = 8;
    template <int kCount>
    static void Store(uint8_t* out, Quad q) {
        v4::Transpose4(q.r, q.g, q.b, q.a);
        v4::StoreI(out, Pack(q.r, q.g));
        if constexpr (kCount == 4) v4::StoreI(out + 16, Pack(q.b, q.a));
    }
    static __m128i Pack(__m128 a, __m128 b) {
        const __m128 scale = _mm_set1_ps(65535.f);
        return v4::PackToWords(v4::ToCode(a, scale), v4::ToCode(b, scale));
    }
};

// kPremultiply: a straight-alpha source into a premultiplied destination; the colour is
// multiplied by alpha after the matrix, in linear light, where compositing expects it.
template <class Src, class Dst, bool kPremultiply, int kCount>
void LoadStep(const uint8_t* in, uint8_t* out, const typename Src::Lookup& lookup, const Matrix& m) {
    Quad q = Src::template Load<kCount>(in, lookup);
    m.Apply(q);
    if constexpr (kPremultiply) q.r = _mm_mul_ps(q.r, q.a), q.g = _mm_mul_ps(q.g, q.a), q.b = _mm_mul_ps(q.b, q.a);
    Dst::template Store<kCount>(out, q);
}

// One row: whole blocks up to the next multiple of the export's block (the documented overrun),
// run four pixels at a time; an _X2 row whose rounded width is not a multiple of four ends with a
// two-pixel step through the same arithmetic.
template <class Src, class Dst, bool kPremultiply>
void LoadRow(const uint8_t* in, uint8_t* out, int32_t width, const typename Src::Lookup& lookup, const Matrix& m) {
    if (width <= 0) return;
    const int64_t touched = (int64_t{width} + Src::kBlock - 1) / Src::kBlock * Src::kBlock;
    int64_t x = 0;
    for (; x + 4 <= touched; x += 4)
        LoadStep<Src, Dst, kPremultiply, 4>(in + x * Src::kPixelBytes, out + x * Dst::kBytes, lookup, m);
    if constexpr (Src::kBlock == 2)
        if (x < touched)
            LoadStep<Src, Dst, kPremultiply, 2>(in + x * Src::kPixelBytes, out + x * Dst::kBytes, lookup, m);
}

// The shared body of every ImageToLinearRGB_* export. A table of fewer than two entries has no
// interval to interpolate in: the region is then cleared to zero (transparent black) without
// reading the source, the table or the matrix.
template <class Src, class Dst, bool kPremultiply = false>
StatusCode Load(const void* src, int32_t src_step, void* dst, int32_t dst_step, const ImageSize* size,
                const float* table, int32_t n, const float* matrix) {
    if (size->width <= 0 || size->height <= 0) return StatusOk;
    auto* out = static_cast<uint8_t*>(dst);
    if (n < 2) {
        for (int32_t y = 0; y < size->height; ++y)
            std::memset(frame::Row(out, dst_step, y), 0, static_cast<size_t>(size->width) * Dst::kBytes);
        return StatusOk;
    }
    const typename Src::Lookup lookup(table, n);
    const Matrix m(matrix);
    frame::ForEachRow(static_cast<const uint8_t*>(src), src_step, out, dst_step, size,
                      [&](const uint8_t* in_row, uint8_t* out_row, int32_t width) {
                          LoadRow<Src, Dst, kPremultiply>(in_row, out_row, width, lookup, m);
                      });
    return StatusOk;
}

// In-place 16-bit linearization. Table pass: R, G, B of every pixel replaced by table16[code],
// alpha left alone; rows are independent, so they are shared among the OpenMP team.
void TableRow(uint16_t* px, int32_t width, const uint16_t* table16) {
    // A pixel is read and written as one 64-bit word, so the lookups never wait on the stores.
    for (int32_t x = 0; x < width; ++x, px += 4) {
        uint64_t v;
        std::memcpy(&v, px, 8);
        const uint64_t r = table16[v & 0xFFFF], g = table16[(v >> 16) & 0xFFFF], b = table16[(v >> 32) & 0xFFFF];
        v = (v & 0xFFFF000000000000u) | r | g << 16 | b << 32;
        std::memcpy(px, &v, 8);
    }
}

// Matrix pass, kPixels (2 or 1) pixels a step: codes to float, the matrix, rounding half to even
// and signed 16-bit saturation towards the ends of the signed range: above 32767 stores 32767 and
// every negative result stores 0x8000, the code hosts read as "below black" (this path's data
// lives in 0..32767). Alpha keeps its 16 bits exactly.
template <int kPixels>
void MatrixRow(uint16_t* px, int32_t width, const __m128 rows[3]) {
    const __m128i alpha_words = _mm_setr_epi16(0, 0, 0, -1, 0, 0, 0, -1);
    auto pixel = [&](__m128i codes) {
        const __m128 c = _mm_cvtepi32_ps(codes);
        const __m128 v =
            _mm_add_ps(_mm_add_ps(_mm_mul_ps(rows[0], v4::Broadcast<0>(c)), _mm_mul_ps(rows[1], v4::Broadcast<1>(c))),
                       _mm_mul_ps(rows[2], v4::Broadcast<2>(c)));
        return v4::RoundToInt(v);
    };
    for (int32_t x = 0; x + kPixels <= width; x += kPixels, px += 4 * kPixels) {
        const __m128i in = kPixels == 2 ? v4::LoadI(px) : v4::Load64(px);
        const __m128i packed = _mm_packs_epi32(pixel(v4::WidenLo16(in)), pixel(v4::WidenHi16(in)));
        const __m128i negative = _mm_cmplt_epi16(packed, _mm_setzero_si128());
        const __m128i out = v4::Select(packed, _mm_set1_epi16(-32768), negative);
        const __m128i merged = v4::Select(out, in, alpha_words);
        if constexpr (kPixels == 2)
            v4::StoreI(px, merged);
        else
            v4::Store64(px, merged);
    }
}

}  // namespace
}  // namespace velmora::pixel

using namespace velmora::pixel;

#define VELMORA_LINEARIZE_ARGS                                                                                 \
    const void *src, int32_t src_step, void *dst, int32_t dst_step, const ImageSize *size, const float *table, \
        int32_t n, const float *matrix
#define VELMORA_LINEARIZE_PASS src, src_step, dst, dst_step, size, table, n, matrix

extern "C" {

VELMORA_API StatusCode VELMORA_CALL ImageToLinearRGB_Bgr24_Rgba128F_SSE2_X4(VELMORA_LINEARIZE_ARGS) {
    return Load<Bgr24, ToRgba128F>(VELMORA_LINEARIZE_PASS);
}
VELMORA_API StatusCode VELMORA_CALL ImageToLinearRGB_Rgb24_Rgba128F_SSE2_X4(VELMORA_LINEARIZE_ARGS) {
    return Load<Rgb24, ToRgba128F>(VELMORA_LINEARIZE_PASS);
}
VELMORA_API StatusCode VELMORA_CALL ImageToLinearRGB_Bgra32_Rgba128F_SSE2_X4(VELMORA_LINEARIZE_ARGS) {
    return Load<Bgra32, ToRgba128F>(VELMORA_LINEARIZE_PASS);
}
// The fourth byte of a Bgr32 pixel is read as alpha, exactly as the Bgra32 member reads it.
VELMORA_API StatusCode VELMORA_CALL ImageToLinearRGB_Bgr32_Rgba128F_SSE2_X4(VELMORA_LINEARIZE_ARGS) {
    return ImageToLinearRGB_Bgra32_Rgba128F_SSE2_X4(VELMORA_LINEARIZE_PASS);
}
VELMORA_API StatusCode VELMORA_CALL ImageToLinearRGB_Bgra32_Prgba128F_SSE2_X4(VELMORA_LINEARIZE_ARGS) {
    return Load<Bgra32, ToRgba128F, true>(VELMORA_LINEARIZE_PASS);
}
// Premultiplied codes are linearized as they stand (never divided by alpha first).
VELMORA_API StatusCode VELMORA_CALL ImageToLinearRGB_Pbgra32_Prgba128F_SSE2_X4(VELMORA_LINEARIZE_ARGS) {
    return Load<Bgra32, ToRgba128F>(VELMORA_LINEARIZE_PASS);
}
// Second generation: the same colour, alpha as the correctly rounded A / 255.
VELMORA_API StatusCode VELMORA_CALL _ImageToLinearRGB_Pbgra32_Prgba128F_SSE2_X4(VELMORA_LINEARIZE_ARGS) {
    return Load<Pbgra32Divided, ToRgba128F>(VELMORA_LINEARIZE_PASS);
}
VELMORA_API StatusCode VELMORA_CALL ImageToLinearRGB_Gray8_Rgba128F_SSE2_X16(VELMORA_LINEARIZE_ARGS) {
    return Load<Gray8, ToRgba128F>(VELMORA_LINEARIZE_PASS);
}
VELMORA_API StatusCode VELMORA_CALL ImageToLinearRGB_Bgr24_Rgba64_SSE2_X4(VELMORA_LINEARIZE_ARGS) {
    return Load<Bgr24, ToRgba64>(VELMORA_LINEARIZE_PASS);
}
VELMORA_API StatusCode VELMORA_CALL ImageToLinearRGB_Rgb24_Rgba64_SSE2_X4(VELMORA_LINEARIZE_ARGS) {
    return Load<Rgb24, ToRgba64>(VELMORA_LINEARIZE_PASS);
}
VELMORA_API StatusCode VELMORA_CALL ImageToLinearRGB_Rgb48_Rgba128F_SSE2_X4(VELMORA_LINEARIZE_ARGS) {
    return Load<Rgb48, ToRgba128F>(VELMORA_LINEARIZE_PASS);
}
VELMORA_API StatusCode VELMORA_CALL ImageToLinearRGB_Rgb48_Rgba64_SSE2_X4(VELMORA_LINEARIZE_ARGS) {
    return Load<Rgb48, ToRgba64>(VELMORA_LINEARIZE_PASS);
}
VELMORA_API StatusCode VELMORA_CALL ImageToLinearRGB_Rgba64_Rgba128F_SSE2_X2(VELMORA_LINEARIZE_ARGS) {
    return Load<Rgba64, ToRgba128F>(VELMORA_LINEARIZE_PASS);
}
// Alpha takes the float path of the colour: A / 65535, clamped, x 65535, rounded (A comes back).
VELMORA_API StatusCode VELMORA_CALL ImageToLinearRGB_Rgba64_SSE2_X2(VELMORA_LINEARIZE_ARGS) {
    return Load<Rgba64, ToRgba64>(VELMORA_LINEARIZE_PASS);
}

VELMORA_API StatusCode VELMORA_CALL SSE_Linearize_Rgba64_VecX2(uint16_t* image, int32_t step, int32_t width,
                                                               int32_t height, const uint16_t* table16,
                                                               const float* matrix) {
    if (width <= 0 || height <= 0) return StatusOk;
    if (table16 != nullptr) {
#pragma omp parallel for schedule(static)
        for (int32_t y = 0; y < height; ++y) TableRow(velmora::frame::Row(image, step, y), width, table16);
    }
    // Row-vector order as the loaders: lane i of the result is m[i] r + m[i+3] g + m[i+6] b.
    const __m128 rows[3] = {_mm_setr_ps(matrix[0], matrix[1], matrix[2], 0.f),
                            _mm_setr_ps(matrix[3], matrix[4], matrix[5], 0.f),
                            _mm_setr_ps(matrix[6], matrix[7], matrix[8], 0.f)};
    for (int32_t y = 0; y < height; ++y) {
        uint16_t* row = velmora::frame::Row(image, step, y);
        if (width % 2 == 0)
            MatrixRow<2>(row, width, rows);
        else
            MatrixRow<1>(row, width, rows);
    }
    return StatusOk;
}

}  // extern "C"

// Integer/float conversions against the scalar reference on guarded planes of random shapes.
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "reference/convert.h"
#include "support/compare.h"
#include "support/shapes.h"
#include "velmora/imaging.h"

namespace {

using Call = std::function<StatusCode(const void*, int32_t, void*, int32_t, const ImageSize*)>;
enum class Source { Bytes, Words, Floats };

struct Converter {
    std::string name;
    Call call;
    void (*reference)(const uint8_t*, uint8_t*);
    int src_bytes, dst_bytes;  // per pixel
    int block;                 // widths round up to this many pixels (1: exactly the region)
    bool validating;
    Source source;
};

// Adapts each export to one signature; the void ones report StatusOk.
template <class S, class D, class R>
Call Wrap(R (*fn)(const S*, int32_t, D*, int32_t, const ImageSize*)) {
    return [fn](const void* s, int32_t ss, void* d, int32_t ds, const ImageSize* roi) -> StatusCode {
        if constexpr (std::is_void_v<R>) {
            fn(static_cast<const S*>(s), ss, static_cast<D*>(d), ds, roi);
            return StatusOk;
        } else {
            return fn(static_cast<const S*>(s), ss, static_cast<D*>(d), ds, roi);
        }
    };
}

const std::vector<Converter>& Converters() {
    static const std::vector<Converter> all = {
        {"Bgr24_Bgr32", Wrap(ImageConvert_Bgr24_Bgr32_SSE2), ref::Bgr24ToBgr32, 3, 4, 1, false, Source::Bytes},
        {"Bgra32_Prgba128F", Wrap(ImageConvert_Bgra32_Prgba128F), ref::Bgra32ToPrgba128F, 4, 16, 2, false, Source::Bytes},
        {"Bgra32_Rgba128F", Wrap(ImageConvert_Bgra32_Rgba128F), ref::Bgra32ToRgba128F, 4, 16, 2, false, Source::Bytes},
        {"Rgba32_Rgba128F", Wrap(ImageConvert_Rgba32_Rgba128F), ref::Rgba32ToRgba128F, 4, 16, 2, false, Source::Bytes},
        {"Rgba64_Rgba128F", Wrap(ImageConvert_Rgba64_Rgba128F), ref::Rgba64ToRgba128F, 8, 16, 1, false, Source::Words},
        {"Gray8_Bgr32", Wrap(ImageConvert_Gray8_Bgr32_SSE2), ref::Gray8ToBgr32, 1, 4, 1, true, Source::Bytes},
        {"Gray8_Bgra32", Wrap(ImageConvert_Gray8_Bgra32_SSE2), ref::Gray8ToBgra32, 1, 4, 1, true, Source::Bytes},
        {"Gray8_Rgb128F", Wrap(ImageConvert_Gray8_Rgb128F_SSE2), ref::Gray8ToRgb128F, 1, 16, 1, true, Source::Bytes},
        {"Gray8_Rgba128F", Wrap(ImageConvert_Gray8_Rgba128F_SSE2), ref::Gray8ToRgba128F, 1, 16, 1, true, Source::Bytes},
        {"Rgb128F_Bgr24", Wrap(ImageConvert_Rgb128F_Bgr24_SSE2), ref::Rgb128FToBgr24, 16, 3, 1, true, Source::Floats},
        {"Rgba128F_Bgra32", Wrap(ImageConvert_Rgba128F_Bgra32), ref::Rgba128FToBgra32, 16, 4, 4, false, Source::Floats},
        {"Rgba128F_Rgba32", Wrap(ImageConvert_Rgba128F_Rgba32), ref::Rgba128FToRgba32, 16, 4, 4, false, Source::Floats},
        {"Rgba128F_Rgba64", Wrap(ImageConvert_Rgba128F_Rgba64), ref::Rgba128FToRgba64, 16, 8, 2, false, Source::Floats},
    };
    return all;
}

// Float sources mix in-range values, exact rounding midpoints, out-of-range values and NaN/inf.
float RandomFloat(std::mt19937& rng) {
    const uint32_t pick = rng() % 16;
    if (pick == 0) return std::numeric_limits<float>::quiet_NaN();
    if (pick == 1) return (rng() & 1) ? std::numeric_limits<float>::infinity() : -std::numeric_limits<float>::infinity();
    if (pick == 2) return (static_cast<float>(rng() % 256) + 0.5f) / 255.0f;
    if (pick == 3) return std::uniform_real_distribution<float>(-2.f, 3.f)(rng);
    return std::uniform_real_distribution<float>(0.f, 1.f)(rng);
}

void PrintTo(const Converter& c, std::ostream* os) { *os << c.name; }

std::vector<Converter> Validating() {
    std::vector<Converter> v;
    for (const Converter& c : Converters())
        if (c.validating) v.push_back(c);
    return v;
}

class Convert : public ::testing::TestWithParam<Converter> {};
class ConvertChecked : public ::testing::TestWithParam<Converter> {};

// Runs the converter on guarded planes of the given geometry and compares every written byte
// (the region plus its documented overrun) with the reference, which performs the same
// single-precision operations and so must agree exactly.
void ExpectMatches(const Converter& c, const vt::Shape& s, int32_t src_step, int32_t dst_step, int align) {
    const int64_t src_row = vt::RowBytes(s.width, c.block, c.src_bytes);
    const int64_t dst_row = vt::RowBytes(s.width, c.block, c.dst_bytes);
    const int rows = std::max(s.height, 0);
    vt::GuardedPlane src(src_row, rows, src_step, s.placement, align);
    vt::GuardedPlane dst(dst_row, rows, dst_step, s.placement, align);
    std::mt19937 rng(s.seed);
    if (c.source == Source::Floats) src.FillRows<float>([&](int, int64_t) { return RandomFloat(rng); });
    else src.FillRandomBytes(s.seed);
    const auto before = dst.Snapshot();
    const ImageSize roi{s.width, s.height};
    ASSERT_EQ(c.call(src.data(), src.step(), dst.data(), dst.step(), &roi), StatusOk);
    std::vector<uint8_t> want(static_cast<size_t>(rows * dst_row));
    for (int y = 0; y < rows; ++y)
        for (int64_t x = 0; x < dst_row / c.dst_bytes; ++x)
            c.reference(src.Row(y) + x * c.src_bytes, want.data() + y * dst_row + x * c.dst_bytes);
    EXPECT_TRUE(vt::RowsMatch<uint8_t>([&](int y) { return dst.Row(y); }, rows, dst_row, want));
    EXPECT_TRUE(dst.OnlyRowsChanged(before, dst_row));
}

// Validating kernels demand 16-byte aligned rows; the others accept any 4-byte aligned rows,
// which exercises their unaligned loops. The last shape's destination is too large to stay
// cached, so it takes the streaming stores (odd width, padded rows).
TEST_P(Convert, MatchesReference) {
    const Converter& c = GetParam();
    const int align = c.validating ? 16 : 4;
    for (const vt::Shape& s : vt::RandomShapes(101, 150)) {
        SCOPED_TRACE(vt::Describe(s));
        ExpectMatches(c, s, vt::StepFor(s, vt::RowBytes(s.width, c.block, c.src_bytes), s.pad_src, align),
                      vt::StepFor(s, vt::RowBytes(s.width, c.block, c.dst_bytes), s.pad_dst, align), align);
    }
    const vt::Shape large{1031, static_cast<int>((int64_t{17} << 20) / (int64_t{1031} * c.dst_bytes)) + 1, 0, 0, false,
                          vt::Placement::End, 5};
    ExpectMatches(c, large, vt::StepFor(large, vt::RowBytes(1031, c.block, c.src_bytes), 16),
                  vt::StepFor(large, vt::RowBytes(1031, c.block, c.dst_bytes), 16), 16);
}

TEST_P(ConvertChecked, RejectsBadArgumentsAndTouchesNothing) {
    const Converter& c = GetParam();
    const ImageSize roi{20, 3};
    const int64_t src_row = vt::RowBytes(20, 1, c.src_bytes), dst_row = vt::RowBytes(20, 1, c.dst_bytes);
    const int32_t ss = static_cast<int32_t>((src_row + 15) / 16 * 16), ds = static_cast<int32_t>((dst_row + 15) / 16 * 16);
    vt::GuardedPlane src(src_row, 3, ss), dst(dst_row + 16, 3, ds + 16);
    src.FillRandomBytes(1);
    const auto before = dst.Snapshot();
    struct Case {
        const char* what;
        const void* s;
        int32_t s_step;
        void* d;
        int32_t d_step;
    };
    uint8_t* d = dst.data();
    const uint8_t* s = src.data();
    const Case cases[] = {
        {"zero source step", s, 0, d, ds}, {"zero destination step", s, ss, d, 0},
        {"null source", nullptr, ss, d, ds}, {"null destination", s, ss, nullptr, ds},
        {"source at 8 mod 16", s + 8, ss, d, ds}, {"destination at 8 mod 16", s, ss, d + 8, ds},
        {"source at 4 mod 16", s + 4, ss, d, ds}, {"source step 24", s, 24, d, ds},
        {"destination step 24", s, ss, d, 24}, {"destination step -8", s, ss, d, -8},
        // The order of the checks: a zero step is reported even when a pointer is also null.
        {"zero step and null pointer", nullptr, 0, d, ds},
    };
    for (const Case& k : cases) {
        EXPECT_EQ(c.call(k.s, k.s_step, k.d, k.d_step, &roi), StatusInvalidParameter) << k.what;
        EXPECT_TRUE(dst.Unchanged(before)) << k.what;
    }
}

const auto kName = [](const auto& info) { return info.param.name; };
INSTANTIATE_TEST_SUITE_P(AllConverters, Convert, ::testing::ValuesIn(Converters()), kName);
INSTANTIATE_TEST_SUITE_P(Validating, ConvertChecked, ::testing::ValuesIn(Validating()), kName);

}  // namespace

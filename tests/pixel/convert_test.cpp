// Integer/float conversions through the per-pixel table against the scalar references of
// reference/convert.h, which perform the same single-precision operations and so must agree
// exactly, every written byte (the region plus its documented block overrun) included; and the
// validating converters' argument checks.
#include <functional>
#include <limits>
#include <random>
#include <tuple>
#include <vector>

#include "reference/convert.h"
#include "support/pixel_table.h"
#include "velmora/imaging.h"

namespace {

// Float sources mix in-range values, exact rounding midpoints, out-of-range values and NaN/inf.
float RandomFloat(std::mt19937& rng) {
    const uint32_t pick = rng() % 16;
    if (pick == 0) return std::numeric_limits<float>::quiet_NaN();
    if (pick == 1) return (rng() & 1) ? std::numeric_limits<float>::infinity() : -std::numeric_limits<float>::infinity();
    if (pick == 2) return (static_cast<float>(rng() % 256) + 0.5f) / 255.0f;
    if (pick == 3) return std::uniform_real_distribution<float>(-2.f, 3.f)(rng);
    return std::uniform_real_distribution<float>(0.f, 1.f)(rng);
}

// Validating converters demand 16-byte aligned rows; the others accept any 4-byte aligned rows,
// which exercises their unaligned loops. `block`: widths round up to this many pixels.
vt::PixelKernel Row(const char* name, vt::Region call, void (*reference)(const float*, float*), int in, int in_size,
                    int out, int out_size, int block, bool validating = false) {
    vt::PixelKernel k{name, in, out, in_size, out_size, false, false, std::move(call), reference, 0, 0, 0};
    k.block = block;
    k.sample = RandomFloat;
    k.align = validating ? 16 : 4;
    return k;
}

std::vector<vt::PixelKernel> Converters() {
    using vt::Own;
    return {
        Row("Bgr24_Bgr32", Own(ImageConvert_Bgr24_Bgr32_SSE2), ref::Bgr24ToBgr32, 3, 1, 4, 1, 1),
        Row("Bgra32_Prgba128F", Own(ImageConvert_Bgra32_Prgba128F), ref::Bgra32ToPrgba128F, 4, 1, 4, 4, 2),
        Row("Bgra32_Rgba128F", Own(ImageConvert_Bgra32_Rgba128F), ref::Bgra32ToRgba128F, 4, 1, 4, 4, 2),
        Row("Rgba32_Rgba128F", Own(ImageConvert_Rgba32_Rgba128F), ref::Rgba32ToRgba128F, 4, 1, 4, 4, 2),
        Row("Rgba64_Rgba128F", Own(ImageConvert_Rgba64_Rgba128F), ref::Rgba64ToRgba128F, 4, 2, 4, 4, 1),
        Row("Gray8_Bgr32", Own(ImageConvert_Gray8_Bgr32_SSE2), ref::Gray8ToBgr32, 1, 1, 4, 1, 1, true),
        Row("Gray8_Bgra32", Own(ImageConvert_Gray8_Bgra32_SSE2), ref::Gray8ToBgra32, 1, 1, 4, 1, 1, true),
        Row("Gray8_Rgb128F", Own(ImageConvert_Gray8_Rgb128F_SSE2), ref::Gray8ToRgb128F, 1, 1, 4, 4, 1, true),
        Row("Gray8_Rgba128F", Own(ImageConvert_Gray8_Rgba128F_SSE2), ref::Gray8ToRgba128F, 1, 1, 4, 4, 1, true),
        Row("Rgb128F_Bgr24", Own(ImageConvert_Rgb128F_Bgr24_SSE2), ref::Rgb128FToBgr24, 4, 4, 3, 1, 1, true),
        Row("Rgba128F_Bgra32", Own(ImageConvert_Rgba128F_Bgra32), ref::Rgba128FToBgra32, 4, 4, 4, 1, 4),
        Row("Rgba128F_Rgba32", Own(ImageConvert_Rgba128F_Rgba32), ref::Rgba128FToRgba32, 4, 4, 4, 1, 4),
        Row("Rgba128F_Rgba64", Own(ImageConvert_Rgba128F_Rgba64), ref::Rgba128FToRgba64, 4, 4, 4, 2, 2),
    };
}

class Convert : public ::testing::TestWithParam<vt::PixelKernel> {};

// The random shapes, then a destination too large to stay cached, which takes the streaming
// stores (odd width, padded rows).
TEST_P(Convert, MatchesReference) {
    const vt::PixelKernel& k = GetParam();
    vt::CheckOnRandomShapes(k);
    const vt::Shape large{1031, int((int64_t{17} << 20) / (int64_t{1031} * k.out * k.out_size)) + 1, 0, 0, false,
                          vt::Placement::End, 5};
    vt::Runs once;
    EXPECT_TRUE(vt::CheckPixels(k, large, once));
}
INSTANTIATE_TEST_SUITE_P(AllConverters, Convert, ::testing::ValuesIn(Converters()), vt::kKernelName);

// The validating converters refuse each bad argument with 87 and write nothing. The order of the
// checks: a zero step is reported even when a pointer is also null.
using Raw = std::function<StatusCode(const uint8_t*, int32_t, uint8_t*, int32_t, const ImageSize*)>;
template <class S, class D>
Raw Bytes(StatusCode(VELMORA_CALL* fn)(const S*, int32_t, D*, int32_t, const ImageSize*)) {
    return [fn](const uint8_t* s, int32_t ss, uint8_t* d, int32_t ds, const ImageSize* roi) {
        return fn(reinterpret_cast<const S*>(s), ss, reinterpret_cast<D*>(d), ds, roi);
    };
}

TEST(ConvertChecked, RejectsBadArgumentsAndTouchesNothing) {
    const std::tuple<const char*, Raw, int, int> checked[] = {
        {"Gray8_Bgr32", Bytes(ImageConvert_Gray8_Bgr32_SSE2), 1, 4}, {"Gray8_Bgra32", Bytes(ImageConvert_Gray8_Bgra32_SSE2), 1, 4},
        {"Gray8_Rgb128F", Bytes(ImageConvert_Gray8_Rgb128F_SSE2), 1, 16}, {"Gray8_Rgba128F", Bytes(ImageConvert_Gray8_Rgba128F_SSE2), 1, 16},
        {"Rgb128F_Bgr24", Bytes(ImageConvert_Rgb128F_Bgr24_SSE2), 16, 3}};
    for (const auto& [name, call, src_bytes, dst_bytes] : checked) {
        const ImageSize roi{20, 3};
        const int32_t ss = (20 * src_bytes + 15) / 16 * 16, ds = (20 * dst_bytes + 15) / 16 * 16;
        vt::GuardedPlane src(20 * src_bytes, 3, ss), dst(20 * dst_bytes + 16, 3, ds + 16);
        src.FillRandomBytes(1);
        const auto before = dst.Snapshot();
        uint8_t* d = dst.data();
        const uint8_t* s = src.data();
        const std::tuple<const char*, const uint8_t*, int32_t, uint8_t*, int32_t> cases[] = {
            {"zero source step", s, 0, d, ds}, {"zero destination step", s, ss, d, 0},
            {"null source", nullptr, ss, d, ds}, {"null destination", s, ss, nullptr, ds},
            {"source at 8 mod 16", s + 8, ss, d, ds}, {"destination at 8 mod 16", s, ss, d + 8, ds},
            {"source at 4 mod 16", s + 4, ss, d, ds}, {"source step 24", s, 24, d, ds},
            {"destination step 24", s, ss, d, 24}, {"destination step -8", s, ss, d, -8},
            {"zero step and null pointer", nullptr, 0, d, ds}};
        for (const auto& [what, cs, cs_step, cd, cd_step] : cases) {
            EXPECT_EQ(call(cs, cs_step, cd, cd_step, &roi), StatusInvalidParameter) << name << ": " << what;
            EXPECT_TRUE(dst.Unchanged(before)) << name << ": " << what;
        }
    }
}

}  // namespace

// Lab conversions against a double-precision reference and Little CMS, on guarded planes whose
// rows hold whole blocks of four pixels (the conversions' documented overrun) and nothing more.
#if defined(VELMORA_TEST_LCMS2)
#include <lcms2.h>
#endif

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

#include "reference/lab.h"
#include "support/dispatch.h"
#include "support/shapes.h"
#include "velmora/imaging.h"

namespace {

using vt::GuardedPlane;
using vt::Shape;

// The kernel's cube roots are xsimd's exp(log(t) / 3) in float; a* magnifies f's error by 500.
constexpr double kLabTolerance = 1e-4;
// From Lab the cubes are exact products but the matrix's opposite-signed terms cancel.
constexpr double kRgbTolerance = 2e-6;

float Uniform(std::mt19937& rng, float lo, float hi) { return std::uniform_real_distribution<float>(lo, hi)(rng); }

int64_t BlockBytes(const Shape& s) { return vt::RowBytes(s.width, 4, 16); }
int Pixels(const Shape& s) { return static_cast<int>(BlockBytes(s) / 16); }  // whole blocks, overrun included

// Component c (0 L*, 1 a*, 2 b*, 3 fourth lane) of pixel x in a blocked row.
float& BlockAt(float* row, int x, int c) { return row[16 * (x / 4) + 4 * c + x % 4]; }

// Linear RGB: mostly [0, 1], with black, white, deep shadows under the linear segment of f, and
// a few values a little outside the range.
float RandomLinear(std::mt19937& rng) {
    switch (rng() % 12) {
        case 0: return 0.0f;
        case 1: return 1.0f;
        case 2: return Uniform(rng, 0.0f, 0.01f);
        case 3: return Uniform(rng, -0.02f, 1.1f);
        default: return Uniform(rng, 0.0f, 1.0f);
    }
}

// Fills the region's blocks (the overrun included) with pixels for one direction, runs it, and
// compares every pixel with the double-precision reference: from linear RGB, L*, a*, b* and the
// fourth lane's lightness in blocks; from Lab (L* weighted between epsilon and 8, where the
// deliberate threshold differs from the textbook one), RGB with the fourth lane 0. Every level
// must also give the SSE2 body's bits.
::testing::AssertionResult Converts(const Shape& s, bool to_lab, vt::SameAsSse2& same) {
    GuardedPlane image(BlockBytes(s), s.height, vt::StepFor(s, BlockBytes(s), s.pad_dst), s.placement);
    image.FillRandomBytes(s.seed + 3);
    std::mt19937 rng(s.seed);
    std::vector<double> want;
    for (int y = 0; y < s.height; ++y)
        for (int x = 0; x < Pixels(s); ++x) {
            float* row = image.RowAs<float>(y);
            if (to_lab) {
                float* p = row + 4 * x;
                for (int c = 0; c < 4; ++c) p[c] = RandomLinear(rng);
                const ref::Lab v = ref::ProPhotoToLab(p[0], p[1], p[2], p[3]);
                want.insert(want.end(), {v.l, v.a, v.b, v.w});
            } else {
                const int kind = rng() % 4;
                BlockAt(row, x, 0) = kind == 0 ? Uniform(rng, -0.01f, 8.0f) : Uniform(rng, 0.0f, 100.0f);
                for (int c : {1, 2}) BlockAt(row, x, c) = kind == 1 ? 0.0f : Uniform(rng, -80.0f, 80.0f);
                BlockAt(row, x, 3) = Uniform(rng, 0.0f, 100.0f);
                const ref::Rgb v = ref::LabToProPhoto(BlockAt(row, x, 0), BlockAt(row, x, 1), BlockAt(row, x, 2));
                want.insert(want.end(), {v.r, v.g, v.b, 0.0});
            }
        }
    const auto before = image.Snapshot();
    const ImageSize roi{s.width, s.height};
    (to_lab ? XMImageConvertToLab_ProPhotoRgb128F_SSE2 : XMImageConvertToProPhotoRGB_Lab128F_SSE2)(image.As<float>(), image.step(), &roi);
    if (auto r = image.OnlyRowsChanged(before, BlockBytes(s)); !r) return r;
    for (int y = 0, i = 0; y < s.height; ++y)
        for (int x = 0; x < Pixels(s); ++x)
            for (int c = 0; c < 4; ++c, ++i) {
                const double got = to_lab ? BlockAt(image.RowAs<float>(y), x, c) : image.RowAs<float>(y)[4 * x + c];
                const double tolerance = to_lab ? kLabTolerance : c == 3 ? 0.0 : kRgbTolerance;
                if (!(std::fabs(got - want[size_t(i)]) <= tolerance))
                    return ::testing::AssertionFailure() << "row " << y << " pixel " << x << " component " << c << ": got "
                                                         << got << ", want " << want[size_t(i)];
            }
    return same(image);
}

// Both directions at every level, each level giving the SSE2 body's bits.
TEST(Lab, BothDirectionsMatchReferenceOnRandomShapes) {
    for (bool to_lab : {true, false})
        for (const Shape& s : vt::RandomShapes(to_lab ? 701 : 702, 150)) {
            SCOPED_TRACE(vt::Describe(s) + (to_lab ? " to Lab" : " from Lab"));
            vt::SameAsSse2 same;
            vt::ForEachLevel([&] { ASSERT_TRUE(Converts(s, to_lab, same)); });
        }
}

#if defined(VELMORA_TEST_LCMS2)  // native builds; cross builds have no Little CMS for the target
// Little CMS with a linear ProPhoto profile (ROMM primaries, D50, gamma 1) to Lab D50. Its D50
// (0.9642, 1, 0.8249) differs from ours in the fourth digit, so the bound is 0.1 in each of L*,
// a*, b*; the measured maximum is printed.
TEST(LabAgainstLittleCms, AgreesWithinATenthOnAColourGrid) {
    const cmsCIExyYTRIPLE romm = {{0.7347, 0.2653, 1.0}, {0.1596, 0.8404, 1.0}, {0.0366, 0.0001, 1.0}};
    cmsToneCurve* linear = cmsBuildGamma(nullptr, 1.0);
    cmsToneCurve* curves[3] = {linear, linear, linear};
    cmsHPROFILE rgb = cmsCreateRGBProfile(cmsD50_xyY(), &romm, curves);
    cmsHPROFILE lab = cmsCreateLab4Profile(cmsD50_xyY());
    cmsHTRANSFORM to_lab = cmsCreateTransform(rgb, TYPE_RGB_FLT, lab, TYPE_Lab_FLT, INTENT_RELATIVE_COLORIMETRIC,
                                              cmsFLAGS_NOCACHE | cmsFLAGS_NOOPTIMIZE);
    ASSERT_NE(to_lab, nullptr);

    constexpr int kSteps = 17;  // 17^3 colours, every corner and edge of the cube included
    std::vector<float> rgb_in, image;
    for (int r = 0; r < kSteps; ++r)
        for (int g = 0; g < kSteps; ++g)
            for (int b = 0; b < kSteps; ++b) {
                const float v[3] = {r / float(kSteps - 1), g / float(kSteps - 1), b / float(kSteps - 1)};
                rgb_in.insert(rgb_in.end(), v, v + 3);
                image.insert(image.end(), {v[0], v[1], v[2], 0.0f});
            }
    const int n = kSteps * kSteps * kSteps;
    image.resize(static_cast<size_t>((n + 3) / 4 * 16), 0.0f);  // whole blocks
    std::vector<float> want(3 * static_cast<size_t>(n));
    cmsDoTransform(to_lab, rgb_in.data(), want.data(), n);
    const ImageSize roi{n, 1};
    XMImageConvertToLab_ProPhotoRgb128F_SSE2(image.data(), static_cast<int32_t>(image.size() * 4), &roi);

    double worst[3] = {0, 0, 0};
    for (int x = 0; x < n; ++x)
        for (int c = 0; c < 3; ++c) {
            const double d = std::fabs(BlockAt(image.data(), x, c) - want[3 * x + c]);
            worst[c] = std::max(worst[c], d);
            ASSERT_LE(d, 0.1) << "colour " << x << " component " << c;
        }
    std::printf("largest difference from Little CMS: L* %.4f a* %.4f b* %.4f\n", worst[0], worst[1], worst[2]);

    cmsDeleteTransform(to_lab);
    cmsCloseProfile(lab);
    cmsCloseProfile(rgb);
    cmsFreeToneCurve(linear);
}
#endif  // VELMORA_TEST_LCMS2

}  // namespace

// Every instruction-set level of the Lab conversions against the SSE2 body, bit for bit, on
// guarded planes whose rows hold the conversions' whole blocks of four pixels and nothing more.
// A pixel's three channels meet in one matrix, so each pixel carries at most one NaN or infinity.
#include "adjust/edge_pixels.h"
#include "velmora/imaging.h"

namespace {

using Kernel = void(VELMORA_CALL*)(float*, int32_t, const ImageSize*);

void ExpectEveryLevelMatchesSse2(Kernel kernel, float scale, std::vector<float> thresholds, uint32_t seed) {
    for (const vt::Shape& s : vt::RandomShapes(seed, 200)) {
        SCOPED_TRACE(vt::Describe(s));
        const ImageSize roi{s.width, s.height};
        ASSERT_TRUE(vt::EveryLevelMatchesSse2(
            s, vt::RowBytes(s.width, 4, 16),
            vt::EdgePixels{scale, thresholds},
            [&](const vt::GuardedPlane& plane) { kernel(plane.As<float>(), plane.step(), &roi); }));
    }
}

// Linear RGB around epsilon, where the cube root meets the straight segment.
TEST(LabDispatch, ToLabEveryLevelMatchesSse2) {
    ExpectEveryLevelMatchesSse2(XMImageConvertToLab_ProPhotoRgb128F_SSE2, 1.0f, {0.008856452f}, 711);
}

// Lab: the nominal scale covers L* 0..100 and, with the negatives, a* and b* down to -150. The
// inverse switches segments at L* = epsilon for Y and where f^3 crosses epsilon (f = 6/29,
// which is L* 8 and a*, b* near 0).
TEST(LabDispatch, FromLabEveryLevelMatchesSse2) {
    ExpectEveryLevelMatchesSse2(XMImageConvertToProPhotoRGB_Lab128F_SSE2, 100.0f, {0.008856452f, 8.0f}, 712);
}

}  // namespace

// Every instruction-set level of the sRGB formula kernels against the SSE2 body, bit for bit, on
// guarded planes whose rows hold exactly the region.
#include "support/dispatch.h"
#include "velmora/imaging.h"

namespace {

using Kernel = void(VELMORA_CALL*)(float*, int32_t, const ImageSize*);

class SrgbDispatch : public ::testing::TestWithParam<Kernel> {};

TEST_P(SrgbDispatch, EveryLevelMatchesSse2) {
    for (const vt::Shape& s : vt::RandomShapes(721, 200)) {
        SCOPED_TRACE(vt::Describe(s));
        const ImageSize roi{s.width, s.height};
        ASSERT_TRUE(vt::EveryLevelMatchesSse2(
            s, vt::RowBytes(s.width, 1, 16),
            [](std::mt19937& rng) { return vt::EdgeFloat(rng, 1.0f, {0.0031308f, 0.04045f}); },
            [&](const vt::GuardedPlane& plane) { GetParam()(plane.As<float>(), plane.step(), &roi); }));
    }
}

INSTANTIATE_TEST_SUITE_P(FormulaKernels, SrgbDispatch,
                         ::testing::Values(XMImageRGBToSRGB_Rgb128F_SSE2, XMImageSRGBToRGB_Rgb128F_SSE2),
                         [](const auto& info) { return info.index == 0 ? "Encode" : "Decode"; });

}  // namespace

// The develop pass against its scalar reference, on guarded planes: every combination of the six
// unmasked flags, amounts at and around both off thresholds, local maps on each adjustment (maps
// fenced by no-access pages too), black level, and the saturation-only loop.
#include <cmath>
#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "adjust/local_map.h"
#include "reference/develop.h"
#include "support/compare.h"
#include "support/dispatch.h"
#include "support/shapes.h"
#include "velmora/imaging.h"

namespace {

enum { kExp, kBri, kSha, kHig, kCon, kCla, kSat };
const char* const kNames[7] = {"exposure", "brightness", "shadows", "highlights", "contrast", "clarity", "saturation"};

// The library's e^x, ln x and 2^x are xsimd's, the reference's glibc's: each differs by an ulp or
// two, and the recipe's chain of powers and exponentials turns that into a few ulps of the new
// sRGB-domain luminance n = b' + d (b' and d may nearly cancel). n returns to each lane through the
// gain c / Y, so a lane is compared within kAbsTolerance x max(1, |c| / Y) of its input c and
// luminance Y, plus kRelTolerance of its value.
constexpr float kRelTolerance = 1e-5f;
constexpr float kAbsTolerance = 1e-6f;

// Compares one row of count pixels; input holds the pixels before the call (as the reference got
// them), black the level subtracted from them.
::testing::AssertionResult Close(const float* got, const float* want, const float* input, int64_t count, float black) {
    for (int64_t i = 0; i < count * 4; ++i) {
        const float g = got[i], w = want[i];
        if (std::isnan(g) && std::isnan(w)) continue;
        const float* in = input + i / 4 * 4;
        const float lum = std::fabs(0.28804f * (in[0] - black) + 0.711874f * (in[1] - black) + 8.6e-05f * (in[2] - black));
        const float spread = std::max(1.0f, std::fabs(in[i % 4] - black) / (lum + 1e-7f));
        const float tolerance = kAbsTolerance * spread + kRelTolerance * std::fabs(w);
        const float error = std::fabs(g - w);
        if (!(error <= tolerance))
            return ::testing::AssertionFailure() << "pixel " << i / 4 << " lane " << i % 4 << ": got " << g << ", want "
                                                 << w << " (tolerance " << tolerance << ", input " << in[0] << " " << in[1] << " " << in[2]
                                                 << " " << in[3] << ")";
    }
    return ::testing::AssertionSuccess();
}

struct Params {
    DevelopParameter p[7] = {};
    float black = 0.0f;
    std::array<const DevelopParameter*, 7> ptr() const { return {&p[0], &p[1], &p[2], &p[3], &p[4], &p[5], &p[6]}; }
};

// A RgbL128F image on a guarded plane: rows hold the region rounded up to four pixels (the pass's
// overrun), the overrun and gaps keep random bytes, the region gets plausible linear pixels.
struct Image {
    vt::Shape shape;
    vt::GuardedPlane plane;
    std::vector<uint8_t> before;
    std::vector<float> packed;  // the region's pixels, rows packed, as the reference's input

    explicit Image(const vt::Shape& s)
        : shape(s), plane(vt::RowBytes(s.width, 4, 16), s.height, vt::StepFor(s, vt::RowBytes(s.width, 4, 16), s.pad_dst),
                          s.placement) {
        plane.FillRandomBytes(s.seed);
        std::mt19937 rng(s.seed ^ 0x5eed);
        std::uniform_real_distribution<float> u(0.0f, 1.0f);
        auto value = [&] {
            switch (rng() % 16) {
            case 0: return 0.0f;
            case 1: return 1.0f;
            case 2: return 1.0f + u(rng) * 0.5f;  // clipped highlights
            case 3: return u(rng) * 0.004f;       // deep shadows, around the sRGB knee
            default: return u(rng);
            }
        };
        for (int y = 0; y < s.height; ++y)
            for (int x = 0; x < s.width; ++x) {
                float* px = plane.RowAs<float>(y) + 4 * x;
                for (int c = 0; c < 3; ++c) px[c] = value();
                const float lum = 0.28804f * px[0] + 0.711874f * px[1] + 8.6e-05f * px[2];
                // The base is a smoothed luminance: near the pixel's own, sometimes far from it.
                px[3] = rng() % 8 == 0 ? value() : lum * (0.7f + 0.6f * u(rng));
                packed.insert(packed.end(), px, px + 4);
            }
        before = plane.Snapshot();
    }
    float* data() const { return plane.As<float>(); }
    int32_t step() const { return plane.step(); }
    ImageSize roi() const { return {shape.width, shape.height}; }

    // The region within tolerance of the reference (run on the packed copy of the region), and
    // nothing written outside the rows' groups.
    ::testing::AssertionResult MatchesReference(const Params& a) const {
        if (shape.width <= 0 || shape.height <= 0) return plane.Unchanged(before);
        std::vector<float> want = packed;
        ref::Develop(want.data(), shape.width * 16, shape.width, shape.height, a.ptr().data(), a.black);
        bool masked = false;
        for (const DevelopParameter& q : a.p) masked = masked || q.localMap != nullptr;
        for (int y = 0; y < shape.height; ++y) {
            const size_t at = size_t(y) * shape.width * 4;
            auto r = Close(plane.RowAs<float>(y), want.data() + at, packed.data() + at, shape.width, masked ? a.black : 0.0f);
            if (!r) return r << " in row " << y;
        }
        return plane.OnlyRowsChanged(before, vt::RowBytes(shape.width, 4, 16));
    }

    std::vector<float> Region() const {
        std::vector<float> out;
        for (int y = 0; y < shape.height; ++y)
            out.insert(out.end(), plane.RowAs<float>(y), plane.RowAs<float>(y) + int64_t{shape.width} * 4);
        return out;
    }
};

StatusCode Develop(const Image& img, const Params& a) {
    const ImageSize roi = img.roi();
    return ImageAdjust_RgbL128F_ProPhotoRGB_SSE2(img.data(), img.step(), &roi, &a.p[0], &a.p[1], &a.p[2], &a.p[3],
                                                 &a.p[4], &a.p[5], &a.p[6], -1, 7, 0x1234, a.black, 3, -9, 0);
}

std::string Describe(const Params& a) {
    std::ostringstream o;
    o.precision(9);
    for (int k = 0; k < 7; ++k) o << kNames[k] << " " << a.p[k].amount << (a.p[k].localMap ? " (map) " : " ");
    o << "black " << a.black;
    return o.str();
}

// The pass at every level against the reference, each level giving the SSE2 body's bits.
void DevelopsAtEveryLevel(const vt::Shape& s, const Params& a) {
    vt::SameAsSse2 same;
    vt::ForEachLevel([&] {
        Image img(s);
        ASSERT_EQ(Develop(img, a), StatusOk);
        ASSERT_TRUE(img.MatchesReference(a));
        ASSERT_TRUE(same(img.plane));
    });
}

const float kBelowFast = std::nextafter(0.0001f, 0.0f);
const float kBelowMasked = std::nextafter(1e-06f, 0.0f);

// An amount that is on for the unmasked dispatch: the threshold itself or a working value.
float OnAmount(std::mt19937& rng, int k) {
    // Contrast reaches 3: from 2 up it pushes bright bases past 1 and dark ones below 0, where the
    // tone weights' powers must stay finite.
    const float range = k == kExp ? 4.0f : k == kCon ? 3.0f : 1.0f;
    const float sign = rng() % 2 ? 1.0f : -1.0f;
    if (rng() % 6 == 0) return sign * 0.0001f;
    return sign * std::uniform_real_distribution<float>(0.0001f, range)(rng);
}
float OffAmount(std::mt19937& rng) {
    const float values[] = {0.0f, kBelowFast, -kBelowFast, 5e-5f, -3e-7f};
    return values[rng() % 5];
}

TEST(DevelopPass, EveryFlagCombinationMatchesReference) {
    std::mt19937 rng(601);
    const auto shapes = vt::RandomShapes(602, 40, 70, 5);
    size_t next_shape = 0;
    for (unsigned flags = 0; flags < 64; ++flags)
        for (int round = 0; round < vt::Scaled(4); ++round) {
            Params a;
            const bool tone = flags & 4;
            a.p[kExp].amount = flags & 1 ? OnAmount(rng, kExp) : OffAmount(rng);
            a.p[kBri].amount = flags & 2 ? OnAmount(rng, kBri) : OffAmount(rng);
            // The tone loop runs when either of shadows and highlights is on; the other may be off.
            const int tone_pick = static_cast<int>(rng() % 3);
            a.p[kSha].amount = tone && tone_pick != 1 ? OnAmount(rng, kSha) : OffAmount(rng);
            a.p[kHig].amount = tone && tone_pick != 0 ? OnAmount(rng, kHig) : OffAmount(rng);
            a.p[kCon].amount = flags & 8 ? OnAmount(rng, kCon) : OffAmount(rng);
            a.p[kCla].amount = flags & 16 ? OnAmount(rng, kCla) : OffAmount(rng);
            a.p[kSat].amount = flags & 32 ? OnAmount(rng, kSat) : OffAmount(rng);
            a.black = 0.25f;  // ignored without local maps
            const vt::Shape& s = shapes[next_shape++ % shapes.size()];
            SCOPED_TRACE(vt::Describe(s) + " flags " + std::to_string(flags) + " " + Describe(a));
            DevelopsAtEveryLevel(s, a);
        }
}

// A random local plane in [-range, range], one value in eight 0.
std::unique_ptr<vt::LocalMap> RandomMap(const vt::Shape& s, std::mt19937& rng, float range) {
    std::uniform_real_distribution<float> u(-range, range);
    return std::make_unique<vt::LocalMap>(s, rng, [&] { return rng() % 8 == 0 ? 0.0f : u(rng); });
}

float MaskedGlobal(std::mt19937& rng, int k) {
    switch (rng() % 6) {
    case 0: return 0.0f;
    case 1: return rng() % 2 ? kBelowMasked : -kBelowMasked;
    case 2: return rng() % 2 ? 1e-06f : -1e-06f;
    default: return OnAmount(rng, k);
    }
}

TEST(DevelopPass, LocalMapsOnEachAdjustmentMatchReference) {
    std::mt19937 rng(621);
    int index = 0;
    for (const vt::Shape& s : vt::RandomShapes(622, 120, 70, 5)) {
        const int mapped = index++ % 7;  // every adjustment carries a map in turn
        Params a;
        std::vector<std::unique_ptr<vt::LocalMap>> maps;
        for (int k = 0; k < 7; ++k) {
            a.p[k].amount = MaskedGlobal(rng, k);
            if (k == mapped || rng() % 4 == 0) {
                maps.push_back(RandomMap(s, rng, k == kExp ? 3.0f : 1.0f));
                a.p[k].localMap = maps.back()->data();
            }
        }
        const float blacks[] = {0.0f, 0.01f, -0.02f, 0.05f};
        a.black = blacks[rng() % 4];
        SCOPED_TRACE(vt::Describe(s) + " " + Describe(a));
        DevelopsAtEveryLevel(s, a);
    }
}

// Amounts below a threshold cost nothing and change nothing: the call gives the bits of an amount
// of 0. At the threshold the adjustment runs.
TEST(DevelopPass, ThresholdsDecideWhatRuns) {
    const vt::Shape s{37, 3};
    Image base(s);
    const std::vector<float> input = base.Region();
    auto develop = [&](Params a) {
        Image img(s);
        EXPECT_EQ(Develop(img, a), StatusOk);
        EXPECT_TRUE(img.MatchesReference(a));
        return img.Region();
    };
    std::vector<float> zeros(size_t(s.width) * s.height, 0.0f);
    for (bool masked : {false, true}) {
        Params off;
        if (masked) off.p[kSha].localMap = zeros.data();  // selects the masked pass, values unused
        const std::vector<float> all_off = develop(off);
        const float below = masked ? kBelowMasked : kBelowFast;
        const float at = masked ? 1e-06f : 0.0001f;
        for (int k = 0; k < 7; ++k)
            for (float sign : {1.0f, -1.0f}) {
                SCOPED_TRACE(std::string(kNames[k]) + (masked ? " masked" : " unmasked") + (sign < 0 ? " negative" : ""));
                Params a = off;
                a.p[k].amount = sign * below;
                EXPECT_EQ(develop(a), all_off);
                a.p[k].amount = sign * at;
                EXPECT_NE(develop(a), all_off);
            }
    }
    EXPECT_NE(develop(Params{}), input);  // all off still round-trips through the sRGB curve
}

}  // namespace

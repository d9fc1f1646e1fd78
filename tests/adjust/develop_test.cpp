// The develop pass through the per-pixel table against its scalar reference: every combination of
// the six unmasked flags, amounts at and around both off thresholds, local maps on each adjustment
// (maps fenced by no-access pages too), black level, the saturation-only loop, and the three pixels
// past the width that each row's last group rewrites with processed values.
#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "adjust/local_map.h"
#include "reference/develop.h"
#include "support/pixel_table.h"
#include "velmora/imaging.h"

namespace {

enum { kExp, kBri, kSha, kHig, kCon, kCla, kSat };
const char* const kNames[7] = {"exposure", "brightness", "shadows", "highlights", "contrast", "clarity", "saturation"};

// The library's e^x, ln x and 2^x are xsimd's, the reference's glibc's: each differs by an ulp or
// two, and the recipe's chain of powers and exponentials turns that into a few ulps of the new
// sRGB-domain luminance n = b' + d (b' and d may nearly cancel). n returns to each lane through the
// gain c / Y, so a lane is compared within kAbsTolerance x max(1, |c| / Y) of its input c and
// luminance Y, plus kRelTolerance of its value. The worst seen is 6e-8 x max(1, |c| / Y); the
// bound stays below the gain rule's 2 x 1.19e-7, so a wrong sign on its epsilon shows in the dark.
constexpr float kRelTolerance = 1e-5f;
constexpr float kAbsTolerance = 1.5e-7f;

struct Params {
    DevelopParameter p[7] = {};
    float black = 0.0f;
    std::array<const DevelopParameter*, 7> ptr() const { return {&p[0], &p[1], &p[2], &p[3], &p[4], &p[5], &p[6]}; }
    bool masked() const { return std::any_of(p, p + 7, [](const DevelopParameter& q) { return q.localMap != nullptr; }); }
};

StatusCode Develop(float* image, int32_t step, const ImageSize& roi, const Params& a) {
    return ImageAdjust_RgbL128F_ProPhotoRGB_SSE2(image, step, &roi, &a.p[0], &a.p[1], &a.p[2], &a.p[3], &a.p[4], &a.p[5],
                                                 &a.p[6], -1, 7, 0x1234, a.black, 3, -9, 0);
}

std::string Describe(const Params& a) {
    std::ostringstream o;
    o.precision(9);
    for (int k = 0; k < 7; ++k) o << kNames[k] << " " << a.p[k].amount << (a.p[k].localMap ? " (map) " : " ");
    o << "black " << a.black;
    return o.str();
}

// Plausible linear values: exact 0 and 1, clipped highlights, deep shadows around the sRGB knee.
float Value(std::mt19937& rng) {
    std::uniform_real_distribution<float> u(0.0f, 1.0f);
    switch (rng() % 16) {
    case 0: return 0.0f;
    case 1: return 1.0f;
    case 2: return 1.0f + u(rng) * 0.5f;
    case 3: return u(rng) * 0.004f;
    default: return u(rng);
    }
}

// The pass on shape s at every level, each level giving the SSE2 body's bits. The fourth lane
// (the base) is drawn like the colours, so the detail y - b takes every size and sign.
void DevelopsAtEveryLevel(const vt::Shape& s, const Params& a) {
    vt::PixelKernel row{"", 4, 4, 4, 4, true, false,
                        [&](const void*, int32_t, void* d, int32_t ds, int32_t, int32_t, int32_t w, int32_t h) {
                            EXPECT_EQ(Develop(static_cast<float*>(d), ds, {w, h}, a), StatusOk);
                        },
                        nullptr, 0, 0, 0};
    row.block = 4;
    row.sample = Value;
    row.reference_at = [&](const float* p, float* q, int x, int y) {
        std::copy(p, p + 4, q);
        ref::Develop(q, a.ptr().data(), a.black, x < s.width ? int64_t{y} * s.width + x : -1);
    };
    const float black = a.masked() ? a.black : 0.0f;  // the level is subtracted in the masked pass only
    row.bound = [black](const float* in, int c, float want) {
        const float lum = std::fabs(ref::develop_detail::Luminance(in[0] - black, in[1] - black, in[2] - black));
        const float spread = std::max(1.0f, std::fabs(in[c] - black) / (lum + 1e-7f));
        return double(kAbsTolerance * spread + kRelTolerance * std::fabs(want));
    };
    vt::CheckAtEveryLevel(row, s);
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
            // Each combination's first round fills whole vectors at every level, so a body that
            // walked one group past the width would write where nothing may be written.
            vt::Shape s = shapes[next_shape++ % shapes.size()];
            if (round == 0) s.width = 16 * int(1 + flags % 4);
            SCOPED_TRACE(vt::Describe(s) + " flags " + std::to_string(flags) + " " + Describe(a));
            DevelopsAtEveryLevel(s, a);
        }
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
                // Packed values in [-range, range], one in eight 0.
                std::uniform_real_distribution<float> u(k == kExp ? -3.0f : -1.0f, k == kExp ? 3.0f : 1.0f);
                maps.push_back(std::make_unique<vt::LocalMap>(s, rng, [&] { return rng() % 8 == 0 ? 0.0f : u(rng); }));
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
    const int w = 37, h = 3;
    std::mt19937 rng(5);
    std::vector<float> input(size_t(w * h + 3) * 4);  // the last row's group rewrites 3 pixels past it
    for (float& v : input) v = Value(rng);
    auto develop = [&](const Params& a) {
        std::vector<float> img = input;
        EXPECT_EQ(Develop(img.data(), w * 16, {w, h}, a), StatusOk);
        return img;
    };
    const std::vector<float> zeros(size_t(w) * h, 0.0f);
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

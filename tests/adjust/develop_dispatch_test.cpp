// Every instruction-set level of the develop pass against its SSE2 body, bit for bit, on guarded
// planes whose rows hold the region rounded up to groups of four pixels (the pass's overrun):
// random flag combinations and amounts around the off thresholds, the saturation-only loop, and
// the masked pass with random local maps (fenced by no-access pages) and black levels.
#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "adjust/edge_pixels.h"
#include "adjust/local_map.h"
#include "support/dispatch.h"
#include "velmora/imaging.h"

namespace {

// An amount for adjustment k: on (the unmasked threshold itself or a working value of either
// sign) or off (zero and values just under both thresholds).
float Amount(std::mt19937& rng, int k, bool on) {
    if (!on) {
        const float off[] = {0.0f, std::nextafter(0.0001f, 0.0f), -5e-5f, 1e-06f, -std::nextafter(1e-06f, 0.0f)};
        return off[rng() % 5];
    }
    const float sign = rng() % 2 ? 1.0f : -1.0f;
    if (rng() % 8 == 0) return sign * 0.0001f;
    return sign * std::uniform_real_distribution<float>(0.0001f, k == 0 ? 5.0f : 1.0f)(rng);
}

// Runs the pass on random shapes at every level; with masked, some adjustments carry a map (at
// least one, shadows and highlights included, whose maps only select the pass).
void ExpectEveryLevelMatchesSse2(uint32_t seed, bool masked) {
    std::mt19937 rng(seed);
    for (const vt::Shape& s : vt::RandomShapes(seed + 1, vt::Scaled(600), 70, 6)) {
        DevelopParameter p[7] = {};
        const unsigned flags = rng() % 128;
        for (int k = 0; k < 7; ++k) p[k].amount = Amount(rng, k, (flags >> k) & 1);
        std::vector<std::unique_ptr<vt::LocalMap>> maps;
        if (masked) {
            const int forced = static_cast<int>(rng() % 7);
            for (int k = 0; k < 7; ++k)
                if (k == forced || rng() % 3 == 0) {
                    // Mostly working values; now and then a finite edge value.
                    const float range = k == 0 ? 3.0f : 1.0f;
                    maps.push_back(std::make_unique<vt::LocalMap>(s, rng, [&] {
                        const float edge = vt::EdgeFloat(rng, range, {0.0f});
                        const float value = std::uniform_real_distribution<float>(-range, range)(rng);
                        return rng() % 16 == 0 && std::isfinite(edge) && std::fabs(edge) < 8.0f ? edge : value;
                    }));
                    p[k].localMap = maps.back()->data();
                }
        }
        const float blacks[] = {0.0f, 0.002f, -0.01f, std::uniform_real_distribution<float>(0.0f, 0.2f)(rng)};
        const float black = blacks[rng() % 4];
        SCOPED_TRACE(vt::Describe(s) + " flags " + std::to_string(flags) + (masked ? " masked" : ""));
        const ImageSize roi{s.width, s.height};
        ASSERT_TRUE(vt::EveryLevelMatchesSse2(
            s, vt::RowBytes(s.width, 4, 16),
            vt::EdgePixels{},
            [&](const vt::GuardedPlane& plane) {
                ASSERT_EQ(ImageAdjust_RgbL128F_ProPhotoRGB_SSE2(plane.As<float>(), plane.step(), &roi, &p[0], &p[1],
                                                                &p[2], &p[3], &p[4], &p[5], &p[6], 0, 0, 0, black, 0,
                                                                0, 0),
                          StatusOk);
            }));
    }
}

// The 63 specialised loops and the saturation-only loop, picked by random flags.
TEST(DevelopDispatch, UnmaskedEveryLevelMatchesSse2) { ExpectEveryLevelMatchesSse2(731, false); }

// The masked pass: per-pixel amounts from the maps, global amounts alongside, black level.
TEST(DevelopDispatch, MaskedEveryLevelMatchesSse2) { ExpectEveryLevelMatchesSse2(741, true); }

// Every combination of the six unmasked flags with working amounts, on one odd-width shape.
TEST(DevelopDispatch, EachSpecialisedLoopMatchesSse2) {
    std::mt19937 rng(751);
    vt::Shape s;
    s.width = 29;
    s.height = 3;
    s.seed = 752;
    const ImageSize roi{s.width, s.height};
    for (unsigned flags = 0; flags < 64; ++flags) {
        DevelopParameter p[7] = {};
        const bool on[7] = {(flags & 1) != 0, (flags & 2) != 0, (flags & 4) != 0, (flags & 4) != 0,
                            (flags & 8) != 0, (flags & 16) != 0, (flags & 32) != 0};
        for (int k = 0; k < 7; ++k) p[k].amount = Amount(rng, k, on[k]);
        SCOPED_TRACE("flags " + std::to_string(flags));
        ASSERT_TRUE(vt::EveryLevelMatchesSse2(
            s, vt::RowBytes(s.width, 4, 16), [&](std::mt19937& r) { return std::uniform_real_distribution<float>(0.0f, 1.2f)(r); },
            [&](const vt::GuardedPlane& plane) {
                ImageAdjust_RgbL128F_ProPhotoRGB_SSE2(plane.As<float>(), plane.step(), &roi, &p[0], &p[1], &p[2], &p[3],
                                                      &p[4], &p[5], &p[6], 0, 0, 0, 0.0f, 0, 0, 0);
            }));
    }
}

}  // namespace

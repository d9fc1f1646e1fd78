// The PatchMatch sweeps, written once over the patch type: patch_match.cpp instantiates them
// with the SSE2 patch distance, patch_match_avx2.cpp with the AVX2 one (same values). Rows of a
// sweep are shared among the OpenMP team (static schedule) and race with their neighbour rows by
// intent (a row reads the one above or below as it stands): entries are read and written field by
// field with relaxed atomics, so a torn entry can mix two matches but each coordinate is always
// one some thread wrote, hence inside the field.
#pragma once

#include <xmmintrin.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "core/frame.h"
#include "core/thread_rand.h"
#include "retouch/patch_distance.h"
#include "velmora/imaging.h"

namespace velmora::retouch {

// What one minimiser call works on, the images already moved to the patch origin of pixel (0, 0).
struct SweepArgs {
    const uint8_t* target;
    int32_t target_step;
    const uint8_t* source;
    int32_t source_step;
    ptrdiff_t advance;  // bytes between patch rows, in both images
    NNFEntry* nnf;
    int32_t nnf_step;
    int32_t width, height;
};

namespace {  // per file, as patch_distance.h

inline int32_t Load(const int32_t& v) { return std::atomic_ref<const int32_t>(v).load(std::memory_order_relaxed); }
inline void Store(int32_t& v, int32_t value) { std::atomic_ref<int32_t>(v).store(value, std::memory_order_relaxed); }

struct Match {
    int32_t x, y, distance;
};

inline Match LoadEntry(const NNFEntry& e) { return {Load(e.x), Load(e.y), Load(e.distance)}; }

template <class Patch>
struct Sweep : SweepArgs {
    int searches = 0;  // random tries per entry: the halvings of R = width while R > 1

    explicit Sweep(const SweepArgs& args) : SweepArgs(args) {
        for (int32_t radius = width; radius > 1; radius >>= 1) ++searches;
    }

    NNFEntry* Row(int32_t r) const { return frame::Row(nnf, nnf_step, r); }

    static int32_t Clamp(int32_t v, int32_t n) { return v < 0 ? 0 : v > n - 1 ? n - 1 : v; }

    void Prefetch(int32_t x, int32_t y) const {
        const char* s = reinterpret_cast<const char*>(frame::Row(source, source_step, y) + ptrdiff_t{x} * 4);
        for (int r = 0; r < 4; ++r, s += advance) {
            _mm_prefetch(s, _MM_HINT_T0);
            _mm_prefetch(s + 15, _MM_HINT_T0);
        }
    }

    // Tries the source patch at (x, y) for the target patch t, keeping it only if strictly better.
    void Try(const Patch& t, int32_t x, int32_t y, Match& m) const {
        const int32_t d = t.Distance(frame::Row(source, source_step, y) + ptrdiff_t{x} * 4, advance);
        if (d < m.distance) m = {x, y, d};
    }

    // Propagation from the neighbours this sweep has already visited (Dir 1: left and above;
    // -1: right and below), then the shrinking random search around the match.
    template <int Dir>
    void Visit(int32_t c, int32_t r) const {
        NNFEntry& e = Row(r)[c];
        const Patch t(frame::Row(target, target_step, r) + ptrdiff_t{c} * 4, advance);
        Match m = LoadEntry(e);
        const int32_t before = m.distance;
        // The search's draws do not depend on what it finds, so they are drawn first (in the
        // same order: x then y, radius by radius) and the candidates around the current match
        // fetched ahead: random candidates miss the cache, and a match rarely moves mid-search.
        int offsets[2 * 32];
        if (searches > 0) ThreadRandFill(offsets, 2 * searches);
        for (int i = 0, radius = width; i < searches; ++i, radius >>= 1) {
            offsets[2 * i] = offsets[2 * i] % (2 * radius) - radius;
            offsets[2 * i + 1] = offsets[2 * i + 1] % (2 * radius) - radius;
            Prefetch(Clamp(m.x + offsets[2 * i], width), Clamp(m.y + offsets[2 * i + 1], height));
        }
        if (Dir > 0) {
            if (c > 0) {
                const NNFEntry& l = Row(r)[c - 1];
                const int32_t xl = Load(l.x);
                if (xl < width - 1) Try(t, xl + 1, Load(l.y), m);
            }
            if (r > 0) {
                const NNFEntry& u = Row(r - 1)[c];
                const int32_t yu = Load(u.y);
                if (yu < height - 1) Try(t, Load(u.x), yu + 1, m);
            }
        } else {
            if (c < width - 1) {
                const NNFEntry& rt = Row(r)[c + 1];
                const int32_t xr = Load(rt.x);
                if (xr > 0) Try(t, xr - 1, Load(rt.y), m);
            }
            if (r < height - 1) {
                const NNFEntry& b = Row(r + 1)[c];
                const int32_t yb = Load(b.y);
                if (yb > 0) Try(t, Load(b.x), yb - 1, m);
            }
        }
        for (int i = 0; i < searches; ++i) {
            const int32_t x = Clamp(m.x + offsets[2 * i], width), y = Clamp(m.y + offsets[2 * i + 1], height);
            Try(t, x, y, m);
        }
        if (m.distance != before) {  // every replacement lowers the distance
            Store(e.x, m.x);
            Store(e.y, m.y);
            Store(e.distance, m.distance);
        }
    }

    void Forward() const {
#pragma omp parallel for schedule(static)
        for (int32_t r = 0; r < height; ++r)
            for (int32_t c = 0; c < width; ++c) Visit<1>(c, r);
    }
    void Backward() const {
#pragma omp parallel for schedule(static)
        for (int32_t i = 0; i < height; ++i)
            for (int32_t c = width - 1; c >= 0; --c) Visit<-1>(c, height - 1 - i);
    }
};

}  // namespace

// One minimiser call: the forward sweep, joined, then the backward one.
template <class Patch>
void Sweeps(const SweepArgs& args) {
    const Sweep<Patch> s(args);
    s.Forward();
    s.Backward();
}

void SweepsAvx2(const SweepArgs& args);

}  // namespace velmora::retouch


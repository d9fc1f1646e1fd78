#include "heal.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdint>
#include <cstring>
#include <optional>
#include <random>
#include <stdexcept>

#include "cli.h"
#include "road.h"
#include "velmora/imaging.h"
#include "working_image.h"

namespace velmora::tool {
namespace {

constexpr uint32_t kMarker = 0xFFFFFFFFu;  // the minimiser's hole pixel: worst match in every channel
constexpr int kFrame = 2;                   // patches reach one pixel before and two past the region

bool IsHole(uint32_t px) { return (px >> 24) != 0; }  // the shrink's convention: alpha set

// A four-byte-pixel plane with a frame around it, for the minimiser's patch reads.
struct Canvas {
    int w = 0, h = 0, pitch = 0;
    std::vector<uint32_t> px;
    Canvas() = default;
    Canvas(int w_, int h_) : w(w_), h(h_), pitch(w_ + 2 * kFrame), px(size_t(pitch) * (h_ + 2 * kFrame)) {}
    uint32_t* Row(int y) { return px.data() + size_t(y + kFrame) * pitch + kFrame; }
    const uint32_t* Row(int y) const { return px.data() + size_t(y + kFrame) * pitch + kFrame; }
    uint32_t& At(int x, int y) { return Row(y)[x]; }
    uint32_t At(int x, int y) const { return Row(y)[x]; }
    uint8_t* Origin() { return reinterpret_cast<uint8_t*>(Row(0)); }
    int32_t Step() const { return pitch * 4; }
    ImageSize Size() const { return {w, h}; }
};

// The minimiser's patch distance, for entries the host places itself (initial and upsampled
// matches must carry their true distance, or the strict comparison keeps worse ones).
int32_t PatchDistance(const Canvas& t, int tx, int ty, const Canvas& s, int sx, int sy) {
    static const int weight[4] = {1, 6, 3, 0};
    int32_t sum = 0;
    for (int dy = -1; dy <= 2; ++dy)
        for (int dx = -1; dx <= 2; ++dx) {
            const uint32_t a = t.At(tx + dx, ty + dy), b = s.At(sx + dx, sy + dy);
            const bool hole = a == kMarker || b == kMarker;
            for (int c = 0; c < 4; ++c) {
                const int d = hole ? 255 : std::abs(int((a >> (8 * c)) & 255) - int((b >> (8 * c)) & 255));
                sum += weight[c] * d * d;
            }
        }
    return sum;
}

// The vote changed hole pixels under the field: the distances of the patches that hold one
// must follow (the others saw no change). `near` marks those patches.
void RefreshDistances(const Canvas& t, const Canvas& src, const std::vector<uint8_t>& near, std::vector<NNFEntry>& nnf) {
#pragma omp parallel for schedule(dynamic, 16)
    for (int y = 0; y < t.h; ++y)
        for (int x = 0; x < t.w; ++x) {
            if (!near[size_t(y) * t.w + x]) continue;
            NNFEntry& e = nnf[size_t(y) * t.w + x];
            e.distance = PatchDistance(t, x, y, src, e.x, e.y);
        }
}

// Patches (by the pixel they belong to) that hold a hole pixel of the level.
std::vector<uint8_t> PatchesOverHole(const Canvas& level) {
    const int w = level.w, h = level.h;
    std::vector<uint8_t> near(size_t(w) * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            if (IsHole(level.At(x, y)))
                for (int qy = std::max(y - 2, 0); qy <= std::min(y + 1, h - 1); ++qy)
                    for (int qx = std::max(x - 2, 0); qx <= std::min(x + 1, w - 1); ++qx) near[size_t(qy) * w + qx] = 1;
    return near;
}

// Smallest rectangle around the hole, grown by a margin of known picture to copy from.
struct Box {
    int x0, y0, x1, y1;  // inclusive-exclusive
};

std::optional<Box> HoleBox(const HoleMask& m) {
    Box b{m.width, m.height, 0, 0};
    for (int y = 0; y < m.height; ++y)
        for (int x = 0; x < m.width; ++x)
            if (m.inside[size_t(y) * m.width + x]) {
                b.x0 = std::min(b.x0, x), b.y0 = std::min(b.y0, y);
                b.x1 = std::max(b.x1, x + 1), b.y1 = std::max(b.y1, y + 1);
            }
    if (b.x1 == 0) return std::nullopt;
    return b;
}

// Marker pixels become the mean of their filled neighbours, ring by ring from the outside.
void DiffusionFill(Canvas& t) {
    std::vector<uint8_t> known(size_t(t.w) * t.h);
    for (int y = 0; y < t.h; ++y)
        for (int x = 0; x < t.w; ++x) known[size_t(y) * t.w + x] = t.At(x, y) != kMarker;
    for (bool changed = true; changed;) {
        changed = false;
        std::vector<uint8_t> next = known;
        for (int y = 0; y < t.h; ++y)
            for (int x = 0; x < t.w; ++x) {
                if (known[size_t(y) * t.w + x]) continue;
                int sum[3] = {}, n = 0;
                for (int dy = -1; dy <= 1; ++dy)
                    for (int dx = -1; dx <= 1; ++dx) {
                        const int xx = x + dx, yy = y + dy;
                        if (xx < 0 || yy < 0 || xx >= t.w || yy >= t.h || !known[size_t(yy) * t.w + xx]) continue;
                        for (int c = 0; c < 3; ++c) sum[c] += (t.At(xx, yy) >> (8 * c)) & 255;
                        ++n;
                    }
                if (n == 0) continue;
                uint32_t v = 0;
                for (int c = 0; c < 3; ++c) v |= uint32_t((sum[c] + n / 2) / n) << (8 * c);
                t.At(x, y) = v;
                next[size_t(y) * t.w + x] = 1;
                changed = true;
            }
        known.swap(next);
    }
}

// Each hole pixel becomes the weighted mean of what the 16 patches covering it put there; a
// patch weighs exp(-d / 2 s) with s the 75th percentile of those patches' distances, so the
// well-matched ones decide and poor ones only fill in.
void Vote(Canvas& t, const Canvas& src, const Canvas& level, const std::vector<NNFEntry>& nnf, int percentile) {
    const int w = t.w, h = t.h;
    std::vector<int32_t> ds;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            if (IsHole(level.At(x, y))) ds.push_back(nnf[size_t(y) * w + x].distance);
    if (ds.empty()) return;
    const size_t at = std::min(ds.size() - 1, ds.size() * size_t(percentile) / 100);
    std::nth_element(ds.begin(), ds.begin() + at, ds.end());
    const double s = std::max(1.0, double(ds[at]));
#pragma omp parallel for schedule(dynamic, 16)
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            if (!IsHole(level.At(x, y))) continue;
            double sum[3] = {}, wsum = 0;
            // Weights relative to the best covering patch, so a pixel whose patches all match
            // poorly still gets their mean instead of nothing.
            int32_t best = INT32_MAX;
            for (int pass = 0; pass < 2; ++pass)
            for (int qy = std::max(y - 2, 0); qy <= std::min(y + 1, h - 1); ++qy)
                for (int qx = std::max(x - 2, 0); qx <= std::min(x + 1, w - 1); ++qx) {
                    const NNFEntry& e = nnf[size_t(qy) * w + qx];
                    const int sx = e.x + x - qx, sy = e.y + y - qy;
                    if (sx < 0 || sy < 0 || sx >= w || sy >= h) continue;
                    const uint32_t p = src.At(sx, sy);
                    if (p == kMarker) continue;
                    if (pass == 0) {
                        best = std::min(best, e.distance);
                        continue;
                    }
                    const double wt = std::exp(-(double(e.distance) - best) / (2.0 * s));
                    for (int c = 0; c < 3; ++c) sum[c] += wt * ((p >> (8 * c)) & 255);
                    wsum += wt;
                }
            if (wsum <= 0) continue;
            uint32_t v = 0;
            for (int c = 0; c < 3; ++c) v |= uint32_t(std::lround(sum[c] / wsum)) << (8 * c);
            t.At(x, y) = v;
        }
}

std::vector<NNFEntry> RandomField(const Canvas& t, const Canvas& src, std::mt19937& rng);

// The coarsest level's first fill, from the hole's edge inwards. Unfilled hole pixels of the
// target are markers (a constant cost for every candidate), so only the known part of a patch
// chooses its match; the source's hole is widened by the patch reach, so no patch can match
// itself across the hole's edge for free. Each peel fills the hole pixels covered by a patch
// that holds known or already filled pixels, from those patches' matches only.
std::vector<NNFEntry> PeelFill(Canvas& t, const Canvas& src, const Canvas& level, std::mt19937& rng) {
    const int w = t.w, h = t.h;
    const ImageSize size{w, h};
    Canvas wide = src;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            bool near = false;
            for (int dy = -2; dy <= 2 && !near; ++dy)
                for (int dx = -2; dx <= 2 && !near; ++dx) {
                    const int xx = x + dx, yy = y + dy;
                    near = xx >= 0 && yy >= 0 && xx < w && yy < h && IsHole(level.At(xx, yy));
                }
            if (near) wide.At(x, y) = kMarker;
        }
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            if (IsHole(level.At(x, y))) t.At(x, y) = kMarker;
    std::vector<NNFEntry> nnf = RandomField(t, wide, rng);
    for (bool open = true; open;) {
        for (int call = 0; call < 2; ++call)
            ImageMinimize_Bgra32(t.Origin(), t.Step(), wide.Origin(), wide.Step(), nnf.data(), w * 12, &size, 4);
        auto informed = [&](int qx, int qy) {  // the patch at q holds a pixel that is not a marker
            for (int dy = -1; dy <= 2; ++dy)
                for (int dx = -1; dx <= 2; ++dx) {
                    const int xx = qx + dx, yy = qy + dy;
                    if (xx >= 0 && yy >= 0 && xx < w && yy < h && t.At(xx, yy) != kMarker) return true;
                }
            return false;
        };
        Canvas next = t;
        open = false;
        bool progress = false;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                if (t.At(x, y) != kMarker) continue;
                double sum[3] = {}, wsum = 0;
                for (int qy = std::max(y - 2, 0); qy <= std::min(y + 1, h - 1); ++qy)
                    for (int qx = std::max(x - 2, 0); qx <= std::min(x + 1, w - 1); ++qx) {
                        if (!informed(qx, qy)) continue;
                        const NNFEntry& e = nnf[size_t(qy) * w + qx];
                        const int sx = e.x + x - qx, sy = e.y + y - qy;
                        if (sx < 0 || sy < 0 || sx >= w || sy >= h || src.At(sx, sy) == kMarker) continue;
                        const uint32_t p = src.At(sx, sy);
                        const double wt = 1.0 / (1.0 + e.distance);
                        for (int c = 0; c < 3; ++c) sum[c] += wt * ((p >> (8 * c)) & 255);
                        wsum += wt;
                    }
                if (wsum <= 0) {
                    open = true;
                    continue;
                }
                uint32_t v = 0;
                for (int c = 0; c < 3; ++c) v |= uint32_t(std::lround(sum[c] / wsum)) << (8 * c);
                next.At(x, y) = v;
                progress = true;
            }
        t = std::move(next);
        if (!progress) break;
    }
    DiffusionFill(t);  // whatever no patch reached (a hole wider than the level)
    return nnf;
}

// Random matches whose whole patch is known picture; any known pixel if the level has none.
std::vector<NNFEntry> RandomField(const Canvas& t, const Canvas& src, std::mt19937& rng) {
    const int w = t.w, h = t.h;
    std::vector<std::pair<int, int>> spots;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            bool clean = true;
            for (int dy = -1; dy <= 2 && clean; ++dy)
                for (int dx = -1; dx <= 2 && clean; ++dx) clean = src.At(x + dx, y + dy) != kMarker;
            if (clean) spots.emplace_back(x, y);
        }
    if (spots.empty())
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                if (src.At(x, y) != kMarker) spots.emplace_back(x, y);
    if (spots.empty()) spots.emplace_back(0, 0);
    std::vector<NNFEntry> nnf(size_t(w) * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const auto [sx, sy] = spots[rng() % spots.size()];
            nnf[size_t(y) * w + x] = {sx, sy, PatchDistance(t, x, y, src, sx, sy)};
        }
    return nnf;
}

// A level's pixel j sits over position 2j - 0.5 of the level above it (the shrink's window is
// centred half a pixel up and left), so a fine pixel c lies over coarse (c + 1) / 2 and keeps
// twice the coarse offset to its match.
std::vector<NNFEntry> UpsampleField(const std::vector<NNFEntry>& coarse, int cw, int ch, const Canvas& t,
                                    const Canvas& src) {
    const int w = t.w, h = t.h;
    std::vector<NNFEntry> nnf(size_t(w) * h);
#pragma omp parallel for schedule(static)
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const int j = std::min((x + 1) / 2, cw - 1), i = std::min((y + 1) / 2, ch - 1);
            const NNFEntry& e = coarse[size_t(i) * cw + j];
            const int sx = std::clamp(x + 2 * (e.x - j), 0, w - 1), sy = std::clamp(y + 2 * (e.y - i), 0, h - 1);
            nnf[size_t(y) * w + x] = {sx, sy, PatchDistance(t, x, y, src, sx, sy)};
        }
    return nnf;
}

// The coarse result enlarged by the library's upscale, as the first guess of the finer level's
// hole (shifted one pixel for the shrink's half-pixel offset).
void UpscaledGuess(Canvas& t, const Canvas& level, const Canvas& coarse) {
    Image small = MakeImage(coarse.w, coarse.h, 8), big = MakeImage(t.w, t.h, 8);
    for (int y = 0; y < coarse.h; ++y) std::memcpy(small.Row(y), coarse.Row(y), size_t(coarse.w) * 4);
    const ImageSize from{coarse.w, coarse.h}, to{t.w, t.h};
    if (ImageUpscale_Bgra32(small.pixels.data(), small.step, &from, big.pixels.data(), big.step, &to) != StatusOk)
        throw std::runtime_error("the upscale refused its planes");
    for (int y = 0; y < t.h; ++y)
        for (int x = 0; x < t.w; ++x)
            if (IsHole(level.At(x, y))) {
                uint32_t v;
                std::memcpy(&v, big.Row(std::min(y + 1, t.h - 1)) + 4 * std::min(x + 1, t.w - 1), 4);
                t.At(x, y) = v & 0xFFFFFFu;
            }
}

}  // namespace

HoleMask ReadHoleMask(const std::string& path) {
    ReadOptions options;
    const Image m = ReadImage(path, options);
    HoleMask hole{m.width, m.height, std::vector<uint8_t>(size_t(m.width) * m.height)};
    for (int y = 0; y < m.height; ++y)
        for (int x = 0; x < m.width; ++x) {
            const uint8_t* p = m.Row(y) + x * m.PixelBytes();
            bool colour = false, opaque = true;
            if (m.bits == 8) {
                colour = p[0] | p[1] | p[2];
                opaque = !m.HasAlpha() || p[3] != 0;
            } else {
                const uint16_t* q = reinterpret_cast<const uint16_t*>(p);
                colour = q[0] | q[1] | q[2];
                opaque = !m.HasAlpha() || q[3] != 0;
            }
            hole.inside[size_t(y) * m.width + x] = colour && opaque;
        }
    return hole;
}

HoleMask RectangleHole(const std::string& rect, int width, int height) {
    int x = 0, y = 0, w = 0, h = 0;
    char rest = 0;
    if (std::sscanf(rect.c_str(), "%d,%d,%d,%d%c", &x, &y, &w, &h, &rest) != 4 || w <= 0 || h <= 0)
        throw UsageError("--rect takes x,y,w,h in whole pixels (w and h above 0), not '" + rect + "'");
    HoleMask hole{width, height, std::vector<uint8_t>(size_t(width) * height)};
    for (int yy = std::max(y, 0); yy < std::min<int64_t>(int64_t{y} + h, height); ++yy)
        for (int xx = std::max(x, 0); xx < std::min<int64_t>(int64_t{x} + w, width); ++xx)
            hole.inside[size_t(yy) * width + xx] = 1;
    return hole;
}

Image HealImage(const Image& in, const HoleMask& hole) {
    if (hole.width != in.width || hole.height != in.height)
        throw UsageError("the mask is " + std::to_string(hole.width) + "x" + std::to_string(hole.height) +
                         " but the picture is " + std::to_string(in.width) + "x" + std::to_string(in.height));
    const std::optional<Box> box = HoleBox(hole);
    if (!box) throw UsageError("the mask marks no pixel: nothing to heal");
    // The fill is found on 8-bit pixels; a 16-bit picture gets the result scaled back up.
    const Image eight = in.bits == 8 ? in : FromWorking(ToWorking(in), 8);

    // Work on the hole and a margin of half its size around it (at least 48 pixels): enough
    // texture to copy from, and the cost follows the hole, not the picture.
    const int margin = std::max(48, std::max(box->x1 - box->x0, box->y1 - box->y0) / 2);
    const Box crop{std::max(box->x0 - margin, 0), std::max(box->y0 - margin, 0), std::min(box->x1 + margin, in.width),
                   std::min(box->y1 + margin, in.height)};
    const int cw = crop.x1 - crop.x0, ch = crop.y1 - crop.y0;
    // Pyramid levels: colours, alpha set on hole pixels (the shrink's own convention).
    std::vector<Canvas> levels(1, Canvas(cw, ch));
    int64_t holes = 0;
    for (int y = 0; y < ch; ++y)
        for (int x = 0; x < cw; ++x) {
            uint32_t v;
            std::memcpy(&v, eight.Row(crop.y0 + y) + 4 * (crop.x0 + x), 4);
            const bool h = hole.inside[size_t(crop.y0 + y) * in.width + crop.x0 + x] != 0;
            levels[0].At(x, y) = (v & 0xFFFFFFu) | (h ? 0xFF000000u : 0u);
            holes += h;
        }
    if (holes == int64_t{cw} * ch) throw UsageError("the mask covers the whole picture: nothing to copy from");
    // Shrink (the library's hole-aware 4 x 4 shrink) until the hole is a few pixels across.
    int extent = std::max(box->x1 - box->x0, box->y1 - box->y0);
    Stage("hole-aware pyramid", int64_t{cw} * ch, [&] {
        while (extent > 3 && std::min(levels.back().w, levels.back().h) >= 12) {
            const Canvas& above = levels.back();
            Canvas next(above.w / 2, above.h / 2);
            const ImageSize size = above.Size();
            ImageDownscaleMasked4x4_Bgra32(reinterpret_cast<const uint8_t*>(above.Row(0)), above.Step(), &size,
                                           next.Origin(), next.Step(), 0);
            levels.push_back(std::move(next));
            extent /= 2;
        }
    });
    if (Report())
        std::fprintf(Report(), "  hole %dx%d at %d,%d; working on %dx%d, %zu levels\n", box->x1 - box->x0,
                     box->y1 - box->y0, box->x0, box->y0, cw, ch, levels.size());

    std::mt19937 rng(2024);
    Canvas result;
    std::vector<NNFEntry> nnf;
    for (int k = int(levels.size()) - 1; k >= 0; --k) {
        const Canvas& level = levels[size_t(k)];
        const int w = level.w, h = level.h;
        Canvas src(w, h), t(w, h);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const uint32_t v = level.At(x, y);
                src.At(x, y) = IsHole(v) ? kMarker : v;
                t.At(x, y) = IsHole(v) ? 0u : v;
            }
        const ImageSize size{w, h};
        const std::vector<uint8_t> near = PatchesOverHole(level);
        ImageSetBorder_Bgra32(src.Origin(), src.Step(), &size, kFrame, kMarker);
        ImageSetBorder_Bgra32(t.Origin(), t.Step(), &size, kFrame, kMarker);
        if (result.w == 0) {
            PeelFill(t, src, level, rng);
            nnf = RandomField(t, src, rng);
        } else {
            // The enlarged coarse fill is blurred; rebuilding the hole from the carried-over
            // matches at this level's resolution gives the rounds sharp texture to start from
            // (matching a blurred guess would only find blurred picture).
            UpscaledGuess(t, level, result);
            nnf = UpsampleField(nnf, result.w, result.h, t, src);
            Vote(t, src, level, nnf, 100);
            RefreshDistances(t, src, near, nnf);
        }
        // Coarse levels are cheap and set the structure: more rounds there; the finest level
        // mostly sharpens what it inherits.
        const int rounds = k == 0 ? 2 : k == 1 ? 4 : 15;
        char label[64];
        std::snprintf(label, sizeof label, "level %d: %dx%d, %d rounds", k, w, h, rounds);
        Stage(label, int64_t{w} * h * rounds, [&] {
            for (int round = 0; round < rounds; ++round) {
                ImageMinimize_Bgra32(t.Origin(), t.Step(), src.Origin(), src.Step(), nnf.data(), w * 12, &size, 4);
                Vote(t, src, level, nnf, 50);
                RefreshDistances(t, src, near, nnf);
            }
        });
        result = std::move(t);
    }

    Image out = in;
    for (int y = 0; y < ch; ++y)
        for (int x = 0; x < cw; ++x) {
            if (!hole.inside[size_t(crop.y0 + y) * in.width + crop.x0 + x]) continue;
            const uint32_t v = result.At(x, y);
            uint8_t* p = out.Row(crop.y0 + y) + (crop.x0 + x) * out.PixelBytes();
            if (in.bits == 8) {
                for (int c = 0; c < 3; ++c) p[c] = uint8_t(v >> (8 * c));
            } else {
                // Rgba64 holds R, G, B; the fill is B, G, R bytes.
                uint16_t* q = reinterpret_cast<uint16_t*>(p);
                for (int c = 0; c < 3; ++c) q[c] = uint16_t(((v >> (8 * (2 - c))) & 255) * 257);
            }
        }
    return out;
}

}  // namespace velmora::tool

// Blurs and convolutions against the scalar references on random small shapes: source planes
// carry exactly the margins each kernel may read, fenced by no-access pages on the top-left and
// bottom-right corners, so a read one pixel further crashes; every output pixel is compared
// exactly, and pixels a kernel must leave alone (margins, in-place borders, alpha) are checked.
// Every case runs at each instruction-set level the processor has.
#include <algorithm>
#include <functional>
#include <random>
#include <vector>

#include "reference/blur.h"
#include "support/compare.h"
#include "support/dispatch.h"
#include "support/shapes.h"
#include "velmora/imaging.h"

namespace {

using vt::GuardedPlane;

using vt::Rng;
// A guarded plane of w x h pixels of `c` elements of T with margins l, t, r, b around the region,
// random contents (margins included), padding, row order and guard side.
template <class T>
struct Plane : vt::MarginPlane<T> {
    Plane(Rng& rng, int w, int h, int c, int l = 0, int t = 0, int r = 0, int b = 0) : vt::MarginPlane<T>(rng.g, w, h, c, l, t, r, b) {
        this->g.template FillRows<T>([&](int, int64_t) {
            if constexpr (sizeof(T) == 1) return T(rng.Int(0, 255));
            else return rng.Int(0, 9) == 0 ? rng.Float(-1.0f, 0.0f) : rng.Float(0.0f, 1.0f);
        });
    }
    ref::Img ToImg() const {
        ref::Img img(this->w, this->h, this->c, this->l, this->t, this->r, this->b);
        for (int y = -this->t; y < this->h + this->b; ++y)
            for (int x = -this->l; x < this->w + this->r; ++x)
                for (int ch = 0; ch < this->c; ++ch) img.at(x, y, ch) = float(this->At(x, y, ch));
        return img;
    }
    // Every element of the plane, margins included, against img (which has this plane's margins
    // or none: then only the region is compared).
    ::testing::AssertionResult Matches(ref::Img& img) const {
        for (int y = -img.t; y < this->h + img.b; ++y)
            for (int x = -img.l; x < this->w + img.r; ++x)
                for (int ch = 0; ch < this->c; ++ch)
                    if (!vt::Same(float(this->At(x, y, ch)), img.at(x, y, ch), 0))
                        return ::testing::AssertionFailure() << "pixel (" << x << ", " << y << ") channel " << ch
                                                             << ": got " << float(this->At(x, y, ch)) << ", want "
                                                             << img.at(x, y, ch);
        return ::testing::AssertionSuccess();
    }
};
using FloatPlane = Plane<float>;

std::vector<float> RandomKernel(Rng& rng, int size) {
    std::vector<float> k(size_t(std::max(size, 1)));
    for (float& v : k) v = rng.Float(0.05f, 2.0f);
    return k;
}

// Small shapes with the degenerate ones first, at every level.
template <class Fn>
void ForShapes(uint32_t seed, int count, Fn&& fn) {
    vt::ForEachLevel([&] { vt::ForSizes(seed, count, 23, 23, fn); });
}

TEST(BoxBlurs, MatchReferenceReadingExactlyTheirMargins) {
    ForShapes(1, 120, [](Rng& rng, int w, int h) {
        const int r = rng.Int(0, 4);
        const ImageSize roi{w, h};
        {  // one box each way, margin r
            FloatPlane src(rng, w, h, 4, r, r, r, r), dst(rng, w, h, 4);
            ref::Img in = src.ToImg(), want(w, h, 4);
            BoxBlur_Rgba128F_SSE2(src.Origin(), src.Step(), dst.Origin(), dst.Step(), &roi, r);
            if (w > 0 && h > 0) ref::BoxRound(in, want, 0, 0, w, h, r);
            EXPECT_TRUE(dst.Matches(want)) << "box r=" << r;
        }
        {  // three boxes each way, margin 3r; the source keeps the second round's results
            FloatPlane src(rng, w, h, 4, 3 * r, 3 * r, 3 * r, 3 * r), dst(rng, w, h, 4);
            ref::Img work = src.ToImg(), want(w, h, 4);
            FastGaussianBlur_Rgba128F_SSE2(src.Origin(), src.Step(), dst.Origin(), dst.Step(), &roi, r);
            if (w > 0 && h > 0) {
                for (int m : {2 * r, r}) ref::BoxRound(work, work, -m, -m, w + 2 * m, h + 2 * m, r);
                ref::Img last = work;
                ref::BoxRound(last, want, 0, 0, w, h, r);
                EXPECT_TRUE(src.Matches(work)) << "fast gaussian source r=" << r;
            }
            EXPECT_TRUE(dst.Matches(want)) << "fast gaussian r=" << r;
        }
        {  // two symmetric weighted passes, margin kernelSize/2; even sizes read 2r+1 weights
            const int size = rng.Int(1, 9), kr = size / 2;
            const std::vector<float> k = RandomKernel(rng, 2 * kr + 1);
            FloatPlane src(rng, w, h, 4, kr, kr, kr, kr), dst(rng, w, h, 4);
            ref::Img in = src.ToImg(), mid = in, want(w, h, 4);
            const ImageRect rect{1, 2, 3, 4};
            GaussianBlur_Rgba128F_SSE(src.Origin(), src.Step(), dst.Origin(), dst.Step(), w, h, k.data(), size, &rect);
            for (int ch = 0; ch < 4; ++ch) {
                for (int y = -kr; y < h + kr; ++y)
                    for (int x = 0; x < w; ++x)
                        mid.at(x, y, ch) = ref::Symmetric(x, k.data(), kr, [&](int i) { return in.at(i, y, ch); });
                for (int y = 0; y < h; ++y)
                    for (int x = 0; x < w; ++x)
                        want.at(x, y, ch) = ref::Symmetric(y, k.data(), kr, [&](int i) { return mid.at(x, i, ch); });
            }
            EXPECT_TRUE(dst.Matches(want)) << "gaussian size=" << size;
        }
    });
}

TEST(TransposedPasses, MatchReference) {
    ForShapes(2, 150, [](Rng& rng, int count, int rows) {
        const int r = rng.Int(0, 5);
        const std::vector<float> k = RandomKernel(rng, 2 * r + 1);
        for (bool clipping : {true, false}) {
            const int m = clipping ? 0 : r;
            FloatPlane src(rng, count, rows, 4, m, 0, m, 0), dst(rng, rows, count, 4);
            ref::Img in = src.ToImg(), want(rows, count, 4);
            auto* call = clipping ? BlurTranspose_Rgba128F_SSE : DangerousBlurTranspose_Rgba128F_SSE;
            call(src.Origin(), src.Step(), dst.Origin(), dst.Step(), count, rows, k.data(), r, nullptr);
            for (int ch = 0; ch < 4; ++ch)
                for (int y = 0; y < rows; ++y)
                    for (int x = 0; x < count; ++x) {
                        auto get = [&](int i) { return in.at(i, y, ch); };
                        want.at(y, x, ch) = clipping ? ref::Clipped(x, 0, count - 1, k.data(), 2 * r + 1, r, get)
                                                     : ref::Symmetric(x, k.data(), r, get);
                    }
            EXPECT_TRUE(dst.Matches(want)) << (clipping ? "clipping" : "margin-reading") << " r=" << r;
        }
    });
}

// The packed-margin convolutions, four-float and gray, into a second plane or in place: the
// result over the region, margins untouched.
TEST(PackedMarginConvolutions, MatchReferenceInPlaceOrNot) {
    using Binomial = void(VELMORA_CALL*)(int32_t, int32_t, float*, int32_t, uint32_t);
    const std::vector<std::pair<Binomial, std::vector<float>>> binomials = {
        {XMImageGaussian3_Rgba128F_SSE2, {1, 2, 1}},
        {XMImageGaussian5_Rgba128F_SSE2, {1, 4, 6, 4, 1}},
        {XMImageGaussian7_Rgba128F_SSE2, {1, 6, 15, 20, 15, 6, 1}}};
    ForShapes(3, 150, [&](Rng& rng, int w, int h) {
        const int l = rng.Int(0, 3), t = rng.Int(0, 3), r = rng.Int(0, 3), b = rng.Int(0, 3);
        const uint32_t margins = uint32_t(l | t << 8 | r << 16 | b << 24);
        const int variant = rng.Int(0, 3);  // two kernels, one kernel, binomial, gray
        const int c = variant == 3 ? 1 : 4;
        std::vector<float> kx = RandomKernel(rng, rng.Int(1, 8)), ky = RandomKernel(rng, rng.Int(1, 8));
        if (variant == 1) ky = kx;
        if (variant == 2) kx = ky = binomials[size_t(rng.Int(0, 2))].second;
        const bool in_place = variant == 2 || rng.Int(0, 1);
        FloatPlane src(rng, w, h, c, l, t, r, b), dst(rng, w, h, c);
        ref::Img in = src.ToImg();
        ref::Img result = ref::Separable(in, kx.data(), int(kx.size()), ky.data(), int(ky.size()));
        float* out = in_place ? src.Origin() : dst.Origin();
        const int32_t out_step = in_place ? src.Step() : dst.Step();
        const int32_t sx = int32_t(kx.size()), sy = int32_t(ky.size());
        if (variant == 0) XMImageConvolution_Rgba128F_SSE2(w, h, src.Origin(), src.Step(), out, out_step, kx.data(), sx, ky.data(), sy, margins);
        if (variant == 1) XMImageConvolve_Rgba128F_SSE2(w, h, src.Origin(), src.Step(), out, out_step, kx.data(), sx, margins);
        if (variant == 2) binomials[size_t(sx / 2 - 1)].first(w, h, src.Origin(), src.Step(), margins);
        if (variant == 3) XMImageSepConv_Gray32F_SSE2(src.Origin(), src.Step(), out, out_step, w, h, kx.data(), sx, ky.data(), sy, margins);
        SCOPED_TRACE(testing::Message() << "variant " << variant << " sizes " << sx << "/" << sy << (in_place ? " in place" : ""));
        if (in_place) {
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x)
                    for (int ch = 0; ch < c; ++ch) in.at(x, y, ch) = result.at(x, y, ch);
            EXPECT_TRUE(src.Matches(in));
        } else {
            EXPECT_TRUE(dst.Matches(result));
            EXPECT_TRUE(src.Matches(in)) << "source changed";
        }
    });
}

// The six gray box-mean exports: one transposing pass, or two through the caller's tmp plane.
TEST(GrayBoxMeans, MatchReference) {
    using Pass = void(VELMORA_CALL*)(const float*, int32_t, float*, int32_t, const ImageSize*, int32_t);
    using TwoPass = void(VELMORA_CALL*)(const float*, int32_t, float*, int32_t, float*, int32_t, const ImageSize*, int32_t);
    const std::pair<Pass, bool> passes[] = {{XMImageBoxBlurAndTranspose_Gray32Float, false},
                                            {XMImageBoxBlurAndTransposeII_Gray32Float, true},
                                            {XMImageBoxFilterTranspose_Gray32F_SSE2, false}};
    const std::pair<TwoPass, bool> boxes[] = {{XMImageBoxFilter_Gray32Float, false},
                                              {XMImageBoxFilter_Gray32F_SSE2, false},
                                              {XMImageComputeMeanII_Gray32Float, true}};
    ForShapes(4, 100, [&](Rng& rng, int w, int h) {
        const int r = rng.Int(0, 2) ? rng.Int(0, 4) : rng.Int(5, 30);
        const ImageSize roi{w, h};
        FloatPlane src(rng, w, h, 1);
        ref::Img in = src.ToImg();
        for (const auto& [call, squares] : passes) {
            FloatPlane dst(rng, h, w, 1);
            call(src.Origin(), src.Step(), dst.Origin(), dst.Step(), &roi, r);
            ref::Img want = ref::GrayBoxTranspose(in, r, squares);
            EXPECT_TRUE(dst.Matches(want)) << "pass, squares " << squares << " r=" << r;
        }
        for (const auto& [call, squares] : boxes) {
            FloatPlane dst(rng, w, h, 1), tmp(rng, h, w, 1);
            call(src.Origin(), src.Step(), dst.Origin(), dst.Step(), tmp.Origin(), tmp.Step(), &roi, r);
            ref::Img mid = ref::GrayBoxTranspose(in, r, squares);
            ref::Img want = ref::GrayBoxTranspose(mid, r, false);
            EXPECT_TRUE(dst.Matches(want)) << "box, squares " << squares << " r=" << r;
        }
        EXPECT_TRUE(src.Matches(in)) << "source changed";
    });
}

// A destination past the streaming threshold whose rows keep 16-byte alignment takes the
// streaming stores (16 rows of the source at a time, then a partial round); the values must not
// change, and the same pass into an unaligned destination must agree with it.
TEST(GrayBoxMeans, LargeAlignedDestinationStreamsTheSameValues) {
    Rng rng{std::mt19937(7)};
    const int w = 2050, h = 2053;  // 16.8 MB transposed
    const ImageSize roi{w, h};
    FloatPlane src(rng, w, h, 1);
    ref::Img in = src.ToImg();
    ref::Img want = ref::GrayBoxTranspose(in, 3, false);
    for (const int32_t offset : {0, 4}) {
        const int64_t row_bytes = int64_t{h} * 4;
        GuardedPlane dst(row_bytes + offset, w, static_cast<int32_t>((row_bytes + offset + 15) / 16 * 16));
        XMImageBoxBlurAndTranspose_Gray32Float(src.Origin(), src.Step(), reinterpret_cast<float*>(dst.Row(0) + offset),
                                               dst.step(), &roi, 3);
        for (int y = 0; y < w; ++y)
            for (int x = 0; x < h; ++x)
                ASSERT_EQ(reinterpret_cast<const float*>(dst.Row(y) + offset)[x], want.at(x, y, 0))
                    << "offset " << offset << " at " << x << "," << y;
    }
}

::testing::AssertionResult BytesMatch(const Plane<uint8_t>& p, const std::vector<uint8_t>& want) {
    return vt::RowsMatch([&](int y) { return p.g.RowAs<const uint8_t>(y); }, p.h, int64_t{p.w} * p.c, want);
}

// A white picture stays white. At 3008 x 2807 with radius 1500 the whole-width windows of the
// middle rows sum 255 x 3001 x 2807, just past 2^31: those sums must not take the 32-bit path.
TEST(EightBitBlurs, WindowSumsPast2To31StayExact) {
    const ImageSize roi{3008, 2807};
    std::vector<uint8_t> white(size_t(roi.width) * roi.height, 255);
    ImageFastGaussianBlur_Gray8(white.data(), roi.width, &roi, 1500);
    EXPECT_EQ(std::count(white.begin(), white.end(), uint8_t(255)), std::ptrdiff_t(white.size()));
}

TEST(EightBitBlurs, MatchReference) {
    ForShapes(5, 120, [](Rng& rng, int w, int h) {
        // Any whole weights, or non-negative ones summing to a power of two: up to 256 the 16-bit
        // body takes those, past it the float body again.
        std::vector<int32_t> k(size_t(rng.Int(1, 7)));
        const bool binary = rng.Int(0, 1);
        int32_t sum = 0, power = 2;
        for (int32_t& v : k) sum += v = binary ? rng.Int(0, rng.Int(0, 3) ? 9 : 150) : rng.Int(-3, 9);
        while (power < sum) power *= 2;
        if (binary) k[size_t(rng.Int(0, int(k.size()) - 1))] += power - sum;
        const bool last = rng.Int(0, 1);
        {  // one pass, transposed; last = 0 keeps the destination's alpha
            Plane<uint8_t> src(rng, w, h, 4), dst(rng, h, w, 4);
            const auto want = ref::ConvolveTransposeBytes(src.Region(), w, h, k, dst.Region(), last);
            ImageConvolveTranspose_Bgra32(src.Origin(), src.Step(), w, h, dst.Origin(), dst.Step(), k.data(),
                                          int32_t(k.size()), last);
            EXPECT_TRUE(BytesMatch(dst, want)) << "transpose, last " << last;
        }
        {  // in place, both ways; the Gaussian is the same with 1 4 6 4 1
            Plane<uint8_t> img(rng, w, h, 4), img5(rng, w, h, 4);
            const std::vector<int32_t> k5 = {1, 4, 6, 4, 1};
            const auto mid = ref::ConvolveTransposeBytes(img.Region(), w, h, k, std::vector<uint8_t>(size_t(w) * h * 4), true);
            const auto want = ref::ConvolveTransposeBytes(mid, h, w, k, img.Region(), last);
            const auto mid5 = ref::ConvolveTransposeBytes(img5.Region(), w, h, k5, std::vector<uint8_t>(size_t(w) * h * 4), true);
            const auto want5 = ref::ConvolveTransposeBytes(mid5, h, w, k5, img5.Region(), true);
            const ImageSize roi{w, h};
            ImageConvolve_Bgra32(img.Origin(), img.Step(), &roi, k.data(), int32_t(k.size()), last);
            ImageGaussian5x5_Bgra32(img5.Origin(), img5.Step(), &roi);
            EXPECT_TRUE(BytesMatch(img, want)) << "in place, last " << last;
            EXPECT_TRUE(BytesMatch(img5, want5)) << "gaussian 5x5";
        }
        {
            const int r = rng.Int(0, 5);
            Plane<uint8_t> img(rng, w, h, 1);
            const auto want = ref::ThreeBoxGray8(img.Region(), w, h, r);
            const ImageSize roi{w, h};
            ImageFastGaussianBlur_Gray8(img.Origin(), img.Step(), &roi, r);
            EXPECT_TRUE(BytesMatch(img, want)) << "gray8 r=" << r;
        }
    });
}

}  // namespace

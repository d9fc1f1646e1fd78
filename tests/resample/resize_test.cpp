// Resize and halving against double-precision references on random sizes, on guarded planes
// fenced at each region's last byte, the padding between rows left as it was; exact where the definitions make it exact (equal sizes,
// 2:1 shrinks, halving), within one code elsewhere (float against double sums).
#include <random>
#include <vector>

#include "reference/resize.h"
#include "support/compare.h"
#include "support/shapes.h"
#include "velmora/imaging.h"

namespace {

struct Bytes {
    int w, h;
    vt::GuardedPlane g;
    Bytes(std::mt19937& rng, int w_, int h_, int align)
        : w(w_), h(h_), g(int64_t{w_} * 4, h_, int32_t((int64_t{w_} * 4 + 15) / 16 * 16 + 16 * int(rng() % 2)),
                          rng() % 2 ? vt::Placement::End : vt::Placement::Start, align) {
        g.FillRows<uint8_t>([&](int, int64_t) { return uint8_t(rng()); });
    }
    std::vector<uint8_t> Read() const {
        std::vector<uint8_t> v;
        for (int y = 0; y < h; ++y) v.insert(v.end(), g.RowAs<uint8_t>(y), g.RowAs<uint8_t>(y) + 4 * w);
        return v;
    }
};

::testing::AssertionResult Within(const std::vector<uint8_t>& got, const std::vector<uint8_t>& want, int tolerance) {
    for (size_t i = 0; i < want.size(); ++i)
        if (std::abs(int(got[i]) - int(want[i])) > tolerance)
            return ::testing::AssertionFailure() << "byte " << i << ": got " << int(got[i]) << ", want " << int(want[i]);
    return ::testing::AssertionSuccess();
}

TEST(Resize, MatchesReferenceBetweenAnySizes) {
    std::mt19937 rng(1);
    for (int i = 0; i < vt::Scaled(150); ++i) {
        const int sw = 1 + int(rng() % 19), sh = 1 + int(rng() % 13);
        int dw = 1 + int(rng() % 27), dh = 1 + int(rng() % 17);
        const int kind = int(rng() % 3);  // any sizes, equal sizes, or an exact 2:1 shrink
        if (kind == 1) dw = sw, dh = sh;
        if (kind == 2) dw = sw, dh = sh;  // doubled source below
        const int srcw = kind == 2 ? 2 * sw : sw, srch = kind == 2 ? 2 * sh : sh;
        SCOPED_TRACE(testing::Message() << srcw << "x" << srch << " -> " << dw << "x" << dh);
        Bytes src(rng, srcw, srch, 16), dst(rng, dw, dh, 16);
        const ImageSize ss{srcw, srch}, ds{dw, dh};
        const auto before = dst.g.Snapshot();
        ASSERT_EQ(ImageResize_Bgra32(src.g.As<uint8_t>(), src.g.step(), &ss, dst.g.As<uint8_t>(), dst.g.step(), &ds), StatusOk);
        EXPECT_TRUE(dst.g.OnlyRowsChanged(before, int64_t{dw} * 4));
        const auto in = src.Read();
        EXPECT_TRUE(Within(dst.Read(), kind == 2 ? ref::Halve(in, srcw, srch) : ref::Resize(in, srcw, srch, dw, dh), kind == 0 ? 1 : 0));  // float against double: one code
        if (kind == 1) EXPECT_EQ(dst.Read(), in);
    }
}

TEST(Resize, RejectsBadPlanesTouchingNothing) {
    std::mt19937 rng(2);
    Bytes src(rng, 8, 4, 16), dst(rng, 4, 2, 16);
    const ImageSize ss{8, 4}, ds{4, 2};
    const auto before = dst.g.Snapshot();
    uint8_t* s = src.g.As<uint8_t>();
    uint8_t* d = dst.g.As<uint8_t>();
    EXPECT_EQ(ImageResize_Bgra32(s, 0, &ss, d, dst.g.step(), &ds), StatusInvalidParameter);
    EXPECT_EQ(ImageResize_Bgra32(nullptr, src.g.step(), &ss, d, dst.g.step(), &ds), StatusInvalidParameter);
    EXPECT_EQ(ImageResize_Bgra32(s + 8, src.g.step(), &ss, d, dst.g.step(), &ds), StatusInvalidParameter);
    EXPECT_EQ(ImageResize_Bgra32(s, src.g.step(), &ss, d, 24, &ds), StatusInvalidParameter);
    // An empty source or destination size is no work: StatusOk, nothing written.
    for (const ImageSize& empty : {ImageSize{0, 4}, ImageSize{8, 0}})
        EXPECT_EQ(ImageResize_Bgra32(s, src.g.step(), &empty, d, dst.g.step(), &ds), StatusOk);
    const ImageSize no_width{0, 2};
    EXPECT_EQ(ImageResize_Bgra32(s, src.g.step(), &ss, d, dst.g.step(), &no_width), StatusOk);
    EXPECT_TRUE(dst.g.Unchanged(before));
}

TEST(DownScale, BlockMeansAnySizeAnyAlignment) {
    std::mt19937 rng(3);
    for (int i = 0; i < vt::Scaled(200); ++i) {
        const int w = 1 + int(rng() % 40), h = 1 + int(rng() % 9);
        SCOPED_TRACE(testing::Message() << w << "x" << h);
        Bytes src(rng, w, h, 1), dst(rng, (w + 1) / 2, (h + 1) / 2, 1);
        const ImageSize size{w, h};
        const auto before = dst.g.Snapshot();
        ImageDownScale_Bgr32(src.g.As<uint8_t>(), src.g.step(), dst.g.As<uint8_t>(), dst.g.step(), &size);
        EXPECT_EQ(dst.Read(), ref::Halve(src.Read(), w, h));
        EXPECT_TRUE(dst.g.OnlyRowsChanged(before, int64_t{(w + 1) / 2} * 4));
    }
}

}  // namespace

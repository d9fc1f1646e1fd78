// The scratch-plane layout: pitch, size, origin and border arithmetic, alignment and zero fill.
#include <cstdint>

#include <gtest/gtest.h>

#include "core/image.h"
#include "core/pyramid.h"

namespace {

using velmora::XMBorder;
using velmora::XMBYTE4;
using velmora::XMFLOAT4A;
using velmora::XMFLOAT8;
using velmora::XMImage;

// Recomputes the layout from first principles for many combinations and checks the invariants
// kernels rely on: aligned rows, the padded region and borders inside the allocation, zeros.
template <class T>
void CheckLayouts() {
    const int32_t e = sizeof(T);
    for (int32_t w : {1, 3, 7, 16, 33})
        for (int32_t h : {1, 2, 5})
            for (int32_t gx : {1, 2, 4, 8})
                for (int32_t gy : {1, 3})
                    for (XMBorder bd : {XMBorder{}, XMBorder{1, 2, 3, 4}, XMBorder{5, 0, 0, 1}}) {
                        auto im = XMImage<T>::Create(w, h, gx, gy, bd);
                        const int32_t wpad = (w + gx - 1) / gx * gx, hpad = (h + gy - 1) / gy * gy;
                        const int32_t left = (e * ((bd.left + gx - 1) / gx * gx) + 15) / 16 * 16;
                        EXPECT_EQ(im->Pitch() % 16, 0);
                        EXPECT_EQ(im->Pitch(), left + (e * (wpad + bd.right) + 15) / 16 * 16);
                        EXPECT_EQ(im->Size(), (bd.top + hpad + bd.bottom) * im->Pitch());
                        EXPECT_EQ(reinterpret_cast<uintptr_t>(im->Base()) % 16, 0u);
                        const auto origin = reinterpret_cast<uint8_t*>(im->Origin());
                        EXPECT_EQ(origin - im->Base(), bd.top * im->Pitch() + left);
                        EXPECT_GE(left, e * bd.left);
                        for (int32_t i = 0; i < im->Size(); ++i) ASSERT_EQ(im->Base()[i], 0) << i;
                    }
}

TEST(XMImageLayout, InvariantsForEveryElementType) {
    CheckLayouts<float>();
    CheckLayouts<XMBYTE4>();
    CheckLayouts<XMFLOAT4A>();
    CheckLayouts<XMFLOAT8>();
}

// Large planes take the huge-page path and must still come zeroed and aligned.
TEST(XMImageLayout, LargePlanesAreZeroedAndAligned) {
    auto im = XMImage<XMFLOAT4A>::Create(700, 300);  // 3.4 MB
#if defined(_WIN32)
    // Straight from VirtualAlloc: its 64 KiB granularity (large pages, where granted, more).
    EXPECT_EQ(reinterpret_cast<uintptr_t>(im->Base()) % (64u << 10), 0u);
#else
    // On a 2 MiB boundary, where transparent huge pages can back it.
    EXPECT_EQ(reinterpret_cast<uintptr_t>(im->Base()) % (2u << 20), 0u);
#endif
    for (int32_t i = 0; i < im->Size(); i += 4093) ASSERT_EQ(im->Base()[i], 0) << i;
    im->Base()[im->Size() - 1] = 1;  // the whole size is writable
}

TEST(ImagePyramidLevels, CountsSizesCapAndOwnership) {
    EXPECT_EQ(velmora::PyramidLevelCount(1, 1, 0), 1);
    EXPECT_EQ(velmora::PyramidLevelCount(2, 2, 0), 2);
    EXPECT_EQ(velmora::PyramidLevelCount(640, 480, 0), 11);
    EXPECT_EQ(velmora::PyramidLevelCount(1, 9, 0), 5);
    velmora::ImagePyramid<float> p(5, 3, 0, 1, 1);
    ASSERT_EQ(p.Count(), 4);
    const int32_t sizes[4][2] = {{5, 3}, {3, 2}, {2, 1}, {1, 1}};
    for (int i = 0; i < 4; ++i) EXPECT_EQ((std::pair{p.Level(i)->Width(), p.Level(i)->Height()}), (std::pair{sizes[i][0], sizes[i][1]}));
    EXPECT_EQ((velmora::ImagePyramid<XMFLOAT8>(5, 3, 2, 4, 1).Count()), 2);
    std::shared_ptr<XMImage<XMBYTE4>> kept;
    {
        velmora::ImagePyramid<XMBYTE4> q(9, 9, 0, 1, 1);
        kept = q.Level(1);
    }
    EXPECT_EQ(kept.use_count(), 1);  // the level outlived its pyramid
}

}  // namespace

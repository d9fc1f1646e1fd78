// XMImage: the library's own scratch planes. Rows start 16-byte aligned with a pitch that is
// a multiple of 16, the width and height are padded to the kernel's block granularity, and an
// optional border surrounds the region, so vector loops may run a block past the width and
// filters may read their margins. The allocation is zero-filled, borders included. Planes of
// 2 MiB and more come from the large-page scratch path (core/scratch.h) and die with the call.
#pragma once

#include <cstdint>
#include <memory>

#include "core/scratch.h"

namespace velmora {

struct XMBYTE4 {
    uint8_t x, y, z, w;
};
struct alignas(16) XMFLOAT4A {
    float x, y, z, w;
};
struct alignas(16) XMFLOAT8 {  // two four-float pixels side by side
    XMFLOAT4A a, b;
};
static_assert(sizeof(XMBYTE4) == 4 && sizeof(XMFLOAT4A) == 16 && sizeof(XMFLOAT8) == 32);

struct XMBorder {
    int32_t left = 0, top = 0, right = 0, bottom = 0;
};

namespace image_detail {
// x rounded up to a multiple of g with signed division, as every size here is computed.
constexpr int32_t RoundUp(int32_t x, int32_t g) { return x + g - 1 - (x + g - 1) % g; }
constexpr int32_t RoundUp16(int32_t x) { return (x + 15) / 16 * 16; }
}  // namespace image_detail

template <class T, int Align = 16>
class XMImage {
    static_assert(Align == 16, "scratch planes are 16-byte aligned");

public:
    // The single allocation of std::make_shared holds object and count together; the pixels
    // are a separate aligned block owned by the object.
    static std::shared_ptr<XMImage> Create(int32_t width, int32_t height, int32_t gx = 1, int32_t gy = 1,
                                           XMBorder border = {}) {
        return std::make_shared<XMImage>(width, height, gx, gy, border);
    }

    XMImage(int32_t width, int32_t height, int32_t gx, int32_t gy, XMBorder border)
        : width_(width), height_(height), gx_(gx), gy_(gy), border_(border) {
        using namespace image_detail;
        constexpr int32_t e = static_cast<int32_t>(sizeof(T));
        // The left border is rounded to the granularity so the origin stays block-aligned; the
        // top border is not rounded to gy, keeping the layout hosts have always seen.
        const int32_t left_bytes = RoundUp16(e * RoundUp(border.left, gx));
        const int32_t row_bytes = RoundUp16(e * (RoundUp(width, gx) + border.right));
        pitch_ = left_bytes + row_bytes;
        const int32_t rows = border.top + RoundUp(height, gy) + border.bottom;
        size_ = rows * pitch_;
        base_ = static_cast<uint8_t*>(scratch::Allocate(Bytes()));
        origin_ = base_ + static_cast<std::ptrdiff_t>(pitch_) * border.top + left_bytes;
    }
    ~XMImage() { scratch::Free(base_, Bytes()); }
    XMImage(const XMImage&) = delete;
    XMImage& operator=(const XMImage&) = delete;

    int32_t Width() const { return width_; }
    int32_t Height() const { return height_; }
    int32_t GranularityX() const { return gx_; }
    int32_t GranularityY() const { return gy_; }
    int32_t Pitch() const { return pitch_; }
    int32_t Size() const { return size_; }
    uint8_t* Base() const { return base_; }
    T* Origin() const { return reinterpret_cast<T*>(origin_); }
    const XMBorder& Border() const { return border_; }
    T* Row(int32_t y) const { return reinterpret_cast<T*>(origin_ + static_cast<std::ptrdiff_t>(pitch_) * y); }

private:
    size_t Bytes() const { return static_cast<size_t>(size_ > 0 ? size_ : 0); }

    int32_t width_, height_, gx_, gy_;
    int32_t pitch_ = 0, size_ = 0;
    uint8_t* base_ = nullptr;
    uint8_t* origin_ = nullptr;
    XMBorder border_;
};

}  // namespace velmora

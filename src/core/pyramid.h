// ImagePyramid: a stack of XMImage levels of halving size (level k+1 is ((w+1)/2, (h+1)/2) of
// level k). Levels are allocated, not filled, each its own shared XMImage, so a level handed out
// may outlive its pyramid. If allocating a level throws, the levels already made are released
// (the vector that holds them unwinds) before the failure propagates.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "core/image.h"

namespace velmora {

// Levels down to the first whose width and height are both below 2, capped at `max_levels`
// when that is not 0.
inline int32_t PyramidLevelCount(int32_t width, int32_t height, int32_t max_levels) {
    int32_t n = 1;
    for (int32_t w = width, h = height; !(w < 2 && h < 2); w = (w + 1) / 2, h = (h + 1) / 2) ++n;
    return max_levels != 0 && max_levels < n ? max_levels : n;
}

template <class T>
class ImagePyramid {
public:
    // gx, gy and border go unchanged to every level's XMImage (granularity and border).
    ImagePyramid(int32_t width, int32_t height, int32_t max_levels, int32_t gx, int32_t gy, XMBorder border = {})
        : width_(width), height_(height), gx_(gx), gy_(gy), border_(border) {
        const int32_t n = PyramidLevelCount(width, height, max_levels);
        levels_.reserve(static_cast<size_t>(n));
        for (int32_t i = 0, w = width, h = height; i < n; ++i, w = (w + 1) / 2, h = (h + 1) / 2)
            levels_.push_back(XMImage<T>::Create(w, h, gx, gy, border));
    }

    int32_t Count() const { return static_cast<int32_t>(levels_.size()); }
    std::shared_ptr<XMImage<T>> Level(int32_t i) const { return levels_[static_cast<size_t>(i)]; }
    // Lets level i go (the pyramid's share of it) once its user no longer needs it.
    void Release(int32_t i) { levels_[static_cast<size_t>(i)].reset(); }
    int32_t Width() const { return width_; }
    int32_t Height() const { return height_; }

private:
    std::vector<std::shared_ptr<XMImage<T>>> levels_;
    int32_t width_, height_, gx_, gy_;
    XMBorder border_;
};

}  // namespace velmora

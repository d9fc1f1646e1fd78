#include "scene.h"

#include <algorithm>
#include <cmath>

namespace velmora::tool {

namespace {

struct Rgb {
    float r, g, b;
};

Rgb Hsv(float h, float s, float v) {
    const float c = v * s, hp = std::fmod(h, 360.f) / 60.f;
    const float x = c * (1 - std::fabs(std::fmod(hp, 2.f) - 1));
    const int sector = static_cast<int>(hp);
    Rgb rgb{};
    switch (sector) {
        case 0: rgb = {c, x, 0}; break;
        case 1: rgb = {x, c, 0}; break;
        case 2: rgb = {0, c, x}; break;
        case 3: rgb = {0, x, c}; break;
        case 4: rgb = {x, 0, c}; break;
        default: rgb = {c, 0, x}; break;
    }
    const float m = v - c;
    return {rgb.r + m, rgb.g + m, rgb.b + m};
}

void Put(Image& image, int x, int y, Rgb c) {
    auto byte = [](float v) { return static_cast<uint8_t>(std::lround(std::clamp(v, 0.f, 1.f) * 255.f)); };
    uint8_t* p = image.Row(y) + 4 * x;
    p[0] = byte(c.b), p[1] = byte(c.g), p[2] = byte(c.r), p[3] = 255;
}

}  // namespace

Image RenderDemoScene(int width, int height) {
    Image image = MakeImage(width, height, 8);
    image.channels = 3;  // opaque: written as an RGB file
    const int band1 = height * 2 / 5, band2 = height * 7 / 10;
    const Rgb patches[] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 1, 1}, {1, 0, 1}, {1, 1, 0}, {1, 1, 1}, {0, 0, 0},
                           {0.9f, 0.55f, 0.35f}, {0.25f, 0.45f, 0.2f}, {0.3f, 0.5f, 0.8f}, {0.5f, 0.5f, 0.5f}};
    const int n_patches = static_cast<int>(std::size(patches));
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const float u = static_cast<float>(x) / std::max(1, width - 1);
            Rgb c;
            if (y < band1) {
                // Hue across, saturation and value falling down the band: smooth gradients
                // where banding or clipping would show.
                const float t = static_cast<float>(y) / std::max(1, band1 - 1);
                c = Hsv(360.f * u, 1.f - 0.6f * t, 1.f - 0.8f * t * t);
            } else if (y < band2) {
                const int ramp_top = band1 + (band2 - band1) * 3 / 4;
                if (y < ramp_top) {
                    const int i = std::min(n_patches - 1, x * n_patches / width);
                    const int inset = (x * n_patches) % width < width / 24 ? 1 : 0;  // thin separators
                    c = inset ? Rgb{0.18f, 0.18f, 0.18f} : patches[i];
                } else {
                    c = {u, u, u};  // gray ramp, black to white
                }
            } else {
                const float cx = width * 0.25f, cy = (band2 + height) * 0.5f;
                if (x < width / 2) {
                    const float dx = x - cx, dy = y - cy;
                    const float v = 0.5f + 0.5f * std::cos((dx * dx + dy * dy) * 3.14159265f / (width * 0.9f));
                    c = {v, v * 0.9f + 0.05f, 1.f - v * 0.8f};
                } else {
                    // Gratings whose period shrinks to one pixel towards the right edge.
                    const int period = std::max(1, 1 + (width - x) * 12 / width);
                    const bool on = ((x / period) + (y / period)) % 2 == 0;
                    c = on ? Rgb{0.95f, 0.92f, 0.85f} : Rgb{0.05f, 0.07f, 0.12f};
                }
            }
            Put(image, x, y, c);
        }
    }
    return image;
}

}  // namespace velmora::tool

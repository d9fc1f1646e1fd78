// Plain scalar conversions, one pixel at a time, written from the documented arithmetic:
// codes times the float nearest 1/255 or 1/65535; floats clamped (NaN to 0), scaled, rounded half
// to even.
#pragma once

#include <algorithm>
#include <cfenv>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace ref {

inline constexpr float kInv255 = 1.0f / 255.0f;  // rounds to 0x3B808081
inline constexpr float kInv65535 = 1.0f / 65535.0f;  // rounds to 0x37800080

inline float Clamp01(float v) {
    if (!(v > 0.0f)) return 0.0f;  // NaN and negatives
    return v < 1.0f ? v : 1.0f;
}
// std::nearbyint rounds with the current mode, which is to-nearest-even by default.
inline uint8_t ToByte(float v) { return static_cast<uint8_t>(std::nearbyint(Clamp01(v) * 255.0f)); }
inline uint16_t ToWord(float v) { return static_cast<uint16_t>(std::nearbyint(Clamp01(v) * 65535.0f)); }
inline float FromByte(uint8_t c) { return static_cast<float>(c) * kInv255; }
inline float FromWord(uint16_t c) { return static_cast<float>(c) * kInv65535; }

inline void GetFloats(const uint8_t* p, float f[4]) { std::memcpy(f, p, 16); }
inline void PutFloats(uint8_t* p, const float f[4]) { std::memcpy(p, f, 16); }

// Each converter: source pixel bytes in, destination pixel bytes out.
inline void Bgr24ToBgr32(const uint8_t* s, uint8_t* d) { d[0] = s[0], d[1] = s[1], d[2] = s[2], d[3] = 255; }

inline void Bgra32ToRgba128F(const uint8_t* s, uint8_t* d) {
    const float f[4] = {FromByte(s[2]), FromByte(s[1]), FromByte(s[0]), FromByte(s[3])};
    PutFloats(d, f);
}
inline void Bgra32ToPrgba128F(const uint8_t* s, uint8_t* d) {
    const float a = FromByte(s[3]);
    const float f[4] = {FromByte(s[2]) * a, FromByte(s[1]) * a, FromByte(s[0]) * a, a};
    PutFloats(d, f);
}
inline void Rgba32ToRgba128F(const uint8_t* s, uint8_t* d) {
    const float f[4] = {FromByte(s[0]), FromByte(s[1]), FromByte(s[2]), FromByte(s[3])};
    PutFloats(d, f);
}
inline void Rgba64ToRgba128F(const uint8_t* s, uint8_t* d) {
    uint16_t w[4];
    std::memcpy(w, s, 8);
    const float f[4] = {FromWord(w[0]), FromWord(w[1]), FromWord(w[2]), FromWord(w[3])};
    PutFloats(d, f);
}
inline void Gray8ToBgr32(const uint8_t* s, uint8_t* d) { std::fill(d, d + 4, s[0]); }
inline void Gray8ToBgra32(const uint8_t* s, uint8_t* d) { d[0] = d[1] = d[2] = s[0], d[3] = 1; }
inline void Gray8ToRgb128F(const uint8_t* s, uint8_t* d) {
    const float g = FromByte(s[0]), f[4] = {g, g, g, g};
    PutFloats(d, f);
}
inline void Gray8ToRgba128F(const uint8_t* s, uint8_t* d) {
    const float g = FromByte(s[0]), f[4] = {g, g, g, 1.0f};
    PutFloats(d, f);
}
inline void Rgb128FToBgr24(const uint8_t* s, uint8_t* d) {
    float f[4];
    GetFloats(s, f);
    d[0] = ToByte(f[2]), d[1] = ToByte(f[1]), d[2] = ToByte(f[0]);
}
inline void Rgba128FToBgra32(const uint8_t* s, uint8_t* d) {
    float f[4];
    GetFloats(s, f);
    d[0] = ToByte(f[2]), d[1] = ToByte(f[1]), d[2] = ToByte(f[0]), d[3] = ToByte(f[3]);
}
inline void Rgba128FToRgba32(const uint8_t* s, uint8_t* d) {
    float f[4];
    GetFloats(s, f);
    for (int c = 0; c < 4; ++c) d[c] = ToByte(f[c]);
}
inline void Rgba128FToRgba64(const uint8_t* s, uint8_t* d) {
    float f[4];
    GetFloats(s, f);
    const uint16_t w[4] = {ToWord(f[0]), ToWord(f[1]), ToWord(f[2]), ToWord(f[3])};
    std::memcpy(d, w, 8);
}

}  // namespace ref

// Tonal corrections for the develop road as a photographer gives them, applied to the encoded
// sRGB result: levels (input black and white points and a gamma), a curve through points, and
// the four-region parametric curve. Each treats R, G and B alike, so greys stay grey.
#pragma once

#include <string>
#include <vector>

namespace velmora::tool {

// Levels: codes at or below `black` become 0, at or above `white` full scale, the rest stretched
// between and raised to 1 / gamma (gamma above 1 brightens the midtones). Black and white as
// fractions of full scale.
struct LevelsSpec {
    bool on = false;
    float black = 0.0f, white = 1.0f, gamma = 1.0f;
};

// "BLACK,WHITE[,GAMMA]": 8-bit codes 0 <= BLACK < WHITE <= 255 (at any depth), GAMMA 0.1 to 10.
LevelsSpec ParseLevels(const std::string& text);

// "X:Y,X:Y,...": two to sixteen points in 8-bit codes with X rising. Returns the curve as the
// library's float table (1024 intervals, 1026 entries): a monotone cubic through the points
// (it never overshoots them, so a rising curve stays rising), flat beyond the first and last.
std::vector<float> ParseCurve(const std::string& text);

// "SHADOWS,DARKS,LIGHTS,HIGHLIGHTS[,S1,S2,S3]": the parametric curve's four amounts (-1 to 1)
// and, optionally, the splits between its regions (0 < S1 < S2 < S3 < 1; default 0.25, 0.5,
// 0.75). Returns the seven parameters the library takes.
std::vector<float> ParseToneRegions(const std::string& text);

}  // namespace velmora::tool

// The editor's develop road on an 8/16-bit sRGB image: into linear ProPhoto with a base luminance
// lane, the library's develop pass, and back to sRGB codes of the same depth. Each stage is timed.
// The base luminance blur and the hue-preserving gamut clip are the tool's own code.
#pragma once

#include <string>
#include <vector>

#include "image_io.h"
#include "looks.h"
#include "tone.h"

namespace velmora::tool {

// The seven amounts of the develop pass: exposure in stops, the others nominally in [-1, 1].
// Where the adjustments apply: everywhere, or through a gradient mask (0..1). Positions and
// radii are fractions of the picture's width and height.
struct GradientSpec {
    enum Kind { None, Linear, Radial, Vignette } kind = None;
    float v[5] = {};  // linear: x0, y0 (mask 0), x1, y1 (mask 1); radial, vignette: cx, cy, rx, ry, feather
};

// "linear[:x0,y0,x1,y1]", "radial[:cx,cy,rx,ry[,feather]]" or "vignette[:...]" (as radial, the
// outside selected); throws UsageError otherwise.
GradientSpec ParseGradient(const std::string& text);

// Split toning: shadow and highlight colours (sRGB codes), where the change-over sits (-1 keeps
// most of the picture in the highlight colour, 1 in the shadow colour) and how strongly to tone.
struct SplitToneSpec {
    bool on = false;
    float shadow[3] = {}, highlight[3] = {};  // sRGB-encoded, 0..1
    float balance = 0.0f, amount = 0.3f;
};

// "RRGGBB:RRGGBB[:balance[:amount]]"; throws UsageError otherwise.
SplitToneSpec ParseSplitTone(const std::string& text);

struct DevelopAmounts {
    float exposure = 0, brightness = 0, shadows = 0, highlights = 0, contrast = 0, clarity = 0, saturation = 0;
    float detail = 0;  // local Laplacian strength after the pass
    GradientSpec gradient;
    SplitToneSpec split;
    // On the encoded sRGB result, in this order: levels, the point curve and the parametric curve
    // (empty: none), then the looks.
    LevelsSpec levels;
    std::vector<float> curve, tone;
    std::vector<float> hsl;  // 24 band amounts (empty: none)
    CubeLut lut;             // a .cube look on the encoded sRGB result (size 0: none)
};

Image DevelopImage(const Image& in, const DevelopAmounts& amounts);

}  // namespace velmora::tool

// The guided filter (He, Sun and Tang) on gray planes, built from the library's box means: the
// output follows the guide's edges while taking its values from the input. The tool uses it for
// develop's base luminance (the luminance as its own guide) and for dehaze's transmission.
#pragma once

#include <vector>

namespace velmora::tool {

// Packed w x h planes. In each (2r+1)-square window the output is the least-squares linear fit
// a * guide + b of the input, averaged over the windows covering the pixel; eps (in squared
// guide units) decides which guide variations count as edges.
std::vector<float> GuidedFilter(const std::vector<float>& guide, const std::vector<float>& input, int w, int h, int radius,
                                float eps);

}  // namespace velmora::tool

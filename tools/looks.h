// Looks read from files for the develop road: a 3D LUT in the .cube format and HSL band amounts.
#pragma once

#include <string>
#include <vector>

namespace velmora::tool {

// A .cube file's 3D table: size n and n^3 RGB nodes, red index fastest.
struct CubeLut {
    int size = 0;
    std::vector<float> nodes;
};

// Reads a .cube file (TITLE, LUT_3D_SIZE 2..256, DOMAIN_MIN 0 0 0 and DOMAIN_MAX 1 1 1 only, comments
// after #); throws std::runtime_error naming the file and line on anything else.
CubeLut ReadCube(const std::string& path);

// Reads 24 numbers in [-1, 1] (hue, saturation, luminance for the bands red, orange, yellow, green,
// aqua, blue, purple, magenta), separated by spaces, commas or lines, comments after #.
std::vector<float> ReadHslBands(const std::string& path);

}  // namespace velmora::tool

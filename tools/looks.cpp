#include "looks.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace velmora::tool {
namespace {

std::ifstream Open(const std::string& path) {
    std::ifstream in(path);
    if (!in) throw std::runtime_error(path + ": cannot open");
    return in;
}

std::string Uncommented(const std::string& line) { return line.substr(0, line.find('#')); }

}  // namespace

CubeLut ReadCube(const std::string& path) {
    std::ifstream in = Open(path);
    CubeLut lut;
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        std::istringstream words(Uncommented(line));
        std::string first;
        if (!(words >> first)) continue;
        const auto fail = [&](const std::string& why) {
            return std::runtime_error(path + ":" + std::to_string(number) + ": " + why);
        };
        if (first == "TITLE") continue;
        if (first == "LUT_3D_SIZE") {
            if (!(words >> lut.size) || lut.size < 2 || lut.size > 256) throw fail("LUT_3D_SIZE must be 2 to 256");
            continue;
        }
        if (first == "LUT_1D_SIZE") throw fail("1D LUTs are not supported; a 3D LUT is needed");
        if (first == "DOMAIN_MIN" || first == "DOMAIN_MAX") {
            float a, b, c;
            const float want = first == "DOMAIN_MIN" ? 0.0f : 1.0f;
            if (!(words >> a >> b >> c) || a != want || b != want || c != want) throw fail("only the domain 0..1 is supported");
            continue;
        }
        if (lut.size == 0) throw fail("data before LUT_3D_SIZE");
        float rgb[3];
        std::istringstream numbers(Uncommented(line));
        std::string rest;
        if (!(numbers >> rgb[0] >> rgb[1] >> rgb[2]) || (numbers >> rest)) throw fail("expected three numbers");
        if (lut.nodes.size() >= size_t(lut.size) * lut.size * lut.size * 3) throw fail("more nodes than LUT_3D_SIZE^3");
        lut.nodes.insert(lut.nodes.end(), rgb, rgb + 3);
    }
    if (lut.size == 0) throw std::runtime_error(path + ": no LUT_3D_SIZE");
    if (lut.nodes.size() != size_t(lut.size) * lut.size * lut.size * 3)
        throw std::runtime_error(path + ": " + std::to_string(lut.nodes.size() / 3) + " nodes, LUT_3D_SIZE " +
                                 std::to_string(lut.size) + " needs " + std::to_string(lut.size * lut.size * lut.size));
    return lut;
}

std::vector<float> ReadHslBands(const std::string& path) {
    std::ifstream in = Open(path);
    std::vector<float> bands;
    std::string line;
    while (std::getline(in, line)) {
        std::string text = Uncommented(line);
        for (char& c : text)
            if (c == ',') c = ' ';
        std::istringstream numbers(text);
        std::string word;
        while (numbers >> word) {
            size_t used = 0;
            float v = 0;
            try {
                v = std::stof(word, &used);
            } catch (const std::exception&) {
            }
            if (used != word.size() || !(v >= -1.0f && v <= 1.0f))
                throw std::runtime_error(path + ": '" + word + "' is not a number from -1 to 1");
            bands.push_back(v);
        }
    }
    if (bands.size() != 24)
        throw std::runtime_error(path + ": " + std::to_string(bands.size()) + " numbers; HSL needs 24 (hue, saturation, luminance x 8 bands)");
    return bands;
}

}  // namespace velmora::tool

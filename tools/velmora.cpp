// velmora: the library's command-line tool. Runs the editor's road on image files (or on a
// built-in scene) through the library's exports and reports each stage's time.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "develop.h"
#include "image_io.h"
#include "road.h"
#include "scene.h"
#include "velmora/imaging.h"
#include "working_image.h"

namespace {

using namespace velmora::tool;

struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

const char* kUsage =
    "usage: velmora COMMAND [ARGS]\n"
    "\n"
    "commands:\n"
    "  convert IN OUT [--bits 8|16]  read an 8/16-bit PNG or a JPEG, convert it to the float working\n"
    "                                image and back, write PNG (.png) or JPEG (.jpg, .jpeg). The output\n"
    "                                keeps the input's depth unless --bits says otherwise (JPEG: 8).\n"
    "  develop IN OUT [--exposure EV] [--brightness A] [--shadows A] [--highlights A]\n"
    "                 [--contrast A] [--clarity A] [--saturation A]\n"
    "                                the editor's develop road: the sRGB file into linear ProPhoto (sRGB\n"
    "                                table, sRGB-to-ProPhoto D50 matrix) with a blurred base luminance,\n"
    "                                the develop pass, back to sRGB primaries, encoded, at the\n"
    "                                input's depth (JPEG output: 8-bit input only). EV from -5 to 5,\n"
    "                                the other amounts from -1 to 1; all default to 0.\n"
    "                                The library has no export yet for two steps, which the tool\n"
    "                                does itself for now: the blurred base luminance and the\n"
    "                                ProPhoto-to-sRGB matrix.\n"
    "  demo [OUT]                    render the built-in test scene and run the convert road on it,\n"
    "                                writing OUT (default velmora-demo.png), then the develop road with\n"
    "                                a moderate edit, writing OUT's name with -developed added\n"
    "  help                          this text\n";

// Splits the arguments after the command into positionals and --name value options.
struct Args {
    std::vector<std::string> positional;
    std::vector<std::pair<std::string, std::string>> options;

    Args(int argc, char** argv, int first) {
        for (int i = first; i < argc; ++i) {
            const std::string a = argv[i];
            if (a.rfind("--", 0) == 0 && a.size() > 2) {
                if (i + 1 >= argc) throw UsageError("option " + a + " needs a value");
                options.emplace_back(a, argv[++i]);
            } else {
                positional.push_back(a);
            }
        }
    }
    std::optional<std::string> Take(const std::string& name) {
        for (auto it = options.begin(); it != options.end(); ++it)
            if (it->first == name) {
                std::string v = it->second;
                options.erase(it);
                return v;
            }
        return std::nullopt;
    }
    void NoneLeft() const {
        if (!options.empty()) throw UsageError("unknown option " + options.front().first);
    }
};

int ParseBits(const std::string& s) {
    if (s == "8") return 8;
    if (s == "16") return 16;
    throw UsageError("--bits takes 8 or 16, not '" + s + "'");
}

// The round trip: integers to the float working image and back, each stage timed.
Image RoundTrip(const Image& in, int out_bits) {
    const int64_t pixels = int64_t{in.width} * in.height;
    std::optional<FloatImage> work;
    Stage(in.bits == 8 ? "Bgra32 -> Rgba128F" : "Rgba64 -> Rgba128F", pixels, [&] { work.emplace(ToWorking(in)); });
    Image out;
    Stage(out_bits == 8 ? "Rgba128F -> Bgra32" : "Rgba128F -> Rgba64", pixels, [&] { out = FromWorking(*work, out_bits); });
    return out;
}

void Write(const std::string& path, const Image& image) {
    const auto t0 = std::chrono::steady_clock::now();
    WriteImage(path, image);
    const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
    std::printf("wrote %s (%dx%d, %d-bit) in %.0f ms\n", path.c_str(), image.width, image.height, image.bits, ms);
}

int Convert(Args args) {
    const std::optional<std::string> bits_opt = args.Take("--bits");
    args.NoneLeft();
    if (args.positional.size() != 2) throw UsageError("convert needs IN and OUT");
    const std::string& in_path = args.positional[0];
    const std::string& out_path = args.positional[1];
    Image in = ReadImage(in_path);
    int bits = bits_opt ? ParseBits(*bits_opt) : in.bits;
    if (IsJpegPath(out_path)) {
        if (bits_opt && bits != 8) throw UsageError("JPEG output is 8-bit only");
        bits = 8;
    }
    std::printf("%s: %dx%d, %d-bit\n", in_path.c_str(), in.width, in.height, in.bits);
    Write(out_path, RoundTrip(in, bits));
    return 0;
}

// An amount option: a finite number inside [lo, hi].
float ParseAmount(const std::string& name, const std::string& text, float lo, float hi) {
    char* end = nullptr;
    const float v = std::strtof(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !std::isfinite(v) || v < lo || v > hi) {
        char range[64];
        std::snprintf(range, sizeof range, "a number from %g to %g", lo, hi);
        throw UsageError(name + " takes " + range + ", not '" + text + "'");
    }
    return v;
}

void PrintAmounts(const DevelopAmounts& a) {
    std::printf("  exposure %+.2f EV, brightness %+.2f, shadows %+.2f, highlights %+.2f, contrast %+.2f, clarity "
                "%+.2f, saturation %+.2f\n",
                a.exposure, a.brightness, a.shadows, a.highlights, a.contrast, a.clarity, a.saturation);
}

int Develop(Args args) {
    DevelopAmounts a;
    const struct {
        const char* name;
        float* value;
        float lo, hi;
    } options[] = {{"--exposure", &a.exposure, -5, 5},    {"--brightness", &a.brightness, -1, 1},
                   {"--shadows", &a.shadows, -1, 1},      {"--highlights", &a.highlights, -1, 1},
                   {"--contrast", &a.contrast, -1, 1},    {"--clarity", &a.clarity, -1, 1},
                   {"--saturation", &a.saturation, -1, 1}};
    for (const auto& o : options)
        if (const std::optional<std::string> text = args.Take(o.name)) *o.value = ParseAmount(o.name, *text, o.lo, o.hi);
    args.NoneLeft();
    if (args.positional.size() != 2) throw UsageError("develop needs IN and OUT");
    const std::string& in_path = args.positional[0];
    const std::string& out_path = args.positional[1];
    Image in = ReadImage(in_path);
    if (IsJpegPath(out_path) && in.bits != 8) throw UsageError("JPEG output is 8-bit only; write a PNG for 16-bit input");
    std::printf("%s: %dx%d, %d-bit\n", in_path.c_str(), in.width, in.height, in.bits);
    PrintAmounts(a);
    Write(out_path, DevelopImage(in, a));
    return 0;
}

// OUT's name with "-developed" before the extension.
std::string DevelopedPath(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    const size_t dot = path.find_last_of('.');
    const bool has_ext = dot != std::string::npos && (slash == std::string::npos || dot > slash);
    return has_ext ? path.substr(0, dot) + "-developed" + path.substr(dot) : path + "-developed";
}

int Demo(Args args) {
    args.NoneLeft();
    if (args.positional.size() > 1) throw UsageError("demo takes at most one output path");
    const std::string out_path = args.positional.empty() ? "velmora-demo.png" : args.positional[0];
    const int width = 1920, height = 1080;
    std::printf("velmora demo: built-in %dx%d scene\n", width, height);
    std::optional<Image> scene;
    Stage("render scene", int64_t{width} * height, [&] { scene.emplace(RenderDemoScene(width, height)); });
    Write(out_path, RoundTrip(*scene, 8));
    // A moderate edit: a little brighter, open shadows, held highlights, more local contrast.
    const DevelopAmounts edit{0.3f, 0.1f, 0.35f, -0.3f, 0.15f, 0.25f, 0.15f};
    std::printf("develop road:\n");
    PrintAmounts(edit);
    Write(DevelopedPath(out_path), DevelopImage(*scene, edit));
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string command = argc > 1 ? argv[1] : "help";
    try {
        if (command == "convert") return Convert(Args(argc, argv, 2));
        if (command == "develop") return Develop(Args(argc, argv, 2));
        if (command == "demo") return Demo(Args(argc, argv, 2));
        if (command == "help" || command == "--help" || command == "-h") {
            std::fputs(kUsage, stdout);
            return argc > 1 ? 0 : 2;
        }
        throw UsageError("unknown command '" + command + "'");
    } catch (const UsageError& e) {
        std::fprintf(stderr, "velmora: %s\n%s", e.what(), kUsage);
        return 2;
    } catch (const IoError& e) {
        std::fprintf(stderr, "velmora: %s\n", e.what());
        return 1;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "velmora: %s\n", e.what());
        return 1;
    }
}

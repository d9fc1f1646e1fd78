// velmora: the library's command-line tool. Runs the editor's roads on image files (or on a
// built-in scene) through the library's exports and reports each stage's time.
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "blur.h"
#include "cli.h"
#include "dehaze.h"
#include "develop.h"
#include "heal.h"
#include "image_io.h"
#include "resize.h"
#include "road.h"
#include "scene.h"
#include "velmora/imaging.h"
#include "working_image.h"

#ifndef VELMORA_VERSION
#define VELMORA_VERSION "unknown"
#endif

namespace {

using namespace velmora::tool;

const char* kFileOptions =
    "picture options (every command that reads and writes pictures):\n"
    "  --out-dir DIR          several inputs: write DIR/NAME.EXT for each (EXT from --format or the input)\n"
    "  --format png|jpg|tiff  output format (default: from OUT's extension; PNG for standard output)\n"
    "  --quality Q            JPEG quality, 1 to 100 (default 92)\n"
    "  --max-megapixels N     refuse larger pictures before decoding them (default 200)\n"
    "  --quiet                no stage report\n"
    "IN may be - for standard input and OUT - for standard output. PNG (1 to 16 bits), JPEG (grey\n"
    "or RGB; CMYK is refused) and TIFF (8/16-bit grey or RGB, with or without alpha) are read; grey,\n"
    "RGB and alpha are kept as the input has them. The EXIF or TIFF orientation is applied to the\n"
    "pixels. Colour profiles are not applied: every file is taken as sRGB. A damaged or truncated\n"
    "file is an error, and an output is written whole or not at all.\n";

// OUT's name with "-developed" before the extension.
std::string DevelopedPath(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    const size_t dot = path.find_last_of('.');
    const bool has_ext = dot != std::string::npos && (slash == std::string::npos || dot > slash);
    return has_ext ? path.substr(0, dot) + "-developed" + path.substr(dot) : path + "-developed";
}

// The round trip: integers to the float working image and back, each stage timed.
Image RoundTrip(const Image& in, int out_bits) {
    const int64_t pixels = int64_t{in.width} * in.height;
    std::optional<FloatImage> work;
    Stage(in.bits == 8 ? "Bgra32 -> Rgba128F" : "Rgba64 -> Rgba128F", pixels, [&] { work.emplace(ToWorking(in)); });
    Image out;
    Stage(out_bits == 8 ? "Rgba128F -> Bgra32" : "Rgba128F -> Rgba64", pixels, [&] { out = FromWorking(*work, out_bits); });
    out.channels = in.channels;
    return out;
}

int Convert(Args& args) {
    std::optional<int> bits;
    if (const std::optional<std::string> b = args.Take("--bits")) {
        if (*b != "8" && *b != "16") throw UsageError("--bits takes 8 or 16, not '" + *b + "'");
        bits = std::stoi(*b);
    }
    return ForEachPicture(args, "convert", [&](const Image& in) { return RoundTrip(in, bits.value_or(in.bits)); });
}

void PrintAmounts(const DevelopAmounts& a) {
    if (Report())
        std::fprintf(Report(),
                     "  exposure %+.2f EV, brightness %+.2f, shadows %+.2f, highlights %+.2f, contrast %+.2f, clarity "
                     "%+.2f, saturation %+.2f, detail %+.2f\n",
                     a.exposure, a.brightness, a.shadows, a.highlights, a.contrast, a.clarity, a.saturation, a.detail);
}

int Develop(Args& args) {
    DevelopAmounts a;
    const struct {
        const char* name;
        float* value;
        float lo, hi;
    } amounts[] = {{"--exposure", &a.exposure, -5, 5},    {"--brightness", &a.brightness, -1, 1},
                   {"--shadows", &a.shadows, -1, 1},      {"--highlights", &a.highlights, -1, 1},
                   {"--contrast", &a.contrast, -1, 1},    {"--clarity", &a.clarity, -1, 1},
                   {"--saturation", &a.saturation, -1, 1}, {"--detail", &a.detail, -1, 1}};
    for (const auto& o : amounts)
        if (const std::optional<float> v = args.TakeNumber(o.name, o.lo, o.hi)) *o.value = *v;
    if (const std::optional<std::string> g = args.Take("--gradient")) a.gradient = ParseGradient(*g);
    if (const std::optional<std::string> t = args.Take("--split-tone")) a.split = ParseSplitTone(*t);
    if (const std::optional<std::string> l = args.Take("--levels")) a.levels = ParseLevels(*l);
    if (const std::optional<std::string> c = args.Take("--curve")) a.curve = ParseCurve(*c);
    if (const std::optional<std::string> t = args.Take("--tone")) a.tone = ParseToneRegions(*t);
    if (const std::optional<std::string> f = args.Take("--hsl")) a.hsl = ReadHslBands(*f);
    if (const std::optional<std::string> f = args.Take("--lut")) a.lut = ReadCube(*f);
    return ForEachPicture(args, "develop", [&](const Image& in) {
        PrintAmounts(a);
        return DevelopImage(in, a);
    });
}

int Blur(Args& args) {
    const std::optional<float> radius = args.TakeNumber("--radius", 0, 500);
    if (!radius) throw UsageError("blur needs --radius R (0 to 500 pixels)");
    if (*radius != static_cast<float>(static_cast<int>(*radius))) throw UsageError("--radius takes whole pixels");
    BlurKind kind = BlurKind::Gaussian;
    if (const std::optional<std::string> k = args.Take("--kind")) {
        if (*k == "box") kind = BlurKind::Box;
        else if (*k != "gaussian") throw UsageError("--kind takes box or gaussian, not '" + *k + "'");
    }
    return ForEachPicture(args, "blur", [&](const Image& in) { return BlurImage(in, static_cast<int>(*radius), kind); });
}

int Dehaze(Args& args) {
    DehazeSettings s;
    if (const std::optional<float> v = args.TakeNumber("--strength", 0, 1)) s.strength = *v;
    if (const std::optional<float> v = args.TakeNumber("--radius", 1, 200)) {
        if (*v != static_cast<float>(static_cast<int>(*v))) throw UsageError("--radius takes whole pixels");
        s.radius = static_cast<int>(*v);
    }
    if (const std::optional<float> v = args.TakeNumber("--t0", 0.01f, 1)) s.t0 = *v;
    return ForEachPicture(args, "dehaze", [&](const Image& in) { return DehazeImage(in, s); });
}

int Heal(Args& args) {
    const std::optional<std::string> rect = args.Take("--rect");
    std::optional<HoleMask> mask;
    if (!rect) {
        if (args.positional.size() < 2) throw UsageError("heal needs IN MASK OUT, or IN OUT with --rect x,y,w,h");
        mask = ReadHoleMask(args.positional[1]);
        args.positional.erase(args.positional.begin() + 1);
    }
    return ForEachPicture(args, "heal", [&](const Image& in) {
        return HealImage(in, rect ? RectangleHole(*rect, in.width, in.height) : *mask);
    });
}

int Resize(Args& args) {
    const std::optional<std::string> size = args.Take("--size");
    if (!size) throw UsageError("resize needs --size WxH (one side 0 keeps the aspect ratio)");
    int w = -1, h = -1;
    char x = 0, rest = 0;
    if (std::sscanf(size->c_str(), "%d%c%d%c", &w, &x, &h, &rest) != 3 || x != 'x' || w < 0 || h < 0 || (w == 0 && h == 0) ||
        w > 65535 || h > 65535)
        throw UsageError("--size takes WxH with whole numbers up to 65535 (one may be 0), not '" + *size + "'");
    return ForEachPicture(args, "resize", [&](const Image& in) { return ResizeImage(in, w, h); });
}

int Demo(Args& args) {
    if (args.TakeFlag("--quiet")) Report() = nullptr;
    args.NoneLeft();
    if (args.positional.size() > 1) throw UsageError("demo takes at most one output path");
    const OutputSpec out = CheckOutput(args.positional.empty() ? "velmora-demo.png" : args.positional[0], std::nullopt, 92);
    if (out.path == "-") throw UsageError("demo writes two files; name one, not -");
    const OutputSpec developed = CheckOutput(DevelopedPath(out.path), std::nullopt, 92);
    const int width = 1920, height = 1080;
    if (Report()) std::fprintf(Report(), "velmora demo: built-in %dx%d scene\n", width, height);
    std::optional<Image> scene;
    Stage("render scene", int64_t{width} * height, [&] { scene.emplace(RenderDemoScene(width, height)); });
    const Image round = RoundTrip(*scene, 8);
    WriteImage(out, round);
    Wrote(out, round, 0);
    // A moderate edit: a little brighter, open shadows, held highlights, more local contrast.
    DevelopAmounts edit;
    edit.exposure = 0.3f, edit.brightness = 0.1f, edit.shadows = 0.35f, edit.highlights = -0.3f;
    edit.contrast = 0.15f, edit.clarity = 0.25f, edit.saturation = 0.15f;
    if (Report()) std::fprintf(Report(), "develop road:\n");
    PrintAmounts(edit);
    const Image edited = DevelopImage(*scene, edit);
    WriteImage(developed, edited);
    Wrote(developed, edited, 0);
    return 0;
}

struct Command {
    const char* name;
    const char* synopsis;  // the line in the overview
    const char* details;   // what `velmora help NAME` adds
    bool takes_pictures;   // shows the shared picture options in its help
    int (*run)(Args&);
};

const Command kCommands[] = {
    {"convert", "convert IN OUT [--bits 8|16]",
     "Reads a picture, converts it to the library's float working image and back, and writes it.\n"
     "The output keeps the input's depth unless --bits says otherwise (JPEG: 8 bits).\n",
     true, Convert},
    {"develop",
     "develop IN OUT [--exposure EV] [--brightness A] [--shadows A] [--highlights A]\n"
     "                 [--contrast A] [--clarity A] [--saturation A] [--detail A] [--gradient SHAPE]\n"
     "                 [--split-tone SHADOW:HIGHLIGHT[:BALANCE[:AMOUNT]]] [--levels BLACK,WHITE[,GAMMA]]\n"
     "                 [--curve X:Y,X:Y,...] [--tone S,D,L,H[,S1,S2,S3]] [--hsl FILE] [--lut FILE.cube]",
     "The editor's develop road: the sRGB file into linear ProPhoto (sRGB table, sRGB-to-ProPhoto D50\n"
     "matrix) with a smoothed base luminance, the develop pass, back to sRGB primaries, encoded, at the\n"
     "input's depth (JPEG output: 8-bit input only). EV from -5 to 5, the other amounts from -1 to 1;\n"
     "all default to 0. The base luminance is an edge-preserving (guided) smoothing built from the\n"
     "library's gray box means, so clarity and shadows do not halo at edges. The library's colour\n"
     "transform takes ProPhoto to sRGB primaries; a hue-preserving clip into the sRGB gamut follows.\n"
     "--detail A (-1 to 1) runs the local Laplacian filter after the pass: positive raises local\n"
     "contrast (texture, clarity without halos), negative smooths it, edges kept.\n"
     "--gradient applies exposure, brightness, contrast, clarity and saturation through a mask\n"
     "(shadows and highlights stay global); positions and radii are fractions of width and height:\n"
     "  linear[:x0,y0,x1,y1]          0 at (x0,y0) rising to 1 at (x1,y1); default 0.5,0.65,0.5,0.15\n"
     "  radial[:cx,cy,rx,ry,feather]  1 inside an ellipse, smooth fall over the feather (0..1)\n"
     "  vignette[:cx,cy,rx,ry,feather]  the outside of that ellipse; default 0.5,0.5,0.4,0.4,0.6\n"
     "--split-tone tints the shadows with one colour and the highlights with another at each pixel's\n"
     "own luminance (colours as RRGGBB sRGB codes, e.g. 2a5d8f:f0b060); BALANCE from -1 (mostly the\n"
     "highlight colour) to 1 (mostly the shadow colour), default 0; AMOUNT 0 to 1, default 0.3.\n"
     "--levels, --curve and --tone shape the tones of the encoded sRGB result, in that order and before\n"
     "--hsl and --lut, on R, G and B alike. Levels: codes at or below BLACK go to 0, at or above WHITE\n"
     "to full scale (8-bit codes at any depth), the rest stretched between and raised to 1/GAMMA (0.1 to\n"
     "10, default 1; above 1 brightens the midtones). Curve: two to sixteen points X:Y (codes, X rising)\n"
     "joined by a smooth curve that never overshoots them, flat beyond the first and last; 0:255,255:0\n"
     "inverts. Tone: the parametric curve, amounts -1 to 1 lifting or lowering the shadows, darks,\n"
     "lights and highlights, the regions split at S1, S2, S3 (default 0.25, 0.5, 0.75).\n"
     "--hsl FILE shifts hue, saturation and luminance by hue band: 24 numbers from -1 to 1, the hue\n"
     "shifts (30 degrees per unit), then saturations, then luminances of red, orange, yellow, green,\n"
     "aqua, blue, purple and magenta. --lut applies a .cube 3D LUT (tetrahedral). Both work on the\n"
     "encoded sRGB result, after the gamut clip; a grey picture they touch is written as RGB.\n",
     true, Develop},
    {"blur", "blur IN OUT --radius R [--kind box|gaussian]",
     "Blurs the picture in linear light: sRGB codes decoded, blurred, encoded again, alpha blurred\n"
     "like the colours. gaussian (the default) is three box means each way, close to a Gaussian of\n"
     "sigma sqrt(R(R+1)); box is one box mean of (2R+1) x (2R+1) pixels. R from 0 to 500. The\n"
     "picture's edge pixels are repeated outward for the pixels the blur reads beyond it.\n",
     true, Blur},
    {"dehaze", "dehaze IN OUT [--strength S] [--radius R] [--t0 T]",
     "Removes haze by the dark-channel prior: the dark channel of the picture (minimum of R, G, B over\n"
     "a square of radius R, default 1.2 % of the shorter side), the airlight from its brightest tenth,\n"
     "the transmission 1 - S x dark / airlight (S from 0 to 1, default 0.95), snapped to the picture's\n"
     "edges by a guided filter, then each pixel recovered as (I - A) / max(t, T) + A (T from 0.01 to\n"
     "1, default 0.1: higher keeps dense haze and noise calmer).\n",
     true, Dehaze},
    {"heal", "heal IN MASK OUT | heal IN OUT --rect x,y,w,h",
     "Fills a hole from the rest of the picture (removes an object, a scratch, a sensor spot). MASK is a\n"
     "picture of the same size whose non-black pixels mark the hole (transparent ones never do);\n"
     "--rect marks a rectangle instead. The hole and a margin around it are shrunk into a pyramid that\n"
     "keeps holes apart from picture; from the coarsest level up, every 4 x 4 patch of the area is\n"
     "matched to a patch of known picture (PatchMatch: propagation and random search), the hole's\n"
     "pixels become the weighted mean of the patches that cover them, and the matches carry on to\n"
     "the next level. Pixels outside the hole are kept exactly; alpha is kept.\n",
     true, Heal},
    {"resize", "resize IN OUT --size WxH",
     "Resizes to W x H pixels (W or H 0: keep the aspect ratio): area averaging when shrinking, the\n"
     "Catmull-Rom cubic when enlarging, alpha resampled like the colours. Written at 8 bits.\n",
     true, Resize},
    {"demo", "demo [OUT] [--quiet]",
     "Renders the built-in test scene, runs the convert road on it and writes OUT (default\n"
     "velmora-demo.png), then the develop road with a moderate edit, writing OUT's name with\n"
     "-developed added (velmora-demo-developed.png).\n",
     false, Demo},
};

const Command* Find(const std::string& name) {
    for (const Command& c : kCommands)
        if (name == c.name) return &c;
    return nullptr;
}

void Overview(FILE* f) {
    std::fprintf(f, "usage: velmora COMMAND [ARGS]   (velmora help COMMAND, or velmora COMMAND --help)\n\ncommands:\n");
    for (const Command& c : kCommands) std::fprintf(f, "  %s\n", c.synopsis);
    std::fprintf(f, "  help [COMMAND]\n  --version\n\n%s", kFileOptions);
}

void Help(const Command& c) {
    std::printf("usage: velmora %s\n\n%s", c.synopsis, c.details);
    if (c.takes_pictures) std::printf("\n%s", kFileOptions);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string command = argc > 1 ? argv[1] : "help";
    const Command* c = Find(command);
    try {
        if (command == "--version" || command == "version") {
            std::printf("velmora %s (Velmora.Imaging.SSE)\n", VELMORA_VERSION);
            return 0;
        }
        if (command == "help" || command == "--help" || command == "-h") {
            if (argc > 2) {
                const Command* topic = Find(argv[2]);
                if (!topic) throw UsageError(std::string("no command '") + argv[2] + "'");
                Help(*topic);
            } else {
                Overview(stdout);
            }
            return argc > 1 ? 0 : 2;
        }
        if (!c) throw UsageError("unknown command '" + command + "'");
        for (int i = 2; i < argc; ++i)
            if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) {
                Help(*c);
                return 0;
            }
        Args args(argc, argv, 2, {"--quiet"});
        return c->run(args);
    } catch (const UsageError& e) {
        std::fprintf(stderr, "velmora: %s\nRun 'velmora %s--help' for usage.\n", e.what(),
                     c ? (std::string(c->name) + " ").c_str() : "");
        return 2;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "velmora: %s\n", e.what());
        return 1;
    }
}

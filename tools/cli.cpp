#include "cli.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "working_image.h"

namespace velmora::tool {

Args::Args(int argc, char** argv, int first, const std::vector<std::string>& flags) {
    for (int i = first; i < argc; ++i) {
        const std::string a = argv[i];
        if (a.rfind("--", 0) != 0 || a.size() == 2) {
            positional.push_back(a);  // "-" (standard input or output) is a positional too
            continue;
        }
        const size_t eq = a.find('=');
        const std::string name = a.substr(0, eq);
        if (std::find(flags.begin(), flags.end(), name) != flags.end()) {
            if (eq != std::string::npos) throw UsageError("option " + name + " takes no value");
            options_.emplace_back(name, "");
        } else if (eq != std::string::npos) {
            options_.emplace_back(name, a.substr(eq + 1));
        } else {
            if (i + 1 >= argc) throw UsageError("option " + a + " needs a value");
            options_.emplace_back(a, argv[++i]);
        }
    }
}

std::optional<std::string> Args::Take(const std::string& name) {
    std::optional<std::string> value;
    for (auto it = options_.begin(); it != options_.end();)
        if (it->first == name) {
            value = it->second;
            it = options_.erase(it);
        } else {
            ++it;
        }
    return value;
}

bool Args::TakeFlag(const std::string& name) { return Take(name).has_value(); }

std::optional<float> Args::TakeNumber(const std::string& name, float lo, float hi) {
    const std::optional<std::string> text = Take(name);
    if (!text) return std::nullopt;
    char* end = nullptr;
    const float v = std::strtof(text->c_str(), &end);
    if (text->empty() || *end != '\0' || !std::isfinite(v) || v < lo || v > hi) {
        char range[64];
        std::snprintf(range, sizeof range, "a number from %g to %g", lo, hi);
        throw UsageError(name + " takes " + range + ", not '" + *text + "'");
    }
    return v;
}

std::vector<std::string> Split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    for (size_t pos = 0; !text.empty() && pos <= text.size();) {
        const size_t end = std::min(text.find(separator, pos), text.size());
        parts.push_back(text.substr(pos, end - pos));
        pos = end + 1;
    }
    return parts;
}

std::vector<float> ParseNumbers(const std::string& text, char separator, const std::string& option) {
    std::vector<float> numbers;
    for (const std::string& piece : Split(text, separator)) {
        char* end = nullptr;
        const float v = std::strtof(piece.c_str(), &end);
        if (piece.empty() || *end != '\0' || !std::isfinite(v)) throw UsageError(option + ": '" + piece + "' is not a number");
        numbers.push_back(v);
    }
    return numbers;
}

void Args::NoneLeft() const {
    if (!options_.empty()) throw UsageError("unknown option " + options_.front().first);
}

void Wrote(const OutputSpec& out, const Image& image, double ms) {
    if (Report())
        std::fprintf(Report(), "  %-34s %9.2f ms   -> %s (%dx%d, %d-bit, %d channel%s)\n", "encode and write", ms,
                     out.path == "-" ? "standard output" : out.path.c_str(), image.width, image.height, image.bits,
                     image.channels, image.channels == 1 ? "" : "s");
}

namespace {

std::string Stem(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    const size_t dot = name.find_last_of('.');
    return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

std::string ExtensionOf(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    const size_t dot = path.find_last_of('.');
    return dot == std::string::npos || (slash != std::string::npos && dot < slash) ? "" : path.substr(dot + 1);
}

}  // namespace

int ForEachPicture(Args& args, const char* command, const std::function<Image(const Image&)>& process) {
    const std::optional<std::string> out_dir = args.Take("--out-dir");
    const std::optional<std::string> format = args.Take("--format");
    const int quality = static_cast<int>(args.TakeNumber("--quality", 1, 100).value_or(92));
    ReadOptions read;
    if (const std::optional<float> mp = args.TakeNumber("--max-megapixels", 1, 1e6f))
        read.max_pixels = static_cast<int64_t>(*mp * 1e6);
    if (args.TakeFlag("--quiet")) Report() = nullptr;
    args.NoneLeft();

    // Every output is named and checked before the first input is decoded.
    std::vector<std::pair<std::string, OutputSpec>> jobs;
    const std::string name = command;
    if (out_dir) {
        if (args.positional.empty()) throw UsageError(name + " needs at least one input with --out-dir");
        for (const std::string& in : args.positional) {
            if (in == "-") throw UsageError("standard input cannot be used with --out-dir");
            const std::string ext = format ? *format : ExtensionOf(in);
            jobs.emplace_back(in, CheckOutput(*out_dir + "/" + Stem(in) + "." + ext, format, quality));
        }
    } else {
        if (args.positional.size() != 2) throw UsageError(name + " needs IN and OUT (or inputs and --out-dir DIR)");
        jobs.emplace_back(args.positional[0], CheckOutput(args.positional[1], format, quality));
    }
    for (const auto& [in_path, out] : jobs)
        if (out.path == "-" && Report() == stdout) Report() = stderr;  // the picture owns standard output

    for (const auto& [in_path, out] : jobs) {
        const auto t0 = std::chrono::steady_clock::now();
        Image in = ReadImage(in_path, read);
        const double read_ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
        if (Report())
            std::fprintf(Report(), "%s: %dx%d, %d-bit, %d channel%s\n  %-34s %9.2f ms\n",
                         in_path == "-" ? "standard input" : in_path.c_str(), in.width, in.height, in.bits,
                         in.channels, in.channels == 1 ? "" : "s", "read and decode", read_ms);
        Image result = process(in);
        result.channels = result.tinted && in.channels < 3 ? in.channels + 2 : in.channels;
        if (out.format == FileFormat::Jpeg && result.bits != 8)
            throw UsageError("JPEG output is 8-bit only; write a PNG or TIFF for 16-bit pictures (or --bits 8)");
        const auto t1 = std::chrono::steady_clock::now();
        WriteImage(out, result);
        Wrote(out, result, std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t1).count());
    }
    return 0;
}

}  // namespace velmora::tool

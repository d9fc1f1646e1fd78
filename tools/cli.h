// The velmora command line: options in the usual forms (--name value, --name=value, the last of
// a repeated option wins, flags without values), and the file road every picture command shares
// (IN OUT, or several inputs with --out-dir; output checked before anything is decoded).
#pragma once

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "image_io.h"

namespace velmora::tool {

// A mistake on the command line: reported as one line plus a pointer to the command's help.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class Args {
public:
    // `flags` are the options that take no value (--quiet); every other --name takes one.
    Args(int argc, char** argv, int first, const std::vector<std::string>& flags);

    std::optional<std::string> Take(const std::string& name);  // the last value given, all removed
    bool TakeFlag(const std::string& name);
    // A finite number inside [lo, hi], or nothing when the option is absent.
    std::optional<float> TakeNumber(const std::string& name, float lo, float hi);
    // Refuses options nobody took.
    void NoneLeft() const;

    std::vector<std::string> positional;

private:
    std::vector<std::pair<std::string, std::string>> options_;
};

// The pieces of `text` between separators, and the same read as finite numbers ("0.5,1,0.2"); an
// empty text gives none. Throws UsageError naming `option` for a piece that is not a number.
std::vector<std::string> Split(const std::string& text, char separator);
std::vector<float> ParseNumbers(const std::string& text, char separator, const std::string& option);

// Options every picture command takes: --out-dir, --format, --quality, --max-megapixels, --quiet.
// Runs `process` on each input and writes the result; a failure on one input stops the run
// with a non-zero exit, leaving earlier outputs written and no partial file.
int ForEachPicture(Args& args, const char* command, const std::function<Image(const Image&)>& process);

// Reports the output written (to the report stream).
void Wrote(const OutputSpec& out, const Image& image, double ms);

}  // namespace velmora::tool

// The command line of qs: subcommand, device, sweep settings, simulator scene.
#pragma once

#include <string>
#include <vector>

namespace qstool {

enum class Command { kNone, kHelp, kList, kInfo, kSweep };
enum class OutputFormat { kCsv, kPower };

struct SimTone {
    double freqHz;
    double levelDbm;
};

// What `qs sweep` asks of the analyser and where the results go. Zero RBW
// means "choose from the span", zero VBW "the same as RBW".
struct SweepOptions {
    double startHz = -1.0;
    double stopHz = -1.0;
    double rbwHz = 0.0;
    double vbwHz = 0.0;
    double refDbm = -20.0;
    double sweepTimeS = 0.001;
    unsigned shape = 0;     // QS_RBW_SHAPE_...
    unsigned window = 0;    // QS_WINDOW_...
    unsigned detector = 0;  // QS_DETECTOR_...
    int count = 1;
    bool continuous = false;
    std::string outputPath;  // empty: standard output
    OutputFormat format = OutputFormat::kCsv;
    std::string pngPath;     // empty: no picture
    int pngWidth = 1200;
    int pngHeight = 600;
};

struct Options {
    Command command = Command::kNone;
    bool simulate = false;
    std::vector<SimTone> simTones;  // empty: the default scene
    int serial = -1;                // -1: the first analyser found
    SweepOptions sweep;
};

// Fills options from the arguments after the program name. On a bad
// argument returns false and puts into error one line that names it.
// --simulate and --sim-tone are taken before or after the subcommand.
bool ParseCommandLine(const std::vector<std::string>& args, Options* options, std::string* error);

// The RBW used when none is given: about a thousand RBWs across the span,
// kept inside what the analyser can do.
double DefaultRbw(double spanHz);

// The usage text, one subcommand a paragraph.
const char* UsageText();

}  // namespace qstool

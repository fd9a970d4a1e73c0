#include "core/options.h"

#include <algorithm>
#include <cstdio>

#include "core/si_units.h"
#include "qs_api.h"

namespace qstool {

namespace {

constexpr int kMaxPngSide = 8192;
constexpr int kMinPngWidth = 320;
constexpr int kMinPngHeight = 200;

struct Choice {
    const char* name;
    unsigned value;
};

constexpr Choice kShapes[] = {{"native", QS_RBW_SHAPE_NATIVE},
                              {"gaussian", QS_RBW_SHAPE_GAUSSIAN},
                              {"lowpass", QS_RBW_SHAPE_LOWPASS}};
constexpr Choice kWindows[] = {{"nuttall", QS_WINDOW_NUTTALL},
                               {"blackman", QS_WINDOW_BLACKMAN},
                               {"hamming", QS_WINDOW_HAMMING},
                               {"flattop", QS_WINDOW_FLAT_TOP}};
constexpr Choice kDetectors[] = {{"minmax", QS_DETECTOR_MIN_MAX},
                                 {"average", QS_DETECTOR_AVERAGE}};
constexpr Choice kFormats[] = {{"csv", static_cast<unsigned>(OutputFormat::kCsv)},
                               {"power", static_cast<unsigned>(OutputFormat::kPower)}};

template <size_t N>
bool PickChoice(const Choice (&choices)[N], const std::string& text, unsigned* value) {
    for (const auto& c : choices)
        if (text == c.name) {
            *value = c.value;
            return true;
        }
    return false;
}

template <size_t N>
std::string ChoiceList(const Choice (&choices)[N]) {
    std::string list;
    for (const auto& c : choices) list += std::string(list.empty() ? "" : ", ") + c.name;
    return list;
}

// Walks the arguments; an option's value is "--name=value", "-Xvalue" or
// the next argument.
class ArgReader {
public:
    ArgReader(const std::vector<std::string>& args, std::string* error)
        : m_args(args), m_error(error) {}

    bool Next() {
        if (++m_index >= m_args.size()) return false;
        const std::string& arg = m_args[m_index];
        m_inlineValue.clear();
        m_hasInline = false;
        m_name = arg;
        if (arg.rfind("--", 0) == 0) {
            const size_t eq = arg.find('=');
            if (eq != std::string::npos) {
                m_name = arg.substr(0, eq);
                m_inlineValue = arg.substr(eq + 1);
                m_hasInline = true;
            }
        } else if (arg.size() > 2 && arg[0] == '-' && (arg[1] == 'd' || arg[1] == 'N' ||
                                                       arg[1] == 'o')) {
            m_name = arg.substr(0, 2);
            m_inlineValue = arg.substr(2);
            m_hasInline = true;
        }
        return true;
    }

    const std::string& Name() const { return m_name; }
    bool HasInlineValue() const { return m_hasInline; }

    bool Value(std::string* value) {
        if (m_hasInline) {
            *value = m_inlineValue;
            return true;
        }
        if (m_index + 1 >= m_args.size()) {
            *m_error = m_name + " needs a value";
            return false;
        }
        *value = m_args[++m_index];
        return true;
    }

    bool Fail(const std::string& message) {
        *m_error = message;
        return false;
    }

private:
    const std::vector<std::string>& m_args;
    std::string* m_error;
    size_t m_index = static_cast<size_t>(-1);
    std::string m_name;
    std::string m_inlineValue;
    bool m_hasInline = false;
};

bool ReadFrequency(ArgReader& reader, double* hz) {
    std::string text;
    if (!reader.Value(&text)) return false;
    if (!ParseSi(text, hz) || *hz < 0.0)
        return reader.Fail(reader.Name() + ": '" + text +
                           "' is not a frequency (examples: 2.4G, 100k, 1.5e9)");
    return true;
}

bool ReadBandwidth(ArgReader& reader, double* hz) {
    std::string text;
    if (!reader.Value(&text)) return false;
    if (!ParseSi(text, hz) || *hz <= 0.0)
        return reader.Fail(reader.Name() + ": '" + text +
                           "' is not a bandwidth (examples: 100k, 1M, 300)");
    return true;
}

template <size_t N>
bool ReadChoice(ArgReader& reader, const Choice (&choices)[N], unsigned* value) {
    std::string text;
    if (!reader.Value(&text)) return false;
    if (!PickChoice(choices, text, value))
        return reader.Fail(reader.Name() + ": '" + text + "' is not one of " +
                           ChoiceList(choices));
    return true;
}

bool ReadSimTone(ArgReader& reader, std::vector<SimTone>* tones) {
    std::string text;
    if (!reader.Value(&text)) return false;
    const size_t colon = text.find(':');
    SimTone tone{};
    if (colon == std::string::npos || !ParseSi(text.substr(0, colon), &tone.freqHz) ||
        tone.freqHz <= 0.0 || !ParseNumber(text.substr(colon + 1), &tone.levelDbm))
        return reader.Fail(reader.Name() + ": '" + text +
                           "' is not FREQUENCY:DBM (example: 1.5G:-40)");
    tones->push_back(tone);
    return true;
}

bool ReadPngSize(ArgReader& reader, int* width, int* height) {
    std::string text;
    if (!reader.Value(&text)) return false;
    const size_t x = text.find('x');
    int w = 0, h = 0;
    if (x == std::string::npos || !ParseCount(text.substr(0, x), &w) ||
        !ParseCount(text.substr(x + 1), &h) || w < kMinPngWidth || h < kMinPngHeight ||
        w > kMaxPngSide || h > kMaxPngSide)
        return reader.Fail(reader.Name() + ": '" + text + "' is not WIDTHxHEIGHT from " +
                           std::to_string(kMinPngWidth) + "x" + std::to_string(kMinPngHeight) +
                           " to " + std::to_string(kMaxPngSide) + "x" +
                           std::to_string(kMaxPngSide));
    *width = w;
    *height = h;
    return true;
}

const char* CommandName(Command command) {
    switch (command) {
        case Command::kList: return "list";
        case Command::kInfo: return "info";
        case Command::kSweep: return "sweep";
        default: return "";
    }
}

// The options of `qs sweep` beyond -d.
bool ReadSweepOption(ArgReader& reader, SweepOptions* sweep, bool* known) {
    const std::string& name = reader.Name();
    *known = true;
    std::string text;
    if (name == "--start") return ReadFrequency(reader, &sweep->startHz);
    if (name == "--stop") return ReadFrequency(reader, &sweep->stopHz);
    if (name == "--rbw") return ReadBandwidth(reader, &sweep->rbwHz);
    if (name == "--vbw") return ReadBandwidth(reader, &sweep->vbwHz);
    if (name == "--shape") return ReadChoice(reader, kShapes, &sweep->shape);
    if (name == "--window") return ReadChoice(reader, kWindows, &sweep->window);
    if (name == "--detector") return ReadChoice(reader, kDetectors, &sweep->detector);
    if (name == "--png-size") return ReadPngSize(reader, &sweep->pngWidth, &sweep->pngHeight);
    if (name == "--format") {
        unsigned format = 0;
        if (!ReadChoice(reader, kFormats, &format)) return false;
        sweep->format = static_cast<OutputFormat>(format);
        return true;
    }
    if (name == "--ref") {
        if (!reader.Value(&text)) return false;
        if (!ParseNumber(text, &sweep->refDbm))
            return reader.Fail(name + ": '" + text + "' is not a level in dBm (example: -20)");
        return true;
    }
    if (name == "--sweep-time") {
        if (!reader.Value(&text)) return false;
        if (!ParseNumber(text, &sweep->sweepTimeS) || sweep->sweepTimeS <= 0.0)
            return reader.Fail(name + ": '" + text + "' is not a time in seconds (example: 0.01)");
        return true;
    }
    if (name == "-N" || name == "--count") {
        if (!reader.Value(&text)) return false;
        if (!ParseCount(text, &sweep->count) || sweep->count < 1)
            return reader.Fail(name + ": '" + text + "' is not a number of sweeps (1 or more)");
        return true;
    }
    if (name == "--continuous") {
        if (reader.HasInlineValue()) return reader.Fail(name + " takes no value");
        sweep->continuous = true;
        return true;
    }
    if (name == "-o" || name == "--output" || name == "--png") {
        if (!reader.Value(&text)) return false;
        if (text.empty()) return reader.Fail(name + " needs a file name");
        (name == "--png" ? sweep->pngPath : sweep->outputPath) = text;
        return true;
    }
    *known = false;
    return false;
}

bool CheckSweep(const SweepOptions& sweep, bool countGiven, std::string* error) {
    if (sweep.startHz < 0.0 || sweep.stopHz < 0.0) {
        *error = "sweep needs --start and --stop";
        return false;
    }
    if (sweep.stopHz <= sweep.startHz) {
        *error = "--stop (" + FormatHz(sweep.stopHz) + ") must be above --start (" +
                 FormatHz(sweep.startHz) + ")";
        return false;
    }
    if (sweep.continuous && countGiven) {
        *error = "-N and --continuous exclude each other";
        return false;
    }
    return true;
}

}  // namespace

bool ParseCommandLine(const std::vector<std::string>& args, Options* options, std::string* error) {
    *options = Options{};
    ArgReader reader(args, error);
    bool countGiven = false;
    while (reader.Next()) {
        const std::string& name = reader.Name();
        if (name == "--simulate") {
            if (reader.HasInlineValue()) return reader.Fail(name + " takes no value");
            options->simulate = true;
            continue;
        }
        if (name == "--sim-tone") {
            if (!ReadSimTone(reader, &options->simTones)) return false;
            continue;
        }
        if (name == "-h" || name == "--help") {
            options->command = Command::kHelp;
            return true;
        }
        if (options->command == Command::kNone) {
            if (name == "list") options->command = Command::kList;
            else if (name == "info") options->command = Command::kInfo;
            else if (name == "sweep") options->command = Command::kSweep;
            else if (name == "help") options->command = Command::kHelp;
            else if (!name.empty() && name[0] == '-')
                return reader.Fail("unknown option '" + name + "' before the subcommand");
            else
                return reader.Fail("unknown subcommand '" + name + "'");
            if (options->command == Command::kHelp) return true;
            continue;
        }
        const std::string where = std::string(" for qs ") + CommandName(options->command);
        if ((name == "-d" || name == "--device") && options->command != Command::kList) {
            std::string text;
            if (!reader.Value(&text)) return false;
            if (!ParseCount(text, &options->serial))
                return reader.Fail(name + ": '" + text + "' is not a serial number");
            continue;
        }
        if (options->command == Command::kSweep) {
            bool known = false;
            if (name == "-N" || name == "--count") countGiven = true;
            if (ReadSweepOption(reader, &options->sweep, &known)) continue;
            if (known) return false;
        }
        if (!name.empty() && name[0] == '-')
            return reader.Fail("unknown option '" + name + "'" + where);
        return reader.Fail("unexpected argument '" + name + "'" + where);
    }
    if (options->command == Command::kNone) return reader.Fail("no subcommand given");
    if (options->command == Command::kSweep &&
        !CheckSweep(options->sweep, countGiven, error))
        return false;
    return true;
}

double DefaultRbw(double spanHz) {
    return std::clamp(spanHz / 1000.0, 10.0, QS_MAX_RBW);
}

const char* UsageText() {
    return "usage: qs [--simulate [--sim-tone F:DBM]...] SUBCOMMAND [OPTIONS]\n"
           "\n"
           "  qs list\n"
           "      the attached analysers: serial number, type, revision\n"
           "  qs info [-d SERIAL]\n"
           "      identity, firmware, temperature, USB voltage and current, time base\n"
           "  qs sweep [-d SERIAL] --start F --stop F [--rbw HZ] [--vbw HZ] [--ref DBM]\n"
           "           [--shape native|gaussian|lowpass]\n"
           "           [--window nuttall|blackman|hamming|flattop]\n"
           "           [--detector minmax|average] [--sweep-time S] [-N COUNT | --continuous]\n"
           "           [-o FILE] [--format csv|power] [--png FILE] [--png-size WxH]\n"
           "      a swept spectrum; frequencies take k, M and G (2.4G, 100k); RBW defaults to\n"
           "      span/1000, VBW to RBW, the level reference to -20 dBm, the picture to 1200x600;\n"
           "      --continuous sweeps until Ctrl-C, which finishes and writes the sweep in\n"
           "      progress (a second Ctrl-C aborts)\n"
           "\n"
           "Without -d, the first analyser found is used. --simulate runs on the simulated\n"
           "analysers (a Maple, serial 12345678, with a few tones) instead of USB; --sim-tone\n"
           "sets the tones instead (1.5G:-40 is 1.5 GHz at -40 dBm).\n";
}

}  // namespace qstool

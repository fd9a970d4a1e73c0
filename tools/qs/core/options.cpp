#include "core/options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <cctype>
#include <cstdio>
#include <map>
#include <sstream>

#include "core/si_units.h"
#include "qs_api.h"

namespace qstool {

namespace {

constexpr int kMaxPngSide = 8192;
constexpr int kMinPngWidth = 320;
constexpr int kMinPngHeight = 200;
constexpr double kIqBaseRate = QS_MAX_IQ_SAMPLE_RATE;

std::string Number(double v) {
    char text[40];
    std::snprintf(text, sizeof text, "%.17g", v);
    return text;
}

// A frequency or bandwidth typed as people do (2.4G, 100k, 300), turned into
// a plain number for CLI11, and held to a range that the message names.
CLI::Validator Hz(double low, double high, const char* examples = "2.4G, 100k, 1.5e9") {
    return CLI::Validator(
        [=](std::string& text) -> std::string {
            double hz = 0.0;
            if (!ParseSi(text, &hz))
                return "'" + text + "' is not a frequency (examples: " + examples + ")";
            if (hz < low || hz > high)
                return FormatHz(hz, 10) + " is outside " + FormatHz(low) + " to " + FormatHz(high);
            text = Number(hz);
            return {};
        },
        "");
}

CLI::Validator Level(double low, double high) {
    return CLI::Validator(
        [=](std::string& text) -> std::string {
            double v = 0.0;
            if (!ParseNumber(text, &v)) return "'" + text + "' is not a number";
            if (v < low || v > high)
                return FormatExact(v) + " is outside " + FormatExact(low) + " to " + FormatExact(high);
            text = Number(v);
            return {};
        },
        "");
}

CLI::Validator Duration(double low = 0.0) {
    return CLI::Validator(
        [=](std::string& text) -> std::string {
            double s = 0.0;
            if (!ParseDuration(text, &s))
                return "'" + text + "' is not a duration (examples: 20s, 1.5m, 2h, 500ms)";
            if (s <= low) return "the duration must be above " + FormatExact(low) + " s";
            text = Number(s);
            return {};
        },
        "");
}

// Names to values, ignoring case; a wrong name is refused with the list.
template <typename T>
CLI::Validator Names(const std::map<std::string, T>& names) {
    std::string list;
    for (const auto& n : names) list += (list.empty() ? "" : ", ") + n.first;
    return CLI::Validator(
        [names, list](std::string& text) -> std::string {
            std::string lower = text;
            std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
            const auto found = names.find(lower);
            if (found == names.end()) return "'" + text + "' is not one of " + list;
            text = std::to_string(static_cast<long long>(found->second));
            return {};
        },
        "");
}

void AddDevice(CLI::App* sub, Options* o) {
    sub->add_option("-d,--device", o->serial, "the analyser's serial number (default: the first found)")
        ->type_name("SERIAL")
        ->check(CLI::NonNegativeNumber.description(""));
}

CLI::Option* AddRef(CLI::App* sub, double* ref) {
    return sub->add_option("--ref", *ref, "reference level, dBm")
        ->type_name("NUMBER")->transform(Level(QS_MIN_REFERENCE, QS_MAX_REFERENCE))
        ->capture_default_str();
}

void AddSweep(CLI::App& app, Options* o) {
    SweepOptions& s = o->sweep;
    CLI::App* sub = app.add_subcommand("sweep", "a swept spectrum to CSV, the power-sweep row layout, or a picture");
    sub->callback([o] { o->command = Command::kSweep; });
    AddDevice(sub, o);
    sub->add_option("--start", s.startHz, "lowest frequency")->required()->type_name("HZ")->transform(Hz(QS_MIN_FREQ, QS_MAX_FREQ));
    sub->add_option("--stop", s.stopHz, "highest frequency")->required()->type_name("HZ")->transform(Hz(QS_MIN_FREQ, QS_MAX_FREQ));
    sub->add_option("--rbw", s.rbwHz, "resolution bandwidth (default: span/1000)")
        ->type_name("HZ")->transform(Hz(QS_MIN_RBW, QS_MAX_RBW, "100k, 1M, 300"));
    sub->add_option("--vbw", s.vbwHz, "video bandwidth (default: the RBW)")
        ->type_name("HZ")->transform(Hz(QS_MIN_RBW, QS_MAX_RBW, "100k, 1M, 300"));
    AddRef(sub, &s.refDbm);
    sub->add_option("--atten", s.attenDb, "input attenuation, dB (0, 10, 20, 30; default: from --ref)")
        ->type_name("NUMBER")->transform(Level(0.0, QS_MAX_ATTENUATION));
    sub->add_option("--gain", s.gain, "gain step 0 to 3 (default: from --ref)")->type_name("0-3")->check(CLI::Range(0, 3).description(""));
    sub->add_option("--ppm", s.ppm, "time-base correction added to the device's own, ppm")
        ->type_name("NUMBER")->transform(Level(-100.0, 100.0));
    sub->add_option("--shape", s.shape, "RBW shape: native, gaussian or lowpass")
        ->type_name("NAME")->transform(Names<unsigned>({{"native", QS_RBW_SHAPE_NATIVE},
                                     {"gaussian", QS_RBW_SHAPE_GAUSSIAN},
                                     {"lowpass", QS_RBW_SHAPE_LOWPASS}}));
    sub->add_option("--window", s.window, "window of the native shape: nuttall, blackman, hamming or flattop")
        ->type_name("NAME")->transform(Names<unsigned>({{"nuttall", QS_WINDOW_NUTTALL},
                                     {"blackman", QS_WINDOW_BLACKMAN},
                                     {"hamming", QS_WINDOW_HAMMING},
                                     {"flattop", QS_WINDOW_FLAT_TOP}}));
    sub->add_option("--detector", s.detector, "minmax or average")
        ->type_name("NAME")->transform(Names<unsigned>({{"minmax", QS_DETECTOR_MIN_MAX}, {"average", QS_DETECTOR_AVERAGE}}));
    sub->add_option("--sweep-time", s.sweepTimeS, "time spent per sweep, s")
        ->type_name("NUMBER")->transform(Level(QS_MIN_SWEEP_TIME, QS_MAX_SWEEP_TIME))
        ->capture_default_str();
    CLI::Option* count = sub->add_option("-N,--count", s.count, "records to write (default 1)")->type_name("N")->check(CLI::PositiveNumber.description(""));
    CLI::Option* continuous = sub->add_flag("--continuous", s.continuous, "sweep until Ctrl-C or --exit-after");
    count->excludes(continuous);
    CLI::Option* interval = sub->add_option("--interval", s.intervalS,
                                            "seconds each record integrates (power format: 1s when sweeping more than once)")
                                ->type_name("DURATION")->transform(Duration());
    sub->add_option("--exit-after", s.exitAfterS, "stop after this long (20s, 5m, 1h)")->type_name("DURATION")->transform(Duration());
    sub->add_option("--average", s.average, "sweeps averaged into each record, in power")
        ->type_name("N")->check(CLI::Range(1, 100000).description(""))
        ->excludes(interval);
    sub->add_option("-o,--output", s.outputPath, "output file, - for standard output (default)");
    sub->add_option("--format", s.format, "csv (a row a point) or power (the power-sweep row layout)")
        ->type_name("NAME")->transform(Names<OutputFormat>({{"csv", OutputFormat::kCsv}, {"power", OutputFormat::kPower}}));
    sub->add_option("--png", s.pngPath, "a picture of the last record");
    sub->add_option_function<std::string>(
           "--png-size",
           [&s](const std::string& text) {
               int w = 0, h = 0;
               const size_t x = text.find('x');
               if (x == std::string::npos || !ParseCount(text.substr(0, x), &w) || !ParseCount(text.substr(x + 1), &h) ||
                   w < kMinPngWidth || h < kMinPngHeight || w > kMaxPngSide || h > kMaxPngSide)
                   throw CLI::ValidationError("--png-size", "'" + text + "' is not WIDTHxHEIGHT from " +
                                                                std::to_string(kMinPngWidth) + "x" + std::to_string(kMinPngHeight) +
                                                                " to " + std::to_string(kMaxPngSide) + "x" +
                                                                std::to_string(kMaxPngSide));
               s.pngWidth = w;
               s.pngHeight = h;
           },
           "picture size (default 1200x600)")
        ->type_name("WxH");
}

void AddIq(CLI::App& app, Options* o) {
    IqOptions& q = o->iq;
    CLI::App* sub = app.add_subcommand("iq", "an I/Q recording in SigMF (BASE.sigmf-data, BASE.sigmf-meta)");
    sub->callback([o] { o->command = Command::kIq; });
    AddDevice(sub, o);
    sub->add_option("--center", q.centerHz, "centre frequency")->required()->type_name("HZ")->transform(Hz(QS_MIN_FREQ, QS_MAX_FREQ));
    sub->add_option("--rate", q.rateHz, "sample rate: 40M, 20M, 10M, ... 40M/8192")
        ->required()
        ->type_name("HZ")
        ->transform(CLI::Validator(
            [](std::string& text) -> std::string {
                double hz = 0.0;
                if (!ParseSi(text, &hz) || hz <= 0.0) return "'" + text + "' is not a sample rate (examples: 10M, 625k)";
                const double k = std::log2(kIqBaseRate / hz);
                if (k < 0.0 || k > std::log2(QS_MAX_DECIMATION) || std::fabs(k - std::round(k)) > 1e-9)
                    return FormatHz(hz, 10) + " is not 40 MHz over a power of two from 1 to 8192";
                text = Number(hz);
                return {};
            },
            ""));
    sub->add_option("--bandwidth", q.bandwidthHz, "filter bandwidth (default: 80 % of the rate)")
        ->type_name("HZ")->transform(Hz(1.0, 40e6, "8M, 200k"));
    AddRef(sub, &q.refDbm);
    CLI::Option* duration = sub->add_option("--duration", q.durationS, "how long to record (2s, 1m)")->type_name("DURATION")->transform(Duration());
    sub->add_option("--samples", q.samples, "how many samples to record")->type_name("N")->check(CLI::PositiveNumber.description(""))->excludes(duration);
    sub->add_option("--type", q.type, "cf32 (cf32_le) or ci16 (ci16_le)")
        ->type_name("NAME")->transform(Names<IqType>({{"cf32", IqType::kCf32}, {"ci16", IqType::kCi16}}));
    sub->add_option("--port1", q.port1, "port 1: trigger (an input whose edges are marked in the recording), ext-ref or none")
        ->type_name("NAME")
        ->transform(Names<unsigned>({{"trigger", QS_PORT_TRIGGER_IN}, {"ext-ref", QS_PORT1_EXT_REF}, {"none", 0}}));
    sub->add_option("-o,--output", q.base, "BASE of the two SigMF files")->required();
}

void AddAudio(CLI::App& app, Options* o) {
    AudioOptions& a = o->audio;
    CLI::App* sub = app.add_subcommand("audio", "demodulated audio to a WAV file (16-bit, 32 kHz, mono)");
    sub->callback([o] { o->command = Command::kAudio; });
    AddDevice(sub, o);
    sub->add_option("--freq", a.freqHz, "tuned frequency")->required()->type_name("HZ")->transform(Hz(QS_MIN_FREQ, QS_MAX_FREQ));
    sub->add_option("--demod", a.demod, "am, fm, usb, lsb or cw")
        ->type_name("NAME")->transform(Names<int>({{"am", QS_DEMOD_AM}, {"fm", QS_DEMOD_FM}, {"usb", QS_DEMOD_USB},
                                {"lsb", QS_DEMOD_LSB}, {"cw", QS_DEMOD_CW}}));
    sub->add_option("--if-bw", a.ifBandwidthHz, "IF bandwidth (default: the demodulation's own)")
        ->type_name("HZ")->transform(Hz(100.0, 500e3, "200k, 3k"));
    sub->add_option("--duration", a.durationS, "how long (default: until Ctrl-C)")->type_name("DURATION")->transform(Duration());
    sub->add_option("-o,--output", a.outputPath, "WAV file, or - for standard output")->required();
}

void AddRealtime(CLI::App& app, Options* o) {
    RealtimeOptions& r = o->realtime;
    CLI::App* sub = app.add_subcommand("realtime", "real-time frames: persistence picture and waterfall");
    sub->callback([o] { o->command = Command::kRealtime; });
    AddDevice(sub, o);
    sub->add_option("--center", r.centerHz, "centre frequency")->required()->type_name("HZ")->transform(Hz(QS_MIN_FREQ, QS_MAX_FREQ));
    sub->add_option("--span", r.spanHz, "span, up to 20 MHz")->type_name("HZ")->transform(Hz(100e3, 20e6, "20M, 5M"))->capture_default_str();
    sub->add_option("--rbw", r.rbwHz, "resolution bandwidth (default: from the span)")
        ->type_name("HZ")->transform(Hz(QS_MIN_RBW, QS_MAX_RBW, "100k, 30k"));
    AddRef(sub, &r.refDbm);
    sub->add_option("--frames", r.frames, "frames to take")->type_name("N")->check(CLI::Range(1, 100000).description(""))->capture_default_str();
    sub->add_option("--png", r.pngPath, "the persistence picture with the min and max traces")->required();
    sub->add_option("--waterfall", r.waterfallPath, "a waterfall picture, one row a frame");
}

void AddTg(CLI::App& app, Options* o) {
    TgOptions& t = o->tg;
    CLI::App* sub = app.add_subcommand("tg", "a network sweep with the tracking generator: S21 in dB");
    sub->callback([o] { o->command = Command::kTg; });
    AddDevice(sub, o);
    sub->add_option("--start", t.startHz, "lowest frequency")->required()->type_name("HZ")->transform(Hz(QS_MIN_FREQ, QS_MAX_FREQ));
    sub->add_option("--stop", t.stopHz, "highest frequency")->required()->type_name("HZ")->transform(Hz(QS_MIN_FREQ, QS_MAX_FREQ));
    sub->add_option("--points", t.points, "points of the sweep (the generator steps to the nearest round size)")
        ->type_name("N")->check(CLI::Range(QS_MIN_TG_SWEEP_SIZE, QS_MAX_TG_SWEEP_SIZE).description(""))->capture_default_str();
    sub->add_flag("--hdr", t.highRange, "a second pass 20 dB hotter for the deep parts of the response");
    sub->add_flag("--thru", t.thru, "measure a through (connected in place of the device under test) and keep it");
    sub->add_option("--thru-file", t.thruPath, "where the through is kept (default: ~/.corvane/tg_thru.csv)")->type_name("PATH");
    sub->add_option("-o,--output", t.outputPath, "CSV of frequency and S21, or - for standard output");
    sub->add_option("--png", t.pngPath, "the response as a picture");
}

}  // namespace

double SweepOptions::RecordInterval() const {
    if (intervalS > 0.0) return intervalS;
    const bool several = count > 1 || Unbounded();
    return format == OutputFormat::kPower && several && average == 1 ? 1.0 : 0.0;
}

int IqOptions::Decimation() const {
    return static_cast<int>(std::lround(kIqBaseRate / rateHz));
}

ParseOutcome ParseCommandLine(const std::vector<std::string>& args, Options* options, const std::string& version) {
    *options = Options{};
    CLI::App app("qs: the analysers from a terminal", "qs");
    app.set_version_flag("--version", version);
    app.require_subcommand(1);
    app.fallthrough();
    app.add_flag("--simulate", options->simulate,
                 "run on simulated analysers (a Maple, serial 12345678, with a few tones) instead of USB");
    app.add_option_function<std::string>(
           "--sim-tone",
           [options](const std::string& text) {
               const size_t colon = text.find(':');
               SimTone tone{};
               if (colon == std::string::npos || !ParseSi(text.substr(0, colon), &tone.freqHz) || tone.freqHz <= 0.0 ||
                   !ParseNumber(text.substr(colon + 1), &tone.levelDbm))
                   throw CLI::ValidationError("--sim-tone", "'" + text + "' is not FREQUENCY:DBM (example: 1.5G:-40)");
               options->simTones.push_back(tone);
           },
           "a simulated tone instead of the default scene, e.g. 1.5G:-40 (repeatable)")
        ->type_name("F:DBM")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->trigger_on_parse();
    app.add_option("--sim-trigger", options->simTriggersS,
                   "a simulated external trigger this many seconds into every stream (repeatable)")
        ->type_name("SECONDS")
        ->check(CLI::NonNegativeNumber.description(""));
    app.add_subcommand("list", "the attached analysers: serial number, type, revision")
        ->callback([options] { options->command = Command::kList; });
    CLI::App* info = app.add_subcommand("info", "identity, firmware, temperature, USB voltage and current, time base");
    info->callback([options] { options->command = Command::kInfo; });
    AddDevice(info, options);
    AddSweep(app, options);
    AddIq(app, options);
    AddAudio(app, options);
    AddRealtime(app, options);
    AddTg(app, options);

    std::vector<std::string> reversed(args.rbegin(), args.rend());
    try {
        app.parse(reversed);
        const SweepOptions& s = options->sweep;
        if (options->command == Command::kSweep && s.stopHz <= s.startHz)
            throw CLI::ValidationError("--stop (" + FormatHz(s.stopHz) + ") must be above --start (" +
                                       FormatHz(s.startHz) + ")");
        const TgOptions& t = options->tg;
        if (options->command == Command::kTg && t.stopHz <= t.startHz)
            throw CLI::ValidationError("--stop (" + FormatHz(t.stopHz) + ") must be above --start (" +
                                       FormatHz(t.startHz) + ")");
        if (!options->simulate && (!options->simTones.empty() || !options->simTriggersS.empty()))
            throw CLI::ValidationError("--sim-tone and --sim-trigger need --simulate");
    } catch (const CLI::ParseError& e) {
        std::ostringstream out, err;
        ParseOutcome outcome;
        // CLI11 says only that a subcommand is required; name the word that
        // was taken for one.
        if (e.get_name() == "RequiredError") {
            const auto word = std::find_if(args.begin(), args.end(), [](const std::string& a) { return !a.empty() && a[0] != '-'; });
            const auto known = app.get_subcommands([&](CLI::App* sub) { return word != args.end() && sub->get_name() == *word; });
            if (word != args.end() && known.empty())
                return {2, "qs: unknown subcommand '" + *word + "'\nRun with --help for more information.\n"};
        }
        outcome.exitCode = app.exit(e, out, err);
        outcome.text = outcome.exitCode == 0 ? out.str() : err.str();
        // CLI11 says 0 for help and version and 1 or more for a refusal; a
        // bad command line is 2, as for other tools.
        if (outcome.exitCode != 0) {
            outcome.exitCode = 2;
            outcome.text = "qs: " + outcome.text;
        }
        return outcome;
    }
    return {};
}

double DefaultRbw(double spanHz) {
    return std::clamp(spanHz / 1000.0, 10.0, QS_MAX_RBW);
}

}  // namespace qstool

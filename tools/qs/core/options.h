// The command line of qs: subcommand, device, the settings of each mode and
// the simulator scene, read with CLI11.
#pragma once

#include <string>
#include <vector>

namespace qstool {

enum class Command { kNone, kList, kInfo, kSweep, kIq, kAudio, kRealtime, kTg };
enum class OutputFormat { kCsv, kPower };
enum class IqType { kCf32, kCi16 };

struct SimTone {
    double freqHz;
    double levelDbm;
};

// What `qs sweep` asks of the analyser and where the results go. Zero RBW
// means "choose from the span", zero VBW "the same as RBW".
struct SweepOptions {
    double startHz = 0.0;
    double stopHz = 0.0;
    double rbwHz = 0.0;
    double vbwHz = 0.0;
    double refDbm = -20.0;
    double attenDb = -1.0;  // QS_ATTEN_AUTO
    int gain = -1;          // QS_GAIN_AUTO
    double ppm = 0.0;       // added to the device's own time-base correction
    double sweepTimeS = 0.001;
    unsigned shape = 0;     // QS_RBW_SHAPE_...
    unsigned window = 0;    // QS_WINDOW_...
    unsigned detector = 0;  // QS_DETECTOR_...
    int count = 0;          // records to write; 0: one, or until stopped
    bool continuous = false;
    double intervalS = 0.0;   // integration interval; 0: see RecordInterval
    double exitAfterS = 0.0;  // 0: no timer
    int average = 1;          // sweeps per record when no interval is set
    std::string outputPath;   // empty or "-": standard output
    OutputFormat format = OutputFormat::kCsv;
    std::string pngPath;      // empty: no picture
    int pngWidth = 1200;
    int pngHeight = 600;

    // Whether the run goes on until a timer or Ctrl-C ends it.
    bool Unbounded() const { return continuous || (exitAfterS > 0.0 && count == 0); }
    // The seconds each written record integrates: as asked, or one second
    // for the power format when more than one sweep is made (the heat-map
    // scripts expect a row set per interval, not per sweep); 0 for none.
    double RecordInterval() const;
};

struct IqOptions {
    double centerHz = 0.0;
    double rateHz = 0.0;       // 40 MS/s over a power of two
    double bandwidthHz = 0.0;  // 0: 80 % of the rate
    double refDbm = -20.0;
    double durationS = 0.0;
    long long samples = 0;     // 0: from the duration; both 0: until Ctrl-C
    IqType type = IqType::kCf32;
    unsigned port1 = 0x40;     // QS_PORT_TRIGGER_IN: triggers are marked
    std::string base;          // BASE.sigmf-data and BASE.sigmf-meta

    // 40 MS/s / rateHz, the decimation the device is asked for.
    int Decimation() const;
};

struct AudioOptions {
    double freqHz = 0.0;
    int demod = 1;             // QS_DEMOD_...; FM
    double ifBandwidthHz = 0.0;  // 0: the demodulation's usual width
    double durationS = 0.0;    // 0: until Ctrl-C
    std::string outputPath;    // "-": standard output
};

struct RealtimeOptions {
    double centerHz = 0.0;
    double spanHz = 20e6;
    double rbwHz = 0.0;        // 0: from the span
    double refDbm = -20.0;
    int frames = 30;
    std::string pngPath;
    std::string waterfallPath;  // empty: none
};

// A scalar network sweep with the tracking generator. --thru measures a
// through and keeps it in thruPath; a run without it reads against that.
struct TgOptions {
    double startHz = 0.0;
    double stopHz = 0.0;
    int points = 101;
    bool highRange = false;
    bool thru = false;
    std::string thruPath;    // empty: ~/.corvane/tg_thru.csv
    std::string outputPath;  // empty or "-": standard output
    std::string pngPath;     // empty: no picture
};

struct Options {
    Command command = Command::kNone;
    bool simulate = false;
    std::vector<SimTone> simTones;        // empty: the subcommand's scene
    std::vector<double> simTriggersS;     // seconds into every stream
    int serial = -1;                      // -1: the first analyser found
    SweepOptions sweep;
    IqOptions iq;
    AudioOptions audio;
    RealtimeOptions realtime;
    TgOptions tg;
};

// What reading the command line decided: go on (exitCode < 0), or print
// text (help and version to standard output, a refusal to standard error)
// and end with exitCode.
struct ParseOutcome {
    int exitCode = -1;
    std::string text;
};

// Reads the arguments after the program name into options. version is what
// --version prints.
ParseOutcome ParseCommandLine(const std::vector<std::string>& args, Options* options,
                              const std::string& version = "qs");

// The RBW used when none is given: about a thousand RBWs across the span,
// kept inside what the analyser can do.
double DefaultRbw(double spanHz);

}  // namespace qstool

// The command line: what the subcommands set, values as people type them,
// and that every refusal names the argument and, for ranges, the range.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/options.h"
#include "qs_api.h"

using qstool::Command;
using qstool::Options;
using qstool::OutputFormat;

namespace {

Options Parsed(const std::vector<std::string>& args) {
    Options options;
    const qstool::ParseOutcome outcome = qstool::ParseCommandLine(args, &options);
    EXPECT_LT(outcome.exitCode, 0) << outcome.text;
    return options;
}

std::string Refusal(const std::vector<std::string>& args) {
    Options options;
    const qstool::ParseOutcome outcome = qstool::ParseCommandLine(args, &options);
    EXPECT_EQ(outcome.exitCode, 2) << outcome.text;
    return outcome.text;
}

const std::vector<std::string> kSweep = {"sweep", "--start", "1G", "--stop", "2G"};

std::vector<std::string> Sweep(std::vector<std::string> more) {
    more.insert(more.begin(), kSweep.begin(), kSweep.end());
    return more;
}

}  // namespace

TEST(CommandLine, EverySubcommandSetsWhatItIsGiven) {
    const Options s = Parsed({"sweep", "-d", "12345678", "--start", "2.4G", "--stop=2.5GHz", "--rbw", "100k",
                              "--vbw", "30 kHz", "--ref", "-30", "--atten", "10", "--gain", "2", "--ppm", "-1.5",
                              "--shape", "gaussian", "--window", "FlatTop", "--detector", "average", "-N", "5",
                              "--exit-after", "2m", "-o", "out.csv", "--format", "power", "--png", "out.png",
                              "--png-size", "800x400", "--sweep-time", "0.01", "--interval", "500ms"});
    EXPECT_EQ(s.command, Command::kSweep);
    EXPECT_EQ(s.serial, 12345678);
    EXPECT_EQ(s.sweep.startHz, 2.4e9);
    EXPECT_EQ(s.sweep.stopHz, 2.5e9);
    EXPECT_EQ(s.sweep.rbwHz, 1e5);
    EXPECT_EQ(s.sweep.vbwHz, 3e4);
    EXPECT_EQ(s.sweep.refDbm, -30.0);
    EXPECT_EQ(s.sweep.attenDb, 10.0);
    EXPECT_EQ(s.sweep.gain, 2);
    EXPECT_EQ(s.sweep.ppm, -1.5);
    EXPECT_EQ(s.sweep.shape, unsigned(QS_RBW_SHAPE_GAUSSIAN));
    EXPECT_EQ(s.sweep.window, unsigned(QS_WINDOW_FLAT_TOP));
    EXPECT_EQ(s.sweep.detector, unsigned(QS_DETECTOR_AVERAGE));
    EXPECT_EQ(s.sweep.count, 5);
    EXPECT_EQ(s.sweep.exitAfterS, 120.0);
    EXPECT_EQ(s.sweep.intervalS, 0.5);
    EXPECT_EQ(s.sweep.outputPath, "out.csv");
    EXPECT_EQ(s.sweep.format, OutputFormat::kPower);
    EXPECT_EQ(s.sweep.pngPath, "out.png");
    EXPECT_EQ(s.sweep.pngWidth, 800);
    EXPECT_EQ(s.sweep.pngHeight, 400);
    EXPECT_EQ(s.sweep.sweepTimeS, 0.01);

    const Options q = Parsed({"iq", "--center", "1.5G", "--rate", "625k", "--samples", "1000", "--type", "ci16",
                              "--port1", "none", "-o", "rec"});
    EXPECT_EQ(q.command, Command::kIq);
    EXPECT_EQ(q.iq.rateHz, 625e3);
    EXPECT_EQ(q.iq.Decimation(), 64);
    EXPECT_EQ(q.iq.samples, 1000);
    EXPECT_EQ(q.iq.type, qstool::IqType::kCi16);
    EXPECT_EQ(q.iq.port1, 0u);
    EXPECT_EQ(q.iq.base, "rec");

    const Options a = Parsed({"audio", "--freq", "100M", "--demod", "usb", "--duration", "1", "-o", "-"});
    EXPECT_EQ(a.command, Command::kAudio);
    EXPECT_EQ(a.audio.demod, QS_DEMOD_USB);
    EXPECT_EQ(a.audio.durationS, 1.0);
    EXPECT_EQ(a.audio.outputPath, "-");

    const Options r = Parsed({"realtime", "--center", "2.44G", "--span", "5M", "--frames", "3", "--png", "x.png"});
    EXPECT_EQ(r.command, Command::kRealtime);
    EXPECT_EQ(r.realtime.spanHz, 5e6);
    EXPECT_EQ(r.realtime.frames, 3);

    EXPECT_EQ(Parsed({"info"}).serial, -1);
    EXPECT_EQ(Parsed({"list"}).command, Command::kList);
}

// A record integrates an interval when asked, and one second by default for
// the power format once more than one sweep is made; never for one sweep.
TEST(CommandLine, RecordIntervalFollowsFormatAndCount) {
    EXPECT_EQ(Parsed(Sweep({"--format", "power"})).sweep.RecordInterval(), 0.0);
    EXPECT_EQ(Parsed(Sweep({"--format", "power", "--continuous"})).sweep.RecordInterval(), 1.0);
    EXPECT_EQ(Parsed(Sweep({"--format", "power", "--exit-after", "20s"})).sweep.RecordInterval(), 1.0);
    EXPECT_EQ(Parsed(Sweep({"--format", "power", "-N", "3", "--average", "4"})).sweep.RecordInterval(), 0.0);
    EXPECT_EQ(Parsed(Sweep({"--continuous"})).sweep.RecordInterval(), 0.0);
    EXPECT_EQ(Parsed(Sweep({"--interval", "2s"})).sweep.RecordInterval(), 2.0);
    EXPECT_TRUE(Parsed(Sweep({"--exit-after", "1h"})).sweep.Unbounded());
    EXPECT_FALSE(Parsed(Sweep({"--exit-after", "1h", "-N", "2"})).sweep.Unbounded());
}

TEST(CommandLine, SimulatorOptionsGoAnywhereAndNeedSimulate) {
    const Options before = Parsed({"--simulate", "--sim-tone", "1.5G:-40", "--sim-trigger", "0.01", "list"});
    EXPECT_TRUE(before.simulate);
    ASSERT_EQ(before.simTones.size(), 1u);
    EXPECT_EQ(before.simTones[0].freqHz, 1.5e9);
    EXPECT_EQ(before.simTones[0].levelDbm, -40.0);
    EXPECT_EQ(before.simTriggersS, std::vector<double>{0.01});

    const Options after = Parsed(Sweep({"--simulate", "--sim-tone=1.2G:-30", "--sim-tone", "1.7G:-55.5"}));
    EXPECT_TRUE(after.simulate);
    ASSERT_EQ(after.simTones.size(), 2u);
    EXPECT_EQ(after.simTones[1].freqHz, 1.7e9);
    EXPECT_EQ(after.simTones[1].levelDbm, -55.5);

    EXPECT_NE(Refusal({"--sim-tone", "1.5G:-40", "list"}).find("need --simulate"), std::string::npos);
}

TEST(CommandLine, RefusalsNameTheArgumentAndTheRange) {
    const struct {
        std::vector<std::string> args;
        std::vector<std::string> said;
    } cases[] = {
        {{"sweep", "--start", "2.4X", "--stop", "2.5G"}, {"--start", "2.4X"}},
        {{"sweep", "--start", "1k", "--stop", "2G"}, {"--start", "9 kHz to 6.4 GHz"}},
        {{"sweep", "--start", "1G", "--stop", "7G"}, {"--stop", "6.4 GHz"}},
        {{"sweep", "--start", "2G", "--stop", "1G"}, {"--stop", "above --start"}},
        {{"sweep", "--start", "1G"}, {"--stop"}},
        {Sweep({"--frob"}), {"--frob"}},
        {Sweep({"--rbw", "0"}), {"--rbw"}},
        {Sweep({"--ref", "60"}), {"--ref", "-150 to 50"}},
        {Sweep({"--gain", "7"}), {"--gain"}},
        {Sweep({"--shape", "round"}), {"--shape", "gaussian, lowpass, native"}},
        {Sweep({"-N", "0"}), {"--count"}},
        {Sweep({"-N", "2", "--continuous"}), {"--continuous"}},
        {Sweep({"--interval", "1s", "--average", "3"}), {"--average"}},
        {Sweep({"--exit-after", "soon"}), {"--exit-after", "20s"}},
        {Sweep({"--png-size", "10x10"}), {"--png-size"}},
        {{"iq", "--center", "1G", "--rate", "3M", "-o", "x"}, {"--rate", "power of two"}},
        {{"iq", "--center", "1G", "--rate", "10M"}, {"--output"}},
        {{"audio", "--freq", "100M", "--demod", "wfm", "-o", "-"}, {"--demod", "am, cw, fm, lsb, usb"}},
        {{"realtime", "--center", "1G", "--span", "40M", "--png", "x.png"}, {"--span", "20 MHz"}},
        {{"--sim-tone", "1.5G", "--simulate", "list"}, {"--sim-tone", "FREQUENCY:DBM"}},
        {{"info", "-d", "abc"}, {"--device"}},
        {{"frob"}, {"frob"}},
        {{}, {"subcommand"}},
    };
    for (const auto& c : cases) {
        const std::string text = Refusal(c.args);
        EXPECT_EQ(text.rfind("qs: ", 0), 0u) << text;
        for (const std::string& word : c.said) EXPECT_NE(text.find(word), std::string::npos) << word << " in: " << text;
    }
}

TEST(CommandLine, HelpAndVersionEndWithSuccess) {
    Options options;
    qstool::ParseOutcome help = qstool::ParseCommandLine({"sweep", "--help"}, &options);
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_NE(help.text.find("--exit-after"), std::string::npos) << help.text;
    EXPECT_EQ(help.text.find("--samples"), std::string::npos) << "the sweep's help shows iq's options";
    qstool::ParseOutcome version = qstool::ParseCommandLine({"--version"}, &options, "qs 9.8.7");
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_NE(version.text.find("qs 9.8.7"), std::string::npos);
}

// The command line: what a full sweep command sets, and that every refusal
// names the argument at fault.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/options.h"
#include "qs_api.h"

using qstool::Command;
using qstool::Options;
using qstool::OutputFormat;
using qstool::ParseCommandLine;

namespace {

Options Parsed(const std::vector<std::string>& args) {
    Options options;
    std::string error;
    EXPECT_TRUE(ParseCommandLine(args, &options, &error)) << error;
    return options;
}

std::string Refusal(const std::vector<std::string>& args) {
    Options options;
    std::string error;
    EXPECT_FALSE(ParseCommandLine(args, &options, &error));
    EXPECT_FALSE(error.empty());
    return error;
}

}  // namespace

TEST(CommandLine, FullSweepCommand) {
    const Options o = Parsed({"sweep", "-d", "12345678", "--start", "2.4G", "--stop=2.5G",
                              "--rbw", "100k", "--vbw", "30k", "--ref", "-30", "--shape",
                              "gaussian", "--window", "flattop", "--detector", "average", "-N",
                              "5", "-o", "out.csv", "--format", "power", "--png", "out.png",
                              "--png-size", "800x400", "--sweep-time", "0.01"});
    EXPECT_EQ(o.command, Command::kSweep);
    EXPECT_EQ(o.serial, 12345678);
    EXPECT_EQ(o.sweep.startHz, 2.4e9);
    EXPECT_EQ(o.sweep.stopHz, 2.5e9);
    EXPECT_EQ(o.sweep.rbwHz, 1e5);
    EXPECT_EQ(o.sweep.vbwHz, 3e4);
    EXPECT_EQ(o.sweep.refDbm, -30.0);
    EXPECT_EQ(o.sweep.shape, static_cast<unsigned>(QS_RBW_SHAPE_GAUSSIAN));
    EXPECT_EQ(o.sweep.window, static_cast<unsigned>(QS_WINDOW_FLAT_TOP));
    EXPECT_EQ(o.sweep.detector, static_cast<unsigned>(QS_DETECTOR_AVERAGE));
    EXPECT_EQ(o.sweep.count, 5);
    EXPECT_FALSE(o.sweep.continuous);
    EXPECT_EQ(o.sweep.outputPath, "out.csv");
    EXPECT_EQ(o.sweep.format, OutputFormat::kPower);
    EXPECT_EQ(o.sweep.pngPath, "out.png");
    EXPECT_EQ(o.sweep.pngWidth, 800);
    EXPECT_EQ(o.sweep.pngHeight, 400);
    EXPECT_EQ(o.sweep.sweepTimeS, 0.01);
}

TEST(CommandLine, DefaultsAndAttachedShortValues) {
    const Options o = Parsed({"sweep", "--start", "1G", "--stop", "2G", "-d12345678", "-N3"});
    EXPECT_EQ(o.serial, 12345678);
    EXPECT_EQ(o.sweep.count, 3);
    EXPECT_EQ(o.sweep.rbwHz, 0.0);  // chosen from the span later
    EXPECT_EQ(o.sweep.shape, static_cast<unsigned>(QS_RBW_SHAPE_NATIVE));
    EXPECT_EQ(o.sweep.window, static_cast<unsigned>(QS_WINDOW_NUTTALL));
    EXPECT_EQ(o.sweep.detector, static_cast<unsigned>(QS_DETECTOR_MIN_MAX));
    EXPECT_EQ(o.sweep.format, OutputFormat::kCsv);
    EXPECT_TRUE(o.sweep.outputPath.empty());

    EXPECT_EQ(Parsed({"info"}).serial, -1);
    EXPECT_EQ(Parsed({"list"}).command, Command::kList);
    EXPECT_EQ(Parsed({"sweep", "--start", "1G", "--stop", "2G", "--continuous"}).sweep.continuous,
              true);
}

TEST(CommandLine, SimulatorOptionsGoAnywhere) {
    const Options before = Parsed({"--simulate", "--sim-tone", "1.5G:-40", "list"});
    EXPECT_TRUE(before.simulate);
    ASSERT_EQ(before.simTones.size(), 1u);
    EXPECT_EQ(before.simTones[0].freqHz, 1.5e9);
    EXPECT_EQ(before.simTones[0].levelDbm, -40.0);

    const Options after = Parsed({"sweep", "--start", "1G", "--stop", "2G", "--simulate",
                                  "--sim-tone=1.2G:-30", "--sim-tone", "1.7G:-55.5"});
    EXPECT_TRUE(after.simulate);
    ASSERT_EQ(after.simTones.size(), 2u);
    EXPECT_EQ(after.simTones[1].freqHz, 1.7e9);
    EXPECT_EQ(after.simTones[1].levelDbm, -55.5);
}

TEST(CommandLine, RefusalsNameTheArgument) {
    const std::string badStart = Refusal({"sweep", "--start", "2.4X", "--stop", "2.5G"});
    EXPECT_NE(badStart.find("--start"), std::string::npos) << badStart;
    EXPECT_NE(badStart.find("2.4X"), std::string::npos) << badStart;

    const std::string unknown = Refusal({"sweep", "--start", "1G", "--stop", "2G", "--frob"});
    EXPECT_NE(unknown.find("--frob"), std::string::npos) << unknown;

    EXPECT_NE(Refusal({"sweep", "--start"}).find("--start needs a value"), std::string::npos);
    EXPECT_NE(Refusal({"sweep", "--start", "1G", "--stop", "2G", "--rbw", "0"}).find("--rbw"),
              std::string::npos);
    EXPECT_NE(Refusal({"sweep", "--start", "1G", "--stop", "2G", "--shape", "round"})
                  .find("native, gaussian, lowpass"),
              std::string::npos);
    EXPECT_NE(Refusal({"sweep", "--start", "1G", "--stop", "2G", "-N", "0"}).find("-N"),
              std::string::npos);
    EXPECT_NE(Refusal({"sweep", "--start", "1G", "--stop", "2G", "--png-size", "10x10"})
                  .find("--png-size"),
              std::string::npos);
    EXPECT_NE(Refusal({"--sim-tone", "1.5G", "list"}).find("--sim-tone"), std::string::npos);
    EXPECT_NE(Refusal({"info", "-d", "abc"}).find("-d"), std::string::npos);
    EXPECT_NE(Refusal({"list", "-d", "12345678"}).find("'-d' for qs list"), std::string::npos);
    EXPECT_NE(Refusal({"frobnicate"}).find("frobnicate"), std::string::npos);
    EXPECT_NE(Refusal({"--simulate"}).find("no subcommand"), std::string::npos);
}

TEST(CommandLine, SweepNeedsAnOrderedRangeAndOneWayToCount) {
    EXPECT_NE(Refusal({"sweep", "--start", "1G"}).find("--stop"), std::string::npos);
    const std::string reversed = Refusal({"sweep", "--start", "2.5G", "--stop", "2.4G"});
    EXPECT_NE(reversed.find("2.5 GHz"), std::string::npos) << reversed;
    EXPECT_NE(Refusal({"sweep", "--start", "1G", "--stop", "2G", "-N", "2", "--continuous"})
                  .find("--continuous"),
              std::string::npos);
    // A negative frequency is a typing slip, not a value for the library to judge.
    EXPECT_NE(Refusal({"sweep", "--start", "-1G", "--stop", "2G"}).find("--start"),
              std::string::npos);
}

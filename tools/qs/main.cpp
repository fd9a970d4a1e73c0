// qs: the analysers from a terminal; `qs --help` and `qs SUBCOMMAND --help`
// tell the rest.
//
// --simulate runs the tool on the device simulator instead of the USB bus:
// the tool starts itself again with the simulator preloaded in place of
// libusb, so that it works with the production library unchanged.
#include <limits.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "commands.h"
#include "core/options.h"

namespace {

constexpr const char* kDefaultSimDevices = "maple2:12345678";
// Something to see in every mode: tones across the bands for sweeps and
// frames, one beside the default I/Q and audio frequencies.
constexpr const char* kDefaultSimTones =
    "433.92e6:-45,1e9:-30,2.412e9:-50,2.437e9:-60,100.001e6:-40,1.501e9:-40";

// The simulator: beside this program in the build tree, or in the library
// folder of the prefix this program was installed into. Found from the
// program's own place, so that an installed qs does not need the tree.
std::string FindSimulator() {
    char self[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    if (n > 0) {
        self[n] = '\0';
        std::string dir(self);
        dir.erase(dir.find_last_of('/'));
        const std::string installed = dir + "/" + QS_USBSIM_RELATIVE;
        if (access(installed.c_str(), R_OK) == 0) return installed;
    }
    return QS_USBSIM_PATH;
}

std::string SimTones(const qstool::Options& options) {
    std::string tones;
    for (const auto& tone : options.simTones) {
        char item[64];
        std::snprintf(item, sizeof item, "%s%.17g:%.17g", tones.empty() ? "" : ",", tone.freqHz, tone.levelDbm);
        tones += item;
    }
    return tones;
}

// Starts this program again with the simulator in place of libusb. The
// scene: QS_SIM_DEVICES and QS_SIM_TONES if set, --sim-tone above both.
int ExecSimulated(const qstool::Options& options, char** argv) {
    const std::string simulator = FindSimulator();
    if (access(simulator.c_str(), R_OK) != 0) {
        std::fprintf(stderr, "qs: --simulate: the simulator %s is missing (build or install qs_usbsim)\n",
                     simulator.c_str());
        return qstool::kExitFailure;
    }
    setenv("QS_SIM_ACTIVE", "1", 1);
    setenv("LD_PRELOAD", simulator.c_str(), 1);
    setenv("QS_SIM_DEVICES", kDefaultSimDevices, 0);
    // A network sweep's input is the generator's cable, not an antenna.
    if (options.simTones.empty())
        setenv("QS_SIM_TONES", options.command == qstool::Command::kTg ? "" : kDefaultSimTones, 0);
    else
        setenv("QS_SIM_TONES", SimTones(options).c_str(), 1);
    // A generator on the first analyser: a through while one is measured,
    // else a band-pass a tenth of the range wide in its middle.
    if (options.command == qstool::Command::kTg) {
        const qstool::TgOptions& t = options.tg;
        const double centre = (t.startHz + t.stopHz) / 2, width = (t.stopHz - t.startHz) / 10;
        char generators[128];
        if (t.thru)
            std::snprintf(generators, sizeof generators, "tg1:1001");
        else
            std::snprintf(generators, sizeof generators, "tg1:1001:bandpass=%.17g-%.17g/4", centre - width / 2,
                          centre + width / 2);
        setenv("QS_SIM_GENERATORS", generators, 0);
    }
    if (!options.simTriggersS.empty()) {
        std::string triggers;
        for (double s : options.simTriggersS) triggers += (triggers.empty() ? "" : ",") + std::to_string(s);
        setenv("QS_SIM_TRIGGERS", triggers.c_str(), 1);
    }
    execv("/proc/self/exe", argv);
    std::perror("qs: cannot start the simulator");
    return qstool::kExitFailure;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    qstool::Options options;
    const std::string version = std::string("qs ") + QS_TOOL_VERSION + ", library " + qsGetAPIVersion();
    const qstool::ParseOutcome parsed = qstool::ParseCommandLine(args, &options, version);
    if (parsed.exitCode >= 0) {
        std::fputs(parsed.text.c_str(), parsed.exitCode == 0 ? stdout : stderr);
        return parsed.exitCode;
    }
    if (options.simulate && !getenv("QS_SIM_ACTIVE")) return ExecSimulated(options, argv);
    switch (options.command) {
        case qstool::Command::kList: return qstool::RunList();
        case qstool::Command::kInfo: return qstool::RunInfo(options);
        case qstool::Command::kSweep: return qstool::RunSweep(options);
        case qstool::Command::kIq: return qstool::RunIq(options);
        case qstool::Command::kAudio: return qstool::RunAudio(options);
        case qstool::Command::kRealtime: return qstool::RunRealtime(options);
        case qstool::Command::kTg: return qstool::RunTg(options);
        default: return qstool::kExitUsage;
    }
}

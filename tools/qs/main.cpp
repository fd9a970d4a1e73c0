// qs: the analysers from a terminal. See UsageText() in core/options.cpp.
//
// --simulate runs the tool on the device simulator instead of the USB bus:
// the tool starts itself again with the simulator preloaded in place of
// libusb, so that it works with the production library unchanged.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "commands.h"
#include "core/options.h"

namespace {

constexpr const char* kDefaultSimDevices = "maple2:12345678";
constexpr const char* kDefaultSimTones = "433.92e6:-45,1e9:-30,2.412e9:-50,2.437e9:-60";

// Starts this program again with the simulator in place of libusb. The
// scene: QS_SIM_DEVICES and QS_SIM_TONES if set, --sim-tone above both.
int ExecSimulated(const qstool::Options& options, char** argv) {
    if (access(QS_USBSIM_PATH, R_OK) != 0) {
        std::fprintf(stderr, "qs: --simulate: the simulator %s is missing (build qs_usbsim)\n",
                     QS_USBSIM_PATH);
        return qstool::kExitFailure;
    }
    setenv("QS_SIM_ACTIVE", "1", 1);
    setenv("LD_PRELOAD", QS_USBSIM_PATH, 1);
    setenv("QS_SIM_DEVICES", kDefaultSimDevices, 0);
    if (options.simTones.empty()) {
        setenv("QS_SIM_TONES", kDefaultSimTones, 0);
    } else {
        std::string tones;
        for (const auto& tone : options.simTones) {
            char item[64];
            std::snprintf(item, sizeof item, "%s%.17g:%.17g", tones.empty() ? "" : ",",
                          tone.freqHz, tone.levelDbm);
            tones += item;
        }
        setenv("QS_SIM_TONES", tones.c_str(), 1);
    }
    execv("/proc/self/exe", argv);
    std::perror("qs: cannot start the simulator");
    return qstool::kExitFailure;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    qstool::Options options;
    std::string error;
    if (!qstool::ParseCommandLine(args, &options, &error)) {
        std::fprintf(stderr, "qs: %s\n\n%s", error.c_str(), qstool::UsageText());
        return qstool::kExitUsage;
    }
    if (options.command == qstool::Command::kHelp) {
        std::fputs(qstool::UsageText(), stdout);
        return 0;
    }
    if (options.simulate && !getenv("QS_SIM_ACTIVE")) return ExecSimulated(options, argv);
    switch (options.command) {
        case qstool::Command::kList: return qstool::RunList();
        case qstool::Command::kInfo: return qstool::RunInfo(options);
        case qstool::Command::kSweep: return qstool::RunSweep(options);
        default: return qstool::kExitUsage;
    }
}

// qs: list and open analysers from a terminal.
//
//   qs [--simulate] list
//   qs [--simulate] open [SERIAL]
//
// --simulate runs the tool on the device simulator instead of the USB bus:
// the tool starts itself again with the simulator preloaded in place of
// libusb, and, unless QS_SIM_DEVICES says otherwise, with a Maple and a
// Larch plugged in.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "qs_api.h"

namespace {

constexpr const char* kDefaultSimDevices = "maple2:12345678,larch:10000001";
constexpr const char* kDefaultSimTones = "1e9:-30,2.4e9:-50";

int Usage() {
    std::fprintf(stderr,
                 "usage: qs [--simulate] list\n"
                 "       qs [--simulate] open [SERIAL]\n");
    return 2;
}

// Starts this program again with the simulator in place of libusb.
int ExecSimulated(char** argv) {
    setenv("QS_SIM_ACTIVE", "1", 1);
    setenv("LD_PRELOAD", QS_USBSIM_PATH, 1);
    setenv("QS_SIM_DEVICES", kDefaultSimDevices, 0);
    setenv("QS_SIM_TONES", kDefaultSimTones, 0);
    execv("/proc/self/exe", argv);
    std::perror("qs: cannot start the simulator");
    return 1;
}

const char* TypeName(int type) {
    switch (type) {
        case QS_DEVICE_TYPE_LARCH: return "Larch";
        case QS_DEVICE_TYPE_MAPLE: return "Maple";
        default: return "unknown";
    }
}

int List() {
    int serials[QS_MAX_DEVICES];
    int count = 0;
    const qsStatus status = qsGetSerialNumberList(serials, &count);
    if (status != qsNoError) {
        std::fprintf(stderr, "qs: %s\n", qsGetErrorString(status));
        return 1;
    }
    if (count == 0) std::printf("no analyser found\n");
    for (int i = 0; i < count; ++i) std::printf("%08d\n", serials[i]);
    return 0;
}

int Open(int serial) {
    int handle = -1;
    const qsStatus status = qsOpenDeviceBySerialNumber(&handle, serial);
    std::printf("open: %s\n", qsGetErrorString(status));
    if (status < 0) return 1;
    int type = 0, rev = 0;
    unsigned sid = 0;
    qsGetDeviceType(handle, &type);
    std::printf("handle: %d\ntype: %s", handle, TypeName(type));
    if (type == QS_DEVICE_TYPE_MAPLE && qsGetMapleRev(handle, &rev) == qsNoError)
        std::printf(" revision %d", rev);
    std::printf("\n");
    const qsStatus sidStatus = qsGetSerialNumber(handle, &sid);
    if (sidStatus == qsNoError)
        std::printf("serial number: %08u\n", sid);
    else
        std::printf("serial number: %s\n", qsGetErrorString(sidStatus));
    std::printf("close: %s\n", qsGetErrorString(qsCloseDevice(handle)));
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    bool simulate = false;
    for (auto it = args.begin(); it != args.end();) {
        if (*it == "--simulate") {
            simulate = true;
            it = args.erase(it);
        } else {
            ++it;
        }
    }
    if (simulate && !getenv("QS_SIM_ACTIVE")) return ExecSimulated(argv);
    if (args.empty()) return Usage();
    if (args[0] == "list" && args.size() == 1) return List();
    if (args[0] == "open" && args.size() <= 2)
        return Open(args.size() == 2 ? std::atoi(args[1].c_str()) : -1);
    return Usage();
}

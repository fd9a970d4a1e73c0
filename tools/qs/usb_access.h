// Analysers that are on the bus but that this user may not open. The
// library's device list leaves them out, so qs looks at the bus itself to
// say what is wrong and how to fix it.
#pragma once

#include <vector>

namespace qstool {

struct BlockedDevice {
    int bus;
    int address;
};

// Devices of the analysers' vendor whose open fails for lack of permission.
std::vector<BlockedDevice> FindBlockedAnalysers();

// Tells on standard error which devices are shut out and how the udev rule
// lets the logged-in user in.
void PrintAccessHint(const std::vector<BlockedDevice>& blocked);

}  // namespace qstool

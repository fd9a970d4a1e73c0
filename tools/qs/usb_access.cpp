#include "usb_access.h"

#include <libusb.h>
#include <unistd.h>

#include <cstdio>

namespace qstool {

namespace {

constexpr uint16_t kAnalyserVendorId = 0x51c3;
constexpr const char* kRuleName = "60-qs-analyser.rules";
constexpr const char* kRuleText =
    "SUBSYSTEM==\"usb\", ATTR{idVendor}==\"51c3\", TAG+=\"uaccess\"";

}  // namespace

std::vector<BlockedDevice> FindBlockedAnalysers() {
    std::vector<BlockedDevice> blocked;
    // A context of our own: the library keeps the default one.
    libusb_context* context = nullptr;
    if (libusb_init(&context) != 0) return blocked;
    libusb_device** list = nullptr;
    const ssize_t count = libusb_get_device_list(context, &list);
    for (ssize_t i = 0; i < count; ++i) {
        libusb_device_descriptor desc;
        if (libusb_get_device_descriptor(list[i], &desc) != 0) continue;
        if (desc.idVendor != kAnalyserVendorId) continue;
        libusb_device_handle* handle = nullptr;
        const int result = libusb_open(list[i], &handle);
        if (result == 0)
            libusb_close(handle);
        else if (result == LIBUSB_ERROR_ACCESS)
            blocked.push_back({libusb_get_bus_number(list[i]), libusb_get_device_address(list[i])});
    }
    if (count >= 0) libusb_free_device_list(list, 1);
    libusb_exit(context);
    return blocked;
}

void PrintAccessHint(const std::vector<BlockedDevice>& blocked) {
    if (blocked.empty()) return;
    std::fprintf(stderr, "qs: %zu analyser%s on USB that this user may not open:", blocked.size(),
                 blocked.size() == 1 ? "" : "s");
    for (const auto& d : blocked) std::fprintf(stderr, " bus %03d device %03d", d.bus, d.address);
    std::fprintf(stderr, "\nqs: the udev rule %s gives the logged-in user access:\n", kRuleName);
    // The copy in the source tree, else the installed one, else the rule itself.
    const char* file = access(QS_UDEV_RULE_SOURCE, R_OK) == 0      ? QS_UDEV_RULE_SOURCE
                       : access(QS_UDEV_RULE_INSTALLED, R_OK) == 0 ? QS_UDEV_RULE_INSTALLED
                                                                   : nullptr;
    if (file)
        std::fprintf(stderr, "      sudo install -m 644 %s /etc/udev/rules.d/\n", file);
    else
        std::fprintf(stderr, "      echo '%s' | sudo tee /etc/udev/rules.d/%s\n", kRuleText,
                     kRuleName);
    std::fprintf(stderr,
                 "      sudo udevadm control --reload && sudo udevadm trigger\n"
                 "    then unplug the analyser and plug it in again.\n");
}

}  // namespace qstool

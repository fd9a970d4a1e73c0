// What the shipped library exports and imports, read from its dynamic
// symbol table.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>

#include "usb_shim_names.h"

namespace {

std::set<std::string> DynamicSymbols(const std::string& library, const char* which) {
    std::set<std::string> names;
    const std::string command = "nm -D " + std::string(which) + " '" + library + "'";
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return names;
    char line[1024];
    while (std::fgets(line, sizeof line, pipe)) {
        std::string text(line);
        while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
        const auto space = text.find_last_of(' ');
        std::string name = space == std::string::npos ? text : text.substr(space + 1);
        const auto at = name.find('@');
        if (at != std::string::npos) name.resize(at);
        names.insert(name);
    }
    pclose(pipe);
    return names;
}

const std::set<std::string> kImplemented = {
#define QSSIM_NAME(name) #name,
    QSSIM_IMPLEMENTED_LIBUSB_CALLS(QSSIM_NAME)
#undef QSSIM_NAME
};

TEST(LibrarySymbols, EveryLibusbCallTheLibraryImportsIsSimulated) {
    const auto imported = DynamicSymbols(QS_API_LIBRARY, "--undefined-only");
    ASSERT_FALSE(imported.empty()) << "nm gave nothing for " << QS_API_LIBRARY;
    int libusbCalls = 0;
    for (const auto& name : imported) {
        if (name.rfind("libusb_", 0) != 0) continue;
        ++libusbCalls;
        EXPECT_TRUE(kImplemented.count(name)) << name << " is imported but not simulated";
    }
    EXPECT_GT(libusbCalls, 10);
}

TEST(LibrarySymbols, TheSimulatorExportsEveryImplementedCall) {
    const auto exported = DynamicSymbols(QS_USBSIM_LIBRARY, "--defined-only");
    for (const auto& name : kImplemented) EXPECT_TRUE(exported.count(name)) << name;
    for (const char* control : {"qssim_reset", "qssim_add_device", "qssim_remove_device",
                                "qssim_set_tone", "qssim_clear_signals", "qssim_set_noise"})
        EXPECT_TRUE(exported.count(control)) << control;
}

TEST(LibrarySymbols, OnlyThePublicCallsAreExported) {
    const auto exported = DynamicSymbols(QS_API_LIBRARY, "--defined-only");
    ASSERT_FALSE(exported.empty());
    for (const auto& name : exported) {
        if (name.empty() || name == "LIBQS_API") continue;
        EXPECT_EQ(name.rfind("qs", 0), 0u) << name << " leaks out of the library";
    }
    for (const char* call : {"qsGetErrorString", "qsOpenDevice", "qsCloseDevice",
                             "qsGetSerialNumberList", "qsOpenDeviceBySerialNumber"})
        EXPECT_TRUE(exported.count(call)) << call;
}

}  // namespace

// The edge cases of the service calls that users can run into: calls of one
// model on the other, null pointers, a flash page past the last, and the
// calls that need no device. One table over a Larch, a Maple and no device.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "qs_api.h"
#include "qs_sim.h"

namespace {

enum Target { kNoDevice, kLarch, kMaple };

// What a row's call left behind that the user can see (a value it wrote,
// or what the device received), as text.
using Seen = std::string;

struct Devices {
    int larchSim = -1, mapleSim = -1;
    int larch = -1, maple = -1;
};
Devices g;

int CommandsTo(Target t) { return qssim_command_count(t == kLarch ? g.larchSim : g.mapleSim); }

TEST(ServiceCalls, EdgeCasesUsersCanHit) {
    qssim_reset();
    g.larchSim = qssim_add_device(QSSIM_PID_LARCH, 10000001);
    g.mapleSim = qssim_add_device(QSSIM_PID_MAPLE_REV2, 12345678);
    ASSERT_EQ(qsOpenDeviceBySerialNumber(&g.larch, 10000001), qsNoError);
    ASSERT_EQ(qsOpenDeviceBySerialNumber(&g.maple, 12345678), qsNoError);

    unsigned char gains[310] = {};
    const auto mapleRev = [](int h, Seen& s) {
        int rev = 7;
        const qsStatus st = qsGetMapleRev(h, &rev);
        s = std::to_string(rev);
        return st;
    };
    const auto commandsOfSelfCal = [](Target t) {
        return [t](int h, Seen& s) {
            const int before = CommandsTo(t);
            const qsStatus st = qsSelfCal(h);
            s = std::to_string(CommandsTo(t) - before) + " commands";
            return st;
        };
    };
    const struct Row {
        const char* what;
        Target target;  // kNoDevice: handle 7, where nothing is open
        std::function<qsStatus(int h, Seen& seen)> call;
        qsStatus status;
        const char* seen;
    } rows[] = {
        {"the API version needs no device", kNoDevice,
         [](int, Seen& s) { s = qsGetAPIVersion(); return qsNoError; }, qsNoError, "4.3.0"},
        {"the product id needs no device", kNoDevice,
         [](int, Seen& s) { s = qsGetProductID(); return qsNoError; }, qsNoError, "7716-3405"},
        {"self-calibration without a device", kNoDevice, [](int h, Seen&) { return qsSelfCal(h); },
         qsDeviceNotOpenErr, ""},
        {"a flash read without a device, before its pointer", kNoDevice,
         [](int h, Seen&) { return qsReadFlash(h, 49, nullptr); }, qsDeviceNotOpenErr, ""},
        {"rough gains without a device, before their pointers", kNoDevice,
         [](int h, Seen&) { return qsApplyRoughGain(h, nullptr, nullptr); }, qsDeviceNotOpenErr, ""},

        {"the Maple revision of a Larch", kLarch, mapleRev, qsDeviceInvalidErr, "-1"},
        {"the Maple revision of a Maple", kMaple, mapleRev, qsNoError, "2"},
        {"a timebase slot on a Larch changes nothing", kLarch,
         [](int h, Seen& s) {
             const qsStatus st = qsAddTimebaseCorrection(h, 1.0);
             double ratio = 0.0;
             qsGetTimebaseCorrection(h, &ratio);
             s = ratio == 1.0 ? "ratio 1" : std::to_string(ratio);
             return st;
         },
         qsDeviceInvalidErr, "ratio 1"},
        {"rough gains on a Larch", kLarch,
         [&gains](int h, Seen&) { return qsApplyRoughGain(h, gains, gains); }, qsDeviceInvalidErr, ""},
        {"rough gains with a null half", kMaple,
         [&gains](int h, Seen&) { return qsApplyRoughGain(h, gains, nullptr); }, qsNullPtrErr, ""},
        {"self-calibration of a Larch runs both capture passes", kLarch, commandsOfSelfCal(kLarch), qsNoError,
         "2 commands"},
        {"self-calibration of a Maple does nothing", kMaple, commandsOfSelfCal(kMaple), qsNoError, "0 commands"},
    };

    // Calls that go the same way on both models.
    std::vector<Row> both = {
        {"flash page 49 succeeds and delivers nothing", kNoDevice,
         [](int h, Seen& s) {
             std::vector<unsigned char> data(65536, 0xA5);
             const qsStatus st = qsReadFlash(h, 49, data.data());
             s = "untouched";
             for (unsigned char b : data)
                 if (b != 0xA5) s = "written";
             return st;
         },
         qsNoError, "untouched"},
        {"flash read into null", kNoDevice, [](int h, Seen&) { return qsReadFlash(h, 8, nullptr); }, qsNullPtrErr, ""},
        {"flash write from null", kNoDevice, [](int h, Seen&) { return qsWriteFlash(h, 2048, nullptr); },
         qsNullPtrErr, ""},
        {"FPGA id into null", kNoDevice, [](int h, Seen&) { return qsGetFPGAid(h, nullptr); }, qsNullPtrErr, ""},
        {"time base into null", kNoDevice, [](int h, Seen&) { return qsGetTimebaseCorrection(h, nullptr); },
         qsNullPtrErr, ""},
        {"device type into null", kNoDevice, [](int h, Seen&) { return qsGetDeviceType(h, nullptr); }, qsNullPtrErr,
         ""},
        {"serial number into null", kNoDevice, [](int h, Seen&) { return qsGetSerialNumber(h, nullptr); },
         qsNullPtrErr, ""},
        {"firmware version into null", kNoDevice, [](int h, Seen&) { return qsGetFirmwareVersion(h, nullptr); },
         qsNullPtrErr, ""},
        {"Maple revision into null", kNoDevice, [](int h, Seen&) { return qsGetMapleRev(h, nullptr); }, qsNullPtrErr,
         ""},
    };
    std::vector<Row> all(std::begin(rows), std::end(rows));
    for (Row r : both)
        for (Target t : {kLarch, kMaple}) {
            r.target = t;
            all.push_back(r);
        }

    for (const Row& r : all) {
        const int h = r.target == kLarch ? g.larch : r.target == kMaple ? g.maple : 7;
        SCOPED_TRACE(testing::Message() << r.what << (r.target == kLarch ? " (Larch)" : r.target == kMaple ? " (Maple)" : ""));
        Seen seen;
        EXPECT_EQ(r.call(h, seen), r.status);
        EXPECT_EQ(seen, r.seen);
    }

    qsCloseDevice(g.larch);
    qsCloseDevice(g.maple);
    qssim_reset();
}

}  // namespace

// Status texts and the handle and pointer checks of the calls that need no
// measurement.
#include <gtest/gtest.h>

#include <string>

#include "qs_api.h"
#include "qs_sim.h"

namespace {

TEST(StatusText, CodesOutsideTheTableAreUnrecognised) {
    for (int code : {9, -19, -99, -113, 100, -1000, 0x7fffffff})
        EXPECT_STREQ(qsGetErrorString(static_cast<qsStatus>(code)), "Unrecognized Status Code")
            << "code " << code;
}

// Every device call built so far refuses a handle outside 0..7 or an empty
// slot before it looks at its other arguments.
TEST(HandleCheck, BadHandlesAreRefusedBeforeAnythingElse) {
    qssim_reset();
    int type = 0, rev = 0, version = 0;
    unsigned sid = 0;
    for (int h : {-1, 0, 7, 8, 1 << 30}) {
        EXPECT_EQ(qsCloseDevice(h), qsDeviceNotOpenErr) << h;
        EXPECT_EQ(qsPreset(h), qsDeviceNotOpenErr) << h;
        EXPECT_EQ(qsGetDeviceType(h, &type), qsDeviceNotOpenErr) << h;
        EXPECT_EQ(qsGetDeviceType(h, nullptr), qsDeviceNotOpenErr) << h;
        EXPECT_EQ(qsGetSerialNumber(h, &sid), qsDeviceNotOpenErr) << h;
        EXPECT_EQ(qsGetFirmwareVersion(h, &version), qsDeviceNotOpenErr) << h;
        EXPECT_EQ(qsGetMapleRev(h, &rev), qsDeviceNotOpenErr) << h;
        int handle = h;
        EXPECT_EQ(qsPresetFull(&handle), qsDeviceNotOpenErr) << h;
    }
}

TEST(HandleCheck, NullPointersAreRefused) {
    qssim_reset();
    int count = 0, serials[QS_MAX_DEVICES];
    EXPECT_EQ(qsOpenDevice(nullptr), qsNullPtrErr);
    EXPECT_EQ(qsOpenDeviceBySerialNumber(nullptr, 1), qsNullPtrErr);
    EXPECT_EQ(qsGetSerialNumberList(nullptr, &count), qsNullPtrErr);
    EXPECT_EQ(qsGetSerialNumberList(serials, nullptr), qsNullPtrErr);
    EXPECT_EQ(qsPresetFull(nullptr), qsNullPtrErr);
}

}  // namespace

// A program written only against qs_api.h and qs_sim.h, linked with the
// shipped libqs_api.so and libqs_usbsim.so as a user would link them.
#include <gtest/gtest.h>

#include "qs_api.h"
#include "qs_sim.h"

TEST(LinkedProgram, ListsOpensAndClosesThroughTheSharedLibraries) {
    qssim_reset();
    qssim_add_device(QSSIM_PID_LARCH, 10000001);
    qssim_add_device(QSSIM_PID_MAPLE_REV1, 20000002);
    qssim_add_device(QSSIM_PID_MAPLE_REV2, 30000003);

    int serials[QS_MAX_DEVICES];
    int count = 0;
    ASSERT_EQ(qsGetSerialNumberList(serials, &count), qsNoError);
    ASSERT_EQ(count, 3);
    EXPECT_EQ(serials[0], 10000001);
    EXPECT_EQ(serials[2], 30000003);

    int larch = -1, maple = -1;
    ASSERT_EQ(qsOpenDeviceBySerialNumber(&larch, 10000001), qsNoError);
    ASSERT_EQ(qsOpenDeviceBySerialNumber(&maple, 30000003), qsNoError);
    int type = 0, rev = 0;
    ASSERT_EQ(qsGetDeviceType(larch, &type), qsNoError);
    EXPECT_EQ(type, QS_DEVICE_TYPE_LARCH);
    ASSERT_EQ(qsGetDeviceType(maple, &type), qsNoError);
    EXPECT_EQ(type, QS_DEVICE_TYPE_MAPLE);
    ASSERT_EQ(qsGetMapleRev(maple, &rev), qsNoError);
    EXPECT_EQ(rev, 2);

    ASSERT_EQ(qsGetSerialNumberList(serials, &count), qsNoError);
    ASSERT_EQ(count, 1);
    EXPECT_EQ(serials[0], 20000002);

    EXPECT_EQ(qsCloseDevice(larch), qsNoError);
    EXPECT_EQ(qsCloseDevice(maple), qsNoError);
    EXPECT_STREQ(qsGetErrorString(qsDeviceNotOpenErr), "Device not Open");
}

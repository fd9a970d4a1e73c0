// The unchanged production library, linked to the system libusb, with the
// simulator preloaded in its place. The scene comes from QS_SIM_DEVICES
// (set by the test registration): a Maple rev 2 12345678, a Larch 10000001
// and a foreign product 55555555.
#include <gtest/gtest.h>

#include "qs_api.h"

TEST(PreloadedSimulator, TheProductionLibraryFindsAndOpensTheSimulatedDevices) {
    int serials[QS_MAX_DEVICES];
    int count = 0;
    ASSERT_EQ(qsGetSerialNumberList(serials, &count), qsNoError);
    ASSERT_EQ(count, 2);
    EXPECT_EQ(serials[0], 12345678);
    EXPECT_EQ(serials[1], 10000001);

    int maple = -1, larch = -1, type = 0;
    ASSERT_EQ(qsOpenDevice(&maple), qsNoError);
    ASSERT_EQ(qsOpenDeviceBySerialNumber(&larch, 10000001), qsNoError);
    ASSERT_EQ(qsGetDeviceType(maple, &type), qsNoError);
    EXPECT_EQ(type, QS_DEVICE_TYPE_MAPLE);
    ASSERT_EQ(qsGetDeviceType(larch, &type), qsNoError);
    EXPECT_EQ(type, QS_DEVICE_TYPE_LARCH);
    EXPECT_EQ(qsCloseDevice(maple), qsNoError);
    EXPECT_EQ(qsCloseDevice(larch), qsNoError);
}

// libusb that cannot start. A test executable of its own, because the
// library remembers a successful start for the life of the process.
#include <gtest/gtest.h>

#include "qs_api.h"
#include "qs_sim.h"

TEST(LibusbStart, AFailedStartIsReportedAndRetriedAtTheNextCall) {
    qssim_reset();
    qssim_add_device(QSSIM_PID_MAPLE_REV2, 12345678);
    qssim_set_init_failure(1);
    int serials[QS_MAX_DEVICES];
    int count = 77;
    EXPECT_EQ(qsGetSerialNumberList(serials, &count), qsLibusbError);
    EXPECT_EQ(count, 77);  // left unwritten
    int h = 3;
    EXPECT_EQ(qsOpenDevice(&h), qsLibusbError);
    EXPECT_EQ(h, -1);

    // The failure is not remembered: once libusb starts, all works.
    qssim_set_init_failure(0);
    ASSERT_EQ(qsGetSerialNumberList(serials, &count), qsNoError);
    EXPECT_EQ(count, 1);
    ASSERT_EQ(qsOpenDevice(&h), qsNoError);
    EXPECT_EQ(qsCloseDevice(h), qsNoError);
}

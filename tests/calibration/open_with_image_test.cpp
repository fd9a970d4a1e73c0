// What the calibration image in the simulated flash means to an opened
// device, through the public calls: identity, validity, and the time-base
// slots that survive a close and a reopen.
#include <gtest/gtest.h>

#include <vector>

#include "qs_api.h"
#include "qs_sim.h"

namespace {

constexpr unsigned kSerial = 23456789;

class ImageAtOpen : public ::testing::Test {
protected:
    void SetUp() override {
        qssim_reset();
        sim = qssim_add_device(QSSIM_PID_MAPLE_REV2, kSerial);
    }
    void TearDown() override {
        if (h >= 0) qsCloseDevice(h);
        qssim_reset();
    }
    qsStatus Open() { return qsOpenDeviceBySerialNumber(&h, static_cast<int>(kSerial)); }
    void Reopen() {
        ASSERT_EQ(qsCloseDevice(h), qsNoError);
        h = -1;
        ASSERT_GE(Open(), 0);
    }
    double Ratio() {
        double ratio = 0.0;
        EXPECT_EQ(qsGetTimebaseCorrection(h, &ratio), qsNoError);
        return ratio;
    }
    int sim = -1;
    int h = -1;
};

// A Maple without its tables opens uncalibrated; a Larch opens whatever its
// flash holds. The header alone decides whether a device knows its serial
// number and firmware.
TEST(ImageKinds, OpenStatusAndIdentityOnBothModels) {
    const struct {
        int pid, image;
        qsStatus open, identity;
    } cases[] = {
        {QSSIM_PID_MAPLE_REV2, QSSIM_FLASH_CALIBRATED, qsNoError, qsNoError},
        {QSSIM_PID_MAPLE_REV2, QSSIM_FLASH_BLANK_TABLES, qsUncalibratedDevice, qsNoError},
        {QSSIM_PID_MAPLE_REV2, QSSIM_FLASH_ERASED, qsUncalibratedDevice, qsDeviceInvalidErr},
        {QSSIM_PID_LARCH, QSSIM_FLASH_CALIBRATED, qsNoError, qsNoError},
        {QSSIM_PID_LARCH, QSSIM_FLASH_BLANK_TABLES, qsNoError, qsNoError},
        {QSSIM_PID_LARCH, QSSIM_FLASH_ERASED, qsNoError, qsDeviceInvalidErr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "product " << c.pid << " image " << c.image);
        qssim_reset();
        ASSERT_EQ(qssim_set_flash_image(qssim_add_device(c.pid, kSerial), c.image), 0);
        int h = -1, firmware = 0;
        unsigned sid = 0;
        ASSERT_EQ(qsOpenDeviceBySerialNumber(&h, static_cast<int>(kSerial)), c.open);
        EXPECT_EQ(qsGetSerialNumber(h, &sid), c.identity);
        EXPECT_EQ(qsGetFirmwareVersion(h, &firmware), c.identity);
        if (c.identity == qsNoError) {
            EXPECT_EQ(sid, kSerial);
            EXPECT_GE(firmware, 5);
        }
        double ratio = 0.0;
        if (c.image == QSSIM_FLASH_CALIBRATED) {
            EXPECT_EQ(qsGetTimebaseCorrection(h, &ratio), qsNoError);
            EXPECT_DOUBLE_EQ(ratio, 1.0);
        }
        qsCloseDevice(h);
    }
    qssim_reset();
}

TEST_F(ImageAtOpen, ErasedFlashOpensAnInvalidDeviceThatStillServesTheFlash) {
    ASSERT_EQ(qssim_set_flash_image(sim, QSSIM_FLASH_ERASED), 0);
    ASSERT_EQ(Open(), qsUncalibratedDevice);
    EXPECT_EQ(qsInitiate(h, QS_MODE_SWEEP, 0), qsDeviceInvalidErr);
    std::vector<unsigned char> page(65536, 0);
    ASSERT_EQ(qsReadFlash(h, 8, page.data()), qsNoError);
    for (unsigned char byte : page) ASSERT_EQ(byte, 0xFF);
    // A device opened invalid cannot be reopened by qsPresetFull: its
    // serial number reads as 0.
    EXPECT_EQ(qsPresetFull(&h), qsDeviceNotOpenErr);
    EXPECT_EQ(h, -1);
}

TEST_F(ImageAtOpen, TheNewestTimebaseSlotIsInForce) {
    ASSERT_EQ(qssim_set_timebase_slots(sim, 3, 2.0), 0);
    ASSERT_EQ(Open(), qsNoError);
    EXPECT_NEAR(Ratio(), 1.0 - 2e-6, 1e-12);
    // The external reference sets the ratio aside while it is selected.
    ASSERT_EQ(qsConfigureIO(h, QS_PORT1_EXT_REF, 0), qsNoError);
    EXPECT_DOUBLE_EQ(Ratio(), 1.0);
    ASSERT_EQ(qsConfigureIO(h, 0, 0), qsNoError);
    EXPECT_NEAR(Ratio(), 1.0 - 2e-6, 1e-12);
}

TEST_F(ImageAtOpen, AddedCorrectionsFillTheSlotsAndSurviveAReopenUntilFull) {
    ASSERT_EQ(qssim_set_timebase_slots(sim, 254, 1.0), 0);
    ASSERT_EQ(Open(), qsNoError);
    const double before = Ratio();
    ASSERT_EQ(qsAddTimebaseCorrection(h, 0.5), qsNoError);
    Reopen();
    const double afterOne = Ratio();
    EXPECT_NEAR(afterOne, before - 0.5e-6, 1e-12);
    ASSERT_EQ(qsAddTimebaseCorrection(h, 0.5), qsNoError);  // the last free slot
    Reopen();
    const double full = Ratio();
    EXPECT_NEAR(full, afterOne - 0.5e-6, 1e-12);
    ASSERT_EQ(qsAddTimebaseCorrection(h, 0.5), qsNoError);  // no slot left: nothing kept
    Reopen();
    EXPECT_DOUBLE_EQ(Ratio(), full);
}

}  // namespace

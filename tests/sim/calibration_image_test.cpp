// The factory image in the simulated flash, read back field by field at the
// flash format's offsets by a reader of the test's own; its kinds (erased,
// blank tables, blank header); the timebase list; and a calibrated device
// opened through the public calls.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "qs_api.h"
#include "qs_sim.h"
#include "sim_calibration.h"
#include "sim_firmware.h"
#include "sim_gain_model.h"

namespace {

constexpr unsigned kImage = 0x80000;

struct Flash {
    std::vector<unsigned char> bytes;
    Flash(int id, unsigned pages) : bytes(pages * 65536) {
        EXPECT_EQ(qssim_flash_read(id, kImage, bytes.data(), unsigned(bytes.size())), 0);
    }
    uint32_t U32(size_t at) const {
        return bytes[at] | (bytes[at + 1] << 8) | (bytes[at + 2] << 16) | (uint32_t(bytes[at + 3]) << 24);
    }
    uint16_t U16(size_t at) const { return static_cast<uint16_t>(bytes[at] | (bytes[at + 1] << 8)); }
    float F(size_t at) const {
        const uint32_t b = U32(at);
        float f;
        std::memcpy(&f, &b, 4);
        return f;
    }
    double D(size_t at) const {
        const uint64_t b = U32(at) | (uint64_t(U32(at + 4)) << 32);
        double d;
        std::memcpy(&d, &b, 8);
        return d;
    }
    bool Blank(size_t at, size_t len) const {
        for (size_t i = 0; i < len; ++i)
            if (bytes[at + i] != 0xFF) return false;
        return true;
    }
};

class CalibrationImage : public ::testing::Test {
protected:
    void SetUp() override { qssim_reset(); }
    void TearDown() override { qssim_reset(); }
};

// Steps of the ten RF tables of each revision, in image order.
const int kSteps1[10] = {105, 94, 31, 32, 58, 40, 24, 1, 10, 30};
const int kSteps2[10] = {105, 94, 31, 32, 53, 45, 20, 5, 10, 30};

TEST_F(CalibrationImage, MapleFieldsSitAtTheirOffsets) {
    for (int pid : {QSSIM_PID_MAPLE_REV1, QSSIM_PID_MAPLE_REV2}) {
        SCOPED_TRACE(pid);
        const unsigned serial = pid == QSSIM_PID_MAPLE_REV1 ? 12345678u : 23456789u;
        const int id = qssim_add_device(pid, serial);
        const Flash f(id, 12);
        const qssim::GainModel model(pid, serial);
        EXPECT_EQ(f.U32(0), serial);
        EXPECT_GE(f.U16(10), 5);  // firmware version: tracking-generator sweeps allowed
        EXPECT_FALSE(f.Blank(0, 8));
        EXPECT_FALSE(f.Blank(256, 32));

        // Rough gains: a low and a high code per 20 MHz, the high well above.
        for (int r = 0; r < 310; r += 37) EXPECT_GE(f.bytes[566 + r], f.bytes[256 + r] + 8) << r;

        // Temperatures ascend once the stored negatives (512 up) are undone.
        float prev = -1e9f;
        for (int t = 0; t < 12; ++t) {
            float temp = f.F(600876 + 4 * t);
            if (temp > 256.0f) temp -= 512.0f;
            EXPECT_GT(temp, prev);
            EXPECT_FLOAT_EQ(temp, float(model.TableTemp(t)));
            prev = temp;
        }
        EXPECT_GT(f.F(600876), 256.0f);  // the first table temperature is below zero

        // An RF value: row 4, attenuation index 2, gain 3, temperature 5,
        // step 7: the correction that turns the model's gain into dBm.
        const int* steps = pid == QSSIM_PID_MAPLE_REV1 ? kSteps1 : kSteps2;
        size_t row4 = 0;
        for (int r = 0; r < 4; ++r) row4 += size_t(steps[r]) * 192;
        const size_t at = 876 + 4 * (row4 + size_t((2 * 4 + 3) * 12 + 5) * steps[4] + 7);
        const double freq = 3160e6 + 7 * 20e6;
        const int rough = f.bytes[566 + int(freq / 20e6)];
        const double gain = model.MapleCentreGainDb(4, freq, 20, rough, model.TableTemp(5));
        EXPECT_NEAR(f.F(at), 20 * std::log10(2.0) - gain, 1e-4);
        // Neighbouring curves differ as the attenuator and gain do.
        const size_t atten3 = 876 + 4 * (row4 + size_t((3 * 4 + 3) * 12 + 5) * steps[4] + 7);
        EXPECT_NEAR(f.F(atten3) - f.F(at), 10.0 * (1 + 0.012 * freq / 1e9), 1e-3);

        // IF table of row 6, temperature 2: zero at index 191, the filter's
        // roll-off at the ends.
        const size_t if6 = 327276 + 6 * 18432 + 4 * (2 * 384);
        EXPECT_FLOAT_EQ(f.F(if6 + 4 * 191), 0.0f);
        EXPECT_NEAR(f.F(if6 + 4 * 250), model.IfResponseDb(6, 59 * 78125.0), 1e-5);
        EXPECT_LT(f.F(if6 + 4 * 383), -5.0f);

        // Slope polynomial of temperature 3, row 60 (1.2 GHz): the shape's
        // change across the slice; rows up to 6 are flat.
        const size_t poly = 511596 + 4 * size_t((3 * 310 + 60) * 6);
        for (double x : {-0.6, -0.2, 0.3, 0.66}) {
            float v = 0;
            for (int k = 5; k >= 0; --k) v = float(x) * (f.F(poly + 4 * k) + v);
            EXPECT_NEAR(v, qssim::GainModel::ShapeDb(1.2e9 + x * 1.5e7) - qssim::GainModel::ShapeDb(1.2e9), 0.01);
        }
        for (int k = 0; k < 6; ++k) EXPECT_EQ(f.F(511596 + 4 * size_t((3 * 310 + 6) * 6 + k)), 0.0f);

        for (int i = 0; i < 120; ++i) {
            EXPECT_GT(f.F(600924 + 4 * i), 70.0f);
            EXPECT_LT(f.F(600924 + 4 * i), 120.0f);
        }
        EXPECT_EQ(f.D(601408), 1.0);
        for (int s = 0; s < 256; ++s) EXPECT_TRUE(std::isnan(f.D(601424 + 8 * s))) << s;
        EXPECT_TRUE(f.Blank(603472, 12 * 65536 - 603472));
    }
}

TEST_F(CalibrationImage, KindsAndTimebaseSlots) {
    const int id = qssim_add_device(QSSIM_PID_MAPLE_REV2, 777);
    ASSERT_EQ(qssim_set_flash_image(id, QSSIM_FLASH_ERASED), 0);
    EXPECT_TRUE(Flash(id, 12).Blank(0, 12 * 65536));

    ASSERT_EQ(qssim_set_flash_image(id, QSSIM_FLASH_BLANK_TABLES), 0);
    {
        const Flash f(id, 12);
        EXPECT_EQ(f.U32(0), 777u);
        EXPECT_TRUE(f.Blank(256, 12 * 65536 - 256));
    }
    ASSERT_EQ(qssim_set_flash_image(id, QSSIM_FLASH_BLANK_HEADER), 0);
    {
        const Flash f(id, 12);
        EXPECT_TRUE(f.Blank(0, 256));
        EXPECT_FALSE(f.Blank(256, 32));
    }
    EXPECT_EQ(qssim_set_flash_image(id, 9), -1);
    EXPECT_EQ(qssim_set_flash_image(id + 5, QSSIM_FLASH_ERASED), -1);

    ASSERT_EQ(qssim_set_timebase_slots(id, 3, 2.0), 0);
    {
        const Flash f(id, 12);
        EXPECT_EQ(f.U32(0), 777u);  // a complete image again
        EXPECT_FALSE(std::isnan(f.D(601424)));
        EXPECT_NEAR(f.D(601424 + 16), 1.0 - 2e-6, 1e-15);  // the newest
        EXPECT_TRUE(std::isnan(f.D(601424 + 24)));
    }
    EXPECT_EQ(qssim_set_timebase_slots(id, 257, 1.0), -1);
    const int larch = qssim_add_device(QSSIM_PID_LARCH, 778);
    EXPECT_EQ(qssim_set_timebase_slots(larch, 1, 1.0), -1);

    // Only the image's pages are touched; the rest of the flash stays erased.
    unsigned char page0[16];
    ASSERT_EQ(qssim_flash_read(id, 0, page0, sizeof page0), 0);
    for (unsigned char b : page0) EXPECT_EQ(b, 0xFF);
}

TEST_F(CalibrationImage, LarchFieldsSitAtTheirOffsets) {
    const int id = qssim_add_device(QSSIM_PID_LARCH, 10000001);
    const Flash f(id, 8);
    EXPECT_EQ(f.U32(0), 10000001u);
    EXPECT_GE(f.U16(10), 5);
    // band1 (B1, 116 steps from 1.99 GHz): gain 3 loses 8 dB less than gain 2.
    const size_t b1 = 132352;
    const size_t g2 = b1 + 4 * (size_t((0 * 4 + 2) * 8 + 3) * 116 + 20);
    const size_t g3 = b1 + 4 * (size_t((0 * 4 + 3) * 8 + 3) * 116 + 20);
    EXPECT_NEAR(f.F(g2) - f.F(g3), 8.0, 1e-4);
    for (int t = 0; t < 8; ++t) EXPECT_FLOAT_EQ(f.F(397184 + 4 * t), 10.0f * t);
    for (int i = 0; i < 32; ++i) {
        EXPECT_GT(f.F(397216 + 4 * i), 70.0f);
        EXPECT_LT(f.F(397216 + 4 * i), 120.0f);
    }
    // IF0: index 150 is the IF centre.
    EXPECT_FLOAT_EQ(f.F(358656 + 4 * 150), 0.0f);
    EXPECT_EQ(f.D(397344), 1.0);
    EXPECT_TRUE(f.Blank(398384, 8 * 65536 - 398384));
}

// Moving a Larch's IF filter rewrites its image: the RF tables hold the
// path less the moved filter's mean over the middle of the band, and
// nothing else changes. A Maple refuses the call.
TEST_F(CalibrationImage, LarchIfCentreRewritesTheImagesSelfCalibrationMean) {
    const int id = qssim_add_device(QSSIM_PID_LARCH, 10000001);
    const Flash before(id, 8);
    ASSERT_EQ(qssim_set_larch_if_centre(id, 700e3), 0);
    const Flash after(id, 8);
    qssim::GainModel centred(QSSIM_PID_LARCH, 10000001), moved(QSSIM_PID_LARCH, 10000001);
    moved.SetLarchIfCentre(700e3);
    const double shift = moved.LarchSelfCalMeanDb() - centred.LarchSelfCalMeanDb();
    ASSERT_GT(std::fabs(shift), 0.01);
    for (size_t at : {size_t(256), size_t(132352 + 4 * 999), size_t(276736 + 4 * 20000)})
        EXPECT_NEAR(after.F(at) - before.F(at), -shift, 1e-5) << at;
    EXPECT_EQ(std::memcmp(before.bytes.data() + 358656, after.bytes.data() + 358656, 397344 - 358656), 0)
        << "IF tables, temperatures and trigger delays stay";

    EXPECT_EQ(qssim_set_larch_if_centre(qssim_add_device(QSSIM_PID_MAPLE_REV1, 12345678), 1e5), -1);
    EXPECT_EQ(qssim_set_larch_if_centre(id, std::nan("")), -1);
    EXPECT_EQ(qssim_set_larch_if_centre(99, 0.0), -1);
}

TEST(CalibrationFlash, ImageIsWrittenAtFirstUseAndNotAfterAClear) {
    int writes = 0;
    auto init = [&writes](uint8_t* flash) {
        ++writes;
        flash[kImage] = 0x12;
    };
    std::vector<uint8_t> clear(1024, 0);
    clear[0] = qssim::kCmdClearFlash;
    clear[4] = clear[6] = 0xC3;
    clear[5] = clear[7] = 0x5A;

    qssim::Firmware fw(QSSIM_PID_MAPLE_REV1, 1, nullptr);
    fw.SetFlashInit(init);
    EXPECT_EQ(writes, 0);  // nothing is made before it is needed
    EXPECT_EQ(fw.Flash()[kImage], 0x12);
    fw.OnCommand(clear.data(), 1024, qssim::Clock::now());
    EXPECT_EQ(fw.Flash()[kImage], 0xFF);
    EXPECT_EQ(writes, 1);

    qssim::Firmware fresh(QSSIM_PID_MAPLE_REV1, 2, nullptr);
    fresh.SetFlashInit(init);
    fresh.OnCommand(clear.data(), 1024, qssim::Clock::now());  // cleared before first use
    EXPECT_EQ(fresh.Flash()[kImage], 0xFF);
    EXPECT_EQ(writes, 1);
}

// A Maple opened through the public calls reads its identity from the
// image; with the image erased it opens as an invalid device.
TEST_F(CalibrationImage, OpenedMapleReportsTheImagesIdentity) {
    qssim_add_device(QSSIM_PID_MAPLE_REV2, 20202020);
    const int erased = qssim_add_device(QSSIM_PID_MAPLE_REV1, 30303030);
    ASSERT_EQ(qssim_set_flash_image(erased, QSSIM_FLASH_ERASED), 0);
    int handle = -1;
    ASSERT_EQ(qsOpenDeviceBySerialNumber(&handle, 20202020), qsNoError);
    int firmware = 0;
    unsigned serial = 0;
    EXPECT_EQ(qsGetFirmwareVersion(handle, &firmware), qsNoError);
    EXPECT_EQ(qsGetSerialNumber(handle, &serial), qsNoError);
    qsCloseDevice(handle);
    EXPECT_EQ(serial, 20202020u);
    EXPECT_EQ(firmware, qssim::kCalFirmwareVersion);

    ASSERT_GE(qsOpenDeviceBySerialNumber(&handle, 30303030), qsNoError);  // a warning at most
    EXPECT_EQ(qsGetSerialNumber(handle, &serial), qsDeviceInvalidErr);
    qsCloseDevice(handle);
}

// The whole road: a tone at the antenna comes out of a sweep at its level.
TEST_F(CalibrationImage, SweptToneReadsBackItsLevel) {
    const int id = qssim_add_device(QSSIM_PID_MAPLE_REV1, 40404040);
    qssim_set_tone(id, 1.01e9, -35.0);
    qssim_set_noise(id, -160.0);
    int handle = -1;
    ASSERT_EQ(qsOpenDeviceBySerialNumber(&handle, 40404040), qsNoError);
    ASSERT_EQ(qsConfigureCenterSpan(handle, 1.01e9, 20e6), qsNoError);
    ASSERT_EQ(qsConfigureLevel(handle, -20.0, QS_ATTEN_AUTO), qsNoError);
    ASSERT_EQ(qsConfigureSweepCoupling(handle, 9863.28125, 9863.28125, 0.001, QS_RBW_SHAPE_NATIVE,
                                       QS_REJECTION_NONE),
              qsNoError);
    ASSERT_EQ(qsInitiate(handle, QS_MODE_SWEEP, 0), qsNoError);
    unsigned len = 0;
    double bin = 0, start = 0;
    ASSERT_EQ(qsQueryTraceInfo(handle, &len, &bin, &start), qsNoError);
    std::vector<double> mn(len), mx(len);
    // The tone sits on a bin (1.01 GHz is 206,848 bins of 4,882.8125 Hz), so
    // the level reads without scalloping. Sweeps are set up at the last
    // temperature the device reported (one monitor value a block, the
    // temperature every seventh), so the first may be off by the drift from
    // 0 degrees; once it has come in, the level is exact.
    qssim_set_temperature(id, 45.0);
    float celsius = 0;
    // The reading carries a sixteenth of a degree of converter noise.
    auto known = [&celsius] { return std::fabs(celsius - 45.0f) < 0.2f; };
    bool exact = false;
    for (int pass = 0; pass < 12; ++pass) {
        ASSERT_GE(qsFetchTrace(handle, int(len), mn.data(), mx.data()), qsNoError);
        size_t peak = 0;
        for (size_t i = 1; i < len; ++i)
            if (mx[i] > mx[peak]) peak = i;
        EXPECT_NEAR(start + peak * bin, 1.01e9, 0.5 * bin) << pass;
        EXPECT_NEAR(mx[peak], -35.0, exact ? 0.1 : 1.5) << pass;
        if (exact) break;
        ASSERT_EQ(qsGetDeviceDiagnostics(handle, &celsius, nullptr, nullptr), qsNoError);
        if (known()) {
            ASSERT_EQ(qsInitiate(handle, QS_MODE_SWEEP, 0), qsNoError);
            exact = true;
        }
    }
    EXPECT_TRUE(exact) << "no temperature reading came in";
    qsCloseDevice(handle);
}

}  // namespace

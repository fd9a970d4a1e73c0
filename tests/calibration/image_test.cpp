// The calibration image: identity, blank detection, where each table is
// read from, the timebase slots, the Larch's repairs, and the page-by-page
// load through the flash reader.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "calibration/corrections_larch.h"
#include "calibration/corrections_maple.h"
#include "image_writer.h"

using namespace qs;
using caltest::LarchImage;
using caltest::MapleImage;

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

using LarchTables = CorrectionsLarch;

TEST(FlashIdentity, SerialAndFirmwareFromTheHeader) {
    MapleImage img;
    img.Put<uint32_t>(0, 123456789u);
    img.Put<uint16_t>(10, 0x0207);
    FlashIdentity id = parse_flash_identity(img.data(), img.size());
    EXPECT_FALSE(id.blank);
    EXPECT_EQ(id.sid, 123456789u);
    EXPECT_EQ(id.firmwareVersion, 0x0207);

    // Erased first 8 bytes make the header blank whatever follows.
    img.Fill(0, 8, 0xFF);
    EXPECT_TRUE(parse_flash_identity(img.data(), img.size()).blank);
    img.Put<uint8_t>(7, 0xFE);
    EXPECT_FALSE(parse_flash_identity(img.data(), img.size()).blank);
    // Too short to hold the firmware version.
    EXPECT_TRUE(parse_flash_identity(img.data(), 11).blank);
    EXPECT_TRUE(parse_flash_identity(img.data(), 0).blank);
}

TEST(MapleImageLoad, TablesComeFromTheirOffsets) {
    for (int rev : {1, 2}) {
        MapleImage img(rev);
        img.Put<uint8_t>(256 + 17, 5);
        img.Put<uint8_t>(566 + 309, 9);
        img.RF(0, 0, 0, 0, 0, 1.5f);
        img.RF(4, 2, 1, 7, 11, -3.25f);   // row 4 differs between revisions
        img.RF(9, 3, 3, 11, 29, 8.5f);    // the very last RF float
        img.IF(6, 3, 200, 0.75f);
        img.Slope(11, 309, 5, 2.5f);
        img.Temp(0, 500.0f);              // stored offset by 512
        img.Temp(1, 256.0f);
        img.Trig(11, 9, 93.0f);
        img.Put<double>(caltest::kMapleOsc, 1.0000021);

        CorrectionsMaple c(rev);
        ASSERT_TRUE(c.Initialize(img.data()));
        EXPECT_EQ(c.rg_low[17], 5);
        EXPECT_EQ(c.rg_high[309], 9);
        EXPECT_EQ(c.rf_bands[0]->b[0][0][0][0], 1.5f);
        EXPECT_EQ(c.rf_bands[4]->b[2][1][7][11], -3.25f) << "revision " << rev;
        EXPECT_EQ(c.rf_bands[9]->b[3][3][11][29], 8.5f);
        EXPECT_EQ(c.if_bands[6]->b[3][200], 0.75f);
        EXPECT_EQ(c.slope_functions[11][309].c[5], 2.5f);
        EXPECT_EQ(c.internalTemps[0], -12.0f);
        EXPECT_EQ(c.internalTemps[1], 256.0f);
        EXPECT_EQ(c.m_trigDelays->b[11][9], 93.0f);
        EXPECT_EQ(c.GetOscRatio(), 1.0000021);  // no timebase slot written
    }
}

TEST(MapleImageLoad, BlankRoughGainsRefuseTheImage) {
    MapleImage good;
    good.RF(1, 0, 0, 0, 0, 4.0f);
    CorrectionsMaple c(1);
    ASSERT_TRUE(c.Initialize(good.data()));

    MapleImage blank;
    blank.Fill(256, 32, 0xFF);
    blank.RF(1, 0, 0, 0, 0, 9.0f);
    EXPECT_FALSE(c.Initialize(blank.data()));
    EXPECT_EQ(c.rf_bands[1]->b[0][0][0][0], 4.0f) << "a refused image changes nothing";

    // One written byte among the 32 is enough.
    blank.Put<uint8_t>(256 + 31, 0);
    EXPECT_TRUE(c.Initialize(blank.data()));
    EXPECT_EQ(c.rf_bands[1]->b[0][0][0][0], 9.0f);

    // An all-erased device.
    caltest::Image erased(caltest::kMapleSize, 0xFF);
    CorrectionsMaple fresh(1);
    EXPECT_FALSE(fresh.Initialize(erased.data()));
    EXPECT_EQ(fresh.rg_high[0], 8);
    EXPECT_EQ(fresh.GetOscRatio(), 1.0);
}

TEST(MapleTimebase, NewestSlotIsInForce) {
    MapleImage img;
    img.Put<double>(caltest::kMapleOsc, 0.5);
    CorrectionsMaple c(1);

    ASSERT_TRUE(c.Initialize(img.data()));
    EXPECT_EQ(c.GetOscRatio(), 0.5) << "no slot: the image's ratio";

    img.Timebase(0, 1.1);
    img.Timebase(1, 1.2);
    img.Timebase(3, 1.4);  // behind an erased slot: never reached
    ASSERT_TRUE(c.Initialize(img.data()));
    EXPECT_EQ(c.GetOscRatio(), 1.2);

    for (int s = 0; s < 256; ++s) img.Timebase(s, 2.0 + s);
    ASSERT_TRUE(c.Initialize(img.data()));
    EXPECT_EQ(c.GetOscRatio(), 2.0 + 255);

    img.Timebase(0, kNaN);  // slot 0 erased: the others are ignored
    ASSERT_TRUE(c.Initialize(img.data()));
    EXPECT_EQ(c.GetOscRatio(), 0.5);
}

TEST(MapleTimebase, AppendFillsTheFirstErasedSlotOnce) {
    MapleImage img;
    for (int s = 0; s < 255; ++s) img.Timebase(s, 1.0);
    CorrectionsMaple c(1);
    ASSERT_TRUE(c.Initialize(img.data()));

    int writes = 0;
    int page = -1;
    std::vector<unsigned char> data;
    auto writer = [&](int p, const unsigned char* d) {
        ++writes;
        page = p;
        data.assign(d, d + 256);
    };
    ASSERT_TRUE(add_timebase_correction_maple(c, 2.0, writer));
    const double value = 1.0 - 2.0e-6;
    EXPECT_EQ(c.GetOscRatio(), value);
    EXPECT_EQ(c.timebase_corrections[255], value);
    // Slot 255 is image offset 603,464: write page 2048 + 2357, byte 72.
    EXPECT_EQ(page, 4405);
    double stored;
    std::memcpy(&stored, data.data() + 72, 8);
    EXPECT_EQ(stored, value);
    int erased = 0;
    for (int i = 0; i < 256; ++i) erased += (i < 72 || i >= 80) && data[size_t(i)] == 0xFF;
    EXPECT_EQ(erased, 248);

    EXPECT_FALSE(add_timebase_correction_maple(c, 5.0, writer)) << "all slots taken";
    EXPECT_EQ(writes, 1);
    EXPECT_EQ(c.GetOscRatio(), value);

    // A device whose image was blank appends to slot 0.
    CorrectionsMaple blank(2);
    EXPECT_EQ(blank.AddTimebaseCorrection(1.5), 601424);
    EXPECT_EQ(blank.AddTimebaseCorrection(1.6), 601432);
}

TEST(TableClasses, FlattenInvertsDeflatten) {
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> d(-100.0f, 100.0f);
    auto round_trip = [&](auto& table, size_t n) {
        std::vector<float> in(n), out(n, 0.0f);
        for (float& v : in) v = d(rng);
        table.Deflatten(in.data());
        table.Flatten(out.data());
        return in == out;
    };
    for (int row = 0; row < 10; ++row) {
        RFCorrMaple rf(RFCorrParamsMaple2[row]);
        EXPECT_TRUE(round_trip(rf, size_t(rf.m_steps) * 192)) << row;
    }
    RFCorrLarch larch(197, 2e7, 1.98e9, 1e7);
    EXPECT_TRUE(round_trip(larch, 197 * 128));
    IFCorrMaple ifm(9e8);
    EXPECT_TRUE(round_trip(ifm, 12 * 384));
    IFCorrLarch ifl(1e9);
    EXPECT_TRUE(round_trip(ifl, 8 * 301));
    TriggerCorrMaple tm;
    EXPECT_TRUE(round_trip(tm, 120));
    SlopePoly_Maple sp;
    EXPECT_TRUE(round_trip(sp, 6));

    // The curve pointers follow the image's order: t fastest, a slowest.
    RFCorrMaple r(RFCorrParamsMaple1[2]);
    EXPECT_EQ(r.b[1][2][3] - r.b[0][0][0], ((1 * 4 + 2) * 12 + 3) * 31);
}

TEST(LarchImageLoad, TablesTriggerFilterAndRepair) {
    LarchImage img;
    img.RF(0, 0, 0, 0, 0, 1.0f);
    img.RF(5, 3, 3, 7, 159, 6.0f);
    img.IF(3, 7, 300, -2.0f);
    img.Put<float>(caltest::kLarchTemps + 4 * 7, 500.0f);  // the Larch keeps it as stored
    img.Put<double>(caltest::kLarchOsc, 0.999999);
    img.Trig(0, 0, 70.0f);      // bounds are exclusive
    img.Trig(0, 1, 120.0f);
    img.Trig(0, 2, 70.001f);
    img.Trig(7, 3, 119.5f);
    // B0C's 40 MHz point, rebuilt at temperatures 0 to 5 only.
    for (int t : {0, 5, 6}) {
        img.RF(2, 1, 2, t, 1, 2.0f);
        img.RF(2, 1, 2, t, 2, 100.0f);
        img.RF(2, 1, 2, t, 3, 5.0f);
    }

    LarchTables c;
    ASSERT_TRUE(c.Initialize(img.data()));
    EXPECT_EQ(c.B0A->b[0][0][0][0], 1.0f);
    EXPECT_EQ(c.B3->b[3][3][7][159], 6.0f);
    EXPECT_EQ(c.IFBands[3]->b[7][300], -2.0f);
    EXPECT_EQ(c.internalTemps[7], 500.0f);
    EXPECT_EQ(c.GetOscRatio(), 0.999999);
    EXPECT_EQ(c.m_trigDelays->b[0][0], 0.0f);
    EXPECT_EQ(c.m_trigDelays->b[0][1], 0.0f);
    EXPECT_EQ(c.m_trigDelays->b[0][2], 70.001f);
    EXPECT_EQ(c.m_trigDelays->b[7][3], 119.5f);
    EXPECT_EQ(c.B0C->b[1][2][0][2], 3.5f);
    EXPECT_EQ(c.B0C->b[1][2][5][2], 3.5f);
    EXPECT_EQ(c.B0C->b[1][2][6][2], 100.0f);

    // A blank image zeroes the RF tables and refuses.
    caltest::Image erased(caltest::kLarchSize, 0xFF);
    EXPECT_FALSE(c.Initialize(erased.data()));
    EXPECT_EQ(c.B3->b[3][3][7][159], 0.0f);
    EXPECT_EQ(c.GetOscRatio(), 1.0);
    EXPECT_EQ(c.internalTemps[7], 85.0f);
}

TEST(LarchImageLoad, ImplausibleTriggersTakeTheTypicalTable) {
    LarchImage img;
    for (int t = 0; t < 8; ++t)
        for (int h = 0; h < 4; ++h) img.Trig(t, h, 12.0f);
    LarchTables c;
    c.m_trigDelays->b[6][0] = 44.0f;
    ASSERT_TRUE(c.Initialize(img.data()));
    EXPECT_EQ(c.m_trigDelays->b[0][0], 86.45356f);
    EXPECT_EQ(c.m_trigDelays->b[5][3], 88.738785f);
    EXPECT_EQ(c.m_trigDelays->b[6][0], 44.0f) << "indices 6 and 7 stay";
}

// A flash of read pages backed by an image; counts the pages asked for.
struct FakeFlash {
    explicit FakeFlash(const caltest::Image& img) : flash(size_t(12) * 65536, 0xFF) {
        std::memcpy(flash.data(), img.data(), img.size());
    }
    FlashPageReader Reader() {
        return [this](int page, unsigned char* out) {
            pages.push_back(page);
            if (page == failPage) return qsUSBTimeoutErr;
            std::memcpy(out, flash.data() + size_t(page - 8) * 65536, 65536);
            return qsNoError;
        };
    }
    std::vector<unsigned char> flash;
    std::vector<int> pages;
    int failPage = -1;
};

TEST(CalibrationLoad, MapleReadsPagesInOrderAndStopsAtAFailure) {
    MapleImage img;
    img.Put<uint32_t>(0, 4242u);
    img.Put<uint16_t>(10, 31);
    img.RF(9, 3, 3, 11, 29, 8.5f);  // in the last page read
    FakeFlash flash(img);
    CorrectionsMaple c(1);
    DeviceIdentity id;
    EXPECT_EQ(load_calibration_maple(flash.Reader(), c, id), qsNoError);
    EXPECT_EQ(flash.pages, (std::vector<int>{8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19}));
    EXPECT_TRUE(id.valid);
    EXPECT_EQ(id.sid, 4242u);
    EXPECT_EQ(id.firmwareVersion, 31);
    EXPECT_EQ(c.rf_bands[9]->b[3][3][11][29], 8.5f);

    FakeFlash failing(img);
    failing.failPage = 10;
    CorrectionsMaple c2(1);
    DeviceIdentity id2;
    EXPECT_EQ(load_calibration_maple(failing.Reader(), c2, id2), qsUSBTimeoutErr);
    EXPECT_EQ(failing.pages, (std::vector<int>{8, 9, 10}));
    EXPECT_EQ(id2.sid, 0u);
    EXPECT_EQ(c2.rf_bands[9]->b[3][3][11][29], 0.0f);
}

TEST(CalibrationLoad, BlankHeaderAndBlankTables) {
    MapleImage img;
    img.Fill(0, 8, 0xFF);
    FakeFlash flash(img);
    CorrectionsMaple c(1);
    DeviceIdentity id;
    EXPECT_EQ(load_calibration_maple(flash.Reader(), c, id), qsNoError) << "tables still load";
    EXPECT_FALSE(id.valid);
    EXPECT_EQ(id.sid, 0u);

    MapleImage noTables;
    noTables.Put<uint32_t>(0, 77u);
    noTables.Fill(256, 310, 0xFF);
    FakeFlash flash2(noTables);
    DeviceIdentity id2;
    EXPECT_EQ(load_calibration_maple(flash2.Reader(), c, id2), qsUncalibratedDevice);
    EXPECT_TRUE(id2.valid);
    EXPECT_EQ(id2.sid, 77u);

    // The Larch opens whatever the flash says.
    caltest::Image erased(caltest::kLarchSize, 0xFF);
    FakeFlash flash3(erased);
    flash3.failPage = 9;
    LarchTables l;
    DeviceIdentity id3;
    EXPECT_EQ(load_calibration_larch(flash3.Reader(), l, id3), qsNoError);
    EXPECT_EQ(flash3.pages.size(), 8u);
    EXPECT_FALSE(id3.valid);
}

}  // namespace

// The Maple's LO tables, the row look-up and the packing of the control
// bytes of a sub-band.
#include <gtest/gtest.h>

#include <memory>

#include "calibration/corrections_maple.h"
#include "device/device_maple.h"
#include "device/lo_tables_maple.h"
#include "qs_sim.h"

namespace qs {
namespace {

TEST(MapleLOTables, RevisionTwoHasItsOwnTableAndEveryOtherRevisionTheFirst) {
    EXPECT_EQ(GetLUTMaple(2), lolutMaple2);
    for (int rev : {0, 1, 3, -1}) EXPECT_EQ(GetLUTMaple(rev), lolutMaple1) << rev;
}

TEST(MapleLOTables, RowsTileTheRangeWithoutGapOrOverlap) {
    for (const LOLUTMaple* table : {lolutMaple1, lolutMaple2}) {
        EXPECT_EQ(table[0].band, 0);
        EXPECT_EQ(table[MAPLE_LO_ROWS - 1].maxRF, 6.8e9);
        for (int r = 1; r < MAPLE_LO_ROWS; ++r) {
            EXPECT_EQ(table[r].minRF, table[r - 1].maxRF) << r;
            EXPECT_GT(table[r].maxRF, table[r].minRF) << r;
        }
    }
}

TEST(MapleLOTables, RowOfAFrequencyChangesExactlyAtEachTopEdge) {
    for (int rev : {1, 2}) {
        const LOLUTMaple* table = GetLUTMaple(rev);
        EXPECT_EQ(get_band_maple(rev, 0.0), 0);
        for (int r = 0; r < MAPLE_LO_ROWS; ++r) {
            EXPECT_EQ(get_band_maple(rev, table[r].maxRF - 1.0), r) << rev << " " << r;
            // The top edge itself already belongs to the next row.
            EXPECT_EQ(get_band_maple(rev, table[r].maxRF), r + 1) << rev << " " << r;
        }
    }
    // The revisions differ at the edges of rows 4 and 6.
    EXPECT_EQ(get_band_maple(1, 4.25e9), 4);
    EXPECT_EQ(get_band_maple(2, 4.25e9), 5);
    EXPECT_EQ(get_band_maple(1, 5.55e9), 6);
    EXPECT_EQ(get_band_maple(2, 5.55e9), 7);
}

TEST(MapleLOTables, CorrectionsFindTheSameRowsAsThePlanning) {
    // The calibration keeps its own copy of the row edges; a row that the
    // two disagree on would correct a patch with another row's tables.
    for (int rev : {1, 2}) {
        const LOLUTMaple* table = GetLUTMaple(rev);
        for (int r = 0; r < MAPLE_LO_ROWS; ++r)
            for (double f : {table[r].minRF, table[r].maxRF - 1.0, table[r].maxRF})
                EXPECT_EQ(maple_lo_row(rev, f), get_band_maple(rev, f)) << rev << " " << f;
    }
}

// PackSettings reads the port mask of its device.
class PackSettingsTest : public ::testing::Test {
protected:
    class Packer : public DeviceMaple {
    public:
        using DeviceMaple::DeviceMaple;
        void SetPortMask(unsigned mask) { m_portMask = mask; }
    };

    void SetUp() override {
        qssim_reset();
        qssim_add_device(QSSIM_PID_MAPLE_REV2, 12345678);
        device = std::make_unique<Packer>(new CypressInterface(12345678));
    }
    void TearDown() override {
        device.reset();
        qssim_reset();
    }

    struct Bytes {
        uint8_t b[4];
    };
    Bytes Pack(int band, int atten, int pktsz = 0, bool stream = false, bool x3d2 = false,
               int gain = 1) {
        s3Ctrl_t s{};
        s.band = static_cast<int8_t>(band);
        s.atten = static_cast<uint8_t>(atten);
        s.gain = static_cast<uint8_t>(gain);
        s.pktsz = static_cast<uint8_t>(pktsz);
        s.stream = stream;
        s.pktsz_x3d2 = x3d2;
        Bytes out{{0xAA, 0xAA, 0xAA, 0xAA}};
        device->PackSettings(&s, out.b);
        return out;
    }

    std::unique_ptr<Packer> device;
};

TEST_F(PackSettingsTest, BandCodeAndPathByteFollowTheBandTable) {
    struct Row {
        int band;
        int code;   // low bits added to byte 1
        int byte3;  // with attenuation 20
    };
    const Row rows[] = {
        {-1, 0, 20},  {0, 0, 20},         // below 1: attenuation alone
        {1, 0, 84},   {2, 0, 116},        // (band + 1) << 5, plus 20
        {3, 1, 148},  {4, 2, 180},  {5, 2, 212}, {9, 2, 84},
        {6, 3, 244},  {11, 3, 148},       // 384 + 20 keeps its low 8 bits
        {7, 4, 20},   {8, 4, 52},
    };
    for (const Row& r : rows) {
        const Bytes b = Pack(r.band, 20, 5);
        EXPECT_EQ(b.b[1], 0x50 + r.code) << r.band;
        EXPECT_EQ(b.b[2], 0) << r.band;
        EXPECT_EQ(b.b[3], r.byte3) << r.band;
    }
}

TEST_F(PackSettingsTest, ZeroAttenuationIsSentAsOne) {
    EXPECT_EQ(Pack(0, 0).b[3], 1);
    EXPECT_EQ(Pack(2, 0).b[3], (3 << 5) + 1);
    EXPECT_EQ(Pack(2, 30).b[3], (3 << 5) + 30);
}

TEST_F(PackSettingsTest, PacketModeAndPortMaskShareByteZero) {
    EXPECT_EQ(Pack(1, 10, 3).b[0], 1);
    EXPECT_EQ(Pack(1, 10, 3, false, true).b[0], 3);
    EXPECT_EQ(Pack(1, 10, 3, true, true).b[0], 0);

    device->SetPortMask(0x148);  // only the low byte reaches the device
    EXPECT_EQ(Pack(1, 10, 3).b[0], 0x49);
    EXPECT_EQ(Pack(1, 10, 3, true).b[0], 0x48);
}

TEST_F(PackSettingsTest, GainIsNotPackedOnThisModel) {
    const Bytes low = Pack(3, 10, 2, false, false, 0);
    const Bytes high = Pack(3, 10, 2, false, false, 3);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(low.b[i], high.b[i]) << i;
}

}  // namespace
}  // namespace qs

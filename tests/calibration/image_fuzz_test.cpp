// Random and truncated bytes through the image parser and everything that
// reads the tables afterwards. Buffers are sized exactly, so the sanitizer
// build catches any read past them; the checks are the invariants that keep
// later table reads in bounds.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include "calibration/corrections_larch.h"
#include "calibration/corrections_maple.h"
#include "image_writer.h"
#include "settings/settings.h"
#include "settings/sweep_info.h"

using namespace qs;

namespace {

using LarchTables = CorrectionsLarch;

// Bytes that are mostly floats of the awkward kinds: NaN, infinities,
// huge and tiny values, erased words, and plain noise.
std::vector<unsigned char> random_image(size_t len, std::mt19937& rng) {
    static const float specials[] = {std::numeric_limits<float>::quiet_NaN(),
                                     std::numeric_limits<float>::infinity(),
                                     -std::numeric_limits<float>::infinity(),
                                     3.0e38f, -3.0e38f, 1e-42f, 0.0f, 256.5f, 500.0f, 95.0f};
    std::vector<unsigned char> img(len);
    std::uniform_int_distribution<int> byte(0, 255), kind(0, 3);
    std::uniform_int_distribution<size_t> pick(0, sizeof specials / sizeof specials[0] - 1);
    for (size_t i = 0; i + 4 <= len; i += 4) {
        uint32_t w;
        switch (kind(rng)) {
            case 0: std::memcpy(&w, &specials[pick(rng)], 4); break;
            case 1: w = 0xFFFFFFFFu; break;
            default: w = uint32_t(byte(rng)) | uint32_t(byte(rng)) << 8 | uint32_t(byte(rng)) << 16 |
                         uint32_t(byte(rng)) << 24;
        }
        std::memcpy(img.data() + i, &w, 4);
    }
    for (size_t i = len & ~size_t(3); i < len; ++i) img[i] = uint8_t(byte(rng));
    return img;
}

const double kFreqs[] = {-1e12, -1.0, 0.0, 1.0, 9000.0, 1.6e7, 2e7, 2.4999e9, 5.6e9, 6.4e9, 6.8e9,
                         1e15, std::numeric_limits<double>::quiet_NaN(),
                         std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()};

void exercise_maple(CorrectionsMaple& c, std::mt19937& rng) {
    for (int t = 0; t < 12; ++t) {
        ASSERT_GE(c.auto_high_bands[t], 1);
        ASSERT_LE(c.auto_high_bands[t], 8);
        ASSERT_GE(c.auto_low_bands[t], 1);
        ASSERT_LE(c.auto_low_bands[t], 8);
        ASSERT_LT(c.auto_high_ix[t], c.rf_bands[c.auto_high_bands[t]]->m_steps);
        ASSERT_LT(c.auto_low_ix[t], c.rf_bands[c.auto_low_bands[t]]->m_steps);
    }
    SettingsMaple set;
    SweepInfo info;
    info.fftSize = 64;
    info.dsRatio = 1;
    info.binSize = 80e6 / 64;
    info.traceLen = 40;
    info.tgInitialCount = 3;
    for (int k = 0; k < 10; ++k) info.patchInfo.Append(Patch{16, k, -4, 2e7 + 6.4e8 * k, 0.0, false});

    std::uniform_real_distribution<double> temp(-60.0, 160.0), ref(-150.0, 50.0);
    const int gains[] = {-1, 0, 3};
    const double attens[] = {-1.0, 0.0, 25.0, 30.0};
    for (int g : gains) {
        for (double a : attens) {
            set.m_gain = g;
            set.m_atten = a;
            set.m_reference = ref(rng);
            c.Configure(temp(rng), set, info);
            ASSERT_GE(c.GainIndex(), 0);
            ASSERT_LE(c.GainIndex(), 3);
            ASSERT_GE(c.AttenIndex(), 0);
            ASSERT_LE(c.AttenIndex(), 3);
            ASSERT_GE(c.TempIndex(), 0);
            ASSERT_LE(c.TempIndex(), 9);
            ASSERT_EQ(c.GetAtten(0) % 5, 0);
            ASSERT_LE(c.GetAtten(0), 30);
            for (double f : kFreqs) {
                for (int row = -1; row <= 10; ++row) {
                    c.GetSingleCorrection(row, f, f * 1e-3, 0.0);
                    c.GetIFCorrection(row, f, 0.0);
                }
                c.GetSlopeCorrection(f, f);
                c.GetTriggerDelay(f);
                const int r = c.GetRoughGainIndex(f);
                ASSERT_GE(r, 0);
                ASSERT_LE(r, 309);
            }
        }
    }
    set.m_logScale = false;
    c.BuildCorrectionArray(&set, &info, false);
    ASSERT_EQ(c.GetCorrections().size(), 160u);
    VecDouble arr;
    c.BuildIFCorrectionArray(&set, &info, arr);
    c.BuildQSTGCorrectionArray(&set, &info, 5, 2, 1);
    ASSERT_EQ(c.GetCorrections().size(), 48u);
    uint8_t rough[ROUGH_GAIN_ARRAY_BYTES];
    ASSERT_LE(c.GetRoughGainArray(rough, info.patchInfo), 128);
}

TEST(ImageFuzz, RandomMapleImages) {
    std::mt19937 rng(20261123);
    for (int round = 0; round < 24; ++round) {
        const int rev = 1 + round % 2;
        std::vector<unsigned char> img = random_image(caltest::kMapleSize, rng);
        CorrectionsMaple c(rev);
        if (round % 3 == 0) img[256] = 0;  // make sure most images get past the blank test
        c.InitializeFrom(img.data(), img.size());
        exercise_maple(c, rng);
        for (int i = 0; i < 300; ++i) c.AddTimebaseCorrection(1.0);
        ASSERT_EQ(c.AddTimebaseCorrection(1.0), -1);
    }
}

TEST(ImageFuzz, TruncatedImagesAreRefusedWithoutReading) {
    std::mt19937 rng(99);
    caltest::MapleImage good;
    good.RF(1, 0, 0, 0, 0, 4.0f);
    CorrectionsMaple c(1);
    ASSERT_TRUE(c.Initialize(good.data()));
    std::uniform_int_distribution<size_t> len(0, caltest::kMapleSize - 1);
    std::vector<size_t> lengths = {0, 1, 7, 8, 11, 12, 255, 256, 287, 288, caltest::kMapleSize - 1};
    for (int i = 0; i < 20; ++i) lengths.push_back(len(rng));
    for (size_t n : lengths) {
        // An exact-size copy: one byte read too far is a sanitizer error.
        std::unique_ptr<unsigned char[]> buf(new unsigned char[n ? n : 1]);
        std::memcpy(buf.get(), good.data(), n);
        EXPECT_FALSE(c.InitializeFrom(buf.get(), n)) << n;
        const FlashIdentity id = parse_flash_identity(buf.get(), n);
        EXPECT_EQ(id.blank, n < 12) << n;
    }
    EXPECT_EQ(c.rf_bands[1]->b[0][0][0][0], 4.0f) << "refused images change nothing";
    EXPECT_FALSE(c.InitializeFrom(nullptr, caltest::kMapleSize));

    // The Larch refuses a short buffer before it zeroes anything.
    LarchTables l;
    l.SetOscRatio(1.5);
    std::vector<unsigned char> shortImg(caltest::kLarchSize - 1, 0);
    EXPECT_FALSE(l.InitializeFrom(shortImg.data(), shortImg.size()));
    EXPECT_EQ(l.GetOscRatio(), 1.5);
}

TEST(ImageFuzz, RandomLarchImages) {
    std::mt19937 rng(4711);
    for (int round = 0; round < 12; ++round) {
        std::vector<unsigned char> img = random_image(caltest::kLarchSize, rng);
        LarchTables c;
        if (!c.InitializeFrom(img.data(), img.size())) continue;
        // Every delay is either 0, plausible, or the typical table.
        for (int t = 0; t < 8; ++t)
            for (int h = 0; h < 4; ++h) {
                const float v = c.m_trigDelays->b[t][h];
                ASSERT_TRUE(v == 0.0f || (v > 70.0f && v < 120.0f)) << t << " " << h << " " << v;
            }
        // Whatever the tables hold, each band is solved to a pair the
        // device can be set to, and the arrays read only inside the tables.
        SettingsLarch set;
        set.SetStart(1e6);
        set.SetStop(6e9);
        SweepInfo plan;
        plan.fftSize = 256;
        plan.dsRatio = 1;
        plan.binSize = 80e6 / 256;
        plan.stepCount = 5;
        for (int band = 0; band < 5; ++band) plan.patchInfo.Append({64, band, 0, 1e7 + band * 1.5e9, 0.0, false});
        c.Configure(static_cast<double>(rng() % 120) - 20.0, set, plan);
        for (int b = -2; b < 8; ++b) {
            ASSERT_LE(c.GetGain(b), 3) << b;
            ASSERT_EQ(c.GetAtten(b) % 10, 0) << b;
            ASSERT_LE(c.GetAtten(b), 30) << b;
        }
        c.BuildCorrectionArray(&set, &plan, false);
        ASSERT_EQ(c.GetCorrections().size(), 5u * 64u);
        c.GetTriggerDelay(3e9);
    }
}

}  // namespace

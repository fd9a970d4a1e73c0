// A simulated generator cabled to a simulated analyser, driven through the
// public calls only: the bytes the generator receives, the level and
// frequency it truly puts out, its calibration read and cached, network
// sweeps of a device under test read against its true response, and a
// generator unplugged on the way.
#include <dirent.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "qs_api.h"
#include "qs_sim.h"

namespace {

using Bytes = std::vector<unsigned char>;

class Generator : public ::testing::Test {
protected:
    // Analyser product, generator version and serial number; a device left
    // open by an earlier case is closed first.
    void Plug(int productId, int version, unsigned serial) {
        if (h >= 0) qsCloseDevice(h);
        h = -1;
        serialUsed = serial;
        qssim_reset();
        analyser = qssim_add_device(productId, 12345678);
        gen = qssim_add_generator(version, serial);
        ASSERT_GE(gen, 0);
        ASSERT_EQ(qssim_connect_generator(gen, analyser), 0);
        ASSERT_EQ(qsOpenDeviceBySerialNumber(&h, 12345678), qsNoError);
    }

    void SetUp() override {
        // The calibration cache goes under a home of the test's own.
        char dir[] = "/tmp/qs_generator_XXXXXX";
        ASSERT_NE(mkdtemp(dir), nullptr);
        home = dir;
        setenv("HOME", home.c_str(), 1);
    }
    void TearDown() override {
        if (h >= 0) qsCloseDevice(h);
        qssim_reset();
        const std::string cache = home + "/.corvane/cal_files";
        if (DIR* dir = opendir(cache.c_str())) {
            while (const dirent* entry = readdir(dir))
                if (entry->d_name[0] != '.') std::remove((cache + "/" + entry->d_name).c_str());
            closedir(dir);
        }
        rmdir(cache.c_str());
        rmdir((home + "/.corvane").c_str());
        rmdir(home.c_str());
    }

    std::string CacheFile(unsigned serial = 0) const {
        char name[32];
        std::snprintf(name, sizeof name, "%08u.tg", serial ? serial : serialUsed);
        return home + "/.corvane/cal_files/" + name;
    }

    // Frames from index `from` on whose first payload byte is `letter`.
    std::vector<Bytes> Frames(char letter, int from = 0, bool wire = false) const {
        std::vector<Bytes> out;
        for (int i = from; i < qssim_generator_frame_count(gen); ++i) {
            Bytes b(64);
            Bytes payload(64);
            const int n = qssim_get_generator_frame(gen, i, payload.data(), 64);
            if (n < 1 || payload[0] != static_cast<unsigned char>(letter)) continue;
            const int m = wire ? qssim_get_generator_wire(gen, i, b.data(), 64) : n;
            (wire ? b : payload).resize(size_t(m));
            out.push_back(wire ? b : payload);
        }
        return out;
    }

    // Starts a network sweep of a passive device over start..stop; the
    // trace's length, with its start and bin kept for ExpectResponse.
    unsigned Start(double start, double stop, int points, bool highRange) {
        EXPECT_EQ(qsConfigureCenterSpan(h, (start + stop) / 2, stop - start), qsNoError);
        EXPECT_EQ(qsConfigTgSweep(h, points, highRange, true), qsNoError);
        EXPECT_EQ(qsInitiate(h, QS_MODE_TG_SWEEP, 0), qsNoError);
        unsigned n = 0;
        EXPECT_EQ(qsQueryTraceInfo(h, &n, &binHz, &traceStart), qsNoError);
        return n;
    }

    // A network sweep of `points` points over start..stop, through stored
    // first, then the device under test set by `dut`; the trace read.
    std::vector<double> SweepAfterThrough(double start, double stop, int points, bool highRange,
                                          void (*dut)(int gen, double start, double stop)) {
        EXPECT_EQ(qssim_set_dut(gen, QSSIM_DUT_THRU, 0, 0, 1, 0.0), 0);
        const unsigned n = Start(start, stop, points, highRange);
        std::vector<double> min(n), max(n);
        EXPECT_EQ(qsStoreTgThru(h, QS_TG_THRU_0DB), qsNoError);
        EXPECT_EQ(qsFetchTrace(h, 0, min.data(), max.data()), qsNoError);  // measures the through
        EXPECT_EQ(qsFetchTrace(h, 0, min.data(), max.data()), qsNoError);
        for (unsigned i = 0; i < n; ++i) EXPECT_NEAR(max[i], 0.0, 0.5) << "through at point " << i;
        dut(gen, start, stop);
        EXPECT_EQ(qsFetchTrace(h, 0, min.data(), max.data()), qsNoError);
        return max;
    }

    // Every point whose true response lies above floorDb reads it within tol.
    void ExpectResponse(const std::vector<double>& trace, double floorDb, double tolDb) const {
        int checked = 0;
        for (size_t i = 0; i < trace.size(); ++i) {
            const double f = traceStart + double(i) * binHz;
            const double truth = qssim_dut_gain_db(gen, f);
            if (truth < floorDb) continue;
            ++checked;
            EXPECT_NEAR(trace[i], truth, tolDb) << f / 1e6 << " MHz";
        }
        EXPECT_GT(checked, int(trace.size()) / 5);  // the pass band and its skirts
    }

    std::string home;
    unsigned serialUsed = 0;
    int analyser = -1, gen = -1, h = -1;
    double traceStart = 0, binHz = 0;
};

// A 4th-order band-pass a tenth of the span wide in its middle, 1 dB loss.
void BandPass(int gen, double start, double stop) {
    const double centre = (start + stop) / 2, width = (stop - start) / 10;
    ASSERT_EQ(qssim_set_dut(gen, QSSIM_DUT_BANDPASS, centre - width / 2, centre + width / 2, 4, 1.0), 0);
}

TEST_F(Generator, CommandsReachTheGeneratorAsWritten) {
    // A blank EEPROM: no calibration, so the time base counts as exact and
    // the words and codes are the plain ones.
    Plug(QSSIM_PID_MAPLE_REV2, QSSIM_TG_V1, 31);
    ASSERT_EQ(qssim_set_generator_eeprom(gen, QSSIM_TG_EEPROM_BLANK), 0);
    ASSERT_EQ(qsAttachTg(h), qsNoError);
    int from = qssim_generator_frame_count(gen);
    EXPECT_EQ(Frames('E').size(), 1024u);  // the whole EEPROM was asked for

    // A word of 0x0000C0DB escapes both special bytes; -30 dBm estimates
    // 25 dB of attenuation.
    EXPECT_EQ(qsSetTg(h, 0xC0DB * 10.0, -30.0), qsNoError);
    EXPECT_EQ(Frames('F', from, true), (std::vector<Bytes>{{0x46, 0xDB, 0xDD, 0xDB, 0xDC, 0x00, 0x00, 0xC0}}));
    EXPECT_EQ(Frames('A', from), (std::vector<Bytes>{{'A', 25}}));

    // Rounded to 10 Hz words; out of range clamps to 4.4 GHz and says so.
    from = qssim_generator_frame_count(gen);
    EXPECT_EQ(qsSetTg(h, 1000000005.0, -10.0), qsNoError);
    EXPECT_EQ(qsSetTg(h, 5e9, -10.0), qsAdjustedParameter);
    EXPECT_EQ(qsSetTg(h, 1e9, -40.0), qsAdjustedParameter);
    const std::vector<Bytes> words = Frames('F', from);
    ASSERT_EQ(words.size(), 3u);
    EXPECT_EQ(words[0], (Bytes{'F', 0x01, 0xE1, 0xF5, 0x05}));  // 100000001
    EXPECT_EQ(words[1], (Bytes{'F', 0x00, 0xDE, 0x39, 0x1A}));  // 440000000
    EXPECT_EQ(Frames('A', from), (std::vector<Bytes>{{'A', 5}, {'A', 5}, {'A', 25}}));
    double f = 0, a = 0;
    EXPECT_EQ(qsGetTgFreqAmpl(h, &f, &a), qsNoError);
    EXPECT_EQ(f, 1e9);
    EXPECT_EQ(a, -30.0);

    // Version 1 has no reference port: nothing is sent.
    from = qssim_generator_frame_count(gen);
    EXPECT_EQ(qsSetTgReference(h, 1), qsNoError);
    EXPECT_EQ(qsSetTgReference(h, 2), qsNotSupportedErr);
    EXPECT_EQ(qssim_generator_frame_count(gen), from);

    // A hardware sweep: truncated start and step, the point count, and the
    // levelling runs before it.
    ASSERT_EQ(qsConfigureCenterSpan(h, 1.0005e9 + 5, 1e6), qsNoError);
    ASSERT_EQ(qsConfigTgSweep(h, 100, false, false), qsNoError);
    ASSERT_EQ(qsInitiate(h, QS_MODE_TG_SWEEP, 0), qsNoError);
    from = qssim_generator_frame_count(gen);
    unsigned n = 0;
    double bin = 0, start = 0;
    ASSERT_EQ(qsQueryTraceInfo(h, &n, &bin, &start), qsNoError);
    std::vector<float> min(n), max(n);
    ASSERT_EQ(qsFetchTrace_32f(h, 0, min.data(), max.data()), qsNoError);
    EXPECT_EQ(Frames('S', from), (std::vector<Bytes>{{'S', 0x00, 0xE1, 0xF5, 0x05}}));  // trunc(100000000.5)
    EXPECT_EQ(Frames('T', from), (std::vector<Bytes>{{'T', 0xE8, 0x03, 0x00, 0x00}}));  // 10 kHz
    EXPECT_EQ(Frames('G', from), (std::vector<Bytes>{{'G', 0x68, 0x00}}));              // 104 points, padded
    EXPECT_EQ(Frames('L', from), (std::vector<Bytes>{{'L', 0, 25, 0, 105}}));           // one run, one extra
}

TEST_F(Generator, CwOutputIsTheAskedLevelAndFrequency) {
    for (int version : {QSSIM_TG_V1, QSSIM_TG_ROWAN}) {
        SCOPED_TRACE(version);
        Plug(QSSIM_PID_MAPLE_REV2, version, 40 + unsigned(version));
        ASSERT_EQ(qsAttachTg(h), qsNoError);
        const double top = version == QSSIM_TG_ROWAN ? 12.3e9 : 4.39e9;
        double outHz = 0, outDbm = 0;
        for (double hz : {1.5e6, 30e6, 433.92e6, 1.2e9, 2.71e9, 4.0e9, top}) {
            for (double dbm : {-10.0, -13.7, -21.2, -30.0}) {
                ASSERT_EQ(qsSetTg(h, hz, dbm), qsNoError);
                ASSERT_EQ(qssim_generator_output(gen, &outHz, &outDbm), 0);
                EXPECT_NEAR(outHz, hz, 200.0) << hz;
                EXPECT_NEAR(outDbm, dbm, 1.0) << hz << " Hz " << dbm << " dBm";
            }
        }
        if (version != QSSIM_TG_ROWAN) continue;
        // The Rowan levels in half decibels: half a decibel less is the
        // next code, and comes out half a decibel lower.
        double levels[2];
        int codes[2];
        for (int i = 0; i < 2; ++i) {
            const int from = qssim_generator_frame_count(gen);
            ASSERT_EQ(qsSetTg(h, 3e9, -20.0 - 0.5 * i), qsNoError);
            ASSERT_EQ(qssim_generator_output(gen, &outHz, &levels[i]), 0);
            codes[i] = Frames('A', from).at(0).at(1);
        }
        EXPECT_EQ(codes[1], codes[0] + 1);
        EXPECT_NEAR(levels[0] - levels[1], 0.5, 0.2);
    }
}

TEST_F(Generator, TheCalibrationIsReadOnceAndCachedByItsSerialNumber) {
    Plug(QSSIM_PID_MAPLE_REV2, QSSIM_TG_V1, 52);
    ASSERT_EQ(qsAttachTg(h), qsNoError);
    EXPECT_EQ(Frames('E').size(), 1024u);
    struct stat st {};
    ASSERT_EQ(stat(CacheFile().c_str(), &st), 0);
    EXPECT_EQ(st.st_size, 4096);
    // A second attach (another session) takes the file and asks nothing.
    qsCloseDevice(h);
    ASSERT_EQ(qsOpenDeviceBySerialNumber(&h, 12345678), qsNoError);
    const int before = qssim_generator_frame_count(gen);
    ASSERT_EQ(qsAttachTg(h), qsNoError);
    EXPECT_TRUE(Frames('E', before).empty());
    // The cached calibration still levels: -17 dBm comes out within 1 dB.
    ASSERT_EQ(qsSetTg(h, 2.2e9, -17.0), qsNoError);
    double hz = 0, dbm = 0;
    ASSERT_EQ(qssim_generator_output(gen, &hz, &dbm), 0);
    EXPECT_NEAR(dbm, -17.0, 1.0);
    EXPECT_NEAR(hz, 2.2e9, 200.0);
}

TEST_F(Generator, ABlankOrSilentEepromAttachesUncalibrated) {
    for (int kind : {QSSIM_TG_EEPROM_BLANK, QSSIM_TG_EEPROM_SILENT}) {
        SCOPED_TRACE(kind);
        Plug(QSSIM_PID_MAPLE_REV2, QSSIM_TG_ROWAN, 60 + unsigned(kind));
        ASSERT_EQ(qssim_set_generator_eeprom(gen, kind), 0);
        const auto t0 = std::chrono::steady_clock::now();
        ASSERT_EQ(qsAttachTg(h), qsNoError);
        // A silent EEPROM costs one read's time-out, not one per word.
        EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(5));
        bool attached = false;
        EXPECT_EQ(qsIsTgAttached(h, &attached), qsNoError);
        EXPECT_TRUE(attached);
        struct stat st {};
        EXPECT_NE(stat(CacheFile().c_str(), &st), 0);
        // Uncalibrated, -30 dBm is the estimate's 25 dB, whatever the model.
        const int from = qssim_generator_frame_count(gen);
        ASSERT_EQ(qsSetTg(h, 1e9, -30.0), qsNoError);
        EXPECT_EQ(Frames('A', from), (std::vector<Bytes>{{'A', 25}}));
    }
}

TEST_F(Generator, ABandPassReadsItsTrueResponse) {
    // A Maple with each version (the Rowan above version 1's range), and a
    // Larch as a Maple: 0.5 dB down to -40 dB on the primary pass alone,
    // 1.5 dB down to -70 dB with the high-range pass.
    struct Case {
        int productId, version;
        unsigned serial;
        double start, stop;          // the primary pass's range
        double wideStart, wideStop;  // the high-range pass's
    } cases[] = {
        {QSSIM_PID_MAPLE_REV2, QSSIM_TG_V1, 71, 0.9e9, 1.1e9, 0.5e9, 2.5e9},
        {QSSIM_PID_MAPLE_REV2, QSSIM_TG_ROWAN, 72, 4e9, 6e9, 4e9, 6e9},
        {QSSIM_PID_LARCH, QSSIM_TG_V1, 73, 0.3e9, 0.5e9, 0.3e9, 1.3e9},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.serial);
        Plug(c.productId, c.version, c.serial);
        ASSERT_EQ(qsAttachTg(h), qsNoError);
        ExpectResponse(SweepAfterThrough(c.start, c.stop, 101, false, BandPass), -40.0, 0.5);
        ExpectResponse(SweepAfterThrough(c.wideStart, c.wideStop, 101, true, BandPass), -70.0, 1.5);
    }
}

TEST_F(Generator, ATwentyDecibelPadMeasuresTheHighRangeReference) {
    // The through gives the high-range pass's reference as the primary's
    // plus 20 dB; a 20 dB pad measures it: fetched once in place (the pad's
    // loss at the usual levels), then again after the request, with the
    // generator's two levels exchanged. The fetch that measures it is a
    // calibration, not a trace.
    Plug(QSSIM_PID_MAPLE_REV2, QSSIM_TG_V1, 91);
    ASSERT_EQ(qsAttachTg(h), qsNoError);
    const unsigned n = Start(0.5e9, 2.5e9, 101, true);
    std::vector<double> min(n), max(n);
    EXPECT_EQ(qsStoreTgThru(h, QS_TG_THRU_20DB), qsInvalidParameterErr);  // no through yet
    ASSERT_EQ(qsStoreTgThru(h, QS_TG_THRU_0DB), qsNoError);
    ASSERT_EQ(qsFetchTrace(h, 0, min.data(), max.data()), qsNoError);
    ASSERT_EQ(qssim_set_dut(gen, QSSIM_DUT_THRU, 0, 0, 1, 20.0), 0);
    ASSERT_EQ(qsFetchTrace(h, 0, min.data(), max.data()), qsNoError);
    ExpectResponse(max, -300.0, 0.5);  // the pad, read against the through
    ASSERT_EQ(qsStoreTgThru(h, QS_TG_THRU_20DB), qsNoError);
    ASSERT_EQ(qsFetchTrace(h, 0, min.data(), max.data()), qsNoError);
    ASSERT_EQ(qsFetchTrace(h, 0, min.data(), max.data()), qsNoError);
    ExpectResponse(max, -300.0, 0.5);  // still the pad
    BandPass(gen, 0.5e9, 2.5e9);
    ASSERT_EQ(qsFetchTrace(h, 0, min.data(), max.data()), qsNoError);
    ExpectResponse(max, -70.0, 0.5);  // the high range, now as close as the primary
}

TEST_F(Generator, AnUnpluggedGeneratorEndsTheFetchWithAStatus) {
    Plug(QSSIM_PID_MAPLE_REV2, QSSIM_TG_V1, 81);
    ASSERT_EQ(qsAttachTg(h), qsNoError);
    const unsigned n = Start(0.5e9, 1.5e9, 256, true);
    std::vector<double> min(n), max(n);
    ASSERT_EQ(qsFetchTrace(h, 0, min.data(), max.data()), qsNoError);

    // Pulled out while a fetch runs: that fetch, and every later one, says so.
    auto fetch = std::async(std::launch::async, [&] { return qsFetchTrace(h, 0, min.data(), max.data()); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    qssim_remove_generator(gen);
    ASSERT_EQ(fetch.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    EXPECT_EQ(fetch.get(), qsTrackingGeneratorNotFound);
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(qsFetchTrace(h, 0, min.data(), max.data()), qsTrackingGeneratorNotFound);
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(1));
    bool attached = true;
    EXPECT_EQ(qsIsTgAttached(h, &attached), qsNoError);
    EXPECT_FALSE(attached);
    ASSERT_EQ(qsAbort(h), qsNoError);
    EXPECT_EQ(qsSetTg(h, 1e9, -20.0), qsTrackingGeneratorNotFound);
}

}  // namespace

// The streaming mode on a simulated Maple, through the public calls: raw
// samples with their triggers (qsFetchRaw), the command the device received,
// the stream queries.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <complex>
#include <cstring>
#include <thread>
#include <vector>

#include "api/device_table.h"
#include "device/device.h"
#include "device/lo_tables_maple.h"
#include "qs_api.h"
#include "qs_sim.h"
#include "sim_fixture.h"
#include "transport/wire_formats.h"

namespace {

constexpr int kRawStep = 1048576;  // samples of one qsFetchRaw
constexpr int kBlock = qs::QS_BLOCK_SAMPLES;

class StreamingMaple : public OpenSimulatedDevice {
protected:
    const qs::SweepInfo& Plan() const { return qs::api::devices[h]->GetSweepInfo(); }

    // Starts a stream and waits until the device has its command; returns
    // the command as received.
    qs::DeviceCommand Start(unsigned flag) {
        const int before = qssim_command_count(sim);
        EXPECT_EQ(qsInitiate(h, QS_MODE_STREAMING, flag), qsNoError);
        for (int i = 0; i < 2000 && qssim_command_count(sim) == before; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        qs::DeviceCommand cmd;
        EXPECT_EQ(qssim_get_command(sim, qssim_command_count(sim) - 1,
                                    reinterpret_cast<unsigned char*>(&cmd)),
                  0);
        return cmd;
    }
};

TEST_F(StreamingMaple, DirectStreamDeliversTheToneAtItsIntermediateFrequency) {
    // 1.0002 GHz tuned on the 800 kHz grid: the LO sits at 1.0000 GHz and
    // the tone 200 kHz off the middle of the IF.
    const double tone = 1.0002e9;
    qssim_set_tone(sim, tone, -20.0);
    ASSERT_EQ(qsConfigureIQCenter(h, tone), qsNoError);
    const qs::DeviceCommand cmd = Start(QS_STREAM_FLAG_DIRECT);
    EXPECT_EQ(cmd.commandType, qs::QS_CFG_STREAM);
    EXPECT_EQ(cmd.subBandCount, 1);
    EXPECT_NEAR(Plan().if_offset_hz, 200e3, 1.0);

    std::vector<float> raw(kRawStep);
    std::vector<int> triggers(62, -1);
    ASSERT_EQ(qsFetchRaw(h, raw.data(), triggers.data()), qsNoError);
    ASSERT_EQ(qsFetchRaw(h, raw.data(), triggers.data()), qsNoError);
    for (int t : triggers) EXPECT_EQ(t, 0);  // the trigger input is off

    // A mirrored path puts the tone below the IF centre of 20 MHz.
    const double sign = Plan().patchInfo[0].flip_spectrum ? -1.0 : 1.0;
    const double at = (2e7 + sign * 200e3) / 8e7;
    const double mirror = (2e7 - sign * 200e3) / 8e7;
    const int n = 1 << 16;
    const double a = ToneAmplitude(raw.data(), n, at);
    EXPECT_GT(a, 1e-3);
    EXPECT_GT(20.0 * std::log10(a / ToneAmplitude(raw.data(), n, mirror)), 30.0);
    // Full scale is 1.0.
    for (int i = 0; i < n; ++i) ASSERT_LE(std::fabs(raw[static_cast<size_t>(i)]), 1.0f);

    int len = 0, rate = 0;
    double bw = 0;
    ASSERT_EQ(qsQueryStreamInfo(h, &len, &bw, &rate), qsNoError);
    EXPECT_EQ(qsAbort(h), qsNoError);
    EXPECT_EQ(qsFetchRaw(h, raw.data(), nullptr), qsDeviceNotConfiguredErr);
}

// Triggers at known positions of the device's sample run come out of
// qsFetchRaw at the same positions of the stream, moved by the calibrated
// trigger delay, in the output step they fall in.
TEST_F(StreamingMaple, DirectStreamTriggersStandAtTheirSamplePlusTheDelay) {
    ASSERT_EQ(qsConfigureIO(h, QS_PORT_TRIGGER_IN, 0), qsNoError);
    ASSERT_EQ(qsConfigureIQCenter(h, 1e9), qsNoError);
    // The first block the device core sees only sets the baseline of the
    // event count; positions from the third block on, in case the first
    // went by before the stream was ready.
    std::vector<long long> run = {
        2 * kBlock + 5000,                     // third block
        2 * kBlock + 18688 * 3 + 2,            // a packet's first samples: reported a packet early
        4 * kBlock - 40,                       // the delay carries it into the next block
        kRawStep + 1000,                       // second output step
        5 * kBlock + 37376 * 5 + 18688 + 100,  // channel 2
        2 * kRawStep - 30,                     // the delay moves it across an output step
        6 * kBlock + 1000,                     // with the next one, two in a block:
        7 * kBlock - 20,                       // listed there, past the block's end
        9 * kBlock + 3,                        // reported a block early, and carried
    };
    std::sort(run.begin(), run.end());
    for (long long p : run) ASSERT_EQ(qssim_add_trigger(sim, p), 0);
    Start(QS_STREAM_FLAG_DIRECT);

    std::vector<float> raw(kRawStep);
    std::vector<long long> seen;
    for (int step = 0; step < 3; ++step) {
        std::vector<int> triggers(62, -1);
        const qsStatus status = qsFetchRaw(h, raw.data(), triggers.data());
        ASSERT_EQ(status, qsNoError) << "step " << step;
        int k = 0;
        for (; k < 62 && triggers[static_cast<size_t>(k)] != 0; ++k)
            seen.push_back(static_cast<long long>(step) * kRawStep + triggers[static_cast<size_t>(k)]);
        for (; k < 62; ++k) EXPECT_EQ(triggers[static_cast<size_t>(k)], 0);
    }
    ASSERT_EQ(seen.size(), run.size());
    // Stream position = run position + delay - the blocks that went by
    // before the stream took data (nearly always none: the device starts
    // after the set-up has returned).
    const long long shift = seen[0] - run[0];
    for (size_t i = 0; i < run.size(); ++i) EXPECT_EQ(seen[i] - run[i], shift) << i;
    // The simulated calibration puts the delay at 92 + 1.3 per LO row.
    const long long delay = (shift % kBlock + kBlock) % kBlock;
    EXPECT_GE(delay, 92);
    EXPECT_LE(delay, 92 + 13);
    EXPECT_LE(delay - shift, 2 * kBlock);
}

TEST_F(StreamingMaple, LowCentresStreamTheLowBandAndTheFlagForcesIt) {
    struct Case {
        double center;
        unsigned flag;
        int row;
        bool bandZeroIQ;
    };
    const int rev = qs::api::devices[h]->MapleRev();
    const qs::LOLUTMaple* lut = qs::GetLUTMaple(rev);
    const Case cases[] = {
        {15e6, QS_STREAM_FLAG_DIRECT, 0, true},
        {16e6, QS_STREAM_FLAG_DIRECT, qs::get_band_maple(rev, 16e6), false},
        {100e6, QS_STREAM_FLAG_BAND_ZERO, 0, false},
        {100e6, QS_STREAM_FLAG_DIRECT, qs::get_band_maple(rev, 100e6), false},
    };
    ASSERT_EQ(qs::get_band_maple(rev, 16e6), 1);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.center);
        ASSERT_EQ(qsConfigureIQCenter(h, c.center), qsNoError);
        const qs::DeviceCommand cmd = Start(c.flag);
        const double g = std::round(c.center / 800e3) * 800e3;
        const qs::subBand_t& sb = cmd.subBandArray[0];
        EXPECT_EQ(sb.LO1startFreq, std::lround((g + lut[c.row].lo1c) / 400e3));
        EXPECT_EQ(sb.LO2Freq, std::lround(lut[c.row].lo2c / 5e6));
        EXPECT_EQ(sb.stepCount, 4096);
        EXPECT_EQ(sb.packetsPerFreq, 16);
        EXPECT_EQ(sb.settings[0] & 0x3, 0);  // streaming
        EXPECT_EQ(Plan().initialBand, c.row);
        EXPECT_EQ(Plan().directIQ, c.bandZeroIQ);
        // Raw samples flow, and a direct stream has no I/Q to give.
        std::vector<float> raw(kRawStep);
        EXPECT_EQ(qsFetchRaw(h, raw.data(), nullptr), qsNoError);
        short iq[8];
        EXPECT_EQ(qsGetIQUnpacked(h, iq, 2, nullptr, 0, 0, nullptr, nullptr, nullptr, nullptr),
                  qsNotSupportedErr);
        ASSERT_EQ(qsAbort(h), qsNoError);
    }
}

TEST_F(StreamingMaple, StreamQueriesAndTheIQCorrection) {
    ASSERT_EQ(qsConfigureIQCenter(h, 2.4e9), qsNoError);
    ASSERT_EQ(qsConfigureLevel(h, -20.0, QS_ATTEN_AUTO), qsNoError);
    ASSERT_EQ(qsConfigureIQ(h, 256, 100e3), qsNoError);
    Start(QS_STREAM_FLAG_DIRECT);
    int len = 0, rate = 0;
    double bw = 0;
    ASSERT_EQ(qsQueryStreamInfo(h, &len, &bw, &rate), qsNoError);
    EXPECT_EQ(len, 524288 / 256);
    EXPECT_EQ(rate, 40000000 / 256);
    EXPECT_EQ(bw, 100e3);
    float corr = 0;
    ASSERT_EQ(qsGetIQCorrection(h, &corr), qsNoError);
    EXPECT_FLOAT_EQ(corr, static_cast<float>(std::sqrt(std::pow(10.0, (-20.0 + 10.0) / 10.0))));
    // Idle again: nothing to ask.
    ASSERT_EQ(qsAbort(h), qsNoError);
    EXPECT_EQ(qsQueryStreamInfo(h, &len, &bw, &rate), qsDeviceNotConfiguredErr);
    EXPECT_EQ(qsGetIQCorrection(h, &corr), qsDeviceNotConfiguredErr);
}

}  // namespace

// I/Q streaming on a simulated Maple through qsGetIQ: a tone at its
// baseband frequency and calibrated level, triggers at their sample
// positions, sample loss, purge.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <complex>
#include <thread>
#include <vector>

#include "api/device_table.h"
#include "device/device.h"
#include "qs_api.h"
#include "qs_sim.h"
#include "sim_fixture.h"

namespace {

using cf = std::complex<float>;

// |mean of x[n] e^(-j 2 pi f n)|: the amplitude of a complex tone at f
// cycles per sample.
double ToneAmplitude(const cf* x, int n, double f) {
    std::complex<double> acc = 0.0, rot = 1.0;
    const std::complex<double> step = std::polar(1.0, -2.0 * M_PI * f);
    for (int i = 0; i < n; ++i) {
        acc += std::complex<double>(x[i]) * rot;
        rot *= step;
        if ((i & 1023) == 1023) rot /= std::abs(rot);
    }
    return std::abs(acc) / n;
}

class IQStreaming : public OpenSimulatedDevice {
protected:
    const qs::SweepInfo& Plan() const { return qs::api::devices[h]->GetSweepInfo(); }

    qsStatus Get(void* data, int count, std::vector<int>* triggers = nullptr, int purge = 0,
                 qsIQPacket* out = nullptr) {
        qsIQPacket pkt{};
        pkt.iqData = data;
        pkt.iqCount = count;
        pkt.triggers = triggers ? triggers->data() : nullptr;
        pkt.triggerCount = triggers ? static_cast<int>(triggers->size()) : 0;
        pkt.purge = purge;
        const qsStatus status = qsGetIQ(h, &pkt);
        if (out) *out = pkt;
        return status;
    }
};

TEST_F(IQStreaming, ToneComesOutAtItsBasebandFrequencyAndCalibratedLevel) {
    struct Case {
        double center;
        double offset;  // tone - center
        int decimation;
        double bandwidth;
    };
    // Flipped and upright paths, one- and two-pass decimation, the low band.
    const Case cases[] = {
        {1.0002e9, 1.0e6, 4, 8e6},
        {1.0002e9, -2.5e6, 2, 15e6},
        {2.4e9 + 130e3, 20e3, 256, 60e3},
        {5.2e9 - 310e3, -150e3, 32, 1e6},
        {5e6, 500e3, 8, 2e6},  // the low band, sampled directly
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.center);
        qssim_clear_signals(sim);
        qssim_set_tone(sim, c.center + c.offset, -30.0);
        ASSERT_EQ(qsConfigureIQCenter(h, c.center), qsNoError);
        ASSERT_EQ(qsConfigureIQ(h, c.decimation, c.bandwidth), qsNoError);
        ASSERT_EQ(qsInitiate(h, QS_MODE_STREAMING, 0), qsNoError);
        const double rate = 4e7 / c.decimation;
        const int n = 16384;
        std::vector<cf> iq(static_cast<size_t>(n));
        // The first samples hold the filters' rise.
        ASSERT_EQ(Get(iq.data(), n), qsNoError);
        ASSERT_EQ(Get(iq.data(), n), qsNoError);
        const double a = ToneAmplitude(iq.data(), n, c.offset / rate);
        const double image = ToneAmplitude(iq.data(), n, -c.offset / rate);
        // The simulated calibration image is made from the receiver's own
        // gain model, so what is left is the interpolation of its tables
        // and the filter's ripple: a few hundredths of a dB seen, 0.5 allowed.
        EXPECT_NEAR(20.0 * std::log10(a), -30.0, 0.5);
        EXPECT_LT(20.0 * std::log10(image / a), -40.0);
        ASSERT_EQ(qsAbort(h), qsNoError);
    }
}

}  // namespace

// Test fixtures with simulated analysers plugged in and opened through the
// public calls.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <iterator>
#include <string>

#include "qs_api.h"
#include "qs_sim.h"

// One device, opened for each test, closed and unplugged again after it.
class OpenSimulatedDevice : public ::testing::Test {
protected:
    explicit OpenSimulatedDevice(int productId = QSSIM_PID_MAPLE_REV2, unsigned serial = 12345678)
        : productId_(productId), serial_(serial) {}

    void SetUp() override {
        qssim_reset();
        sim = qssim_add_device(productId_, serial_);
        ASSERT_EQ(qsOpenDeviceBySerialNumber(&h, static_cast<int>(serial_)), qsNoError);
    }
    void TearDown() override {
        qsCloseDevice(h);
        qssim_reset();
    }

    int sim = -1;  // the simulator's id of the device
    int h = -1;    // the library's handle

private:
    int productId_;
    unsigned serial_;
};

// Simulated analysers kept open for a whole suite, one per model, each
// opened by the first test of its model (the test's parameter): an open
// reads the whole calibration image and runs the start-up sweep.
class SharedSimulatedDevice : public ::testing::TestWithParam<int> {
protected:
    static void TearDownTestSuite() {
        for (int& handle : handles_)
            if (handle >= 0) qsCloseDevice(handle);
        std::fill(std::begin(handles_), std::end(handles_), -1);
        qssim_reset();
    }
    void SetUp() override {
        const int pid = GetParam();
        if (handles_[pid] < 0) {
            const unsigned serial = 70000000u + static_cast<unsigned>(pid);
            sims_[pid] = qssim_add_device(pid, serial);
            ASSERT_EQ(qsOpenDeviceBySerialNumber(&handles_[pid], static_cast<int>(serial)), qsNoError);
        }
        sim = sims_[pid];
        h = handles_[pid];
        qssim_clear_signals(sim);
    }
    void TearDown() override { qsAbort(h); }
    bool Larch() const { return GetParam() == QSSIM_PID_LARCH; }

    int sim = -1;
    int h = -1;

private:
    static inline int sims_[8];
    static inline int handles_[8] = {-1, -1, -1, -1, -1, -1, -1, -1};
};

// Test names for the models.
inline std::string ModelName(const ::testing::TestParamInfo<int>& info) {
    return info.param == QSSIM_PID_LARCH ? "Larch" : info.param == QSSIM_PID_MAPLE_REV1 ? "Rev1" : "Rev2";
}

// |mean of x[n] e^(-j 2 pi f n)|: the amplitude of a complex tone at f
// cycles per sample, or half that of a real one.
template <typename Sample>
double ToneAmplitude(const Sample* x, int n, double f) {
    std::complex<double> acc = 0.0, rot = 1.0;
    const std::complex<double> step = std::polar(1.0, -2.0 * M_PI * f);
    for (int i = 0; i < n; ++i) {
        acc += std::complex<double>(x[i]) * rot;
        rot *= step;
        if ((i & 1023) == 1023) rot /= std::abs(rot);
    }
    return std::abs(acc) / n;
}

// Test fixtures with simulated analysers plugged in and opened through the
// public calls.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <iterator>
#include <string>
#include <vector>

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

// A swept trace with its axis, in buffers sized by the query call.
struct SweepTrace {
    std::vector<double> min, max;
    double start = NAN, bin = NAN;  // until the query writes them
    qsStatus status = qsNoError;    // the first call that failed, else the fetch's

    int Peak() const { return static_cast<int>(std::max_element(max.begin(), max.end()) - max.begin()); }
    double FreqAt(int i) const { return start + i * bin; }
    double Median() const {
        std::vector<double> copy = max;
        std::nth_element(copy.begin(), copy.begin() + copy.size() / 2, copy.end());
        return copy[copy.size() / 2];
    }
};

// Starts a sweep of what is configured on h (flags as qsInitiate takes
// them) and fetches its first trace.
inline SweepTrace Sweep(int h, unsigned flags = 0) {
    SweepTrace t;
    unsigned n = 0;
    if ((t.status = qsInitiate(h, QS_MODE_SWEEP, flags)) != qsNoError ||
        (t.status = qsQueryTraceInfo(h, &n, &t.bin, &t.start)) != qsNoError)
        return t;
    t.min.resize(n);
    t.max.resize(n);
    t.status = qsFetchTrace(h, static_cast<int>(n), t.min.data(), t.max.data());
    return t;
}

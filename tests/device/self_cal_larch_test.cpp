// The Larch's IF self-calibration on the simulator: where it finds the
// middle of the pass band, the constants it keeps, and the arithmetic of
// its edges.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

#include "calibration/corrections_larch.h"
#include "device/device_larch.h"
#include "qs_api.h"
#include "qs_sim.h"
#include "settings/sweep_info.h"

namespace qs {
namespace {

constexpr double kStepHz = 39062.5;

// The device with read access to what the self-calibration keeps. No
// public call reports idealIFOffset until a Larch sweep can be planned, so
// the test opens the device object itself on the simulator, as the open
// call does, and reads the plan.
class CalibratedLarch : public DeviceLarch {
public:
    using DeviceLarch::DeviceLarch;
    double IdealIFOffsetHz() const { return GetSweepInfo().idealIFOffset * 2e7; }
    const double* Constants() { return static_cast<CorrectionsLarch&>(*m_corr).m_IFSelfCal; }
};

// The filter's own shape is not symmetric (a ripple and a tilt), so the
// band's middle sits a little off its nominal centre even at offset 0; a
// moved filter moves the measured middle by the same amount, to within the
// 39 kHz grid of each edge.
TEST(LarchSelfCal, TheMeasuredMiddleFollowsTheFiltersCentre) {
    qssim_reset();
    const int sim = qssim_add_device(QSSIM_PID_LARCH, 10000001);
    auto* usb = new CypressInterface(10000001);
    ASSERT_EQ(usb->State(), USB_OPEN);
    auto device = std::make_unique<CalibratedLarch>(usb);
    ASSERT_EQ(device->OpenDevice(), qsNoError);
    const double base = device->IdealIFOffsetHz();
    EXPECT_LT(std::fabs(base), 500e3);
    for (double centre : {-700e3, 400e3, 900e3}) {
        SCOPED_TRACE(centre);
        ASSERT_EQ(qssim_set_larch_if_centre(sim, centre), 0);
        EXPECT_EQ(device->SelfCalIF(), qsNoError);
        EXPECT_NEAR(device->IdealIFOffsetHz() - base, centre, kStepHz);
        // The constants are the shape less its mean over the middle: about
        // 0 there, and down past -2 dB towards both ends.
        const double* c = device->Constants();
        double mean = 0.0;
        for (int i = 144; i < 432; ++i) mean += c[i];
        EXPECT_NEAR(mean / 288, 0.0, 1e-9);
        EXPECT_LT(c[1], -2.0);
        EXPECT_LT(c[575], -2.0);
        EXPECT_NEAR(c[288 + int(std::lround(centre / kStepHz))], 0.0, 0.6);
    }
    device.reset();
    qssim_reset();
}

// qsSelfCal reaches the device's self-calibration: two more capture passes,
// and the device stays idle and usable.
TEST(LarchSelfCal, SelfCalThroughThePublicCallSendsBothPasses) {
    qssim_reset();
    const int sim = qssim_add_device(QSSIM_PID_LARCH, 10000001);
    int h = -1;
    ASSERT_EQ(qsOpenDevice(&h), qsNoError);
    const int before = qssim_command_count(sim);
    EXPECT_EQ(qsSelfCal(h), qsNoError);
    ASSERT_EQ(qssim_command_count(sim), before + 2);
    unsigned char block[1024];
    for (int side = 0; side < 2; ++side) {
        ASSERT_EQ(qssim_get_command(sim, before + side, block), 0);
        EXPECT_EQ(block[0], 5);     // capture
        EXPECT_EQ(block[4], side);  // the half of the IF
    }
    EXPECT_EQ(qsAbort(h), qsDeviceNotConfiguredErr);  // nothing left running
    qsCloseDevice(h);
    qssim_reset();
}

// The edge search on prepared responses: (points set low, in dB) -> the
// edges the arithmetic should settle on. A flat response has no edge and is
// centred; the searches start at points 64 and 512, so a dip inside them is
// not an edge.
TEST(LarchSelfCal, EdgesAndMiddleOfPreparedResponses) {
    const struct {
        std::vector<int> low;  // points at -3 dB relative to the rest
        int lo, hi;
    } cases[] = {
        {{}, 1, 575},
        {{64}, 65, 575},
        {{65, 100, 400}, 1, 575},
        {{10, 40}, 41, 575},
        {{512}, 1, 511},
        {{520, 540}, 1, 519},
        {{0, 575}, 1, 574},  // point 0 is never looked at, point 575 is
        {{30, 530}, 31, 529},
    };
    for (const auto& k : cases) {
        double c[576];
        for (double& v : c) v = 7.5;  // any level: the mean is taken away
        int middle = 0;
        for (int i : k.low) {
            c[i] = 7.5 - 3.0;
            if (i >= 144 && i < 432) ++middle;
        }
        const double mean = 7.5 - 3.0 * middle / 288;
        const double fraction = self_cal_if_offset(c);
        SCOPED_TRACE(testing::Message() << "dips " << k.low.size() << " lo " << k.lo << " hi " << k.hi);
        EXPECT_DOUBLE_EQ(fraction, (k.lo + k.hi - 576) * 0.5 * kStepHz / 2e7);
        EXPECT_NEAR(c[300], 7.5 - mean, 1e-12);
    }
    double flat[576] = {};
    EXPECT_EQ(self_cal_if_offset(flat), 0.0);
}

}  // namespace
}  // namespace qs

// The Maple's low-band-only sweep: the directly sampled band from 0 Hz, at
// one position, with raw levels.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "api/device_table.h"
#include "device/device.h"
#include "qs_api.h"
#include "qs_sim.h"
#include "sim_fixture.h"

namespace {

class BandZeroSweep : public OpenSimulatedDevice {
protected:
    const qs::SweepInfo& Plan() const { return qs::api::devices[h]->GetSweepInfo(); }
};

TEST_F(BandZeroSweep, ShowsTheLowBandFromZeroHertz) {
    qssim_set_tone(sim, 3.0e6, -30.0);
    ASSERT_EQ(qsConfigureSweepCoupling(h, 30e3, 30e3, 0.001, QS_RBW_SHAPE_NATIVE, 0), qsNoError);
    const SweepTrace t = Sweep(h, QS_SWEEP_FLAG_BAND_ZERO_ONLY);
    ASSERT_EQ(t.status, qsNoError);
    EXPECT_EQ(static_cast<int>(t.max.size()), Plan().fftSize / 2);
    EXPECT_EQ(t.start, 0.0);
    EXPECT_EQ(Plan().stepCount, 1);
    EXPECT_EQ(Plan().ppf % 16, 0);
    EXPECT_NEAR(t.Peak() * t.bin, 3.0e6, 1.01 * t.bin);
    EXPECT_GT(t.max[t.Peak()], t.Median() + 40.0);
}

TEST_F(BandZeroSweep, AMillionPointTransformTakesSixtyFourPackets) {
    // 200 Hz native needs a transform of 2^20 samples: the first multiple
    // of 16 packets from 32 that holds it is 64.
    ASSERT_EQ(qsConfigureSweepCoupling(h, 200.0, 200.0, 0.001, QS_RBW_SHAPE_NATIVE, 0), qsNoError);
    ASSERT_EQ(qsInitiate(h, QS_MODE_SWEEP, QS_SWEEP_FLAG_BAND_ZERO_ONLY), qsNoError);
    EXPECT_EQ(Plan().fftSize, 1 << 20);
    EXPECT_EQ(Plan().ppf, 64);
    EXPECT_EQ(Plan().chunkSize, 1196032);
}

}  // namespace

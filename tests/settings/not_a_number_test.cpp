// A NaN argument is treated like a value outside its range: refused where
// the range refuses, moved to the limit where the range clamps.
#include <gtest/gtest.h>

#include <limits>

#include "settings/settings.h"

namespace qs {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST(NotANumber, RefusedOrClampedNeverStored) {
    SettingsMaple maple;
    SettingsLarch larch;
    EXPECT_EQ(maple.ConfigCenterSpan(kNaN, 1e6), qsFrequencyRangeErr);
    EXPECT_EQ(maple.ConfigCenterSpan(1e9, kNaN), qsInvalidSpanErr);
    EXPECT_EQ(maple.Center(), SettingsMaple().Center());

    EXPECT_EQ(larch.ConfigLevel(kNaN, 10.0), qsReferenceLevelErr);
    EXPECT_EQ(larch.ConfigLevel(0.0, kNaN), qsAttenuationErr);
    EXPECT_EQ(maple.ConfigLevel(kNaN, kNaN), qsAdjustedParameter);
    EXPECT_EQ(maple.Ref(), QS_MIN_REFERENCE);
    EXPECT_EQ(maple.m_atten, QS_MAX_ATTENUATION);

    EXPECT_EQ(maple.ConfigRealTimeOverlap(kNaN), qsAdjustedParameter);
    EXPECT_EQ(maple.m_realTimeAdvanceRate, QS_MIN_RT_ADVANCE_RATE);
    EXPECT_EQ(maple.ConfigIQ(1, kNaN), qsClampedToLowerLimit);
    EXPECT_FALSE(maple.iqFirstPassBandwidth != maple.iqFirstPassBandwidth);
}

}  // namespace
}  // namespace qs

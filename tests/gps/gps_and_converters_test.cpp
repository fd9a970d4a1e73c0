// GPS time on a platform without a receiver, and its two helpers.
#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "gps/gps_time.h"
#include "qs_api.h"
#include "qs_sim.h"

namespace {

TEST(GpsSync, IsNotSupportedWithOrWithoutDevices) {
    qssim_reset();
    EXPECT_EQ(qsSyncCPUtoGPS(0, 9600), qsNotSupportedErr);
    qssim_add_device(QSSIM_PID_MAPLE_REV2, 12345678);
    int h = -1;
    ASSERT_EQ(qsOpenDevice(&h), qsNoError);
    EXPECT_EQ(qsSyncCPUtoGPS(3, 115200), qsNotSupportedErr);
    qsCloseDevice(h);
    qssim_reset();
}

std::vector<std::string> Tokens(const char* text, char delim) {
    std::vector<char> buffer(text, text + std::strlen(text) + 1);
    char* cursor = buffer.data();
    std::vector<std::string> out;
    while (char* token = qs::strsep_sc(&cursor, delim)) out.push_back(token);
    return out;
}

TEST(GpsHelpers, SplitKeepsEmptyFields) {
    EXPECT_EQ(Tokens("$GPRMC,123519,A,,4807.038", ','),
              (std::vector<std::string>{"$GPRMC", "123519", "A", "", "4807.038"}));
    EXPECT_EQ(Tokens("a,", ','), (std::vector<std::string>{"a", ""}));
    EXPECT_EQ(Tokens("", ','), (std::vector<std::string>{""}));
    char* none = nullptr;
    EXPECT_EQ(qs::strsep_sc(&none, ','), nullptr);
    EXPECT_EQ(qs::strsep_sc(nullptr, ','), nullptr);
}

TEST(GpsHelpers, TimeFromTmAgreesWithTheCalendar) {
    // Compare with the C library's own UTC conversion over several years,
    // leap and century years included.
    for (int year : {70, 99, 100, 104, 124, 126, 137}) {
        for (int yday : {0, 59, 60, 364}) {
            std::tm t{};
            t.tm_year = year;
            t.tm_mon = 0;
            t.tm_mday = 1 + yday;  // timegm normalises the day into the year
            t.tm_hour = 13;
            t.tm_min = 14;
            t.tm_sec = 15;
            std::tm normal = t;
            const time_t expected = timegm(&normal);
            std::tm byDay{};
            byDay.tm_year = year;
            byDay.tm_yday = normal.tm_yday;
            byDay.tm_hour = 13;
            byDay.tm_min = 14;
            byDay.tm_sec = 15;
            EXPECT_EQ(qs::timeFromTm(&byDay), static_cast<int>(expected))
                << "year " << 1900 + year << " day " << normal.tm_yday;
        }
    }
}

}  // namespace

TEST(Converters, ScaleRoundAndSaturate) {
    const float in[] = {0.5f, -0.5f, 1.0f, -1.0f, 0.25f, 2.0f, -2.0f, 0.0000152587890625f};
    short out[8] = {};
    qsConvert_32f16s(in, out, 15, 8);
    const short expected[] = {16384, -16384, 32767, -32768, 8192, 32767, -32768, 0};
    for (int i = 0; i < 8; ++i) EXPECT_EQ(out[i], expected[i]) << i;

    // Both directions multiply by 2 to the scale factor.
    const short back[] = {16384, -32768, 1, 32767};
    float f[4] = {};
    qsConvert_16s32f(back, f, -15, 4);
    EXPECT_FLOAT_EQ(f[0], 0.5f);
    EXPECT_FLOAT_EQ(f[1], -1.0f);
    EXPECT_FLOAT_EQ(f[2], 1.0f / 32768.0f);
    EXPECT_FLOAT_EQ(f[3], 32767.0f / 32768.0f);
    qsConvert_16s32f(back, f, 2, 1);
    EXPECT_FLOAT_EQ(f[0], 65536.0f);
}

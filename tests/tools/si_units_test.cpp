// Numbers as typed on the command line.
#include <gtest/gtest.h>

#include "core/si_units.h"

using qstool::FormatHz;
using qstool::ParseCount;
using qstool::ParseNumber;
using qstool::ParseSi;

TEST(SiUnits, MultipliersAndUnitsGiveHertz) {
    const struct {
        const char* text;
        double hz;
    } cases[] = {
        {"2.4G", 2.4e9},   {"100k", 1e5},     {"100K", 1e5},        {"10M", 1e7},
        {"1.5e9", 1.5e9},  {"9000", 9000.0},  {"2.4GHz", 2.4e9},    {"100 kHz", 1e5},
        {"433.92M", 433.92e6}, {"20 Hz", 20.0}, {".5k", 500.0},     {"1e-3G", 1e6},
        {"6.4g", 6.4e9},   {"0", 0.0},
    };
    for (const auto& c : cases) {
        double hz = -1.0;
        EXPECT_TRUE(ParseSi(c.text, &hz)) << c.text;
        EXPECT_DOUBLE_EQ(hz, c.hz) << c.text;
    }
}

TEST(SiUnits, RefusesWhatIsNotAPlainNumberWithSuffix) {
    // Lower-case m is milli or mega depending on who typed it; we do not guess.
    for (const char* text : {"", "G", "2.4X", "2.4 ", "1e", "1e+", "1.2.3", "nan", "inf",
                             "0x10", "100m", "2.4GG", "2.4 G Hz", "k100", "1,5G", " 5"}) {
        double hz = 42.0;
        EXPECT_FALSE(ParseSi(text, &hz)) << "'" << text << "'";
        EXPECT_EQ(hz, 42.0) << "a refused text must leave the value alone: " << text;
    }
}

TEST(SiUnits, LevelsAndCounts) {
    double dbm = 0.0;
    EXPECT_TRUE(ParseNumber("-40", &dbm));
    EXPECT_EQ(dbm, -40.0);
    EXPECT_TRUE(ParseNumber("+7.5", &dbm));
    EXPECT_EQ(dbm, 7.5);
    EXPECT_FALSE(ParseNumber("-40dBm", &dbm));
    EXPECT_FALSE(ParseNumber("1k", &dbm));

    int n = 0;
    EXPECT_TRUE(ParseCount("12345678", &n));
    EXPECT_EQ(n, 12345678);
    EXPECT_TRUE(ParseCount("2147483647", &n));
    EXPECT_FALSE(ParseCount("2147483648", &n));
    EXPECT_FALSE(ParseCount("-1", &n));
    EXPECT_FALSE(ParseCount("3x", &n));
    EXPECT_FALSE(ParseCount("", &n));
}

TEST(SiUnits, FormatsInTheLargestFittingUnit) {
    EXPECT_EQ(FormatHz(2.4e9), "2.4 GHz");
    EXPECT_EQ(FormatHz(1e5), "100 kHz");
    EXPECT_EQ(FormatHz(433.92e6), "433.92 MHz");
    EXPECT_EQ(FormatHz(20.0), "20 Hz");
    EXPECT_EQ(FormatHz(0.602006912), "0.602007 Hz");
    EXPECT_EQ(FormatHz(1500000001.0, 10), "1.500000001 GHz");
}

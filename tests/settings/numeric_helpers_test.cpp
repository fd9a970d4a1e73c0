// The RBW table and FFT-size rules, the packet solver, IQ limits, real-time
// sizes, triggers, the binary semaphore and the data directory.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <string>
#include <thread>

#include "dsp/qs_lib.h"
#include "settings/settings.h"

using namespace qs;

TEST(RbwTable, LimitsComeFromItsRowsAndLookupsPickTheNearest) {
    EXPECT_EQ(rbwlut[23].nativerbw, QS_MIN_RBW);
    EXPECT_EQ(rbwlut[0].nativerbw, QS_MAX_RBW);
    for (int i = 0; i < bwLutLen; ++i) {
        EXPECT_NE(rbwlut[i].fftsize, 16777216u);
        EXPECT_NEAR(rbwlut[i].binsize * rbwlut[i].fftsize / 8e7, 1.0, 1e-7) << i;
        EXPECT_NEAR(rbwlut[i].nativerbw / rbwlut[i].binsize, 2.02, 1e-7) << i;
    }
    EXPECT_EQ(native_index_from_rbw(0.0), 24);
    EXPECT_EQ(native_index_from_rbw(1e9), 0);
    const double tie = (10100000.0 + 5050000.0) / 2;
    EXPECT_EQ(native_index_from_rbw(tie), 0);
    EXPECT_EQ(native_index_from_rbw(std::nextafter(tie, 0.0)), 1);
    EXPECT_EQ(native_fft_from_rbw(9863.0), 16384.0);
    EXPECT_EQ(native_bin_from_rbw(9863.0), 4882.8125);
}

TEST(FftSize, WorkedPlansAndRangeEnds) {
    struct Case {
        int shape;
        double rbw;
        int fftSize;
        int zeroPad;
    };
    const Case cases[] = {
        {QS_RBW_SHAPE_NATIVE, 9863.28125, 16384, 0},  // exactly 2.02 bins
        {QS_RBW_SHAPE_NATIVE, 100.0, 2097152, 481152},
        {QS_RBW_SHAPE_NATIVE, QS_MAX_RBW, 16, 0},
        {QS_RBW_SHAPE_NATIVE, QS_MIN_RBW, 268435456, 0},
        {QS_RBW_SHAPE_LOWPASS, 50000.0, 8192, 0},
        {QS_RBW_SHAPE_GAUSSIAN, QS_MAX_RBW, 64, 44},  // n = 20, doubled 32
        {QS_RBW_SHAPE_GAUSSIAN, QS_MIN_RBW, 1073741824, 1073741824 - 352155425},
    };
    SettingsMaple s;
    for (const Case& c : cases) {
        s.SetRBWShape(c.shape);
        s.SetRBW(c.rbw);
        int fft = -1, zp = -1;
        get_fft_size(&s, fft, zp);
        EXPECT_EQ(fft, c.fftSize) << c.shape << " " << c.rbw;
        EXPECT_EQ(zp, c.zeroPad) << c.shape << " " << c.rbw;
    }
    int fft = 0;
    double fc = 0.0;
    non_native_fft_from_rbw(50000.0, &fft, &fc);
    EXPECT_EQ(fft, 8192);
    EXPECT_DOUBLE_EQ(fc, 3.2);
    non_native_fft_from_rbw(1e9, &fft, &fc);  // only far above the public range
    EXPECT_EQ(fft, 0);
    EXPECT_EQ(fc, 0.0);
}

TEST(PacketSolver, PpfIsALegalCountAndTotalsAreWholeBlocks) {
    for (int m = 1; m <= 32; m *= 2) EXPECT_EQ(get_min_ppf(m), m);
    for (int m = 33; m <= 47; ++m) EXPECT_EQ(get_min_ppf(m), 48) << m;
    for (int m = 48; m <= 64; ++m) EXPECT_EQ(get_min_ppf(m), 64) << m;
    for (int m = 65; m <= 95; ++m) EXPECT_EQ(get_min_ppf(m), 96) << m;
    for (int m = 96; m <= 128; ++m) EXPECT_EQ(get_min_ppf(m), 128) << m;

    const int cases[][4] = {{1, 1, 16, 1}, {1, 3, 4, 4}, {32, 5, 32, 5}, {2, 6, 2, 8}, {145, 1, 192, 1}};
    for (const auto& c : cases) {
        int ppf = c[0], steps = c[1];
        solve_ppf_step(&ppf, &steps);
        EXPECT_EQ(ppf, c[2]) << c[0] << "x" << c[1];
        EXPECT_EQ(steps, c[3]) << c[0] << "x" << c[1];
    }
    for (int p0 = 1; p0 <= 200; ++p0) {
        for (int s0 = 1; s0 <= 40; ++s0) {
            int ppf = p0, steps = s0;
            solve_ppf_step(&ppf, &steps);
            ASSERT_EQ(ppf * steps % 16, 0) << p0 << "x" << s0;
            ASSERT_TRUE(ppf >= p0 && steps >= s0) << p0 << "x" << s0;
        }
    }
}

TEST(IqLimits, TableEndsAndModels) {
    EXPECT_EQ(get_min_iq_bandwidth(0), 100.0);
    EXPECT_EQ(get_min_iq_bandwidth(8), 20000.0);
    EXPECT_EQ(get_min_iq_bandwidth(13), 100.0);
    EXPECT_EQ(get_min_iq_bandwidth(14), 100.0);
    EXPECT_EQ(get_max_iq_bandwidth(MODEL_LARCH, 0), 2e7);
    EXPECT_EQ(get_max_iq_bandwidth(MODEL_MAPLE, 0), 2.7e7);
    EXPECT_EQ(get_max_iq_bandwidth(MODEL_CEDAR, 0), 2.7e7);
    EXPECT_EQ(get_max_iq_bandwidth(static_cast<DEVICE_MODEL>(9), 0), 1.78e7);
    EXPECT_EQ(get_max_iq_bandwidth(MODEL_LARCH, 1), 1.78e7);
    EXPECT_EQ(get_max_iq_bandwidth(MODEL_MAPLE, 13), 4000.0);
    EXPECT_EQ(get_max_iq_bandwidth(MODEL_MAPLE, 14), 2e7);
    EXPECT_EQ(get_max_iq_bandwidth(MODEL_MAPLE, -1), 2e7);
}

TEST(SmallArithmetic, EdgeValues) {
    EXPECT_EQ(round_to_int(2.5), 3);
    EXPECT_EQ(round_to_int(-2.5), -2);
    EXPECT_EQ(round_to_int(-0.5), 0);
    EXPECT_EQ(mypow2(-1), 0u);
    EXPECT_EQ(mypow2(13), 8192u);
    EXPECT_EQ(mylog2(0), -1);
    EXPECT_EQ(mylog2(8192), 13);
    EXPECT_EQ(mylog2(8191u), 12);
    EXPECT_DOUBLE_EQ(mylog2(1024.0), 10.0);
    EXPECT_FALSE(is_pow_two(0));
    EXPECT_FALSE(is_pow_two(-8));
    EXPECT_TRUE(is_pow_two(8192u));
    EXPECT_EQ(round_up_power_two(1), 1u);
    EXPECT_EQ(round_up_power_two(1025), 2048u);
    EXPECT_EQ(round_up_factor_four(8), 8u);
    const unsigned words[] = {0xFFFFFFFFu, 2u};
    EXPECT_EQ(check_sum(words, 2), 1u);
    EXPECT_EQ(check_sum(words, 0), 0u);
    const unsigned char blank[] = {0xFF, 0xFF, 0xFE};
    EXPECT_TRUE(is_flash_blank(blank, 2));
    EXPECT_FALSE(is_flash_blank(blank, 3));
    EXPECT_TRUE(is_flash_blank(blank, 0));
}

TEST(RealTimeSize, HalvesToAFrameAndRoundsToFour) {
    EXPECT_EQ(calculateBestRealTimeSweepSize(1023), 1024);
    EXPECT_EQ(calculateBestRealTimeSweepSize(1024), 1024);
    EXPECT_EQ(calculateBestRealTimeSweepSize(2049), 2052);
    EXPECT_EQ(calculateBestRealTimeSweepSize(2047), 2048);
    EXPECT_EQ(calculateBestRealTimeSweepSize(101), 104);
}

TEST(Triggers, LeadingRunSkippedAndComparisonsStrict) {
    const float flat[] = {1, 1, 1, 1};
    EXPECT_EQ(find_rising_trigger(flat, 1.0f, 4), 0);
    EXPECT_EQ(find_falling_trigger(flat, 1.0f, 4), 0);
    const float wave[] = {5, 5, 0, 1, 1, 3, 0};
    EXPECT_EQ(find_rising_trigger(wave, 1.0f, 7), 5);   // 5, 5 passed over; 1 is not above
    EXPECT_EQ(find_falling_trigger(wave, 1.0f, 7), 2);
    EXPECT_EQ(find_falling_trigger(wave, 5.0f, 7), 0);  // nothing above 5 to fall from
    const float rise[] = {0, 0, 5, 4, 4, 1};
    EXPECT_EQ(find_falling_trigger(rise, 4.0f, 6), 5);
    EXPECT_EQ(find_rising_trigger(wave, 1.0f, 5), 0);
    EXPECT_EQ(find_rising_trigger(wave, 1.0f, 0), 0);
}

TEST(Semaphore, NotificationsCollapseAndWaitBlocksUntilTheNext) {
    semaphore sem;
    sem.notify();
    sem.notify();
    sem.wait();  // one bit: both notifications are used up here
    std::atomic<bool> passed{false};
    std::thread waiter([&] {
        sem.wait();
        passed = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(passed);
    sem.notify();
    waiter.join();
    EXPECT_TRUE(passed);
}

TEST(DataDirectory, MadeUnderHomeAndCached) {
    const char* dir = getAppDataPath();
    ASSERT_NE(dir, nullptr) << "home directory not writable";
    const std::string path = dir;
    ASSERT_GE(path.size(), 9u);
    EXPECT_EQ(path.substr(path.size() - 9), "/.corvane");
    struct stat st;
    EXPECT_TRUE(stat(dir, &st) == 0 && S_ISDIR(st.st_mode));
    EXPECT_EQ(getAppDataPath(), dir);
    const std::string cal = getCorrectionFilePath();
    EXPECT_EQ(cal, path + "/cal_files/");
    EXPECT_TRUE(fileExists(cal));
}

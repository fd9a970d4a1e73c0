// The I/Q circular buffer: wrap-around, overrun, triggers relative to the
// read position, time stamps, and the two sample types.
#include <gtest/gtest.h>

#include <vector>

#include "engines/iq_circular_buffer.h"

namespace qs {
namespace {

// Samples numbered from `first`: re = n, im = -n.
std::vector<Ipp32fc> Numbered(int first, int count) {
    std::vector<Ipp32fc> v(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) v[static_cast<size_t>(i)] = {float(first + i), float(-(first + i))};
    return v;
}

struct Result {
    std::vector<Ipp32fc> samples;
    std::vector<int> triggers;
    int s = -7, ns = -7;
};

class CircularBuffer : public ::testing::Test {
protected:
    void SetUp() override { buffer.Resize(10); }

    void Append(int first, int count, std::vector<int> triggers = {}, uint32_t s = 0,
                uint32_t ns = 0) {
        const std::vector<Ipp32fc> v = Numbered(first, count);
        buffer.Append(v.data(), count, triggers.data(), static_cast<int>(triggers.size()), s, ns, 0,
                      8e7);
    }
    Result Read(int count, int trigSize = 8) {
        Result r;
        r.samples.resize(static_cast<size_t>(count));
        std::vector<int> trig(static_cast<size_t>(trigSize), -1);
        int returned = -1, trigReturned = -1;
        buffer.Read(r.samples.data(), count, returned, trigSize ? trig.data() : nullptr, trigSize,
                    trigReturned, 0, 8e7, r.s, r.ns, qsDataType32fc);
        r.samples.resize(static_cast<size_t>(returned));
        trig.resize(static_cast<size_t>(trigReturned));
        r.triggers = trig;
        return r;
    }
    static std::vector<float> Re(const Result& r) {
        std::vector<float> v;
        for (const Ipp32fc& c : r.samples) v.push_back(c.re);
        return v;
    }

    IQStorage storage;
    IQCircularBuffer buffer{storage};
};

TEST_F(CircularBuffer, AnEmptyReadReturnsNothingAndLeavesTheTimeAlone) {
    const Result r = Read(5);
    EXPECT_TRUE(r.samples.empty());
    EXPECT_TRUE(r.triggers.empty());
    EXPECT_EQ(r.s, -7);
    EXPECT_EQ(r.ns, -7);
    EXPECT_EQ(buffer.Capacity(), 10);
}

TEST_F(CircularBuffer, SamplesWrapAroundTheEndInOrder) {
    Append(0, 6);
    EXPECT_EQ(Re(Read(6)), (std::vector<float>{0, 1, 2, 3, 4, 5}));
    // Written across the end: 6..9 then 0..2.
    Append(100, 7);
    EXPECT_EQ(buffer.Size(), 7);
    const Result r = Read(10);
    EXPECT_EQ(Re(r), (std::vector<float>{100, 101, 102, 103, 104, 105, 106}));
    EXPECT_EQ(r.samples[3].im, -103.0f);
    EXPECT_EQ(buffer.Size(), 0);
}

TEST_F(CircularBuffer, ExactFitsAtTheEndLeaveTheIndicesAtZero) {
    Append(0, 4);
    Read(4);
    Append(10, 6);  // fills up to the end: write back at 0
    Append(20, 3);
    EXPECT_EQ(buffer.Size(), 9);
    EXPECT_EQ(Re(Read(6)), (std::vector<float>{10, 11, 12, 13, 14, 15}));  // ends at the end
    Append(30, 2);
    EXPECT_EQ(Re(Read(10)), (std::vector<float>{20, 21, 22, 30, 31}));
}

TEST_F(CircularBuffer, ABlockThatWouldFillTheBufferIsAnOverrunReportedOnce) {
    Append(0, 4, {1, 3});
    EXPECT_EQ(buffer.SampleLoss(), 0);
    Append(10, 6, {2});  // 6 is exactly the free space
    EXPECT_EQ(buffer.Size(), 6);
    EXPECT_EQ(buffer.SampleLoss(), 1);
    EXPECT_EQ(buffer.SampleLoss(), 0);
    const Result r = Read(10);
    EXPECT_EQ(Re(r), (std::vector<float>{10, 11, 12, 13, 14, 15}));
    EXPECT_EQ(r.triggers, (std::vector<int>{2}));  // the old triggers went with their samples
}

TEST_F(CircularBuffer, TriggersCountFromTheReadPosition) {
    Append(0, 3, {0, 2});
    Append(3, 4, {0, 3});  // at 3 and 6 of the held samples
    Result r = Read(3);
    EXPECT_EQ(r.triggers, (std::vector<int>{0, 2}));
    // A trigger at exactly the end of a read belongs to the next one.
    r = Read(3);
    EXPECT_EQ(r.triggers, (std::vector<int>{0}));
    r = Read(3);
    EXPECT_EQ(r.triggers, (std::vector<int>{0}));
}

TEST_F(CircularBuffer, TriggersWithoutRoomAreLostNotDeferred) {
    struct Case {
        int trigSize;
        std::vector<int> expect;
    };
    for (const Case& c : {Case{2, {0, 1}}, Case{0, {}}, Case{8, {0, 1, 2, 3, 4}}}) {
        buffer.Clear();
        Append(0, 8, {0, 1, 2, 3, 4});
        EXPECT_EQ(Read(5, c.trigSize).triggers, c.expect) << c.trigSize;
        EXPECT_TRUE(Read(3).triggers.empty()) << c.trigSize;
    }
}

TEST_F(CircularBuffer, PurgeDropsSamplesTriggersAndTheLossFlag) {
    Append(0, 5, {1});
    Append(5, 5, {1});  // overrun
    buffer.Clear();
    EXPECT_EQ(buffer.Size(), 0);
    EXPECT_EQ(buffer.SampleLoss(), 0);
    Append(20, 2);
    const Result r = Read(5);
    EXPECT_EQ(Re(r), (std::vector<float>{20, 21}));
    EXPECT_TRUE(r.triggers.empty());
}

TEST_F(CircularBuffer, TimeIsThatOfTheOldestUnreadSampleAndAdvancesBy25nsASample) {
    buffer.Resize(100);
    Append(0, 40, {}, 5, 999999000);
    Result r = Read(40);
    EXPECT_EQ(r.s, 5);
    EXPECT_EQ(r.ns, 999999000);
    // 40 samples later carries into the next second.
    Append(0, 20, {}, 6, 0);
    Append(0, 20, {}, 6, 500);  // worked back over the 20 held: 500 - 500 = 0
    r = Read(10);
    EXPECT_EQ(r.s, 6);
    EXPECT_EQ(r.ns, 0);
    r = Read(30);
    EXPECT_EQ(r.s, 6);
    EXPECT_EQ(r.ns, 250);
    // Working back from a time too close to zero borrows a second.
    Append(0, 10, {}, 0, 0);
    Append(0, 10, {}, 0, 100);
    r = Read(1);
    EXPECT_EQ(r.s, -1);
    EXPECT_EQ(r.ns, 1000000000 + 100 - 250);
}

TEST_F(CircularBuffer, DecimationAndTheMeasuredRateScaleTheSampleTime) {
    buffer.Resize(100);
    const std::vector<Ipp32fc> v = Numbered(0, 20);
    // At decimation 2^3 and a converter at half rate a sample is 8 * 50 ns.
    buffer.Append(v.data(), 20, nullptr, 0, 0, 100000, 3, 4e7);
    Ipp32fc out[20];
    int returned = 0, trig = 0, s = 0, ns = 0;
    buffer.Read(out, 10, returned, nullptr, 0, trig, 3, 4e7, s, ns, qsDataType32fc);
    buffer.Read(out, 10, returned, nullptr, 0, trig, 3, 4e7, s, ns, qsDataType32fc);
    EXPECT_EQ(ns, 100000 + 10 * 400);
}

TEST_F(CircularBuffer, SixteenBitSamplesAreScaledRoundedAndSaturated) {
    const Ipp32fc v[4] = {{0.5f, -0.25f}, {1.0f, -1.0f}, {2.0f, -3.0f}, {1.0f / 65536, -1.6f / 32768}};
    buffer.Append(v, 4, nullptr, 0, 0, 0, 0, 8e7);
    Ipp16s out[8] = {};
    int returned = 0, trig = 0, s = 0, ns = 0;
    buffer.Read(out, 4, returned, nullptr, 0, trig, 0, 8e7, s, ns, qsDataType16sc);
    ASSERT_EQ(returned, 4);
    const Ipp16s expect[8] = {16384, -8192, 32767, -32768, 32767, -32768, 0, -2};
    for (int i = 0; i < 8; ++i) EXPECT_EQ(out[i], expect[i]) << i;
}

TEST_F(CircularBuffer, AnUnknownTypeDeliversNothingButTriggersAndTimeMoveOn) {
    Append(0, 4, {1}, 0, 1000);
    Ipp32fc out[4] = {};
    int returned = 0, trig = 0, s = 0, ns = 0;
    int trigs[4] = {};
    buffer.Read(out, 4, returned, trigs, 4, trig, 0, 8e7, s, ns, static_cast<qsDataType>(2));
    EXPECT_EQ(out[1].re, 0.0f);
    EXPECT_EQ(trig, 1);
    EXPECT_EQ(buffer.Size(), 4);
    const Result r = Read(4);
    EXPECT_EQ(Re(r), (std::vector<float>{0, 1, 2, 3}));
    EXPECT_TRUE(r.triggers.empty());
    EXPECT_EQ(r.ns, 1100);
}

}  // namespace
}  // namespace qs

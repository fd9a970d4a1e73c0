// Trigger rows and time entries of the streams: which output step a
// trigger is filed under, and the row's limit.
#include <gtest/gtest.h>

#include <vector>

#include "engines/engine_iq.h"

namespace qs {
namespace {

constexpr int kRowsBlock = 299008;
constexpr int kStep = 1048576;

constexpr int kRows = IQStream::OUTPUT_STEPS;  // 60
using Rows = StepRows<kRows>;

std::vector<int> Row(const Rows& rows, int r) {
    std::vector<int> v;
    for (int i = 0; i < Rows::TRIGS_PER_OUTPUT && rows.trigger_list[r][i] != 0; ++i)
        v.push_back(rows.trigger_list[r][i]);
    return v;
}

TEST(StreamRows, ATriggerBelongsToTheStepItsPositionFallsIn) {
    const int none[17] = {};
    struct Case {
        int v;      // in the fourth block, which starts 897024 into step 0
        int delay;
        int row;
        int position;
    };
    const Case cases[] = {
        {151552, 0, 0, kStep},  // exactly the step's length: stays
        {151553, 0, 1, 1},      // one more: the next step's first
        {151000, 600, 1, 48},   // moved there by the delay
        {100, 0, 0, 897124},
    };
    for (const Case& c : cases) {
        Rows rows;
        for (int b = 0; b < 3; ++b) rows.AddTriggers(none, c.delay);
        const int t[17] = {c.v};
        rows.AddTriggers(t, c.delay);
        EXPECT_EQ(Row(rows, c.row), std::vector<int>{c.position}) << c.v;
        EXPECT_TRUE(Row(rows, 1 - c.row).empty()) << c.v;
    }
}

TEST(StreamRows, BlocksTileTheStepsAndRowsWrapClean) {
    Rows rows;
    // One trigger at sample 10 of every block. 256 blocks end exactly with
    // step 72, so the ring of 60 rows has wrapped and rows 0 to 12 hold
    // steps 60 to 72, each with nothing left of its step 60 before.
    std::vector<long long> expect[kRows];
    int lastStep[kRows];
    for (int& s : lastStep) s = -1;
    for (int b = 0; b < 256; ++b) {
        const int t[17] = {10};
        rows.AddTriggers(t, 0);
        const long long at = static_cast<long long>(b) * kRowsBlock + 10;
        const int step = static_cast<int>((at - 1) / kStep);
        const int r = step % kRows;
        if (lastStep[r] != step) expect[r].clear();
        lastStep[r] = step;
        expect[r].push_back(at - static_cast<long long>(step) * kStep);
    }
    for (int r = 0; r < kRows; ++r) {
        const std::vector<int> got = Row(rows, r);
        EXPECT_EQ(std::vector<long long>(got.begin(), got.end()), expect[r]) << r;
    }
    EXPECT_EQ(rows.trig_loc, 73 % kRows);
    EXPECT_EQ(rows.trig_add_amt, 0);
}

TEST(StreamRows, ARowKeepsAtMost62AndDropsTheRest) {
    Rows rows;
    int t[17] = {};
    for (int b = 0; b < 4; ++b) {  // 4 x 17 = 68 triggers in step 0
        for (int i = 0; i < 17; ++i) t[i] = 1000 * (i + 1);
        rows.AddTriggers(t, 0);
    }
    EXPECT_EQ(Row(rows, 0).size(), 62u);
    EXPECT_EQ(rows.trigger_list[0][61], 3 * kRowsBlock + 11000);
    EXPECT_TRUE(Row(rows, 1).empty());
}

TEST(StreamRows, EachStepIsDatedFromTheBlockThatStartsInIt) {
    Rows rows;
    // Block times 1 s apart; the step's first sample lies before the block
    // by the block's offset in the step (12.5 ns a sample), and a filtered
    // output by the filter's delay too.
    for (int b = 0; b < 5; ++b) rows.AddTime(10 + static_cast<uint32_t>(b), 500000000, 800);
    EXPECT_EQ(rows.times[0].seconds, 10u);
    EXPECT_EQ(rows.times[0].nanosecs, 500000000u - 10000u);
    // Step 1 starts 147456 samples before block 4 (at 1196032).
    EXPECT_EQ(rows.times[1].seconds, 14u);
    EXPECT_EQ(rows.times[1].nanosecs, 500000000u - 1843200u - 10000u);
    // Borrowing from the seconds.
    Rows early;
    early.AddTime(3, 1000, 0);
    early.AddTime(3, 1000, 0);
    early.AddTime(3, 1000, 0);
    early.AddTime(3, 1000, 0);
    early.AddTime(3, 1000, 0);
    EXPECT_EQ(early.times[1].seconds, 2u);
    EXPECT_EQ(early.times[1].nanosecs, 1000000000u + 1000u - 1843200u);
}

}  // namespace
}  // namespace qs

namespace qs {
namespace {

// A reader a whole ring behind: blocks that find the ring full are dropped
// whole, so the reader gets every stored block intact and in order, then
// the next one stored after it made room, with triggers where they belong.
TEST(DirectStreamRing, ABlockThatFindsTheRingFullIsDroppedWhole) {
    DirectStream stream(nullptr, nullptr);
    std::vector<Ipp16s> block(kRowsBlock);
    auto store = [&](int b) {
        block[0] = static_cast<Ipp16s>(b);  // the block's number in its first sample
        const int t[17] = {100};
        stream.Store(block.data(), t, 0, 0, 8e7);
    };
    for (int b = 0; b < 300; ++b) store(b);
    // Room for 72 steps less a block: 252 blocks are in, the rest dropped.
    std::vector<float> out(kStep);
    int triggers[62];
    std::vector<long long> positions;
    for (int step = 0; step < 71; ++step) {
        ASSERT_EQ(stream.Get_32f(out.data(), triggers), qsNoError);
        for (int i = 0; i < 62 && triggers[i] != 0; ++i)
            positions.push_back(static_cast<long long>(step) * kStep + triggers[i]);
        for (long long b = (static_cast<long long>(step) * kStep + kRowsBlock - 1) / kRowsBlock;
             b * kRowsBlock < (step + 1LL) * kStep; ++b)
            ASSERT_EQ(out[static_cast<size_t>(b * kRowsBlock - step * kStep)], b / 32768.0f) << b;
    }
    for (int b = 300; b < 304; ++b) store(b);
    ASSERT_EQ(stream.Get_32f(out.data(), triggers), qsNoError);
    EXPECT_EQ(out[static_cast<size_t>(251 * kRowsBlock - 71 * kStep)], 251 / 32768.0f);
    EXPECT_EQ(out[static_cast<size_t>(252 * kRowsBlock - 71 * kStep)], 300 / 32768.0f);
    for (int i = 0; i < 62 && triggers[i] != 0; ++i)
        positions.push_back(71LL * kStep + triggers[i]);
    ASSERT_GE(positions.size(), 253u);
    for (size_t k = 0; k < positions.size(); ++k)
        EXPECT_EQ(positions[k], static_cast<long long>(k) * kRowsBlock + 100) << k;
}

}  // namespace
}  // namespace qs

// Trigger rows and time entries of the streams: which output step a
// trigger is filed under, and the row's limit.
#include <gtest/gtest.h>

#include <vector>

#include "engines/engine_iq.h"

namespace qs {
namespace {

constexpr int kRowsBlock = 299008;
constexpr int kStep = 1048576;

// A reader a whole ring behind: blocks that find the ring full are dropped
// whole, so the reader gets every stored block intact and in order, then
// the next one stored after it made room, with triggers where they belong.
TEST(DirectStreamRing, ABlockThatFindsTheRingFullIsDroppedWhole) {
    DirectStream stream(nullptr, nullptr);
    std::vector<Ipp16s> block(kRowsBlock);
    auto store = [&](int b) {
        block[0] = static_cast<Ipp16s>(b);  // the block's number in its first sample
        const int t[17] = {100};
        qs::Block blk{block.data()};
        blk.triggers = t;
        stream.Store(blk);
    };
    for (int b = 0; b < 300; ++b) store(b);
    // Room for 72 steps less a block: 252 blocks are in, the rest dropped.
    std::vector<float> out(kStep);
    int triggers[62];
    std::vector<long long> positions;
    for (int step = 0; step < 71; ++step) {
        ASSERT_EQ(stream.GetIQ(out.data(), triggers), qsNoError);
        for (int i = 0; i < 62 && triggers[i] != 0; ++i)
            positions.push_back(static_cast<long long>(step) * kStep + triggers[i]);
        for (long long b = (static_cast<long long>(step) * kStep + kRowsBlock - 1) / kRowsBlock;
             b * kRowsBlock < (step + 1LL) * kStep; ++b)
            ASSERT_EQ(out[static_cast<size_t>(b * kRowsBlock - step * kStep)], b / 32768.0f) << b;
    }
    for (int b = 300; b < 304; ++b) store(b);
    ASSERT_EQ(stream.GetIQ(out.data(), triggers), qsNoError);
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

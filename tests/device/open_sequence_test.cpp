// What a Maple's and a Larch's open send to the device, and how a USB
// failure during the Maple's ends the open.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include "qs_api.h"
#include "qs_sim.h"

namespace {

struct Sent {
    int headerType;
    int commandType;
    int portMask;
};

std::vector<Sent> CommandsOf(int sim) {
    std::vector<Sent> out;
    unsigned char block[1024];
    for (int i = 0; i < qssim_command_count(sim); ++i) {
        if (qssim_get_command(sim, i, block) != 0) break;
        out.push_back({block[0], block[4] | block[5] << 8, block[16]});
    }
    return out;
}

TEST(MapleOpen, SweepsOnceThenReadsTheImagePagesThenSetsThePorts) {
    qssim_reset();
    const int sim = qssim_add_device(QSSIM_PID_MAPLE_REV1, 12345678);
    int h = -1;
    ASSERT_EQ(qsOpenDevice(&h), qsNoError);
    const std::vector<Sent> sent = CommandsOf(sim);
    ASSERT_EQ(sent.size(), 1u + 12u + 1u);
    EXPECT_EQ(sent[0].headerType, 0x00);  // configure
    EXPECT_EQ(sent[0].commandType, 1);    // a counted sweep
    for (int page = 8; page <= 19; ++page) {
        EXPECT_EQ(sent[page - 7].headerType, 0x11) << page;
        EXPECT_EQ(sent[page - 7].commandType, page);
    }
    EXPECT_EQ(sent.back().headerType, 0x15);
    EXPECT_EQ(sent.back().portMask, 0);
    qsCloseDevice(h);
    qssim_reset();
}

// Two capture passes, the image pages, two more passes, the ports. Each
// pass is one sub-band of 288 one-packet steps sending the internal tone
// through the IF, and is answered by its 18 blocks.
TEST(LarchOpen, SelfCalibratesReadsTheImageSelfCalibratesAgainThenSetsThePorts) {
    qssim_reset();
    const int sim = qssim_add_device(QSSIM_PID_LARCH, 10000001);
    int h = -1;
    ASSERT_EQ(qsOpenDevice(&h), qsNoError);
    const std::vector<Sent> sent = CommandsOf(sim);
    ASSERT_EQ(sent.size(), 2u + 8u + 2u + 1u);
    const size_t passes[4] = {0, 1, 10, 11};
    for (int k = 0; k < 4; ++k) {
        const size_t i = passes[k];
        SCOPED_TRACE(i);
        EXPECT_EQ(sent[i].headerType, 0x05);      // capture
        EXPECT_EQ(sent[i].commandType, k % 2);    // lower, then upper half of the IF
        unsigned char block[1024];
        ASSERT_EQ(qssim_get_command(sim, int(i), block), 0);
        EXPECT_EQ(block[6] | block[7] << 8, 1);  // one sub-band
        const unsigned char sub[14] = {1, 0, 0x89, 0x7C, 0xD8, 0x59, 0x50, 0x5F, 0, 0, 1, 0, 0x20, 0x01};
        for (int b = 0; b < 14; ++b) EXPECT_EQ(block[16 + b], sub[b]) << "sub-band byte " << b;
    }
    for (int page = 8; page <= 15; ++page) {
        EXPECT_EQ(sent[page - 6].headerType, 0x11) << page;
        EXPECT_EQ(sent[page - 6].commandType, page);
    }
    EXPECT_EQ(sent.back().headerType, 0x15);
    EXPECT_EQ(sent.back().portMask, 0);
    // 18 blocks of 8 sample packets a channel per pass.
    EXPECT_EQ(qssim_packets_served(sim, 0x81), 4 * 18 * 8);
    EXPECT_EQ(qssim_packets_served(sim, 0x82), 4 * 18 * 8);
    qsCloseDevice(h);
    qssim_reset();
}

TEST(MapleOpen, UnpluggedDuringTheStartUpSweepTheOpenFailsWithTheSlotEmpty) {
    qssim_reset();
    const int sim = qssim_add_device(QSSIM_PID_MAPLE_REV2, 12345678);
    // At the instrument's own pace the start-up sweep takes a while; the
    // device goes away in the middle of it.
    qssim_set_pacing(sim, 1);
    std::thread unplug([sim] {
        while (qssim_command_count(sim) == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        qssim_remove_device(sim);
    });
    int h = 5;
    const qsStatus status = qsOpenDevice(&h);
    unplug.join();
    // The second attempt finds no device at all.
    EXPECT_EQ(status, qsDeviceNotOpenErr);
    EXPECT_EQ(h, -1);
    // Only the sweep went out: no calibration page was asked for.
    EXPECT_EQ(qssim_command_count(sim), 1);
    int type = 0;
    EXPECT_EQ(qsGetDeviceType(0, &type), qsDeviceNotOpenErr);
    // Plugged in again, it opens into the first slot.
    qssim_add_device(QSSIM_PID_MAPLE_REV2, 12345678);
    ASSERT_EQ(qsOpenDevice(&h), qsNoError);
    EXPECT_EQ(h, 0);
    qsCloseDevice(h);
    qssim_reset();
}

}  // namespace

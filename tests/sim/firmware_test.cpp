// The firmware model, driven directly with command blocks and reads at
// chosen instants, so that pacing is tested without sleeping.
#include <gtest/gtest.h>

#include <libusb.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "qs_sim.h"
#include "sim_firmware.h"

namespace {

using qssim::Clock;
using qssim::Firmware;
using qssim::kPacketBytes;

constexpr int kHalf = 8 * kPacketBytes;

struct Block {
    std::vector<uint8_t> bytes;
    explicit Block(int packets) : bytes(size_t(packets) * kPacketBytes) {}
    const uint8_t* Packet(int i) const { return bytes.data() + size_t(i) * kPacketBytes; }
    uint16_t Word(int packet, int offset) const {
        const uint8_t* p = Packet(packet) + offset;
        return static_cast<uint16_t>(p[0] | (p[1] << 8));
    }
    uint16_t TotalPktCount(int p) const { return Word(p, 32736); }
    uint16_t Gpif(int p) const { return Word(p, 32740); }
    uint16_t AdcOverflow(int p) const { return Word(p, 32742); }
    uint16_t Events(int p) const { return Word(p, 32748); }
    uint16_t EventCounter(int p) const { return Word(p, 32750); }
    uint8_t Settings0(int p) const { return Packet(p)[8]; }
};

std::vector<uint8_t> ConfigureCommand(uint16_t type, uint8_t settings0, uint16_t ppf, uint16_t steps) {
    std::vector<uint8_t> c(1024, 0);
    c[0] = qssim::kCmdConfigure;
    c[4] = static_cast<uint8_t>(type);
    c[6] = 1;                       // one sub-band
    c[16] = settings0;
    c[16 + 4] = 7;                  // LO2Freq
    c[16 + 6] = 100;                // LO1startFreq
    c[16 + 8] = 10;                 // LO1stepFreq
    c[16 + 10] = static_cast<uint8_t>(ppf);
    c[16 + 11] = static_cast<uint8_t>(ppf >> 8);
    c[16 + 12] = static_cast<uint8_t>(steps);
    c[16 + 13] = static_cast<uint8_t>(steps >> 8);
    return c;
}

std::vector<uint8_t> FlashCommand(uint8_t op, uint16_t type, uint16_t count) {
    std::vector<uint8_t> c(1024, 0);
    c[0] = op;
    c[4] = static_cast<uint8_t>(type);
    c[5] = static_cast<uint8_t>(type >> 8);
    c[6] = static_cast<uint8_t>(count);
    c[7] = static_cast<uint8_t>(count >> 8);
    return c;
}

class FirmwareTest : public ::testing::Test {
protected:
    qssim::Scene scene;
    Firmware fw{QSSIM_PID_MAPLE_REV2, 12345678, &scene};
    Clock::time_point t0 = Clock::now();

    void Send(const std::vector<uint8_t>& c, Clock::time_point at) {
        fw.OnCommand(c.data(), static_cast<int>(c.size()), at);
    }
    void Send(const std::vector<uint8_t>& c) { Send(c, t0); }
    // Reads up to `packets` packets of one channel; returns how many came.
    int Read(int channel, Block& into, int packets, Clock::time_point at) {
        bool shortPacket = false;
        return fw.Read(channel, into.bytes.data(), packets * kPacketBytes, &shortPacket, at) /
               kPacketBytes;
    }
    int Read(int channel, Block& into, int packets) { return Read(channel, into, packets, t0); }
};

TEST_F(FirmwareTest, DecodesCountsAndRejectsBadBlocks) {
    qssim::Command c;
    auto bytes = ConfigureCommand(qssim::kCfgSweep, 0, 8, 3);
    EXPECT_FALSE(qssim::DecodeCommand(bytes.data(), 1023, &c));
    ASSERT_TRUE(qssim::DecodeCommand(bytes.data(), 1024, &c));
    EXPECT_EQ(c.subBands[0].packetsPerFreq, 8);
    EXPECT_EQ(c.subBands[0].LO1stepFreq, 10);
    EXPECT_EQ(qssim::CountedBlocks(c), 1);  // 24 packets: the 8 left over are dropped
    // 32 sub-bands is all a block holds; a larger count reads as 32.
    c.subBandCount = 40;
    for (auto& sb : c.subBands) sb.packetsPerFreq = 16, sb.stepCount = 1;
    EXPECT_EQ(qssim::CountedBlocks(c), 32);
}

TEST_F(FirmwareTest, SweepAnswersWithExactlyItsBlocks) {
    auto cmd = ConfigureCommand(qssim::kCfgSweep, 0x42, 8, 5);  // 40 packets: 2 blocks
    Send(cmd);
    Block ch1(32), ch2(32);
    EXPECT_EQ(Read(0, ch1, 32), 16);
    EXPECT_EQ(Read(1, ch2, 32), 16);
    EXPECT_EQ(Read(0, ch1, 32), 0);
    for (int p = 0; p < 16; ++p) {
        EXPECT_EQ(ch2.TotalPktCount(p) - ch1.TotalPktCount(p), 1);
        EXPECT_EQ(ch1.Settings0(p), 0x42);  // control bytes echoed
    }
    EXPECT_EQ(ch1.TotalPktCount(1) - ch1.TotalPktCount(0), 2);
    // Time order ch1 p0, ch2 p0, ch1 p1, ...: 8 packets a step, so the
    // step of ch2's packet 5 (time packet 11) is 1; LO1 = 100 + 10 x step.
    EXPECT_EQ(ch2.Word(5, 4), 110);
    EXPECT_EQ(ch1.Word(0, 6), 7);
    // The payload is the pattern at the packet's place in the run.
    const uint8_t* payload = ch2.Packet(0) + 32;
    const int16_t s1 = static_cast<int16_t>((payload[0] | (payload[1] << 8)) & 0xFFFC);
    EXPECT_EQ(s1, qssim::TestPatternSample(18688 + 1));
    EXPECT_EQ(fw.PacketsServed(0), 16);
}

TEST_F(FirmwareTest, StreamEndsWithOneBlockEchoingTheStop) {
    Send(ConfigureCommand(qssim::kCfgStream, 0x00, 16, 4096));
    Block ch1(64), ch2(64);
    EXPECT_EQ(Read(0, ch1, 19), 19);  // channel 1 stops inside its third block
    EXPECT_EQ(Read(1, ch2, 16), 16);
    Send(ConfigureCommand(qssim::kCfgStream, 0x01, 16, 4096));
    // The rest of the begun block, then one block with the stop's bytes.
    EXPECT_EQ(Read(0, ch1, 64), 5 + 8);
    EXPECT_EQ(ch1.Settings0(4), 0x00);
    EXPECT_EQ(ch1.Settings0(5), 0x01);
    EXPECT_EQ(ch1.Settings0(12), 0x01);
    EXPECT_EQ(Read(1, ch2, 64), 16);
    EXPECT_EQ(ch2.Settings0(7), 0x00);
    EXPECT_EQ(ch2.Settings0(15), 0x01);
    EXPECT_EQ(Read(0, ch1, 64), 0);
    EXPECT_EQ(Read(1, ch2, 64), 0);
}

TEST_F(FirmwareTest, ModeBitsDecideWhetherAStreamStarts) {
    Block ch1(8);
    Send(ConfigureCommand(qssim::kCfgStream, 0x02, 16, 4096));
    EXPECT_EQ(Read(0, ch1, 8), 0);
    Send(ConfigureCommand(qssim::kCfgStreamForce, 0x03, 16, 4096));
    EXPECT_EQ(Read(0, ch1, 8), 8);
    // A new command drops what the stream had still to send.
    Send(FlashCommand(qssim::kCmdPreset, 2, 0));
    EXPECT_EQ(Read(0, ch1, 8), 0);
}

TEST_F(FirmwareTest, FlashKeepsWritesUntilAnUnlockedClear) {
    auto write = FlashCommand(qssim::kCmdWriteFlash, 256 * 3 + 1, qssim::kFlashUnlock);
    for (int i = 0; i < 256; ++i) write[16 + i] = static_cast<uint8_t>(i);
    Send(write);
    // Programming only clears bits; a write without the unlock word is ignored.
    auto second = write;
    for (int i = 0; i < 256; ++i) second[16 + i] = 0xF0;
    Send(second);
    auto locked = write;
    locked[6] = locked[7] = 0;
    for (int i = 0; i < 256; ++i) locked[16 + i] = 0;
    Send(locked);
    Send(FlashCommand(qssim::kCmdReadFlash, 3, 0));
    Block ch1(1), ch2(1);
    ASSERT_EQ(Read(0, ch1, 1), 1);
    ASSERT_EQ(Read(1, ch2, 1), 1);
    EXPECT_EQ(Read(0, ch1, 1), 0);  // one packet per channel
    EXPECT_EQ(ch1.Packet(0)[255], 0xFF);
    EXPECT_EQ(ch1.Packet(0)[256 + 0x35], 0x35 & 0xF0);
    EXPECT_EQ(ch1.Packet(0)[512], 0xFF);

    Send(FlashCommand(qssim::kCmdClearFlash, 0x1234, qssim::kFlashUnlock));
    EXPECT_EQ(fw.Flash()[3 * 65536 + 256 + 0x35], 0x35 & 0xF0);
    Send(FlashCommand(qssim::kCmdClearFlash, qssim::kFlashUnlock, qssim::kFlashUnlock));
    EXPECT_EQ(fw.Flash()[3 * 65536 + 256 + 0x35], 0xFF);

    // Page 49 does not exist: nothing answers.
    Send(FlashCommand(qssim::kCmdReadFlash, 49, 0));
    EXPECT_EQ(Read(0, ch1, 1), 0);
}

TEST_F(FirmwareTest, ShortFlashPageEndsChannel2Early) {
    fw.ShortenNextFlashPage(100);
    Send(FlashCommand(qssim::kCmdReadFlash, 8, 0));
    std::vector<uint8_t> buf(kPacketBytes);
    bool shortPacket = false;
    EXPECT_EQ(fw.Read(0, buf.data(), kPacketBytes, &shortPacket, t0), kPacketBytes);
    EXPECT_FALSE(shortPacket);
    EXPECT_EQ(fw.Read(1, buf.data(), kPacketBytes, &shortPacket, t0), 100);
    EXPECT_TRUE(shortPacket);
}

TEST_F(FirmwareTest, MonitorValuesRotateThroughSevenIndices) {
    fw.SetTemperature(41.5);
    Send(ConfigureCommand(qssim::kCfgStream, 0, 16, 4096));
    Block ch1(8), ch2(8);
    std::vector<int> seen;
    for (int b = 0; b < 7; ++b) {
        ASSERT_EQ(Read(0, ch1, 8), 8);
        ASSERT_EQ(Read(1, ch2, 8), 8);
        const int index = ch1.Word(0, 12);
        const uint16_t value = ch1.Word(0, 14);
        EXPECT_EQ(ch2.Word(0, 12), index);  // both channels carry the same reading
        EXPECT_EQ(ch2.Word(0, 14), value);
        seen.push_back(index);
        if (index == 1) {
            EXPECT_NEAR(value * 0.003, 5.0, 0.05);
        } else if (index == 0) {
            EXPECT_NEAR(value * 0.001, 1.8, 0.01);
        } else if (index == 4) {
            EXPECT_NEAR(static_cast<int16_t>(value) / 16.0, 41.5, 0.1);
        }
    }
    std::sort(seen.begin(), seen.end());
    EXPECT_EQ(seen, (std::vector<int>{0, 1, 2, 3, 4, 5, 6}));
}

TEST_F(FirmwareTest, InjectedFaultsShowInTheTrailers) {
    Send(ConfigureCommand(qssim::kCfgStream, 0, 16, 4096));
    Block a1(8), a2(8), b1(8), b2(8);
    Read(0, a1, 8);
    Read(1, a2, 8);
    fw.StepGpifOverflow();
    fw.StepAdcOverflow();
    fw.SlipChannel2();
    Read(0, b1, 8);
    Read(1, b2, 8);
    EXPECT_EQ(a2.Gpif(7) + 1, b2.Gpif(7));
    EXPECT_EQ(a2.AdcOverflow(0) + 1, b2.AdcOverflow(0));
    EXPECT_EQ(b1.Gpif(0), b2.Gpif(0));
    EXPECT_EQ(a2.TotalPktCount(0) - a1.TotalPktCount(0), 1);
    EXPECT_EQ(b2.TotalPktCount(0) - b1.TotalPktCount(0), 3);  // out of step
    // The counters run on over the next command; the framing is restored.
    Send(ConfigureCommand(qssim::kCfgSweep, 0, 16, 1));
    Read(0, a1, 8);
    Read(1, a2, 8);
    EXPECT_EQ(a2.TotalPktCount(0) - a1.TotalPktCount(0), 1);
    EXPECT_EQ(a2.Gpif(7), b2.Gpif(7));
}

TEST_F(FirmwareTest, TriggersAreReportedWhereTheHostLooksForThem) {
    const std::vector<int64_t> positions = {100, 3 * 18688 + 2, 5 * 18688 + 500, 299008 + 40000};
    for (int64_t p : positions) ASSERT_TRUE(fw.AddTrigger(p));
    EXPECT_FALSE(fw.AddTrigger(3));
    Send(ConfigureCommand(qssim::kCfgStream, 0, 16, 4096));
    Block ch[2] = {Block(16), Block(16)};
    Read(0, ch[0], 16);
    Read(1, ch[1], 16);
    // Walk the packets in time order as the host does: a change of the
    // running count marks an event; a counter of 0 to 6 belongs one packet on.
    std::vector<int64_t> found;
    int last = 0;
    for (int q = 0; q < 32; ++q) {
        const Block& b = ch[q % 2];
        const int count = b.Events(q / 2);
        if (count == last) continue;
        last = count;
        int64_t e = b.EventCounter(q / 2);
        if (e <= 6) e += 18688;
        found.push_back(int64_t(q) * 18688 + e);
    }
    EXPECT_EQ(found, positions);
}

TEST_F(FirmwareTest, PacingReleasesOneBlockPer3_7376Ms) {
    fw.SetPacing(true);
    Send(ConfigureCommand(qssim::kCfgStream, 0, 16, 4096), t0);
    Block ch1(64);
    EXPECT_EQ(Read(0, ch1, 8, t0), 0);
    EXPECT_EQ(Read(0, ch1, 8, t0 + std::chrono::microseconds(3737)), 7);
    EXPECT_EQ(Read(0, ch1, 8, t0 + std::chrono::microseconds(3738)), 1);
}

TEST_F(FirmwareTest, PacedHostThatFallsBehindLosesBlocks) {
    fw.SetPacing(true);
    Send(ConfigureCommand(qssim::kCfgStream, 0, 16, 4096), t0);
    Block first(8), late(64);
    const auto at = t0 + std::chrono::milliseconds(1);
    ASSERT_EQ(Read(0, first, 2, at), 2);
    // 100 blocks later: the device kept only four blocks' worth.
    const auto later = t0 + std::chrono::microseconds(373760);
    const int got = Read(0, late, 64, later);
    EXPECT_GT(got, 8);
    EXPECT_LE(got, 6 + 8 * 5);
    EXPECT_EQ(late.Gpif(5), first.Gpif(0));  // the rest of the begun block
    EXPECT_EQ(late.Gpif(6), first.Gpif(0) + 1);
    EXPECT_GT(late.TotalPktCount(6) - late.TotalPktCount(5), 2);  // data lost
}

TEST_F(FirmwareTest, PacedStopStillEndsWithTheEchoWhenTheHostIsLate) {
    fw.SetPacing(true);
    Send(ConfigureCommand(qssim::kCfgStream, 0, 16, 4096), t0);
    Block ch1(64);
    const auto at = t0 + std::chrono::milliseconds(10);  // two blocks and a bit made
    ASSERT_EQ(Read(0, ch1, 8, at), 8);
    Send(ConfigureCommand(qssim::kCfgStream, 0x01, 16, 4096), at);
    // Read long after: the held data and the echo block, nothing lost.
    const int got = Read(0, ch1, 64, at + std::chrono::seconds(1));
    ASSERT_EQ(got, 8 + 8 + 8);
    EXPECT_EQ(ch1.Settings0(15), 0x00);
    EXPECT_EQ(ch1.Settings0(16), 0x01);
    EXPECT_EQ(ch1.Gpif(23), ch1.Gpif(0));
}

TEST_F(FirmwareTest, StalledChannelWaitsForATimeOut) {
    Send(ConfigureCommand(qssim::kCfgSweep, 0, 16, 1));
    fw.StallNextTransfer(1);
    Block ch(8);
    EXPECT_EQ(Read(1, ch, 8), 0);
    EXPECT_EQ(Read(0, ch, 8), 8);
    fw.OnReadTimedOut(1);
    EXPECT_EQ(Read(1, ch, 8), 8);
}

// The same through the libusb calls: a stalled synchronous read ends by its
// time-out and the data is there for the next one.
TEST(SimUsb, StalledBulkReadTimesOut) {
    qssim_reset();
    const int id = qssim_add_device(QSSIM_PID_LARCH, 22334455);
    ASSERT_GE(id, 0);
    ASSERT_EQ(libusb_init(nullptr), 0);
    libusb_device** list = nullptr;
    const ssize_t n = libusb_get_device_list(nullptr, &list);
    ASSERT_EQ(n, 1);
    libusb_device_handle* handle = nullptr;
    ASSERT_EQ(libusb_open(list[0], &handle), 0);
    libusb_free_device_list(list, 1);
    auto cmd = FlashCommand(qssim::kCmdReadFlash, 0, 0);
    int done = 0;
    ASSERT_EQ(libusb_bulk_transfer(handle, 0x01, cmd.data(), 1024, &done, 250), 0);
    qssim_stall_transfer(id, 0x81);
    std::vector<uint8_t> buf(kPacketBytes);
    EXPECT_EQ(libusb_bulk_transfer(handle, 0x81, buf.data(), kPacketBytes, &done, 20),
              LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(done, 0);
    EXPECT_EQ(libusb_bulk_transfer(handle, 0x81, buf.data(), kPacketBytes, &done, 20), 0);
    EXPECT_EQ(done, kPacketBytes);
    EXPECT_EQ(buf[0], 0xFF);  // erased flash
    libusb_close(handle);
}

}  // namespace

// The interface thread against the simulated firmware, with no device core
// attached: blocks are counted and dropped, which is all the transport owes.
#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "qs_sim.h"
#include "transport/cypress_linux.h"

namespace {

using qs::CypressInterface;
using qs::DeviceCommand;
using Clock = std::chrono::steady_clock;

DeviceCommand Sweep(std::vector<std::pair<int, int>> ppfAndSteps, uint16_t type = qs::QS_CFG_SWEEP) {
    DeviceCommand c;
    c.headerType = qs::QS_CMD_CONFIGURE;
    c.commandType = type;
    c.subBandCount = static_cast<uint16_t>(ppfAndSteps.size());
    for (size_t i = 0; i < ppfAndSteps.size(); ++i) {
        c.subBandArray[i].packetsPerFreq = static_cast<uint16_t>(ppfAndSteps[i].first);
        c.subBandArray[i].stepCount = static_cast<uint16_t>(ppfAndSteps[i].second);
    }
    return c;
}

DeviceCommand Stream(uint8_t settings0) {
    DeviceCommand c = Sweep({{16, 4096}}, qs::QS_CFG_STREAM);
    c.subBandArray[0].settings[0] = settings0;
    c.subBandArray[0].LO1stepFreq = 200;
    return c;
}

DeviceCommand Op(uint8_t headerType, uint16_t commandType, uint16_t subBandCount) {
    DeviceCommand c;
    c.headerType = headerType;
    c.commandType = commandType;
    c.subBandCount = subBandCount;
    return c;
}

class InterfaceTest : public ::testing::Test {
protected:
    static constexpr unsigned kSerial = 31415926;
    int id = -1;
    std::unique_ptr<CypressInterface> usb;

    void SetUp() override {
        qssim_reset();
        id = qssim_add_device(QSSIM_PID_MAPLE_REV2, kSerial);
        ASSERT_GE(id, 0);
        usb = std::make_unique<CypressInterface>(kSerial);
        ASSERT_EQ(usb->State(), qs::USB_OPEN);
    }

    // Waits until the command has been sent and its data handled; false
    // after `limitMs`.
    bool WaitDone(int limitMs = 3000) {
        const auto until = Clock::now() + std::chrono::milliseconds(limitMs);
        while (usb->CommandsQueued() > 0 || !usb->IsIdle()) {
            if (Clock::now() > until) return false;
            usleep(1000);
        }
        return true;
    }

    int Started() const { return usb->GetDMAState().dataStartedAccum; }
    int Finished() const { return usb->GetDMAState().dataFinishedAccum; }
    std::vector<uint8_t> SentCommand(int index) {
        std::vector<uint8_t> out(1024);
        EXPECT_EQ(qssim_get_command(id, index, out.data()), 0);
        return out;
    }
};

TEST_F(InterfaceTest, CountedSweepsReadExactlyTheirBlocks) {
    usb->AddCommand(Sweep({{8, 3}}));  // 24 packets: one block, 8 dropped
    ASSERT_TRUE(WaitDone());
    EXPECT_EQ(Started(), 1);
    EXPECT_EQ(Finished(), 1);
    EXPECT_EQ(qssim_packets_served(id, 0x81), 8);
    EXPECT_EQ(qssim_packets_served(id, 0x82), 8);
    EXPECT_EQ(usb->TransferStatus(), qsNoError);

    // More blocks than the ring holds, over two sub-bands: 80 + 24 packets.
    usb->AddCommand(Sweep({{16, 5}, {8, 3}}, qs::QS_CFG_TG_SWEEP));
    ASSERT_TRUE(WaitDone());
    EXPECT_EQ(Finished(), 1 + 6);
    EXPECT_EQ(Started(), Finished());

    DeviceCommand capture = Sweep({{32, 8}});
    capture.headerType = qs::QS_CMD_CAPTURE;
    usb->AddCommand(capture);
    ASSERT_TRUE(WaitDone());
    EXPECT_EQ(Finished(), 7 + 16);
    EXPECT_EQ(qssim_packets_served(id, 0x82), 8 * 23);
    EXPECT_EQ(usb->TransferStatus(), qsNoError);
    EXPECT_EQ(usb->GetDMAState().commandsStarted, 3);
    EXPECT_EQ(qssim_command_count(id), 3);

    // A command that is answered by nothing reads nothing.
    usb->AddCommand(Op(qs::QS_CMD_SET_PORTS, 0, 0));
    ASSERT_TRUE(WaitDone());
    EXPECT_EQ(Finished(), 23);
}

TEST_F(InterfaceTest, StreamRunsUntilTheStopAndThenDrains) {
    qssim_set_pacing(id, 1);
    usb->AddCommand(Stream(0x00));
    // Let the ring go round more than once (one block per 3.7 ms).
    const auto until = Clock::now() + std::chrono::seconds(2);
    while (qssim_packets_served(id, 0x82) < 8 * 12 && Clock::now() < until) usleep(2000);
    EXPECT_GE(qssim_packets_served(id, 0x82), 8 * 12);
    EXPECT_FALSE(usb->IsIdle());

    const auto stopAt = Clock::now();
    usb->AddCommand(Stream(0x01));
    ASSERT_TRUE(WaitDone());
    const auto drainMs =
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - stopAt).count();
    // The stop was sent from the streaming loop itself, which then drained
    // the ring: nothing is left in flight. Transfers behind the block that
    // echoed the stop are cancelled, not left to time out at 250 ms.
    EXPECT_EQ(Started(), Finished());
    EXPECT_EQ(qssim_read_timeouts(id, 0x81), 0);
    EXPECT_EQ(qssim_read_timeouts(id, 0x82), 0);
    EXPECT_LT(drainMs, 1000);
    ASSERT_EQ(qssim_command_count(id), 2);
    EXPECT_EQ(SentCommand(1)[16], 0x01);
    EXPECT_EQ(usb->TransferStatus(), qsNoError);

    // The device sent nothing after the marker block.
    const long long served = qssim_packets_served(id, 0x81);
    EXPECT_EQ(served % 8, 0) << served << " packets";
    usleep(20000);
    EXPECT_EQ(qssim_packets_served(id, 0x81), served);
}

TEST_F(InterfaceTest, StreamThatIsNotStartedReadsNothing) {
    usb->AddCommand(Stream(0x02));
    ASSERT_TRUE(WaitDone());
    EXPECT_EQ(Started(), 0);
    // The forced stream runs whatever the mode bits say; the stop needs
    // bit 0 in a plain stream command.
    DeviceCommand forced = Stream(0x02);
    forced.commandType = qs::QS_CFG_STREAM_FORCE;
    usb->AddCommand(forced);
    usleep(20000);
    EXPECT_FALSE(usb->IsIdle());
    usb->AddCommand(Stream(0x03));
    ASSERT_TRUE(WaitDone());
    EXPECT_EQ(Started(), Finished());
    EXPECT_GE(Finished(), 8);
}

TEST_F(InterfaceTest, FlashPagesRoundTripThroughRawCommands) {
    DeviceCommand write = Op(qs::QS_CMD_WRITE_FLASH, 256 * 5 + 2, qs::QS_FLASH_UNLOCK);
    for (int i = 0; i < 256; ++i) write.subBandBuffer[i] = static_cast<uint8_t>(255 - i);
    usb->AddCommand(write);
    usb->AddCommand(Op(qs::QS_CMD_READ_FLASH, 5, 0));
    ASSERT_TRUE(WaitDone());
    ASSERT_EQ(usb->TransferStatus(), qsNoError);
    const uint8_t* page = usb->FlashBuf();
    EXPECT_EQ(page[2 * 256 - 1], 0xFF);
    EXPECT_EQ(page[2 * 256], 255);
    EXPECT_EQ(page[2 * 256 + 200], 55);
    EXPECT_EQ(page[3 * 256], 0xFF);

    // Channel 2 carries the second half of the page.
    DeviceCommand high = Op(qs::QS_CMD_WRITE_FLASH, 256 * 5 + 200, qs::QS_FLASH_UNLOCK);
    high.subBandBuffer[7] = 0x5A;
    usb->AddCommand(high);
    usb->AddCommand(Op(qs::QS_CMD_READ_FLASH, 5, 0));
    ASSERT_TRUE(WaitDone());
    EXPECT_EQ(usb->FlashBuf()[200 * 256 + 7], 0x5A);
    unsigned char direct = 0;
    ASSERT_EQ(qssim_flash_read(id, 5 * 65536 + 200 * 256 + 7, &direct, 1), 0);
    EXPECT_EQ(direct, 0x5A);

    // A clear needs the unlock word in both fields.
    usb->AddCommand(Op(qs::QS_CMD_CLEAR_FLASH, qs::QS_FLASH_UNLOCK, 0));
    usb->AddCommand(Op(qs::QS_CMD_READ_FLASH, 5, 0));
    ASSERT_TRUE(WaitDone());
    EXPECT_EQ(usb->FlashBuf()[2 * 256], 255);
    usb->AddCommand(Op(qs::QS_CMD_CLEAR_FLASH, qs::QS_FLASH_UNLOCK, qs::QS_FLASH_UNLOCK));
    usb->AddCommand(Op(qs::QS_CMD_READ_FLASH, 5, 0));
    ASSERT_TRUE(WaitDone());
    EXPECT_EQ(usb->FlashBuf()[2 * 256], 0xFF);
    EXPECT_EQ(usb->FlashBuf()[200 * 256 + 7], 0xFF);
}

TEST_F(InterfaceTest, ShortFlashPageIsAConnectionError) {
    std::vector<unsigned char> image(65536);
    for (size_t i = 0; i < image.size(); ++i) image[i] = static_cast<unsigned char>(i * 7);
    ASSERT_EQ(qssim_flash_write(id, 9 * 65536, image.data(), 65536), 0);
    qssim_short_flash_page(id, 1000);
    usb->AddCommand(Op(qs::QS_CMD_READ_FLASH, 9, 0));
    ASSERT_TRUE(WaitDone());
    EXPECT_EQ(usb->TransferStatus(), qsDeviceConnectionErr);
    EXPECT_EQ(usb->FlashBuf()[32768 + 999], image[32768 + 999]);  // what came is kept

    // The next command starts with a clean status.
    usb->AddCommand(Op(qs::QS_CMD_READ_FLASH, 9, 0));
    ASSERT_TRUE(WaitDone());
    EXPECT_EQ(usb->TransferStatus(), qsNoError);
    EXPECT_EQ(std::vector<unsigned char>(usb->FlashBuf(), usb->FlashBuf() + 65536), image);
}

TEST_F(InterfaceTest, UnplugMidSweepEndsTheSweepWithAConnectionError) {
    qssim_set_pacing(id, 1);
    usb->AddCommand(Sweep({{16, 200}}));  // 200 blocks, 0.75 s at the device's pace
    usleep(50000);
    qssim_remove_device(id);
    ASSERT_TRUE(WaitDone(2000));
    EXPECT_EQ(usb->TransferStatus(), qsDeviceConnectionErr);
    EXPECT_EQ(Finished(), 200);  // every planned block passed, stale or not
    EXPECT_EQ(Started(), Finished());
    EXPECT_LT(qssim_packets_served(id, 0x81), 8 * 100);

    // A later sweep on the lost device fails at the submit, and still ends.
    usb->AddCommand(Sweep({{16, 3}}));
    ASSERT_TRUE(WaitDone(2000));
    EXPECT_EQ(usb->TransferStatus(), qsDeviceConnectionErr);
    EXPECT_EQ(Finished(), 203);
}

TEST_F(InterfaceTest, UnplugMidStreamKeepsTheStatusUntilTheStop) {
    usb->AddCommand(Stream(0x00));
    usleep(20000);
    qssim_remove_device(id);
    usleep(20000);
    EXPECT_EQ(usb->TransferStatus(), qsDeviceConnectionErr);
    EXPECT_FALSE(usb->IsIdle());
    usb->AddCommand(Stream(0x01));
    ASSERT_TRUE(WaitDone(2000));
    EXPECT_EQ(Started(), Finished());
}

TEST_F(InterfaceTest, TimedOutTransferIsReported) {
    qssim_stall_transfer(id, 0x82);
    usb->AddCommand(Sweep({{16, 2}}));
    ASSERT_TRUE(WaitDone(3000));
    EXPECT_EQ(usb->TransferStatus(), qsUSBTimeoutErr);
    EXPECT_GE(qssim_read_timeouts(id, 0x82), 1);
    EXPECT_EQ(qssim_read_timeouts(id, 0x81), 0);
    EXPECT_EQ(Finished(), 2);
    EXPECT_EQ(Started(), 2);
}

TEST_F(InterfaceTest, AddCommandReturnsOnceThePreviousWasSent) {
    qssim_set_pacing(id, 1);
    usb->AddCommand(Sweep({{16, 100}}));  // 100 blocks, about 0.4 s at the device's pace
    usb->AddCommand(Op(qs::QS_CMD_PRESET, 2, 0));
    // It returned while the sweep's data was still coming: it waited for
    // the send, not for the data.
    EXPECT_LT(qssim_packets_served(id, 0x81), 100 * 8);
    // The second waits in the mailbox while the sweep's data is read.
    EXPECT_EQ(usb->CommandsQueued(), 1);
    EXPECT_FALSE(usb->IsIdle());
    EXPECT_EQ(qssim_command_count(id), 1);
    ASSERT_TRUE(WaitDone(30000));
    EXPECT_EQ(Finished(), 100);
    ASSERT_EQ(qssim_command_count(id), 2);
    EXPECT_EQ(SentCommand(1)[0], qs::QS_CMD_PRESET);
    EXPECT_EQ(usb->GetDMAState().commandsFinished, 1);
}

TEST(InterfaceOpen, FindsDevicesBySerialAndModel) {
    qssim_reset();
    ASSERT_GE(qssim_add_device(QSSIM_PID_LARCH, 10000001), 0);
    ASSERT_GE(qssim_add_device(QSSIM_PID_MAPLE_REV1, 10000002), 0);
    ASSERT_GE(qssim_add_device(77, 10000003), 0);  // not of the family

    int serials[QS_MAX_DEVICES] = {};
    int count = -1;
    ASSERT_EQ(qs::GetSerialNumberList(serials, &count), qsNoError);
    ASSERT_EQ(count, 2);
    EXPECT_EQ(serials[0], 10000001);
    EXPECT_EQ(serials[1], 10000002);

    {
        CypressInterface maple(10000002);
        ASSERT_EQ(maple.State(), qs::USB_OPEN);
        EXPECT_EQ(maple.GetDeviceType(), QS_DEVICE_TYPE_MAPLE);
        EXPECT_EQ(maple.MapleRev(), 1);
        // An open device leaves the list, and cannot be opened twice.
        ASSERT_EQ(qs::GetSerialNumberList(serials, &count), qsNoError);
        EXPECT_EQ(count, 1);
        CypressInterface again(10000002);
        EXPECT_EQ(again.State(), qs::USB_CLOSED);
    }
    auto larch = std::make_unique<CypressInterface>(10000001);
    EXPECT_EQ(larch->GetDeviceType(), QS_DEVICE_TYPE_LARCH);
    CypressInterface nowhere(12121212);
    EXPECT_EQ(nowhere.State(), qs::USB_CLOSED);

    qssim_reset();
    ASSERT_EQ(qs::GetSerialNumberList(serials, &count), qsNoError);
    EXPECT_EQ(count, 0);

    // A serial string of nine characters is counted but not written, and
    // can never be opened.
    ASSERT_GE(qssim_add_device(QSSIM_PID_MAPLE_REV2, 123456789), 0);
    serials[0] = -7;
    // Open devices are remembered by list position: the Larch, gone from the
    // bus but still open, hides the device that now stands first.
    ASSERT_EQ(qs::GetSerialNumberList(serials, &count), qsNoError);
    EXPECT_EQ(count, 0);
    larch.reset();
    ASSERT_EQ(qs::GetSerialNumberList(serials, &count), qsNoError);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(serials[0], -7);
    CypressInterface nine(123456789);
    EXPECT_EQ(nine.State(), qs::USB_CLOSED);
}

}  // namespace

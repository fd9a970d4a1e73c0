// Block ingest on the device core: monitor values, trailer checks and
// external triggers, on blocks built byte by byte.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "device/device_maple.h"
#include "qs_sim.h"
#include "settings/settings.h"
#include "wire_block.h"

namespace qs {
namespace {

using test::Block;

constexpr int kPair = 2 * QS_SAMPLES_PER_PACKET;

// A device core with no planning, enough to drive the ingest directly.
class BareDevice : public DeviceMaple {
public:
    explicit BareDevice(CypressInterface* usb) : DeviceMaple(usb) { InitDevice(); }
    qsStatus OpenDevice() override { return qsNoError; }

    void SetTriggerDelay(int samples) { m_triggerDelay = samples; }
    qsStatus Final(qsStatus engine) { return FinalStatus(engine); }
};

class Ingest : public ::testing::Test {
protected:
    void SetUp() override {
        qssim_reset();
        qssim_add_device(QSSIM_PID_MAPLE_REV2, 12345678);
        auto* usb = new CypressInterface(12345678);
        ASSERT_EQ(usb->State(), USB_OPEN);
        device = std::make_unique<BareDevice>(usb);
    }
    void TearDown() override {
        device.reset();
        qssim_reset();
    }
    std::vector<int> Triggers() const {
        return std::vector<int>(device->TriggerBuf(),
                                device->TriggerBuf() + device->TriggerBufCount());
    }
    std::unique_ptr<BareDevice> device;
};

TEST_F(Ingest, MonitorValuesNeedBothChannelsToAgree) {
    Block block;
    block.Monitor(1, 1700);
    EXPECT_EQ(device->ParseHeader(block.C1(), block.C2()), 1);
    EXPECT_FLOAT_EQ(device->GetReadings().voltageUSB, 1700 * 0.003f);

    block.Monitor(3, 250);
    block.Header(1, 0).ADCValue = 251;
    EXPECT_EQ(device->ParseHeader(block.C1(), block.C2()), -1);
    EXPECT_FLOAT_EQ(device->GetReadings().currentUSB, 0.0f);

    block.Monitor(7, 10);
    EXPECT_EQ(device->ParseHeader(block.C1(), block.C2()), -1);

    block.Monitor(0, 1800);
    device->ParseHeader(block.C1(), block.C2());
    EXPECT_FLOAT_EQ(device->GetReadings().voltage1_8, 1.8f);
    block.Monitor(2, 1200);
    device->ParseHeader(block.C1(), block.C2());
    EXPECT_FLOAT_EQ(device->GetReadings().voltage1_2, 1.2f);
}

TEST_F(Ingest, TemperatureIsSignedAndFoldedAbove256Degrees) {
    Block block;
    block.Monitor(4, 5 * 16);  // 5 * 16 * 8 / 128 = 5.0 degrees
    device->ParseHeader(block.C1(), block.C2());
    EXPECT_FLOAT_EQ(device->GetReadings().celcius, 5.0f);
    block.Monitor(4, static_cast<uint16_t>(-160));  // -10.0 degrees
    device->ParseHeader(block.C1(), block.C2());
    EXPECT_FLOAT_EQ(device->GetReadings().celcius, -10.0f);
    block.Monitor(4, 300 * 16);  // 300 degrees folds to -212
    device->ParseHeader(block.C1(), block.C2());
    EXPECT_FLOAT_EQ(device->GetReadings().celcius, -212.0f);
}

TEST_F(Ingest, TrailersGiveFramingFpgaIdAndOverflowsOnceEach) {
    Block block;
    block.Trailer(1, 0).S3DNA = 0xCAFE1234u;
    block.Trailer(1, 7).ADCOverflowCount = 7;
    block.Trailer(1, 7).GPIFOverflowCount = 3;
    device->ParseTrailer(block.C1(), block.C2());
    EXPECT_EQ(device->GetFPGAID(), 0xCAFE1234u);
    // The first block only sets the baselines.
    EXPECT_EQ(device->Final(qsNoError), qsNoError);

    // A packet's trailer counts its own samples: the block's last packets,
    // of either channel, tell whether it clipped.
    block.Trailer(1, 7).ADCOverflowCount = 8;
    device->ParseTrailer(block.C1(), block.C2());
    EXPECT_EQ(device->Final(qsNoError), qsADCOverflow);
    EXPECT_EQ(device->Final(qsNoError), qsNoError);
    block.Trailer(0, 7).ADCOverflowCount = 1;
    device->ParseTrailer(block.C1(), block.C2());
    EXPECT_EQ(device->Final(qsNoError), qsADCOverflow);

    // A count that goes down is a change too; a device overrun outranks the
    // converter overflow and clears it.
    block.Trailer(1, 7).ADCOverflowCount = 2;
    block.Trailer(1, 7).GPIFOverflowCount = 4;
    device->ParseTrailer(block.C1(), block.C2());
    EXPECT_EQ(device->Final(qsNoError), qsUncalSweep);
    EXPECT_EQ(device->Final(qsNoError), qsNoError);

    // Channels out of step fail every fetch until a block is in step again.
    block.Trailer(1, 0).TotalPktCount = block.Trailer(0, 0).TotalPktCount;
    device->ParseTrailer(block.C1(), block.C2());
    EXPECT_EQ(device->Final(qsNoError), qsPacketFramingErr);
    EXPECT_EQ(device->Final(qsNoError), qsPacketFramingErr);
    block.Trailer(1, 0).TotalPktCount = static_cast<uint16_t>(block.Trailer(0, 0).TotalPktCount + 1);
    device->ParseTrailer(block.C1(), block.C2());
    EXPECT_EQ(device->Final(qsAdjustedParameter), qsAdjustedParameter);
}

TEST_F(Ingest, PacketCountsWrapInSixteenBits) {
    Block block;
    block.Trailer(0, 0).TotalPktCount = 0xFFFF;
    block.Trailer(1, 0).TotalPktCount = 0x0000;
    device->ParseTrailer(block.C1(), block.C2());
    // 0 - 65535 is not 1: the channels count as out of step.
    EXPECT_EQ(device->Final(qsNoError), qsPacketFramingErr);
}

TEST_F(Ingest, NoTriggersWithoutTheTriggerInputOrInTheFirstBlock) {
    Block block;
    block.Event(0, 2, 100);
    device->CheckForExternalTrigger(block.C1(), block.C2());
    EXPECT_TRUE(Triggers().empty());  // first block: baseline only
    ASSERT_EQ(device->ConfigurePortIO(0, 0, false), qsNoError);
    Block next;
    next.SetEvents(1);
    next.Event(1, 3, 500);
    EXPECT_LT(device->CheckForExternalTrigger(next.C1(), next.C2()), 0);
    EXPECT_TRUE(Triggers().empty());
    for (int i = 0; i < Device::TRIGGER_BUF_SZ; ++i) EXPECT_EQ(device->TriggerBuf()[i], 0);
}

TEST_F(Ingest, TriggersStandAtTheirSamplePositionsPlusTheDelay) {
    ASSERT_EQ(device->ConfigurePortIO(QS_PORT_TRIGGER_IN, 0, false), qsNoError);
    Block first;
    device->CheckForExternalTrigger(first.C1(), first.C2());

    Block block;
    block.Event(0, 1, 1000);  // channel 1, packet 1
    block.Event(1, 4, 3);     // channel 2, packet 4; 0..6 is one packet on
    device->SetTriggerDelay(25);
    const int first_pos = device->CheckForExternalTrigger(block.C1(), block.C2());
    const int a = 25 + kPair * 1 + 1000;
    const int b = 25 + kPair * 4 + QS_SAMPLES_PER_PACKET + 3 + QS_SAMPLES_PER_PACKET;
    EXPECT_EQ(first_pos, a);
    EXPECT_EQ(Triggers(), (std::vector<int>{a, b}));
    EXPECT_EQ(device->TriggerBuf()[2], 0);
}

TEST_F(Ingest, ATriggerDelayedPastTheBlockMovesToTheNext) {
    ASSERT_EQ(device->ConfigurePortIO(QS_PORT_TRIGGER_IN, 0, false), qsNoError);
    Block first;
    device->CheckForExternalTrigger(first.C1(), first.C2());

    Block block;
    block.Event(1, 7, 18000);  // channel 2, last packet
    device->SetTriggerDelay(2000);
    const int position = 2000 + kPair * 7 + QS_SAMPLES_PER_PACKET + 18000;
    ASSERT_GE(position, QS_BLOCK_SAMPLES);
    EXPECT_EQ(device->CheckForExternalTrigger(block.C1(), block.C2()), position);
    EXPECT_TRUE(Triggers().empty());

    Block next;
    next.SetEvents(1);
    EXPECT_EQ(device->CheckForExternalTrigger(next.C1(), next.C2()),
              position - QS_BLOCK_SAMPLES);
    EXPECT_EQ(Triggers(), (std::vector<int>{position - QS_BLOCK_SAMPLES}));
}

TEST_F(Ingest, SixteenEventsInOneBlockAllFit) {
    ASSERT_EQ(device->ConfigurePortIO(QS_PORT_TRIGGER_IN, 0, false), qsNoError);
    Block first;
    device->CheckForExternalTrigger(first.C1(), first.C2());
    Block block;
    for (int p = 0; p < 8; ++p)
        for (int c = 0; c < 2; ++c) block.Event(c, p, 100);
    device->CheckForExternalTrigger(block.C1(), block.C2());
    ASSERT_EQ(device->TriggerBufCount(), 16);
    for (int i = 0; i < 16; ++i)
        EXPECT_EQ(device->TriggerBuf()[i], (i / 2) * kPair + (i % 2) * QS_SAMPLES_PER_PACKET + 100);
    EXPECT_EQ(device->TriggerBuf()[16], 0);
}

TEST_F(Ingest, ABlockWhileNothingRunsIsDroppedWhole) {
    Block block;
    block.Monitor(1, 1700);
    block.Trailer(1, 0).S3DNA = 99;
    EXPECT_EQ(device->StoreData(block.ch[0].data(), block.ch[1].data(), 1, 5), 0);
    EXPECT_FLOAT_EQ(device->GetReadings().voltageUSB, 0.0f);
    EXPECT_EQ(device->GetFPGAID(), 0u);
}

}  // namespace
}  // namespace qs

// The ingest path allocates nothing: every heap request made on the thread
// that runs Device::StoreData is counted while blocks pass through a running
// stream (and a sweep) of a simulated Maple set up through the public calls.
#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <vector>

#include "api/device_table.h"
#include "device/device.h"
#include "ipps.h"
#include "qs_api.h"
#include "qs_sim.h"
#include "sim_fixture.h"
#include "transport/wire_formats.h"
#include "wire_block.h"

#include "allocation_counter.inc"

namespace {

// The transport of a device, for telling when its thread has left StoreData.
struct TransportOf : qs::Device {
    using qs::Device::m_usb;
};

// Blocks of both channels with trailers in step, each with one trigger
// event (in channel 1's packet 3) and some samples.
std::vector<qs::test::Block> Blocks() {
    std::vector<qs::test::Block> blocks;
    for (int i = 0; i < 4; ++i) {
        qs::test::Block& b = blocks.emplace_back(i);
        b.SetEvents(static_cast<uint16_t>(2 * i));
        b.Event(0, 3, 500);
        for (int k = 0; k < 64; ++k) b.ch[0][qs::QS_PAYLOAD_OFFSET + k] = static_cast<uint8_t>(k * 37);
    }
    return blocks;
}

class IngestAllocation : public OpenSimulatedDevice {
protected:
    qs::Device& Dev() { return *qs::api::devices[h]; }

    // The device's own interface thread stops feeding it; the measurement
    // and its engine stay as they are. At real-time pacing only a few of
    // the device's blocks get in before.
    void DetachTransport() {
        Dev().StopStreaming();
        qs::CypressInterface* usb = Dev().*(&TransportOf::m_usb);
        usb->WaitUntilIdle();
    }

    // StoreData of `count` blocks on this thread; the heap requests made.
    long Feed(int count, int ppf) {
        std::vector<qs::test::Block> blocks = Blocks();
        int index = 0;
        qs_test::ResetThreadCount();
        qs_test::ArmThreadCount();
        for (int i = 0; i < count; ++i) {
            qs::test::Block& b = blocks[static_cast<size_t>(i % 4)];
            index = Dev().StoreData(b.ch[0].data(), b.ch[1].data(), ppf, index);
        }
        qs_test::DisarmThreadCount();
        return qs_test::ThreadCount();
    }
};

TEST_F(IngestAllocation, TheCounterSeesAnAllocationOnTheArmedThread) {
    qs_test::ResetThreadCount();
    qs_test::ArmThreadCount();
    std::vector<int>* v = new std::vector<int>(100);
    qs_test::DisarmThreadCount();
    delete v;
    EXPECT_GE(qs_test::ThreadCount(), 1);
    qs_test::ResetThreadCount();
#if !defined(QS_ASAN) && !defined(QS_TSAN)
    // The vector layer's aligned blocks are seen too.
    qs_test::ArmThreadCount();
    Ipp16s* p = ippsMalloc_16s(1000);
    qs_test::DisarmThreadCount();
    ippsFree(p);
    EXPECT_GE(qs_test::ThreadCount(), 1);
#endif
}

TEST_F(IngestAllocation, DirectStreamStoreDataAllocatesNothing) {
    qssim_set_pacing(sim, 1);
    ASSERT_EQ(qsConfigureIO(h, QS_PORT_TRIGGER_IN, 0), qsNoError);
    ASSERT_EQ(qsConfigureIQCenter(h, 1e9), qsNoError);
    ASSERT_EQ(qsInitiate(h, QS_MODE_STREAMING, QS_STREAM_FLAG_DIRECT), qsNoError);
    DetachTransport();
    // More than the ring holds with nobody reading: the drop of a block
    // that finds it full is on the path too.
    EXPECT_EQ(Feed(300, 0), 0);
    // The blocks reached the stream (after the device's own first few):
    // samples and their triggers.
    std::vector<float> raw(1048576);
    int triggers[62] = {}, seen = 0;
    for (int step = 0; step < 20; ++step) {
        EXPECT_GE(qsFetchRaw(h, raw.data(), triggers), qsNoError);
        for (int t : triggers) seen += t != 0;
    }
    EXPECT_GT(seen, 40);
    ASSERT_EQ(qsAbort(h), qsNoError);
}

TEST_F(IngestAllocation, IQStreamStoreDataAllocatesNothing) {
    qssim_set_pacing(sim, 1);
    ASSERT_EQ(qsConfigureIO(h, QS_PORT_TRIGGER_IN, 0), qsNoError);
    ASSERT_EQ(qsConfigureIQCenter(h, 1e9), qsNoError);
    ASSERT_EQ(qsConfigureIQ(h, 64, 200e3), qsNoError);
    ASSERT_EQ(qsInitiate(h, QS_MODE_STREAMING, 0), qsNoError);
    DetachTransport();
    int len = 0;
    ASSERT_EQ(qsQueryStreamInfo(h, &len, nullptr, nullptr), qsNoError);
    // In batches that the filter thread catches up with before the next,
    // so that its input ring of 96 blocks wraps without being overrun.
    std::vector<Ipp32fc> iq(static_cast<size_t>(len));
    std::vector<int> triggers(64);
    long long blocks = 0, stepsRead = 0, triggersSeen = 0;
    for (int batch = 0; batch < 5; ++batch) {
        EXPECT_EQ(Feed(60, 0), 0);
        blocks += 60;
        // Every step whose input has passed the filter (a call needs more
        // than its 393216 samples).
        for (; stepsRead < (blocks * 299008 - 2 * 393216) / 1048576; ++stepsRead) {
            qsIQPacket pkt{};
            pkt.iqData = iq.data();
            pkt.iqCount = len;
            pkt.triggers = triggers.data();
            pkt.triggerCount = 64;
            ASSERT_GE(qsGetIQ(h, &pkt), qsNoError);
            EXPECT_EQ(pkt.sampleLoss, 0);
            for (int t : triggers) triggersSeen += t != 0;
        }
    }
    EXPECT_GT(stepsRead, 80);
    EXPECT_GT(triggersSeen, 250);  // at least one a block
    ASSERT_EQ(qsAbort(h), qsNoError);
}

TEST_F(IngestAllocation, SweepingStoreDataAllocatesNothing) {
    ASSERT_EQ(qsConfigureCenterSpan(h, 1e9, 40e6), qsNoError);
    ASSERT_EQ(qsConfigureSweepCoupling(h, 100e3, 100e3, 0.001, QS_RBW_SHAPE_NATIVE, 0), qsNoError);
    // A sweep sends nothing until it is fetched: the transport is idle.
    ASSERT_EQ(qsInitiate(h, QS_MODE_SWEEP, 0), qsNoError);
    const qs::SweepInfo& plan = Dev().GetSweepInfo();
    const int blocksPerSweep = plan.stepCount * plan.ppf / 16;
    ASSERT_GT(blocksPerSweep, 0);
    EXPECT_EQ(Feed(blocksPerSweep, plan.ppf), 0);
    ASSERT_EQ(qsAbort(h), qsNoError);
}

}  // namespace

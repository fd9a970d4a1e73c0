// Listing, opening and closing devices through the public calls, on the
// simulator.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "qs_api.h"
#include "qs_sim.h"

namespace {

constexpr unsigned kMapleSerial = 12345678;
constexpr unsigned kLarchSerial = 10000001;
// The open retries once after three seconds; a little less for slack.
constexpr double kRetrySeconds = 2.9;

class DeviceTable : public ::testing::Test {
protected:
    void SetUp() override { qssim_reset(); }
    void TearDown() override {
        for (int h = 0; h < QS_MAX_DEVICES; ++h) qsCloseDevice(h);
        qssim_reset();
    }

    std::vector<int> List() {
        int serials[QS_MAX_DEVICES];
        int count = -1;
        EXPECT_EQ(qsGetSerialNumberList(serials, &count), qsNoError);
        return std::vector<int>(serials, serials + std::max(count, 0));
    }

    static double Seconds(std::chrono::steady_clock::time_point since) {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
    }
};

TEST_F(DeviceTable, ListsTheFamilyOnlyAndNothingWhenEmpty) {
    EXPECT_TRUE(List().empty());
    qssim_add_device(QSSIM_PID_MAPLE_REV2, kMapleSerial);
    qssim_add_device(7, 55555555);  // our vendor, another product
    qssim_add_device(QSSIM_PID_LARCH, kLarchSerial);
    qssim_add_device(QSSIM_PID_MAPLE_REV1, 42);
    EXPECT_EQ(List(), (std::vector<int>{12345678, 10000001, 42}));
}

TEST_F(DeviceTable, ListLeavesOutOpenAndUnpluggedDevices) {
    qssim_add_device(QSSIM_PID_MAPLE_REV2, kMapleSerial);
    const int larch = qssim_add_device(QSSIM_PID_LARCH, kLarchSerial);
    qssim_add_device(QSSIM_PID_MAPLE_REV1, 20000002);
    int h = -1;
    ASSERT_EQ(qsOpenDeviceBySerialNumber(&h, kMapleSerial), qsNoError);
    EXPECT_EQ(List(), (std::vector<int>{10000001, 20000002}));
    qssim_remove_device(larch);
    EXPECT_EQ(List(), (std::vector<int>{20000002}));
    ASSERT_EQ(qsCloseDevice(h), qsNoError);
    EXPECT_EQ(List(), (std::vector<int>{12345678, 20000002}));
}

TEST_F(DeviceTable, OpensByIndexAndBySerialAndKnowsTheModel) {
    qssim_add_device(QSSIM_PID_LARCH, kLarchSerial);
    qssim_add_device(QSSIM_PID_MAPLE_REV2, kMapleSerial);
    qssim_add_device(QSSIM_PID_MAPLE_REV1, 30000003);

    int first = -1, maple2 = -1, maple1 = -1;
    ASSERT_EQ(qsOpenDevice(&first), qsNoError);
    ASSERT_EQ(qsOpenDeviceBySerialNumber(&maple1, 30000003), qsNoError);
    ASSERT_EQ(qsOpenDeviceBySerialNumber(&maple2, kMapleSerial), qsNoError);
    EXPECT_EQ(first, 0);
    EXPECT_EQ(maple1, 1);
    EXPECT_EQ(maple2, 2);

    int type = 0, rev = 0;
    unsigned sid = 0;
    EXPECT_EQ(qsGetDeviceType(first, &type), qsNoError);
    EXPECT_EQ(type, QS_DEVICE_TYPE_LARCH);
    EXPECT_EQ(qsGetSerialNumber(first, &sid), qsNoError);
    EXPECT_EQ(sid, kLarchSerial);
    EXPECT_EQ(qsGetMapleRev(first, &rev), qsDeviceInvalidErr);
    EXPECT_EQ(rev, -1);

    EXPECT_EQ(qsGetDeviceType(maple1, &type), qsNoError);
    EXPECT_EQ(type, QS_DEVICE_TYPE_MAPLE);
    EXPECT_EQ(qsGetMapleRev(maple1, &rev), qsNoError);
    EXPECT_EQ(rev, 1);
    EXPECT_EQ(qsGetMapleRev(maple2, &rev), qsNoError);
    EXPECT_EQ(rev, 2);
    EXPECT_EQ(qsGetSerialNumber(maple2, &sid), qsNoError);
    EXPECT_EQ(sid, kMapleSerial);
}

TEST_F(DeviceTable, EightOpenAndTheNinthIsRefusedAfterTheRetry) {
    for (unsigned i = 0; i < 9; ++i) qssim_add_device(QSSIM_PID_MAPLE_REV2, 40000000 + i);
    for (int i = 0; i < QS_MAX_DEVICES; ++i) {
        int h = -1;
        ASSERT_EQ(qsOpenDevice(&h), qsNoError);
        EXPECT_EQ(h, i);
    }
    const auto start = std::chrono::steady_clock::now();
    int h = 5;
    EXPECT_EQ(qsOpenDeviceBySerialNumber(&h, 40000008), qsDeviceNotOpenErr);
    EXPECT_EQ(h, -1);
    EXPECT_GE(Seconds(start), kRetrySeconds);
    // The open devices are untouched.
    int type = 0;
    for (int i = 0; i < QS_MAX_DEVICES; ++i) EXPECT_EQ(qsGetDeviceType(i, &type), qsNoError);
}

// Each refused open leaves the handle at -1; one that looked for a serial
// number tries again after three seconds first. Nothing is left behind: the
// device list and a later open still see our device.
TEST_F(DeviceTable, RefusedOpensLeaveNothingBehind) {
    const struct {
        const char* what;
        int serial;  // 0: qsOpenDevice
        bool retried;
    } cases[] = {
        {"no device at all", 0, false},
        {"a serial number that is absent", 87654321, true},
        {"a foreign product", 55555555, true},
        {"a serial number already open", int(kMapleSerial), true},
        // Counted by the list, but its entry is not written: read as -1 at
        // open, it matches no serial number.
        {"a serial number of nine digits", 123456789, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        qssim_reset();
        if (c.serial) {
            qssim_add_device(9, 55555555);
            qssim_add_device(QSSIM_PID_MAPLE_REV2, kMapleSerial);
            qssim_add_device(QSSIM_PID_MAPLE_REV2, 123456789);
        }
        int open = -1;
        if (c.serial == int(kMapleSerial)) {
            ASSERT_EQ(qsOpenDevice(&open), qsNoError);
        }
        const auto start = std::chrono::steady_clock::now();
        int h = 4;
        EXPECT_EQ(c.serial ? qsOpenDeviceBySerialNumber(&h, c.serial) : qsOpenDevice(&h), qsDeviceNotOpenErr);
        EXPECT_EQ(h, -1);
        if (c.retried) {
            EXPECT_GE(Seconds(start), kRetrySeconds);
        }
        if (!c.serial) continue;
        const std::vector<int> listed = List();
        EXPECT_EQ(listed.size(), open < 0 ? 2u : 1u);
        if (open < 0) {
            EXPECT_EQ(listed[0], int(kMapleSerial));
            ASSERT_EQ(qsOpenDeviceBySerialNumber(&h, kMapleSerial), qsNoError);
        }
        EXPECT_EQ(qsCloseDevice(open < 0 ? h : open), qsNoError);
    }
}

TEST_F(DeviceTable, CloseFreesTheSlotForReuse) {
    qssim_add_device(QSSIM_PID_MAPLE_REV2, kMapleSerial);
    qssim_add_device(QSSIM_PID_LARCH, kLarchSerial);
    int a = -1, b = -1;
    ASSERT_EQ(qsOpenDeviceBySerialNumber(&a, kMapleSerial), qsNoError);
    ASSERT_EQ(qsOpenDeviceBySerialNumber(&b, kLarchSerial), qsNoError);
    ASSERT_EQ(qsCloseDevice(a), qsNoError);
    int type = 0;
    EXPECT_EQ(qsGetDeviceType(a, &type), qsDeviceNotOpenErr);
    int c = -1;
    ASSERT_EQ(qsOpenDeviceBySerialNumber(&c, kMapleSerial), qsNoError);
    EXPECT_EQ(c, a);
    EXPECT_EQ(qsGetDeviceType(c, &type), qsNoError);
    EXPECT_EQ(type, QS_DEVICE_TYPE_MAPLE);
    EXPECT_EQ(qsCloseDevice(c), qsNoError);
    EXPECT_EQ(qsCloseDevice(c), qsDeviceNotOpenErr);
}

TEST_F(DeviceTable, AnUnpluggedDeviceStillClosesCleanly) {
    const int id = qssim_add_device(QSSIM_PID_MAPLE_REV2, kMapleSerial);
    int h = -1;
    ASSERT_EQ(qsOpenDevice(&h), qsNoError);
    qssim_remove_device(id);
    EXPECT_EQ(qsPreset(h), qsNoError);
    EXPECT_EQ(qsCloseDevice(h), qsNoError);
    // Plugged in again, it opens again.
    qssim_add_device(QSSIM_PID_MAPLE_REV2, kMapleSerial);
    ASSERT_EQ(qsOpenDevice(&h), qsNoError);
}

TEST_F(DeviceTable, PresetSendsThePresetCommand) {
    const int id = qssim_add_device(QSSIM_PID_MAPLE_REV2, kMapleSerial);
    int h = -1;
    ASSERT_EQ(qsOpenDevice(&h), qsNoError);
    const int before = qssim_command_count(id);
    ASSERT_EQ(qsPreset(h), qsNoError);
    // The command goes out on the interface thread; wait for it.
    for (int i = 0; i < 500 && qssim_command_count(id) == before; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    ASSERT_EQ(qssim_command_count(id), before + 1);
    unsigned char block[1024];
    ASSERT_EQ(qssim_get_command(id, before, block), 0);
    EXPECT_EQ(block[0], 0x14);  // preset
    EXPECT_EQ(block[4] | block[5] << 8, 2);
}

TEST_F(DeviceTable, PresetFullReopensTheSamePhysicalDevice) {
    qssim_add_device(QSSIM_PID_LARCH, kLarchSerial);
    const int maple = qssim_add_device(QSSIM_PID_MAPLE_REV2, kMapleSerial);
    int larchHandle = -1, h = -1;
    ASSERT_EQ(qsOpenDeviceBySerialNumber(&larchHandle, kLarchSerial), qsNoError);
    ASSERT_EQ(qsOpenDeviceBySerialNumber(&h, kMapleSerial), qsNoError);
    const int before = qssim_command_count(maple);
    ASSERT_EQ(qsPresetFull(&h), qsNoError);
    unsigned sid = 0;
    ASSERT_EQ(qsGetSerialNumber(h, &sid), qsNoError);
    EXPECT_EQ(sid, kMapleSerial);
    EXPECT_GT(qssim_command_count(maple), before);
}

}  // namespace

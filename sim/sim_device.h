// A simulated analyser as the USB wire sees it: identity, plug state,
// one command endpoint and two data endpoints. Knows nothing of libusb.
//
// Each device makes its sample packets on a thread of its own, as a device
// has its own clock: the host's reads only take what is made. The thread
// holds the world's lock (sim_world.h) to decide and hand over each packet,
// and only the device's model lock while the receiver computes it, so the
// host and the other devices run meanwhile. Unplugging stops the thread.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "sim_calibration.h"
#include "sim_firmware.h"
#include "sim_scene.h"
#include "sim_usb_gadget.h"

namespace qssim {

constexpr uint16_t kVendorId = 0x51C3;
constexpr int kEndpointOut = 0x01;
constexpr int kEndpointIn1 = 0x81;
constexpr int kEndpointIn2 = 0x82;

// One device: its identity and plug state on the bus, and its firmware,
// which answers the commands. All calls are made with the world's lock held (sim_world.h).
class SimDevice : public UsbGadget {
public:
    // Starts the device's thread; `worldLock` is the world's lock, which the
    // caller may hold.
    SimDevice(int id, int productId, unsigned serial, std::mutex* worldLock,
              std::condition_variable* worldChanged);
    virtual ~SimDevice();

    int Id() const { return m_id; }
    int ProductId() const { return m_productId; }
    unsigned Serial() const { return m_serial; }
    // The USB serial string: the number with eight digits.
    std::string SerialString() const;

    uint16_t UsbVendor() const override { return kVendorId; }
    uint16_t UsbProduct() const override { return static_cast<uint16_t>(m_productId); }
    bool UsbString(int index, std::string* text) const override;

    // Marks the device unplugged and tells its thread to end (world's lock
    // held); JoinThread, called without the lock, waits for it.
    void Unplug();
    void JoinThread();
    // Wakes the device's thread after a change of what it should make
    // (world's lock held).
    void Wake() { m_wake.notify_one(); }
    // Held while the receiver makes samples: taken, after the world's lock,
    // by anything that changes the scene or the receiver's model.
    std::mutex& ModelLock() { return m_modelLock; }
    Scene& GetScene() { return m_scene; }

    // Bulk OUT on endpoint 0x01: one command block, for the firmware.
    void WriteOut(int endpoint, const uint8_t* data, int len) override;

    // Bulk IN on 0x81 or 0x82: copies whole packets that are ready into dst,
    // at most len bytes: first any queued by QueuePacket, then the firmware's.
    // Sets *shortPacket when the last one copied was short, which ends the
    // transfer early as on a real bus. Returns the bytes copied.
    // One pass over several transfers uses one instant, so a paced packet
    // cannot land in a later transfer first.
    int ReadIn(int endpoint, uint8_t* dst, int len, bool* shortPacket, Clock::time_point now) override;

    // A read on 0x81 or 0x82 ended by its time-out.
    void ReadTimedOut(int endpoint) override;
    // Whether data for a read on 0x81 or 0x82 is on its way (Firmware::DataComing).
    bool DataComing(int endpoint, Clock::time_point now) const override {
        return m_firmware.DataComing(endpoint == kEndpointIn2 ? 1 : 0, now);
    }

    Firmware& GetFirmware() { return m_firmware; }
    // The factory calibration: the flash image and the gain model behind
    // the receiver.
    FactoryCalibration& Factory() { return m_factory; }

    // Every command block received, in order, for tests of the wire traffic.
    const std::vector<std::vector<uint8_t>>& Commands() const { return m_commands; }

protected:
    // Queues one packet on a data endpoint, served before the firmware's.
    void QueuePacket(int endpoint, std::vector<uint8_t> packet);

private:
    void MakePackets();

    int m_id;
    int m_productId;
    unsigned m_serial;
    Scene m_scene;
    FactoryCalibration m_factory;
    Firmware m_firmware;
    std::vector<std::vector<uint8_t>> m_commands;
    std::deque<std::vector<uint8_t>> m_inQueue[2];
    std::mutex* m_worldLock;
    std::condition_variable* m_worldChanged;
    std::condition_variable m_wake;  // waits on the world's lock
    std::mutex m_modelLock;
    bool m_stop = false;
    std::thread m_thread;  // last: starts once everything above exists
};

}  // namespace qssim

// What the simulated USB bus sees of a device: identity, plug state, the
// claim of its interface, and its endpoints. Analysers and the generators'
// serial bridges are both gadgets; usb_shim.cpp speaks libusb on top of
// them. Every call is made with the world's lock held (sim_world.h).
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace qssim {

using Clock = std::chrono::steady_clock;

// The one configuration's single interface: a bulk OUT and one or two bulk
// IN endpoints, for the configuration descriptor.
struct GadgetEndpoints {
    uint8_t out = 0x01;
    uint8_t in[2] = {0x81, 0x82};
    int inCount = 2;
    uint16_t maxPacket = 512;
};

class UsbGadget {
public:
    virtual ~UsbGadget() = default;

    virtual uint16_t UsbVendor() const = 0;
    virtual uint16_t UsbProduct() const = 0;
    // bcdDevice of the device descriptor.
    virtual uint16_t UsbRelease() const { return 0x0100; }
    // String descriptors 1 (manufacturer), 2 (product) and 3 (serial);
    // false for any other index.
    virtual bool UsbString(int index, std::string* text) const = 0;
    virtual GadgetEndpoints Endpoints() const { return {}; }

    bool Plugged() const { return m_plugged; }
    bool AccessDenied() const { return m_accessDenied; }
    void SetAccessDenied(bool denied) { m_accessDenied = denied; }
    // Interface 0 is claimed by at most one handle.
    bool Claimed() const { return m_claimed; }
    void SetClaimed(bool claimed) { m_claimed = claimed; }

    // Bulk OUT: the bytes of one transfer.
    virtual void WriteOut(int endpoint, const uint8_t* data, int len) = 0;
    // Bulk IN: copies what is ready into dst, at most len bytes; sets
    // *shortPacket when the last packet copied was short, which ends the
    // transfer early as on a real bus. Returns the bytes copied.
    virtual int ReadIn(int endpoint, uint8_t* dst, int len, bool* shortPacket,
                       Clock::time_point now) = 0;
    // Whether data for a read is on its way, so that the read's time-out
    // does not run meanwhile.
    virtual bool DataComing(int, Clock::time_point) const { return false; }
    // When a waiting read on the endpoint gets something without any other
    // event (a bridge's latency timer); time_point::max() for never.
    virtual Clock::time_point ReadyBy(int, Clock::time_point) const { return Clock::time_point::max(); }
    // A read ended by its time-out.
    virtual void ReadTimedOut(int) {}
    // A vendor control transfer on endpoint 0: the bytes moved, or -1 for a
    // stall (a request the device does not take).
    virtual int Control(uint8_t, uint8_t, uint16_t, uint16_t, uint8_t*, int) { return -1; }

protected:
    bool m_plugged = true;

private:
    bool m_accessDenied = false;
    bool m_claimed = false;
};

}  // namespace qssim

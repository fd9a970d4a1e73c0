// A tracking generator as the USB bus sees it: an FTDI serial bridge
// (vendor 0x0403, product 0x6001, the single-port chip) whose UART is wired
// to the generator.
//
// The chip's own vendor requests are answered (reset and purge, modem and
// flow control, baud rate, data format, latency timer, bit mode, modem
// status, pins, EEPROM words); its bulk IN endpoint sends 64-byte packets
// that start with the two modem status bytes, and a read with nothing to
// send gets those two bytes alone once the latency timer runs out. Bytes on
// the bulk OUT endpoint reach the generator only when the line is set to
// its 25000 baud (within the 3 % a UART tolerates) and 8 data bits; else
// they are garbled, and dropped.
//
// The generator answers at once: the byte time of the line is not
// modelled. The bridge's EEPROM (128 bytes) holds its strings and, in the
// user area after them, the Rowan's time-base ratio.
#pragma once

#include <deque>
#include <string>
#include <vector>

#include "sim_generator.h"
#include "sim_usb_gadget.h"

namespace qssim {

constexpr uint16_t kFtdiVendor = 0x0403;
constexpr uint16_t kFtdiProduct = 0x6001;

class SimBridge : public UsbGadget {
public:
    SimBridge(int version, unsigned serial);

    uint16_t UsbVendor() const override { return kFtdiVendor; }
    uint16_t UsbProduct() const override { return kFtdiProduct; }
    uint16_t UsbRelease() const override { return 0x0600; }
    bool UsbString(int index, std::string* text) const override;
    GadgetEndpoints Endpoints() const override;

    void Unplug() { m_plugged = false; }
    unsigned Serial() const { return m_serial; }

    void WriteOut(int endpoint, const uint8_t* data, int len) override;
    int ReadIn(int endpoint, uint8_t* dst, int len, bool* shortPacket, Clock::time_point now) override;
    bool DataComing(int, Clock::time_point) const override { return m_waitingSince != Clock::time_point{}; }
    Clock::time_point ReadyBy(int endpoint, Clock::time_point now) const override;
    int Control(uint8_t requestType, uint8_t request, uint16_t value, uint16_t index, uint8_t* data,
                int len) override;

    Generator& GetGenerator() { return m_generator; }

private:
    void BuildEeprom();

    unsigned m_serial;
    Generator m_generator;
    std::string m_description;
    std::vector<uint8_t> m_eeprom;  // 64 words
    std::deque<uint8_t> m_rx;       // from the generator, to the host
    double m_baud = 9600.0;
    uint16_t m_dataFormat = 8;
    int m_latencyMs = 16;
    Clock::time_point m_waitingSince{};  // a read found nothing, from then
};

}  // namespace qssim

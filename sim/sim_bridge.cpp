#include "sim_bridge.h"

#include <cmath>
#include <cstdio>
#include <cstring>

namespace qssim {
namespace {

// The chip's vendor requests.
enum : uint8_t {
    kReset = 0x00,
    kModemCtrl = 0x01,
    kFlowCtrl = 0x02,
    kBaudRate = 0x03,
    kSetData = 0x04,
    kPollModemStatus = 0x05,
    kEventChar = 0x06,
    kErrorChar = 0x07,
    kSetLatency = 0x09,
    kGetLatency = 0x0A,
    kBitMode = 0x0B,
    kReadPins = 0x0C,
    kReadEeprom = 0x90,
};
constexpr uint8_t kVendorOut = 0x40;
constexpr uint8_t kVendorIn = 0xC0;
constexpr int kPacket = 64;
constexpr int kEepromBytes = 128;
// Modem status: CTS and DSR up; line status: transmitter empty.
constexpr uint8_t kStatus[2] = {0x31, 0x60};

// The baud rate of the divisor that the single-port chips take: 14 bits of
// integer divisor of 3 MHz, and eighths in three bits spread over the top
// of value and the low bit of index.
double BaudOf(uint16_t value, uint16_t index) {
    static const double kEighths[8] = {0, 0.5, 0.25, 0.125, 0.375, 0.625, 0.75, 0.875};
    const int whole = value & 0x3FFF;
    const int frac = (value >> 14) | ((index & 1) << 2);
    if (whole == 0 && frac == 0) return 3000000.0;
    if (whole == 1 && frac == 0) return 2000000.0;
    return 3000000.0 / (whole + kEighths[frac]);
}

}  // namespace

SimBridge::SimBridge(int version, unsigned serial)
    : m_serial(serial),
      m_generator(version, serial),
      m_description(version == 2 ? "CorvaneLinkTG Rowan" : "CorvaneLinkTG") {
    BuildEeprom();
}

bool SimBridge::UsbString(int index, std::string* text) const {
    char serial[16];
    std::snprintf(serial, sizeof serial, "%08u", m_serial % 100000000u);
    switch (index) {
        case 1: *text = "Corvane"; return true;
        case 2: *text = m_description; return true;
        case 3: *text = serial; return true;
        default: return false;
    }
}

GadgetEndpoints SimBridge::Endpoints() const {
    GadgetEndpoints e;
    e.out = 0x02;
    e.in[0] = 0x81;
    e.inCount = 1;
    e.maxPacket = kPacket;
    return e;
}

void SimBridge::BuildEeprom() {
    m_eeprom.assign(kEepromBytes, 0);
    auto put16 = [this](int at, int v) {
        m_eeprom[at] = static_cast<uint8_t>(v);
        m_eeprom[at + 1] = static_cast<uint8_t>(v >> 8);
    };
    put16(2, kFtdiVendor);
    put16(4, kFtdiProduct);
    put16(6, 0x0600);
    m_eeprom[8] = 0x80;  // bus powered
    m_eeprom[9] = 45;    // 90 mA
    // The strings as USB string descriptors from 0x18, each found through
    // its pointer (offset | 0x80) and length in the header.
    int at = 0x18;
    for (int i = 1; i <= 3; ++i) {
        std::string text;
        UsbString(i, &text);
        const int length = 2 + 2 * static_cast<int>(text.size());
        m_eeprom[0x0E + 2 * (i - 1)] = static_cast<uint8_t>(at | 0x80);
        m_eeprom[0x0F + 2 * (i - 1)] = static_cast<uint8_t>(length);
        m_eeprom[at] = static_cast<uint8_t>(length);
        m_eeprom[at + 1] = 0x03;
        for (size_t c = 0; c < text.size(); ++c) m_eeprom[at + 2 + 2 * c] = static_cast<uint8_t>(text[c]);
        at += length;
    }
    // The user area: the generator's time-base ratio, where the factory
    // keeps it there.
    const double timebase = m_generator.Model().UserAreaTimebase();
    std::memcpy(&m_eeprom[at], &timebase, sizeof timebase);
    // The chip's checksum over every word but the last.
    uint16_t sum = 0xAAAA;
    for (int i = 0; i < kEepromBytes / 2 - 1; ++i) {
        sum ^= static_cast<uint16_t>(m_eeprom[2 * i] | m_eeprom[2 * i + 1] << 8);
        sum = static_cast<uint16_t>(sum << 1 | sum >> 15);
    }
    put16(kEepromBytes - 2, sum);
}

int SimBridge::Control(uint8_t requestType, uint8_t request, uint16_t value, uint16_t index, uint8_t* data,
                       int len) {
    if (requestType == kVendorOut) {
        switch (request) {
            case kReset:
                // 0 resets the port, 1 and 2 purge one way each.
                if (value == 0 || value == 1) m_rx.clear();
                return 0;
            case kBaudRate: m_baud = BaudOf(value, index); return 0;
            case kSetData: m_dataFormat = value; return 0;
            case kSetLatency:
                if (value < 1 || value > 255) return -1;
                m_latencyMs = value;
                return 0;
            case kModemCtrl:
            case kFlowCtrl:
            case kEventChar:
            case kErrorChar:
            case kBitMode: return 0;
            default: return -1;
        }
    }
    if (requestType != kVendorIn) return -1;
    switch (request) {
        case kPollModemStatus:
            if (len < 2) return -1;
            std::memcpy(data, kStatus, 2);
            return 2;
        case kGetLatency:
            if (len < 1) return -1;
            data[0] = static_cast<uint8_t>(m_latencyMs);
            return 1;
        case kReadPins:
            if (len < 1) return -1;
            data[0] = 0xFF;
            return 1;
        case kReadEeprom: {
            if (len < 2) return -1;
            // The part has 64 words; addresses past them wrap.
            const int word = index % (kEepromBytes / 2);
            data[0] = m_eeprom[2 * word];
            data[1] = m_eeprom[2 * word + 1];
            return 2;
        }
        default: return -1;
    }
}

void SimBridge::WriteOut(int endpoint, const uint8_t* data, int len) {
    if (endpoint != 0x02) return;
    const bool lineRight = std::fabs(m_baud - 25000.0) <= 0.03 * 25000.0 && (m_dataFormat & 0xFF) == 8;
    if (!lineRight) return;  // garbled on the line: the generator hears nothing
    std::vector<uint8_t> reply;
    m_generator.Receive(data, len, &reply);
    m_rx.insert(m_rx.end(), reply.begin(), reply.end());
}

int SimBridge::ReadIn(int endpoint, uint8_t* dst, int len, bool* shortPacket, Clock::time_point now) {
    *shortPacket = false;
    if (endpoint != 0x81 || len < 2) return 0;
    if (m_rx.empty()) {
        // Nothing to send: the two status bytes alone when the latency
        // timer runs out.
        if (m_waitingSince == Clock::time_point{}) m_waitingSince = now;
        if (now < m_waitingSince + std::chrono::milliseconds(m_latencyMs)) return 0;
        m_waitingSince = {};
        std::memcpy(dst, kStatus, 2);
        *shortPacket = true;
        return 2;
    }
    m_waitingSince = {};
    int copied = 0;
    while (!m_rx.empty() && len - copied > 2) {
        const int room = std::min(kPacket, len - copied) - 2;
        const int n = std::min<int>(room, static_cast<int>(m_rx.size()));
        std::memcpy(dst + copied, kStatus, 2);
        for (int i = 0; i < n; ++i) {
            dst[copied + 2 + i] = m_rx.front();
            m_rx.pop_front();
        }
        copied += 2 + n;
        if (2 + n < kPacket) {
            *shortPacket = true;
            break;
        }
    }
    return copied;
}

Clock::time_point SimBridge::ReadyBy(int, Clock::time_point now) const {
    if (m_waitingSince == Clock::time_point{}) return now;
    return m_waitingSince + std::chrono::milliseconds(m_latencyMs);
}

}  // namespace qssim

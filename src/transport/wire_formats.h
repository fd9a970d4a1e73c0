// The byte-exact records exchanged with the analyser's firmware over USB.
// All multi-byte fields are little-endian, as is the host.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace qs {

constexpr int QS_USB_VENDOR_ID = 0x51C3;
constexpr int QS_PID_LARCH = 1;
constexpr int QS_PID_MAPLE_REV1 = 2;
constexpr int QS_PID_MAPLE_REV2 = 5;

constexpr unsigned char QS_EP_COMMAND = 0x01;
constexpr unsigned char QS_EP_CHANNEL1 = 0x81;
constexpr unsigned char QS_EP_CHANNEL2 = 0x82;
constexpr unsigned QS_USB_TIMEOUT_MS = 250;

constexpr int QS_COMMAND_BYTES = 1024;
constexpr int QS_PACKET_BYTES = 32768;
constexpr int QS_SAMPLES_PER_PACKET = 18688;
constexpr int QS_PAYLOAD_OFFSET = 32;
constexpr int QS_PAYLOAD_BYTES = 32704;
constexpr int QS_TRAILER_OFFSET = 32736;
constexpr int QS_PACKETS_PER_CHANNEL = 8;  // in one block
constexpr int QS_PACKETS_PER_BLOCK = 16;
constexpr int QS_BLOCK_SAMPLES = 299008;
constexpr int QS_TRANSFER_BYTES = 0x40000;  // one channel's half of a block
constexpr int QS_FLASH_PAGE_BYTES = 65536;
constexpr int QS_FLASH_WRITE_BYTES = 256;
constexpr int QS_FLASH_READ_PAGES = 49;  // pages 0 to 48
constexpr uint16_t QS_FLASH_UNLOCK = 0x5AC3;
constexpr int QS_MAX_SUBBANDS = 32;
constexpr int QS_ROUGH_CORR_BYTES = 256;

// headerType of a command
enum : uint8_t {
    QS_CMD_CONFIGURE = 0,
    QS_CMD_CAPTURE = 5,
    QS_CMD_READ_FLASH = 0x11,
    QS_CMD_WRITE_FLASH = 0x12,
    QS_CMD_CLEAR_FLASH = 0x13,
    QS_CMD_PRESET = 0x14,
    QS_CMD_SET_PORTS = 0x15,
};

// commandType of QS_CMD_CONFIGURE
enum : uint16_t {
    QS_CFG_SWEEP = 1,
    QS_CFG_STREAM = 2,
    QS_CFG_STREAM_FORCE = 3,
    QS_CFG_TG_SWEEP = 6,
};

#pragma pack(push, 1)

// One run of equally spaced LO steps in one RF path.
struct subBand_t {
    uint8_t settings[4];  // control bytes, packed by the model's PackSettings
    uint16_t LO2Freq;
    uint16_t LO1startFreq;
    int16_t LO1stepFreq;
    uint16_t packetsPerFreq;
    uint16_t stepCount;
    uint16_t reserved_u16;
};

// The one command block the host writes to endpoint 0x01.
struct DeviceCommand {
    uint8_t headerType;
    uint8_t headerVersion;
    uint16_t headerSize;
    uint16_t commandType;
    uint16_t subBandCount;
    uint16_t TGstartingIndex;
    uint16_t TGCountPerPatch;
    uint32_t reserved1;
    union {
        uint8_t subBandBuffer[512];
        subBand_t subBandArray[QS_MAX_SUBBANDS];
    };
    uint8_t roughCorrArray[QS_ROUGH_CORR_BYTES];
    uint8_t unused[240];

    // Copies are of all 1024 bytes: the implicit copy of a packed record.
    DeviceCommand() { Clear(); }
    void Clear() { std::memset(static_cast<void*>(this), 0, sizeof *this); }
    const uint8_t* Bytes() const { return reinterpret_cast<const uint8_t*>(this); }
};

struct stateHeader_t {
    uint8_t headerType;
    uint8_t headerVersion;
    uint8_t hardwareVersion;
    uint8_t firmwareVersion;
    uint16_t LO1FreqSetting;
    uint16_t LO2FreqSetting;
    uint8_t pathGainAttenSettings[4];
    uint16_t ADCIndex;
    uint16_t ADCValue;
};

struct stateTrailer_t {
    uint16_t TotalPktCount;
    uint16_t LOPktCount;
    uint16_t GPIFOverflowCount;
    uint16_t ADCOverflowCount;
    uint32_t S3DNA;
    uint16_t NumberOfEvents;
    uint16_t EventCounter;
};

#pragma pack(pop)

// The host-side record the control bytes are packed from; never sent.
struct s3Ctrl_t {
    int8_t band;
    uint8_t atten;
    uint8_t gain;
    int8_t IOPortControlFlags;
    uint8_t pktsz;
    uint8_t stream;
    uint8_t pktsz_x3d2;
    int8_t reservedc;
};

// Host-side counters of the transport. All are written by the interface
// thread but commandsToStart, the mailbox flag, which the caller's thread
// raises and the interface thread lowers; so that one crosses threads.
struct DMAState {
    int32_t commandsStarted = 0;
    int32_t commandsFinished = 0;
    int32_t commandsProcessed = 0;
    std::atomic<int32_t> commandsToStart{0};
    int32_t dataToStart = 0;
    int32_t dataStartedAccum = 0;
    int32_t dataFinishedAccum = 0;
};

// Blocks that answer a sweep or capture: the packets of the valid
// sub-bands (at most 32), 16 to a block, the remainder dropped. A block can
// ask for more than an int counts; such a count stops at INT32_MAX.
inline int CountedBlocks(const DeviceCommand& command) {
    int64_t packets = 0;
    const int valid = command.subBandCount < QS_MAX_SUBBANDS ? command.subBandCount : QS_MAX_SUBBANDS;
    for (int i = 0; i < valid; ++i)
        packets += int64_t{command.subBandArray[i].packetsPerFreq} * command.subBandArray[i].stepCount;
    return static_cast<int>(std::min<int64_t>(packets >> 4, INT32_MAX));
}

// The header and trailer of packet `packet` (0 to 7) of one channel's half
// of a block. Copied out, as the buffers carry no alignment promise.
inline stateHeader_t PacketHeader(const uint8_t* half, int packet) {
    stateHeader_t header;
    std::memcpy(&header, half + packet * QS_PACKET_BYTES, sizeof header);
    return header;
}

inline stateTrailer_t PacketTrailer(const uint8_t* half, int packet) {
    stateTrailer_t trailer;
    std::memcpy(&trailer, half + packet * QS_PACKET_BYTES + QS_TRAILER_OFFSET, sizeof trailer);
    return trailer;
}

// True when the eighth packet of either channel echoes control bytes with
// bit 0 set: the device has left stream mode and sends nothing after it.
inline bool BlockEndsStream(const uint8_t* ch1, const uint8_t* ch2) {
    return ((PacketHeader(ch1, QS_PACKETS_PER_CHANNEL - 1).pathGainAttenSettings[0] |
             PacketHeader(ch2, QS_PACKETS_PER_CHANNEL - 1).pathGainAttenSettings[0]) & 0x1) != 0;
}

static_assert(sizeof(subBand_t) == 16, "subBand_t is 16 bytes on the wire");
static_assert(sizeof(DeviceCommand) == QS_COMMAND_BYTES, "a command is 1024 bytes");
static_assert(std::is_trivially_copyable_v<DeviceCommand>);
static_assert(offsetof(DeviceCommand, commandType) == 4);
static_assert(offsetof(DeviceCommand, subBandCount) == 6);
static_assert(offsetof(DeviceCommand, TGstartingIndex) == 8);
static_assert(offsetof(DeviceCommand, TGCountPerPatch) == 10);
static_assert(offsetof(DeviceCommand, subBandBuffer) == 16);
static_assert(offsetof(DeviceCommand, roughCorrArray) == 528);
static_assert(offsetof(DeviceCommand, unused) == 784);
static_assert(offsetof(subBand_t, LO2Freq) == 4);
static_assert(offsetof(subBand_t, LO1startFreq) == 6);
static_assert(offsetof(subBand_t, LO1stepFreq) == 8);
static_assert(offsetof(subBand_t, packetsPerFreq) == 10);
static_assert(offsetof(subBand_t, stepCount) == 12);
static_assert(sizeof(stateHeader_t) == 16);
static_assert(offsetof(stateHeader_t, pathGainAttenSettings) == 8);
static_assert(offsetof(stateHeader_t, ADCIndex) == 12);
static_assert(7 * QS_PACKET_BYTES + offsetof(stateHeader_t, pathGainAttenSettings) == 0x38008,
              "the stop echo is read from the eighth packet's header");
static_assert(offsetof(stateHeader_t, ADCValue) == 14);
static_assert(sizeof(stateTrailer_t) == 16);
static_assert(offsetof(stateTrailer_t, GPIFOverflowCount) == 4);
static_assert(offsetof(stateTrailer_t, ADCOverflowCount) == 6);
static_assert(offsetof(stateTrailer_t, S3DNA) == 8);
static_assert(offsetof(stateTrailer_t, NumberOfEvents) == 12);
static_assert(offsetof(stateTrailer_t, EventCounter) == 14);
static_assert(QS_PAYLOAD_BYTES / 14 * 8 == QS_SAMPLES_PER_PACKET);
static_assert(QS_SAMPLES_PER_PACKET * QS_PACKETS_PER_BLOCK == QS_BLOCK_SAMPLES);
static_assert(QS_PACKET_BYTES * QS_PACKETS_PER_CHANNEL == QS_TRANSFER_BYTES);

}  // namespace qs

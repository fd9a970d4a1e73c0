// Fuzz target over the byte formats shared by the host and the simulated
// firmware. One input is used three ways:
//  - as packed payload: unpacking any 14 bytes and packing the 8 samples
//    again must give the same 14 bytes (the packing is a bijection);
//  - as samples: packing then unpacking keeps the top 14 bits of each;
//  - as a run of command blocks (1024 bytes each, the last zero-padded) fed
//    to the firmware, whose answers are read back through the host's header
//    and trailer readers and checked for framing, monitor index, flash
//    content and the block count that host and firmware each compute.
// Any broken promise traps, so libFuzzer and the replay driver both see it.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "sim_firmware.h"
#include "sim_packing.h"
#include "transport/wire_formats.h"

namespace {

void Check(bool ok) {
    if (!ok) __builtin_trap();
}

// Written from the wire description, independent of any library unpacker.
void UnpackGroup(const uint8_t* in, int16_t* out) {
    uint16_t s0 = 0;
    for (int k = 0; k < 7; ++k) {
        const uint16_t w = static_cast<uint16_t>(in[2 * k] | (in[2 * k + 1] << 8));
        s0 = static_cast<uint16_t>(s0 | ((w & 0x3) << (14 - 2 * k)));
        out[k + 1] = static_cast<int16_t>(w & 0xFFFC);
    }
    out[0] = static_cast<int16_t>(s0);
}

void CheckPacking(const uint8_t* data, size_t size) {
    const size_t groups = size / 14;
    for (size_t g = 0; g < groups && g < 512; ++g) {
        int16_t samples[8];
        UnpackGroup(data + 14 * g, samples);
        uint8_t again[14];
        qssim::PackSamples(samples, 8, again);
        Check(std::memcmp(again, data + 14 * g, 14) == 0);
    }
    const size_t n = size / 16 * 8;  // whole groups of 16-bit samples
    if (n == 0) return;
    std::vector<int16_t> samples(n);
    std::memcpy(samples.data(), data, n * 2);
    std::vector<uint8_t> packed(n / 8 * 14);
    qssim::PackSamples(samples.data(), static_cast<int>(n), packed.data());
    for (size_t g = 0; g < n / 8; ++g) {
        int16_t back[8];
        UnpackGroup(packed.data() + 14 * g, back);
        for (int k = 0; k < 8; ++k)
            Check(back[k] == static_cast<int16_t>(samples[8 * g + k] & ~0x3));
    }
}

void CheckFirmware(const uint8_t* data, size_t size) {
    qssim::Scene scene;
    qssim::Firmware fw(2, 12345678, &scene);
    const auto now = qssim::Clock::now();
    static std::vector<uint8_t> half[2] = {std::vector<uint8_t>(qs::QS_TRANSFER_BYTES),
                                           std::vector<uint8_t>(qs::QS_TRANSFER_BYTES)};
    for (size_t at = 0, commands = 0; at < size && commands < 8; at += 1024, ++commands) {
        uint8_t block[1024] = {};
        std::memcpy(block, data + at, size - at < 1024 ? size - at : 1024);

        qssim::Command decoded;
        Check(qssim::DecodeCommand(block, 1024, &decoded));
        qs::DeviceCommand host;
        std::memcpy(static_cast<void*>(&host), block, 1024);
        const int64_t blocks = qssim::CountedBlocks(decoded);
        Check(qs::CountedBlocks(host) == (blocks > INT32_MAX ? INT32_MAX : blocks));

        fw.OnCommand(block, 1024, now);
        int got[2];
        for (int ch = 0; ch < 2; ++ch) {
            bool shortPacket = false;
            // Two packets a channel reach every header and trailer field;
            // making more only spends the fuzzer's time on the payload.
            got[ch] = fw.Read(ch, half[ch].data(), 2 * qs::QS_PACKET_BYTES, &shortPacket, now);
            Check(got[ch] >= 0 && got[ch] <= 2 * qs::QS_PACKET_BYTES);
        }
        if (decoded.headerType == qssim::kCmdReadFlash) {
            const bool exists = decoded.commandType < qssim::kFlashPages;
            for (int ch = 0; ch < 2; ++ch) {
                Check(got[ch] == (exists ? qs::QS_PACKET_BYTES : 0));
                if (exists)
                    Check(std::memcmp(half[ch].data(),
                                      fw.Flash() + size_t{decoded.commandType} * 65536 +
                                          size_t(ch) * qs::QS_PACKET_BYTES,
                                      qs::QS_PACKET_BYTES) == 0);
            }
            continue;
        }
        Check(got[0] == got[1] && got[0] % qs::QS_PACKET_BYTES == 0);
        const int packets = got[0] / qs::QS_PACKET_BYTES;
        for (int p = 0; p < packets; ++p) {
            const qs::stateHeader_t h1 = qs::PacketHeader(half[0].data(), p);
            const qs::stateHeader_t h2 = qs::PacketHeader(half[1].data(), p);
            const qs::stateTrailer_t t1 = qs::PacketTrailer(half[0].data(), p);
            const qs::stateTrailer_t t2 = qs::PacketTrailer(half[1].data(), p);
            Check(h1.ADCIndex <= 6 && h1.ADCIndex == h2.ADCIndex && h1.ADCValue == h2.ADCValue);
            Check(static_cast<uint16_t>(t2.TotalPktCount - t1.TotalPktCount) == 1);
            Check(t1.S3DNA == t2.S3DNA);
            Check(t1.GPIFOverflowCount == 0 && t1.ADCOverflowCount == 0);
        }
        // A command that starts a run is answered from its first packet:
        // each header echoes the control bytes and LO of its own step.
        const uint8_t mode = decoded.subBands[0].settings[0];
        const bool counted = decoded.headerType == qssim::kCmdCapture ||
                             (decoded.headerType == qssim::kCmdConfigure &&
                              (decoded.commandType == qssim::kCfgSweep ||
                               decoded.commandType == qssim::kCfgTgSweep));
        const bool stream = decoded.headerType == qssim::kCmdConfigure &&
                            ((decoded.commandType == qssim::kCfgStream && (mode & 0x3) == 0) ||
                             decoded.commandType == qssim::kCfgStreamForce);
        if (!counted && !stream) continue;
        for (int q = 0; q < 2 * packets; ++q) {
            int sb = 0;
            int64_t step = 0;
            const bool generator = decoded.headerType == qssim::kCmdConfigure &&
                                   decoded.commandType == qssim::kCfgTgSweep;
            if (generator && qssim::ValidSubBands(decoded) > 0) {
                // Sub-bands count generator points of ppf packets; the LO
                // stands for TGCountPerPatch points, from TGstartingIndex.
                const int64_t ppf = std::max<int64_t>(1, decoded.subBands[0].packetsPerFreq);
                const int64_t perStep = std::max<int64_t>(1, decoded.TGCountPerPatch);
                const int64_t point = q / ppf + decoded.TGstartingIndex;
                int64_t base = decoded.TGstartingIndex;
                for (int i = 0; i < qssim::ValidSubBands(decoded); ++i) {
                    const int64_t end = base + decoded.subBands[i].stepCount;
                    if (point < end || i == qssim::ValidSubBands(decoded) - 1) {
                        sb = i;
                        step = point / perStep - base / perStep;
                        break;
                    }
                    base = end;
                }
            } else if (counted) {
                int64_t start = 0;
                for (int i = 0; i < qssim::ValidSubBands(decoded); ++i) {
                    const int64_t n = int64_t{decoded.subBands[i].packetsPerFreq} *
                                      decoded.subBands[i].stepCount;
                    if (q < start + n) {
                        sb = i;
                        step = (q - start) / decoded.subBands[i].packetsPerFreq;
                        break;
                    }
                    start += n;
                }
            } else {
                const int64_t ppf = decoded.subBands[0].packetsPerFreq ? decoded.subBands[0].packetsPerFreq : 1;
                const int64_t steps = decoded.subBands[0].stepCount ? decoded.subBands[0].stepCount : 1;
                step = (q / ppf) % steps;
            }
            const qs::stateHeader_t h = qs::PacketHeader(half[q % 2].data(), q / 2);
            Check(std::memcmp(h.pathGainAttenSettings, decoded.subBands[sb].settings, 4) == 0);
            Check(h.LO1FreqSetting == static_cast<uint16_t>(decoded.subBands[sb].LO1startFreq +
                                                            step * decoded.subBands[sb].LO1stepFreq));
            Check(h.LO2FreqSetting == decoded.subBands[sb].LO2Freq);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CheckPacking(data, size);
    CheckFirmware(data, size);
    return 0;
}

// A block of both channels as the device sends it, built byte by byte for
// the ingest tests.
#pragma once

#include <cstdint>
#include <vector>

#include "transport/wire_formats.h"

namespace qs {
namespace test {

// One block: two channels of eight packets, headers and trailers settable.
struct Block {
    std::vector<uint8_t> ch[2];
    // Block `index` of a run.
    explicit Block(int index = 0) {
        for (auto& c : ch) c.assign(QS_TRANSFER_BYTES, 0);
        // In step: channel 2 one packet ahead.
        for (int p = 0; p < 8; ++p) {
            Trailer(0, p).TotalPktCount = static_cast<uint16_t>(16 * index + 2 * p);
            Trailer(1, p).TotalPktCount = static_cast<uint16_t>(16 * index + 2 * p + 1);
        }
    }
    stateHeader_t& Header(int channel, int packet) {
        return *reinterpret_cast<stateHeader_t*>(ch[channel].data() + packet * QS_PACKET_BYTES);
    }
    stateTrailer_t& Trailer(int channel, int packet) {
        return *reinterpret_cast<stateTrailer_t*>(ch[channel].data() + packet * QS_PACKET_BYTES +
                                                  QS_TRAILER_OFFSET);
    }
    void Monitor(uint16_t index, uint16_t value) {
        for (int c = 0; c < 2; ++c) {
            Header(c, 0).ADCIndex = index;
            Header(c, 0).ADCValue = value;
        }
    }
    // Running event counts: `events` before packet `packet` of `channel`
    // stays, from there on it is one more, with the event at `counter`.
    void Event(int channel, int packet, uint16_t counter) {
        for (int p = packet; p < 8; ++p)
            for (int c = (p == packet ? channel : 0); c < 2; ++c) ++Trailer(c, p).NumberOfEvents;
        Trailer(channel, packet).EventCounter = counter;
    }
    void SetEvents(uint16_t count) {
        for (int p = 0; p < 8; ++p)
            for (int c = 0; c < 2; ++c) Trailer(c, p).NumberOfEvents = count;
    }
    const uint8_t* C1() const { return ch[0].data(); }
    const uint8_t* C2() const { return ch[1].data(); }
};

}  // namespace test
}  // namespace qs

// Where the interface thread hands the blocks it read.
//
// Contract: every call comes from the interface thread, with no lock of the
// transport held, so a sink may take its time without stalling anything
// but the reads behind it. The sink is registered before the first command
// and outlives the transport's thread. None of the calls may allocate or
// block on the application: the thread must be back at the USB reads before
// the device's ring of transfers runs dry.
#pragma once

#include <cstdint>

namespace qs {

class BlockSink {
public:
    virtual ~BlockSink() = default;

    // One block: eight packets of each channel. ppf and index carry a
    // sweep's position (the packets per step, the chunk handed back by the
    // previous block of the same pass); a stream passes 0 and 0. Returns the
    // index to hand back with the next block of the pass.
    virtual int StoreData(uint8_t* ch1, uint8_t* ch2, int ppf, int index) = 0;
    // The packets per step of the plan the next sweep runs; read once when
    // its command went out.
    virtual int PacketsPerStep() const = 0;
    // Whether a stream is running, that is whether a stop waiting in the
    // mailbox belongs to it.
    virtual bool IsStreaming() const = 0;
};

}  // namespace qs

// The hand-over of finished I/Q samples between a stream's filter thread
// (Append) and the application (Read, through qsGetIQ). The buffer keeps the
// trigger positions and the time stamp relative to its read position, and
// turns an overrun into one flag instead of mixed-up data.
//
// The storage is the Device's vector, lent for the life of one stream, so
// that the memory outlives it. One thread appends, one reads; `lock` makes
// Append, Read, Clear and Resize exclusive. Size() reads the indices without
// the lock: a stale value only decides whether to wait, or what to report
// as remaining.
#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <mutex>
#include <vector>

#include "ipps.h"
#include "qs_api.h"

namespace qs {

class IQCircularBuffer {
public:
    explicit IQCircularBuffer(std::vector<Ipp32fc>& buf);
    IQCircularBuffer(const IQCircularBuffer&) = delete;
    IQCircularBuffer& operator=(const IQCircularBuffer&) = delete;

    // Drops everything unread, triggers and a pending loss flag included.
    void Clear();
    // Sets the capacity (new samples are zero) and empties the buffer; a
    // pending loss flag stays. Never while Append or Read can run.
    void Resize(int size);
    // Filter thread: count samples (at most Capacity()), with trigCount
    // positions counted from src[0], and the time (s, ns) of src[0].
    // decimation is the exponent of the total decimation, hwSR the measured
    // converter rate. A block that does not fit drops all that is held.
    void Append(const Ipp32fc* src, int count, const int* triggers, int trigCount, uint32_t s,
                uint32_t ns, int decimation, double hwSR);
    // Application's thread: up to count samples into dst as dataType, the
    // triggers among them (at most trigSize, counted from dst's first
    // sample) into trigDst, and the time of the first sample into s and ns.
    // An empty buffer returns nothing and leaves s and ns alone.
    void Read(void* dst, int count, int& returned, int* trigDst, int trigSize,
              int& triggersReturned, int decimation, double hwSR, int& s, int& ns,
              qsDataType dataType);
    int Size() const;
    int Capacity() const { return static_cast<int>(buf.size()); }
    // 1 after an overrun since the last call, else 0; clears the flag.
    int SampleLoss() { return sampleLoss.exchange(0); }

private:
    int Held() const;

    std::vector<Ipp32fc>& buf;
    std::list<int> trigList;  // pending, in samples from `read`
    std::atomic<int> read{0};
    std::atomic<int> write{0};
    std::mutex lock;
    std::atomic<int> sampleLoss{0};
    int64_t secs = 0;   // time of the sample at `read`
    int64_t nanos = 0;  // 0 .. 999,999,999 after any update
};

}  // namespace qs

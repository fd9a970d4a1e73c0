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
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "ipps.h"
#include "qs_api.h"

namespace qs {

// An allocator that leaves elements of trivial types uninitialised: a
// 94 MB sample ring resized by a plain vector was zero-filled first, most
// of a stream's start-up time, and is overwritten before it is read. Its
// pages are then touched as the stream first fills them.
template <typename T>
struct UninitialisedAllocator : std::allocator<T> {
    template <typename U>
    struct rebind {
        using other = UninitialisedAllocator<U>;
    };
    UninitialisedAllocator() = default;
    template <typename U>
    UninitialisedAllocator(const UninitialisedAllocator<U>&) noexcept {}
    template <typename U>
    void construct(U* p) noexcept {
        ::new (static_cast<void*>(p)) U;
    }
    template <typename U, typename... A>
    void construct(U* p, A&&... a) {
        ::new (static_cast<void*>(p)) U(std::forward<A>(a)...);
    }
};

using IQStorage = std::vector<Ipp32fc, UninitialisedAllocator<Ipp32fc>>;

class IQCircularBuffer {
public:
    explicit IQCircularBuffer(IQStorage& buf);
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

    IQStorage& buf;
    std::list<int> trigList;  // pending, in samples from `read`
    std::atomic<int> read{0};
    std::atomic<int> write{0};
    std::mutex lock;
    std::atomic<int> sampleLoss{0};
    int64_t secs = 0;   // time of the sample at `read`
    int64_t nanos = 0;  // 0 .. 999,999,999 after any update
};

}  // namespace qs

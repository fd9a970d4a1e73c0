#include "engines/iq_circular_buffer.h"

#include <algorithm>
#include <cassert>

namespace qs {

namespace {

constexpr int64_t kNanosPerSecond = 1000000000;

// Nanoseconds spanned by n output samples: 25 ns is a sample at the full
// complex rate of 40 MHz, scaled by the measured converter clock.
int64_t SpanNanos(int n, int decimation, double hwSR) {
    return static_cast<int64_t>(n * (8e7 / hwSR * 25.0) * static_cast<double>(1u << decimation));
}

}  // namespace

IQCircularBuffer::IQCircularBuffer(IQStorage& storage) : buf(storage) {}

int IQCircularBuffer::Held() const {
    const int n = write.load() - read.load();
    return n < 0 ? n + Capacity() : n;
}

int IQCircularBuffer::Size() const { return Held(); }

void IQCircularBuffer::Clear() {
    std::lock_guard<std::mutex> guard(lock);
    read = 0;
    write = 0;
    trigList.clear();
    sampleLoss = 0;
}

void IQCircularBuffer::Resize(int size) {
    std::lock_guard<std::mutex> guard(lock);
    buf.resize(static_cast<size_t>(size));
    trigList.clear();
    read = 0;
    write = 0;
}

void IQCircularBuffer::Append(const Ipp32fc* src, int count, const int* triggers, int trigCount,
                              uint32_t s, uint32_t ns, int decimation, double hwSR) {
    std::lock_guard<std::mutex> guard(lock);
    const int capacity = Capacity();
    assert(count <= Capacity() && "count <= Capacity()");
    if (count >= capacity - Held()) {
        // Filling up to read == write would read as empty: an exact fit is
        // an overrun too. The application then sees one clean gap.
        trigList.clear();
        read = 0;
        write = 0;
        sampleLoss = 1;
    }
    const int held = Held();

    // The stamp always belongs to the oldest unread sample.
    secs = s;
    nanos = static_cast<int64_t>(ns) - SpanNanos(held, decimation, hwSR);
    while (nanos < 0) {
        nanos += kNanosPerSecond;
        --secs;
    }

    const int w = write.load();
    const int first = std::min(count, capacity - w);
    ippsCopy_32fc(src, buf.data() + w, first);
    if (count > first) ippsCopy_32fc(src + first, buf.data(), count - first);
    int next = w + count;
    if (next >= capacity) next -= capacity;
    write = next;

    for (int i = 0; i < trigCount; ++i) trigList.push_back(triggers[i] + held);
}

void IQCircularBuffer::Read(void* dst, int count, int& returned, int* trigDst, int trigSize,
                            int& triggersReturned, int decimation, double hwSR, int& s, int& ns,
                            qsDataType dataType) {
    std::lock_guard<std::mutex> guard(lock);
    const int n = std::min(count, Held());
    returned = n;
    if (n <= 0) {
        triggersReturned = 0;
        return;
    }

    const int capacity = Capacity();
    const int r = read.load();
    const int first = std::min(n, capacity - r);
    if (dataType == qsDataType32fc) {
        Ipp32fc* out = static_cast<Ipp32fc*>(dst);
        ippsCopy_32fc(buf.data() + r, out, first);
        if (n > first) ippsCopy_32fc(buf.data(), out + first, n - first);
    } else if (dataType == qsDataType16sc) {
        // Each complex value as two floats: full scale 1.0 becomes 32768.
        Ipp16s* out = static_cast<Ipp16s*>(dst);
        ippsConvert_32f16s_Sfs(reinterpret_cast<const Ipp32f*>(buf.data() + r), out, 2 * first,
                               ippRndNear, -15);
        if (n > first)
            ippsConvert_32f16s_Sfs(reinterpret_cast<const Ipp32f*>(buf.data()), out + 2 * first,
                                   2 * (n - first), ippRndNear, -15);
    }
    if (dataType == qsDataType32fc || dataType == qsDataType16sc) {
        // Any other type was refused by the public call; should one come,
        // nothing is delivered and the samples stay.
        int next = r + n;
        if (next >= capacity) next -= capacity;
        read = next;
    }

    int c = 0;
    while (!trigList.empty() && trigList.front() < n) {
        // A trigger that finds no room is lost with its samples.
        if (trigDst && c < trigSize) trigDst[c++] = trigList.front();
        trigList.pop_front();
    }
    for (int& p : trigList) p -= n;
    triggersReturned = c;

    s = static_cast<int>(secs);
    ns = static_cast<int>(nanos);
    nanos += SpanNanos(n, decimation, hwSR);
    if (nanos > kNanosPerSecond - 1) {
        ++secs;
        nanos -= kNanosPerSecond;
    }
}

}  // namespace qs

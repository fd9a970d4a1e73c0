#include "sim_firmware.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "sim_packing.h"

namespace qssim {

namespace {

uint16_t Get16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }

void Put16(uint8_t* p, uint16_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
}

void Put32(uint8_t* p, uint32_t v) {
    Put16(p, static_cast<uint16_t>(v));
    Put16(p + 2, static_cast<uint16_t>(v >> 16));
}

int64_t RoundUpToBlock(int64_t pair) {
    return (pair + kPacketsPerChannel - 1) / kPacketsPerChannel * kPacketsPerChannel;
}

// The first sample position at which an event is reported in packet q or
// later. The trigger input is latched late: an event in the first seven
// samples of a packet is reported in the packet before, with its offset.
int64_t ReportThreshold(int64_t packet) { return packet * kSamplesPerPacket + 7; }

}  // namespace

bool DecodeCommand(const uint8_t* bytes, int len, Command* out) {
    if (!bytes || len != kCommandBytes) return false;
    out->headerType = bytes[0];
    out->commandType = Get16(bytes + 4);
    out->subBandCount = Get16(bytes + 6);
    out->TGstartingIndex = Get16(bytes + 8);
    out->TGCountPerPatch = Get16(bytes + 10);
    for (int i = 0; i < kMaxSubBands; ++i) {
        const uint8_t* p = bytes + 16 + 16 * i;
        SubBand& sb = out->subBands[i];
        std::memcpy(sb.settings, p, 4);
        sb.LO2Freq = Get16(p + 4);
        sb.LO1startFreq = Get16(p + 6);
        sb.LO1stepFreq = static_cast<int16_t>(Get16(p + 8));
        sb.packetsPerFreq = Get16(p + 10);
        sb.stepCount = Get16(p + 12);
    }
    std::memcpy(out->data, bytes + 16, kFlashWriteBytes);
    std::memcpy(out->roughCorrArray, bytes + kRoughCorrOffset, kRoughCorrBytes);
    return true;
}

int ValidSubBands(const Command& command) {
    return std::min<int>(command.subBandCount, kMaxSubBands);
}

int64_t CountedBlocks(const Command& command) {
    int64_t packets = 0;
    for (int i = 0; i < ValidSubBands(command); ++i)
        packets += int64_t{command.subBands[i].packetsPerFreq} * command.subBands[i].stepCount;
    return packets >> 4;
}

int16_t TestPatternSample(int64_t runSample) {
    uint64_t x = static_cast<uint64_t>(runSample) + 0x9E3779B97F4A7C15ull;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
    x ^= x >> 31;
    return static_cast<int16_t>((static_cast<int>(x % 65) - 32) * 4);
}

void TestPatternSource::FillPacket(const PacketContext& ctx, const Scene&, int16_t* out,
                                   int count) {
    for (int i = 0; i < count; ++i) out[i] = TestPatternSample(ctx.runSample + i);
}

Firmware::Firmware(int productId, unsigned serial, const Scene* scene)
    : m_productId(productId),
      m_scene(scene),
      m_source(std::make_unique<TestPatternSource>()),
      m_samples(kSamplesPerPacket),
      m_dna(0x3D000000u ^ (serial * 2654435761u)) {}

uint8_t* Firmware::Flash() {
    if (m_flash.empty()) {
        m_flash.assign(kFlashBytes, 0xFF);
        if (m_flashInit) m_flashInit(m_flash.data());
    }
    return m_flash.data();
}

void Firmware::RewriteFlash() {
    if (!m_flash.empty() && m_flashInit) m_flashInit(m_flash.data());
}

void Firmware::OnCommand(const uint8_t* data, int len, Clock::time_point now) {
    Command c;
    if (!DecodeCommand(data, len, &c)) return;
    switch (c.headerType) {
        case kCmdConfigure: {
            const uint8_t mode = c.subBands[0].settings[0];
            switch (c.commandType) {
                case kCfgSweep:
                    StartRun(kCounted, c, CountedBlocks(c) * kPacketsPerChannel, now);
                    break;
                case kCfgTgSweep:
                    StartRun(kCounted, c, CountedBlocks(c) * kPacketsPerChannel, now);
                    // The trigger line to the generator: its armed sweep
                    // starts with the run's first point.
                    if (m_stimulus) m_stimulus->BeginSweepRun();
                    break;
                case kCfgStream:
                    if (m_mode == kStream && (mode & 0x1))
                        BeginDrain(c, now);
                    else if ((mode & 0x3) == 0)
                        StartRun(kStream, c, INT64_MAX, now);
                    else
                        EndRun();
                    break;
                case kCfgStreamForce:
                    StartRun(kStream, c, INT64_MAX, now);
                    break;
                default:
                    EndRun();  // configures the path, sends nothing
                    break;
            }
            break;
        }
        case kCmdCapture:
            StartRun(kCounted, c, CountedBlocks(c) * kPacketsPerChannel, now);
            break;
        case kCmdReadFlash:
            EndRun();
            m_mode = kFlash;
            m_flashPage = c.commandType;
            m_flashPending[0] = m_flashPending[1] = c.commandType < kFlashPages;
            break;
        case kCmdWriteFlash:
            // Programming only clears bits, as on NOR flash: 0xFF bytes leave
            // what is there.
            if (c.subBandCount == kFlashUnlock &&
                c.commandType < kFlashBytes / kFlashWriteBytes) {
                uint8_t* dst = Flash() + size_t{c.commandType} * kFlashWriteBytes;
                for (int i = 0; i < kFlashWriteBytes; ++i) dst[i] &= c.data[i];
            }
            break;
        case kCmdClearFlash:
            if (c.commandType == kFlashUnlock && c.subBandCount == kFlashUnlock)
                m_flash.assign(kFlashBytes, 0xFF);  // also a flash not yet made: no image after
            break;
        case kCmdPreset:
            EndRun();
            break;
        case kCmdSetPorts:
            m_portMask = c.data[0];
            break;
        default:
            break;  // unknown operations are ignored, as the firmware does
    }
}

void Firmware::StartRun(Mode mode, const Command& command, int64_t pairLimit,
                        Clock::time_point now) {
    const bool slip = m_slipNextRun;
    EndRun();
    m_mode = mode;
    m_run = command;
    ++m_generation;
    m_pairLimit = pairLimit;
    m_runStart = now;
    if (slip) m_events.push_back({0, 1, kSlip});
    if (mode == kStream)
        for (int64_t t : m_streamTriggers) AddTrigger(t);
}

void Firmware::EndRun() {
    m_slipNextRun = false;
    if (m_mode == kCounted || m_mode == kStream || m_mode == kDraining) {
        const int64_t furthest = FurthestPair();
        m_runBasePair += RoundUpToBlock(furthest);
        m_gpifBase = static_cast<uint16_t>(m_gpifBase + std::max(m_gpifSeen[0], m_gpifSeen[1]));
        m_adcBase = static_cast<uint16_t>(m_adcBase + std::max(m_adcSeen[0], m_adcSeen[1]));
        m_eventBase = static_cast<uint16_t>(m_eventBase + TriggersBefore(2 * furthest));
        // Positions count from a run's start: triggers that a run saw are spent.
        if (m_triggersUsed) m_triggers.clear();
        m_triggersUsed = false;
    }
    m_mode = kIdle;
    m_next[0] = m_next[1] = 0;
    m_lost[0] = m_lost[1] = 0;
    m_events.clear();
    m_applied[0] = m_applied[1] = 0;
    m_gpifSeen[0] = m_gpifSeen[1] = 0;
    m_adcSeen[0] = m_adcSeen[1] = 0;
    m_overrunPending[0] = m_overrunPending[1] = false;
    m_markerPair = INT64_MAX;
    m_pairLimit = 0;
    m_flashPending[0] = m_flashPending[1] = false;
    FlushFifos();
    ++m_generation;
}

void Firmware::FlushFifos() {
    for (int ch = 0; ch < 2; ++ch) m_fifoHead[ch] = m_fifoTail[ch];
}

void Firmware::BeginDrain(const Command& stop, Clock::time_point now) {
    // What the device holds already goes out first; the block after it
    // carries the stop's control bytes and is the last.
    int64_t held = FurthestPair();
    if (Paced())
        held = std::max(held, std::min(ProducedPairs(now),
                                       FurthestPair() + kFifoBlocks * kPacketsPerChannel));
    m_markerPair = RoundUpToBlock(held);
    m_pairLimit = m_markerPair + kPacketsPerChannel;
    std::memcpy(m_stopSettings, stop.subBands[0].settings, 4);
    m_mode = kDraining;
}

bool Firmware::AddTrigger(int64_t runSample) {
    // An event in the first samples of a run has no packet to be reported in.
    if (runSample < 7 || m_triggers.size() >= 4096) return false;
    m_triggers.insert(std::upper_bound(m_triggers.begin(), m_triggers.end(), runSample),
                      runSample);
    return true;
}

void Firmware::AddEvent(EventKind kind) {
    // A counted run whose blocks have all gone out is over for this purpose:
    // the event belongs to the next run.
    const bool running = (m_mode == kCounted && FurthestPair() < m_pairLimit) ||
                         m_mode == kStream || m_mode == kDraining;
    if (!running) {
        if (kind == kGpif) ++m_gpifBase;
        if (kind == kAdc) ++m_adcBase;
        if (kind == kSlip) m_slipNextRun = true;
        return;
    }
    // From the first block that neither channel has begun.
    m_events.push_back({RoundUpToBlock(FurthestPair()), kind == kSlip ? 1 : 0, kind});
}

void Firmware::ApplyEvents(int channel) {
    while (m_applied[channel] < m_events.size()) {
        const Event& e = m_events[m_applied[channel]];
        if (m_next[channel] < e.atPair) break;
        if (e.kind != kSlip || channel == 1) {
            const int64_t next = std::max(m_next[channel], e.atPair + e.skip);
            // A lost packet is only a gap in the count: a counted run still
            // sends its full number of packets on that channel.
            if (e.kind == kSlip) m_lost[channel] += next - m_next[channel];
            m_next[channel] = next;
        }
        if (e.kind == kOverrun) {
            ++m_gpifSeen[channel];
            m_overrunPending[channel] = false;
        } else if (e.kind == kGpif) {
            ++m_gpifSeen[channel];
        } else if (e.kind == kAdc) {
            ++m_adcSeen[channel];
        }
        ++m_applied[channel];
    }
    // Forget what both channels have passed, so a long run stays small.
    const size_t passed = std::min(m_applied[0], m_applied[1]);
    if (passed >= 64) {
        m_events.erase(m_events.begin(), m_events.begin() + static_cast<std::ptrdiff_t>(passed));
        m_applied[0] -= passed;
        m_applied[1] -= passed;
    }
}

int64_t Firmware::FurthestPair() const { return std::max(m_next[0], m_next[1]); }

int64_t Firmware::ProducedPairs(Clock::time_point now) const {
    if (now <= m_runStart) return 0;
    return (now - m_runStart) / m_pairPeriod;
}

void Firmware::CheckOverrun(int channel, Clock::time_point now) {
    if (m_overrunPending[channel]) return;
    const int64_t backlog = ProducedPairs(now) - Consumed(channel);
    const int64_t room = int64_t{kFifoBlocks} * kPacketsPerChannel;
    if (backlog <= room) return;
    const int64_t lostBlocks = (backlog - room + kPacketsPerChannel - 1) / kPacketsPerChannel;
    m_events.push_back(
        {RoundUpToBlock(FurthestPair()), lostBlocks * kPacketsPerChannel, kOverrun});
    m_overrunPending[0] = m_overrunPending[1] = true;
}

// Once stopped, the device sends what it holds and the block that echoes
// the stop at once, so a stream ends in a few milliseconds whatever its pace.
bool Firmware::Paced() const {
    if (m_mode == kDraining) return false;
    return m_pacing == kPaceRealTime || (m_pacing == kPaceStreams && m_mode == kStream);
}

int Firmware::Read(int channel, uint8_t* dst, int len, bool* shortPacket, Clock::time_point now) {
    *shortPacket = false;
    if (channel < 0 || channel > 1 || m_stalls[channel] > 0) return 0;
    if (m_mode == kFlash) {
        if (!m_flashPending[channel] || len < kPacketBytes) return 0;
        m_flashPending[channel] = false;
        int n = kPacketBytes;
        if (channel == 1 && m_shortFlashBytes >= 0) {
            n = std::min(m_shortFlashBytes, kPacketBytes);
            m_shortFlashBytes = -1;
            *shortPacket = n < kPacketBytes;
        }
        const size_t at = size_t(m_flashPage) * kFlashPageBytes + size_t(channel) * kPacketBytes;
        if (m_flash.empty() && !m_flashInit)
            std::memset(dst, 0xFF, n);
        else
            std::memcpy(dst, Flash() + at, n);
        return n;
    }
    int copied = 0;
    while (len - copied >= kPacketBytes) {
        if (m_fifoHead[channel] == m_fifoTail[channel]) {
            if (m_threaded) break;
            MakeFor(channel, now);
            if (m_fifoHead[channel] == m_fifoTail[channel]) break;
        }
        const size_t slot = size_t(m_fifoHead[channel] % kFifoPackets);
        std::memcpy(dst + copied, m_fifo[channel].data() + slot * kPacketBytes, kPacketBytes);
        ++m_fifoHead[channel];
        ++m_packetsServed[channel];
        copied += kPacketBytes;
    }
    return copied;
}

// Whether the channel's next packet can be made now: it is due, within the
// run and its FIFO slot is free. Applies the events it has reached.
bool Firmware::ChannelReady(int channel, Clock::time_point now, Clock::time_point* wakeAt) {
    ApplyEvents(channel);
    if (Paced()) {
        // A maker thread that fell behind the clock is the simulator's delay,
        // not the host's: the run's clock waits for it.
        // A host that is behind leaves the FIFO full; a FIFO under half full
        // with the clock a block ahead means the maker is late.
        const int64_t due = ProducedPairs(now);
        if (m_threaded && m_fifoTail[channel] - m_fifoHead[channel] < kFifoPackets / 2 &&
            due > m_next[channel] + kPacketsPerChannel)
            m_runStart += (due - m_next[channel] - kPacketsPerChannel) * m_pairPeriod;
        // Once stopped the device makes no more data, so it cannot overrun.
        if (m_mode != kDraining) CheckOverrun(channel, now);
        ApplyEvents(channel);
        if (m_next[channel] >= ProducedPairs(now)) {
            *wakeAt = std::min(*wakeAt, m_runStart + (m_next[channel] + 1) * m_pairPeriod);
            return false;
        }
    }
    const int64_t limit = m_mode == kCounted ? m_pairLimit + m_lost[channel] : m_pairLimit;
    if (m_next[channel] >= limit) return false;
    return m_fifoTail[channel] - m_fifoHead[channel] < kFifoPackets;
}

bool Firmware::PrepareNext(Clock::time_point now, PacketJob* job, Clock::time_point* wakeAt) {
    *wakeAt = Clock::time_point::max();
    if (m_mode != kCounted && m_mode != kStream && m_mode != kDraining) return false;
    // The channel that is behind goes first, so both advance together.
    const int first = m_next[1] < m_next[0] ? 1 : 0;
    int channel = -1;
    for (int k = 0; k < 2 && channel < 0; ++k)
        if (ChannelReady(first ^ k, now, wakeAt)) channel = first ^ k;
    if (channel < 0) return false;

    if (m_fifo[channel].empty()) m_fifo[channel].resize(size_t{kFifoPackets} * kPacketBytes);
    if (m_fillGeneration != m_generation) {
        m_fillRun = m_run;
        m_fillGeneration = m_generation;
    }
    const int64_t pair = m_next[channel]++;
    m_filling = channel;
    job->channel = channel;
    job->pair = pair;
    job->generation = m_generation;
    job->dst = m_fifo[channel].data() + size_t(m_fifoTail[channel] % kFifoPackets) * kPacketBytes;
    job->clipped = false;

    const int64_t packet = 2 * pair + channel;  // in the run's time order
    int subBand = 0, step = 0, pktInStep = 0;
    Locate(packet, &subBand, &step, &pktInStep);
    const SubBand& sb = m_run.subBands[subBand];
    const int64_t block = (m_runBasePair + pair) / kPacketsPerChannel;
    uint8_t* dst = job->dst;
    std::memset(dst, 0, kPayloadOffset);
    dst[0] = 0x01;  // headerType
    dst[1] = 0x01;  // headerVersion
    dst[2] = static_cast<uint8_t>(m_productId);
    dst[3] = 0x21;  // firmwareVersion
    Put16(dst + 4, static_cast<uint16_t>(sb.LO1startFreq + step * sb.LO1stepFreq));
    Put16(dst + 6, sb.LO2Freq);
    std::memcpy(dst + 8, pair >= m_markerPair ? m_stopSettings : sb.settings, 4);
    const int adcIndex = static_cast<int>(block % 7);
    Put16(dst + 12, static_cast<uint16_t>(adcIndex));
    Put16(dst + 14, MonitorValue(adcIndex, block));
    job->ctx = PacketContext{&m_fillRun, subBand, step, packet * kSamplesPerPacket, channel,
                             m_temperature,
                             m_seed ^ (static_cast<uint64_t>(m_fillGeneration) * 0xD1B54A32D192ED03ull)};
    job->pktInStep = pktInStep;
    if (m_stimulus) {
        // A generator sweep steps the generator once per point, ppf packets
        // in the run's time order.
        const bool tgRun = m_mode != kStream && m_run.headerType == kCmdConfigure &&
                           m_run.commandType == kCfgTgSweep;
        const int64_t point = tgRun ? packet / std::max<int64_t>(1, sb.packetsPerFreq) : -1;
        job->ctx.stimulusOn = m_stimulus->ToneAt(point, &job->ctx.stimulus);
    }
    return true;
}

void Firmware::FillPacket(PacketJob* job) {
    m_source->FillPacket(job->ctx, *m_scene, m_samples.data(), kSamplesPerPacket);
    job->clipped = m_source->LastPacketClipped();
    PackSamples(m_samples.data(), kSamplesPerPacket, job->dst + kPayloadOffset);
}

void Firmware::CommitPacket(PacketJob* job) {
    m_filling = -1;
    if (job->generation != m_generation) return;  // its run ended meanwhile
    const int channel = job->channel;
    const int64_t pair = job->pair;
    if (job->clipped) ++m_adcSeen[channel];
    uint8_t* dst = job->dst;
    const int64_t packet = 2 * pair + channel;
    uint8_t* trailer = dst + kTrailerOffset;
    std::memset(trailer, 0, kPacketBytes - kTrailerOffset);
    Put16(trailer + 0, static_cast<uint16_t>(2 * (m_runBasePair + pair) + channel));
    Put16(trailer + 2, static_cast<uint16_t>(job->pktInStep));
    Put16(trailer + 4, static_cast<uint16_t>(m_gpifBase + m_gpifSeen[channel]));
    Put16(trailer + 6, static_cast<uint16_t>(m_adcBase + m_adcSeen[channel]));
    Put32(trailer + 8, m_dna);
    const int64_t events = TriggersBefore(packet + 1);
    Put16(trailer + 12, static_cast<uint16_t>(m_eventBase + events));
    Put16(trailer + 14,
          events > 0 ? static_cast<uint16_t>(m_triggers[events - 1] % kSamplesPerPacket) : 0);
    ++m_fifoTail[channel];
    m_triggersUsed = true;
}

void Firmware::MakeFor(int channel, Clock::time_point now) {
    PacketJob job;
    Clock::time_point wake;
    while (m_fifoHead[channel] == m_fifoTail[channel] && PrepareNext(now, &job, &wake)) {
        FillPacket(&job);
        CommitPacket(&job);
    }
}

bool Firmware::DataComing(int channel, Clock::time_point) const {
    if (channel < 0 || channel > 1 || m_stalls[channel] > 0) return false;
    if (m_mode != kCounted && m_mode != kStream && m_mode != kDraining) return false;
    if (m_fifoTail[channel] > m_fifoHead[channel] || m_filling == channel) return true;
    const int64_t limit = m_mode == kCounted ? m_pairLimit + m_lost[channel] : m_pairLimit;
    // Within its run a device clocks its data out, paced or not.
    return m_next[channel] < limit;
}

void Firmware::OnReadTimedOut(int channel) {
    if (channel < 0 || channel > 1) return;
    ++m_readTimeouts[channel];
    if (m_stalls[channel] > 0) --m_stalls[channel];
}

void Firmware::Locate(int64_t packet, int* subBand, int* step, int* pktInStep) const {
    if (m_mode != kCounted) {
        const SubBand& sb = m_run.subBands[0];
        const int64_t ppf = std::max<int64_t>(1, sb.packetsPerFreq);
        const int64_t steps = std::max<int64_t>(1, sb.stepCount);
        *subBand = 0;
        *step = static_cast<int>((packet / ppf) % steps);
        *pktInStep = static_cast<int>(packet % ppf);
        return;
    }
    int64_t start = 0;
    const int valid = ValidSubBands(m_run);
    if (m_run.headerType == kCmdConfigure && m_run.commandType == kCfgTgSweep && valid > 0) {
        // A generator sweep's sub-bands count generator points, ppf packets
        // each; the LO stands still for TGCountPerPatch of them, and the
        // first LO step starts TGstartingIndex points in.
        const int64_t ppf = std::max<int64_t>(1, m_run.subBands[0].packetsPerFreq);
        const int64_t perStep = std::max<int64_t>(1, m_run.TGCountPerPatch);
        const int64_t point = packet / ppf + m_run.TGstartingIndex;
        int64_t base = m_run.TGstartingIndex;
        for (int i = 0; i < valid; ++i) {
            const int64_t end = base + m_run.subBands[i].stepCount;
            if (point < end || i == valid - 1) {
                *subBand = i;
                *step = static_cast<int>(point / perStep - base / perStep);
                *pktInStep = static_cast<int>((point % perStep) * ppf + packet % ppf);
                return;
            }
            base = end;
        }
    }
    for (int i = 0; i < valid; ++i) {
        const SubBand& sb = m_run.subBands[i];
        const int64_t n = int64_t{sb.packetsPerFreq} * sb.stepCount;
        if (packet < start + n) {
            *subBand = i;
            *step = static_cast<int>((packet - start) / sb.packetsPerFreq);
            *pktInStep = static_cast<int>((packet - start) % sb.packetsPerFreq);
            return;
        }
        start += n;
    }
    *subBand = std::max(0, valid - 1);
    *step = 0;
    *pktInStep = 0;
}

uint16_t Firmware::MonitorValue(int index, int64_t block) const {
    // A least significant bit of converter noise on every reading.
    const int jitter = static_cast<int>((static_cast<uint64_t>(block) * 2654435761u >> 13) % 3) - 1;
    switch (index) {
        case 0: return static_cast<uint16_t>(1800 + 2 * jitter);  // 1.8 V rail, mV
        case 1: return static_cast<uint16_t>(1667 + jitter);      // USB bus, 3 mV steps
        case 2: return static_cast<uint16_t>(1200 + 2 * jitter);  // 1.2 V rail, mV
        case 3: return static_cast<uint16_t>(430 + 3 * jitter);   // USB current, mA
        case 4:  // sixteenths of a degree, two's complement
            return static_cast<uint16_t>(
                static_cast<int16_t>(std::lround(m_temperature * 16.0) + jitter));
        default: return 0;
    }
}

int64_t Firmware::TriggersBefore(int64_t packet) const {
    return std::lower_bound(m_triggers.begin(), m_triggers.end(), ReportThreshold(packet)) -
           m_triggers.begin();
}

}  // namespace qssim

#include "device/device.h"

#include <unistd.h>


#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>

#include "dsp/sample_unpack.h"
#include "planning/sizing.h"
#include "settings/settings.h"

namespace qs {

namespace {

constexpr int kPacketPairSamples = 2 * QS_SAMPLES_PER_PACKET;  // 37376

const stateHeader_t& Header(const uint8_t* channel, int packet) {
    return *reinterpret_cast<const stateHeader_t*>(channel + packet * QS_PACKET_BYTES);
}

const stateTrailer_t& Trailer(const uint8_t* channel, int packet) {
    return *reinterpret_cast<const stateTrailer_t*>(channel + packet * QS_PACKET_BYTES +
                                                    QS_TRAILER_OFFSET);
}

}  // namespace

void Diagnostics::Clear() {
    celcius = 0.0f;
    voltage1_8 = 0.0f;
    voltage1_2 = 0.0f;
    voltageUSB = 0.0f;
    currentUSB = 0.0f;
}

Device::Device(CypressInterface* usb, const ModelRecord& model) : m_model(model), m_usb(usb) {
    m_cmd.Clear();
    m_secCmd.Clear();
    m_sweepInfo.patchInfo.Clear();
    m_usb->SetSink(this);
    void* raw = nullptr;
    if (posix_memalign(&raw, 64, QS_BLOCK_SAMPLES * sizeof(int16_t)) != 0) throw std::bad_alloc();
    m_rawUnpacked = static_cast<int16_t*>(raw);
}

Device::~Device() {
    // The models have aborted by now; the transport goes before anything
    // its thread might still touch; it sends what is left in its mailbox.
    delete m_settings;
    std::free(m_rawUnpacked);
    delete m_usb;
}

void Device::InitDevice() {
    m_validDevice = true;
    m_fftReady = false;
    m_fpgaid = 0;
    m_sid = 0;
    m_mode = QS_MODE_IDLE;
    m_sweepInfo.LoadDefaults();
    m_cmd.Clear();
    m_portMask = 0;
    m_readings.Clear();
    DeleteAndNullifyFFTEngines();
    m_overflow = false;
    m_gpifError = false;
    m_overflowCount = -1;
    m_gpifCount = -1;
    m_triggerDelay = 0;
    m_triggerPosition = -1;
    m_lastTriggerCount = -1;
    std::memset(m_triggerBuf, 0, sizeof m_triggerBuf);
    m_triggerBufCnt = 0;
    m_timeStamp = false;
    m_avgSamplesBetweenPPS = 8e7;
    m_secondsFromCPU = 0;
    m_partialSecond = 0.0;
    m_streamSamples = 0;
    m_clockOffset = 0.0;
    m_oscRatio = 1.0;
    m_trlrSynced = true;
    tgCalState = tgNoThruStored;
}

int Device::AddCommand() {
    m_usb->AddCommand(m_cmd);
    return 0;
}

int Device::AddSecondCommand() {
    m_usb->AddCommand(m_secCmd);
    return 0;
}

qsStatus Device::Initiate(const Settings* s, unsigned mode, unsigned flag) {
    if (!m_validDevice) return qsDeviceInvalidErr;
    Abort();
    *m_settings = *s;
    qsStatus status;
    switch (mode) {
        case QS_MODE_SWEEP: status = ConfigureSweepMode(flag); break;
        case QS_MODE_REAL_TIME: status = ConfigureRealTime(); break;
        case QS_MODE_STREAMING: status = ConfigureIQ(flag); break;
        case QS_MODE_AUDIO: status = ConfigureAudioDemod(); break;
        case QS_MODE_TG_SWEEP: status = ConfigureTgMode(); break;
        default: return qsInvalidModeErr;
    }
    if (status < 0) {
        m_fftReady = false;
        return status;
    }
    m_triggerDelay = m_corr ? m_corr->GetTriggerDelay(m_settings->Center()) : 0;
    m_fftReady = true;
    return status;
}

qsStatus Device::Abort() {
    m_sweepInfo.patchInfo.Clear();
    if (m_mode.load() == QS_MODE_IDLE) return qsDeviceNotConfiguredErr;
    m_fftReady = false;
    if (IsStreaming()) StopStreaming();
    // The interface thread may still be inside StoreData with the last
    // blocks of a sweep (it looked at m_fftReady before they came); the
    // engine must outlive them. Back in idle with nothing queued, the
    // thread has left StoreData for good.
    m_usb->WaitUntilIdle();
    m_mode = QS_MODE_IDLE;
    m_secondsFromCPU = 0;
    m_partialSecond = 0.0;
    m_streamSamples = 0;
    DeleteAndNullifyFFTEngines();
    return qsNoError;
}

void Device::DeleteAndNullifyFFTEngines() {
    m_fftReady = false;
    m_engine.reset();
    m_rtLostSeen = 0;
}

bool Device::IsStreaming() const {
    const int mode = m_mode.load();
    return mode == QS_MODE_REAL_TIME || mode == QS_MODE_STREAMING || mode == QS_MODE_AUDIO;
}

bool Device::StopStreaming() {
    m_cmd.subBandArray[0].settings[0] |= 0x1;
    m_cmd.commandType = QS_CFG_STREAM;
    m_cmd.headerType = QS_CMD_CONFIGURE;
    AddCommand();
    // Once the mailbox is empty the stop went out on the thread's own path,
    // and StoreData will not run again for this stream.
    m_usb->WaitUntilSent();
    m_sweepInfo.secondLOOffset = 0.0;
    return true;
}

qsStatus Device::Preset() {
    // The preset stops whatever the device was doing. The measurement ends
    // here too, so that its next fetch reports that nothing is configured
    // instead of waiting for data that the device will not send.
    Abort();
    m_cmd.commandType = 2;
    m_cmd.headerType = QS_CMD_PRESET;
    AddCommand();
    return qsNoError;
}

bool Device::ReadFlash(unsigned page, unsigned char* get) {
    if (page >= static_cast<unsigned>(QS_FLASH_READ_PAGES)) return false;
    m_cmd.commandType = static_cast<uint16_t>(page);
    m_cmd.headerType = QS_CMD_READ_FLASH;
    AddCommand();
    // The thread leaves idle before it takes a command from the mailbox, so
    // once the mailbox is empty, idle again means the page is in its
    // buffer. Waiting for that, rather than for a fixed 100 ms, is both
    // safe on a busy host and twelve times faster on an idle one.
    m_usb->WaitUntilIdle();
    std::memcpy(get, m_usb->FlashBuf(), QS_FLASH_PAGE_BYTES);
    return true;
}

bool Device::WriteFlash(unsigned page, const unsigned char* put) {
    m_cmd.commandType = static_cast<uint16_t>(page);
    m_cmd.headerType = QS_CMD_WRITE_FLASH;
    m_cmd.subBandCount = QS_FLASH_UNLOCK;
    std::memcpy(m_cmd.subBandBuffer, put, QS_FLASH_WRITE_BYTES);
    AddCommand();
    usleep(25000);
    return true;
}

bool Device::ClearFlash() {
    m_cmd.commandType = QS_FLASH_UNLOCK;
    m_cmd.subBandCount = QS_FLASH_UNLOCK;
    m_cmd.headerType = QS_CMD_CLEAR_FLASH;
    AddCommand();
    usleep(1000000);
    return true;
}

qsStatus Device::ConfigurePortIO(unsigned p1, unsigned p2, bool force) {
    const unsigned mask = p1 | p2;
    if (mask == m_portMask && !force) return qsNoError;
    m_usb->WaitUntilSent();
    m_oscRatio = (p1 & QS_PORT1_EXT_REF) ? 1.0 : CalibratedOscRatio();
    m_portMask = mask;
    m_cmd.headerType = QS_CMD_SET_PORTS;
    m_cmd.subBandBuffer[0] = static_cast<uint8_t>(mask);
    std::memset(m_cmd.subBandBuffer + 1, 0, 15);
    usleep(10000);
    AddCommand();
    usleep(10000);
    return qsNoError;
}

qsStatus Device::AddTimebaseCorrection(double) { return qsDeviceInvalidErr; }

qsStatus Device::ApplyRoughGains(const unsigned char*, const unsigned char*) { return qsDeviceInvalidErr; }

qsStatus Device::LoadCalibration(qsStatus (*load)(const FlashPageReader&, Corrections&, DeviceIdentity&)) {
    DeviceIdentity id{m_validDevice, m_sid, m_firmware_version};
    const qsStatus status = load(
        [this](int page, unsigned char* out) {
            ReadFlash(static_cast<unsigned>(page), out);
            return m_usb->TransferStatus();
        },
        *m_corr, id);
    m_validDevice = id.valid;
    m_sid = id.sid;
    m_firmware_version = id.firmwareVersion;
    return status;
}

void Device::SetTimebaseCorrection(double ratio) {
    m_oscRatio = ratio;
    if (m_corr) m_corr->SetOscRatio(ratio);
}

qsStatus Device::GetIQCorrection(float& correction) const {
    if (m_mode.load() != QS_MODE_STREAMING) return qsDeviceNotConfiguredErr;
    correction = static_cast<float>(std::sqrt(std::pow(10.0, (m_settings->Ref() + 10.0) / 10.0)));
    return qsNoError;
}

template <typename T>
qsStatus Device::GetSweep(T* min, T* max) {
    const int mode = m_mode.load();
    if ((mode != QS_MODE_SWEEP && mode != QS_MODE_TG_SWEEP) || !m_engine) return qsDeviceNotConfiguredErr;
    // A generator sweep sends its passes itself, through SendPass; whether
    // a generator was attached as the fetch began decides what its polls
    // may conclude (one never attached leaves the analyser measuring
    // whatever its input sees).
    if (mode == QS_MODE_SWEEP) AddCommand();
    if (mode == QS_MODE_TG_SWEEP) m_tgAttached = m_generator.IsConnected();
    const qsStatus engine = m_engine->GetSweep(min, max, m_corr->GetCorrections());
    // A generator gone missing ends the fetch with that status alone.
    if (engine == qsTrackingGeneratorNotFound) return engine;
    // The generator's tone may overdrive the converter by design.
    if (mode == QS_MODE_TG_SWEEP) m_overflow = false;
    const qsStatus status = FinalStatus(engine);
    return m_mode.load() == QS_MODE_IDLE ? qsDeviceNotConfiguredErr : status;
}
template qsStatus Device::GetSweep<float>(float*, float*);
template qsStatus Device::GetSweep<double>(double*, double*);

bool Device::GeneratorLost() const { return m_generator.Lost(); }

bool Device::GeneratorThere() {
    return !(m_generator.Lost() || (m_tgAttached && !m_generator.StillThere()));
}

bool Device::SendPass(int pass) {
    if (!GeneratorThere()) return false;
    if (pass == 0)
        AddCommand();
    else
        AddSecondCommand();
    return true;
}

qsStatus Device::StoreTgThru(int flag) {
    if (m_mode.load() != QS_MODE_TG_SWEEP) return qsDeviceNotConfiguredErr;
    if (flag == QS_TG_THRU_0DB) {
        tgCalState = tg0dBRequested;
        return qsNoError;
    }
    TGCalState stored = tg0dBStored;
    if (flag == QS_TG_THRU_20DB && tgCalState.compare_exchange_strong(stored, tg20dBRequested)) return qsNoError;
    return qsInvalidParameterErr;
}

qsStatus Device::GetRealTimeFrame(float* minSweep, float* maxSweep, float* colorFrame,
                                  float* alphaFrame) {
    if (m_mode.load() != QS_MODE_REAL_TIME || !m_engine) return qsDeviceNotConfiguredErr;
    const qsStatus status = FinalStatus(m_engine->GetFrame(minSweep, maxSweep, colorFrame, alphaFrame));
    // Blocks or transforms the engine had no room for are lost data, as a
    // device overrun is: the frame says so (qsUncalSweep).
    const int64_t lost = m_engine->Lost();
    const bool gap = lost != m_rtLostSeen;
    m_rtLostSeen = lost;
    return status == qsNoError && gap ? qsUncalSweep : status;
}

qsStatus Device::GetIQ(float* buffer, int* triggers) {
    if (!m_fftReady.load() || m_mode.load() != QS_MODE_STREAMING || !m_engine) return qsDeviceNotConfiguredErr;
    return FinalStatus(m_engine->GetIQ(buffer, triggers));
}

qsStatus Device::GetIQ(qsIQPacket* pkt) {
    if (!m_fftReady.load() || m_mode.load() != QS_MODE_STREAMING || !m_engine) return qsDeviceNotConfiguredErr;
    // A direct stream has raw samples only (qsFetchRaw): qsNotSupportedErr.
    const qsStatus status = m_engine->GetIQ(pkt);
    if (status == qsNotSupportedErr) return status;
    // Blocks the device itself could not deliver are samples lost too.
    if (m_gpifError.load()) pkt->sampleLoss = 1;
    return FinalStatus(status);
}

qsStatus Device::GetAudio(float* buffer) {
    if (!m_engine) return qsDeviceNotConfiguredErr;
    // A gap in the audio (blocks the device, the engine or a slow reader
    // lost) is reported with the block after it: qsDataBreak.
    const qsStatus engine = m_engine->GetAudio(buffer);
    if (engine == qsDeviceNotConfiguredErr) return engine;
    const qsStatus usb = m_usb->TransferStatus();
    if (usb != qsNoError) return usb;
    const bool gap = m_gpifError.exchange(false) || engine == qsDataBreak;
    return gap ? qsDataBreak : qsNoError;
}

qsStatus Device::GetRealTimePoi(double& poi) const {
    if (m_mode.load() != QS_MODE_REAL_TIME || !m_engine) return qsDeviceNotConfiguredErr;
    return m_engine->GetPoi(poi);
}

qsStatus Device::UpdateAudioSettings(const AudioConfig& audio) {
    if (!m_engine) return qsDeviceNotStreamingErr;
    return m_engine->UpdateAudio(audio);
}

qsStatus Device::FinalStatus(qsStatus engineStatus) {
    const qsStatus usb = m_usb->TransferStatus();
    if (usb != qsNoError) return usb;
    if (!m_trlrSynced.load()) return qsPacketFramingErr;
    if (m_gpifError.load()) {
        m_overflow = false;
        m_gpifError = false;
        return qsUncalSweep;
    }
    if (m_overflow.exchange(false)) return qsADCOverflow;
    return engineStatus;
}

// ------------------------------------------------------------ Ingest

int Device::StoreData(uint8_t* ch1, uint8_t* ch2, int ppf, int index) {
    if (!m_fftReady.load()) return 0;
    for (int i = 0; i < QS_PACKETS_PER_CHANNEL; ++i) {
        int16_t* pair = m_rawUnpacked + kPacketPairSamples * i;
        unpack_to_short(ch1 + QS_PACKET_BYTES * i + QS_PAYLOAD_OFFSET, pair);
        unpack_to_short(ch2 + QS_PACKET_BYTES * i + QS_PAYLOAD_OFFSET,
                        pair + QS_SAMPLES_PER_PACKET);
    }
    ParseHeader(ch1, ch2);
    ParseTrailer(ch1, ch2);
    m_triggerBufCnt = 0;
    Block block;
    block.samples = m_rawUnpacked;
    block.ppf = ppf;
    block.index = index;
    if (m_mode.load() == QS_MODE_STREAMING) {
        CheckForExternalTrigger(ch1, ch2);
        UpdateTimestamp();
        block.triggers = m_triggerBuf;
        block.seconds = m_secondsFromCPU;
        block.nanoseconds = static_cast<uint32_t>(m_partialSecond * 1e9);
        block.samplesPerSecond = m_avgSamplesBetweenPPS;
    }
    return m_engine ? m_engine->Store(block) : 0;
}

int Device::ParseHeader(const uint8_t* ch1, const uint8_t* ch2) {
    const stateHeader_t& h1 = Header(ch1, 0);
    const stateHeader_t& h2 = Header(ch2, 0);
    if (h1.ADCValue != h2.ADCValue || h1.ADCIndex != h2.ADCIndex || h1.ADCIndex > 6) return -1;
    const uint16_t v = h1.ADCValue;
    const float f = static_cast<float>(v);
    switch (h1.ADCIndex) {
        case 0: m_readings.voltage1_8 = f * 0.001f; break;
        case 1: m_readings.voltageUSB = f * 0.003f; break;
        case 2: m_readings.voltage1_2 = f * 0.001f; break;
        case 3: m_readings.currentUSB = f; break;
        case 4:
            m_readings.celcius =
                static_cast<float>(static_cast<int16_t>(v) * 8) * 0.0078125f;
            break;
        default: break;
    }
    if (m_readings.celcius.load() > 256.0f) m_readings.celcius = m_readings.celcius.load() - 512.0f;
    return 1;
}

int Device::ParseTrailer(const uint8_t* ch1, const uint8_t* ch2) {
    const stateTrailer_t& first2 = Trailer(ch2, 0);
    m_fpgaid = first2.S3DNA;
    m_trlrSynced = static_cast<int32_t>(first2.TotalPktCount) -
                       static_cast<int32_t>(Trailer(ch1, 0).TotalPktCount) ==
                   1;
    const int gpif = Trailer(ch2, QS_PACKETS_PER_CHANNEL - 1).GPIFOverflowCount;
    if (m_gpifCount == -1) {
        m_gpifCount = gpif;
    } else if (gpif != m_gpifCount) {
        m_gpifCount = gpif;
        m_gpifError = true;
    }
    // Each channel counts its own overflows, and a packet's trailer counts
    // its own samples: the last packets of both channels tell whether this
    // block clipped. (Reading the first packet of one channel, as written,
    // reported a clip in a block's later packets with the next block: a
    // sweep's last steps warned one sweep late, and channel 1 never.)
    const int adc = Trailer(ch1, QS_PACKETS_PER_CHANNEL - 1).ADCOverflowCount +
                    Trailer(ch2, QS_PACKETS_PER_CHANNEL - 1).ADCOverflowCount;
    if (m_overflowCount == -1) {
        m_overflowCount = adc;
    } else if (adc != m_overflowCount) {
        m_overflowCount = adc;
        m_overflow = true;
    }
    return 1;
}

int Device::CheckForExternalTrigger(const uint8_t* ch1, const uint8_t* ch2) {
    if (m_lastTriggerCount == -1) {
        m_lastTriggerCount = Trailer(ch1, 0).NumberOfEvents;
        return -1;
    }
    std::memset(m_triggerBuf, 0, sizeof m_triggerBuf);
    m_triggerBufCnt = 0;
    if (!(m_portMask & QS_PORT_TRIGGER_IN)) return -1;

    int first;
    if (m_triggerPosition < -1) {
        first = -QS_BLOCK_SAMPLES - m_triggerPosition;
        m_triggerPosition = first;
        m_triggerBuf[m_triggerBufCnt++] = first;
    } else {
        m_triggerPosition = -1;
        first = -1;
    }
    auto note = [&](int position) {
        if (first < 0) first = m_triggerPosition = position;
        m_triggerBuf[m_triggerBufCnt++] = position;
    };
    // An EventCounter of 0 to 6 stands for a position one packet further on.
    auto offset = [](int e) { return e <= 6 ? e + QS_SAMPLES_PER_PACKET : e; };
    for (int p = 0; p < QS_PACKETS_PER_CHANNEL; ++p) {
        const int base = kPacketPairSamples * p;
        const stateTrailer_t& t1 = Trailer(ch1, p);
        const stateTrailer_t& t2 = Trailer(ch2, p);
        const int c1 = t1.NumberOfEvents;
        if (c1 != m_lastTriggerCount) {
            m_lastTriggerCount = c1;
            note(m_triggerDelay + base + offset(t1.EventCounter));
        }
        const int c2 = t2.NumberOfEvents;
        if (c2 != c1) {
            m_lastTriggerCount = c2;
            note(m_triggerDelay + base + QS_SAMPLES_PER_PACKET + offset(t2.EventCounter));
        }
    }
    if (first >= QS_BLOCK_SAMPLES) {
        // It lies in the next block: carried there, and not listed here.
        m_triggerPosition = -first;
        --m_triggerBufCnt;
    }
    if (m_triggerBufCnt <= 16) m_triggerBuf[m_triggerBufCnt] = 0;
    return first;
}

void Device::UpdateTimestamp() {
    // Each block is dated by the sample count at the converter's rate from
    // an epoch taken from the host's real-time clock at the first block's
    // arrival: stamps are monotonic and exactly a sample period apart, and
    // the jitter of USB arrivals does not show. Only when arrivals and the
    // count part by more than a quarter second (the device lost blocks, or
    // the host clock was stepped) is the epoch taken again. (The written
    // design passed 0 here: a time stamp of -1 s that meant nothing.)
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const double arrival = double(now.tv_sec) + 1e-9 * double(now.tv_nsec);
    const double rate = 80e6 * m_oscRatio;
    const double blockSeconds = QS_BLOCK_SAMPLES / rate;
    const double counted = double(m_streamSamples) / rate;
    if (m_streamSamples == 0 || std::fabs(arrival - (m_streamEpoch + counted + blockSeconds)) > 0.25)
        m_streamEpoch = arrival - blockSeconds - counted;
    const double t = m_streamEpoch + counted;
    m_secondsFromCPU = static_cast<unsigned>(std::floor(t));
    m_partialSecond = t - std::floor(t);
    m_streamSamples += QS_BLOCK_SAMPLES;
}

}  // namespace qs

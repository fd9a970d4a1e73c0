// SoapySDR module for the analysers: receive channel 0 is the I/Q stream
// (centre, sample rates 40 MS/s over a power of two, bandwidth), "gain" is
// the reference level seen from the other side, and the sensors, time-base
// correction and device information are those of the C interface.
//
// Gain: REF, 0 to 60 dB; the reference level is 10 dBm minus the gain, so
// gain 30 is a reference of -20 dBm. CF32 samples are calibrated (20 log10
// of a tone's magnitude is its level in dBm; full scale is the reference
// level); CS16 samples are the device's counts, full scale 32768.
#include <SoapySDR/Device.hpp>
#include <SoapySDR/Formats.hpp>
#include <SoapySDR/Logger.hpp>
#include <SoapySDR/Registry.hpp>
#include <libusb.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "qs_api.h"

namespace {

constexpr double kBaseRate = QS_MAX_IQ_SAMPLE_RATE;
constexpr size_t kMtu = 16384;
constexpr double kGainTopDbm = 10.0;
constexpr double kMaxGain = 60.0;
constexpr int kTriggerRoom = 64;

std::string Serial8(long long serial) {
    char text[16];
    std::snprintf(text, sizeof text, "%08lld", serial);
    return text;
}

// Model names by USB product, read from the bus without opening the
// analysers (an open reads the whole calibration): for the find labels.
std::map<std::string, std::string> ModelsOnTheBus() {
    constexpr uint16_t kVendor = 0x51c3;
    std::map<std::string, std::string> models;
    libusb_context* ctx = nullptr;
    if (libusb_init(&ctx) != 0) return models;
    libusb_device** list = nullptr;
    const ssize_t n = libusb_get_device_list(ctx, &list);
    for (ssize_t i = 0; i < n; ++i) {
        libusb_device_descriptor d;
        if (libusb_get_device_descriptor(list[i], &d) != 0 || d.idVendor != kVendor) continue;
        const char* model = d.idProduct == 1 ? "Larch" : (d.idProduct == 2 || d.idProduct == 5) ? "Maple" : nullptr;
        libusb_device_handle* h = nullptr;
        if (!model || libusb_open(list[i], &h) != 0) continue;
        unsigned char text[64] = {};
        if (libusb_get_string_descriptor_ascii(h, d.iSerialNumber, text, sizeof text) > 0)
            models[reinterpret_cast<char*>(text)] = model;
        libusb_close(h);
    }
    if (n >= 0) libusb_free_device_list(list, 1);
    libusb_exit(ctx);
    return models;
}

class QsDevice : public SoapySDR::Device {
public:
    explicit QsDevice(const SoapySDR::Kwargs& args) {
        const auto s = args.find("serial");
        const qsStatus st = s == args.end() ? qsOpenDevice(&m_h) : qsOpenDeviceBySerialNumber(&m_h, std::stoi(s->second));
        if (st < 0) throw std::runtime_error(std::string("qs: opening the analyser: ") + qsGetErrorString(st));
        int type = 0;
        unsigned serial = 0;
        qsGetDeviceType(m_h, &type);
        qsGetSerialNumber(m_h, &serial);
        m_model = type == QS_DEVICE_TYPE_LARCH ? "Larch" : "Maple";
        m_serial = Serial8(serial);
        qsGetTimebaseCorrection(m_h, &m_factoryRatio);
    }
    ~QsDevice() override { qsCloseDevice(m_h); }

    std::string getDriverKey() const override { return "qs"; }
    std::string getHardwareKey() const override { return m_model; }
    SoapySDR::Kwargs getHardwareInfo() const override {
        int firmware = 0, rev = 0;
        qsGetFirmwareVersion(m_h, &firmware);
        SoapySDR::Kwargs info{{"serial", m_serial}, {"firmware", std::to_string(firmware)},
                              {"library", qsGetAPIVersion()}};
        if (m_model == "Maple" && qsGetMapleRev(m_h, &rev) == qsNoError) info["revision"] = std::to_string(rev);
        return info;
    }

    size_t getNumChannels(const int direction) const override { return direction == SOAPY_SDR_RX ? 1 : 0; }
    bool getFullDuplex(const int, const size_t) const override { return false; }
    std::vector<std::string> listAntennas(const int, const size_t) const override { return {"RF"}; }
    std::string getAntenna(const int, const size_t) const override { return "RF"; }
    void setAntenna(const int, const size_t, const std::string&) override {}

    // -- stream ----------------------------------------------------------
    std::vector<std::string> getStreamFormats(const int, const size_t) const override {
        return {SOAPY_SDR_CF32, SOAPY_SDR_CS16};
    }
    std::string getNativeStreamFormat(const int, const size_t, double& fullScale) const override {
        fullScale = std::pow(10.0, m_refDbm / 20.0);
        return SOAPY_SDR_CF32;
    }
    SoapySDR::Stream* setupStream(const int direction, const std::string& format, const std::vector<size_t>& channels,
                                  const SoapySDR::Kwargs&) override {
        if (direction != SOAPY_SDR_RX) throw std::runtime_error("qs: the analysers only receive");
        if (channels.size() > 1 || (!channels.empty() && channels[0] != 0))
            throw std::runtime_error("qs: one channel, 0");
        if (format != SOAPY_SDR_CF32 && format != SOAPY_SDR_CS16)
            throw std::runtime_error("qs: formats CF32 and CS16 only, not " + format);
        m_cs16 = format == SOAPY_SDR_CS16;
        m_pending.assign(kMtu * 2 * sizeof(float), 0);  // room for either format
        m_pendingCount = 0;
        return reinterpret_cast<SoapySDR::Stream*>(this);
    }
    void closeStream(SoapySDR::Stream*) override { Stop(); }
    size_t getStreamMTU(SoapySDR::Stream*) const override { return kMtu; }
    int activateStream(SoapySDR::Stream*, const int, const long long, const size_t) override {
        std::lock_guard<std::mutex> hold(m_lock);
        m_pendingCount = 0;
        return Start() ? 0 : SOAPY_SDR_STREAM_ERROR;
    }
    int deactivateStream(SoapySDR::Stream*, const int, const long long) override {
        Stop();
        return 0;
    }

    // Reads what arrives within the time-out (at least one sample), so a
    // slow rate does not hold the caller for seconds; a sample loss is
    // SOAPY_SDR_OVERFLOW, and the samples after it follow at the next call.
    int readStream(SoapySDR::Stream*, void* const* buffs, const size_t numElems, int& flags, long long& timeNs,
                   const long timeoutUs) override {
        const size_t elem = m_cs16 ? 2 * sizeof(int16_t) : 2 * sizeof(float);
        // Samples held back after a loss, unless a retune made them stale.
        if (m_pendingCount > 0 && m_pendingGeneration != m_generation) m_pendingCount = 0;
        if (m_pendingCount > 0) {
            const size_t n = std::min(numElems, m_pendingCount);
            std::memcpy(buffs[0], m_pending.data(), n * elem);
            std::memmove(m_pending.data(), m_pending.data() + n * elem, (m_pendingCount - n) * elem);
            m_pendingCount -= n;
            flags = SOAPY_SDR_HAS_TIME;
            timeNs = m_pendingTimeNs;
            m_pendingTimeNs += static_cast<long long>(n * 1e9 / m_rate);
            return static_cast<int>(n);
        }
        if (!m_active) return SOAPY_SDR_STREAM_ERROR;
        const unsigned generation = m_generation;
        const double inTime = m_rate * std::max(1L, timeoutUs) * 1e-6;
        const size_t n = std::max<size_t>(1, std::min({numElems, kMtu, static_cast<size_t>(inTime)}));
        int triggers[kTriggerRoom];
        qsIQPacket pkt{};
        pkt.iqData = buffs[0];
        pkt.iqCount = static_cast<int>(n);
        pkt.triggers = triggers;
        pkt.triggerCount = kTriggerRoom;
        const qsStatus st = qsGetIQ(m_h, &pkt);
        // A retune from another thread restarts the stream and ends this
        // read; the client reads again, as after a time-out.
        if (st < 0 && generation != m_generation) return SOAPY_SDR_TIMEOUT;
        if (st < 0) {
            SoapySDR::logf(SOAPY_SDR_ERROR, "qs: reading I/Q: %s", qsGetErrorString(st));
            return SOAPY_SDR_STREAM_ERROR;
        }
        const long long t = pkt.sec * 1000000000LL + pkt.nano;
        if (pkt.sampleLoss) {
            std::memcpy(m_pending.data(), buffs[0], n * elem);
            m_pendingCount = n;
            m_pendingTimeNs = t;
            m_pendingGeneration = generation;
            return SOAPY_SDR_OVERFLOW;
        }
        flags = SOAPY_SDR_HAS_TIME;
        timeNs = t;
        return static_cast<int>(n);
    }

    // -- tuning ----------------------------------------------------------
    void setFrequency(const int, const size_t, const double frequency, const SoapySDR::Kwargs&) override {
        Change([&] { m_centre = std::clamp(frequency, QS_MIN_FREQ, QS_MAX_FREQ); });
    }
    void setFrequency(const int d, const size_t c, const std::string&, const double f, const SoapySDR::Kwargs& a) override {
        setFrequency(d, c, f, a);
    }
    double getFrequency(const int, const size_t) const override { return m_centre; }
    double getFrequency(const int, const size_t, const std::string&) const override { return m_centre; }
    std::vector<std::string> listFrequencies(const int, const size_t) const override { return {"RF"}; }
    SoapySDR::RangeList getFrequencyRange(const int, const size_t) const override {
        return {SoapySDR::Range(QS_MIN_FREQ, QS_MAX_FREQ)};
    }
    SoapySDR::RangeList getFrequencyRange(const int, const size_t, const std::string&) const override {
        return {SoapySDR::Range(QS_MIN_FREQ, QS_MAX_FREQ)};
    }

    std::vector<double> listSampleRates(const int, const size_t) const override {
        std::vector<double> rates;
        for (int d = QS_MAX_DECIMATION; d >= 1; d /= 2) rates.push_back(kBaseRate / d);
        return rates;
    }
    SoapySDR::RangeList getSampleRateRange(const int d, const size_t c) const override {
        SoapySDR::RangeList r;
        for (double rate : listSampleRates(d, c)) r.emplace_back(rate, rate);
        return r;
    }
    // The nearest rate the device makes: 40 MS/s over a power of two.
    void setSampleRate(const int, const size_t, const double rate) override {
        const double k = std::clamp(std::round(std::log2(kBaseRate / std::max(rate, 1.0))), 0.0,
                                    std::log2(double(QS_MAX_DECIMATION)));
        Change([&] {
            m_rate = kBaseRate / std::exp2(k);
            m_bandwidth = 0.0;
        });
    }
    double getSampleRate(const int, const size_t) const override { return m_rate; }
    void setBandwidth(const int, const size_t, const double bw) override { Change([&] { m_bandwidth = bw; }); }
    double getBandwidth(const int, const size_t) const override { return m_bandwidth > 0 ? m_bandwidth : 0.8 * m_rate; }
    SoapySDR::RangeList getBandwidthRange(const int, const size_t) const override {
        return {SoapySDR::Range(0.01 * m_rate, m_rate)};
    }

    std::vector<std::string> listGains(const int, const size_t) const override { return {"REF"}; }
    SoapySDR::Range getGainRange(const int, const size_t) const override { return SoapySDR::Range(0.0, kMaxGain, 1.0); }
    SoapySDR::Range getGainRange(const int, const size_t, const std::string&) const override {
        return SoapySDR::Range(0.0, kMaxGain, 1.0);
    }
    void setGain(const int, const size_t, const double gain) override {
        Change([&] { m_refDbm = kGainTopDbm - std::clamp(gain, 0.0, kMaxGain); });
    }
    void setGain(const int d, const size_t c, const std::string&, const double gain) override { setGain(d, c, gain); }
    double getGain(const int, const size_t) const override { return kGainTopDbm - m_refDbm; }
    double getGain(const int d, const size_t c, const std::string&) const override { return getGain(d, c); }

    bool hasFrequencyCorrection(const int, const size_t) const override { return true; }
    void setFrequencyCorrection(const int, const size_t, const double ppm) override { SetPpm(ppm); }
    double getFrequencyCorrection(const int, const size_t) const override { return Ppm(); }

    // -- sensors and settings ----------------------------------------------
    std::vector<std::string> listSensors() const override { return {"temperature", "usb_voltage", "usb_current"}; }
    SoapySDR::ArgInfo getSensorInfo(const std::string& key) const override {
        SoapySDR::ArgInfo info;
        info.key = key;
        info.type = SoapySDR::ArgInfo::FLOAT;
        info.units = key == "temperature" ? "C" : key == "usb_voltage" ? "V" : "mA";
        info.description = "sent by the device while it measures; 0 before";
        return info;
    }
    std::string readSensor(const std::string& key) const override {
        float t = 0, v = 0, c = 0;
        qsGetDeviceDiagnostics(m_h, &t, &v, &c);
        return std::to_string(key == "temperature" ? t : key == "usb_voltage" ? v : c);
    }
    SoapySDR::ArgInfoList getSettingInfo() const override {
        SoapySDR::ArgInfo ppm;
        ppm.key = "timebase_ppm";
        ppm.name = "Time-base correction";
        ppm.type = SoapySDR::ArgInfo::FLOAT;
        ppm.units = "ppm";
        ppm.value = "0";
        ppm.description = "added to the device's own correction, for this session";
        return {ppm};
    }
    void writeSetting(const std::string& key, const std::string& value) override {
        if (key == "timebase_ppm") SetPpm(std::stod(value));
    }
    std::string readSetting(const std::string& key) const override {
        return key == "timebase_ppm" ? std::to_string(Ppm()) : std::string();
    }

private:
    bool Start() {
        const int decimation = static_cast<int>(std::lround(kBaseRate / m_rate));
        const qsStatus steps[] = {
            qsConfigureIQCenter(m_h, m_centre),
            qsConfigureLevel(m_h, m_refDbm, QS_ATTEN_AUTO),
            qsConfigureIQ(m_h, decimation, getBandwidth(SOAPY_SDR_RX, 0)),
            qsConfigureIQDataType(m_h, m_cs16 ? qsDataType16sc : qsDataType32fc),
            qsInitiate(m_h, QS_MODE_STREAMING, 0),
        };
        for (qsStatus st : steps)
            if (st < 0) {
                SoapySDR::logf(SOAPY_SDR_ERROR, "qs: starting the stream: %s", qsGetErrorString(st));
                return false;
            }
        m_active = true;
        return true;
    }
    void Stop() {
        std::lock_guard<std::mutex> hold(m_lock);
        if (m_active) qsAbort(m_h);
        m_active = false;
    }
    // A change while streaming restarts the stream with it.
    template <typename F>
    void Change(F change) {
        std::lock_guard<std::mutex> hold(m_lock);
        change();
        if (m_active) {
            ++m_generation;
            qsAbort(m_h);
            Start();
        }
    }
    void SetPpm(double ppm) {
        const qsStatus st = qsSetTimebaseCorrection(m_h, m_factoryRatio * (1.0 + ppm * 1e-6));
        if (st < 0) throw std::runtime_error(std::string("qs: time-base correction: ") + qsGetErrorString(st));
    }
    double Ppm() const {
        double r = 1.0;
        qsGetTimebaseCorrection(m_h, &r);
        return (r / m_factoryRatio - 1.0) * 1e6;
    }

    int m_h = -1;
    std::string m_model, m_serial;
    double m_factoryRatio = 1.0;
    double m_centre = 1e9, m_bandwidth = 0.0, m_refDbm = -20.0;
    std::atomic<double> m_rate{10e6};  // also read by the stream thread
    bool m_cs16 = false;
    // Read by the stream thread while a control thread may change them.
    std::atomic<bool> m_active{false};
    std::atomic<unsigned> m_generation{0};
    std::vector<char> m_pending;
    size_t m_pendingCount = 0;
    long long m_pendingTimeNs = 0;
    unsigned m_pendingGeneration = 0;
    std::mutex m_lock;
};

SoapySDR::KwargsList Find(const SoapySDR::Kwargs& args) {
    int serials[QS_MAX_DEVICES] = {};
    int count = 0;
    SoapySDR::KwargsList found;
    if (qsGetSerialNumberList(serials, &count) != qsNoError) return found;
    const auto models = ModelsOnTheBus();
    const auto wanted = args.find("serial");
    for (int i = 0; i < count; ++i) {
        const std::string serial = Serial8(serials[i]);
        if (wanted != args.end() && std::stoll(wanted->second) != serials[i]) continue;
        const auto model = models.find(serial);
        const std::string name = model == models.end() ? "analyser" : model->second;
        found.push_back({{"driver", "qs"}, {"serial", serial}, {"model", name}, {"label", name + " " + serial}});
    }
    return found;
}

SoapySDR::Device* Make(const SoapySDR::Kwargs& args) { return new QsDevice(args); }

const SoapySDR::Registry kRegistry("qs", &Find, &Make, SOAPY_SDR_ABI_VERSION);

}  // namespace

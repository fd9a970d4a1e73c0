// The device core: owns the transport, the generator link, the active
// settings, the plan, the calibration and the engine of the running mode.
// The public calls go through it; the interface thread hands it every block
// (it is the transport's BlockSink), and a generator sweep's engine runs its
// passes through it (PassControl). What differs between the models is the
// record and tuner each model gives, its calibration and its open sequence.
//
// Threads: everything runs on the caller's thread but StoreData and what it
// calls (ParseHeader, ParseTrailer, CheckForExternalTrigger), which run on
// the interface thread. The fields they share are atomic: the ready flag and
// the mode (read there), the overflow flags (set there, cleared by a fetch),
// the framing flag, the readings and the FPGA id (written there).
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "calibration/corrections.h"
#include "engines/engine.h"
#include "engines/engine_iq.h"
#include "engines/engine_sweep.h"
#include "engines/engine_tg_sweep.h"
#include "planning/command.h"
#include "planning/model_record.h"
#include "planning/plan.h"
#include "planning/tuner.h"
#include "qs_api.h"
#include "settings/sweep_info.h"
#include "tg/tg_interface.h"
#include "transport/block_sink.h"
#include "transport/cypress_linux.h"
#include "transport/wire_formats.h"

namespace qs {

class Settings;
struct AudioConfig;

// Monitor values as last reported by the device.
struct Diagnostics {
    std::atomic<float> celcius{0.0f};
    std::atomic<float> voltage1_8{0.0f};
    std::atomic<float> voltage1_2{0.0f};
    std::atomic<float> voltageUSB{0.0f};
    std::atomic<float> currentUSB{0.0f};

    void Clear();
};

class Device : public BlockSink, public PassControl {
public:
    static constexpr int TRIGGER_BUF_SZ = 17;
    // The firmware that first knows the tracking-generator sweep.
    static constexpr int TG_MIN_FIRMWARE = 5;

    // Takes ownership of the transport and registers as its data sink;
    // model is the record of the model being built (static data).
    Device(CypressInterface* usb, const ModelRecord& model);
    ~Device() override;
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    // The model's open sequence; a negative status fails the open.
    virtual qsStatus OpenDevice() = 0;
    // The IF self-calibration; nothing to do on a model without one.
    virtual qsStatus SelfCalIF() { return qsNoError; }
    // The model's receiver, for planning.
    virtual const Tuner& GetTuner() const = 0;
    // Staging settings of this model at their defaults, for the caller.
    virtual Settings* NewSettings() const = 0;
    // The mode set-ups, one body for both models over the model's record
    // and tuner: plan, calibration, command, engine. Each sets m_mode at its
    // end; a refused set-up leaves the device idle.
    qsStatus ConfigureSweepMode(unsigned flag);
    qsStatus ConfigureRealTime();
    qsStatus ConfigureIQ(unsigned flag);
    qsStatus ConfigureAudioDemod();
    qsStatus ConfigureTgMode();
    // The Maple's service calls. A model that keeps no time-base slots or
    // rough gains answers qsDeviceInvalidErr, before any other check.
    virtual qsStatus AddTimebaseCorrection(double ppm);
    virtual qsStatus ApplyRoughGains(const unsigned char* low, const unsigned char* high);
    // Changes the port mask; sends it when it changed or when forced.
    qsStatus ConfigurePortIO(unsigned p1, unsigned p2, bool force);

    // Ends what runs, copies the staging settings over the active ones and
    // runs the mode's set-up. qsDeviceInvalidErr on a device whose flash
    // said it is not valid.
    qsStatus Initiate(const Settings* s, unsigned mode, unsigned flag);
    // Ends any measurement; qsDeviceNotConfiguredErr when nothing ran.
    qsStatus Abort();
    // Sends the device preset command. Only the device is told.
    qsStatus Preset();
    // Sends the stop command of a stream and waits until it went out.
    bool StopStreaming();

    // Flash service. Page numbers of reads are 0..48; writes go to 256-byte
    // write blocks, with no bound check.
    bool ReadFlash(unsigned page, unsigned char* get);
    bool WriteFlash(unsigned page, const unsigned char* put);
    bool ClearFlash();

    int GetDeviceType() const { return m_usb->GetDeviceType(); }
    int MapleRev() const { return m_usb->MapleRev(); }
    bool IsValid() const { return m_validDevice; }
    int GetMode() const { return m_mode.load(); }
    unsigned GetFPGAID() const { return m_fpgaid.load(); }
    unsigned GetSerialNumber() const { return m_sid; }
    int GetFirmwareVersion() const { return m_firmware_version; }
    Settings* GetSettings() const { return m_settings; }
    const SweepInfo& GetSweepInfo() const { return m_sweepInfo; }
    const Diagnostics& GetReadings() const { return m_readings; }
    double GetTimebaseCorrection() const { return m_oscRatio; }
    void SetTimebaseCorrection(double ratio);
    // Offset of a GPS receiver's clock; carried, read by nothing here.
    void SetClockOffset(double seconds) { m_clockOffset = seconds; }
    qsStatus GetIQCorrection(float& correction) const;
    // Fetches, each ending in the common final status; they block until the
    // engine of the running mode has delivered. qsDeviceNotConfiguredErr
    // when no engine of that kind runs.
    template <typename T>
    qsStatus GetSweep(T* min, T* max);
    qsStatus GetRealTimeFrame(float* minSweep, float* maxSweep, float* colorFrame,
                              float* alphaFrame);
    qsStatus GetIQ(float* buffer, int* triggers);
    qsStatus GetIQ(qsIQPacket* pkt);
    qsStatus GetAudio(float* buffer);
    qsStatus GetRealTimePoi(double& poi) const;

    // The public calls' operations that are more than a getter: each checks
    // the device's state and its arguments in the order the call documents
    // and returns the call's status. A refused call changes nothing.
    //  - flash service, refused while a measurement is configured (a flash
    //    command ends the device's run, and the measurement's next fetch
    //    would wait for blocks that no longer come); success whatever the
    //    flash did: a caller tests a read by what it got;
    qsStatus FlashRead(int page, unsigned char* data);
    qsStatus FlashWrite(int page, const unsigned char* data);
    qsStatus FlashClear();
    //  - the time base (a plausible ratio only) and the manual IF offset;
    qsStatus SetTimebase(double ratio);
    qsStatus SetIFOffset(double fraction, double secondLOHz, bool manual);
    //  - the ports, idle only; the packet-mode bits are kept out of the mask
    //    (qsAdjustedParameter);
    qsStatus ConfigureIO(unsigned port1, unsigned port2);
    //  - monitor values as the user reads them;
    void ReadDiagnostics(float* celsius, float* usbVolts, float* usbAmps) const;
    //  - the hardware revision of a Maple; -1 and qsDeviceInvalidErr from a
    //    model without revisions;
    virtual qsStatus QueryMapleRev(int& rev) const;
    //  - the plan's trace, frame and stream geometry, in the modes that have one;
    qsStatus QueryTraceInfo(unsigned* traceLen, double* binSize, double* start) const;
    qsStatus QueryRealTimeInfo(int* width, int* height) const;
    qsStatus QueryStreamInfo(int* returnLen, double* bandwidth, int* samplesPerSec) const;
    //  - the generator's own calls, refused while a generator sweep owns it.
    qsStatus AttachTg();
    qsStatus SetTg(double frequencyHz, double amplitudeDbm);
    qsStatus GetTg(double* frequencyHz, double* amplitudeDbm);
    qsStatus SetTgReference(int reference);

    // The tracking generator of this analyser.
    TGInterface& TG() { return m_generator; }
    // Records a through-calibration request for the next fetch of a
    // tracking-generator sweep: flag 1 at 0 dB, flag 2 (after a stored 0 dB
    // one) with the 20 dB pad. qsDeviceNotConfiguredErr in any other mode,
    // qsInvalidParameterErr for a flag that does not apply.
    qsStatus StoreTgThru(int flag);
    TGCalState GetTgCalState() const { return tgCalState.load(); }

    // Hands a new demodulation set to the running audio engine;
    // qsDeviceNotStreamingErr when none runs.
    qsStatus UpdateAudioSettings(const AudioConfig& audio);
    bool IsStreaming() const override;

    // Interface thread: one block of both channels. Sweep-like modes return
    // the chunk index to hand back with the next block of the same pass.
    int StoreData(uint8_t* ch1, uint8_t* ch2, int ppf, int index) override;
    // Interface thread, at the start of a sweep: the plan's packets per step.
    int PacketsPerStep() const override { return m_sweepInfo.ppf; }
    // Interface thread: the monitor value of the block; 1 if taken, else -1.
    int ParseHeader(const uint8_t* ch1, const uint8_t* ch2);
    // Interface thread: FPGA id, framing and the overflow counters.
    int ParseTrailer(const uint8_t* ch1, const uint8_t* ch2);
    // Interface thread: the block's external triggers into m_triggerBuf.
    int CheckForExternalTrigger(const uint8_t* ch1, const uint8_t* ch2);
    void UpdateTimestamp();

    // The trigger positions of the block in hand, ending with a 0 entry.
    const int* TriggerBuf() const { return m_triggerBuf; }
    int TriggerBufCount() const { return m_triggerBufCnt; }

protected:
    // Brings the fields to their open-time values.
    void InitDevice();
    int AddCommand();
    int AddSecondCommand();
    void DeleteAndNullifyFFTEngines();
    // The status every fetch ends with, after its engine delivered.
    qsStatus FinalStatus(qsStatus engineStatus);
    // The low band alone, raw, for the start-up sweep's check of the data
    // path (a model with a directly sampled low band).
    qsStatus ConfigureLowBandRawSweep();
    // The commands of a plan into m_cmd (rough gains included): a sweep's,
    // and the streaming modes' one-position command at center. The stream's
    // waits until the mailbox is free first.
    void SetupSweepCommand();
    void SetupStreamCommand(double center, bool lowBand);
    // The gain and attenuation of a row as the calibration solved them.
    RowGain GainOf(int row);
    // The generator sweep's passes, for its engine's fetch (application's
    // thread): m_cmd for pass 0, m_secCmd for pass 1; the polls go by
    // whether a generator was attached when the fetch began.
    bool SendPass(int pass) override;
    bool GeneratorThere() override;
    bool GeneratorLost() const override;
    // Reads the calibration image through the flash service with the
    // model's loader, and takes the identity its header gives. The loader's
    // status.
    qsStatus LoadCalibration(qsStatus (*load)(const FlashPageReader&, Corrections&, DeviceIdentity&));
    // The calibrated ratio of true to nominal time base.
    double CalibratedOscRatio() const { return m_corr ? m_corr->GetOscRatio() : 1.0; }

    const ModelRecord& m_model;
    std::atomic<bool> m_fftReady{false};
    bool m_validDevice = true;
    std::atomic<unsigned> m_fpgaid{0};
    unsigned m_sid = 0;
    int m_firmware_version = 0;
    std::atomic<int> m_mode{QS_MODE_IDLE};
    CypressInterface* m_usb;
    // The tracking generator on its own cable; declared before the engines
    // so that it outlives the sweep engine that drives it.
    TGInterface m_generator;
    Settings* m_settings = nullptr;
    SweepInfo m_sweepInfo;
    Diagnostics m_readings;
    DeviceCommand m_cmd;
    DeviceCommand m_secCmd;
    unsigned m_portMask = 0;
    int16_t* m_rawUnpacked = nullptr;
    std::atomic<bool> m_overflow{false};
    int m_overflowCount = -1;
    std::atomic<bool> m_gpifError{false};
    int m_gpifCount = -1;
    int m_triggerDelay = 0;
    int m_triggerPosition = -1;
    int m_lastTriggerCount = -1;
    int m_triggerBuf[TRIGGER_BUF_SZ] = {};
    int m_triggerBufCnt = 0;
    bool m_timeStamp = false;
    double m_avgSamplesBetweenPPS = 8e7;
    unsigned m_secondsFromCPU = 0;
    double m_partialSecond = 0.0;
    // The stream's clock: the host time of its first sample, and the
    // samples counted since (see UpdateTimestamp).
    double m_streamEpoch = 0.0;
    int64_t m_streamSamples = 0;
    int64_t m_rtLostSeen = 0;  // the real-time engine's losses already reported
    double m_clockOffset = 0.0;
    double m_oscRatio = 1.0;
    std::atomic<bool> m_trlrSynced{true};
    ResidualInfo rps;
    // The calibration, made by the model's constructor; released after the
    // destructor's body has closed the transport.
    std::unique_ptr<Corrections> m_corr;
    // Storage of the I/Q stream's circular buffer, lent to each IQStream,
    // so that it outlives them.
    IQStorage iqBuffer;
    // The engine of the running mode, built by the mode's set-up (before
    // its stream starts, where data come at once) and destroyed by
    // DeleteAndNullifyFFTEngines once Store can no longer be reached.
    std::unique_ptr<Engine> m_engine;
    // The through-calibration state of a generator sweep: written by the
    // application's thread, read by its engine's worker.
    std::atomic<TGCalState> tgCalState{tgNoThruStored};
    // Whether a generator was attached when the running generator sweep's
    // fetch began.
    bool m_tgAttached = false;  // a generator was attached as the fetch began
};

// The device of the model the transport found, owning it; null (the
// transport left to the caller) for a product of the vendor that is not
// an analyser of the family.
Device* NewDevice(CypressInterface* usb);

}  // namespace qs

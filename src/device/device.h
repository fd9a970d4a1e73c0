// The device core: owns the transport, the active settings and the plan,
// and is where the transport and the processing meet.
//
// So far it carries the open-time life cycle only; measurements, ingest and
// the calibration come with the planning and the engines.
#pragma once

#include <cstdint>

#include "qs_api.h"
#include "settings/sweep_info.h"
#include "transport/cypress_linux.h"
#include "transport/wire_formats.h"

namespace qs {

class Settings;

class Device {
public:
    // Takes ownership of the transport and registers as its data sink.
    explicit Device(CypressInterface* usb);
    virtual ~Device();
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    // The model's open sequence; negative status fails the open.
    virtual qsStatus OpenDevice() = 0;

    // Sends the device preset command. Only the device is told.
    qsStatus Preset();

    int GetDeviceType() const { return m_usb->GetDeviceType(); }
    int MapleRev() const { return m_usb->MapleRev(); }
    bool IsValid() const { return m_validDevice; }
    unsigned GetSerialNumber() const { return m_sid; }
    int GetFirmwareVersion() const { return m_firmware_version; }
    int GetMode() const { return m_mode; }
    const SweepInfo& GetSweepInfo() const { return m_sweepInfo; }
    Settings* GetSettings() const { return m_settings; }
    CypressInterface* Transport() const { return m_usb; }

    // Interface thread: one block of both channels; returns the chunk
    // index to hand back with the next block of the same sweep.
    int StoreData(uint8_t* ch1, uint8_t* ch2, int ppf, int index);
    bool IsStreaming() const { return m_streaming; }

protected:
    // Brings the fields to their open-time values.
    void InitDevice();
    void AddCommand(const DeviceCommand& command) { m_usb->AddCommand(command); }

    bool m_validDevice = true;
    unsigned m_sid = 0;
    int m_firmware_version = 0;
    int m_mode = QS_MODE_IDLE;
    CypressInterface* m_usb;
    Settings* m_settings = nullptr;
    SweepInfo m_sweepInfo;
    DeviceCommand m_cmd;
    DeviceCommand m_secCmd;
    int16_t* m_rawUnpacked = nullptr;
    bool m_streaming = false;
};

}  // namespace qs

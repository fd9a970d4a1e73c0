#include "device/device.h"

#include <cstdlib>
#include <new>

#include "settings/settings.h"

namespace qs {

Device::Device(CypressInterface* usb) : m_usb(usb) {
    m_cmd.Clear();
    m_secCmd.Clear();
    m_usb->SetDevice(this);
    void* raw = nullptr;
    if (posix_memalign(&raw, 64, QS_BLOCK_SAMPLES * sizeof(int16_t)) != 0) throw std::bad_alloc();
    m_rawUnpacked = static_cast<int16_t*>(raw);
}

Device::~Device() {
    delete m_settings;
    std::free(m_rawUnpacked);
    delete m_usb;
}

void Device::InitDevice() {
    m_validDevice = true;
    m_sid = 0;
    m_firmware_version = 0;
    m_mode = QS_MODE_IDLE;
    m_sweepInfo = SweepInfo();
    m_cmd.Clear();
    m_streaming = false;
}

qsStatus Device::Preset() {
    m_cmd.commandType = 2;
    m_cmd.headerType = QS_CMD_PRESET;
    AddCommand(m_cmd);
    return qsNoError;
}

int Device::StoreData(uint8_t*, uint8_t*, int, int index) {
    // No engine takes blocks yet; the counted run still passes through.
    return index;
}

}  // namespace qs

#include "sim_device.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

#include "qs_sim.h"
#include "sim_receiver.h"

namespace qssim {

SimDevice::SimDevice(int id, int productId, unsigned serial, std::mutex* worldLock,
                     std::condition_variable* worldChanged)
    : m_id(id),
      m_productId(productId),
      m_serial(serial),
      m_factory(productId, serial),
      m_firmware(productId, serial, &m_scene),
      m_worldLock(worldLock),
      m_worldChanged(worldChanged) {
    // Every device leaves the factory calibrated; the image is written when
    // the flash is first made, so a device nobody reads costs nothing.
    m_firmware.SetFlashInit([this](uint8_t* flash) { m_factory.Write(flash, m_firmware.Dna()); });
    if (IsMaple(productId) || productId == QSSIM_PID_LARCH)
        m_firmware.SetSampleSource(std::make_unique<ReceiverSource>(&m_factory));
    m_firmware.SetPacing(kPaceStreams);
    m_firmware.SetThreaded(true);
    m_thread = std::thread([this] { MakePackets(); });
}

SimDevice::~SimDevice() {
    {
        std::lock_guard<std::mutex> hold(*m_worldLock);
        m_stop = true;
        m_wake.notify_all();
    }
    JoinThread();
}

void SimDevice::Unplug() {
    m_plugged = false;
    m_stop = true;
    m_wake.notify_all();
}

void SimDevice::JoinThread() {
    if (m_thread.joinable()) m_thread.join();
}

void SimDevice::MakePackets() {
    std::unique_lock<std::mutex> hold(*m_worldLock);
    PacketJob job;
    while (!m_stop) {
        Clock::time_point wakeAt;
        if (!m_firmware.PrepareNext(Clock::now(), &job, &wakeAt)) {
            if (wakeAt == Clock::time_point::max())
                m_wake.wait(hold);
            else
                m_wake.wait_until(hold, wakeAt);
            continue;
        }
        hold.unlock();
        {
            std::lock_guard<std::mutex> model(m_modelLock);
            m_firmware.FillPacket(&job);
        }
        hold.lock();
        m_firmware.CommitPacket(&job);
        m_worldChanged->notify_all();
    }
}

std::string SimDevice::SerialString() const {
    char text[32];
    std::snprintf(text, sizeof text, "%08u", m_serial);
    return text;
}

bool SimDevice::UsbString(int index, std::string* text) const {
    switch (index) {
        case 1: *text = "Simulated Instruments"; return true;
        case 2: *text = "Simulated RF analyser"; return true;
        case 3: *text = SerialString(); return true;
        default: return false;
    }
}

void SimDevice::WriteOut(int, const uint8_t* data, int len) {
    m_commands.emplace_back(data, data + len);
    m_firmware.OnCommand(data, len, Clock::now());
    Wake();
}

void SimDevice::ReadTimedOut(int endpoint) {
    m_firmware.OnReadTimedOut(endpoint == kEndpointIn2 ? 1 : 0);
}

int SimDevice::ReadIn(int endpoint, uint8_t* dst, int len, bool* shortPacket,
                      Clock::time_point now) {
    *shortPacket = false;
    const int channel = endpoint == kEndpointIn2 ? 1 : 0;
    auto& queue = m_inQueue[channel];
    int copied = 0;
    while (!queue.empty() && copied < len) {
        auto& packet = queue.front();
        const int n = std::min<int>(static_cast<int>(packet.size()), len - copied);
        std::memcpy(dst + copied, packet.data(), n);
        copied += n;
        const bool wasShort = packet.size() < 32768;
        queue.pop_front();
        if (wasShort) {
            *shortPacket = true;
            return copied;
        }
    }
    if (queue.empty() && copied < len) {
        const int n = m_firmware.Read(channel, dst + copied, len - copied, shortPacket, now);
        if (n > 0) Wake();  // room in the FIFO
        copied += n;
    }
    return copied;
}

void SimDevice::QueuePacket(int endpoint, std::vector<uint8_t> packet) {
    m_inQueue[endpoint == kEndpointIn2 ? 1 : 0].push_back(std::move(packet));
}

}  // namespace qssim

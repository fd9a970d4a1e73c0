#include "sim_world.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <thread>

#include "qs_sim.h"

namespace qssim {
namespace {

World g_world;
std::once_flag g_envOnce;
bool g_controlled = false;

int ProductIdFromName(const std::string& name) {
    if (name == "larch") return QSSIM_PID_LARCH;
    if (name == "maple" || name == "maple1") return QSSIM_PID_MAPLE_REV1;
    if (name == "maple2") return QSSIM_PID_MAPLE_REV2;
    if (name.rfind("pid", 0) == 0) return std::atoi(name.c_str() + 3);
    return -1;
}

std::vector<std::string> Split(const std::string& text, char sep) {
    std::vector<std::string> parts;
    std::stringstream stream(text);
    std::string part;
    while (std::getline(stream, part, sep))
        if (!part.empty()) parts.push_back(part);
    return parts;
}

int AddDeviceLocked(int productId, unsigned serial) {
    for (auto& dev : g_world.devices)
        if (dev->Plugged() && dev->Serial() == serial) return -1;
    const int id = static_cast<int>(g_world.devices.size());
    g_world.devices.push_back(
        std::make_unique<SimDevice>(id, productId, serial, &g_world.lock, &g_world.changed));
    g_world.devices.back()->GetFirmware().SetSlowdown(g_world.slowdown);
    g_world.devices.back()->GetFirmware().SetSeed(g_world.seed);
    return id;
}

// Called once, with the lock held, unless a control call came first.
void LoadEnvironment() {
    if (g_controlled) return;
    const char* devices = std::getenv("QS_SIM_DEVICES");
    const char* tones = std::getenv("QS_SIM_TONES");
    const char* triggers = std::getenv("QS_SIM_TRIGGERS");
    if (!devices) return;
    std::vector<Tone> scene;
    if (tones) {
        for (const auto& item : Split(tones, ',')) {
            const auto colon = item.find(':');
            if (colon == std::string::npos) continue;
            scene.push_back({std::strtod(item.substr(0, colon).c_str(), nullptr),
                             std::strtod(item.substr(colon + 1).c_str(), nullptr)});
        }
    }
    for (const auto& item : Split(devices, ',')) {
        const auto colon = item.find(':');
        if (colon == std::string::npos) continue;
        const int pid = ProductIdFromName(item.substr(0, colon));
        if (pid < 0) continue;
        const unsigned serial = std::strtoul(item.substr(colon + 1).c_str(), nullptr, 10);
        const int id = AddDeviceLocked(pid, serial);
        if (id >= 0) g_world.devices[id]->GetScene().tones = scene;
        // "maple2:12345678:denied": the USB node exists but this user may not open it.
        if (id >= 0 && item.find(":denied") != std::string::npos)
            g_world.devices[id]->SetAccessDenied(true);
        // ":erased" and ":uncalibrated": no image, or an image without tables.
        if (id >= 0 && item.find(":erased") != std::string::npos)
            g_world.devices[id]->Factory().SetKind(QSSIM_FLASH_ERASED);
        if (id >= 0 && item.find(":uncalibrated") != std::string::npos)
            g_world.devices[id]->Factory().SetKind(QSSIM_FLASH_BLANK_TABLES);
        // QS_SIM_TRIGGERS="0.01,0.02": external triggers that many seconds
        // into every stream run, at the converter's 80 MS/s, so that a
        // program run whole (the tool) records triggers where they were put.
        if (id >= 0 && triggers) {
            std::vector<int64_t> positions;
            for (const auto& t : Split(triggers, ','))
                positions.push_back(std::llround(std::strtod(t.c_str(), nullptr) * 80e6));
            g_world.devices[id]->GetFirmware().SetStreamTriggers(std::move(positions));
        }
        // ":unplug=S": the device is pulled out S seconds after the scene is
        // set up, so that a program run whole (the tool) meets an unplug.
        const auto unplug = item.find(":unplug=");
        if (id >= 0 && unplug != std::string::npos) {
            const double after = std::strtod(item.c_str() + unplug + 8, nullptr);
            std::thread([id, after] {
                std::this_thread::sleep_for(std::chrono::duration<double>(after > 0 ? after : 0));
                qssim_remove_device(id);
            }).detach();
        }
    }
}

SimDevice* DeviceLocked(int id) {
    if (id < 0 || id >= static_cast<int>(g_world.devices.size())) return nullptr;
    return g_world.devices[id].get();
}

// Runs fn on a device's firmware with the lock held; nothing for no device.
template <typename Fn>
void WithFirmware(int id, Fn fn) {
    World& world = GetWorld();
    std::lock_guard<std::mutex> hold(world.lock);
    if (SimDevice* dev = DeviceLocked(id)) {
        fn(dev->GetFirmware());
        dev->Wake();
    }
    world.changed.notify_all();
}

// Runs fn on a device's scene or factory model, with the world's lock and
// the device's model lock held, so that no packet is being made from it.
// Returns fn's result, or -1 for no such device.
template <typename Fn>
int WithModel(int id, Fn fn) {
    World& world = GetWorld();
    std::lock_guard<std::mutex> hold(world.lock);
    SimDevice* dev = DeviceLocked(id);
    if (!dev) return -1;
    std::lock_guard<std::mutex> model(dev->ModelLock());
    return fn(*dev);
}

// Threads of devices that were unplugged end outside the world's lock,
// which they take to leave.
void JoinUnplugged() {
    std::vector<SimDevice*> devices;
    {
        std::lock_guard<std::mutex> hold(g_world.lock);
        for (auto& dev : g_world.devices)
            if (!dev->Plugged()) devices.push_back(dev.get());
    }
    for (SimDevice* dev : devices) dev->JoinThread();
}

}  // namespace

World& GetWorld() {
    std::call_once(g_envOnce, [] {
        std::lock_guard<std::mutex> hold(g_world.lock);
        // Read whether or not a control call took the scene over: it is a
        // property of the run (a sanitizer build), not of a scene.
        g_world.seed = (uint64_t{std::random_device{}()} << 32) ^ std::random_device{}();
        if (const char* seed = std::getenv("QS_SIM_SEED")) g_world.seed = std::strtoull(seed, nullptr, 0);
        if (const char* slow = std::getenv("QS_SIM_SLOWDOWN")) {
            const double f = std::strtod(slow, nullptr);
            if (std::isfinite(f) && f > 1.0) g_world.slowdown = f;
        }
        LoadEnvironment();
    });
    return g_world;
}

void TakeControl() {
    std::lock_guard<std::mutex> hold(g_world.lock);
    g_controlled = true;
}

}  // namespace qssim

using namespace qssim;

extern "C" {

__attribute__((visibility("default"))) void qssim_reset(void) {
    TakeControl();
    World& world = GetWorld();
    // Devices are only marked unplugged: the library may still hold handles.
    {
        std::lock_guard<std::mutex> hold(world.lock);
        for (auto& dev : world.devices) dev->Unplug();
        world.initFailure = false;
        world.changed.notify_all();
    }
    JoinUnplugged();
}

__attribute__((visibility("default"))) int qssim_add_device(int productId, unsigned serial) {
    TakeControl();
    World& world = GetWorld();
    std::lock_guard<std::mutex> hold(world.lock);
    return AddDeviceLocked(productId, serial);
}

__attribute__((visibility("default"))) void qssim_remove_device(int id) {
    World& world = GetWorld();
    {
        std::lock_guard<std::mutex> hold(world.lock);
        if (SimDevice* dev = DeviceLocked(id)) dev->Unplug();
        world.changed.notify_all();
    }
    JoinUnplugged();
}

__attribute__((visibility("default"))) void qssim_set_tone(int id, double freqHz, double levelDbm) {
    WithModel(id, [&](SimDevice& dev) {
        dev.GetScene().tones.push_back({freqHz, levelDbm});
        return 0;
    });
}

__attribute__((visibility("default"))) void qssim_clear_signals(int id) {
    WithModel(id, [](SimDevice& dev) {
        dev.GetScene().tones.clear();
        return 0;
    });
}

__attribute__((visibility("default"))) void qssim_set_noise(int id, double dbmPerHz) {
    WithModel(id, [&](SimDevice& dev) {
        dev.GetScene().noiseDbmPerHz = dbmPerHz;
        return 0;
    });
}

__attribute__((visibility("default"))) void qssim_set_access_denied(int id, int denied) {
    World& world = GetWorld();
    std::lock_guard<std::mutex> hold(world.lock);
    if (SimDevice* dev = DeviceLocked(id)) dev->SetAccessDenied(denied != 0);
}

__attribute__((visibility("default"))) void qssim_set_init_failure(int fail) {
    World& world = GetWorld();
    std::lock_guard<std::mutex> hold(world.lock);
    world.initFailure = fail != 0;
}

__attribute__((visibility("default"))) int qssim_command_count(int id) {
    World& world = GetWorld();
    std::lock_guard<std::mutex> hold(world.lock);
    SimDevice* dev = DeviceLocked(id);
    return dev ? static_cast<int>(dev->Commands().size()) : 0;
}

__attribute__((visibility("default"))) int qssim_get_command(int id, int index, unsigned char* out) {
    World& world = GetWorld();
    std::lock_guard<std::mutex> hold(world.lock);
    SimDevice* dev = DeviceLocked(id);
    if (!dev || !out || index < 0 || index >= static_cast<int>(dev->Commands().size())) return -1;
    const auto& block = dev->Commands()[index];
    std::memset(out, 0, 1024);
    std::memcpy(out, block.data(), std::min<size_t>(block.size(), 1024));
    return 0;
}

__attribute__((visibility("default"))) void qssim_set_pacing(int id, int realtime) {
    const int pacing = realtime == QSSIM_PACE_STREAMS ? kPaceStreams : realtime ? kPaceRealTime : kPaceFree;
    WithFirmware(id, [&](Firmware& fw) { fw.SetPacing(pacing); });
}

__attribute__((visibility("default"))) void qssim_set_slowdown(double factor) {
    World& world = GetWorld();
    std::lock_guard<std::mutex> hold(world.lock);
    world.slowdown = std::isfinite(factor) && factor > 1.0 ? factor : 1.0;
    for (auto& dev : world.devices) dev->GetFirmware().SetSlowdown(world.slowdown);
}

__attribute__((visibility("default"))) void qssim_set_seed(unsigned seed) {
    World& world = GetWorld();
    std::lock_guard<std::mutex> hold(world.lock);
    world.seed = seed;
    for (auto& dev : world.devices) dev->GetFirmware().SetSeed(world.seed);
}

__attribute__((visibility("default"))) void qssim_stall_transfer(int id, int endpoint) {
    WithFirmware(id, [&](Firmware& fw) { fw.StallNextTransfer(endpoint == kEndpointIn2 ? 1 : 0); });
}

__attribute__((visibility("default"))) void qssim_short_flash_page(int id, int bytes) {
    WithFirmware(id, [&](Firmware& fw) { fw.ShortenNextFlashPage(bytes < 0 ? 0 : bytes); });
}

__attribute__((visibility("default"))) void qssim_slip_channel2(int id) {
    WithFirmware(id, [](Firmware& fw) { fw.SlipChannel2(); });
}

__attribute__((visibility("default"))) void qssim_step_gpif_overflow(int id) {
    WithFirmware(id, [](Firmware& fw) { fw.StepGpifOverflow(); });
}

__attribute__((visibility("default"))) void qssim_step_adc_overflow(int id) {
    WithFirmware(id, [](Firmware& fw) { fw.StepAdcOverflow(); });
}

__attribute__((visibility("default"))) int qssim_add_trigger(int id, long long samplePosition) {
    int result = -1;
    WithFirmware(id, [&](Firmware& fw) { result = fw.AddTrigger(samplePosition) ? 0 : -1; });
    return result;
}

__attribute__((visibility("default"))) void qssim_set_temperature(int id, double celsius) {
    WithFirmware(id, [&](Firmware& fw) { fw.SetTemperature(celsius); });
}

__attribute__((visibility("default"))) long long qssim_packets_served(int id, int endpoint) {
    long long served = 0;
    WithFirmware(id, [&](Firmware& fw) { served = fw.PacketsServed(endpoint == kEndpointIn2 ? 1 : 0); });
    return served;
}

__attribute__((visibility("default"))) long long qssim_read_timeouts(int id, int endpoint) {
    long long count = 0;
    WithFirmware(id, [&](Firmware& fw) { count = fw.ReadTimeouts(endpoint == kEndpointIn2 ? 1 : 0); });
    return count;
}

__attribute__((visibility("default"))) int qssim_flash_read(int id, unsigned offset,
                                                            unsigned char* out, unsigned len) {
    int result = -1;
    WithFirmware(id, [&](Firmware& fw) {
        if (!out || offset > unsigned(kFlashBytes) || len > unsigned(kFlashBytes) - offset) return;
        std::memcpy(out, fw.Flash() + offset, len);
        result = 0;
    });
    return result;
}

__attribute__((visibility("default"))) int qssim_flash_write(int id, unsigned offset,
                                                             const unsigned char* data,
                                                             unsigned len) {
    int result = -1;
    WithFirmware(id, [&](Firmware& fw) {
        if (!data || offset > unsigned(kFlashBytes) || len > unsigned(kFlashBytes) - offset) return;
        std::memcpy(fw.Flash() + offset, data, len);
        result = 0;
    });
    return result;
}

__attribute__((visibility("default"))) int qssim_set_flash_image(int id, int kind) {
    if (kind < QSSIM_FLASH_CALIBRATED || kind > QSSIM_FLASH_BLANK_HEADER) return -1;
    return WithModel(id, [&](SimDevice& dev) {
        dev.Factory().SetKind(kind);
        dev.GetFirmware().RewriteFlash();
        return 0;
    });
}

__attribute__((visibility("default"))) int qssim_set_timebase_slots(int id, int used, double ppm) {
    return WithModel(id, [&](SimDevice& dev) {
        if (!dev.Factory().SetTimebaseSlots(used, ppm)) return -1;
        dev.Factory().SetKind(QSSIM_FLASH_CALIBRATED);
        dev.GetFirmware().RewriteFlash();
        return 0;
    });
}

__attribute__((visibility("default"))) int qssim_set_larch_if_centre(int id, double hz) {
    if (!std::isfinite(hz)) return -1;
    return WithModel(id, [&](SimDevice& dev) {
        if (!dev.Factory().SetLarchIfCentre(hz)) return -1;
        dev.GetFirmware().RewriteFlash();
        return 0;
    });
}

}  // extern "C"

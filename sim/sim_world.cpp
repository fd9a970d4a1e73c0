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

int AddGeneratorLocked(int version, unsigned serial) {
    if (version != QSSIM_TG_V1 && version != QSSIM_TG_ROWAN) return -1;
    for (auto& gen : g_world.generators)
        if (gen->Plugged() && gen->Serial() == serial) return -1;
    const int id = static_cast<int>(g_world.generators.size());
    g_world.generators.push_back(std::make_unique<SimBridge>(version, serial));
    g_world.cables.push_back(std::make_unique<Cable>(g_world.generators.back().get()));
    return id;
}

int ConnectLocked(int genId, int analyserId) {
    if (genId < 0 || genId >= static_cast<int>(g_world.cables.size())) return -1;
    if (analyserId < 0 || analyserId >= static_cast<int>(g_world.devices.size())) return -1;
    Cable* cable = g_world.cables[genId].get();
    for (auto& other : g_world.cables)
        if (other->analyser == analyserId) other->analyser = -1;
    if (cable->analyser >= 0) g_world.devices[cable->analyser]->GetFirmware().SetStimulus(nullptr);
    cable->analyser = analyserId;
    g_world.devices[analyserId]->GetFirmware().SetStimulus(cable);
    return 0;
}

// "tg1:12345,rowan:23456:bandpass=9e8-1.1e9/4": cabled to the first device.
void LoadGenerators(const std::string& text) {
    for (const auto& item : Split(text, ',')) {
        const auto parts = Split(item, ':');
        if (parts.size() < 2) continue;
        const int version = parts[0] == "tg1" ? QSSIM_TG_V1 : parts[0] == "rowan" ? QSSIM_TG_ROWAN : -1;
        const int id = AddGeneratorLocked(version, std::strtoul(parts[1].c_str(), nullptr, 10));
        if (id < 0) continue;
        ConnectLocked(id, 0);
        for (size_t i = 2; i < parts.size(); ++i) {
            Dut& dut = g_world.cables[id]->dut;
            const std::string& p = parts[i];
            const auto eq = p.find('='), slash = p.find('/');
            if (eq == std::string::npos) continue;
            const std::string kind = p.substr(0, eq);
            char* end = nullptr;
            dut.f1 = std::strtod(p.c_str() + eq + 1, &end);
            if (kind == "bandpass" && end && *end == '-') dut.f2 = std::strtod(end + 1, nullptr);
            dut.order = slash == std::string::npos ? 4 : std::atoi(p.c_str() + slash + 1);
            dut.kind = kind == "bandpass" ? QSSIM_DUT_BANDPASS : kind == "lowpass" ? QSSIM_DUT_LOWPASS : QSSIM_DUT_THRU;
        }
    }
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
    if (const char* generators = std::getenv("QS_SIM_GENERATORS")) LoadGenerators(generators);
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

double Dut::GainDb(double hz) const {
    double x = 0.0;
    switch (kind) {
        case QSSIM_DUT_LOWPASS: x = f1 > 0 ? hz / f1 : 0.0; break;
        case QSSIM_DUT_BANDPASS: {
            if (hz <= 0.0 || f2 <= f1) return -300.0;
            const double centre2 = f1 * f2;
            x = (hz * hz - centre2) / (hz * (f2 - f1));
            break;
        }
        default: return -lossDb;
    }
    const double db = -10.0 * std::log10(1.0 + std::pow(x * x, std::max(order, 1))) - lossDb;
    return std::max(db, -300.0);
}

void Cable::BeginSweepRun() {
    if (m_bridge->Plugged()) m_bridge->GetGenerator().BeginSweepRun();
}

bool Cable::ToneAt(int64_t point, Tone* tone) {
    if (!m_bridge->Plugged()) return false;
    double hz = 0, dbm = 0;
    if (!m_bridge->GetGenerator().OutputAt(point, &hz, &dbm)) return false;
    *tone = {hz, dbm + dut.GainDb(hz)};
    return true;
}

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
        for (auto& gen : world.generators) gen->Unplug();
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

namespace {

// Runs fn on a generator and its cable with the lock held; -1 for none.
template <typename Fn>
int WithGenerator(int id, Fn fn) {
    World& world = GetWorld();
    std::lock_guard<std::mutex> hold(world.lock);
    if (id < 0 || id >= static_cast<int>(world.generators.size())) return -1;
    const int result = fn(*world.generators[id], *world.cables[id]);
    world.changed.notify_all();
    return result;
}

int CopyOut(const std::vector<uint8_t>& bytes, unsigned char* out, int room) {
    const int n = std::min<int>(static_cast<int>(bytes.size()), std::max(room, 0));
    if (n > 0) std::memcpy(out, bytes.data(), static_cast<size_t>(n));
    return n;
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) int qssim_add_generator(int version, unsigned serial) {
    TakeControl();
    World& world = GetWorld();
    std::lock_guard<std::mutex> hold(world.lock);
    return AddGeneratorLocked(version, serial);
}

__attribute__((visibility("default"))) void qssim_remove_generator(int id) {
    WithGenerator(id, [](SimBridge& gen, Cable&) {
        gen.Unplug();
        return 0;
    });
}

__attribute__((visibility("default"))) int qssim_connect_generator(int genId, int analyserId) {
    World& world = GetWorld();
    std::lock_guard<std::mutex> hold(world.lock);
    return ConnectLocked(genId, analyserId);
}

__attribute__((visibility("default"))) int qssim_set_dut(int genId, int kind, double f1Hz, double f2Hz,
                                                        int order, double lossDb) {
    if (kind < QSSIM_DUT_THRU || kind > QSSIM_DUT_BANDPASS || !std::isfinite(f1Hz) || !std::isfinite(f2Hz) ||
        !std::isfinite(lossDb) || order < 1 || order > 20)
        return -1;
    if (kind == QSSIM_DUT_LOWPASS && f1Hz <= 0) return -1;
    if (kind == QSSIM_DUT_BANDPASS && (f1Hz <= 0 || f2Hz <= f1Hz)) return -1;
    return WithGenerator(genId, [&](SimBridge&, Cable& cable) {
        cable.dut = Dut{kind, f1Hz, f2Hz, order, lossDb};
        return 0;
    });
}

__attribute__((visibility("default"))) double qssim_dut_gain_db(int genId, double freqHz) {
    double gain = 0.0;
    WithGenerator(genId, [&](SimBridge&, Cable& cable) {
        gain = cable.dut.GainDb(freqHz);
        return 0;
    });
    return gain;
}

__attribute__((visibility("default"))) int qssim_generator_output(int genId, double* freqHz, double* levelDbm) {
    return WithGenerator(genId, [&](SimBridge& gen, Cable&) {
        double hz = 0, dbm = 0;
        if (!gen.Plugged() || !gen.GetGenerator().Output(&hz, &dbm)) return -1;
        if (freqHz) *freqHz = hz;
        if (levelDbm) *levelDbm = dbm;
        return 0;
    });
}

__attribute__((visibility("default"))) int qssim_set_generator_eeprom(int genId, int kind) {
    if (kind < QSSIM_TG_EEPROM_CALIBRATED || kind > QSSIM_TG_EEPROM_SILENT) return -1;
    return WithGenerator(genId, [&](SimBridge& gen, Cable&) {
        gen.GetGenerator().SetEeprom(kind);
        return 0;
    });
}

__attribute__((visibility("default"))) int qssim_generator_frame_count(int genId) {
    return WithGenerator(genId, [](SimBridge& gen, Cable&) {
        return static_cast<int>(gen.GetGenerator().Frames().size());
    });
}

__attribute__((visibility("default"))) int qssim_get_generator_frame(int genId, int index, unsigned char* out,
                                                                    int room) {
    return WithGenerator(genId, [&](SimBridge& gen, Cable&) {
        const auto& frames = gen.GetGenerator().Frames();
        if (index < 0 || index >= static_cast<int>(frames.size())) return -1;
        return CopyOut(frames[index].payload, out, room);
    });
}

__attribute__((visibility("default"))) int qssim_get_generator_wire(int genId, int index, unsigned char* out,
                                                                   int room) {
    return WithGenerator(genId, [&](SimBridge& gen, Cable&) {
        const auto& frames = gen.GetGenerator().Frames();
        if (index < 0 || index >= static_cast<int>(frames.size())) return -1;
        return CopyOut(frames[index].wire, out, room);
    });
}

}  // extern "C"

// libusb-1.0 on top of the simulated devices.
//
// Semantics follow libusb where the library can tell: a device list of the
// plugged devices, descriptors and the serial string, one claim per
// interface, synchronous bulk transfers with time-outs, and asynchronous
// transfers that complete only inside the event-handling calls, on the thread
// that calls them, one event handler at a time. Cancel ends a transfer as
// cancelled, a second submit of a transfer in flight is busy, and an
// unplugged device ends what is in flight as "no device".
#include <libusb.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <list>
#include <map>
#include <memory>
#include <mutex>

#include "sim_world.h"

#define QSSIM_EXPORT extern "C" __attribute__((visibility("default")))

using qssim::GetWorld;
using qssim::UsbGadget;
using qssim::World;
using Clock = std::chrono::steady_clock;

struct libusb_context {
    int unused;
};

struct libusb_device {
    int simId;
    bool bridge;  // a generator's serial bridge, not an analyser
    uint8_t busNumber;
    uint8_t address;
};

struct libusb_device_handle {
    libusb_device* dev;
    bool claimed;
};

namespace {

libusb_context g_defaultContext;

std::map<std::pair<bool, int>, std::unique_ptr<libusb_device>> g_usbDevices;

struct InFlight {
    libusb_transfer* xfr;
    Clock::time_point deadline;  // time_point::max() for no time-out
    bool cancelled;
};
std::list<InFlight> g_inFlight;

// Only one thread handles events at a time, as libusb's event lock does.
// A flag under a plain mutex rather than a timed mutex: the thread
// sanitizer does not follow timed locks.
class EventLock {
public:
    bool LockUntil(Clock::time_point until) {
        std::unique_lock<std::mutex> hold(m_mutex);
        if (!m_cv.wait_until(hold, until, [this] { return !m_held; })) return false;
        m_held = true;
        return true;
    }
    void Unlock() {
        {
            std::lock_guard<std::mutex> hold(m_mutex);
            m_held = false;
        }
        m_cv.notify_one();
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_cv;
    bool m_held = false;
};
EventLock g_eventLock;

struct EventLockHolder {
    ~EventLockHolder() { g_eventLock.Unlock(); }
};

UsbGadget* DeviceOf(World& world, const libusb_device* dev) {
    if (!dev || dev->simId < 0) return nullptr;
    if (dev->bridge)
        return dev->simId < static_cast<int>(world.generators.size()) ? world.generators[dev->simId].get() : nullptr;
    return dev->simId < static_cast<int>(world.devices.size()) ? world.devices[dev->simId].get() : nullptr;
}

// A device and its libusb_device, made at first sight and kept for the life
// of the process (libusb would free it at the last unref; nothing here
// depends on that). Analysers sit on bus 1, bridges on bus 2.
libusb_device* UsbDeviceOf(int simId, bool bridge) {
    auto& usb = g_usbDevices[std::make_pair(bridge, simId)];
    if (!usb) {
        usb = std::make_unique<libusb_device>();
        usb->simId = simId;
        usb->bridge = bridge;
        usb->busNumber = bridge ? 2 : 1;
        usb->address = static_cast<uint8_t>(simId % 127 + 1);
    }
    return usb.get();
}

bool IsInFlight(const libusb_transfer* xfr) {
    return std::any_of(g_inFlight.begin(), g_inFlight.end(),
                       [xfr](const InFlight& f) { return f.xfr == xfr; });
}

Clock::time_point DeadlineAfter(unsigned timeoutMs) {
    return timeoutMs == 0 ? Clock::time_point::max()
                          : Clock::now() + std::chrono::milliseconds(timeoutMs);
}

// Moves data into a transfer; returns true when it is finished, with its
// status set. Lock held.
bool Progress(World& world, InFlight& f, Clock::time_point now) {
    libusb_transfer* xfr = f.xfr;
    UsbGadget* dev = DeviceOf(world, xfr->dev_handle->dev);
    if (f.cancelled) {
        xfr->status = LIBUSB_TRANSFER_CANCELLED;
        return true;
    }
    if (!dev || !dev->Plugged()) {
        xfr->status = LIBUSB_TRANSFER_NO_DEVICE;
        return true;
    }
    if (xfr->endpoint & LIBUSB_ENDPOINT_IN) {
        bool shortPacket = false;
        xfr->actual_length += dev->ReadIn(xfr->endpoint, xfr->buffer + xfr->actual_length,
                                          xfr->length - xfr->actual_length, &shortPacket, now);
        if (xfr->actual_length == xfr->length || shortPacket) {
            xfr->status = LIBUSB_TRANSFER_COMPLETED;
            return true;
        }
    } else {
        dev->WriteOut(xfr->endpoint, xfr->buffer, xfr->length);
        xfr->actual_length = xfr->length;
        xfr->status = LIBUSB_TRANSFER_COMPLETED;
        return true;
    }
    // The device's thread may be slower than the device it stands for: a
    // read's time-out counts only while no data is on its way to it.
    if ((xfr->endpoint & LIBUSB_ENDPOINT_IN) && xfr->timeout != 0 &&
        dev->DataComing(xfr->endpoint, now))
        f.deadline = std::max(f.deadline, now + std::chrono::milliseconds(xfr->timeout));
    if (now >= f.deadline) {
        xfr->status = LIBUSB_TRANSFER_TIMED_OUT;
        dev->ReadTimedOut(xfr->endpoint);
        return true;
    }
    return false;
}

// One round of event handling: completes what can complete, running the
// callbacks without the world's lock, and waits up to `until` if nothing
// did. Returns when a transfer completed, *completed is set, or time is up.
void HandleEvents(const timeval* tv, int* completed) {
    const Clock::time_point until =
        tv ? Clock::now() + std::chrono::seconds(tv->tv_sec) +
                 std::chrono::microseconds(tv->tv_usec)
           : Clock::now() + std::chrono::seconds(60);
    if (!g_eventLock.LockUntil(until)) return;
    EventLockHolder events;

    World& world = GetWorld();
    std::unique_lock<std::mutex> hold(world.lock);
    for (;;) {
        if (completed && *completed) return;
        const Clock::time_point now = Clock::now();
        std::vector<libusb_transfer*> done;
        Clock::time_point nextDeadline = until;
        for (auto it = g_inFlight.begin(); it != g_inFlight.end();) {
            if (Progress(world, *it, now)) {
                done.push_back(it->xfr);
                it = g_inFlight.erase(it);
            } else {
                nextDeadline = std::min(nextDeadline, it->deadline);
                if (UsbGadget* dev = DeviceOf(world, it->xfr->dev_handle->dev))
                    nextDeadline = std::min(nextDeadline, dev->ReadyBy(it->xfr->endpoint, now));
                ++it;
            }
        }
        if (!done.empty()) {
            hold.unlock();
            for (libusb_transfer* xfr : done)
                if (xfr->callback) xfr->callback(xfr);
            return;
        }
        if (now >= until) return;
        // A device's thread signals every packet it makes.
        world.changed.wait_until(hold, nextDeadline);
    }
}

}  // namespace

QSSIM_EXPORT int libusb_init(libusb_context** ctx) {
    World& world = GetWorld();
    std::lock_guard<std::mutex> hold(world.lock);
    if (world.initFailure) return LIBUSB_ERROR_OTHER;
    if (ctx) *ctx = &g_defaultContext;
    return LIBUSB_SUCCESS;
}

QSSIM_EXPORT void libusb_exit(libusb_context*) {}

QSSIM_EXPORT const char* libusb_error_name(int code) {
    switch (code) {
        case LIBUSB_SUCCESS: return "LIBUSB_SUCCESS";
        case LIBUSB_ERROR_IO: return "LIBUSB_ERROR_IO";
        case LIBUSB_ERROR_INVALID_PARAM: return "LIBUSB_ERROR_INVALID_PARAM";
        case LIBUSB_ERROR_ACCESS: return "LIBUSB_ERROR_ACCESS";
        case LIBUSB_ERROR_NO_DEVICE: return "LIBUSB_ERROR_NO_DEVICE";
        case LIBUSB_ERROR_NOT_FOUND: return "LIBUSB_ERROR_NOT_FOUND";
        case LIBUSB_ERROR_BUSY: return "LIBUSB_ERROR_BUSY";
        case LIBUSB_ERROR_TIMEOUT: return "LIBUSB_ERROR_TIMEOUT";
        case LIBUSB_ERROR_OVERFLOW: return "LIBUSB_ERROR_OVERFLOW";
        case LIBUSB_ERROR_PIPE: return "LIBUSB_ERROR_PIPE";
        case LIBUSB_ERROR_INTERRUPTED: return "LIBUSB_ERROR_INTERRUPTED";
        case LIBUSB_ERROR_NO_MEM: return "LIBUSB_ERROR_NO_MEM";
        case LIBUSB_ERROR_NOT_SUPPORTED: return "LIBUSB_ERROR_NOT_SUPPORTED";
        case LIBUSB_ERROR_OTHER: return "LIBUSB_ERROR_OTHER";
        case LIBUSB_TRANSFER_ERROR: return "LIBUSB_TRANSFER_ERROR";
        case LIBUSB_TRANSFER_TIMED_OUT: return "LIBUSB_TRANSFER_TIMED_OUT";
        case LIBUSB_TRANSFER_CANCELLED: return "LIBUSB_TRANSFER_CANCELLED";
        case LIBUSB_TRANSFER_STALL: return "LIBUSB_TRANSFER_STALL";
        case LIBUSB_TRANSFER_NO_DEVICE: return "LIBUSB_TRANSFER_NO_DEVICE";
        case LIBUSB_TRANSFER_OVERFLOW: return "LIBUSB_TRANSFER_OVERFLOW";
        default: return "**UNKNOWN**";
    }
}

QSSIM_EXPORT ssize_t libusb_get_device_list(libusb_context*, libusb_device*** list) {
    World& world = GetWorld();
    std::lock_guard<std::mutex> hold(world.lock);
    std::vector<libusb_device*> found;
    for (auto& dev : world.devices)
        if (dev->Plugged()) found.push_back(UsbDeviceOf(dev->Id(), false));
    for (size_t i = 0; i < world.generators.size(); ++i)
        if (world.generators[i]->Plugged()) found.push_back(UsbDeviceOf(static_cast<int>(i), true));
    auto* out = static_cast<libusb_device**>(std::calloc(found.size() + 1, sizeof(libusb_device*)));
    if (!out) return LIBUSB_ERROR_NO_MEM;
    std::copy(found.begin(), found.end(), out);
    *list = out;
    return static_cast<ssize_t>(found.size());
}

QSSIM_EXPORT void libusb_free_device_list(libusb_device** list, int) { std::free(list); }

QSSIM_EXPORT libusb_device* libusb_ref_device(libusb_device* dev) { return dev; }

QSSIM_EXPORT void libusb_unref_device(libusb_device*) {}

QSSIM_EXPORT int libusb_get_device_descriptor(libusb_device* dev,
                                              struct libusb_device_descriptor* desc) {
    World& world = GetWorld();
    std::lock_guard<std::mutex> hold(world.lock);
    UsbGadget* sim = DeviceOf(world, dev);
    if (!sim) return LIBUSB_ERROR_NO_DEVICE;
    std::memset(desc, 0, sizeof *desc);
    desc->bLength = LIBUSB_DT_DEVICE_SIZE;
    desc->bDescriptorType = LIBUSB_DT_DEVICE;
    desc->bcdUSB = 0x0200;
    desc->bMaxPacketSize0 = 64;
    desc->idVendor = sim->UsbVendor();
    desc->idProduct = sim->UsbProduct();
    desc->bcdDevice = sim->UsbRelease();
    desc->iManufacturer = 1;
    desc->iProduct = 2;
    desc->iSerialNumber = 3;
    desc->bNumConfigurations = 1;
    return LIBUSB_SUCCESS;
}

QSSIM_EXPORT uint8_t libusb_get_bus_number(libusb_device* dev) { return dev->busNumber; }

QSSIM_EXPORT uint8_t libusb_get_device_address(libusb_device* dev) { return dev->address; }

QSSIM_EXPORT int libusb_open(libusb_device* dev, libusb_device_handle** handle) {
    World& world = GetWorld();
    std::lock_guard<std::mutex> hold(world.lock);
    UsbGadget* sim = DeviceOf(world, dev);
    if (!sim || !sim->Plugged()) return LIBUSB_ERROR_NO_DEVICE;
    if (sim->AccessDenied()) return LIBUSB_ERROR_ACCESS;
    *handle = new libusb_device_handle{dev, false};
    return LIBUSB_SUCCESS;
}

QSSIM_EXPORT void libusb_close(libusb_device_handle* handle) {
    if (!handle) return;
    World& world = GetWorld();
    std::lock_guard<std::mutex> hold(world.lock);
    // Transfers still in flight on this handle are dropped silently.
    g_inFlight.remove_if([handle](const InFlight& f) { return f.xfr->dev_handle == handle; });
    if (handle->claimed)
        if (UsbGadget* sim = DeviceOf(world, handle->dev)) sim->SetClaimed(false);
    delete handle;
}

QSSIM_EXPORT libusb_device* libusb_get_device(libusb_device_handle* handle) { return handle->dev; }

QSSIM_EXPORT int libusb_get_string_descriptor_ascii(libusb_device_handle* handle, uint8_t index,
                                                    unsigned char* data, int length) {
    World& world = GetWorld();
    std::lock_guard<std::mutex> hold(world.lock);
    UsbGadget* sim = DeviceOf(world, handle->dev);
    if (!sim || !sim->Plugged()) return LIBUSB_ERROR_NO_DEVICE;
    std::string text;
    if (!sim->UsbString(index, &text)) return LIBUSB_ERROR_INVALID_PARAM;
    if (length <= 0) return LIBUSB_ERROR_INVALID_PARAM;
    // libusb leaves room for the terminating NUL.
    const int n = std::min<int>(static_cast<int>(text.size()), length - 1);
    std::memcpy(data, text.data(), n);
    data[n] = 0;
    return n;
}

QSSIM_EXPORT int libusb_kernel_driver_active(libusb_device_handle*, int) { return 0; }

QSSIM_EXPORT int libusb_detach_kernel_driver(libusb_device_handle*, int) {
    return LIBUSB_ERROR_NOT_FOUND;
}

QSSIM_EXPORT int libusb_claim_interface(libusb_device_handle* handle, int iface) {
    World& world = GetWorld();
    std::lock_guard<std::mutex> hold(world.lock);
    UsbGadget* sim = DeviceOf(world, handle->dev);
    if (!sim || !sim->Plugged()) return LIBUSB_ERROR_NO_DEVICE;
    if (iface != 0) return LIBUSB_ERROR_NOT_FOUND;
    if (handle->claimed) return LIBUSB_SUCCESS;
    if (sim->Claimed()) return LIBUSB_ERROR_BUSY;
    sim->SetClaimed(true);
    handle->claimed = true;
    return LIBUSB_SUCCESS;
}

QSSIM_EXPORT int libusb_release_interface(libusb_device_handle* handle, int iface) {
    World& world = GetWorld();
    std::lock_guard<std::mutex> hold(world.lock);
    if (iface != 0 || !handle->claimed) return LIBUSB_ERROR_NOT_FOUND;
    handle->claimed = false;
    if (UsbGadget* sim = DeviceOf(world, handle->dev)) sim->SetClaimed(false);
    UsbGadget* sim = DeviceOf(world, handle->dev);
    return sim && sim->Plugged() ? LIBUSB_SUCCESS : LIBUSB_ERROR_NO_DEVICE;
}

QSSIM_EXPORT int libusb_clear_halt(libusb_device_handle* handle, unsigned char) {
    World& world = GetWorld();
    std::lock_guard<std::mutex> hold(world.lock);
    UsbGadget* sim = DeviceOf(world, handle->dev);
    return sim && sim->Plugged() ? LIBUSB_SUCCESS : LIBUSB_ERROR_NO_DEVICE;
}

QSSIM_EXPORT int libusb_bulk_transfer(libusb_device_handle* handle, unsigned char endpoint,
                                      unsigned char* data, int length, int* transferred,
                                      unsigned int timeout) {
    World& world = GetWorld();
    std::unique_lock<std::mutex> hold(world.lock);
    if (transferred) *transferred = 0;
    Clock::time_point deadline = DeadlineAfter(timeout);
    int done = 0;
    for (;;) {
        UsbGadget* sim = DeviceOf(world, handle->dev);
        if (!sim || !sim->Plugged()) return LIBUSB_ERROR_NO_DEVICE;
        if (!(endpoint & LIBUSB_ENDPOINT_IN)) {
            sim->WriteOut(endpoint, data, length);
            if (transferred) *transferred = length;
            world.changed.notify_all();
            return LIBUSB_SUCCESS;
        }
        bool shortPacket = false;
        const Clock::time_point now = Clock::now();
        done += sim->ReadIn(endpoint, data + done, length - done, &shortPacket, now);
        if (transferred) *transferred = done;
        if (done == length || shortPacket) return LIBUSB_SUCCESS;
        if (timeout != 0 && sim->DataComing(endpoint, now))
            deadline = std::max(deadline, now + std::chrono::milliseconds(timeout));
        if (now >= deadline) {
            sim->ReadTimedOut(endpoint);
            return LIBUSB_ERROR_TIMEOUT;
        }
        world.changed.wait_until(hold, std::min(deadline, sim->ReadyBy(endpoint, now)));
    }
}

QSSIM_EXPORT int libusb_control_transfer(libusb_device_handle* handle, uint8_t requestType, uint8_t request,
                                         uint16_t value, uint16_t index, unsigned char* data, uint16_t length,
                                         unsigned int) {
    World& world = GetWorld();
    std::lock_guard<std::mutex> hold(world.lock);
    UsbGadget* sim = DeviceOf(world, handle->dev);
    if (!sim || !sim->Plugged()) return LIBUSB_ERROR_NO_DEVICE;
    const int n = sim->Control(requestType, request, value, index, data, length);
    world.changed.notify_all();
    return n < 0 ? LIBUSB_ERROR_PIPE : n;
}

QSSIM_EXPORT int libusb_get_configuration(libusb_device_handle* handle, int* config) {
    World& world = GetWorld();
    std::lock_guard<std::mutex> hold(world.lock);
    UsbGadget* sim = DeviceOf(world, handle->dev);
    if (!sim || !sim->Plugged()) return LIBUSB_ERROR_NO_DEVICE;
    *config = 1;
    return LIBUSB_SUCCESS;
}

QSSIM_EXPORT int libusb_set_configuration(libusb_device_handle* handle, int config) {
    World& world = GetWorld();
    std::lock_guard<std::mutex> hold(world.lock);
    UsbGadget* sim = DeviceOf(world, handle->dev);
    if (!sim || !sim->Plugged()) return LIBUSB_ERROR_NO_DEVICE;
    return config == 1 || config == -1 ? LIBUSB_SUCCESS : LIBUSB_ERROR_NOT_FOUND;
}

QSSIM_EXPORT int libusb_set_auto_detach_kernel_driver(libusb_device_handle*, int) { return LIBUSB_SUCCESS; }

// The one configuration: interface 0 with the device's bulk endpoints.
QSSIM_EXPORT int libusb_get_config_descriptor(libusb_device* dev, uint8_t index,
                                              struct libusb_config_descriptor** config) {
    World& world = GetWorld();
    std::lock_guard<std::mutex> hold(world.lock);
    UsbGadget* sim = DeviceOf(world, dev);
    if (!sim) return LIBUSB_ERROR_NO_DEVICE;
    if (index != 0) return LIBUSB_ERROR_NOT_FOUND;
    const qssim::GadgetEndpoints e = sim->Endpoints();
    auto* endpoints = static_cast<libusb_endpoint_descriptor*>(std::calloc(3, sizeof(libusb_endpoint_descriptor)));
    auto* setting = static_cast<libusb_interface_descriptor*>(std::calloc(1, sizeof(libusb_interface_descriptor)));
    auto* iface = static_cast<libusb_interface*>(std::calloc(1, sizeof(libusb_interface)));
    auto* c = static_cast<libusb_config_descriptor*>(std::calloc(1, sizeof(libusb_config_descriptor)));
    if (!endpoints || !setting || !iface || !c) {
        std::free(endpoints), std::free(setting), std::free(iface), std::free(c);
        return LIBUSB_ERROR_NO_MEM;
    }
    const uint8_t addresses[3] = {e.in[0], e.in[1], e.out};
    int n = 0;
    for (int i = 0; i < 3; ++i) {
        if (i == 1 && e.inCount < 2) continue;
        endpoints[n].bLength = LIBUSB_DT_ENDPOINT_SIZE;
        endpoints[n].bDescriptorType = LIBUSB_DT_ENDPOINT;
        endpoints[n].bEndpointAddress = addresses[i];
        endpoints[n].bmAttributes = LIBUSB_TRANSFER_TYPE_BULK;
        endpoints[n].wMaxPacketSize = e.maxPacket;
        ++n;
    }
    setting->bLength = LIBUSB_DT_INTERFACE_SIZE;
    setting->bDescriptorType = LIBUSB_DT_INTERFACE;
    setting->bNumEndpoints = static_cast<uint8_t>(n);
    setting->bInterfaceClass = LIBUSB_CLASS_VENDOR_SPEC;
    setting->endpoint = endpoints;
    iface->altsetting = setting;
    iface->num_altsetting = 1;
    c->bLength = LIBUSB_DT_CONFIG_SIZE;
    c->bDescriptorType = LIBUSB_DT_CONFIG;
    c->bNumInterfaces = 1;
    c->bConfigurationValue = 1;
    c->bmAttributes = 0x80;
    c->MaxPower = 45;
    c->interface = iface;
    *config = c;
    return LIBUSB_SUCCESS;
}

QSSIM_EXPORT void libusb_free_config_descriptor(struct libusb_config_descriptor* config) {
    if (!config) return;
    std::free(const_cast<libusb_endpoint_descriptor*>(config->interface->altsetting->endpoint));
    std::free(const_cast<libusb_interface_descriptor*>(config->interface->altsetting));
    std::free(const_cast<libusb_interface*>(config->interface));
    std::free(config);
}

QSSIM_EXPORT libusb_transfer* libusb_alloc_transfer(int isoPackets) {
    const size_t size = sizeof(libusb_transfer) +
                        sizeof(libusb_iso_packet_descriptor) * static_cast<size_t>(isoPackets);
    return static_cast<libusb_transfer*>(std::calloc(1, size));
}

QSSIM_EXPORT void libusb_free_transfer(libusb_transfer* xfr) {
    if (!xfr) return;
    {
        World& world = GetWorld();
        std::lock_guard<std::mutex> hold(world.lock);
        g_inFlight.remove_if([xfr](const InFlight& f) { return f.xfr == xfr; });
    }
    if (xfr->flags & LIBUSB_TRANSFER_FREE_BUFFER) std::free(xfr->buffer);
    std::free(xfr);
}

QSSIM_EXPORT int libusb_submit_transfer(libusb_transfer* xfr) {
    World& world = GetWorld();
    std::lock_guard<std::mutex> hold(world.lock);
    if (IsInFlight(xfr)) return LIBUSB_ERROR_BUSY;
    UsbGadget* sim = DeviceOf(world, xfr->dev_handle->dev);
    if (!sim || !sim->Plugged()) return LIBUSB_ERROR_NO_DEVICE;
    if (xfr->type != LIBUSB_TRANSFER_TYPE_BULK) return LIBUSB_ERROR_NOT_SUPPORTED;
    xfr->actual_length = 0;
    xfr->status = LIBUSB_TRANSFER_COMPLETED;
    g_inFlight.push_back({xfr, DeadlineAfter(xfr->timeout), false});
    world.changed.notify_all();
    return LIBUSB_SUCCESS;
}

QSSIM_EXPORT int libusb_cancel_transfer(libusb_transfer* xfr) {
    World& world = GetWorld();
    std::lock_guard<std::mutex> hold(world.lock);
    for (auto& f : g_inFlight) {
        if (f.xfr != xfr) continue;
        if (f.cancelled) return LIBUSB_ERROR_NOT_FOUND;
        f.cancelled = true;
        world.changed.notify_all();
        return LIBUSB_SUCCESS;
    }
    return LIBUSB_ERROR_NOT_FOUND;
}

QSSIM_EXPORT int libusb_handle_events_timeout_completed(libusb_context*, struct timeval* tv,
                                                        int* completed) {
    HandleEvents(tv, completed);
    return LIBUSB_SUCCESS;
}

QSSIM_EXPORT int libusb_handle_events_timeout(libusb_context*, struct timeval* tv) {
    HandleEvents(tv, nullptr);
    return LIBUSB_SUCCESS;
}

QSSIM_EXPORT int libusb_handle_events_completed(libusb_context*, int* completed) {
    HandleEvents(nullptr, completed);
    return LIBUSB_SUCCESS;
}

QSSIM_EXPORT int libusb_handle_events(libusb_context*) {
    HandleEvents(nullptr, nullptr);
    return LIBUSB_SUCCESS;
}

#include "tg/ft_bridge.h"

#include <ftdi.h>
#include <libusb.h>

#include <chrono>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

namespace qs {

// An open bridge: libftdi's context with its own USB context and handle.
struct FTBridge {
    ftdi_context* ftdi = nullptr;
    int readTimeoutMs = 1000;
};

namespace {

struct InfoEntry {
    std::string serial;
    std::string description;
    DWORD id = 0;
    DWORD locId = 0;
};

// The largest EEPROM a bridge carries (93C66).
constexpr int kMaxEepromBytes = 512;

std::mutex g_listLock;
std::vector<InfoEntry> g_list;  // guarded by g_listLock

bool IsBridge(FT_HANDLE h) { return h != nullptr && h != ft_no_bridge(); }

void Copy(char* out, size_t room, const std::string& text) {
    if (!out) return;
    const size_t n = text.size() < room - 1 ? text.size() : room - 1;
    std::memcpy(out, text.data(), n);
    out[n] = 0;
}

}  // namespace

FT_STATUS FT_CreateDeviceInfoList(DWORD* count) {
    if (count) *count = 0;
    std::vector<InfoEntry> found;
    ftdi_context* ftdi = ftdi_new();
    if (!ftdi) return FT_OTHER_ERROR;
    ftdi_device_list* list = nullptr;
    // Vendor and product 0 search the FTDI default ids.
    const int n = ftdi_usb_find_all(ftdi, &list, 0, 0);
    if (n < 0) {
        ftdi_free(ftdi);
        return FT_OTHER_ERROR;
    }
    for (ftdi_device_list* d = list; d; d = d->next) {
        InfoEntry e;
        char manufacturer[64] = {}, description[64] = {}, serial[16] = {};
        // A bridge busy elsewhere gives no strings; it stays listed, unnamed.
        if (ftdi_usb_get_strings(ftdi, d->dev, manufacturer, sizeof manufacturer, description,
                                 sizeof description, serial, sizeof serial) == 0) {
            e.description = description;
            e.serial = serial;
        }
        libusb_device_descriptor desc{};
        if (libusb_get_device_descriptor(d->dev, &desc) == 0)
            e.id = DWORD{desc.idVendor} << 16 | desc.idProduct;
        e.locId = DWORD{libusb_get_bus_number(d->dev)} << 8 | libusb_get_device_address(d->dev);
        found.push_back(e);
    }
    ftdi_list_free(&list);
    ftdi_free(ftdi);
    std::lock_guard<std::mutex> hold(g_listLock);
    g_list = found;
    if (count) *count = static_cast<DWORD>(g_list.size());
    return FT_OK;
}

FT_STATUS FT_GetDeviceInfoDetail(DWORD index, DWORD* flags, DWORD* type, DWORD* id, DWORD* locId,
                                 char* serialNumber, char* description, FT_HANDLE* handle) {
    std::lock_guard<std::mutex> hold(g_listLock);
    if (index >= g_list.size()) return FT_DEVICE_NOT_FOUND;
    const InfoEntry& e = g_list[index];
    if (flags) *flags = 0;
    if (type) *type = 0;
    if (id) *id = e.id;
    if (locId) *locId = e.locId;
    Copy(serialNumber, 16, e.serial);
    Copy(description, 64, e.description);
    if (handle) *handle = ft_no_bridge();
    return FT_OK;
}

FT_STATUS FT_Open(int index, FT_HANDLE* handle) {
    if (!handle) return FT_INVALID_PARAMETER;
    *handle = ft_no_bridge();
    DWORD locId = 0;
    {
        std::lock_guard<std::mutex> hold(g_listLock);
        if (index < 0 || static_cast<size_t>(index) >= g_list.size()) return FT_DEVICE_NOT_FOUND;
        locId = g_list[static_cast<size_t>(index)].locId;
    }
    ftdi_context* ftdi = ftdi_new();
    if (!ftdi) return FT_INSUFFICIENT_RESOURCES;
    // The listing's devices belong to a context that is gone; find the same
    // bus position again in this one.
    ftdi_device_list* list = nullptr;
    int opened = -1;
    if (ftdi_usb_find_all(ftdi, &list, 0, 0) > 0) {
        for (ftdi_device_list* d = list; d; d = d->next) {
            const DWORD at = DWORD{libusb_get_bus_number(d->dev)} << 8 | libusb_get_device_address(d->dev);
            if (at != locId) continue;
            opened = ftdi_usb_open_dev(ftdi, d->dev);
            break;
        }
    }
    ftdi_list_free(&list);
    if (opened != 0) {
        ftdi_free(ftdi);
        return FT_DEVICE_NOT_OPENED;
    }
    FTBridge* bridge = new FTBridge;
    bridge->ftdi = ftdi;
    *handle = bridge;
    return FT_OK;
}

FT_STATUS FT_SetBaudRate(FT_HANDLE handle, DWORD baud) {
    if (!IsBridge(handle)) return FT_INVALID_HANDLE;
    return ftdi_set_baudrate(handle->ftdi, static_cast<int>(baud)) == 0 ? FT_OK : FT_IO_ERROR;
}

FT_STATUS FT_SetTimeouts(FT_HANDLE handle, DWORD readMs, DWORD writeMs) {
    if (!IsBridge(handle)) return FT_INVALID_HANDLE;
    handle->readTimeoutMs = static_cast<int>(readMs);
    handle->ftdi->usb_read_timeout = static_cast<int>(readMs);
    handle->ftdi->usb_write_timeout = static_cast<int>(writeMs);
    return FT_OK;
}

FT_STATUS FT_SetLatencyTimer(FT_HANDLE handle, unsigned char ms) {
    if (!IsBridge(handle)) return FT_INVALID_HANDLE;
    return ftdi_set_latency_timer(handle->ftdi, ms) == 0 ? FT_OK : FT_IO_ERROR;
}

FT_STATUS FT_Write(FT_HANDLE handle, const void* data, DWORD len, DWORD* written) {
    if (written) *written = 0;
    if (!IsBridge(handle)) return FT_INVALID_HANDLE;
    const int n = ftdi_write_data(handle->ftdi, static_cast<const unsigned char*>(data), static_cast<int>(len));
    if (n < 0) return FT_IO_ERROR;
    if (written) *written = static_cast<DWORD>(n);
    return FT_OK;
}

FT_STATUS FT_Read(FT_HANDLE handle, void* data, DWORD len, DWORD* got) {
    if (got) *got = 0;
    if (!IsBridge(handle)) return FT_INVALID_HANDLE;
    // libftdi hands back what the bridge has; the driver's read waits for
    // the whole count, up to the read time-out.
    auto* out = static_cast<unsigned char*>(data);
    DWORD done = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(handle->readTimeoutMs);
    while (done < len) {
        const int n = ftdi_read_data(handle->ftdi, out + done, static_cast<int>(len - done));
        if (n < 0) {
            if (got) *got = done;
            return FT_IO_ERROR;
        }
        done += static_cast<DWORD>(n);
        if (done < len && std::chrono::steady_clock::now() >= deadline) break;
    }
    if (got) *got = done;
    return FT_OK;
}

FT_STATUS FT_Close(FT_HANDLE handle) {
    if (!IsBridge(handle)) return FT_INVALID_HANDLE;
    ftdi_usb_close(handle->ftdi);
    ftdi_free(handle->ftdi);
    delete handle;
    return FT_OK;
}

FT_STATUS FT_GetModemStatus(FT_HANDLE handle, DWORD* status) {
    if (status) *status = 0;
    if (!IsBridge(handle)) return FT_INVALID_HANDLE;
    unsigned short bits = 0;
    if (ftdi_poll_modem_status(handle->ftdi, &bits) != 0) return FT_IO_ERROR;
    if (status) *status = bits;
    return FT_OK;
}

int ft_user_area_start(const unsigned char* eeprom, int size) {
    if (!eeprom || size < 24) return size;
    int end = 0x18;  // the strings never start before the end of the header on the smallest part
    for (int p = 0x0E; p <= 0x12; p += 2) {
        const int offset = eeprom[p] & (size - 1);
        const int length = eeprom[p + 1];
        if (offset + length > end) end = offset + length;
    }
    return end < size ? end : size;
}

FT_STATUS FT_EE_UARead(FT_HANDLE handle, unsigned char* data, DWORD len, DWORD* got) {
    if (got) *got = 0;
    if (!IsBridge(handle)) return FT_INVALID_HANDLE;
    if (ftdi_read_eeprom(handle->ftdi) != 0) return FT_IO_ERROR;
    unsigned char image[kMaxEepromBytes] = {};
    if (ftdi_get_eeprom_buf(handle->ftdi, image, sizeof image) != 0) return FT_IO_ERROR;
    int size = 0;
    if (ftdi_get_eeprom_value(handle->ftdi, CHIP_SIZE, &size) != 0 || size <= 0 ||
        size > static_cast<int>(sizeof image))
        size = 128;
    const int start = ft_user_area_start(image, size);
    const int room = size - 2 - start;  // the last word is the checksum
    const DWORD n = room > 0 ? (static_cast<DWORD>(room) < len ? static_cast<DWORD>(room) : len) : 0;
    std::memcpy(data, image + start, n);
    if (got) *got = n;
    return FT_OK;
}

}  // namespace qs

#include "transport/cypress_linux.h"

#include <libusb.h>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <new>

namespace qs {

namespace {

constexpr int kSerialBufferBytes = 256;

uint8_t* AllocBuffer(size_t bytes) {
    void* p = nullptr;
    if (posix_memalign(&p, 64, bytes) != 0) return nullptr;
    std::memset(p, 0, bytes);
    return static_cast<uint8_t*>(p);
}

bool IsFamilyProduct(uint16_t pid) {
    return pid == QS_PID_LARCH || pid == QS_PID_MAPLE_REV1 || pid == QS_PID_MAPLE_REV2;
}

// Reads the serial string of a device into a cleared buffer; returns what
// libusb_get_string_descriptor_ascii returned. Closes the temporary handle.
int ReadSerialString(libusb_device* dev, const libusb_device_descriptor& desc,
                     char (&text)[kSerialBufferBytes], bool* opened) {
    std::memset(text, 0, sizeof text);
    libusb_device_handle* handle = nullptr;
    *opened = libusb_open(dev, &handle) == 0;
    if (!*opened) return LIBUSB_ERROR_ACCESS;
    const int n = libusb_get_string_descriptor_ascii(
        handle, desc.iSerialNumber, reinterpret_cast<unsigned char*>(text), 255);
    libusb_close(handle);
    return n;
}

}  // namespace

std::set<int> CypressInterface::openDeviceList;

bool initialize_libusb() {
    static bool initialized = false;
    if (!initialized) initialized = libusb_init(nullptr) == 0;
    return initialized;
}

const char* get_libusb_transfer_err_str(int status) {
    switch (status) {
        case 1: return "transfer_status: xfer error\n";
        case 2: return "transfer_status: timed out\n";
        case 3: return "transfer_status: cancelled\n";
        case 4: return "transfer_status: stalled\n";
        case 5: return "transfer_status: no device\n";
        case 6: return "transfer_status: overflow\n";
        default: return "";
    }
}

qsStatus GetSerialNumberList(int* serial_list, int* list_len) {
    if (!initialize_libusb()) return qsLibusbError;
    libusb_device** list = nullptr;
    const ssize_t count = libusb_get_device_list(nullptr, &list);
    if (count < 0) {
        *list_len = 0;
        return qsNoError;
    }
    *list_len = 0;
    for (ssize_t i = 0; i < count && *list_len < QS_MAX_DEVICES; ++i) {
        if (CypressInterface::openDeviceList.count(static_cast<int>(i))) continue;
        libusb_device_descriptor desc;
        if (libusb_get_device_descriptor(list[i], &desc) != 0) continue;
        if (desc.idVendor != QS_USB_VENDOR_ID || !IsFamilyProduct(desc.idProduct)) continue;
        char text[kSerialBufferBytes];
        bool opened = false;
        const int n = ReadSerialString(list[i], desc, text, &opened);
        if (!opened) continue;
        if (n < 0)
            serial_list[*list_len] = 0;
        else if (n == 8)
            serial_list[*list_len] = static_cast<int>(std::strtol(text, nullptr, 10));
        ++*list_len;
    }
    libusb_free_device_list(list, 1);
    return qsNoError;
}

// ---------------------------------------------------------------- Transfer

Transfer::Transfer(libusb_device_handle* handle, int timeoutMs) {
    tv.tv_sec = 0;
    tv.tv_usec = 250000;
    const unsigned char endpoints[2] = {QS_EP_CHANNEL1, QS_EP_CHANNEL2};
    for (int i = 0; i < 2; ++i) {
        dma[i] = AllocBuffer(QS_TRANSFER_BYTES);
        xfr[i] = libusb_alloc_transfer(0);
        if (!dma[i] || !xfr[i]) throw std::bad_alloc();
        libusb_fill_bulk_transfer(xfr[i], handle, endpoints[i], dma[i], QS_TRANSFER_BYTES,
                                  &Transfer::Callback, &completed[i], timeoutMs);
    }
}

Transfer::~Transfer() {
    for (int i = 0; i < 2; ++i) {
        libusb_free_transfer(xfr[i]);
        std::free(dma[i]);
    }
}

void Transfer::Callback(libusb_transfer* xfr) {
    *static_cast<int*>(xfr->user_data) = 1;
}

void Transfer::StartTransfer(int results[2]) {
    completed[0] = completed[1] = 0;
    results[0] = libusb_submit_transfer(xfr[0]);
    results[1] = libusb_submit_transfer(xfr[1]);
    submitted[0] = results[0] == 0;
    submitted[1] = results[1] == 0;
}

void Transfer::Retire() {
    // A busy resubmit leaves the earlier submit in flight; either way libusb
    // must give the transfer back before it is freed.
    for (int i = 0; i < 2; ++i)
        if (submitted[i] && !completed[i]) libusb_cancel_transfer(xfr[i]);
    for (int pass = 0; pass < 40; ++pass) {
        const bool pending0 = submitted[0] && !completed[0];
        const bool pending1 = submitted[1] && !completed[1];
        if (!pending0 && !pending1) break;
        libusb_handle_events_timeout_completed(nullptr, &tv, pending0 ? &completed[0] : &completed[1]);
    }
    started = false;
}

void Transfer::CancelTransfer() {
    libusb_cancel_transfer(xfr[0]);
    libusb_cancel_transfer(xfr[1]);
}

void Transfer::WaitForTransfer() {
    while (completed[0] == 0 || completed[1] == 0) {
        libusb_handle_events_timeout_completed(nullptr, &tv, &completed[0]);
        libusb_handle_events_timeout_completed(nullptr, &tv, &completed[1]);
    }
    started = false;
}

int Transfer::Status(int channel) const { return xfr[channel]->status; }

// -------------------------------------------------------- CypressInterface

CypressInterface::CypressInterface(int serialNumber) : desiredSerialNumber(serialNumber) {
    cmd.Clear();
    flash_buf = AllocBuffer(QS_FLASH_PAGE_BYTES);
    threadRunning = true;
    threadHandle = std::thread(&CypressInterface::InterfaceThread, this);
    // Without the privilege the thread simply runs at normal priority.
    sched_param param{};
    param.sched_priority = sched_get_priority_max(SCHED_FIFO);
    pthread_setschedparam(threadHandle.native_handle(), SCHED_FIFO, &param);
    std::unique_lock<std::mutex> lock(mailboxMutex);
    mailboxChanged.wait(lock, [this] { return state.load() != USB_INITIALIZING; });
}

CypressInterface::~CypressInterface() {
    // A command still in the mailbox (the preset of a close-and-reopen, say)
    // goes out first: the thread takes it while it runs, and stopped at
    // once it dropped it about half the time.
    if (state.load() == USB_OPEN) WaitUntilSent();
    {
        std::lock_guard<std::mutex> lock(mailboxMutex);
        threadRunning = false;
    }
    mailboxChanged.notify_all();
    if (threadHandle.joinable()) threadHandle.join();
    std::free(flash_buf);
    flash_buf = nullptr;
    state = USB_CLOSED;
    deviceType = 0;
}

void CypressInterface::SetState(USBState next) {
    {
        std::lock_guard<std::mutex> lock(mailboxMutex);
        state = next;
    }
    mailboxChanged.notify_all();
}

void CypressInterface::InterfaceThread() {
    if (!OpenDevice()) {
        SetState(USB_CLOSED);
        return;
    }
    try {
        Init();
    } catch (const std::bad_alloc&) {
        // Nothing can be read without the buffers: give the device back.
        openDeviceList.erase(deviceIndex);
        CleanUp();
        SetState(USB_CLOSED);
        return;
    }
    SetState(USB_OPEN);
    Idle();
    CleanUp();
}

bool CypressInterface::OpenDevice() {
    if (!initialize_libusb()) return false;
    libusb_device** list = nullptr;
    const ssize_t count = libusb_get_device_list(nullptr, &list);
    if (count < 0) return false;
    bool found = false;
    for (deviceIndex = 0; deviceIndex < count; ++deviceIndex) {
        if (openDeviceList.count(deviceIndex)) continue;
        libusb_device* dev = list[deviceIndex];
        libusb_device_descriptor desc;
        if (libusb_get_device_descriptor(dev, &desc) != 0) continue;
        if (desc.idVendor != QS_USB_VENDOR_ID) continue;
        char text[kSerialBufferBytes];
        bool opened = false;
        const int n = ReadSerialString(dev, desc, text, &opened);
        if (!opened) continue;
        const int serial = n <= 0 ? 0 : n == 8 ? static_cast<int>(std::strtol(text, nullptr, 10)) : -1;
        if (serial != desiredSerialNumber) continue;
        if (libusb_open(dev, &usb_device.handle) != 0) continue;
        libusb_detach_kernel_driver(usb_device.handle, 0);
        if (libusb_claim_interface(usb_device.handle, 0) != 0) {
            libusb_close(usb_device.handle);
            usb_device.handle = nullptr;
            continue;
        }
        usb_device.dev = dev;
        usb_device.vid = desc.idVendor;
        usb_device.pid = desc.idProduct;
        usb_device.is_open = 1;
        usb_device.busnum = libusb_get_bus_number(dev);
        usb_device.devaddr = libusb_get_device_address(dev);
        found = true;
        break;
    }
    if (!found) {
        libusb_free_device_list(list, 1);
        return false;
    }
    libusb_kernel_driver_active(usb_device.handle, 0);
    switch (usb_device.pid) {
        case QS_PID_LARCH: deviceType = QS_DEVICE_TYPE_LARCH; break;
        case QS_PID_MAPLE_REV1: deviceType = QS_DEVICE_TYPE_MAPLE; mapleRev = 1; break;
        case QS_PID_MAPLE_REV2: deviceType = QS_DEVICE_TYPE_MAPLE; mapleRev = 2; break;
        default: break;  // a foreign product: the open is refused above us
    }
    openDeviceList.insert(deviceIndex);
    libusb_free_device_list(list, 1);
    return true;
}

void CypressInterface::Init() {
    dma1 = AllocBuffer(QS_TRANSFER_BYTES);
    dma2 = AllocBuffer(QS_TRANSFER_BYTES);
    for (auto& xfer : xfers) xfer = new Transfer(usb_device.handle, QS_USB_TIMEOUT_MS);
}

void CypressInterface::CleanUp() {
    if (state.load() == USB_OPEN) openDeviceList.erase(deviceIndex);
    for (auto& xfer : xfers)
        if (xfer) xfer->Retire();
    for (auto& xfer : xfers) {
        delete xfer;
        xfer = nullptr;
    }
    libusb_release_interface(usb_device.handle, 0);
    libusb_close(usb_device.handle);
    usb_device.handle = nullptr;
    std::free(dma1);
    std::free(dma2);
    dma1 = dma2 = nullptr;
}

void CypressInterface::AddCommand(const DeviceCommand& command) {
    {
        std::unique_lock<std::mutex> lock(mailboxMutex);
        mailboxChanged.wait(lock, [this] { return dmaState.commandsToStart.load() <= 0; });
        cmd = command;
        dmaState.commandsToStart.fetch_add(1, std::memory_order_release);
    }
    mailboxChanged.notify_all();
}

void CypressInterface::WaitUntilSent() {
    std::unique_lock<std::mutex> lock(mailboxMutex);
    mailboxChanged.wait(lock, [this] { return dmaState.commandsToStart.load() <= 0; });
}

void CypressInterface::WaitUntilIdle() {
    std::unique_lock<std::mutex> lock(mailboxMutex);
    mailboxChanged.wait(lock,
                        [this] { return dmaState.commandsToStart.load() <= 0 && idle.load(); });
}

void CypressInterface::Idle() {
    std::unique_lock<std::mutex> lock(mailboxMutex);
    while (threadRunning.load()) {
        idle = true;
        mailboxChanged.notify_all();
        mailboxChanged.wait(lock, [this] {
            return dmaState.commandsToStart.load() > 0 || !threadRunning.load();
        });
        if (!threadRunning.load()) break;
        // Out of idle before the command leaves the mailbox: see WaitUntilIdle.
        idle = false;
        lock.unlock();
        transfer_status = qsNoError;
        // Taken before the send: the next AddCommand may overwrite cmd as
        // soon as the mailbox count drops.
        const uint8_t headerType = cmd.headerType;
        const uint16_t commandType = cmd.commandType;
        const uint8_t settings0 = cmd.subBandArray[0].settings[0];
        const int blocks = CountedBlocks(cmd);
        SendCommand();
        if (headerType == QS_CMD_CAPTURE) {
            GetSweep(blocks);
        } else if (headerType == QS_CMD_READ_FLASH) {
            ReadFlashPage();
        } else if (headerType == QS_CMD_CONFIGURE) {
            if (commandType == QS_CFG_SWEEP || commandType == QS_CFG_TG_SWEEP) {
                GetSweep(blocks);
            } else if ((commandType == QS_CFG_STREAM && (settings0 & 0x3) == 0) ||
                       commandType == QS_CFG_STREAM_FORCE) {
                dmaState.dataToStart = -1;
                Streaming();
            }
        }
        lock.lock();
    }
}

void CypressInterface::SendCommand() {
    if (dmaState.commandsStarted > dmaState.commandsFinished) ++dmaState.commandsFinished;
    int sent = 0;
    // A lost command shows up as missing data, so the result is not judged.
    libusb_bulk_transfer(usb_device.handle, QS_EP_COMMAND, const_cast<uint8_t*>(cmd.Bytes()),
                         QS_COMMAND_BYTES, &sent, QS_USB_TIMEOUT_MS);
    ++dmaState.commandsStarted;
    {
        std::lock_guard<std::mutex> lock(mailboxMutex);
        dmaState.commandsToStart.fetch_sub(1, std::memory_order_release);
    }
    mailboxChanged.notify_all();
}

void CypressInterface::ReadFlashPage() {
    int got1 = 0, got2 = 0;
    libusb_bulk_transfer(usb_device.handle, QS_EP_CHANNEL1, dma1, QS_PACKET_BYTES, &got1,
                         QS_USB_TIMEOUT_MS);
    libusb_bulk_transfer(usb_device.handle, QS_EP_CHANNEL2, dma2, QS_PACKET_BYTES, &got2,
                         QS_USB_TIMEOUT_MS);
    if (got1 != QS_PACKET_BYTES || got2 != QS_PACKET_BYTES) transfer_status = qsDeviceConnectionErr;
    std::memcpy(flash_buf, dma1, QS_PACKET_BYTES);
    std::memcpy(flash_buf + QS_PACKET_BYTES, dma2, QS_PACKET_BYTES);
}

int CypressInterface::ReadTransfer() {
    int result = 0;
    for (int i = 0; i < QS_PACKETS_PER_CHANNEL; ++i) {
        int got = 0;
        const int r1 = libusb_bulk_transfer(usb_device.handle, QS_EP_CHANNEL1, dma1 + i * QS_PACKET_BYTES,
                                            QS_PACKET_BYTES, &got, QS_USB_TIMEOUT_MS);
        if (r1 != 0) result = r1;
        const int r2 = libusb_bulk_transfer(usb_device.handle, QS_EP_CHANNEL2, dma2 + i * QS_PACKET_BYTES,
                                            QS_PACKET_BYTES, &got, QS_USB_TIMEOUT_MS);
        if (r2 != 0) result = r2;
    }
    return result;
}

void CypressInterface::SubmitNext(bool streaming) {
    Transfer& xfer = *xfers[dmaState.dataStartedAccum % XFER_COUNT];
    int results[2];
    xfer.StartTransfer(results);
    if (results[0] != LIBUSB_ERROR_BUSY && results[1] != LIBUSB_ERROR_BUSY) {
        if (results[0] == 0 && results[1] == 0) {
            xfer.started = true;
        } else {
            const int first = results[0] != 0 ? results[0] : results[1];
            if (first == LIBUSB_ERROR_NO_DEVICE)
                transfer_status = qsDeviceConnectionErr;
            else if (streaming && first == LIBUSB_ERROR_IO)
                transfer_status = qsLibusbError;
        }
    }
    // Counted as started in every case, so that the engine receives the
    // whole planned run of blocks and its waiter is released.
    ++dmaState.dataStartedAccum;
}

void CypressInterface::WaitAndJudge(Transfer& xfer, bool judge) {
    if (!xfer.started) return;
    xfer.WaitForTransfer();
    if (!judge) return;
    int status = xfer.Status(0);
    if (status == LIBUSB_TRANSFER_COMPLETED) status = xfer.Status(1);
    if (status == LIBUSB_TRANSFER_NO_DEVICE)
        transfer_status = qsDeviceConnectionErr;
    else if (status != LIBUSB_TRANSFER_COMPLETED)
        transfer_status = qsUSBTimeoutErr;
}

void CypressInterface::GetSweep(int blocks) {
    if (dmaState.dataToStart > 0)
        dmaState.dataToStart += blocks;
    else
        dmaState.dataToStart = blocks;
    const int ppf = sink ? sink->PacketsPerStep() : 0;
    int index = 0;
    do {
        while (dmaState.dataStartedAccum - dmaState.dataFinishedAccum < XFER_COUNT &&
               dmaState.dataToStart > 0) {
            SubmitNext(false);
            --dmaState.dataToStart;
        }
        if (dmaState.dataStartedAccum == dmaState.dataFinishedAccum) break;
        Transfer& xfer = *xfers[dmaState.dataFinishedAccum % XFER_COUNT];
        WaitAndJudge(xfer, true);
        if (sink) index = sink->StoreData(xfer.DMA1(), xfer.DMA2(), ppf, index);
        ++dmaState.dataFinishedAccum;
    } while (dmaState.dataStartedAccum != dmaState.dataFinishedAccum);
}

void CypressInterface::Streaming() {
    for (;;) {
        while (dmaState.dataStartedAccum - dmaState.dataFinishedAccum < XFER_COUNT)
            SubmitNext(true);
        Transfer& xfer = *xfers[dmaState.dataFinishedAccum % XFER_COUNT];
        WaitAndJudge(xfer, true);
        if (sink) sink->StoreData(xfer.DMA1(), xfer.DMA2(), 0, 0);
        ++dmaState.dataFinishedAccum;

        if (dmaState.commandsToStart.load(std::memory_order_acquire) <= 0) continue;
        // With no sink attached nothing can say otherwise.
        if (sink && !sink->IsStreaming()) continue;
        // A waiting command that is not a stop is left for Idle to send; the
        // blocks in flight are finished by whatever read comes next.
        if ((cmd.subBandArray[0].settings[0] & 0x1) == 0) return;
        SendCommand();
        FlushBuffers();
        return;
    }
}

void CypressInterface::FlushBuffers() {
    bool cancel = false;
    while (dmaState.dataStartedAccum != dmaState.dataFinishedAccum) {
        Transfer& xfer = *xfers[dmaState.dataFinishedAccum % XFER_COUNT];
        if (cancel) xfer.CancelTransfer();
        WaitAndJudge(xfer, false);
        ++dmaState.dataFinishedAccum;
        if (xfer.Status(0) != 0 || xfer.Status(1) != 0 || cancel) continue;
        // After the block that echoes the stop the device sends nothing:
        // what is still in flight would only run into its time-out.
        if (BlockEndsStream(xfer.DMA1(), xfer.DMA2())) cancel = true;
    }
}

}  // namespace qs

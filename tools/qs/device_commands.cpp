// qs list and qs info, and the helpers every subcommand uses.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "commands.h"
#include "usb_access.h"

namespace qstool {

namespace {

std::string StatusLine(const std::string& what, qsStatus status) {
    return what + ": " + qsGetErrorString(status) + " (status " + std::to_string(status) + ")";
}

bool SerialIsListed(int serial) {
    int serials[QS_MAX_DEVICES];
    int count = 0;
    if (qsGetSerialNumberList(serials, &count) != qsNoError) return false;
    for (int i = 0; i < count; ++i)
        if (serials[i] == serial) return true;
    return false;
}

std::string Revision(int handle, int type) {
    int rev = 0;
    if (type == QS_DEVICE_TYPE_MAPLE && qsGetMapleRev(handle, &rev) == qsNoError)
        return std::to_string(rev);
    return "-";
}

// The device sends its monitor values with sample blocks only: one short
// sweep gives them. Whether it worked is all that matters here.
bool MeasureBriefly(int h) {
    constexpr double kCenterHz = 1e9, kSpanHz = 20e6, kRbwHz = 300e3;
    if (qsConfigureCenterSpan(h, kCenterHz, kSpanHz) < 0 ||
        qsConfigureSweepCoupling(h, kRbwHz, kRbwHz, QS_MIN_SWEEP_TIME, QS_RBW_SHAPE_NATIVE,
                                 QS_REJECTION_NONE) < 0 ||
        qsInitiate(h, QS_MODE_SWEEP, 0) < 0)
        return false;
    unsigned points = 0;
    double binHz = 0.0, startHz = 0.0;
    bool fetched = false;
    if (qsQueryTraceInfo(h, &points, &binHz, &startHz) == qsNoError) {
        // Each block carries one of the seven monitor values in turn, so a
        // few short sweeps bring temperature, voltage and current in.
        std::vector<double> low(points), high(points);
        for (int sweep = 0; sweep < 8; ++sweep) {
            fetched = qsFetchTrace(h, static_cast<int>(points), low.data(), high.data()) >= 0;
            float celsius = 0.0f, usbVolts = 0.0f, usbCurrent = 0.0f;
            qsGetDeviceDiagnostics(h, &celsius, &usbVolts, &usbCurrent);
            if (!fetched || (celsius != 0.0f && usbVolts != 0.0f && usbCurrent != 0.0f)) break;
        }
    }
    qsAbort(h);
    return fetched;
}

}  // namespace

bool CanCreate(const std::string& path, const std::string& option) {
    const size_t slash = path.find_last_of('/');
    const std::string folder = slash == std::string::npos ? "." : (slash == 0 ? "/" : path.substr(0, slash));
    if (access(folder.c_str(), W_OK) == 0) return true;
    std::fprintf(stderr, "qs: %s %s: %s\n", option.c_str(), path.c_str(), std::strerror(errno));
    return false;
}

int ReportError(const std::string& what, qsStatus status) {
    std::fprintf(stderr, "qs: %s\n", StatusLine(what, status).c_str());
    return kExitFailure;
}

void ReportWarning(const std::string& what, qsStatus status) {
    if (status > 0) std::fprintf(stderr, "qs: warning: %s\n", StatusLine(what, status).c_str());
}

const char* TypeName(int type) {
    switch (type) {
        case QS_DEVICE_TYPE_LARCH: return "Larch";
        case QS_DEVICE_TYPE_MAPLE: return "Maple";
        default: return "unknown";
    }
}

OpenAnalyser::~OpenAnalyser() {
    if (m_handle >= 0) qsCloseDevice(m_handle);
}

bool OpenAnalyser::Open(int serial) {
    const std::string what =
        serial < 0 ? std::string("opening the first analyser")
                   : "opening analyser " + std::to_string(serial);
    int handle = -1;
    const qsStatus status = qsOpenDeviceBySerialNumber(&handle, serial);
    if (status < 0) {
        std::string line = StatusLine(what, status);
        int serials[QS_MAX_DEVICES];
        int count = 0;
        if (serial >= 0 && !SerialIsListed(serial))
            line += "; no analyser with that serial number is attached (qs list shows them)";
        else if (serial < 0 && qsGetSerialNumberList(serials, &count) == qsNoError && count == 0)
            line += "; no analyser is attached";
        std::fprintf(stderr, "qs: %s\n", line.c_str());
        PrintAccessHint(FindBlockedAnalysers());
        return false;
    }
    m_handle = handle;
    ReportWarning(what, status);
    qsStatus s = qsGetDeviceType(handle, &m_type);
    if (s < 0) {
        ReportError("reading the device type", s);
        return false;
    }
    s = qsGetSerialNumber(handle, &m_serial);
    if (s < 0) {
        ReportError("reading the serial number", s);
        return false;
    }
    return true;
}

std::string OpenAnalyser::Name() const {
    char serial[16];
    std::snprintf(serial, sizeof serial, "%08u", m_serial);
    return std::string(TypeName(m_type)) + " " + serial;
}

int RunList() {
    int serials[QS_MAX_DEVICES];
    int count = 0;
    const qsStatus status = qsGetSerialNumberList(serials, &count);
    if (status < 0) return ReportError("listing the analysers", status);
    int result = 0;
    if (count > 0) std::printf("%-10s %-6s %s\n", "serial", "type", "revision");
    for (int i = 0; i < count; ++i) {
        // The list holds serial numbers only; the type and revision come
        // from the device itself.
        int handle = -1;
        const qsStatus open = qsOpenDeviceBySerialNumber(&handle, serials[i]);
        if (open < 0) {
            std::printf("%08d   ?      ?\n", serials[i]);
            result = ReportError("opening analyser " + std::to_string(serials[i]), open);
            continue;
        }
        int type = 0;
        qsGetDeviceType(handle, &type);
        std::printf("%08d   %-6s %s%s\n", serials[i], TypeName(type),
                    Revision(handle, type).c_str(),
                    open == qsUncalibratedDevice ? "  (uncalibrated)" : "");
        qsCloseDevice(handle);
    }
    const std::vector<BlockedDevice> blocked = FindBlockedAnalysers();
    if (count == 0 && blocked.empty()) std::printf("no analyser found\n");
    if (!blocked.empty()) {
        PrintAccessHint(blocked);
        result = kExitFailure;
    }
    return result;
}

int RunInfo(const Options& options) {
    OpenAnalyser analyser;
    if (!analyser.Open(options.serial)) return kExitFailure;
    const int h = analyser.Handle();

    int firmware = 0;
    qsStatus s = qsGetFirmwareVersion(h, &firmware);
    if (s < 0) return ReportError("reading the firmware version", s);
    float celsius = 0.0f, usbVolts = 0.0f, usbCurrent = 0.0f;
    s = qsGetDeviceDiagnostics(h, &celsius, &usbVolts, &usbCurrent);
    if (s < 0) return ReportError("reading the monitor values", s);
    if (celsius == 0.0f && usbVolts == 0.0f && usbCurrent == 0.0f && MeasureBriefly(h)) {
        s = qsGetDeviceDiagnostics(h, &celsius, &usbVolts, &usbCurrent);
        if (s < 0) return ReportError("reading the monitor values", s);
    }
    double ratio = 0.0;
    s = qsGetTimebaseCorrection(h, &ratio);
    if (s < 0) return ReportError("reading the time base", s);
    unsigned fpga = 0;
    s = qsGetFPGAid(h, &fpga);
    if (s < 0) return ReportError("reading the FPGA id", s);

    std::printf("serial number   %08u\n", analyser.Serial());
    std::printf("type            %s", TypeName(analyser.Type()));
    if (analyser.Type() == QS_DEVICE_TYPE_MAPLE)
        std::printf(", revision %s", Revision(h, analyser.Type()).c_str());
    std::printf("\nfirmware        %d\n", firmware);
    std::printf("FPGA id         0x%08x\n", fpga);
    // The device sends its monitor values with sample blocks only.
    const char* note = celsius == 0.0f && usbVolts == 0.0f && usbCurrent == 0.0f
                           ? "   (no reading yet: sent while the device measures)"
                           : "";
    std::printf("temperature     %.1f C%s\n", celsius, note);
    std::printf("USB voltage     %.2f V\n", usbVolts);
    std::printf("USB current     %.0f mA\n", usbCurrent);
    std::printf("time base       %.9f (%+.3f ppm)\n", ratio, (ratio - 1.0) * 1e6);
    std::printf("library         %s, product %s\n", qsGetAPIVersion(), qsGetProductID());
    return 0;
}

}  // namespace qstool

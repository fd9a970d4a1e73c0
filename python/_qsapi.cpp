// The C calls of libqs_api for Python, one for one: each returns its status
// (and what it reads), and the package above turns statuses into errors and
// warnings. Fetches write into numpy arrays that Python allocated, with the
// GIL released, so that other Python threads run while a fetch waits.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <optional>
#include <stdexcept>
#include <tuple>
#include <vector>

#include "qs_api.h"

namespace py = pybind11;

namespace {

using Release = py::call_guard<py::gil_scoped_release>;

// A call as Python sees it: the status as a plain int.
template <typename... A>
auto Int(qsStatus (*f)(A...)) {
    return [f](A... a) { return static_cast<int>(f(a...)); };
}

template <typename T>
T* Writable(py::array_t<T, py::array::c_style>& a, py::ssize_t atLeast, const char* what) {
    if (a.size() < atLeast) throw std::length_error(std::string(what) + ": the array is too small");
    return a.mutable_data();
}

template <typename T>
T* WritableOrNull(std::optional<py::array_t<T, py::array::c_style>>& a, py::ssize_t atLeast, const char* what) {
    return a ? Writable(*a, atLeast, what) : nullptr;
}

}  // namespace

PYBIND11_MODULE(_qsapi, m) {
    m.doc() = "The flat calls of libqs_api; use the qsapi package instead.";
    m.def("api_version", [] { return std::string(qsGetAPIVersion()); });
    m.def("error_string", [](int status) { return std::string(qsGetErrorString(static_cast<qsStatus>(status))); });
    m.def("serial_numbers", [] {
        int serials[QS_MAX_DEVICES] = {};
        int count = 0;
        const int st = qsGetSerialNumberList(serials, &count);
        return std::make_tuple(st, std::vector<int>(serials, serials + (st < 0 ? 0 : count)));
    }, Release());
    m.def("open", [](int serial) {
        int h = -1;
        const int st = serial < 0 ? qsOpenDevice(&h) : qsOpenDeviceBySerialNumber(&h, serial);
        return std::make_tuple(st, h);
    }, Release());
    m.def("close", Int(&qsCloseDevice), Release());
    m.def("preset", Int(&qsPreset), Release());

    m.def("configure_center_span", Int(&qsConfigureCenterSpan));
    m.def("configure_level", Int(&qsConfigureLevel));
    m.def("configure_gain", Int(&qsConfigureGain));
    m.def("configure_sweep_coupling", Int(&qsConfigureSweepCoupling));
    m.def("configure_window", Int(&qsConfigureWindow));
    m.def("configure_acquisition", Int(&qsConfigureAcquisition));
    m.def("configure_proc_units", Int(&qsConfigureProcUnits));
    m.def("configure_iq_center", Int(&qsConfigureIQCenter));
    m.def("configure_iq", Int(&qsConfigureIQ));
    m.def("configure_iq_data_type", [](int h, int type) { return static_cast<int>(qsConfigureIQDataType(h, static_cast<qsDataType>(type))); });
    m.def("configure_real_time", Int(&qsConfigureRealTime));
    m.def("configure_real_time_overlap", Int(&qsConfigureRealTimeOverlap));
    m.def("configure_io", Int(&qsConfigureIO));
    m.def("configure_demod", Int(&qsConfigureDemod));
    m.def("config_tg_sweep", Int(&qsConfigTgSweep));
    // Starting and stopping wait on the device: no GIL held.
    m.def("initiate", Int(&qsInitiate), Release());
    m.def("abort", Int(&qsAbort), Release());

    m.def("query_trace_info", [](int h) {
        unsigned len = 0;
        double bin = 0, start = 0;
        const int st = qsQueryTraceInfo(h, &len, &bin, &start);
        return std::make_tuple(st, len, bin, start);
    });
    m.def("fetch_trace", [](int h, py::array_t<double, py::array::c_style> low, py::array_t<double, py::array::c_style> high) {
        const py::ssize_t n = std::min(low.size(), high.size());
        double* lo = Writable(low, n, "min");
        double* hi = Writable(high, n, "max");
        py::gil_scoped_release free;
        return static_cast<int>(qsFetchTrace(h, static_cast<int>(n), lo, hi));
    });
    m.def("query_stream_info", [](int h) {
        int len = 0, sps = 0;
        double bw = 0;
        const int st = qsQueryStreamInfo(h, &len, &bw, &sps);
        return std::make_tuple(st, len, bw, sps);
    });
    // samples: complex64 (n,) or int16 (n, 2), as the data type configured.
    m.def("get_iq", [](int h, py::array samples, py::array_t<int, py::array::c_style> triggers, bool purge) {
        if (!(samples.flags() & py::array::c_style) || !samples.writeable())
            throw std::invalid_argument("samples: a writable contiguous array is needed");
        qsIQPacket pkt{};
        pkt.iqData = samples.mutable_data();
        pkt.iqCount = static_cast<int>(samples.dtype().itemsize() == 8 ? samples.size() : samples.size() / 2);
        pkt.triggers = triggers.size() > 0 ? triggers.mutable_data() : nullptr;
        pkt.triggerCount = static_cast<int>(triggers.size());
        pkt.purge = purge;
        int st = 0;
        {
            py::gil_scoped_release free;
            st = qsGetIQ(h, &pkt);
        }
        return std::make_tuple(st, pkt.sec, pkt.nano, pkt.sampleLoss != 0, pkt.dataRemaining);
    });
    m.def("iq_correction", [](int h) {
        float c = 0;
        const int st = qsGetIQCorrection(h, &c);
        return std::make_tuple(st, c);
    });
    m.def("fetch_audio", [](int h, py::array_t<float, py::array::c_style> out) {
        float* p = Writable(out, QS_AUDIO_SAMPLES, "audio");
        py::gil_scoped_release free;
        return static_cast<int>(qsFetchAudio(h, p));
    });
    m.def("query_real_time_info", [](int h) {
        int w = 0, ht = 0;
        const int st = qsQueryRealTimeInfo(h, &w, &ht);
        return std::make_tuple(st, w, ht);
    });
    m.def("fetch_real_time_frame", [](int h, py::array_t<float, py::array::c_style> low, py::array_t<float, py::array::c_style> high,
                                      py::array_t<float, py::array::c_style> frame,
                                      std::optional<py::array_t<float, py::array::c_style>> alpha) {
        int w = 0, ht = 0;
        unsigned len = 0;
        double bin = 0, start = 0;
        if (qsQueryRealTimeInfo(h, &w, &ht) < 0 || qsQueryTraceInfo(h, &len, &bin, &start) < 0)
            return static_cast<int>(qsDeviceNotConfiguredErr);
        float* lo = Writable(low, len, "min");
        float* hi = Writable(high, len, "max");
        float* fr = Writable(frame, static_cast<py::ssize_t>(w) * ht, "frame");
        float* al = WritableOrNull(alpha, static_cast<py::ssize_t>(w) * ht, "alpha");
        py::gil_scoped_release free;
        return static_cast<int>(qsFetchRealTimeFrame(h, lo, hi, fr, al));
    });
    m.def("query_real_time_poi", [](int h) {
        double poi = 0;
        const int st = qsQueryRealTimePoi(h, &poi);
        return std::make_tuple(st, poi);
    });

    m.def("device_type", [](int h) {
        int t = 0;
        const int st = qsGetDeviceType(h, &t);
        return std::make_tuple(st, t);
    });
    m.def("serial_number", [](int h) {
        unsigned s = 0;
        const int st = qsGetSerialNumber(h, &s);
        return std::make_tuple(st, s);
    });
    m.def("firmware_version", [](int h) {
        int v = 0;
        const int st = qsGetFirmwareVersion(h, &v);
        return std::make_tuple(st, v);
    });
    m.def("maple_rev", [](int h) {
        int r = 0;
        const int st = qsGetMapleRev(h, &r);
        return std::make_tuple(st, r);
    });
    m.def("diagnostics", [](int h) {
        float t = 0, v = 0, c = 0;
        const int st = qsGetDeviceDiagnostics(h, &t, &v, &c);
        return std::make_tuple(st, t, v, c);
    });
    m.def("get_timebase_correction", [](int h) {
        double r = 0;
        const int st = qsGetTimebaseCorrection(h, &r);
        return std::make_tuple(st, r);
    });
    m.def("set_timebase_correction", Int(&qsSetTimebaseCorrection));

    m.def("attach_tg", Int(&qsAttachTg), Release());
    m.def("is_tg_attached", [](int h) {
        bool a = false;
        const int st = qsIsTgAttached(h, &a);
        return std::make_tuple(st, a);
    });
    m.def("store_tg_thru", Int(&qsStoreTgThru), Release());
    m.def("set_tg", Int(&qsSetTg), Release());
    m.def("get_tg_freq_ampl", [](int h) {
        double f = 0, a = 0;
        const int st = qsGetTgFreqAmpl(h, &f, &a);
        return std::make_tuple(st, f, a);
    });
    m.def("set_tg_reference", Int(&qsSetTgReference));

    m.attr("AUDIO_SAMPLES") = QS_AUDIO_SAMPLES;
    m.attr("MAX_IQ_SAMPLE_RATE") = QS_MAX_IQ_SAMPLE_RATE;
}

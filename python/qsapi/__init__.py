"""The Larch and Maple real-time spectrum analysers, and the tracking
generator, from Python.

    import qsapi
    qsapi.simulate(devices="maple2:12345678", tones="1e9:-30")  # no hardware
    with qsapi.open() as a:
        f, low, high = a.sweep(0.99e9, 1.01e9, rbw=10e3)
        print(f[high.argmax()], high.max())

Levels are in dBm, frequencies in Hz, times in seconds. A call the library
refuses raises a subclass of ``qsapi.Error`` carrying the status and its
text; a call it carries out with a remark (a value clamped, data lost)
issues a ``qsapi.QsWarning`` through Python's ``warnings``. Every call that
waits on the device releases the GIL.
"""

import ctypes
import os
import warnings
from dataclasses import dataclass, field

import numpy as np

from . import _config

__all__ = [
    "simulate", "simulator", "list", "open", "Analyser", "IQStream", "IQBlock", "RealTimeStream", "Frame",
    "AudioStream", "Error", "DeviceError", "ParameterError", "ConnectionError_", "NotConfiguredError",
    "AllocationError", "QsWarning", "DataLossWarning", "version",
]

# Modes and constants of the C interface.
MODE_SWEEP, MODE_REAL_TIME, MODE_STREAMING, MODE_AUDIO, MODE_TG_SWEEP = 0, 1, 4, 7, 8
DEMODS = {"am": 0, "fm": 1, "usb": 2, "lsb": 3, "cw": 4}
ATTEN_AUTO, GAIN_AUTO = -1.0, -1
PORT_TRIGGER_IN, PORT1_EXT_REF = 0x40, 0x08
MAX_IQ_SAMPLE_RATE = 40e6

_lib = None          # the extension, loaded at the first call
_simulator = None    # the simulator library, once simulate() loaded it


class Error(Exception):
    """A call the library refused. ``status`` is the library's status code
    and ``text`` its description."""

    def __init__(self, status, text, what=""):
        self.status, self.text, self.what = status, text, what
        super().__init__(f"{what}: {text} (status {status})" if what else f"{text} (status {status})")


class DeviceError(Error):
    """No such device, not open, not idle or invalid."""


class ParameterError(Error, ValueError):
    """An argument out of range or of no meaning to the device."""


class ConnectionError_(Error, ConnectionError):
    """The device went away or stopped answering (unplugged, USB time-out)."""


class NotConfiguredError(Error):
    """The device is not in the mode the call needs (or no longer is)."""


class AllocationError(Error, MemoryError):
    """The measurement asked for more memory than the library will take."""


class QsWarning(UserWarning):
    """A call carried out with a remark: a value adjusted or clamped."""


class DataLossWarning(QsWarning):
    """Data were lost or spoilt: converter overload, a gap, a frame short of
    data."""


_PARAMETER = set(range(-112, -99)) | {-4, -7, -8, -11}
_CONNECTION = {-13, -14, -15, -18}
_NOT_CONFIGURED = {-2, -3, -5, -17}
_LOSS = {2, 7, 8}


def _error_class(status):
    if status in _PARAMETER:
        return ParameterError
    if status in _CONNECTION:
        return ConnectionError_
    if status in _NOT_CONFIGURED:
        return NotConfiguredError
    if status == -6:
        return AllocationError
    return DeviceError


def _check(status, what):
    """Raises for a refusal, warns for a remark; returns the status."""
    if status < 0:
        raise _error_class(status)(status, _library().error_string(status), what)
    if status > 0:
        category = DataLossWarning if status in _LOSS else QsWarning
        warnings.warn(f"{what}: {_library().error_string(status)} (status {status})", category, stacklevel=3)
    return status


def _library():
    global _lib
    if _lib is None:
        from . import _qsapi
        _lib = _qsapi
    return _lib


def simulate(devices="maple2:12345678", tones="1e9:-30", triggers=None, seed=None, generators=None):
    """Puts this process on the device simulator instead of USB, with the
    scene given as the strings of QS_SIM_DEVICES, QS_SIM_TONES,
    QS_SIM_TRIGGERS and QS_SIM_GENERATORS: ``devices="maple2:12345678,larch:10000001"``,
    ``tones="1e9:-30,2.4e9:-50"`` (Hz:dBm), ``triggers="0.01,0.05"`` (seconds
    into every I/Q stream), ``generators="tg1:12345:bandpass=9.9e8-1.01e9/4"``
    (tracking generators cabled to the first analyser, through a device
    under test). Must come before any other call of this package.
    """
    global _simulator
    if _simulator is not None:
        raise RuntimeError("qsapi.simulate() was called already")
    if _lib is not None:
        raise RuntimeError("qsapi.simulate() must come before any other qsapi call")
    os.environ["QS_SIM_DEVICES"] = devices
    os.environ["QS_SIM_TONES"] = tones or ""
    if triggers is not None:
        os.environ["QS_SIM_TRIGGERS"] = triggers
    if seed is not None:
        os.environ["QS_SIM_SEED"] = str(seed)
    if generators is not None:
        os.environ["QS_SIM_GENERATORS"] = generators
    # Loaded into the global scope before the library: the dynamic linker
    # binds a later-loaded object's undefined symbols to the global scope
    # first, so the library's libusb calls (and libftdi1's) bind to the
    # simulator's, not to the libusb-1.0 it was linked against; the same
    # effect as LD_PRELOAD, inside a process that is already running.
    path = _config.simulator_path()
    _simulator = ctypes.CDLL(path, mode=ctypes.RTLD_GLOBAL)
    _library()


def simulator():
    """The simulator's control calls (sim/qs_sim.h) as a ctypes library, for
    tests that unplug a device or inject faults; None when not simulating."""
    return _simulator


def version():
    """The library's version."""
    return _library().api_version()


def list():  # noqa: A001 - the name users look for
    """The serial numbers of the attached analysers."""
    status, serials = _library().serial_numbers()
    _check(status, "listing the analysers")
    return serials


def open(serial=None):  # noqa: A001
    """Opens an analyser (the first found when no serial number is given)
    and returns an Analyser; use it in a ``with`` block to close it."""
    return Analyser(serial)


def _rbw_for(span):
    return min(max(span / 1000.0, 10.0), 10.1e6)


class _Stream:
    """What every stream shares: iteration until stop(), and a with block
    that stops it."""

    _running = False

    def _next(self):
        raise NotImplementedError

    def __iter__(self):
        while self._running:
            yield self._next()

    def stop(self):
        """Stops the measurement; stopping twice is harmless."""
        if self._running:
            self._running = False
            _library().abort(self._a.handle)

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.stop()


@dataclass
class IQBlock:
    """What one read of an I/Q stream returns."""
    samples: np.ndarray          # complex64 (n,), or int16 (n, 2) for ci16
    time_ns: int                 # UTC of the first sample, ns since 1970
    triggers: np.ndarray         # positions in samples of external triggers
    lost: bool                   # samples were lost before this block
    remaining: int = 0           # samples still held by the library


class IQStream(_Stream):
    """An I/Q stream; ``read(n)`` returns an IQBlock, iteration gives blocks
    of ``block`` samples until ``stop()``."""

    def __init__(self, analyser, centre, sample_rate, bandwidth, dtype, block, trigger_input):
        self._a = analyser
        h = analyser.handle
        decimation = int(round(MAX_IQ_SAMPLE_RATE / sample_rate))
        if decimation < 1 or decimation & (decimation - 1) or abs(MAX_IQ_SAMPLE_RATE / decimation - sample_rate) > 1e-6:
            raise ParameterError(-4, "the sample rate must be 40 MS/s over a power of two", "iq")
        self.sample_rate = MAX_IQ_SAMPLE_RATE / decimation
        self.dtype = dtype
        self.block = block
        lib = _library()
        _check(lib.configure_iq_center(h, centre), "setting the I/Q centre")
        _check(lib.configure_iq(h, decimation, bandwidth if bandwidth else 0.8 * self.sample_rate), "setting the I/Q rate")
        _check(lib.configure_iq_data_type(h, 1 if dtype == "ci16" else 0), "setting the sample type")
        if trigger_input:
            _check(lib.configure_io(h, PORT_TRIGGER_IN, 0), "setting port 1 as trigger input")
        _check(lib.initiate(h, MODE_STREAMING, 0), "starting the stream")
        status, _, self.bandwidth, _ = lib.query_stream_info(h)
        _check(status, "asking for the stream")
        self.centre = centre
        self._running = True

    def read(self, n=None):
        """Reads n samples (``block`` by default), waiting for them."""
        n = n or self.block
        if not self._running:
            raise NotConfiguredError(-2, _library().error_string(-2), "reading a stopped stream")
        samples = np.empty((n, 2), np.int16) if self.dtype == "ci16" else np.empty(n, np.complex64)
        triggers = np.zeros(64, np.int32)
        status, sec, nano, lost, remaining = _library().get_iq(self._a.handle, samples, triggers, False)
        _check(status, "reading I/Q")
        if lost:
            warnings.warn("I/Q samples were lost before this block", DataLossWarning, stacklevel=2)
        return IQBlock(samples, sec * 1_000_000_000 + nano, triggers[triggers > 0].copy(), bool(lost), remaining)

    def _next(self):
        return self.read()


@dataclass
class Frame:
    """One real-time frame: traces over the frame's frequencies, and the
    persistence image as (levels, width), row 0 the lowest level."""
    frequencies: np.ndarray
    min: np.ndarray
    max: np.ndarray
    image: np.ndarray
    lost: bool = False


class RealTimeStream(_Stream):
    """Real-time frames; ``fetch()`` returns a Frame, iteration frames until
    ``stop()``."""

    def __init__(self, analyser, centre, span, rbw, ref, frame_range, frame_rate):
        self._a = analyser
        h, lib = analyser.handle, _library()
        _check(lib.configure_center_span(h, centre, span), "setting the span")
        _check(lib.configure_level(h, ref, ATTEN_AUTO), "setting the reference level")
        rbw = rbw or span / 200.0
        _check(lib.configure_sweep_coupling(h, rbw, rbw, 1e-3, 0, 0), "setting the RBW")
        _check(lib.configure_real_time(h, frame_range, frame_rate), "setting the frame")
        _check(lib.initiate(h, MODE_REAL_TIME, 0), "starting real-time frames")
        status, self.width, self.levels = lib.query_real_time_info(h)
        _check(status, "asking for the frame size")
        status, n, bin_hz, start = lib.query_trace_info(h)
        _check(status, "asking for the trace")
        self.frequencies = start + bin_hz * np.arange(n)
        self._running = True

    def fetch(self):
        lib = _library()
        low = np.empty(len(self.frequencies), np.float32)
        high = np.empty_like(low)
        image = np.empty((self.levels, self.width), np.float32)
        status = _check(lib.fetch_real_time_frame(self._a.handle, low, high, image, None), "fetching a frame")
        return Frame(self.frequencies, low, high, image, status in _LOSS)

    def _next(self):
        return self.fetch()


class AudioStream(_Stream):
    """Demodulated audio, 32 kHz mono; ``read()`` returns 4096 float32
    samples, iteration blocks until ``stop()``."""

    sample_rate = 32000

    def __init__(self, analyser, freq, demod, if_bandwidth, low_pass, high_pass, deemphasis):
        self._a = analyser
        if demod not in DEMODS:
            raise ParameterError(-4, f"demod must be one of {', '.join(DEMODS)}", "audio")
        defaults = {"fm": 200e3, "am": 10e3, "cw": 500.0}
        if_bandwidth = if_bandwidth or defaults.get(demod, 3e3)
        low_pass = low_pass or (12e3 if demod in ("am", "fm") else 3e3)
        lib = _library()
        _check(lib.configure_demod(analyser.handle, DEMODS[demod], freq, if_bandwidth, low_pass, high_pass, deemphasis),
               "setting the demodulation")
        _check(lib.initiate(analyser.handle, MODE_AUDIO, 0), "starting audio")
        self._running = True

    def read(self):
        out = np.empty(_library().AUDIO_SAMPLES, np.float32)
        _check(_library().fetch_audio(self._a.handle, out), "fetching audio")
        return out

    def _next(self):
        return self.read()


class Analyser:
    """An open analyser. Close it with ``close()`` or a ``with`` block."""

    def __init__(self, serial=None):
        status, self.handle = _library().open(-1 if serial is None else int(serial))
        _check(status, f"opening analyser {serial}" if serial is not None else "opening the first analyser")
        status, self.serial = _library().serial_number(self.handle)
        _check(status, "reading the serial number")
        status, t = _library().device_type(self.handle)
        _check(status, "reading the device type")
        self.model = {1: "Larch", 2: "Maple"}.get(t, "unknown")

    # -- life -----------------------------------------------------------
    def close(self):
        """Stops what runs and closes the device; closing twice is harmless."""
        if self.handle >= 0:
            _library().close(self.handle)
            self.handle = -1

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def __del__(self):
        try:
            self.close()
        except Exception:  # interpreter shutting down
            pass

    def __repr__(self):
        return f"<qsapi.Analyser {self.model} {self.serial:08d}{'' if self.handle >= 0 else ' closed'}>"

    def _h(self):
        if self.handle < 0:
            raise DeviceError(-1, _library().error_string(-1), "the analyser is closed")
        return self.handle

    # -- swept spectra ----------------------------------------------------
    def _configure_sweep(self, start, stop, rbw=None, ref=-20.0, vbw=None, atten=None, sweep_time=1e-3,
                         detector="minmax", window="nuttall"):
        h, lib = self._h(), _library()
        if not stop > start:
            raise ParameterError(-102, "stop must be above start", "sweep")
        rbw = rbw or _rbw_for(stop - start)
        _check(lib.configure_center_span(h, (start + stop) / 2.0, stop - start), "setting the span")
        _check(lib.configure_level(h, ref, ATTEN_AUTO if atten is None else atten), "setting the level")
        _check(lib.configure_sweep_coupling(h, rbw, vbw or rbw, sweep_time, 0, 0), "setting RBW and VBW")
        _check(lib.configure_window(h, {"nuttall": 0, "blackman": 1, "hamming": 2, "flattop": 3}[window]), "setting the window")
        _check(lib.configure_acquisition(h, {"minmax": 0, "average": 1}[detector], 0), "setting the detector")
        _check(lib.initiate(h, MODE_SWEEP, 0), "starting the sweep")
        status, n, bin_hz, first = lib.query_trace_info(h)
        _check(status, "asking for the trace")
        return n, first + bin_hz * np.arange(n)

    def sweep(self, start, stop, rbw=None, ref=-20.0, vbw=None, atten=None, sweep_time=1e-3, detector="minmax",
              window="nuttall"):
        """One sweep from start to stop (Hz): returns frequencies, min and max
        (dBm) as float64 arrays. RBW defaults to about a thousandth of the span."""
        n, freqs = self._configure_sweep(start, stop, rbw, ref, vbw, atten, sweep_time, detector, window)
        try:
            return (freqs,) + self._fetch_trace(n)
        finally:
            _library().abort(self.handle)

    def sweeps(self, start, stop, rbw=None, ref=-20.0, count=None, **kw):
        """Sweeps without end (or ``count`` of them): yields frequencies, min
        and max as ``sweep`` returns them; the other options are sweep's."""
        n, freqs = self._configure_sweep(start, stop, rbw, ref, **kw)
        try:
            done = 0
            while count is None or done < count:
                yield (freqs,) + self._fetch_trace(n)
                done += 1
        finally:
            if self.handle >= 0:
                _library().abort(self.handle)

    def _fetch_trace(self, n):
        low, high = np.empty(n), np.empty(n)
        _check(_library().fetch_trace(self._h(), low, high), "fetching the sweep")
        return low, high

    # -- streams ------------------------------------------------------------
    def iq(self, centre, sample_rate, bandwidth=None, dtype="cf32", block=16384, trigger_input=True):
        """Starts an I/Q stream at centre (Hz), sample_rate 40 MS/s / 2**k.
        cf32 samples are calibrated: 20*log10(abs(x)) is dBm for a tone.
        Port 1 is made a trigger input unless trigger_input is False."""
        return IQStream(self, centre, sample_rate, bandwidth, dtype, block, trigger_input)

    def realtime(self, centre, span=20e6, rbw=None, ref=-20.0, frame_range=100.0, frame_rate=30):
        """Starts real-time frames of up to 20 MHz."""
        return RealTimeStream(self, centre, span, rbw, ref, frame_range, frame_rate)

    def audio(self, freq, demod="fm", if_bandwidth=None, low_pass=None, high_pass=20.0, deemphasis=75.0):
        """Starts demodulated audio (am, fm, usb, lsb, cw) at freq."""
        return AudioStream(self, freq, demod, if_bandwidth, low_pass, high_pass, deemphasis)

    # -- the device ---------------------------------------------------------
    @property
    def firmware(self):
        status, v = _library().firmware_version(self._h())
        _check(status, "reading the firmware version")
        return v

    @property
    def revision(self):
        """The Maple's revision; None for a Larch."""
        if self.model != "Maple":
            return None
        status, r = _library().maple_rev(self._h())
        _check(status, "reading the revision")
        return r

    def diagnostics(self):
        """(temperature in C, USB voltage in V, USB current in mA): values the
        device sends while it measures (zeros before the first measurement)."""
        status, t, v, c = _library().diagnostics(self._h())
        _check(status, "reading the diagnostics")
        return t, v, c

    @property
    def timebase_correction(self):
        """The time base's frequency ratio (1.0 is exact), for this session."""
        status, r = _library().get_timebase_correction(self._h())
        _check(status, "reading the time base correction")
        return r

    @timebase_correction.setter
    def timebase_correction(self, ratio):
        _check(_library().set_timebase_correction(self._h(), ratio), "setting the time base correction")

    def abort(self):
        """Stops whatever measurement runs."""
        _check(_library().abort(self._h()), "stopping")

    # -- the tracking generator ---------------------------------------------
    def attach_tg(self):
        """Finds a tracking generator on USB and attaches it to this analyser."""
        _check(_library().attach_tg(self._h()), "attaching the tracking generator")

    def tg_attached(self):
        status, a = _library().is_tg_attached(self._h())
        _check(status, "asking for the tracking generator")
        return a

    def set_tg(self, frequency, amplitude):
        """Sets the generator's output (Hz, dBm)."""
        _check(_library().set_tg(self._h(), frequency, amplitude), "setting the tracking generator")

    def tg_output(self):
        """(frequency, amplitude) of the generator."""
        status, f, a = _library().get_tg_freq_ampl(self._h())
        _check(status, "reading the tracking generator")
        return f, a

    def set_tg_reference(self, reference):
        _check(_library().set_tg_reference(self._h(), reference), "setting the generator's reference")

    def store_tg_thru(self, flag):
        """Stores the through reference (1: 0 dB, 2: 20 dB pad) for network sweeps."""
        _check(_library().store_tg_thru(self._h(), flag), "storing the through reference")

    def tg_sweep(self, start, stop, points=100, high_dynamic_range=True, passive=True, ref=-20.0):
        """One tracking-generator sweep: frequencies, min and max (dB)."""
        h, lib = self._h(), _library()
        _check(lib.configure_center_span(h, (start + stop) / 2.0, stop - start), "setting the span")
        _check(lib.configure_level(h, ref, ATTEN_AUTO), "setting the level")
        _check(lib.config_tg_sweep(h, points, high_dynamic_range, passive), "setting the generator sweep")
        _check(lib.initiate(h, MODE_TG_SWEEP, 0), "starting the generator sweep")
        try:
            status, n, bin_hz, first = lib.query_trace_info(h)
            _check(status, "asking for the trace")
            return (first + bin_hz * np.arange(n),) + self._fetch_trace(n)
        finally:
            lib.abort(h)

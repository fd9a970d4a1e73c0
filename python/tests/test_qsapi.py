# The Python package on the simulator: values against the simulated scene,
# the stream's time, triggers and loss, errors and warnings, the context
# manager, the GIL, and an unplugged device ending a read.
import threading
import time

import numpy as np
import pytest

import qsapi
from conftest import LARCH, MAPLE, SPARE, SPARE_ID, TONE_DBM, TONE_HZ


@pytest.fixture(scope="module", params=[MAPLE, LARCH], ids=["maple", "larch"])
def analyser(request):
    with qsapi.open(request.param) as a:
        yield a


def test_the_scene_is_listed_and_each_device_knows_itself():
    assert sorted(qsapi.list()) == sorted([MAPLE, LARCH, SPARE])
    with qsapi.open(MAPLE) as m, qsapi.open(LARCH) as l:
        assert (m.model, m.serial, m.revision) == ("Maple", MAPLE, 2)
        assert (l.model, l.serial, l.revision) == ("Larch", LARCH, None)
        assert m.firmware > 0 and abs(m.timebase_correction - 1.0) < 1e-4
    assert qsapi.version().count(".") == 2


def test_a_sweep_peaks_at_the_tone(analyser):
    f, low, high = analyser.sweep(TONE_HZ - 5e6, TONE_HZ + 5e6, rbw=30e3)
    assert f.dtype == low.dtype == high.dtype == np.float64 and f.shape == high.shape
    peak = high.argmax()
    assert abs(f[peak] - TONE_HZ) <= (f[1] - f[0]) / 2
    assert abs(high[peak] - TONE_DBM) < 1.0
    assert np.all(low <= high)
    sweeps = list(analyser.sweeps(TONE_HZ - 5e6, TONE_HZ + 5e6, rbw=30e3, count=3))
    assert len(sweeps) == 3 and all(abs(s[2].max() - TONE_DBM) < 1.0 for s in sweeps)


# The tone 1 MHz above the centre, found with numpy's FFT at its frequency
# and level; reads dated a sample period apart; the simulator's triggers at
# 10 and 30 ms into the stream, 200000 samples apart at 10 MS/s.
def test_iq_holds_the_tone_and_dates_and_marks_its_samples(analyser):
    rate, n = 10e6, 1 << 16
    with analyser.iq(TONE_HZ - 1e6, rate) as s:
        assert s.sample_rate == rate
        blocks = [s.read(n) for _ in range(8)]
    x = blocks[3].samples
    assert x.dtype == np.complex64 and x.shape == (n,)
    spectrum = np.abs(np.fft.fft(x * np.hanning(n))) / np.hanning(n).sum()
    peak = spectrum.argmax()
    assert abs(np.fft.fftfreq(n, 1 / rate)[peak] - 1e6) <= rate / n
    assert abs(20 * np.log10(spectrum[peak - 2:peak + 3].max()) - TONE_DBM) < 1.5
    steps = np.diff([b.time_ns for b in blocks])
    assert np.all(np.abs(steps - n / rate * 1e9) < 1000), steps
    assert abs(blocks[0].time_ns / 1e9 - time.time()) < 5
    triggers = np.concatenate([b.triggers + i * n for i, b in enumerate(blocks)])
    assert len(triggers) == 2 and triggers[1] - triggers[0] == 200000, triggers
    assert 100000 <= triggers[0] <= 100300


def test_sixteen_bit_samples_and_realtime_frames_and_audio(analyser):
    with analyser.iq(TONE_HZ, 5e6, dtype="ci16") as s:
        b = s.read(4096)
        assert b.samples.dtype == np.int16 and b.samples.shape == (4096, 2)
        assert np.abs(b.samples).max() > 100
    with analyser.realtime(TONE_HZ, 20e6) as rt:
        frame = rt.fetch()
        assert frame.image.shape == (rt.levels, rt.width) == (256, rt.width)
        assert abs(frame.frequencies[frame.max.argmax()] - TONE_HZ) < 100e3
    with analyser.audio(TONE_HZ - 1000, "usb", if_bandwidth=3e3) as audio:
        block = audio.read()
        assert block.dtype == np.float32 and block.shape == (4096,)


def test_refusals_are_errors_with_status_and_text_and_remarks_are_warnings():
    with pytest.raises(qsapi.DeviceError) as no_such:
        qsapi.open(99999999)
    assert no_such.value.status == -1 and no_such.value.text and "99999999" in str(no_such.value)
    with qsapi.open(MAPLE) as a:
        with pytest.raises(qsapi.ParameterError) as bad:
            a.sweep(2e9, 1e9)
        assert bad.value.status < 0
        with pytest.raises(qsapi.ParameterError):
            a.iq(1e9, 3e6)
        with pytest.raises(qsapi.ParameterError):
            a.sweep(1e9, 1.1e9, rbw=float("nan"))
        with pytest.warns(qsapi.QsWarning):
            a.sweep(1e9, 1.01e9, ref=60.0)  # the Maple clamps the reference


def test_the_context_manager_closes_on_an_exception():
    with pytest.raises(RuntimeError):
        with qsapi.open(MAPLE) as a:
            raise RuntimeError("in the block")
    assert a.handle == -1
    with pytest.raises(qsapi.DeviceError):
        a.sweep(1e9, 1.01e9)
    with qsapi.open(MAPLE) as again:  # the device was given back
        assert again.serial == MAPLE


def test_other_threads_run_while_a_read_waits():
    counts = []
    stop = threading.Event()

    def count():
        n = 0
        while not stop.is_set():
            n += 1
        counts.append(n)

    with qsapi.open(MAPLE) as a, a.iq(TONE_HZ, 40e6 / 64) as s:
        s.read(1024)
        t = threading.Thread(target=count)
        t.start()
        started = time.monotonic()
        s.read(312500)  # half a second of samples
        waited = time.monotonic() - started
        stop.set()
        t.join()
    assert waited > 0.3
    assert counts[0] > 10000, "the counting thread was held while the read waited"


def test_an_unplugged_device_ends_a_read_with_an_error():
    with qsapi.open(SPARE) as a:
        s = a.iq(TONE_HZ, 10e6)
        s.read(1024)
        qsapi.simulator().qssim_remove_device(SPARE_ID)
        started = time.monotonic()
        with pytest.raises(qsapi.Error):
            for _ in range(1000):
                s.read(1 << 16)
        assert time.monotonic() - started < 10

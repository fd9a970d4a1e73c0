# Streams from the simulated Maple through SoapySDR's own Python binding and
# finds the simulated tone (100 kHz above the centre) within one FFT bin,
# with time stamps a read apart.
import sys

import numpy as np
import SoapySDR
from SoapySDR import SOAPY_SDR_CF32, SOAPY_SDR_HAS_TIME, SOAPY_SDR_RX

RATE, CENTRE, TONE, N = 10e6, 1.0e9, 1.0001e9, 1 << 16

sdr = SoapySDR.Device(dict(driver="qs", serial="12345678"))
sdr.setSampleRate(SOAPY_SDR_RX, 0, RATE)
sdr.setFrequency(SOAPY_SDR_RX, 0, CENTRE)
stream = sdr.setupStream(SOAPY_SDR_RX, SOAPY_SDR_CF32, [0])
sdr.activateStream(stream)
buf = np.empty(N, np.complex64)
got, times = 0, []
while got < N:
    chunk = np.empty(sdr.getStreamMTU(stream), np.complex64)
    r = sdr.readStream(stream, [chunk], len(chunk), timeoutUs=1000000)
    if r.ret < 0:
        sys.exit(f"readStream: {r.ret}")
    assert r.flags & SOAPY_SDR_HAS_TIME, r
    times.append((r.timeNs, r.ret))
    take = min(r.ret, N - got)
    buf[got:got + take] = chunk[:take]
    got += take
sdr.deactivateStream(stream)
sdr.closeStream(stream)

for (t0, n0), (t1, _) in zip(times, times[1:]):
    assert abs((t1 - t0) - n0 / RATE * 1e9) < 1000, (t0, n0, t1)
spectrum = np.abs(np.fft.fft(buf * np.hanning(N)))
peak_hz = np.fft.fftfreq(N, 1 / RATE)[spectrum.argmax()] + CENTRE
bin_hz = RATE / N
print(f"peak at {peak_hz:.1f} Hz, tone at {TONE:.1f} Hz, bin {bin_hz:.1f} Hz")
assert abs(peak_hz - TONE) <= bin_hz, "the peak is not at the tone"

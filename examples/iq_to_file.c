/* A second of I/Q at 1.5 GHz, 10 MS/s, into iq.cf32 (interleaved float
 * pairs); lost samples are told on standard error. */
#include <stdio.h>

#include <qs_api.h>

enum { kRead = 16384 };

int main(void) {
    int h = -1;
    qsStatus s = qsOpenDevice(&h);
    if (s < 0) {
        fprintf(stderr, "open: %s\n", qsGetErrorString(s));
        return 1;
    }
    qsConfigureIQCenter(h, 1.5e9);
    qsConfigureIQ(h, 4, 8e6); /* 40 MS/s / 4 */
    s = qsInitiate(h, QS_MODE_STREAMING, 0);
    if (s < 0) {
        fprintf(stderr, "initiate: %s\n", qsGetErrorString(s));
        return 1;
    }
    FILE* out = fopen("iq.cf32", "wb");
    if (!out) return 1;
    static float iq[2 * kRead];
    for (int got = 0; got < 10000000; got += kRead) {
        qsIQPacket pkt = {0};
        pkt.iqData = iq;
        pkt.iqCount = kRead;
        if (qsGetIQ(h, &pkt) < 0) break;
        if (pkt.sampleLoss) fprintf(stderr, "samples lost before sample %d\n", got);
        fwrite(iq, sizeof(float), 2 * kRead, out);
    }
    fclose(out);
    qsCloseDevice(h);
    return 0;
}

/* One sweep of 88 to 108 MHz from the first analyser, as CSV on standard
 * output: frequency in Hz, level in dBm. */
#include <stdio.h>
#include <stdlib.h>

#include <qs_api.h>

static int fail(const char* what, qsStatus status) {
    fprintf(stderr, "%s: %s\n", what, qsGetErrorString(status));
    return 1;
}

int main(void) {
    int h = -1;
    qsStatus s = qsOpenDevice(&h);
    if (s < 0) return fail("open", s);
    qsConfigureCenterSpan(h, 98e6, 20e6);
    qsConfigureLevel(h, -20.0, QS_ATTEN_AUTO);
    qsConfigureSweepCoupling(h, 30e3, 30e3, 0.001, QS_RBW_SHAPE_NATIVE, QS_REJECTION_NONE);
    s = qsInitiate(h, QS_MODE_SWEEP, 0);
    if (s < 0) return fail("initiate", s);
    unsigned int points = 0;
    double bin = 0.0, start = 0.0;
    qsQueryTraceInfo(h, &points, &bin, &start);
    double* low = malloc(points * sizeof *low);
    double* high = malloc(points * sizeof *high);
    s = qsFetchTrace(h, (int)points, low, high);
    if (s < 0) return fail("fetch", s);
    printf("frequency_hz,dbm\n");
    for (unsigned int i = 0; i < points; ++i) printf("%.3f,%.2f\n", start + i * bin, high[i]);
    free(low);
    free(high);
    qsCloseDevice(h);
    return 0;
}

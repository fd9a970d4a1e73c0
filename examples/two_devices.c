/* Every attached analyser at once: each sweeps 2.4 to 2.5 GHz and the
 * strongest point of each is printed. */
#include <stdio.h>
#include <stdlib.h>

#include <qs_api.h>

int main(void) {
    int serials[QS_MAX_DEVICES], count = 0, handles[QS_MAX_DEVICES];
    qsGetSerialNumberList(serials, &count);
    if (count == 0) {
        fprintf(stderr, "no analyser found\n");
        return 1;
    }
    for (int d = 0; d < count; ++d) {
        if (qsOpenDeviceBySerialNumber(&handles[d], serials[d]) < 0) return 1;
        qsConfigureCenterSpan(handles[d], 2.45e9, 100e6);
        qsConfigureSweepCoupling(handles[d], 100e3, 100e3, 0.001, QS_RBW_SHAPE_NATIVE, QS_REJECTION_NONE);
        qsInitiate(handles[d], QS_MODE_SWEEP, 0); /* all measure at once */
    }
    for (int d = 0; d < count; ++d) {
        unsigned int points = 0;
        double bin = 0.0, start = 0.0;
        qsQueryTraceInfo(handles[d], &points, &bin, &start);
        double* low = malloc(points * sizeof *low);
        double* high = malloc(points * sizeof *high);
        if (qsFetchTrace(handles[d], (int)points, low, high) >= 0) {
            unsigned int peak = 0;
            for (unsigned int i = 1; i < points; ++i)
                if (high[i] > high[peak]) peak = i;
            printf("%08d: %.6f MHz at %.1f dBm\n", serials[d], (start + peak * bin) / 1e6, high[peak]);
        }
        free(low);
        free(high);
        qsCloseDevice(handles[d]);
    }
    return 0;
}

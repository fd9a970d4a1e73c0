#include "dsp/trigger_search.h"

namespace qs {

int find_rising_trigger(const float* arr, float t, int len) {
    int i = 0;
    while (i < len && arr[i] >= t) ++i;
    while (i < len && !(arr[i] > t)) ++i;
    return i < len ? i : 0;
}

int find_falling_trigger(const float* arr, float t, int len) {
    int i = 0;
    while (i < len && arr[i] <= t) ++i;
    while (i < len && !(arr[i] < t)) ++i;
    return i < len ? i : 0;
}

}  // namespace qs

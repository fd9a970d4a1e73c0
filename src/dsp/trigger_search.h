// Level triggers over a block of float samples. Reentrant.
#pragma once

namespace qs {

// Index of the first element above t that follows an element below t (a
// leading run at or above t is passed over). Strict comparisons. 0 means
// not found, and is the result for len below 1.
int find_rising_trigger(const float* arr, float t, int len);
// The same with above and below exchanged.
int find_falling_trigger(const float* arr, float t, int len);

}  // namespace qs

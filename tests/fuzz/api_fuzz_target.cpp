// libFuzzer's entry to the public-call fuzzer.
#include <cstddef>
#include <cstdint>

#include "api_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    apifuzz::RunBytes(data, size);
    return 0;
}

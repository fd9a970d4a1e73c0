// The interpreter of the public-call fuzzer (api_fuzz.cpp), shared by the
// libFuzzer target and the seeded runner.
#pragma once

#include <cstddef>
#include <cstdint>

namespace apifuzz {

// Runs the calls that the bytes describe on two fresh simulated analysers,
// closes them and checks that nothing of them is left. Aborts, with the last
// calls printed, on a call that blocks beyond its budget.
void RunBytes(const uint8_t* data, size_t size);

// The same for `calls` calls chosen by a generator from `seed`.
void RunSeed(uint64_t seed, long calls);

}  // namespace apifuzz

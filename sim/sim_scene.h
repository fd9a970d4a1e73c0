// What the antenna of a simulated device receives.
#pragma once

#include <vector>

namespace qssim {

struct Tone {
    double freqHz;
    double levelDbm;
};

struct Scene {
    std::vector<Tone> tones;
    double noiseDbmPerHz = -165.0;  // a little above thermal noise
};

}  // namespace qssim

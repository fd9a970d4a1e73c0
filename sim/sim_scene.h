// What the antenna of a simulated device receives.
#pragma once

#include <cstdint>
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

// A source cabled to the input: a tracking generator through a device under
// test. Called with the world's lock held.
class Stimulus {
public:
    virtual ~Stimulus() = default;
    // The analyser starts the points of a generator sweep.
    virtual void BeginSweepRun() = 0;
    // What reaches the input during point `point` of a generator sweep run
    // (point >= 0), or now (point < 0); false for nothing.
    virtual bool ToneAt(int64_t point, Tone* tone) = 0;
};

}  // namespace qssim

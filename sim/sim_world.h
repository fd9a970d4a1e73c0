// The simulator's world: every plugged device, behind one lock.
//
// The lock is the simulator's own (it is test equipment, not the data path);
// the condition variable wakes USB waiters whenever a device may have data,
// a transfer was cancelled or a device was unplugged.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

#include "sim_bridge.h"
#include "sim_device.h"

namespace qssim {

// The device under test between a generator and an analyser: a through,
// or a Butterworth low-pass (cut-off f1) or band-pass (f1 to f2) whose
// low-pass prototype has `order` poles, plus a flat loss.
struct Dut {
    int kind = 0;  // QSSIM_DUT_...
    double f1 = 0.0, f2 = 0.0;
    int order = 1;
    double lossDb = 0.0;
    double GainDb(double hz) const;
};

// A generator's output cable: through its device under test to the input
// of one analyser (analyser -1: to nothing).
class Cable : public Stimulus {
public:
    explicit Cable(SimBridge* bridge) : m_bridge(bridge) {}
    void BeginSweepRun() override;
    bool ToneAt(int64_t point, Tone* tone) override;

    int analyser = -1;
    Dut dut;

private:
    SimBridge* m_bridge;
};

struct World {
    std::mutex lock;
    std::condition_variable changed;
    // Indexed by device id; unplugged devices stay, marked, so that handles
    // to them keep failing as "no device".
    std::vector<std::unique_ptr<SimDevice>> devices;
    // Generators by id, with their cables (the same index); kept when
    // unplugged, as devices are.
    std::vector<std::unique_ptr<SimBridge>> generators;
    std::vector<std::unique_ptr<Cable>> cables;
    bool initFailure = false;
    // Every device's clock runs this many times slower than the instrument's
    // (QS_SIM_SLOWDOWN, qssim_set_slowdown).
    double slowdown = 1.0;
    // The noise of every run of every device follows from it
    // (QS_SIM_SEED, qssim_set_seed); different in each process unless set.
    uint64_t seed = 0;
};

// The world, set up from QS_SIM_DEVICES and QS_SIM_TONES on first use unless
// a control call came first. Take world.lock before touching it.
World& GetWorld();

// Marks that a control call has set the scene, so the environment is ignored.
void TakeControl();

}  // namespace qssim

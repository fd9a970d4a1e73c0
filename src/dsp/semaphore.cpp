#include "dsp/semaphore.h"

namespace qs {

semaphore::~semaphore() { cv.notify_all(); }

void semaphore::notify() {
    std::lock_guard<std::mutex> lock(m);
    if (!set) {
        set = true;
        cv.notify_all();
    }
}

void semaphore::wait() {
    std::unique_lock<std::mutex> lock(m);
    cv.wait(lock, [this] { return set; });
    set = false;
}

}  // namespace qs

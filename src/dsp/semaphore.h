// The binary semaphore the engines' workers wait on.
#pragma once

#include <condition_variable>
#include <mutex>

namespace qs {

// One bit, not a counter: notifications before a wait collapse into one,
// and of several waiters one goes on per notification.
class semaphore {
public:
    semaphore() = default;
    ~semaphore();
    semaphore(const semaphore&) = delete;
    semaphore& operator=(const semaphore&) = delete;

    void notify();
    void wait();

private:
    std::mutex m;
    std::condition_variable cv;
    bool set = false;
};

}  // namespace qs

// What every measuring subcommand shares: Ctrl-C taken on a thread of its
// own, a progress line on a terminal, output to a file or standard output,
// and the clocks a run is timed by.
#pragma once

#include <time.h>

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <functional>
#include <mutex>
#include <signal.h>
#include <string>
#include <thread>

namespace qstool {

// SIGINT is blocked before the analyser opens, so no thread of the library,
// which inherits the mask, is interrupted in a USB wait. The first Ctrl-C
// asks for a stop (the subcommand finishes what it holds and closes its
// files); the second ends the program at once.
class InterruptWatch {
public:
    // tell: the text shown at the first Ctrl-C, or empty for none.
    explicit InterruptWatch(std::string tell);
    ~InterruptWatch();
    InterruptWatch(const InterruptWatch&) = delete;
    InterruptWatch& operator=(const InterruptWatch&) = delete;
    bool Interrupted() const { return m_interrupted.load(); }

private:
    void Run();

    const std::string m_tell;
    sigset_t m_set;
    std::atomic<bool> m_stop{false};
    std::atomic<bool> m_interrupted{false};
    std::thread m_thread;
};

// Once a second, after the first second, the line that describe() gives.
class ProgressLine {
public:
    ProgressLine(bool enabled, std::function<std::string(double seconds)> describe);
    ~ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

private:
    void Run();

    std::function<std::string(double)> m_describe;
    std::mutex m_lock;
    std::condition_variable m_wake;
    bool m_stop = false;
    bool m_shown = false;
    std::thread m_thread;
};

// Whether a progress line belongs on standard error: it is a terminal, and
// standard output is not the same terminal being written to.
bool ShowProgress(bool outputIsStdout);

// Opens path for writing, "-" or empty meaning standard output (returned
// as-is). On failure reports "qs: OPTION PATH: reason" and returns null.
FILE* OpenOutput(const std::string& option, const std::string& path, const char* mode = "wb");
void CloseOutput(FILE* file);

timespec UtcNow();
double MonotonicSeconds();

}  // namespace qstool

#include "run_control.h"

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "commands.h"

namespace qstool {

InterruptWatch::InterruptWatch(std::string tell) : m_tell(std::move(tell)) {
    sigemptyset(&m_set);
    sigaddset(&m_set, SIGINT);
    pthread_sigmask(SIG_BLOCK, &m_set, nullptr);
    m_thread = std::thread([this] { Run(); });
}

InterruptWatch::~InterruptWatch() {
    m_stop = true;
    m_thread.join();
}

void InterruptWatch::Run() {
    const timespec poll{0, 100 * 1000 * 1000};
    while (!m_stop.load()) {
        if (sigtimedwait(&m_set, nullptr, &poll) != SIGINT) continue;
        if (m_interrupted.exchange(true)) {
            std::fputs("\nqs: aborted\n", stderr);
            _exit(kExitAborted);
        }
        if (!m_tell.empty()) std::fprintf(stderr, "\r\033[Kqs: %s (Ctrl-C again aborts)\n", m_tell.c_str());
    }
}

ProgressLine::ProgressLine(bool enabled, std::function<std::string(double)> describe)
    : m_describe(std::move(describe)) {
    if (enabled) m_thread = std::thread([this] { Run(); });
}

ProgressLine::~ProgressLine() {
    if (!m_thread.joinable()) return;
    {
        std::lock_guard<std::mutex> hold(m_lock);
        m_stop = true;
    }
    m_wake.notify_all();
    m_thread.join();
    if (m_shown) std::fputs("\r\033[K", stderr);
}

void ProgressLine::Run() {
    const double start = MonotonicSeconds();
    std::unique_lock<std::mutex> hold(m_lock);
    while (!m_wake.wait_for(hold, std::chrono::seconds(1), [this] { return m_stop; })) {
        std::fprintf(stderr, "\r\033[Kqs: %s", m_describe(MonotonicSeconds() - start).c_str());
        std::fflush(stderr);
        m_shown = true;
    }
}

bool ShowProgress(bool outputIsStdout) {
    return isatty(STDERR_FILENO) && !(outputIsStdout && isatty(STDOUT_FILENO));
}

FILE* OpenOutput(const std::string& option, const std::string& path, const char* mode) {
    if (path.empty() || path == "-") return stdout;
    FILE* file = std::fopen(path.c_str(), mode);
    if (!file) std::fprintf(stderr, "qs: %s %s: %s\n", option.c_str(), path.c_str(), std::strerror(errno));
    return file;
}

void CloseOutput(FILE* file) {
    if (file && file != stdout) std::fclose(file);
}

timespec UtcNow() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now;
}

double MonotonicSeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace qstool

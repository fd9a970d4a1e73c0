// The subcommands that talk to the library, and what they share: one line
// per library status, and the opening of an analyser.
#pragma once

#include <string>

#include "core/options.h"
#include "qs_api.h"

namespace qstool {

// Exit codes: 0 done, 1 the library or a file said no, 2 bad arguments,
// 130 aborted by a second Ctrl-C.
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr int kExitAborted = 130;

// "qs: <what>: <status text> (status <n>)" on standard error; returns
// kExitFailure.
int ReportError(const std::string& what, qsStatus status);

// The same line as a warning, for a positive status; nothing for success.
void ReportWarning(const std::string& what, qsStatus status);

// One set-up call and what it does, for RunSteps.
struct Step {
    std::string what;
    qsStatus status;
};

// Reports the first refusal among steps (false), and the remarks before it.
template <size_t N>
bool RunSteps(const Step (&steps)[N]) {
    for (const Step& step : steps) {
        if (step.status < 0) {
            ReportError(step.what, step.status);
            return false;
        }
        ReportWarning(step.what, step.status);
    }
    return true;
}

// "Maple" or "Larch".
const char* TypeName(int type);

// An open analyser, closed when this goes.
class OpenAnalyser {
public:
    OpenAnalyser() = default;
    ~OpenAnalyser();
    OpenAnalyser(const OpenAnalyser&) = delete;
    OpenAnalyser& operator=(const OpenAnalyser&) = delete;

    // Opens by serial number (-1: the first found). On failure reports it,
    // with the access hint when that is the cause, and returns false.
    bool Open(int serial);

    int Handle() const { return m_handle; }
    int Type() const { return m_type; }
    unsigned Serial() const { return m_serial; }
    // "Maple 12345678".
    std::string Name() const;

private:
    int m_handle = -1;
    int m_type = 0;
    unsigned m_serial = 0;
};

// Whether a file can be made at path (its folder exists and may be written
// to), so that a bad name is told before a measurement rather than after.
// Reports "qs: OPTION PATH: reason" when not.
bool CanCreate(const std::string& path, const std::string& option);

int RunList();
int RunInfo(const Options& options);
int RunSweep(const Options& options);
int RunIq(const Options& options);
int RunAudio(const Options& options);
int RunRealtime(const Options& options);
int RunTg(const Options& options);

}  // namespace qstool

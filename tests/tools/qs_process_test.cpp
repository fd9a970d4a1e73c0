// The built qs program, run as a person runs it, with --simulate: what it
// prints, what it writes, and how it exits.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <time.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "qs_api.h"

extern char** environ;

namespace {

struct Result {
    int exitCode = -1;  // -1: ended by a signal
    std::string out, err;
};

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// The caller's environment without any simulator scene, plus extra.
std::vector<std::string> ChildEnvironment(const std::vector<std::string>& extra) {
    std::vector<std::string> env;
    for (char** e = environ; *e; ++e) {
        const std::string item = *e;
        if (item.rfind("QS_SIM_", 0) == 0 || item.rfind("LD_PRELOAD=", 0) == 0) continue;
        env.push_back(item);
    }
    env.insert(env.end(), extra.begin(), extra.end());
    return env;
}

std::vector<char*> Pointers(std::vector<std::string>& items) {
    std::vector<char*> p;
    for (auto& s : items) p.push_back(s.data());
    p.push_back(nullptr);
    return p;
}

class Child {
public:
    Child(std::vector<std::string> args, const std::vector<std::string>& extraEnv) {
        static int serial = 0;
        const std::string base = ::testing::TempDir() + "qs_" + std::to_string(getpid()) + "_" +
                                 std::to_string(++serial);
        m_outPath = base + ".out";
        m_errPath = base + ".err";
        args.insert(args.begin(), QS_TOOL_PATH);
        std::vector<std::string> env = ChildEnvironment(extraEnv);
        std::vector<char*> argv = Pointers(args), envp = Pointers(env);
        const int out = open(m_outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const int err = open(m_errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        m_pid = fork();
        if (m_pid == 0) {
            dup2(out, STDOUT_FILENO);
            dup2(err, STDERR_FILENO);
            execve(QS_TOOL_PATH, argv.data(), envp.data());
            _exit(127);
        }
        close(out);
        close(err);
    }

    pid_t Pid() const { return m_pid; }

    Result Wait() {
        Result r;
        int status = 0;
        waitpid(m_pid, &status, 0);
        r.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        r.out = ReadFile(m_outPath);
        r.err = ReadFile(m_errPath);
        unlink(m_outPath.c_str());
        unlink(m_errPath.c_str());
        return r;
    }

private:
    pid_t m_pid = -1;
    std::string m_outPath, m_errPath;
};

Result RunQs(const std::vector<std::string>& args, const std::vector<std::string>& env = {}) {
    return Child(args, env).Wait();
}

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}


std::string TempPath(const std::string& name) {
    return ::testing::TempDir() + "qs_" + std::to_string(getpid()) + "_" + name;
}

struct CsvSweep {
    std::vector<double> freqHz, minDbm, maxDbm;
};

// Splits a CSV file into its sweeps; each starts with a comment line and a
// header row. complete is false if any part is out of form.
std::vector<CsvSweep> ParseCsv(const std::string& text, bool* complete) {
    std::vector<CsvSweep> sweeps;
    *complete = !text.empty() && text.back() == '\n';
    std::stringstream in(text);
    std::string line;
    bool expectHeader = false;
    while (std::getline(in, line)) {
        if (line.rfind("# ", 0) == 0) {
            sweeps.emplace_back();
            expectHeader = true;
            continue;
        }
        if (expectHeader) {
            if (line != "frequency_hz,min_dbm,max_dbm") *complete = false;
            expectHeader = false;
            continue;
        }
        double f = 0, lo = 0, hi = 0;
        if (sweeps.empty() || std::sscanf(line.c_str(), "%lf,%lf,%lf", &f, &lo, &hi) != 3) {
            *complete = false;
            continue;
        }
        sweeps.back().freqHz.push_back(f);
        sweeps.back().minDbm.push_back(lo);
        sweeps.back().maxDbm.push_back(hi);
    }
    return sweeps;
}

unsigned BigEndian32(const std::string& s, size_t at) {
    const auto* p = reinterpret_cast<const unsigned char*>(s.data() + at);
    return (unsigned(p[0]) << 24) | (unsigned(p[1]) << 16) | (unsigned(p[2]) << 8) | p[3];
}

void ExpectPng(const std::string& path, unsigned width, unsigned height) {
    const std::string png = ReadFile(path);
    ASSERT_GE(png.size(), 24u) << path;
    EXPECT_EQ(png.substr(0, 8), std::string("\x89PNG\r\n\x1a\n", 8));
    EXPECT_EQ(png.substr(12, 4), "IHDR");
    EXPECT_EQ(BigEndian32(png, 16), width);
    EXPECT_EQ(BigEndian32(png, 20), height);
}

// One row of the power format: "date, time, low, high, bin, sweeps, levels...".
struct PowerRow {
    std::string stamp, lowText, highText;
    double low = 0, high = 0, bin = 0;
    unsigned sweeps = 0;
    std::vector<double> levels;
};

// Every row of a power-format text, each checked for what the heat-map
// scripts rely on: a stamp that "%Y-%m-%d %H:%M:%S" parses, the sweeps
// it holds, and low + levels x bin exactly its high edge.
std::vector<PowerRow> ParsePower(const std::string& text) {
    std::vector<PowerRow> rows;
    std::stringstream in(text);
    for (std::string line; std::getline(in, line);) {
        std::tm t{};
        const char* rest = strptime(line.c_str(), "%Y-%m-%d, %H:%M:%S, ", &t);
        PowerRow r;
        int n = 0;
        if (!rest || std::sscanf(rest, "%lf, %lf, %lf, %u%n", &r.low, &r.high, &r.bin, &r.sweeps, &n) != 4) {
            ADD_FAILURE() << "not a power row: " << line;
            continue;
        }
        r.stamp = line.substr(0, 20);
        const std::string edges = rest;
        r.lowText = edges.substr(0, edges.find(','));
        r.highText = edges.substr(edges.find(", ") + 2);
        r.highText = r.highText.substr(0, r.highText.find(','));
        const char* p = rest + n;
        for (double v; std::sscanf(p, ", %lf%n", &v, &n) == 1; p += n) r.levels.push_back(v);
        EXPECT_EQ(*p, '\0') << line;
        EXPECT_GE(r.sweeps, 1u) << line;
        EXPECT_EQ(r.low + r.levels.size() * r.bin, r.high) << line;
        rows.push_back(std::move(r));
    }
    return rows;
}

// The frequency and level of the highest point of the rows.
std::pair<double, double> PowerPeak(const std::vector<PowerRow>& rows) {
    double hz = 0.0, dbm = -1e9;
    for (const PowerRow& r : rows)
        for (size_t i = 0; i < r.levels.size(); ++i)
            if (r.levels[i] > dbm) dbm = r.levels[i], hz = r.low + i * r.bin;
    return {hz, dbm};
}

const std::vector<std::string> kToneSweep = {"--simulate", "--sim-tone", "1.5G:-40", "sweep",
                                             "--start", "1.4G", "--stop", "1.6G", "--rbw", "100k"};

std::vector<std::string> With(std::vector<std::string> args, const std::vector<std::string>& more) {
    args.insert(args.end(), more.begin(), more.end());
    return args;
}

}  // namespace

// What the tool says and how it exits, for each kind of answer: a listing,
// a device's readings, advice when access is denied, usage that names the
// bad argument, and a library status as one line. None takes long: an
// unplugged device ends a continuous sweep at once.
TEST(QsProcess, AnswersAndExitCodes) {
    constexpr int kFailed = -2;  // any exit code but 0
    const std::string denied = "QS_SIM_DEVICES=larch:10000001:denied";
    const struct {
        std::vector<std::string> args, env;
        int exitCode;
        std::vector<std::string> outHas, outLacks, errHas;  // lacks "": empty; has "^text": starts with text
        int errLines;  // -1: any
    } cases[] = {
        {{"--simulate", "list"}, {}, 0, {"12345678   Maple  2"}, {}, {}, -1},
        {{"list", "--simulate"}, {"QS_SIM_DEVICES=maple1:22222222,larch:10000001"}, 0,
         {"22222222   Maple  1", "10000001   Larch  -"}, {}, {}, 0},
        {{"--simulate", "list"}, {"QS_SIM_DEVICES=maple2:12345678,maple2:33333333:denied"}, kFailed, {"12345678"},
         {"33333333"}, {"1 analyser on USB that this user may not open", "60-qs-analyser.rules", "udevadm"}, -1},
        // It is there, only shut out; an open of it gives the same advice.
        {{"--simulate", "list"}, {denied}, kFailed, {}, {"no analyser found"}, {}, -1},
        {{"--simulate", "info"}, {denied}, kFailed, {}, {}, {"Device not Open", "60-qs-analyser.rules"}, -1},
        {{"--simulate", "info", "-d", "10000001"}, {"QS_SIM_DEVICES=maple2:12345678,larch:10000001"}, 0,
         {"serial number   10000001", "type            Larch", "firmware", "temperature", "USB voltage",
          "USB current", "time base"},
         {}, {}, -1},
        {{"--simulate", "info"}, {}, 0, {"Maple, revision 2"}, {}, {}, -1},
        {{"--simulate", "sweep", "--start", "2.4X", "--stop", "2.5G"}, {}, 2, {}, {""},
         {"^qs: --start: '2.4X' is not a frequency", "--help"}, -1},
        {{"sweep", "--start", "1G", "--stop", "2G", "--frobnicate"}, {}, 2, {}, {}, {"--frobnicate"}, -1},
        // A bad picture path is told before any sweep is made.
        {With(kToneSweep, {"--png", "/no/such/folder/x.png"}), {}, 1, {}, {""}, {"--png /no/such/folder/x.png"}, -1},
        {{"--simulate", "info", "-d", "99999999"}, {}, 1, {}, {}, {"99999999", qsGetErrorString(qsDeviceNotOpenErr)}, 1},
        {{"--simulate", "sweep", "--start", "1G", "--stop", "1.1G", "--continuous", "-o", TempPath("unplugged.csv")},
         {"QS_SIM_DEVICES=maple2:12345678:unplug=1"}, 1, {}, {}, {qsGetErrorString(qsDeviceConnectionErr)}, -1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.args[0] << " " << c.args[1] << " " << c.args.back());
        const auto start = std::chrono::steady_clock::now();
        const Result r = RunQs(c.args, c.env);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
        if (c.exitCode == kFailed) {
            EXPECT_NE(r.exitCode, 0) << r.err;
        } else {
            EXPECT_EQ(r.exitCode, c.exitCode) << r.err;
        }
        for (const std::string& part : c.outHas) EXPECT_TRUE(Contains(r.out, part)) << part << " in:\n" << r.out;
        for (const std::string& part : c.outLacks) {
            if (part.empty()) {
                EXPECT_EQ(r.out, "") << "nothing written";
            } else {
                EXPECT_FALSE(Contains(r.out, part)) << part << " in:\n" << r.out;
            }
        }
        for (const std::string& part : c.errHas) {
            if (part[0] == '^') {
                EXPECT_EQ(r.err.rfind(part.substr(1), 0), 0u) << r.err;
            } else {
                EXPECT_TRUE(Contains(r.err, part)) << part << " in:\n" << r.err;
            }
        }
        if (c.errLines >= 0) {
            EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), c.errLines) << r.err;
            EXPECT_TRUE(r.err.empty() || r.err.back() == '\n') << r.err;
        }
    }
}

TEST(QsProcess, SweepFindsTheToneInCsvPowerAndPicture) {
    const std::string csv = TempPath("tone.csv"), png = TempPath("tone.png");
    const Result r = RunQs(With(kToneSweep, {"-o", csv, "--png", png, "--png-size", "900x500"}));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_FALSE(Contains(r.err, "qs: sweep ")) << "no progress line off a terminal: " << r.err;
    bool complete = false;
    const std::vector<CsvSweep> sweeps = ParseCsv(ReadFile(csv), &complete);
    EXPECT_TRUE(complete);
    ASSERT_EQ(sweeps.size(), 1u);
    const CsvSweep& s = sweeps[0];
    ASSERT_GT(s.freqHz.size(), 100u);
    size_t peak = 0;
    for (size_t i = 1; i < s.maxDbm.size(); ++i)
        if (s.maxDbm[i] > s.maxDbm[peak]) peak = i;
    const double bin = s.freqHz[1] - s.freqHz[0];
    EXPECT_NEAR(s.freqHz[peak], 1.5e9, bin);
    EXPECT_LE(s.minDbm[peak], s.maxDbm[peak]);
    ExpectPng(png, 900, 500);

    const Result power = RunQs(With(kToneSweep, {"--format", "power", "-N", "2"}));
    ASSERT_EQ(power.exitCode, 0) << power.err;
    const std::vector<PowerRow> rows = ParsePower(power.out);
    size_t levels = 0;
    for (const PowerRow& row : rows) levels += row.levels.size();
    EXPECT_EQ(levels, 2 * s.freqHz.size()) << "two sweeps of the same length";
    const auto [bestHz, bestDbm] = PowerPeak(rows);
    EXPECT_NEAR(bestHz, 1.5e9, 2 * bin);
    unlink(csv.c_str());
    unlink(png.c_str());
    EXPECT_NEAR(s.maxDbm[peak], -40.0, 1.0);
    EXPECT_NEAR(bestDbm, -40.0, 1.0);
}

TEST(QsProcess, FirstCtrlCFinishesAndWritesTheSweep) {
    const std::string csv = TempPath("interrupted.csv"), png = TempPath("interrupted.png");
    Child child(With(kToneSweep, {"--continuous", "-o", csv, "--png", png}), {});
    // Interrupted once the first sweep is written.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (ReadFile(csv).size() < 1000 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    kill(child.Pid(), SIGINT);
    const Result r = child.Wait();
    EXPECT_EQ(r.exitCode, 0) << r.err;
    bool complete = false;
    const std::vector<CsvSweep> sweeps = ParseCsv(ReadFile(csv), &complete);
    EXPECT_TRUE(complete);
    ASSERT_GE(sweeps.size(), 1u);
    for (const CsvSweep& s : sweeps) EXPECT_EQ(s.freqHz.size(), sweeps[0].freqHz.size());
    EXPECT_GT(sweeps[0].freqHz.size(), 100u);
    ExpectPng(png, 1200, 600);
    unlink(csv.c_str());
    unlink(png.c_str());
}

TEST(QsProcess, ProgressLineOnlyOnATerminal) {
    std::vector<std::string> args = With(kToneSweep, {"--continuous", "-o", "/dev/null"});
    args.insert(args.begin(), QS_TOOL_PATH);
    std::vector<std::string> env = ChildEnvironment({});
    std::vector<char*> argv = Pointers(args), envp = Pointers(env);
    int master = -1;
    const pid_t pid = forkpty(&master, nullptr, nullptr, nullptr);
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        execve(QS_TOOL_PATH, argv.data(), envp.data());
        _exit(127);
    }
    std::string screen;
    const auto stopAt = std::chrono::steady_clock::now() + std::chrono::milliseconds(2600);
    fcntl(master, F_SETFL, O_NONBLOCK);
    bool interrupted = false;
    for (;;) {
        char buf[512];
        const ssize_t n = read(master, buf, sizeof buf);
        if (n > 0) screen.append(buf, n);
        if (!interrupted && std::chrono::steady_clock::now() > stopAt) {
            kill(pid, SIGINT);
            interrupted = true;
        }
        int status = 0;
        if (waitpid(pid, &status, WNOHANG) == pid) {
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << screen;
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    for (char buf[512];;) {
        const ssize_t n = read(master, buf, sizeof buf);
        if (n <= 0) break;
        screen.append(buf, n);
    }
    close(master);
    EXPECT_TRUE(Contains(screen, "qs: sweep ")) << screen;
    EXPECT_TRUE(Contains(screen, "stopping after this sweep")) << screen;
}

// A row set a second, each with a stamp of its own, rows that join up, the
// span cropped to what was asked, and the tone where it is.
TEST(QsProcess, PowerFormatWritesARowSetPerSecond) {
    const Result r = RunQs({"--simulate", "--sim-tone", "100.1M:-40", "sweep", "--start", "88M", "--stop", "108M",
                            "--format", "power", "--continuous", "--exit-after", "3s"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const std::vector<PowerRow> rows = ParsePower(r.out);
    ASSERT_FALSE(rows.empty());
    std::vector<std::string> stamps;
    for (size_t i = 0; i < rows.size(); ++i) {
        if (stamps.empty() || stamps.back() != rows[i].stamp) {
            stamps.push_back(rows[i].stamp);
            EXPECT_NEAR(rows[i].low, 88e6, 10e3) << "cropped to what was asked";
        } else {
            EXPECT_EQ(rows[i].lowText, rows[i - 1].highText) << "rows join up";
        }
    }
    EXPECT_GE(stamps.size(), 2u);
    EXPECT_LE(stamps.size(), 4u);
    for (size_t i = 1; i < stamps.size(); ++i) EXPECT_LT(stamps[i - 1], stamps[i]);
    EXPECT_NEAR(rows.back().high, 108e6, 20e3);
    const auto [peakHz, peakDbm] = PowerPeak(rows);
    EXPECT_NEAR(peakHz, 100.1e6, 10e3);
    EXPECT_NEAR(peakDbm, -40.0, 1.0);
}

// A SigMF pair: metadata with the core fields and the triggers where the
// simulator put them (10 ms and 50 ms into the stream, at 10 MS/s, plus the
// same delay for both), and data holding the tone at its offset and level.
TEST(QsProcess, IqRecordsSigmfWithTheToneAndTheTriggers) {
    const std::string base = TempPath("rec");
    const Result r = RunQs({"--simulate", "--sim-tone", "1.501G:-40", "--sim-trigger", "0.01", "--sim-trigger", "0.05",
                            "iq", "--center", "1.5G", "--rate", "10M", "--samples", "1000000", "-o", base});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const std::string meta = ReadFile(base + ".sigmf-meta"), data = ReadFile(base + ".sigmf-data");
    for (const char* field : {"\"core:datatype\": \"cf32_le\"", "\"core:sample_rate\": 10000000",
                              "\"core:frequency\": 1500000000", "\"core:hw\": \"Maple 12345678\"", "\"core:datetime\": \"20",
                              "\"core:version\"", "\"core:recorder\": \"qs "})
        EXPECT_TRUE(Contains(meta, field)) << field << " in\n" << meta;
    std::vector<long> triggers;
    for (size_t at = meta.find("\"trigger\""); at != std::string::npos; at = meta.find("\"trigger\"", at + 1)) {
        const size_t start = meta.rfind("\"core:sample_start\": ", at);
        triggers.push_back(std::atol(meta.c_str() + start + 21));
    }
    ASSERT_EQ(triggers.size(), 2u) << meta;
    EXPECT_EQ(triggers[1] - triggers[0], 400000);
    EXPECT_GE(triggers[0], 100000);
    EXPECT_LE(triggers[0], 100200);
    ASSERT_EQ(data.size(), 8u * 1000000u);
    // The tone, 1 MHz above the centre: correlate 100000 samples with it.
    const auto* iq = reinterpret_cast<const float*>(data.data());
    double re = 0.0, im = 0.0;
    const int n = 100000, first = 200000;
    for (int k = 0; k < n; ++k) {
        const double phase = -2.0 * M_PI * 1e6 * k / 10e6;
        const double x = iq[2 * (first + k)], y = iq[2 * (first + k) + 1];
        re += x * std::cos(phase) - y * std::sin(phase);
        im += x * std::sin(phase) + y * std::cos(phase);
    }
    EXPECT_NEAR(20.0 * std::log10(std::hypot(re, im) / n), -40.0, 1.0);
    unlink((base + ".sigmf-meta").c_str());
    unlink((base + ".sigmf-data").c_str());
}

// USB tuned 1 kHz below a tone gives a 1 kHz tone, in a WAV file of the
// length asked for; and to standard output the same.
TEST(QsProcess, AudioWritesTheDemodulatedToneAsWav) {
    const std::string wav = TempPath("tone.wav");
    for (const std::string& out : {wav, std::string("-")}) {
        const Result r = RunQs({"--simulate", "--sim-tone", "100.001M:-40", "audio", "--freq", "100M", "--demod", "usb",
                                "--duration", "1", "-o", out});
        ASSERT_EQ(r.exitCode, 0) << r.err;
        const std::string bytes = out == "-" ? r.out : ReadFile(wav);
        ASSERT_EQ(bytes.size(), 44u + 64000u);
        EXPECT_EQ(bytes.substr(0, 4), "RIFF");
        const auto* pcm = reinterpret_cast<const int16_t*>(bytes.data() + 44);
        // Zero crossings over the last half second: a 1 kHz tone has 1000.
        int crossings = 0;
        for (int i = 16001; i < 32000; ++i) crossings += (pcm[i - 1] < 0) != (pcm[i] < 0);
        EXPECT_NEAR(crossings, 1000, 20);
    }
    unlink(wav.c_str());
}

TEST(QsProcess, RealtimeWritesPersistenceAndWaterfall) {
    const std::string png = TempPath("rt.png"), fall = TempPath("fall.png");
    const Result r = RunQs({"--simulate", "realtime", "--center", "2.42G", "--span", "20M", "--frames", "12", "--png",
                            png, "--waterfall", fall});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const std::string p = ReadFile(png), f = ReadFile(fall);
    ASSERT_GE(p.size(), 24u);
    ASSERT_GE(f.size(), 24u);
    EXPECT_EQ(BigEndian32(p, 20), 22u + 2u * QS_RT_FRAME_HEIGHT) << "title and two rows a level";
    EXPECT_EQ(BigEndian32(f, 20), 22u + 12u) << "title and a row a frame";
    unlink(png.c_str());
    unlink(fall.c_str());
}

namespace {

TEST(QsProcess, TgKeepsAThroughAndReadsTheBandPassAgainstIt) {
    // Under --simulate a generator is cabled through a through while one is
    // measured, and through a band-pass of 990 to 1010 MHz otherwise.
    const std::string thru = TempPath("thru.csv"), csv = TempPath("s21.csv"), png = TempPath("s21.png");
    const std::vector<std::string> sweep = {"--simulate", "tg", "--start", "900M", "--stop", "1.1G", "--thru-file", thru};
    const Result none = RunQs(With(sweep, {"-o", csv}));
    ASSERT_EQ(none.exitCode, 0) << none.err;
    EXPECT_TRUE(Contains(none.err, "no through for this sweep")) << none.err;

    const Result stored = RunQs(With(sweep, {"--thru"}));
    ASSERT_EQ(stored.exitCode, 0) << stored.err;
    const Result measured = RunQs(With(sweep, {"-o", csv, "--png", png}));
    ASSERT_EQ(measured.exitCode, 0) << measured.err;
    EXPECT_FALSE(Contains(measured.err, "warning")) << measured.err;
    std::stringstream rows(ReadFile(csv));
    std::string line;
    ASSERT_TRUE(std::getline(rows, line));
    EXPECT_EQ(line, "frequency_hz,s21_db");
    std::map<long long, double> s21;
    double hz = 0, db = 0;
    while (std::getline(rows, line) && std::sscanf(line.c_str(), "%lf,%lf", &hz, &db) == 2) s21[std::llround(hz)] = db;
    ASSERT_EQ(s21.size(), 101u);
    EXPECT_NEAR(s21[1000000000], 0.0, 0.5);  // the pass band
    EXPECT_NEAR(s21[990000000], -3.0, 0.5);  // its edges, -3 dB
    EXPECT_NEAR(s21[1010000000], -3.0, 0.5);
    EXPECT_LT(s21[940000000], -55.0);         // the skirts
    EXPECT_LT(s21[1060000000], -55.0);
    ExpectPng(png, 1200, 600);
    std::remove(thru.c_str());
}

}  // namespace

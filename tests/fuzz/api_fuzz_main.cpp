// Runs the public-call fuzzer without libFuzzer: every kept input named on
// the command line, then sequences from seeds.
//   api_fuzz [--calls N] [--seed S | --seeds A B] [--random] [input files...]
// --random takes the seed from the clock and prints it, so that a failure
// can be rerun with --seed.
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

#include "api_fuzz.h"

int main(int argc, char** argv) {
    long calls = 2000;
    unsigned long long first = 0, last = 0;
    bool seeded = false;
    int files = 0;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--calls") && i + 1 < argc) {
            calls = std::atol(argv[++i]);
        } else if (!std::strcmp(argv[i], "--seed") && i + 1 < argc) {
            first = last = std::strtoull(argv[++i], nullptr, 0);
            seeded = true;
        } else if (!std::strcmp(argv[i], "--seeds") && i + 2 < argc) {
            first = std::strtoull(argv[++i], nullptr, 0);
            last = std::strtoull(argv[++i], nullptr, 0);
            seeded = true;
        } else if (!std::strcmp(argv[i], "--random")) {
            first = last = static_cast<unsigned long long>(
                std::chrono::system_clock::now().time_since_epoch().count());
            seeded = true;
        } else {
            std::ifstream in(argv[i], std::ios::binary);
            if (!in) {
                std::fprintf(stderr, "cannot read %s\n", argv[i]);
                return 2;
            }
            std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
            std::printf("input %s (%zu bytes)\n", argv[i], bytes.size());
            std::fflush(stdout);
            apifuzz::RunBytes(bytes.data(), bytes.size());
            ++files;
        }
    }
    // Several seeds run each in a child of its own, so that one failure
    // does not hide the next; a single seed runs here, for a debugger.
    int seeds = 0, failed = 0;
    for (unsigned long long s = first; seeded && s <= last; ++s, ++seeds) {
        std::printf("seed %llu, %ld calls\n", s, calls);
        std::fflush(stdout);
        if (first == last) {
            apifuzz::RunSeed(s, calls);
            continue;
        }
        const pid_t child = fork();
        if (child == 0) {
            apifuzz::RunSeed(s, calls);
            std::_Exit(0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            std::printf("seed %llu FAILED\n", s);
            ++failed;
        }
    }
    std::printf("%d inputs and %d of %d seeds passed\n", files, seeds - failed, seeds);
    return failed ? 1 : 0;
}

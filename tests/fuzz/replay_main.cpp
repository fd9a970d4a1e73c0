// Runs the fuzz target without libFuzzer, for compilers that lack it: every
// file named on the command line (the kept corpus), then a fixed number of
// inputs made from a seeded generator, shaped like commands often enough to
// reach the firmware's paths.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    int files = 0;
    for (int i = 1; i < argc; ++i) {
        std::ifstream in(argv[i], std::ios::binary);
        if (!in) {
            std::fprintf(stderr, "cannot read %s\n", argv[i]);
            return 1;
        }
        std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
        ++files;
    }
    std::mt19937 rng(20261123);
    const uint8_t headers[] = {0x00, 0x05, 0x11, 0x12, 0x13, 0x14, 0x15, 0x7F};
    constexpr int kInputs = 400;
    for (int n = 0; n < kInputs; ++n) {
        std::vector<uint8_t> bytes(rng() % 3000);
        for (auto& b : bytes) b = static_cast<uint8_t>(rng());
        // Small sub-band counts and packet numbers, so runs answer with data.
        for (size_t at = 0; at + 32 <= bytes.size(); at += 1024) {
            bytes[at] = headers[rng() % 8];
            bytes[at + 4] = static_cast<uint8_t>(rng() % 8);
            bytes[at + 5] = 0;
            bytes[at + 6] = static_cast<uint8_t>(rng() % 3);
            bytes[at + 7] = 0;
            bytes[at + 16 + 10] = static_cast<uint8_t>(rng() % 40);
            bytes[at + 16 + 11] = 0;
            bytes[at + 16 + 12] = static_cast<uint8_t>(rng() % 6);
            bytes[at + 16 + 13] = 0;
        }
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    std::printf("%d corpus files and %d generated inputs passed\n", files, kInputs);
    return 0;
}

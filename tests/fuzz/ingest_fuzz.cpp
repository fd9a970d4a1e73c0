// Fuzz target over the library's own parsers of bytes that come from the
// device: the sample unpacker and the calibration image loader.
//  - The input, cycled to one packet's payload, is unpacked by the data
//    path's unpacker and by a reference written here from the wire
//    description; the two must agree sample for sample.
//  - The input, cycled to a whole image, is loaded as a Maple and a Larch
//    calibration image and the result is configured and asked for gains:
//    nothing may read outside the image or a table (the sanitizers watch).
#include <cstddef>
#include <cstdint>
#include <vector>

#include "calibration/corrections_larch.h"
#include "calibration/corrections_maple.h"
#include "dsp/sample_unpack.h"
#include "settings/settings.h"
#include "settings/sweep_info.h"

namespace {

void Check(bool ok) {
    if (!ok) __builtin_trap();
}

std::vector<uint8_t> Cycle(const uint8_t* data, size_t size, size_t length) {
    std::vector<uint8_t> out(length, 0xFF);
    if (size == 0) return out;
    for (size_t i = 0; i < length; ++i) out[i] = data[i % size];
    return out;
}

void CheckUnpacker(const uint8_t* data, size_t size) {
    const std::vector<uint8_t> payload = Cycle(data, size, 32704);
    std::vector<short> fast(18688), reference(18688);
    qs::unpack_to_short(payload.data(), fast.data());
    for (int g = 0; g < 2336; ++g) {
        const uint8_t* in = payload.data() + 14 * g;
        uint16_t s0 = 0;
        for (int k = 0; k < 7; ++k) {
            const uint16_t w = static_cast<uint16_t>(in[2 * k] | (in[2 * k + 1] << 8));
            s0 = static_cast<uint16_t>(s0 | ((w & 0x3) << (14 - 2 * k)));
            reference[8 * g + k + 1] = static_cast<short>(w & 0xFFFC);
        }
        reference[8 * g] = static_cast<short>(s0);
    }
    for (int i = 0; i < 18688; ++i) Check(fast[i] == reference[i]);
}

void CheckImages(const uint8_t* data, size_t size) {
    const std::vector<uint8_t> image = Cycle(data, size, 12 * 65536);
    const int rev = size ? 1 + (data[0] & 1) : 1;
    qs::CorrectionsMaple maple(rev);
    if (maple.Initialize(image.data())) {
        qs::SettingsMaple settings;
        qs::SweepInfo plan;
        const double temp = size > 1 ? static_cast<int8_t>(data[1]) : 25.0;
        maple.Configure(temp, settings, plan);
        for (int band = 0; band < 10; ++band) {
            maple.GetGain(band);
            maple.GetAtten(band);
        }
        maple.GetTriggerDelay(size > 2 ? data[2] * 2.5e7 : 1e9);
    }
    qs::CorrectionsLarch larch;
    if (larch.Initialize(image.data())) {
        qs::SettingsLarch settings;
        qs::SweepInfo plan;
        larch.Configure(size > 1 ? static_cast<int8_t>(data[1]) : 25.0, settings, plan);
        larch.GetTriggerDelay(size > 2 ? data[2] * 2.5e7 : 1e9);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CheckUnpacker(data, size);
    CheckImages(data, size);
    return 0;
}

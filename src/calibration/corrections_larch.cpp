#include "calibration/corrections_larch.h"

#include <cstring>

#include "dsp/qs_lib.h"

namespace qs {

namespace {

constexpr size_t OFF_RF[LARCH_RF_TABLES] = {
    offsetof(CorrOnFlash, band0A), offsetof(CorrOnFlash, band0B), offsetof(CorrOnFlash, band0C),
    offsetof(CorrOnFlash, band1),  offsetof(CorrOnFlash, band2),  offsetof(CorrOnFlash, band3),
};
constexpr size_t OFF_IF[4] = {offsetof(CorrOnFlash, IF0), offsetof(CorrOnFlash, IF1),
                              offsetof(CorrOnFlash, IF2), offsetof(CorrOnFlash, IF3)};
constexpr size_t OFF_TEMPS = offsetof(CorrOnFlash, internalTemp);
constexpr size_t OFF_TRIG = offsetof(CorrOnFlash, triggerDelays);
constexpr size_t OFF_OSC = offsetof(CorrOnFlash, oscRatio);

std::unique_ptr<RFCorrLarch> make_rf(int i) {
    const RFCorrParams& p = RFCorrParamsLarch[i];
    return std::unique_ptr<RFCorrLarch>(new RFCorrLarch(p.steps, p.start, p.stop, p.stepSize));
}

}  // namespace

CorrectionsLarch::CorrectionsLarch()
    : Corrections(sizeof(CorrOnFlash)),
      B0A(make_rf(0)), B0B(make_rf(1)), B0C(make_rf(2)), B1(make_rf(3)), B2(make_rf(4)), B3(make_rf(5)),
      m_trigDelays(new TriggerCorrLarch()) {
    for (int i = 0; i < 4; ++i) IFBands[i].reset(new IFCorrLarch(IFCentersLarch[i]));
    for (int i = 0; i < LARCH_TEMPS; ++i) internalTemps[i] = static_cast<float>(i * 10 + 15);
    std::memset(m_IFSelfCal, 0, sizeof m_IFSelfCal);
}

CorrectionsLarch::~CorrectionsLarch() = default;

RFCorrLarch* CorrectionsLarch::RFTable(int i) const {
    RFCorrLarch* const tables[LARCH_RF_TABLES] = {B0A.get(), B0B.get(), B0C.get(),
                                                  B1.get(),  B2.get(),  B3.get()};
    return tables[i < 0 ? 0 : (i >= LARCH_RF_TABLES ? LARCH_RF_TABLES - 1 : i)];
}

void CorrectionsLarch::ZeroCorrections() {
    m_oscRatio = 1.0;
    for (int i = 0; i < LARCH_RF_TABLES; ++i) RFTable(i)->Zero();
    for (int i = 0; i < LARCH_TEMPS; ++i) internalTemps[i] = static_cast<float>(i * 10 + 15);
}

bool CorrectionsLarch::Initialize(const unsigned char* mem) {
    ZeroCorrections();
    if (is_flash_blank(mem + OFF_RF[0], 8)) return false;

    for (int i = 0; i < LARCH_RF_TABLES; ++i) RFTable(i)->DeflattenBytes(mem + OFF_RF[i]);
    for (int i = 0; i < 4; ++i) IFBands[i]->DeflattenBytes(mem + OFF_IF[i]);
    m_trigDelays->DeflattenBytes(mem + OFF_TRIG);
    std::memcpy(internalTemps, mem + OFF_TEMPS, sizeof internalTemps);
    m_oscRatio = image_read<double>(mem, OFF_OSC);

    // The factory's 40 MHz point of B0C is unreliable at the lower six
    // temperatures; it is rebuilt from its neighbours.
    for (int a = 0; a < 4; ++a)
        for (int g = 0; g < 4; ++g)
            for (int t = 0; t <= 5; ++t) {
                float* c = B0C->b[a][g][t];
                c[2] = (c[1] + c[3]) / 2.0f;
            }
    return true;
}

uint8_t CorrectionsLarch::GetGain(int band) {
    return static_cast<uint8_t>(m_bandGains[band < 0 ? 0 : (band >= LARCH_BANDS ? LARCH_BANDS - 1 : band)]);
}

uint8_t CorrectionsLarch::GetAtten(int band) {
    return static_cast<uint8_t>(
        m_bandAttens[band < 0 ? 0 : (band >= LARCH_BANDS ? LARCH_BANDS - 1 : band)] * 10);
}

void CorrectionsLarch::ClearSelfCalConstants() { std::memset(m_IFSelfCal, 0, sizeof m_IFSelfCal); }

void CorrectionsLarch::SetSelfCalConstants(double* data) {
    if (data) std::memcpy(m_IFSelfCal, data, sizeof m_IFSelfCal);
}

}  // namespace qs

// Field-by-field comparison of two Settings, shared by the store and the
// public-call tests.
#pragma once

#include <string>
#include <vector>

#include "settings/settings.h"

// Every data field of Settings. A field added to the class must be added
// here too; the size check in settings_test.cpp is the reminder.
#define QS_SETTINGS_FIELDS(X)                                                                 \
    X(m_audio.modulation) X(m_audio.freq) X(m_audio.if_bw) X(m_audio.high_pass_freq)         \
    X(m_audio.low_pass_freq) X(m_audio.deemphasis) X(m_tgSweepSize) X(m_tgHighDynamicRange) \
    X(m_tgPassiveDevice) X(iqFinalDecimation) X(iqFinalBandwidth) X(iqSecondPass)            \
    X(iqFirstPassDecimate) X(iqFirstPassBandwidth) X(iqSecondPassDecimate)                   \
    X(iqSecondPassBandwidth) X(iqDataType) X(m_start) X(m_stop) X(m_center) X(m_span)        \
    X(m_reference) X(m_atten) X(m_gain) X(m_rbw) X(m_vbw) X(m_sweepTime) X(m_rbwShape)       \
    X(m_imageReject) X(m_window) X(m_windowfc) X(m_videoUnits) X(m_detector) X(m_logScale)   \
    X(m_fullScale) X(m_demodFM) X(m_realTimeFrameScale) X(m_realTimeFrameRate)               \
    X(m_realTimeAdvanceRate)

// Names of the fields in which a and b differ.
inline std::vector<std::string> DiffFields(const qs::Settings& a, const qs::Settings& b) {
    std::vector<std::string> out;
#define QS_DIFF_FIELD(f) \
    if (!(a.f == b.f)) out.push_back(#f);
    QS_SETTINGS_FIELDS(QS_DIFF_FIELD)
#undef QS_DIFF_FIELD
    return out;
}

inline int FieldCount() {
    int n = 0;
#define QS_COUNT_FIELD(f) ++n;
    QS_SETTINGS_FIELDS(QS_COUNT_FIELD)
#undef QS_COUNT_FIELD
    return n;
}

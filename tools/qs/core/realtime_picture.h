// Real-time frames as pictures: the persistence image with the min and max
// traces over it, and a waterfall of max traces, one row a frame.
#pragma once

#include <string>
#include <vector>

namespace qstool {

// One frame as fetched. The density has `levels` rows of `width` cells, row
// 0 at the bottom of the level range (refDbm - rangeDb) and the last row at
// the reference level; traces have `width` points in dBm.
struct RealtimeFrame {
    int width = 0;
    int levels = 0;
    std::vector<float> density;
    std::vector<float> minDbm, maxDbm;
    double refDbm = 0.0;
    double rangeDb = 100.0;
};

// A colour for a value from 0 (nothing: black) to 1 (the most: white), through
// blue, red and yellow; 0xRRGGBB.
unsigned HeatColour(double value);

bool WritePersistencePng(const std::string& path, const RealtimeFrame& frame, const std::string& title,
                         std::string* error);

// rows: the max trace of each frame in dBm, oldest first, all of one width;
// levels from lowDbm (black) to highDbm (white).
bool WriteWaterfallPng(const std::string& path, const std::vector<std::vector<float>>& rows, double lowDbm,
                       double highDbm, const std::string& title, std::string* error);

}  // namespace qstool

// The plan of a measurement. Only what the transport reads stands here so
// far; the planning fills the rest.
#pragma once

namespace qs {

struct SweepInfo {
    int ppf = 0;  // packets per LO step
};

}  // namespace qs

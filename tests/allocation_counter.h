// Every operator new of a test executable is counted, so a test can tell
// that a stretch of the data path allocated nothing. A test folder that
// uses it includes allocation_counter.inc in exactly one of its sources.
#pragma once

namespace qs_test {

// Allocations through operator new since the process started.
long Allocations();

}  // namespace qs_test

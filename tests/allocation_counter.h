// Heap requests counted, so a test (or a benchmark) can tell that a stretch
// of the data path allocated nothing. A program that uses it includes
// allocation_counter.inc in exactly one of its sources.
#pragma once

namespace qs_test {

// Allocations through operator new since the process started, by every
// thread.
long Allocations();

// The heap requests of the threads that armed the count: operator new and,
// outside sanitizer builds (whose own allocator must stay in charge), the
// malloc family too, so the vector layer's aligned blocks are seen. Other
// threads (the interface thread, the engines' workers, the simulator) stay
// out of it. The count adds up over armed stretches until it is reset.
void ResetThreadCount();
void ArmThreadCount();
void DisarmThreadCount();
long ThreadCount();

}  // namespace qs_test

// The C random generator of the calling thread, for the kernels that draw random numbers inside
// an OpenMP team. Hosts seed it per thread with srand() and rely on each thread's draws being its
// own. The Windows C runtime keeps rand()'s state per thread, so there it is rand() itself. The
// GNU C library keeps one process-wide state behind a lock: threads drawing tens of millions of
// numbers would queue on that lock (measured here: 5.6 ns a draw alone, 31 ns with two threads),
// so elsewhere each thread gets its own state with the Windows runtime's recurrence and range
// (0..32767), starting where a fresh Windows thread starts (seed 1) and carrying over between calls.
#pragma once

namespace velmora {

// The next draw, 0..RAND_MAX of the Windows runtime (32767).
int ThreadRand();
// The next n draws in order, as n calls of ThreadRand() give them (one look-up of the thread's
// state instead of n).
void ThreadRandFill(int* out, int n);

}  // namespace velmora

#pragma once

#include <cstddef>

namespace mirel::simulated {

// What `new` and `delete` do in a run. Freed memory is filled with a pattern and kept back until
// the run is over, so that a pointer to something that has been deleted never points to something
// else by accident, in whatever way the allocator would have used the memory again. Not under
// AddressSanitizer, which does the same and more.
//
// A run and what it runs is on one OS thread; the memory of other threads is left alone.

/// Frees what was kept back.
void freeRunMemory();

/// Whether the calling thread's memory is the run's at present.
void trackMemory(bool on);

/// Whether the run has freed the memory at this address.
bool isFreed(const void* address);

} // namespace mirel::simulated

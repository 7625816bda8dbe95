// Counts the heap allocations of the whole test program while armed: malloc and its
// relatives, and every form of operator new, on every thread. A program that links this
// unit (the audiomw-test-alloc object library) replaces the process's allocator entry
// points, so the library's own allocations are counted too.
#ifndef AUDIOMW_TESTS_SUPPORT_ALLOC_ALLOC_COUNTER_H
#define AUDIOMW_TESTS_SUPPORT_ALLOC_ALLOC_COUNTER_H

#include <cstddef>

namespace audiomw_test {

// Zeroes the count and starts counting.
void AllocCounterArm();
// Stops counting; the count stays readable.
void AllocCounterDisarm();
// Allocations seen while armed.
long AllocCount();
// Size of the first allocation seen while armed (0 when none), to name the culprit.
size_t AllocFirstSize();

// Makes the next malloc of exactly u32Size bytes, on any thread, return null (once).
// False, and nothing armed, in sanitizer builds, whose runtime owns malloc.
bool AllocFailNext(size_t u32Size);

}  // namespace audiomw_test

#endif  // AUDIOMW_TESTS_SUPPORT_ALLOC_ALLOC_COUNTER_H

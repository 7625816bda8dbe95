// Counts calls of the global operator new (every form) in this test program, so a test
// can prove that a call allocates nothing from the C++ heap.
#ifndef AUDIOMW_TESTS_CONVERT_ALLOC_COUNTER_H
#define AUDIOMW_TESTS_CONVERT_ALLOC_COUNTER_H

namespace convert_test {

// Allocations made through operator new since the program started.
long AllocCount();

}  // namespace convert_test

#endif  // AUDIOMW_TESTS_CONVERT_ALLOC_COUNTER_H

// What the configuration harnesses share: a scratch root of their own whose
// configuration file holds the fuzzed bytes, and a log sink that drops every line (the
// lines are still formatted, so their arguments are exercised).
#ifndef AUDIOMW_FUZZ_FUZZ_SCRATCH_H
#define AUDIOMW_FUZZ_FUZZ_SCRATCH_H

#include <cstddef>
#include <cstdint>

namespace audiomw_fuzz {

// Fills the sentinel records that a failed load must leave as they were; every int
// field of such a record reads negative.
constexpr uint8_t kSentinelByte = 0xC3;

// Creates the scratch root once per process and installs it as the library's root.
void SetUpScratchRoot();
// Replaces the configuration file with `size` bytes of `data`.
void WriteConfig(const uint8_t* data, size_t size);

}  // namespace audiomw_fuzz

#endif  // AUDIOMW_FUZZ_FUZZ_SCRATCH_H

// Sample format facts shared by the dispatch layer and the backends.
#ifndef TINYALSA_SRC_PCM_FORMAT_H
#define TINYALSA_SRC_PCM_FORMAT_H

#include <cstdint>

#include "tinyalsa/pcm.h"

namespace tinyalsa {

// Bits a sample occupies in memory; 0 for an unknown code.
unsigned int FormatBits(pcm_format format);

// Bytes of one frame of `channels` samples; 0 for an unknown code.
unsigned int FrameBytes(pcm_format format, unsigned int channels);

// Formats a virtual PCM can carry: S16_LE and the 4-byte little-endian ones.
bool IsVirtualFormat(pcm_format format);

// Lower-case name used in configuration files and messages ("s16_le"), or null.
const char* FormatName(pcm_format format);

// Writes the 16-bit level `value` as one sample of a virtual format at `dst`: as is
// for S16_LE, shifted into the upper half of the slot for the 4-byte formats.
void StoreSample(uint8_t* dst, pcm_format format, int16_t value);

// Little-endian stores and loads, alignment-free.
void StoreLe16(uint8_t* dst, int16_t value);
void StoreLe32(uint8_t* dst, int32_t value);
int16_t LoadLe16(const uint8_t* src);
int32_t LoadLe32(const uint8_t* src);

// The 4-byte slot value of a 16-bit level: value * 65536.
int32_t SlotFromLevel(int16_t value);

}  // namespace tinyalsa

#endif  // TINYALSA_SRC_PCM_FORMAT_H

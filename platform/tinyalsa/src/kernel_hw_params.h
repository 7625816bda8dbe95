// The kernel's hardware parameter record as the kernel backend fills and reads it:
// an all-open set for refinement, the constraints of a pcm_config, and the ranges a
// refined set answers.
#ifndef TINYALSA_SRC_KERNEL_HW_PARAMS_H
#define TINYALSA_SRC_KERNEL_HW_PARAMS_H

#include <time.h>

#include <sound/asound.h>

#include "pcm_handle.h"

namespace tinyalsa {

// The kernel's format number of a tinyalsa format code, or -1 for a code this
// library does not offer. Code 7 (S32_SLOT_LE) is the kernel's S32_LE.
int KernelFormat(pcm_format format);

// Every mask full and every interval [0, UINT_MAX]: what the device may do at all.
void InitOpenHwParams(snd_pcm_hw_params* params);

// Narrows an open set to interleaved read/write access and the configuration's format,
// channels, rate and period count, with at least its period size.
void ConstrainHwParams(snd_pcm_hw_params* params, int kernelFormat, const pcm_config& config);

// The interval of a refined set in tinyalsa's parameter ids; masks answer 0.
void RangesFromHwParams(const snd_pcm_hw_params& params, ParamRanges* ranges);

// The value the kernel chose for an interval parameter of an installed set.
unsigned int ChosenValue(const snd_pcm_hw_params& params, int kernelParam);

}  // namespace tinyalsa

#endif  // TINYALSA_SRC_KERNEL_HW_PARAMS_H

#include "kernel_hw_params.h"

#include <climits>
#include <cstring>

namespace tinyalsa {
namespace {

snd_mask* Mask(snd_pcm_hw_params* params, int kernelParam) {
    return &params->masks[kernelParam - SNDRV_PCM_HW_PARAM_FIRST_MASK];
}

snd_interval* Interval(snd_pcm_hw_params* params, int kernelParam) {
    return &params->intervals[kernelParam - SNDRV_PCM_HW_PARAM_FIRST_INTERVAL];
}

const snd_interval& Interval(const snd_pcm_hw_params& params, int kernelParam) {
    return params.intervals[kernelParam - SNDRV_PCM_HW_PARAM_FIRST_INTERVAL];
}

// Leaves exactly one bit of a mask set.
void SetMaskBit(snd_pcm_hw_params* params, int kernelParam, unsigned int bit) {
    snd_mask* mask = Mask(params, kernelParam);
    std::memset(mask->bits, 0, sizeof(mask->bits));
    mask->bits[bit / 32] = 1u << (bit % 32);
}

void SetExact(snd_pcm_hw_params* params, int kernelParam, unsigned int value) {
    snd_interval* interval = Interval(params, kernelParam);
    interval->min = value;
    interval->max = value;
    interval->integer = 1;
}

void SetMin(snd_pcm_hw_params* params, int kernelParam, unsigned int value) {
    snd_interval* interval = Interval(params, kernelParam);
    interval->min = value;
    interval->integer = 1;
}

// tinyalsa's parameter ids of the kernel's intervals, in the kernel's order from
// SAMPLE_BITS to TICK_TIME; both run in the same order.
constexpr int kFirstIntervalId = PCM_PARAM_SAMPLE_BITS;

}  // namespace

int KernelFormat(pcm_format format) {
    switch (format) {
        case PCM_FORMAT_S16_LE:
            return SNDRV_PCM_FORMAT_S16_LE;
        case PCM_FORMAT_S32_LE:
        case PCM_FORMAT_S32_SLOT_LE:
            return SNDRV_PCM_FORMAT_S32_LE;
        case PCM_FORMAT_S8:
            return SNDRV_PCM_FORMAT_S8;
        case PCM_FORMAT_S24_LE:
            return SNDRV_PCM_FORMAT_S24_LE;
        case PCM_FORMAT_S24_3LE:
            return SNDRV_PCM_FORMAT_S24_3LE;
        case PCM_FORMAT_S16_BE:
            return SNDRV_PCM_FORMAT_S16_BE;
        case PCM_FORMAT_S24_BE:
            return SNDRV_PCM_FORMAT_S24_BE;
        case PCM_FORMAT_S32_BE:
            return SNDRV_PCM_FORMAT_S32_BE;
        case PCM_FORMAT_FLOAT_LE:
            return SNDRV_PCM_FORMAT_FLOAT_LE;
        case PCM_FORMAT_FLOAT_BE:
            return SNDRV_PCM_FORMAT_FLOAT_BE;
        default:
            return -1;
    }
}

void InitOpenHwParams(snd_pcm_hw_params* params) {
    std::memset(params, 0, sizeof(*params));
    for (int p = SNDRV_PCM_HW_PARAM_FIRST_MASK; p <= SNDRV_PCM_HW_PARAM_LAST_MASK; ++p) {
        std::memset(Mask(params, p)->bits, 0xFF, sizeof(Mask(params, p)->bits));
    }
    for (int p = SNDRV_PCM_HW_PARAM_FIRST_INTERVAL; p <= SNDRV_PCM_HW_PARAM_LAST_INTERVAL; ++p) {
        Interval(params, p)->max = UINT_MAX;
    }
    params->rmask = ~0u;
    params->info = ~0u;
}

void ConstrainHwParams(snd_pcm_hw_params* params, int kernelFormat, const pcm_config& config) {
    SetMaskBit(params, SNDRV_PCM_HW_PARAM_ACCESS, SNDRV_PCM_ACCESS_RW_INTERLEAVED);
    SetMaskBit(params, SNDRV_PCM_HW_PARAM_FORMAT, static_cast<unsigned int>(kernelFormat));
    SetMaskBit(params, SNDRV_PCM_HW_PARAM_SUBFORMAT, SNDRV_PCM_SUBFORMAT_STD);
    SetExact(params, SNDRV_PCM_HW_PARAM_CHANNELS, config.channels);
    SetExact(params, SNDRV_PCM_HW_PARAM_RATE, config.rate);
    SetMin(params, SNDRV_PCM_HW_PARAM_PERIOD_SIZE, config.period_size);
    SetExact(params, SNDRV_PCM_HW_PARAM_PERIODS, config.period_count);
}

void RangesFromHwParams(const snd_pcm_hw_params& params, ParamRanges* ranges) {
    std::memset(ranges, 0, sizeof(*ranges));
    for (int p = SNDRV_PCM_HW_PARAM_FIRST_INTERVAL; p <= SNDRV_PCM_HW_PARAM_LAST_INTERVAL; ++p) {
        const snd_interval& interval = Interval(params, p);
        int id = kFirstIntervalId + (p - SNDRV_PCM_HW_PARAM_FIRST_INTERVAL);
        // An open end excludes its bound; the nearest whole value inside is reported.
        ranges->min[id] = interval.min + (interval.openmin && interval.min < UINT_MAX ? 1 : 0);
        ranges->max[id] = interval.max - (interval.openmax && interval.max > 0 ? 1 : 0);
    }
}

unsigned int ChosenValue(const snd_pcm_hw_params& params, int kernelParam) {
    return Interval(params, kernelParam).min;
}

static_assert(PCM_PARAM_TICK_TIME - PCM_PARAM_SAMPLE_BITS ==
                  SNDRV_PCM_HW_PARAM_TICK_TIME - SNDRV_PCM_HW_PARAM_SAMPLE_BITS,
              "tinyalsa's interval ids follow the kernel's order");

}  // namespace tinyalsa

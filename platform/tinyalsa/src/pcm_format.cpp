#include "pcm_format.h"

namespace tinyalsa {

unsigned int FormatBits(pcm_format format) {
    switch (format) {
        case PCM_FORMAT_S8:
            return 8;
        case PCM_FORMAT_S16_LE:
        case PCM_FORMAT_S16_BE:
            return 16;
        case PCM_FORMAT_S24_3LE:
            return 24;
        case PCM_FORMAT_S32_LE:
        case PCM_FORMAT_S24_LE:
        case PCM_FORMAT_S24_BE:
        case PCM_FORMAT_S32_SLOT_LE:
        case PCM_FORMAT_S32_BE:
        case PCM_FORMAT_FLOAT_LE:
        case PCM_FORMAT_FLOAT_BE:
            return 32;
        default:
            return 0;
    }
}

unsigned int FrameBytes(pcm_format format, unsigned int channels) {
    return FormatBits(format) / 8 * channels;
}

bool IsVirtualFormat(pcm_format format) {
    return format == PCM_FORMAT_S16_LE || format == PCM_FORMAT_S32_LE || format == PCM_FORMAT_S32_SLOT_LE;
}

const char* FormatName(pcm_format format) {
    switch (format) {
        case PCM_FORMAT_S16_LE:
            return "s16_le";
        case PCM_FORMAT_S32_LE:
            return "s32_le";
        case PCM_FORMAT_S8:
            return "s8";
        case PCM_FORMAT_S24_LE:
            return "s24_le";
        case PCM_FORMAT_S24_3LE:
            return "s24_3le";
        case PCM_FORMAT_S16_BE:
            return "s16_be";
        case PCM_FORMAT_S24_BE:
            return "s24_be";
        case PCM_FORMAT_S32_SLOT_LE:
            return "s32_slot_le";
        case PCM_FORMAT_S32_BE:
            return "s32_be";
        case PCM_FORMAT_FLOAT_LE:
            return "float_le";
        case PCM_FORMAT_FLOAT_BE:
            return "float_be";
        default:
            return nullptr;
    }
}

int32_t SlotFromLevel(int16_t value) {
    return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint16_t>(value)) << 16);
}

void StoreLe16(uint8_t* dst, int16_t value) {
    uint16_t bits = static_cast<uint16_t>(value);
    dst[0] = static_cast<uint8_t>(bits & 0xFF);
    dst[1] = static_cast<uint8_t>(bits >> 8);
}

void StoreLe32(uint8_t* dst, int32_t value) {
    uint32_t bits = static_cast<uint32_t>(value);
    for (int i = 0; i < 4; ++i) {
        dst[i] = static_cast<uint8_t>(bits >> (8 * i));
    }
}

int16_t LoadLe16(const uint8_t* src) {
    return static_cast<int16_t>(static_cast<uint16_t>(src[0] | (src[1] << 8)));
}

int32_t LoadLe32(const uint8_t* src) {
    uint32_t bits = 0;
    for (int i = 3; i >= 0; --i) {
        bits = (bits << 8) | src[i];
    }
    return static_cast<int32_t>(bits);
}

void StoreSample(uint8_t* dst, pcm_format format, int16_t value) {
    if (format == PCM_FORMAT_S16_LE) {
        StoreLe16(dst, value);
    } else {
        StoreLe32(dst, SlotFromLevel(value));
    }
}

}  // namespace tinyalsa

#include "line_in_check.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "audio_log.h"

namespace audiomw {
namespace {

constexpr size_t kSampleBytes = 2;
constexpr int kLineInLevel = 25000;   // a channel-2 sample above it is a hit
constexpr double kLineInRatio = 0.6;  // share of the block's frames that is an error

int16_t SampleAt(const unsigned char* pBuf, size_t u32Index) {
    int16_t s16;
    std::memcpy(&s16, pBuf + u32Index * kSampleBytes, sizeof(s16));
    return s16;
}

}  // namespace

void LineInCheckPass(unsigned char* pBuf, int s32Chn, int s32Frames, bool bConnected,
                     unsigned int& u32CheckCnt) {
    int s32Hits = 0;
    for (int i = 0; s32Chn > 3 && i < s32Frames; ++i) {
        const size_t u32Ch2 = static_cast<size_t>(i) * s32Chn + 2;
        if (u32CheckCnt >= kLineInIdleBlocks && u32CheckCnt < kLineInIdleBlocks + kLineInReports) {
            s32Hits += SampleAt(pBuf, u32Ch2) > kLineInLevel;
            float f32Ratio = static_cast<float>(s32Hits) / static_cast<float>(s32Frames);
            if (static_cast<double>(f32Ratio) >= kLineInRatio) {
                u32CheckCnt++;
                std::printf("%s-%d: LineIn capture error. %d-%d, %f \n", "_readFrame", __LINE__, s32Hits,
                            s32Frames, static_cast<double>(f32Ratio));
                AUDIO_LOG_OP("_readFrame", UTIL_LOG_WARN, " LineIn capture error. %d-%d, %f \n", s32Hits,
                             s32Frames, static_cast<double>(f32Ratio));
                s32Hits = 0;
            }
        }
        if (!bConnected) {  // after the check has read channel 2
            std::memset(pBuf + u32Ch2 * kSampleBytes, 0, 2 * kSampleBytes);
        }
    }
}

}  // namespace audiomw

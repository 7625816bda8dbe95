// Exported resampler functions: argument checks and their reports on standard output.
#include "audio_resample.h"

#include "convert_print.h"
#include "resampler.h"

RESAMPLE_HANDLER* RESAMPLE_CreateHandler(RESAMPLE_ATTR_S* attr) {
    if (attr == nullptr) {
        CONVERT_PRINT("attr is null!\n");
        return nullptr;
    }
    if (attr->s32InChn != attr->s32OutChn) {
        CONVERT_PRINT("channel of input and output must be same!\n");
        return nullptr;
    }
    if (attr->s32InPeriodSize != audiomw::ResamplerExpectedInPeriod(*attr)) {
        CONVERT_PRINT("period_size should match convert rate!\n");
        return nullptr;
    }
    if (!audiomw::ResamplerShapeValid(*attr)) {
        CONVERT_PRINT("channel %d or period_size %d=>%d out of range!\n", attr->s32InChn,
                      attr->s32InPeriodSize, attr->s32OutPeriodSize);
        return nullptr;
    }
    audiomw::ResamplerNewResult result = audiomw::kResamplerOk;
    RESAMPLE_HANDLER* handler = audiomw::ResamplerNew(*attr, &result);
    if (handler == nullptr) {
        if (result == audiomw::kResamplerNoMemory) {
            CONVERT_PRINT("no memory for resample buffers!\n");
        }
        return nullptr;
    }
    int error = src_set_ratio(handler->pState, handler->stData.src_ratio);
    if (error != 0) {
        CONVERT_PRINT("src_set_ratio err=%s\n", src_strerror(error));
    }
    return handler;
}

int RESAMPLE_Process(RESAMPLE_HANDLER* handler, unsigned char* in, int inFrames, unsigned char* out,
                     int outFrames) {
    // Every call converts exactly one configured period, whatever the caller counts.
    (void)inFrames;
    (void)outFrames;
    if (handler == nullptr) {
        return -1;
    }
    if (!audiomw::ResamplerUsable(*handler)) {
        CONVERT_PRINT("handler is not usable!\n");
        return -1;
    }
    if (in == nullptr || out == nullptr) {
        CONVERT_PRINT("in or out buffer is null!\n");
        return -1;
    }
    int error = audiomw::ResamplerRun(handler, in, out);
    if (error != 0) {
        CONVERT_PRINT("src_process err=%s\n", src_strerror(error));
        return 0;
    }
    return static_cast<int>(handler->stData.output_frames_gen);
}

int RESAMPLE_Destroy(RESAMPLE_HANDLER** handler) {
    if (handler == nullptr) {
        return 0;
    }
    audiomw::ResamplerDelete(*handler);
    *handler = nullptr;
    return 0;
}

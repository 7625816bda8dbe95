#include "resampler.h"

#include <climits>
#include <new>

namespace audiomw {

long long ResamplerExpectedInPeriod(const RESAMPLE_ATTR_S& attr) {
    if (attr.s32OutRate == 0) {
        return 0;
    }
    return static_cast<long long>(attr.s32OutPeriodSize) * attr.s32InRate / attr.s32OutRate;
}

long long ResamplerSamples(int frames, int channels) {
    if (frames < 0 || channels < 0) {
        return -1;
    }
    long long samples = static_cast<long long>(frames) * channels;
    return samples > INT_MAX ? -1 : samples;
}

bool ResamplerShapeValid(const RESAMPLE_ATTR_S& attr) {
    return attr.s32InChn >= 1 && attr.s32OutChn >= 1 &&
           ResamplerSamples(attr.s32InPeriodSize, attr.s32InChn) >= 0 &&
           ResamplerSamples(attr.s32OutPeriodSize, attr.s32OutChn) >= 0;
}

RESAMPLE_HANDLER* ResamplerNew(const RESAMPLE_ATTR_S& attr, ResamplerNewResult* result) {
    int error = 0;
    SRC_STATE* state = src_new(SRC_ZERO_ORDER_HOLD, attr.s32InChn, &error);
    if (state == nullptr) {
        *result = kResamplerNoConverter;
        return nullptr;
    }
    const long long inSamples = ResamplerSamples(attr.s32InPeriodSize, attr.s32InChn);
    const long long outSamples = ResamplerSamples(attr.s32OutPeriodSize, attr.s32OutChn);
    RESAMPLE_HANDLER* handler = new (std::nothrow) RESAMPLE_HANDLER();
    // Zero-filled, so output space the converter does not reach reads as silence.
    float* dataIn = new (std::nothrow) float[inSamples]();
    float* dataOut = new (std::nothrow) float[outSamples]();
    if (handler == nullptr || dataIn == nullptr || dataOut == nullptr) {
        delete[] dataOut;
        delete[] dataIn;
        delete handler;
        src_delete(state);
        *result = kResamplerNoMemory;
        return nullptr;
    }
    handler->pState = state;
    handler->stAttr = attr;
    handler->stData.data_in = dataIn;
    handler->stData.data_out = dataOut;
    handler->stData.input_frames = attr.s32InPeriodSize;
    handler->stData.output_frames = attr.s32OutPeriodSize;
    handler->stData.end_of_input = 0;
    handler->stData.src_ratio = static_cast<double>(attr.s32OutRate) / static_cast<double>(attr.s32InRate);
    *result = kResamplerOk;
    return handler;
}

bool ResamplerUsable(const RESAMPLE_HANDLER& handler) {
    const RESAMPLE_ATTR_S& attr = handler.stAttr;
    if (handler.pState == nullptr || !ResamplerShapeValid(attr)) {
        return false;
    }
    return (handler.stData.data_in != nullptr ||
            ResamplerSamples(attr.s32InPeriodSize, attr.s32InChn) == 0) &&
           (handler.stData.data_out != nullptr ||
            ResamplerSamples(attr.s32OutPeriodSize, attr.s32OutChn) == 0);
}

int ResamplerRun(RESAMPLE_HANDLER* handler, const unsigned char* in, unsigned char* out) {
    const RESAMPLE_ATTR_S& attr = handler->stAttr;
    // The handler owns data_in; libsamplerate only declares it const for src_process.
    float* dataIn = const_cast<float*>(handler->stData.data_in);
    src_short_to_float_array(reinterpret_cast<const short*>(in), dataIn,
                             static_cast<int>(ResamplerSamples(attr.s32InPeriodSize, attr.s32InChn)));
    int error = src_process(handler->pState, &handler->stData);
    if (error != 0) {
        return error;
    }
    src_float_to_short_array(handler->stData.data_out, reinterpret_cast<short*>(out),
                             static_cast<int>(ResamplerSamples(attr.s32OutPeriodSize, attr.s32OutChn)));
    return 0;
}

void ResamplerDelete(RESAMPLE_HANDLER* handler) {
    if (handler == nullptr) {
        return;
    }
    src_delete(handler->pState);
    delete[] handler->stData.data_in;
    delete[] handler->stData.data_out;
    delete handler;
}

}  // namespace audiomw

// Helpers of the stream tests: stream records, node records, built nodes, file AIs.
#ifndef AUDIOMW_TESTS_ASTREAM_ASTREAM_TEST_UTIL_H
#define AUDIOMW_TESTS_ASTREAM_ASTREAM_TEST_UTIL_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>

#include "audio_ai.h"
#include "audio_astream.h"
#include "test_support.h"

namespace astream_test {

// A zero-filled record of s32Chn blocks of u32Frames samples; its nodes go with it.
struct FakeStream {
    ASTREAM_HANDLER_S h{};
    FakeStream(int s32Chn, uint32_t u32Frames, int s32Id = 0) {
        h.s32StreamId = s32Id;
        h.s32Chn = s32Chn;
        h.u32BufLen = static_cast<uint32_t>(std::max(s32Chn, 0)) * u32Frames * 2;
    }
    ~FakeStream() { AUDIO_ASTREAM_DestroyPipeline(&h); }
    FakeStream(const FakeStream&) = delete;
    FakeStream& operator=(const FakeStream&) = delete;
};

inline ASTREAM_NODE_ATTR_S NodeAttr(ASTREAM_NODE_TYPE_E eType) {
    ASTREAM_NODE_ATTR_S a;
    std::memset(&a, 0, sizeof(a));
    a.eType = eType;
    return a;
}
inline ASTREAM_NODE_ATTR_S SwapAttr(std::initializer_list<int> map) {
    ASTREAM_NODE_ATTR_S a = NodeAttr(ASTREAM_NODE_TYPE_E_SWAP);
    std::copy(map.begin(), map.end(), a.unAttr.stSwap.as32Map);
    return a;
}
inline ASTREAM_NODE_ATTR_S SplitAttr(int o, int ca, int cb) {
    ASTREAM_NODE_ATTR_S a = NodeAttr(ASTREAM_NODE_TYPE_E_SPLIT);
    a.unAttr.stSplit = {o, ca, cb};
    return a;
}
inline ASTREAM_NODE_ATTR_S MergeAttr(int o, int ca, int cb) {
    ASTREAM_NODE_ATTR_S a = NodeAttr(ASTREAM_NODE_TYPE_E_MERGE);
    a.unAttr.stMerge = {o, ca, cb};
    return a;
}
inline ASTREAM_NODE_ATTR_S MixinAttr(int t, int o, int c) {
    ASTREAM_NODE_ATTR_S a = NodeAttr(ASTREAM_NODE_TYPE_E_MIXIN);
    a.unAttr.stMixin = {t, o, c};
    return a;
}
inline ASTREAM_NODE_ATTR_S DumpAttr(const std::string& path, int o, int c) {
    ASTREAM_NODE_ATTR_S a = NodeAttr(ASTREAM_NODE_TYPE_E_DEBUG_DUMP);
    std::strncpy(a.unAttr.stDump.acPath, path.c_str(), sizeof(a.unAttr.stDump.acPath) - 1);
    a.unAttr.stDump.s32ChnOffset = o;
    a.unAttr.stDump.s32ChnCnt = c;
    return a;
}
inline ASTREAM_NODE_ATTR_S OutputAttr(int ao, int offset, int count, int source = -1, int dropFrames = -1) {
    ASTREAM_NODE_ATTR_S a = NodeAttr(ASTREAM_NODE_TYPE_E_OUTPUT);
    a.unAttr.stOutput = {ao, offset, count, source, ZN_FALSE, dropFrames};
    return a;
}
inline ASTREAM_ATTR_S StreamAttr(int ai, int workers, std::initializer_list<ASTREAM_NODE_ATTR_S> nodes = {}) {
    ASTREAM_ATTR_S a;
    a.s32AiId = ai;
    a.s32WorkerNum = workers;
    a.lstNodeAttr = nodes;
    return a;
}

// One node built from `a` through the pipeline and taken out of the stream's list again.
inline std::unique_ptr<ASTREAM_NODE_S> BuildNode(FakeStream& s, ASTREAM_NODE_ATTR_S a) {
    ASTREAM_ATTR_S attr = StreamAttr(0, 1, {a});
    if (AUDIO_ASTREAM_InitPipeline(&s.h, &attr) != 0 || s.h.lstNode.empty())
        return nullptr;
    std::unique_ptr<ASTREAM_NODE_S> node(s.h.lstNode.back());
    s.h.lstNode.pop_back();
    return node;
}

// A disabled file AI record: the stream's start enables it.
inline AI_ATTR_S FileAi(const std::string& path, int channels, int frames) {
    AI_ATTR_S a;
    std::memset(&a, 0, sizeof(a));
    a.eType = AI_DEV_TYPE_FILE;
    std::strncpy(a.acFilePath, path.c_str(), sizeof(a.acFilePath) - 1);
    a.eSampleRate = AI_SAMPLE_RATE_16000;
    a.s32Channel = channels;
    a.s32FrameLen = frames;
    return a;
}

inline void DropAi(int id) {
    AUDIO_AI_Close(id);
    AUDIO_AI_SetEnable(id, ZN_FALSE);
    AUDIO_AI_Destroy(id);
}

}  // namespace astream_test

#endif  // AUDIOMW_TESTS_ASTREAM_ASTREAM_TEST_UTIL_H

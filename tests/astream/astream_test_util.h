// Helpers shared by the stream tests: stream records made by hand, nodes built the way
// the pipeline builds them, node attribute records, channel-block buffers and file AIs.
#ifndef AUDIOMW_TESTS_ASTREAM_ASTREAM_TEST_UTIL_H
#define AUDIOMW_TESTS_ASTREAM_ASTREAM_TEST_UTIL_H

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "audio_ai.h"
#include "audio_astream.h"

namespace astream_test {

// A zero-filled stream record of s32Chn channel blocks of u32Frames samples each, not
// in the slot table. The nodes in its lstNode are destroyed and freed with it.
struct FakeStream {
    ASTREAM_HANDLER_S h{};

    FakeStream(int s32Chn, uint32_t u32Frames, int s32Id = 0) {
        h.s32StreamId = s32Id;
        h.s32Chn = s32Chn;
        h.u32BufLen = static_cast<uint32_t>(s32Chn > 0 ? s32Chn : 0) * u32Frames * 2;
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
    int i = 0;
    for (int v : map) {
        a.unAttr.stSwap.as32Map[i++] = v;
    }
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

// Builds one node from `a` through the pipeline, as a stream would, and takes it out of
// the stream's list again. Null when the pipeline refused the code.
inline std::unique_ptr<ASTREAM_NODE_S> BuildNode(FakeStream& s, ASTREAM_NODE_ATTR_S a) {
    ASTREAM_ATTR_S attr;
    attr.s32AiId = 0;
    attr.s32WorkerNum = 1;
    attr.lstNodeAttr.push_back(a);
    if (AUDIO_ASTREAM_InitPipeline(&s.h, &attr) != 0 || s.h.lstNode.empty()) {
        return nullptr;
    }
    std::unique_ptr<ASTREAM_NODE_S> node(s.h.lstNode.back());
    s.h.lstNode.pop_back();
    return node;
}

// Interleaved 16-bit frames of a channel group, one vector per frame, laid into (or
// read from) blocks [o, o + frames[0].size()) of a buffer whose blocks hold `frames`
// samples each.
inline void PutGroup(std::vector<int16_t>& buf, uint32_t frames, int o,
                     const std::vector<std::vector<int16_t>>& g) {
    size_t k = g.empty() ? 0 : g[0].size();
    for (uint32_t f = 0; f < g.size(); f++) {
        for (size_t j = 0; j < k; j++) {
            buf[o * frames + f * k + j] = g[f][j];
        }
    }
}

inline std::vector<uint8_t> Bytes(const std::vector<int16_t>& s) {
    std::vector<uint8_t> b(s.size() * 2);
    std::memcpy(b.data(), s.data(), b.size());
    return b;
}

inline std::vector<int16_t> Samples(const char* p, size_t n) {
    std::vector<int16_t> s(n);
    std::memcpy(s.data(), p, n * 2);
    return s;
}

// A file AI record: created disabled with its path, so that the stream's start (which
// enables the AI) takes the path over.
inline AI_ATTR_S FileAi(const std::string& path, int channels, int frames) {
    AI_ATTR_S a;
    std::memset(&a, 0, sizeof(a));
    a.eType = AI_DEV_TYPE_FILE;
    std::strncpy(a.acFilePath, path.c_str(), sizeof(a.acFilePath) - 1);
    a.bEnable = ZN_FALSE;
    a.eSampleRate = AI_SAMPLE_RATE_16000;
    a.s32Channel = channels;
    a.s32FrameLen = frames;
    return a;
}

// Closes, disables and deletes an AI, the teardown callers owe a device.
inline void DropAi(int id) {
    AUDIO_AI_Close(id);
    AUDIO_AI_SetEnable(id, ZN_FALSE);
    AUDIO_AI_Destroy(id);
}

}  // namespace astream_test

#endif  // AUDIOMW_TESTS_ASTREAM_ASTREAM_TEST_UTIL_H

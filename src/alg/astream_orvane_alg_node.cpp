// ASTREAM_ORVANE_ALG_NODE_S (declared in audio_alg.h): hands the microphone group and one
// reference channel of each frame period to the voice-processing library and the
// library's per-frame result to the application's callback. The stream's data stays in
// pIn; the library writes its processed microphone into pOut, which the next node treats
// as scratch.
//
// The library reads, from the microphone pointer, the blocks of every microphone and
// line-in channel of the geometry its instance was made with, and one block from the
// reference pointer. The node hands it only pointers that keep those reads inside pIn:
// a microphone group outside the stream, or a stream whose rate, frame length or channel
// counts differ from the shared instance's, is refused at init, which leaves the node
// disabled (as any failed init does); a reference offset
// outside the stream's blocks is replaced by the silent reference.
#include <climits>
#include <cstdlib>
#include <cstring>

#include "alg_shared.h"
#include "astream/astream_node.h"
#include "audio_ai.h"
#include "audio_log.h"
#include "qx_audio_alg.h"
#include "root_path.h"

using audiomw::alg::AlgGeometry;
using audiomw::alg::InstanceGuard;
using audiomw::astream::GroupWithin;
using audiomw::astream::StreamBlockSize;
using audiomw::astream::StreamChannels;

namespace {

constexpr uint8_t kSourceExRef = 1;
constexpr uint8_t kSourceAllRef = 2;
constexpr uint8_t kReportEveryFrame = 2;
constexpr int kNoWarning = INT_MIN;

int RefOffset(const ASTREAM_ORVANE_ALG_ATTR_S& stAttr, uint8_t u8Source) {
    if (u8Source == kSourceExRef) {
        return stAttr.s32ExRefChnOffset;
    }
    if (u8Source == kSourceAllRef) {
        return stAttr.s32AllRefChnOffset;
    }
    return stAttr.s32RefChnOffset;
}

// The blocks the library reads from the microphone pointer lie within the stream, and
// each of them is one block of the stream (frame length x 2 bytes).
bool MicGroupFits(const ASTREAM_ORVANE_ALG_ATTR_S& stAttr, const AlgGeometry& stGeo, int s32Chn,
                  uint32_t u32ChnSize) {
    const int64_t s64Cnt = static_cast<int64_t>(stGeo.s32MicCnt) + stGeo.s32LineInCnt;
    return stGeo.s32MicCnt >= 1 && stGeo.s32LineInCnt >= 0 &&
           GroupWithin(stAttr.s32MicChnOffset, s64Cnt, s32Chn) &&
           static_cast<int64_t>(stGeo.s32FrameLen) * 2 == u32ChnSize;
}

// The stream's geometry as init sees it: rate and frame length of its AI, the node's counts.
AlgGeometry StreamGeometry(const ASTREAM_NODE_S* pstNode, const ASTREAM_ORVANE_ALG_ATTR_S& stAttr) {
    AI_ATTR_S stAi;
    std::memset(&stAi, 0, sizeof(stAi));
    // A failed read leaves rate and frame length 0.
    AUDIO_AI_GetAttr(pstNode->_mpHandler != nullptr ? pstNode->_mpHandler->s32AiId : -1, &stAi);
    return AlgGeometry{static_cast<int>(stAi.eSampleRate), stAi.s32FrameLen, stAttr.s32MicChnCnt,
                       stAttr.s32LineInChnCnt};
}

// Makes the instance. Under the instance lock. The handle, or null after logging why.
void* CreateInstance(const ASTREAM_ORVANE_ALG_ATTR_S& stAttr, const AlgGeometry& stGeo) {
    QX_AUDIO_ALG_PARAM_S stParam;
    std::memset(&stParam, 0, sizeof(stParam));
    stParam.s32SampleRate = stGeo.s32Rate;
    stParam.s32FrameLen = stGeo.s32FrameLen;
    stParam.s32MicChnCnt = stGeo.s32MicCnt;
    stParam.s32LineInChnCnt = stGeo.s32LineInCnt;
    AUDIO_LOG_OP("init", UTIL_LOG_INFO, "Orvane Audio Alg init with rate:%d frame:%d mic:%d+%d ",
                 stGeo.s32Rate, stGeo.s32FrameLen, stGeo.s32MicCnt, stGeo.s32LineInCnt);
    AUDIO_LOG_OP("init", UTIL_LOG_INFO, "Orvane Audio Alg use mic at %d, ref-in at %d",
                 stAttr.s32MicChnOffset, stAttr.s32RefChnOffset);
    AUDIO_LOG_OP("init", UTIL_LOG_INFO, "Orvane Audio Alg use exref-in at %d, allref-in at %d",
                 stAttr.s32ExRefChnOffset, stAttr.s32AllRefChnOffset);
    int s32Err = 0;
    void* pHandle = QX_AudioAlgInit(&stParam, &s32Err);
    if (pHandle == nullptr) {
        AUDIO_LOG_OP("init", UTIL_LOG_ERR, "Orvane Audio Alg init failed: %d", s32Err);
    }
    return pHandle;
}

// The silent reference of one block, made once per process. Under the instance lock.
void PrepareEmptyRefIn(int s32FrameLen) {
    const size_t u32Bytes = s32FrameLen > 0 ? static_cast<size_t>(s32FrameLen) * 2 : 0;
    if (g_ptrEmptyRefIn == nullptr) {
        g_ptrEmptyRefIn = u32Bytes > 0 ? static_cast<short*>(std::malloc(u32Bytes)) : nullptr;
        if (g_ptrEmptyRefIn == nullptr) {
            AUDIO_LOG_OP("init", UTIL_LOG_ERR, "Orvane Audio Alg init EmptyRefIn [%d] fail\n",
                         static_cast<int>(u32Bytes));
            return;
        }
    }
    std::memset(g_ptrEmptyRefIn, 0, u32Bytes);
}

// Appends the reference block to "/tmp/refin_test.pcm" while "/tmp/refinsave" exists;
// closes the dump once the marker is gone. Under the instance lock.
void DumpRefIn(const char* pcRef, uint32_t u32ChnSize) {
    FILE*& pFile = audiomw::alg::RefInDumpFile();
    if (!audiomw::MarkerExists("/tmp/refinsave")) {
        if (pFile != nullptr) {
            std::fclose(pFile);
            pFile = nullptr;
        }
        return;
    }
    if (pFile == nullptr) {
        char acPath[audiomw::kRootPathMax];
        if (audiomw::RootPath("/tmp/refin_test.pcm", acPath, sizeof(acPath)) == nullptr) {
            return;
        }
        pFile = std::fopen(acPath, "w");
        if (pFile == nullptr) {
            return;
        }
        // Unbuffered: stdio then never allocates a buffer on a worker thread.
        std::setvbuf(pFile, nullptr, _IONBF, 0);
    }
    std::fwrite(pcRef, 1, u32ChnSize, pFile);
}

// A selected reference offset outside the stream's blocks is reported once until the
// selection changes, not on every frame.
void WarnRefOffset(int& s32Warned, int s32RefOffset, int s32Chn, bool bSilentUsed) {
    if (s32Warned == s32RefOffset) {
        return;
    }
    s32Warned = s32RefOffset;
    if (bSilentUsed) {
        AUDIO_LOG_OP("process", UTIL_LOG_WARN,
                     "Orvane Audio Alg ref-in at %d outside %d channels, silent reference used", s32RefOffset,
                     s32Chn);
    } else {
        AUDIO_LOG_OP("process", UTIL_LOG_ERR,
                     "Orvane Audio Alg ref-in at %d outside %d channels, no reference: frames skipped",
                     s32RefOffset, s32Chn);
    }
}

void Report(int s32RefOffset, const tagVOR_AUDIO_REF_IN_RES& stRefIn, uint32_t u32ChnSize) {
    if (audiomw::alg::RefInDbgLevel() == kReportEveryFrame) {
        std::printf("RefInOffset: %d, Switch: %d, Source:%d chnsize:%d, EmpytRefin:%p \n", s32RefOffset,
                    stRefIn.u8Switch, stRefIn.u8Source, static_cast<int>(u32ChnSize),
                    static_cast<void*>(g_ptrEmptyRefIn));
    } else if (audiomw::alg::TakeOneShotReport()) {
        AUDIO_LOG_OP("process", UTIL_LOG_INFO,
                     "RefInOffset: %d, Switch: %d, Source:%d, chnsize:%d, EmpytRefin:%p \n", s32RefOffset,
                     stRefIn.u8Switch, stRefIn.u8Source, static_cast<int>(u32ChnSize),
                     static_cast<void*>(g_ptrEmptyRefIn));
    }
}

// The reference block for this frame: the silent reference while none is switched on or
// the selected offset lies outside the stream, else the selected block; with no silent
// reference the selected block in both cases. Null when there is none to hand over.
char* PickReference(int& s32Warned, char* pIn, const tagVOR_AUDIO_REF_IN_RES& stRefIn, int s32RefOffset,
                    int s32Chn, uint32_t u32ChnSize) {
    const bool bRefUsable = s32RefOffset >= 0 && s32RefOffset < s32Chn;
    if (bRefUsable) {
        s32Warned = kNoWarning;
    }
    if ((stRefIn.u8Switch == 0 || !bRefUsable) && g_ptrEmptyRefIn != nullptr) {
        if (stRefIn.u8Switch != 0) {
            WarnRefOffset(s32Warned, s32RefOffset, s32Chn, true);
        }
        return reinterpret_cast<char*>(g_ptrEmptyRefIn);
    }
    if (!bRefUsable) {
        WarnRefOffset(s32Warned, s32RefOffset, s32Chn, false);
        return nullptr;
    }
    return pIn + static_cast<size_t>(s32RefOffset) * u32ChnSize;
}

// One library call under the instance lock, and the reference dump on the real-reference
// path. False, without a call, when the instance would read outside the stream's buffer.
bool CallLibrary(void* pHandle, const ASTREAM_ORVANE_ALG_ATTR_S& stAttr, char* pIn, char* pcRef, char* pOut,
                 int s32Chn, uint32_t u32ChnSize, short* ps16Result, int* ps32Ret) {
    InstanceGuard lk;
    if (!MicGroupFits(stAttr, audiomw::alg::InstanceGeometry(), s32Chn, u32ChnSize)) {
        return false;
    }
    char* pcMic = pIn + static_cast<size_t>(stAttr.s32MicChnOffset) * u32ChnSize;
    *ps32Ret = QX_AudioAlgFrmProc(pHandle, reinterpret_cast<short*>(pcMic), reinterpret_cast<short*>(pcRef),
                                  reinterpret_cast<short*>(pOut), ps16Result);
    if (pcRef != reinterpret_cast<char*>(g_ptrEmptyRefIn)) {
        DumpRefIn(pcRef, u32ChnSize);
    }
    return true;
}

// Init's work after the record is copied: checks the stream's geometry and takes (or
// makes) the instance. 0, or -1 after logging why.
int AttachInstance(ASTREAM_ORVANE_ALG_NODE_S* pstNode) {
    const AlgGeometry stGeo = StreamGeometry(pstNode, pstNode->_mstAttr);
    const int s32Chn = StreamChannels(pstNode);
    if (!MicGroupFits(pstNode->_mstAttr, stGeo, s32Chn, StreamBlockSize(pstNode))) {
        AUDIO_LOG_OP(
            "init", UTIL_LOG_ERR,
            "Orvane Audio Alg init refused: mic group %d+%d at %d, frame %d, outside %d channels of %u bytes",
            stGeo.s32MicCnt, stGeo.s32LineInCnt, pstNode->_mstAttr.s32MicChnOffset, stGeo.s32FrameLen, s32Chn,
            StreamBlockSize(pstNode));
        return -1;
    }
    InstanceGuard lk;
    AlgGeometry& stInst = audiomw::alg::InstanceGeometry();
    if (g_OrvaneAlgHandler != nullptr) {
        if (!audiomw::alg::SameGeometry(stInst, stGeo)) {
            AUDIO_LOG_OP(
                "init", UTIL_LOG_ERR,
                "Orvane Audio Alg init refused: rate:%d frame:%d mic:%d+%d, the instance has rate:%d "
                "frame:%d mic:%d+%d",
                stGeo.s32Rate, stGeo.s32FrameLen, stGeo.s32MicCnt, stGeo.s32LineInCnt, stInst.s32Rate,
                stInst.s32FrameLen, stInst.s32MicCnt, stInst.s32LineInCnt);
            return -1;
        }
        pstNode->_mpAlgHandle = g_OrvaneAlgHandler;
    } else {
        pstNode->_mpAlgHandle = CreateInstance(pstNode->_mstAttr, stGeo);
        if (pstNode->_mpAlgHandle == nullptr) {
            return -1;
        }
        PrepareEmptyRefIn(stGeo.s32FrameLen);
        stInst = stGeo;
        g_OrvaneAlgHandler = pstNode->_mpAlgHandle;
    }
    char acVer[AUDIO_ALG_VERSION_LEN] = {0};
    QX_AudioAlgGetVersion(pstNode->_mpAlgHandle, acVer, AUDIO_ALG_VERSION_LEN);
    acVer[AUDIO_ALG_VERSION_LEN - 1] = '\0';
    AUDIO_LOG_OP("init", UTIL_LOG_INFO, "Orvane Audio Alg version: %s", acVer);
    AUDIO_LOG_OP("init", UTIL_LOG_INFO, "Orvane Audio Alg init ok");
    return 0;
}

}  // namespace

ASTREAM_ORVANE_ALG_NODE_S::ASTREAM_ORVANE_ALG_NODE_S()
    : _mstAttr(), _mpAlgHandle(nullptr), _ms32WarnedRefOffset(kNoWarning) {}

ASTREAM_ORVANE_ALG_NODE_S::~ASTREAM_ORVANE_ALG_NODE_S() {}

int ASTREAM_ORVANE_ALG_NODE_S::init(void* pAttr) {
    _mpAlgHandle = nullptr;
    if (!audiomw::astream::CopyRecord(this, pAttr, &_mstAttr)) {
        return -1;
    }
    if (AttachInstance(this) != 0) {
        // Without an instance every frame would fail and be reported: the workers skip
        // the node instead.
        audiomw::astream::NodeSetEnable(this, ZN_FALSE);
        return -1;
    }
    return 0;
}

int ASTREAM_ORVANE_ALG_NODE_S::destroy() {
    AUDIO_LOGI("Orvane Audio Alg destroy ok");
    return 0;
}

int ASTREAM_ORVANE_ALG_NODE_S::process(char* pIn, char* pOut, bool& bInPlace) {
    bInPlace = true;
    if (_mpAlgHandle == nullptr || pIn == nullptr) {
        // Init failed: no instance to run, and no report (the silent reference it names
        // may be in the making by another stream's init).
        return -1;
    }
    const uint32_t u32ChnSize = StreamBlockSize(this);
    const tagVOR_AUDIO_REF_IN_RES stRefIn = audiomw::alg::LoadRefIn();
    const int s32RefOffset = RefOffset(_mstAttr, stRefIn.u8Source);
    Report(s32RefOffset, stRefIn, u32ChnSize);
    const int s32Chn = StreamChannels(this);
    char* pcRef = PickReference(_ms32WarnedRefOffset, pIn, stRefIn, s32RefOffset, s32Chn, u32ChnSize);
    if (pcRef == nullptr) {
        return -1;
    }
    short s16AlgResult = 0;
    int s32Ret = 0;
    if (!CallLibrary(_mpAlgHandle, _mstAttr, pIn, pcRef, pOut, s32Chn, u32ChnSize, &s16AlgResult, &s32Ret)) {
        return -1;
    }
    if (s32Ret != 0) {
        AUDIO_LOGE("Orvane Audio Alg failed: %d", s32Ret);
        return -1;
    }
    // After the instance lock is released: the callback may call AUDIO_ALG_*.
    if (_mstAttr.pfnFrameCallback != nullptr) {
        _mstAttr.pfnFrameCallback(_mstAttr.pCallbackArg, s16AlgResult);
    }
    return 0;
}

int ASTREAM_ORVANE_ALG_NODE_S::setCfg(ASTREAM_OUTPUT_ATTR_S stAttr) {
    (void)stAttr;
    return 0;
}

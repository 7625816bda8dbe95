// AI_ALSA_DEVICE_S: negotiation with the card in init (channels, rate, the slot format
// of card 3 device 0, the USB device switch of card 4), the conversion chain
// resampler -> rematrix with buffers made once, and the read path with its failure
// counting, recordings and line-in capture check.
#include "ai_alsa_device.h"

#include <pthread.h>
#include <tinyalsa/pcm.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>

#include "audio_log.h"
#include "line_in_check.h"
#include "relaxed_atomic.h"
#include "root_path.h"

using audiomw::StoreRelaxed;

namespace {

constexpr unsigned int kPeriodCount = 20;
// Consecutive read failures that are logged; later ones of the same run are not.
constexpr unsigned int kLoggedReadFailures = 5;
// Card 3 device 0 runs 32-bit slots: format code 7, which moves 4 bytes a sample on
// this board. The count is the device's own; tinyalsa numbers code 7 differently.
constexpr enum pcm_format kSlotFormat = static_cast<enum pcm_format>(7);
constexpr unsigned int kSlotSampleBytes = 4;
constexpr unsigned int kSampleBytes = 2;
constexpr int kLineInCard = 1;
constexpr int kUsbCard = 4;
constexpr const char* kUsbIdPath = "/proc/asound/card4/usbid";
constexpr const char* kSwitchUsbId = "1377:1500";  // captured from PCM device 1
constexpr unsigned int kPcmBufSpareBytes = 256;
constexpr unsigned int kMidBufSpareSamples = 128;

// A debug recording, switched by its marker file; one per card kind, shared by all ALSA
// AIs. The mutex only keeps two readers of the same card kind from tearing the handle.
struct Recording {
    const char* pcMarker;
    const char* pcFile;
    FILE* pFile;
    pthread_mutex_t stMutex;
};
Recording gs_stLineRecording = {"/var/recordline", "/var/Line.pcm", nullptr, PTHREAD_MUTEX_INITIALIZER};
Recording gs_stUsbRecording = {"/var/recorduac", "/var/Uac.pcm", nullptr, PTHREAD_MUTEX_INITIALIZER};

bool IsSlotPcm(int card, int device) {
    return card == 3 && device == 0;
}

// Counts in the attributes that size buffers: all positive, a block within int range.
bool ValidAttr(const AI_ALSA_DEVICE_S* pDev) {
    const AI_ATTR_S& a = pDev->stAttr;
    if (a.eSampleRate > 0 && a.s32Channel > 0 && a.s32FrameLen > 0 &&
        static_cast<long long>(a.s32Channel) * a.s32FrameLen * kSampleBytes <= INT_MAX) {
        return true;
    }
    AUDIO_LOG_OP("init", UTIL_LOG_ERR, "AI[%d] invalid attributes: rate %d, channels %d, frame length %d\n",
                 pDev->s32Id, static_cast<int>(a.eSampleRate), a.s32Channel, a.s32FrameLen);
    return false;
}

// Writes `pcIn` to `pcOut` so that /bin/sh reads it back as one word: unchanged when it
// holds only harmless characters, else in single quotes with each ' written as '\''.
bool ShellQuote(const char* pcIn, char* pcOut, size_t u32Cap) {
    const char* pcSafe = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._-+,:@%";
    bool bPlain = pcIn[0] != '\0' && pcIn[std::strspn(pcIn, pcSafe)] == '\0';
    size_t n = 0;
    auto put = [&](const char* s) {
        for (; *s != '\0'; ++s) {
            if (n + 1 >= u32Cap) {
                return false;
            }
            pcOut[n++] = *s;
        }
        return true;
    };
    bool bFits = bPlain ? put(pcIn) : put("'");
    for (const char* p = pcIn; !bPlain && bFits && *p != '\0'; ++p) {
        const char acOne[2] = {*p, '\0'};
        bFits = put(*p == '\'' ? "'\\''" : acOne);
    }
    bFits = bFits && (bPlain || put("'"));
    pcOut[bFits ? n : 0] = '\0';
    return bFits;
}

// Card 4: reads the USB id through `cat` and switches "1377:1500" on device 0 to
// device 1, in `device` and in the attributes. A relative root starting with '-' is
// given as ./-... so that cat does not take it for an option.
void ReadUsbId(AI_ALSA_DEVICE_S* pDev, int card, int& device) {
    char acPath[audiomw::kRootPathMax + 2] = {'.', '/'};
    char acQuoted[4 * sizeof(acPath) + 3];
    char acCmd[sizeof(acQuoted) + 8];
    const char* pcJoined = audiomw::RootPath(kUsbIdPath, acPath + 2, sizeof(acPath) - 2);
    if (pcJoined == nullptr ||
        !ShellQuote(pcJoined[0] == '-' ? acPath : pcJoined, acQuoted, sizeof(acQuoted))) {
        AUDIO_LOG_OP("init", UTIL_LOG_ERR, "AI[%d] cannot build the command to read %s\n", pDev->s32Id,
                     kUsbIdPath);
        return;
    }
    std::snprintf(acCmd, sizeof(acCmd), "cat %s", acQuoted);
    FILE* pCmd = popen(acCmd, "r");
    if (pCmd == nullptr) {
        return;
    }
    char acLine[64] = {0};
    if (std::fgets(acLine, 63, pCmd) != nullptr) {
        std::printf("%s-%d: card =%d,device =%d,usdid =%s \n", "init", __LINE__, card, device, acLine);
        if (device == 0 && std::strncmp(acLine, kSwitchUsbId, 9) == 0) {
            device = 1;
            pDev->stAttr.stAlsaDev.s32DevId = 1;
        }
    }
    pclose(pCmd);
}

// Channels: the request when the card's range holds it (card 3 device 0 runs more than
// two as two), else the nearer end of the range with a rematrix to the request.
int SetUpChannels(AI_ALSA_DEVICE_S* pDev, const struct pcm_params* pParams, struct pcm_config& config) {
    const AI_ATTR_S& a = pDev->stAttr;
    unsigned int u32Min = pcm_params_get_min(pParams, PCM_PARAM_CHANNELS);
    unsigned int u32Max = pcm_params_get_max(pParams, PCM_PARAM_CHANNELS);
    unsigned int u32Req = static_cast<unsigned int>(a.s32Channel);
    if (u32Min <= u32Req && u32Req <= u32Max) {
        bool bTwo = IsSlotPcm(a.stAlsaDev.s32CardId, a.stAlsaDev.s32DevId) && u32Req > 2;
        config.channels = bTwo ? 2 : u32Req;
        AUDIO_LOG_OP("init", UTIL_LOG_INFO, "AI[%d] open channel %u\n", pDev->s32Id, config.channels);
        return 0;
    }
    config.channels = u32Min > u32Req ? u32Min : u32Max;
    pDev->_mbRematrix = 1;
    AUDIO_LOG_OP("init", UTIL_LOG_INFO, "AI[%d] enable rematrix for convert channel %u=>%u \n", pDev->s32Id,
                 config.channels, u32Req);
    REMATRIX_ATTR_S stRematrix = {static_cast<int>(config.channels), a.s32Channel};
    pDev->_mpRematrix = REMATRIX_CreateHandler(&stRematrix);
    return pDev->_mpRematrix != nullptr ? 0 : -1;
}

// Rate: the request when the card's range holds it, else the card's highest rate with
// a period scaled to it and a resampler to the request.
int SetUpRate(AI_ALSA_DEVICE_S* pDev, const struct pcm_params* pParams, struct pcm_config& config) {
    AI_ATTR_S& a = pDev->stAttr;
    unsigned int u32Min = pcm_params_get_min(pParams, PCM_PARAM_RATE);
    unsigned int u32Max = pcm_params_get_max(pParams, PCM_PARAM_RATE);
    unsigned int u32Req = static_cast<unsigned int>(a.eSampleRate);
    if (u32Min <= u32Req && u32Req <= u32Max) {
        a.stAlsaDev.u32HwRate = 0;
        config.rate = u32Req;
        config.period_size = static_cast<unsigned int>(a.s32FrameLen);
        AUDIO_LOG_OP("init", UTIL_LOG_INFO, "AI[%d] open rate %u at period_size %d\n", pDev->s32Id,
                     config.rate, a.s32FrameLen);
        return 0;
    }
    long long s64Period = static_cast<long long>(u32Max) * a.s32FrameLen / u32Req;
    if (u32Max > INT_MAX || s64Period > INT_MAX) {
        AUDIO_LOG_OP("init", UTIL_LOG_ERR,
                     "AI[%d] period of %d frames at %u Hz is too long to resample from %u Hz\n", pDev->s32Id,
                     a.s32FrameLen, u32Req, u32Max);
        return -1;
    }
    a.stAlsaDev.u32HwRate = u32Max;
    config.rate = u32Max;
    config.period_size = static_cast<unsigned int>(s64Period);
    pDev->_mbResample = 1;
    AUDIO_LOG_OP("init", UTIL_LOG_INFO,
                 "AI[%d] enable resample for convert sample rate %u=>%u, new period_size=%d\n", pDev->s32Id,
                 u32Max, u32Req, static_cast<int>(s64Period));
    const int s32Chn = static_cast<int>(config.channels);
    RESAMPLE_ATTR_S stResample = {
        static_cast<int>(u32Max), s32Chn, static_cast<int>(s64Period), a.eSampleRate, s32Chn, a.s32FrameLen};
    pDev->_mpResample = RESAMPLE_CreateHandler(&stResample);
    return pDev->_mpResample != nullptr ? 0 : -1;
}

// What the card delivers per frame must be what the next stage takes as a frame: the
// caller's block (s32Channel 16-bit samples) without conversion, the converters' input
// (card channels x 16 bits) with one. Only the 4-byte slots of card 3 device 0 can
// differ: there only a request of twice the card's channels fits, without conversion.
int CheckCardFrame(const AI_ALSA_DEVICE_S* pDev, const struct pcm_config& config,
                   unsigned int u32SampleBytes) {
    const AI_ATTR_S& a = pDev->stAttr;
    bool bConverted = pDev->_mbResample || pDev->_mbRematrix;
    unsigned int u32Card = config.channels * u32SampleBytes;
    unsigned int u32Taken =
        (bConverted ? config.channels : static_cast<unsigned int>(a.s32Channel)) * kSampleBytes;
    if (u32Card == u32Taken) {
        return 0;
    }
    AUDIO_LOG_OP("init", UTIL_LOG_ERR, "AI[%d] Alsa %d:%d delivers %u bytes a frame, %s takes %u\n",
                 pDev->s32Id, a.stAlsaDev.s32CardId, a.stAlsaDev.s32DevId, u32Card,
                 bConverted ? "the conversion" : "the block", u32Taken);
    return -1;
}

int MakeBuffers(AI_ALSA_DEVICE_S* pDev, const struct pcm_config& config) {
    if (pDev->_mbResample || pDev->_mbRematrix) {
        pDev->_mpPcmBuf = new (std::nothrow) unsigned char[pDev->_mu32PcmBytes + kPcmBufSpareBytes];
    }
    if (pDev->_mbResample && pDev->_mbRematrix) {
        size_t u32Samples =
            static_cast<size_t>(config.channels) * pDev->stAttr.s32FrameLen + kMidBufSpareSamples;
        pDev->_mpMidBuf = new (std::nothrow) unsigned char[u32Samples * kSampleBytes];
    }
    bool bMissing = ((pDev->_mbResample || pDev->_mbRematrix) && pDev->_mpPcmBuf == nullptr) ||
                    (pDev->_mbResample && pDev->_mbRematrix && pDev->_mpMidBuf == nullptr);
    if (bMissing) {
        AUDIO_LOG_OP("init", UTIL_LOG_ERR, "AI[%d] buffer malloc failed.\n", pDev->s32Id);
        return -1;
    }
    return 0;
}

// Closes the PCM, a refused or unready handle too (pcm_close is what frees it), and
// frees the converters and buffers.
void ReleaseAll(AI_ALSA_DEVICE_S* pDev) {
    if (pDev->_mpPcm != nullptr) {
        pcm_close(pDev->_mpPcm);
        pDev->_mpPcm = nullptr;
    }
    RESAMPLE_Destroy(&pDev->_mpResample);
    REMATRIX_Destroy(&pDev->_mpRematrix);
    delete[] pDev->_mpPcmBuf;
    pDev->_mpPcmBuf = nullptr;
    delete[] pDev->_mpMidBuf;
    pDev->_mpMidBuf = nullptr;
}

// Negotiates with the card and opens it; 0 when the PCM is ready.
int NegotiateAndOpen(AI_ALSA_DEVICE_S* pDev, int card, int device, struct pcm_config& config) {
    struct pcm_params* pParams =
        pcm_params_get(static_cast<unsigned int>(card), static_cast<unsigned int>(device), PCM_IN);
    if (pParams == nullptr) {
        AUDIO_LOG_OP("init", UTIL_LOG_ERR, "Alsa device %d:%d not exist for AI[%d].", card, device,
                     pDev->s32Id);
        return -1;
    }
    int s32Ret = SetUpChannels(pDev, pParams, config);
    if (s32Ret == 0) {
        s32Ret = SetUpRate(pDev, pParams, config);
    }
    pcm_params_free(pParams);
    const unsigned int u32SampleBytes = config.format == kSlotFormat ? kSlotSampleBytes : kSampleBytes;
    if (s32Ret == 0) {
        s32Ret = CheckCardFrame(pDev, config, u32SampleBytes);
    }
    if (s32Ret != 0) {
        return -1;
    }
    unsigned long long u64PcmBytes = 0;
    if (__builtin_mul_overflow(static_cast<unsigned long long>(config.period_size) * config.channels,
                               u32SampleBytes, &u64PcmBytes) ||
        u64PcmBytes > INT_MAX) {
        AUDIO_LOG_OP("init", UTIL_LOG_ERR, "AI[%d] card period of %u frames x %u channels is too large\n",
                     pDev->s32Id, config.period_size, config.channels);
        return -1;
    }
    pDev->_mu32PcmPeriod = config.period_size;
    pDev->_mu32PcmBytes = static_cast<unsigned int>(u64PcmBytes);
    pDev->_mu32FrameBytes =
        static_cast<unsigned int>(pDev->stAttr.s32FrameLen * pDev->stAttr.s32Channel) * kSampleBytes;
    if (MakeBuffers(pDev, config) != 0) {
        return -1;
    }
    pDev->_mpPcm =
        pcm_open(static_cast<unsigned int>(card), static_cast<unsigned int>(device), PCM_IN, &config);
    if (pcm_is_ready(pDev->_mpPcm)) {
        return 0;
    }
    AUDIO_LOG_OP("init", UTIL_LOG_ERR, "AI[%d] Open Alsa %d:%d failed. %s", pDev->s32Id, card, device,
                 pcm_get_error(pDev->_mpPcm));
    return -1;
}

// Counts a failed read; the first kLoggedReadFailures of a run are logged.
bool CountFailure(AI_ALSA_DEVICE_S* pDev) {
    unsigned int u32Before = pDev->_mu32ReadFailCnt;
    if (u32Before < UINT_MAX) {
        pDev->_mu32ReadFailCnt = u32Before + 1;
    }
    return u32Before < kLoggedReadFailures;
}

// One card period into the caller's buffer, through the converters when they run.
// Returns the frames the block holds, or the failed pcm_readi result (<= 0).
int ReadBlock(AI_ALSA_DEVICE_S* pDev, unsigned char* pBuf) {
    const int s32FrameLen = pDev->stAttr.s32FrameLen;
    if (!pDev->_mbResample && !pDev->_mbRematrix) {
        int n = pcm_readi(pDev->_mpPcm, pBuf, static_cast<unsigned int>(s32FrameLen));
        if (n <= 0 && CountFailure(pDev)) {
            AUDIO_LOG_OP("_readFrame", UTIL_LOG_WARN, "AI [%d] Read failed %d\n", pDev->s32Id, n);
        }
        return n;
    }
    int n = pcm_readi(pDev->_mpPcm, pDev->_mpPcmBuf, pDev->_mu32PcmPeriod);
    if (n <= 0) {
        if (CountFailure(pDev)) {
            AUDIO_LOG_OP("_readFrame", UTIL_LOG_WARN, "AI [%d] Read failed %d %s\n", pDev->s32Id, n,
                         pcm_get_error(pDev->_mpPcm));
        }
        return n;
    }
    unsigned char* pIn = pDev->_mpPcmBuf;
    if (pDev->_mbResample) {
        unsigned char* pOut = pDev->_mbRematrix ? pDev->_mpMidBuf : pBuf;
        RESAMPLE_Process(pDev->_mpResample, pIn, static_cast<int>(pDev->_mu32PcmPeriod), pOut, s32FrameLen);
        pIn = pOut;
    }
    if (pDev->_mbRematrix) {
        REMATRIX_Process(pDev->_mpRematrix, pIn, s32FrameLen, pBuf, s32FrameLen);
    }
    return pDev->_mbResample ? s32FrameLen : n;
}

// Appends the block to the recording while its marker exists; closes it once the
// marker is gone, so a re-created marker starts a new file.
void Record(Recording& rec, const AI_ATTR_S& a, const unsigned char* pData, unsigned int u32Bytes) {
    bool bOn = audiomw::MarkerExists(rec.pcMarker);
    pthread_mutex_lock(&rec.stMutex);
    if (bOn && rec.pFile == nullptr) {
        char acPath[audiomw::kRootPathMax];
        if (audiomw::RootPath(rec.pcFile, acPath, sizeof(acPath)) != nullptr) {
            rec.pFile = std::fopen(acPath, "w");
        }
        if (rec.pFile != nullptr) {
            std::printf("%s-%d: s32FrameLen =%d, s32Channel =%d,SaveLen =%d \n", "_readFrame", __LINE__,
                        a.s32FrameLen, a.s32Channel, static_cast<int>(u32Bytes));
        }
    }
    if (bOn && rec.pFile != nullptr) {
        size_t u32Written = std::fwrite(pData, 1, u32Bytes, rec.pFile);
        if (u32Written != u32Bytes) {
            std::printf("%s-%d: write error. s32Ret =%d \n", "_readFrame", __LINE__,
                        static_cast<int>(u32Written));
        }
    }
    if (!bOn && rec.pFile != nullptr) {
        std::fclose(rec.pFile);
        rec.pFile = nullptr;
    }
    pthread_mutex_unlock(&rec.stMutex);
}

// Line-in card: from the 101st block after destroy on, reports (up to four times) a
// block whose channel 2 sits above 25000 in 60% of its frames; silences channels 2 and
// 3 while the line-in source is disconnected. Odd channel counts skip all of it.
void CheckLineIn(AI_ALSA_DEVICE_S* pDev, unsigned char* pBuf, int s32Frames) {
    const int s32Chn = pDev->stAttr.s32Channel;
    if (s32Chn % 2 != 0) {
        return;
    }
    audiomw::LineInCheckPass(pBuf, s32Chn, s32Frames, pDev->stAttr.bLineInConnect != ZN_FALSE,
                             pDev->_mu32LineInCheckCnt);
    if (audiomw::MarkerExists("/var/debuglog")) {
        std::printf("%s-%d: Conn =%d \n", "_readFrame", __LINE__,
                    static_cast<int>(pDev->stAttr.bLineInConnect));
    }
    if (pDev->_mu32LineInCheckCnt < audiomw::kLineInIdleBlocks) {
        pDev->_mu32LineInCheckCnt++;
    }
}

}  // namespace

AI_ALSA_DEVICE_S::AI_ALSA_DEVICE_S()
    : _mu32FrameBytes(0),
      _mpPcm(nullptr),
      _mu32ReadFailCnt(0),
      _mu32LineInCheckCnt(0),
      _mbResample(0),
      _mbRematrix(0),
      _mpResample(nullptr),
      _mpRematrix(nullptr),
      _mpPcmBuf(nullptr),
      _mpMidBuf(nullptr),
      _mu32PcmPeriod(0),
      _mu32PcmBytes(0) {}

AI_ALSA_DEVICE_S::~AI_ALSA_DEVICE_S() {}

int AI_ALSA_DEVICE_S::init() {
    ReleaseAll(this);  // never open over a PCM or converters still held
    _mbResample = 0;
    _mbRematrix = 0;
    const int card = stAttr.stAlsaDev.s32CardId;
    int device = stAttr.stAlsaDev.s32DevId;
    struct pcm_config config;
    std::memset(&config, 0, sizeof(config));
    config.period_count = kPeriodCount;
    config.format = IsSlotPcm(card, device) ? kSlotFormat : PCM_FORMAT_S16_LE;
    if (!ValidAttr(this)) {
        return -1;
    }
    if (card == kUsbCard) {
        ReadUsbId(this, card, device);
    }
    if (NegotiateAndOpen(this, card, device, config) != 0) {
        ReleaseAll(this);
        return -1;
    }
    AUDIO_LOGI("AI[%d] Open Alsa %d:%d rate:%d chn:%d frame:%d format:%d", s32Id, card, device,
               static_cast<int>(config.rate), static_cast<int>(config.channels),
               static_cast<int>(config.period_size), static_cast<int>(config.format));
    StoreRelaxed(bHasInit, 1u);
    return 0;
}

int AI_ALSA_DEVICE_S::destroy() {
    StoreRelaxed(bHasInit, 0u);
    _mu32LineInCheckCnt = 0;
    ReleaseAll(this);
    return 0;
}

int AI_ALSA_DEVICE_S::open() {
    if (!pcm_is_ready(_mpPcm)) {
        AUDIO_LOGE("AI[%d] not init", s32Id);
        return -1;
    }
    const int card = stAttr.stAlsaDev.s32CardId;
    const int device = stAttr.stAlsaDev.s32DevId;
    AUDIO_LOGI("AI[%d] Alsa %d:%d ", s32Id, card, device);
    pcm_prepare(_mpPcm);
    if (pcm_is_ready(_mpPcm)) {
        StoreRelaxed(bHasOpen, 1u);
        return 0;
    }
    AUDIO_LOGE("AI[%d] Alsa[%d:%d] prepare failed. %s", s32Id, card, device, pcm_get_error(_mpPcm));
    return -1;
}

int AI_ALSA_DEVICE_S::close() {
    StoreRelaxed(bHasOpen, 0u);
    return 0;
}

int AI_ALSA_DEVICE_S::hotApply() {
    return 0;
}

AUDIO_SET_ACTION_E AI_ALSA_DEVICE_S::calActionOnSetCfg(AI_ATTR_S* attr) {
    const AI_ATTR_S& cur = stAttr;
    if (attr->stAlsaDev.s32CardId != cur.stAlsaDev.s32CardId ||
        attr->stAlsaDev.s32DevId != cur.stAlsaDev.s32DevId || attr->bEnable != cur.bEnable ||
        attr->eSampleRate != cur.eSampleRate || attr->s32Channel != cur.s32Channel ||
        attr->s32FrameLen != cur.s32FrameLen) {
        return AUDIO_SET_ACTION_E_NEED_DESTROY;
    }
    if (attr->s32Volume != cur.s32Volume || attr->bLineInConnect != cur.bLineInConnect) {
        return AUDIO_SET_ACTION_E_HOT_UPDATE;
    }
    return AUDIO_SET_ACTION_E_NONE;
}

int AI_ALSA_DEVICE_S::_readFrame(unsigned char* pBuf, unsigned int u32Len, unsigned int& u32ReadLen,
                                 unsigned long long& u64TimeStamp, int) {
    if (static_cast<int>(_mu32FrameBytes) > static_cast<int>(u32Len)) {
        if (CountFailure(this)) {
            AUDIO_LOGW("AI [%d] buffer too small, required %d but feed %d\n", s32Id,
                       static_cast<int>(_mu32FrameBytes), static_cast<int>(u32Len));
        }
        return -1;
    }
    if (!pcm_is_ready(_mpPcm)) {
        AUDIO_LOGW("AI [%d] is not ready\n", s32Id);
        return -1;
    }
    std::memset(pBuf, 0, u32Len);
    const int s32Frames = ReadBlock(this, pBuf);
    if (s32Frames <= 0) {
        return -1;
    }
    const unsigned int u32Bytes = static_cast<unsigned int>(s32Frames * stAttr.s32Channel) * kSampleBytes;
    if (stAttr.stAlsaDev.s32CardId == kLineInCard) {
        Record(gs_stLineRecording, stAttr, pBuf, u32Bytes);
        CheckLineIn(this, pBuf, s32Frames);
    } else if (stAttr.stAlsaDev.s32CardId == kUsbCard) {
        Record(gs_stUsbRecording, stAttr, pBuf, _mu32FrameBytes);
    }
    struct timespec stTs = {0, 0};
    unsigned int u32Avail = 0;
    pcm_get_htimestamp(_mpPcm, &u32Avail, &stTs);
    u64TimeStamp = static_cast<unsigned long long>(stTs.tv_sec) * 1000000000ULL +
                   static_cast<unsigned long long>(stTs.tv_nsec);
    u32ReadLen = u32Bytes;
    _mu32ReadFailCnt = 0;
    return 0;
}

// Takes the device mutex: the PCM may be closed by a configuration change meanwhile.
int AI_ALSA_DEVICE_S::getUnderRuns() {
    pthread_mutex_lock(&stMutex);
    int s32Ret = -1;
    if (pcm_is_ready(_mpPcm)) {
        s32Ret = pcm_get_underruns(_mpPcm);
    } else {
        AUDIO_LOGW("AI [%d] is not ready\n", s32Id);
    }
    pthread_mutex_unlock(&stMutex);
    return s32Ret;
}

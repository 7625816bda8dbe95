// AO_ALSA_DEVICE_S: negotiation of channels and rate with the card, the conversion chain
// (rematrix, then resampler) with buffers made once in init, and the write path with
// its failure counting.
#include "ao_alsa_device.h"

#include <tinyalsa/pcm.h>

#include <climits>
#include <cstring>
#include <new>

#include "ao_attr_access.h"
#include "audio_log.h"

using audiomw::LoadRelaxed;
using audiomw::StoreRelaxed;

namespace {

constexpr unsigned int kPeriodCount = 4;
// Spare samples at the end of each conversion buffer.
constexpr long long kSpareSamples = 32;
// Consecutive write failures that are logged; later ones of the same run are not.
constexpr int kLoggedWriteFailures = 5;
// Card 3, device 0 takes 32-bit slots: format code 7 (tinyalsa/pcm.h), at most 2 channels.
constexpr enum pcm_format kSlotFormat = static_cast<enum pcm_format>(7);

bool IsSlotPcm(int card, int device) {
    return card == 3 && device == 0;
}

bool InRange(long long value, unsigned int min, unsigned int max) {
    return value >= static_cast<long long>(min) && value <= static_cast<long long>(max);
}

// Bytes one sample of `format` takes on the card. The device opens two formats only:
// 16-bit samples, and code 7 on card 3 device 0, whose 32-bit slots move 4 bytes a
// sample on this board (its tinyalsa reports 24 bits for the code, not the slot width).
unsigned int FormatBytes(enum pcm_format format) {
    return format == kSlotFormat ? 4 : 2;
}

// A sample buffer of `samples` 16-bit samples, or null.
unsigned char* NewSamples(long long samples) {
    return new (std::nothrow) unsigned char[static_cast<size_t>(samples) * 2];
}

// Negative counts would size buffers and transfers below zero.
bool ValidAttr(int id, const AO_ATTR_S& attr) {
    if (attr.eSampleRate >= 0 && attr.s32Channel >= 0 && attr.s32FrameSize >= 0) {
        return true;
    }
    AUDIO_LOGE_OP("init", "AO[%d] invalid attributes: rate %d, channels %d, frame size %d\n", id,
                  static_cast<int>(attr.eSampleRate), attr.s32Channel, attr.s32FrameSize);
    return false;
}

// Channels: the requested count when the card takes it (card 3 device 0 opens more than
// two as two), else a rematrix to the nearer end of the card's range.
int SetUpChannels(AO_ALSA_DEVICE_S* pDev, int id, const AO_ATTR_S& attr, const struct pcm_params* pParams,
                  struct pcm_config& config) {
    unsigned int u32Min = pcm_params_get_min(pParams, PCM_PARAM_CHANNELS);
    unsigned int u32Max = pcm_params_get_max(pParams, PCM_PARAM_CHANNELS);
    if (InRange(attr.s32Channel, u32Min, u32Max)) {
        config.channels = static_cast<unsigned int>(attr.s32Channel);
        if (IsSlotPcm(attr.stAlsaDev.s32CardId, attr.stAlsaDev.s32DevId) && config.channels > 2) {
            config.channels = 2;
        }
        AUDIO_LOGI_OP("init", "AO[%d] open channel %u\n", id, config.channels);
        return 0;
    }
    pDev->_mbRematrix = ZN_TRUE;
    unsigned int u32Target = attr.s32Channel < static_cast<long long>(u32Min) ? u32Min : u32Max;
    AUDIO_LOGI_OP("init", "AO[%d] enable rematrix %u=>%u \n", id, static_cast<unsigned int>(attr.s32Channel),
                  u32Target);
    REMATRIX_ATTR_S stRematrix = {attr.s32Channel, static_cast<int>(u32Target)};
    pDev->_mpRematrix = REMATRIX_CreateHandler(&stRematrix);
    if (pDev->_mpRematrix == nullptr) {
        AUDIO_LOGE_OP("init", "AO[%d] rematrix %d=>%u create failed\n", id, attr.s32Channel, u32Target);
        return -1;
    }
    pDev->_mpRematrixBuf = NewSamples(static_cast<long long>(u32Target) * attr.s32FrameSize + kSpareSamples);
    if (pDev->_mpRematrixBuf == nullptr) {
        AUDIO_LOGE_OP("init", "AO[%d] rematrix buffer malloc failed.\n", id);
        return -1;
    }
    config.channels = u32Target;
    return 0;
}

// Rate: the requested rate when the card takes it, else the card's maximum with a
// resampler and a period scaled to it.
int SetUpRate(AO_ALSA_DEVICE_S* pDev, int id, const AO_ATTR_S& attr, const struct pcm_params* pParams,
              struct pcm_config& config) {
    unsigned int u32Min = pcm_params_get_min(pParams, PCM_PARAM_RATE);
    unsigned int u32Max = pcm_params_get_max(pParams, PCM_PARAM_RATE);
    const int s32Rate = attr.eSampleRate;
    if (InRange(s32Rate, u32Min, u32Max)) {
        config.rate = static_cast<unsigned int>(s32Rate);
        config.period_size = static_cast<unsigned int>(attr.s32FrameSize);
        AUDIO_LOGI_OP("init", "AO[%d] open rate %u at period_size %d\n", id, config.rate, attr.s32FrameSize);
        return 0;
    }
    pDev->_mbResample = ZN_TRUE;
    long long s64Period = s32Rate ? static_cast<long long>(u32Max) * attr.s32FrameSize / s32Rate : 0;
    if (s64Period > INT_MAX || u32Max > INT_MAX) {
        AUDIO_LOGE_OP("init", "AO[%d] period of %d frames at %d Hz is too long to resample to %u Hz\n", id,
                      attr.s32FrameSize, s32Rate, u32Max);
        return -1;
    }
    const int s32Period = static_cast<int>(s64Period);
    const int s32Chn = static_cast<int>(config.channels);
    RESAMPLE_ATTR_S stResample = {s32Rate, s32Chn,   attr.s32FrameSize, static_cast<int>(u32Max),
                                  s32Chn,  s32Period};
    pDev->_mpResample = RESAMPLE_CreateHandler(&stResample);
    config.rate = u32Max;
    config.period_size = static_cast<unsigned int>(s32Period);
    AUDIO_LOGI_OP("init", "AO[%d] enable resample for convert sample rate %u=>%u, new period_size=%d\n", id,
                  static_cast<unsigned int>(s32Rate), u32Max, s32Period);
    if (pDev->_mpResample == nullptr) {
        return -1;
    }
    pDev->_mpResampleBuf = NewSamples(static_cast<long long>(s32Chn) * s32Period + kSpareSamples);
    if (pDev->_mpResampleBuf == nullptr) {
        AUDIO_LOGE_OP("init", "AO[%d] resample buffer malloc failed.\n", id);
        return -1;
    }
    return 0;
}

// pcm_writei takes as many bytes per frame as the card's format gives. A frame handed
// to it holds 16-bit samples: s32Channel of them, or the card's count after a
// conversion. Card 3 device 0 takes two 32-bit slots, i.e. four 16-bit channels; any
// other count would make the card read past (or misread) the written data.
int CheckFrameBytes(int id, const AO_ATTR_S& attr, bool bConverted, const struct pcm_config& config) {
    unsigned int u32CardFrame = config.channels * FormatBytes(config.format);
    unsigned int u32Written = (bConverted ? config.channels : static_cast<unsigned int>(attr.s32Channel)) * 2;
    if (u32CardFrame == u32Written) {
        return 0;
    }
    AUDIO_LOGE_OP("init", "AO[%d] Alsa %d:%d takes %u bytes a frame, written frames have %u\n", id,
                  attr.stAlsaDev.s32CardId, attr.stAlsaDev.s32DevId, u32CardFrame, u32Written);
    return -1;
}

int OpenPcm(AO_ALSA_DEVICE_S* pDev, int id, int card, int device, const struct pcm_config& config) {
    pDev->_mpPcm =
        pcm_open(static_cast<unsigned int>(card), static_cast<unsigned int>(device), PCM_OUT, &config);
    if (pDev->_mpPcm != nullptr && pcm_is_ready(pDev->_mpPcm)) {
        return 0;
    }
    AUDIO_LOGE_OP("init", "AO[%d] Open Alsa %d:%d failed. %s", id, card, device,
                  pDev->_mpPcm ? pcm_get_error(pDev->_mpPcm) : "no handle");
    return -1;
}

// Closes the PCM (a refused handle too: pcm_close is what frees it) and frees the
// converters and their buffers.
void ReleaseAll(AO_ALSA_DEVICE_S* pDev) {
    if (pDev->_mpPcm != nullptr) {
        pcm_close(pDev->_mpPcm);
        pDev->_mpPcm = nullptr;
    }
    REMATRIX_Destroy(&pDev->_mpRematrix);
    RESAMPLE_Destroy(&pDev->_mpResample);
    delete[] pDev->_mpRematrixBuf;
    pDev->_mpRematrixBuf = nullptr;
    delete[] pDev->_mpResampleBuf;
    pDev->_mpResampleBuf = nullptr;
}

// The rematrix buffer holds one period; the resampler reads exactly one period. A write
// that would overrun the one or leave the other reading past the data is refused.
bool WriteFits(const AO_ALSA_DEVICE_S* pDev, int id, int frames, int periodFrames) {
    bool bFits = frames >= 0;
    if (pDev->_mbRematrix && frames > periodFrames) {
        bFits = false;
    }
    if (pDev->_mbResample && frames != periodFrames) {
        bFits = false;
    }
    if (!bFits) {
        AUDIO_LOGE_OP("sendFrame", "AO[%d] write of %d frames refused, a period is %d frames\n", id, frames,
                      periodFrames);
    }
    return bFits;
}

// One pcm_writei. Failures in a row are counted and the first few logged; the first
// good write after them is logged as a recovery. 0, or -1 on a failed write.
int WriteToCard(struct pcm* pPcm, int id, unsigned char* p, int frames, int& failCnt) {
    if (pcm_writei(pPcm, p, static_cast<unsigned int>(frames)) < 0) {
        if (failCnt < kLoggedWriteFailures) {
            AUDIO_LOGW_OP("sendFrame", "AO[%d] write %d samples failed, %s\n", id, frames,
                          pcm_get_error(pPcm));
        }
        if (failCnt < INT_MAX) {
            ++failCnt;
        }
        return -1;
    }
    if (failCnt > 0) {
        failCnt = 0;
        AUDIO_LOGI_OP("sendFrame", "AO[%d] recovered\n", id);
    }
    return 0;
}

}  // namespace

AO_ALSA_DEVICE_S::AO_ALSA_DEVICE_S()
    : _mpPcm(nullptr),
      _mbResample(ZN_FALSE),
      _mbRematrix(ZN_FALSE),
      _mpResample(nullptr),
      _mpRematrix(nullptr),
      _mpResampleBuf(nullptr),
      _mpRematrixBuf(nullptr) {}

AO_ALSA_DEVICE_S::~AO_ALSA_DEVICE_S() {}

int AO_ALSA_DEVICE_S::init() {
    if (bHasInit) {
        destroy();  // never reopen over a live PCM
    }
    _mbResample = ZN_FALSE;
    _mbRematrix = ZN_FALSE;
    const int card = stAttr.stAlsaDev.s32CardId;
    const int device = stAttr.stAlsaDev.s32DevId;
    struct pcm_config config;
    std::memset(&config, 0, sizeof(config));
    config.period_count = kPeriodCount;
    config.format = IsSlotPcm(card, device) ? kSlotFormat : PCM_FORMAT_S16_LE;
    if (!ValidAttr(s32Id, stAttr)) {
        return -1;
    }
    struct pcm_params* pParams =
        pcm_params_get(static_cast<unsigned int>(card), static_cast<unsigned int>(device), PCM_OUT);
    if (pParams == nullptr) {
        AUDIO_LOGE("Alsa device %d:%d not exist for AO[%d].", card, device, s32Id);
        return -1;
    }
    int s32Ret = SetUpChannels(this, s32Id, stAttr, pParams, config);
    if (s32Ret == 0) {
        s32Ret = SetUpRate(this, s32Id, stAttr, pParams, config);
    }
    pcm_params_free(pParams);
    if (s32Ret == 0) {
        s32Ret = CheckFrameBytes(s32Id, stAttr, _mbRematrix || _mbResample, config);
    }
    if (s32Ret == 0) {
        s32Ret = OpenPcm(this, s32Id, card, device, config);
    }
    if (s32Ret != 0) {
        ReleaseAll(this);
        return -1;
    }
    AUDIO_LOGI("AO[%d] Open Alsa %d:%d rate:%d chn:%d frame:%d format:%d", s32Id, card, device,
               static_cast<int>(config.rate), static_cast<int>(config.channels),
               static_cast<int>(config.period_size), static_cast<int>(config.format));
    s32WriteFailCnt = 0;
    StoreRelaxed(bHasInit, ZN_TRUE);
    return 0;
}

int AO_ALSA_DEVICE_S::destroy() {
    StoreRelaxed(bHasInit, ZN_FALSE);
    ReleaseAll(this);
    return 0;
}

int AO_ALSA_DEVICE_S::hotApply() {
    return 0;
}

int AO_ALSA_DEVICE_S::sendFrame(unsigned char* data, int bytes) {
    pthread_mutex_lock(&stMutex);
    if (!bHasInit) {
        pthread_mutex_unlock(&stMutex);
        return -1;
    }
    int s32Frames = stAttr.s32Channel ? bytes / stAttr.s32Channel / 2 : 0;
    if (!WriteFits(this, s32Id, s32Frames, stAttr.s32FrameSize)) {
        pthread_mutex_unlock(&stMutex);
        return -1;
    }
    unsigned char* p = data;
    if (_mbRematrix) {
        s32Frames = REMATRIX_Process(_mpRematrix, p, s32Frames, _mpRematrixBuf, s32Frames + 2);
        p = _mpRematrixBuf;
    }
    if (_mbResample) {
        s32Frames = RESAMPLE_Process(_mpResample, p, s32Frames, _mpResampleBuf, s32Frames + 2);
        p = _mpResampleBuf;
    }
    int s32Ret = WriteToCard(_mpPcm, s32Id, p, s32Frames, s32WriteFailCnt);
    pthread_mutex_unlock(&stMutex);
    return s32Ret;
}

AUDIO_SET_ACTION_E AO_ALSA_DEVICE_S::calActionOnSetCfg(AO_ATTR_S* newAttr) {
    const AO_ATTR_S& cur = stAttr;
    if (newAttr->stAlsaDev.s32CardId != cur.stAlsaDev.s32CardId ||
        newAttr->stAlsaDev.s32DevId != cur.stAlsaDev.s32DevId || newAttr->bEnable != cur.bEnable ||
        newAttr->eSampleRate != cur.eSampleRate || newAttr->s32Channel != cur.s32Channel ||
        newAttr->s32FrameSize != cur.s32FrameSize) {
        return AUDIO_SET_ACTION_E_NEED_DESTROY;
    }
    if (newAttr->s32Volume != cur.s32Volume) {
        return AUDIO_SET_ACTION_E_HOT_UPDATE;
    }
    return AUDIO_SET_ACTION_E_NONE;
}

int AO_ALSA_DEVICE_S::getUnderRuns() {
    if (!LoadRelaxed(bHasInit)) {
        return -1;
    }
    return pcm_get_underruns(_mpPcm);
}

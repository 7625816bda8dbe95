// Word-wise relaxed atomic copy of AO_ATTR_S. setCfg stores a new
// record under the device mutex while AUDIO_AO_Write tests bMute (and the control thread
// may read the record) without it; single-word atomics keep those readers race-free
// without adding a lock to the unlocked paths.
#ifndef AUDIOMW_SRC_AO_AO_ATTR_ACCESS_H
#define AUDIOMW_SRC_AO_AO_ATTR_ACCESS_H

#include "audio_ao.h"
#include "relaxed_atomic.h"

namespace audiomw {

// *dst = *src, one 32-bit field at a time.
inline void CopyAoAttr(AO_ATTR_S* dst, const AO_ATTR_S* src) {
    StoreRelaxed(dst->eType, LoadRelaxed(src->eType));
    StoreRelaxed(dst->stAlsaDev.s32CardId, LoadRelaxed(src->stAlsaDev.s32CardId));
    StoreRelaxed(dst->stAlsaDev.s32DevId, LoadRelaxed(src->stAlsaDev.s32DevId));
    StoreRelaxed(dst->stAlsaDev.u32HwRate, LoadRelaxed(src->stAlsaDev.u32HwRate));
    StoreRelaxed(dst->bEnable, LoadRelaxed(src->bEnable));
    StoreRelaxed(dst->eSampleRate, LoadRelaxed(src->eSampleRate));
    StoreRelaxed(dst->s32Channel, LoadRelaxed(src->s32Channel));
    StoreRelaxed(dst->s32FrameSize, LoadRelaxed(src->s32FrameSize));
    StoreRelaxed(dst->s32Volume, LoadRelaxed(src->s32Volume));
    StoreRelaxed(dst->bMute, LoadRelaxed(src->bMute));
}

}  // namespace audiomw

#endif  // AUDIOMW_SRC_AO_AO_ATTR_ACCESS_H

// AUDIO_ASTREAM_SwitchToConfig: takes a stream slot down if it holds a stream, applies
// the configuration's AI and AO adjustments and runs the slot with its attributes.
#include "astream/astream_lifecycle.h"
#include "astream/astream_threads.h"
#include "audio_config.h"
#include "audio_log.h"

int AUDIO_ASTREAM_SwitchToConfig(int streamId, tagASTREAM_XML_CFG_S& cfg) {
    // A stream worker (a frame callback) cannot take a slot's stream down: Destroy waits
    // for the workers. Refused before anything changes, so the running stream and its
    // AI and AOs stay as they are.
    const int s32Worker = audiomw::astream::WorkerStreamId();
    if (s32Worker >= 0 && audiomw::astream::SlotHeld(streamId)) {
        AUDIO_LOGE(
            "ASTREAM[%d] switch refused: called on a worker of ASTREAM[%d] while the slot holds a "
            "stream, call it from a control thread",
            streamId, s32Worker);
        return -1;
    }
    if (AUDIO_ASTREAM_isReady(streamId) != 0) {
        (void)AUDIO_ASTREAM_Stop(streamId);
        (void)AUDIO_ASTREAM_Destroy(streamId);
        AUDIO_LOGI("ASTREAM[%d] destroyed", streamId);
    }
    // The registries get copies: the configuration is only read.
    for (const tagAI_ADJ_CFG_S& stAdj : cfg.lstAiAdj) {
        AI_ATTR_S stAttr = stAdj.stAttr;
        if (AUDIO_AI_SetAttr(stAdj.s32AiId, &stAttr) != 0) {
            AUDIO_LOGE("Update AI[%d] failed", stAdj.s32AiId);
            return -1;
        }
    }
    for (const tagAO_ADJ_CFG_S& stAdj : cfg.lstAoAdj) {
        AO_ATTR_S stAttr = stAdj.stAttr;
        (void)AUDIO_AO_SetAttr(stAdj.s32AoId, &stAttr);
    }
    if (AUDIO_ASTREAM_Create(streamId, &cfg.stAttr) != 0) {
        return -1;
    }
    AUDIO_LOGI("ASTREAM[%d] init ok", streamId);
    if (AUDIO_ASTREAM_Start(streamId) != 0) {
        return -1;
    }
    AUDIO_LOGI("ASTREAM[%d] start", streamId);
    AUDIO_LOGI("Switch ASTREAM[%d] for Config[%.32s] success", streamId, cfg.acName);
    return 0;
}

// AUDIO_AO_LoadFromConfig on arbitrary file contents.
#include "audio_config.h"
#include "fuzz_scratch.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    audiomw_fuzz::SetUpScratchRoot();
    audiomw_fuzz::WriteConfig(data, size);
    std::list<tagAO_XML_CFG_S> list;
    int ret = AUDIO_AO_LoadFromConfig(list);
    if (ret != 0 && (ret != -1 || !list.empty())) {
        __builtin_trap();
    }
    for (const tagAO_XML_CFG_S& r : list) {
        if (r.s32Id < 0 || (r.stAttr.eType != 0 && r.stAttr.eType != -1) || r.stAttr.bEnable != 0 ||
            r.stAttr.bMute != 0) {
            __builtin_trap();
        }
    }
    return 0;
}

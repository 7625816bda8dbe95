// AUDIO_AI_LoadFromConfig on arbitrary file contents: no crash, no read past a field,
// and every record it returns keeps the loader's promises. The list starts with a
// sentinel record that a failed load must leave byte for byte and a successful one must
// replace (its id is negative, which no returned record may be).
#include <cstring>

#include "audio_config.h"
#include "fuzz_scratch.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    audiomw_fuzz::SetUpScratchRoot();
    audiomw_fuzz::WriteConfig(data, size);
    tagAI_XML_CFG_S sentinel;
    std::memset(&sentinel, audiomw_fuzz::kSentinelByte, sizeof(sentinel));
    std::list<tagAI_XML_CFG_S> list{sentinel};
    int ret = AUDIO_AI_LoadFromConfig(list);
    if (ret == -1) {
        if (list.size() != 1 || std::memcmp(&list.front(), &sentinel, sizeof(sentinel)) != 0) {
            __builtin_trap();
        }
        return 0;
    }
    if (ret != 0) {
        __builtin_trap();
    }
    for (const tagAI_XML_CFG_S& r : list) {
        if (r.s32Id < 0) {
            __builtin_trap();
        }
        if (r.stAttr.eType == AI_DEV_TYPE_FILE &&
            strnlen(r.stAttr.acFilePath, sizeof(r.stAttr.acFilePath)) == sizeof(r.stAttr.acFilePath)) {
            __builtin_trap();
        }
        if (r.stAttr.eType == AI_DEV_TYPE_COMBO &&
            (r.stAttr.stComboDev.s32AiCnt < 0 || r.stAttr.stComboDev.s32AiCnt > AUDIO_AI_COMBO_MAX_NUM)) {
            __builtin_trap();
        }
    }
    return 0;
}

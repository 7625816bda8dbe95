// AUDIO_AO_LoadFromConfig on arbitrary file contents, from a list holding a sentinel
// record: a failed load leaves it byte for byte, a successful one replaces it (its id
// is negative, which no returned record may be).
#include <cstring>

#include "audio_config.h"
#include "fuzz_scratch.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    audiomw_fuzz::SetUpScratchRoot();
    audiomw_fuzz::WriteConfig(data, size);
    tagAO_XML_CFG_S sentinel;
    std::memset(&sentinel, audiomw_fuzz::kSentinelByte, sizeof(sentinel));
    std::list<tagAO_XML_CFG_S> list{sentinel};
    int ret = AUDIO_AO_LoadFromConfig(list);
    if (ret == -1) {
        if (list.size() != 1 || std::memcmp(&list.front(), &sentinel, sizeof(sentinel)) != 0) {
            __builtin_trap();
        }
        return 0;
    }
    if (ret != 0) {
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

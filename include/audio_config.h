// Configuration: the AI, AO and stream settings read from "/cfg0/mpp_cfg.xml" into
// caller-owned lists, the small conversions the loaders share, and the switch of a
// stream slot to one loaded stream configuration.
#ifndef AUDIOMW_AUDIO_CONFIG_H
#define AUDIOMW_AUDIO_CONFIG_H

#include <cstddef>
#include <list>

#include "audio_ai.h"
#include "audio_ao.h"
#include "audio_astream.h"
#include "audio_common.h"

namespace tinyxml2 {
class XMLElement;
}

// Room of a configuration name. A name of this length or more fills the field and has
// no terminator: readers bound it to this many bytes.
#define AUDIO_CFG_NAME_LEN 32

// One <AI> section: the slot it is meant for, its name and a complete attribute record.
struct tagAI_XML_CFG_S {
    int s32Id;  // never negative in a returned list
    char acName[AUDIO_CFG_NAME_LEN];
    AI_ATTR_S stAttr;
};

// One <AO> section.
struct tagAO_XML_CFG_S {
    int s32Id;
    char acName[AUDIO_CFG_NAME_LEN];
    AO_ATTR_S stAttr;
};

// One <AiAdj> of a stream section: the whole record to apply to AI s32AiId.
struct tagAI_ADJ_CFG_S {
    int s32AiId;
    AI_ATTR_S stAttr;
};

// One <AoAdj> of a stream section: the whole record to apply to AO s32AoId.
struct tagAO_ADJ_CFG_S {
    int s32AoId;
    AO_ATTR_S stAttr;
};

// One <ASTREAM> section. The record owns its three lists; copying it copies them.
struct tagASTREAM_XML_CFG_S {
    int s32Id;
    char acName[AUDIO_CFG_NAME_LEN];
    ASTREAM_ATTR_S stAttr;
    std::list<tagAI_ADJ_CFG_S> lstAiAdj;
    std::list<tagAO_ADJ_CFG_S> lstAoAdj;
};

static_assert(offsetof(tagAI_XML_CFG_S, acName) == 4, "tagAI_XML_CFG_S layout");
static_assert(offsetof(tagAI_XML_CFG_S, stAttr) == 36, "tagAI_XML_CFG_S layout");
static_assert(sizeof(tagAI_XML_CFG_S) == 104, "tagAI_XML_CFG_S size");
static_assert(offsetof(tagAO_XML_CFG_S, acName) == 4, "tagAO_XML_CFG_S layout");
static_assert(offsetof(tagAO_XML_CFG_S, stAttr) == 36, "tagAO_XML_CFG_S layout");
static_assert(sizeof(tagAO_XML_CFG_S) == 76, "tagAO_XML_CFG_S size");
static_assert(offsetof(tagAI_ADJ_CFG_S, stAttr) == 4, "tagAI_ADJ_CFG_S layout");
static_assert(sizeof(tagAI_ADJ_CFG_S) == 72, "tagAI_ADJ_CFG_S size");
static_assert(offsetof(tagAO_ADJ_CFG_S, stAttr) == 4, "tagAO_ADJ_CFG_S layout");
static_assert(sizeof(tagAO_ADJ_CFG_S) == 44, "tagAO_ADJ_CFG_S size");

// The stream record holds std::lists (24 bytes in libstdc++ on x86-64 and arm64), for
// which offsetof is conditionally supported; GCC and Clang support it here.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
static_assert(offsetof(tagASTREAM_XML_CFG_S, acName) == 4, "tagASTREAM_XML_CFG_S layout");
static_assert(offsetof(tagASTREAM_XML_CFG_S, stAttr) == 40, "stAttr at the next 8-byte boundary");
static_assert(offsetof(tagASTREAM_XML_CFG_S, lstAiAdj) == 40 + sizeof(ASTREAM_ATTR_S),
              "tagASTREAM_XML_CFG_S layout");
static_assert(offsetof(tagASTREAM_XML_CFG_S, lstAoAdj) ==
                  offsetof(tagASTREAM_XML_CFG_S, lstAiAdj) + sizeof(std::list<tagAI_ADJ_CFG_S>),
              "tagASTREAM_XML_CFG_S layout");
static_assert(sizeof(tagASTREAM_XML_CFG_S) ==
                  offsetof(tagASTREAM_XML_CFG_S, lstAoAdj) + sizeof(std::list<tagAO_ADJ_CFG_S>),
              "tagASTREAM_XML_CFG_S size");
#pragma GCC diagnostic pop

// ---- Loaders: read the file anew on every call ------------------------------------------

// One record per <AI> of the <Audio> root, in document order, ids settled. 0 (an empty
// list when there is none), or -1 with the list untouched when the file cannot be
// loaded or has no <Audio> root.
int AUDIO_AI_LoadFromConfig(std::list<tagAI_XML_CFG_S>& list);
// The same for <AO>.
int AUDIO_AO_LoadFromConfig(std::list<tagAO_XML_CFG_S>& list);
// One record per <ASTREAM>; its adjustments start from the records of aiList and aoList.
int AUDIO_ASTREAM_LoadFromConfig(const std::list<tagAI_XML_CFG_S>& aiList,
                                 const std::list<tagAO_XML_CFG_S>& aoList,
                                 std::list<tagASTREAM_XML_CFG_S>& list);

// ---- Switch -------------------------------------------------------------------------------

// Stops and destroys the stream in slot streamId if there is one, applies cfg's AI and
// AO adjustments, creates the stream from cfg.stAttr and starts it. cfg is only read.
// 0, or -1 with the slot left as far as the switch got. From a stream worker (an
// algorithm node's frame callback) it runs only on an empty slot: on a slot holding a
// stream it returns -1 at once, nothing stopped, adjusted or created.
int AUDIO_ASTREAM_SwitchToConfig(int streamId, tagASTREAM_XML_CFG_S& cfg);

// ---- Conversions shared by the loaders --------------------------------------------------

// "8KHZ", "16KHZ", "32KHZ", "48KHZ" in any case; 48000 for any other text (and null).
tagAI_SAMPLE_RATE_E audioSampleRateStr2Val(const char* name);
// "8KHZ", "16KHZ", "32KHZ"; "48KHZ" for every other value.
const char* audioSampleRateVal2Str(tagAI_SAMPLE_RATE_E rate);
// The lowest id 0..30 whose bit is clear in mask, its bit set; 31 (bit 31 set) when
// all of 0..30 are taken.
int getUseableId(int& mask);
// "CardId" and "DevId" into dev, each only when present and an integer. 0.
int parseAlsaDevAttr(tinyxml2::XMLElement* element, AUDIO_ALSA_DEV_S& dev);
// "AiIdList" (colon-separated) into dev: up to 4 ids, s32AiCnt the number stored. dev
// is left as it was without the attribute. 0.
int parseComboDevAttr(tinyxml2::XMLElement* element, AUDIO_COMBO_DEV_S& dev);
// Splits text at every ':' and converts each item as strtol does in base 10 (an item
// without digits is 0, values are clamped to int). Stores at most max values; returns
// the number stored.
int parseNumberList(const char* text, int* out, int max);

#endif  // AUDIOMW_AUDIO_CONFIG_H

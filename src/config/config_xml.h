// What the configuration loaders share: loading the document, reading attributes and
// element names by the file's matching rules, copying names and paths into fixed
// fields, and settling a section's id against the loader's used-id mask.
#ifndef AUDIOMW_SRC_CONFIG_CONFIG_XML_H
#define AUDIOMW_SRC_CONFIG_CONFIG_XML_H

#include <cstddef>
#include <cstring>
#include <list>
#include <memory>

#include <tinyxml2.h>

#include "audio_config.h"
#include "audio_log.h"
#include "root_path.h"

namespace audiomw {
namespace config {

// At most this many characters of a value taken from the file (a type name, an element
// name) go into a log line, so that a huge value cannot flood the log.
#define CFG_LOG_VALUE_FMT "%.64s"
// A configuration name in a log line: the stored name, bounded to its field.
#define CFG_LOG_NAME_FMT "%.32s"

struct DocDeleter {
    void operator()(tinyxml2::XMLDocument* pDoc) const;
};
using DocPtr = std::unique_ptr<tinyxml2::XMLDocument, DocDeleter>;

// Loads and parses the configuration file under the root directory. acPath receives
// the path that was loaded (for messages). Null when it cannot be loaded or parsed.
DocPtr LoadDocument(char* acPath, size_t u32PathLen);
// The document's first element named exactly "Audio", or null.
tinyxml2::XMLElement* AudioRoot(tinyxml2::XMLDocument* pDoc);

// The text of attribute pcName (exact name), or null when absent.
const char* AttrText(const tinyxml2::XMLElement* pElem, const char* pcName);
// Sets s32Value from attribute pcName when it is present and an integer; true if set.
bool AttrInt(const tinyxml2::XMLElement* pElem, const char* pcName, int& s32Value);
// The integer attribute pcName, or s32Default when absent or not an integer.
int AttrIntOr(const tinyxml2::XMLElement* pElem, const char* pcName, int s32Default);
// Case-blind comparison of an element name or an enumerated value; null never matches.
bool SameText(const char* pcText, const char* pcWanted);

// Zero-fills the name field and copies the first AUDIO_CFG_NAME_LEN characters of pcText
// (null: left empty); a name that long or longer has no terminator.
void CopyName(char (&acName)[AUDIO_CFG_NAME_LEN], const char* pcText);
// Copies at most u32Room - 1 characters of pcText and a NUL.
void CopyText(char* pcDst, size_t u32Room, const char* pcText);
// Items of a colon-separated list: one more than its colons.
int CountListItems(const char* pcText);

// Reads "Id" and "Name" of a section (kind "AI", "AO" or "ASTREAM", the s32Index-th of
// its kind), copies the name and settles the id against the mask: an id of -1 (absent,
// not an integer or -1) and an id whose bit is already taken are warned about and come
// back as -1, to be assigned once all sections are read; any other id takes its bit
// (its low five bits), a negative one included. pcOp names the loader in log lines.
int ReadSectionHead(const char* pcOp, const char* pcKind, const tinyxml2::XMLElement* pElem, int s32Index,
                    int& s32Mask, char (&acName)[AUDIO_CFG_NAME_LEN]);

// One <AI> or <AO> section (pcKind) into stCfg, zero-filled first: its head (id, name),
// then its children by their names in any case: <Device> through applyDevice, the
// "Cur" values of <SampleRate>, <Channel>, <FrameSize> (into the field framesOf names)
// and <Volume>; any other child is warned about and skipped.
template <typename Cfg, typename Attr, typename DeviceFn>
void ReadDeviceSection(const char* pcOp, const char* pcKind, tinyxml2::XMLElement* pElem, int s32Index,
                       int& s32Mask, Cfg& stCfg, int Attr::*framesOf, DeviceFn applyDevice) {
    std::memset(&stCfg, 0, sizeof(stCfg));
    stCfg.s32Id = ReadSectionHead(pcOp, pcKind, pElem, s32Index, s32Mask, stCfg.acName);
    for (tinyxml2::XMLElement* pChild = pElem->FirstChildElement(nullptr); pChild != nullptr;
         pChild = pChild->NextSiblingElement(nullptr)) {
        const char* pcTag = pChild->Value();
        if (SameText(pcTag, "Device")) {
            applyDevice(pChild, stCfg);
        } else if (SameText(pcTag, "SampleRate")) {
            const char* pcRate = AttrText(pChild, "Cur");
            if (pcRate != nullptr) {
                stCfg.stAttr.eSampleRate = audioSampleRateStr2Val(pcRate);
            } else {
                AUDIO_LOG_OP(pcOp, UTIL_LOG_WARN,
                             "Missing attr Cur of <SampleRate> for %s[" CFG_LOG_NAME_FMT "], rate unchanged",
                             pcKind, stCfg.acName);
            }
        } else if (SameText(pcTag, "Channel")) {
            AttrInt(pChild, "Cur", stCfg.stAttr.s32Channel);
        } else if (SameText(pcTag, "FrameSize")) {
            AttrInt(pChild, "Cur", stCfg.stAttr.*framesOf);
        } else if (SameText(pcTag, "Volume")) {
            AttrInt(pChild, "Cur", stCfg.stAttr.s32Volume);
        } else {
            AUDIO_LOG_OP(pcOp, UTIL_LOG_WARN, "Un-support sub node <" CFG_LOG_VALUE_FMT "> for %s", pcTag,
                         pcKind);
        }
    }
}

// The walk every loader makes: load the file, find <Audio>, read each element named
// pcKind (exact name) into a new record of list with read(element, index, mask, record),
// then give each record still without an id the first free one. pcOp names the exported
// loader in log lines. Returns 0, or -1 with the list untouched when the file cannot be
// loaded or has no <Audio>.
template <typename Cfg, typename ReadFn>
int LoadSections(const char* pcOp, const char* pcKind, std::list<Cfg>& list, ReadFn read) {
    char acPath[kRootPathMax] = {0};
    DocPtr pDoc = LoadDocument(acPath, sizeof(acPath));
    if (pDoc == nullptr) {
        AUDIO_LOG_OP(pcOp, UTIL_LOG_ERR, "load %s from %s failed\n", pcKind, acPath);
        return -1;
    }
    tinyxml2::XMLElement* pAudio = AudioRoot(pDoc.get());
    if (pAudio == nullptr) {
        AUDIO_LOG_OP(pcOp, UTIL_LOG_ERR, "<%s> not found\n", "Audio");
        return -1;
    }
    list.clear();
    int s32Mask = 0;
    int s32Index = 0;
    for (tinyxml2::XMLElement* pElem = pAudio->FirstChildElement(pcKind); pElem != nullptr;
         pElem = pElem->NextSiblingElement(pcKind)) {
        list.emplace_back();
        read(pElem, ++s32Index, s32Mask, list.back());
    }
    for (Cfg& stCfg : list) {
        if (stCfg.s32Id < 0) {
            stCfg.s32Id = getUseableId(s32Mask);
        }
    }
    return 0;
}

}  // namespace config
}  // namespace audiomw

#endif  // AUDIOMW_SRC_CONFIG_CONFIG_XML_H

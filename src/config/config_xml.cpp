#include "config_xml.h"

#include <strings.h>
#include <tinyxml2.h>

#include <cstring>

#include "audio_log.h"
#include "root_path.h"
#include "util.h"

namespace audiomw {
namespace config {

namespace {

constexpr const char* kConfigFile = "/cfg0/mpp_cfg.xml";

unsigned int IdBit(int s32Id) {
    return 1u << (static_cast<unsigned int>(s32Id) & 31u);
}

}  // namespace

void DocDeleter::operator()(tinyxml2::XMLDocument* pDoc) const {
    delete pDoc;
}

DocPtr LoadDocument(char* acPath, size_t u32PathLen) {
    if (RootPath(kConfigFile, acPath, u32PathLen) == nullptr) {
        return nullptr;
    }
    return DocPtr(CFG_GetDocByFileName(acPath, ZN_TRUE));
}

tinyxml2::XMLElement* AudioRoot(tinyxml2::XMLDocument* pDoc) {
    return pDoc->FirstChildElement("Audio");
}

const char* AttrText(const tinyxml2::XMLElement* pElem, const char* pcName) {
    const tinyxml2::XMLAttribute* pAttr = pElem->FindAttribute(pcName);
    return pAttr == nullptr ? nullptr : pAttr->Value();
}

bool AttrInt(const tinyxml2::XMLElement* pElem, const char* pcName, int& s32Value) {
    const tinyxml2::XMLAttribute* pAttr = pElem->FindAttribute(pcName);
    int s32Read = 0;
    if (pAttr == nullptr || pAttr->QueryIntValue(&s32Read) != tinyxml2::XML_SUCCESS) {
        return false;
    }
    s32Value = s32Read;
    return true;
}

int AttrIntOr(const tinyxml2::XMLElement* pElem, const char* pcName, int s32Default) {
    int s32Value = s32Default;
    AttrInt(pElem, pcName, s32Value);
    return s32Value;
}

bool SameText(const char* pcText, const char* pcWanted) {
    return pcText != nullptr && strcasecmp(pcText, pcWanted) == 0;
}

void CopyName(char (&acName)[AUDIO_CFG_NAME_LEN], const char* pcText) {
    std::memset(acName, 0, sizeof(acName));
    if (pcText != nullptr) {
        std::memcpy(acName, pcText, strnlen(pcText, sizeof(acName)));
    }
}

void CopyText(char* pcDst, size_t u32Room, const char* pcText) {
    size_t u32Len = pcText == nullptr ? 0 : strnlen(pcText, u32Room - 1);
    if (u32Len > 0) {
        std::memcpy(pcDst, pcText, u32Len);
    }
    pcDst[u32Len] = '\0';
}

int CountListItems(const char* pcText) {
    int s32Items = 1;
    for (const char* pc = pcText; *pc != '\0'; pc++) {
        s32Items += (*pc == ':') ? 1 : 0;
    }
    return s32Items;
}

int ReadSectionHead(const char* pcOp, const char* pcKind, const tinyxml2::XMLElement* pElem, int s32Index,
                    int& s32Mask, char (&acName)[AUDIO_CFG_NAME_LEN]) {
    int s32Id = AttrIntOr(pElem, "Id", -1);
    const char* pcName = AttrText(pElem, "Name");
    CopyName(acName, pcName);
    if (pcName == nullptr) {
        AUDIO_LOG_OP(pcOp, UTIL_LOG_WARN, "Missing attr Name of %s %d, name left empty", pcKind, s32Index);
    }
    if (s32Id == -1) {
        AUDIO_LOG_OP(pcOp, UTIL_LOG_WARN, "Get Id of %s[" CFG_LOG_NAME_FMT "] failed, auto set", pcKind,
                     acName);
        return -1;
    }
    unsigned int u32Mask = static_cast<unsigned int>(s32Mask);
    if ((u32Mask & IdBit(s32Id)) != 0) {
        AUDIO_LOG_OP(pcOp, UTIL_LOG_WARN, "Id of %s[" CFG_LOG_NAME_FMT "] has been used, auto set", pcKind,
                     acName);
        return -1;
    }
    s32Mask = static_cast<int>(u32Mask | IdBit(s32Id));
    return s32Id;
}

}  // namespace config
}  // namespace audiomw

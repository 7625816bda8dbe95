// CFG_GetDocByFileName: an XML file parsed into a heap tinyxml2 document.
#include <tinyxml2.h>

#include <atomic>
#include <new>

#include "host_test.h"
#include "util.h"

namespace {

// What the last call was given, for the tests of its callers.
std::atomic<int> gs_s32DocCalls{0};
std::atomic<int> gs_s32LastDocFlag{-1};

}  // namespace

// Null for a null name, a file that cannot be read and a document that does not parse;
// the caller reports the failure in its own words. The flag is recorded and does not
// change how the PC build parses.
tinyxml2::XMLDocument* CFG_GetDocByFileName(char* pcFileName, tagZN_BOOL bFlag) {
    gs_s32LastDocFlag.store(static_cast<int>(bFlag));
    gs_s32DocCalls.fetch_add(1);
    if (pcFileName == nullptr) {
        return nullptr;
    }
    tinyxml2::XMLDocument* pDoc = new (std::nothrow) tinyxml2::XMLDocument;
    if (pDoc == nullptr) {
        return nullptr;
    }
    if (pDoc->LoadFile(pcFileName) != tinyxml2::XML_SUCCESS) {
        delete pDoc;
        return nullptr;
    }
    return pDoc;
}

extern "C" int CFG_GetDocCallCount(void) {
    return gs_s32DocCalls.load();
}

extern "C" int CFG_GetDocLastFlag(void) {
    return gs_s32LastDocFlag.load();
}

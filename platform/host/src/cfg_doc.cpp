// CFG_GetDocByFileName: an XML file parsed into a heap tinyxml2 document.
#include <tinyxml2.h>

#include <new>

#include "util.h"

// Null for a null name, a file that cannot be read and a document that does not parse;
// the caller reports the failure in its own words.
tinyxml2::XMLDocument* CFG_GetDocByFileName(const char* pcFileName) {
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

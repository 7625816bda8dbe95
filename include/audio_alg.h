// Voice processing (ALG): the reference selection record, the process-wide state shared
// by every algorithm node, the algorithm node class and the AUDIO_ALG_* functions.
#ifndef AUDIOMW_AUDIO_ALG_H
#define AUDIOMW_AUDIO_ALG_H

#include <cstddef>
#include <cstdint>

#include "audio_astream.h"
#include "audio_common.h"

// Floats of a microphone state snapshot: the value getMicVol returns, then six levels.
#define AUDIO_ALG_MIC_STATE_NUM 7
// Bytes of the buffer a version string is fetched into.
#define AUDIO_ALG_VERSION_LEN 32

// The reference selection, a 32-bit value passed by value. Byte 2 is carried along and
// never read.
struct alignas(4) tagVOR_AUDIO_REF_IN_RES {
    uint8_t u8Switch;    // 0: the silent reference; non-zero: a real reference channel
    uint8_t u8Source;    // 1: ExRef block, 2: AllRef block, other: Ref block
    uint8_t u8Reserved;  // byte 2
    uint8_t u8DbgLevel;  // non-zero: a debug request that keeps the selection
};
typedef struct tagVOR_AUDIO_REF_IN_RES VOR_AUDIO_REF_IN_RES;

static_assert(sizeof(tagVOR_AUDIO_REF_IN_RES) == 4, "reference selection is 32 bits");
static_assert(offsetof(tagVOR_AUDIO_REF_IN_RES, u8Switch) == 0, "u8Switch is byte 0");
static_assert(offsetof(tagVOR_AUDIO_REF_IN_RES, u8Source) == 1, "u8Source is byte 1");
static_assert(offsetof(tagVOR_AUDIO_REF_IN_RES, u8DbgLevel) == 3, "u8DbgLevel is byte 3");

// The one library instance, created by the first successful node init, never destroyed.
extern void* g_OrvaneAlgHandler;
// One channel block of zeros handed to the library while no real reference is selected.
extern short* g_ptrEmptyRefIn;
// The current reference selection; all zero until AUDIO_ALG_SetRefInParam changes it.
extern tagVOR_AUDIO_REF_IN_RES g_stRefInParam;

// Feeds the microphone group and one reference channel of every frame period to the
// voice-processing library; the stream's data stays in pIn.
struct ASTREAM_ORVANE_ALG_NODE_S : public ASTREAM_NODE_S {
    ASTREAM_ORVANE_ALG_NODE_S();
    ~ASTREAM_ORVANE_ALG_NODE_S() override;

    int init(void* pAttr) override;
    int destroy() override;
    int process(char* pIn, char* pOut, bool& bInPlace) override;
    int setCfg(ASTREAM_OUTPUT_ATTR_S stAttr) override;

    ASTREAM_ORVANE_ALG_ATTR_S _mstAttr;
    void* _mpAlgHandle;        // the library instance this node uses; null after a failed init
    int _ms32WarnedRefOffset;  // the unusable reference offset last reported, INT_MIN when none
};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
static_assert(offsetof(ASTREAM_ORVANE_ALG_NODE_S, _mstAttr) == offsetof(ASTREAM_NODE_S, _mpHandler) + 8,
              "ASTREAM_ORVANE_ALG_NODE_S: the record follows the base members");
static_assert(offsetof(ASTREAM_ORVANE_ALG_NODE_S, _mpAlgHandle) ==
                  offsetof(ASTREAM_ORVANE_ALG_NODE_S, _mstAttr) + sizeof(ASTREAM_ORVANE_ALG_ATTR_S),
              "ASTREAM_ORVANE_ALG_NODE_S layout");
#pragma GCC diagnostic pop

// Selects the reference (u8DbgLevel 0) or requests reports (u8DbgLevel 1: one report
// line, 2: a printed line every frame). Always 0.
int AUDIO_ALG_SetRefInParam(tagVOR_AUDIO_REF_IN_RES stRefIn);
// The library's version number and fix letter (a blank when none). 0, or -1 for a null
// pointer, no instance or an empty version string.
int AUDIO_ALG_GetVersion(unsigned int* pVer, unsigned int* pFix);
// Points *ppState at the last snapshot of AUDIO_ALG_MIC_STATE_NUM floats and refreshes
// it. 0 when refreshed; -1 with no instance or, with bCheckChange, when nothing changed;
// -1 at once for a null ppState.
int AUDIO_ALG_GetMicTestState(float** ppState, tagZN_BOOL bCheckChange);

#endif  // AUDIOMW_AUDIO_ALG_H

// AI_COMBO_DEVICE_S: member checks and enabling in init (with the unwind on a
// mismatch), members opened, closed, disabled and read in list order.
//
// Member locks nest inside the combo's lock, so combos that reach each other through
// their members could lock in two orders, or a combo its own mutex twice. init refuses
// such lists by walking the members' attribute records (no lock taken), and a combo
// never calls a member that is a combo without a successful init. Every loop of combos
// holds such a combo (the last one to init saw the loop), so no call chain comes back
// to a combo and member locks are always taken in one order.
#include "ai_combo_device.h"

#include <climits>
#include <cstring>

#include "audio_log.h"
#include "relaxed_atomic.h"

using audiomw::StoreRelaxed;

namespace {

bool ValidId(int id) {
    return static_cast<unsigned int>(id) < AUDIO_AI_MAX_NUM;
}

unsigned int IdBit(int id) {
    return ValidId(id) ? 1u << id : 0u;
}

// Whether a combo may call member `id`: any AI but a combo whose init failed or has
// not run (its list may lead back to the caller).
bool Callable(int id) {
    const AI_COMBO_DEVICE_S* pCombo =
        ValidId(id) ? dynamic_cast<AI_COMBO_DEVICE_S*>(gs_pAiHandler[id]) : nullptr;
    return pCombo == nullptr || audiomw::LoadRelaxed(pCombo->bHasInit) != 0;
}

// Members in use: the first s32AiCnt ids, never more than the record holds.
int MemberCount(const AI_ATTR_S& a) {
    int n = a.stComboDev.s32AiCnt;
    return n < 0 ? 0 : (n > AUDIO_AI_COMBO_MAX_NUM ? AUDIO_AI_COMBO_MAX_NUM : n);
}

int Member(const AI_ATTR_S& a, int i) {
    return a.stComboDev.as32AiId[i];
}

// True when a member of the combo record `a` lies on `u32Path` (the combos from the
// one being checked down to `a`), directly or through the combos it lists. `s32Again`
// is the id met a second time. Each level adds an id, so the walk is at most 8 deep.
bool LeadsBack(const AI_ATTR_S& a, unsigned int u32Path, int& s32Again) {
    for (int i = 0; i < MemberCount(a); ++i) {
        const int m = Member(a, i);
        if ((u32Path & IdBit(m)) != 0) {
            s32Again = m;
            return true;
        }
        AI_ATTR_S stMember;
        if (ValidId(m) && AUDIO_AI_GetAttr(m, &stMember) == 0 && stMember.eType == AI_DEV_TYPE_COMBO &&
            LeadsBack(stMember, u32Path | IdBit(m), s32Again)) {
            return true;
        }
    }
    return false;
}

// One member of the list: a valid id other than the combo's own, not leading back to the
// combo or into another loop of combos. An empty slot passes here: init then treats it as
// a member that does not match or cannot be enabled, and unwinds.
bool ValidMember(const AI_COMBO_DEVICE_S* pDev, int m) {
    const int self = pDev->s32Id;
    AI_ATTR_S stMember;
    int s32Again = -1;
    if (!ValidId(m)) {
        AUDIO_LOG_OP("init", UTIL_LOG_ERR, "ComboAI[%d] member id %d outside 0 to %d\n", self, m,
                     AUDIO_AI_MAX_NUM - 1);
    } else if (m == self) {
        AUDIO_LOG_OP("init", UTIL_LOG_ERR, "ComboAI[%d] lists itself as a member\n", self);
    } else if (AUDIO_AI_GetAttr(m, &stMember) == 0 && stMember.eType == AI_DEV_TYPE_COMBO &&
               LeadsBack(stMember, IdBit(self) | IdBit(m), s32Again)) {
        AUDIO_LOG_OP("init", UTIL_LOG_ERR,
                     "ComboAI[%d] member AI[%d] leads back to AI[%d]: combos listed in a loop\n", self, m,
                     s32Again);
    } else {
        return true;
    }
    return false;
}

// The list is checked whole before any member is touched; a refused list changes no
// member.
bool ValidMembers(const AI_COMBO_DEVICE_S* pDev) {
    const int n = pDev->stAttr.stComboDev.s32AiCnt;
    if (n < 0 || n > AUDIO_AI_COMBO_MAX_NUM) {
        AUDIO_LOG_OP("init", UTIL_LOG_ERR, "ComboAI[%d] member count %d outside 0 to %d\n", pDev->s32Id, n,
                     AUDIO_AI_COMBO_MAX_NUM);
        return false;
    }
    for (int i = 0; i < n; ++i) {
        if (!ValidMember(pDev, Member(pDev->stAttr, i))) {
            return false;
        }
    }
    return true;
}

// Members a combo may call (see Callable); a member combo without init is left alone.
void DisableMembers(const AI_ATTR_S& a) {
    for (int i = 0; i < MemberCount(a); ++i) {
        if (Callable(Member(a, i))) {
            AUDIO_AI_SetEnable(Member(a, i), ZN_FALSE);
        }
    }
}

void CloseMembers(const AI_ATTR_S& a) {
    for (int i = 0; i < MemberCount(a); ++i) {
        if (Callable(Member(a, i))) {
            AUDIO_AI_Close(Member(a, i));
        }
    }
}

// Adds member m's channels to the combo's, checks its rate and frame length and enables
// it unless it already is. 0, or -1 after logging why. stMember is zeroed once for the
// whole list: an empty slot leaves it as it was (zeros, or the member before), so an
// empty member either mismatches or then fails to enable.
int TakeMember(AI_COMBO_DEVICE_S* pDev, int m, AI_ATTR_S& stMember) {
    AI_ATTR_S& a = pDev->stAttr;
    (void)AUDIO_AI_GetAttr(m, &stMember);
    long long s64Sum = static_cast<long long>(a.s32Channel) + stMember.s32Channel;
    if (stMember.s32Channel < 0 || s64Sum > INT_MAX) {
        AUDIO_LOG_OP("init", UTIL_LOG_ERR, "ComboAI[%d] cannot add %d channels of AI[%d] to %d\n",
                     pDev->s32Id, stMember.s32Channel, m, a.s32Channel);
        return -1;
    }
    a.s32Channel = static_cast<int>(s64Sum);
    if (stMember.eSampleRate != a.eSampleRate || stMember.s32FrameLen != a.s32FrameLen) {
        AUDIO_LOG_OP("init", UTIL_LOG_ERR,
                     "params of AI[%d] not match with Combo AI[%d], %d <=> %d, %d <=> %d", m, pDev->s32Id,
                     static_cast<int>(a.eSampleRate), static_cast<int>(stMember.eSampleRate), a.s32FrameLen,
                     stMember.s32FrameLen);
        return -1;
    }
    if (AUDIO_AI_isEnabled(m)) {
        AUDIO_LOG_OP("init", UTIL_LOG_ERR, "ComboAI[%d] enable AI[%d] skip, already enabled\n", pDev->s32Id,
                     m);
        return 0;
    }
    if (AUDIO_AI_SetEnable(m, ZN_TRUE) != 0) {
        AUDIO_LOG_OP("init", UTIL_LOG_ERR, "ComboAI[%d] enable AI[%d] failed\n", pDev->s32Id, m);
        return -1;
    }
    return 0;
}

}  // namespace

AI_COMBO_DEVICE_S::AI_COMBO_DEVICE_S() {}

AI_COMBO_DEVICE_S::~AI_COMBO_DEVICE_S() {}

int AI_COMBO_DEVICE_S::init() {
    stAttr.s32Channel = 0;
    if (!ValidMembers(this)) {
        return -1;
    }
    AI_ATTR_S stMember;
    std::memset(&stMember, 0, sizeof(stMember));
    for (int i = 0; i < MemberCount(stAttr); ++i) {
        if (TakeMember(this, Member(stAttr, i), stMember) != 0) {
            DisableMembers(stAttr);  // every listed member, those enabled before included
            return -1;
        }
    }
    StoreRelaxed(bHasInit, 1u);
    return 0;
}

int AI_COMBO_DEVICE_S::destroy() {
    StoreRelaxed(bHasInit, 0u);
    DisableMembers(stAttr);
    return 0;
}

// Always 0: a member that does not open leaves all members closed and the combo not
// open, which AUDIO_AI_isOpen tells.
int AI_COMBO_DEVICE_S::open() {
    for (int i = 0; i < MemberCount(stAttr); ++i) {
        const int m = Member(stAttr, i);
        if (!Callable(m) || AUDIO_AI_Open(m) != 0) {
            AUDIO_LOGE("ComboAI[%d] open AI[%d] failed\n", s32Id, m);
            CloseMembers(stAttr);
            StoreRelaxed(bHasOpen, 0u);
            return 0;
        }
    }
    StoreRelaxed(bHasOpen, 1u);
    return 0;
}

int AI_COMBO_DEVICE_S::close() {
    StoreRelaxed(bHasOpen, 0u);
    CloseMembers(stAttr);
    return 0;
}

int AI_COMBO_DEVICE_S::hotApply() {
    return 0;
}

AUDIO_SET_ACTION_E AI_COMBO_DEVICE_S::calActionOnSetCfg(AI_ATTR_S* attr) {
    if (attr->stComboDev.s32AiCnt != stAttr.stComboDev.s32AiCnt) {
        return AUDIO_SET_ACTION_E_NEED_DESTROY;
    }
    for (int i = 0; i < MemberCount(stAttr); ++i) {
        if (Member(*attr, i) != Member(stAttr, i)) {
            return AUDIO_SET_ACTION_E_NEED_DESTROY;
        }
    }
    return attr->bEnable != stAttr.bEnable ? AUDIO_SET_ACTION_E_NEED_DESTROY : AUDIO_SET_ACTION_E_NONE;
}

// Members one after the other into the caller's buffer. u32ReadLen is the sum of the
// members' block sizes whatever their reads gave; a block that would not fit in u32Len,
// or of a member combo without init, is not read.
int AI_COMBO_DEVICE_S::_readFrame(unsigned char* pBuf, unsigned int u32Len, unsigned int& u32ReadLen,
                                  unsigned long long& u64TimeStamp, int) {
    u32ReadLen = 0;
    unsigned long long u64Offset = 0;
    for (int i = 0; i < MemberCount(stAttr); ++i) {
        const int m = Member(stAttr, i);
        const int s32Size = AUDIO_AI_GetRecommendReadBufferSize(m);
        const unsigned int u32Size = s32Size > 0 ? static_cast<unsigned int>(s32Size) : 0u;
        if (Callable(m) && u64Offset + u32Size <= u32Len) {
            unsigned int u32MemberLen = 0;
            AUDIO_AI_Read(m, pBuf + u64Offset, u32Size, u32MemberLen, u64TimeStamp, -1);
        }
        u64Offset += u32Size;
        u32ReadLen += u32Size;
    }
    return 0;
}

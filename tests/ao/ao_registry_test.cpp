// The AO slot table, the exported AUDIO_AO_* functions on a virtual card, and setCfg's
// steps for each verdict on a scripted device.
#include <pthread.h>

#include <cerrno>
#include <cstring>

#include "ao_test_util.h"

namespace {

using namespace audiomw_test;

class AoRegistryTest : public AoTest {
  protected:
    void SetUp() override {
        AoTest::SetUp();
        LoadCards("pcm card=0 dir=playback sink=memory");
    }
    AO_ATTR_S attr = AlsaAoAttr(0, 0, 16000, 2, 160);
    Bytes period = MakePattern(2, 160);
};

// Refusals leave the table alone; slots fill from the lowest free id; every field is
// stored, but a new output starts disabled.
TEST_F(AoRegistryTest, CreateRefusalsThenSlotsFillFromTheLowestFreeId) {
    attr.stAlsaDev.u32HwRate = 44100;
    attr.bEnable = attr.bMute = ZN_TRUE;
    attr.s32Volume = 33;
    ASSERT_EQ(0, AUDIO_AO_Create(3, &attr));
    AO_DEVICE_S* first = gs_pAoHandler[3];
    const struct {
        int id, type;
        const char* line;
    } kCases[] = {{3, 0, "AO[3] has been used."},
                  {0, -1, "AO[0] for -1 not support yet."},
                  {0, 11, "AO[0] for 11 not support yet."},
                  {4, 0, "AO[4] invalid id, valid ids are 0 to 3."},
                  {-1, 0, "AO[-1] invalid id, valid ids are 0 to 3."},
                  {0, 0, "AO[0] attr is null."}};
    for (const auto& c : kCases) {
        AO_ATTR_S other = AlsaAoAttr(0, 0, 48000, 1, 480);
        other.eType = c.type;
        log.Clear();
        EXPECT_EQ(-1, AUDIO_AO_Create(c.id, std::strstr(c.line, "null") ? nullptr : &other)) << c.line;
        EXPECT_EQ(Lines({{3, "AUDIO_AO_Create", c.line}}), log.All());
    }
    EXPECT_EQ(first, gs_pAoHandler[3]);
    for (int id = 0; id < 3; ++id) {
        EXPECT_EQ(id, AUDIO_AO_GetNewId());
        ASSERT_EQ(0, AUDIO_AO_Create(id, &attr));
        EXPECT_TRUE(log.Has({6, "AUDIO_AO_Create", "AO[" + std::to_string(id) + "] create success"}));
    }
    EXPECT_EQ(-1, AUDIO_AO_GetNewId());
    EXPECT_EQ(ZN_FALSE, AUDIO_AO_isEnabled(3) || AUDIO_AO_isReady(3) || Counters(0, 0).opens);
    AO_ATTR_S got;
    std::memset(&got, 0xA5, sizeof(got));
    ASSERT_EQ(0, AUDIO_AO_GetAttr(3, &got));
    attr.bEnable = ZN_FALSE;
    EXPECT_EQ(0, std::memcmp(&attr, &got, sizeof(got)));
    EXPECT_EQ(0, AUDIO_AO_Destroy(2));
    EXPECT_TRUE(log.Has({6, "AUDIO_AO_Destroy", "AO[2] destroy success"}));
    EXPECT_EQ(nullptr, gs_pAoHandler[2]);
    EXPECT_EQ(2, AUDIO_AO_GetNewId());
}

// Free slots, ids past the table and negative ids answer alike.
TEST_F(AoRegistryTest, EmptySlotsAnswerAsTheFailureTableSays) {
    for (int id : {0, 3, 4, -1}) {
        const std::string tag = "AO[" + std::to_string(id) + "]";
        SCOPED_TRACE(tag);
        log.Clear();
        AO_ATTR_S got;
        EXPECT_EQ((std::vector<int>{static_cast<int>(0x80002401), -1, 0, 0, -1, -1, -1, -1}),
                  (std::vector<int>{AUDIO_AO_GetAttr(id, &got), AUDIO_AO_GetUnderRunState(id),
                                    AUDIO_AO_isEnabled(id) || AUDIO_AO_isReady(id), AUDIO_AO_Destroy(id),
                                    AUDIO_AO_SetAttr(id, &attr), AUDIO_AO_SetVolume(id, 5),
                                    AUDIO_AO_SetEnable(id, ZN_TRUE), Write(id, period)}));
        EXPECT_EQ(Lines({{3, "AUDIO_AO_SetAttr", tag + " not available"},
                         {3, "AUDIO_AO_SetVolume", tag + " not available"},
                         {3, "AUDIO_AO_SetEnable", tag + " not available"},
                         {4, "AUDIO_AO_Write", tag + " not create"}}),
                  log.All());
    }
}

// The same enable value does nothing, another non-zero one is stored and reopens; a volume
// change is stored with the card left open, the current value changes nothing; disable
// closes. Null records and buffers and oversized writes are refused. Muted writes are
// dropped, even when closed.
TEST_F(AoRegistryTest, SetEnableSetVolumeMuteAndRefusedArguments) {
    ASSERT_TRUE(CreateEnabled(0, attr));
    EXPECT_EQ(0, AUDIO_AO_GetUnderRunState(0));
    log.Clear();
    EXPECT_EQ(0, AUDIO_AO_SetEnable(0, ZN_TRUE) + AUDIO_AO_SetVolume(0, 0) + AUDIO_AO_SetVolume(0, 75));
    EXPECT_EQ(std::vector<int>(5, -1),
              (std::vector<int>{AUDIO_AO_Write(0, nullptr, 640), AUDIO_AO_GetAttr(0, nullptr),
                                AUDIO_AO_SetAttr(0, nullptr), AUDIO_AO_Write(0, period.data(), 0x80000000u),
                                gs_pAoHandler[0]->sendFrame(period.data(), -4)}));
    EXPECT_EQ(Lines({{6, "AUDIO_AO_SetVolume", "set AO[0] Volume=75"},
                     {3, "AUDIO_AO_Write", "AO[0] write buffer is null"},
                     {3, "AUDIO_AO_GetAttr", "AO[0] attr is null."},
                     {3, "AUDIO_AO_SetAttr", "AO[0] attr is null."},
                     {3, "AUDIO_AO_Write", "AO[0] write of 2147483648 bytes refused"},
                     {3, "sendFrame", "AO[0] write of -1 frames refused, a period is 160 frames\n"}}),
              log.All());
    AO_ATTR_S got;
    ASSERT_EQ(0, AUDIO_AO_GetAttr(0, &got));
    EXPECT_EQ(75, got.s32Volume);
    EXPECT_EQ(0, Write(0, period));
    EXPECT_EQ(period, SinkBytes(0, 0));
    EXPECT_EQ(0u, Counters(0, 0).closes);
    EXPECT_EQ(0, AUDIO_AO_SetEnable(0, static_cast<tagZN_BOOL>(2)));
    EXPECT_EQ(2u, Counters(0, 0).opens);
    EXPECT_EQ(0, AUDIO_AO_SetEnable(0, ZN_FALSE));
    EXPECT_TRUE(log.Has({6, "AUDIO_AO_SetEnable", "set AO[0] Disable"}));
    EXPECT_EQ(0, AUDIO_AO_isReady(0) + Counters(0, 0).is_open);

    attr.bMute = ZN_TRUE;
    ASSERT_EQ(0, AUDIO_AO_Create(1, &attr));
    EXPECT_EQ(0, Write(1, period) + AUDIO_AO_Write(1, nullptr, 0));
    ASSERT_EQ(0, AUDIO_AO_SetEnable(1, ZN_TRUE));
    EXPECT_EQ(0, Write(1, period));
    EXPECT_EQ(1u, Counters(0, 0).writes);
}

// A failed open leaves the output enabled but not ready; enabling again does not retry,
// disabling and enabling does. A refused pcm_open comes after both converters were made:
// all is released (ASan sees no leak) and the output opens once the card accepts.
TEST_F(AoRegistryTest, FailedEnableCountsAsEnabledUntilDisabled) {
    LoadCards("card 6");
    AO_ATTR_S absent = AlsaAoAttr(6, 0, 16000, 2, 160);
    ASSERT_EQ(0, AUDIO_AO_Create(0, &absent));
    EXPECT_EQ(-1, AUDIO_AO_SetEnable(0, ZN_TRUE));
    EXPECT_TRUE(log.Has({3, "init", "Alsa device 6:0 not exist for AO[0]."}));
    EXPECT_EQ(ZN_TRUE, AUDIO_AO_isEnabled(0));
    EXPECT_EQ(ZN_FALSE, AUDIO_AO_isReady(0));
    EXPECT_EQ(std::make_pair(-1, -1), std::make_pair(Write(0, period), AUDIO_AO_GetUnderRunState(0)));

    LoadCards("pcm card=6 dir=playback channels=1 rates=8000 sink=memory open-error=\"device is busy\"");
    log.Clear();
    EXPECT_EQ(0, AUDIO_AO_SetEnable(0, ZN_TRUE));
    EXPECT_TRUE(log.Lines().empty());
    EXPECT_EQ(0, AUDIO_AO_SetEnable(0, ZN_FALSE));
    EXPECT_EQ(-1, AUDIO_AO_SetEnable(0, ZN_TRUE));
    EXPECT_EQ((Logged{3, "init", "AO[0] Open Alsa 6:0 failed. device is busy"}), log.All().back());
    EXPECT_EQ(1u, Counters(6, 0).failed_opens);
    ASSERT_EQ(0, vcard_set_faults(6, 0, VCARD_PLAYBACK, nullptr));
    EXPECT_EQ(0, AUDIO_AO_SetEnable(0, ZN_FALSE) + AUDIO_AO_SetEnable(0, ZN_TRUE) + Write(0, period));
    EXPECT_EQ(80u, Counters(6, 0).frames_written);
}

struct SetCfgCase {
    int verdict;
    bool open, enable;    // the device is open; the new record enables it
    const char* failing;  // the operation that returns -7
    int result;
    const char* calls;
    bool stored, logged;
};

// clang-format off
const SetCfgCase kSetCfgCases[] = {
    {AUDIO_SET_ACTION_E_HOT_UPDATE, true, true, "hotApply", -7, "verdict hotApply", true, false},
    {AUDIO_SET_ACTION_E_NEED_CLOSE, true, true, "", 0, "verdict destroy init", true, false},
    {AUDIO_SET_ACTION_E_NEED_CLOSE, false, false, "", 0, "verdict", true, false},
    {AUDIO_SET_ACTION_E_NEED_DESTROY, false, true, "", 0, "verdict init", true, false},
    {AUDIO_SET_ACTION_E_NEED_DESTROY, true, false, "", 0, "verdict destroy", true, false},
    {AUDIO_SET_ACTION_E_NEED_DESTROY, true, true, "destroy", -7, "verdict destroy", false, false},
    {AUDIO_SET_ACTION_E_NEED_DESTROY, true, true, "init", -7, "verdict destroy init", true, false},
    {AUDIO_SET_ACTION_E_NONE, true, true, "", 0, "verdict", false, true},
    {4, true, true, "", 0, "verdict", false, true},
};
// clang-format on

// Records its calls and whether each ran under the device mutex.
struct ScriptedDevice : public AO_DEVICE_S {
    const SetCfgCase* script = nullptr;
    std::string calls;
    bool locked = true;

    int Run(const char* op) {
        calls += (calls.empty() ? "" : " ") + std::string(op);
        locked = locked && pthread_mutex_trylock(&stMutex) == EBUSY;
        return std::strcmp(script->failing, op) == 0 ? -7 : 0;
    }
    int init() override { return Run("init"); }
    int destroy() override { return Run("destroy"); }
    int hotApply() override { return Run("hotApply"); }
    AUDIO_SET_ACTION_E calActionOnSetCfg(AO_ATTR_S*) override {
        Run("verdict");
        return static_cast<AUDIO_SET_ACTION_E>(script->verdict);
    }
};

TEST_F(AoRegistryTest, SetCfgTakesTheStepsOfTheVerdict) {
    for (const SetCfgCase& c : kSetCfgCases) {
        SCOPED_TRACE(::testing::Message() << c.verdict << " " << c.calls);
        log.Clear();
        ScriptedDevice dev;
        dev.script = &c;
        dev.s32Id = 2;
        dev.stAttr = attr;
        dev.stAttr.bEnable = ZN_TRUE;
        dev.bHasInit = c.open ? ZN_TRUE : ZN_FALSE;
        const AO_ATTR_S before = dev.stAttr;
        AO_ATTR_S next = AlsaAoAttr(1, 2, 48000, 4, 480);  // every field differs
        next.eType = 1;
        next.stAlsaDev.u32HwRate = 44100;
        next.bEnable = c.enable ? ZN_TRUE : ZN_FALSE;
        next.s32Volume = 2;
        next.bMute = ZN_TRUE;
        EXPECT_EQ(c.result, dev.setCfg(&next));
        EXPECT_EQ(c.calls, dev.calls);
        EXPECT_EQ(0, std::memcmp(c.stored ? &next : &before, &dev.stAttr, sizeof(before)));
        EXPECT_TRUE(dev.locked);
        ASSERT_EQ(0, pthread_mutex_trylock(&dev.stMutex));
        pthread_mutex_unlock(&dev.stMutex);
        EXPECT_EQ(c.logged ? Lines({{6, "setCfg", "AO[2] set cfg but do nothing"}}) : Lines(), log.All());
    }
}

}  // namespace

// The AO slot table and the exported AUDIO_AO_* functions on a virtual card.
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

// Slots fill from the lowest free id; every field of the record is stored and read back,
// except that a new output starts disabled and closed.
TEST_F(AoRegistryTest, CreateFillsTheLowestFreeSlotWithTheRecordDisabled) {
    attr.stAlsaDev.u32HwRate = 44100;
    attr.bEnable = ZN_TRUE;
    attr.s32Volume = 33;
    attr.bMute = ZN_TRUE;
    for (int id = 0; id < AUDIO_AO_MAX_NUM; ++id) {
        EXPECT_EQ(id, AUDIO_AO_GetNewId());
        ASSERT_EQ(0, AUDIO_AO_Create(id, &attr));
        EXPECT_TRUE(log.Has({6, "AUDIO_AO_Create", "AO[" + std::to_string(id) + "] create success"}));
    }
    EXPECT_EQ(-1, AUDIO_AO_GetNewId());
    EXPECT_EQ(ZN_FALSE, AUDIO_AO_isEnabled(1) || AUDIO_AO_isReady(1) || Counters(0, 0).opens);
    AO_ATTR_S got;
    std::memset(&got, 0xA5, sizeof(got));
    ASSERT_EQ(0, AUDIO_AO_GetAttr(1, &got));
    attr.bEnable = ZN_FALSE;
    EXPECT_EQ(0, std::memcmp(&attr, &got, sizeof(got)));
    EXPECT_EQ(0, AUDIO_AO_Destroy(2));
    EXPECT_TRUE(log.Has({6, "AUDIO_AO_Destroy", "AO[2] destroy success"}));
    EXPECT_EQ(nullptr, gs_pAoHandler[2]);
    EXPECT_EQ(2, AUDIO_AO_GetNewId());
}

TEST_F(AoRegistryTest, CreateRefusalsLeaveTheTableAlone) {
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
        EXPECT_EQ(std::vector<Logged>({{3, "AUDIO_AO_Create", c.line}}), log.All());
    }
    EXPECT_EQ(first, gs_pAoHandler[3]);
    EXPECT_EQ(16000, first->stAttr.eSampleRate);
    EXPECT_EQ(0, AUDIO_AO_GetNewId());
}

// Free slots, ids past the table and negative ids answer alike.
TEST_F(AoRegistryTest, EmptySlotsAnswerAsTheFailureTableSays) {
    for (int id : {0, 3, 4, 7, -1, -100}) {
        const std::string tag = "AO[" + std::to_string(id) + "]";
        SCOPED_TRACE(tag);
        log.Clear();
        AO_ATTR_S got;
        EXPECT_EQ(static_cast<int>(0x80002401), AUDIO_AO_GetAttr(id, &got));
        EXPECT_EQ(-1, AUDIO_AO_GetUnderRunState(id));
        EXPECT_EQ(ZN_FALSE, AUDIO_AO_isEnabled(id) || AUDIO_AO_isReady(id));
        EXPECT_EQ(0, AUDIO_AO_Destroy(id));
        EXPECT_EQ(-1, AUDIO_AO_SetAttr(id, &attr));
        EXPECT_EQ(-1, AUDIO_AO_SetVolume(id, 5));
        EXPECT_EQ(-1, AUDIO_AO_SetEnable(id, ZN_TRUE));
        EXPECT_EQ(-1, Write(id, period));
        EXPECT_EQ(std::vector<Logged>({{3, "AUDIO_AO_SetAttr", tag + " not available"},
                                       {3, "AUDIO_AO_SetVolume", tag + " not available"},
                                       {3, "AUDIO_AO_SetEnable", tag + " not available"},
                                       {4, "AUDIO_AO_Write", tag + " not create"}}),
                  log.All());
    }
}

// The same enable value again does nothing, another non-zero value is stored and reopens.
// A volume change is stored with the card left open, the current value changes nothing.
// Disable closes. Muted writes are dropped, even when closed.
TEST_F(AoRegistryTest, SetEnableSetVolumeAndMute) {
    ASSERT_TRUE(CreateEnabled(0, attr));
    EXPECT_EQ(0, AUDIO_AO_GetUnderRunState(0));
    log.Clear();
    EXPECT_EQ(0, AUDIO_AO_SetEnable(0, ZN_TRUE));
    EXPECT_EQ(0, AUDIO_AO_SetVolume(0, 0));
    EXPECT_EQ(0, AUDIO_AO_SetVolume(0, 75));
    EXPECT_EQ(std::vector<Logged>({{6, "AUDIO_AO_SetVolume", "set AO[0] Volume=75"}}), log.All());
    AO_ATTR_S got;
    ASSERT_EQ(0, AUDIO_AO_GetAttr(0, &got));
    EXPECT_EQ(75, got.s32Volume);
    EXPECT_EQ(0u, Counters(0, 0).closes);
    EXPECT_EQ(0, Write(0, period));
    EXPECT_EQ(period, SinkBytes(0, 0));
    EXPECT_EQ(0, AUDIO_AO_SetEnable(0, static_cast<tagZN_BOOL>(2)));
    EXPECT_EQ(2u, Counters(0, 0).opens);
    EXPECT_EQ(0, AUDIO_AO_SetEnable(0, ZN_FALSE));
    EXPECT_TRUE(log.Has({6, "AUDIO_AO_SetEnable", "set AO[0] Disable"}));
    EXPECT_EQ(ZN_FALSE, AUDIO_AO_isReady(0));
    EXPECT_EQ(0, Counters(0, 0).is_open);

    attr.bMute = ZN_TRUE;
    ASSERT_EQ(0, AUDIO_AO_Create(1, &attr));
    EXPECT_EQ(0, Write(1, period));
    EXPECT_EQ(0, AUDIO_AO_Write(1, nullptr, 0));
    ASSERT_EQ(0, AUDIO_AO_SetEnable(1, ZN_TRUE));
    EXPECT_EQ(0, Write(1, period));
    EXPECT_EQ(1u, Counters(0, 0).writes);
}

TEST_F(AoRegistryTest, NullRecordsBuffersAndOversizedWritesAreRefused) {
    ASSERT_TRUE(CreateEnabled(0, attr));
    log.Clear();
    EXPECT_EQ(-1, AUDIO_AO_Write(0, nullptr, 640));
    EXPECT_EQ(-1, AUDIO_AO_GetAttr(0, nullptr));
    EXPECT_EQ(-1, AUDIO_AO_SetAttr(0, nullptr));
    EXPECT_EQ(-1, AUDIO_AO_Write(0, period.data(), 0x80000000u));
    EXPECT_EQ(-1, gs_pAoHandler[0]->sendFrame(period.data(), -4));
    EXPECT_EQ(
        std::vector<Logged>({{3, "AUDIO_AO_Write", "AO[0] write buffer is null"},
                             {3, "AUDIO_AO_GetAttr", "AO[0] attr is null."},
                             {3, "AUDIO_AO_SetAttr", "AO[0] attr is null."},
                             {3, "AUDIO_AO_Write", "AO[0] write of 2147483648 bytes refused"},
                             {3, "sendFrame", "AO[0] write of -1 frames refused, a period is 160 frames\n"}}),
        log.All());
    EXPECT_EQ(0u, Counters(0, 0).writes);
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
    EXPECT_EQ(-1, Write(0, period));
    EXPECT_EQ(-1, AUDIO_AO_GetUnderRunState(0));

    LoadCards("pcm card=6 dir=playback channels=1 rates=8000 sink=memory open-error=\"device is busy\"");
    log.Clear();
    EXPECT_EQ(0, AUDIO_AO_SetEnable(0, ZN_TRUE));
    EXPECT_TRUE(log.Lines().empty());
    EXPECT_EQ(0, AUDIO_AO_SetEnable(0, ZN_FALSE));
    EXPECT_EQ(-1, AUDIO_AO_SetEnable(0, ZN_TRUE));
    EXPECT_EQ((Logged{3, "init", "AO[0] Open Alsa 6:0 failed. device is busy"}), log.All().back());
    EXPECT_EQ(1u, Counters(6, 0).failed_opens);
    ASSERT_EQ(0, vcard_set_faults(6, 0, VCARD_PLAYBACK, nullptr));
    EXPECT_EQ(0, AUDIO_AO_SetEnable(0, ZN_FALSE) + AUDIO_AO_SetEnable(0, ZN_TRUE));
    EXPECT_EQ(0, Write(0, period));
    EXPECT_EQ(80u, Counters(6, 0).frames_written);
}

}  // namespace

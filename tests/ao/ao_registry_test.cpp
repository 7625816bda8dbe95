// The AO slot table and the exported AUDIO_AO_* functions: ids, creation, the failure
// table, volume/enable shortcuts and the mute flag, on a virtual card.
#include <cstring>
#include <vector>

#include "ao_test_util.h"
#include "audio_ao.h"

namespace {

using audiomw_test::AddPlayback;
using audiomw_test::AlsaAoAttr;
using audiomw_test::Counters;
using audiomw_test::PlaybackPcm;
using audiomw_test::SinkBytes;

class AoRegistryTest : public audiomw_test::AoTest {
  protected:
    void SetUp() override {
        AoTest::SetUp();
        AddPlayback(PlaybackPcm{});
    }
    AO_ATTR_S attr = AlsaAoAttr(0, 0, 16000, 2, 160);
    std::vector<uint8_t> period = audiomw_test::MakePattern(2, 160);
};

TEST_F(AoRegistryTest, GetNewIdGivesTheLowestFreeSlot) {
    for (int id = 0; id < AUDIO_AO_MAX_NUM; ++id) {
        EXPECT_EQ(id, AUDIO_AO_GetNewId());
        ASSERT_EQ(0, AUDIO_AO_Create(id, &attr));
    }
    EXPECT_EQ(-1, AUDIO_AO_GetNewId());
    EXPECT_EQ(0, AUDIO_AO_Destroy(2));
    EXPECT_EQ(2, AUDIO_AO_GetNewId());
    EXPECT_EQ(0, AUDIO_AO_Destroy(0));
    EXPECT_EQ(0, AUDIO_AO_GetNewId());
}

TEST_F(AoRegistryTest, CreateStoresTheRecordDisabled) {
    attr.bEnable = ZN_TRUE;
    attr.s32Volume = 33;
    attr.bMute = ZN_TRUE;
    ASSERT_EQ(0, AUDIO_AO_Create(1, &attr));
    EXPECT_TRUE(log.Has(6, "AO[1] create success"));
    EXPECT_EQ(ZN_FALSE, AUDIO_AO_isEnabled(1));
    EXPECT_EQ(ZN_FALSE, AUDIO_AO_isReady(1));
    EXPECT_EQ(0u, Counters(0, 0).opens);
    ASSERT_NE(nullptr, gs_pAoHandler[1]);
    EXPECT_EQ(1, gs_pAoHandler[1]->s32Id);
    AO_ATTR_S got;
    ASSERT_EQ(0, AUDIO_AO_GetAttr(1, &got));
    AO_ATTR_S expected = attr;
    expected.bEnable = ZN_FALSE;
    EXPECT_EQ(0, std::memcmp(&expected, &got, sizeof(got)));
}

TEST_F(AoRegistryTest, CreateOnAnOccupiedSlotLeavesTheDeviceAlone) {
    ASSERT_EQ(0, AUDIO_AO_Create(3, &attr));
    AO_DEVICE_S* first = gs_pAoHandler[3];
    AO_ATTR_S other = AlsaAoAttr(0, 0, 48000, 1, 480);
    EXPECT_EQ(-1, AUDIO_AO_Create(3, &other));
    EXPECT_TRUE(log.Has(3, "AO[3] has been used."));
    EXPECT_EQ(first, gs_pAoHandler[3]);
    AO_ATTR_S got;
    ASSERT_EQ(0, AUDIO_AO_GetAttr(3, &got));
    EXPECT_EQ(16000, got.eSampleRate);
}

TEST_F(AoRegistryTest, CreateRefusesOtherDeviceTypes) {
    for (int type : {-1, 1, 11}) {
        attr.eType = type;
        EXPECT_EQ(-1, AUDIO_AO_Create(0, &attr));
        EXPECT_TRUE(log.Has(3, "AO[0] for " + std::to_string(type) + " not support yet."));
        EXPECT_EQ(nullptr, gs_pAoHandler[0]);
    }
}

TEST_F(AoRegistryTest, CreateRefusesIdsOutsideTheTableAndNullRecords) {
    EXPECT_EQ(-1, AUDIO_AO_Create(4, &attr));
    EXPECT_TRUE(log.Has(3, "AO[4] invalid id, valid ids are 0 to 3."));
    EXPECT_EQ(-1, AUDIO_AO_Create(-1, &attr));
    EXPECT_TRUE(log.Has(3, "AO[-1] invalid id, valid ids are 0 to 3."));
    EXPECT_EQ(-1, AUDIO_AO_Create(0, nullptr));
    EXPECT_TRUE(log.Has(3, "AO[0] attr is null."));
    EXPECT_EQ(0, AUDIO_AO_GetNewId());
}

TEST_F(AoRegistryTest, DestroyDeletesWithoutClosingAndLogs) {
    ASSERT_EQ(0, AUDIO_AO_Create(2, &attr));
    EXPECT_EQ(0, AUDIO_AO_Destroy(2));
    EXPECT_TRUE(log.Has(6, "AO[2] destroy success"));
    EXPECT_EQ(nullptr, gs_pAoHandler[2]);
    log.Clear();
    EXPECT_EQ(0, AUDIO_AO_Destroy(2));
    EXPECT_TRUE(log.Messages().empty());
}

// Every id that holds no device: out of range, negative, or a free slot.
class AoEmptySlotTest : public AoRegistryTest, public ::testing::WithParamInterface<int> {};

TEST_P(AoEmptySlotTest, AnswersAsTheFailureTableSays) {
    const int id = GetParam();
    const std::string tag = "AO[" + std::to_string(id) + "]";
    AO_ATTR_S got;
    EXPECT_EQ(static_cast<int>(0x80002401), AUDIO_AO_GetAttr(id, &got));
    EXPECT_EQ(-1, AUDIO_AO_GetUnderRunState(id));
    EXPECT_EQ(ZN_FALSE, AUDIO_AO_isEnabled(id));
    EXPECT_EQ(ZN_FALSE, AUDIO_AO_isReady(id));
    EXPECT_EQ(0, AUDIO_AO_Destroy(id));
    EXPECT_TRUE(log.Messages().empty());

    EXPECT_EQ(-1, AUDIO_AO_SetAttr(id, &attr));
    EXPECT_EQ(-1, AUDIO_AO_SetVolume(id, 5));
    EXPECT_EQ(-1, AUDIO_AO_SetEnable(id, ZN_TRUE));
    EXPECT_EQ(3, log.Count(3, tag + " not available"));
    EXPECT_EQ(-1, AUDIO_AO_Write(id, period.data(), period.size()));
    EXPECT_EQ(1, log.Count(4, tag + " not create"));
    EXPECT_EQ(4u, log.Lines().size());
}

INSTANTIATE_TEST_SUITE_P(Ids, AoEmptySlotTest, ::testing::Values(0, 3, 4, 5, 6, 7, -1, -100));

TEST_F(AoRegistryTest, SetVolumeWithTheCurrentValueDoesNothing) {
    attr.s32Volume = 20;
    ASSERT_TRUE(CreateEnabled(0, attr));
    log.Clear();
    EXPECT_EQ(0, AUDIO_AO_SetVolume(0, 20));
    EXPECT_TRUE(log.Messages().empty());
    EXPECT_EQ(1u, Counters(0, 0).opens);
    EXPECT_EQ(0u, Counters(0, 0).closes);
}

TEST_F(AoRegistryTest, SetVolumeOnAnOpenOutputIsStoredAndKeepsItOpen) {
    ASSERT_TRUE(CreateEnabled(0, attr));
    log.Clear();
    EXPECT_EQ(0, AUDIO_AO_SetVolume(0, 75));
    EXPECT_EQ((std::vector<std::string>{"set AO[0] Volume=75"}), log.Messages());
    AO_ATTR_S got;
    ASSERT_EQ(0, AUDIO_AO_GetAttr(0, &got));
    EXPECT_EQ(75, got.s32Volume);
    EXPECT_EQ(ZN_TRUE, AUDIO_AO_isReady(0));
    EXPECT_EQ(1u, Counters(0, 0).opens);
    EXPECT_EQ(0u, Counters(0, 0).closes);
    EXPECT_EQ(0, AUDIO_AO_Write(0, period.data(), period.size()));
    EXPECT_EQ(period, SinkBytes(0, 0));
}

TEST_F(AoRegistryTest, SetEnableOpensAndClosesOnce) {
    ASSERT_EQ(0, AUDIO_AO_Create(0, &attr));
    EXPECT_EQ(0, AUDIO_AO_SetEnable(0, ZN_TRUE));
    EXPECT_TRUE(log.Has(6, "set AO[0] Enable"));
    EXPECT_EQ(ZN_TRUE, AUDIO_AO_isEnabled(0));
    EXPECT_EQ(ZN_TRUE, AUDIO_AO_isReady(0));
    log.Clear();
    // Any non-zero value differs from 1 as a value: it is stored and reopens the card.
    EXPECT_EQ(0, AUDIO_AO_SetEnable(0, ZN_TRUE));
    EXPECT_TRUE(log.Messages().empty());
    EXPECT_EQ(0, AUDIO_AO_SetEnable(0, static_cast<tagZN_BOOL>(2)));
    EXPECT_TRUE(log.Has(6, "set AO[0] Enable"));
    EXPECT_EQ(2u, Counters(0, 0).opens);
    EXPECT_EQ(0, AUDIO_AO_SetEnable(0, ZN_FALSE));
    EXPECT_TRUE(log.Has(6, "set AO[0] Disable"));
    EXPECT_EQ(ZN_FALSE, AUDIO_AO_isReady(0));
    EXPECT_EQ(0, Counters(0, 0).is_open);
    EXPECT_EQ(2u, Counters(0, 0).closes);
}

TEST_F(AoRegistryTest, MutedWritesAreDroppedEvenWhenClosed) {
    attr.bMute = ZN_TRUE;
    ASSERT_EQ(0, AUDIO_AO_Create(0, &attr));
    EXPECT_EQ(0, AUDIO_AO_Write(0, period.data(), period.size()));
    EXPECT_EQ(0, AUDIO_AO_Write(0, nullptr, 0));
    ASSERT_EQ(0, AUDIO_AO_SetEnable(0, ZN_TRUE));
    EXPECT_EQ(0, AUDIO_AO_Write(0, period.data(), period.size()));
    EXPECT_EQ(0u, Counters(0, 0).writes);
    EXPECT_TRUE(SinkBytes(0, 0).empty());
}

TEST_F(AoRegistryTest, OnlyMuteOrTypeChangedIsNothingAndNotStored) {
    ASSERT_TRUE(CreateEnabled(1, attr));
    AO_ATTR_S changed;
    ASSERT_EQ(0, AUDIO_AO_GetAttr(1, &changed));
    changed.bMute = ZN_TRUE;
    changed.eType = 5;
    changed.stAlsaDev.u32HwRate = 48000;
    log.Clear();
    EXPECT_EQ(0, AUDIO_AO_SetAttr(1, &changed));
    EXPECT_EQ((std::vector<std::string>{"AO[1] set cfg but do nothing"}), log.Messages());
    AO_ATTR_S got;
    ASSERT_EQ(0, AUDIO_AO_GetAttr(1, &got));
    EXPECT_EQ(ZN_FALSE, got.bMute);
    EXPECT_EQ(0, got.eType);
    EXPECT_EQ(0u, got.stAlsaDev.u32HwRate);
    EXPECT_EQ(0, AUDIO_AO_Write(1, period.data(), period.size()));
    EXPECT_EQ(1u, Counters(0, 0).writes);
}

TEST_F(AoRegistryTest, NullBuffersAreRefused) {
    ASSERT_TRUE(CreateEnabled(0, attr));
    EXPECT_EQ(-1, AUDIO_AO_Write(0, nullptr, 640));
    EXPECT_TRUE(log.Has(3, "AO[0] write buffer is null"));
    EXPECT_EQ(-1, AUDIO_AO_GetAttr(0, nullptr));
    EXPECT_EQ(-1, AUDIO_AO_SetAttr(0, nullptr));
    EXPECT_EQ(2, log.Count(3, "AO[0] attr is null."));
    EXPECT_EQ(0u, Counters(0, 0).writes);
}

TEST_F(AoRegistryTest, ByteCountsBeyondTheDevicesRangeAreRefused) {
    ASSERT_TRUE(CreateEnabled(0, attr));
    EXPECT_EQ(-1, AUDIO_AO_Write(0, period.data(), 0x80000000u));
    EXPECT_TRUE(log.Has(3, "AO[0] write of 2147483648 bytes refused"));
    // A negative count handed to the device itself is refused there.
    EXPECT_EQ(-1, gs_pAoHandler[0]->sendFrame(period.data(), -4));
    EXPECT_TRUE(log.Has(3, "AO[0] write of -1 frames refused, a period is 160 frames\n"));
    EXPECT_EQ(0u, Counters(0, 0).writes);
}

TEST_F(AoRegistryTest, FailedEnableCountsAsEnabledUntilDisabled) {
    ASSERT_EQ(0, vcard_add_card(6));  // virtual, without a playback PCM yet
    AO_ATTR_S absent = AlsaAoAttr(6, 0, 16000, 2, 160);
    ASSERT_EQ(0, AUDIO_AO_Create(0, &absent));
    EXPECT_EQ(-1, AUDIO_AO_SetEnable(0, ZN_TRUE));
    EXPECT_TRUE(log.Has(3, "Alsa device 6:0 not exist for AO[0]."));
    EXPECT_EQ(ZN_TRUE, AUDIO_AO_isEnabled(0));
    EXPECT_EQ(ZN_FALSE, AUDIO_AO_isReady(0));
    EXPECT_EQ(-1, AUDIO_AO_Write(0, period.data(), period.size()));
    EXPECT_EQ(-1, AUDIO_AO_GetUnderRunState(0));

    // The record already says enabled: no retry.
    AddPlayback(PlaybackPcm{6, 0});
    log.Clear();
    EXPECT_EQ(0, AUDIO_AO_SetEnable(0, ZN_TRUE));
    EXPECT_TRUE(log.Messages().empty());
    EXPECT_EQ(ZN_FALSE, AUDIO_AO_isReady(0));
    // Disabling and enabling again retries the open.
    EXPECT_EQ(0, AUDIO_AO_SetEnable(0, ZN_FALSE));
    EXPECT_EQ(0, AUDIO_AO_SetEnable(0, ZN_TRUE));
    EXPECT_EQ(ZN_TRUE, AUDIO_AO_isReady(0));
    EXPECT_EQ(0, AUDIO_AO_Write(0, period.data(), period.size()));
    EXPECT_EQ(period, SinkBytes(6, 0));
}

}  // namespace

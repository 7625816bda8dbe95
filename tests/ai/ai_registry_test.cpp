// The AI slot table: id handling, class choice by type code, return codes and log lines.
#include <cstring>

#include "ai/ai_file_device.h"
#include "ai_test_util.h"
#include "test_support.h"

namespace {

using audiomw_test::FileAiAttr;

class AiRegistryTest : public audiomw_test::AudioTest {
  protected:
    void TearDown() override {
        for (int i = 0; i < AUDIO_AI_MAX_NUM; i++) {
            AUDIO_AI_Close(i);
            AUDIO_AI_Destroy(i);
        }
    }
};

TEST_F(AiRegistryTest, UnavailableIdsAnswerPerFunction) {
    AI_ATTR_S a = FileAiAttr("");
    unsigned char buf[8];
    unsigned int len = 0;
    unsigned long long ts = 0;
    for (int id : {-1, 8, 3, 0x7fffffff}) {
        SCOPED_TRACE(id);
        log.Clear();
        EXPECT_EQ(AUDIO_ERR_UNAVAILABLE, AUDIO_AI_GetAttr(id, &a));
        EXPECT_EQ(AUDIO_ERR_UNAVAILABLE, AUDIO_AI_Open(id));
        EXPECT_EQ(AUDIO_ERR_UNAVAILABLE, AUDIO_AI_Close(id));
        EXPECT_EQ(AUDIO_ERR_UNAVAILABLE, AUDIO_AI_Read(id, buf, sizeof(buf), len, ts, -1));
        EXPECT_EQ(AUDIO_ERR_UNAVAILABLE, AUDIO_AI_GetUnderRunState(id));
        EXPECT_EQ(0, AUDIO_AI_isEnabled(id));
        EXPECT_EQ(0, AUDIO_AI_isInitd(id));
        EXPECT_EQ(0, AUDIO_AI_isOpen(id));
        EXPECT_EQ(-1, AUDIO_AI_GetChannelChn(id));
        EXPECT_EQ(-1, AUDIO_AI_GetRecommendReadBufferSize(id));
        EXPECT_EQ(0, AUDIO_AI_Destroy(id));
        EXPECT_TRUE(log.Lines().empty());

        std::string notAvailable = "AI[" + std::to_string(id) + "] not available";
        EXPECT_EQ(-1, AUDIO_AI_SetAttr(id, &a));
        EXPECT_EQ(-1, AUDIO_AI_SetVolume(id, 3));
        EXPECT_EQ(-1, AUDIO_AI_SetEnable(id, ZN_TRUE));
        EXPECT_EQ(3, log.Count(3, notAvailable));
        EXPECT_EQ(3u, log.Lines().size());
    }
}

TEST_F(AiRegistryTest, CreateStoresTheRecordAndLogs) {
    AI_ATTR_S a = FileAiAttr("/nonexistent/in.pcm", true, 2, 320);
    a.s32Volume = 17;
    ASSERT_EQ(0, AUDIO_AI_Create(2, &a));
    EXPECT_TRUE(log.Has(6, "AI[2] create success"));
    ASSERT_NE(nullptr, gs_pAiHandler[2]);
    EXPECT_EQ(2, gs_pAiHandler[2]->s32Id);

    AI_ATTR_S got;
    std::memset(&got, 0xEE, sizeof(got));
    EXPECT_EQ(0, AUDIO_AI_GetAttr(2, &got));
    EXPECT_EQ(0, std::memcmp(&a, &got, sizeof(a)));
    EXPECT_EQ(1, AUDIO_AI_isEnabled(2));
    EXPECT_EQ(1, AUDIO_AI_isInitd(2));
    EXPECT_EQ(0, AUDIO_AI_isOpen(2));
    EXPECT_EQ(2, AUDIO_AI_GetChannelChn(2));
    EXPECT_EQ(1280, AUDIO_AI_GetRecommendReadBufferSize(2));
    EXPECT_EQ(0, AUDIO_AI_GetUnderRunState(2));

    EXPECT_EQ(0, AUDIO_AI_Destroy(2));
    EXPECT_TRUE(log.Has(6, "AI[2] destroy success"));
    EXPECT_EQ(nullptr, gs_pAiHandler[2]);
}

TEST_F(AiRegistryTest, DisabledCreateDoesNotInitialise) {
    AI_ATTR_S a = FileAiAttr("", false);
    ASSERT_EQ(0, AUDIO_AI_Create(0, &a));
    EXPECT_EQ(0, AUDIO_AI_isInitd(0));
    EXPECT_EQ(0, AUDIO_AI_isEnabled(0));
}

TEST_F(AiRegistryTest, SecondCreateOnAUsedIdFailsAndKeepsTheFirst) {
    AI_ATTR_S a = FileAiAttr("", true, 2);
    AI_ATTR_S b = FileAiAttr("", true, 6);
    ASSERT_EQ(0, AUDIO_AI_Create(5, &a));
    AI_DEVICE_S* first = gs_pAiHandler[5];
    EXPECT_EQ(-1, AUDIO_AI_Create(5, &b));
    EXPECT_TRUE(log.Has(3, "AI[5] has been used."));
    EXPECT_EQ(first, gs_pAiHandler[5]);
    EXPECT_EQ(2, AUDIO_AI_GetChannelChn(5));
}

TEST_F(AiRegistryTest, TypesWithoutADeviceClassAreRefused) {
    for (unsigned int type : {1u, 9u, 12u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(type);
        log.Clear();
        AI_ATTR_S a = FileAiAttr("");
        a.eType = static_cast<tagAI_DEV_TYPE_E>(type);
        EXPECT_EQ(-1, AUDIO_AI_Create(1, &a));
        EXPECT_TRUE(log.Has(3, "AI[1] for " + std::to_string(static_cast<int>(type)) + " not support yet."));
        EXPECT_EQ(nullptr, gs_pAiHandler[1]);
    }
}

TEST_F(AiRegistryTest, CreateRefusesIdsOutsideTheTableAndNullRecords) {
    AI_ATTR_S a = FileAiAttr("");
    for (int id : {-1, 8, 1000}) {
        EXPECT_EQ(-1, AUDIO_AI_Create(id, &a));
        EXPECT_TRUE(log.Has(3, "AI[" + std::to_string(id) + "] invalid id, valid ids are 0 to 7."));
    }
    EXPECT_EQ(-1, AUDIO_AI_Create(0, nullptr));
    EXPECT_TRUE(log.Has(3, "AI[0] attr is null."));
    for (AI_DEVICE_S* p : gs_pAiHandler) {
        EXPECT_EQ(nullptr, p);
    }
}

TEST_F(AiRegistryTest, NullPointersAreRefusedWithALogLine) {
    AI_ATTR_S a = FileAiAttr("");
    ASSERT_EQ(0, AUDIO_AI_Create(0, &a));
    unsigned int len = 5;
    unsigned long long ts = 0;
    log.Clear();
    EXPECT_EQ(-1, AUDIO_AI_Read(0, nullptr, 16, len, ts, -1));
    EXPECT_EQ(5u, len);
    EXPECT_TRUE(log.Has(3, "AI[0] read buffer is null"));
    EXPECT_EQ(-1, AUDIO_AI_GetAttr(0, nullptr));
    EXPECT_EQ(-1, AUDIO_AI_SetAttr(0, nullptr));
    EXPECT_EQ(2, log.Count(3, "AI[0] attr is null."));
}

TEST_F(AiRegistryTest, SetEnableAndSetVolumeGoThroughSetCfg) {
    AI_ATTR_S a = FileAiAttr("", false);
    ASSERT_EQ(0, AUDIO_AI_Create(4, &a));
    log.Clear();
    EXPECT_EQ(0, AUDIO_AI_SetEnable(4, ZN_TRUE));
    EXPECT_TRUE(log.Has(6, "AI[4] Enable"));
    // An empty path is a hot update: the flag is stored, nothing re-initialised.
    EXPECT_TRUE(log.Has(6, "AI_DEVICE_S::setCfg, AUDIO_SET_ACTION_E_HOT_UPDATE\n"));
    EXPECT_EQ(1, AUDIO_AI_isEnabled(4));
    EXPECT_EQ(0, AUDIO_AI_isInitd(4));

    log.Clear();
    EXPECT_EQ(0, AUDIO_AI_SetVolume(4, 42));
    AI_ATTR_S got;
    ASSERT_EQ(0, AUDIO_AI_GetAttr(4, &got));
    EXPECT_EQ(42, got.s32Volume);
    for (const auto& m : log.Messages()) {
        EXPECT_EQ(std::string::npos, m.find("Volume")) << m;
    }

    EXPECT_EQ(0, AUDIO_AI_SetEnable(4, static_cast<tagZN_BOOL>(0)));
    EXPECT_TRUE(log.Has(6, "AI[4] Disable"));
    EXPECT_EQ(0, AUDIO_AI_isEnabled(4));
}

TEST_F(AiRegistryTest, RecommendedSizeUsesUnsigned32BitArithmetic) {
    AI_ATTR_S a = FileAiAttr("", false, 8, 0x10000000);
    ASSERT_EQ(0, AUDIO_AI_Create(7, &a));
    // 8 * 2^28 * 2 wraps to 0 in 32 bits.
    EXPECT_EQ(0, AUDIO_AI_GetRecommendReadBufferSize(7));
    AI_ATTR_S b = FileAiAttr("", false, 3, 0x20000001);
    ASSERT_EQ(0, AUDIO_AI_SetAttr(7, &b));
    EXPECT_EQ(static_cast<int>(3u * 0x20000001u * 2u), AUDIO_AI_GetRecommendReadBufferSize(7));
}

}  // namespace

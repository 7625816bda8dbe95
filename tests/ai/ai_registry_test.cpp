// The AI slot table: id handling, class choice by type code, return codes and log lines.
#include <cstring>

#include "ai/ai_file_device.h"
#include "ai_test_util.h"
#include "test_support.h"

namespace {

using audiomw_test::FileAiAttr;
using Lines = std::vector<audiomw_test::Logged>;

class AiRegistryTest : public audiomw_test::AudioTest {
  protected:
    void TearDown() override {
        for (int i = 0; i < AUDIO_AI_MAX_NUM; i++) {
            AUDIO_AI_Close(i);
            AUDIO_AI_Destroy(i);
        }
    }
};

TEST_F(AiRegistryTest, UnavailableIdsAndNullPointers) {
    AI_ATTR_S a = FileAiAttr("");
    unsigned char buf[8];
    unsigned int len = 5;
    unsigned long long ts = 0;
    for (int id : {-1, 8, 3, 0x7fffffff}) {
        SCOPED_TRACE(id);
        log.Clear();
        EXPECT_EQ(AUDIO_ERR_UNAVAILABLE, AUDIO_AI_GetAttr(id, &a));
        EXPECT_EQ(AUDIO_ERR_UNAVAILABLE, AUDIO_AI_Open(id));
        EXPECT_EQ(AUDIO_ERR_UNAVAILABLE, AUDIO_AI_Close(id));
        EXPECT_EQ(AUDIO_ERR_UNAVAILABLE, AUDIO_AI_Read(id, buf, sizeof(buf), len, ts, -1));
        EXPECT_EQ(AUDIO_ERR_UNAVAILABLE, AUDIO_AI_GetUnderRunState(id));
        EXPECT_EQ(0, AUDIO_AI_isEnabled(id) + AUDIO_AI_isInitd(id) + AUDIO_AI_isOpen(id));
        EXPECT_EQ(-1, AUDIO_AI_GetChannelChn(id));
        EXPECT_EQ(-1, AUDIO_AI_GetRecommendReadBufferSize(id));
        EXPECT_EQ(0, AUDIO_AI_Destroy(id));
        EXPECT_TRUE(log.Lines().empty());
        std::string notAvailable = "AI[" + std::to_string(id) + "] not available";
        EXPECT_EQ(-1, AUDIO_AI_SetAttr(id, &a));
        EXPECT_EQ(-1, AUDIO_AI_SetVolume(id, 3));
        EXPECT_EQ(-1, AUDIO_AI_SetEnable(id, ZN_TRUE));
        EXPECT_EQ(Lines({{3, "AUDIO_AI_SetAttr", notAvailable},
                         {3, "AUDIO_AI_SetVolume", notAvailable},
                         {3, "AUDIO_AI_SetEnable", notAvailable}}),
                  log.All());
    }
    ASSERT_EQ(0, AUDIO_AI_Create(0, &a));
    log.Clear();
    EXPECT_EQ(-1, AUDIO_AI_Read(0, nullptr, 16, len, ts, -1));
    EXPECT_EQ(5u, len);
    EXPECT_EQ(-1, AUDIO_AI_GetAttr(0, nullptr));
    EXPECT_EQ(-1, AUDIO_AI_SetAttr(0, nullptr));
    EXPECT_EQ(Lines({{3, "AUDIO_AI_Read", "AI[0] read buffer is null"},
                     {3, "AUDIO_AI_GetAttr", "AI[0] attr is null."},
                     {3, "AUDIO_AI_SetAttr", "AI[0] attr is null."}}),
              log.All());
}

// The whole record is stored; a disabled create initialises nothing.
TEST_F(AiRegistryTest, CreateStoresTheRecordAndDestroyEmptiesTheSlot) {
    AI_ATTR_S a = FileAiAttr("/nonexistent/in.pcm", false, 2, 320);
    a.s32Volume = 17;
    ASSERT_EQ(0, AUDIO_AI_Create(2, &a));
    AI_ATTR_S got;
    std::memset(&got, 0xEE, sizeof(got));
    EXPECT_EQ(0, AUDIO_AI_GetAttr(2, &got));
    EXPECT_EQ(0, std::memcmp(&a, &got, sizeof(a)));
    EXPECT_EQ(0, AUDIO_AI_isInitd(2) + AUDIO_AI_isEnabled(2) + AUDIO_AI_GetUnderRunState(2));
    EXPECT_EQ(1280, AUDIO_AI_GetRecommendReadBufferSize(2));
    EXPECT_EQ(0, AUDIO_AI_Destroy(2));
    EXPECT_EQ(nullptr, gs_pAiHandler[2]);
    EXPECT_EQ(Lines({{6, "AUDIO_AI_Create", "AI[2] create success"},
                     {6, "AUDIO_AI_Destroy", "AI[2] destroy success"}}),
              log.All());
}

TEST_F(AiRegistryTest, CreateRefusalsLeaveTheSlotAsItWas) {
    AI_ATTR_S first = FileAiAttr("", true, 2);
    ASSERT_EQ(0, AUDIO_AI_Create(5, &first));
    AI_DEVICE_S* kept = gs_pAiHandler[5];
    const struct {
        int id;
        unsigned int type;  // 1, 9, 12: codes without a device class
        bool nullAttr;
        std::string line;
    } cases[] = {
        {-1, 2, false, "AI[-1] invalid id, valid ids are 0 to 7."},
        {8, 2, false, "AI[8] invalid id, valid ids are 0 to 7."},
        {0, 2, true, "AI[0] attr is null."},
        {5, 2, false, "AI[5] has been used."},
        {1, 9, false, "AI[1] for 9 not support yet."},
        {1, 12, false, "AI[1] for 12 not support yet."},
        {1, 0xFFFFFFFFu, false, "AI[1] for -1 not support yet."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        AI_ATTR_S a = FileAiAttr("", true, 6);
        a.eType = static_cast<tagAI_DEV_TYPE_E>(c.type);
        EXPECT_EQ(-1, AUDIO_AI_Create(c.id, c.nullAttr ? nullptr : &a));
        EXPECT_TRUE(log.Has({3, "AUDIO_AI_Create", c.line})) << log.Dump();
    }
    for (int i = 0; i < AUDIO_AI_MAX_NUM; i++) {
        EXPECT_EQ(i == 5 ? kept : nullptr, gs_pAiHandler[i]);
    }
    EXPECT_EQ(2, AUDIO_AI_GetChannelChn(5));
}

TEST_F(AiRegistryTest, SetEnableAndSetVolumeGoThroughSetCfg) {
    AI_ATTR_S a = FileAiAttr("", false);
    ASSERT_EQ(0, AUDIO_AI_Create(4, &a));
    log.Clear();
    EXPECT_EQ(0, AUDIO_AI_SetEnable(4, ZN_TRUE));
    // An empty path is a hot update: the flag is stored, nothing re-initialised.
    log.ExpectInOrder({{6, "AUDIO_AI_SetEnable", "AI[4] Enable"},
                       {6, "setCfg", "AI_DEVICE_S::setCfg, AUDIO_SET_ACTION_E_HOT_UPDATE\n"}});
    EXPECT_EQ(1, AUDIO_AI_isEnabled(4));
    EXPECT_EQ(0, AUDIO_AI_isInitd(4));
    log.Clear();
    EXPECT_EQ(0, AUDIO_AI_SetVolume(4, 42));
    AI_ATTR_S got;
    ASSERT_EQ(0, AUDIO_AI_GetAttr(4, &got));
    EXPECT_EQ(42, got.s32Volume);
    EXPECT_EQ(Lines({{6, "calActionOnSetCfg", "acFilePath:, len:0, access:-1\n"},
                     {6, "setCfg", "AI_DEVICE_S::setCfg, AUDIO_SET_ACTION_E_HOT_UPDATE\n"}}),
              log.All())
        << "no line of its own";
    EXPECT_EQ(0, AUDIO_AI_SetEnable(4, static_cast<tagZN_BOOL>(0)));
    EXPECT_TRUE(log.Has({6, "AUDIO_AI_SetEnable", "AI[4] Disable"}));
    EXPECT_EQ(0, AUDIO_AI_isEnabled(4));
}

}  // namespace

// AUDIO_ASTREAM_SwitchToConfig: what the slot, the AIs and the AO hold after a switch
// that succeeds and after each step that can fail.
#include <filesystem>

#include "config_app.h"
#include "config_test_util.h"

namespace {

using config_test::App;
using config_test::Logged;

constexpr const char* kOp = "AUDIO_ASTREAM_SwitchToConfig";

// Two file AIs and an AO on virtual card 10, all 160 frames per period; AI 4 is in the
// file but never created. The stream configurations adjust frame sizes to 80, so each
// adjustment that was applied shows in the devices' records.
std::string Config(const std::string& dir) {
    const std::string adj0 = "<AiAdj Id='0' FrameSize='80' SampleRate='16KHZ'/>";
    const std::string adj1 = "<AiAdj Id='1' FrameSize='80' SampleRate='16KHZ'/>";
    const std::string adj4 = "<AiAdj Id='4' FrameSize='80' SampleRate='16KHZ'/>";
    const std::string aoAdj = "<AoAdj Id='0' FrameSize='80' SampleRate='16KHZ'/>";
    const std::string out = "<Node Type='Output' AoId='0' ChnOffset='0' ChnCnt='2'/>";
    auto file = [&](int id, const std::string& name) {
        return "<AI Id='" + std::to_string(id) + "' Name='" + name + "'><Device Type='Afile' FilePath='" +
               dir + "/" + name +
               ".pcm'/><SampleRate Cur='16KHZ'/><Channel Cur='2'/><FrameSize Cur='160'/></AI>";
    };
    return "<Audio>" + file(0, "in0") + file(1, "in1") + file(4, "in4") +
           "<AO Id='0' Name='out'><Device Type='Alsa' CardId='10' DevId='0'/><SampleRate Cur='16KHZ'/>"
           "<Channel Cur='2'/><FrameSize Cur='160'/></AO>"
           "<ASTREAM Id='0' Name='plain' AiId='0' Worker='1'>" +
           out + "</ASTREAM><ASTREAM Id='1' Name='adjusted' AiId='0' Worker='2'>" + adj0 + adj1 + aoAdj +
           out + "</ASTREAM><ASTREAM Id='2' Name='firstAiFails' AiId='0' Worker='1'>" + adj4 + adj0 + aoAdj +
           out + "</ASTREAM><ASTREAM Id='3' Name='secondAiFails' AiId='0' Worker='1'>" + adj0 + adj4 + adj1 +
           aoAdj + out + "</ASTREAM><ASTREAM Id='4' Name='createFails' AiId='4' Worker='1'>" + adj0 + adj1 +
           aoAdj + out +
           "</ASTREAM><ASTREAM Id='5' Name='startFails' AiId='0' Worker='1'><AiAdj Id='0' FilePath='" + dir +
           "/dir' SampleRate='16KHZ'/>" + aoAdj + out + "</ASTREAM></Audio>";
}

struct SwitchRow {
    const char* title;
    const char* before;  // configuration running in slot 0 first, or null for an empty slot
    const char* target;
    int result;
    int ready, running;                  // slot 0 afterwards
    int ai0Frames, ai1Frames, aoFrames;  // frame sizes: 80 where the adjustment was applied
    std::vector<Logged> logged;          // in this order
    std::vector<std::string> notLogged;  // switch lines that must not appear
};

void PrintTo(const SwitchRow& r, std::ostream* os) {
    *os << r.title;
}

const std::vector<SwitchRow> kRows = {
    {"into an empty slot",
     nullptr,
     "adjusted",
     0,
     1,
     1,
     80,
     80,
     80,
     {{6, kOp, "ASTREAM[0] init ok"},
      {6, kOp, "ASTREAM[0] start"},
      {6, kOp, "Switch ASTREAM[0] for Config[adjusted] success"}},
     {"ASTREAM[0] destroyed"}},
    {"over a running stream",
     "plain",
     "adjusted",
     0,
     1,
     1,
     80,
     80,
     80,
     {{6, "AUDIO_ASTREAM_Stop", "ASTREAM[0] stopped"},
      {6, kOp, "ASTREAM[0] destroyed"},
      {6, kOp, "ASTREAM[0] init ok"},
      {6, kOp, "ASTREAM[0] start"},
      {6, kOp, "Switch ASTREAM[0] for Config[adjusted] success"}},
     {}},
    {"the first AI update fails: slot empty, no AI and no AO updated",
     "plain",
     "firstAiFails",
     -1,
     0,
     0,
     160,
     160,
     160,
     {{6, kOp, "ASTREAM[0] destroyed"},
      {3, "AUDIO_AI_SetAttr", "AI[4] not available"},
      {3, kOp, "Update AI[4] failed"}},
     {"ASTREAM[0] init ok", "ASTREAM[0] start"}},
    {"a later AI update fails: the AIs before it are updated, the rest and the AO are not",
     "plain",
     "secondAiFails",
     -1,
     0,
     0,
     80,
     160,
     160,
     {{3, kOp, "Update AI[4] failed"}},
     {"ASTREAM[0] init ok"}},
    {"create fails: slot empty, every adjustment applied",
     "plain",
     "createFails",
     -1,
     0,
     0,
     80,
     80,
     80,
     {{6, kOp, "ASTREAM[0] destroyed"}, {3, "AUDIO_ASTREAM_Create", "ASTREAM[0] malloc failed"}},
     {"ASTREAM[0] init ok", "ASTREAM[0] start"}},
    {"start fails: the slot holds the new stream, created and not running",
     "plain",
     "startFails",
     -1,
     1,
     0,
     160,
     160,
     80,
     {{6, kOp, "ASTREAM[0] init ok"}},
     {"ASTREAM[0] start"}},
};

class SwitchTable : public config_test::ConfigTest, public ::testing::WithParamInterface<SwitchRow> {
  protected:
    void SetUp() override {
        vcard_reset();
        config_test::AddPlaybackCard(10);
        for (const char* name : {"in0", "in1", "in4"}) {
            audiomw_test::WriteFileBytes(root.Path(std::string("/") + name + ".pcm"),
                                         audiomw_test::MakePattern(2, 1600));
        }
        std::filesystem::create_directory(root.Path("/dir"));
        ASSERT_LT(root.Path("/dir").size(), 40u) << "scratch root too long for a file AI path";
        WriteConfig(Config(root.Dir()));
    }
    void TearDown() override {
        App::Stop();
        vcard_reset();
    }
    static int AiFrames(int id) {
        AI_ATTR_S a{};
        return AUDIO_AI_GetAttr(id, &a) == 0 ? a.s32FrameLen : -1;
    }
    static int AoFrames(int id) {
        AO_ATTR_S a{};
        return AUDIO_AO_GetAttr(id, &a) == 0 ? a.s32FrameSize : -1;
    }
};

TEST_P(SwitchTable, SlotAndDevicesAfterTheSwitch) {
    const SwitchRow& row = GetParam();
    App app;
    ASSERT_TRUE(app.Start({4}));
    if (row.before != nullptr) {
        ASSERT_EQ(0, AUDIO_ASTREAM_SwitchToConfig(0, *app.Stream(row.before)));
        ASSERT_EQ(1, AUDIO_ASTREAM_isRunning(0));
    }
    log.Clear();
    tagASTREAM_XML_CFG_S* cfg = app.Stream(row.target);
    ASSERT_NE(cfg, nullptr);
    const size_t aiAdj = cfg->lstAiAdj.size(), nodes = cfg->stAttr.lstNodeAttr.size();
    EXPECT_EQ(row.result, AUDIO_ASTREAM_SwitchToConfig(0, *cfg)) << row.title;
    EXPECT_EQ(row.ready, AUDIO_ASTREAM_isReady(0));
    EXPECT_EQ(row.running, AUDIO_ASTREAM_isRunning(0));
    EXPECT_EQ(row.ai0Frames, AiFrames(0));
    EXPECT_EQ(row.ai1Frames, AiFrames(1));
    EXPECT_EQ(row.aoFrames, AoFrames(0));
    config_test::ExpectInOrder(log, row.logged);
    for (const std::string& m : row.notLogged) {
        EXPECT_EQ(0, log.Count({UTIL_LOG_INFO, kOp, m})) << m;
    }
    // The configuration is only read.
    EXPECT_EQ(aiAdj, cfg->lstAiAdj.size());
    EXPECT_EQ(nodes, cfg->stAttr.lstNodeAttr.size());
}

INSTANTIATE_TEST_SUITE_P(Config, SwitchTable, ::testing::ValuesIn(kRows),
                         [](const ::testing::TestParamInfo<SwitchRow>& i) {
                             return "row" + std::to_string(i.index);
                         });

TEST_F(SwitchTable, AfterAFailedStartTheNextSwitchTakesTheSlotOver) {
    App app;
    ASSERT_TRUE(app.Start({4}));
    ASSERT_EQ(-1, AUDIO_ASTREAM_SwitchToConfig(0, *app.Stream("startFails")));
    ASSERT_EQ(1, AUDIO_ASTREAM_isReady(0));
    log.Clear();
    // The failed configuration pointed AI 0 at a directory; the next one points it back.
    tagASTREAM_XML_CFG_S repair = *app.Stream("plain");
    tagAI_ADJ_CFG_S adj{};
    adj.s32AiId = 0;
    adj.stAttr = app.ai.front().stAttr;
    repair.lstAiAdj.push_back(adj);
    EXPECT_EQ(0, AUDIO_ASTREAM_SwitchToConfig(0, repair));
    EXPECT_EQ(1, AUDIO_ASTREAM_isRunning(0));
    log.ExpectInOrder(
        {{6, kOp, "ASTREAM[0] destroyed"}, {6, kOp, "Switch ASTREAM[0] for Config[plain] success"}});
}

}  // namespace

// AUDIO_ASTREAM_SwitchToConfig: what the slot, the AIs and the AO hold after a switch
// that succeeds and after each step that can fail, and the bytes played on both sides
// of a switch.
#include <filesystem>

#include "config_test_util.h"

namespace {

using namespace config_test;
using Bytes = std::vector<uint8_t>;
constexpr const char* kOp = "AUDIO_ASTREAM_SwitchToConfig";

// Two file AIs, a stereo AO on card 10 and a mono one on card 11, 160 frames per period.
// Streams 0-6 adjust frame sizes to 80, so each adjustment applied shows in the records
// (AI 4 is destroyed for them); "first" and "second" play a.pcm and b.pcm.
std::string Config(const std::string& dir) {
    auto adj = [](const char* tag, int id) {
        return std::string("<") + tag + " Id='" + std::to_string(id) +
               "' FrameSize='80' SampleRate='16KHZ'/>";
    };
    auto dev = [](const char* tag, int id, const std::string& device, int chn) {
        return std::string("<") + tag + " Id='" + std::to_string(id) + "' Name='d'><Device " + device +
               "/><SampleRate Cur='16KHZ'/><Channel Cur='" + std::to_string(chn) +
               "'/><FrameSize Cur='160'/></" + tag + ">";
    };
    auto file = [&](int id) {
        return dev("AI", id, "Type='Afile' FilePath='" + dir + "/in" + std::to_string(id) + ".pcm'", 2);
    };
    auto stream = [](int id, const char* name, int ai, const std::string& body) {
        return "<ASTREAM Id='" + std::to_string(id) + "' Name='" + name + "' AiId='" + std::to_string(ai) +
               "' Worker='" + (id == 1 ? "2" : "1") + "'>" + body + "</ASTREAM>";
    };
    auto path = [&](const std::string& f) {
        return "<AiAdj Id='0' FilePath='" + dir + f + "' SampleRate='16KHZ'/>";
    };
    const std::string ao = adj("AoAdj", 0), out = "<Node Type='Output' AoId='0' ChnOffset='0' ChnCnt='2'/>";
    return "<Audio>" + file(0) + file(1) + file(4) + dev("AO", 0, "Type='Alsa' CardId='10'", 2) +
           dev("AO", 1, "Type='Alsa' CardId='11'", 1) + stream(0, "plain", 0, out) +
           stream(1, "adjusted", 0, adj("AiAdj", 0) + adj("AiAdj", 1) + ao + out) +
           stream(2, "firstAiFails", 0, adj("AiAdj", 4) + adj("AiAdj", 0) + ao + out) +
           stream(3, "secondAiFails", 0, adj("AiAdj", 0) + adj("AiAdj", 4) + adj("AiAdj", 1) + ao + out) +
           stream(4, "createFails", 4, adj("AiAdj", 0) + adj("AiAdj", 1) + ao + out) +
           stream(5, "startFails", 0, path("/dir") + ao + out) +
           stream(6, "repair", 0, path("/in0.pcm") + out) + stream(7, "first", 0, path("/a.pcm") + out) +
           stream(8, "second", 0,
                  path("/b.pcm") +
                      "<Node Type='Split' ChnOffset='0' ChnCntA='1' ChnCntB='1'/>"
                      "<Node Type='Output' AoId='1' ChnOffset='1' ChnCnt='1'/>") +
           "</Audio>";
}

class SwitchTest : public ConfigTest {
  protected:
    void SetUp() override {
        vcard_reset();
        AddPlaybackCard(10);
        AddPlaybackCard(11);
        for (const char* name : {"/in0.pcm", "/in1.pcm", "/in4.pcm"}) {
            audiomw_test::WriteFileBytes(root.Path(name), audiomw_test::MakePattern(2, 1600));
        }
        std::filesystem::create_directory(root.Path("/dir"));
        ASSERT_LT(root.Path("/dir").size(), 40u) << "scratch root too long for a file AI path";
        WriteConfig(Config(root.Dir()));
    }
    void TearDown() override {
        App::Stop();
        vcard_reset();
    }
};

// Frame sizes of AI 0, AI 1 and AO 0 (-1 for a slot without a device).
std::vector<int> Frames() {
    AI_ATTR_S ai{};
    AO_ATTR_S ao{};
    std::vector<int> out;
    for (int id : {0, 1}) {
        out.push_back(AUDIO_AI_GetAttr(id, &ai) == 0 ? ai.s32FrameLen : -1);
    }
    out.push_back(AUDIO_AO_GetAttr(0, &ao) == 0 ? ao.s32FrameSize : -1);
    return out;
}

TEST_F(SwitchTest, SlotAndDevicesAfterTheSwitch) {
    const struct {
        const char* title;
        const char* before;  // configuration running in slot 0 first, or null for an empty slot
        const char* target;
        int result, ready, running;          // slot 0 afterwards
        std::vector<int> frames;             // of AI 0, AI 1, AO 0: 80 where the adjustment was applied
        std::vector<Logged> logged;          // in this order
        std::vector<std::string> notLogged;  // switch lines that must not appear
    } rows[] = {
        // clang-format off
        {"into an empty slot", nullptr, "adjusted", 0, 1, 1, {80, 80, 80},
         {{6, kOp, "ASTREAM[0] init ok"}, {6, kOp, "ASTREAM[0] start"}, {6, kOp, "Switch ASTREAM[0] for Config[adjusted] success"}},
         {"ASTREAM[0] destroyed"}},
        {"over a running stream", "plain", "adjusted", 0, 1, 1, {80, 80, 80},
         {{6, "AUDIO_ASTREAM_Stop", "ASTREAM[0] stopped"}, {6, kOp, "ASTREAM[0] destroyed"}, {6, kOp, "ASTREAM[0] init ok"},
          {6, kOp, "ASTREAM[0] start"}, {6, kOp, "Switch ASTREAM[0] for Config[adjusted] success"}}, {}},
        {"the first AI update fails: slot empty, no AI and no AO updated", "plain", "firstAiFails", -1, 0, 0, {160, 160, 160},
         {{6, kOp, "ASTREAM[0] destroyed"}, {3, "AUDIO_AI_SetAttr", "AI[4] not available"}, {3, kOp, "Update AI[4] failed"}},
         {"ASTREAM[0] init ok", "ASTREAM[0] start"}},
        {"a later AI update fails: the AIs before it are updated, the rest and the AO are not", "plain", "secondAiFails",
         -1, 0, 0, {80, 160, 160}, {{3, kOp, "Update AI[4] failed"}}, {"ASTREAM[0] init ok"}},
        {"create fails: slot empty, every adjustment applied", "plain", "createFails", -1, 0, 0, {80, 80, 80},
         {{6, kOp, "ASTREAM[0] destroyed"}, {3, "AUDIO_ASTREAM_Create", "ASTREAM[0] malloc failed"}},
         {"ASTREAM[0] init ok", "ASTREAM[0] start"}},
        {"start fails: the slot holds the new stream, created and not running", "plain", "startFails", -1, 1, 0,
         {160, 160, 80}, {{6, kOp, "ASTREAM[0] init ok"}}, {"ASTREAM[0] start"}},
        {"after a failed start the next switch takes the slot over", "startFails", "repair", 0, 1, 1, {160, 160, 80},
         {{6, kOp, "ASTREAM[0] destroyed"}, {6, kOp, "Switch ASTREAM[0] for Config[repair] success"}}, {}},
        // clang-format on
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.title);
        App::Stop();
        App app;
        ASSERT_TRUE(app.Start());
        AUDIO_AI_Destroy(4);
        if (row.before != nullptr) {  // running, or only created when its start fails
            AUDIO_ASTREAM_SwitchToConfig(0, *app.Stream(row.before));
            ASSERT_EQ(1, AUDIO_ASTREAM_isReady(0));
            ASSERT_EQ(row.before == std::string("plain"), AUDIO_ASTREAM_isRunning(0));
        }
        log.Clear();
        tagASTREAM_XML_CFG_S* cfg = app.Stream(row.target);
        ASSERT_NE(cfg, nullptr);
        const size_t aiAdj = cfg->lstAiAdj.size(), nodes = cfg->stAttr.lstNodeAttr.size();
        EXPECT_EQ(row.result, AUDIO_ASTREAM_SwitchToConfig(0, *cfg));
        EXPECT_EQ(row.ready, AUDIO_ASTREAM_isReady(0));
        EXPECT_EQ(row.running, AUDIO_ASTREAM_isRunning(0));
        EXPECT_EQ(row.frames, Frames());
        for (int i = 0, from = 0; i < static_cast<int>(row.logged.size()) && from >= 0; i++) {
            from = log.IndexOf(row.logged[i], from);
            EXPECT_GE(from, 0) << "missing (in order): " << row.logged[i] << "\n" << log.Dump();
        }
        for (const std::string& m : row.notLogged) {
            EXPECT_EQ(0, log.Count({UTIL_LOG_INFO, kOp, m})) << m;
        }
        EXPECT_EQ(aiAdj, cfg->lstAiAdj.size()) << "the configuration is only read";
        EXPECT_EQ(nodes, cfg->stAttr.lstNodeAttr.size());
    }
}

// A sink holds 48 periods of lead filler, then `content`, then whole periods of filler.
void ExpectPlayed(const Bytes& sink, const Bytes& content, size_t period, const char* what) {
    Bytes want(48 * period, 0xA5);
    want.insert(want.end(), content.begin(), content.end());
    ASSERT_GE(sink.size(), want.size()) << what;
    EXPECT_TRUE(std::equal(want.begin(), want.end(), sink.begin())) << what << ": lead or content differs";
    EXPECT_TRUE(std::all_of(sink.begin() + want.size(), sink.end(), [](uint8_t b) { return b == 0xA5; }))
        << what << ": something other than filler after the content";
    EXPECT_EQ(0u, sink.size() % period) << what << ": a torn period";
}

// Stream 0 switched to "first", then to "second" while it runs: AO 0 played a.pcm and
// nothing after the switch, AO 1 the right channel of b.pcm.
TEST_F(SwitchTest, SwitchWhileRunningMovesTheStreamToTheSecondConfiguration) {
    const Bytes a = audiomw_test::MakePattern(2, 160 * 20, 11),
                b = audiomw_test::MakePattern(2, 160 * 20, 22);
    audiomw_test::WriteFileBytes(root.Path("/a.pcm"), a);
    audiomw_test::WriteFileBytes(root.Path("/b.pcm"), b);
    App app;
    ASSERT_TRUE(app.Start());
    ASSERT_EQ(0, AUDIO_ASTREAM_SwitchToConfig(0, *app.Stream("first")));
    ASSERT_TRUE(audiomw_test::WaitFor([&] { return SinkSize(10) >= static_cast<long>(48 * 640 + a.size()); }))
        << "the first configuration did not play its file";
    ASSERT_EQ(1, AUDIO_ASTREAM_isRunning(0));
    ASSERT_EQ(0, AUDIO_ASTREAM_SwitchToConfig(0, *app.Stream("second")));
    const Bytes first = SinkBytes(10);
    ASSERT_TRUE(audiomw_test::WaitFor([&] {
        return SinkSize(11) >= static_cast<long>(48 * 320 + b.size() / 2);
    })) << "the second configuration did not play its file";
    App::Stop();
    ExpectPlayed(first, a, 640, "AO 0 before the switch");
    EXPECT_EQ(first.size(), SinkBytes(10).size()) << "AO 0 was written after the switch";
    std::vector<int16_t> right, stereo = audiomw_test::ToSamples(b);
    for (size_t i = 1; i < stereo.size(); i += 2) {
        right.push_back(stereo[i]);
    }
    ExpectPlayed(SinkBytes(11), audiomw_test::ToBytes(right), 320, "AO 1 after the switch");
}

}  // namespace

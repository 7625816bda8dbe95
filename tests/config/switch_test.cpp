// AUDIO_ASTREAM_SwitchToConfig: what the slot, the AIs and the AO hold after a switch
// that succeeds and after each step that can fail, and the bytes played on both sides
// of a switch.
#include <filesystem>

#include "config_test_util.h"

namespace {

using namespace config_test;
using Bytes = std::vector<uint8_t>;
constexpr const char* kOp = "AUDIO_ASTREAM_SwitchToConfig";

// File AIs 0, 1 and 4 and ALSA AI 2 on capture card 12; a stereo AO 0 on card 10 and a
// mono AO 1 on card 11; 160 frames per period. Streams 1-6 adjust frame sizes to 80, so
// each adjustment applied shows in the records; "first" plays AI 2, "second" b.pcm.
std::string Config(const std::string& dir) {
    auto adj = [](const char* tag, int id) {
        return std::string("<") + tag + " Id='" + std::to_string(id) +
               "' FrameSize='80' SampleRate='16KHZ'/>";
    };
    auto file = [&](int id) {
        return Section("AI", id, "Type='Afile' FilePath='" + dir + "/in" + std::to_string(id) + ".pcm'", 2,
                       160);
    };
    auto path = [&](const std::string& f) {
        return "<AiAdj Id='0' FilePath='" + dir + f + "' SampleRate='16KHZ'/>";
    };
    const std::string ao = adj("AoAdj", 0), out = "<Node Type='Output' AoId='0' ChnOffset='0' ChnCnt='2'/>";
    return "<Audio>" + file(0) + file(1) + file(4) + Section("AI", 2, "Type='Alsa' CardId='12'", 2, 160) +
           Section("AO", 0, "Type='Alsa' CardId='10'", 2, 160) +
           Section("AO", 1, "Type='Alsa' CardId='11'", 1, 160) + Stream(0, "plain", 0, 1, out) +
           Stream(1, "adjusted", 0, 2, adj("AiAdj", 0) + adj("AiAdj", 1) + ao + out) +
           Stream(2, "firstAiFails", 0, 1, adj("AiAdj", 4) + adj("AiAdj", 0) + ao + out) +
           Stream(3, "secondAiFails", 0, 1, adj("AiAdj", 0) + adj("AiAdj", 4) + adj("AiAdj", 1) + ao + out) +
           Stream(4, "createFails", 4, 1, adj("AiAdj", 0) + adj("AiAdj", 1) + ao + out) +
           Stream(5, "startFails", 0, 1, path("/dir") + ao + out) +
           Stream(6, "aoFails", 0, 1, adj("AiAdj", 0) + adj("AoAdj", 1) + ao + out) +
           Stream(7, "repair", 0, 1, path("/in0.pcm") + out) + Stream(8, "first", 2, 1, out) +
           Stream(9, "second", 0, 1,
                  path("/b.pcm") +
                      "<Node Type='Split' ChnOffset='0' ChnCntA='1' ChnCntB='1'/>"
                      "<Node Type='Output' AoId='1' ChnOffset='1' ChnCnt='1'/>") +
           "</Audio>";
}

class SwitchTest : public ConfigTest {
  protected:
    void SetUp() override {
        vcard_reset();
        AddCards(
            "pcm card=10 dir=playback sink=memory\npcm card=11 dir=playback sink=memory\n"
            "pcm card=12 dir=capture channels=2 rates=16000 source=pattern clock=realtime");
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

// Each row starts from a fresh application whose AI 4 and AO 1 are destroyed.
TEST_F(SwitchTest, SlotAndDevicesAfterTheSwitch) {
    const Logged destroyed{6, kOp, "ASTREAM[0] destroyed"}, initOk{6, kOp, "ASTREAM[0] init ok"},
        start{6, kOp, "ASTREAM[0] start"}, ai4{3, "AUDIO_AI_SetAttr", "AI[4] not available"};
    auto success = [](const std::string& name) -> Logged {
        return {6, kOp, "Switch ASTREAM[0] for Config[" + name + "] success"};
    };
    const struct {
        const char* title;
        const char* before;  // configuration running in slot 0 first, or null for an empty slot
        const char* target;
        int result, ready, running;  // slot 0 afterwards
        std::vector<int> frames;     // of AI 0, AI 1, AO 0: 80 where the adjustment was applied
        std::vector<Logged> logged;  // exactly, with every warning and error
    } rows[] = {
        // clang-format off
        {"into an empty slot", nullptr, "adjusted", 0, 1, 1, {80, 80, 80}, {initOk, start, success("adjusted")}},
        {"over a running stream", "plain", "adjusted", 0, 1, 1, {80, 80, 80},
         {{6, "AUDIO_ASTREAM_Stop", "ASTREAM[0] stopped"}, destroyed, initOk, start, success("adjusted")}},
        {"the first AI update fails: slot empty, no AI and no AO updated", "plain", "firstAiFails", -1, 0, 0,
         {160, 160, 160}, {destroyed, ai4, {3, kOp, "Update AI[4] failed"}}},
        {"a later AI update fails: the AIs before it are updated, the rest and the AO are not", "plain",
         "secondAiFails", -1, 0, 0, {80, 160, 160}, {destroyed, ai4, {3, kOp, "Update AI[4] failed"}}},
        {"create fails: slot empty, every adjustment applied", "plain", "createFails", -1, 0, 0, {80, 80, 80},
         {destroyed, {3, "AUDIO_ASTREAM_Create", "ASTREAM[0] malloc failed"}}},
        {"start fails: the slot holds the new stream, created and not running", "plain", "startFails", -1, 1, 0,
         {160, 160, 80}, {destroyed, initOk, {4, "open", "open failed, file:" + root.Path("/dir") + "\n"},
                          {3, "AUDIO_ASTREAM_Start", "ASTREAM[0] open AI[0] failed"}}},
        {"an AO update fails: passed over, the next AO updated, the stream runs", "plain", "aoFails", 0, 1, 1,
         {80, 160, 80}, {destroyed, {3, "AUDIO_AO_SetAttr", "AO[1] not available"}, initOk, start, success("aoFails")}},
        {"after a failed start the next switch takes the slot over", "startFails", "repair", 0, 1, 1, {160, 160, 80},
         {destroyed, initOk, start, success("repair")}},
        // clang-format on
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.title);
        App::Stop();
        App app;
        ASSERT_TRUE(app.Start());
        AUDIO_AI_Destroy(4);
        AUDIO_AO_Destroy(1);
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
        ExpectLines(log, row.logged, kOp);
        EXPECT_EQ(aiAdj, cfg->lstAiAdj.size()) << "the configuration is only read";
        EXPECT_EQ(nodes, cfg->stAttr.lstNodeAttr.size());
    }
}

// A sink holds `lead` periods of file filler, then `content`, then whole periods of filler.
void ExpectPlayed(const Bytes& sink, size_t lead, const Bytes& content, size_t period, const char* what) {
    Bytes want(lead * period, 0xA5);
    want.insert(want.end(), content.begin(), content.end());
    ASSERT_GE(sink.size(), want.size()) << what;
    const auto diff = std::mismatch(want.begin(), want.end(), sink.begin());
    EXPECT_EQ(want.end(), diff.first) << what << ": differs at byte " << (diff.first - want.begin());
    EXPECT_TRUE(std::all_of(sink.begin() + want.size(), sink.end(), [](uint8_t b) { return b == 0xA5; }))
        << what << ": something other than filler after the content";
    EXPECT_EQ(0u, sink.size() % period) << what << ": a torn period";
}

// Stream 0 runs "first" (the ALSA AI's pattern to AO 0) and is switched to "second"
// (b.pcm's right channel to AO 1) while it runs: AO 0 holds the pattern from the card's
// first frame on and nothing after the switch, AO 1 the right channel of b.pcm.
TEST_F(SwitchTest, SwitchWhileRunningMovesTheStreamToTheSecondConfiguration) {
    const Bytes b = audiomw_test::MakePattern(2, 160 * 20, 22);
    audiomw_test::WriteFileBytes(root.Path("/b.pcm"), b);
    App app;
    ASSERT_TRUE(app.Start());
    ASSERT_EQ(0, AUDIO_ASTREAM_SwitchToConfig(0, *app.Stream("first")));
    ASSERT_TRUE(audiomw_test::WaitFor([] { return vcard_memory_size(10, 0) >= 20 * 640; }))
        << "the first configuration did not play the capture card";
    ASSERT_EQ(1, AUDIO_ASTREAM_isRunning(0));
    ASSERT_EQ(0, AUDIO_ASTREAM_SwitchToConfig(0, *app.Stream("second")));
    const Bytes first = SinkBytes(10);
    ASSERT_TRUE(audiomw_test::WaitFor([&] {
        return vcard_memory_size(11, 0) >= static_cast<long>(48 * 320 + b.size() / 2);
    })) << "the second configuration did not play its file";
    App::Stop();
    EXPECT_EQ(first.size(), SinkBytes(10).size()) << "AO 0 was written after the switch";
    std::vector<int16_t> pattern, right, stereo = audiomw_test::ToSamples(b);
    for (unsigned long long i = 0; i < first.size() / 2; i++) {
        pattern.push_back(vcard_pattern_sample(i % 2, i / 2));
    }
    ExpectPlayed(first, 0, audiomw_test::ToBytes(pattern), 640, "AO 0 before the switch");
    for (size_t i = 1; i < stereo.size(); i += 2) {
        right.push_back(stereo[i]);
    }
    ExpectPlayed(SinkBytes(11), 48, audiomw_test::ToBytes(right), 320, "AO 1 after the switch");
}

}  // namespace

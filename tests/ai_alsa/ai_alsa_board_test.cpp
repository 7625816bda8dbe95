// The board's cards on the ALSA capture device: the line-in check and silencing of card
// 1, the line-in and USB recordings, the USB id switch of card 4 with roots that a shell
// would misread, and an ALSA capture through a stream to a playback card.
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "../astream/astream_test_util.h"
#include "ai_capture_util.h"
#include "audio_ext.h"

namespace {

using namespace audiomw_test;

size_t Occurrences(const std::string& text, const std::string& what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
        ++n;
    }
    return n;
}

using AlsaBoardTest = CaptureTest;

// Card 1, 320 frames: from the 101st block on, one report a block while channel 2 is
// high, four in all, made when hits reach 192 of 320; again 100 blocks after a destroy.
// Channels 2 and 3 are silenced while disconnected; odd counts skip all of it.
TEST_F(AlsaBoardTest, LineInCheckAndSilencing) {
    const struct {
        int channels;
        bool connected, zeroed, reports;
    } rows[] = {
        {2, false, false, false}, {4, false, true, true}, {4, true, false, true}, {5, false, false, false}};
    const Logged report{4, "_readFrame", " LineIn capture error. 192-320, 0.600000 \n"};
    root.SetMarker("/var/debuglog");
    for (const auto& row : rows) {
        SCOPED_TRACE(row.channels);
        TearDown();
        LoadCards("pcm card=1 dir=capture channels=1-8 rates=16000");
        ASSERT_EQ(0, vcard_set_source_callback(1, 0, HighChannelTwo, nullptr));
        AI_ATTR_S attr = AlsaAi(1, 0, 16000, row.channels, 320);
        attr.bLineInConnect = row.connected ? ZN_TRUE : ZN_FALSE;
        ASSERT_EQ(0, AUDIO_AI_Create(0, &attr));
        std::vector<int> reportedAt;
        StdoutCapture out;
        for (int round = 0; round < 2; ++round) {
            for (int block = 1; block <= 106; ++block) {
                int before = log.Count(report);
                ReadResult r = ReadBlock(0);
                ASSERT_EQ(0, r.rc);
                reportedAt.insert(reportedAt.end(), log.Count(report) - before, block);
                // Every frame: channels 2 and 3 silenced while unplugged, the others as captured.
                std::vector<int16_t> expected(320u * row.channels);
                for (int f = 0; f < 320; ++f) {
                    for (int c = 0; c < row.channels; ++c) {
                        int16_t capture = c == 2 ? 30000 : vcard_pattern_sample(c, (block - 1) * 320 + f);
                        expected[f * row.channels + c] = row.zeroed && (c == 2 || c == 3) ? 0 : capture;
                    }
                }
                ASSERT_EQ(ToBytes(expected), r.data) << "block " << block;
            }
            AUDIO_AI_SetEnable(0, ZN_FALSE);  // destroy restarts the idle blocks
            AUDIO_AI_SetEnable(0, ZN_TRUE);
        }
        const std::string printed = out.Stop();
        const std::vector<int> want =
            row.reports ? std::vector<int>{101, 102, 103, 104, 101, 102, 103, 104} : std::vector<int>{};
        EXPECT_EQ(want, reportedAt);
        EXPECT_EQ(want.size(), Occurrences(printed, ": LineIn capture error. 192-320, 0.600000 \n"));
        EXPECT_EQ(row.channels % 2 ? 0u : 212u,
                  Occurrences(printed, ": Conn =" + std::to_string(row.connected) + " \n"));
        EXPECT_EQ(Occurrences(printed, "_readFrame-"), Occurrences(printed, "\n"));
    }
}

// A marker starts a new recording of each block as captured (before the line-in
// silencing); removing it closes the file, re-creating it starts an empty one.
TEST_F(AlsaBoardTest, Recordings) {
    const struct {
        int card, channels;
        const char* marker;
        const char* file;  // "" when the card has no recording
    } rows[] = {{1, 2, "/var/recordline", "/var/Line.pcm"},
                {1, 4, "/var/recordline", "/var/Line.pcm"},
                {4, 2, "/var/recorduac", "/var/Uac.pcm"},
                {0, 2, "/var/recorduac", ""}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.card);
        TearDown();
        LoadCards("pcm dir=capture channels=1-8 rates=16000 source=pattern card=" + std::to_string(row.card));
        AI_ATTR_S attr = AlsaAi(row.card, 0, 16000, row.channels, 160);
        ASSERT_EQ(0, AUDIO_AI_Create(0, &attr));
        const Bytes raw = ExpectedCapture(row.channels, 16000, row.channels, 16000, 160, 5), none;
        const size_t block = raw.size() / 5;
        std::filesystem::remove(root.Path("/var/Line.pcm"));
        std::filesystem::remove(root.Path("/var/Uac.pcm"));
        std::vector<Bytes> files;  // after blocks 0, 2 and 4
        StdoutCapture out;
        for (int b = 0; b < 5; ++b) {
            root.SetMarker(row.marker, b != 2 && b != 4);  // on for blocks 0-1, off at 2, on at 3, off at 4
            ASSERT_EQ(0, ReadBlock(0).rc);
            if (b % 2 == 0) {
                files.push_back(ReadFileBytes(root.Path(*row.file ? row.file : "/var/x")));
            }
        }
        EXPECT_EQ(
            (std::vector<Bytes>{none, *row.file ? Bytes(raw.begin(), raw.begin() + 2 * block) : none,
                                *row.file ? Bytes(raw.begin() + 3 * block, raw.begin() + 4 * block) : none}),
            files);
        EXPECT_EQ(*row.file ? 2u : 0u,
                  Occurrences(out.Stop(), "s32FrameLen =160, s32Channel =" + std::to_string(row.channels) +
                                              ",SaveLen =" + std::to_string(block) + " \n"));
        EXPECT_FALSE(FileExists(root.Path("/var/Line.pcm")) && row.card != 1);
        EXPECT_FALSE(FileExists(root.Path("/var/Uac.pcm")) && row.card != 4);
    }
}

// Card 4 reads its USB id through cat: "1377:1500" on device 0 captures from device 1
// and says so in the attributes, which a record naming device 0 then changes again.
// Roots that a shell would split or run, or cat take for options, are quoted: only cat
// runs. They are relative to the scratch directory, where a smuggled command would leave
// its file.
TEST_F(AlsaBoardTest, UsbIdSwitchWithAnyRoot) {
    struct Row {
        std::string root;   // "": the scratch root as installed
        const char* usbid;  // null: no file
    };
    std::vector<Row> rows = {{"", "1377:1500\n"}, {"", "0bda:4014\n"}, {"", nullptr}};
    for (const char* name : {"x'; touch pwned; '", "with space", "$(touch pwned)", "`touch pwned`",
                             "quo\"te&touch pwned|", "new\nline", "--help"}) {
        rows.push_back({name, "1377:1500\n"});
    }
    const std::string cwd = std::filesystem::current_path();
    ASSERT_EQ(0, chdir(root.Dir().c_str()));
    for (const Row& row : rows) {
        SCOPED_TRACE(row.root + " " + (row.usbid ? row.usbid : "no file"));
        TearDown();
        LoadCards("pcm card=4 dir=capture rates=16000\npcm card=4 device=1 dir=capture rates=16000");
        const std::string dir = (row.root.empty() ? root.Dir() : row.root) + "/proc/asound/card4";
        std::filesystem::create_directories(dir);
        std::filesystem::remove(dir + "/usbid");
        if (row.usbid != nullptr) {
            WriteFileBytes(dir + "/usbid", Bytes(row.usbid, row.usbid + std::strlen(row.usbid)));
        }
        if (!row.root.empty()) {
            ASSERT_EQ(0, AUDIO_EXT_SetRootDir(row.root.c_str()));
        }
        const int device = row.usbid != nullptr && std::strcmp(row.usbid, "1377:1500\n") == 0;
        AI_ATTR_S attr = AlsaAi(4, 0, 16000, 2, 160);
        StdoutCapture out;
        ASSERT_EQ(0, AUDIO_AI_Create(0, &attr));
        const std::string printed = out.Stop();
        const std::string said =
            std::string(": card =4,device =0,usdid =") + (row.usbid ? row.usbid : "") + " \n";
        EXPECT_EQ(row.usbid ? 1u : 0u, Occurrences(printed, said));
        EXPECT_TRUE(row.usbid || printed.empty()) << printed;
        AI_ATTR_S got;
        AUDIO_AI_GetAttr(0, &got);
        EXPECT_EQ(device, got.stAlsaDev.s32DevId);
        EXPECT_EQ(1, CaptureCounters(4, device).is_open);
        EXPECT_EQ(device ? AUDIO_SET_ACTION_E_NEED_DESTROY : AUDIO_SET_ACTION_E_NONE,
                  gs_pAiHandler[0]->calActionOnSetCfg(&attr));
        EXPECT_EQ(0, AUDIO_AI_SetAttr(0, &attr));
        EXPECT_EQ(std::make_pair(1, device ? 2ull : 1ull),
                  std::make_pair(CaptureCounters(4, device).is_open, CaptureCounters(4, device).opens));
        EXPECT_FALSE(FileExists("pwned") || FileExists(row.root + "/pwned"));
    }
    ASSERT_EQ(0, chdir(cwd.c_str()));
}

class AlsaStreamTest : public CaptureTest {
  protected:
    void TearDown() override {
        AUDIO_ASTREAM_Stop(0);
        AUDIO_ASTREAM_Destroy(0);
        AUDIO_AO_SetEnable(0, ZN_FALSE);
        AUDIO_AO_Destroy(0);
        CaptureTest::TearDown();
    }
};

// A stream from an ALSA AI on a card that lacks the requested rate, through a split node to
// an output node: the playback card holds channel 1 of the resampled capture, exactly.
TEST_F(AlsaStreamTest, ResampledCaptureReachesThePlaybackCardExactly) {
    LoadCards(
        "pcm card=0 dir=capture channels=2 rates=48000 source=pattern\n"
        "pcm card=10 dir=playback channels=1 rates=16000 sink=memory");
    AI_ATTR_S ai = AlsaAi(0, 0, 16000, 2, 160, false);
    ASSERT_EQ(0, AUDIO_AI_Create(0, &ai));
    AO_ATTR_S ao = AlsaAoAttr(10, 0, 16000, 1, 160);
    ASSERT_EQ(0, AUDIO_AO_Create(0, &ao));  // the stream enables it
    ASTREAM_NODE_ATTR_S output = astream_test::NodeAttr(ASTREAM_NODE_TYPE_E_OUTPUT);
    output.unAttr.stOutput = {0, 1, 1, -1, ZN_FALSE, -1};
    ASTREAM_ATTR_S stream = astream_test::StreamAttr(0, 1, {astream_test::SplitAttr(0, 1, 1), output});
    ASSERT_EQ(0, AUDIO_ASTREAM_Create(0, &stream));
    ASSERT_EQ(0, AUDIO_ASTREAM_Start(0));

    const int periods = 50;
    ASSERT_TRUE(WaitFor([&] { return SinkBytes(10, 0).size() >= periods * 320u; }));
    ASSERT_EQ(0, AUDIO_ASTREAM_Stop(0));
    std::vector<int16_t> both = ToSamples(ExpectedCapture(2, 48000, 2, 16000, 160, periods)), right;
    for (size_t i = 1; i < both.size(); i += 2) {
        right.push_back(both[i]);
    }
    Bytes sink = SinkBytes(10, 0);
    sink.resize(periods * 320u);
    EXPECT_EQ(ToBytes(right), sink);
}

}  // namespace

// The ALSA capture device on virtual cards: negotiation and its log lines, the bytes a
// pattern card delivers through no conversion, rematrix, resampler or both, the failure
// table driven through the cards' fault plans, timestamps and change verdicts.
#include <string>
#include <vector>

#include "ai_capture_util.h"

namespace {

using namespace audiomw_test;

enum Model { kRefused, kPattern, kSlot };

struct InitCase {
    const char* name;
    const char* pcm;  // the capture PCM's keys after "pcm dir=capture source=pattern"
    AI_ATTR_S attr;
    Model model;
    int cardChn, cardRate, period;  // what pcm_open is given when the card opens
    const char* lines;              // what init logs, '|'-separated; level 6 but a refusal's last
};

// clang-format off
const InitCase kInitCases[] = {
    {"Direct", "card=0 channels=1-8", AlsaAi(0, 0, 16000, 2, 160), kPattern, 2, 16000, 160,
     "AI[0] open channel 2\n|AI[0] open rate 16000 at period_size 160\n|"
     "AI[0] Open Alsa 0:0 rate:16000 chn:2 frame:160 format:0"},
    {"RematrixTwoToFour", "card=0 channels=1-2 rates=16000", AlsaAi(0, 0, 16000, 4, 160), kPattern, 2, 16000, 160,
     "AI[0] enable rematrix for convert channel 2=>4 \n|AI[0] open rate 16000 at period_size 160\n|"
     "AI[0] Open Alsa 0:0 rate:16000 chn:2 frame:160 format:0"},
    {"RematrixFourToTwo", "card=0 channels=4-8 rates=8000", AlsaAi(0, 0, 8000, 2, 80), kPattern, 4, 8000, 80,
     "AI[0] enable rematrix for convert channel 4=>2 \n|AI[0] open rate 8000 at period_size 80\n|"
     "AI[0] Open Alsa 0:0 rate:8000 chn:4 frame:80 format:0"},
    {"Resample48kTo16k", "card=0 channels=2 rates=48000", AlsaAi(0, 0, 16000, 2, 320), kPattern, 2, 48000, 960,
     "AI[0] open channel 2\n|AI[0] enable resample for convert sample rate 48000=>16000, new period_size=960\n|"
     "AI[0] Open Alsa 0:0 rate:48000 chn:2 frame:960 format:0"},
    {"ResampleTopOfRange", "card=0 channels=1 rates=32000-48000", AlsaAi(0, 0, 16000, 1, 160), kPattern, 1, 48000, 480,
     "AI[0] open channel 1\n|AI[0] enable resample for convert sample rate 48000=>16000, new period_size=480\n|"
     "AI[0] Open Alsa 0:0 rate:48000 chn:1 frame:480 format:0"},
    {"RematrixAndResample", "card=0 channels=1-2 rates=48000", AlsaAi(0, 0, 16000, 4, 160), kPattern, 2, 48000, 480,
     "AI[0] enable rematrix for convert channel 2=>4 \n|"
     "AI[0] enable resample for convert sample rate 48000=>16000, new period_size=480\n|"
     "AI[0] Open Alsa 0:0 rate:48000 chn:2 frame:480 format:0"},
    // Card 3 device 0: two 32-bit slots carry the caller's four 16-bit channels.
    {"SlotCardFour", "card=3 channels=2-4 formats=s32_slot_le", AlsaAi(3, 0, 16000, 4, 160), kSlot, 2, 16000, 160,
     "AI[0] open channel 2\n|AI[0] open rate 16000 at period_size 160\n|"
     "AI[0] Open Alsa 3:0 rate:16000 chn:2 frame:160 format:7"},
    {"SlotCardThreeRefused", "card=3 channels=2-4 formats=s32_slot_le", AlsaAi(3, 0, 16000, 3, 160), kRefused, 0, 0, 0,
     "AI[0] open channel 2\n|AI[0] open rate 16000 at period_size 160\n|"
     "AI[0] Alsa 3:0 delivers 8 bytes a frame, the block takes 6\n"},
    {"SlotConversionRefused", "card=3 channels=1-2 formats=s32_slot_le", AlsaAi(3, 0, 16000, 4, 160), kRefused, 0, 0, 0,
     "AI[0] enable rematrix for convert channel 2=>4 \n|AI[0] open rate 16000 at period_size 160\n|"
     "AI[0] Alsa 3:0 delivers 8 bytes a frame, the conversion takes 4\n"},
    {"CardThreeOtherDevice", "card=3 device=1 channels=1-4", AlsaAi(3, 1, 16000, 4, 160), kPattern, 4, 16000, 160,
     "AI[0] open channel 4\n|AI[0] open rate 16000 at period_size 160\n|"
     "AI[0] Open Alsa 3:1 rate:16000 chn:4 frame:160 format:0"},
    {"SlotFormatNotOffered", "card=3 channels=2-4", AlsaAi(3, 0, 16000, 4, 160), kRefused, 0, 0, 0,
     "AI[0] open channel 2\n|AI[0] open rate 16000 at period_size 160\n|"
     "AI[0] Open Alsa 3:0 failed. card 3 device 0 capture: format 7 (s32_slot_le) not accepted"},
    {"NoSuchCard", "card=2", AlsaAi(9, 0, 16000, 2, 160), kRefused, 0, 0, 0,
     "Alsa device 9:0 not exist for AI[0]."},
    {"OpenRefused", "card=0 open-error=\"device is busy\"", AlsaAi(0, 0, 16000, 2, 160), kRefused, 0, 0, 0,
     "AI[0] open channel 2\n|AI[0] open rate 16000 at period_size 160\n|AI[0] Open Alsa 0:0 failed. device is busy"},
    {"NoChannels", "card=0", AlsaAi(0, 0, 16000, 0, 160), kRefused, 0, 0, 0,
     "AI[0] invalid attributes: rate 16000, channels 0, frame length 160\n"},
    {"NegativeFrames", "card=0", AlsaAi(0, 0, 16000, 2, -5), kRefused, 0, 0, 0,
     "AI[0] invalid attributes: rate 16000, channels 2, frame length -5\n"},
    {"BlockTooLarge", "card=0", AlsaAi(0, 0, 16000, 2, 600000000), kRefused, 0, 0, 0,
     "AI[0] invalid attributes: rate 16000, channels 2, frame length 600000000\n"},
    {"ResampledPeriodTooLong", "card=0 channels=1 rates=48000", AlsaAi(0, 0, 8000, 1, 400000000), kRefused, 0, 0, 0,
     "AI[0] open channel 1\n|AI[0] period of 400000000 frames at 8000 Hz is too long to resample from 48000 Hz\n"},
    {"CardPeriodTooLarge", "card=0 channels=4 rates=16000", AlsaAi(0, 0, 16000, 1, 300000000), kRefused, 0, 0, 0,
     "AI[0] enable rematrix for convert channel 4=>1 \n|AI[0] open rate 16000 at period_size 300000000\n|"
     "AI[0] card period of 300000000 frames x 4 channels is too large\n"},
};
// clang-format on

void PrintTo(const InitCase& c, std::ostream* os) {
    *os << c.name;
}

class AlsaInitTest : public CaptureTest, public ::testing::WithParamInterface<InitCase> {};

// The 16-bit view of the slot card's frames: each 32-bit slot is (0, pattern sample).
Bytes SlotBlocks(int frames, int blocks) {
    std::vector<int16_t> s;
    for (int16_t v : PatternFrames(2, 0, frames * blocks)) {
        s.push_back(0);
        s.push_back(v);
    }
    return ToBytes(s);
}

TEST_P(AlsaInitTest, NegotiatesLogsAndDelivers) {
    const InitCase& c = GetParam();
    const int handles = LivePcmHandles();
    LoadCards(std::string("pcm dir=capture source=pattern ") + c.pcm);
    AI_ATTR_S attr = c.attr;
    ASSERT_EQ(0, AUDIO_AI_Create(0, &attr));
    Lines want = InitLines(c.lines, c.model != kRefused ? 6 : 3);
    want.push_back({6, "AUDIO_AI_Create", "AI[0] create success"});
    EXPECT_EQ(want, log.All());
    const int card = attr.stAlsaDev.s32CardId, dev = attr.stAlsaDev.s32DevId;
    vcard_counters n = CaptureCounters(card, dev);
    ASSERT_EQ(c.model != kRefused, AUDIO_AI_isInitd(0) == 1);
    log.Clear();
    if (c.model == kRefused) {
        EXPECT_EQ(std::make_pair(0, handles),
                  std::make_pair(n.is_open, LivePcmHandles()));  // a refused handle is closed
        EXPECT_EQ(std::vector<int>(3, -1),
                  std::vector<int>({AUDIO_AI_Open(0), Read(0, 4096).rc, AUDIO_AI_GetUnderRunState(0)}));
        EXPECT_EQ(Lines({{3, "open", "AI[0] not init"},
                         {4, "_readFrame", "AI [0] is not ready\n"},
                         {4, "getUnderRuns", "AI [0] is not ready\n"}}),
                  log.All());
        return;
    }
    const pcm_config cfg = n.last_config;
    EXPECT_EQ(
        std::make_tuple(unsigned(PCM_IN), 20u, unsigned(c.cardChn), unsigned(c.cardRate), unsigned(c.period),
                        c.model == kSlot ? 7 : 0, 0u),
        std::make_tuple(n.last_flags, cfg.period_count, cfg.channels, cfg.rate, cfg.period_size,
                        static_cast<int>(cfg.format),
                        cfg.start_threshold + cfg.stop_threshold + cfg.silence_threshold + cfg.avail_min));
    AI_ATTR_S got;
    AUDIO_AI_GetAttr(0, &got);
    EXPECT_EQ(c.cardRate == attr.eSampleRate ? 0u : unsigned(c.cardRate), got.stAlsaDev.u32HwRate);
    ASSERT_EQ(0, AUDIO_AI_Open(0));
    Bytes all;
    for (int b = 0; b < 3; ++b) {
        ReadResult r = ReadBlock(0);
        ASSERT_EQ(std::make_pair(0, static_cast<unsigned>(r.data.size())), std::make_pair(r.rc, r.len));
        all.insert(all.end(), r.data.begin(), r.data.end());
    }
    EXPECT_EQ(c.model == kSlot ? SlotBlocks(attr.s32FrameLen, 3)
                               : ExpectedCapture(c.cardChn, c.cardRate, attr.s32Channel, attr.eSampleRate,
                                                 attr.s32FrameLen, 3),
              all);
    EXPECT_EQ(Lines({{6, "open", "AI[0] Alsa " + std::to_string(card) + ":" + std::to_string(dev) + " "}}),
              log.All());
    EXPECT_EQ(handles + 1, LivePcmHandles());
    EXPECT_EQ(0, AUDIO_AI_Close(0) + AUDIO_AI_SetEnable(0, ZN_FALSE));
    EXPECT_EQ(handles, LivePcmHandles());
}

INSTANTIATE_TEST_SUITE_P(Cards, AlsaInitTest, ::testing::ValuesIn(kInitCases),
                         [](const ::testing::TestParamInfo<InitCase>& i) {
                             return std::string(i.param.name);
                         });

using AlsaAiTest = CaptureTest;

// Rows: a prepare that fails leaves the device usable or not as the PCM says (an unready
// one is still released by destroy), and seven failed reads in a row log five warnings,
// then nothing until a good read resets the count. Failed reads show as underruns.
TEST_F(AlsaAiTest, PrepareAndReadFaults) {
    const Logged ready{6, "open", "AI[0] Alsa 0:0 "}, notReady{4, "_readFrame", "AI [0] is not ready\n"},
        w2{4, "_readFrame", "AI [0] Read failed -32\n"},
        w4{4, "_readFrame", "AI [0] Read failed -32 cannot read stream data: Broken pipe\n"};
    Lines unready = {
        ready, {3, "open", "AI[0] Alsa[0:0] prepare failed. cannot prepare channel: Input/output error"}};
    unready.insert(unready.end(), 11, notReady);
    unready.push_back({4, "getUnderRuns", "AI [0] is not ready\n"});
    const std::vector<int> good = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, -1}, bad(11, -1),
                           run = {0, -1, -1, -1, -1, -1, -1, -1, 0, 0, -1};
    const struct {
        const char* pcm;
        int channels, openRc;
        std::vector<int> rc;  // of eleven reads
        int underruns;
        Lines lines;
    } rows[] = {
        {"prepare=fail", 2, 0, good, 1, {ready, w2}},
        {"prepare=unready", 2, -1, bad, -1, unready},
        {"fail-at=2 fail-count=7", 2, 0, run, 8, {ready, w2, w2, w2, w2, w2, w2}},
        {"fail-at=2 fail-count=7", 4, 0, run, 8, {ready, w4, w4, w4, w4, w4, w4}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message() << row.pcm << " " << row.channels);
        const int handles = LivePcmHandles();
        vcard_reset();
        LoadCards(std::string("pcm card=0 dir=capture channels=2 rates=16000 source=pattern ") + row.pcm);
        AI_ATTR_S attr = AlsaAi(0, 0, 16000, row.channels, 160);
        ASSERT_EQ(0, AUDIO_AI_Create(0, &attr));
        log.Clear();
        EXPECT_EQ(row.openRc, AUDIO_AI_Open(0));
        EXPECT_EQ(row.openRc == 0, AUDIO_AI_isOpen(0) == 1);
        std::vector<int> rc;
        for (int i = 0; i < 11; ++i) {  // the last read after a new single failure
            if (i == 10) {
                vcard_fault_plan plan{};
                plan.transfer_fail_at = 1;
                vcard_set_faults(0, 0, VCARD_CAPTURE, &plan);
            }
            rc.push_back(ReadBlock(0).rc);
        }
        EXPECT_EQ(row.rc, rc);
        EXPECT_EQ(row.underruns, AUDIO_AI_GetUnderRunState(0));
        EXPECT_EQ(row.lines, log.All());
        EXPECT_EQ(0, AUDIO_AI_Close(0) + AUDIO_AI_SetEnable(0, ZN_FALSE));
        EXPECT_EQ(handles, LivePcmHandles());  // the unready handle is closed by destroy
        EXPECT_EQ(0, AUDIO_AI_Destroy(0));
    }
}

// A short buffer is refused (five warnings a run) without touching the card; a larger
// one is zero-filled past the block. The timestamp is the card's, in ns. Verdicts on a
// change; a hot update is stored without reopening; close and open prepare the PCM again.
TEST_F(AlsaAiTest, BufferSizesTimestampsVerdictsAndReopen) {
    LoadCards("pcm card=0 dir=capture channels=2 rates=16000 source=pattern clock=frames");
    AI_ATTR_S attr = AlsaAi(0, 0, 16000, 2, 160);
    ASSERT_EQ(0, AUDIO_AI_Create(0, &attr));
    log.Clear();
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(-1, Read(0, 639).rc);
    }
    ReadResult a = Read(0, 700), b = Read(0, 640);
    EXPECT_EQ(-1, Read(0, 639).rc);
    const Logged w{4, "_readFrame", "AI [0] buffer too small, required 640 but feed 639\n"};
    EXPECT_EQ(Lines({w, w, w, w, w, w}), log.All());
    EXPECT_EQ(0u, CaptureCounters(0).failed_transfers);
    ASSERT_EQ(std::make_pair(0, 640u), std::make_pair(a.rc, a.len));
    EXPECT_EQ(Bytes(60, 0), Bytes(a.data.begin() + 640, a.data.end()));
    EXPECT_GT(a.ts, 0u);
    EXPECT_EQ(10000000u, b.ts - a.ts);  // 160 frames at 16 kHz
    struct Row {
        void (*change)(AI_ATTR_S&);
        AUDIO_SET_ACTION_E verdict;
    };
    const auto kNone = AUDIO_SET_ACTION_E_NONE, kHot = AUDIO_SET_ACTION_E_HOT_UPDATE,
               kDestroy = AUDIO_SET_ACTION_E_NEED_DESTROY;
    // clang-format off
    const Row rows[] = {
        {[](AI_ATTR_S&) {}, kNone}, {[](AI_ATTR_S& a) { a.stAlsaDev.u32HwRate = 48000; }, kNone},
        {[](AI_ATTR_S& a) { a.eType = AI_DEV_TYPE_FILE; }, kNone}, {[](AI_ATTR_S& a) { a.s32Volume = 5; }, kHot},
        {[](AI_ATTR_S& a) { a.bLineInConnect = ZN_TRUE; }, kHot}, {[](AI_ATTR_S& a) { a.s32Channel = 1; }, kDestroy},
        {[](AI_ATTR_S& a) { a.stAlsaDev.s32CardId = 1; }, kDestroy}, {[](AI_ATTR_S& a) { a.s32FrameLen = 80; }, kDestroy},
        {[](AI_ATTR_S& a) { a.stAlsaDev.s32DevId = 1; }, kDestroy}, {[](AI_ATTR_S& a) { a.bEnable = ZN_FALSE; }, kDestroy},
        {[](AI_ATTR_S& a) { a.eSampleRate = AI_SAMPLE_RATE_8000; }, kDestroy},
    };
    // clang-format on
    for (const Row& row : rows) {
        AI_ATTR_S changed = attr;
        row.change(changed);
        EXPECT_EQ(row.verdict, gs_pAiHandler[0]->calActionOnSetCfg(&changed));
    }
    // A volume change is a hot update: stored, nothing else changed, the card not reopened.
    AI_ATTR_S before, after;
    ASSERT_EQ(0, AUDIO_AI_GetAttr(0, &before) + AUDIO_AI_Open(0));
    log.Clear();
    ASSERT_EQ(0, AUDIO_AI_SetVolume(0, 7));
    EXPECT_EQ(Lines({{6, "setCfg", "AI_DEVICE_S::setCfg, AUDIO_SET_ACTION_E_HOT_UPDATE\n"}}), log.All());
    ASSERT_EQ(0, AUDIO_AI_GetAttr(0, &after));
    before.s32Volume = 7;
    EXPECT_EQ(Bytes(reinterpret_cast<unsigned char*>(&before), reinterpret_cast<unsigned char*>(&before + 1)),
              Bytes(reinterpret_cast<unsigned char*>(&after), reinterpret_cast<unsigned char*>(&after + 1)));
    EXPECT_EQ(0, AUDIO_AI_Close(0) + AUDIO_AI_Open(0));
    vcard_counters n = CaptureCounters(0);
    EXPECT_EQ(std::make_tuple(1ull, 0ull, 2ull), std::make_tuple(n.opens, n.closes, n.prepares));
}

}  // namespace

// The combo input on ALSA members: the combined buffer, the unwind when a member does not
// match or cannot be enabled or opened, change verdicts, member lists refused at init
// (never a self-deadlock), and reads racing configuration changes.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <cstdlib>
#include <functional>
#include <future>
#include <string>
#include <vector>

#include "../ai_alsa/ai_capture_util.h"

namespace {

using namespace audiomw_test;

constexpr int kCombo = 3;

// A combo at 16 kHz, 160 frames, of `ids`; s32AiCnt is their number unless `count` is given.
AI_ATTR_S ComboAi(std::vector<int> ids, int count = -100) {
    AI_ATTR_S a = AlsaAi(0, 0, 16000, 7, 160);  // init sets the channel count
    a.eType = AI_DEV_TYPE_COMBO;
    std::copy_n(ids.begin(), std::min<size_t>(ids.size(), AUDIO_AI_COMBO_MAX_NUM), a.stComboDev.as32AiId);
    a.stComboDev.s32AiCnt = count == -100 ? static_cast<int>(ids.size()) : count;
    return a;
}

class ComboTest : public CaptureTest {
  protected:
    // Member i of `attrs` in AI slot i.
    void CreateMembers(std::vector<AI_ATTR_S> attrs) {
        for (size_t i = 0; i < attrs.size(); ++i) {
            ASSERT_EQ(0, AUDIO_AI_Create(static_cast<int>(i), &attrs[i]));
        }
    }
    void CreateCombo(int id, AI_ATTR_S attr) { ASSERT_EQ(0, AUDIO_AI_Create(id, &attr)); }
    // Runs `fn` against a deadline; a self-deadlock ends the program instead of hanging.
    static void WithinDeadline(const std::function<void()>& fn) {
        auto done = std::async(std::launch::async, fn);
        if (done.wait_for(std::chrono::seconds(30)) != std::future_status::ready) {
            ADD_FAILURE() << "combo operation did not return: self-deadlock";
            std::_Exit(1);
        }
    }
};

// Members of two and four channels make one buffer; closing and disabling the combo
// reaches them.
TEST_F(ComboTest, BufferOpenUnwindEmptyListAndVerdicts) {
    LoadCards(
        "pcm card=0 dir=capture source=pattern\npcm card=2 dir=capture source=pattern\n"
        "pcm card=5 dir=capture prepare=unready");
    CreateMembers(
        {AlsaAi(0, 0, 16000, 2, 160, false), AlsaAi(2, 0, 16000, 4, 160), AlsaAi(5, 0, 16000, 2, 160)});
    CreateCombo(kCombo, ComboAi({0, 1}));
    EXPECT_TRUE(log.Has({3, "init", "ComboAI[3] enable AI[1] skip, already enabled\n"}));
    ASSERT_EQ(std::make_tuple(1, 6, 1920),
              std::make_tuple(AUDIO_AI_isInitd(kCombo), AUDIO_AI_GetChannelChn(kCombo),
                              AUDIO_AI_GetRecommendReadBufferSize(kCombo)));
    EXPECT_EQ(0, AUDIO_AI_Open(kCombo));
    EXPECT_EQ(3, AUDIO_AI_isOpen(kCombo) + AUDIO_AI_isOpen(0) + AUDIO_AI_isOpen(1));
    for (int b = 0; b < 2; ++b) {
        ReadResult r = ReadBlock(kCombo);
        ASSERT_EQ(std::make_pair(0, 1920u), std::make_pair(r.rc, r.len));
        std::vector<int16_t> want = PatternFrames(2, 160u * b, 160), second = PatternFrames(4, 160u * b, 160);
        want.insert(want.end(), second.begin(), second.end());
        EXPECT_EQ(ToBytes(want), r.data);
    }
    ReadResult shorter = Read(kCombo, 1000);  // the second block does not fit: not read
    EXPECT_EQ(1920u, shorter.len);
    EXPECT_EQ(Bytes(360, 0xEE), Bytes(shorter.data.begin() + 640, shorter.data.end()));
    EXPECT_EQ(0, AUDIO_AI_Close(kCombo) + AUDIO_AI_isOpen(0) + AUDIO_AI_isOpen(1));
    EXPECT_EQ(0, AUDIO_AI_SetEnable(kCombo, ZN_FALSE) + AUDIO_AI_isEnabled(0) + AUDIO_AI_isEnabled(1));
    // A member that does not open closes the ones opened before it; no members read nothing.
    CreateCombo(kCombo + 1, ComboAi({0, 2}));
    log.Clear();
    EXPECT_EQ(
        0, AUDIO_AI_Open(kCombo + 1) + AUDIO_AI_isOpen(kCombo + 1) + AUDIO_AI_isOpen(0) + AUDIO_AI_isOpen(2));
    EXPECT_EQ(1, log.Count({3, "open", "ComboAI[4] open AI[2] failed\n"}));
    CreateCombo(kCombo + 2, ComboAi({}));
    EXPECT_EQ(0, AUDIO_AI_Open(kCombo + 2));
    EXPECT_EQ(2, AUDIO_AI_isInitd(kCombo + 2) + AUDIO_AI_isOpen(kCombo + 2));
    ReadResult r = Read(kCombo + 2, 64);
    EXPECT_EQ(0, r.rc + static_cast<int>(r.len));
    // Verdicts on changes; a volume change has none: nothing is stored.
    const auto kDestroy = AUDIO_SET_ACTION_E_NEED_DESTROY, kNone = AUDIO_SET_ACTION_E_NONE;
    const struct {
        void (*change)(AI_ATTR_S&);
        AUDIO_SET_ACTION_E verdict;
    } rows[] = {
        // clang-format off
        {[](AI_ATTR_S& a) { a.stComboDev.as32AiId[1] = 4; }, kDestroy}, {[](AI_ATTR_S& a) { a.s32Volume = 9; }, kNone},
        {[](AI_ATTR_S& a) { a.stComboDev.s32AiCnt = 1; }, kDestroy}, {[](AI_ATTR_S& a) { a.s32FrameLen = 320; }, kNone},
        {[](AI_ATTR_S& a) { a.bEnable = ZN_FALSE; }, kDestroy}, {[](AI_ATTR_S& a) { a.stComboDev.as32AiId[2] = 4; }, kNone},
        {[](AI_ATTR_S& a) { a.eSampleRate = AI_SAMPLE_RATE_48000; }, kNone},
        // clang-format on
    };
    AI_ATTR_S a;
    for (const auto& row : rows) {
        AUDIO_AI_GetAttr(kCombo + 1, &a);
        row.change(a);
        EXPECT_EQ(row.verdict, gs_pAiHandler[kCombo + 1]->calActionOnSetCfg(&a));
    }
    EXPECT_EQ(0, AUDIO_AI_SetVolume(kCombo + 1, 9) + AUDIO_AI_GetAttr(kCombo + 1, &a) + a.s32Volume);
}

// A member slot left empty: a record whose type the registry refuses.
const AI_ATTR_S kEmpty = [] {
    AI_ATTR_S a = AlsaAi(0, 0, 16000, 2, 160);
    a.eType = static_cast<tagAI_DEV_TYPE_E>(1);
    return a;
}();

// A combo whose own rate and frame length are 0, as an empty member's record reads.
AI_ATTR_S Unset(AI_ATTR_S a) {
    a.eSampleRate = static_cast<tagAI_SAMPLE_RATE_E>(0);
    a.s32FrameLen = 0;
    return a;
}

// Init failures. A member that does not match, cannot be enabled or is missing unwinds:
// every listed member ends disabled with its PCM closed (the one enabled before the
// combo and the one never examined too), and the combo keeps the channels summed so far.
// Lists refused before any member is touched leave the members as they were. A refused
// combo's operations neither deadlock nor recurse, whatever its list holds.
TEST_F(ComboTest, RefusedInitUnwindsAllAndNeverDeadlocks) {
    const AI_ATTR_S on0 = AlsaAi(0, 0, 16000, 2, 160), on1 = AlsaAi(0, 1, 16000, 2, 160),
                    on2 = AlsaAi(0, 2, 16000, 2, 160);
    struct Row {
        std::vector<AI_ATTR_S> members;                        // in slots 0, 1, 2 (kEmpty: none)
        std::vector<std::pair<int, std::vector<int>>> others;  // combos created (disabled) first
        AI_ATTR_S combo;
        bool unwound;      // members all disabled; else left as created
        int channels;      // the combo's s32Channel afterwards
        const char* line;  // level 3, init
    };
    // clang-format off
    const Row rows[] = {
        {{on0, AlsaAi(0, 1, 48000, 2, 160, false), on2}, {}, ComboAi({0, 1, 2}), true, 4,
         "params of AI[1] not match with Combo AI[3], 16000 <=> 48000, 160 <=> 160"},
        {{on0, AlsaAi(0, 1, 16000, 2, 320), on2}, {}, ComboAi({0, 1, 2}), true, 4,
         "params of AI[1] not match with Combo AI[3], 16000 <=> 16000, 160 <=> 320"},
        {{on0, AlsaAi(5, 0, 16000, 2, 160, false), on2}, {}, ComboAi({0, 1, 2}), true, 4, "ComboAI[3] enable AI[1] failed\n"},
        {{on0, AlsaAi(0, 1, 16000, -2, 160, false), on2}, {}, ComboAi({0, 1, 2}), true, 2,
         "ComboAI[3] cannot add -2 channels of AI[1] to 2\n"},
        // Missing members: the record read for the first is all zeros; a later one keeps
        // the record of the member before it, which then matches.
        {{kEmpty, on1, on2}, {}, ComboAi({0, 1, 2}), true, 0,
         "params of AI[0] not match with Combo AI[3], 16000 <=> 0, 160 <=> 0"},
        {{kEmpty, on1, on2}, {}, Unset(ComboAi({0, 1, 2})), true, 0, "ComboAI[3] enable AI[0] failed\n"},
        {{on0, kEmpty, on2}, {}, ComboAi({0, 1, 2}), true, 4, "ComboAI[3] enable AI[1] failed\n"},
        {{on0, on1, kEmpty}, {}, ComboAi({0, 1, 2, 5}), true, 6, "ComboAI[3] enable AI[2] failed\n"},
        {{on0}, {}, ComboAi({0}, -1), false, 0, "ComboAI[3] member count -1 outside 0 to 4\n"},
        {{on0}, {}, ComboAi({0, 0, 0, 0}, 5), false, 0, "ComboAI[3] member count 5 outside 0 to 4\n"},
        {{on0}, {}, ComboAi({0, 8}), false, 0, "ComboAI[3] member id 8 outside 0 to 7\n"},
        {{on0}, {}, ComboAi({-1}), false, 0, "ComboAI[3] member id -1 outside 0 to 7\n"},
        {{on0}, {}, ComboAi({0, 3}), false, 0, "ComboAI[3] lists itself as a member\n"},
        {{on0}, {{4, {3}}}, ComboAi({0, 4}), false, 0,
         "ComboAI[3] member AI[4] leads back to AI[3]: combos listed in a loop\n"},
        {{on0}, {{4, {5}}, {5, {3}}}, ComboAi({4}), false, 0,
         "ComboAI[3] member AI[4] leads back to AI[3]: combos listed in a loop\n"},
        {{on0}, {{5, {6}}, {6, {5}}}, ComboAi({0, 5}), false, 0,
         "ComboAI[3] member AI[5] leads back to AI[5]: combos listed in a loop\n"},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        TearDown();
        LoadCards("pcm card=0 dir=capture\npcm card=0 device=1 dir=capture\npcm card=0 device=2 dir=capture");
        std::vector<int> enabled, missing;  // member slots as created
        for (size_t i = 0; i < row.members.size(); ++i) {
            AI_ATTR_S a = row.members[i];
            if (a.eType == kEmpty.eType) {
                missing.push_back(static_cast<int>(i));
            } else {
                ASSERT_EQ(0, AUDIO_AI_Create(static_cast<int>(i), &a));
                enabled.push_back(a.bEnable);
                ASSERT_EQ(a.bEnable && a.s32Channel > 0, CaptureCounters(0, i).is_open);
            }
        }
        for (const auto& other : row.others) {
            AI_ATTR_S a = ComboAi(other.second);
            a.bEnable = ZN_FALSE;
            CreateCombo(other.first, a);
        }
        log.Clear();
        CreateCombo(kCombo, row.combo);
        EXPECT_EQ(1, log.Count({3, "init", row.line})) << log.Dump();
        // A refused list logs the refusal and the creation only.
        EXPECT_TRUE(row.unwound || log.All().size() == 2) << log.Dump();
        EXPECT_EQ((Logged{6, "AUDIO_AI_Create", "AI[3] create success"}), log.All().back());
        EXPECT_EQ(std::make_pair(0, row.channels),
                  std::make_pair(AUDIO_AI_isInitd(kCombo), AUDIO_AI_GetChannelChn(kCombo)));
        for (int m : missing) {  // tried once for the enable (unless it mismatched), once unwinding
            const bool mismatched = std::string(row.line).rfind("params", 0) == 0;
            EXPECT_EQ(mismatched ? 1 : 2,
                      log.Count({3, "AUDIO_AI_SetEnable", "AI[" + std::to_string(m) + "] not available"}));
        }
        for (size_t i = 0, e = 0; i < row.members.size(); ++i) {
            if (row.members[i].eType == kEmpty.eType) {
                continue;
            }
            const int want = row.unwound ? 0 : enabled[e++];
            EXPECT_EQ(want, AUDIO_AI_isEnabled(static_cast<int>(i))) << "AI " << i;
            EXPECT_EQ(want, CaptureCounters(0, i).is_open) << "AI " << i;
        }
        WithinDeadline([&] {
            AUDIO_AI_SetEnable(0, ZN_TRUE);  // lets opens reach the members after it
            for (int id = 3; id < AUDIO_AI_MAX_NUM; ++id) {
                AUDIO_AI_SetEnable(id, ZN_TRUE);
                AUDIO_AI_Open(id);
                Read(id, 4096);
                AUDIO_AI_Close(id);
                AUDIO_AI_SetEnable(id, ZN_FALSE);
            }
        });
    }
}

// A count above four (refused at init) still reaches only the four ids the record holds:
// ids the bytes after them might spell out are never opened, read, compared or disabled.
TEST_F(ComboTest, CountAboveFourReachesOnlyFourIds) {
    LoadCards("pcm card=0 dir=capture source=pattern\npcm card=2 dir=capture source=pattern");
    CreateMembers({AlsaAi(0, 0, 16000, 2, 160), AlsaAi(2, 0, 16000, 2, 160)});
    AI_ATTR_S combo = ComboAi({0, 0, 0, 0}, 9);
    const int tail[5] = {1, 1, 1, 1, 1};  // entries 5 to 9, were the id array read past its end
    std::memcpy(combo.acFilePath + sizeof(AUDIO_COMBO_DEV_S), tail, sizeof(tail));
    CreateCombo(kCombo, combo);
    ASSERT_TRUE(log.Has({3, "init", "ComboAI[3] member count 9 outside 0 to 4\n"}));
    EXPECT_EQ(0, AUDIO_AI_Open(kCombo));
    ReadResult r = Read(kCombo, 4096);
    EXPECT_EQ(std::make_pair(0, 4u * 640u), std::make_pair(r.rc, r.len));
    AI_ATTR_S changed = combo;
    std::memset(changed.acFilePath + sizeof(AUDIO_COMBO_DEV_S), 7, sizeof(tail));
    EXPECT_EQ(AUDIO_SET_ACTION_E_NONE, gs_pAiHandler[kCombo]->calActionOnSetCfg(&changed));
    EXPECT_EQ(0, AUDIO_AI_Close(kCombo) + gs_pAiHandler[kCombo]->destroy());
    const vcard_counters zero = CaptureCounters(0), two = CaptureCounters(2);
    EXPECT_EQ(std::make_tuple(4ull, 0, 0), std::make_tuple(zero.reads, zero.is_open, AUDIO_AI_isEnabled(0)));
    EXPECT_EQ(std::make_tuple(0ull, 0ull, 1, 1),
              std::make_tuple(two.reads, two.prepares, two.is_open, AUDIO_AI_isEnabled(1)));
}

// One thread reads an ALSA AI on the line-in card and a combo of two cards while
// another changes their attributes and switches the recordings on and off.
TEST_F(ComboTest, ReadsRaceChangesAndRecordings) {
    LoadCards(
        "pcm card=1 dir=capture source=pattern\npcm card=0 dir=capture source=pattern\n"
        "pcm card=4 dir=capture source=pattern");
    WriteFileBytes(root.Path("/proc/asound/card4/usbid"), Bytes{'0', ':', '0', '\n'});
    CreateMembers(
        {AlsaAi(1, 0, 16000, 4, 160), AlsaAi(0, 0, 16000, 2, 160, false), AlsaAi(4, 0, 16000, 2, 160)});
    CreateCombo(kCombo, ComboAi({1, 2}));
    ASSERT_EQ(0, AUDIO_AI_Open(0));
    ASSERT_EQ(0, AUDIO_AI_Open(kCombo));
    std::atomic<bool> stop{false};
    std::atomic<int> reads{0}, torn{0};
    auto reader = std::async(std::launch::async, [&] {
        while (!stop) {
            ReadResult a = Read(0, 1280), c = Read(kCombo, 1280);
            torn += (a.rc == 0 && a.len != 1280) + (c.rc != 0 || c.len != 1280);
            reads++;
        }
    });
    ASSERT_TRUE(WaitFor([&] { return reads > 20; }));
    for (int i = 0; i < 60; ++i) {
        root.SetMarker(i % 3 ? "/var/recordline" : "/var/recorduac", i % 2 == 0);
        AUDIO_AI_SetVolume(0, i);
        AI_ATTR_S a;
        AUDIO_AI_GetAttr(0, &a);
        a.bLineInConnect = static_cast<tagZN_BOOL>(i % 2);
        AUDIO_AI_SetAttr(0, &a);
        if (i % 10 == 0) {
            AUDIO_AI_SetEnable(kCombo, static_cast<tagZN_BOOL>(i % 20 != 0));
            AUDIO_AI_SetEnable(0, static_cast<tagZN_BOOL>(i % 20 != 0));
        }
    }
    const int before = reads;
    EXPECT_TRUE(WaitFor([&] { return reads > before + 20; }));
    stop = true;
    WithinDeadline([&] { reader.wait(); });
    EXPECT_EQ(0, torn.load());
}

}  // namespace

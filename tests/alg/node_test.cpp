// The algorithm node against the scripted library: the initialisation block and log
// lines, the shared instance, refused geometries, reference selection and reports, the
// reference dump, failures, the callback, and the AUDIO_ALG_* functions.
#include <cstdio>
#include <string>
#include <thread>

#include "alg_test_util.h"
#include "test_support.h"

namespace {

using namespace alg_test;
using astream_test::BuildNode;
using astream_test::FakeStream;
using audiomw_test::Logged;

constexpr int kRate = 16000;
constexpr int kFrames = 32;
constexpr int kChn = 6;

std::string Fmt(const char* fmt, const void* p) {
    char buf[256];
    std::snprintf(buf, sizeof(buf), fmt, p);
    return buf;
}

class AlgNodeTest : public audiomw_test::AudioTest {
  protected:
    void SetUp() override { qx_script::Reset(); }

    // A node on stream 0 (AI 0: kChn channels) with mics at 1..2, ref 3, exref 4, allref 5.
    std::unique_ptr<ASTREAM_NODE_S> Node(FakeStream& s, ASTREAM_NODE_ATTR_S a = AlgAttr(1, 2, 0, 3, 4, 5)) {
        return BuildNode(s, a);
    }

    // Runs one period through the node; returns process's result.
    int Run(ASTREAM_NODE_S* node, Bytes& in, Bytes& out, bool& inPlace) {
        inPlace = false;
        return node->process(reinterpret_cast<char*>(in.data()), reinterpret_cast<char*>(out.data()),
                             inPlace);
    }

    AiSlot ai{0, kRate, kChn, kFrames};
};

TEST_F(AlgNodeTest, FirstInitMakesTheInstanceWithItsBlockAndLogs) {
    FakeStream s(kChn, kFrames);
    auto node = Node(s, AlgAttr(1, 2, 1, 3, -1, 5));
    ASSERT_NE(node, nullptr);
    auto inits = qx_script::InitCalls();
    ASSERT_EQ(inits.size(), 1u);
    Bytes expect(136, 0);
    const int head[4] = {kRate, kFrames, 2, 1};
    std::memcpy(expect.data(), head, sizeof(head));
    EXPECT_EQ(inits[0].param, expect);
    EXPECT_EQ(inits[0].errIn, 0);
    auto* alg = static_cast<ASTREAM_ORVANE_ALG_NODE_S*>(node.get());
    EXPECT_NE(g_OrvaneAlgHandler, nullptr);
    EXPECT_EQ(alg->_mpAlgHandle, g_OrvaneAlgHandler);
    ASSERT_NE(g_ptrEmptyRefIn, nullptr);
    EXPECT_EQ(Bytes(reinterpret_cast<uint8_t*>(g_ptrEmptyRefIn),
                    reinterpret_cast<uint8_t*>(g_ptrEmptyRefIn) + kFrames * 2),
              Bytes(kFrames * 2, 0));
    log.ExpectInOrder({{6, "init", "Orvane Audio Alg init with rate:16000 frame:32 mic:2+1 "},
                       {6, "init", "Orvane Audio Alg use mic at 1, ref-in at 3"},
                       {6, "init", "Orvane Audio Alg use exref-in at -1, allref-in at 5"},
                       {6, "init", "Orvane Audio Alg version: V1032b"},
                       {6, "init", "Orvane Audio Alg init ok"},
                       {6, "AUDIO_ASTREAM_InitPipeline", "ASTREAM[0] add node type[153]"}});
    EXPECT_EQ(node->setCfg(ASTREAM_OUTPUT_ATTR_S{}), 0);
    EXPECT_EQ(node->destroy(), 0);
    EXPECT_TRUE(log.Has({6, "destroy", "Orvane Audio Alg destroy ok"}));
    EXPECT_NE(g_OrvaneAlgHandler, nullptr) << "the instance outlives its nodes";
}

TEST_F(AlgNodeTest, LaterNodesReuseTheInstanceAndLogOnlyVersionAndOk) {
    FakeStream s0(kChn, kFrames, 0), s1(kChn, kFrames, 1);
    auto first = Node(s0);
    void* handle = g_OrvaneAlgHandler;
    short* empty = g_ptrEmptyRefIn;
    log.Clear();
    auto second = Node(s1);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(qx_script::InitCalls().size(), 1u);
    EXPECT_EQ(static_cast<ASTREAM_ORVANE_ALG_NODE_S*>(second.get())->_mpAlgHandle, handle);
    EXPECT_EQ(g_ptrEmptyRefIn, empty);
    EXPECT_EQ(log.Count({6, "init", "Orvane Audio Alg version: V1032b"}), 1);
    EXPECT_EQ(log.Count({6, "init", "Orvane Audio Alg init ok"}), 1);
    for (const auto& line : log.Lines()) {
        EXPECT_EQ(line.message.find("init with"), std::string::npos) << line.text;
    }
}

TEST_F(AlgNodeTest, FailedInitKeepsTheNodeWhichThenProcessesNothing) {
    qx_script::SetInitFailure(7);
    FakeStream s(kChn, kFrames);
    auto node = Node(s);
    ASSERT_NE(node, nullptr);
    log.ExpectInOrder({{3, "init", "Orvane Audio Alg init failed: 7"},
                       {3, "AUDIO_ASTREAM_InitPipeline", "ASTREAM[0] pipeline node type[153] init failed"},
                       {6, "AUDIO_ASTREAM_InitPipeline", "ASTREAM[0] add node type[153]"}});
    EXPECT_EQ(g_OrvaneAlgHandler, nullptr);
    EXPECT_EQ(g_ptrEmptyRefIn, nullptr);
    Bytes in = Period(kChn, kFrames), out(in.size(), 0x7A);
    const Bytes before = in;
    bool inPlace = false;
    EXPECT_EQ(Run(node.get(), in, out, inPlace), -1);
    EXPECT_TRUE(inPlace) << "the stream's data stays where it is";
    EXPECT_EQ(qx_script::ProcCount(), 0);
    EXPECT_EQ(in, before);
    // The next node that inits makes the instance.
    qx_script::Reset();
    FakeStream s1(kChn, kFrames, 1);
    auto later = Node(s1);
    EXPECT_NE(g_OrvaneAlgHandler, nullptr);
    EXPECT_EQ(qx_script::InitCalls().size(), 1u);
}

struct Refusal {
    const char* name;
    int chn, frames;  // the stream (AI 0 has kChn x kFrames)
    ASTREAM_NODE_ATTR_S attr;
    const char* line;
};

const Refusal kRefusals[] = {
    {"offset -1", kChn, kFrames, AlgAttr(-1, 2, 0, 3, 4, 5),
     "Orvane Audio Alg init refused: mic group 2+0 at -1, frame 32, outside 6 channels of 64 bytes"},
    {"group past the end", kChn, kFrames, AlgAttr(4, 2, 1, 0, 0, 0),
     "Orvane Audio Alg init refused: mic group 2+1 at 4, frame 32, outside 6 channels of 64 bytes"},
    {"no microphone", kChn, kFrames, AlgAttr(0, 0, 2, 3, 4, 5),
     "Orvane Audio Alg init refused: mic group 0+2 at 0, frame 32, outside 6 channels of 64 bytes"},
    {"negative line-in", kChn, kFrames, AlgAttr(0, 2, -1, 3, 4, 5),
     "Orvane Audio Alg init refused: mic group 2+-1 at 0, frame 32, outside 6 channels of 64 bytes"},
    {"blocks not of the AI's frame", kChn, kFrames * 2, AlgAttr(0, 2, 0, 3, 4, 5),
     "Orvane Audio Alg init refused: mic group 2+0 at 0, frame 32, outside 6 channels of 128 bytes"},
};

TEST_F(AlgNodeTest, MicGroupsThatDoNotFitAreRefusedBeforeTheLibrarySeesThem) {
    for (const Refusal& r : kRefusals) {
        SCOPED_TRACE(r.name);
        log.Clear();
        FakeStream s(r.chn, static_cast<uint32_t>(r.frames));
        auto node = Node(s, r.attr);
        ASSERT_NE(node, nullptr);
        EXPECT_TRUE(log.Has({3, "init", r.line})) << log.Dump();
        EXPECT_EQ(static_cast<ASTREAM_ORVANE_ALG_NODE_S*>(node.get())->_mpAlgHandle, nullptr);
        Bytes in(s.h.u32BufLen), out(s.h.u32BufLen);
        bool inPlace = false;
        EXPECT_EQ(Run(node.get(), in, out, inPlace), -1);
    }
    EXPECT_TRUE(qx_script::InitCalls().empty());
    EXPECT_EQ(qx_script::ProcCount(), 0);
}

struct Mismatch {
    const char* name;
    int rate, chn, frames;
    ASTREAM_NODE_ATTR_S attr;
    const char* line;
};

TEST_F(AlgNodeTest, LaterNodeWhoseGeometryDiffersFromTheInstanceIsRefused) {
    FakeStream s0(kChn, kFrames, 0);
    auto first = Node(s0);  // rate 16000, frame 32, mic 2+0
    ASSERT_NE(g_OrvaneAlgHandler, nullptr);
    const Mismatch cases[] = {
        {"frame", kRate, 4, 64, AlgAttr(0, 2, 0, 2, 3, 3),
         "Orvane Audio Alg init refused: rate:16000 frame:64 mic:2+0, the instance has rate:16000 frame:32 "
         "mic:2+0"},
        {"rate", 48000, 4, kFrames, AlgAttr(0, 2, 0, 2, 3, 3),
         "Orvane Audio Alg init refused: rate:48000 frame:32 mic:2+0, the instance has rate:16000 frame:32 "
         "mic:2+0"},
        {"mics", kRate, 4, kFrames, AlgAttr(0, 3, 0, 3, 3, 3),
         "Orvane Audio Alg init refused: rate:16000 frame:32 mic:3+0, the instance has rate:16000 frame:32 "
         "mic:2+0"},
        {"line-in", kRate, 4, kFrames, AlgAttr(0, 2, 1, 3, 3, 3),
         "Orvane Audio Alg init refused: rate:16000 frame:32 mic:2+1, the instance has rate:16000 frame:32 "
         "mic:2+0"},
    };
    for (const Mismatch& m : cases) {
        SCOPED_TRACE(m.name);
        log.Clear();
        AiSlot other(1, m.rate, m.chn, m.frames);
        FakeStream s(m.chn, static_cast<uint32_t>(m.frames), 1);
        s.h.s32AiId = 1;
        auto node = Node(s, m.attr);
        ASSERT_NE(node, nullptr);
        EXPECT_TRUE(log.Has({3, "init", m.line})) << log.Dump();
        EXPECT_FALSE(log.Has({6, "init", "Orvane Audio Alg init ok"}));
        Bytes in(s.h.u32BufLen), out(s.h.u32BufLen);
        bool inPlace = false;
        EXPECT_EQ(Run(node.get(), in, out, inPlace), -1);
    }
    EXPECT_EQ(qx_script::InitCalls().size(), 1u);
    EXPECT_EQ(qx_script::ProcCount(), 0);
}

struct Selection {
    const char* name;
    tagVOR_AUDIO_REF_IN_RES sel;
    int block;  // the reference block handed over, -1: the silent reference
};

TEST_F(AlgNodeTest, ReferenceFollowsTheSelection) {
    const Selection cases[] = {
        {"switch off", RefIn(0, 2), -1},     {"source 0", RefIn(1, 0), 3},
        {"source 1: exref", RefIn(1, 1), 4}, {"source 2: allref", RefIn(1, 2), 5},
        {"source 9: ref", RefIn(1, 9), 3},   {"byte 2 is not read", RefIn(1, 2, 0, 1), 5},
    };
    FakeStream s(kChn, kFrames);
    auto node = Node(s);
    Bytes in = Period(kChn, kFrames);
    for (const Selection& c : cases) {
        SCOPED_TRACE(c.name);
        qx_script::Reset();
        EXPECT_EQ(AUDIO_ALG_SetRefInParam(c.sel), 0);
        Bytes out(in.size(), 0x7A);
        bool inPlace = false;
        ASSERT_EQ(Run(node.get(), in, out, inPlace), 0);
        EXPECT_TRUE(inPlace);
        auto calls = qx_script::ProcCalls();
        ASSERT_EQ(calls.size(), 1u);
        EXPECT_EQ(calls[0].handle, g_OrvaneAlgHandler);
        EXPECT_EQ(calls[0].mic, reinterpret_cast<short*>(in.data() + 1 * kFrames * 2));
        EXPECT_EQ(calls[0].micBytes, Blocks(in, kFrames, 1, 2));
        EXPECT_EQ(calls[0].out, reinterpret_cast<short*>(out.data()));
        EXPECT_EQ(calls[0].resultIn, 0);
        if (c.block < 0) {
            EXPECT_EQ(calls[0].ref, g_ptrEmptyRefIn);
            EXPECT_EQ(calls[0].refBytes, Bytes(kFrames * 2, 0));
        } else {
            EXPECT_EQ(calls[0].ref, reinterpret_cast<short*>(in.data() + c.block * kFrames * 2));
            EXPECT_EQ(calls[0].refBytes, Blocks(in, kFrames, c.block, 1));
        }
        // The library wrote its first microphone into pOut; pIn is untouched.
        EXPECT_EQ(Bytes(out.begin(), out.begin() + kFrames * 2), Blocks(in, kFrames, 1, 1));
        EXPECT_EQ(in, Period(kChn, kFrames));
    }
}

TEST_F(AlgNodeTest, ReferenceOutsideTheStreamFallsBackToSilenceWithOneWarning) {
    FakeStream s(kChn, kFrames);
    auto node = Node(s, AlgAttr(0, 2, 0, 2, -1, kChn));
    Bytes in = Period(kChn, kFrames), out(in.size());
    bool inPlace = false;
    AUDIO_ALG_SetRefInParam(RefIn(1, 1));  // exref at -1, as the loader stores an absent one
    EXPECT_EQ(Run(node.get(), in, out, inPlace), 0);
    EXPECT_EQ(Run(node.get(), in, out, inPlace), 0);
    AUDIO_ALG_SetRefInParam(RefIn(1, 2));  // allref one past the last block
    EXPECT_EQ(Run(node.get(), in, out, inPlace), 0);
    AUDIO_ALG_SetRefInParam(RefIn(1, 0));  // a usable one, then the bad one again
    EXPECT_EQ(Run(node.get(), in, out, inPlace), 0);
    AUDIO_ALG_SetRefInParam(RefIn(1, 1));
    EXPECT_EQ(Run(node.get(), in, out, inPlace), 0);
    auto calls = qx_script::ProcCalls();
    ASSERT_EQ(calls.size(), 5u);
    const short* expectRef[] = {g_ptrEmptyRefIn, g_ptrEmptyRefIn, g_ptrEmptyRefIn,
                                reinterpret_cast<short*>(in.data() + 2 * kFrames * 2), g_ptrEmptyRefIn};
    for (size_t i = 0; i < calls.size(); i++) {
        EXPECT_EQ(calls[i].ref, expectRef[i]) << "frame " << i;
    }
    const Logged atMinus1{4, "process",
                          "Orvane Audio Alg ref-in at -1 outside 6 channels, silent reference used"};
    EXPECT_EQ(log.Count(atMinus1), 2) << log.Dump();
    EXPECT_EQ(
        log.Count({4, "process", "Orvane Audio Alg ref-in at 6 outside 6 channels, silent reference used"}),
        1);
}

TEST_F(AlgNodeTest, WithoutTheSilentReferenceTheSelectedOneIsUsedOrTheFrameSkipped) {
    FakeStream s(kChn, kFrames);
    auto node = Node(s, AlgAttr(0, 2, 0, 2, -1, 5));
    short* saved = g_ptrEmptyRefIn;
    g_ptrEmptyRefIn = nullptr;  // as after a failed allocation
    Bytes in = Period(kChn, kFrames), out(in.size());
    bool inPlace = false;
    EXPECT_EQ(Run(node.get(), in, out, inPlace), 0);  // switch 0: the selected block 2
    AUDIO_ALG_SetRefInParam(RefIn(1, 1));             // exref -1: nothing to hand over
    EXPECT_EQ(Run(node.get(), in, out, inPlace), -1);
    EXPECT_TRUE(inPlace);
    g_ptrEmptyRefIn = saved;
    auto calls = qx_script::ProcCalls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].refBytes, Blocks(in, kFrames, 2, 1));
    EXPECT_TRUE(log.Has(
        {3, "process", "Orvane Audio Alg ref-in at -1 outside 6 channels, no reference: frames skipped"}));
}

TEST_F(AlgNodeTest, SetRefInParamLogsAndDebugRequestsKeepTheSelection) {
    EXPECT_EQ(AUDIO_ALG_SetRefInParam(RefIn(1, 2)), 0);
    log.ExpectInOrder({{7, "AUDIO_ALG_SetRefInParam", "Old Refin: Switch 0, Source 0; New Refin: 1, 2 \n"},
                       {7, "AUDIO_ALG_SetRefInParam", "dbglevel 0 \n"}});
    EXPECT_EQ(AUDIO_ALG_SetRefInParam(RefIn(0, 1, 1, 9)), 0);
    EXPECT_TRUE(log.Has({7, "AUDIO_ALG_SetRefInParam", "Old Refin: Switch 1, Source 2; New Refin: 0, 1 \n"}));
    EXPECT_TRUE(log.Has({7, "AUDIO_ALG_SetRefInParam", "dbglevel 1 \n"}));
    EXPECT_EQ(g_stRefInParam.u8Switch, 1);
    EXPECT_EQ(g_stRefInParam.u8Source, 2);
    EXPECT_EQ(g_stRefInParam.u8DbgLevel, 0);
}

TEST_F(AlgNodeTest, OneShotReportLogsOnceAndRepeatingReportPrintsEveryFrame) {
    FakeStream s(kChn, kFrames);
    auto node = Node(s);
    Bytes in = Period(kChn, kFrames), out(in.size());
    bool inPlace = false;
    AUDIO_ALG_SetRefInParam(RefIn(1, 2));
    AUDIO_ALG_SetRefInParam(RefIn(0, 0, 1));
    Run(node.get(), in, out, inPlace);
    Run(node.get(), in, out, inPlace);
    const std::string once =
        Fmt("RefInOffset: 5, Switch: 1, Source:2, chnsize:64, EmpytRefin:%p \n", g_ptrEmptyRefIn);
    EXPECT_EQ(log.Count({6, "process", once}), 1) << log.Dump();

    AUDIO_ALG_SetRefInParam(RefIn(0, 0, 2));
    audiomw_test::StdoutCapture cap;
    Run(node.get(), in, out, inPlace);
    Run(node.get(), in, out, inPlace);
    Run(node.get(), in, out, inPlace);
    AUDIO_ALG_SetRefInParam(RefIn(1, 2));  // a plain selection ends the reports
    Run(node.get(), in, out, inPlace);
    const std::string printed = cap.Stop();
    const std::string line =
        Fmt("RefInOffset: 5, Switch: 1, Source:2 chnsize:64, EmpytRefin:%p \n", g_ptrEmptyRefIn);
    EXPECT_EQ(printed, line + line + line);
    EXPECT_EQ(log.Count({6, "process", once}), 1);
}

TEST_F(AlgNodeTest, ReferenceDumpFollowsTheMarkerOnTheRealReferencePathOnly) {
    FakeStream s(kChn, kFrames);
    auto node = Node(s);
    Bytes in = Period(kChn, kFrames), out(in.size());
    bool inPlace = false;
    const std::string dump = root.Path("/tmp/refin_test.pcm");
    root.SetMarker("/tmp/refinsave");
    Run(node.get(), in, out, inPlace);  // silent reference: no dump
    EXPECT_FALSE(audiomw_test::FileExists(dump));
    AUDIO_ALG_SetRefInParam(RefIn(1, 1));
    Run(node.get(), in, out, inPlace);
    Run(node.get(), in, out, inPlace);
    const Bytes block = Blocks(in, kFrames, 4, 1);
    Bytes twice = block;
    twice.insert(twice.end(), block.begin(), block.end());
    EXPECT_EQ(audiomw_test::ReadFileBytes(dump), twice);
    root.SetMarker("/tmp/refinsave", false);
    Run(node.get(), in, out, inPlace);  // closes the dump
    EXPECT_EQ(audiomw_test::ReadFileBytes(dump), twice);
    root.SetMarker("/tmp/refinsave");
    AUDIO_ALG_SetRefInParam(RefIn(1, 0));
    Run(node.get(), in, out, inPlace);  // a new dump starts empty
    EXPECT_EQ(audiomw_test::ReadFileBytes(dump), Blocks(in, kFrames, 3, 1));
}

TEST_F(AlgNodeTest, LibraryFailureIsLoggedAndSkipsTheCallback) {
    int calls = 0;
    auto cb = [](void* arg, short) { ++*static_cast<int*>(arg); };
    FakeStream s(kChn, kFrames);
    auto node = Node(s, AlgAttr(1, 2, 0, 3, 4, 5, cb, &calls));
    qx_script::SetProc(-5, 1);
    Bytes in = Period(kChn, kFrames), out(in.size());
    bool inPlace = false;
    EXPECT_EQ(Run(node.get(), in, out, inPlace), -1);
    EXPECT_TRUE(inPlace);
    EXPECT_TRUE(log.Has({3, "process", "Orvane Audio Alg failed: -5"}));
    EXPECT_EQ(calls, 0);
}

TEST_F(AlgNodeTest, CallbackGetsItsArgumentAndTheSignedResult) {
    struct Seen {
        void* self = nullptr;
        int value = 0;
        int calls = 0;
    } seen;
    auto cb = [](void* arg, short result) {
        Seen* s = static_cast<Seen*>(arg);
        s->self = arg;
        s->value = result;  // widened with its sign
        s->calls++;
    };
    FakeStream s(kChn, kFrames);
    auto node = Node(s, AlgAttr(1, 2, 0, 3, 4, 5, cb, &seen));
    Bytes in = Period(kChn, kFrames), out(in.size());
    const short results[] = {0, 1, -1, 32767, -32768};
    for (short r : results) {
        qx_script::SetProc(0, r);
        bool inPlace = false;
        ASSERT_EQ(Run(node.get(), in, out, inPlace), 0);
        EXPECT_EQ(seen.value, static_cast<int>(r));
        EXPECT_EQ(seen.self, &seen);
    }
    EXPECT_EQ(seen.calls, 5);
}

struct VersionCase {
    const char* text;
    int ret;
    unsigned ver, fix;
    const char* line;
};

TEST_F(AlgNodeTest, GetVersionParsesNumberAndFixLetter) {
    unsigned ver = 11, fix = 22;
    EXPECT_EQ(AUDIO_ALG_GetVersion(&ver, &fix), -1) << "no instance yet";
    FakeStream s(kChn, kFrames);
    auto node = Node(s);
    const VersionCase cases[] = {
        {"V1032b", 0, 1032, 'b', "s32Ver: 1032, s32Fix: b \n"},
        {"V1032", 0, 1032, ' ', "s32Ver: 1032, s32Fix:   \n"},
        {"R7Z", 0, 7, 'Z', "s32Ver: 7, s32Fix: Z \n"},
        {"V1032-", 0, 1032, ' ', "s32Ver: 1032, s32Fix:   \n"},
        {"", -1, 11, 22, nullptr},
    };
    for (const VersionCase& c : cases) {
        SCOPED_TRACE(c.text);
        log.Clear();
        qx_script::SetVersion(c.text);
        ver = 11, fix = 22;
        EXPECT_EQ(AUDIO_ALG_GetVersion(&ver, &fix), c.ret);
        EXPECT_EQ(ver, c.ver);
        EXPECT_EQ(fix, c.fix);
        if (c.line != nullptr) {
            EXPECT_TRUE(log.Has({6, "AUDIO_ALG_GetVersion", c.line})) << log.Dump();
        }
    }
    const int before = qx_script::VersionCalls();
    ver = 11;
    EXPECT_EQ(AUDIO_ALG_GetVersion(&ver, nullptr), -1);
    EXPECT_EQ(AUDIO_ALG_GetVersion(nullptr, &fix), -1);
    EXPECT_EQ(ver, 11u);
    EXPECT_EQ(qx_script::VersionCalls(), before);
}

TEST_F(AlgNodeTest, MicTestStateSnapshotsAndReportsChanges) {
    float* state = nullptr;
    EXPECT_EQ(AUDIO_ALG_GetMicTestState(&state, ZN_FALSE), -1);
    ASSERT_NE(state, nullptr) << "the pointer is set even without an instance";
    FakeStream s(kChn, kFrames);
    auto node = Node(s);
    qx_script::SetMicVol(-12.5f, {-40, -41, -42});
    float* again = nullptr;
    EXPECT_EQ(AUDIO_ALG_GetMicTestState(&again, ZN_TRUE), 0);
    EXPECT_EQ(again, state);
    const float expect[7] = {-12.5f, -40, -41, -42, 0, 0, 0};
    EXPECT_EQ(std::memcmp(again, expect, sizeof(expect)), 0);
    EXPECT_EQ(AUDIO_ALG_GetMicTestState(&again, ZN_TRUE), -1) << "unchanged";
    EXPECT_EQ(again, state);
    EXPECT_EQ(std::memcmp(again, expect, sizeof(expect)), 0);
    EXPECT_EQ(AUDIO_ALG_GetMicTestState(&again, ZN_FALSE), 0) << "without the check, refreshed all the same";
    qx_script::SetMicVol(-12.5f, {-40, -41, -43});
    EXPECT_EQ(AUDIO_ALG_GetMicTestState(&again, ZN_TRUE), 0);
    EXPECT_EQ(again[3], -43.0f);
    EXPECT_EQ(qx_script::MicVolCalls(), 4);
}

// Two nodes on two streams share the instance: the calls into it never overlap, and the
// callback, run outside the instance lock, may call into the library itself.
TEST_F(AlgNodeTest, CallsIntoTheSharedInstanceAreSerialised) {
    auto cb = [](void*, short) {
        float* st = nullptr;
        AUDIO_ALG_GetMicTestState(&st, ZN_FALSE);
    };
    FakeStream s0(kChn, kFrames, 0), s1(kChn, kFrames, 1);
    auto n0 = Node(s0, AlgAttr(1, 2, 0, 3, 4, 5, cb));
    auto n1 = Node(s1, AlgAttr(1, 2, 0, 3, 4, 5, cb));
    qx_script::SetRecording(false);
    qx_script::SetProcYields(20);
    constexpr int kFramesEach = 200;
    auto runner = [&](ASTREAM_NODE_S* node) {
        Bytes in = Period(kChn, kFrames), out(in.size());
        for (int i = 0; i < kFramesEach; i++) {
            pthread_mutex_lock(&node->_mMutex);
            bool inPlace = false;
            node->process(reinterpret_cast<char*>(in.data()), reinterpret_cast<char*>(out.data()), inPlace);
            pthread_mutex_unlock(&node->_mMutex);
        }
    };
    std::thread t0(runner, n0.get()), t1(runner, n1.get());
    t0.join();
    t1.join();
    EXPECT_EQ(qx_script::ProcCount(), 2 * kFramesEach);
    EXPECT_EQ(qx_script::MaxConcurrentProc(), 1);
    EXPECT_EQ(qx_script::MicVolCalls(), 2 * kFramesEach);
}

}  // namespace

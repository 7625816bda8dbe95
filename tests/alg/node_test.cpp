// The algorithm node and the AUDIO_ALG_* functions against the scripted library.
#include <cstdio>
#include <string>
#include <thread>

#include "alg_test_util.h"
#include "test_support.h"

namespace {

using namespace alg_test;
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

short* BlockAt(Bytes& in, int block) {
    return reinterpret_cast<short*>(in.data() + block * kFrames * 2);
}

class AlgNodeTest : public audiomw_test::AudioTest {
  protected:
    void SetUp() override { qx_script::Reset(); }

    // A node on stream `s` (AI 0: kChn channels) with mics at 1..2, ref 3, exref 4, allref 5.
    std::unique_ptr<ASTREAM_NODE_S> Node(FakeStream& s, ASTREAM_NODE_ATTR_S a = AlgAttr(1, 2, 0, 3, 4, 5)) {
        return astream_test::BuildNode(s, a);
    }
    // One period of `in` through the node; returns process's result.
    int Run(ASTREAM_NODE_S* node, Bytes& in, Bytes* out = nullptr) {
        Bytes scratch(in.size());
        inPlace = false;
        return node->process(reinterpret_cast<char*>(in.data()),
                             reinterpret_cast<char*>((out ? *out : scratch).data()), inPlace);
    }
    static void* Handle(const std::unique_ptr<ASTREAM_NODE_S>& n) {
        return static_cast<ASTREAM_ORVANE_ALG_NODE_S*>(n.get())->_mpAlgHandle;
    }

    AiSlot ai{0, kRate, kChn, kFrames};
    bool inPlace = false;
};

// The first node makes the instance and logs; later nodes share it; it outlives its nodes.
TEST_F(AlgNodeTest, FirstInitMakesTheInstanceLaterNodesShareIt) {
    FakeStream s(kChn, kFrames), s1(kChn, kFrames, 1);
    auto node = Node(s, AlgAttr(1, 2, 1, 3, -1, 5));
    ASSERT_NE(node, nullptr);
    ASSERT_EQ(qx_script::g.inits.size(), 1u);
    Bytes expect(136, 0);
    const int head[4] = {kRate, kFrames, 2, 1};
    std::memcpy(expect.data(), head, sizeof(head));
    EXPECT_EQ(qx_script::g.inits[0].param, expect);
    EXPECT_EQ(qx_script::g.inits[0].errIn, 0);
    ASSERT_NE(g_OrvaneAlgHandler, nullptr);
    EXPECT_EQ(Handle(node), g_OrvaneAlgHandler);
    ASSERT_NE(g_ptrEmptyRefIn, nullptr);
    const auto* empty = reinterpret_cast<uint8_t*>(g_ptrEmptyRefIn);
    EXPECT_EQ(Bytes(empty, empty + kFrames * 2), Bytes(kFrames * 2, 0));
    log.ExpectInOrder({{6, "init", "Orvane Audio Alg init with rate:16000 frame:32 mic:2+1 "},
                       {6, "init", "Orvane Audio Alg use mic at 1, ref-in at 3"},
                       {6, "init", "Orvane Audio Alg use exref-in at -1, allref-in at 5"},
                       {6, "init", "Orvane Audio Alg version: V1032b"},
                       {6, "init", "Orvane Audio Alg init ok"},
                       {6, "AUDIO_ASTREAM_InitPipeline", "ASTREAM[0] add node type[153]"}});
    log.Clear();
    auto second = Node(s1, AlgAttr(1, 2, 1, 3, -1, 5));
    EXPECT_EQ(qx_script::g.inits.size(), 1u);
    EXPECT_EQ(Handle(second), g_OrvaneAlgHandler);
    EXPECT_EQ(reinterpret_cast<uint8_t*>(g_ptrEmptyRefIn), empty);
    EXPECT_EQ((std::vector<Logged>{{6, "init", "Orvane Audio Alg version: V1032b"},
                                   {6, "init", "Orvane Audio Alg init ok"},
                                   {6, "AUDIO_ASTREAM_InitPipeline", "ASTREAM[1] add node type[153]"}}),
              log.All());
    EXPECT_EQ(node->setCfg(ASTREAM_OUTPUT_ATTR_S{}) + node->destroy(), 0);
    EXPECT_TRUE(log.Has({6, "destroy", "Orvane Audio Alg destroy ok"}));
    EXPECT_NE(g_OrvaneAlgHandler, nullptr);
}

// A failed init keeps the node, which processes nothing; the next node makes the instance.
TEST_F(AlgNodeTest, FailedInitKeepsTheNodeWhichThenProcessesNothing) {
    qx_script::g.initErr = 7;
    FakeStream s(kChn, kFrames), s1(kChn, kFrames, 1);
    auto node = Node(s);
    ASSERT_NE(node, nullptr);
    EXPECT_TRUE(log.Has({3, "init", "Orvane Audio Alg init failed: 7"}));
    EXPECT_EQ(g_OrvaneAlgHandler, nullptr);
    EXPECT_EQ(g_ptrEmptyRefIn, nullptr);
    Bytes in = Period(kChn, kFrames);
    EXPECT_EQ(Run(node.get(), in), -1);
    EXPECT_TRUE(inPlace);
    EXPECT_EQ(qx_script::procCount, 0);
    EXPECT_EQ(in, Period(kChn, kFrames));
    qx_script::Reset();
    auto later = Node(s1);
    EXPECT_NE(g_OrvaneAlgHandler, nullptr);
    EXPECT_EQ(qx_script::g.inits.size(), 1u);
}

// Mic groups outside the stream, and other geometries than the instance's, are refused.
TEST_F(AlgNodeTest, GeometriesThatDoNotFitAreRefused) {
    const std::string shape = ", the instance has rate:16000 frame:32 mic:2+0";
    const std::string out = ", frame 32, outside 6 channels of ";
    const struct {
        int rate, chn, frames;
        ASTREAM_NODE_ATTR_S attr;
        std::string line;
    } cases[] = {
        {0, kChn, kFrames, AlgAttr(-1, 2, 0, 3, 4, 5), "mic group 2+0 at -1" + out + "64 bytes"},
        {0, kChn, kFrames, AlgAttr(4, 2, 1, 0, 0, 0), "mic group 2+1 at 4" + out + "64 bytes"},
        {0, kChn, kFrames, AlgAttr(0, 0, 2, 3, 4, 5), "mic group 0+2 at 0" + out + "64 bytes"},
        {0, kChn, kFrames, AlgAttr(0, 2, -1, 3, 4, 5), "mic group 2+-1 at 0" + out + "64 bytes"},
        {0, kChn, 64, AlgAttr(0, 2, 0, 3, 4, 5), "mic group 2+0 at 0" + out + "128 bytes"},
        {kRate, 4, 64, AlgAttr(0, 2, 0, 2, 3, 3), "rate:16000 frame:64 mic:2+0" + shape},
        {48000, 4, kFrames, AlgAttr(0, 2, 0, 2, 3, 3), "rate:48000 frame:32 mic:2+0" + shape},
        {kRate, 4, kFrames, AlgAttr(0, 3, 0, 3, 3, 3), "rate:16000 frame:32 mic:3+0" + shape},
        {kRate, 4, kFrames, AlgAttr(0, 2, 1, 3, 3, 3), "rate:16000 frame:32 mic:2+1" + shape},
    };
    FakeStream s0(kChn, kFrames);
    std::unique_ptr<ASTREAM_NODE_S> first;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        if (c.rate != 0 && !first) {
            EXPECT_TRUE(qx_script::g.inits.empty());
            first = Node(s0, AlgAttr(0, 2, 0, 3, 4, 5));
        }
        log.Clear();
        AiSlot other(1, c.rate != 0 ? c.rate : kRate, c.chn, c.frames);
        FakeStream s(c.chn, static_cast<uint32_t>(c.frames), 1);
        s.h.s32AiId = c.rate != 0 ? 1 : 0;
        auto node = Node(s, c.attr);
        ASSERT_NE(node, nullptr);
        EXPECT_TRUE(log.Has({3, "init", "Orvane Audio Alg init refused: " + c.line})) << log.Dump();
        EXPECT_FALSE(log.Has({6, "init", "Orvane Audio Alg init ok"}));
        Bytes in(s.h.u32BufLen);
        EXPECT_EQ(Run(node.get(), in), -1);
    }
    EXPECT_EQ(qx_script::g.inits.size(), 1u);
    EXPECT_EQ(qx_script::procCount, 0);
}

TEST_F(AlgNodeTest, ReferenceFollowsTheSelection) {
    const struct {
        const char* name;
        tagVOR_AUDIO_REF_IN_RES sel;
        int block;  // the reference block handed over, -1: the silent reference
    } cases[] = {
        {"switch off", RefIn(0, 2), -1},     {"source 0", RefIn(1, 0), 3},
        {"source 1: exref", RefIn(1, 1), 4}, {"source 2: allref", RefIn(1, 2), 5},
        {"source 9: ref", RefIn(1, 9), 3},   {"byte 2 is not read", RefIn(1, 2, 0, 1), 5},
    };
    FakeStream s(kChn, kFrames);
    auto node = Node(s);
    Bytes in = Period(kChn, kFrames);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        qx_script::Reset();
        EXPECT_EQ(AUDIO_ALG_SetRefInParam(c.sel), 0);
        Bytes out(in.size(), 0x7A);
        ASSERT_EQ(Run(node.get(), in, &out), 0);
        EXPECT_TRUE(inPlace);
        ASSERT_EQ(qx_script::g.procs.size(), 1u);
        const qx_script::ProcCall& call = qx_script::g.procs[0];
        EXPECT_EQ(call.handle, g_OrvaneAlgHandler);
        EXPECT_EQ(call.mic, BlockAt(in, 1));
        EXPECT_EQ(call.micBytes, Blocks(in, kFrames, 1, 2));
        EXPECT_EQ(call.out, reinterpret_cast<short*>(out.data()));
        EXPECT_EQ(call.resultIn, 0);
        EXPECT_EQ(call.ref, c.block < 0 ? g_ptrEmptyRefIn : BlockAt(in, c.block));
        EXPECT_EQ(call.refBytes, c.block < 0 ? Bytes(kFrames * 2, 0) : Blocks(in, kFrames, c.block, 1));
        // The library wrote its first microphone into pOut; pIn is untouched.
        EXPECT_EQ(Bytes(out.begin(), out.begin() + kFrames * 2), Blocks(in, kFrames, 1, 1));
        EXPECT_EQ(in, Period(kChn, kFrames));
    }
}

// A reference outside the stream falls back to silence, warned once per change, else skips.
TEST_F(AlgNodeTest, ReferenceOutsideTheStreamFallsBackToSilenceOrSkips) {
    FakeStream s(kChn, kFrames);
    auto node = Node(s, AlgAttr(0, 2, 0, 2, -1, kChn));
    Bytes in = Period(kChn, kFrames);
    const uint8_t sources[] = {1, 1, 2, 0, 1};
    for (uint8_t src : sources) {
        AUDIO_ALG_SetRefInParam(RefIn(1, src));
        EXPECT_EQ(Run(node.get(), in), 0);
    }
    ASSERT_EQ(qx_script::g.procs.size(), 5u);
    for (size_t i = 0; i < 5; i++) {
        EXPECT_EQ(qx_script::g.procs[i].ref, i == 3 ? BlockAt(in, 2) : g_ptrEmptyRefIn) << "frame " << i;
    }
    const std::string tail = " outside 6 channels, silent reference used";
    EXPECT_EQ(log.Count({4, "process", "Orvane Audio Alg ref-in at -1" + tail}), 2) << log.Dump();
    EXPECT_EQ(log.Count({4, "process", "Orvane Audio Alg ref-in at 6" + tail}), 1);

    qx_script::Reset();
    short* saved = g_ptrEmptyRefIn;
    g_ptrEmptyRefIn = nullptr;  // as after a failed allocation
    AUDIO_ALG_SetRefInParam(RefIn(0, 0));
    EXPECT_EQ(Run(node.get(), in), 0);  // switch 0: the selected block 2
    AUDIO_ALG_SetRefInParam(RefIn(1, 1));
    EXPECT_EQ(Run(node.get(), in), -1);
    EXPECT_TRUE(inPlace);
    g_ptrEmptyRefIn = saved;
    ASSERT_EQ(qx_script::g.procs.size(), 1u);
    EXPECT_EQ(qx_script::g.procs[0].refBytes, Blocks(in, kFrames, 2, 1));
    EXPECT_TRUE(log.Has(
        {3, "process", "Orvane Audio Alg ref-in at -1 outside 6 channels, no reference: frames skipped"}));
}

// Selections are logged; debug level 1 logs the reference once, level 2 prints every frame.
TEST_F(AlgNodeTest, SelectionLogsAndDebugReports) {
    FakeStream s(kChn, kFrames);
    auto node = Node(s);
    Bytes in = Period(kChn, kFrames);
    EXPECT_EQ(AUDIO_ALG_SetRefInParam(RefIn(1, 2)) + AUDIO_ALG_SetRefInParam(RefIn(0, 1, 1, 9)), 0);
    log.ExpectInOrder({{7, "AUDIO_ALG_SetRefInParam", "Old Refin: Switch 0, Source 0; New Refin: 1, 2 \n"},
                       {7, "AUDIO_ALG_SetRefInParam", "dbglevel 0 \n"},
                       {7, "AUDIO_ALG_SetRefInParam", "Old Refin: Switch 1, Source 2; New Refin: 0, 1 \n"},
                       {7, "AUDIO_ALG_SetRefInParam", "dbglevel 1 \n"}});
    EXPECT_EQ((std::vector<int>{1, 2, 0}), (std::vector<int>{g_stRefInParam.u8Switch, g_stRefInParam.u8Source,
                                                             g_stRefInParam.u8DbgLevel}));
    Run(node.get(), in);
    Run(node.get(), in);
    const Logged once{
        6, "process",
        Fmt("RefInOffset: 5, Switch: 1, Source:2, chnsize:64, EmpytRefin:%p \n", g_ptrEmptyRefIn)};
    EXPECT_EQ(log.Count(once), 1) << log.Dump();
    AUDIO_ALG_SetRefInParam(RefIn(0, 0, 2));
    audiomw_test::StdoutCapture cap;
    for (int i = 0; i < 3; i++) {
        Run(node.get(), in);
    }
    AUDIO_ALG_SetRefInParam(RefIn(1, 2));
    Run(node.get(), in);
    const std::string line =
        Fmt("RefInOffset: 5, Switch: 1, Source:2 chnsize:64, EmpytRefin:%p \n", g_ptrEmptyRefIn);
    EXPECT_EQ(cap.Stop(), line + line + line);
    EXPECT_EQ(log.Count(once), 1);
}

// The marker dumps the real reference block only; removing it closes the file.
TEST_F(AlgNodeTest, ReferenceDumpFollowsTheMarkerOnTheRealReferencePathOnly) {
    FakeStream s(kChn, kFrames);
    auto node = Node(s);
    Bytes in = Period(kChn, kFrames);
    const std::string dump = root.Path("/tmp/refin_test.pcm");
    root.SetMarker("/tmp/refinsave");
    Run(node.get(), in);
    EXPECT_FALSE(audiomw_test::FileExists(dump));
    AUDIO_ALG_SetRefInParam(RefIn(1, 1));
    Run(node.get(), in);
    Run(node.get(), in);
    Bytes twice = Blocks(in, kFrames, 4, 1);
    twice.insert(twice.end(), twice.begin(), twice.end());
    EXPECT_EQ(audiomw_test::ReadFileBytes(dump), twice);
    root.SetMarker("/tmp/refinsave", false);
    Run(node.get(), in);
    EXPECT_EQ(audiomw_test::ReadFileBytes(dump), twice);
    root.SetMarker("/tmp/refinsave");
    AUDIO_ALG_SetRefInParam(RefIn(1, 0));
    Run(node.get(), in);
    EXPECT_EQ(audiomw_test::ReadFileBytes(dump), Blocks(in, kFrames, 3, 1));
}

// The callback gets its argument and the signed result; a library failure skips it.
TEST_F(AlgNodeTest, CallbackGetsTheSignedResultAndFailuresSkipIt) {
    struct Seen {
        void* self = nullptr;
        int value = 99, calls = 0;
    } seen;
    auto cb = [](void* arg, short result) {
        Seen* s = static_cast<Seen*>(arg);
        s->self = arg;
        s->value = result;
        s->calls++;
    };
    FakeStream s(kChn, kFrames);
    auto node = Node(s, AlgAttr(1, 2, 0, 3, 4, 5, cb, &seen));
    Bytes in = Period(kChn, kFrames);
    const struct {
        int ret;
        short result;
        int expectRet, value, calls;
    } cases[] = {{0, 0, 0, 0, 1},         {0, 1, 0, 1, 2},           {0, -1, 0, -1, 3},
                 {0, 32767, 0, 32767, 4}, {0, -32768, 0, -32768, 5}, {-5, 1, -1, -32768, 5}};
    for (const auto& c : cases) {
        qx_script::g.procRet = c.ret;
        qx_script::g.procResult = c.result;
        EXPECT_EQ(Run(node.get(), in), c.expectRet);
        EXPECT_TRUE(inPlace);
        EXPECT_EQ((std::vector<int>{c.value, c.calls}), (std::vector<int>{seen.value, seen.calls}))
            << c.result;
        EXPECT_EQ(seen.self, &seen);
    }
    EXPECT_EQ(log.All().back(), (Logged{3, "process", "Orvane Audio Alg failed: -5"}));
}

TEST_F(AlgNodeTest, GetVersionParsesNumberAndFixLetter) {
    unsigned ver = 11, fix = 22;
    EXPECT_EQ(AUDIO_ALG_GetVersion(&ver, &fix), -1) << "no instance yet";
    FakeStream s(kChn, kFrames);
    auto node = Node(s);
    const struct {
        const char* text;
        int ret;
        unsigned ver, fix;
        const char* line;
    } cases[] = {
        {"V1032b", 0, 1032, 'b', "s32Ver: 1032, s32Fix: b \n"},
        {"V1032", 0, 1032, ' ', "s32Ver: 1032, s32Fix:   \n"},
        {"R7Z", 0, 7, 'Z', "s32Ver: 7, s32Fix: Z \n"},
        {"V1032-", 0, 1032, ' ', "s32Ver: 1032, s32Fix:   \n"},
        {"", -1, 11, 22, nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        log.Clear();
        qx_script::g.version = c.text;
        ver = 11, fix = 22;
        EXPECT_EQ(AUDIO_ALG_GetVersion(&ver, &fix), c.ret);
        EXPECT_EQ((std::vector<unsigned>{c.ver, c.fix}), (std::vector<unsigned>{ver, fix}));
        if (c.line != nullptr) {
            EXPECT_EQ(log.All(), (std::vector<Logged>{{6, "AUDIO_ALG_GetVersion", c.line}}));
        }
    }
    const int before = qx_script::g.versionCalls;
    EXPECT_EQ(AUDIO_ALG_GetVersion(&ver, nullptr) + AUDIO_ALG_GetVersion(nullptr, &fix), -2);
    EXPECT_EQ(ver, 11u);
    EXPECT_EQ(qx_script::g.versionCalls, before);
}

// One state array (loudest, then six mics), even without an instance; -1 while unchanged.
TEST_F(AlgNodeTest, MicTestStateSnapshotsAndReportsChanges) {
    float *state = nullptr, *again = nullptr;
    EXPECT_EQ(AUDIO_ALG_GetMicTestState(&state, ZN_FALSE), -1);
    ASSERT_NE(state, nullptr);
    FakeStream s(kChn, kFrames);
    auto node = Node(s);
    qx_script::g.micRet = -12.5f;
    qx_script::g.micLevels = {-40, -41, -42};
    const float expect[7] = {-12.5f, -40, -41, -42, 0, 0, 0};
    for (int ret : {0, -1}) {
        EXPECT_EQ(AUDIO_ALG_GetMicTestState(&again, ZN_TRUE), ret);
        EXPECT_EQ(again, state);
        EXPECT_EQ(std::memcmp(again, expect, sizeof(expect)), 0);
    }
    EXPECT_EQ(AUDIO_ALG_GetMicTestState(&again, ZN_FALSE), 0) << "without the check, refreshed all the same";
    qx_script::g.micLevels = {-40, -41, -43};
    EXPECT_EQ(AUDIO_ALG_GetMicTestState(&again, ZN_TRUE), 0);
    EXPECT_EQ(again[3], -43.0f);
    EXPECT_EQ(qx_script::g.micVolCalls, 4);
}

// Two threads share the instance while a third selects: calls never overlap; callbacks may call in.
TEST_F(AlgNodeTest, CallsIntoTheSharedInstanceAreSerialised) {
    auto cb = [](void*, short) {
        float* st = nullptr;
        AUDIO_ALG_GetMicTestState(&st, ZN_FALSE);
    };
    FakeStream s0(kChn, kFrames, 0), s1(kChn, kFrames, 1);
    auto n0 = Node(s0, AlgAttr(1, 2, 0, 3, 4, 5, cb));
    auto n1 = Node(s1, AlgAttr(1, 2, 0, 3, 4, 5, cb));
    qx_script::g.recording = false;
    qx_script::g.yields = 20;
    constexpr int kEach = 200;
    auto runner = [&](ASTREAM_NODE_S* node) {
        Bytes in = Period(kChn, kFrames), out(in.size());
        for (int i = 0; i < kEach; i++) {
            pthread_mutex_lock(&node->_mMutex);
            bool done = false;
            node->process(reinterpret_cast<char*>(in.data()), reinterpret_cast<char*>(out.data()), done);
            pthread_mutex_unlock(&node->_mMutex);
        }
    };
    std::atomic<bool> stop{false};
    std::thread selector([&] {
        for (uint8_t i = 0; !stop; i++) {
            AUDIO_ALG_SetRefInParam(RefIn(i & 1, static_cast<uint8_t>(i % 3), i % 7 == 0 ? 1 : 0));
            std::this_thread::yield();
        }
    });
    std::thread t0(runner, n0.get()), t1(runner, n1.get());
    t0.join();
    t1.join();
    stop = true;
    selector.join();
    EXPECT_EQ(qx_script::procCount, 2 * kEach);
    EXPECT_EQ(qx_script::maxInside, 1);
    EXPECT_EQ(qx_script::g.micVolCalls, 2 * kEach);
}

}  // namespace

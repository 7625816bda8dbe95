// The algorithm node and the AUDIO_ALG_* functions against the scripted library, alone and in
// running streams.
#include <cstdio>
#include <list>
#include <string>
#include <thread>

#include "astream_test_util.h"
#include "audio_alg.h"
#include "qx_script.h"
#include "test_support.h"

namespace {

using astream_test::FakeStream;
using audiomw_test::Logged;
using audiomw_test::WaitFor;
using Bytes = std::vector<uint8_t>;

constexpr int kRate = 16000;
constexpr int kFrames = 32;
constexpr int kChn = 6;

// A disabled file AI of this geometry in slot `ai` for the object's lifetime.
struct AiSlot {
    int id;
    AiSlot(int ai, int rate, int channels, int frames) : id(ai) {
        AI_ATTR_S a = astream_test::FileAi("/nonexistent.pcm", channels, frames);
        a.eSampleRate = static_cast<tagAI_SAMPLE_RATE_E>(rate);
        AUDIO_AI_Create(ai, &a);
    }
    ~AiSlot() { astream_test::DropAi(id); }
};

ASTREAM_NODE_ATTR_S AlgAttr(int micOff, int micCnt, int lineCnt, int ref, int exRef, int allRef,
                            void (*cb)(void*, short) = nullptr, void* arg = nullptr) {
    ASTREAM_NODE_ATTR_S a = astream_test::NodeAttr(ASTREAM_NODE_TYPE_E_ORVANE_ALG);
    a.unAttr.stOrvaneAlg = {micOff, micCnt, lineCnt, ref, exRef, allRef, cb, arg};
    return a;
}

// Sample i of channel block k is 1000 k + i + 1.
Bytes Period(int chn, int frames) {
    std::vector<int16_t> s(static_cast<size_t>(chn) * frames);
    for (size_t i = 0; i < s.size(); i++)
        s[i] = static_cast<int16_t>(1000 * (i / frames) + i % frames + 1);
    return audiomw_test::ToBytes(s);
}

// Bytes of blocks [first, first + count) of a period.
Bytes Blocks(const Bytes& period, int first, int count = 1) {
    return Bytes(period.begin() + first * kFrames * 2, period.begin() + (first + count) * kFrames * 2);
}

std::string Fmt(const char* fmt, const void* p) {
    char buf[256];
    std::snprintf(buf, sizeof(buf), fmt, p);
    return buf;
}

tagVOR_AUDIO_REF_IN_RES Sel(int sw, int src, int b2 = 0, int dbg = 0) {
    return {static_cast<uint8_t>(sw), static_cast<uint8_t>(src), static_cast<uint8_t>(b2),
            static_cast<uint8_t>(dbg)};
}

Logged Alg(int level, const char* func, const std::string& m) {
    return {level, func, "Orvane Audio Alg " + m};
}

struct Counter {
    std::atomic<int> frames{0}, lastResult{0}, stopRet{1}, destroyRet{1}, destroyOtherRet{1};
    bool lifecycle = false;  // stream 0's first callback calls Stop and Destroy
};

void CountFrame(void* arg, short result) {
    Counter* c = static_cast<Counter*>(arg);
    c->lastResult = result;
    if (c->lifecycle && c->frames == 0) {
        c->stopRet = AUDIO_ASTREAM_Stop(0);
        c->destroyRet = AUDIO_ASTREAM_Destroy(0);
        c->destroyOtherRet = AUDIO_ASTREAM_Destroy(1);
    }
    c->frames++;
}

class AlgNodeTest : public audiomw_test::AudioTest {
  protected:
    void SetUp() override { qx_script::Reset(); }
    void TearDown() override {
        for (int id : {0, 1}) {
            AUDIO_ASTREAM_Destroy(id);
            astream_test::DropAi(id + 2);
        }
    }
    // File AI `id` + 2 and stream `id` of two workers on it with one algorithm node.
    void StartStream(int id, Counter* c) {
        const std::string path = root.Dir() + "/in" + std::to_string(id) + ".pcm";
        audiomw_test::WriteFileBytes(path, Period(4, 256));
        AI_ATTR_S ai = astream_test::FileAi(path, 4, 256);
        ASTREAM_ATTR_S attr =
            astream_test::StreamAttr(id + 2, 2, {AlgAttr(0, 2, 0, 2, 3, -1, &CountFrame, c)});
        ASSERT_EQ(AUDIO_AI_Create(id + 2, &ai) + AUDIO_ASTREAM_Create(id, &attr) + AUDIO_ASTREAM_Start(id),
                  0);
    }

    // A node on a new stream (AI 0: kChn channels) with mics at 1..2, ref 3, exref 4, allref 5.
    ASTREAM_NODE_S* Node(ASTREAM_NODE_ATTR_S a = AlgAttr(1, 2, 0, 3, 4, 5)) {
        FakeStream& s = streams.emplace_back(kChn, kFrames, static_cast<int>(streams.size()));
        nodes.push_back(astream_test::BuildNode(s, a));
        return nodes.back().get();
    }
    // One period of `in` through the node; returns process's result.
    int Run(ASTREAM_NODE_S* node, Bytes* out = nullptr) {
        Bytes scratch(in.size());
        inPlace = false;
        return node->process(reinterpret_cast<char*>(in.data()),
                             reinterpret_cast<char*>((out ? *out : scratch).data()), inPlace);
    }
    short* BlockAt(int block) { return reinterpret_cast<short*>(in.data() + block * kFrames * 2); }

    AiSlot ai{0, kRate, kChn, kFrames};
    std::list<FakeStream> streams;
    std::vector<std::unique_ptr<ASTREAM_NODE_S>> nodes;
    Bytes in = Period(kChn, kFrames);
    bool inPlace = false;
};

// The first node makes the instance and logs; later nodes share it; it outlives its nodes.
TEST_F(AlgNodeTest, FirstInitMakesTheInstanceLaterNodesShareIt) {
    ASTREAM_NODE_S* node = Node(AlgAttr(1, 2, 1, 3, -1, 5));
    ASSERT_TRUE(node != nullptr && g_OrvaneAlgHandler != nullptr && g_ptrEmptyRefIn != nullptr);
    ASSERT_EQ(qx_script::g.inits.size(), 1u);
    Bytes expect(136, 0);
    const int head[4] = {kRate, kFrames, 2, 1};
    std::memcpy(expect.data(), head, sizeof(head));
    EXPECT_EQ(qx_script::g.inits[0].param, expect);
    EXPECT_EQ(qx_script::g.inits[0].errIn, 0);
    EXPECT_EQ(static_cast<ASTREAM_ORVANE_ALG_NODE_S*>(node)->_mpAlgHandle, g_OrvaneAlgHandler);
    short* empty = g_ptrEmptyRefIn;
    EXPECT_EQ(Bytes(reinterpret_cast<uint8_t*>(empty), reinterpret_cast<uint8_t*>(empty + kFrames)),
              Bytes(kFrames * 2, 0));
    log.ExpectInOrder({Alg(6, "init", "init with rate:16000 frame:32 mic:2+1 "),
                       Alg(6, "init", "use mic at 1, ref-in at 3"),
                       Alg(6, "init", "use exref-in at -1, allref-in at 5"),
                       Alg(6, "init", "version: V1032b"),
                       Alg(6, "init", "init ok"),
                       {6, "AUDIO_ASTREAM_InitPipeline", "ASTREAM[0] add node type[153]"}});
    log.Clear();
    auto* second = static_cast<ASTREAM_ORVANE_ALG_NODE_S*>(Node(AlgAttr(1, 2, 1, 3, -1, 5)));
    EXPECT_EQ(qx_script::g.inits.size(), 1u);
    EXPECT_EQ(second->_mpAlgHandle, g_OrvaneAlgHandler);
    EXPECT_EQ(g_ptrEmptyRefIn, empty);
    EXPECT_EQ((std::vector<Logged>{Alg(6, "init", "version: V1032b"),
                                   Alg(6, "init", "init ok"),
                                   {6, "AUDIO_ASTREAM_InitPipeline", "ASTREAM[1] add node type[153]"}}),
              log.All());
    EXPECT_EQ(node->setCfg(ASTREAM_OUTPUT_ATTR_S{}) + node->destroy(), 0);
    EXPECT_TRUE(log.Has(Alg(6, "destroy", "destroy ok")));
    EXPECT_NE(g_OrvaneAlgHandler, nullptr);
}

// A failed init, mic groups outside the stream and other geometries than the instance's are
// refused: the node is kept and processes nothing; the first fitting node makes the instance.
TEST_F(AlgNodeTest, InitFailuresAndGeometriesThatDoNotFit) {
    const std::string shape = ", the instance has rate:16000 frame:32 mic:2+0";
    const std::string out = ", frame 32, outside 6 channels of ";
    const struct {
        int err, rate, chn, frames;
        ASTREAM_NODE_ATTR_S attr;
        std::string line;
    } cases[] = {
        // clang-format off
        {7, 0, kChn, kFrames, AlgAttr(1, 2, 0, 3, 4, 5), "init failed: 7"},
        {0, 0, kChn, kFrames, AlgAttr(-1, 2, 0, 3, 4, 5), "init refused: mic group 2+0 at -1" + out + "64 bytes"},
        {0, 0, kChn, kFrames, AlgAttr(4, 2, 1, 0, 0, 0), "init refused: mic group 2+1 at 4" + out + "64 bytes"},
        {0, 0, kChn, kFrames, AlgAttr(0, 0, 2, 3, 4, 5), "init refused: mic group 0+2 at 0" + out + "64 bytes"},
        {0, 0, kChn, kFrames, AlgAttr(0, 2, -1, 3, 4, 5), "init refused: mic group 2+-1 at 0" + out + "64 bytes"},
        {0, 0, kChn, 64, AlgAttr(0, 2, 0, 3, 4, 5), "init refused: mic group 2+0 at 0" + out + "128 bytes"},
        {0, kRate, 4, 64, AlgAttr(0, 2, 0, 2, 3, 3), "init refused: rate:16000 frame:64 mic:2+0" + shape},
        {0, 48000, 4, kFrames, AlgAttr(0, 2, 0, 2, 3, 3), "init refused: rate:48000 frame:32 mic:2+0" + shape},
        {0, kRate, 4, kFrames, AlgAttr(0, 3, 0, 3, 3, 3), "init refused: rate:16000 frame:32 mic:3+0" + shape},
        {0, kRate, 4, kFrames, AlgAttr(0, 2, 1, 3, 3, 3), "init refused: rate:16000 frame:32 mic:2+1" + shape},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        if (c.rate != 0 && g_OrvaneAlgHandler == nullptr) {
            EXPECT_EQ(qx_script::g.inits.size(), 1u) << "only the failed init reached the library";
            ASSERT_NE(Node(AlgAttr(0, 2, 0, 3, 4, 5)), nullptr);
            EXPECT_NE(g_OrvaneAlgHandler, nullptr);
        }
        qx_script::g.initErr = c.err;
        log.Clear();
        AiSlot other(1, c.rate != 0 ? c.rate : kRate, c.chn, c.frames);
        FakeStream s(c.chn, static_cast<uint32_t>(c.frames), 1);
        s.h.s32AiId = c.rate != 0 ? 1 : 0;
        auto node = astream_test::BuildNode(s, c.attr);
        ASSERT_NE(node, nullptr);
        EXPECT_TRUE(log.Has(Alg(3, "init", c.line))) << log.Dump();
        EXPECT_FALSE(log.Has(Alg(6, "init", "init ok")));
        EXPECT_EQ(g_ptrEmptyRefIn == nullptr, c.rate == 0);
        in.assign(s.h.u32BufLen, 9);
        EXPECT_EQ(Run(node.get()), -1);
        EXPECT_TRUE(inPlace);
        EXPECT_EQ(in, Bytes(in.size(), 9));
    }
    EXPECT_EQ(qx_script::g.inits.size(), 2u);
    EXPECT_EQ(qx_script::procCount, 0);
}

// The reference block handed over follows the selection; a reference outside the stream falls
// back to silence, warned once per change, or, without the silent block, skips the frame. The
// callback gets its argument and the signed result; a library failure skips it.
TEST_F(AlgNodeTest, ReferenceAndResultFollowTheSelection) {
    struct Seen {
        void* self = nullptr;
        int value = 99, calls = 0;
    } seen;
    auto cb = [](void* arg, short result) {
        *static_cast<Seen*>(arg) = {arg, result, static_cast<Seen*>(arg)->calls + 1};
    };
    ASTREAM_NODE_S* nodes[] = {Node(AlgAttr(1, 2, 0, 3, 4, 5, cb, &seen)),
                               Node(AlgAttr(0, 2, 0, 2, -1, kChn))};
    const std::string skip = " outside 6 channels, no reference: frames skipped";
    const std::string silent = " outside 6 channels, silent reference used";
    const struct {
        int node;
        tagVOR_AUDIO_REF_IN_RES sel;
        bool noSilentBlock;
        int procRet, result, ret, block;  // block: the reference handed over, -1: the silent one, -2: no call
        std::vector<Logged> lines;
    } cases[] = {
        // clang-format off
        {0, Sel(0, 2), false, 0, 0, 0, -1, {}},    {0, Sel(1, 0), false, 0, 1, 0, 3, {}},
        {0, Sel(1, 1), false, 0, -1, 0, 4, {}},    {0, Sel(1, 2), false, 0, 32767, 0, 5, {}},
        {0, Sel(1, 9), false, 0, -32768, 0, 3, {}}, {0, Sel(1, 2, 1), false, 0, 7, 0, 5, {}},  // byte 2 is not read
        {0, Sel(1, 0), false, -5, 1, -1, 3, {Alg(3, "process", "failed: -5")}},
        {1, Sel(1, 1), false, 0, 0, 0, -1, {Alg(4, "process", "ref-in at -1" + silent)}},
        {1, Sel(1, 1), false, 0, 0, 0, -1, {}},
        {1, Sel(1, 2), false, 0, 0, 0, -1, {Alg(4, "process", "ref-in at 6" + silent)}},
        {1, Sel(1, 0), false, 0, 0, 0, 2, {}},
        {1, Sel(1, 1), false, 0, 0, 0, -1, {Alg(4, "process", "ref-in at -1" + silent)}},
        {1, Sel(0, 0), true, 0, 0, 0, 2, {}},  // switch 0 keeps the selected block
        {1, Sel(1, 1), true, 0, 0, -1, -2, {Alg(3, "process", "ref-in at -1" + skip)}},
        // clang-format on
    };
    short* const silentBlock = g_ptrEmptyRefIn;
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "row " << &c - cases);
        qx_script::Reset();
        EXPECT_EQ(AUDIO_ALG_SetRefInParam(c.sel), 0);
        log.Clear();
        qx_script::g.procRet = c.procRet;
        qx_script::g.procResult = static_cast<short>(c.result);
        g_ptrEmptyRefIn = c.noSilentBlock ? nullptr : silentBlock;  // as after a failed allocation
        const int calls = seen.calls;
        Bytes out(in.size(), 0x7A);
        EXPECT_EQ(Run(nodes[c.node], &out), c.ret);
        g_ptrEmptyRefIn = silentBlock;
        EXPECT_TRUE(inPlace);
        EXPECT_EQ(log.All(), c.lines);
        EXPECT_EQ(in, Period(kChn, kFrames));
        const bool called = c.node == 0 && c.ret == 0;
        EXPECT_EQ((std::vector<int>{called ? c.result : seen.value, calls + called}),
                  (std::vector<int>{seen.value, seen.calls}));
        EXPECT_EQ(seen.self, &seen);
        ASSERT_EQ(qx_script::g.procs.size(), c.block == -2 ? 0u : 1u);
        if (c.block == -2)
            continue;
        const qx_script::ProcCall& call = qx_script::g.procs[0];
        const int mic = c.node == 0 ? 1 : 0;
        EXPECT_EQ(call.handle, g_OrvaneAlgHandler);
        EXPECT_EQ(call.mic, BlockAt(mic));
        EXPECT_EQ(call.micBytes, Blocks(in, mic, 2));
        EXPECT_EQ(call.out, reinterpret_cast<short*>(out.data()));
        EXPECT_EQ(call.resultIn, 0);
        EXPECT_EQ(call.ref, c.block < 0 ? silentBlock : BlockAt(c.block));
        EXPECT_EQ(call.refBytes, c.block < 0 ? Bytes(kFrames * 2, 0) : Blocks(in, c.block));
        EXPECT_EQ(Bytes(out.begin(), out.begin() + kFrames * 2), Blocks(in, mic)) << "the library's output";
    }
}

// Selections are logged; debug level 1 logs the reference once, level 2 prints every frame.
TEST_F(AlgNodeTest, SelectionLogsAndDebugReports) {
    ASTREAM_NODE_S* node = Node();
    EXPECT_EQ(AUDIO_ALG_SetRefInParam(Sel(1, 2)) + AUDIO_ALG_SetRefInParam(Sel(0, 1, 9, 1)), 0);
    log.ExpectInOrder({{7, "AUDIO_ALG_SetRefInParam", "Old Refin: Switch 0, Source 0; New Refin: 1, 2 \n"},
                       {7, "AUDIO_ALG_SetRefInParam", "dbglevel 0 \n"},
                       {7, "AUDIO_ALG_SetRefInParam", "Old Refin: Switch 1, Source 2; New Refin: 0, 1 \n"},
                       {7, "AUDIO_ALG_SetRefInParam", "dbglevel 1 \n"}});
    EXPECT_EQ((std::vector<int>{1, 2, 0}), (std::vector<int>{g_stRefInParam.u8Switch, g_stRefInParam.u8Source,
                                                             g_stRefInParam.u8DbgLevel}));
    Run(node);
    Run(node);
    const Logged once{
        6, "process",
        Fmt("RefInOffset: 5, Switch: 1, Source:2, chnsize:64, EmpytRefin:%p \n", g_ptrEmptyRefIn)};
    EXPECT_EQ(log.Count(once), 1) << log.Dump();
    AUDIO_ALG_SetRefInParam(Sel(0, 0, 0, 2));
    audiomw_test::StdoutCapture cap;
    for (int i = 0; i < 3; i++)
        Run(node);
    AUDIO_ALG_SetRefInParam(Sel(1, 2));
    Run(node);
    const std::string line =
        Fmt("RefInOffset: 5, Switch: 1, Source:2 chnsize:64, EmpytRefin:%p \n", g_ptrEmptyRefIn);
    EXPECT_EQ(cap.Stop(), line + line + line);
    EXPECT_EQ(log.Count(once), 1);
}

// The marker dumps the real reference block only; removing it closes the file.
TEST_F(AlgNodeTest, ReferenceDumpFollowsTheMarkerOnTheRealReferencePathOnly) {
    ASTREAM_NODE_S* node = Node();
    const std::string dump = root.Path("/tmp/refin_test.pcm");
    root.SetMarker("/tmp/refinsave");
    Run(node);
    EXPECT_FALSE(audiomw_test::FileExists(dump));
    AUDIO_ALG_SetRefInParam(Sel(1, 1));
    Run(node);
    Run(node);
    Bytes twice = Blocks(in, 4, 1);
    twice.insert(twice.end(), twice.begin(), twice.end());
    EXPECT_EQ(audiomw_test::ReadFileBytes(dump), twice);
    root.SetMarker("/tmp/refinsave", false);
    Run(node);
    EXPECT_EQ(audiomw_test::ReadFileBytes(dump), twice);
    root.SetMarker("/tmp/refinsave");
    AUDIO_ALG_SetRefInParam(Sel(1, 0));
    Run(node);
    EXPECT_EQ(audiomw_test::ReadFileBytes(dump), Blocks(in, 3));
}

TEST_F(AlgNodeTest, GetVersionParsesNumberAndFixLetter) {
    unsigned ver = 11, fix = 22;
    EXPECT_EQ(AUDIO_ALG_GetVersion(&ver, &fix), -1) << "no instance yet";
    Node();
    const struct {
        const char* text;
        int ret;
        unsigned ver, fix;
        std::vector<Logged> lines;
    } cases[] = {
        {"V1032b", 0, 1032, 'b', {{6, "AUDIO_ALG_GetVersion", "s32Ver: 1032, s32Fix: b \n"}}},
        {"V1032", 0, 1032, ' ', {{6, "AUDIO_ALG_GetVersion", "s32Ver: 1032, s32Fix:   \n"}}},
        {"R7Z", 0, 7, 'Z', {{6, "AUDIO_ALG_GetVersion", "s32Ver: 7, s32Fix: Z \n"}}},
        {"V1032-", 0, 1032, ' ', {{6, "AUDIO_ALG_GetVersion", "s32Ver: 1032, s32Fix:   \n"}}},
        {"", -1, 11, 22, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        log.Clear();
        qx_script::g.version = c.text;
        ver = 11, fix = 22;
        EXPECT_EQ(AUDIO_ALG_GetVersion(&ver, &fix), c.ret);
        EXPECT_EQ((std::vector<unsigned>{c.ver, c.fix}), (std::vector<unsigned>{ver, fix}));
        EXPECT_EQ(log.All(), c.lines);
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
    Node();
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
    ASTREAM_NODE_S* n[] = {Node(AlgAttr(1, 2, 0, 3, 4, 5, cb)), Node(AlgAttr(1, 2, 0, 3, 4, 5, cb))};
    qx_script::g.recording = false;
    qx_script::g.yields = 20;
    constexpr int kEach = 200;
    auto runner = [&](ASTREAM_NODE_S* node) {
        Bytes period = Period(kChn, kFrames), out(period.size());
        for (int i = 0; i < kEach; i++) {
            pthread_mutex_lock(&node->_mMutex);
            bool done = false;
            node->process(reinterpret_cast<char*>(period.data()), reinterpret_cast<char*>(out.data()), done);
            pthread_mutex_unlock(&node->_mMutex);
        }
    };
    std::atomic<bool> stop{false};
    std::thread selector([&] {
        for (uint8_t i = 0; !stop; i++) {
            AUDIO_ALG_SetRefInParam(Sel(i & 1, i % 3, 0, i % 7 == 0));
            std::this_thread::yield();
        }
    });
    std::thread t0(runner, n[0]), t1(runner, n[1]);
    t0.join();
    t1.join();
    stop = true;
    selector.join();
    EXPECT_EQ(qx_script::procCount, 2 * kEach);
    EXPECT_EQ(qx_script::maxInside, 1);
    EXPECT_EQ(qx_script::g.micVolCalls, 2 * kEach);
}

// Stop and Destroy called from the callback on a worker are refused and both streams run on;
// a pool that will not end keeps its stream, stopped, in its slot.
TEST_F(AlgNodeTest, LifecycleCallsFromTheCallbackAndAPoolThatWillNotEnd) {
    qx_script::g.recording = false;
    qx_script::g.procResult = -2;
    Counter c0, c1;
    c0.lifecycle = true;
    StartStream(1, &c1);  // stream 1 exists when stream 0's first callback runs
    StartStream(0, &c0);
    ASSERT_TRUE(WaitFor([&] { return c0.frames >= 5; }));
    EXPECT_EQ(c0.lastResult, -2);
    EXPECT_EQ((std::vector<int>{-1, -1, -1}),
              (std::vector<int>{c0.stopRet, c0.destroyRet, c0.destroyOtherRet}));
    const std::string tail = " called on a worker of ASTREAM[0], call it from a control thread";
    EXPECT_TRUE(log.Has(
        {3, "AUDIO_ASTREAM_Stop",
         "ASTREAM[0] stop refused: called on a worker of the stream, call it from a control thread"}));
    EXPECT_TRUE(log.Has({3, "AUDIO_ASTREAM_Destroy", "ASTREAM[0] destroy refused:" + tail}));
    EXPECT_TRUE(log.Has({3, "AUDIO_ASTREAM_Destroy", "ASTREAM[1] destroy refused:" + tail}));
    EXPECT_EQ(AUDIO_ASTREAM_isRunning(0) + AUDIO_ASTREAM_isRunning(1), 2);
    const int before = c1.frames;
    EXPECT_TRUE(WaitFor([&] { return c1.frames > before + 5; })) << "stream 1 keeps running";
    ASSERT_EQ(AUDIO_ASTREAM_Stop(0), 0);  // the reader uses the pool
    ASTREAM_HANDLER_S* h = gs_AstreamHandler[0];
    ZN_PF_HANDLER_S* pool = h->pstWorkerPool;
    h->pstWorkerPool = nullptr;  // a pool the host refuses to destroy
    EXPECT_EQ(AUDIO_ASTREAM_Destroy(0), -1);
    EXPECT_TRUE(log.Has({3, "AUDIO_ASTREAM_Destroy", "ASTREAM[0] worker pool not stopped, stream kept"}));
    EXPECT_FALSE(log.Has({6, "AUDIO_ASTREAM_Destroy", "ASTREAM[0] destroyed\n"}));
    ASSERT_EQ(gs_AstreamHandler[0], h) << "back in its slot, stopped";
    EXPECT_EQ(AUDIO_ASTREAM_isRunning(0), 0);
    h->pstWorkerPool = pool;
    EXPECT_EQ(AUDIO_ASTREAM_Destroy(0) + AUDIO_ASTREAM_Destroy(1), 0);
    EXPECT_TRUE(log.Has({6, "AUDIO_ASTREAM_Destroy", "ASTREAM[0] destroyed\n"}));
    EXPECT_TRUE(log.Has(Alg(6, "destroy", "destroy ok")));
}

}  // namespace

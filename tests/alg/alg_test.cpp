// The algorithm node and the AUDIO_ALG_* functions against the scripted library, alone and in
// running streams.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <list>
#include <string>
#include <thread>

#include "alloc/alloc_counter.h"
#include "astream_test_util.h"
#include "audio_alg.h"
#include "audio_config.h"
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

// A stream's frame callback: counts frames and runs what the test posts on the worker.
struct Counter {
    std::atomic<int> frames{0}, posted{0};
    std::mutex mtx;
    std::function<int()> action;  // run by the next callback, or by every one while `repeat`
    bool repeat = false;
    int ret = 0;
};

void CountFrame(void* arg, short) {
    Counter* c = static_cast<Counter*>(arg);
    {
        std::lock_guard<std::mutex> lk(c->mtx);
        if (c->action) {
            c->ret = c->action();
            if (!c->repeat)
                c->action = nullptr;
            c->posted++;
        }
    }
    c->frames++;
}

// Runs `f` in the callback on a worker of c's stream; its result. Repeating: returns once it ran twice.
int OnWorker(Counter& c, std::function<int()> f, bool repeat = false) {
    int from;
    {
        std::lock_guard<std::mutex> lk(c.mtx);
        c.action = std::move(f);
        c.repeat = repeat;
        from = c.posted;
    }
    EXPECT_TRUE(WaitFor([&] { return c.posted >= from + (repeat ? 2 : 1); }));
    std::lock_guard<std::mutex> lk(c.mtx);
    return c.ret;
}

class AlgNodeTest : public audiomw_test::AudioTest {
  protected:
    // Every case starts as a new process would: no instance, no silent block, no selection
    // or report pending, a zero microphone state.
    void SetUp() override {
        qx_script::Reset();
        qx_script::ForgetInstances();
        g_OrvaneAlgHandler = nullptr;
        AUDIO_ALG_SetRefInParam(Sel(0, 0));
        float* state = nullptr;
        AUDIO_ALG_GetMicTestState(&state, ZN_FALSE);
        std::fill(state, state + AUDIO_ALG_MIC_STATE_NUM, 0.0f);
        log.Clear();
    }
    void TearDown() override {
        for (int id : {0, 1}) {
            AUDIO_ASTREAM_Destroy(id);
            astream_test::DropAi(id + 2);
        }
        std::free(g_ptrEmptyRefIn);
        g_ptrEmptyRefIn = nullptr;
        g_OrvaneAlgHandler = nullptr;
    }
    // File AI `id` + 2 and stream `id` of two workers on it: an algorithm node refused at init
    // (microphones outside the stream), then one whose callback is counter[id]'s.
    void StartStream(int id) {
        const std::string path = root.Dir() + "/in" + std::to_string(id) + ".pcm";
        audiomw_test::WriteFileBytes(path, Period(4, 256));
        AI_ATTR_S ai = astream_test::FileAi(path, 4, 256);
        ASTREAM_ATTR_S attr = astream_test::StreamAttr(
            id + 2, 2, {AlgAttr(3, 2, 0, 0, 0, 0), AlgAttr(0, 2, 0, 2, 3, -1, &CountFrame, &counter[id])});
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
    Counter counter[2];  // outlives the streams, which TearDown destroys
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
    EXPECT_EQ(node->_mbEnable, ZN_TRUE);
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
// refused: the node is kept, disabled, and processes nothing; the first fitting node makes the
// instance.
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
        EXPECT_EQ(node->_mbEnable, ZN_FALSE) << "the workers skip it";
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
// back to silence, warned once per change. The callback gets its argument and the signed result;
// a library failure skips it.
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
    const std::string silent = " outside 6 channels, silent reference used";
    const struct {
        int node;
        tagVOR_AUDIO_REF_IN_RES sel;
        int procRet, result, ret, block;  // block: the reference handed over, -1: the silent one
        std::vector<Logged> lines;
    } cases[] = {
        // clang-format off
        {0, Sel(0, 2), 0, 0, 0, -1, {}},    {0, Sel(1, 0), 0, 1, 0, 3, {}},
        {0, Sel(1, 1), 0, -1, 0, 4, {}},    {0, Sel(1, 2), 0, 32767, 0, 5, {}},
        {0, Sel(1, 9), 0, -32768, 0, 3, {}}, {0, Sel(1, 2, 1), 0, 7, 0, 5, {}},  // byte 2 is not read
        {0, Sel(1, 0), -5, 1, -1, 3, {Alg(3, "process", "failed: -5")}},
        {1, Sel(1, 1), 0, 0, 0, -1, {Alg(4, "process", "ref-in at -1" + silent)}},
        {1, Sel(1, 1), 0, 0, 0, -1, {}},
        {1, Sel(1, 2), 0, 0, 0, -1, {Alg(4, "process", "ref-in at 6" + silent)}},
        {1, Sel(1, 0), 0, 0, 0, 2, {}},
        {1, Sel(1, 1), 0, 0, 0, -1, {Alg(4, "process", "ref-in at -1" + silent)}},
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
        const int calls = seen.calls;
        Bytes out(in.size(), 0x7A);
        EXPECT_EQ(Run(nodes[c.node], &out), c.ret);
        EXPECT_TRUE(inPlace);
        EXPECT_EQ(log.All(), c.lines);
        EXPECT_EQ(in, Period(kChn, kFrames));
        const bool called = c.node == 0 && c.ret == 0;
        EXPECT_EQ((std::vector<int>{called ? c.result : seen.value, calls + called}),
                  (std::vector<int>{seen.value, seen.calls}));
        EXPECT_EQ(seen.self, &seen);
        ASSERT_EQ(qx_script::g.procs.size(), 1u);
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

// Selections are logged; debug level 1 logs the reference once, level 2 prints every frame; a
// node refused at init reports nothing and leaves a pending report to a node that runs.
TEST_F(AlgNodeTest, SelectionLogsAndDebugReports) {
    ASTREAM_NODE_S* node = Node();
    ASTREAM_NODE_S* refused = Node(AlgAttr(5, 2, 0, 3, 4, 1));
    EXPECT_EQ(AUDIO_ALG_SetRefInParam(Sel(1, 2)) + AUDIO_ALG_SetRefInParam(Sel(0, 1, 9, 1)), 0);
    log.ExpectInOrder({{7, "AUDIO_ALG_SetRefInParam", "Old Refin: Switch 0, Source 0; New Refin: 1, 2 \n"},
                       {7, "AUDIO_ALG_SetRefInParam", "dbglevel 0 \n"},
                       {7, "AUDIO_ALG_SetRefInParam", "Old Refin: Switch 1, Source 2; New Refin: 0, 1 \n"},
                       {7, "AUDIO_ALG_SetRefInParam", "dbglevel 1 \n"}});
    EXPECT_EQ((std::vector<int>{1, 2, 0}), (std::vector<int>{g_stRefInParam.u8Switch, g_stRefInParam.u8Source,
                                                             g_stRefInParam.u8DbgLevel}));
    log.Clear();
    for (ASTREAM_NODE_S* n : {refused, node, refused, node})
        Run(n);
    const Logged once{
        6, "process",
        Fmt("RefInOffset: 5, Switch: 1, Source:2, chnsize:64, EmpytRefin:%p \n", g_ptrEmptyRefIn)};
    EXPECT_EQ(log.All(), std::vector<Logged>{once});
    AUDIO_ALG_SetRefInParam(Sel(0, 0, 0, 2));
    audiomw_test::StdoutCapture cap;
    for (int i = 0; i < 3; i++)
        Run(node), Run(refused);
    AUDIO_ALG_SetRefInParam(Sel(1, 2));
    Run(node);
    const std::string line =
        Fmt("RefInOffset: 5, Switch: 1, Source:2 chnsize:64, EmpytRefin:%p \n", g_ptrEmptyRefIn);
    EXPECT_EQ(cap.Stop(), line + line + line);
    EXPECT_EQ(log.Count(once), 1);
}

// A silent block that cannot be allocated: init goes on; switch 0 then hands over the selected
// block, and a selection outside the stream skips the frame.
TEST_F(AlgNodeTest, SilentReferenceThatCannotBeAllocated) {
    constexpr int kOdd = 333;  // a block size nothing else allocates
    if (!audiomw_test::AllocFailNext(kOdd * 2))
        GTEST_SKIP() << "the sanitizer's allocator cannot be made to fail";
    AiSlot odd(1, kRate, kChn, kOdd);
    FakeStream s(kChn, kOdd, 1);
    s.h.s32AiId = 1;
    auto node = astream_test::BuildNode(s, AlgAttr(1, 2, 0, 3, -1, 5));
    ASSERT_TRUE(node != nullptr && g_OrvaneAlgHandler != nullptr);
    log.ExpectInOrder({Alg(3, "init", "init EmptyRefIn [666] fail\n"), Alg(6, "init", "init ok")});
    EXPECT_EQ(g_ptrEmptyRefIn, nullptr);
    in = Period(kChn, kOdd);
    const struct {
        tagVOR_AUDIO_REF_IN_RES sel;
        int ret, block;  // block: the reference handed over, -1: no call
        std::vector<Logged> lines;
    } cases[] = {
        {Sel(0, 0), 0, 3, {}},
        {Sel(0, 2), 0, 5, {}},
        {Sel(1, 1),
         -1,
         -1,
         {Alg(3, "process", "ref-in at -1 outside 6 channels, no reference: frames skipped")}},
        {Sel(0, 1), -1, -1, {}},  // warned once per selection
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "row " << &c - cases);
        qx_script::Reset();
        AUDIO_ALG_SetRefInParam(c.sel);
        log.Clear();
        EXPECT_EQ(Run(node.get()), c.ret);
        EXPECT_EQ(log.All(), c.lines);
        ASSERT_EQ(qx_script::g.procs.size(), c.block < 0 ? 0u : 1u);
        if (c.block >= 0) {
            const uint8_t* ref = in.data() + c.block * kOdd * 2;
            EXPECT_EQ(qx_script::g.procs[0].ref, reinterpret_cast<const short*>(ref));
            EXPECT_EQ(qx_script::g.procs[0].refBytes, Bytes(ref, ref + kOdd * 2));
        }
    }
}

// The marker dumps the real reference block only; removing it closes the file, and a dump file
// that cannot be opened costs that frame's dump only.
TEST_F(AlgNodeTest, ReferenceDumpFollowsTheMarkerOnTheRealReferencePathOnly) {
    ASTREAM_NODE_S* node = Node();
    const std::string dump = root.Path("/tmp/refin_test.pcm");
    const Bytes b3 = Blocks(in, 3), b4 = Blocks(in, 4);
    Bytes b44 = b4;
    b44.insert(b44.end(), b4.begin(), b4.end());
    const struct {
        bool marker, dumpIsDir;
        tagVOR_AUDIO_REF_IN_RES sel;
        Bytes file;  // the dump's content; empty: no file
    } steps[] = {
        {true, false, Sel(0, 1), {}},  // the silent reference is not dumped
        {true, false, Sel(1, 1), b4},   {true, false, Sel(1, 1), b44},
        {false, false, Sel(1, 1), b44},  // closed, kept
        {true, true, Sel(1, 0), {}},     // cannot be opened
        {true, false, Sel(1, 0), b3},    // a new dump starts empty
        {false, false, Sel(1, 0), b3},
    };
    for (const auto& c : steps) {
        SCOPED_TRACE(testing::Message() << "step " << &c - steps);
        root.SetMarker("/tmp/refinsave", c.marker);
        if (c.dumpIsDir) {
            std::remove(dump.c_str());
            ASSERT_EQ(mkdir(dump.c_str(), 0700), 0);
        }
        AUDIO_ALG_SetRefInParam(c.sel);
        qx_script::Reset();
        EXPECT_EQ(Run(node), 0);
        EXPECT_EQ(qx_script::g.procs.size(), 1u) << "processing unaffected";
        if (c.dumpIsDir) {
            EXPECT_EQ(rmdir(dump.c_str()), 0) << "still the directory";
        } else {
            EXPECT_EQ(audiomw_test::FileExists(dump) ? audiomw_test::ReadFileBytes(dump) : Bytes(), c.file);
        }
    }
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

// A node whose init failed reports nothing, also while another stream's first init makes the
// silent block that the report names.
TEST_F(AlgNodeTest, AFailedNodeReportsNothingWhileAnotherMakesTheInstance) {
    qx_script::g.initErr = 7;
    ASTREAM_NODE_S* failed = Node();
    qx_script::g.initErr = 0;
    AUDIO_ALG_SetRefInParam(Sel(0, 0, 0, 2));
    audiomw_test::StdoutCapture cap;
    std::atomic<int> runs{0}, wrong{0};
    std::atomic<bool> made{false};
    std::thread worker([&] {
        Bytes period = Period(kChn, kFrames), out(period.size());
        for (bool last = false; !last; runs++) {
            last = made;
            bool done = false;
            char* pIn = reinterpret_cast<char*>(period.data());
            wrong += failed->process(pIn, reinterpret_cast<char*>(out.data()), done) != -1;
        }
    });
    EXPECT_TRUE(WaitFor([&] { return runs > 0; }));
    EXPECT_NE(Node(), nullptr);
    made = true;
    worker.join();
    EXPECT_EQ(cap.Stop(), "");
    EXPECT_EQ(wrong, 0);
}

// Two running streams share the instance while a thread changes the selection and the callbacks
// fetch the microphone state: library calls never overlap, every frame reaches its callback, and
// the nodes refused at init are skipped without a failure report per frame.
TEST_F(AlgNodeTest, TwoStreamsShareTheInstanceWhileTheSelectionChanges) {
    qx_script::g.recording = false;
    qx_script::g.yields = 20;
    Counter* c = counter;
    audiomw_test::StdoutCapture cap;
    for (int id : {0, 1}) {
        StartStream(id);
        OnWorker(
            c[id],
            [] {
                float* st = nullptr;
                return AUDIO_ALG_GetMicTestState(&st, ZN_FALSE);
            },
            true);
    }
    std::atomic<bool> stop{false};
    std::atomic<int> selections{0};
    std::thread selector([&] {
        for (uint8_t i = 0; !stop; i++, selections++) {
            AUDIO_ALG_SetRefInParam(Sel(i & 1, i % 3, 0, i % 5 == 0 ? i % 3 : 0));
            std::this_thread::yield();
        }
    });
    EXPECT_TRUE(WaitFor([&] { return c[0].frames >= 60 && c[1].frames >= 60 && selections > 60; },
                        std::chrono::seconds(60)));
    stop = true;
    selector.join();
    EXPECT_EQ(
        gs_AstreamHandler[0]->lstNode.front()->_mbEnable + gs_AstreamHandler[1]->lstNode.front()->_mbEnable,
        0);
    EXPECT_EQ(AUDIO_ASTREAM_Destroy(0) + AUDIO_ASTREAM_Destroy(1), 0);
    const std::string out = cap.Stop();
    EXPECT_EQ(out.find("] failed"), std::string::npos);
    EXPECT_EQ(qx_script::maxInside, 1);
    EXPECT_EQ(qx_script::procCount, c[0].frames + c[1].frames);
    EXPECT_EQ(qx_script::g.micVolCalls, c[0].posted + c[1].posted);
}

// From the callback on a worker, the calls that would take a stream down under its workers are
// refused before any effect, and both streams run on with their AIs; a worker may stop the other
// stream, also while the control thread destroys it, and switch an empty slot.
TEST_F(AlgNodeTest, CallsFromTheCallbackOnAWorker) {
    qx_script::g.recording = false;
    Counter &c0 = counter[0], &c1 = counter[1];
    StartStream(1);
    StartStream(0);
    tagASTREAM_XML_CFG_S wake{};
    std::strcpy(wake.acName, "Wake");
    wake.stAttr = astream_test::StreamAttr(3, 2, {AlgAttr(0, 2, 0, 2, 3, -1, &CountFrame, &c1)});
    for (int ai : {2, 3})  // disabled records: applied, they would stop the streams' reads
        wake.lstAiAdj.push_back({ai, astream_test::FileAi(root.Dir() + "/in0.pcm", 4, 256)});
    const std::string tail = ", call it from a control thread";
    const std::string onWorker0 = ": called on a worker of ASTREAM[0]";
    const struct {
        std::function<int()> call;
        Logged line;
    } refused[] = {
        {[&] { return AUDIO_ASTREAM_SwitchToConfig(0, wake); },
         {3, "AUDIO_ASTREAM_SwitchToConfig",
          "ASTREAM[0] switch refused" + onWorker0 + " while the slot holds a stream" + tail}},
        {[&] { return AUDIO_ASTREAM_SwitchToConfig(1, wake); },
         {3, "AUDIO_ASTREAM_SwitchToConfig",
          "ASTREAM[1] switch refused" + onWorker0 + " while the slot holds a stream" + tail}},
        {[] { return AUDIO_ASTREAM_Stop(0); },
         {3, "AUDIO_ASTREAM_Stop", "ASTREAM[0] stop refused: called on a worker of the stream" + tail}},
        {[] { return AUDIO_ASTREAM_Destroy(0); },
         {3, "AUDIO_ASTREAM_Destroy", "ASTREAM[0] destroy refused" + onWorker0 + tail}},
        {[] { return AUDIO_ASTREAM_Destroy(1); },
         {3, "AUDIO_ASTREAM_Destroy", "ASTREAM[1] destroy refused" + onWorker0 + tail}},
        {[] { return AUDIO_ASTREAM_DestroyPipeline(gs_AstreamHandler[0]); },
         {3, "AUDIO_ASTREAM_DestroyPipeline", "ASTREAM[0] pipeline destroy refused" + onWorker0 + tail}},
    };
    for (const auto& r : refused) {
        SCOPED_TRACE(r.line.message);
        log.Clear();
        EXPECT_EQ(OnWorker(c0, r.call), -1);
        std::vector<Logged> warnings;  // but the readers' (a worker holds a buffer while it calls)
        for (const Logged& l : log.All())
            if (l.level <= 4 && l.func != "threadAudioProcessReader")
                warnings.push_back(l);
        EXPECT_EQ(warnings, std::vector<Logged>{r.line}) << log.Dump();
        EXPECT_EQ((std::vector<int>{1, 1, 1, 1}),
                  (std::vector<int>{AUDIO_ASTREAM_isRunning(0), AUDIO_ASTREAM_isRunning(1),
                                    AUDIO_AI_isEnabled(2), AUDIO_AI_isEnabled(3)}));
        for (Counter* c : {&c0, &c1}) {
            const int before = c->frames;
            EXPECT_TRUE(WaitFor([&] { return c->frames > before + 3; })) << "runs on";
        }
    }
    EXPECT_EQ(OnWorker(c0, [] { return AUDIO_ASTREAM_Stop(1); }), 0);
    EXPECT_TRUE(log.Has({6, "AUDIO_ASTREAM_Stop", "ASTREAM[1] stopped"}));
    EXPECT_EQ(AUDIO_ASTREAM_isRunning(1), 0);
    OnWorker(
        c0, [] { return AUDIO_ASTREAM_Stop(1); }, true);  // on every frame from now on
    EXPECT_EQ(AUDIO_ASTREAM_Destroy(1), 0);
    EXPECT_TRUE(log.Has({6, "AUDIO_ASTREAM_Destroy", "ASTREAM[1] destroyed\n"}));
    EXPECT_EQ(OnWorker(c0, [] { return AUDIO_ASTREAM_Stop(1); }), -1);
    EXPECT_TRUE(log.Has({3, "AUDIO_ASTREAM_Stop", "ASTREAM[1] not created"}));
    wake.lstAiAdj.pop_front();  // AI 3 only: the slot's own input
    const int before = c1.frames;
    EXPECT_EQ(OnWorker(c0, [&] { return AUDIO_ASTREAM_SwitchToConfig(1, wake); }), 0);
    EXPECT_TRUE(log.Has({6, "AUDIO_ASTREAM_SwitchToConfig", "Switch ASTREAM[1] for Config[Wake] success"}));
    EXPECT_TRUE(WaitFor([&] { return c1.frames > before + 3; })) << "the switched stream runs";
}

// A pool the host will not end keeps its stream, stopped, in its slot for a later Destroy.
TEST_F(AlgNodeTest, APoolThatWillNotEndKeepsItsStream) {
    StartStream(0);
    ASSERT_EQ(AUDIO_ASTREAM_Stop(0), 0);  // the reader uses the pool
    ASTREAM_HANDLER_S* h = gs_AstreamHandler[0];
    ZN_PF_HANDLER_S* pool = h->pstWorkerPool;
    h->pstWorkerPool = nullptr;
    EXPECT_EQ(AUDIO_ASTREAM_Destroy(0), -1);
    EXPECT_TRUE(log.Has({3, "AUDIO_ASTREAM_Destroy", "ASTREAM[0] worker pool not stopped, stream kept"}));
    EXPECT_FALSE(log.Has({6, "AUDIO_ASTREAM_Destroy", "ASTREAM[0] destroyed\n"}));
    ASSERT_EQ(gs_AstreamHandler[0], h) << "back in its slot, stopped";
    EXPECT_EQ(AUDIO_ASTREAM_isRunning(0), 0);
    h->pstWorkerPool = pool;
    EXPECT_EQ(AUDIO_ASTREAM_Destroy(0), 0);
    EXPECT_TRUE(log.Has({6, "AUDIO_ASTREAM_Destroy", "ASTREAM[0] destroyed\n"}));
    EXPECT_TRUE(log.Has(Alg(6, "destroy", "destroy ok")));
}

}  // namespace

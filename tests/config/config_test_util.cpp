#include "config_test_util.h"

#include <algorithm>

std::ostream& operator<<(std::ostream& os, const AI_ATTR_S& a) {
    os << "{type " << static_cast<int>(a.eType) << " dev";
    for (int w = 0; w < 10; w++) {
        int v = 0;
        std::memcpy(&v, reinterpret_cast<const char*>(&a.stAlsaDev) + 4 * w, 4);
        os << " " << v;
    }
    return os << " en " << a.bEnable << " rate " << a.eSampleRate << " ch " << a.s32Channel << " frames "
              << a.s32FrameLen << " vol " << a.s32Volume << " linein " << a.bLineInConnect << "}";
}

std::ostream& operator<<(std::ostream& os, const AO_ATTR_S& a) {
    return os << "{type " << a.eType << " card " << a.stAlsaDev.s32CardId << " dev " << a.stAlsaDev.s32DevId
              << " hw " << a.stAlsaDev.u32HwRate << " en " << a.bEnable << " rate " << a.eSampleRate << " ch "
              << a.s32Channel << " frames " << a.s32FrameSize << " vol " << a.s32Volume << " mute " << a.bMute
              << "}";
}

std::ostream& operator<<(std::ostream& os, const tagAI_XML_CFG_S& r) {
    return os << "AI id " << r.s32Id << " name \"" << config_test::Name(r.acName) << "\" " << r.stAttr;
}

std::ostream& operator<<(std::ostream& os, const tagAO_XML_CFG_S& r) {
    return os << "AO id " << r.s32Id << " name \"" << config_test::Name(r.acName) << "\" " << r.stAttr;
}

std::ostream& operator<<(std::ostream& os, const ASTREAM_NODE_ATTR_S& n) {
    os << "node type " << n.eType << " words";
    const int* p = reinterpret_cast<const int*>(&n.unAttr);
    for (size_t i = 0; i < sizeof(n.unAttr) / 4; i++) {
        os << " " << p[i];
    }
    return os;
}

namespace config_test {

namespace {

template <typename T>
void ExpectSame(const std::vector<T>& want, const std::list<T>& got) {
    ASSERT_EQ(want.size(), got.size());
    size_t i = 0;
    for (const T& g : got) {
        EXPECT_TRUE(SameBytes(want[i], g)) << "record " << i << "\n  want " << want[i] << "\n  got  " << g;
        i++;
    }
}

}  // namespace

void ExpectRecords(const std::vector<tagAI_XML_CFG_S>& want, const std::list<tagAI_XML_CFG_S>& got) {
    ExpectSame(want, got);
}

void ExpectRecords(const std::vector<tagAO_XML_CFG_S>& want, const std::list<tagAO_XML_CFG_S>& got) {
    ExpectSame(want, got);
}

void ExpectNodes(const std::vector<ASTREAM_NODE_ATTR_S>& want, const std::list<ASTREAM_NODE_ATTR_S>& got) {
    ExpectSame(want, got);
}

void ExpectInOrder(const audiomw_test::LogCapture& log, const std::vector<Logged>& want) {
    int from = 0;
    for (const Logged& w : want) {
        int at = log.IndexOf(w, from);
        EXPECT_GE(at, 0) << "missing (in order): " << w << "\nlogged:\n" << log.Dump();
        from = at < 0 ? from : at + 1;
    }
}

void ExpectWarnings(const audiomw_test::LogCapture& log, const std::vector<Logged>& want) {
    ExpectInOrder(log, want);
    size_t problems = 0;
    for (const auto& l : log.Lines()) {
        problems += (l.level <= UTIL_LOG_WARN) ? 1 : 0;
    }
    size_t wanted = static_cast<size_t>(
        std::count_if(want.begin(), want.end(), [](const Logged& w) { return w.level <= UTIL_LOG_WARN; }));
    EXPECT_EQ(wanted, problems) << "warnings and errors logged:\n" << log.Dump();
}

namespace {

ASTREAM_NODE_ATTR_S Node(ASTREAM_NODE_TYPE_E type) {
    ASTREAM_NODE_ATTR_S n;
    std::memset(&n, 0, sizeof(n));
    n.eType = type;
    return n;
}

}  // namespace

ASTREAM_NODE_ATTR_S OutputNode(int ao, int off, int cnt, int source, int dumpFrames) {
    ASTREAM_NODE_ATTR_S n = Node(ASTREAM_NODE_TYPE_E_OUTPUT);
    n.unAttr.stOutput = {ao, off, cnt, source, ZN_FALSE, dumpFrames};
    return n;
}

ASTREAM_NODE_ATTR_S SwapNode(const std::vector<int>& map) {
    ASTREAM_NODE_ATTR_S n = Node(ASTREAM_NODE_TYPE_E_SWAP);
    std::copy(map.begin(), map.end(), n.unAttr.stSwap.as32Map);
    return n;
}

ASTREAM_NODE_ATTR_S SplitNode(int off, int a, int b) {
    ASTREAM_NODE_ATTR_S n = Node(ASTREAM_NODE_TYPE_E_SPLIT);
    n.unAttr.stSplit = {off, a, b};
    return n;
}

ASTREAM_NODE_ATTR_S MergeNode(int off, int a, int b) {
    ASTREAM_NODE_ATTR_S n = Node(ASTREAM_NODE_TYPE_E_MERGE);
    n.unAttr.stMerge = {off, a, b};
    return n;
}

ASTREAM_NODE_ATTR_S MixinNode(int target, int off, int cnt) {
    ASTREAM_NODE_ATTR_S n = Node(ASTREAM_NODE_TYPE_E_MIXIN);
    n.unAttr.stMixin = {target, off, cnt};
    return n;
}

ASTREAM_NODE_ATTR_S DumpNode(const std::string& path, int off, int cnt) {
    ASTREAM_NODE_ATTR_S n = Node(ASTREAM_NODE_TYPE_E_DEBUG_DUMP);
    std::memcpy(n.unAttr.stDump.acPath, path.data(),
                std::min(path.size(), sizeof(n.unAttr.stDump.acPath) - 1));
    n.unAttr.stDump.s32ChnOffset = off;
    n.unAttr.stDump.s32ChnCnt = cnt;
    return n;
}

ASTREAM_NODE_ATTR_S AlgNode(int micOff, int micCnt, int lineIn, int ref, int exRef, int allRef) {
    ASTREAM_NODE_ATTR_S n = Node(ASTREAM_NODE_TYPE_E_ORVANE_ALG);
    n.unAttr.stOrvaneAlg.s32MicChnOffset = micOff;
    n.unAttr.stOrvaneAlg.s32MicChnCnt = micCnt;
    n.unAttr.stOrvaneAlg.s32LineInChnCnt = lineIn;
    n.unAttr.stOrvaneAlg.s32RefChnOffset = ref;
    n.unAttr.stOrvaneAlg.s32ExRefChnOffset = exRef;
    n.unAttr.stOrvaneAlg.s32AllRefChnOffset = allRef;
    return n;
}

}  // namespace config_test

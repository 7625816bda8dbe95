// Log service: exact line text and level at the sink, the threshold, the standard-error
// fallback with exactly one newline, and lines intact under concurrent writers.
#include <unistd.h>

#include <cstdio>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host_test.h"
#include "test_support.h"
#include "util.h"

namespace {

struct Line {
    int s32Level;
    std::string strText;
    bool operator==(const Line& o) const { return s32Level == o.s32Level && strText == o.strText; }
};

std::ostream& operator<<(std::ostream& os, const Line& l) {
    return os << l.s32Level << ":\"" << l.strText << "\"";
}

class LogTest : public ::testing::Test {
  protected:
    void SetUp() override { UTIL_LOG_SetSink(&LogTest::Sink, this); }
    void TearDown() override {
        UTIL_LOG_SetSink(nullptr, nullptr);
        UTIL_LOG_SetThreshold(UTIL_LOG_INFO);
    }
    static void Sink(int s32Level, const char* pcLine, void* pCtx) {
        LogTest* pSelf = static_cast<LogTest*>(pCtx);
        std::lock_guard<std::mutex> lk(pSelf->mtx);
        pSelf->vecLines.push_back({s32Level, pcLine});
    }
    std::vector<Line> Lines() {
        std::lock_guard<std::mutex> lk(mtx);
        return vecLines;
    }
    std::mutex mtx;
    std::vector<Line> vecLines;
};

TEST_F(LogTest, SinkGetsPrefixAndFormattedMessageWithLevel) {
    UTIL_LOG_Print(UTIL_LOG_ERR, "[Open:42] ", "AI[%d] open failed: %s", 3, "busy");
    UTIL_LOG_Print(UTIL_LOG_WARN, "[f:1] ", "trailing newline\n");
    UTIL_LOG_Print(UTIL_LOG_INFO, nullptr, "no prefix %u", 7u);
    UTIL_LOG_Print(UTIL_LOG_INFO, "[only:prefix] ", nullptr);
    EXPECT_EQ(Lines(), (std::vector<Line>{{3, "[Open:42] AI[3] open failed: busy"},
                                          {4, "[f:1] trailing newline\n"},
                                          {6, "no prefix 7"},
                                          {6, "[only:prefix] "}}));
}

TEST_F(LogTest, ThresholdDropsLevelsAboveIt) {
    struct Case {
        int s32Threshold;
        std::vector<int> vecPassing;
    };
    const Case astCases[] = {
        {UTIL_LOG_INFO, {3, 4, 6}},  // the default
        {UTIL_LOG_DEBUG, {3, 4, 6, 7}}, {UTIL_LOG_WARN, {3, 4}}, {UTIL_LOG_ERR, {3}}, {0, {}},
    };
    bool bFirst = true;
    for (const auto& stCase : astCases) {
        if (!bFirst) {
            UTIL_LOG_SetThreshold(stCase.s32Threshold);
        }
        bFirst = false;
        {
            std::lock_guard<std::mutex> lk(mtx);
            vecLines.clear();
        }
        for (int s32Level : {UTIL_LOG_ERR, UTIL_LOG_WARN, UTIL_LOG_INFO, UTIL_LOG_DEBUG}) {
            UTIL_LOG_Print(s32Level, "[t:1] ", "level %d", s32Level);
        }
        std::vector<Line> vecWant;
        for (int s32Level : stCase.vecPassing) {
            vecWant.push_back({s32Level, "[t:1] level " + std::to_string(s32Level)});
        }
        EXPECT_EQ(Lines(), vecWant) << "threshold " << stCase.s32Threshold;
    }
}

TEST_F(LogTest, OverlongLineIsCutTo1023Characters) {
    std::string strLong(2000, 'x');
    UTIL_LOG_Print(UTIL_LOG_ERR, "[p:1] ", "%s", strLong.c_str());
    auto vecGot = Lines();
    ASSERT_EQ(vecGot.size(), 1u);
    EXPECT_EQ(vecGot[0].strText, "[p:1] " + std::string(1023 - 6, 'x'));
}

TEST_F(LogTest, ConcurrentWritersProduceWholeLines) {
    constexpr int kThreads = 4;
    constexpr int kLines = 200;
    std::vector<std::thread> vecThreads;
    for (int t = 0; t < kThreads; t++) {
        vecThreads.emplace_back([t] {
            for (int i = 0; i < kLines; i++) {
                UTIL_LOG_Print(UTIL_LOG_INFO, "[w:1] ", "thread %d line %d", t, i);
            }
        });
    }
    for (auto& th : vecThreads) {
        th.join();
    }
    auto vecGot = Lines();
    ASSERT_EQ(vecGot.size(), static_cast<size_t>(kThreads * kLines));
    std::vector<int> vecNext(kThreads, 0);
    for (const auto& stLine : vecGot) {
        int t = -1, i = -1;
        ASSERT_EQ(std::sscanf(stLine.strText.c_str(), "[w:1] thread %d line %d", &t, &i), 2) << stLine;
        ASSERT_TRUE(t >= 0 && t < kThreads);
        EXPECT_EQ(i, vecNext[t]++) << "lines of one thread keep their order";
    }
}

// Standard error gets "<level letter>/<line>" and exactly one newline.
TEST_F(LogTest, WithoutSinkLinesGoToStandardErrorWithOneNewline) {
    UTIL_LOG_SetSink(nullptr, nullptr);
    UTIL_LOG_SetThreshold(UTIL_LOG_DEBUG);
    std::fflush(stderr);
    FILE* pTmp = std::tmpfile();
    ASSERT_NE(pTmp, nullptr);
    int s32Saved = dup(STDERR_FILENO);
    ASSERT_GE(s32Saved, 0);
    ASSERT_GE(dup2(fileno(pTmp), STDERR_FILENO), 0);

    UTIL_LOG_Print(UTIL_LOG_ERR, "[a:1] ", "error %d", 1);
    UTIL_LOG_Print(UTIL_LOG_WARN, "[b:2] ", "warn\n");
    UTIL_LOG_Print(UTIL_LOG_INFO, "[c:3] ", "info");
    UTIL_LOG_Print(UTIL_LOG_DEBUG, "[d:4] ", "debug");
    UTIL_LOG_Print(5, "[e:5] ", "other");
    std::fflush(stderr);
    dup2(s32Saved, STDERR_FILENO);
    close(s32Saved);

    std::rewind(pTmp);
    std::string strOut;
    char acBuf[256];
    size_t n;
    while ((n = std::fread(acBuf, 1, sizeof(acBuf), pTmp)) > 0) {
        strOut.append(acBuf, n);
    }
    std::fclose(pTmp);
    EXPECT_EQ(strOut, "E/[a:1] error 1\nW/[b:2] warn\nI/[c:3] info\nD/[d:4] debug\n?/[e:5] other\n");
    EXPECT_TRUE(Lines().empty());
}

}  // namespace

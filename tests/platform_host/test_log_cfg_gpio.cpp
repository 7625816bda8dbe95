// Log service: exact lines and levels at the sink, the threshold, standard error with
// exactly one newline, whole lines under concurrent writers. XML documents from files,
// GPIO levels from a scratch sysfs tree and overrides.
#include <tinyxml2.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "host_test.h"
#include "test_support.h"
#include "util.h"

namespace {

using audiomw_test::LogCapture;
using audiomw_test::ScratchRoot;
using LineList = std::vector<std::pair<int, std::string>>;

LineList Lines(const LogCapture& log) {
    LineList out;
    for (const auto& l : log.Lines()) {
        out.push_back({l.level, l.text});
    }
    return out;
}

TEST(LogTest, SinkGetsPrefixAndMessageWithItsLevel) {
    LogCapture log;
    UTIL_LOG_Print(UTIL_LOG_ERR, "[Open:42] ", "AI[%d] open failed: %s", 3, "busy");
    UTIL_LOG_Print(UTIL_LOG_WARN, "[f:1] ", "trailing newline\n");
    UTIL_LOG_Print(UTIL_LOG_INFO, nullptr, "no prefix %u", 7u);
    UTIL_LOG_Print(UTIL_LOG_DEBUG, "[only:prefix] ", nullptr);
    UTIL_LOG_Print(UTIL_LOG_ERR, "[p:1] ", "%s", std::string(2000, 'x').c_str());
    EXPECT_EQ(Lines(log), (LineList{{3, "[Open:42] AI[3] open failed: busy"},
                                    {4, "[f:1] trailing newline\n"},
                                    {6, "no prefix 7"},
                                    {7, "[only:prefix] "},
                                    {3, "[p:1] " + std::string(1023 - 6, 'x')}}));  // cut to 1023
}

TEST(LogTest, ThresholdDropsLevelsAboveIt) {
    const std::pair<int, std::vector<int>> cases[] = {
        {UTIL_LOG_DEBUG, {3, 4, 6, 7}}, {UTIL_LOG_INFO, {3, 4, 6}}, {UTIL_LOG_WARN, {3, 4}}, {0, {}}};
    for (const auto& [threshold, passing] : cases) {
        LogCapture log;
        UTIL_LOG_SetThreshold(threshold);
        for (int level : {UTIL_LOG_ERR, UTIL_LOG_WARN, UTIL_LOG_INFO, UTIL_LOG_DEBUG}) {
            UTIL_LOG_Print(level, "[t:1] ", "level %d", level);
        }
        LineList want;
        for (int level : passing) {
            want.push_back({level, "[t:1] level " + std::to_string(level)});
        }
        EXPECT_EQ(Lines(log), want) << "threshold " << threshold;
    }
}

// Without a sink: "<level letter>/<line>" on standard error, information and above by default.
TEST(LogTest, WithoutSinkLinesGoToStandardErrorWithOneNewline) {
    std::fflush(stderr);
    FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    int saved = dup(STDERR_FILENO);
    ASSERT_GE(dup2(fileno(file), STDERR_FILENO), 0);
    UTIL_LOG_Print(UTIL_LOG_ERR, "[a:1] ", "error %d", 1);
    UTIL_LOG_Print(UTIL_LOG_WARN, "[b:2] ", "warn\n");
    UTIL_LOG_Print(UTIL_LOG_INFO, "[c:3] ", "info");
    UTIL_LOG_Print(UTIL_LOG_DEBUG, "[d:4] ", "dropped");
    UTIL_LOG_SetThreshold(UTIL_LOG_DEBUG);
    UTIL_LOG_Print(UTIL_LOG_DEBUG, "[d:4] ", "debug");
    UTIL_LOG_Print(5, "[e:5] ", "other");
    UTIL_LOG_SetThreshold(UTIL_LOG_INFO);
    std::fflush(stderr);
    dup2(saved, STDERR_FILENO);
    close(saved);
    std::string text(256, '\0');
    std::rewind(file);
    text.resize(std::fread(&text[0], 1, text.size(), file));
    std::fclose(file);
    EXPECT_EQ(text, "E/[a:1] error 1\nW/[b:2] warn\nI/[c:3] info\nD/[d:4] debug\n?/[e:5] other\n");
}

TEST(LogTest, ConcurrentWritersProduceWholeLinesInOrder) {
    LogCapture log;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; t++) {
        threads.emplace_back([t] {
            for (int i = 0; i < 200; i++) {
                UTIL_LOG_Print(UTIL_LOG_INFO, "[w:1] ", "thread %d line %d", t, i);
            }
        });
    }
    for (auto& th : threads) {
        th.join();
    }
    std::vector<int> next(4, 0);
    for (const auto& line : log.Lines()) {
        int t = -1, i = -1;
        ASSERT_EQ(std::sscanf(line.text.c_str(), "[w:1] thread %d line %d", &t, &i), 2) << line.text;
        ASSERT_TRUE(t >= 0 && t < 4);
        EXPECT_EQ(i, next[t]++);
    }
    EXPECT_EQ(next, std::vector<int>(4, 200));
}

std::string WriteText(const std::string& path, const std::string& text) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    audiomw_test::WriteFileBytes(path, std::vector<uint8_t>(text.begin(), text.end()));
    return path;
}

TEST(CfgDocTest, WellFormedFileGivesItsDocumentOthersNull) {
    ScratchRoot root;
    std::string path =
        WriteText(root.Path("/cfg0/a.xml"), "<?xml version=\"1.0\"?><Audio><AI id=\"2\"/><AO/></Audio>");
    std::unique_ptr<tinyxml2::XMLDocument> doc(CFG_GetDocByFileName(&path[0], ZN_TRUE));
    ASSERT_NE(doc, nullptr);
    tinyxml2::XMLElement* ai = doc->FirstChildElement("Audio")->FirstChildElement("AI");
    ASSERT_NE(ai, nullptr);
    EXPECT_STREQ(ai->Attribute("id"), "2");
    EXPECT_STREQ(ai->NextSiblingElement()->Value(), "AO");
    for (const std::string& bad :
         {root.Path("/cfg0/none.xml"), WriteText(root.Path("/cfg0/b.xml"), "<Audio><AI></Audio>"),
          WriteText(root.Path("/cfg0/c.xml"), ""), root.Path("/cfg0")}) {
        EXPECT_EQ(CFG_GetDocByFileName(const_cast<char*>(bad.c_str()), ZN_TRUE), nullptr) << bad;
    }
    EXPECT_EQ(CFG_GetDocByFileName(nullptr, ZN_TRUE), nullptr);
}

// Level from the first character of <root>/gpio<n>/value; an override wins until cleared.
TEST(GpioTest, LevelsFromSysfsAndOverrides) {
    ScratchRoot root;
    BSP_SetGpioSysfsRoot(root.Path("/sys").c_str());
    const std::pair<const char*, int> cases[] = {{"1\n", 1}, {"0\n", 0},  {"0", 0},     {"10\n", 1},
                                                 {"", -1},   {"x\n", -1}, {" 1\n", -1}, {"2\n", -1}};
    for (const auto& [content, level] : cases) {
        WriteText(root.Path("/sys/gpio14/value"), content);
        EXPECT_EQ(BSP_GetGpioValue(14), level) << "content \"" << content << "\"";
    }
    EXPECT_EQ(BSP_GetGpioValue(15), -1);
    EXPECT_EQ(BSP_GetGpioValue(-1), -1);
    BSP_SetGpioOverride(14, 1);
    BSP_SetGpioOverride(15, 0);
    EXPECT_EQ(BSP_GetGpioValue(14), 1);
    EXPECT_EQ(BSP_GetGpioValue(15), 0);
    BSP_ClearGpioOverrides();
    EXPECT_EQ(BSP_GetGpioValue(14), -1);
    EXPECT_EQ(BSP_GetGpioValue(15), -1);
    BSP_SetGpioSysfsRoot(nullptr);
}

}  // namespace

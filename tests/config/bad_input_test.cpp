// Files as they are found on devices after hand edits: huge, with megabyte values. Every
// load keeps every field within its bounds (the asan preset checks the reads); files cut
// short are in the loaders' failure table and in the fuzzers' corpus.
#include "config_test_util.h"

namespace {

using config_test::ConfigTest;
using config_test::Repeat;

TEST_F(ConfigTest, TenThousandSectionsGetIdsUpTo31ThenAll31) {
    WriteConfig(
        "<Audio>" + Repeat("<AI Name='n'><Channel Cur='1'/></AI>", 10000) +
        Repeat("<ASTREAM Name='s' AiId='0' Worker='1'><Node Type='Swap' Map='1:0'/></ASTREAM>", 10000) +
        "</Audio>");
    std::list<tagAI_XML_CFG_S> ai;
    std::list<tagAO_XML_CFG_S> ao;
    std::list<tagASTREAM_XML_CFG_S> streams;
    ASSERT_EQ(0, AUDIO_AI_LoadFromConfig(ai));
    ASSERT_EQ(0, AUDIO_ASTREAM_LoadFromConfig(ai, ao, streams));
    ASSERT_EQ(10000u, ai.size());
    ASSERT_EQ(10000u, streams.size());
    int index = 0;
    for (const tagAI_XML_CFG_S& r : ai) {
        ASSERT_EQ(std::min(index++, 31), r.s32Id);
        ASSERT_EQ(1, r.stAttr.s32Channel);
    }
    EXPECT_EQ(31, streams.back().s32Id);
    EXPECT_EQ(1u, streams.back().stAttr.lstNodeAttr.size());
    EXPECT_EQ(10000,
              log.Count({UTIL_LOG_WARN, "AUDIO_AI_LoadFromConfig", "Get Id of AI[n] failed, auto set"}));
}

// Megabyte values are cut to their fields, and log lines carry a bounded part of them.
TEST_F(ConfigTest, MegabyteValuesStayWithinTheirFields) {
    const std::string mb(1 << 20, 'm'), list = Repeat("7:", 1 << 19) + "7";
    WriteConfig("<Audio><AI Name='" + mb + "'><Device Type='" + mb +
                "'/></AI><AI Id='1' Name='c'><Device "
                "Type='Combo' AiIdList='" +
                list + "'/></AI><AI Id='2' Name='f'><Device Type='Afile' FilePath='" + mb +
                "'/></AI><ASTREAM Id='0' Name='" + mb + "'><Node Type='Swap' Map='" + list +
                "'/><Node Type='Dump' Path='" + mb + "' ChnOffset='0'/><Node Type='" + mb +
                "'/></ASTREAM></Audio>");
    std::list<tagAI_XML_CFG_S> ai;
    std::list<tagAO_XML_CFG_S> ao;
    std::list<tagASTREAM_XML_CFG_S> streams;
    ASSERT_EQ(0, AUDIO_AI_LoadFromConfig(ai));
    ASSERT_EQ(0, AUDIO_ASTREAM_LoadFromConfig(ai, ao, streams));
    ASSERT_EQ(3u, ai.size());
    EXPECT_EQ(std::string(32, 'm'), config_test::Name(ai.front().acName));
    EXPECT_EQ(-1, static_cast<int>(ai.front().stAttr.eType));
    EXPECT_EQ(4, std::next(ai.begin())->stAttr.stComboDev.s32AiCnt);
    EXPECT_EQ(std::string(39, 'm'), std::string(ai.back().stAttr.acFilePath));
    ASSERT_EQ(1u, streams.size());
    config_test::ExpectBytes({config_test::Node(ASTREAM_NODE_TYPE_E_SWAP, std::vector<int>(20, 7))},
                             streams.front().stAttr.lstNodeAttr);
    const std::string m32(32, 'm'), m63(63, 'm'), m64(64, 'm'), ai_ = "AUDIO_AI_LoadFromConfig",
                                                                st = "AUDIO_ASTREAM_LoadFromConfig";
    config_test::ExpectLines(
        log, {{UTIL_LOG_WARN, ai_, "Get Id of AI[" + m32 + "] failed, auto set"},
              {UTIL_LOG_WARN, ai_, "Un-support device type " + m64 + " for AI"},
              {UTIL_LOG_WARN, ai_, "AiIdList of AI[c] holds 524289 ids, only the first 4 kept"},
              {UTIL_LOG_WARN, st,
               "Map of Swap node 1 in ASTREAM[" + m32 + "] holds 524289 entries, only the first 20 kept"},
              {UTIL_LOG_WARN, st,
               "Ignore bad <Node type=\"Dump\" Path=\"" + m63 + "\" ChnOffset=\"0\" ChnCnt=\"-1\"/>"},
              {UTIL_LOG_WARN, st, "Node 2 ignored because unknown Type \"" + m64 + "\""}});
}

}  // namespace

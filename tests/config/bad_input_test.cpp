// Files as they are found on devices after hand edits: huge, with megabyte values. Every
// load keeps every field within its bounds (the asan preset checks the reads), ten
// thousand sections get ids up to 31 and then all 31, and log lines carry a bounded part
// of each value.
#include "config_test_util.h"

namespace {

using namespace config_test;

TEST_F(ConfigTest, HugeFilesAndMegabyteValuesStayWithinTheirFields) {
    const std::string mb(1 << 20, 'm'), list = Repeat("7:", 1 << 19) + "7";
    WriteConfig(
        "<Audio><AI Name='" + mb + "'><Device Type='" + mb +
        "'/></AI><AI Id='1' Name='c'><Device Type='Combo' "
        "AiIdList='" +
        list + "'/></AI><AI Id='2' Name='f'><Device Type='Afile' FilePath='" + mb + "'/></AI>" +
        Repeat("<AI Name='n'><Channel Cur='1'/></AI>", 10000) + "<ASTREAM Id='0' Name='" + mb +
        "'><Node Type='Swap' Map='" + list + "'/><Node Type='Dump' Path='" + mb +
        "' ChnOffset='0'/><Node Type='" + mb + "'/></ASTREAM>" +
        Repeat("<ASTREAM Name='s' AiId='0' Worker='1'><Node Type='Swap' Map='1:0'/></ASTREAM>", 10000) +
        "</Audio>");
    std::list<tagAI_XML_CFG_S> ai;
    std::list<tagAO_XML_CFG_S> ao;
    std::list<tagASTREAM_XML_CFG_S> streams;
    ASSERT_EQ(0, AUDIO_AI_LoadFromConfig(ai));
    ASSERT_EQ(0, AUDIO_ASTREAM_LoadFromConfig(ai, ao, streams));
    ASSERT_EQ(10003u, ai.size());
    ASSERT_EQ(10001u, streams.size());
    EXPECT_EQ(std::string(32, 'm'), Name(ai.front().acName));
    EXPECT_EQ(-1, static_cast<int>(ai.front().stAttr.eType));
    EXPECT_EQ(4, std::next(ai.begin())->stAttr.stComboDev.s32AiCnt);
    EXPECT_EQ(std::string(39, 'm'), std::string(std::next(ai.begin(), 2)->stAttr.acFilePath));
    std::vector<int> ids;  // automatic ids in document order, once every stated one is known
    for (const tagAI_XML_CFG_S& r : ai) {
        ids.push_back(r.s32Id);
    }
    std::vector<int> want = {0, 1, 2};
    for (int i = 3; i < 10003; i++) {
        want.push_back(std::min(i, 31));
    }
    EXPECT_EQ(want, ids);
    ExpectBytes({Node(ASTREAM_NODE_TYPE_E_SWAP, std::vector<int>(20, 7))},
                streams.front().stAttr.lstNodeAttr);
    EXPECT_EQ(31, streams.back().s32Id);
    EXPECT_EQ(1u, streams.back().stAttr.lstNodeAttr.size());
    const std::string m32(32, 'm'), ai_ = "AUDIO_AI_LoadFromConfig", st = "AUDIO_ASTREAM_LoadFromConfig";
    EXPECT_EQ(10000, log.Count({UTIL_LOG_WARN, ai_, "Get Id of AI[n] failed, auto set"}));
    EXPECT_EQ(10000, log.Count({UTIL_LOG_WARN, st, "Get Id of ASTREAM[s] failed, auto set"}));
    log.ExpectInOrder(
        // clang-format off
        {{UTIL_LOG_WARN, ai_, "Get Id of AI[" + m32 + "] failed, auto set"},
         {UTIL_LOG_WARN, ai_, "Un-support device type " + std::string(64, 'm') + " for AI"},
         {UTIL_LOG_WARN, ai_, "AiIdList of AI[c] holds 524289 ids, only the first 4 kept"},
         {UTIL_LOG_WARN, st, "Map of Swap node 1 in ASTREAM[" + m32 + "] holds 524289 entries, only the first 20 kept"},
         {UTIL_LOG_WARN, st, "Ignore bad <Node type=\"Dump\" Path=\"" + std::string(63, 'm') + "\" ChnOffset=\"0\" ChnCnt=\"-1\"/>"},
         {UTIL_LOG_WARN, st, "Node 2 ignored because unknown Type \"" + std::string(64, 'm') + "\""}});
    // clang-format on
    const auto all = log.All();  // and no other warning
    EXPECT_EQ(20006, std::count_if(all.begin(), all.end(),
                                   [](const Logged& l) { return l.level <= UTIL_LOG_WARN; }));
}

}  // namespace

// audiomw check: each finding from a small configuration, with its exact line.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "config_checker.h"
#include "test_support.h"

namespace audiomw_tool {
namespace {

// Lines 1-5: the root, a 4-channel file input at 16 kHz / 320 frames, a stereo and a
// mono AO of the same format, then the stream header; the case's nodes follow on line 6.
const char kHead[] =
    "<Audio>\n"
    "<AI Id='0' Name='Mics'><Device Type='Afile' FilePath='in.pcm'/><SampleRate Cur='16KHZ'/>"
    "<Channel Cur='4'/><FrameSize Cur='320'/></AI>\n"
    "<AO Id='0' Name='Stereo'><Device Type='Alsa' CardId='1'/><SampleRate Cur='16KHZ'/>"
    "<Channel Cur='2'/><FrameSize Cur='320'/></AO>\n"
    "<AO Id='1' Name='Mono'><Device Type='Alsa' CardId='2'/><SampleRate Cur='16KHZ'/>"
    "<Channel Cur='1'/><FrameSize Cur='320'/></AO>\n";

std::string Stream(const std::string& nodes,
                   const std::string& header = "Id='0' Name='S' AiId='0' Worker='2'") {
    return std::string(kHead) + "<ASTREAM " + header + ">\n" + nodes + "\n</ASTREAM>\n</Audio>\n";
}

struct CheckCase {
    const char* name;
    std::string xml;
    std::vector<std::string> expected;
};

std::string E6(const std::string& text) {
    return "f.xml:6: error: stream 'S': " + text;
}
std::string W6(const std::string& text) {
    return "f.xml:6: warning: stream 'S': " + text;
}

std::vector<CheckCase> StreamCases() {
    return {
        {"clean chain",
         Stream("<Node Type='Split' ChnOffset='0' ChnCntA='2' ChnCntB='2'/>\n"
                "<Node Type='Output' AoId='0' ChnOffset='0' ChnCnt='2'/>"),
         {}},
        {"output past the buffer",
         Stream("<Node Type='Output' AoId='0' ChnOffset='3' ChnCnt='2'/>"),
         {E6("Output node: the group at 3 with 2 channels lies outside the 4 channel blocks")}},
        {"output of a part of a group",
         Stream("<Node Type='Output' AoId='0' ChnOffset='0' ChnCnt='2'/>"),
         {E6("Output node: sends blocks 0-1, which are not one 2-channel group (groups here: [0-3])")}},
        {"output channels differ from the AO's",
         Stream("<Node Type='Split' ChnOffset='0' ChnCntA='2' ChnCntB='2'/><Node Type='Output' AoId='1' "
                "ChnOffset='0' ChnCnt='2'/>"),
         {E6("Output node: sends a 2-channel group to AO 1, which takes 1 channels")}},
        {"swap map entry outside",
         Stream("<Node Type='Swap' Map='1:0:2:4'/>"),
         {E6("Swap node: Map entry 3 is 4, outside 0..3")}},
        {"swap map too short",
         Stream("<Node Type='Swap' Map='1:0'/>"),
         {E6("Swap node: Map has 2 entries for 4 channel blocks"),
          E6("Swap node: Map is not a permutation: block 2 receives nothing")}},
        {"swap map too long",
         Stream("<Node Type='Swap' Map='0:1:2:3:4'/>"),
         {W6("Swap node: Map has 5 entries for 4 channel blocks")}},
        {"swap scatters a group",
         Stream("<Node Type='Swap' Map='1:0:2:3'/>"),
         {E6("Swap node: the group at block 0 is not kept together and in order")}},
        {"swap of mono blocks",
         Stream("<Node Type='Split' ChnOffset='0' ChnCntA='1' ChnCntB='3'/>"
                "<Node Type='Split' ChnOffset='1' ChnCntA='1' ChnCntB='2'/>"
                "<Node Type='Split' ChnOffset='2' ChnCntA='1' ChnCntB='1'/>"
                "<Node Type='Swap' Map='3:2:1:0'/>"),
         {}},
        {"split outside",
         Stream("<Node Type='Split' ChnOffset='2' ChnCntA='2' ChnCntB='1'/>"),
         {E6("Split node: ChnOffset 2, ChnCntA 2, ChnCntB 1 do not fit 4 channel blocks")}},
        {"split of a part of a group",
         Stream("<Node Type='Split' ChnOffset='0' ChnCntA='1' ChnCntB='1'/>"),
         {E6("Split node: splits blocks 0-1, which are not one 2-channel group (groups here: [0-3])")}},
        {"merge of groups that are not there",
         Stream("<Node Type='Merge' ChnOffset='0' ChnCntA='2' ChnCntB='2'/>"),
         {E6("Merge node: merges blocks 0-1, which are not one 2-channel group (groups here: [0-3])"),
          E6("Merge node: merges blocks 2-3, which are not one 2-channel group (groups here: [0-3])")}},
        {"split then merge back",
         Stream("<Node Type='Split' ChnOffset='0' ChnCntA='1' ChnCntB='3'/>"
                "<Node Type='Merge' ChnOffset='0' ChnCntA='1' ChnCntB='3'/>"
                "<Node Type='Output' AoId='3' ChnOffset='0' ChnCnt='4'/>"),
         {E6("Output node: AO 3 is not configured")}},
        {"mixin target outside",
         Stream("<Node Type='Mixin' TargetIndex='4' ChnOffset='0' ChnCnt='1'/>"),
         {E6("Mixin node: TargetIndex 4 outside 0..3")}},
        {"mixin group outside",
         Stream("<Node Type='Mixin' TargetIndex='0' ChnOffset='3' ChnCnt='2'/>"),
         {E6("Mixin node: ChnOffset 3 with ChnCnt 2 do not fit 4 channel blocks")}},
        {"mixin of an interleaved group",
         Stream("<Node Type='Mixin' TargetIndex='0' ChnOffset='1' ChnCnt='1'/>"),
         {E6("Mixin node: block 1 is part of a multichannel group, not a mono channel")}},
        {"mixin of nothing",
         Stream("<Node Type='Split' ChnOffset='0' ChnCntA='1' ChnCntB='3'/>"
                "<Node Type='Mixin' TargetIndex='0' ChnOffset='1' ChnCnt='0'/>"),
         {W6("Mixin node: ChnCnt 0 mixes nothing")}},
        {"voice node past the buffer",
         Stream("<Node Type='OrvaneAlg' MicChnOffset='0' MicChnCnt='4' LineInChnCnt='1' RefChnOffset='3'/>"),
         {E6("OrvaneAlg node: 4 microphone and 1 line-in channels at block 0 do not fit 4 channel blocks")}},
        {"voice node references",
         Stream("<Node Type='OrvaneAlg' MicChnOffset='0' MicChnCnt='3' LineInChnCnt='0' RefChnOffset='3' "
                "ExRefChnOffset='5' AllRefChnOffset='-1'/>"),
         {E6("OrvaneAlg node: ExRefChnOffset 5 outside 0..3")}},
        {"dump folder missing",
         Stream("<Node Type='Dump' Path='/no/such/folder/d.pcm' ChnOffset='0' ChnCnt='4'/>"),
         {W6("Dump node: folder of /no/such/folder/d.pcm does not exist; nothing is dumped")}},
    };
}

std::vector<CheckCase> SectionCases() {
    const std::string f = "f.xml:";
    return {
        {"workers outside 1..4",
         Stream("", "Id='0' Name='S' AiId='0' Worker='5'"),
         {f + "5: error: stream 'S': Worker 5 outside 1..4"}},
        {"unknown AI",
         Stream("", "Id='0' Name='S' AiId='6' Worker='1'"),
         {f + "5: error: stream 'S': AI 6 is not configured"}},
        {"AO format differs from the AI's",
         Stream("<AoAdj Id='0' SampleRate='48KHZ' FrameSize='960'/>\n<Node Type='Split' ChnOffset='0' "
                "ChnCntA='2' "
                "ChnCntB='2'/><Node Type='Output' AoId='0' ChnOffset='0' ChnCnt='2'/>"),
         {f + "7: error: stream 'S': Output node: AO 0 takes 960 frames at 48000 Hz, the input delivers 320 "
              "frames "
              "at 16000 Hz"}},
        {"adjusted AI channels",
         Stream("<AiAdj Id='0' SampleRate='16KHZ' Channel='2'/>\n"
                "<Node Type='Output' AoId='0' ChnOffset='0' ChnCnt='2'/>"),
         {}},
        {"combo: missing member, cycle and mismatch",
         "<Audio>\n"
         "<AI Id='0' Name='A'><SampleRate Cur='16KHZ'/><Channel Cur='2'/><FrameSize Cur='320'/></AI>\n"
         "<AI Id='1' Name='B'><SampleRate Cur='48KHZ'/><Channel Cur='1'/><FrameSize Cur='320'/></AI>\n"
         "<AI Id='2' Name='C'><Device Type='Combo' AiIdList='0:1:7'/><SampleRate Cur='16KHZ'/>"
         "<FrameSize Cur='320'/></AI>\n"
         "<AI Id='3' Name='D'><Device Type='Combo' AiIdList='4'/></AI>\n"
         "<AI Id='4' Name='E'><Device Type='Combo' AiIdList='3'/></AI>\n"
         "</Audio>\n",
         {f + "4: error: combo AI 2 'C': member AI 1 runs 320 frames at 48000 Hz, the combo 320 frames at "
              "16000 Hz",
          f + "4: error: combo AI 2 'C': member AI 7 is not configured",
          f + "5: error: combo AI 3 'D': its members lead back to itself",
          f + "6: error: combo AI 4 'E': its members lead back to itself"}},
        {"combo channels add up",
         "<Audio>\n"
         "<AI Id='0' Name='A'><SampleRate Cur='16KHZ'/><Channel Cur='2'/><FrameSize Cur='320'/></AI>\n"
         "<AI Id='1' Name='B'><SampleRate Cur='16KHZ'/><Channel Cur='1'/><FrameSize Cur='320'/></AI>\n"
         "<AI Id='2' Name='C'><Device Type='Combo' AiIdList='0:1'/><SampleRate Cur='16KHZ'/>"
         "<FrameSize Cur='320'/></AI>\n"
         "<ASTREAM Id='0' Name='S' AiId='2' Worker='1'>\n"
         "<Node Type='Merge' ChnOffset='0' ChnCntA='2' ChnCntB='1'/>\n"
         "<Node Type='Dump' Path='d.pcm' ChnOffset='0' ChnCnt='4'/>\n"
         "</ASTREAM></Audio>\n",
         {f + "7: error: stream 'S': Dump node: the group at 0 with 4 channels lies outside the 3 channel "
              "blocks"}},
    };
}

std::vector<CheckCase> LoaderCases() {
    const std::string f = "f.xml:";
    return {
        {"unknown sub node and device type",
         "<Audio>\n<AI Id='0' Name='A'>\n<Gain Cur='1'/>\n<Device Type='Usb'/>\n</AI>\n</Audio>\n",
         {f + "3: warning: Un-support sub node <Gain> for AI",
          f + "4: warning: Un-support device type Usb for AI"}},
        {"ids missing and taken",
         "<Audio>\n<AO Name='X'/>\n<AO Id='0' Name='Y'/>\n<AO Id='32' Name='Z'/>\n</Audio>\n",
         {f + "2: warning: Get Id of AO[X] failed, auto set",
          f + "4: warning: Id of AO[Z] has been used, auto set"}},
        {"bad nodes and adjustments",
         Stream("<AiAdj Id='5' SampleRate='16KHZ'/>\n<Node ChnOffset='0'/>\n<Node Type='Echo'/>\n"
                "<Node Type='output' AoId='0' ChnOffset='0'/>\n<Node Type='Swap'/>\n"
                "<Node Type='Dump' ChnOffset='0' ChnCnt='1'/>\n"
                "<Node Type='OrvaneAlg' MicChnOffset='0' MicChnCnt='2' RefChnOffset='3'/>"),
         {f + "6: warning: Bad AI[5] for ASTREAM adjustment, skip",
          f + "7: warning: Node 1 ignored because missing attr Type",
          f + "8: warning: Node 1 ignored because unknown Type \"Echo\"",
          f + "9: warning: Ignore bad <Node type=\"Output\" AoId=\"0\" ChnOffset=\"0\" ChnCnt=\"-1\"/>",
          f + "10: warning: Ignore bad <Node type=\"Swap\" Map=\"NULL\"/>",
          f + "11: warning: Ignore bad <Node type=\"Dump\" Path=\"\" ChnOffset=\"0\" ChnCnt=\"1\"/>",
          f + "12: warning: Ignore bad <Node type=\"OrvaneAlg\" MicChnOffset=\"0\" MicChnCnt=\"2\" "
              "LineInChnCnt=\"-1\" RefChnOffset=\"3\" />"}},
        {"AO adjustment of an unusable AO",
         "<Audio>\n<AO Id='0' Name='A'><Device Type='Afile'/></AO>\n<ASTREAM Id='0' Name='S' Worker='1'>\n"
         "<AoAdj Id='0' SampleRate='16KHZ'/>\n</ASTREAM>\n</Audio>\n",
         {f + "2: warning: Un-support device type Afile for AO",
          f + "3: error: stream 'S': AI 0 is not configured",
          f + "4: warning: Bad AO[0] for ASTREAM adjustment, skip"}},
        {"not XML",
         "<Audio>\n<AI>\n</Audio>",
         {f + "2: error: not well-formed XML (XML_ERROR_MISMATCHED_ELEMENT)"}},
        {"missing names, types and rates",
         "<Audio>\n<AI Id='0'>\n<Device/>\n<SampleRate/>\n</AI>\n<ASTREAM Id='0' AiId='0' "
         "Worker='1'/>\n</Audio>\n",
         {f + "2: warning: Missing attr Name of AI 1, name left empty",
          f + "3: warning: Missing attr Type of <Device> for AI[], type set to -1",
          f + "4: warning: Missing attr Cur of <SampleRate> for AI[], rate unchanged",
          f + "6: warning: Missing attr Name of ASTREAM 1, name left empty",
          f + "6: error: stream '': AI 0 is not configured with a supported device type"}},
        {"lists longer than kept",
         Stream("<AiAdj Id='0' Channel='2'/>\n<Node Type='Swap' "
                "Map='0:1:2:3:4:5:6:7:8:9:10:11:12:13:14:15:16:17:18:19:20'/>"),
         {f + "6: warning: No SampleRate in <AiAdj> of AI[0] for ASTREAM[S], keep 16000",
          f + "7: warning: Map of Swap node 1 in ASTREAM[S] holds 21 entries, only the first 20 kept",
          f + "7: warning: stream 'S': Swap node: Map has 20 entries for 2 channel blocks"}},
        {"combo list longer than kept",
         "<Audio>\n<AI Id='0' Name='C'><Device Type='Combo' AiIdList='1:2:3:4:5'/></AI>\n</Audio>\n",
         {f + "2: warning: AiIdList of AI[C] holds 5 ids, only the first 4 kept",
          f + "2: error: combo AI 0 'C': member AI 1 is not configured",
          f + "2: error: combo AI 0 'C': member AI 2 is not configured",
          f + "2: error: combo AI 0 'C': member AI 3 is not configured",
          f + "2: error: combo AI 0 'C': member AI 4 is not configured"}},
        {"no Audio root", "<Other/>", {f + "0: error: <Audio> not found"}},
    };
}

class CheckTable : public ::testing::TestWithParam<CheckCase> {};

TEST_P(CheckTable, ReportsExactLines) {
    int errors = -1;
    std::vector<std::string> lines = CheckConfigText(GetParam().xml, "f.xml", "/", &errors);
    EXPECT_EQ(lines, GetParam().expected);
    int expectedErrors = 0;
    for (const auto& line : GetParam().expected) {
        expectedErrors += line.find(": error: ") != std::string::npos ? 1 : 0;
    }
    EXPECT_EQ(errors, expectedErrors);
}

std::string CaseName(const ::testing::TestParamInfo<CheckCase>& info) {
    std::string name = info.param.name;
    for (char& c : name) {
        c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    }
    return name;
}

INSTANTIATE_TEST_SUITE_P(Streams, CheckTable, ::testing::ValuesIn(StreamCases()), CaseName);
INSTANTIATE_TEST_SUITE_P(Sections, CheckTable, ::testing::ValuesIn(SectionCases()), CaseName);
INSTANTIATE_TEST_SUITE_P(Loader, CheckTable, ::testing::ValuesIn(LoaderCases()), CaseName);

TEST(CheckDump, RelativePathIsTakenFromTheBaseFolder) {
    std::string xml = Stream("<Node Type='Dump' Path='sub/d.pcm' ChnOffset='0' ChnCnt='4'/>");
    audiomw_test::ScratchRoot base;
    int errors = 0;
    EXPECT_EQ(
        CheckConfigText(xml, "f.xml", base.Dir(), &errors),
        std::vector<std::string>{W6("Dump node: folder of sub/d.pcm does not exist; nothing is dumped")});
    std::filesystem::create_directories(base.Path("/sub"));
    EXPECT_TRUE(CheckConfigText(xml, "f.xml", base.Dir(), &errors).empty());
}

}  // namespace
}  // namespace audiomw_tool

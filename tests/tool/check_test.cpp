// audiomw check: one row per finding, a small configuration and its exact lines.
#include <gtest/gtest.h>

#include <filesystem>

#include "config_checker.h"
#include "test_support.h"

namespace audiomw_tool {
namespace {

// Lines 1-5: the root, a 4-channel file input at 16 kHz / 320 frames, a stereo and a
// mono AO of the same format, the stream header; the row's nodes start on line 6.
std::string S(const std::string& nodes, const std::string& header = "Id='0' Name='S' AiId='0' Worker='2'") {
    return "<Audio>\n<AI Id='0' Name='Mics'><Device Type='Afile' FilePath='in.pcm'/><SampleRate Cur='16KHZ'/>"
           "<Channel Cur='4'/><FrameSize Cur='320'/></AI>\n"
           "<AO Id='0' Name='Stereo'><Device Type='Alsa' CardId='1'/><SampleRate Cur='16KHZ'/>"
           "<Channel Cur='2'/><FrameSize Cur='320'/></AO>\n"
           "<AO Id='1' Name='Mono'><Device Type='Alsa' CardId='2'/><SampleRate Cur='16KHZ'/>"
           "<Channel Cur='1'/><FrameSize Cur='320'/></AO>\n<ASTREAM " +
           header + ">\n" + nodes + "\n</ASTREAM>\n</Audio>\n";
}
// A finding of stream 'S' on line `line`; L: any other line.
std::string E(const std::string& text, int line = 6) {
    return "f.xml:" + std::to_string(line) + ": error: stream 'S': " + text;
}
std::string W(const std::string& text, int line = 6) {
    return "f.xml:" + std::to_string(line) + ": warning: stream 'S': " + text;
}
std::string L(int line, const std::string& text) {
    return "f.xml:" + std::to_string(line) + ": " + text;
}
const char kSplit13[] = "<Node Type='Split' ChnOffset='0' ChnCntA='1' ChnCntB='3'/>";

TEST(Check, ReportsExactLines) {
    audiomw_test::ScratchRoot base;
    std::filesystem::create_directories(base.Path("/sub"));
    const struct {
        std::string xml;
        std::vector<std::string> want;
    } rows[] = {
        // clang-format off
        {S("<Node Type='Output' AoId='0' ChnOffset='3' ChnCnt='2'/>"),
         {E("Output node: the group at 3 with 2 channels lies outside the 4 channel blocks")}},
        {S("<Node Type='Output' AoId='0' ChnOffset='0' ChnCnt='2'/>"),
         {E("Output node: sends blocks 0-1, which are not one 2-channel group (groups here: [0-3])")}},
        {S("<Node Type='Split' ChnOffset='0' ChnCntA='2' ChnCntB='2'/><Node Type='Output' AoId='1' ChnOffset='0' ChnCnt='2'/>"),
         {E("Output node: sends a 2-channel group to AO 1, which takes 1 channels")}},
        {S(std::string(kSplit13) + "<Node Type='Merge' ChnOffset='0' ChnCntA='1' ChnCntB='3'/>"
           "<Node Type='Output' AoId='3' ChnOffset='0' ChnCnt='4'/>"), {E("Output node: AO 3 is not configured")}},
        {S("<AoAdj Id='0' SampleRate='48KHZ' FrameSize='960'/>\n<Node Type='Split' ChnOffset='0' ChnCntA='2' "
           "ChnCntB='2'/><Node Type='Output' AoId='0' ChnOffset='0' ChnCnt='2'/>"),
         {E("Output node: AO 0 takes 960 frames at 48000 Hz, the input delivers 320 frames at 16000 Hz", 7)}},
        {S("<AiAdj Id='0' SampleRate='16KHZ' Channel='2'/>\n<Node Type='Output' AoId='0' ChnOffset='0' ChnCnt='2'/>"), {}},
        {S("<Node Type='Swap' Map='1:0:2:4'/>"), {E("Swap node: Map entry 3 is 4, outside 0..3")}},
        {S("<Node Type='Swap' Map='1:0'/>"), {E("Swap node: Map has 2 entries for 4 channel blocks"),
          E("Swap node: Map is not a permutation: block 2 receives nothing")}},
        {S("<Node Type='Swap' Map='0:1:2:3:4'/>"), {W("Swap node: Map has 5 entries for 4 channel blocks")}},
        {S("<Node Type='Swap' Map='1:0:2:3'/>"), {E("Swap node: the group at block 0 is not kept together and in order")}},
        {S(std::string(kSplit13) + "<Node Type='Split' ChnOffset='1' ChnCntA='1' ChnCntB='2'/>"
           "<Node Type='Split' ChnOffset='2' ChnCntA='1' ChnCntB='1'/><Node Type='Swap' Map='3:2:1:0'/>"), {}},
        {S("<AiAdj Id='0' SampleRate='16KHZ' Channel='21'/>\n<Node Type='Swap' Map='0'/>"),
         {E("Swap node: 21 channels, a swap map holds at most 20", 7)}},
        {S("<Node Type='Split' ChnOffset='2' ChnCntA='2' ChnCntB='1'/>"),
         {E("Split node: ChnOffset 2, ChnCntA 2, ChnCntB 1 do not fit 4 channel blocks")}},
        {S("<Node Type='Split' ChnOffset='0' ChnCntA='1' ChnCntB='1'/>"),
         {E("Split node: splits blocks 0-1, which are not one 2-channel group (groups here: [0-3])")}},
        {S("<Node Type='Merge' ChnOffset='0' ChnCntA='2' ChnCntB='2'/>"),
         {E("Merge node: merges blocks 0-1, which are not one 2-channel group (groups here: [0-3])"),
          E("Merge node: merges blocks 2-3, which are not one 2-channel group (groups here: [0-3])")}},
        {S("<Node Type='Mixin' TargetIndex='4' ChnOffset='0' ChnCnt='1'/>"), {E("Mixin node: TargetIndex 4 outside 0..3")}},
        {S("<Node Type='Mixin' TargetIndex='0' ChnOffset='3' ChnCnt='2'/>"),
         {E("Mixin node: ChnOffset 3 with ChnCnt 2 do not fit 4 channel blocks")}},
        {S("<Node Type='Mixin' TargetIndex='0' ChnOffset='1' ChnCnt='1'/>"),
         {E("Mixin node: block 1 is part of a multichannel group, not a mono channel")}},
        {S("<Node Type='Split' ChnOffset='0' ChnCntA='3' ChnCntB='1'/><Node Type='Mixin' TargetIndex='0' ChnOffset='3' ChnCnt='1'/>"),
         {E("Mixin node: target block 0 is part of a multichannel group")}},
        {S(std::string(kSplit13) + "<Node Type='Mixin' TargetIndex='0' ChnOffset='1' ChnCnt='0'/>"),
         {W("Mixin node: ChnCnt 0 mixes nothing")}},
        {S("<Node Type='OrvaneAlg' MicChnOffset='0' MicChnCnt='4' LineInChnCnt='1' RefChnOffset='3'/>"),
         {E("OrvaneAlg node: 4 microphone and 1 line-in channels at block 0 do not fit 4 channel blocks")}},
        {S("<Node Type='OrvaneAlg' MicChnOffset='0' MicChnCnt='3' LineInChnCnt='0' RefChnOffset='3' ExRefChnOffset='5' AllRefChnOffset='-1'/>"),
         {E("OrvaneAlg node: ExRefChnOffset 5 outside 0..3")}},
        {S("<Node Type='Dump' Path='/no/such/folder/d.pcm' ChnOffset='0' ChnCnt='4'/>"),
         {W("Dump node: folder of /no/such/folder/d.pcm does not exist; nothing is dumped")}},
        {S("<Node Type='Dump' Path='sub/d.pcm' ChnOffset='0' ChnCnt='4'/>"), {}},  // relative to the base folder
        {S("", "Id='0' Name='S' AiId='0' Worker='5'"), {E("Worker 5 outside 1..4", 5)}},
        {S("", "Id='0' Name='S' AiId='6' Worker='1'"), {E("AI 6 is not configured", 5)}},
        {S("<AiAdj Id='0' SampleRate='16KHZ' Channel='0'/>"), {E("AI 0 has 0 channels", 5)}},
        {"<Audio>\n<AI Id='0' Name='A'><SampleRate Cur='16KHZ'/><Channel Cur='2'/><FrameSize Cur='320'/></AI>\n"
         "<AI Id='1' Name='B'><SampleRate Cur='48KHZ'/><Channel Cur='1'/><FrameSize Cur='320'/></AI>\n"
         "<AI Id='2' Name='C'><Device Type='Combo' AiIdList='0:1:7'/><SampleRate Cur='16KHZ'/><FrameSize Cur='320'/></AI>\n"
             "<AI Id='3' Name='D'><Device Type='Combo' AiIdList='4'/></AI>\n<AI Id='4' Name='E'><Device Type='Combo' AiIdList='3'/></AI>\n"
             "<AI Id='5' Name='F'><Device Type='Combo'/></AI>\n</Audio>\n",
         {L(4, "error: combo AI 2 'C': member AI 1 runs 320 frames at 48000 Hz, the combo 320 frames at 16000 Hz"),
          L(4, "error: combo AI 2 'C': member AI 7 is not configured"),
          L(5, "error: combo AI 3 'D': its members lead back to itself"),
          L(6, "error: combo AI 4 'E': its members lead back to itself"), L(7, "warning: combo AI 5 'F': no members (AiIdList)")}},
        {"<Audio>\n<AI Id='0' Name='A'><SampleRate Cur='16KHZ'/><Channel Cur='2'/><FrameSize Cur='320'/></AI>\n"
         "<AI Id='1' Name='B'><SampleRate Cur='16KHZ'/><Channel Cur='1'/><FrameSize Cur='320'/></AI>\n"
         "<AI Id='2' Name='C'><Device Type='Combo' AiIdList='0:1'/><SampleRate Cur='16KHZ'/><FrameSize Cur='320'/></AI>\n"
         "<ASTREAM Id='0' Name='S' AiId='2' Worker='1'>\n<Node Type='Merge' ChnOffset='0' ChnCntA='2' ChnCntB='1'/>\n"
         "<Node Type='Dump' Path='d.pcm' ChnOffset='0' ChnCnt='4'/>\n</ASTREAM></Audio>\n",
         {E("Dump node: the group at 0 with 4 channels lies outside the 3 channel blocks", 7)}},  // combo channels add up
        // What the loaders warn about, on the line of the element concerned.
        {"<Audio>\n<AI Id='0' Name='A'>\n<Gain Cur='1'/>\n<Device Type='Usb'/>\n</AI>\n</Audio>\n",
         {L(3, "warning: Un-support sub node <Gain> for AI"), L(4, "warning: Un-support device type Usb for AI")}},
        {"<Audio>\n<AO Name='X'/>\n<AO Id='0' Name='Y'/>\n<AO Id='32' Name='Z'/>\n</Audio>\n",
         {L(2, "warning: Get Id of AO[X] failed, auto set"), L(4, "warning: Id of AO[Z] has been used, auto set")}},
        {S("<AiAdj Id='5' SampleRate='16KHZ'/>\n<Node ChnOffset='0'/>\n<Node Type='Echo'/>\n"
           "<Node Type='output' AoId='0' ChnOffset='0'/>\n<Node Type='Swap'/>\n<Node Type='Dump' ChnOffset='0' ChnCnt='1'/>\n"
           "<Node Type='OrvaneAlg' MicChnOffset='0' MicChnCnt='2' RefChnOffset='3'/>"),
         {L(6, "warning: Bad AI[5] for ASTREAM adjustment, skip"), L(7, "warning: Node 1 ignored because missing attr Type"),
          L(8, "warning: Node 1 ignored because unknown Type \"Echo\""),
          L(9, "warning: Ignore bad <Node type=\"Output\" AoId=\"0\" ChnOffset=\"0\" ChnCnt=\"-1\"/>"),
          L(10, "warning: Ignore bad <Node type=\"Swap\" Map=\"NULL\"/>"),
          L(11, "warning: Ignore bad <Node type=\"Dump\" Path=\"\" ChnOffset=\"0\" ChnCnt=\"1\"/>"),
          L(12, "warning: Ignore bad <Node type=\"OrvaneAlg\" MicChnOffset=\"0\" MicChnCnt=\"2\" LineInChnCnt=\"-1\" RefChnOffset=\"3\" />")}},
        {"<Audio>\n<AO Id='0' Name='A'><Device Type='Afile'/></AO>\n<ASTREAM Id='0' Name='S' Worker='1'>\n"
         "<AoAdj Id='0' SampleRate='16KHZ'/>\n</ASTREAM>\n</Audio>\n",
         {L(2, "warning: Un-support device type Afile for AO"), E("AI 0 is not configured", 3),
          L(4, "warning: Bad AO[0] for ASTREAM adjustment, skip")}},
        {"<Audio>\n<AI>\n</Audio>", {L(2, "error: not well-formed XML (XML_ERROR_MISMATCHED_ELEMENT)")}},
        {"<Audio>\n<AI Id='0'>\n<Device/>\n<SampleRate/>\n</AI>\n<ASTREAM Id='0' AiId='0' Worker='1'/>\n</Audio>\n",
         {L(2, "warning: Missing attr Name of AI 1, name left empty"),
          L(3, "warning: Missing attr Type of <Device> for AI[], type set to -1"),
          L(4, "warning: Missing attr Cur of <SampleRate> for AI[], rate unchanged"),
          L(6, "warning: Missing attr Name of ASTREAM 1, name left empty"),
          L(6, "error: stream '': AI 0 is not configured with a supported device type")}},
        {S("<AiAdj Id='0' Channel='2'/>\n<Node Type='Swap' Map='0:1:2:3:4:5:6:7:8:9:10:11:12:13:14:15:16:17:18:19:20'/>"),
         {L(6, "warning: No SampleRate in <AiAdj> of AI[0] for ASTREAM[S], keep 16000"),
          L(7, "warning: Map of Swap node 1 in ASTREAM[S] holds 21 entries, only the first 20 kept"),
          W("Swap node: Map has 20 entries for 2 channel blocks", 7)}},
        {"<Audio>\n<AI Id='0' Name='C'><Device Type='Combo' AiIdList='1:2:3:4:5'/></AI>\n</Audio>\n",
         {L(2, "warning: AiIdList of AI[C] holds 5 ids, only the first 4 kept"),
          L(2, "error: combo AI 0 'C': member AI 1 is not configured"), L(2, "error: combo AI 0 'C': member AI 2 is not configured"),
          L(2, "error: combo AI 0 'C': member AI 3 is not configured"), L(2, "error: combo AI 0 'C': member AI 4 is not configured")}},
        {"<Other/>", {L(0, "error: <Audio> not found")}},
        // clang-format on
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.xml);
        int errors = -1, want = 0;
        EXPECT_EQ(row.want, CheckConfigText(row.xml, "f.xml", base.Dir(), &errors));
        for (const auto& line : row.want) {
            want += line.find(": error: ") != std::string::npos ? 1 : 0;
        }
        EXPECT_EQ(want, errors);
    }
}

}  // namespace
}  // namespace audiomw_tool

// audiomw graph: what the drawing says about each node.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "config_model.h"
#include "pipeline_graph.h"

namespace audiomw_tool {
namespace {

const char kConfig[] =
    "<Audio>\n<AI Id='0' Name='Mic'><Device Type='Alsa' CardId='1'/><SampleRate Cur='16KHZ'/><Channel "
    "Cur='4'/>"
    "<FrameSize Cur='160'/></AI>\n<AI Id='1' Name='Ref'><Device Type='Afile' FilePath='ref.pcm'/>"
    "<SampleRate Cur='16KHZ'/><Channel Cur='1'/><FrameSize Cur='160'/></AI>\n<AI Id='2' Name='Both'>"
    "<Device Type='Combo' AiIdList='0:1'/><SampleRate Cur='16KHZ'/><FrameSize Cur='160'/></AI>\n"
    "<AO Id='0' Name='Spk'><Device Type='Alsa' CardId='3' DevId='1'/><SampleRate Cur='16KHZ'/><Channel "
    "Cur='2'/>"
    "<FrameSize Cur='160'/></AO>\n<ASTREAM Id='0' Name='Voice' AiId='2' Worker='2'>\n"
    "<Node Type='OrvaneAlg' MicChnOffset='0' MicChnCnt='4' LineInChnCnt='0' RefChnOffset='4'/>\n"
    "<Node Type='Split' ChnOffset='0' ChnCntA='2' ChnCntB='2'/>\n"
    "<Node Type='Output' AoId='0' ChnOffset='0' ChnCnt='2' AudioSourceId='1'/>\n</ASTREAM>\n"
    "<ASTREAM Id='1' Name='Debug' AiId='0' Worker='1'>\n<Node Type='Swap' Map='0:1:2:3'/>\n"
    "<Node Type='Dump' Path='d/x.pcm' ChnOffset='0' ChnCnt='4'/>\n"
    "<Node Type='Mixin' TargetIndex='0' ChnOffset='1' ChnCnt='2'/>\n</ASTREAM>\n</Audio>\n";

std::string Dot(const std::string& stream) {
    ConfigModel model;
    std::vector<Diagnostic> warnings;
    std::string error;
    int line = 0;
    EXPECT_TRUE(LoadConfigModel(kConfig, &model, &warnings, &error, &line)) << error;
    EXPECT_TRUE(warnings.empty());
    return PipelineDot(model, stream);
}

// Every stream, or the one named (none for an unknown name).
TEST(PipelineGraph, LabelsShowBlocksReadAndWritten) {
    const std::string dot = Dot(""), debug = Dot("Debug");
    const char* expected[] = {
        "label=\"stream Voice (Id 0, 2 workers)\"",
        "label=\"AI 2 'Both'\\ncombo of AI 0+1\\n5 ch, 16000 Hz, 160 frames\\ngroups [0-3][4]\"",
        "label=\"1. OrvaneAlg\\nmics 0-3, line-in 0\\nref 4, ex-ref -1, all-ref -1\\ngroups after: "
        "[0-3][4]\"",
        "label=\"2. Split\\nreads 0-3\\nwrites 0-1 + 2-3\\ngroups after: [0-1][2-3][4]\"",
        "label=\"3. Output\\nreads 0-1\\nwrites AO 0 (line-in source)\\ngroups after: [0-1][2-3][4]\"",
        "label=\"AO 0 'Spk'\\nALSA card 3 device 1\\n2 ch, 16000 Hz, 160 frames\"",
        "s0_n2 -> s0_ao0 [style=dashed];",
        "label=\"1. Swap\\nblock i -> Map[i]: 0:1:2:3\\ngroups after: [0-3]\"",
        "label=\"2. Dump\\nreads 0-3\\nwrites d/x.pcm\\ngroups after: [0-3]\"",
        "s1_n1 -> s1_n1_file [style=dashed];",
        "label=\"3. Mixin\\nreads 1-2 + 0\\nwrites 0 (average)\\ngroups after: [0-3]\"",
        "s0_ai -> s0_n0;",
        "s1_n1 -> s1_n2;",
    };
    for (const char* text : expected) {
        EXPECT_NE(dot.find(text), std::string::npos) << text << "\nin\n" << dot;
    }
    EXPECT_EQ(debug.find("Voice"), std::string::npos);
    EXPECT_NE(debug.find("stream Debug (Id 1, 1 workers)"), std::string::npos);
    EXPECT_EQ(Dot("Nope"), "");
}

}  // namespace
}  // namespace audiomw_tool

// The audiomw program as a user meets it: exit statuses, the lines it prints, the files it
// leaves, and a clean end on SIGTERM. Each case runs in its own scratch folder.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <filesystem>
#include <cstdlib>

#include "test_support.h"

namespace {

// A file input of 4 channels to a stereo AO on virtual card 1, whose playback lands in
// out.wav; "Broken" asks for 0 workers, which the stream refuses.
const char kConfig[] =
    "<Audio>\n<AI Id='0' Name='File'><Device Type='Afile' FilePath='in.pcm'/><SampleRate "
    "Cur='16KHZ'/><Channel Cur='4'/>"
    "<FrameSize Cur='160'/></AI>\n<AO Id='0' Name='Spk'><Device Type='Alsa' CardId='1'/><SampleRate "
    "Cur='16KHZ'/>"
    "<Channel Cur='2'/><FrameSize Cur='160'/></AO>\n<ASTREAM Id='0' Name='Main' AiId='0' Worker='1'>\n"
    "<Node Type='Split' ChnOffset='0' ChnCntA='2' ChnCntB='2'/>\n<Node Type='Output' AoId='0' ChnOffset='0' "
    "ChnCnt='2'/>\n"
    "</ASTREAM>\n<ASTREAM Id='1' Name='Broken' AiId='0' Worker='0'>\n"
    "<Node Type='Output' AoId='0' ChnOffset='0' ChnCnt='5'/>\n</ASTREAM>\n</Audio>\n";

std::string Read(const audiomw_test::ScratchRoot& dir, const std::string& name) {
    std::vector<uint8_t> bytes = audiomw_test::ReadFileBytes(dir.Path("/" + name));
    return std::string(bytes.begin(), bytes.end());
}

// Runs audiomw with args in a scratch folder holding cfg.xml, cards.txt and 400 periods
// of input; returns the exit status and the output (standard output and error). With
// stopWhen, sends SIGTERM once the output holds that text (or after 20 s).
int RunTool(const audiomw_test::ScratchRoot& dir, const std::string& args, std::string* output,
            const std::string& stopWhen = "") {
    const std::string cards =
        "pcm card=1 device=0 dir=playback channels=2 rates=16000 sink=wav:out.wav clock=realtime\n";
    audiomw_test::WriteFileBytes(dir.Path("/cfg.xml"),
                                 std::vector<uint8_t>(kConfig, kConfig + sizeof(kConfig) - 1));
    audiomw_test::WriteFileBytes(dir.Path("/cards.txt"), std::vector<uint8_t>(cards.begin(), cards.end()));
    audiomw_test::WriteFileBytes(dir.Path("/in.pcm"), std::vector<uint8_t>(160 * 4 * 2 * 400, 1));
    std::string run = AUDIOMW_TOOL_LAUNCHER " " AUDIOMW_TOOL_PATH " " + args + " > output.txt 2>&1";
    if (!stopWhen.empty()) {
        run += " & for i in $(seq 400); do grep -q '" + stopWhen +
               "' output.txt && break; sleep 0.05; done; "
               "kill -TERM $!; wait $!";
    }
    const int status = std::system(("cd '" + dir.Dir() + "' && (" + run + ")").c_str());
    *output = Read(dir, "output.txt");
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(Cli, ExitStatusAndOutput) {
    const struct {
        std::string args;
        int status;
        std::vector<std::string> lines;  // each must appear in the output
        std::string stopWhen;            // SIGTERM once this is printed
    } rows[] = {
        // clang-format off
        {"", 2, {"usage: audiomw COMMAND"}, ""},
        {"play", 2, {"audiomw: unknown command 'play'"}, ""},
        {"run --help", 0, {"usage: audiomw run CONFIG.xml", "--switch SECONDS:SLOT=NAME"}, ""},
        {"run cfg.xml --switch soon", 2, {"audiomw run: bad --switch 'soon'"}, ""},
        {"run cfg.xml --line-in 1:2", 2, {"audiomw run: bad --line-in '1:2'"}, ""},
        {"run none.xml --seconds 0.1", 1, {"audiomw run: cannot copy none.xml"}, ""},
        // A timed switch to a name holding '=' (and no such configuration).
        {"run cfg.xml --cards cards.txt --stream 0=Main --switch 0.1:0=A=B --seconds 0.3", 1,
         {"stream 0 -> A=B: no such configuration", "A stream could not start."}, ""},
        // Without --stream each slot runs the configuration of its id; Broken is refused.
        {"run cfg.xml --cards cards.txt --seconds 0.2", 1,
         {"stream 0 -> Main: running", "stream 1 -> Broken: failed", "stream 1: Broken, 0 periods read since its last switch (FAILED)"}, ""},
        {"run cfg.xml --cards cards.txt --stream 2=Main --seconds 0.1", 1, {"audiomw run: no stream slot 2"}, ""},
        {"run cfg.xml --cards cards.txt --stream 0=Main", 0, {"Summary after", "Done."}, "Main: running"},
        {"check cfg.xml", 1, {"cfg.xml:8: error: stream 'Broken': Worker 0 outside 1..4"}, ""},
        {"check none.xml", 2, {"audiomw check: cannot read none.xml"}, ""},
        {"graph cfg.xml --stream Main", 0, {"label=\"stream Main (Id 0, 1 workers)\""}, ""},
        {"graph cfg.xml --stream Nope", 1, {"no stream configuration Nope"}, ""},
        // clang-format on
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.args);
        audiomw_test::ScratchRoot dir;
        std::string output;
        EXPECT_EQ(row.status, RunTool(dir, row.args, &output, row.stopWhen)) << output;
        for (const auto& line : row.lines) {
            EXPECT_NE(output.find(line), std::string::npos) << line << "\nin\n" << output;
        }
    }
}

// The application sequence at real-time pace, and the teardown in order: the stream, then
// the input, then the output.
TEST(Cli, RunsTheConfigurationAndTearsDownInOrder) {
    audiomw_test::ScratchRoot dir;
    std::string output;
    ASSERT_EQ(0, RunTool(dir,
                         "run cfg.xml --cards cards.txt --root root --log lib.log --stream 0=Main --line-in "
                         "0.5:1 --seconds 1.5",
                         &output));
    for (const char* line : {"AI[0] File: create 0, enable 0", "AO[0] Spk: create 0, enable 0",
                             "stream 0 -> Main: running", "line-in connected", "Summary after", "Done."}) {
        EXPECT_NE(output.find(line), std::string::npos) << line << "\nin\n" << output;
    }
    EXPECT_EQ(kConfig, Read(dir, "root/cfg0/mpp_cfg.xml"));  // where the library reads it
    const std::string log = Read(dir, "lib.log");
    const size_t at[] = {log.find("Switch ASTREAM[0] for Config[Main] success"),
                         log.find("ASTREAM[0] destroyed"), log.find("AI[0] destroy success"),
                         log.find("AO[0] destroy success")};
    EXPECT_TRUE(std::is_sorted(std::begin(at), std::end(at)) && at[3] != std::string::npos) << log;
    // 1.5 s of stereo 16-bit frames and the WAV header.
    auto bytes = std::filesystem::file_size(dir.Path("/out.wav"));
    EXPECT_GT(bytes, 16000u * 4);
    EXPECT_LT(bytes, 16000u * 4 * 2 + 1024);
}

}  // namespace

// The audiomw program as a user meets it: exit statuses, the lines it prints, the files it
// leaves, and a clean end on SIGTERM. Each case runs in its own scratch folder.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "test_support.h"

namespace {

// A file input of 4 channels to a stereo AO on virtual card 1, whose playback lands in
// out.wav; "Broken" asks for 0 workers, which the stream refuses.
const char kConfig[] =
    "<Audio>\n"
    "<AI Id='0' Name='File'><Device Type='Afile' FilePath='in.pcm'/><SampleRate Cur='16KHZ'/>"
    "<Channel Cur='4'/><FrameSize Cur='160'/></AI>\n"
    "<AO Id='0' Name='Spk'><Device Type='Alsa' CardId='1'/><SampleRate Cur='16KHZ'/><Channel Cur='2'/>"
    "<FrameSize Cur='160'/></AO>\n"
    "<ASTREAM Id='0' Name='Main' AiId='0' Worker='1'>\n"
    "<Node Type='Split' ChnOffset='0' ChnCntA='2' ChnCntB='2'/>\n"
    "<Node Type='Output' AoId='0' ChnOffset='0' ChnCnt='2'/>\n"
    "</ASTREAM>\n"
    "<ASTREAM Id='1' Name='Broken' AiId='0' Worker='0'>\n"
    "<Node Type='Output' AoId='0' ChnOffset='0' ChnCnt='5'/>\n"
    "</ASTREAM>\n"
    "</Audio>\n";

const char kCards[] =
    "pcm card=1 device=0 dir=playback channels=2 rates=16000 sink=wav:out.wav clock=realtime\n";

// A scratch folder holding cfg.xml, cards.txt and 400 periods of input.
struct Scratch : audiomw_test::ScratchRoot {
    Scratch() {
        Write("cfg.xml", kConfig);
        Write("cards.txt", kCards);
        Write("in.pcm", std::string(160 * 4 * 2 * 400, '\x01'));
    }
    void Write(const std::string& name, const std::string& text) const {
        audiomw_test::WriteFileBytes(Path("/" + name), std::vector<uint8_t>(text.begin(), text.end()));
    }
    std::string Read(const std::string& name) const {
        std::vector<uint8_t> bytes = audiomw_test::ReadFileBytes(Path("/" + name));
        return std::string(bytes.begin(), bytes.end());
    }
};

struct Result {
    int status = -1;
    std::string output;  // standard output and standard error
};

// Runs audiomw with args in dir. With stopWhen, sends SIGTERM once the output holds
// that text (or after the wait's deadline).
Result RunTool(const Scratch& dir, const std::vector<std::string>& args, const std::string& stopWhen = "") {
    pid_t pid = fork();
    if (pid == 0) {
        if (chdir(dir.Dir().c_str()) != 0 || !freopen("output.txt", "w", stdout) || dup2(1, 2) < 0) {
            _exit(127);
        }
        std::vector<std::string> words;
        std::istringstream launcher(AUDIOMW_TOOL_LAUNCHER);
        for (std::string word; launcher >> word;) {
            words.push_back(word);
        }
        words.push_back(AUDIOMW_TOOL_PATH);
        words.insert(words.end(), args.begin(), args.end());
        std::vector<char*> argv;
        for (auto& word : words) {
            argv.push_back(word.data());
        }
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    if (!stopWhen.empty()) {
        audiomw_test::WaitFor([&] { return dir.Read("output.txt").find(stopWhen) != std::string::npos; },
                              std::chrono::seconds(20));
        kill(pid, SIGTERM);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, dir.Read("output.txt")};
}

struct CliCase {
    const char* name;
    std::vector<std::string> args;
    int status;
    std::vector<std::string> lines;  // each must appear in the output
};

class Cli : public ::testing::TestWithParam<CliCase> {};

TEST_P(Cli, ExitStatusAndOutput) {
    Scratch dir;
    Result result = RunTool(dir, GetParam().args);
    EXPECT_EQ(result.status, GetParam().status) << result.output;
    for (const auto& line : GetParam().lines) {
        EXPECT_NE(result.output.find(line), std::string::npos) << line << "\nin\n" << result.output;
    }
}

const CliCase kCases[] = {
    {"no_command", {}, 2, {"usage: audiomw COMMAND"}},
    {"unknown_command", {"play"}, 2, {"audiomw: unknown command 'play'"}},
    {"run_help", {"run", "--help"}, 0, {"usage: audiomw run CONFIG.xml", "--switch SECONDS:SLOT=NAME"}},
    {"run_bad_switch", {"run", "cfg.xml", "--switch", "soon"}, 2, {"audiomw run: bad --switch 'soon'"}},
    {"run_bad_line_in", {"run", "cfg.xml", "--line-in", "1:2"}, 2, {"audiomw run: bad --line-in '1:2'"}},
    {"run_missing_file", {"run", "none.xml", "--seconds", "0.1"}, 1, {"audiomw run: cannot copy none.xml"}},
    {"run_unknown_configuration",
     {"run", "cfg.xml", "--cards", "cards.txt", "--stream", "0=Nope", "--seconds", "0.1"},
     1,
     {"stream 0 -> Nope: no such configuration", "A stream could not start."}},
    // Without --stream each slot runs the configuration of its id; Broken is refused.
    {"run_default_slots",
     {"run", "cfg.xml", "--cards", "cards.txt", "--seconds", "0.2"},
     1,
     {"stream 0 -> Main: running", "stream 1 -> Broken: failed",
      "stream 1: Broken, 0 periods read since its last switch (FAILED)"}},
    {"run_slot_outside",
     {"run", "cfg.xml", "--cards", "cards.txt", "--stream", "2=Main", "--seconds", "0.1"},
     1,
     {"audiomw run: no stream slot 2"}},
    {"check_finds_errors",
     {"check", "cfg.xml"},
     1,
     {"cfg.xml:8: error: stream 'Broken': Worker 0 outside 1..4"}},
    {"check_missing_file", {"check", "none.xml"}, 2, {"audiomw check: cannot read none.xml"}},
    {"graph_one_stream",
     {"graph", "cfg.xml", "--stream", "Main"},
     0,
     {"label=\"stream Main (Id 0, 1 workers)\""}},
    {"graph_unknown_stream", {"graph", "cfg.xml", "--stream", "Nope"}, 1, {"no stream configuration Nope"}},
};

INSTANTIATE_TEST_SUITE_P(Table, Cli, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<CliCase>& info) { return info.param.name; });

TEST(CliRun, RunsTheConfigurationAndSummarises) {
    Scratch dir;
    Result result = RunTool(dir, {"run", "cfg.xml", "--cards", "cards.txt", "--root", "root", "--log",
                                  "lib.log", "--stream", "0=Main", "--line-in", "0.5:1", "--seconds", "1.5"});
    ASSERT_EQ(result.status, 0) << result.output;
    for (const char* line : {"AI[0] File: create 0, enable 0", "AO[0] Spk: create 0, enable 0",
                             "stream 0 -> Main: running", "line-in connected", "Summary after", "Done."}) {
        EXPECT_NE(result.output.find(line), std::string::npos) << line << "\nin\n" << result.output;
    }
    // The configuration went under the root where the library reads it.
    EXPECT_EQ(dir.Read("root/cfg0/mpp_cfg.xml"), kConfig);
    EXPECT_NE(dir.Read("lib.log").find("Switch ASTREAM[0] for Config[Main] success"), std::string::npos);
    // At real-time pace, 1.5 s of stereo 16-bit frames and the WAV header.
    auto bytes = std::filesystem::file_size(dir.Path("/out.wav"));
    EXPECT_GT(bytes, 16000u * 4);
    EXPECT_LT(bytes, 16000u * 4 * 2 + 1024);
}

TEST(CliRun, EndsCleanlyOnSigterm) {
    Scratch dir;
    Result result =
        RunTool(dir, {"run", "cfg.xml", "--cards", "cards.txt", "--log", "lib.log", "--stream", "0=Main"},
                "Main: running");
    ASSERT_EQ(result.status, 0) << result.output;
    EXPECT_NE(result.output.find("Summary after"), std::string::npos) << result.output;
    std::string log = dir.Read("lib.log");
    // Teardown in order: the stream, then the input, then the output.
    size_t stream = log.find("ASTREAM[0] destroyed");
    size_t input = log.find("AI[0] destroy success");
    size_t output = log.find("AO[0] destroy success");
    ASSERT_NE(stream, std::string::npos) << log;
    ASSERT_NE(input, std::string::npos) << log;
    ASSERT_NE(output, std::string::npos) << log;
    EXPECT_LT(stream, input);
    EXPECT_LT(input, output);
}

}  // namespace

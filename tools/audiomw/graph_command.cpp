// audiomw graph: the pipelines as Graphviz text, or as SVG through dot.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "commands.h"
#include "config_model.h"
#include "pipeline_graph.h"

namespace audiomw_tool {

namespace {

const char kGraphHelp[] =
    "usage: audiomw graph CONFIG.xml [--stream NAME] [-o FILE.svg|FILE.dot]\n"
    "\n"
    "Draws each stream configuration's pipeline: the AI with its channels, each node\n"
    "with the channel blocks it reads and writes and the channel groups after it, and\n"
    "the AOs and dump files it feeds. Graphviz text goes to standard output, or to\n"
    "FILE.dot; FILE.svg is drawn by Graphviz's dot (package graphviz).\n"
    "\n"
    "  --stream NAME   only the stream configuration NAME\n"
    "  -o FILE         write FILE.dot or FILE.svg\n";

bool EndsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// Feeds the text to "dot -Tsvg -o out"; false when dot is missing or fails.
bool DrawSvg(const std::string& dot, const std::string& out) {
    std::string command = "dot -Tsvg -o '" + out + "'";
    if (out.find('\'') != std::string::npos || std::system("command -v dot >/dev/null 2>&1") != 0) {
        std::fprintf(stderr, "audiomw graph: Graphviz's dot is not installed (package graphviz)\n");
        return false;
    }
    std::FILE* pipe = popen(command.c_str(), "w");
    if (pipe == nullptr) {
        return false;
    }
    std::fwrite(dot.data(), 1, dot.size(), pipe);
    int status = pclose(pipe);
    return status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool WriteOutput(const std::string& dot, const std::string& out) {
    if (out.empty()) {
        std::fputs(dot.c_str(), stdout);
        return true;
    }
    if (EndsWith(out, ".svg")) {
        return DrawSvg(dot, out);
    }
    std::ofstream file(out);
    file << dot;
    return static_cast<bool>(file);
}

}  // namespace

int GraphCommand(int argc, char** argv) {
    std::string config, stream, out;
    for (int i = 0; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            std::fputs(kGraphHelp, stdout);
            return 0;
        }
        if ((arg == "--stream" || arg == "-o") && i + 1 < argc) {
            (arg == "-o" ? out : stream) = argv[++i];
        } else if (config.empty() && arg[0] != '-') {
            config = arg;
        } else {
            std::fputs(kGraphHelp, stderr);
            return 2;
        }
    }
    std::string xml, error;
    ConfigModel model;
    std::vector<Diagnostic> warnings;
    int errorLine = 0;
    if (config.empty() || !ReadWholeFile(config, &xml) ||
        !LoadConfigModel(xml, &model, &warnings, &error, &errorLine)) {
        std::fprintf(stderr, "audiomw graph: cannot read %s %s\n", config.c_str(), error.c_str());
        return 2;
    }
    std::string dot = PipelineDot(model, stream);
    if (dot.empty()) {
        std::fprintf(stderr, "audiomw graph: no stream configuration %s\n", stream.c_str());
        return 1;
    }
    return WriteOutput(dot, out) ? 0 : 1;
}

}  // namespace audiomw_tool

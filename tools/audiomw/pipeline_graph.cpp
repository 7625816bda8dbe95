#include "pipeline_graph.h"

#include <sstream>

#include "channel_layout.h"
#include "config_checker.h"

namespace audiomw_tool {

namespace {

std::string Range(int offset, int count) {
    if (count <= 0) {
        return "none";
    }
    return count == 1 ? std::to_string(offset)
                      : std::to_string(offset) + "-" + std::to_string(offset + count - 1);
}

std::string Quote(const std::string& text) {
    std::string out = "\"";
    for (char c : text) {
        out += c == '"' ? "\\\"" : c == '\n' ? "\\n" : std::string(1, c);
    }
    return out + "\"";
}

std::string DeviceText(const DeviceSection& dev) {
    std::ostringstream text;
    switch (dev.kind) {
        case DevKind::kAlsa:
            text << "ALSA card " << dev.card << " device " << dev.device;
            break;
        case DevKind::kFile:
            text << "file " << dev.filePath;
            break;
        case DevKind::kCombo:
            text << "combo of AI";
            for (size_t i = 0; i < dev.members.size(); ++i) {
                text << (i ? "+" : " ") << dev.members[i];
            }
            break;
        case DevKind::kUnknown:
            text << "unsupported device";
            break;
    }
    return text.str();
}

// What a node reads and writes, and its effect on the grouping.
std::string NodeText(const NodeSection& node, ChannelLayout* layout) {
    std::ostringstream t;
    int c = layout->Channels();
    auto fits = [c](int o, int n) { return o >= 0 && n >= 0 && o + n <= c; };
    if (node.type == "Output") {
        t << "reads " << Range(node.Get("ChnOffset"), node.Get("ChnCnt")) << "\nwrites AO "
          << node.Get("AoId");
        if (node.Get("AudioSourceId") == 1) {
            t << " (line-in source)";
        }
    } else if (node.type == "Swap") {
        t << "block i -> Map[i]:";
        for (size_t i = 0; i < node.map.size() && static_cast<int>(i) < c; ++i) {
            t << (i ? ":" : " ") << node.map[i];
        }
        int scattered = 0;
        std::vector<int> map(node.map);
        map.resize(c, 0);
        bool permutation = static_cast<int>(node.map.size()) >= c;
        for (int i = 0; i < c && permutation; ++i) {
            permutation = map[i] >= 0 && map[i] < c;
        }
        if (permutation) {
            layout->Swap(map, &scattered);
        }
    } else if (node.type == "Split" || node.type == "Merge") {
        int o = node.Get("ChnOffset"), a = node.Get("ChnCntA"), b = node.Get("ChnCntB");
        bool split = node.type == "Split";
        t << "reads " << (split ? Range(o, a + b) : Range(o, a) + " + " + Range(o + a, b)) << "\nwrites "
          << (split ? Range(o, a) + " + " + Range(o + a, b) : Range(o, a + b));
        if (fits(o, a + b) && a + b >= 1) {
            split ? layout->Split(o, a, b) : layout->Merge(o, a, b);
        }
    } else if (node.type == "Mixin") {
        t << "reads " << Range(node.Get("ChnOffset"), node.Get("ChnCnt")) << " + " << node.Get("TargetIndex")
          << "\nwrites " << node.Get("TargetIndex") << " (average)";
    } else if (node.type == "Dump") {
        t << "reads " << Range(node.Get("ChnOffset"), node.Get("ChnCnt")) << "\nwrites " << node.path;
    } else if (node.type == "OrvaneAlg") {
        t << "mics " << Range(node.Get("MicChnOffset"), node.Get("MicChnCnt")) << ", line-in "
          << node.Get("LineInChnCnt") << "\nref " << node.Get("RefChnOffset") << ", ex-ref "
          << node.Get("ExRefChnOffset") << ", all-ref " << node.Get("AllRefChnOffset");
    }
    t << "\ngroups after: " << layout->Describe();
    return t.str();
}

void WriteStream(std::ostringstream& dot, const StreamSection& stream, size_t index) {
    std::string p = "s" + std::to_string(index) + "_";
    dot << "  subgraph cluster_" << index << " {\n    label="
        << Quote("stream " + stream.name + " (Id " + std::to_string(stream.id) + ", " +
                 std::to_string(stream.workers) + " workers)")
        << ";\n";
    const DeviceSection* ai = FindById(stream.ai, stream.aiId);
    int channels = ai ? StreamChannels(stream.ai, *ai) : 0;
    ChannelLayout layout(ai ? InitialGroups(stream.ai, *ai) : std::vector<int>());
    std::string aiText = "AI " + std::to_string(stream.aiId);
    if (ai) {
        aiText += " '" + ai->name + "'\n" + DeviceText(*ai) + "\n" + std::to_string(channels) + " ch, " +
                  std::to_string(ai->rate) + " Hz, " + std::to_string(ai->frames) + " frames\ngroups " +
                  layout.Describe();
    }
    dot << "    " << p << "ai [shape=box, style=filled, fillcolor=lightblue, label=" << Quote(aiText)
        << "];\n";
    std::string previous = p + "ai";
    for (size_t n = 0; n < stream.nodes.size(); ++n) {
        const NodeSection& node = stream.nodes[n];
        std::string id = p + "n" + std::to_string(n);
        dot << "    " << id << " [shape=box, style=rounded, label="
            << Quote(std::to_string(n + 1) + ". " + node.type + "\n" + NodeText(node, &layout)) << "];\n    "
            << previous << " -> " << id << ";\n";
        previous = id;
        if (node.type == "Output") {
            const DeviceSection* ao = FindById(stream.ao, node.Get("AoId"));
            std::string aoId = p + "ao" + std::to_string(node.Get("AoId"));
            std::string aoText = "AO " + std::to_string(node.Get("AoId"));
            if (ao) {
                aoText += " '" + ao->name + "'\n" + DeviceText(*ao) + "\n" + std::to_string(ao->channels) +
                          " ch, " + std::to_string(ao->rate) + " Hz, " + std::to_string(ao->frames) +
                          " frames";
            }
            dot << "    " << aoId << " [shape=box, style=filled, fillcolor=palegreen, label=" << Quote(aoText)
                << "];\n    " << id << " -> " << aoId << " [style=dashed];\n";
        } else if (node.type == "Dump") {
            dot << "    " << id << "_file [shape=note, label=" << Quote(node.path) << "];\n    " << id
                << " -> " << id << "_file [style=dashed];\n";
        }
    }
    dot << "  }\n";
}

}  // namespace

std::string PipelineDot(const ConfigModel& model, const std::string& onlyStream) {
    std::ostringstream dot;
    dot << "digraph audiomw {\n  rankdir=LR;\n  node [fontname=\"Helvetica\", fontsize=10];\n";
    bool any = false;
    for (size_t i = 0; i < model.streams.size(); ++i) {
        if (onlyStream.empty() || model.streams[i].name == onlyStream) {
            WriteStream(dot, model.streams[i], i);
            any = true;
        }
    }
    dot << "}\n";
    return any ? dot.str() : "";
}

}  // namespace audiomw_tool

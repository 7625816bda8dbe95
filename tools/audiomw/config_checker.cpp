#include "config_checker.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <set>

#include "channel_layout.h"

namespace audiomw_tool {

namespace {

namespace fs = std::filesystem;

constexpr int kMaxWorkers = 4;
constexpr int kMaxSwapMap = 20;

// Collects the findings of one stream, each prefixed with where it stands.
class Reporter {
  public:
    Reporter(std::vector<Diagnostic>* out, std::string prefix) : m_out(out), m_prefix(std::move(prefix)) {}

    void Report(int line, bool error, const char* fmt, ...) __attribute__((format(printf, 4, 5))) {
        char text[512];
        va_list args;
        va_start(args, fmt);
        std::vsnprintf(text, sizeof text, fmt, args);
        va_end(args);
        m_out->push_back({line, error, m_prefix + text});
    }

  private:
    std::vector<Diagnostic>* m_out;
    std::string m_prefix;
};

std::string Blocks(int offset, int count) {
    return count == 1 ? "block " + std::to_string(offset)
                      : "blocks " + std::to_string(offset) + "-" + std::to_string(offset + count - 1);
}

struct StreamCtx {
    const StreamSection& stream;
    const DeviceSection& ai;
    ChannelLayout layout;
    const std::string& baseDir;
    Reporter& report;
    int Channels() const { return layout.Channels(); }
};

// A group [offset, offset + count) inside the buffer; reports and returns false if not.
bool InBuffer(StreamCtx& ctx, const NodeSection& node, const char* what, int offset, int count) {
    if (offset >= 0 && count >= 1 && offset + count <= ctx.Channels()) {
        return true;
    }
    ctx.report.Report(node.line, true,
                      "%s node: %s at %d with %d channels lies outside the %d channel blocks",
                      node.type.c_str(), what, offset, count, ctx.Channels());
    return false;
}

void RequireGroup(StreamCtx& ctx, const NodeSection& node, const char* what, int offset, int count) {
    if (!ctx.layout.IsGroup(offset, count)) {
        ctx.report.Report(
            node.line, true, "%s node: %s %s, which are not one %d-channel group (groups here: %s)",
            node.type.c_str(), what, Blocks(offset, count).c_str(), count, ctx.layout.Describe().c_str());
    }
}

void CheckOutput(StreamCtx& ctx, const NodeSection& node) {
    int aoId = node.Get("AoId");
    int offset = node.Get("ChnOffset");
    int count = node.Get("ChnCnt");
    if (InBuffer(ctx, node, "the group", offset, count)) {
        RequireGroup(ctx, node, "sends", offset, count);
    }
    const DeviceSection* ao = FindById(ctx.stream.ao, aoId);
    if (ao == nullptr) {
        ctx.report.Report(node.line, true, "Output node: AO %d is not configured", aoId);
        return;
    }
    if (ao->channels != count) {
        ctx.report.Report(node.line, true,
                          "Output node: sends a %d-channel group to AO %d, which takes %d channels", count,
                          aoId, ao->channels);
    }
    if (ao->frames != ctx.ai.frames || ao->rate != ctx.ai.rate) {
        ctx.report.Report(
            node.line, true,
            "Output node: AO %d takes %d frames at %d Hz, the input delivers %d frames at %d Hz", aoId,
            ao->frames, ao->rate, ctx.ai.frames, ctx.ai.rate);
    }
}

// Reports a swap map that is not a permutation of 0..C-1; true when it is one.
bool CheckSwapMap(StreamCtx& ctx, const NodeSection& node) {
    int channels = ctx.Channels();
    if (channels > kMaxSwapMap) {
        ctx.report.Report(node.line, true, "Swap node: %d channels, a swap map holds at most %d", channels,
                          kMaxSwapMap);
        return false;
    }
    if (static_cast<int>(node.map.size()) != channels) {
        ctx.report.Report(node.line, static_cast<int>(node.map.size()) < channels,
                          "Swap node: Map has %zu entries for %d channel blocks", node.map.size(), channels);
    }
    std::vector<int> map(node.map.begin(), node.map.begin() + std::min<size_t>(node.map.size(), channels));
    map.resize(channels, 0);
    std::vector<int> used(channels, 0);
    for (int i = 0; i < channels; ++i) {
        if (map[i] < 0 || map[i] >= channels) {
            ctx.report.Report(node.line, true, "Swap node: Map entry %d is %d, outside 0..%d", i, map[i],
                              channels - 1);
            return false;
        }
        ++used[map[i]];
    }
    auto stale = std::find(used.begin(), used.end(), 0);
    if (stale != used.end()) {
        ctx.report.Report(node.line, true, "Swap node: Map is not a permutation: block %d receives nothing",
                          static_cast<int>(stale - used.begin()));
        return false;
    }
    return true;
}

void CheckSwap(StreamCtx& ctx, const NodeSection& node) {
    if (!CheckSwapMap(ctx, node)) {
        return;
    }
    int scattered = 0;
    std::vector<int> map(node.map.begin(), node.map.begin() + ctx.Channels());
    if (!ctx.layout.Swap(map, &scattered)) {
        ctx.report.Report(node.line, true,
                          "Swap node: the group at block %d is not kept together and in order", scattered);
    }
}

bool SplitMergeInBuffer(StreamCtx& ctx, const NodeSection& node, int offset, int a, int b) {
    if (offset >= 0 && a >= 0 && b >= 0 && a + b >= 1 && offset + a + b <= ctx.Channels()) {
        return true;
    }
    ctx.report.Report(node.line, true,
                      "%s node: ChnOffset %d, ChnCntA %d, ChnCntB %d do not fit %d channel blocks",
                      node.type.c_str(), offset, a, b, ctx.Channels());
    return false;
}

void CheckSplit(StreamCtx& ctx, const NodeSection& node) {
    int offset = node.Get("ChnOffset");
    int a = node.Get("ChnCntA");
    int b = node.Get("ChnCntB");
    if (SplitMergeInBuffer(ctx, node, offset, a, b)) {
        RequireGroup(ctx, node, "splits", offset, a + b);
        ctx.layout.Split(offset, a, b);
    }
}

void CheckMerge(StreamCtx& ctx, const NodeSection& node) {
    int offset = node.Get("ChnOffset");
    int a = node.Get("ChnCntA");
    int b = node.Get("ChnCntB");
    if (!SplitMergeInBuffer(ctx, node, offset, a, b)) {
        return;
    }
    if (a > 0) {
        RequireGroup(ctx, node, "merges", offset, a);
    }
    if (b > 0) {
        RequireGroup(ctx, node, "merges", offset + a, b);
    }
    ctx.layout.Merge(offset, a, b);
}

void CheckMixin(StreamCtx& ctx, const NodeSection& node) {
    int target = node.Get("TargetIndex");
    int offset = node.Get("ChnOffset");
    int count = node.Get("ChnCnt");
    if (target < 0 || target >= ctx.Channels()) {
        ctx.report.Report(node.line, true, "Mixin node: TargetIndex %d outside 0..%d", target,
                          ctx.Channels() - 1);
        return;
    }
    if (offset < 0 || count < 0 || offset + count > ctx.Channels()) {
        ctx.report.Report(node.line, true,
                          "Mixin node: ChnOffset %d with ChnCnt %d do not fit %d channel blocks", offset,
                          count, ctx.Channels());
        return;
    }
    if (count == 0) {
        ctx.report.Report(node.line, false, "Mixin node: ChnCnt 0 mixes nothing");
    }
    for (int block = offset; block < offset + count; ++block) {
        if (!ctx.layout.IsGroup(block, 1)) {
            ctx.report.Report(node.line, true,
                              "Mixin node: block %d is part of a multichannel group, not a mono channel",
                              block);
            return;
        }
    }
    if (!ctx.layout.IsGroup(target, 1)) {
        ctx.report.Report(node.line, true, "Mixin node: target block %d is part of a multichannel group",
                          target);
    }
}

void CheckDump(StreamCtx& ctx, const NodeSection& node) {
    InBuffer(ctx, node, "the group", node.Get("ChnOffset"), node.Get("ChnCnt"));
    fs::path path(node.path);
    fs::path folder = path.parent_path();
    if (path.is_relative()) {
        folder = fs::path(ctx.baseDir) / folder;
    }
    std::error_code ec;
    if (!fs::is_directory(folder.empty() ? fs::path(".") : folder, ec)) {
        ctx.report.Report(node.line, false, "Dump node: folder of %s does not exist; nothing is dumped",
                          node.path.c_str());
    }
}

void CheckVoice(StreamCtx& ctx, const NodeSection& node) {
    int mic = node.Get("MicChnOffset");
    int mics = node.Get("MicChnCnt");
    int lineIn = node.Get("LineInChnCnt");
    if (mic < 0 || mics < 1 || lineIn < 0 || mic + mics + lineIn > ctx.Channels()) {
        ctx.report.Report(
            node.line, true,
            "OrvaneAlg node: %d microphone and %d line-in channels at block %d do not fit %d channel "
            "blocks",
            mics, lineIn, mic, ctx.Channels());
    }
    for (const char* key : {"RefChnOffset", "ExRefChnOffset", "AllRefChnOffset"}) {
        int ref = node.Get(key);
        bool optional = std::string(key) != "RefChnOffset";
        if ((ref < 0 || ref >= ctx.Channels()) && !(optional && ref == -1)) {
            ctx.report.Report(node.line, true, "OrvaneAlg node: %s %d outside 0..%d", key, ref,
                              ctx.Channels() - 1);
        }
    }
}

void CheckNode(StreamCtx& ctx, const NodeSection& node) {
    static const struct {
        const char* type;
        void (*check)(StreamCtx&, const NodeSection&);
    } kChecks[] = {{"Output", CheckOutput},  {"Swap", CheckSwap},   {"Split", CheckSplit},
                   {"Merge", CheckMerge},    {"Mixin", CheckMixin}, {"Dump", CheckDump},
                   {"OrvaneAlg", CheckVoice}};
    for (const auto& entry : kChecks) {
        if (node.type == entry.type) {
            entry.check(ctx, node);
        }
    }
}

void CheckStream(const StreamSection& stream, const std::string& baseDir, std::vector<Diagnostic>* out) {
    Reporter report(out, "stream '" + stream.name + "': ");
    if (stream.workers < 1 || stream.workers > kMaxWorkers) {
        report.Report(stream.line, true, "Worker %d outside 1..%d", stream.workers, kMaxWorkers);
    }
    const DeviceSection* ai = FindById(stream.ai, stream.aiId);
    if (ai == nullptr || ai->kind == DevKind::kUnknown) {
        report.Report(stream.line, true, "AI %d is not configured%s", stream.aiId,
                      ai ? " with a supported device type" : "");
        return;
    }
    int channels = StreamChannels(stream.ai, *ai);
    if (channels < 1) {
        report.Report(stream.line, true, "AI %d has %d channels", stream.aiId, channels);
        return;
    }
    StreamCtx ctx{stream, *ai, ChannelLayout(InitialGroups(stream.ai, *ai)), baseDir, report};
    for (const NodeSection& node : stream.nodes) {
        CheckNode(ctx, node);
    }
}

// Follows combo members from combo; true when it comes back to start.
bool ReachesCombo(const std::vector<DeviceSection>& ai, const DeviceSection& combo, int start,
                  std::set<int>* seen) {
    for (int member : combo.members) {
        const DeviceSection* m = FindById(ai, member);
        if (member == start) {
            return true;
        }
        if (m && m->kind == DevKind::kCombo && seen->insert(member).second &&
            ReachesCombo(ai, *m, start, seen)) {
            return true;
        }
    }
    return false;
}

void CheckCombo(const std::vector<DeviceSection>& ai, const DeviceSection& combo,
                std::vector<Diagnostic>* out) {
    Reporter report(out, "combo AI " + std::to_string(combo.id) + " '" + combo.name + "': ");
    int line = combo.comboLine ? combo.comboLine : combo.line;
    if (combo.members.empty()) {
        report.Report(line, false, "no members (AiIdList)");
    }
    std::set<int> seen;
    if (ReachesCombo(ai, combo, combo.id, &seen)) {
        report.Report(line, true, "its members lead back to itself");
        return;
    }
    for (int id : combo.members) {
        const DeviceSection* m = FindById(ai, id);
        if (m == nullptr) {
            report.Report(line, true, "member AI %d is not configured", id);
        } else if (m->rate != combo.rate || m->frames != combo.frames) {
            report.Report(line, true, "member AI %d runs %d frames at %d Hz, the combo %d frames at %d Hz",
                          id, m->frames, m->rate, combo.frames, combo.rate);
        }
    }
}

}  // namespace

int StreamChannels(const std::vector<DeviceSection>& records, const DeviceSection& ai) {
    int sum = 0;
    for (int size : InitialGroups(records, ai)) {
        sum += size;
    }
    return sum;
}

std::vector<int> InitialGroups(const std::vector<DeviceSection>& records, const DeviceSection& ai) {
    if (ai.kind != DevKind::kCombo) {
        return {ai.channels};
    }
    std::vector<int> groups;
    for (int id : ai.members) {
        const DeviceSection* m = FindById(records, id);
        if (m && m->kind != DevKind::kCombo && m->channels > 0) {
            groups.push_back(m->channels);
        }
    }
    return groups;
}

void CheckConfig(const ConfigModel& model, const std::string& baseDir, std::vector<Diagnostic>* out) {
    for (const DeviceSection& ai : model.ai) {
        if (ai.kind == DevKind::kCombo) {
            CheckCombo(model.ai, ai, out);
        }
    }
    for (const StreamSection& stream : model.streams) {
        CheckStream(stream, baseDir, out);
    }
}

std::vector<std::string> CheckConfigText(const std::string& xml, const std::string& file,
                                         const std::string& baseDir, int* errors) {
    ConfigModel model;
    std::vector<Diagnostic> found;
    std::string error;
    int errorLine = 0;
    if (!LoadConfigModel(xml, &model, &found, &error, &errorLine)) {
        found.push_back({errorLine, true, error});
    } else {
        CheckConfig(model, baseDir, &found);
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const Diagnostic& a, const Diagnostic& b) { return a.line < b.line; });
    std::vector<std::string> lines;
    *errors = 0;
    for (const Diagnostic& d : found) {
        *errors += d.error ? 1 : 0;
        lines.push_back(file + ":" + std::to_string(d.line) + ": " + (d.error ? "error: " : "warning: ") +
                        d.text);
    }
    return lines;
}

}  // namespace audiomw_tool

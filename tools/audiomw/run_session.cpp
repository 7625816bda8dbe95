#include "run_session.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>

#include "audio_ai.h"
#include "audio_ao.h"
#include "audio_astream.h"
#include "audio_ext.h"
#include "host_test.h"
#include "tinyalsa/vcard.h"

namespace audiomw_tool {

namespace fs = std::filesystem;

namespace {

constexpr int kLineInGpio = 14;

volatile std::sig_atomic_t g_stop = 0;

void OnStopSignal(int) {
    g_stop = 1;
}

void OnVoiceFrame(void* arg, short result) {
    auto* stats = static_cast<VoiceStats*>(arg);
    stats->lastResult.store(result, std::memory_order_relaxed);
    stats->frames.fetch_add(1, std::memory_order_relaxed);
}

std::string Name(const char* field) {
    return std::string(field, strnlen(field, AUDIO_CFG_NAME_LEN));
}

bool VirtualCounters(int card, int device, vcard_direction dir, vcard_counters* out) {
    return card >= 0 && device >= 0 && vcard_is_virtual(static_cast<unsigned>(card)) == 1 &&
           vcard_get_counters(static_cast<unsigned>(card), static_cast<unsigned>(device), dir, out) == 0;
}

// The AO's underrun count, "-" while it is not open.
std::string Underruns(int aoId) {
    int count = AUDIO_AO_GetUnderRunState(aoId);
    return count < 0 ? "-" : std::to_string(count);
}

}  // namespace

// Without --stream, slot i runs the configuration whose Id is i.
std::vector<SlotName> RunSession::StartTargets() const {
    if (!m_opt.streams.empty()) {
        return m_opt.streams;
    }
    std::vector<SlotName> targets;
    for (const auto& cfg : m_streams) {
        if (cfg.s32Id >= 0 && cfg.s32Id < ASTREAM_MAX_NUM) {
            targets.push_back({cfg.s32Id, Name(cfg.acName)});
        }
    }
    return targets;
}

void InstallStopSignals() {
    struct sigaction action {};
    action.sa_handler = OnStopSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool StopRequested() {
    return g_stop != 0;
}

RunSession::~RunSession() {
    AUDIO_EXT_SetRootDir(nullptr);
    if (!m_tempRoot.empty()) {
        std::error_code ignored;
        fs::remove_all(m_tempRoot, ignored);
    }
}

bool RunSession::PrepareRoot() {
    std::string root = m_opt.root;
    if (root.empty()) {
        const char* tmp = std::getenv("TMPDIR");
        std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/audiomw-run-XXXXXX";
        std::vector<char> buf(pattern.begin(), pattern.end());
        buf.push_back('\0');
        if (!mkdtemp(buf.data())) {
            std::fprintf(stderr, "audiomw run: cannot make a temporary root: %s\n", std::strerror(errno));
            return false;
        }
        root = m_tempRoot = buf.data();
    }
    std::error_code ec;
    fs::create_directories(root + "/cfg0", ec);
    fs::create_directories(root + "/var", ec);
    fs::copy_file(m_opt.config, root + "/cfg0/mpp_cfg.xml", fs::copy_options::overwrite_existing, ec);
    if (ec) {
        std::fprintf(stderr, "audiomw run: cannot copy %s under %s: %s\n", m_opt.config.c_str(), root.c_str(),
                     ec.message().c_str());
        return false;
    }
    if (AUDIO_EXT_SetRootDir(root.c_str()) != 0) {
        std::fprintf(stderr, "audiomw run: root %s refused\n", root.c_str());
        return false;
    }
    std::printf("root %s, configuration %s\n", root.c_str(), m_opt.config.c_str());
    return true;
}

bool RunSession::LoadAndCreateDevices() {
    if (AUDIO_AI_LoadFromConfig(m_ai) != 0 || AUDIO_AO_LoadFromConfig(m_ao) != 0) {
        std::fprintf(stderr, "audiomw run: the configuration could not be loaded\n");
        return false;
    }
    for (auto& ai : m_ai) {
        int created = AUDIO_AI_Create(ai.s32Id, &ai.stAttr);
        int enabled = created == 0 ? AUDIO_AI_SetEnable(ai.s32Id, ZN_TRUE) : -1;
        std::printf("AI[%d] %s: create %d, enable %d\n", ai.s32Id, Name(ai.acName).c_str(), created, enabled);
    }
    for (auto& ao : m_ao) {
        int created = AUDIO_AO_Create(ao.s32Id, &ao.stAttr);
        int enabled = created == 0 ? AUDIO_AO_SetEnable(ao.s32Id, ZN_TRUE) : -1;
        std::printf("AO[%d] %s: create %d, enable %d\n", ao.s32Id, Name(ao.acName).c_str(), created, enabled);
    }
    if (AUDIO_ASTREAM_LoadFromConfig(m_ai, m_ao, m_streams) != 0) {
        std::fprintf(stderr, "audiomw run: the stream configurations could not be loaded\n");
        return false;
    }
    HookVoiceNodes();
    return true;
}

void RunSession::HookVoiceNodes() {
    for (auto& cfg : m_streams) {
        int index = 0;
        for (auto& node : cfg.stAttr.lstNodeAttr) {
            ++index;
            if (node.eType != ASTREAM_NODE_TYPE_E_ORVANE_ALG) {
                continue;
            }
            m_voice.emplace_back();
            m_voice.back().stream = Name(cfg.acName);
            m_voice.back().node = index;
            node.unAttr.stOrvaneAlg.pfnFrameCallback = OnVoiceFrame;
            node.unAttr.stOrvaneAlg.pCallbackArg = &m_voice.back();
        }
    }
}

void RunSession::MakeCardsFree() {
    for (const auto& ai : m_ai) {
        if (ai.stAttr.eType == AI_DEV_TYPE_ALSA && vcard_is_virtual(ai.stAttr.stAlsaDev.s32CardId) == 1) {
            vcard_set_clock(ai.stAttr.stAlsaDev.s32CardId, ai.stAttr.stAlsaDev.s32DevId, VCARD_CAPTURE,
                            VCARD_CLOCK_FREE);
        }
    }
    for (const auto& ao : m_ao) {
        if (vcard_is_virtual(ao.stAttr.stAlsaDev.s32CardId) == 1) {
            vcard_set_clock(ao.stAttr.stAlsaDev.s32CardId, ao.stAttr.stAlsaDev.s32DevId, VCARD_PLAYBACK,
                            VCARD_CLOCK_FREE);
        }
    }
}

bool RunSession::SwitchSlot(const SlotName& target) {
    if (target.slot < 0 || target.slot >= ASTREAM_MAX_NUM) {
        std::fprintf(stderr, "audiomw run: no stream slot %d\n", target.slot);
        m_startFailed = true;
        return false;
    }
    auto found = std::find_if(m_streams.begin(), m_streams.end(), [&](const tagASTREAM_XML_CFG_S& cfg) {
        return Name(cfg.acName) == target.name;
    });
    SlotState& slot = m_slots[target.slot];
    int result = found == m_streams.end() ? -1 : AUDIO_ASTREAM_SwitchToConfig(target.slot, *found);
    slot.config = target.name;
    slot.failed = result != 0;
    if (result == 0 && m_opt.dumps) {
        AUDIO_ASTREAM_enableDumpNode(target.slot, ZN_TRUE);
    }
    slot.baseReads = 0;
    slot.baseReads = StreamReads(target.slot);
    std::printf("[%6.2f s] stream %d -> %s: %s\n", m_elapsed, target.slot, target.name.c_str(),
                found == m_streams.end() ? "no such configuration"
                : result == 0            ? "running"
                                         : "failed");
    m_startFailed = m_startFailed || result != 0;
    return result == 0;
}

void RunSession::ApplyLineIn(bool connected) {
    // GPIO 14 reads 1 while nothing is plugged in; output nodes consult it.
    BSP_SetGpioOverride(kLineInGpio, connected ? 0 : 1);
    AUDIO_ASTREAM_LineInDectMutexLock();
    AUDIO_ASTREAM_SetLineInConnetState(connected ? ZN_TRUE : ZN_FALSE);
    AUDIO_ASTREAM_LineInDectMutexUnlock();
    std::printf("[%6.2f s] line-in %s\n", m_elapsed, connected ? "connected" : "disconnected");
}

unsigned long long RunSession::StreamReads(int slot) {
    auto cfg = std::find_if(m_streams.begin(), m_streams.end(), [&](const tagASTREAM_XML_CFG_S& c) {
        return Name(c.acName) == m_slots[slot].config;
    });
    if (m_slots[slot].failed || cfg == m_streams.end()) {
        return 0;
    }
    AI_ATTR_S attr{};
    int aiId = cfg->stAttr.s32AiId;
    if (AUDIO_AI_GetAttr(aiId, &attr) == 0 && attr.eType == AI_DEV_TYPE_COMBO &&
        attr.stComboDev.s32AiCnt > 0) {
        AUDIO_AI_GetAttr(attr.stComboDev.as32AiId[0], &attr);
    }
    vcard_counters counters{};
    if (attr.eType == AI_DEV_TYPE_ALSA &&
        VirtualCounters(attr.stAlsaDev.s32CardId, attr.stAlsaDev.s32DevId, VCARD_CAPTURE, &counters)) {
        return counters.reads - m_slots[slot].baseReads;
    }
    // A file input is not observable itself: count the frames its voice node processed,
    // or the periods its first output wrote.
    for (const auto& voice : m_voice) {
        if (voice.stream == m_slots[slot].config) {
            return voice.frames.load() - m_slots[slot].baseReads;
        }
    }
    for (const auto& node : cfg->stAttr.lstNodeAttr) {
        AO_ATTR_S ao{};
        if (node.eType == ASTREAM_NODE_TYPE_E_OUTPUT &&
            AUDIO_AO_GetAttr(node.unAttr.stOutput.s32AoId, &ao) == 0 &&
            VirtualCounters(ao.stAlsaDev.s32CardId, ao.stAlsaDev.s32DevId, VCARD_PLAYBACK, &counters)) {
            return counters.writes - m_slots[slot].baseReads;
        }
    }
    return 0;
}

std::string RunSession::AoLine(const tagAO_XML_CFG_S& ao) {
    AO_ATTR_S attr{};
    AUDIO_AO_GetAttr(ao.s32Id, &attr);
    vcard_counters counters{};
    char line[160];
    if (VirtualCounters(attr.stAlsaDev.s32CardId, attr.stAlsaDev.s32DevId, VCARD_PLAYBACK, &counters)) {
        std::snprintf(line, sizeof line, "AO[%d] %llu frames, underruns %s", ao.s32Id,
                      counters.frames_written, Underruns(ao.s32Id).c_str());
    } else {
        std::snprintf(line, sizeof line, "AO[%d] underruns %s", ao.s32Id, Underruns(ao.s32Id).c_str());
    }
    return line;
}

void RunSession::PrintProgress(double now) {
    std::string line;
    char part[128];
    for (int slot = 0; slot < ASTREAM_MAX_NUM; ++slot) {
        if (!m_slots[slot].config.empty() && !m_slots[slot].failed) {
            std::snprintf(part, sizeof part, "stream %d %s: %llu periods; ", slot,
                          m_slots[slot].config.c_str(), StreamReads(slot));
            line += part;
        }
    }
    for (const auto& ao : m_ao) {
        line += AoLine(ao) + "; ";
    }
    for (const auto& voice : m_voice) {
        if (voice.frames.load() > 0) {
            std::snprintf(part, sizeof part, "voice %s/%d: result %d; ", voice.stream.c_str(), voice.node,
                          voice.lastResult.load());
            line += part;
        }
    }
    std::printf("[%6.2f s] %s\n", now, line.c_str());
    std::fflush(stdout);
}

void RunSession::RunDueEvents(double now, size_t* nextSwitch, size_t* nextLineIn) {
    while (*nextSwitch < m_opt.switches.size() && m_opt.switches[*nextSwitch].seconds <= now) {
        SwitchSlot(m_opt.switches[(*nextSwitch)++].target);
    }
    while (*nextLineIn < m_opt.lineIns.size() && m_opt.lineIns[*nextLineIn].seconds <= now) {
        ApplyLineIn(m_opt.lineIns[(*nextLineIn)++].connected);
    }
}

void RunSession::Loop() {
    using Clock = std::chrono::steady_clock;
    auto start = Clock::now();
    size_t nextSwitch = 0;
    size_t nextLineIn = 0;
    double nextProgress = 1.0;
    while (!StopRequested()) {
        m_elapsed = std::chrono::duration<double>(Clock::now() - start).count();
        if (m_opt.seconds > 0.0 && m_elapsed >= m_opt.seconds) {
            break;
        }
        RunDueEvents(m_elapsed, &nextSwitch, &nextLineIn);
        if (m_elapsed >= nextProgress) {
            PrintProgress(m_elapsed);
            nextProgress += 1.0;
        }
        // The control thread only polls its timetable; the audio runs on the library's threads.
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

void RunSession::Teardown() {
    for (int slot = 0; slot < ASTREAM_MAX_NUM; ++slot) {
        if (AUDIO_ASTREAM_isReady(slot)) {
            AUDIO_ASTREAM_Stop(slot);
            AUDIO_ASTREAM_Destroy(slot);
        }
    }
    // Combos stand after their members in a configuration: undo in reverse.
    for (auto it = m_ai.rbegin(); it != m_ai.rend(); ++it) {
        if (AUDIO_AI_isInitd(it->s32Id) || AUDIO_AI_isOpen(it->s32Id)) {
            AUDIO_AI_Close(it->s32Id);
        }
        AUDIO_AI_SetEnable(it->s32Id, ZN_FALSE);
        AUDIO_AI_Destroy(it->s32Id);
    }
    for (auto it = m_ao.rbegin(); it != m_ao.rend(); ++it) {
        AUDIO_AO_SetEnable(it->s32Id, ZN_FALSE);
        AUDIO_AO_Destroy(it->s32Id);
    }
}

void RunSession::PrintSummary() {
    std::printf("\nSummary after %.2f s\n", m_elapsed);
    for (int slot = 0; slot < ASTREAM_MAX_NUM; ++slot) {
        if (!m_slots[slot].config.empty()) {
            std::printf("  stream %d: %s, %llu periods read since its last switch%s\n", slot,
                        m_slots[slot].config.c_str(), StreamReads(slot),
                        m_slots[slot].failed ? " (FAILED)" : "");
        }
    }
    for (const auto& ao : m_ao) {
        std::printf("  %s (%s)\n", AoLine(ao).c_str(), Name(ao.acName).c_str());
    }
    if (!m_opt.log.empty()) {
        std::printf("  library log %s: %d lines, %d warnings or errors\n", m_opt.log.c_str(), m_log.Lines(),
                    m_log.Problems());
    }
    for (const auto& voice : m_voice) {
        std::printf("  voice node %d of %s: %llu frames, last result %d\n", voice.node, voice.stream.c_str(),
                    voice.frames.load(), voice.lastResult.load());
    }
}

int RunSession::Run() {
    if (!m_opt.cards.empty()) {
        setenv("TINYALSA_VCARDS", fs::absolute(m_opt.cards).c_str(), 1);
    }
    if (!m_opt.log.empty() && !m_log.Open(m_opt.log)) {
        std::fprintf(stderr, "audiomw run: cannot create %s\n", m_opt.log.c_str());
        return 1;
    }
    if (!PrepareRoot() || !LoadAndCreateDevices()) {
        Teardown();
        return 1;
    }
    if (m_opt.freeRun) {
        MakeCardsFree();
    }
    std::stable_sort(m_opt.switches.begin(), m_opt.switches.end(),
                     [](const TimedSwitch& a, const TimedSwitch& b) { return a.seconds < b.seconds; });
    std::stable_sort(m_opt.lineIns.begin(), m_opt.lineIns.end(),
                     [](const TimedLineIn& a, const TimedLineIn& b) { return a.seconds < b.seconds; });
    for (const auto& target : StartTargets()) {
        SwitchSlot(target);
    }
    InstallStopSignals();
    Loop();
    // Counters are read before the teardown releases the devices they describe.
    PrintSummary();
    Teardown();
    m_log.Close();
    std::printf("%s\n", m_startFailed ? "A stream could not start." : "Done.");
    return m_startFailed ? 1 : 0;
}

}  // namespace audiomw_tool

// One run of a configuration through the library's exported functions: the
// application sequence, timed switches and line-in changes, progress and teardown.
#ifndef AUDIOMW_TOOL_RUN_SESSION_H
#define AUDIOMW_TOOL_RUN_SESSION_H

#include <atomic>
#include <deque>
#include <list>
#include <string>
#include <vector>

#include "audio_config.h"
#include "cli_args.h"
#include "library_log.h"

namespace audiomw_tool {

struct RunOptions {
    std::string config;
    std::string root;   // empty: a temporary root, removed at the end
    std::string cards;  // virtual-card file, empty for none
    std::string log;    // file for the library's log lines, empty: standard error
    std::vector<SlotName> streams;
    std::vector<TimedSwitch> switches;
    std::vector<TimedLineIn> lineIns;
    double seconds = 0.0;  // 0: until Ctrl-C or SIGTERM
    bool freeRun = false;
    bool dumps = false;  // switch on the dump nodes of each stream started
};

// What the voice node's frame callback reports, per node.
struct VoiceStats {
    std::string stream;  // the configuration's name
    int node = 0;        // its place in the node list, from 1
    std::atomic<unsigned long long> frames{0};
    std::atomic<int> lastResult{0};
};

class RunSession {
  public:
    explicit RunSession(const RunOptions& options) : m_opt(options) {}
    ~RunSession();
    RunSession(const RunSession&) = delete;
    RunSession& operator=(const RunSession&) = delete;

    // The whole run; returns the exit status.
    int Run();

  private:
    struct SlotState {
        std::string config;  // name of the running configuration, empty when none
        unsigned long long baseReads = 0;
        bool failed = false;
    };

    std::vector<SlotName> StartTargets() const;
    bool PrepareRoot();
    bool LoadAndCreateDevices();
    void HookVoiceNodes();
    void MakeCardsFree();
    bool SwitchSlot(const SlotName& target);
    void ApplyLineIn(bool connected);
    void Loop();
    void RunDueEvents(double now, size_t* nextSwitch, size_t* nextLineIn);
    void PrintProgress(double now);
    void Teardown();
    void PrintSummary();
    unsigned long long StreamReads(int slot);
    std::string AoLine(const tagAO_XML_CFG_S& ao);

    RunOptions m_opt;
    std::string m_tempRoot;
    std::list<tagAI_XML_CFG_S> m_ai;
    std::list<tagAO_XML_CFG_S> m_ao;
    std::list<tagASTREAM_XML_CFG_S> m_streams;
    std::deque<VoiceStats> m_voice;
    SlotState m_slots[ASTREAM_MAX_NUM];
    bool m_startFailed = false;
    double m_elapsed = 0.0;
    LibraryLog m_log;
};

// Set by SIGINT and SIGTERM; the run loop ends when it turns non-zero.
void InstallStopSignals();
bool StopRequested();

}  // namespace audiomw_tool

#endif  // AUDIOMW_TOOL_RUN_SESSION_H

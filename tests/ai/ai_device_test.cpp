// The device base: setCfg's steps for each verdict, with a device whose verdict and
// operation results are scripted and whose calls are recorded.
#include <pthread.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "ai_test_util.h"
#include "test_support.h"

namespace {

using Calls = std::vector<std::string>;
using Lines = std::vector<audiomw_test::Logged>;

struct ScriptedDevice : public AI_DEVICE_S {
    AUDIO_SET_ACTION_E verdict = AUDIO_SET_ACTION_E_NONE;
    std::string failing;  // the operation that returns -7
    Calls calls;
    int lockState = 0;  // pthread_mutex_trylock result seen inside the device

    int Run(const char* op) {
        calls.push_back(op);
        return failing == op ? -7 : 0;
    }
    int init() override { return Run("init"); }
    int destroy() override { return Run("destroy"); }
    int open() override { return Run("open"); }
    int close() override { return Run("close"); }
    int hotApply() override { return Run("hotApply"); }
    AUDIO_SET_ACTION_E calActionOnSetCfg(AI_ATTR_S*) override {
        lockState = pthread_mutex_trylock(&stMutex);
        Run("verdict");
        return verdict;
    }
};

struct SetCfgCase {
    AUDIO_SET_ACTION_E verdict;
    unsigned int open, init;
    bool newEnable;
    const char* failing;
    int ret;
    bool stored;
    Calls calls;
    const char* line;  // after "AI_DEVICE_S::setCfg, AUDIO_SET_ACTION_E_", null for none
};

constexpr auto kHot = AUDIO_SET_ACTION_E_HOT_UPDATE;
constexpr auto kClose = AUDIO_SET_ACTION_E_NEED_CLOSE;
constexpr auto kDestroy = AUDIO_SET_ACTION_E_NEED_DESTROY;

// clang-format off
const SetCfgCase kSetCfgCases[] = {
    {AUDIO_SET_ACTION_E_NONE, 1, 1, true, "", 0, false, {"verdict"}, nullptr},
    {static_cast<AUDIO_SET_ACTION_E>(9), 1, 1, true, "", 0, false, {"verdict"}, nullptr},
    {kHot, 1, 1, true, "hotApply", -7, true, {"verdict", "hotApply"}, "HOT_UPDATE"},
    {kClose, 0, 1, true, "", 0, false, {"verdict"}, "NEED_CLOSE, bHasOpen:0"},
    {kClose, 1, 1, true, "open", -7, true, {"verdict", "close", "open"}, "NEED_CLOSE, bHasOpen:1"},
    {kClose, 1, 1, true, "close", -7, false, {"verdict", "close"}, "NEED_CLOSE, bHasOpen:1"},
    {kDestroy, 0, 1, true, "init", -7, true, {"verdict", "destroy", "init"}, "NEED_DESTROY, bHasOpen:0"},
    {kDestroy, 0, 0, false, "", 0, true, {"verdict"}, "NEED_DESTROY, bHasOpen:0"},
    {kDestroy, 0, 1, true, "destroy", -7, false, {"verdict", "destroy"}, "NEED_DESTROY, bHasOpen:0"},
    // Open: closed, destroyed, stored, re-initialised and reopened even when disabled.
    {kDestroy, 1, 1, false, "", 0, true, {"verdict", "close", "destroy", "init", "open"}, "NEED_DESTROY, bHasOpen:1"},
    {kDestroy, 1, 1, true, "close", -7, false, {"verdict", "close"}, "NEED_DESTROY, bHasOpen:1"},
    {kDestroy, 1, 1, true, "destroy", -7, false, {"verdict", "close", "destroy"}, "NEED_DESTROY, bHasOpen:1"},
    {kDestroy, 1, 1, true, "init", -7, true, {"verdict", "close", "destroy", "init"}, "NEED_DESTROY, bHasOpen:1"},
    {kDestroy, 1, 1, true, "open", -7, true, {"verdict", "close", "destroy", "init", "open"}, "NEED_DESTROY, bHasOpen:1"},
};
// clang-format on

using SetCfgTest = audiomw_test::AudioTest;

TEST_F(SetCfgTest, EachVerdictRunsItsStepsAndStopsAtTheFirstFailure) {
    for (const SetCfgCase& c : kSetCfgCases) {
        SCOPED_TRACE(::testing::Message()
                     << c.verdict << " open " << c.open << " failing '" << c.failing << "'");
        log.Clear();
        ScriptedDevice dev;
        dev.stAttr = audiomw_test::FileAiAttr("");
        dev.bHasOpen = c.open;
        dev.bHasInit = c.init;
        dev.verdict = c.verdict;
        dev.failing = c.failing;
        AI_ATTR_S next = audiomw_test::FileAiAttr("", c.newEnable);
        next.s32Volume = 2;
        next.stAlsaDev.u32HwRate = 44100;  // the whole record is stored, compared fields or not

        EXPECT_EQ(c.ret, dev.setCfg(&next));
        EXPECT_EQ(c.calls, dev.calls);
        EXPECT_EQ(c.stored, std::memcmp(&next, &dev.stAttr, sizeof(next)) == 0);
        EXPECT_EQ(EBUSY, dev.lockState) << "the verdict is asked under the device lock";
        ASSERT_EQ(0, pthread_mutex_trylock(&dev.stMutex)) << "the lock is released on every path";
        pthread_mutex_unlock(&dev.stMutex);
        const std::string line =
            c.line ? std::string("AI_DEVICE_S::setCfg, AUDIO_SET_ACTION_E_") + c.line + "\n" : "";
        EXPECT_EQ(c.line ? Lines({{6, "setCfg", line}}) : Lines(), log.All());
    }
}

}  // namespace

// The device base: setCfg's steps for each verdict, with a device whose verdict and
// operation results are scripted and whose calls are recorded.
#include <pthread.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "audio_ai.h"
#include "test_support.h"

namespace {

using Calls = std::vector<std::string>;

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
        calls.push_back("verdict");
        lockState = pthread_mutex_trylock(&stMutex);
        return verdict;
    }
    int _readFrame(unsigned char*, unsigned int, unsigned int& len, unsigned long long&, int) override {
        lockState = pthread_mutex_trylock(&stMutex);
        len = 7;
        return 5;
    }
};

AI_ATTR_S Attr(int volume, bool enable) {
    AI_ATTR_S a;
    std::memset(&a, 0, sizeof(a));
    a.eType = AI_DEV_TYPE_FILE;
    a.bEnable = enable ? ZN_TRUE : ZN_FALSE;
    a.s32Channel = 2;
    a.s32FrameLen = 160;
    a.s32Volume = volume;
    return a;
}

struct SetCfgCase {
    AUDIO_SET_ACTION_E verdict;
    unsigned int open, init;
    bool newEnable;
    const char* failing;
    int ret;
    bool stored;
    Calls calls;
};

// The one level-6 line setCfg writes for a verdict, "" for none.
std::string VerdictLine(AUDIO_SET_ACTION_E verdict, unsigned int open) {
    std::string head = "AI_DEVICE_S::setCfg, ";
    std::string flag = ", bHasOpen:" + std::to_string(open) + "\n";
    switch (verdict) {
        case AUDIO_SET_ACTION_E_HOT_UPDATE:
            return head + "AUDIO_SET_ACTION_E_HOT_UPDATE\n";
        case AUDIO_SET_ACTION_E_NEED_CLOSE:
            return head + "AUDIO_SET_ACTION_E_NEED_CLOSE" + flag;
        case AUDIO_SET_ACTION_E_NEED_DESTROY:
            return head + "AUDIO_SET_ACTION_E_NEED_DESTROY" + flag;
        default:
            return "";
    }
}

// clang-format off
const SetCfgCase kSetCfgCases[] = {
    // verdict, bHasOpen, bHasInit, new bEnable, failing op, result, stored, calls
    {AUDIO_SET_ACTION_E_NONE, 1, 1, true, "", 0, false, {"verdict"}},
    {static_cast<AUDIO_SET_ACTION_E>(9), 1, 1, true, "", 0, false, {"verdict"}},
    {AUDIO_SET_ACTION_E_HOT_UPDATE, 1, 1, true, "hotApply", -7, true, {"verdict", "hotApply"}},
    {AUDIO_SET_ACTION_E_NEED_CLOSE, 0, 1, true, "", 0, false, {"verdict"}},
    {AUDIO_SET_ACTION_E_NEED_CLOSE, 1, 1, true, "open", -7, true, {"verdict", "close", "open"}},
    {AUDIO_SET_ACTION_E_NEED_CLOSE, 1, 1, true, "close", -7, false, {"verdict", "close"}},
    {AUDIO_SET_ACTION_E_NEED_DESTROY, 0, 1, true, "init", -7, true, {"verdict", "destroy", "init"}},
    {AUDIO_SET_ACTION_E_NEED_DESTROY, 0, 0, false, "", 0, true, {"verdict"}},
    {AUDIO_SET_ACTION_E_NEED_DESTROY, 0, 1, true, "destroy", -7, false, {"verdict", "destroy"}},
    // Open: closed, destroyed, stored, re-initialised and reopened even when disabled.
    {AUDIO_SET_ACTION_E_NEED_DESTROY, 1, 1, false, "", 0, true, {"verdict", "close", "destroy", "init", "open"}},
    {AUDIO_SET_ACTION_E_NEED_DESTROY, 1, 1, true, "close", -7, false, {"verdict", "close"}},
    {AUDIO_SET_ACTION_E_NEED_DESTROY, 1, 1, true, "destroy", -7, false, {"verdict", "close", "destroy"}},
    {AUDIO_SET_ACTION_E_NEED_DESTROY, 1, 1, true, "init", -7, true, {"verdict", "close", "destroy", "init"}},
    {AUDIO_SET_ACTION_E_NEED_DESTROY, 1, 1, true, "open", -7, true, {"verdict", "close", "destroy", "init", "open"}},
};
// clang-format on

class SetCfgTest : public audiomw_test::AudioTest {};

TEST_F(SetCfgTest, EachVerdictRunsItsStepsAndStopsAtTheFirstFailure) {
    for (const SetCfgCase& c : kSetCfgCases) {
        SCOPED_TRACE(::testing::Message()
                     << "verdict " << c.verdict << " open " << c.open << " failing '" << c.failing << "'");
        log.Clear();
        ScriptedDevice dev;
        dev.stAttr = Attr(1, true);
        dev.bHasOpen = c.open;
        dev.bHasInit = c.init;
        dev.verdict = c.verdict;
        dev.failing = c.failing;
        AI_ATTR_S next = Attr(2, c.newEnable);
        next.stAlsaDev.u32HwRate = 44100;  // the whole record is stored, compared fields or not

        EXPECT_EQ(c.ret, dev.setCfg(&next));
        EXPECT_EQ(c.calls, dev.calls);
        EXPECT_EQ(c.stored, std::memcmp(&next, &dev.stAttr, sizeof(next)) == 0);
        EXPECT_EQ(EBUSY, dev.lockState) << "the verdict is asked under the device lock";
        ASSERT_EQ(0, pthread_mutex_trylock(&dev.stMutex)) << "the lock is released on every path";
        pthread_mutex_unlock(&dev.stMutex);
        std::string line = VerdictLine(c.verdict, c.open);
        using Lines = std::vector<audiomw_test::Logged>;
        EXPECT_EQ(line.empty() ? Lines() : Lines({{6, "setCfg", line}}), log.All());
    }
}

// Reads run under the device lock, and the base class delivers nothing.
TEST(AiDeviceBase, ReadFrameRunsUnderTheLock) {
    unsigned char buf[4] = {1, 2, 3, 4};
    unsigned int len = 99;
    unsigned long long ts = 1234;
    AI_DEVICE_S base;
    EXPECT_EQ(0, base.readFrame(buf, sizeof(buf), len, ts, -1));
    EXPECT_EQ(99u, len);
    ScriptedDevice dev;
    EXPECT_EQ(5, dev.readFrame(buf, sizeof(buf), len, ts, -1));
    EXPECT_EQ(7u, len);
    EXPECT_EQ(EBUSY, dev.lockState);
}

}  // namespace

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

struct ScriptedDevice : public AI_DEVICE_S {
    AUDIO_SET_ACTION_E verdict = AUDIO_SET_ACTION_E_NONE;
    int closeRet = 0, destroyRet = 0, initRet = 0, openRet = 0, hotRet = 0;
    std::vector<std::string> calls;
    int lockStateInRead = 0;

    int init() override {
        calls.push_back("init");
        bHasInit = initRet == 0;
        return initRet;
    }
    int destroy() override {
        calls.push_back("destroy");
        bHasInit = 0;
        return destroyRet;
    }
    int open() override {
        calls.push_back("open");
        bHasOpen = 1;
        return openRet;
    }
    int close() override {
        calls.push_back("close");
        bHasOpen = 0;
        return closeRet;
    }
    int hotApply() override {
        calls.push_back("hotApply");
        return hotRet;
    }
    AUDIO_SET_ACTION_E calActionOnSetCfg(AI_ATTR_S*) override {
        calls.push_back("verdict");
        // The verdict is asked under the device's lock.
        lockStateInRead = pthread_mutex_trylock(&stMutex);
        return verdict;
    }
    int _readFrame(unsigned char*, unsigned int, unsigned int& len, unsigned long long&, int) override {
        lockStateInRead = pthread_mutex_trylock(&stMutex);
        len = 7;
        return 5;
    }
};

AI_ATTR_S MakeAttr(int volume, bool enable) {
    AI_ATTR_S a;
    std::memset(&a, 0, sizeof(a));
    a.eType = AI_DEV_TYPE_FILE;
    a.bEnable = enable ? ZN_TRUE : ZN_FALSE;
    a.eSampleRate = AI_SAMPLE_RATE_16000;
    a.s32Channel = 2;
    a.s32FrameLen = 160;
    a.s32Volume = volume;
    return a;
}

class SetCfgTest : public audiomw_test::AudioTest {
  protected:
    void SetUp() override {
        dev.stAttr = MakeAttr(1, true);
        dev.bHasInit = 1;
    }
    bool Stored() const { return dev.stAttr.s32Volume == 2; }
    using Calls = std::vector<std::string>;
    ScriptedDevice dev;
    AI_ATTR_S next = MakeAttr(2, true);
};

TEST_F(SetCfgTest, NoneChangesNothing) {
    EXPECT_EQ(0, dev.setCfg(&next));
    EXPECT_FALSE(Stored());
    EXPECT_EQ(Calls({"verdict"}), dev.calls);
    EXPECT_EQ(EBUSY, dev.lockStateInRead);
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(SetCfgTest, UnknownVerdictIsTreatedAsNone) {
    dev.verdict = static_cast<AUDIO_SET_ACTION_E>(9);
    EXPECT_EQ(0, dev.setCfg(&next));
    EXPECT_FALSE(Stored());
}

TEST_F(SetCfgTest, HotUpdateStoresWholeRecordAndReturnsHotApply) {
    dev.verdict = AUDIO_SET_ACTION_E_HOT_UPDATE;
    dev.hotRet = 3;
    next.eType = static_cast<tagAI_DEV_TYPE_E>(0);
    next.stAlsaDev.u32HwRate = 44100;
    EXPECT_EQ(3, dev.setCfg(&next));
    EXPECT_EQ(0, std::memcmp(&next, &dev.stAttr, sizeof(next)));
    EXPECT_EQ(Calls({"verdict", "hotApply"}), dev.calls);
    EXPECT_TRUE(log.Has(6, "AI_DEVICE_S::setCfg, AUDIO_SET_ACTION_E_HOT_UPDATE\n"));
}

TEST_F(SetCfgTest, NeedCloseOnClosedDeviceStoresNothing) {
    dev.verdict = AUDIO_SET_ACTION_E_NEED_CLOSE;
    EXPECT_EQ(0, dev.setCfg(&next));
    EXPECT_FALSE(Stored());
    EXPECT_EQ(Calls({"verdict"}), dev.calls);
    EXPECT_TRUE(log.Has(6, "AI_DEVICE_S::setCfg, AUDIO_SET_ACTION_E_NEED_CLOSE, bHasOpen:0\n"));
}

TEST_F(SetCfgTest, NeedCloseOnOpenDeviceReopensAroundTheStore) {
    dev.verdict = AUDIO_SET_ACTION_E_NEED_CLOSE;
    dev.bHasOpen = 1;
    dev.openRet = 4;
    EXPECT_EQ(4, dev.setCfg(&next));
    EXPECT_TRUE(Stored());
    EXPECT_EQ(Calls({"verdict", "close", "open"}), dev.calls);
    EXPECT_TRUE(log.Has(6, "AI_DEVICE_S::setCfg, AUDIO_SET_ACTION_E_NEED_CLOSE, bHasOpen:1\n"));
}

TEST_F(SetCfgTest, NeedCloseWhoseCloseFailsKeepsTheOldRecord) {
    dev.verdict = AUDIO_SET_ACTION_E_NEED_CLOSE;
    dev.bHasOpen = 1;
    dev.closeRet = -1;
    EXPECT_EQ(-1, dev.setCfg(&next));
    EXPECT_FALSE(Stored());
    EXPECT_EQ(Calls({"verdict", "close"}), dev.calls);
}

TEST_F(SetCfgTest, NeedDestroyOnClosedDevice) {
    dev.verdict = AUDIO_SET_ACTION_E_NEED_DESTROY;
    dev.initRet = 6;
    EXPECT_EQ(6, dev.setCfg(&next));
    EXPECT_TRUE(Stored());
    EXPECT_EQ(Calls({"verdict", "destroy", "init"}), dev.calls);
    EXPECT_TRUE(log.Has(6, "AI_DEVICE_S::setCfg, AUDIO_SET_ACTION_E_NEED_DESTROY, bHasOpen:0\n"));
}

TEST_F(SetCfgTest, NeedDestroyOnClosedUninitialisedDisabledDeviceOnlyStores) {
    dev.verdict = AUDIO_SET_ACTION_E_NEED_DESTROY;
    dev.bHasInit = 0;
    next.bEnable = ZN_FALSE;
    EXPECT_EQ(0, dev.setCfg(&next));
    EXPECT_TRUE(Stored());
    EXPECT_EQ(Calls({"verdict"}), dev.calls);
}

TEST_F(SetCfgTest, NeedDestroyWhoseDestroyFailsKeepsTheOldRecord) {
    dev.verdict = AUDIO_SET_ACTION_E_NEED_DESTROY;
    dev.destroyRet = -1;
    EXPECT_EQ(-1, dev.setCfg(&next));
    EXPECT_FALSE(Stored());
    EXPECT_EQ(Calls({"verdict", "destroy"}), dev.calls);
}

TEST_F(SetCfgTest, NeedDestroyOnOpenDeviceReinitialisesAndReopensEvenWhenDisabled) {
    dev.verdict = AUDIO_SET_ACTION_E_NEED_DESTROY;
    dev.bHasOpen = 1;
    next.bEnable = ZN_FALSE;
    EXPECT_EQ(0, dev.setCfg(&next));
    EXPECT_TRUE(Stored());
    EXPECT_EQ(Calls({"verdict", "close", "destroy", "init", "open"}), dev.calls);
    EXPECT_TRUE(log.Has(6, "AI_DEVICE_S::setCfg, AUDIO_SET_ACTION_E_NEED_DESTROY, bHasOpen:1\n"));
}

TEST_F(SetCfgTest, NeedDestroyOnOpenDeviceStopsAtTheFirstFailure) {
    struct Case {
        int ScriptedDevice::*failing;
        std::vector<std::string> calls;
        bool stored;
    };
    const Case cases[] = {
        {&ScriptedDevice::closeRet, {"verdict", "close"}, false},
        {&ScriptedDevice::destroyRet, {"verdict", "close", "destroy"}, false},
        {&ScriptedDevice::initRet, {"verdict", "close", "destroy", "init"}, true},
        {&ScriptedDevice::openRet, {"verdict", "close", "destroy", "init", "open"}, true},
    };
    for (const Case& c : cases) {
        ScriptedDevice d;
        d.stAttr = MakeAttr(1, true);
        d.bHasInit = 1;
        d.bHasOpen = 1;
        d.verdict = AUDIO_SET_ACTION_E_NEED_DESTROY;
        d.*(c.failing) = -7;
        EXPECT_EQ(-7, d.setCfg(&next));
        EXPECT_EQ(c.calls, d.calls);
        EXPECT_EQ(c.stored, d.stAttr.s32Volume == 2);
        // The lock is released on every path.
        ASSERT_EQ(0, pthread_mutex_trylock(&d.stMutex));
        pthread_mutex_unlock(&d.stMutex);
    }
}

TEST(AiDeviceBase, ReadFrameOfTheBaseDeliversNothingAndTouchesNothing) {
    AI_DEVICE_S base;
    unsigned char buf[4] = {1, 2, 3, 4};
    unsigned int len = 99;
    unsigned long long ts = 1234;
    EXPECT_EQ(0, base.readFrame(buf, sizeof(buf), len, ts, -1));
    EXPECT_EQ(99u, len);
    EXPECT_EQ(1234u, ts);
    EXPECT_EQ(AUDIO_SET_ACTION_E_NONE, base.calActionOnSetCfg(&base.stAttr));
    EXPECT_EQ(0, base.getUnderRuns());
    EXPECT_EQ(-1, base.s32Id);
    EXPECT_EQ(0u, base.bHasInit);
    EXPECT_EQ(0u, base.bHasOpen);
}

TEST(AiDeviceBase, ReadFrameHoldsTheLockAndPassesResultsThrough) {
    ScriptedDevice dev;
    unsigned char buf[4];
    unsigned int len = 0;
    unsigned long long ts = 0;
    EXPECT_EQ(5, dev.readFrame(buf, sizeof(buf), len, ts, -1));
    EXPECT_EQ(7u, len);
    EXPECT_EQ(EBUSY, dev.lockStateInRead);
    ASSERT_EQ(0, pthread_mutex_trylock(&dev.stMutex));
    pthread_mutex_unlock(&dev.stMutex);
}

}  // namespace

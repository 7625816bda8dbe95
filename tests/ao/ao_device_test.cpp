// The output device base: defaults, getCfg, and setCfg's steps for each verdict, with a
// device whose verdict and operation results are scripted and whose calls are recorded.
#include <pthread.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "ao_test_util.h"
#include "audio_ao.h"
#include "test_support.h"

namespace {

using audiomw_test::AlsaAoAttr;

struct ScriptedDevice : public AO_DEVICE_S {
    int verdict = AUDIO_SET_ACTION_E_NONE;
    int destroyRet = 0, initRet = 0, hotRet = 0;
    std::vector<std::string> calls;
    std::vector<int> lockStates;  // pthread_mutex_trylock result inside each operation

    void Record(const char* name) {
        calls.push_back(name);
        lockStates.push_back(pthread_mutex_trylock(&stMutex));
    }
    int init() override {
        Record("init");
        bHasInit = initRet == 0 ? ZN_TRUE : ZN_FALSE;
        return initRet;
    }
    int destroy() override {
        Record("destroy");
        bHasInit = ZN_FALSE;
        return destroyRet;
    }
    int hotApply() override {
        Record("hotApply");
        return hotRet;
    }
    AUDIO_SET_ACTION_E calActionOnSetCfg(AO_ATTR_S*) override {
        Record("verdict");
        return static_cast<AUDIO_SET_ACTION_E>(verdict);
    }
};

class AoSetCfgTest : public audiomw_test::AudioTest {
  protected:
    void SetUp() override {
        dev.s32Id = 2;
        dev.stAttr = AlsaAoAttr(0, 0, 16000, 2, 160, true);
        dev.stAttr.s32Volume = 1;
        dev.bHasInit = ZN_TRUE;
        next = dev.stAttr;
        next.s32Volume = 2;
    }
    bool Stored() const { return std::memcmp(&dev.stAttr, &next, sizeof(next)) == 0; }
    bool LockedThroughout() const {
        for (int s : lockStates()) {
            if (s != EBUSY) {
                return false;
            }
        }
        return true;
    }
    const std::vector<int>& lockStates() const { return dev.lockStates; }
    bool Unlocked() {
        if (pthread_mutex_trylock(&dev.stMutex) != 0) {
            return false;
        }
        pthread_mutex_unlock(&dev.stMutex);
        return true;
    }
    using Calls = std::vector<std::string>;
    ScriptedDevice dev;
    AO_ATTR_S next;
};

TEST(AoDeviceBase, ConstructorDefaultsAndBaseOperations) {
    AO_DEVICE_S dev;
    EXPECT_EQ(-1, dev.s32Id);
    EXPECT_EQ(ZN_FALSE, dev.bHasInit);
    EXPECT_EQ(0, dev.s32WriteFailCnt);
    AO_ATTR_S zero;
    std::memset(&zero, 0, sizeof(zero));
    EXPECT_EQ(0, std::memcmp(&zero, &dev.stAttr, sizeof(zero)));
    unsigned char data[4] = {0};
    AO_ATTR_S attr = AlsaAoAttr(1, 2, 48000, 2, 480, true);
    EXPECT_EQ(0, dev.init());
    EXPECT_EQ(0, dev.destroy());
    EXPECT_EQ(0, dev.hotApply());
    EXPECT_EQ(0, dev.sendFrame(data, sizeof(data)));
    EXPECT_EQ(AUDIO_SET_ACTION_E_NONE, dev.calActionOnSetCfg(&attr));
    EXPECT_EQ(0, dev.getUnderRuns());
    // The base's verdict is "nothing": setCfg keeps the all-zero record.
    EXPECT_EQ(0, dev.setCfg(&attr));
    EXPECT_EQ(0, std::memcmp(&zero, &dev.stAttr, sizeof(zero)));
}

TEST(AoDeviceBase, GetCfgCopiesTheWholeRecord) {
    AO_DEVICE_S dev;
    dev.stAttr = AlsaAoAttr(3, 1, 32000, 6, 256, true);
    dev.stAttr.eType = 9;
    dev.stAttr.stAlsaDev.u32HwRate = 44100;
    dev.stAttr.s32Volume = -7;
    dev.stAttr.bMute = ZN_TRUE;
    AO_ATTR_S out;
    std::memset(&out, 0xA5, sizeof(out));
    EXPECT_EQ(0, dev.getCfg(&out));
    EXPECT_EQ(0, std::memcmp(&out, &dev.stAttr, sizeof(out)));
}

TEST_F(AoSetCfgTest, HotUpdateStoresAndReturnsHotApplyResult) {
    dev.verdict = AUDIO_SET_ACTION_E_HOT_UPDATE;
    dev.hotRet = 42;
    EXPECT_EQ(42, dev.setCfg(&next));
    EXPECT_EQ((Calls{"verdict", "hotApply"}), dev.calls);
    EXPECT_TRUE(Stored());
    EXPECT_TRUE(LockedThroughout());
    EXPECT_TRUE(Unlocked());
    EXPECT_TRUE(log.Messages().empty());
}

// Actions 2 and 3 are handled alike.
class AoRebuildTest : public AoSetCfgTest, public ::testing::WithParamInterface<int> {};

TEST_P(AoRebuildTest, OpenDeviceIsDestroyedStoredAndInitialised) {
    dev.verdict = GetParam();
    EXPECT_EQ(0, dev.setCfg(&next));
    EXPECT_EQ((Calls{"verdict", "destroy", "init"}), dev.calls);
    EXPECT_TRUE(Stored());
    EXPECT_TRUE(LockedThroughout());
    EXPECT_TRUE(Unlocked());
}

TEST_P(AoRebuildTest, ClosedDeviceIsNotDestroyed) {
    dev.verdict = GetParam();
    dev.bHasInit = ZN_FALSE;
    EXPECT_EQ(0, dev.setCfg(&next));
    EXPECT_EQ((Calls{"verdict", "init"}), dev.calls);
    EXPECT_TRUE(Stored());
}

TEST_P(AoRebuildTest, DisablingDestroysAndDoesNotInit) {
    dev.verdict = GetParam();
    next.bEnable = ZN_FALSE;
    EXPECT_EQ(0, dev.setCfg(&next));
    EXPECT_EQ((Calls{"verdict", "destroy"}), dev.calls);
    EXPECT_TRUE(Stored());
    EXPECT_EQ(ZN_FALSE, dev.bHasInit);
}

TEST_P(AoRebuildTest, FailedDestroyKeepsTheOldRecord) {
    dev.verdict = GetParam();
    dev.destroyRet = -5;
    AO_ATTR_S before = dev.stAttr;
    EXPECT_EQ(-5, dev.setCfg(&next));
    EXPECT_EQ((Calls{"verdict", "destroy"}), dev.calls);
    EXPECT_EQ(0, std::memcmp(&before, &dev.stAttr, sizeof(before)));
    EXPECT_TRUE(Unlocked());
}

TEST_P(AoRebuildTest, FailedInitIsReturnedWithTheNewRecordStored) {
    dev.verdict = GetParam();
    dev.initRet = -1;
    EXPECT_EQ(-1, dev.setCfg(&next));
    EXPECT_EQ((Calls{"verdict", "destroy", "init"}), dev.calls);
    EXPECT_TRUE(Stored());
    EXPECT_EQ(ZN_FALSE, dev.bHasInit);
    EXPECT_TRUE(Unlocked());
}

INSTANTIATE_TEST_SUITE_P(NeedCloseAndNeedDestroy, AoRebuildTest,
                         ::testing::Values(AUDIO_SET_ACTION_E_NEED_CLOSE, AUDIO_SET_ACTION_E_NEED_DESTROY));

// "Nothing" and any value outside the enumeration: logged, nothing stored or called.
class AoDoNothingTest : public AoSetCfgTest, public ::testing::WithParamInterface<int> {};

TEST_P(AoDoNothingTest, LogsAndKeepsTheOldRecord) {
    dev.verdict = GetParam();
    AO_ATTR_S before = dev.stAttr;
    EXPECT_EQ(0, dev.setCfg(&next));
    EXPECT_EQ((Calls{"verdict"}), dev.calls);
    EXPECT_EQ(0, std::memcmp(&before, &dev.stAttr, sizeof(before)));
    EXPECT_EQ(1, log.Count(6, "AO[2] set cfg but do nothing"));
    EXPECT_TRUE(Unlocked());
}

INSTANTIATE_TEST_SUITE_P(Verdicts, AoDoNothingTest, ::testing::Values(AUDIO_SET_ACTION_E_NONE, 4, 99, -1));

}  // namespace

// setCfg's steps for each verdict, on a device whose verdict and results are scripted and
// whose calls (and whether each ran under the device mutex) are recorded.
#include <pthread.h>

#include <cerrno>

#include "ao_test_util.h"

namespace {

struct SetCfgCase {
    int verdict;
    bool open, enable;  // the device is open; the new record enables it
    int destroyRet, initRet, hotRet, result;
    const char* calls;
    bool stored, logged;
};

const SetCfgCase kCases[] = {
    // clang-format off
    {AUDIO_SET_ACTION_E_HOT_UPDATE, true, true, 0, 0, 42, 42, "verdict hotApply", true, false},
    {AUDIO_SET_ACTION_E_NEED_CLOSE, true, true, 0, 0, 0, 0, "verdict destroy init", true, false},
    {AUDIO_SET_ACTION_E_NEED_CLOSE, false, false, 0, 0, 0, 0, "verdict", true, false},
    {AUDIO_SET_ACTION_E_NEED_DESTROY, true, true, 0, 0, 0, 0, "verdict destroy init", true, false},
    {AUDIO_SET_ACTION_E_NEED_DESTROY, false, true, 0, 0, 0, 0, "verdict init", true, false},
    {AUDIO_SET_ACTION_E_NEED_DESTROY, true, false, 0, 0, 0, 0, "verdict destroy", true, false},
    {AUDIO_SET_ACTION_E_NEED_DESTROY, true, true, -5, 0, 0, -5, "verdict destroy", false, false},
    {AUDIO_SET_ACTION_E_NEED_DESTROY, true, true, 0, -1, 0, -1, "verdict destroy init", true, false},
    {AUDIO_SET_ACTION_E_NONE, true, true, 0, 0, 0, 0, "verdict", false, true},
    {4, true, true, 0, 0, 0, 0, "verdict", false, true},
    {-1, true, true, 0, 0, 0, 0, "verdict", false, true},
    // clang-format on
};

struct ScriptedDevice : public AO_DEVICE_S {
    explicit ScriptedDevice(const SetCfgCase& c) : script(c) {}
    const SetCfgCase& script;
    std::string calls;
    bool locked = true;  // every operation ran with stMutex held

    int Record(const char* name, int result) {
        calls += (calls.empty() ? "" : " ") + std::string(name);
        locked = locked && pthread_mutex_trylock(&stMutex) == EBUSY;
        return result;
    }
    int init() override { return Record("init", script.initRet); }
    int destroy() override { return Record("destroy", script.destroyRet); }
    int hotApply() override { return Record("hotApply", script.hotRet); }
    AUDIO_SET_ACTION_E calActionOnSetCfg(AO_ATTR_S*) override {
        return static_cast<AUDIO_SET_ACTION_E>(Record("verdict", script.verdict));
    }
};

class AoSetCfgTest : public audiomw_test::AudioTest, public ::testing::WithParamInterface<SetCfgCase> {};

TEST_P(AoSetCfgTest, TakesTheStepsOfTheVerdict) {
    const SetCfgCase& c = GetParam();
    ScriptedDevice dev(c);
    dev.s32Id = 2;
    dev.stAttr = audiomw_test::AlsaAoAttr(0, 0, 16000, 2, 160);
    dev.stAttr.bEnable = ZN_TRUE;
    dev.bHasInit = c.open ? ZN_TRUE : ZN_FALSE;
    const AO_ATTR_S before = dev.stAttr;
    // Every field differs, so a copy that skips one is seen.
    AO_ATTR_S next = audiomw_test::AlsaAoAttr(1, 2, 48000, 4, 480);
    next.eType = 1;
    next.stAlsaDev.u32HwRate = 44100;
    next.bEnable = c.enable ? ZN_TRUE : ZN_FALSE;
    next.s32Volume = 2;
    next.bMute = ZN_TRUE;

    EXPECT_EQ(c.result, dev.setCfg(&next));
    EXPECT_EQ(c.calls, dev.calls);
    EXPECT_EQ(0, std::memcmp(c.stored ? &next : &before, &dev.stAttr, sizeof(before)));
    EXPECT_TRUE(dev.locked);
    ASSERT_EQ(0, pthread_mutex_trylock(&dev.stMutex));
    pthread_mutex_unlock(&dev.stMutex);
    using Lines = std::vector<audiomw_test::Logged>;
    EXPECT_EQ(c.logged ? Lines({{6, "setCfg", "AO[2] set cfg but do nothing"}}) : Lines(), log.All());
}

INSTANTIATE_TEST_SUITE_P(Verdicts, AoSetCfgTest, ::testing::ValuesIn(kCases));

}  // namespace

// Stream 0 switched a thousand times while stream 1 runs and a thread toggles the line-in
// state, the GPIO and the dump nodes: every switch succeeds and plays, nothing hangs, and
// threads and descriptors end as they started (asan and tsan add leaks and races). It
// prints the time spent per switch call.
#include <fcntl.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <thread>

#include "config_test_util.h"
#include "host_test.h"

namespace {

using namespace config_test;

int OpenDescriptors() {
    int n = 0;
    for (int fd = 0; fd < 4096; fd++) {
        n += fcntl(fd, F_GETFD) != -1 ? 1 : 0;
    }
    return n;
}

// Two file inputs, two outputs paced in real time at 2 ms periods, the two
// configurations of stream 0 and the one of stream 1; every stream dumps and sends its
// line-in group to its output.
std::string Config(const std::string& dir) {
    auto stream = [&](int id, const char* name, int ai, const std::string& body, const char* dump, int ao) {
        return Stream(id, name, ai, id == 2 ? 1 : 2,
                      body + "<Node Type='Dump' Path='" + dir + dump + "' ChnOffset='0' ChnCnt='2'/>" +
                          "<Node Type='Output' AoId='" + std::to_string(ao) +
                          "' ChnOffset='0' ChnCnt='2' AudioSourceId='1'/>");
    };
    const std::string path = "<AiAdj Id='0' SampleRate='16KHZ' FilePath='" + dir;
    return "<Audio>" + Section("AI", 0, "Type='Afile' FilePath='" + dir + "/a.pcm'", 2, 32) +
           Section("AI", 1, "Type='Afile' FilePath='" + dir + "/c.pcm'", 2, 32) +
           Section("AO", 0, "Type='Alsa' CardId='10'", 2, 32) +
           Section("AO", 1, "Type='Alsa' CardId='11'", 2, 32) +
           stream(0, "A", 0,
                  path + "/a.pcm'/><AoAdj Id='0' SampleRate='16KHZ'/><Node Type='Swap' Map='1:0'/>",
                  "/d0.pcm", 0) +
           stream(2, "B", 0,
                  path + "/b.pcm'/><Node Type='Split' ChnOffset='0' ChnCntA='1' ChnCntB='1'/>" +
                      "<Node Type='Merge' ChnOffset='0' ChnCntA='1' ChnCntB='1'/>",
                  "/d0.pcm", 0) +
           stream(1, "S1", 1, "", "/d1.pcm", 1) + "</Audio>";
}

class SoakTest : public ConfigTest {
  protected:
    void TearDown() override {
        App::Stop();
        AUDIO_ASTREAM_SetLineInConnetState(ZN_FALSE);
        BSP_ClearGpioOverrides();
        vcard_reset();
    }
};

TEST_F(SoakTest, SwitchStreamZeroWhileStreamOneRunsAndStateToggles) {
    vcard_reset();
    BSP_SetGpioOverride(14, 0);  // the line-in detection pin
    UTIL_LOG_SetThreshold(4);    // the soak's thousands of information lines are not checked
    AddCards(
        "pcm card=10 dir=playback sink=memory clock=realtime\npcm card=11 dir=playback sink=memory "
        "clock=realtime");
    for (const char* f : {"/a.pcm", "/b.pcm", "/c.pcm"}) {
        audiomw_test::WriteFileBytes(root.Path(f), audiomw_test::MakePattern(2, 32 * 200));
    }
    ASSERT_LT(root.Path("/d0.pcm").size(), 40u);
    WriteConfig(Config(root.Dir()));
    const int fdsBefore = OpenDescriptors(), pools = UTIL_PF_GetLiveCount(),
              threads = UTIL_THREAD_GetLiveCount();
    App app;
    ASSERT_TRUE(app.Start());
    tagASTREAM_XML_CFG_S *a = app.Stream("A"), *b = app.Stream("B"), *s1 = app.Stream("S1");
    ASSERT_TRUE(a && b && s1);
    ASSERT_EQ(0, AUDIO_ASTREAM_SwitchToConfig(1, *s1));
    const long s1Before = vcard_memory_size(11, 0);

    // The toggling thread does four rounds of toggles for every switch started (under the
    // line-in lock, as the application does), until told to stop.
    std::atomic<long> started{0};
    std::atomic<bool> stop{false};
    long rounds = 0;
    std::thread toggler([&] {
        for (long seen = 0, i = 0; audiomw_test::WaitFor([&] { return stop || started != seen; }), !stop;
             rounds++) {
            seen = started;
            for (int k = 0; k < 4; k++, i++) {
                BSP_SetGpioOverride(14, i % 5 == 0 ? 1 : 0);
                AUDIO_ASTREAM_LineInDectMutexLock();
                AUDIO_ASTREAM_SetLineInConnetState(static_cast<tagZN_BOOL>(i % 2));
                AUDIO_ASTREAM_LineInDectMutexUnlock();
                AUDIO_ASTREAM_enableDumpNode(0, static_cast<tagZN_BOOL>(i % 3 != 0));
                AUDIO_ASTREAM_enableDumpNode(1, static_cast<tagZN_BOOL>(i % 2));
            }
        }
    });
    const int switches = 1000;
    std::chrono::nanoseconds total{0}, longest{0};  // spent inside the switch calls
    auto soak = std::async(std::launch::async, [&] {
        for (int i = 0; i < switches; i++) {
            started++;
            const long played = vcard_memory_size(10, 0);
            const auto t0 = std::chrono::steady_clock::now();
            const int ret = AUDIO_ASTREAM_SwitchToConfig(0, i % 2 == 0 ? *a : *b);
            const auto took = std::chrono::steady_clock::now() - t0;
            total += took;
            longest = std::max(longest, took);
            if (ret != 0) {
                return i;
            }
            if (!audiomw_test::WaitFor(
                    [&] { return vcard_memory_size(10, 0) > played; })) {  // it plays before the next
                return -i - 1;
            }
        }
        return switches;
    });
    const bool finished = soak.wait_for(std::chrono::minutes(4)) == std::future_status::ready;
    stop = true;
    auto joined = std::async(std::launch::async, [&] { toggler.join(); });
    if (!finished || joined.wait_for(std::chrono::seconds(30)) != std::future_status::ready) {
        ADD_FAILURE() << (finished ? "the toggling thread did not end: a lock-order deadlock"
                                   : "the switches hung");
        std::_Exit(1);
    }
    const int done = soak.get();
    EXPECT_EQ(switches, done) << (done < 0 ? "a configuration did not play" : "a switch failed");
    const long meanUs = std::chrono::duration_cast<std::chrono::microseconds>(total).count() / switches,
               maxUs = std::chrono::duration_cast<std::chrono::microseconds>(longest).count();
    RecordProperty("switch_mean_us", std::to_string(meanUs));
    RecordProperty("switch_max_us", std::to_string(maxUs));
    std::printf("time per switch: mean %ld us, longest %ld us, over %d switches\n", meanUs, maxUs, switches);
    EXPECT_EQ(1, AUDIO_ASTREAM_isRunning(1)) << "stream 1 stopped";
    EXPECT_GT(vcard_memory_size(11, 0), s1Before) << "stream 1 did not play during the soak";
    EXPECT_GT(rounds, 0);
    App::Stop();
    EXPECT_EQ(pools, UTIL_PF_GetLiveCount()) << "worker pools left";
    EXPECT_EQ(threads, UTIL_THREAD_GetLiveCount()) << "reader threads left";
    EXPECT_EQ(fdsBefore, OpenDescriptors()) << "descriptors left open";
}

}  // namespace

// Stream 0 switched between two configurations again and again while stream 1 runs and
// a third thread toggles the line-in state, the GPIO level and the dump nodes. Every
// switch must succeed and play, nothing may hang (a deadline), and at the end the
// library's threads and the process's descriptors are back to where they started. The
// asan and tsan presets add the leak and race checks.
#include <fcntl.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <future>
#include <iostream>
#include <mutex>
#include <thread>

#include "config_test_util.h"
#include "host_test.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kLineInGpio = 14;

int Switches() {
    const char* env = std::getenv("AUDIOMW_SOAK_SWITCHES");
    return env != nullptr ? std::atoi(env) : 1000;
}

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
    auto ai = [&](int id, const char* file) {
        return "<AI Id='" + std::to_string(id) + "' Name='in" + std::to_string(id) +
               "'><Device Type='Afile' FilePath='" + dir + "/" + file +
               "'/><SampleRate Cur='16KHZ'/><Channel Cur='2'/><FrameSize Cur='32'/></AI>";
    };
    auto ao = [](int id, int card) {
        return "<AO Id='" + std::to_string(id) + "' Name='out'><Device Type='Alsa' CardId='" +
               std::to_string(card) +
               "'/><SampleRate Cur='16KHZ'/><Channel Cur='2'/><FrameSize Cur='32'/></AO>";
    };
    auto dump = [&](const char* file) {
        return "<Node Type='Dump' Path='" + dir + "/" + file + "' ChnOffset='0' ChnCnt='2'/>";
    };
    return "<Audio>" + ai(0, "a.pcm") + ai(1, "c.pcm") + ao(0, 10) + ao(1, 11) +
           "<ASTREAM Id='0' Name='A' AiId='0' Worker='2'><AiAdj Id='0' FilePath='" + dir +
           "/a.pcm' SampleRate='16KHZ'/><AoAdj Id='0' Volume='1'/><Node Type='Swap' Map='1:0'/>" +
           dump("d0.pcm") +
           "<Node Type='Output' AoId='0' ChnOffset='0' ChnCnt='2' AudioSourceId='1'/></ASTREAM>"
           "<ASTREAM Id='2' Name='B' AiId='0' Worker='1'><AiAdj Id='0' FilePath='" +
           dir +
           "/b.pcm' SampleRate='16KHZ'/><Node Type='Split' ChnOffset='0' ChnCntA='1' ChnCntB='1'/>"
           "<Node Type='Merge' ChnOffset='0' ChnCntA='1' ChnCntB='1'/>" +
           dump("d0.pcm") +
           "<Node Type='Output' AoId='0' ChnOffset='0' ChnCnt='2' AudioSourceId='1'/></ASTREAM>"
           "<ASTREAM Id='1' Name='S1' AiId='1' Worker='2'>" +
           dump("d1.pcm") +
           "<Node Type='Output' AoId='1' ChnOffset='0' ChnCnt='2' AudioSourceId='1'/></ASTREAM></Audio>";
}

// Toggles the line-in state (under its lock, as the application does), the GPIO level
// the output nodes read and the dump nodes of both streams, a few times for every
// switch the control thread starts, until told to stop.
class Toggler {
  public:
    void Start() {
        m_thread = std::thread([this] { Run(); });
    }
    void SwitchStarted() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_switches++;
        m_cv.notify_one();
    }
    // Returns the rounds done; false in `ok` when the thread did not end in time.
    long Stop(bool& ok) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_stop = true;
            m_cv.notify_one();
        }
        auto done = std::async(std::launch::async, [this] { m_thread.join(); });
        ok = done.wait_for(std::chrono::seconds(30)) == std::future_status::ready;
        return m_rounds.load();
    }

  private:
    void Run() {
        long seen = 0;
        for (int i = 0;; i++) {
            {
                std::unique_lock<std::mutex> lock(m_mutex);
                m_cv.wait(lock, [&] { return m_stop || m_switches != seen; });
                if (m_stop) {
                    return;
                }
                seen = m_switches;
            }
            for (int k = 0; k < 4; k++, i++) {
                BSP_SetGpioOverride(kLineInGpio, i % 5 == 0 ? 1 : 0);
                AUDIO_ASTREAM_LineInDectMutexLock();
                AUDIO_ASTREAM_SetLineInConnetState(static_cast<tagZN_BOOL>(i % 2));
                AUDIO_ASTREAM_LineInDectMutexUnlock();
                AUDIO_ASTREAM_enableDumpNode(0, static_cast<tagZN_BOOL>(i % 3 != 0));
                AUDIO_ASTREAM_enableDumpNode(1, static_cast<tagZN_BOOL>(i % 2));
            }
            m_rounds++;
        }
    }

    std::thread m_thread;
    std::mutex m_mutex;
    std::condition_variable m_cv;
    long m_switches = 0;
    bool m_stop = false;
    std::atomic<long> m_rounds{0};
};

class SoakTest : public audiomw_test::AudioTest {
  protected:
    void SetUp() override {
        vcard_reset();
        BSP_SetGpioOverride(kLineInGpio, 0);
        UTIL_LOG_SetThreshold(4);  // the soak's thousands of information lines are not checked
        config_test::AddPlaybackCard(10, "realtime");
        config_test::AddPlaybackCard(11, "realtime");
    }
    void TearDown() override {
        config_test::App::Stop();
        AUDIO_ASTREAM_SetLineInConnetState(ZN_FALSE);
        BSP_ClearGpioOverrides();
        vcard_reset();
    }
};

TEST_F(SoakTest, SwitchStreamZeroWhileStreamOneRunsAndStateToggles) {
    for (const char* f : {"/a.pcm", "/b.pcm", "/c.pcm"}) {
        audiomw_test::WriteFileBytes(root.Path(f), audiomw_test::MakePattern(2, 32 * 200));
    }
    ASSERT_LT(root.Path("/d0.pcm").size(), 40u);
    audiomw_test::WriteFileBytes(root.Path("/cfg0/mpp_cfg.xml"), [&] {
        std::string t = Config(root.Dir());
        return std::vector<uint8_t>(t.begin(), t.end());
    }());
    const int fdsBefore = OpenDescriptors();
    const int poolsBefore = UTIL_PF_GetLiveCount(), threadsBefore = UTIL_THREAD_GetLiveCount();

    config_test::App app;
    ASSERT_TRUE(app.Start());
    tagASTREAM_XML_CFG_S *a = app.Stream("A"), *b = app.Stream("B"), *s1 = app.Stream("S1");
    ASSERT_TRUE(a && b && s1);
    ASSERT_EQ(0, AUDIO_ASTREAM_SwitchToConfig(1, *s1));

    const int switches = Switches();
    Toggler toggler;
    toggler.Start();
    const long s1Before = config_test::SinkSize(11);
    std::chrono::nanoseconds inSwitch{0}, slowest{0};
    auto soak = std::async(std::launch::async, [&] {
        for (int i = 0; i < switches; i++) {
            toggler.SwitchStarted();
            const long played = config_test::SinkSize(10);
            auto t0 = Clock::now();
            int r = AUDIO_ASTREAM_SwitchToConfig(0, i % 2 == 0 ? *a : *b);
            auto t = Clock::now() - t0;
            inSwitch += t;
            slowest = std::max(slowest, std::chrono::duration_cast<std::chrono::nanoseconds>(t));
            if (r != 0) {
                return i;
            }
            // Each configuration plays before the next switch.
            if (!audiomw_test::WaitFor([&] { return config_test::SinkSize(10) > played; })) {
                return -i - 1;
            }
        }
        return switches;
    });
    if (soak.wait_for(std::chrono::minutes(4)) != std::future_status::ready) {
        ADD_FAILURE() << "the switches did not finish within the deadline: a hang";
        std::_Exit(1);
    }
    const int done = soak.get();
    bool togglerEnded = false;
    const long rounds = toggler.Stop(togglerEnded);
    if (!togglerEnded) {
        ADD_FAILURE() << "the toggling thread did not end: a lock-order deadlock";
        std::_Exit(1);
    }
    EXPECT_EQ(switches, done) << (done < 0 ? "a configuration did not play" : "a switch failed");
    EXPECT_EQ(1, AUDIO_ASTREAM_isRunning(1)) << "stream 1 stopped";
    EXPECT_GT(config_test::SinkSize(11), s1Before) << "stream 1 did not play during the soak";
    EXPECT_GT(rounds, 0);

    config_test::App::Stop();
    EXPECT_EQ(poolsBefore, UTIL_PF_GetLiveCount()) << "worker pools left";
    EXPECT_EQ(threadsBefore, UTIL_THREAD_GetLiveCount()) << "reader threads left";
    EXPECT_EQ(fdsBefore, OpenDescriptors()) << "descriptors left open";

    const double perSwitchMs =
        std::chrono::duration<double, std::milli>(inSwitch).count() / std::max(done, 1);
    std::cout << "soak: " << done << " switches, " << perSwitchMs << " ms per switch on average, slowest "
              << std::chrono::duration<double, std::milli>(slowest).count() << " ms, " << rounds
              << " toggling rounds" << std::endl;
    RecordProperty("switches", done);
    RecordProperty("us_per_switch", static_cast<int>(perSwitchMs * 1000));
}

}  // namespace

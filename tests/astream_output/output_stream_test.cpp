// Output nodes in running streams while another thread changes the line-in state.
#include <tinyalsa/vcard.h>

#include <chrono>
#include <cstdlib>
#include <future>

#include "../ao/ao_test_util.h"
#include "../astream/astream_test_util.h"
#include "host_test.h"

namespace {

using audiomw_test::SinkBytes;
using Bytes = std::vector<uint8_t>;

constexpr uint32_t kFrames = 160;

using astream_test::OutputAttr;

class OutputStreamTest : public audiomw_test::AoTest {
  protected:
    void SetUp() override {
        AoTest::SetUp();
        BSP_ClearGpioOverrides();
    }
    void TearDown() override {
        for (int id = 0; id < 2; id++) {
            AUDIO_ASTREAM_Destroy(id);
            astream_test::DropAi(id);
        }
        AUDIO_ASTREAM_SetLineInConnetState(ZN_FALSE);
        BSP_ClearGpioOverrides();
        AoTest::TearDown();
    }
    // File AI `id`, AO `id` on card 10 + id, and stream `id` with these nodes.
    void StartStream(int id, std::initializer_list<ASTREAM_NODE_ATTR_S> nodes, int workers) {
        const std::string path = root.Dir() + "/in" + std::to_string(id) + ".pcm";
        audiomw_test::WriteFileBytes(path, audiomw_test::MakePattern(2, kFrames * 50, id + 1));
        AI_ATTR_S ai = astream_test::FileAi(path, 2, kFrames);
        ASSERT_EQ(0, AUDIO_AI_Create(id, &ai));
        audiomw_test::LoadCards("pcm card=" + std::to_string(10 + id) + " device=0 dir=playback sink=memory");
        AO_ATTR_S ao = audiomw_test::AlsaAoAttr(10 + id, 0, 16000, 2, kFrames);
        ASSERT_EQ(0, AUDIO_AO_Create(id, &ao));
        ASTREAM_ATTR_S attr = astream_test::StreamAttr(id, workers, nodes);
        ASSERT_EQ(0, AUDIO_ASTREAM_Create(id, &attr) + AUDIO_ASTREAM_Start(id));
    }
};

TEST_F(OutputStreamTest, LineInToggledFromAnotherThreadWhileTwoStreamsRun) {
    root.SetMarker("/var/recordoutput");
    // Both streams send line-in to AO 0 (recorded); stream 1 also to AO 1.
    StartStream(0, {OutputAttr(0, 0, 2, 1)}, 2);
    StartStream(1, {OutputAttr(0, 0, 2, 1), OutputAttr(1, 0, 2, 1)}, 3);

    // Locked changes against the workers' GPIO path: a lock-order fault hangs, hence the deadline.
    auto toggler = std::async(std::launch::async, [] {
        for (int i = 0; i < 400; i++) {
            BSP_SetGpioOverride(14, i % 3 == 0 ? 1 : 0);
            AUDIO_ASTREAM_LineInDectMutexLock();
            AUDIO_ASTREAM_SetLineInConnetState(static_cast<tagZN_BOOL>(i % 2));
            AUDIO_ASTREAM_LineInDectMutexUnlock();
            AUDIO_ASTREAM_GetLineInConnetState();
        }
    });
    if (toggler.wait_for(std::chrono::seconds(60)) != std::future_status::ready) {
        ADD_FAILURE() << "line-in toggling did not finish: lock-order deadlock";
        std::_Exit(1);
    }
    const size_t period = kFrames * 2 * 2;
    EXPECT_TRUE(audiomw_test::WaitFor([&] { return SinkBytes(11, 0).size() >= 60 * period; }));
    EXPECT_EQ(0, AUDIO_ASTREAM_Destroy(0) + AUDIO_ASTREAM_Destroy(1));
    EXPECT_EQ(0u, SinkBytes(10, 0).size() % period) << "a torn period reached AO 0";
    root.SetMarker("/var/recordoutput", false);
    ASTREAM_RecordOutputData(nullptr, 0);
    const size_t recorded = audiomw_test::ReadFileBytes(root.Path("/var/I2sOutput.pcm")).size();
    EXPECT_GT(recorded, 0u);
    EXPECT_EQ(0u, recorded % period) << "recordings of the two streams interleaved inside a period";
}

}  // namespace

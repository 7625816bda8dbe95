// A stream with the PC library end to end: a 2-channel file AI (near-end speech, silent
// reference) split into two mono blocks, an algorithm node on them, and the per-frame
// voice results arriving at the callback on the stream's worker.
#include <atomic>
#include <mutex>

#include "astream_test_util.h"
#include "audio_alg.h"
#include "test_support.h"
#include "voice_test_util.h"

namespace {

struct Results {
    std::mutex mtx;
    std::vector<short> seen;
};

void OnFrame(void* arg, short result) {
    Results* r = static_cast<Results*>(arg);
    std::lock_guard<std::mutex> lk(r->mtx);
    r->seen.push_back(result);
}

class VoiceStreamTest : public audiomw_test::AudioTest {
  protected:
    void TearDown() override { astream_test::DropAi(0); }
};

TEST_F(VoiceStreamTest, SpeechThroughAStreamReachesTheCallbackAsVoiceResults) {
    const voice_test::Signal talk = voice_test::LoadSpeech("near.raw");
    std::vector<int16_t> interleaved(talk.size() * 2, 0);
    for (size_t i = 0; i < talk.size(); i++) {
        interleaved[2 * i] = voice_test::ToS16(talk[i]);
    }
    const std::string path = root.Dir() + "/talk.pcm";
    audiomw_test::WriteFileBytes(path, audiomw_test::ToBytes(interleaved));
    AI_ATTR_S ai = astream_test::FileAi(path, 2, 256);
    ASSERT_EQ(AUDIO_AI_Create(0, &ai), 0);
    Results results;
    ASTREAM_NODE_ATTR_S alg = astream_test::NodeAttr(ASTREAM_NODE_TYPE_E_ORVANE_ALG);
    alg.unAttr.stOrvaneAlg = {0, 1, 0, 1, -1, -1, &OnFrame, &results};
    ASTREAM_ATTR_S attr = astream_test::StreamAttr(0, 2, {astream_test::SplitAttr(0, 1, 1), alg});
    ASSERT_EQ(AUDIO_ASTREAM_Create(0, &attr), 0);
    EXPECT_TRUE(log.Has({6, "init", "Orvane Audio Alg version: V0301a"}));
    unsigned ver = 0, fix = 0;
    EXPECT_EQ(AUDIO_ALG_GetVersion(&ver, &fix), 0);
    EXPECT_EQ((std::vector<unsigned>{301, 'a'}), (std::vector<unsigned>{ver, fix}));
    ASSERT_EQ(AUDIO_ASTREAM_Start(0), 0);
    const size_t speechFrames = talk.size() / 256;
    ASSERT_TRUE(audiomw_test::WaitFor([&] {
        std::lock_guard<std::mutex> lk(results.mtx);
        return results.seen.size() >= speechFrames + 20;
    }));
    // Destroy ends the workers, so no callback runs while the results are read.
    EXPECT_EQ(AUDIO_ASTREAM_Destroy(0), 0);
    std::lock_guard<std::mutex> lk(results.mtx);
    size_t voice = 0;  // workers may finish periods out of order: count, not sequence
    for (short r : results.seen) {
        ASSERT_TRUE(r == 0 || r == 1) << r;
        voice += r;
    }
    EXPECT_GT(voice, speechFrames / 2) << "the speech is mostly voice";
    EXPECT_LT(voice, results.seen.size()) << "the filler after the file is not";
    float* state = nullptr;
    EXPECT_EQ(AUDIO_ALG_GetMicTestState(&state, ZN_FALSE), 0);
    EXPECT_TRUE(state[1] < 0.0f && state[1] >= -96.0f) << state[1];
    EXPECT_EQ(state[0], state[1]) << "one microphone: the loudest is its level";
}

}  // namespace

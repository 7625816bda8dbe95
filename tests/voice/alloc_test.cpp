// The algorithm node on the PC voice library allocates nothing per frame, on both reference paths.
#include <cmath>
#include <vector>

#include "alloc/alloc_counter.h"
#include "astream_test_util.h"
#include "audio_alg.h"

namespace {

TEST(VoiceAllocTest, NodeWithTheRealLibraryAllocatesNothingPerFrame) {
    audiomw_test::ScratchRoot root;
    AI_ATTR_S ai = astream_test::FileAi("/nonexistent.pcm", 5, 256);
    ASSERT_EQ(AUDIO_AI_Create(0, &ai), 0);
    astream_test::FakeStream s(5, 256);
    ASTREAM_NODE_ATTR_S a = astream_test::NodeAttr(ASTREAM_NODE_TYPE_E_ORVANE_ALG);
    int frames = 0;
    a.unAttr.stOrvaneAlg = {0, 4, 0, 4, 4, 4, [](void* arg, short) { ++*static_cast<int*>(arg); }, &frames};
    auto node = astream_test::BuildNode(s, a);
    ASSERT_TRUE(node != nullptr && g_OrvaneAlgHandler != nullptr);
    std::vector<int16_t> in(5 * 256), out(in.size());
    for (size_t i = 0; i < in.size(); i++)
        in[i] = static_cast<int16_t>(8000 * std::sin(0.05 * i));
    auto run = [&](int count) {
        bool inPlace = false;
        for (int i = 0; i < count; i++)
            ASSERT_EQ(node->process(reinterpret_cast<char*>(in.data()), reinterpret_cast<char*>(out.data()),
                                    inPlace),
                      0);
    };
    run(10);  // the module sets itself up on its first chunks
    audiomw_test::AllocCounterArm();
    run(100);
    AUDIO_ALG_SetRefInParam(tagVOR_AUDIO_REF_IN_RES{1, 0, 0, 0});
    run(100);
    audiomw_test::AllocCounterDisarm();
    EXPECT_EQ(audiomw_test::AllocCount(), 0)
        << "first allocation: " << audiomw_test::AllocFirstSize() << " bytes";
    EXPECT_EQ(frames, 210);
    astream_test::DropAi(0);
}

}  // namespace

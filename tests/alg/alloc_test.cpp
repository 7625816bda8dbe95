// The algorithm node's process allocates nothing, on the silent and on the real
// reference path, callback included.
#include "alg_test_util.h"
#include "alloc/alloc_counter.h"
#include "test_support.h"

namespace {

using namespace alg_test;

TEST(AlgAllocTest, ProcessAllocatesNothing) {
    audiomw_test::ScratchRoot root;
    qx_script::Reset();
    qx_script::g.recording = false;
    AiSlot ai(0, 16000, 5, 256);
    astream_test::FakeStream s(5, 256);
    int frames = 0;
    auto cb = [](void* arg, short) { ++*static_cast<int*>(arg); };
    auto node = astream_test::BuildNode(s, AlgAttr(0, 4, 0, 4, 4, 4, cb, &frames));
    ASSERT_NE(node, nullptr);
    Bytes in = Period(5, 256), out(in.size());
    audiomw_test::AllocCounterArm();
    for (int i = 0; i < 100; i++) {
        if (i == 50) {
            AUDIO_ALG_SetRefInParam(RefIn(1, 0));
        }
        bool inPlace = false;
        node->process(reinterpret_cast<char*>(in.data()), reinterpret_cast<char*>(out.data()), inPlace);
    }
    audiomw_test::AllocCounterDisarm();
    EXPECT_EQ(audiomw_test::AllocCount(), 0)
        << "first allocation: " << audiomw_test::AllocFirstSize() << " bytes";
    EXPECT_EQ(frames, 100);
}

}  // namespace

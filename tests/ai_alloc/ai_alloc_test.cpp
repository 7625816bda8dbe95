// Capture reads allocate nothing: converters and buffers are made in init. Only the
// read that opens a recording file allocates (the file's stream).
#include <cstring>

#include "../ai_alsa/ai_capture_util.h"
#include "alloc/alloc_counter.h"
#include "host_test.h"

namespace {

using namespace audiomw_test;

// Counts the capture-error reports without allocating (the test's log capture would).
void CountReports(int, const char* line, void* count) {
    *static_cast<int*>(count) += std::strstr(line, "LineIn capture error") != nullptr;
}

using AiAllocTest = CaptureTest;

TEST_F(AiAllocTest, ReadsAllocateNothing) {
    const struct {
        const char* pcm;
        AI_ATTR_S attr;
        const char* marker;  // a marker set from the second read on (and kept), or ""
        int reports;         // line-in reports
    } rows[] = {
        {"card=0 channels=1-2", AlsaAi(0, 0, 16000, 2, 160), "", 0},
        {"card=0 channels=1 rates=48000", AlsaAi(0, 0, 16000, 4, 320), "", 0},  // rematrix and resampler
        {"card=1 channels=4 rates=16000", AlsaAi(1, 0, 16000, 4, 320), "/var/debuglog", 4},
        {"card=1 channels=2 rates=16000", AlsaAi(1, 0, 16000, 2, 160), "/var/recordline", 0},
        {"card=4 channels=2 rates=16000", AlsaAi(4, 0, 16000, 2, 160), "/var/recorduac", 0},
    };
    WriteFileBytes(root.Path("/proc/asound/card4/usbid"), Bytes{'0', '\n'});
    for (const auto& c : rows) {
        SCOPED_TRACE(c.pcm);
        TearDown();
        LoadCards(std::string("pcm dir=capture source=pattern ") + c.pcm);
        ASSERT_EQ(0, vcard_set_source_callback(c.attr.stAlsaDev.s32CardId, 0, HighChannelTwo, nullptr));
        AI_ATTR_S attr = c.attr;
        ASSERT_EQ(1, AUDIO_AI_Create(0, &attr) + AUDIO_AI_isInitd(0));
        ReadResult r = ReadBlock(0);
        int reports = 0, failures = 0;
        UTIL_LOG_SetSink(CountReports, &reports);
        StdoutCapture out;  // line-in reports and traces are printed; the stream exists now
        std::printf("start\n");
        std::fflush(stdout);
        long opening = 0;
        if (*c.marker) {
            root.SetMarker(c.marker);
            AllocCounterArm();
            AUDIO_AI_Read(0, r.data.data(), r.data.size(), r.len, r.ts, -1);
            AllocCounterDisarm();
            opening = AllocCount();
        }
        AllocCounterArm();
        for (int i = 0; i < 120; ++i) {
            failures += AUDIO_AI_Read(0, r.data.data(), r.data.size(), r.len, r.ts, -1) != 0;
        }
        AllocCounterDisarm();
        out.Stop();
        UTIL_LOG_SetSink(nullptr, nullptr);
        EXPECT_EQ(std::strncmp(c.marker, "/var/record", 11) == 0, opening > 0);  // the recording's stream
        EXPECT_EQ(0, AllocCount()) << "first allocation of " << AllocFirstSize() << " bytes";
        EXPECT_EQ(std::make_pair(0, c.reports), std::make_pair(failures, reports));
    }
}

}  // namespace

// Channel rematrix through the exported functions: exact vectors (the mapping rule itself
// is checked exhaustively against the kernels), in-place use without allocation, and
// refused arguments.
#include <gtest/gtest.h>

#include <regex>

#include "alloc/alloc_counter.h"
#include "audio_rematrix.h"
#include "test_support.h"

namespace {

using namespace audiomw_test;
using Words = std::vector<uint16_t>;

// What was printed, with the source line taken out of each "[function:line] " prefix.
std::string Printed(StdoutCapture& capture) {
    return std::regex_replace(capture.Stop(), std::regex("\\[(\\w+):[0-9]+\\] "), "[$1] ");
}

std::vector<uint8_t> Le(const Words& w) {
    return ToBytes(std::vector<int16_t>(w.begin(), w.end()));
}

REMATRIX_HANDLER* Make(int inChn, int outChn) {
    REMATRIX_ATTR_S attr = {inChn, outChn};
    return REMATRIX_CreateHandler(&attr);
}

struct MapCase {
    const char* name;
    int inChn, outChn;
    Words in, expected;
};

// clang-format off
const MapCase kMapCases[] = {
    {"mono_to_stereo", 1, 2, {0x0A0B, 0x0C0D}, {0x0A0B, 0x0A0B, 0x0C0D, 0x0C0D}},
    {"stereo_copy", 2, 2, {0x1234, 0x5678, 0x9ABC, 0xDEF0}, {0x1234, 0x5678, 0x9ABC, 0xDEF0}},
    {"three_to_four", 3, 4, {1, 2, 3, 4, 5, 6}, {1, 2, 3, 1, 4, 5, 6, 4}},
    {"five_to_three", 5, 3, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, {1, 2, 3, 6, 7, 8}},
    // Full-scale and sign-bit words pass unchanged: nothing is scaled, summed or clipped.
    {"stereo_to_mono_extremes", 2, 1, {0x8000, 0x7FFF, 0xFFFF, 0x0001, 0x7FFF, 0x8000},
     {0x8000, 0xFFFF, 0x7FFF}},
};
// clang-format on

class RematrixVectors : public ::testing::TestWithParam<MapCase> {};

// outFrames is ignored; nothing is written past the frames.
TEST_P(RematrixVectors, MapsExactly) {
    const MapCase& c = GetParam();
    const int frames = static_cast<int>(c.in.size()) / c.inChn;
    REMATRIX_HANDLER* handler = Make(c.inChn, c.outChn);
    std::vector<uint8_t> in = Le(c.in), out(c.expected.size() * 2 + 8, 0xEE), expected = Le(c.expected);
    expected.resize(out.size(), 0xEE);
    EXPECT_EQ(frames, REMATRIX_Process(handler, in.data(), frames, out.data(), 0));
    EXPECT_EQ(expected, out);
    EXPECT_EQ(0, REMATRIX_Destroy(&handler));
    EXPECT_EQ(nullptr, handler);
}

INSTANTIATE_TEST_SUITE_P(Mappings, RematrixVectors, ::testing::ValuesIn(kMapCases),
                         [](const ::testing::TestParamInfo<MapCase>& i) { return i.param.name; });

// In place over whole periods, where a wrong frame or channel order would overwrite input
// before reading it; the separate-buffer kernels allocate nothing either.
TEST(RematrixInPlace, LongPeriodsMatchSeparateBuffers) {
    const int shapes[][2] = {{1, 2}, {2, 4}, {3, 4}, {2, 6}, {4, 5}, {4, 2}, {2, 1}, {6, 1}, {5, 4}, {2, 2}};
    const int frames = 960;
    long allocations = 0;
    for (const auto& s : shapes) {
        REMATRIX_HANDLER* handler = Make(s[0], s[1]);
        std::vector<uint8_t> in = MakePattern(s[0], frames, 21), separate(frames * s[1] * 2);
        AllocCounterArm();
        ASSERT_EQ(frames, REMATRIX_Process(handler, in.data(), frames, separate.data(), frames));
        AllocCounterDisarm();
        allocations += AllocCount();
        in.resize(std::max(in.size(), separate.size()));
        ASSERT_EQ(frames, REMATRIX_Process(handler, in.data(), frames, in.data(), frames));
        in.resize(separate.size());
        EXPECT_EQ(separate, in) << s[0] << "=>" << s[1];
        REMATRIX_Destroy(&handler);
    }
    EXPECT_EQ(0, allocations);
}

// Any counts are stored; what cannot be mapped is refused at processing, writing nothing.
TEST(RematrixArgs, ResultLineAndNothingWritten) {
    const struct {
        int inChn, outChn, frames;
        bool nullIn, nullOut;
        int result;
        const char* printed;
    } kCases[] = {
        // clang-format off
        {2, 4, 0, false, false, 0, ""},
        {2, 4, -5, false, false, -5, ""},
        {2, 4, 0, true, true, 0, ""},
        {2, 4, 4, true, false, -1, "in or out buffer is null!"},
        {2, 4, 4, false, true, -1, "in or out buffer is null!"},
        {0, 2, 4, false, false, -1, "cannot map 0 channels to 2!"},
        {2, -1, 4, false, false, -1, "cannot map 2 channels to -1!"},
        {0, 0, 4, false, false, 4, ""},
        // clang-format on
    };
    for (const auto& c : kCases) {
        REMATRIX_HANDLER* handler = Make(c.inChn, c.outChn);
        ASSERT_NE(nullptr, handler);
        EXPECT_EQ(c.inChn, handler->stAttr.s32InChn);
        EXPECT_EQ(c.outChn, handler->stAttr.s32OutChn);
        std::vector<uint8_t> in(64, 0x11), out(64, 0xEE);
        StdoutCapture capture;
        EXPECT_EQ(c.result, REMATRIX_Process(handler, c.nullIn ? nullptr : in.data(), c.frames,
                                             c.nullOut ? nullptr : out.data(), c.frames));
        EXPECT_EQ(*c.printed ? "[REMATRIX_Process] " + std::string(c.printed) + "\n" : "", Printed(capture))
            << c.inChn << "=>" << c.outChn << ", " << c.frames << " frames";
        EXPECT_EQ(std::vector<uint8_t>(64, 0xEE), out);
        REMATRIX_Destroy(&handler);
    }
}

TEST(RematrixArgs, NullHandlersAndRecords) {
    std::vector<uint8_t> in(16, 0x11), out(16, 0xEE);
    StdoutCapture capture;
    EXPECT_EQ(-1, REMATRIX_Process(nullptr, in.data(), 2, out.data(), 4));
    EXPECT_EQ(std::vector<uint8_t>(16, 0xEE), out);
    EXPECT_EQ(nullptr, REMATRIX_CreateHandler(nullptr));
    EXPECT_EQ("[REMATRIX_CreateHandler] attr is null!\n", Printed(capture));
    REMATRIX_HANDLER* none = nullptr;
    EXPECT_EQ(0, REMATRIX_Destroy(&none));
    EXPECT_EQ(nullptr, none);
    EXPECT_EQ(0, REMATRIX_Destroy(nullptr));
}

}  // namespace

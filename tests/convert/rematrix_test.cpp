// Channel rematrix through the exported functions: exact vectors per channel mapping,
// in-place use, refused arguments and the no-allocation data path.
#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "alloc/alloc_counter.h"
#include "audio_rematrix.h"
#include "printed_lines.h"
#include "test_support.h"

namespace {

using audiomw_test::MakePattern;
using audiomw_test::StdoutCapture;
using convert_test::PrintedMessages;

using Strings = std::vector<std::string>;
using Words = std::vector<uint16_t>;

// Samples as raw 16-bit words, stored little-endian.
std::vector<uint8_t> Bytes(const Words& words) {
    std::vector<uint8_t> bytes;
    for (uint16_t w : words) {
        bytes.push_back(uint8_t(w & 0xFF));
        bytes.push_back(uint8_t(w >> 8));
    }
    return bytes;
}

REMATRIX_HANDLER* Make(int inChn, int outChn) {
    REMATRIX_ATTR_S attr = {inChn, outChn};
    return REMATRIX_CreateHandler(&attr);
}

struct MapCase {
    const char* name;
    int inChn;
    int outChn;
    Words in;
    Words expected;
};

void PrintTo(const MapCase& c, std::ostream* os) {
    *os << c.name;
}

const MapCase kMapCases[] = {
    {"mono_to_stereo", 1, 2, {0x0A0B, 0x0C0D}, {0x0A0B, 0x0A0B, 0x0C0D, 0x0C0D}},
    {"stereo_to_six", 2, 6, {0x1111, 0x2222}, {0x1111, 0x2222, 0x1111, 0x2222, 0x1111, 0x2222}},
    {"quad_to_stereo", 4, 2, {1, 2, 3, 4, 5, 6, 7, 8}, {1, 2, 5, 6}},
    {"stereo_copy", 2, 2, {0x1234, 0x5678, 0x9ABC, 0xDEF0}, {0x1234, 0x5678, 0x9ABC, 0xDEF0}},
    {"three_to_four", 3, 4, {1, 2, 3, 4, 5, 6}, {1, 2, 3, 1, 4, 5, 6, 4}},
    {"stereo_to_quad", 2, 4, {1, 2, 3, 4}, {1, 2, 1, 2, 3, 4, 3, 4}},
    {"six_to_one", 6, 1, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}, {1, 7}},
    {"five_to_three", 5, 3, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, {1, 2, 3, 6, 7, 8}},
    {"one_to_three", 1, 3, {0x0102, 0x0304}, {0x0102, 0x0102, 0x0102, 0x0304, 0x0304, 0x0304}},
    // Full-scale and sign-bit words pass unchanged: nothing is scaled, summed or clipped.
    {"stereo_to_mono_extremes",
     2,
     1,
     {0x8000, 0x7FFF, 0xFFFF, 0x0001, 0x7FFF, 0x8000},
     {0x8000, 0xFFFF, 0x7FFF}},
    {"mono_to_stereo_extremes",
     1,
     2,
     {0x8000, 0x7FFF, 0xFFFF},
     {0x8000, 0x8000, 0x7FFF, 0x7FFF, 0xFFFF, 0xFFFF}},
    {"quad_to_stereo_extremes", 4, 2, {0x7FFF, 0x8000, 0x7FFF, 0x7FFF}, {0x7FFF, 0x8000}},
};

class RematrixVectors : public ::testing::TestWithParam<MapCase> {};

TEST_P(RematrixVectors, MapsExactly) {
    const MapCase& c = GetParam();
    const int frames = int(c.in.size()) / c.inChn;
    REMATRIX_HANDLER* handler = Make(c.inChn, c.outChn);
    ASSERT_NE(handler, nullptr);
    std::vector<uint8_t> in = Bytes(c.in);
    std::vector<uint8_t> out(c.expected.size() * 2 + 8, 0xEE);
    EXPECT_EQ(REMATRIX_Process(handler, in.data(), frames, out.data(), frames + 2), frames);
    std::vector<uint8_t> expected = Bytes(c.expected);
    expected.resize(expected.size() + 8, 0xEE);  // nothing written past the frames
    EXPECT_EQ(out, expected);
    EXPECT_EQ(REMATRIX_Destroy(&handler), 0);
    EXPECT_EQ(handler, nullptr);
}

INSTANTIATE_TEST_SUITE_P(Mappings, RematrixVectors, ::testing::ValuesIn(kMapCases),
                         [](const ::testing::TestParamInfo<MapCase>& info) { return info.param.name; });

// In place over whole periods, where a wrong frame or channel order would overwrite input
// before reading it.
TEST(RematrixInPlace, LongPeriodsMatchSeparateBuffers) {
    const int shapes[][2] = {{1, 2}, {2, 4}, {3, 4}, {2, 6}, {4, 5}, {4, 2}, {3, 2}, {6, 1}, {5, 4}};
    const int frames = 960;
    for (const auto& s : shapes) {
        REMATRIX_HANDLER* handler = Make(s[0], s[1]);
        std::vector<uint8_t> in = MakePattern(s[0], frames, 21);
        std::vector<uint8_t> separate(size_t(frames) * s[1] * 2);
        ASSERT_EQ(REMATRIX_Process(handler, in.data(), frames, separate.data(), frames), frames);
        std::vector<uint8_t> buf = in;
        buf.resize(std::max(in.size(), separate.size()));
        ASSERT_EQ(REMATRIX_Process(handler, buf.data(), frames, buf.data(), frames), frames);
        buf.resize(separate.size());
        EXPECT_EQ(buf, separate) << s[0] << "=>" << s[1];
        REMATRIX_Destroy(&handler);
    }
}

struct ArgCase {
    const char* name;
    int inChn;
    int outChn;
    int frames;
    bool nullIn;
    bool nullOut;
    int result;
    Strings printed;  // messages of REMATRIX_Process, prefix removed
};

void PrintTo(const ArgCase& c, std::ostream* os) {
    *os << c.name;
}

const ArgCase kArgCases[] = {
    {"zero_frames", 2, 4, 0, false, false, 0, {}},
    {"negative_frames", 2, 4, -5, false, false, -5, {}},
    {"zero_frames_null_buffers", 2, 4, 0, true, true, 0, {}},
    {"null_in", 2, 4, 4, true, false, -1, {"in or out buffer is null!"}},
    {"null_out", 2, 4, 4, false, true, -1, {"in or out buffer is null!"}},
    {"zero_in_channels", 0, 2, 4, false, false, -1, {"cannot map 0 channels to 2!"}},
    {"negative_in_channels", -1, 2, 4, false, false, -1, {"cannot map -1 channels to 2!"}},
    {"negative_out_channels", 2, -1, 4, false, false, -1, {"cannot map 2 channels to -1!"}},
    {"both_negative", -3, -2, 4, false, false, -1, {"cannot map -3 channels to -2!"}},
    {"zero_out_channels", 2, 0, 4, false, false, 4, {}},
    {"zero_both", 0, 0, 4, false, false, 4, {}},
};

class RematrixArgs : public ::testing::TestWithParam<ArgCase> {};

TEST_P(RematrixArgs, ResultLineAndNothingWritten) {
    const ArgCase& c = GetParam();
    REMATRIX_HANDLER* handler = Make(c.inChn, c.outChn);
    ASSERT_NE(handler, nullptr);
    EXPECT_EQ(handler->stAttr.s32InChn, c.inChn);
    EXPECT_EQ(handler->stAttr.s32OutChn, c.outChn);
    std::vector<uint8_t> in(64, 0x11);
    std::vector<uint8_t> out(64, 0xEE);
    StdoutCapture capture;
    int n = REMATRIX_Process(handler, c.nullIn ? nullptr : in.data(), c.frames,
                             c.nullOut ? nullptr : out.data(), c.frames);
    EXPECT_EQ(PrintedMessages(capture.Stop(), "REMATRIX_Process"), c.printed);
    EXPECT_EQ(n, c.result);
    EXPECT_EQ(out, std::vector<uint8_t>(64, 0xEE));
    REMATRIX_Destroy(&handler);
}

INSTANTIATE_TEST_SUITE_P(Vectors, RematrixArgs, ::testing::ValuesIn(kArgCases),
                         [](const ::testing::TestParamInfo<ArgCase>& info) { return info.param.name; });

TEST(RematrixHandle, NullHandlerIsMinusOneSilently) {
    std::vector<uint8_t> in(16, 0x11);
    std::vector<uint8_t> out(16, 0xEE);
    StdoutCapture capture;
    EXPECT_EQ(REMATRIX_Process(nullptr, in.data(), 2, out.data(), 4), -1);
    EXPECT_EQ(capture.Stop(), "");
    EXPECT_EQ(out, std::vector<uint8_t>(16, 0xEE));
}

TEST(RematrixHandle, OutFramesIsIgnored) {
    REMATRIX_HANDLER* handler = Make(1, 2);
    std::vector<uint8_t> in = Bytes({1, 2, 3});
    std::vector<uint8_t> out(12, 0);
    EXPECT_EQ(REMATRIX_Process(handler, in.data(), 3, out.data(), -7), 3);
    EXPECT_EQ(out, Bytes({1, 1, 2, 2, 3, 3}));
    REMATRIX_Destroy(&handler);
}

TEST(RematrixHandle, CreateCopiesAnyCountsAndRefusesNullAttr) {
    REMATRIX_HANDLER* handler = Make(-5, 70000);
    ASSERT_NE(handler, nullptr);
    EXPECT_EQ(handler->stAttr.s32InChn, -5);
    EXPECT_EQ(handler->stAttr.s32OutChn, 70000);
    REMATRIX_Destroy(&handler);
    StdoutCapture capture;
    EXPECT_EQ(REMATRIX_CreateHandler(nullptr), nullptr);
    EXPECT_EQ(PrintedMessages(capture.Stop(), "REMATRIX_CreateHandler"), Strings{"attr is null!"});
}

TEST(RematrixHandle, DestroyNullForms) {
    EXPECT_EQ(REMATRIX_Destroy(nullptr), 0);
    REMATRIX_HANDLER* none = nullptr;
    EXPECT_EQ(REMATRIX_Destroy(&none), 0);
    EXPECT_EQ(none, nullptr);
}

TEST(RematrixHandle, ProcessAllocatesNothing) {
    const int shapes[][2] = {{1, 2}, {2, 1}, {4, 2}, {2, 4}, {3, 5}, {2, 2}};
    std::vector<REMATRIX_HANDLER*> handlers;
    for (const auto& s : shapes) {
        handlers.push_back(Make(s[0], s[1]));
    }
    std::vector<uint8_t> in = MakePattern(5, 960, 2);
    std::vector<uint8_t> out(960 * 5 * 2);
    audiomw_test::AllocCounterArm();
    int total = 0;
    for (REMATRIX_HANDLER* h : handlers) {
        total += REMATRIX_Process(h, in.data(), 960, out.data(), 962);
    }
    audiomw_test::AllocCounterDisarm();
    EXPECT_EQ(0, audiomw_test::AllocCount())
        << "first allocation of " << audiomw_test::AllocFirstSize() << " bytes";
    EXPECT_EQ(total, 960 * 6);
    for (REMATRIX_HANDLER*& h : handlers) {
        REMATRIX_Destroy(&h);
    }
}

}  // namespace

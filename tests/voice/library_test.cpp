// The PC voice library's interface and its frame adapter (any frame length to 10 ms chunks).
#include <cstring>
#include <regex>

#include "chunk_adapter.h"
#include "voice_engine.h"
#include "voice_test_util.h"

namespace {

using audiomw::voice::ChunkAdapter;
using voice_test::NewInstance;

TEST(VoiceLibrary, RefusesWhatItCannotProcess) {
    const struct {
        const char* name;
        int rate, frame, mics, lineIn, err;
    } cases[] = {
        {"44.1 kHz", 44100, 441, 1, 0, audiomw::voice::kVoiceErrRate},
        {"rate 0", 0, 0, 1, 0, audiomw::voice::kVoiceErrRate},
        {"frame 0", 16000, 0, 1, 0, audiomw::voice::kVoiceErrFrameLen},
        {"frame of two seconds", 16000, 32000, 1, 0, audiomw::voice::kVoiceErrFrameLen},
        {"no microphone", 16000, 256, 0, 0, audiomw::voice::kVoiceErrChannels},
        {"seven microphones", 16000, 256, 7, 0, audiomw::voice::kVoiceErrChannels},
        {"negative line-in", 16000, 256, 2, -1, audiomw::voice::kVoiceErrChannels},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        QX_AUDIO_ALG_PARAM_S p{c.rate, c.frame, c.mics, c.lineIn, {}};
        int err = 0;
        EXPECT_EQ(QX_AudioAlgInit(&p, &err), nullptr);
        EXPECT_EQ(err, c.err);
    }
    int err = 0;
    EXPECT_EQ(QX_AudioAlgInit(nullptr, &err), nullptr);
    EXPECT_EQ(err, audiomw::voice::kVoiceErrNullParam);
    void* h = NewInstance(16000, 160, 1);
    short buf[160] = {0}, result = 0;
    EXPECT_EQ(QX_AudioAlgFrmProc(nullptr, buf, buf, buf, &result), -1);
    EXPECT_EQ(QX_AudioAlgFrmProc(h, nullptr, buf, buf, &result), -1);
    EXPECT_EQ(QX_AudioAlgFrmProc(h, buf, nullptr, buf, &result), -1);
    EXPECT_EQ(QX_AudioAlgFrmProc(h, buf, buf, nullptr, &result), -1);
    EXPECT_EQ(QX_AudioAlgFrmProc(h, buf, buf, buf, nullptr), 0) << "the result is optional";
    char ver[8];
    EXPECT_EQ(QX_AudioAlgGetVersion(nullptr, ver, 8) + QX_AudioAlgGetVersion(h, ver, 0), -2);
}

// Every rate and several frame lengths: one frame written, line-in read, result 0 or 1.
TEST(VoiceLibrary, ProcessesEveryRateAndFrameLength) {
    const struct {
        int rate, frame, mics, lineIn;
    } cases[] = {{8000, 80, 1, 0},   {8000, 256, 2, 1},  {16000, 256, 4, 0}, {16000, 100, 1, 2},
                 {32000, 320, 2, 0}, {48000, 480, 1, 0}, {48000, 1024, 6, 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.rate) + " Hz, frame " + std::to_string(c.frame));
        void* h = NewInstance(c.rate, c.frame, c.mics, c.lineIn);
        ASSERT_NE(h, nullptr);
        voice_test::Noise n(3);
        std::vector<short> mic(static_cast<size_t>(c.mics + c.lineIn) * c.frame), ref(c.frame);
        std::vector<short> out(static_cast<size_t>(c.frame) + 8, 0x5A5A);
        for (int f = 0; f < 20; f++) {
            for (short& s : mic) {
                s = static_cast<short>(n.Next() * 3000);
            }
            short result = 77;
            ASSERT_EQ(QX_AudioAlgFrmProc(h, mic.data(), ref.data(), out.data(), &result), 0);
            EXPECT_TRUE(result == 0 || result == 1) << result;
            EXPECT_EQ(std::vector<short>(out.begin() + c.frame, out.end()), std::vector<short>(8, 0x5A5A));
        }
    }
}

// Square: 0 dBFS, half-scale sine: -9.03 dBFS, silence: the floor; the version cut to the buffer.
TEST(VoiceLibrary, MicLevelsInDbfsAndVersion) {
    void* h = NewInstance(16000, 256, 3);
    std::vector<short> mic(3 * 256, 0), ref(256, 0), out(256);
    for (int i = 0; i < 256; i++) {
        mic[i] = (i / 8) % 2 ? 32767 : -32767;
        mic[512 + i] = static_cast<short>(std::lround(16384 * std::sin(2 * M_PI * 500 * i / 16000.0)));
    }
    float levels[6] = {1, 1, 1, 1, 1, 1};
    EXPECT_FLOAT_EQ(getMicVol(h, levels), audiomw::voice::kVoiceFloorDbfs) << "before any frame";
    short result = 0;
    ASSERT_EQ(QX_AudioAlgFrmProc(h, mic.data(), ref.data(), out.data(), &result), 0);
    const float loudest = getMicVol(h, levels);
    EXPECT_FLOAT_EQ(loudest, levels[0]);
    EXPECT_NEAR(levels[0], 0.0f, 0.01f);
    EXPECT_FLOAT_EQ(levels[1], audiomw::voice::kVoiceFloorDbfs);
    EXPECT_NEAR(levels[2], -9.03f, 0.05f);
    EXPECT_EQ(levels[3], 1.0f) << "only the instance's microphones are written";
    EXPECT_FLOAT_EQ(getMicVol(nullptr, levels), audiomw::voice::kVoiceFloorDbfs);
    char ver[32], small[4];
    std::memset(ver, 'x', sizeof(ver));
    ASSERT_EQ(QX_AudioAlgGetVersion(h, ver, 32) + QX_AudioAlgGetVersion(h, small, 4), 0);
    EXPECT_TRUE(std::regex_match(ver, std::regex("[A-Za-z][0-9]+[A-Za-z]?"))) << ver;
    EXPECT_EQ(std::string(ver, 3), small);
}

// An identity processor through the adapter: output = input delayed by the latency, per channel.
TEST(ChunkAdapterTest, NoSampleDroppedOrRepeated) {
    const struct {
        int frame, chunk, latency;
    } cases[] = {{256, 160, 128}, {160, 160, 0},    {80, 160, 80}, {320, 160, 0},
                 {441, 480, 477}, {1000, 160, 120}, {1, 80, 79}};
    struct Ctx {
        int chunk;
        int bad = 0;
    };
    auto identity = [](void* p, float* const* chunk, float* out) {
        Ctx* ctx = static_cast<Ctx*>(p);
        for (int i = 0; i < ctx->chunk; i++) {
            ctx->bad +=
                std::lround((chunk[1][i] - chunk[0][i]) * 32768.0f) != 7;  // channel 1 is channel 0 + 7
            out[i] = chunk[0][i];
        }
        return chunk[0][0] > 0.5f;
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("frame " + std::to_string(c.frame) + ", chunk " + std::to_string(c.chunk));
        EXPECT_EQ(ChunkAdapter::Latency(c.frame, c.chunk), c.latency);
        ChunkAdapter ad(2, c.frame, c.chunk);
        Ctx ctx{c.chunk};
        const int total = c.frame * std::max(20, 4000 / c.frame);
        std::vector<short> in0(total), in1(total), out, frameOut(c.frame);
        for (int i = 0; i < total; i++) {
            in0[i] = static_cast<short>((i * 37) % 30000 - 15000);
            in1[i] = static_cast<short>(in0[i] + 7);
        }
        int chunks = 0;
        for (int at = 0; at < total; at += c.frame) {
            const short* chans[2] = {&in0[at], &in1[at]};
            bool voice = false;
            chunks += ad.Run(chans, frameOut.data(), identity, &ctx, &voice);
            out.insert(out.end(), frameOut.begin(), frameOut.end());
        }
        EXPECT_EQ(chunks, total / c.chunk);
        EXPECT_EQ(ctx.bad, 0);
        std::vector<short> expect(c.latency, 0);
        expect.insert(expect.end(), in0.begin(), in0.end() - c.latency);
        ASSERT_EQ(out, expect);
    }
}

}  // namespace

// Writes allocate nothing: converters and buffers are made when the output opens. The
// program's operator new is replaced by a counting one (the library's allocations
// resolve to it too).
#include <atomic>
#include <cstdlib>
#include <new>
#include <vector>

#include "ao_test_util.h"
#include "audio_ao.h"

namespace {

std::atomic<bool> g_counting{false};
std::atomic<long> g_allocations{0};

void* CountedAlloc(std::size_t size) {
    if (g_counting.load(std::memory_order_relaxed)) {
        g_allocations.fetch_add(1, std::memory_order_relaxed);
    }
    void* p = std::malloc(size ? size : 1);
    return p;
}

// Out of line, so that the compiler does not pair the replaced operators' malloc and
// free with new and delete expressions it inlined.
__attribute__((noinline)) void CountedFree(void* p) {
    std::free(p);
}

}  // namespace

void* operator new(std::size_t size) {
    void* p = CountedAlloc(size);
    if (p == nullptr) {
        throw std::bad_alloc();
    }
    return p;
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return CountedAlloc(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return CountedAlloc(size);
}
void operator delete(void* p) noexcept {
    CountedFree(p);
}
void operator delete[](void* p) noexcept {
    CountedFree(p);
}
void operator delete(void* p, std::size_t) noexcept {
    CountedFree(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    CountedFree(p);
}

namespace {

using audiomw_test::AlsaAoAttr;

struct AllocCase {
    const char* name;
    unsigned int chMax, rateMin, rateMax;
    int rate, channels, frames;
};

class AoAllocTest : public audiomw_test::AoTest, public ::testing::WithParamInterface<AllocCase> {};

TEST_P(AoAllocTest, WritesAllocateNothing) {
    const AllocCase& c = GetParam();
    vcard_pcm_desc d;
    vcard_pcm_desc_init(&d, 0, 0, VCARD_PLAYBACK);
    d.channels_min = 1;
    d.channels_max = c.chMax;
    d.rate_min = c.rateMin;
    d.rate_max = c.rateMax;
    ASSERT_EQ(0, vcard_add_pcm(&d));
    ASSERT_EQ(0, vcard_set_sink_discard(0, 0));
    ASSERT_TRUE(CreateEnabled(0, AlsaAoAttr(0, 0, c.rate, c.channels, c.frames)));
    EXPECT_EQ(c.channels > static_cast<int>(c.chMax) ? 1 : 0, log.CountContaining("enable rematrix"));
    EXPECT_EQ(c.rate < static_cast<int>(c.rateMin) ? 1 : 0, log.CountContaining("enable resample"));
    std::vector<uint8_t> period = audiomw_test::MakePattern(c.channels, c.frames);
    ASSERT_EQ(0, AUDIO_AO_Write(0, period.data(), period.size()));  // first transfer starts the PCM

    g_allocations = 0;
    g_counting = true;
    int failures = 0;
    for (int i = 0; i < 50; ++i) {
        failures += AUDIO_AO_Write(0, period.data(), period.size()) != 0;
    }
    g_counting = false;
    EXPECT_EQ(0, failures);
    EXPECT_EQ(0, g_allocations.load());
}

INSTANTIATE_TEST_SUITE_P(Chains, AoAllocTest,
                         ::testing::Values(AllocCase{"Direct", 2, 8000, 48000, 48000, 2, 480},
                                           AllocCase{"Rematrix", 2, 8000, 48000, 48000, 4, 480},
                                           AllocCase{"Resample", 2, 48000, 48000, 16000, 2, 320},
                                           AllocCase{"RematrixAndResample", 1, 48000, 48000, 16000, 2, 320}),
                         [](const ::testing::TestParamInfo<AllocCase>& i) {
                             return std::string(i.param.name);
                         });

}  // namespace

// Fault plans: absent cards, refused opens and prepares, failing transfers.
#include <cerrno>

#include "vcard_fixture.h"

namespace tinyalsa_test {
namespace {

using FaultPlanTest = BoardTest;

vcard_fault_plan Plan(int absent, const char* openError, vcard_prepare_fault prepare = VCARD_PREPARE_OK,
                      unsigned int at = 0, unsigned int count = 0,
                      vcard_transfer_fault kind = VCARD_TRANSFER_XRUN) {
    return vcard_fault_plan{absent, openError, prepare, at, count, kind};
}

// Refused while the plan holds (an absent PCM has no params either), open again once cleared.
TEST_F(FaultPlanTest, OpenFailsForAnAbsentPcmOrWithThePlannedText) {
    const std::pair<vcard_fault_plan, const char*> cases[] = {
        {Plan(1, nullptr), "card 2 device 0 playback: absent"},
        {Plan(0, "cannot set hw params: Invalid argument"), "cannot set hw params: Invalid argument"},
        {Plan(0, ""), "card 2 device 0 playback: open refused"}};
    for (const auto& [plan, error] : cases) {
        ASSERT_EQ(0, vcard_set_faults(2, 0, VCARD_PLAYBACK, &plan));
        PcmHandle handle(2, 0, PCM_OUT, Config(2, 16000, 160));
        EXPECT_EQ(0, pcm_is_ready(handle.get()));
        EXPECT_EQ(error, handle.Error());
        pcm_params* params = pcm_params_get(2, 0, PCM_OUT);
        EXPECT_EQ(plan.absent == 1, params == nullptr);
        pcm_params_free(params);
    }
    vcard_counters counters = Counters(2, 0, VCARD_PLAYBACK);
    EXPECT_EQ(3u, counters.failed_opens);
    EXPECT_EQ(160u, counters.last_config.period_size) << "the refused configuration is still recorded";
    ASSERT_EQ(0, vcard_set_faults(2, 0, VCARD_PLAYBACK, nullptr));
    PcmHandle handle(2, 0, PCM_OUT, Config(2, 16000, 160));
    EXPECT_EQ(1, pcm_is_ready(handle.get())) << handle.Error();
}

// Writes N to N+K-1 fail and move no data; an xrun counts as an underrun; later writes succeed.
TEST_F(FaultPlanTest, TheNthWriteFailsKTimesThenWritesSucceed) {
    const struct {
        vcard_fault_plan plan;
        std::vector<int> results;
        int underruns;
    } cases[] = {
        {Plan(0, nullptr, VCARD_PREPARE_OK, 3, 1), {2, 2, -EPIPE, 2, 2}, 1},
        {Plan(0, nullptr, VCARD_PREPARE_OK, 2, 3), {2, -EPIPE, -EPIPE, -EPIPE, 2}, 3},
        {Plan(0, nullptr, VCARD_PREPARE_OK, 2, 1, VCARD_TRANSFER_IO), {2, -EIO, 2, 2, 2}, 0},
    };
    for (const auto& c : cases) {
        ASSERT_EQ(0, vcard_memory_clear(2, 0));
        ASSERT_EQ(0, vcard_reset_counters(2, 0, VCARD_PLAYBACK));
        ASSERT_EQ(0, Counters(2, 0, VCARD_PLAYBACK).has_config);
        ASSERT_EQ(0, vcard_set_faults(2, 0, VCARD_PLAYBACK, &c.plan));
        PcmHandle handle(2, 0, PCM_OUT, Config(1, 16000, 2));
        std::vector<int> results;
        std::vector<int16_t> moved;
        for (int16_t i = 1; i <= 5; ++i) {
            results.push_back(pcm_writei(handle.get(), Le16({i, i}).data(), 2));
            if (results.back() > 0) {
                moved.insert(moved.end(), {i, i});
            } else {
                EXPECT_EQ(results.back() == -EIO ? "cannot write stream data: Input/output error"
                                                 : "cannot write stream data: Broken pipe",
                          handle.Error());
            }
        }
        EXPECT_EQ(c.results, results);
        EXPECT_EQ(c.underruns, pcm_get_underruns(handle.get()));
        std::vector<uint8_t> memory(64);
        memory.resize(vcard_memory_read(2, 0, 0, memory.data(), memory.size()));
        EXPECT_EQ(Le16(moved), memory) << "a failed write moves no data";
        vcard_counters counters = Counters(2, 0, VCARD_PLAYBACK);
        EXPECT_EQ(5u - c.plan.transfer_fail_count, counters.writes);
        EXPECT_EQ(c.plan.transfer_fail_count, counters.failed_transfers);
        EXPECT_EQ(static_cast<unsigned int>(c.underruns), counters.xruns);
    }
}

}  // namespace
}  // namespace tinyalsa_test

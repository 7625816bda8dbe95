// Fault plans: absent cards, refused opens and prepares, failing transfers.
#include <cerrno>

#include "vcard_fixture.h"

namespace tinyalsa_test {
namespace {

class FaultPlanTest : public VcardTest {
  protected:
    void SetUp() override {
        VcardTest::SetUp();
        ASSERT_EQ(0, AddPcm(Desc(2, 0, VCARD_PLAYBACK, 1, 2, 8000, 48000)));
        ASSERT_EQ(0, AddPcm(Desc(1, 0, VCARD_CAPTURE, 1, 2, 8000, 48000)));
        ASSERT_EQ(0, vcard_set_sink_memory(2, 0, 0));
        ASSERT_EQ(0, vcard_set_source_pattern(1, 0));
    }

    static int SetFaults(unsigned int card, vcard_direction direction, const vcard_fault_plan& plan) {
        return vcard_set_faults(card, 0, direction, &plan);
    }

    static vcard_fault_plan TransferPlan(unsigned int at, unsigned int count, vcard_transfer_fault kind) {
        vcard_fault_plan plan{};
        plan.transfer_fail_at = at;
        plan.transfer_fail_count = count;
        plan.transfer_kind = kind;
        return plan;
    }
};

TEST_F(FaultPlanTest, AnAbsentPcmHasNoParamsAndDoesNotOpen) {
    vcard_fault_plan plan{};
    plan.absent = 1;
    ASSERT_EQ(0, SetFaults(2, VCARD_PLAYBACK, plan));
    EXPECT_EQ(nullptr, pcm_params_get(2, 0, PCM_OUT));
    {
        PcmHandle handle(2, 0, PCM_OUT, Config(2, 16000, 160));
        EXPECT_EQ(0, pcm_is_ready(handle.get()));
        EXPECT_EQ("card 2 device 0 playback: absent", handle.Error());
    }
    ASSERT_EQ(0, vcard_set_faults(2, 0, VCARD_PLAYBACK, nullptr));
    pcm_params* params = pcm_params_get(2, 0, PCM_OUT);
    EXPECT_NE(nullptr, params);
    pcm_params_free(params);
}

TEST_F(FaultPlanTest, OpenFailsWithThePlannedMessage) {
    vcard_fault_plan plan{};
    plan.open_error = "cannot set hw params: Invalid argument";
    ASSERT_EQ(0, SetFaults(2, VCARD_PLAYBACK, plan));
    {
        PcmHandle handle(2, 0, PCM_OUT, Config(2, 16000, 160));
        EXPECT_EQ(0, pcm_is_ready(handle.get()));
        EXPECT_EQ("cannot set hw params: Invalid argument", handle.Error());
    }
    plan.open_error = "";
    ASSERT_EQ(0, SetFaults(2, VCARD_PLAYBACK, plan));
    PcmHandle handle(2, 0, PCM_OUT, Config(2, 16000, 160));
    EXPECT_EQ("card 2 device 0 playback: open refused", handle.Error());
    vcard_counters counters = Counters(2, 0, VCARD_PLAYBACK);
    EXPECT_EQ(2u, counters.failed_opens);
    EXPECT_EQ(2u, counters.last_config.channels);
    EXPECT_EQ(160u, counters.last_config.period_size) << "the refused configuration is still recorded";
}

TEST_F(FaultPlanTest, PrepareFailureKeepsThePcmReady) {
    vcard_fault_plan plan{};
    plan.prepare = VCARD_PREPARE_FAIL;
    ASSERT_EQ(0, SetFaults(1, VCARD_CAPTURE, plan));
    PcmHandle handle(1, 0, PCM_IN, Config(2, 16000, 4));
    ASSERT_EQ(1, pcm_is_ready(handle.get()));
    EXPECT_EQ(-EIO, pcm_prepare(handle.get()));
    EXPECT_EQ("cannot prepare channel: Input/output error", handle.Error());
    EXPECT_EQ(1, pcm_is_ready(handle.get()));
    uint8_t buffer[16];
    EXPECT_EQ(4, pcm_readi(handle.get(), buffer, 4));
    EXPECT_EQ(1u, Counters(1, 0, VCARD_CAPTURE).prepares);
}

TEST_F(FaultPlanTest, PrepareThatLeavesThePcmUnreadyGivesTheDeviceUp) {
    vcard_fault_plan plan{};
    plan.prepare = VCARD_PREPARE_UNREADY;
    ASSERT_EQ(0, SetFaults(1, VCARD_CAPTURE, plan));
    pcm* handle = Open(1, 0, PCM_IN, Config(2, 16000, 4));
    ASSERT_EQ(1, pcm_is_ready(handle));
    EXPECT_EQ(-EIO, pcm_prepare(handle));
    EXPECT_EQ(0, pcm_is_ready(handle));
    EXPECT_STREQ("cannot prepare channel: Input/output error", pcm_get_error(handle));
    uint8_t buffer[16];
    EXPECT_EQ(-EBADFD, pcm_readi(handle, buffer, 4));
    EXPECT_EQ(0, Counters(1, 0, VCARD_CAPTURE).is_open) << "free for other opens, like a lost device";
    {
        PcmHandle again(1, 0, PCM_IN, Config(2, 16000, 4));
        EXPECT_EQ(1, pcm_is_ready(again.get())) << again.Error();
    }
    EXPECT_EQ(0, pcm_close(handle));
    vcard_counters counters = Counters(1, 0, VCARD_CAPTURE);
    EXPECT_EQ(2u, counters.opens);
    EXPECT_EQ(1u, counters.closes) << "only the second handle closed the device";
    EXPECT_EQ(0u, counters.reads);
}

TEST_F(FaultPlanTest, TheNthWriteFailsAsAnUnderrunAndLaterWritesSucceed) {
    ASSERT_EQ(0, SetFaults(2, VCARD_PLAYBACK, TransferPlan(3, 1, VCARD_TRANSFER_XRUN)));
    PcmHandle handle(2, 0, PCM_OUT, Config(1, 16000, 2));
    const std::vector<std::vector<int16_t>> periods = {{1, 1}, {2, 2}, {3, 3}, {4, 4}};
    const int expected[] = {2, 2, -EPIPE, 2};
    for (size_t i = 0; i < periods.size(); ++i) {
        std::vector<uint8_t> bytes = Le16(periods[i]);
        EXPECT_EQ(expected[i], pcm_writei(handle.get(), bytes.data(), 2)) << "write " << i + 1;
        if (expected[i] < 0) {
            EXPECT_EQ("cannot write stream data: Broken pipe", handle.Error());
        }
    }
    EXPECT_EQ(1, pcm_get_underruns(handle.get()));
    std::vector<uint8_t> kept(64);
    kept.resize(vcard_memory_read(2, 0, 0, kept.data(), kept.size()));
    EXPECT_EQ(Le16({1, 1, 2, 2, 4, 4}), kept) << "a failed write moves no data";
    vcard_counters counters = Counters(2, 0, VCARD_PLAYBACK);
    EXPECT_EQ(3u, counters.writes);
    EXPECT_EQ(6u, counters.frames_written);
    EXPECT_EQ(1u, counters.failed_transfers);
    EXPECT_EQ(1u, counters.xruns);
}

TEST_F(FaultPlanTest, FailsKTimesStartingAtN) {
    ASSERT_EQ(0, SetFaults(2, VCARD_PLAYBACK, TransferPlan(2, 3, VCARD_TRANSFER_XRUN)));
    PcmHandle handle(2, 0, PCM_OUT, Config(1, 16000, 2));
    std::vector<uint8_t> bytes = Le16({5, 5});
    std::vector<int> results;
    for (int i = 0; i < 6; ++i) {
        results.push_back(pcm_writei(handle.get(), bytes.data(), 2));
    }
    EXPECT_EQ(std::vector<int>({2, -EPIPE, -EPIPE, -EPIPE, 2, 2}), results);
    EXPECT_EQ(3, pcm_get_underruns(handle.get()));
}

TEST_F(FaultPlanTest, AnIoFailedReadIsNoOverrunAndDoesNotAdvanceTheFrames) {
    ASSERT_EQ(0, SetFaults(1, VCARD_CAPTURE, TransferPlan(2, 0, VCARD_TRANSFER_IO)));
    PcmHandle handle(1, 0, PCM_IN, Config(1, 16000, 2));
    std::vector<uint8_t> buffer(4);
    EXPECT_EQ(2, pcm_readi(handle.get(), buffer.data(), 2));
    EXPECT_EQ(-EIO, pcm_readi(handle.get(), buffer.data(), 2));
    EXPECT_EQ("cannot read stream data: Input/output error", handle.Error());
    EXPECT_EQ(2, pcm_readi(handle.get(), buffer.data(), 2));
    EXPECT_EQ(Le16({2, 3}), buffer);
    EXPECT_EQ(0, pcm_get_underruns(handle.get()));
    vcard_counters counters = Counters(1, 0, VCARD_CAPTURE);
    EXPECT_EQ(1u, counters.failed_transfers);
    EXPECT_EQ(0u, counters.xruns);
}

TEST_F(FaultPlanTest, TransfersCountFromThePlanOrTheOpenWhicheverCameLast) {
    pcm* first = Open(2, 0, PCM_OUT, Config(1, 16000, 2));
    std::vector<uint8_t> bytes = Le16({5, 5});
    for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(2, pcm_writei(first, bytes.data(), 2));
    }
    ASSERT_EQ(0, SetFaults(2, VCARD_PLAYBACK, TransferPlan(2, 1, VCARD_TRANSFER_XRUN)));
    EXPECT_EQ(2, pcm_writei(first, bytes.data(), 2));
    EXPECT_EQ(-EPIPE, pcm_writei(first, bytes.data(), 2));
    pcm_close(first);

    PcmHandle again(2, 0, PCM_OUT, Config(1, 16000, 2));
    EXPECT_EQ(2, pcm_writei(again.get(), bytes.data(), 2));
    EXPECT_EQ(-EPIPE, pcm_writei(again.get(), bytes.data(), 2)) << "the count restarts at open";
    EXPECT_EQ(1, pcm_get_underruns(again.get())) << "underruns are per opening";
}

TEST_F(FaultPlanTest, CountersResetOnRequest) {
    {
        PcmHandle handle(2, 0, PCM_OUT, Config(1, 16000, 2));
        std::vector<uint8_t> bytes = Le16({5, 5});
        ASSERT_EQ(2, pcm_writei(handle.get(), bytes.data(), 2));
    }
    ASSERT_EQ(0, vcard_reset_counters(2, 0, VCARD_PLAYBACK));
    vcard_counters counters = Counters(2, 0, VCARD_PLAYBACK);
    EXPECT_EQ(0u, counters.opens + counters.closes + counters.writes + counters.frames_written);
    EXPECT_EQ(0, counters.has_config);
    EXPECT_EQ(-ENOENT, vcard_reset_counters(2, 7, VCARD_PLAYBACK));
}

TEST_F(FaultPlanTest, UnknownFaultKindsAreRefused) {
    vcard_fault_plan plan{};
    plan.prepare = static_cast<vcard_prepare_fault>(9);
    EXPECT_EQ(-EINVAL, SetFaults(2, VCARD_PLAYBACK, plan));
    EXPECT_STREQ("unknown fault kind", vcard_last_error());
    EXPECT_EQ(-ENOENT, vcard_set_faults(2, 0, VCARD_CAPTURE, nullptr));
}

}  // namespace
}  // namespace tinyalsa_test

#include "config_app.h"

#include <algorithm>

namespace config_test {

bool App::Start(const std::vector<int>& skipAi) {
    EXPECT_EQ(0, AUDIO_AI_LoadFromConfig(ai));
    EXPECT_EQ(0, AUDIO_AO_LoadFromConfig(ao));
    for (tagAI_XML_CFG_S& r : ai) {
        if (std::find(skipAi.begin(), skipAi.end(), r.s32Id) == skipAi.end()) {
            EXPECT_EQ(0, AUDIO_AI_Create(r.s32Id, &r.stAttr)) << "AI " << r.s32Id;
        }
    }
    for (tagAO_XML_CFG_S& r : ao) {
        EXPECT_EQ(0, AUDIO_AO_Create(r.s32Id, &r.stAttr)) << "AO " << r.s32Id;
    }
    EXPECT_EQ(0, AUDIO_ASTREAM_LoadFromConfig(ai, ao, streams));
    return !::testing::Test::HasFailure();
}

tagASTREAM_XML_CFG_S* App::Stream(const std::string& name) {
    for (tagASTREAM_XML_CFG_S& s : streams) {
        if (strnlen(s.acName, sizeof(s.acName)) == name.size() &&
            name.compare(0, name.size(), s.acName, name.size()) == 0) {
            return &s;
        }
    }
    ADD_FAILURE() << "no stream configuration " << name;
    return nullptr;
}

void App::Stop() {
    for (int id = 0; id < ASTREAM_MAX_NUM; id++) {
        AUDIO_ASTREAM_Stop(id);
        AUDIO_ASTREAM_Destroy(id);
    }
    for (int id = 0; id < AUDIO_AI_MAX_NUM; id++) {
        AUDIO_AI_Close(id);
        AUDIO_AI_SetEnable(id, ZN_FALSE);
        AUDIO_AI_Destroy(id);
    }
    for (int id = 0; id < AUDIO_AO_MAX_NUM; id++) {
        AUDIO_AO_SetEnable(id, ZN_FALSE);
        AUDIO_AO_Destroy(id);
    }
}

void AddPlaybackCard(unsigned int card, const char* clock) {
    std::string line =
        "pcm card=" + std::to_string(card) + " device=0 dir=playback sink=memory clock=" + clock;
    ASSERT_EQ(0, vcard_load_text(line.c_str(), "cards")) << vcard_last_error();
}

long SinkSize(unsigned int card) {
    return vcard_memory_size(card, 0);
}

std::vector<uint8_t> SinkBytes(unsigned int card) {
    std::vector<uint8_t> b(static_cast<size_t>(std::max(0L, SinkSize(card))));
    long n = vcard_memory_read(card, 0, 0, b.empty() ? nullptr : b.data(), b.size());
    b.resize(static_cast<size_t>(std::max(0L, n)));
    return b;
}

}  // namespace config_test

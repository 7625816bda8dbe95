// Helpers of the configuration tests: expected records, byte-exact comparison, log
// checks, configuration text, and the application side (load, create, take down).
#ifndef AUDIOMW_TESTS_CONFIG_CONFIG_TEST_UTIL_H
#define AUDIOMW_TESTS_CONFIG_CONFIG_TEST_UTIL_H

#include <tinyalsa/vcard.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "audio_config.h"
#include "test_support.h"

namespace config_test {

using audiomw_test::Logged;

inline std::string Name(const char (&acName)[AUDIO_CFG_NAME_LEN]) {
    return std::string(acName, strnlen(acName, AUDIO_CFG_NAME_LEN));
}
inline std::string Repeat(const std::string& s, int n) {
    std::string out;
    while (n-- > 0) {
        out += s;
    }
    return out;
}
template <typename T>
T Zeroed() {
    T r;
    std::memset(&r, 0, sizeof(r));
    return r;
}

// Expected records; every byte not named is zero, as the loaders leave it. `v` holds
// rate, channels, frames, volume, card, device (missing ones 0).
template <typename R, typename A>
R Record(int id, const std::string& name, std::vector<int> v, int type, int A::*frames) {
    R r = Zeroed<R>();
    v.resize(6);
    r.s32Id = id;
    std::memcpy(r.acName, name.data(), std::min(name.size(), sizeof(r.acName)));
    r.stAttr.eSampleRate = static_cast<tagAI_SAMPLE_RATE_E>(v[0]);
    r.stAttr.s32Channel = v[1];
    r.stAttr.*frames = v[2];
    r.stAttr.s32Volume = v[3];
    r.stAttr.stAlsaDev = {v[4], v[5], 0};
    r.stAttr.eType = static_cast<decltype(r.stAttr.eType)>(type);
    return r;
}
inline tagAI_XML_CFG_S Ai(int id, const std::string& name, std::vector<int> v = {}, int type = 0) {
    return Record<tagAI_XML_CFG_S>(id, name, v, type, &AI_ATTR_S::s32FrameLen);
}
inline tagAO_XML_CFG_S Ao(int id, const std::string& name, std::vector<int> v = {}, int type = 0) {
    return Record<tagAO_XML_CFG_S>(id, name, v, type, &AO_ATTR_S::s32FrameSize);
}

// Expects the lists to hold the same records, byte for byte (padding of unions too).
template <typename L, typename T = typename L::value_type>
void ExpectBytes(const std::vector<T>& want, const L& got) {
    ASSERT_EQ(want.size(), got.size());
    auto w = want.begin();
    for (const T& g : got) {
        EXPECT_EQ(0, std::memcmp(&*w, &g, sizeof(T)))
            << "record " << (w - want.begin()) << ": " << ::testing::PrintToString(*w) << " vs "
            << ::testing::PrintToString(g);
        ++w;
    }
}

// Node records: `words` fill the attribute union as ints (an output's words are AO,
// offset, count, source, line-in flag, dump frames).
inline ASTREAM_NODE_ATTR_S Node(ASTREAM_NODE_TYPE_E type, const std::vector<int>& words) {
    ASTREAM_NODE_ATTR_S n = Zeroed<ASTREAM_NODE_ATTR_S>();
    n.eType = type;
    // The swap map spans the whole union.
    std::copy_n(words.begin(), std::min<size_t>(ASTREAM_SWAP_MAP_NUM, words.size()), n.unAttr.stSwap.as32Map);
    return n;
}

// `head`, then `n` results of `make(i)`: rows of many sections.
template <typename T, typename F>
std::vector<T> Many(std::vector<T> head, int n, F make) {
    for (int i = 0; i < n; i++) {
        head.push_back(make(i));
    }
    return head;
}

// The lines of `want` are logged in this order, and no warning or error beyond them
// (nor any line of the function `op` beyond them, when given).
inline void ExpectLines(const audiomw_test::LogCapture& log, const std::vector<Logged>& want,
                        const char* op = "") {
    std::vector<Logged> got;
    for (const Logged& l : log.All()) {
        if (l.level <= UTIL_LOG_WARN || l.func == op ||
            std::find(want.begin(), want.end(), l) != want.end()) {
            got.push_back(l);
        }
    }
    EXPECT_EQ(want, got);
}

// Configuration text: an AI or AO section at 16 kHz, and a stream section.
inline std::string Section(const std::string& tag, int id, const std::string& device, int chn, int frames) {
    return "<" + tag + " Id='" + std::to_string(id) + "' Name='d'><Device " + device +
           "/><SampleRate Cur='16KHZ'/><Channel Cur='" + std::to_string(chn) + "'/><FrameSize Cur='" +
           std::to_string(frames) + "'/></" + tag + ">";
}
inline std::string Stream(int id, const std::string& name, int ai, int workers, const std::string& body) {
    return "<ASTREAM Id='" + std::to_string(id) + "' Name='" + name + "' AiId='" + std::to_string(ai) +
           "' Worker='" + std::to_string(workers) + "'>" + body + "</ASTREAM>";
}

class ConfigTest : public audiomw_test::AudioTest {
  protected:
    void WriteConfig(const std::string& text) const {
        audiomw_test::WriteFileBytes(root.Path("/cfg0/mpp_cfg.xml"),
                                     std::vector<uint8_t>(text.begin(), text.end()));
    }
};

// The application: loads the lists, creates every AI and AO,
// loads the streams; Stop() takes every slot down.
struct App {
    std::list<tagAI_XML_CFG_S> ai;
    std::list<tagAO_XML_CFG_S> ao;
    std::list<tagASTREAM_XML_CFG_S> streams;

    bool Start() {
        EXPECT_EQ(0, AUDIO_AI_LoadFromConfig(ai));
        EXPECT_EQ(0, AUDIO_AO_LoadFromConfig(ao));
        for (tagAI_XML_CFG_S& r : ai) {
            EXPECT_EQ(0, AUDIO_AI_Create(r.s32Id, &r.stAttr)) << "AI " << r.s32Id;
        }
        for (tagAO_XML_CFG_S& r : ao) {
            EXPECT_EQ(0, AUDIO_AO_Create(r.s32Id, &r.stAttr)) << "AO " << r.s32Id;
        }
        EXPECT_EQ(0, AUDIO_ASTREAM_LoadFromConfig(ai, ao, streams));
        return !::testing::Test::HasFailure();
    }
    tagASTREAM_XML_CFG_S* Stream(const std::string& name) {
        auto it =
            std::find_if(streams.begin(), streams.end(), [&](auto& s) { return Name(s.acName) == name; });
        EXPECT_NE(it, streams.end()) << "no stream configuration " << name;
        return it == streams.end() ? nullptr : &*it;
    }
    static void Stop() {
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
};

// Virtual cards from their text lines (as TINYALSA_VCARDS files hold them).
inline void AddCards(const std::string& lines) {
    ASSERT_EQ(0, vcard_load_text(lines.c_str(), "cards")) << vcard_last_error();
}
// What the memory sink of playback PCM (card, 0) received.
inline std::vector<uint8_t> SinkBytes(unsigned int card) {
    std::vector<uint8_t> b(static_cast<size_t>(std::max(0L, vcard_memory_size(card, 0))));
    b.resize(static_cast<size_t>(std::max(0L, vcard_memory_read(card, 0, 0, b.data(), b.size()))));
    return b;
}

}  // namespace config_test

#endif  // AUDIOMW_TESTS_CONFIG_CONFIG_TEST_UTIL_H

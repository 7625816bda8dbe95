// Helpers of the configuration tests: the configuration file under the scratch root,
// expected records built field by field, record comparison with readable failures, and
// the check that a load logged exactly the warnings and errors it should.
#ifndef AUDIOMW_TESTS_CONFIG_CONFIG_TEST_UTIL_H
#define AUDIOMW_TESTS_CONFIG_CONFIG_TEST_UTIL_H

#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "audio_config.h"
#include "test_support.h"

// Readable records in failure messages (found by argument-dependent lookup, so in the
// records' own, global, namespace).
std::ostream& operator<<(std::ostream& os, const AI_ATTR_S& a);
std::ostream& operator<<(std::ostream& os, const AO_ATTR_S& a);
std::ostream& operator<<(std::ostream& os, const tagAI_XML_CFG_S& r);
std::ostream& operator<<(std::ostream& os, const tagAO_XML_CFG_S& r);
std::ostream& operator<<(std::ostream& os, const ASTREAM_NODE_ATTR_S& n);

namespace config_test {

using audiomw_test::Logged;

inline std::string Name(const char (&acName)[AUDIO_CFG_NAME_LEN]) {
    return std::string(acName, strnlen(acName, AUDIO_CFG_NAME_LEN));
}

// Expected records. Every byte not named is zero, as the loaders leave it.
inline tagAI_XML_CFG_S AiCfg(int id, const std::string& name) {
    tagAI_XML_CFG_S r;
    std::memset(&r, 0, sizeof(r));
    r.s32Id = id;
    std::memcpy(r.acName, name.data(), std::min(name.size(), sizeof(r.acName)));
    return r;
}

inline tagAI_XML_CFG_S AlsaAi(int id, const std::string& name, int card, int dev, int rate, int ch,
                              int frames, int vol = 0) {
    tagAI_XML_CFG_S r = AiCfg(id, name);
    r.stAttr.eType = AI_DEV_TYPE_ALSA;
    r.stAttr.stAlsaDev.s32CardId = card;
    r.stAttr.stAlsaDev.s32DevId = dev;
    r.stAttr.eSampleRate = static_cast<tagAI_SAMPLE_RATE_E>(rate);
    r.stAttr.s32Channel = ch;
    r.stAttr.s32FrameLen = frames;
    r.stAttr.s32Volume = vol;
    return r;
}

inline tagAO_XML_CFG_S AoCfg(int id, const std::string& name, int type, int card, int dev, int rate, int ch,
                             int frames, int vol = 0) {
    tagAO_XML_CFG_S r;
    std::memset(&r, 0, sizeof(r));
    r.s32Id = id;
    std::memcpy(r.acName, name.data(), std::min(name.size(), sizeof(r.acName)));
    r.stAttr.eType = type;
    r.stAttr.stAlsaDev.s32CardId = card;
    r.stAttr.stAlsaDev.s32DevId = dev;
    r.stAttr.eSampleRate = static_cast<tagAI_SAMPLE_RATE_E>(rate);
    r.stAttr.s32Channel = ch;
    r.stAttr.s32FrameSize = frames;
    r.stAttr.s32Volume = vol;
    return r;
}

// Byte-wise equality: the loaders promise every byte, padding of the union included.
template <typename T>
bool SameBytes(const T& a, const T& b) {
    return std::memcmp(&a, &b, sizeof(T)) == 0;
}

// Expects the lists to hold the same records, byte for byte.
void ExpectRecords(const std::vector<tagAI_XML_CFG_S>& want, const std::list<tagAI_XML_CFG_S>& got);
void ExpectRecords(const std::vector<tagAO_XML_CFG_S>& want, const std::list<tagAO_XML_CFG_S>& got);
void ExpectNodes(const std::vector<ASTREAM_NODE_ATTR_S>& want, const std::list<ASTREAM_NODE_ATTR_S>& got);

// Expects every line of `want` in order (other lines may lie between them).
void ExpectInOrder(const audiomw_test::LogCapture& log, const std::vector<Logged>& want);
// Expects every line of `want` in order, and no other warning or error: a load that
// warns about more than it should fails too.
void ExpectWarnings(const audiomw_test::LogCapture& log, const std::vector<Logged>& want);

// Node records as the stream loader builds them.
ASTREAM_NODE_ATTR_S OutputNode(int ao, int off, int cnt, int source = -1, int dumpFrames = -1);
ASTREAM_NODE_ATTR_S SwapNode(const std::vector<int>& map);
ASTREAM_NODE_ATTR_S SplitNode(int off, int a, int b);
ASTREAM_NODE_ATTR_S MergeNode(int off, int a, int b);
ASTREAM_NODE_ATTR_S MixinNode(int target, int off, int cnt);
ASTREAM_NODE_ATTR_S DumpNode(const std::string& path, int off, int cnt);
ASTREAM_NODE_ATTR_S AlgNode(int micOff, int micCnt, int lineIn, int ref, int exRef = -1, int allRef = -1);

// A fixture with the configuration file under the scratch root.
class ConfigTest : public audiomw_test::AudioTest {
  protected:
    std::string ConfigPath() const { return root.Path("/cfg0/mpp_cfg.xml"); }
    void WriteConfig(const std::string& text) const {
        audiomw_test::WriteFileBytes(ConfigPath(), std::vector<uint8_t>(text.begin(), text.end()));
    }
};

}  // namespace config_test

#endif  // AUDIOMW_TESTS_CONFIG_CONFIG_TEST_UTIL_H

// The exported conversions: number lists, sample-rate names, automatic ids and the
// device attribute readers.
#include <tinyxml2.h>

#include <climits>

#include "config_test_util.h"

namespace {

TEST(ConfigConvert, NumberListStoresItemsAsStrtolReadsThem) {
    const struct {
        const char* text;
        int max;
        std::vector<int> stored;  // what lands in out[0..n); out[n..] keeps its guard value
    } rows[] = {
        // clang-format off
        {"0:2", 4, {0, 2}}, {"", 4, {0}}, {"1:", 4, {1, 0}}, {"1::2", 4, {1, 0, 2}}, {" 3: -4:+5", 4, {3, -4, 5}},
        {"7abc:x9:-0x10", 4, {7, 0, 0}}, {"1:2:3:4:5:6", 4, {1, 2, 3, 4}}, {":::", 3, {0, 0, 0}},
        {"99999999999:-99999999999", 4, {INT_MAX, INT_MIN}}, {"5", 0, {}}, {nullptr, 4, {}}, {"\n8\t:9", 4, {8, 9}},
        // clang-format on
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text ? row.text : "null");
        std::vector<int> out(24, 0x5A5A5A5A), want = row.stored;
        want.resize(out.size(), 0x5A5A5A5A);
        ASSERT_EQ(static_cast<int>(row.stored.size()), parseNumberList(row.text, out.data(), row.max));
        EXPECT_EQ(want, out);
    }
    EXPECT_EQ(0, parseNumberList("1:2", nullptr, 4));
}

TEST(ConfigConvert, SampleRateNamesBothWaysAndAutomaticIds) {
    const std::pair<const char*, int> names[] = {{"8KHZ", 8000},   {"16khz", 16000},  {"32KhZ", 32000},
                                                 {"48KHZ", 48000}, {"44KHZ", 48000},  {"", 48000},
                                                 {"16", 48000},    {"16KHZ ", 48000}, {nullptr, 48000}};
    for (const auto& n : names) {
        EXPECT_EQ(n.second, audioSampleRateStr2Val(n.first)) << (n.first ? n.first : "null");
    }
    const std::pair<int, const char*> values[] = {{16000, "16KHZ"}, {32000, "32KHZ"}, {8000, "8KHZ"},
                                                  {48000, "48KHZ"}, {44100, "48KHZ"}, {0, "48KHZ"}};
    for (const auto& v : values) {
        EXPECT_STREQ(v.second, audioSampleRateVal2Str(static_cast<tagAI_SAMPLE_RATE_E>(v.first))) << v.first;
    }
    // The lowest free bit of the mask, which it then claims; 31 once all are taken.
    const unsigned int ids[][3] = {
        {0u, 0, 1u}, {0x5u, 1, 0x7u}, {0x7FFFFFFFu, 31, 0xFFFFFFFFu}, {0xFFFFFFFFu, 31, 0xFFFFFFFFu}};
    for (const auto& r : ids) {
        int mask = static_cast<int>(r[0]);
        EXPECT_EQ(static_cast<int>(r[1]), getUseableId(mask)) << std::hex << r[0];
        EXPECT_EQ(r[2], static_cast<unsigned int>(mask)) << std::hex << r[0];
    }
}

// Attributes change the record only when present, spelled exactly, and integers.
TEST(ConfigConvert, DeviceAttributesOnlyWhenPresentAndIntegers) {
    tinyxml2::XMLDocument doc;
    const std::pair<const char*, AUDIO_ALSA_DEV_S> alsa[] = {
        {"<D CardId='2' DevId='3'/>", {2, 3, 77}},
        {"<D DevId='0x10'/>", {-4, 16, 77}},
        {"<D cardid='1' CardId='abc' DevId=''/>", {-4, -5, 77}}};
    for (const auto& r : alsa) {
        ASSERT_EQ(tinyxml2::XML_SUCCESS, doc.Parse(r.first));
        AUDIO_ALSA_DEV_S dev{-4, -5, 77};
        EXPECT_EQ(0, parseAlsaDevAttr(doc.FirstChildElement(), dev));
        config_test::ExpectBytes({r.second}, std::vector<AUDIO_ALSA_DEV_S>{dev});
    }
    AUDIO_ALSA_DEV_S dev{1, 2, 3};
    EXPECT_EQ(0, parseAlsaDevAttr(nullptr, dev));
    EXPECT_EQ(1, dev.s32CardId);
    const std::pair<const char*, AUDIO_COMBO_DEV_S> combo[] = {
        {"<D AiIdList='4:3:2:1:0'/>", {{4, 3, 2, 1}, 4}}, {"<D aiidlist='1'/>", {{9, 9, 9, 9}, 7}}};
    for (const auto& r : combo) {
        ASSERT_EQ(tinyxml2::XML_SUCCESS, doc.Parse(r.first));
        AUDIO_COMBO_DEV_S dev{{9, 9, 9, 9}, 7};
        EXPECT_EQ(0, parseComboDevAttr(doc.FirstChildElement(), dev));
        config_test::ExpectBytes({r.second}, std::vector<AUDIO_COMBO_DEV_S>{dev});
    }
}

}  // namespace

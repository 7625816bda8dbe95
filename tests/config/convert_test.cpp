// The exported conversions: number lists, sample-rate names, automatic ids and the
// device attribute readers.
#include <tinyxml2.h>

#include <climits>

#include "config_test_util.h"

namespace {

struct ListRow {
    const char* text;
    int max;
    std::vector<int> stored;  // what lands in out[0..n); out[n..] keeps its guard value
};

class NumberListTable : public ::testing::TestWithParam<ListRow> {};

TEST_P(NumberListTable, StoresItemsAsStrtolReadsThem) {
    const ListRow& row = GetParam();
    std::vector<int> out(24, 0x5A5A5A5A);
    int n = parseNumberList(row.text, out.data(), row.max);
    ASSERT_EQ(static_cast<int>(row.stored.size()), n) << row.text;
    for (size_t i = 0; i < out.size(); i++) {
        int want = i < row.stored.size() ? row.stored[i] : 0x5A5A5A5A;
        EXPECT_EQ(want, out[i]) << "item " << i << " of \"" << (row.text ? row.text : "null") << "\"";
    }
}

INSTANTIATE_TEST_SUITE_P(
    Config, NumberListTable,
    ::testing::Values(ListRow{"0:2", 4, {0, 2}}, ListRow{"", 4, {0}}, ListRow{"1:", 4, {1, 0}},
                      ListRow{"1::2", 4, {1, 0, 2}}, ListRow{"10:2", 4, {10, 2}},
                      ListRow{" 3: -4:+5", 4, {3, -4, 5}}, ListRow{"7abc:x9:-0x10", 4, {7, 0, 0}},
                      ListRow{"1:2:3:4:5:6", 4, {1, 2, 3, 4}}, ListRow{":::", 3, {0, 0, 0}},
                      ListRow{"99999999999:-99999999999", 4, {INT_MAX, INT_MIN}},
                      ListRow{"2147483647:-2147483648", 4, {INT_MAX, INT_MIN}}, ListRow{"5", 0, {}},
                      ListRow{"5", -1, {}}, ListRow{nullptr, 4, {}}, ListRow{"\n8\t:9", 4, {8, 9}}),
    [](const ::testing::TestParamInfo<ListRow>& i) { return "row" + std::to_string(i.index); });

TEST(ConfigConvert, NumberListWithoutOutputStoresNothing) {
    EXPECT_EQ(0, parseNumberList("1:2", nullptr, 4));
}

TEST(ConfigConvert, SampleRateNamesBothWays) {
    const std::pair<const char*, int> names[] = {{"8KHZ", 8000},    {"16khz", 16000}, {"32KhZ", 32000},
                                                 {"48KHZ", 48000},  {"44KHZ", 48000}, {"", 48000},
                                                 {"16KHZ ", 48000}, {"16", 48000},    {nullptr, 48000}};
    for (const auto& n : names) {
        EXPECT_EQ(n.second, audioSampleRateStr2Val(n.first)) << (n.first ? n.first : "null");
    }
    const std::pair<int, const char*> values[] = {{16000, "16KHZ"}, {32000, "32KHZ"}, {8000, "8KHZ"},
                                                  {48000, "48KHZ"}, {44100, "48KHZ"}, {0, "48KHZ"}};
    for (const auto& v : values) {
        EXPECT_STREQ(v.second, audioSampleRateVal2Str(static_cast<tagAI_SAMPLE_RATE_E>(v.first))) << v.first;
    }
}

TEST(ConfigConvert, UseableIdTakesTheLowestFreeBitAnd31Last) {
    struct Row {
        unsigned int before;
        int id;
        unsigned int after;
    };
    const Row rows[] = {{0u, 0, 1u},
                        {0x1u, 1, 0x3u},
                        {0x5u, 1, 0x7u},
                        {0x7FFFFFFEu, 0, 0x7FFFFFFFu},
                        {0x7FFFFFFFu, 31, 0xFFFFFFFFu},
                        {0xFFFFFFFFu, 31, 0xFFFFFFFFu},
                        {0x80000000u, 0, 0x80000001u}};
    for (const Row& r : rows) {
        int mask = static_cast<int>(r.before);
        EXPECT_EQ(r.id, getUseableId(mask)) << std::hex << r.before;
        EXPECT_EQ(r.after, static_cast<unsigned int>(mask)) << std::hex << r.before;
    }
}

tinyxml2::XMLElement* Element(tinyxml2::XMLDocument& doc, const char* text) {
    EXPECT_EQ(tinyxml2::XML_SUCCESS, doc.Parse(text)) << text;
    return doc.FirstChildElement();
}

TEST(ConfigConvert, AlsaAttributesOnlyWhenPresentAndIntegers) {
    struct Row {
        const char* xml;
        AUDIO_ALSA_DEV_S want;
    };
    const Row rows[] = {{"<D CardId='2' DevId='3'/>", {2, 3, 77}},
                        {"<D CardId='2'/>", {2, -5, 77}},
                        {"<D DevId='0x10'/>", {-4, 16, 77}},
                        {"<D cardid='1' CardId='abc' DevId=''/>", {-4, -5, 77}}};
    for (const Row& r : rows) {
        tinyxml2::XMLDocument doc;
        AUDIO_ALSA_DEV_S dev{-4, -5, 77};
        EXPECT_EQ(0, parseAlsaDevAttr(Element(doc, r.xml), dev));
        EXPECT_EQ(r.want.s32CardId, dev.s32CardId) << r.xml;
        EXPECT_EQ(r.want.s32DevId, dev.s32DevId) << r.xml;
        EXPECT_EQ(77u, dev.u32HwRate) << r.xml;
    }
    AUDIO_ALSA_DEV_S dev{1, 2, 3};
    EXPECT_EQ(0, parseAlsaDevAttr(nullptr, dev));
    EXPECT_EQ(1, dev.s32CardId);
}

TEST(ConfigConvert, ComboListOnlyWhenPresent) {
    struct Row {
        const char* xml;
        AUDIO_COMBO_DEV_S want;
    };
    const Row rows[] = {{"<D AiIdList='0:2'/>", {{0, 2, 9, 9}, 2}},
                        {"<D AiIdList=''/>", {{0, 9, 9, 9}, 1}},
                        {"<D AiIdList='4:3:2:1:0'/>", {{4, 3, 2, 1}, 4}},
                        {"<D aiidlist='1'/>", {{9, 9, 9, 9}, 7}}};
    for (const Row& r : rows) {
        tinyxml2::XMLDocument doc;
        AUDIO_COMBO_DEV_S dev{{9, 9, 9, 9}, 7};
        EXPECT_EQ(0, parseComboDevAttr(Element(doc, r.xml), dev));
        EXPECT_TRUE(config_test::SameBytes(r.want, dev)) << r.xml;
    }
}

}  // namespace

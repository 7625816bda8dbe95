// XML documents from files, and GPIO levels from a scratch sysfs tree and overrides.
#include <tinyxml2.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "host_test.h"
#include "test_support.h"
#include "util.h"

namespace {

using audiomw_test::ScratchRoot;

std::vector<uint8_t> Bytes(const std::string& s) {
    return std::vector<uint8_t>(s.begin(), s.end());
}

// ---- CFG_GetDocByFileName ------------------------------------------------------------

class CfgDocTest : public ::testing::Test {
  protected:
    std::string Write(const std::string& strName, const std::string& strText) {
        std::string strPath = root.Path("/cfg0/" + strName);
        audiomw_test::WriteFileBytes(strPath, Bytes(strText));
        return strPath;
    }
    ScratchRoot root;
};

TEST_F(CfgDocTest, WellFormedFileGivesItsDocument) {
    std::string strPath =
        Write("mpp_cfg.xml", "<?xml version=\"1.0\"?>\n<Audio><AI id=\"2\"/><AO/></Audio>\n");
    std::unique_ptr<tinyxml2::XMLDocument> pDoc(CFG_GetDocByFileName(strPath.c_str()));
    ASSERT_NE(pDoc, nullptr);
    tinyxml2::XMLElement* pRoot = pDoc->FirstChildElement("Audio");
    ASSERT_NE(pRoot, nullptr);
    tinyxml2::XMLElement* pAi = pRoot->FirstChildElement("AI");
    ASSERT_NE(pAi, nullptr);
    EXPECT_STREQ(pAi->Attribute("id"), "2");
    ASSERT_NE(pAi->NextSiblingElement(), nullptr);
    EXPECT_STREQ(pAi->NextSiblingElement()->Value(), "AO");
}

TEST_F(CfgDocTest, UnreadableOrBrokenFilesGiveNull) {
    struct Case {
        const char* pcWhat;
        std::string strPath;
    };
    const Case astCases[] = {
        {"missing", root.Path("/cfg0/none.xml")},
        {"malformed", Write("bad.xml", "<Audio><AI></Audio>")},
        {"unclosed", Write("open.xml", "<Audio><AI/>")},
        {"empty", Write("empty.xml", "")},
        {"directory", root.Path("/cfg0")},
    };
    for (const auto& stCase : astCases) {
        EXPECT_EQ(CFG_GetDocByFileName(stCase.strPath.c_str()), nullptr) << stCase.pcWhat;
    }
    EXPECT_EQ(CFG_GetDocByFileName(nullptr), nullptr);
}

// ---- BSP_GetGpioValue ----------------------------------------------------------------

class GpioTest : public ::testing::Test {
  protected:
    void SetUp() override {
        strSysfs = root.Path("/sys/class/gpio");
        std::filesystem::create_directories(strSysfs);
        BSP_SetGpioSysfsRoot(strSysfs.c_str());
    }
    void TearDown() override {
        BSP_ClearGpioOverrides();
        BSP_SetGpioSysfsRoot(nullptr);
    }
    void SetValueFile(int s32Gpio, const std::string& strText) {
        std::string strDir = strSysfs + "/gpio" + std::to_string(s32Gpio);
        std::filesystem::create_directories(strDir);
        audiomw_test::WriteFileBytes(strDir + "/value", Bytes(strText));
    }
    ScratchRoot root;
    std::string strSysfs;
};

TEST_F(GpioTest, LevelFromTheFirstCharacterOfTheValueFile) {
    struct Case {
        const char* pcContent;
        int s32Want;
    };
    const Case astCases[] = {
        {"1\n", 1}, {"0\n", 0},  {"1", 1},     {"0", 0},    {"10\n", 1},
        {"", -1},   {"x\n", -1}, {" 1\n", -1}, {"2\n", -1}, {"\n", -1},
    };
    for (const auto& stCase : astCases) {
        SetValueFile(14, stCase.pcContent);
        EXPECT_EQ(BSP_GetGpioValue(14), stCase.s32Want) << "content \"" << stCase.pcContent << "\"";
    }
}

TEST_F(GpioTest, MissingOrInvalidGpioReadsMinusOne) {
    SetValueFile(14, "1\n");
    EXPECT_EQ(BSP_GetGpioValue(15), -1);
    EXPECT_EQ(BSP_GetGpioValue(-1), -1);
    std::filesystem::create_directories(strSysfs + "/gpio16");
    EXPECT_EQ(BSP_GetGpioValue(16), -1);
    EXPECT_EQ(BSP_GetGpioValue(14), 1);
}

TEST_F(GpioTest, OverridesTakePrecedenceUntilCleared) {
    SetValueFile(14, "0\n");
    BSP_SetGpioOverride(14, 1);
    BSP_SetGpioOverride(20, 0);
    EXPECT_EQ(BSP_GetGpioValue(14), 1);
    EXPECT_EQ(BSP_GetGpioValue(20), 0);
    BSP_SetGpioOverride(14, -1);
    EXPECT_EQ(BSP_GetGpioValue(14), -1);
    BSP_ClearGpioOverrides();
    EXPECT_EQ(BSP_GetGpioValue(14), 0);
    EXPECT_EQ(BSP_GetGpioValue(20), -1);
}

// A test thread flips the override while other threads read the level.
TEST_F(GpioTest, OverrideMayChangeWhileOtherThreadsRead) {
    SetValueFile(14, "0\n");
    std::atomic<bool> bStop{false};
    std::atomic<int> s32Bad{0};
    std::atomic<int> s32Reads{0};
    std::vector<std::thread> vecReaders;
    for (int t = 0; t < 2; t++) {
        vecReaders.emplace_back([&] {
            while (!bStop.load()) {
                int s32Level = BSP_GetGpioValue(14);
                if (s32Level != 0 && s32Level != 1) {
                    s32Bad.fetch_add(1);
                }
                s32Reads.fetch_add(1);
            }
        });
    }
    for (int i = 0; i < 500; i++) {
        BSP_SetGpioOverride(14, i & 1);
        if (i % 50 == 0) {
            BSP_ClearGpioOverrides();
        }
    }
    audiomw_test::WaitFor([&] { return s32Reads.load() >= 200; });
    bStop.store(true);
    for (auto& th : vecReaders) {
        th.join();
    }
    EXPECT_EQ(s32Bad.load(), 0);
    EXPECT_GE(s32Reads.load(), 200);
}

}  // namespace

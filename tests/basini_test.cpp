#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "platform/portable/profile_text.h"
#include "settings/basINI.h"

namespace {

// Profile files held in memory, answered by the program's own INI reader and writer.
class MemoryProfile : public platform::Profile {
public:
    std::map<std::string, std::string> files;

    std::int32_t WritePrivateProfileStringA(const std::string& section, const std::string& key,
                                            const std::string& value, const std::string& file) override {
        files[file] = portable::WriteString(files[file], section, key, value);
        return 1;
    }
    std::uint32_t GetPrivateProfileSectionA(const std::string& section, std::span<char> buffer,
                                            const std::string& file) override {
        const auto it = files.find(file);
        const auto lines = it == files.end() ? std::nullopt : portable::SectionLines(it->second, section);
        return portable::FillStringList(lines.value_or(std::vector<std::string>{}), buffer);
    }
    std::uint32_t GetPrivateProfileSectionNamesA(std::span<char> buffer, const std::string& file) override {
        const auto it = files.find(file);
        return portable::FillStringList(
            it == files.end() ? std::vector<std::string>{} : portable::SectionNames(it->second), buffer);
    }
};

const std::string kFile = "C:\\Program\\Kestrine.ini";

class BasIni : public ::testing::Test {
protected:
    MemoryProfile profile;
    settings::basINI ini{profile};

    std::vector<std::string> Keys() const {
        std::vector<std::string> out;
        for (int i = 0; i < ini.IniKeyCount(); ++i) out.push_back(ini.IniKeyGet(std::to_string(i)));
        return out;
    }
    std::vector<std::string> Values() const {
        std::vector<std::string> out;
        for (int i = 0; i < ini.IniKeyCount(); ++i) out.push_back(ini.IniValueGet(std::to_string(i)));
        return out;
    }
};

} // namespace

TEST_F(BasIni, SettingsWrittenKeyByKeyReadBackInOrder) {
    const std::vector<std::pair<std::string, std::string>> settings{{"chkAuto", "1"},      {"chkTray", "0"},
                                                                    {"chkAutostart", "0"}, {"cmbSize", "1"},
                                                                    {"DT_LEFT", "1200"},   {"DT_TOP", "900"}};
    for (const auto& [key, value] : settings) {
        EXPECT_TRUE(ini.IniValueSet(kFile, "Kestrine", key, value));
    }
    EXPECT_EQ(profile.files[kFile], "[Kestrine]\r\nchkAuto=1\r\nchkTray=0\r\nchkAutostart=0\r\ncmbSize=1\r\n"
                                    "DT_LEFT=1200\r\nDT_TOP=900\r\n");

    ini.IniListsReset();
    EXPECT_TRUE(ini.IniSectionRead(kFile, "Kestrine"));
    EXPECT_EQ(Keys(), (std::vector<std::string>{"chkAuto", "chkTray", "chkAutostart", "cmbSize", "DT_LEFT", "DT_TOP"}));
    EXPECT_EQ(Values(), (std::vector<std::string>{"1", "0", "0", "1", "1200", "900"}));
    EXPECT_EQ(ini.IniKeyGet("6"), "");
    EXPECT_EQ(ini.IniValueGet("x"), "");

    // A second read without a reset goes on counting; a reset starts again from "0".
    EXPECT_TRUE(ini.IniSectionRead(kFile, "Kestrine"));
    EXPECT_EQ(ini.IniKeyCount(), 12);
    EXPECT_EQ(ini.IniKeyGet("11"), "DT_TOP");
    EXPECT_EQ(ini.IniValueGet("11"), "900");
    ini.IniListsReset();
    EXPECT_EQ(ini.IniKeyCount(), 0);
    EXPECT_EQ(ini.IniKeyGet("0"), "");
}

TEST_F(BasIni, ValuesAreTrimmedOfSpacesAndCutAtTheirSecondEquals) {
    EXPECT_TRUE(ini.IniValueSet(kFile, "S", "empty", ""));
    EXPECT_NE(profile.files[kFile].find("empty= \r\n"), std::string::npos);
    profile.files[kFile] += "eq = left = right\r\ntab= a\t =b\r\n";

    ini.IniListsReset();
    EXPECT_TRUE(ini.IniSectionRead(kFile, "S"));
    EXPECT_EQ(Keys(), (std::vector<std::string>{"empty", "eq", "tab"}));
    EXPECT_EQ(Values(), (std::vector<std::string>{"", "left", "a\t"}));
}

TEST_F(BasIni, LineWithoutEqualsAddsItsKeyAndStopsTheRead) {
    profile.files[kFile] = "[S]\r\na=1\r\n  bare  \r\nc=3\r\n";
    ini.IniListsReset();
    EXPECT_FALSE(ini.IniSectionRead(kFile, "S"));
    EXPECT_EQ(Keys(), (std::vector<std::string>{"a", "bare"}));
    EXPECT_EQ(ini.IniValueGet("0"), "1");
    EXPECT_EQ(ini.IniValueGet("1"), "");
    EXPECT_EQ(ini.IniKeyGet("2"), "");
}

TEST_F(BasIni, ReadingWithoutListsFailsAndMissingFilesAddNothing) {
    profile.files[kFile] = "[S]\r\na=1\r\n";
    EXPECT_FALSE(ini.IniSectionRead(kFile, "S"));
    EXPECT_EQ(ini.IniKeyCount(), 0);
    EXPECT_EQ(ini.IniKeyGet("0"), "");

    ini.IniListsReset();
    EXPECT_TRUE(ini.IniSectionRead("C:\\nowhere.ini", "S"));
    EXPECT_TRUE(ini.IniSectionRead(kFile, "Missing"));
    EXPECT_EQ(ini.IniKeyCount(), 0);
}

TEST_F(BasIni, SectionLongerThanTheBufferIsCutAtTheLastWholeLine) {
    // Every line is 27 characters plus its NUL; 32,765 usable characters hold 1,170 whole lines.
    std::string text = "[Big]\r\n";
    char line[40];
    for (int i = 0; i < 2000; ++i) {
        std::snprintf(line, sizeof line, "k%05d=%020d\r\n", i, i);
        text += line;
    }
    profile.files[kFile] = text;

    ini.IniListsReset();
    EXPECT_TRUE(ini.IniSectionRead(kFile, "Big"));
    EXPECT_EQ(ini.IniKeyCount(), 1170);
    EXPECT_EQ(ini.IniKeyGet("1169"), "k01169");
    EXPECT_EQ(ini.IniValueGet("1169"), "00000000000000001169");
    EXPECT_EQ(ini.IniValueGet("1170"), "");
}

TEST_F(BasIni, SectionNamesInFileOrderThenOneEmptyString) {
    profile.files[kFile] = "[Kestrine]\r\na=1\r\n[USB]\r\nb=2\r\n";
    EXPECT_EQ(ini.IniSectionNames(kFile), (std::vector<std::string>{"Kestrine", "USB", ""}));
    EXPECT_EQ(ini.IniSectionNames("C:\\nowhere.ini"), std::vector<std::string>{""});

    // 100 names of 12 characters with their NULs need a buffer of 1,280: the call grows it until they fit.
    std::string many;
    std::vector<std::string> expected;
    for (int i = 0; i < 100; ++i) {
        expected.push_back("Section_" + std::to_string(100 + i));
        many += "[" + expected.back() + "]\r\n";
    }
    expected.emplace_back();
    profile.files[kFile] = many;
    EXPECT_EQ(ini.IniSectionNames(kFile), expected);
}

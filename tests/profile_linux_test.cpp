#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

#include "platform/linux/profile_file.h"

namespace fs = std::filesystem;

namespace {

class ProfileFilesTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "profile-XXXXXX").string();
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
        dir = pattern;
    }
    void TearDown() override { fs::remove_all(dir); }

    // The folder in the form the program passes paths: "C:\tmp\profile-xxxx\name".
    std::string WindowsPath(const std::string& name) const {
        std::string path = "C:" + (dir / name).string();
        for (char& c : path) {
            if (c == '/') c = '\\';
        }
        return path;
    }
    static std::string Contents(const fs::path& path) {
        std::ifstream in(path, std::ios::binary);
        std::ostringstream out;
        out << in.rdbuf();
        return out.str();
    }
    std::vector<std::string> Entries() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(dir)) names.push_back(entry.path().filename().string());
        return names;
    }

    fs::path dir;
    linuxbk::ProfileFiles profile;
};

} // namespace

TEST_F(ProfileFilesTest, CreatesAMissingFileAndReadsItBack) {
    const std::string file = WindowsPath("Kestrine.ini");
    char buffer[64];
    std::fill(std::begin(buffer), std::end(buffer), '#');
    EXPECT_EQ(profile.GetPrivateProfileSectionA("Kestrine", buffer, file), 0u);
    EXPECT_EQ(buffer[0], '\0');

    EXPECT_NE(profile.WritePrivateProfileStringA("Kestrine", "cmbSize", "1", file), 0);
    EXPECT_NE(profile.WritePrivateProfileStringA("Kestrine", "DT_LEFT", "1200", file), 0);
    EXPECT_NE(profile.WritePrivateProfileStringA("Kestrine", "cmbSize", "0", file), 0);
    EXPECT_EQ(Contents(dir / "Kestrine.ini"), "[Kestrine]\r\ncmbSize=0\r\nDT_LEFT=1200\r\n");
    EXPECT_EQ(Entries(), std::vector<std::string>{"Kestrine.ini"}); // no temporary file left behind

    EXPECT_EQ(profile.GetPrivateProfileSectionA("kestrine", buffer, file), 23u);
    EXPECT_EQ(std::string(buffer, 24), std::string("cmbSize=0\0DT_LEFT=1200\0\0", 24));
    EXPECT_EQ(profile.GetPrivateProfileSectionNamesA(buffer, file), 9u);
    EXPECT_EQ(std::string(buffer, 10), std::string("Kestrine\0\0", 10));

    // A folder that does not exist, or no section name, cannot be written.
    EXPECT_EQ(profile.WritePrivateProfileStringA("S", "k", "v", WindowsPath("missing\\x.ini")), 0);
    EXPECT_EQ(profile.WritePrivateProfileStringA("", "k", "v", file), 0);
}

TEST_F(ProfileFilesTest, FailedWriteLeavesTheOldFileWhole) {
    const fs::path path = dir / "Kestrine.ini";
    const std::string old = "[Kestrine]\r\ncmbSize=1\r\n";
    std::ofstream(path, std::ios::binary) << old;
    fs::permissions(path, fs::perms::owner_read | fs::perms::owner_write);

    // A successful replacement keeps the file's permissions.
    ASSERT_NE(profile.WritePrivateProfileStringA("Kestrine", "DT_TOP", "900", WindowsPath("Kestrine.ini")), 0);
    EXPECT_EQ(fs::status(path).permissions() & fs::perms::all, fs::perms::owner_read | fs::perms::owner_write);
    const std::string current = Contents(path);

    // Make writing the new text fail part way through, even for root: a file size limit
    // smaller than the new text (with its signal ignored, write() then fails with EFBIG).
    rlimit saved{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &saved), 0);
    const auto previousHandler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit small = saved;
    small.rlim_cur = 40;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    const auto result =
        profile.WritePrivateProfileStringA("Kestrine", "Long", std::string(100, 'x'), WindowsPath("Kestrine.ini"));
    ::setrlimit(RLIMIT_FSIZE, &saved);
    std::signal(SIGXFSZ, previousHandler);

    EXPECT_EQ(result, 0);
    EXPECT_EQ(Contents(path), current);
    EXPECT_EQ(Entries(), std::vector<std::string>{"Kestrine.ini"});
}

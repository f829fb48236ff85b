// The Win32 backend's answers for drives, volumes, files, the scripting
// object's drives and the profile functions, on the machine the tests run on
// (under Wine: drives C: and Z:, both fixed, file system "NTFS").
#include "platform/win32/raii.h"
// The backend's header before any other boundary header: it clears a macro of <windows.h>.
#include "platform/win32/backend.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "drives/drive_rows.h"

namespace {

std::vector<std::string> Split(const char* list) {
    std::vector<std::string> out;
    for (const char* p = list; *p != '\0'; p += std::strlen(p) + 1) out.emplace_back(p);
    return out;
}

std::uint64_t Le(const std::array<std::uint8_t, 8>& b) {
    std::uint64_t v = 0;
    for (int i = 7; i >= 0; --i) v = (v << 8) | b[static_cast<std::size_t>(i)];
    return v;
}

// A fresh folder under the system's temporary folder, removed afterwards.
class TempFolder {
public:
    TempFolder() {
        path_ = std::filesystem::temp_directory_path() /
                ("kestrine-test-" + std::to_string(reinterpret_cast<std::uintptr_t>(this)));
        std::filesystem::create_directories(path_);
    }
    ~TempFolder() {
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    std::string str() const { return path_.string(); }
    std::string file(const std::string& name, const std::string& content = "x") const {
        const auto p = path_ / name;
        std::ofstream(p) << content;
        return p.string();
    }

private:
    std::filesystem::path path_;
};

TEST(Win32Volumes, DriveStringsListEveryRootAndReportTheSizeNeeded) {
    win32::Volumes volumes;
    std::array<char, 64> buffer{};
    const std::uint32_t written = volumes.GetLogicalDriveStringsA(buffer);
    ASSERT_GT(written, 0u);
    ASSERT_LT(written, buffer.size());
    const auto roots = Split(buffer.data());
    ASSERT_FALSE(roots.empty());
    EXPECT_NE(std::find(roots.begin(), roots.end(), "C:\\"), roots.end());
    std::size_t total = 0;
    for (const auto& r : roots) {
        EXPECT_EQ(r.size(), 3u) << r;
        total += r.size() + 1;
    }
    EXPECT_EQ(written, total); // the characters without the final NUL

    // Too small: the size needed, buffer untouched.
    std::array<char, 2> small{'#', '#'};
    EXPECT_EQ(volumes.GetLogicalDriveStringsA(small), total + 1);
    EXPECT_EQ(small[0], '#');
}

TEST(Win32Volumes, DriveTypeVolumeInformationAndSizes) {
    win32::Volumes volumes;
    EXPECT_EQ(volumes.GetDriveTypeA("C:\\"), platform::kDriveFixed);
    // A letter no drive has.
    std::array<char, 128> buffer{};
    volumes.GetLogicalDriveStringsA(buffer);
    const auto roots = Split(buffer.data());
    std::string missing;
    for (char l = 'Y'; l > 'D' && missing.empty(); --l)
        if (std::find(roots.begin(), roots.end(), std::string(1, l) + ":\\") == roots.end())
            missing = std::string(1, l) + ":\\";
    ASSERT_FALSE(missing.empty());
    EXPECT_EQ(volumes.GetDriveTypeA(missing), platform::kDriveNoRootDir);

    std::array<char, 261> label{};
    std::array<char, 261> fileSystem{};
    std::uint32_t serial = 0, maxLength = 0, flags = 0;
    ASSERT_TRUE(volumes.GetVolumeInformationA("C:\\", label, serial, maxLength, flags, fileSystem));
    EXPECT_GT(std::strlen(fileSystem.data()), 0u);
    EXPECT_GE(maxLength, 12u);
    EXPECT_FALSE(volumes.GetVolumeInformationA(missing, label, serial, maxLength, flags, fileSystem));

    std::array<std::uint8_t, 8> available{}, total{}, free{};
    ASSERT_TRUE(volumes.GetDiskFreeSpaceExA("C:\\", available, total, free));
    EXPECT_GT(Le(total), 0u);
    EXPECT_LE(Le(free), Le(total));
    EXPECT_LE(Le(available), Le(free));
    std::array<std::uint8_t, 8> untouched{1, 2, 3, 4, 5, 6, 7, 8};
    const auto before = untouched;
    EXPECT_FALSE(volumes.GetDiskFreeSpaceExA(missing, untouched, total, free));
    EXPECT_EQ(untouched, before);
}

TEST(Win32Volumes, SearchesAttributesDirAndFileChanges) {
    win32::Volumes volumes;
    TempFolder folder;
    const std::string a = folder.file("alpha.txt");
    folder.file("beta.ini");
    std::filesystem::create_directory(folder.str() + "\\sub");

    EXPECT_EQ(volumes.GetFileAttributesA(folder.str() + "\\nothing.txt"), platform::kInvalidFileAttributes);
    EXPECT_NE(volumes.GetFileAttributesA(folder.str()) & platform::kAttrDirectory, 0u);

    platform::FindData data;
    const platform::Handle search = volumes.FindFirstFileA(folder.str() + "\\*.*", data);
    ASSERT_NE(search, platform::kInvalidHandleValue);
    std::vector<std::string> names{data.cFileName.data()};
    while (volumes.FindNextFileA(search, data)) names.emplace_back(data.cFileName.data());
    EXPECT_TRUE(volumes.FindClose(search));
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{".", "..", "alpha.txt", "beta.ini", "sub"}));
    EXPECT_EQ(volumes.FindFirstFileA(folder.str() + "\\*.none", data), platform::kInvalidHandleValue);

    // Dir: files only unless folders are admitted; a pattern; nothing found.
    EXPECT_EQ(volumes.Dir(folder.str() + "\\*.ini", platform::kAttrNormal), "beta.ini");
    EXPECT_EQ(volumes.Dir(folder.str() + "\\s*", platform::kAttrNormal), "");
    EXPECT_EQ(volumes.Dir(folder.str() + "\\s*", platform::kAttrDirectory), "sub");
    EXPECT_EQ(volumes.Dir(folder.str() + "\\*.none", platform::kAttrNormal), "");

    // Replacing a file, then deleting it.
    const std::string b = folder.str() + "\\beta.ini";
    EXPECT_FALSE(volumes.MoveFileExA(a, b, 0)); // taken, no replace flag
    EXPECT_TRUE(volumes.MoveFileExA(a, b, platform::kMoveFileReplaceExisting | platform::kMoveFileWriteThrough));
    EXPECT_EQ(volumes.GetFileAttributesA(a), platform::kInvalidFileAttributes);
    EXPECT_TRUE(volumes.DeleteFileA(b));
    EXPECT_FALSE(volumes.DeleteFileA(b));
}

TEST(Win32Scripting, DriveObjectsInLetterOrder) {
    win32::FileSystemObject fso;
    const auto c = fso.GetDrive("C:\\");
    ASSERT_TRUE(c.has_value());
    EXPECT_EQ(c->DriveLetter, "C");
    EXPECT_EQ(c->DriveType, platform::kFsoFixed);
    EXPECT_TRUE(c->IsReady);
    EXPECT_TRUE(c->VolumeName.has_value());
    EXPECT_TRUE(fso.GetDrive("c").has_value()); // letter alone, any case
    EXPECT_FALSE(fso.GetDrive("C\\x").has_value());
    EXPECT_FALSE(fso.GetDrive("").has_value());

    const auto all = fso.Drives();
    ASSERT_FALSE(all.empty());
    for (std::size_t i = 1; i < all.size(); ++i) EXPECT_LT(all[i - 1].DriveLetter, all[i].DriveLetter);
    EXPECT_NE(std::find_if(all.begin(), all.end(), [](const auto& d) { return d.DriveLetter == "C"; }), all.end());
}

// Services of the machine the tests run on, with another scripting object.
struct WithScripting {
    win32::Backend backend;
    win32::FileSystemObject fso;
    platform::Services services{backend.app, backend.volumes, backend.profile, backend.windows,    backend.shell,
                                fso,         backend.storage, backend.devices, backend.management, backend.native};
    explicit WithScripting(win32::FileSystemObject::DriveTypeOf types) : fso(std::move(types)) {}
};

TEST(Win32Scripting, ADriveOfUnknownTypeIsListedAsUnknown) {
    // The system cannot tell what C: is; a letter without a root is no drive.
    WithScripting machine([](const std::string& root) -> std::uint32_t {
        if (root == "C:\\") return 0; // DRIVE_UNKNOWN
        return root == "Z:\\" ? platform::kDriveNoRootDir : platform::kDriveFixed;
    });
    const auto c = machine.fso.GetDrive("C:\\");
    ASSERT_TRUE(c.has_value()) << "a drive of unknown type is a drive";
    EXPECT_EQ(c->DriveType, platform::kFsoUnknown);
    EXPECT_FALSE(machine.fso.GetDrive("Z:\\").has_value());

    const auto all = machine.fso.Drives();
    const auto at = std::find_if(all.begin(), all.end(), [](const auto& d) { return d.DriveLetter == "C"; });
    ASSERT_NE(at, all.end());
    EXPECT_EQ(at->DriveType, platform::kFsoUnknown);
    EXPECT_EQ(std::find_if(all.begin(), all.end(), [](const auto& d) { return d.DriveLetter == "Z"; }), all.end());

    // Its row in the drive list.
    const auto entries = drives::DriveListEntries(machine.services);
    ASSERT_FALSE(entries.empty());
    EXPECT_EQ(entries[0].substr(0, 2), "c:");
    const auto row = drives::ListRowOf(machine.services, entries[0]);
    ASSERT_TRUE(row.has_value());
    EXPECT_EQ(row->root, "C:\\");
    EXPECT_EQ(row->kind, "Unknown");
}

// Searches over drives never stop at the system's "no disk" dialog: the
// dialog is off for the thread while a search runs, and the mode before comes back.
TEST(Win32Volumes, CriticalErrorDialogsAreOffOnlyWhileASearchRuns) {
    DWORD before = 0;
    ASSERT_TRUE(::SetThreadErrorMode(SEM_NOGPFAULTERRORBOX, &before));
    {
        const win32::QuietCriticalErrors quiet;
        EXPECT_EQ(::GetThreadErrorMode(), static_cast<DWORD>(SEM_NOGPFAULTERRORBOX | SEM_FAILCRITICALERRORS));
    }
    EXPECT_EQ(::GetThreadErrorMode(), static_cast<DWORD>(SEM_NOGPFAULTERRORBOX));
    win32::Volumes volumes;
    EXPECT_EQ(volumes.Dir("C:\\no such folder\\Quorra.exe", platform::kAttrNormal), "");
    EXPECT_EQ(::GetThreadErrorMode(), static_cast<DWORD>(SEM_NOGPFAULTERRORBOX));
    ::SetThreadErrorMode(before, nullptr);
}

// The settings file is written and read back by the system's own profile functions.
TEST(Win32Profile, WrittenSectionsReadBackWithTheirBufferRules) {
    win32::Profile profile;
    TempFolder folder;
    const std::string file = folder.str() + "\\Kestrine.ini";
    std::array<char, 256> buffer{};
    EXPECT_EQ(profile.GetPrivateProfileSectionA("Kestrine", buffer, file), 0u); // no file yet

    EXPECT_NE(profile.WritePrivateProfileStringA("Kestrine", "Unit", "GB", file), 0);
    EXPECT_NE(profile.WritePrivateProfileStringA("Kestrine", "Left", "1200", file), 0);
    EXPECT_NE(profile.WritePrivateProfileStringA("Kestrine", "Unit", "MB", file), 0); // replaced in place
    EXPECT_NE(profile.WritePrivateProfileStringA("Other", "Key", "Value", file), 0);

    const std::uint32_t n = profile.GetPrivateProfileSectionA("Kestrine", buffer, file);
    EXPECT_EQ(Split(buffer.data()), (std::vector<std::string>{"Unit=MB", "Left=1200"}));
    EXPECT_EQ(n, std::string("Unit=MB").size() + 1 + std::string("Left=1200").size() + 1);
    EXPECT_EQ(profile.GetPrivateProfileSectionA("Missing", buffer, file), 0u);

    EXPECT_GT(profile.GetPrivateProfileSectionNamesA(buffer, file), 0u);
    EXPECT_EQ(Split(buffer.data()), (std::vector<std::string>{"Kestrine", "Other"}));

    // A buffer too small for the section: its size less 2.
    std::array<char, 8> small{};
    EXPECT_EQ(profile.GetPrivateProfileSectionA("Kestrine", small, file), small.size() - 2);

    std::ifstream written(file);
    std::string text((std::istreambuf_iterator<char>(written)), std::istreambuf_iterator<char>());
    EXPECT_NE(text.find("[Kestrine]"), std::string::npos);
    EXPECT_NE(text.find("Unit=MB"), std::string::npos);
    EXPECT_EQ(text.find("Unit=GB"), std::string::npos);

    EXPECT_EQ(profile.WritePrivateProfileStringA("Kestrine", "Unit", "GB", folder.str() + "\\no\\such\\x.ini"), 0);
}

} // namespace

// The drive inventory over the simulated machine: the scan, the root list,
// sizes and their labels, labels and file systems, and folder queries.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "core/program.h"
#include "drives/cDrive.h"
#include "machine_builders.h"
#include "platform/fake/headless_view.h"
#include "platform/fake/machine.h"

namespace {

using app::Ctl;
using drives::cDrive;

struct Rig : builders::ProgramRig {
    cDrive drive{program};

    void AddDrive(std::string root, std::uint32_t type) {
        machine.AddDrive({.root = std::move(root), .type = type, .label = "", .totalBytes = 1000, .freeBytes = 500});
    }
    // The size unit box as start-up fills it, with the given entry selected (-1: none).
    void Units(int selected) {
        view.AddListItem(Ctl::cmbSize, "GB");
        view.SetItemData(Ctl::cmbSize, 0, 3);
        view.AddListItem(Ctl::cmbSize, "MB");
        view.SetItemData(Ctl::cmbSize, 1, 2);
        view.SetListIndex(Ctl::cmbSize, selected);
    }
    std::vector<std::string> Letters() const {
        std::vector<std::string> out;
        for (int i = 0; i < drive.p_GetDL_Count(); ++i) out.push_back(drive.p_GetDriveLetters(std::to_string(i)));
        return out;
    }
    std::vector<std::string> Types() const {
        std::vector<std::string> out;
        for (int i = 0; i < drive.p_GetDT_Count(); ++i) out.push_back(drive.p_GetDriveTyps(std::to_string(i)));
        return out;
    }
};

std::string Root(int i) { return std::string(1, static_cast<char>('C' + i)) + ":\\"; }

TEST(Inventory, ScanFitsFifteenRootsAndNoMore) {
    Rig rig;
    for (int i = 0; i < 15; ++i) rig.AddDrive(Root(i), platform::kDriveFixed);
    rig.drive.mp_GetDriveTyps();
    ASSERT_EQ(rig.drive.p_GetDL_Count(), 15);
    EXPECT_EQ(rig.drive.p_GetDT_Count(), 15);
    EXPECT_EQ(rig.drive.p_GetDriveLetters("0"), "C:\\");
    EXPECT_EQ(rig.drive.p_GetDriveLetters("14"), "Q:\\");
    EXPECT_EQ(rig.machine.Calls("GetLogicalDriveStringsA").at(0).args.at(0), "64");

    // A sixteenth root does not fit: the earlier result is dropped and nothing is recorded.
    rig.AddDrive(Root(15), platform::kDriveFixed);
    rig.drive.mp_GetDriveTyps();
    EXPECT_EQ(rig.drive.p_GetDL_Count(), 0);
    EXPECT_EQ(rig.drive.p_GetDT_Count(), 0);
    EXPECT_EQ(rig.drive.p_GetDriveLetters("0"), "");
    EXPECT_EQ(rig.machine.Calls("GetDriveTypeA").size(), 15u) << "the second scan asks no drive its type";
}

TEST(Inventory, ScanRecordsRemovableAndHardDisksOnly) {
    Rig rig;
    rig.AddDrive("A:\\", platform::kDriveRemovable);
    rig.AddDrive("B:\\", platform::kDriveFixed);
    rig.AddDrive("C:\\", platform::kDriveUnknown);
    rig.AddDrive("D:\\", platform::kDriveNoRootDir);
    rig.AddDrive("E:\\", platform::kDriveRemovable);
    rig.AddDrive("F:\\", platform::kDriveFixed);
    rig.AddDrive("G:\\", platform::kDriveRemote);
    rig.AddDrive("H:\\", platform::kDriveCdrom);
    rig.AddDrive("I:\\", platform::kDriveRamdisk);
    rig.AddDrive("J:\\", 9);
    rig.AddDrive("k:\\", platform::kDriveRemovable);
    rig.drive.mp_GetDriveTyps();

    EXPECT_EQ(rig.Letters(), (std::vector<std::string>{"E:\\", "F:\\", "K:\\"}));
    EXPECT_EQ(rig.Types(), (std::vector<std::string>{"Removable disk", "Hard disk", "Removable disk"}));
    EXPECT_EQ(rig.machine.Calls("GetDriveTypeA").size(), 11u);
    EXPECT_EQ(rig.drive.p_GetDriveTyps("3"), "");

    // A rescan replaces the lists instead of adding to them.
    rig.machine.RemoveDrive("E:");
    rig.drive.mp_GetDriveTyps();
    EXPECT_EQ(rig.Letters(), (std::vector<std::string>{"F:\\", "K:\\"}));
    EXPECT_EQ(rig.Types(), (std::vector<std::string>{"Hard disk", "Removable disk"}));
}

TEST(Inventory, RootListWrites) {
    Rig rig;
    EXPECT_TRUE(rig.drive.p_SetDriveLetters("0", "E:"));
    EXPECT_TRUE(rig.drive.p_SetDriveLetters("1", "E:\\"));
    EXPECT_TRUE(rig.drive.p_SetDriveLetters("2", ""));
    EXPECT_FALSE(rig.drive.p_SetDriveLetters("0", "F:")) << "a taken key";
    EXPECT_EQ(rig.Letters(), (std::vector<std::string>{"E:\\", "E:\\", "\\"}));
    EXPECT_EQ(rig.drive.p_GetDriveLetters("5"), "");
    EXPECT_EQ(rig.drive.p_GetDriveLetters("x"), "");

    rig.drive.p_Del_DriveLetters();
    EXPECT_EQ(rig.drive.p_GetDL_Count(), 0);
    EXPECT_TRUE(rig.drive.p_SetDriveLetters("0", "G:"));
}

TEST(Inventory, CapacityLabelsFollowTheUnitAndLocale) {
    Rig rig;
    rig.machine.AddDrive({.root = "E:\\",
                          .type = platform::kDriveRemovable,
                          .label = "",
                          .totalBytes = 1'999'999'999,
                          .freeBytes = 1'610'612'736});
    rig.drive.p_SetDriveLetters("0", "E:");
    rig.Units(0);
    rig.drive.GetDriveCapacity();
    EXPECT_EQ(rig.view.Text(Ctl::lblHDSize), "1.86");
    EXPECT_EQ(rig.view.Text(Ctl::lblHDFree), "1.50");
    EXPECT_EQ(rig.view.Text(Ctl::lblHDUsed), "0.36"); // 389,387,263 bytes
    EXPECT_DOUBLE_EQ(rig.drive.TotalSpace(), 1'999'999'999.0);
    EXPECT_DOUBLE_EQ(rig.drive.TotalFreeSpace(), 1'610'612'736.0);

    rig.view.SetListIndex(Ctl::cmbSize, 1);
    rig.drive.GetDriveCapacity();
    EXPECT_EQ(rig.view.Text(Ctl::lblHDSize), "1907.35");
    EXPECT_EQ(rig.view.Text(Ctl::lblHDFree), "1536.00");
    EXPECT_EQ(rig.view.Text(Ctl::lblHDUsed), "371.35");

    rig.machine.SetDecimalSeparator(',');
    rig.drive.GetDriveCapacity();
    EXPECT_EQ(rig.view.Text(Ctl::lblHDSize), "1907,35");
    EXPECT_EQ(rig.view.Text(Ctl::lblHDFree), "1536,00");

    // With no unit selected the figures are bytes.
    rig.machine.SetDecimalSeparator('.');
    rig.view.SetListIndex(Ctl::cmbSize, -1);
    rig.drive.GetDriveCapacity();
    EXPECT_EQ(rig.view.Text(Ctl::lblHDSize), "1999999999.00");
    EXPECT_EQ(rig.view.Text(Ctl::lblHDUsed), "389387263.00");

    // A drive that cannot be read shows zero everywhere.
    rig.view.SetListIndex(Ctl::cmbSize, 0);
    rig.machine.FindDrive("E:")->ready = false;
    rig.drive.GetDriveCapacity();
    EXPECT_EQ(rig.view.Text(Ctl::lblHDSize), "0.00");
    EXPECT_EQ(rig.view.Text(Ctl::lblHDFree), "0.00");
    EXPECT_EQ(rig.view.Text(Ctl::lblHDUsed), "0.00");
    EXPECT_EQ(rig.drive.TotalSpace(), 0.0);
}

TEST(Inventory, CapacityHalvesRoundAwayFromZeroInEveryLocale) {
    Rig rig;
    // 1536.125 MB free and 0.125 MB used: both exact binary fractions, so a
    // halves-to-even formatting would show 1536.12 and 0.12.
    rig.machine.AddDrive({.root = "E:\\",
                          .type = platform::kDriveRemovable,
                          .label = "",
                          .totalBytes = 1'610'874'880,
                          .freeBytes = 1'610'743'808});
    rig.drive.p_SetDriveLetters("0", "E:");
    rig.Units(1);
    for (const char sep : {'.', ','}) {
        rig.machine.SetDecimalSeparator(sep);
        rig.drive.GetDriveCapacity();
        const std::string s(1, sep);
        EXPECT_EQ(rig.view.Text(Ctl::lblHDSize), "1536" + s + "25");
        EXPECT_EQ(rig.view.Text(Ctl::lblHDFree), "1536" + s + "13");
        EXPECT_EQ(rig.view.Text(Ctl::lblHDUsed), "0" + s + "13");
    }
}

TEST(Inventory, BytesToDoubleIsUnsignedLittleEndian) {
    using Bytes = std::array<std::uint8_t, 8>;
    EXPECT_EQ(cDrive::mp_BytesToDouble(Bytes{}), 0.0);
    EXPECT_EQ(cDrive::mp_BytesToDouble(Bytes{1}), 1.0);
    EXPECT_EQ(cDrive::mp_BytesToDouble(Bytes{0, 1}), 256.0);
    EXPECT_EQ(cDrive::mp_BytesToDouble(Bytes{0x00, 0xCA, 0x9A, 0x3B}), 1'000'000'000.0);
    EXPECT_EQ(cDrive::mp_BytesToDouble(Bytes{0, 0, 0, 0, 0, 0, 0, 0x80}), std::ldexp(1.0, 63));
    EXPECT_EQ(cDrive::mp_BytesToDouble(Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}), std::ldexp(1.0, 64));
}

TEST(Inventory, PathExistsOnlyForPlainFoldersAndArchiveFiles) {
    Rig rig;
    rig.AddDrive("E:\\", platform::kDriveRemovable);
    rig.machine.AddFolder("E:\\Docs");
    rig.machine.AddFolder("E:\\Archived", platform::kAttrDirectory | platform::kAttrArchive);
    rig.machine.AddFile("E:\\Docs\\a.txt", "x", platform::kAttrArchive);
    rig.machine.AddFile("E:\\Docs\\ro.txt", "x", platform::kAttrArchive | platform::kAttrReadOnly);
    rig.machine.AddFile("E:\\Docs\\hidden.txt", "x", platform::kAttrArchive | platform::kAttrHidden);

    EXPECT_TRUE(rig.drive.mp_PathExists("E:\\Docs"));
    EXPECT_TRUE(rig.drive.mp_PathExists("E:\\Docs\\a.txt"));
    EXPECT_FALSE(rig.drive.mp_PathExists("E:\\Archived"));
    EXPECT_FALSE(rig.drive.mp_PathExists("E:\\Docs\\ro.txt"));
    EXPECT_FALSE(rig.drive.mp_PathExists("E:\\Docs\\hidden.txt"));
    EXPECT_FALSE(rig.drive.mp_PathExists("E:\\Docs\\missing.txt"));
    EXPECT_FALSE(rig.drive.mp_PathExists("Z:\\Docs"));

    rig.drive.OpenDir("E:\\Docs\\ro.txt");
    rig.drive.OpenDir("E:\\Nowhere");
    EXPECT_TRUE(rig.machine.Calls("ShellExecuteA").empty());
    rig.drive.OpenDir("E:\\Docs");
    const auto calls = rig.machine.Calls("ShellExecuteA");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].args, (std::vector<std::string>{std::to_string(rig.view.hWnd()), "\"open\"", "\"E:\\Docs\"",
                                                       "\"\"", "\"\"", "1"}));
}

TEST(Inventory, GetAllFilesCollectsFolders) {
    Rig rig;
    rig.AddDrive("E:\\", platform::kDriveRemovable);
    rig.machine.AddFolder("E:\\Top\\A\\A1");
    rig.machine.AddFolder("E:\\Top\\B");
    rig.machine.AddFile("E:\\Top\\file.txt");
    rig.machine.AddFile("E:\\Top\\A\\inner.txt");

    std::vector<std::string> folders;
    std::vector<std::int16_t> found;
    std::int32_t index = 0;
    EXPECT_EQ(rig.drive.GetAllFiles("E:\\Top", folders, found, false, index), 2);
    EXPECT_EQ(index, 2);
    ASSERT_GE(folders.size(), 2u);
    EXPECT_EQ(folders[0], "E:\\Top\\A");
    EXPECT_EQ(folders[1], "E:\\Top\\B");
    EXPECT_EQ(found[0], 0);
    EXPECT_EQ(found[1], 1);

    folders.clear();
    found.clear();
    index = 0;
    EXPECT_EQ(rig.drive.GetAllFiles("E:\\Top\\", folders, found, true, index), 3);
    EXPECT_EQ(index, 3);
    ASSERT_GE(folders.size(), 3u);
    EXPECT_EQ((std::vector<std::string>(folders.begin(), folders.begin() + 3)),
              (std::vector<std::string>{"E:\\Top\\A", "E:\\Top\\A\\A1", "E:\\Top\\B"}));
    EXPECT_EQ((std::vector<std::int16_t>(found.begin(), found.begin() + 3)), (std::vector<std::int16_t>{0, 0, 2}));

    std::int32_t none = 7;
    EXPECT_EQ(rig.drive.GetAllFiles("E:\\Missing", folders, found, true, none), 0);
    EXPECT_EQ(none, 7);
}

TEST(Inventory, GetAllFilesGrowsItsArraysAndKeepsTheirContents) {
    Rig rig;
    rig.AddDrive("E:\\", platform::kDriveRemovable);
    for (int i = 0; i < 150; ++i) rig.machine.AddFolder("E:\\Many\\F" + std::to_string(1000 + i));

    std::vector<std::string> folders(5, "kept");
    std::vector<std::int16_t> found(5, -1);
    std::int32_t index = 5;
    EXPECT_EQ(rig.drive.GetAllFiles("E:\\Many", folders, found, false, index), 150);
    EXPECT_EQ(index, 155);
    ASSERT_GE(folders.size(), 155u);
    ASSERT_GE(found.size(), 155u);
    EXPECT_EQ(folders[4], "kept");
    EXPECT_EQ(found[4], -1);
    EXPECT_EQ(folders[5], "E:\\Many\\F1000");
    EXPECT_EQ(folders[154], "E:\\Many\\F1149");
    EXPECT_EQ(found[154], 149);
}

TEST(Inventory, DriveNameAndFileSystem) {
    Rig rig;
    rig.machine.AddDrive({.root = "E:\\", .type = platform::kDriveRemovable, .label = "STICK", .fileSystem = "FAT32"});
    EXPECT_EQ(rig.drive.mp_GetDriveName("E:\\"), "STICK");
    EXPECT_EQ(rig.drive.mp_FileSystem(), "FAT32");

    rig.machine.FindDrive("E:")->ready = false;
    EXPECT_EQ(rig.drive.mp_GetDriveName("E:\\"), "");
    EXPECT_EQ(rig.drive.mp_FileSystem(), "") << "the file system of an unreadable drive is empty";

    rig.machine.FindDrive("E:")->ready = true;
    rig.drive.mp_SetDriveName("E:\\", "NEWNAME");
    EXPECT_EQ(rig.drive.mp_GetDriveName("E:\\"), "NEWNAME");
}

} // namespace

// The drive list, the current drive and the reactions to devices that come
// and go, through the simulated machine and the headless window.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "app/frmMain.h"
#include "drives/cDrive.h"
#include "machine_builders.h"
#include "platform/fake/headless_view.h"
#include "platform/fake/machine.h"
#include "ui/cTray.h"

namespace {

using app::Ctl;

const std::string kFolder = "C:\\Kestrine";

fake::Drive MakeDrive(std::string root, std::uint32_t type, std::string label, std::uint64_t total = 8ull << 30,
                      std::uint64_t free = 2ull << 30) {
    fake::Drive d;
    d.root = std::move(root);
    d.type = type;
    d.label = std::move(label);
    d.totalBytes = total;
    d.freeBytes = free;
    return d;
}

struct Rig : builders::WindowRig {
    Rig() {
        machine.AddDrive(builders::SystemDrive());
        machine.SetProgramFolder(kFolder);
        machine.AddFile(kFolder + "\\Connect.ico", "icon");
    }
    void Start() {
        form = std::make_unique<app::frmMain>(services, view);
        form->Form_Load();
        form->Resize();
        view.Activate();
    }
    std::vector<std::string> Rows() const { return view.Rows(Ctl::ListView1); }
    int Selected() const { return view.SelectedItem(Ctl::ListView1); }
    app::Program& prog() { return form->program(); }
    void Plug(fake::Drive d) {
        machine.AddDrive(std::move(d));
        machine.Deliver(view.hWnd(), platform::kWmDeviceChange, platform::kDbtDeviceArrival, 0);
    }
    std::vector<fake::Call> TopmostRequests() const {
        std::vector<fake::Call> out;
        for (const auto& c : machine.Calls("SetWindowPos"))
            if (c.args[1] == "HWND_TOPMOST") out.push_back(c);
        return out;
    }
    void Pull(const std::string& root) {
        machine.RemoveDrive(root);
        machine.Deliver(view.hWnd(), platform::kWmDeviceChange, platform::kDbtDeviceRemoveComplete, 0);
    }
};

TEST(DriveList, RowsShowRootLabelAndKindButNoOpticalOrFloppyDrives) {
    Rig rig;
    rig.machine.AddDrive(MakeDrive("D:\\", platform::kDriveCdrom, ""));
    rig.machine.FindDrive("D:")->ready = false;
    rig.machine.AddDrive(MakeDrive("e:\\", platform::kDriveRemovable, ""));
    rig.machine.AddDrive(MakeDrive("B:\\", platform::kDriveRemovable, "FLOPPY"));
    auto net = MakeDrive("Z:\\", platform::kDriveRemote, "");
    net.shareName = "\\\\server\\share";
    rig.machine.AddDrive(net);
    rig.machine.AddDrive(MakeDrive("R:\\", platform::kDriveRamdisk, "RAMDISK"));
    rig.Start();

    EXPECT_EQ(rig.Rows(), (std::vector<std::string>{"C:\\ | System | Fixed", "E:\\ | no label | Removable",
                                                    "R:\\ | RAMDISK | RAM disk", "Z:\\ | no label | Network"}));
    EXPECT_EQ(rig.Selected(), 1);
    EXPECT_TRUE(rig.view.ItemSelected(Ctl::ListView1, 1));
    // A start-up fill does not put the window on top.
    EXPECT_TRUE(rig.TopmostRequests().empty());
    EXPECT_EQ(rig.view.Text(Ctl::txtNotify), " Drive: C:\\   Label: System");
}

TEST(DriveList, ArrivalSelectsTheNewDriveAndPutsTheWindowOnTop) {
    Rig rig;
    rig.machine.AddDrive(MakeDrive("E:\\", platform::kDriveRemovable, "OLD"));
    rig.Start();
    rig.view.UserMinimize();

    rig.Plug(MakeDrive("F:\\", platform::kDriveRemovable, "STICK"));

    EXPECT_EQ(rig.Rows().size(), 3u);
    EXPECT_EQ(rig.view.ItemText(Ctl::ListView1, rig.Selected()), "F:\\");
    EXPECT_EQ(rig.prog().ChangedRoot, "F:\\");
    EXPECT_EQ(rig.prog().LastDeviceEvent, 0);
    EXPECT_EQ(rig.machine.Beeps(), 1);
    EXPECT_EQ(rig.view.WindowState(), app::kStateNormal);
    const auto pos = rig.TopmostRequests();
    ASSERT_EQ(pos.size(), 1u);
    EXPECT_EQ(pos[0].args[1], "HWND_TOPMOST");
    EXPECT_EQ(pos[0].args[6], "67"); // 0x43: no size, no move, show
    EXPECT_TRUE(rig.machine.Topmost(rig.view.hWnd()));
    // The broadcast still reaches the window's own procedure, after the reaction.
    ASSERT_FALSE(rig.machine.OwnProcedureMessages().empty());
    EXPECT_EQ(rig.machine.OwnProcedureMessages().back().message, platform::kWmDeviceChange);
}

TEST(DriveList, RemovalSelectsTheFirstRowAndKeepsTheRootThatWent) {
    Rig rig;
    rig.Start();
    rig.Plug(MakeDrive("F:\\", platform::kDriveRemovable, "STICK"));
    ASSERT_EQ(rig.prog().ChangedRoot, "F:\\");

    rig.Pull("F:\\");
    EXPECT_EQ(rig.Rows(), (std::vector<std::string>{"C:\\ | System | Fixed"}));
    EXPECT_EQ(rig.Selected(), 1);
    EXPECT_EQ(rig.prog().ChangedRoot, "F:\\");
    EXPECT_EQ(rig.prog().LastDeviceEvent, 1);
    // The details panel is cleared and the inventory forgets its drive.
    EXPECT_EQ(rig.view.Text(Ctl::lblHDSize), "");
    EXPECT_EQ(rig.prog().gDrive->p_GetDL_Count(), 0);
    EXPECT_EQ(rig.machine.Beeps(), 2);
}

TEST(DriveList, ArrivalOfANonDriveKeepsTheEarlierChangedRoot) {
    Rig rig;
    rig.machine.AddDrive(MakeDrive("E:\\", platform::kDriveRemovable, "STICK"));
    rig.Start();
    rig.Plug(MakeDrive("F:\\", platform::kDriveRemovable, "OTHER"));
    rig.view.SetSelectedItem(Ctl::ListView1, 1);

    // A port, not a drive: the full reaction, but no new entry.
    rig.machine.Deliver(rig.view.hWnd(), platform::kWmDeviceChange, platform::kDbtDeviceArrival, 0);
    EXPECT_EQ(rig.prog().ChangedRoot, "F:\\");
    EXPECT_EQ(rig.view.ItemText(Ctl::ListView1, rig.Selected()), "F:\\");
    EXPECT_EQ(rig.machine.Beeps(), 2);
}

TEST(DriveList, OtherDeviceMessagesAreOnlyForwarded) {
    Rig rig;
    rig.Start();
    const auto before = rig.machine.Journal().size();
    for (std::uintptr_t w : {0x7, 0x8001, 0x8003, 0x18})
        rig.machine.Deliver(rig.view.hWnd(), platform::kWmDeviceChange, w, 0);
    EXPECT_EQ(rig.machine.Beeps(), 0);
    EXPECT_EQ(rig.machine.Journal().size(), before); // nothing asked of the system
    EXPECT_EQ(rig.machine.OwnProcedureMessages().size(), 4u);
}

TEST(DriveList, DestroyPassesBothProceduresAndLeavesTheDeviceProcedureInPlace) {
    Rig rig;
    rig.Start();
    const auto shellProc = rig.machine.CurrentProcedure(rig.view.hWnd());
    ASSERT_NE(shellProc, fake::Machine::kOwnProcedure);
    rig.machine.Deliver(rig.view.hWnd(), platform::kWmDestroy, 0, 0);
    // The device procedure unhooked itself before forwarding, then the shell
    // subclass put back what it had replaced: the device procedure.
    const auto now = rig.machine.CurrentProcedure(rig.view.hWnd());
    EXPECT_NE(now, shellProc);
    EXPECT_NE(now, fake::Machine::kOwnProcedure);
    EXPECT_EQ(rig.machine.GetPropA(rig.view.hWnd(), "OldWndProc"), 0);
    ASSERT_EQ(rig.machine.OwnProcedureMessages().size(), 1u);
    EXPECT_EQ(rig.machine.OwnProcedureMessages()[0].message, platform::kWmDestroy);
}

TEST(DriveList, UnloadPutsTheWindowsOwnProcedureBack) {
    Rig rig;
    rig.Start();
    rig.form->Unload();
    EXPECT_EQ(rig.machine.CurrentProcedure(rig.view.hWnd()), fake::Machine::kOwnProcedure);
}

TEST(DriveList, ArrivalHandsTheTrayTheIconAndCaptionEvenWithoutAnIcon) {
    Rig rig;
    rig.Start();
    rig.Plug(MakeDrive("F:\\", platform::kDriveRemovable, "STICK"));
    const auto tray = rig.machine.Calls("Shell_NotifyIconA");
    ASSERT_FALSE(tray.empty());
    // Never added, so every modify is refused and nothing shows.
    for (const auto& c : tray) EXPECT_EQ(c.result, "0");
    EXPECT_EQ(rig.machine.TrayIcons(), 0u);
    EXPECT_EQ(rig.machine.Calls("LoadPicture").back().args[0], "\"C:\\Kestrine\\Connect.ico\"");

    // Without the icon file the picture cannot be loaded: the tray still gets
    // the caption (with no picture at all), and the rest of the arrival runs.
    Rig bare;
    bare.machine.DeleteFileA(kFolder + "\\Connect.ico");
    bare.Start();
    const std::size_t before = bare.machine.Calls("Shell_NotifyIconA").size();
    bare.Plug(MakeDrive("F:\\", platform::kDriveRemovable, "STICK"));
    const auto modifies = bare.machine.Calls("Shell_NotifyIconA");
    ASSERT_GT(modifies.size(), before);
    EXPECT_EQ(modifies.back().args[0], "1");
    EXPECT_EQ(modifies.back().args[3], "0") << "no picture was ever loaded";
    EXPECT_EQ(modifies.back().args[4], "\"" + bare.view.Text(Ctl::frmMain) + "\"");
    EXPECT_EQ(bare.machine.Calls("LoadPicture").back().result, "0");
    EXPECT_EQ(bare.machine.MessageBoxes().size(), rig.machine.MessageBoxes().size()) << "nothing more is shown";
    EXPECT_EQ(bare.Rows().back(), "F:\\ | STICK | Removable");
    EXPECT_EQ(bare.Selected(), static_cast<int>(bare.Rows().size()));
}

// --- choosing drives, the panel and USB.ini ---

TEST(CurrentDrive, ChoosingARowShowsItsDetails) {
    Rig rig;
    rig.machine.AddDrive(MakeDrive("E:\\", platform::kDriveRemovable, "STICK", 1610612736, 805306368));
    rig.machine.FindDrive("E:")->fileSystem = "FAT32";
    rig.Start();
    rig.view.UserSelectRows(Ctl::ListView1, {2});
    EXPECT_EQ(rig.form->SelectedDrive(), "E:\\");
    EXPECT_EQ(rig.prog().gDrive->p_GetDriveLetters("0"), "E:\\");
    EXPECT_EQ(rig.view.Text(Ctl::txtDT_Cap), "STICK");
    EXPECT_EQ(rig.view.Text(Ctl::txtFAT), "FAT32");
    EXPECT_EQ(rig.view.Text(Ctl::lblHDSize), "1.50");
    EXPECT_EQ(rig.view.Text(Ctl::lblHDUsed), "0.75");
    EXPECT_EQ(rig.view.Text(Ctl::txtNotify), " Drive: E:\\   Label: STICK");

    rig.view.UserChoose(Ctl::cmbSize, 1);
    EXPECT_EQ(rig.view.Text(Ctl::lblHDSize), "1536.00");
    for (Ctl c : {Ctl::lblSize0, Ctl::lblSize1, Ctl::lblSize2}) EXPECT_EQ(rig.view.Text(c), "MB");
}

TEST(CurrentDrive, NoDriveAtAllTellsTheUserOnceAndClearsThePanel) {
    Rig rig;
    rig.machine.RemoveDrive("C:");
    rig.machine.AddDrive(MakeDrive("K:\\", platform::kDriveFixed, "KEEP")); // holds the program
    rig.machine.FindDrive("K:")->type = platform::kDriveRemote;             // ... but is not recorded
    rig.machine.SetProgramFolder("K:\\Kestrine");
    rig.machine.AddFile("K:\\Kestrine\\Connect.ico", "icon");
    rig.Start();
    ASSERT_EQ(rig.machine.MessageBoxes().size(), 1u);
    EXPECT_EQ(rig.machine.MessageBoxes()[0].text, "No USB device found.");
    EXPECT_EQ(rig.machine.MessageBoxes()[0].type, platform::kMbIconInformation);
    EXPECT_EQ(rig.prog().gDrive->p_USBInfosCount(), 0);
    EXPECT_EQ(rig.view.Text(Ctl::txtDT_Cap), "");
}

TEST(CurrentDrive, UsbIniPairsFollowFileOrderAcrossSections) {
    Rig rig;
    rig.machine.AddFile("C:\\USB.ini", "[One]\r\nStandard=\\Docs\r\nOwner = Ann \r\n[Two]\r\nColour=blue\r\n");
    rig.machine.AddFolder("C:\\Docs");
    rig.Start();
    auto& drive = *rig.prog().gDrive;
    ASSERT_EQ(drive.p_USBInfosCount(), 6);
    const std::vector<std::string> want{"Standard", "\\Docs", "Owner", "Ann", "Colour", "blue"};
    for (int i = 0; i < 6; ++i) EXPECT_EQ(drive.p_GetUSBInfos(std::to_string(i)), want[static_cast<std::size_t>(i)]);
    // The first value, without its backslash, is the drive's standard folder.
    EXPECT_EQ(drive.mp_StandardPfad(), "Docs");

    // An empty choice while one drive is current changes nothing.
    std::string none;
    drive.ChooseUSB_Info(none);
    EXPECT_EQ(drive.p_GetDriveLetters("0"), "C:\\");
    EXPECT_EQ(drive.p_USBInfosCount(), 6);
}

TEST(CurrentDrive, BrokenUsbIniLeavesTheListEmpty) {
    Rig rig;
    rig.machine.AddFile("C:\\USB.ini", "[One]\r\nStandard=\\Docs\r\nno equals sign here\r\nLate=1\r\n");
    rig.Start();
    EXPECT_EQ(rig.prog().gDrive->p_USBInfosCount(), 0);
    // Without Connect.ico a single drive's USB.ini is not read either.
    Rig bare;
    bare.machine.AddFile("C:\\USB.ini", "[One]\r\nA=1\r\n");
    bare.machine.DeleteFileA(kFolder + "\\Connect.ico");
    bare.Start();
    EXPECT_EQ(bare.prog().gDrive->p_USBInfosCount(), 0);
}

TEST(CurrentDrive, AMissingStandardFolderStaysUnusableForGood) {
    Rig rig;
    rig.machine.AddFile("C:\\USB.ini", "[One]\r\nStandard=\\Later\r\n");
    rig.Start();
    auto& drive = *rig.prog().gDrive;
    EXPECT_EQ(drive.mp_StandardPfad(), "");
    rig.machine.AddFolder("C:\\Later");
    EXPECT_EQ(drive.mp_StandardPfad(), "");
}

// --- the list's keys, pop-up menu and the window's own controls ---

TEST(WindowHandlers, KeysFollowTheirModifierRules) {
    Rig rig;
    rig.Start();
    rig.machine.SetWorkArea({0, 0, 28800, 15600});
    rig.view.SetLeft(Ctl::frmMain, 0);
    rig.view.SetTop(Ctl::frmMain, 0);

    rig.view.UserKey(Ctl::ListView1, 113, app::kShiftMask | app::kCtrlMask | app::kAltMask);
    rig.view.UserKey(Ctl::ListView1, 113, 0);
    EXPECT_EQ(rig.view.Left(Ctl::frmMain), 0);

    rig.view.UserKey(Ctl::ListView1, 113, app::kShiftMask | app::kCtrlMask);
    EXPECT_EQ(rig.view.Left(Ctl::frmMain), (28800 - 10935) / 2);
    EXPECT_EQ(rig.view.Top(Ctl::frmMain), (15600 - 7515) / 2);

    rig.view.UserKey(Ctl::ListView1, 27, app::kAltMask);
    EXPECT_TRUE(rig.machine.Ended());
}

TEST(WindowHandlers, CentringRoundsTheDifferenceToEvenThenHalvesTowardZero) {
    Rig rig;
    rig.Start();
    // Work area 10936.5 wide: difference 1.5 -> 2 -> 1; 7516.5 high: 1.5 -> 2 -> 1.
    rig.machine.SetWorkArea({100, 50, 10936.5, 7516.5});
    rig.view.UserClick(Ctl::cmdCentreScreen);
    EXPECT_EQ(rig.view.Left(Ctl::frmMain), 101);
    EXPECT_EQ(rig.view.Top(Ctl::frmMain), 51);
    // A work area smaller than the window: -2.5 -> -2 -> -1.
    rig.machine.SetWorkArea({0, 0, 10932.5, 7512.5});
    rig.view.UserClick(Ctl::cmdCentreScreen);
    EXPECT_EQ(rig.view.Left(Ctl::frmMain), -1);
    EXPECT_EQ(rig.view.Top(Ctl::frmMain), -1);
}

TEST(WindowHandlers, RightClickOpensThePopUpWithReleaseAsDefault) {
    Rig rig;
    rig.Start();
    rig.view.UserMouseUp(Ctl::ListView1, app::kLeftButton);
    EXPECT_EQ(rig.view.PopupCount(), 0);
    rig.view.UserMouseUp(Ctl::ListView1, app::kRightButton);
    EXPECT_EQ(rig.view.PopupCount(), 1);
    EXPECT_EQ(rig.view.LastPopup(), Ctl::mnubla);
    EXPECT_EQ(rig.view.LastPopupDefault(), Ctl::mnuPopup0);
}

TEST(WindowHandlers, LabelBoxEnablesSetOnceChangedAndCaretGoesHomeOnLeave) {
    Rig rig;
    rig.Start();
    EXPECT_FALSE(rig.view.Enabled(Ctl::cmdSetLabel));
    rig.view.UserType(Ctl::txtDT_Cap, "NEWNAME");
    EXPECT_TRUE(rig.view.Enabled(Ctl::cmdSetLabel));
    EXPECT_EQ(rig.view.SelStart(Ctl::txtDT_Cap), 7);
    rig.view.UserLeave(Ctl::txtDT_Cap);
    EXPECT_EQ(rig.view.SelStart(Ctl::txtDT_Cap), 0);
}

TEST(WindowHandlers, ResizeIsUndoneButMinimizeIsAllowed) {
    Rig rig;
    rig.Start();
    rig.view.UserResize(12000, 9000);
    EXPECT_EQ(rig.view.Width(Ctl::frmMain), app::kFormWidth);
    EXPECT_EQ(rig.view.Height(Ctl::frmMain), app::kFormHeight);
    rig.view.UserMinimize();
    EXPECT_EQ(rig.view.WindowState(), app::kStateMinimized);
    rig.view.UserRestore();
    EXPECT_EQ(rig.view.WindowState(), app::kStateNormal);
}

TEST(WindowHandlers, ReleasedNoticeShowsCentredForAboutASecond) {
    Rig rig;
    rig.Start();
    std::vector<std::pair<std::string, double>> shown;
    rig.view.OnChange([&](const fake::ViewChange& c) {
        if (c.control == Ctl::frmeReleased && c.property == "visible") shown.emplace_back(c.value, rig.machine.Now());
    });
    rig.form->ShowRelease("USB device at [ E:\\ ]  has been released.");
    ASSERT_EQ(shown.size(), 2u);
    EXPECT_EQ(shown[0].first, "true");
    EXPECT_EQ(shown[1].first, "false");
    EXPECT_NEAR(shown[1].second - shown[0].second, 1.0, 0.1);
    EXPECT_EQ(rig.view.Text(Ctl::lblUSBMessage), "USB device at [ E:\\ ]  has been released.");
    EXPECT_EQ(rig.view.Left(Ctl::frmeReleased), (10695 - 6495) / 2.0);
    EXPECT_EQ(rig.view.Top(Ctl::frmeReleased), (6645 - 1335) / 2.0);
    EXPECT_TRUE(rig.view.Visible(Ctl::Frame1));
}

TEST(DriveList, TrayPicturesAreGivenBackWhenReplacedAndAtTheEnd) {
    Rig rig;
    rig.machine.AddDrive(MakeDrive("E:\\", platform::kDriveRemovable, "STICK"));
    rig.Start();
    const auto loads = [&] { return rig.machine.Calls("LoadPicture").size(); };
    const std::size_t before = loads();
    for (int i = 0; i < 20; ++i) {
        rig.Plug(MakeDrive("F:\\", platform::kDriveRemovable, "OTHER"));
        rig.view.UserSelectRows(Ctl::ListView1, {2});
        rig.Pull("F:\\");
    }
    EXPECT_GE(loads() - before, 60u) << "each event and click loads the picture afresh";
    // Only the tray's own picture is held, and it is the one last loaded.
    EXPECT_EQ(rig.machine.LivePictures(), 1u);
    ASSERT_NE(rig.prog().gTray, nullptr);
    EXPECT_EQ(std::to_string(rig.prog().gTray->TrayIcon_Icon()), rig.machine.Calls("LoadPicture").back().result);

    rig.view.UserClick(Ctl::cmdClose);
    ASSERT_TRUE(rig.machine.Ended());
    EXPECT_EQ(rig.machine.LivePictures(), 0u) << "the tray object takes its picture with it";
}

} // namespace

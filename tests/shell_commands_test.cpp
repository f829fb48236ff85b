// The shell's change reports in the event log, the second subclass of the
// window, and the user's commands that act outside the program.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "app/frmMain.h"
#include "app/shell_notify.h"
#include "drives/cDrive.h"
#include "machine_builders.h"
#include "notify/shell_report.h"
#include "platform/fake/headless_view.h"
#include "platform/fake/machine.h"
#include "platform/pass_through.h"

namespace {

using app::Ctl;

const std::string kFolder = "C:\\Kestrine";

struct Rig : builders::WindowRig {
    Rig() {
        const fake::Drive c = builders::SystemDrive();
        machine.AddDrive(c);
        fake::Drive e = c;
        e.root = "E:\\";
        e.type = platform::kDriveRemovable;
        e.label = "STICK";
        machine.AddDrive(e);
        machine.SetProgramFolder(kFolder);
        machine.AddFolder(kFolder);
    }
    void Start() {
        form = std::make_unique<app::frmMain>(services, view);
        form->Form_Load();
        form->Resize();
        view.Activate();
    }
    std::string Log() const { return view.Text(Ctl::Text1); }
    std::vector<fake::Call> Started() const { return machine.Calls("CreateProcessA"); }
};

// --- the event log ---

TEST(ShellLog, ItemsAreNamedWithTheirPathsAndEveryEntryEndsWithAnEmptyLine) {
    Rig rig;
    rig.Start();
    ASSERT_TRUE(rig.machine.ShellRegistered());
    const auto file = rig.machine.ShellItem("notes.txt", "E:\\notes.txt");
    ASSERT_TRUE(rig.machine.ShellReport(0x2, file, 0));
    EXPECT_EQ(rig.Log(), "SHCNE_CREATE\r\nfirst item displayname: notes.txt\r\nfirst item path: E:\\notes.txt\r\n\r\n");
    EXPECT_EQ(rig.view.SelStart(Ctl::Text1), static_cast<int>(rig.Log().size()));

    // A rename names both items; an item the shell cannot name is invalid.
    const std::string before = rig.Log();
    rig.machine.ShellReport(0x1, rig.machine.ShellItem("old.txt", "E:\\old.txt"),
                            rig.machine.ShellItem("new.txt", "E:\\new.txt"));
    rig.machine.ShellReport(0x4, rig.machine.ShellItem("", "E:\\gone.txt"), 0);
    EXPECT_EQ(rig.Log().substr(before.size()),
              "SHCNE_RENAMEITEM\r\nfirst item displayname: old.txt\r\nfirst item path: E:\\old.txt\r\n"
              "second item displayname: new.txt\r\nsecond item path: E:\\new.txt\r\n\r\n"
              "SHCNE_DELETE\r\nfirst item is invalid\r\n\r\n");
}

TEST(ShellLog, ValueEventsAndUnnamedCodes) {
    Rig rig;
    rig.Start();
    rig.machine.ShellValueReport(0x8000, 12);
    rig.machine.ShellValueReport(0x40000, (1u << 2) | (1u << 4)); // C and E
    rig.machine.ShellValueReport(0x40000, 0);
    rig.machine.ShellValueReport(0x4000000, 2, rig.machine.ShellItem("Start Menu", "C:\\Start"));
    rig.machine.ShellValueReport(0x4000000, 9, 0);
    rig.machine.ShellReport(0x3, 0, 0); // two bits together have no name
    EXPECT_EQ(rig.Log(), "SHCNE_UPDATEIMAGE\r\nIndex of image in system imagelist: 12\r\n\r\n"
                         "SHCNE_FREESPACE\r\nC:\\\r\nE:\\\r\n\r\n"
                         "SHCNE_FREESPACE\r\n\r\n"
                         "SHCNE_EXTENDED_EVENT\r\nSHCNEE_ORDERCHANGED\r\nchanged item displayname: Start Menu\r\n"
                         "changed item path: C:\\Start\r\n\r\n"
                         "SHCNE_EXTENDED_EVENT\r\nunknown extended event\r\nshns.dwItem2: 0\r\n\r\n"
                         "\r\n\r\n");
    EXPECT_EQ(notify::ShellEventName(0x80000000u), "SHCNE_INTERRUPT");
    EXPECT_EQ(notify::ShellEventName(0x0C0581E0u), "SHCNE_GLOBALEVENTS");
    EXPECT_EQ(notify::TrimAtNull(std::string("ab\0cd", 5)), "ab");
}

TEST(ShellLog, SignedImageIndexInstallerProductAndUnreadableExtendedCode) {
    Rig rig;
    rig.Start();
    // The installer's record: a 16-bit size, the product code in UTF-16, a NUL.
    const std::string code = "{6D2F4E1A-0B3C-4D5E-8F90-A1B2C3D4E5F6}";
    std::vector<std::uint8_t> product{static_cast<std::uint8_t>(2 + 2 * (code.size() + 1)), 0};
    for (char c : code) product.insert(product.end(), {static_cast<std::uint8_t>(c), 0});
    product.insert(product.end(), {0, 0, 0, 0});
    const std::uintptr_t record = rig.machine.Place(product);

    rig.machine.ShellValueReport(0x8000, 0xFFFFFFFF);
    rig.machine.ShellValueReport(0x4000000, 4, record);
    rig.machine.ShellValueReport(0x4000000, 5, record);
    rig.machine.ShellReport(0x4000000, 0, 0); // no record to read the code from: code 0
    EXPECT_EQ(rig.Log(), "SHCNE_UPDATEIMAGE\r\nIndex of image in system imagelist: -1\r\n\r\n"
                         "SHCNE_EXTENDED_EVENT\r\nSHCNEE_MSI_CHANGE\r\nproduct code: " +
                             code +
                             "\r\n\r\n"
                             "SHCNE_EXTENDED_EVENT\r\nSHCNEE_MSI_UNINSTALL\r\nproduct code: " +
                             code +
                             "\r\n\r\n"
                             "SHCNE_EXTENDED_EVENT\r\nunknown extended event\r\nshns.dwItem2: 0\r\n\r\n");
}

TEST(ShellLog, AReportRefreshesTheCaptionAndIsForwarded) {
    Rig rig;
    rig.machine.FindDrive("E:")->label = "STICK";
    rig.Start();
    EXPECT_EQ(rig.view.Text(Ctl::frmMain), "Kestrine  [ no USB device found on this computer ]");
    // E: turns out to sit on a USB bus; only the report tells the window.
    rig.machine.FindDrive("E:")->bus = 7;
    EXPECT_EQ(rig.view.Text(Ctl::frmMain), "Kestrine  [ no USB device found on this computer ]");
    const auto ownBefore = rig.machine.OwnProcedureMessages().size();
    rig.machine.ShellReport(0x100, rig.machine.ShellItem("STICK (E:)", "E:\\"), 0);
    EXPECT_EQ(rig.view.Text(Ctl::frmMain), "Kestrine  [ USB device(s) found on this computer ]");
    EXPECT_EQ(rig.view.List(Ctl::lstDrives, 1), "E:\\STICK (USB)");
    EXPECT_EQ(rig.machine.OwnProcedureMessages().size(), ownBefore + 1);
    EXPECT_EQ(rig.machine.OwnProcedureMessages().back().message, platform::kWmShNotify);
    EXPECT_TRUE(rig.view.Enabled(Ctl::tmrFlashMe));
    EXPECT_EQ(rig.form->FlashInterval(), 0) << "a report does not make the window flash";
}

TEST(ShellLog, FlashTimerInvertsSixTimesThenStops) {
    Rig rig;
    rig.Start();
    rig.view.SetEnabled(Ctl::tmrFlashMe, true);
    for (int i = 0; i < 6; ++i) rig.view.TimerTick(Ctl::tmrFlashMe);
    EXPECT_EQ(rig.machine.Calls("FlashWindow").size(), 6u);
    EXPECT_FALSE(rig.view.Enabled(Ctl::tmrFlashMe));
    EXPECT_EQ(rig.form->FlashInterval(), 1);
}

// --- the second subclass ---

TEST(Subclass, ASecondSubclassAndRegistrationChangeNothing) {
    Rig rig;
    rig.Start();
    const auto procedure = rig.machine.CurrentProcedure(rig.view.hWnd());
    const auto registrations = rig.machine.Calls("SHChangeNotifyRegister");
    ASSERT_EQ(registrations.size(), 1u);
    EXPECT_EQ(registrations[0].args[1], "0xFF");
    EXPECT_EQ(registrations[0].args[2], "0xFFFFFFFF");
    EXPECT_EQ(registrations[0].args[3], "1025");
    EXPECT_EQ(registrations[0].args[5], "recursive");

    rig.form->SubClassNotify();
    EXPECT_EQ(rig.machine.CurrentProcedure(rig.view.hWnd()), procedure);
    EXPECT_EQ(rig.machine.Calls("SHChangeNotifyRegister").size(), 1u);
    EXPECT_TRUE(rig.machine.MessageBoxes().empty());
}

TEST(Subclass, OtherMessagesPassThroughWithTheNextProceduresResult) {
    Rig rig;
    rig.Start();
    // Both hooked procedures hand back what the window's own procedure answers.
    for (const std::intptr_t answer : {std::intptr_t{0}, std::intptr_t{77}, std::intptr_t{-5}}) {
        rig.machine.SetOwnProcedureResult(answer);
        EXPECT_EQ(rig.machine.Deliver(rig.view.hWnd(), 0x200, 1, 2), answer);
        ASSERT_FALSE(rig.machine.OwnProcedureMessages().empty());
        EXPECT_EQ(rig.machine.OwnProcedureMessages().back().message, 0x200u);
        EXPECT_EQ(rig.machine.OwnProcedureMessages().back().wParam, 1u);
        EXPECT_EQ(rig.machine.OwnProcedureMessages().back().lParam, 2);
    }
    EXPECT_EQ(rig.machine.Beeps(), 0);
}

// A window system on which the steps of subclassing fail as the test says,
// each leaving its error number behind as the system does.
class FailingWindows : public platform::WindowSystemPassThrough {
public:
    using WindowSystemPassThrough::WindowSystemPassThrough;
    std::uint32_t procedureError = 0; // SetWindowLongA(GWL_WNDPROC) fails with this number
    std::uint32_t propertyError = 0;  // SetPropA fails with this number
    std::vector<std::intptr_t> procedures;

    std::intptr_t SetWindowLongA(platform::WindowHandle window, std::int32_t index, std::intptr_t value) override {
        if (index != platform::kGwlWndProc) return inner_.SetWindowLongA(window, index, value);
        procedures.push_back(value);
        last_ = procedureError;
        if (procedureError != 0) return 0;
        return inner_.SetWindowLongA(window, index, value);
    }
    bool SetPropA(platform::WindowHandle window, const std::string& name, std::intptr_t value) override {
        last_ = propertyError;
        return propertyError == 0 && inner_.SetPropA(window, name, value);
    }
    std::uint32_t LastError() override { return last_; }
    std::string ErrorText(std::uint32_t number) override {
        return number == 1400 ? "Invalid window handle." : number == 8 ? "Not enough memory." : "";
    }

private:
    std::uint32_t last_ = 0;
};

struct FailingRig : builders::ProgramRig {
    FailingWindows windows{machine};
    platform::Services failing{services.app,        services.volumes, services.profile, windows,
                               services.shell,      services.fso,     services.storage, services.devices,
                               services.management, services.native};
    app::Program prog{failing, view};

    std::string Expected(std::uint32_t number, const std::string& text) const {
        char hex[32];
        std::snprintf(hex, sizeof hex, "%llX", static_cast<unsigned long long>(view.hWnd()));
        return std::string("Error subclassing window &H") + hex + "\r\n\r\nErr# " + std::to_string(number) + ": " +
               text;
    }
};

TEST(Subclass, AFailureShowsTheErrorNumberAndTextOfTheStepThatFailed) {
    {
        FailingRig rig; // the procedure cannot be replaced
        rig.windows.procedureError = 1400;
        EXPECT_FALSE(notify::SubclassWindow(rig.prog, rig.view.hWnd(), 0x1234));
        ASSERT_EQ(rig.machine.MessageBoxes().size(), 1u);
        EXPECT_EQ(rig.machine.MessageBoxes()[0].text, rig.Expected(1400, "Invalid window handle."));
        EXPECT_EQ(rig.machine.MessageBoxes()[0].type, platform::kMbOk | platform::kMbIconExclamation);
        EXPECT_EQ(rig.windows.procedures.size(), 1u) << "nothing to put back";
    }
    {
        FailingRig rig; // the replaced procedure cannot be kept: it is put back, and the error is the property's
        rig.windows.propertyError = 8;
        const auto before = rig.machine.CurrentProcedure(rig.view.hWnd());
        EXPECT_FALSE(notify::SubclassWindow(rig.prog, rig.view.hWnd(), 0x1234));
        ASSERT_EQ(rig.machine.MessageBoxes().size(), 1u);
        EXPECT_EQ(rig.machine.MessageBoxes()[0].text, rig.Expected(8, "Not enough memory."));
        EXPECT_EQ(rig.windows.procedures.size(), 2u);
        EXPECT_EQ(rig.machine.CurrentProcedure(rig.view.hWnd()), before);
    }
}

// --- commands ---

TEST(Commands, SiblingToolsAreFoundInOrderAndStartedOnTheSelectedDrive) {
    {
        Rig rig; // beside the program
        rig.machine.AddFile(kFolder + "\\Quorra.exe", "exe");
        rig.machine.AddFile("C:\\Drive_G\\Tillaby\\Quorra\\Quorra.exe", "exe");
        rig.Start();
        rig.view.UserSelectRows(Ctl::ListView1, {2});
        rig.view.UserClick(Ctl::cmdSelectUtility);
        ASSERT_EQ(rig.Started().size(), 1u);
        EXPECT_EQ(rig.Started()[0].args[0], "\"C:\\Kestrine\\Quorra.exe\"");
        EXPECT_EQ(rig.Started()[0].args[1], "\"C:\\Kestrine\\Quorra.exe E:\\\"");
    }
    {
        Rig rig; // on E: with D: an empty optical drive
        fake::Drive d;
        d.root = "D:\\";
        d.type = platform::kDriveCdrom;
        d.ready = false;
        rig.machine.AddDrive(d);
        rig.machine.AddFile("E:\\Drive_G\\Tillaby\\Quorra\\Quorra.exe", "exe");
        rig.Start();
        rig.view.UserClick(Ctl::mnuQuorraFiles);
        ASSERT_EQ(rig.Started().size(), 1u);
        EXPECT_EQ(rig.Started()[0].args[1], "\"E:\\Drive_G\\Tillaby\\Quorra\\Quorra.exe C:\\\"");
    }
    {
        Rig rig; // Brindle at its fixed path, from the pop-up; the folder is restored
        rig.machine.AddFile("C:\\Drive_G\\Tillaby\\Farrowind\\Brindle\\Brindle.exe", "exe");
        rig.machine.AddFolder("E:\\Work");
        rig.machine.SetCurDir("E:\\Work");
        rig.Start();
        rig.view.UserClick(Ctl::mnuPopup6);
        ASSERT_EQ(rig.Started().size(), 1u);
        EXPECT_EQ(rig.Started()[0].args[0], "\"C:\\Drive_G\\Tillaby\\Farrowind\\Brindle\\Brindle.exe\"");
        EXPECT_EQ(rig.machine.CurDir(), "E:\\Work");
    }
}

TEST(Commands, AMissingToolIsReportedOnceAndNothingStarts) {
    Rig rig;
    rig.Start();
    rig.view.UserClick(Ctl::cmdBrindle);
    ASSERT_EQ(rig.machine.MessageBoxes().size(), 1u);
    EXPECT_EQ(rig.machine.MessageBoxes()[0].text, "Cannot find the Brindle.");
    EXPECT_EQ(rig.machine.MessageBoxes()[0].type, platform::kMbIconExclamation);
    EXPECT_TRUE(rig.Started().empty());
    EXPECT_EQ(rig.form->LocateThisProgram(":\\nowhere.exe"), "Z:\\nowhere.exe");
}

TEST(Commands, LabelQuestionLimitAndWrite) {
    Rig rig;
    rig.Start();
    rig.view.UserSelectRows(Ctl::ListView1, {2});

    rig.view.UserType(Ctl::txtDT_Cap, "TWELVECHARSX");
    rig.machine.QueueAnswer(platform::kIdYes);
    rig.view.UserClick(Ctl::cmdSetLabel);
    ASSERT_EQ(rig.machine.MessageBoxes().size(), 2u);
    EXPECT_EQ(rig.machine.MessageBoxes()[0].type, 292u);
    EXPECT_EQ(rig.machine.MessageBoxes()[1].text, "Max. length of label is 11 characters !");
    EXPECT_EQ(rig.view.SelStart(Ctl::txtDT_Cap), 11);
    EXPECT_EQ(rig.view.SelLength(Ctl::txtDT_Cap), 1);
    EXPECT_TRUE(rig.view.Focused(Ctl::txtDT_Cap));
    EXPECT_TRUE(rig.machine.Calls("SetVolumeLabelA").empty());

    rig.view.UserType(Ctl::txtDT_Cap, "ELEVENCHARS");
    rig.view.UserClick(Ctl::cmdSetLabel); // no answer queued: No is the default
    EXPECT_TRUE(rig.machine.Calls("SetVolumeLabelA").empty());

    rig.machine.QueueAnswer(platform::kIdYes);
    rig.view.UserClick(Ctl::cmdSetLabel);
    EXPECT_EQ(rig.machine.FindDrive("E:")->label, "ELEVENCHARS");
}

TEST(Commands, LabelLimitCountsCharactersNotBytes) {
    Rig rig;
    rig.Start();
    rig.view.UserSelectRows(Ctl::ListView1, {2});

    // 14 characters in 17 bytes: the last three characters are selected.
    rig.view.UserType(Ctl::txtDT_Cap, "Gr\xC3\xBC\xC3\x9F"
                                      "e-Stick-\xC3\x84"
                                      "1");
    rig.machine.QueueAnswer(platform::kIdYes);
    rig.view.UserClick(Ctl::cmdSetLabel);
    ASSERT_EQ(rig.machine.MessageBoxes().size(), 2u);
    EXPECT_EQ(rig.machine.MessageBoxes()[1].text, "Max. length of label is 11 characters !");
    EXPECT_EQ(rig.view.SelStart(Ctl::txtDT_Cap), 11);
    EXPECT_EQ(rig.view.SelLength(Ctl::txtDT_Cap), 3);
    EXPECT_TRUE(rig.machine.Calls("SetVolumeLabelA").empty());

    // 11 characters in 13 bytes are within the limit and written.
    const std::string eleven = "Gr\xC3\xBC\xC3\x9F"
                               "e-Stick";
    rig.view.UserType(Ctl::txtDT_Cap, eleven);
    rig.machine.QueueAnswer(platform::kIdYes);
    rig.view.UserClick(Ctl::cmdSetLabel);
    EXPECT_EQ(rig.machine.MessageBoxes().size(), 3u);
    EXPECT_EQ(rig.machine.FindDrive("E:")->label, eleven);
}

TEST(Commands, ExplorerRecycleBinAboutAndSeparators) {
    Rig rig;
    rig.Start();
    rig.view.SetItemSelected(Ctl::ListView1, 1, false);
    rig.view.UserClick(Ctl::cmdExplore); // nothing selected: nothing happens
    EXPECT_TRUE(rig.machine.Calls("ShellExecuteA").empty());

    rig.view.UserSelectRows(Ctl::ListView1, {2});
    rig.view.UserClick(Ctl::mnuPopup2);
    rig.view.UserClick(Ctl::mnuRecycleBin);
    for (Ctl separator : {Ctl::mnuPopup1, Ctl::mnuPopup4, Ctl::mnuPopup7}) rig.view.UserClick(separator);
    const auto shell = rig.machine.Calls("ShellExecuteA");
    ASSERT_EQ(shell.size(), 2u);
    EXPECT_EQ(shell[0].args[1], "\"explore\"");
    EXPECT_EQ(shell[0].args[2], "\"E:\\\"");
    EXPECT_EQ(shell[0].args[4], "\"E:\\\"");
    EXPECT_EQ(shell[1].args[0], "0");
    EXPECT_EQ(shell[1].args[3], "\"/root,::{645FF040-5081-101B-9F08-00AA002F954E}\"");

    rig.view.UserClick(Ctl::cmdAbout);
    ASSERT_EQ(rig.machine.MessageBoxes().size(), 1u);
    const fake::MessageBoxRecord& about = rig.machine.MessageBoxes()[0];
    EXPECT_EQ(about.text, "With the present utility you can monitor the drives on your computer. It will\r\n"
                          "register any USB drive which is inserted or unplugged and show the drive\r\n"
                          "which this receives from your system. You can load the utility into the system\r\n"
                          "tray and specify that it should start automatically with Windows if you wish.\r\n");
    EXPECT_EQ(about.caption, "Kestrine");
    EXPECT_EQ(about.type, platform::kMbOk | platform::kMbIconInformation);
}

} // namespace

// Start-up, the single-instance guard, the first activation with a command
// line, and closing, through the simulated machine and the headless window.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "app/frmMain.h"
#include "drives/cDrive.h"
#include "machine_builders.h"
#include "platform/fake/headless_view.h"
#include "platform/fake/machine.h"

namespace {

using app::Ctl;

const std::string kFolder = "C:\\Program Files\\Kestrine";
const std::string kIni = kFolder + "\\Kestrine.ini";

struct Rig : builders::WindowRig {
    std::vector<std::string> timeline; // view changes and system calls, in the order they happened

    Rig() {
        machine.AddDrive(builders::SystemDrive());
        machine.AddDrive({.root = "D:\\",
                          .type = platform::kDriveRemovable,
                          .label = "STICK",
                          .totalBytes = 8ull << 30,
                          .freeBytes = 2ull << 30});
        machine.AddFolder(kFolder);
        machine.OnCall([this](const fake::Call& c) { timeline.push_back("call " + c.name); });
        view.OnChange([this](const fake::ViewChange& c) {
            timeline.push_back(std::string(app::FormTable()[static_cast<std::size_t>(c.control)].name) + " " +
                               c.property + " " + c.value);
        });
    }

    // The program's objects report to the timeline while they go away.
    ~Rig() {
        machine.OnCall(nullptr);
        view.OnChange(nullptr);
    }

    // Loads the window; when the process goes on, the window system shows it
    // (its size is fixed) and activates it.
    void Start(bool activate = true) {
        form = std::make_unique<app::frmMain>(services, view);
        form->Form_Load();
        if (machine.Ended() || !activate) return;
        form->Resize();
        view.Activate();
    }

    // Both entries happened, the first one first (their first occurrences).
    ::testing::AssertionResult Before(const std::string& first, const std::string& second) const {
        const auto a = std::find(timeline.begin(), timeline.end(), first);
        const auto b = std::find(timeline.begin(), timeline.end(), second);
        if (a == timeline.end()) return ::testing::AssertionFailure() << "\"" << first << "\" never happened";
        if (b == timeline.end()) return ::testing::AssertionFailure() << "\"" << second << "\" never happened";
        if (a >= b) return ::testing::AssertionFailure() << "\"" << second << "\" came before \"" << first << "\"";
        return ::testing::AssertionSuccess();
    }
};

// Stands in for the drive-list fill: rows C:\, D:\ and E:\ with their labels.
void PlayDriveList(fake::HeadlessView& view) {
    view.ClearItems(Ctl::ListView1);
    const char* rows[][2] = {{"C:\\", "System"}, {"D:\\", "STICK"}, {"E:\\", "BACKUP"}};
    for (const auto& row : rows) {
        const int item = view.AddItem(Ctl::ListView1, row[0]);
        view.SetSubItem(Ctl::ListView1, item, 1, row[1]);
    }
}

TEST(Startup, RunsItsStepsInOrder) {
    Rig rig;
    // Positions and states the start-up has to change, so that a skipped step shows.
    rig.view.SetTop(Ctl::Frame1, 30);
    rig.view.SetLeft(Ctl::Frame1, 4700);
    rig.view.SetEnabled(Ctl::cmdSetLabel, true);
    rig.timeline.clear();
    rig.Start(false);

    ASSERT_FALSE(rig.timeline.empty());
    EXPECT_EQ(rig.timeline.front(), "call PrevInstance");
    const std::string unitChosen = "cmbSize listIndex 0";
    EXPECT_TRUE(rig.Before(unitChosen, "call GetLogicalDriveStringsA")) << "the first unit choice scans the drives";
    EXPECT_TRUE(rig.Before("call GetLogicalDriveStringsA", "call GetPrivateProfileSectionA"))
        << "the settings are read after the scan";
    EXPECT_TRUE(rig.Before("call GetPrivateProfileSectionA", "ListView1 column Letter"));
    EXPECT_TRUE(rig.Before("frameNotify top 30", unitChosen));
    EXPECT_TRUE(rig.Before("frameNotify left 4700", unitChosen));

    EXPECT_EQ(rig.view.Top(Ctl::frameNotify), 30);
    EXPECT_EQ(rig.view.Left(Ctl::frameNotify), 4700);
    EXPECT_EQ(rig.view.ColumnCount(Ctl::ListView1), 3);
    EXPECT_TRUE(rig.Before("ListView1 column Label", "ListView1 column Type"));
    EXPECT_EQ(rig.view.Text(Ctl::lblSerialNumber), "");
    EXPECT_EQ(rig.view.Text(Ctl::Text1), "");
    EXPECT_FALSE(rig.view.Enabled(Ctl::cmdSetLabel));
    EXPECT_EQ(rig.view.ListCount(Ctl::cmbSize), 2);
    EXPECT_EQ(rig.view.Text(Ctl::cmbSize), "GB");
    EXPECT_EQ(rig.view.ItemData(Ctl::cmbSize, 0), 3);
    EXPECT_EQ(rig.view.ItemData(Ctl::cmbSize, 1), 2);
    EXPECT_EQ(rig.form->FirstActivation(), 1);
    EXPECT_EQ(rig.form->ReleaseRunning(), 0);
    EXPECT_EQ(rig.form->program().DeviceWatchEnabled, app::kTrue);
    ASSERT_NE(rig.form->program().gDrive, nullptr);
    EXPECT_NE(rig.form->program().gTray, nullptr);
    EXPECT_EQ(rig.view.Text(Ctl::lblSize0), "GB");
    EXPECT_FALSE(rig.machine.Ended());
}

TEST(Startup, SecondInstanceHandsOverToTheFirst) {
    Rig rig;
    rig.machine.SetOtherInstance(fake::OtherInstance{.windowFound = true, .minimized = true});
    rig.machine.SetCommandLine("D:\\");
    rig.Start();

    const auto find = rig.machine.Calls("FindWindowA");
    ASSERT_EQ(find.size(), 1u);
    EXPECT_EQ(find[0].args, (std::vector<std::string>{"\"ThunderRT6Main\"", "\"Kestrine\""}));
    const std::string other = std::to_string(fake::Machine::kOtherMainWindow);
    ASSERT_EQ(rig.machine.Calls("OpenIcon").size(), 1u);
    EXPECT_EQ(rig.machine.Calls("OpenIcon")[0].args[0], other);
    ASSERT_EQ(rig.machine.Calls("SetForegroundWindow").size(), 1u);
    EXPECT_EQ(rig.machine.Calls("SetForegroundWindow")[0].args[0], other);
    EXPECT_TRUE(rig.Before("call OpenIcon", "call SetForegroundWindow"));
    EXPECT_TRUE(rig.Before("call SetForegroundWindow", "call ExitProcess"));
    EXPECT_FALSE(rig.machine.Other()->minimized);
    EXPECT_TRUE(rig.machine.Other()->foreground);

    EXPECT_TRUE(rig.machine.Ended());
    EXPECT_TRUE(rig.form->Ended());
    EXPECT_TRUE(rig.machine.Calls("WritePrivateProfileStringA").empty());
    EXPECT_TRUE(rig.machine.Calls("GetLogicalDriveStringsA").empty());
    EXPECT_FALSE(rig.machine.Exists(kIni));
    EXPECT_EQ(rig.view.ColumnCount(Ctl::ListView1), 0);
    EXPECT_EQ(rig.form->program().gDrive, nullptr);
}

TEST(Startup, OtherInstanceWithoutItsWindowLetsThisOneRun) {
    Rig rig;
    rig.machine.SetOtherInstance(fake::OtherInstance{.windowFound = false});
    rig.machine.SetCommandLine("D:\\");
    rig.Start();

    EXPECT_FALSE(rig.machine.Ended());
    EXPECT_TRUE(rig.machine.Calls("OpenIcon").empty());
    EXPECT_TRUE(rig.machine.Calls("SetForegroundWindow").empty());
    EXPECT_EQ(rig.machine.Title(), "Kestrine");
    EXPECT_EQ(rig.form->StartDrive(), "") << "the command line is not taken over";
    EXPECT_EQ(rig.view.ColumnCount(Ctl::ListView1), 3);
}

TEST(Startup, CommandLineSelectsOnlyAnExactDriveRoot) {
    {
        Rig rig;
        rig.machine.SetCommandLine("D:\\");
        rig.Start(false);
        EXPECT_EQ(rig.form->StartDrive(), "D:\\");
        PlayDriveList(rig.view);
        rig.view.SetItemSelected(Ctl::ListView1, 3, true); // a stale selection is cleared
        rig.view.Activate();
        EXPECT_EQ(rig.view.SelectedItem(Ctl::ListView1), 2);
        EXPECT_FALSE(rig.view.ItemSelected(Ctl::ListView1, 1));
        EXPECT_FALSE(rig.view.ItemSelected(Ctl::ListView1, 3));
        EXPECT_EQ(rig.form->SelectedDrive(), "D:\\");
        EXPECT_EQ(rig.form->program().gDrive->p_GetDriveLetters("0"), "D:\\") << "D is the current drive";
        EXPECT_EQ(rig.form->FirstActivation(), 0);
        EXPECT_EQ(rig.view.Text(Ctl::txtNotify), " Drive: D:\\   Label: STICK");
    }
    for (const std::string commandLine : {"d:\\", "D:\\ ", "\"D:\\\"", "D:", ""}) {
        SCOPED_TRACE("command line [" + commandLine + "]");
        Rig rig;
        rig.machine.SetCommandLine(commandLine);
        rig.Start(false);
        EXPECT_EQ(rig.form->StartDrive(), commandLine) << "kept as given";
        PlayDriveList(rig.view);
        rig.view.Activate();
        EXPECT_EQ(rig.view.SelectedItem(Ctl::ListView1), 1);
        EXPECT_FALSE(rig.view.ItemSelected(Ctl::ListView1, 2));
        EXPECT_EQ(rig.form->SelectedDrive(), "");
        EXPECT_EQ(rig.view.Text(Ctl::txtNotify), " Drive: C:\\   Label: System");
    }
}

TEST(Startup, LaterActivationsOnlyRefreshTheDriveLine) {
    Rig rig;
    rig.machine.SetCommandLine("D:\\");
    rig.Start(false);
    PlayDriveList(rig.view);
    rig.view.Activate();
    ASSERT_EQ(rig.view.SelectedItem(Ctl::ListView1), 2);

    rig.view.SetSelectedItem(Ctl::ListView1, 3);
    rig.view.SetSubItem(Ctl::ListView1, 3, 1, "RENAMED");
    rig.view.Activate();
    EXPECT_EQ(rig.view.SelectedItem(Ctl::ListView1), 3) << "the command-line drive is not selected again";
    EXPECT_FALSE(rig.view.ItemSelected(Ctl::ListView1, 2));
    EXPECT_EQ(rig.form->SelectedDrive(), "D:\\");
    EXPECT_EQ(rig.view.Text(Ctl::txtNotify), " Drive: E:\\   Label: RENAMED");
}

TEST(Shutdown, CloseIsRefusedWhileReleasing) {
    Rig rig;
    rig.Start();
    rig.form->SetReleaseRunning(1);
    rig.view.UserClose();

    ASSERT_EQ(rig.machine.MessageBoxes().size(), 1u);
    const auto& box = rig.machine.MessageBoxes()[0];
    EXPECT_EQ(box.text, "Cannot close program while USB drive(s) are being released.");
    EXPECT_EQ(box.caption, "Kestrine");
    EXPECT_EQ(box.type, platform::kMbOk | platform::kMbIconInformation);
    EXPECT_FALSE(rig.machine.Ended());
    EXPECT_FALSE(rig.form->Ended());
    EXPECT_TRUE(rig.machine.Calls("WritePrivateProfileStringA").empty());
    EXPECT_FALSE(rig.machine.Exists(kIni));
    EXPECT_TRUE(rig.view.Enabled(Ctl::cmdClose));
    EXPECT_FALSE(rig.view.Visible(Ctl::frameUnloading));
    EXPECT_NE(rig.form->program().gDrive, nullptr);

    // Once the release is over, the same window closes normally.
    rig.form->SetReleaseRunning(0);
    rig.view.UserClick(Ctl::cmdClose);
    EXPECT_EQ(rig.machine.MessageBoxes().size(), 1u);
    EXPECT_TRUE(rig.machine.Ended());
    EXPECT_TRUE(rig.machine.Exists(kIni));
}

TEST(Shutdown, TheSessionEndingIsACloseRequestRefusedWhileReleasing) {
    Rig rig;
    rig.Start();
    rig.form->SetReleaseRunning(1);
    EXPECT_FALSE(rig.form->SessionEnding()) << "the session is held back";
    ASSERT_EQ(rig.machine.MessageBoxes().size(), 1u);
    EXPECT_EQ(rig.machine.MessageBoxes()[0].text, "Cannot close program while USB drive(s) are being released.");
    EXPECT_FALSE(rig.machine.Ended());
    EXPECT_FALSE(rig.machine.Exists(kIni));

    rig.form->SetReleaseRunning(0);
    EXPECT_TRUE(rig.form->SessionEnding());
    EXPECT_TRUE(rig.machine.Ended());
    EXPECT_TRUE(rig.machine.Exists(kIni)) << "the settings are saved as at any close";
    EXPECT_TRUE(rig.view.Visible(Ctl::frameUnloading));
    EXPECT_EQ(rig.machine.MessageBoxes().size(), 1u);
    EXPECT_TRUE(rig.form->SessionEnding()) << "an ended program lets the session go";
    EXPECT_EQ(rig.machine.Calls("ExitProcess").size(), 1u);
}

TEST(Shutdown, NormalCloseWaitsShowsThePanelAndSaves) {
    Rig rig;
    rig.Start();
    rig.view.SetLeft(Ctl::frameUnloading, 0); // so that the centring has to move it
    rig.view.SetTop(Ctl::frameUnloading, 0);
    double disabledAt = -1;
    rig.view.OnChange([&](const fake::ViewChange& c) {
        if (c.control == Ctl::cmdClose && c.property == "enabled" && c.value == "false") disabledAt = rig.machine.Now();
    });
    const double start = rig.machine.Now();
    rig.view.UserClick(Ctl::cmdClose);

    EXPECT_GE(disabledAt - start, 0.5) << "the Quit button greys out after half a second";
    EXPECT_LT(disabledAt - start, 0.6);
    EXPECT_FALSE(rig.view.Enabled(Ctl::cmdClose));
    EXPECT_EQ(rig.view.Left(Ctl::frameUnloading), (10695 - 4455) / 2);
    EXPECT_EQ(rig.view.Top(Ctl::frameUnloading), (6645 - 1455) / 2);
    EXPECT_TRUE(rig.view.Visible(Ctl::frameUnloading));
    EXPECT_TRUE(rig.machine.Exists(kIni));
    EXPECT_TRUE(rig.machine.Ended());
    EXPECT_TRUE(rig.form->Ended());
    EXPECT_EQ(rig.machine.Calls("ExitProcess").size(), 1u);
    EXPECT_EQ(rig.form->program().gDrive, nullptr);
    EXPECT_EQ(rig.form->program().gTray, nullptr);
    EXPECT_TRUE(rig.machine.MessageBoxes().empty());

    // A second request after the end changes nothing.
    rig.view.UserClose();
    EXPECT_EQ(rig.machine.Calls("ExitProcess").size(), 1u);
}

TEST(Shutdown, CloseWaitEndsAcrossMidnight) {
    Rig rig;
    rig.Start();
    rig.machine.SetTime(86399.8);
    // A wait that missed the wrap of the timer would never end: stop it.
    rig.machine.At(86399.8 + 5, [] { throw std::runtime_error("the close wait did not end"); });
    const auto yieldsBefore = rig.machine.Yields();
    EXPECT_NO_THROW(rig.view.UserClose());

    ASSERT_TRUE(rig.machine.Ended());
    EXPECT_NEAR(rig.form->WaitStart(), 86399.8, 0.01);
    EXPECT_GE(rig.machine.Now(), 86399.8 + 0.5 - 0.01);
    EXPECT_LT(rig.machine.Now(), 86399.8 + 0.7);
    EXPECT_LT(rig.machine.Yields() - yieldsBefore, 100);
}

// The close wait sleeps between messages: a few yields instead of one per
// tick, the same end as a wait that yielded at every tick, and what the
// system does meanwhile still happens at its time.
TEST(Shutdown, CloseWaitSleepsBetweenMessagesAndMissesNone) {
    Rig rig;
    rig.Start();
    rig.machine.SetTime(1000.0);
    double ranAt = 0;
    rig.machine.At(1000.23, [&] { ranAt = rig.machine.Now(); });
    const auto yieldsBefore = rig.machine.Yields();
    rig.view.UserClose();

    ASSERT_TRUE(rig.machine.Ended());
    EXPECT_NEAR(ranAt, 1000.23, 0.0101) << "delivered at the first tick after its time";
    EXPECT_GE(rig.machine.Now(), 1000.5 - 0.01);
    // The close sequence yields eight times after the wait, 10 ms a yield:
    // it ends at 1000.58 whether the wait spins or sleeps.
    EXPECT_LT(rig.machine.Now(), 1000.59);
    // The sequence's own yields and a few for the wait (a spinning wait
    // took fifty at the 10 ms tick: 58 in all).
    EXPECT_LT(rig.machine.Yields() - yieldsBefore, 20);
}

TEST(Window, SizeStaysFixedUnlessMinimized) {
    Rig rig;
    rig.Start();
    rig.view.UserResize(5000, 3000);
    EXPECT_EQ(rig.view.Width(Ctl::frmMain), app::kFormWidth);
    EXPECT_EQ(rig.view.Height(Ctl::frmMain), app::kFormHeight);

    rig.view.UserMinimize();
    rig.view.UserResize(2000, 400);
    EXPECT_EQ(rig.view.Width(Ctl::frmMain), 2000);
    EXPECT_EQ(rig.view.Height(Ctl::frmMain), 400);

    rig.view.UserRestore();
    EXPECT_EQ(rig.view.Width(Ctl::frmMain), app::kFormWidth);
    EXPECT_EQ(rig.view.Height(Ctl::frmMain), app::kFormHeight);
}

} // namespace

// The logic in the Qt window: on the simulated machine it shows what the
// headless window shows, and the user's clicks, keys and choices reach the
// same handlers. On the Linux backend, device and shell events reach the
// window through its procedure chain.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include <QComboBox>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QTest>
#include <QTreeWidget>

#include "platform/fake/headless_view.h"
#include "platform/qt/linux_events.h"
#include "platform/qt/qt_program.h"
#include "qt_test_support.h"

namespace {

using app::Ctl;

QTreeWidget* List(qtui::QtWindow& w) { return static_cast<QTreeWidget*>(w.ControlWidget(Ctl::ListView1)); }
QPoint RowCentre(qtui::QtWindow& w, int item) {
    return List(w)->visualItemRect(List(w)->topLevelItem(item - 1)).center();
}

TEST(QtProgram, ShowsWhatTheHeadlessWindowShowsOnTheSameMachine) {
    fake::Machine machine;
    fake::Machine::LoadJson(machine, qttest::DemoMachine());
    platform::Services services = machine.services();
    fake::HeadlessView headless;
    app::frmMain headlessForm(services, headless);
    headlessForm.Form_Load();
    headlessForm.Resize();
    headless.Activate();

    qttest::Program program;
    program.Start();
    qtui::QtWindow& window = program.window;
    EXPECT_EQ(program.Rows(), headless.Rows(Ctl::ListView1));
    EXPECT_EQ(program.Rows().size(), 2u); // the optical drive is not listed
    for (Ctl c : {Ctl::frmMain, Ctl::txtNotify, Ctl::txtDT_Cap, Ctl::txtFAT, Ctl::lblHDSize, Ctl::lblHDUsed,
                  Ctl::lblHDFree, Ctl::lblSize0, Ctl::cmbSize})
        EXPECT_EQ(window.Text(c), headless.Text(c)) << app::Spec(c).name;
    EXPECT_EQ(window.Enabled(Ctl::cmdRemoveUSB), headless.Enabled(Ctl::cmdRemoveUSB));

    // The usage bar: the used share in the used colour from the left, the rest in the box's grey.
    const QImage& bar = *window.PictureImage(Ctl::Picture1);
    const fake::RasterSurface& raster = *headless.Raster(Ctl::Picture1);
    const int row = bar.height() - 3;
    int used = 0;
    for (int x = 0; x < bar.width(); ++x)
        if (bar.pixel(x, row) == qRgb(0, 0, 255)) ++used;
    const std::int32_t blue = 0xFF0000;
    ASSERT_EQ(raster.Pixel(0, raster.PixelHeight() - 3), blue);
    const double share = raster.RowShare(raster.PixelHeight() - 3, blue);
    EXPECT_NEAR(static_cast<double>(used) / bar.width(), share, 0.02);
    EXPECT_EQ(bar.pixel(0, row), qRgb(0, 0, 255));
    EXPECT_EQ(bar.pixel(bar.width() - 1, row), qRgb(192, 192, 192));
}

TEST(QtProgram, TheUsersClicksKeysAndChoicesReachTheHandlers) {
    qttest::Program program;
    program.Start();
    qtui::QtWindow& window = program.window;

    // A click on the stick's row shows it.
    QTest::mouseClick(List(window)->viewport(), Qt::LeftButton, {}, RowCentre(window, 2));
    EXPECT_EQ(window.Text(Ctl::txtNotify), " Drive: E:\\   Label: STICK");
    EXPECT_EQ(window.Text(Ctl::txtDT_Cap), "STICK");

    // The size unit: the labels follow the choice.
    auto* combo = static_cast<QComboBox*>(window.ControlWidget(Ctl::cmbSize));
    QTest::keyClick(combo, Qt::Key_Down);
    EXPECT_EQ(window.Text(Ctl::cmbSize), "MB");
    for (int i = 0; i < 3; ++i) EXPECT_EQ(window.Text(app::SizeLabel(i)), "MB");

    // Typing a label enables Set.
    window.SetEnabled(Ctl::cmdSetLabel, false);
    QTest::keyClicks(window.ControlWidget(Ctl::txtDT_Cap), "2");
    EXPECT_EQ(window.Text(Ctl::txtDT_Cap), "STICK2");
    EXPECT_TRUE(window.Enabled(Ctl::cmdSetLabel));

    // Ctrl+Shift+F2 centres the window in the work area.
    const platform::TwipsRect area = program.windows.WorkArea();
    window.SetLeft(Ctl::frmMain, 0);
    window.SetTop(Ctl::frmMain, 0);
    QTest::keyClick(List(window), Qt::Key_F2, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_NEAR(window.Left(Ctl::frmMain), area.left + (area.width - window.Width(Ctl::frmMain)) / 2, 16);
    EXPECT_NEAR(window.Top(Ctl::frmMain), area.top + (area.height - window.Height(Ctl::frmMain)) / 2, 16);

    // Escape on the list closes the program.
    EXPECT_FALSE(program.machine.Ended());
    QTest::keyClick(List(window), Qt::Key_Escape);
    EXPECT_TRUE(program.machine.Ended());
}

// The program as kestrine runs it: the logic, the window and the event loop.
struct RunningProgram {
    qttest::Program parts;
    fake::Machine& machine = parts.machine;
    qtui::QtWindow& window = parts.window;
    qtui::QtProgram program{parts.services, parts.window};

    RunningProgram() { program.Start(); }
    bool Saved() { return machine.FileContent(machine.Path() + "\\Kestrine.ini").has_value(); }
};

TEST(QtProgramLife, QuitOnASimulatedMachineEndsTheEventLoopAsTheRealProcessEnds) {
    RunningProgram run;
    ASSERT_TRUE(QTest::qWaitForWindowExposed(run.window.Widget()));
    QTimer::singleShot(0, [&run] { QTest::mouseClick(run.window.ControlWidget(Ctl::cmdClose), Qt::LeftButton); });
    // Should the program not end, this ends its loop after a while.
    bool stuck = false;
    QTimer guard;
    guard.setSingleShot(true);
    QObject::connect(&guard, &QTimer::timeout, [&stuck] {
        stuck = true;
        QCoreApplication::exit(99);
    });
    guard.start(5000);
    EXPECT_EQ(run.program.Exec(), 0);
    guard.stop();
    EXPECT_FALSE(stuck) << "the window stayed after the program ended";
    EXPECT_TRUE(run.machine.Ended());
    EXPECT_TRUE(run.window.Visible(Ctl::frameUnloading));
    EXPECT_TRUE(run.Saved());
}

TEST(QtProgramLife, TheSessionsEndClosesTheProgramAndIsCancelledWhileAReleaseRuns) {
    RunningProgram run;
    int cancels = 0;
    const auto cancel = [&cancels] { ++cancels; };
    std::vector<std::string> boxes;
    const auto answer = [&boxes] {
        qttest::WhenMessageBoxOpens([&boxes](QMessageBox& box) {
            boxes.push_back(box.text().toStdString());
            box.defaultButton()->click();
        });
    };

    run.program.Form().SetReleaseRunning(1);
    answer();
    run.program.SessionEnding(true, cancel);
    EXPECT_EQ(boxes, std::vector<std::string>{"Cannot close program while USB drive(s) are being released."});
    EXPECT_EQ(cancels, 1);
    EXPECT_FALSE(run.machine.Ended());
    // Where the session does not let the program ask, the refusal stands but the end is not cancelled.
    answer();
    run.program.SessionEnding(false, cancel);
    EXPECT_EQ(boxes.size(), 2u);
    EXPECT_EQ(cancels, 1);
    EXPECT_FALSE(run.machine.Ended());
    EXPECT_FALSE(run.Saved());

    run.program.Form().SetReleaseRunning(0);
    run.program.SessionEnding(true, cancel);
    EXPECT_EQ(cancels, 1);
    EXPECT_TRUE(run.machine.Ended());
    EXPECT_TRUE(run.Saved());
    EXPECT_EQ(run.program.Exec(), 0) << "the program has ended: its loop does not run";
}

TEST(QtProgram, TheRightClickMenuOpensOnTheListAndItsQuitEntryEndsTheProgram) {
    qttest::Program program;
    program.Start();
    std::string bold;
    qttest::WhenPopupOpens([&bold](QMenu& menu) {
        for (QAction* a : menu.actions()) {
            if (a->font().bold()) bold = a->text().toStdString();
            if (a->text() == "Quit program") menu.setActiveAction(a);
        }
        QTest::keyClick(&menu, Qt::Key_Return);
    });
    QTest::mouseClick(List(program.window)->viewport(), Qt::RightButton, {}, RowCentre(program.window, 1));
    EXPECT_EQ(bold, "Release USB");
    EXPECT_TRUE(program.machine.Ended());
}

TEST(QtProgram, DeleteOnTheListReleasesAsInTheHeadlessWindow) {
    // The headless window: the stick chosen, then Delete on the list.
    fake::Machine machine;
    fake::Machine::LoadJson(machine, qttest::DemoMachine());
    platform::Services services = machine.services();
    fake::HeadlessView headless;
    app::frmMain headlessForm(services, headless);
    headlessForm.Form_Load();
    headlessForm.Resize();
    headless.Activate();
    headless.UserSelectRows(Ctl::ListView1, {2});
    machine.ClearJournal();
    headless.UserKey(Ctl::ListView1, 46, 0);
    std::vector<std::string> expected;
    for (const auto& call : machine.Journal()) // the Qt window shows its message boxes itself
        if (call.request && call.name != "MessageBoxA") expected.push_back(call.name);
    for (const auto& box : machine.MessageBoxes()) expected.push_back(box.caption + ": " + box.text);

    // The Qt window: a click on the stick's row, then Delete; the message boxes are answered as shown.
    qttest::Program program;
    program.Start();
    QTest::mouseClick(List(program.window)->viewport(), Qt::LeftButton, {}, RowCentre(program.window, 2));
    program.machine.ClearJournal();
    std::vector<std::string> boxes;
    for (std::size_t i = 0; i < machine.MessageBoxes().size(); ++i)
        qttest::WhenMessageBoxOpens([&boxes](QMessageBox& box) {
            boxes.push_back(box.windowTitle().toStdString() + ": " + box.text().toStdString());
            box.defaultButton()->click();
        });
    QTest::keyClick(List(program.window), Qt::Key_Delete);
    std::vector<std::string> seen;
    for (const auto& call : program.machine.Journal())
        if (call.request) seen.push_back(call.name);
    seen.insert(seen.end(), boxes.begin(), boxes.end());
    EXPECT_FALSE(expected.empty());
    EXPECT_EQ(seen, expected);
}

// --- the Linux backend's events ---

struct Seen {
    std::uint32_t message;
    std::uintptr_t wParam;
    std::intptr_t lParam;
    std::string path1, path2; // a report's items, read while it is delivered
};
std::vector<Seen>* g_seen = nullptr;
linuxbk::LinuxShell* g_shell = nullptr;

std::string PathOf(platform::Pidl item) {
    std::array<char, 260> path{};
    return item != 0 && g_shell->SHGetPathFromIDListA(item, path) ? std::string(path.data()) : std::string("-");
}

std::intptr_t Record(platform::WindowHandle, std::uint32_t message, std::uintptr_t wParam, std::intptr_t lParam) {
    if (g_seen == nullptr) return 0;
    Seen seen{message, wParam, lParam, "", ""};
    std::uintptr_t items[2] = {};
    std::span<std::uint8_t> bytes(reinterpret_cast<std::uint8_t*>(items), sizeof items);
    if (message == platform::kWmShNotify && g_shell->CopyMemory(bytes, wParam)) {
        seen.path1 = PathOf(items[0]);
        seen.path2 = PathOf(items[1]);
    }
    g_seen->push_back(seen);
    return 0;
}

TEST(LinuxEventPump, DeviceAndShellEventsArriveThroughTheWindowsProcedureChain) {
    linuxbk::System::Options options;
    options.events = false;
    linuxbk::System system(options);
    qtui::QtWindow window;
    qtui::QtWindowSystem windows(system.Console(), window);
    qtui::LinuxEventPump pump(system, window);
    std::vector<Seen> seen;
    g_seen = &seen;
    g_shell = &system.Shell();
    const auto previous =
        windows.SetWindowLongA(window.hWnd(), platform::kGwlWndProc, reinterpret_cast<std::intptr_t>(&Record));
    EXPECT_NE(previous, 0);

    using Kind = linuxbk::SystemEvent::Kind;
    pump.Deliver({Kind::DeviceArrived, "", "", 0, "/dev/sdb"});
    pump.Deliver({Kind::DeviceRemoved, "", "", 0, "/dev/sdb"});
    pump.Deliver({Kind::Created, "E:\\docs\\a.txt", "", 0, ""}); // no window registered for reports yet
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].message, platform::kWmDeviceChange);
    EXPECT_EQ(seen[0].wParam, platform::kDbtDeviceArrival);
    EXPECT_EQ(seen[1].wParam, platform::kDbtDeviceRemoveComplete);

    linuxbk::LinuxShell& shell = system.Shell();
    platform::Pidl desktop = 0;
    ASSERT_EQ(shell.SHGetSpecialFolderLocation(window.hWnd(), platform::kCsidlDesktop, desktop), 0);
    ASSERT_NE(shell.SHChangeNotifyRegister(window.hWnd(), 0xFF, 0x7FFFFFFF, platform::kWmShNotify, desktop, true), 0u);
    pump.Deliver({Kind::Renamed, "E:\\old.txt", "E:\\new.txt", 0, ""});
    pump.Deliver({Kind::DriveAdded, "F:\\", "", 1u << 5, ""});
    ASSERT_EQ(seen.size(), 4u);
    EXPECT_EQ(seen[2].message, platform::kWmShNotify);
    EXPECT_EQ(seen[2].lParam, 0x1);
    EXPECT_EQ(seen[3].lParam, 0x100);
    // While delivered, the report names its items as the shell would.
    EXPECT_EQ(seen[2].path1, "E:\\old.txt");
    EXPECT_EQ(seen[2].path2, "E:\\new.txt");
    EXPECT_EQ(seen[3].path1, "F:\\");
    EXPECT_EQ(seen[3].path2, "-");
    // Then the record and its items are gone: a long-running window does not grow with each report.
    std::uintptr_t items[2] = {};
    std::span<std::uint8_t> bytes(reinterpret_cast<std::uint8_t*>(items), sizeof items);
    EXPECT_FALSE(shell.CopyMemory(bytes, seen[3].wParam));
    EXPECT_EQ(shell.Items().Blocks(), 1u) << "only the desktop's item stays";
    g_seen = nullptr;
    g_shell = nullptr;
}

// Each event read in one go waits for the repaint of what the one before
// changed: a new drive is on screen before the shell's reports of it run.
std::vector<std::string>* g_order = nullptr;
QWidget* g_dirty = nullptr;

std::intptr_t Changes(platform::WindowHandle, std::uint32_t message, std::uintptr_t, std::intptr_t) {
    if (g_order != nullptr && message == platform::kWmDeviceChange) {
        g_order->push_back("event");
        g_dirty->update(); // as the drive list's refill does
    }
    return 0;
}

class PaintLog : public QObject {
public:
    explicit PaintLog(std::vector<std::string>& order) : order_(order) {}

protected:
    bool eventFilter(QObject*, QEvent* event) override {
        if (event->type() == QEvent::Paint) order_.push_back("paint");
        return false;
    }

private:
    std::vector<std::string>& order_;
};

TEST(LinuxEventPump, EachEventReadTogetherWaitsForTheRepaintOfTheOneBefore) {
    linuxbk::System::Options options;
    options.events = false;
    linuxbk::System system(options);
    qtui::QtWindow window;
    qtui::QtWindowSystem windows(system.Console(), window);
    qtui::LinuxEventPump pump(system, window);
    window.Widget()->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(window.Widget()));
    QTest::qWait(50);
    std::vector<std::string> order;
    PaintLog log(order);
    window.Widget()->installEventFilter(&log);
    g_order = &order;
    g_dirty = window.Widget();
    windows.SetWindowLongA(window.hWnd(), platform::kGwlWndProc, reinterpret_cast<std::intptr_t>(&Changes));

    using Kind = linuxbk::SystemEvent::Kind;
    pump.Queue({{Kind::DeviceArrived, "", "", 0, "/dev/sdb"},
                {Kind::DeviceRemoved, "", "", 0, "/dev/sdb"},
                {Kind::DeviceArrived, "", "", 0, "/dev/sdc"}});
    EXPECT_EQ(order, std::vector<std::string>{"event"}) << "the first at once, the others later";
    EXPECT_TRUE(QTest::qWaitFor([&] { return std::count(order.begin(), order.end(), "event") == 3; }, 2000));
    QTest::qWait(50);
    const std::vector<std::string> expected{"event", "paint", "event", "paint", "event", "paint"};
    EXPECT_EQ(order, expected);
    window.Widget()->removeEventFilter(&log);
    g_order = nullptr;
    g_dirty = nullptr;
}

} // namespace

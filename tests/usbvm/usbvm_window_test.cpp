// The Kestrine window on real USB sticks, in the guest: the program's own
// binary lists them; the Qt window with the Linux backend (wired as the
// program wires it, offscreen) refuses a held stick, sets a label, releases
// a free stick, and reacts to a stick plugged in and pulled out, but not to
// a mouse, a keyboard or a hub. kestrinectl watch sees the same.
#include <gtest/gtest.h>

#include <QBuffer>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <QTreeWidget>
#include <csignal>
#include <deque>
#include <fstream>
#include <memory>
#include <sstream>

#include <spawn.h>
#include <sys/wait.h>

#include "../linux_test_support.h"
#include "app/frmMain.h"
#include "platform/linux/system.h"
#include "platform/qt/linux_events.h"
#include "platform/qt/qt_window.h"
#include "platform/qt/qt_window_system.h"
#include "usbvm_support.h"

extern char** environ;

namespace {

using namespace std::chrono_literals;
using app::Ctl;

// The program's window on this system, with a record of what it showed.
class Window {
public:
    Window() {
        windows_.SetNotices([this] {
            const auto n = system_.Devices().TakeNotice();
            return qtui::QtWindowSystem::Notice{n.reason, n.details};
        });
        form_ = std::make_unique<app::frmMain>(services_, window_);
        window_.SetTimerInterval([this](Ctl) { return form_->FlashInterval(); });
        form_->Form_Load();
        window_.Show();
        static_cast<void>(QTest::qWaitForWindowExposed(window_.Widget())); // offscreen windows are exposed at once
        // What the window shows, looked at while it yields, and the message
        // boxes it opens, answered as a user would.
        QObject::connect(&watcher_, &QTimer::timeout, [this] { look(); });
        watcher_.start(2);
    }
    ~Window() { watcher_.stop(); }

    qtui::QtWindow& View() { return window_; }
    linuxbk::System& System() { return system_; }
    int Beeps() const { return windows_.Beeps(); }
    std::vector<std::string>& Seen() { return seen_; }
    std::vector<std::string>& Boxes() { return boxes_; }
    void Answer(const std::string& button) { answers_.push_back(button); }

    void Pump(std::chrono::milliseconds ms) { QTest::qWait(static_cast<int>(ms.count())); }
    bool PumpUntil(const std::function<bool()>& condition, std::chrono::milliseconds ms) {
        return QTest::qWaitFor(condition, static_cast<int>(ms.count()));
    }

    std::vector<std::string> Roots() const {
        std::vector<std::string> roots;
        for (int i = 1; i <= window_.ItemCount(Ctl::ListView1); ++i)
            roots.push_back(window_.ItemText(Ctl::ListView1, i));
        return roots;
    }
    std::string Row(const std::string& root) const {
        for (int i = 1; i <= window_.ItemCount(Ctl::ListView1); ++i)
            if (window_.ItemText(Ctl::ListView1, i) == root)
                return root + " | " + window_.SubItem(Ctl::ListView1, i, 1) + " | " +
                       window_.SubItem(Ctl::ListView1, i, 2);
        return {};
    }
    std::vector<std::string> UsbList() const {
        std::vector<std::string> lines;
        for (int i = 0; i < window_.ListCount(Ctl::lstDrives); ++i) lines.push_back(window_.List(Ctl::lstDrives, i));
        return lines;
    }
    std::string Selected() const {
        const int item = window_.SelectedItem(Ctl::ListView1);
        return item == 0 ? std::string() : window_.ItemText(Ctl::ListView1, item);
    }
    // A click on the row of a root, as the user makes it.
    bool Select(const std::string& root) {
        auto* list = static_cast<QTreeWidget*>(window_.ControlWidget(Ctl::ListView1));
        for (int i = 0; i < list->topLevelItemCount(); ++i)
            if (list->topLevelItem(i)->text(0).toStdString() == root) {
                QTest::mouseClick(list->viewport(), Qt::LeftButton, {},
                                  list->visualItemRect(list->topLevelItem(i)).center());
                return Selected() == root;
            }
        return false;
    }
    void Click(Ctl control) { QTest::mouseClick(window_.ControlWidget(control), Qt::LeftButton); }

private:
    void note(const std::string& line) {
        if (seen_.empty() || seen_.back() != line) seen_.push_back(line);
    }
    void look() {
        if (window_.Visible(Ctl::frameNotify))
            note("notice: " + window_.Text(Ctl::lblMessage1) + " / " + window_.Text(Ctl::lblMessage2));
        if (window_.Visible(Ctl::frmeReleased)) note("released: " + window_.Text(Ctl::lblUSBMessage));
        if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
            std::string text = box->windowTitle().toStdString() + ": " + box->text().toStdString();
            if (!box->informativeText().isEmpty()) text += " | " + box->informativeText().toStdString();
            if (!box->detailedText().isEmpty()) {
                text += " | details: " + box->detailedText().toStdString();
                showDetails(box);
            }
            boxes_.push_back(text);
            QAbstractButton* choice = box->defaultButton();
            if (!answers_.empty()) {
                for (QAbstractButton* b : box->buttons())
                    if (b->text().toStdString() == answers_.front()) choice = b;
                answers_.pop_front();
            }
            if (choice != nullptr) choice->click();
        }
    }

    // Opens the box's details as a user would and sends its picture to the
    // host, which keeps it with the build's screenshots.
    static void showDetails(QMessageBox* box) {
        for (QAbstractButton* b : box->buttons())
            if (box->buttonRole(b) == QMessageBox::ActionRole) b->click();
        QApplication::processEvents();
        QByteArray png;
        QBuffer buffer(&png);
        buffer.open(QIODevice::WriteOnly);
        if (box->grab().save(&buffer, "PNG"))
            std::printf("@@usbvm picture refused-release %s\n", png.toBase64().constData());
        std::fflush(stdout);
    }

    linuxbk::System system_;
    qtui::QtWindow window_;
    qtui::QtWindowSystem windows_{system_.Console(), window_};
    platform::Services services_{system_.Services(&windows_)};
    qtui::LinuxEventPump pump_{system_, window_};
    std::unique_ptr<app::frmMain> form_;
    QTimer watcher_;
    std::vector<std::string> seen_, boxes_;
    std::deque<std::string> answers_;
};

// "kestrinectl watch --json" in the background, writing to a file.
class Watch {
public:
    Watch() {
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, file_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const char* argv[] = {KESTRINECTL_PATH, "watch", "--json", nullptr};
        posix_spawn(&pid_, KESTRINECTL_PATH, &actions, nullptr, const_cast<char**>(argv), environ);
        posix_spawn_file_actions_destroy(&actions);
    }
    ~Watch() {
        if (pid_ > 0) {
            ::kill(pid_, SIGINT);
            ::waitpid(pid_, nullptr, 0);
        }
    }
    std::vector<nlohmann::json> Lines() const {
        std::vector<nlohmann::json> out;
        std::ifstream in(file_);
        for (std::string line; std::getline(in, line);)
            if (!line.empty()) out.push_back(nlohmann::json::parse(line, nullptr, false));
        return out;
    }
    std::vector<nlohmann::json> Of(const std::string& event) const {
        std::vector<nlohmann::json> out;
        for (const auto& l : Lines())
            if (l.is_object() && l.value("event", "") == event) out.push_back(l);
        return out;
    }

private:
    std::string file_ = "/run/usbvm/watch.jsonl";
    pid_t pid_ = -1;
};

std::string Caption(bool found) {
    return std::string("Kestrine  ") +
           (found ? "[ USB device(s) found on this computer ]" : "[ no USB device found on this computer ]");
}

std::string Slurp(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// KSTICK, mounted as the desktop mounts it, and its root.
struct Stick {
    std::string device, mountPoint, root;
};

Stick Kstick() {
    Stick s;
    s.device = usbvm::DeviceOfLabel("KSTICK");
    if (!s.device.empty()) s.mountPoint = usbvm::Mount(s.device);
    if (!s.mountPoint.empty()) s.root = usbvm::RootOf(s.mountPoint);
    return s;
}

TEST(UsbWindow, TheProgramListsTheStickAndItsCaptionSaysAUsbDeviceIsThere) {
    const Stick stick = Kstick();
    ASSERT_FALSE(stick.root.empty());

    // The program itself, offscreen: once shown it prints its caption and rows.
    const std::string rows = "/run/usbvm/rows.txt";
    std::string pid =
        usbvm::Sh(std::string(KESTRINE_PATH) + " --print-rows >" + rows + " 2>&1 </dev/null & echo $!").out;
    while (!pid.empty() && pid.back() == '\n') pid.pop_back();
    const bool printed = usbvm::WaitFor([&] { return Slurp(rows).find("row: ") != std::string::npos; }, 60s);
    usbvm::Sh("kill " + pid + "; while kill -0 " + pid + " 2>/dev/null; do sleep 0.1; done");
    ASSERT_TRUE(printed) << Slurp(rows);
    const std::string shown = Slurp(rows);
    EXPECT_NE(shown.find("caption: " + Caption(true) + "\n"), std::string::npos) << shown;
    EXPECT_NE(shown.find("row: " + stick.root + " | KSTICK | Removable\n"), std::string::npos) << shown;

    // In the window: the USB list marks it.
    Window window;
    EXPECT_EQ(window.View().Text(Ctl::frmMain), Caption(true));
    const auto usb = window.UsbList();
    EXPECT_NE(std::find(usb.begin(), usb.end(), stick.root + "KSTICK (USB)"), usb.end())
        << ::testing::PrintToString(usb);
    EXPECT_EQ(window.Row(stick.root), stick.root + " | KSTICK | Removable");
}

TEST(UsbWindow, AHeldStickIsNotReleasedAndTheButtonsComeBack) {
    const Stick stick = Kstick();
    ASSERT_FALSE(stick.root.empty());
    linuxtest::Holder holder(stick.mountPoint + "/held.txt", stick.mountPoint);
    ASSERT_TRUE(holder.Ready());
    Window window;
    ASSERT_TRUE(window.Select(stick.root));
    window.Click(Ctl::cmdRemoveUSB);

    const std::vector<std::string> notice{"notice: Releasing USB drive at [ " + stick.root +
                                          " ] / This may take some time. Please wait."};
    EXPECT_EQ(window.Seen(), notice);
    ASSERT_EQ(window.Boxes().size(), 1u);
    const std::string& box = window.Boxes()[0];
    EXPECT_TRUE(box.starts_with("Kestrine: Unable to release  " + stick.root + " | ")) << box;
    // Beside the program's message, the system says who holds the stick.
    EXPECT_NE(box.find("The device is busy: " + stick.mountPoint + " is in use by "), std::string::npos) << box;
    // The holders, a line each, behind the box's Show Details.
    EXPECT_NE(box.find(" | details: "), std::string::npos) << box;
    EXPECT_NE(box.find("[" + std::to_string(holder.Pid()) + "] holds cwd " + stick.mountPoint + "\n"),
              std::string::npos)
        << box;
    EXPECT_TRUE(window.View().Enabled(Ctl::cmdRemoveUSB));
    EXPECT_TRUE(window.View().Enabled(Ctl::cmdClose));
    EXPECT_EQ(usbvm::MountPoints(stick.device), std::vector<std::string>{stick.mountPoint});
    EXPECT_EQ(window.Row(stick.root), stick.root + " | KSTICK | Removable");
}

TEST(UsbWindow, ALabelSetInTheWindowIsWrittenThroughUdisks) {
    const Stick stick = Kstick();
    ASSERT_FALSE(stick.root.empty());
    Window window;
    ASSERT_TRUE(window.Select(stick.root));
    EXPECT_EQ(window.View().Text(Ctl::txtDT_Cap), "KSTICK");
    window.View().SetText(Ctl::txtDT_Cap, "NEWLABEL");
    window.Answer("&Yes");
    window.Click(Ctl::cmdSetLabel);
    ASSERT_EQ(window.Boxes().size(), 1u);
    EXPECT_EQ(window.Boxes()[0], "Kestrine: Set the label for this drive ?\n");
    EXPECT_EQ(window.System().Volumes().LastLabelError(), "");
    EXPECT_TRUE(usbvm::WaitFor([&] { return usbvm::DeviceOfLabel("NEWLABEL") == stick.device; }, 20s))
        << "written to the stick";
    // The system reports the drive changed; the USB list shows the new label.
    const std::string line = stick.root + "NEWLABEL (USB)";
    EXPECT_TRUE(window.PumpUntil(
        [&] {
            const auto usb = window.UsbList();
            return std::find(usb.begin(), usb.end(), line) != usb.end();
        },
        20s))
        << ::testing::PrintToString(window.UsbList());
    EXPECT_EQ(usbvm::Row(stick.root).value("label", ""), "NEWLABEL");
}

TEST(UsbWindow, AFreeStickIsReleasedAndLeavesTheList) {
    const std::string device = usbvm::DeviceOfLabel("NEWLABEL");
    ASSERT_FALSE(device.empty());
    const std::string mountPoint = usbvm::Mount(device);
    const std::string root = usbvm::RootOf(mountPoint);
    ASSERT_FALSE(root.empty());
    Window window;
    ASSERT_TRUE(window.Select(root));
    const int beeps = window.Beeps();
    window.Click(Ctl::cmdRemoveUSB);

    EXPECT_EQ(window.Boxes(), std::vector<std::string>{});
    // (The released panel may be caught empty: it shows, then gets its text.)
    std::erase(window.Seen(), "released: ");
    const std::vector<std::string> seen{"notice: Releasing USB drive at [ " + root +
                                            " ] / This may take some time. Please wait.",
                                        "released: USB device at [ " + root + " ]  has been released."};
    EXPECT_EQ(window.Seen(), seen);
    EXPECT_TRUE(usbvm::MountPoints(device).empty());
    EXPECT_TRUE(usbvm::WaitFor([] { return !usbvm::UsbPresent("KSTICK0001"); }, 10s));
    // The removal came back through the device-change handling: a beep and the list refilled without it.
    EXPECT_TRUE(window.PumpUntil(
        [&] {
            const auto roots = window.Roots();
            return std::find(roots.begin(), roots.end(), root) == roots.end();
        },
        10s));
    EXPECT_GT(window.Beeps(), beeps);
    EXPECT_TRUE(window.View().Enabled(Ctl::cmdRemoveUSB));
}

TEST(UsbWindow, APluggedStickArrivesAndAMouseAKeyboardAndAHubDoNot) {
    Watch watch;
    Window window;
    window.Pump(1500ms); // the watch is ready
    const int beeps = window.Beeps();
    const auto rows = window.Roots();

    // The stick comes: a disk without a mounted volume is no drive yet.
    usbvm::Host("drive_add 0 if=none,id=hot,format=raw,file=@hot.img");
    usbvm::Host("device_add usb-storage,bus=xhci.0,drive=hot,serial=HOTPLUG0001,removable=on,id=u-hot");
    ASSERT_TRUE(usbvm::WaitFor([] { return !usbvm::DeviceOfLabel("HOTPLUG").empty(); }, 30s));
    window.Pump(2000ms);
    EXPECT_EQ(window.Beeps(), beeps);
    EXPECT_EQ(window.Roots(), rows);
    EXPECT_TRUE(watch.Lines().empty()) << ::testing::PrintToString(watch.Lines());

    // Mounted, as the desktop does: the volume arrives.
    const std::string device = usbvm::DeviceOfLabel("HOTPLUG");
    const std::string mountPoint = usbvm::Mount(device);
    ASSERT_FALSE(mountPoint.empty());
    const std::string root = usbvm::RootOf(mountPoint);
    EXPECT_TRUE(window.PumpUntil([&] { return window.Selected() == root; }, 20s))
        << "the new drive is selected: " << window.Selected();
    EXPECT_EQ(window.Beeps(), beeps + 1);
    EXPECT_EQ(window.Row(root), root + " | HOTPLUG | Removable");
    EXPECT_TRUE(usbvm::WaitFor([&] { return watch.Of("arrival").size() == 1; }, 10s));
    ASSERT_EQ(watch.Of("arrival").size(), 1u) << ::testing::PrintToString(watch.Lines());
    EXPECT_EQ(watch.Of("arrival")[0].at("root"), root);
    EXPECT_EQ(watch.Of("arrival")[0].at("detail"), "HOTPLUG (Removable)");

    // A mouse, a keyboard and a hub come and go: no drive, no reaction.
    const std::size_t lines = watch.Lines().size();
    const int usbDevices = std::stoi(usbvm::Sh("ls /sys/bus/usb/devices | wc -l").out);
    usbvm::Host("device_add usb-mouse,bus=xhci.0,id=mouse");
    usbvm::Host("device_add usb-kbd,bus=xhci.0,id=kbd");
    usbvm::Host("device_add usb-hub,bus=xhci.0,id=hub");
    EXPECT_TRUE(usbvm::WaitFor(
        [&] { return std::stoi(usbvm::Sh("ls /sys/bus/usb/devices | wc -l").out) >= usbDevices + 3; }, 30s));
    usbvm::Settle();
    window.Pump(2000ms);
    usbvm::Host("device_del mouse");
    usbvm::Host("device_del kbd");
    usbvm::Host("device_del hub");
    EXPECT_TRUE(
        usbvm::WaitFor([&] { return std::stoi(usbvm::Sh("ls /sys/bus/usb/devices | wc -l").out) == usbDevices; }, 30s));
    usbvm::Settle();
    window.Pump(2000ms);
    EXPECT_EQ(window.Beeps(), beeps + 1);
    EXPECT_EQ(watch.Lines().size(), lines) << ::testing::PrintToString(watch.Lines());

    // The stick is pulled out: the volume goes.
    usbvm::Host("device_del u-hot");
    EXPECT_TRUE(usbvm::WaitFor([] { return !usbvm::UsbPresent("HOTPLUG0001"); }, 30s));
    EXPECT_TRUE(window.PumpUntil(
        [&] {
            const auto now = window.Roots();
            return std::find(now.begin(), now.end(), root) == now.end();
        },
        20s));
    EXPECT_EQ(window.Beeps(), beeps + 2);
    EXPECT_TRUE(usbvm::WaitFor([&] { return watch.Of("removal").size() == 1; }, 10s));
    ASSERT_EQ(watch.Of("removal").size(), 1u) << ::testing::PrintToString(watch.Lines());
    EXPECT_EQ(watch.Of("removal")[0].at("root"), root);
}

} // namespace

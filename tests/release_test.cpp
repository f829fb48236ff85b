// The release command on the simulated machine: the work list, the notices,
// the four failure messages, the count, the buttons, and what may happen
// while the command yields to the message loop.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "app/frmMain.h"
#include "app/release_command.h"
#include "machine_builders.h"
#include "platform/fake/headless_view.h"
#include "platform/fake/machine.h"

namespace {

using app::Ctl;

struct Release : ::testing::Test {
    fake::Machine m;
    platform::Services services{m.services()};
    fake::HeadlessView view;
    std::unique_ptr<app::frmMain> form;
    // What the user sees, in order: "box: <text>", "notice: <text>", "released: <text>".
    std::vector<std::string> seen;
    // Whether the drive list's repaints go into seen as well.
    bool watchList = false;
    // The state of the window at each eject request.
    std::vector<std::string> atEject;

    void SetUp() override {
        AddDisk("C:\\", "System", 3, 0);
        AddStick("E:\\", 1);
        AddStick("F:\\", 2);
        AddStick("G:\\", 3);
        AddDisk("H:\\", "SATA", 11, 4);
        form = std::make_unique<app::frmMain>(services, view);
        view.OnChange([this](const fake::ViewChange& c) {
            if (c.control == Ctl::lblMessage1) seen.push_back("notice: " + c.value);
            if (c.control == Ctl::lblUSBMessage) seen.push_back("released: " + c.value);
            if (watchList && c.control == Ctl::ListView1 && c.property == "rows")
                seen.push_back(view.Visible(Ctl::frameNotify) ? "list repainted under the notice" : "list repainted");
        });
        m.OnCall([this](const fake::Call& call) {
            if (call.name == "MessageBoxA") {
                const auto& box = m.MessageBoxes().back();
                if (box.text != app::kCloseRefused) {
                    EXPECT_EQ(box.type, platform::kMbOk | platform::kMbIconStop) << box.text;
                    EXPECT_EQ(box.caption, "Kestrine");
                }
                seen.push_back("box: " + box.text);
            }
            if (call.name == "CM_Request_Device_EjectW")
                atEject.push_back(std::string(form->ReleaseRunning() == 1 ? "running" : "idle") +
                                  (view.Enabled(Ctl::cmdRemoveUSB) ? " release-enabled" : "") +
                                  (view.Enabled(Ctl::cmdClose) ? " close-enabled" : "") +
                                  (view.Visible(Ctl::frameNotify) ? " notice" : ""));
        });
    }

    void AddDisk(const std::string& root, const std::string& label, std::uint32_t bus, std::uint32_t number) {
        m.AddDrive(builders::MakeDrive(root, platform::kDriveFixed, label, bus, number));
    }
    void AddStick(const std::string& root, std::uint32_t number, std::vector<std::uint32_t> answers = {}) {
        builders::AddStick(
            m, {.root = root, .number = number, .serial = root.substr(0, 1), .answers = std::move(answers)});
    }
    static std::string Usb(const std::string& root) {
        return builders::StickDevice({.root = root, .serial = root.substr(0, 1)});
    }

    void Rows(const std::vector<std::string>& texts, const std::vector<int>& selected) {
        view.ClearItems(Ctl::ListView1);
        for (const auto& t : texts) view.AddItem(Ctl::ListView1, t);
        for (int i : selected) view.SetItemSelected(Ctl::ListView1, i, true);
    }

    std::vector<builders::EjectRequest> Ejected() const { return builders::EjectRequests(m); }

    double Run() {
        const double before = m.Now();
        release::cmdRemoveUSB_Click(*form);
        return m.Now() - before;
    }

    void ExpectIdleAfterwards() {
        EXPECT_EQ(form->ReleaseRunning(), 0);
        EXPECT_FALSE(form->ReleaseBusy());
        EXPECT_TRUE(view.Enabled(Ctl::cmdRemoveUSB));
        EXPECT_TRUE(view.Enabled(Ctl::cmdClose));
        EXPECT_FALSE(view.Visible(Ctl::frameNotify));
        EXPECT_TRUE(view.Visible(Ctl::Frame1));
        EXPECT_FALSE(view.Visible(Ctl::frmeReleased));
    }
};

TEST_F(Release, NothingOrOnlyTheSystemDrive) {
    for (const std::vector<int>& selected : {std::vector<int>{}, std::vector<int>{1}}) {
        Rows({"C:\\", "E:\\"}, selected);
        bool disabled = false;
        view.OnChange([&](const fake::ViewChange& c) {
            if (c.control == Ctl::cmdRemoveUSB && c.value == "false") disabled = true;
        });
        m.ClearJournal();
        const double took = Run();
        EXPECT_TRUE(disabled);
        EXPECT_TRUE(m.Calls("CreateFileA").empty());
        EXPECT_TRUE(m.MessageBoxes().empty());
        EXPECT_EQ(view.ListCount(Ctl::lstTempUSB), 0);
        EXPECT_GE(took, 0.5);
        EXPECT_LT(took, 0.6);
        ExpectIdleAfterwards();
    }
}

TEST_F(Release, OneUsbDrive) {
    Rows({"C:\\", "E:\\", "F:\\"}, {1, 2}); // drive C is never released, whatever is selected
    const double took = Run();
    EXPECT_EQ(seen, (std::vector<std::string>{"notice: Releasing USB drive at [ E:\\ ]",
                                              "released: USB device at [ E:\\ ]  has been released."}));
    EXPECT_EQ(view.Text(Ctl::lblMessage2), "This may take some time. Please wait.");
    EXPECT_EQ(Ejected(), (std::vector<builders::EjectRequest>{{Usb("E:\\"), "CR_SUCCESS"}}));
    EXPECT_EQ(atEject, (std::vector<std::string>{"running notice"}));
    EXPECT_EQ(m.FindDrive("E:"), nullptr);
    EXPECT_NE(m.FindDrive("F:"), nullptr);
    // The half-second wait and the one-second notice, plus the yields.
    EXPECT_GE(took, 1.5);
    EXPECT_LT(took, 1.8);
    ExpectIdleAfterwards();
}

TEST_F(Release, ThreeDrivesReleasedAndCounted) {
    Rows({"C:\\", "E:\\", "F:\\", "G:\\"}, {2, 3, 4});
    watchList = true;
    Run();
    // Each release repaints the list before the notice goes away.
    EXPECT_EQ(seen,
              (std::vector<std::string>{"notice: Releasing USB drive at [ E:\\ ]", "list repainted under the notice",
                                        "notice: Releasing USB drive at [ F:\\ ]", "list repainted under the notice",
                                        "notice: Releasing USB drive at [ G:\\ ]", "list repainted under the notice",
                                        "released: 3 USB drives released."}));
    EXPECT_EQ(Ejected().size(), 3u);
    ExpectIdleAfterwards();
}

TEST_F(Release, SecondOnAnotherBusStopsTheRun) {
    Rows({"E:\\", "H:\\", "G:\\"}, {1, 2, 3});
    Run();
    EXPECT_EQ(seen, (std::vector<std::string>{"notice: Releasing USB drive at [ E:\\ ]",
                                              "notice: Releasing USB drive at [ H:\\ ]", "box: Not a USB device!",
                                              "released: 1 USB drives released."}));
    EXPECT_EQ(Ejected(), (std::vector<builders::EjectRequest>{{Usb("E:\\"), "CR_SUCCESS"}}));
    EXPECT_NE(m.FindDrive("G:"), nullptr); // untouched
    EXPECT_TRUE(view.Focused(Ctl::ListView1));
    ExpectIdleAfterwards();
}

TEST_F(Release, FourRefusals) {
    m.RemoveDrive("E:");
    AddStick("K:\\", 7, {platform::kCrRemoveVetoed});
    Rows({"K:\\", "F:\\"}, {1, 2});
    const double took = Run();
    EXPECT_EQ(seen,
              (std::vector<std::string>{"notice: Releasing USB drive at [ K:\\ ]", "box: Unable to release  K:\\"}));
    EXPECT_EQ(Ejected().size(), 4u);
    EXPECT_EQ(m.Calls("Sleep").size(), 4u);
    EXPECT_GE(took, 1.7); // 1.2 s of pauses and the half-second wait
    EXPECT_NE(m.FindDrive("F:"), nullptr);
    ExpectIdleAfterwards();
}

TEST_F(Release, HandlesThatCannotBeClosed) {
    m.handles().SetNulOpens(false);
    Rows({"E:\\"}, {1});
    Run();
    EXPECT_EQ(seen,
              (std::vector<std::string>{"notice: Releasing USB drive at [ E:\\ ]", "box: Error with drive E:\\"}));
    EXPECT_TRUE(Ejected().empty());
    ExpectIdleAfterwards();
}

TEST_F(Release, EntryForms) {
    // Longer than a root: not looked at at all.
    Rows({"E:\\STICK"}, {1});
    Run();
    EXPECT_EQ(seen.back(), "box: USB device not found!");
    EXPECT_TRUE(m.Calls("CreateFileA").empty());

    // A letter alone, and a letter with its colon (whose root comes from the
    // USB drive box, as its selection handler writes it).
    seen.clear();
    view.SetText(Ctl::txtUsbDrive, "F:\\");
    Rows({" E ", "F:"}, {1, 2});
    Run();
    EXPECT_EQ(seen,
              (std::vector<std::string>{"notice: Releasing USB drive at [ E ]", "notice: Releasing USB drive at [ F: ]",
                                        "released: 2 USB drives released."}));
    EXPECT_EQ(Ejected(),
              (std::vector<builders::EjectRequest>{{Usb("E:\\"), "CR_SUCCESS"}, {Usb("F:\\"), "CR_SUCCESS"}}));
    ExpectIdleAfterwards();
}

TEST_F(Release, SecondRequestWhileRunningIsRefused) {
    Rows({"E:\\", "F:\\"}, {1, 2});
    // The Delete key during the first yield (before the buttons are even
    // disabled), the menu entry and the pop-up entry later on.
    const double t = m.Now();
    m.At(t + 0.005, [&] { view.UserKey(Ctl::ListView1, 46, 0); });
    m.At(t + 0.05, [&] { view.UserClick(Ctl::mnuRemoveUSB); });
    m.At(t + 0.10, [&] { view.UserKey(Ctl::ListView1, 13, 0); });
    m.At(t + 0.15, [&] { view.UserClick(Ctl::cmdRemoveUSB); });
    Run();
    EXPECT_EQ(seen, (std::vector<std::string>{"notice: Releasing USB drive at [ E:\\ ]",
                                              "notice: Releasing USB drive at [ F:\\ ]",
                                              "released: 2 USB drives released."}));
    EXPECT_EQ(Ejected().size(), 2u);
    EXPECT_EQ(view.ListCount(Ctl::lstTempUSB), 2);
    ExpectIdleAfterwards();

    // Once the run has ended the next request runs.
    Rows({"G:\\"}, {1});
    view.UserKey(Ctl::ListView1, 46, 0);
    EXPECT_EQ(Ejected().size(), 3u);
}

TEST_F(Release, CloseRefusedWhileReleasing) {
    Rows({"E:\\"}, {1});
    m.At(m.Now() + 0.1, [&] { view.UserClose(); });
    Run();
    ASSERT_EQ(m.MessageBoxes().size(), 1u);
    EXPECT_EQ(m.MessageBoxes()[0].text, app::kCloseRefused);
    EXPECT_FALSE(m.Ended());
    EXPECT_EQ(Ejected().size(), 1u);
    ExpectIdleAfterwards();
}

TEST_F(Release, DriveRemovedDuringAYield) {
    Rows({"E:\\", "F:\\", "G:\\"}, {1, 2, 3});
    // G is pulled out while E is being released.
    m.At(m.Now() + 0.03, [&] { m.RemoveDrive("G:"); });
    Run();
    EXPECT_EQ(seen, (std::vector<std::string>{"notice: Releasing USB drive at [ E:\\ ]",
                                              "notice: Releasing USB drive at [ F:\\ ]",
                                              "notice: Releasing USB drive at [ G:\\ ]", "box: Not a USB device!",
                                              "released: 2 USB drives released."}));
    ExpectIdleAfterwards();
}

} // namespace

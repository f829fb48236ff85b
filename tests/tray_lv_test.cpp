// The notification-area icon record and the list view's flat header, against
// the simulated shell and window system.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "app/frmMain.h"
#include "core/program.h"
#include "machine_builders.h"
#include "platform/fake/headless_view.h"
#include "platform/fake/machine.h"
#include "ui/cLV.h"
#include "ui/cTray.h"

namespace {

using app::Ctl;
using Bytes = std::vector<std::uint8_t>;

struct Rig : builders::ProgramRig {
    std::vector<fake::Call> TrayCalls() const { return machine.Calls("Shell_NotifyIconA"); }
};

Bytes Slice(const ui::cTray& tray, std::size_t offset, std::size_t count) {
    const auto& r = tray.record();
    return Bytes(r.begin() + static_cast<std::ptrdiff_t>(offset),
                 r.begin() + static_cast<std::ptrdiff_t>(offset + count));
}

std::uint32_t Field(const ui::cTray& tray, std::size_t offset) {
    const auto b = Slice(tray, offset, 4);
    return b[0] | b[1] << 8 | b[2] << 16 | static_cast<std::uint32_t>(b[3]) << 24;
}

// The tip field as it must be: the text, a null, then spaces to 64 bytes.
Bytes TipField(const std::string& text) {
    Bytes tip(text.begin(), text.end());
    tip.push_back(0);
    tip.resize(64, ' ');
    return tip;
}

TEST(TrayRecord, StartsZeroAndSetFillsEveryFieldLittleEndian) {
    Rig rig;
    {
        ui::cTray tray(rig.program);
        EXPECT_EQ(tray.record(), ui::cTray::Record{});
        EXPECT_EQ(tray.TrayIcon_Icon(), 0u);

        tray.TrayIcon_Icon(0xA1B2C3D4u);
        EXPECT_EQ(tray.TrayIcon_Icon(), 0xA1B2C3D4u);
        tray.TrayIcon_Set(0x12345678u, "Kestrine - USB drive found");

        EXPECT_EQ(Slice(tray, 0, 24), (Bytes{88, 0, 0, 0, 0x78, 0x56, 0x34, 0x12, 1,    0,    0,    0,
                                             7,  0, 0, 0, 0x00, 0x02, 0,    0,    0xD4, 0xC3, 0xB2, 0xA1}));
        EXPECT_EQ(Slice(tray, 24, 64), TipField("Kestrine - USB drive found"));

        const auto calls = rig.TrayCalls();
        ASSERT_EQ(calls.size(), 1u);
        EXPECT_EQ(calls[0].args,
                  (std::vector<std::string>{"0", "305419896", "1", "2712847316", "\"Kestrine - USB drive found\""}));
        EXPECT_EQ(calls[0].result, "1");
        EXPECT_EQ(rig.machine.TrayIcons(), 1u);
    }
    // Releasing the object removes the icon it added.
    EXPECT_EQ(rig.machine.TrayIcons(), 0u);
}

TEST(TrayRecord, TipIsCutAt63AndPaddedWithSpaces) {
    Rig rig;
    ui::cTray tray(rig.program);

    const std::string longTip(63, 'x');
    tray.TrayIcon_Modify(longTip + "YZ");
    EXPECT_EQ(Slice(tray, 24, 64), TipField(longTip));

    // A shorter tip later overwrites the whole field, not just its start.
    tray.TrayIcon_Modify("Kestrine");
    EXPECT_EQ(Slice(tray, 24, 64), TipField("Kestrine"));
}

TEST(TrayModify, WithoutSetNamesWindowZeroAndIsRefused) {
    Rig rig;
    ui::cTray tray(rig.program);
    tray.TrayIcon_Icon(7);
    tray.TrayIcon_Modify("Kestrine");

    const auto calls = rig.TrayCalls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].args, (std::vector<std::string>{"1", "0", "0", "0", "\"Kestrine\""}));
    EXPECT_EQ(calls[0].result, "0");
    EXPECT_EQ(rig.machine.TrayIcons(), 0u);
    // Only the size, window, icon and tip are written by a change.
    EXPECT_EQ(Field(tray, ui::cTray::kOffsetCbSize), 88u);
    EXPECT_EQ(Field(tray, ui::cTray::kOffsetId), 0u);
    EXPECT_EQ(Field(tray, ui::cTray::kOffsetFlags), 0u);
    EXPECT_EQ(Field(tray, ui::cTray::kOffsetCallbackMessage), 0u);
}

TEST(TrayModify, GivenIconIsUsedAndAMissingOneKeepsThePrevious) {
    Rig rig;
    ui::cTray tray(rig.program);
    tray.TrayIcon_Icon(5);
    tray.TrayIcon_Set(rig.view.hWnd(), "first");

    std::uint32_t icon = 9;
    tray.TrayIcon_Modify("second", icon);
    EXPECT_EQ(icon, 9u);
    EXPECT_EQ(Field(tray, ui::cTray::kOffsetIcon), 9u);

    tray.TrayIcon_Icon(11); // a new picture alone does not change the record
    tray.TrayIcon_Modify("third");
    EXPECT_EQ(Field(tray, ui::cTray::kOffsetIcon), 9u);

    // What Set stored stays, so the shell finds the icon every time.
    EXPECT_EQ(Field(tray, ui::cTray::kOffsetId), 1u);
    EXPECT_EQ(Field(tray, ui::cTray::kOffsetFlags), 7u);
    EXPECT_EQ(Field(tray, ui::cTray::kOffsetCallbackMessage), 0x200u);
    const auto calls = rig.TrayCalls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[1].args[3], "9");
    EXPECT_EQ(calls[2].args[3], "9");
    EXPECT_EQ(calls[2].args[4], "\"third\"");
    EXPECT_EQ(calls[1].result, "1");
    EXPECT_EQ(calls[2].result, "1");
}

TEST(TrayRelease, TheProgramNeverAddsTheIconAndDeletesItOnceAtClosing) {
    fake::Machine machine;
    machine.AddDrive({.root = "C:\\",
                      .type = platform::kDriveFixed,
                      .label = "System",
                      .totalBytes = 1ull << 30,
                      .freeBytes = 1ull << 29});
    machine.AddFolder("C:\\Kestrine");
    machine.SetProgramFolder("C:\\Kestrine");
    platform::Services services{machine.services()};
    fake::HeadlessView view;
    app::frmMain form(services, view);
    form.Form_Load();
    ASSERT_NE(form.program().gTray, nullptr);
    form.Unload();

    std::size_t deletes = 0;
    for (const auto& c : machine.Calls("Shell_NotifyIconA")) {
        EXPECT_NE(c.args[0], "0") << "the icon is never added";
        if (c.args[0] == "2") ++deletes;
    }
    EXPECT_EQ(deletes, 1u);
    EXPECT_EQ(machine.TrayIcons(), 0u);
    EXPECT_TRUE(machine.MessageBoxes().empty());

    // Start-up gave the drive list its flat header.
    const auto header = fake::Machine::HeaderOf(view.ControlHandle(Ctl::ListView1));
    EXPECT_EQ(machine.WindowStyle(header), fake::Machine::kDefaultHeaderStyle & ~std::intptr_t{platform::kHdsButtons});
}

TEST(ListHelper, FlatListViewTogglesTheHeaderButtonsAndRedrawsBehindTheOwner) {
    Rig rig;
    ui::cLV lv(rig.program);
    const auto list = rig.view.ControlHandle(Ctl::ListView1);
    const auto header = fake::Machine::HeaderOf(list);

    EXPECT_EQ(lv.GetHeaderHandle(Ctl::ListView1), header);
    const auto asked = rig.machine.Calls("SendMessageA");
    ASSERT_EQ(asked.size(), 1u);
    EXPECT_EQ(asked[0].args, (std::vector<std::string>{std::to_string(list), "4127", "0", "0"}));

    EXPECT_EQ(lv.FlatListView(Ctl::ListView1, Ctl::frmMain), 0);
    EXPECT_EQ(rig.machine.WindowStyle(header), fake::Machine::kDefaultHeaderStyle ^ platform::kHdsButtons);
    auto moves = rig.machine.Calls("SetWindowPos");
    ASSERT_EQ(moves.size(), 1u);
    EXPECT_EQ(moves[0].args, (std::vector<std::string>{std::to_string(list), std::to_string(rig.view.hWnd()), "0", "0",
                                                       "0", "0", "7"}));

    // A second call puts the button style back.
    EXPECT_EQ(lv.FlatListView(Ctl::ListView1, Ctl::frmMain), 0);
    EXPECT_EQ(rig.machine.WindowStyle(header), fake::Machine::kDefaultHeaderStyle);
    EXPECT_EQ(rig.machine.Calls("SetWindowPos").size(), 2u);
}

TEST(ListHelper, HeaderThatWouldBecomeZeroIsLeftAlone) {
    Rig rig;
    ui::cLV lv(rig.program);
    const auto header = fake::Machine::HeaderOf(rig.view.ControlHandle(Ctl::ListView1));
    rig.machine.SetWindowStyle(header, platform::kHdsButtons);

    EXPECT_EQ(lv.FlatListView(Ctl::ListView1, Ctl::frmMain), 0);
    EXPECT_EQ(rig.machine.WindowStyle(header), std::intptr_t{platform::kHdsButtons});
    EXPECT_EQ(rig.machine.Calls("GetWindowLongA").size(), 1u);
    EXPECT_TRUE(rig.machine.Calls("SetWindowLongA").empty());
    EXPECT_TRUE(rig.machine.Calls("SetWindowPos").empty());
}

} // namespace

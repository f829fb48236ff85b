#include "core/form_table.h"

#include <array>

namespace app {
namespace {

constexpr Font kSegoe{"Segoe UI", 9.75};
constexpr Font kSegoe12{"Segoe UI", 12};
constexpr Font kCalibri{"Calibri", 9.75};
constexpr Font kCalibriList{"Calibri", 11.25};
constexpr Font kTahoma9{"Tahoma", 9};
constexpr Font kTahoma12{"Tahoma", 12};
constexpr Font kTahomaLine{"Tahoma", 11.25};
constexpr Font kLucida{"Lucida Console", 9.75};
constexpr Font kMenuFont{"Calibri", 10.5};
constexpr Font kNone{};

constexpr Rgb kWhite{255, 255, 255};
constexpr Rgb kBlue{0, 0, 255};
constexpr Rgb kGrey{192, 192, 192};

using enum Ctl;
using K = Kind;

// Hidden working controls sit below the client area.
constexpr int kBelow = 6900;

// A caption in the designed font on its container's colour.
constexpr ControlSpec Label(Ctl id, std::string_view name, Ctl in, int left, int top, int width, int height,
                            std::string_view caption, Align align, bool visible = true) {
    return ControlSpec{id, name, -1, K::Label, in, left, top, width, height, caption, kSegoe, {}, visible, true, align};
}

// A push button in the designed font on its container's colour.
constexpr ControlSpec Button(Ctl id, std::string_view name, Ctl in, int left, int top, int width, int height,
                             std::string_view caption, bool enabled = true) {
    ControlSpec row{id, name, -1, K::Button, in, left, top, width, height, caption, kSegoe, {}, true, enabled};
    row.align = Align::Center;
    return row;
}

// A button with a square picture of `picture` pixels on edge beside or above its caption.
constexpr ControlSpec PictureButton(Ctl id, std::string_view name, Ctl in, int left, int top, int width, int height,
                                    std::string_view caption, Font font, std::optional<Rgb> back,
                                    std::string_view toolTip, int picture) {
    ControlSpec row = Button(id, name, in, left, top, width, height, caption);
    row.font = font;
    row.backColor = back;
    row.toolTip = toolTip;
    row.pictureSize = picture;
    return row;
}

// An image: a picture of its own size in pixels, stretched into its rectangle.
constexpr ControlSpec Image(Ctl id, std::string_view name, Ctl in, int left, int top, int width, int height,
                            int pictureWidth, int pictureHeight) {
    ControlSpec row{id, name, -1, K::Image, in, left, top, width, height, "", kNone, {}, true, true};
    row.pictureWidth = pictureWidth;
    row.pictureHeight = pictureHeight;
    return row;
}

// An entry of the menu bar.
constexpr ControlSpec BarEntry(Ctl id, std::string_view name, std::string_view caption) {
    return ControlSpec{id, name, -1, K::Menu, frmMain, 0, 0, 0, 0, caption, kMenuFont, {}, true, true};
}

// Entry i of the drive list's pop-up menu.
constexpr ControlSpec PopupRow(int i, std::string_view caption) {
    ControlSpec row = BarEntry(PopupEntry(i), "mnuPopup", caption);
    row.index = static_cast<std::int16_t>(i);
    row.container = mnubla;
    return row;
}

constexpr std::array kTable = {
    // The window itself: outer size; the client area is kClientWidth x kClientHeight.
    ControlSpec{frmMain, "frmMain", -1, K::Form, frmMain, 0, 0, kFormWidth, kFormHeight, "Kestrine", kSegoe,
                kWindowColor, true, true},

    // Regions.
    ControlSpec{Frame3, "Frame3", -1, K::Frame, frmMain, 120, 0, 4455, 6540, "", kSegoe, kWindowColor, true, true},
    ControlSpec{Frame1, "Frame1", -1, K::Frame, frmMain, 4680, 0, 5895, 1095, "", kSegoe, kWindowColor, true, true},
    ControlSpec{Frame2, "Frame2", -1, K::Frame, frmMain, 4680, 1160, 5895, 4455, "", kSegoe, kWindowColor, true, true},
    ControlSpec{Frame4, "Frame4", -1, K::Frame, frmMain, 4680, 5680, 5895, 852, "", kSegoe, kWindowColor, true, true},
    // Notices, hidden until code shows them; frameNotify is moved over Frame1 at start-up.
    ControlSpec{frameNotify, "frameNotify", -1, K::Frame, frmMain, 4680, 0, 5895, 1455, "", kSegoe, kWindowColor, false,
                true},
    ControlSpec{frmeReleased, "frmeReleased", -1, K::Frame, frmMain, 2100, 2655, 6495, 1335, "", kSegoe, kNoticeColor,
                false, true},
    ControlSpec{frameUnloading, "frameUnloading", -1, K::Frame, frmMain, 3120, 2595, 4455, 1455, "", kSegoe,
                kNoticeColor, false, true},

    // Left column.
    ControlSpec{ListView1, "ListView1", -1, K::ListView, Frame3, 120, 240, 4215, 5175, "", kCalibriList, kWhite, true,
                true},
    PictureButton(cmdRemoveUSB, "cmdRemoveUSB", Frame3, 120, 5520, 4215, 860, "&Release USB drive(s)", kSegoe,
                  kNoticeColor, {}, 48),

    // Tool buttons.
    Button(cmdExplore, "cmdExplore", Frame1, 200, 300, 1995, 560, "Windows Explorer"),
    Button(cmdSelectUtility, "cmdSelectUtility", Frame1, 2280, 300, 1650, 560, "Quorra"),
    Button(cmdBrindle, "cmdBrindle", Frame1, 4040, 300, 1640, 560, "Brindle"),

    // Details panel.
    Button(cmdSetLabel, "cmdSetLabel", Frame2, 240, 360, 735, 372, "Se&t", false),
    Label(Label1, "Label1", Frame2, 1080, 420, 1050, 255, "Drive label", Align::Right),
    ControlSpec{txtDT_Cap, "txtDT_Cap", -1, K::TextBox, Frame2, 2280, 400, 3375, 260, "", kCalibri, kWhite, true, true},
    PictureButton(cmdCentreScreen, "cmdCentreScreen", Frame2, 240, 840, 735, 360, "", kNone, {},
                  "Centre window on screen", 16),
    Label(Label6, "Label6", Frame2, 1080, 945, 1065, 255, "File system", Align::Right),
    ControlSpec{txtFAT, "txtFAT", -1, K::TextBox, Frame2, 2280, 960, 1125, 260, "", kCalibri, kWhite, true, true},
    PictureButton(cmdClose, "cmdClose", Frame2, 4080, 840, 1455, 975, "Quit", kSegoe, kNoticeColor, "Quit program", 32),
    Button(cmdAbout, "cmdAbout", Frame2, 200, 1320, 780, 372, "&About"),
    Label(Label4, "Label4", Frame2, 1160, 1500, 975, 255, "Capacity", Align::Right),
    ControlSpec{lblHDSize, "lblHDSize", -1, K::Label, Frame2, 2280, 1500, 1125, 260, "", kCalibri, kWhite, true, true},
    ControlSpec{lblSize0, "lblSize", 0, K::Label, Frame2, 3465, 1480, 240, 255, "GB", kSegoe, {}, true, true},
    ControlSpec{lblHDUsedColor, "lblHDUsedColor", -1, K::Label, Frame2, 240, 1950, 705, 255, "", kNone, kBlue, true,
                true, Align::Left, true},
    Label(Label9, "Label9", Frame2, 1020, 1920, 1140, 255, "Used space", Align::Right),
    ControlSpec{lblHDUsed, "lblHDUsed", -1, K::Label, Frame2, 2280, 1920, 1125, 260, "", kCalibri, kWhite, true, true},
    ControlSpec{lblSize1, "lblSize", 1, K::Label, Frame2, 3480, 1920, 240, 255, "GB", kSegoe, {}, true, true},
    Label(Label11, "Label11", Frame2, 4080, 2025, 1425, 255, "Value units", Align::Center),
    ControlSpec{lblHDFreeColor, "lblHDFreeColor", -1, K::Label, Frame2, 240, 2340, 705, 255, "", kNone, kGrey, true,
                true, Align::Left, true},
    Label(Label3, "Label3", Frame2, 1080, 2340, 1065, 255, "Free space", Align::Right),
    ControlSpec{lblHDFree, "lblHDFree", -1, K::Label, Frame2, 2280, 2340, 1125, 260, "", kCalibri, kWhite, true, true},
    ControlSpec{lblSize2, "lblSize", 2, K::Label, Frame2, 3465, 2320, 240, 255, "GB", kSegoe, {}, true, true},
    ControlSpec{cmbSize, "cmbSize", -1, K::ComboBox, Frame2, 4080, 2400, 1455, 330, "", kTahoma9, kWhite, true, true},
    ControlSpec{Picture1, "Picture1", -1, K::PictureBox, Frame2, 240, 3000, 5415, 1200, "", kTahoma12, kGrey, true,
                true},

    // Drive line.
    ControlSpec{txtNotify, "txtNotify", -1, K::TextBox, Frame4, 240, 280, 5415, 360, "", kTahomaLine, kWhite, true,
                true},

    // Releasing notice.
    Image(imgNotify, "imgNotify", frameNotify, 360, 420, 720, 720, 48, 48),
    Label(lblMessage1, "lblMessage1", frameNotify, 1200, 360, 4455, 255, "", Align::Center),
    Label(lblMessage2, "lblMessage2", frameNotify, 1200, 840, 4455, 255, "", Align::Center),
    // Released notice.
    Image(imgReleased, "imgReleased", frmeReleased, 240, 315, 1320, 780, 200, 96),
    ControlSpec{lblUSBMessage, "lblUSBMessage", -1, K::Label, frmeReleased, 1920, 480, 4395, 375, "", kSegoe12,
                kNoticeColor, true, true},
    // Closing notice.
    Image(imgUnloading, "imgUnloading", frameUnloading, 3360, 480, 600, 600, 32, 32),
    ControlSpec{Label2, "Label2", -1, K::Label, frameUnloading, 360, 660, 2655, 255, "Unloading program .....", kSegoe,
                kNoticeColor, true, true, Align::Right},

    // Hidden working controls.
    ControlSpec{lstDrives, "lstDrives", -1, K::ListBox, frmMain, 120, kBelow, 4215, 1200, "", kLucida, kWhite, false,
                true},
    ControlSpec{lstTempUSB, "lstTempUSB", -1, K::ListBox, frmMain, 4440, kBelow, 1500, 1200, "", kSegoe, kWhite, false,
                true},
    ControlSpec{Drive1, "Drive1", -1, K::DriveListBox, frmMain, 6000, kBelow, 1500, 315, "", kSegoe, kWhite, false,
                true},
    ControlSpec{txtUsbDrive, "txtUsbDrive", -1, K::TextBox, frmMain, 7560, kBelow, 1000, 285, "", kSegoe, kWhite, false,
                true},
    ControlSpec{Text1, "Text1", -1, K::TextBox, frmMain, 120, kBelow + 1300, 10455, 2000, "Text1", kSegoe, kWhite,
                false, true},
    Label(lblSerialNumber, "lblSerialNumber", frmMain, 8640, kBelow, 1935, 255, "lblSerialNumber", Align::Left, false),
    Label(lblWMIDeviceID, "lblWMIDeviceID", frmMain, 8640, kBelow + 300, 1935, 255, "", Align::Left, false),

    // Non-visual controls.
    ControlSpec{tmrFlashMe, "tmrFlashMe", -1, K::Timer, frmMain, 0, 0, 0, 0, "", kNone, {}, false, false},
    ControlSpec{SysInfo1, "SysInfo1", -1, K::SysInfo, frmMain, 0, 0, 0, 0, "", kNone, {}, false, true},
    ControlSpec{OfficeMenu1, "OfficeMenu1", -1, K::MenuStyler, frmMain, 0, 0, 0, 0, "", kMenuFont, {}, false, true},

    // Menu bar, left to right.
    BarEntry(mnuExit, "mnuExit", "&Quit"),
    BarEntry(mnuRecycleBin, "mnuRecycleBin", "Recycle &Bin"),
    BarEntry(mnuWindowsExplorer, "mnuWindowsExplorer", "&Windows Explorer"),
    BarEntry(mnuQuorraFiles, "mnuQuorraFiles", "&Quorra"),
    BarEntry(mnuQuickLaunch, "mnuQuickLaunch", "&Brindle"),
    BarEntry(mnuRemoveUSB, "mnuRemoveUSB", "Release &USB drive(s)"),

    // The drive list's pop-up menu: its parent is not shown in the menu bar.
    ControlSpec{mnubla, "mnubla", -1, K::Menu, frmMain, 0, 0, 0, 0, "Popup", kMenuFont, {}, false, true},
    PopupRow(0, "Release USB"),
    PopupRow(1, "-"),
    PopupRow(2, "Windows Explorer"),
    PopupRow(3, "Recycle Bin"),
    PopupRow(4, "-"),
    PopupRow(5, "Quorra"),
    PopupRow(6, "Brindle"),
    PopupRow(7, "-"),
    PopupRow(8, "Quit program"),
};

static_assert(kTable.size() == kControlCount, "one row per control");

constexpr bool RowsInEnumOrder() {
    for (std::size_t i = 0; i < kTable.size(); ++i)
        if (static_cast<std::size_t>(kTable[i].id) != i) return false;
    return true;
}
static_assert(RowsInEnumOrder(), "rows follow the order of Ctl");

constexpr std::array kColumns = {
    ColumnSpec{"Letter", 760},
    ColumnSpec{"Label", 2320},
    ColumnSpec{"Type", 1000},
};

} // namespace

std::span<const ColumnSpec> ListViewColumns() { return kColumns; }

std::span<const ControlSpec> FormTable() { return kTable; }

const ControlSpec& Spec(Ctl id) { return kTable[static_cast<std::size_t>(id)]; }

std::optional<Ctl> FindControl(std::string_view name, int index) {
    for (const auto& row : kTable)
        if (row.name == name && row.index == index) return row.id;
    return std::nullopt;
}

} // namespace app

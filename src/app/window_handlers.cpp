// The main window's own handlers: choosing a drive, the list's keys and
// pop-up menu, the size unit, the label box, centring, the USB caption and
// the released notice.
#include <string>

#include "app/frmMain.h"
#include "app/release_command.h"
#include "core/vb.h"
#include "drives/cDrive.h"
#include "drives/modGetDriveSerialNumber.h"
#include "drives/modGetDriveType.h"

namespace app {

namespace {
constexpr std::int16_t kKeyEnter = 13;
constexpr std::int16_t kKeyEscape = 27;
constexpr std::int16_t kKeyDelete = 46;
constexpr std::int16_t kKeyF2 = 113;

// A difference in twips made whole (halves to even), then halved toward zero.
double HalfOf(double difference) {
    const auto whole = static_cast<long long>(vb::RoundHalfEven(difference));
    return static_cast<double>(whole / 2);
}
} // namespace

void frmMain::ShowSelectedDrive() {
    View& v = prog_.view;
    const int item = v.SelectedItem(Ctl::ListView1);
    if (item == 0) return;
    SelectedDrive_ = v.ItemText(Ctl::ListView1, item);
    if (prog_.gDrive) prog_.gDrive->ChooseUSB_Info(SelectedDrive_);
    ShowDriveCaption();
}

void frmMain::ShowDriveCaption() {
    View& v = prog_.view;
    const int item = v.SelectedItem(Ctl::ListView1);
    if (item == 0) return;
    v.SetText(Ctl::txtNotify,
              " Drive: " + v.ItemText(Ctl::ListView1, item) + "   Label: " + v.SubItem(Ctl::ListView1, item, 1));
}

void frmMain::ListView1_KeyDown(std::int16_t& KeyCode, std::int16_t Shift) {
    if (KeyCode == kKeyDelete || KeyCode == kKeyEnter) {
        release::cmdRemoveUSB_Click(*this);
        KeyCode = 0;
    } else if (KeyCode == kKeyEscape) {
        cmdClose_Click();
        KeyCode = 0;
    } else if (KeyCode == kKeyF2 && Shift == (kShiftMask | kCtrlMask)) {
        cmdCentreScreen_Click();
        KeyCode = 0;
    }
}

void frmMain::ListView1_MouseUp(std::int16_t Button, std::int16_t /*Shift*/) {
    if ((Button & kRightButton) != 0) prog_.view.PopupMenu(Ctl::mnubla, PopupEntry(0));
}

void frmMain::cmbSize_Click() {
    auto* drive = prog_.gDrive.get();
    if (drive == nullptr) return;
    if (drive->p_GetDriveLetters("0").empty()) {
        drive->mp_GetDriveTyps();
        std::string first = drive->p_GetDriveLetters("0");
        drive->ChooseUSB_Info(first);
    } else {
        drive->GetDriveCapacity();
    }
    SetLabelCap();
}

void frmMain::SetLabelCap() {
    View& v = prog_.view;
    const std::string unit = v.Text(Ctl::cmbSize);
    for (int i = 0; i < 3; ++i) v.SetText(SizeLabel(i), unit);
}

void frmMain::txtDT_Cap_Change() {
    View& v = prog_.view;
    v.SetEnabled(Ctl::cmdSetLabel, v.DataChanged(Ctl::txtDT_Cap));
}

void frmMain::txtDT_Cap_Validate(bool& /*Cancel*/) { prog_.view.SetSelStart(Ctl::txtDT_Cap, 0); }

void frmMain::cmdCentreScreen_Click() {
    View& v = prog_.view;
    const platform::TwipsRect area = prog_.sys.windows.WorkArea();
    v.SetTop(Ctl::frmMain, area.top + HalfOf(area.height - v.Height(Ctl::frmMain)));
    v.SetLeft(Ctl::frmMain, area.left + HalfOf(area.width - v.Width(Ctl::frmMain)));
}

void frmMain::ReadDrivesInfo() {
    const bool found = drives::ListDrives(prog_, Ctl::lstDrives);
    prog_.view.SetText(Ctl::frmMain, std::string(kAppName) + "  " +
                                         (found ? "[ USB device(s) found on this computer ]"
                                                : "[ no USB device found on this computer ]"));
}

void frmMain::lstDrives_Click() {
    View& v = prog_.view;
    const int index = v.ListIndex(Ctl::lstDrives);
    if (index < 0) return;
    const std::string entry = v.List(Ctl::lstDrives, index);
    v.SetEnabled(Ctl::cmdRemoveUSB, entry.find("(USB)") != std::string::npos);
    v.SetText(Ctl::txtUsbDrive, vb::Left(entry, 3));
    v.SetText(Ctl::lblSerialNumber, drives::GetSerialNumber(prog_, Ctl::lblWMIDeviceID, vb::Left(entry, 2)));
}

void frmMain::ShowRelease(const std::string& Message) {
    View& v = prog_.view;
    auto& windows = prog_.sys.windows;
    windows.DoEvents();
    v.SetVisible(Ctl::frameNotify, false);
    windows.DoEvents();
    v.SetVisible(Ctl::Frame1, true);
    windows.DoEvents();
    v.SetLeft(Ctl::frmeReleased, (v.ScaleWidth(Ctl::frmMain) - v.Width(Ctl::frmeReleased)) / 2);
    v.SetTop(Ctl::frmeReleased, (v.ScaleHeight(Ctl::frmMain) - v.Height(Ctl::frmeReleased)) / 2);
    windows.DoEvents();
    v.SetVisible(Ctl::frmeReleased, true);
    windows.DoEvents();
    v.SetText(Ctl::lblUSBMessage, Message);
    windows.DoEvents();
    WaitStart_ = windows.Timer();
    prog_.WaitSince(WaitStart_, 1.0f);
    windows.DoEvents();
    v.SetVisible(Ctl::frmeReleased, false);
}

} // namespace app

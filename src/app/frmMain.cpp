#include "app/frmMain.h"

#include "app/device_change.h"
#include "app/release_command.h"
#include "core/vb.h"
#include "drives/cDrive.h"
#include "ui/cLV.h"
#include "ui/cTray.h"

namespace app {

frmMain::frmMain(platform::Services& services, View& view) : prog_(services, view) {
    prog_.form = this;
    view.SetEvents(this);
}

frmMain::~frmMain() { prog_.view.SetEvents(nullptr); }

// --- start-up ---

void frmMain::Form_Load() {
    View& v = prog_.view;
    StartDrive_.clear();
    if (prog_.sys.app.PrevInstance()) {
        if (ActivatePrevInstance()) return;
    } else {
        StartDrive_ = prog_.sys.app.CommandLine();
    }

    // From here on a failing step is skipped and the next one runs. The menus
    // are styled by the renderer itself.
    FirstActivation_ = 1;
    // The releasing notice covers the command frame exactly.
    v.SetTop(Ctl::frameNotify, v.Top(Ctl::Frame1));
    v.SetLeft(Ctl::frameNotify, v.Left(Ctl::Frame1));
    prog_.DeviceWatchEnabled = kTrue;
    ReleaseRunning_ = 0;

    ListHelper_ = std::make_unique<ui::cLV>(prog_);
    prog_.gTray = std::make_unique<ui::cTray>(prog_);
    prog_.gDrive = std::make_unique<drives::cDrive>(prog_);

    // Selecting the first unit already scans the drives and makes the first
    // recorded drive current, through the unit box's click handling.
    v.AddListItem(Ctl::cmbSize, "GB");
    v.SetItemData(Ctl::cmbSize, 0, 3);
    v.AddListItem(Ctl::cmbSize, "MB");
    v.SetItemData(Ctl::cmbSize, 1, 2);
    v.SetListIndex(Ctl::cmbSize, 0);

    ReadSettings();

    notify::HookDeviceChange(prog_, v.hWnd());

    v.SetDataChanged(Ctl::txtDT_Cap, false);
    v.SetEnabled(Ctl::cmdSetLabel, v.DataChanged(Ctl::txtDT_Cap));

    for (const auto& column : ListViewColumns()) v.AddColumn(Ctl::ListView1, std::string(column.caption), column.width);
    ListHelper_->FlatListView(Ctl::ListView1, Ctl::frmMain);

    FillDriveList(false);
    v.SetText(Ctl::lblSerialNumber, "");
    ReadDrivesInfo();
    v.SetText(Ctl::Text1, "");
    SubClassNotify();
}

bool frmMain::ActivatePrevInstance() {
    auto& app = prog_.sys.app;
    auto& windows = prog_.sys.windows;
    const std::string title = app.Title();
    // Hide this instance's own application window from the search.
    app.SetTitle("unwanted instance");
    const platform::WindowHandle other = windows.FindWindowA(kHiddenWindowClass, title);
    if (other != 0) {
        const platform::WindowHandle main = windows.GetWindow(other, platform::kGwHwndPrev);
        windows.OpenIcon(main);
        windows.SetForegroundWindow(main);
        ended_ = true;
        app.ExitProcess(0);
        return true;
    }
    app.SetTitle(title);
    return false;
}

void frmMain::Form_Activate() {
    View& v = prog_.view;
    if (FirstActivation_ != 1) {
        ShowDriveCaption();
        return;
    }
    bool found = false;
    const int count = v.ItemCount(Ctl::ListView1);
    for (int i = 1; i <= count; ++i) {
        v.SetItemSelected(Ctl::ListView1, i, false);
        const std::string text = v.ItemText(Ctl::ListView1, i);
        if (vb::Left(text, 3) == StartDrive_) {
            v.SetSelectedItem(Ctl::ListView1, i);
            SelectedDrive_ = text;
            if (prog_.gDrive) prog_.gDrive->ChooseUSB_Info(SelectedDrive_);
            found = true;
        }
    }
    if (!found) v.SetItemSelected(Ctl::ListView1, 1, true);
    FirstActivation_ = 0;
    ShowDriveCaption();
}

// --- closing ---

bool frmMain::Unload() {
    if (closing_ || unloaded_) return false; // a close is already under way
    closing_ = true;
    std::int16_t cancel = 0;
    Form_QueryUnload(cancel, 0);
    if (cancel != 0) {
        closing_ = false;
        return false;
    }
    Form_Unload(cancel);
    return true;
}

void frmMain::Form_QueryUnload(std::int16_t& Cancel, std::int16_t /*UnloadMode*/) {
    View& v = prog_.view;
    auto& windows = prog_.sys.windows;
    if (ReleaseRunning_ == 1) {
        windows.MessageBoxA(v.hWnd(), kCloseRefused, prog_.sys.app.Title(),
                            platform::kMbOk | platform::kMbIconInformation);
        Cancel = kTrue;
        return;
    }
    WaitStart_ = windows.Timer();
    prog_.WaitSince(WaitStart_, 0.5f);
    windows.DoEvents();
    v.SetEnabled(Ctl::cmdClose, false);
    windows.DoEvents();
    v.SetLeft(Ctl::frameUnloading, (v.ScaleWidth(Ctl::frmMain) - v.Width(Ctl::frameUnloading)) / 2);
    v.SetTop(Ctl::frameUnloading, (v.ScaleHeight(Ctl::frmMain) - v.Height(Ctl::frameUnloading)) / 2);
    windows.DoEvents();
    v.SetVisible(Ctl::frameUnloading, true);
    WriteSettings();
}

void frmMain::Form_Unload(std::int16_t& /*Cancel*/) {
    unloaded_ = true;
    Unload_Prog();
    ended_ = true;
    prog_.sys.app.ExitProcess(0);
}

void frmMain::Unload_Prog() {
    auto& windows = prog_.sys.windows;
    windows.DoEvents();
    windows.DoEvents();
    prog_.gTray.reset();
    windows.DoEvents();
    prog_.gDrive.reset();
    windows.DoEvents();
    // Putting back the procedure saved by the device-change hook also takes
    // out the shell-report subclass installed after it.
    notify::UnhookDeviceChange(prog_, prog_.view.hWnd());
    windows.DoEvents();
    // The unload request for a window that is already unloading changes nothing.
}

void frmMain::cmdClose_Click() { Unload(); }

void frmMain::mnuExit_Click() { Unload(); }

void frmMain::Form_Resize() {
    View& v = prog_.view;
    if (v.WindowState() == kStateMinimized) return;
    v.SetWidth(Ctl::frmMain, kFormWidth);
    v.SetHeight(Ctl::frmMain, kFormHeight);
}

// --- window handlers ---

// --- events ---

// Once the process has ended nothing reaches the handlers any more.

void frmMain::Click(Ctl control) {
    if (ended_) return;
    switch (control) {
    case Ctl::ListView1:
        ShowSelectedDrive();
        break;
    case Ctl::cmbSize:
        cmbSize_Click();
        break;
    case Ctl::cmdCentreScreen:
        cmdCentreScreen_Click();
        break;
    case Ctl::lstDrives:
        lstDrives_Click();
        break;
    case Ctl::cmdRemoveUSB:
    case Ctl::mnuRemoveUSB:
        release::cmdRemoveUSB_Click(*this);
        break;
    case Ctl::cmdClose:
        cmdClose_Click();
        break;
    case Ctl::mnuExit:
        mnuExit_Click();
        break;
    case Ctl::cmdExplore:
    case Ctl::mnuWindowsExplorer:
        cmdExplore_Click();
        break;
    case Ctl::mnuRecycleBin:
        OpenRecycleBin();
        break;
    case Ctl::cmdSelectUtility:
    case Ctl::mnuQuorraFiles:
        cmdSelectUtility_Click();
        break;
    case Ctl::cmdBrindle:
    case Ctl::mnuQuickLaunch:
        cmdBrindle_Click();
        break;
    case Ctl::cmdAbout:
        cmdAbout_Click();
        break;
    case Ctl::cmdSetLabel:
        cmdSetLabel_Click();
        break;
    default:
        if (control >= PopupEntry(0) && control <= PopupEntry(8))
            mnuPopup_Click(static_cast<int>(control) - static_cast<int>(PopupEntry(0)));
        break;
    }
}

void frmMain::DblClick(Ctl control) {
    if (!ended_ && control == Ctl::ListView1) ShowSelectedDrive();
}

void frmMain::Change(Ctl control) {
    if (!ended_ && control == Ctl::txtDT_Cap) txtDT_Cap_Change();
}

void frmMain::KeyDown(Ctl control, std::int16_t& keyCode, std::int16_t shift) {
    if (!ended_ && control == Ctl::ListView1) ListView1_KeyDown(keyCode, shift);
}

void frmMain::KeyUp(Ctl control, std::int16_t&, std::int16_t) {
    if (!ended_ && control == Ctl::ListView1) ShowSelectedDrive();
}

void frmMain::MouseUp(Ctl control, std::int16_t button, std::int16_t shift, float, float) {
    if (!ended_ && control == Ctl::ListView1) ListView1_MouseUp(button, shift);
}

void frmMain::Validate(Ctl control, bool& cancel) {
    if (!ended_ && control == Ctl::txtDT_Cap) txtDT_Cap_Validate(cancel);
}

void frmMain::Resize() {
    if (!ended_) Form_Resize();
}

void frmMain::Tick(Ctl timer) {
    if (!ended_ && timer == Ctl::tmrFlashMe) tmrFlashMe_Timer();
}

void frmMain::Activate() {
    if (!ended_) Form_Activate();
}

void frmMain::CloseRequested() {
    if (!ended_) Unload();
}

// A close that has begun already ends the process; otherwise the close
// request decides, and a refusal keeps the session going.
bool frmMain::SessionEnding() {
    if (ended_ || closing_) return true;
    return Unload();
}

} // namespace app

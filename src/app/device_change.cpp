#include "app/device_change.h"

#include <map>
#include <string>

#include "app/frmMain.h"
#include "core/program.h"
#include "drives/cDrive.h"
#include "ui/cTray.h"

namespace notify {

namespace {

// The program whose window each hooked procedure serves. A window procedure
// receives only the window handle, so the program is found through it.
std::map<platform::WindowHandle, app::Program*>& Hooked() {
    static std::map<platform::WindowHandle, app::Program*> programs;
    return programs;
}

// "\Connect.ico" in the program's folder, given to the tray object with the
// window caption as its tip.
void UpdateTray(app::Program& prog) {
    if (!prog.gTray) return;
    const std::uintptr_t icon = prog.sys.windows.LoadPicture(prog.sys.app.Path() + "\\Connect.ico");
    if (icon != 0) prog.gTray->TrayIcon_Icon(icon);
    auto handle = static_cast<std::uint32_t>(prog.gTray->TrayIcon_Icon());
    prog.gTray->TrayIcon_Modify(prog.view.Text(app::Ctl::frmMain), handle);
}

void BringBack(app::Program& prog) {
    prog.sys.windows.MessageBeep(0);
    prog.view.SetVisible(app::Ctl::frmMain, true);
    prog.view.SetWindowState(app::kStateNormal);
}

} // namespace

void HookDeviceChange(app::Program& prog, platform::WindowHandle hWnd) {
    RegisterWindow(hWnd, prog);
    prog.PrevWndProc = prog.sys.windows.SetWindowLongA(hWnd, platform::kGwlWndProc,
                                                       reinterpret_cast<std::intptr_t>(&DeviceChangeProc));
}

void UnhookDeviceChange(app::Program& prog, platform::WindowHandle hWnd) {
    if (prog.PrevWndProc != 0) prog.sys.windows.SetWindowLongA(hWnd, platform::kGwlWndProc, prog.PrevWndProc);
}

void RegisterWindow(platform::WindowHandle hWnd, app::Program& prog) {
    Hooked()[hWnd] = &prog;
    prog.whenGone = [&prog] { ForgetProgram(prog); };
}

app::Program* ProgramOf(platform::WindowHandle hWnd) {
    auto it = Hooked().find(hWnd);
    return it == Hooked().end() ? nullptr : it->second;
}

void ForgetProgram(const app::Program& prog) {
    std::erase_if(Hooked(), [&](const auto& entry) { return entry.second == &prog; });
}

void DeviceArrived(app::Program& prog) {
    UpdateTray(prog);
    if (prog.gDrive) {
        prog.gDrive->mp_GetDriveTyps();
        std::string first = prog.gDrive->p_GetDriveLetters("0");
        prog.gDrive->ChooseUSB_Info(first);
    }
    BringBack(prog);
    prog.LastDeviceEvent = 0;
    if (prog.form) prog.form->FillDriveList(true);
}

void DeviceRemoved(app::Program& prog) {
    if (prog.gDrive) prog.gDrive->RemoveUSB_Info();
    UpdateTray(prog);
    BringBack(prog);
    prog.LastDeviceEvent = 1;
    if (prog.form) prog.form->FillDriveList(true);
}

std::intptr_t DeviceChangeProc(platform::WindowHandle hWnd, std::uint32_t uMsg, std::uintptr_t wParam,
                               std::intptr_t lParam) {
    app::Program* found = ProgramOf(hWnd);
    if (found == nullptr) return 0;
    app::Program& prog = *found;
    const std::intptr_t previous = prog.PrevWndProc;
    if (uMsg == platform::kWmDestroy) {
        UnhookDeviceChange(prog, hWnd);
    } else if (uMsg == platform::kWmDeviceChange && prog.DeviceWatchEnabled == app::kTrue) {
        if (wParam == platform::kDbtDeviceArrival)
            DeviceArrived(prog);
        else if (wParam == platform::kDbtDeviceRemoveComplete)
            DeviceRemoved(prog);
    }
    return prog.sys.windows.CallWindowProcA(previous, hWnd, uMsg, wParam, lParam);
}

} // namespace notify

#include "app/shell_notify.h"

#include <cstdio>
#include <string>

#include "app/device_change.h"
#include "app/frmMain.h"
#include "core/program.h"
#include "notify/shell_report.h"

namespace notify {

bool SubclassWindow(app::Program& prog, platform::WindowHandle hWnd, std::intptr_t NewProc) {
    auto& windows = prog.sys.windows;
    if (windows.GetPropA(hWnd, kOldWndProcProperty) != 0) return true;
    RegisterWindow(hWnd, prog);
    const std::intptr_t old = windows.SetWindowLongA(hWnd, platform::kGwlWndProc, NewProc);
    const bool ok = old != 0 && windows.SetPropA(hWnd, kOldWndProcProperty, old);
    if (ok) return true;

    // The error of the step that failed, taken before the procedure is put back.
    const std::uint32_t number = windows.LastError();
    if (old != 0) windows.SetWindowLongA(hWnd, platform::kGwlWndProc, old);
    char hex[32];
    std::snprintf(hex, sizeof hex, "%llX", static_cast<unsigned long long>(hWnd));
    windows.MessageBoxA(prog.view.hWnd(),
                        std::string("Error subclassing window &H") + hex + "\r\n\r\nErr# " + std::to_string(number) +
                            ": " + windows.ErrorText(number),
                        prog.sys.app.Title(), platform::kMbOk | platform::kMbIconExclamation);
    return false;
}

bool UnsubclassWindow(app::Program& prog, platform::WindowHandle hWnd) {
    auto& windows = prog.sys.windows;
    const std::intptr_t old = windows.GetPropA(hWnd, kOldWndProcProperty);
    if (old == 0) return false;
    if (windows.SetWindowLongA(hWnd, platform::kGwlWndProc, old) == 0) return false;
    windows.RemovePropA(hWnd, kOldWndProcProperty);
    return true;
}

std::intptr_t ShellNotifyProc(platform::WindowHandle hWnd, std::uint32_t uMsg, std::uintptr_t wParam,
                              std::intptr_t lParam) {
    app::Program* prog = ProgramOf(hWnd);
    if (prog == nullptr) return 0;
    auto& windows = prog->sys.windows;
    if (uMsg == platform::kWmDestroy) {
        windows.CallWindowProcA(windows.GetPropA(hWnd, kOldWndProcProperty), hWnd, uMsg, wParam, lParam);
        UnsubclassWindow(*prog, hWnd);
        return 0;
    }
    if (uMsg == platform::kWmShNotify && prog->form != nullptr) {
        std::uintptr_t items = wParam;
        auto event = static_cast<std::uint32_t>(lParam);
        prog->form->HandleShellNotify(items, event);
    }
    return windows.CallWindowProcA(windows.GetPropA(hWnd, kOldWndProcProperty), hWnd, uMsg, wParam, lParam);
}

bool RegisterShellNotify(app::Program& prog, platform::WindowHandle hWnd) {
    if (prog.ShellNotifyId != 0) return false;
    const ShellRegistration registration = RegisterForAllReports(prog.sys, hWnd);
    prog.DesktopPidl = registration.desktopPidl;
    prog.ShellNotifyId = registration.id;
    return prog.ShellNotifyId != 0;
}

} // namespace notify

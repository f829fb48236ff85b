// The event log: every change report of the shell decoded into a few lines
// of Text1, then the USB drive list and the caption refreshed.
#include <string>

#include "app/frmMain.h"
#include "app/shell_notify.h"
#include "notify/shell_report.h"

namespace app {

void frmMain::HandleShellNotify(std::uintptr_t& ItemsPtr, std::uint32_t& EventCode) {
    View& v = prog_.view;
    const std::string entry = notify::DescribeShellReport(prog_.sys.shell, ItemsPtr, EventCode);

    // Appending keeps each report cheap however long the log grows.
    v.AppendText(Ctl::Text1, entry);
    v.SetSelStart(Ctl::Text1, v.TextLength(Ctl::Text1));
    // The flash timer is enabled, but its interval stays 0, so the window
    // does not flash on a report.
    v.SetEnabled(Ctl::tmrFlashMe, true);
    ReadDrivesInfo();
}

void frmMain::tmrFlashMe_Timer() {
    if (FlashCount_ == 0) FlashInterval_ = 200;
    ++FlashCount_;
    prog_.sys.windows.FlashWindow(prog_.view.hWnd(), true);
    if (FlashCount_ == 6) {
        FlashCount_ = 0;
        FlashInterval_ = 1;
        prog_.view.SetEnabled(Ctl::tmrFlashMe, false);
    }
}

void frmMain::SubClassNotify() {
    const platform::WindowHandle hWnd = prog_.view.hWnd();
    if (notify::SubclassWindow(prog_, hWnd, reinterpret_cast<std::intptr_t>(&notify::ShellNotifyProc))) {
        notify::RegisterShellNotify(prog_, hWnd);
    } else {
        prog_.sys.windows.MessageBoxA(hWnd, "Critical error with sub-classing!", prog_.sys.app.Title(),
                                      platform::kMbOk | platform::kMbIconStop);
    }
}

} // namespace app

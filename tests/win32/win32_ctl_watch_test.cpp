// kestrinectl watch on Windows: the hidden watch window, registered for the
// shell's reports, device broadcasts and a shell change report delivered by
// the system's message loop.
#include "platform/win32/raii.h"
// The backend's header before any other boundary header: it clears a macro of <windows.h>.
#include "platform/win32/backend.h"

#if defined(KESTRINE_CTL_WIN32)

#include <gtest/gtest.h>
#include <shlobj.h>

#include <chrono>
#include <sstream>
#include <thread>

#include "ctl/ctl.h"
#include "win32_processes.h"
#include "win32_watch.h"

namespace {

constexpr WPARAM kDbtDevNodesChanged = 0x7;

// Waits (at most 5 s) until the watch's loop receives messages; the window
// is registered for the shell's reports before.
void WaitForLoop(const ctlwin::WatchWindow& watch) {
    for (int i = 0; i < 200 && !watch.Running(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(25));
}

struct WatchBench {
    win32::Backend backend;
    platform::Services services = backend.services();
    ctlwin::RestartManagerProcesses processes;
    ctl::Tool tool{{services, processes, {}}};
    ctlwin::WatchWindow watch{backend.windows};
    HWND Hwnd() const { return win32::ToHwnd(const_cast<ctlwin::WatchWindow&>(watch).Window()); }

    int Run(std::ostringstream& out, std::ostringstream& err, bool json = false) {
        const auto parsed =
            ctl::ParseArgs(json ? std::vector<std::string>{"watch", "--json"} : std::vector<std::string>{"watch"});
        EXPECT_EQ(parsed.error, "");
        return tool.Run(parsed.options, out, err, &watch);
    }
};

TEST(Win32Watch, DeviceBroadcastsReachTheWatchWindow) {
    WatchBench b;
    const HWND hwnd = b.Hwnd();
    ASSERT_NE(hwnd, nullptr);
    EXPECT_FALSE(::IsWindowVisible(hwnd));
    const LONG_PTR own = ::GetWindowLongPtrA(hwnd, GWLP_WNDPROC);

    // Sent from another thread, as the system sends its broadcasts (a device
    // message cannot be posted), once the loop runs; it delivers each while
    // it waits for messages.
    std::thread system([&] {
        WaitForLoop(b.watch);
        ::SendMessageA(hwnd, WM_DEVICECHANGE, platform::kDbtDeviceArrival, 0);
        ::SendMessageA(hwnd, WM_DEVICECHANGE, kDbtDevNodesChanged, 0); // not handled by the program: no line
        ::SendMessageA(hwnd, WM_DEVICECHANGE, platform::kDbtDeviceRemoveComplete, 0);
        b.watch.Stop();
    });
    std::ostringstream out, err;
    EXPECT_EQ(b.Run(out, err), ctl::kOk) << err.str();
    system.join();
    EXPECT_EQ(out.str(), "arrival - no drive came\nremoval - no drive went\n");
    EXPECT_EQ(err.str(), "");
    // Nothing was put in front of the window's own procedure.
    EXPECT_EQ(::GetWindowLongPtrA(hwnd, GWLP_WNDPROC), own);
}

TEST(Win32Watch, AShellReportOfANewFolderIsLoggedAsTheWindowLogsIt) {
    WatchBench b;
    ASSERT_NE(b.Hwnd(), nullptr);
    char temp[MAX_PATH] = {};
    ASSERT_GT(::GetTempPathA(MAX_PATH, temp), 0u);
    const std::string folder = std::string(temp) + "kestrine-watch-" + std::to_string(::GetCurrentProcessId());
    ::CreateDirectoryA(folder.c_str(), nullptr);

    // Once the window is registered and the loop runs, the shell is told of the folder.
    std::thread reporter([&] {
        WaitForLoop(b.watch);
        ::SHChangeNotify(SHCNE_MKDIR, SHCNF_PATHA | SHCNF_FLUSH, folder.c_str(), nullptr);
        b.watch.Stop();
    });
    std::ostringstream out, err;
    const int code = b.Run(out, err, true);
    reporter.join();
    ::RemoveDirectoryA(folder.c_str());
    EXPECT_EQ(code, ctl::kOk) << err.str();
    const std::string text = out.str();
    EXPECT_NE(text.find("\"event\":\"change\""), std::string::npos) << text;
    EXPECT_NE(text.find("SHCNE_MKDIR; first item displayname: "), std::string::npos) << text;
    EXPECT_NE(text.find("first item path: " + folder.substr(0, 2)), std::string::npos) << text;
    EXPECT_NE(text.find("\"root\":\"" + folder.substr(0, 2) + "\\\\\""), std::string::npos) << text;
}

} // namespace

#endif

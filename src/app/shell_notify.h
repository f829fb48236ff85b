#pragma once
// The second subclass of the main window: ShellNotifyProc receives the
// shell's change reports (WM_SHNOTIFY) and hands them to the window, and the
// window registers for every report of the whole namespace.
#include <cstdint>

#include "core/fwd.h"
#include "platform/types.h"

namespace notify {

inline constexpr const char* kOldWndProcProperty = "OldWndProc";

// Puts NewProc in front of the window's procedure and keeps the replaced one
// in the window's property "OldWndProc". True when the window is subclassed,
// now or already before.
bool SubclassWindow(app::Program& prog, platform::WindowHandle hWnd, std::intptr_t NewProc);
// Puts the saved procedure back; true when it was.
bool UnsubclassWindow(app::Program& prog, platform::WindowHandle hWnd);
std::intptr_t ShellNotifyProc(platform::WindowHandle hWnd, std::uint32_t uMsg, std::uintptr_t wParam,
                              std::intptr_t lParam);
// Registers the window for all shell reports from the desktop down; true
// when this call registered it.
bool RegisterShellNotify(app::Program& prog, platform::WindowHandle hWnd);

} // namespace notify

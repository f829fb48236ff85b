#pragma once
// The device-change procedure: it sits in the main window's chain of window
// procedures and reacts to the system's broadcast that a device arrived or
// was removed, then passes every message on.
#include <cstdint>

#include "core/fwd.h"
#include "platform/types.h"

namespace notify {

// Puts DeviceChangeProc in front of the window's procedure; the one it
// replaces is kept in PrevWndProc.
void HookDeviceChange(app::Program& prog, platform::WindowHandle hWnd);
// Puts PrevWndProc back (which also removes anything installed after it).
void UnhookDeviceChange(app::Program& prog, platform::WindowHandle hWnd);
// The window procedure.
std::intptr_t DeviceChangeProc(platform::WindowHandle hWnd, std::uint32_t uMsg, std::uintptr_t wParam,
                               std::intptr_t lParam);

// The program whose window a procedure serves: a window procedure receives
// only the window handle.
void RegisterWindow(platform::WindowHandle hWnd, app::Program& prog);
app::Program* ProgramOf(platform::WindowHandle hWnd);

// Forgets a program that goes away, so no procedure reaches it any more.
void ForgetProgram(const app::Program& prog);

// The reactions, independent of how the event was received.
void DeviceArrived(app::Program& prog);
void DeviceRemoved(app::Program& prog);

} // namespace notify

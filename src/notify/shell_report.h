#pragma once
// The shell's change reports: the name of each event code, the report
// decoded into the lines the window logs, and the registration of a window
// for every report of the whole namespace. The window's log and kestrinectl's
// watch both read reports through these.
#include <cstdint>
#include <string>

#include "platform/types.h"

namespace platform {
struct Services;
class Shell;
} // namespace platform

namespace notify {

// "SHCNE_MKDIR" for 0x8, and so on; "" for a code without a name.
std::string ShellEventName(std::uint32_t EventCode);
// The text up to its first NUL.
std::string TrimAtNull(const std::string& Text);
// The display name and file-system path of an item identifier list; "" when
// the shell has none.
std::string GetPidlDisplayName(platform::Shell& shell, std::uintptr_t Pidl);
std::string GetPidlPath(platform::Shell& shell, std::uintptr_t Pidl);

// A report as the window logs it: the event's name, then per item its
// display name and path (or the event's own value), each line ended by CR-LF,
// and an empty line after the report. ItemsPtr points at the report's two
// item pointers.
std::string DescribeShellReport(platform::Shell& shell, std::uintptr_t ItemsPtr, std::uint32_t EventCode);
// "E:\..." : a path that starts at a drive's root.
bool IsDriveRoot(const std::string& path);

// The item identifier list of a special folder, or 0.
std::uintptr_t GetSpecialFolderPidl(platform::Services& sys, platform::WindowHandle owner, std::int32_t folder);
// Registers a window for all shell reports from the desktop down, delivered
// as WM_SHNOTIFY. The id is 0 when the registration failed; desktopPidl is 0
// when the desktop could not be found (and nothing was registered).
struct ShellRegistration {
    std::uint32_t id = 0;
    std::uintptr_t desktopPidl = 0;
};
ShellRegistration RegisterForAllReports(platform::Services& sys, platform::WindowHandle hWnd);

} // namespace notify

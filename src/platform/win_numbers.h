#pragma once
// Windows numbers that more than one part of the program agrees on: the
// window messages and device-change codes that reach the window's procedure,
// the shell's change-report event codes, the hidden window's class, and where
// the device instances the non-Windows backends hand out begin. The constants of a single boundary
// call stay beside that call (types.h and the service headers).
#include <cstdint>

namespace platform {

// Window messages the program handles or sends.
inline constexpr std::uint32_t kWmDestroy = 0x2;
inline constexpr std::uint32_t kWmMouseMove = 0x200;
inline constexpr std::uint32_t kWmDeviceChange = 0x219;
inline constexpr std::uint32_t kWmShNotify = 0x401; // WM_USER + 1: the shell's change reports
// WM_DEVICECHANGE events (wParam).
inline constexpr std::uintptr_t kDbtDeviceArrival = 0x8000;
inline constexpr std::uintptr_t kDbtDeviceRemoveComplete = 0x8004;

// Shell change-report event codes (SHCNE_*), the lParam of a report.
inline constexpr std::uint32_t kShcneRenameItem = 0x00000001;
inline constexpr std::uint32_t kShcneCreate = 0x00000002;
inline constexpr std::uint32_t kShcneDelete = 0x00000004;
inline constexpr std::uint32_t kShcneMkDir = 0x00000008;
inline constexpr std::uint32_t kShcneRmDir = 0x00000010;
inline constexpr std::uint32_t kShcneMediaInserted = 0x00000020;
inline constexpr std::uint32_t kShcneMediaRemoved = 0x00000040;
inline constexpr std::uint32_t kShcneDriveRemoved = 0x00000080;
inline constexpr std::uint32_t kShcneDriveAdd = 0x00000100;
inline constexpr std::uint32_t kShcneNetShare = 0x00000200;
inline constexpr std::uint32_t kShcneNetUnshare = 0x00000400;
inline constexpr std::uint32_t kShcneAttributes = 0x00000800;
inline constexpr std::uint32_t kShcneUpdateDir = 0x00001000;
inline constexpr std::uint32_t kShcneUpdateItem = 0x00002000;
inline constexpr std::uint32_t kShcneServerDisconnect = 0x00004000;
inline constexpr std::uint32_t kShcneUpdateImage = 0x00008000;
inline constexpr std::uint32_t kShcneDriveAddGui = 0x00010000;
inline constexpr std::uint32_t kShcneRenameFolder = 0x00020000;
inline constexpr std::uint32_t kShcneFreeSpace = 0x00040000;
inline constexpr std::uint32_t kShcneExtendedEvent = 0x04000000;
inline constexpr std::uint32_t kShcneAssocChanged = 0x08000000;
inline constexpr std::uint32_t kShcneDiskEvents = 0x0002381F;
inline constexpr std::uint32_t kShcneGlobalEvents = 0x0C0581E0;
inline constexpr std::uint32_t kShcneAllEvents = 0x7FFFFFFF;
inline constexpr std::uint32_t kShcneInterrupt = 0x80000000;

// The class of the hidden application window every instance keeps, by which
// a second start finds the first.
inline constexpr const char* kHiddenWindowClass = "ThunderRT6Main";

// The first device instance the Linux and simulated device trees hand out;
// instance kFirstDevInst + i is node i of the tree (0 stays "no device").
inline constexpr std::uint32_t kFirstDevInst = 0x100;

} // namespace platform

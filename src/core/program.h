#pragma once
// The program-wide variables, held in one object that the main window owns,
// so tests can make as many programs as they like.
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "core/view.h"
#include "platform/services.h"
#include "settings/basINI.h"

namespace drives {
class cDrive;
}
namespace ui {
class cTray;
}

namespace app {

class frmMain;

inline constexpr std::int16_t kTrue = -1;
inline constexpr std::int16_t kFalse = 0;

struct Program {
    Program(platform::Services& services, View& window);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    platform::Services& sys;
    View& view;
    frmMain* form = nullptr; // the main window that owns this program

    std::unique_ptr<drives::cDrive> gDrive;
    std::unique_ptr<ui::cTray> gTray;
    std::int16_t DeviceWatchEnabled = kFalse;
    std::intptr_t PrevWndProc = 0;
    std::int16_t LastDeviceEvent = 0;
    std::string ChangedRoot;
    std::string DriveTypeName;
    std::string DriveLabel;
    std::uint32_t ShellNotifyId = 0;
    std::uintptr_t DesktopPidl = 0;
    settings::basINI ini; // IniKeys and IniValues live here
    // Run as the program goes away (the window procedures it was registered
    // for forget it).
    std::function<void()> whenGone;

    // Yields to the message loop until the given seconds have passed since
    // start (a platform timer value), also when the wait spans midnight:
    // every message that comes meanwhile is dispatched, and between them
    // the program sleeps.
    void WaitSince(float start, float seconds);
};

} // namespace app

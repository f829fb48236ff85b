#pragma once
// The Linux backend as one object: the letter map every service shares and
// one instance of each service, handed out as a platform::Services bundle.
#include <memory>
#include <string>

#include "platform/linux/application.h"
#include "platform/linux/devices.h"
#include "platform/linux/events.h"
#include "platform/linux/handles.h"
#include "platform/linux/instance_channel.h"
#include "platform/linux/letter_map.h"
#include "platform/linux/profile_file.h"
#include "platform/linux/shell.h"
#include "platform/linux/volumes.h"
#include "platform/linux/window_system.h"
#include "platform/services.h"

namespace linuxbk {

class System {
public:
    struct Options {
        std::string sysRoot = "/sys";
        std::string mountInfo = "/proc/self/mountinfo";
        std::string commandLine;
        std::string title = "Kestrine";
        bool events = true;    // watch devices, the mount table and removable drives
        bool useUdisks = true; // else only the direct way of unmounting and powering off
        // Whether an action that needs authorisation may ask the user
        // through the session's authentication agent (the window does).
        bool interactiveAuthorisation = false;
    };
    System() : System(Options{}) {}
    explicit System(Options options);
    System(const System&) = delete;
    System& operator=(const System&) = delete;

    // The services; the window system is the console one unless another
    // (the Qt window layer's) is given.
    platform::Services Services(platform::WindowSystem* windows = nullptr);

    // Delivers one event as a window receives it: device arrival and removal
    // as WM_DEVICECHANGE through the procedure chain of window, drive, medium
    // and file changes as WM_SHNOTIFY reports (with items the shell stand-in
    // can name) to every window registered for reports.
    void Deliver(platform::WindowHandle window, const SystemEvent& event);
    // The shell report event code of an event; 0 for device events.
    static std::uint32_t ShellEventCode(SystemEvent::Kind kind);
    // The name the shell stand-in gives an item of a report: a drive's root
    // as "LABEL (E:)" (or its kind without a label), anything else its last name.
    std::string DisplayName(const std::string& windowsPath);

    LetterMap& Map() { return map_; }
    LinuxVolumes& Volumes() { return volumes_; }
    LinuxDevices& Devices() { return devices_; }
    LinuxHandles& Handles() { return handles_; }
    LinuxShell& Shell() { return shell_; }
    LinuxApplication& App() { return app_; }
    InstanceChannel& Channel() { return channel_; }
    EventSources* Events() { return events_.get(); }
    ConsoleWindows& Console() { return console_; }
    ProfileFiles& Profile() { return profile_; }

private:
    void keepSettingsWhereWritable();
    void deliver(platform::WindowHandle window, const SystemEvent& event);

    LetterMap map_;
    LinuxVolumes volumes_{map_};
    LinuxDevices devices_{map_};
    LinuxHandles handles_{map_};
    LinuxShell shell_{map_};
    InstanceChannel channel_;
    LinuxApplication app_;
    ProfileFiles profile_;
    std::unique_ptr<EventSources> events_;
    ConsoleWindows console_;
};

} // namespace linuxbk

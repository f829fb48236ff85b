#include "platform/linux/system.h"

#include "platform/window_system.h"

#include <cstdlib>
#include <filesystem>

#include <unistd.h>

#include "platform/linux/udisks.h"
#include "platform/linux/volume_id.h"
#include "platform/portable/shell_items.h"

namespace linuxbk {

System::System(Options options)
    : map_(Sysfs(options.sysRoot), options.mountInfo), app_(map_, channel_, options.commandLine, options.title),
      profile_([this](const std::string& path) {
          return map_.ToNative(path).value_or(ProfileFiles::DefaultNativePath(path));
      }),
      events_(options.events ? std::make_unique<EventSources>(map_) : nullptr),
      console_(map_, channel_, events_.get()) {
    devices_.UseUdisks(options.useUdisks);
    UDisks::AllowInteraction(options.interactiveAuthorisation);
    keepSettingsWhereWritable();
}

void System::keepSettingsWhereWritable() {
    // The settings live beside the program. Installed where the user cannot
    // write (as a package puts it), they live in the user's configuration
    // folder instead, and are read from there too.
    std::string exe = ReadLink("/proc/self/exe");
    const auto slash = exe.rfind('/');
    if (slash == std::string::npos) return;
    const std::string folder = slash == 0 ? std::string("/") : exe.substr(0, slash);
    if (::access(folder.c_str(), W_OK) == 0) return;
    std::string config;
    if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg != nullptr && xdg[0] == '/') {
        config = xdg;
    } else if (const char* home = std::getenv("HOME"); home != nullptr && home[0] == '/') {
        config = std::string(home) + "/.config";
    } else {
        return;
    }
    config += "/kestrine";
    std::error_code ec;
    std::filesystem::create_directories(config, ec);
    if (!IsDirectory(config)) return;
    map_.Redirect(folder, config, {"Kestrine.ini", "Kestrine.ini.new"});
}

platform::Services System::Services(platform::WindowSystem* windows) {
    return {app_,     volumes_, profile_, windows != nullptr ? *windows : console_, shell_, volumes_, devices_,
            devices_, devices_, handles_};
}

std::uint32_t System::ShellEventCode(SystemEvent::Kind kind) {
    using Kind = SystemEvent::Kind;
    switch (kind) {
    case Kind::Renamed:
        return platform::kShcneRenameItem;
    case Kind::FolderRenamed:
        return platform::kShcneRenameFolder;
    case Kind::Created:
        return platform::kShcneCreate;
    case Kind::Deleted:
        return platform::kShcneDelete;
    case Kind::FolderCreated:
        return platform::kShcneMkDir;
    case Kind::FolderRemoved:
        return platform::kShcneRmDir;
    case Kind::MediaInserted:
        return platform::kShcneMediaInserted;
    case Kind::MediaRemoved:
        return platform::kShcneMediaRemoved;
    case Kind::DriveRemoved:
        return platform::kShcneDriveRemoved;
    case Kind::DriveAdded:
        return platform::kShcneDriveAdd;
    case Kind::AttributesChanged:
        return platform::kShcneAttributes;
    case Kind::ItemUpdated:
        return platform::kShcneUpdateItem;
    default:
        return 0;
    }
}

void System::Deliver(platform::WindowHandle window, const SystemEvent& event) {
    // The drives as they were when the event happened, while it is delivered.
    if (event.table) map_.Pin(*event.table);
    deliver(window, event);
    if (event.table) map_.Unpin();
}

std::string System::DisplayName(const std::string& windowsPath) {
    // A drive's root is named as the shell names drives, from the drive as
    // it was when the event happened (the map is pinned to that table).
    if (windowsPath.size() <= 3 && windowsPath.size() >= 2 && windowsPath[1] == ':') {
        const DriveRecord* d = map_.DriveOf(windowsPath);
        const std::string label = d != nullptr && d->Ready() ? IdentifyVolume(*d).label : std::string();
        return portable::DriveDisplayName(windowsPath[0], label, d != nullptr ? d->driveType : platform::kDriveFixed);
    }
    return EventSources::DisplayName(windowsPath);
}

void System::deliver(platform::WindowHandle window, const SystemEvent& event) {
    using Kind = SystemEvent::Kind;
    if (event.kind == Kind::DeviceArrived) {
        console_.Deliver(window, platform::kWmDeviceChange, platform::kDbtDeviceArrival, 0);
    } else if (event.kind == Kind::DeviceRemoved) {
        console_.Deliver(window, platform::kWmDeviceChange, platform::kDbtDeviceRemoveComplete, 0);
    } else if (const std::uint32_t code = ShellEventCode(event.kind); code != 0) {
        portable::ShellItems& items = shell_.Items();
        auto item = [this, &items](const std::string& path) -> platform::Pidl {
            return path.empty() ? 0 : items.Item(DisplayName(path), path);
        };
        const platform::Pidl item1 = item(event.path1), item2 = item(event.path2);
        const std::uintptr_t record = items.ReportRecord(item1, item2);
        const auto registered = items.Registrations();
        for (const auto& [target, message] : registered)
            console_.Deliver(target, message, record, static_cast<std::intptr_t>(static_cast<std::int32_t>(code)));
        // Every window had the report: its record and items are not needed any more.
        items.Free(record);
        items.Free(item1);
        items.Free(item2);
    }
}

} // namespace linuxbk

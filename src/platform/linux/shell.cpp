#include "platform/linux/shell.h"

#include "platform/linux/application.h"

namespace linuxbk {

namespace {

constexpr const char* kRecycleBin = "::{645FF040-5081-101B-9F08-00AA002F954E}";

} // namespace

std::intptr_t LinuxShell::ShellExecuteA(platform::WindowHandle, const std::string& verb, const std::string& file,
                                        const std::string& parameters, const std::string&, std::int32_t) {
    constexpr std::intptr_t kOk = 42, kNotFound = 2, kNoAssociation = 31;
    const std::string v = vb::LCase(verb);
    if (!v.empty() && v != "open" && v != "explore") return kNoAssociation;
    std::string target;
    if (vb::LCase(file) == "explorer.exe" && parameters.find(kRecycleBin) != std::string::npos) {
        target = "trash:///";
    } else if (file.size() >= 2 && file[1] == ':') {
        const auto native = map_.ToNative(file);
        if (!native) return kNotFound;
        target = *native;
    } else {
        target = file;
    }
    std::vector<std::string> command;
    const std::string gio = FindProgram({"gio"});
    const std::string xdg = FindProgram({"xdg-open"});
    if (target == "trash:///" && !gio.empty())
        command = {gio, "open", target};
    else if (!xdg.empty())
        command = {xdg, target};
    else if (!gio.empty())
        command = {gio, "open", target};
    else
        command = {"xdg-open", target};
    const bool started = opener_ ? opener_(command) : (!gio.empty() || !xdg.empty()) && Spawn(command);
    return started ? kOk : kNoAssociation;
}

std::int32_t LinuxShell::Shell_NotifyIconA(std::uint32_t message, std::span<const std::uint8_t, 88> data) {
    // The record is kept and never shown: the desktop's tray belongs to the window layer.
    return trayIcons_.Apply(message, portable::TrayIcons::Read(data)) ? 1 : 0;
}

std::int32_t LinuxShell::SHGetSpecialFolderLocation(platform::WindowHandle, std::int32_t folder, platform::Pidl& pidl) {
    if (folder != platform::kCsidlDesktop) return -1;
    pidl = items_.Desktop();
    return 0;
}

std::uint32_t LinuxShell::SHChangeNotifyRegister(platform::WindowHandle window, std::int32_t, std::int32_t,
                                                 std::uint32_t message, platform::Pidl root, bool) {
    return items_.Register(window, message, root);
}

std::uintptr_t LinuxShell::SHGetFileInfoA(platform::Pidl pidl, std::uint32_t, std::span<std::uint8_t, 352> info,
                                          std::uint32_t flags) {
    return items_.FileInfo(pidl, info, flags);
}

bool LinuxShell::SHGetPathFromIDListA(platform::Pidl pidl, std::span<char, 260> path) {
    return items_.PathOf(pidl, path);
}

bool LinuxShell::CopyMemory(std::span<std::uint8_t> destination, std::uintptr_t source) {
    return items_.CopyMemory(destination, source);
}

} // namespace linuxbk

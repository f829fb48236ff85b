// The simulated machine's shell: opening documents, the notification-area
// icons, and the items and change reports the tests deliver.
#include "platform/fake/machine.h"

#include <cstdio>

#include "platform/fake/journal_text.h"

namespace fake {

std::intptr_t Machine::ShellExecuteA(platform::WindowHandle owner, const std::string& verb, const std::string& file,
                                     const std::string& parameters, const std::string& directory,
                                     std::int32_t showCommand) {
    record("ShellExecuteA",
           {std::to_string(owner), Quote(verb), Quote(file), Quote(parameters), Quote(directory),
            std::to_string(showCommand)},
           "42", true);
    return 42;
}

std::int32_t Machine::Shell_NotifyIconA(std::uint32_t message, std::span<const std::uint8_t, 88> data) {
    const auto r = portable::TrayIcons::Read(data);
    const bool ok = trayIcons_.Apply(message, r);
    record(
        "Shell_NotifyIconA",
        {std::to_string(message), std::to_string(r.window), std::to_string(r.id), std::to_string(r.icon), Quote(r.tip)},
        ok ? "1" : "0", true);
    return ok ? 1 : 0;
}

// --- the shell's change reports ---

std::uintptr_t Machine::Place(std::vector<std::uint8_t> bytes) { return shell_.Place(std::move(bytes)); }

bool Machine::CopyMemory(std::span<std::uint8_t> destination, std::uintptr_t source) {
    return shell_.CopyMemory(destination, source);
}

platform::Pidl Machine::ShellItem(const std::string& displayName, const std::string& path) {
    return shell_.Item(displayName, path);
}

std::int32_t Machine::SHGetSpecialFolderLocation(platform::WindowHandle owner, std::int32_t folder,
                                                 platform::Pidl& pidl) {
    std::int32_t result = -1;
    if (folder == platform::kCsidlDesktop) {
        pidl = shell_.Desktop();
        result = 0;
    }
    record("SHGetSpecialFolderLocation", {std::to_string(owner), std::to_string(folder)}, std::to_string(result),
           false);
    return result;
}

std::uint32_t Machine::SHChangeNotifyRegister(platform::WindowHandle window, std::int32_t sources, std::int32_t events,
                                              std::uint32_t message, platform::Pidl root, bool recursive) {
    const bool desktop = shell_.IsDesktop(root);
    const std::uint32_t id = shell_.Register(window, message, root);
    char hex[16];
    std::snprintf(hex, sizeof hex, "0x%X", static_cast<unsigned>(sources));
    char ev[16];
    std::snprintf(ev, sizeof ev, "0x%X", static_cast<unsigned>(events));
    record("SHChangeNotifyRegister",
           {std::to_string(window), hex, ev, std::to_string(message), desktop ? "desktop" : "other",
            recursive ? "recursive" : "flat"},
           std::to_string(id), true);
    return id;
}

std::uintptr_t Machine::SHGetFileInfoA(platform::Pidl pidl, std::uint32_t, std::span<std::uint8_t, 352> info,
                                       std::uint32_t flags) {
    return shell_.FileInfo(pidl, info, flags);
}

bool Machine::SHGetPathFromIDListA(platform::Pidl pidl, std::span<char, 260> path) { return shell_.PathOf(pidl, path); }

bool Machine::ShellReport(std::uint32_t event, platform::Pidl item1, platform::Pidl item2) {
    if (shell_.Registrations().empty()) return false;
    const std::uintptr_t items = shell_.ReportRecord(item1, item2);
    const auto windows = shell_.Registrations();
    for (const auto& [window, message] : windows)
        Deliver(window, message, items, static_cast<std::intptr_t>(static_cast<std::int32_t>(event)));
    return true;
}

bool Machine::ShellValueReport(std::uint32_t event, std::uint32_t value, platform::Pidl item2) {
    return ShellReport(event, shell_.ValueRecord(value), item2);
}

} // namespace fake

#pragma once
// The shell stand-in on Linux: the desktop's opener for documents, folders
// and trash:///, notification-area records, and shell items with names and
// paths for the change reports.
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "platform/linux/letter_map.h"
#include "platform/portable/shell_items.h"
#include "platform/shell.h"

namespace linuxbk {

class LinuxShell : public platform::Shell {
public:
    explicit LinuxShell(LetterMap& map) : map_(map) {}

    // What opens documents and folders: the command, then the target.
    // Tests replace it to see what would have been run.
    using Opener = std::function<bool(const std::vector<std::string>&)>;
    void SetOpener(Opener opener) { opener_ = std::move(opener); }

    std::intptr_t ShellExecuteA(platform::WindowHandle owner, const std::string& verb, const std::string& file,
                                const std::string& parameters, const std::string& directory,
                                std::int32_t showCommand) override;
    std::int32_t Shell_NotifyIconA(std::uint32_t message, std::span<const std::uint8_t, 88> data) override;
    std::int32_t SHGetSpecialFolderLocation(platform::WindowHandle owner, std::int32_t folder,
                                            platform::Pidl& pidl) override;
    std::uint32_t SHChangeNotifyRegister(platform::WindowHandle window, std::int32_t sources, std::int32_t events,
                                         std::uint32_t message, platform::Pidl root, bool recursive) override;
    std::uintptr_t SHGetFileInfoA(platform::Pidl pidl, std::uint32_t attributes, std::span<std::uint8_t, 352> info,
                                  std::uint32_t flags) override;
    bool SHGetPathFromIDListA(platform::Pidl pidl, std::span<char, 260> path) override;
    bool CopyMemory(std::span<std::uint8_t> destination, std::uintptr_t source) override;

    // Items (display name and path in Windows form), report records and the
    // windows registered for reports. A delivered report's record and items
    // are freed once every window had it.
    portable::ShellItems& Items() { return items_; }
    std::size_t TrayIcons() const { return trayIcons_.Count(); }

private:
    LetterMap& map_;
    Opener opener_;
    portable::TrayIcons trayIcons_;
    portable::ShellItems items_{0x10000000};
};

} // namespace linuxbk

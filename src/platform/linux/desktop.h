#pragma once
// The program's own process and desktop on Linux: the previous-instance
// channel (a per-user local socket named after the hidden window's class and
// title), the application service, the shell stand-in (the desktop's opener,
// trash:///, notification-area records, shell items with names and paths),
// and a console window system for the window-less tool.
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/application.h"
#include "platform/linux/events.h"
#include "platform/linux/letter_map.h"
#include "platform/portable/shell_items.h"
#include "platform/shell.h"
#include "platform/window_system.h"

namespace linuxbk {

// One listening socket per user, class and title ("\0kestrine.<uid>.<class>.<title>",
// an abstract name, gone with the process).
// The previous-instance channel: a Unix socket named after the hidden
// window's class and title, in a folder only this user can enter
// ($XDG_RUNTIME_DIR/kestrine, else /tmp/kestrine-<uid> made private), so no
// other user can take the name or send requests. Requests are read without
// ever waiting: a client that connects and sends nothing is dropped after a
// short while, and cannot hold the window up.
class InstanceChannel {
public:
    InstanceChannel();
    ~InstanceChannel();
    InstanceChannel(const InstanceChannel&) = delete;
    InstanceChannel& operator=(const InstanceChannel&) = delete;
    // True when this process now holds the name (no other instance does).
    bool Claim(const std::string& className, const std::string& title);
    bool Claimed() const { return static_cast<bool>(listener_); }
    // True when another process holds the name.
    static bool Reachable(const std::string& className, const std::string& title);
    // Sends one request line ("restore", "raise") to the holder of the name.
    static bool Send(const std::string& className, const std::string& title, const std::string& request);
    // The descriptor to wait on (POLLIN: a request or a connection waits) and
    // the requests that are complete now.
    int Fd() const { return ready_.get(); }
    std::vector<std::string> Requests();

    // The private folder the socket lives in; "" when none could be had.
    static std::string Folder();

private:
    struct Client {
        UniqueFd fd;
        std::string text;
        std::chrono::steady_clock::time_point since;
    };
    static std::string Path(const std::string& className, const std::string& title);
    UniqueFd listener_;
    UniqueFd ready_; // epoll: the listener and the clients
    std::vector<Client> clients_;
    std::string className_, title_, path_;
};

class LinuxApplication : public platform::Application {
public:
    LinuxApplication(LetterMap& map, InstanceChannel& channel, std::string commandLine, std::string title = "Kestrine");

    bool PrevInstance() override;
    std::string Title() override { return title_; }
    void SetTitle(const std::string& title) override { title_ = title; }
    std::string Path() override;
    std::string CommandLine() override { return commandLine_; }
    [[noreturn]] void ExitProcess(std::uint32_t code) override;
    char DecimalSeparator() override;
    std::string CurDir() override;
    bool ChDrive(const std::string& drive) override;
    bool ChDir(const std::string& path) override;
    bool CreateProcessA(const std::string& applicationName, const std::string& commandLine) override;

    // The arguments a program is started with: the program file as named,
    // then what the command line holds after it, as one argument.
    static std::vector<std::string> Arguments(const std::string& nativeProgram, const std::string& applicationName,
                                              const std::string& commandLine);

private:
    LetterMap& map_;
    InstanceChannel& channel_;
    std::string commandLine_;
    std::string title_;
};

// Starts a program in the background without a shell; false when it cannot.
bool Spawn(const std::vector<std::string>& arguments);
// The first of the programs that is on PATH, "" when none is.
std::string FindProgram(const std::vector<std::string>& names);

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
    std::size_t TrayIcons() const { return trayIcons_.size(); }

private:
    LetterMap& map_;
    Opener opener_;
    std::map<std::pair<std::uint32_t, std::uint32_t>, std::uint32_t> trayIcons_;
    portable::ShellItems items_{0x10000000};
};

// The window system of the window-less tool: message boxes go to stderr and
// take their default answer, DoEvents delivers what the event sources have
// (device changes as WM_DEVICECHANGE through the window's procedure chain),
// the timer is the local clock, procedures and properties are an in-process
// chain of the same shape as the real one.
class ConsoleWindows : public platform::WindowSystem {
public:
    ConsoleWindows(LetterMap& map, InstanceChannel& channel, EventSources* events);

    static constexpr platform::WindowHandle kOwnHiddenWindow = 0x1000;
    static constexpr platform::WindowHandle kOtherHiddenWindow = 0x2000;
    static constexpr platform::WindowHandle kOtherMainWindow = 0x2001;
    static constexpr std::intptr_t kOwnProcedure = 0x0BA5E;

    // The window device changes are delivered to, and what its own procedure does.
    void SetMainWindow(platform::WindowHandle window) { main_ = window; }
    using OwnProcedure =
        std::function<std::intptr_t(platform::WindowHandle, std::uint32_t, std::uintptr_t, std::intptr_t)>;
    void SetOwnProcedure(OwnProcedure procedure) { own_ = std::move(procedure); }
    // Receives every event DoEvents reads (after device changes were delivered).
    void SetEventObserver(std::function<void(const SystemEvent&)> observer) { observer_ = std::move(observer); }
    // Sends a message through the window's procedure chain.
    std::intptr_t Deliver(platform::WindowHandle window, std::uint32_t message, std::uintptr_t wParam,
                          std::intptr_t lParam);
    // Where message boxes are written (stderr by default).
    void SetMessageSink(std::function<void(const std::string&)> sink) { sink_ = std::move(sink); }

    platform::WindowHandle FindWindowA(const std::string& className, const std::string& windowName) override;
    platform::WindowHandle GetWindow(platform::WindowHandle window, std::uint32_t command) override;
    bool OpenIcon(platform::WindowHandle window) override;
    bool SetForegroundWindow(platform::WindowHandle window) override;
    std::int32_t MessageBoxA(platform::WindowHandle owner, const std::string& text, const std::string& caption,
                             std::uint32_t type) override;
    void DoEvents() override;
    void WaitForMessages(float seconds) override;
    float Timer() override;
    std::intptr_t SendMessageA(platform::WindowHandle window, std::uint32_t message, std::uintptr_t wParam,
                               std::intptr_t lParam) override;
    std::intptr_t GetWindowLongA(platform::WindowHandle window, std::int32_t index) override;
    std::intptr_t SetWindowLongA(platform::WindowHandle window, std::int32_t index, std::intptr_t value) override;
    std::intptr_t CallWindowProcA(std::intptr_t previous, platform::WindowHandle window, std::uint32_t message,
                                  std::uintptr_t wParam, std::intptr_t lParam) override;
    bool SetPropA(platform::WindowHandle window, const std::string& name, std::intptr_t value) override;
    std::intptr_t GetPropA(platform::WindowHandle window, const std::string& name) override;
    std::intptr_t RemovePropA(platform::WindowHandle window, const std::string& name) override;
    bool MessageBeep(std::uint32_t type) override;
    bool FlashWindow(platform::WindowHandle window, bool invert) override;
    bool SetWindowPos(platform::WindowHandle window, platform::WindowHandle insertAfter, std::int32_t x, std::int32_t y,
                      std::int32_t cx, std::int32_t cy, std::uint32_t flags) override;
    platform::TwipsRect WorkArea() override;
    std::uintptr_t LoadPicture(const std::string& file) override;

private:
    LetterMap& map_;
    InstanceChannel& channel_;
    EventSources* events_;
    platform::WindowHandle main_ = 0;
    OwnProcedure own_;
    std::function<void(const SystemEvent&)> observer_;
    std::function<void(const std::string&)> sink_;
    std::string otherTitle_;
    std::map<platform::WindowHandle, std::intptr_t> styles_;
    std::map<platform::WindowHandle, std::intptr_t> procedures_;
    std::map<std::pair<platform::WindowHandle, std::string>, std::intptr_t> props_;
    std::uintptr_t nextPicture_ = 0x7000;
};

// The screen size in pixels from the kernel's display connectors, when one is connected.
std::optional<std::pair<int, int>> ScreenPixels(const std::string& sysRoot = "/sys");

} // namespace linuxbk

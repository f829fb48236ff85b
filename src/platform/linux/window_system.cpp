#include "platform/linux/window_system.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <filesystem>

#include <poll.h>
#include <unistd.h>

namespace linuxbk {

ConsoleWindows::ConsoleWindows(LetterMap& map, InstanceChannel& channel, EventSources* events)
    : map_(map), channel_(channel), events_(events) {}

platform::WindowHandle ConsoleWindows::FindWindowA(const std::string& className, const std::string& windowName) {
    if (className != platform::kHiddenWindowClass) return 0;
    if (InstanceChannel::Reachable(className, windowName)) {
        if (channel_.Claimed()) return kOwnHiddenWindow; // this process holds the name
        otherTitle_ = windowName;
        return kOtherHiddenWindow;
    }
    return 0;
}

platform::WindowHandle ConsoleWindows::GetWindow(platform::WindowHandle window, std::uint32_t command) {
    return command == platform::kGwHwndPrev && window == kOtherHiddenWindow ? kOtherMainWindow : 0;
}

bool ConsoleWindows::OpenIcon(platform::WindowHandle window) {
    return window == kOtherMainWindow && InstanceChannel::Send(platform::kHiddenWindowClass, otherTitle_, "restore");
}

bool ConsoleWindows::SetForegroundWindow(platform::WindowHandle window) {
    return window == kOtherMainWindow && InstanceChannel::Send(platform::kHiddenWindowClass, otherTitle_, "raise");
}

std::int32_t ConsoleWindows::MessageBoxA(platform::WindowHandle, const std::string& text, const std::string& caption,
                                         std::uint32_t type) {
    std::string shown = text;
    for (std::size_t at; (at = shown.find("\r\n")) != std::string::npos;) shown.replace(at, 2, 1, '\n');
    while (!shown.empty() && shown.back() == '\n') shown.pop_back();
    const std::string line = caption + ": " + shown + "\n";
    if (sink_)
        sink_(line);
    else
        std::fputs(line.c_str(), stderr);
    if ((type & 0xF) == platform::kMbYesNo)
        return (type & platform::kMbDefButton2) != 0 ? platform::kIdNo : platform::kIdYes;
    return platform::kIdOk;
}

void ConsoleWindows::DoEvents() {
    channel_.Requests(); // a second start asks to be shown: the console has nothing to show
    if (events_ == nullptr) return;
    for (const auto& e : events_->Read()) {
        if (main_ != 0 && e.kind == SystemEvent::Kind::DeviceArrived)
            Deliver(main_, platform::kWmDeviceChange, platform::kDbtDeviceArrival, 0);
        else if (main_ != 0 && e.kind == SystemEvent::Kind::DeviceRemoved)
            Deliver(main_, platform::kWmDeviceChange, platform::kDbtDeviceRemoveComplete, 0);
        if (observer_) observer_(e);
    }
}

void ConsoleWindows::WaitForMessages(float seconds) {
    std::vector<pollfd> fds = events_ != nullptr ? events_->PollFds() : std::vector<pollfd>{};
    if (channel_.Fd() >= 0) fds.push_back({channel_.Fd(), POLLIN, 0});
    const int ms = static_cast<int>(std::ceil(std::max(seconds, 0.0f) * 1000.0f));
    if (::poll(fds.data(), fds.size(), ms) < 0 && errno != EINTR) ::usleep(static_cast<useconds_t>(ms) * 1000);
}

float ConsoleWindows::Timer() {
    const auto now = std::chrono::system_clock::now();
    const std::time_t t = std::chrono::system_clock::to_time_t(now);
    std::tm local{};
    ::localtime_r(&t, &local);
    const auto fraction =
        std::chrono::duration_cast<std::chrono::microseconds>(now.time_since_epoch()).count() % 1'000'000;
    return static_cast<float>(local.tm_hour * 3600 + local.tm_min * 60 + local.tm_sec) +
           static_cast<float>(fraction) / 1e6f;
}

std::intptr_t ConsoleWindows::SendMessageA(platform::WindowHandle window, std::uint32_t message, std::uintptr_t,
                                           std::intptr_t) {
    if (message == platform::kLvmGetHeader && window != 0)
        return static_cast<std::intptr_t>(portable::WindowProcedures::HeaderOf(window));
    return 0;
}

std::intptr_t ConsoleWindows::GetWindowLongA(platform::WindowHandle window, std::int32_t index) {
    if (index == platform::kGwlWndProc) return windows_.Procedure(window);
    return index == platform::kGwlStyle ? windows_.Style(window) : 0;
}

std::intptr_t ConsoleWindows::SetWindowLongA(platform::WindowHandle window, std::int32_t index, std::intptr_t value) {
    if (index == platform::kGwlWndProc) return windows_.SetProcedure(window, value);
    return index == platform::kGwlStyle ? windows_.SetStyle(window, value) : 0;
}

std::intptr_t ConsoleWindows::CallWindowProcA(std::intptr_t previous, platform::WindowHandle window,
                                              std::uint32_t message, std::uintptr_t wParam, std::intptr_t lParam) {
    return portable::WindowProcedures::Call(previous, window, message, wParam, lParam, own_);
}

std::intptr_t ConsoleWindows::Deliver(platform::WindowHandle window, std::uint32_t message, std::uintptr_t wParam,
                                      std::intptr_t lParam) {
    return windows_.Deliver(window, message, wParam, lParam, own_);
}

bool ConsoleWindows::SetPropA(platform::WindowHandle window, const std::string& name, std::intptr_t value) {
    return windows_.SetProp(window, name, value);
}

std::intptr_t ConsoleWindows::GetPropA(platform::WindowHandle window, const std::string& name) {
    return windows_.Prop(window, name);
}

std::intptr_t ConsoleWindows::RemovePropA(platform::WindowHandle window, const std::string& name) {
    return windows_.RemoveProp(window, name);
}

bool ConsoleWindows::MessageBeep(std::uint32_t) {
    if (::isatty(STDERR_FILENO) != 0) {
        const char bell = '\a';
        return ::write(STDERR_FILENO, &bell, 1) == 1;
    }
    return true;
}

bool ConsoleWindows::FlashWindow(platform::WindowHandle window, bool) { return window != 0; }

bool ConsoleWindows::SetWindowPos(platform::WindowHandle window, platform::WindowHandle, std::int32_t, std::int32_t,
                                  std::int32_t, std::int32_t, std::uint32_t) {
    return window != 0;
}

std::optional<std::pair<int, int>> ScreenPixels(const std::string& sysRoot) {
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(sysRoot + "/class/drm", ec)) {
        const std::string folder = entry.path().string();
        if (ReadAttr(folder + "/status") != "connected") continue;
        const std::string mode = ReadAttr(folder + "/modes"); // "1920x1080"
        const auto x = mode.find('x');
        if (x == std::string::npos) continue;
        try {
            return std::make_pair(std::stoi(mode.substr(0, x)), std::stoi(mode.substr(x + 1)));
        } catch (const std::exception&) {
            continue;
        }
    }
    return std::nullopt;
}

platform::TwipsRect ConsoleWindows::WorkArea() {
    // Without a window toolkit the panels are unknown: the whole screen, or
    // a common one when no display is connected.
    const auto screen = ScreenPixels().value_or(std::make_pair(1920, 1040));
    return {0, 0, screen.first * 15.0, screen.second * 15.0};
}

std::uintptr_t ConsoleWindows::LoadPicture(const std::string& file) {
    const auto native = map_.ToNative(file);
    if (!native || ::access(native->c_str(), R_OK) != 0) return 0;
    return nextPicture_++;
}

} // namespace linuxbk

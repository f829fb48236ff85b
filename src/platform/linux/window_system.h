#pragma once
// The console window system of the window-less tool on Linux.
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "platform/linux/events.h"
#include "platform/linux/instance_channel.h"
#include "platform/linux/letter_map.h"
#include "platform/portable/window_procedures.h"
#include "platform/window_system.h"

namespace linuxbk {

// The window system of the window-less tool: message boxes go to stderr and
// take their default answer, DoEvents delivers what the event sources have
// (device changes as WM_DEVICECHANGE through the window's procedure chain),
// the timer is the local clock, procedures and properties are an in-process
// chain of the same shape as the real one.
class ConsoleWindows : public platform::WindowSystem {
public:
    ConsoleWindows(LetterMap& map, InstanceChannel& channel, EventSources* events);

    static constexpr platform::WindowHandle kOwnHiddenWindow = portable::WindowProcedures::kOwnHiddenWindow;
    static constexpr platform::WindowHandle kOtherHiddenWindow = portable::WindowProcedures::kOtherHiddenWindow;
    static constexpr platform::WindowHandle kOtherMainWindow = portable::WindowProcedures::kOtherMainWindow;
    static constexpr std::intptr_t kOwnProcedure = portable::WindowProcedures::kOwnProcedure;

    // The window device changes are delivered to, and what its own procedure does.
    void SetMainWindow(platform::WindowHandle window) { main_ = window; }
    using OwnProcedure = portable::WindowProcedures::OwnProcedure;
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
    portable::WindowProcedures windows_;
    std::uintptr_t nextPicture_ = 0x7000;
};

// The screen size in pixels from the kernel's display connectors, when one is connected.
std::optional<std::pair<int, int>> ScreenPixels(const std::string& sysRoot = "/sys");

} // namespace linuxbk

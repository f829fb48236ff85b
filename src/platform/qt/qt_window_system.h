#pragma once
// The window system of the Qt program: what concerns the window itself is
// done with Qt (message boxes with the given title, icon and buttons,
// yielding as processEvents, the beep, the topmost request, flashing, the
// work area of the screen); everything else (other instances' windows, the
// window-procedure chain, properties, the timer, pictures) is the backend's.
#include <functional>
#include <string>

#include "platform/qt/qt_window.h"
#include "platform/window_system.h"

namespace qtui {

class QtWindowSystem : public platform::WindowSystem {
public:
    // yieldToBase: a yield also lets the backend deliver what it has queued
    // (the simulated machine's events); the Linux backend's events arrive
    // through the Qt event loop instead.
    QtWindowSystem(platform::WindowSystem& base, QtWindow& window, bool yieldToBase = false)
        : base_(base), window_(window), yieldToBase_(yieldToBase) {}

    platform::WindowHandle FindWindowA(const std::string& className, const std::string& windowName) override {
        return base_.FindWindowA(className, windowName);
    }
    platform::WindowHandle GetWindow(platform::WindowHandle window, std::uint32_t command) override {
        return base_.GetWindow(window, command);
    }
    bool OpenIcon(platform::WindowHandle window) override;
    bool SetForegroundWindow(platform::WindowHandle window) override;
    std::int32_t MessageBoxA(platform::WindowHandle owner, const std::string& text, const std::string& caption,
                             std::uint32_t type) override;
    void DoEvents() override;
    void WaitForMessages(float seconds) override;
    float Timer() override { return base_.Timer(); }
    std::intptr_t SendMessageA(platform::WindowHandle window, std::uint32_t message, std::uintptr_t wParam,
                               std::intptr_t lParam) override {
        return base_.SendMessageA(window, message, wParam, lParam);
    }
    std::intptr_t GetWindowLongA(platform::WindowHandle window, std::int32_t index) override {
        return base_.GetWindowLongA(window, index);
    }
    std::intptr_t SetWindowLongA(platform::WindowHandle window, std::int32_t index, std::intptr_t value) override {
        return base_.SetWindowLongA(window, index, value);
    }
    std::intptr_t CallWindowProcA(std::intptr_t previous, platform::WindowHandle window, std::uint32_t message,
                                  std::uintptr_t wParam, std::intptr_t lParam) override {
        return base_.CallWindowProcA(previous, window, message, wParam, lParam);
    }
    bool SetPropA(platform::WindowHandle window, const std::string& name, std::intptr_t value) override {
        return base_.SetPropA(window, name, value);
    }
    std::intptr_t GetPropA(platform::WindowHandle window, const std::string& name) override {
        return base_.GetPropA(window, name);
    }
    std::intptr_t RemovePropA(platform::WindowHandle window, const std::string& name) override {
        return base_.RemovePropA(window, name);
    }
    bool MessageBeep(std::uint32_t type) override;
    bool FlashWindow(platform::WindowHandle window, bool invert) override;
    bool SetWindowPos(platform::WindowHandle window, platform::WindowHandle insertAfter, std::int32_t x, std::int32_t y,
                      std::int32_t cx, std::int32_t cy, std::uint32_t flags) override;
    platform::TwipsRect WorkArea() override;
    std::uintptr_t LoadPicture(const std::string& file) override { return base_.LoadPicture(file); }

    int Beeps() const { return beeps_; }
    // Where the system's own word on what just happened comes from (why an
    // eject was refused, and who holds the device): shown beside a message
    // box's text, which stays as the program wrote it, and as its details.
    struct Notice {
        std::string reason, details;
    };
    void SetNotices(std::function<Notice()> notices) { notices_ = std::move(notices); }

private:
    platform::WindowSystem& base_;
    QtWindow& window_;
    bool yieldToBase_;
    int beeps_ = 0;
    std::function<Notice()> notices_;
};

} // namespace qtui
